#include "cli/solid_surface.h"

#include <algorithm>
#include <string>

#include "cli/console.h"
#include "cli/numbers.h"
#include "mesh/edge_mates.h"
#include "spatial/self_intersection.h"

namespace povmesh::cli {
namespace {

Vec3f rounded(Vec3d p) {
    return {static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)};
}

std::size_t irregular_edges(const TriMesh& mesh) {
    TriMesh copy = mesh;
    const EdgeMates mates(copy);
    std::size_t count = 0;
    for (std::size_t f = 0; f < copy.faces.size(); ++f) {
        for (std::size_t e = 0; e < 3; ++e) {
            const bool is_regular =
                mates.kind(f, e) == EdgeMates::Kind::Manifold && !mates.is_same_direction(f, e);
            count += is_regular ? 0 : 1;
        }
    }
    return count;
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

void check_solid(const TriMesh& mesh, ChangeReport& report) {
    const std::size_t irregular = irregular_edges(mesh);
    if (irregular != 0) {
        report.doubts.push_back("the result is not closed at " + counted(irregular, "edge"));
    }
    const std::uint64_t crossings = find_self_intersections(mesh, 0).count;
    if (crossings != 0) {
        report.doubts.push_back("the result crosses itself in " + counted(crossings, "pair") +
                                " of faces");
    }
}

void warn_of_lost_attributes(const TriMesh& mesh, ChangeReport& report) {
    const bool has_any = std::any_of(mesh.faces.begin(), mesh.faces.end(), [](const Face& face) {
        return face.deleted == 0 && (face.label >= 0 || face.uv[0] >= 0 ||
                                     std::any_of(face.colour.begin(), face.colour.end(),
                                                 [](std::uint8_t c) { return c != 255; }));
    });
    if (has_any) {
        report.warnings.emplace_back("colours, groups and texture coordinates are not kept");
    }
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
