#include "field/solid_field.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "base/parallel.h"
#include "base/poll.h"
#include "field/compose.h"
#include "field/contour.h"
#include "field/thin_out.h"
#include "mesh/append_mesh.h"
#include "mesh/volume.h"

namespace povmesh {
namespace {

// How far thinning out may move the surface, in cells.
constexpr double kThinOutCells = 0.02;

// From this distance on, in cells, a point in the air is beside the surface. A point of the solid
// as far from it has a solid node within reach.
constexpr double kBesideCells = 1;

// Points that a face is looked at in, along its longest edge at most.
constexpr double kMostSteps = 32;

class AirSearch {
public:
    AirSearch(const TriMesh& mesh, const DistanceField& field)
        : mesh_(mesh), field_(field), surface_(field.surface()) {}

    // The faces that lie in the air beside the surface with a part of them.
    TriMesh faces() const {
        std::vector<std::uint8_t> is_beside(mesh_.faces.size(), 0);
        parallel_for(mesh_.faces.size(), [&](std::size_t f) {
            if (mesh_.faces[f].deleted == 0 && is_in_air(mesh_.faces[f])) is_beside[f] = 1;
        });
        TriMesh beside;
        for (std::size_t f = 0; f < is_beside.size(); ++f) {
            if (is_beside[f] != 0) beside.faces.push_back(mesh_.faces[f]);
        }
        if (!beside.faces.empty()) polled_copy(mesh_.vertices, beside.vertices);
        return beside;
    }

private:
    bool is_in_air(const Face& face) const {
        const Vec3d a = to_double(mesh_.corner_position(face, 0));
        const Vec3d u = to_double(mesh_.corner_position(face, 1)) - a;
        const Vec3d v = to_double(mesh_.corner_position(face, 2)) - a;
        const double longest = std::max({length(u), length(v), length(u - v)});
        const double steps =
            std::clamp(std::ceil(longest / (2 * field_.grid().cell)), 1.0, kMostSteps);
        const auto count = static_cast<int>(steps);
        for (int i = 0; i <= count; ++i) {
            for (int j = 0; i + j <= count; ++j) {
                if (is_in_air(a + u * (i / steps) + v * (j / steps))) return true;
            }
        }
        return false;
    }

    bool is_in_air(Vec3d p) const {
        const FieldGrid& grid = field_.grid();
        const double reach = kBesideCells * grid.cell;
        if (surface_.find_any(p, reach * reach).is_found()) return false;
        const Vec3d at = (p - grid.origin) / grid.cell;
        return !field_.solid().at(NodeIndex{static_cast<std::int32_t>(std::lround(at.x)),
                                            static_cast<std::int32_t>(std::lround(at.y)),
                                            static_cast<std::int32_t>(std::lround(at.z))});
    }

    const TriMesh& mesh_;
    const DistanceField& field_;
    const NearestFace& surface_;
};

}  // namespace

std::unique_ptr<DistanceField> solid_field(const TriMesh& mesh, const FieldGrid& grid,
                                           const LabelOptions& options, bool keeps_sheets,
                                           LabelReport& report) {
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
    if (!keeps_sheets) return field;
    const TriMesh sheets = AirSearch(mesh, *field).faces();
    if (sheets.faces.empty()) return field;
    report.sheet_area = surface_area(sheets);
    append_mesh(surface, sheets);
    field = std::make_unique<DistanceField>(surface, grid);
    field->label({});
    return field;
}

}  // namespace povmesh
