// Local mending of needles and caps by edge collapses, flips and splits (M. Botsch and L. Kobbelt,
// A robust procedure to eliminate degenerate faces from triangle meshes, VMV 2001, tell the two
// apart), one triangle after another from a stack.
//
// Every step leaves fewer slivers, or as many and fewer bad triangles, so that there is an end.
//
// How far the surface has moved is kept for each triangle: a step that replaces triangles by others
// and moves no point by more than x leaves these with the greatest movement among the former ones
// plus x. That sum is far above the truth where steps lie side by side, and nothing bounds a step
// well where the surface is folded or has faces without area. When no step is left that the sums
// allow, the original itself is asked about those for slivers.
#include "remesh/revise.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "base/convert.h"
#include "base/parallel.h"
#include "base/poll.h"
#include "mesh/bounds.h"
#include "mesh/compact.h"
#include "mesh/edge_mates.h"
#include "remesh/carry_attributes.h"
#include "remesh/crossing_places.h"
#include "remesh/half_edge_mesh.h"
#include "remesh/original_surface.h"
#include "remesh/patch_distance.h"
#include "remesh/triangle_shape.h"

namespace povmesh {
namespace {

using Triangle = std::array<Vec3d, 3>;

// Steps for the sake of a triangle that is no sliver turn no other triangle by more than this from
// where it was at first. Without that, the many long triangles of a fine cylinder, which are
// needles as they have to be, would merge until the round is an edged one.
constexpr double kLeastCosine = 0.99619469809174555;  // of 5 degrees

// Movements that differ by less than this share of the bound are alike.
constexpr double kAlike = 0.01;

// Around an edge or a patch, as many triangles are looked at beside it when the original is asked
// how far it is.
constexpr std::size_t kMostAround = 128;

// Passes in which a sliver is asked about.
constexpr std::uint8_t kMostAsks = 1;

// For asking the original, in distances of points from triangles, however many slivers there are.
constexpr std::size_t kLeastEffort = 5'000'000;
constexpr std::size_t kEffortPerTriangle = 4;

// Those that failed are tried again after others have changed; beyond a few times nothing comes of
// it.
constexpr int kMostPasses = 8;

// Where steps have made faces cross all is done again, without those there: within a distance that
// is twice as large each time, as a share of how far the surface may move. When the last take has
// crossings, too, the mesh stays as it is.
constexpr double kFirstMargin = 0.05;
constexpr int kMostTakes = 8;

Triangle corners_of(const TriMesh& mesh, const Face& face) {
    return {to_double(mesh.corner_position(face, 0)), to_double(mesh.corner_position(face, 1)),
            to_double(mesh.corner_position(face, 2))};
}

Vec3d normal_of(const Triangle& t) {
    return cross(t[1] - t[0], t[2] - t[0]);
}

// What is wrong with a few triangles, slivers before all else.
struct Wrong {
    int slivers = 0;
    int bad = 0;

    void add(const TriangleShape& shape) {
        slivers += shape.is_sliver ? 1 : 0;
        bad += shape.is_bad() ? 1 : 0;
    }
    friend bool operator<(const Wrong& a, const Wrong& b) {
        return std::tie(a.slivers, a.bad) < std::tie(b.slivers, b.bad);
    }
};

class Reviser {
public:
    /// No triangle in the places held is a reason to do something.
    Reviser(TriMesh& mesh, double most, const FaceTree& held)
        : mesh_(mesh), surface_(mesh, EdgeMates(mesh)), held_(held), most_(most) {
        for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
            poll_at(f);
            if (mesh.faces[f].deleted == 0) faces_.push_back(static_cast<std::uint32_t>(f));
        }
        original_count_ = faces_.size();
        movement_.assign(original_count_, 0);
        states_.assign(original_count_, Same);
        asks_.assign(original_count_, 0);
        for (std::uint32_t h = 0; h < surface_.opposites.size(); ++h) {
            if (surface_.opposites[h] != HalfEdgeMesh::kNone || surface_.is_locked[h] != 0)
                continue;
            for (const std::int32_t v : {surface_.origin(h), surface_.target(h)}) {
                std::uint8_t& kind = surface_.kinds[index(v)];
                if (kind == HalfEdgeMesh::Free) kind = HalfEdgeMesh::Line;
            }
        }
    }

    ReviseReport run() {
        for (int pass = 0; pass < kMostPasses; ++pass) {
            std::vector<std::uint32_t> waiting = bad_triangles();
            bool any = false;
            while (!waiting.empty()) {
                const std::uint32_t t = waiting.back();
                waiting.pop_back();
                if (surface_.is_gone(t) || !mend(t)) continue;
                any = true;
                // The first of them is looked at first, as it would have been.
                for (auto it = touched_.rbegin(); it != touched_.rend(); ++it) {
                    if (!surface_.is_gone(*it) && shape(*it).is_bad()) waiting.push_back(*it);
                }
            }
            if (any) continue;
            if (asks_original_) break;
            asks_original_ = true;
        }
        return report_;
    }

    bool has_changed() const { return report_.collapses + report_.flips + report_.splits != 0; }

    /// Where faces cross now, and did not.
    std::vector<CrossingPlace> new_crossings() const {
        Array<std::uint8_t> changed;
        for (std::size_t t = 0; t < surface_.triangles.size(); ++t) {
            if (!surface_.is_gone(t)) changed.push_back(states_[t] != Same ? 1 : 0);
        }
        const TriMesh made = surface_.plain_mesh([](std::size_t) { return true; });
        return new_crossing_places(mesh_, made, changed);
    }

    void store() {
        const std::size_t old_count = mesh_.faces.size();
        TriMesh changed = changed_faces();
        carry_attributes(mesh_, nullptr, changed);
        mesh_.vertices = changed.vertices;
        for (std::size_t t = 0; t < original_count_; ++t) {
            Face& face = mesh_.faces[faces_[t]];
            if (surface_.is_gone(t))
                face.deleted = 1;
            else
                face.vertex = surface_.triangles[t];
        }
        const auto uv_count = static_cast<std::int32_t>(mesh_.texture_coordinates.size());
        for (TextureCoordinate& record : changed.texture_coordinates) {
            record.index += uv_count;
            mesh_.texture_coordinates.push_back(record);
        }
        std::size_t place = 0;
        mesh_.faces.resize(old_count);
        for (std::size_t t = 0; t < surface_.triangles.size(); ++t) {
            if (surface_.is_gone(t) || states_[t] == Same) continue;
            Face face = changed.faces[place++];
            for (std::int32_t& uv : face.uv) uv += uv >= 0 ? uv_count : 0;
            if (t < original_count_)
                mesh_.faces[faces_[t]] = face;
            else
                mesh_.faces.push_back(face);
        }
        mesh_.use_table.clear();
        mesh_.shells.clear();
        compact(mesh_);
    }

private:
    // A new triangle has the number of one that is gone, or a further one.
    enum State : std::uint8_t { Same, Changed, New };

    using Kind = HalfEdgeMesh::Kind;
    static constexpr std::uint32_t kNone = HalfEdgeMesh::kNone;

    static std::size_t index(std::int32_t v) { return static_cast<std::size_t>(v); }
    Vec3d at(std::int32_t v) const { return surface_.position(v); }
    Kind kind(std::int32_t v) const { return static_cast<Kind>(surface_.kinds[index(v)]); }

    Triangle corners(std::uint32_t t) const {
        const std::array<std::int32_t, 3>& v = surface_.triangles[t];
        return {at(v[0]), at(v[1]), at(v[2])};
    }
    TriangleShape shape(std::uint32_t t) const { return shape_of(corners(t)); }

    // In the order in which they come off the end: slivers first, and the lowest number.
    std::vector<std::uint32_t> bad_triangles() const {
        Array<std::uint8_t> marks(surface_.triangles.size());
        parallel_for(marks.size(), [&](std::size_t t) {
            if (surface_.is_gone(t)) return;
            const TriangleShape found = shape(static_cast<std::uint32_t>(t));
            marks[t] = static_cast<std::uint8_t>(found.is_sliver ? 2 : found.is_bad() ? 1 : 0);
        });
        std::vector<std::uint32_t> bad;
        for (const int mark : {1, 2}) {
            for (std::size_t t = marks.size(); t-- > 0;) {
                if (marks[t] == mark) bad.push_back(static_cast<std::uint32_t>(t));
            }
        }
        return bad;
    }

    bool is_held(std::uint32_t t) const {
        if (held_.nodes().empty()) return false;
        Box3d box;
        for (const Vec3d p : corners(t)) box.widen(p);
        return overlaps(held_, outward(box));
    }

    // One step, if there is one.
    bool mend(std::uint32_t t) {
        const TriangleShape found = shape(t);
        if (!found.is_bad() || is_held(t)) return false;
        std::array<std::uint32_t, 3> edges = {3 * t, 3 * t + 1, 3 * t + 2};
        std::sort(edges.begin(), edges.end(), [&](std::uint32_t x, std::uint32_t y) {
            const double a = surface_.squared_length(x);
            const double b = surface_.squared_length(y);
            return a != b ? a < b : x < y;
        });
        is_for_sliver_ = found.is_sliver;
        may_ask_ = false;
        if (found.is_needle && try_collapse_edge(edges[0])) return true;
        if (found.is_cap) {
            if (try_flip(edges[2], false) || try_split(edges[2]) || try_flip(edges[2], true) ||
                try_open_cap(edges[2])) {
                return true;
            }
        }
        if (!found.is_sliver) return false;
        for (const std::uint32_t h : edges) {
            if (try_collapse_edge(h) || try_flip(h, true)) return true;
        }
        if (!asks_original_ || asks_[t] == kMostAsks) return false;
        ++asks_[t];
        may_ask_ = true;
        return std::any_of(edges.begin(), edges.end(), [&](std::uint32_t h) {
            return try_collapse_edge(h) || try_flip(h, true);
        });
    }

    // The other half is for slivers, which are more of a nuisance.
    bool is_in_bounds(double movement) const {
        return movement <= (is_for_sliver_ ? most_ : most_ / 2);
    }

    // ------------------------------------------------------------------ what may not turn over

    // Where a triangle looked at first; a new one, or a sliver, which has no direction of its own,
    // looks where its neighbours do. Nothing when these have none either.
    Vec3d direction(std::uint32_t t) const {
        if (states_[t] != New) {
            const Triangle first = corners_of(mesh_, mesh_.faces[faces_[t]]);
            if (!shape_of(first).is_sliver) return normal_of(first);
        }
        if (!shape(t).is_sliver) return normal_of(corners(t));
        Vec3d sum;
        for (std::uint32_t h = 3 * t; h < 3 * t + 3; ++h) {
            const std::uint32_t g = surface_.opposites[h];
            if (g != kNone && !shape(g / 3).is_sliver) sum = sum + normal_of(corners(g / 3));
        }
        return sum;
    }

    // True when a triangle that looked in a direction turns too far. Slivers may look anywhere.
    bool is_turned(Vec3d before, const Triangle& after) const {
        if (dot(before, before) == 0 || shape_of(after).is_sliver) return false;
        const Vec3d normal = normal_of(after);
        if (is_for_sliver_) return turns(before, normal);
        const double d = dot(before, normal);
        return !(d > 0 &&
                 d * d >= kLeastCosine * kLeastCosine * dot(before, before) * dot(normal, normal));
    }

    // ------------------------------------------------------------------ flips and splits

    // With `may_dent`, the triangle of h, a cap so thin that it hardly shows, may turn.
    bool try_flip(std::uint32_t h, bool may_dent) {
        if (!surface_.can_flip(h)) return false;
        const std::uint32_t g = surface_.opposites[h];
        const Vec3d a = at(surface_.origin(h));
        const Vec3d b = at(surface_.target(h));
        const Vec3d c = at(surface_.apex(h));
        const Vec3d d = at(surface_.apex(g));
        const Triangle first = {d, c, a};
        const Triangle second = {c, d, b};
        Wrong before;
        Wrong after;
        for (const std::uint32_t t : {h / 3, g / 3}) before.add(shape(t));
        for (const Triangle& t : {first, second}) after.add(shape_of(t));
        if (!(after < before)) return false;
        for (const std::uint32_t t : {h / 3, g / 3}) {
            if (may_dent && t == h / 3) continue;
            const Vec3d old = direction(t);
            if (is_turned(old, first) || is_turned(old, second)) return false;
        }
        const double so_far = std::max(movement_[h / 3], movement_[g / 3]);
        double movement = so_far + segment_distance(a, b, c, d);
        std::vector<std::uint32_t> around;
        if (!is_in_bounds(movement) && may_ask_) {
            before_ = {corners(h / 3), corners(g / 3)};
            after_ = {first, second};
            around = triangles_around(
                {surface_.origin(h), surface_.target(h), surface_.apex(h), surface_.apex(g)},
                {h / 3, g / 3});
            movement = distance_from_original(around, so_far);
        }
        if (!is_in_bounds(movement)) return false;
        raise(around, movement);
        surface_.flip(h);
        touched_.clear();
        for (const std::uint32_t t : {h / 3, g / 3}) note(t, movement);
        if (may_dent) states_[h / 3] = New;
        add_neighbours();
        ++report_.flips;
        return true;
    }

    static Vec3d rounded(Vec3d p) {
        return to_double(Vec3f{narrow_to_float(p.x), narrow_to_float(p.y), narrow_to_float(p.z)});
    }

    // The foot of the apex on the edge.
    Vec3d foot(std::uint32_t h) const {
        const Vec3d a = at(surface_.origin(h));
        const Vec3d along = at(surface_.target(h)) - a;
        const double s = dot(at(surface_.apex(h)) - a, along) / dot(along, along);
        return rounded(a + along * std::clamp(s, 0.0, 1.0));
    }

    double distance_to_edge(Vec3d p, std::uint32_t h) const {
        return segment_distance(p, p, at(surface_.origin(h)), at(surface_.target(h)));
    }

    // Divides a cap that is not too thin, and what lies beyond its long edge, at the foot of its
    // apex.
    bool try_split(std::uint32_t h) {
        const std::uint32_t g = surface_.opposites[h];
        if (surface_.is_locked[h] != 0) return false;
        const Vec3d m = foot(h);
        const auto is_good = [&](std::uint32_t e) {
            const Vec3d c = at(surface_.apex(e));
            return !shape_of({at(surface_.origin(e)), m, c}).is_bad() &&
                   !shape_of({m, at(surface_.target(e)), c}).is_bad();
        };
        if (!is_good(h) || (g != kNone && !is_good(g))) return false;
        double movement = movement_[h / 3] + distance_to_edge(m, h);
        if (g != kNone) movement = std::max(movement, movement_[g / 3] + distance_to_edge(m, h));
        if (!is_in_bounds(movement)) return false;
        split(h, m, movement);
        add_neighbours();
        ++report_.splits;
        return true;
    }

    void split(std::uint32_t h, Vec3d place, double movement) {
        const std::uint32_t g = surface_.opposites[h];
        const std::int32_t m = surface_.split(h, place);
        movement_.resize(surface_.triangles.size());
        states_.resize(surface_.triangles.size());
        asks_.resize(surface_.triangles.size());
        touched_.clear();
        surface_.around(m, [&](std::uint32_t e) {
            note(e / 3, movement);
            if (e / 3 != h / 3 && (g == kNone || e / 3 != g / 3)) states_[e / 3] = New;
        });
    }

    // A cap with an open long edge goes, so that its apex comes to lie on the border.
    bool try_open_cap(std::uint32_t h) {
        const std::int32_t c = surface_.apex(h);
        if (surface_.opposites[h] != kNone || surface_.is_locked[h] != 0 || kind(c) != Kind::Free) {
            return false;
        }
        const Vec3d m = foot(h);
        const double movement = movement_[h / 3] + distance_to_edge(m, h) + length(at(c) - m);
        if (!is_in_bounds(movement)) return false;
        split(h, m, movement);
        // The halves are (a, m, c) and (m, b, c): h now runs from a to m, and c follows.
        const std::uint32_t from_c = surface_.opposites[HalfEdgeMesh::next(h)];
        surface_.collapse(from_c, at(c));
        surface_.kinds[index(c)] = Kind::Line;
        touched_.clear();
        surface_.around(c, [&](std::uint32_t e) {
            if (touched_.size() < HalfEdgeMesh::kMaxValence) touched_.push_back(e / 3);
        });
        ++report_.collapses;
        return true;
    }

    // ------------------------------------------------------------------ collapses

    // An edge becomes a point.
    struct Merge {
        std::uint32_t half_edge;  // its target goes
        Vec3d place;
        double movement = 0;
        std::vector<std::uint32_t> around;  // triangles that may stand for what it leaves
    };

    // What a merge does to the triangles around it.
    struct Effect {
        Wrong before;
        Wrong after;
        double movement = 0;  // the greatest so far
        bool is_fair = true;
    };

    // Gives up the end that moves the surface less, of two alike the one with fewer triangles; for
    // slivers also both for their middle.
    bool try_collapse_edge(std::uint32_t h) {
        const std::uint32_t g = surface_.opposites[h];
        const std::int32_t v = surface_.origin(h);
        const std::int32_t w = surface_.target(h);
        Merge to_first{h, at(v), 0, {}};
        Merge to_second{g == kNone ? h : g, at(w), 0, {}};
        if (surface_.valences[index(v)] < surface_.valences[index(w)])
            std::swap(to_first, to_second);
        const bool can_first = can_merge(to_first);
        const bool can_second = can_merge(to_second);
        if (can_first || can_second) {
            const bool is_second =
                can_second &&
                (!can_first || to_second.movement < to_first.movement - kAlike * most_);
            merge(is_second ? to_second : to_first);
            return true;
        }
        Merge to_middle{h, rounded((at(v) + at(w)) * 0.5), 0, {}};
        if (!is_for_sliver_ || !can_merge(to_middle)) return false;
        merge(to_middle);
        return true;
    }

    bool can_merge(Merge& merge) {
        const std::uint32_t h = merge.half_edge;
        const bool is_open = surface_.opposites[h] == kNone;
        Effect effect;
        double step = 0;
        for (const auto& [end, other] : {std::pair{surface_.origin(h), surface_.target(h)},
                                         std::pair{surface_.target(h), surface_.origin(h)}}) {
            if (at(end) == merge.place) continue;
            // What lies on a border stays there.
            if (kind(end) != Kind::Free && !is_open) return false;
            if (surface_.valences[index(end)] > HalfEdgeMesh::kMaxValence) return false;
            step = std::max(step, length(merge.place - at(end)));
        }
        if (!surface_.can_collapse(h, true)) return false;
        add_star(surface_.origin(h), surface_.target(h), merge.place, effect);
        add_star(surface_.target(h), surface_.origin(h), merge.place, effect);
        if (!effect.is_fair || !(effect.after < effect.before)) return false;
        step = std::min(
            step, is_open ? border_difference(h, merge.place) : height_difference(h, merge.place));
        merge.movement = effect.movement + step;
        if (!is_in_bounds(merge.movement) && may_ask_) ask_original(merge, effect.movement);
        return is_in_bounds(merge.movement);
    }

    void add_star(std::int32_t v, std::int32_t other, Vec3d place, Effect& effect) const {
        if (at(v) == place) return;
        const bool other_stays = at(other) == place;
        surface_.around(v, [&](std::uint32_t e) {
            const std::int32_t p = surface_.target(e);
            const std::int32_t q = surface_.apex(e);
            const bool goes = p == other || q == other;
            // The triangles on the edge are looked at once.
            if (!goes || other_stays || v < other) effect.before.add(shape(e / 3));
            effect.movement = std::max(effect.movement, movement_[e / 3]);
            if (goes || !effect.is_fair) return;
            const Triangle changed = {place, at(p), at(q)};
            effect.after.add(shape_of(changed));
            effect.is_fair = !is_turned(direction(e / 3), changed);
        });
    }

    // An end of two triangles leaves the border line, and nothing else moves farther.
    double border_difference(std::uint32_t h, Vec3d place) const {
        std::int32_t goes = surface_.target(h);
        std::int32_t stays = surface_.origin(h);
        if (at(stays) != place) std::swap(goes, stays);
        double distance = std::numeric_limits<double>::infinity();
        if (at(stays) != place || surface_.valences[index(goes)] != 2) return distance;
        const std::int32_t inner = surface_.apex(h);
        surface_.around(goes, [&](std::uint32_t e) {
            for (const std::int32_t v : {surface_.target(e), surface_.apex(e)}) {
                if (v == stays || v == inner) continue;
                distance = segment_distance(at(goes), at(goes), place, at(v));
            }
        });
        return distance;
    }

    // Where one end of the edge stays; else no bound.
    double height_difference(std::uint32_t h, Vec3d place) const {
        std::int32_t goes = surface_.target(h);
        std::int32_t stays = surface_.origin(h);
        if (at(stays) != place) std::swap(goes, stays);
        if (at(stays) != place || kind(goes) != Kind::Free) {
            return std::numeric_limits<double>::infinity();
        }
        std::array<Vec3d, HalfEdgeMesh::kMaxValence> ring;
        std::size_t size = 0;
        std::size_t kept = 0;
        surface_.around(goes, [&](std::uint32_t e) {
            if (surface_.target(e) == stays) kept = size;
            ring[size++] = at(surface_.target(e));
        });
        return merge_distance(at(goes), {ring.data(), size}, kept);
    }

    void merge(const Merge& merge) {
        const std::uint32_t h = merge.half_edge;
        raise(merge.around, merge.movement);
        touched_.clear();
        for (const std::int32_t v : {surface_.origin(h), surface_.target(h)}) {
            if (at(v) == merge.place) continue;
            surface_.around(v, [&](std::uint32_t e) { note(e / 3, merge.movement); });
        }
        surface_.collapse(h, merge.place);
        std::erase_if(touched_, [&](std::uint32_t t) { return surface_.is_gone(t); });
        add_neighbours();
        ++report_.collapses;
    }

    void note(std::uint32_t t, double movement) {
        states_[t] = std::max(states_[t], Changed);
        movement_[t] = movement;
        report_.movement = std::max(report_.movement, movement);
        touched_.push_back(t);
    }

    void add_neighbours() {
        const std::size_t count = touched_.size();
        for (std::size_t i = 0; i < count; ++i) {
            for (std::uint32_t h = 3 * touched_[i]; h < 3 * touched_[i] + 3; ++h) {
                if (surface_.opposites[h] != kNone) touched_.push_back(surface_.opposites[h] / 3);
            }
        }
    }

    // ------------------------------------------------------------------ from the original

    void ask_original(Merge& merge, double so_far) {
        before_.clear();
        after_.clear();
        std::vector<std::int32_t> ring;
        std::vector<std::uint32_t> gone;
        const std::int32_t v = surface_.origin(merge.half_edge);
        const std::int32_t w = surface_.target(merge.half_edge);
        if (surface_.valences[index(v)] + surface_.valences[index(w)] > kMostAround) return;
        for (const bool is_second : {false, true}) {
            const std::int32_t end = is_second ? w : v;
            const std::int32_t other = is_second ? v : w;
            surface_.around(end, [&](std::uint32_t e) {
                const std::int32_t p = surface_.target(e);
                const std::int32_t q = surface_.apex(e);
                const bool goes = p == other || q == other;
                if (goes && is_second) return;  // seen around the first end
                before_.push_back(corners(e / 3));
                gone.push_back(e / 3);
                ring.insert(ring.end(), {p, q});
                if (!goes) after_.push_back({merge.place, at(p), at(q)});
            });
        }
        merge.around = triangles_around(std::move(ring), std::move(gone));
        merge.movement = distance_from_original(merge.around, so_far);
    }

    // The triangles at some vertices, but for those that go.
    std::vector<std::uint32_t> triangles_around(std::vector<std::int32_t> vertices,
                                                std::vector<std::uint32_t> gone) const {
        sort_once(vertices);
        sort_once(gone);
        std::vector<std::uint32_t> around;
        for (const std::int32_t v : vertices) {
            if (surface_.valences[index(v)] > kMostAround) continue;
            surface_.around(v, [&](std::uint32_t e) {
                if (!std::binary_search(gone.begin(), gone.end(), e / 3)) around.push_back(e / 3);
            });
        }
        sort_once(around);
        if (around.size() > kMostAround) around.resize(kMostAround);
        return around;
    }

    template <typename T>
    static void sort_once(std::vector<T>& items) {
        std::sort(items.begin(), items.end());
        items.erase(std::unique(items.begin(), items.end()), items.end());
    }

    // After the step from before_ to after_, of which others may take over what it leaves.
    double distance_from_original(const std::vector<std::uint32_t>& around, double so_far) {
        if (!original_) {
            original_.emplace(mesh_);
            effort_ = kLeastEffort + kEffortPerTriangle * original_count_;
        }
        std::vector<Triangle> others;
        others.reserve(around.size());
        for (const std::uint32_t t : around) others.push_back(corners(t));
        return original_->distance({before_, after_, others, so_far}, most_, effort_);
    }

    // Triangles that stand for more of the original than they did.
    void raise(const std::vector<std::uint32_t>& triangles, double movement) {
        for (const std::uint32_t t : triangles) movement_[t] = std::max(movement_[t], movement);
    }

    // In the order of the triangles, with all the vertices.
    TriMesh changed_faces() const {
        return surface_.plain_mesh([this](std::size_t t) { return states_[t] != Same; });
    }

    TriMesh& mesh_;
    HalfEdgeMesh surface_;
    const FaceTree& held_;
    double most_;
    Array<std::uint32_t> faces_;  // of the mesh, by triangle
    std::size_t original_count_ = 0;
    Array<double> movement_;  // by triangle
    Array<State> states_;     // by triangle
    std::vector<std::uint32_t>
        touched_;                 // triangles that the last step changed, and their neighbours
    bool is_for_sliver_ = false;  // the step at hand is

    bool asks_original_ = false;  // when nothing comes of the sums
    bool may_ask_ = false;
    Array<std::uint8_t> asks_;                 // by triangle: how often it was the reason to ask
    std::optional<OriginalSurface> original_;  // once it is asked
    std::size_t effort_ = 0;                   // left, of asking it
    std::vector<Triangle> before_, after_;     // of the step it is asked about
    ReviseReport report_;
};

}  // namespace

ShapeCounts count_shapes(const TriMesh& mesh) {
    ShapeCounts counts;
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        if (face.deleted != 0) continue;
        const TriangleShape shape = shape_of(corners_of(mesh, face));
        counts.needles += shape.is_needle ? 1 : 0;
        counts.caps += shape.is_cap ? 1 : 0;
        counts.slivers += shape.is_sliver ? 1 : 0;
    }
    return counts;
}

ReviseReport revise_triangles(TriMesh& mesh, const ReviseOptions& options) {
    const ShapeCounts counts = count_shapes(mesh);
    const Box3f box = finite_bounds(mesh);
    if (counts == ShapeCounts{} || box.is_empty()) return {};
    const double diagonal = length(to_double(box.high) - to_double(box.low));
    const double most = std::max(options.most_movement, 0.0) * diagonal;
    std::vector<Box3f> places;
    double margin = kFirstMargin;
    for (int take = 0; take < kMostTakes; ++take, margin *= 2) {
        const FaceTree held(places);
        Reviser reviser(mesh, most, held);
        const ReviseReport report = reviser.run();
        if (!reviser.has_changed()) return report;
        const std::vector<CrossingPlace> crossings = reviser.new_crossings();
        if (crossings.empty()) {
            reviser.store();
            return report;
        }
        for (const CrossingPlace& crossing : crossings) {
            places.push_back(outward(grown(crossing.common, margin * most)));
        }
    }
    return {};
}

}  // namespace povmesh
