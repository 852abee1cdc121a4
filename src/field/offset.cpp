#include "field/offset.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/parallel.h"
#include "field/compose.h"
#include "field/solid_field.h"
#include "mesh/bounds.h"
#include "mesh/compact.h"

namespace povmesh {
namespace {

constexpr double kCellsOfDistance = 5;
constexpr double kFewestCells = 200;  // along the longest side of the result
constexpr double kMostCells = 1500;
constexpr double kMarginCells = 4;
constexpr double kMostDiagonals = 10;

// How far thinning out may move the surface, in cells.
constexpr double kThinOutCells = 0.02;

// Sharp corners reach up to this many times the distance.
constexpr double kSpike = 2;

// Distance of the deepest solid node from the surface.
double greatest_depth(const DistanceField& field) {
    const NodeSet& solid = field.solid();
    std::vector<double> deepest(solid.block_count(), 0);
    for_blocks(solid.block_count(), [&](std::size_t b) {
        const auto block = static_cast<std::uint32_t>(b);
        if (solid.is_empty(block)) return;
        const NodeIndex low = solid.layout().corner(block);
        solid.bits(block).visit([&](std::uint32_t local) {
            const auto n = static_cast<std::int32_t>(local);
            const Vec3d p =
                field.grid().node(low.i + (n & 7), low.j + (n >> 3 & 7), low.k + (n >> 6));
            deepest[b] = std::max(deepest[b], field.surface().find(p).squared_distance);
        });
    });
    const double squared = *std::max_element(deepest.begin(), deepest.end());
    return std::isfinite(squared) ? std::sqrt(squared) : 0;
}

std::string short_text(double number) {
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number,
                                   std::chars_format::general, 3);
    return {text.data(), end.ptr};
}

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
    Status fitted =
        plan_grid({to_double(box.low) - around, to_double(box.high) + around}, report.cell, grid);
    if (!fitted.ok()) return fitted;
    report.cell = grid.cell;

    LabelOptions labels;
    labels.closes_holes = true;
    labels.gap_of_open = 4 * grid.cell;
    const std::unique_ptr<DistanceField> solid =
        solid_field(faces, grid, labels, distance > 0, report.label);
    const DistanceField& field = *solid;
    run.progress.set(40);
    std::unique_ptr<SharpDistance> sharp;
    if (options.corners == OffsetCorners::Sharp) {
        sharp = std::make_unique<SharpDistance>(field.faces(), field.surface());
    }
    LevelNodes nodes = offset_nodes(field, distance, sharp.get());
    run.progress.set(70);
    make_well_composed(nodes.within, Composing::Add);
    TriMesh surface;
    report.contour = contour(field, nodes, distance, surface, sharp.get());
    run.progress.set(90);
    if (surface.faces.empty()) {
        report.thickest = 2 * greatest_depth(field);
        return {StatusCode::BadFile, "nothing is left: the thickest place is about " +
                                         short_text(report.thickest) + " thick"};
    }
    if (!options.all_triangles) {
        report.thinned = thin_out(surface, kThinOutCells * report.cell);
    }
    mesh = std::move(surface);
    run.progress.set(100);
    return {};
}

}  // namespace povmesh
