// Remeshing: even triangles on the same surface, with its features and attributes.
#include "remesh/remesh.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <set>
#include <string>
#include <vector>

#include "helpers/job.h"
#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "mesh/edge_mates.h"
#include "mesh/volume.h"
#include "remesh/base_surface.h"
#include "remesh/sizing_field.h"
#include "spatial/nearest_face.h"
#include "spatial/self_intersection.h"
#include "spatial/surface_distance.h"

namespace povmesh {
namespace {

using shapes::mesh_of;
using shapes::SoupVector;

TriMesh remeshed(TriMesh mesh, const RemeshOptions& options, std::string* caution = nullptr) {
    Job job;
    remesh(mesh, options, job.run);
    if (caution != nullptr) *caution = job.text;
    EXPECT_TRUE(is_consistent(mesh));
    return mesh;
}

std::vector<double> edges_of(const TriMesh& mesh) {
    std::vector<double> lengths;
    for (const Face& face : mesh.faces) {
        for (std::size_t c = 0; c < 3; ++c) {
            lengths.push_back(static_cast<double>(
                length(mesh.corner_position(face, (c + 1) % 3) - mesh.corner_position(face, c))));
        }
    }
    return lengths;
}

double share_within(const std::vector<double>& values, double low, double high) {
    const auto inside =
        std::count_if(values.begin(), values.end(), [&](double x) { return x > low && x < high; });
    return static_cast<double>(inside) / static_cast<double>(values.size());
}

double smallest_angle(const TriMesh& mesh) {
    double worst = 180;
    for (const Face& face : mesh.faces) {
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3d p = to_double(mesh.corner_position(face, c));
            const Vec3d a = to_double(mesh.corner_position(face, (c + 1) % 3)) - p;
            const Vec3d b = to_double(mesh.corner_position(face, (c + 2) % 3)) - p;
            worst = std::min(worst, std::acos(dot(a, b) / (length(a) * length(b))));
        }
    }
    return worst * 180 / std::numbers::pi;
}

TEST(Remesh, MakesSmoothSurfacesEven) {
    const TriMesh sphere = mesh_of(shapes::sphere(10, 4));
    const TriMesh rock = mesh_of(shapes::rock(10, 4));
    for (const TriMesh* mesh : {&sphere, &rock}) {
        for (const double l : {0.6, 1.0, 2.0}) {  // the edges are 0.7 long
            const TriMesh result = remeshed(*mesh, {.edge_length = l});
            EXPECT_TRUE(reference::is_closed_manifold(result));
            EXPECT_GT(share_within(edges_of(result), 0.6 * l, 1.6 * l), 0.99);
            EXPECT_GT(smallest_angle(result), 28.0) << l;
            EXPECT_LT(surface_distance(*mesh, result).rms(), 0.05 * l);
            const double volume = signed_volume(*mesh);
            EXPECT_NEAR(signed_volume(result), volume, 0.01 * volume);
        }
    }
}

// Slender faces of a plane used to be divided into four times the triangles that were needed.
TEST(Remesh, StartsFromFewTrianglesInAPlane) {
    TriMesh disc = mesh_of(shapes::fan(400, 0));  // of radius 1000; needles of 1000 by 16
    const std::vector<float> lengths(disc.faces.size(), 20.0F);
    const BaseSurface base = make_base_surface(disc, 40, lengths);
    EXPECT_EQ(base.owners.size(), base.surface.triangles.size());
    const double equilateral = std::sqrt(3.0) / 4 * 20 * 20;
    EXPECT_LT(static_cast<double>(base.owners.size()), std::numbers::pi * 1e6 / equilateral);
    double area = 0;
    for (std::size_t t = 0; t < base.owners.size(); ++t) {
        area += 0.5 * length(base.surface.normal(t));
        EXPECT_LT(base.owners[t], disc.faces.size());
    }
    EXPECT_NEAR(area, surface_area(disc), 1e-4 * area);
}

TEST(Remesh, KeepsSharpEdgesAndCorners) {
    const TriMesh box = mesh_of(shapes::box({0, 0, 0}, {10, 20, 30}));
    const TriMesh result = remeshed(box, {.edge_length = 1});
    EXPECT_TRUE(reference::is_closed_manifold(result));
    EXPECT_NEAR(signed_volume(result), 6000, 0.01);
    EXPECT_GT(share_within(edges_of(result), 0.6, 1.6), 0.99);
    EXPECT_GT(smallest_angle(result), 20.0);
    std::set<std::array<float, 3>> corners;
    for (const Vertex& v : result.vertices) {
        if ((v.x == 0 || v.x == 10) && (v.y == 0 || v.y == 20) && (v.z == 0 || v.z == 30)) {
            corners.insert({v.x, v.y, v.z});
        }
    }
    EXPECT_EQ(corners.size(), 8U);
}

// The chords of a groove's lines used to stray by an edge, so that it was filled.
TEST(Remesh, LinesStayWhereTheyWere) {
    SoupVector star;  // a prism of 24 teeth, 2 high and as wide as an edge
    const auto at = [](std::size_t i, float z) {
        const double r = i % 4 < 2 ? 10.0 : 8.0;
        const double angle = 2 * std::numbers::pi * static_cast<double>(i % 96) / 96;
        return std::array<float, 3>{static_cast<float>(r * std::cos(angle)),
                                    static_cast<float>(r * std::sin(angle)), z};
    };
    const auto add = [&](const std::array<float, 3>& a, const std::array<float, 3>& b,
                         const std::array<float, 3>& c) {
        for (const auto& p : {a, b, c}) star.insert(star.end(), p.begin(), p.end());
    };
    for (std::size_t i = 0; i < 96; ++i) {
        add(at(i, 0), at(i + 1, 0), at(i, 6));
        add(at(i, 6), at(i + 1, 0), at(i + 1, 6));
        add(at(i, 6), at(i + 1, 6), {0, 0, 6});
        add(at(i + 1, 0), at(i, 0), {0, 0, 0});
    }
    const TriMesh gear = mesh_of(star);
    for (const double l : {0.7, 1.5, 3.0}) {
        const TriMesh result = remeshed(gear, {.edge_length = l});
        EXPECT_TRUE(reference::is_closed_manifold(result));
        EXPECT_EQ(find_self_intersections(result, 1).count, 0U) << l;
        EXPECT_NEAR(signed_volume(result) / signed_volume(gear), 1, 0.005);
        const NearestFace surface(result);
        for (std::size_t i = 0; i < 96; ++i) {
            const auto [x, y, z] = at(i, 6);
            EXPECT_LT(std::sqrt(surface.find(to_double(Vec3f{x, y, z})).squared_distance),
                      0.25 * l);
        }
    }
}

// Wires and bent sheets thinner than an edge used to cross themselves, or to vanish.
TEST(Remesh, ThinPlacesNeitherCrossNorVanish) {
    const auto tube = [](double outer, double inner, std::size_t sides, float height) {
        SoupVector soup;
        const auto at = [&](double r, std::size_t i, float z) {
            const double angle =
                2 * std::numbers::pi * static_cast<double>(i % sides) / static_cast<double>(sides);
            return std::array<float, 3>{static_cast<float>(r * std::cos(angle)),
                                        static_cast<float>(r * std::sin(angle)), z};
        };
        const auto quad = [&](const auto& a, const auto& b, const auto& c, const auto& d) {
            for (const auto& p : {a, b, c, a, c, d}) soup.insert(soup.end(), p.begin(), p.end());
        };
        for (std::size_t i = 0; i < sides; ++i) {
            quad(at(outer, i, 0), at(outer, i + 1, 0), at(outer, i + 1, height),
                 at(outer, i, height));
            quad(at(inner, i + 1, 0), at(inner, i, 0), at(inner, i, height),
                 at(inner, i + 1, height));
            quad(at(outer, i, height), at(outer, i + 1, height), at(inner, i + 1, height),
                 at(inner, i, height));
            quad(at(inner, i, 0), at(inner, i + 1, 0), at(outer, i + 1, 0), at(outer, i, 0));
        }
        return mesh_of(soup);
    };
    const TriMesh sheet = tube(10, 9.7, 120, 30);  // a thirteenth of the edge
    const TriMesh wire = tube(0.3, 0.1, 24, 20);
    for (const TriMesh* mesh : {&sheet, &wire}) {
        const double l = mesh == &sheet ? 4 : 1.5;
        const TriMesh result = remeshed(*mesh, {.edge_length = l});
        EXPECT_TRUE(reference::is_closed_manifold(result));
        EXPECT_EQ(find_self_intersections(result, 1).count, 0U);
        const double volume = signed_volume(*mesh);
        EXPECT_NEAR(signed_volume(result), volume, 0.1 * volume);
        EXPECT_LT(surface_distance(*mesh, result).greatest(), 0.25 * l);
    }
}

TEST(Remesh, KeepsOpenRimsAndIrregularEdges) {
    // A disc: its rim stays a circle.
    SoupVector disc = shapes::fan(60, 0);
    for (float& x : disc) x *= 0.01F;  // radius 10
    const TriMesh open = remeshed(mesh_of(disc), {.edge_length = 1});
    EXPECT_GT(share_within(edges_of(open), 0.5, 1.7), 0.95);
    TriMesh copy = open;
    const EdgeMates mates(copy);
    std::size_t rim = 0;
    for (std::size_t i = 0; i < 3 * copy.faces.size(); ++i) {
        if (mates.kind(i / 3, i % 3) != EdgeMates::Kind::Open) continue;
        ++rim;
        EXPECT_NEAR(static_cast<double>(length(copy.corner_position(copy.faces[i / 3], i % 3))), 10,
                    0.03);
    }
    EXPECT_NEAR(static_cast<double>(rim), 2 * std::numbers::pi * 10, 12);

    // Five sheets on one edge: it has the same five faces afterwards.
    SoupVector book = shapes::book(5);
    const TriMesh pages = remeshed(mesh_of(book), {.edge_length = 100});
    std::size_t on_edge = 0;
    for (const Face& face : pages.faces) {
        std::size_t ends = 0;
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3f p = pages.corner_position(face, c);
            ends += p.x == 0 && p.y == 0 && (p.z == 0 || p.z == 1) ? 1 : 0;
        }
        on_edge += ends == 2 ? 1 : 0;
    }
    EXPECT_EQ(on_edge, 5U);
    // Splitting ends where such an edge is far too long.
    const SoupVector three = {0, 0,  0, 0, 0, 9, 9, 0, 4, 0, 0,  0,  0, 0,
                              9, -4, 8, 5, 0, 0, 0, 0, 0, 9, -4, -8, 5};
    const std::size_t count = remeshed(mesh_of(three), {.edge_length = 1}).faces.size();
    EXPECT_GT(count, 100U);
    EXPECT_LT(count, 1'000U);
}

TEST(Remesh, CarriesLabelsColoursAndTexture) {
    TriMesh mesh = mesh_of(shapes::sphere(10, 4));
    for (Face& face : mesh.faces) {
        float x = 0;
        for (std::size_t c = 0; c < 3; ++c) x += mesh.corner_position(face, c).x;
        face.label = x > 0 ? 3 : -1;
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3f p = mesh.corner_position(face, c);
            face.colour[3 * c] = static_cast<std::uint8_t>(128 + 10 * p.y);
            if (face.label < 0) continue;
            face.uv[c] = static_cast<std::int32_t>(mesh.texture_coordinates.size());
            mesh.texture_coordinates.push_back(
                {static_cast<double>(p.y), static_cast<double>(p.z), face.uv[c]});
        }
    }
    const TriMesh result = remeshed(mesh, {.edge_length = 0.8});
    std::size_t labelled = 0;
    for (const Face& face : result.faces) {
        labelled += face.label == 3 ? 1 : 0;
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3f p = result.corner_position(face, c);
            EXPECT_NEAR(face.colour[3 * c], 128 + 10 * p.y, 2.5);
            if (face.label != 3) continue;
            const TextureCoordinate& t =
                result.texture_coordinates[static_cast<std::size_t>(face.uv[c])];
            EXPECT_NEAR(t.u, static_cast<double>(p.y), 0.1);
            EXPECT_NEAR(t.v, static_cast<double>(p.z), 0.1);
            EXPECT_GT(p.x, -0.9F);  // the border ran along edges of 0.7
        }
    }
    EXPECT_NEAR(static_cast<double>(labelled) / static_cast<double>(result.faces.size()), 0.5,
                0.03);
}

TEST(Remesh, FollowsASizingField) {
    const TriMesh mesh = mesh_of(shapes::sphere(10, 4));
    std::vector<float> lengths;
    for (const Face& face : mesh.faces) {
        lengths.push_back(mesh.corner_position(face, 0).z > 0 ? 0.4F : 1.2F);
    }
    const TriMesh result = remeshed(mesh, {.face_lengths = lengths});
    EXPECT_TRUE(reference::is_closed_manifold(result));
    std::vector<double> above;
    std::vector<double> below;
    for (const Face& face : result.faces) {
        const Vec3f p = result.corner_position(face, 0);
        const double l = static_cast<double>(length(result.corner_position(face, 1) - p));
        if (p.z > 2) above.push_back(l);
        if (p.z < -2) below.push_back(l);
    }
    EXPECT_GT(share_within(above, 0.24, 0.64), 0.97);
    EXPECT_GT(share_within(below, 0.72, 1.92), 0.97);
}

TEST(Remesh, LeavesTheMeshAloneForLengthsNotPositiveOrNotFinite) {
    const TriMesh mesh = mesh_of(shapes::rock(10, 2));
    for (const double l : {0.0, -1.0, std::nan(""), std::numeric_limits<double>::infinity()}) {
        EXPECT_EQ(reference::difference(remeshed(mesh, {.edge_length = l}), mesh), "");
    }
    const std::vector<float> too_few(5, 1.0F);
    EXPECT_EQ(reference::difference(remeshed(mesh, {.face_lengths = too_few}), mesh), "");
    // One that is far too long leaves a body all the same.
    EXPECT_TRUE(reference::is_closed_manifold(remeshed(mesh, {.edge_length = 1e6})));
    SoupVector broken = shapes::rock(10, 2);
    broken[10] = std::numeric_limits<float>::quiet_NaN();
    broken[50] = 3e38F;
    remeshed(mesh_of(broken), {.edge_length = 1});
    remeshed({}, {.edge_length = 1});
}

TEST(Remesh, RaisesLengthsThatWouldMakeTooManyTriangles) {
    const TriMesh cube = mesh_of(shapes::box({0, 0, 0}, {10, 10, 10}));
    const auto raised = [&](float length, double most) {
        std::vector<float> lengths(cube.faces.size(), length);
        EXPECT_EQ(raise_lengths(cube, lengths, most).faces, 0U);
        return lengths[0];
    };
    const double equilateral = std::sqrt(3.0) / 4;
    EXPECT_EQ(raised(1, 1400), 1);  // 600 / equilateral = 1386
    EXPECT_NEAR(raised(0.01F, 1000), std::sqrt(600 / equilateral / 1000), 0.02);
    std::string caution;
    const TriMesh made = remeshed(cube, {.edge_length = 0.1, .most_triangles = 3000}, &caution);
    EXPECT_LT(made.faces.size(), 5000U);
    EXPECT_NE(caution.find("edge length raised"), std::string::npos);
}

// A wild length, or a corner far out: the others keep their length, and no gigabytes are made.
TEST(Remesh, OneWildFaceCoarsensNoOther) {
    const TriMesh sphere = mesh_of(shapes::sphere(10, 3));
    for (const float wild :
         {1e-30F, 1e-45F, std::nanf(""), -1.0F, 3e38F, std::numeric_limits<float>::infinity()}) {
        std::vector<float> lengths(sphere.faces.size(), 1.0F);
        lengths[7] = wild;
        const TriMesh made = remeshed(sphere, {.face_lengths = lengths});
        EXPECT_GT(made.faces.size(), 3000U) << wild;
        EXPECT_LT(made.faces.size(), 10'000U) << wild;
        EXPECT_GT(share_within(edges_of(made), 0.6, 1.6), 0.6) << wild;
    }

    TriMesh spike = sphere;
    spike.vertices[static_cast<std::size_t>(spike.faces[7].vertex[0])].x = 3e38F;
    const TriMesh made = remeshed(spike, {.edge_length = 1});
    EXPECT_LT(made.faces.size(), 100'000U);
    std::size_t fine_count = 0;
    for (const Face& face : made.faces) {
        const Vec3f p = made.corner_position(face, 0);
        fine_count += p.x < -5 && std::abs(p.y) < 10 ? 1 : 0;
    }
    EXPECT_GT(fine_count, 300U);  // the far side of the sphere, 314 of area
}

// The apex has 100,000 faces, gone before a search would have to look at all of them often.
TEST(Remesh, IsNotSlowAroundAVertexOfHighValence) {
    const TriMesh mesh = remeshed(mesh_of(shapes::fan(100'000, 200)), {.edge_length = 600});
    EXPECT_LT(mesh.faces.size(), 100U);
    EXPECT_GT(mesh.faces.size(), 4U);
    EXPECT_GT(surface_area(mesh), 0.9 * std::numbers::pi * 1000 * 1000);
}

// Edges between them used to be held: the needles beside them took all the triangles there may be.
TEST(Remesh, TurnedFacesAreNoObstacle) {
    TriMesh plain = mesh_of(shapes::sphere(10, 4));
    TriMesh mixed = plain;
    shapes::Random random(1);
    std::size_t count = 0;
    for (Face& face : mixed.faces) {
        if (random.below(3) != 0) continue;
        reverse_winding(face);
        ++count;
    }
    mixed.use_table.clear();
    Job job;
    EXPECT_EQ(remesh(mixed, {.edge_length = 1}, job.run).turned_faces, count);
    EXPECT_EQ(reference::difference(mixed, remeshed(plain, {.edge_length = 1})), "");
}

TEST(Remesh, IsTheSameForAnyNumberOfThreads) {
    const TriMesh mesh = mesh_of(shapes::rock(10, 4));
    const int threads = omp_get_max_threads();
    omp_set_num_threads(1);
    const TriMesh first = remeshed(mesh, {.edge_length = 0.6});
    omp_set_num_threads(3);
    EXPECT_EQ(reference::difference(remeshed(mesh, {.edge_length = 0.6}), first), "");
    omp_set_num_threads(threads);
}

}  // namespace
}  // namespace povmesh
