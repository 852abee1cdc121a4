#include "base/workers.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <new>
#include <system_error>

#if !defined(_WIN32)
#include <csignal>
#endif

namespace povmesh {
namespace {

// Loops of fewer blocks take less time than starting threads does.
constexpr std::size_t kBlocksToStart = 8;

// How often a thread that waits for others looks whether the call is to end.
constexpr std::chrono::milliseconds kLookEvery{20};

#if !defined(_WIN32)
// A host's signals belong to its own threads; only what a thread does wrong itself reaches it.
class SignalsOfOthers {
public:
    SignalsOfOthers() {
        sigset_t all;
        sigfillset(&all);
        for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
            sigdelset(&all, own);
        }
        is_set_ = pthread_sigmask(SIG_SETMASK, &all, &before_) == 0;
    }
    ~SignalsOfOthers() {
        if (is_set_) (void)pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    SignalsOfOthers(const SignalsOfOthers&) = delete;
    SignalsOfOthers& operator=(const SignalsOfOthers&) = delete;

private:
    sigset_t before_{};
    bool is_set_ = false;
};
#else
struct SignalsOfOthers {};
#endif

}  // namespace

Workers::~Workers() {
    {
        const std::lock_guard lock(mutex_);
        is_over_ = true;
    }
    begin_.notify_all();
    for (std::thread& thread : threads_) thread.join();
}

void Workers::start(std::size_t wanted) {
    if (threads_.size() >= wanted || has_failed_to_start_) return;
    [[maybe_unused]] const SignalsOfOthers mask;
    try {
        threads_.reserve(wanted);
        while (threads_.size() < wanted) threads_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
        has_failed_to_start_ = true;  // those that there are will do
    } catch (const std::bad_alloc&) {
        has_failed_to_start_ = true;
    }
}

void Workers::run(detail::BlockLoop& loop) {
    const std::size_t others = std::min<std::size_t>(job_.settings().threads, loop.count()) - 1;
    if (loop.count() >= kBlocksToStart) start(others);
    if (!threads_.empty()) {
        {
            const std::lock_guard lock(mutex_);
            loop_ = &loop;
            ++round_;
        }
        begin_.notify_all();
    }
    loop.take_blocks(&job_);
    if (!threads_.empty()) finish();
    loop.rethrow();
}

// Waits for the blocks that others are at. A host hears of the call meanwhile; what it says counts
// from the next poll on, of whoever that is.
void Workers::finish() {
    std::unique_lock lock(mutex_);
    loop_ = nullptr;
    while (!end_.wait_for(lock, kLookEvery, [this] { return busy_ == 0; })) {
        lock.unlock();
        (void)job_.is_cancelled();
        lock.lock();
    }
}

void Workers::work() {
    const JobScope scope(&job_);
    // A throw needs data of its thread, which the runtime makes at the first look: now, while there
    // is memory.
    (void)std::uncaught_exceptions();
    const detail::SerialScope alone;
    std::uint64_t done = 0;
    std::unique_lock lock(mutex_);
    while (true) {
        begin_.wait(lock, [&] { return is_over_ || (loop_ != nullptr && round_ != done); });
        if (is_over_) return;
        detail::BlockLoop& loop = *loop_;
        done = round_;
        ++busy_;
        lock.unlock();
        loop.take_blocks(&job_);
        lock.lock();
        if (--busy_ == 0) end_.notify_one();
    }
}

}  // namespace povmesh
