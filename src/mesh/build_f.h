// Makes a mesh from a triangle soup.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mesh/tri_mesh.h"

namespace povmesh {

/// A triangle soup as hosts hand it over: arrays indexed by triangle. Only the coordinates must be
/// there when `triangle_count` is above 0.
struct Soup {
    std::size_t triangle_count = 0;
    const float* coordinates = nullptr;          // 9 a triangle: x, y, z of corner 0, 1, 2
    const float* colours = nullptr;              // 9 a triangle: R, G, B of corner 0, 1, 2; 0 to 1
    const float* texture_coordinates = nullptr;  // 6 a triangle: u, v of corner 0, 1, 2
    const std::int32_t* labels = nullptr;        // 1 a triangle; the low 16 bits count
};

/// A soup whose colours are bytes.
struct ByteSoup {
    std::size_t triangle_count = 0;
    const float* coordinates = nullptr;
    const std::uint8_t* colours = nullptr;  // 9 a triangle, stored as they are
    const float* texture_coordinates = nullptr;
    const std::int32_t* labels = nullptr;
};

/// Replaces faces, vertices and texture coordinates of the mesh by those of the soup; shells and
/// uses become empty, `parts` stays.
///
/// Corners weld when their coordinates have the same bits (so 0.0 and -0.0 stay apart); there is no
/// distance tolerance. Vertices are numbered as they first come up. With `Welding::SameSums`
/// (welding.h) different points are merged, too, as hosts rely on: the bounding box, with -1e6 and
/// 1e6 as its starting values, is divided into 100 cells per axis (101 with the far border); two
/// corners share a vertex when they lie in the same cell and the sums x * 108881 + y * 110881 + z *
/// 118081 over their bit patterns agree.
///
/// A triangle with two corners on one vertex makes no face; its vertices stay. A colour is
/// truncated to (value * 255) modulo 256. A label keeps its low 16 bits; a face with a label of 0
/// or more gets three texture-coordinate records of its own, or uv -1 when the soup has none.
///
/// Throws std::length_error beyond kMaxFaceCount triangles.
/// Time: linear. Memory above the mesh: a hash table of 16 bytes a slot, about 24 to 32 a vertex.
void build_f(TriMesh& mesh, const Soup& soup);
void build_f(TriMesh& mesh, const ByteSoup& soup);

}  // namespace povmesh
