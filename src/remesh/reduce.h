// Lowers the number of faces by collapsing edges, the cheapest by quadric error first.
#pragma once

#include <cstddef>

#include "mesh/tri_mesh.h"
#include "run/progress.h"

namespace povmesh {

/// How far a reduction goes. The values that operations share stand below, once.
struct ReduceOptions {
    /// Share of each shell's faces to keep; 0.999 or more, or not a number, keeps all; below -0.5 a
    /// shell of up to 100,000 faces is kept, and a larger one keeps 100,000 and 30 % of the rest.
    double keep = 1.0;
    /// Least share kept where `keep` is explicit.
    double least_keep = 0.05;
    /// Least cosine between the normals of a surrounding face before and after a collapse; -1
    /// allows every turn.
    double least_cosine = -1;
};

/// What hosts get who preprocess a model, and `povmesh reduce --auto`: scans become manageable, and
/// no face turns by more than 9.9 degrees in a collapse.
inline constexpr ReduceOptions kReduceScans{.keep = -1, .least_keep = 0.05, .least_cosine = 0.985};

/// What goes before a strength analysis of a model of very many faces.
inline constexpr ReduceOptions kReduceToATenth{
    .keep = 0.1, .least_keep = 0.05, .least_cosine = 0.985};

/// What a reduction did, and what ended it.
struct ReduceReport {
    std::size_t faces_before = 0;  // live faces
    std::size_t faces_aimed = 0;   // what the target asked for, over all shells
    std::size_t faces_after = 0;   // before the mesh is compacted

    // How often an edge was turned down, by the first rule that it broke. An edge that came up
    // again after a change beside it counts again.
    std::size_t too_few_faces = 0;  // an end with fewer than 3 faces; by the queue only
    std::size_t boundary = 0;       // an end on an open or irregular rim; by the queue only
    std::size_t link = 0;           // the collapse would pinch the surface
    std::size_t valence = 0;        // too many faces would meet at one vertex; by the queue only
    std::size_t normal_limit = 0;   // a face would turn too far

    // Of the reduction in rounds only.
    std::size_t rounds = 0;
    std::size_t slivers = 0;     // a face would become a sliver
    std::size_t movement = 0;    // the surface would be too far from where it was
    std::size_t held_edges = 0;  // left in shells that missed their target, an end held at a rim
    std::size_t seam_edges = 0;  // left there, between two seams or borders

    /// True when the faces asked for went. A collapse takes two faces, so that a shell may keep one
    /// face more or less than aimed at.
    bool is_reached = true;
};

/// Collapses edges of each shell to their midpoints, in the order of their quadric error, until the
/// shell has the faces that are asked for or no edge is left that may go. The mesh is compact
/// afterwards.
///
/// Edges at open or irregular rims stay, and so do those whose collapse would pinch the surface
/// (the link condition) or would make a vertex of more than a thousand faces: what was closed and
/// manifold stays so. Colours and texture coordinates
/// take part in the error and are averaged at the merged corners; where a seam ends at the edge,
/// on each side of it for itself. The result is the same bits for any number of threads.
///
/// Time O(n log n); at most 230 bytes a triangle beside the mesh. Progress goes from 0 to 100.
///
/// Source: H. Hoppe, New quadric metric for simplifying meshes with appearance attributes, IEEE
/// Visualization 1999; link condition: T. Dey et al., Topology preserving edge contraction, 1999.
ReduceReport reduce(TriMesh& mesh, const ReduceOptions& options, Progress progress = {});

}  // namespace povmesh
