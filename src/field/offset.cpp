#include "field/offset.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "field/compose.h"
#include "mesh/bounds.h"
#include "mesh/compact.h"

namespace povmesh {
namespace {

constexpr double kCellsOfDistance = 5;
constexpr double kFewestCells = 200;  // along the longest side of the result
constexpr double kMostCells = 1500;
constexpr double kMarginCells = 4;
constexpr double kMostDiagonals = 10;

// Sharp corners reach up to this many times the distance.
constexpr double kSpike = 2;

}  // namespace

Status offset(TriMesh& mesh, double distance, const OffsetOptions& options, RunContext& run,
              OffsetReport& report) {
    TriMesh faces = usable_faces(mesh);
    if (faces.faces.empty()) {
        return {StatusCode::BadFile, "no triangle has an area and finite coordinates"};
    }
    compact(faces);
    const Box3f box = finite_bounds(faces);
    const Vec3d extent = to_double(box.high) - to_double(box.low);
    if (!std::isfinite(distance) || distance == 0 ||
        std::abs(distance) > kMostDiagonals * length(extent)) {
        return {StatusCode::BadOption,
                "the distance must be a number other than 0, of at most 10 diagonals of the model"};
    }
    if (!std::isfinite(options.cell) || options.cell < 0) {
        return {StatusCode::BadOption, "the cell must be a number above 0"};
    }
    const double growth = std::max(distance, 0.0);
    const double side = std::max({extent.x, extent.y, extent.z}) + 2 * growth;
    report.cell = options.cell > 0 ? options.cell
                                   : std::clamp(std::abs(distance) / kCellsOfDistance,
                                                side / kMostCells, side / kFewestCells);
    const double reach = options.corners == OffsetCorners::Sharp ? kSpike * growth : growth;
    const double margin = reach + kMarginCells * report.cell;
    const Vec3d around = {margin, margin, margin};
    FieldGrid grid;
    const Status fitted =
        plan_grid({to_double(box.low) - around, to_double(box.high) + around}, report.cell, grid);
    if (!fitted.ok()) return fitted;
    report.cell = grid.cell;

    DistanceField field(faces, grid);
    run.progress.set(20);
    LabelOptions labels;
    labels.closes_holes = true;
    labels.gap_of_open = 4 * grid.cell;
    report.label = field.label(labels);
    run.progress.set(40);
    LevelNodes nodes = offset_nodes(field, distance);
    run.progress.set(70);
    make_well_composed(nodes.within, Composing::Add);
    TriMesh surface;
    report.contour = contour(field, nodes, distance, surface);
    run.progress.set(90);
    if (surface.faces.empty()) {
        return {StatusCode::BadFile, "nothing is left"};
    }
    mesh = std::move(surface);
    run.progress.set(100);
    return {};
}

}  // namespace povmesh
