// The tests on single faces and pairs of faces that flaw detection and repair share.
#pragma once

#include <array>
#include <cstdint>

#include "base/vec.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// True when one of the triangle's interior angles is below 0.05 degrees, or an edge has no length.
/// Decided as follows, because hosts compare counts: edge vectors, dot product and lengths in
/// double, the cosine clamped to -1..1, the angle in degrees rounded to a 32-bit float and compared
/// with 0.05f. A triangle with a coordinate that is not finite has no angles and is not degenerate
/// by them.
bool has_degenerate_angle(Vec3f a, Vec3f b, Vec3f c);

/// True when two of the face's vertex indices are equal or it has a degenerate angle.
bool is_degenerate(const TriMesh& mesh, const Face& face);

/// True when the two triangles, given by their vertex indices, share an edge that both run along in
/// the same direction. Looks at the first pair of equal vertices only.
bool shares_edge_in_same_direction(const std::array<std::int32_t, 3>& a,
                                   const std::array<std::int32_t, 3>& b);

/// Cross product of the edges from the first corner, in double: twice the area long.
inline Vec3d face_normal(Vec3f a, Vec3f b, Vec3f c) {
    const Vec3d origin = to_double(a);
    return cross(to_double(b) - origin, to_double(c) - origin);
}

}  // namespace povmesh
