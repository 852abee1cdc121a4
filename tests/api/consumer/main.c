/* A host outside this project: sends one triangle through the library. */
#include <povmesh/povmesh.h>
#include <stdio.h>

int main(void) {
    float triangle[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    float* in = triangle;
    float* out = 0;
    uint32_t count = 1, out_count = 0, progress = 0;
    const uint64_t flawed = meshPreprocessorFromData(&in, &count, &out, &out_count, &progress);
    printf("%u triangle, flawed %u, progress %u\n", (unsigned)out_count, (unsigned)flawed,
           (unsigned)progress);
    freeVertexArray();
    return out_count == 1 && flawed == 1 && progress == 100 ? 0 : 1;
}
