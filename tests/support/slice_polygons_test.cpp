// Columns as polygons of layers: areas and places against closed forms, holes, bad input.
#include "support/slice_polygons.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "helpers/job.h"
#include "helpers/shapes.h"

namespace povmesh {
namespace {

constexpr double kSide = 1.8384776;  // of a column at a spacing of 3: (1.5 - 0.2) * sqrt(2)

struct Sliced {
    Status status;
    SlicePolygons polygons;
    std::string log;

    // Signed areas, polygon by polygon.
    std::vector<double> areas() const {
        std::vector<double> areas;
        std::size_t first = 0;
        for (const std::uint32_t size : polygons.sizes) {
            double area = 0;
            for (std::size_t i = 0; i < size; ++i) {
                const Vec3d a = to_double(polygons.points[first + i]);
                const Vec3d b = to_double(polygons.points[first + (i + 1) % size]);
                area += (a.x * b.y - a.y * b.x) / 2;
            }
            areas.push_back(area);
            first += size;
        }
        return areas;
    }
};

Sliced sliced(const TriMesh& mesh, const std::vector<Column>& columns,
              const SliceOptions& options = {}) {
    Sliced result;
    Job job;
    result.status = slice_columns(mesh, columns, options, job.run, result.polygons);
    result.log = job.text;
    return result;
}

Column column(float x, float y, float bottom, float top) {
    return {{x, y, top}, {x, y, bottom}};
}

TEST(SlicePolygons, AreTheSquaresOfTheLayers) {
    const Sliced s = sliced({}, {column(5, -7, 0, 10), column(20, 0, 4.11F, 6)});
    ASSERT_TRUE(s.status.ok()) << s.status.text();
    ASSERT_EQ(s.polygons.sizes.size(), 50U + 9U);
    EXPECT_EQ(s.log, "\npoly_num: 59\npoints_num: 236");
    for (const double area : s.areas()) EXPECT_NEAR(area, kSide * kSide, 1e-4);
    EXPECT_FLOAT_EQ(s.polygons.points.front().z, 0.1F);
    EXPECT_FLOAT_EQ(s.polygons.points.back().z, 9.9F);
    EXPECT_FLOAT_EQ(s.polygons.points[0].x, 5 - static_cast<float>(kSide) / 2);
    // From the plate up only; a spacing so narrow that columns have no body.
    EXPECT_EQ(sliced({}, {column(0, 0, -5, 2)}).polygons.sizes.size(), 10U);
    EXPECT_TRUE(sliced({}, {column(0, 0, 0, 2)}, {0.4, 0.2, 0}).polygons.sizes.empty());
    EXPECT_EQ(sliced({}, {column(0, 0, 0, 2)}, {3, 0.2, 1}).polygons.sizes.size(), 5U);
}

// What stays of a column of side 1.838 about the origin, layers of 1 at heights 0 to 2.
TEST(SlicePolygons, LeaveTheGrownModelOut) {
    const double half = kSide / 2;
    shapes::SoupVector shaft = shapes::box({-5, -5, 0}, {5, 5, 2});
    shapes::append(shaft, shapes::turned(shapes::box({-0.7F, -0.7F, -1}, {0.7F, 0.7F, 3})));
    shapes::SoupVector overlapping = shapes::box({0, -5, 0}, {3, 5, 2});
    shapes::append(overlapping, shapes::box({0.1F, -6, 0}, {4, 6, 2}));
    shapes::SoupVector one_turned = shapes::box({0.5F, -5, 0}, {3, 5, 2});
    shapes::append(one_turned, shapes::turned(shapes::box({-3, -5, 0}, {-0.5F, 5, 2})));
    const struct {
        const char* what;
        shapes::SoupVector soup;
        std::vector<double> areas;  // of a layer
    } cases[] = {
        {"half", shapes::box({0, -5, 0}, {5, 5, 2}), {(half - 0.2) * kSide}},
        {"half, inside out",
         shapes::turned(shapes::box({0, -5, 0}, {5, 5, 2})),
         {(half - 0.2) * kSide}},
        {"two boxes that overlap", overlapping, {(half - 0.2) * kSide}},
        {"between two boxes, one inside out", one_turned, {0.6 * kSide}},
        {"not touched, but too near",
         shapes::box({1.08F, -5, 0}, {5, 5, 2}),
         {(half + 0.88) * kSide}},
        {"within", shapes::box({-5, -5, 0}, {5, 5, 2}), {}},
        {"beside", shapes::box({2, -5, 0}, {5, 5, 2}), {kSide * kSide}},
        {"near", shapes::box({1, -5, 0}, {5, 5, 2}), {(half + 0.8) * kSide}},
        {"a pole in it",
         shapes::box({-0.2F, -0.3F, 0}, {0.2F, 0.3F, 2}),
         {kSide * kSide, -0.8 * 1.0}},
        {"a wall through it",
         shapes::box({-0.1F, -5, 0}, {0.1F, 5, 2}),
         {(half - 0.3) * kSide, (half - 0.3) * kSide}},
        {"in a shaft", shaft, {1.0 * 1.0}},
    };
    for (const auto& c : cases) {
        const Sliced s = sliced(shapes::mesh_of(c.soup), {column(0, 0, 0, 2)}, {3, 1, 0});
        std::vector<double> twice = c.areas;
        twice.insert(twice.end(), c.areas.begin(), c.areas.end());
        const std::vector<double> areas = s.areas();
        ASSERT_EQ(areas.size(), twice.size()) << c.what;
        for (std::size_t i = 0; i < areas.size(); ++i) {
            EXPECT_NEAR(areas[i], twice[i], 1e-3) << c.what;
        }
    }
}

TEST(SlicePolygons, SliceThroughVerticesExactly) {
    // The sphere has vertices in the middles of layers: its equator and others along it.
    const TriMesh mesh = shapes::mesh_of(shapes::sphere(10, 4));
    std::vector<Column> columns;
    for (int x = -12; x <= 12; x += 3) {
        for (int y = -12; y <= 12; y += 3) {
            columns.push_back(column(static_cast<float>(x), static_cast<float>(y), -10, 10));
        }
    }
    for (std::size_t i = 0; i < mesh.vertices.size(); i += 60) {
        const Vertex& vertex = mesh.vertices[i];
        if (vertex.z < -9 || vertex.z > 9) continue;
        // One layer with this vertex, and those of its height, in its middle.
        const double plate = double{vertex.z} - 0.5;
        std::vector<Column> here = columns;
        for (Column& c : here) {
            c.bottom.z = vertex.z - 0.25F;
            c.top.z = vertex.z + 0.25F;
        }
        const double radius = std::sqrt(100 - double{vertex.z} * double{vertex.z});
        double area = 0;
        for (const double a : sliced(mesh, here, {3, 1, plate}).areas()) area += a;
        // The squares by fine steps.
        double expected = 0;
        constexpr int kSteps = 40;
        for (const Column& c : here) {
            for (int k = 0; k < kSteps * kSteps; ++k) {
                const int row = k / kSteps;
                const double x = double{c.top.x} + kSide * ((k % kSteps + 0.5) / kSteps - 0.5);
                const double y = double{c.top.y} + kSide * ((row + 0.5) / kSteps - 0.5);
                if (std::hypot(x, y) > radius + 0.2) expected += kSide * kSide / kSteps / kSteps;
            }
        }
        // The steps are coarse, and the polyhedron lies a little within the sphere.
        EXPECT_NEAR(area, expected, 0.6) << vertex.z;
    }
}

TEST(SlicePolygons, MergeColumnsThatOverlap) {
    const Sliced s =
        sliced({}, {column(0, 0, 0, 1), column(1, 0, 0, 1), column(1, 0, 0, 1)}, {3, 1, 0});
    ASSERT_EQ(s.polygons.sizes.size(), 1U);
    EXPECT_NEAR(s.areas()[0], (kSide + 1) * kSide, 1e-3);
}

TEST(SlicePolygons, DoNotBreakOnBadInput) {
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInf = std::numeric_limits<float>::infinity();
    const TriMesh box = shapes::mesh_of(shapes::box({-1, -1, 0}, {1, 1, 2}));
    const std::vector<Column> good = {column(0, 1, 0, 2)};
    for (const double bad : {0.0, -1.0, double{kNan}, double{kInf}}) {
        EXPECT_EQ(sliced(box, good, {3, bad, 0}).status.code(), StatusCode::BadOption) << bad;
    }
    for (const double spacing : {1e4 + 1, double{kNan}, double{kInf}}) {
        EXPECT_EQ(sliced(box, good, {spacing, 1, 0}).status.code(), StatusCode::BadOption);
    }
    EXPECT_EQ(sliced(box, good, {3, 1e-9, 0}).status.code(), StatusCode::TooLarge);
    EXPECT_TRUE(sliced(box, {}).polygons.sizes.empty());
    EXPECT_TRUE(sliced(box, good, {-3, 1, 0}).polygons.sizes.empty());
    EXPECT_TRUE(sliced(box, {column(kNan, 0, 0, 2), column(0, kInf, 0, 2), column(0, 0, 0, kNan)})
                    .polygons.sizes.empty());
    // Coordinates beyond the numbers of the clipping library, of columns and of the model.
    for (const float far : {1e6F, 1e15F, 3e38F, -3e38F}) {
        const Sliced s = sliced(shapes::mesh_of(shapes::box({-3e38F, 0, 0}, {3e38F, 3e38F, 2})),
                                {column(far, 0, 0, 2), column(far, far, 0, 2), good[0]}, {3, 1, 0});
        EXPECT_TRUE(s.status.ok()) << s.status.text();
    }
    EXPECT_EQ(sliced(box, {column(0, 0, 0, 3e38F)}).status.code(), StatusCode::TooLarge);
    // 68 million points, told before they are made.
    std::vector<Column> many(100, column(0, 0, 0, 170000));
    EXPECT_EQ(sliced(box, many, {3, 1, 0}).status.code(), StatusCode::TooLarge);
    // All faces of a fan in one layer's outline.
    shapes::SoupVector fan = shapes::fan(100000, 20);
    EXPECT_TRUE(sliced(shapes::mesh_of(fan), good).status.ok());
}

}  // namespace
}  // namespace povmesh
