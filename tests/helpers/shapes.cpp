#include "helpers/shapes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <utility>

namespace povmesh::shapes {
namespace {

using Triangle = std::array<Vec3d, 3>;

void push(SoupVector& soup, Vec3f a, Vec3f b, Vec3f c) {
    for (const Vec3f p : {a, b, c}) soup.insert(soup.end(), {p.x, p.y, p.z});
}

Vec3f to_float(Vec3d p) {
    return {static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)};
}

Vec3d unit(Vec3d p) {
    return p / length(p);
}

std::vector<Triangle> unit_sphere(int levels) {
    const double g = std::numbers::phi;
    const std::array<Vec3d, 12> p = {Vec3d{-1, g, 0}, {1, g, 0}, {-1, -g, 0}, {1, -g, 0},
                                     {0, -1, g},      {0, 1, g}, {0, -1, -g}, {0, 1, -g},
                                     {g, 0, -1},      {g, 0, 1}, {-g, 0, -1}, {-g, 0, 1}};
    constexpr std::array<std::array<std::size_t, 3>, 20> kFaces = {
        {{0, 11, 5},  {0, 5, 1},  {0, 1, 7},  {0, 7, 10}, {0, 10, 11}, {1, 5, 9}, {5, 11, 4},
         {11, 10, 2}, {10, 7, 6}, {7, 1, 8},  {3, 9, 4},  {3, 4, 2},   {3, 2, 6}, {3, 6, 8},
         {3, 8, 9},   {4, 9, 5},  {2, 4, 11}, {6, 2, 10}, {8, 6, 7},   {9, 8, 1}}};
    std::vector<Triangle> triangles;
    triangles.reserve(kFaces.size());
    for (const auto& f : kFaces) triangles.push_back({unit(p[f[0]]), unit(p[f[1]]), unit(p[f[2]])});
    for (int level = 0; level < levels; ++level) {
        std::vector<Triangle> finer;
        finer.reserve(triangles.size() * 4);
        for (const auto& [a, b, c] : triangles) {
            // a + b is the same bits as b + a, so the two faces at an edge get the same midpoint.
            const Vec3d ab = unit(a + b);
            const Vec3d bc = unit(b + c);
            const Vec3d ca = unit(c + a);
            finer.push_back({a, ab, ca});
            finer.push_back({ab, b, bc});
            finer.push_back({ca, bc, c});
            finer.push_back({ab, bc, ca});
        }
        triangles = std::move(finer);
    }
    return triangles;
}

// Bumps of falling height: smooth at large scale, rough at small.
double rock_height(Vec3d p) {
    double height = 1.0;
    double frequency = 1.7;
    double amplitude = 0.12;
    for (int octave = 0; octave < 7; ++octave) {
        const double shift = 1.3 * octave;
        height += amplitude * std::sin(frequency * p.x + shift) *
                  std::sin(frequency * p.y + 2.1 * shift) * std::cos(frequency * p.z - shift);
        frequency *= 2.1;
        amplitude *= 0.47;
    }
    return height;
}

}  // namespace

SoupVector box(Vec3f low, Vec3f high) {
    const auto corner = [&](unsigned i) {
        return Vec3f{(i & 1U) != 0 ? high.x : low.x, (i & 2U) != 0 ? high.y : low.y,
                     (i & 4U) != 0 ? high.z : low.z};
    };
    constexpr std::array<std::array<unsigned, 4>, 6> kSides = {
        {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}}};
    SoupVector soup;
    for (const auto& s : kSides) {
        push(soup, corner(s[0]), corner(s[1]), corner(s[2]));
        push(soup, corner(s[0]), corner(s[2]), corner(s[3]));
    }
    return soup;
}

SoupVector sphere(float radius, int levels) {
    SoupVector soup;
    for (const auto& [a, b, c] : unit_sphere(levels)) {
        push(soup, to_float(a * radius), to_float(b * radius), to_float(c * radius));
    }
    return soup;
}

SoupVector rock(float radius, int levels) {
    const auto place = [&](Vec3d p) { return to_float(p * (radius * rock_height(p))); };
    const std::vector<Triangle> triangles = unit_sphere(levels);
    SoupVector soup;
    soup.reserve(triangles.size() * 9);
    for (const auto& [a, b, c] : triangles) push(soup, place(a), place(b), place(c));
    return soup;
}

SoupVector fan(std::size_t count, float height) {
    const auto rim = [&](std::size_t i) {
        const double angle =
            2 * std::numbers::pi * static_cast<double>(i % count) / static_cast<double>(count);
        return to_float({1000 * std::cos(angle), 1000 * std::sin(angle), 0});
    };
    SoupVector soup;
    soup.reserve(count * 9);
    for (std::size_t i = 0; i < count; ++i) push(soup, {0, 0, height}, rim(i), rim(i + 1));
    return soup;
}

SoupVector book(std::size_t count) {
    SoupVector soup;
    soup.reserve(count * 9);
    for (std::size_t i = 0; i < count; ++i) {
        const double angle =
            2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(count);
        push(soup, {0, 0, 0}, {0, 0, 1},
             to_float({1000 * std::cos(angle), 1000 * std::sin(angle), 0.5}));
    }
    return soup;
}

SoupVector shuffled(std::span<const float> soup, std::uint64_t seed) {
    SoupVector result(soup.begin(), soup.end());
    Random random(seed);
    for (std::size_t i = result.size() / 9; i > 1; --i) {
        const std::size_t j = random.below(i);
        if (j == i - 1) continue;
        std::swap_ranges(result.begin() + static_cast<std::ptrdiff_t>((i - 1) * 9),
                         result.begin() + static_cast<std::ptrdiff_t>(i * 9),
                         result.begin() + static_cast<std::ptrdiff_t>(j * 9));
    }
    return result;
}

SoupVector turned(std::span<const float> soup) {
    SoupVector result(soup.begin(), soup.end());
    for (std::size_t i = 0; i + 9 <= result.size(); i += 9) {
        const auto first = result.begin() + static_cast<std::ptrdiff_t>(i);
        std::swap_ranges(first, first + 3, first + 3);
    }
    return result;
}

void append(SoupVector& soup, std::span<const float> more) {
    soup.insert(soup.end(), more.begin(), more.end());
}

void move(SoupVector& soup, Vec3f by) {
    for (std::size_t i = 0; i < soup.size(); i += 3) {
        soup[i] += by.x;
        soup[i + 1] += by.y;
        soup[i + 2] += by.z;
    }
}

TriMesh mesh_of(std::span<const float> soup) {
    TriMesh mesh;
    build_f(mesh, Soup{soup.size() / 9, soup.data()});
    return mesh;
}

std::uint64_t Random::next() {
    std::uint64_t z = (state_ += 0x9E3779B97F4A7C15U);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31);
}

}  // namespace povmesh::shapes
