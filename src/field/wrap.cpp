#include "field/wrap.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "field/compose.h"
#include "mesh/bounds.h"
#include "mesh/compact.h"
#include "remesh/revise.h"

namespace povmesh {
namespace {

constexpr double kToleranceShare = 1.0 / 400;  // of the diagonal
constexpr double kCellShare = 0.5;             // of the tolerance
constexpr double kGapShare = 2;                // of the tolerance

// Sheets become solid up to this distance, in cells: far enough that the nodes beside them all do.
constexpr double kSheetCells = 0.9;

// Cells around the model, beyond half the gap, from where the outside is reached.
constexpr double kMarginCells = 4;

// How far thinning out may move the surface, and then mending triangles, as a share of the
// tolerance.
constexpr double kThinOutShare = 0.1;
constexpr double kMendShare = 0.1;

// A model is at least this many cells across, so that there is something to tell.
constexpr double kLeastCells = 4;

Box3d widened(const Box3f& box, double by) {
    const Vec3d reach = {by, by, by};
    return {to_double(box.low) - reach, to_double(box.high) + reach};
}

// Among millions of triangles rounding leaves a few without area.
void mend_slivers(TriMesh& surface, double most) {
    if (count_shapes(surface).slivers == 0) return;
    const Box3f box = finite_bounds(surface);
    const double diagonal = length(to_double(box.high) - to_double(box.low));
    revise_triangles(surface, {.most_movement = most / diagonal});
}

Status plan(const WrapOptions& options, double diagonal, WrapReport& report) {
    report.tolerance = options.tolerance;
    if (report.tolerance == 0) {
        report.tolerance =
            options.cell > 0 ? options.cell / kCellShare : diagonal * kToleranceShare;
    }
    report.cell = options.cell == 0 ? report.tolerance * kCellShare : options.cell;
    report.gap = options.gap < 0 ? report.tolerance * kGapShare : options.gap;
    const bool are_finite =
        std::isfinite(report.tolerance) && std::isfinite(report.cell) && std::isfinite(report.gap);
    if (!are_finite || !(report.tolerance > 0) || !(report.cell > 0)) {
        return {StatusCode::BadOption, "tolerance, gap and cell must be numbers above 0"};
    }
    if (report.cell > diagonal / kLeastCells) {
        return {StatusCode::BadOption, "the cell is too large for the model, whose diagonal is " +
                                           std::to_string(diagonal) +
                                           "; take a quarter of that or less"};
    }
    return {};
}

}  // namespace

Status wrap(TriMesh& mesh, const WrapOptions& options, RunContext& run, WrapReport& report) {
    TriMesh faces = usable_faces(mesh);
    if (faces.faces.empty()) {
        return {StatusCode::BadFile, "no triangle has an area and finite coordinates"};
    }
    compact(faces);
    const Box3f box = finite_bounds(faces);
    Status planned = plan(options, length(to_double(box.high) - to_double(box.low)), report);
    if (!planned.ok()) return planned;
    FieldGrid grid;
    Status fitted =
        plan_grid(widened(box, report.gap / 2 + kMarginCells * report.cell), report.cell, grid);
    if (!fitted.ok()) return fitted;
    report.cell = grid.cell;

    DistanceField field(std::move(faces), grid);
    run.progress.set(30);
    LabelOptions labels;
    // A mesh without open edges has no gaps to close unless that is asked for.
    labels.closes_holes = options.gap < 0;
    labels.gap = options.gap < 0 ? 0 : report.gap;
    labels.gap_of_open = report.gap;
    labels.sheet_reach = options.keeps_thin ? kSheetCells * grid.cell : 0;
    report.label = field.label(labels);
    run.progress.set(60);
    LevelNodes nodes = offset_nodes(field, 0);
    make_well_composed(nodes.within, Composing::Add);
    TriMesh surface;
    report.contour = contour(field, nodes, 0, surface);
    run.progress.set(90);
    if (surface.faces.empty()) {
        return {StatusCode::BadFile, "nothing of the model is thicker than a cell"};
    }
    if (!options.all_triangles) {
        report.thinned = thin_out(surface, kThinOutShare * report.tolerance);
    }
    mend_slivers(surface, kMendShare * report.tolerance);
    mesh = std::move(surface);
    run.progress.set(100);
    return {};
}

}  // namespace povmesh
