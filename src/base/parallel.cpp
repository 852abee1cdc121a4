#include "base/parallel.h"

#include <omp.h>

#include <atomic>
#include <exception>

#if defined(__linux__)
#include <dlfcn.h>
#endif

namespace povmesh {

OneThread::OneThread() : before_(omp_get_max_threads()) {
    omp_set_num_threads(1);
}

OneThread::~OneThread() {
    omp_set_num_threads(before_);
}

}  // namespace povmesh

namespace povmesh::detail {
namespace {

// The threads of the OpenMP runtime outlive the loop that starts them. A host that unloads our
// library would unload the runtime with it, and its threads would go on in memory that is gone: so
// the runtime is kept from the first parallel loop on.
void keep_runtime_loaded() {
#if defined(__linux__)
    static const bool is_kept = [] {
        Dl_info runtime{};
        if (dladdr(reinterpret_cast<const void*>(&omp_get_max_threads), &runtime) == 0)
            return false;
        return dlopen(runtime.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE) != nullptr;
    }();
    (void)is_kept;
#endif
}

}  // namespace

void run_blocks(std::size_t count, BlockFunction function, void* context) {
    if (count < 2) {
        if (count == 1) function(context, 0);
        return;
    }
    keep_runtime_loaded();
    // An exception that left a thread of the runtime would end the host's process. The first one is
    // carried out of the loop instead; blocks that have not begun by then are left out.
    std::exception_ptr first;
    std::atomic<bool> has_failed = false;
#pragma omp parallel for schedule(dynamic, 1)
    for (std::size_t block = 0; block < count; ++block) {
        if (has_failed.load(std::memory_order_relaxed)) continue;
        try {
            function(context, block);
        } catch (...) {
            if (!has_failed.exchange(true)) first = std::current_exception();
        }
    }
    if (first) std::rethrow_exception(first);
}

}  // namespace povmesh::detail
