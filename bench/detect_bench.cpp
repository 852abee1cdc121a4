// Counting flaws, uses, edge table and shells included: from faces and vertices to the four counts.
// One thread (scripts/bench sets OMP_NUM_THREADS=1).
//
// Floor per triangle, for data far beyond the caches: 114 bytes for the uses (see mesh_bench.cpp),
// 36 read and 12 written for the edge table, 16 for the shells, 48 for faces and vertices of the
// walk: 226 bytes, 57 ns at 4 GB/s; in random order three reads at random for each of uses, edges
// and walk.
#include <string>

#include "inputs.h"
#include "repair/detect.h"

#ifdef POVMESH_BENCH_PEERS
#include "admesh_file.h"
#endif

namespace povmesh::bench {
namespace {

void detect(benchmark::State& state, const std::string& input) {
    FlawCounts counts;
    measure(
        state, [&] { return mesh(input); },
        [&](TriMesh& copy) { return counts = povmesh::detect(copy); });
    state.SetLabel("inverted " + std::to_string(counts.inverted) + ", open " +
                   std::to_string(counts.open_edges) + ", non-manifold " +
                   std::to_string(counts.non_manifold) + ", degenerate " +
                   std::to_string(counts.degenerate));
    set_floor(state, 226.0 * static_cast<double>(triangle_count(input)));
}

#ifdef POVMESH_BENCH_PEERS
// The exact check matches edges by the bits of their end points and records each facet's
// neighbours; it removes degenerate facets, knows no shells, no orientation and no vertices. Each
// check gets a model freshly read, which is not counted.
void detect_admesh(benchmark::State& state, const std::string& input) {
    const std::string path = binary_stl(input);
    int unconnected = 0;
    measure(
        state, [&] { return AdmeshFile(path); },
        [&](AdmeshFile& model) {
            stl_check_facets_exact(&model.get());
            const stl_stats& stats = model.get().stats;
            return unconnected = stats.number_of_facets - stats.connected_facets_3_edge;
        });
    state.SetLabel("facets with an open edge " + std::to_string(unconnected));
}
#endif

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    add("detect", compared_inputs(), detect);
#ifdef POVMESH_BENCH_PEERS
    add("detect_admesh", shorter_inputs(), detect_admesh);
#endif
    add("detect", growing_inputs(), detect);
    add("detect", crowded_inputs(), detect);
    return run(argc, argv);
}
