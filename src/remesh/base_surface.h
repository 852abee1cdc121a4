// The surface that a remeshing starts from, and that its lengths and distances are measured on.
#pragma once

#include <cstdint>
#include <span>

#include "base/array.h"
#include "mesh/tri_mesh.h"
#include "remesh/half_edge_mesh.h"

namespace povmesh {

struct BaseSurface {
    HalfEdgeMesh surface;         // with its features marked; no triangle is gone
    Array<std::uint32_t> owners;  // by triangle: a face of the mesh that lies there
    Array<std::uint32_t> turned;  // faces of the mesh that were turned over
};

/// The live faces of a mesh, those with edges much longer than the lengths wanted divided, so that
/// lengths and distances are known all over them. In planes the long edges are turned beforehand
/// where that makes the angles better: slender faces would be divided into very many. The surface
/// moves by at most a thousandth of a length. What lies near by in space does so in memory.
///
/// Faces of the mesh wound against their neighbours are turned over first. Edges between them would
/// have to stay as they are, and where there are many little else could be done.
///
/// @param feature_angle  degrees, see mark_features
/// @param face_lengths  positive and finite, one per face
///
/// Uses of the mesh are built.
BaseSurface make_base_surface(TriMesh& mesh, double feature_angle,
                              std::span<const float> face_lengths);

}  // namespace povmesh
