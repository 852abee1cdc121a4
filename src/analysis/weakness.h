// Finds the weak places of every solid of a model.
#pragma once

#include <vector>

#include "analysis/sections.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

/// Planes along an extent as long as the mean of the model's three.
constexpr double kWeaknessPlanes = 100;

/// Analyses the cross-sections of each shell of a mesh by itself, closed shells together with the
/// cavities in them, and returns them all, the weakest first and scored against it.
///
/// @param mesh  its shells are labelled; its uses are made
///
/// The planes are a hundredth of the mean of the model's extents apart and start anew in each
/// shell.
std::vector<WeakSection> detect_weakness(TriMesh& mesh, SectionMode mode, RunContext& run);

}  // namespace povmesh
