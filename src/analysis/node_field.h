// A vector for every node of a model.
#pragma once

#include <cstddef>

#include "base/array.h"

namespace povmesh::fem {

/// Displacements or forces: the x of all nodes, then y, then z. Behind each axis is room for a
/// group of lanes that begins at its last node.
class NodeField {
public:
    static constexpr std::size_t kPadding = 64;

    NodeField() = default;
    explicit NodeField(std::size_t nodes)
        : nodes_(nodes), stride_(nodes + kPadding), values_(3 * stride_, 0.0F) {}

    std::size_t node_count() const { return nodes_; }
    float* axis(std::size_t a) { return values_.data() + a * stride_; }
    const float* axis(std::size_t a) const { return values_.data() + a * stride_; }

private:
    std::size_t nodes_ = 0;
    std::size_t stride_ = 0;
    Array<float> values_;
};

}  // namespace povmesh::fem
