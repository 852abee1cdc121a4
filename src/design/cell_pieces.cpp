// From a model to cells with walls: voxelise, fill, take the skin off by an exact distance, divide,
// part the cells, and open each one morphologically (erode, remove spurs, dilate) to round it.
#include "design/cell_pieces.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <utility>

#include "base/convert.h"
#include "base/parallel.h"
#include "base/rotation.h"
#include "base/timer.h"
#include "design/cell_division.h"
#include "design/mend_slivers.h"
#include "design/smooth.h"
#include "mesh/volume.h"
#include "remesh/reduce.h"
#include "spatial/nearest_face.h"
#include "spatial/self_intersection.h"
#include "voxel/distance.h"
#include "voxel/form_voxels.h"
#include "voxel/outside.h"
#include "voxel/passes.h"
#include "voxel/surface.h"
#include "voxel/voxelise.h"
#include "voxel/wall.h"

namespace povmesh {
namespace {

// Voxels that a solid model gets. The exponent is not quite one third: hosts rely on the sizes.
constexpr double kVoxelsOfASolid = 1e6;
constexpr double kSizeExponent = 0.33;
constexpr double kSmallestVoxel = 0.25;
constexpr double kLargestVoxel = 1.0;

// With voxels that follow the skin: how many it has, and how many a solid model gets at most. Each
// takes about 20 bytes until the cells are cut out.
constexpr double kLeastSkin = 2;
constexpr double kMostVoxels = 1e8;

// So that no side of a box lies along the voxels.
constexpr Vec3d kTiltAxis = {1, 0, 0};
constexpr double kTiltDegrees = 45;

// Squared distance to the outside, in voxels, below which a surface is the outer one.
constexpr std::int64_t kOuterSurface = 9;

constexpr std::size_t kFewestVoxels = 100;

// Layers that are taken off a cell and put back, and how many exposed sides a corner is short of.
constexpr std::int32_t kTakenLayers = 3;
constexpr std::int32_t kGivenLayers = 2;
constexpr std::int32_t kSpurs = 3;

// Passes that take the steps out of the cells. Each moves a corner by a third of an edge at most.
constexpr int kSmoothingPasses = 5;

// The surfaces are curved nearly everywhere, where a tenth of the faces does.
constexpr std::array kReductions = {ReduceOptions{0.1, 0.05, 0.5}, ReduceOptions{0.25, 0.05, 0.7}};

// How far a reduced cell may be from the smoothed one, in voxels.
constexpr double kMostStrayed = 0.5;

// Half the thickness of a wall, in voxels.
constexpr double kHalfWall = 1;

// What the skin of the cells has more than the distance rule gives it, in voxels. Outside begins a
// voxel and up to 0.87 beyond the surface, and a corner of a cell's voxel is up to 0.87 nearer to
// it than its centre: cells would come up by 1.6 voxels on real models.
constexpr double kMoreSkin = 0.5;

using Words = VoxelGrid::Words;

void rotate(TriMesh& mesh, double degrees) {
    const Rotation rotation(kTiltAxis, degrees);
    parallel_for(mesh.vertices.size(), [&](std::size_t v) {
        Vertex& vertex = mesh.vertices[v];
        const Vec3d p = rotation.apply(to_double(vertex.position()));
        vertex.x = narrow_to_float(p.x);
        vertex.y = narrow_to_float(p.y);
        vertex.z = narrow_to_float(p.z);
    });
}

float voxel_size(double model_volume, const CellOptions& options) {
    double size = std::pow(model_volume / kVoxelsOfASolid, kSizeExponent);
    size = std::clamp(size, kSmallestVoxel, kLargestVoxel);
    if (options.follows_skin) {
        size = std::max(std::min(size, options.skin / kLeastSkin),
                        std::cbrt(model_volume / kMostVoxels));
    }
    return static_cast<float>(size);
}

// Opens the voxels of surfaces that lie deep in the solid: of slits too narrow for a voxel, of
// bodies that overlap. They count as outside from then on, so that a skin remains around them.
void open_inner_surfaces(VoxelGrid& grid, const Words& surface) {
    if (grid.is_empty()) return;
    const Words inner = inner_surface(grid, surface, kOuterSurface);
    grid.for_each_word([&](std::size_t word) {
        if (inner[word] == 0) return;
        grid.remove(word, inner[word]);
        grid.edit_outside()[word] |= inner[word];
    });
    grid.recount();
    refresh_outside(grid);
}

float affordable_voxel_size(const TriMesh& mesh, const CellOptions& options, RunContext& run) {
    const float size = voxel_size(volume(mesh), options);
    return affordable_size(mesh, {size, size, size}, kMostCells, run).x;
}

VoxelGrid solid_of(const TriMesh& mesh, float size, RunContext& run) {
    Words surface;
    VoxelGrid grid = voxelise(mesh, {{size, size, size}}, run, &surface);
    run.progress.set(30);
    fill_rows(grid, FillColour::White);
    refresh_outside(grid);
    open_inner_surfaces(grid, surface);
    run.progress.set(40);
    return grid;
}

// Takes the voxels of `cells` out of `from`, which has as many words.
void subtract(Words& from, const Words& cells) {
    for (std::size_t w = 0; w < from.size(); ++w) from[w] &= ~cells[w];
}

double count(const Words& words) {
    std::size_t sum = 0;
    for (const std::uint64_t word : words) sum += static_cast<std::size_t>(std::popcount(word));
    return static_cast<double>(sum);
}

// Divides what lies below the skin. The skin is a layer thinner here: each cell loses one that it
// does not get back.
CellDivision divide(VoxelGrid& grid, const CellOptions& options, RunContext& run) {
    run.log.append("\n\n[start voronoi]");
    const Timer timer;
    const auto size = static_cast<double>(grid.settings().size.x);
    if (!grid.is_empty()) {
        drop_cells(grid, cells_within(grid, grid.outside(), wall_limit(options.skin - size, size)));
    }
    CellDivision division;
    run.log.append("\ncell / cell vol.");
    if (grid.size() >= kFewestVoxels) {
        const auto voxels = static_cast<double>(grid.size());
        const double cells = std::max(1.0, std::round(options.cells_per_million * voxels / 1e6));
        division = divide_into_cells(grid, static_cast<std::size_t>(cells));
        run.log.append("\n" + std::to_string(division.seeds.size()) + " / " +
                       six_decimals(voxels / cells * size * size * size));
    }
    run.log.value("voxel num", std::to_string(grid.size()));
    run.log.value("voronoi", six_decimals(timer.seconds()) + " sec.");
    return division;
}

// Leaves of every cell what a wall does not need.
void form_walls(VoxelGrid& grid, const CellDivision& division, const Words& skin) {
    part_cells(grid, division);
    Words room = grid.occupied();
    subtract(room, skin);
    subtract(room, voxels_near_borders(grid, division.seeds, division.seed_of, kHalfWall));
    mark_exposed_sides(grid);
    erode(grid, kTakenLayers - 1);  // the first went with the parting
    remove_spurs(grid, kSpurs);
    dilate_within(grid, kGivenLayers, room);
    drop_edge_contacts(grid);
}

// Whether the corners, the middles of the edges and the centres of all faces are as near as that.
bool stays_near(const TriMesh& mesh, const NearestFace& surface, double distance) {
    return std::all_of(mesh.faces.begin(), mesh.faces.end(), [&](const Face& face) {
        std::array<Vec3d, 7> points;
        for (std::size_t i = 0; i < 3; ++i) points[i] = to_double(mesh.corner_position(face, i));
        for (std::size_t i = 0; i < 3; ++i) {
            points[3 + i] = (points[i] + points[next_corner(i)]) * 0.5;
        }
        points[6] = (points[0] + points[1] + points[2]) / 3.0;
        return std::all_of(points.begin(), points.end(), [&](Vec3d p) {
            return surface.find(p, distance * distance).is_found();
        });
    });
}

// A cell stays whole where each reduction would stray, cross itself or leave slivers.
void refine(TriMesh& mesh, double voxel_size) {
    for (int pass = 0; pass < kSmoothingPasses; ++pass) smooth_voxel_surface(mesh);
    mesh.use_table.clear();
    const TriMesh whole = mesh;
    const NearestFace surface(whole);
    for (const ReduceOptions& reduction : kReductions) {
        (void)reduce(mesh, reduction);
        if (mend_slivers(mesh) == 0 && stays_near(mesh, surface, kMostStrayed * voxel_size) &&
            find_self_intersections(mesh, 0).count == 0) {
            return;
        }
        mesh = whole;
    }
}

// Each cell writes its own entry.
std::vector<InfillCell> cells_of(const SurfacePieces& pieces, bool is_refined, double voxel_size) {
    std::vector<InfillCell> cells(pieces.size());
    for_blocks(cells.size(), [&](std::size_t i) {
        InfillCell& cell = cells[i];
        cell.mesh = pieces.mesh_of(i);
        rotate(cell.mesh, -kTiltDegrees);
        if (is_refined) refine(cell.mesh, voxel_size);
        cell.volume = volume(cell.mesh);
        for (const Face& face : cell.mesh.faces) cell.surface += face_area(cell.mesh, face);
    });
    return cells;
}

}  // namespace

CellPieces make_cells(TriMesh& mesh, const CellOptions& options, RunContext& run) {
    CellPieces made;
    rotate(mesh, kTiltDegrees);
    const float wanted = affordable_voxel_size(mesh, options, run);
    made.voxel_size = static_cast<double>(wanted);
    const TriMesh model = std::exchange(mesh, {});
    if (options.follows_skin && options.skin < kThinnestSkin * made.voxel_size) return made;
    VoxelGrid grid = solid_of(model, wanted, run);
    const auto size = static_cast<double>(grid.settings().size.x);
    made.voxel_size = size;
    const Words skin = cells_within(grid, grid.outside(), wall_limit(options.skin, size));
    const Words more_skin =
        cells_within(grid, grid.outside(), wall_limit(options.skin + kMoreSkin * size, size));
    {
        const CellDivision division = divide(grid, options, run);
        if (division.seeds.empty()) return made;
        made.has_room = true;
        Words inside = grid.occupied();
        subtract(inside, skin);
        made.inside_volume = count(inside) * size * size * size;
        run.progress.set(50);
        form_walls(grid, division, more_skin);
    }
    run.progress.set(55);
    const SurfacePieces pieces(grid, kLeastSquares, run);
    run.progress.set(60);
    run.progress.set(70);
    made.cells = cells_of(pieces, options.is_refined, size);
    return made;
}

}  // namespace povmesh
