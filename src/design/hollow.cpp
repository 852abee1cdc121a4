// Hollowing by voxels: the model is voxelised and filled, eroded by the layers of the wall, and cut
// back by an exact distance from the outside; the boundary of the rest is smoothed once and
// reduced, with ever gentler numbers until it stays beside its voxels and nowhere crosses itself.
#include "design/hollow.h"

#include <limits>
#include <optional>
#include <string>

#include "base/timer.h"
#include "design/cavity_core.h"
#include "design/cavity_surface.h"
#include "design/smooth.h"
#include "mesh/copy_mesh.h"
#include "mesh/volume.h"
#include "voxel/surface.h"

namespace povmesh {
namespace {

// Of a voxel, that a wall has.
constexpr double kLeastShare = 0.25;

constexpr double kAnyWall = std::numeric_limits<double>::infinity();

// The making of a cavity's surface out of its voxels.
class CavityMaker {
public:
    CavityMaker(VoxelGrid& core, const CavityWall* wall, const HollowOptions& options)
        : core_(core), wall_(wall), options_(options) {}

    /// Until the cavity keeps clear of the model, voxels that are too near are dropped. False when
    /// some still are after many rounds. With fewer than kFewestVoxels the mesh is of no use.
    bool run(TriMesh& mesh, RunContext& run) {
        for (int round = 0; round < kMostRounds; ++round) {
            // Only the last export counts.
            std::string text;
            RunLog log([&text](std::string_view part) { text += part; });
            RunContext quiet{{}, log};
            export_voxels(mesh, core_, quiet);
            const bool is_left = core_.size() >= kFewestVoxels;
            if (is_left && round == 0) run.progress.set(70);
            if (is_left) smooth_voxel_surface(mesh);
            if (is_left && round == 0) run.progress.set(80);
            if (is_left && !finish(mesh)) continue;
            run.log.append(text);
            return true;
        }
        return false;
    }

    double smallest_wall() const { return smallest_wall_; }

private:
    // What thins the wall is not handed out. False when voxels had to be dropped.
    bool finish(TriMesh& mesh) {
        bool is_clear = wall_ == nullptr;
        if (options_.is_reduced) {
            const TriMesh whole = copy_mesh(mesh);
            const Verdict verdict = reduce_boundary(whole, core_, mesh, [&](const TriMesh& made) {
                if (stands(made)) return Verdict::Take;
                // It may be the fault of the voxels.
                if (!is_clear && drop_voxels_too_near(core_, whole, *wall_)) return Verdict::Stop;
                is_clear = true;
                return Verdict::TryNext;
            });
            if (verdict != Verdict::TryNext) return verdict == Verdict::Take;
        }
        if (!is_clear && drop_voxels_too_near(core_, mesh, *wall_)) return false;
        measure(mesh, kAnyWall);
        return true;
    }

    bool stands(const TriMesh& mesh) {
        if (wall_ == nullptr) return true;
        measure(mesh, options_.measures_wall ? kAnyWall : wall_->least);
        return smallest_wall_ >= wall_->least;
    }

    void measure(const TriMesh& mesh, double limit) {
        if (wall_ == nullptr || (limit == kAnyWall && !options_.measures_wall)) return;
        smallest_wall_ = wall_->gauge.least_distance(mesh, limit);
    }

    VoxelGrid& core_;
    const CavityWall* wall_;
    const HollowOptions& options_;
    double smallest_wall_ = 0;
};

}  // namespace

HollowReport hollow(TriMesh& mesh, float thickness, RunContext& run, const HollowOptions& options) {
    HollowReport report;
    run.progress.set(10);
    run.log.start("light weight");
    run.log.value("thickness", double{thickness});
    const Timer timer;
    report.model_volume = volume(mesh);
    const float size = cavity_voxel_size(mesh, report.model_volume, run);
    report.voxel_size = double{size};
    report.layers = wall_layers(double{thickness}, report.voxel_size);
    // Voxels as wide as the contract has them are never so large: coordinates are wild, and what
    // would be made has nothing to do with the wall that is asked for.
    report.is_too_thin = report.layers >= 1 && double{thickness} < kLeastShare * report.voxel_size;
    if (report.is_too_thin) {
        mesh = {};
        run.log.caution("hollow nothing!\n");
        return report;
    }
    VoxelGrid core = cavity_core(mesh, size, double{thickness}, report.layers, run);
    std::optional<CavityWall> wall;
    if (report.layers >= 1 && core.size() >= kFewestVoxels) {
        wall.emplace(mesh, double{thickness}, report.voxel_size);
    }
    CavityMaker maker(core, wall ? &*wall : nullptr, options);
    report.is_crossing = !maker.run(mesh, run);
    report.voxels = core.size();
    if (report.voxels < kFewestVoxels || report.is_crossing) {
        mesh = {};
        run.log.caution("hollow nothing!\n");
        return report;
    }
    run.progress.set(85);
    report.is_hollowed = true;
    if (wall && options.measures_wall) report.smallest_wall = maker.smallest_wall();
    report.cavity_volume = volume(mesh);
    run.log.value("hollow volume",
                  six_decimals(report.cavity_volume / report.model_volume * 100) + " %");
    run.log.success("light weight", timer.seconds(), " sec.");
    return report;
}

}  // namespace povmesh
