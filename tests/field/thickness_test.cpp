// Thickness of walls and width of gaps, against closed forms and a slow search.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <numbers>
#include <vector>

#include "base/parallel.h"
#include "base/rotation.h"
#include "field/tangent_balls.h"
#include "field/thickness.h"
#include "field/thickness_map.h"
#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "io/stl.h"
#include "mesh/volume.h"
#include "spatial/nearest_face.h"

namespace povmesh {
namespace {

using shapes::Random;
using shapes::SoupVector;

constexpr float kInf = std::numeric_limits<float>::infinity();

struct Point2 {
    double x, y;
};

void put(SoupVector& soup, std::initializer_list<Vec3d> corners) {
    for (const Vec3d& p : corners) {
        for (const double c : {p.x, p.y, p.z}) soup.push_back(static_cast<float>(c));
    }
}

void put_quad(SoupVector& soup, Vec3d a, Vec3d b, Vec3d c, Vec3d d) {
    put(soup, {a, b, c, a, c, d});
}

// A convex outline, counter-clockwise, between two heights.
SoupVector prism(const std::vector<Point2>& outline, double low, double high) {
    SoupVector soup;
    const auto at = [&](std::size_t i, double z) {
        return Vec3d{outline[i % outline.size()].x, outline[i % outline.size()].y, z};
    };
    for (std::size_t i = 0; i < outline.size(); ++i) {
        put_quad(soup, at(i, low), at(i + 1, low), at(i + 1, high), at(i, high));
        if (i == 0 || i + 1 >= outline.size()) continue;
        put(soup, {at(0, high), at(i, high), at(i + 1, high)});
        put(soup, {at(0, low), at(i + 1, low), at(i, low)});
    }
    return soup;
}

SoupVector tube(double outer, double inner, double height, int sides) {
    SoupVector soup;
    const auto at = [&](double radius, int i, double z) {
        const double angle = 2 * std::numbers::pi * (i % sides) / sides;
        return Vec3d{radius * std::cos(angle), radius * std::sin(angle), z};
    };
    for (int i = 0; i < sides; ++i) {
        const int k = i + 1;
        put_quad(soup, at(outer, i, 0), at(outer, k, 0), at(outer, k, height),
                 at(outer, i, height));
        put_quad(soup, at(inner, k, 0), at(inner, i, 0), at(inner, i, height),
                 at(inner, k, height));
        put_quad(soup, at(inner, i, height), at(outer, i, height), at(outer, k, height),
                 at(inner, k, height));
        put_quad(soup, at(inner, k, 0), at(outer, k, 0), at(outer, i, 0), at(inner, i, 0));
    }
    return soup;
}

// The right angle at the origin, the tip on the x axis at 10.
SoupVector wedge(double degrees) {
    return prism({{0, 0}, {10, 0}, {0, 10 * std::tan(degrees * std::numbers::pi / 180)}}, 0, 30);
}

SoupVector turned_by(SoupVector soup, Vec3d axis, double degrees) {
    const Rotation rotation(axis, degrees);
    for (std::size_t i = 0; i < soup.size(); i += 3) {
        const Vec3f p = rotation.apply(Vec3f{soup[i], soup[i + 1], soup[i + 2]});
        soup[i] = p.x;
        soup[i + 1] = p.y;
        soup[i + 2] = p.z;
    }
    return soup;
}

constexpr Vec3d kAxis{2.0 / 3, -1.0 / 3, 2.0 / 3};

TEST(Thickness, AgreesWithTheClosedFormsOfPlatesSpheresTubesAndWedges) {
    const TriMesh plate = shapes::mesh_of(shapes::box({0, 0, 0}, {10, 10, 1}));
    const ThicknessReport flat = measure_thickness(plate, {.wall = 1.2});
    EXPECT_NEAR(flat.walls.smallest, 1, 1e-6);
    EXPECT_NEAR(flat.walls.area, 200, 1e-3);  // but for the rim
    EXPECT_NEAR(flat.walls.share, 200.0 / 240, 1e-6);
    ASSERT_EQ(flat.walls.places.size(), 1U);
    EXPECT_NEAR(flat.walls.places[0].box.extent().z, 1, 1e-6);
    EXPECT_NEAR(flat.walls.places[0].box.extent().x, 10, 1e-6);

    const ThicknessReport ball =
        measure_thickness(shapes::mesh_of(shapes::sphere(1, 4)), {.wall = 2.1});
    for (const float value : ball.walls.values) ASSERT_NEAR(value, 2, 0.02);

    const ThicknessReport pipe =
        measure_thickness(shapes::mesh_of(tube(10, 8.5, 20, 96)), {.wall = 1.6});
    EXPECT_NEAR(pipe.walls.smallest, 1.5, 0.015);
    EXPECT_NEAR(pipe.walls.area, 2 * std::numbers::pi * 18.5 * 20, 5);
    for (const float value : pipe.walls.values) {
        if (value < kInf) {
            ASSERT_NEAR(value, 1.5, 0.015);
        }
    }

    // On the floor of a wedge, x from its tip, the ball has the radius x tan(half the angle).
    const double angle = 40;
    const TriMesh sharp = shapes::mesh_of(wedge(angle));
    const ThicknessReport edge = measure_thickness(sharp, {.wall = 1});
    EXPECT_LT(edge.walls.smallest, 0.2);
    int measured = 0;
    for (std::uint32_t face = 0; face < sharp.faces.size(); ++face) {
        edge.walls.pieces.visit(face, [&](std::size_t piece, const Triangle& t) {
            const Vec3d p = middle_of(t);
            if (p.y != 0 || p.z < 3 || p.z > 27) return;
            const double truth = 2 * (10 - p.x) * std::tan(angle / 2 * std::numbers::pi / 180);
            if (truth < 1.95) {
                ASSERT_NEAR(edge.walls.values[piece], truth, 0.01 * truth);
            }
            if (truth > 2.05) {
                ASSERT_EQ(edge.walls.values[piece], kInf);
            }
            ++measured;
        });
    }
    EXPECT_GT(measured, 1000);
}

TEST(Thickness, EdgesOfACubeAndWallsOfJustThatThicknessPass) {
    const SoupVector cube = shapes::box({0, 0, 0}, {10, 10, 10});
    const SoupVector plate = shapes::box({0, 0, 0}, {10, 10, 1});
    for (const double degrees : {0.0, 31.7}) {
        const TriMesh solid = shapes::mesh_of(turned_by(cube, kAxis, degrees));
        const ThicknessReport thick = measure_thickness(solid, {.wall = 4.9, .gap = 4.9});
        EXPECT_FALSE(thick.is_thin());
        EXPECT_EQ(thick.walls.smallest, kInf);
        const TriMesh sheet = shapes::mesh_of(turned_by(plate, kAxis, degrees));
        EXPECT_FALSE(measure_thickness(sheet, {.wall = 1}).is_thin());
        EXPECT_TRUE(measure_thickness(sheet, {.wall = 1.01}).is_thin());
        // A bar with the section of an equilateral triangle: its edges are wedges of 60 degrees.
        const SoupVector bar = prism({{0, 0}, {10, 0}, {5, 5 * std::sqrt(3.0)}}, 0, 20);
        const TriMesh wedges = shapes::mesh_of(turned_by(bar, kAxis, degrees));
        EXPECT_TRUE(measure_thickness(wedges, {.wall = 1}).is_thin());
    }
}

TEST(Thickness, ATurnedModelHasTheSameThinPlaces) {
    SoupVector soup = tube(10, 8.5, 20, 96);
    SoupVector blade = wedge(20);
    shapes::move(blade, {20, 0, 0});
    shapes::append(soup, blade);
    const ThicknessOptions options{.wall = 2, .gap = 30};
    const ThicknessReport one = measure_thickness(shapes::mesh_of(soup), options);
    ASSERT_EQ(one.walls.count, 2U);
    for (const double degrees : {17.0, 90.0, 203.0}) {
        const TriMesh mesh = shapes::mesh_of(turned_by(soup, kAxis, degrees));
        const ThicknessReport other = measure_thickness(mesh, options);
        EXPECT_EQ(other.walls.count, 2U);
        EXPECT_NEAR(other.walls.smallest, one.walls.smallest, 0.01 * one.walls.smallest);
        EXPECT_NEAR(other.walls.area, one.walls.area, 0.01 * one.walls.area);
        EXPECT_NEAR(other.gaps.smallest, one.gaps.smallest, 0.01 * one.gaps.smallest);
        EXPECT_NEAR(other.gaps.area, one.gaps.area, 0.01 * one.gaps.area);
    }
}

TEST(Thickness, GapsAreMeasuredOutsideAndLimitNoWalls) {
    SoupVector soup = shapes::box({0, 0, 0}, {5, 5, 5});
    shapes::append(soup, shapes::box({0, 0, 5.25F}, {5, 5, 10}));
    // Beside the first one, its underside hardly below the first one's top.
    shapes::append(soup, shapes::box({5.5F, 0, 4.75F}, {10, 5, 10}));
    const ThicknessReport report =
        measure_thickness(shapes::mesh_of(soup), {.wall = 1, .gap = 0.4});
    EXPECT_EQ(report.walls.count, 0U);
    ASSERT_EQ(report.gaps.count, 1U);
    EXPECT_NEAR(report.gaps.smallest, 0.25, 1e-6);
    EXPECT_NEAR(report.gaps.area, 50, 1e-3);
}

// A slab of 10 with two grooves that leave 0.5 and 0.4 above one large underside.
// Two large faces that open like a book, narrower than asked for on a strip of 2 along the spine;
// the wall that is asked for is four times as wide as that.
TEST(Thickness, GapsAreSampledAsFineAsTheyAre) {
    const std::vector<std::vector<Point2>> leaves = {{{0, -9}, {30, -9}, {30, 0}, {0, 0}},
                                                     {{0, 0.1}, {30, 3.1}, {30, 12}, {0, 12}}};
    SoupVector soup;
    const double depth = 10;
    const auto at = [](Point2 p, double z) { return Vec3d{p.x, p.y, z}; };
    for (const std::vector<Point2>& leaf : leaves) {
        for (std::size_t i = 0; i < 4; ++i) {
            const Point2 a = leaf[i];
            const Point2 b = leaf[(i + 1) % 4];
            put_quad(soup, at(a, 0), at(b, 0), at(b, depth), at(a, depth));
        }
        put_quad(soup, at(leaf[3], 0), at(leaf[2], 0), at(leaf[1], 0), at(leaf[0], 0));
        put_quad(soup, at(leaf[0], depth), at(leaf[1], depth), at(leaf[2], depth),
                 at(leaf[3], depth));
    }
    const ThicknessReport report =
        measure_thickness(shapes::mesh_of(soup), {.wall = 8, .gap = 0.3});
    ASSERT_EQ(report.gaps.count, 1U);
    EXPECT_NEAR(report.gaps.smallest, 0.1, 0.01);
    EXPECT_NEAR(report.gaps.area, 2 * 2 * depth, 0.06 * 2 * 2 * depth);
}

TEST(Thickness, PlacesBehindOneLargeFaceStayApartAndTheLargerComesFirst) {
    const std::vector<Point2> top = {{20, 10}, {17, 10}, {17, 0.4}, {15, 0.4}, {15, 10},
                                     {8, 10},  {8, 0.5}, {4, 0.5},  {4, 10},   {0, 10}};
    SoupVector soup;
    const double depth = 30;
    const auto at = [](Point2 p, double z) { return Vec3d{p.x, p.y, z}; };
    std::vector<Point2> outline = {{0, 0}, {20, 0}};
    outline.insert(outline.end(), top.begin(), top.end());
    for (std::size_t i = 0; i < outline.size(); ++i) {
        const Point2 a = outline[i];
        const Point2 b = outline[(i + 1) % outline.size()];
        put_quad(soup, at(a, 0), at(b, 0), at(b, depth), at(a, depth));
    }
    const ThicknessReport report = measure_thickness(shapes::mesh_of(soup), {.wall = 1});
    ASSERT_EQ(report.walls.count, 2U);
    const ThinPlace& first = report.walls.places[0];
    const ThinPlace& second = report.walls.places[1];
    EXPECT_NEAR(first.smallest, 0.5, 1e-6);
    EXPECT_NEAR(second.smallest, 0.4, 1e-6);
    EXPECT_GT(first.area, 2 * 4 * depth);  // and a little more beside it on the underside
    EXPECT_LT(first.area, 2 * 5.5 * depth);
    EXPECT_GT(second.point.x, 14);
    EXPECT_LT(first.point.x, 9);
}

// How far the nearest point of an opposing face lies from the centre of a ball, by looking at all.
double slow_clearance(const TriMesh& mesh, Vec3d p, Vec3d n, double radius) {
    double least = std::numeric_limits<double>::infinity();
    for (const Face& face : mesh.faces) {
        const Triangle t = triangle_of(mesh, face);
        const Vec3d across = cross(t[1] - t[0], t[2] - t[0]);
        if (dot(across, n) > -0.4993 * length(across) || dot(across, t[0] - p) < 1e-9) continue;
        least = std::min(least, nearest_on_triangle(p - n * radius, t).squared_distance);
    }
    return std::sqrt(least);
}

TEST(TangentBalls, ReachToTheNearestOpposingFaceOfAllAndNoFarther) {
    Random random(5);
    int found_count = 0;
    for (int round = 0; round < 20; ++round) {
        SoupVector soup;
        for (int i = 0; i < 9 * 80; ++i) soup.push_back(static_cast<float>(random.below(9)));
        const TriMesh mesh = shapes::mesh_of(soup);
        const TangentBalls balls(mesh);
        for (std::uint32_t entry = 0; entry < balls.tree().numbers().size(); ++entry) {
            const Face& face = mesh.faces[balls.tree().numbers()[entry]];
            const Vec3d p = middle_of(triangle_of(mesh, face));
            const Vec3d n = balls.normal(entry);
            const BallContact found = balls.find(p, n, BallSide::Inside, 6);
            const double radius = std::min(6.0, found.diameter) / 2;
            ASSERT_GE(slow_clearance(mesh, p, n, radius), radius * (1 - 1e-6) - 1e-9) << round;
            if (!found.is_found()) continue;
            ASSERT_NEAR(length(found.point - (p - n * radius)), radius, 1e-6);
            ++found_count;
        }
    }
    EXPECT_GT(found_count, 500);
}

TEST(Thickness, IsTheSameOnAnyNumberOfThreads) {
    const TriMesh mesh = shapes::mesh_of(shapes::rock(10, 5));
    const ThicknessOptions options{.wall = 25, .gap = 3};
    const ThicknessReport many = measure_thickness(mesh, options);
    const OneThread alone;
    const ThicknessReport one = measure_thickness(mesh, options);
    EXPECT_TRUE(one.is_thin());
    EXPECT_EQ(many.walls.values, one.walls.values);
    EXPECT_EQ(many.gaps.values, one.gaps.values);
    EXPECT_EQ(many.walls.area, one.walls.area);
    EXPECT_EQ(many.walls.count, one.walls.count);
}

TEST(Thickness, BadOptionsWildModelsAndTooManySamplesComeToAnEnd) {
    const TriMesh cube = shapes::mesh_of(shapes::box({0, 0, 0}, {10, 10, 10}));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const ThicknessOptions& bad : {ThicknessOptions{.wall = 0},
                                        {.wall = -1},
                                        {.wall = nan},
                                        {.wall = 1, .gap = -1},
                                        {.wall = 1, .gap = nan},
                                        {.wall = 1, .grain = nan}}) {
        EXPECT_EQ(measure_thickness(cube, bad).status.code(), StatusCode::BadOption);
    }
    const ThicknessReport coarse = measure_thickness(cube, {.wall = 1e-3, .most_samples = 5000});
    EXPECT_TRUE(coarse.walls.is_coarse);
    EXPECT_LE(coarse.walls.values.size(), 5000U);
    EXPECT_GT(coarse.walls.values.size(), 500U);
    for (const double wall : {1e-300, 1e-30, 20.0, 1e30, 1e300}) {
        const ThicknessReport report =
            measure_thickness(cube, {.wall = wall, .most_samples = 1000});
        EXPECT_EQ(report.is_thin(), wall > 1) << wall;
    }
    // A cube of 1e38 has room for itself; of one of the least floats, faces have no direction.
    for (const float size : {3e38F, 1e-30F}) {
        const TriMesh mesh = shapes::mesh_of(shapes::box({0, 0, 0}, {size, size, size}));
        const ThicknessReport report = measure_thickness(mesh, {.wall = 1.5 * size, .gap = size});
        EXPECT_NEAR(report.walls.smallest / size, 1, 1e-6) << size;
        EXPECT_EQ(report.gaps.count, 0U);
    }
    TriMesh torn = shapes::mesh_of(shapes::box({0, 0, 0}, {10, 10, 1}));
    torn.vertices[0].x = std::numeric_limits<float>::quiet_NaN();
    torn.vertices[7].y = kInf;
    const ThicknessReport report = measure_thickness(torn, {.wall = 2});
    EXPECT_GT(report.left_out, 3U);
    EXPECT_EQ(measure_thickness({}, {.wall = 2}).walls.count, 0U);
}

TEST(ThicknessMap, StaysClosedAndPaintsThePlaces) {
    // A thin fin on a cube; most of the cube is far from thin and keeps its large faces.
    SoupVector soup = shapes::box({0, 0, 0}, {10, 10, 10});
    shapes::append(soup, shapes::box({12, 0, 0}, {12.5F, 10, 10}));
    const TriMesh mesh = shapes::mesh_of(soup);
    const ThicknessReport report = measure_thickness(mesh, {.wall = 1.2});
    const TriMesh map = thickness_map(mesh, report.walls, wall_colour);
    EXPECT_TRUE(reference::is_closed_manifold(map));
    EXPECT_NEAR(volume(map), volume(mesh), 1e-3);
    EXPECT_LT(map.faces.size(), report.walls.values.size() / 2);
    double red = 0;
    double blue = 0;
    for (const Face& face : map.faces) {
        const Triangle t = triangle_of(map, face);
        const double area = length(cross(t[1] - t[0], t[2] - t[0])) / 2;
        if (face.colour[0] > 200 && face.colour[1] < 50) red += area;
        if (face.colour[2] > 180) blue += area;
    }
    EXPECT_NEAR(red, 200, 1e-3);
    EXPECT_NEAR(blue, 620, 1e-3);
}

TEST(Thickness, OfABoatIsTheSameHoweverItLies) {
    const char* folder = std::getenv("POVMESH_MODELS");
    if (folder == nullptr) GTEST_SKIP() << "POVMESH_MODELS is not set";
    TriMesh mesh;
    RunLog log;
    RunContext run{{}, log};
    StlInfo info;
    ASSERT_TRUE(read_stl(std::string(folder) + "/benchy.stl", {}, run, mesh, info).ok());
    const ThicknessReport one = measure_thickness(mesh, {.wall = 1});
    const Rotation rotation(kAxis, 40);
    for (Vertex& v : mesh.vertices) {
        const Vec3f p = rotation.apply(v.position());
        v = {p.x, p.y, p.z, v.index};
    }
    const ThicknessReport other = measure_thickness(mesh, {.wall = 1});
    EXPECT_GT(one.walls.area, 100);
    EXPECT_NEAR(other.walls.area, one.walls.area, 0.01 * one.walls.area);
}

}  // namespace
}  // namespace povmesh
