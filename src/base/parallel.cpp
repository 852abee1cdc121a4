#include "base/parallel.h"

#include <omp.h>

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
#pragma omp parallel for schedule(dynamic, 1)
    for (std::size_t block = 0; block < count; ++block) function(context, block);
}

}  // namespace povmesh::detail
