// Boxes that lie along what they hold, for the nodes of a tree.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "base/vec.h"
#include "spatial/face_tree.h"

namespace povmesh {

/// For each node of a tree a box around the points of its entries, turned to where they spread most
/// and least. Slivers that run aslant have upright boxes that all overlap; these ones come apart.
///
/// Time: about n log n in the points. Memory: 28 bytes a point and 144 a node.
///
/// Source: S. Gottschalk, M. C. Lin, D. Manocha, OBBTree: a hierarchical structure for rapid
/// interference detection, SIGGRAPH 1996.
class OrientedBoxes {
public:
    /// @param points_of  points_of(number, add) calls add(Vec3d) for the points of an entry, which
    ///                   must be finite; one without any is apart from everything
    template <typename PointsOf>
    OrientedBoxes(const FaceTree& tree, PointsOf&& points_of) {
        Array<std::uint32_t> starts;  // of every entry's points, in the order of the tree
        for (const std::uint32_t number : tree.numbers()) {
            starts.push_back(static_cast<std::uint32_t>(points_.size()));
            points_of(number, [this](Vec3d point) { points_.push_back(point); });
        }
        starts.push_back(static_cast<std::uint32_t>(points_.size()));
        make_boxes(tree, starts);
        Array<Vec3d>().swap(points_);
    }

    /// True when the boxes of two nodes have no point in common, and a gap that no rounding makes.
    bool are_apart(std::uint32_t node, const OrientedBoxes& other, std::uint32_t other_node) const;

private:
    struct Box {
        Vec3d centre;
        std::array<Vec3d, 3> axes;   // of unit length, at right angles
        std::array<double, 3> half;  // extents; negative when empty
        double slack;                // room for the rounding of anything computed about the box
    };

    void make_boxes(const FaceTree& tree, const Array<std::uint32_t>& starts);

    Array<Vec3d> points_;  // while the boxes are made
    Array<Box> boxes_;
};

}  // namespace povmesh
