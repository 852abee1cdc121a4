// The threads of one call: they run the blocks of its loops and end with it.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "base/block_loop.h"
#include "base/job_state.h"

namespace povmesh {

class Workers {
public:
    explicit Workers(JobState& job) : job_(job) {}
    ~Workers();
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    /// Runs all blocks, on the calling thread, too, and returns when none runs any more; then
    /// throws what the lowest block threw that threw. Workers are started by loops of enough
    /// blocks, as many as the call may have and the system gives.
    void run(detail::BlockLoop& loop);

private:
    void start(std::size_t wanted);
    void work();
    void finish();

    JobState& job_;
    bool has_failed_to_start_ = false;
    std::mutex mutex_;
    std::condition_variable begin_;
    std::condition_variable end_;
    detail::BlockLoop* loop_ = nullptr;  // under the mutex, as all below
    std::uint64_t round_ = 0;            // counts loops, so that none is taken twice
    std::size_t busy_ = 0;
    bool is_over_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace povmesh
