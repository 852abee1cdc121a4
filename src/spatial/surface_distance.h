// How far two surfaces are apart.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "mesh/tri_mesh.h"

namespace povmesh {

/// Distance of the points of one surface from another one, in model units. Not a number when one of
/// the two has no area.
struct OneWayDistance {
    double rms;
    double greatest;
};

struct SurfaceDistance {
    OneWayDistance there;  // of the first surface's points from the second one
    OneWayDistance back;

    /// Both ways count alike.
    double rms() const { return std::sqrt((there.rms * there.rms + back.rms * back.rms) / 2); }
    double greatest() const { return std::max(there.greatest, back.greatest); }
};

struct DistanceOptions {
    /// Points on each of the surfaces; 0 = as many as it has faces, 100,000 at least. The error of
    /// the root mean square falls about with their number.
    std::size_t sample_count = 0;
};

/// Distance between the live faces of two meshes, both ways. The root mean square is taken over
/// points spread evenly by area, the greatest over these and the vertices in use, so that it comes
/// out a little too small. Faces with a corner that is not finite take no part.
///
/// The points are always the same ones, and the result is the same bits for any number of threads.
/// A million points take a second or two; memory: 100 bytes a face and 32 a point of one surface.
SurfaceDistance surface_distance(const TriMesh& a, const TriMesh& b,
                                 const DistanceOptions& options = {});

}  // namespace povmesh
