// Carves a model from the inside so that it stands.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "design/standing.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

/// From this tilt on a model stands, if shakily; below it, it falls. Degrees.
constexpr double kStands = 1;

struct BalanceOptions {
    double firm = 10;   // degrees: models that withstand such a tilt are left as they are
    double infill = 1;  // above 0, at most 1: material in the core as it is printed, as a share
    bool measures_wall = false;  // fills `smallest_wall`, at the price of a search for each face
};

enum class BalanceStatus : std::uint8_t {
    Carved,   // it stands, and better than before
    NoModel,  // no face with an area, or no volume
    Stands,   // firmly as it is, or shakily and there is nothing to gain
    Falls,    // and carving with this thickness cannot make it stand
};

struct BalanceReport {
    BalanceStatus status = BalanceStatus::NoModel;
    Base base;  // empty for NoModel, and so are these:
    Standing before;
    Standing after;               // Stands: as before; Falls: the best that carving reaches
    double model_volume = 0;      // cubic model units
    double cavity_volume = 0;     // of what was carved
    double voxel_size = 0;        // model units; 0 when there was no need for voxels
    std::int32_t layers = 0;      // voxel layers that the wall takes at least
    std::size_t core_voxels = 0;  // that the wall leaves
    double smallest_wall = 0;     // between the surfaces, model units, when Carved
};

/// Appends to a model that does not stand firmly the cavities with which it stands as firmly as a
/// wall of that thickness allows, wound inward. Its own faces stay as they are, first; where
/// nothing is carved the model is unchanged.
///
/// The model stands on its lowest point, its base is what touches the plate there, and its tilt the
/// angle by which the plate can be tilted before it falls: see `Standing`. It is carved where
/// `find_carve_plane` says, out of the core that `hollow` would take out, with the same promises:
/// the cavities are closed, manifold, cross neither themselves nor the model, and the wall is
/// nowhere thinner than the thickness less two voxels. Pieces of less than 100 voxels are left
/// solid. A carved model withstands at least `kStands`, as its finished surface is measured.
///
/// @param thickness  model units; below 0.5 it counts as 0.5, and when it is not above 0, or no
///                   number, nothing can be carved
///
/// Progress: 30, 60; when carved 70, 80, 85. None when the model stands firmly or is none. Log: the
/// summary of "balancing".
/// Time: about that of `hollow` with the same thickness. The same bits for any number of threads.
BalanceReport balance(TriMesh& mesh, float thickness, RunContext& run,
                      const BalanceOptions& options = {});

/// The same without the cavities: what `balance` would say, from the same decisions. `after` is
/// that of the cavities before their surface is reduced, by which it moves by hundredths of a
/// degree.
BalanceReport preview_balance(const TriMesh& mesh, float thickness, RunContext& run,
                              const BalanceOptions& options = {});

/// Both centres of mass, the points of the base that are nearest to them, the corners of the base;
/// nothing for NoModel.
Array<Vec3f> points_of(const BalanceReport& report);

}  // namespace povmesh
