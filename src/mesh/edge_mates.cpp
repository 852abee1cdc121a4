// Each undirected edge is settled once, at the lower-numbered of its two vertices, where every face
// that holds it is named.
#include "mesh/edge_mates.h"

#include <algorithm>
#include <span>

#include "base/parallel.h"
#include "base/poll.h"

namespace povmesh {
namespace {

// Up to this many edges at a vertex are matched by comparing all pairs, which needs no order and no
// memory; a closed mesh has about three edges to higher vertices, each seen from two faces.
constexpr std::size_t kPairwise = 32;

constexpr std::int32_t kSettled = -1;

// One face at one edge from the vertex at hand to a higher neighbour.
struct HalfEdge {
    std::int32_t neighbour;
    std::uint32_t code;  // (face * 3 + edge) * 2 + 1 when the face runs away from the vertex

    std::size_t slot() const { return code >> 1; }
    std::uint32_t face() const { return (code >> 1) / 3; }
    bool runs_out() const { return (code & 1) != 0; }
};

}  // namespace

class EdgeMatesBuilder {
public:
    EdgeMatesBuilder(const TriMesh& mesh, EdgeMates& mates) : mesh_(mesh), mates_(mates) {
        mates_.codes_.resize(mesh.faces.size() * 3);
        parallel_for(mates_.codes_.size(),
                     [&](std::size_t i) { mates_.codes_[i] = EdgeMates::kOpen; });
        mates_.group_offsets_.assign(1, 0);
        has_deleted_ = std::any_of(mesh.faces.begin(), mesh.faces.end(),
                                   [](const Face& face) { return face.deleted != 0; });
    }

    void run_with_uses() {
        for (std::size_t v = 0; v < mesh_.vertices.size(); ++v) {
            poll_at(v);
            gather(v);
            edges_ = gathered_;
            settle();
        }
    }

    // The edges of all vertices are gathered first, in the order of the uses.
    void run() {
        Array<std::uint32_t> starts;
        starts.assign(mesh_.vertices.size() + 2, 0);
        visit_edges([&](std::int32_t v, const HalfEdge&) { ++starts[index_of(v) + 2]; });
        for (std::size_t i = 2; i < starts.size(); ++i) starts[i] += starts[i - 1];
        gathered_.resize(starts.back());
        visit_edges([&](std::int32_t v, const HalfEdge& edge) {
            gathered_[starts[index_of(v) + 1]++] = edge;
        });
        for (std::size_t v = 0; v < mesh_.vertices.size(); ++v) {
            poll_at(v);
            edges_ = {gathered_.data() + starts[v], gathered_.data() + starts[v + 1]};
            settle();
        }
    }

private:
    static std::size_t index_of(std::int32_t vertex) { return static_cast<std::size_t>(vertex); }

    // Calls visit(vertex, edge) for the edges from a vertex to higher ones.
    template <typename Visit>
    void visit_edges(Visit&& visit) const {
        for (std::size_t f = 0; f < mesh_.faces.size(); ++f) {
            poll_at(f);
            const Face& face = mesh_.faces[f];
            if (face.deleted != 0) continue;
            const auto slot = static_cast<std::uint32_t>(f * 3);
            for (std::uint32_t c = 0; c < 3; ++c) {
                const std::size_t before = previous_corner(c);
                const std::int32_t v = face.vertex[c];
                const std::int32_t next = face.vertex[next_corner(c)];
                const std::int32_t previous = face.vertex[before];
                if (next > v) visit(v, {next, (slot + c) * 2 + 1});
                if (previous > v) {
                    visit(v, {previous, (slot + static_cast<std::uint32_t>(before)) * 2});
                }
            }
        }
    }

    void settle() {
        if (edges_.size() <= kPairwise) {
            settle_pairwise();
        } else {
            settle_sorted();
        }
    }

    void gather(std::size_t vertex) {
        gathered_.clear();
        const auto v = static_cast<std::int32_t>(vertex);
        for (const Use& use : mesh_.uses(vertex)) {
            if (has_deleted_ && mesh_.faces[use.face()].deleted != 0) continue;
            const std::uint32_t slot = use.face() * 3;
            const std::uint32_t corner = use.corner();
            if (use.next > v) gathered_.push_back({use.next, (slot + corner) * 2 + 1});
            if (use.previous > v) {
                gathered_.push_back(
                    {use.previous,
                     (slot + static_cast<std::uint32_t>(previous_corner(corner))) * 2});
            }
        }
    }

    void settle_pairwise() {
        for (std::size_t i = 0; i < edges_.size(); ++i) {
            const std::int32_t neighbour = edges_[i].neighbour;
            if (neighbour == kSettled) continue;
            std::size_t found = 0;
            std::size_t other = 0;
            for (std::size_t j = i + 1; j < edges_.size(); ++j) {
                if (edges_[j].neighbour != neighbour) continue;
                if (++found == 1) other = j;
            }
            if (found == 1) {
                join(edges_[i], edges_[other]);
                edges_[other].neighbour = kSettled;
            } else if (found > 1) {
                edge_.clear();
                for (std::size_t j = i; j < edges_.size(); ++j) {
                    if (edges_[j].neighbour != neighbour) continue;
                    edge_.push_back(edges_[j]);
                    edges_[j].neighbour = kSettled;
                }
                settle_many(edge_);
            }
        }
    }

    void settle_sorted() {
        // Uses come in face order, which the sort keeps within an edge.
        polled_sort(edges_.begin(), edges_.end(), [](const HalfEdge& a, const HalfEdge& b) {
            return a.neighbour != b.neighbour ? a.neighbour < b.neighbour : a.code < b.code;
        });
        for (std::size_t i = 0; i < edges_.size();) {
            std::size_t end = i + 1;
            while (end < edges_.size() && edges_[end].neighbour == edges_[i].neighbour) ++end;
            if (end - i == 2) {
                join(edges_[i], edges_[i + 1]);
            } else if (end - i > 2) {
                settle_many({edges_.data() + i, edges_.data() + end});
            }
            i = end;
        }
    }

    // Two faces at one edge. A face with two equal vertices can meet itself there, which is no
    // mate.
    void join(const HalfEdge& a, const HalfEdge& b) {
        if (a.face() == b.face()) return;
        const std::int32_t same = a.runs_out() == b.runs_out() ? 1 : 0;
        mates_.codes_[a.slot()] = static_cast<std::int32_t>(b.face() * 2) + same;
        mates_.codes_[b.slot()] = static_cast<std::int32_t>(a.face() * 2) + same;
    }

    // Three or more records of one edge, in face order; a face with two equal vertices stands in it
    // twice.
    void settle_many(std::span<const HalfEdge> edge) {
        const std::size_t begin = mates_.group_faces_.size();
        for (const HalfEdge& half : edge) {
            if (mates_.group_faces_.size() == begin || mates_.group_faces_.back() != half.face()) {
                mates_.group_faces_.push_back(half.face());
            }
        }
        const std::size_t face_count = mates_.group_faces_.size() - begin;
        if (face_count > 2) {
            const auto group = static_cast<std::int32_t>(mates_.group_offsets_.size() - 1);
            for (const HalfEdge& half : edge) {
                mates_.codes_[half.slot()] = EdgeMates::kFirstGroup - group;
            }
            mates_.group_offsets_.push_back(static_cast<std::uint32_t>(mates_.group_faces_.size()));
            return;
        }
        mates_.group_faces_.resize(begin);
        if (face_count == 2) {
            for (const HalfEdge& a : edge) {
                for (const HalfEdge& b : edge) join(a, b);
            }
        }
    }

    const TriMesh& mesh_;
    EdgeMates& mates_;
    bool has_deleted_ = false;
    Array<HalfEdge> gathered_;
    std::span<HalfEdge> edges_;  // at the vertex at hand
    Array<HalfEdge> edge_;       // of one neighbour
};

EdgeMates::EdgeMates(TriMesh& mesh) {
    ensure_uses(mesh);
    EdgeMatesBuilder(mesh, *this).run_with_uses();
}

EdgeMates EdgeMates::without_uses(const TriMesh& mesh) {
    EdgeMates mates;
    EdgeMatesBuilder(mesh, mates).run();
    return mates;
}

}  // namespace povmesh
