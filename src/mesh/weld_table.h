// The hash table behind vertex welding.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "base/memory.h"
#include "base/parallel.h"
#include "base/poll.h"

namespace povmesh {

/// Odd factors for hash functions, drawn once for the process, so that nobody can make a file whose
/// keys all fall into one place.
std::uint64_t hash_factor(std::size_t which);
constexpr std::size_t kHashFactors = 3;

/// Numbers pairs (key, cell) in the order in which they first come up, whatever the hash function.
/// Open addressing, 16 bytes a slot, so that a look-up touches one cache line.
class WeldTable {
public:
    /// @param expected  a hint for the number of pairs; the table grows as needed
    explicit WeldTable(std::size_t expected) {
        const std::size_t slot_count = std::bit_ceil((expected + 128) * 8 / kFullEighths);
        clear(slot_count);
        shift_ = 64U - static_cast<unsigned>(std::countr_zero(slot_count));
    }

    /// Where the search for a pair begins; valid until `make_room`.
    std::size_t home(std::uint64_t key, std::uint32_t cell) const {
        // Keys of coordinates with few mantissa bits differ in high bits only: the first products
        // carry low bits up, the shift brings high ones down, the last product spreads them.
        std::uint64_t h = key * key_factor_ + cell * cell_factor_;
        h ^= h >> 32;
        h *= last_factor_;
        return h >> shift_;
    }

    void prefetch_home(std::size_t home) const { prefetch(&slots_[home]); }

    /// The number of the pair at its home, most likely the one that is looked for; -1: none.
    std::int32_t number_at(std::size_t home) const { return slots_[home].number_plus_one - 1; }

    /// Slots that a look-up of a pair which is there reads.
    std::size_t look_up_steps(std::uint64_t key, std::uint32_t cell) const {
        const std::size_t mask = slots_.size() - 1;
        std::size_t steps = 1;
        std::size_t place = home(key, cell);
        while (slots_[place].key != key || slots_[place].cell != cell) {
            place = (place + 1) & mask;
            ++steps;
        }
        return steps;
    }

    /// Makes sure that `find_or_add` can bring the number of pairs to `count`.
    void make_room(std::size_t count) {
        while (count > slots_.size() / 8 * kFullEighths) grow();
    }

    /// The number of a pair; a new one gets `next_number`. There must be room.
    std::int32_t find_or_add(std::uint64_t key, std::uint32_t cell, std::size_t home,
                             std::int32_t next_number) {
        return find_or_add(key, cell, home, next_number, [](std::int32_t) { return true; });
    }

    /// The same where pairs may be alike for different things: `is_same` tells whether the one
    /// with a number, of the same pair, is meant.
    template <typename IsSame>
    std::int32_t find_or_add(std::uint64_t key, std::uint32_t cell, std::size_t home,
                             std::int32_t next_number, const IsSame& is_same) {
        Slot* const slots = slots_.data();
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t place = home;; place = (place + 1) & mask) {
            Slot& slot = slots[place];
            if (slot.number_plus_one == 0) {
                slot = {key, cell, next_number + 1};
                return next_number;
            }
            if (slot.key == key && slot.cell == cell && is_same(slot.number_plus_one - 1)) {
                return slot.number_plus_one - 1;
            }
        }
    }

private:
    struct Slot {
        std::uint64_t key;
        std::uint32_t cell;
        std::int32_t number_plus_one;  // 0 = empty
    };

    // Largest share of used slots, in eighths: fuller tables probe longer, emptier ones leave the
    // caches earlier.
    static constexpr std::size_t kFullEighths = 5;

    // In parallel: the table is larger than the mesh, and its pages are new.
    void clear(std::size_t slot_count) {
        slots_.resize(slot_count);
        parallel_for(slot_count, [this](std::size_t i) { slots_[i] = Slot{}; });
    }

    void grow() {
        Array<Slot> old;
        old.swap(slots_);
        clear(old.size() * 2);
        --shift_;
        const std::size_t mask = slots_.size() - 1;
        Poller poller;
        for (const Slot& slot : old) {
            poller();
            if (slot.number_plus_one == 0) continue;
            std::size_t place = home(slot.key, slot.cell);
            while (slots_[place].number_plus_one != 0) place = (place + 1) & mask;
            slots_[place] = slot;
        }
    }

    Array<Slot> slots_;
    unsigned shift_ = 0;  // 64 - log2(slot count)
    std::uint64_t key_factor_ = hash_factor(0);
    std::uint64_t cell_factor_ = hash_factor(1);
    std::uint64_t last_factor_ = hash_factor(2);
};

}  // namespace povmesh
