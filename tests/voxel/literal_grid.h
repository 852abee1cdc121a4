// The voxel passes a second time: slow, word for word, on std::map; for comparisons.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "mesh/tri_mesh.h"
#include "voxel/voxel_grid.h"

namespace povmesh::literal {

struct Grid {
    std::map<std::int64_t, Voxel> voxels;
    Vec3f size{1, 1, 1};
    Vec3f origin;
    VoxelIndex low, high;  // a box around all voxels there ever were
    bool keeps_angles = false;
    bool remembers_outside = false;      // what was outside once is so again when it is empty
    std::set<std::int64_t> was_outside;  // keys

    void insert(VoxelIndex index, VoxelColour colour, std::int8_t angle);

    /// Flags by the neighbours alone, as if every empty cell were outside.
    void mark_by_neighbours();
    void fill_rows(bool keep_colour);
    void erode(int layers, std::vector<Voxel>* removed);

    void mark();
    void drop_enclosed();
    void dilate(int layers, int slack);
    void remove_spurs(int k);
    /// Drops what is nearer than the limit, in voxels, to a cell that is outside.
    void drop_near(const std::set<std::int64_t>& outside, std::int64_t squared_limit);

    /// The empty cells of the box and one layer around it that are outside.
    std::set<std::int64_t> outside() const;
};

/// The whole box of every face is tested. The outside is found with exact winding numbers; there is
/// nothing against leaks.
Grid form_voxels(const TriMesh& mesh, Vec3f size, bool keeps_angles = false);

/// The squares as triangles through build_f.
TriMesh export_voxels(const Grid& grid);

/// Where the two differ; empty when all voxels have the same records in the same order.
std::string difference(const VoxelGrid& grid, const Grid& literal);

}  // namespace povmesh::literal
