// The inside of a model that becomes a lampshade, and where it opens.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "base/status.h"
#include "design/lampshade.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// A shell with the cavities in it.
struct LampshadeBody {
    // With the ends that open drawn out: closed where the model is.
    TriMesh drawn;
    // The pieces of the inside that reach an opening, wound outward, beyond the openings as well.
    TriMesh inside;
};

struct LampshadeInside {
    Status status;             // of the inner wall
    double cell = 0;           // model units
    double low = 0, high = 0;  // of the model
    bool is_empty = true;      // no piece of the inside reaches an opening

    std::vector<LampshadeBody> bodies;
    double bottom = 0;
    bool is_cut_below = false;
    std::optional<double> top;
    bool is_cut_above = false;

    std::size_t closed_pieces = 0;
    std::size_t overlapped_pieces = 0;
    Vec3d overlap;
    std::size_t loose_pieces = 0;

    /// All bodies' in one.
    TriMesh whole_drawn() const;
    TriMesh whole_inside() const;
};

/// @param model  one model, compact, finite, of a volume above 0
/// @param cell   model units
/// @param is_rough  flat places keep all their triangles
LampshadeInside find_lampshade_inside(TriMesh& model, double thickness, double cell, bool is_rough,
                                      const LampshadeOptions& options);

}  // namespace povmesh
