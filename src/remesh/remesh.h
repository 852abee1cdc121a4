// Makes the triangles of a surface even, to a given edge length.
#pragma once

#include <cstddef>
#include <span>

#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

struct RemeshOptions {
    /// Edge length in model units. One that is not above 0 changes nothing.
    double edge_length = 0;

    /// Instead of it, an edge length for each face of the mesh; empty: none. Values that are not
    /// above 0 stand for the mean edge of their face.
    std::span<const float> face_lengths = {};

    int rounds = 5;                // of splitting, collapsing, flipping and relaxing
    double feature_angle = 40;     // degrees; sharper edges are kept
    double most_triangles = 10e6;  // lengths that would make more are raised
    Progress progress = {};        // set from 0 to 100; the progress of the run is left alone
};

struct RemeshReport {
    /// False: the mesh is as it was, for want of a length, faces or finite vertices, or because
    /// all that was tried would cross itself; `kept_faces` then counts all.
    bool is_done = false;
    double raised = 1;               // by this factor, all lengths
    std::size_t raised_faces = 0;    // beside that, faces that alone would have been too much
    std::size_t shortened = 0;       // vertices of the original where shorter edges were needed
    std::size_t kept_faces = 0;      // of the original, left as they were: else faces would cross
    Vec3d kept_at;                   // one of them
    std::size_t turned_faces = 0;    // of the original: they were wound against their neighbours
    Vec3d turned_at;                 // one of them
    double even_share = 0;           // of the edges within 0.6 to 1.6 of the length asked for
    double even_share_of_local = 0;  // and of that wanted where they are, after shortening
};

/// Edges longer than 4/3 of the length are split, those shorter than 4/5 collapsed, and others
/// flipped so that six meet at each vertex; vertices are drawn to the middle of their neighbours
/// and back onto the original surface, at last a little out so that the volume stays.
///
/// Sharp edges, borders of labels and texture maps, and open edges stay as lines, within a quarter
/// of the length of where they were: their vertices move along them only, and the corners between
/// them stay. Edges of more than two faces stay as they are. What was closed and manifold stays so,
/// and no face is turned over but those that were wound against their neighbours. Colours, labels
/// and texture coordinates are those of the nearest point of the original.
///
/// The result is checked. Where the surface is off by more than a quarter of the length, or by a
/// good part of the thickness of a wall or a gap, where faces cross or lose their area that did not
/// before, the lengths are lowered and the work is done again; where that does not help the faces
/// of the original stay. So there are no new crossings and no new faces without area.
///
/// Lengths that would make more than `most_triangles` are raised until they do not, with a caution
/// in the log. The result is compact, and the same bits for any number of threads.
///
/// Source: M. Botsch and L. Kobbelt, A remeshing approach to multiresolution modeling, SGP 2004.
RemeshReport remesh(TriMesh& mesh, const RemeshOptions& options, RunContext& run);

}  // namespace povmesh
