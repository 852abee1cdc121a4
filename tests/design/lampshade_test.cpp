// Lampshades: openings of known bodies, walls measured from outside, the outside, the preview.
#include "design/lampshade.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <numbers>
#include <string>
#include <vector>

#include "base/parallel.h"
#include "cut/solids.h"
#include "design/wall_gauge.h"
#include "helpers/job.h"
#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "io/stl.h"
#include "mesh/volume.h"
#include "spatial/nearest_face.h"
#include "spatial/self_intersection.h"

namespace povmesh {
namespace {

using shapes::SoupVector;
using testing::HasSubstr;

constexpr double kPi = std::numbers::pi;

// Cells whose borders along x lie elsewhere.
SoupVector stretched(SoupVector soup, const std::vector<float>& xs, float side) {
    for (std::size_t i = 0; i < soup.size(); i += 3) {
        soup[i] = xs[static_cast<std::size_t>(soup[i])];
        soup[i + 1] *= side;
        soup[i + 2] *= side;
    }
    return soup;
}

// Two legs and what joins them, upright.
SoupVector gate(const std::vector<float>& xs) {
    return stretched(solids::cells({3, 2, 3}, {1, 0, 1, 1, 0, 1, 1, 0, 1,  //
                                               1, 0, 1, 1, 1, 1, 1, 1, 1}),
                     xs, 10);
}

// A cone without its tip, of many sides.
SoupVector frustum(float low, float high, float height) {
    constexpr int kSides = 96;
    SoupVector soup;
    const auto push = [&](int i, float radius, float z) {
        const double angle = 2 * kPi * (i % kSides) / kSides;
        soup.insert(soup.end(), {radius * static_cast<float>(std::cos(angle)),
                                 radius * static_cast<float>(std::sin(angle)), z});
    };
    const auto push_middle = [&](float z) { soup.insert(soup.end(), {0, 0, z}); };
    for (int i = 0; i < kSides; ++i) {
        push(i, low, 0), push(i + 1, low, 0), push(i + 1, high, height);
        push(i, low, 0), push(i + 1, high, height), push(i, high, height);
        push_middle(0), push(i + 1, low, 0), push(i, low, 0);
        push_middle(height), push(i, high, height), push(i + 1, high, height);
    }
    return soup;
}

using FaceBits = std::array<float, 19>;
FaceBits bits_of(const TriMesh& mesh, const Face& face) {
    FaceBits bits{};
    std::size_t i = 0;
    for (std::size_t c = 0; c < 3; ++c) {
        const Vec3f p = mesh.corner_position(face, c);
        for (const float x : {p.x, p.y, p.z}) bits[i++] = x;
    }
    for (const std::uint8_t colour : face.colour) bits[i++] = colour;
    bits[i] = face.label;
    return bits;
}

// The faces of the model that no opening takes away are there once, bit for bit, and no others but
// parts of those that a level cuts.
void expect_outside(const TriMesh& model, const TriMesh& shade, const LampshadeReport& report) {
    std::map<FaceBits, int> count;
    for (const Face& face : model.faces) ++count[bits_of(model, face)];
    const auto is_level = [&](float z) {
        return std::any_of(report.shades.begin(), report.shades.end(), [&](const auto& s) {
            const double near = 1e-4 * (s.high - s.low);
            return std::abs(s.bottom.level - z) <= near ||
                   (s.top && std::abs(s.top->level - z) <= near);
        });
    };
    for (std::size_t f = 0; f < report.outside_faces; ++f) {
        const Face& face = shade.faces[f];
        const FaceBits bits = bits_of(shade, face);
        if (--count[bits] >= 0) continue;
        EXPECT_TRUE(is_level(bits[2]) || is_level(bits[5]) || is_level(bits[8])) << f;
    }
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (const LampshadeShade& s : report.shades) {
        low = std::min(low, s.bottom.level);
        high = std::max(high, s.top ? s.top->level : s.high);
    }
    // Of faces between all levels none may be missing; of models with levels of their own that is
    // left to the volumes.
    if (report.shades.size() != 1 || report.models != 1) return;
    for (const Face& face : model.faces) {
        const FaceBits bits = bits_of(model, face);
        const auto [least, most] = std::minmax({bits[2], bits[5], bits[8]});
        const double near = 1e-4 * (high - low);
        const bool is_between =
            least >= low && most <= high && most > low + near && least < high - near;
        if (is_between) {
            EXPECT_LE(count[bits], 0) << least;
        }
    }
}

// The inner wall's distances from the model without its flat ends, in small pieces.
void expect_even(const TriMesh& model, const TriMesh& shade, const LampshadeReport& report,
                 double thickness) {
    TriMesh surface = model;
    for (Face& face : surface.faces) {
        for (const LampshadeShade& s : report.shades) {
            const auto lies_at = [&](const LampshadeOpening& opening) {
                if (opening.is_cut) return false;
                bool lies = true;
                for (std::size_t c = 0; c < 3; ++c) {
                    const double z = double{surface.corner_position(face, c).z};
                    lies = lies && std::abs(z - opening.level) <= 1e-4 * (s.high - s.low);
                }
                return lies;
            };
            if (lies_at(s.bottom) || (s.top && lies_at(*s.top))) face.deleted = 1;
        }
    }
    TriMesh inner;
    inner.vertices = shade.vertices;
    const auto first = shade.faces.begin() + static_cast<std::ptrdiff_t>(report.outside_faces);
    inner.faces.assign(first, first + static_cast<std::ptrdiff_t>(report.inner_faces));
    EXPECT_GE(WallGauge(surface).least_distance(inner), 0.97 * thickness);
    const NearestFace nearest(surface);
    double area = 0;
    double sum = 0;
    double uneven = 0;
    for (const Face& face : inner.faces) {
        EXPECT_EQ(face.label, -1);
        const Vec3d a = to_double(inner.corner_position(face, 0));
        const Vec3d b = to_double(inner.corner_position(face, 1)) - a;
        const Vec3d c = to_double(inner.corner_position(face, 2)) - a;
        constexpr int kParts = 4;
        for (int i = 0; i < kParts; ++i) {
            for (int j = 0; j < kParts - i; ++j) {
                const Vec3d p = a + b * ((i + 1.0 / 3) / kParts) + c * ((j + 1.0 / 3) / kParts);
                const double share = length(cross(b, c));
                const double wall = std::sqrt(nearest.find(p).squared_distance);
                area += share;
                sum += share * wall;
                uneven += std::abs(wall - thickness) > 0.06 * thickness ? share : 0;
            }
        }
    }
    EXPECT_NEAR(sum / area, thickness, 0.02 * thickness);
    EXPECT_LE(uneven / area, 0.01);
    EXPECT_NEAR(report.mean_wall, sum / area, 0.005 * thickness);
}

struct Made {
    TriMesh mesh;
    LampshadeReport report;
};

// A shade that keeps what is promised.
Made shade_of(const TriMesh& model, double thickness, LampshadeOptions options = {}) {
    Made made{model, {}};
    Job job;
    options.measures = true;
    made.report = lampshade(made.mesh, static_cast<float>(thickness), job.run, options);
    EXPECT_EQ(made.report.status, LampshadeStatus::Made) << made.report.why.text();
    if (made.report.status != LampshadeStatus::Made) return made;
    EXPECT_TRUE(reference::is_closed_manifold(reference::rebuilt(reference::exported(made.mesh))));
    EXPECT_EQ(find_self_intersections(made.mesh, 0).count, 0U);
    expect_outside(model, made.mesh, made.report);
    expect_even(model, made.mesh, made.report, thickness);
    return made;
}

TEST(Lampshade, OpensElsewhereThanTheBodyTells) {
    const Made cube = shade_of(shapes::mesh_of(shapes::box({0, 0, 0}, {40, 40, 40})), 2);
    EXPECT_NEAR(volume(cube.mesh), 64000 - 36 * 36 * 40, 1);
    EXPECT_LT(cube.mesh.faces.size(), 200U);  // flat walls
    ASSERT_EQ(cube.report.shades.size(), 1U);
    EXPECT_NEAR(cube.report.shades[0].bottom.radius, 18, 0.02);
    ASSERT_TRUE(cube.report.shades[0].top);
    EXPECT_NEAR(cube.report.shades[0].top->area, 36 * 36, 0.1);

    const TriMesh box = shapes::mesh_of(shapes::box({0, 0, 0}, {40, 40, 40}));
    const Made roofed = shade_of(box, 2, {.top = LampshadeTop::Closed});
    EXPECT_FALSE(roofed.report.shades[0].top);
    EXPECT_NEAR(volume(roofed.mesh), 64000 - 36 * 36 * 38, 2);
    EXPECT_NEAR(roofed.report.ceiling_area, 36 * 36, 1);
    const Made cut = shade_of(box, 2, {.bottom = 10, .top_level = 30});
    EXPECT_NEAR(volume(cut.mesh), (1600 - 1296) * 20, 1);

    // Where a level circle of the inside has half its radius.
    const Made ball = shade_of(shapes::mesh_of(shapes::sphere(50, 4)), 3);
    const LampshadeOpening& foot = ball.report.shades[0].bottom;
    EXPECT_NEAR(foot.level, -47 * std::sqrt(0.75), 0.1);
    EXPECT_TRUE(foot.is_cut);
    EXPECT_NEAR(foot.area, kPi * 47 * 47 / 4, 0.03 * 1735);
    EXPECT_NEAR(foot.radius, 23.5, 0.3);
    EXPECT_FALSE(ball.report.shades[0].top);
    const Made ring =
        shade_of(shapes::mesh_of(shapes::sphere(50, 4)), 3, {.top = LampshadeTop::Open});
    ASSERT_TRUE(ring.report.shades[0].top);
    EXPECT_NEAR(ring.report.shades[0].top->level, -foot.level, 0.15);

    // A narrow top stays shut, and its roof is as thick as the wall.
    const Made cone = shade_of(shapes::mesh_of(frustum(30, 12, 40)), 2);
    EXPECT_FALSE(cone.report.shades[0].top);
    EXPECT_FALSE(cone.report.shades[0].bottom.is_cut);
    const Made tube = shade_of(shapes::mesh_of(frustum(30, 20, 40)), 2);
    EXPECT_TRUE(tube.report.shades[0].top);
}

TEST(Lampshade, ClosesForksOrOpensLegsWithoutRoom) {
    const Made wide = shade_of(shapes::mesh_of(gate({0, 10, 20, 30})), 1);
    EXPECT_FALSE(wide.report.shades[0].bottom.is_cut);
    EXPECT_NEAR(wide.report.shades[0].bottom.area, 2 * 8 * 18, 0.5);
    const Made narrow = shade_of(shapes::mesh_of(gate({0, 10, 20, 22})), 1);
    EXPECT_NEAR(narrow.report.shades[0].bottom.area, 8 * 18, 0.5);
    Job job;
    TriMesh mesh = shapes::mesh_of(gate({0, 10, 20, 22}));
    const LampshadeReport report = lampshade(mesh, 1, job.run, {.bottom = 25});
    EXPECT_EQ(report.shades.size(), 1U);
    EXPECT_THAT(job.text, HasSubstr("[Caution] the lowest 25.000000 of the model are cut away\n"));
}

TEST(Lampshade, MixesBodiesUp) {
    SoupVector soup = shapes::sphere(12, 4);
    SoupVector thin = shapes::box({30, 0, 0}, {33, 20, 20});
    SoupVector box = shapes::box({40, 0, -20}, {60, 20, 0});
    SoupVector hole = shapes::turned(shapes::sphere(3, 3));
    shapes::move(hole, {50, 10, -10});
    shapes::append(soup, thin);
    shapes::append(soup, box);
    shapes::append(soup, hole);
    TriMesh model = shapes::mesh_of(soup);
    for (std::size_t f = 0; f < model.faces.size(); ++f) {
        model.faces[f].label = static_cast<std::int16_t>(f % 7) - 4;
        model.faces[f].colour.fill(static_cast<std::uint8_t>(f < 5120 ? 200 : 40));
    }
    const Made made = shade_of(model, 2);
    EXPECT_EQ(made.report.models, 3U);
    ASSERT_EQ(made.report.shades.size(), 2U);
    EXPECT_TRUE(made.report.shades[0].bottom.is_cut);
    EXPECT_FALSE(made.report.shades[1].bottom.is_cut);
    EXPECT_EQ(made.report.loose_pieces, 1U);
    // Inner walls and rims have the colours of their own models' rims.
    std::array<std::size_t, 256> colours{};
    for (std::size_t f = made.report.outside_faces; f < made.mesh.faces.size(); ++f) {
        ++colours[made.mesh.faces[f].colour[4]];
    }
    EXPECT_GT(colours[200], 1000U);
    EXPECT_GT(colours[40], 20U);
    EXPECT_EQ(colours[200] + colours[40], made.mesh.faces.size() - made.report.outside_faces);

    // Where bodies overlap the inside of one lies in the other: it stays solid.
    SoupVector two = shapes::box({0, 0, 0}, {20, 20, 20});
    shapes::append(two, shapes::box({10, 2, 0}, {40, 18, 20}));
    TriMesh crossing = shapes::mesh_of(two);
    Job job;
    const double before = volume(crossing);
    const LampshadeReport report = lampshade(crossing, 1, job.run);
    EXPECT_EQ(report.status, LampshadeStatus::Made);
    EXPECT_EQ(report.overlapped_pieces, 1U);
    EXPECT_LT(volume(crossing), before - 4000);
}

// An independent area: what the loops enclose with the inside on the left.
double enclosed(const LampshadeContours& contours, float level) {
    double area = 0;
    std::size_t first = 0;
    for (std::size_t l = 0; l < contours.sizes.size(); first += contours.sizes[l++]) {
        for (std::size_t i = 0; contours.levels[l] == level && i < contours.sizes[l]; ++i) {
            const Vec3f a = contours.points[first + i];
            const Vec3f b = contours.points[first + (i + 1) % contours.sizes[l]];
            area += (double{a.x} * double{b.y} - double{b.x} * double{a.y}) / 2;
        }
    }
    return area;
}

TEST(Lampshade, PreviewLeavesTheInnerWall) {
    for (const SoupVector& soup :
         {shapes::rock(10, 4), shapes::box({0, 0, 0}, {10, 10, 10}), gate({0, 10, 20, 22})}) {
        const TriMesh model = shapes::mesh_of(soup);
        const Made made = shade_of(model, 1.5);
        Job job;
        LampshadeContours contours;
        const LampshadeReport report = preview_lampshade(model, 1.5F, job.run, contours);
        ASSERT_EQ(report.status, LampshadeStatus::Made);
        EXPECT_THAT(job.text, HasSubstr("\n---start executing lampshade preview---"));
        TriMesh inner;
        inner.vertices = made.mesh.vertices;
        inner.faces.assign(
            made.mesh.faces.begin() + static_cast<std::ptrdiff_t>(made.report.outside_faces),
            made.mesh.faces.begin() +
                static_cast<std::ptrdiff_t>(made.report.outside_faces + made.report.inner_faces));
        const NearestFace nearest(inner);
        for (const Vec3f p : contours.points) {
            EXPECT_LT(std::sqrt(nearest.find(to_double(p)).squared_distance), report.cell / 4);
        }
        std::vector<float> levels(contours.levels.begin(), contours.levels.end());
        EXPECT_TRUE(std::is_sorted(levels.begin(), levels.end()));
        levels.erase(std::unique(levels.begin(), levels.end()), levels.end());
        const LampshadeShade& shade = made.report.shades[0];
        EXPECT_EQ(levels.size(), shade.top ? 66U : 65U);
        EXPECT_EQ(levels.front(), static_cast<float>(shade.bottom.level));
        EXPECT_NEAR(enclosed(contours, levels.front()), shade.bottom.area,
                    2e-3 * shade.bottom.area);
    }
}

TEST(Lampshade, ChangesWhatIsTooThinOrNoModel) {
    constexpr float kInf = std::numeric_limits<float>::infinity();
    SoupVector spoilt = shapes::box({0, 0, 0}, {20, 20, 20});
    spoilt[4] = std::numeric_limits<float>::quiet_NaN();
    SoupVector open = shapes::box({0, 0, 0}, {20, 20, 20});
    open.resize(open.size() - 9);
    SoupVector crowd;
    for (int i = 0; i < 10000; ++i) {
        SoupVector one = shapes::box({0, 0, 0}, {1, 1, 1});
        const int row = i / 100;
        shapes::move(one, {static_cast<float>(2 * (i % 100)), static_cast<float>(2 * row), 0});
        shapes::append(crowd, one);
    }
    SoupVector noise;
    shapes::Random random(3);
    for (int i = 0; i < 900000; ++i) noise.push_back(static_cast<float>(random.unit() * 50));
    SoupVector heap;
    for (int i = 0; i < 2000; ++i) {
        std::array<std::array<float, 2>, 3> sides;
        for (auto& [low, high] : sides) {
            low = static_cast<float>(random.unit() * 20);
            high = static_cast<float>(30 + random.unit() * 20);
        }
        shapes::append(heap, shapes::box({sides[0][0], sides[1][0], sides[2][0]},
                                         {sides[0][1], sides[1][1], sides[2][1]}));
    }
    const SoupVector box = shapes::box({0, 0, 0}, {20, 20, 20});
    const struct {
        const char* what;
        SoupVector soup;
        float thickness;
        LampshadeStatus status;
    } rows[] = {
        {"nothing", {}, 1, LampshadeStatus::NoModel},
        {"not a number", spoilt, 1, LampshadeStatus::NoModel},
        {"thickness 0", box, 0, LampshadeStatus::NoModel},
        {"thickness below 0", box, -1, LampshadeStatus::NoModel},
        {"thickness not a number", box, spoilt[4], LampshadeStatus::NoModel},
        {"thickness infinite", box, kInf, LampshadeStatus::NoModel},
        {"inside out", shapes::turned(box), 1, LampshadeStatus::NoModel},
        {"huge thickness", box, 3e38F, LampshadeStatus::Thin},
        {"no room", box, 10, LampshadeStatus::Thin},
        {"plate", shapes::box({0, 0, 0}, {40, 40, 3.9F}), 2, LampshadeStatus::Thin},
        {"tiny thickness", box, 1e-30F, LampshadeStatus::Failed},
        {"denormal", shapes::box({0, 0, 0}, {1e-40F, 1e-40F, 1e-40F}), 1e-42F,
         LampshadeStatus::Failed},
        {"huge", shapes::box({-1e38F, -1e38F, -1e38F}, {1e38F, 1e38F, 1e38F}), 1e37F,
         LampshadeStatus::Failed},
        {"open", open, 1, LampshadeStatus::Failed},
        {"fan", shapes::fan(100000, 5), 0.1F, LampshadeStatus::Failed},
        {"10,000 shells", crowd, 1, LampshadeStatus::Thin},
        {"noise", noise, 1, LampshadeStatus::NoModel},
        {"heap of boxes", heap, 1, LampshadeStatus::Failed},
    };
    for (const auto& row : rows) {
        const TriMesh model = shapes::mesh_of(row.soup);
        TriMesh mesh = model;
        Job job;
        const LampshadeReport report = lampshade(mesh, row.thickness, job.run);
        EXPECT_EQ(report.status, row.status) << row.what << ": " << report.why.text();
        EXPECT_EQ(reference::difference(mesh, model), "") << row.what;
        EXPECT_THAT(job.text, HasSubstr("\n---{failure} lampshade: ")) << row.what;
        LampshadeContours contours;
        Job other;
        EXPECT_EQ(preview_lampshade(model, row.thickness, other.run, contours).status, row.status)
            << row.what;
        EXPECT_TRUE(contours.points.empty() && contours.sizes.empty()) << row.what;
        if (row.status == LampshadeStatus::Thin) {
            EXPECT_THAT(other.text,
                        HasSubstr("\n---{failure} lampshade preview: thin object caution \n"));
        }
    }
}

TEST(Lampshade, DependsOnThreads) {
    const TriMesh model = shapes::mesh_of(shapes::rock(20, 4));
    Job job;
    TriMesh many = model;
    lampshade(many, 3, job.run);
    EXPECT_GT(many.faces.size(), model.faces.size());
    const OneThread alone;
    TriMesh one = model;
    lampshade(one, 3, job.run);
    EXPECT_EQ(reference::difference(many, one), "");
}

TEST(Lampshade, OfRealModelsHolds) {
    const char* folder = std::getenv("POVMESH_MODELS");
    if (folder == nullptr) GTEST_SKIP() << "POVMESH_MODELS is not set";
    RunLog log;
    RunContext run{{}, log};
    TriMesh cat;
    StlInfo info;
    ASSERT_TRUE(read_stl(std::string(folder) + "/cat.stl", {}, run, cat, info).ok());
    const Made shade = shade_of(cat, 1.2);
    EXPECT_GT(shade.report.shades[0].bottom.radius, 4);
    TriMesh gear;
    ASSERT_TRUE(read_stl(std::string(folder) + "/gearwheel.stl", {}, run, gear, info).ok());
    shade_of(gear, 1.5);
}

}  // namespace
}  // namespace povmesh
