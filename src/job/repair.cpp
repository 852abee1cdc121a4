#include "job/repair.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "base/poll.h"
#include "field/winding.h"
#include "io/file.h"
#include "job/numbers.h"
#include "mesh/append_mesh.h"
#include "mesh/compact.h"
#include "mesh/volume.h"

namespace povmesh::job {
namespace {

// The share of the surface from which on what is gone is missed.
constexpr double kMissedShare = 0.001;

RepairOptions options_of(const RepairJob& job) {
    RepairOptions options = tool_repair_options();
    options.keep_cavities = !job.outward;
    options.tiny_volume = job.drop_tiny;
    // Smaller than a cube in volume and in area; a large sheet without volume stays.
    const double side = std::cbrt(job.drop_tiny);
    options.tiny_area = 6 * side * side;
    return options;
}

SelfIntersectionSearch search_of(const RepairJob& job) {
    return job.counts_crossings ? SelfIntersectionSearch::UpToQuickFaces
                                : SelfIntersectionSearch::Never;
}

void add(Findings& sum, const Findings& more) {
    sum.vertices += more.vertices;
    sum.shells += more.shells;
    sum.cavities += more.cavities;
    if (!more.box.is_empty()) {
        sum.box.widen(more.box.low);
        sum.box.widen(more.box.high);
    }
    sum.volume += more.volume;
    sum.is_closed = sum.is_closed && more.is_closed;
    sum.has_labels = sum.has_labels || more.has_labels;
    sum.one_sided_shells += more.one_sided_shells;
    sum.detected.inverted += more.detected.inverted;
    sum.detected.open_edges += more.detected.open_edges;
    sum.detected.non_manifold += more.detected.non_manifold;
    sum.detected.degenerate += more.detected.degenerate;
    for (std::size_t i = 0; i < sum.flaws.size(); ++i) {
        sum.flaws[i].count += more.flaws[i].count;
        if (!sum.flaws[i].place) sum.flaws[i].place = more.flaws[i].place;
    }
    sum.has_self_intersection_count =
        sum.has_self_intersection_count && more.has_self_intersection_count;
    for (const HoleSize& hole : more.holes) {
        const auto place = std::lower_bound(
            sum.holes.begin(), sum.holes.end(), hole,
            [](const HoleSize& a, const HoleSize& b) { return a.edges < b.edges; });
        if (place != sum.holes.end() && place->edges == hole.edges) {
            place->count += hole.count;
        } else {
            sum.holes.insert(place, hole);
        }
    }
    sum.unclosed_edges += more.unclosed_edges;
}

void add(RepairReport& sum, const RepairReport& more) {
    sum.dropped_misplaced += more.dropped_misplaced;
    sum.dropped_shells += more.dropped_shells;
    sum.dropped_shell_faces += more.dropped_shell_faces;
    sum.removed_duplicates += more.removed_duplicates;
    if (sum.removed_walls == 0) sum.first_wall = more.first_wall;
    sum.removed_walls += more.removed_walls;
    sum.removed_wall_area += more.removed_wall_area;
    sum.walls.insert(sum.walls.end(), more.walls.begin(), more.walls.end());
    sum.slits.closed_slits += more.slits.closed_slits;
    sum.slits.split_faces += more.slits.split_faces;
    sum.slits.added_faces += more.slits.added_faces;
    sum.were_holes_tried = sum.were_holes_tried && more.were_holes_tried;
    sum.holes.holes.insert(sum.holes.holes.end(), more.holes.holes.begin(), more.holes.holes.end());
    sum.holes.unclosed_edge_count += more.holes.unclosed_edge_count;
    sum.holes.added_face_count += more.holes.added_face_count;
    sum.turned_faces += more.turned_faces;
    sum.undecided_shells += more.undecided_shells;
    sum.one_sided_shells += more.one_sided_shells;
    sum.kept_cavities += more.kept_cavities;
}

// The objects with the labels and texture coordinates of their faces.
std::vector<TriMesh> labelled_bodies(const LoadedModel& model) {
    std::vector<TriMesh> bodies = bodies_of(model);
    if (bodies.empty()) return bodies;
    const Array<std::uint32_t> order = three_mf_order(model.mesh, model.extras.package);
    std::size_t next = 0;
    for (TriMesh& body : bodies) {
        Poller poller;
        for (Face& face : body.faces) {
            poller();
            const Face& from = model.mesh.faces[order[next++]];
            face.label = from.label;
            for (std::size_t c = 0; c < 3; ++c) {
                const auto uv = static_cast<std::size_t>(from.uv[c]);  // huge for none
                if (uv >= model.mesh.texture_coordinates.size()) continue;
                face.uv[c] = static_cast<std::int32_t>(body.texture_coordinates.size());
                body.texture_coordinates.push_back(model.mesh.texture_coordinates[uv]);
                body.texture_coordinates.back().index = face.uv[c];
            }
        }
    }
    return bodies;
}

// The label that all faces have, when it stands for no texture; else -1.
std::int16_t only_label(const TriMesh& body, const ThreeMfContent& package) {
    if (body.faces.empty()) return -1;
    const std::int16_t label = body.faces.front().label;
    const bool is_alone = std::all_of(body.faces.begin(), body.faces.end(),
                                      [&](const Face& face) { return face.label == label; });
    return is_alone && package.labels[static_cast<std::size_t>(label)].texture < 0 ? label : -1;
}

void set_labels(TriMesh& mesh, std::int16_t label) {
    for (Face& face : mesh.faces) face.label = label;
}

// Of several objects, before there is one.
Findings nothing_yet() {
    Findings none;
    none.is_closed = true;
    none.has_self_intersection_count = true;
    return none;
}

// A side that two bodies share lies within them once it is gone; a fin, or a sheet by itself, does
// not, and is missed.
void tell_walls(const TriMesh& mesh, RepairDone& done) {
    const RepairReport& report = done.mending.report;
    if (report.walls.empty()) return;
    const WindingNumbers winding(mesh);
    double lost = 0;
    for (const RepairReport::Wall& wall : report.walls) {
        if (std::abs(winding.at(wall.middle)) < 0.5) lost += wall.area;
    }
    const bool is_missed = lost > kMissedShare * (surface_area(mesh) + lost);
    (is_missed ? done.doubts : done.warnings).push_back(wall_warning(report));
}

Status nothing_left(const RepairReport& report, const RepairJob& options) {
    if (report.dropped_shells == 0) {
        return {StatusCode::Nothing,
                "every triangle has a coordinate that is infinite or no number; nothing is "
                "written"};
    }
    return {StatusCode::Nothing, "every shell is smaller than a cube of the volume " +
                                     human_number(options.drop_tiny) +
                                     "; nothing is written; give a smaller volume"};
}

}  // namespace

Status repair(TriMesh& mesh, const RepairJob& options, Progress progress, RepairDone& done) {
    const SelfIntersectionSearch search = search_of(options);
    done.before = examine(mesh, {}, search);
    progress.set(60);
    done.mending = mend(mesh, options_of(options), done.before, search);
    tell_walls(mesh, done);
    if (live_face_count(mesh) != 0) return {};
    return nothing_left(done.mending.report, options);
}

Status repair(LoadedModel& model, const RepairJob& options, Progress progress, RepairDone& done) {
    std::vector<TriMesh> bodies = labelled_bodies(model);
    if (bodies.empty()) return repair(model.mesh, options, progress, done);
    const ThreeMfContent& package = model.extras.package;
    done.before = nothing_yet();
    done.mending = {};
    done.mending.report.were_holes_tried = true;
    model.mesh = {};
    for (std::size_t i = 0; i < bodies.size(); ++i) {
        TriMesh& body = bodies[i];
        if (body.faces.empty()) continue;
        const std::int16_t label = only_label(body, package);
        // Holes of faces with labels are not closed: it is not known which a new face should have.
        if (label >= 0) set_labels(body, -1);
        const Findings before = examine(body, {}, search_of(options));
        const Mending mending = mend(body, options_of(options), before, search_of(options));
        if (label >= 0) set_labels(body, label);
        add(done.before, before);
        add(done.mending.report, mending.report);
        const std::string name = package.bodies[i].empty() ? "object " + std::to_string(i + 1)
                                                           : one_line(package.bodies[i]);
        for (const std::string& text : mending.given_up) {
            std::string& line = done.mending.given_up.emplace_back(name);
            line.append(": ").append(text);
        }
        append_mesh(model.mesh, body);
        body = {};
        progress.set(50 + static_cast<std::uint32_t>(30 * (i + 1) / bodies.size()));
    }
    compact(model.mesh, TextureDigits::AllThatAreThere);
    tell_walls(model.mesh, done);
    if (live_face_count(model.mesh) != 0) return {};
    return nothing_left(done.mending.report, options);
}

Findings examine_objects(LoadedModel& model, Progress progress) {
    std::vector<TriMesh> bodies = bodies_of(model);
    if (bodies.empty()) {
        return examine(model.mesh, progress, SelfIntersectionSearch::UpToQuickFaces);
    }
    Findings sum = nothing_yet();
    for (TriMesh& body : bodies) {
        if (body.faces.empty()) continue;
        add(sum, examine(body, {}, SelfIntersectionSearch::UpToQuickFaces));
        body = {};
    }
    return sum;
}

}  // namespace povmesh::job
