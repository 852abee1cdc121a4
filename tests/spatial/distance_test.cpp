// Nearest points and distances between surfaces.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "helpers/shapes.h"
#include "spatial/nearest_face.h"
#include "spatial/surface_distance.h"

namespace povmesh {
namespace {

using shapes::Random;

// A fine grid over the triangle, with the length of its steps.
double sampled_distance(Vec3d p, const Triangle3d& t) {
    double best = std::numeric_limits<double>::infinity();
    constexpr int kSteps = 60;
    for (int i = 0; i <= kSteps; ++i) {
        for (int j = 0; i + j <= kSteps; ++j) {
            const Vec3d q =
                t[0] + (t[1] - t[0]) * (1.0 * i / kSteps) + (t[2] - t[0]) * (1.0 * j / kSteps);
            best = std::min(best, length(p - q));
        }
    }
    return best;
}

TEST(NearestFace, FindsThePointThatASearchOfAllFacesFinds) {
    Random random(81);
    for (int round = 0; round < 10; ++round) {
        shapes::SoupVector soup;  // needles and points of faces among them
        for (int i = 0; i < 9 * 60; ++i) soup.push_back(static_cast<float>(random.below(6)));
        TriMesh mesh = shapes::mesh_of(soup);
        mesh.faces[1].deleted = 1;
        mesh.vertices[static_cast<std::size_t>(mesh.faces[2].vertex[0])].x = std::nanf("");
        const NearestFace surface(mesh);
        for (int query = 0; query < 20; ++query) {
            const Vec3d p{random.unit() * 8 - 1, random.unit() * 8 - 1, random.unit() * 8 - 1};
            double best = std::numeric_limits<double>::infinity();
            double sampled = best;
            for (const Face& face : mesh.faces) {
                if (face.deleted != 0 || face_box(mesh, face).is_empty()) continue;
                Triangle3d t;
                for (std::size_t c = 0; c < 3; ++c) {
                    t[c] = to_double(mesh.corner_position(face, c));
                }
                best = std::min(best, nearest_on_triangle(p, t).squared_distance);
                sampled = std::min(sampled, sampled_distance(p, t));
            }
            const NearestPoint found = surface.find(p);
            ASSERT_EQ(found.squared_distance, best);
            ASSERT_LE(std::sqrt(best), sampled + 1e-12);
            ASSERT_GE(std::sqrt(best), sampled - 9.0 / 60);  // a step of the longest edge
            const Face& face = mesh.faces[found.face];
            Vec3d point;
            for (std::size_t c = 0; c < 3; ++c) {
                ASSERT_GE(found.weights[c], -1e-15);
                point = point + to_double(mesh.corner_position(face, c)) * found.weights[c];
            }
            ASSERT_LE(length(point - found.point), 1e-13);
            EXPECT_FALSE(surface.find(p, best).is_found());
            EXPECT_TRUE(surface.find(p, best * 1.001 + 1e-30).is_found());
        }
        EXPECT_FALSE(surface.find({0, std::nan(""), 0}).is_found());
    }
    EXPECT_FALSE(NearestFace(TriMesh{}).find({0, 0, 0}).is_found());
}

// Bounds are floats: those of any size must leave nothing out, from near and from far.
TEST(NearestFace, LosesFacesToRounding) {
    Random random(82);
    for (const float size : {1.0F, 1e-37F, 1e-42F, 1e37F}) {
        shapes::SoupVector soup;
        for (int t = 0; t < 200; ++t) {
            const float at[] = {static_cast<float>(random.unit()),
                                static_cast<float>(random.unit()),
                                static_cast<float>(random.unit())};
            for (int i = 0; i < 9; ++i) {
                soup.push_back(size * (8 + at[i % 3] + static_cast<float>(random.unit()) / 16));
            }
        }
        const TriMesh mesh = shapes::mesh_of(soup);
        const NearestFace surface(mesh);
        for (int query = 0; query < 60; ++query) {
            const double reach = query < 40 ? 2 : query < 50 ? 1e4 : 1e9;
            const auto place = [&] { return double{size} * (8 + (random.unit() - 0.5) * reach); };
            const Vec3d p{place(), place(), place()};
            double best = std::numeric_limits<double>::infinity();
            for (const Face& face : mesh.faces) {
                Triangle3d t;
                for (std::size_t c = 0; c < 3; ++c) {
                    t[c] = to_double(mesh.corner_position(face, c));
                }
                best = std::min(best, nearest_on_triangle(p, t).squared_distance);
            }
            EXPECT_EQ(surface.find(p).squared_distance, best) << size << ' ' << reach;
            EXPECT_TRUE(surface.find(p, best * 1.0001).is_found()) << size << ' ' << reach;
        }
    }
}

TEST(SurfaceDistance, AgreesWithWhatIsKnownOfBoxesAndSpheres) {
    const auto box = [](float x, float size) {
        return shapes::mesh_of(shapes::box({x, 0, 0}, {x + size, size, size}));
    };
    // Moved by a quarter: the face in front is a quarter away, the one behind looks at a square
    // with the mean square 11 / 384 of min(1/4, distance from the rim), the sides have a strip.
    const SurfaceDistance moved = surface_distance(box(0, 1), box(0.25F, 1));
    const double square = (1.0 / 16 + 11.0 / 384 + 4 * std::pow(0.25, 3) / 3) / 6;
    for (const OneWayDistance& way : {moved.there, moved.back}) {
        EXPECT_NEAR(way.rms, std::sqrt(square), 2e-5);
        EXPECT_DOUBLE_EQ(way.greatest, 0.25);
    }
    // Of boxes with a common corner the larger one goes farther away.
    const SurfaceDistance inner = surface_distance(box(0, 1), box(0, 2));
    EXPECT_NEAR(inner.there.greatest, 1, 1e-12);
    EXPECT_NEAR(inner.back.greatest, std::sqrt(3), 1e-12);

    const SurfaceDistance spheres = surface_distance(shapes::mesh_of(shapes::sphere(10, 4)),
                                                     shapes::mesh_of(shapes::sphere(10.1F, 4)));
    EXPECT_NEAR(spheres.rms(), 0.1, 2e-4);  // faces lie up to 2e-3 of the radius inside
    EXPECT_NEAR(spheres.greatest(), 0.1, 1e-5);

    const TriMesh rock = shapes::mesh_of(shapes::rock(10, 4));
    EXPECT_LT(surface_distance(rock, rock).greatest(), 1e-14);
    EXPECT_TRUE(std::isnan(surface_distance(rock, TriMesh{}).rms()));
}

}  // namespace
}  // namespace povmesh
