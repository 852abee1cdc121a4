// The surface around a set of nodes: closed, a manifold, its outside out, and free of crossings.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "field/distance_field.h"
#include "field/distances.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

struct ContourReport {
    std::size_t suspects = 0;  // quads that had to be tested for crossings
    std::size_t moved = 0;     // vertices that were moved back because of them
    std::size_t rounds = 0;
};

/// How far a vertex is from the faces at least, and one of the faces that is hardly farther.
struct VertexDistance {
    float at_least = 0;                          // model units
    std::uint32_t face = NearestPoint::kNoFace;  // where something is known
};

/// Makes the surface between the nodes of a well-composed set and the others (see
/// make_well_composed), with a vertex in each cell that it passes and two triangles for each edge
/// between nodes.
///
/// @param nodes  the set, and the distances known of its nodes; none may lie at the grid's border
/// @param level  the signed distance of the surface: 0 where the faces of the field cross the grid,
///               else where the distance to them is |level|
/// @param surface  replaced
/// @param sharp  null, or the distance that the level is one of
/// @param distances  null, or replaced by what is known of the vertices
///
/// Vertices stand where the planes of the faces meet, or of the level, so that edges and corners
/// stay sharp (T. Ju, F. Losasso, S. Schaefer, J. Warren, Dual contouring of hermite data, ACM
/// Transactions on Graphics 21(3), 2002), within their cells. An edge that nothing crosses counts
/// in its middle.
///
/// Two quads can only cross when they share a vertex, and not while each lies between the ends of
/// its edge and the corners of its cells (T. Ju, T. Udeshi, Intersection-free contouring on an
/// octree grid, Pacific Graphics 2006). Others are tested exactly; the vertices of those that
/// cross move back by steps to the centres of their cells, until none do. With all at the centres
/// the quads are faces of cubes, so it ends.
///
/// The same bits for any number of threads. Time: linear in the cells of the surface.
ContourReport contour(const DistanceField& field, const LevelNodes& nodes, double level,
                      TriMesh& surface, const SharpDistance* sharp = nullptr,
                      Array<VertexDistance>* distances = nullptr);

}  // namespace povmesh
