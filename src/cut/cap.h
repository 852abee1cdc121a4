// Fills the openings of a cut.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "base/array.h"
#include "cut/cut_points.h"
#include "cut/plane_frame.h"
#include "cut/plane_split.h"

namespace povmesh {

/// Keeps the rim edges that close into loops. Edges whose faces disagree about the direction (the
/// model has turned faces) get that of most edges of their loop; edges on open chains are left out.
Array<RimEdge> closed_rim(std::span<const RimEdge> rim);

/// Points of the plane, three a triangle, wound as the cap of the front side has them:
/// counterclockwise seen from the back.
using CapTriangle = std::array<std::int32_t, 3>;

struct RimFilling {
    Array<CapTriangle> triangles;
    bool has_guides = true;  // false when the loops cross too often for a triangulation
    bool is_plain = true;    // no loop met itself or another one and no place is covered twice
};

/// Fills closed rims with triangles; points may be added where loops cross. Whatever the rims are
/// like, each edge of theirs becomes a side of just one triangle more in its direction than against
/// it, and all other sides come in opposite pairs: a mesh that had these rims is closed with them.
///
/// A place that the loops go around w times is covered w times, by triangles of reversed winding
/// where w is negative: material between nested loops, holes left free. The filling is a
/// constrained Delaunay triangulation of the rim's points.
///
/// `guides` are closed loops of points inside the rim, as edges, whose edges must come up as sides.
///
/// Time: about n log n. Loops that cross more often than four times their number of edges are
/// filled each by a fan.
RimFilling fill_rim(CutPoints& points, const PlaneFrame& frame, std::span<const RimEdge> rim,
                    std::span<const std::array<std::int32_t, 2>> guides = {});

/// Gives sides of their own to triangles that share one with more than one other face: those of
/// `walls` or other triangles. Such a side is divided by a point in its middle. Needed where an
/// edge of the model touches the plane from one side, between two points of the rim.
void split_shared_sides(CutPoints& points, Array<CapTriangle>& triangles,
                        const Array<PlaneWall>& walls);

}  // namespace povmesh
