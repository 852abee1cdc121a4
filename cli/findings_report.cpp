#include "cli/findings_report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>

#include "job/numbers.h"

namespace povmesh::cli {
namespace {

std::array<double, 3> extent(const Box3f& box) {
    const auto along = [](float low, float high) {
        const double length = static_cast<double>(high) - static_cast<double>(low);
        return length > std::numeric_limits<float>::max()
                   ? length
                   : shortest_double(static_cast<float>(length));
    };
    return {along(box.low.x, box.high.x), along(box.low.y, box.high.y),
            along(box.low.z, box.high.z)};
}

std::string volume_text(const Findings& findings, bool is_brief) {
    if (!std::isfinite(findings.volume)) return "unknown";
    std::string text = human_number(findings.volume);
    if (is_brief) return text;
    if (!findings.is_closed) return text + " (not exact: the surface is open)";
    if (findings.volume < 0) return text + " (negative: wound inward)";
    return text;
}

std::string holes_text(const Findings& findings, bool is_brief) {
    std::size_t count = 0;
    for (const HoleSize& hole : findings.holes) count += hole.count;
    std::string text = with_separators(count);
    if (is_brief) return text;
    if (count != 0) text += " (" + hole_sizes_text(findings.holes) + ")";
    if (findings.unclosed_edges != 0) {
        text += ", and " + counted(findings.unclosed_edges, "open edge") + " in no closed rim";
    }
    return text;
}

std::string self_intersections_text(const Findings& findings, bool is_brief) {
    if (!findings.has_self_intersection_count) {
        return is_brief ? "not counted" : "not counted: --self-intersections does it at any size";
    }
    const std::uint64_t count = findings[Flaw::SelfIntersections].count;
    return is_brief || count == 0 ? with_separators(count) : counted(count, "pair") + " of faces";
}

// "3", or "3 (1 edge)" where something else counted says more.
std::string with_other(std::uint64_t count, std::uint64_t other, const std::string& counted_other) {
    return with_separators(count) + (other != 0 ? " (" + counted_other + ")" : "");
}

std::string faces_text(const FlawFinding& flaw) {
    std::string text = flaw.faces.size() == 1 ? "face " : "faces ";
    for (std::size_t i = 0; i < flaw.faces.size(); ++i) {
        if (i != 0) text += ", ";
        text += std::to_string(flaw.faces[i]);
    }
    return text + (flaw.faces.size() == kListedFaces ? ", ..." : "");
}

Json vector_json(Vec3f v) {
    return {shortest_double(v.x), shortest_double(v.y), shortest_double(v.z)};
}

Json box_json(const Box3f& box) {
    if (box.is_empty()) return nullptr;
    return {{"low", vector_json(box.low)}, {"high", vector_json(box.high)}};
}

Json where_json(const Findings& findings) {
    Json where = Json::object();
    for (std::size_t i = 0; i < kFlawWords.size(); ++i) {
        const FlawFinding& flaw = findings.flaws[i];
        if (flaw.count == 0) continue;
        where[std::string(kFlawWords[i].key)] = {
            {"point", flaw.place ? vector_json(*flaw.place) : Json()}, {"faces", flaw.faces}};
    }
    return where;
}

}  // namespace

std::string table_text(std::span<const Row> rows) {
    std::size_t width = 0;
    for (const Row& row : rows) width = std::max(width, row.first.size());
    std::string text;
    for (const auto& [label, value] : rows) {
        text.append("  ").append(label).append(width + 2 - label.size(), ' ');
        text.append(value).append("\n");
    }
    return text;
}

std::string columns_text(std::span<const std::vector<std::string>> lines) {
    std::vector<std::size_t> widths(lines.empty() ? 0 : lines.front().size());
    for (const std::vector<std::string>& line : lines) {
        for (std::size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], line[i].size());
        }
    }
    std::string text;
    for (const std::vector<std::string>& line : lines) {
        for (std::size_t i = 0; i + 1 < line.size(); ++i) {
            text += "  " + line[i] + std::string(widths[i] - line[i].size(), ' ');
        }
        text += "  " + line.back() + "\n";
    }
    return text;
}

std::vector<Row> finding_rows(const Findings& f, bool is_brief) {
    const std::uint64_t non_manifold_edges = f[Flaw::NonManifoldEdges].count;
    const auto number = [&](Flaw flaw) { return with_separators(f[flaw].count); };
    return {
        {"vertices", with_separators(f.vertices)},
        {"shells", with_other(f.shells, f.cavities, counted(f.cavities, "cavity", "cavities"))},
        {"size", size_text(f.box)},
        {"volume", volume_text(f, is_brief)},
        {"closed", f.is_closed ? "yes" : "no"},
        {"inverted faces", number(Flaw::InvertedFaces)},
        {"open edges", number(Flaw::OpenEdges)},
        {"holes", holes_text(f, is_brief)},
        {"non-manifold faces", with_other(f.detected.non_manifold, non_manifold_edges,
                                          counted(non_manifold_edges, "edge"))},
        {"degenerate faces", number(Flaw::DegenerateFaces)},
        {"duplicate faces", number(Flaw::DuplicateFaces)},
        {"self-intersections", self_intersections_text(f, is_brief)},
        {"inside-out shells", number(Flaw::InsideOutShells)},
    };
}

std::vector<Row> where_rows(const Findings& findings) {
    std::vector<Row> rows;
    for (std::size_t i = 0; i < kFlawWords.size(); ++i) {
        const FlawFinding& flaw = findings.flaws[i];
        if (flaw.count == 0) continue;
        const auto& [key, one, several] = kFlawWords[i];
        rows.emplace_back("where", std::string(flaw.count == 1 ? one : several) + ": " +
                                       (flaw.place ? place_text(*flaw.place) + ", " : "") +
                                       faces_text(flaw));
    }
    return rows;
}

std::string size_text(const Box3f& box) {
    if (box.is_empty()) return "none";
    const auto [x, y, z] = extent(box);
    return human_number(x) + " x " + human_number(y) + " x " + human_number(z);
}

Json size_json(const Box3f& box) {
    return box.is_empty() ? Json() : Json(extent(box));
}

Json volume_json(double volume) {
    return std::isfinite(volume) ? Json(volume) : Json();
}

Json holes_json(std::span<const HoleSize> holes) {
    Json json = Json::array();
    for (const HoleSize& hole : holes)
        json.push_back({{"edges", hole.edges}, {"count", hole.count}});
    return json;
}

void add_findings(Json& json, const Findings& f) {
    json["vertices"] = f.vertices;
    json["shells"] = f.shells;
    json["cavities"] = f.cavities;
    json["size"] = size_json(f.box);
    json["box"] = box_json(f.box);
    json["volume"] = volume_json(f.volume);
    json["closed"] = f.is_closed;
    json["degenerate_only"] = f.has_degenerate_faces_only();
    Json flaws = Json::object();
    for (std::size_t i = 0; i < kFlawWords.size(); ++i) {
        flaws[std::string(kFlawWords[i].key)] = f.flaws[i].count;
    }
    if (!f.has_self_intersection_count) flaws["self_intersections"] = nullptr;
    flaws["open_edge_corners"] = f.detected.open_edges;
    flaws["non_manifold_faces"] = f.detected.non_manifold;
    json["flaws"] = std::move(flaws);
    json["holes"] = holes_json(f.holes);
    json["unclosed_edges"] = f.unclosed_edges;
    json["where"] = where_json(f);
}

std::string json_text(const Json& json) {
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace povmesh::cli
