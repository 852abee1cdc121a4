// Measures how thick the walls of a model are, and how wide the gaps between them.
#pragma once

#include <cstddef>
#include <limits>
#include <vector>

#include "base/array.h"
#include "base/status.h"
#include "base/vec.h"
#include "field/sub_triangles.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

struct ThicknessOptions {
    double wall = 0;  // model units, above 0: thinner walls are found
    double gap = 0;   // model units: narrower gaps are found, too; 0 looks for none
    // Model units: what would be thinner is taken for the grain of the surface and passed over.
    double grain = 0;
    std::size_t most_samples = 4'000'000;  // at least one for each face is taken all the same
};

/// A part of the surface on which a wall is too thin, or a gap too narrow: what hangs together over
/// edges, or through the wall.
struct ThinPlace {
    Vec3d point;          // of the surface, where the wall is thinnest
    double smallest = 0;  // thickness there
    double area = 0;      // of the surface, both sides of the wall
    Box3d box;            // around all of it
};

/// Walls or gaps. Lengths and areas in model units.
struct ThinPlaces {
    double asked = 0;
    // Of all samples; infinite when nothing is below twice what was asked for.
    double smallest = std::numeric_limits<double>::infinity();
    double area = 0;        // of all places
    double share = 0;       // of the whole surface
    std::size_t count = 0;  // of places
    // The largest first; those below a tenth of the square of `asked` are only counted, unless
    // there is no larger one.
    std::vector<ThinPlace> places;
    SubTriangles pieces;  // of the mesh measured, to which it refers: one sample each
    // By piece: what was measured there; infinite from twice of what was asked for on.
    Array<float> values;
    bool is_coarse = false;  // samples lie farther apart than half of what was asked for
};

struct ThicknessReport {
    Status status;  // BadOption when a number of the options is out of range
    ThinPlaces walls;
    ThinPlaces gaps;           // its `asked` is 0 when none were looked for
    std::size_t left_out = 0;  // live faces that have no area, or no finite place

    bool is_thin() const { return walls.count != 0 || gaps.count != 0; }
};

/// Measures the walls of a closed mesh that is wound outward, and the gaps between them if asked.
///
/// The thickness at a point of the surface is the diameter of the largest ball inside that touches
/// the surface there and meets no *opposing* point, one whose normal is turned by 120 degrees or
/// more. So the edges of a cube are not thin, but a wedge of up to 60 degrees is, towards its tip.
/// A gap is the same outside. Too thin is what is below what was asked for by more than a
/// thousandth, which facets and rounded coordinates take off a wall of just that thickness.
///
/// Samples are the middles of the faces; faces longer than half the wall, or the gap, are measured
/// in pieces.
/// Time O(n log n), about a microsecond a sample. The same bits for any number of threads; nothing
/// depends on the unit.
///
/// Sources: J. Ma et al., 3D medial axis point approximation using nearest neighbors and the normal
/// field, The Visual Computer 28, 2012; M. Inui et al., Shrinking sphere: a parallel algorithm for
/// computing the thickness of 3D objects, Computer-Aided Design and Applications 13, 2015.
ThicknessReport measure_thickness(const TriMesh& mesh, const ThicknessOptions& options);

/// The share of the way from half of what was asked for (0) over all of it (0.5) to twice that (1),
/// where what is below counts as the nearer end and an infinite value as 1. Doubling counts alike
/// everywhere. Not a number for what is none.
double thickness_level(float value, double asked);

}  // namespace povmesh
