/* The exported functions with the types that hosts were promised: the one list of the tests. With a
 * header that no longer fits it does not compile. C as well as C++. */
#ifndef POVMESH_TESTS_EXPORTS_H
#define POVMESH_TESTS_EXPORTS_H

#include "povmesh/povmesh.h"

/* A table of calls without semicolons looks like an expression to the formatter. */
/* clang-format off */
#define REF_IN_T float**, uint32_t*
#define PLAIN_IN_T const float*, uint32_t
#define COLOUR_IN_T const float*, const float*, const float*, const int32_t*, uint32_t
#define OUT_T float**, uint32_t*
#define FOUR_OUT_T float**, float**, float**, int32_t**
#define COLOUR_OUT_T FOUR_OUT_T, uint32_t*
#define MULTI_OUT_T FOUR_OUT_T, uint32_t**, uint32_t*
#define COUNTERS_T uint32_t*, uint32_t*, uint32_t*, uint32_t*
#define PROGRESS_T uint32_t*
#define CUT_T                                                                                      \
    const float*, const float*, const float*, float, uint32_t, uint32_t, uint64_t, uint32_t,       \
    uint32_t, COLOUR_IN_T, MULTI_OUT_T
#define PREVIEW_T                                                                                  \
    float, float, float, PLAIN_IN_T, float**, uint32_t*, float**, float**, uint32_t*, PROGRESS_T
#define DECOMPOSITION_T float, float, float, COLOUR_IN_T, MULTI_OUT_T, PROGRESS_T

/* X(result, name, (parameters)) */
#define POVMESH_FOR_EACH_EXPORT(X)                                                                 \
    X(void, modelRepair64, (const char*))                                                          \
    X(void, modelRepair, (const char*))                                                            \
    X(uint64_t, flawsDetect64, (const char*))                                                      \
    X(uint64_t, flawsDetect, (const char*))                                                        \
    X(void, meshReduceFromFile64, (const char*, OUT_T, PROGRESS_T))                                \
    X(void, meshReduceFromFile, (const char*, OUT_T, PROGRESS_T))                                  \
    X(uint64_t, meshPreprocessorFromFile64, (const char*, OUT_T, PROGRESS_T))                      \
    X(uint64_t, meshPreprocessorFromFile, (const char*, OUT_T, PROGRESS_T))                        \
    X(uint64_t, meshPreprocessorFromFileSaveAs64, (const char*, OUT_T, PROGRESS_T, uint32_t))      \
    X(uint64_t, meshPreprocessorCtrlFromFile, (const char*, uint64_t, float, OUT_T, PROGRESS_T))   \
    X(void, importFile, (const char*, COLOUR_OUT_T))                                               \
    X(void, saveasObjFromDataDoublePrecision, (const char*, const double*, const float*,           \
      const double*, const int32_t*, int32_t))                                                     \
    X(void, modelRepairFromData64, (REF_IN_T, OUT_T, PROGRESS_T))                                  \
    X(void, modelRepairFromData, (REF_IN_T, OUT_T, PROGRESS_T))                                    \
    X(uint64_t, meshPreprocessorFromData, (REF_IN_T, OUT_T, PROGRESS_T))                           \
    X(void, meshReduceFromData, (float, REF_IN_T, OUT_T))                                          \
    X(void, subdivisionFromData, (uint32_t, REF_IN_T, OUT_T))                                      \
    X(void, reviseTriangleFromData, (REF_IN_T, OUT_T))                                             \
    X(void, remeshFromData64, (REF_IN_T, OUT_T, float**, uint32_t*))                               \
    X(void, orientationOptimization, (PLAIN_IN_T, float*, int32_t))                                \
    X(void, hollowFromData, (float, PLAIN_IN_T, OUT_T, PROGRESS_T))                                \
    X(void, cellularInfillFromData, (float, float, PLAIN_IN_T, OUT_T, PROGRESS_T))                 \
    X(void, balancingFromData, (float, PLAIN_IN_T, OUT_T, PROGRESS_T))                             \
    X(void, voxelize, (float, const float*, const float*, uint32_t, float**, float**, uint32_t*))  \
    X(void, weaknessDetect, (PLAIN_IN_T, float**, float**, float**, uint32_t*, uint64_t))          \
    X(void, modelRepairFromColorData, (COLOUR_IN_T, COLOUR_OUT_T, PROGRESS_T))                     \
    X(void, modelRepairFromColorDataWithPostDetection, (COLOUR_IN_T, COLOUR_OUT_T, uint8_t,        \
      COUNTERS_T, PROGRESS_T))                                                                     \
    X(void, meshReduceFromColorData, (float, COLOUR_IN_T, COLOUR_OUT_T, PROGRESS_T))               \
    X(void, subdivisionFromColorData, (uint32_t, COLOUR_IN_T, COLOUR_OUT_T))                       \
    X(void, lampshadeFromData, (float, COLOUR_IN_T, COLOUR_OUT_T, PROGRESS_T))                     \
    X(uint64_t, errorDetectAfterMeshReduceFromColorData, (COLOUR_IN_T, COLOUR_OUT_T,               \
      COUNTERS_T, PROGRESS_T))                                                                     \
    X(uint64_t, errorDetectFromData, (COLOUR_IN_T, COUNTERS_T))                                    \
    X(void, uniformRemeshFromColorData, (float, COLOUR_IN_T, COLOUR_OUT_T))                        \
    X(void, separateShellsFromData, (COLOUR_IN_T, MULTI_OUT_T, PROGRESS_T))                        \
    X(void, cutFromData, (CUT_T))                                                                  \
    X(void, planeCutFromData, (CUT_T, PROGRESS_T))                                                 \
    X(void, decompositionUniformPreview, (PREVIEW_T))                                              \
    X(void, decompositionAutoPreview, (PREVIEW_T))                                                 \
    X(void, decompositionUniformFromData, (DECOMPOSITION_T))                                       \
    X(void, decompositionAutoFromData, (DECOMPOSITION_T))                                          \
    X(uint64_t, lampshadePreview, (float, PLAIN_IN_T, float**, uint32_t**, float**, uint32_t*))    \
    X(uint64_t, balancingPreviewFromData, (float, PLAIN_IN_T, float**, uint32_t*))                 \
    X(void, strengthColoringFromData, (uint32_t, uint32_t, COLOUR_IN_T, COLOUR_OUT_T,              \
      PROGRESS_T))                                                                                 \
    X(void, columnSupportAutoGenerate, (PLAIN_IN_T, float, float, float**, int32_t*))              \
    X(void, columnSupportToSlicerExPolygons, (PLAIN_IN_T, const float*, int32_t, float, float,     \
      float**, uint32_t*, uint32_t**, uint32_t*))                                                  \
    X(void, freeVertexArray, (void))                                                               \
    X(void, freeAllArray, (void))                                                                  \
    X(void, freeDecompositionPreviewArray, (void))                                                 \
    X(void, freeBalancingPreviewArray, (void))                                                     \
    X(void, freeColumnSupportPreviewArray, (void))                                                 \
    X(void, freeColumnSupportExPolygons, (void))
/* clang-format on */

#endif
