#include "design/smooth.h"

#include <algorithm>
#include <array>
#include <cassert>

#include "base/parallel.h"

namespace povmesh {
namespace {

constexpr double kOwnWeight = 0.7;
constexpr double kNeighbourWeight = 0.3;
constexpr std::size_t kMostFaces = 24;

Vec3f smoothed(const TriMesh& mesh, std::size_t vertex) {
    std::array<std::int32_t, 2 * kMostFaces> neighbours{};
    std::size_t count = 0;
    for (const Use& use : mesh.uses(vertex)) {
        if (mesh.faces[use.face()].deleted != 0) continue;
        assert(count + 2 <= neighbours.size());
        if (count + 2 > neighbours.size()) break;
        neighbours[count++] = use.next;
        neighbours[count++] = use.previous;
    }
    const Vec3f own = mesh.vertices[vertex].position();
    if (count == 0) return own;
    std::sort(neighbours.begin(), neighbours.begin() + count);
    const auto end = std::unique(neighbours.begin(), neighbours.begin() + count);
    Vec3d sum;
    for (auto at = neighbours.begin(); at != end; ++at) {
        sum = sum + to_double(mesh.vertices[static_cast<std::size_t>(*at)].position());
    }
    const Vec3d mean = sum / static_cast<double>(end - neighbours.begin());
    const Vec3d moved = to_double(own) * kOwnWeight + mean * kNeighbourWeight;
    return {static_cast<float>(moved.x), static_cast<float>(moved.y), static_cast<float>(moved.z)};
}

}  // namespace

void smooth_voxel_surface(TriMesh& mesh) {
    ensure_uses(mesh);
    Array<Vec3f> positions;
    positions.resize(mesh.vertices.size());
    parallel_for(positions.size(), [&](std::size_t v) { positions[v] = smoothed(mesh, v); });
    parallel_for(positions.size(), [&](std::size_t v) {
        mesh.vertices[v].x = positions[v].x;
        mesh.vertices[v].y = positions[v].y;
        mesh.vertices[v].z = positions[v].z;
    });
}

}  // namespace povmesh
