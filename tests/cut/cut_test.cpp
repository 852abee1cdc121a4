#include "cut/cut.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cut/pieces.h"
#include "cut/solids.h"
#include "helpers/job.h"
#include "helpers/shapes.h"
#include "mesh/shells.h"

namespace povmesh {
namespace {

using shapes::SoupVector;

struct Named {
    const char* name;
    TriMesh mesh;
};

std::vector<Named> closed_models() {
    shapes::Random random(7);
    SoupVector overlapping = shapes::box({0, 0, 0}, {4, 4, 4});
    shapes::append(overlapping, shapes::box({2, 1, 1}, {7, 5, 3}));
    SoupVector apart = shapes::sphere(3, 1);
    shapes::append(apart, shapes::box({4, 0, 0}, {5, 1, 1}));
    SoupVector nested = shapes::box({0, 0, 0}, {9, 9, 9});
    shapes::append(nested, shapes::box({2, 2, 2}, {5, 5, 5}));
    SoupVector far = shapes::rock(2, 2);
    shapes::move(far, {1000, -3000, 500});
    SoupVector needle = shapes::box({0, 0, 0}, {0.001F, 0.002F, 50});
    std::vector<Named> models;
    const auto add = [&](const char* name, const SoupVector& soup) {
        models.push_back({name, shapes::mesh_of(soup)});
    };
    add("box", shapes::box({-1, -2, -3}, {1, 2, 3}));
    add("sphere", shapes::sphere(5, 2));
    add("rock", shapes::rock(20, 2));
    add("torus", solids::torus(12, 8, 6, 2));
    add("tube", solids::tube());
    add("hollow box", solids::hollow_box());
    add("overlapping", overlapping);
    add("apart", apart);
    add("nested", nested);
    add("far", far);
    add("needle", needle);
    add("cells", solids::random_cells(random, 4, 7));
    return models;
}

Vec3d random_direction(shapes::Random& random) {
    for (;;) {
        const Vec3d v{random.unit() * 2 - 1, random.unit() * 2 - 1, random.unit() * 2 - 1};
        if (length(v) > 0.1 && length(v) < 1) return v;
    }
}

// Planes of three kinds: anywhere; through a vertex; through three vertices, so along edges and
// faces.
CutPlane random_plane(shapes::Random& random, const TriMesh& mesh) {
    const auto vertex = [&] {
        return to_double(mesh.vertices[random.below(mesh.vertices.size())].position());
    };
    CutPlane plane;
    plane.normal = random_direction(random);
    plane.direction = random_direction(random);
    plane.point = vertex();
    const std::uint64_t kind = random.below(4);
    if (kind == 0) plane.point = (plane.point + vertex() + vertex()) / 3.0;
    if (kind == 1) {
        const Face& face = mesh.faces[random.below(mesh.faces.size())];
        const Vec3d a = to_double(mesh.corner_position(face, 0));
        const Vec3d b = to_double(mesh.corner_position(face, 1));
        const Vec3d c = random.below(2) == 0 ? vertex() : to_double(mesh.corner_position(face, 2));
        const Vec3d normal = cross(b - a, c - a);
        if (length(normal) > 0) plane.normal = normal / length(normal);
        plane.point = a;
    }
    if (kind == 2) {
        plane.normal = {};
        (random.below(2) == 0 ? plane.normal.x : plane.normal.z) = random.below(2) == 0 ? 1 : -1;
    }
    return plane;
}

TEST(Cut, NoPlaneOpensAClosedModel) {
    const std::vector<Named> models = closed_models();
    shapes::Random random(1);
    int divided = 0;
    for (int i = 0; i < 10000; ++i) {
        const Named& model = models[static_cast<std::size_t>(i) % models.size()];
        const CutPlane plane = random_plane(random, model.mesh);
        const std::vector<TriMesh> parts = pieces::cut(model.mesh, plane);
        divided += parts.size() > 1 ? 1 : 0;
        ASSERT_EQ(pieces::complaint(model.mesh, plane, parts), "")
            << model.name << ", plane " << i << ": " << plane.normal.x << " " << plane.normal.y
            << " " << plane.normal.z << " through " << plane.point.x << " " << plane.point.y << " "
            << plane.point.z;
    }
    EXPECT_GT(divided, 7000);  // the others only touch
}

CutPlane level(float z) {
    return {{0, 0, 1}, {1, 0, 0}, {0, 0, static_cast<double>(z)}, 0};
}

std::vector<TriMesh> cut_with(TriMesh mesh, const CutOptions& options,
                              std::string* text = nullptr) {
    Job job;
    cut_models(mesh, options, job.run);
    if (text != nullptr) *text = job.text;
    return std::move(mesh.parts);
}

double total_volume(const std::vector<TriMesh>& parts) {
    double sum = 0;
    for (const TriMesh& part : parts) sum += signed_volume(part);
    return sum;
}

TEST(Cut, PiecesAreThoseOneExpects) {
    SoupVector overlapping = shapes::box({0, 0, 0}, {2, 2, 4});
    shapes::append(overlapping, shapes::box({1, 0, 3}, {3, 2, 8}));
    SoupVector table = shapes::box({0, 0, 5}, {9, 9, 6});  // whose legs are models by themselves
    for (const float x : {0.0F, 8.0F}) shapes::append(table, shapes::box({x, 0, 0}, {x + 1, 1, 4}));
    const TriMesh arch = shapes::mesh_of(solids::cells({3, 1, 2}, {1, 0, 1, 1, 1, 1}));
    const struct {
        const char* what;
        TriMesh mesh;
        CutPlane plane;
        std::vector<double> volumes;  // the side that the normal points away from comes first
    } cases[] = {
        {"box", shapes::mesh_of(shapes::box({0, 0, 0}, {2, 2, 4})), level(1), {4, 12}},
        {"the other way round",
         shapes::mesh_of(shapes::box({0, 0, 0}, {2, 2, 4})),
         {{0, 0, -1}, {1, 0, 0}, {9, 9, 1}, 0},
         {12, 4}},
        {"moved along the normal",
         shapes::mesh_of(shapes::box({0, 0, 0}, {2, 2, 4})),
         {{0, 0, 5}, {0, 0, 1}, {0, 0, 1}, -0.5},
         {2, 14}},
        {"shells that stay together", shapes::mesh_of(overlapping), level(3.5F), {16, 20}},
        {"and come apart", shapes::mesh_of(overlapping), level(2), {8, 28}},
        {"legs", arch, level(1), {1, 1, 3}},
        {"legs of one shell",
         shapes::mesh_of(solids::legs()),
         {{0, 1, 0}, {1, 0, 0}, {0, 2, 0}, 0},
         {3.833333, 3.833333, 15.333333}},
        {"models that stay whole", shapes::mesh_of(table), level(2), {81, 2, 2, 2, 2}},
        {"along a face", shapes::mesh_of(solids::cells({2, 1, 2}, {1, 1, 1, 0})), level(1), {2, 1}},
        {"through a void", shapes::mesh_of(solids::hollow_box()), level(2), {56, 112}},
        {"on top", arch, level(2), {5}},
        {"misses", arch, level(7), {5}},
        {"no normal", arch, {{0, 0, 0}, {1, 0, 0}, {0, 0, 1}, 0}, {5}},
        {"no direction", arch, {{0, 0, 1}, {0, 0, 0}, {0, 0, 1}, 0}, {5}},
        {"not finite", arch, {{0, 0, 1}, {1, 0, 0}, {0, 0, NAN}, 0}, {5}},
        {"empty", {}, level(0), {}},
    };
    for (const auto& c : cases) {
        std::vector<double> volumes;
        for (const TriMesh& part : pieces::cut(c.mesh, c.plane)) {
            volumes.push_back(signed_volume(part));
            EXPECT_EQ(pieces::count_edges(part).open, 0U) << c.what;
        }
        EXPECT_THAT(volumes, testing::Pointwise(testing::DoubleNear(1e-4), c.volumes)) << c.what;
    }
    // Shells that cross keep a cap each.
    TriMesh upper = pieces::cut(shapes::mesh_of(overlapping), level(3.5F))[1];
    label_shells(upper);
    EXPECT_EQ(upper.shells.size(), 2U);
}

TEST(Cut, OtherOperationsAndMissesKeepTheFaces) {
    const TriMesh rock = shapes::mesh_of(shapes::rock(4, 2));
    for (const auto& [operation, z] :
         {std::pair{CutOperation::None, 0.0F}, std::pair{CutOperation::CutAndCap, 9.0F},
          std::pair{CutOperation::MirrorFront, 9.0F}}) {
        const std::vector<TriMesh> parts = pieces::cut(rock, level(z), operation);
        ASSERT_EQ(parts.size(), 1U);
        EXPECT_EQ(parts[0].faces.size(), rock.faces.size());
        EXPECT_EQ(signed_volume(parts[0]), signed_volume(rock));
    }
    const std::vector<TriMesh> open = pieces::cut(rock, level(0), CutOperation::Cut);
    ASSERT_EQ(open.size(), 2U);
    const auto first = pieces::count_edges(open[0]);
    EXPECT_GT(first.open, 10U);
    EXPECT_EQ(first.open, pieces::count_edges(open[1]).open);
}

TEST(Cut, ModelsAreCutApartUnlessCavitiesAreKept) {
    CutOptions options;
    options.operation = CutOperation::CutAndCap;
    options.plane = level(2);
    std::string text;
    const auto parts = cut_with(shapes::mesh_of(solids::hollow_box()), options, &text);
    ASSERT_EQ(parts.size(), 4U);
    EXPECT_EQ(text.find("\nmd_num : 2\n---{success} cut : 0."), 0U) << text;
    EXPECT_NEAR(total_volume(parts), 216 - 48, 1e-4);
    for (const TriMesh& part : parts) EXPECT_EQ(pieces::count_edges(part).open, 0U);
}

TEST(Cut, MirroringClosesHalfModels) {
    const TriMesh mesh = shapes::mesh_of(solids::torus(24, 12, 6, 2));
    const TriMesh lower = pieces::cut(mesh, level(0), CutOperation::Cut)[0];
    for (const TriMesh& model : {mesh, lower, pieces::cut(mesh, level(0))[0]}) {
        const auto parts = pieces::cut(model, level(0), CutOperation::MirrorBack);
        ASSERT_EQ(parts.size(), 1U);
        const auto edges = pieces::count_edges(parts[0]);
        EXPECT_EQ(edges.open + edges.non_manifold, 0U);
        EXPECT_NEAR(signed_volume(parts[0]), signed_volume(mesh), 1e-3);
        auto points = pieces::sorted_points(parts[0]);
        for (auto p : pieces::sorted_points(parts[0])) {
            if (std::abs(p[2]) < 1e-6F) continue;
            p[2] = -p[2];
            EXPECT_TRUE(std::binary_search(points.begin(), points.end(), p));
        }
    }
    // The side towards the normal of a cube, cut a quarter from there.
    const TriMesh cube = shapes::mesh_of(shapes::box({0, 0, 0}, {4, 4, 4}));
    EXPECT_NEAR(total_volume(pieces::cut(cube, level(3), CutOperation::MirrorFront)), 32, 1e-4);
    EXPECT_NEAR(total_volume(pieces::cut(cube, level(3), CutOperation::MirrorBack)), 96, 1e-4);
}

TEST(Cut, ColoursAndTexturesAreNotLostOnTheCut) {
    // Two triangles of one edge from z = 0 to z = 4; the cut at 1 is a quarter up.
    const SoupVector soup = {0, 0, 0, 4, 0, 4, 0, 4, 4, 0, 0, 0, 4, 0, 4, 9, 9, 4};
    const float up = 200.0F / 255;
    const std::vector<float> colours = {0, 0, 0, up, up, up, up, up, up, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    const std::vector<float> uv = {0, 0, 1, 0, 0, 1, 0, 0, 1, 1, 1, 0};
    const std::vector<std::int32_t> labels = {3, -1};
    TriMesh mesh;
    build_f(mesh, Soup{2, soup.data(), colours.data(), uv.data(), labels.data()});
    const auto parts = pieces::cut(mesh, level(1), CutOperation::Cut);
    ASSERT_EQ(parts.size(), 2U);
    for (const TriMesh& part : parts) {
        ASSERT_TRUE(is_consistent(part));
        for (const Face& face : part.faces) {
            for (std::size_t i = 0; i < 3; ++i) {
                const Vec3f p = part.corner_position(face, i);
                if (face.label < 0) {
                    EXPECT_EQ(face.colour[i * 3], 255);
                    EXPECT_EQ(face.uv[i], -1);
                    continue;
                }
                EXPECT_EQ(face.label, 3);
                EXPECT_EQ(face.colour[i * 3 + 1], static_cast<int>(std::lround(p.z * 50)));
                const auto& record = part.texture_coordinates[static_cast<std::size_t>(face.uv[i])];
                EXPECT_DOUBLE_EQ(record.u, static_cast<double>(p.x) / 4);
                EXPECT_DOUBLE_EQ(record.v, static_cast<double>(p.y) / 4);
            }
        }
    }
    TriMesh box = shapes::mesh_of(shapes::box({0, 0, 0}, {2, 2, 2}));
    for (Face& face : box.faces) face.colour.fill(100);
    for (const TriMesh& part : pieces::cut(box, level(1))) {
        for (const Face& face : part.faces) EXPECT_EQ(face.colour[4], 100);
    }
}

TEST(Cut, PegsFitTheirSockets) {
    CutOptions options;
    options.operation = CutOperation::CutAndCap;
    options.plane = {{0, 0, 1}, {1, 0, 0}, {0, 0, 10}, 0};
    options.connectors = {2, 2, 16};
    std::string text;
    // Wide enough for both; too narrow; with a floor at 13 that leaves 3 above the plane; at 12.
    const struct {
        Vec3f size;
        float bottom;
        double pegs, length;
    } cases[] = {{{40, 20, 30}, 0, 2, 4},
                 {{4.5F, 40, 30}, 0, 0, 0},
                 {{40, 20, 13}, 0, 2, 2.6},
                 {{40, 20, 12}, 0, 0, 0},
                 {{9, 9, 30}, 0, 1, 4}};
    for (const auto& c : cases) {
        const TriMesh box = shapes::mesh_of(shapes::box({0, 0, c.bottom}, c.size));
        text.clear();
        const auto parts = cut_with(box, options, &text);
        ASSERT_EQ(parts.size(), 2U);
        const auto polygon = [](double r) { return 8 * r * r * std::sin(std::acos(-1) / 8); };
        const double area = static_cast<double>(c.size.x * c.size.y);
        EXPECT_NEAR(signed_volume(parts[0]), area * 10 + c.pegs * polygon(2) * c.length, 1e-2);
        EXPECT_NEAR(
            signed_volume(parts[1]),
            area * static_cast<double>(c.size.z - 10) - c.pegs * polygon(2.2) * (c.length + 0.2),
            1e-2);
        EXPECT_EQ(text.find("[Caution]") == std::string::npos, c.pegs == 2) << text;
        for (const TriMesh& part : parts) {
            const auto edges = pieces::count_edges(part);
            EXPECT_EQ(edges.open + edges.non_manifold, 0U);
        }
    }
}

// Rims that no plane figure has: the openings close all the same.
TEST(Cut, RimsThatCrossStayClosed) {
    shapes::Random random(11);
    for (int i = 0; i < 100; ++i) {
        // A closed bag over a polygon that crosses itself: a top, a bottom and a ring of corners
        // between.
        const std::size_t n = 3 + random.below(40);
        SoupVector soup;
        std::vector<Vec3f> ring;
        for (std::size_t k = 0; k < n; ++k) {
            ring.push_back(
                {static_cast<float>(random.below(12)), static_cast<float>(random.below(12)), 0});
        }
        const auto triangle = [&](Vec3f a, Vec3f b, Vec3f c) {
            soup.insert(soup.end(), {a.x, a.y, a.z, b.x, b.y, b.z, c.x, c.y, c.z});
        };
        for (std::size_t k = 0; k < n; ++k) {
            triangle({5, 5, -5}, ring[(k + 1) % n], ring[k]);
            triangle({5, 5, 5}, ring[k], ring[(k + 1) % n]);
        }
        if (i % 3 == 1) soup = shapes::shuffled(soup, 1);
        TriMesh mesh = shapes::mesh_of(soup);
        const bool is_turned = i % 3 == 2;
        if (is_turned) reverse_winding(mesh.faces[0]);
        for (const double z : {0.0, 1.5}) {
            std::size_t open = 0;
            const auto parts = pieces::cut(mesh, {{0, 0, 1}, {1, 0, 0}, {0, 0, z}, 0});
            for (const TriMesh& part : parts) {
                EXPECT_TRUE(is_consistent(part));
                open += pieces::count_edges(part).open;
            }
            if (is_turned) continue;
            EXPECT_EQ(open, 0U) << i;
            EXPECT_NEAR(total_volume(parts), signed_volume(mesh), 1e-2) << i;
        }
    }
}

TEST(Cut, FansAndWildNumbersDoNotBreakPieces) {
    // 100,000 faces around one vertex, all of them cut; then cut through that vertex.
    const TriMesh fan = shapes::mesh_of(shapes::fan(100000, 3));
    EXPECT_EQ(pieces::cut(fan, level(1)).size(), 2U);
    EXPECT_EQ(pieces::cut(fan, {{1, 0.1, 0}, {0, 0, 1}, {0, 0, 0}, 0}).size(), 2U);
    // Just below the tip of a cone far out, where the points of the cut round to few places.
    SoupVector cone = shapes::fan(1000, 3000);
    for (float& coordinate : cone) coordinate /= 1000;
    shapes::move(cone, {900, 900, 900});
    const auto tip = pieces::cut(shapes::mesh_of(cone), level(902.9995F));
    ASSERT_EQ(tip.size(), 2U);
    EXPECT_LT(tip[1].faces.size(), 500U);
    EXPECT_EQ(pieces::count_edges(tip[1]).open, 0U);
    for (const TriMesh& part : tip) EXPECT_FALSE(pieces::has_double_points(part));
    const std::vector<float> wild = {0, 1, -1, 1e-45F, 3e38F, -3e38F, INFINITY, NAN, 1e6F};
    shapes::Random random(5);
    for (int i = 0; i < 300; ++i) {
        SoupVector soup;
        for (int k = 0; k < 9 * 20; ++k) soup.push_back(wild[random.below(wild.size())]);
        shapes::append(soup, shapes::box({-1, -1, -1}, {3e38F, 3e38F, 3e38F}));
        const CutPlane plane{{1, static_cast<double>(i % 3), 1e-30}, {0, 1, 0}, {0, 1, 0}, 0};
        for (const TriMesh& part : pieces::cut(shapes::mesh_of(soup), plane)) {
            EXPECT_TRUE(is_consistent(part));
        }
        pieces::cut(shapes::mesh_of(soup), plane, CutOperation::MirrorFront);
    }
}

}  // namespace
}  // namespace povmesh
