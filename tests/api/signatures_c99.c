/* The header is C99, and its functions have the promised types there too. */
#include "exports.h"

int count_exports_in_c(void);
int count_exports_in_c(void) {
    int count = 0;
/* NOLINTBEGIN(bugprone-macro-parentheses): a declaration */
#define CHECK(result, name, parameters)       \
    {                                         \
        result(*function) parameters = &name; \
        if (function) ++count;                \
    }
    /* NOLINTEND(bugprone-macro-parentheses) */
    POVMESH_FOR_EACH_EXPORT(CHECK)
#undef CHECK
    return count;
}
