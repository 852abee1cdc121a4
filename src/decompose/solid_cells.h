// A solid model of cells, as runs along x, and pieces of it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/vec.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// The grid over a model: whole cells fill its box exactly.
struct CellGrid {
    Box3d box;
    std::array<std::int32_t, 3> count{};  // cells along each axis
    std::array<double, 3> edge{};         // of a cell, model units

    double cell_volume() const { return edge[0] * edge[1] * edge[2]; }
};

/// Neighbouring cells of a row: begin to end - 1 along x.
struct CellRun {
    std::int16_t z, y, begin, end;
};

/// Cells that hang together over faces.
struct SolidPiece {
    std::vector<CellRun> runs;           // ordered by z, then y, then begin
    std::array<std::int32_t, 3> low{};   // of the cells
    std::array<std::int32_t, 3> high{};  // behind the cells
    Box3d box;                           // model units; ends at the planes that cut it
    std::size_t cells = 0;
};

struct SolidModel {
    CellGrid grid;
    std::vector<SolidPiece> pieces;
};

/// The cells that a model passes through or encloses; a cavity that is wound inward stays empty. No
/// pieces when the model has no box.
///
/// @param cells  about so many in its box
SolidModel make_solid(const TriMesh& model, double cells);

/// Of its box.
std::size_t cell_count(const SolidModel& solid);

/// A place to cut: across an axis, at a coordinate.
struct CutPlace {
    std::size_t axis = 0;
    double offset = 0;  // model units
};

struct SplitPiece {
    std::vector<SolidPiece> below, above;
};

/// Divides a piece; a layer of cells goes to the side where its middle lies.
SplitPiece split_piece(const SolidPiece& piece, const CutPlace& place, const CellGrid& grid);

}  // namespace povmesh
