#include "job/strength.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>

#include "base/timer.h"
#include "job/cavity.h"
#include "job/numbers.h"

namespace povmesh::job {
namespace {

constexpr std::size_t kMostPlaces = 5;
constexpr float kLeastShare = 0.3F;  // of the highest value, that a weak place has
constexpr double kPlaceRadius =
    0.15;  // of the mean extent, within which a higher value hides others

// Vertices whose value no neighbour surpasses, the highest first.
std::vector<std::uint32_t> peaks_of(TriMesh& mesh, const StrengthReport& report) {
    ensure_uses(mesh);
    std::vector<std::uint32_t> peaks;
    for (std::uint32_t v = 0; v < report.values.size(); ++v) {
        const float value = report.values[v];
        if (!(value >= kLeastShare * report.highest) || !(value > report.lowest)) continue;
        const auto row = mesh.uses(v);
        if (std::none_of(row.begin(), row.end(), [&](const Use& use) {
                return report.values[static_cast<std::size_t>(use.next)] > value;
            })) {
            peaks.push_back(v);
        }
    }
    std::stable_sort(peaks.begin(), peaks.end(), [&](std::uint32_t a, std::uint32_t b) {
        return report.values[a] > report.values[b];
    });
    return peaks;
}

std::vector<WeakPlace> weak_places(TriMesh& mesh, const StrengthReport& report) {
    const double radius = kPlaceRadius * 100 / report.scale;
    std::vector<WeakPlace> places;
    for (const std::uint32_t v : peaks_of(mesh, report)) {
        const Vec3f p = mesh.vertices[v].position();
        if (std::any_of(places.begin(), places.end(), [&](const WeakPlace& other) {
                return length(to_double(p) - to_double(other.place)) < radius;
            })) {
            continue;
        }
        places.push_back({p, static_cast<double>(report.values[v] / report.highest)});
        if (places.size() == kMostPlaces) break;
    }
    return places;
}

std::string percent(double share) {
    return human_number(std::round(100 * share / 0.1) * 0.1) + " %";
}

std::vector<std::string> doubts_of(const StrengthReport& strength) {
    std::vector<std::string> doubts;
    if (!strength.is_converged) {
        doubts.push_back("the displacements do not balance the load, a residual of " +
                         percent(strength.residual) +
                         " is left: something turns freely, as where parts meet in an edge or a "
                         "point only, or is too slender; do not trust the colours");
    }
    if (strength.loose_bodies != 0) {
        doubts.push_back(counted(strength.loose_bodies, "body", "bodies") + ", " +
                         percent(strength.loose_share) +
                         " of the elements, not held by the lowest layer, and grey: put the model "
                         "on one plane, or join its bodies");
    }
    return doubts;
}

}  // namespace

Status strength(TriMesh& mesh, const StrengthJob& job, Progress progress, StrengthDone& done) {
    const Timer timer;
    RunLog log;
    RunContext run{{}, log};
    StrengthOptions options;
    options.method = job.method;
    options.load = job.load.load;
    options.rules = StrengthRules::Person;
    const bool is_open = job.method == StrengthMethod::FiniteElements && has_holes(mesh);
    done.report = colour_strength(mesh, options, run);
    progress.set(75);
    done.seconds = timer.seconds();
    if (!done.report.is_analysed) {
        return {StatusCode::Nothing, "there is nothing to analyse: the model makes no voxel"};
    }
    if (!done.report.is_loaded) {
        return {StatusCode::Nothing, std::string("nothing carries the load, ") + job.load.text +
                                         ": it finds no place, or acts on what is not held"};
    }
    done.doubts = doubts_of(done.report);
    if (is_open) {
        done.warnings.emplace_back(
            "the model is open: a body with a hole wider than about four elements is analysed as "
            "an empty sheet; 'povmesh repair' closes holes");
    }
    done.places = weak_places(mesh, done.report);
    return {};
}

}  // namespace povmesh::job
