// One loop over blocks, shared by the threads that run it.
#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <limits>
#include <mutex>

#include "base/job_state.h"
#include "base/parallel.h"

namespace povmesh::detail {

/// Above 0: the loops of this thread run on it alone.
#if defined(__GNUC__) && !defined(_WIN32)
[[gnu::tls_model("initial-exec")]]
#endif
extern constinit thread_local int serial_depth;

struct SerialScope {
    SerialScope() { ++serial_depth; }
    ~SerialScope() { --serial_depth; }
    SerialScope(const SerialScope&) = delete;
    SerialScope& operator=(const SerialScope&) = delete;
};

/// Blocks are taken in order. After an exception no further one begins; the blocks below one that
/// threw have begun then, so that the lowest one that throws is the same for any number of threads.
class BlockLoop {
public:
    BlockLoop(std::size_t count, BlockFunction function, void* context)
        : count_(count), function_(function), context_(context) {}

    std::size_t count() const { return count_; }

    /// Takes blocks until there are none left. Throws nothing.
    void take_blocks(JobState* job) noexcept {
        while (!has_failed_.load(std::memory_order_relaxed)) {
            const std::size_t block = next_.fetch_add(1, std::memory_order_relaxed);
            if (block >= count_) return;
            run_block(job, block);
        }
    }

    /// One block of those that somebody else deals out.
    void run_block(JobState* job, std::size_t block) noexcept {
        try {
            if (job != nullptr) job->poll();
            function_(context_, block);
        } catch (...) {
            const std::lock_guard lock(mutex_);
            if (block < failed_block_) {
                failed_block_ = block;
                failure_ = std::current_exception();
            }
            has_failed_.store(true, std::memory_order_relaxed);
        }
    }

    bool has_failed() const { return has_failed_.load(std::memory_order_relaxed); }

    /// When no thread is at it any more.
    void rethrow() const {
        if (failure_) std::rethrow_exception(failure_);
    }

private:
    std::size_t count_;
    BlockFunction function_;
    void* context_;
    std::atomic<std::size_t> next_ = 0;
    std::atomic<bool> has_failed_ = false;
    std::mutex mutex_;
    std::size_t failed_block_ = std::numeric_limits<std::size_t>::max();
    std::exception_ptr failure_;
};

}  // namespace povmesh::detail
