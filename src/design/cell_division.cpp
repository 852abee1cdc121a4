// Centroidal Voronoi cells by over-relaxed Lloyd steps on a coarse share of the voxels. The first
// seeds are stratified along a Z-order curve, so that they are spread evenly from the start.
#include "design/cell_division.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <utility>

namespace povmesh {
namespace {

// Voxels that the relaxation looks at: so many tell the centre of a cell well enough.
constexpr double kSamplesPerCell = 1000;
constexpr double kMostSamples = 4e6;
// Where a share of the voxels is taken, it must stand for at least this part of them.
constexpr double kLeastPart = 0.8;

// A round moves seeds by more than to the centres, which gets there sooner; from 2 on it would
// never end.
constexpr double kReach = 1.6;
constexpr int kMostRounds = 120;
// The relaxation ends when seeds move by less than this, in widths of a cell.
constexpr double kLeastMove = 2e-3;

constexpr std::uint64_t kFirstRandom = 0x5EED;

// splitmix64.
class Random {
public:
    std::uint64_t below(std::uint64_t bound) {
        state_ += 0x9E3779B97F4A7C15;
        std::uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
        return (z ^ (z >> 31)) % bound;
    }

private:
    std::uint64_t state_ = kFirstRandom;
};

Vec3d place_of(VoxelIndex i) {
    return {static_cast<double>(i.x), static_cast<double>(i.y), static_cast<double>(i.z)};
}

// Every stride-th voxel along each axis.
VoxelGrid sampled(const VoxelGrid& grid, std::int32_t stride) {
    const auto up = [&](std::int32_t i) { return i / stride + (i % stride > 0 ? 1 : 0); };
    const auto down = [&](std::int32_t i) { return i / stride - (i % stride < 0 ? 1 : 0); };
    const IndexBox& box = grid.box();
    VoxelGrid samples({{1, 1, 1}}, {{up(box.low.x), up(box.low.y), up(box.low.z)},
                                    {down(box.high.x), down(box.high.y), down(box.high.z)}});
    grid.for_each([&](const Voxel& voxel) {
        const VoxelIndex i = voxel.index;
        if (i.x % stride != 0 || i.y % stride != 0 || i.z % stride != 0) return;
        samples.insert({i.x / stride, i.y / stride, i.z / stride});
    });
    return samples;
}

// The coarsest share of the voxels that tells their shape.
std::pair<VoxelGrid, std::int32_t> samples_of(const VoxelGrid& grid, std::size_t count) {
    const auto voxels = static_cast<double>(grid.size());
    const double wanted = std::min(kSamplesPerCell * static_cast<double>(count), kMostSamples);
    auto stride = static_cast<std::int32_t>(std::cbrt(voxels / wanted));
    for (; stride > 1; --stride) {
        VoxelGrid samples = sampled(grid, stride);
        const double part = static_cast<double>(samples.size()) * std::pow(stride, 3) / voxels;
        if (part >= kLeastPart) return {std::move(samples), stride};
    }
    return {grid, 1};
}

// The bits of a number, two empty ones between each.
std::uint64_t spread(std::uint64_t bits) {
    bits &= 0x1FFFFF;
    bits = (bits | bits << 32) & 0x1F00000000FFFF;
    bits = (bits | bits << 16) & 0x1F0000FF0000FF;
    bits = (bits | bits << 8) & 0x100F00F00F00F00F;
    bits = (bits | bits << 4) & 0x10C30C30C30C30C3;
    return (bits | bits << 2) & 0x1249249249249249;
}

// One random voxel out of each of `count` equal parts of the voxels along a Z-order curve, which
// keeps what is near together.
Array<Vec3d> first_seeds(const VoxelGrid& samples, std::size_t count) {
    struct Sample {
        std::uint64_t code;
        VoxelIndex index;
    };
    Array<Sample> ordered;
    ordered.reserve(samples.size());
    const VoxelIndex low = samples.box().low;
    samples.for_each([&](const Voxel& voxel) {
        const auto part = [](std::int32_t at, std::int32_t first) {
            return spread(static_cast<std::uint64_t>(std::int64_t{at} - first));
        };
        const VoxelIndex i = voxel.index;
        ordered.push_back({part(i.x, low.x) | part(i.y, low.y) << 1 | part(i.z, low.z) << 2, i});
    });
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const Sample& a, const Sample& b) { return a.code < b.code; });
    Random random;
    Array<Vec3d> seeds;
    for (std::size_t s = 0; s < count; ++s) {
        const std::size_t begin = ordered.size() * s / count;
        const std::size_t end = std::max(ordered.size() * (s + 1) / count, begin + 1);
        seeds.push_back(place_of(ordered[begin + random.below(end - begin)].index));
    }
    return seeds;
}

struct Centre {
    std::int64_t count = 0;
    std::int64_t x = 0, y = 0, z = 0;  // sums: whole numbers do not mind the order
};

Array<Centre> centres_of(const VoxelGrid& samples, const Array<SeedNumber>& nearest,
                         std::size_t count) {
    Array<Centre> centres;
    centres.assign(count, {});
    samples.for_each_word([&](std::size_t word) {
        std::uint64_t voxels = samples.occupied()[word];
        if (voxels == 0) return;
        const VoxelIndex first = samples.index_of(word * 64);
        for (; voxels != 0; voxels &= voxels - 1) {
            const auto bit = static_cast<std::size_t>(std::countr_zero(voxels));
            Centre& centre = centres[nearest[word * 64 + bit]];
            ++centre.count;
            centre.x += std::int64_t{first.x} + static_cast<std::int64_t>(bit);
            centre.y += first.y;
            centre.z += first.z;
        }
    });
    return centres;
}

void relax(const VoxelGrid& samples, Array<Vec3d>& seeds) {
    const double width =
        std::cbrt(static_cast<double>(samples.size()) / static_cast<double>(seeds.size()));
    const double least = kLeastMove * width;
    Array<SeedNumber> nearest;
    for (int round = 0; round < kMostRounds; ++round) {
        find_nearest_seeds(samples, seeds, nearest);
        const Array<Centre> centres = centres_of(samples, nearest, seeds.size());
        double squares = 0;
        for (std::size_t s = 0; s < seeds.size(); ++s) {
            const Centre& c = centres[s];
            if (c.count == 0) continue;
            const Vec3d centre = Vec3d{static_cast<double>(c.x), static_cast<double>(c.y),
                                       static_cast<double>(c.z)} /
                                 static_cast<double>(c.count);
            const Vec3d move = centre - seeds[s];
            squares += dot(move, move);
            seeds[s] = seeds[s] + move * kReach;
        }
        if (squares <= least * least * static_cast<double>(seeds.size())) break;
    }
}

}  // namespace

CellDivision divide_into_cells(const VoxelGrid& grid, std::size_t count) {
    assert(count >= 1 && count <= kMostSeeds && !grid.is_empty());
    const auto [samples, stride] = samples_of(grid, count);
    CellDivision division;
    division.seeds = first_seeds(samples, count);
    relax(samples, division.seeds);
    for (Vec3d& seed : division.seeds) seed = seed * static_cast<double>(stride);
    find_nearest_seeds(grid, division.seeds, division.seed_of);
    return division;
}

void part_cells(VoxelGrid& grid, const CellDivision& division) {
    const Array<SeedNumber>& seed_of = division.seed_of;
    const std::size_t row = grid.words_per_row() * 64;
    const std::size_t layer = grid.words_per_layer() * 64;
    const VoxelGrid::Words& occupied = grid.occupied();
    VoxelGrid::Words gone;
    gone.assign(grid.word_count() + 1, 0);
    grid.for_each_word([&](std::size_t word) {
        const std::uint64_t voxels = occupied[word];
        if (voxels == 0) return;
        std::uint64_t inner = voxels;
        for (unsigned side = 0; side < kSideCount; ++side) {
            inner &= grid.beyond(occupied, word, static_cast<voxel::Side>(side));
        }
        std::uint64_t staying = 0;
        for (std::uint64_t cells = inner; cells != 0; cells &= cells - 1) {
            const std::size_t bit = static_cast<std::size_t>(std::countr_zero(cells));
            const std::size_t at = word * 64 + bit;
            const SeedNumber own = seed_of[at];
            const bool is_same = seed_of[at - 1] == own && seed_of[at + 1] == own &&
                                 seed_of[at - row] == own && seed_of[at + row] == own &&
                                 seed_of[at - layer] == own && seed_of[at + layer] == own;
            staying |= std::uint64_t{is_same ? 1U : 0U} << bit;
        }
        gone[word] = voxels & ~staying;
    });
    grid.for_each_word([&](std::size_t word) {
        if (gone[word] != 0) grid.remove(word, gone[word]);
    });
    grid.recount();
}

}  // namespace povmesh
