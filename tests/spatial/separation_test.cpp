#include "spatial/separation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "io/stl.h"
#include "mesh/shells.h"
#include "mesh/volume.h"
#include "spatial/shell_nesting.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

using shapes::SoupVector;
using Groups = std::vector<std::vector<std::uint32_t>>;

Groups as_lists(const ShellGroups& groups) {
    Groups lists;
    for (std::size_t g = 0; g < groups.size(); ++g) {
        lists.emplace_back(groups[g].begin(), groups[g].end());
    }
    return lists;
}

Groups groups_of(const SoupVector& soup, const SeparationOptions& options = {}) {
    TriMesh mesh = shapes::mesh_of(soup);
    label_shells(mesh);
    return as_lists(group_shells(mesh, options));
}

SoupVector joined(const std::vector<SoupVector>& soups) {
    SoupVector all;
    for (const SoupVector& soup : soups) shapes::append(all, soup);
    return all;
}

SoupVector cube(float low, float high) {
    return shapes::box({low, low, low}, {high, high, high});
}

SoupVector moved(SoupVector soup, Vec3f by) {
    shapes::move(soup, by);
    return soup;
}

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

TEST(Separation, GroupsShellsThatMeet) {
    const SoupVector big = {0, 0, 0, 4, 0, 0, 0, 4, 4};
    const auto touching = [](float height) {  // a corner over an inner point of `big`
        return SoupVector{1, 1, height, 1, 3, 5, 2, 0, 5};
    };
    const struct {
        const char* what;
        SoupVector soup;
        Groups expected;
    } cases[] = {
        {"nothing", {}, {}},
        {"apart", joined({cube(0, 1), cube(2, 3)}), {{0}, {1}}},
        {"overlapping", joined({cube(0, 2), cube(1, 3)}), {{0, 1}}},
        {"boxes lie against each other",
         joined({cube(0, 4), shapes::box({4, 1, 1}, {5, 2, 2})}),
         {{0}, {1}}},
        {"nested", joined({cube(0, 9), cube(4, 5)}), {{0}, {1}}},
        {"meeting in a point", joined({big, touching(1)}), {{0, 1}}},
        {"a bit above", joined({big, touching(std::nextafter(1.0F, 2.0F))}), {{0}, {1}}},
        {"crossing edges", {0, 0, 0, 4, 2, 4, 2, 3, 0, 0, 2, 4, 4, 0, 0, 2, -1, 3}, {{0, 1}}},
        {"in a plane that is no axis plane",
         {0, 0, 0, 4, 0, 4, 0, 4, 0, 1, 1, 1, 5, 1, 5, 1, 5, 1},
         {{0, 1}}},
        {"in a chain, the ends apart",
         joined({cube(0, 2), cube(10, 12), cube(3, 5), cube(1, 4)}),
         {{0, 2, 3}, {1}}},
        {"not finite",
         {0, 0, 0, 4, 0, 0, 0, 4, kInfinity, 1, 1, -1, 1, 1, 5, 2, kNan, 5},
         {{0}, {1}}},
        {"without area", {0, 0, -1, 0, 0, 1, 0, 0, 3, -1, -1, 0, 2, -1, 0, -1, 2, 1}, {{0}, {1}}},
    };
    for (const auto& c : cases) EXPECT_EQ(groups_of(c.soup), c.expected) << c.what;
}

// Against all pairs of single triangles, whose strict boxes are computed without the code.
TEST(Separation, GroupsAreThoseOfAllPairs) {
    shapes::Random random(3);
    for (const std::uint64_t size : {2U, 12U, 40U}) {
        SoupVector soup;
        for (int i = 0; i < 300; ++i) {
            const float x = static_cast<float>(random.below(size * 8));
            const float y = static_cast<float>(random.below(size * 8));
            for (int corner = 0; corner < 3; ++corner) {
                soup.insert(soup.end(), {x + static_cast<float>(random.below(8)) + 0.125F * x,
                                         y + static_cast<float>(random.below(8)),
                                         static_cast<float>(random.below(16))});
            }
        }
        TriMesh mesh = shapes::mesh_of(soup);
        label_shells(mesh);
        std::vector<std::uint32_t> lowest(mesh.shells.size());
        for (std::uint32_t i = 0; i < lowest.size(); ++i) lowest[i] = i;
        const auto box_of = [&](std::uint32_t shell) {
            Box3d box;
            for (const std::uint32_t f : mesh.shells[shell]) {
                for (const Vec3d p : triangle_of(mesh, mesh.faces[f])) box.widen(p);
            }
            return box;
        };
        const auto meet = [&](std::uint32_t a, std::uint32_t b) {
            const Box3d p = box_of(a);
            const Box3d q = box_of(b);
            const auto below = [](Vec3d l, Vec3d h) { return l.x < h.x && l.y < h.y && l.z < h.z; };
            if (!below(p.low, q.high) || !below(q.low, p.high)) return false;
            for (const std::uint32_t f : mesh.shells[a]) {
                for (const std::uint32_t g : mesh.shells[b]) {
                    if (triangles_intersect(triangle_of(mesh, mesh.faces[f]),
                                            triangle_of(mesh, mesh.faces[g]))) {
                        return true;
                    }
                }
            }
            return false;
        };
        for (std::uint32_t a = 0; a < lowest.size(); ++a) {
            for (std::uint32_t b = a + 1; b < lowest.size(); ++b) {
                if (lowest[a] == lowest[b] || !meet(a, b)) continue;
                const std::uint32_t from = std::max(lowest[a], lowest[b]);
                const std::uint32_t to = std::min(lowest[a], lowest[b]);
                for (std::uint32_t& set : lowest) {
                    if (set == from) set = to;
                }
            }
        }
        Groups expected;
        for (std::uint32_t root = 0; root < lowest.size(); ++root) {
            if (lowest[root] != root) continue;
            expected.emplace_back();
            for (std::uint32_t i = root; i < lowest.size(); ++i) {
                if (lowest[i] == root) expected.back().push_back(i);
            }
        }
        EXPECT_EQ(as_lists(group_intersecting_shells(mesh)), expected) << size;
    }
}

// A strip of 20,000 faces is looked at in steps of two along its list.
TEST(Separation, LargeShellsAreSampledUnlessAllFacesAreAskedFor) {
    SoupVector strip;
    for (int i = 0; i < 10000; ++i) {
        const float x = static_cast<float>(i);
        shapes::append(strip, SoupVector{x, 0, 0, x + 1, 0, 0, x, 4, 0});
        shapes::append(strip, SoupVector{x, 4, 0, x + 1, 0, 0, x + 1, 4, 0});
    }
    TriMesh mesh = shapes::mesh_of(strip);
    label_shells(mesh);
    const std::vector<std::uint32_t> order(mesh.shells[0].begin(), mesh.shells[0].end());
    for (const std::size_t place : {9000U, 9001U}) {
        const Face& face = mesh.faces[order[place]];
        Vec3f centre = (mesh.corner_position(face, 0) + mesh.corner_position(face, 1) +
                        mesh.corner_position(face, 2)) /
                       3.0F;
        const SoupVector needle = {-0.01F, 0, -1, 0.01F, 0, -1, 0, 0.01F, 1};
        const Groups apart = {{0}, {1}};
        const Groups together = {{0, 1}};
        const SoupVector both = joined({strip, moved(needle, centre)});
        EXPECT_EQ(groups_of(both), place % 2 == 0 ? together : apart);
        EXPECT_EQ(groups_of(both, {.all_faces = true}), together);
    }
}

TEST(Separation, OfManyShellsIsNotQuadratic) {
    SoupVector grid;   // 1,000 cubes that do not meet
    SoupVector chain;  // 200 of which each meets the next
    for (int i = 0; i < 1000; ++i) {
        const auto at = [](int n) { return static_cast<float>(2 * n); };
        shapes::append(grid, moved(cube(0, 1), {at(i % 10), at(i / 10 % 10), at(i / 100)}));
        if (i < 200) shapes::append(chain, moved(cube(0, 3), {at(i), at(i), at(i)}));
    }
    EXPECT_EQ(groups_of(grid).size(), 1000U);
    EXPECT_EQ(groups_of(chain).size(), 1U);

    SoupVector sheet;  // one large shell with 2,500 cubes on it, every other of which cuts it
    for (int i = 0; i < 2500; ++i) {
        const int column = i % 50;
        const int row = i / 50;
        const Vec3f at{static_cast<float>(4 * column), static_cast<float>(4 * row), 0};
        shapes::append(sheet, moved({0, 0, 0, 4, 0, 0, 4, 4, 0, 0, 0, 0, 4, 4, 0, 0, 4, 0}, at));
        const float z = i % 2 == 0 ? -0.5F : 0.25F;
        shapes::append(sheet, moved(shapes::box({1, 1, z}, {2, 2, 1}), at));
    }
    const Groups groups = groups_of(sheet);
    EXPECT_EQ(groups.size(), 1251U);
    EXPECT_EQ(groups[0].size(), 1251U);

    SoupVector loose;  // 100,000 triangles each through the same point, without common edges
    shapes::Random random(5);
    for (int i = 0; i < 100000; ++i) {
        loose.insert(loose.end(), {0, 0, 0});
        for (int k = 0; k < 6; ++k) loose.push_back(static_cast<float>(random.unit() - 0.5));
    }
    const Groups heap = groups_of(loose);
    std::size_t most = 0;
    for (const auto& group : heap) most = std::max(most, group.size());
    EXPECT_GT(most, 99900U);  // a triangle in a small box in its own octant may lie against all
}

// Upright boxes of what lies aslant all overlap: these would be tested pair by pair.
TEST(Separation, FacesThatRunAslantAreNotComparedWithAll) {
    constexpr int kCount = 4000;
    SoupVector slivers;
    shapes::Random random(6);
    for (int i = 0; i < kCount; ++i) {
        const auto x = static_cast<float>(5 * random.unit());
        const auto y = static_cast<float>(5 * random.unit());
        slivers.insert(slivers.end(), {x, y, 0, x + 100, y + 37, 61, x + 100.001F, y + 37, 60.99F});
    }
    SoupVector fans = shapes::fan(kCount / 2, 500);
    shapes::append(fans, moved(shapes::fan(kCount / 2, 500), {3, 0, 4}));
    for (const auto& [soup, groups] : {std::pair(slivers, kCount), {fans, 2}}) {
        TriMesh mesh = shapes::mesh_of(soup);
        label_shells(mesh);
        const ShellGroups found = group_shells(mesh, {});
        EXPECT_EQ(found.size(), static_cast<std::size_t>(groups));
        EXPECT_LT(found.tested_face_pairs, 100U * kCount);
    }
}

TEST(Separation, PartsHoldTheFacesOfTheirShells) {
    SoupVector soup = shapes::shuffled(joined({cube(0, 2), cube(10, 12), cube(1, 3)}), 4);
    const std::size_t count = soup.size() / 9;
    std::vector<float> colours(9 * count);
    std::vector<float> uv(6 * count);
    std::vector<std::int32_t> labels(count);
    for (std::size_t i = 0; i < colours.size(); ++i) {
        colours[i] = static_cast<float>(i % 256) / 255.0F;
    }
    for (std::size_t i = 0; i < uv.size(); ++i) uv[i] = static_cast<float>(i) * 0.1F;
    for (std::size_t i = 0; i < count; ++i) labels[i] = static_cast<std::int32_t>(i % 4) - 1;
    TriMesh mesh;
    build_f(mesh, Soup{count, soup.data(), colours.data(), uv.data(), labels.data()});
    separate_bodies(mesh);

    ASSERT_EQ(mesh.parts.size(), 2U);
    const Groups groups = as_lists(group_intersecting_shells(mesh));
    const reference::Arrays whole = reference::exported(mesh);
    for (std::size_t part = 0; part < 2; ++part) {
        const reference::Arrays arrays = reference::exported(mesh.parts[part]);
        std::size_t k = 0;
        for (const std::uint32_t shell : groups[part]) {
            for (const std::uint32_t face : mesh.shells[shell]) {
                const auto same = [&](const auto& a, const auto& b, std::size_t width) {
                    return std::equal(a.begin() + static_cast<std::ptrdiff_t>(k * width),
                                      a.begin() + static_cast<std::ptrdiff_t>((k + 1) * width),
                                      b.begin() + static_cast<std::ptrdiff_t>(face * width));
                };
                ASSERT_LT(k, arrays.labels.size());
                EXPECT_TRUE(same(arrays.coordinates, whole.coordinates, 9));
                EXPECT_TRUE(same(arrays.colours, whole.colours, 9));
                EXPECT_TRUE(same(arrays.texture_coordinates, whole.texture_coordinates, 6));
                EXPECT_TRUE(same(arrays.labels, whole.labels, 1));
                ++k;
            }
        }
        EXPECT_EQ(arrays.labels.size(), k);
        EXPECT_EQ(reference::difference(mesh.parts[part], reference::rebuilt(arrays)), "");
    }
}

TEST(Separation, DeletedFacesAreInNoPart) {
    TriMesh mesh = shapes::mesh_of(joined({cube(0, 1), cube(2, 3)}));
    for (std::size_t f = 0; f < 13; ++f) mesh.faces[f].deleted = 1;
    separate_bodies(mesh);
    ASSERT_EQ(mesh.parts.size(), 1U);
    EXPECT_EQ(mesh.parts[0].faces.size(), 11U);
}

std::vector<ShellNesting> nesting_of(const SoupVector& soup) {
    TriMesh mesh = shapes::mesh_of(soup);
    label_shells(mesh);
    return classify_shells(mesh);
}

TEST(Nesting, FindsDepthAndTheShellAround) {
    // Aligned boxes, so that every ray runs through corners and along edges of others; two of the
    // cavities in one body, a body in a cavity, and one beside.
    const SoupVector soup = joined({cube(4, 5), cube(0, 10), shapes::turned(cube(3, 6)),
                                    shapes::turned(cube(7, 8)), moved(cube(0, 10), {10.5F, 0, 0})});
    const std::vector<ShellNesting> nesting = nesting_of(soup);
    ASSERT_EQ(nesting.size(), 5U);
    const struct {
        std::uint32_t depth, around;
        double volume;
    } expected[] = {{2, 2, 1},
                    {0, ShellNesting::kNone, 1000},
                    {1, 1, -27},
                    {1, 1, -1},
                    {0, ShellNesting::kNone, 1000}};
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_TRUE(nesting[i].is_closed && nesting[i].is_oriented) << i;
        EXPECT_EQ(nesting[i].depth, expected[i].depth) << i;
        EXPECT_EQ(nesting[i].around, expected[i].around) << i;
        EXPECT_NEAR(nesting[i].signed_volume, expected[i].volume, 1e-9) << i;
    }
    const Groups kept = {{0}, {1, 2, 3}, {4}};
    const Groups apart = {{0}, {1}, {2}, {3}, {4}};
    EXPECT_EQ(groups_of(soup, {.keep_cavities = true}), kept);
    EXPECT_EQ(groups_of(soup), apart);
}

// Whether the second shell lies in the first.
TEST(Nesting, InsideMeansInsideTheSurface) {
    // A frame around the z axis: the hole is within its box, but outside of it.
    SoupVector frame;
    for (int x = 0; x < 3; ++x) {
        for (int y = 0; y < 3; ++y) {
            const auto solid = [](int i, int j) {
                return i >= 0 && j >= 0 && i < 3 && j < 3 && (i != 1 || j != 1);
            };
            if (!solid(x, y)) continue;
            const float fx = static_cast<float>(x);
            const float fy = static_cast<float>(y);
            const SoupVector sides = shapes::box({fx, fy, 0}, {fx + 1, fy + 1, 1});
            const bool open[] = {false,           false,           solid(x, y - 1),
                                 solid(x, y + 1), solid(x - 1, y), solid(x + 1, y)};
            for (std::size_t side = 0; side < 6; ++side) {
                if (open[side]) continue;
                frame.insert(frame.end(), sides.begin() + static_cast<std::ptrdiff_t>(side * 18),
                             sides.begin() + static_cast<std::ptrdiff_t>(side * 18 + 18));
            }
        }
    }
    SoupVector open_box = cube(0, 3);
    open_box.resize(open_box.size() - 9);
    // Shares the corner (0, 0, 0) of the cube around it.
    const SoupVector corner = {0, 0, 0, 1, 2, 1, 2, 1, 1, 0, 0, 0, 2, 1, 1, 1, 1, 2,
                               0, 0, 0, 1, 1, 2, 1, 2, 1, 1, 2, 1, 1, 1, 2, 2, 1, 1};
    const struct {
        const char* what;
        SoupVector outer, inner;
        bool is_inside;
    } cases[] = {
        {"in the hole of a frame", frame, shapes::box({1.25F, 1.25F, 0}, {1.75F, 1.75F, 1}), false},
        {"in the frame itself", frame, shapes::box({0.25F, 0.25F, 0.5F}, {0.75F, 2.75F, 0.75F}),
         true},
        {"through the hole", frame, shapes::box({0.5F, 1.25F, 0.5F}, {2.5F, 1.75F, 0.75F}), false},
        {"in an open box", open_box, cube(1, 2), false},
        {"at a common corner", cube(0, 3), corner, true},
        {"against a side", cube(0, 3), shapes::box({0, 1, 1}, {1, 2, 2}), false},
        {"in a sphere", shapes::sphere(10, 4), shapes::sphere(9.9F, 4), true},
        {"crossing a sphere", shapes::sphere(10, 4), cube(-5.8F, 5.8F), false},
    };
    for (const auto& c : cases) {
        const std::vector<ShellNesting> nesting = nesting_of(joined({c.outer, c.inner}));
        ASSERT_EQ(nesting.size(), 2U) << c.what;
        EXPECT_EQ(nesting[0].depth, 0U) << c.what;
        EXPECT_EQ(nesting[1].depth, c.is_inside ? 1U : 0U) << c.what;
    }
    EXPECT_FALSE(nesting_of(open_box)[0].is_closed);
    SoupVector one_turned = cube(0, 1);
    std::swap_ranges(one_turned.begin(), one_turned.begin() + 3, one_turned.begin() + 3);
    EXPECT_TRUE(nesting_of(one_turned)[0].is_closed);
    EXPECT_FALSE(nesting_of(one_turned)[0].is_oriented);
    EXPECT_TRUE(nesting_of(shapes::turned(cube(0, 1)))[0].is_oriented);
}

TEST(Nesting, ACavityStaysOneWhereItTouchesOrBreaksItsWall) {
    const SoupVector wall = cube(0, 10);
    const auto cavity = [&](Vec3f low, Vec3f high) {
        return nesting_of(joined({wall, shapes::turned(shapes::box(low, high))}))[1].is_cavity();
    };
    EXPECT_TRUE(cavity({0, 2, 2}, {8, 8, 8})) << "against a side, where nothing but the box tells";
    EXPECT_TRUE(cavity({2, 2, 2}, {8, 8, 10.5F})) << "through the top";
    EXPECT_FALSE(cavity({2, 2, 9}, {8, 8, 20})) << "a body wound inward that only reaches in";
    EXPECT_FALSE(cavity({-1, -1, -1}, {11, 11, 11})) << "around all of it";
    // Wound alike they are two bodies, however much of the one is in the other.
    EXPECT_EQ(nesting_of(joined({wall, shapes::box({2, 2, 2}, {8, 8, 10.5F})}))[1].depth, 0U);
}

// Boxes whose first corner lies, as the ray runs, straight before a corner of the sphere, beside it
// on an edge or below it.
TEST(Nesting, RaysMayMeetCorners) {
    for (const float below : {0.0F, 0.25F}) {
        SoupVector soup = shapes::sphere(10, 3);
        const TriMesh sphere = shapes::mesh_of(soup);
        std::uint32_t boxes = 0;
        for (const Vertex& v : sphere.vertices) {
            if (v.x < 4) continue;
            const float z = v.z - below;
            shapes::append(soup, shapes::box({0, v.y, z}, {0.001F, v.y + 0.001F, z + 0.001F}));
            ++boxes;
        }
        const std::vector<ShellNesting> nesting = nesting_of(soup);
        ASSERT_EQ(nesting.size(), boxes + 1);
        for (std::uint32_t i = 1; i <= boxes; ++i) EXPECT_EQ(nesting[i].depth, 1U) << i;
    }
}

TEST(Nesting, CountsEveryShellAround) {
    SoupVector soup;
    for (int radius = 1; radius <= 20; ++radius) {
        shapes::append(soup, shapes::sphere(static_cast<float>(radius), 3));
    }
    const std::vector<ShellNesting> nesting = nesting_of(soup);
    for (std::uint32_t i = 0; i < 20; ++i) {
        EXPECT_EQ(nesting[i].depth, 19 - i);
        EXPECT_EQ(nesting[i].around, i == 19 ? ShellNesting::kNone : i + 1);
        EXPECT_EQ(nesting[i].is_cavity(), i % 2 == 0);
    }
}

class RealModels : public testing::Test {
protected:
    static bool read(const std::string& name, TriMesh& mesh) {
        const char* const folder = std::getenv("POVMESH_MODELS");
        if (folder == nullptr) return false;
        RunLog log;
        RunContext run{{}, log};
        Array<float> coordinates;
        StlInfo info;
        const Status status =
            read_stl_soup(std::string(folder) + "/" + name, {}, run, coordinates, info);
        EXPECT_TRUE(status.ok()) << status.text();
        build_f(mesh, Soup{coordinates.size() / 9, coordinates.data()});
        label_shells(mesh);
        return true;
    }
};

TEST_F(RealModels, SeparateAsBodies) {
    const struct {
        const char* name;
        std::size_t shells, apart, kept;
    } cases[] = {
        {"box_assembly.stl", 10, 1, 1},
        {"sphere_in_cube_cavity_ascii.stl", 2, 2, 1},
        {"flaw_nested_cubes.stl", 2, 2, 1},
        {"flaw_overlapping_cubes.stl", 2, 1, 1},
        {"flaw_vertex_touching_cubes.stl", 2, 2, 2},
    };
    for (const auto& c : cases) {
        TriMesh mesh;
        if (!read(c.name, mesh)) GTEST_SKIP() << "POVMESH_MODELS is not set";
        EXPECT_EQ(mesh.shells.size(), c.shells) << c.name;
        EXPECT_EQ(group_shells(mesh, {}).size(), c.apart) << c.name;
        EXPECT_EQ(group_shells(mesh, {true}).size(), c.kept) << c.name;
    }
}

}  // namespace
}  // namespace povmesh
