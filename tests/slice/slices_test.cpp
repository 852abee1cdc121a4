// Slices: areas and outlines of shapes whose truth is known, gaps, nesting, planes through
// vertices.
#include "slice/slices.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "helpers/shapes.h"
#include "mesh/volume.h"

namespace povmesh {
namespace {

using shapes::SoupVector;

struct Slice {
    SliceLoops loops;
    SliceParts parts;
    double area = 0;  // of the parts
};

Slice slice_at(const TriMesh& mesh, std::size_t axis, double height) {
    Slice slice;
    Slicer(mesh, axis, std::array{height}).slice(0, slice.loops);
    slice.parts = find_slice_parts(slice.loops);
    for (const std::uint32_t loop : slice.parts.loops) slice.area += loop_area(slice.loops[loop]);
    return slice;
}

SoupVector box(Vec3f low, Vec3f high) {
    return shapes::box(low, high);
}

SoupVector turned_box(Vec3f low, Vec3f high) {
    return shapes::turned(shapes::box(low, high));
}

TEST(Slices, FindEveryIntervalAtAPlaceOnce) {
    shapes::Random random(1);
    for (const std::size_t places : {1U, 2U, 7U, 64U, 100U}) {
        std::vector<PlaceInterval> intervals;
        for (std::uint32_t i = 0; i < 200; ++i) {
            const auto a = static_cast<std::uint32_t>(random.below(places));
            const auto b = static_cast<std::uint32_t>(random.below(places));
            intervals.push_back({std::min(a, b), std::max(a, b), i});
        }
        const IntervalTree tree(intervals, places);
        for (std::uint32_t place = 0; place < places; ++place) {
            std::vector<std::uint32_t> found;
            std::vector<std::uint32_t> expected;
            tree.for_each(place, [&](std::uint32_t item) { found.push_back(item); });
            for (const PlaceInterval& i : intervals) {
                if (i.first <= place && place <= i.last) expected.push_back(i.item);
            }
            std::sort(found.begin(), found.end());
            ASSERT_EQ(found, expected) << place << " of " << places;
        }
    }
}

TEST(Slices, TellMaterialFromAirAsARayDoes) {
    const TriMesh mesh = shapes::mesh_of(shapes::rock(10, 3));
    shapes::Random random(2);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        // The height of a vertex, so that the plane passes through its fan of faces.
        const double height = along_axis(to_double(mesh.vertices[100].position()), axis);
        const Slice slice = slice_at(mesh, axis, height);
        ASSERT_TRUE(slice.loops.is_closed);
        for (int i = 0; i < 200; ++i) {
            const Point2d q{random.unit() * 24 - 12, random.unit() * 24 - 12};
            double turns = 0;
            for (std::size_t l = 0; l < slice.loops.size(); ++l) {
                const auto loop = slice.loops[l];
                for (std::size_t p = 0; p < loop.size(); ++p) {
                    const Point2d a = loop[p];
                    const Point2d b = loop[(p + 1) % loop.size()];
                    turns += std::atan2((a.x - q.x) * (b.y - q.y) - (a.y - q.y) * (b.x - q.x),
                                        (a.x - q.x) * (b.x - q.x) + (a.y - q.y) * (b.y - q.y));
                }
            }
            // The solid angle of all faces as seen from the point: 4 pi inside, 0 outside.
            const Vec3d eye = at_height(q, height - 1e-9, axis);
            double solid_angle = 0;
            for (const Face& face : mesh.faces) {
                const Vec3d a = to_double(mesh.corner_position(face, 0)) - eye;
                const Vec3d b = to_double(mesh.corner_position(face, 1)) - eye;
                const Vec3d c = to_double(mesh.corner_position(face, 2)) - eye;
                solid_angle +=
                    2 * std::atan2(dot(a, cross(b, c)),
                                   length(a) * length(b) * length(c) + dot(a, b) * length(c) +
                                       dot(b, c) * length(a) + dot(c, a) * length(b));
            }
            EXPECT_NEAR(2 * turns, solid_angle, 1e-3) << axis << ' ' << q.x << ' ' << q.y;
        }
    }
}

TEST(Slices, HoldTheFlatTopAndNotTheFlatBottom) {
    const TriMesh mesh = shapes::mesh_of(box({-1, -2, -3}, {2, 3, 4}));
    const std::array<double, 3> areas = {5 * 7, 7 * 3, 3 * 5};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const double bottom = -1.0 - static_cast<double>(axis);
        const double top = 2.0 + static_cast<double>(axis);
        EXPECT_EQ(slice_at(mesh, axis, bottom).loops.size(), 0U);
        for (const double height : {std::nextafter(bottom, 9), 0.0, 0.5, top}) {
            const Slice slice = slice_at(mesh, axis, height);
            EXPECT_EQ(slice.loops.size(), 1U);
            EXPECT_EQ(slice.area, areas[axis]) << axis << ' ' << height;
        }
        EXPECT_EQ(slice_at(mesh, axis, std::nextafter(top, 9)).loops.size(), 0U);
    }
}

TEST(Slices, AddUpToTheVolume) {
    const TriMesh mesh = shapes::mesh_of(shapes::rock(10, 4));
    std::vector<double> heights;
    for (int i = -1500; i < 1500; ++i) heights.push_back((i + 0.5) / 100);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const Slicer slicer(mesh, axis, heights);
        double sum = 0;
        for (std::size_t layer = 0; layer < heights.size(); ++layer) {
            SliceLoops loops;
            slicer.slice(layer, loops);
            for (std::size_t l = 0; l < loops.size(); ++l) sum += loop_area(loops[l]) / 100;
        }
        EXPECT_NEAR(sum, volume(mesh), 1e-5 * volume(mesh)) << axis;  // midpoint rule
    }
}

TEST(Slices, CloseWhatFlawsLeaveOpen) {
    const SoupVector cube = box({0, 0, 0}, {10, 10, 10});
    const SoupVector bad_face{0, 0, 0, 9, 1, std::numeric_limits<float>::quiet_NaN(), 2, 3, 9};
    std::vector<SoupVector> flawed(1);
    for (std::size_t face = 0; face < 12; ++face) {
        const SoupVector one(&cube[9 * face], &cube[9 * face] + 9);
        SoupVector missing(cube.begin(), cube.begin() + static_cast<std::ptrdiff_t>(9 * face));
        shapes::append(missing, std::span(cube).subspan(9 * face + 9));
        flawed.push_back(missing);
        shapes::append(missing, shapes::turned(one));
        flawed.push_back(missing);
        // For the first one: no face shares a vertex with another.
        SoupVector apart = one;
        shapes::move(apart, {0, 0, 1e-4F * static_cast<float>(face)});
        for (float& x : apart) x *= 1 + 1e-6F * static_cast<float>(face);
        shapes::append(flawed[0], apart);
    }
    flawed.push_back(cube);
    for (SoupVector& soup : flawed) {
        shapes::append(soup, bad_face);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const Slice slice = slice_at(shapes::mesh_of(soup), axis, 3);
            EXPECT_NEAR(slice.area, 100, &soup == &flawed[0] ? 0.05 : 1e-9);
            for (const Point2d p : slice.loops.points) EXPECT_TRUE(std::isfinite(p.x + p.y));
        }
    }
}

TEST(Slices, TellPartsHolesAndIslands) {
    SoupVector soup = box({-1, -1, 0}, {201, 201, 1});
    double area = 202 * 202;
    for (int i = 0; i < 40; ++i) {
        for (int j = 0; j < 40; ++j) {
            const auto x = static_cast<float>(5 * i);
            const auto y = static_cast<float>(5 * j);
            shapes::append(soup, turned_box({x, y, 0}, {x + 4, y + 4, 1}));
            shapes::append(soup, box({x + 1, y + 1, 0}, {x + 3, y + 3, 1}));
            area += 4 - 16;
        }
    }
    shapes::append(soup, box({-1.0F, 200.2F, 0}, {-0.5F, 200.8F, 1}));  // inside material
    const Slice slice = slice_at(shapes::mesh_of(shapes::shuffled(soup, 3)), 2, 0.3);
    EXPECT_EQ(slice.parts.size(), 1U + 1600U);
    EXPECT_DOUBLE_EQ(slice.area, area);
    std::size_t most_holes = 0;
    for (std::size_t p = 0; p < slice.parts.size(); ++p) {
        most_holes = std::max(most_holes, slice.parts[p].size() - 1);
    }
    EXPECT_EQ(most_holes, 1600U);
}

TEST(Slices, DoNotBreakOnFansAndGiants) {
    const TriMesh fan = shapes::mesh_of(shapes::fan(100000, 5));
    const Slice slice = slice_at(fan, 2, 2.5);
    ASSERT_EQ(slice.loops.size(), 1U);
    EXPECT_EQ(slice.loops[0].size(), 100000U);
    EXPECT_EQ(slice_at(shapes::mesh_of(shapes::book(100000)), 2, 0.5).area, 0);
    EXPECT_EQ(slice_at(TriMesh{}, 0, 0).loops.size(), 0U);
    const TriMesh giant = shapes::mesh_of(box({-3e38F, -3e38F, -3e38F}, {3e38F, 3e38F, 3e38F}));
    EXPECT_NEAR(slice_at(giant, 1, 1e38).area / 3.6e77, 1, 1e-6);
}

}  // namespace
}  // namespace povmesh
