// Disjoint sets that grow together.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>

#include "base/array.h"

namespace povmesh {

/// Disjoint sets of the numbers below `size()`. The lowest number of a set stands for it, so that
/// what comes of a set does not depend on the order in which its members were united.
///
/// Source: R. E. Tarjan, J. van Leeuwen, Worst-case analysis of set union algorithms, 1984 (path
/// halving).
class UnionFind {
public:
    UnionFind() = default;
    explicit UnionFind(std::size_t count) : parents_(count) {
        std::iota(parents_.begin(), parents_.end(), std::uint32_t{0});
    }

    std::size_t size() const { return parents_.size(); }

    /// Adds a set of one and returns its number.
    std::uint32_t add() {
        parents_.push_back(static_cast<std::uint32_t>(parents_.size()));
        return parents_.back();
    }

    /// The lowest number of the set that `item` is in.
    std::uint32_t find(std::uint32_t item) {
        while (parents_[item] != item) item = parents_[item] = parents_[parents_[item]];
        return item;
    }

    void unite(std::uint32_t a, std::uint32_t b) {
        a = find(a);
        b = find(b);
        parents_[std::max(a, b)] = std::min(a, b);
    }

private:
    Array<std::uint32_t> parents_;
};

}  // namespace povmesh
