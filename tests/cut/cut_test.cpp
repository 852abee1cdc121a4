#include "cut/cut.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "cut/pieces.h"
#include "cut/solids.h"
#include "support/shapes.h"

namespace povmesh {
namespace {

using shapes::SoupVector;

struct Named {
    const char* name;
    TriMesh mesh;
};

std::vector<Named> closed_models() {
    shapes::Random random(7);
    SoupVector overlapping = shapes::box({0, 0, 0}, {4, 4, 4});
    shapes::append(overlapping, shapes::box({2, 1, 1}, {7, 5, 3}));
    SoupVector apart = shapes::sphere(3, 1);
    shapes::append(apart, shapes::box({4, 0, 0}, {5, 1, 1}));
    SoupVector nested = shapes::box({0, 0, 0}, {9, 9, 9});
    shapes::append(nested, shapes::box({2, 2, 2}, {5, 5, 5}));
    SoupVector far = shapes::rock(2, 2);
    shapes::move(far, {1000, -3000, 500});
    SoupVector needle = shapes::box({0, 0, 0}, {0.001F, 0.002F, 50});
    std::vector<Named> models;
    const auto add = [&](const char* name, const SoupVector& soup) {
        models.push_back({name, shapes::mesh_of(soup)});
    };
    add("box", shapes::box({-1, -2, -3}, {1, 2, 3}));
    add("sphere", shapes::sphere(5, 2));
    add("rock", shapes::rock(20, 3));
    add("torus", solids::torus(24, 12, 6, 2));
    add("tube", solids::tube());
    add("hollow box", solids::hollow_box());
    add("overlapping", overlapping);
    add("apart", apart);
    add("nested", nested);
    add("far", far);
    add("needle", needle);
    add("cells", solids::random_cells(random, 4, 7));
    return models;
}

Vec3d random_direction(shapes::Random& random) {
    for (;;) {
        const Vec3d v{random.unit() * 2 - 1, random.unit() * 2 - 1, random.unit() * 2 - 1};
        if (length(v) > 0.1 && length(v) < 1) return v;
    }
}

// Planes of three kinds: anywhere; through a vertex; through three vertices, so along edges and faces.
CutPlane random_plane(shapes::Random& random, const TriMesh& mesh) {
    const auto vertex = [&] {
        return to_double(mesh.vertices[random.below(mesh.vertices.size())].position());
    };
    CutPlane plane;
    plane.normal = random_direction(random);
    plane.direction = random_direction(random);
    plane.point = vertex();
    const std::uint64_t kind = random.below(4);
    if (kind == 0) plane.point = (plane.point + vertex() + vertex()) / 3.0;
    if (kind == 1) {
        const Face& face = mesh.faces[random.below(mesh.faces.size())];
        const Vec3d a = to_double(mesh.corner_position(face, 0));
        const Vec3d b = to_double(mesh.corner_position(face, 1));
        const Vec3d c = random.below(2) == 0 ? vertex() : to_double(mesh.corner_position(face, 2));
        const Vec3d normal = cross(b - a, c - a);
        if (length(normal) > 0) plane.normal = normal / length(normal);
        plane.point = a;
    }
    if (kind == 2) {
        plane.normal = {};
        (random.below(2) == 0 ? plane.normal.x : plane.normal.z) = random.below(2) == 0 ? 1 : -1;
    }
    return plane;
}

TEST(Cut, AnyPlaneGivesClosedPieces) {
    const std::vector<Named> models = closed_models();
    shapes::Random random(1);
    int divided = 0;
    for (int i = 0; i < 10000; ++i) {
        const Named& model = models[static_cast<std::size_t>(i) % models.size()];
        const CutPlane plane = random_plane(random, model.mesh);
        const std::vector<TriMesh> parts = pieces::cut(model.mesh, plane);
        divided += parts.size() > 1 ? 1 : 0;
        ASSERT_EQ(pieces::complaint(model.mesh, plane, parts), "")
            << model.name << ", plane " << i << ": " << plane.normal.x << " " << plane.normal.y
            << " " << plane.normal.z << " through " << plane.point.x << " " << plane.point.y << " "
            << plane.point.z;
    }
    EXPECT_GT(divided, 7000);  // the others only touch
}

}  // namespace
}  // namespace povmesh
