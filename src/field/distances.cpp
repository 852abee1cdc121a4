#include "field/distances.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "base/parallel.h"
#include "base/poll.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

// Room for rounding where a distance tells about all nodes of a box.
constexpr double kSafe = 1e-6;

// Blocks along a side of the boxes that the search for a level begins with.
constexpr std::int32_t kFirstBox = 4;

Vec3d unit_normal(const Triangle& t) {
    const Vec3d normal = cross(t[1] - t[0], t[2] - t[0]);
    const double size = length(normal);
    return size > 0 ? normal / size : Vec3d{};
}

struct IndexRange {
    std::int32_t low, high;  // both included; empty when low > high
};

// Nodes from one coordinate to another, of those from `first` on.
IndexRange nodes_between(double low, double high, double origin, double cell, std::int32_t first,
                         std::int32_t last) {
    return {std::max(first, saturate_to<std::int32_t>(std::ceil((low - origin) / cell))),
            std::min(last, saturate_to<std::int32_t>(std::floor((high - origin) / cell)))};
}

// Measures the nodes of a block against one face after the other.
class BlockMeasure {
public:
    BlockMeasure(const FieldGrid& grid, NodeIndex corner, double reach,
                 std::span<NodeDistances::Sample> samples)
        : grid_(grid), corner_(corner), reach_(reach), samples_(samples) {}

    void add(const Triangle& t, std::uint32_t face) {
        Vec3d low = t[0];
        Vec3d high = t[0];
        for (const Vec3d& p : {t[1], t[2]}) {
            low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
            high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
        }
        const double r = reach_;
        const auto range = [&](double a, double b, double origin, std::int32_t first) {
            return nodes_between(a - r, b + r, origin, grid_.cell, first, first + kBlockSide - 1);
        };
        const IndexRange is = range(low.x, high.x, grid_.origin.x, corner_.i);
        const IndexRange js = range(low.y, high.y, grid_.origin.y, corner_.j);
        const IndexRange ks = range(low.z, high.z, grid_.origin.z, corner_.k);
        const Vec3d normal = unit_normal(t);
        for (std::int32_t k = ks.low; k <= ks.high; ++k) {
            for (std::int32_t j = js.low; j <= js.high; ++j) {
                for (std::int32_t i = is.low; i <= is.high; ++i) {
                    const Vec3d p = grid_.node(i, j, k);
                    NodeDistances::Sample& sample = samples_[BlockLayout::local({i, j, k})];
                    const double best = std::min<double>(sample.distance, reach_);
                    if (std::abs(dot(normal, p - t[0])) > best) continue;
                    const double d = std::sqrt(nearest_on_triangle(p, t).squared_distance);
                    if (d < best) sample = {static_cast<float>(d), face};
                }
            }
        }
    }

private:
    const FieldGrid& grid_;
    NodeIndex corner_;
    double reach_;
    std::span<NodeDistances::Sample> samples_;
};

Box3f widened(const FieldGrid& grid, NodeIndex corner, double reach) {
    const Vec3d low = grid.node(corner.i, corner.j, corner.k);
    const Vec3d high = grid.node(corner.i + 7, corner.j + 7, corner.k + 7);
    const double r = reach * (1 + kSafe) + grid.cell * 1e-3;
    const auto down = [](double x) { return std::nextafter(static_cast<float>(x), -HUGE_VALF); };
    const auto up = [](double x) { return std::nextafter(static_cast<float>(x), HUGE_VALF); };
    return {{down(low.x - r), down(low.y - r), down(low.z - r)},
            {up(high.x + r), up(high.y + r), up(high.z + r)}};
}

// Blocks that a face comes nearer to than `reach`, by boxes and the faces' planes.
std::vector<std::uint32_t> blocks_near(const TriMesh& mesh, const FieldGrid& grid, double reach) {
    const BlockLayout layout(grid);
    Array<std::uint8_t> is_near(layout.count());
    std::fill(is_near.begin(), is_near.end(), std::uint8_t{0});
    const double side = grid.cell * kBlockSide;
    const double half_diagonal = grid.cell * 3.5 * std::sqrt(3.0);
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        if (face.deleted != 0) continue;
        const Triangle t = triangle_of(mesh, face);
        const Box3f box = face_box(mesh, face);
        const Vec3d low = to_double(box.low) - grid.origin - Vec3d{reach, reach, reach};
        const Vec3d high = to_double(box.high) - grid.origin + Vec3d{reach, reach, reach};
        const Vec3d normal = unit_normal(t);
        const auto range = [&](double a, double b, std::int32_t count) {
            // A block's nodes reach over 7 cells; the eighth is between blocks.
            return IndexRange{std::max(0, saturate_to<std::int32_t>(std::floor(a / side))),
                              std::min(count - 1, saturate_to<std::int32_t>(std::floor(b / side)))};
        };
        const IndexRange is = range(low.x, high.x, layout.blocks[0]);
        const IndexRange js = range(low.y, high.y, layout.blocks[1]);
        const IndexRange ks = range(low.z, high.z, layout.blocks[2]);
        for (std::int32_t k = ks.low; k <= ks.high; ++k) {
            for (std::int32_t j = js.low; j <= js.high; ++j) {
                for (std::int32_t i = is.low; i <= is.high; ++i) {
                    const Vec3d centre = grid.origin + Vec3d{i * side, j * side, k * side} +
                                         Vec3d{1, 1, 1} * (grid.cell * 3.5);
                    if (std::abs(dot(normal, centre - t[0])) > half_diagonal + reach) continue;
                    is_near[layout.number({i * 8, j * 8, k * 8}) / kBlockNodes] = 1;
                }
            }
        }
    }
    std::vector<std::uint32_t> blocks;
    for (std::uint32_t b = 0; b < layout.count(); ++b) {
        if (is_near[b] != 0) blocks.push_back(b);
    }
    return blocks;
}

// The search for the nodes within a level, box by box.
class LevelSearch {
public:
    LevelSearch(const NearestFace& surface, const FieldGrid& grid, double level,
                const NodeSet& among, const SharpDistance* sharp)
        : surface_(surface),
          grid_(grid),
          level_(level),
          farthest_(sharp == nullptr ? level : 2 * level),
          among_(among),
          sharp_(sharp) {}

    struct BlockResult {
        std::uint32_t block;
        BlockBits within;
        bool is_measured = false;
        std::array<NodeDistances::Sample, kBlockNodes> samples;
    };

    enum class Side { Within, Beyond, Both };

    // Where the nodes of a box of `size` nodes a side lie. `near` is a point of the surface near
    // to the box around it, and becomes that nearest to this one's centre.
    Side side_of(NodeIndex low, std::int32_t size, NearestPoint& near) const {
        const double half = (size - 1) / 2.0;
        const Vec3d first = grid_.node(low.i, low.j, low.k);
        const Vec3d centre = first + Vec3d{half, half, half} * grid_.cell;
        const double radius = half * std::sqrt(3.0) * grid_.cell;
        const double limit = (farthest_ + radius) * (1 + kSafe);
        const NearestPoint nearest = find(centre, limit, near);
        if (!nearest.is_found()) return Side::Beyond;
        near = nearest;
        const double distance = std::sqrt(nearest.squared_distance);
        return distance < (level_ - radius) - kSafe * level_ ? Side::Within : Side::Both;
    }

    void search_box(NodeIndex low, std::int32_t size, NearestPoint near,
                    BlockResult& result) const {
        if (!is_wanted(low, size)) return;
        const Side side = side_of(low, size, near);
        if (side == Side::Beyond) return;
        if (side == Side::Within) {
            visit_nodes(low, size, [&](NodeIndex n) { result.within.set(BlockLayout::local(n)); });
            return;
        }
        if (size == 2) {
            visit_nodes(low, size, [&](NodeIndex n) { measure(n, near, result); });
            return;
        }
        const std::int32_t half = size / 2;
        for (std::int32_t child = 0; child < 8; ++child) {
            search_box({low.i + (child & 1) * half, low.j + (child >> 1 & 1) * half,
                        low.k + (child >> 2) * half},
                       half, near, result);
        }
    }

private:
    template <typename Visit>
    static void visit_nodes(NodeIndex low, std::int32_t size, Visit&& visit) {
        for (std::int32_t k = 0; k < size; ++k) {
            for (std::int32_t j = 0; j < size; ++j) {
                for (std::int32_t i = 0; i < size; ++i) visit({low.i + i, low.j + j, low.k + k});
            }
        }
    }

    bool is_wanted(NodeIndex low, std::int32_t size) const {
        const std::uint32_t block = among_.layout().number(low) / kBlockNodes;
        if (!among_.is_mixed(block)) return among_.is_full(block);
        if (size == kBlockSide) return true;
        bool is_any = false;
        visit_nodes(low, size, [&](NodeIndex n) { is_any = is_any || among_.at(n); });
        return is_any;
    }

    NearestPoint find(Vec3d p, double limit, const NearestPoint& near) const {
        const double squared = limit * limit;
        return surface_.find(
            p, near.is_found() ? limit_by(p, near.point, squared, grid_.cell) : squared);
    }

    void measure(NodeIndex n, const NearestPoint& near, BlockResult& result) const {
        if (sharp_ != nullptr) {
            const double reach = farthest_ * (1 + kSafe);
            const double distance = sharp_->at(grid_.node(n.i, n.j, n.k), reach).distance;
            if (distance < level_) result.within.set(BlockLayout::local(n));
            return;
        }
        const double limit = (level_ + grid_.cell) * (1 + kSafe);
        const NearestPoint nearest = find(grid_.node(n.i, n.j, n.k), limit, near);
        if (!nearest.is_found()) return;
        const double distance = std::sqrt(nearest.squared_distance);
        const std::uint32_t local = BlockLayout::local(n);
        result.is_measured = true;
        result.samples[local] = {static_cast<float>(distance), nearest.face};
        if (distance < level_) result.within.set(local);
    }

    const NearestFace& surface_;
    const FieldGrid& grid_;
    double level_;
    double farthest_;  // by the plain distance, where a node may be within the level
    const NodeSet& among_;
    const SharpDistance* sharp_;
};

}  // namespace

void NodeDistances::add(std::span<const std::uint32_t> blocks) {
    auto next = fits<std::uint32_t>(samples_.size() / kBlockNodes);
    for (const std::uint32_t block : blocks) table_[block] = next++;
    const std::size_t before = samples_.size();
    samples_.resize(static_cast<std::size_t>(next) * kBlockNodes);
    parallel_for(samples_.size() - before, [&](std::size_t i) { samples_[before + i] = Sample{}; });
}

NodeDistances near_distances(const TriMesh& mesh, const FaceTree& tree, const FieldGrid& grid,
                             double reach) {
    const BlockLayout layout(grid);
    NodeDistances distances(layout);
    const std::vector<std::uint32_t> blocks = blocks_near(mesh, grid, reach);
    distances.add(blocks);
    for_blocks(blocks.size(), [&](std::size_t b) {
        const NodeIndex corner = layout.corner(blocks[b]);
        BlockMeasure measure(grid, corner, reach, distances.block(blocks[b]));
        tree.visit_overlapping(widened(grid, corner, reach), [&](std::uint32_t face) {
            measure.add(triangle_of(mesh, mesh.faces[face]), face);
            return false;
        });
    });
    return distances;
}

LevelNodes nodes_within(const NearestFace& surface, const FieldGrid& grid, double level,
                        const NodeSet& among, const SharpDistance* sharp) {
    const BlockLayout layout(grid);
    LevelNodes nodes{NodeSet(grid), NodeDistances(layout)};
    const LevelSearch search(surface, grid, level, among, sharp);

    // Boxes of several blocks first; those that the level passes are left with single blocks.
    std::vector<NodeIndex> boxes;
    const std::int32_t step = kFirstBox * kBlockSide;
    for (std::int32_t k = 0; k < layout.blocks[2] * kBlockSide; k += step) {
        for (std::int32_t j = 0; j < layout.blocks[1] * kBlockSide; j += step) {
            for (std::int32_t i = 0; i < layout.blocks[0] * kBlockSide; i += step) {
                boxes.push_back({i, j, k});
            }
        }
    }
    std::vector<LevelSearch::Side> sides(boxes.size());
    for_blocks(boxes.size(), [&](std::size_t b) {
        NearestPoint near;
        sides[b] = search.side_of(boxes[b], step, near);
    });
    std::vector<std::uint32_t> open;
    for (std::size_t b = 0; b < boxes.size(); ++b) {
        if (sides[b] == LevelSearch::Side::Beyond) continue;
        const NodeIndex low = boxes[b];
        for (std::int32_t k = low.k; k < low.k + step; k += kBlockSide) {
            for (std::int32_t j = low.j; j < low.j + step; j += kBlockSide) {
                for (std::int32_t i = low.i; i < low.i + step; i += kBlockSide) {
                    if (!layout.contains({i, j, k})) continue;
                    const std::uint32_t block = layout.number({i, j, k}) / kBlockNodes;
                    if (among.is_empty(block)) continue;
                    if (sides[b] == LevelSearch::Side::Both) {
                        open.push_back(block);
                    } else if (among.is_full(block)) {
                        nodes.within.fill(block);
                    } else {
                        nodes.within.edit(block) = among.bits(block);
                    }
                }
            }
        }
    }

    // A share of the blocks at a time, so that their results take little memory.
    constexpr std::size_t kAtOnce = 1024;
    std::vector<LevelSearch::BlockResult> results;
    for (std::size_t from = 0; from < open.size(); from += kAtOnce) {
        const std::size_t count = std::min(kAtOnce, open.size() - from);
        results.assign(count, {});
        for_blocks(count, [&](std::size_t b) {
            results[b].block = open[from + b];
            search.search_box(layout.corner(open[from + b]), kBlockSide, {}, results[b]);
        });
        std::vector<std::uint32_t> measured;
        for (const auto& result : results) {
            const BlockBits within = result.within & among.bits(result.block);
            if (within == BlockBits::full()) {
                nodes.within.fill(result.block);
            } else if (within.any()) {
                nodes.within.edit(result.block) = within;
            }
            if (result.is_measured) measured.push_back(result.block);
        }
        nodes.distances.add(measured);
        for (const auto& result : results) {
            if (!result.is_measured) continue;
            std::copy(result.samples.begin(), result.samples.end(),
                      nodes.distances.block(result.block).begin());
        }
    }
    return nodes;
}

}  // namespace povmesh
