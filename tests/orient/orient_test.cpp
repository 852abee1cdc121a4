// The orientation search: what a person would choose, whatever the unit, the place and the order.
#include "orient/orientation.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>

#include "helpers/shapes.h"
#include "mesh/bounds.h"
#include "mesh/volume.h"
#include "orient/direction_cost.h"
#include "orient/pose.h"

namespace povmesh {
namespace {

using shapes::SoupVector;

OrientationReport search(const SoupVector& soup) {
    RunLog log;
    RunContext run{{}, log};
    return find_orientations(shapes::mesh_of(soup), run);
}

Vec3d best_up(const SoupVector& soup) {
    const OrientationReport report = search(soup);
    return report.best.empty() ? Vec3d{} : report.best.front().up;
}

SoupVector together(std::initializer_list<SoupVector> parts) {
    SoupVector all;
    for (const SoupVector& part : parts) shapes::append(all, part);
    return all;
}

// About x by 35 degrees, then about z by 20.
Vec3d tilted(Vec3d p) {
    const double a = 35 * std::numbers::pi / 180;
    const double b = 20 * std::numbers::pi / 180;
    const Vec3d q = {p.x, std::cos(a) * p.y - std::sin(a) * p.z,
                     std::sin(a) * p.y + std::cos(a) * p.z};
    return {std::cos(b) * q.x - std::sin(b) * q.y, std::sin(b) * q.x + std::cos(b) * q.y, q.z};
}

SoupVector tilted(SoupVector soup) {
    for (std::size_t i = 0; i + 2 < soup.size(); i += 3) {
        const Vec3d p = tilted(to_double(Vec3f{soup[i], soup[i + 1], soup[i + 2]}));
        soup[i] = static_cast<float>(p.x);
        soup[i + 1] = static_cast<float>(p.y);
        soup[i + 2] = static_cast<float>(p.z);
    }
    return soup;
}

const SoupVector& tee() {
    static const SoupVector soup =
        together({shapes::box({-2, -2, 0}, {2, 2, 20}), shapes::box({-10, -10, 20}, {10, 10, 24})});
    return soup;
}

Overhang overhang_of(const SoupVector& soup) {
    OverhangMeter meter;
    const OrientModel model = make_orient_model(shapes::mesh_of(soup));
    Overhang found = meter.measure(model.all(), {0, 0, 1}, model.slack);
    const double square = model.unit * model.unit;
    found.volume *= square * model.unit;
    found.touched_above *= square;
    found.touched_below *= square;
    return found;
}

// Of the given sides, open above, with walls of one.
SoupVector cup(float width, float height) {
    const float w = width;
    return together({shapes::box({0, 0, 0}, {w, w, 1}), shapes::box({0, 0, 0}, {1, w, height}),
                     shapes::box({w - 1, 0, 0}, {w, w, height}),
                     shapes::box({0, 0, 0}, {w, 1, height}),
                     shapes::box({0, w - 1, 0}, {w, w, height})});
}

// Lies in the plane of x and z.
SoupVector hook() {
    return together({shapes::box({0, 0, 0}, {3, 3, 30}), shapes::box({0, 0, 0}, {15, 3, 3}),
                     shapes::box({12, 0, 0}, {15, 3, 12})});
}

// Columns are counted, so an area is right to a row of them along its border.
TEST(Overhangs, AreFilledDownToThePlateOrWhatStandsBelow) {
    const Overhang plate = overhang_of(tee());
    EXPECT_NEAR(plate.volume, (400 - 16) * 20, 0.05 * 384 * 20);
    EXPECT_NEAR(plate.touched_above, 384, 0.05 * 384);
    EXPECT_EQ(plate.touched_below, 0);

    const SoupVector floor = shapes::box({-10, -10, -5}, {10, 10, 8});  // the stem passes through
    const Overhang shadow = overhang_of(together({tee(), floor}));
    EXPECT_NEAR(shadow.volume, (400 - 16) * 12, 0.05 * 384 * 12);
    EXPECT_NEAR(shadow.touched_below, 384, 0.05 * 384);

    const SoupVector inner = shapes::box({-9, -9, 21}, {9, 9, 23});  // nested: counts once
    EXPECT_DOUBLE_EQ(overhang_of(together({tee(), inner})).volume, plate.volume);
    EXPECT_EQ(overhang_of(shapes::box({0, 0, 0}, {1, 1, 1})).volume, 0);

    SoupVector sheet = {-10, -10, 24, 10, -10, 24, 10,  10, 24,
                        -10, -10, 24, 10, 10,  24, -10, 10, 24};
    shapes::append(sheet, shapes::turned(sheet));
    const SoupVector stem = shapes::box({-2, -2, 0}, {2, 2, 24});
    for (const SoupVector& both : {together({stem, sheet}), together({sheet, stem})}) {
        EXPECT_NEAR(overhang_of(both).volume, (400 - 16) * 24, 0.05 * 384 * 24) << "back to back";
    }
}

TEST(Orientation, IsWhatAPersonWouldChoose) {
    const SoupVector table =
        together({shapes::box({0, 0, 20}, {30, 30, 23}), shapes::box({0, 0, 0}, {3, 3, 21}),
                  shapes::box({27, 0, 0}, {30, 3, 21}), shapes::box({0, 27, 0}, {3, 30, 21}),
                  shapes::box({27, 27, 0}, {30, 30, 21})});
    const SoupVector cone = together({shapes::fan(200, 2), shapes::turned(shapes::fan(200, 0))});
    SoupVector disc = cone;
    for (std::size_t i = 2; i < disc.size(); i += 3) disc[i] *= 0.02F;
    const struct {
        const char* name;
        SoupVector soup;
        Vec3d up;
    } rows[] = {
        {"a cube as it is", shapes::box({0, 0, 0}, {5, 5, 5}), {0, 0, 1}},
        {"a plate on its side", shapes::box({0, 0, 0}, {1, 30, 20}), {1, 0, 0}},
        {"a tee and a table on their heads", tee(), {0, 0, -1}},
        {"a table", table, {0, 0, -1}},
        {"a cone on its base", cone, {0, 0, 1}},
        {"inside out as a whole", shapes::turned(tee()), {0, 0, -1}},
        {"a cup open above", cup(20, 15), {0, 0, 1}},
        {"a hook on its side", hook(), {0, 1, 0}},
        {"a disc lying", disc, {0, 0, 1}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const Vec3d up = best_up(row.soup);
        const bool either_side = row.up.z == 0;
        EXPECT_GT(either_side ? std::abs(dot(up, row.up)) : dot(up, row.up), 1 - 1e-9);
        // Turned away, the same side comes down, flat to a hair.
        const Vec3d turned = best_up(tilted(row.soup));
        EXPECT_GT(std::abs(dot(turned, tilted(up))), 1 - 1e-7);
    }
}

TEST(Orientation, DoesNotDependOnUnitPlaceOrThreads) {
    const SoupVector rock = shapes::rock(10, 4);
    const OrientationReport plain = search(rock);
    const int threads = omp_get_max_threads();
    for (const int count : {1, 2, 5}) {
        omp_set_num_threads(count);
        const OrientationReport again = search(rock);
        ASSERT_EQ(again.best.size(), plain.best.size());
        for (std::size_t i = 0; i < again.best.size(); ++i) {
            EXPECT_EQ(again.best[i].up, plain.best[i].up) << count << " threads";
            EXPECT_EQ(again.best[i].cost, plain.best[i].cost) << count << " threads";
        }
    }
    omp_set_num_threads(threads);
    SoupVector scaled = rock;
    for (float& x : scaled) x *= 1024;
    EXPECT_EQ(search(scaled).best.front().up, plain.best.front().up);
    EXPECT_EQ(search(scaled).best.front().cost, plain.best.front().cost);
    SoupVector moved = rock;
    shapes::move(moved, {64, -128, 32});
    EXPECT_NEAR(search(moved).best.front().cost, plain.best.front().cost, 0.01);
    const SoupVector shuffled = shapes::shuffled(rock, 7);
    EXPECT_NEAR(search(shuffled).best.front().cost, plain.best.front().cost, 0.01);
}

// Whatever the direction, distances stay and it points upward; along axes to the bit.
TEST(Poses, AreStoodUpWithoutBendingOrMirroring) {
    const TriMesh mesh = shapes::mesh_of(together({shapes::box({3, 4, 5}, {4, 6, 8})}));
    const Vec3d ups[] = {{0, 0, 1},     {0, 0, -1},        {1, 0, 0},        {-1, 0, 0},
                         {0, 1, 0},     {0, -1, 0},        {0.6, 0, 0.8},    {0.48, 0.64, -0.6},
                         {1e-5, 0, -1}, {1e-8, -1e-8, -1}, {2e-9, 1, -3e-9}, {1e-5, 1e-6, 1}};
    for (Vec3d up : ups) {
        SCOPED_TRACE(testing::Message() << up.x << " " << up.y << " " << up.z);
        up = up / length(up);
        TriMesh turned = mesh;
        turn_up(turned, up);
        ASSERT_EQ(turned.vertices.size(), mesh.vertices.size());
        EXPECT_NEAR(signed_volume(turned), 6, 1e-5);
        const Box3f box = finite_bounds(turned);
        EXPECT_EQ(box.low.z, 0);
        EXPECT_NEAR(box.low.x + box.high.x, 7, 1e-5);
        EXPECT_NEAR(box.low.y + box.high.y, 10, 1e-5);
        for (std::size_t i = 0; i < mesh.vertices.size(); ++i) {
            const Vec3d p =
                to_double(mesh.vertices[i].position()) - to_double(mesh.vertices[0].position());
            const Vec3d q =
                to_double(turned.vertices[i].position()) - to_double(turned.vertices[0].position());
            EXPECT_NEAR(length(q), length(p), 1e-5);
            EXPECT_NEAR(q.z, dot(p, up), 1e-5);
            if (std::max({std::abs(up.x), std::abs(up.y), std::abs(up.z)}) > 1 - 1e-12) {
                EXPECT_EQ(q, (Vec3d{std::round(q.x), std::round(q.y), std::round(q.z)}));
            }
        }
    }
}

TEST(Poses, ShowWhatIsHeldAndWhatRests) {
    const auto counts = [](const TriMesh& mesh, Vec3d up) {
        const PoseFaces faces = faces_of_pose(mesh, up);
        return std::array{faces.held.size(), faces.leaning.size(), faces.resting.size()};
    };
    for (const SoupVector& soup : {tee(), shapes::turned(tee())}) {
        const TriMesh mesh = shapes::mesh_of(soup);
        EXPECT_EQ(counts(mesh, {0, 0, 1}), (std::array<std::size_t, 3>{2, 0, 2}));
        EXPECT_EQ(counts(mesh, {0, 0, -1}), (std::array<std::size_t, 3>{2, 0, 2}));  // its foot
        EXPECT_EQ(counts(mesh, {0.8, 0, 0.6}), (std::array<std::size_t, 3>{4, 4, 0}))
            << "sides at 37 degrees from level, undersides at 53";
    }
}

TEST(Orientation, RowsDescendAndDifferAndAreNeverWorseThanThePoseAsItIs) {
    for (const SoupVector& soup :
         {tee(), tilted(tee()), shapes::rock(10, 4), shapes::sphere(3, 3), shapes::fan(50, 1)}) {
        const OrientationReport report = search(soup);
        ASSERT_FALSE(report.best.empty());
        EXPECT_LE(report.best.size(), 64U);
        const Orientation as_is = measure_orientation(shapes::mesh_of(soup), {0, 0, 1});
        EXPECT_LE(report.best.front().cost, as_is.cost + 0.01);
        for (std::size_t i = 0; i < report.best.size(); ++i) {
            EXPECT_NEAR(length(report.best[i].up), 1, 1e-9);
            for (std::size_t k = 0; k < i; ++k) {
                EXPECT_GE(report.best[k].score(), report.best[i].score());
                EXPECT_LT(dot(report.best[k].up, report.best[i].up),
                          std::cos(5 * std::numbers::pi / 180));
            }
        }
    }
}

TEST(Orientation, IsAsGoodAsTheBestOfManyByForce) {
    constexpr int kDirections = 600;
    for (const SoupVector& soup :
         {tee(), tilted(cup(20, 15)), tilted(hook()), shapes::rock(10, 3),
          together({shapes::sphere(3, 3), shapes::box({2, -1, -1}, {9, 1, 1})})}) {
        const TriMesh mesh = shapes::mesh_of(soup);
        double least = 1e9;
        for (int i = 0; i < kDirections; ++i) {  // even, on a spiral
            const double z = 1 - (2.0 * i + 1) / kDirections;
            const double angle = i * 2.399963229728653;
            const double radius = std::sqrt(1 - z * z);
            const Vec3d up = {radius * std::cos(angle), radius * std::sin(angle), z};
            least = std::min(least, measure_orientation(mesh, up).cost);
        }
        EXPECT_LE(search(soup).best.front().cost, 1.1 * least + 0.015);
    }
}

TEST(Orientation, AnswersBadInput) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_TRUE(search({}).best.empty());
    EXPECT_TRUE(search({0, 0, 0, 1, 0, 0, nan, 1, 0}).best.empty());
    EXPECT_TRUE(search({0, 0, 0, 1, 1, 1, 2, 2, 2}).best.empty());  // no area
    const Vec3d sheet = best_up({0, 0, 0, 4, 0, 0, 0, 4, 0});
    EXPECT_NEAR(sheet.z, 1, 1e-9);
    for (const float size : {1e-38F, 1e37F}) {
        SoupVector soup = tee();
        for (float& x : soup) x *= size;
        EXPECT_FALSE(search(soup).best.empty()) << size;
    }
    EXPECT_FALSE(search(shapes::box({0, 0, 0}, {1e-36F, 1e-36F, 1})).best.empty()) << "a thread";
    // A sound model beside triangles without area that reach far out.
    const SoupVector far = {-3e38F, -3e38F, -1, -3e38F, -3e38F, 0, -3e38F, -3e38F, 7};
    EXPECT_EQ(best_up(together({tee(), far})), (Vec3d{0, 0, -1}));
    shapes::Random random(5);
    SoupVector noise(std::size_t{9} * 300);
    for (float& x : noise) x = static_cast<float>(random.unit());
    EXPECT_FALSE(search(noise).best.empty());
    EXPECT_FALSE(search(shapes::fan(5000, 1)).best.empty());
}

}  // namespace
}  // namespace povmesh
