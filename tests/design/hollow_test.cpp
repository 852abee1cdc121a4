// Hollowing: the wall that it leaves, the quality of the cavity's surface, its rules and texts.
#include "design/hollow.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

#include "base/rotation.h"
#include "design/wall_gauge.h"
#include "helpers/job.h"
#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "mesh/append_mesh.h"
#include "mesh/edge_mates.h"
#include "mesh/volume.h"
#include "repair/degenerate.h"
#include "spatial/self_intersection.h"

namespace povmesh {
namespace {

using shapes::SoupVector;

HollowReport hollowed(const SoupVector& soup, float thickness, TriMesh& mesh,
                      const HollowOptions& options = {}) {
    Job job;
    mesh = shapes::mesh_of(soup);
    return hollow(mesh, thickness, job.run, options);
}

// Distance of a point inside the model from its surface; negative outside.
using Depth = std::function<double(Vec3d)>;

double box_depth(Vec3d p, Vec3d half) {
    return std::min({half.x - std::abs(p.x), half.y - std::abs(p.y), half.z - std::abs(p.z)});
}

SoupVector torus(double ring, double tube, int steps) {
    SoupVector soup;
    const auto at = [&](int i, int j) {
        const double u = 2 * std::numbers::pi * (i % steps) / steps;
        const double v = 2 * std::numbers::pi * (j % steps) / steps;
        const double r = ring + tube * std::cos(v);
        return Vec3d{r * std::cos(u), r * std::sin(u), tube * std::sin(v)};
    };
    for (int i = 0; i < steps; ++i) {
        for (int j = 0; j < steps; ++j) {
            for (const Vec3d p : {at(i, j), at(i + 1, j), at(i + 1, j + 1), at(i, j),
                                  at(i + 1, j + 1), at(i, j + 1)}) {
                for (const double c : {p.x, p.y, p.z}) soup.push_back(static_cast<float>(c));
            }
        }
    }
    return soup;
}

// A block of 60 x 40 x 40 with a slot from above down to its middle; wound outward.
SoupVector slotted_block(float width) {
    const float half = width / 2;
    const std::vector<std::array<float, 2>> outline = {
        {-30, -20}, {30, -20}, {30, 20}, {half, 20}, {half, 0}, {-half, 0}, {-half, 20}, {-30, 20}};
    const std::vector<std::array<std::size_t, 3>> cover = {{0, 1, 4}, {1, 2, 4}, {2, 3, 4},
                                                           {0, 4, 5}, {0, 5, 7}, {5, 6, 7}};
    SoupVector soup;
    const auto push = [&](std::size_t i, float y) {
        soup.insert(soup.end(), {outline[i][0], y, outline[i][1]});
    };
    for (const auto& t : cover) {
        for (const std::size_t i : {t[0], t[1], t[2]}) push(i, -20);
        for (const std::size_t i : {t[2], t[1], t[0]}) push(i, 20);
    }
    for (std::size_t i = 0; i < outline.size(); ++i) {
        const std::size_t next = (i + 1) % outline.size();
        for (const auto& [k, y] : {std::pair{i, -20.0F}, {i, 20.0F}, {next, 20.0F}}) push(k, y);
        for (const auto& [k, y] : {std::pair{i, -20.0F}, {next, 20.0F}, {next, -20.0F}}) push(k, y);
    }
    return soup;
}

double slot_depth(Vec3d p, double width) {
    const double outer = box_depth(p, {30, 20, 20});
    // Distance from the slot, its floor at z = 0.
    const double across = std::max(std::abs(p.x) - width / 2, 0.0);
    const double below = std::max(-p.z, 0.0);
    return std::min(outer, std::hypot(across, below));
}

std::ptrdiff_t degenerate_count(const TriMesh& mesh) {
    return std::count_if(mesh.faces.begin(), mesh.faces.end(),
                         [&](const Face& face) { return is_degenerate(mesh, face); });
}

TEST(Hollow, WallIsTooThinOrTheCavityFlawed) {
    const Rotation turn(Vec3d{1, 2, 3} / std::sqrt(14.0), 33);
    const Rotation back(Vec3d{1, 2, 3} / std::sqrt(14.0), -33);
    SoupVector turned_box = shapes::box({-18, -14, -11}, {18, 14, 11});
    for (std::size_t i = 0; i < turned_box.size(); i += 3) {
        const Vec3f p = turn.apply(Vec3f{turned_box[i], turned_box[i + 1], turned_box[i + 2]});
        std::copy_n(std::array{p.x, p.y, p.z}.begin(), 3,
                    turned_box.begin() + static_cast<std::ptrdiff_t>(i));
    }
    const struct {
        const char* what;
        SoupVector soup;
        Depth depth;
    } models[] = {
        {"sphere", shapes::sphere(20, 6), [](Vec3d p) { return 20 - length(p); }},
        {"turned box", turned_box,
         [&](Vec3d p) {
             return box_depth(back.apply(p), {18, 14, 11});
         }},
        {"torus", torus(25, 10, 150),
         [](Vec3d p) { return 10 - std::hypot(std::hypot(p.x, p.y) - 25, p.z); }},
        {"slotted block", slotted_block(3), [](Vec3d p) { return slot_depth(p, 3); }},
    };
    for (const auto& model : models) {
        for (const float thickness : {1.3F, 5.0F}) {
            const std::string what = std::string(model.what) + " " + std::to_string(thickness);
            TriMesh cavity;
            const HollowReport report = hollowed(model.soup, thickness, cavity);
            ASSERT_TRUE(report.is_hollowed) << what;
            EXPECT_TRUE(reference::is_closed_manifold(cavity)) << what;
            EXPECT_GT(signed_volume(cavity), 0) << what;
            EXPECT_EQ(find_self_intersections(cavity, 0).count, 0U) << what;
            EXPECT_EQ(degenerate_count(cavity), 0) << what;
            // By area: the middles of all faces.
            double area = 0;
            double good = 0;
            double thinnest = 1e9;
            for (const Face& face : cavity.faces) {
                const Vec3d a = to_double(cavity.corner_position(face, 0));
                const Vec3d b = to_double(cavity.corner_position(face, 1));
                const Vec3d c = to_double(cavity.corner_position(face, 2));
                const double face_area = length(cross(b - a, c - a));
                const double off = model.depth((a + b + c) / 3.0) - double{thickness};
                area += face_area;
                if (std::abs(off) <= 1.4 * report.voxel_size) good += face_area;
                for (const Vec3d p : {a, b, c}) thinnest = std::min(thinnest, model.depth(p));
            }
            EXPECT_GT(good, 0.99 * area) << what;
            EXPECT_GT(thinnest, double{thickness} - 2 * report.voxel_size) << what;
            EXPECT_GT(thinnest, 0) << what;
        }
    }
}

// Slits up to one and a half voxels wide, which no empty voxel fits into.
TEST(Hollow, CavityCutsThroughSlits) {
    for (const float width : {0.05F, 0.7F}) {
        for (const float thickness : {0.9F, 3.0F}) {
            TriMesh cavity;
            const HollowReport report = hollowed(slotted_block(width), thickness, cavity);
            ASSERT_TRUE(report.is_hollowed) << width;
            const double least = double{thickness} - 2 * report.voxel_size;
            for (const Vertex& v : cavity.vertices) {
                ASSERT_GT(slot_depth(to_double(v.position()), width), std::max(least, 0.0))
                    << width << " " << thickness;
            }
            TriMesh shell = shapes::mesh_of(slotted_block(width));
            append_mesh(shell, cavity, AppendWinding::Reversed);
            EXPECT_EQ(find_self_intersections(shell, 0).count, 0U) << width << " " << thickness;
            EXPECT_EQ(degenerate_count(cavity), 0) << width << " " << thickness;
        }
    }
}

// Large flat walls, where a reduction may put vertices anywhere.
TEST(Hollow, FlatWallsAreLeftInSliversOrUnreduced) {
    TriMesh cavity;
    ASSERT_TRUE(hollowed(shapes::box({0, 0, 0}, {80, 60, 60}), 3, cavity).is_hollowed);
    EXPECT_EQ(degenerate_count(cavity), 0);
    EXPECT_EQ(find_self_intersections(cavity, 0).count, 0U);
    TriMesh whole;
    (void)hollowed(shapes::box({0, 0, 0}, {80, 60, 60}), 3, whole, {.is_reduced = false});
    EXPECT_LT(cavity.faces.size(), whole.faces.size() / 15);
}

// Corners over faces, edges over edges and surfaces that meet; none of them at a vertex of both.
TEST(WallGauge, MissesTheNearestPlace) {
    const TriMesh box = shapes::mesh_of(shapes::box({-10, -10, -10}, {10, 10, 10}));
    const WallGauge gauge(box);
    const auto distance = [&](SoupVector soup, double limit = 1e9) {
        return gauge.least_distance(shapes::mesh_of(soup), limit);
    };
    EXPECT_NEAR(distance(shapes::box({-7, -7, -9}, {7, 7, 7})), 1, 1e-6);
    EXPECT_NEAR(distance({0, 0, 10.5F, -9, 0, 20, 9, 0, 20}), 0.5, 1e-6);
    // A box's edge at x = z = 10, and one across it.
    EXPECT_NEAR(distance({14, 3, 7, 8, 3, 13, 40, 3, 40}), std::sqrt(0.5), 1e-6);
    EXPECT_EQ(distance({-30, 1, 2, 30, 1, 3, 0, 50, 2}), 0);
    EXPECT_EQ(distance({-30, 40, 2, 30, 40, 3, 0, 50, 2}, 5), 5);
    EXPECT_TRUE(std::isinf(gauge.least_distance({})));
}

TEST(Hollow, VoxelsOrLayersDifferFromThoseOfHosts) {
    const struct {
        Vec3f size;
        float thickness;
        double voxel;
        std::int32_t layers;
    } cases[] = {
        {{100, 100, 120}, 2.5F, 1.0, 3},  // 1.2 million voxels
        {{100, 100, 120}, 0.5F, 1.0, 1},  {{100, 100, 120}, 0.49F, 1.0, 0},
        {{100, 100, 120}, -0.4F, 1.0, 0}, {{100, 100, 120}, -2, 1.0, -1},
        {{10, 10, 10}, 1.0F, 0.4, 2},     {{300, 300, 300}, 6, 2.0, 3},
        {{60, 60, 60}, 2, 0.5679, 3},
    };
    for (const auto& c : cases) {
        TriMesh mesh;
        const HollowReport report =
            hollowed(shapes::box({0, 0, 0}, c.size), c.thickness, mesh, {.is_reduced = false});
        EXPECT_NEAR(report.voxel_size, c.voxel, 1e-4) << c.thickness;
        EXPECT_EQ(report.layers, c.layers) << c.thickness;
    }
    // Where the grid holds no voxels for that wall, minutes would go into a wrong one.
    TriMesh mesh;
    EXPECT_TRUE(hollowed(shapes::box({0, 0, 0}, {1e6F, 1e6F, 1e6F}), 2, mesh, {}).is_too_thin);
    EXPECT_TRUE(mesh.faces.empty());
    // Nothing is eroded: the box itself with half a voxel around.
    hollowed(shapes::box({0, 0, 0}, {100, 100, 120}), 0.3F, mesh, {.is_reduced = false});
    EXPECT_NEAR(volume(mesh), 101.0 * 101 * 121, 0.01 * 1.2e6);
}

TEST(Hollow, TextsDifferFromThoseOfHosts) {
    Job job;
    TriMesh mesh = shapes::mesh_of(shapes::box({0, 0, 0}, {100, 100, 120}));
    ASSERT_TRUE(hollow(mesh, 2.5F, job.run).is_hollowed);
    EXPECT_EQ(job.progress, "10 30 40 50 60 70 80 85 ");
    EXPECT_EQ(job.text.find("\n---start executing light weight---\nthickness    : 2.500000"
                            "\n\n[start voxelization]"),
              0U);
    const std::size_t end = job.text.find("voxel object has been exported.\nhollow volume: ");
    ASSERT_NE(end, std::string::npos);
    EXPECT_NE(job.text.find(" %\n---{success} light weight : ", end), std::string::npos);
    EXPECT_TRUE(job.text.ends_with(" sec.---\n"));

    // Walls that leave nothing, whatever the reason.
    const SoupVector thin = shapes::box({0, 0, 0}, {50, 50, 3});
    SoupVector open = shapes::box({0, 0, 0}, {40, 40, 40});
    open.resize(open.size() - 18);
    const std::vector<std::pair<SoupVector, float>> nothing = {
        {thin, 2},
        {thin, 1e30F},
        {thin, std::numeric_limits<float>::infinity()},
        {open, 3},
        {{}, 1}};
    for (const auto& [soup, thickness] : nothing) {
        Job none;
        mesh = shapes::mesh_of(soup);
        EXPECT_FALSE(hollow(mesh, thickness, none.run).is_hollowed) << thickness;
        EXPECT_TRUE(mesh.faces.empty() && mesh.vertices.empty());
        EXPECT_EQ(none.progress, "10 30 40 50 60 ");
        EXPECT_TRUE(none.text.ends_with("\n[Caution] hollow nothing!\n"));
    }
}

TEST(Hollow, OddModelsBreakIt) {
    const SoupVector cube = shapes::box({0, 0, 0}, {20, 20, 20});
    TriMesh plain;
    hollowed(cube, 2, plain);
    const double expected = volume(plain);
    SoupVector moved = cube;
    shapes::move(moved, {1e5F, -2e5F, 3e5F});
    SoupVector overlapping = cube;
    shapes::append(overlapping, shapes::box({1, 1, 1}, {19, 19, 19}));
    SoupVector with_infinity = cube;
    with_infinity.insert(with_infinity.end(),
                         {0, 0, 0, 1, 0, 0, 0, 1, std::numeric_limits<float>::infinity()});
    for (const SoupVector& soup : {shapes::turned(cube), moved}) {
        TriMesh mesh;
        EXPECT_TRUE(hollowed(soup, 2, mesh).is_hollowed);
        EXPECT_NEAR(volume(mesh), expected, 0.05 * expected);
    }
    // So does a surface within the solid.
    TriMesh between;
    const HollowReport report = hollowed(overlapping, 2, between, {.measures_wall = true});
    EXPECT_GT(report.smallest_wall, 2 - 2 * report.voxel_size);
    EXPECT_EQ(report.smallest_wall,
              WallGauge(shapes::mesh_of(overlapping)).least_distance(between));
    // A cavity that is there already gets its own wall.
    SoupVector hollow_cube = shapes::box({-20, -20, -20}, {20, 20, 20});
    shapes::append(hollow_cube, shapes::turned(shapes::box({-6, -6, -6}, {6, 6, 6})));
    TriMesh mesh;
    hollowed(hollow_cube, 3, mesh);
    EXPECT_NEAR(volume(mesh), 34.0 * 34 * 34 - 18.0 * 18 * 18, 2500);
    TriMesh unknown;
    (void)hollowed(with_infinity, 2, unknown);
    (void)hollowed(cube, std::numeric_limits<float>::quiet_NaN(), unknown);
}

}  // namespace
}  // namespace povmesh
