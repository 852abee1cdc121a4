// The surface of a cavity, made of its voxels.
#pragma once

#include <cstdint>
#include <functional>

#include "design/wall_gauge.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"
#include "voxel/voxel_grid.h"

namespace povmesh {

/// Rounds in which voxels too near to the model are dropped. One or two do where the wall rule
/// missed a surface, which lies near the outside then.
constexpr int kMostRounds = 16;

/// The wall between a model and its cavity, as thin as it may be.
struct CavityWall {
    WallGauge gauge;
    double least;  // model units

    CavityWall(const TriMesh& model, double thickness, double voxel_size);
};

/// The boundary of the voxels with its steps smoothed; their exposed sides are marked.
void smoothed_boundary(const VoxelGrid& voxels, TriMesh& boundary, RunContext& run);

/// Drops the voxels at those faces of their smoothed boundary that come nearer to the model than
/// the wall may be thin. False when there is none; else the exposed sides are marked afresh, and no
/// two voxels touch over an edge or a corner alone.
bool drop_voxels_too_near(VoxelGrid& voxels, const TriMesh& boundary, const CavityWall& wall);

/// What is to become of a surface that was reduced well.
enum class Verdict : std::uint8_t { Take, TryNext, Stop };

/// Reduces the smoothed boundary of voxels, with ever gentler numbers until the result follows the
/// voxels, nowhere crosses itself, has no degenerate face and the judge takes it.
///
/// @param reduced  gets the result; the boundary itself when none was taken; anything when stopped
/// @return  Take, TryNext when none was taken, Stop when the judge stopped
Verdict reduce_boundary(const TriMesh& boundary, const VoxelGrid& voxels, TriMesh& reduced,
                        const std::function<Verdict(const TriMesh& reduced)>& judge);

}  // namespace povmesh
