// Triangle soups whose truth is known without the code: boxes, spheres, rocks, fans.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/vec.h"
#include "mesh/build_f.h"
#include "mesh/tri_mesh.h"

namespace povmesh::shapes {

/// 9 floats a triangle.
using SoupVector = std::vector<float>;

/// Closed box of 12 triangles, wound outward.
SoupVector box(Vec3f low, Vec3f high);

/// Sphere about the origin by dividing an icosahedron `levels` times: 20 * 4^levels triangles,
/// closed and wound outward. Level 7 has 327,680 triangles.
SoupVector sphere(float radius, int levels);

/// A sphere of about `radius` with smooth bumps and a rough grain, like a scanned stone. Closed,
/// outward.
SoupVector rock(float radius, int levels);

/// `count` triangles about the z axis that share the apex (0, 0, height) and form one closed ring
/// of an open cone with its outside up; they are neighbours over edges.
SoupVector fan(std::size_t count, float height);

/// `count` triangles that all share the edge (0, 0, 0) - (0, 0, 1).
SoupVector book(std::size_t count);

/// The same triangles in random order (Fisher-Yates with a fixed generator).
SoupVector shuffled(std::span<const float> soup, std::uint64_t seed);

/// Every triangle turned over.
SoupVector turned(std::span<const float> soup);

void append(SoupVector& soup, std::span<const float> more);
void move(SoupVector& soup, Vec3f by);

/// The mesh that `build_f` makes of a soup without colours.
TriMesh mesh_of(std::span<const float> soup);

/// Small, fast random numbers, the same on every machine (splitmix64).
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next();
    std::uint64_t below(std::uint64_t bound) { return next() % bound; }
    double unit() { return static_cast<double>(next() >> 11) * 0x1p-53; }

private:
    std::uint64_t state_;
};

}  // namespace povmesh::shapes
