// A shell lies in another one when a ray along x from one of its corners crosses that one an odd
// number of times, and the two do not meet. A ray that runs through an edge or a corner is taken as
// moved by infinitely little (H. Edelsbrunner, E. P. Muecke, Simulation of simplicity, 1990), so
// that every crossing counts once.
#include "spatial/shell_nesting.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <span>

#include "base/predicates.h"
#include "spatial/shell_trees.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

// The six floats are all finite for a box that is worth a look; shells with a coordinate that is
// not finite get an empty one.
Box3f box_of_shell(const TriMesh& mesh, std::span<const std::uint32_t> faces) {
    Box3f box;
    for (const std::uint32_t face : faces) {
        const Box3f of_face = face_box(mesh, mesh.faces[face]);
        if (of_face.is_empty()) return {};
        box.widen(of_face.low);
        box.widen(of_face.high);
    }
    return box;
}

bool lies_within(const Box3f& inner, const Box3f& outer) {
    return outer.low.x <= inner.low.x && outer.low.y <= inner.low.y && outer.low.z <= inner.low.z &&
           inner.high.x <= outer.high.x && inner.high.y <= outer.high.y &&
           inner.high.z <= outer.high.z;
}

// Relative to a point near the shell, so that a small shell far out keeps its digits.
double volume_about(const TriMesh& mesh, std::span<const std::uint32_t> faces, Vec3d origin) {
    double sum = 0;
    for (const std::uint32_t face : faces) {
        const Triangle t = triangle_of(mesh, mesh.faces[face]);
        sum += dot(t[0] - origin, cross(t[1] - origin, t[2] - origin));
    }
    return sum / 6.0;
}

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

enum class Place { Inside, Outside, AtCorner, OnSurface };

class NestingFinder {
public:
    NestingFinder(const TriMesh& mesh, const EdgeMates& mates)
        : mesh_(mesh),
          mates_(mates),
          trees_(mesh, Sampling::AllFaces),
          boxes_(mesh.shells.size()),
          result_(mesh.shells.size()) {}

    std::vector<ShellNesting> run() {
        for (std::uint32_t shell = 0; shell < boxes_.size(); ++shell) examine(shell);
        find_surrounding();
        count_depths();
        for (const Pair& pair : pairs_) prefer_innermost(pair);
        return std::move(result_);
    }

private:
    struct Pair {
        std::uint32_t inner, outer;
    };

    void examine(std::uint32_t shell) {
        const std::span<const std::uint32_t> faces = mesh_.shells[shell];
        boxes_[shell] = box_of_shell(mesh_, faces);
        if (boxes_[shell].is_empty()) return;
        ShellNesting& nesting = result_[shell];
        nesting.is_closed = true;
        nesting.is_oriented = true;
        for (const std::uint32_t face : faces) {
            for (std::size_t edge = 0; edge < 3; ++edge) examine_edge(face, edge, nesting);
        }
        nesting.is_oriented = nesting.is_oriented && nesting.is_closed;
        if (nesting.is_closed) {
            nesting.signed_volume = volume_about(mesh_, faces, to_double(boxes_[shell].low));
        }
    }

    void examine_edge(std::uint32_t face, std::size_t edge, ShellNesting& nesting) const {
        switch (mates_.kind(face, edge)) {
            case EdgeMates::Kind::Open:
                nesting.is_closed = false;
                break;
            case EdgeMates::Kind::Manifold:
                if (mates_.is_same_direction(face, edge)) nesting.is_oriented = false;
                break;
            case EdgeMates::Kind::NonManifold:
                nesting.is_oriented = false;
                if (mates_.group(mates_.group_of(face, edge)).size() % 2 != 0) {
                    nesting.is_closed = false;
                }
                break;
        }
    }

    void find_surrounding() {
        Array<Box3f> closed_boxes = boxes_;
        for (std::size_t shell = 0; shell < boxes_.size(); ++shell) {
            if (!result_[shell].is_closed) closed_boxes[shell] = Box3f();
        }
        const FaceTree tree(closed_boxes);
        for (std::uint32_t inner = 0; inner < boxes_.size(); ++inner) {
            tree.visit_overlapping(boxes_[inner], [&](std::uint32_t outer) {
                if (outer != inner && lies_within(boxes_[inner], boxes_[outer]) &&
                    lies_in(inner, outer)) {
                    pairs_.push_back({inner, outer});
                }
                return false;
            });
        }
    }

    bool lies_in(std::uint32_t inner, std::uint32_t outer) {
        for (const std::uint32_t face : mesh_.shells[inner]) {
            for (std::size_t corner = 0; corner < 3; ++corner) {
                const Place place = locate(mesh_.corner_position(mesh_.faces[face], corner), outer);
                if (place == Place::AtCorner) continue;  // another corner will tell
                return place == Place::Inside && !shells_meet(inner, outer);
            }
        }
        return false;
    }

    Place locate(Vec3f position, std::uint32_t shell) {
        const Vec3d p = to_double(position);
        const Box3f ray{position, {std::numeric_limits<float>::max(), position.y, position.z}};
        Place place = Place::Outside;
        trees_[shell].visit_overlapping(ray, [&](std::uint32_t face) {
            const Triangle t = triangle_of(mesh_, mesh_.faces[face]);
            const int side = orient3d(t[0], t[1], t[2], p);
            if (side == 0) {
                if (!contains_in_plane(t, p)) return false;
                place = std::count(t.begin(), t.end(), p) != 0 ? Place::AtCorner : Place::OnSurface;
                return true;
            }
            if (!is_seen_inside(t, p)) return false;
            // The face is ahead when p lies on the side that its normal points away from along x.
            if (side == -orient2d(along_x(t[0]), along_x(t[1]), along_x(t[2]))) {
                place = place == Place::Inside ? Place::Outside : Place::Inside;
            }
            return false;
        });
        return place;
    }

    bool shells_meet(std::uint32_t a, std::uint32_t b) {
        const FaceTree& tree_a = trees_[a];
        return tree_a.visit_pairs(trees_[b], [this](std::uint32_t face_a, std::uint32_t face_b) {
            const Triangle ta = triangle_of(mesh_, mesh_.faces[face_a]);
            const Triangle tb = triangle_of(mesh_, mesh_.faces[face_b]);
            return has_area(ta) && has_area(tb) && meet_beyond_shared(ta, tb);
        });
    }

    void count_depths() {
        for (const Pair& pair : pairs_) ++result_[pair.inner].depth;
    }

    // The innermost is the one that lies in most others itself; of several (shells that cross each
    // other), the smallest.
    void prefer_innermost(const Pair& pair) {
        std::uint32_t& around = result_[pair.inner].around;
        if (around != ShellNesting::kNone) {
            const ShellNesting& best = result_[around];
            const ShellNesting& other = result_[pair.outer];
            if (other.depth < best.depth) return;
            const double size = std::abs(other.signed_volume);
            const double best_size = std::abs(best.signed_volume);
            if (other.depth == best.depth &&
                (size > best_size || (size == best_size && pair.outer > around))) {
                return;
            }
        }
        around = pair.outer;
    }

    const TriMesh& mesh_;
    const EdgeMates& mates_;
    ShellTrees trees_;
    Array<Box3f> boxes_;
    std::vector<ShellNesting> result_;
    std::vector<Pair> pairs_;
};

}  // namespace

std::vector<ShellNesting> classify_shells(TriMesh& mesh) {
    const EdgeMates mates(mesh);
    return classify_shells(mesh, mates);
}

std::vector<ShellNesting> classify_shells(const TriMesh& mesh, const EdgeMates& mates) {
    return NestingFinder(mesh, mates).run();
}

}  // namespace povmesh
