#include "design/carve_plane.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numbers>
#include <vector>

#include "base/array.h"
#include "base/convert.h"
#include "base/parallel.h"

namespace povmesh {
namespace {

constexpr std::size_t kDirections = 162;

// Voxels as so many blocks, and levels of a plane: to choose among the directions, to improve one,
// to choose the level. The first two are the price of a search in a small model.
constexpr std::size_t kCoarseBlocks = 5000;
constexpr std::size_t kFineBlocks = 40000;
constexpr int kCoarseSteps = 128;
constexpr int kFineSteps = 512;
constexpr int kFinalSteps = 1024;
constexpr std::size_t kImproved = 3;
constexpr std::size_t kTangents = 6;
constexpr double kDegree = std::numbers::pi / 180;
constexpr double kFirstTurn = 6 * kDegree;
constexpr double kLastTurn = 0.3 * kDegree;
constexpr int kMostTurns = 64;  // of one direction; a dozen are made

// Overlapping bodies and open meshes have cores that weigh more than their faces tell; at least
// this share of the model must be left.
constexpr double kLeastLeft = 1e-3;

// Some voxels, as one.
struct Block {
    Vec3d middle;  // about the task's point
    double voxels = 0;
};

// The six axes, and the rest spread evenly by the golden angle.
std::vector<Vec3d> directions() {
    std::vector<Vec3d> all = {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}, {-1, 0, 0}, {0, -1, 0}, {0, 0, -1}};
    const std::size_t spread = kDirections - all.size();
    for (std::size_t i = 0; i < spread; ++i) {
        const double z = 1 - (2 * static_cast<double>(i) + 1) / static_cast<double>(spread);
        const double radius = std::sqrt(1 - z * z);
        const double angle = static_cast<double>(i) * std::numbers::pi * (3 - std::sqrt(5.0));
        all.push_back({radius * std::cos(angle), radius * std::sin(angle), z});
    }
    return all;
}

// Inside the base the tangent of the tilt, outside the distance: the one is never below 0, the
// other never above.
double merit_of(double margin, double height) {
    return margin > 0 ? margin / height : margin;
}

class PlaneSearch {
public:
    explicit PlaneSearch(const CarveTask& task) : task_(task), base_(simplified(task.base)) {
        const IndexBox& box = task.core.box();
        low_ = place_of(box.low);
        high_ = place_of(box.high);
        if (base_.corners.size() < 3) return;  // no inside
        for (std::size_t i = 0; i < base_.corners.size(); ++i) {
            const Point2d a = base_.corners[i];
            const Point2d b = base_.corners[(i + 1) % base_.corners.size()];
            const double size = std::hypot(b.x - a.x, b.y - a.y);
            if (!(size > 0)) continue;
            const Point2d inward{-(b.y - a.y) / size, (b.x - a.x) / size};
            edges_.push_back({inward, inward.x * a.x + inward.y * a.y});
        }
    }

    CarvePlane run() const {
        CarvePlane nothing;
        nothing.standing = stand_on(task_.base, task_.about + task_.whole.centre());
        if (task_.core.is_empty()) return nothing;
        const std::vector<Vec3d> starts = best_starts();
        const std::vector<Block> blocks = blocks_of(kFineBlocks);
        std::vector<Found> found(starts.size());
        for_blocks(starts.size(), [&](std::size_t i) { found[i] = improve(starts[i], blocks); });
        const auto best =
            std::max_element(found.begin(), found.end(),
                             [](const Found& a, const Found& b) { return a.merit < b.merit; });
        if (best == found.end()) return nothing;
        CarvePlane plane = all_voxels(best->plane.direction).plane;
        if (plane.last_step < 0) return nothing;
        plane.standing = stand_on(task_.base, plane.standing.centre);
        return plane;
    }

private:
    struct Found {
        CarvePlane plane;
        double merit = 0;
    };

    // By step: how many voxels, and the sum of their places.
    struct Bins {
        explicit Bins(int steps)
            : voxels(static_cast<std::size_t>(steps)), sums(static_cast<std::size_t>(steps)) {}

        std::vector<double> voxels;
        std::vector<Vec3d> sums;

        void add(int step, double count, Vec3d middle) {
            const auto i = static_cast<std::size_t>(step);
            voxels[i] += count;
            sums[i] = sums[i] + middle * count;
        }
    };

    struct Edge {
        Point2d inward;  // of unit length
        double offset;   // of its line along that
        double margin_of(Vec3d p) const { return inward.x * p.x + inward.y * p.y - offset; }
    };

    Vec3d place_of(VoxelIndex i) const {
        return to_double(task_.core.origin()) + to_double(task_.core.centre_of(i)) - task_.about;
    }

    CarvePlane plane_along(Vec3d direction, int steps) const {
        const auto far_end = [&](Vec3d a, Vec3d b) {
            return std::max(direction.x * a.x, direction.x * b.x) +
                   std::max(direction.y * a.y, direction.y * b.y) +
                   std::max(direction.z * a.z, direction.z * b.z);
        };
        CarvePlane plane;
        plane.direction = direction;
        plane.start = far_end(low_, high_);
        const double span = plane.start - -far_end(low_ * -1.0, high_ * -1.0);
        plane.steps = steps;
        plane.steps_per_unit = span > 0 ? steps / span : 0;
        return plane;
    }

    Found sweep(Vec3d direction, const std::vector<Block>& blocks, int steps) const {
        const CarvePlane plane = plane_along(direction, steps);
        Bins bins(steps);
        for (const Block& block : blocks) {
            bins.add(plane.step_of(block.middle), block.voxels, block.middle);
        }
        return best_level(plane, bins);
    }

    Found all_voxels(Vec3d direction) const {
        const CarvePlane plane = plane_along(direction, kFinalSteps);
        Bins bins(kFinalSteps);
        task_.core.for_each([&](const Voxel& voxel) {
            const Vec3d place = place_of(voxel.index);
            bins.add(plane.step_of(place), 1, place);
        });
        return best_level(plane, bins);
    }

    // Goes through the levels, from nothing carved on.
    Found best_level(const CarvePlane& plane, const Bins& bins) const {
        Found best;
        best.plane = plane;
        Vec3d best_centre = task_.about + task_.whole.centre();
        const Standing before = stand_on(base_, best_centre);
        best.merit = merit_of(before.margin, before.height);
        SolidMass left = task_.whole;
        std::size_t tight = 0;  // the edge that was nearest when last looked at
        for (std::size_t step = 0; step < bins.voxels.size(); ++step) {
            if (bins.voxels[step] == 0) continue;
            left = left - SolidMass{bins.voxels[step], bins.sums[step]} * task_.weight_of_voxel;
            if (!(left.volume > kLeastLeft * task_.whole.volume)) break;
            const Vec3d centre = task_.about + left.centre();
            const double merit = merit_above(best.merit, centre, tight);
            if (merit <= best.merit) continue;
            best.merit = merit;
            best_centre = centre;
            best.plane.last_step = static_cast<int>(step);
        }
        best.plane.standing = stand_on(base_, best_centre);
        return best;
    }

    // The merit of a centre of mass; anything lower when it is not above the limit.
    double merit_above(double limit, Vec3d centre, std::size_t& tight) const {
        constexpr double kNone = -std::numeric_limits<double>::infinity();
        const double height = centre.z - base_.plate;
        if (!(height > 0)) return kNone;
        // No margin is larger than the distance from one of the lines. Mostly the line that was
        // nearest before tells that a level is no better.
        if (!edges_.empty()) {
            if (merit_of(edges_[tight].margin_of(centre), height) <= limit) return kNone;
            double least = edges_[tight].margin_of(centre);
            for (std::size_t i = 0; i < edges_.size(); ++i) {
                const double margin = edges_[i].margin_of(centre);
                if (margin >= least) continue;
                least = margin;
                tight = i;
            }
            if (least > 0 || merit_of(least, height) <= limit) return merit_of(least, height);
        }
        return merit_of(stand_on(base_, centre).margin, height);
    }

    // Cubes of so many voxels along an edge that there are about `wanted` of them.
    std::vector<Block> blocks_of(std::size_t wanted) const {
        std::int64_t side = 1;
        while (static_cast<std::int64_t>(task_.core.size()) >
               static_cast<std::int64_t>(wanted) * side * side * side) {
            ++side;
        }
        const IndexBox& box = task_.core.box();
        const auto number = [&](std::int32_t at, std::int32_t low) {
            return (std::int64_t{at} - low) / side;
        };
        const auto columns = static_cast<std::size_t>(number(box.high.x, box.low.x) + 1);
        const auto rows = static_cast<std::size_t>(number(box.high.y, box.low.y) + 1);
        std::vector<Block> blocks;
        std::vector<Block> layer(columns * rows);  // sums, of blocks that are being filled
        std::int64_t current = -1;
        const auto finish_layer = [&] {
            for (Block& block : layer) {
                if (block.voxels > 0) blocks.push_back({block.middle / block.voxels, block.voxels});
                block = {};
            }
        };
        task_.core.for_each([&](const Voxel& voxel) {
            const VoxelIndex i = voxel.index;
            if (number(i.z, box.low.z) != current) {
                finish_layer();
                current = number(i.z, box.low.z);
            }
            Block& block = layer[static_cast<std::size_t>(number(i.y, box.low.y)) * columns +
                                 static_cast<std::size_t>(number(i.x, box.low.x))];
            block.middle = block.middle + place_of(i);
            ++block.voxels;
        });
        finish_layer();
        return blocks;
    }

    std::vector<Vec3d> best_starts() const {
        const std::vector<Block> blocks = blocks_of(kCoarseBlocks);
        const std::vector<Vec3d> all = directions();
        std::vector<double> merits(all.size());
        for_blocks(all.size(),
                   [&](std::size_t i) { merits[i] = sweep(all[i], blocks, kCoarseSteps).merit; });
        std::vector<std::size_t> order(all.size());
        for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
        std::stable_sort(order.begin(), order.end(),
                         [&](std::size_t a, std::size_t b) { return merits[a] > merits[b]; });
        std::vector<Vec3d> starts;
        for (std::size_t i = 0; i < kImproved; ++i) starts.push_back(all[order[i]]);
        return starts;
    }

    Found improve(Vec3d start, const std::vector<Block>& blocks) const {
        Found best = sweep(start, blocks, kFineSteps);
        double turn = kFirstTurn;
        for (int i = 0; i < kMostTurns && turn >= kLastTurn; ++i) {
            const Vec3d w = best.plane.direction;
            const Vec3d off = std::abs(w.z) < 0.9 ? Vec3d{0, 0, 1} : Vec3d{1, 0, 0};
            const Vec3d u = cross(w, off) / length(cross(w, off));
            const Vec3d v = cross(w, u);
            const double before = best.merit;
            for (std::size_t t = 0; t < kTangents; ++t) {
                const double angle = 2 * std::numbers::pi * static_cast<double>(t) / kTangents;
                const Vec3d along = u * std::cos(angle) + v * std::sin(angle);
                const Vec3d turned = w * std::cos(turn) + along * std::sin(turn);
                const Found found = sweep(turned / length(turned), blocks, kFineSteps);
                if (found.merit > best.merit) best = found;
            }
            if (best.merit == before) turn /= 2;
        }
        return best;
    }

    const CarveTask& task_;
    Base base_;
    std::vector<Edge> edges_;  // none when the base is a line or a point
    Vec3d low_, high_;         // of the centres of the core's box
};

}  // namespace

int CarvePlane::step_of(Vec3d place) const {
    const double at = (start - dot(direction, place)) * steps_per_unit;
    return std::clamp(saturate_to<int>(at), 0, steps - 1);
}

CarvePlane find_carve_plane(const CarveTask& task) {
    return PlaneSearch(task).run();
}

}  // namespace povmesh
