// Paints a model from blue to red where it is weak.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "analysis/load_cases.h"
#include "base/array.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

/// Numbers that hosts know; any other analyses nothing and paints all of the model as strong.
enum class StrengthMethod : std::uint32_t {
    Sections = 0,        // narrow cross-sections weaken what is near
    FiniteElements = 1,  // energy of the strain under a load
};

enum class StrengthRules {
    Hosts,   // as hosts compare results
    Person,  // what a person expects: even loads, a finer solution, smooth values, grey where a
             // body is not held, and a scale of energies that a few places do not take whole
};

struct StrengthOptions {
    StrengthMethod method = StrengthMethod::FiniteElements;
    fem::LoadCase load = fem::LoadCase::PressureZ;  // for finite elements

    // In hundredths of the model's mean extent; hosts know these values.
    double edge_length = 1;  // of the painted triangles
    float voxel_size = 2;    // of finite elements

    StrengthRules rules = StrengthRules::Hosts;
};

/// A person's scale of energies: so many of the vertices are below a place of the scale (0 to 1:
/// cyan, green, yellow, and red at its end). The peak where a foot meets the plate can be a
/// thousand times what the rest of a model bears, and would leave that blue on an even scale.
struct ScaleStep {
    double below, colour;
};
constexpr std::array<ScaleStep, 4> kScaleSteps = {
    {{0.75, 1.0 / 11}, {0.90, 2.0 / 11}, {0.95, 3.0 / 11}, {0.99, 1}}};

struct StrengthReport {
    bool is_analysed = false;  // false: nothing was found to be judged, all of the model is strong
    Array<float> values;       // by vertex, smoothed; the higher, the weaker; NaN: not judged
    float lowest = 0;          // of the values that are numbers
    float highest = 0;
    bool is_scale_by_quantiles = false;                      // for persons, of energies
    std::array<float, kScaleSteps.size()> steps_of_scale{};  // the values there
    double scale = 1;  // analysed units a model unit: the model is analysed at a mean extent of 100
    std::size_t sections = 0;  // the rest is of finite elements
    std::size_t elements = 0;
    std::size_t nodes = 0;
    double voxel_size = 0;  // model units
    std::size_t steps = 0;  // of the solver
    double residual = 0;    // relative to the load
    double solve_seconds = 0;
    bool is_converged = true;
    bool is_loaded = true;         // false: no force acts on what is held
    std::size_t loose_bodies = 0;  // that do not hang together with the lowest layer
    double loose_share = 0;        // of the elements
};

/// Red, green and blue for 0 (strong) to 1 (weak); what is beyond counts as the nearer end, and
/// what is no number as 0.
std::array<std::uint8_t, 3> strength_colour(double t);

/// Analyses the model and gives each corner of each face the colour of its vertex, on a scale from
/// the least to the greatest value, or for persons by quantiles of the energies, straight where
/// those would be lower. Before, a model of more than 200,000 triangles is reduced to a tenth; and
/// any is remeshed to even triangles, so that the colours show where they belong.
/// Vertices that the remeshing leaves in place keep their coordinates bit for bit. Far from the
/// origin, where coordinates are sparse, triangles are made larger, and those that become none are
/// left out.
///
/// Log: those of the analysis, the lowest and the highest value, the time. The same bits for any
/// number of threads.
StrengthReport colour_strength(TriMesh& mesh, const StrengthOptions& options, RunContext& run);

}  // namespace povmesh
