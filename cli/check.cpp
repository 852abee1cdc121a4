// povmesh check: what is in a model, and whether it is fit to print.
#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/commands.h"
#include "cli/findings_report.h"
#include "cli/mending.h"
#include "cli/model.h"
#include "cli/thin_places.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

// Places told as JSON.
constexpr std::size_t kListedPlaces = 5;

/// One of several bodies of a file.
struct BodyReport {
    std::string name;
    std::size_t triangles = 0;
    Findings findings;
};

struct Report {
    std::string path;
    std::string failure;  // why there is nothing below, as one line with the file; else empty
    std::string_view format;
    std::size_t triangles = 0;  // in the file
    std::size_t dropped_triangles = 0;
    std::vector<std::string> warnings;
    std::vector<std::string> suggestions;
    Findings findings;
    std::optional<ThinPlaces> walls;  // when they were measured
    std::vector<BodyReport> bodies;   // of a 3MF file with more than one

    // Bodies that touch have edges and corners in common, which is no flaw of any of them.
    bool has_flaws() const {
        if (bodies.empty()) return findings.has_flaws();
        return std::any_of(bodies.begin(), bodies.end(),
                           [](const BodyReport& body) { return body.findings.has_flaws(); });
    }

    bool is_thin() const { return walls && walls->count != 0; }
    ExitStatus status() const {
        if (!failure.empty()) return CannotRead;
        return has_flaws() || is_thin() ? Flawed : Clean;
    }
};

struct CheckOptions {
    SelfIntersectionSearch search;
    double least_wall;  // 0: walls are not measured
};

void measure_walls(const TriMesh& mesh, double least, Report& report) {
    ThinMeasurement measured = measure_thin(mesh, report.findings, {.wall = least});
    report.walls = std::move(measured.report.walls);
    report.warnings.insert(report.warnings.end(), measured.warnings.begin(),
                           measured.warnings.end());
}

std::string body_name(const BodyReport& body, std::size_t index) {
    return body.name.empty() ? "object " + std::to_string(index + 1) : on_one_line(body.name);
}

void examine_bodies(const LoadedModel& model, SelfIntersectionSearch search, Report& report) {
    std::vector<TriMesh> bodies = bodies_of(model);
    for (std::size_t i = 0; i < bodies.size(); ++i) {
        BodyReport& body = report.bodies.emplace_back();
        body.name = model.extras.package.bodies[i];
        body.triangles = bodies[i].faces.size();
        body.findings = examine(bodies[i], {}, search);
        bodies[i] = {};
    }
}

Report check_file(const std::string& path, const CheckOptions& options, const Console& console) {
    Report report;
    report.path = path;
    ProgressLine line(console, path);
    try {
        LoadedModel model;
        report.failure = load_model(path, line.progress(), model);
        if (!report.failure.empty()) return report;
        report.format = model.format;
        report.triangles = model.triangles;
        report.dropped_triangles = model.dropped_triangles();
        report.warnings = load_warnings(model);
        report.findings = examine(model.mesh, line.progress(), options.search);
        if (options.least_wall > 0) measure_walls(model.mesh, options.least_wall, report);
        report.suggestions = suggestions(model.mesh, report.findings);
        examine_bodies(model, options.search, report);
    } catch (...) {
        report.failure = failure_text(path);
    }
    return report;
}

std::string bodies_verdict(const Report& report, const std::string& thin) {
    const auto flawed = static_cast<std::size_t>(
        std::count_if(report.bodies.begin(), report.bodies.end(),
                      [](const BodyReport& body) { return body.findings.has_flaws(); }));
    if (flawed > 0) {
        return "flaws in " + std::to_string(flawed) + " of " +
               std::to_string(report.bodies.size()) + " objects" +
               (thin.empty() ? "" : "; " + thin);
    }
    if (!thin.empty()) return thin;
    return report.findings.has_flaws() ? "clean, each object by itself; what is counted above lies "
                                         "between them"
                                       : "clean";
}

std::string table(const Report& report, bool with_warnings) {
    std::vector<Row> rows = {{"format", std::string(report.format)},
                             {"triangles", with_separators(report.triangles)}};
    const auto append = [&](const std::vector<Row>& more) {
        rows.insert(rows.end(), more.begin(), more.end());
    };
    append(finding_rows(report.findings));
    const std::string thin = report.is_thin() ? thin_text(*report.walls) : std::string();
    if (report.walls) {
        rows.emplace_back("thin walls", report.is_thin()
                                            ? thin
                                            : "none below " + human_number(report.walls->asked));
    }
    for (std::size_t i = 0; i < report.bodies.size(); ++i) {
        const BodyReport& body = report.bodies[i];
        rows.emplace_back(body_name(body, i), counted(body.triangles, "triangle") + ", " +
                                                  size_text(body.findings.box) + ", " +
                                                  verdict(body.findings));
    }
    rows.emplace_back("verdict", report.bodies.empty() ? verdict(report.findings, thin)
                                                       : bodies_verdict(report, thin));
    append(where_rows(report.findings));
    if (report.is_thin()) rows.emplace_back("where", "thin walls: " + thinnest_text(*report.walls));
    for (const std::string& line : report.suggestions) rows.emplace_back("suggestion", line);
    if (with_warnings) {
        for (const std::string& warning : report.warnings) rows.emplace_back("warning", warning);
    }
    return on_one_line(report.path) + "\n" + table_text(rows);
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

Json to_json(const Report& report) {
    Json json = {{"file", report.path}};
    if (!report.failure.empty()) {
        json["verdict"] = "unreadable";
        json["error"] = report.failure;
        return json;
    }
    const Findings& f = report.findings;
    json["verdict"] = report.status() == Flawed ? "flaws" : "clean";
    json["format"] = report.format;
    json["triangles"] = report.triangles;
    json["dropped_triangles"] = report.dropped_triangles;
    add_findings(json, f);
    if (report.walls) json["wall"] = thin_json(*report.walls, kListedPlaces);
    for (std::size_t i = 0; i < report.bodies.size(); ++i) {
        const BodyReport& body = report.bodies[i];
        Json object = {{"name", body_name(body, i)},
                       {"verdict", body.findings.has_flaws() ? "flaws" : "clean"},
                       {"triangles", body.triangles}};
        add_findings(object, body.findings);
        json["objects"].push_back(std::move(object));
    }
    json["suggestions"] = report.suggestions;
    json["warnings"] = report.warnings;
    return json;
}

int run_check(const Arguments& arguments, Console& console) {
    const std::vector<std::string>& paths = arguments.all("FILE");
    const bool as_json = arguments.has("--json");
    const CheckOptions options = {arguments.has("--self-intersections")
                                      ? SelfIntersectionSearch::Always
                                      : SelfIntersectionSearch::UpToQuickFaces,
                                  arguments.has("--min-wall") ? arguments.number("--min-wall") : 0};
    if (arguments.has("--min-wall") && !(options.least_wall > 0)) {
        console.error("check: --min-wall takes a thickness above 0");
        return Usage;
    }
    Json json = Json::array();
    std::vector<ExitStatus> statuses;
    for (const std::string& path : paths) {
        const Report report = check_file(path, options, console);
        if (!report.failure.empty()) console.error(report.failure);
        if (as_json) {
            json.push_back(to_json(report));
        } else if (report.failure.empty()) {
            console.print(table(report, !console.is_quiet()) + (paths.size() > 1 ? "\n" : ""));
        }
        statuses.push_back(report.status());
    }
    if (as_json) {
        console.print(json_text(json));
    } else if (paths.size() > 1) {
        console.print(summary(statuses));
    }
    return *std::max_element(statuses.begin(), statuses.end());
}

}  // namespace

OperationSpec check_operation() {
    return {
        .name = "check",
        .summary = "Tell whether models are fit to print",
        .description =
            "Reads each file and prints its size, its volume, the flaws that a printer trips over, "
            "where they are and what repair would do about them.",
        .positionals = {{"FILE", true, "STL, OBJ, PLY and 3MF files"}},
        .options = {{.name = "--json", .help = "Print one JSON array with an object for each file"},
                    {.name = "--self-intersections",
                     .help = "Count faces that cut through each other also in models of more than "
                             "2,000,000 triangles"},
                    {.name = "--min-wall",
                     .type = ValueType::Number,
                     .placeholder = "WALL",
                     .unit = "units of the file",
                     .low = 0,
                     .high = kNoLimit,
                     .help = "Look for walls, too, that are thinner than this"}},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_check,
    };
}

}  // namespace povmesh::cli
