#include "job/lampshade.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "base/timer.h"
#include "job/cavity.h"
#include "job/findings.h"
#include "job/new_faults.h"
#include "job/numbers.h"
#include "mesh/bounds.h"
#include "mesh/compact.h"
#include "mesh/copy_mesh.h"
#include "repair/degenerate.h"

namespace povmesh::job {
namespace {

// A model hardly longer than the wall is thick was not meant in that unit.
constexpr double kSmallShare = 0.1;

// How far the mean wall may be off, and how much of the inner wall may be uneven, untold.
constexpr double kMeanWithin = 0.02;
constexpr double kMostUneven = 0.01;

// A cut that takes off more of the height is told.
constexpr double kNotableCut = 0.25;

// Empty when the levels lie within the model.
std::string level_failure(const TriMesh& mesh, const LampshadeOptions& options) {
    const Box3f box = finite_bounds(mesh);
    for (const auto& [name, level] :
         {std::pair{"--bottom ", options.bottom}, std::pair{"--top ", options.top_level}}) {
        if (!level || (*level > double{box.low.z} && *level < double{box.high.z})) continue;
        return name + human_number(*level) + " lies not within the model, whose levels go from " +
               human_number(double{box.low.z}) + " to " + human_number(double{box.high.z});
    }
    return {};
}

// Empty when there is a shade.
std::string failure_of(const LampshadeReport& made, double thickness, TriMesh& model) {
    const std::string wall = "a wall of " + human_number(thickness);
    switch (made.status) {
        case LampshadeStatus::Made:
            return {};
        case LampshadeStatus::NoModel:
            return "the model encloses no volume, or is inside out; repair it first";
        case LampshadeStatus::Failed:
            return "no lampshade can be made: " + made.why.text();
        case LampshadeStatus::Thin:
            break;
    }
    if (made.overlapped_pieces != 0) {
        return "no lampshade can be made: bodies overlap or are inside out where it would be "
               "hollow, " +
               place_text(made.overlap) + "; join them with 'povmesh wrap' first";
    }
    const std::string otherwise = "take a thinner wall";
    return "the model is too thin: " + wall + " leaves nothing inside" +
           (made.closed_pieces != 0 ? " that reaches an opening; " : "; ") +
           cure_of(model, kSmallShare * thickness, otherwise);
}

void tell_cuts(LampshadeDone& done) {
    for (const LampshadeShade& shade : done.report.shades) {
        const double cut = shade.bottom.level - shade.low;
        done.cut_below = std::max(done.cut_below, cut);
        if (shade.top) done.cut_above = std::max(done.cut_above, shade.high - shade.top->level);
        if (cut > kNotableCut * (shade.high - shade.low)) {
            done.warnings.push_back("the lowest " + four_digits(cut) +
                                    " of the model are cut away; --bottom sets another level");
        }
    }
}

void tell_wall(double thickness, LampshadeDone& done) {
    const LampshadeReport& made = done.report;
    if (made.smallest_wall < kLeastLampshadeWall * thickness) {
        done.doubts.push_back("the wall is only " + four_digits(made.smallest_wall) +
                              " thick, the inner wall " + place_text(made.thinnest));
    }
    const bool is_off = std::abs(made.mean_wall - thickness) > kMeanWithin * thickness;
    if (is_off || made.uneven_share > kMostUneven) {
        done.warnings.push_back(human_number(std::round(made.uneven_share * 1000) / 10) +
                                " % of the inner wall are more than 6 % thicker or thinner than "
                                "asked for; --cell takes smaller cells");
    }
}

void tell_pieces(LampshadeDone& done) {
    const LampshadeReport& made = done.report;
    const std::size_t solid = made.models - made.shades.size();
    if (solid != 0) {
        done.warnings.push_back(counted(solid, "model") + " of " + std::to_string(made.models) +
                                (solid == 1 ? " is" : " are") +
                                " too thin for the wall, or open, and stays solid");
    }
    if (made.closed_pieces != 0) {
        done.warnings.push_back(counted(made.closed_pieces, "piece") + " of the inside " +
                                (made.closed_pieces == 1 ? "has" : "have") +
                                " no way to an opening and stays solid");
    }
    if (made.overlapped_pieces != 0) {
        done.warnings.push_back(
            "bodies overlap, or are inside out, " + place_text(made.overlap) +
            ": it stays solid there, and walls stand inside; 'povmesh wrap' joins them");
    }
    if (made.loose_pieces != 0) {
        done.warnings.push_back(counted(made.loose_pieces, "wall") +
                                " around a cavity of the model hangs free inside");
    }
}

std::size_t degenerate_faces(const TriMesh& mesh) {
    return static_cast<std::size_t>(std::count_if(
        mesh.faces.begin(), mesh.faces.end(),
        [&](const Face& face) { return face.deleted == 0 && is_degenerate(mesh, face); }));
}

void check_faults(TriMesh& before, TriMesh& mesh, Remarks& remarks) {
    NewFaults faults = find_new_faults(before, mesh);
    // Rims and inner walls have thin triangles: those matter that are degenerate.
    faults.slivers = {};
    add_faults(faults, 0, mesh, 0, remarks);
    const std::size_t known = degenerate_faces(before);
    const std::size_t found = degenerate_faces(mesh);
    if (found > known) {
        remarks.warnings.push_back(counted(found - known, "degenerate face") +
                                   " that the model did not have; 'povmesh revise' mends most");
    }
}

}  // namespace

Status lampshade(TriMesh& mesh, const LampshadeJob& job, Progress progress, LampshadeDone& done) {
    std::string failure = level_failure(mesh, job.options);
    if (!failure.empty()) return {StatusCode::Nothing, failure};
    LampshadeOptions options = job.options;
    options.measures = true;
    const auto thickness = static_cast<float>(job.thickness);
    const Timer timer;
    RunLog log;
    // The values of the operation itself go from 10 to 90.
    ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(50 + percent / 4); };
    RunContext run{Progress(nullptr, &scaled), log};
    doubt_windings(mesh, done);
    TriMesh before;
    if (job.preview) {
        done.report = preview_lampshade(mesh, thickness, run, done.contours, options);
    } else {
        before = copy_mesh(mesh);
        done.report = povmesh::lampshade(mesh, thickness, run, options,
                                         job.fills_contours ? &done.contours : nullptr);
    }
    done.seconds = timer.seconds();
    failure = failure_of(done.report, job.thickness, mesh);
    if (!failure.empty()) return {StatusCode::Nothing, failure};
    tell_cuts(done);
    if (!job.preview) {
        compact(mesh);
        tell_wall(job.thickness, done);
    }
    tell_pieces(done);
    if (!job.preview) check_faults(before, mesh, done);
    return {};
}

}  // namespace povmesh::job
