// Everything that `check` tells about a mesh.
#pragma once

#include <cstddef>

#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "repair/detect.h"
#include "run/progress.h"

namespace povmesh::cli {

struct Findings {
    std::size_t vertices = 0;
    std::size_t shells = 0;
    Box3f box;               // around the vertices whose coordinates are finite
    double volume = 0;       // signed: negative when the model is wound inward; may be no number
    bool is_closed = false;  // no open edge

    FlawCounts flaws;            // as `detect` counts, but the faces of cavities are not inverted
    std::size_t open_edges = 0;  // edges of one face
    std::size_t non_manifold_edges = 0;  // edges of three and more
    std::size_t turned_edges = 0;        // edges of two faces that are wound against each other
    std::size_t inside_out_shells = 0;   // closed shells wound inward, but for cavities
    std::size_t cavities = 0;            // closed shells wound inward inside others; no flaw
    std::size_t misplaced_vertices = 0;  // with a coordinate that is infinite or no number

    bool has_flaws() const {
        return flaws.any() || open_edges != 0 || non_manifold_edges != 0 || turned_edges != 0 ||
               inside_out_shells != 0 || misplaced_vertices != 0;
    }
};

/// Examines a mesh. Faces and vertices are not changed; the shells are labelled.
///
/// @param flaw_faces  when given, receives the faces to show: inverted as `detect` gives them, without
///                    those of cavities, with all of shells that are inside out; every face with an
///                    open or a non-manifold edge; degenerate as `detect` gives them
/// Progress goes from 48 to 100.
Findings examine(TriMesh& mesh, Progress progress, FlawFaces* flaw_faces = nullptr);

}  // namespace povmesh::cli
