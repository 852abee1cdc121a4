// Cellular infill: the nearest of many seeds for each voxel, beside a k-d tree, and whole models.
// One thread (scripts/bench sets OMP_NUM_THREADS=1).
//
// Floor of the search: a voxel is compared with the five to forty seeds of its block's list, four
// at a time: 2 ns. Its number is two bytes.
#include <cmath>

#include "design/cell_seeds.h"
#include "design/infill.h"
#include "inputs.h"
#ifdef POVMESH_BENCH_PEERS
#include <nanoflann.hpp>
#endif

namespace povmesh::bench {
namespace {

// A solid ball of a million voxels.
const VoxelGrid& ball() {
    static const VoxelGrid made = [] {
        constexpr std::int32_t kRadius = 62;
        VoxelGrid grid({{1, 1, 1}}, {{-kRadius, -kRadius, -kRadius}, {kRadius, kRadius, kRadius}});
        for (std::int32_t z = -kRadius; z <= kRadius; ++z) {
            for (std::int32_t y = -kRadius; y <= kRadius; ++y) {
                for (std::int32_t x = -kRadius; x <= kRadius; ++x) {
                    if (x * x + y * y + z * z <= kRadius * kRadius) grid.insert({x, y, z});
                }
            }
        }
        return grid;
    }();
    return made;
}

std::vector<Vec3d> seeds_in_ball(std::size_t count) {
    shapes::Random random(7);
    std::vector<Vec3d> seeds;
    const auto coordinate = [&] { return 124 * random.unit() - 62; };
    while (seeds.size() < count) {
        const Vec3d seed{coordinate(), coordinate(), coordinate()};
        if (length(seed) < 62) seeds.push_back(seed);
    }
    return seeds;
}

void nearest_seed(benchmark::State& state, const std::string& name) {
    const std::vector<Vec3d> seeds = seeds_in_ball(std::stoul(name));
    Array<SeedNumber> nearest;
    measure(state, [&] {
        find_nearest_seeds(ball(), seeds, nearest);
        return nearest.size();
    });
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(ball().size()));
}

#ifdef POVMESH_BENCH_PEERS
struct Cloud {
    std::vector<std::array<float, 3>> points;
    std::size_t kdtree_get_point_count() const { return points.size(); }
    float kdtree_get_pt(std::size_t i, std::size_t axis) const { return points[i][axis]; }
    template <typename Box>
    bool kdtree_get_bbox(Box& /*box*/) const {
        return false;
    }
};

// Building the tree counts, as building the lists does.
void nearest_seed_nanoflann(benchmark::State& state, const std::string& name) {
    Cloud cloud;
    for (const Vec3d& s : seeds_in_ball(std::stoul(name))) {
        cloud.points.push_back(
            {static_cast<float>(s.x), static_cast<float>(s.y), static_cast<float>(s.z)});
    }
    using Tree = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<float, Cloud>,
                                                     Cloud, 3, std::uint32_t>;
    Array<SeedNumber> nearest;
    nearest.resize(ball().word_count() * 64);
    measure(state, [&] {
        Tree tree(3, cloud, nanoflann::KDTreeSingleIndexAdaptorParams(10));
        tree.buildIndex();
        ball().for_each([&](const Voxel& voxel) {
            const std::array<float, 3> point = {voxel.centre.x, voxel.centre.y, voxel.centre.z};
            std::uint32_t number = 0;
            float squared = 0;
            tree.knnSearch(point.data(), 1, &number, &squared);
            nearest[ball().cell_of(voxel.index)] = static_cast<SeedNumber>(number);
        });
        return nearest.size();
    });
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(ball().size()));
}
#endif

// A cube of 100 units and a ball as large: a million voxels each.
void infill_1m(benchmark::State& state, const std::string& name) {
    RunLog log;
    RunContext run{{}, log};
    const TriMesh model = shapes::mesh_of(name == "cube" ? shapes::box({0, 0, 0}, {100, 100, 100})
                                                         : shapes::sphere(62, 7));
    measure(
        state, [&] { return TriMesh(model); },
        [&](TriMesh& mesh) {
            (void)cellular_infill(mesh, 3, 0.39F, run);
            state.counters["triangles"] = static_cast<double>(mesh.faces.size());
            return mesh.faces.size();
        });
}

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    const std::vector<std::string> counts = {"20", "100", "1000", "10000"};
    add_named("nearest_seed", counts, nearest_seed);
#ifdef POVMESH_BENCH_PEERS
    add_named("nearest_seed_nanoflann", counts, nearest_seed_nanoflann);
#endif
    add_named("infill_1m", {"cube", "ball"}, infill_1m);
    return run(argc, argv);
}
