// Finds the cavity that turns a solid model into a shell.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

struct HollowOptions {
    bool is_reduced = true;      // false leaves the smoothed squares of the voxels
    bool measures_wall = false;  // fills `smallest_wall`, at the price of a search for each face
};

struct HollowReport {
    bool is_hollowed = false;
    double voxel_size = 0;    // model units
    std::int32_t layers = 0;  // voxel layers that the wall takes at least
    std::size_t voxels = 0;   // of the cavity
    double model_volume = 0;  // cubic model units
    double cavity_volume = 0;
    double smallest_wall = 0;  // between the surfaces, model units; where layers were taken
    // No cavity of that wall keeps clear of the model's surface.
    bool is_crossing = false;
    // Less than a quarter of a voxel, of which the grid holds no larger number: nothing is tried.
    bool is_too_thin = false;
};

/// Replaces the faces and vertices of a model by the surface of the cavity that leaves a wall of
/// that thickness, wound outward; by none when fewer than 100 voxels are left to take out.
///
/// The model is turned into voxels of 0.4 to 2 model units, about 1.2 million for a solid one, and
/// filled. Of these as many layers are eroded as the thickness needs, then every voxel that is
/// nearer to the outside than the thickness, measured straight, which erosion leaves across
/// diagonals. The surface of the rest is smoothed once and reduced. It lies the thickness inside
/// the model's surface within about 1.4 voxels, is closed and manifold, and so is a result with
/// several pieces. Cavities that the model has already (wound inward) get a wall, too, and so do
/// slits and holes that are too narrow for a voxel.
///
/// The cavity crosses neither itself nor the model: that is checked, and so is that the wall is
/// nowhere thinner than the thickness less two voxels, between the surfaces as they are handed out.
/// Voxels that come nearer are dropped, and the surface is reduced less where a reduction strays.
/// It has no degenerate face. Where all that leaves no cavity the result is none.
///
/// A thickness of less than 0.5 that makes no layer erodes nothing: the result is then the voxels
/// of the whole model.
///
/// Progress: 10, 30, 40, 50, 60, 70, 80, 85; the last three when something is left. Log: the
/// summary of "light weight".
/// Time: linear in the voxels of the model's box, and what `reduce` takes.
HollowReport hollow(TriMesh& mesh, float thickness, RunContext& run,
                    const HollowOptions& options = {});

}  // namespace povmesh
