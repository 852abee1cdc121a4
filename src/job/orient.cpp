#include "job/orient.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "base/timer.h"
#include "job/measures.h"
#include "job/numbers.h"
#include "mesh/bounds.h"
#include "mesh/copy_mesh.h"
#include "mesh/volume.h"
#include "orient/pose.h"
#include "spatial/self_intersection.h"

namespace povmesh::job {
namespace {

// A gain of cost below this is not worth turning a model for.
constexpr double kNotableGain = 0.01;

// Pairs that are compared before and after; where there are more, their number is.
constexpr std::size_t kListedPairs = 100000;

// What was stood up is measured again, on other columns: a share by which height and area, and an
// amount and a share by which the cost may differ. (Open models have no volume to compare.)
constexpr double kSameLength = 1e-4;
constexpr double kSameCost = 0.03;
constexpr double kSameCostShare = 0.2;

// Pairs of faces that cross after and did not before; where faces are gone, how many more.
std::size_t new_crossings(const TriMesh& before, const TriMesh& after, bool has_same_faces) {
    const SelfIntersections were = find_self_intersections(before, kListedPairs);
    const SelfIntersections are = find_self_intersections(after, kListedPairs);
    const bool are_all_listed = were.count == were.pairs.size() && are.count == are.pairs.size();
    if (!has_same_faces || !are_all_listed) {
        return are.count > were.count ? are.count - were.count : 0;
    }
    std::vector<FacePair> added;
    std::set_difference(are.pairs.begin(), are.pairs.end(), were.pairs.begin(), were.pairs.end(),
                        std::back_inserter(added), [](const FacePair& a, const FacePair& b) {
                            return std::pair(a.first, a.second) < std::pair(b.first, b.second);
                        });
    return added.size();
}

// A share of the greater one.
bool is_near(double a, double b, double share) {
    return std::abs(a - b) <= share * std::max(std::abs(a), std::abs(b));
}

}  // namespace

Status orient(TriMesh& mesh, const OrientJob& job, Progress progress, OrientDone& done) {
    const Timer timer;
    RunLog log;
    // The values of the search go from 20 to 80.
    ProgressObserver scaled = [&](std::uint32_t percent) { progress.set(45 + percent * 3 / 8); };
    RunContext run{Progress(nullptr, &scaled), log};
    OrientOptions options;
    options.measures_all_rows = true;
    options.up = job.up;
    done.report = find_orientations(mesh, run, options);
    done.seconds = timer.seconds();
    const OrientationReport& report = done.report;
    if (report.best.empty()) {
        return {StatusCode::Nothing,
                "no triangle has an area and finite coordinates, so that all directions are the "
                "same; nothing is written"};
    }
    if (job.choose > report.best.size()) {
        return {StatusCode::BadOption, "only " + counted(report.best.size(), "direction") +
                                           " found; --choose takes 1 to " +
                                           std::to_string(report.best.size())};
    }
    if (!is_closed(mesh)) {
        done.warnings.emplace_back(
            "the model is open: what looks down with nothing below it is taken to need support; "
            "repair it for a better answer");
    }
    if (report.as_is.cost - report.best.front().cost < kNotableGain) {
        done.warnings.emplace_back("it is best as it is: turning it gains next to nothing");
    }
    if (job.choose != 0 && !(report.best[job.choose - 1].tilt > 0)) {
        done.warnings.emplace_back("row " + std::to_string(job.choose) +
                                   " falls over by itself; hold it with supports");
    }
    return {};
}

Remarks stand_up(TriMesh& mesh, const Orientation& row) {
    const TriMesh before = copy_mesh(mesh);
    turn_up(mesh, row.up);
    // Rounding moves every corner by a little: what touched may cross, what was tiny may be gone.
    Remarks remarks;
    const std::size_t gone = live_face_count(before) - live_face_count(mesh);
    if (gone != 0) {
        remarks.warnings.push_back(counted(gone, "triangle") +
                                   " dropped: too small for the coordinates of 32-bit floats");
    }
    const std::size_t fresh = new_crossings(before, mesh, gone == 0);
    if (fresh != 0) {
        remarks.warnings.push_back(
            counted(fresh, "pair") +
            " of faces cross that the model did not have: they lay so near to each "
            "other that rounding to 32-bit floats brought them together");
    }
    return remarks;
}

Remarks check_pose(const TriMesh& mesh, double area, const Orientation& row) {
    const Orientation again = measure_orientation(mesh, {0, 0, 1});
    const Box3f box = finite_bounds(mesh);
    Remarks remarks;
    const auto doubt = [&](const std::string& text) {
        remarks.doubts.push_back(text + "; do not print it, and tell the developers");
    };
    if (box.low.z != 0 || !is_near(again.height, row.height, kSameLength)) {
        doubt("the model written stands from z " + human_number(double{box.low.z}) + " and is " +
              human_number(again.height) + " high instead of " + human_number(row.height));
    } else if (!is_near(surface_area(mesh), area, kSameLength) ||
               std::abs(again.cost - row.cost) > kSameCost + kSameCostShare * row.cost) {
        doubt("the model written is not the one chosen: it needs " +
              human_number(again.support_volume) + " of support instead of " +
              human_number(row.support_volume));
    }
    return remarks;
}

}  // namespace povmesh::job
