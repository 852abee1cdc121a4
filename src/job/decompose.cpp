#include "job/decompose.h"

#include <cmath>
#include <string>
#include <string_view>

#include "base/timer.h"
#include "job/cavity.h"
#include "job/findings.h"
#include "job/measures.h"
#include "job/numbers.h"
#include "job/seam_check.h"
#include "mesh/copy_mesh.h"
#include "mesh/shells.h"
#include "mesh/volume.h"

namespace povmesh::job {
namespace {

// By how much of the whole volume the parts may differ from it: the distance within which vertices
// count as lying on a cut.
constexpr double kSameVolume = 1e-5;

// Sides of a peg: from this many on a printer's resolution hides them.
constexpr std::uint32_t kPegSegments = 48;

DecomposeOptions options_of(const DecomposeJob& job) {
    const auto lessened = [&](double x) { return x > 0 ? x - job.margin : 0; };
    DecomposeOptions options;
    options.size = {lessened(job.size.x), lessened(job.size.y), lessened(job.size.z)};
    if (job.uniform) options.method = DivisionMethod::Uniform;
    options.may_turn = job.may_turn;
    options.pegs.count = job.pegs;
    options.pegs.radius = job.peg_radius;
    options.pegs.segments = kPegSegments;
    return options;
}

// Why parts do not fit, from what the operation told.
std::string reason_of(const std::string& failures) {
    if (failures.find("finite") != std::string::npos) {
        return "a coordinate is not finite; take these triangles out first";
    }
    if (failures.find("many") != std::string::npos) {
        return "more than 32,768 parts would be needed; is the unit of --size that of the file?";
    }
    return "no plane divides them; repair the model first";
}

void check_volumes(const TriMesh& model, DecomposeDone& done) {
    double sum = 0;
    std::size_t open = 0;
    for (const PieceMeasures& piece : done.pieces) {
        sum += piece.volume;
        open += piece.is_closed ? 0 : 1;
    }
    if (open != 0) {
        done.doubts.push_back(counted(open, "part") + " open although the model is closed");
    }
    const double whole = signed_volume(model) + done.report.peg_volume;
    if (std::abs(sum - whole) > kSameVolume * std::abs(whole)) {
        done.doubts.push_back("the volumes of the parts add up to " + human_number(sum) +
                              ", not to the " + human_number(whole) + " of the model");
    }
}

// A body that was wound inward is so in its parts.
void warn_of_turned(DecomposeDone& done) {
    std::size_t turned = 0;
    Vec3d place;
    for (const PieceMeasures& piece : done.pieces) {
        if (!piece.is_closed || !(piece.volume < 0)) continue;
        if (turned++ == 0) place = (to_double(piece.box.low) + to_double(piece.box.high)) * 0.5;
    }
    if (turned == 0) return;
    done.warnings.push_back(counted(turned, "part") + " turned inside out, the first " +
                            place_text(place) + "; 'povmesh repair' turns the model's bodies");
}

void check_seams(const TriMesh& model, const std::vector<TriMesh>& parts, double reach,
                 DecomposeDone& done) {
    SeamCheck seams(model, done.report.planes, reach);
    for (const TriMesh& part : parts) seams.look_at(part);
    if (std::string crossings = seams.crossings(); !crossings.empty()) {
        done.doubts.push_back(std::move(crossings));
    }
    if (std::string needles = seams.needles(); !needles.empty()) {
        done.warnings.push_back(std::move(needles));
    }
}

}  // namespace

Status decompose(TriMesh& mesh, const DecomposeJob& job, Progress progress, DecomposeDone& done) {
    const bool was_closed = is_closed(mesh);
    if (!was_closed) done.warnings.emplace_back(kOpenCut);
    warn_of_windings(mesh, done);
    mesh.use_table.release();
    const TriMesh model = copy_mesh(mesh);
    const Timer timer;
    std::string failures;
    RunLog log([&](std::string_view text) {
        if (text.find("{failure}") != std::string_view::npos) failures += text;
    });
    RunContext run{{}, log};
    done.report = povmesh::decompose(mesh, options_of(job), run);
    done.seconds = timer.seconds();
    progress.set(65);
    const DecomposeReport& report = done.report;
    for (TriMesh& part : mesh.parts) {
        label_shells(part);
        done.pieces.push_back(measure_piece(part, part.shells.size()));
        part.use_table.release();
    }
    if (report.too_large != 0) {
        done.doubts.push_back(counted(report.too_large, "part") +
                              " too large: " + reason_of(failures));
    }
    if (was_closed) {
        check_volumes(model, done);
        // Of triangles that enclose nothing millions may cross anyway.
        if (report.cuts != 0) check_seams(model, mesh.parts, 2 * job.peg_length(), done);
    }
    warn_of_turned(done);
    if (report.cuts_without_pegs != 0) {
        done.warnings.push_back(with_separators(report.cuts_without_pegs) + " of " +
                                counted(report.cuts, "cut") +
                                " have no room for pegs; try a smaller --peg-radius");
    }
    return {};
}

}  // namespace povmesh::job
