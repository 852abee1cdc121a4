// The mesh is cut with planes that were chosen before: for the uniform division from the model's
// box alone, else on a model of cells.
#include "decompose/decompose.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <string>
#include <utility>

#include "base/convert.h"
#include "base/timer.h"
#include "cut/cut.h"
#include "decompose/division_search.h"
#include "decompose/part_size.h"
#include "decompose/solid_cells.h"
#include "mesh/bounds.h"
#include "mesh/shells.h"
#include "mesh/volume.h"
#include "spatial/separation.h"

namespace povmesh {
namespace {

using Parts = std::vector<TriMesh>;

// Cells of the grid of equal slabs that a model may take.
constexpr std::int64_t kMostSlabCells = 32768;

// A vertex counts as lying on a cut when it is nearer than this share of the smallest size.
constexpr double kOnLevel = 1e-5;

Box3d box_of(const TriMesh& mesh) {
    const Box3f box = finite_bounds(mesh);
    return box.is_empty() ? Box3d{} : Box3d{to_double(box.low), to_double(box.high)};
}

double largest(const Box3d& box) {
    const Vec3d extent = box.extent();
    return std::max({extent.x, extent.y, extent.z});
}

bool is_finite_mesh(const TriMesh& mesh) {
    return std::all_of(mesh.vertices.begin(), mesh.vertices.end(), [](const Vertex& v) {
        return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
    });
}

// Of the faces that lie in the plane, as near as vertices may, and look along its axis.
double area_on(const TriMesh& mesh, const DividingPlane& plane, double on_level) {
    const auto offset = static_cast<double>(plane.offset);
    const double reach = on_level + 1e-6 * std::abs(offset);
    double twice = 0;
    for (const Face& face : mesh.faces) {
        std::array<Vec3d, 3> p;
        std::size_t on = 0;
        while (on < 3) {
            p[on] = to_double(mesh.corner_position(face, on));
            if (!(std::abs(along(p[on], plane.axis) - offset) <= reach)) break;
            ++on;
        }
        if (on == 3) twice += std::max(along(cross(p[1] - p[0], p[2] - p[0]), plane.axis), 0.0);
    }
    return twice / 2;
}

// Cuts pieces, and keeps count.
class Cutter {
public:
    Cutter(const PartSize& size, DecomposeReport& report) : size_(size), report_(report) {}

    // Appends the pieces and returns true when the plane divides the piece, which is used up.
    bool cut(TriMesh& piece, const DividingPlane& plane, Parts& pieces) {
        CutOptions options;
        options.operation = CutOperation::CutAndCap;
        options.keep_cavities = true;
        options.on_level = kOnLevel * size_.smallest();
        const auto offset = static_cast<double>(plane.offset);
        const auto vector = [&](double length) {
            return Vec3d{plane.axis == 0 ? length : 0, plane.axis == 1 ? length : 0,
                         plane.axis == 2 ? length : 0};
        };
        options.plane.normal = vector(1);
        options.plane.direction = plane.axis == 0 ? Vec3d{0, 1, 0} : Vec3d{1, 0, 0};
        options.plane.point = vector(offset);
        const std::size_t first = pieces.size();
        const double on_level = std::min(options.on_level, kOnLevel * largest(box_of(piece)));
        const double before = area_on(piece, plane, on_level);
        if (!cut_model(piece, options, pieces)) return false;
        double after = 0;
        for (std::size_t i = first; i < pieces.size(); ++i)
            after += area_on(pieces[i], plane, on_level);
        report_.cut_area += std::max(after - before, 0.0);
        ++report_.cuts;
        return true;
    }

    bool fits(const TriMesh& piece) const { return size_.fits(box_of(piece)); }

private:
    const PartSize& size_;
    DecomposeReport& report_;
};

// The planes between equal slabs of a box, across z from below, then y, then x.
std::vector<DividingPlane> even_planes(const Box3d& box, const PartSize& size) {
    std::vector<DividingPlane> planes;
    for (const std::size_t axis : {2U, 1U, 0U}) {
        const double low = along(box.low, axis);
        const double extent = along(box.high, axis) - low;
        const std::int64_t count = size.slabs(extent, axis);
        for (std::int64_t i = 1; i < count; ++i) {
            const double share = static_cast<double>(i) / static_cast<double>(count);
            planes.push_back(
                {static_cast<std::uint8_t>(axis), narrow_to_float(low + extent * share)});
        }
    }
    return planes;
}

// Whether the slab cells of a box are few enough.
bool has_few_cells(const Box3d& box, const PartSize& size) {
    std::int64_t cells = 1;
    const Vec3d extent = box.extent();
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const std::int64_t slabs = size.slabs(along(extent, axis), axis);
        if (slabs > kMostSlabCells) return false;
        cells *= slabs;
        if (cells > kMostSlabCells) return false;
    }
    return true;
}

// Divides a model piece by piece, each by one plane and then its pieces in their order, so that the
// list of planes alone tells the parts.
class Walk {
public:
    Walk(const PartSize& size, DecomposeReport& report) : size_(size), cutter_(size, report) {}

    std::vector<DividingPlane> planes;
    Parts parts;

    // With the planes of the even division that are left from a number on.
    void divide_evenly(TriMesh piece, const std::vector<DividingPlane>& even, std::size_t first) {
        for (std::size_t i = first; i < even.size() && !cutter_.fits(piece); ++i) {
            Parts pieces;
            if (!cutter_.cut(piece, even[i], pieces)) continue;
            planes.push_back(even[i]);
            for (TriMesh& part : pieces) divide_evenly(std::move(part), even, i + 1);
            return;
        }
        parts.push_back(std::move(piece));
    }

    // By a plan, of which the piece is the part with a number.
    void divide(TriMesh piece, const DivisionPlan& plan, std::uint32_t number) {
        const Box3d box = box_of(piece);
        if (size_.fits(box)) {
            parts.push_back(std::move(piece));
            return;
        }
        for (const DividingPlane& plane : planes_for(box, plan, number)) {
            Parts pieces;
            if (!cutter_.cut(piece, plane, pieces)) continue;
            planes.push_back(plane);
            for (TriMesh& part : pieces) {
                const std::uint32_t next = planned_piece(box_of(part), plan, number);
                divide(std::move(part), plan, next);
            }
            return;
        }
        parts.push_back(std::move(piece));
    }

    // The planned piece that has most of a box, among those that a piece was divided into.
    static std::uint32_t planned_piece(const Box3d& box, const DivisionPlan& plan,
                                       std::uint32_t number) {
        if (number == kUnplanned) return number;
        const std::vector<std::uint32_t>& among =
            number == kRoot ? plan.roots : plan.pieces[number].children;
        std::uint32_t best = number == kRoot ? kUnplanned : number;
        double most = -1;
        for (const std::uint32_t i : among) {
            const double shared = common_volume(box, plan.pieces[i].box);
            if (shared > most) {
                most = shared;
                best = i;
            }
        }
        return best;
    }

    static constexpr std::uint32_t kUnplanned = 0xFFFFFFFF;
    static constexpr std::uint32_t kRoot = 0xFFFFFFFE;

private:
    // A little more than nothing for boxes without thickness.
    static double common_volume(const Box3d& a, const Box3d& b) {
        double volume = 1;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double low = std::max(along(a.low, axis), along(b.low, axis));
            const double high = std::min(along(a.high, axis), along(b.high, axis));
            const double size = along(a.high, axis) - along(a.low, axis);
            volume *= std::max(high - low + 1e-3 * size, 0.0);
        }
        return volume;
    }

    // Those to try, the best first: the plan's next one within the box, then the even cuts, across
    // the axis that is farthest too long first.
    std::vector<DividingPlane> planes_for(const Box3d& box, const DivisionPlan& plan,
                                          std::uint32_t number) const {
        std::vector<DividingPlane> found;
        if (number != kUnplanned) add_planned(box, plan, number, found);
        std::array<std::size_t, 3> axes = {2, 1, 0};
        const Vec3d extent = box.extent();
        std::stable_sort(axes.begin(), axes.end(), [&](std::size_t a, std::size_t b) {
            return along(extent, a) / size_.limit(a) > along(extent, b) / size_.limit(b);
        });
        for (const std::size_t axis : axes) {
            const std::int64_t slabs = size_.slabs(along(extent, axis), axis);
            if (slabs < 2) continue;
            const double share = static_cast<double>(slabs / 2) / static_cast<double>(slabs);
            found.push_back({static_cast<std::uint8_t>(axis),
                             narrow_to_float(along(box.low, axis) + along(extent, axis) * share)});
        }
        return found;
    }

    static void add_planned(const Box3d& box, const DivisionPlan& plan, std::uint32_t number,
                            std::vector<DividingPlane>& found) {
        const PlannedPiece& piece = plan.pieces[number];
        if (!piece.is_divided) return;
        const std::size_t axis = piece.place.axis;
        const double low = along(box.low, axis);
        const double high = along(box.high, axis);
        const double margin = 1e-3 * (high - low);
        if (piece.place.offset > low + margin && piece.place.offset < high - margin) {
            found.push_back({static_cast<std::uint8_t>(axis), narrow_to_float(piece.place.offset)});
            return;
        }
        for (const std::uint32_t child : piece.children) {
            if (!found.empty()) return;
            if (common_volume(box, plan.pieces[child].box) > 0) {
                add_planned(box, plan, child, found);
            }
        }
    }

    const PartSize& size_;
    Cutter cutter_;
};

class Decomposer {
public:
    Decomposer(const DecomposeOptions& options, RunContext& run)
        : options_(options), size_(options.size), run_(run) {}

    DecomposeReport run(TriMesh& mesh) {
        const Timer timer;
        tell_start();
        Parts models = separate(mesh);
        report_.models = models.size();
        run_.log.append("|> Model : Start cut_half_z.");
        std::vector<Work> work;
        for (TriMesh& model : models) {
            work.push_back(start(std::move(model)));
            if (options_.method == DivisionMethod::Uniform) {
                divide_evenly(work.back(), 2, 2);
            } else {
                walk_evenly(work.back());
            }
        }
        run_.log.append("|> Model : End cut_half_z.");
        run_.log.append("|> Model : Start the main while loop.");
        for (Work& model : work) {
            if (options_.method == DivisionMethod::Uniform) {
                divide_evenly(model, 0, 1);
                report_.uniform_parts += model.pieces.size();
            } else {
                walk_by_search(model);
            }
            finish(model, mesh.parts);
        }
        run_.log.append("|> Model : End the main while loop.");
        tell_end(mesh.parts, timer.seconds());
        return report_;
    }

private:
    struct Division {
        Parts parts;
        std::vector<DividingPlane> planes;
        std::size_t cuts = 0;
        double cut_area = 0;
    };

    // A model on its way.
    struct Work {
        Parts pieces;
        std::vector<DividingPlane> planes;  // to be tried
        std::vector<DividingPlane> used;
        Division even;
    };

    // A mesh of one shell is its model as it stands.
    static Parts separate(TriMesh& mesh) {
        label_shells(mesh);
        Parts models;
        if (mesh.shells.size() == 1 && mesh.shells.faces.size() == mesh.faces.size()) {
            mesh.shells.clear();
            mesh.use_table.clear();
            mesh.parts.clear();
            models.push_back(std::exchange(mesh, {}));
            return models;
        }
        build_parts(mesh, group_shells(mesh, {.keep_cavities = true, .all_faces = true}));
        models = std::move(mesh.parts);
        mesh = {};
        return models;
    }

    Work start(TriMesh model) const {
        Work work;
        const Box3d box = box_of(model);
        if (!is_finite_mesh(model)) {
            run_.log.failure("decomposition", "a coordinate is not finite");
        } else if (!has_few_cells(box, size_)) {
            run_.log.failure("decomposition", "too many parts");
        } else {
            work.planes = even_planes(box, size_);
        }
        work.pieces.push_back(std::move(model));
        return work;
    }

    // With the planes across some axes.
    void divide_evenly(Work& work, std::size_t first_axis, std::size_t last_axis) {
        Cutter cutter(size_, report_);
        for (const DividingPlane& plane : work.planes) {
            if (plane.axis < first_axis || plane.axis > last_axis) continue;
            Parts pieces;
            bool any = false;
            for (TriMesh& piece : work.pieces) {
                if (!cutter.fits(piece) && cutter.cut(piece, plane, pieces)) {
                    any = true;
                } else {
                    pieces.push_back(std::move(piece));
                }
            }
            work.pieces.swap(pieces);
            if (any) work.used.push_back(plane);
        }
    }

    // The bound and the fall-back of the search.
    void walk_evenly(Work& work) {
        DecomposeReport report;
        Walk walk(size_, report);
        walk.divide_evenly(work.planes.empty() ? std::move(work.pieces[0]) : work.pieces[0],
                           work.planes, 0);
        report_.uniform_parts += walk.parts.size();
        work.even = {std::move(walk.parts), std::move(walk.planes), report.cuts, report.cut_area};
    }

    void walk_by_search(Work& work) {
        Division best = std::move(work.even);
        if (best.parts.size() > 1) {
            TriMesh& model = work.pieces[0];
            const DivisionPlan plan = plan_division(make_solid(model), size_);
            if (!plan.pieces.empty()) {
                DecomposeReport report;
                Walk walk(size_, report);
                const std::uint32_t root = Walk::planned_piece(box_of(model), plan, Walk::kRoot);
                walk.divide(std::move(model), plan, root);
                const bool is_worse = walk.parts.size() != best.parts.size()
                                          ? walk.parts.size() > best.parts.size()
                                          : report.cut_area > best.cut_area;
                if (!is_worse) {
                    best = {std::move(walk.parts), std::move(walk.planes), report.cuts,
                            report.cut_area};
                }
            }
        }
        work.pieces = std::move(best.parts);
        work.used = std::move(best.planes);
        report_.cuts += best.cuts;
        report_.cut_area += best.cut_area;
    }

    void finish(Work& work, Parts& parts) {
        report_.planes.insert(report_.planes.end(), work.used.begin(), work.used.end());
        for (TriMesh& piece : work.pieces) {
            if (!size_.fits(box_of(piece))) ++report_.too_large;
            parts.push_back(std::move(piece));
        }
    }

    void tell_start() const {
        run_.log.start("decomposition");
        const auto text = [&](std::size_t axis) {
            return std::isinf(size_.limit(axis)) ? "any" : six_decimals(along(options_.size, axis));
        };
        run_.log.value("part size", text(0) + " x " + text(1) + " x " + text(2));
    }

    void tell_end(const Parts& parts, double seconds) const {
        if (report_.too_large != 0) {
            run_.log.caution(std::to_string(report_.too_large) + " parts do not fit\n");
        }
        run_.log.value("parts", std::to_string(parts.size()));
        run_.log.success("decomposition", seconds);
    }

    const DecomposeOptions& options_;
    PartSize size_;
    RunContext& run_;
    DecomposeReport report_;
};

}  // namespace

DecomposeReport decompose(TriMesh& mesh, const DecomposeOptions& options, RunContext& run) {
    return Decomposer(options, run).run(mesh);
}

}  // namespace povmesh
