// Parity of the crossings of a ray along x, by exact predicates: no crossing is lost or counted
// twice where the ray runs through edges and corners, so one ray is enough.
#include "spatial/inside_test.h"

#include <algorithm>
#include <limits>

#include "base/predicates.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

Point2d along_x(Vec3d p) {
    return {p.y, p.z};
}

// Whether p lies, as seen along the x axis, inside the triangle: it does when an odd number of
// edges passes above it. A point on an edge is taken as moved by a little along z, and by far less
// along y; so the triangles at a common edge or corner agree on who has it.
bool is_seen_inside(const Triangle& t, Vec3d p) {
    bool is_inside = false;
    for (std::size_t i = 0; i < 3; ++i) {
        const Vec3d a = t[i];
        const Vec3d b = t[next_corner(i)];
        if ((a.y <= p.y) == (b.y <= p.y)) continue;
        const Vec3d left = a.y <= p.y ? a : b;
        const Vec3d right = a.y <= p.y ? b : a;
        if (orient2d(along_x(left), along_x(right), along_x(p)) < 0) is_inside = !is_inside;
    }
    return is_inside;
}

// Whether a point in the plane of the triangle lies in it, borders included: as a triangle of no
// extent would, it is then not strictly outside any edge. Works in the first pair of axes in which
// the triangle has an area; false when there is none.
bool contains_in_plane(const Triangle& t, Vec3d p) {
    for (int axes = 0; axes < 3; ++axes) {
        const auto flat = [&](Vec3d q) -> Point2d {
            return axes == 0   ? Point2d{q.x, q.y}
                   : axes == 1 ? Point2d{q.y, q.z}
                               : Point2d{q.z, q.x};
        };
        const int turn = orient2d(flat(t[0]), flat(t[1]), flat(t[2]));
        if (turn == 0) continue;
        return orient2d(flat(t[0]), flat(t[1]), flat(p)) != -turn &&
               orient2d(flat(t[1]), flat(t[2]), flat(p)) != -turn &&
               orient2d(flat(t[2]), flat(t[0]), flat(p)) != -turn;
    }
    return false;
}

}  // namespace

PointPlace locate(const TriMesh& mesh, const FaceTree& faces, Vec3f point,
                  std::uint64_t* looked_at) {
    const Vec3d p = to_double(point);
    const Box3f ray{point, {std::numeric_limits<float>::max(), point.y, point.z}};
    PointPlace place = PointPlace::Outside;
    faces.visit_overlapping(ray, [&](std::uint32_t face) {
        if (looked_at != nullptr) ++*looked_at;
        const Triangle t = triangle_of(mesh, mesh.faces[face]);
        const int side = orient3d(t[0], t[1], t[2], p);
        if (side == 0) {
            if (!contains_in_plane(t, p)) return false;
            place = std::count(t.begin(), t.end(), p) != 0 ? PointPlace::AtCorner
                                                           : PointPlace::OnSurface;
            return true;
        }
        if (!is_seen_inside(t, p)) return false;
        // The face is ahead when p lies on the side that its normal points away from along x.
        if (side == -orient2d(along_x(t[0]), along_x(t[1]), along_x(t[2]))) {
            place = place == PointPlace::Inside ? PointPlace::Outside : PointPlace::Inside;
        }
        return false;
    });
    return place;
}

}  // namespace povmesh
