// Decomposition: parts fit, are closed and add up to the model.
#include "decompose/decompose.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "base/job_state.h"
#include "cut/cut.h"
#include "decompose/least_parts.h"
#include "decompose/part_size.h"
#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "helpers/thorough.h"
#include "io/obj.h"
#include "io/stl.h"
#include "mesh/bounds.h"
#include "mesh/edge_mates.h"
#include "mesh/volume.h"

namespace povmesh {
namespace {

using shapes::mesh_of;
using shapes::SoupVector;

struct Divided {
    DecomposeReport report;
    std::vector<TriMesh> parts;
    std::string log;
};

// Few cells: many small models are to be divided in no time.
constexpr double kCells = 5e3;

Divided divide(TriMesh mesh, const DecomposeOptions& options) {
    Divided result;
    RunLog log([&](std::string_view text) { result.log += text; });
    RunContext run{{}, log};
    result.report = decompose(mesh, options, run);
    result.parts = std::move(mesh.parts);
    return result;
}

Divided divide(const SoupVector& soup, Vec3d size, DivisionMethod method) {
    return divide(mesh_of(soup), {.size = size, .method = method, .search_cells = kCells});
}

double axis(Vec3f v, int i) {
    return static_cast<double>(i == 0 ? v.x : i == 1 ? v.y : v.z);
}

bool fits(const TriMesh& part, Vec3d size) {
    const Vec3f extent = finite_bounds(part).extent();
    const std::array<double, 3> limits = {size.x, size.y, size.z};
    for (int i = 0; i < 3; ++i) {
        const double limit = limits[static_cast<std::size_t>(i)];
        if (limit > 0 && axis(extent, i) > limit * (1 + 1e-4)) return false;
    }
    return true;
}

bool is_closed(TriMesh mesh) {
    const EdgeMates mates(mesh);
    for (std::size_t i = 0; i < 3 * mesh.faces.size(); ++i) {
        if (mates.kind(i / 3, i % 3) == EdgeMates::Kind::Open) return false;
    }
    return true;
}

// Random solids of several bodies, which may cross, some with a cavity.
struct RandomModel {
    SoupVector soup;
    std::vector<Box3f> boxes;  // of its bodies

    bool is_apart() const {
        for (std::size_t i = 0; i < boxes.size(); ++i) {
            for (std::size_t k = 0; k < i; ++k) {
                const Box3f& a = boxes[i];
                const Box3f& b = boxes[k];
                if (a.low.x <= b.high.x && b.low.x <= a.high.x && a.low.y <= b.high.y &&
                    b.low.y <= a.high.y && a.low.z <= b.high.z && b.low.z <= a.high.z) {
                    return false;
                }
            }
        }
        return true;
    }
};

RandomModel random_model(shapes::Random& random, std::size_t bodies) {
    RandomModel model;
    for (std::size_t i = 0; i < bodies; ++i) {
        const auto radius = static_cast<float>(5 + 20 * random.unit());
        SoupVector body = shapes::sphere(radius, 1);
        switch (random.below(4)) {
            case 0:
                break;
            case 1:
                body = shapes::rock(radius, 2);
                break;
            case 2:
                body = shapes::box({-5, -2, -30}, {8, 3, 30});
                break;
            default:
                shapes::append(body, shapes::turned(shapes::sphere(radius * 0.7F, 1)));
        }
        shapes::move(
            body, {static_cast<float>(100 * random.unit()), static_cast<float>(80 * random.unit()),
                   static_cast<float>(60 * random.unit())});
        model.boxes.push_back(finite_bounds(mesh_of(body)));
        shapes::append(model.soup, body);
    }
    return model;
}

// Takes out faces, turns some over, and puts in some anywhere.
void damage(shapes::Random& random, SoupVector& soup) {
    for (std::size_t i = 1 + random.below(4); i > 0; --i) {
        const std::size_t face = 9 * random.below(soup.size() / 9);
        const std::uint64_t kind = random.below(3);
        if (kind == 0 && soup.size() > 18) {
            soup.erase(soup.begin() + static_cast<std::ptrdiff_t>(face),
                       soup.begin() + static_cast<std::ptrdiff_t>(face + 9));
        } else if (kind == 1) {
            for (std::size_t k = 0; k < 3; ++k) std::swap(soup[face + k], soup[face + 3 + k]);
        } else {
            for (int k = 0; k < 9; ++k) soup.push_back(static_cast<float>(60 * random.unit()));
        }
    }
}

Vec3d random_size(shapes::Random& random) {
    return {6 + 30 * random.unit(), 6 + 30 * random.unit(),
            random.below(3) == 0 ? 0 : 6 + 30 * random.unit()};
}

void expect_sound_parts(const RandomModel& model, const Divided& divided) {
    const TriMesh whole = mesh_of(model.soup);
    double sum = 0;
    for (const TriMesh& part : divided.parts) {
        EXPECT_TRUE(is_closed(part));
        // Bodies that cross may share an edge where cuts meet.
        EXPECT_TRUE(!model.is_apart() || reference::is_closed_manifold(part));
        EXPECT_GT(signed_volume(part), 0);
        sum += signed_volume(part);
    }
    EXPECT_NEAR(sum, signed_volume(whole), 1e-5 * signed_volume(whole));
    EXPECT_EQ(divided.report.too_large, 0U);
}

TEST(Decompose, PartsFitAreClosedAndAddUpOrTheLogSaysSo) {
    shapes::Random random(11);
    for (int trial = 0; trial < test::trials(1000); ++trial) {
        SCOPED_TRACE(trial);
        const std::size_t bodies = random.below(16) == 0 ? 12 : 1 + random.below(3);
        RandomModel model = random_model(random, bodies);
        const Vec3d size = random_size(random);
        const bool is_damaged = trial % 3 == 0;
        if (is_damaged) damage(random, model.soup);
        const auto method = trial % 2 == 0 ? DivisionMethod::Automatic : DivisionMethod::Uniform;
        const Divided divided = divide(model.soup, size, method);
        if (!is_damaged) expect_sound_parts(model, divided);
        std::size_t too_large = 0;
        for (const TriMesh& part : divided.parts) too_large += fits(part, size) ? 0 : 1;
        EXPECT_EQ(too_large, divided.report.too_large);
        EXPECT_EQ(divided.log.find("do not fit") != std::string::npos, too_large != 0);
        EXPECT_LE(divided.parts.size(), divided.report.uniform_parts);
        // What cannot be made to fit may be fewer than would be needed.
        EXPECT_TRUE(too_large != 0 || divided.parts.size() >= divided.report.least_parts);
    }
}

// What a host does with the planes of a preview.
void replay(TriMesh piece, Vec3d size, const std::vector<DividingPlane>& planes, std::size_t& next,
            std::vector<TriMesh>& parts) {
    const Vec3f extent = finite_bounds(piece).extent();
    const double tolerance = 1 + 5e-5;
    if (axis(extent, 0) <= size.x * tolerance && axis(extent, 1) <= size.y * tolerance &&
        axis(extent, 2) <= size.z * tolerance) {
        parts.push_back(std::move(piece));
        return;
    }
    ASSERT_LT(next, planes.size());
    const DividingPlane plane = planes[next++];
    const auto number = [&](double x) {
        return Vec3d{plane.axis == 0 ? x : 0, plane.axis == 1 ? x : 0, plane.axis == 2 ? x : 0};
    };
    CutOptions options;
    options.operation = CutOperation::CutAndCap;
    options.plane = {.normal = number(1),
                     .direction = plane.axis == 0 ? Vec3d{0, 1, 0} : Vec3d{1, 0, 0},
                     .point = number(static_cast<double>(plane.offset))};
    options.keep_cavities = true;
    options.on_level = 1e-5 * std::min({size.x, size.y, size.z});
    std::vector<TriMesh> pieces;
    ASSERT_TRUE(cut_model(piece, options, pieces));
    for (TriMesh& part : pieces) replay(std::move(part), size, planes, next, parts);
}

TEST(Decompose, ThePlanesAloneTellThePartsOfTheSearch) {
    shapes::Random random(4);
    for (int trial = 0; trial < 6; ++trial) {
        SoupVector soup = shapes::rock(20, 3);
        for (std::size_t i = 0; i < soup.size(); i += 3) soup[i] += 15 * std::sin(soup[i + 2] / 5);
        const Vec3d size{8 + 10 * random.unit(), 8 + 10 * random.unit(), 8 + 20 * random.unit()};
        const Divided divided = divide(soup, size, DivisionMethod::Automatic);
        std::vector<TriMesh> parts;
        std::size_t next = 0;
        replay(mesh_of(soup), size, divided.report.planes, next, parts);
        EXPECT_EQ(next, divided.report.planes.size());
        ASSERT_EQ(parts.size(), divided.parts.size());
        for (std::size_t i = 0; i < parts.size(); ++i) {
            EXPECT_EQ(finite_bounds(parts[i]).low, finite_bounds(divided.parts[i]).low) << i;
            EXPECT_EQ(finite_bounds(parts[i]).high, finite_bounds(divided.parts[i]).high) << i;
            EXPECT_EQ(volume(parts[i]), volume(divided.parts[i])) << i;
        }
    }
}

// A bound that is too high would be a lie, and one that is far too low of no use.
TEST(Decompose, KnowsHowManyPartsThereMustBe) {
    SoupVector corner = shapes::box({0, 0, 0}, {190, 10, 10});
    shapes::append(corner, shapes::box({0, 0, 0}, {10, 190, 10}));
    const SoupVector plate = shapes::box({0, 0, 0}, {300, 300, 10});
    const SoupVector cube = shapes::box({0, 0, 0}, {200, 200, 200});
    struct Case {
        const SoupVector& soup;
        Vec3d size;
        bool may_turn;
        std::size_t least;
    };
    const std::vector<Case> cases = {
        {cube, {100, 100, 100}, false, 8},  // a corner each
        {cube, {100, 100, 0}, false, 4},   {cube, {200, 200, 200}, false, 1},
        {cube, {201, 199, 199}, false, 4}, {plate, {100, 100, 100}, false, 9},
        {plate, {10, 300, 100}, true, 3},  {corner, {100, 100, 100}, false, 3}};
    for (const Case& c : cases) {
        std::size_t effort = kLeastPartsEffort;
        EXPECT_EQ(least_parts(mesh_of(c.soup), PartSize(c.size, c.may_turn), effort), c.least);
        std::size_t none = 0;
        EXPECT_LE(least_parts(mesh_of(c.soup), PartSize(c.size, c.may_turn), none), 2U);
    }
}

// Beside the model: both halves, and those of one of them. A second pair of halves, or the tables
// that a cut is made with, would be seen.
TEST(Decompose, HoldsLittleBesideTheModel) {
    const TriMesh rock = mesh_of(shapes::rock(50, 6));
    const auto bytes = static_cast<double>(rock.faces.size() * sizeof(Face) +
                                           rock.vertices.size() * sizeof(Vertex));
    const Vec3d half = to_double(finite_bounds(rock).extent()) * 0.5;
    for (const auto& [method, most] :
         {std::pair{DivisionMethod::Uniform, 1.4}, std::pair{DivisionMethod::Automatic, 1.8}}) {
        JobSettings settings;
        settings.has_own_workers = false;
        JobState job(settings);
        TriMesh mesh = rock;
        {
            const JobScope scope(&job);
            RunLog log;
            RunContext run{{}, log};
            decompose(mesh, {.size = half, .method = method, .search_cells = kCells}, run);
        }
        EXPECT_EQ(mesh.parts.size(), 8U);
        EXPECT_LT(static_cast<double>(job.peak_bytes()), most * bytes);
    }
}

TEST(Decompose, FindsFewerPartsThanEqualSlabs) {
    SoupVector bars = shapes::box({-90, -10, -10}, {90, 10, 10});
    shapes::append(bars, shapes::box({-10, -90, -10}, {10, 90, 10}));
    shapes::append(bars, shapes::box({-10, -10, -90}, {10, 10, 90}));
    const Divided found = divide(bars, {130, 130, 130}, DivisionMethod::Automatic);
    // A bar cut off on one side of the middle leaves 100 of 180.
    EXPECT_EQ(found.report.uniform_parts, 8U);
    EXPECT_LE(found.parts.size(), 4U);
}

TEST(Decompose, DividesABoxIntoEqualSlabsInOrder) {
    const SoupVector box = shapes::box({0, 0, 0}, {200, 100, 90});
    const Divided divided = divide(box, {100, 100, 45}, DivisionMethod::Uniform);
    ASSERT_EQ(divided.parts.size(), 4U);
    const std::vector<DividingPlane> planes = {{2, 45}, {0, 100}};
    EXPECT_EQ(divided.report.planes, planes);
    EXPECT_EQ(divided.report.cuts, 3U);
    EXPECT_NEAR(divided.report.cut_area, 200 * 100 + 100 * 90, 1);
    const std::array<Vec3f, 4> corners = {{{0, 0, 0}, {100, 0, 0}, {0, 0, 45}, {100, 0, 45}}};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(finite_bounds(divided.parts[i]).low, corners[i]) << i;
        EXPECT_NEAR(volume(divided.parts[i]), 100 * 100 * 45, 1) << i;
    }
    // A part at the limit is none too large, and one beyond it by less than is seen neither.
    EXPECT_EQ(divide(box, {199.995, 100, 90}, DivisionMethod::Uniform).parts.size(), 1U);
    EXPECT_EQ(divide(box, {199.9, 100, 90}, DivisionMethod::Uniform).parts.size(), 2U);
}

TEST(Decompose, KeepsWhatFitsAndWhatCannotBeDivided) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    SoupVector box = shapes::box({0, 0, 0}, {20, 20, 20});
    const double none = std::numeric_limits<double>::infinity();
    for (const Vec3d size : {Vec3d{20, 20, 20}, Vec3d{}, Vec3d{-1, none, std::nan("")}}) {
        for (const DivisionMethod method : {DivisionMethod::Uniform, DivisionMethod::Automatic}) {
            const Divided same = divide(box, size, method);
            ASSERT_EQ(same.parts.size(), 1U);
            EXPECT_EQ(same.parts[0].faces.size(), 12U);
            EXPECT_EQ(volume(same.parts[0]), 8000);
            EXPECT_TRUE(same.report.planes.empty());
        }
    }
    const Divided many = divide(box, {0.1, 0.1, 0.1}, DivisionMethod::Automatic);
    EXPECT_EQ(many.parts.size(), 1U);
    EXPECT_EQ(many.report.too_large, 1U);
    EXPECT_NE(many.log.find("\n---{failure} decomposition: too many parts\n"), std::string::npos);
    box[4] = nan;
    const Divided odd = divide(box, {10, 10, 10}, DivisionMethod::Uniform);
    EXPECT_EQ(odd.parts.size(), 1U);
    EXPECT_NE(odd.log.find("{failure}"), std::string::npos);
    EXPECT_TRUE(divide({}, {1, 1, 1}, DivisionMethod::Automatic).parts.empty());
}

// A stick that fits is not divided lengthwise by the planes that its neighbour needs.
TEST(Decompose, DividesOnlyPiecesThatDoNotFit) {
    SoupVector soup = shapes::box({0, 0, 0}, {60, 10, 10});
    shapes::append(soup, shapes::box({0, 0, 5}, {10, 10, 60}));
    const Divided divided = divide(soup, {30, 30, 30}, DivisionMethod::Uniform);
    EXPECT_EQ(divided.parts.size(), 3U);
    // Nothing is left out, nothing is there twice.
    for (const TriMesh& part : divided.parts) EXPECT_TRUE(fits(part, {30, 30, 30}));
}

// Whatever is cut later, each two parts that meet are held together, and nothing sticks out.
TEST(Decompose, PartsFitWithTheirPegs) {
    for (const DivisionMethod method : {DivisionMethod::Uniform, DivisionMethod::Automatic}) {
        const DecomposeOptions options = {.size = {50, 50, 50},
                                          .method = method,
                                          .pegs = {.radius = 2, .count = 2, .segments = 16},
                                          .search_cells = kCells};
        const SoupVector soup = shapes::box({0, 0, 0}, {90, 90, 40});
        const Divided divided = divide(mesh_of(soup), options);
        ASSERT_EQ(divided.parts.size(), 4U);
        EXPECT_EQ(divided.report.pegs, 8U);  // two at each of the four walls
        EXPECT_EQ(divided.report.cuts_without_pegs, 0U);
        double sum = 0;
        for (const TriMesh& part : divided.parts) {
            EXPECT_TRUE(fits(part, options.size));
            EXPECT_TRUE(reference::is_closed_manifold(part));
            sum += signed_volume(part);
        }
        EXPECT_LT(divided.report.peg_volume, 0);
        EXPECT_NEAR(sum, 90 * 90 * 40 + divided.report.peg_volume, 1);
    }
    // 98 are two times 49 without pegs; with them there is no room for two parts.
    const Divided three = divide(mesh_of(shapes::box({0, 0, 0}, {98, 20, 20})),
                                 {.size = {50, 50, 50},
                                  .pegs = {.radius = 2, .count = 1, .segments = 16},
                                  .search_cells = kCells});
    EXPECT_EQ(three.parts.size(), 3U);
    for (const TriMesh& part : three.parts) EXPECT_TRUE(fits(part, {50, 50, 50}));
}

TEST(Decompose, TurnedPartsNeedFewerCuts) {
    const SoupVector plate = shapes::box({0, 0, 0}, {10, 100, 190});
    DecomposeOptions options = {.size = {100, 100, 10}, .search_cells = kCells};
    EXPECT_EQ(divide(mesh_of(plate), options).parts.size(), 19U);
    options.may_turn = true;
    for (const DivisionMethod method : {DivisionMethod::Uniform, DivisionMethod::Automatic}) {
        options.method = method;
        const Divided turned = divide(mesh_of(plate), options);
        EXPECT_EQ(turned.parts.size(), 2U);
        EXPECT_EQ(turned.report.least_parts, 2U);
        EXPECT_EQ(turned.report.too_large, 0U);
    }
}

// Those are divided in halves, not one after the other.
TEST(Decompose, DividesIntoHundredsOfSlabs) {
    const SoupVector rod = shapes::box({0, 0, 0}, {1, 1, 300});
    const Divided divided = divide(rod, {2, 2, 1}, DivisionMethod::Automatic);
    EXPECT_EQ(divided.parts.size(), 300U);
    EXPECT_EQ(divided.report.too_large, 0U);
}

struct RealCase {
    const char* model;
    double share;  // of the largest extent that a part may have
    std::size_t least, parts;
    double area;
};

// Parts and areas are those of an earlier search on cells, to be reached or beaten; so are most of
// the bounds.
TEST(Decompose, RealModelsTakeNoMorePartsAndAreaThanTheyDid) {
    const char* folder = std::getenv("POVMESH_MODELS");
    if (folder == nullptr) GTEST_SKIP() << "POVMESH_MODELS is not set";
    const std::vector<RealCase> cases = {
        {"cat.stl", 0.6, 3, 3, 157},         {"cat.stl", 0.4, 5, 6, 557},
        {"gearwheel.stl", 0.6, 4, 4, 401},   {"gearwheel.stl", 0.4, 6, 9, 1019},
        {"hammer.stl", 0.6, 2, 2, 78},       {"hammer.stl", 0.4, 3, 3, 151.5},
        {"goathead.obj", 0.6, 3, 4, 94},     {"goathead.obj", 0.4, 6, 10, 221},
        {"frog_legs.obj", 0.6, 5, 5, 17},    {"frog_legs.obj", 0.4, 6, 7, 73},
        {"scorpion.stl", 0.6, 5, 5, 1864.5}, {"scorpion.stl", 0.4, 7, 12, 1443},
        {"benchy.stl", 0.6, 3, 3, 269},      {"benchy.stl", 0.4, 5, 9, 1471}};
    for (const RealCase& real : cases) {
        SCOPED_TRACE(std::string(real.model) + " " + std::to_string(real.share));
        const std::string path = std::string(folder) + "/" + real.model;
        RunLog log;
        RunContext run{{}, log};
        TriMesh mesh;
        const bool is_stl = path.ends_with(".stl");
        ASSERT_TRUE((is_stl ? read_stl(path, run, mesh) : read_obj(path, mesh)).ok());
        const Vec3f extent = finite_bounds(mesh).extent();
        const double size =
            real.share * static_cast<double>(std::max({extent.x, extent.y, extent.z}));
        const double whole = signed_volume(mesh);
        const bool was_closed = is_closed(mesh);  // frog_legs is not
        const Divided divided = divide(std::move(mesh), {.size = {size, size, size}});
        EXPECT_LE(divided.parts.size(), real.parts);
        EXPECT_LE(divided.report.cut_area, real.area);
        EXPECT_GE(divided.report.least_parts, real.least);
        EXPECT_GE(divided.parts.size(), divided.report.least_parts);
        double sum = 0;
        for (const TriMesh& part : divided.parts) {
            EXPECT_TRUE(fits(part, {size, size, size}));
            EXPECT_TRUE(!was_closed || is_closed(part));
            sum += signed_volume(part);
        }
        EXPECT_NEAR(sum, whole, 1e-5 * whole);
    }
}

// Whatever comes, an answer comes soon.
TEST(Decompose, OddInputsAndSizesAreAnswered) {
    shapes::Random random(5);
    SoupVector noise;
    for (int i = 0; i < 9 * test::trials(3000); ++i)
        noise.push_back(static_cast<float>(random.unit()));
    SoupVector shells;
    for (int i = 0; i < 500; ++i) {
        SoupVector box = shapes::box({0, 0, 0}, {0.5F, 0.5F, 3});
        const int row = i / 25;
        shapes::move(box, {static_cast<float>(i % 25), static_cast<float>(row), 0});
        shapes::append(shells, box);
    }
    const auto scaled = [](SoupVector soup, float by) {
        for (float& x : soup) x *= by;
        return soup;
    };
    const SoupVector rock = shapes::rock(1, 2);
    const std::vector<SoupVector> soups = {noise,
                                           shapes::fan(test::trials(5000), 0.5F),
                                           shapes::book(test::trials(5000)),
                                           shells,
                                           rock,
                                           scaled(rock, 1e38F),
                                           scaled(rock, 1e-40F),
                                           scaled(shapes::box({0, 0, 0}, {1, 1, 0}), 1)};
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (std::size_t i = 0; i < soups.size(); ++i) {
        const Vec3f extent = finite_bounds(mesh_of(soups[i])).extent();
        const auto largest = static_cast<double>(std::max({extent.x, extent.y, extent.z}));
        for (const double size : {0.45 * largest, 1e-30, 1e-300, 1e300, nan, 0.0, -1.0, 1e38}) {
            SCOPED_TRACE(std::to_string(i) + ", size " + std::to_string(size));
            const Divided divided = divide(soups[i], {size, size, size}, DivisionMethod::Automatic);
            std::size_t too_large = 0;
            for (const TriMesh& part : divided.parts) {
                if (!(size > 0 && size < 1e300)) continue;
                too_large += fits(part, {size, size, size}) ? 0 : 1;
            }
            EXPECT_EQ(too_large, divided.report.too_large);
            EXPECT_FALSE(divided.parts.empty());
        }
    }
}

}  // namespace
}  // namespace povmesh
