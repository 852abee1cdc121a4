// Which faces must be turned: on shapes where that is known by construction.
#include "repair/orientation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <set>
#include <vector>

#include "helpers/shapes.h"
#include "mesh/shells.h"
#include "repair/detect.h"

namespace povmesh {
namespace {

using shapes::SoupVector;
using Faces = std::set<std::size_t>;

SoupVector cube(float low, float high) {
    return shapes::box({low, low, low}, {high, high, high});
}

SoupVector joined(SoupVector soup, const SoupVector& more) {
    shapes::append(soup, more);
    return soup;
}

SoupVector with_turned(SoupVector soup, const Faces& faces) {
    for (const std::size_t face : faces) {
        const auto at = soup.begin() + static_cast<std::ptrdiff_t>(face * 9);
        std::swap_ranges(at, at + 3, at + 3);
    }
    return soup;
}

TurnedFaces orientation_of(TriMesh& mesh) {
    const EdgeMates mates(mesh);
    label_shells(mesh, mates);
    return find_orientation(mesh, mates);
}

Faces turned_in(const SoupVector& soup) {
    TriMesh mesh = shapes::mesh_of(soup);
    const TurnedFaces orientation = orientation_of(mesh);
    Faces turned;
    for (std::size_t face = 0; face < mesh.faces.size(); ++face) {
        if (orientation.turned[face] != 0) turned.insert(face);
    }
    EXPECT_EQ(turned.size(), orientation.turned_count);
    return turned;
}

Faces some_of(std::size_t count, double share, std::uint64_t seed) {
    shapes::Random random(seed);
    Faces faces;
    for (std::size_t face = 0; face < count; ++face) {
        if (random.unit() < share) faces.insert(face);
    }
    return faces;
}

Faces range(std::size_t begin, std::size_t end) {
    Faces faces;
    for (std::size_t face = begin; face < end; ++face) faces.insert(face);
    return faces;
}

TEST(Orientation, SoundPiecesAreNotCalledInverted) {
    // Upside-down frustum with a flat top: the walk of the counts that hosts know starts wrong.
    SoupVector frustum = cube(0, 10);
    for (std::size_t i = 0; i < frustum.size(); i += 3) {
        if (frustum[i + 2] != 0) continue;
        frustum[i] = 4 + frustum[i] / 5;
        frustum[i + 1] = 4 + frustum[i + 1] / 5;
    }
    const SoupVector hollow = joined(cube(0, 10), shapes::turned(cube(2, 8)));
    const SoupVector touching = joined(cube(0, 10), shapes::box({10, 10, 0}, {20, 20, 10}));
    const SoupVector breaking =
        joined(cube(0, 10), shapes::turned(shapes::box({2, 2, 2}, {8, 8, 11})));
    for (const SoupVector& soup : {frustum, hollow, touching, breaking}) {
        EXPECT_EQ(turned_in(soup), Faces());
    }
}

TEST(Orientation, ExactlyTheTurnedFacesOfClosedShellsAreFound) {
    const SoupVector ball = shapes::rock(20, 3);
    const std::size_t count = ball.size() / 9;
    for (const double share : {0.01, 0.4, 0.6, 1.1}) {
        const Faces turned = some_of(count, share, 3);
        EXPECT_EQ(turned_in(with_turned(ball, turned)), turned) << share;
    }
    // A cavity with turned faces is made consistent, not filled; with all of its model it is
    // turned.
    const SoupVector hollow =
        joined(cube(0, 60), shapes::turned(with_turned(cube(20, 40), {3, 7})));
    EXPECT_EQ(turned_in(hollow), (Faces{15, 19}));
    EXPECT_EQ(turned_in(shapes::turned(joined(cube(0, 60), shapes::turned(cube(20, 40))))),
              range(0, 24));
    // Cubes that share an edge are one shell without a way over it: each by itself.
    const SoupVector two = joined(cube(0, 10), shapes::box({10, 10, 0}, {20, 20, 10}));
    EXPECT_EQ(turned_in(with_turned(two, range(12, 24))), range(12, 24));
    EXPECT_EQ(turned_in(with_turned(two, range(0, 13))), range(0, 13));
}

TEST(Orientation, OpenShellsAreTurnedOnlyWhereTheyClearlyLookIn) {
    SoupVector open_ball = shapes::sphere(20, 3);
    open_ball.resize(open_ball.size() - std::size_t{20} * 9);
    const std::size_t count = open_ball.size() / 9;
    EXPECT_EQ(turned_in(shapes::turned(open_ball)), range(0, count));
    EXPECT_EQ(turned_in(with_turned(open_ball, some_of(count, 0.3, 5))), some_of(count, 0.3, 5));
    // A sheet has no inside: the most stay.
    SoupVector sheet;
    for (int i = 0; i < 20; ++i) {
        const auto x = static_cast<float>(i);
        const float z = 0.1F * x * x;
        const float next = 0.1F * (x + 1) * (x + 1);
        const SoupVector strip = {x, 0, z, x + 1, 0, next, x + 1, 5, next,
                                  x, 0, z, x + 1, 5, next, x,     5, z};
        shapes::append(sheet, strip);
    }
    EXPECT_EQ(turned_in(shapes::turned(sheet)), Faces());
    EXPECT_EQ(turned_in(with_turned(sheet, some_of(40, 0.3, 1))), some_of(40, 0.3, 1));
}

TEST(Orientation, AStripWithAHalfTurnIsLeftAndSaid) {
    SoupVector strip;
    constexpr int kSteps = 24;
    const auto point = [](int step, double across) {
        const double angle = 2 * std::numbers::pi * (step % kSteps) / kSteps;
        const double half = angle / 2;
        const double way = step >= kSteps ? -across : across;
        const double radius = 10 + way * std::cos(half);
        return std::vector<float>{static_cast<float>(radius * std::cos(angle)),
                                  static_cast<float>(radius * std::sin(angle)),
                                  static_cast<float>(way * std::sin(half))};
    };
    for (int i = 0; i < kSteps; ++i) {
        for (const auto& p : {point(i, 1), point(i + 1, 1), point(i + 1, -1), point(i, 1),
                              point(i + 1, -1), point(i, -1)}) {
            shapes::append(strip, p);
        }
    }
    TriMesh mesh = shapes::mesh_of(strip);
    const TurnedFaces orientation = orientation_of(mesh);
    EXPECT_EQ(orientation.one_sided, std::vector<std::uint32_t>{0});
    EXPECT_EQ(orientation.turned_count, 0U);
}

}  // namespace
}  // namespace povmesh
