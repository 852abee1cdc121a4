#include "job/mending.h"

#include <algorithm>
#include <limits>
#include <map>
#include <span>
#include <utility>

#include "base/poll.h"
#include "job/numbers.h"
#include "spatial/self_intersection.h"

namespace povmesh {
namespace {

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

TriMesh plain_copy(const TriMesh& mesh) {
    TriMesh copy;
    copy.faces = mesh.faces;
    copy.vertices = mesh.vertices;
    copy.texture_coordinates = mesh.texture_coordinates;
    return copy;
}

// A step of a repair that can make something worse.
struct Step {
    bool RepairOptions::*option;
    std::string_view words;  // when it is left out
};
constexpr std::array<Step, 3> kSteps = {{{&RepairOptions::remove_duplicates, "duplicates stay"},
                                         {&RepairOptions::close_slits, "slits stay open"},
                                         {&RepairOptions::close_holes, "holes stay open"}}};

// Flaws that there may be no more of after a repair.
constexpr std::array<Flaw, 5> kCompared = {Flaw::OpenEdges, Flaw::InvertedFaces, Flaw::TurnedEdges,
                                           Flaw::NonManifoldEdges, Flaw::SelfIntersections};

// "6 open edges instead of 0, near (1, 2, 3), face 12"; empty when nothing is worse.
std::string what_is_worse(const Findings& before, const Findings& after,
                          const RepairReport& report) {
    for (const Flaw flaw : kCompared) {
        const bool is_counted =
            before.has_self_intersection_count && after.has_self_intersection_count;
        if (flaw == Flaw::SelfIntersections && !is_counted) continue;
        // Taking out what has no place opens the surface around it.
        if (flaw == Flaw::OpenEdges && report.dropped_misplaced != 0) continue;
        if (after[flaw].count <= before[flaw].count) continue;
        const auto& [key, one, several] = kFlawWords[static_cast<std::size_t>(flaw)];
        std::string text = counted(after[flaw].count, one, several) + " instead of " +
                           with_separators(before[flaw].count);
        if (after[flaw].place) text += ", the first " + place_text(*after[flaw].place);
        return text;
    }
    return {};
}

bool has_same_corners(const TriMesh& a, const Face& in_a, const TriMesh& b, const Face& in_b) {
    const auto is_same = [&](std::size_t in_place_of_0, std::size_t in_place_of_1) {
        return a.corner_position(in_a, in_place_of_0) == b.corner_position(in_b, 0) &&
               a.corner_position(in_a, in_place_of_1) == b.corner_position(in_b, 1) &&
               a.corner_position(in_a, 2) == b.corner_position(in_b, 2);
    };
    return is_same(0, 1) || is_same(1, 0);  // as it was, or turned over
}

// Whether a face of the result meets another one, of those that the source does not have.
bool meets_at_new_faces(const TriMesh& source, const TriMesh& result,
                        std::span<const std::uint32_t> sources) {
    if (sources.empty()) return true;  // not known
    Array<std::uint32_t> faces;
    for (std::uint32_t f = 0; f < result.faces.size(); ++f) {
        poll_at(f);
        if (sources[f] == kNewFace ||
            !has_same_corners(source, source.faces[sources[f]], result, result.faces[f])) {
            faces.push_back(f);
        }
    }
    return !faces.empty() && !find_meetings(result, faces).empty();
}

}  // namespace

static_assert(kMaxHoleEdges == 50, "the reason of HoleFate::TooLong");

std::vector<HoleSize> hole_sizes(const HoleReport& report,
                                 const std::function<bool(HoleFate)>& wanted) {
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

RepairOptions tool_repair_options() {
    RepairOptions options;
    options.tiny_volume = 0;
    options.tiny_area = 0;
    options.duplicate_limit = std::numeric_limits<std::size_t>::max();
    options.remove_idle_walls = true;
    options.close_slits = true;
    options.check_fillings = true;
    options.drop_misplaced = true;
    options.turn_fewest = true;
    options.keep_cavities = true;
    return options;
}

Mending mend(TriMesh& mesh, RepairOptions options, const Findings& before,
             SelfIntersectionSearch search) {
    Mending mending;
    Findings known = before;
    TriMesh mended;
    options.tell_sources = true;
    const auto attempt = [&](const RepairOptions& chosen) -> std::string {
        mended = plain_copy(mesh);
        mending.report = repair(mended, chosen);
        mending.after.reset();
        const RepairReport& report = mending.report;
        const bool has_new_faces = report.holes.added_face_count + report.slits.added_faces != 0;
        // Turning makes nothing worse.
        if (!has_new_faces && report.removed_duplicates == 0) return {};
        Findings& after = mending.after.emplace(examine(mended, {}, SelfIntersectionSearch::Never));
        if (meets_at_new_faces(mesh, mended, report.sources)) {
            count_self_intersections(mended, SelfIntersectionSearch::Always, after);
            if (!known.has_self_intersection_count) {
                count_self_intersections(mesh, SelfIntersectionSearch::Always, known);
            }
        } else if (known.has_self_intersection_count && known[Flaw::SelfIntersections].count == 0) {
            after.has_self_intersection_count = true;  // none came, and there was none
        } else {
            count_self_intersections(mended, search, after);
        }
        return what_is_worse(known, after, report);
    };
    const std::string worse = attempt(options);
    // One step left out, in turn; at last all of them.
    for (std::size_t i = 0; i <= kSteps.size() && !worse.empty(); ++i) {
        RepairOptions fewer = options;
        mending.given_up.clear();
        for (std::size_t s = 0; s < kSteps.size(); ++s) {
            if (s != i && i < kSteps.size()) continue;
            fewer.*kSteps[s].option = false;
            mending.given_up.push_back(std::string(kSteps[s].words) + ": there would be " + worse);
        }
        if (attempt(fewer).empty()) break;
    }
    mesh = std::move(mended);
    return mending;
}

std::string wall_warning(const RepairReport& report) {
    if (report.removed_walls == 0) return {};
    return "walls without thickness are taken out, of area " +
           human_number(report.removed_wall_area) + ", the first " + place_text(report.first_wall) +
           ": faces back to back enclose nothing to print; where they are to stay give them a "
           "thickness, as 'povmesh wrap' does";
}

std::vector<std::string> suggestions(const TriMesh& mesh, const Findings& findings) {
    const auto has = [&](Flaw flaw) { return findings[flaw].count != 0; };
    const bool has_turned =
        has(Flaw::InvertedFaces) || has(Flaw::TurnedEdges) || has(Flaw::InsideOutShells);
    if (!(has(Flaw::OpenEdges) || has(Flaw::DuplicateFaces) || has_turned) ||
        mesh.faces.size() > kMaxQuickFaces) {
        return {};
    }
    TriMesh copy = plain_copy(mesh);
    const Mending mending =
        mend(copy, tool_repair_options(), findings, SelfIntersectionSearch::Never);
    const RepairReport& report = mending.report;
    std::vector<std::string> lines;
    const auto add = [&](std::size_t count, const std::string& line) {
        if (count != 0) lines.push_back(line);
    };
    if (!report.were_holes_tried && has(Flaw::OpenEdges)) {
        lines.push_back("repair leaves the holes open: " + std::string(kLabelReason));
    }
    add(report.holes.holes.size(), hole_suggestion(report.holes));
    add(report.slits.closed_slits, "repair closes " + counted(report.slits.closed_slits, "slit") +
                                       " without area, where a vertex lies on an edge");
    add(report.holes.unclosed_edge_count,
        "repair leaves " + counted(report.holes.unclosed_edge_count, "open edge") +
            " that form no closed rim");
    add(report.removed_duplicates,
        "repair removes " + counted(report.removed_duplicates, "duplicate face"));
    if (report.removed_walls != 0) lines.push_back("in repair " + wall_warning(report));
    add(report.turned_faces, "repair turns " + counted(report.turned_faces, "face") + " over");
    add(report.one_sided_shells, "repair leaves the windings of " +
                                     counted(report.one_sided_shells, "shell") +
                                     " as they are: " + std::string(kOneSidedReason));
    for (const std::string& text : mending.given_up) lines.push_back("in repair " + text);
    return lines;
}

}  // namespace povmesh
