#include "field/solid_field.h"

#include "field/compose.h"
#include "field/contour.h"
#include "field/thin_out.h"

namespace povmesh {
namespace {

// How far thinning out may move the surface, in cells.
constexpr double kThinOutCells = 0.02;

}  // namespace

std::unique_ptr<DistanceField> solid_field(const TriMesh& mesh, const FieldGrid& grid,
                                           const LabelOptions& options, LabelReport& report) {
    auto field = std::make_unique<DistanceField>(mesh, grid);
    report = field->label(options);
    const bool is_clean =
        !report.is_open && report.buried_area == 0 && report.sheet_area == 0 && options.gap == 0;
    if (is_clean) return field;
    LevelNodes nodes = offset_nodes(*field, 0);
    make_well_composed(nodes.within, Composing::Add);
    TriMesh surface;
    contour(*field, nodes, 0, surface);
    if (surface.faces.empty()) return field;
    thin_out(surface, kThinOutCells * grid.cell);
    field = std::make_unique<DistanceField>(surface, grid);
    field->label({});
    return field;
}

}  // namespace povmesh
