// Edge collapse by a queue. Every vertex has a quadric, a form that gives the sum of the squared
// distances of a point to the planes of its faces (and, in a space of six dimensions, to what these
// carry). An edge costs what the sum of the quadrics at its ends gives at its midpoint. The
// cheapest edge goes, its survivor gets the sum, and the edges around it come into the queue again
// with fresh costs; entries from before are stale. One shell after the other.
//
// Sources: M. Garland and P. Heckbert, Surface simplification using quadric error metrics, SIGGRAPH
// 1997; H. Hoppe, New quadric metric for simplifying meshes with appearance attributes, IEEE
// Visualization 1999; T. Dey et al., Topology preserving edge contraction, 1999.
#include "remesh/reduce.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <limits>
#include <span>

#include "base/parallel.h"
#include "base/poll.h"
#include "mesh/bounds.h"
#include "mesh/compact.h"
#include "mesh/edge_mates.h"
#include "mesh/shells.h"
#include "remesh/collapse_queue.h"
#include "remesh/corner_attributes.h"
#include "remesh/corner_merge.h"
#include "remesh/face_rows.h"
#include "remesh/quadric.h"
#include "remesh/reduction_target.h"

namespace povmesh {
namespace {

// A collapse works through all faces at its two ends, and puts their edges into the queue again.
// With this bound a vertex of high valence cannot make the whole quadratic.
constexpr std::size_t kMaxValence = 1024;

// Edges looked at between two tellings of how far it is: some milliseconds.
constexpr std::size_t kTurnsToTell = 8192;

// What is done, in percent, when the queue is to be filled, and when no edge is left to collapse.
constexpr std::size_t kPreparedPercent = 25;
constexpr std::size_t kCollapsedPercent = 95;

Vec3f midpoint(Vec3f a, Vec3f b) {
    const auto half = [](float x, float y) {
        return static_cast<float>(0.5 * (static_cast<double>(x) + static_cast<double>(y)));
    };
    return {half(a.x, b.x), half(a.y, b.y), half(a.z, b.z)};
}

Vec3d unscaled_normal(const std::array<Vec3f, 3>& p) {
    const Vec3d origin = to_double(p[0]);
    return cross(to_double(p[1]) - origin, to_double(p[2]) - origin);
}

// True when the cosine between two normals is below the limit. A face that had no area may turn as
// it likes, one that loses its area turns too far.
bool turns_too_far(Vec3d before, Vec3d after, double limit) {
    const double squares = dot(before, before) * dot(after, after);
    if (squares > 0) {
        const double cosine = dot(before, after) / std::sqrt(squares);
        return cosine < limit;
    }
    return dot(before, before) > 0;
}

template <typename Quadric>
class EdgeCollapser {
public:
    EdgeCollapser(TriMesh& mesh, double least_cosine, ReduceReport& report)
        : mesh_(mesh),
          least_cosine_(least_cosine),
          report_(report),
          origin_(middle(mesh)),
          triangles_(mesh.faces.size()),
          rows_(mesh.use_table),
          vertices_(mesh.vertices.size(), VertexState{}) {
        polled_resize(quadrics_, mesh.vertices.size());
        for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
            poll_at(f);
            const Face& face = mesh.faces[f];
            triangles_[f] = face.vertex;
            if (face.deleted != 0) {
                triangles_[f][0] = kGone;
                continue;
            }
            for (std::size_t corner = 0; corner < 3; ++corner) {
                VertexState& state = vertices_[index(face.vertex[corner])];
                ++state.use_count;
                state.rim ^=
                    face.vertex[next_corner(corner)] ^ face.vertex[previous_corner(corner)];
            }
        }
        parallel_for(mesh.vertices.size(), [&](std::size_t v) {
            quadrics_[v] = vertex_quadric(v);  // writes only its own record
        });
    }

    // Collapses edges of a shell until `to_delete` faces are gone; returns how many went. Calls
    // `tell` with as many as went so far.
    template <typename Tell>
    std::size_t run(std::span<const std::uint32_t> shell, const EdgeMates& mates,
                    std::size_t to_delete, const Tell& tell) {
        queue_.clear(shell.size() * 3 / 2);
        Poller poller;
        for (const std::uint32_t f : shell) {
            poller();
            push_edges_of(f, mates);
        }
        std::size_t deleted = 0;
        std::size_t turns = 0;
        CollapseQueue::Entry entry;
        const auto stale = [this](const CollapseQueue::Entry& e) { return is_stale(e); };
        while (deleted < to_delete && queue_.pop(entry, stale)) {
            poll_at(turns);
            if (++turns % kTurnsToTell == 0) tell(deleted);
            if (is_stale(entry)) continue;
            if (try_collapse(entry.a, entry.b)) deleted += 2;
        }
        return deleted;
    }

    void write_back() {
        for (std::size_t f = 0; f < triangles_.size(); ++f) {
            poll_at(f);
            if (triangles_[f][0] == kGone) {
                mesh_.faces[f].deleted = 1;
            } else {
                mesh_.faces[f].vertex = triangles_[f];
            }
        }
    }

private:
    static constexpr std::int32_t kGone = -1;  // first vertex of a deleted triangle

    struct VertexState {
        std::uint64_t changed_at = 0;  // entries with a lower number are stale
        std::uint32_t use_count = 0;   // live faces
        // Exclusive-or of the other vertices of all live faces. At a closed fan each comes twice
        // and the result is 0; anything else is a boundary.
        std::int32_t rim = 0;
        std::uint32_t mark = 0;
        std::uint32_t mark_face = 0;
    };

    static std::size_t index(std::int32_t v) { return static_cast<std::size_t>(v); }

    // Quadrics lose digits far from their origin.
    static Vec3d middle(const TriMesh& mesh) {
        const Box3f box = finite_bounds(mesh);
        if (box.is_empty()) return {};
        return (to_double(box.low) + to_double(box.high)) * 0.5;
    }

    Vec3d local(Vec3f p) const { return to_double(p) - origin_; }

    Vec3f position(std::int32_t v) const { return mesh_.vertices[index(v)].position(); }

    Quadric vertex_quadric(std::size_t v) const {
        Quadric sum;
        for (const Use& use : mesh_.uses(v)) {
            const Face& face = mesh_.faces[use.face()];
            if (face.deleted != 0) continue;
            AttributedTriangle triangle;
            for (std::size_t corner = 0; corner < 3; ++corner) {
                triangle.position[corner] = local(mesh_.corner_position(face, corner));
                if constexpr (Quadric::kHasAttributes) {
                    triangle.attributes[corner] = corner_attributes(mesh_, face, corner);
                }
            }
            sum.add(triangle);
        }
        return sum;
    }

    bool is_stale(const CollapseQueue::Entry& e) const {
        return vertices_[index(e.a)].changed_at > e.number ||
               vertices_[index(e.b)].changed_at > e.number;
    }

    // The error of the midpoint of an edge, with the attributes that the face has there.
    void push_edge(std::uint32_t face, std::size_t corner, std::int32_t a, std::int32_t b) {
        const Vec3d p = (local(position(a)) + local(position(b))) * 0.5;
        Quadric sum = quadrics_[index(a)];
        sum += quadrics_[index(b)];
        Attributes middle_attributes{};
        if constexpr (Quadric::kHasAttributes) {
            const Face& record = mesh_.faces[face];
            const Attributes s = corner_attributes(mesh_, record, corner);
            const Attributes t = corner_attributes(mesh_, record, next_corner(corner));
            for (std::size_t k = 0; k < 3; ++k) middle_attributes[k] = 0.5 * (s[k] + t[k]);
        }
        queue_.push(sum.at(p, middle_attributes), a, b);
    }

    // An edge comes up once for each of its faces. Where the second face carries the same, its
    // entry would have the same cost and come right after the first one: it is left out.
    void push_edges_of(std::uint32_t f, const EdgeMates& mates) {
        const std::array<std::int32_t, 3> triangle = triangles_[f];
        if (triangle[0] == kGone) return;
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const std::int32_t a = triangle[corner];
            const std::int32_t b = triangle[next_corner(corner)];
            if (mates.kind(f, corner) == EdgeMates::Kind::Manifold) {
                const std::uint32_t mate = mates.mate(f, corner);
                // Collapses of another shell at the same vertex may have parted the two.
                const bool is_shared = holds(mate, a) && holds(mate, b);
                if (mate < f && is_shared && carry_the_same(f, mate, a, b)) continue;
            }
            push_edge(f, corner, a, b);
        }
    }

    bool carry_the_same(std::uint32_t f, std::uint32_t g, std::int32_t a, std::int32_t b) const {
        if constexpr (Quadric::kHasAttributes) {
            return key_at(f, a) == key_at(g, a) && key_at(f, b) == key_at(g, b);
        }
        return true;
    }

    std::size_t corner_of(std::uint32_t f, std::int32_t v) const {
        const std::array<std::int32_t, 3>& t = triangles_[f];
        assert(t[0] == v || t[1] == v || t[2] == v);
        return t[0] == v ? 0 : t[1] == v ? 1 : 2;
    }
    bool holds(std::uint32_t f, std::int32_t v) const {
        const std::array<std::int32_t, 3>& t = triangles_[f];
        return t[0] == v || t[1] == v || t[2] == v;
    }
    CornerKey key_at(std::uint32_t f, std::int32_t v) const {
        return {mesh_, mesh_.faces[f], corner_of(f, v)};
    }

    // Takes deleted faces out of a row.
    std::span<std::uint32_t> live_row(std::int32_t v) {
        const std::span<std::uint32_t> row = rows_.row(index(v));
        const auto end = std::remove_if(
            row.begin(), row.end(), [this](std::uint32_t f) { return triangles_[f][0] == kGone; });
        const auto size = static_cast<std::size_t>(end - row.begin());
        rows_.shorten(index(v), size);
        return row.first(size);
    }

    bool try_collapse(std::int32_t a, std::int32_t b) {
        const VertexState& state_a = vertices_[index(a)];
        const VertexState& state_b = vertices_[index(b)];
        if (a == b) return false;
        if (state_a.use_count < 3 || state_b.use_count < 3) return turn_down(report_.too_few_faces);
        if (state_a.rim != 0 || state_b.rim != 0) return turn_down(report_.boundary);
        if (std::size_t{state_a.use_count} + state_b.use_count > kMaxValence) {
            return turn_down(report_.valence);
        }
        row_a_ = live_row(a);
        row_b_ = live_row(b);
        if (!find_edge_faces(b)) return turn_down(report_.link);
        if (!satisfies_link_condition(a, b)) return turn_down(report_.link);
        const Vec3f target = midpoint(position(a), position(b));
        if (least_cosine_ > -1 &&
            (turns_a_face(row_a_, a, b, target) || turns_a_face(row_b_, b, a, target))) {
            return turn_down(report_.normal_limit);
        }
        collapse(a, b, target);
        return true;
    }

    static bool turn_down(std::size_t& counter) {
        ++counter;
        return false;
    }

    // Finds the faces on the edge in the row of its first end; false when there are not just two.
    bool find_edge_faces(std::int32_t b) {
        std::size_t count = 0;
        for (const std::uint32_t f : row_a_) {
            if (!holds(f, b)) continue;
            if (count == 2) return false;
            edge_faces_[count++] = f;
        }
        return count == 2;
    }

    std::int32_t third_vertex(std::uint32_t f, std::int32_t a, std::int32_t b) const {
        const std::array<std::int32_t, 3>& t = triangles_[f];
        return t[0] ^ t[1] ^ t[2] ^ a ^ b;
    }

    // The link condition: what both ends are linked to is what the edge is linked to. Of vertices
    // that is the two opposite the edge, c and d; of edges nothing, so that not both ends have a
    // face with c and d.
    bool satisfies_link_condition(std::int32_t a, std::int32_t b) {
        const std::int32_t c = third_vertex(edge_faces_[0], a, b);
        const std::int32_t d = third_vertex(edge_faces_[1], a, b);
        if (c == d) return false;
        const std::uint32_t mark = ++mark_;
        for (const std::uint32_t f : row_a_) {
            for (const std::int32_t v : triangles_[f]) vertices_[index(v)].mark = mark;
        }
        for (const std::int32_t v : {a, b, c, d}) vertices_[index(v)].mark = 0;
        for (const std::uint32_t f : row_b_) {
            for (const std::int32_t v : triangles_[f]) {
                if (vertices_[index(v)].mark == mark) return false;
            }
        }
        const auto has_both = [&](std::uint32_t f) { return holds(f, c) && holds(f, d); };
        return std::none_of(row_a_.begin(), row_a_.end(), has_both) ||
               std::none_of(row_b_.begin(), row_b_.end(), has_both);
    }

    bool turns_a_face(std::span<const std::uint32_t> row, std::int32_t moved, std::int32_t other,
                      Vec3f target) const {
        for (const std::uint32_t f : row) {
            if (holds(f, other)) continue;
            std::array<Vec3f, 3> p;
            for (std::size_t i = 0; i < 3; ++i) p[i] = position(triangles_[f][i]);
            const Vec3d before = unscaled_normal(p);
            p[corner_of(f, moved)] = target;
            if (turns_too_far(before, unscaled_normal(p), least_cosine_)) return true;
        }
        return false;
    }

    void collapse(std::int32_t a, std::int32_t b, Vec3f target) {
        if constexpr (Quadric::kHasAttributes) merge_corners(a, b);
        for (const std::uint32_t f : edge_faces_) {
            VertexState& opposite = vertices_[index(third_vertex(f, a, b))];
            opposite.rim ^= a ^ b;
            --opposite.use_count;
            triangles_[f][0] = kGone;
        }
        for (const std::uint32_t f : row_b_) {
            std::array<std::int32_t, 3>& t = triangles_[f];
            if (t[0] == kGone) continue;
            for (std::int32_t& v : t) {
                if (v == b) {
                    v = a;
                } else {
                    vertices_[index(v)].rim ^= a ^ b;
                }
            }
        }
        VertexState& survivor = vertices_[index(a)];
        VertexState& removed = vertices_[index(b)];
        survivor.use_count += removed.use_count - 4;
        survivor.rim ^= removed.rim;
        survivor.changed_at = queue_.next_number();
        removed.use_count = 0;
        removed.changed_at = std::numeric_limits<std::uint64_t>::max();
        quadrics_[index(a)] += quadrics_[index(b)];
        Vertex& vertex = mesh_.vertices[index(a)];
        vertex.x = target.x;
        vertex.y = target.y;
        vertex.z = target.z;
        live_row(a);
        live_row(b);
        rows_.join(index(a), index(b));
        push_edges_around(a);
    }

    void merge_corners(std::int32_t a, std::int32_t b) {
        std::array<typename CornerMerge::Side, 2> sides;
        for (std::size_t i = 0; i < 2; ++i) {
            const std::uint32_t f = edge_faces_[i];
            sides[i] = {key_at(f, a), key_at(f, b), &mesh_.faces[f], corner_of(f, a),
                        corner_of(f, b)};
        }
        CornerMerge merge(mesh_, sides[0], sides[1]);
        for (const bool is_at_a : {true, false}) {
            for (const std::uint32_t f : is_at_a ? row_a_ : row_b_) {
                if (f == edge_faces_[0] || f == edge_faces_[1]) continue;
                merge.apply(mesh_.faces[f], corner_of(f, is_at_a ? a : b), is_at_a);
            }
        }
    }

    // Each edge around the vertex once, and again where its other face carries something else.
    void push_edges_around(std::int32_t a) {
        const std::span<const std::uint32_t> row = rows_.row(index(a));
        const std::uint32_t mark = ++mark_;
        for (const std::uint32_t f : row) {
            const std::size_t corner = corner_of(f, a);
            const std::int32_t b = triangles_[f][next_corner(corner)];
            vertices_[index(b)].mark = mark;
            vertices_[index(b)].mark_face = f;
            push_edge(f, corner, a, b);
        }
        for (const std::uint32_t f : row) {
            const std::size_t corner = previous_corner(corner_of(f, a));
            const std::int32_t b = triangles_[f][corner];
            const VertexState& state = vertices_[index(b)];
            if (state.mark == mark && carry_the_same(f, state.mark_face, a, b)) continue;
            push_edge(f, corner, b, a);
        }
    }

    TriMesh& mesh_;
    double least_cosine_;
    ReduceReport& report_;
    Vec3d origin_;
    Array<std::array<std::int32_t, 3>> triangles_;
    Array<Quadric> quadrics_;
    FaceRows rows_;
    Array<VertexState> vertices_;
    CollapseQueue queue_;
    std::uint32_t mark_ = 0;

    // Of the collapse at hand.
    std::span<const std::uint32_t> row_a_, row_b_;
    std::array<std::uint32_t, 2> edge_faces_{};
};

template <typename Quadric>
void collapse_shells(TriMesh& mesh, const EdgeMates& mates, const ReduceOptions& options,
                     Progress progress, ReduceReport& report) {
    EdgeCollapser<Quadric> collapser(mesh, options.least_cosine, report);
    mesh.use_table.release();
    std::size_t all = 0;
    for (std::size_t s = 0; s < mesh.shells.size(); ++s) {
        all += faces_to_delete(mesh.shells[s].size(), options.keep, options.least_keep);
    }
    std::size_t aimed = 0;  // of the shells before
    const auto tell = [&](std::size_t deleted) {
        constexpr std::size_t kSpan = kCollapsedPercent - kPreparedPercent;
        const std::size_t percent =
            kPreparedPercent + kSpan * (aimed + deleted) / std::max<std::size_t>(all, 1);
        progress.set(static_cast<std::uint32_t>(percent));
    };
    for (std::size_t s = 0; s < mesh.shells.size(); ++s) {
        const std::span<const std::uint32_t> shell = mesh.shells[s];
        const std::size_t to_delete =
            faces_to_delete(shell.size(), options.keep, options.least_keep);
        report.faces_aimed -= to_delete;
        if (to_delete == 0) continue;
        tell(0);
        const std::size_t deleted = collapser.run(shell, mates, to_delete, tell);
        aimed += to_delete;
        report.faces_after -= deleted;
        if (deleted < to_delete) report.is_reached = false;
    }
    collapser.write_back();
}

bool keeps_all(const TriMesh& mesh, const ReduceOptions& options) {
    for (std::size_t s = 0; s < mesh.shells.size(); ++s) {
        if (faces_to_delete(mesh.shells[s].size(), options.keep, options.least_keep) != 0) {
            return false;
        }
    }
    return true;
}

void collapse_edges(TriMesh& mesh, const ReduceOptions& options, Progress progress,
                    ReduceReport& report) {
    if (!(options.keep < kKeepsAll) || report.faces_before == 0) return;
    const EdgeMates mates(mesh);
    label_shells(mesh, mates);
    if (keeps_all(mesh, options)) return;
    if (has_varied_attributes(mesh)) {
        collapse_shells<AttributeQuadric>(mesh, mates, options, progress, report);
    } else {
        collapse_shells<PositionQuadric>(mesh, mates, options, progress, report);
    }
}

}  // namespace

ReduceReport reduce(TriMesh& mesh, const ReduceOptions& options, Progress progress) {
    ReduceReport report;
    report.faces_before = report.faces_aimed = report.faces_after = live_face_count(mesh);
    collapse_edges(mesh, options, progress, report);
    compact(mesh);
    progress.set(100);
    return report;
}

}  // namespace povmesh
