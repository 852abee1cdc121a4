// What a direction costs, estimated and measured.
#pragma once

#include "orient/orient_model.h"
#include "orient/orientation.h"
#include "spatial/overhang.h"

namespace povmesh {

/// A lower bound of the cost but for shadows, from groups of normals and the hull: no columns.
///
/// @param is_rest_face  stand and contact are counted; otherwise they are taken as worst
double estimate_cost(const OrientModel& model, Vec3d up, bool is_rest_face);

/// Measures a direction. `meter` keeps its memory from call to call.
Orientation measure(const OrientModel& model, const MeasuredTriangles& on, Vec3d up,
                    OverhangMeter& meter);

}  // namespace povmesh
