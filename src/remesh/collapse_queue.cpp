// The memory of the buckets: chunks of entries, chained by bucket, and a chain of those that are
// free.
#include "remesh/collapse_queue.h"

#include "base/poll.h"

namespace povmesh {

void CollapseQueue::clear(std::size_t expected_entries) {
    // A heap of this many lies in the caches by itself.
    constexpr std::size_t kFew = 4096;
    heap_.clear();
    for (std::size_t bucket = 0; bucket <= last_ && !heads_.empty(); ++bucket) {
        heads_[bucket] = kNone;
    }
    chunks_.clear();
    free_ = kNone;
    last_ = 0;
    current_ = kBucketCount;
    if (expected_entries <= kFew) return;
    if (heads_.empty()) heads_.assign(kBucketCount, kNone);
    current_ = 0;
}

// Twice as many. There may be hundreds of megabytes to move.
void CollapseQueue::make_room() {
    constexpr std::size_t kLeast = 64;
    constexpr std::size_t kAtOnce = 4096;  // 3 MB
    Array<Chunk> roomy;
    roomy.reserve(std::max(kLeast, 2 * chunks_.size()));
    for (std::size_t first = 0; first < chunks_.size(); first += kAtOnce) {
        const auto begin = chunks_.begin() + static_cast<std::ptrdiff_t>(first);
        const std::size_t count = std::min(kAtOnce, chunks_.size() - first);
        roomy.insert(roomy.end(), begin, begin + static_cast<std::ptrdiff_t>(count));
        poll();
    }
    chunks_.swap(roomy);
}

std::uint32_t CollapseQueue::add_chunk(std::size_t bucket) {
    std::uint32_t chunk = free_;
    if (chunk != kNone) {
        free_ = chunks_[chunk].next;
    } else {
        chunk = static_cast<std::uint32_t>(chunks_.size());
        if (chunks_.size() == chunks_.capacity()) make_room();
        chunks_.resize(chunks_.size() + 1);
    }
    chunks_[chunk].next = heads_[bucket];
    chunks_[chunk].count = 0;
    heads_[bucket] = chunk;
    return chunk;
}

}  // namespace povmesh
