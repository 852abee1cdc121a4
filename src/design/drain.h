// Opens a cavity to the outside, so that resin or powder runs out of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/vec.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

struct Drain {
    Vec3d place;        // on the model's surface or near it, model units
    double radius = 0;  // model units
};

enum class DrainOutcome : std::uint8_t {
    Done,
    FarAway,   // the surface is farther from the place than the radius and the wall together
    NoCavity,  // straight below the place the surface comes again before the cavity
    NotSolid,  // the model is open there
    Tangled,   // the hole would cross the surface or touch another one, however it is turned
    Invalid,   // not finite, or the radius is not above 0
};

struct DrainReport {
    DrainOutcome outcome = DrainOutcome::Invalid;
    Vec3d mouth;            // the point of the model's surface that is nearest to the place
    double distance = 0;    // of the place from it
    double wall_depth = 0;  // from the mouth straight to the cavity
};

/// Cuts round holes, one after the other, from the surface of a model to its cavity.
///
/// A hole stands upright on the surface around its place, along the mean normal within the radius;
/// at an outer edge, between its two sides.
/// It ends in the middle of the cavity at the latest, so that the wall across stays whole. Slivers
/// that come about are mended, by which the surface moves at most 1e-4 of the model's diagonal.
///
/// No hole adds crossing faces or edges of more than two faces. Where one would, along an outer
/// edge of the model or where it touches another one, it gets up to a fifth fewer corners and a
/// radius larger by up to 7 %.
///
/// @param shell  the faces of the model and after them those of its cavity, wound inward; a closed
///               one stays closed. Changed by the holes that are Done, and only by them.
/// @param model_faces  how many of the faces are the model's
/// @param wall  about the thickness of the wall, model units
/// Time: linear for each hole, and n log n once.
std::vector<DrainReport> cut_drains(TriMesh& shell, std::size_t model_faces, double wall,
                                    std::span<const Drain> drains);

/// Cavities of a shell that nothing leads into: closed shells that are wound inward.
struct SealedCavities {
    std::size_t count = 0;
    Vec3d place;  // a point of the largest one's surface
};
SealedCavities sealed_cavities(const TriMesh& shell);

}  // namespace povmesh
