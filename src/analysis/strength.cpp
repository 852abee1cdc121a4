// Analyse, remesh, value, paint: the model is brought to a mean extent of 100, analysed by sections
// or finite elements, remeshed evenly, and each vertex gets a value and its colour.
#include "analysis/strength.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>
#include <vector>

#include "analysis/fem_analysis.h"
#include "analysis/sections.h"
#include "analysis/strength_values.h"
#include "base/convert.h"
#include "base/parallel.h"
#include "base/timer.h"
#include "mesh/bounds.h"
#include "remesh/reduce.h"
#include "remesh/remesh.h"

namespace povmesh {
namespace {

constexpr std::size_t kManyTriangles = 200000;

// The model is analysed at this mean extent, and these are lengths at that scale.
constexpr double kMeanExtent = 100;
constexpr double kSectionStep = 1;

// Steps of equal height, repeated where the scale shall hardly change.
using Rgb = std::array<std::uint8_t, 3>;
constexpr std::array<Rgb, 12> kPalette = {{{100, 100, 255},
                                           {100, 255, 255},
                                           {100, 255, 100},
                                           {255, 255, 100},
                                           {255, 255, 100},
                                           {255, 172, 100},
                                           {255, 172, 100},
                                           {255, 100, 100},
                                           {255, 100, 100},
                                           {255, 100, 100},
                                           {255, 100, 100},
                                           {255, 100, 100}}};

// Added to the range of the values, so that equal ones are the lowest colour.
constexpr double kRangeMargin = 0.0001;

using Bits = std::array<std::uint32_t, 3>;

Bits bits_of(const Vertex& v) {
    return {std::bit_cast<std::uint32_t>(v.x), std::bit_cast<std::uint32_t>(v.y),
            std::bit_cast<std::uint32_t>(v.z)};
}

// Takes a mesh to its analysed place and size, and back.
class Normalisation {
public:
    explicit Normalisation(TriMesh& mesh) : original_(mesh.vertices) {
        const Box3f box = finite_bounds(mesh);
        if (!box.is_empty()) {
            low_ = to_double(box.low);
            const Vec3d extent = to_double(box.high) - low_;
            const double mean = (extent.x + extent.y + extent.z) / 3;
            if (mean > 0) scale_ = kMeanExtent / mean;
        }
        for (Vertex& v : mesh.vertices) {
            set(v, (to_double(v.position()) - low_) * scale_);
        }
        places_.reserve(mesh.vertices.size());
        for (std::uint32_t i = 0; i < mesh.vertices.size(); ++i) {
            places_.push_back({bits_of(mesh.vertices[i]), i});
        }
        std::sort(places_.begin(), places_.end());
    }

    double scale() const { return scale_; }

    void undo(TriMesh& mesh) const {
        parallel_for(mesh.vertices.size(), [&](std::size_t i) {
            Vertex& v = mesh.vertices[i];
            const Bits place = bits_of(v);
            const auto found = std::lower_bound(places_.begin(), places_.end(),
                                                std::pair<Bits, std::uint32_t>{place, 0});
            if (found != places_.end() && found->first == place) {
                const Vertex& was = original_[found->second];
                v.x = was.x;
                v.y = was.y;
                v.z = was.z;
            } else {
                set(v, to_double(v.position()) * (1 / scale_) + low_);
            }
        });
    }

private:
    static void set(Vertex& v, Vec3d p) {
        v.x = narrow_to_float(p.x);
        v.y = narrow_to_float(p.y);
        v.z = narrow_to_float(p.z);
    }

    Array<Vertex> original_;
    std::vector<std::pair<Bits, std::uint32_t>> places_;  // normalised, and whose they are; sorted
    Vec3d low_;
    double scale_ = 1;
};

// ------------------------------------------------------------------------------------ analysis

// What the analysis found, as something that can be asked for the weakness at a point.
struct Weakness {
    StrengthMethod method;
    SectionWeakness sections;
    ElementWeakness elements;

    float at(Vec3f p) const {
        return method == StrengthMethod::Sections ? sections.at(p) : elements.at(p);
    }
};

Weakness by_sections(const TriMesh& mesh, StrengthReport& report, RunContext& run) {
    const std::vector<WeakSection> sections =
        analyse_sections(mesh, kSectionStep, SectionMode::LocalMinima, run);
    report.sections = sections.size();
    report.is_analysed = true;
    return {StrengthMethod::Sections, SectionWeakness(sections), {}};
}

Weakness by_elements(const TriMesh& mesh, const StrengthOptions& options, StrengthReport& report,
                     RunContext& run) {
    const fem::EnergyField found = fem::analyse(mesh, options.voxel_size, options.load, run);
    report.is_analysed = found.is_solved;
    report.elements = found.values.size();
    report.nodes = found.nodes;
    report.voxel_size = found.voxel_size / report.scale;
    report.steps = found.steps;
    report.residual = found.residual;
    report.solve_seconds = found.solve_seconds;
    return {StrengthMethod::FiniteElements, {}, ElementWeakness(found)};
}

Weakness analyse(const TriMesh& mesh, const StrengthOptions& options, StrengthReport& report,
                 RunContext& run) {
    return options.method == StrengthMethod::Sections ? by_sections(mesh, report, run)
                                                      : by_elements(mesh, options, report, run);
}

Array<float> values_at_vertices(const TriMesh& mesh, const Weakness& weakness) {
    Array<float> values(mesh.vertices.size());
    parallel_for(values.size(),
                 [&](std::size_t v) { values[v] = weakness.at(mesh.vertices[v].position()); });
    return values;
}

// ------------------------------------------------------------------------------------- colours

// The mean of the vertices that follow in the faces around, without its own value.
Array<float> smoothed(TriMesh& mesh, const Array<float>& values) {
    ensure_uses(mesh);
    Array<float> result = values;
    parallel_for(values.size(), [&](std::size_t v) {
        float sum = 0;
        float count = 0;
        for (const Use& use : mesh.uses(v)) {
            if (mesh.faces[use.face()].deleted != 0) continue;
            sum += values[static_cast<std::size_t>(use.next)];
            ++count;
        }
        if (count > 0) result[v] = sum / count;
    });
    return result;
}

void find_range(StrengthReport& report) {
    bool is_first = true;
    for (const float value : report.values) {
        if (std::isnan(value)) continue;
        if (is_first || value < report.lowest) report.lowest = value;
        if (is_first || value > report.highest) report.highest = value;
        is_first = false;
    }
}

void paint(TriMesh& mesh, const StrengthReport& report) {
    const auto low = static_cast<double>(report.lowest);
    const double range = static_cast<double>(report.highest) - low + kRangeMargin;
    parallel_for(mesh.faces.size(), [&](std::size_t f) {
        Face& face = mesh.faces[f];
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const auto vertex = static_cast<std::size_t>(face.vertex[corner]);
            const Rgb colour =
                strength_colour((static_cast<double>(report.values[vertex]) - low) / range);
            std::copy(colour.begin(), colour.end(), face.colour.begin() + 3 * corner);
        }
    });
}

void reduce_large(TriMesh& mesh) {
    if (mesh.faces.size() > kManyTriangles) (void)reduce(mesh, kReduceToATenth);
}

bool is_known(StrengthMethod method) {
    return method == StrengthMethod::Sections || method == StrengthMethod::FiniteElements;
}

}  // namespace

std::array<std::uint8_t, 3> strength_colour(double t) {
    const double place = t > 0 ? std::min(t, 1.0) * (kPalette.size() - 1) : 0.0;
    const std::size_t step =
        std::min(static_cast<std::size_t>(std::floor(place)), kPalette.size() - 2);
    const double share = place - static_cast<double>(step);
    Rgb colour{};
    for (std::size_t channel = 0; channel < 3; ++channel) {
        colour[channel] = saturate_to<std::uint8_t>(kPalette[step][channel] * (1 - share) +
                                                    kPalette[step + 1][channel] * share);
    }
    return colour;
}

StrengthReport colour_strength(TriMesh& mesh, const StrengthOptions& options, RunContext& run) {
    const Timer timer;
    reduce_large(mesh);
    const Normalisation normalisation(mesh);
    StrengthReport report;
    report.scale = normalisation.scale();
    report.values.assign(mesh.vertices.size(), 0.0F);
    if (is_known(options.method)) {
        const Weakness weakness = analyse(mesh, options, report, run);
        remesh(mesh, {.edge_length = options.edge_length}, run);
        report.values = values_at_vertices(mesh, weakness);
    }
    report.values = smoothed(mesh, report.values);
    find_range(report);
    run.log.append("\n" + six_decimals(static_cast<double>(report.lowest)) + " " +
                   six_decimals(static_cast<double>(report.highest)));
    paint(mesh, report);
    normalisation.undo(mesh);
    run.log.success("strength_coloring", timer.seconds(), " sec.");
    return report;
}

}  // namespace povmesh
