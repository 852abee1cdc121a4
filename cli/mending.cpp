#include "cli/mending.h"

#include <nlohmann/json.hpp>

#include "job/numbers.h"

namespace povmesh::cli {

std::vector<Row> mending_rows(const Mending& mending) {
    const RepairReport& report = mending.report;
    std::vector<Row> rows;
    const auto add = [&](std::string_view label, std::size_t count, const std::string& more = {}) {
        if (count != 0) rows.emplace_back(label, with_separators(count) + more);
    };
    add("misplaced faces", report.dropped_misplaced, " removed");
    add("shells dropped", report.dropped_shells,
        " (" + counted(report.dropped_shell_faces, "face") + ")");
    add("duplicates removed", report.removed_duplicates,
        report.removed_walls != 0
            ? ", " + with_separators(report.removed_walls) + " walls without thickness among them"
            : "");
    add("slits closed", report.slits.closed_slits,
        " (" + counted(report.slits.split_faces, "face") + " split)");
    const std::vector<HoleSize> closed =
        hole_sizes(report.holes, [](HoleFate fate) { return fate == HoleFate::Closed; });
    add("holes closed", count_of(closed),
        " (" + hole_sizes_text(closed) + "), " + counted(report.holes.added_face_count, "face") +
            " added");
    for (const HoleFateWords& fate : kOpenFates) {
        const std::vector<HoleSize> open =
            hole_sizes(report.holes, [&](HoleFate f) { return f == fate.fate; });
        add("holes left open", count_of(open),
            " (" + hole_sizes_text(open) + "): " + std::string(fate.reason));
    }
    add("open edges left", report.holes.unclosed_edge_count, " that form no closed rim");
    if (!report.were_holes_tried) {
        rows.emplace_back("holes not tried", std::string(kLabelReason));
    }
    add("faces turned", report.turned_faces);
    add("cavities kept", report.kept_cavities);
    for (const std::string& text : mending.given_up) rows.emplace_back("given up", text);
    add("one-sided shells", report.one_sided_shells, ": " + std::string(kOneSidedReason));
    return rows;
}

Json mending_json(const Mending& mending) {
    const RepairReport& report = mending.report;
    Json open = Json::array();
    for (const HoleFateWords& fate : kOpenFates) {
        for (const auto& [edges, count] :
             hole_sizes(report.holes, [&](HoleFate f) { return f == fate.fate; })) {
            open.push_back({{"edges", edges}, {"count", count}, {"reason", fate.key}});
        }
    }
    return {{"dropped_misplaced", report.dropped_misplaced},
            {"dropped_shells", report.dropped_shells},
            {"dropped_shell_faces", report.dropped_shell_faces},
            {"removed_duplicates", report.removed_duplicates},
            {"removed_walls", report.removed_walls},
            {"closed_slits", report.slits.closed_slits},
            {"split_faces", report.slits.split_faces},
            {"holes_tried", report.were_holes_tried},
            {"closed_holes",
             holes_json(
                 hole_sizes(report.holes, [](HoleFate fate) { return fate == HoleFate::Closed; }))},
            {"open_holes", open},
            {"unclosed_edges", report.holes.unclosed_edge_count},
            {"added_faces", report.holes.added_face_count},
            {"turned_faces", report.turned_faces},
            {"kept_cavities", report.kept_cavities},
            {"one_sided_shells", report.one_sided_shells},
            {"undecided_shells", 0},
            {"given_up", mending.given_up}};
}

}  // namespace povmesh::cli
