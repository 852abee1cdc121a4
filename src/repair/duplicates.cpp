// Faces meet in a hash table under their sorted vertices; the first of a kind stays in it and the
// others are duplicates. Which of them bound nothing is told by parity: a surface is closed when
// every edge is held by an even number of faces, and a layer of faces may go whole when the edges
// along its rim keep that.
#include "repair/duplicates.h"

#include <algorithm>
#include <array>
#include <bit>
#include <span>
#include <vector>

#include "base/memory.h"
#include "base/poll.h"
#include "base/union_find.h"

namespace povmesh {
namespace {

constexpr std::size_t kBlock = 64;  // faces whose slots are asked for before the first is needed

std::array<std::int32_t, 3> sorted_vertices(const Face& face) {
    auto [a, b, c] = face.vertex;
    if (a > b) std::swap(a, b);
    if (b > c) std::swap(b, c);
    if (a > b) std::swap(a, b);
    return {a, b, c};
}

std::uint64_t hash_of(const std::array<std::int32_t, 3>& v) {
    std::uint64_t h = static_cast<std::uint32_t>(v[0]) * 0x9E3779B97F4A7C15U;
    h = (h ^ (h >> 32) ^ static_cast<std::uint32_t>(v[1])) * 0xD6E8FEB86659FD93U;
    h = (h ^ (h >> 32) ^ static_cast<std::uint32_t>(v[2])) * 0x9E3779B97F4A7C15U;
    return h ^ (h >> 32);
}

}  // namespace

Array<std::uint32_t> find_duplicate_faces(const TriMesh& mesh) {
    // An open-addressing table of faces by their vertices; 0 is empty, others are face + 1.
    const std::size_t mask = std::bit_ceil(mesh.faces.size() + mesh.faces.size() / 2 + 16) - 1;
    Array<std::uint32_t> slots(mask + 1, 0);
    Array<std::uint32_t> duplicates;
    std::array<std::size_t, kBlock> home{};
    for (std::size_t first = 0; first < mesh.faces.size(); first += kBlock) {
        poll_at(first + kBlock - 1);
        const std::size_t count = std::min(kBlock, mesh.faces.size() - first);
        for (std::size_t i = 0; i < count; ++i) {
            home[i] = hash_of(sorted_vertices(mesh.faces[first + i])) & mask;
            prefetch(&slots[home[i]]);
        }
        for (std::size_t i = 0; i < count; ++i) {
            const Face& face = mesh.faces[first + i];
            if (face.deleted != 0) continue;
            const std::array<std::int32_t, 3> vertices = sorted_vertices(face);
            std::size_t place = home[i];
            while (slots[place] != 0 && sorted_vertices(mesh.faces[slots[place] - 1]) != vertices) {
                place = (place + 1) & mask;
            }
            if (slots[place] == 0) {
                slots[place] = static_cast<std::uint32_t>(first + i + 1);
            } else {
                duplicates.push_back(static_cast<std::uint32_t>(first + i));
            }
        }
    }
    return duplicates;
}

namespace {

constexpr std::uint32_t kNone = 0xFFFFFFFF;

class RedundancyFinder {
public:
    RedundancyFinder(const TriMesh& mesh, const EdgeMates& mates) : mesh_(mesh), mates_(mates) {}

    RedundantFaces run(const Array<std::uint32_t>& duplicates) {
        make_stacks(duplicates);
        layers_ = UnionFind(stacks_.size());
        rims_.resize(stacks_.size());
        for (std::uint32_t stack = 0; stack < stacks_.size(); ++stack) {
            poll_at(stack);
            join_neighbours(stack);
        }
        for (std::uint32_t stack = 0; stack < stacks_.size(); ++stack) {
            poll_at(stack);
            look_at_rim(stack);
        }
        return choose();
    }

private:
    // All faces on the same three vertices.
    struct Stack {
        std::uint32_t begin = 0;
        std::uint32_t end = 0;
        std::size_t up = 0;  // those wound one way

        std::size_t size() const { return end - begin; }
        bool is_back_to_back() const { return up * 2 == size(); }
    };

    // Of the stacks that are joined over edges, as one layer.
    struct Rim {
        bool has_odd = false;   // an edge with an odd number of faces beside the layer
        bool has_even = false;  // an edge with an even number of them, not 0
        bool is_closed = true;  // every edge is held by an even number of stacks
        bool is_back_to_back = true;
    };

    struct Edge {
        std::size_t others = 0;  // faces at it that are in no stack
        std::size_t stacks = 0;
        std::uint32_t first_stack = kNone;
    };

    void make_stacks(const Array<std::uint32_t>& duplicates) {
        std::vector<bool> is_near(mesh_.vertices.size(), false);
        for (const std::uint32_t face : duplicates) {
            for (const std::int32_t v : mesh_.faces[face].vertex) {
                is_near[static_cast<std::size_t>(v)] = true;
            }
        }
        for (std::uint32_t face = 0; face < mesh_.faces.size(); ++face) {
            poll_at(face);
            if (mesh_.faces[face].deleted != 0) continue;
            const auto& v = mesh_.faces[face].vertex;
            const bool may_be = std::all_of(v.begin(), v.end(), [&](std::int32_t vertex) {
                return is_near[static_cast<std::size_t>(vertex)];
            });
            if (may_be) faces_.push_back(face);
        }
        const auto vertices = [&](std::uint32_t face) {
            return sorted_vertices(mesh_.faces[face]);
        };
        polled_sort(faces_.begin(), faces_.end(), [&](std::uint32_t a, std::uint32_t b) {
            const auto va = vertices(a);
            const auto vb = vertices(b);
            return va != vb ? va < vb : a < b;
        });
        stack_of_.assign(mesh_.faces.size(), kNone);
        for (std::uint32_t begin = 0; begin < faces_.size();) {
            Stack stack{begin, begin, 0};
            while (stack.end < faces_.size() &&
                   vertices(faces_[stack.end]) == vertices(faces_[begin])) {
                stack.up += is_even(mesh_.faces[faces_[stack.end]].vertex) ? 1 : 0;
                ++stack.end;
            }
            begin = stack.end;
            if (stack.size() == 1) continue;
            for (const std::uint32_t face : faces_of(stack)) {
                stack_of_[face] = static_cast<std::uint32_t>(stacks_.size());
            }
            stacks_.push_back(stack);
        }
    }

    // Whether the vertices stand in an even permutation of their ascending order.
    static bool is_even(const std::array<std::int32_t, 3>& v) {
        const int swaps = (v[0] > v[1] ? 1 : 0) + (v[1] > v[2] ? 1 : 0) + (v[0] > v[2] ? 1 : 0);
        return swaps % 2 == 0;
    }

    std::span<const std::uint32_t> faces_of(const Stack& stack) const {
        return std::span<const std::uint32_t>(faces_).subspan(stack.begin, stack.size());
    }

    // Every stack at an edge is joined with the first one there.
    void join_neighbours(std::uint32_t stack) {
        for (std::size_t edge = 0; edge < 3; ++edge) {
            const Edge found = edge_of(faces_[stacks_[stack].begin], edge);
            if (found.stacks > 1) layers_.unite(stack, found.first_stack);
        }
    }

    Edge edge_of(std::uint32_t face, std::size_t edge) {
        // Two faces on one another are alone at the edge.
        if (mates_.kind(face, edge) != EdgeMates::Kind::NonManifold) return {0, 1, stack_of_[face]};
        const std::size_t number = mates_.group_of(face, edge);
        if (edges_.empty()) edges_.resize(mates_.group_count());
        Edge& known = edges_[number];
        if (known.stacks != 0) return known;
        for (const std::uint32_t f : mates_.group(number)) {
            if (stack_of_[f] == kNone) {
                ++known.others;
            } else if (f == faces_[stacks_[stack_of_[f]].begin]) {
                if (known.stacks++ == 0) known.first_stack = stack_of_[f];
            }
        }
        return known;
    }

    void look_at_rim(std::uint32_t number) {
        const Stack& stack = stacks_[number];
        Rim& rim = rims_[layers_.find(number)];
        rim.is_back_to_back = rim.is_back_to_back && stack.is_back_to_back();
        for (std::size_t edge = 0; edge < 3; ++edge) {
            const Edge found = edge_of(faces_[stack.begin], edge);
            if (found.others % 2 != 0) rim.has_odd = true;
            if (found.others % 2 == 0 && found.others != 0) rim.has_even = true;
            if (found.stacks % 2 != 0) rim.is_closed = false;
        }
    }

    RedundantFaces choose() {
        RedundantFaces removed;
        for (std::uint32_t number = 0; number < stacks_.size(); ++number) {
            const Stack& stack = stacks_[number];
            const Rim& rim = rims_[layers_.find(number)];
            const bool bounds_nothing =
                !rim.has_odd && !rim.is_closed && (rim.has_even || rim.is_back_to_back);
            const bool stays_up =
                stack.up * 2 > stack.size() ||
                (stack.is_back_to_back() && is_even(mesh_.faces[faces_[stack.begin]].vertex));
            if (bounds_nothing) removed.walls.push_back(faces_[stack.begin]);
            bool has_stayed = bounds_nothing;
            for (const std::uint32_t face : faces_of(stack)) {
                if (!has_stayed && is_even(mesh_.faces[face].vertex) == stays_up) {
                    has_stayed = true;
                } else {
                    removed.faces.push_back(face);
                }
            }
        }
        std::sort(removed.faces.begin(), removed.faces.end());
        return removed;
    }

    const TriMesh& mesh_;
    const EdgeMates& mates_;
    Array<std::uint32_t> faces_;  // that may lie on others; those of a stack side by side
    Array<std::uint32_t> stack_of_;
    std::vector<Stack> stacks_;
    std::vector<Edge> edges_;  // by group of the edge table, once known
    UnionFind layers_;
    std::vector<Rim> rims_;  // by the number of the layer
};

}  // namespace

RedundantFaces find_redundant_faces(const TriMesh& mesh, const EdgeMates& mates) {
    const Array<std::uint32_t> duplicates = find_duplicate_faces(mesh);
    if (duplicates.empty()) return {};
    RedundantFaces redundant = RedundancyFinder(mesh, mates).run(duplicates);
    // A mesh that is nothing but such a wall stays, in one layer.
    if (redundant.faces.size() == live_face_count(mesh)) return {duplicates, {}};
    return redundant;
}

}  // namespace povmesh
