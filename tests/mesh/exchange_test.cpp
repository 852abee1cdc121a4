// What leaves a mesh and what comes back: export, compact, volume.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <vector>

#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "mesh/compact.h"
#include "mesh/export_data.h"
#include "mesh/shells.h"
#include "mesh/volume.h"

namespace povmesh {
namespace {

using shapes::Random;

struct Freed : SoupArrays {
    explicit Freed(const SoupArrays& arrays) : SoupArrays(arrays) {}
    Freed(const Freed&) = delete;
    Freed& operator=(const Freed&) = delete;
    ~Freed() {
        std::free(coordinates);
        std::free(colours);
        std::free(texture_coordinates);
        std::free(labels);
    }
};

// Bits, so that signed zeros and NaN count too.
template <typename T>
bool is_same(const T* actual, const std::vector<T>& expected) {
    return expected.empty() ||
           std::memcmp(actual, expected.data(), expected.size() * sizeof(T)) == 0;
}

// A mesh as operations leave it: faces deleted, faces with vertices of their own appended.
TriMesh worked_mesh(Random& random, std::uint64_t side = 4) {
    const std::size_t count = random.below(40);
    std::vector<float> coordinates(count * 9);
    std::vector<std::uint8_t> colours(count * 9);
    std::vector<float> uv(count * 6);
    std::vector<std::int32_t> labels(count);
    for (float& x : coordinates) x = static_cast<float>(random.below(side));
    for (auto& byte : colours) byte = static_cast<std::uint8_t>(random.below(256));
    for (float& x : uv) x = static_cast<float>(random.unit());
    for (auto& label : labels) label = static_cast<std::int32_t>(random.below(4)) - 1;
    TriMesh mesh;
    build_f(mesh, ByteSoup{count, coordinates.data(), colours.data(),
                           random.below(3) == 0 ? nullptr : uv.data(), labels.data()});
    for (Face& face : mesh.faces) face.deleted = random.below(4) == 0 ? 1 : 0;
    for (std::size_t i = random.below(10); i > 0 && !mesh.vertices.empty(); --i) {
        Face face = {{}, 0, -1, {}, {-1, -1, -1}};
        for (auto& v : face.vertex) {
            v = static_cast<std::int32_t>(random.below(mesh.vertices.size()));
            if (random.below(2) != 0) continue;
            Vertex copy = mesh.vertices[static_cast<std::size_t>(v)];
            v = copy.index = static_cast<std::int32_t>(mesh.vertices.size());
            mesh.vertices.push_back(copy);
        }
        mesh.faces.push_back(face);
    }
    for (TextureCoordinate& t : mesh.texture_coordinates) {  // floats no longer
        t.u += 1e-12;
        t.v -= 1e-12;
    }
    if (!mesh.faces.empty()) mesh.faces[0].label = -1;  // and its texture coordinates forgotten
    return mesh;
}

TEST(ExportData, GivesBackWhatWentIn) {
    const std::vector<float> coordinates = {-0.0F, 0, 0, 1, 0, 0, 0, 1, 0};
    const std::vector<float> colours = {1, 0.5F, 0, 1, 1, 1, 1, 1, 1};
    const std::vector<float> uv = {0.1F, 0.2F, 0.3F, 0.4F, 0.5F, 0.6F};
    for (const std::int32_t label : {0, -1, 65535}) {
        for (const float* texture : {uv.data(), static_cast<const float*>(nullptr)}) {
            TriMesh mesh;
            build_f(mesh, Soup{1, coordinates.data(), colours.data(), texture, &label});
            const Freed out(export_data(mesh));
            EXPECT_TRUE(is_same(out.coordinates, coordinates));
            EXPECT_EQ(out.colours[0], 1.0F);
            EXPECT_EQ(out.colours[1], static_cast<float>(127 / 255.0));
            EXPECT_EQ(out.labels[0], label == 0 ? 0 : -1);
            const bool has_uv = label == 0 && texture != nullptr;
            EXPECT_TRUE(is_same(out.texture_coordinates, has_uv ? uv : std::vector<float>(6)));
        }
    }
}

TEST(ExportData, RefusesIndicesThatAreNotThere) {
    const float coordinates[] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    const float uv[] = {0, 0, 0, 0, 0, 0};
    const std::int32_t label = 3;
    TriMesh sound;
    build_f(sound, Soup{1, coordinates, nullptr, uv, &label});
    for (const std::int32_t bad : {3, -1, -2, INT32_MAX, INT32_MIN}) {
        for (const bool is_texture : {false, true}) {
            if (is_texture && bad == -1) continue;  // -1 stands for none
            TriMesh mesh = sound;
            (is_texture ? mesh.faces[0].uv : mesh.faces[0].vertex)[1] = bad;
            try {
                const Freed out(export_data(mesh));
                ADD_FAILURE() << "index " << bad << " was taken";
            } catch (const std::out_of_range& error) {
                EXPECT_STREQ(error.what(), "invalid vector<T> subscript");
            }
        }
    }
}

TEST(ExportParts, DropsSmallPartsAndKeepsEveryRecordOfTheOthers) {
    const auto part = [](float size) {
        return shapes::mesh_of(shapes::box({0, 0, 0}, {1, 1, size}));
    };
    TriMesh mesh;
    mesh.parts = {part(0.999F), part(1),
                  shapes::mesh_of(shapes::turned(shapes::box({0, 0, 0}, {9, 9, 9}))), part(5),
                  TriMesh()};
    Random random(8);
    TriMesh worked = worked_mesh(random, 50);
    while (volume(worked) < 1.0) worked = worked_mesh(random, 50);
    mesh.parts.push_back(worked);
    mesh.parts[3].faces[11].deleted = 1;  // an upright side, on the axis the sum starts from or not
    ASSERT_GE(volume(mesh.parts[3]), 1.0);

    drop_small_parts(mesh);
    const MultiSoupArrays out = export_parts(mesh);
    const Freed soup(out.soup);
    const std::vector<std::uint32_t> counts(out.part_triangles,
                                            out.part_triangles + out.part_count);
    std::free(out.part_triangles);

    const auto last = static_cast<std::uint32_t>(worked.faces.size());
    EXPECT_EQ(counts, (std::vector<std::uint32_t>{12, 12, last}));
    ASSERT_EQ(mesh.parts.size(), 3U);
    std::size_t first = 0;
    for (TriMesh kept : mesh.parts) {
        for (Face& face : kept.faces) face.deleted = 0;
        const reference::Arrays one = reference::exported(kept);
        EXPECT_TRUE(is_same(soup.coordinates + 9 * first, one.coordinates));
        EXPECT_TRUE(is_same(soup.colours + 9 * first, one.colours));
        EXPECT_TRUE(is_same(soup.texture_coordinates + 6 * first, one.texture_coordinates));
        EXPECT_TRUE(is_same(soup.labels + first, one.labels));
        first += one.labels.size();
    }
    EXPECT_EQ(soup.triangle_count, first);

    const MultiSoupArrays nothing = export_parts({});
    const Freed empty(nothing.soup);
    EXPECT_TRUE(empty.coordinates && empty.colours && empty.texture_coordinates && empty.labels);
    EXPECT_EQ(empty.triangle_count, 0U);
    EXPECT_EQ(nothing.part_count, 0U);
    EXPECT_NE(nothing.part_triangles, nullptr);
    std::free(nothing.part_triangles);
}

TEST(Compact, IsTheRoundTripThroughASoup) {
    for (std::uint64_t seed = 1; seed <= 600; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Random random(seed);
        TriMesh mesh = worked_mesh(random);
        const TriMesh expected =
            live_face_count(mesh) == 0 ? mesh : reference::rebuilt(reference::exported(mesh));
        compact(mesh);
        ASSERT_EQ(reference::difference(expected, mesh), "");
        ASSERT_TRUE(live_face_count(mesh) == 0 || is_consistent(mesh));
    }
}

TEST(Compact, LeavesOutFacesWhoseVerticesAreNotThere) {
    const std::vector<float> coordinates = {0, 0, 0, 1, 0, 0, 0, 1, 0, 5, 5, 5, 6, 5, 5, 5, 6, 5};
    const std::vector<float> uv(12, 0.5F);
    const std::vector<std::int32_t> labels = {2, 2};
    for (const std::int32_t bad : {6, -1, -2, INT32_MIN, INT32_MAX}) {
        TriMesh mesh;
        build_f(mesh, Soup{2, coordinates.data(), nullptr, uv.data(), labels.data()});
        mesh.faces[0].vertex[1] = bad;
        mesh.faces[1].uv[2] = bad;
        compact(mesh);
        ASSERT_EQ(mesh.faces.size(), 1U) << bad;
        ASSERT_EQ(mesh.vertices.size(), 3U) << bad;
        EXPECT_EQ(mesh.vertices[0].x, 5) << bad;
        ASSERT_EQ(mesh.texture_coordinates.size(), 3U) << bad;
        EXPECT_EQ(mesh.texture_coordinates[1].u, 0.5) << bad;
        EXPECT_EQ(mesh.texture_coordinates[2].u, 0.0) << bad;
    }
}

TEST(Compact, EmptiesTablesOnlyWhereItRebuilds) {
    TriMesh mesh = shapes::mesh_of(shapes::box({0, 0, 0}, {1, 1, 1}));
    mesh.parts.resize(1);
    label_shells(mesh);
    TriMesh dead = mesh;
    for (Face& face : dead.faces) face.deleted = 1;
    compact(dead);
    EXPECT_EQ(dead.faces.size(), 12U);
    EXPECT_EQ(dead.vertices.size(), 8U);
    EXPECT_EQ(dead.shells.size(), 1U);

    mesh.faces[0].deleted = 1;
    compact(mesh);
    EXPECT_EQ(mesh.faces.size(), 11U);
    EXPECT_EQ(mesh.shells.size(), 0U);
    EXPECT_FALSE(mesh.use_table.is_built());
    EXPECT_EQ(mesh.parts.size(), 1U);
}

TEST(Volume, KnowsBoxesAndOpenMeshesWhereverTheyStand) {
    const auto box = shapes::box({-1, -2, -3}, {1, 2, 5});
    EXPECT_EQ(volume(shapes::mesh_of(box)), 64.0);
    EXPECT_EQ(volume(shapes::mesh_of(shapes::turned(box))), 0.0);
    EXPECT_EQ(signed_volume(shapes::mesh_of(shapes::turned(box))), -64.0);
    EXPECT_EQ(volume(TriMesh()), 0.0);
    // What is missing without the faces at x = 1 is the cone over them from (0, 0, lowest z).
    TriMesh open = shapes::mesh_of(shapes::box({-1, -2, -3}, {1, 2, 5}));
    for (Face& face : open.faces) {
        bool is_right = true;
        for (std::size_t c = 0; c < 3; ++c) is_right &= open.corner_position(face, c).x == 1;
        if (is_right) face.deleted = 1;
    }
    EXPECT_NEAR(signed_volume(open), 64.0 - 4 * 8 * 1 / 3.0, 1e-12);
}

}  // namespace
}  // namespace povmesh
