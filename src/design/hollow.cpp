// Hollowing by voxels: the model is voxelised and filled, eroded by the layers of the wall, and cut
// back by an exact distance from the outside; the boundary of the rest is smoothed once and
// reduced, with ever gentler numbers until it stays beside its voxels and nowhere crosses itself.
#include "design/hollow.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <string>

#include "base/convert.h"
#include "base/timer.h"
#include "design/mend_slivers.h"
#include "design/smooth.h"
#include "design/wall_gauge.h"
#include "mesh/volume.h"
#include "remesh/reduce.h"
#include "spatial/self_intersection.h"
#include "voxel/distance.h"
#include "voxel/outside.h"
#include "voxel/passes.h"
#include "voxel/surface.h"
#include "voxel/voxelise.h"
#include "voxel/wall.h"

namespace povmesh {
namespace {

// Voxels that a solid model gets. The exponent is not quite one third: hosts rely on the sizes.
constexpr double kVoxelsOfASolid = 1.2e6;
constexpr double kSizeExponent = 0.33;
constexpr double kSmallestVoxel = 0.4;
constexpr double kLargestVoxel = 2.0;

// About a gigabyte with distances, 3 bytes a cell.
constexpr std::int64_t kMostCellsOfASolid = std::int64_t{1} << 28;

// Walls of fewer layers get rid of spikes and ridges first.
constexpr std::int32_t kLayersOfAThickWall = 5;
constexpr std::int32_t kSpurs = 2;

// Squared distance to the outside, in voxels, below which a surface is the outer one. Beyond it,
// plain surfaces have no voxel; what it leaves out of narrow slits is found on the finished
// surface.
constexpr std::int64_t kOuterSurface = 13;

constexpr std::size_t kFewestVoxels = 100;

// As few faces as they allow: what hosts know. The grain of the voxels lets few edges pass the
// normal limit, so the reduction goes on with those at any cost: on curved walls it strays by up to
// three voxels, and in narrow places sheets come to cross each other. The next one allows larger
// turns, so that it finds cheap edges everywhere: fewer faces, and nearer to the voxels.
constexpr std::array kReductions = {ReduceOptions{0.0, 0.05, 0.9}, ReduceOptions{0.1, 0.05, 0.5},
                                    ReduceOptions{0.25, 0.05, 0.7}, ReduceOptions{0.5, 0.05, 0.9}};

// Surfaces of more faces begin with the third one: a try takes seconds there, and on the grain of a
// curved surface of that size the first two hardly ever hold.
constexpr std::size_t kLargeSurface = 500000;
constexpr std::size_t kFirstOfLarge = 2;

// The wall may be thinner than asked for by so many voxels, but is never thinner than this share of
// one.
constexpr double kMostMissing = 2;
constexpr double kLeastWall = 0.1;

// Rounds in which voxels too near to the model are dropped. One or two do where the wall rule
// missed a surface, which lies near the outside then.
constexpr int kMostRounds = 16;

// Share of the area that may lie off the surface of the voxels, by half a voxel or more.
constexpr double kMostStrayed = 0.01;

float voxel_size(const TriMesh& mesh, double model_volume, RunContext& run) {
    const double size = std::pow(model_volume / kVoxelsOfASolid, kSizeExponent);
    const auto edge = static_cast<float>(std::clamp(size, kSmallestVoxel, kLargestVoxel));
    return affordable_size(model_box(mesh), {edge, edge, edge}, kMostCellsOfASolid, run).x;
}

std::int32_t layer_count(double thickness, double size) {
    return saturate_to<std::int32_t>((thickness - 0.5) / size + 1.0);
}

// The voxels of the cavity.
VoxelGrid core_of(const TriMesh& mesh, float size, double thickness, HollowReport& report,
                  RunContext& run) {
    VoxelGrid::Words surface;
    VoxelGrid grid = voxelise(mesh, {{size, size, size}}, run, &surface);
    run.progress.set(30);
    fill_rows(grid, FillColour::White);
    refresh_outside(grid);
    VoxelGrid::Words outside = grid.outside();
    if (report.layers >= 1 && !grid.is_empty()) {
        const VoxelGrid::Words inner = inner_surface(grid, surface, kOuterSurface);
        for (std::size_t w = 0; w < outside.size(); ++w) outside[w] |= inner[w];
    }
    run.progress.set(40);
    if (report.layers < kLayersOfAThickWall) remove_spurs(grid, kSpurs);
    run.progress.set(50);
    erode(grid, report.layers);
    if (report.layers >= 1) {
        drop_cells(grid, cells_within(grid, outside, wall_limit(thickness, report.voxel_size)));
        drop_edge_contacts(grid);
    }
    run.progress.set(60);
    mark_exposed_sides(grid, kSurfaceLine, run);
    return grid;
}

// How many layers of cells lie at least between a point and the surface of the voxels: 2, 1 or 0,
// which is when the eight cells around the point are not all of a kind.
int layers_off(const VoxelGrid& core, Vec3d point) {
    const Vec3d p = point - to_double(core.origin());
    const double size = static_cast<double>(core.settings().size.x);
    const auto floor_of = [&](double c) { return saturate_to<std::int32_t>(std::floor(c / size)); };
    const VoxelIndex low = {floor_of(p.x), floor_of(p.y), floor_of(p.z)};
    const auto is_mixed = [&](std::int32_t margin) {
        std::size_t voxels = 0;
        std::size_t cells = 0;
        for (std::int32_t z = low.z - margin; z <= low.z + 1 + margin; ++z) {
            for (std::int32_t y = low.y - margin; y <= low.y + 1 + margin; ++y) {
                for (std::int32_t x = low.x - margin; x <= low.x + 1 + margin; ++x) {
                    voxels += core.contains({x, y, z}) ? 1 : 0;
                    ++cells;
                }
            }
        }
        return voxels != 0 && voxels != cells;
    };
    if (is_mixed(0)) return 0;
    return is_mixed(1) ? 1 : 2;
}

// Looks at the corners of every face, the middles of its edges and its centre.
bool follows(const TriMesh& mesh, const VoxelGrid& core) {
    double area = 0;
    double strayed = 0;
    for (const Face& face : mesh.faces) {
        std::array<Vec3d, 7> points;
        for (std::size_t i = 0; i < 3; ++i) points[i] = to_double(mesh.corner_position(face, i));
        for (std::size_t i = 0; i < 3; ++i)
            points[3 + i] = (points[i] + points[next_corner(i)]) * 0.5;
        points[6] = (points[0] + points[1] + points[2]) / 3.0;
        const double share =
            length(cross(points[1] - points[0], points[2] - points[0])) / points.size();
        for (const Vec3d& point : points) {
            const int layers = layers_off(core, point);
            if (layers > 1) return false;
            area += share;
            if (layers == 1) strayed += share;
        }
    }
    return strayed <= kMostStrayed * area;
}

// The wall between a model and its cavity, as thin as it may be.
struct Wall {
    WallGauge gauge;
    double least;  // model units

    Wall(const TriMesh& model, double thickness, double voxel_size)
        : gauge(model),
          least(std::max(thickness - kMostMissing * voxel_size, kLeastWall * voxel_size)) {}
};

// Drops the voxels around the corners of these faces, which smoothing has moved by less than half a
// voxel.
void drop_voxels_at(VoxelGrid& core, const TriMesh& surface, const Array<std::uint8_t>& is_near) {
    const Vec3d half = to_double(core.settings().size) * 0.5;
    for (std::size_t f = 0; f < is_near.size(); ++f) {
        if (is_near[f] == 0) continue;
        for (std::size_t i = 0; i < 3; ++i) {
            const Vec3d p =
                to_double(surface.corner_position(surface.faces[f], i)) - to_double(core.origin());
            for (unsigned corner = 0; corner < 8; ++corner) {
                const Vec3d off{(corner & 1U) != 0 ? half.x : -half.x,
                                (corner & 2U) != 0 ? half.y : -half.y,
                                (corner & 4U) != 0 ? half.z : -half.z};
                core.erase(core.index_at(p + off));
            }
        }
    }
    drop_edge_contacts(core);
    mark_exposed_sides(core);
}

// The making of a cavity's surface out of its voxels.
class CavityMaker {
public:
    CavityMaker(VoxelGrid& core, const Wall* wall, const HollowOptions& options)
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
    // Collapsing edges keeps the surface a manifold, no more than that. What strays from the
    // voxels, crosses itself, thins the wall or has slivers is not handed out. False when voxels
    // had to be dropped.
    bool finish(TriMesh& mesh) {
        const TriMesh whole = mesh;
        bool is_clear = wall_ == nullptr;
        const std::size_t first = whole.faces.size() > kLargeSurface ? kFirstOfLarge : 0;
        for (std::size_t i = first; options_.is_reduced && i < kReductions.size(); ++i) {
            (void)reduce(mesh, kReductions[i]);
            if (mend_slivers(mesh) == 0 && follows(mesh, core_) &&
                find_self_intersections(mesh, 0).count == 0) {
                if (stands(mesh)) return true;
                // It may be the fault of the voxels.
                if (!is_clear && !clear(whole)) return false;
                is_clear = true;
            }
            mesh = whole;
        }
        if (!is_clear && !clear(whole)) return false;
        measure(mesh, std::numeric_limits<double>::infinity());
        return true;
    }

    bool stands(const TriMesh& mesh) {
        if (wall_ == nullptr) return true;
        measure(mesh,
                options_.measures_wall ? std::numeric_limits<double>::infinity() : wall_->least);
        return smallest_wall_ >= wall_->least;
    }

    void measure(const TriMesh& mesh, double limit) {
        if (wall_ == nullptr || (std::isinf(limit) && !options_.measures_wall)) return;
        smallest_wall_ = wall_->gauge.least_distance(mesh, limit);
    }

    // Whether the voxels leave the wall; if not, those that are too near are dropped.
    bool clear(const TriMesh& whole) {
        const Array<std::uint8_t> is_near = wall_->gauge.faces_nearer_than(whole, wall_->least);
        if (std::find(is_near.begin(), is_near.end(), 1) == is_near.end()) return true;
        drop_voxels_at(core_, whole, is_near);
        return false;
    }

    VoxelGrid& core_;
    const Wall* wall_;
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
    const float size = voxel_size(mesh, report.model_volume, run);
    report.voxel_size = double{size};
    report.layers = layer_count(double{thickness}, report.voxel_size);
    VoxelGrid core = core_of(mesh, size, double{thickness}, report, run);
    std::optional<Wall> wall;
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
