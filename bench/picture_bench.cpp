// Pictures: rendering of meshes with triangles below and far above the size of a pixel, and PNG.
//
// Floor of a picture of 1024 x 1024 (one thread): 4.2 million samples of 8 bytes are cleared, drawn
// and read back, 0.1 GB or 10 ms at 10 GB/s; a rock of 1.3 million triangles reads 47 MB of faces
// and reads and writes 21 MB of vertices, 7 ms, and sets up the 1.3 million planes at about 20 ns
// each, 26 ms. Sum: 43 ms. The cube's two layers fill 8 million samples at about 1 ns: 18 ms with
// the clearing.
#include <benchmark/benchmark.h>

#include "helpers/shapes.h"
#include "job/picture/picture.h"

namespace povmesh {
namespace {

const TriMesh& rock_of_level(int level) {
    static const TriMesh medium = shapes::mesh_of(shapes::rock(50, 7));
    static const TriMesh large = shapes::mesh_of(shapes::rock(50, 8));
    return level == 7 ? medium : large;
}

void render_mesh(benchmark::State& state, const TriMesh& mesh, std::uint32_t side) {
    picture::Scene scene(1);
    scene[0].mesh = &mesh;
    picture::RenderOptions options;
    options.width = side;
    options.height = side;
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(picture::render(scene, options));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(mesh.faces.size()));
}

void render_rock(benchmark::State& state) {
    render_mesh(state, rock_of_level(static_cast<int>(state.range(0))),
                static_cast<std::uint32_t>(state.range(1)));
}
BENCHMARK(render_rock)
    ->ArgNames({"level", "side"})
    ->Args({7, 1024})
    ->Args({8, 1024})
    ->Args({8, 256})
    ->Args({8, 4096})
    ->Unit(benchmark::kMillisecond);

void render_shuffled_rock(benchmark::State& state) {
    static const TriMesh mesh = shapes::mesh_of(shapes::shuffled(shapes::rock(50, 8), 1));
    render_mesh(state, mesh, 1024);
}
BENCHMARK(render_shuffled_rock)->Unit(benchmark::kMillisecond);

// Two layers of large triangles.
void render_cube(benchmark::State& state) {
    static const TriMesh mesh = shapes::mesh_of(shapes::box({0, 0, 0}, {10, 10, 10}));
    render_mesh(state, mesh, static_cast<std::uint32_t>(state.range(0)));
}
BENCHMARK(render_cube)->Arg(1024)->Arg(4096)->Unit(benchmark::kMillisecond);

void encode(benchmark::State& state) {
    picture::Scene scene(1);
    scene[0].mesh = &rock_of_level(7);
    const picture::Image image = picture::render(scene, {});
    std::size_t bytes = 0;
    for ([[maybe_unused]] auto _ : state) bytes = picture::encode_png(image).size();
    state.counters["file_bytes"] = static_cast<double>(bytes);
}
BENCHMARK(encode)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace povmesh

BENCHMARK_MAIN();
