// Column supports: the search for gaps below overhangs, what comes before it, and the polygons of
// layers. One thread (scripts/bench sets OMP_NUM_THREADS=1).
//
// Floors. The search reads one bit a cell; flags and angles of the cells at overhangs come on top.
// Following nine lines of each column through the faces costs some ten nanoseconds a crossing. A
// layer's outline costs its faces; a square near it is clipped in some ten microseconds.
#include <cmath>
#include <map>

#include "inputs.h"
#include "mesh/bounds.h"
#include "support/column_supports.h"
#include "support/gap_search.h"
#include "support/overhangs.h"
#include "support/slice_polygons.h"
#include "support/undersides.h"
#include "voxel/passes.h"
#include "voxel/voxelise.h"

namespace povmesh::bench {
namespace {

constexpr float kSpacing = 3;
constexpr double kLeastArea = 1.44;

RunContext no_run() {
    static RunLog log;
    return {{}, log};
}

// A model of that name, 400 voxels of width 3 along x or y.
const TriMesh& model_400(const std::string& name) {
    static std::map<std::string, TriMesh> made;
    const auto [place, is_new] = made.try_emplace(name);
    if (!is_new) return place->second;
    TriMesh& model = place->second;
    model = name == "sphere" ? shapes::mesh_of(shapes::sphere(1, 7)) : mesh(name);
    const Box3f box = finite_bounds(model);
    const float scale = 400 * kSpacing / std::max(box.extent().x, box.extent().y);
    for (Vertex& v : model.vertices) {
        v.x *= scale;
        v.y *= scale;
        v.z = (v.z - box.low.z) * scale;
    }
    return model;
}

VoxelGrid filled(const TriMesh& model) {
    RunContext run = no_run();
    VoxelGrid grid = voxelise(model, {{kSpacing, kSpacing, 1}, true}, run);
    fill_rows(grid, FillColour::White);
    return grid;
}

void voxelise_columns(benchmark::State& state, const std::string& name) {
    const TriMesh& model = model_400(name);
    measure(state, [&] { return filled(model).size(); });
}

void fit_columns(benchmark::State& state, const std::string& name) {
    const TriMesh& model = model_400(name);
    const VoxelGrid grid = filled(model);
    measure(
        state, [&] { return VoxelGrid(grid); },
        [&](VoxelGrid& copy) {
            const UprightLines lines(model);
            const Overhangs overhangs = find_overhangs(model, lines, 45, kLeastArea);
            const Undersides undersides =
                fit_to_columns(copy, model, overhangs, {column_half_side(kSpacing), true});
            drop_rims(copy, undersides, 45);
            return undersides.all.size();
        });
}

void gap_search(benchmark::State& state, const std::string& name) {
    const TriMesh& model = model_400(name);
    VoxelGrid grid = filled(model);
    const Overhangs overhangs = find_overhangs(model, UprightLines(model), 45, kLeastArea);
    drop_rims(grid, fit_to_columns(grid, model, overhangs, {column_half_side(kSpacing), true}), 45);
    set_floor(state, 8.0 * static_cast<double>(grid.word_count()));
    measure(state, [&] {
        const GapGrid gaps = find_gaps(grid, 45, 0);
        state.counters["gaps"] = static_cast<double>(gaps.gaps.size());
        return gaps.gaps.size();
    });
}

// 500 columns of 100 units in and around a model of that height, in 500 layers.
void slice_columns_of(benchmark::State& state, const std::string& name) {
    TriMesh model = mesh(name);
    const Box3f box = finite_bounds(model);
    const float scale = 100 / box.extent().z;
    for (Vertex& v : model.vertices) {
        v.x = (v.x - (box.low.x + box.high.x) / 2) * scale;
        v.y = (v.y - (box.low.y + box.high.y) / 2) * scale;
        v.z = (v.z - box.low.z) * scale;
    }
    Array<Column> columns;
    for (int i = 0; i < 500; ++i) {
        const auto x = static_cast<float>(i % 25 - 12) * 4.5F;
        const int row = i / 25;
        const auto y = static_cast<float>(row - 10) * 4.5F;
        columns.push_back({{x, y, 100}, {x, y, 0}});
    }
    RunContext run = no_run();
    measure(state, [&] {
        SlicePolygons polygons;
        (void)slice_columns(model, columns, {kSpacing, 0.2, 0}, run, polygons);
        state.counters["polygons"] = static_cast<double>(polygons.sizes.size());
        return polygons.points.size();
    });
}

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    std::vector<std::string> models = existing_models({"benchy", "scorpion"});
    models.insert(models.begin(), "sphere");
    add_named("voxelise_columns", models, voxelise_columns);
    add_named("fit_columns", models, fit_columns);
    add_named("gap_search", models, gap_search);
    std::vector<std::string> sliced = existing_models({"benchy"});
    sliced.insert(sliced.begin(), "rock_328k");
    add_named("slice_columns", sliced, slice_columns_of);
    return run(argc, argv);
}
