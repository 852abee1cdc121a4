// Puts faces of the original in place of those that were made of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "base/array.h"
#include "mesh/tri_mesh.h"
#include "remesh/half_edge_mesh.h"
#include "spatial/nearest_face.h"

namespace povmesh {

struct Transplant {
    TriMesh mesh;                    // white and without labels, as plain_mesh() has it
    Array<std::uint8_t> is_changed;  // by face: not 0 where it is of the original, or in the seam
    Array<std::uint8_t> is_removed;  // by triangle of the made surface
    Array<std::uint32_t> kept;       // triangles of the original that are in it
};

/// Cuts a made surface open around some faces of the original, and joins these to it by a strip of
/// triangles around each of their borders. Feature lines that cross a strip are led through it.
///
/// @param tree    over the triangles of the original
/// @param takes   by triangle of the original: not 0 for those that are wanted
/// @param margin  the made surface is cut so far from them
/// @return  nothing where they reach an open border or an edge of more than two triangles, where
///          the borders on both sides do not match one to one, or the strip would turn its back on
///          the original. Whether anything crosses is for the caller to see.
///
/// Source of the strips: H. Fuchs, Z. Kedem and S. Uselton, Optimal surface reconstruction from
/// planar contours, CACM 1977.
std::optional<Transplant> transplant(const HalfEdgeMesh& original, const NearestFace& tree,
                                     const HalfEdgeMesh& made, Array<std::uint8_t> takes,
                                     double margin);

}  // namespace povmesh
