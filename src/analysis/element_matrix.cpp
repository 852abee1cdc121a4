// The stiffness of an eight-node brick with incompatible modes, which lets it bend (E. L. Wilson,
// R. L. Taylor et al., Incompatible displacement models, 1973), and the same in the basis of the
// products of x, y and z at its corners.
#include "analysis/element_matrix.h"

#include <cstdint>

namespace povmesh::fem {
namespace {

// An eight-node brick with modes that let it bend, for the Poisson ratio 1/3. All entries are one
// of these, times E h / 64.
constexpr std::array<float, 14> kCoefficients = {
    116.0F / 9, 14.0F / 3,  -44.0F / 9, -2.0F / 3,  2.0F / 3, 40.0F / 9, 13.0F / 3,
    -14.0F / 3, -58.0F / 9, -7.0F / 3,  -13.0F / 3, 7.0F / 3, 20.0F / 9, -56.0F / 9};

// Which one, counted from 1.
using IndexRow = std::array<std::uint8_t, kElementDofs>;
constexpr std::array<IndexRow, kElementDofs> kIndices = {
    {{1, 2, 2, 3, 5, 5, 9, 8, 12, 6, 4, 7, 6, 7, 4, 9, 12, 8, 14, 11, 11, 13, 10, 10},
     {2, 1, 2, 4, 6, 7, 8, 9, 12, 5, 3, 5, 7, 6, 4, 10, 13, 10, 11, 14, 11, 12, 9, 8},
     {2, 2, 1, 4, 7, 6, 10, 10, 13, 7, 4, 6, 5, 5, 3, 8, 12, 9, 11, 11, 14, 12, 8, 9},
     {3, 4, 4, 1, 8, 8, 6, 5, 11, 9, 2, 10, 9, 10, 2, 6, 11, 5, 13, 12, 12, 14, 7, 7},
     {5, 6, 7, 8, 1, 2, 4, 3, 5, 2, 9, 12, 12, 13, 10, 11, 6, 4, 10, 9, 8, 7, 14, 11},
     {5, 7, 6, 8, 2, 1, 11, 4, 6, 12, 10, 13, 2, 12, 9, 4, 5, 3, 10, 8, 9, 7, 11, 14},
     {9, 8, 10, 6, 4, 11, 1, 2, 8, 3, 5, 4, 14, 11, 7, 13, 10, 12, 6, 7, 5, 9, 12, 2},
     {8, 9, 10, 5, 3, 4, 2, 1, 8, 4, 6, 11, 11, 14, 7, 12, 9, 2, 7, 6, 5, 10, 13, 12},
     {12, 12, 13, 11, 5, 6, 8, 8, 1, 5, 11, 6, 7, 7, 14, 10, 2, 9, 4, 4, 3, 2, 10, 9},
     {6, 5, 7, 9, 2, 12, 3, 4, 5, 1, 8, 2, 13, 12, 10, 14, 7, 11, 9, 10, 8, 6, 11, 4},
     {4, 3, 4, 2, 9, 10, 5, 6, 11, 8, 1, 8, 10, 9, 2, 7, 14, 7, 12, 13, 12, 11, 6, 5},
     {7, 5, 6, 10, 12, 13, 4, 11, 6, 2, 8, 1, 12, 2, 9, 11, 7, 14, 8, 10, 9, 5, 4, 3},
     {6, 7, 5, 9, 12, 2, 14, 11, 7, 13, 10, 12, 1, 2, 8, 3, 5, 4, 9, 8, 10, 6, 4, 11},
     {7, 6, 5, 10, 13, 12, 11, 14, 7, 12, 9, 2, 2, 1, 8, 4, 6, 11, 8, 9, 10, 5, 3, 4},
     {4, 4, 3, 2, 10, 9, 7, 7, 14, 10, 2, 9, 8, 8, 1, 5, 11, 6, 12, 12, 13, 11, 5, 6},
     {9, 10, 8, 6, 11, 4, 13, 12, 10, 14, 7, 11, 3, 4, 5, 1, 8, 2, 6, 5, 7, 9, 2, 12},
     {12, 13, 12, 11, 6, 5, 10, 9, 2, 7, 14, 7, 5, 6, 11, 8, 1, 8, 4, 3, 4, 2, 9, 10},
     {8, 10, 9, 5, 4, 3, 12, 2, 9, 11, 7, 14, 4, 11, 6, 2, 8, 1, 7, 5, 6, 10, 12, 13},
     {14, 11, 11, 13, 10, 10, 6, 7, 4, 9, 12, 8, 9, 8, 12, 6, 4, 7, 1, 2, 2, 3, 5, 5},
     {11, 14, 11, 12, 9, 8, 7, 6, 4, 10, 13, 10, 8, 9, 12, 5, 3, 5, 2, 1, 2, 4, 6, 7},
     {11, 11, 14, 12, 8, 9, 5, 5, 3, 8, 12, 9, 10, 10, 13, 7, 4, 6, 2, 2, 1, 4, 7, 6},
     {13, 12, 12, 14, 7, 7, 9, 10, 2, 6, 11, 5, 6, 5, 11, 9, 2, 10, 3, 4, 4, 1, 8, 8},
     {10, 9, 8, 7, 14, 11, 12, 13, 10, 11, 6, 4, 4, 3, 5, 2, 9, 12, 5, 6, 7, 8, 1, 2},
     {10, 8, 9, 7, 11, 14, 2, 12, 9, 4, 5, 3, 11, 4, 6, 12, 10, 13, 5, 7, 6, 8, 2, 1}}};

float entry(std::size_t row, std::size_t column) {
    return kCoefficients[kIndices[row][column] - 1U];
}

// A product of some of x, y, z at the corners, as displacements along an axis.
struct Mode {
    std::size_t axis;
    bool x, y, z;

    double at(std::size_t corner) const {
        const std::array<int, 3>& sign = kCornerSigns[corner];
        return (x ? sign[0] : 1) * (y ? sign[1] : 1) * (z ? sign[2] : 1);
    }
};

// What the forces of one mode do along another.
double product(const Mode& a, const Mode& b) {
    double sum = 0;
    for (std::size_t i = 0; i < kCorners; ++i) {
        for (std::size_t j = 0; j < kCorners; ++j) {
            const float k = entry(3 * i + a.axis, 3 * j + b.axis);
            sum += a.at(i) * static_cast<double>(k) * b.at(j);
        }
    }
    return sum;
}

}  // namespace

ElementMatrix element_matrix(float size) {
    const float factor = kYoungsModulus * size * (1.0F / 64);
    ElementMatrix matrix{};
    for (std::size_t row = 0; row < kElementDofs; ++row) {
        for (std::size_t column = 0; column < kElementDofs; ++column) {
            matrix[row][column] = factor * entry(row, column);
        }
    }
    return matrix;
}

ElementModes element_modes(float size) {
    const double factor = static_cast<double>(kYoungsModulus) * static_cast<double>(size) / 64 / 64;
    const auto scaled = [&](const Mode& a, const Mode& b) {
        return static_cast<float>(factor * product(a, b));
    };
    const Mode u_x{0, true, false, false};
    const Mode v_y{1, false, true, false};
    const Mode u_yz{0, false, true, true};
    const Mode v_xz{1, true, false, true};
    const Mode v_xy{1, true, true, false};
    const Mode w_xz{2, true, false, true};
    const Mode u_y{0, false, true, false};
    const Mode w_xyz{2, true, true, true};
    return {.stretch = scaled(u_x, v_y),
            .twist = scaled(u_yz, v_xz),
            .bend = scaled(v_xy, v_xy),
            .counter_bend = -scaled(v_xy, w_xz),
            .shear = scaled(u_y, u_y),
            .hourglass = scaled(w_xyz, w_xyz)};
}

}  // namespace povmesh::fem
