// What a slicer prints of columns, layer by layer.
#pragma once

#include <cstdint>
#include <span>

#include "base/array.h"
#include "base/status.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"
#include "support/column_supports.h"

namespace povmesh {

struct SliceOptions {
    double spacing = 3;         // that the columns were made with: it tells how thick they are
    double layer_height = 0.2;  // model units
    double plate = 0;           // height of the build plate, where the first layer begins
};

/// Closed polygons, of which the last point joins the first: outer ones turn counterclockwise seen
/// from above, and holes, which follow the polygon that they are in, clockwise.
struct SlicePolygons {
    Array<Vec3f> points;         // of all polygons; z is that of the middle of the layer
    Array<std::uint32_t> sizes;  // by polygon: its number of points
};

/// The squares of the columns in each layer, without what is nearer than 0.2 to the model (0.6 at
/// its sharpest corners).
///
/// A column is in a layer when the layer's middle lies between its ends, the upper one excluded;
/// the model is sliced there. Polygons come layer by layer from the plate up, in a layer in the
/// order of the columns; columns that overlap make one polygon. Columns that are not finite are
/// left out, as is what lies below the plate.
///
/// Coordinates of squares that the model touches are multiples of 1e-5 from their middle.
///
/// @return  BadOption when an option is not finite, the layer height not above 0 or the spacing
///          above 10,000; TooLarge for more than a million layers or 2^32 - 1 points; there is no
///          polygon then
///
/// Log: the number of polygons and of points.
/// Time: per layer linear in the edges of its outlines, and for each square near one once more.
Status slice_columns(const TriMesh& mesh, std::span<const Column> columns,
                     const SliceOptions& options, RunContext& run, SlicePolygons& polygons);

}  // namespace povmesh
