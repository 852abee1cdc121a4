// Where a printed part is stressed: the strain energy of its voxels under a load.
#pragma once

#include <cstddef>

#include "analysis/conjugate_gradient.h"
#include "analysis/load_cases.h"
#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh::fem {

struct EnergyField {
    bool is_solved = false;  // false: no voxel, or nothing that can move; then there are no values
    Array<Vec3f> centres;    // of the elements, model coordinates
    Array<float> values;     // energy of each, relative to the largest; NaN without any energy
    double voxel_size = 0;   // edge of an element, raised where the model is too large for it
    std::size_t nodes = 0;
    std::size_t free_dofs = 0;
    std::size_t steps = 0;  // of the solver
    double residual = 0;    // relative to the load
    double solve_seconds = 0;
};

/// Makes a solid of voxels of the mesh, fixes its lowest layer of nodes, loads it, solves for the
/// displacements to 5 % and returns the strain energies, smoothed three times over common nodes.
///
/// Bodies that do not hang together with the lowest layer cannot bear a load and get none.
///
/// @param voxel_size  model units; none that is not above 0 makes a voxel
/// Log: numbers of voxels, nodes, elements and DoFs, the load, the solver's steps and times.
/// The same bits for any number of threads. Memory: about 60 bytes an element, and the voxels.
EnergyField analyse(const TriMesh& mesh, float voxel_size, LoadCase load, RunContext& run);

/// Twice over half the energy of each element, as the solver made it: its displacements times their
/// forces, times Young's modulus once more. Only their relations count. Then `passes` times: each
/// element gets the mean over its nodes of the mean over the elements there.
Array<float> smoothed_energies(const Model& model, const NodeField& displacements, int passes,
                               const RunLog& log);

/// Takes the forces off all nodes that hang together with no fixed one.
void unload_loose_bodies(const Model& model, NodeField& force);

}  // namespace povmesh::fem
