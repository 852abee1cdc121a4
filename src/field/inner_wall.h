// Finds the cavity that leaves a wall of an exact thickness.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "base/status.h"
#include "field/contour.h"
#include "field/distance_field.h"
#include "field/thin_out.h"
#include "mesh/tri_mesh.h"
#include "run/progress.h"

namespace povmesh {

/// Share of the thickness that the wall has everywhere unless asked otherwise.
constexpr double kLeastWallShare = 0.98;

struct InnerWallOptions {
    // Side of a cell in model units; 0: a fifth of the thickness, or larger where the box of the
    // model would hold more than 2^27 of these.
    double cell = 0;
    bool all_triangles = false;  // else flat places and straight edges are thinned out
    // Share of the thickness, below 0.985, that is proven: less takes fewer searches.
    double least_share = kLeastWallShare;
    bool measures = true;  // fills the smallest and the mean wall, a fifth of the time
    // Looks at the cavity before it is mended, with walls that are off by a few percent. When it
    // returns false nothing more is done, and the cavity stays empty.
    std::function<bool(const TriMesh&)> is_wanted{};
};

struct WallReport {
    Status status;
    double cell = 0;           // model units
    double smallest_wall = 0;  // model units: no point of the cavity is nearer to the model
    double mean_wall = 0;      // model units, by area of the cavity
    bool is_kept = false;      // the smallest wall is at least the share of the thickness

    ThinOutReport thinned;
    std::size_t mended = 0;   // vertices that were moved off the model
    std::uint64_t taken = 0;  // nodes that left the cavity where that did not do
    std::size_t passes = 0;   // of making the surface
    std::size_t dropped = 0;  // pieces of the cavity too small to be worth it
    LabelReport label;
    ContourReport contour;  // of the last pass
};

/// Makes the surface of all points inside a model that lie the thickness or more below its surface:
/// closed, manifold, outward, free of crossings, and clear of the model. Pieces of fewer than 100
/// nodes are left out. The mesh must be closed and wound outward, cavities of its own inward, which
/// get a wall, too; bodies that overlap keep a wall along each of their faces.
///
/// @param cavity  replaced; without faces when nothing is thick enough
/// @return  in `status`: BadOption when the thickness, or the cell, is not a number above 0;
///          BadFile when the mesh has no face with an area, or leaks through open edges;
///          TooLarge when the thickness is less than two cells, or the cell too small for the
///          model. The cavity is then empty.
///
/// The wall is at least that share of the thickness, which is proven: at points of the surface
/// exact distances are taken, and between them a distance bends by no more than one part in
/// itself. Vertices that lie too near move off the model within their cells; where that does not
/// do, nodes leave the cavity and the surface is made anew.
///
/// The same bits for any number of threads. Time: about two searches for a nearest face a vertex,
/// besides those of the contour.
WallReport inner_wall(const TriMesh& mesh, double thickness, const InnerWallOptions& options,
                      TriMesh& cavity, const Progress& progress = {});

}  // namespace povmesh
