// Long edges are first turned in planes as a Delaunay triangulation has them (C. Lawson, Software
// for C1 surface interpolation, 1977), then divided, the longest first.
#include "remesh/base_surface.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <queue>
#include <utility>
#include <vector>

#include "base/convert.h"
#include "base/poll.h"
#include "remesh/agreeing_windings.h"
#include "remesh/features.h"
#include "remesh/patch_distance.h"

namespace povmesh {
namespace {

// Edges longer than this many times the length are divided.
constexpr double kBaseEdge = 2;

// How far all turns of edges together may move a place, as a share of the length.
constexpr double kMostMovement = 1e-3;

// Passes of turning; what is turned at all mostly is in three.
constexpr int kMostPasses = 10;

// Angles that differ by less (by the sine of their sum) are alike.
constexpr double kLeastGain = 1e-6;

double squared(double x) {
    return x * x;
}

class BaseMaker {
public:
    BaseMaker(const TriMesh& mesh, const EdgeMates& mates, double feature_angle,
              std::span<const float> face_lengths)
        : surface_(mesh, mates), face_lengths_(face_lengths) {
        for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
            poll_at(f);
            if (mesh.faces[f].deleted == 0) owners_.push_back(static_cast<std::uint32_t>(f));
        }
        Array<float> lengths(owners_.size());
        for (std::size_t t = 0; t < lengths.size(); ++t) lengths[t] = face_lengths[owners_[t]];
        mark_features(surface_, mesh, feature_angle, lengths);
        movement_.assign(owners_.size(), 0);
    }

    BaseSurface run() {
        if (turn_long_edges()) divide_long_edges();
        const Array<std::uint32_t> order = surface_.order_in_space().triangles;
        Array<std::uint32_t> owners(order.size());
        for (std::size_t t = 0; t < order.size(); ++t) owners[t] = owners_[order[t]];
        return {std::move(surface_), std::move(owners), {}};
    }

private:
    static constexpr std::uint32_t kNone = HalfEdgeMesh::kNone;

    struct LongEdge {  // the longest comes first, so that there is an end
        double squared;
        std::uint32_t half_edge;
        bool operator<(const LongEdge& other) const {
            return squared != other.squared ? squared < other.squared : half_edge > other.half_edge;
        }
    };

    double wanted(std::size_t t) const { return static_cast<double>(face_lengths_[owners_[t]]); }

    double limit(std::uint32_t h) const {
        const std::uint32_t g = surface_.opposites[h];
        const double l = wanted(h / 3);
        return kBaseEdge * (g == kNone ? l : std::min(l, wanted(g / 3)));
    }

    bool is_longer_than_limit(std::uint32_t h) const {
        return surface_.squared_length(h) > squared(limit(h));
    }

    bool is_long(std::uint32_t h) const {
        return surface_.is_locked[h] == 0 && is_longer_than_limit(h);
    }

    // -------------------------------------------------------------------------------- turning

    // False when there are no long edges.
    bool turn_long_edges() {
        bool any_long = false;
        std::vector<std::uint32_t> waiting;
        for (std::uint32_t h = 0; h < surface_.opposites.size(); ++h) {
            if (!is_longer_than_limit(h)) continue;
            any_long = true;
            if (may_turn(h)) waiting.push_back(h);
        }
        for (int pass = 0; pass < kMostPasses && !waiting.empty(); ++pass) {
            std::vector<std::uint32_t> next;
            for (const std::uint32_t h : waiting) {
                if (!try_turn(h)) continue;
                for (const std::uint32_t e : {h, surface_.opposites[h]}) {
                    for (const std::uint32_t side :
                         {HalfEdgeMesh::next(e), HalfEdgeMesh::previous(e)}) {
                        if (is_longer_than_limit(side)) next.push_back(side);
                    }
                }
            }
            waiting.swap(next);
        }
        return any_long;
    }

    bool may_turn(std::uint32_t h) const {
        const std::uint32_t g = surface_.opposites[h];
        return g != kNone && surface_.features[h] == 0 && wanted(h / 3) == wanted(g / 3);
    }

    // Where the angles opposite the edge are more than two right ones together.
    bool try_turn(std::uint32_t h) {
        if (!may_turn(h)) return false;
        const std::uint32_t g = surface_.opposites[h];
        const Vec3d a = surface_.position(surface_.origin(h));
        const Vec3d b = surface_.position(surface_.target(h));
        const Vec3d c = surface_.position(surface_.apex(h));
        const Vec3d d = surface_.position(surface_.apex(g));
        const double cosine_c = dot(a - c, b - c);
        const double cosine_d = dot(a - d, b - d);
        const double sine_c = length(cross(a - c, b - c));
        const double sine_d = length(cross(a - d, b - d));
        const double scale = length(a - c) * length(b - c) * length(a - d) * length(b - d);
        if (!(sine_c * cosine_d + cosine_c * sine_d < -kLeastGain * scale)) return false;
        const double movement =
            std::max(movement_[h / 3], movement_[g / 3]) + segment_distance(a, b, c, d);
        if (!(movement <= kMostMovement * wanted(h / 3)) || !surface_.can_flip(h)) return false;
        const Vec3d normal = surface_.normal(h / 3) + surface_.normal(g / 3);
        if (turns(normal, cross(d - a, c - a)) || turns(normal, cross(c - b, d - b))) return false;
        surface_.flip(h);
        movement_[h / 3] = movement_[g / 3] = movement;
        return true;
    }

    // ------------------------------------------------------------------------------- dividing

    void divide_long_edges() {
        std::priority_queue<LongEdge> waiting;
        double pieces = 0;
        double area = 0;
        for (std::uint32_t h = 0; h < surface_.opposites.size(); ++h) {
            if (h % 3 == 0) area += length(surface_.normal(h / 3)) / squared(wanted(h / 3));
            const std::uint32_t g = surface_.opposites[h];
            if ((g != kNone && g < h) || !is_long(h)) continue;
            pieces += std::sqrt(surface_.squared_length(h)) / limit(h);
            waiting.push({surface_.squared_length(h), h});
        }
        // Of a multitude of needles most pieces would be there to be collapsed again.
        const auto count = static_cast<double>(surface_.triangles.size());
        if (pieces > 2 * (area + count)) return;
        const double most = count + 8 * (pieces + area);
        while (!waiting.empty() && static_cast<double>(surface_.triangles.size()) < most) {
            const LongEdge edge = waiting.top();
            waiting.pop();
            const bool is_new = surface_.squared_length(edge.half_edge) == edge.squared;
            const std::uint32_t h = edge.half_edge;
            if (!is_new || !is_long(h) || is_beside_locked(h)) continue;
            if (is_beside_locked(surface_.opposites[h])) continue;
            split(h, waiting);
        }
    }

    // Beside a long edge that may not be divided there would be no end.
    bool is_beside_locked(std::uint32_t h) const {
        if (h == kNone) return false;
        for (const std::uint32_t e : {HalfEdgeMesh::next(h), HalfEdgeMesh::previous(h)}) {
            if (surface_.is_locked[e] != 0 && is_longer_than_limit(e)) return true;
        }
        return false;
    }

    // In equal parts, so that faces side by side are divided alike. At a place that floats hold,
    // so that searches find the same surface.
    void split(std::uint32_t h, std::priority_queue<LongEdge>& waiting) {
        const Vec3d a = surface_.position(surface_.origin(h));
        const Vec3d b = surface_.position(surface_.target(h));
        const double count = std::ceil(length(b - a) / limit(h));
        const Vec3d exact = a + (b - a) * (std::floor(count / 2) / count);
        const Vec3d place = to_double(
            Vec3f{narrow_to_float(exact.x), narrow_to_float(exact.y), narrow_to_float(exact.z)});
        if (place == a || place == b) return;
        const std::uint32_t g = surface_.opposites[h];
        const std::uint32_t owner = owners_[h / 3];
        const std::uint32_t other = g == kNone ? owner : owners_[g / 3];
        const std::int32_t m = surface_.split(h, place);
        owners_.resize(surface_.triangles.size());
        movement_.resize(surface_.triangles.size());
        const std::uint32_t from_m = surface_.starts[static_cast<std::size_t>(m)];
        owners_[from_m / 3] = owner;
        movement_[from_m / 3] = movement_[h / 3];
        if (g != kNone) {
            owners_[surface_.opposites[h] / 3] = other;
            movement_[surface_.opposites[h] / 3] = movement_[g / 3];
        }
        // The diagonal of a strip gets shorter this way, and is not divided, too.
        std::array<std::uint32_t, 4> beyond;
        std::size_t count_beyond = 0;
        surface_.around(m,
                        [&](std::uint32_t e) { beyond[count_beyond++] = HalfEdgeMesh::next(e); });
        for (std::size_t i = 0; i < count_beyond; ++i) {
            if (is_longer_than_limit(beyond[i])) try_turn(beyond[i]);
        }
        surface_.around(m, [&](std::uint32_t e) {
            for (const std::uint32_t side : {e, HalfEdgeMesh::next(e), HalfEdgeMesh::previous(e)}) {
                if (is_long(side)) waiting.push({surface_.squared_length(side), side});
            }
        });
    }

    HalfEdgeMesh surface_;
    Array<std::uint32_t> owners_;
    Array<double> movement_;  // by triangle, of the turns
    std::span<const float> face_lengths_;
};

}  // namespace

BaseSurface make_base_surface(TriMesh& mesh, double feature_angle,
                              std::span<const float> face_lengths) {
    std::optional<EdgeMates> mates(mesh);
    Array<std::uint32_t> turned = make_windings_agree(mesh, *mates);
    if (!turned.empty()) mates.emplace(mesh);
    BaseSurface base = BaseMaker(mesh, *mates, feature_angle, face_lengths).run();
    base.turned = std::move(turned);
    return base;
}

}  // namespace povmesh
