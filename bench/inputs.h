// What the benchmarks run on: generated soups, real models, and STL files of both in a folder that
// is removed at the end.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>
#include <vector>

#include "helpers/shapes.h"
#include "mesh/tri_mesh.h"

namespace povmesh::bench {

/// The triangles of an input, made when they are first asked for. Names:
///
/// - "rock_328k" and the like: a closed, rough stone. The number is that of its triangles in
///   thousands: 5, 20, 82, 328, 1311 or 5243 (20 * 4^levels of them, 4 <= levels <= 9);
/// - "fan_100k", "fan_200k": all triangles share a vertex and form a ring;
/// - "star_100k", "star_200k": all triangles share a vertex, but no edge;
/// - "book_100k", "book_200k": all triangles share an edge;
/// - "holed_82k", "holed_328k": that rock with 500 holes of 5 to 18 edges;
/// - "broken_82k", "broken_328k": the same with 0.5 % of its faces twice and 1.2 % turned over;
/// - any model of the folder, see `model_file`;
/// - each of them followed by "_random": the same triangles in random order.
const shapes::SoupVector& soup(const std::string& input);

/// The mesh that build_f makes of an input, without uses; made when first asked for.
const TriMesh& mesh(const std::string& input);

std::size_t triangle_count(const std::string& input);

/// Of the bounding box.
double diagonal(const TriMesh& mesh);

/// The file NAME.stl or NAME.obj in the folder that the environment variable POVMESH_MODELS names;
/// empty when there is none.
std::string model_file(const std::string& name);

/// Those of the names that have a model file.
std::vector<std::string> existing_models(std::vector<std::string> names);

/// Those of benchy, scorpion, hammer and ct_skull that have one.
std::vector<std::string> models();

/// Inputs for comparisons: rocks of 328 thousand and 1.3 million triangles, both in random order
/// too, and the models.
std::vector<std::string> compared_inputs();

/// The same without the larger rock in random order, on which some rivals take seconds.
std::vector<std::string> shorter_inputs();

/// Rocks from 5 thousand to 5.2 million triangles: from well inside the caches to far beyond.
std::vector<std::string> growing_inputs();

/// The vertex and edge stars that turn careless algorithms quadratic, each at two sizes.
std::vector<std::string> crowded_inputs();

/// The input as a file, written when first asked for. ASCII as most exporters write it: "%e".
std::string binary_stl(const std::string& input);
std::string ascii_stl(const std::string& input);

/// A path in the same folder, for files that a benchmark writes.
std::string scratch_file(const std::string& name);

/// Registers `operation/input`; the benchmark reports triangles per second. Registering a name
/// twice counts once. `function` is called with the state and the input's name.
using Function = void (*)(benchmark::State& state, const std::string& input);
void add(const std::string& operation, const std::vector<std::string>& inputs, Function function);

/// The same for names of a program's own: `operation/name`, without a count of triangles.
void add_named(const std::string& operation, const std::vector<std::string>& names,
               Function function);

/// Times `work(item)` on a fresh `prepare()` per iteration. Preparing, and destroying item and
/// result, are not counted, nor is a first turn: on a virtual machine memory that has not been used
/// for a while comes back from the host, which can take ten times as long as the work.
template <typename Prepare, typename Work>
void measure(benchmark::State& state, Prepare prepare, Work work) {
    {
        auto item = prepare();
        auto result = work(item);
        benchmark::DoNotOptimize(result);
    }
    for (auto _ : state) {
        state.PauseTiming();
        {
            auto item = prepare();
            state.ResumeTiming();
            auto result = work(item);
            benchmark::DoNotOptimize(result);
            benchmark::ClobberMemory();
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
}

/// The same for work that needs no item of its own.
template <typename Work>
void measure(benchmark::State& state, Work work) {
    measure(
        state, [] { return 0; }, [&](int /*item*/) { return work(); });
}

/// Adds the counter "floor_ms": how long moving that many bytes takes at 4 GB/s, what one thread
/// copies at when the data lies far beyond the caches.
void set_floor(benchmark::State& state, double bytes);

/// The body of main: runs the registered benchmarks and removes the files.
int run(int argc, char** argv);

}  // namespace povmesh::bench
