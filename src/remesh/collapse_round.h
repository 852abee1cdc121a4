// The numbers and small parts of a round of collapses.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "remesh/collapse_mesh.h"

namespace povmesh {

// Cost of an edge that must stay.
inline constexpr float kNever = std::numeric_limits<float>::infinity();
// The highest cost of an edge that may go.
inline constexpr float kMostCost = std::numeric_limits<float>::max();
inline constexpr std::uint64_t kNoKey = std::numeric_limits<std::uint64_t>::max();

// Faces at a vertex that a collapse may touch or make. A vertex of higher valence stays, and its
// edges do not stand in the way of others, until enough of its neighbours are gone.
inline constexpr std::size_t kMaxValence = 64;

// Edges at or below the threshold of a round, per collapse that is still to be done. With 1.6 the
// rounds are more and the result is no better, with 4 it gets worse (parallel_half of
// reduce_bench).
inline constexpr double kCandidatesPerCollapse = 2.5;
inline constexpr std::size_t kLeastCandidates = 512;

// And as a share of all edges. The rest of them are not the lowest of their neighbourhood, or have
// time: the result is the same with 1, a third slower (parallel_tenth).
inline constexpr double kMostCandidates = 0.2;

// The leading bits of a cost, by which candidates are put in order: two steps an octave, and in no
// order within a step. Where costs change smoothly, few edges are the lowest of their
// neighbourhood: by all bits, 296 rounds took a ball of 317 thousand even triangles to a half, with
// steps 72, at the same distance from the source. Rough models take as many rounds either way.
inline constexpr std::uint32_t kCostSteps = 0xFFC00000U;

// Another sweep over all edges is made when the last one took more than one face in this many.
inline constexpr std::size_t kLeastGain = 1000;

// Squared edge length counts a little, so that flat regions get faces of good shape.
inline constexpr double kLengthWeight = 1e-7;

// A number of its own for each half-edge, in no order (the finisher of a hash, one to one).
inline std::uint32_t shuffled(std::uint32_t h) {
    h = (h ^ (h >> 16)) * 0x85EBCA6BU;
    h = (h ^ (h >> 13)) * 0xC2B2AE35U;
    return h ^ (h >> 16);
}

// Leaves the lower one of the two in the place, whatever other threads put there meanwhile.
inline void atomic_min(std::uint64_t& place, std::uint64_t key) {
    const std::atomic_ref<std::uint64_t> cell(place);
    std::uint64_t held = cell.load(std::memory_order_relaxed);
    while (key < held && !cell.compare_exchange_weak(held, key, std::memory_order_relaxed)) {
    }
}

// The half-edges from a vertex that may move, all around it.
struct OneRing {
    std::array<std::uint32_t, kMaxValence> half_edges;
    std::size_t size = 0;

    OneRing(const CollapseMesh& mesh, std::uint32_t first) {
        std::uint32_t h = first;
        do {
            half_edges[size++] = h;
            h = mesh.turn(h);
        } while (h != first && size < kMaxValence);
    }
    const std::uint32_t* begin() const { return half_edges.data(); }
    const std::uint32_t* end() const { return half_edges.data() + size; }
};

}  // namespace povmesh
