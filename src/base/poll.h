// Places where work that takes long looks whether its call is to end.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace povmesh {

/// Throws Cancelled (base/job_state.h) when the call of this thread is to end. For serial loops
/// that may take long, every few thousand items; parallel loops and large allocations poll by
/// themselves. Not for destructors.
void poll();

/// `poll` for each 4,096th item: for loops that count, and for those that do not.
inline void poll_at(std::size_t item) {
    if ((item & 4095U) == 4095U) poll();
}

class Poller {
public:
    void operator()() { poll_at(count_++); }

private:
    std::uint32_t count_ = 0;
};

/// `resize` that polls: most of the time goes into pages that are new.
template <typename Items>
void polled_resize(Items& items, std::size_t size) {
    constexpr std::size_t kStep = 65536;
    items.reserve(size);
    while (size > items.size() && size - items.size() > kStep) {
        items.resize(items.size() + kStep);
        poll();
    }
    items.resize(size);
}

/// `to = from` that polls.
template <typename Items>
void polled_copy(const Items& from, Items& to) {
    constexpr std::size_t kStep = 65536;
    to.clear();
    to.reserve(from.size());
    for (std::size_t first = 0; first < from.size(); first += kStep) {
        const auto begin = from.begin() + static_cast<std::ptrdiff_t>(first);
        to.insert(to.end(), begin,
                  begin + static_cast<std::ptrdiff_t>(std::min(kStep, from.size() - first)));
        poll();
    }
}

/// std::sort that polls. Three million keys take 300 ms. After a poll that throws, the items are
/// there in any order, as after a comparison that throws.
template <typename Iterator, typename Less>
void polled_sort(Iterator first, Iterator last, Less less) {
    constexpr std::ptrdiff_t kLong = 100'000;
    if (last - first < kLong) {
        std::sort(first, last, less);
        return;
    }
    std::uint32_t count = 0;
    // By reference: the sort copies its comparison.
    std::sort(first, last, [&less, &count](const auto& a, const auto& b) {
        poll_at(count++);
        return less(a, b);
    });
}

}  // namespace povmesh
