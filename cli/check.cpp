// povmesh check: what is in a model, and whether it is fit to print.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "cli/commands.h"
#include "cli/findings.h"
#include "cli/model.h"
#include "cli/numbers.h"

namespace povmesh::cli {
namespace {

using Json = nlohmann::ordered_json;

struct Report {
    std::string path;
    std::string failure;  // why there is nothing below, as one line with the file; else empty
    std::string_view format;
    std::size_t triangles = 0;  // in the file
    std::size_t dropped_triangles = 0;
    std::vector<std::string> warnings;
    Findings findings;

    ExitStatus status() const {
        if (!failure.empty()) return CannotRead;
        return findings.has_flaws() ? Flawed : Clean;
    }
};

Report check_file(const std::string& path, const Console& console) {
    Report report;
    report.path = path;
    ProgressLine line(console, path);
    try {
        LoadedModel model;
        report.failure = load_model(path, line.progress(), model);
        if (!report.failure.empty()) return report;
        report.format = model.format();
        report.triangles = model.info.triangles;
        report.dropped_triangles = model.dropped_triangles();
        report.warnings = load_warnings(model);
        report.findings = examine(model.mesh, line.progress());
    } catch (...) {
        report.failure = failure_text(path);
    }
    return report;
}

// The table: a label and a value a line.

using Row = std::pair<std::string_view, std::string>;

// In double: the extent of finite floats need not be a finite float.
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

std::string size_text(const Findings& findings) {
    if (findings.box.is_empty()) return "none";
    const auto [x, y, z] = extent(findings.box);
    return human_number(x) + " x " + human_number(y) + " x " + human_number(z);
}

std::string volume_text(const Findings& findings) {
    if (!std::isfinite(findings.volume)) return "unknown";
    std::string text = human_number(findings.volume);
    if (!findings.is_closed) return text + " (not exact: the surface is open)";
    if (findings.volume < 0) return text + " (negative: wound inward)";
    return text;
}

// "3", or "3 (1 edge)" where something else counted says more.
std::string count_text(std::size_t count, std::size_t other, const std::string& counted_other) {
    return with_separators(count) + (other != 0 ? " (" + counted_other + ")" : "");
}

std::string verdict(const Findings& findings) {
    std::string flaws;
    const auto add = [&](std::size_t count, std::string_view one, std::string_view several = {}) {
        if (count != 0) flaws += (flaws.empty() ? "flaws: " : ", ") + counted(count, one, several);
    };
    add(findings.flaws.inverted, "inverted face");
    if (findings.flaws.inverted == 0) {
        add(findings.turned_edges, "edge of opposite windings", "edges of opposite windings");
    }
    add(findings.open_edges, "open edge");
    add(findings.non_manifold_edges, "non-manifold edge");
    add(findings.flaws.degenerate, "degenerate face");
    add(findings.inside_out_shells, "inside-out shell");
    add(findings.misplaced_vertices, "misplaced vertex", "misplaced vertices");
    return flaws.empty() ? "clean" : flaws;
}

std::vector<Row> table_rows(const Report& report, bool with_warnings) {
    const Findings& f = report.findings;
    std::vector<Row> rows = {
        {"format", std::string(report.format)},
        {"triangles", with_separators(report.triangles)},
        {"vertices", with_separators(f.vertices)},
        {"shells", count_text(f.shells, f.cavities, counted(f.cavities, "cavity", "cavities"))},
        {"size", size_text(f)},
        {"volume", volume_text(f)},
        {"closed", f.is_closed ? "yes" : "no"},
        {"inverted faces", with_separators(f.flaws.inverted)},
        {"open edges", with_separators(f.open_edges)},
        {"non-manifold faces", count_text(f.flaws.non_manifold, f.non_manifold_edges,
                                          counted(f.non_manifold_edges, "edge"))},
        {"degenerate faces", with_separators(f.flaws.degenerate)},
        {"inside-out shells", with_separators(f.inside_out_shells)},
        {"verdict", verdict(f)}};
    if (with_warnings) {
        for (const std::string& warning : report.warnings) rows.emplace_back("warning", warning);
    }
    return rows;
}

std::string table(const Report& report, bool with_warnings) {
    const std::vector<Row> rows = table_rows(report, with_warnings);
    std::size_t width = 0;
    for (const Row& row : rows) width = std::max(width, row.first.size());
    std::string text = on_one_line(report.path) + "\n";
    for (const auto& [label, value] : rows) {
        text +=
            "  " + std::string(label) + std::string(width + 2 - label.size(), ' ') + value + "\n";
    }
    return text;
}

std::string summary(const std::vector<ExitStatus>& statuses) {
    const auto number = [&](ExitStatus status) {
        return with_separators(
            static_cast<std::uint64_t>(std::count(statuses.begin(), statuses.end(), status)));
    };
    return counted(statuses.size(), "file") + ": " + number(Clean) + " clean, " + number(Flawed) +
           " with flaws, " + number(CannotRead) + " unreadable\n";
}

// JSON. The keys are a promise to scripts: add, but do not rename.

Json vector_json(Vec3f v) {
    return {shortest_double(v.x), shortest_double(v.y), shortest_double(v.z)};
}

Json box_json(const Box3f& box) {
    if (box.is_empty()) return nullptr;
    return {{"low", vector_json(box.low)}, {"high", vector_json(box.high)}};
}

Json to_json(const Report& report) {
    Json json = {{"file", report.path}};
    if (!report.failure.empty()) {
        json["verdict"] = "unreadable";
        json["error"] = report.failure;
        return json;
    }
    const Findings& f = report.findings;
    json["verdict"] = f.has_flaws() ? "flaws" : "clean";
    json["format"] = report.format;
    json["triangles"] = report.triangles;
    json["dropped_triangles"] = report.dropped_triangles;
    json["vertices"] = f.vertices;
    json["shells"] = f.shells;
    json["cavities"] = f.cavities;
    json["size"] = f.box.is_empty() ? Json() : Json(extent(f.box));
    json["box"] = box_json(f.box);
    json["volume"] = std::isfinite(f.volume) ? Json(f.volume) : Json();
    json["closed"] = f.is_closed;
    json["flaws"] = {{"inverted_faces", f.flaws.inverted},
                     {"open_edges", f.open_edges},
                     {"open_edge_corners", f.flaws.open_edges},
                     {"non_manifold_faces", f.flaws.non_manifold},
                     {"non_manifold_edges", f.non_manifold_edges},
                     {"degenerate_faces", f.flaws.degenerate},
                     {"turned_edges", f.turned_edges},
                     {"inside_out_shells", f.inside_out_shells},
                     {"misplaced_vertices", f.misplaced_vertices}};
    json["warnings"] = report.warnings;
    return json;
}

// A file name that is not UTF-8 gets replacement characters; JSON has no other way.
std::string dump(const Json& json) {
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

int run_check(const Arguments& arguments, Console& console) {
    const std::vector<std::string>& paths = arguments.all("FILE");
    const bool as_json = arguments.has("--json");
    Json json = Json::array();
    std::vector<ExitStatus> statuses;
    for (const std::string& path : paths) {
        const Report report = check_file(path, console);
        if (!report.failure.empty()) console.error(report.failure);
        if (as_json) {
            json.push_back(to_json(report));
        } else if (report.failure.empty()) {
            console.print(table(report, !console.is_quiet()) + (paths.size() > 1 ? "\n" : ""));
        }
        statuses.push_back(report.status());
    }
    if (as_json) {
        console.print(dump(json));
    } else if (paths.size() > 1) {
        console.print(summary(statuses));
    }
    return *std::max_element(statuses.begin(), statuses.end());
}

}  // namespace povmesh::cli
