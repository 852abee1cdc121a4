#include "cli/job_limits.h"

#include <chrono>
#include <utility>

#include "cli/platform.h"

namespace povmesh::cli {
namespace {

using Clock = std::chrono::steady_clock;

// New pages come at a few GB/s, so that a limit is passed by some 40 MB at most.
constexpr std::chrono::milliseconds kGlance{10};

}  // namespace

Limits::Limits(LimitValues values, std::function<void(Limit)> reached)
    : values_(values), reached_(std::move(reached)) {
    if (values_.seconds > 0 || values_.bytes > 0) watcher_ = std::thread([this] { watch(); });
}

Limits::~Limits() {
    lift();
}

void Limits::lift() {
    if (!watcher_.joinable()) return;
    {
        const std::lock_guard lock(mutex_);
        is_lifted_ = true;
    }
    lifted_.notify_one();
    watcher_.join();
}

void Limits::watch() {
    const Clock::time_point begin = Clock::now();
    std::unique_lock lock(mutex_);
    while (!lifted_.wait_for(lock, kGlance, [this] { return is_lifted_; })) {
        const std::chrono::duration<double> taken = Clock::now() - begin;
        if (values_.seconds > 0 && taken.count() > values_.seconds) return reached_(Limit::Time);
        if (values_.bytes > 0 && held_bytes() > values_.bytes) return reached_(Limit::Memory);
    }
}

}  // namespace povmesh::cli
