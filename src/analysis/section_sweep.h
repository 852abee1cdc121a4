// All cross-sections of a model across one axis, and the pieces between them.
#pragma once

#include <cstdint>
#include <vector>

#include "analysis/section_graph.h"
#include "analysis/section_shape.h"
#include "mesh/tri_mesh.h"
#include "slice/slices.h"

namespace povmesh {

/// One part of one slice.
struct SectionPart {
    std::uint32_t layer;
    std::uint32_t number;  // among the parts of its slice
    SectionShape shape;
};

struct SectionSweep {
    std::vector<SectionPart> parts;
    SectionGraph graph;  // joint i is part i
};

/// Slices a closed mesh that is wound outward at every height of the slicer and integrates the
/// pieces in between: each face adds to the piece that it bounds, in one pass. Coordinates of
/// moments and centres are those of the model.
///
/// Linear in faces and points of the slices, but for n log n within a slice; 80 bytes a vertex and
/// 8 a face.
SectionSweep sweep_sections(const TriMesh& mesh, std::size_t axis, const Slicer& slicer);

}  // namespace povmesh
