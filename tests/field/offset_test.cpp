// Offsets against closed forms, and distances of their points against the model.
#include "field/offset.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "helpers/shapes.h"
#include "solid_helpers.h"
#include "spatial/nearest_face.h"

namespace povmesh {
namespace {

TriMesh offset_of(TriMesh mesh, double distance, const OffsetOptions& options) {
    RunLog log;
    RunContext run{{}, log};
    OffsetReport report;
    const Status status = offset(mesh, distance, options, run, report);
    EXPECT_TRUE(status.ok()) << status.text();
    EXPECT_EQ(unsoundness(mesh), "") << distance;
    return mesh;
}

// The share of vertices and middles of triangles that are off the distance by more than allowed.
double share_off(const TriMesh& model, const TriMesh& result, double distance, double allowed) {
    const NearestFace faces(model);
    std::size_t off = 0;
    std::size_t count = 0;
    const auto look = [&](Vec3d p) {
        const double d = std::sqrt(faces.find(p).squared_distance);
        ++count;
        if (std::abs(d - std::abs(distance)) > allowed) ++off;
    };
    for (const Vertex& vertex : result.vertices) look(to_double(vertex.position()));
    for (const Face& face : result.faces) {
        Vec3d middle;
        for (std::size_t c = 0; c < 3; ++c) {
            middle = middle + to_double(result.corner_position(face, c)) / 3.0;
        }
        look(middle);
    }
    return static_cast<double>(off) / static_cast<double>(count);
}

double rounded_box_volume(double a, double b, double c, double d) {
    return a * b * c + 2 * (a * b + b * c + c * a) * d + std::numbers::pi * (a + b + c) * d * d +
           4 * std::numbers::pi / 3 * d * d * d;
}

TEST(Offset, GrownAndShrunkBoxesHaveTheirVolume) {
    const TriMesh box = shapes::mesh_of(shapes::box({0, 0, 0}, {20, 14, 9}));
    for (const double d : {0.05, 0.4, 2.0, 7.0}) {
        const TriMesh grown = offset_of(box, d, {.cell = 0.2});
        EXPECT_NEAR(volume(grown) / rounded_box_volume(20, 14, 9, d), 1, 2e-3) << d;
        if (d > 4) continue;
        const TriMesh shrunk = offset_of(box, -d, {.cell = 0.2});
        const double inner = (20 - 2 * d) * (14 - 2 * d) * (9 - 2 * d);
        EXPECT_NEAR(volume(shrunk) / inner, 1, 2e-5) << d;
        // Opening: what was taken away comes back, but for the edges.
        const TriMesh opened = offset_of(shrunk, d, {.cell = 0.2});
        EXPECT_NEAR(volume(opened) / rounded_box_volume(20 - 2 * d, 14 - 2 * d, 9 - 2 * d, d), 1,
                    2e-3);
        // Closing gives the box back.
        const TriMesh closed = offset_of(grown, -d, {.cell = 0.2});
        EXPECT_NEAR(volume(closed) / (20 * 14 * 9), 1, 2e-3) << d;
    }
}

TEST(Offset, EveryPointLiesAtTheDistance) {
    for (const auto& soup : {shapes::sphere(10, 3), shapes::rock(10, 3)}) {
        const TriMesh mesh = shapes::mesh_of(soup);
        for (const double d : {-2.0, 1.2}) {
            for (const bool all_triangles : {false, true}) {
                const double cell = std::abs(d) / 5;
                const TriMesh result =
                    offset_of(mesh, d, {.cell = cell, .all_triangles = all_triangles});
                EXPECT_LT(share_off(mesh, result, d, 0.01 * std::abs(d) + 0.02 * cell), 0.01) << d;
                EXPECT_EQ(share_off(mesh, result, d, 0.5 * cell), 0) << d;
            }
        }
    }
}

TEST(Offset, SharpCornersStay) {
    const TriMesh box = shapes::mesh_of(shapes::box({0, 0, 0}, {20, 14, 9}));
    const TriMesh grown = offset_of(box, 2, {.corners = OffsetCorners::Sharp, .cell = 0.25});
    EXPECT_NEAR(volume(grown) / (24 * 18 * 13), 1, 1e-4);
    // A corner that shrinking would round, in a block with a step cut out.
    shapes::SoupVector step = shapes::box({0, 0, 0}, {20, 20, 10});
    shapes::append(step, shapes::box({0, 0, 5}, {10, 20, 20}));
    const TriMesh shrunk =
        offset_of(shapes::mesh_of(step), -2, {.corners = OffsetCorners::Sharp, .cell = 0.25});
    EXPECT_NEAR(volume(shrunk) / (16 * 16 * 6 + 6 * 16 * 10), 1, 1e-3);
    // Smooth surfaces have no corners, and spikes end.
    const TriMesh ball = shapes::mesh_of(shapes::sphere(10, 4));
    const TriMesh larger = offset_of(ball, 2, {.corners = OffsetCorners::Sharp, .cell = 0.4});
    EXPECT_LT(share_off(ball, larger, 2, 0.03), 0.01);
    const TriMesh needle =
        shapes::mesh_of(shapes::SoupVector{0, 0, 0, 0, 1, 0,  1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 20,
                                           0, 0, 0, 0, 0, 20, 0, 1, 0, 1, 0, 0, 0, 1, 0, 0, 0, 20});
    const TriMesh thick = offset_of(needle, 1, {.corners = OffsetCorners::Sharp, .cell = 0.2});
    EXPECT_EQ(share_off(needle, thick, 1.5, 0.5 + 0.1), 0);
}

TEST(Offset, SaysWhenNothingIsLeft) {
    TriMesh box = shapes::mesh_of(shapes::box({0, 0, 0}, {20, 14, 9}));
    RunLog log;
    RunContext run{{}, log};
    OffsetReport report;
    const Status status = offset(box, -4.6, {}, run, report);
    EXPECT_EQ(status.code(), StatusCode::BadFile);
    EXPECT_NEAR(report.thickest, 9, 0.2) << status.text();
    EXPECT_EQ(box.faces.size(), 12U);
    for (const double d : {0.0, 1e6, static_cast<double>(NAN)}) {
        EXPECT_EQ(offset(box, d, {}, run, report).code(), StatusCode::BadOption);
    }
}

}  // namespace
}  // namespace povmesh
