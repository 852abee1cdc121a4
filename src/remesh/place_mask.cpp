// A box adds 1 at its low corner of the grid and takes it away again behind its high ones, so that
// running sums along the axes tell how many boxes hold a cell. Running sums over the marked cells
// then tell in eight look-ups whether a box holds one.
//
// Source: F. Crow, Summed-area tables for texture mapping, SIGGRAPH 1984.
#include "remesh/place_mask.h"

#include <algorithm>

#include "base/convert.h"

namespace povmesh {

PlaceMask::PlaceMask(const Box3f& bounds) {
    if (!bounds.is_empty()) {
        low_ = to_double(bounds.low);
        const Vec3d size = to_double(bounds.high) - low_;
        const auto scale = [](double side) { return side > 0 ? kSide / side : 0.0; };
        cells_per_unit_ = {scale(size.x), scale(size.y), scale(size.z)};
    }
    sums_.assign((kSide + 1) * (kSide + 1) * (kSide + 1), 0);
}

PlaceMask::Cell PlaceMask::cell_of(Vec3d p) const {
    const auto along = [](double x) {
        return std::min(saturate_to<std::size_t>(x), kSide - 1);  // also of what is not a number
    };
    return {along((p.x - low_.x) * cells_per_unit_.x), along((p.y - low_.y) * cells_per_unit_.y),
            along((p.z - low_.z) * cells_per_unit_.z)};
}

// Calls visit(index, sign) for the corners of a box of cells, low to high exclusive.
template <typename Visit>
void PlaceMask::visit_corners(const Cell& low, const Cell& high, Visit&& visit) {
    for (std::size_t corner = 0; corner < 8; ++corner) {
        const auto at = [&](std::size_t axis) {
            return (corner >> axis & 1U) != 0 ? high[axis] + 1 : low[axis];
        };
        const std::size_t highs = (corner & 1U) + (corner >> 1 & 1U) + (corner >> 2 & 1U);
        visit(index(at(0), at(1), at(2)), highs % 2 == 0 ? 1 : -1);
    }
}

void PlaceMask::add(const Box3d& box) {
    ++count_;
    visit_corners(cell_of(box.low), cell_of(box.high),
                  [&](std::size_t place, std::int32_t sign) { sums_[place] += sign; });
}

// Running sums along each axis in turn.
void PlaceMask::sum_up() {
    constexpr std::array<std::size_t, 3> kSteps = {1, kSide + 1, (kSide + 1) * (kSide + 1)};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        for (std::size_t i = 0; i < sums_.size(); ++i) {
            if (i / kSteps[axis] % (kSide + 1) != 0) sums_[i] += sums_[i - kSteps[axis]];
        }
    }
}

void PlaceMask::finish() {
    sum_up();
    // The marks move up by a cell along each axis: an entry is then the sum of the cells below it.
    for (std::size_t z = kSide + 1; z-- > 0;) {
        for (std::size_t y = kSide + 1; y-- > 0;) {
            for (std::size_t x = kSide + 1; x-- > 0;) {
                const bool is_inside = x > 0 && y > 0 && z > 0;
                sums_[index(x, y, z)] = is_inside && sums_[index(x - 1, y - 1, z - 1)] > 0 ? 1 : 0;
            }
        }
    }
    sum_up();
}

bool PlaceMask::meets(const Box3d& box) const {
    std::int32_t marked = 0;
    visit_corners(cell_of(box.low), cell_of(box.high),
                  [&](std::size_t place, std::int32_t sign) { marked -= sign * sums_[place]; });
    return marked > 0;
}

}  // namespace povmesh
