#include "decompose/solid_cells.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "base/convert.h"
#include "decompose/part_size.h"
#include "mesh/bounds.h"
#include "voxel/passes.h"
#include "voxel/voxelise.h"

namespace povmesh {
namespace {

// Of a flat model, so many cells along an axis do.
constexpr std::int32_t kMostAlong = 1023;

// A box as thick as this share of its greatest extent is one cell thick.
constexpr double kFlat = 1e-4;

CellGrid make_grid(const Box3d& box, double cells) {
    CellGrid grid;
    grid.box = box;
    const Vec3d extent = box.extent();
    const double largest = std::max({extent.x, extent.y, extent.z});
    double volume = 1;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        volume *= std::max(along(extent, axis), kFlat * largest);
    }
    const double wanted = std::cbrt(volume / cells);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const double length = std::max(along(extent, axis), kFlat * largest);
        const auto half = saturate_to<std::int32_t>(length / wanted / 2);
        // Odd, so that voxels around the middle of the box end where it ends.
        grid.count[axis] = std::min(2 * std::max(half, 0) + 1, kMostAlong);
        grid.edge[axis] = length / grid.count[axis];
    }
    return grid;
}

// Joins runs that touch over faces.
class RunJoiner {
public:
    RunJoiner(const std::vector<CellRun>& runs, const CellGrid& grid)
        : runs_(runs), parent_(runs.size()) {
        std::iota(parent_.begin(), parent_.end(), 0U);
        const auto rows = static_cast<std::size_t>(grid.count[1]);
        const std::size_t layers = runs.empty() ? 0 : static_cast<std::size_t>(runs.back().z) + 1;
        std::vector<std::uint32_t> first(rows * layers + 1, 0);
        const auto row_of = [&](const CellRun& run) {
            return static_cast<std::size_t>(run.z) * rows + static_cast<std::size_t>(run.y);
        };
        for (const CellRun& run : runs) ++first[row_of(run) + 1];
        std::partial_sum(first.begin(), first.end(), first.begin());
        for (std::size_t i = 0; i < runs.size();) {
            const std::size_t row = row_of(runs[i]);
            if (runs[i].y > 0) join(first[row], first[row + 1], first[row - 1], first[row]);
            if (runs[i].z > 0) {
                join(first[row], first[row + 1], first[row - rows], first[row - rows + 1]);
            }
            i = first[row + 1];
        }
    }

    std::uint32_t root(std::uint32_t i) {
        while (parent_[i] != i) i = parent_[i] = parent_[parent_[i]];
        return i;
    }

private:
    void join(std::size_t a, std::size_t a_end, std::size_t b, std::size_t b_end) {
        while (a < a_end && b < b_end) {
            if (runs_[a].begin < runs_[b].end && runs_[b].begin < runs_[a].end) {
                unite(static_cast<std::uint32_t>(a), static_cast<std::uint32_t>(b));
            }
            (runs_[a].end < runs_[b].end ? a : b) += 1;
        }
    }

    // The lower number stays, so that the pieces come in the order of their first runs.
    void unite(std::uint32_t a, std::uint32_t b) {
        a = root(a);
        b = root(b);
        parent_[std::max(a, b)] = std::min(a, b);
    }

    const std::vector<CellRun>& runs_;
    std::vector<std::uint32_t> parent_;
};

// The pieces that runs make. The box of cells that they are within ends where `within` ends.
std::vector<SolidPiece> pieces_of(const std::vector<CellRun>& runs, const CellGrid& grid,
                                  const std::array<std::int32_t, 3>& low,
                                  const std::array<std::int32_t, 3>& high, const Box3d& within) {
    std::vector<SolidPiece> pieces;
    RunJoiner joiner(runs, grid);
    std::vector<std::uint32_t> number(runs.size());
    for (std::uint32_t i = 0; i < runs.size(); ++i) {
        const std::uint32_t root = joiner.root(i);
        if (root == i) {
            number[i] = static_cast<std::uint32_t>(pieces.size());
            pieces.emplace_back();
            constexpr std::int32_t kFar = std::numeric_limits<std::int32_t>::max();
            pieces.back().low = {kFar, kFar, kFar};
        }
        SolidPiece& piece = pieces[number[root]];
        const CellRun& run = runs[i];
        piece.runs.push_back(run);
        piece.low = {std::min<std::int32_t>(piece.low[0], run.begin),
                     std::min<std::int32_t>(piece.low[1], run.y),
                     std::min<std::int32_t>(piece.low[2], run.z)};
        piece.high = {std::max<std::int32_t>(piece.high[0], run.end),
                      std::max<std::int32_t>(piece.high[1], run.y + 1),
                      std::max<std::int32_t>(piece.high[2], run.z + 1)};
        piece.cells += static_cast<std::size_t>(run.end - run.begin);
    }
    for (SolidPiece& piece : pieces) {
        std::array<double, 3> from{};
        std::array<double, 3> to{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double start = along(grid.box.low, axis);
            from[axis] = piece.low[axis] == low[axis] ? along(within.low, axis)
                                                      : start + grid.edge[axis] * piece.low[axis];
            to[axis] = piece.high[axis] == high[axis] ? along(within.high, axis)
                                                      : start + grid.edge[axis] * piece.high[axis];
        }
        piece.box = {{from[0], from[1], from[2]}, {to[0], to[1], to[2]}};
    }
    return pieces;
}

}  // namespace

SolidModel make_solid(const TriMesh& model, double cells_wanted) {
    SolidModel solid;
    const Box3f bounds = finite_bounds(model);
    if (bounds.is_empty()) return solid;
    const Box3d box{to_double(bounds.low), to_double(bounds.high)};
    const Vec3d extent = box.extent();
    if (!(std::max({extent.x, extent.y, extent.z}) > 0)) return solid;
    solid.grid = make_grid(box, cells_wanted);
    const CellGrid& grid = solid.grid;
    RunLog quiet;
    RunContext run{{}, quiet};
    VoxelSettings settings;
    settings.size = {narrow_to_float(grid.edge[0]), narrow_to_float(grid.edge[1]),
                     narrow_to_float(grid.edge[2])};
    VoxelGrid voxels = voxelise(model, settings, run);
    fill_rows(voxels, FillColour::White);
    const auto cells_along = [&](std::size_t axis) {
        return static_cast<std::size_t>(grid.count[axis]);
    };
    std::vector<std::uint8_t> cells(cells_along(0) * cells_along(1) * cells_along(2), 0);
    const auto place = [&](std::int32_t i, std::size_t axis) {
        // What lies on the upper border of the box falls into the voxel beyond it.
        const std::int32_t shifted = i + (grid.count[axis] - 1) / 2;
        return static_cast<std::size_t>(std::clamp(shifted, 0, grid.count[axis] - 1));
    };
    voxels.for_each([&](const Voxel& voxel) {
        cells[(place(voxel.index.z, 2) * cells_along(1) + place(voxel.index.y, 1)) *
                  cells_along(0) +
              place(voxel.index.x, 0)] = 1;
    });
    std::vector<CellRun> runs;
    const std::uint8_t* row = cells.data();
    const auto length = fits<std::int16_t>(grid.count[0]);
    for (std::int16_t z = 0; z < grid.count[2]; ++z) {
        for (std::int16_t y = 0; y < grid.count[1]; ++y, row += length) {
            for (std::int16_t x = 0; x < length; ++x) {
                const std::int16_t begin = x;
                while (x < length && row[x] != 0) ++x;
                if (x > begin) runs.push_back({z, y, begin, x});
            }
        }
    }
    solid.pieces = pieces_of(runs, grid, {0, 0, 0}, grid.count, box);
    return solid;
}

std::size_t cell_count(const SolidModel& solid) {
    std::size_t count = 1;
    for (const std::int32_t along : solid.grid.count) count *= static_cast<std::size_t>(along);
    return count;
}

SplitPiece split_piece(const SolidPiece& piece, const CutPlace& place, const CellGrid& grid) {
    const std::size_t axis = place.axis;
    const double layers = (place.offset - along(grid.box.low, axis)) / grid.edge[axis] + 0.5;
    const auto level = saturate_to<std::int16_t>(std::floor(layers));
    std::vector<CellRun> below;
    std::vector<CellRun> above;
    for (const CellRun& run : piece.runs) {
        if (axis == 0) {
            if (run.begin < level)
                below.push_back({run.z, run.y, run.begin, std::min(run.end, level)});
            if (run.end > level)
                above.push_back({run.z, run.y, std::max(run.begin, level), run.end});
        } else {
            ((axis == 1 ? run.y : run.z) < level ? below : above).push_back(run);
        }
    }
    std::array<std::int32_t, 3> top = piece.high;
    std::array<std::int32_t, 3> bottom = piece.low;
    top[axis] = bottom[axis] = level;
    Box3d lower = piece.box;
    Box3d upper = piece.box;
    (axis == 0 ? lower.high.x : axis == 1 ? lower.high.y : lower.high.z) = place.offset;
    (axis == 0 ? upper.low.x : axis == 1 ? upper.low.y : upper.low.z) = place.offset;
    return {pieces_of(below, grid, piece.low, top, lower),
            pieces_of(above, grid, bottom, piece.high, upper)};
}

}  // namespace povmesh
