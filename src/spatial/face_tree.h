// A tree of boxes that finds the faces near a box, or near the faces of another tree.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// True when two boxes, neither of them empty, have a point in common, their borders included.
inline bool overlap(const Box3f& a, const Box3f& b) {
    return a.low.x <= b.high.x && b.low.x <= a.high.x && a.low.y <= b.high.y &&
           b.low.y <= a.high.y && a.low.z <= b.high.z && b.low.z <= a.high.z;
}

/// The box of a face; empty when a coordinate is not finite.
Box3f face_box(const TriMesh& mesh, const Face& face);

/// A binary tree over boxes that have a number each: usually faces, but any things with a box will
/// do. Boxes overlap when they touch.
///
/// Building takes about 25 comparisons an entry, each node dividing its entries at the middle of
/// their centres' longest extent; 28 bytes an entry and 16 to 32 for the nodes. Queries allocate
/// nothing and may run at the same time.
class FaceTree {
public:
    /// Either an inner node (count 0), whose children are the next node and node `place`, or a leaf
    /// with the entries `place` to `place + count - 1`.
    struct Node {
        Box3f box;
        std::uint32_t place;
        std::uint32_t count;

        bool is_leaf() const { return count != 0; }
    };

    FaceTree() = default;

    /// @param boxes  those of the entries; empty ones are left out
    /// @param numbers  what the queries call the entries; their positions in `boxes` when empty
    explicit FaceTree(std::span<const Box3f> boxes, std::span<const std::uint32_t> numbers = {});

    /// Calls `visit(number)` for every entry whose box overlaps `box`, until one call returns true.
    /// Returns true when one did. Nodes for which `skip(node)` returns true are left out.
    template <typename Visit, typename Skip>
    bool visit_overlapping(const Box3f& box, Visit&& visit, Skip&& skip) const;
    template <typename Visit>
    bool visit_overlapping(const Box3f& box, Visit&& visit) const {
        return visit_overlapping(box, visit, [](std::uint32_t /*node*/) { return false; });
    }

    /// Calls `visit(number, other_number)` for every pair of an entry here and one of `other` whose
    /// boxes overlap, until one call returns true. Returns true when one did. Where `skip(node,
    /// other_node)` returns true, the pairs between the two are left out.
    template <typename Visit, typename Skip>
    bool visit_pairs(const FaceTree& other, Visit&& visit, Skip&& skip) const;
    template <typename Visit>
    bool visit_pairs(const FaceTree& other, Visit&& visit) const {
        return visit_pairs(other, visit, [](std::uint32_t, std::uint32_t) { return false; });
    }

    /// The same for the pairs of two entries of this tree, each pair once, in either order. Where
    /// `skip(node, node)` returns true, the pairs between two nodes are left out (the two may be
    /// the same node).
    template <typename Visit, typename Skip>
    bool visit_own_pairs(Visit&& visit, Skip&& skip) const;

    /// Calls `visit(entry, other_entry)` for every pair of an entry of a leaf and one that stands
    /// behind it in the tree, in the same leaf or a later one, whose boxes overlap; entries by their
    /// places in `boxes()`. All leaves together visit each pair once. One descent serves all entries
    /// of a leaf.
    template <typename Visit>
    void visit_later_pairs(std::uint32_t leaf, Visit&& visit) const;

    /// The tree itself, for searches of another kind. Node 0 is the root, children stand behind
    /// their parents; there is no node when there is no entry. Entries of one leaf stand side by
    /// side.
    std::span<const Node> nodes() const { return nodes_; }
    std::span<const Box3f> boxes() const { return boxes_; }
    std::span<const std::uint32_t> numbers() const { return numbers_; }

    /// No node lies deeper, and no leaf has more entries.
    static constexpr std::size_t kMaxDepth = 80;
    static constexpr std::size_t kLeafSize = 4;

private:
    friend class FaceTreeBuilder;

    struct NodePair {
        std::uint32_t a, b;
    };
    class PairStack;

    template <typename Visit>
    bool visit_leaf_pair(const Node& a, const FaceTree& other, const Node& b, Visit& visit) const;
    template <typename Visit>
    bool visit_leaf_own_pairs(const Node& leaf, Visit& visit) const;
    void descend(NodePair pair, const FaceTree& other, PairStack& stack) const;

    Array<Node> nodes_;
    Array<Box3f> boxes_;
    Array<std::uint32_t> numbers_;
};

// ------------------------------------------------------------------------------- the templates

// Each pair taken off leaves at most three new ones, at most four levels' worth of a kind: two
// trees of kMaxDepth levels each, and the own pairs above them.
class FaceTree::PairStack {
public:
    bool is_empty() const { return size_ == 0; }
    void push(NodePair pair) { pairs_[size_++] = pair; }
    NodePair pop() { return pairs_[--size_]; }

private:
    std::array<NodePair, 4 * kMaxDepth + 8> pairs_;
    std::size_t size_ = 0;
};

template <typename Visit, typename Skip>
bool FaceTree::visit_overlapping(const Box3f& box, Visit&& visit, Skip&& skip) const {
    if (nodes_.empty() || box.is_empty()) return false;
    std::array<std::uint32_t, kMaxDepth + 2> stack;
    std::size_t size = 0;
    stack[size++] = 0;
    while (size != 0) {
        const std::uint32_t index = stack[--size];
        const Node& node = nodes_[index];
        if (!overlap(node.box, box) || skip(index)) continue;
        if (node.is_leaf()) {
            for (std::uint32_t i = node.place; i < node.place + node.count; ++i) {
                if (overlap(boxes_[i], box) && visit(numbers_[i])) return true;
            }
        } else {
            stack[size++] = node.place;
            stack[size++] = index + 1;
        }
    }
    return false;
}

template <typename Visit>
bool FaceTree::visit_leaf_pair(const Node& a, const FaceTree& other, const Node& b,
                               Visit& visit) const {
    for (std::uint32_t i = a.place; i < a.place + a.count; ++i) {
        if (!overlap(boxes_[i], b.box)) continue;
        for (std::uint32_t j = b.place; j < b.place + b.count; ++j) {
            if (overlap(boxes_[i], other.boxes_[j]) && visit(numbers_[i], other.numbers_[j])) {
                return true;
            }
        }
    }
    return false;
}

template <typename Visit>
bool FaceTree::visit_leaf_own_pairs(const Node& leaf, Visit& visit) const {
    for (std::uint32_t i = leaf.place; i < leaf.place + leaf.count; ++i) {
        for (std::uint32_t j = leaf.place; j < i; ++j) {
            if (overlap(boxes_[i], boxes_[j]) && visit(numbers_[j], numbers_[i])) return true;
        }
    }
    return false;
}

template <typename Visit, typename Skip>
bool FaceTree::visit_pairs(const FaceTree& other, Visit&& visit, Skip&& skip) const {
    if (nodes_.empty() || other.nodes_.empty()) return false;
    if (!overlap(nodes_[0].box, other.nodes_[0].box)) return false;
    PairStack stack;
    stack.push({0, 0});
    while (!stack.is_empty()) {
        const NodePair pair = stack.pop();
        if (skip(pair.a, pair.b)) continue;
        const Node& a = nodes_[pair.a];
        const Node& b = other.nodes_[pair.b];
        if (!a.is_leaf() || !b.is_leaf()) {
            descend(pair, other, stack);
        } else if (visit_leaf_pair(a, other, b, visit)) {
            return true;
        }
    }
    return false;
}

template <typename Visit, typename Skip>
bool FaceTree::visit_own_pairs(Visit&& visit, Skip&& skip) const {
    if (nodes_.empty()) return false;
    PairStack stack;
    stack.push({0, 0});
    while (!stack.is_empty()) {
        const NodePair pair = stack.pop();
        if (skip(pair.a, pair.b)) continue;
        const Node& a = nodes_[pair.a];
        const Node& b = nodes_[pair.b];
        if (pair.a != pair.b) {
            if (!a.is_leaf() || !b.is_leaf()) {
                descend(pair, *this, stack);
            } else if (visit_leaf_pair(a, *this, b, visit)) {
                return true;
            }
        } else if (a.is_leaf()) {
            if (visit_leaf_own_pairs(a, visit)) return true;
        } else {
            const std::uint32_t left = pair.a + 1;
            const std::uint32_t right = a.place;
            if (overlap(nodes_[left].box, nodes_[right].box)) stack.push({left, right});
            stack.push({right, right});
            stack.push({left, left});
        }
    }
    return false;
}

template <typename Visit>
void FaceTree::visit_later_pairs(std::uint32_t leaf, Visit&& visit) const {
    const Node& own = nodes_[leaf];
    const std::uint32_t own_end = own.place + own.count;
    for (std::uint32_t i = own.place; i < own_end; ++i) {
        for (std::uint32_t j = i + 1; j < own_end; ++j) {
            if (overlap(boxes_[i], boxes_[j])) visit(i, j);
        }
    }
    std::array<std::uint32_t, kMaxDepth + 2> stack;
    std::size_t size = 0;
    stack[size++] = 0;
    while (size != 0) {
        const std::uint32_t index = stack[--size];
        const Node& node = nodes_[index];
        if (index == leaf || !overlap(node.box, own.box)) continue;
        if (!node.is_leaf()) {
            stack[size++] = node.place;
            // What stands below the left child has numbers up to that of the right one.
            if (node.place > leaf + 1) stack[size++] = index + 1;
        } else if (index > leaf) {
            for (std::uint32_t j = node.place; j < node.place + node.count; ++j) {
                if (!overlap(boxes_[j], own.box)) continue;
                for (std::uint32_t i = own.place; i < own_end; ++i) {
                    if (overlap(boxes_[i], boxes_[j])) visit(i, j);
                }
            }
        }
    }
}

}  // namespace povmesh
