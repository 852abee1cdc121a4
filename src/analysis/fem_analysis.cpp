// Voxels become elements, the lowest layer is held, a load is put on, the displacements are solved
// for, and the strain energy of each element, u K u, is averaged over its neighbours.
#include "analysis/fem_analysis.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

#include "analysis/stiffness.h"
#include "base/parallel.h"
#include "base/timer.h"
#include "base/union_find.h"
#include "voxel/form_voxels.h"
#include "voxel/passes.h"

namespace povmesh::fem {
namespace {

constexpr int kSmoothings = 3;

void log_completed(const RunLog& log, const Timer& timer, std::string_view end) {
    log.append("complete in  " + six_decimals(timer.seconds()) + std::string(end));
}

// Adds the energies of the runs to the sums of their nodes.
void add_to_nodes(const Model& model, const Array<float>& energies, Array<float>& sums) {
    for (const ElementRun& run : model.runs) {
        const float* energy = energies.data() + run.first;
        for (const std::uint32_t row : run.rows) {
            float* sum = sums.data() + row;
            for (std::size_t i = 0; i < run.count; ++i) sum[i] += energy[i];
            for (std::size_t i = 0; i < run.count; ++i) sum[i + 1] += energy[i];
        }
    }
}

void smooth(const Model& model, Array<float>& energies, Array<float>& nodes) {
    std::fill(nodes.begin(), nodes.end(), 0.0F);
    add_to_nodes(model, energies, nodes);
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        if (model.element_counts[i] != 0) nodes[i] /= static_cast<float>(model.element_counts[i]);
    }
    for (const ElementRun& run : model.runs) {
        const auto row = [&](std::size_t r) { return nodes.data() + run.rows[r]; };
        const float* a = row(0);
        const float* b = row(1);
        const float* c = row(2);
        const float* d = row(3);
        float* energy = energies.data() + run.first;
        for (std::size_t i = 0; i < run.count; ++i) {
            energy[i] = 0.125F * ((a[i] + a[i + 1]) + (b[i] + b[i + 1]) + (c[i] + c[i + 1]) +
                                  (d[i] + d[i + 1]));
        }
    }
}

void export_energies(const Model& model, const Array<float>& energies, EnergyField& result) {
    float largest = energies[0];
    for (const float energy : energies) {
        if (energy > largest) largest = energy;
    }
    result.values.resize(energies.size());
    result.centres.resize(energies.size());
    for_each_element(model, [&](const Element& element) {
        result.centres[element.index] = model.centre_of(element);
        result.values[element.index] = energies[element.index] / largest;
    });
}

void count_loose(const Model& model, const HeldNodes& held, bool marks, EnergyField& result) {
    result.loose_bodies = held.loose_bodies;
    if (held.loose_bodies == 0) return;
    for_each_element(model, [&](const Element& element) {
        if (held.is_held[element.nodes[0]] != 0) return;
        ++result.loose_elements;
        if (marks) result.values[element.index] = std::numeric_limits<float>::quiet_NaN();
    });
}

// False when there is nothing to solve.
bool make_model(const TriMesh& mesh, float voxel_size, Model& model, RunContext& run) {
    VoxelGrid grid = form_voxels(mesh, {{voxel_size, voxel_size, voxel_size}}, run);
    mark_exposed_sides(grid, kSurfaceLine, run);
    if (grid.is_empty()) {
        run.log.append("\nVoxelization: 0 voxels --> break");
        return false;
    }
    run.log.append("\nVoxel Num:" + std::to_string(grid.size()));
    return build_model(grid, model, run.log) && fix_lowest_layer(model, run.log);
}

}  // namespace

Array<float> smoothed_energies(const Model& model, const NodeField& displacements, int passes,
                               const RunLog& log) {
    log.append("\n | compute Energy...");
    Timer timer;
    Array<float> energies;
    Stiffness(model).energies(displacements, energies);
    for (float& energy : energies) energy *= 0.5F * kYoungsModulus;
    log_completed(log, timer, " sec.");
    timer = {};
    Array<float> nodes(model.node_count());
    for (int pass = 0; pass < passes; ++pass) smooth(model, energies, nodes);
    log_completed(log, timer, " sec.\n");
    return energies;
}

HeldNodes held_nodes(const Model& model) {
    UnionFind bodies(model.node_count());
    for (const ElementRun& run : model.runs) {
        for (const std::uint32_t row : run.rows) {
            bodies.unite(row, run.rows[0]);
            for (std::uint32_t i = 0; i < run.count; ++i) bodies.unite(row + i, row + i + 1);
        }
    }
    HeldNodes held;
    held.is_held.resize(model.node_count());
    for (std::uint32_t node = 0; node < model.node_count(); ++node) {
        // The lowest node stands for its body, and the fixed ones come first.
        const std::uint32_t body = bodies.find(node);
        held.is_held[node] = body < model.fixed_nodes ? 1 : 0;
        if (body == node && held.is_held[node] == 0) ++held.loose_bodies;
    }
    return held;
}

bool unload_loose_bodies(const HeldNodes& held, NodeField& force) {
    bool is_loaded = false;
    for (std::size_t node = 0; node < held.is_held.size(); ++node) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            float& value = force.axis(axis)[node];
            if (held.is_held[node] == 0) value = 0;
            is_loaded = is_loaded || value != 0;
        }
    }
    return is_loaded;
}

EnergyField analyse(const TriMesh& mesh, const AnalysisOptions& options, RunContext& run) {
    const Timer timer;
    EnergyField result;
    Model model;
    if (!make_model(mesh, options.voxel_size, model, run)) return result;
    result.voxel_size = static_cast<double>(model.size);
    result.nodes = model.node_count();
    result.free_dofs = model.free_dofs();

    const HeldNodes held = held_nodes(model);
    NodeField force = load_of(model, options.load, run.log, options.rules);
    result.is_loaded = unload_loose_bodies(held, force);
    run.log.append("\n | CG..");
    Timer step;
    const Solution solution = solve(model, std::move(force), options.solve);
    result.is_solved = true;
    result.steps = solution.steps;
    result.residual = solution.residual;
    result.is_converged = !result.is_loaded || solution.residual < options.solve.tolerance;
    result.solve_seconds = step.seconds();
    run.log.append(six_decimals(result.solve_seconds) +
                   "sec.  iter:" + std::to_string(solution.steps));
    step = {};
    run.log.append("\n | compute Displacement...");
    log_completed(run.log, step, " sec.");
    const Array<float> energies =
        smoothed_energies(model, solution.displacements, kSmoothings, run.log);
    export_energies(model, energies, result);
    count_loose(model, held, options.marks_loose, result);
    run.log.success("fem_analysis", timer.seconds());
    return result;
}

}  // namespace povmesh::fem
