// The flat ends of a model, and the model drawn out beyond them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/array.h"
#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// A connected part of a flat end.
struct EndPart {
    bool is_top = false;
    bool is_drawn = true;  // taken for an opening: not a surface of the model
    double area = 0;       // square model units, seen from below
};

/// The faces that lie within a ten-thousandth of the height of the lowest or the highest level.
struct FlatEnds {
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    double low = 0, high = 0;      // of the model
    Array<std::uint32_t> part_of;  // by face, or kNone
    std::vector<EndPart> parts;

    bool is_drawn(std::size_t face) const {
        return part_of[face] != kNone && parts[part_of[face]].is_drawn;
    }
    bool has_drawn(bool is_top) const;
    /// Returns false when none was.
    bool leave(bool is_top);
};

/// @param mesh  finite
/// @param least_area  parts of less are none
FlatEnds find_flat_ends(const TriMesh& mesh, const EdgeMates& mates, double least_area);

/// The model with walls upright in place of the drawn parts, down from those at the bottom, up from
/// those at the top, and these parts at their far ends. Above the lowest and below the highest
/// level its distances are those of a model without these parts.
///
/// Faces that stay come first, in their order.
///
/// @param by  length of the walls, model units
TriMesh draw_out(const TriMesh& mesh, const EdgeMates& mates, const FlatEnds& ends, double by);

}  // namespace povmesh
