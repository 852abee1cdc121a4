// The header in C++98.
#include "povmesh/context.h"

extern "C" double keep_in_cpp98(void) {
    const povmesh_reduce_options options = povmesh_reduce_defaults();
    return options.keep;
}

#if __cplusplus > 199711L
#error "compiled as something newer"
#endif
