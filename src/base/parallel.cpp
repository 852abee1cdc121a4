#include "base/parallel.h"

#include <omp.h>

namespace povmesh {

OneThread::OneThread() : before_(omp_get_max_threads()) {
    omp_set_num_threads(1);
}

OneThread::~OneThread() {
    omp_set_num_threads(before_);
}

}  // namespace povmesh

namespace povmesh::detail {

void run_blocks(std::size_t count, BlockFunction function, void* context) {
    if (count < 2) {
        if (count == 1) function(context, 0);
        return;
    }
#pragma omp parallel for schedule(dynamic, 1)
    for (std::size_t block = 0; block < count; ++block) function(context, block);
}

}  // namespace povmesh::detail
