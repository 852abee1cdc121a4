// Voxelising and walls beside OpenVDB, in a program of its own: its headers and libraries are
// large. One thread (scripts/bench sets OMP_NUM_THREADS=1, here also for its task scheduler).
//
// OpenVDB makes signed distances: everywhere inside, where ours has filled rows, or, as
// `voxelise_openvdb_band`, in a band of three voxels inside of the surface, which is its least
// work. For every cell of a ball it would take a minute.
#include <openvdb/openvdb.h>
#include <openvdb/tools/MeshToVolume.h>
#include <openvdb/tools/VolumeToMesh.h>
#include <tbb/global_control.h>

#include <algorithm>
#include <array>
#include <limits>

#include "design/wall_gauge.h"
#include "voxel_inputs.h"

namespace povmesh::bench {
namespace {

constexpr float kBand = 3;

// Of cavities, as in inner_wall_bench.
constexpr double kWall = 1.5;
constexpr double kCellsOfWall = 5;

void voxelise_openvdb(benchmark::State& state, const std::string& name, float inside) {
    const TriMesh& mesh = boxed_mesh(name);
    const auto size = static_cast<double>(boxed_size(name).x);
    std::vector<openvdb::Vec3s> points;
    std::vector<openvdb::Vec3I> triangles;
    for (const Vertex& v : mesh.vertices) points.emplace_back(v.x, v.y, v.z);
    for (const Face& f : mesh.faces) {
        triangles.emplace_back(static_cast<std::uint32_t>(f.vertex[0]),
                               static_cast<std::uint32_t>(f.vertex[1]),
                               static_cast<std::uint32_t>(f.vertex[2]));
    }
    const auto transform = openvdb::math::Transform::createLinearTransform(size);
    for (openvdb::Vec3s& p : points) p = openvdb::Vec3s(transform->worldToIndex(p));
    openvdb::tools::QuadAndTriangleDataAdapter<openvdb::Vec3s, openvdb::Vec3I> adapter(points,
                                                                                       triangles);
    measure(state, [&] {
        const auto grid =
            openvdb::tools::meshToVolume<openvdb::FloatGrid>(adapter, *transform, 1, inside);
        state.counters["voxels"] = static_cast<double>(grid->activeVoxelCount());
        return grid->activeVoxelCount();
    });
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(mesh.faces.size()));
}

// The cavity of a wall: distances in a band of the wall and three voxels, and the surface at the
// wall out of it. The wall that comes of it is a counter.
void wall_openvdb(benchmark::State& state, const std::string& name) {
    const TriMesh& model = mesh(name);
    const double cell = kWall / kCellsOfWall;
    std::vector<openvdb::Vec3s> points;
    std::vector<openvdb::Vec3I> triangles;
    for (const Vertex& v : model.vertices) points.emplace_back(v.x, v.y, v.z);
    for (const Face& f : model.faces) {
        triangles.emplace_back(static_cast<std::uint32_t>(f.vertex[0]),
                               static_cast<std::uint32_t>(f.vertex[1]),
                               static_cast<std::uint32_t>(f.vertex[2]));
    }
    const auto transform = openvdb::math::Transform::createLinearTransform(cell);
    for (openvdb::Vec3s& p : points) p = openvdb::Vec3s(transform->worldToIndex(p));
    openvdb::tools::QuadAndTriangleDataAdapter<openvdb::Vec3s, openvdb::Vec3I> adapter(points,
                                                                                       triangles);
    std::vector<openvdb::Vec3s> vertices;
    std::vector<openvdb::Vec4I> quads;
    measure(state, [&] {
        const auto grid = openvdb::tools::meshToVolume<openvdb::FloatGrid>(
            adapter, *transform, kBand, static_cast<float>(kCellsOfWall) + kBand);
        std::vector<openvdb::Vec3I> rest;
        openvdb::tools::volumeToMesh(*grid, vertices, rest, quads, -kWall);
        return quads.size();
    });
    TriMesh cavity;
    for (const openvdb::Vec3s& v : vertices) {
        cavity.vertices.push_back(
            {v.x(), v.y(), v.z(), static_cast<std::int32_t>(cavity.vertices.size())});
    }
    for (const openvdb::Vec4I& q : quads) {
        for (const auto& corners : {std::array{q[0], q[1], q[2]}, std::array{q[0], q[2], q[3]}}) {
            Face face{};
            for (std::size_t c = 0; c < 3; ++c) {
                face.vertex[c] = static_cast<std::int32_t>(corners[c]);
            }
            cavity.faces.push_back(face);
        }
    }
    state.counters["triangles"] = static_cast<double>(cavity.faces.size());
    state.counters["smallest"] = WallGauge(model).least_distance(cavity);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(model.faces.size()));
}

// A level set of a model, and the surface of that again: what field_bench's wraps stand beside.
void round_trip(benchmark::State& state, const std::string& name, double cell) {
    const TriMesh& model = mesh(name);
    const auto transform = openvdb::math::Transform::createLinearTransform(cell);
    measure(state, [&] {
        std::vector<openvdb::Vec3s> points;
        std::vector<openvdb::Vec3I> triangles;
        for (const Vertex& v : model.vertices) {
            points.emplace_back(transform->worldToIndex(openvdb::Vec3s(v.x, v.y, v.z)));
        }
        for (const Face& f : model.faces) {
            triangles.emplace_back(static_cast<std::uint32_t>(f.vertex[0]),
                                   static_cast<std::uint32_t>(f.vertex[1]),
                                   static_cast<std::uint32_t>(f.vertex[2]));
        }
        openvdb::tools::QuadAndTriangleDataAdapter<openvdb::Vec3s, openvdb::Vec3I> adapter(
            points, triangles);
        const auto grid =
            openvdb::tools::meshToVolume<openvdb::FloatGrid>(adapter, *transform, kBand, kBand);
        std::vector<openvdb::Vec3s> surface;
        std::vector<openvdb::Vec4I> quads;
        openvdb::tools::volumeToMesh(*grid, surface, quads, 0.0);
        state.counters["triangles"] = 2.0 * static_cast<double>(quads.size());
        return quads.size();
    });
}

void add_round_trip(const std::string& name, double cell) {
    if (model_file(name).empty()) return;
    const std::string title =
        "round_trip_openvdb/" + name + "_" + std::to_string(cell).substr(0, 4);
    benchmark::RegisterBenchmark(
        title.c_str(), [name, cell](benchmark::State& state) { round_trip(state, name, cell); })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
}

void add_own(const std::string& operation, float inside) {
    for (const std::string& name : boxed_inputs({200, 400})) {
        if (inside > kBand && name.starts_with("sphere")) continue;
        benchmark::RegisterBenchmark(
            std::string(operation).append("/").append(name).c_str(),
            [name, inside](benchmark::State& state) { voxelise_openvdb(state, name, inside); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    }
}

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    const tbb::global_control one(tbb::global_control::max_allowed_parallelism, 1);
    openvdb::initialize();
    povmesh::bench::add_own("voxelise_openvdb", std::numeric_limits<float>::max());
    povmesh::bench::add_own("voxelise_openvdb_band", povmesh::bench::kBand);
    povmesh::bench::add("wall_openvdb",
                        povmesh::bench::existing_models({"cat", "gearwheel", "benchy"}),
                        povmesh::bench::wall_openvdb);
    povmesh::bench::add_round_trip("benchy", 0.25);
    povmesh::bench::add_round_trip("cat", 0.25);
    povmesh::bench::add_round_trip("scorpion", 0.4);
    return povmesh::bench::run(argc, argv);
}
