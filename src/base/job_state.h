// What a call may hold, whether it is to end, and how far it is: found by each thread that works
// for the call, without being handed down.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>

namespace povmesh {

/// Thrown by a poll when the call is to end, and caught by the frame of the call alone. No
/// std::exception, so that what catches those lets it pass.
struct Cancelled {};

/// What tests let fail on purpose: the event of a number, counted from 1; 0: none.
struct FaultPlan {
    std::int64_t allocation = 0;
    bool for_ever = false;  // and all allocations behind that one
    std::int64_t poll = 0;  // at which the call is cancelled
    std::atomic<std::int64_t> allocations_seen = 0;
    std::atomic<std::int64_t> polls_seen = 0;
    void (*on_poll)() = nullptr;  // called at each, on the thread that polls

    /// Counts an allocation; true when it has to fail.
    bool fails_allocation() noexcept {
        const std::int64_t number = ++allocations_seen;
        return allocation != 0 && (number == allocation || (for_ever && number > allocation));
    }
    /// Counts a poll; true when it has to cancel the call.
    bool cancels() {
        if (on_poll != nullptr) on_poll();
        return ++polls_seen == poll;
    }
};

/// How far the call is, told on its own thread; true cancels it.
using ProgressReport = bool (*)(void* user, double percent, const char* phase);

/// Reasons to end the call, bits of `JobSettings::wish`.
enum CancelReason : std::uint32_t {
    CancelledFromOutside = 1,  // stays until it is taken back
    CancelledByReport = 2,     // of this call alone
};

struct JobSettings {
    std::atomic<std::uint32_t>* wish = nullptr;  // not 0: to be cancelled; null: nobody asks
    std::uint64_t memory_limit = 0;              // bytes; 0: none
    unsigned threads = 1;
    // False: loops run on the OpenMP runtime's threads; of 0 `threads` as many as that has.
    bool has_own_workers = true;
    ProgressReport report = nullptr;
    void* report_user = nullptr;
    FaultPlan* faults = nullptr;
};

class Workers;

/// One call, on its stack. Made on the thread that calls; all members but `poll`, `charge` and
/// `release` are for that thread alone.
class JobState {
public:
    explicit JobState(const JobSettings& settings);
    ~JobState();  // its workers end
    JobState(const JobState&) = delete;
    JobState& operator=(const JobState&) = delete;

    /// Throws Cancelled when the call is to end. On the thread of the call, tells how far it is,
    /// every 40 ms.
    void poll();

    /// The same without a throw, for a thread that waits: true when the call is to end.
    bool is_cancelled();

    /// Adds to what the call holds; throws std::bad_alloc when that is more than its limit.
    void charge(std::size_t bytes);
    void release(std::size_t bytes) noexcept {
        held_.fetch_sub(static_cast<std::int64_t>(bytes), std::memory_order_relaxed);
    }
    std::uint64_t peak_bytes() const { return peak_.load(std::memory_order_relaxed); }
    /// Whether it was refused memory for the sake of its limit.
    bool has_met_limit() const { return has_met_limit_.load(std::memory_order_relaxed); }
    std::int64_t held_bytes() const { return held_.load(std::memory_order_relaxed); }

    /// Percent never falls; a phase is a constant text. Tells at once; throws Cancelled.
    void set_progress(double percent, const char* phase);

    const JobSettings& settings() const { return settings_; }

    /// Those that run the blocks of its loops; made when they are first asked for. Null when the
    /// call has the calling thread alone.
    Workers* workers();

private:
    void tell();

    JobSettings settings_;
    std::thread::id thread_;
    std::atomic<std::int64_t> held_ = 0;
    std::atomic<std::uint64_t> peak_ = 0;
    std::atomic<bool> has_met_limit_ = false;
    double percent_ = 0;
    const char* phase_ = "";
    bool is_telling_ = false;
    std::chrono::steady_clock::time_point told_;
    std::unique_ptr<Workers> workers_;
};

namespace detail {

// Initial-exec: neither the first look nor a thread's end allocates or runs code.
#if defined(__GNUC__) && !defined(_WIN32)
[[gnu::tls_model("initial-exec")]]
#endif
extern constinit thread_local JobState* job_of_thread;

}  // namespace detail

/// The call that this thread works for; null: no limit, and nobody cancels.
inline JobState* current_job() {
    return detail::job_of_thread;
}

/// Makes this thread work for a call, or for none, while it lives.
class JobScope {
public:
    explicit JobScope(JobState* job) : before_(detail::job_of_thread) {
        detail::job_of_thread = job;
    }
    ~JobScope() { detail::job_of_thread = before_; }
    JobScope(const JobScope&) = delete;
    JobScope& operator=(const JobScope&) = delete;

private:
    JobState* before_;
};

}  // namespace povmesh
