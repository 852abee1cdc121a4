/* Takes the address of every exported function with the type that hosts were promised. Included by a C
 * and by a C++ source: a header that no longer fits does not compile in one of them. */
#include "povmesh/povmesh.h"

#define REF_IN float**, uint32_t*
#define PLAIN_IN const float*, uint32_t
#define COLOUR_IN const float*, const float*, const float*, const int32_t*, uint32_t
#define OUT float**, uint32_t*
#define FOUR_OUT float**, float**, float**, int32_t**
#define COLOUR_OUT FOUR_OUT, uint32_t*
#define MULTI_OUT FOUR_OUT, uint32_t**, uint32_t*
#define COUNTERS uint32_t*, uint32_t*, uint32_t*, uint32_t*
#define PROGRESS uint32_t*
#define CUT                                                                                  \
    const float*, const float*, const float*, float, uint32_t, uint32_t, uint64_t, uint32_t, \
        uint32_t, COLOUR_IN, MULTI_OUT
#define PREVIEW \
    float, float, float, PLAIN_IN, float**, uint32_t*, float**, float**, uint32_t*, PROGRESS
#define DECOMPOSITION float, float, float, COLOUR_IN, MULTI_OUT, PROGRESS

#define CHECK(result, name, ...)                \
    do {                                        \
        result (*function)(__VA_ARGS__) = name; \
        if (function) ++count;                  \
    } while (0)

/* Number of functions. */
static int count_exports(void) {
    int count = 0;
    CHECK(void, modelRepair64, const char*);
    CHECK(void, modelRepair, const char*);
    CHECK(uint64_t, flawsDetect64, const char*);
    CHECK(uint64_t, flawsDetect, const char*);
    CHECK(void, meshReduceFromFile64, const char*, OUT, PROGRESS);
    CHECK(void, meshReduceFromFile, const char*, OUT, PROGRESS);
    CHECK(uint64_t, meshPreprocessorFromFile64, const char*, OUT, PROGRESS);
    CHECK(uint64_t, meshPreprocessorFromFile, const char*, OUT, PROGRESS);
    CHECK(uint64_t, meshPreprocessorFromFileSaveAs64, const char*, OUT, PROGRESS, uint32_t);
    CHECK(uint64_t, meshPreprocessorCtrlFromFile, const char*, uint64_t, float, OUT, PROGRESS);
    CHECK(void, importFile, const char*, COLOUR_OUT);
    CHECK(void, saveasObjFromDataDoublePrecision, const char*, const double*, const float*,
          const double*, const int32_t*, int32_t);
    CHECK(void, modelRepairFromData64, REF_IN, OUT, PROGRESS);
    CHECK(void, modelRepairFromData, REF_IN, OUT, PROGRESS);
    CHECK(uint64_t, meshPreprocessorFromData, REF_IN, OUT, PROGRESS);
    CHECK(void, meshReduceFromData, float, REF_IN, OUT);
    CHECK(void, subdivisionFromData, uint32_t, REF_IN, OUT);
    CHECK(void, reviseTriangleFromData, REF_IN, OUT);
    CHECK(void, remeshFromData64, REF_IN, OUT, float**, uint32_t*);
    CHECK(void, orientationOptimization, PLAIN_IN, float*, int32_t);
    CHECK(void, hollowFromData, float, PLAIN_IN, OUT, PROGRESS);
    CHECK(void, cellularInfillFromData, float, float, PLAIN_IN, OUT, PROGRESS);
    CHECK(void, balancingFromData, float, PLAIN_IN, OUT, PROGRESS);
    CHECK(void, voxelize, float, const float*, const float*, uint32_t, float**, float**, uint32_t*);
    CHECK(void, weaknessDetect, PLAIN_IN, float**, float**, float**, uint32_t*, uint64_t);
    CHECK(void, modelRepairFromColorData, COLOUR_IN, COLOUR_OUT, PROGRESS);
    CHECK(void, modelRepairFromColorDataWithPostDetection, COLOUR_IN, COLOUR_OUT, uint8_t, COUNTERS,
          PROGRESS);
    CHECK(void, meshReduceFromColorData, float, COLOUR_IN, COLOUR_OUT, PROGRESS);
    CHECK(void, subdivisionFromColorData, uint32_t, COLOUR_IN, COLOUR_OUT);
    CHECK(void, lampshadeFromData, float, COLOUR_IN, COLOUR_OUT, PROGRESS);
    CHECK(uint64_t, errorDetectAfterMeshReduceFromColorData, COLOUR_IN, COLOUR_OUT, COUNTERS,
          PROGRESS);
    CHECK(uint64_t, errorDetectFromData, COLOUR_IN, COUNTERS);
    CHECK(void, uniformRemeshFromColorData, float, COLOUR_IN, COLOUR_OUT);
    CHECK(void, separateShellsFromData, COLOUR_IN, MULTI_OUT, PROGRESS);
    CHECK(void, cutFromData, CUT);
    CHECK(void, planeCutFromData, CUT, PROGRESS);
    CHECK(void, decompositionUniformPreview, PREVIEW);
    CHECK(void, decompositionAutoPreview, PREVIEW);
    CHECK(void, decompositionUniformFromData, DECOMPOSITION);
    CHECK(void, decompositionAutoFromData, DECOMPOSITION);
    CHECK(uint64_t, lampshadePreview, float, PLAIN_IN, float**, uint32_t**, float**, uint32_t*);
    CHECK(uint64_t, balancingPreviewFromData, float, PLAIN_IN, float**, uint32_t*);
    CHECK(void, strengthColoringFromData, uint32_t, uint32_t, COLOUR_IN, COLOUR_OUT, PROGRESS);
    CHECK(void, columnSupportAutoGenerate, PLAIN_IN, float, float, float**, int32_t*);
    CHECK(void, columnSupportToSlicerExPolygons, PLAIN_IN, const float*, int32_t, float, float,
          float**, uint32_t*, uint32_t**, uint32_t*);
    CHECK(void, freeVertexArray, void);
    CHECK(void, freeAllArray, void);
    CHECK(void, freeDecompositionPreviewArray, void);
    CHECK(void, freeBalancingPreviewArray, void);
    CHECK(void, freeColumnSupportPreviewArray, void);
    CHECK(void, freeColumnSupportExPolygons, void);
    return count;
}
