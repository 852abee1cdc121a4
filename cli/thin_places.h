// Thin walls and narrow gaps of a model, as `thickness` and `check` tell them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "cli/findings_report.h"
#include "field/thickness.h"
#include "mesh/tri_mesh.h"

namespace povmesh::cli {

/// What was measured, and what a reader of it should know. The report refers to the mesh.
struct ThinMeasurement {
    ThicknessReport report;
    std::vector<std::string> warnings;  // without the file
};

/// Measures a model of these findings.
ThinMeasurement measure_thin(const TriMesh& mesh, const Findings& findings,
                             const ThicknessOptions& options);

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
