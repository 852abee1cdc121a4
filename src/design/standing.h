// How firmly a model stands: what it weighs, on what it stands, how far it can be tilted.
#pragma once

#include <vector>

#include "base/predicates.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// The volume of a body and its first moment, about a point that all who add masses share.
struct SolidMass {
    double volume = 0;
    Vec3d moment;

    Vec3d centre() const { return moment / volume; }

    friend SolidMass operator+(const SolidMass& a, const SolidMass& b) {
        return {a.volume + b.volume, a.moment + b.moment};
    }
    friend SolidMass operator-(const SolidMass& a, const SolidMass& b) {
        return {a.volume - b.volume, a.moment - b.moment};
    }
    friend SolidMass operator*(const SolidMass& a, double share) {
        return {a.volume * share, a.moment * share};
    }
};

/// The signed tetrahedra between each live face and a point, in double; faces with a corner that is
/// not finite take no part. Holds for closed meshes; faces that are wound inward take away.
/// The same bits for any number of threads.
SolidMass mass_of(const TriMesh& mesh, Vec3d about);

/// What a model stands on: the convex outline of all that lies within a thousandth of the box
/// diagonal above its lowest point.
struct Base {
    double plate = 0;     // its height: the lowest point of a live face
    double diagonal = 0;  // of the model's box
    Vec3d middle;         // of the model's box
    // Seen from above counter-clockwise, the lowest x (then y) first. Two for a model that stands
    // on a line, one on a point, none for one without a face.
    std::vector<Point2d> corners;
};

/// Time: n log n in the corners that lie so low, and linear in the faces.
Base base_of(const TriMesh& mesh);

double area_of(const Base& base);

/// A base of at most 256 corners that lies in the base and hardly differs from it.
Base simplified(const Base& base);

struct Standing {
    Vec3d centre;       // of mass
    Vec3d nearest;      // of the base's border, at the height of the plate
    double margin = 0;  // between the two, seen from above; negative outside the base
    double height = 0;  // of the centre above the plate
    // Degrees by which the plate can be tilted before the model falls; negative where it falls.
    double tilt = 0;
};

/// How a body with that centre of mass stands; there is a base.
Standing stand_on(const Base& base, Vec3d centre);

}  // namespace povmesh
