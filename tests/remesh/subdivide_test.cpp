// Subdivision against closed forms and hand-worked cases.
#include "remesh/subdivide.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include "helpers/shapes.h"
#include "mesh/edge_mates.h"
#include "mesh/volume.h"

namespace povmesh {
namespace {

constexpr SubdivideMode kModes[] = {SubdivideMode::Uniform, SubdivideMode::Adaptive,
                                    SubdivideMode::Smooth};

// A corner's place in the plane as its texture coordinate, and x in tenths as its colour.
void map_plane(TriMesh& mesh) {
    mesh.texture_coordinates.clear();
    for (Face& face : mesh.faces) {
        face.label = static_cast<std::int16_t>(face.vertex[0] % 2);
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3f p = mesh.corner_position(face, c);
            const auto record = static_cast<std::int32_t>(mesh.texture_coordinates.size());
            mesh.texture_coordinates.push_back(
                {static_cast<double>(p.x), static_cast<double>(p.y), record});
            face.uv[c] = record;
            face.colour[3 * c] = static_cast<std::uint8_t>(10 * p.x);
        }
    }
}

TEST(Subdivide, GivesNewCornersTheMeanOfTheirEdge) {
    // Corners on the border stay, and in parallelograms new vertices come to the middle.
    const shapes::SoupVector soup = {0, 0, 0, 8, 0, 0, 8, 8,  0, 0, 0, 0, 8, 8,
                                     0, 0, 8, 0, 8, 0, 0, 16, 8, 0, 8, 8, 0};
    for (const SubdivideMode mode : {SubdivideMode::Uniform, SubdivideMode::Adaptive}) {
        for (const bool is_labelled : {true, false}) {
            TriMesh mesh = shapes::mesh_of(soup);
            map_plane(mesh);
            for (Face& face : mesh.faces) face.label = is_labelled ? face.label : std::int16_t{-1};
            subdivide(mesh, mode);
            EXPECT_EQ(mesh.faces.size(), mode == SubdivideMode::Uniform ? 12U : 6U);
            for (std::size_t corner = 0; corner < 3 * mesh.faces.size(); ++corner) {
                const Face& face = mesh.faces[corner / 3];
                const Vec3f p = mesh.corner_position(face, corner % 3);
                ASSERT_EQ(static_cast<float>(face.colour[corner % 3 * 3]), 10 * p.x);
                if (!is_labelled) continue;
                const auto record = static_cast<std::size_t>(face.uv[corner % 3]);
                ASSERT_EQ(mesh.texture_coordinates.at(record).u, static_cast<double>(p.x));
                ASSERT_EQ(mesh.texture_coordinates.at(record).v, static_cast<double>(p.y));
            }
        }
    }
}

TEST(Subdivide, TakesTheFirstTwoFacesOfAnEdgeThatManyHold) {
    // Pages between (0, 0, 0) and (0, 0, 2); the deleted one does not count.
    const shapes::SoupVector soup = {0, 0, 0, 0, 0, 2, 9, 9, 9, 0, 0, 0, 0, 0, 2, 8,   0, 0,
                                     0, 0, 2, 0, 0, 0, 0, 8, 0, 0, 0, 0, 0, 0, 2, -40, 0, 0};
    TriMesh mesh = shapes::mesh_of(soup);
    mesh.faces[0].deleted = 1;
    subdivide(mesh, SubdivideMode::Uniform);
    std::size_t found = 0;
    for (const Vertex& v : mesh.vertices) {
        if (v.x == 1 && v.y == 1) ++found;
    }
    EXPECT_EQ(found, 1U);
    EXPECT_EQ(mesh.faces.size(), 12U);
}

TEST(Subdivide, KeepsWhatIsClosedAndManifold) {
    TriMesh mesh = shapes::mesh_of(shapes::rock(10, 5));  // enough faces for several threads
    const std::size_t count = mesh.faces.size();
    for (const SubdivideMode mode : {SubdivideMode::Adaptive, SubdivideMode::Uniform}) {
        const std::size_t before = mesh.faces.size();
        subdivide(mesh, mode);
        EXPECT_EQ(mesh.vertices.size(), mesh.faces.size() / 2 + 2);
        EXPECT_GT(mesh.faces.size(), before + count);
        EXPECT_TRUE(mode == SubdivideMode::Adaptive || mesh.faces.size() == 4 * before);
        const EdgeMates mates(mesh);
        for (std::size_t h = 0; h < 3 * mesh.faces.size(); ++h) {
            ASSERT_EQ(mates.kind(h / 3, h % 3), EdgeMates::Kind::Manifold);
        }
    }
}

TEST(Subdivide, TakesNoLongerPerFaceAtAVertexOfHighValence) {
    TriMesh mesh = shapes::mesh_of(shapes::fan(100'000, 8));
    subdivide(mesh, SubdivideMode::Uniform);
    EXPECT_EQ(mesh.faces.size(), 400'000U);
    EXPECT_EQ(mesh.vertices.size(), 100'001U + 200'000U);
    // The rim lies at height 0, so of the apex only its own share is left.
    const auto at_top = [](const Vertex& v) {
        return std::abs(v.z - 8 * (1 - 0.625F + 0.390625F)) < 1e-4F;
    };
    EXPECT_EQ(std::count_if(mesh.vertices.begin(), mesh.vertices.end(), at_top), 1);
}

TEST(Subdivide, PlacesVerticesOfRegularSolidsAsTheClosedFormHasThem) {
    const Vec3f axes[] = {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}};
    shapes::SoupVector octahedron;
    for (std::size_t i = 0; i < 8; ++i) {
        const std::size_t turn = (i ^ i >> 1 ^ i >> 2) & 1;  // outward in every octant
        for (std::size_t k : {std::size_t{0}, 1 + turn, 2 - turn}) {
            const Vec3f p = axes[2 * k + (i >> k & 1)];
            shapes::append(octahedron, {{p.x, p.y, p.z}});
        }
    }
    const double phi = std::numbers::phi;
    const double w5 = (0.625 - std::pow(0.375 + 0.25 * (phi - 1) / 2, 2)) / 5;
    struct Case {
        shapes::SoupVector soup;
        double corner, middle;  // distances from the centre
    };
    for (const Case& c : {Case{octahedron, 0.515625, 0.375 * std::numbers::sqrt2},
                          // Five neighbours sum up to the square root of 5 times the vertex.
                          Case{shapes::sphere(1, 0), 1 + (std::sqrt(5.0) - 5) * w5,
                               (0.75 * phi + 0.25) / std::sqrt(phi + 2)}}) {
        TriMesh mesh = shapes::mesh_of(c.soup);
        const std::size_t corners = mesh.vertices.size();
        subdivide(mesh, SubdivideMode::Uniform);
        ASSERT_EQ(mesh.vertices.size(), corners + mesh.faces.size() / 4 * 3 / 2);
        std::size_t at_corners = 0;
        for (const Vertex& vertex : mesh.vertices) {
            const double radius = length(to_double(vertex.position()));
            const bool is_corner = std::abs(radius - c.corner) < 2e-7;
            if (is_corner) ++at_corners;
            EXPECT_TRUE(is_corner || std::abs(radius - c.middle) < 2e-7) << radius;
        }
        EXPECT_EQ(at_corners, corners);
        EXPECT_GT(volume(mesh), 0);  // the winding stays outward
    }
    TriMesh whole = shapes::mesh_of(octahedron);  // no edge is longer than the mean
    subdivide(whole, SubdivideMode::Adaptive);
    EXPECT_EQ(whole.faces.size(), 8U);
    EXPECT_FLOAT_EQ(whole.vertices[0].x, 0.515625F);
}

// Right triangles of whole lengths, each apart.
TEST(Subdivide, SplitsOnlyEdgesLongerThanTheThreshold) {
    struct Case {
        std::vector<float> scales;  // of 3, 4, 5
        std::vector<std::size_t> parts;
    };
    for (const Case& c : {Case{{1}, {2}},            // the mean, 4, stays whole, 5 does not
                          Case{{8, 17}, {1, 4}},     // 0.8 times 50 is 40 = 8 * 5, 17 * 3 is 51
                          Case{{8, 16.5F}, {2, 4}},  // below: 39.2
                          Case{{2, 3}, {1, 3}}}) {   // the mean, 10 = 2 * 5, and 9 stay whole
        shapes::SoupVector soup;
        std::vector<std::size_t> expected;
        for (std::size_t i = 0; i < c.scales.size(); ++i) {
            const float s = c.scales[i];
            const auto z = static_cast<float>(100 * i);
            shapes::append(soup, {{0, 0, z, 4 * s, 0, z, 0, 3 * s, z}});
        }
        TriMesh mesh = shapes::mesh_of(soup);
        subdivide(mesh, SubdivideMode::Adaptive);
        std::vector<std::size_t> parts(c.parts.size());
        double area = 0;
        double whole = 0;
        for (const float s : c.scales) whole += 6.0 * s * s;
        for (const Face& face : mesh.faces) {
            const Vec3f a = mesh.corner_position(face, 0);
            const Vec3f normal =
                cross(mesh.corner_position(face, 1) - a, mesh.corner_position(face, 2) - a);
            area += normal.z / 2;
            ++parts[static_cast<std::size_t>(a.z / 100)];
        }
        EXPECT_EQ(parts, c.parts) << c.scales.back();
        EXPECT_NEAR(area, whole, 1e-9 * whole);  // all corners are at borders: nothing moves
    }
}

TEST(Subdivide, WithstandsRecordsThatNameNothingAndNumbersThatAreNotFinite) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    for (const float odd : {std::nanf(""), kInfinity, 3e38F, -3e38F, 1e-45F}) {
        for (const SubdivideMode mode : kModes) {
            shapes::SoupVector soup = shapes::box({0, 0, 0}, {1, 2, 3});
            for (std::size_t i = 0; i < soup.size(); i += 7) soup[i] = odd;
            TriMesh mesh = shapes::mesh_of(soup);
            const std::size_t count = mesh.faces.size();
            mesh.faces.push_back({{}, 0, 3, {0, 99, 1}, {7, 7, 7}});
            mesh.faces.push_back({{}, 0, -1, {2, 1, 2}, {-1, -1, -1}});
            mesh.faces.push_back({{}, 0, -1, {0, -5, 1}, {-1, -1, -1}});
            subdivide(mesh, mode);
            EXPECT_TRUE(is_consistent(mesh));
            EXPECT_LE(mesh.faces.size(), 4 * count);
        }
    }
    TriMesh empty;
    subdivide(empty, SubdivideMode::Adaptive);
    EXPECT_TRUE(empty.faces.empty());
}

}  // namespace
}  // namespace povmesh
