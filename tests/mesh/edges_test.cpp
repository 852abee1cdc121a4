// Uses, edge mates and shells against brute force, and where very many faces meet.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <numeric>
#include <set>
#include <vector>

#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "mesh/edge_mates.h"
#include "mesh/shells.h"

namespace povmesh {
namespace {

using shapes::Random;

constexpr std::size_t kMany = 100'000;

// Up to 80 triangles on a grid of 2 to 5 points a side, some of them deleted.
TriMesh random_mesh(std::uint64_t seed) {
    Random random(seed);
    const std::uint64_t side = 2 + random.below(4);
    std::vector<float> soup(random.below(80) * 9);
    for (float& x : soup) x = static_cast<float>(random.below(side));
    TriMesh mesh = shapes::mesh_of(soup);
    for (Face& face : mesh.faces) face.deleted = random.below(6) == 0 ? 255 : 0;
    return mesh;
}

bool runs_along(const Face& face, std::int32_t from, std::int32_t to) {
    for (std::size_t c = 0; c < 3; ++c) {
        if (face.vertex[c] == from && face.vertex[next_corner(c)] == to) return true;
    }
    return false;
}

void expect_mates(const TriMesh& mesh, const EdgeMates& mates) {
    const reference::UseLists uses = reference::use_lists(mesh);
    std::map<std::set<std::uint32_t>, std::set<std::size_t>> groups_of_faces;
    std::set<std::set<std::int32_t>> edges_of_many;
    for (std::uint32_t f = 0; f < mesh.faces.size(); ++f) {
        for (std::size_t e = 0; e < 3; ++e) {
            SCOPED_TRACE("face " + std::to_string(f) + ", edge " + std::to_string(e));
            const std::int32_t from = mesh.faces[f].vertex[e];
            const std::int32_t to = mesh.faces[f].vertex[next_corner(e)];
            std::set<std::uint32_t> others;
            if (mesh.faces[f].deleted == 0) others = reference::across(mesh, uses, f, e);
            using Kind = EdgeMates::Kind;
            const Kind kind = others.empty()       ? Kind::Open
                              : others.size() == 1 ? Kind::Manifold
                                                   : Kind::NonManifold;
            ASSERT_EQ(mates.kind(f, e), kind);
            if (kind == Kind::Manifold) {
                ASSERT_EQ(mates.mate(f, e), *others.begin());
                ASSERT_EQ(mates.is_same_direction(f, e),
                          runs_along(mesh.faces[*others.begin()], from, to));
            } else if (kind == Kind::NonManifold) {
                others.insert(f);
                edges_of_many.insert({from, to});
                ASSERT_LT(mates.group_of(f, e), mates.group_count());
                const auto group = mates.group(mates.group_of(f, e));
                ASSERT_TRUE(std::equal(group.begin(), group.end(), others.begin(), others.end()));
            }
        }
    }
    ASSERT_EQ(mates.group_count(), edges_of_many.size());
}

TEST(Edges, LoseOrInventNoMate) {
    for (std::uint64_t seed = 1; seed <= 1500; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        TriMesh mesh = random_mesh(seed);
        const TriMesh before = mesh;
        expect_mates(mesh, EdgeMates::without_uses(mesh));
        ASSERT_FALSE(mesh.use_table.is_built());
        const EdgeMates mates(mesh);
        expect_mates(mesh, mates);
        ASSERT_TRUE(is_consistent(mesh));
        const reference::Shells expected = reference::shells(mesh);
        label_shells(mesh, mates);
        ASSERT_EQ(reference::as_lists(mesh.shells), expected);
        mesh.shells.clear();
        label_shells(mesh);
        ASSERT_EQ(reference::as_lists(mesh.shells), expected);
        ASSERT_EQ(reference::difference(before, mesh), "");
        if (HasFatalFailure()) break;
    }
}

TEST(Edges, AreFoundInALargeMesh) {
    auto soup = shapes::rock(10, 4);
    shapes::append(soup, shapes::turned(shapes::box({50, 0, 0}, {60, 1, 1})));
    TriMesh mesh = shapes::mesh_of(shapes::shuffled(soup, 5));
    const EdgeMates mates(mesh);
    expect_mates(mesh, mates);
    EXPECT_EQ(mates.group_count(), 0U);
    label_shells(mesh, mates);
    EXPECT_EQ(reference::as_lists(mesh.shells), reference::shells(mesh));
    EXPECT_EQ(mesh.shells.size(), 2U);
}

// Separate triangles with their first corner in common.
shapes::SoupVector bouquet(std::size_t count) {
    shapes::SoupVector soup;
    for (std::size_t i = 0; i < count; ++i) {
        const auto x = static_cast<float>(i);
        soup.insert(soup.end(), {0, 0, 9, x, 1000, 0, x, 1001, 0});
    }
    return soup;
}

// A search around the common vertex or edge for every face would not end within the hour.
TEST(Edges, OfManyFacesTakeLinearTime) {
    const struct {
        const char* name;
        shapes::SoupVector soup;
        std::size_t shells, open, manifold, groups;
    } cases[] = {
        {"fan", shapes::fan(kMany, 500), 1, kMany, 2 * kMany, 0},
        {"shuffled fan", shapes::shuffled(shapes::fan(kMany, 500), 1), 1, kMany, 2 * kMany, 0},
        {"book", shapes::book(kMany), 1, 2 * kMany, 0, 1},
        {"bouquet", bouquet(kMany), kMany, 3 * kMany, 0, 0}};
    for (const auto& c : cases) {
        TriMesh mesh = shapes::mesh_of(c.soup);
        ASSERT_EQ(mesh.faces.size(), kMany) << c.name;
        const EdgeMates mates(mesh);
        std::array<std::size_t, 3> kinds{};
        for (std::size_t i = 0; i < kMany * 3; ++i) {
            ++kinds[static_cast<std::size_t>(mates.kind(i / 3, i % 3))];
        }
        EXPECT_EQ(kinds[0], c.open) << c.name;
        EXPECT_EQ(kinds[1], c.manifold) << c.name;
        EXPECT_EQ(mates.group_count(), c.groups) << c.name;
        label_shells(mesh, mates);
        EXPECT_EQ(mesh.shells.size(), c.shells) << c.name;
        EXPECT_EQ(mesh.shells.faces.size(), kMany) << c.name;
        EXPECT_EQ(mesh.shells[0][0], 0U) << c.name;
    }
    TriMesh book = shapes::mesh_of(shapes::book(kMany));
    label_shells(book);
    std::vector<std::uint32_t> in_order(kMany);
    std::iota(in_order.begin(), in_order.end(), 0U);
    EXPECT_EQ(reference::as_lists(book.shells)[0], in_order);
}

TEST(Edges, OfDeletedFacesAreGone) {
    TriMesh mesh = shapes::mesh_of(shapes::box({0, 0, 0}, {1, 1, 1}));
    for (Face& face : mesh.faces) face.deleted = 1;
    EXPECT_EQ(live_face_count(mesh), 0U);
    label_shells(mesh);
    EXPECT_EQ(mesh.shells.size(), 0U);
    mesh.faces[7].deleted = 0;
    EXPECT_EQ(live_face_count(mesh), 1U);
    label_shells(mesh);
    EXPECT_EQ(reference::as_lists(mesh.shells), (reference::Shells{{7}}));
    TriMesh empty;
    label_shells(empty);
    EXPECT_EQ(EdgeMates(empty).group_count() + empty.shells.size(), 0U);
}

TEST(IsConsistent, CatchesPlantedFaults) {
    const std::pair<const char*, std::function<void(TriMesh&)>> faults[] = {
        {"vertex beyond the end", [](TriMesh& m) { m.faces[3].vertex[1] = 8; }},
        {"vertex below 0", [](TriMesh& m) { m.faces[3].vertex[1] = -1; }},
        {"texture index beyond the end", [](TriMesh& m) { m.faces[3].uv[2] = 0; }},
        {"texture index below -1", [](TriMesh& m) { m.faces[3].uv[2] = -2; }},
        {"other vertex", [](TriMesh& m) { std::swap(m.faces[3].vertex[0], m.faces[3].vertex[1]); }},
        {"face appended", [](TriMesh& m) { m.faces.push_back(m.faces[0]); }},
        {"vertex appended", [](TriMesh& m) { m.vertices.push_back(m.vertices[0]); }},
        {"use twice", [](TriMesh& m) { m.use_table.uses[1] = m.use_table.uses[0]; }},
        {"uses out of order",
         [](TriMesh& m) { std::swap(m.use_table.uses[0], m.use_table.uses[1]); }},
        {"use of another row",
         [](TriMesh& m) { std::swap(m.use_table.uses.front(), m.use_table.uses.back()); }},
        {"corner 3", [](TriMesh& m) { m.use_table.uses[5].face_and_corner |= 3U; }},
        {"face beyond the end", [](TriMesh& m) { m.use_table.uses[5].face_and_corner = 400; }},
        {"row border moved", [](TriMesh& m) { ++m.use_table.offsets[3]; }},
        {"row border falling", [](TriMesh& m) { m.use_table.offsets[3] = 36; }},
        {"row border huge", [](TriMesh& m) { m.use_table.offsets[3] = 4'000'000'000U; }},
        {"use missing", [](TriMesh& m) { m.use_table.uses.pop_back(); }},
        {"last row cut",
         [](TriMesh& m) {
             m.use_table.uses.pop_back();
             --m.use_table.offsets.back();
         }},
    };
    TriMesh sound = shapes::mesh_of(shapes::box({0, 0, 0}, {1, 1, 1}));
    EXPECT_TRUE(is_consistent(sound));  // without uses too
    ensure_uses(sound);
    EXPECT_TRUE(is_consistent(sound));
    for (const auto& [name, plant] : faults) {
        TriMesh mesh = sound;
        plant(mesh);
        EXPECT_FALSE(is_consistent(mesh)) << name;
    }
}

TEST(ReverseWinding, TakesColoursAndTextureAlong) {
    for (const int label : {-1, 0, 7}) {
        const Face face = {{1, 2, 3, 4, 5, 6, 7, 8, 9},
                           0,
                           static_cast<std::int16_t>(label),
                           {10, 11, 12},
                           {20, 21, 22}};
        Face turned = face;
        reverse_winding(turned);
        EXPECT_EQ(turned.vertex, (std::array{11, 10, 12}));
        EXPECT_EQ(turned.colour, (std::array<std::uint8_t, 9>{4, 5, 6, 1, 2, 3, 7, 8, 9}));
        EXPECT_EQ(turned.uv, label < 0 ? face.uv : (std::array{21, 20, 22}));
        reverse_winding(turned);
        EXPECT_EQ(turned.vertex, face.vertex);
        EXPECT_EQ(turned.colour, face.colour);
        EXPECT_EQ(turned.uv, face.uv);
    }
}

}  // namespace
}  // namespace povmesh
