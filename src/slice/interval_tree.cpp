// An implicit balanced tree: node k of the doubled places is the middle of those that share its
// higher bits. Each interval is kept at the highest node within it, once sorted by first place and
// once by last; a query passes one node per bit and reads a prefix of one list at each. Radix
// sorting keeps the building linear.
#include "slice/interval_tree.h"

#include <bit>

namespace povmesh {
namespace {

// An interval hangs on the first of its places that has the most trailing zeros. For this every
// place is doubled and the last one moved half a place on, so that the two ends always differ.
std::size_t node_of(const PlaceInterval& interval) {
    const std::size_t first = 2 * std::size_t{interval.first};
    const std::size_t last = 2 * std::size_t{interval.last} + 1;
    return last & ~(std::bit_floor(first ^ last) - 1);
}

// Turns counts at 1, 2, ... into offsets.
void add_up(Array<std::uint32_t>& counts) {
    for (std::size_t i = 1; i < counts.size(); ++i) counts[i] += counts[i - 1];
}

}  // namespace

IntervalTree::IntervalTree(std::span<const PlaceInterval> intervals, std::size_t place_count)
    : place_count_(place_count) {
    offsets_.assign(2 * place_count + 1, 0);
    for (const PlaceInterval& interval : intervals) ++offsets_[node_of(interval) + 1];
    add_up(offsets_);
    sort_to_nodes(intervals, true);
    sort_to_nodes(intervals, false);
}

// By key, then by node; both passes keep the order of what is equal.
void IntervalTree::sort_to_nodes(std::span<const PlaceInterval> intervals, bool by_first) {
    const auto key_of = [&](const PlaceInterval& interval) {
        return by_first ? std::size_t{interval.first} : place_count_ - 1 - interval.last;
    };
    Array<std::uint32_t> ends;
    ends.assign(place_count_ + 1, 0);
    for (const PlaceInterval& interval : intervals) ++ends[key_of(interval) + 1];
    add_up(ends);
    Array<std::uint32_t> order(intervals.size());
    for (std::uint32_t i = 0; i < intervals.size(); ++i) order[ends[key_of(intervals[i])]++] = i;
    Array<Entry>& entries = by_first ? by_first_ : by_last_;
    entries.resize(intervals.size());
    ends = offsets_;
    for (const std::uint32_t i : order) {
        const PlaceInterval& interval = intervals[i];
        entries[ends[node_of(interval)]++] = {static_cast<std::uint32_t>(key_of(interval)),
                                              interval.item};
    }
}

}  // namespace povmesh
