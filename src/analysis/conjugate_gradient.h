// Solves for the displacements under a load.
#pragma once

#include <cstddef>

#include "analysis/fem_model.h"
#include "analysis/node_field.h"

namespace povmesh::fem {

struct SolveOptions {
    double tolerance = 0.05;  // of the residual, relative to the load
    std::size_t most_steps = 3500;
    bool moves_blocks = false;  // preconditions by the rigid motions of blocks, too; fewer steps
};

struct Solution {
    NodeField displacements;  // 0 at fixed nodes
    std::size_t steps = 0;    // products with the stiffness matrix
    double residual = 0;      // relative to the load, as the steps carry it on
};

/// Conjugate gradients, preconditioned by the diagonal and, if asked for, by the motions of blocks
/// (RigidBlocks), from 0 on, until the norm of the residual falls below the tolerance times that of
/// the load. No load, no displacement, no step.
///
/// Blocks take a slender model from thousands of steps to some dozens (`fem_solve_blocks` of
/// fem_bench beside `fem_solve_fine`).
///
/// Vectors are in single precision, sums of products in double. The residual that is carried on
/// goes down as far as one likes; the true one, of the displacements rounded to single precision,
/// stays near 1e-4 of the load where models are slender.
///
/// @param force  forces on the nodes; those on fixed ones do not count. Becomes the residual: a
/// copy would be a sixth of the memory
///
/// The same bits for any number of threads. Time: about 20 ns a node and step on one core; memory:
/// 40 bytes a node beside the force.
///
/// Source: M. R. Hestenes and E. Stiefel, Methods of conjugate gradients for solving linear
/// systems, 1952.
Solution solve(const Model& model, NodeField force, const SolveOptions& options = {});

}  // namespace povmesh::fem
