// The surface of a voxel grid as a mesh.
#pragma once

#include <cstdint>
#include <memory>

#include "mesh/tri_mesh.h"
#include "run/run_context.h"
#include "voxel/voxel_grid.h"

namespace povmesh {

/// Exposed squares that a piece has at least where small pieces are left out.
constexpr std::size_t kLeastSquares = 20;

/// The pieces of the surface: of groups of voxels that are connected over sides, in the order of
/// their first voxels. Their meshes are made one at a time, so that few need to be kept.
///
/// Marks the exposed sides of every voxel afresh. Log: the time.
class SurfacePieces {
public:
    /// @param grid  stays as it is as long as the pieces live
    /// @param least_squares  pieces of fewer exposed squares are left out
    SurfacePieces(VoxelGrid& grid, std::size_t least_squares, RunContext& run);
    ~SurfacePieces();
    SurfacePieces(const SurfacePieces&) = delete;
    SurfacePieces& operator=(const SurfacePieces&) = delete;

    std::size_t size() const;

    /// May be called for several pieces at the same time.
    TriMesh mesh_of(std::size_t piece) const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

/// Replaces the faces and vertices of the mesh by the exposed squares of the voxels, two triangles
/// each, in model coordinates, with the voxels' colours and their outside out. Flags say what is
/// exposed.
///
/// Squares share their vertices, also those of voxels that touch along an edge alone, and vertices
/// are numbered as they come up: the same as from passing the triangles through `build_f`. The
/// surface of a solid is closed, and a manifold unless voxels touch along an edge or at a corner
/// alone.
///
/// Time: linear in words and squares. Memory: 8 bytes for each cell of a layer.
/// Throws std::length_error beyond kMaxFaceCount triangles.
///
/// Log: start and end, the number of triangles.
void export_voxels(TriMesh& mesh, const VoxelGrid& grid, RunContext& run);

}  // namespace povmesh
