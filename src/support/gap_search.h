// Finds the empty stretches below the overhangs of a voxelised model.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/array.h"
#include "voxel/voxel_grid.h"

namespace povmesh {

/// Heights in model coordinates: the layers just below the overhang and just above, or at, what is
/// below.
struct Gap {
    float upper = 0;
    float lower = 0;
    std::int32_t seed = 0;  // layer of the overhanging voxel
};

/// The gaps of each column of voxels, from above to below. Column (i, j) has the voxels i and j
/// places beyond `low_x` and `low_y`.
struct GapGrid {
    std::int32_t low_x = 0;  // of the voxels that there are
    std::int32_t low_y = 0;
    std::size_t count_x = 0;
    std::size_t count_y = 0;
    Array<std::uint32_t> offsets;  // by i * count_y + j, and the end
    Array<Gap> gaps;

    std::span<const Gap> at(std::size_t i, std::size_t j) const {
        const std::uint32_t* first = offsets.data() + i * count_y + j;
        return {gaps.data() + first[0], gaps.data() + first[1]};
    }
};

/// The steepest normal angle that `find_gaps` takes for an overhang: a threshold below 0 counts as
/// 0, one above 90 is mirrored at 90.
std::int8_t clamped_angle(std::int8_t threshold);

/// A voxel is an overhang when its lower side is exposed, its normal angle is at most the threshold
/// (in whole degrees, see `clamped_angle`), it lies more than 4 units above the floor and the place
/// 4 units below it is empty. The gap below goes down to the next voxel or the floor; it must be
/// longer than 4 units. Below walls (more than 75 degrees) it begins one layer lower.
///
/// @param grid  with angles and face flags
/// @param plate  height of the floor, model coordinates; that of a solid grid is its lowest voxel
///
/// Goes through the layers once, 64 columns at a time. Time: linear in words and overhangs.
GapGrid find_gaps(const VoxelGrid& grid, std::int8_t threshold, double plate);

}  // namespace povmesh
