// Closes small holes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

enum class HoleFate {
    Closed,
    TooLong,     // more edges than the limit
    PartOfRing,  // this rim and another one bound one missing ring of surface
    Crosses,     // its filling would cut through other faces; for those who check
    NoFilling    // every filling has no area, folds back, or would give an edge a third face
};

struct Hole {
    std::size_t edge_count;
    std::uint32_t first_face;  // a face at its rim
    HoleFate fate;
    std::uint32_t first_added = 0;  // faces of its filling
    std::uint32_t added_count = 0;
};

struct HoleReport {
    std::vector<Hole> holes;              // in the order in which they were traced
    std::size_t unclosed_edge_count = 0;  // open edges that form no closed rim
    std::size_t added_face_count = 0;
};

/// Longest rim that is closed, in edges.
constexpr std::size_t kMaxHoleEdges = 50;

/// Appends faces that close the holes with a rim of 3 to `max_edges` edges (at most kMaxHoleEdges).
///
/// A hole is filled with the triangles between its rim vertices whose largest dihedral angle, then
/// area, is the least (dynamic programming over the rim); among fillings that agree in these, as in
/// a flat hole, short diagonals win. No triangle folds back onto its neighbour to within a degree,
/// and no edge gets a third face, so that the mesh is manifold there. Two rims stay open when one,
/// of five or more edges, lies inside the ellipsoid in the bounding box of another, of four or
/// more: between them a ring of surface is missing.
///
/// New faces agree with the winding of most faces at the rim, have the label -1 and, at each
/// corner, the mean colour of the two faces of the rim there. The use table is cleared when faces
/// are added.
///
/// Time: linear, plus the cube of a rim's length for each hole.
///
/// Source: G. Barequet, M. Sharir, Filling gaps in the boundary of a polyhedron, CAGD 1995; the
/// angle before the area: P. Liepa, Filling holes in meshes, SGP 2003.
HoleReport close_holes(TriMesh& mesh, const EdgeMates& mates,
                       std::size_t max_edges = kMaxHoleEdges);

}  // namespace povmesh
