#include "job/hollow.h"

#include <cmath>
#include <limits>
#include <optional>
#include <string>

#include "base/timer.h"
#include "design/hollow.h"
#include "field/inner_wall.h"
#include "job/cavity.h"
#include "job/findings.h"
#include "job/numbers.h"
#include "job/solid_surface.h"
#include "mesh/compact.h"
#include "mesh/copy_mesh.h"
#include "mesh/shells.h"
#include "mesh/volume.h"
#include "remesh/carry_attributes.h"
#include "spatial/nearest_face.h"
#include "spatial/self_intersection.h"
#include "spatial/shell_nesting.h"

namespace povmesh::job {
namespace {

// Walls take a layer of cubes from this thickness on.
constexpr double kLeastThickness = 0.5;

// Empty when there is a cavity.
std::string failure_of(const HollowReport& report, double thickness, TriMesh& model) {
    const std::string wall = "a wall of " + human_number(thickness);
    if (!(report.model_volume > 0)) {
        return "the model encloses no volume, or is inside out; repair it first";
    }
    if (report.layers < 1) {
        const std::string otherwise = "take at least " + human_number(kLeastThickness);
        return "nothing can be hollowed: " + wall + " is less than a layer of cubes; " +
               cure_of(model, report.voxel_size, otherwise);
    }
    if (report.is_too_thin) {
        return "nothing can be hollowed: " + wall + " is too thin for the cubes of " +
               human_number(report.voxel_size) + " that a model of this size is made of; " +
               cure_of(model, report.voxel_size,
                       "take at least " + human_number(report.voxel_size / 4));
    }
    if (report.is_crossing) {
        return "nothing can be hollowed: no cavity with " + wall +
               " keeps clear of the model's surface; take a thicker wall, or repair the model if "
               "it "
               "crosses itself";
    }
    if (report.is_hollowed) return "";
    return "nothing can be hollowed: " + wall + " leaves " +
           (report.voxels == 0 ? std::string("no cube")
                               : "only " + counted(report.voxels, "cube")) +
           " of " + human_number(report.voxel_size) + " inside; " +
           cure_of(model, report.voxel_size, "take a thinner wall");
}

// Empty unless the surface around cavities is open: nothing tells then that they are inside.
std::string bare_text(TriMesh& mesh, std::size_t model_faces) {
    label_shells(mesh);
    const std::vector<ShellNesting> nesting = classify_shells(mesh);
    std::size_t cavities = 0;
    std::size_t bare = 0;
    Vec3f place;
    for (std::size_t shell = 0; shell < nesting.size(); ++shell) {
        const std::uint32_t face = mesh.shells[shell][0];
        if (face < model_faces) continue;
        ++cavities;
        if (nesting[shell].is_cavity()) continue;
        if (bare++ == 0) place = mesh.corner_position(mesh.faces[face], 0);
    }
    if (bare == 0) return "";
    return "the model is open around " + std::to_string(bare) + " of " +
           counted(cavities, "cavity", "cavities") + ", one near (" + human_number(place.x) + ", " +
           human_number(place.y) + ", " + human_number(place.z) +
           "): programs that read it may take that for a body turned inside out; repair the model "
           "first";
}

// A model hardly longer than the wall is thick was not meant in that unit.
constexpr double kSmallShare = 0.1;

// Empty when there is a cavity.
std::string failure_of(const WallReport& made, const TriMesh& cavity, double thickness,
                       TriMesh& model) {
    if (!made.status.ok()) return "nothing can be hollowed: " + made.status.text();
    if (!cavity.faces.empty()) return "";
    return "nothing can be hollowed: a wall of " + human_number(thickness) +
           " leaves nothing inside; " +
           cure_of(model, kSmallShare * thickness, "take a thinner wall");
}

// Made of voxels, as hosts get it.
Status make_voxel_cavity(TriMesh& mesh, double thickness, Progress progress, TriMesh& cavity,
                         HollowDone& done) {
    RunLog log;
    // The values of the operation itself go from 10 to 85.
    ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(50 + percent / 4); };
    RunContext run{Progress(nullptr, &scaled), log};
    cavity = mesh;
    const HollowReport made = povmesh::hollow(cavity, static_cast<float>(thickness), run,
                                              {.is_reduced = true, .measures_wall = true});
    const std::string failure = failure_of(made, thickness, mesh);
    if (!failure.empty()) return {StatusCode::Nothing, failure};
    done.voxel_size = made.voxel_size;
    done.layers = made.layers;
    done.cavity_volume = made.cavity_volume;
    done.saved_percent = made.cavity_volume / made.model_volume * 100;
    done.smallest_wall = made.smallest_wall;
    return {};
}

// At an exact distance. What the making promises is looked at again.
Status make_exact_cavity(TriMesh& mesh, double thickness, Progress progress, TriMesh& cavity,
                         HollowDone& done) {
    const double model_volume = volume(mesh);
    if (!(model_volume > 0)) {
        return {StatusCode::Nothing,
                "the model encloses no volume, or is inside out; repair it first"};
    }
    ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(50 + percent * 3 / 10); };
    const WallReport made = inner_wall(mesh, thickness, {}, cavity, Progress(nullptr, &scaled));
    const std::string failure = failure_of(made, cavity, thickness, mesh);
    if (!failure.empty()) return {StatusCode::Nothing, failure};
    done.voxel_size = made.cell;
    done.mean_wall = made.mean_wall;
    done.smallest_wall = smallest_wall(mesh, cavity);
    done.cavity_volume = volume(cavity);
    done.saved_percent = done.cavity_volume / model_volume * 100;
    if (done.smallest_wall < kLeastWallShare * thickness) {
        done.doubts.push_back("the wall is only " + human_number(done.smallest_wall) +
                              " thick somewhere");
    }
    if (find_self_intersections(cavity, 0).count != 0) {
        done.doubts.emplace_back("the cavity crosses itself");
    }
    return {};
}

// Of a shell the faces from one on, up to another.
TriMesh faces_of(const TriMesh& shell, std::size_t from, std::size_t to) {
    TriMesh part = copy_mesh(shell);
    for (std::size_t f = 0; f < part.faces.size(); ++f) {
        if (f < from || f >= to) part.faces[f].deleted = 1;
    }
    return part;
}

// A place near another one, though not as near as the radius, from which the cavity lies straight
// below the surface.
std::string place_over_cavity(const TriMesh& shell, std::size_t model_faces, Vec3d from,
                              double radius) {
    constexpr double kStraight = 0.99;
    const TriMesh model = faces_of(shell, 0, model_faces);
    const NearestFace surface(model);
    std::optional<Vec3d> best;
    double nearest = std::numeric_limits<double>::infinity();
    for (std::size_t f = model_faces; f < shell.faces.size(); ++f) {
        Vec3d below;
        for (std::size_t c = 0; c < 3; ++c) {
            below = below + to_double(shell.corner_position(shell.faces[f], c)) / 3.0;
        }
        if (length(below - from) >= nearest) continue;
        const NearestPoint above = surface.find(below);
        if (!above.is_found()) continue;
        const double distance = length(above.point - from);
        if (distance < radius || distance >= nearest) continue;
        const Face& face = model.faces[above.face];
        const Vec3d a = to_double(model.corner_position(face, 0));
        const Vec3d normal = cross(to_double(model.corner_position(face, 1)) - a,
                                   to_double(model.corner_position(face, 2)) - a);
        const Vec3d up = above.point - below;
        if (dot(up, normal) < kStraight * length(up) * length(normal)) continue;
        nearest = distance;
        best = above.point;
    }
    return best ? ", such as one " + place_text(*best) : std::string();
}

// Empty when there is a hole.
std::string failure_of(const DrainReport& report, const std::string& name, double radius,
                       TriMesh& shell, std::size_t model_faces) {
    const std::string start = "no drain at " + name + ": ";
    switch (report.outcome) {
        case DrainOutcome::Done:
            return {};
        case DrainOutcome::FarAway:
            return start + "the surface is " + human_number(report.distance) +
                   " away; the nearest point of it has x " + human_number(report.mouth.x) + ", y " +
                   human_number(report.mouth.y) + ", z " + human_number(report.mouth.z);
        case DrainOutcome::NoCavity:
            return start + "the cavity does not lie below that place; take one over the cavity" +
                   place_over_cavity(shell, model_faces, report.mouth, radius);
        default:
            break;
    }
    Remarks windings;
    doubt_windings(shell, windings);
    if (report.outcome == DrainOutcome::NotSolid &&
        (has_holes(shell) || !windings.doubts.empty())) {
        return start + "the model is open there, or its faces are turned; repair it first";
    }
    return start + "no clean hole can be cut there; move it a little";
}

}  // namespace

std::string sealed_text(const SealedCavities& sealed, std::size_t cavities) {
    if (sealed.count == 0) return "";
    return "no drain hole leads into " + std::to_string(sealed.count) + " of " +
           counted(cavities, "cavity", "cavities") +
           ", where resin or powder stays; the largest is near (" + human_number(sealed.place.x) +
           ", " + human_number(sealed.place.y) + ", " + human_number(sealed.place.z) + ")";
}

Status cut_drains(TriMesh& mesh, std::size_t model_faces, double thickness,
                  const std::vector<Drain>& drains,
                  const std::function<std::string(std::size_t)>& name, DrainsDone& done) {
    done.cavities = sealed_cavities(mesh).count;
    TriMesh shell = copy_mesh(mesh);
    const auto made = povmesh::cut_drains(mesh, model_faces, thickness, drains);
    std::string failure;
    for (std::size_t i = 0; i < made.size() && failure.empty(); ++i) {
        failure = failure_of(made[i], name(i), drains[i].radius, shell, model_faces);
    }
    compact(mesh);
    const SealedCavities sealed = sealed_cavities(mesh);
    done.holes = made.size();
    done.closed_cavities = sealed.count;
    const std::string warning = sealed_text(sealed, done.cavities);
    if (!warning.empty()) done.warnings.push_back(warning);
    return failure.empty() ? Status() : Status(StatusCode::Nothing, failure);
}

Status hollow(TriMesh& mesh, const HollowJob& job, Progress progress, HollowDone& done) {
    const Timer timer;
    doubt_windings(mesh, done);
    TriMesh cavity;
    Status status = job.is_exact ? make_exact_cavity(mesh, job.thickness, progress, cavity, done)
                                 : make_voxel_cavity(mesh, job.thickness, progress, cavity, done);
    done.seconds = timer.seconds();
    if (!status.ok()) return status;
    carry_colours(mesh, cavity);
    if (job.cavity_only) {
        warn_of_lost_textures(mesh, done);
        mesh = std::move(cavity);
        return {};
    }
    const std::size_t model_faces = mesh.faces.size();
    add_cavities(mesh, cavity);
    if (has_holes(mesh)) {
        const std::string doubt = bare_text(mesh, model_faces);
        if (!doubt.empty()) done.doubts.push_back(doubt);
    }
    if (job.drains.empty()) return {};
    DrainsDone drains;
    Status cut = cut_drains(mesh, model_faces, job.thickness, job.drains, job.drain_name, drains);
    done.cavities = drains.cavities;
    done.closed_cavities = drains.closed_cavities;
    done.warnings.insert(done.warnings.end(), drains.warnings.begin(), drains.warnings.end());
    return cut;
}

}  // namespace povmesh::job
