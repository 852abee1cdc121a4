// Divides models that are too large for a printer into parts that fit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

enum class DivisionMethod : std::uint8_t {
    Uniform,    // equal slabs along each axis
    Automatic,  // as few parts as a search finds, then the best cuts
};

struct DecomposeOptions {
    Vec3d size;  // of the largest part, model units; not above 0 or not finite: no limit
    DivisionMethod method = DivisionMethod::Automatic;
};

/// A plane across an axis: the points whose coordinate there is `offset`. Its normal points along
/// the axis.
struct DividingPlane {
    std::uint8_t axis = 0;  // 0: x, 1: y, 2: z
    float offset = 0;       // model units

    friend bool operator==(const DividingPlane&, const DividingPlane&) = default;
};

struct DecomposeReport {
    std::vector<DividingPlane> planes;  // in the order of their use
    std::size_t models = 0;             // that the mesh consists of
    std::size_t cuts = 0;               // of a piece by a plane
    std::size_t uniform_parts = 0;      // that the uniform division makes
    std::size_t too_large = 0;          // parts that do not fit
    double cut_area = 0;                // of all sections, square model units
};

/// Divides each model of the mesh into parts whose extents are at most the size (times 1.00005),
/// and puts them into `mesh.parts`; the mesh itself is left empty. Parts are not turned. Cavities
/// stay with the body around them.
///
/// A model that fits stays one part, and so does one with a coordinate that is not finite, or that
/// would take more than 32,768 slab cells; the last two with a failure in the log. All others are
/// cut across the axes, with caps, as `cut_models` does: parts of a closed model are closed, as
/// manifold as it was, and their volumes add up to its volume. What a cut disconnects are parts of
/// their own. Models stay in their order; of a piece cut, the pieces of lower coordinates come
/// first, those of each side in the order of their lowest shell.
///
/// Uniform: k equal slabs of the model's box along an axis, k the least number whose slabs fit.
/// Planes across z from below, then y, then x; each divides the pieces of its model that do not fit
/// yet. A plane that divides nothing is not listed.
///
/// Automatic: as few parts as a search on a model of cells finds, then the cuts with the shortest
/// contours, away from thin places and with room for pegs; never more parts than Uniform. The list
/// of planes alone gives the parts: walk through the pieces, models first; one that fits is the
/// next part; any other is divided by the next plane, and its pieces are walked through in their
/// order.
///
/// A piece that no plane divides stays as it is, with a caution.
///
/// Log: a summary, once. No progress. The same bits for any number of threads.
DecomposeReport decompose(TriMesh& mesh, const DecomposeOptions& options, RunContext& run);

}  // namespace povmesh
