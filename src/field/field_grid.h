// The regular grid of nodes that a distance field is sampled on.
#pragma once

#include <array>
#include <cstdint>

#include "base/status.h"
#include "base/vec.h"

namespace povmesh {

/// Nodes at origin + cell * (i, j, k). A cell is the cube between eight nodes, numbered like its
/// lowest one.
///
/// Nodes lie at cell * (whole number + 3/8, 5/16, 7/16), so that they seldom fall on the planes and
/// edges that people draw; the cell has 6 significant bits, so that every node is an exact double,
/// the same along a whole line of the grid.
struct FieldGrid {
    Vec3d origin;
    double cell = 0;  // model units
    std::array<std::int32_t, 3> nodes{};

    Vec3d node(std::int32_t i, std::int32_t j, std::int32_t k) const {
        return {origin.x + cell * i, origin.y + cell * j, origin.z + cell * k};
    }
    bool contains(std::int32_t i, std::int32_t j, std::int32_t k) const {
        return i >= 0 && j >= 0 && k >= 0 && i < nodes[0] && j < nodes[1] && k < nodes[2];
    }
};

/// Plans the nodes around a box: at least one lies beyond every side of it.
///
/// @param box   what the nodes have to reach around, margins included
/// @param cell  side of a cell in model units; rounded to 6 significant bits
/// @return  TooLarge, with the least cell that works, beyond 16,000 nodes along an axis or 2^31 in
///          all, and where floats are too coarse for cells of that size; BadOption when the box is
///          empty or a number is not finite, not above 0, or so small or large that exact
///          arithmetic would leave the range of doubles
Status plan_grid(const Box3d& box, double cell, FieldGrid& grid);

/// The cell nearest to a given one that has 6 significant bits.
double rounded_cell(double cell);

}  // namespace povmesh
