// Faces of an original surface put back into what was made of it.
#include "remesh/transplant.h"

#include <gtest/gtest.h>

#include <optional>

#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "mesh/compact.h"
#include "mesh/volume.h"
#include "remesh/base_surface.h"
#include "spatial/self_intersection.h"

namespace povmesh {
namespace {

using shapes::mesh_of;

// The same surface, with its features, in triangles of about that size.
HalfEdgeMesh divided(TriMesh mesh, float length) {
    const Array<float> lengths(mesh.faces.size(), length);
    return make_base_surface(mesh, 40, lengths).surface;
}

std::optional<Transplant> put_back(const TriMesh& body, Vec3d centre, double radius) {
    const HalfEdgeMesh original = divided(body, 0.4F);
    const HalfEdgeMesh made = divided(body, 0.9F);
    Array<std::uint8_t> takes(original.triangles.size(), 0);
    for (std::size_t t = 0; t < takes.size(); ++t) {
        for (const std::int32_t v : original.triangles[t]) {
            if (length(original.position(v) - centre) < radius) takes[t] = 1;
        }
    }
    const NearestFace tree(original.plain_mesh([](std::size_t) { return true; }));
    return transplant(original, tree, made, takes, 0.4);
}

// A seam that cuts across an edge of a box takes volume away, or adds some.
TEST(Transplant, SeamsFollowEdgesAndLeaveNoGap) {
    const TriMesh box = mesh_of(shapes::box({0, 0, 0}, {10, 12, 14}));
    for (const Vec3d centre : {Vec3d{5, 6, 0}, Vec3d{10, 12, 7}, Vec3d{0, 0, 0}}) {
        for (const double radius : {0.9, 2.1, 3.4}) {
            std::optional<Transplant> found = put_back(box, centre, radius);
            ASSERT_TRUE(found) << centre.x << " " << radius;
            EXPECT_GT(found->kept.size(), 0U);
            TriMesh& mesh = found->mesh;
            compact(mesh);
            EXPECT_TRUE(reference::is_closed_manifold(mesh));
            EXPECT_EQ(find_self_intersections(mesh, 1).count, 0U);
            EXPECT_NEAR(signed_volume(mesh), 1680, 1e-3) << centre.x << " " << radius;
        }
    }
}

// A wall thinner than the margin: each of its sides is joined to itself.
TEST(Transplant, KeepsTheSidesOfAThinWallApart) {
    const TriMesh plate = mesh_of(shapes::box({0, 0, 0}, {10, 12, 0.01F}));
    std::optional<Transplant> found = put_back(plate, {5, 6, 0}, 2.1);
    ASSERT_TRUE(found);
    compact(found->mesh);
    EXPECT_TRUE(reference::is_closed_manifold(found->mesh));
    EXPECT_EQ(find_self_intersections(found->mesh, 1).count, 0U);
    EXPECT_NEAR(signed_volume(found->mesh), 1.2, 1e-3);
}

TEST(Transplant, IsNotTriedAtOpenBordersOrOnAllOfAShell) {
    TriMesh open = mesh_of(shapes::box({0, 0, 0}, {10, 12, 14}));
    open.faces[0].deleted = 1;
    compact(open);
    EXPECT_FALSE(put_back(open, {0, 0, 0}, 3.4));
    EXPECT_FALSE(put_back(mesh_of(shapes::box({0, 0, 0}, {10, 12, 14})), {5, 6, 7}, 30));
}

}  // namespace
}  // namespace povmesh
