// Makes the triangles of a surface even, to a given edge length.
#pragma once

#include <cstddef>
#include <span>

#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

struct RemeshOptions {
    /// Edge length in model units. One that is not above 0 changes nothing.
    double edge_length = 0;

    /// Instead of it, an edge length for each face of the mesh; empty: none. Values that are not
    /// above 0 stand for the mean edge of their face.
    std::span<const float> face_lengths = {};

    int rounds = 5;             // of splitting, collapsing, flipping and relaxing
    double feature_angle = 40;  // degrees; sharper edges are kept
};

struct RemeshReport {
    bool is_done =
        false;  // false: the mesh is as it was, for want of a length, faces or finite vertices
    double raised = 1;  // by this factor, all lengths
};

/// Edges longer than 4/3 of the length are split, those shorter than 4/5 collapsed, and others
/// flipped so that six meet at each vertex; vertices are drawn to the middle of their neighbours
/// and back onto the original surface.
///
/// Sharp edges, borders of labels and texture maps, and open edges stay as lines: their vertices
/// move along them only, and the corners between them stay. Edges of more than two faces stay as
/// they are. What was closed and manifold stays so, and no face is turned over. Colours, labels and
/// texture coordinates are those of the nearest point of the original.
///
/// A length that would make more than 10 million triangles is raised until it does not, with a
/// caution in the log. The result is compact, and the same bits for any number of threads.
///
/// Source: M. Botsch and L. Kobbelt, A remeshing approach to multiresolution modeling, SGP 2004.
RemeshReport remesh(TriMesh& mesh, const RemeshOptions& options, RunContext& run);

/// The factor, 1 or more, by which the lengths must be raised so that there will be no more than
/// `most` triangles, as far as areas and edges tell. Lengths for each face go before the one for
/// all.
double raising_factor(const TriMesh& mesh, std::span<const float> face_lengths, double edge_length,
                      double most);

}  // namespace povmesh
