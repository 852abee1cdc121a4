// The convex hull: nothing outside, closed, and right where points are degenerate.
#include "spatial/convex_hull.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <utility>
#include <vector>

#include "base/predicates.h"
#include "helpers/shapes.h"

namespace povmesh {
namespace {

using Points = std::vector<Vec3f>;

/// Six times the volume of a hull.
double volume6(const Points& points, const ConvexHull& hull) {
    double sum = 0;
    for (const auto& [a, b, c] : hull.triangles) {
        sum += dot(to_double(points[a]), cross(to_double(points[b]), to_double(points[c])));
    }
    return sum;
}

/// Holds a solid hull against every point, exactly, and its edges against one another.
void expect_hull(const Points& points, const ConvexHull& hull) {
    ASSERT_EQ(hull.dimension, 3);
    std::map<std::pair<std::uint32_t, std::uint32_t>, int> edges;
    for (const auto& t : hull.triangles) {
        for (std::size_t i = 0; i < 3; ++i) ++edges[{t[i], t[(i + 1) % 3]}];
        bool has_depth = false;
        for (const Vec3f p : points) {
            if (!is_finite(p)) continue;
            const int side = orient3d(to_double(points[t[0]]), to_double(points[t[1]]),
                                      to_double(points[t[2]]), to_double(p));
            ASSERT_LE(side, 0) << "a point is outside";
            has_depth |= side < 0;
        }
        ASSERT_TRUE(has_depth) << "a degenerate triangle has no side";
    }
    for (const auto& [edge, count] : edges) {
        ASSERT_EQ(count, 1);
        ASSERT_EQ(edges.count({edge.second, edge.first}), 1U);
    }
    EXPECT_EQ(hull.vertices.size() + hull.triangles.size(), edges.size() / 2 + 2);  // Euler
}

Points random_points(std::uint64_t seed, std::size_t count, std::uint64_t steps) {
    shapes::Random random(seed);
    Points points(count);
    for (Vec3f& p : points) {
        const auto next = [&] { return static_cast<float>(random.below(steps)) * 0.1F; };
        p = {next(), next(), next()};
    }
    return points;
}

// A coarse grid makes most of the points coplanar, collinear or equal to others.
TEST(ConvexHull, LeavesNoPointOutsideAndStaysClosed) {
    for (std::uint64_t seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(seed);
        const std::uint64_t steps = seed % 3 == 0 ? 4 : seed % 3 == 1 ? 20 : 1 << 20;
        const Points points = random_points(seed, 8 + seed, steps);
        const ConvexHull hull = convex_hull(points);
        if (hull.dimension == 3) expect_hull(points, hull);
        EXPECT_TRUE(hull.dimension == 3 || seed < 3);
    }
    Points sphere;
    for (std::size_t i = 0; i < shapes::sphere(1, 3).size(); i += 3) {
        const shapes::SoupVector soup = shapes::sphere(1, 3);
        sphere.push_back({soup[i], soup[i + 1], soup[i + 2]});
    }
    expect_hull(sphere, convex_hull(sphere));
}

TEST(ConvexHull, TellsTheDimensionOfDegenerateSets) {
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    const struct {
        Points points;
        int dimension;
        std::size_t vertices;
    } rows[] = {
        {{}, -1, 0},
        {{{kNan, 0, 0}}, -1, 0},
        {{{1, 2, 3}, {1, 2, 3}, {0, kNan, 0}}, 0, 1},
        {{{1, 1, 1}, {3, 3, 3}, {2, 2, 2}, {-4, -4, -4}}, 1, 2},
        {{{0, 0, 0}, {1e-45F, 0, 0}, {0, 1e-45F, 0}}, 2, 3},
        {{{0, 0, 5}, {2, 0, 5}, {1, 0, 5}, {2, 2, 5}, {0, 2, 5}, {1, 1, 5}, {0, 1, 5}}, 2, 4},
        {{{3e38F, 0, 0}, {-3e38F, 0, 0}, {0, 3e38F, 0}, {0, 0, 1e-45F}}, 3, 4},
    };
    for (const auto& row : rows) {
        const ConvexHull hull = convex_hull(row.points);
        EXPECT_EQ(hull.dimension, row.dimension);
        EXPECT_EQ(hull.vertices.size(), row.vertices);
        if (row.dimension == 3) expect_hull(row.points, hull);
    }
    const ConvexHull square = convex_hull(rows[5].points);
    double area = 0;  // the outline is in order when its corners make the whole square
    for (std::size_t i = 0; i < 4; ++i) {
        const Vec3f a = rows[5].points[square.vertices[i]];
        const Vec3f b = rows[5].points[square.vertices[(i + 1) % 4]];
        area += static_cast<double>(a.x * b.y - a.y * b.x) / 2;
    }
    EXPECT_EQ(std::abs(area), 4);
}

// All points of a ball and of a cylinder are corners. A point of a rim is a hair above the plane of
// the cap, but far beside it.
TEST(ConvexHull, LeavesOutOnlyWhatIsWithinTheTolerance) {
    constexpr double kTolerance = 1e-3;
    const shapes::SoupVector soup = shapes::sphere(1, 6);
    Points ball;
    for (std::size_t i = 0; i < soup.size(); i += 3) {
        ball.push_back({soup[i], soup[i + 1], soup[i + 2]});
    }
    Points cylinder;
    shapes::Random random(3);
    for (int i = 0; i < 40000; ++i) {
        const auto angle = static_cast<float>(i * 6.283185307 / 40000);
        const auto hair = static_cast<float>(1e-7 * random.unit());
        cylinder.push_back({std::cos(angle), std::sin(angle), hair});
        cylinder.push_back({std::cos(angle), std::sin(angle), 2 + hair});
    }
    for (const Points& points : {ball, cylinder}) {
        const ConvexHull hull = convex_hull(points, kTolerance);
        ASSERT_EQ(hull.dimension, 3);
        EXPECT_GT(hull.triangles.size(), 15000U);  // kept exactly
        EXPECT_LT(hull.triangles.size(), 40000U);
        EXPECT_EQ(hull.vertices.size() * 2, hull.triangles.size() + 4);
        for (std::size_t i = 0; i < hull.triangles.size(); i += 101) {
            const auto& t = hull.triangles[i];
            const Vec3d a = to_double(points[t[0]]);
            const Vec3d n = cross(to_double(points[t[1]]) - a, to_double(points[t[2]]) - a);
            double most = 0;
            for (const Vec3f p : points) {
                most = std::max(most, dot(n / length(n), to_double(p) - a));
            }
            EXPECT_LT(most, 1.01 * kTolerance) << "triangle " << i;
        }
    }
}

TEST(ConvexHull, IsTheSameSolidInAnyOrderAndUnit) {
    Points points = random_points(1, 3000, 64);
    for (std::uint32_t i = 0; i < 8; ++i) {  // the corners of the cube that they are in
        points.push_back({i & 1 ? 6.4F : 0, i & 2 ? 6.4F : 0, i & 4 ? 6.4F : 0});
    }
    const double volume = volume6(points, convex_hull(points));
    EXPECT_NEAR(volume, 6 * 6.4 * 6.4 * 6.4, 1e-3);
    Points back(points.rbegin(), points.rend());
    EXPECT_NEAR(volume6(back, convex_hull(back)), volume, 1e-9 * volume);
    const ConvexHull hull = convex_hull(points);
    for (Vec3f& p : points) p = p * 1024.0F;
    EXPECT_EQ(convex_hull(points).triangles, hull.triangles);
}

}  // namespace
}  // namespace povmesh
