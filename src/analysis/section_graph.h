// What hangs on each cross-section of a model.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/vec.h"

namespace povmesh {

/// A volume and its first moments, so that bodies can be added up.
struct Mass {
    double volume = 0;
    Vec3d moment;  // volume * centroid

    friend Mass operator+(const Mass& a, const Mass& b) {
        return {a.volume + b.volume, a.moment + b.moment};
    }
    friend Mass operator-(const Mass& a, const Mass& b) {
        return {a.volume - b.volume, a.moment - b.moment};
    }
};

/// The pieces into which all planes across an axis cut a model, joined by their cross-sections.
struct SectionGraph {
    struct Piece {
        Mass mass;
        std::uint32_t slab = 0;  // how many planes lie below it
    };
    struct Joint {
        std::uint32_t below = 0, above = 0;  // pieces
        std::uint32_t layer = 0;             // plane
        double area = 0;
        Vec3d centre;
    };

    std::vector<Piece> pieces;
    std::vector<Joint> joints;  // by ascending layer
};

/// The bodies that come apart at a joint, each as the joint has to bear it.
struct JointLoad {
    Mass below, above;
    Vec3d centre;      // what their lever arms start from
    double share = 1;  // of the joint, where several bear them together

    /// Volume times lever arm of a body; 0 for one without volume.
    double load_of(const Mass& body) const {
        if (!(body.volume > 0)) return 0;
        return share * body.volume * length(body.moment / body.volume - centre);
    }
};

/// For each joint what comes apart when the model is cut there. Where it stays in one piece, the
/// joints of the same layer on the same cycles are cut together and share by area.
///
/// Linear time, but for sorting.
///
/// Source: bridges of a graph, R. E. Tarjan, Information Processing Letters 2, 1974.
std::vector<JointLoad> joint_loads(const SectionGraph& graph);

}  // namespace povmesh
