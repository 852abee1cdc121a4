// Greedy: of all turns of an edge and collapses of an edge onto one of its ends that leave fewer
// slivers, or as many and less flat ones, the one that turns faces least.
#include "design/mend_slivers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

#include "mesh/compact.h"
#include "mesh/edge_mates.h"
#include "remesh/half_edge_mesh.h"
#include "repair/degenerate.h"

namespace povmesh {
namespace {

using Triangle = std::array<Vec3d, 3>;

constexpr int kMostPasses = 12;
constexpr std::uint32_t kMostFaces = 32;  // around a vertex that may go
constexpr double kLeastCosine = 0.9;      // of what faces turn, about 25 degrees

Vec3f as_float(Vec3d p) {
    return {static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)};
}

bool is_sliver(const Triangle& t) {
    return has_degenerate_angle(as_float(t[0]), as_float(t[1]), as_float(t[2]));
}

// How high a triangle is over its longest edge, as a share of that.
double flatness(const Triangle& t) {
    double longest = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        const Vec3d edge = t[next_corner(i)] - t[i];
        longest = std::max(longest, dot(edge, edge));
    }
    return longest > 0 ? length(cross(t[1] - t[0], t[2] - t[0])) / longest : 0;
}

struct Quality {
    int slivers = 0;
    double flattest = 1;

    void add(const Triangle& t) {
        slivers += is_sliver(t) ? 1 : 0;
        flattest = std::min(flattest, flatness(t));
    }
    bool is_better_than(const Quality& other) const {
        if (slivers != other.slivers) return slivers < other.slivers;
        return slivers > 0 && flattest > 2 * other.flattest;
    }
};

struct Step {
    std::uint32_t edge = HalfEdgeMesh::kNone;
    bool is_flip = false;
    double cosine = kLeastCosine;  // of the face that turns most
};

class Mender {
public:
    explicit Mender(TriMesh& mesh) : surface_(mesh, EdgeMates(mesh)) {}

    bool mend() {
        bool is_changed = false;
        for (int pass = 0; pass < kMostPasses; ++pass) {
            bool any = false;
            for (std::size_t t = 0; t < surface_.triangles.size(); ++t) {
                if (!surface_.is_gone(t) && is_sliver(corners(t))) {
                    any = improve(t) || loosen(t) || any;
                }
            }
            if (!any) break;
            is_changed = true;
        }
        return is_changed;
    }

    std::size_t sliver_count() const {
        std::size_t count = 0;
        for (std::size_t t = 0; t < surface_.triangles.size(); ++t) {
            count += !surface_.is_gone(t) && is_sliver(corners(t)) ? 1 : 0;
        }
        return count;
    }

    TriMesh result() const {
        return surface_.plain_mesh([](std::size_t /*triangle*/) { return true; });
    }

private:
    Triangle corners(std::size_t t) const {
        const auto& v = surface_.triangles[t];
        return {surface_.position(v[0]), surface_.position(v[1]), surface_.position(v[2])};
    }

    static Vec3d normal_of(const Triangle& t) { return cross(t[1] - t[0], t[2] - t[0]); }
    static double cosine(Vec3d a, Vec3d b) {
        const double size = length(a) * length(b);
        return size > 0 ? dot(a, b) / size : -1;
    }

    // The cosine between the normals of a face before and after. The normal of a sliver says
    // nothing: what becomes of it must lie like one of the faces beside it.
    double turn(std::size_t t, const Triangle& after) const {
        if (is_sliver(after)) return 1;
        const Vec3d normal = normal_of(after);
        const Triangle before = corners(t);
        if (!is_sliver(before)) return cosine(normal_of(before), normal);
        double greatest = -1;
        for (std::uint32_t i = 0; i < 3; ++i) {
            const std::uint32_t o = surface_.opposites[3 * t + i];
            if (o == HalfEdgeMesh::kNone) continue;
            const Triangle beside = corners(o / 3);
            if (!is_sliver(beside))
                greatest = std::max(greatest, cosine(normal_of(beside), normal));
        }
        return greatest;
    }

    bool improve(std::size_t t) {
        Step best;
        for (std::uint32_t i = 0; i < 3; ++i) {
            const auto h = static_cast<std::uint32_t>(3 * t) + i;
            if (surface_.opposites[h] == HalfEdgeMesh::kNone) continue;
            consider_flip(h, best);
            const std::int32_t v = surface_.origin(h);
            if (surface_.valences[HalfEdgeMesh::index(v)] > kMostFaces) continue;
            surface_.around(v, [&](std::uint32_t g) {
                if (surface_.opposites[g] != HalfEdgeMesh::kNone) {
                    consider_collapse(surface_.opposites[g], best);
                }
            });
        }
        if (best.edge == HalfEdgeMesh::kNone) return false;
        if (best.is_flip) {
            surface_.flip(best.edge);
        } else {
            surface_.collapse(best.edge, surface_.position(surface_.origin(best.edge)));
        }
        return true;
    }

    // Turns spokes of the sliver's vertices away, as long as that makes no sliver, until one of
    // these vertices can go.
    bool loosen(std::size_t t) {
        const std::array<std::int32_t, 3> vertices = surface_.triangles[t];
        for (const std::int32_t v : vertices) {
            while (surface_.valences[HalfEdgeMesh::index(v)] <= kMostFaces && turn_a_spoke(v)) {
                if (surface_.is_gone(t) || !is_sliver(corners(t)) || improve(t)) return true;
            }
        }
        return false;
    }

    bool turn_a_spoke(std::int32_t v) {
        std::uint32_t found = HalfEdgeMesh::kNone;
        surface_.around(v, [&](std::uint32_t h) {
            if (found != HalfEdgeMesh::kNone || !surface_.can_flip(h)) return;
            const Flip flip = flip_of(h);
            if (flip.before.slivers == 0 && flip.after.slivers == 0 &&
                flip.cosine >= kLeastCosine) {
                found = h;
            }
        });
        if (found == HalfEdgeMesh::kNone) return false;
        surface_.flip(found);
        return true;
    }

    struct Flip {
        Quality before, after;
        double cosine = 1;
    };

    Flip flip_of(std::uint32_t h) const {
        const std::uint32_t o = surface_.opposites[h];
        const Vec3d a = surface_.position(surface_.origin(h));
        const Vec3d b = surface_.position(surface_.target(h));
        const Vec3d c = surface_.position(surface_.apex(h));
        const Vec3d d = surface_.position(surface_.apex(o));
        const Triangle first = {a, d, c};
        const Triangle second = {d, b, c};
        Flip flip;
        flip.before.add(corners(h / 3));
        flip.before.add(corners(o / 3));
        flip.after.add(first);
        flip.after.add(second);
        for (const std::size_t old : {h / 3, o / 3}) {
            flip.cosine = std::min({flip.cosine, turn(old, first), turn(old, second)});
        }
        return flip;
    }

    void consider_flip(std::uint32_t h, Step& best) const {
        if (!surface_.can_flip(h)) return;
        const Flip flip = flip_of(h);
        if (flip.after.is_better_than(flip.before)) take({h, true, flip.cosine}, best);
    }

    // Of the target onto the origin.
    void consider_collapse(std::uint32_t h, Step& best) const {
        if (!surface_.can_collapse(h)) return;
        const std::int32_t gone = surface_.target(h);
        const Vec3d place = surface_.position(surface_.origin(h));
        Quality before;
        Quality after;
        double least = 1;
        before.add(corners(h / 3));
        before.add(corners(surface_.opposites[h] / 3));
        surface_.around(gone, [&](std::uint32_t g) {
            const std::size_t t = g / 3;
            if (t == h / 3 || t == surface_.opposites[h] / 3) return;
            const Triangle old = corners(t);
            Triangle moved = old;
            moved[g % 3] = place;
            before.add(old);
            after.add(moved);
            least = std::min(least, turn(t, moved));
        });
        if (after.is_better_than(before)) take({h, false, least}, best);
    }

    static void take(const Step& step, Step& best) {
        if (step.cosine > best.cosine) best = step;
    }

    HalfEdgeMesh surface_;
};

}  // namespace

std::size_t mend_slivers(TriMesh& mesh) {
    const bool any = std::any_of(mesh.faces.begin(), mesh.faces.end(), [&](const Face& face) {
        return face.deleted == 0 && is_degenerate(mesh, face);
    });
    if (!any) return 0;
    Mender mender(mesh);
    if (mender.mend()) {
        mesh = mender.result();
        compact(mesh);
    }
    return mender.sliver_count();
}

}  // namespace povmesh
