/* Prints the size and the offsets of every struct, and every enumerator, as the compiler has them. */
#include <stdio.h>
#include "povmesh/context.h"
#define STRUCT(name) printf("%s %zu\n", #name, sizeof(name));
#define FIELD(name, field) printf("%s.%s %zu\n", #name, #field, offsetof(name, field));
#define NUMBER(name) printf("%s %d\n", #name, (int)(name));
int main(void) {
#include "layout_list.h"
    return 0;
}
