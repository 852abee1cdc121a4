/* A host program: reads an STL file, has it tested for flaws and prints what was found. */
#include <povmesh/povmesh.h>
#include <stdio.h>

int main(int argc, char** argv) {
    float *coordinates = NULL, *colours = NULL, *texture_coordinates = NULL;
    int32_t* labels = NULL;
    uint32_t count = 0;
    uint32_t inverted = 0, open_edges = 0, non_manifold = 0, degenerate = 0;

    if (argc != 2) {
        fprintf(stderr, "usage: host FILE.stl\n");
        return 2;
    }
    importFile(argv[1], &coordinates, &colours, &texture_coordinates, &labels, &count);
    if (count == 0) { /* all that a host is told; the povmesh tool says why */
        fprintf(stderr, "%s: no triangles\n", argv[1]);
        freeAllArray();
        return 3;
    }
    const uint64_t flawed =
        errorDetectFromData(coordinates, colours, texture_coordinates, labels, count, &inverted,
                            &open_edges, &non_manifold, &degenerate);
    printf("%u triangles, %u inverted, %u open edges, %u non-manifold, %u degenerate\n", count,
           inverted, open_edges, non_manifold, degenerate);
    freeAllArray(); /* frees the arrays of importFile */
    return flawed ? 1 : 0;
}
