// The rigid motions of blocks of a model, as a coarse space for its solver.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "analysis/fem_model.h"
#include "analysis/node_field.h"
#include "base/array.h"

namespace povmesh::fem {

/// Slender models bend, and bending is what steps over neighbouring nodes find last. Here nodes are
/// gathered in blocks of a few elements; each moves and turns as a whole, six unknowns, and what
/// forces do to the model in that space is solved exactly, by elimination.
///
/// Making it takes O(n) for the elements between blocks and, for m blocks of which b lie in a layer
/// across the longest extent, O(m b b); a correction O(n + m b). The same bits for any number of
/// threads.
///
/// Source: two-level preconditioners with rigid body modes, R. A. Nicolaides, Deflation of
/// conjugate gradients, 1987; P. Vanek et al., Algebraic multigrid by smoothed aggregation, 1996.
class RigidBlocks {
public:
    explicit RigidBlocks(const Model& model);

    /// Adds to `motion` the motions of blocks that balance `force`.
    void add_correction(const NodeField& force, NodeField& motion) const;

    std::size_t block_count() const { return centres_.size(); }

private:
    static constexpr std::size_t kModes = 6;
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    void gather_blocks(const Model& model);
    void assemble(const Model& model);
    void factorise();
    void solve(std::vector<double>& x) const;

    double* row(std::size_t i) { return entries_.data() + offsets_[i] - first_[i]; }
    const double* row(std::size_t i) const { return entries_.data() + offsets_[i] - first_[i]; }

    Array<std::array<std::int32_t, 3>> places_;  // of each node, twice from the middle, in elements
    Array<std::uint32_t> block_of_;              // by node; kNone for fixed ones
    std::vector<std::array<double, 3>> centres_;  // of the blocks, in the units of places_
    Array<std::uint32_t> nodes_;                  // by block
    std::vector<std::uint32_t> node_offsets_;
    // The lower triangle, each row from its first entry to the diagonal; then its factors L D L^T.
    std::vector<std::uint32_t> first_;
    std::vector<std::size_t> offsets_;
    std::vector<double> entries_;
    std::vector<double> inverse_pivots_;  // 0 for motions that meet no resistance
};

}  // namespace povmesh::fem
