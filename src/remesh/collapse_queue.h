// Candidate edges in the order of their cost.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "base/array.h"

namespace povmesh {

/// A queue of edges ordered by (cost, insertion number).
///
/// Costs fall into buckets by their leading bits. Only the bucket at hand is kept as a heap, which
/// then lies in the caches; entries of later buckets are appended unsorted, and those that never
/// come up are never sorted.
class CollapseQueue {
public:
    struct Entry {
        double cost;
        std::uint64_t number;  // of the insertion
        std::int32_t a, b;

        friend bool operator>(const Entry& x, const Entry& y) {
            return x.cost != y.cost ? x.cost > y.cost : x.number > y.number;
        }
    };

    /// The number that the next insertion gets. It goes on over `clear`.
    std::uint64_t next_number() const { return next_number_; }

    /// A cost that is not a number is counted and dropped.
    void push(double cost, std::int32_t a, std::int32_t b) {
        const Entry entry{cost, next_number_++, a, b};
        if (cost != cost) return;
        const std::size_t bucket = bucket_of(cost);
        if (bucket > current_) {
            append(bucket, entry);
        } else {
            heap_.push_back(entry);
            std::push_heap(heap_.begin(), heap_.end(), std::greater<>());
        }
    }

    /// Takes the lowest entry. Entries for which `is_stale(entry)` holds may be dropped on the way;
    /// the one returned may be stale all the same. False when the queue is empty.
    template <typename IsStale>
    bool pop(Entry& entry, const IsStale& is_stale) {
        while (heap_.empty()) {
            if (!load_next_bucket(is_stale)) return false;
        }
        entry = heap_.front();
        std::pop_heap(heap_.begin(), heap_.end(), std::greater<>());
        heap_.pop_back();
        return true;
    }

    /// Empties the queue for the next shell. Few expected entries go without buckets.
    void clear(std::size_t expected_entries);

private:
    // Five bits of the mantissa: a bucket spans 3 % of a cost.
    static constexpr int kShift = 47;
    static constexpr std::size_t kBucketCount = std::size_t{1} << (63 - kShift);
    static constexpr std::size_t kChunkSize = 31;
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    struct Chunk {
        std::array<Entry, kChunkSize> entries;
        std::uint32_t next;
        std::uint32_t count;
    };

    // The bits of positive numbers are ordered as they are. Rounding makes costs below zero.
    static std::size_t bucket_of(double cost) {
        return cost > 0 ? std::bit_cast<std::uint64_t>(cost) >> kShift : 0;
    }

    void append(std::size_t bucket, const Entry& entry) {
        std::uint32_t chunk = heads_[bucket];
        if (chunk == kNone || chunks_[chunk].count == kChunkSize) chunk = add_chunk(bucket);
        Chunk& place = chunks_[chunk];
        place.entries[place.count++] = entry;
        last_ = std::max(last_, bucket);
    }
    std::uint32_t add_chunk(std::size_t bucket);
    void make_room();

    template <typename IsStale>
    bool load_next_bucket(const IsStale& is_stale) {
        while (current_ < last_ && heads_[current_ + 1] == kNone) ++current_;
        if (current_ >= last_) return false;
        ++current_;
        std::uint32_t chunk = heads_[current_];
        heads_[current_] = kNone;
        while (chunk != kNone) {
            Chunk& full = chunks_[chunk];
            for (std::uint32_t i = 0; i < full.count; ++i) {
                if (!is_stale(full.entries[i])) heap_.push_back(full.entries[i]);
            }
            const std::uint32_t next = full.next;
            full.next = free_;
            free_ = chunk;
            chunk = next;
        }
        std::make_heap(heap_.begin(), heap_.end(), std::greater<>());
        return true;
    }

    Array<Entry> heap_;
    Array<std::uint32_t> heads_;  // first chunk of a bucket
    Array<Chunk> chunks_;
    std::uint32_t free_ = kNone;  // chunks that wait for use, chained
    std::size_t current_ = kBucketCount;
    std::size_t last_ = 0;
    std::uint64_t next_number_ = 0;
};

}  // namespace povmesh
