// Voxel grids: their passes beside the same ones on std::map, whole voxelisations of growing boxes,
// hollowing. One thread (scripts/bench sets OMP_NUM_THREADS=1).
//
// Floors. A pass over the cells reads or writes a few bits for each: the outside, the voxels and
// six sides are one byte a cell, 0.25 ns at 4 GB/s. A voxel that is handed out in a walk costs some
// nanoseconds for its record. Sampling a face costs its set-up, about 100 ns, and a few nanoseconds
// for every grid point that is accepted. A square of the surface is two faces of 36 bytes and about
// one vertex of 16: 22 ns at 4 GB/s.
#include <malloc.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "design/hollow.h"
#include "inputs.h"
#include "voxel/literal_grid.h"
#include "voxel/passes.h"
#include "voxel/surface.h"
#include "voxel/voxelise.h"
#include "voxel_inputs.h"

namespace povmesh::bench {
namespace {

// A solid ball of so many voxels, all places in key order.
struct Ball {
    std::vector<VoxelIndex> places;
    std::int32_t radius = 0;

    explicit Ball(double voxels) {
        const double r = std::cbrt(voxels * 3 / (4 * 3.14159265358979));
        radius = static_cast<std::int32_t>(r) + 1;
        for (std::int32_t z = -radius; z <= radius; ++z) {
            for (std::int32_t y = -radius; y <= radius; ++y) {
                for (std::int32_t x = -radius; x <= radius; ++x) {
                    if (x * x + y * y + z * z <= r * r) places.push_back({x, y, z});
                }
            }
        }
    }
};

const Ball& ball(const std::string& name) {
    static std::map<std::string, Ball> made;
    return made.try_emplace(name, name == "ball_10m" ? 10e6 : 1e6).first->second;
}

std::size_t bytes_in_use() {
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

VoxelGrid build(const Ball& b) {
    const std::int32_t r = b.radius;
    VoxelGrid grid(VoxelSettings{{1, 1, 1}}, {{-r, -r, -r}, {r, r, r}});
    for (const VoxelIndex& place : b.places) grid.insert(place);
    return grid;
}

// Each voxel goes to the end, which is told to the map.
literal::Grid build_map(const Ball& b) {
    literal::Grid grid;
    for (const VoxelIndex& place : b.places) {
        Voxel voxel;
        voxel.index = place;
        voxel.key = VoxelGrid::key_of(place);
        voxel.centre = {static_cast<float>(place.x), static_cast<float>(place.y),
                        static_cast<float>(place.z)};
        grid.voxels.emplace_hint(grid.voxels.end(), voxel.key, voxel);
    }
    return grid;
}

const VoxelGrid& solid(const std::string& name) {
    static std::map<std::string, VoxelGrid> made;
    const auto place = made.find(name);
    if (place != made.end()) return place->second;
    VoxelGrid grid = build(ball(name));
    mark_exposed_sides(grid);
    return made[name] = std::move(grid);
}

VoxelGrid shell(const std::string& name) {
    VoxelGrid grid = solid(name);
    drop_enclosed(grid);
    return grid;
}

literal::Grid map_of(const VoxelGrid& grid) {
    literal::Grid map;
    grid.for_each(
        [&](const Voxel& voxel) { map.voxels.emplace_hint(map.voxels.end(), voxel.key, voxel); });
    return map;
}

void set_items(benchmark::State& state, std::size_t count) {
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
}

template <typename Build>
void measure_building(benchmark::State& state, const std::string& name, Build build_it) {
    const Ball& b = ball(name);
    const std::size_t before = bytes_in_use();
    {
        const auto grid = build_it(b);
        state.counters["bytes_per_voxel"] =
            static_cast<double>(bytes_in_use() - before) / static_cast<double>(b.places.size());
    }
    measure(state, [&] { return build_it(b); });
    set_items(state, b.places.size());
}

void voxel_build(benchmark::State& state, const std::string& name) {
    measure_building(state, name, build);
}
void voxel_build_map(benchmark::State& state, const std::string& name) {
    measure_building(state, name, build_map);
}

void voxel_walk(benchmark::State& state, const std::string& name) {
    const VoxelGrid& grid = solid(name);
    measure(state, [&] {
        std::int64_t sum = 0;
        grid.for_each([&](const Voxel& voxel) { sum += voxel.key + voxel.flags; });
        return sum;
    });
    set_items(state, grid.size());
}
void voxel_walk_map(benchmark::State& state, const std::string& name) {
    const literal::Grid grid = build_map(ball(name));
    measure(state, [&] {
        std::int64_t sum = 0;
        for (const auto& [key, voxel] : grid.voxels) sum += voxel.key + voxel.flags;
        return sum;
    });
    set_items(state, grid.voxels.size());
}

// A pass on a copy; the map's pass is the rule as it is told.
template <typename Pass>
void measure_pass(benchmark::State& state, const VoxelGrid& grid, Pass pass) {
    measure(
        state, [&] { return grid; },
        [&](VoxelGrid& copy) {
            pass(copy);
            return copy.size();
        });
    set_items(state, grid.size());
}
template <typename Pass>
void measure_map_pass(benchmark::State& state, const VoxelGrid& grid, Pass pass) {
    measure(
        state, [&] { return map_of(grid); },
        [&](literal::Grid& copy) {
            pass(copy);
            return copy.voxels.size();
        });
    set_items(state, grid.size());
}

void voxel_faces(benchmark::State& state, const std::string& name) {
    VoxelGrid stale = solid(name);
    stale.edit_occupied();  // the flood counts
    measure_pass(state, stale, [](VoxelGrid& g) { mark_exposed_sides(g); });
}
void voxel_faces_map(benchmark::State& state, const std::string& name) {
    measure_map_pass(state, solid(name), [](literal::Grid& g) { g.mark_by_neighbours(); });
}
void voxel_erode(benchmark::State& state, const std::string& name) {
    measure_pass(state, solid(name), [](VoxelGrid& g) { erode(g, 1); });
}
void voxel_erode_map(benchmark::State& state, const std::string& name) {
    measure_map_pass(state, solid(name), [](literal::Grid& g) { g.erode(1, nullptr); });
}
void voxel_fill(benchmark::State& state, const std::string& name) {
    measure_pass(state, shell(name), [](VoxelGrid& g) { fill_rows(g, FillColour::White); });
    set_items(state, solid(name).size());
}
void voxel_fill_map(benchmark::State& state, const std::string& name) {
    measure_map_pass(state, shell(name), [](literal::Grid& g) { g.fill_rows(false); });
    set_items(state, solid(name).size());
}

// ------------------------------------------------------------------------------- whole models

RunContext no_run() {
    static RunLog log;
    return {{}, log};
}

VoxelGrid voxelised(const std::string& name) {
    RunContext run = no_run();
    return voxelise(boxed_mesh(name), {boxed_size(name)}, run);
}

void form_voxels_of(benchmark::State& state, const std::string& name) {
    RunContext run = no_run();
    const TriMesh& mesh = boxed_mesh(name);
    measure(state, [&] {
        VoxelGrid grid = form_voxels(mesh, {boxed_size(name)}, run);
        state.counters["voxels"] = static_cast<double>(grid.size());
        return grid.size();
    });
    set_items(state, mesh.faces.size());
}

void voxelise_and_fill(benchmark::State& state, const std::string& name) {
    measure(state, [&] {
        VoxelGrid grid = voxelised(name);
        fill_rows(grid, FillColour::White);
        state.counters["voxels"] = static_cast<double>(grid.size());
        return grid.size();
    });
    set_items(state, boxed_mesh(name).faces.size());
}

void fill_rows_of(benchmark::State& state, const std::string& name) {
    measure_pass(state, voxelised(name), [](VoxelGrid& g) { fill_rows(g, FillColour::White); });
}

void export_of(benchmark::State& state, const std::string& name) {
    RunContext run = no_run();
    VoxelGrid grid = voxelised(name);
    TriMesh mesh;
    export_voxels(mesh, grid, run);
    set_floor(state, 44.0 * static_cast<double>(mesh.faces.size()));
    measure(state, [&] {
        export_voxels(mesh, grid, run);
        return mesh.faces.size();
    });
    set_items(state, mesh.faces.size());
}

// A ball of 800 units gets voxels of 2: 400 a side.
template <bool IsReduced>
void hollow_400(benchmark::State& state, const std::string& /*name*/) {
    RunContext run = no_run();
    const TriMesh model = shapes::mesh_of(shapes::sphere(398, 7));
    measure(
        state, [&] { return TriMesh(model); },
        [&](TriMesh& mesh) {
            const HollowReport report = hollow(mesh, 10, run, {IsReduced});
            state.counters["triangles"] = static_cast<double>(mesh.faces.size());
            return report.voxels;
        });
}

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    const std::vector<std::string> balls = {"ball_1m", "ball_10m"};
    add_named("voxel_build", balls, voxel_build);
    add_named("voxel_build_map", balls, voxel_build_map);
    add_named("voxel_walk", balls, voxel_walk);
    add_named("voxel_walk_map", balls, voxel_walk_map);
    add_named("voxel_faces", balls, voxel_faces);
    add_named("voxel_faces_map", balls, voxel_faces_map);
    add_named("voxel_erode", balls, voxel_erode);
    add_named("voxel_erode_map", balls, voxel_erode_map);
    add_named("voxel_fill", balls, voxel_fill);
    add_named("voxel_fill_map", balls, voxel_fill_map);
    const std::vector<std::string> models = boxed_inputs({100, 200, 400, 790});
    add_named("form_voxels", models, form_voxels_of);
    add_named("voxelise_fill", models, voxelise_and_fill);
    add_named("fill_rows", models, fill_rows_of);
    add_named("export_voxels", models, export_of);
    add_named("hollow_only", {"ball_400"}, hollow_400<false>);
    add_named("hollow_reduced", {"ball_400"}, hollow_400<true>);
    return run(argc, argv);
}
