// Every open edge has two ends. Joining each end to one of another open edge at the same vertex
// leaves nothing but closed and unclosed chains, which are then walked.
#include "repair/boundary_loops.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/poll.h"

namespace povmesh {
namespace {

constexpr std::uint32_t kNone = 0xFFFFFFFF;

// End e of open edge k (in the order of faces) is number 2 k + e; end 0 is where the face's winding
// enters the edge, end 1 where it leaves.
class LoopTracer {
public:
    LoopTracer(const TriMesh& mesh, const EdgeMates& mates) : mesh_(mesh), mates_(mates) {
        for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
            poll_at(f);
            if (mesh.faces[f].deleted != 0) continue;
            for (std::size_t edge = 0; edge < 3; ++edge) {
                if (mates.kind(f, edge) == EdgeMates::Kind::Open) {
                    open_.push_back(static_cast<std::uint32_t>(f * 3 + edge));
                }
            }
        }
    }

    BoundaryLoops run() {
        loops_.offsets.push_back(0);
        if (open_.empty()) return std::move(loops_);
        join_ends();
        walk_chains();
        return std::move(loops_);
    }

private:
    std::int32_t end_vertex(std::uint32_t end) const {
        const std::uint32_t slot = open_[end / 2];
        return mesh_.faces[slot / 3].vertex[(slot % 3 + end % 2) % 3];
    }

    void join_ends() {
        joined_.assign(open_.size() * 2, kNone);
        Array<std::uint32_t> left_over;
        for (std::uint32_t end = 0; end < joined_.size(); ++end) {
            if (joined_[end] != kNone) continue;
            const std::uint32_t other = across_fan(end);
            if (other == kNone || other == end || joined_[other] != kNone) {
                left_over.push_back(end);
            } else {
                join(end, other);
            }
        }
        join_left_over(left_over);
    }

    void join(std::uint32_t a, std::uint32_t b) {
        joined_[a] = b;
        joined_[b] = a;
    }

    // Turns about the vertex of an end, from face to face, and returns the end of the open edge at
    // which the fan ends on its other side.
    std::uint32_t across_fan(std::uint32_t end) const {
        const std::int32_t pivot = end_vertex(end);
        std::size_t face = open_[end / 2] / 3;
        std::size_t edge = open_[end / 2] % 3;
        while (true) {
            const std::array<std::int32_t, 3>& v = mesh_.faces[face].vertex;
            if (v[0] == v[1] || v[1] == v[2] || v[2] == v[0]) return kNone;
            // The pivot's corner lies between the edges `corner` and `corner - 1`.
            const std::size_t corner = v[0] == pivot ? 0 : v[1] == pivot ? 1 : 2;
            const std::size_t other = edge == corner ? previous_corner(corner) : corner;
            const EdgeMates::Kind kind = mates_.kind(face, other);
            if (kind == EdgeMates::Kind::NonManifold) return kNone;
            if (kind == EdgeMates::Kind::Open) {
                return end_number(face * 3 + other, other == corner ? 0 : 1);
            }
            const std::int32_t far_vertex =
                v[other == corner ? next_corner(corner) : previous_corner(corner)];
            face = mates_.mate(face, other);
            edge = edge_between(mesh_.faces[face].vertex, pivot, far_vertex);
        }
    }

    static std::size_t edge_between(const std::array<std::int32_t, 3>& v, std::int32_t a,
                                    std::int32_t b) {
        for (std::size_t edge = 0; edge < 3; ++edge) {
            const std::int32_t from = v[edge];
            const std::int32_t to = v[next_corner(edge)];
            if ((from == a && to == b) || (from == b && to == a)) return edge;
        }
        return 0;
    }

    std::uint32_t end_number(std::size_t slot, std::uint32_t which) const {
        const auto found =
            std::lower_bound(open_.begin(), open_.end(), static_cast<std::uint32_t>(slot));
        return static_cast<std::uint32_t>(found - open_.begin()) * 2 + which;
    }

    void join_left_over(Array<std::uint32_t>& ends) {
        std::sort(ends.begin(), ends.end(), [&](std::uint32_t a, std::uint32_t b) {
            const std::int32_t va = end_vertex(a);
            const std::int32_t vb = end_vertex(b);
            return va != vb ? va < vb : a < b;
        });
        std::array<Array<std::uint32_t>, 2> unmatched;
        for (std::size_t i = 0; i < ends.size();) {
            const std::int32_t vertex = end_vertex(ends[i]);
            for (auto& list : unmatched) list.clear();
            for (; i < ends.size() && end_vertex(ends[i]) == vertex; ++i) {
                unmatched[ends[i] % 2].push_back(ends[i]);
            }
            const std::size_t fitting = std::min(unmatched[0].size(), unmatched[1].size());
            for (std::size_t k = 0; k < fitting; ++k) join(unmatched[0][k], unmatched[1][k]);
            for (const auto& list : unmatched) {
                for (std::size_t k = fitting; k + 1 < list.size(); k += 2) {
                    join(list[k], list[k + 1]);
                }
            }
        }
    }

    void walk_chains() {
        is_walked_.assign(open_.size(), 0);
        place_.assign(mesh_.vertices.size(), kNone);
        for (std::uint32_t first = 0; first < open_.size(); ++first) {
            if (is_walked_[first] == 0) walk_chain(first);
        }
    }

    // Walks from end 1 of an open edge over its end 0, which is against the winding of its face.
    void walk_chain(std::uint32_t first) {
        chain_.clear();
        std::size_t against = 0;
        std::uint32_t entered = first * 2 + 1;
        while (true) {
            const std::uint32_t edge = entered / 2;
            is_walked_[edge] = 1;
            chain_.push_back({end_vertex(entered), open_[edge]});
            against += entered % 2;
            const std::uint32_t next = joined_[entered ^ 1U];
            if (next == kNone || (is_walked_[next / 2] != 0 && next != first * 2 + 1)) {
                loops_.unclosed_edge_count += chain_.size();
                return;
            }
            if (next == first * 2 + 1) break;
            entered = next;
        }
        if (against * 2 < chain_.size()) reverse_chain();
        split_chain();
    }

    void reverse_chain() {
        // Entry i holds the edge to the next vertex, so the edges move by one.
        std::reverse(chain_.begin(), chain_.end());
        for (std::size_t i = 0; i + 1 < chain_.size(); ++i) {
            std::swap(chain_[i].edge, chain_[i + 1].edge);
        }
    }

    // Cuts out a simple loop whenever the chain comes back to a vertex.
    void split_chain() {
        path_.clear();
        for (const BoundaryLoops::Entry& entry : chain_) {
            std::uint32_t& place = place_[static_cast<std::size_t>(entry.vertex)];
            if (place != kNone) cut_loop(place);
            place = static_cast<std::uint32_t>(path_.size());
            path_.push_back(entry);
        }
        cut_loop(0);
    }

    void cut_loop(std::size_t from) {
        for (std::size_t i = from; i < path_.size(); ++i) {
            place_[static_cast<std::size_t>(path_[i].vertex)] = kNone;
        }
        if (path_.size() - from >= 3) {
            loops_.entries.insert(loops_.entries.end(),
                                  path_.begin() + static_cast<std::ptrdiff_t>(from), path_.end());
            loops_.offsets.push_back(static_cast<std::uint32_t>(loops_.entries.size()));
        } else {
            loops_.unclosed_edge_count += path_.size() - from;
        }
        path_.resize(from);
    }

    const TriMesh& mesh_;
    const EdgeMates& mates_;
    BoundaryLoops loops_;
    Array<std::uint32_t> open_;    // face * 3 + edge of every open edge, ascending
    Array<std::uint32_t> joined_;  // of every end: the end it is joined to
    Array<std::uint8_t> is_walked_;
    Array<std::uint32_t> place_;  // of every vertex: its entry on the path, or kNone
    Array<BoundaryLoops::Entry> chain_;
    Array<BoundaryLoops::Entry> path_;
};

}  // namespace

BoundaryLoops trace_boundary_loops(const TriMesh& mesh, const EdgeMates& mates) {
    return LoopTracer(mesh, mates).run();
}

}  // namespace povmesh
