// The mesh is cut with planes that were chosen before: for the uniform division from the model's
// box alone, else on a model of cells. What a search proposes is tried on the mesh, and the search
// is told what the cells did not show.
#include "decompose/decompose.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

#include "base/heap.h"
#include "base/timer.h"
#include "decompose/division_search.h"
#include "decompose/least_parts.h"
#include "decompose/mesh_division.h"
#include "decompose/part_size.h"
#include "decompose/solid_cells.h"
#include "mesh/edge_mates.h"
#include "mesh/shells.h"
#include "spatial/separation.h"

namespace povmesh {
namespace {

using Parts = std::vector<TriMesh>;

// Cells of the grid of equal slabs that a model may take.
constexpr std::int64_t kMostSlabCells = 32768;

// Plans of one model that are tried on its mesh, and faces that may be cut before the next one is:
// half a second.
constexpr std::size_t kMostPlans = 6;
constexpr std::size_t kFacesToTry = 2'000'000;

// A model of more shells, or one of which cuts had to tell more apart, is a heap of triangles that
// enclose nothing: a search would only repeat what takes long and gains nothing.
constexpr std::size_t kMostShells = 20'000;
constexpr std::size_t kMostShellsCut = 300'000;

// So is one of many shells whose even division has to look at so many faces: about two seconds,
// since each cut tells the shells of what is left apart.
constexpr std::size_t kManyShells = 2'000;
constexpr std::size_t kMostFacesCut = 2'500'000;

// Cells of the solid models of all models together, and those that each has in any case. Of 20,000
// the legs of an animal grow together.
constexpr double kAllCells = 4e6;
constexpr double kFewestCells = 6e4;

bool is_finite_mesh(const TriMesh& mesh) {
    return std::all_of(mesh.vertices.begin(), mesh.vertices.end(), [](const Vertex& v) {
        return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
    });
}

// Whether the slab cells of a box are few enough.
bool has_few_cells(const Box3d& box, const PartSize& size) {
    std::int64_t cells = 1;
    const Vec3d extent = box.extent();
    const Limits& limits = size.best_limits(extent);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const std::int64_t slabs = slab_count(along(extent, axis), limits[axis]);
        if (slabs > kMostSlabCells) return false;
        cells *= slabs;
        if (cells > kMostSlabCells) return false;
    }
    return true;
}

// A plan is better the fewer parts it makes, of equal numbers the fewer crumbs, then the less area.
bool is_better(const Division& a, const Division& b) {
    return a.is_whole && std::make_tuple(a.parts, crumb_count(a), a.cut_area) <
                             std::make_tuple(b.parts, crumb_count(b), b.cut_area);
}

class Decomposer {
public:
    Decomposer(const DecomposeOptions& options, RunContext& run)
        : options_(options), size_(options.size, options.may_turn), run_(run) {}

    DecomposeReport run(TriMesh& mesh) {
        const Timer timer;
        tell_start();
        std::vector<Work> work;
        for (Model& model : separate(mesh)) work.push_back(start(std::move(model)));
        report_.models = work.size();
        run_.log.append("|> Model : Start cut_half_z.");
        for (Work& model : work) divide_evenly(model);
        run_.log.append("|> Model : End cut_half_z.");
        run_.log.append("|> Model : Start the main while loop.");
        if (options_.method == DivisionMethod::Automatic) {
            for (Work& model : work) search(model);
        }
        for (Work& model : work) finish(model, mesh.parts);
        run_.log.append("|> Model : End the main while loop.");
        tell_end(mesh.parts, timer.seconds());
        return report_;
    }

private:
    struct Model {
        TriMesh mesh;
        std::size_t shells;
        std::optional<EdgeMates> mates{};  // of a model of one shell
    };

    // A model on its way.
    struct Work {
        TriMesh model;
        std::optional<EdgeMates> mates;
        bool is_heap;
        PartSize size;                      // for its parts without pegs
        std::vector<DividingPlane> planes;  // to be tried
        std::vector<bool> used;             // by plane
        Division division;
    };

    // A mesh of one shell is its model as it stands.
    static std::vector<Model> separate(TriMesh& mesh) {
        std::vector<Model> models;
        std::optional<EdgeMates> mates = EdgeMates::without_uses(mesh);
        label_shells(mesh, *mates);
        if (mesh.shells.size() == 1 && mesh.shells.faces.size() == mesh.faces.size()) {
            mesh.shells.clear();
            mesh.use_table.release();
            mesh.parts.clear();
            models.push_back({std::exchange(mesh, {}), 1, std::move(mates)});
            return models;
        }
        mates.reset();
        const ShellGroups groups = group_shells(mesh, {.keep_cavities = true, .all_faces = true});
        mesh.use_table.release();
        build_parts(mesh, groups);
        for (std::size_t i = 0; i < mesh.parts.size(); ++i) {
            models.push_back({std::move(mesh.parts[i]), groups[i].size()});
        }
        mesh = {};
        return models;
    }

    Work start(Model model) {
        Work work{std::move(model.mesh), std::move(model.mates), false, size_, {}, {}, {}};
        const Box3d box = box_of(work.model);
        if (wants_pegs()) work.size = size_beside_pegs(box);
        const bool has_few = has_few_cells(box, work.size);
        // What is not going to be divided needs no close bound.
        std::size_t no_effort = 0;
        report_.least_parts +=
            size_.fits(box)
                ? 1
                : least_parts(work.model, size_, has_few ? least_parts_effort_ : no_effort);
        if (!is_finite_mesh(work.model)) {
            run_.log.failure("decomposition", "a coordinate is not finite");
        } else if (!has_few) {
            run_.log.failure("decomposition", "too many parts");
        } else if (!size_.fits(box)) {
            work.planes = even_planes(box, work.size);
            work.is_heap = is_heap(model.shells, work);
            models_to_divide_ += 1;
        }
        return work;
    }

    // Slabs are cut off one after the other: a plane meets half of the faces.
    static bool is_heap(std::size_t shells, const Work& work) {
        const std::size_t faces_cut = work.model.faces.size() * work.planes.size() / 2;
        return shells > kMostShells || (shells > kManyShells && faces_cut > kMostFacesCut);
    }

    bool wants_pegs() const { return options_.pegs.count != 0 && options_.pegs.radius > 0; }

    // Pegs stand out upward, across the axes that have to be divided.
    PartSize size_beside_pegs(const Box3d& box) const {
        Vec3d size = options_.size;
        const Limits& limits = size_.best_limits(box.extent());
        for (std::size_t axis = 0; axis < 3; ++axis) {
            if (!options_.may_turn && along(box.extent(), axis) <= limits[axis]) continue;
            const double wanted = along(options_.size, axis);
            const double left = wanted - kPegLengths * options_.pegs.radius;
            if (left > 0) size = size - along_axis(axis, wanted - left);
        }
        return PartSize(size, options_.may_turn);
    }

    // The whole of the uniform division; the bound and the fall-back of the search.
    void divide_evenly(Work& work) {
        const bool is_searched = options_.method == DivisionMethod::Automatic && !work.is_heap;
        const bool is_last = !is_searched && !wants_pegs();
        const DivisionOrder order{work.size, is_last};
        work.division = povmesh::divide_evenly(work.model, work.planes, order,
                                               std::exchange(work.mates, std::nullopt), &work.used);
        report_.uniform_parts += work.division.parts;
    }

    void search(Work& work) {
        if (work.division.parts < 2 || effort_ == 0) return;
        if (work.is_heap || work.division.shells_cut > kMostShellsCut) return;
        const double share = kAllCells / static_cast<double>(models_to_divide_);
        SolidModel solid =
            make_solid(work.model, std::min(options_.search_cells, std::max(share, kFewestCells)));
        if (work.model.faces.size() > kLargePiece) give_back_freed_memory();
        effort_ -= std::min(effort_, cell_count(solid) / 4);
        DivisionSearch search(std::move(solid), work.size, effort_);
        for (std::size_t i = 0; i < kMostPlans && (i == 0 || faces_to_try_ != 0); ++i) {
            const DivisionPlan plan = search.plan();
            if (plan.pieces.empty() || plan.parts > work.division.parts) return;
            const DivisionOrder order{work.size, false, work.division.parts, &faces_to_try_};
            Division made = divide_by_plan(work.model, plan, search, order);
            const bool is_as_planned =
                made.is_whole && made.parts <= plan.parts && crumb_count(made) == 0;
            if (is_better(made, work.division)) work.division = std::move(made);
            if (is_as_planned) return;
        }
    }

    void finish(Work& work, Parts& parts) {
        Division& division = work.division;
        tell_planes(work);
        PegCounts counts;
        if (division.meshes.empty()) {
            division.meshes =
                repeat_division(std::move(work.model), division, size_, options_.pegs, counts);
        }
        report_.pegs += counts.pegs;
        report_.cuts_without_pegs += counts.cuts_without;
        report_.peg_volume += counts.volume;
        for (TriMesh& part : division.meshes) {
            if (!size_.fits(box_of(part))) ++report_.too_large;
            parts.push_back(std::move(part));
        }
        work = {{}, {}, false, size_, {}, {}, {}};
    }

    void tell_planes(const Work& work) {
        report_.cut_area += work.division.cut_area;
        for (const DividedPiece& piece : work.division.pieces) {
            if (!piece.is_divided) continue;
            ++report_.cuts;
            if (options_.method == DivisionMethod::Automatic) report_.planes.push_back(piece.plane);
        }
        if (options_.method == DivisionMethod::Automatic) return;
        for (std::size_t i = 0; i < work.planes.size(); ++i) {
            if (work.used[i]) report_.planes.push_back(work.planes[i]);
        }
    }

    void tell_start() const {
        run_.log.start("decomposition");
        const auto text = [&](std::size_t axis) {
            const double wanted = along(options_.size, axis);
            return std::isfinite(wanted) && wanted > 0 ? six_decimals(wanted) : "any";
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
    std::size_t models_to_divide_ = 0;
    // For all models together.
    std::size_t effort_ = kDivisionEffort;  // of the search
    std::size_t faces_to_try_ = kFacesToTry;
    std::size_t least_parts_effort_ = kLeastPartsEffort;
    DecomposeReport report_;
};

}  // namespace

DecomposeReport decompose(TriMesh& mesh, const DecomposeOptions& options, RunContext& run) {
    return Decomposer(options, run).run(mesh);
}

}  // namespace povmesh
