// Finds the directions in which a model is best printed.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

/// What printing with a direction upward takes, in the units of the model. Cost and score have
/// none.
struct Orientation {
    Vec3d up;                   // unit length, in the model
    double cost = 0;            // sum of weighted terms, 0 at best
    double support_volume = 0;  // columns below what leans out, times how much it needs them
    double scar_area = 0;       // that supports touch
    double contact_area = 0;    // of faces that lie on the plate
    double tilt = 0;  // degrees by which it can be tilted before it falls; below 0 it does
    double height = 0;

    double score() const { return 1 / (1 + cost); }
};

struct OrientOptions {
    // Large models are looked at on fewer triangles first, and only the 16 best rows of that are
    // measured on all of them, those behind in between. True measures all rows so, which takes up
    // to half as long again.
    bool measures_all_rows = false;
    std::optional<Vec3d> up;  // a direction to be measured, too, of any finite length above 0
};

struct OrientationReport {
    /// Descending score, any two 5 degrees or more apart; at most 64. Empty without a face that has
    /// a finite area.
    std::vector<Orientation> best;
    Orientation as_is;                    // up is (0, 0, 1)
    Orientation asked;                    // for the direction of the options
    std::size_t directions_measured = 0;  // on columns, not by estimate
};

/// Searches the sphere of directions: rest faces of the convex hull, the axes, normals of much area
/// and an even net are estimated, the best of them measured, and the best of these improved.
///
/// @param mesh  open models work: a face that looks down is held up where nothing is below. Faces
///              without area, or with a corner that is not finite, take no part; a model that is
///              inside out as a whole is taken as turned over
///
/// Progress goes to 20, 40, 60 and 80.
///
/// The result does not depend on the model's unit and place, is the same bits for any number of
/// threads, and near the same for other orders of the faces and other poses. Memory beside the
/// mesh: about 60 bytes a triangle.
///
/// Sources: B. Ezair, F. Massarwi, G. Elber, Orientation analysis of 3D objects toward minimal
/// support volume in 3D-printing, Computers & Graphics 51, 2015; D. Frank, G. Fadel, Expert
/// system-based selection of the preferred direction of build for rapid prototyping processes,
/// Journal of Intelligent Manufacturing 6, 1995 (facets of the hull, criteria).
OrientationReport find_orientations(const TriMesh& mesh, RunContext& run,
                                    const OrientOptions& options = {});

/// Measures one direction. All 0 for a mesh without a face that has a finite area.
Orientation measure_orientation(const TriMesh& mesh, Vec3d up);

/// Volume of the supports alone, without the convex hull and all else that a cost takes; 0 for a
/// mesh without a face that has a finite area.
double measure_support_volume(const TriMesh& mesh, Vec3d up);

}  // namespace povmesh
