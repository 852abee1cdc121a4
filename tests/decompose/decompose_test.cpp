// Decomposition: parts fit, are closed and add up to the model.
#include "decompose/decompose.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "cut/cut.h"
#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "mesh/bounds.h"
#include "mesh/edge_mates.h"
#include "mesh/volume.h"
#include "spatial/separation.h"

namespace povmesh {
namespace {

using shapes::mesh_of;
using shapes::SoupVector;

struct Divided {
    DecomposeReport report;
    std::vector<TriMesh> parts;
    std::string log;
};

Divided divide(const SoupVector& soup, Vec3d size, DivisionMethod method) {
    Divided result;
    RunLog log([&](std::string_view text) { result.log += text; });
    RunContext run{{}, log};
    TriMesh mesh = mesh_of(soup);
    result.report = decompose(mesh, {size, method}, run);
    result.parts = std::move(mesh.parts);
    return result;
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
SoupVector random_model(shapes::Random& random, std::size_t bodies) {
    SoupVector soup;
    for (std::size_t i = 0; i < bodies; ++i) {
        SoupVector body;
        const double radius = 5 + 20 * random.unit();
        switch (random.below(4)) {
            case 0:
                body = shapes::sphere(static_cast<float>(radius), 3);
                break;
            case 1:
                body = shapes::rock(static_cast<float>(radius), 3);
                break;
            case 2:
                body = shapes::box({-5, -2, -30}, {8, 3, 30});
                break;
            default:
                body = shapes::sphere(static_cast<float>(radius), 3);
                shapes::append(body,
                               shapes::turned(shapes::sphere(static_cast<float>(radius * 0.7), 3)));
        }
        const Vec3d move{100 * random.unit(), 80 * random.unit(), 60 * random.unit()};
        for (std::size_t k = 0; k < body.size(); k += 3) {
            body[k] += static_cast<float>(move.x);
            body[k + 1] += static_cast<float>(move.y);
            body[k + 2] += static_cast<float>(move.z);
        }
        shapes::append(soup, body);
    }
    return soup;
}

TEST(Decompose, PartsFitAreClosedAndAddUp) {
    for (const DivisionMethod method : {DivisionMethod::Uniform, DivisionMethod::Automatic}) {
        shapes::Random random(11);
        for (int trial = 0; trial < 40; ++trial) {
            const std::size_t bodies = 1 + random.below(3);
            const SoupVector soup = random_model(random, bodies);
            const Vec3d size{6 + 30 * random.unit(), 6 + 30 * random.unit(),
                             random.below(3) == 0 ? 0 : 6 + 30 * random.unit()};
            const Divided divided = divide(soup, size, method);
            const TriMesh whole = mesh_of(soup);
            const bool are_crossing = divided.report.models < bodies;
            double sum = 0;
            for (const TriMesh& part : divided.parts) {
                EXPECT_TRUE(fits(part, size)) << trial;
                EXPECT_TRUE(is_closed(part)) << trial;
                // Bodies that cross may share an edge where cuts meet.
                EXPECT_TRUE(are_crossing || reference::is_closed_manifold(part)) << trial;
                EXPECT_GT(signed_volume(part), 0) << trial;
                sum += signed_volume(part);
            }
            EXPECT_NEAR(sum, signed_volume(whole), 1e-5 * signed_volume(whole)) << trial;
            EXPECT_EQ(divided.report.too_large, 0U) << trial;
            EXPECT_LE(divided.parts.size(), divided.report.uniform_parts) << trial;
        }
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
    for (int trial = 0; trial < 10; ++trial) {
        SoupVector soup = shapes::rock(20, 3);
        for (std::size_t i = 0; i < soup.size(); i += 3) soup[i] += 15 * std::sin(soup[i + 2] / 5);
        const Vec3d size{8 + 10 * random.unit(), 8 + 10 * random.unit(), 8 + 20 * random.unit()};
        const Divided divided = divide(soup, size, DivisionMethod::Automatic);
        std::vector<TriMesh> parts;
        std::size_t next = 0;
        TriMesh mesh = mesh_of(soup);
        separate_bodies(mesh, {.keep_cavities = true, .all_faces = true});
        for (TriMesh& model : mesh.parts) {
            replay(std::move(model), size, divided.report.planes, next, parts);
        }
        EXPECT_EQ(next, divided.report.planes.size());
        ASSERT_EQ(parts.size(), divided.parts.size());
        for (std::size_t i = 0; i < parts.size(); ++i) {
            EXPECT_EQ(finite_bounds(parts[i]).low, finite_bounds(divided.parts[i]).low) << i;
            EXPECT_EQ(finite_bounds(parts[i]).high, finite_bounds(divided.parts[i]).high) << i;
            EXPECT_EQ(volume(parts[i]), volume(divided.parts[i])) << i;
        }
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

}  // namespace
}  // namespace povmesh
