// Collapsing edges keeps a surface a manifold, no more than that. What strays from its voxels,
// crosses itself or has slivers is not handed out.
#include "design/cavity_surface.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "base/convert.h"
#include "base/poll.h"
#include "design/mend_slivers.h"
#include "design/smooth.h"
#include "remesh/reduce.h"
#include "spatial/self_intersection.h"
#include "voxel/passes.h"
#include "voxel/surface.h"

namespace povmesh {
namespace {

// As few faces as they allow: what hosts know. The grain of the voxels lets few edges pass the
// normal limit, so the reduction goes on with those at any cost: on curved walls it strays by up to
// three voxels, and in narrow places sheets come to cross each other. The next one allows larger
// turns, so that it finds cheap edges everywhere: fewer faces, and nearer to the voxels.
constexpr std::array kReductions = {ReduceOptions{0.0, 0.05, 0.9}, ReduceOptions{0.1, 0.05, 0.5},
                                    ReduceOptions{0.25, 0.05, 0.7}, ReduceOptions{0.5, 0.05, 0.9}};

// Surfaces of more faces begin with the third one: a try takes seconds there, and on the grain of a
// curved surface of that size the first two hardly ever hold.
constexpr std::size_t kLargeSurface = 500000;
constexpr std::size_t kFirstOfLarge = 2;

// The wall may be thinner than asked for by so many voxels, but is never thinner than this share of
// one.
constexpr double kMostMissing = 2;
constexpr double kLeastWall = 0.1;

// Share of the area that may lie off the surface of the voxels, by half a voxel or more.
constexpr double kMostStrayed = 0.01;

// How many layers of cells lie at least between a point and the surface of the voxels: 2, 1 or 0,
// which is when the eight cells around the point are not all of a kind.
int layers_off(const VoxelGrid& core, Vec3d point) {
    const Vec3d p = point - to_double(core.origin());
    const double size = static_cast<double>(core.settings().size.x);
    const auto floor_of = [&](double c) { return saturate_to<std::int32_t>(std::floor(c / size)); };
    const VoxelIndex low = {floor_of(p.x), floor_of(p.y), floor_of(p.z)};
    const auto is_mixed = [&](std::int32_t margin) {
        std::size_t voxels = 0;
        std::size_t cells = 0;
        for (std::int32_t z = low.z - margin; z <= low.z + 1 + margin; ++z) {
            for (std::int32_t y = low.y - margin; y <= low.y + 1 + margin; ++y) {
                for (std::int32_t x = low.x - margin; x <= low.x + 1 + margin; ++x) {
                    voxels += core.contains({x, y, z}) ? 1 : 0;
                    ++cells;
                }
            }
        }
        return voxels != 0 && voxels != cells;
    };
    if (is_mixed(0)) return 0;
    return is_mixed(1) ? 1 : 2;
}

// Looks at the corners of every face, the middles of its edges and its centre.
bool follows(const TriMesh& mesh, const VoxelGrid& core) {
    double area = 0;
    double strayed = 0;
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        std::array<Vec3d, 7> points;
        for (std::size_t i = 0; i < 3; ++i) points[i] = to_double(mesh.corner_position(face, i));
        for (std::size_t i = 0; i < 3; ++i)
            points[3 + i] = (points[i] + points[next_corner(i)]) * 0.5;
        points[6] = (points[0] + points[1] + points[2]) / 3.0;
        const double share =
            length(cross(points[1] - points[0], points[2] - points[0])) / points.size();
        for (const Vec3d& point : points) {
            const int layers = layers_off(core, point);
            if (layers > 1) return false;
            area += share;
            if (layers == 1) strayed += share;
        }
    }
    return strayed <= kMostStrayed * area;
}

// Drops the voxels around the corners of these faces, which smoothing has moved by less than half a
// voxel.
void drop_voxels_at(VoxelGrid& core, const TriMesh& surface, const Array<std::uint8_t>& is_near) {
    const Vec3d half = to_double(core.settings().size) * 0.5;
    for (std::size_t f = 0; f < is_near.size(); ++f) {
        if (is_near[f] == 0) continue;
        for (std::size_t i = 0; i < 3; ++i) {
            const Vec3d p =
                to_double(surface.corner_position(surface.faces[f], i)) - to_double(core.origin());
            for (unsigned corner = 0; corner < 8; ++corner) {
                const Vec3d off{(corner & 1U) != 0 ? half.x : -half.x,
                                (corner & 2U) != 0 ? half.y : -half.y,
                                (corner & 4U) != 0 ? half.z : -half.z};
                core.erase(core.index_at(p + off));
            }
        }
    }
    drop_edge_contacts(core);
    mark_exposed_sides(core);
}

}  // namespace

CavityWall::CavityWall(const TriMesh& model, double thickness, double voxel_size)
    : gauge(model),
      least(std::max(thickness - kMostMissing * voxel_size, kLeastWall * voxel_size)) {}

void smoothed_boundary(const VoxelGrid& voxels, TriMesh& boundary, RunContext& run) {
    export_voxels(boundary, voxels, run);
    smooth_voxel_surface(boundary);
}

bool drop_voxels_too_near(VoxelGrid& voxels, const TriMesh& boundary, const CavityWall& wall) {
    const Array<std::uint8_t> is_near = wall.gauge.faces_nearer_than(boundary, wall.least);
    if (std::find(is_near.begin(), is_near.end(), 1) == is_near.end()) return false;
    drop_voxels_at(voxels, boundary, is_near);
    return true;
}

Verdict reduce_boundary(const TriMesh& boundary, const VoxelGrid& voxels, TriMesh& reduced,
                        const std::function<Verdict(const TriMesh& reduced)>& judge) {
    const std::size_t first = boundary.faces.size() > kLargeSurface ? kFirstOfLarge : 0;
    for (std::size_t i = first; i < kReductions.size(); ++i) {
        reduced = boundary;
        (void)reduce(reduced, kReductions[i]);
        if (mend_slivers(reduced) != 0 || !follows(reduced, voxels) ||
            find_self_intersections(reduced, 0).count != 0) {
            continue;
        }
        const Verdict verdict = judge(reduced);
        if (verdict != Verdict::TryNext) return verdict;
    }
    reduced = boundary;
    return Verdict::TryNext;
}

}  // namespace povmesh
