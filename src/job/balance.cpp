#include "job/balance.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "base/timer.h"
#include "job/cavity.h"
#include "job/measures.h"
#include "job/new_faults.h"
#include "job/numbers.h"
#include "mesh/compact.h"
#include "mesh/copy_mesh.h"
#include "mesh/shells.h"
#include "remesh/carry_attributes.h"
#include "spatial/separation.h"

namespace povmesh::job {
namespace {

// No walls are thinner.
constexpr double kLeastThickness = 0.5;

// Shares of the thickness with which a model that falls is tried again.
constexpr double kThinner[] = {0.7, 0.4};

std::string rounded(double number, double step) {
    return human_number(std::round(number / step) * step + 0.0);
}

// What is to be known about a model before it is trusted to stand on its own.
std::vector<std::string> warnings_of(TriMesh& mesh) {
    std::vector<std::string> warnings;
    label_shells(mesh);
    const std::size_t bodies = group_shells(mesh, {.keep_cavities = true}).size();
    if (bodies > 1) {
        warnings.push_back("its " + std::to_string(bodies) +
                           " bodies do not touch one another; they are balanced as if they were "
                           "joined");
    }
    if (!is_closed(mesh)) {
        warnings.emplace_back(
            "the model is open, so that its centre of mass is a guess; repair it "
            "for a better answer");
    }
    return warnings;
}

// What carving with a thinner wall would do about a model that falls; empty when it helps little.
std::string thinner_text(const TriMesh& mesh, double thickness, const BalanceReport& fallen,
                         const BalanceOptions& options) {
    std::string text;
    RunLog log;
    RunContext run{{}, log};
    for (const double share : kThinner) {
        const double thinner = std::max(std::round(thickness * share * 10) / 10, kLeastThickness);
        if (thinner >= thickness) break;
        const BalanceReport report =
            preview_balance(mesh, static_cast<float>(thinner), run, options);
        if (report.status == BalanceStatus::Carved) {
            return human_number(thinner) + " withstands " + degrees_text(report.after.tilt);
        }
        if (report.after.margin < 0 && report.after.margin > fallen.after.margin) {
            text = human_number(thinner) + " leaves " + length_text(-report.after.margin);
        }
    }
    return text;
}

std::string falls_text(const TriMesh& mesh, double thickness, const BalanceReport& report,
                       const BalanceOptions& options) {
    const Standing& best = report.after;
    std::string text = best.margin <= 0 ? "its centre of mass stays " + length_text(-best.margin) +
                                              " outside its base " + towards(best)
                                        : "it withstands no more than " + degrees_text(best.tilt) +
                                              ", and falls " + towards(best);
    const std::string thinner = thinner_text(mesh, thickness, report, options);
    text += "; take ";
    if (report.core_voxels == 0 && thinner.empty()) {
        text = "a wall of " + human_number(thickness) + " leaves nothing to carve: " + text;
    }
    if (!thinner.empty()) text += "a thinner wall (" + thinner + "), ";
    return text + "a wider base, or 'povmesh orient'";
}

// How a finished model stands, by its faces. With an infill they do not tell what it weighs.
void stand_finished(const TriMesh& mesh, double infill, BalanceDone& done) {
    done.base_after = base_of(mesh);
    done.after = done.report.after;
    if (infill != 1) return;
    const Vec3d middle = done.base_after.middle;
    done.after = stand_on(done.base_after, middle + mass_of(mesh, middle).centre());
}

// What a model that was carved has to keep.
void check_promises(TriMesh& before, TriMesh& mesh, double thickness, BalanceDone& done) {
    NewFaults faults = find_new_faults(before, mesh);
    // Cavities have triangles a little less flat than degenerate ones: none is that.
    faults.slivers = {};
    add_faults(faults, 0, mesh, 0, done);
    const BalanceReport& balanced = done.report;
    if (done.after.tilt < kStands || done.after.tilt <= balanced.before.tilt) {
        done.doubts.push_back("with its drain holes it withstands " +
                              degrees_text(done.after.tilt) + " only");
    }
    const double least = std::max(thickness, kLeastThickness) - 2 * balanced.voxel_size;
    if (balanced.smallest_wall < least) {
        done.doubts.push_back("its smallest wall is " + human_number(balanced.smallest_wall));
    }
}

Status finish_carved(TriMesh& mesh, TriMesh& before, const BalanceJob& job, BalanceDone& done) {
    compact(mesh);
    carry_colours(before, mesh, before.faces.size());
    done.saved_percent = done.report.cavity_volume / done.report.model_volume * 100;
    if (job.drains.empty()) {
        const SealedCavities sealed = sealed_cavities(mesh);
        done.warnings.push_back(sealed_text(sealed, sealed.count));
    } else {
        Status cut = cut_drains(mesh, before.faces.size(), job.thickness, job.drains,
                                job.drain_name, done.drains);
        const std::vector<std::string>& warnings = done.drains.warnings;
        done.warnings.insert(done.warnings.end(), warnings.begin(), warnings.end());
        if (!cut.ok()) return cut;
    }
    stand_finished(mesh, job.infill, done);
    check_promises(before, mesh, job.thickness, done);
    return {};
}

}  // namespace

Status balance(TriMesh& mesh, const BalanceJob& job, Progress progress, BalanceDone& done) {
    const BalanceOptions options{.firm = job.firm, .infill = job.infill, .measures_wall = true};
    const auto thickness = static_cast<float>(job.thickness);
    const Timer timer;
    RunLog log;
    // The values of the operation itself go from 30 to 85.
    ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(50 + percent / 4); };
    RunContext run{Progress(nullptr, &scaled), log};
    done.warnings = warnings_of(mesh);
    doubt_windings(mesh, done);
    TriMesh before;
    if (job.only_measures) {
        done.report = preview_balance(mesh, thickness, run, options);
    } else {
        before = copy_mesh(mesh);
        done.report = povmesh::balance(mesh, thickness, run, options);
    }
    done.seconds = timer.seconds();
    done.base_after = done.report.base;
    done.after = done.report.after;
    if (done.report.status == BalanceStatus::NoModel) {
        return {StatusCode::Nothing,
                "the model encloses no volume, or is inside out; repair it first"};
    }
    if (job.only_measures) return {};
    if (done.report.status == BalanceStatus::Falls) {
        done.falls = falls_text(mesh, job.thickness, done.report, options);
        if (!is_closed(mesh) || !done.doubts.empty()) {
            done.falls =
                "the model is open or its faces are turned, so that where it falls is a "
                "guess; repair it first; as it is, " +
                done.falls;
        }
        return {};
    }
    if (done.report.status == BalanceStatus::Carved) {
        return finish_carved(mesh, before, job, done);
    }
    if (!job.drains.empty()) {
        done.warnings.emplace_back("nothing is carved, so that no drain hole is cut");
    }
    stand_finished(mesh, job.infill, done);
    return {};
}

Vec3d fall_direction(const Standing& standing) {
    Vec3d to = (standing.nearest - standing.centre) * (standing.margin > 0 ? 1.0 : -1.0);
    to.z = 0;
    const double size = length(to);
    return size > 0 ? to / size : Vec3d{1, 0, 0};
}

std::string towards(const Standing& standing) {
    const Vec3d to = fall_direction(standing);
    return "towards x " + rounded(to.x, 0.01) + ", y " + rounded(to.y, 0.01);
}

std::string degrees_text(double degrees) {
    return rounded(degrees, 0.01) + " degrees";
}

std::string length_text(double length) {
    if (!(length > 0)) return "0";
    return rounded(length, std::pow(10.0, std::floor(std::log10(length)) - 1));
}

}  // namespace povmesh::job
