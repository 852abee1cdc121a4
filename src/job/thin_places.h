// Thin walls and narrow gaps of a model, and what a reader of them should know.
#pragma once

#include <memory>

#include "field/thickness.h"
#include "job/findings.h"
#include "job/remarks.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// The report refers to the mesh measured.
struct ThinMeasurement : Remarks {
    ThicknessReport report;
    std::unique_ptr<TriMesh> wrapped;  // the mesh measured, when it is not the model itself

    const TriMesh& measured(const TriMesh& model) const { return wrapped ? *wrapped : model; }
};

/// Measures a model of these findings. One with flaws is wrapped first, within a tenth of the wall
/// or as near as does not take too long.
ThinMeasurement measure_thin(const TriMesh& mesh, const Findings& findings,
                             ThicknessOptions options);

/// Of the surface, without the digits that floats do not have; and any number so.
Vec3f told_point(const ThinPlace& place);
double shortest_of(double number);

}  // namespace povmesh
