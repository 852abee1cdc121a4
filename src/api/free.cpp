// Exported functions that free result arrays.
#include <array>

#include "api/job.h"
#include "api/slots.h"
#include "povmesh/povmesh.h"

using namespace povmesh::api;

void freeVertexArray() {
    free_slots(std::array{Slot::Coordinates});
}

void freeAllArray() {
    freeVertexArray();
    free_slots(std::array{Slot::Colours, Slot::TextureCoordinates, Slot::Labels});
    free_slots(std::array{Slot::PartTriangles, Slot::WeaknessCentres, Slot::WeaknessNormals,
                          Slot::WeaknessScores, Slot::LampshadeContourSizes,
                          Slot::LampshadeLevels});
    freeDecompositionPreviewArray();
    freeColumnSupportPreviewArray();
    freeColumnSupportExPolygons();
    freeBalancingPreviewArray();
    free_slots(std::array{Slot::LampshadePoints});
}

void freeDecompositionPreviewArray() {
    run_log().append("|> TestDll : Start free poly arrays");
    free_slots(std::array{Slot::DecompositionPlanes, Slot::DecompositionBoxes,
                          Slot::DecompositionVolumes});
    run_log().append("|> TestDll : End free poly arrays");
}

void freeBalancingPreviewArray() {
    free_slots(std::array{Slot::BalancingPreview});
}

void freeColumnSupportPreviewArray() {
    free_slots(std::array{Slot::SupportColumns});
}

void freeColumnSupportExPolygons() {
    free_slots(std::array{Slot::SlicerPoints, Slot::SlicerPolygonSizes});
}
