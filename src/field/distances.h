// Distances from the nodes of a grid to the faces of a mesh, where they are asked for.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <span>

#include "base/array.h"
#include "field/field_grid.h"
#include "field/node_blocks.h"
#include "field/sharp_distance.h"
#include "mesh/tri_mesh.h"
#include "spatial/nearest_face.h"

namespace povmesh {

/// A distance and the face that it was measured to, for some of the nodes.
class NodeDistances {
public:
    struct Sample {
        float distance = std::numeric_limits<float>::infinity();
        std::uint32_t face = NearestPoint::kNoFace;  // where no distance was measured
    };

    NodeDistances() = default;
    explicit NodeDistances(const BlockLayout& layout) { table_.assign(layout.count(), kNone); }

    Sample at(std::uint32_t node) const {
        const std::uint32_t entry = table_[node / kBlockNodes];
        if (entry == kNone) return {};
        return samples_[static_cast<std::size_t>(entry) * kBlockNodes + node % kBlockNodes];
    }
    bool has(std::uint32_t block) const { return table_[block] != kNone; }

    /// The samples of a block that `add` has given memory.
    std::span<Sample> block(std::uint32_t block) {
        return {samples_.data() + static_cast<std::size_t>(table_[block]) * kBlockNodes,
                kBlockNodes};
    }
    /// Gives blocks memory, their samples unmeasured.
    void add(std::span<const std::uint32_t> blocks);

private:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;
    Array<std::uint32_t> table_;
    Array<Sample> samples_;
};

/// Distances of all nodes nearer to a face than `reach`. Time and memory grow with the area times
/// reach / cell^3.
NodeDistances near_distances(const TriMesh& mesh, const FaceTree& tree, const FieldGrid& grid,
                             double reach);

/// The square that limits a search for the nearest face where a point of the surface, or one hardly
/// beside it, is known: such a search looks at little else than what it finds.
inline double limit_by(Vec3d p, Vec3d on_surface, double squared_limit, double cell) {
    constexpr double kSlackCells = 1e-3;
    const double way = length(p - on_surface) + kSlackCells * cell;
    return std::min(squared_limit, way * way);
}

/// The nodes within a distance of a surface.
struct LevelNodes {
    NodeSet within;
    NodeDistances distances;  // of those that had to be measured to tell
};

/// Finds the nodes nearer than `level` to a surface, among those of a set; the others are left out.
///
/// Boxes of nodes are halved until the exact distance of their centre tells that all of their nodes
/// are on one side; about four searches a cell of the level.
///
/// @param sharp  null, or the distance that counts, of at most the plain one and at least half
LevelNodes nodes_within(const NearestFace& surface, const FieldGrid& grid, double level,
                        const NodeSet& among, const SharpDistance* sharp = nullptr);

}  // namespace povmesh
