#include "cli/interrupt.h"

#include <csignal>

#include "base/job_state.h"

namespace povmesh::cli {
namespace {

constexpr int kSignalStatus = 128;

std::atomic<std::uint32_t> wish = 0;
std::atomic<int> last_signal = 0;
static_assert(std::atomic<std::uint32_t>::is_always_lock_free, "a signal handler stores it");

extern "C" void on_signal(int signal) {
    last_signal.store(signal);
    wish.store(CancelledFromOutside);
    std::signal(signal, SIG_DFL);
}

void watch_for(int signal) {
#if defined(_WIN32)
    if (std::signal(signal, on_signal) == SIG_IGN) std::signal(signal, SIG_IGN);
#else
    struct sigaction action {};
    if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) return;
    action.sa_handler = on_signal;
    action.sa_flags = 0;  // a read that waits for a pipe ends, too
    sigemptyset(&action.sa_mask);
    (void)sigaction(signal, &action, nullptr);
#endif
}

}  // namespace

void watch_for_interrupts() {
    for (const int signal : {SIGINT, SIGTERM}) watch_for(signal);
}

std::atomic<std::uint32_t>& interrupt_wish() {
    return wish;
}

int interrupt_status() {
    return wish.load() != 0 ? kSignalStatus + last_signal.load() : 0;
}

}  // namespace povmesh::cli
