// Flood fill on 64 nodes at a time: a block's nodes spread within it until nothing changes, then
// over its six sides into the neighbours, which wait in a list.
#include "field/regions.h"

#include <algorithm>

#include "base/poll.h"

namespace povmesh {
namespace {

constexpr std::uint64_t kLowColumn = 0x0101010101010101;
constexpr std::uint64_t kHighColumn = kLowColumn << 7;

// The edges out of the nodes of a block, those that are crossed.
struct BlockEdges {
    BlockBits x, y, z;
};

// One pass over the slices, up or down; spreads within each as far as it goes.
bool spread_slices(BlockBits& reached, const BlockBits& allowed, const BlockEdges& crossed) {
    bool has_changed = false;
    const auto spread_slice = [&](std::size_t z, std::uint64_t from_beside) {
        std::uint64_t r = reached.words[z] | (from_beside & allowed.words[z]);
        const std::uint64_t cx = crossed.x.words[z];
        const std::uint64_t cy = crossed.y.words[z];
        for (;;) {
            std::uint64_t more = r | (r & ~cx & ~kHighColumn) << 1 | (r >> 1 & ~kHighColumn & ~cx);
            more &= allowed.words[z];
            more |= (more & ~cy) << 8 | (more >> 8 & ~cy);
            more &= allowed.words[z];
            if (more == r) break;
            r = more;
        }
        has_changed = has_changed || r != reached.words[z];
        reached.words[z] = r;
    };
    spread_slice(0, 0);
    for (std::size_t z = 1; z < 8; ++z) {
        spread_slice(z, reached.words[z - 1] & ~crossed.z.words[z - 1]);
    }
    for (std::size_t z = 7; z-- > 0;) {
        spread_slice(z, reached.words[z + 1] & ~crossed.z.words[z]);
    }
    return has_changed;
}

}  // namespace

Regions::Regions(const Crossings& crossings, const FieldGrid& grid)
    : crossings_(crossings), layout_(grid) {
    whole_.assign(layout_.count(), kUnknown);
    head_.assign(layout_.count(), kEnd);
    is_waiting_.assign(layout_.count(), 0);
}

std::uint32_t Regions::at(std::uint32_t node) const {
    const std::uint32_t block = node / kBlockNodes;
    if (whole_[block] != kUnknown) return whole_[block];
    for (std::uint32_t e = head_[block]; e != kEnd; e = entries_[e].next) {
        if (entries_[e].bits.at(node % kBlockNodes)) return entries_[e].region;
    }
    return kUnknown;
}

BlockBits Regions::known(std::uint32_t block) const {
    return bits(block, [](std::uint32_t /*region*/) { return true; });
}

// The region that a flood is at stands first in the list of a block.
BlockBits& Regions::entry_of(std::uint32_t block, std::uint32_t region) {
    for (std::uint32_t e = head_[block]; e != kEnd; e = entries_[e].next) {
        if (entries_[e].region == region) return entries_[e].bits;
    }
    entries_.push_back({region, head_[block], {}});
    head_[block] = fits<std::uint32_t>(entries_.size() - 1);
    return entries_.back().bits;
}

void Regions::reach(std::uint32_t block, const BlockBits& bits, std::uint32_t region,
                    const NodeSet& allowed) {
    if (whole_[block] != kUnknown || allowed.is_empty(block)) return;
    const BlockBits possible = bits & allowed.bits(block) & ~known(block);
    if (!possible.any()) return;
    if (is_open(block) && allowed.is_full(block) && head_[block] == kEnd) {
        whole_[block] = region;
        waiting_.push_back(block);
        return;
    }
    BlockBits& own = entry_of(block, region);
    own = own | possible;
    if (is_waiting_[block] == 0) {
        is_waiting_[block] = 1;
        waiting_.push_back(block);
    }
}

// No edge out of a node of the block is crossed.
bool Regions::is_open(std::uint32_t block) const {
    return crossings_.crossed(0).is_empty(block) && crossings_.crossed(1).is_empty(block) &&
           crossings_.crossed(2).is_empty(block);
}

void Regions::grow(std::uint32_t block, std::uint32_t region, const NodeSet& allowed) {
    poll();
    const BlockEdges crossed = {crossings_.crossed(0).bits(block),
                                crossings_.crossed(1).bits(block),
                                crossings_.crossed(2).bits(block)};
    BlockBits reached = BlockBits::full();
    if (whole_[block] == kUnknown) {
        const BlockBits taken = known(block);
        BlockBits& own = entry_of(block, region);
        const BlockBits possible = allowed.bits(block) & (~taken | own);
        while (spread_slices(own, possible, crossed)) {
        }
        reached = own;
    }
    const std::array<const BlockBits*, 3> edges = {&crossed.x, &crossed.y, &crossed.z};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const std::uint32_t next = layout_.neighbour(block, axis, 1);
        if (next != BlockLayout::kNone) {
            reach(next, shifted({}, reached & ~*edges[axis], axis, -1), region, allowed);
        }
        const std::uint32_t previous = layout_.neighbour(block, axis, -1);
        if (previous != BlockLayout::kNone) {
            const BlockBits open = ~crossings_.crossed(axis).bits(previous);
            reach(previous, shifted({}, reached, axis, 1) & open, region, allowed);
        }
    }
    // The list, whose only entry this is then, is no longer looked at.
    if (reached == BlockBits::full()) whole_[block] = region;
}

void Regions::flood(std::uint32_t region, std::uint32_t seed, const NodeSet& allowed) {
    BlockBits first;
    first.set(seed % kBlockNodes);
    reach(seed / kBlockNodes, first, region, allowed);
    while (!waiting_.empty()) {
        const std::uint32_t block = waiting_.back();
        waiting_.pop_back();
        is_waiting_[block] = 0;
        grow(block, region, allowed);
    }
}

std::uint32_t Regions::flood_all(std::uint32_t first, const NodeSet& allowed) {
    std::uint32_t region = first;
    for (std::uint32_t block = 0; block < layout_.count(); ++block) {
        if (whole_[block] != kUnknown || allowed.is_empty(block)) continue;
        for (;;) {
            const BlockBits left = allowed.bits(block) & ~known(block);
            if (!left.any()) break;
            std::uint32_t z = 0;
            while (left.words[z] == 0) ++z;
            const auto bit = static_cast<std::uint32_t>(std::countr_zero(left.words[z]));
            flood(region++, block * kBlockNodes + z * 64 + bit, allowed);
            if (whole_[block] != kUnknown) break;
        }
    }
    return region;
}

void Regions::set(std::uint32_t node, std::uint32_t region) {
    entry_of(node / kBlockNodes, region).set(node % kBlockNodes);
}

}  // namespace povmesh
