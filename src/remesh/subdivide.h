// Refines a mesh by a level of Loop subdivision.
#pragma once

#include <cstdint>

#include "mesh/tri_mesh.h"

namespace povmesh {

enum class SubdivideMode : std::uint32_t {
    Uniform = 0,   // splits every edge
    Adaptive = 1,  // splits edges longer than a threshold from the statistics of all edge lengths
    Smooth = 2,    // splits none, moves the vertices only
};

/// Refines the live faces by one level: vertices move by Loop's vertex rule, split edges get a
/// vertex by his edge rule, and a face with split edges is replaced by two to four new ones behind
/// the others. The mesh is compact afterwards. What was closed and manifold stays so, unless two
/// faces had the same three vertices. Uniform subdivision makes four faces of each.
///
/// A vertex stays where an odd number of faces holds one of its edges, so open borders keep their
/// vertices; an open edge is split at its middle. Where more than two faces hold an edge, its new
/// vertex follows from the first two. The threshold of the adaptive mode is the mean length of the
/// edges of all face records, those inside counted twice, times 0.8 where lengths vary by more than
/// 35 % of the mean.
///
/// New corners get the mean colour of their edge's ends, truncated, and in labelled faces the mean
/// texture coordinates, in a record of the face's own. New vertices and records are numbered as
/// their edges come up in face order; new faces follow face order, within a face those at its
/// corners first, and a quadrilateral that remains is cut along its shorter diagonal.
///
/// A face that names a vertex twice, or one that is not there, is left out. Throws
/// std::length_error, the mesh unchanged, when the face array would have more than kMaxFaceCount
/// records.
///
/// The result is the same bits for any number of threads. Time: linear (n log n in the number of
/// faces around one vertex). Memory beside the new mesh: 80 bytes a face.
///
/// Source: C. Loop, Smooth subdivision surfaces based on triangles, University of Utah 1987.
void subdivide(TriMesh& mesh, SubdivideMode mode);

}  // namespace povmesh
