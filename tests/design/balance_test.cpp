// Balancing: the tilts of known bodies, the best plane beside brute force, what is carved, the
// decisions.
#include "design/balance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

#include "base/parallel.h"
#include "design/carve_plane.h"
#include "design/cavity_core.h"
#include "design/wall_gauge.h"
#include "helpers/job.h"
#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "mesh/volume.h"
#include "repair/degenerate.h"
#include "spatial/self_intersection.h"

namespace povmesh {
namespace {

using shapes::SoupVector;

constexpr double kDegree = std::numbers::pi / 180;

double tilt_of(double margin, double height) {
    return std::atan(margin / height) / kDegree;
}

// Upright on a square of `side` about the origin, its top moved along x.
SoupVector prism(float side, float height, double lean) {
    SoupVector soup = shapes::box({-side / 2, -side / 2, 0}, {side / 2, side / 2, height});
    for (std::size_t i = 0; i < soup.size(); i += 3) {
        soup[i] += static_cast<float>(std::tan(lean * kDegree)) * soup[i + 2];
    }
    return soup;
}

// A block whose mass is above one side of a narrow foot: two boxes would count twice where they
// overlap, so it is one outline of x and z, 24 wide along y.
SoupVector gallows(float reach) {
    const std::vector<std::array<float, 2>> outline = {
        {-15, 0}, {15, 0}, {15, 8}, {-3, 8}, {-3, 50}, {reach, 50}, {reach, 70}, {-15, 70}};
    const std::vector<std::array<std::size_t, 3>> cover = {{0, 1, 2}, {0, 2, 3}, {0, 3, 4},
                                                           {0, 4, 7}, {4, 5, 6}, {4, 6, 7}};
    SoupVector soup;
    const auto push = [&](std::size_t i, float y) {
        soup.insert(soup.end(), {outline[i][0], y, outline[i][1]});
    };
    for (const auto& t : cover) {
        for (const std::size_t i : {t[0], t[1], t[2]}) push(i, -12);
        for (const std::size_t i : {t[2], t[1], t[0]}) push(i, 12);
    }
    for (std::size_t i = 0; i < outline.size(); ++i) {
        const std::size_t next = (i + 1) % outline.size();
        for (const auto& [k, y] : {std::pair{i, -12.0F}, {i, 12.0F}, {next, 12.0F}}) push(k, y);
        for (const auto& [k, y] : {std::pair{i, -12.0F}, {next, 12.0F}, {next, -12.0F}}) push(k, y);
    }
    return soup;
}

Standing standing_of(const TriMesh& mesh) {
    const Base base = base_of(mesh);
    return stand_on(base, base.middle + mass_of(mesh, base.middle).centre());
}

TEST(Standing, DiffersFromClosedForms) {
    const struct {
        const char* what;
        SoupVector soup;
        double margin, height;
        std::size_t corners;
    } rows[] = {
        {"box", shapes::box({5, -3, 7}, {25, 3, 17}), 3, 5, 4},
        // All that is within a thousandth of the diagonal above the plate is base.
        {"leaning prism", prism(16, 50, 10),
         8 + 0.0583 * std::tan(10 * kDegree) - 25 * std::tan(10 * kDegree), 25, 4},
        {"falling prism", prism(16, 50, 30),
         8 + 0.07 * std::tan(30 * kDegree) - 25 * std::tan(30 * kDegree), 25, 4},
        {"sphere", shapes::sphere(20, 6), std::sqrt(2 * 20 * 0.0692), 20, 0},
    };
    for (const auto& row : rows) {
        const TriMesh mesh = shapes::mesh_of(row.soup);
        const Standing standing = standing_of(mesh);
        EXPECT_NEAR(standing.margin, row.margin, 0.02 + 0.02 * std::abs(row.margin)) << row.what;
        EXPECT_NEAR(standing.height, row.height, 1e-3 * row.height) << row.what;
        EXPECT_NEAR(standing.tilt, tilt_of(standing.margin, standing.height), 1e-9) << row.what;
        const Base base = base_of(mesh);
        if (row.corners != 0) {
            EXPECT_EQ(base.corners.size(), row.corners) << row.what;
        }
        // Counter-clockwise, and the nearest point is as far away as told.
        EXPECT_GT(area_of(base), 0) << row.what;
        EXPECT_NEAR(std::hypot(standing.nearest.x - standing.centre.x,
                               standing.nearest.y - standing.centre.y),
                    std::abs(standing.margin), 1e-9)
            << row.what;
    }
    const Base base = base_of(shapes::mesh_of(rows[0].soup));
    EXPECT_EQ(base.corners[0].x, 5);
    EXPECT_EQ(base.corners[0].y, -3);
    EXPECT_EQ(base.corners[1].x, 25);
    EXPECT_EQ(base.plate, 7);
    EXPECT_NEAR(area_of(base), 120, 1e-9);
}

// Many directions, every voxel for itself, a level at every tenth: no plane does better. On a base
// of two, of four and of many corners.
TEST(CarvePlane, IsWorseThanOneOfManyOthers) {
    const IndexBox box{{-12, -9, 0}, {20, 9, 25}};
    VoxelGrid core({{1, 1, 1}}, box, {0.5F, 0, 3});
    for (std::int32_t x = -12; x <= 20; ++x) {
        for (std::int32_t y = -9; y <= 9; ++y) {
            for (std::int32_t z = 0; z <= 25; ++z) {
                if (x * x + 2 * y * y < 30 * z) core.insert({x, y, z});
            }
        }
    }
    std::vector<Point2d> round;
    round.reserve(300);
    for (int i = 0; i < 300; ++i) {
        round.push_back({6 * std::cos(1.2 * i * kDegree), 6 * std::sin(1.2 * i * kDegree)});
    }
    const std::vector<std::vector<Point2d>> bases = {
        {{-6, -3}, {1, -3}, {1, 3}, {-6, 3}}, round, {{-1, 0}, {0, 0}}};
    for (const std::vector<Point2d>& corners : bases) {
        Base base;
        base.corners = corners;
        const double volume = 1.4 * static_cast<double>(core.size());
        const SolidMass whole{volume, Vec3d{4, 0.5, 17} * volume};
        const CarvePlane plane = find_carve_plane({core, base, {0, 0, 0}, whole, 1});
        const auto merit_of = [&](const Standing& s) {
            return s.margin > 0 ? s.margin / s.height : s.margin;
        };
        double best = merit_of(stand_on(base, whole.centre()));
        shapes::Random random(7);
        std::vector<std::pair<double, Vec3d>> voxels;
        for (int i = 0; i < 100; ++i) {
            Vec3d w{random.unit() - 0.5, random.unit() - 0.5, random.unit() - 0.5};
            voxels.clear();
            core.for_each([&](const Voxel& voxel) {
                const Vec3d p = to_double(voxel.centre) + to_double(core.origin());
                voxels.emplace_back(-dot(w, p), p);
            });
            std::sort(voxels.begin(), voxels.end(),
                      [](const auto& a, const auto& b) { return a.first < b.first; });
            SolidMass left = whole;
            for (std::size_t v = 0; v < voxels.size(); ++v) {
                left = left - SolidMass{1, voxels[v].second};
                if (v % 10 == 0) best = std::max(best, merit_of(stand_on(base, left.centre())));
            }
        }
        const double found = merit_of(plane.standing);
        EXPECT_GE(found, best - 0.01 * std::abs(best)) << corners.size();
        // What it tells is what it carves.
        SolidMass left = whole;
        core.for_each([&](const Voxel& voxel) {
            const Vec3d p = to_double(voxel.centre) + to_double(core.origin());
            if (plane.carves(p)) left = left - SolidMass{1, p};
        });
        EXPECT_LT(left.volume, whole.volume);
        EXPECT_NEAR(merit_of(stand_on(base, left.centre())), found, 2e-3 * std::abs(found));
    }
}

TEST(Balance, CarvesFlawedCavitiesOrStandsWorseThanToldOnItsFinishedSurface) {
    const struct {
        const char* what;
        SoupVector soup;
        float thickness;
        double infill;
        double before, after;  // degrees; what is reached at least
    } rows[] = {
        {"gallows", gallows(69), 1.2F, 1, -1.9, 18.5},
        {"gallows with infill", gallows(69), 1.2F, 0.4, -1.9, 11},
        {"leaning prism", prism(16, 50, 10), 1.2F, 1, 8.2, 17.0},
        {"falling prism", prism(16, 50, 18), 2.0F, 1, -0.24, 4.2},
        {"sphere", shapes::sphere(20, 5), 2, 1, 4.7, 5.5},
    };
    for (const auto& row : rows) {
        const TriMesh model = shapes::mesh_of(row.soup);
        TriMesh mesh = model;
        Job job;
        const BalanceReport report =
            balance(mesh, row.thickness, job.run, {.infill = row.infill, .measures_wall = true});
        ASSERT_EQ(report.status, BalanceStatus::Carved) << row.what;
        EXPECT_NEAR(report.before.tilt, row.before, row.infill == 1 ? 0.3 : 2) << row.what;
        EXPECT_GT(report.after.tilt, row.after) << row.what;
        if (row.infill == 1) {
            EXPECT_NEAR(standing_of(mesh).tilt, report.after.tilt, 1e-9) << row.what;
        }
        // The model's own faces come first, bit for bit.
        ASSERT_EQ(0, std::memcmp(mesh.faces.data(), model.faces.data(),
                                 model.faces.size() * sizeof(Face)));
        ASSERT_EQ(0, std::memcmp(mesh.vertices.data(), model.vertices.data(),
                                 model.vertices.size() * sizeof(Vertex)));
        EXPECT_TRUE(reference::is_closed_manifold(mesh)) << row.what;
        EXPECT_EQ(find_self_intersections(mesh, 0).count, 0U) << row.what;
        TriMesh cavity = mesh;
        cavity.faces.erase(cavity.faces.begin(),
                           cavity.faces.begin() + static_cast<std::ptrdiff_t>(model.faces.size()));
        EXPECT_NEAR(signed_volume(cavity), -report.cavity_volume, 1e-6 * report.cavity_volume);
        EXPECT_EQ(report.smallest_wall, WallGauge(model).least_distance(cavity)) << row.what;
        EXPECT_GE(report.smallest_wall, double{row.thickness} - 2 * report.voxel_size) << row.what;
        EXPECT_EQ(std::count_if(cavity.faces.begin(), cavity.faces.end(),
                                [&](const Face& face) { return is_degenerate(cavity, face); }),
                  0)
            << row.what;
        EXPECT_EQ(job.progress, "30 60 70 80 85 ") << row.what;
        // The preview decides alike, and so does one thread.
        const OneThread one;
        Job quiet;
        const BalanceReport preview =
            preview_balance(model, row.thickness, quiet.run, {.infill = row.infill});
        EXPECT_EQ(preview.status, report.status) << row.what;
        EXPECT_NEAR(preview.after.tilt, report.after.tilt, 0.1) << row.what;
        TriMesh again = model;
        (void)balance(again, row.thickness, quiet.run, {.infill = row.infill});
        EXPECT_EQ(reference::difference(again, mesh), "") << row.what;
    }
}

TEST(Balance, DecidesOrTellsOtherwiseThanItsTable) {
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    SoupVector flat = shapes::box({0, 0, 0}, {100, 100, 1e-8F});
    const SoupVector firm = shapes::box({0, 0, 0}, {20, 20, 20});
    const SoupVector shaky = shapes::box({0, 0, 0}, {2, 2, 14});  // of walls alone
    SoupVector block_on_a_sheet = shapes::box({-30, -0.75, 0}, {30, 0.75, 30});
    shapes::append(block_on_a_sheet, shapes::box({-4.5, -4.5, 24}, {4.5, 4.5, 33}));
    const SoupVector falling = prism(16, 50, 18);
    const std::string nothing = "\n[Caution] balance nothing!\n";
    const std::string failure =
        "\n---{failure} balancing: the centre of mass stays outside the base \n";
    const struct {
        const char* what;
        SoupVector soup;
        float thickness;
        BalanceStatus status;
        std::string progress;
    } rows[] = {
        {"no face", {}, 1, BalanceStatus::NoModel, ""},
        {"a sheet", {0, 0, 0, 9, 0, 0, 0, 9, 5}, 1, BalanceStatus::NoModel, ""},
        {"inside out", shapes::turned(firm), 1, BalanceStatus::NoModel, ""},
        {"thinner than a solid", flat, 1, BalanceStatus::NoModel, ""},
        {"firm", firm, 1, BalanceStatus::Stands, ""},
        {"firm, no thickness", firm, kNan, BalanceStatus::Stands, ""},
        {"shaky", shaky, 2, BalanceStatus::Stands, "30 60 "},
        {"shaky, little to gain", block_on_a_sheet, 1, BalanceStatus::Stands, "30 60 "},
        {"falls, too thick", falling, 20, BalanceStatus::Falls, "30 60 "},
        {"falls, 0", falling, 0, BalanceStatus::Falls, "30 60 "},
        {"falls, negative", falling, -3, BalanceStatus::Falls, "30 60 "},
        {"falls, not a number", falling, kNan, BalanceStatus::Falls, "30 60 "},
        {"falls, infinite", falling, kInfinity, BalanceStatus::Falls, "30 60 "},
        {"falls far", prism(16, 50, 35), 1, BalanceStatus::Falls, "30 60 "},
        {"carved, thin", falling, 0.1F, BalanceStatus::Carved, "30 60 70 80 85 "},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const TriMesh model = shapes::mesh_of(row.soup);
        TriMesh mesh = model;
        Job job;
        const BalanceReport report = balance(mesh, row.thickness, job.run);
        EXPECT_EQ(report.status, row.status);
        EXPECT_EQ(job.progress, row.progress);
        EXPECT_EQ(job.text.find("\n---start executing balancing---\nthickness    : "), 0U);
        Job preview;
        EXPECT_EQ(preview_balance(model, row.thickness, preview.run).status, row.status);
        EXPECT_EQ(preview.text.find("\n---start executing balancing preview---"), 0U);
        if (row.status == BalanceStatus::Carved) {
            EXPECT_NE(job.text.find(" %\n---{success} balancing : "), std::string::npos);
            continue;
        }
        EXPECT_EQ(reference::difference(mesh, model), "");
        const bool falls = row.status == BalanceStatus::Falls;
        EXPECT_TRUE(job.text.ends_with(falls ? failure : nothing)) << job.text;
        EXPECT_GE(report.after.margin, report.before.margin);
        if (!falls) {
            EXPECT_EQ(report.after.tilt, report.before.tilt);
        }
    }
    // Below half a unit a wall counts as half a unit.
    TriMesh thin = shapes::mesh_of(falling);
    TriMesh half = thin;
    Job job;
    (void)balance(thin, 0.1F, job.run);
    (void)balance(half, 0.5F, job.run);
    EXPECT_EQ(reference::difference(thin, half), "");
}

// An answer, and one that does not hang on the number of threads, whatever comes in.
TEST(Balance, OddModelsBreakIt) {
    SoupVector huge = shapes::sphere(1, 3);
    for (float& c : huge) c *= 1e38F;
    SoupVector denormal = shapes::sphere(1, 3);
    for (float& c : denormal) c *= 1e-40F;
    SoupVector unknown = prism(16, 50, 18);
    unknown[4] = std::numeric_limits<float>::quiet_NaN();
    unknown[14] = std::numeric_limits<float>::infinity();
    SoupVector noise;
    shapes::Random random(3);
    for (int i = 0; i < 9 * 2000; ++i) noise.push_back(static_cast<float>(random.unit() * 60));
    SoupVector open = prism(16, 50, 18);
    open.resize(open.size() - 18);
    const SoupVector needle = {0, 0, 0, 1e-6F, 0, 0, 0, 0, 1e6F};
    Job wild;
    TriMesh far_apart = shapes::mesh_of(huge);
    EXPECT_EQ(balance(far_apart, 1.5F, wild.run).status, BalanceStatus::Carved);
    for (const SoupVector& soup :
         {denormal, unknown, noise, open, needle, shapes::fan(5000, 30), shapes::book(500)}) {
        TriMesh mesh = shapes::mesh_of(soup);
        TriMesh again = mesh;
        Job job;
        const BalanceReport report = balance(mesh, 1.5F, job.run);
        const OneThread one;
        const BalanceReport second = balance(again, 1.5F, job.run);
        EXPECT_EQ(report.status, second.status);
        EXPECT_EQ(reference::difference(mesh, again), "");
        for (const double number : {report.before.tilt, report.after.tilt, report.cavity_volume}) {
            EXPECT_TRUE(std::isfinite(number));
        }
    }
}

}  // namespace
}  // namespace povmesh
