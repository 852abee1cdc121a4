// Cavities with exact walls, measured by the gauge between whole triangles.
#include "field/inner_wall.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

#include "base/parallel.h"
#include "base/rotation.h"
#include "cut/solids.h"
#include "design/wall_gauge.h"
#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "io/stl.h"
#include "mesh/volume.h"
#include "spatial/self_intersection.h"

namespace povmesh {
namespace {

using shapes::SoupVector;

SoupVector turned_by(SoupVector soup, double degrees) {
    const Rotation rotation({2.0 / 3, -1.0 / 3, 2.0 / 3}, degrees);
    for (std::size_t i = 0; i < soup.size(); i += 3) {
        const Vec3f p = rotation.apply(Vec3f{soup[i], soup[i + 1], soup[i + 2]});
        soup[i] = p.x;
        soup[i + 1] = p.y;
        soup[i + 2] = p.z;
    }
    return soup;
}

// The cavity of a model, which holds what is promised.
TriMesh cavity_of(const TriMesh& model, double thickness) {
    TriMesh cavity;
    const WallReport report = inner_wall(model, thickness, {}, cavity);
    EXPECT_TRUE(report.status.ok()) << report.status.text();
    EXPECT_TRUE(report.is_kept);
    EXPECT_TRUE(reference::is_closed_manifold(cavity));
    EXPECT_EQ(find_self_intersections(cavity, 0).count, 0U);
    EXPECT_GT(signed_volume(cavity), 0);
    const double gauged = WallGauge(model).least_distance(cavity);
    EXPECT_GE(gauged, 0.98 * thickness);
    EXPECT_LE(report.smallest_wall, gauged * (1 + 1e-6));
    EXPECT_GE(report.smallest_wall, gauged * 0.99);
    EXPECT_NEAR(report.mean_wall, thickness, 0.01 * thickness);
    return cavity;
}

TEST(InnerWall, LeavesTheThicknessOfPlainSolidsAndKeepsTheirEdges) {
    const double tau = 2 * std::numbers::pi;
    const TriMesh ball = cavity_of(shapes::mesh_of(shapes::sphere(10, 4)), 2);
    EXPECT_NEAR(volume(ball), 2 * tau / 3 * 512, 0.01 * 2145);
    for (const double degrees : {0.0, 33.0}) {
        const SoupVector box = shapes::box({0, 0, 0}, {20, 16, 12});
        const TriMesh cavity = cavity_of(shapes::mesh_of(turned_by(box, degrees)), 2);
        EXPECT_NEAR(volume(cavity), 16 * 12 * 8, degrees == 0 ? 0.01 : 8);
    }
    // Edges that bend inward, where the cavity runs around the model's edge.
    const SoupVector legs = solids::cells({3, 3, 2}, {1, 1, 1, 1, 0, 1, 1, 1, 1,  //
                                                      1, 1, 1, 1, 0, 0, 1, 0, 0});
    cavity_of(shapes::mesh_of(turned_by(legs, 20)), 0.2);
    cavity_of(shapes::mesh_of(solids::torus(60, 40, 10, 4)), 1.5);
    cavity_of(shapes::mesh_of(shapes::rock(10, 4)), 1);
}

// A solid of revolution around the z axis; the outline runs counterclockwise in (radius, z), from
// the axis to the axis.
SoupVector revolved(const std::vector<std::array<double, 2>>& outline, int sides) {
    SoupVector soup;
    const auto put = [&](const std::array<double, 2>& p, int side) {
        const double angle = 2 * std::numbers::pi * (side % sides) / sides;
        for (const double x : {p[0] * std::cos(angle), p[0] * std::sin(angle), p[1]}) {
            soup.push_back(static_cast<float>(x));
        }
    };
    for (int side = 0; side < sides; ++side) {
        for (std::size_t i = 0; i + 1 < outline.size(); ++i) {
            const auto& low = outline[i];
            const auto& high = outline[i + 1];
            if (low[0] > 0) put(low, side), put(low, side + 1), put(high, side);
            if (high[0] > 0) put(low, side + 1), put(high, side + 1), put(high, side);
        }
    }
    return soup;
}

TEST(InnerWall, OfBootsWithSlitsAndOfCupsHolds) {
    // A foot and a leg; slits of a tenth of the wall from the toes, and from above.
    std::vector<std::uint8_t> filled;
    for (int z = 0; z < 4; ++z) {
        for (int y = 0; y < 3; ++y) {
            for (int x = 0; x < 3; ++x) {
                const bool is_slit = x == 1 && (y == 2 || z == 3);
                filled.push_back((z == 0 || y == 0) && !is_slit ? 1 : 0);
            }
        }
    }
    SoupVector boot = solids::cells({3, 3, 4}, filled);
    const std::array<float, 4> across = {0, 10, 10.2F, 20};
    for (std::size_t i = 0; i < boot.size(); i += 3) {
        boot[i] = across[static_cast<std::size_t>(boot[i])];
        boot[i + 1] *= 12;
        boot[i + 2] *= 10;
    }
    for (const double degrees : {0.0, 27.0}) {
        const TriMesh cavity = cavity_of(shapes::mesh_of(turned_by(boot, degrees)), 2);
        EXPECT_GT(volume(cavity), 1500);
    }
    // Walls of 6 around the inside, so that the cavity reaches up into them.
    const SoupVector cup = revolved({{0, 0}, {18, 0}, {20, 30}, {14, 30}, {12, 6}, {0, 6}}, 90);
    EXPECT_GT(volume(cavity_of(shapes::mesh_of(cup), 1.5)), 4000);
}

TEST(InnerWall, KeepsClearOfSlitsCavitiesAndOverlaps) {
    // A slit of a twentieth of the thickness, through half of a block.
    SoupVector slit = shapes::box({0, 0, 0}, {20, 20, 20});
    shapes::append(slit, shapes::turned(shapes::box({9.95F, 5, 5}, {10.05F, 15, 15})));
    EXPECT_LT(volume(cavity_of(shapes::mesh_of(slit), 2)), 4096 - 10 * 10 * 4);
    SoupVector ball = shapes::turned(shapes::sphere(3, 3));
    shapes::move(ball, {10, 10, 10});
    SoupVector hollow = shapes::box({0, 0, 0}, {20, 20, 20});
    shapes::append(hollow, ball);
    EXPECT_NEAR(volume(cavity_of(shapes::mesh_of(hollow), 2)), 4096 - 524, 20);
    SoupVector two = shapes::box({0, 0, 0}, {20, 20, 20});
    shapes::append(two, shapes::box({10, 11, 12}, {30, 31, 32}));
    const TriMesh cavity = cavity_of(shapes::mesh_of(two), 2);
    EXPECT_GT(volume(cavity), 1000);
}

TEST(InnerWall, IsTheSameOnAnyNumberOfThreadsAndInAnyUnit) {
    const TriMesh mesh = shapes::mesh_of(shapes::rock(10, 4));
    TriMesh many;
    inner_wall(mesh, 1, {}, many);
    TriMesh one;
    {
        const OneThread alone;
        inner_wall(mesh, 1, {}, one);
    }
    EXPECT_EQ(reference::difference(many, one), "");
    TriMesh small = mesh;
    for (Vertex& v : small.vertices) v = {v.x / 1024, v.y / 1024, v.z / 1024, v.index};
    TriMesh cavity;
    inner_wall(small, 1.0 / 1024, {}, cavity);
    for (Vertex& v : cavity.vertices) v = {v.x * 1024, v.y * 1024, v.z * 1024, v.index};
    EXPECT_EQ(reference::difference(cavity, many), "");
}

TEST(InnerWall, LeavesNothingOrSaysWhyNot) {
    const TriMesh box = shapes::mesh_of(shapes::box({0, 0, 0}, {10, 10, 10}));
    TriMesh cavity;
    for (const double thickness : {5.0, 4.9, 1e6}) {  // 4.9 leaves less than a hundred nodes
        EXPECT_TRUE(inner_wall(box, thickness, {}, cavity).status.ok());
        EXPECT_TRUE(cavity.faces.empty());
    }
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double thickness : {0.0, -1.0, nan, HUGE_VAL}) {
        EXPECT_EQ(inner_wall(box, thickness, {}, cavity).status.code(), StatusCode::BadOption);
    }
    EXPECT_EQ(inner_wall(box, 1, {.cell = nan}, cavity).status.code(), StatusCode::BadOption);
    EXPECT_EQ(inner_wall(box, 1e-5, {}, cavity).status.code(), StatusCode::TooLarge);
    SoupVector open = shapes::box({0, 0, 0}, {10, 10, 10});
    open.resize(open.size() - 9);
    EXPECT_EQ(inner_wall(shapes::mesh_of(open), 1, {}, cavity).status.code(), StatusCode::BadFile);
    EXPECT_EQ(inner_wall({}, 1, {}, cavity).status.code(), StatusCode::BadFile);
    TriMesh far = box;
    for (Vertex& v : far.vertices) v.x += 1e7F;
    const WallReport report = inner_wall(far, 1, {}, cavity);
    EXPECT_EQ(report.status.code(), StatusCode::TooLarge) << report.status.text();
}

TEST(InnerWall, OfRealModelsHolds) {
    const char* folder = std::getenv("POVMESH_MODELS");
    if (folder == nullptr) GTEST_SKIP() << "POVMESH_MODELS is not set";
    for (const char* name : {"cat", "gearwheel", "benchy"}) {
        SCOPED_TRACE(name);
        TriMesh mesh;
        RunLog log;
        RunContext run{{}, log};
        StlInfo info;
        const std::string path = std::string(folder) + "/" + name + ".stl";
        ASSERT_TRUE(read_stl(path, {}, run, mesh, info).ok());
        cavity_of(mesh, 1.5);
    }
}

}  // namespace
}  // namespace povmesh
