// Where a printed part is stressed: the strain energy of its voxels under a load.
#pragma once

#include <cstddef>
#include <cstdint>

#include "analysis/conjugate_gradient.h"
#include "analysis/load_cases.h"
#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh::fem {

struct AnalysisOptions {
    float voxel_size = 0;  // model units; none that is not above 0 makes a voxel
    LoadCase load = LoadCase::PressureZ;
    LoadRules rules = LoadRules::Hosts;
    SolveOptions solve = {};
    bool marks_loose = false;  // gives elements of bodies that are not held NaN, not 0
};

struct EnergyField {
    bool is_solved = false;  // false: no voxel, or nothing that can move; then there are no values
    bool is_loaded = false;  // false: no force acts on a body that is held
    bool is_converged = false;       // the residual came below the tolerance
    std::size_t loose_bodies = 0;    // those that do not hang together with the lowest layer
    std::size_t loose_elements = 0;  // of these
    Array<Vec3f> centres;            // of the elements, model coordinates
    Array<float> values;    // energy of each, relative to the largest; NaN without any energy
    double voxel_size = 0;  // edge of an element, raised where the model is too large for it
    std::size_t nodes = 0;
    std::size_t free_dofs = 0;
    std::size_t steps = 0;  // of the solver
    double residual = 0;    // relative to the load
    double solve_seconds = 0;
};

/// Makes a solid of voxels of the mesh, fixes its lowest layer of nodes, loads it, solves for the
/// displacements until the residual is below the tolerance, 5 % of the load for hosts, and returns
/// the strain energies, smoothed three times over common nodes. The residual is what of the load is
/// not balanced. It is no bound for the error of the displacements: a small force that is left over
/// bends a slender part far.
///
/// Bodies that do not hang together with the lowest layer cannot bear a load and get none.
///
/// Log: numbers of voxels, nodes, elements and DoFs, the load, the solver's steps and times.
/// The same bits for any number of threads. Memory: about 60 bytes an element, and the voxels.
EnergyField analyse(const TriMesh& mesh, const AnalysisOptions& options, RunContext& run);

/// Twice over half the energy of each element, as the solver made it: its displacements times their
/// forces, times Young's modulus once more. Only their relations count. Then `passes` times: each
/// element gets the mean over its nodes of the mean over the elements there.
Array<float> smoothed_energies(const Model& model, const NodeField& displacements, int passes,
                               const RunLog& log);

/// Whether each node hangs together with a fixed one, and how many bodies do not.
struct HeldNodes {
    Array<std::uint8_t> is_held;
    std::size_t loose_bodies = 0;
};
HeldNodes held_nodes(const Model& model);

/// Takes the forces off all nodes that are not held. Returns whether any force is left.
bool unload_loose_bodies(const HeldNodes& held, NodeField& force);

}  // namespace povmesh::fem
