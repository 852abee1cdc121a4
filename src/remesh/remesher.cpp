// Incremental isotropic remeshing after Botsch and Kobbelt (2004): rounds of split, collapse, flip
// and tangential relaxation, each with the vertices drawn back onto the original. Beyond it:
//
// - Vertices on feature lines slide along the original line, and no step lets a line stray from it.
// - At the end vertices are moved out so far that the surface, whose corners lie on the original
//   and whose faces cut across its bends, holds as much as that.
#include "remesh/remesher.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>

#include "base/parallel.h"
#include "base/poll.h"
#include "remesh/angle_mending.h"

namespace povmesh {
namespace {

// The bounds between which no edge is split or collapsed: after a split the halves are not shorter
// than the one, after a collapse the edges not longer than the other.
constexpr double kLong = 4.0 / 3.0;
constexpr double kShort = 4.0 / 5.0;

// Mending small angles may make edges up to this long.
constexpr double kLongest = 1.55;

// Height of a triangle, as a share of its longest edge, from which on it is divided beside that.
constexpr double kLeastHeight = 0.25;

// No step makes a triangle flatter than this, in the same measure.
constexpr double kFlat = 0.05;

// How far a line may stray, as a share of the length wanted there; and as a share of the chord, for
// lines that bend tightly (0.13 of its chord is what a circle strays from a hexagon), but for
// wiggles below a share of the length.
constexpr double kStray = 0.15;
constexpr double kStrayOfChord = 0.13;
constexpr double kWiggle = 0.03;

// What a walk over the original finds counts when it is so near, as a share of the length; and it
// crosses so many faces, and looks at so many around a vertex, before a search is cheaper.
constexpr double kNearWalk = 0.25;
constexpr int kMostSteps = 32;
constexpr int kMostTurns = 16;

// Rounds of a refinement: it has no more than a few edges to divide.
constexpr int kRefinementRounds = 3;

// Edges within these bounds of the length count as even.
constexpr double kLeastEven = 0.6;
constexpr double kMostEven = 1.6;

// Normals that differ by less (1 - cosine, about a millionth of a radian) are those of one plane.
constexpr double kPlanar = 1e-12;

double squared(double x) {
    return x * x;
}

// Lengths that differ by less are one length that was interpolated.
bool is_same_length(double a, double b) {
    return std::abs(a - b) <= 1e-9 * a;
}

// Of a triangle with this normal, whose length is twice the area.
bool is_flat(Vec3d normal, double longest_square) {
    return !(dot(normal, normal) > squared(kFlat * longest_square));
}

double longest_square(Vec3d a, Vec3d b, Vec3d c) {
    return std::max({dot(b - a, b - a), dot(c - b, c - b), dot(a - c, a - c)});
}

bool is_flat(Vec3d a, Vec3d b, Vec3d c) {
    return is_flat(cross(b - a, c - a), longest_square(a, b, c));
}

// True when a triangle turns, or gets flat and was not.
bool spoils(const std::array<Vec3d, 3>& before, const std::array<Vec3d, 3>& after) {
    const Vec3d old = cross(before[1] - before[0], before[2] - before[0]);
    const Vec3d made = cross(after[1] - after[0], after[2] - after[0]);
    if (turns(old, made)) return true;
    return is_flat(made, longest_square(after[0], after[1], after[2])) &&
           !is_flat(old, longest_square(before[0], before[1], before[2]));
}

}  // namespace

Remesher::Remesher(const HalfEdgeMesh& original, const NearestFace& tree, const SizingField& field,
                   HalfEdgeMesh surface, std::size_t most_triangles)
    : original_(original),
      tree_(tree),
      field_(field),
      surface_(std::move(surface)),
      lines_(surface_),
      most_triangles_(most_triangles) {
    lengths_.resize(surface_.positions.size());
    for (std::size_t v = 0; v < lengths_.size(); ++v) lengths_[v] = field.at_vertex(v);
    sources_.assign(lengths_.size(), NearestPoint::kNoFace);
    for (std::size_t t = 0; t < original.triangles.size(); ++t) {
        poll_at(t);
        for (const std::int32_t v : original.triangles[t]) {
            sources_[index(v)] = static_cast<std::uint32_t>(t);
        }
    }
}

void Remesher::run(int rounds, const std::function<void(int done)>& tell) {
    if (should_collapse_first()) collapse_short_edges();
    for (int round = 0; round < rounds; ++round) {
        split_long_edges();
        order_in_space();
        collapse_short_edges();
        flip_edges();
        relax();
        relax();
        tell(round + 1);
    }
    mend_small_angles();
    fit_to_volume();
}

void Remesher::refine() {
    Array<std::uint8_t> is_lower(surface_.positions.size(), 0);
    parallel_for(is_lower.size(), [&](std::size_t v) {
        if (surface_.starts[v] == HalfEdgeMesh::kNone) return;
        NearestPoint there = walk(surface_.positions[v], sources_[v]);
        if (!there.is_found()) there = tree_.find(surface_.positions[v]);
        if (!there.is_found()) return;
        const double wanted = field_.at(there);
        if (!(wanted < lengths_[v]) || is_same_length(lengths_[v], wanted)) return;
        sources_[v] = there.face;
        lengths_[v] = wanted;
        is_lower[v] = 1;
    });
    is_active_.swap(is_lower);
    for (int round = 0; round < kRefinementRounds; ++round) {
        split_long_edges();
        collapse_short_edges();
        flip_edges();
        relax();
        relax();
    }
    mend_small_angles();
    fit_to_volume();
}

Array<std::uint8_t> Remesher::changed_faces() const {
    Array<std::uint8_t> changed;
    for (std::size_t t = 0; t < surface_.triangles.size(); ++t) {
        poll_at(t);
        if (!surface_.is_gone(t)) changed.push_back(has_active_vertex(t) ? 1 : 0);
    }
    return changed;
}

bool Remesher::has_active_vertex(std::size_t t) const {
    const std::array<std::int32_t, 3>& v = surface_.triangles[t];
    return is_active(v[0]) || is_active(v[1]) || is_active(v[2]);
}

// What was split is all over the memory, and has numbers that follow from splits far away. In this
// order the steps that follow depend on what is around them.
void Remesher::order_in_space() {
    lines_.places().resize(surface_.positions.size(), 0);
    const Array<std::uint32_t> order = surface_.order_in_space().vertices;
    rearrange(lengths_, order);
    rearrange(sources_, order);
    if (!is_active_.empty()) rearrange(is_active_, order);
    rearrange(lines_.places(), order);
}

TriMesh Remesher::result() const {
    return surface_.plain_mesh([](std::size_t) { return true; });
}

Remesher::Evenness Remesher::evenness(const SizingField& asked) const {
    Array<double> lengths(surface_.positions.size(), 0);
    parallel_for(lengths.size(), [&](std::size_t v) {
        if (surface_.starts[v] == HalfEdgeMesh::kNone) return;
        NearestPoint there =
            nearest_on_triangle(surface_.positions[v], original_corners(sources_[v]));
        there.face = sources_[v];
        lengths[v] = asked.at(there);
    });
    Evenness found;
    double count = 0;
    const auto is_even = [](double share) { return share >= kLeastEven && share <= kMostEven; };
    for (std::uint32_t h = 0; h < surface_.opposites.size(); ++h) {
        poll_at(h);
        if (surface_.is_gone(h / 3)) continue;
        const double l = kAim * std::sqrt(surface_.squared_length(h));
        const double of_asked =
            0.5 * (lengths[index(surface_.origin(h))] + lengths[index(surface_.target(h))]);
        found.of_asked += is_even(l / of_asked) ? 1 : 0;
        found.of_wanted += is_even(l / length_at(h)) ? 1 : 0;
        count += 1;
    }
    if (!(count > 0)) return found;
    return {found.of_asked / count, found.of_wanted / count};
}

double Remesher::length_at(std::uint32_t h) const {
    return 0.5 * (lengths_[index(surface_.origin(h))] + lengths_[index(surface_.target(h))]);
}

bool Remesher::is_upper(std::uint32_t h) const {
    return surface_.opposites[h] != HalfEdgeMesh::kNone && surface_.opposites[h] < h;
}

// ------------------------------------------------------------------------------------ splits

// True where most triangles of a split would be there to be collapsed again or to fill large faces:
// needles are better collapsed first.
bool Remesher::should_collapse_first() const {
    double pieces = 0;
    for (std::uint32_t h = 0; h < surface_.opposites.size(); ++h) {
        poll_at(h);
        if (surface_.is_gone(h / 3) || is_upper(h)) continue;
        const double share = std::sqrt(surface_.squared_length(h)) / length_at(h);
        if (share > kLong) pieces += share;
    }
    return pieces > static_cast<double>(surface_.opposites.size()) / 6;
}

// The longest edge first: the new edges beside it are then shorter, and there is an end.
void Remesher::split_long_edges() {
    std::vector<LongEdge> heap;
    for (std::uint32_t h = 0; h < surface_.opposites.size(); ++h) {
        poll_at(h);
        if (!surface_.is_gone(h / 3) && !is_upper(h)) add_if_long(h, heap);
    }
    std::make_heap(heap.begin(), heap.end());
    while (!heap.empty()) {
        const LongEdge edge = heap.front();
        std::pop_heap(heap.begin(), heap.end());
        heap.pop_back();
        const std::uint32_t h = edge.half_edge;
        if (surface_.squared_length(h) != edge.squared || !is_long(h)) continue;  // halved since
        if (is_beside_longer_edge(h) || is_beside_longer_edge(surface_.opposites[h])) continue;
        if (surface_.triangles.size() >= most_triangles_) return;
        std::int32_t made = 0;
        if (!try_split(h, made)) continue;
        // The edges beyond have new numbers, and those they are waiting under are lost.
        surface_.around(made, [&](std::uint32_t e) {
            push_if_long(e, heap);
            push_if_long(HalfEdgeMesh::next(e), heap);
            push_if_long(HalfEdgeMesh::previous(e), heap);
        });
    }
}

// In the middle of the edge or of the line that it stands for.
bool Remesher::try_split(std::uint32_t h, std::int32_t& made) {
    const Vec3d a = surface_.position(surface_.origin(h));
    const Vec3d b = surface_.position(surface_.target(h));
    Vec3d place = (a + b) * 0.5;
    const bool is_line = surface_.features[h] != 0;
    FeatureLines::Part part;
    if (is_line) {
        part = lines_.part(surface_, h);
        place = lines_.point(part.line, 0.5 * (part.from + part.to));
        for (const std::uint32_t e : {h, surface_.opposites[h]}) {
            if (e == HalfEdgeMesh::kNone) continue;
            const Vec3d c = surface_.position(surface_.apex(e));
            const Vec3d p = surface_.position(surface_.origin(e));
            const Vec3d q = surface_.position(surface_.target(e));
            const Vec3d normal = surface_.normal(e / 3);
            if (dot(normal, normal) == 0) continue;  // it has no side to turn to
            if (turns(normal, cross(place - p, c - p)) ||
                turns(normal, cross(q - place, c - place)))
                return false;
        }
    }
    if (place == a || place == b) return false;
    const std::uint32_t source = sources_[index(surface_.origin(h))];
    double wanted = length_at(h);
    if (!is_same_length(lengths_[index(surface_.origin(h))], lengths_[index(surface_.target(h))])) {
        const NearestPoint found = tree_.find(place, dot(b - a, b - a));
        if (found.is_found()) wanted = field_.at(found);
    }
    lengths_.push_back(wanted);
    sources_.push_back(source);
    if (!is_active_.empty()) is_active_.push_back(1);
    made = surface_.split(h, place);
    if (is_line) lines_.set_place(made, 0.5 * (part.from + part.to));
    return true;
}

bool Remesher::is_long(std::uint32_t h) const {
    return surface_.squared_length(h) > squared(kLong * length_at(h));
}

void Remesher::add_if_long(std::uint32_t h, std::vector<LongEdge>& heap) const {
    if (!is_active(surface_.origin(h)) && !is_active(surface_.target(h))) return;
    if (surface_.is_locked[h] == 0 && is_long(h)) heap.push_back({surface_.squared_length(h), h});
}

void Remesher::push_if_long(std::uint32_t h, std::vector<LongEdge>& heap) const {
    const std::size_t size = heap.size();
    add_if_long(h, heap);
    if (heap.size() != size) std::push_heap(heap.begin(), heap.end());
}

// True when a longer edge of the triangle, which would have been split before, could not be: one
// that is locked, or beside a longer one itself. What is split beside it leaves long edges again,
// without end; so that is done only as far as the triangle does not get too flat. Edges grow
// shorter with the distance from those that are locked.
bool Remesher::is_beside_longer_edge(std::uint32_t h) const {
    if (h == HalfEdgeMesh::kNone) return false;
    const double square = surface_.squared_length(h);
    const Vec3d normal = surface_.normal(h / 3);
    for (const std::uint32_t e : {HalfEdgeMesh::next(h), HalfEdgeMesh::previous(h)}) {
        const double longer = surface_.squared_length(e);
        if (longer > square && is_long(e) && dot(normal, normal) < squared(kLeastHeight * longer)) {
            return true;
        }
    }
    return false;
}

// ------------------------------------------------------------------------------------ collapses

void Remesher::collapse_short_edges() {
    for (std::uint32_t h = 0; h < surface_.opposites.size(); ++h) {
        poll_at(h);
        if (surface_.is_gone(h / 3) || is_upper(h) || !has_active_ends(h)) continue;
        if (!(surface_.squared_length(h) < squared(kShort * length_at(h)))) continue;
        if (surface_.features[h] != 0)
            collapse_on_line(h);
        else
            try_collapse(h);
    }
}

// An edge that is no feature: the end that is bound more stays.
void Remesher::try_collapse(std::uint32_t h) {
    const auto kind = [&](std::uint32_t e) { return surface_.kinds[index(surface_.origin(e))]; };
    if (kind(surface_.opposites[h]) > kind(h)) h = surface_.opposites[h];
    if (kind(surface_.opposites[h]) != HalfEdgeMesh::Free) return;
    const Vec3d a = surface_.position(surface_.origin(h));
    const Vec3d b = surface_.position(surface_.target(h));
    if (kind(h) != HalfEdgeMesh::Free) {
        merge(h, a);
    } else if (!merge(h, (a + b) * 0.5) && !merge(h, a)) {
        merge(h, b);
    }
}

// The end that is bound stays, of two others both go to the middle or one to the other.
void Remesher::collapse_on_line(std::uint32_t h) {
    using Kind = HalfEdgeMesh::Kind;
    if (surface_.is_locked[h] != 0) return;
    const std::int32_t a = surface_.origin(h);
    const std::int32_t b = surface_.target(h);
    const bool is_bound_a = surface_.kinds[index(a)] != Kind::Line;
    const bool is_bound_b = surface_.kinds[index(b)] != Kind::Line;
    if (is_bound_a && is_bound_b) return;
    const FeatureLines::Part part = lines_.part(surface_, h);
    const bool is_against = FeatureLines::is_against(surface_, h);
    const double at_a = is_against ? part.to : part.from;
    const double at_b = is_against ? part.from : part.to;
    const auto merge_at = [&](double along, Vec3d place) {
        if (!keeps_line(h, along) || !merge(h, place)) return false;
        lines_.set_place(a, along);
        if (is_bound_b) surface_.kinds[index(a)] = surface_.kinds[index(b)];
        return true;
    };
    if (is_bound_a) {
        merge_at(at_a, surface_.position(a));
    } else if (is_bound_b) {
        merge_at(at_b, surface_.position(b));
    } else {
        const double middle = 0.5 * (at_a + at_b);
        if (!merge_at(middle, lines_.point(part.line, middle)) &&
            !merge_at(at_a, surface_.position(a))) {
            merge_at(at_b, surface_.position(b));
        }
    }
}

// True when the edges beside a line edge may end at one point of it.
bool Remesher::keeps_line(std::uint32_t h, double along) const {
    const FeatureLines::Part part = lines_.part(surface_, h);
    const bool is_against = FeatureLines::is_against(surface_, h);
    for (const bool is_first : {true, false}) {
        const std::int32_t v = is_first != is_against ? surface_.origin(h) : surface_.target(h);
        if (surface_.kinds[index(v)] != HalfEdgeMesh::Line) continue;
        const std::uint32_t e = surface_.feature_beyond(v, h);
        if (e == HalfEdgeMesh::kNone) return false;
        const FeatureLines::Part beside = lines_.part(surface_, e);
        const double size = beside.to - beside.from;
        const FeatureLines::Part made = is_first
                                            ? FeatureLines::Part{part.line, part.from - size, along}
                                            : FeatureLines::Part{part.line, along, part.to + size};
        if (strays(made, length_at(h))) return false;
    }
    return true;
}

// True when the chord of the part is too far from the line.
bool Remesher::strays(const FeatureLines::Part& part, double wanted) const {
    const double chord =
        length(lines_.point(part.line, part.to) - lines_.point(part.line, part.from));
    return lines_.deviation(part) >
           std::max(kWiggle * wanted, std::min(kStray * wanted, kStrayOfChord * chord));
}

// The target of the edge goes into its origin, which moves to the place.
bool Remesher::merge(std::uint32_t h, Vec3d place) {
    const std::int32_t a = surface_.origin(h);
    const std::int32_t b = surface_.target(h);
    if (!surface_.can_collapse(h)) return false;
    if (!may_move(a, b, place) || !may_move(b, a, place)) return false;
    lengths_[index(a)] = 0.5 * (lengths_[index(a)] + lengths_[index(b)]);
    surface_.collapse(h, place);
    return true;
}

// True when no edge gets too long, or longer where it is that, and no face is spoiled when v goes
// to the place; faces that have `other` too are left out.
bool Remesher::may_move(std::int32_t v, std::int32_t other, Vec3d place) const {
    bool may = true;
    const Vec3d p = surface_.position(v);
    const auto gets_too_long = [&](std::int32_t w) {
        if (w == other) return false;
        const Vec3d q = surface_.position(w);
        const double square = dot(place - q, place - q);
        return square > squared(kLong * lengths_[index(w)]) && square > 1.01 * dot(p - q, p - q);
    };
    surface_.around(v, [&](std::uint32_t h) {
        if (!may) return;
        const std::int32_t b = surface_.target(h);
        const std::int32_t c = surface_.apex(h);
        if (gets_too_long(b) || gets_too_long(c)) {
            may = false;
        } else if (b != other && c != other) {
            const Vec3d pb = surface_.position(b);
            const Vec3d pc = surface_.position(c);
            may = !spoils({p, pb, pc}, {place, pb, pc});
        }
    });
    return may;
}

// ------------------------------------------------------------------------------------ flips

void Remesher::flip_edges() {
    for (std::uint32_t h = 0; h < surface_.opposites.size(); ++h) {
        poll_at(h);
        if (surface_.is_gone(h / 3) || surface_.features[h] != 0 || is_upper(h)) continue;
        if (!has_active_ends(h)) continue;
        if (evens_valences(h) && may_flip(h)) surface_.flip(h);
    }
}

// Over the valence that a vertex should have: 6, or 4 on an open border.
int Remesher::excess_valence(std::int32_t v) const {
    const bool is_bound = surface_.kinds[index(v)] != HalfEdgeMesh::Free;
    const bool is_open = is_bound && surface_.is_open(v);
    // An open fan has one neighbour more than faces.
    return static_cast<int>(surface_.valences[index(v)]) - (is_open ? 3 : 6);
}

bool Remesher::evens_valences(std::uint32_t h) const {
    const std::uint32_t g = surface_.opposites[h];
    const int a = excess_valence(surface_.origin(h));
    const int b = excess_valence(surface_.target(h));
    const int c = excess_valence(surface_.apex(h));
    const int d = excess_valence(surface_.apex(g));
    const auto square = [](int x) { return x * x; };
    return square(a - 1) + square(b - 1) + square(c + 1) + square(d + 1) <
           square(a) + square(b) + square(c) + square(d);
}

bool Remesher::may_flip(std::uint32_t h) const {
    if (!surface_.can_flip(h)) return false;
    const std::uint32_t g = surface_.opposites[h];
    const Vec3d a = surface_.position(surface_.origin(h));
    const Vec3d b = surface_.position(surface_.target(h));
    const Vec3d c = surface_.position(surface_.apex(h));
    const Vec3d d = surface_.position(surface_.apex(g));
    const Vec3d first = cross(d - a, c - a);
    const Vec3d second = cross(c - b, d - b);
    for (const Vec3d before : {surface_.normal(h / 3), surface_.normal(g / 3)}) {
        if (turns(before, first) || turns(before, second)) return false;
    }
    const bool were_flat = is_flat(a, b, c) || is_flat(b, a, d);
    return were_flat || (!is_flat(d, c, a) && !is_flat(c, d, b));
}

// ------------------------------------------------------------------------------------ relaxation

// Draws every vertex to the middle of its neighbours, along the surface, and back onto the
// original. All new places come from the old ones; those that would spoil a face are given up.
void Remesher::relax() {
    const std::size_t count = surface_.positions.size();
    lines_.places().resize(count, 0);
    old_places_ = lines_.places();
    old_positions_.resize(count);
    // Each writes only what belongs to v, and reads old places, which are in the lines until later.
    new_places_ = old_places_;
    new_lengths_ = lengths_;
    parallel_for(count, [&](std::size_t v) { old_positions_[v] = relaxed(v); });
    std::swap(old_positions_, surface_.positions);
    std::swap(lines_.places(), new_places_);
    std::swap(lengths_, new_lengths_);
    restore_spoiled_faces();
}

Vec3d Remesher::relaxed(std::size_t v) {
    const Vec3d p = surface_.positions[v];
    if (surface_.starts[v] == HalfEdgeMesh::kNone || !is_active(static_cast<std::int32_t>(v))) {
        return p;
    }
    switch (surface_.kinds[v]) {
        case HalfEdgeMesh::Free:
            return relaxed_on_surface(static_cast<std::int32_t>(v), p);
        case HalfEdgeMesh::Line:
            return relaxed_on_line(static_cast<std::int32_t>(v), p);
        default:
            return p;
    }
}

Vec3d Remesher::relaxed_on_surface(std::int32_t v, Vec3d p) {
    // Triangles weigh with their area over the squared length wanted there.
    Vec3d sum;
    Vec3d normal;
    double weights = 0;
    double areas = 0;
    bool is_even = true;
    const double wanted = lengths_[index(v)];
    surface_.around(v, [&](std::uint32_t h) {
        const Vec3d b = surface_.position(surface_.target(h));
        const Vec3d c = surface_.position(surface_.apex(h));
        const Vec3d n = cross(b - p, c - p);
        const double area = length(n);
        const double weight = area / squared(length_at(HalfEdgeMesh::next(h)));
        sum = sum + (p + b + c) * (weight / 3);
        weights += weight;
        areas += area;
        normal = normal + n;
        is_even = is_even && is_same_length(lengths_[index(surface_.target(h))], wanted);
    });
    if (!(weights > 0)) return p;
    Vec3d step = sum / weights - p;
    const double square = dot(normal, normal);
    if (square > 0) step = step - normal * (dot(step, normal) / square);
    // Within a plane there is nothing to draw it back from.
    const bool is_planar = square > squared((1 - kPlanar) * areas);
    if (is_planar && (is_even || field_.is_uniform())) return p + step;
    const NearestPoint found = nearest(p + step, v, normal);
    if (!found.is_found()) return p;
    sources_[index(v)] = found.face;
    if (!field_.is_uniform()) new_lengths_[index(v)] = field_.at(found);
    return found.point;
}

// The point nearest to `wanted` among those that it gets nearer to all along a way over the faces
// from one of them on. It stays on its side of a wall, and costs a tenth of a search. Not found
// where the way is long, or ends at an edge without an opposite.
NearestPoint Remesher::walk(Vec3d wanted, std::uint32_t face) const {
    const auto nearest_on = [&](std::uint32_t f) {
        NearestPoint found = nearest_on_triangle(wanted, original_corners(f));
        found.face = f;
        return found;
    };
    NearestPoint best = nearest_on(face);
    for (int step = 0; step < kMostSteps; ++step) {
        const std::array<double, 3>& w = best.weights;
        const auto zeros = std::count(w.begin(), w.end(), 0.0);
        if (zeros == 0) return best;
        const std::uint32_t first = 3 * best.face;
        NearestPoint next = best;
        if (zeros == 1) {  // on the edge opposite the corner without weight
            const auto corner =
                static_cast<std::uint32_t>(std::find(w.begin(), w.end(), 0.0) - w.begin());
            const std::uint32_t beyond = original_.opposites[HalfEdgeMesh::next(first + corner)];
            if (beyond == HalfEdgeMesh::kNone) return {};
            next = nearest_on(beyond / 3);
        } else {  // at a corner: all faces around it
            const auto corner =
                static_cast<std::uint32_t>(std::max_element(w.begin(), w.end()) - w.begin());
            std::uint32_t h = original_.opposites[HalfEdgeMesh::previous(first + corner)];
            for (int turn = 0; h != first + corner; ++turn) {
                if (h == HalfEdgeMesh::kNone || turn == kMostTurns) return {};
                const NearestPoint here = nearest_on(h / 3);
                if (here.squared_distance < next.squared_distance) next = here;
                h = original_.opposites[HalfEdgeMesh::previous(h)];
            }
        }
        if (!(next.squared_distance < best.squared_distance)) return best;
        best = next;
    }
    return {};
}

// The point of the original nearest to `wanted` that faces the same way: not on the other side of a
// thin wall.
NearestPoint Remesher::nearest(Vec3d wanted, std::int32_t v, Vec3d normal) const {
    const auto faces_away = [&](std::uint32_t f) {
        const Triangle3d t = original_corners(f);
        return dot(cross(t[1] - t[0], t[2] - t[0]), normal) < 0;
    };
    const NearestPoint walked = walk(wanted, sources_[index(v)]);
    if (walked.squared_distance <= squared(kNearWalk * lengths_[index(v)]) &&
        !faces_away(walked.face)) {
        return walked;
    }
    // The face where it was is near: nothing beyond it needs a look.
    const std::uint32_t source = sources_[index(v)];
    const double reach = squared(2 * lengths_[index(v)]);
    NearestPoint known = nearest_on_triangle(wanted, original_corners(source));
    known.face = source;
    NearestPoint found = tree_.find(wanted, std::min(reach, known.squared_distance));
    if (!found.is_found() && known.squared_distance <= reach) found = known;
    if (!found.is_found() || !faces_away(found.face)) return found;
    const double size = length(normal);
    return size > 0 ? tree_.find_facing(wanted, normal / size, 0, reach) : NearestPoint{};
}

Vec3d Remesher::relaxed_on_line(std::int32_t v, Vec3d p) {
    const double along = lines_.place(v);
    FeatureLines::Part before;
    FeatureLines::Part after;
    int count = 0;
    const auto look_at = [&](std::uint32_t h) {
        const FeatureLines::Part part = lines_.part(surface_, h);
        const bool is_against = FeatureLines::is_against(surface_, h);
        const std::int32_t last = is_against ? surface_.origin(h) : surface_.target(h);
        if (last == v)
            before = {part.line, along - (part.to - part.from), along};
        else
            after = {part.line, along, along + (part.to - part.from)};
        ++count;
    };
    surface_.around(v, [&](std::uint32_t h) {
        if (surface_.features[h] != 0) look_at(h);
        const std::uint32_t back = HalfEdgeMesh::previous(h);
        if (surface_.opposites[back] == HalfEdgeMesh::kNone) look_at(back);
    });
    if (count != 2 || !(before.from < after.to)) return p;
    const double wanted = lengths_[index(v)];
    double place = 0.5 * (before.from + after.to);
    for (int step = 0; step < 2; ++step, place = 0.5 * (place + along)) {
        if (strays({before.line, before.from, place}, wanted) ||
            strays({before.line, place, after.to}, wanted)) {
            continue;
        }
        const double whole = lines_.length(before.line);
        new_places_[index(v)] =
            lines_.is_closed(before.line) ? place - whole * std::floor(place / whole) : place;
        const Vec3d made = lines_.point(before.line, place);
        if (!field_.is_uniform()) {
            const NearestPoint found = tree_.find(made, squared(wanted));
            if (found.is_found()) new_lengths_[index(v)] = field_.at(found);
        }
        return made;
    }
    return p;
}

bool Remesher::is_spoiled(std::size_t t) const {
    if (surface_.is_gone(t) || !has_active_vertex(t)) return false;
    const auto corners = [&](const Array<Vec3d>& positions) {
        const std::array<std::int32_t, 3>& v = surface_.triangles[t];
        return std::array<Vec3d, 3>{positions[index(v[0])], positions[index(v[1])],
                                    positions[index(v[2])]};
    };
    return spoils(corners(old_positions_), corners(surface_.positions));
}

// Vertices of faces that got spoiled go back, until no face is.
void Remesher::restore_spoiled_faces() {
    constexpr int kMostPasses = 20;
    Array<std::uint8_t> is_back(surface_.positions.size(), 0);
    for (int pass = 0; pass < kMostPasses; ++pass) {
        std::atomic<bool> any = false;
        parallel_for(surface_.triangles.size(), [&](std::size_t t) {
            if (!is_spoiled(t)) return;
            for (const std::int32_t v : surface_.triangles[t]) {
                const std::atomic_ref<std::uint8_t> mark(is_back[index(v)]);
                if (mark.load(std::memory_order_relaxed) == 0) {
                    mark.store(1, std::memory_order_relaxed);  // all threads store the same
                    any.store(true, std::memory_order_relaxed);
                }
            }
        });
        if (!any.load()) return;
        parallel_for(surface_.positions.size(), [&](std::size_t v) {
            if (is_back[v] == 0) return;
            surface_.positions[v] = old_positions_[v];
            lines_.places()[v] = old_places_[v];
        });
    }
    surface_.positions = old_positions_;
    lines_.places() = old_places_;
}

// ------------------------------------------------------------------------------------ the end

void Remesher::mend_small_angles() {
    AngleMending mending;
    mending.is_active = is_active_;
    mending.longest_edge = [this](std::int32_t v) { return kLongest * lengths_[index(v)]; };
    mending.project = [this](std::int32_t v, Vec3d place) {
        const NearestPoint found = nearest(place, v, {});
        return found.is_found() ? found.point : surface_.position(v);
    };
    mending.keeps_line = [this](std::uint32_t h) {
        const FeatureLines::Part part = lines_.part(surface_, h);
        return keeps_line(h, FeatureLines::is_against(surface_, h) ? part.to : part.from);
    };
    mend_angles(surface_, mending);
}

// Faces cut across what bends. Their middle is off by more than they are on the average: of a
// triangle with its corners on a surface of constant curvature the mean is three quarters of that,
// of a chord two thirds.
void Remesher::fit_to_volume() {
    constexpr double kMeanOfTriangle = 0.75;
    Array<double> sags(surface_.triangles.size(), 0);
    parallel_for(sags.size(), [&](std::size_t t) {
        if (!surface_.is_gone(t) && has_active_vertex(t)) sags[t] = kMeanOfTriangle * sag(t);
    });
    old_positions_.resize(surface_.positions.size());
    parallel_for(old_positions_.size(), [&](std::size_t i) {
        const auto v = static_cast<std::int32_t>(i);
        old_positions_[i] = surface_.positions[i];
        if (surface_.starts[i] == HalfEdgeMesh::kNone || !is_active(v)) return;
        if (surface_.kinds[i] == HalfEdgeMesh::Free) old_positions_[i] = fitted_on_surface(v, sags);
        if (surface_.kinds[i] == HalfEdgeMesh::Line) old_positions_[i] = fitted_on_line(v);
    });
    std::swap(old_positions_, surface_.positions);
    old_places_ = lines_.places();
    old_places_.resize(surface_.positions.size(), 0);
    lines_.places().resize(surface_.positions.size(), 0);
    restore_spoiled_faces();
}

// How far the middle of a triangle lies below the original; 0 where that is not plain.
double Remesher::sag(std::size_t t) const {
    const std::array<std::int32_t, 3>& v = surface_.triangles[t];
    const Vec3d normal = surface_.normal(t);
    const double size = length(normal);
    if (!(size > 0)) return 0;
    const Vec3d middle =
        (surface_.position(v[0]) + surface_.position(v[1]) + surface_.position(v[2])) / 3.0;
    const double reach =
        0.25 * std::min({lengths_[index(v[0])], lengths_[index(v[1])], lengths_[index(v[2])]});
    NearestPoint found = walk(middle, sources_[index(v[0])]);
    if (!(found.squared_distance <= squared(reach))) found = tree_.find(middle, squared(reach));
    if (!found.is_found()) return 0;
    return dot(found.point - middle, normal) / size;
}

// Out by the mean of what the triangles around are short of, where they all are; not by much more
// than the least of them, so that what is flat on one side stays.
Vec3d Remesher::fitted_on_surface(std::int32_t v, const Array<double>& sags) const {
    Vec3d normal;
    double sum = 0;
    double areas = 0;
    double least = std::numeric_limits<double>::max();
    double greatest = std::numeric_limits<double>::lowest();
    surface_.around(v, [&](std::uint32_t h) {
        const Vec3d n = surface_.normal(h / 3);
        const double area = length(n);
        normal = normal + n;
        sum += area * sags[h / 3];
        areas += area;
        least = std::min(least, sags[h / 3]);
        greatest = std::max(greatest, sags[h / 3]);
    });
    const Vec3d p = surface_.position(v);
    const double size = length(normal);
    if (!(size > 0) || !(least > 0 || greatest < 0)) return p;
    const double bound = 2 * std::min(std::abs(least), std::abs(greatest));
    return p + normal * (std::clamp(sum / areas, -bound, bound) / size);
}

Vec3d Remesher::fitted_on_line(std::int32_t v) const {
    constexpr double kMeanOfChord = 2.0 / 3.0;
    std::array<Vec3d, 2> offsets;
    std::size_t count = 0;
    const auto look_at = [&](std::uint32_t h) {
        const FeatureLines::Part part = lines_.part(surface_, h);
        const Vec3d chord =
            surface_.position(surface_.origin(h)) + surface_.position(surface_.target(h));
        if (count < 2)
            offsets[count] = lines_.point(part.line, 0.5 * (part.from + part.to)) - chord * 0.5;
        ++count;
    };
    surface_.around(v, [&](std::uint32_t h) {
        if (surface_.features[h] != 0) look_at(h);
        const std::uint32_t back = HalfEdgeMesh::previous(h);
        if (surface_.opposites[back] == HalfEdgeMesh::kNone) look_at(back);
    });
    const Vec3d p = surface_.position(v);
    if (count != 2 || !(dot(offsets[0], offsets[1]) > 0)) return p;
    const Vec3d shift = (offsets[0] + offsets[1]) * (0.5 * kMeanOfChord);
    const double bound = 2 * std::min(length(offsets[0]), length(offsets[1]));
    const double size = length(shift);
    return p + (size > bound ? shift * (bound / size) : shift);
}

}  // namespace povmesh
