// Makes a solid of any triangles: what is open closes, what crosses merges, sheets become thick.
#pragma once

#include "base/status.h"
#include "field/contour.h"
#include "field/distance_field.h"
#include "field/thin_out.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

struct WrapOptions {
    double tolerance = 0;  // model units; 0: 1/400 of the diagonal
    double gap = -1;  // model units: what is bridged at most; below 0: twice the tolerance, and
                      // wider holes in open models whose faces agree on their outside
    bool keeps_thin = true;  // sheets and walls thinner than a cell become about two cells thick
    double cell = 0;         // model units; 0: half the tolerance
    bool all_triangles = false;  // else flat places and straight edges are thinned out
};

struct WrapReport {
    double cell = 0, tolerance = 0, gap = 0;
    LabelReport label;
    ContourReport contour;
    ThinOutReport thinned;
};

/// Replaces a mesh by the surface of the solid that it is meant to be: closed, manifold, outward,
/// free of crossings (see contour). It follows the faces of the mesh themselves, at no distance,
/// with their edges and corners; only where faces are missing, or are not thick, is it new.
/// Triangles with hardly an area are mended (see revise_triangles). Attributes are lost.
///
/// @return  BadOption when a number is not finite or not above 0; TooLarge when the cell is too
///          small for the model; BadFile when the mesh has no face with an area, or nothing of it
///          is thicker than a cell. The mesh is then unchanged.
Status wrap(TriMesh& mesh, const WrapOptions& options, RunContext& run, WrapReport& report);

}  // namespace povmesh
