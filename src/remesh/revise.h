// Mends the triangles of bad shape and leaves the others alone.
#pragma once

#include <cstddef>

#include "mesh/tri_mesh.h"

namespace povmesh {

struct ReviseOptions {
    /// How far the surface may move, as a share of the diagonal of the bounding box. Not above 0:
    /// not at all, so that only what lies flat is mended.
    double most_movement = 1e-3;
};

struct ShapeCounts {
    std::size_t needles = 0;  // see TriangleShape; a triangle may be all three
    std::size_t caps = 0;
    std::size_t slivers = 0;

    friend bool operator==(const ShapeCounts&, const ShapeCounts&) = default;
};

/// Of the live faces.
ShapeCounts count_shapes(const TriMesh& mesh);

struct ReviseReport {
    std::size_t collapses = 0;  // of edges
    std::size_t flips = 0;
    std::size_t splits = 0;
    double movement = 0;  // no point of the surface was moved farther, model units
};

/// Collapses the short edge of needles; turns or splits the long edge of caps. A step is made only
/// when it leaves fewer slivers than before, or as many slivers and fewer bad triangles; when it
/// turns none of the sound triangles over; and when the surface is within the bound of the original
/// after all steps together: by the sum of what each moves, and for slivers that this leaves by the
/// distance from the original itself. For slivers other edges are tried, too. Triangles that take
/// no part keep their vertices' places and what they carry, bit for bit.
///
/// Where faces come to cross that did not, the steps there are taken back.
///
/// Vertices stay where they are or go: a collapse leaves one of the edge's ends in its place, or
/// else, for a sliver, the middle. A closed surface stays closed, an open one open; what was
/// manifold stays so. Edges of more than two faces stay. Changed triangles get the colours, labels
/// and texture coordinates of the nearest points of the original.
///
/// What was changed is compact; a mesh of which nothing is mended stays as it is. Linear time: a
/// step costs no more around a vertex of high valence, and there are at most a few for each bad
/// triangle; the distances of the slivers left over take half a second at most, and as much for
/// every million triangles.
ReviseReport revise_triangles(TriMesh& mesh, const ReviseOptions& options = {});

}  // namespace povmesh
