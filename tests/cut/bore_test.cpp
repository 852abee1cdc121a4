#include "cut/bore.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <string>

#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "mesh/shells.h"
#include "mesh/volume.h"

namespace povmesh {
namespace {

double prism_volume(const Bore& bore, double length) {
    const auto n = static_cast<double>(bore.sides);
    return n / 2 * bore.radius * bore.radius * std::sin(2 * std::numbers::pi / n) * length;
}

// A shell with a cavity: two surfaces, the inner one turned.
TriMesh shell_of(const shapes::SoupVector& outer, const shapes::SoupVector& inner) {
    shapes::SoupVector soup = outer;
    shapes::append(soup, shapes::turned(inner));
    return shapes::mesh_of(soup);
}

TEST(Bore, TakesThePrismOutOfABox) {
    const TriMesh box = shapes::mesh_of(shapes::box({-10, -10, -10}, {10, 10, 10}));
    struct Case {
        const char* name;
        Bore bore;
        double length;  // within the box; 0 when it is not that simple
    };
    // The first ones meet corners and diagonals of the box's faces.
    const Case cases[] = {
        {"through", {{0, 0, 20}, {0, 0, -20}, 3, 32}, 20},
        {"through, with corners on the diagonals", {{20, 0, 0}, {-20, 0, 0}, 5, 4}, 20},
        {"blind", {{1, 2, 20}, {1, 2, -3}, 2, 24}, 13},
        {"blind along x", {{-20, 1, 1}, {5, 1, 1}, 4, 5}, 15},
        {"across an edge", {{30, 30, 0}, {-30, -30, 0}, 2, 16}, 0},
        {"into a corner", {{30, 30, 30}, {4, 4, 4}, 5, 12}, 0},
        {"along a side", {{10, 0, 20}, {10, 0, -20}, 4, 32}, 0},
        {"slanting", {{20, 3, 15}, {-20, -1, -18}, 1.5, 60}, 0},
        {"around a corner", {{10, 10, 20}, {10, 10, -20}, 3, 8}, 0},
    };
    for (const Case& test : cases) {
        TriMesh mesh = box;
        ASSERT_EQ(bore(mesh, test.bore), BoreOutcome::Done) << test.name;
        ASSERT_TRUE(is_consistent(mesh));
        EXPECT_TRUE(reference::is_closed_manifold(mesh)) << test.name;
        const double taken = volume(box) - volume(mesh);
        if (test.length > 0) {
            EXPECT_NEAR(taken / prism_volume(test.bore, test.length), 1, 1e-3) << test.name;
        } else {
            EXPECT_GT(taken, 1) << test.name;
            EXPECT_LT(taken, prism_volume(test.bore, 40)) << test.name;
        }
    }
}

TEST(Bore, GoesThroughShellsOfAnyShape) {
    const TriMesh solids[] = {
        shell_of(shapes::rock(20, 4), shapes::rock(16, 3)),
        shell_of(shapes::sphere(20, 3), shapes::sphere(17, 4)),
        shell_of(shapes::box({-20, -20, -20}, {20, 20, 20}),
                 shapes::box({-18, -18, -18}, {18, 18, 18})),
    };
    shapes::Random random(7);
    for (const TriMesh& solid : solids) {
        ASSERT_TRUE(reference::is_closed_manifold(solid));
        for (int round = 0; round < 16; ++round) {
            const auto number = [&] { return random.unit() * 2 - 1; };
            Vec3d out{number(), number(), number()};
            if (round % 4 == 0) out = {std::round(out.x), std::round(out.y), 1};
            out = out / length(out);
            TriMesh mesh = solid;
            Bore hole{out * 40, out * (random.unit() * 15), 0.3 + random.unit() * 4,
                      3 + random.below(58)};
            const std::string story = "round " + std::to_string(round);
            ASSERT_EQ(bore(mesh, hole), BoreOutcome::Done) << story;
            ASSERT_TRUE(reference::is_closed_manifold(mesh)) << story;
            label_shells(mesh);
            EXPECT_EQ(mesh.shells.size(), 1U) << story;  // the hole joins the two surfaces
            const double taken = volume(solid) - volume(mesh);
            EXPECT_GT(taken, 0.5 * prism_volume(hole, 2)) << story;
            EXPECT_LT(taken, prism_volume(hole, 35)) << story;
        }
    }
}

TEST(Bore, CarriesColoursAndTexture) {
    // One colour channel and one texture coordinate grow with x.
    TriMesh mesh = shapes::mesh_of(shapes::box({0, 0, 0}, {200, 200, 200}));
    for (Face& face : mesh.faces) {
        face.label = 3;
        for (std::size_t i = 0; i < 3; ++i) {
            const float x = mesh.corner_position(face, i).x;
            face.colour[i * 3] = static_cast<std::uint8_t>(x);
            face.uv[i] = static_cast<std::int32_t>(mesh.texture_coordinates.size());
            mesh.texture_coordinates.push_back({static_cast<double>(x) / 200, 0.5, face.uv[i]});
        }
    }
    ASSERT_EQ(bore(mesh, {{90, 110, 300}, {90, 110, -100}, 40, 32}), BoreOutcome::Done);
    std::size_t walls = 0;
    for (const Face& face : mesh.faces) {
        const bool is_wall = face.label == -1;
        walls += is_wall ? 1 : 0;
        for (std::size_t i = 0; i < 3 && !is_wall; ++i) {
            const auto x = static_cast<double>(mesh.corner_position(face, i).x);
            EXPECT_NEAR(face.colour[i * 3], x, 0.6);
            EXPECT_NEAR(mesh.texture_coordinates[static_cast<std::size_t>(face.uv[i])].u, x / 200,
                        1e-6);
        }
    }
    EXPECT_GE(walls, 64U);  // two a side and more
}

TEST(Bore, LeavesTheModelWhenItCannotBore) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const shapes::SoupVector box = shapes::box({-10, -10, -10}, {10, 10, 10});
    const TriMesh closed = shapes::mesh_of(box);
    const TriMesh open = shapes::mesh_of({box.data() + 9, box.size() - 9});
    struct Case {
        const TriMesh& model;
        Bore bore;
        BoreOutcome outcome;
    };
    const Case cases[] = {
        {closed, {{50, 0, 20}, {50, 0, -20}, 3, 32}, BoreOutcome::Missed},
        {closed, {{0, 0, 3}, {0, 0, -3}, 2, 32}, BoreOutcome::Missed},  // within the material
        {closed, {{0, 0, 3}, {0, 0, 30}, 2, 32}, BoreOutcome::NotSolid},
        {closed, {{0, 0, 20}, {0, 0, 20}, 3, 32}, BoreOutcome::Invalid},
        {closed, {{0, 0, 20}, {0, 0, nan}, 3, 32}, BoreOutcome::Invalid},
        {closed, {{0, 0, 20}, {0, 0, 0}, 0, 32}, BoreOutcome::Invalid},
        {closed, {{0, 0, 20}, {0, 0, 0}, 1, 2}, BoreOutcome::Invalid},
        {closed, {{0, 0, 20}, {0, 0, 0}, 1, 61}, BoreOutcome::Invalid},
    };
    for (const Case& test : cases) {
        TriMesh mesh = test.model;
        EXPECT_EQ(bore(mesh, test.bore), test.outcome);
        EXPECT_EQ(reference::difference(mesh, test.model), "");
    }
    // Where a face is missing, an edge ends within the bore.
    int refused = 0;
    for (const double x : {-5.0, 5.0}) {
        for (const double y : {-5.0, 5.0}) {
            for (const Vec3d axis : {Vec3d{0, 0, 1}, Vec3d{0, 1, 0}, Vec3d{1, 0, 0}}) {
                const Vec3d across = axis.x > 0   ? Vec3d{0, x, y}
                                     : axis.y > 0 ? Vec3d{x, 0, y}
                                                  : Vec3d{x, y, 0};
                TriMesh mesh = open;
                const BoreOutcome outcome =
                    bore(mesh, {across + axis * 30, across - axis * 30, 2, 16});
                if (outcome == BoreOutcome::Done) continue;
                EXPECT_EQ(outcome, BoreOutcome::NotSolid);
                EXPECT_EQ(reference::difference(mesh, open), "");
                ++refused;
            }
        }
    }
    EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace povmesh
