// The boxes of a tree four at a time, for searches by distance.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "base/array.h"
#include "base/float4.h"
#include "base/vec.h"
#include "spatial/face_tree.h"

namespace povmesh {

/// The nodes of a FaceTree, two levels in one, with the boxes of its entries as the lowest. How far
/// four boxes are from a point takes little more time than how far one is, and of a binary tree
/// half of the nodes need not be looked at.
///
/// Lengths are scaled so that their squares are floats, and bounds rounded: see `Probe`.
class BoxQuads {
public:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;
    static constexpr std::uint32_t kEntry = 0x80000000;  // bit of a child
    /// So many wait at most while the children of one quad after the other are looked at.
    static constexpr std::size_t kMostWaiting = 3 * FaceTree::kMaxDepth + 4;

    struct Quad {
        std::array<std::array<float, 4>, 3> low, high;  // by axis and child
        // A quad, or an entry of the tree with that bit set; kNone after the last one.
        std::array<std::uint32_t, 4> child;
    };

    BoxQuads() = default;

    explicit BoxQuads(const FaceTree& tree);

    /// The nodes of the tree that the children of the quads are, four a quad; kNone for entries.
    static Array<std::uint32_t> nodes_of_children(const FaceTree& tree);

    const Quad& operator[](std::size_t quad) const { return quads_[quad]; }

    /// A point that distances are asked from: it must be finite.
    class Probe {
    public:
        Probe(Vec3d p, double scale);

        /// What the bounds of boxes do not exceed that a point at that distance or nearer is in.
        float limit(double squared_distance) const {
            constexpr double kMost = std::numeric_limits<float>::max();
            // Bounds are sums of three squares of differences: they have five roundings each.
            return static_cast<float>(std::min(kMost, squared_distance * scale_ * scale_ * kRoom) +
                                      kLeast);
        }

        std::array<float, 4> bounds(const Quad& quad) const {
            Float4 sum = four_times(0);
            for (std::size_t axis = 0; axis < 3; ++axis) {
                const Float4 below = load4(quad.low[axis]) - up_[axis];
                const Float4 above = down_[axis] - load4(quad.high[axis]);
                const Float4 out = larger(larger(below, above), four_times(0));
                const Float4 near = smaller(out, four_times(kFarthest));
                sum = sum + near * near;
            }
            return store4(sum);
        }

    private:
        static constexpr float kFarthest = 1e18F;
        static constexpr double kRoom = 1 + 0x1p-19;
        static constexpr double kLeast = 1e-36;  // far above the least square that is not rounded

        double scale_;
        std::array<Float4, 3> down_, up_;  // the point, rounded down and up
    };

    Probe probe(Vec3d p) const { return {p, scale_}; }

private:
    Array<Quad> quads_;
    double scale_ = 1;  // a power of two: boxes reach to between 1 and 2, or where all are 0
};

}  // namespace povmesh
