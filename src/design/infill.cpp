// Chooses among the cells of a model: by surface over volume as hosts know it, or by the share of
// material that stays.
#include "design/infill.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "base/timer.h"
#include "design/cell_pieces.h"
#include "mesh/append_mesh.h"
#include "mesh/volume.h"

namespace povmesh {
namespace {

constexpr double kLeastDensity = 0.05;
constexpr double kDensityStep = 0.05;
constexpr std::size_t kFewestCells = 4;

// Dense infills get smaller cells.
constexpr double kDense = 0.4;
constexpr double kCellsPerMillion = 18;
constexpr double kDenseCellsPerMillion = 40;

double cells_per_million(double density) {
    return density < kDense ? kCellsPerMillion : kDenseCellsPerMillion;
}

double ratio(double a, double b) {
    return b > 0 ? a / b : 0;
}

// Numbers of the cells, those with the largest keys first, equal ones as they are.
template <typename Key>
std::vector<std::size_t> by_largest(const std::vector<InfillCell>& cells, Key&& key) {
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < cells.size(); ++i) order.push_back(i);
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return key(cells[a]) > key(cells[b]); });
    return order;
}

double surface_per_volume(const InfillCell& cell) {
    return ratio(cell.surface, cell.volume);
}

struct Sums {
    double surface = 0;
    double volume = 0;
    void add(const InfillCell& cell) {
        surface += cell.surface;
        volume += cell.volume;
    }
    double surface_per_volume() const { return ratio(surface, volume); }
};

void tell_spread(const std::vector<InfillCell>& cells, const std::vector<std::size_t>& order,
                 const RunLog& log) {
    Sums all;
    for (const InfillCell& cell : cells) all.add(cell);
    log.append("\n\n[start select cell]");
    log.value("sf/vol tot", all.surface_per_volume());
    log.value("sf/vol min", order.empty() ? 0 : surface_per_volume(cells[order.front()]));
    log.value("sf/vol max", order.empty() ? 0 : surface_per_volume(cells[order.back()]));
}

// Takes cells until their surface over their volume exceeds the density, four at least.
Sums take_cells(const std::vector<InfillCell>& cells, const std::vector<std::size_t>& order,
                double density, TriMesh& mesh, const RunLog& log) {
    Sums taken;
    std::size_t count = 0;
    for (const std::size_t i : order) {
        append_mesh(mesh, cells[i].mesh);
        taken.add(cells[i]);
        ++count;
        if (!(taken.surface_per_volume() > density)) continue;
        if (count >= kFewestCells) break;
        log.caution("can't reach infill density: " + six_decimals(density));
        log.append("\nplease change bigger infill density.");
        density += kDensityStep;
        log.append("\nnow change larger infill density to " + six_decimals(density));
    }
    return taken;
}

}  // namespace

InfillOutcome cellular_infill(TriMesh& mesh, float skin, float density, RunContext& run) {
    run.log.start("cellular infill");
    run.log.value("surface thick", double{skin});
    run.log.value("infilldensity", double{density});
    if (density == 0) return InfillOutcome::Unchanged;
    const double wanted = double{density} < kLeastDensity ? kLeastDensity : double{density};
    run.progress.set(10);
    const Timer timer;
    const CellPieces made = make_cells(
        mesh, {.skin = double{skin}, .cells_per_million = cells_per_million(wanted)}, run);
    if (!made.has_room) {
        run.log.caution("Peel too much ,nothing to design\n");
        return InfillOutcome::NothingInside;
    }
    const std::vector<std::size_t> order = by_largest(
        made.cells, [](const InfillCell& cell) { return ratio(cell.volume, cell.surface); });
    tell_spread(made.cells, order, run.log);
    const bool is_few = order.size() < kFewestCells;
    Sums taken;
    if (is_few) {
        run.log.caution("Unnecessary to do Voronoi. (small object or shell object)\n");
    } else {
        taken = take_cells(made.cells, order, wanted, mesh, run.log);
    }
    run.log.value("sf/vol newtot", taken.surface_per_volume());
    run.log.success("cellular infill", timer.seconds(), " sec.");
    return is_few ? InfillOutcome::FewCells : InfillOutcome::Filled;
}

InfillReport infill_to_density(TriMesh& mesh, const InfillOptions& options, RunContext& run) {
    CellPieces made = make_cells(mesh,
                                 {.skin = options.skin,
                                  .cells_per_million = cells_per_million(options.density),
                                  .follows_skin = true,
                                  .is_refined = options.is_smoothed},
                                 run);
    InfillReport report;
    report.voxel_size = made.voxel_size;
    report.inside_volume = made.inside_volume;
    report.cells = made.cells.size();
    const auto density_with = [&](std::size_t cell) {
        return 1 - ratio(report.cells_volume + made.cells[cell].volume, report.inside_volume);
    };
    const std::vector<std::size_t> order =
        by_largest(made.cells, [](const InfillCell& cell) { return cell.volume; });
    for (auto next = order.begin(); next != order.end(); ++next) {
        // The last one is the smallest that will do.
        const auto enough = std::partition_point(next, order.end(), [&](std::size_t cell) {
            return density_with(cell) <= options.density;
        });
        const bool is_last = enough != next;
        const std::size_t cell = is_last ? *std::prev(enough) : *next;
        report.density = density_with(cell);
        report.cells_volume += made.cells[cell].volume;
        ++report.taken;
        append_mesh(mesh, std::exchange(made.cells[cell].mesh, {}));
        if (is_last) break;
    }
    return report;
}

}  // namespace povmesh
