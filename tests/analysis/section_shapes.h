// Solids whose cross-sections are known: turned on a lathe or built of blocks.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <functional>
#include <numbers>
#include <vector>

#include "base/predicates.h"
#include "helpers/shapes.h"

namespace povmesh::shapes {

using Place = std::function<Vec3d(Vec3d)>;

inline void add_triangle(SoupVector& soup, Vec3d a, Vec3d b, Vec3d c) {
    for (const Vec3d p : {a, b, c}) {
        for (const double value : {p.x, p.y, p.z}) soup.push_back(static_cast<float>(value));
    }
}

/// A solid of revolution about the z axis, a regular polygon of `sides` corners at each height;
/// profile: (radius, height) from the bottom to the top.
inline SoupVector lathe(const std::vector<Point2d>& profile, int sides) {
    SoupVector soup;
    const auto at = [&](const Point2d& p, int i) {
        if (p.x == 0)
            return Vec3d{0, 0, p.y};  // 0 times a cosine may be -0, which is another point
        const double angle = 2 * std::numbers::pi * (i % sides) / sides;
        return Vec3d{p.x * std::cos(angle), p.x * std::sin(angle), p.y};
    };
    for (int i = 0; i < sides; ++i) {
        for (std::size_t k = 0; k + 1 < profile.size(); ++k) {
            const Vec3d a = at(profile[k], i);
            const Vec3d b = at(profile[k], i + 1);
            const Vec3d c = at(profile[k + 1], i + 1);
            const Vec3d d = at(profile[k + 1], i);
            if (profile[k].x > 0) add_triangle(soup, a, b, c);
            if (profile[k + 1].x > 0) add_triangle(soup, a, c, d);
        }
        const Vec3d bottom{0, 0, profile.front().y};
        const Vec3d top{0, 0, profile.back().y};
        if (profile.front().x > 0) {
            add_triangle(soup, bottom, at(profile.front(), i + 1), at(profile.front(), i));
        }
        if (profile.back().x > 0) {
            add_triangle(soup, top, at(profile.back(), i), at(profile.back(), i + 1));
        }
    }
    return soup;
}

/// The cells of a grid of planes that are full, as one closed solid; `full` is asked for cells
/// within the grid.
inline SoupVector blocks(const std::array<std::vector<double>, 3>& planes,
                         const std::function<bool(int, int, int)>& full) {
    SoupVector soup;
    const std::array<int, 3> count = {static_cast<int>(planes[0].size()) - 1,
                                      static_cast<int>(planes[1].size()) - 1,
                                      static_cast<int>(planes[2].size()) - 1};
    const auto is_full = [&](std::array<int, 3> c) {
        for (std::size_t a = 0; a < 3; ++a) {
            if (c[a] < 0 || c[a] >= count[a]) return false;
        }
        return full(c[0], c[1], c[2]);
    };
    const auto corner = [&](std::array<int, 3> c) {
        return Vec3d{planes[0][static_cast<std::size_t>(c[0])],
                     planes[1][static_cast<std::size_t>(c[1])],
                     planes[2][static_cast<std::size_t>(c[2])]};
    };
    std::array<int, 3> c{};
    for (c[0] = 0; c[0] < count[0]; ++c[0]) {
        for (c[1] = 0; c[1] < count[1]; ++c[1]) {
            for (c[2] = 0; c[2] < count[2]; ++c[2]) {
                if (!is_full(c)) continue;
                for (std::size_t a = 0; a < 3; ++a) {
                    for (const int side : {0, 1}) {
                        std::array<int, 3> beside = c;
                        beside[a] += side == 1 ? 1 : -1;
                        if (is_full(beside)) continue;
                        std::array<int, 3> p = c;
                        p[a] += side;
                        std::array<int, 3> q = p;
                        std::array<int, 3> r = p;
                        std::array<int, 3> s = p;
                        const std::size_t u = (a + (side == 1 ? 1 : 2)) % 3;
                        const std::size_t v = 3 - a - u;
                        ++q[u];
                        ++r[u];
                        ++r[v];
                        ++s[v];
                        add_triangle(soup, corner(p), corner(q), corner(r));
                        add_triangle(soup, corner(p), corner(r), corner(s));
                    }
                }
            }
        }
    }
    return soup;
}

inline SoupVector placed(SoupVector soup, const Place& place) {
    for (std::size_t i = 0; i + 2 < soup.size(); i += 3) {
        const Vec3d p = place({soup[i], soup[i + 1], soup[i + 2]});
        soup[i] = static_cast<float>(p.x);
        soup[i + 1] = static_cast<float>(p.y);
        soup[i + 2] = static_cast<float>(p.z);
    }
    return soup;
}

}  // namespace povmesh::shapes
