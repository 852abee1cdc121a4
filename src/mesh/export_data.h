// Flattens a mesh into arrays for a host.
#pragma once

#include <cstdint>

#include "mesh/tri_mesh.h"

namespace povmesh {

/// Soup arrays from malloc; whoever receives them frees them. No pointer is null, also for 0
/// triangles.
struct SoupArrays {
    std::uint32_t triangle_count = 0;
    float* coordinates = nullptr;          // 9 a triangle
    float* colours = nullptr;              // 9 a triangle, 0 to 1
    float* texture_coordinates = nullptr;  // 6 a triangle; 0, 0 where a face has none
    std::int32_t* labels = nullptr;        // 1 a triangle
};

/// The live faces, in face order. Throws std::bad_alloc, and std::out_of_range ("invalid vector<T>
/// subscript") when a face names a vertex or a texture coordinate that is not there.
SoupArrays export_data(const TriMesh& mesh);

/// The soups of several meshes behind one another; `part_triangles[i]` triangles belong to part i.
struct MultiSoupArrays {
    SoupArrays soup;
    std::uint32_t* part_triangles = nullptr;  // from malloc, never null
    std::uint32_t part_count = 0;
};

/// Removes every part whose `volume` is below 1.0: an open or inside-out one has the volume 0.
void drop_small_parts(TriMesh& mesh);

/// The parts in order, all face records of each.
MultiSoupArrays export_parts(const TriMesh& mesh);

}  // namespace povmesh
