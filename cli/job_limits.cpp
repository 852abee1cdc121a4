#include "cli/job_limits.h"

#include <chrono>
#include <fstream>
#include <utility>

#if !defined(_WIN32)
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace povmesh::cli {
namespace {

using Clock = std::chrono::steady_clock;

// New pages come at a few GB/s, so that a limit is passed by some 40 MB at most.
constexpr std::chrono::milliseconds kGlance{10};

// Bytes of memory that this process holds; where the system only knows the most it ever held, that.
double held_bytes() {
#if defined(__linux__)
    // What a program held before it became this one counts in its peak, so that is of no use here.
    std::ifstream file("/proc/self/statm");
    double all = 0;
    double resident = 0;
    file >> all >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
#elif !defined(_WIN32)
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss);
#else
    return 0;
#endif
}

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
