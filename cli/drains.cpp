#include "cli/drains.h"

#include <string>
#include <vector>

#include "cli/numbers.h"
#include "mesh/compact.h"

namespace povmesh::cli {
namespace {

std::vector<Drain> drains_of(const Arguments& arguments) {
    std::vector<Drain> drains;
    if (!arguments.has("--drain")) return drains;
    for (const std::string& text : arguments.all("--drain")) {
        const Circle circle = parse_circle(text);
        drains.push_back({circle.place, circle.radius});
    }
    return drains;
}

// Empty when there is a hole.
std::string failure_of(const DrainReport& report, const std::string& text) {
    const std::string start = "no drain at " + text + ": ";
    switch (report.outcome) {
        case DrainOutcome::Done:
            return {};
        case DrainOutcome::FarAway:
            return start + "the surface is " + human_number(report.distance) +
                   " away; the nearest point of it has x " + human_number(report.mouth.x) + ", y " +
                   human_number(report.mouth.y) + ", z " + human_number(report.mouth.z);
        case DrainOutcome::NoCavity:
            return start + "the cavity does not lie below that place; take one over the cavity";
        case DrainOutcome::Tangled:
            return start + "no clean hole can be cut there; move it a little";
        default:
            return start + "the model is open there; repair it first";
    }
}

}  // namespace

OptionSpec drain_option() {
    return {.name = "--drain",
            .type = ValueType::Circle,
            .placeholder = "X,Y,Z,R",
            .unit = "units of the file",
            .takes_several = true,
            .help =
                "Cut a round hole of radius R through the wall at the place X,Y,Z on the "
                "surface; may be given several times"};
}

std::string sealed_text(const SealedCavities& sealed, std::size_t cavities) {
    if (sealed.count == 0) return "";
    return "no drain hole leads into " + std::to_string(sealed.count) + " of " +
           counted(cavities, "cavity", "cavities") +
           ", where resin or powder stays; the largest is near (" + human_number(sealed.place.x) +
           ", " + human_number(sealed.place.y) + ", " + human_number(sealed.place.z) + ")";
}

void cut_drains(const Arguments& arguments, TriMesh& mesh, std::size_t model_faces,
                double thickness, ChangeReport& report) {
    const std::vector<Drain> drains = drains_of(arguments);
    if (drains.empty()) return;
    const std::size_t cavities = sealed_cavities(mesh).count;
    const auto made = povmesh::cut_drains(mesh, model_faces, thickness, drains);
    for (std::size_t i = 0; i < made.size() && report.failure.empty(); ++i) {
        report.failure = failure_of(made[i], arguments.all("--drain")[i]);
    }
    compact(mesh);
    const SealedCavities sealed = sealed_cavities(mesh);
    report.rows.emplace_back("drain holes", std::to_string(made.size()));
    report.rows.emplace_back("closed cavities",
                             std::to_string(sealed.count) + " of " + std::to_string(cavities));
    report.json["drains"] = made.size();
    report.json["closed_cavities"] = sealed.count;
    const std::string warning = sealed_text(sealed, cavities);
    if (!warning.empty()) report.warnings.push_back(warning);
}

}  // namespace povmesh::cli
