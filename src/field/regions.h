// Regions of nodes that are joined by grid edges which no face crosses.
#pragma once

#include <cstdint>
#include <vector>

#include "base/array.h"
#include "field/crossings.h"
#include "field/node_blocks.h"

namespace povmesh {

/// Nodes with the number of their region, 0 where none is known yet.
///
/// A block within one region takes 4 bytes; others 72 for each region that they have nodes of.
class Regions {
public:
    static constexpr std::uint32_t kUnknown = 0;

    Regions(const Crossings& crossings, const FieldGrid& grid);

    std::uint32_t at(std::uint32_t node) const;
    const BlockLayout& layout() const { return layout_; }

    /// The region of all nodes of a block, or kUnknown when they are of several.
    std::uint32_t whole(std::uint32_t block) const { return whole_[block]; }

    /// The nodes of a block that have a region, and those of the regions that `is_wanted` takes.
    BlockBits known(std::uint32_t block) const;
    template <typename IsWanted>
    BlockBits bits(std::uint32_t block, IsWanted&& is_wanted) const {
        if (whole_[block] != kUnknown) {
            return is_wanted(whole_[block]) ? BlockBits::full() : BlockBits{};
        }
        BlockBits sum;
        for (std::uint32_t e = head_[block]; e != kEnd; e = entries_[e].next) {
            if (is_wanted(entries_[e].region)) sum = sum | entries_[e].bits;
        }
        return sum;
    }

    /// Gives a region to the nodes that are reached from a seed through uncrossed edges between
    /// nodes of the allowed set. Whole blocks without crossings are reached at once.
    void flood(std::uint32_t region, std::uint32_t seed, const NodeSet& allowed);

    /// Gives every allowed node without a region one, from `first` on in the order of the nodes.
    /// Returns the number after the last one given.
    std::uint32_t flood_all(std::uint32_t first, const NodeSet& allowed);

    /// Gives a region to one node that has none.
    void set(std::uint32_t node, std::uint32_t region);

private:
    static constexpr std::uint32_t kEnd = 0xFFFFFFFF;
    struct Entry {
        std::uint32_t region;
        std::uint32_t next;
        BlockBits bits;
    };

    bool is_open(std::uint32_t block) const;
    BlockBits& entry_of(std::uint32_t block, std::uint32_t region);
    void reach(std::uint32_t block, const BlockBits& bits, std::uint32_t region,
               const NodeSet& allowed);
    void grow(std::uint32_t block, std::uint32_t region, const NodeSet& allowed);

    const Crossings& crossings_;
    BlockLayout layout_;
    Array<std::uint32_t> whole_;
    Array<std::uint32_t> head_;
    Array<Entry> entries_;
    std::vector<std::uint32_t> waiting_;
    Array<std::uint8_t> is_waiting_;
};

}  // namespace povmesh
