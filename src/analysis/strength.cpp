// Analyse, remesh, value, paint: the model is brought to a mean extent of 100, analysed by sections
// or finite elements, remeshed evenly, and each vertex gets a value and its colour.
#include "analysis/strength.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>
#include <variant>
#include <vector>

#include "analysis/fem_analysis.h"
#include "analysis/sections.h"
#include "analysis/strength_values.h"
#include "base/convert.h"
#include "base/parallel.h"
#include "base/poll.h"
#include "base/timer.h"
#include "mesh/bounds.h"
#include "mesh/compact.h"
#include "remesh/reduce.h"
#include "remesh/remesh.h"

namespace povmesh {
namespace {

constexpr std::size_t kManyTriangles = 200000;

// The model is analysed at this mean extent, and these are lengths at that scale.
constexpr double kMeanExtent = 100;
constexpr double kSectionStep = 1;

// Shorter edges would not keep their directions when they are rounded.
constexpr double kCoordinatesPerEdge = 4;

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

constexpr Rgb kNotJudged = {160, 160, 160};

// Of the residual. With the motions of blocks, models take a few dozen steps to come below it; one
// that takes thousands never does.
constexpr double kFineTolerance = 0.005;
constexpr std::size_t kFineSteps = 2000;

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
            for (const Vec3f p : {box.low, box.high}) {
                const float farthest = std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z)});
                const double next = std::nextafter(farthest, 0.0F);
                spacing_ = std::max(spacing_, (double{farthest} - next) * scale_);
            }
        }
        Poller poller;
        for (Vertex& v : mesh.vertices) {
            poller();
            set(v, (to_double(v.position()) - low_) * scale_);
        }
        places_.reserve(mesh.vertices.size());
        for (std::uint32_t i = 0; i < mesh.vertices.size(); ++i) {
            poll_at(i);
            places_.push_back({bits_of(mesh.vertices[i]), i});
        }
        std::sort(places_.begin(), places_.end());
    }

    double scale() const { return scale_; }

    // Of neighbouring coordinates of the original place, at its farthest from the origin, in
    // analysed units.
    double spacing() const { return spacing_; }

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
    double spacing_ = 0;
};

// ------------------------------------------------------------------------------------ analysis

// What the analysis found, as something that can be asked for the weakness at a point.
using Weakness = std::variant<SectionWeakness, ElementWeakness, SmoothElementWeakness>;

Weakness by_sections(const TriMesh& mesh, const StrengthOptions& options, StrengthReport& report,
                     RunContext& run) {
    const SectionPlanes planes =
        options.rules == StrengthRules::Hosts ? SectionPlanes::Axes : SectionPlanes::Turned;
    const std::vector<WeakSection> sections =
        analyse_sections(mesh, kSectionStep, SectionMode::LocalMinima, run, planes);
    report.sections = sections.size();
    report.is_analysed = true;
    return SectionWeakness(sections);
}

Weakness by_elements(const TriMesh& mesh, const StrengthOptions& options, StrengthReport& report,
                     RunContext& run) {
    fem::AnalysisOptions wanted{.voxel_size = options.voxel_size, .load = options.load};
    if (options.rules == StrengthRules::Person) {
        wanted.rules = fem::LoadRules::Even;
        wanted.solve = {
            .tolerance = kFineTolerance, .most_steps = kFineSteps, .moves_blocks = true};
        wanted.marks_loose = true;
    }
    const fem::EnergyField found = fem::analyse(mesh, wanted, run);
    report.is_analysed = found.is_solved;
    report.elements = found.values.size();
    report.nodes = found.nodes;
    report.voxel_size = found.voxel_size / report.scale;
    report.steps = found.steps;
    report.residual = found.residual;
    report.solve_seconds = found.solve_seconds;
    if (found.is_solved) {
        report.is_converged = found.is_converged;
        report.is_loaded = found.is_loaded;
        report.loose_bodies = found.loose_bodies;
        report.loose_share =
            static_cast<double>(found.loose_elements) / static_cast<double>(report.elements);
    }
    if (options.rules == StrengthRules::Hosts) return ElementWeakness(found);
    return SmoothElementWeakness(found, found.voxel_size);
}

Weakness analyse(const TriMesh& mesh, const StrengthOptions& options, StrengthReport& report,
                 RunContext& run) {
    return options.method == StrengthMethod::Sections ? by_sections(mesh, options, report, run)
                                                      : by_elements(mesh, options, report, run);
}

Array<float> values_at_vertices(const TriMesh& mesh, const Weakness& weakness) {
    Array<float> values(mesh.vertices.size());
    std::visit(
        [&](const auto& field) {
            parallel_for(values.size(),
                         [&](std::size_t v) { values[v] = field.at(mesh.vertices[v].position()); });
        },
        weakness);
    return values;
}

// ------------------------------------------------------------------------------------- colours

// The mean of the vertices that follow in the faces around: for hosts without its own value, so
// that one that is no number makes its neighbours such; else with it, over those that are numbers.
Array<float> smoothed(TriMesh& mesh, const Array<float>& values, StrengthRules rules) {
    ensure_uses(mesh);
    Array<float> result = values;
    const bool is_for_hosts = rules == StrengthRules::Hosts;
    parallel_for(values.size(), [&](std::size_t v) {
        if (!is_for_hosts && std::isnan(values[v])) return;
        float sum = is_for_hosts ? 0 : values[v];
        float count = is_for_hosts ? 0 : 1;
        for (const Use& use : mesh.uses(v)) {
            if (mesh.faces[use.face()].deleted != 0) continue;
            const float next = values[static_cast<std::size_t>(use.next)];
            if (!is_for_hosts && std::isnan(next)) continue;
            sum += next;
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

void find_quantiles(StrengthReport& report) {
    Array<float> judged;
    for (const float value : report.values) {
        if (!std::isnan(value)) judged.push_back(value);
    }
    if (judged.empty()) return;
    std::sort(judged.begin(), judged.end());
    const auto last = static_cast<double>(judged.size() - 1);
    for (std::size_t i = 0; i < kScaleSteps.size(); ++i) {
        report.steps_of_scale[i] = judged[static_cast<std::size_t>(kScaleSteps[i].below * last)];
    }
    report.is_scale_by_quantiles =
        report.steps_of_scale.back() - report.lowest > static_cast<float>(kRangeMargin);
}

// By quantiles: straight up to the last step, where that is higher than from step to step.
double place_on_scale(const StrengthReport& report, double value) {
    const auto low = static_cast<double>(report.lowest);
    if (!report.is_scale_by_quantiles) {
        return (value - low) / (static_cast<double>(report.highest) - low + kRangeMargin);
    }
    const double straight = (value - low) / (double{report.steps_of_scale.back()} - low);
    double from = low;
    double colour = 0;
    for (std::size_t i = 0; i < kScaleSteps.size(); ++i) {
        const auto to = double{report.steps_of_scale[i]};
        if (value < to) {
            const double share = (value - from) / (to - from);
            return std::max(straight, colour + (kScaleSteps[i].colour - colour) * share);
        }
        from = to;
        colour = kScaleSteps[i].colour;
    }
    return 1;
}

void paint(TriMesh& mesh, const StrengthReport& report, StrengthRules rules) {
    parallel_for(mesh.faces.size(), [&](std::size_t f) {
        Face& face = mesh.faces[f];
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const auto vertex = static_cast<std::size_t>(face.vertex[corner]);
            const bool is_judged =
                rules == StrengthRules::Hosts || !std::isnan(report.values[vertex]);
            const Rgb colour =
                is_judged ? strength_colour(place_on_scale(report, double{report.values[vertex]}))
                          : kNotJudged;
            std::copy(colour.begin(), colour.end(), face.colour.begin() + 3 * corner);
        }
    });
}

// Faces of which corners have come together, and vertices that have, with their values.
void leave_out_collapsed(TriMesh& mesh, Array<float>& values) {
    const auto is_collapsed = [&](const Face& face) {
        const Vec3f a = mesh.corner_position(face, 0);
        const Vec3f b = mesh.corner_position(face, 1);
        const Vec3f c = mesh.corner_position(face, 2);
        return a == b || b == c || c == a;
    };
    if (std::none_of(mesh.faces.begin(), mesh.faces.end(), is_collapsed)) return;
    std::vector<std::pair<Bits, float>> values_at;
    for (std::size_t v = 0; v < mesh.vertices.size(); ++v) {
        poll_at(v);
        values_at.emplace_back(bits_of(mesh.vertices[v]), values[v]);
    }
    const auto is_before = [](const auto& a, const auto& b) { return a.first < b.first; };
    std::stable_sort(values_at.begin(), values_at.end(), is_before);
    compact(mesh);
    values.resize(mesh.vertices.size());
    for (std::size_t v = 0; v < values.size(); ++v) {
        const std::pair<Bits, float> place{bits_of(mesh.vertices[v]), 0.0F};
        values[v] = std::lower_bound(values_at.begin(), values_at.end(), place, is_before)->second;
    }
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
        const double finest = kCoordinatesPerEdge * normalisation.spacing();
        remesh(mesh, {.edge_length = std::max(options.edge_length, finest)}, run);
        report.values = values_at_vertices(mesh, weakness);
    }
    report.values = smoothed(mesh, report.values, options.rules);
    find_range(report);
    if (options.rules == StrengthRules::Person &&
        options.method == StrengthMethod::FiniteElements) {
        find_quantiles(report);
    }
    run.log.append("\n" + six_decimals(static_cast<double>(report.lowest)) + " " +
                   six_decimals(static_cast<double>(report.highest)));
    paint(mesh, report, options.rules);
    normalisation.undo(mesh);
    leave_out_collapsed(mesh, report.values);
    run.log.success("strength_coloring", timer.seconds(), " sec.");
    return report;
}

}  // namespace povmesh
