// Marks boxes in space, and tells what lies in them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "base/vec.h"

namespace povmesh {

/// The union of boxes, rounded outward to the cells of a grid of 128 along each side of a box.
/// Any number of boxes costs the same as the grid: 8 MB.
class PlaceMask {
public:
    explicit PlaceMask(const Box3f& bounds);

    /// Marks a box; what is not finite of it counts as the border of the grid.
    void add(const Box3d& box);

    /// To be called once, between `add` and the questions.
    void finish();

    bool is_empty() const { return count_ == 0; }
    bool meets(const Box3d& box) const;

private:
    static constexpr std::size_t kSide = 128;
    using Cell = std::array<std::size_t, 3>;

    Cell cell_of(Vec3d p) const;
    static std::size_t index(std::size_t x, std::size_t y, std::size_t z) {
        return (z * (kSide + 1) + y) * (kSide + 1) + x;
    }
    void sum_up();
    template <typename Visit>
    static void visit_corners(const Cell& low, const Cell& high, Visit&& visit);

    Vec3d low_;
    Vec3d cells_per_unit_;
    std::size_t count_ = 0;
    Array<std::int32_t> sums_;  // differences at first, then the marked cells below each corner
};

}  // namespace povmesh
