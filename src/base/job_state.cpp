#include "base/job_state.h"

#include <algorithm>
#include <limits>
#include <new>

#include "base/poll.h"
#include "base/workers.h"

namespace povmesh {
namespace {

// How often a host hears of a call that makes no new percent: a bar that moves, and a window that
// answers.
constexpr std::chrono::milliseconds kTellEvery{40};

}  // namespace

namespace detail {

constinit thread_local JobState* job_of_thread = nullptr;

}  // namespace detail

void poll() {
    if (JobState* const job = current_job()) job->poll();
}

JobState::JobState(const JobSettings& settings)
    : settings_(settings),
      thread_(std::this_thread::get_id()),
      told_(std::chrono::steady_clock::now()) {}

JobState::~JobState() = default;

bool JobState::is_cancelled() {
    if (settings_.faults != nullptr && settings_.faults->cancels() && settings_.wish != nullptr) {
        settings_.wish->fetch_or(CancelledByReport, std::memory_order_relaxed);
    }
    const auto is_wished = [this] {
        return settings_.wish != nullptr && settings_.wish->load(std::memory_order_relaxed) != 0;
    };
    if (is_wished()) return true;
    if (settings_.report == nullptr || std::this_thread::get_id() != thread_) return false;
    if (std::chrono::steady_clock::now() - told_ >= kTellEvery) tell();
    return is_wished();
}

void JobState::poll() {
    if (is_cancelled()) throw Cancelled{};
}

void JobState::charge(std::size_t bytes) {
    if (settings_.faults != nullptr && settings_.faults->fails_allocation()) {
        throw std::bad_alloc();
    }
    constexpr auto kMost = static_cast<std::size_t>(std::numeric_limits<std::int64_t>::max() / 2);
    if (bytes > kMost) throw std::bad_alloc();
    const auto more = static_cast<std::int64_t>(bytes);
    const std::int64_t held = held_.fetch_add(more, std::memory_order_relaxed) + more;
    const auto now = static_cast<std::uint64_t>(std::max<std::int64_t>(held, 0));
    if (settings_.memory_limit != 0 && now > settings_.memory_limit) {
        held_.fetch_sub(more, std::memory_order_relaxed);
        has_met_limit_.store(true, std::memory_order_relaxed);
        throw std::bad_alloc();
    }
    std::uint64_t peak = peak_.load(std::memory_order_relaxed);
    while (now > peak && !peak_.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
    }
}

void JobState::tell() {
    if (is_telling_ || settings_.report == nullptr) return;
    told_ = std::chrono::steady_clock::now();
    is_telling_ = true;
    bool is_to_end = false;
    {
        const JobScope none(nullptr);  // what the host does in its function is not the call's
        is_to_end = settings_.report(settings_.report_user, percent_, phase_);
    }
    is_telling_ = false;
    if (is_to_end && settings_.wish != nullptr) {
        settings_.wish->fetch_or(CancelledByReport, std::memory_order_relaxed);
    }
}

void JobState::set_progress(double percent, const char* phase) {
    const double risen = std::max(percent_, std::min(percent, 100.0));
    const bool is_new = risen > percent_ || phase != phase_;
    percent_ = risen;
    phase_ = phase;
    if (is_new) tell();
    poll();
}

Workers* JobState::workers() {
    if (!workers_ && settings_.has_own_workers && settings_.threads > 1) {
        workers_ = std::make_unique<Workers>(*this);
    }
    return workers_.get();
}

}  // namespace povmesh
