#include "job/thin_places.h"

#include <algorithm>
#include <cmath>

#include "base/convert.h"
#include "base/poll.h"
#include "field/wrap.h"
#include "job/numbers.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

// A flawed model is wrapped within this part of the wall, and in about so many cells at most, which
// take seconds.
constexpr double kWrapsOfWall = 10;
constexpr double kMostWrapCells = 5e5;

// Pairs of faces that cross, by faces, up to which a model is measured as it is.
constexpr double kFewCrossings = 0.01;

bool has_telling_flaws(const Findings& findings) {
    return findings.has_flaws() && !findings.has_degenerate_faces_only();
}

// Where a few faces cross, the model tells more than what is made of it: balls meet more than there
// is, never less.
bool crosses_a_little_only(const TriMesh& mesh, const Findings& findings) {
    std::uint64_t others = 0;
    for (std::size_t i = 0; i < findings.flaws.size(); ++i) {
        const Flaw flaw = static_cast<Flaw>(i);
        const bool is_harmless = flaw == Flaw::SelfIntersections || flaw == Flaw::DegenerateFaces;
        if (!is_harmless) others += findings.flaws[i].count;
    }
    return others == 0 && findings.has_self_intersection_count &&
           static_cast<double>(findings[Flaw::SelfIntersections].count) <
               kFewCrossings * static_cast<double>(mesh.faces.size());
}

double area_of(const TriMesh& mesh) {
    double area = 0;
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        const Triangle t = triangle_of(mesh, face);
        if (is_finite(t)) area += length(cross(t[1] - t[0], t[2] - t[0])) / 2;
    }
    return area;
}

// Null when cells that do not take too long would be too large to tell walls of that thickness. The
// cell is that of the wrap.
std::unique_ptr<TriMesh> wrapped(const TriMesh& mesh, double wall, double& cell) {
    const double affordable = std::sqrt(area_of(mesh) / kMostWrapCells);
    WrapOptions options;
    options.tolerance = std::max(wall / kWrapsOfWall, 2 * affordable);
    if (!(options.tolerance <= wall / 2)) return nullptr;
    auto result = std::make_unique<TriMesh>(mesh);
    RunLog log;
    RunContext run{{}, log};
    WrapReport report;
    if (!wrap(*result, options, run, report).ok()) return nullptr;
    cell = report.cell;
    return result;
}

}  // namespace

double shortest_of(double number) {
    return shortest_double(narrow_to_float(number));
}

Vec3f told_point(const ThinPlace& place) {
    return {narrow_to_float(place.point.x), narrow_to_float(place.point.y),
            narrow_to_float(place.point.z)};
}

ThinMeasurement measure_thin(const TriMesh& mesh, const Findings& findings,
                             ThicknessOptions options) {
    ThinMeasurement measured;
    if (has_telling_flaws(findings)) {
        const bool is_nearly_sound = crosses_a_little_only(mesh, findings);
        if (!is_nearly_sound) measured.wrapped = wrapped(mesh, options.wall, options.grain);
        const std::string flawed = "the model has flaws (" + verdict(findings) + ")";
        measured.warnings.push_back(
            measured.wrapped
                ? flawed + "; what is measured is the solid that 'povmesh wrap' makes of it"
                : flawed +
                      ", and is measured as it is: what is near them may be told wrong; "
                      "repair it first");
    }
    measured.report = measure_thickness(measured.measured(mesh), options);
    const ThicknessReport& report = measured.report;
    if (report.left_out != 0) {
        measured.warnings.push_back(counted(report.left_out, "triangle") +
                                    " not measured: without area, or without a finite place");
    }
    for (const ThinPlaces* found : {&report.walls, &report.gaps}) {
        if (!found->is_coarse) continue;
        measured.warnings.push_back(
            "measured every " + human_number(shortest_of(found->pieces.limit())) + " only, at " +
            counted(found->pieces.size(), "place") +
            (found == &report.walls
                 ? "; smaller thin places may be missed; measure a part of the model, or a "
                   "thicker wall"
                 : "; smaller narrow places may be missed; measure a part of the model, or a "
                   "wider gap"));
    }
    return measured;
}

}  // namespace povmesh
