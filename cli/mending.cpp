#include "cli/mending.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <string_view>

#include "cli/numbers.h"
#include "spatial/self_intersection.h"

namespace povmesh::cli {
namespace {

struct Fate {
    HoleFate fate;
    std::string_view key;  // in JSON
    std::string_view reason;
};

constexpr std::array<Fate, 3> kOpenFates = {{
    {HoleFate::TooLong, "too_long", "longer than 50 edges"},
    {HoleFate::PartOfRing, "part_of_ring", "rims of a missing ring of surface"},
    {HoleFate::NoFilling, "no_filling",
     "every filling is flat, folds back or gives an edge a third face"},
}};
static_assert(kMaxHoleEdges == 50, "the reason above");

constexpr std::string_view kLabelReason =
    "faces carry materials, which no new face would have; convert the model to STL and repair that";

constexpr std::string_view kUndecidedReason =
    "more than 1.5 % of the faces there, but not nearly all, would have to be turned";

template <typename Wanted>
std::vector<HoleSize> hole_sizes(const HoleReport& report, const Wanted& wanted) {
    std::map<std::size_t, std::size_t> counts;
    for (const Hole& hole : report.holes) {
        if (wanted(hole.fate)) ++counts[hole.edge_count];
    }
    std::vector<HoleSize> sizes;
    sizes.reserve(counts.size());
    for (const auto& [edges, count] : counts) sizes.push_back({edges, count});
    return sizes;
}

std::size_t count_of(const std::vector<HoleSize>& holes) {
    std::size_t count = 0;
    for (const HoleSize& hole : holes) count += hole.count;
    return count;
}

// "the one of 212 edges stays open", "2 of 60 edges, 1 of 212 stay open".
std::string left_open_text(const std::vector<HoleSize>& open) {
    if (count_of(open) == 1) {
        return "the one of " + counted(open.front().edges, "edge") + " stays open";
    }
    return hole_sizes_text(open) + " stay open";
}

std::string hole_suggestion(const HoleReport& report) {
    const auto is_closed = [](HoleFate fate) { return fate == HoleFate::Closed; };
    const std::vector<HoleSize> open =
        hole_sizes(report, [&](HoleFate fate) { return !is_closed(fate); });
    const std::size_t closed = count_of(hole_sizes(report, is_closed));
    if (open.empty()) {
        return closed == 1 ? "repair closes the hole"
                           : "repair closes all " + counted(closed, "hole");
    }
    if (report.holes.size() == 1) {
        return "repair leaves the hole of " + counted(open.front().edges, "edge") + " open";
    }
    return "repair closes " + (closed == 0 ? "none" : with_separators(closed)) + " of " +
           counted(report.holes.size(), "hole") + "; " + left_open_text(open);
}

}  // namespace

RepairOptions tool_repair_options() {
    RepairOptions options;
    options.tiny_volume = 0;
    options.tiny_area = 0;
    options.duplicate_limit = std::numeric_limits<std::size_t>::max();
    options.keep_cavities = true;
    return options;
}

std::vector<Row> mending_rows(const RepairReport& report) {
    std::vector<Row> rows;
    const auto add = [&](std::string_view label, std::size_t count, const std::string& more = {}) {
        if (count != 0) rows.emplace_back(label, with_separators(count) + more);
    };
    add("shells dropped", report.dropped_shells,
        " (" + counted(report.dropped_shell_faces, "face") + ")");
    add("duplicates removed", report.removed_duplicates);
    const std::vector<HoleSize> closed =
        hole_sizes(report.holes, [](HoleFate fate) { return fate == HoleFate::Closed; });
    add("holes closed", count_of(closed),
        " (" + hole_sizes_text(closed) + "), " + counted(report.holes.added_face_count, "face") +
            " added");
    for (const Fate& fate : kOpenFates) {
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
    add("shells undecided", report.undecided_shells, ": " + std::string(kUndecidedReason));
    return rows;
}

Json mending_json(const RepairReport& report) {
    Json open = Json::array();
    for (const Fate& fate : kOpenFates) {
        for (const auto& [edges, count] :
             hole_sizes(report.holes, [&](HoleFate f) { return f == fate.fate; })) {
            open.push_back({{"edges", edges}, {"count", count}, {"reason", fate.key}});
        }
    }
    return {{"dropped_shells", report.dropped_shells},
            {"dropped_shell_faces", report.dropped_shell_faces},
            {"removed_duplicates", report.removed_duplicates},
            {"holes_tried", report.were_holes_tried},
            {"closed_holes",
             holes_json(
                 hole_sizes(report.holes, [](HoleFate fate) { return fate == HoleFate::Closed; }))},
            {"open_holes", open},
            {"unclosed_edges", report.holes.unclosed_edge_count},
            {"added_faces", report.holes.added_face_count},
            {"turned_faces", report.turned_faces},
            {"kept_cavities", report.kept_cavities},
            {"undecided_shells", report.undecided_shells}};
}

std::vector<std::string> suggestions(const TriMesh& mesh, const Findings& findings) {
    const auto has = [&](Flaw flaw) { return findings[flaw].count != 0; };
    const bool has_turned =
        has(Flaw::InvertedFaces) || has(Flaw::TurnedEdges) || has(Flaw::InsideOutShells);
    if (!(has(Flaw::OpenEdges) || has(Flaw::DuplicateFaces) || has_turned) ||
        mesh.faces.size() > kMaxQuickFaces) {
        return {};
    }
    TriMesh copy;
    copy.faces = mesh.faces;
    copy.vertices = mesh.vertices;
    copy.texture_coordinates = mesh.texture_coordinates;
    const RepairReport report = repair(copy, tool_repair_options());

    std::vector<std::string> lines;
    const auto add = [&](std::size_t count, const std::string& line) {
        if (count != 0) lines.push_back(line);
    };
    if (!report.were_holes_tried && has(Flaw::OpenEdges)) {
        lines.push_back("repair leaves the holes open: " + std::string(kLabelReason));
    }
    add(report.holes.holes.size(), hole_suggestion(report.holes));
    if (report.holes.added_face_count != 0 && findings.has_self_intersection_count) {
        const std::uint64_t before = findings[Flaw::SelfIntersections].count;
        const std::uint64_t after = find_self_intersections(copy, 0).count;
        add(after > before ? 1 : 0, "look at the result: pairs of intersecting faces become " +
                                        with_separators(after) + ", because a filling meets " +
                                        "other faces");
    }
    add(report.holes.unclosed_edge_count,
        "repair leaves " + counted(report.holes.unclosed_edge_count, "open edge") +
            " that form no closed rim");
    add(report.removed_duplicates,
        "repair removes " + counted(report.removed_duplicates, "duplicate face"));
    add(report.turned_faces, "repair turns " + counted(report.turned_faces, "face") + " over");
    add(report.undecided_shells, "repair leaves the windings of " +
                                     counted(report.undecided_shells, "shell") +
                                     " as they are: " + std::string(kUndecidedReason));
    return lines;
}

}  // namespace povmesh::cli
