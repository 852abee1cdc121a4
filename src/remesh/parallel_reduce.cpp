// The shells one by one: small ones side by side with a thread each, large ones after another with
// all threads on each. How one shell is reduced stands in shell_reducer.h.
//
// Source: M. Garland and P. Heckbert, Surface simplification using quadric error metrics, SIGGRAPH
// 1997, with independent sets of collapses in place of the queue.
#include "remesh/parallel_reduce.h"

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "base/parallel.h"
#include "mesh/compact.h"
#include "remesh/corner_attributes.h"
#include "remesh/reduction_target.h"
#include "remesh/shell_reducer.h"

namespace povmesh {
namespace {

// What is done, in percent, when the edges have their costs, and when none is left to collapse.
constexpr std::size_t kPreparedPercent = 30;
constexpr std::size_t kCollapsedPercent = 90;

// Counts the faces that go, on any thread, and tells the share on that which it was made on.
class FacesGone {
public:
    FacesGone(Progress progress, std::size_t aimed)
        : progress_(progress), aimed_(std::max<std::size_t>(aimed, 1)) {
        add(0);
    }

    void add(std::size_t faces) {
        const std::size_t gone = gone_.fetch_add(faces, std::memory_order_relaxed) + faces;
        if (std::this_thread::get_id() != thread_) return;
        constexpr std::size_t kSpan = kCollapsedPercent - kPreparedPercent;
        progress_.set(static_cast<std::uint32_t>(kPreparedPercent + kSpan * gone / aimed_));
    }

private:
    Progress progress_;
    std::size_t aimed_;
    std::thread::id thread_ = std::this_thread::get_id();
    std::atomic<std::size_t> gone_ = 0;
};

template <typename Quadric>
std::size_t reduce_shells(TriMesh& mesh, const ParallelReduceOptions& options,
                          ReduceReport& report) {
    ReductionField<Quadric> field(mesh,
                                  options.thins_borders ? OpenBorders::Ghosts : OpenBorders::Fixed);
    field.limit_movement(options.most_movement);
    std::vector<ShellTally> tallies(mesh.shells.size());
    const auto to_delete = [&](std::size_t shell) {
        return faces_to_delete(mesh.shells[shell].size(), options.keep, options.least_keep);
    };
    std::size_t aimed = 0;
    for (std::size_t shell = 0; shell < mesh.shells.size(); ++shell) aimed += to_delete(shell);
    FacesGone gone(options.progress, aimed);
    const auto work = [&](std::size_t shell) {
        const std::size_t wanted = to_delete(shell);
        if (wanted == 0) return;
        const Array<std::uint32_t>& offsets = field.corners.offsets;
        ShellReducer<Quadric> reducer(field, offsets[shell], offsets[shell + 1],
                                      options.makes_no_slivers);
        tallies[shell] = reducer.run(wanted, [&](std::size_t faces) { gone.add(faces); });
    };
    for_blocks(mesh.shells.size(), [&](std::size_t shell) {
        if (mesh.shells[shell].size() > kSmallShell) return;
        const OneThread here;  // a round takes less time than waking the others
        work(shell);
    });
    std::size_t rounds = 0;
    for (std::size_t shell = 0; shell < mesh.shells.size(); ++shell) {
        if (mesh.shells[shell].size() > kSmallShell) work(shell);
        const ShellTally& tally = tallies[shell];
        rounds = std::max(rounds, tally.rounds);
        report.faces_aimed -= to_delete(shell);
        report.faces_after -= tally.deleted;
        report.link += tally.links;
        report.normal_limit += tally.folds;
        report.slivers += tally.slivers;
        report.movement += tally.moves;
        report.held_edges += tally.held;
        report.seam_edges += tally.seams;
        if (tally.deleted < to_delete(shell)) report.is_reached = false;
    }
    for (Face& face : mesh.faces) face.deleted = 1;
    for (std::size_t t = 0; t < field.corners.triangles.size(); ++t) {
        if (field.corners.is_gone(t) || field.corners.is_ghost(t)) continue;
        Face& face = mesh.faces[field.corners.faces[t]];
        face.deleted = 0;
        face.vertex = field.corners.triangles[t];
    }
    if constexpr (Quadric::kHasAttributes) {
        store_wedges(field.wedges, field.corners, kAttributeScale, mesh);
    }
    return rounds;
}

}  // namespace

ReduceReport reduce_parallel(TriMesh& mesh, const ParallelReduceOptions& options, RunContext& run) {
    ReduceReport report;
    report.faces_before = report.faces_aimed = report.faces_after = live_face_count(mesh);
    const bool is_coloured = has_varied_attributes(mesh);
    if (options.keep < kKeepsAll && report.faces_before != 0) {
        const std::size_t rounds = is_coloured
                                       ? reduce_shells<AttributeQuadric>(mesh, options, report)
                                       : reduce_shells<PositionQuadric>(mesh, options, report);
        report.rounds = rounds;
        const std::size_t removed = report.faces_before - report.faces_after;
        run.log.append("[meshReduceFromData] random reduce step = " + std::to_string(rounds));
        run.log.append("[meshReduceFromData] random reduced fn = " + std::to_string(removed));
        if (is_coloured) run.log.append("[meshReduceFromData] is_colored\n");
    }

    compact(mesh);
    build_uses(mesh);
    options.progress.set(100);
    return report;
}

}  // namespace povmesh
