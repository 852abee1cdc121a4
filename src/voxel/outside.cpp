// Flood fill by connected components of runs: empty cells of a row are joined into runs, runs of
// neighbouring rows that overlap are united (union-find), and the component of the margin is
// outside. Other components are told by winding numbers, from the signed crossings of each row with
// the faces; the test of a crossing is exact (orient2d) and half-open at vertices.
#include "voxel/outside.h"

#include <algorithm>
#include <cmath>

#include "base/convert.h"
#include "base/predicates.h"
#include "base/union_find.h"

namespace povmesh {
namespace {

using Words = VoxelGrid::Words;

constexpr int kBarrierLayers = 2;

// Empty cells between voxels of a row, numbered as the bits of the row, `end` excluded.
struct Run {
    std::uint16_t begin, end;
    std::size_t size() const { return static_cast<std::size_t>(end - begin); }
};

// Calls `visit(begin, end)` for every run of zeros among the bits of a row.
template <typename Visit>
void for_each_gap(const std::uint64_t* row, std::size_t words, Visit&& visit) {
    std::size_t begin = 0;
    bool is_open = true;  // a gap has begun
    for (std::size_t i = 0; i < words; ++i) {
        // Bits where a gap ends or begins: the value differs from the bit before.
        std::uint64_t changes = row[i] ^ (row[i] << 1 | (is_open ? 0U : 1U));
        for (; changes != 0; changes &= changes - 1) {
            const std::size_t at = i * 64 + static_cast<std::size_t>(std::countr_zero(changes));
            if (is_open && at != begin) visit(begin, at);
            begin = at;
            is_open = !is_open;
        }
    }
    if (is_open) visit(begin, words * 64);
}

void set_bits(std::uint64_t* row, std::size_t begin, std::size_t end) {
    const std::size_t first = begin / 64;
    const std::size_t last = (end - 1) / 64;
    const std::uint64_t low = ~std::uint64_t{0} << (begin % 64);
    const std::uint64_t high = ~std::uint64_t{0} >> (63 - (end - 1) % 64);
    if (first == last) {
        row[first] |= low & high;
        return;
    }
    row[first] |= low;
    for (std::size_t i = first + 1; i < last; ++i) row[i] = ~std::uint64_t{0};
    row[last] |= high;
}

bool any_bit(const std::uint64_t* row, std::size_t begin, std::size_t end) {
    for (std::size_t i = begin / 64; i <= (end - 1) / 64; ++i) {
        std::uint64_t word = row[i];
        if (i == begin / 64) word &= ~std::uint64_t{0} << (begin % 64);
        if (i == (end - 1) / 64) word &= ~std::uint64_t{0} >> (63 - (end - 1) % 64);
        if (word != 0) return true;
    }
    return false;
}

// The regions of cells that are empty in a set of bits: their runs, joined over the sides of cells.
class Regions {
public:
    Regions(const VoxelGrid& grid, const Words& bits) : grid_(grid) {
        find_runs(bits);
        join();
    }

    /// The region beyond the box is 0; every other one is known by its first run.
    std::uint32_t region_of(std::uint32_t run) const { return first_[run]; }
    std::uint32_t run_count() const { return static_cast<std::uint32_t>(runs_.size()); }
    const Run& run(std::uint32_t number) const { return runs_[number]; }
    std::uint32_t first_of_row(std::size_t row) const { return offsets_[row]; }

    /// The run of a row that holds, or comes next after, the place of a crossing: of the cells from
    /// it on, the crossing lies to the left.
    std::uint32_t first_right_of(std::size_t row, double place) const {
        const auto begin = runs_.begin() + offsets_[row];
        const auto end = runs_.begin() + offsets_[row + 1];
        const auto found = std::partition_point(
            begin, end, [&](const Run& r) { return static_cast<double>(r.begin) <= place; });
        return static_cast<std::uint32_t>(found - runs_.begin());
    }

    /// Sets the bits of all regions that `is_chosen(region)` and no others.
    template <typename Choose>
    void write(Words& bits, Choose&& is_chosen) const {
        std::fill(bits.begin(), bits.end(), 0);
        for (std::size_t row = 0; row + 1 < offsets_.size(); ++row) {
            std::uint64_t* words = bits.data() + row * grid_.words_per_row();
            for (std::uint32_t r = offsets_[row]; r < offsets_[row + 1]; ++r) {
                if (is_chosen(first_[r])) set_bits(words, runs_[r].begin, runs_[r].end);
            }
        }
    }

private:
    void find_runs(const Words& bits) {
        const std::size_t rows = grid_.row_count();
        offsets_.resize(rows + 1);
        runs_.reserve(rows + rows / 2);
        for (std::size_t row = 0; row < rows; ++row) {
            offsets_[row] = static_cast<std::uint32_t>(runs_.size());
            for_each_gap(bits.data() + row * grid_.words_per_row(), grid_.words_per_row(),
                         [&](std::size_t begin, std::size_t end) {
                             runs_.push_back({static_cast<std::uint16_t>(begin),
                                              static_cast<std::uint16_t>(end)});
                         });
        }
        offsets_[rows] = fits<std::uint32_t>(runs_.size());
    }

    void join() {
        UnionFind regions(runs_.size());
        const std::size_t per_layer = grid_.rows_per_layer();
        for (std::size_t row = 0; row < grid_.row_count(); ++row) {
            if (row % per_layer + 1 < per_layer) join_rows(regions, row, row + 1);
            if (row + per_layer < grid_.row_count()) join_rows(regions, row, row + per_layer);
        }
        first_.resize(runs_.size());
        for (std::uint32_t r = 0; r < first_.size(); ++r) first_[r] = regions.find(r);
    }

    void join_rows(UnionFind& regions, std::size_t a, std::size_t b) const {
        std::uint32_t i = offsets_[a];
        std::uint32_t j = offsets_[b];
        while (i < offsets_[a + 1] && j < offsets_[b + 1]) {
            if (runs_[i].begin < runs_[j].end && runs_[j].begin < runs_[i].end) {
                regions.unite(i, j);
            }
            runs_[i].end < runs_[j].end ? ++i : ++j;
        }
    }

    const VoxelGrid& grid_;
    Array<std::uint32_t> offsets_;  // by row
    Array<Run> runs_;
    Array<std::uint32_t> first_;  // by run: the first one of its region
};

// Twice the winding number of every run: what the rays to the left and to the right tell.
class Windings {
public:
    Windings(const VoxelGrid& grid, const RelativeFaces& faces, const Regions& regions)
        : grid_(grid),
          regions_(regions),
          size_x_(static_cast<double>(grid.settings().size.x)),
          size_y_(static_cast<double>(grid.settings().size.y)),
          size_z_(static_cast<double>(grid.settings().size.z)) {
        doubled_.assign(regions.run_count(), 0);
        faces.for_each([&](const Face& /*face*/, const std::array<Vec3d, 3>& corners) {
            count_crossings(corners);
        });
        // Crossings stand at the first run to their right so far.
        for (std::size_t row = 0; row < grid.row_count(); ++row) {
            const std::uint32_t first = regions.first_of_row(row);
            const std::uint32_t last = regions.first_of_row(row + 1);
            std::int32_t left = 0;
            for (std::uint32_t r = first; r < last; ++r) doubled_[r] = left += doubled_[r];
            // Beyond the last voxel every crossing lies to the left.
            for (std::uint32_t r = first; r < last; ++r) doubled_[r] = 2 * doubled_[r] - left;
        }
    }

    std::int32_t doubled_of(std::uint32_t run) const { return doubled_[run]; }

private:
    // The winding of the projected face about (y, z): 1, 0 or -1. An edge counts where it passes
    // the height of the point, its lower end included, strictly on one side; seen the other way
    // round it counts the opposite, so the faces of a closed mesh add up to whole turns.
    static int winding(const std::array<Point2d, 3>& c, Point2d p) {
        int turns = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            const Point2d a = c[i];
            const Point2d b = c[next_corner(i)];
            if (a.y <= p.y && b.y > p.y) {
                if (orient2d(a, b, p) > 0) ++turns;
            } else if (b.y <= p.y && a.y > p.y) {
                if (orient2d(b, a, p) > 0) --turns;
            }
        }
        return turns;
    }

    void count_crossings(const std::array<Vec3d, 3>& corners) {
        std::array<Point2d, 3> flat;
        Box3d box;
        for (std::size_t i = 0; i < 3; ++i) {
            flat[i] = {corners[i].y, corners[i].z};
            box.widen(corners[i]);
        }
        const auto first_z = saturate_to<std::int64_t>(std::ceil(box.low.z / size_z_));
        const auto last_z = saturate_to<std::int64_t>(std::floor(box.high.z / size_z_));
        const double first_y = std::ceil(box.low.y / size_y_);
        const double last_y = std::floor(box.high.y / size_y_);
        if (first_z > last_z || first_y > last_y) return;
        const Vec3d normal = cross(corners[1] - corners[0], corners[2] - corners[0]);
        for (std::int64_t kz = first_z; kz <= last_z; ++kz) {
            const double z = static_cast<double>(kz) * size_z_;
            double low = box.high.y;
            double high = box.low.y;
            for (std::size_t i = 0; i < 3; ++i) clip(flat[i], flat[next_corner(i)], z, low, high);
            const auto from =
                saturate_to<std::int64_t>(std::max(first_y, std::ceil(low / size_y_ - kSlack)));
            const auto to =
                saturate_to<std::int64_t>(std::min(last_y, std::floor(high / size_y_ + kSlack)));
            for (std::int64_t ky = from; ky <= to; ++ky) {
                const double y = static_cast<double>(ky) * size_y_;
                const int turns = winding(flat, {y, z});
                if (turns == 0) continue;
                double x =
                    corners[0].x -
                    (normal.y * (y - corners[0].y) + normal.z * (z - corners[0].z)) / normal.x;
                // A face that hardly has an area along x: anywhere on it.
                if (!(x >= box.low.x)) x = box.low.x;
                if (x > box.high.x) x = box.high.x;
                add(ky, kz, x / size_x_, turns);
            }
        }
    }

    // Widens low..high by where the edge meets the height z.
    static void clip(Point2d a, Point2d b, double z, double& low, double& high) {
        if (std::min(a.y, b.y) > z || std::max(a.y, b.y) < z) return;
        const double t = a.y == b.y ? 0 : (z - a.y) / (b.y - a.y);
        const double at = a.x + t * (b.x - a.x);
        low = std::min({low, at, a.y == b.y ? b.x : at});
        high = std::max({high, at, a.y == b.y ? b.x : at});
    }

    void add(std::int64_t ky, std::int64_t kz, double kx, int turns) {
        const VoxelIndex low = grid_.box().low;
        const auto row_y = ky - low.y + 1;
        const auto row_z = kz - low.z + 1;
        const auto rows_y = static_cast<std::int64_t>(grid_.rows_per_layer());
        const auto rows_z = static_cast<std::int64_t>(grid_.layer_count());
        if (row_y < 1 || row_y + 1 >= rows_y || row_z < 1 || row_z + 1 >= rows_z) return;
        const auto row = static_cast<std::size_t>(row_z * rows_y + row_y);
        const std::uint32_t run = regions_.first_right_of(row, kx - low.x + 1);
        // A face whose projection turns to the left looks along x: left of it is inside.
        if (run < regions_.first_of_row(row + 1)) doubled_[run] -= turns;
    }

    static constexpr double kSlack = 1e-6;

    const VoxelGrid& grid_;
    const Regions& regions_;
    double size_x_, size_y_, size_z_;
    Array<std::int32_t> doubled_;
};

// One layer of neighbours of every cell of the set, none in the margin's rows.
Words dilated(const VoxelGrid& grid, const Words& bits) {
    Words wider = bits;
    grid.for_each_word([&](std::size_t word) {
        for (const voxel::Side side : voxel::kSides) wider[word] |= grid.beyond(bits, word, side);
    });
    return wider;
}

struct Flood {
    bool leaks = false;
    Array<std::uint8_t> is_outside;  // by run: a region's first one counts
};

Flood flood(const Regions& regions, const Windings& windings) {
    Flood result;
    result.is_outside.assign(regions.run_count(), 0);
    result.is_outside[0] = 1;
    Array<std::int64_t> sums;
    Array<std::int64_t> cells;
    sums.assign(regions.run_count(), 0);
    cells.assign(regions.run_count(), 0);
    for (std::uint32_t r = 0; r < regions.run_count(); ++r) {
        const std::uint32_t region = regions.region_of(r);
        if (region == 0) {
            result.leaks = result.leaks || windings.doubled_of(r) >= 2;
            continue;
        }
        const auto size = static_cast<std::int64_t>(regions.run(r).size());
        sums[region] += windings.doubled_of(r) * size;
        cells[region] += size;
    }
    for (std::uint32_t r = 1; r < regions.run_count(); ++r) {
        // The mean of the doubled numbers rounds to 0 when it is less than 1 from it.
        if (cells[r] != 0) result.is_outside[r] = std::abs(sums[r]) < cells[r] ? 1 : 0;
    }
    return result;
}

// The flood of thickened voxels, advanced to the voxels themselves; false when it leaks, too.
bool flood_with_barrier(VoxelGrid& grid, const RelativeFaces& faces) {
    Words barrier = grid.occupied();
    for (int layer = 0; layer < kBarrierLayers; ++layer) barrier = dilated(grid, barrier);
    // The barrier must not reach into the margin, where the flood begins; it is empty there.
    grid.for_each_word([&](std::size_t word) {
        const std::size_t in_row = word % grid.words_per_row();
        if (in_row == 0) barrier[word] &= ~std::uint64_t{1};
        const auto cells =
            static_cast<std::size_t>(std::int64_t{grid.box().high.x} - grid.box().low.x + 1);
        const std::size_t end = cells + 1;
        if (in_row * 64 + 63 >= end) {
            const std::size_t keep = end > in_row * 64 ? end - in_row * 64 : 0;
            barrier[word] &= keep == 0 ? 0 : ~std::uint64_t{0} >> (64 - keep);
        }
    });
    const Regions regions(grid, barrier);
    const Flood result = flood(regions, Windings(grid, faces, regions));
    if (result.leaks) return false;
    Words& outside = grid.edit_outside();
    regions.write(outside, [&](std::uint32_t region) { return result.is_outside[region] != 0; });
    for (int layer = 0; layer < kBarrierLayers; ++layer) {
        Words advanced = dilated(grid, outside);
        grid.for_each_word(
            [&](std::size_t word) { outside[word] = advanced[word] & ~grid.occupied()[word]; });
    }
    // What is neither voxel nor outside but touches the outside closes the hole.
    const Words near_outside = dilated(grid, outside);
    grid.for_each_word([&](std::size_t word) {
        const std::uint64_t patch = near_outside[word] & ~outside[word] & ~grid.occupied()[word];
        if (patch != 0) grid.add_white(word, patch);
    });
    grid.recount();
    return true;
}

}  // namespace

void find_outside(VoxelGrid& grid, const RelativeFaces& faces) {
    if (grid.word_count() == 0) return;
    grid.remember_outside();
    const Regions regions(grid, grid.occupied());
    const Flood result = flood(regions, Windings(grid, faces, regions));
    if (!(result.leaks && flood_with_barrier(grid, faces))) {
        regions.write(grid.edit_outside(),
                      [&](std::uint32_t region) { return result.is_outside[region] != 0; });
    }
    grid.confirm_outside();
}

void refresh_outside(VoxelGrid& grid) {
    if (grid.is_outside_known() || grid.word_count() == 0) return;
    const Regions regions(grid, grid.occupied());
    Array<std::uint8_t> is_outside;
    is_outside.assign(regions.run_count(), 0);
    is_outside[0] = 1;
    for (std::size_t row = 0; grid.remembers_outside() && row < grid.row_count(); ++row) {
        const std::uint64_t* known = grid.outside().data() + row * grid.words_per_row();
        for (std::uint32_t r = regions.first_of_row(row); r < regions.first_of_row(row + 1); ++r) {
            std::uint8_t& chosen = is_outside[regions.region_of(r)];
            if (chosen == 0 && any_bit(known, regions.run(r).begin, regions.run(r).end)) chosen = 1;
        }
    }
    regions.write(grid.edit_outside(),
                  [&](std::uint32_t region) { return is_outside[region] != 0; });
    grid.confirm_outside();
}

}  // namespace povmesh
