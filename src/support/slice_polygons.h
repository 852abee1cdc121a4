// What a slicer prints of columns, layer by layer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "base/array.h"
#include "base/status.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"
#include "slice/slices.h"
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

/// A layer that has polygons.
struct ColumnLayer {
    double height;              // of its middle
    const SliceLoops& outline;  // of the model there, see `Slicer`
    const SlicePolygons& polygons;
};

/// Takes the layers one by one from the plate up; returns false to stop.
using TakeLayer = std::function<bool(const ColumnLayer& layer)>;

/// How much there will be to slice, told without slicing: layers, and squares of all layers. What
/// the model takes away is not known yet.
struct SliceWork {
    double layers = 0;
    double squares = 0;
};
SliceWork slice_work(std::span<const Column> columns, const SliceOptions& options);

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
///          above 10,000; TooLarge for more than a million layers; no layer is taken then
///
/// Log: the number of polygons and of points.
/// Time: per layer linear in the edges of its outlines, and for each square near one once more.
/// Memory: that of one layer, 8 bytes for each layer and 60 for each column and face.
Status slice_columns(const TriMesh& mesh, std::span<const Column> columns,
                     const SliceOptions& options, RunContext& run, const TakeLayer& take);

/// The same, all layers in one array.
///
/// @return  TooLarge also for more than kMostColumnPoints points; there is no polygon then, and a
///          caution in the log
Status slice_columns(const TriMesh& mesh, std::span<const Column> columns,
                     const SliceOptions& options, RunContext& run, SlicePolygons& polygons);

/// Close to a GiB with the sizes of the polygons.
constexpr std::size_t kMostColumnPoints = 67'000'000;

}  // namespace povmesh
