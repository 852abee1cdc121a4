// Sections: bending strength against closed forms, loads against cuts, and the weak places of
// solids that plainly have some or none.
#include "analysis/sections.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <map>
#include <numbers>
#include <string>
#include <vector>

#include "analysis/section_shapes.h"
#include "analysis/section_sweep.h"
#include "cut/cut.h"
#include "helpers/job.h"
#include "mesh/volume.h"

namespace povmesh {
namespace {

using shapes::SoupVector;
using testing::ElementsAre;
using testing::UnorderedElementsAreArray;

constexpr double kPi = std::numbers::pi;

std::vector<WeakSection> sections_of(const SoupVector& soup, SectionMode mode, double step = 1) {
    RunLog log;
    RunContext run{{}, log};
    return analyse_sections(shapes::mesh_of(soup), step, mode, run);
}

std::vector<WeakSection> weak_places(const SoupVector& soup) {
    return sections_of(soup, SectionMode::LocalMinima);
}

// Loops turned by an angle and moved.
SectionShape shape_of(const std::vector<std::vector<Point2d>>& loops, double angle, Point2d by) {
    SliceLoops slice;
    std::vector<std::uint32_t> part;
    slice.offsets.push_back(0);
    for (const auto& loop : loops) {
        part.push_back(static_cast<std::uint32_t>(part.size()));
        for (const Point2d p : loop) {
            slice.points.push_back({p.x * std::cos(angle) - p.y * std::sin(angle) + by.x,
                                    p.x * std::sin(angle) + p.y * std::cos(angle) + by.y});
        }
        slice.offsets.push_back(static_cast<std::uint32_t>(slice.points.size()));
    }
    return section_shape(slice, part);
}

std::vector<Point2d> rectangle(double x0, double y0, double x1, double y1) {
    return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
}

std::vector<Point2d> polygon(int corners, double radius) {
    std::vector<Point2d> points;
    for (int i = 0; i < corners; ++i) {
        const double angle = 2 * kPi * i / corners;
        points.push_back({radius * std::cos(angle), radius * std::sin(angle)});
    }
    return points;
}

TEST(Sections, HaveTheModulusOfTheClosedForms) {
    struct Case {
        const char* name;
        std::vector<std::vector<Point2d>> loops;
        double area, smallest, largest;
        double across, along;  // of the most stressed point from the principal axes
    };
    auto inner = polygon(24, 3);
    std::reverse(inner.begin(), inner.end());
    auto window = rectangle(-4, -1, 4, 1);
    std::reverse(window.begin(), window.end());
    const double a = 2 * kPi / 24;
    const auto ring = [&](double r) { return std::sin(a) * r; };  // area of 24 triangles / 12
    const double ring_area = 12 * (ring(25) - ring(9));
    const double ring_moment = (ring(625) - ring(81)) * (2 + std::cos(a));
    // A tee: flange 12 x 2 on a web 2 x 10, centroid at 8 from the foot.
    const std::vector<Point2d> tee = {{-1, 0}, {1, 0},   {1, 10},  {6, 10},
                                      {6, 12}, {-6, 12}, {-6, 10}, {-1, 10}};
    const double tee_y = (20.0 * 5 + 24.0 * 11) / 44;
    const double tee_xx = 2 * 1000.0 / 12 + 20 * (tee_y - 5) * (tee_y - 5) + 12 * 8.0 / 12 +
                          24 * (11 - tee_y) * (11 - tee_y);
    const double tee_yy = 10 * 8.0 / 12 + 2 * 1728.0 / 12;
    const std::vector<Case> cases = {
        {"rectangle", {rectangle(-3, -1, 3, 1)}, 12, 6 * 8.0 / 12, 2 * 216.0 / 12, 1, 3},
        {"square", {rectangle(0, 0, 2, 2)}, 4, 4.0 / 3, 4.0 / 3, 1, 1},
        {"annulus", {polygon(24, 5), inner}, ring_area, ring_moment, ring_moment, 5, 0},
        {"box girder",
         {rectangle(-5, -2, 5, 2), window},
         40 - 16,
         10 * 64.0 / 12 - 8 * 8.0 / 12,
         4 * 1000.0 / 12 - 2 * 512.0 / 12,
         2,
         5},
        {"tee", {tee}, 44, tee_yy, tee_xx, 6, 12 - tee_y},
    };
    ASSERT_LT(tee_yy, tee_xx);
    for (const Case& c : cases) {
        for (const double angle : {0.0, 0.3, 1.0, kPi / 2, 2.5}) {
            const SectionShape shape = shape_of(c.loops, angle, {100, -70});
            const std::string at = std::string(c.name) + " " + std::to_string(angle);
            EXPECT_NEAR(shape.area, c.area, 1e-9 * c.area) << at;
            EXPECT_NEAR(shape.smallest_moment, c.smallest, 1e-9 * c.largest) << at;
            EXPECT_NEAR(shape.largest_moment, c.largest, 1e-9 * c.largest) << at;
            EXPECT_NEAR(shape.modulus, 1 / std::hypot(c.across / c.smallest, c.along / c.largest),
                        1e-8 * c.smallest)
                << at;
        }
    }
}

TEST(Sections, JumpAtNoSymmetry) {
    const double exact = shape_of({rectangle(0, 0, 2, 2)}, 0, {0, 0}).modulus;
    EXPECT_NEAR(shape_of({rectangle(0, 0, 2, 1.999)}, 0.2, {0, 0}).modulus, exact, 2e-3 * exact);
}

Mass mass_of(const TriMesh& mesh) {
    Mass mass;
    for (const Face& face : mesh.faces) {
        const Vec3d a = to_double(mesh.corner_position(face, 0));
        const Vec3d b = to_double(mesh.corner_position(face, 1));
        const Vec3d c = to_double(mesh.corner_position(face, 2));
        const double volume = dot(a, cross(b, c)) / 6;
        mass = mass + Mass{volume, (a + b + c) * (volume / 4)};
    }
    return mass;
}

TEST(Sections, BearNeitherMoreNorLessThanACutTakesOff) {
    SoupVector soup = shapes::rock(20, 4);
    shapes::move(soup, {300, -200, 100});
    const TriMesh mesh = shapes::mesh_of(soup);
    RunLog log;
    RunContext run{{}, log};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const double middle = std::array{300.0, -200.0, 100.0}[axis];
        std::vector<double> heights;
        for (int i = -8; i <= 8; ++i) heights.push_back(middle + 2 * i);
        heights.push_back(along_axis(to_double(mesh.vertices[77].position()), axis));
        std::sort(heights.begin(), heights.end());
        const SectionSweep sweep = sweep_sections(mesh, axis, Slicer(mesh, axis, heights));
        const std::vector<JointLoad> loads = joint_loads(sweep.graph);
        for (std::size_t p = 0; p < sweep.parts.size(); ++p) {
            CutOptions options;
            options.operation = CutOperation::CutAndCap;
            options.plane.normal = at_height({0, 0}, -1, axis);
            options.plane.direction = at_height({1, 0}, 0, axis);
            options.plane.point = at_height({0, 0}, heights[sweep.parts[p].layer], axis);
            TriMesh cut = mesh;
            cut_models(cut, options, run);
            if (cut.parts.size() != 2) continue;  // a plane that takes off several lumps
            for (const TriMesh& piece : cut.parts) {
                const Mass truth = mass_of(piece);
                const bool is_below =
                    along_axis(truth.moment / truth.volume, axis) < heights[sweep.parts[p].layer];
                const Mass& mass = is_below ? loads[p].below : loads[p].above;
                EXPECT_NEAR(mass.volume, truth.volume, 1e-4 * truth.volume);  // 32-bit corners
                EXPECT_LT(length(mass.moment / mass.volume - truth.moment / truth.volume), 1e-3);
            }
        }
        EXPECT_GE(sweep.parts.size(), heights.size());
    }
}

// The weak places of a solid as axes and positions rounded down.
std::vector<std::string> places(const std::vector<WeakSection>& sections) {
    std::vector<std::string> names;
    names.reserve(sections.size());
    for (const WeakSection& s : sections) {
        names.push_back("xyz"[s.axis] + std::to_string(static_cast<int>(std::floor(s.position))));
    }
    return names;
}

// Narrowest at the height 29.6.
double waist_radius(double height) {
    return 5 + 0.3 * std::abs(height - 29.6);
}

SoupVector hourglass() {
    std::vector<Point2d> profile;
    for (int i = 0; i <= 60; ++i) profile.push_back({waist_radius(i), i * 1.0});
    return shapes::lathe(profile, 48);
}

SoupVector dumbbell(double handle, double rim) {
    std::vector<Point2d> profile;
    for (int i = 0; i <= 17; ++i) {
        profile.push_back({rim * std::sin(0.16 * i), rim - rim * std::cos(0.16 * i)});
    }
    for (std::size_t i = 18; i-- > 0;) profile.push_back({profile[i].x, 91 - profile[i].y});
    profile[0].x = profile.back().x = 0;
    for (Point2d& p : profile) {
        if (p.y > 2 * rim - 2 && p.y < 93 - 2 * rim) p.x = handle;
    }
    return shapes::lathe(profile, 48);
}

using Planes = std::array<std::vector<double>, 3>;

TEST(Sections, MissNoNeckAndInventNone) {
    const auto tee = [](double stem) {
        return shapes::blocks(Planes{{{-20, -3, 3, 20}, {0, 6}, {0, stem, stem + 10}}},
                              [](int i, int, int k) { return k == 1 || i == 1; });
    };
    // A handle drilled through: its sections are rings.
    SoupVector drilled = hourglass();
    shapes::append(drilled, shapes::turned(shapes::lathe({{2, 10}, {2, 50}}, 24)));
    using Places = std::vector<std::string>;
    const std::map<std::string, std::pair<SoupVector, Places>> cases = {
        {"box", {shapes::box({0, 0, 0}, {20, 30, 60}), {}}},
        {"ball", {shapes::sphere(20, 4), {}}},
        {"rock", {shapes::rock(30, 4), {}}},
        {"cone", {shapes::lathe({{20, 0}, {0, 60}}, 60), {}}},
        {"wedge", {shapes::lathe({{20, 0}, {5, 60}}, 3), {}}},
        {"hourglass", {hourglass(), {"z29"}}},
        {"drilled", {drilled, {"z29"}}},
        {"dumbbell", {dumbbell(4, 15), {"z45"}}},
        {"stepped shaft", {shapes::lathe({{6, 0}, {6, 20.2}, {15, 20.2}, {15, 60}}, 40), {"z19"}}},
        // The neck under the bar, and the bar's arms beside it.
        {"tee", {tee(30), {"z29", "x-4", "x3"}}},
        {"tee with a long stem", {tee(100), {"z99", "x-4", "x3"}}},
        {"bracket",
         {shapes::blocks(Planes{{{0, 6, 40}, {0, 6}, {0, 6, 40}}},
                         [](int i, int, int k) { return k == 0 || i == 0; }),
          {"x6", "z6"}}},
        // Each leg under the top, and the top between the legs.
        {"table",
         {shapes::blocks(Planes{{{0, 4, 47, 51}, {0, 4, 47, 51}, {0, 40, 44}}},
                         [](int i, int j, int k) { return k == 1 || (i != 1 && j != 1); }),
          {"z39", "z39", "z39", "z39", "x25", "y25"}}},
        // Two handles: together they hold both ends.
        {"spreader",
         {shapes::blocks(Planes{{{0, 4, 17, 21}, {0, 10}, {0, 20, 61, 81}}},
                         [](int i, int, int k) { return k != 1 || i != 1; }),
          {"z40", "z40", "x10", "x10"}}},
    };
    for (const auto& [name, solid] : cases) {
        const auto& [soup, expected] = solid;
        Places lying = expected;
        for (std::string& place : lying)
            place[0] = place[0] == 'z' ? 'x' : place[0] == 'x' ? 'y' : 'z';
        EXPECT_THAT(places(weak_places(soup)), UnorderedElementsAreArray(expected)) << name;
        EXPECT_THAT(places(weak_places(shapes::turned(soup))), UnorderedElementsAreArray(expected))
            << name;
        EXPECT_THAT(places(weak_places(shapes::placed(soup,
                                                      [](Vec3d p) {
                                                          return Vec3d{p.z, p.x, p.y};
                                                      }))),
                    UnorderedElementsAreArray(lying))
            << name;
        if (expected.empty()) continue;
        const Places found = places(weak_places(soup));
        ASSERT_FALSE(found.empty()) << name;
        EXPECT_EQ(found.front(), expected.front()) << name;
    }
}

// A solid turned about an axis through the origin that is none of the three.
shapes::Place slanted(double degrees) {
    const Vec3d axis = Vec3d{1, 0.6, 0.3} / length(Vec3d{1, 0.6, 0.3});
    const double c = std::cos(degrees * kPi / 180);
    const double s = std::sin(degrees * kPi / 180);
    return [=](Vec3d p) { return p * c + cross(axis, p) * s + axis * (dot(axis, p) * (1 - c)); };
}

// 100 long, of radius 10, with necks of 20 that begin softly: depth as a share of the radius,
// height.
SoupVector necked_bar(const std::vector<Point2d>& necks) {
    std::vector<Point2d> profile;
    for (int z = 0; z <= 100; ++z) {
        double radius = 10;
        for (const auto& [depth, height] : necks) {
            const double off = std::abs(z - height);
            if (off < 10) radius -= 10 * depth * (0.5 + 0.5 * std::cos(kPi * off / 10));
        }
        profile.push_back({radius, z * 1.0});
    }
    return shapes::lathe(profile, 48);
}

TEST(Sections, MissNoShallowOrSlantingNeck) {
    for (const double depth : {0.05, 0.1, 0.2, 0.4, 0.6}) {
        for (const double slant : {0.0, 15.0, 30.0, 45.0}) {
            const std::string at = std::to_string(depth) + " " + std::to_string(slant);
            const auto found =
                weak_places(shapes::placed(necked_bar({{depth, 50}}), slanted(slant)));
            ASSERT_EQ(found.size(), 1U) << at;
            EXPECT_LT(length(found[0].centre - slanted(slant)({0, 0, 50})), 3) << at;
            EXPECT_GT(std::abs(dot(found[0].normal, slanted(slant)({0, 0, 1}))), 0.95) << at;
            // A circle's modulus is pi r^3 / 4.
            const double truth = kPi * std::pow(10 * (1 - depth), 3) / 4;
            EXPECT_NEAR(found[0].modulus, truth, 0.05 * truth) << at;
        }
    }
    // The deeper one of two that bear the same.
    for (const double slant : {0.0, 25.0}) {
        const auto found =
            weak_places(shapes::placed(necked_bar({{0.2, 30}, {0.35, 70}}), slanted(slant)));
        ASSERT_EQ(found.size(), 2U);
        EXPECT_LT(length(found[0].centre - slanted(slant)({0, 0, 70})), 3);
        EXPECT_NEAR(found[1].score, 100 * std::pow(0.65 / 0.8, 3), 8);  // the loads differ a little
    }
    const auto bar = shapes::blocks(Planes{{{0, 15, 20}, {0, 20}, {0, 48, 52, 100}}},
                                    [](int i, int, int k) { return i == 0 || k != 1; });
    EXPECT_THAT(places(weak_places(bar)), ElementsAre(testing::AnyOf("z49", "z50")));
    const auto bone = shapes::lathe({{10, 0}, {5, 50}, {10, 100}}, 48);
    EXPECT_THAT(places(weak_places(bone)), ElementsAre(testing::AnyOf("z49", "z50")));
    const auto glass = shapes::lathe({{20, 0}, {14, 40}, {20, 80}}, 48);
    EXPECT_THAT(places(weak_places(glass)), ElementsAre(testing::AnyOf("z39", "z40")));
}

TEST(Sections, TakeNoSlantForANeck) {
    for (const SoupVector& plain :
         {shapes::box({0, 0, 0}, {10, 10, 100}), shapes::box({0, 0, 0}, {100, 60, 4}),
          shapes::lathe({{10, 0}, {10, 60}}, 48), shapes::lathe({{10, 0}, {10, 60}}, 8),
          shapes::lathe({{20, 0}, {2, 60}}, 48), shapes::sphere(20, 3)}) {
        for (const double slant : {7.0, 15.0, 30.0, 45.0, 60.0}) {
            EXPECT_EQ(weak_places(shapes::placed(plain, slanted(slant))).size(), 0U) << slant;
        }
    }
}

TEST(Sections, MisplaceOrMisjudgeNoWaist) {
    const auto at_waist = weak_places(hourglass());
    ASSERT_EQ(at_waist.size(), 1U);
    const WeakSection& waist = at_waist.front();
    EXPECT_EQ(waist.score, 100);
    EXPECT_EQ(waist.normal, (Vec3d{0, 0, 1}));
    const double a = 2 * kPi / 48;
    const double radius = (waist_radius(29) + waist_radius(30)) / 2;  // on the chord
    EXPECT_NEAR(waist.modulus, 2 * std::pow(radius, 3) * std::sin(a) * (2 + std::cos(a)), 1e-3);
    double volume_below = 0;
    double moment = 0;  // about the plane
    for (int i = 0; i < 2950; ++i) {
        const double z = 29.495 - 0.01 * i;
        const double low = waist_radius(std::floor(z));
        const double high = waist_radius(std::floor(z) + 1);
        const double r = low + (high - low) * (z - std::floor(z));
        volume_below += 0.01 * 24 * std::sin(a) * r * r;
        moment += 0.01 * 24 * std::sin(a) * r * r * (29.5 - z);
    }
    ASSERT_LT(volume_below, volume(shapes::mesh_of(hourglass())) / 2);
    EXPECT_NEAR(waist.load, moment, 1e-4 * moment);
    EXPECT_NEAR(waist.strength, waist.modulus / waist.load, 1e-12);
    // Twice as large means half the strength: volume and lever grow faster than the section.
    const auto twice = sections_of(shapes::placed(hourglass(), [](Vec3d p) { return p * 2.0; }),
                                   SectionMode::LocalMinima, 2);
    ASSERT_EQ(twice.size(), 1U);
    EXPECT_NEAR(twice.front().strength, waist.strength / 2, 1e-6 * waist.strength);
}

TEST(Sections, CountASharedLoadOnce) {
    // Two blocks of 21 x 10 x 20 joined by a bar 3 x 10 on the left and one of 6 x 10 on the right.
    const auto sections =
        weak_places(shapes::blocks(Planes{{{0, 3, 15, 21}, {0, 10}, {0, 20, 61, 81}}},
                                   [](int i, int, int k) { return k != 1 || i != 1; }));
    // The centroid of one half from that of both sections: along z, and along x.
    const double lever =
        std::hypot((4200 * 30.5 + 1845 * 10.25) / 6045, 12.5 - (4200 * 10.5 + 1845 * 12.5) / 6045);
    double load = 0;
    for (const WeakSection& s : sections) {
        if (s.axis != 2) continue;
        EXPECT_NEAR(s.load / s.area, 6045 * lever / 90, 1e-3);
        load += s.load;
    }
    EXPECT_NEAR(load, 6045 * lever, 0.1);
}

TEST(Sections, LeaveTheirPlaneNowhere) {
    // A box with a void inside. With a step of 8 the planes pass through its corners.
    const Planes planes{{{0, 3, 9, 12}, {0, 3, 9, 12}, {0, 4, 20, 24}}};
    const SoupVector tube =
        shapes::blocks(planes, [](int i, int j, int k) { return k != 1 || i != 1 || j != 1; });
    for (const double step : {1.0, 8.0, 0.5}) {
        std::map<std::size_t, double> volumes;
        Job job;
        const auto sections =
            analyse_sections(shapes::mesh_of(tube), step, SectionMode::All, job.run);
        EXPECT_EQ(job.text, "\n---start executing sectional analysis---\nsection num : " +
                                std::to_string(sections.size()));
        for (std::size_t i = 0; i < sections.size(); ++i) {
            const WeakSection& s = sections[i];
            EXPECT_NEAR(s.score, 100 * sections[0].strength / s.strength, 1e-4);
            EXPECT_LE(s.score, i == 0 ? 100 : sections[i - 1].score);
            std::vector<std::vector<Vec3d>> loops = s.holes;
            loops.insert(loops.begin(), s.polygon);
            double area = 0;
            for (std::size_t l = 0; l < loops.size(); ++l) {
                ASSERT_GE(loops[l].size(), 3U);
                Vec3d doubled;
                for (std::size_t p = 0; p < loops[l].size(); ++p) {
                    EXPECT_EQ(dot(loops[l][p], s.normal), s.position);
                    doubled = doubled + cross(loops[l][p], loops[l][(p + 1) % loops[l].size()]);
                }
                EXPECT_EQ(dot(doubled, s.normal) > 0, l == 0);
                area += dot(doubled, s.normal) / 2;
            }
            EXPECT_NEAR(area, s.area, 1e-9);
            const bool is_ring = s.axis == 2 ? s.position > 4 && s.position <= 20
                                             : s.position > 3 && s.position <= 9;
            EXPECT_EQ(s.holes.size(), is_ring ? 1U : 0U) << s.axis << ' ' << s.position;
            volumes[s.axis] += area * step;
        }
        if (step == 8) continue;
        for (const auto& [axis, sum] : volumes) EXPECT_NEAR(sum, 144 * 24 - 36 * 16, 1e-6) << axis;
    }
}

TEST(Sections, TakeAnything) {
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    SoupVector spoilt = hourglass();
    shapes::append(spoilt, SoupVector{kNan, 0, 0, 1, 2, 3, 4, 5, 6});
    EXPECT_THAT(places(weak_places(spoilt)), ElementsAre("z29"));
    SoupVector torn(spoilt.begin() + std::ptrdiff_t{9} * 40,
                    spoilt.end() - 9);  // without two strips
    EXPECT_THAT(places(weak_places(torn)), ElementsAre("z29"));
    for (const double step : {0.0, -1.0, std::nan(""), kInfinity}) {
        EXPECT_EQ(sections_of(hourglass(), SectionMode::All, step).size(), 0U) << step;
    }
    EXPECT_EQ(weak_places({}).size(), 0U);
    // Faces that contradict one another: every third one is turned, or all lie anyhow.
    shapes::Random random(4);
    for (int round = 0; round < 20; ++round) {
        SoupVector mixed = hourglass();
        SoupVector wild;
        for (std::size_t i = 0; i < mixed.size(); i += 9) {
            if (random.below(3) == 0) std::swap_ranges(&mixed[i], &mixed[i + 3], &mixed[i + 3]);
            if (i >= 900) continue;
            for (int k = 0; k < 9; ++k) wild.push_back(static_cast<float>(random.unit() * 40));
        }
        for (const WeakSection& s : weak_places(mixed)) EXPECT_GE(s.score, 0);
        for (const WeakSection& s : weak_places(wild)) EXPECT_LE(s.score, 100);
    }
    const SoupVector giant = shapes::box({-3e38F, -3e38F, -3e38F}, {3e38F, 1e38F, 3e38F});
    EXPECT_EQ(sections_of(giant, SectionMode::All).size(), 3 * kMostSectionPlanes);
    const auto fine = sections_of(shapes::box({0, 0, 0}, {1, 1, 1}), SectionMode::All, 1e-300);
    EXPECT_EQ(fine.size(), 3 * kMostSectionPlanes);
    const SoupVector hair = shapes::box({0, 0, 0}, {1e-30F, 1e-30F, 1});
    EXPECT_EQ(sections_of(hair, SectionMode::All, 1e-300).size(), 0U);  // less than rounding thick
    for (const SoupVector& soup : {shapes::fan(100000, 50), shapes::book(100000)}) {
        EXPECT_EQ(sections_of(soup, SectionMode::LocalMinima, 400).size(), 0U);
    }
}

}  // namespace
}  // namespace povmesh
