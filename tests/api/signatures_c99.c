#include "signatures.h"

int count_exports_in_c(void);
int count_exports_in_c(void) {
    return count_exports();
}
