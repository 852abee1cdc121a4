// Divides the mesh of a model with planes that were chosen, and keeps a record of what came of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "cut/cut.h"
#include "decompose/decompose.h"
#include "decompose/division_search.h"
#include "decompose/part_size.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// A piece of the model: a part, or divided by a plane.
struct DividedPiece {
    Box3d box;
    double volume = 0;  // signed, of a part
    bool is_divided = false;
    DividingPlane plane;    // when it is
    std::uint32_t end = 0;  // of the pieces made of it, which follow it
};

struct Division {
    std::vector<DividedPiece> pieces;  // each is followed by those made of it, in their order
    std::size_t parts = 0;
    double cut_area = 0;
    std::size_t shells_cut = 0;   // that the cuts had to look at, but for one of each piece
    bool is_whole = true;         // false: given up, there were too many parts
    std::vector<TriMesh> meshes;  // of the parts, when they were to be kept
};

struct DivisionOrder {
    const PartSize& size;
    bool keeps_meshes = false;  // of the parts; the model is used up then
    std::size_t most_parts = std::numeric_limits<std::size_t>::max();  // more: give up
    // Faces that may be cut to try other planes, a shell counting as 20; lessened by those of every
    // cut. May be null: none.
    std::size_t* effort = nullptr;
};

/// Arrays of so many faces leave gaps in memory that are worth the time to give them back.
constexpr std::size_t kLargePiece = 60'000;

Box3d box_of(const TriMesh& mesh);

/// The planes between equal slabs of a box, across z from below, then y, then x.
std::vector<DividingPlane> even_planes(const Box3d& box, const PartSize& size);

/// Each piece that does not fit is divided by the first of the planes that divides it, and what
/// comes of it by those that follow; of more than 64 across one axis, by the middle one, and so on.
///
/// @param mates  of the model, if they are at hand
/// @param used   by plane, whether it divided anything; may be null
Division divide_evenly(TriMesh& model, const std::vector<DividingPlane>& planes,
                       const DivisionOrder& order, std::optional<EdgeMates> mates,
                       std::vector<bool>* used = nullptr);

/// Divides as planned. Where a cut makes more pieces than planned, or crumbs of less than 1 % of
/// the mean part, others next to it are tried; what they still make is told the search. Pieces that
/// the plan has no place for are divided evenly, so that all that can be made to fit do.
Division divide_by_plan(TriMesh& model, const DivisionPlan& plan, DivisionSearch& search,
                        const DivisionOrder& order);

/// How many parts have less than 1 % of the volume of the mean one.
std::size_t crumb_count(const Division& division);

struct PegCounts {
    std::size_t pegs = 0;
    std::size_t cuts_without = 0;  // that have no room for any
    double volume = 0;             // of the pegs, less that of the sockets
};

/// Repeats a division, with pegs where `pegs` asks for them and its parts stay small enough;
/// without any when pegs would be in the way of later cuts. The model is used up.
///
/// @param divided_by  the size that the division was made with
/// @param size        that parts may have with their pegs
std::vector<TriMesh> repeat_division(TriMesh model, const Division& division,
                                     const PartSize& divided_by, const PartSize& size,
                                     const ConnectorOptions& pegs, PegCounts& counts);

}  // namespace povmesh
