#include "job/reduce.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "base/timer.h"
#include "job/findings.h"
#include "job/new_faults.h"
#include "job/numbers.h"
#include "mesh/copy_mesh.h"
#include "mesh/volume.h"
#include "remesh/reduce.h"

namespace povmesh::job {
namespace {

// A change of volume beyond this share is told.
constexpr double kNotableVolume = 0.1;

std::vector<ReductionRule> rules(const ReduceReport& report, bool is_automatic) {
    std::vector<ReductionRule> all = {
        {report.normal_limit, "normal_limit",
         is_automatic ? "would turn a face by more than 9.9 degrees"
                      : "would turn a face by 90 degrees or more"},
        {report.link, "link", "would pinch the surface"},
    };
    if (is_automatic) {
        all.push_back({report.boundary, "boundary", "have an end on a border"});
        all.push_back({report.valence, "valence", "would join too many triangles at a vertex"});
        all.push_back(
            {report.too_few_faces, "too_few_faces", "have an end with fewer than 3 faces"});
    } else {
        all.push_back({report.movement, "movement",
                       "would move the surface by more than a tenth of its diagonal"});
        all.push_back({report.slivers, "sliver", "would make a degenerate triangle"});
        all.push_back({report.held_edges, "boundary",
                       "have an end where other than two triangles meet, or that was held"});
        all.push_back({report.seam_edges, "seam", "lie between borders or seams"});
    }
    std::stable_sort(all.begin(), all.end(), [](const ReductionRule& a, const ReductionRule& b) {
        return a.count > b.count;
    });
    return all;
}

// Which rule ended the reduction, in words and as a key.
std::pair<std::string, std::string> end_of(const CheckedReduceReport& checked, bool is_automatic) {
    const ReduceReport& report = checked.reduction;
    if (report.faces_aimed >= report.faces_before) {
        return {is_automatic ? "nothing to do: no shell has more than 100,000 triangles"
                             : "nothing to do: all triangles may stay",
                "nothing_to_do"};
    }
    if (report.is_reached) return {"target reached", "target"};
    if (checked.is_eased) {
        return {"with fewer triangles the surface would cross itself, " +
                    place_text(checked.crossing_place),
                "crossing"};
    }
    std::string text;
    for (const ReductionRule& rule : rules(report, is_automatic)) {
        if (rule.count == 0) continue;
        text += text.empty() ? "no edge left that may go: " : ", ";
        text += with_separators(rule.count) + " " + rule.text;
    }
    if (text.empty()) return {"no edge left that may go: no shape of fewer triangles", "shape"};
    return {text, std::string(rules(report, is_automatic).front().key)};
}

CheckedReduceReport reduce_mesh(TriMesh& mesh, const ReduceJob& options, Progress progress) {
    if (options.automatic) {
        TriMesh source = copy_mesh(mesh);
        CheckedReduceReport report;
        const ProgressObserver share = [&](std::uint32_t percent) {
            progress.set(percent * kReducedPercent / 100);
        };
        report.reduction = povmesh::reduce(mesh, kReduceScans, Progress(nullptr, &share));
        if (report.reduction.faces_after != report.reduction.faces_before) {
            report.faults = find_new_faults(source, mesh);
        }
        progress.set(100);
        return report;
    }
    const double target =
        options.keep ? *options.keep : options.faces / static_cast<double>(live_face_count(mesh));
    RunLog log;
    RunContext run{progress, log};
    return reduce_checked(mesh, target, run);
}

}  // namespace

Status reduce(TriMesh& mesh, const ReduceJob& options, Progress progress, ReduceDone& done) {
    const auto count = static_cast<double>(live_face_count(mesh));
    const double volume_before = volume(mesh);
    const Timer timer;
    const ProgressObserver scaled = [&](std::uint32_t percent) {
        progress.set(50 + percent * 3 / 10);
    };
    done.checked = reduce_mesh(mesh, options, Progress(nullptr, &scaled));
    done.seconds = timer.seconds();
    add_faults(done.checked.faults, volume_before, mesh, kNotableVolume, done);
    std::tie(done.end_text, done.end_key) = end_of(done.checked, options.automatic);
    done.kept = static_cast<double>(live_face_count(mesh)) / count;
    done.rules = rules(done.checked.reduction, options.automatic);
    return {};
}

}  // namespace povmesh::job
