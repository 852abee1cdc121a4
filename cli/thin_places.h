// Thin walls and narrow gaps of a model, as `thickness` and `check` tell them.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "cli/findings_report.h"
#include "field/thickness.h"
#include "mesh/tri_mesh.h"

namespace povmesh::cli {

/// What was measured, and what a reader of it should know. The report refers to the mesh measured.
struct ThinMeasurement {
    ThicknessReport report;
    std::unique_ptr<TriMesh> wrapped;   // the mesh measured, when it is not the model itself
    std::vector<std::string> warnings;  // without the file

    const TriMesh& measured(const TriMesh& model) const { return wrapped ? *wrapped : model; }
};

/// Measures a model of these findings. One with flaws is wrapped first, within a tenth of the wall
/// or as near as does not take too long.
ThinMeasurement measure_thin(const TriMesh& mesh, const Findings& findings,
                             ThicknessOptions options);

/// "3 places thinner than 1".
std::string thin_text(const ThinPlaces& walls);
std::string narrow_text(const ThinPlaces& gaps);

/// "0.3 near (1, 2, 3)": the thinnest of the places told.
std::string thinnest_text(const ThinPlaces& found);

/// With the first `listed` places.
Json thin_json(const ThinPlaces& found, std::size_t listed);

/// Of the surface, without the digits that floats do not have.
Vec3f told_point(const ThinPlace& place);

}  // namespace povmesh::cli
