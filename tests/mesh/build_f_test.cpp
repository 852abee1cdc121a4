// Welding and face making against the slow reference, on soups made to hit every rule.
#include "mesh/build_f.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <limits>
#include <set>
#include <stdexcept>
#include <vector>

#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "mesh/weld_table.h"
#include "mesh/welding.h"

namespace povmesh {
namespace {

using shapes::Random;
using Point = std::array<float, 3>;

float by_ulps(float value, int ulps) {
    return std::bit_cast<float>(std::bit_cast<std::uint32_t>(value) +
                                static_cast<std::uint32_t>(ulps));
}

template <std::size_t Count>
float pick(Random& random, const std::array<float, Count>& values) {
    return values[random.below(Count)];
}

float small(Random& random, std::uint64_t bound) {
    return static_cast<float>(random.below(bound));
}

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kLargest = std::numeric_limits<float>::max();
constexpr float kTiniest = std::numeric_limits<float>::denorm_min();

// Moves a point by a step over the bit patterns of x, y, z that leaves its key as it is.
Point with_same_key(Point p, int times) {
    return {by_ulps(p[0], 18 * times), by_ulps(p[1], -23 * times), by_ulps(p[2], 5 * times)};
}

// A point within a few last bits of a border between two cells, so that a cell index computed
// otherwise than in 32-bit floats shows.
Point near_a_border(Random& random) {
    constexpr Point kLow = {1.0F, 1.3F, 1.01F};
    constexpr Point kHigh = {1.7F, 1.97F, 1.99F};
    if (random.below(10) == 0) return random.below(2) == 0 ? kLow : kHigh;
    Point p = {1.352F, 1.637F, 1.493F};  // amid the cells of this box
    const std::size_t axis = random.below(3);
    const float cell = (kHigh[axis] - kLow[axis]) / 100.0F;
    const float border = random.below(10) == 0 ? 100.0F : 7 * small(random, 15);
    p[axis] = by_ulps(kLow[axis] + border * cell, -static_cast<int>(random.below(2)));
    return with_same_key(p, static_cast<int>(random.below(5)) - 2);
}

struct Kind {
    const char* name;
    Point (*point)(Random&);
};

constexpr Kind kKinds[] = {
    {"one digit",
     [](Random& r) {
         return Point{small(r, 10), small(r, 10), small(r, 10)};
     }},
    {"coincident",
     [](Random& r) {
         return Point{small(r, 3), small(r, 3), small(r, 3)};
     }},
    {"flat",
     [](Random& r) {
         return Point{small(r, 4), small(r, 4), 7.0F};
     }},
    {"last bits",
     [](Random& r) {
         return Point{by_ulps(1.5F, static_cast<int>(r.below(3))), small(r, 3),
                      by_ulps(-2.0F, static_cast<int>(r.below(3)))};
     }},
    {"signed zeros",
     [](Random& r) {
         const std::array<float, 3> values = {0.0F, -0.0F, 1.0F};
         return Point{pick(r, values), pick(r, values), pick(r, values)};
     }},
    // The starting values of the box lie inside or outside these by turns.
    {"beyond a million",
     [](Random& r) {
         return Point{1.0e6F + 500 * small(r, 5), -2.0e6F - 1000 * small(r, 5),
                      (small(r, 2) - 0.5F) * 4.0e6F + small(r, 5)};
     }},
    {"not finite",
     [](Random& r) {
         const std::array<float, 9> values = {kNan,     -kNan,     kInfinity, -kInfinity, 1e38F,
                                              kLargest, -kLargest, kTiniest,  3.0F};
         return Point{pick(r, values), pick(r, values), pick(r, values)};
     }},
    {"denormal",
     [](Random& r) {
         return Point{kTiniest * small(r, 3), kTiniest * small(r, 300), small(r, 2)};
     }},
    {"same keys beside borders", near_a_border},
    {"one key for all",
     [](Random& r) {
         return with_same_key({1.5F, 1.5F, 1.25F}, 60 * static_cast<int>(r.below(3000)));
     }},
    {"same keys, box beyond a million",
     [](Random& r) {
         Point p = near_a_border(r);
         for (float& x : p) x = std::bit_cast<float>(std::bit_cast<std::uint32_t>(x) + 0x0A000000U);
         return p;
     }},
};

struct RandomSoup {
    std::vector<float> coordinates, colours, texture_coordinates;
    std::vector<std::uint8_t> bytes;
    std::vector<std::int32_t> labels;
    unsigned present = 0;

    RandomSoup(const Kind& kind, Random& random) : present(static_cast<unsigned>(random.below(8))) {
        constexpr std::array<float, 12> kColours = {0.0F,   1.0F,  0.5F,         0.1F,
                                                    -0.5F,  1.5F,  123456792.0F, 1e17F,
                                                    -3e16F, 1e30F, kNan,         kInfinity};
        constexpr std::array<std::int32_t, 10> kLabels = {
            -1, 0, 1, 65535, 65536, 32767, 32768, 70000, INT32_MIN, INT32_MAX};
        const std::size_t count = random.below(random.below(4) == 0 ? 300 : 30);
        for (std::size_t i = 0; i < count * 3; ++i) {
            const Point p = kind.point(random);
            coordinates.insert(coordinates.end(), p.begin(), p.end());
        }
        for (std::size_t i = 0; i < count * 9; ++i) colours.push_back(pick(random, kColours));
        for (std::size_t i = 0; i < count * 9; ++i) {
            bytes.push_back(static_cast<std::uint8_t>(random.below(256)));
        }
        for (std::size_t i = 0; i < count * 6; ++i)
            texture_coordinates.push_back(small(random, 9) / 7);
        for (std::size_t i = 0; i < count; ++i) labels.push_back(kLabels[random.below(10)]);
    }

    template <typename AnySoup, typename Colour>
    AnySoup view(const std::vector<Colour>& colour) const {
        return {labels.size(), coordinates.data(), (present & 1U) != 0 ? colour.data() : nullptr,
                (present & 2U) != 0 ? texture_coordinates.data() : nullptr,
                (present & 4U) != 0 ? labels.data() : nullptr};
    }
};

TEST(BuildF, AgreesWithTheReferenceOnEveryKindOfSoup) {
    const WeldingScope scope(Welding::SameSums);
    for (const Kind& kind : kKinds) {
        for (std::uint64_t seed = 1; seed <= 120; ++seed) {
            Random random(seed);
            const RandomSoup soup(kind, random);
            TriMesh mesh;
            const auto floats = soup.view<Soup>(soup.colours);
            build_f(mesh, floats);
            ASSERT_EQ(reference::difference(reference::build_f(floats), mesh), "")
                << kind.name << ", seed " << seed;
            ASSERT_TRUE(is_consistent(mesh)) << kind.name << ", seed " << seed;

            const auto bytes = soup.view<ByteSoup>(soup.bytes);
            build_f(mesh, bytes);
            ASSERT_EQ(reference::difference(reference::build_f(bytes), mesh), "")
                << kind.name << " with bytes, seed " << seed;
        }
    }
}

TEST(BuildF, AgreesWithTheReferenceOnLargeMeshes) {
    const WeldingScope scope(Welding::SameSums);
    for (const auto& soup : {shapes::rock(30, 5), shapes::shuffled(shapes::rock(1e-6F, 5), 3)}) {
        const Soup view{soup.size() / 9, soup.data()};
        EXPECT_EQ(reference::difference(reference::build_f(view), shapes::mesh_of(soup)), "");
    }
}

TEST(BuildF, MergesEqualKeysOfOneCellOnly) {
    const WeldingScope scope(Welding::SameSums);
    const Point a = {1, 2, 3};
    const Point b = {by_ulps(1, 110881), by_ulps(2, -108881), 3};
    const struct {
        float size;
        std::size_t vertices;
    } cases[] = {{1000, 3}, {4, 4}};  // a and b lie 0.013 apart: in one cell of 10, in two of 0.04
    for (const auto& c : cases) {
        const float s = c.size;
        const TriMesh mesh = shapes::mesh_of(std::vector<float>{
            a[0], a[1], a[2], s, s, s, 0, 0, 0, b[0], b[1], b[2], 0, 0, 0, s, s, s});
        EXPECT_EQ(mesh.vertices.size(), c.vertices) << s;
        EXPECT_EQ(mesh.faces.size(), 2U);
        EXPECT_EQ(mesh.vertices[0].position(), (Vec3f{1, 2, 3}));
    }
    // A lone triangle: the box must be that of three corners.
    std::vector<float> lone;
    for (const int times : {0, 60'000, 120'000}) {
        const Point p = with_same_key({1.5F, 1.5F, 1.25F}, times);
        lone.insert(lone.end(), p.begin(), p.end());
    }
    EXPECT_EQ(shapes::mesh_of(lone).vertices.size(), 3U);
}

// By the rule of hosts a lattice of 40 steps a cell loses a tenth of its points.
TEST(BuildF, KeepsDifferentPointsApart) {
    std::vector<float> soup;
    std::set<Point> points;
    Random random(5);
    for (int i = 0; i < 20'001; ++i) {
        const Point p = {4096 + small(random, 40), 4096 + small(random, 40),
                         4096 + small(random, 40)};
        points.insert(p);
        soup.insert(soup.end(), p.begin(), p.end());
    }
    for (const Point& far : {Point{1, 1, 1}, Point{8000, 8000, 8000}, Point{1, 1, 8000}}) {
        soup.insert(soup.end(), far.begin(), far.end());
        points.insert(far);
    }
    soup.resize(soup.size() / 9 * 9);
    const std::size_t count = shapes::mesh_of(soup).vertices.size();
    EXPECT_EQ(count, points.size());
    const WeldingScope scope(Welding::SameSums);
    EXPECT_LT(shapes::mesh_of(soup).vertices.size(), count);
}

// An inverse modulo 2^64 of an odd number, by Newton's iteration.
constexpr std::uint64_t inverse(std::uint64_t odd) {
    std::uint64_t x = odd;
    for (int i = 0; i < 6; ++i) x *= 2 - odd * x;
    return x;
}

// A hash function that everybody knows can be inverted: these keys all begin their search at the
// same slot of a table that multiplies by two well-known numbers.
std::uint64_t key_against_a_fixed_hash(std::uint64_t i) {
    const std::uint64_t spread = i * inverse(0xD6E8FEB86659FD93U);
    return (spread ^ (spread >> 32)) * inverse(0x9E3779B97F4A7C15U);
}

TEST(WeldTable, KeysMadeToCollideAreFoundInAFewSteps) {
    constexpr std::uint64_t kCount = 20'000;
    const struct {
        const char* what;
        std::uint64_t (*key)(std::uint64_t);
        std::uint32_t (*cell)(std::uint64_t);
    } families[] = {
        {"made against a fixed hash", key_against_a_fixed_hash, [](auto) { return 0U; }},
        {"differ in high bits only", [](auto i) { return i << 36; }, [](auto) { return 7U; }},
        {"differ in low bits only", [](auto i) { return i; }, [](auto) { return 7U; }},
        {"differ in the cell only", [](auto) { return std::uint64_t{1} << 50; },
         [](auto i) { return static_cast<std::uint32_t>(i * 51); }},
        {"key and cell cancel out", [](auto i) { return (i % 128) << 44; },
         [](auto i) { return static_cast<std::uint32_t>(i % 128 + i / 128 * 128); }},
    };
    for (const auto& family : families) {
        WeldTable table(0);
        for (std::uint64_t i = 0; i < kCount; ++i) {
            table.make_room(i + 1);
            const std::uint64_t key = family.key(i);
            const std::uint32_t cell = family.cell(i);
            const auto next = static_cast<std::int32_t>(i);
            ASSERT_EQ(table.find_or_add(key, cell, table.home(key, cell), next), next);
        }
        std::size_t steps = 0;
        for (std::uint64_t i = 0; i < kCount; ++i) {
            steps += table.look_up_steps(family.key(i), family.cell(i));
        }
        // Linear probing of a table that is 5/8 full takes 1.8 steps on average.
        EXPECT_LT(static_cast<double>(steps) / kCount, 4.0) << family.what;
    }
}

TEST(BuildF, WeldsByBitsAlone) {
    const float next = by_ulps(1, 1);
    const struct {
        const char* what;
        std::vector<float> second;  // the first triangle is (0 0 0) (1 0 0) (0 1 0)
        std::size_t vertices, faces;
    } cases[] = {
        {"shared edge", {1, 0, 0, 0, 0, 0, 0, -1, 0}, 4, 2},
        {"last bit at both ends", {next, 0, 0, 0, by_ulps(0, 1), 0, 0, -1, 0}, 6, 2},
        {"negative zero", {1, 0, 0, 0, -0.0F, 0, 0, -1, 0}, 5, 2},
        {"corners 0 and 2 alike", {5, 5, 5, 6, 6, 6, 5, 5, 5}, 5, 1},
    };
    for (const auto& c : cases) {
        std::vector<float> soup = {0, 0, 0, 1, 0, 0, 0, 1, 0};
        soup.insert(soup.end(), c.second.begin(), c.second.end());
        const TriMesh mesh = shapes::mesh_of(soup);
        EXPECT_EQ(mesh.vertices.size(), c.vertices) << c.what;
        EXPECT_EQ(mesh.faces.size(), c.faces) << c.what;
    }
}

TEST(BuildF, StoresColoursAndLabelsModuloTheirWidth) {
    const std::vector<float> coordinates = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    const std::vector<float> colours = {1, 0.5F, 0, -0.5F, 1.5F, 2, kNan, 1e30F, 1e17F};
    const std::vector<float> uv = {1, 2, 3, 4, 5, 6};
    for (const auto& [label, stored] :
         {std::pair{65535, -1}, {-1, -1}, {70000, 4464}, {32768, -32768}}) {
        TriMesh mesh;
        build_f(mesh, Soup{1, coordinates.data(), colours.data(), uv.data(), &label});
        const Face& face = mesh.faces.at(0);
        // 1e17f * 255 = 99999998430674944 * 255 ends in the byte 0, -127 in 129, 382 in 126.
        EXPECT_EQ(face.colour, (std::array<std::uint8_t, 9>{255, 127, 0, 129, 126, 254, 0, 0, 0}));
        EXPECT_EQ(face.label, stored);
        EXPECT_EQ(mesh.texture_coordinates.size(), stored < 0 ? 0U : 3U);
    }
}

TEST(BuildF, ReplacesOnlyWhatItMakes) {
    TriMesh mesh = shapes::mesh_of(shapes::box({0, 0, 0}, {1, 1, 1}));
    ensure_uses(mesh);
    mesh.shells.offsets = {0, 1};
    mesh.shells.faces = {0};
    mesh.parts.resize(2);
    build_f(mesh, Soup{});
    EXPECT_TRUE(mesh.faces.empty() && mesh.vertices.empty() && mesh.texture_coordinates.empty());
    EXPECT_FALSE(mesh.use_table.is_built());
    EXPECT_EQ(mesh.shells.size(), 0U);
    EXPECT_EQ(mesh.parts.size(), 2U);

    const float never_read = 0;
    EXPECT_THROW(build_f(mesh, Soup{kMaxFaceCount + 1, &never_read}), std::length_error);
}

}  // namespace
}  // namespace povmesh
