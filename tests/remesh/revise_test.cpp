// Triangle revision: bad triangles go, the surface and everything else stay.
#include "remesh/revise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <set>
#include <vector>

#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "mesh/edge_mates.h"
#include "remesh/original_surface.h"
#include "remesh/patch_distance.h"
#include "remesh/triangle_shape.h"
#include "spatial/self_intersection.h"
#include "spatial/surface_distance.h"

namespace povmesh {
namespace {

using shapes::mesh_of;
using shapes::SoupVector;
using Triangle = std::array<Vec3d, 3>;

Vec3d corner(const SoupVector& soup, std::size_t triangle, std::size_t c) {
    const float* p = &soup[9 * triangle + 3 * c];
    return to_double(Vec3f{p[0], p[1], p[2]});
}

void add(SoupVector& soup, Vec3d a, Vec3d b, Vec3d c) {
    for (const Vec3d& p : {a, b, c}) {
        for (const double x : {p.x, p.y, p.z}) soup.push_back(static_cast<float>(x));
    }
}

// Every `step`-th triangle is divided at a point near to its first corner, or to the middle of its
// first edge: two needles or a cap each.
SoupVector with_slivers(const SoupVector& soup, std::size_t step, bool caps, double nearness) {
    SoupVector made;
    for (std::size_t t = 0; t < soup.size() / 9; ++t) {
        const Vec3d a = corner(soup, t, 0);
        const Vec3d b = corner(soup, t, 1);
        const Vec3d c = corner(soup, t, 2);
        if (t % step != 0) {
            add(made, a, b, c);
            continue;
        }
        const Vec3d m = caps ? (a + b) * 0.5 + (c - (a + b) * 0.5) * nearness
                             : a + ((b + c) * 0.5 - a) * nearness;
        add(made, a, b, m);
        add(made, b, c, m);
        add(made, c, a, m);
    }
    return made;
}

std::size_t open_edges(TriMesh mesh) {
    const EdgeMates mates(mesh);
    std::size_t count = 0;
    for (std::size_t i = 0; i < 3 * mesh.faces.size(); ++i) {
        count += mates.kind(i / 3, i % 3) == EdgeMates::Kind::Open ? 1 : 0;
    }
    return count;
}

double diagonal(const TriMesh& mesh) {
    Box3f box;
    for (const Vertex& v : mesh.vertices) box.widen(v.position());
    return length(to_double(box.extent()));
}

TriMesh revised(TriMesh mesh, ReviseReport* report = nullptr) {
    const TriMesh before = mesh;
    const ReviseReport found = revise_triangles(mesh);
    EXPECT_TRUE(is_consistent(mesh));
    if (report != nullptr) *report = found;
    if (before.faces.empty()) return mesh;
    EXPECT_LE(found.movement, 1e-3 * diagonal(before));
    EXPECT_LE(surface_distance(before, mesh).greatest(), found.movement + 1e-6 * diagonal(before));
    return mesh;
}

// The triangles as their corners, the smallest corner first.
std::multiset<std::vector<float>> triangles(const TriMesh& mesh) {
    std::multiset<std::vector<float>> all;
    for (const Face& face : mesh.faces) {
        std::array<std::array<float, 3>, 3> p;
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3f v = mesh.corner_position(face, c);
            p[c] = {v.x, v.y, v.z};
        }
        std::rotate(p.begin(), std::min_element(p.begin(), p.end()), p.end());
        std::vector<float> key;
        for (const auto& q : p) key.insert(key.end(), q.begin(), q.end());
        all.insert(key);
    }
    return all;
}

TEST(Revise, TellsNeedlesCapsAndSlivers) {
    struct Row {
        Triangle t;
        bool needle, cap, sliver;
    };
    const Row rows[] = {
        {{{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}}, false, false, false},
        {{{{0, 0, 0}, {20, 0, 0}, {0, 1.02, 0}}}, false, false, false},
        {{{{0, 0, 0}, {20, 0, 0}, {0, 0.98, 0}}}, true, false, false},
        {{{{0, 0, 0}, {2, 0, 0}, {1, 0.0874, 0}}}, false, true, false},  // 170.01 degrees
        {{{{0, 0, 0}, {2, 0, 0}, {1, 0.0885, 0}}}, false, false, false},
        {{{{0, 0, 0}, {2, 0, 0}, {1, 0.0008, 0}}}, false, true, true},
        {{{{0, 0, 0}, {20, 0, 0}, {20, 0.02, 0}}}, true, false, true},
        {{{{0, 0, 0}, {20, 0, 0}, {20, 0.022, 0}}}, true, false, false},
        {{{{0, 0, 0}, {1, 0, 0}, {1e300, INFINITY, 0}}}, false, false, false},
    };
    for (const Row& row : rows) {
        for (std::size_t turn = 0; turn < 3; ++turn) {
            const TriangleShape shape =
                shape_of({row.t[turn], row.t[(turn + 1) % 3], row.t[(turn + 2) % 3]});
            EXPECT_EQ(shape.is_needle, row.needle) << &row - rows;
            EXPECT_EQ(shape.is_cap, row.cap) << &row - rows;
            EXPECT_EQ(shape.is_sliver, row.sliver) << &row - rows;
        }
    }
}

// The slow way: points all over the patches, each way.
double hausdorff(const std::vector<Triangle>& a, const std::vector<Triangle>& b) {
    const auto mesh = [](const std::vector<Triangle>& patch) {
        SoupVector soup;
        for (const Triangle& t : patch) add(soup, t[0], t[1], t[2]);
        return mesh_of(soup);
    };
    return surface_distance(mesh(a), mesh(b), {.sample_count = 3000}).greatest();
}

TEST(Revise, BoundsHowFarAStepMovesTheSurface) {
    shapes::Random random(5);
    const auto number = [&] { return random.unit() - 0.5; };
    std::size_t tight = 0;
    for (int trial = 0; trial < 60; ++trial) {
        const Vec3d v{0.3 * number(), 0.3 * number(), number()};
        const std::size_t size = 4 + random.below(5);
        std::vector<Vec3d> ring;
        for (std::size_t i = 0; i < size; ++i) {
            const double angle =
                2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(size);
            ring.push_back({std::cos(angle), std::sin(angle), number()});
        }
        const std::size_t kept = random.below(size);
        std::vector<Triangle> before;
        std::vector<Triangle> after;
        for (std::size_t i = 0; i < size; ++i) {
            const std::size_t next = (i + 1) % size;
            before.push_back({v, ring[i], ring[next]});
            if (i != kept && next != kept) after.push_back({ring[kept], ring[i], ring[next]});
        }
        const double found = hausdorff(before, after);
        const double bound = merge_distance(v, ring, kept);
        EXPECT_LE(found, bound * (1 + 1e-6)) << trial;
        tight += found > 0.4 * bound ? 1 : 0;

        const Vec3d d{number(), -1, number()};
        const double turned = hausdorff({{v, ring[0], ring[1]}, {ring[0], v, d}},
                                        {{d, ring[1], v}, {ring[1], d, ring[0]}});
        EXPECT_LE(turned, segment_distance(v, ring[0], ring[1], d) * (1 + 1e-6)) << trial;
    }
    EXPECT_GT(tight, 50U);
    // In a plane nothing moves, however long the edge.
    const std::vector<Vec3d> square = {{9, 0, 1}, {0, 9, 1}, {-9, 0, 1}, {0, -9, 1}};
    EXPECT_NEAR(merge_distance({1, 2, 1}, square, 0), 0, 1e-12);
    EXPECT_NEAR(segment_distance({0, 0, 0}, {2, 0, 0}, {1, 0.5, 1}, {1, -3, 1}), 1, 1e-12);
}

TEST(Revise, TakesNeedlesAndCapsAway) {
    const SoupVector sphere = shapes::sphere(10, 4);
    const auto sound = triangles(mesh_of(sphere));
    for (const double nearness : {1e-4, 1e-5, 0.02}) {
        ReviseReport report;
        const TriMesh flawed = mesh_of(with_slivers(sphere, 7, false, nearness));
        EXPECT_GT(count_shapes(flawed).needles, 700U);
        const TriMesh result = revised(flawed, &report);
        EXPECT_TRUE(triangles(result) == sound) << nearness;
        EXPECT_EQ(report.collapses, count_shapes(flawed).needles / 2);

        const TriMesh capped = mesh_of(with_slivers(sphere, 7, true, nearness));
        EXPECT_GT(count_shapes(capped).caps, 700U);
        const TriMesh flipped = revised(capped, &report);
        EXPECT_EQ(count_shapes(flipped), ShapeCounts{}) << nearness;
        EXPECT_TRUE(reference::is_closed_manifold(flipped));
        // Four of seven triangles took no part.
        const auto left = triangles(flipped);
        EXPECT_GT(std::count_if(sound.begin(), sound.end(),
                                [&](const auto& t) { return left.contains(t); }),
                  2800);
    }
}

TEST(Revise, LeavesWhatNeedsNoMending) {
    // Long faces around a cylinder are needles as they have to be.
    SoupVector cylinder;
    const auto at = [](int i, double z) {
        const double angle = 2 * std::numbers::pi * i / 48;
        return Vec3d{std::cos(angle), std::sin(angle), z};
    };
    for (int i = 0; i < 48; ++i) {
        add(cylinder, at(i, 0), at(i + 1, 0), at(i, 9));
        add(cylinder, at(i, 9), at(i + 1, 0), at(i + 1, 9));
    }
    for (const SoupVector& soup : {cylinder, shapes::rock(10, 3), shapes::book(5), SoupVector()}) {
        const TriMesh mesh = mesh_of(soup);
        ReviseReport report;
        EXPECT_EQ(reference::difference(revised(mesh, &report), mesh), "");
        EXPECT_EQ(report.collapses + report.flips + report.splits, 0U);
    }
}

TEST(Revise, SplitsCapsOnSharpEdges) {
    // A roof: the cap's long edge is its ridge, which a flip would dent.
    const Vec3d a{0, 0, 0};
    const Vec3d b{20, 0, 0};
    const Vec3d cap{10, 0.7, -0.7};   // 168.7 degrees is none
    const Vec3d flat{10, 0.6, -0.6};  // 170.3
    for (const Vec3d c : {cap, flat}) {
        SoupVector roof;
        add(roof, a, b, c);
        add(roof, b, a, {10, -9, -9});
        add(roof, b, {30, 9, -9}, c);
        add(roof, c, {-10, 9, -9}, a);
        add(roof, c, {30, 9, -9}, {-10, 9, -9});
        ReviseReport report;
        const TriMesh result = revised(mesh_of(roof), &report);
        EXPECT_EQ(report.splits, c == flat ? 1U : 0U);
        EXPECT_EQ(report.flips, 0U);
        EXPECT_LT(report.movement, 1e-6);
        EXPECT_EQ(count_shapes(result), ShapeCounts{});
    }
}

TEST(Revise, MendsOpenBordersWithoutClosingOrPinchingThem) {
    // A cap on the border, and needles around a fan's open rim.
    SoupVector sheet;
    add(sheet, {0, 0, 0}, {10, 0, 0}, {5, 0.001, 0});
    add(sheet, {10, 0, 0}, {10, 9, 0}, {5, 0.001, 0});
    add(sheet, {5, 0.001, 0}, {10, 9, 0}, {0, 9, 0});
    add(sheet, {5, 0.001, 0}, {0, 9, 0}, {0, 0, 0});
    const TriMesh result = revised(mesh_of(sheet));
    EXPECT_EQ(result.faces.size(), 3U);
    EXPECT_EQ(count_shapes(result), ShapeCounts{});
    EXPECT_EQ(open_edges(result), 5U);
    const TriMesh fan = revised(mesh_of(shapes::fan(20'000, 100)));
    EXPECT_LT(fan.faces.size(), 200U);
    EXPECT_GT(fan.faces.size(), 20U);
    EXPECT_EQ(open_edges(fan), fan.faces.size());
}

// What changed triangles carry is made by the code that remeshing uses; here its records come to
// stand behind those that stay.
TEST(Revise, KeepsTheTextureRecordsOfWhatStaysAndAddsThoseOfWhatChanges) {
    TriMesh mesh = mesh_of(with_slivers(shapes::sphere(10, 3), 3, true, 1e-5));
    for (Face& face : mesh.faces) {
        face.label = 3;
        for (std::size_t c = 0; c < 3; ++c) {
            face.uv[c] = static_cast<std::int32_t>(mesh.texture_coordinates.size());
            mesh.texture_coordinates.push_back(
                {static_cast<double>(mesh.corner_position(face, c).y), 0, face.uv[c]});
        }
    }
    const TriMesh result = revised(mesh);
    for (const Face& face : result.faces) {
        for (std::size_t c = 0; c < 3; ++c) {
            EXPECT_NEAR(result.texture_coordinates[static_cast<std::size_t>(face.uv[c])].u,
                        static_cast<double>(result.corner_position(face, c).y), 0.1);
        }
    }
}

// Rounded to a grid, so that there are folds, and faces that have no area and no direction.
SoupVector with_folds(SoupVector soup, float grid) {
    for (float& x : soup) x = std::round(x / grid) * grid;
    return soup;
}

TEST(Revise, AsksTheOriginalWhereTheSumOfStepsIsTooMuch) {
    const TriMesh mesh =
        mesh_of(with_folds(with_slivers(shapes::sphere(10, 3), 2, false, 0.02), 0.05F));
    EXPECT_EQ(count_shapes(mesh).slivers, 58U);  // none of them goes by the sums
    EXPECT_LE(count_shapes(revised(mesh)).slivers, 16U);
}

TEST(Revise, TellsHowFarAFoldedPatchIsFromTheOriginal) {
    shapes::Random random(6);
    const auto point = [&] { return Vec3d{random.unit(), random.unit(), 0.3 * random.unit()}; };
    for (int trial = 0; trial < 40; ++trial) {
        std::vector<Triangle> before;
        std::vector<Triangle> after;
        SoupVector soup;
        for (int i = 0; i < 4; ++i) {
            before.push_back({point(), point(), point()});
            after.push_back({point(), point(), point()});
        }
        before.push_back({before[0][0], before[0][1], (before[0][0] + before[0][1]) * 0.5});
        after.push_back({after[0][0], after[0][1], after[0][1]});
        for (const Triangle& t : before) add(soup, t[0], t[1], t[2]);
        const TriMesh mesh = mesh_of(soup);
        const double truth = hausdorff(before, after);
        const OriginalSurface original(mesh);
        std::size_t effort = 1'000'000;
        const double found = original.distance({before, after, {}, 1e-6}, 1.2 * truth, effort);
        EXPECT_GE(found, truth * (1 - 1e-4)) << trial;
        EXPECT_LE(found, 1.2 * truth) << trial;
        EXPECT_GT(original.distance({before, after, {}, 1e-6}, 0.8 * truth, effort), 1) << trial;
    }
}

TEST(Revise, JoinsNoFoldedSheetsAtAnEdge) {
    for (const std::uint32_t seed : {1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U}) {
        const SoupVector slivers =
            with_slivers(shapes::sphere(1, 1 + seed % 3), 2, seed % 2 == 0, 0.02);
        TriMesh mesh = mesh_of(with_folds(slivers, seed < 5 ? 0.1F : 0.25F));
        const std::size_t before = EdgeMates(mesh).group_count();
        const std::size_t open = open_edges(mesh);
        revise_triangles(mesh, {.most_movement = 0.05});
        EXPECT_LE(EdgeMates(mesh).group_count(), before) << seed;
        EXPECT_LE(open_edges(mesh), open) << seed;
    }
}

// A tip that stands on a triangle just below the roof that turning a cap's edge would make.
TEST(Revise, DrawsNoSurfaceThroughAnother) {
    SoupVector soup;
    add(soup, {0, 0, 0}, {10, 0, 0}, {5, 0, 0.2});
    add(soup, {10, 0, 0}, {0, 0, 0}, {5, -8, 0});
    const auto add_tip = [&](double x, double y) {
        const std::array<Vec3d, 4> p = {Vec3d{x - 0.05, y - 0.05, 0.02},
                                        Vec3d{x + 0.05, y - 0.05, 0.02}, Vec3d{x, y + 0.05, 0.02},
                                        Vec3d{x, y, 0.5}};
        add(soup, p[0], p[2], p[1]);
        for (std::size_t i = 0; i < 3; ++i) add(soup, p[i], p[(i + 1) % 3], p[3]);
    };
    add_tip(1000, 1000);  // far away: the surface may move by a thousandth of that
    ReviseReport report;
    revised(mesh_of(soup), &report);
    EXPECT_EQ(report.flips, 1U);
    add_tip(5, -1);
    const TriMesh result = revised(mesh_of(soup), &report);
    EXPECT_EQ(report.flips, 0U);
    EXPECT_EQ(find_self_intersections(result, 1).count, 0U);
}

}  // namespace
}  // namespace povmesh
