#include "cli/distance.h"

#include <cmath>
#include <string>

#include "cli/measures.h"
#include "job/numbers.h"
#include "spatial/surface_distance.h"

namespace povmesh::cli {
namespace {

// Distances below this share of the diagonal are what the search for the nearest point rounds to.
constexpr double kRounding = 1e-12;

// "0.0123 (0.0071 % of the diagonal)".
std::string distance_text(double distance, double diagonal) {
    if (!std::isfinite(distance)) return "unknown";
    if (distance < kRounding * diagonal) return "0";
    std::string text = human_number(distance);
    if (diagonal > 0) {
        // Two digits tell enough of a share.
        const double percent = distance / diagonal * 100;
        const double unit = percent > 0 ? std::pow(10, std::floor(std::log10(percent)) - 1) : 1;
        text += " (" + human_number(std::round(percent / unit) * unit) + " % of the diagonal)";
    }
    return text;
}

}  // namespace

void add_distance(const TriMesh& from, const TriMesh& to, ChangeReport& report) {
    const SurfaceDistance distance = surface_distance(from, to);
    const double diagonal = measures_of(from).diagonal();
    report.rows.emplace_back("distance, RMS", distance_text(distance.rms(), diagonal));
    report.rows.emplace_back("distance, greatest", distance_text(distance.greatest(), diagonal));
    report.json["distance"] = {{"rms", distance.rms()},
                               {"greatest", distance.greatest()},
                               {"rms_share", distance.rms() / diagonal},
                               {"greatest_share", distance.greatest() / diagonal}};
}

}  // namespace povmesh::cli
