// Equal cubes of material on a grid, and the nodes at their corners.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "analysis/element_matrix.h"
#include "base/array.h"
#include "base/vec.h"
#include "run/run_context.h"
#include "voxel/voxel_grid.h"

namespace povmesh::fem {

/// Elements side by side along x; no gap between them. Their nodes lie in four rows along x, each
/// numbered without a gap, too: below, in front (0); below, behind (1); above, in front (2); above,
/// behind (3).
struct ElementRun {
    std::uint32_t first = 0;              // element
    std::uint32_t count = 0;              // 1 to kMaxRunLength
    std::array<std::uint32_t, 4> rows{};  // node at the left end of each row
    // Place of the first element: twice its distance from the middle of the model, in elements.
    // Ends of the model have the same places with both signs.
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t z = 0;
};

/// Longer runs are divided: so many elements and the one node more fill the buffers of the solver.
constexpr std::uint32_t kMaxRunLength = 63;

struct Corner {
    std::size_t row;    // of the run
    std::size_t right;  // 1 at the right end of the element
};
constexpr std::array<Corner, kCorners> kCornerPlaces = {
    {{0, 0}, {0, 1}, {1, 1}, {1, 0}, {2, 0}, {2, 1}, {3, 1}, {3, 0}}};

/// One element, with its nodes in the order of kCornerSigns.
struct Element {
    std::size_t index = 0;
    std::int32_t x = 0, y = 0, z = 0;  // as in ElementRun
    std::array<std::uint32_t, kCorners> nodes{};
};

/// +1 or -1 along each axis when the node lies on an outer face of the element that brought it in
/// and that face looks that way; else 0. Elements that come later change nothing: loads rely on it.
using SurfaceSigns = std::array<std::int8_t, 3>;

/// Elements and nodes, each ordered by z, then y, then x. All corners of an element are nodes, and
/// all nodes are corners.
struct Model {
    float size = 1;  // edge of an element, model units
    Vec3d middle;    // of the outermost elements' centres, model coordinates
    Array<ElementRun> runs;
    Array<std::uint32_t> layer_runs;     // first run of each layer of elements, and their number
    Array<std::uint32_t> layer_nodes;    // first node of each layer of nodes, and their number
    Array<std::uint8_t> faces;           // outer faces of each element, as flags of a voxel
    Array<SurfaceSigns> signs;           // of each node
    Array<std::uint8_t> element_counts;  // elements at each node, 1 to 8
    std::size_t fixed_nodes = 0;         // the first so many nodes cannot move

    std::size_t element_count() const { return faces.size(); }
    std::size_t node_count() const { return signs.size(); }
    std::size_t free_nodes() const { return node_count() - fixed_nodes; }
    std::size_t free_dofs() const { return 3 * free_nodes(); }

    Element element_of(const ElementRun& run, std::size_t i) const;
    Element element(std::size_t index) const;  // O(log runs)
    Vec3f centre_of(const Element& element) const;
};

/// The bit of Model::faces for the face that looks along an axis (sign 1) or against it (-1).
unsigned outer_side(std::size_t axis, int sign);

/// Calls `visit(element)` for each element in order.
template <typename Visit>
void for_each_element(const Model& model, Visit&& visit) {
    for (const ElementRun& run : model.runs) {
        for (std::size_t i = 0; i < run.count; ++i) visit(model.element_of(run, i));
    }
}

/// The model of a solid of which a grid holds the surface: the voxels with an exposed side, and
/// between two of them in a row along x where the first one's +x side is not exposed. False, and no
/// log, when there is none.
///
/// Log: the beginning, the numbers of nodes and elements. Memory: a third of a byte for each cell
/// of the grid, 5 bytes a node, 1 byte an element and 36 bytes a run.
bool build_model(const VoxelGrid& grid, Model& model, const RunLog& log);

/// Fixes all nodes of the lowest layer. False when no other is left; the log tells.
bool fix_lowest_layer(Model& model, const RunLog& log);

}  // namespace povmesh::fem
