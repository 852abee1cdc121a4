// Strength colours: red where a person would expect it, and the rules of the scale.
#include "analysis/strength.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <numbers>
#include <string>
#include <vector>

#include "analysis/fem_analysis.h"
#include "base/parallel.h"
#include "helpers/job.h"
#include "helpers/shapes.h"

namespace povmesh {
namespace {

using shapes::SoupVector;

// The remeshing is tested elsewhere.
constexpr double kCoarse = 5;

// A bar along z of radius 12, 60 high, that is narrower in its middle.
SoupVector hourglass() {
    constexpr int kRings = 30;
    constexpr int kSides = 48;
    const auto point = [](int ring, int side) {
        const double z = 60.0 * ring / kRings;
        const double radius = 12 - 8 * std::exp(-std::pow((z - 30) / 9, 2));
        const double angle = 2 * std::numbers::pi * side / kSides;
        return Vec3f{static_cast<float>(radius * std::cos(angle)),
                     static_cast<float>(radius * std::sin(angle)), static_cast<float>(z)};
    };
    SoupVector soup;
    const auto add = [&](Vec3f a, Vec3f b, Vec3f c) {
        for (const Vec3f p : {a, b, c}) soup.insert(soup.end(), {p.x, p.y, p.z});
    };
    for (int side = 0; side < kSides; ++side) {
        const int next = (side + 1) % kSides;
        for (int ring = 0; ring < kRings; ++ring) {
            add(point(ring, side), point(ring, next), point(ring + 1, next));
            add(point(ring, side), point(ring + 1, next), point(ring + 1, side));
        }
        add({0, 0, 0}, point(0, next), point(0, side));
        add({0, 0, 60}, point(kRings, side), point(kRings, next));
    }
    return soup;
}

// A bar across a stem, which goes into it a little.
SoupVector letter_t() {
    SoupVector soup = shapes::box({-4, -6, 0}, {4, 6, 42});
    shapes::append(soup, shapes::box({-30, -6, 40}, {30, 6, 48}));
    return soup;
}

struct Weakest {
    Vec3f place;
    std::array<std::uint8_t, 3> colour;
};

Weakest weakest_of(const TriMesh& mesh, const StrengthReport& report) {
    for (const Face& face : mesh.faces) {
        for (std::size_t c = 0; c < 3; ++c) {
            const auto v = static_cast<std::size_t>(face.vertex[c]);
            if (report.values[v] != report.highest) continue;
            return {mesh.vertices[v].position(),
                    {face.colour[3 * c], face.colour[3 * c + 1], face.colour[3 * c + 2]}};
        }
    }
    return {};
}

TEST(Strength, OverlooksNoWaistOrNeck) {
    for (const StrengthMethod method : {StrengthMethod::Sections, StrengthMethod::FiniteElements}) {
        Job job;
        TriMesh glass = shapes::mesh_of(hourglass());
        const StrengthReport report =
            colour_strength(glass, {method, fem::LoadCase::PressureZ, kCoarse, 5}, job.run);
        ASSERT_TRUE(report.is_analysed);
        const Weakest weakest = weakest_of(glass, report);
        EXPECT_NEAR(weakest.place.z, 30, 4);
        EXPECT_THAT(weakest.colour, testing::ElementsAre(255, 100, 100));
        EXPECT_THAT(job.text, testing::HasSubstr("\n---{success} strength_coloring : "));
        EXPECT_THAT(job.text, testing::EndsWith(" sec.---\n"));
    }
    // Pressed from above, a T is weakest where its arms begin.
    Job job;
    TriMesh t = shapes::mesh_of(letter_t());
    const StrengthReport report = colour_strength(
        t, {StrengthMethod::FiniteElements, fem::LoadCase::PressureZ, kCoarse, 3}, job.run);
    const Vec3f neck = weakest_of(t, report).place;
    EXPECT_TRUE(std::abs(neck.x) < 9 && neck.z > 36) << neck.x << " " << neck.z;
}

TEST(Strength, TakesNoElementOfAnotherBucketAndSmoothsOnce) {
    // A mean extent of 100 from 0 on: analysed as it is. A long one makes places share a bucket.
    for (const Vec3f size : {Vec3f{100, 60, 140}, Vec3f{40, 24, 236}}) {
        Job job;
        TriMesh mesh = shapes::mesh_of(shapes::box({0, 0, 0}, size));
        const fem::EnergyField fem =
            fem::analyse(mesh, {.voxel_size = 5, .load = fem::LoadCase::CentreTop}, job.run);
        const StrengthReport report = colour_strength(
            mesh, {StrengthMethod::FiniteElements, fem::LoadCase::CentreTop, kCoarse, 5}, job.run);
        const auto key = [](Vec3f p) {
            return (static_cast<int>(p.z / 10) * 11 + static_cast<int>(p.y / 10)) * 11 +
                   static_cast<int>(p.x / 10);
        };
        std::map<int, std::vector<std::size_t>> buckets;
        for (std::size_t i = 0; i < fem.centres.size(); ++i) {
            buckets[key(fem.centres[i])].push_back(i);
        }
        std::vector<float> values(mesh.vertices.size());
        for (std::size_t v = 0; v < values.size(); ++v) {
            const Vec3f p = mesh.vertices[v].position();
            float least = 1000000;
            for (const std::size_t i : buckets[key(p)]) {
                const Vec3f off = fem.centres[i] - p;
                if (dot(off, off) >= least) continue;
                least = dot(off, off);
                values[v] = fem.values[i];
            }
        }
        std::vector<float> sums(values.size());
        std::vector<float> counts(values.size());
        for (const Face& face : mesh.faces) {
            for (std::size_t c = 0; c < 3; ++c) {
                const auto v = static_cast<std::size_t>(face.vertex[c]);
                sums[v] += values[static_cast<std::size_t>(face.vertex[(c + 1) % 3])];
                ++counts[v];
            }
        }
        for (std::size_t v = 0; v < values.size(); ++v) {
            ASSERT_FLOAT_EQ(report.values[v], sums[v] / counts[v]);
        }
        EXPECT_EQ(report.voxel_size, 5);
        EXPECT_GT(report.highest, report.lowest);
    }
}

TEST(Strength, ShowsAPersonMoreThanThePeak) {
    Job job;
    SoupVector soup = shapes::box({0, 0, 0}, {4, 4, 12});  // the foot of a wide plate
    shapes::append(soup, shapes::box({-20, -20, 11}, {24, 24, 18}));
    for (const StrengthRules rules : {StrengthRules::Hosts, StrengthRules::Person}) {
        TriMesh mesh = shapes::mesh_of(soup);
        const StrengthReport report =
            colour_strength(mesh, {.edge_length = 2, .rules = rules}, job.run);
        double beyond_green = 0;
        for (const Face& face : mesh.faces) beyond_green += face.colour[0] > 100 ? 1 : 0;
        const double share = beyond_green / static_cast<double>(mesh.faces.size());
        if (rules == StrengthRules::Hosts) {
            EXPECT_FALSE(report.is_scale_by_quantiles);
            EXPECT_LT(share, 0.07);
        } else {
            EXPECT_NEAR(share, 0.1, 0.02);
            EXPECT_LT(report.steps_of_scale[0], 0.1F * report.steps_of_scale[3]);
        }
    }
    // Where all is nearly equal there is nothing to tell.
    TriMesh tower = shapes::mesh_of(shapes::box({0, 0, 0}, {20, 20, 2}));
    StrengthOptions even{.edge_length = 5, .rules = StrengthRules::Person};
    even.method = StrengthMethod::Sections;
    EXPECT_FALSE(colour_strength(tower, even, job.run).is_scale_by_quantiles);
}

TEST(Strength, ShowsAPersonNoSeamsAndNoUnheldStrength) {
    Job job;
    StrengthOptions options{.edge_length = kCoarse, .rules = StrengthRules::Person};
    SoupVector soup = shapes::box({0, 0, 0}, {18, 20, 22});
    TriMesh box = shapes::mesh_of(soup);
    const StrengthReport pressed = colour_strength(box, options, job.run);
    EXPECT_TRUE(pressed.is_converged && pressed.loose_bodies == 0);
    // Half way up, all sides bear the same.
    float least = 1;
    float most = 0;
    for (std::size_t v = 0; v < box.vertices.size(); ++v) {
        const Vec3f p = box.vertices[v].position();
        const bool is_mid = std::min({p.x, 18 - p.x, p.y, 20 - p.y}) < 1e-3F &&
                            std::abs(p.x - 9) < 6 && p.z > 14 && p.z < 20;
        if (!is_mid) continue;
        least = std::min(least, pressed.values[v]);
        most = std::max(most, pressed.values[v]);
    }
    EXPECT_GT(least, 0.75F * most);

    shapes::append(soup, shapes::box({40, 0, 5}, {58, 20, 27}));  // hangs in the air
    TriMesh two = shapes::mesh_of(soup);
    const StrengthReport report = colour_strength(two, options, job.run);
    EXPECT_EQ(report.loose_bodies, 1U);
    EXPECT_NEAR(report.loose_share, 0.5, 0.02);
    for (const Face& face : two.faces) {
        const bool is_loose = two.corner_position(face, 0).x > 30;
        const bool is_grey = face.colour[0] == face.colour[1] && face.colour[1] == face.colour[2];
        EXPECT_EQ(is_grey, is_loose);
    }
}

TEST(Strength, MakesNoTriangleThatCoordinatesCannotHold) {
    for (const float offset : {1e5F, 3e6F}) {
        SoupVector soup = shapes::box({0, 0, 0}, {8, 10, 12});
        shapes::move(soup, {offset, offset, offset});
        TriMesh mesh = shapes::mesh_of(soup);
        Job job;
        const StrengthReport report = colour_strength(mesh, {.edge_length = 2}, job.run);
        EXPECT_EQ(report.values.size(), mesh.vertices.size());
        EXPECT_GE(mesh.faces.size(), 12U);
        for (const Face& face : mesh.faces) {
            const auto at = [&](std::size_t c) { return mesh.corner_position(face, c); };
            EXPECT_FALSE(at(0) == at(1) || at(1) == at(2) || at(2) == at(0));
        }
    }
}

TEST(Strength, ScaleStaysWithinBlueAndRed) {
    using testing::ElementsAre;
    EXPECT_THAT(strength_colour(0), ElementsAre(100, 100, 255));
    EXPECT_THAT(strength_colour(0.5 / 11), ElementsAre(100, 177, 255));
    EXPECT_THAT(strength_colour(4.5 / 11), ElementsAre(255, 213, 100));
    EXPECT_THAT(strength_colour(1), ElementsAre(255, 100, 100));
    for (const double t : {-1.0, std::nan("")}) {
        EXPECT_THAT(strength_colour(t), ElementsAre(100, 100, 255));
    }
    EXPECT_THAT(strength_colour(1e300), ElementsAre(255, 100, 100));
}

TEST(Strength, MovesNoCornerAndNoColourWithThreads) {
    SoupVector soup = shapes::box({1000.1F, -7.3F, 0.7F}, {1013.7F, 4.9F, 9.1F});
    const TriMesh before = shapes::mesh_of(soup);
    TriMesh mesh = before;
    Job job;
    const StrengthOptions options{.edge_length = kCoarse, .voxel_size = 5};
    colour_strength(mesh, options, job.run);
    EXPECT_GT(mesh.faces.size(), 1000U);
    for (const Vertex& corner : before.vertices) {
        EXPECT_TRUE(std::any_of(mesh.vertices.begin(), mesh.vertices.end(), [&](const Vertex& v) {
            return v.position() == corner.position();
        }));
    }
    // The same bits on one thread.
    TriMesh again = before;
    const OneThread alone;
    const StrengthReport report = colour_strength(again, options, job.run);
    ASSERT_EQ(again.faces.size(), mesh.faces.size());
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        EXPECT_EQ(again.faces[f].colour, mesh.faces[f].colour);
    }
    EXPECT_EQ(report.values.size(), mesh.vertices.size());
}

TEST(Strength, PaintsWhatCannotBeAnalysedAsStrong) {
    Job job;
    TriMesh empty;
    EXPECT_FALSE(colour_strength(empty, {}, job.run).is_analysed);
    TriMesh mesh = shapes::mesh_of(shapes::box({0, 0, 0}, {1, 1, 1}));
    colour_strength(mesh, {StrengthMethod{5}, fem::LoadCase::PressureZ, kCoarse, 5}, job.run);
    EXPECT_EQ(mesh.faces[0].colour[2], 255);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const float bad : {nan, std::numeric_limits<float>::infinity(), 3e38F}) {
        for (const auto method : {StrengthMethod::Sections, StrengthMethod::FiniteElements}) {
            SoupVector soup = shapes::box({0, 0, 0}, {1, 1, 1});
            soup[10] = bad;
            mesh = shapes::mesh_of(soup);
            colour_strength(mesh, {method, fem::LoadCase::PressureZ, kCoarse, 5}, job.run);
        }
    }
}

}  // namespace
}  // namespace povmesh
