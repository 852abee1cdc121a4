// How well a solid piece can be cut, at every place along an axis.
#pragma once

#include <cstddef>
#include <vector>

#include "decompose/solid_cells.h"

namespace povmesh {

struct SectionScale {
    double narrow = 0;     // a section narrower than this has no room for a peg, model units
    double perimeter = 0;  // of a section as large as it may be, model units
    double area = 0;       // of such a one
};

/// Between layer i - 1 and i of a piece, for i from 1 to the number of its layers - 1; entry 0 is
/// not used. The lower the better: the area of the section, once more a fifth of what of it has
/// fewer than three layers of material on a side, and of what is too narrow for a peg, over the
/// area of the scale, and a fifth of the length of the contour over that of the scale.
std::vector<double> section_qualities(const SolidPiece& piece, std::size_t axis,
                                      const CellGrid& grid, const SectionScale& scale);

}  // namespace povmesh
