// Nearest seeds by exact pruning: a seed stays on the list of a block unless the bisector with the
// seed nearest to the block's centre parts it from the whole block. Regions of 64 cells narrow the
// lists first, blocks of 8 then.
#include "design/cell_seeds.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>

#include "base/parallel.h"

namespace povmesh {
namespace {

constexpr std::size_t kBlock = 8;    // cells along a block
constexpr std::size_t kRegion = 64;  // along a region of blocks, which has a list of its own first
constexpr std::size_t kBlocks = kRegion / kBlock;

// Candidates that a block compares its voxels with at a time.
constexpr std::size_t kBatch = 256;

// A box of cells: the centre of its cells, half the extent of their centres.
struct CellBox {
    Vec3d centre;
    double half;
};

// Lists of seeds for regions and the blocks in them. Cells of the grid are counted from its first
// one, the margin included.
class SeedLists {
public:
    /// @param margin  widens all boxes: the lists are those for all points that near
    SeedLists(const VoxelGrid& grid, std::span<const Vec3d> seeds, double margin)
        : grid_(grid),
          margin_(margin),
          counts_{grid.words_per_row(), (grid.rows_per_layer() + kRegion - 1) / kRegion,
                  (grid.layer_count() + kRegion - 1) / kRegion} {
        static_assert(kRegion == 64, "a region is a word along x");
        const VoxelIndex first = grid.index_of(0);
        places_.reserve(seeds.size());
        for (const Vec3d& seed : seeds) {
            places_.push_back(seed - Vec3d{static_cast<double>(first.x),
                                           static_cast<double>(first.y),
                                           static_cast<double>(first.z)});
        }
        Array<SeedNumber> all;
        for (std::size_t s = 0; s < seeds.size(); ++s) all.push_back(static_cast<SeedNumber>(s));
        offsets_.push_back(0);
        for (std::size_t region = 0; region < region_count(); ++region) {
            if (has_voxels(region)) {
                const CellBox box = box_of(corner_of(region), kRegion);
                const Vec3d centre = places_[nearest_of(all, box.centre)];
                for (const SeedNumber seed : all) {
                    if (reaches(seed, centre, box)) numbers_.push_back(seed);
                }
            }
            offsets_.push_back(numbers_.size());
        }
    }

    std::size_t region_count() const { return counts_[0] * counts_[1] * counts_[2]; }
    const Vec3d& place(SeedNumber seed) const { return places_[seed]; }

    /// Calls `visit(corner, list)` for every block of the region that holds a voxel; the list is a
    /// function that calls its argument with each candidate, in order of their numbers.
    template <typename Visit>
    void for_each_block(std::size_t region, Visit&& visit) const {
        const std::span<const SeedNumber> candidates{numbers_.data() + offsets_[region],
                                                     numbers_.data() + offsets_[region + 1]};
        if (candidates.empty()) return;
        const std::array<std::size_t, 3> corner = corner_of(region);
        for (std::size_t z = corner[2]; z < layer_end(corner); z += kBlock) {
            for (std::size_t y = corner[1]; y < row_end(corner); y += kBlock) {
                const std::uint64_t used = used_columns(corner[0], y, z);
                for (std::size_t i = 0; i < kBlocks; ++i) {
                    if ((used >> (i * kBlock) & 0xFFU) == 0) continue;
                    const std::array<std::size_t, 3> at = {corner[0] + i * kBlock, y, z};
                    const CellBox box = box_of(at, kBlock);
                    const Vec3d centre = places_[nearest_of(candidates, box.centre)];
                    visit(at, [&](auto&& take) {
                        for (const SeedNumber seed : candidates) {
                            if (reaches(seed, centre, box)) take(seed);
                        }
                    });
                }
            }
        }
    }

    /// Calls `visit(cell, voxels)` for every row of a block: its first cell, one bit a voxel.
    template <typename Visit>
    void for_each_row(const std::array<std::size_t, 3>& at, Visit&& visit) const {
        for (std::size_t z = at[2]; z < std::min(at[2] + kBlock, grid_.layer_count()); ++z) {
            for (std::size_t y = at[1]; y < std::min(at[1] + kBlock, grid_.rows_per_layer()); ++y) {
                const std::size_t cell =
                    (z * grid_.rows_per_layer() + y) * grid_.words_per_row() * 64 + at[0];
                const std::uint64_t voxels = grid_.occupied()[cell / 64] >> (cell % 64) & 0xFFU;
                if (voxels != 0) visit(cell, y - at[1], z - at[2], voxels);
            }
        }
    }

private:
    std::array<std::size_t, 3> corner_of(std::size_t region) const {
        return {region % counts_[0] * kRegion, region / counts_[0] % counts_[1] * kRegion,
                region / counts_[0] / counts_[1] * kRegion};
    }
    std::size_t row_end(const std::array<std::size_t, 3>& corner) const {
        return std::min(corner[1] + kRegion, grid_.rows_per_layer());
    }
    std::size_t layer_end(const std::array<std::size_t, 3>& corner) const {
        return std::min(corner[2] + kRegion, grid_.layer_count());
    }

    // The columns of a word in which a row of blocks has voxels.
    std::uint64_t used_columns(std::size_t x, std::size_t y, std::size_t z) const {
        std::uint64_t used = 0;
        for (std::size_t k = z; k < std::min(z + kBlock, grid_.layer_count()); ++k) {
            for (std::size_t j = y; j < std::min(y + kBlock, grid_.rows_per_layer()); ++j) {
                used |= grid_.occupied()[(k * grid_.rows_per_layer() + j) * grid_.words_per_row() +
                                         x / 64];
            }
        }
        return used;
    }
    bool has_voxels(std::size_t region) const {
        const std::array<std::size_t, 3> corner = corner_of(region);
        for (std::size_t z = corner[2]; z < layer_end(corner); z += kBlock) {
            for (std::size_t y = corner[1]; y < row_end(corner); y += kBlock) {
                if (used_columns(corner[0], y, z) != 0) return true;
            }
        }
        return false;
    }

    CellBox box_of(const std::array<std::size_t, 3>& at, std::size_t cells) const {
        const double half = static_cast<double>(cells - 1) / 2;
        return {{static_cast<double>(at[0]) + half, static_cast<double>(at[1]) + half,
                 static_cast<double>(at[2]) + half},
                half + margin_};
    }

    SeedNumber nearest_of(std::span<const SeedNumber> seeds, Vec3d point) const {
        SeedNumber nearest = seeds.front();
        double least = std::numeric_limits<double>::infinity();
        for (const SeedNumber seed : seeds) {
            const Vec3d d = places_[seed] - point;
            const double squared = dot(d, d);
            if (squared < least) {
                least = squared;
                nearest = seed;
            }
        }
        return nearest;
    }

    // Whether a point of the box is no farther from the seed than from `other`: the difference of
    // the squared distances is linear, so its greatest value is at a corner. The rounding of the
    // comparison of voxels later, in floats, is well below the slack.
    bool reaches(SeedNumber seed, Vec3d other, const CellBox& box) const {
        constexpr double kSlack = 1e-3;
        const Vec3d to_seed = places_[seed] - box.centre;
        const Vec3d to_other = other - box.centre;
        const Vec3d apart = places_[seed] - other;
        return dot(to_seed, to_seed) - dot(to_other, to_other) <=
               2 * box.half * (std::abs(apart.x) + std::abs(apart.y) + std::abs(apart.z)) + kSlack;
    }

    const VoxelGrid& grid_;
    double margin_;
    std::array<std::size_t, 3> counts_;  // regions along x, y, z
    Array<Vec3d> places_;                // of the seeds, from the first cell
    Array<std::size_t> offsets_;         // by region
    Array<SeedNumber> numbers_;
};

// The voxels of a block beside seeds, in floats relative to its corner.
class BlockSearch {
public:
    BlockSearch(const SeedLists& lists, const std::array<std::size_t, 3>& at)
        : lists_(lists),
          at_(at),
          corner_{static_cast<double>(at[0]), static_cast<double>(at[1]),
                  static_cast<double>(at[2])} {}

    void add(SeedNumber seed) {
        if (count_ == kBatch) compare();
        const Vec3d from = lists_.place(seed) - corner_;
        for (std::size_t x = 0; x < kBlock; ++x) {
            const auto d = static_cast<float>(static_cast<double>(x) - from.x);
            squared_x_[count_][x] = d * d;
        }
        y_[count_] = static_cast<float>(from.y);
        z_[count_] = static_cast<float>(from.z);
        numbers_[count_++] = seed;
    }

    void finish(Array<SeedNumber>& nearest) {
        if (is_first_ && count_ == 1) {
            lists_.for_each_row(
                at_, [&](std::size_t cell, std::size_t /*y*/, std::size_t /*z*/, std::uint64_t) {
                    std::fill_n(nearest.begin() + static_cast<std::ptrdiff_t>(cell), kBlock,
                                numbers_[0]);
                });
            return;
        }
        compare();
        lists_.for_each_row(
            at_, [&](std::size_t cell, std::size_t y, std::size_t z, std::uint64_t /*voxels*/) {
                const std::size_t row = (z * kBlock + y) * kBlock;
                for (std::size_t x = 0; x < kBlock; ++x) {
                    nearest[cell + x] = static_cast<SeedNumber>(best_number_[row + x]);
                }
            });
    }

private:
    // Takes the seeds gathered so far into account. The first of equal ones stays.
    void compare() {
        lists_.for_each_row(at_, [&](std::size_t /*cell*/, std::size_t y, std::size_t z,
                                     std::uint64_t /*voxels*/) {
            compare_row(static_cast<float>(y), static_cast<float>(z), (z * kBlock + y) * kBlock);
        });
        count_ = 0;
        is_first_ = false;
    }

    void compare_row(float y, float z, std::size_t row) {
        std::array<float, kBlock> best;
        std::array<std::int32_t, kBlock> number;
        if (is_first_) {
            best.fill(std::numeric_limits<float>::infinity());
            number.fill(0);
        } else {
            std::copy_n(best_.begin() + static_cast<std::ptrdiff_t>(row), kBlock, best.begin());
            std::copy_n(best_number_.begin() + static_cast<std::ptrdiff_t>(row), kBlock,
                        number.begin());
        }
        for (std::size_t c = 0; c < count_; ++c) {
            const float dy = y - y_[c];
            const float dz = z - z_[c];
            const float across = dy * dy + dz * dz;
            for (std::size_t x = 0; x < kBlock; ++x) {
                const float squared = squared_x_[c][x] + across;
                number[x] = squared < best[x] ? numbers_[c] : number[x];
                best[x] = squared < best[x] ? squared : best[x];
            }
        }
        std::copy_n(best.begin(), kBlock, best_.begin() + static_cast<std::ptrdiff_t>(row));
        std::copy_n(number.begin(), kBlock,
                    best_number_.begin() + static_cast<std::ptrdiff_t>(row));
    }

    const SeedLists& lists_;
    std::array<std::size_t, 3> at_;
    Vec3d corner_;
    bool is_first_ = true;
    std::size_t count_ = 0;
    std::array<std::array<float, kBlock>, kBatch> squared_x_;
    std::array<float, kBatch> y_, z_;
    std::array<std::int32_t, kBatch> numbers_;
    std::array<float, kBlock * kBlock * kBlock> best_;
    std::array<std::int32_t, kBlock * kBlock * kBlock> best_number_;
};

}  // namespace

void find_nearest_seeds(const VoxelGrid& grid, std::span<const Vec3d> seeds,
                        Array<SeedNumber>& nearest) {
    assert(!seeds.empty() && seeds.size() <= kMostSeeds);
    nearest.resize(grid.word_count() * 64);
    if (grid.is_empty()) return;
    const SeedLists lists(grid, seeds, 0);
    // Each region writes the cells of its own words.
    for_blocks(lists.region_count(), [&](std::size_t region) {
        lists.for_each_block(region, [&](const auto& at, const auto& list) {
            BlockSearch search(lists, at);
            list([&](SeedNumber seed) { search.add(seed); });
            search.finish(nearest);
        });
    });
}

VoxelGrid::Words voxels_near_borders(const VoxelGrid& grid, std::span<const Vec3d> seeds,
                                     const Array<SeedNumber>& nearest, double distance) {
    VoxelGrid::Words near;
    near.assign(grid.word_count() + 1, 0);
    if (grid.is_empty()) return near;
    const SeedLists lists(grid, seeds, distance);
    Array<SeedNumber> candidates;
    for (std::size_t region = 0; region < lists.region_count(); ++region) {
        lists.for_each_block(region, [&](const auto& at, const auto& list) {
            candidates.clear();
            list([&](SeedNumber seed) { candidates.push_back(seed); });
            if (candidates.size() < 2) return;
            const auto is_near = [&](Vec3d point, SeedNumber own) {
                const Vec3d from_own = point - lists.place(own);
                for (const SeedNumber seed : candidates) {
                    if (seed == own) continue;
                    const Vec3d from = point - lists.place(seed);
                    const double farther = dot(from, from) - dot(from_own, from_own);
                    const double limit = 2 * distance;
                    const Vec3d apart = lists.place(seed) - lists.place(own);
                    if (farther < 0 || farther * farther < limit * limit * dot(apart, apart)) {
                        return true;
                    }
                }
                return false;
            };
            lists.for_each_row(
                at, [&](std::size_t cell, std::size_t y, std::size_t z, std::uint64_t voxels) {
                    for (; voxels != 0; voxels &= voxels - 1) {
                        const auto x = static_cast<std::size_t>(std::countr_zero(voxels));
                        const Vec3d point{static_cast<double>(at[0] + x),
                                          static_cast<double>(at[1] + y),
                                          static_cast<double>(at[2] + z)};
                        if (is_near(point, nearest[cell + x])) {
                            near[cell / 64] |= std::uint64_t{1} << (cell % 64 + x);
                        }
                    }
                });
        });
    }
    return near;
}

}  // namespace povmesh
