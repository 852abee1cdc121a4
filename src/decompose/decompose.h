// Divides models that are too large for a printer into parts that fit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/vec.h"
#include "cut/cut.h"
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
    bool may_turn = false;  // a part may lie on any of its sides
    // On the lower side of each cut, with sockets in the other; as many for each pair of parts that
    // meet there. Parts fit with them.
    ConnectorOptions pegs = {};
    double search_cells = 1e6;  // of the solid model that a search works on, at most
};

/// A peg is at most so many times as long as its radius.
constexpr double kPegLengths = 2;

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
    std::size_t least_parts = 0;        // that no division across the axes gets below
    std::size_t too_large = 0;          // parts that do not fit
    double cut_area = 0;                // of all sections, square model units
    std::size_t pegs = 0;
    std::size_t cuts_without_pegs = 0;  // that have no room for any, where pegs are asked for
    double peg_volume = 0;              // of the pegs, less that of the sockets
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
/// yet; of more than 64 across a piece the middle one is the first. A plane that divides nothing is
/// not listed.
///
/// Automatic: as few parts as a search on a model of cells finds, then no crumbs of less than 1 %
/// of the mean part, then the cuts with the least area and the shortest contours, away from thin
/// places and with room for pegs; never more parts than Uniform. The list of planes alone gives the
/// parts: walk through the pieces, models first; one that fits is the next part; any other is
/// divided by the next plane, and its pieces are walked through in their order.
///
/// A piece that no plane divides stays as it is, with a caution.
///
/// The search takes about a second at most, all models together; those that it does not come to
/// are divided evenly, and so is a heap: a model of more than 20,000 shells, or of more than 2,000
/// whose even division looks at millions of faces. Up to six of its plans are tried on the mesh.
///
/// With pegs the planes are those of parts that are smaller by their length across the axes that
/// have to be divided, so that the parts fit with them; volumes then differ by `peg_volume`.
///
/// Memory at the peak beside the mesh: 1.7 times that of its faces and vertices, Uniform 1.3 times.
///
/// Log: a summary, once. No progress. The same bits for any number of threads.
DecomposeReport decompose(TriMesh& mesh, const DecomposeOptions& options, RunContext& run);

}  // namespace povmesh
