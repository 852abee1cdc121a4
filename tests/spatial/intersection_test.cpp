#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <set>
#include <utility>
#include <vector>

#include "helpers/shapes.h"
#include "spatial/face_tree.h"
#include "spatial/oriented_boxes.h"
#include "spatial/self_intersection.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

using shapes::Random;
using Grid = Vec3<std::int64_t>;
using GridTriangle = std::array<Grid, 3>;

bool is_zero(Grid v) {
    return v == Grid{};
}

// Separated with a gap along one of all directions that a facet of the difference of two convex
// hulls of up to three points can have: in whole numbers, and with none of the cases of the code.
bool are_apart(const std::vector<Grid>& a, const std::vector<Grid>& b) {
    std::vector<Grid> edges;
    for (const auto* points : {&a, &b}) {
        for (std::size_t i = 0; i < points->size(); ++i) {
            for (std::size_t j = 0; j < i; ++j) edges.push_back((*points)[i] - (*points)[j]);
        }
    }
    const auto separates = [&](Grid axis) {
        const auto range = [&](const std::vector<Grid>& points) {
            std::pair<std::int64_t, std::int64_t> ends{INT64_MAX, INT64_MIN};
            for (const Grid p : points) {
                ends.first = std::min(ends.first, dot(axis, p));
                ends.second = std::max(ends.second, dot(axis, p));
            }
            return ends;
        };
        const auto [low_a, high_a] = range(a);
        const auto [low_b, high_b] = range(b);
        return high_a < low_b || high_b < low_a;
    };
    for (std::size_t i = 0; i < edges.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            const Grid normal = cross(edges[i], edges[j]);
            if (is_zero(normal)) continue;
            if (separates(normal)) return true;
            for (const Grid edge : edges) {
                if (separates(cross(normal, edge))) return true;
            }
        }
    }
    return false;
}

bool has_no_area(const GridTriangle& t) {
    return is_zero(cross(t[1] - t[0], t[2] - t[0]));
}

bool slow_intersect(const GridTriangle& a, const GridTriangle& b) {
    return !has_no_area(a) && !has_no_area(b) && !are_apart({a[0], a[1], a[2]}, {b[0], b[1], b[2]});
}

// Triangles with area.
bool slow_meet_beyond_shared(GridTriangle a, GridTriangle b) {
    std::size_t shared = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        const auto place =
            std::find(b.begin() + static_cast<std::ptrdiff_t>(shared), b.end(), a[i]);
        if (place == b.end()) continue;
        std::iter_swap(place, b.begin() + static_cast<std::ptrdiff_t>(shared));
        std::swap(a[i], a[shared]);
        ++shared;
    }
    if (shared == 3) return false;
    if (shared == 2) {
        const Grid normal_a = cross(a[1] - a[0], a[2] - a[0]);
        const Grid normal_b = cross(a[1] - a[0], b[2] - a[0]);
        return is_zero(cross(normal_a, normal_b)) && dot(normal_a, normal_b) > 0;
    }
    if (shared == 1) {
        return !are_apart({a[1], a[2]}, {b[0], b[1], b[2]}) ||
               !are_apart({b[1], b[2]}, {a[0], a[1], a[2]});
    }
    return slow_intersect(a, b);
}

Triangle placed(const GridTriangle& t, double scale, Vec3d offset) {
    Triangle result;
    for (std::size_t i = 0; i < 3; ++i) result[i] = to_double(t[i]) * scale + offset;
    return result;
}

void compare(const GridTriangle& a, const GridTriangle& b) {
    // All numbers are exact in floats; at the second place the filters cannot decide.
    static const std::array<std::pair<double, Vec3d>, 3> places = {
        {{1.0, {}}, {0x1p-10, {8191, -8000.5, 7000.25}}, {0x1p125, {}}}};
    const bool expected = slow_intersect(a, b);
    const bool expected_beyond =
        !has_no_area(a) && !has_no_area(b) && slow_meet_beyond_shared(a, b);
    for (const auto& [scale, offset] : places) {
        const Triangle ta = placed(a, scale, offset);
        const Triangle tb = placed(b, scale, offset);
        ASSERT_EQ(triangles_intersect(ta, tb), expected);
        ASSERT_EQ(has_area(ta), !has_no_area(a));
        if (has_area(ta) && has_area(tb)) {
            ASSERT_EQ(meet_beyond_shared(ta, tb), expected_beyond);
        }
    }
}

void compare_random(std::array<std::uint64_t, 3> extent, int count, std::uint64_t seed) {
    Random random(seed);
    for (int i = 0; i < count; ++i) {
        std::array<GridTriangle, 2> t;
        for (auto& triangle : t) {
            for (Grid& p : triangle) {
                p = {static_cast<std::int64_t>(random.below(extent[0])),
                     static_cast<std::int64_t>(random.below(extent[1])),
                     static_cast<std::int64_t>(random.below(extent[2]))};
            }
        }
        compare(t[0], t[1]);
        if (testing::Test::HasFatalFailure()) FAIL() << "seed " << seed << ", case " << i;
    }
}

TEST(TriangleIntersection, AgreesWithSeparatingAxesOnGrids) {
    compare_random({2, 2, 2}, 30000, 1);
    compare_random({4, 4, 4}, 60000, 2);
    compare_random({4, 4, 1}, 30000, 3);  // all in one plane
    compare_random({1, 4, 4}, 10000, 4);
    compare_random({3, 1, 3}, 10000, 5);
    compare_random({100, 100, 100}, 10000, 6);
}

TEST(TriangleIntersection, TakesNoNumbersThatAreNotFinite) {
    const Triangle sound{Vec3d{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    for (const double bad : {std::nan(""), std::numeric_limits<double>::infinity()}) {
        for (std::size_t corner = 0; corner < 3; ++corner) {
            Triangle broken = sound;
            broken[corner].z = bad;
            EXPECT_FALSE(triangles_intersect(sound, broken));
            EXPECT_FALSE(triangles_intersect(broken, sound));
        }
    }
}

using Pairs = std::set<std::pair<std::uint32_t, std::uint32_t>>;

Box3f random_box(Random& random) {
    // A coarse lattice, so that borders touch and centres coincide.
    const auto at = [&] { return static_cast<float>(random.below(24)); };
    Box3f box;
    box.widen({at(), at(), at()});
    box.widen(box.low + Vec3f{at(), at(), at()} * 0.125F);
    return random.below(20) == 0 ? Box3f() : box;
}

TEST(FaceTree, FindsWhatComparingAllBoxesFinds) {
    Random random(7);
    for (const std::size_t size : {0U, 1U, 4U, 5U, 100U, 700U}) {
        std::array<std::vector<Box3f>, 2> boxes;
        for (auto& list : boxes) {
            for (std::size_t i = 0; i < size; ++i) list.push_back(random_box(random));
        }
        const FaceTree a(boxes[0]);
        const FaceTree b(boxes[1]);
        Pairs expected;
        Pairs expected_own;
        const auto meet = [](const Box3f& p, const Box3f& q) {
            return !p.is_empty() && !q.is_empty() && overlap(p, q);
        };
        for (std::uint32_t i = 0; i < size; ++i) {
            for (std::uint32_t j = 0; j < size; ++j) {
                if (meet(boxes[0][i], boxes[1][j])) expected.insert({i, j});
                if (i < j && meet(boxes[0][i], boxes[0][j])) expected_own.insert({i, j});
            }
        }
        Pairs by_box;
        for (std::uint32_t i = 0; i < size; ++i) {
            b.visit_overlapping(boxes[0][i], [&](std::uint32_t j) {
                EXPECT_TRUE(by_box.insert({i, j}).second);
                return false;
            });
        }
        Pairs by_pairs;
        a.visit_pairs(b, [&](std::uint32_t i, std::uint32_t j) {
            EXPECT_TRUE(by_pairs.insert({i, j}).second);
            return false;
        });
        Pairs own;
        a.visit_own_pairs(
            [&](std::uint32_t i, std::uint32_t j) {
                EXPECT_TRUE(own.insert(std::minmax(i, j)).second);
                return false;
            },
            [](std::uint32_t, std::uint32_t) { return false; });
        EXPECT_EQ(by_box, expected);
        EXPECT_EQ(by_pairs, expected);
        EXPECT_EQ(own, expected_own);
    }
}

// Extents that halve from box to box make the deepest trees; infinite and equal boxes have no
// middle to divide at.
TEST(FaceTree, StaysWithinItsDepth) {
    std::vector<Box3f> boxes;
    for (int i = -149; i < 128; ++i) {
        for (int axis = 0; axis < 9; ++axis) {
            const float at = std::ldexp(1.0F, i);
            Box3f box;
            box.widen({axis % 3 == 0 ? at : 0, axis % 3 == 1 ? at : 0, axis % 3 == 2 ? at : 0});
            boxes.push_back(box);
        }
    }
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    boxes.resize(boxes.size() + 100, Box3f{{-kInfinity, 0, 0}, {kInfinity, kInfinity, 0}});
    const FaceTree tree(boxes);
    std::vector<std::size_t> depth(tree.nodes().size());
    for (std::size_t i = 0; i < depth.size(); ++i) {
        ASSERT_LE(depth[i], FaceTree::kMaxDepth);
        if (tree.nodes()[i].is_leaf()) continue;
        depth[i + 1] = depth[tree.nodes()[i].place] = depth[i] + 1;
    }
    std::size_t found = 0;
    tree.visit_overlapping({{0, 0, 0}, {1, 1, 1}}, [&](std::uint32_t) { return ++found == 0; });
    EXPECT_EQ(found, 150U * 9 + 100);
}

// Needles of all lengths in clusters of one direction, some of them touching; small whole numbers,
// so that the second way, a separation of all their corners, is exact.
TEST(OrientedBoxes, KeepNothingApartThatTouches) {
    Random random(12);
    std::size_t told_apart = 0;
    for (int round = 0; round < 40; ++round) {
        const std::int64_t spread = 1 + static_cast<std::int64_t>(random.below(40));
        const auto at = [&](std::int64_t of) {
            return static_cast<std::int64_t>(random.below(static_cast<std::uint64_t>(of)));
        };
        const Grid direction{at(90) - 45, at(90) - 45, at(90) - 45};
        std::vector<GridTriangle> triangles;
        std::vector<Box3f> boxes;
        for (int i = 0; i < 60; ++i) {
            const Grid p{at(spread), at(spread), at(spread)};
            triangles.push_back({p, p + direction, p + direction + Grid{at(3), at(3), at(3)}});
            if (has_no_area(triangles.back()))
                triangles.back()[2] = p + Grid{direction.y - 1, 2 - direction.x, 0};
            Box3f box;
            for (const Grid q : triangles.back()) {
                box.widen(
                    {static_cast<float>(q.x), static_cast<float>(q.y), static_cast<float>(q.z)});
            }
            boxes.push_back(box);
        }
        const FaceTree tree(boxes);
        const OrientedBoxes oriented(tree, [&](std::uint32_t number, auto&& add) {
            for (const Grid q : triangles[number]) add(to_double(q));
        });
        std::vector<std::vector<Grid>> below(tree.nodes().size());  // corners under each node
        for (std::uint32_t i = 0; i < below.size(); ++i) {
            std::vector<std::uint32_t> stack = {i};
            while (!stack.empty()) {
                const std::uint32_t index = stack.back();
                const FaceTree::Node& node = tree.nodes()[index];
                stack.pop_back();
                if (!node.is_leaf()) {
                    stack.insert(stack.end(), {index + 1, node.place});
                    continue;
                }
                for (const std::uint32_t n : tree.numbers().subspan(node.place, node.count)) {
                    below[i].insert(below[i].end(), triangles[n].begin(), triangles[n].end());
                }
            }
        }
        for (std::uint32_t i = 0; i < below.size(); ++i) {
            for (std::uint32_t j = 0; j < below.size(); ++j) {
                if (!oriented.are_apart(i, oriented, j)) continue;
                ++told_apart;
                for (std::size_t a = 0; a + 3 <= below[i].size(); a += 3) {
                    for (std::size_t b = 0; b + 3 <= below[j].size(); b += 3) {
                        const auto corners = [](const std::vector<Grid>& all, std::size_t k) {
                            return std::vector<Grid>{all[k], all[k + 1], all[k + 2]};
                        };
                        ASSERT_TRUE(are_apart(corners(below[i], a), corners(below[j], b)));
                    }
                }
            }
        }
    }
    EXPECT_GT(told_apart, 10'000U);
}

std::vector<FacePair> slow_self_intersections(const TriMesh& mesh) {
    std::vector<FacePair> pairs;
    for (std::uint32_t i = 0; i < mesh.faces.size(); ++i) {
        for (std::uint32_t j = i + 1; j < mesh.faces.size(); ++j) {
            const Triangle a = triangle_of(mesh, mesh.faces[i]);
            const Triangle b = triangle_of(mesh, mesh.faces[j]);
            if (mesh.faces[i].deleted == 0 && mesh.faces[j].deleted == 0 && has_area(a) &&
                has_area(b) && meet_beyond_shared(a, b)) {
                pairs.push_back({i, j});
            }
        }
    }
    return pairs;
}

TEST(SelfIntersections, AreThoseOfAllPairs) {
    Random random(8);
    shapes::SoupVector soup(3600);
    for (float& x : soup) x = static_cast<float>(random.below(9));
    TriMesh mesh = shapes::mesh_of(soup);
    mesh.faces[3].deleted = 1;
    const std::vector<FacePair> expected = slow_self_intersections(mesh);
    ASSERT_GT(expected.size(), 1000U);
    const SelfIntersections all = find_self_intersections(mesh, expected.size() + 1);
    EXPECT_EQ(all.count, expected.size());
    EXPECT_EQ(all.pairs, expected);
    const SelfIntersections some = find_self_intersections(mesh, 10);
    EXPECT_EQ(some.count, expected.size());
    EXPECT_EQ(some.pairs, std::vector<FacePair>(expected.begin(), expected.begin() + 10));
}

// Faces around one vertex and one edge are compared by directions; those that lie in the same one
// must still be found, also across fans.
TEST(SelfIntersections, AreFoundAroundVerticesAndEdgesOfHighValence) {
    Random random(9);
    const auto at = [&] { return static_cast<float>(random.below(12)) - 5.5F; };
    shapes::SoupVector soup;
    const float far_out = 1000;
    for (int i = 0; i < 1200; ++i) {
        // A needle now and then, and apexes (0, 0, 0) and (0, 0, 2) with and without their
        // edge.
        const float scale = i % 7 == 0 ? far_out : 1;
        const float height = i % 3 == 0 ? 2 : 0;
        soup.insert(soup.end(), {0, 0, height});
        if (i % 2 == 0) {
            soup.insert(soup.end(), {0, 0, 2 - height});
        } else {
            soup.insert(soup.end(), {at(), at(), at() * scale});
        }
        soup.insert(soup.end(), {at() * scale, at() * scale, at()});
    }
    const TriMesh mesh = shapes::mesh_of(soup);
    const std::vector<FacePair> expected = slow_self_intersections(mesh);
    ASSERT_GT(expected.size(), 1000U);
    EXPECT_EQ(find_self_intersections(mesh, expected.size()).pairs, expected);
    // The same pairs for some of the faces, from either side.
    std::vector<std::uint32_t> some;
    for (std::uint32_t f = 5; f < mesh.faces.size(); f += 37) some.push_back(f);
    std::vector<FacePair> meetings;
    for (const auto& [first, second] : expected) {
        if (first % 37 == 5) meetings.push_back({first, second});
        if (second % 37 == 5) meetings.push_back({second, first});
    }
    std::sort(meetings.begin(), meetings.end(), [](const FacePair& a, const FacePair& b) {
        return a.first != b.first ? a.first < b.first : a.second < b.second;
    });
    EXPECT_EQ(find_meetings(mesh, some), meetings);
}

TEST(SelfIntersections, SoundSurfacesHaveNone) {
    shapes::SoupVector cavity = shapes::box({-9, -9, -9}, {9, 9, 9});
    shapes::append(cavity, shapes::turned(shapes::sphere(5, 3)));
    shapes::SoupVector doubled = shapes::box({0, 0, 0}, {1, 1, 1});
    shapes::append(doubled, shapes::box({0, 0, 0}, {1, 1, 1}));
    for (const auto& soup : {shapes::sphere(10, 4), shapes::rock(50, 4), cavity, doubled,
                             shapes::fan(100000, 10), shapes::book(100000), shapes::SoupVector()}) {
        EXPECT_EQ(find_self_intersections(shapes::mesh_of(soup), 5).count, 0U);
    }
}

TEST(SelfIntersections, FoldedFacesCount) {
    const TriMesh flap = shapes::mesh_of(std::vector<float>{0, 0, 0, 4, 0, 0, 0, 4, 0,    //
                                                            4, 0, 0, 0, 0, 0, 1, 1, 0});  // folded
    const TriMesh open = shapes::mesh_of(std::vector<float>{0, 0, 0, 4, 0, 0, 0, 4, 0,    //
                                                            4, 0, 0, 0, 0, 0, 1, -1, 0});
    EXPECT_THAT(find_self_intersections(flap, 5).pairs, testing::ElementsAre(FacePair{0, 1}));
    EXPECT_EQ(find_self_intersections(open, 5).count, 0U);
}

}  // namespace
}  // namespace povmesh
