#include "base/heap.h"

#include <cstdlib>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace povmesh {

void give_back_freed_memory() noexcept {
#if defined(__GLIBC__)
    (void)malloc_trim(0);
#endif
}

}  // namespace povmesh
