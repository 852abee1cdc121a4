// The exported functions as a host has them: found by name, or linked.
#pragma once

#include "povmesh/povmesh.h"

// A list of calls without semicolons looks like an expression to the formatter.
// clang-format off
#define POVMESH_FOR_EACH_EXPORT(X)                                                               \
    X(modelRepair64) X(modelRepair) X(flawsDetect64) X(flawsDetect) X(meshReduceFromFile64)      \
    X(meshReduceFromFile) X(meshPreprocessorFromFile64) X(meshPreprocessorFromFile)              \
    X(meshPreprocessorFromFileSaveAs64) X(meshPreprocessorCtrlFromFile) X(importFile)            \
    X(saveasObjFromDataDoublePrecision) X(modelRepairFromData64) X(modelRepairFromData)          \
    X(meshPreprocessorFromData) X(meshReduceFromData) X(subdivisionFromData)                     \
    X(reviseTriangleFromData) X(remeshFromData64) X(orientationOptimization) X(hollowFromData)   \
    X(cellularInfillFromData) X(balancingFromData) X(voxelize) X(weaknessDetect)                 \
    X(modelRepairFromColorData) X(modelRepairFromColorDataWithPostDetection)                     \
    X(meshReduceFromColorData) X(subdivisionFromColorData) X(lampshadeFromData)                  \
    X(errorDetectAfterMeshReduceFromColorData) X(errorDetectFromData)                            \
    X(uniformRemeshFromColorData) X(separateShellsFromData) X(cutFromData) X(planeCutFromData)   \
    X(decompositionUniformPreview) X(decompositionAutoPreview) X(decompositionUniformFromData)   \
    X(decompositionAutoFromData) X(lampshadePreview) X(balancingPreviewFromData)                 \
    X(strengthColoringFromData) X(columnSupportAutoGenerate) X(columnSupportToSlicerExPolygons)  \
    X(freeVertexArray) X(freeAllArray) X(freeDecompositionPreviewArray)                          \
    X(freeBalancingPreviewArray) X(freeColumnSupportPreviewArray) X(freeColumnSupportExPolygons)
// clang-format on

namespace povmesh {

/// One pointer per exported function, of its declared type.
struct Exports {
// NOLINTNEXTLINE(bugprone-macro-parentheses): the name of a member
#define POVMESH_MEMBER(name) decltype(&::name) name = nullptr;
    POVMESH_FOR_EACH_EXPORT(POVMESH_MEMBER)
#undef POVMESH_MEMBER
};

}  // namespace povmesh
