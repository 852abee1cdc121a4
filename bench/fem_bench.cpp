// Voxel finite elements beside Eigen's conjugate gradients on the assembled matrix. One thread.
//
// Floor. An element takes about 190 additions and multiplications: 70 from the corners to the modes
// of three components, 43 for the blocks, 70 back, and the sums at the nodes. At 8 lanes and two
// operations a cycle that is 12 cycles, 4 ns at 3 GHz; the assembled matrix takes 81 products a
// row, 243 a node, and reads 1.9 kB for them. The vectors of a step move 56 bytes a DoF, 168 a
// node: 40 ns at 4 GB/s far beyond the caches, less than 10 within the third level.
#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <utility>
#include <vector>

#ifdef POVMESH_BENCH_PEERS
#include <Eigen/Sparse>
#endif

#include "analysis/fem_analysis.h"
#include "analysis/stiffness.h"
#include "analysis/strength.h"
#include "inputs.h"
#include "mesh/bounds.h"
#include "voxel/form_voxels.h"
#include "voxel/passes.h"
#include "voxel/surface.h"

namespace povmesh::bench {
namespace {

using fem::LoadCase;
using fem::Model;
using fem::NodeField;
using fem::Solution;
using fem::Stiffness;

RunContext no_run() {
    static RunLog log;
    return {{}, log};
}

VoxelGrid cube_grid(std::int32_t side) {
    VoxelGrid grid(VoxelSettings{{2, 2, 2}}, {{0, 0, 0}, {side - 1, side - 1, side - 1}});
    for (std::int32_t z = 0; z < side; ++z) {
        for (std::int32_t y = 0; y < side; ++y) {
            for (std::int32_t x = 0; x < side; ++x) grid.insert({x, y, z});
        }
    }
    mark_exposed_sides(grid);
    return grid;
}

// The surface of a model, with an element for every so many cubic units that make that many.
VoxelGrid model_grid(const TriMesh& model, double elements) {
    RunContext run = no_run();
    const Vec3d extent = to_double(finite_bounds(model).extent());
    double size = std::cbrt(extent.x * extent.y * extent.z / elements);
    for (int round = 0; round < 8; ++round) {
        const auto edge = static_cast<float>(size);
        VoxelGrid grid = form_voxels(model, {{edge, edge, edge}}, run);
        mark_exposed_sides(grid);
        Model model_of;
        fem::build_model(grid, model_of, run.log);
        const double made = static_cast<double>(model_of.element_count());
        if (std::abs(made - elements) < 0.02 * elements || round == 7) return grid;
        size *= std::cbrt(made / elements);
    }
    return {};
}

// "cube_100k", "cube_1m", "hammer_250k".
const VoxelGrid& grid(const std::string& name) {
    static std::map<std::string, VoxelGrid> made;
    const auto place = made.find(name);
    if (place != made.end()) return place->second;
    if (name == "cube_100k") return made[name] = cube_grid(46);
    if (name == "cube_1m") return made[name] = cube_grid(100);
    return made[name] = model_grid(mesh(name.substr(0, name.find('_'))), 250000);
}

Model loaded(const VoxelGrid& from, NodeField& force) {
    RunContext run = no_run();
    Model model;
    build_model(from, model, run.log);
    fix_lowest_layer(model, run.log);
    force = load_of(model, LoadCase::PressureZ, run.log);
    fem::unload_loose_bodies(fem::held_nodes(model), force);
    return model;
}

// The residual of the displacements themselves, products in single precision, relative to the load.
double true_residual(const Model& model, const NodeField& force, const NodeField& x) {
    Stiffness stiffness(model);
    stiffness.multiply(x);
    double load = 0;
    double left = 0;
    for (const Stiffness::Slab& slab : stiffness.slabs()) {
        for (std::size_t a = 0; a < 3; ++a) {
            const float* product = stiffness.product(slab, a);
            for (std::size_t n = std::max<std::size_t>(slab.first, model.fixed_nodes);
                 n < slab.last; ++n) {
                const auto f = static_cast<double>(force.axis(a)[n]);
                load += f * f;
                left += std::pow(f - static_cast<double>(product[n - slab.first]), 2);
            }
        }
    }
    return std::sqrt(left / load);
}

double megabytes_peak() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024;
}

template <int Digits>
constexpr double kTolerance = Digits == 6   ? 1e-6
                              : Digits == 3 ? 0.005
                                            : 0.05;

// From the marked voxels to displacements: model, load, solution.
template <int Digits, bool MovesBlocks = false>
void solve_stencil(benchmark::State& state, const std::string& name) {
    const VoxelGrid& from = grid(name);
    const double before = megabytes_peak();
    for ([[maybe_unused]] auto _ : state) {
        NodeField force;
        const Model model = loaded(from, force);
        const Solution solution = solve(model, force, {kTolerance<Digits>, 3500, MovesBlocks});
        benchmark::DoNotOptimize(solution.displacements.axis(0));
        state.PauseTiming();
        state.counters["elements"] = static_cast<double>(model.element_count());
        state.counters["steps"] = static_cast<double>(solution.steps);
        state.counters["residual"] = solution.residual;
        state.counters["true_residual"] = true_residual(model, force, solution.displacements);
        state.counters["peak_mb"] = megabytes_peak() - before;
        state.ResumeTiming();
    }
}

// One product alone.
void multiply(benchmark::State& state, const std::string& name) {
    NodeField force;
    const Model model = loaded(grid(name), force);
    Stiffness stiffness(model);
    measure(state, [&] { return stiffness.multiply(force); });
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(model.element_count()));
}

#ifdef POVMESH_BENCH_PEERS
template <int Digits>
void solve_eigen(benchmark::State& state, const std::string& name) {
    using Matrix = Eigen::SparseMatrix<float, Eigen::RowMajor>;
    const VoxelGrid& from = grid(name);
    const double before = megabytes_peak();
    for ([[maybe_unused]] auto _ : state) {
        NodeField force;
        const Model model = loaded(from, force);
        const fem::ElementMatrix element = fem::element_matrix(model.size);
        const auto free = [&](std::uint32_t node, std::size_t axis) {
            return static_cast<int>(3 * (node - model.fixed_nodes) + axis);
        };
        std::vector<Eigen::Triplet<float>> triplets;
        triplets.reserve(576 * model.element_count());
        for_each_element(model, [&](const fem::Element& e) {
            for (std::size_t i = 0; i < fem::kElementDofs; ++i) {
                if (e.nodes[i / 3] < model.fixed_nodes) continue;
                for (std::size_t j = 0; j < fem::kElementDofs; ++j) {
                    if (e.nodes[j / 3] < model.fixed_nodes) continue;
                    triplets.emplace_back(free(e.nodes[i / 3], i % 3), free(e.nodes[j / 3], j % 3),
                                          element[i][j]);
                }
            }
        });
        const auto count = static_cast<Eigen::Index>(model.free_dofs());
        Matrix matrix(count, count);
        matrix.setFromTriplets(triplets.begin(), triplets.end());
        std::vector<Eigen::Triplet<float>>().swap(triplets);
        Eigen::VectorXf f(count);
        for (std::size_t node = model.fixed_nodes; node < model.node_count(); ++node) {
            for (std::size_t a = 0; a < 3; ++a) {
                f[free(static_cast<std::uint32_t>(node), a)] = force.axis(a)[node];
            }
        }
        Eigen::ConjugateGradient<Matrix, Eigen::Lower | Eigen::Upper> solver;
        solver.setTolerance(static_cast<float>(kTolerance<Digits>));
        solver.setMaxIterations(3500);
        solver.compute(matrix);
        const Eigen::VectorXf x = solver.solve(f);
        benchmark::DoNotOptimize(x.data());
        state.PauseTiming();
        state.counters["elements"] = static_cast<double>(model.element_count());
        state.counters["steps"] = static_cast<double>(solver.iterations());
        state.counters["residual"] = static_cast<double>(solver.error());
        state.counters["true_residual"] = static_cast<double>((f - matrix * x).norm() / f.norm());
        state.counters["peak_mb"] = megabytes_peak() - before;
        state.ResumeTiming();
    }
}
#endif

// A whole model, and without the remeshing that the colours are painted on.
void strength_whole(benchmark::State& state, const std::string& name) {
    RunContext run = no_run();
    const TriMesh& model = mesh(name);
    measure(
        state, [&] { return model; },
        [&](TriMesh& copy) {
            const StrengthReport report = colour_strength(copy, {}, run);
            state.counters["elements"] = static_cast<double>(report.elements);
            state.counters["steps"] = static_cast<double>(report.steps);
            state.counters["triangles"] = static_cast<double>(copy.faces.size());
            return report.highest;
        });
}
void strength_analysis(benchmark::State& state, const std::string& name) {
    RunContext run = no_run();
    const TriMesh& model = mesh(name);
    const Vec3d extent = to_double(finite_bounds(model).extent());
    const auto size = static_cast<float>((extent.x + extent.y + extent.z) / 3 * 0.02);
    measure(state, [&] {
        const fem::EnergyField result = fem::analyse(model, {.voxel_size = size}, run);
        state.counters["elements"] = static_cast<double>(result.values.size());
        return result.steps;
    });
}

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    std::vector<std::string> solved = {"cube_100k"};
    const std::vector<std::string> parts = existing_models({"hammer", "benchy", "scorpion", "cat"});
    if (!existing_models({"hammer"}).empty()) solved.emplace_back("hammer_250k");
    std::vector<std::string> all = solved;
    all.emplace_back("cube_1m");
    add_named("fem_multiply", all, multiply);
    add_named("fem_solve", all, solve_stencil<2>);
    add_named("fem_solve_1e6", all, solve_stencil<6>);
    // The tool's tolerance, by the diagonal alone and with blocks.
    add_named("fem_solve_fine", all, solve_stencil<3>);
    add_named("fem_solve_blocks", all, solve_stencil<3, true>);
#ifdef POVMESH_BENCH_PEERS
    // The million asks for 24 GB and minutes: by its name only.
    const bool is_whole = std::getenv("POVMESH_BENCH_LARGE") != nullptr;
    add_named("fem_solve_eigen", is_whole ? all : solved, solve_eigen<2>);
    add_named("fem_solve_1e6_eigen", solved, solve_eigen<6>);
#endif
    add_named("strength", parts, strength_whole);
    add_named("strength_analysis", parts, strength_analysis);
    return run(argc, argv);
}
