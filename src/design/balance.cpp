// Decided is on the smoothed surface of the carved voxels, before it is reduced: by `balance` and
// its preview alike, so that they never differ. The reduced surface then has to keep what was
// promised; where none does, the smoothed one is handed out.
#include "design/balance.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <string_view>

#include "base/convert.h"
#include "base/parallel.h"
#include "base/timer.h"
#include "design/carve_plane.h"
#include "design/cavity_core.h"
#include "design/cavity_surface.h"
#include "mesh/append_mesh.h"
#include "mesh/volume.h"
#include "voxel/passes.h"
#include "voxel/voxel_pieces.h"
#include "voxel/wall.h"

namespace povmesh {
namespace {

// Thinner walls have no layer of voxels.
constexpr double kThinnestWall = 0.5;

// Degrees that a model gains at least, and that reducing the surface may take back.
constexpr double kLeastGain = 0.1;
constexpr double kMostLost = 0.05;

// Cells that the faces of a model pass. A surface that passes more is noise, of which a grid would
// take minutes.
constexpr double kMostCellsPassed = 0x1p27;

// Share of the cubed diagonal of its box that a solid has at least.
constexpr double kLeastSolid = 1e-9;

double finite_area(const TriMesh& mesh) {
    return blocked_sum(mesh.faces.size(), [&](std::size_t f) {
        const double area = mesh.faces[f].deleted != 0 ? 0 : face_area(mesh, mesh.faces[f]);
        return std::isfinite(area) ? area : 0;
    });
}

class Balancer {
public:
    Balancer(const TriMesh& mesh, float thickness, std::string_view name,
             const BalanceOptions& options, RunContext& run)
        : mesh_(mesh),
          thickness_(std::max(double{thickness}, kThinnestWall)),
          can_carve_(thickness > 0 && std::isfinite(thickness)),
          name_(name),
          options_(options),
          run_(run) {
        run.log.start(name);
        run.log.value("thickness", double{thickness});
    }

    /// The report but for the finished surface; with the boundary of the voxels when carved.
    void decide() {
        report.base = base_of(mesh_);
        const SolidMass solid = mass_of(mesh_, report.base.middle);
        const double cube = std::pow(report.base.diagonal, 3);
        if (!(solid.volume > kLeastSolid * cube)) {
            report = {};
            return;
        }
        report.model_volume = solid.volume;
        before_ = solid;
        report.status = BalanceStatus::Stands;
        report.before = report.after = standing_of(before_);
        if (options_.infill == 1 && report.before.tilt >= options_.firm) return;
        if (can_carve_) make_core();
        run_.progress.set(30);
        report.before = report.after = standing_of(before_);
        if (report.before.tilt >= options_.firm) return;
        if (core_.size() >= kFewestVoxels) carve();
        run_.progress.set(60);
        if (report.status == BalanceStatus::Carved) return;
        if (report.before.tilt < kStands) {
            report.status = BalanceStatus::Falls;
        } else {
            report.after = report.before;
        }
    }

    /// The surface of the cavities, wound outward, of a model that is carved.
    TriMesh cavities() {
        run_.progress.set(70);
        TriMesh cavities;
        (void)reduce_boundary(boundary_, core_, cavities, [&](const TriMesh& reduced) {
            return is_kept(reduced) ? Verdict::Take : Verdict::TryNext;
        });
        run_.progress.set(80);
        const SolidMass carved = mass_of(cavities, report.base.middle);
        report.cavity_volume = carved.volume;
        report.after = standing_of(before_ - carved * options_.infill);
        if (options_.measures_wall) {
            report.smallest_wall = wall_->gauge.least_distance(cavities);
        }
        return cavities;
    }

    void log_result() const {
        const RunLog& log = run_.log;
        if (report.status != BalanceStatus::NoModel) log.value("tilt before", report.before.tilt);
        switch (report.status) {
            case BalanceStatus::Carved:
                log.value("tilt after", report.after.tilt);
                log.value("hollow volume",
                          six_decimals(report.cavity_volume / report.model_volume * 100) + " %");
                return log.success(name_, timer_.seconds());
            case BalanceStatus::Falls:
                log.value("tilt after", report.after.tilt);
                return log.failure(name_, "the centre of mass stays outside the base ");
            default:
                return log.caution("balance nothing!\n");
        }
    }

    BalanceReport report;

private:
    Standing standing_of(const SolidMass& mass) const {
        return stand_on(report.base, report.base.middle + mass.centre());
    }

    // What is in the core is not solid when it is printed with an infill.
    void make_core() {
        const float size = cavity_voxel_size(mesh_, volume(mesh_), run_);
        report.voxel_size = double{size};
        if (finite_area(mesh_) > kMostCellsPassed * report.voxel_size * report.voxel_size) return;
        report.layers = std::max(wall_layers(thickness_, report.voxel_size), 1);
        RunContext quiet{{}, run_.log};
        core_ = cavity_core(mesh_, size, thickness_, report.layers, quiet);
        report.core_voxels = core_.size();
        if (options_.infill == 1) return;
        const SolidMass printed = before_ - mass_of_core() * (1 - options_.infill);
        // Of overlapping bodies the core can weigh more than the faces tell.
        if (printed.volume > 0) before_ = printed;
    }

    SolidMass mass_of_core() const {
        SolidMass sum;
        const Vec3d origin = to_double(core_.origin()) - report.base.middle;
        core_.for_each([&](const Voxel& voxel) {
            ++sum.volume;
            sum.moment = sum.moment + origin + to_double(voxel.centre);
        });
        return sum * std::pow(report.voxel_size, 3);
    }

    // Takes the carved voxels' surface when the model stands better with it.
    void carve() {
        const CarveTask task{core_, report.base, report.base.middle, before_,
                             std::pow(report.voxel_size, 3) * options_.infill};
        const CarvePlane plane = find_carve_plane(task);
        if (plane.last_step < 0) return;
        if (plane.standing.tilt > report.before.tilt) report.after = plane.standing;
        if (!is_worth_it(plane.standing.tilt)) return;
        keep_beyond(plane);
        if (!make_boundary()) return;
        const SolidMass carved = mass_of(boundary_, report.base.middle);
        const SolidMass left = before_ - carved * options_.infill;
        if (!(left.volume > 0)) return;
        const Standing standing = standing_of(left);
        if (!is_worth_it(standing.tilt)) return;
        report.after = standing;
        report.cavity_volume = carved.volume;
        report.status = BalanceStatus::Carved;
    }

    bool is_worth_it(double tilt) const {
        return tilt >= std::max(kStands, report.before.tilt) + kLeastGain;
    }

    void keep_beyond(const CarvePlane& plane) {
        VoxelGrid::Words stays(core_.word_count(), 0);
        const Vec3d origin = to_double(core_.origin()) - report.base.middle;
        core_.for_each([&](const Voxel& voxel) {
            if (plane.carves(origin + to_double(voxel.centre))) return;
            const std::size_t cell = core_.cell_of(voxel.index);
            stays[cell / 64] |= std::uint64_t{1} << (cell % 64);
        });
        drop_cells(core_, stays);
        drop_edge_contacts(core_);
    }

    void drop_small_pieces() {
        const VoxelPieces pieces(core_);
        VoxelGrid::Words small(core_.word_count(), 0);
        for (std::size_t piece = 0; piece < pieces.size(); ++piece) {
            if (pieces.voxel_count(piece) >= kFewestVoxels) continue;
            pieces.for_each_cell(piece, [&](std::size_t cell) {
                small[cell / 64] |= std::uint64_t{1} << (cell % 64);
            });
        }
        drop_cells(core_, small);
    }

    // Of what is left in the core: false when that is nothing, or comes too near to the model.
    bool make_boundary() {
        wall_.emplace(mesh_, thickness_, report.voxel_size);
        RunLog unheard;
        RunContext quiet{{}, unheard};
        for (int round = 0; round < kMostRounds; ++round) {
            drop_small_pieces();
            if (core_.is_empty()) return false;
            mark_exposed_sides(core_);
            smoothed_boundary(core_, boundary_, quiet);
            if (!drop_voxels_too_near(core_, boundary_, *wall_)) return true;
        }
        return false;
    }

    bool is_kept(const TriMesh& reduced) const {
        const SolidMass carved = mass_of(reduced, report.base.middle);
        const double tilt = standing_of(before_ - carved * options_.infill).tilt;
        return tilt >= report.after.tilt - kMostLost &&
               wall_->gauge.least_distance(reduced, wall_->least) >= wall_->least;
    }

    const TriMesh& mesh_;
    double thickness_;
    bool can_carve_;
    std::string_view name_;
    const BalanceOptions& options_;
    RunContext& run_;
    Timer timer_;
    SolidMass before_;  // about the middle of the base's box, as all masses here
    VoxelGrid core_;    // once carved, the cavities
    std::optional<CavityWall> wall_;
    TriMesh boundary_;
};

}  // namespace

BalanceReport balance(TriMesh& mesh, float thickness, RunContext& run,
                      const BalanceOptions& options) {
    Balancer balancer(mesh, thickness, "balancing", options, run);
    balancer.decide();
    if (balancer.report.status == BalanceStatus::Carved) {
        const TriMesh cavities = balancer.cavities();
        append_mesh(mesh, cavities, AppendWinding::Reversed);
        run.progress.set(85);
    }
    balancer.log_result();
    return balancer.report;
}

BalanceReport preview_balance(const TriMesh& mesh, float thickness, RunContext& run,
                              const BalanceOptions& options) {
    Balancer balancer(mesh, thickness, "balancing preview", options, run);
    balancer.decide();
    balancer.log_result();
    return balancer.report;
}

Array<Vec3f> points_of(const BalanceReport& report) {
    Array<Vec3f> points;
    const auto add = [&](Vec3d p) {
        points.push_back({narrow_to_float(p.x), narrow_to_float(p.y), narrow_to_float(p.z)});
    };
    if (report.status == BalanceStatus::NoModel) return points;
    add(report.before.centre);
    add(report.after.centre);
    add(report.before.nearest);
    add(report.after.nearest);
    for (const Point2d corner : report.base.corners) add({corner.x, corner.y, report.base.plate});
    return points;
}

}  // namespace povmesh
