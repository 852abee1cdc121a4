// Closed models for cutting.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <utility>
#include <vector>

#include "helpers/shapes.h"

namespace povmesh::solids {

using shapes::SoupVector;

/// A ring about the z axis.
inline SoupVector torus(int around, int across, float big, float small) {
    const auto at = [&](int i, int j) {
        const double u = 2 * std::numbers::pi * (i % around) / around;
        const double v = 2 * std::numbers::pi * (j % across) / across;
        const double r = big + small * std::cos(v);
        return std::array<float, 3>{static_cast<float>(r * std::cos(u)),
                                    static_cast<float>(r * std::sin(u)),
                                    static_cast<float>(small * std::sin(v))};
    };
    SoupVector soup;
    for (int i = 0; i < around; ++i) {
        for (int j = 0; j < across; ++j) {
            const std::array corners = {at(i, j), at(i + 1, j),     at(i + 1, j + 1),
                                        at(i, j), at(i + 1, j + 1), at(i, j + 1)};
            for (const auto& c : corners) soup.insert(soup.end(), c.begin(), c.end());
        }
    }
    return soup;
}

/// The surface of the unit cells of a grid whose bits are set (x fastest), wound outward. Where
/// cells meet only along an edge, that edge has four faces.
inline SoupVector cells(std::array<int, 3> size, const std::vector<std::uint8_t>& is_set) {
    const auto filled = [&](std::array<int, 3> p) {
        for (std::size_t i = 0; i < 3; ++i) {
            if (p[i] < 0 || p[i] >= size[i]) return false;
        }
        const int place = p[0] + size[0] * (p[1] + size[1] * p[2]);
        return is_set[static_cast<std::size_t>(place)] != 0;
    };
    SoupVector soup;
    for (int z = 0; z < size[2]; ++z) {
        for (int y = 0; y < size[1]; ++y) {
            for (int x = 0; x < size[0]; ++x) {
                const std::array<int, 3> cell = {x, y, z};
                if (!filled(cell)) continue;
                for (std::size_t axis = 0; axis < 3; ++axis) {
                    for (const int to : {0, 1}) {
                        std::array<int, 3> beside = cell;
                        beside[axis] += to * 2 - 1;
                        if (filled(beside)) continue;
                        const std::size_t u = (axis + 1) % 3;
                        const std::size_t v = (axis + 2) % 3;
                        std::array<std::array<int, 3>, 4> corner;
                        for (int k = 0; k < 4; ++k) {
                            auto& p = corner[static_cast<std::size_t>(k)] = cell;
                            p[axis] += to;
                            p[to == 1 ? u : v] += k == 1 || k == 2 ? 1 : 0;
                            p[to == 1 ? v : u] += k >= 2 ? 1 : 0;
                        }
                        for (const std::size_t k : {0U, 1U, 2U, 0U, 2U, 3U}) {
                            for (const int c : corner[k]) soup.push_back(static_cast<float>(c));
                        }
                    }
                }
            }
        }
    }
    return soup;
}

/// Cells of a grid, each set with a chance of `eighths` in 8.
inline SoupVector random_cells(shapes::Random& random, int side, std::uint64_t eighths) {
    const auto n = static_cast<std::size_t>(side);
    std::vector<std::uint8_t> is_set(n * n * n);
    for (std::uint8_t& cell : is_set) cell = random.below(8) < eighths ? 1 : 0;
    return cells({side, side, side}, is_set);
}

/// Two legs that meet at y = 4, of the area 23 in the plane of x and y, and 1 deep. The faces of
/// both legs share an edge at the top.
inline SoupVector legs() {
    const std::array<std::array<float, 2>, 6> p = {
        {{0, 0}, {2, 0}, {3, 4}, {4, 0}, {6, 0}, {3, 9}}};
    SoupVector soup;
    const auto add = [&](std::size_t i, float z) {
        soup.insert(soup.end(), {p[i][0], p[i][1], z});
    };
    for (std::size_t i = 0; i < 6; ++i) {
        const std::size_t k = (i + 1) % 6;
        for (const auto& [at, z] :
             {std::pair{i, 1.0F}, {i, 0.0F}, {k, 0.0F}, {i, 1.0F}, {k, 0.0F}, {k, 1.0F}}) {
            add(at, z);
        }
        if (i == 4 || i == 5) continue;
        for (const std::size_t at : {i, k, std::size_t{5}}) add(at, 1);
        for (const std::size_t at : {k, i, std::size_t{5}}) add(at, 0);
    }
    return soup;
}

/// A box with a bore along z.
inline SoupVector tube() {
    return cells({3, 3, 1}, {1, 1, 1, 1, 0, 1, 1, 1, 1});
}

/// A box of 6 x 6 x 6 with a void inside, wound inward.
inline SoupVector hollow_box() {
    SoupVector soup = shapes::box({0, 0, 0}, {6, 6, 6});
    shapes::append(soup, shapes::turned(shapes::box({1, 1, 1}, {5, 5, 4})));
    return soup;
}

}  // namespace povmesh::solids
