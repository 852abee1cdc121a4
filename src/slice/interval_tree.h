// Which of many intervals hold a place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/array.h"

namespace povmesh {

/// A closed interval of whole numbers ("places"): `first` to `last`, both in it.
struct PlaceInterval {
    std::uint32_t first, last;
    std::uint32_t item;  // what is found at these places
};

/// Finds the intervals that hold a place, all of them within 0 to place_count - 1.
///
/// A query takes time linear in what it finds and logarithmic in the number of places, however long
/// the intervals are. Built in linear time; 16 bytes an interval, 8 a place.
///
/// Source: H. Edelsbrunner, Dynamic data structures for orthogonal intersection queries, 1980; here
/// over the bits of the places, so that no tree is stored.
class IntervalTree {
public:
    IntervalTree(std::span<const PlaceInterval> intervals, std::size_t place_count);

    /// Calls visit(item) for each interval that holds the place, in an order that depends on
    /// nothing but the intervals.
    template <typename Visit>
    void for_each(std::size_t place, Visit&& visit) const {
        const std::size_t node_count = offsets_.size() - 1;
        for (std::size_t bit = 1; bit < 2 * node_count; bit *= 2) {
            const std::size_t node = ((2 * place) & ~(2 * bit - 1)) | bit;
            if (node >= node_count) continue;
            const bool is_before = 2 * place < node;
            const Entry* entries = is_before ? by_first_.data() : by_last_.data();
            const std::size_t limit = is_before ? place : place_count_ - 1 - place;
            for (std::uint32_t i = offsets_[node]; i < offsets_[node + 1]; ++i) {
                if (entries[i].key > limit) break;
                visit(entries[i].item);
            }
        }
    }

private:
    struct Entry {
        std::uint32_t key;  // the first place, or the distance of the last one from the end
        std::uint32_t item;
    };

    void sort_to_nodes(std::span<const PlaceInterval> intervals, bool by_first);

    std::size_t place_count_;
    Array<std::uint32_t> offsets_;  // by node
    Array<Entry> by_first_;         // node by node, ascending keys
    Array<Entry> by_last_;
};

}  // namespace povmesh
