// Making a mesh from a soup and taking it apart again: welding, build_f, uses, shells, compact,
// export_data. One thread (scripts/bench sets OMP_NUM_THREADS=1).
//
// Floors per triangle, for data far beyond the caches. A closed mesh has half a vertex a triangle.
//   weld         reads 36 bytes of corners twice (box, then cells), writes 12 of numbers and 8 of
//                vertices, and looks three times into a table of 16 bytes a slot: 92 bytes, and
//                three reads of a cache line at random once the table outgrows the caches (from
//                about a million triangles on; then the reads, about 10 ns each with many under
//                way, rule).
//   build_f      the same, with 36 bytes of face in place of the 12 of numbers.
//   build_uses   reads 12 of 36 face bytes twice (count, place), writes 36 bytes of uses, and 2 of
//                offsets three times: 114 bytes, the placing at random when the triangles are.
//   label_shells reads the uses, writes 12 bytes of edge codes and 4 of shell members.
//   compact      reads face and vertex records and writes them: 88 bytes, above its welding.
//   export_data  reads 44 bytes and writes 9 + 9 + 6 floats and a label: 144 bytes.
#include <array>
#include <cstdint>
#include <cstdlib>

#include "inputs.h"
#include "mesh/build_f.h"
#include "mesh/compact.h"
#include "mesh/edge_mates.h"
#include "mesh/export_data.h"
#include "mesh/shells.h"
#include "mesh/vertex_welder.h"

#ifdef POVMESH_BENCH_PEERS
#include <meshoptimizer.h>
#endif

namespace povmesh::bench {
namespace {

struct Welded {
    Array<Vertex> vertices;
    Array<std::int32_t> numbers;  // one a corner
};

// The welding of build_f, with its block size and its guess of the vertex count, and nothing else.
Welded weld(const shapes::SoupVector& corners) {
    Welded welded;
    const std::size_t corner_count = corners.size() / 3;
    const std::size_t triangles = corner_count / 3;
    const std::size_t expected = triangles / 2 + triangles / 64 + 2;
    VertexWelder welder(weld_box(corners.data(), corner_count), expected);
    welded.vertices.reserve(expected + VertexWelder::kBlock);
    welded.numbers.resize(corner_count);
    for (std::size_t i = 0; i < corner_count; i += VertexWelder::kBlock) {
        const std::size_t in_block = std::min(VertexWelder::kBlock, corner_count - i);
        welder.weld_block(&corners[i * 3], in_block, &welded.numbers[i], welded.vertices);
    }
    return welded;
}

void weld(benchmark::State& state, const std::string& input) {
    const shapes::SoupVector& corners = soup(input);
    measure(state, [&] { return weld(corners); });
    set_floor(state, 92.0 * static_cast<double>(triangle_count(input)));
}

#ifdef POVMESH_BENCH_PEERS
// The same corners (12-byte positions, no indices), the same outputs: a vertex buffer and an index
// a corner. Buffers come from the same allocator as ours and are made within the measured time, as
// ours are. The library compares bytes exactly and knows no cells.
struct Remapped {
    Array<float> vertices;
    Array<unsigned> indices;
};

Remapped remap(const shapes::SoupVector& corners) {
    constexpr std::size_t kVertexSize = 3 * sizeof(float);
    Remapped result;
    const std::size_t corner_count = corners.size() / 3;
    Array<unsigned> remap(corner_count);
    const std::size_t vertex_count = meshopt_generateVertexRemap(
        remap.data(), nullptr, corner_count, corners.data(), corner_count, kVertexSize);
    result.vertices.resize(vertex_count * 3);
    meshopt_remapVertexBuffer(result.vertices.data(), corners.data(), corner_count, kVertexSize,
                              remap.data());
    result.indices.resize(corner_count);
    meshopt_remapIndexBuffer(result.indices.data(), nullptr, corner_count, remap.data());
    return result;
}

void weld_meshoptimizer(benchmark::State& state, const std::string& input) {
    const shapes::SoupVector& corners = soup(input);
    measure(state, [&] { return remap(corners); });
}
#endif

void build(benchmark::State& state, const std::string& input) {
    const shapes::SoupVector& corners = soup(input);
    measure(state, [&] { return shapes::mesh_of(corners); });
}

void build_and_uses(benchmark::State& state, const std::string& input) {
    const shapes::SoupVector& corners = soup(input);
    measure(state, [&] {
        TriMesh built = shapes::mesh_of(corners);
        build_uses(built);
        return built;
    });
}

TriMesh copy_with_uses(const std::string& input) {
    TriMesh copy = mesh(input);
    build_uses(copy);
    return copy;
}

void uses(benchmark::State& state, const std::string& input) {
    measure(
        state, [&] { return mesh(input); },
        [](TriMesh& copy) {
            build_uses(copy);
            return copy.use_table.uses.data();
        });
    set_floor(state, 114.0 * static_cast<double>(triangle_count(input)));
}

void edge_mates(benchmark::State& state, const std::string& input) {
    TriMesh with_uses = copy_with_uses(input);
    measure(state, [&] { return EdgeMates(with_uses); });
}

// Uses and edge table included.
void shells(benchmark::State& state, const std::string& input) {
    measure(
        state, [&] { return mesh(input); },
        [](TriMesh& copy) {
            label_shells(copy);
            return copy.shells.size();
        });
}

void compact_all(benchmark::State& state, const std::string& input) {
    measure(
        state, [&] { return mesh(input); },
        [](TriMesh& copy) {
            compact(copy);
            return copy.faces.size();
        });
    set_floor(state, 88.0 * static_cast<double>(triangle_count(input)));
}

// Every other face deleted, which leaves most vertices in use.
void compact_half(benchmark::State& state, const std::string& input) {
    measure(
        state,
        [&] {
            TriMesh copy = mesh(input);
            for (std::size_t f = 0; f < copy.faces.size(); f += 2) copy.faces[f].deleted = 1;
            return copy;
        },
        [](TriMesh& copy) {
            compact(copy);
            return copy.faces.size();
        });
    set_floor(state, 66.0 * static_cast<double>(triangle_count(input)));
}

// Owns what export_data hands out.
struct Exported {
    explicit Exported(const TriMesh& mesh) : arrays(export_data(mesh)) {}
    ~Exported() {
        for (float* array : {arrays.coordinates, arrays.colours, arrays.texture_coordinates}) {
            std::free(array);
        }
        std::free(arrays.labels);
    }
    Exported(const Exported&) = delete;
    Exported& operator=(const Exported&) = delete;
    SoupArrays arrays;
};

void export_soup(benchmark::State& state, const std::string& input) {
    const TriMesh& exported = mesh(input);
    measure(state, [&] { return Exported(exported); });
    set_floor(state, 144.0 * static_cast<double>(triangle_count(input)));
}

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    add("weld", compared_inputs(), weld);
#ifdef POVMESH_BENCH_PEERS
    add("weld_meshoptimizer", compared_inputs(), weld_meshoptimizer);
#endif
    add("build_and_uses", compared_inputs(), build_and_uses);
    add("build_f", compared_inputs(), build);
    add("build_f", growing_inputs(), build);
    add("build_uses", compared_inputs(), uses);
    add("build_uses", growing_inputs(), uses);
    add("edge_mates", compared_inputs(), edge_mates);
    add("label_shells", compared_inputs(), shells);
    add("label_shells", growing_inputs(), shells);
    add("label_shells", crowded_inputs(), shells);
    add("compact", compared_inputs(), compact_all);
    add("compact_half", compared_inputs(), compact_half);
    add("export_data", compared_inputs(), export_soup);
    return run(argc, argv);
}
