#include "io/polygon.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "helpers/shapes.h"

namespace povmesh {
namespace {

double signed_area(const std::vector<Vec3d>& p) {
    double sum = 0;
    for (std::size_t i = 0; i < p.size(); ++i) {
        const Vec3d& a = p[i];
        const Vec3d& b = p[(i + 1) % p.size()];
        sum += a.x * b.y - a.y * b.x;
    }
    return sum / 2;
}

// Area of the triangles, signed and by magnitude: they agree when none lies on another or the wrong
// way.
struct Areas {
    double sum = 0;
    double magnitude = 0;
    double least = 1e300;
};
Areas areas_of(PolygonTriangulator& triangulator, const std::vector<Vec3d>& p) {
    Areas areas;
    for (const auto& [a, b, c] : triangulator.triangulate(p)) {
        const double area = signed_area({p[a], p[b], p[c]});
        areas.sum += area;
        areas.magnitude += std::abs(area);
        areas.least = std::min(areas.least, std::abs(area));
    }
    return areas;
}

void expect_kept(PolygonTriangulator& triangulator, const std::vector<Vec3d>& p,
                 const std::string& what) {
    const auto triangles = triangulator.triangulate(p);
    EXPECT_EQ(triangles.size(), p.size() - 2) << what;
    const Areas areas = areas_of(triangulator, p);
    const double area = signed_area(p);
    EXPECT_NEAR(areas.sum, area, 1e-9 * std::abs(area)) << what;
    EXPECT_NEAR(areas.magnitude, std::abs(area), 1e-9 * std::abs(area)) << what;
}

std::vector<Vec3d> reversed(std::vector<Vec3d> p) {
    std::reverse(p.begin(), p.end());
    return p;
}

// Points around the origin at changing distance: simple, with many corners that are not convex.
std::vector<Vec3d> star(std::size_t n, shapes::Random& random, double depth) {
    std::vector<Vec3d> p;
    for (std::size_t i = 0; i < n; ++i) {
        const double angle = 2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(n);
        const double r = 1 - depth * random.unit();
        p.push_back({r * std::cos(angle), r * std::sin(angle), 0});
    }
    return p;
}

std::vector<Vec3d> comb(std::size_t teeth) {
    std::vector<Vec3d> p = {{0, -1, 0}};
    p.push_back({static_cast<double>(teeth), -1, 0});
    for (std::size_t i = teeth; i > 0; --i) {
        const auto x = static_cast<double>(i);
        p.push_back({x, 50, 0});
        p.push_back({x - 0.5, 50, 0});
        p.push_back({x - 0.5, 0, 0});
        p.push_back({x - 1, 0, 0});
    }
    return p;
}

std::vector<Vec3d> spiral(std::size_t n) {
    std::vector<Vec3d> p;
    for (std::size_t i = 0; i < n; ++i) {
        const double t = 0.02 * static_cast<double>(i);
        p.push_back({(5 + t) * std::cos(t), (5 + t) * std::sin(t), 0});
    }
    for (std::size_t i = n; i > 0; --i) {
        const double t = 0.02 * static_cast<double>(i - 1);
        p.push_back({(3 + t) * std::cos(t), (3 + t) * std::sin(t), 0});
    }
    return p;
}

TEST(Polygon, KeepsTheAreaOfEverySimplePolygon) {
    PolygonTriangulator triangulator;
    shapes::Random random(3);
    for (std::size_t n = 4; n < 200; ++n) {
        const std::vector<Vec3d> p = star(n, random, n % 2 == 0 ? 0.9 : 0.3);
        expect_kept(triangulator, p, "star of " + std::to_string(n));
        expect_kept(triangulator, reversed(p), "turned star of " + std::to_string(n));
    }
    expect_kept(triangulator, comb(2500), "comb of 10,000 corners");
    expect_kept(triangulator, spiral(5000), "spiral of 10,000 corners");
    expect_kept(triangulator, star(10000, random, 0), "circle of 10,000 corners");
    expect_kept(triangulator, star(10000, random, 0.5), "star of 10,000 corners");
}

TEST(Polygon, CornersInLineStayWithoutTrianglesOfNoArea) {
    PolygonTriangulator triangulator;
    std::vector<Vec3d> square;  // five corners on every side
    square.reserve(20);
    for (int i = 0; i < 5; ++i) square.push_back({0.2 * i, 0, 0});
    for (int i = 0; i < 5; ++i) square.push_back({1, 0.2 * i, 0});
    for (int i = 0; i < 5; ++i) square.push_back({1 - 0.2 * i, 1, 0});
    for (int i = 0; i < 5; ++i) square.push_back({0, 1 - 0.2 * i, 0});
    const std::vector<Vec3d> triangle = {{0, 0, 0}, {2, 0, 0}, {4, 0, 0}, {0, 4, 0}};
    for (const auto& p : {square, triangle, reversed(square)}) {
        expect_kept(triangulator, p, "corners in line");
        EXPECT_GT(areas_of(triangulator, p).least, 1e-3);
    }
}

TEST(Polygon, TakesHolesLedToAndPolygonsThatMeetThemselves) {
    PolygonTriangulator triangulator;
    // A square led to a square hole and back: the bridge is there twice.
    const std::vector<Vec3d> bridged = {{0, 0, 0}, {9, 0, 0}, {9, 9, 0}, {0, 9, 0}, {0, 0, 0},
                                        {3, 3, 0}, {3, 6, 0}, {6, 6, 0}, {6, 3, 0}, {3, 3, 0}};
    expect_kept(triangulator, bridged, "bridged");
    const std::vector<std::vector<Vec3d>> bad = {
        {{0, 0, 0}, {9, 9, 0}, {9, 0, 0}, {0, 9, 0}},                        // crosses itself
        {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}},                        // no area
        {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}, {0, 0, 0}},                        // a point
        {{0, 0, 0}, {9, 0, 0}, {NAN, 9, 0}, {0, 9, 0}},                      // not a number
        {{0, 0, 0}, {3e38, 0, 0}, {3e38, INFINITY, 0}, {0, 3e38, 0}},        // infinite
        {{0, 0, 0}, {9, 0, 0}, {9, 9, 0}, {9, 0, 0}, {0, 0, 0}, {0, 9, 0}},  // folded
    };
    for (const auto& p : bad) {
        EXPECT_EQ(triangulator.triangulate(p).size(), p.size() - 2);
        for (const auto& t : triangulator.triangulate(p)) {
            for (const std::uint32_t corner : t) EXPECT_LT(corner, p.size());
        }
    }
}

// Without an end to the search for ears the first of these looks at 600,000 corners for each one.
TEST(Polygon, OnesThatMeetThemselvesTakeLinearWork) {
    PolygonTriangulator triangulator;
    shapes::Random random(5);
    for (const std::size_t n : {1000U, 8000U}) {
        std::vector<Vec3d> anywhere;
        std::vector<Vec3d> pentagram;  // one of many corners
        std::vector<Vec3d> walk = {{}};
        for (std::size_t i = 0; i < n; ++i) {
            anywhere.push_back({random.unit(), random.unit(), 0});
            const double angle = 2 * std::numbers::pi * static_cast<double>(i * (n / 2 - 1) % n) /
                                 static_cast<double>(n);
            pentagram.push_back({std::cos(angle), std::sin(angle), 0});
            walk.push_back(walk.back() + Vec3d{random.unit() - 0.5, random.unit() - 0.5, 0});
        }
        for (const auto& p : {anywhere, pentagram, walk}) {
            EXPECT_EQ(triangulator.triangulate(p).size(), p.size() - 2);
            EXPECT_LT(triangulator.work(), 400 * n);
        }
    }
}

TEST(Polygon, WarpedOnesKeepTheirOutlineInEveryDirection) {
    PolygonTriangulator triangulator;
    shapes::Random random(9);
    for (int axis = 0; axis < 3; ++axis) {
        std::vector<Vec3d> p = star(40, random, 0.7);
        const double area = signed_area(p);
        for (Vec3d& q : p) {
            q.z = 0.05 * random.unit();
            if (axis == 1) q = {q.z, q.x, q.y};
            if (axis == 2) q = {q.y, q.z, q.x};
        }
        double sum = 0;
        for (const auto& [a, b, c] : triangulator.triangulate(p)) {
            const Vec3d n = cross(p[b] - p[a], p[c] - p[a]);
            sum += (axis == 0 ? n.z : axis == 1 ? n.x : n.y) / 2;
        }
        EXPECT_NEAR(sum, area, 1e-12);
    }
}

}  // namespace
}  // namespace povmesh
