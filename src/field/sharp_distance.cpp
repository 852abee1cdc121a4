#include "field/sharp_distance.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

constexpr double kTurnCosine = 0.9397;  // 20 degrees

// Weights below this are rounding: the point lies on the edge across, or at the corner.
constexpr double kOnEdge = 1e-9;

// Faces looked at around a corner.
constexpr std::size_t kMostFaces = 64;

struct Normals {
    std::array<Vec3d, kMostFaces> all;
    std::size_t count = 0;

    void add(const Triangle& t) {
        const Vec3d n = cross(t[1] - t[0], t[2] - t[0]);
        const double size = length(n);
        if (count < kMostFaces && size > 0) all[count++] = n / size;
    }
    std::span<const Vec3d> span() const { return {all.data(), count}; }
};

bool turns(std::span<const Vec3d> normals) {
    for (std::size_t a = 0; a < normals.size(); ++a) {
        for (std::size_t b = 0; b < a; ++b) {
            if (dot(normals[a], normals[b]) < kTurnCosine) return true;
        }
    }
    return false;
}

}  // namespace

SharpDistance::SharpDistance(const TriMesh& faces, const NearestFace& surface) : surface_(surface) {
    faces_.faces = faces.faces;
    faces_.vertices = faces.vertices;
    ensure_uses(faces_);
}

SharpDistance::Value SharpDistance::at(Vec3d p, double reach) const {
    const NearestPoint nearest = surface_.find(p, reach * reach);
    if (!nearest.is_found()) return {HUGE_VAL, {}, false};
    const double distance = std::sqrt(nearest.squared_distance);
    const Vec3d away = p - nearest.point;
    Value value{distance, distance > 0 ? away / distance : Vec3d{}, false};
    const Face& face = faces_.faces[nearest.face];
    std::size_t corner = 3;  // one that the point is at, or on an edge of
    std::size_t off = 3;     // a corner that the point is not on
    std::size_t zero_count = 0;
    for (std::size_t c = 0; c < 3; ++c) {
        if (nearest.weights[c] <= kOnEdge) {
            ++zero_count;
            off = c;
        } else {
            corner = c;
        }
    }
    if (zero_count == 0 || corner == 3) return value;
    Normals normals;
    // The second end of the edge; none at a corner.
    const std::int32_t other = zero_count == 1 ? face.vertex[3 - corner - off] : std::int32_t{-1};
    for (const Use& use : faces_.uses(static_cast<std::size_t>(face.vertex[corner]))) {
        if (other >= 0 && use.next != other && use.previous != other) continue;
        const Face& around = faces_.faces[use.face()];
        if (around.deleted == 0) normals.add(triangle_of(faces_, around));
    }
    if (!turns(normals.span())) return value;
    double farthest = distance / 2;
    for (const Vec3d& normal : normals.span()) {
        const double beyond = dot(normal, away);
        if (!(std::abs(beyond) > farthest)) continue;
        farthest = std::abs(beyond);
        value.gradient = beyond < 0 ? normal * -1.0 : normal;
        value.is_at_plane = true;
    }
    value.distance = farthest;
    return value;
}

}  // namespace povmesh
