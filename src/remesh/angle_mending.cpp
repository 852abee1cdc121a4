// Greedy local search: of flip, collapse and move the first that makes the smallest angle around it
// larger, ten passes at most.
#include "remesh/angle_mending.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace povmesh {
namespace {

using Triangle = std::array<Vec3d, 3>;

// The larger it is, the smaller the smallest angle: its cosine. 1 for a triangle without area.
double worst_cosine(const Triangle& t) {
    double worst = -1;
    for (std::size_t i = 0; i < 3; ++i) {
        const Vec3d a = t[(i + 1) % 3] - t[i];
        const Vec3d b = t[(i + 2) % 3] - t[i];
        const double lengths = std::sqrt(dot(a, a) * dot(b, b));
        if (!(lengths > 0)) return 1;
        worst = std::max(worst, dot(a, b) / lengths);
    }
    return worst;
}

Vec3d normal_of(const Triangle& t) {
    return cross(t[1] - t[0], t[2] - t[0]);
}

// A gain below this is none: else two steps could undo each other for ever.
constexpr double kLeastGain = 1e-3;

class Mender {
public:
    Mender(HalfEdgeMesh& surface, const AngleMending& options)
        : surface_(surface),
          options_(options),
          limit_(std::cos(options.least_angle * std::numbers::pi / 180)) {}

    void run() {
        std::vector<std::uint32_t> bad;
        for (int pass = 0; pass < options_.passes; ++pass) {
            bad.clear();
            for (std::uint32_t t = 0; t < surface_.triangles.size(); ++t) {
                if (is_bad(t)) bad.push_back(t);
            }
            bool any = false;
            for (const std::uint32_t t : bad) {
                if (is_bad(t) && mend(t)) any = true;
            }
            if (!any) return;
        }
    }

private:
    using Kind = HalfEdgeMesh::Kind;

    static std::size_t index(std::int32_t v) { return static_cast<std::size_t>(v); }
    Vec3d at(std::int32_t v) const { return surface_.position(v); }
    Kind kind(std::int32_t v) const { return static_cast<Kind>(surface_.kinds[index(v)]); }

    // Each of its triangles would look through all the others.
    bool has_high_valence(std::int32_t v) const {
        return surface_.valences[index(v)] > HalfEdgeMesh::kMaxValence;
    }

    Triangle triangle(std::uint32_t t) const {
        const std::array<std::int32_t, 3>& v = surface_.triangles[t];
        return {at(v[0]), at(v[1]), at(v[2])};
    }

    bool is_bad(std::uint32_t t) const {
        return !surface_.is_gone(t) && is_active(t) && worst_cosine(triangle(t)) > limit_;
    }

    bool is_active(std::uint32_t t) const {
        if (options_.is_active.empty()) return true;
        const std::array<std::int32_t, 3>& vertices = surface_.triangles[t];
        return std::all_of(vertices.begin(), vertices.end(),
                           [this](std::int32_t v) { return options_.is_active[index(v)] != 0; });
    }

    bool mend(std::uint32_t t) {
        for (std::uint32_t h = 3 * t; h < 3 * t + 3; ++h) {
            if (try_flip(h)) return true;
        }
        // The shortest edge first.
        std::array<std::uint32_t, 3> edges = {3 * t, 3 * t + 1, 3 * t + 2};
        std::sort(edges.begin(), edges.end(), [&](std::uint32_t x, std::uint32_t y) {
            return surface_.squared_length(x) < surface_.squared_length(y);
        });
        for (const std::uint32_t h : edges) {
            if (try_collapse(h)) return true;
            const std::uint32_t g = surface_.opposites[h];
            if (g != HalfEdgeMesh::kNone && try_collapse(g)) return true;
        }
        for (const std::int32_t v : surface_.triangles[t]) {
            if (try_move(v)) return true;
        }
        return false;
    }

    bool try_flip(std::uint32_t h) {
        if (!surface_.can_flip(h)) return false;
        const std::uint32_t g = surface_.opposites[h];
        const Vec3d c = at(surface_.apex(h));
        const Vec3d d = at(surface_.apex(g));
        const Triangle first = {d, c, at(surface_.origin(h))};
        const Triangle second = {c, d, at(surface_.target(h))};
        const double before =
            std::max(worst_cosine(triangle(h / 3)), worst_cosine(triangle(g / 3)));
        const double after = std::max(worst_cosine(first), worst_cosine(second));
        if (!(after < before - kLeastGain)) return false;
        const Vec3d old = surface_.normal(h / 3) + surface_.normal(g / 3);
        if (turns(old, normal_of(first)) || turns(old, normal_of(second))) return false;
        surface_.flip(h);
        return true;
    }

    // The mean direction of the faces at a vertex, by area.
    Vec3d normal_at(std::int32_t v) const {
        Vec3d sum;
        surface_.around(v, [&](std::uint32_t h) { sum = sum + surface_.normal(h / 3); });
        return sum;
    }

    // The worst triangle around v, with v at `place`; those that hold `other` are left out. 2 when
    // one would turn or an edge get too long.
    double worst_around(std::int32_t v, std::int32_t other, Vec3d place, Vec3d normal) const {
        double worst = -1;
        surface_.around(v, [&](std::uint32_t h) {
            const std::int32_t b = surface_.target(h);
            const std::int32_t c = surface_.apex(h);
            if (b == other || c == other) return;
            const Triangle moved = {place, at(b), at(c)};
            const Vec3d away = place - at(b);
            const double longest = options_.longest_edge(b);
            if (turns(normal, normal_of(moved)) || dot(away, away) > longest * longest) worst = 2;
            worst = std::max(worst, worst_cosine(moved));
        });
        return worst;
    }

    bool try_collapse(std::uint32_t h) {
        const std::int32_t a = surface_.origin(h);
        const std::int32_t b = surface_.target(h);
        const bool is_line = surface_.features[h] != 0;
        if (kind(b) > kind(a) || kind(b) >= Kind::Fixed || (kind(b) == Kind::Line && !is_line)) {
            return false;
        }
        if (!surface_.can_collapse(h) || (is_line && !options_.keeps_line(h))) return false;
        Vec3d place = at(a);
        if (kind(b) == Kind::Free && kind(a) == Kind::Free)
            place = options_.project(a, (at(a) + at(b)) * 0.5);
        const Vec3d normal = normal_at(a) + normal_at(b);
        const double before = std::max(worst_around(a, -1, at(a), normal_at(a)),
                                       worst_around(b, -1, at(b), normal_at(b)));
        const double after =
            std::max(worst_around(a, b, place, normal), worst_around(b, a, place, normal));
        if (!(after < std::min(before, 1.0) - kLeastGain)) return false;
        surface_.collapse(h, place);
        return true;
    }

    // Towards the middle of the neighbours, by halves.
    bool try_move(std::int32_t v) {
        if (kind(v) != Kind::Free || has_high_valence(v)) return false;
        Vec3d sum;
        int count = 0;
        surface_.around(v, [&](std::uint32_t h) {
            sum = sum + at(surface_.target(h));
            ++count;
        });
        const Vec3d normal = normal_at(v);
        const Vec3d p = at(v);
        const double before = std::min(worst_around(v, -1, p, normal), 1.0);
        double share = 1;
        for (int step = 0; step < 4; ++step, share *= 0.5) {
            const Vec3d place = options_.project(v, p + (sum / count - p) * share);
            if (worst_around(v, -1, place, normal) < before - kLeastGain) {
                surface_.positions[index(v)] = place;
                return true;
            }
        }
        return false;
    }

    HalfEdgeMesh& surface_;
    const AngleMending& options_;
    double limit_;
};

}  // namespace

void mend_angles(HalfEdgeMesh& surface, const AngleMending& options) {
    Mender(surface, options).run();
}

}  // namespace povmesh
