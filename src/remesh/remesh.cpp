// Incremental isotropic remeshing after Botsch and Kobbelt (2004): rounds of split, collapse, flip
// and tangential relaxation, each with the vertices drawn back onto the original.
#include "remesh/remesh.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "base/convert.h"
#include "base/parallel.h"
#include "mesh/compact.h"
#include "mesh/edge_mates.h"
#include "remesh/angle_mending.h"
#include "remesh/carry_attributes.h"
#include "remesh/corner_attributes.h"
#include "remesh/features.h"
#include "remesh/half_edge_mesh.h"
#include "spatial/nearest_face.h"

namespace povmesh {
namespace {

constexpr double kMostTriangles = 10e6;

// The bounds between which no edge is split or collapsed: after a split the halves are not shorter
// than the one, after a collapse the edges not longer than the other.
constexpr double kLong = 4.0 / 3.0;
constexpr double kShort = 4.0 / 5.0;

// Mending small angles may make edges up to this long.
constexpr double kLongest = 1.55;

// The edges of a relaxed surface come out longer than the middle of the two bounds. With this
// factor for the lengths their mean is 0.94 of the length asked for, and the distance to the
// original, which grows with its square, is less than that of a surface without relaxation.
constexpr double kAim = 0.92;

// Height of a triangle, as a share of its longest edge, from which on it is divided beside that.
constexpr double kLeastHeight = 0.25;

// More triangles than this many times those expected and those there are not made: an end to
// splitting whatever the input.
constexpr double kMostOfExpected = 20;

double squared(double x) {
    return x * x;
}

// The feature lines as triangles that are lines, for the search of their nearest point.
TriMesh lines_of(const HalfEdgeMesh& surface, const TriMesh& mesh) {
    TriMesh lines;
    for (std::uint32_t h = 0; h < surface.opposites.size(); ++h) {
        const std::uint32_t g = surface.opposites[h];
        if (surface.is_feature[h] == 0 || (g != HalfEdgeMesh::kNone && g < h)) continue;
        const std::int32_t a = surface.origin(h);
        const std::int32_t b = surface.target(h);
        lines.faces.push_back({{}, 0, -1, {a, b, b}, {-1, -1, -1}});
    }
    if (!lines.faces.empty()) lines.vertices = mesh.vertices;
    return lines;
}

class Remesher {
public:
    Remesher(TriMesh& mesh, const EdgeMates& mates, const RemeshOptions& options,
             Array<float> face_lengths, double expected)
        : original_(mesh),
          options_(options),
          surface_(mesh, mates),
          tree_(mesh),
          face_lengths_(std::move(face_lengths)),
          most_triangles_(saturate_to<std::size_t>(
              kMostOfExpected * (expected + static_cast<double>(surface_.triangles.size())))) {
        mark_features(surface_, mesh, options.feature_angle);
        lines_.emplace(lines_of(surface_, mesh));
        lengths_.resize(surface_.positions.size(), options.edge_length);
        if (!face_lengths_.empty()) start_lengths();
    }

    void run() {
        if (should_collapse_first()) collapse_short_edges();
        for (int round = 0; round < options_.rounds; ++round) {
            split_long_edges();
            collapse_short_edges();
            flip_edges();
            relax();
            relax();
        }
        AngleMending mending;
        mending.longest_edge = [this](std::int32_t v) { return kLongest * lengths_[index(v)]; };
        mending.project = [this](std::int32_t v, Vec3d place) {
            const Vec3d old = surface_.position(v);
            const bool is_line = surface_.kinds[index(v)] == HalfEdgeMesh::Line;
            return projected(is_line ? *lines_ : tree_, old, place, lengths_[index(v)], {});
        };
        mend_angles(surface_, mending);
    }

    // The new surface with what the old one carried.
    TriMesh result() const {
        TriMesh made = surface_.plain_mesh([](std::size_t) { return true; });
        carry_attributes(original_, &tree_, made);
        return made;
    }

private:
    static std::size_t index(std::int32_t v) { return static_cast<std::size_t>(v); }

    // The shortest length of the faces at each vertex.
    void start_lengths() {
        std::fill(lengths_.begin(), lengths_.end(), std::numeric_limits<double>::max());
        std::size_t t = 0;
        for (std::size_t f = 0; f < original_.faces.size(); ++f) {
            if (original_.faces[f].deleted != 0) continue;
            for (const std::int32_t v : surface_.triangles[t++]) {
                double& l = lengths_[index(v)];
                l = std::min(l, static_cast<double>(face_lengths_[f]));
            }
        }
    }

    double length_at(std::uint32_t h) const {
        return 0.5 * (lengths_[index(surface_.origin(h))] + lengths_[index(surface_.target(h))]);
    }

    bool is_upper(std::uint32_t h) const {
        return surface_.opposites[h] != HalfEdgeMesh::kNone && surface_.opposites[h] < h;
    }

    // True where most triangles of a split would be there to be collapsed again or to fill large
    // faces: needles are better collapsed first.
    bool should_collapse_first() const {
        double pieces = 0;
        for (std::uint32_t h = 0; h < surface_.opposites.size(); ++h) {
            if (surface_.is_gone(h / 3) || is_upper(h)) continue;
            const double share = std::sqrt(surface_.squared_length(h)) / length_at(h);
            if (share > kLong) pieces += share;
        }
        return pieces > static_cast<double>(surface_.opposites.size()) / 6;
    }

    // The longest edge first: the new edges beside it are then shorter, and there is an end.
    void split_long_edges() {
        std::vector<LongEdge> heap;
        for (std::uint32_t h = 0; h < surface_.opposites.size(); ++h) {
            if (!surface_.is_gone(h / 3) && !is_upper(h)) add_if_long(h, heap);
        }
        std::make_heap(heap.begin(), heap.end());
        while (!heap.empty()) {
            const LongEdge edge = heap.front();
            std::pop_heap(heap.begin(), heap.end());
            heap.pop_back();
            const std::uint32_t h = edge.half_edge;
            if (surface_.squared_length(h) != edge.squared) continue;  // halved since
            if (is_beside_longer_edge(h) || is_beside_longer_edge(surface_.opposites[h])) continue;
            const Vec3d a = surface_.position(surface_.origin(h));
            const Vec3d b = surface_.position(surface_.target(h));
            const Vec3d middle = (a + b) * 0.5;
            if (middle == a || middle == b) continue;
            if (surface_.triangles.size() >= most_triangles_) return;
            lengths_.push_back(length_at(h));
            // The edges beyond have new numbers, and those they are waiting under are lost.
            surface_.around(surface_.split(h, middle), [&](std::uint32_t e) {
                push_if_long(e, heap);
                push_if_long(HalfEdgeMesh::next(e), heap);
                push_if_long(HalfEdgeMesh::previous(e), heap);
            });
        }
    }

    struct LongEdge {
        double squared;
        std::uint32_t half_edge;
        friend bool operator<(const LongEdge& x, const LongEdge& y) {
            return x.squared != y.squared ? x.squared < y.squared : x.half_edge > y.half_edge;
        }
    };

    void push_if_long(std::uint32_t h, std::vector<LongEdge>& heap) const {
        const std::size_t size = heap.size();
        add_if_long(h, heap);
        if (heap.size() != size) std::push_heap(heap.begin(), heap.end());
    }

    bool is_long(std::uint32_t h) const {
        return surface_.squared_length(h) > squared(kLong * length_at(h));
    }

    void add_if_long(std::uint32_t h, std::vector<LongEdge>& heap) const {
        if (surface_.is_locked[h] == 0 && is_long(h)) {
            heap.push_back({surface_.squared_length(h), h});
        }
    }

    // True when a longer edge of the triangle, which would have been split before, could not be:
    // one that is locked, or beside a longer one itself. What is split beside it leaves long edges
    // again, without end; so that is done only as far as the triangle does not get too flat. Edges
    // grow shorter with the distance from those that are locked.
    bool is_beside_longer_edge(std::uint32_t h) const {
        if (h == HalfEdgeMesh::kNone) return false;
        const double square = surface_.squared_length(h);
        const Vec3d normal = surface_.normal(h / 3);
        for (const std::uint32_t e : {HalfEdgeMesh::next(h), HalfEdgeMesh::previous(h)}) {
            const double longer = surface_.squared_length(e);
            if (longer > square && is_long(e) &&
                dot(normal, normal) < squared(kLeastHeight * longer)) {
                return true;
            }
        }
        return false;
    }

    void collapse_short_edges() {
        for (std::uint32_t h = 0; h < surface_.opposites.size(); ++h) {
            if (surface_.is_gone(h / 3) || is_upper(h)) continue;
            if (!(surface_.squared_length(h) < squared(kShort * length_at(h)))) continue;
            try_collapse(h);
        }
    }

    void try_collapse(std::uint32_t h) {
        using Kind = HalfEdgeMesh::Kind;
        // The end that is bound more stays.
        const auto kind = [&](std::uint32_t e) {
            return surface_.kinds[index(surface_.origin(e))];
        };
        const bool is_line = surface_.is_feature[h] != 0;
        std::uint32_t from = h;
        const auto kind_b = surface_.kinds[index(surface_.target(h))];
        if (kind_b > kind(h)) {
            if (surface_.opposites[h] == HalfEdgeMesh::kNone) {
                return try_merge_open(h);
            }
            from = surface_.opposites[h];
        }
        const auto stays = kind(from);
        const auto goes = surface_.kinds[index(surface_.target(from))];
        if (goes >= Kind::Fixed || (goes == Kind::Line && !is_line)) return;
        const Vec3d a = surface_.position(surface_.origin(from));
        const Vec3d b = surface_.position(surface_.target(from));
        const Vec3d place = stays == goes ? (a + b) * 0.5 : a;
        merge(from, place);
    }

    // An open edge has one half-edge only: its target stays by moving the origin there.
    void try_merge_open(std::uint32_t h) {
        const std::int32_t a = surface_.origin(h);
        const std::int32_t b = surface_.target(h);
        if (surface_.kinds[index(a)] != HalfEdgeMesh::Line ||
            surface_.kinds[index(b)] != HalfEdgeMesh::Fixed) {
            return;
        }
        if (merge(h, surface_.position(b))) surface_.kinds[index(a)] = HalfEdgeMesh::Fixed;
    }

    bool merge(std::uint32_t h, Vec3d place) {
        const std::int32_t a = surface_.origin(h);
        const std::int32_t b = surface_.target(h);
        if (!surface_.can_collapse(h)) return false;
        if (!may_move(a, b, place) || !may_move(b, a, place)) return false;
        lengths_[index(a)] = 0.5 * (lengths_[index(a)] + lengths_[index(b)]);
        surface_.collapse(h, place);
        return true;
    }

    // True when no edge gets too long and no face turns when v goes to the place; faces that have
    // `other` too are left out.
    bool may_move(std::int32_t v, std::int32_t other, Vec3d place) const {
        bool may = true;
        const Vec3d p = surface_.position(v);
        surface_.around(v, [&](std::uint32_t h) {
            if (!may) return;
            const std::int32_t b = surface_.target(h);
            const std::int32_t c = surface_.apex(h);
            const Vec3d pb = surface_.position(b);
            const Vec3d pc = surface_.position(c);
            const double limit = squared(kLong) * squared(lengths_[index(b)]);
            if (b != other && dot(place - pb, place - pb) > limit) may = false;
            if (c != other && dot(place - pc, place - pc) > squared(kLong * lengths_[index(c)])) {
                may = false;
            }
            if (b == other || c == other) return;
            if (turns(cross(pb - p, pc - p), cross(pb - place, pc - place))) may = false;
        });
        return may;
    }

    void flip_edges() {
        for (std::uint32_t h = 0; h < surface_.opposites.size(); ++h) {
            if (surface_.is_gone(h / 3) || surface_.is_feature[h] != 0 || is_upper(h)) continue;
            if (improves(h) && may_flip(h)) surface_.flip(h);
        }
    }

    // The valence that a vertex should have: 6, or 4 on an open border.
    int excess(std::int32_t v) const {
        const bool is_bound = surface_.kinds[index(v)] != HalfEdgeMesh::Free;
        const bool is_open = is_bound && surface_.is_open(v);
        // An open fan has one neighbour more than faces.
        return static_cast<int>(surface_.valences[index(v)]) - (is_open ? 3 : 6);
    }

    bool improves(std::uint32_t h) const {
        const std::uint32_t g = surface_.opposites[h];
        const int a = excess(surface_.origin(h));
        const int b = excess(surface_.target(h));
        const int c = excess(surface_.apex(h));
        const int d = excess(surface_.apex(g));
        const auto square = [](int x) { return x * x; };
        return square(a - 1) + square(b - 1) + square(c + 1) + square(d + 1) <
               square(a) + square(b) + square(c) + square(d);
    }

    bool may_flip(std::uint32_t h) const {
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
        return true;
    }

    // Draws every vertex to the middle of its neighbours, along the surface, and back onto the
    // original. All new places come from the old ones; those that would turn a face are taken back.
    void relax() {
        const std::size_t count = surface_.positions.size();
        targets_.resize(count);
        parallel_for(count, [&](std::size_t v) { targets_[v] = relaxed(v); });
        std::swap(targets_, surface_.positions);  // the old places are in targets_ now
        restore_turned_faces();
        if (!face_lengths_.empty()) renew_lengths();
    }

    Vec3d relaxed(std::size_t v) {
        const Vec3d p = surface_.positions[v];
        if (surface_.starts[v] == HalfEdgeMesh::kNone) return p;
        switch (surface_.kinds[v]) {
            case HalfEdgeMesh::Free:
                return relaxed_on_surface(static_cast<std::int32_t>(v), p);
            case HalfEdgeMesh::Line:
                return relaxed_on_line(static_cast<std::int32_t>(v), p);
            default:
                return p;
        }
    }

    Vec3d relaxed_on_surface(std::int32_t v, Vec3d p) const {
        // Triangles weigh with their area over the squared length wanted there.
        Vec3d sum;
        Vec3d normal;
        double weights = 0;
        surface_.around(v, [&](std::uint32_t h) {
            const Vec3d b = surface_.position(surface_.target(h));
            const Vec3d c = surface_.position(surface_.apex(h));
            const Vec3d n = cross(b - p, c - p);
            const double weight = length(n) / squared(length_at(HalfEdgeMesh::next(h)));
            sum = sum + (p + b + c) * (weight / 3);
            weights += weight;
            normal = normal + n;
        });
        if (!(weights > 0)) return p;
        Vec3d step = sum / weights - p;
        const double square = dot(normal, normal);
        if (square > 0) step = step - normal * (dot(step, normal) / square);
        return projected(tree_, p, p + step, lengths_[index(v)], normal);
    }

    Vec3d relaxed_on_line(std::int32_t v, Vec3d p) const {
        Vec3d sum;
        int count = 0;
        surface_.around(v, [&](std::uint32_t h) {
            if (surface_.is_feature[h] != 0) {
                sum = sum + surface_.position(surface_.target(h));
                ++count;
            }
            const std::uint32_t back = HalfEdgeMesh::previous(h);
            if (surface_.opposites[back] == HalfEdgeMesh::kNone) {
                sum = sum + surface_.position(surface_.origin(back));
                ++count;
            }
        });
        if (count != 2) return p;
        return projected(*lines_, p, sum * 0.5, lengths_[index(v)], {});
    }

    // The point of the original nearest to `wanted`; the old place where there is none close by, or
    // none that faces the same way (the other side of a thin wall).
    Vec3d projected(const NearestFace& onto, Vec3d old, Vec3d wanted, double reach,
                    Vec3d normal) const {
        NearestPoint found = onto.find(wanted, squared(0.25 * reach));
        if (!found.is_found()) found = onto.find(wanted, squared(2 * reach));
        if (!found.is_found()) return old;
        if (dot(normal, normal) > 0) {
            const Face& face = original_.faces[found.face];
            const Vec3d a = to_double(original_.corner_position(face, 0));
            const Vec3d n = cross(to_double(original_.corner_position(face, 1)) - a,
                                  to_double(original_.corner_position(face, 2)) - a);
            if (dot(n, normal) < 0) return old;
        }
        return found.point;
    }

    Vec3d old_normal(std::size_t t) const {
        const std::array<std::int32_t, 3>& v = surface_.triangles[t];
        const Vec3d p = targets_[index(v[0])];
        return cross(targets_[index(v[1])] - p, targets_[index(v[2])] - p);
    }

    // Vertices of faces that turned go back, until no face has.
    void restore_turned_faces() {
        constexpr int kMostPasses = 20;
        Array<std::uint8_t> is_back(surface_.positions.size(), 0);
        for (int pass = 0; pass < kMostPasses; ++pass) {
            std::atomic<bool> any = false;
            parallel_for(surface_.triangles.size(), [&](std::size_t t) {
                if (surface_.is_gone(t) || !turns(old_normal(t), surface_.normal(t))) return;
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
                if (is_back[v] != 0) surface_.positions[v] = targets_[v];
            });
        }
        surface_.positions = targets_;
    }

    void renew_lengths() {
        parallel_for(surface_.positions.size(), [&](std::size_t v) {
            if (surface_.starts[v] == HalfEdgeMesh::kNone) return;
            const NearestPoint found = tree_.find(surface_.positions[v]);
            if (found.is_found()) lengths_[v] = static_cast<double>(face_lengths_[found.face]);
        });
    }

    const TriMesh& original_;
    RemeshOptions options_;
    HalfEdgeMesh surface_;
    NearestFace tree_;
    std::optional<NearestFace> lines_;
    Array<float> face_lengths_;
    Array<double> lengths_;  // wanted at each vertex
    std::size_t most_triangles_;
    Array<Vec3d> targets_;
};

// What the area needs in equilateral triangles, and the edges in pieces with a triangle on each
// side, whichever is more: a needle has edges and no area.
double triangles_made(const TriMesh& mesh, std::span<const float> face_lengths, double edge_length,
                      double factor) {
    const double equilateral = std::sqrt(3.0) / 4;
    double by_area = 0;
    double by_edges = 0;
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        const Face& face = mesh.faces[f];
        if (face.deleted != 0) continue;
        const Vec3d a = to_double(mesh.corner_position(face, 0));
        const Vec3d b = to_double(mesh.corner_position(face, 1));
        const Vec3d c = to_double(mesh.corner_position(face, 2));
        const double l =
            factor * (face_lengths.empty() ? edge_length : static_cast<double>(face_lengths[f]));
        by_area += 0.5 * length(cross(b - a, c - a)) / (equilateral * l * l);
        by_edges += (length(b - a) + length(c - b) + length(a - c)) / l;
    }
    return std::max(by_area, by_edges / 4);
}

// Values not positive or not finite become the mean edge of their face, or 1 where that is not
// either.
Array<float> usable_lengths(const TriMesh& mesh, std::span<const float> given) {
    Array<float> lengths;
    for (std::size_t f = 0; f < given.size(); ++f) {
        float l = given[f];
        if (!(l > 0) || !std::isfinite(l)) {
            const Face& face = mesh.faces[f];
            l = 0;
            for (std::size_t c = 0; c < 3; ++c) {
                l += length(mesh.corner_position(face, (c + 1) % 3) -
                            mesh.corner_position(face, c)) /
                     3;
            }
        }
        lengths.push_back(l > 0 && std::isfinite(l) ? l : 1.0F);
    }
    return lengths;
}

bool has_finite_vertices(const TriMesh& mesh) {
    return std::all_of(mesh.vertices.begin(), mesh.vertices.end(),
                       [](const Vertex& v) { return is_finite(v.position()); });
}

}  // namespace

double raising_factor(const TriMesh& mesh, std::span<const float> face_lengths, double edge_length,
                      double most) {
    double factor = 1;
    // Infinite coordinates have no factor.
    for (int step = 0; step < 200 && std::isfinite(factor); ++step) {
        const double count = triangles_made(mesh, face_lengths, edge_length, factor);
        if (!(count > most)) break;
        factor *= std::max(1.01, std::sqrt(count / most));
    }
    return factor;
}

RemeshReport remesh(TriMesh& mesh, const RemeshOptions& options, RunContext& run) {
    RemeshOptions used = options;
    const bool has_field = !options.face_lengths.empty();
    if (has_field && options.face_lengths.size() != mesh.faces.size()) return {};
    if (!has_field && !(options.edge_length > 0 && std::isfinite(options.edge_length))) return {};
    if (live_face_count(mesh) == 0 || !has_finite_vertices(mesh)) return {};
    used.edge_length *= kAim;
    Array<float> lengths = usable_lengths(mesh, options.face_lengths);
    for (float& l : lengths) l *= static_cast<float>(kAim);
    const double factor = raising_factor(mesh, lengths, used.edge_length, kMostTriangles);
    if (factor > 1) {
        run.log.caution("edge length raised, the model would have more than 10 million triangles");
        used.edge_length *= factor;
        for (float& l : lengths) l = narrow_to_float(static_cast<double>(l) * factor);
    }
    const EdgeMates mates(mesh);
    const double expected = triangles_made(mesh, lengths, used.edge_length, 1);
    Remesher remesher(mesh, mates, used, std::move(lengths), expected);
    remesher.run();
    TriMesh made = remesher.result();
    std::swap(mesh.faces, made.faces);
    std::swap(mesh.vertices, made.vertices);
    std::swap(mesh.texture_coordinates, made.texture_coordinates);
    mesh.use_table.clear();
    mesh.shells.clear();
    compact(mesh);
    return {true, factor};
}

}  // namespace povmesh
