// Wraps: sound whatever the input, the model itself where that is clean, and the solid that was
// meant where it is not.
#include "field/wrap.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "base/parallel.h"
#include "field/compose.h"
#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "io/obj.h"
#include "io/stl.h"
#include "mesh/bounds.h"
#include "solid_helpers.h"
#include "spatial/nearest_face.h"
#include "spatial/surface_distance.h"

namespace povmesh {
namespace {

using shapes::SoupVector;

SoupVector together(const std::vector<SoupVector>& soups) {
    SoupVector all;
    for (const SoupVector& soup : soups) shapes::append(all, soup);
    return all;
}

SoupVector cube(float low, float high) {
    return shapes::box({low, low, low}, {high, high, high});
}

SoupVector without_first(SoupVector soup, std::size_t triangles) {
    soup.erase(soup.begin(), soup.begin() + static_cast<std::ptrdiff_t>(9 * triangles));
    return soup;
}

struct Wrapped {
    Status status;
    TriMesh mesh;
    WrapReport report;
};

Wrapped wrapped(const TriMesh& mesh, const WrapOptions& options = {}) {
    Wrapped result{{}, mesh, {}};
    RunLog log;
    RunContext run{{}, log};
    result.status = wrap(result.mesh, options, run, result.report);
    return result;
}
Wrapped wrapped(const SoupVector& soup, const WrapOptions& options = {}) {
    return wrapped(shapes::mesh_of(soup), options);
}

// Faces much smaller than the cells and much larger; terraces of the grid were seen on both.
TEST(Wrap, CurvedSheetsComeOutSmooth) {
    for (const int levels : {3, 6}) {
        SoupVector cap;
        const SoupVector ball = shapes::sphere(10, levels);
        for (std::size_t t = 0; t < ball.size(); t += 9) {
            const auto* corners = &ball[t];
            if (corners[2] + corners[5] + corners[8] < 6) continue;
            cap.insert(cap.end(), corners, corners + 9);
        }
        const TriMesh mesh = shapes::mesh_of(cap);
        const Wrapped sheet = wrapped(mesh, {.gap = 0.5, .cell = 0.4, .all_triangles = true});
        ASSERT_TRUE(sheet.status.ok()) << sheet.status.text();
        EXPECT_EQ(unsoundness(sheet.mesh), "");
        EXPECT_EQ(sheet.report.label.buried_area, 0);
        const NearestFace faces(mesh);
        for (const Vertex& vertex : sheet.mesh.vertices) {
            if (vertex.z < 3.5F) continue;  // around the rim
            const double d = std::sqrt(faces.find(to_double(vertex.position())).squared_distance);
            ASSERT_NEAR(d / sheet.report.cell, 0.9, 0.06) << vertex.x << " " << vertex.y;
        }
    }
}

// Nodes on faces, edges and corners, where a face too many or too few lets the outside in.
TEST(Wrap, DoesNotLeakWhereFacesLieOnNodes) {
    for (const float side : {1.0F, 5.0F, 8.0F, 16.0F}) {
        const Vec3f low = {0.375F, 0.3125F, 0.4375F};
        const TriMesh box = shapes::mesh_of(shapes::box(low, low + Vec3f{side, side, side}));
        FieldGrid grid;
        ASSERT_TRUE(plan_grid({{-2, -2, -2}, {20, 20, 20}}, 1, grid).ok());
        DistanceField field(box, grid);
        field.label({.least_nodes = 1});
        std::uint64_t solid = 0;
        for (std::uint32_t b = 0; b < field.solid().block_count(); ++b) {
            solid += field.solid().bits(b).count();
        }
        // Nodes on the low sides count as outside and those on the high sides as inside, for all
        // count as moved down a little.
        EXPECT_EQ(solid, static_cast<std::uint64_t>(side * side * side));
    }
}

// A closed surface has an even number of crossings around every square of the grid, also where its
// corners are nodes, its edges run through nodes and its faces along lines of the grid.
TEST(Wrap, CrossingsOfClosedSurfacesAgreeOnAllAxes) {
    shapes::Random random(7);
    FieldGrid grid;
    ASSERT_TRUE(plan_grid({{-1, -1, -1}, {8, 8, 8}}, 1, grid).ok());
    for (int round = 0; round < 300; ++round) {
        std::array<std::array<float, 3>, 4> corner{};
        for (auto& c : corner) {
            c = {static_cast<float>(random.below(5)) + 0.375F,
                 static_cast<float>(random.below(5)) + 0.3125F,
                 static_cast<float>(random.below(5)) + 0.4375F};
        }
        SoupVector soup;
        for (const auto& f : {std::array{0, 1, 2}, {0, 3, 1}, {1, 3, 2}, {2, 3, 0}}) {
            for (const int c : f) {
                const auto& p = corner[static_cast<std::size_t>(c)];
                soup.insert(soup.end(), p.begin(), p.end());
            }
        }
        const Crossings crossings(shapes::mesh_of(soup), grid);
        const BlockLayout layout(grid);
        const auto count = [&](NodeIndex n, std::size_t axis) {
            return crossings.of_edge(axis, layout.number(n)).size();
        };
        std::size_t odd = 0;
        for (std::uint32_t node = 0; node < layout.count() * kBlockNodes; ++node) {
            const NodeIndex n = layout.node(node);
            for (std::size_t a = 0; a < 3; ++a) {
                const std::size_t b = next_corner(a);
                if (!layout.contains(n.stepped(a, 1)) || !layout.contains(n.stepped(b, 1)))
                    continue;
                odd += (count(n, a) + count(n.stepped(a, 1), b) + count(n, b) +
                        count(n.stepped(b, 1), a)) %
                       2;
            }
        }
        EXPECT_EQ(odd, 0U) << "round " << round;
    }
}

TEST(Wrap, GivesACleanModelBackWithItsEdges) {
    const Wrapped box = wrapped(shapes::box({0, 0, 0}, {20, 13, 7}), {.tolerance = 0.5});
    EXPECT_EQ(unsoundness(box.mesh), "");
    EXPECT_EQ(box.mesh.faces.size(), 12U);
    EXPECT_NEAR(volume(box.mesh), 20 * 13 * 7, 1e-3);

    for (const auto& soup : {shapes::sphere(10, 3), shapes::rock(10, 3)}) {
        const TriMesh mesh = shapes::mesh_of(soup);
        for (const bool all_triangles : {false, true}) {
            const Wrapped round = wrapped(mesh, {.tolerance = 0.4, .all_triangles = all_triangles});
            EXPECT_EQ(unsoundness(round.mesh), "");
            EXPECT_NEAR(volume(round.mesh) / volume(mesh), 1, 1e-3);
            EXPECT_LT(surface_distance(mesh, round.mesh, {.sample_count = 10000}).greatest(), 0.4);
            const Wrapped again = wrapped(round.mesh, {.tolerance = 0.4});
            EXPECT_LT(surface_distance(round.mesh, again.mesh, {.sample_count = 10000}).greatest(),
                      0.4);
        }
    }
}

TEST(Wrap, FindsTheSolidThatWasMeant) {
    const SoupVector ten = cube(0, 10);
    struct Case {
        const char* flaw;
        SoupVector soup;
        double volume;
        WrapOptions options;
    };
    WrapOptions closing{.tolerance = 0.2, .gap = 4};
    WrapOptions dropping{.tolerance = 0.2, .keeps_thin = false};
    SoupVector half_turned = shapes::turned(ten);
    half_turned.resize(std::size_t{9} * 5);
    shapes::append(half_turned, without_first(ten, 5));
    // A vessel with a mouth of 2 by 2 in its lid.
    const SoupVector vessel =
        together({shapes::box({0, 0, 0}, {10, 10, 1}), shapes::box({0, 0, 0}, {1, 10, 10}),
                  shapes::box({9, 0, 0}, {10, 10, 10}), shapes::box({0, 0, 0}, {10, 1, 10}),
                  shapes::box({0, 9, 0}, {10, 10, 10}), shapes::box({0, 0, 9}, {4, 10, 10}),
                  shapes::box({6, 0, 9}, {10, 10, 10}), shapes::box({3, 0, 9}, {7, 4, 10}),
                  shapes::box({3, 6, 9}, {7, 10, 10})});
    const std::vector<Case> cases = {
        {"turned inside out", shapes::turned(ten), 1000, {.tolerance = 0.2}},
        {"half turned", half_turned, 1000, {.tolerance = 0.2}},
        {"doubled", together({ten, ten}), 1000, {.tolerance = 0.2}},
        {"doubled the other way", together({ten, shapes::turned(ten)}), 1000, {.tolerance = 0.2}},
        {"a triangle is missing", without_first(ten, 1), 1000, {.tolerance = 0.2}},
        {"a side is missing", without_first(ten, 2), 1000, {.tolerance = 0.2}},
        {"crossing", together({ten, cube(5, 12)}), 1000 + 343 - 125, {.tolerance = 0.2}},
        {"one within another", together({ten, cube(2, 4)}), 1000, {.tolerance = 0.2}},
        {"a cavity", together({ten, shapes::turned(cube(2, 4))}), 992, {.tolerance = 0.2}},
        {"an open mouth", vessel, 1000 - 512 - 4, {.tolerance = 0.2}},
        {"a mouth that is closed", vessel, 1000, closing},
        {"a sheet beside", together({ten, {20, 0, 0, 20, 5, 1, 20, 0, 5}}), 1000, dropping},
    };
    for (const Case& c : cases) {
        const Wrapped result = wrapped(c.soup, c.options);
        ASSERT_TRUE(result.status.ok()) << c.flaw << ": " << result.status.text();
        EXPECT_EQ(unsoundness(result.mesh), "") << c.flaw;
        EXPECT_NEAR(volume(result.mesh) / c.volume, 1, 0.01) << c.flaw;
    }
}

TEST(Wrap, MakesSheetsThickAndTellsWhere) {
    const Wrapped sheet = wrapped({0, 0, 0, 10, 0, 0, 0, 10, 3}, {.tolerance = 0.4});
    EXPECT_EQ(unsoundness(sheet.mesh), "");
    const double side = std::hypot(10, 3);
    const double area = 0.5 * 10 * side;
    EXPECT_NEAR(sheet.report.label.sheet_area / area, 1, 0.1);
    // Its rim reaches as far, round or square.
    const double half = 0.9 * sheet.report.cell;
    const double rim = (10 + side + std::hypot(10, side)) * half;
    EXPECT_NEAR(volume(sheet.mesh) / ((area + 0.9 * rim) * 2 * half), 1, 0.05);
    const SurfaceDistance far =
        surface_distance(shapes::mesh_of(SoupVector{0, 0, 0, 10, 0, 0, 0, 10, 3}), sheet.mesh);
    EXPECT_LT(far.greatest(), 0.4);
}

// Coordinates on a coarse lattice: faces that share planes, edges and corners, and cross there.
TEST(Wrap, IsSoundOnSoupsOfAllKinds) {
    shapes::Random random(20260817);
    for (int round = 0; round < 150; ++round) {
        const std::uint64_t steps = 2 + random.below(9);
        const bool is_fine = random.below(2) == 0;
        SoupVector soup(9 * (1 + random.below(round % 10 == 0 ? 200 : 12)));
        for (float& x : soup) {
            x = is_fine ? static_cast<float>(random.unit() * 10)
                        : static_cast<float>(random.below(steps)) * 10 / static_cast<float>(steps);
        }
        WrapOptions options{.cell = 0.3 + random.unit() * 0.5};
        if (random.below(3) == 0) options.gap = 3 * random.unit();
        options.all_triangles = random.below(2) == 0;
        const Wrapped result = wrapped(soup, options);
        if (!result.status.ok()) {
            EXPECT_EQ(result.status.code(), StatusCode::BadFile) << result.status.text();
            continue;  // no face has an area
        }
        EXPECT_EQ(unsoundness(result.mesh), "") << "round " << round;
    }
}

// The closed one so fine that the surface is thinned out in several bricks.
TEST(Wrap, IsTheSameBitsOnOneThread) {
    const SoupVector rock = shapes::rock(10, 4);
    const SoupVector open = without_first(rock, 40);
    const Wrapped many = wrapped(open, {.tolerance = 0.5});
    const Wrapped fine = wrapped(rock, {.cell = 0.13});
    const OneThread one;
    EXPECT_EQ(reference::difference(many.mesh, wrapped(open, {.tolerance = 0.5}).mesh), "");
    EXPECT_EQ(reference::difference(fine.mesh, wrapped(rock, {.cell = 0.13}).mesh), "");
}

TEST(Wrap, RefusesWhatItCannotDo) {
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const SoupVector ten = cube(0, 10);
    EXPECT_EQ(wrapped(ten, {.tolerance = kNan}).status.code(), StatusCode::BadOption);
    EXPECT_EQ(wrapped(ten, {.cell = -1}).status.code(), StatusCode::BadOption);
    EXPECT_EQ(wrapped(ten, {.cell = 50}).status.code(), StatusCode::BadOption);
    EXPECT_EQ(wrapped(ten, {.cell = 1e-5}).status.code(), StatusCode::TooLarge);
    EXPECT_EQ(wrapped(SoupVector{}).status.code(), StatusCode::BadFile);
    EXPECT_EQ(wrapped({0, 0, 0, 1, 1, 1, 2, 2, 2}).status.code(), StatusCode::BadFile);
    EXPECT_EQ(wrapped({0, 0, 0, 1, 0, 0, 0, kInfinity, 0}).status.code(), StatusCode::BadFile);
    // Scale and place do not matter.
    for (const float scale : {1e-25F, 1e25F}) {
        SoupVector scaled = without_first(ten, 1);
        for (float& x : scaled) x = (x + 300) * scale;
        const Wrapped result = wrapped(scaled, {.tolerance = 0.5 * static_cast<double>(scale)});
        ASSERT_TRUE(result.status.ok()) << result.status.text();
        EXPECT_EQ(unsoundness(result.mesh), "");
    }
}

TEST(Wrap, RealModelsBecomeSound) {
    const char* folder = std::getenv("POVMESH_MODELS");
    if (folder == nullptr) GTEST_SKIP() << "POVMESH_MODELS is not set";
    for (const char* name :
         {"nonmanifold_crash.obj", "self_intersect.obj", "conrod_turned.stl",
          "spider_uv_groups.obj", "max_export_24_shells.stl", "featuretype_open.stl",
          "chair_uv_groups.obj", "face_scan_colours.obj", "wallhole_ngons.obj",
          "huge_coordinates_ascii.stl", "frog_legs.obj", "m3x10_screw.stl"}) {
        TriMesh mesh;
        RunLog log;
        RunContext run{{}, log};
        const std::string path = std::string(folder) + "/" + name;
        const bool is_obj = path.ends_with(".obj");
        ASSERT_TRUE((is_obj ? read_obj(path, mesh) : read_stl(path, run, mesh)).ok()) << path;
        const Box3f box = finite_bounds(mesh);
        const double diagonal = length(to_double(box.high) - to_double(box.low));
        const Wrapped result = wrapped(mesh, {.tolerance = diagonal / 80});
        ASSERT_TRUE(result.status.ok()) << name << ": " << result.status.text();
        EXPECT_EQ(unsoundness(result.mesh), "") << name;
    }
}

}  // namespace
}  // namespace povmesh
