// Looks for the cuts that divide a model into few parts, on a model of cells.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "decompose/part_size.h"
#include "decompose/solid_cells.h"

namespace povmesh {

/// A piece of the solid model, and how it was divided.
struct PlannedPiece {
    Box3d box;
    bool is_divided = false;
    CutPlace place;                       // when it is
    std::vector<std::uint32_t> children;  // those below the plane, then those above
    std::size_t below = 0;                // how many of them
};

struct DivisionPlan {
    std::vector<PlannedPiece> pieces;
    std::vector<std::uint32_t> roots;
    std::size_t parts = 0;
};

/// Plans the division of a solid model: as few parts as a beam search finds, then the best cuts.
/// Counts bound it, never time. A plan without pieces when the model is too large for a search.
DivisionPlan plan_division(SolidModel solid, const PartSize& size);

}  // namespace povmesh
