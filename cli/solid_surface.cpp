#include "cli/solid_surface.h"

#include <string>

#include "cli/console.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

Vec3f rounded(Vec3d p) {
    return {static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)};
}

}  // namespace

void add_labels(const LabelReport& labels, ChangeReport& report) {
    if (labels.bridge_edges > 0) {
        report.rows.emplace_back("bridged", counted(labels.bridges, "gap") + ", about " +
                                                human_number(labels.bridge_area) +
                                                " squared, up to " +
                                                human_number(labels.widest_bridge) + " wide, " +
                                                place_text(rounded(labels.bridge_place)));
    }
    if (labels.sheet_area > 0) {
        report.rows.emplace_back("made thick",
                                 "sheets of about " + human_number(labels.sheet_area) + " squared");
    }
    if (labels.buried_area > 0) {
        report.rows.emplace_back("buried",
                                 "faces of about " + human_number(labels.buried_area) + " squared");
    }
    if (labels.cavities > 0) {
        report.rows.emplace_back("cavities", with_separators(labels.cavities));
    }
    if (labels.dropped > 0) {
        report.rows.emplace_back("dropped",
                                 counted(labels.dropped, "speck") + " of less than 8 cells");
    }
    report.json["bridges"] = {
        {"count", labels.bridges}, {"area", labels.bridge_area}, {"widest", labels.widest_bridge}};
    report.json["made_thick"] = {{"area", labels.sheet_area}};
    report.json["buried"] = {{"area", labels.buried_area}};
    report.json["cavities"] = labels.cavities;
    report.json["dropped"] = labels.dropped;
}

OptionSpec cell_option(std::string_view default_value) {
    return {.name = "--cell",
            .type = ValueType::Number,
            .placeholder = "SIZE",
            .unit = default_value,
            .low = 0,
            .high = kNoLimit,
            .help = "Side of the cells that the surface is made in"};
}

OptionSpec all_triangles_option() {
    return {.name = "--all-triangles", .help = "Leave all triangles in flat places, two a cell"};
}

bool are_above_zero(const Arguments& arguments, std::initializer_list<std::string_view> names,
                    std::string_view operation, Console& console) {
    for (const std::string_view name : names) {
        if (!arguments.has(name) || arguments.number(name) > 0) continue;
        console.error(std::string(operation) + ": " + std::string(name) +
                      " must be above 0; see 'povmesh " + std::string(operation) + " --help'");
        return false;
    }
    return true;
}

}  // namespace povmesh::cli
