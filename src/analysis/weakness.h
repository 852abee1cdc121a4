// Finds the weak places of every solid of a model.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "analysis/sections.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

/// Planes along an extent as long as the mean of the model's three.
constexpr double kWeaknessPlanes = 100;

/// Meshes below this are analysed as they are: their sections take less time than a reduction.
constexpr std::size_t kReducedFaces = 20000;

/// How far a reduced mesh may stray, as a share of the diagonal of the bounding box: a tenth of the
/// distance of the planes.
constexpr double kReductionReach = 0.001;

/// Lowers the number of faces ahead of the analysis by `reduction`, unless the mesh has few, and
/// takes it back where the surface strays too far: a body of few or of large faces loses its necks.
/// Returns whether the mesh was reduced. Memory: a copy of the mesh.
bool reduce_for_weakness(TriMesh& mesh, const std::function<void(TriMesh&)>& reduction);

/// Analyses the cross-sections of each shell of a mesh by itself, closed shells together with the
/// cavities in them, and returns them all, the weakest first and scored against it.
///
/// @param mesh  its shells are labelled; its uses are made
///
/// The planes are a hundredth of the mean of the model's extents apart and start anew in each
/// shell.
std::vector<WeakSection> detect_weakness(TriMesh& mesh, SectionMode mode, RunContext& run);

}  // namespace povmesh
