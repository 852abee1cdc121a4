#include "api/steps.h"

#include <array>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

#include "analysis/weakness.h"
#include "base/convert.h"
#include "io/obj.h"
#include "io/stl.h"
#include "mesh/export_data.h"
#include "remesh/parallel_reduce.h"
#include "remesh/reduce.h"
#include "remesh/remesh.h"
#include "repair/detect.h"

namespace povmesh::api {
namespace {

// A level makes up to four faces of one: five levels turn a million faces into a thousand million.
constexpr std::uint32_t kMostLevels = 5;

// The reduction of the preprocessing exports: only shells of more than 100,000 faces, and no face
// turns by more than 9.9 degrees in a collapse.

// Outlines of cross-sections are as good with half the faces.
constexpr float kKeptForAnalysis = 0.5F;

constexpr std::array kColourSlots{Slot::Colours, Slot::TextureCoordinates, Slot::Labels};

SoupArrays export_traced(Job& job, const TriMesh& mesh) {
    job.run().log.trace_in(kTraceUnit, "tri.export_data");
    const SoupArrays arrays = export_data(mesh);
    job.run().log.trace_out(kTraceUnit, "tri.export_data");
    return arrays;
}

// The lengths of those triangles that became faces. Which ones did is found by building the soup
// once more, with the number of each triangle for its colours.
std::vector<float> lengths_of_faces(const TriMesh& mesh, const Soup& soup,
                                    std::span<const float> lengths) {
    if (mesh.faces.size() == lengths.size()) return {lengths.begin(), lengths.end()};
    std::vector<std::uint8_t> numbers(9 * lengths.size());
    for (std::uint32_t i = 0; i < lengths.size(); ++i) {
        std::memcpy(&numbers[9 * std::size_t{i}], &i, sizeof(i));
    }
    TriMesh numbered;
    build_f(numbered, ByteSoup{.triangle_count = soup.triangle_count,
                               .coordinates = soup.coordinates,
                               .colours = numbers.data(),
                               .texture_coordinates = nullptr,
                               .labels = nullptr});
    std::vector<float> kept;
    for (const Face& face : numbered.faces) {
        std::uint32_t number = 0;
        std::memcpy(&number, face.colour.data(), sizeof(number));
        kept.push_back(lengths[number]);
    }
    return kept;
}

void hand_over_soup(const SoupArrays& arrays, const ColourOut& out) {
    hand_over(Slot::Coordinates, arrays.coordinates, out.coordinates);
    hand_over(Slot::Colours, arrays.colours, out.colours);
    hand_over(Slot::TextureCoordinates, arrays.texture_coordinates, out.texture_coordinates);
    hand_over(Slot::Labels, arrays.labels, out.labels);
    store(out.count, arrays.triangle_count);
}

}  // namespace

void CountersOut::store_all(std::uint32_t value) const {
    for (std::uint32_t* cell : {inverted, open_edges, non_manifold, degenerate}) {
        store(cell, value);
    }
}

Soup soup_of(const float* coordinates, std::uint32_t count, const float* colours,
             const float* texture_coordinates, const std::int32_t* labels) {
    if (coordinates == nullptr) return {};
    return {count, coordinates, colours, texture_coordinates, labels};
}

Soup soup_of(float* const* coordinates, const std::uint32_t* count) {
    if (coordinates == nullptr || count == nullptr) return {};
    return soup_of(*coordinates, *count);
}

std::string path_of(const char* path) {
    return path != nullptr ? path : "";
}

TriMesh build(Job& job, const Soup& soup) {
    TriMesh mesh;
    job.run().log.trace_in(kTraceUnit, "tri.build_f");
    build_f(mesh, soup);
    job.run().log.trace_out(kTraceUnit, "tri.build_f");
    return mesh;
}

bool load_stl(Job& job, TriMesh& mesh, const char* path) {
    return read_stl(path_of(path), job.run(), mesh).ok();
}

void save_stl(const TriMesh& mesh, const char* path) {
    if (live_face_count(mesh) == 0) return;
    (void)write_stl(mesh, path_of(path));
}

void load_obj(TriMesh& mesh, const char* path) {
    (void)read_obj(path_of(path), mesh);
}

void save_obj(TriMesh& mesh, const char* path) {
    (void)write_obj(mesh, path_of(path));
}

void reduce_and_compact(Job& job, TriMesh& mesh) {
    job.progress(57);
    job.run().log.trace_in(kTraceUnit, "tri.reduce");
    reduce(mesh, kReduceScans);
    job.progress(75);
    job.run().log.trace_out(kTraceUnit, "tri.reduce");
    job.progress(80);
}

void reduce_to_target(Job& job, TriMesh& mesh, float target) {
    reduce_parallel(mesh, {.keep = static_cast<double>(target)}, job.run());
}

void reduce_for_analysis(Job& job, TriMesh& mesh) {
    job.run().log.trace_in(kTraceUnit, "tri.reduce");
    reduce_for_weakness(mesh, [&](TriMesh& reduced) {
        reduce(reduced, kReduceScans);
        reduce_to_target(job, reduced, kKeptForAnalysis);
    });
    job.run().log.trace_out(kTraceUnit, "tri.reduce");
}

void subdivide_levels(TriMesh& mesh, std::uint32_t levels, SubdivideMode mode) {
    if (levels > kMostLevels) return;
    for (std::uint32_t level = 0; level < levels; ++level) {
        subdivide(mesh, mode);
    }
}

void remesh_by_lengths(Job& job, TriMesh& mesh, const Soup& soup, float* const* edge_lengths,
                       const std::uint32_t* edge_length_count) {
    if (edge_lengths == nullptr || *edge_lengths == nullptr || edge_length_count == nullptr) return;
    const std::span<const float> lengths(*edge_lengths, *edge_length_count);
    if (lengths.size() == 1) {
        remesh(mesh, {.edge_length = static_cast<double>(lengths[0])}, job.run());
    } else if (lengths.size() == soup.triangle_count) {
        const std::vector<float> kept = lengths_of_faces(mesh, soup, lengths);
        remesh(mesh, {.face_lengths = kept}, job.run());
    }
}

std::uint64_t test_for_flaws(Job& job, TriMesh& mesh, const CountersOut& out) {
    out.store_all(kNotTested);
    job.run().log.trace_in(kTraceUnit, "tri.detect");
    const FlawCounts flaws = detect(mesh);
    job.run().log.trace_out(kTraceUnit, "tri.detect");
    store(out.inverted, flaws.inverted);
    store(out.open_edges, flaws.open_edges);
    store(out.non_manifold, flaws.non_manifold);
    store(out.degenerate, flaws.degenerate);
    return flaws.any() ? 1 : 0;
}

void export_soup(Job& job, const TriMesh& mesh, const ColourOut& out) {
    hand_over_soup(export_traced(job, mesh), out);
}

void export_coordinates(Job& job, const TriMesh& mesh, const SoupOut& out) {
    export_soup(job, mesh, {out.coordinates, nullptr, nullptr, nullptr, out.count});
    free_slots(kColourSlots);
}

void export_coordinates_and_colours(Job& job, const TriMesh& mesh, float** coordinates,
                                    float** colours, std::uint32_t* count) {
    export_soup(job, mesh, {coordinates, colours, nullptr, nullptr, count});
    free_slots(std::array{Slot::TextureCoordinates, Slot::Labels});
}

void export_sections(std::span<const WeakSection> sections, const SectionsOut& out) {
    auto centres = allocate_result<float>(3 * sections.size());
    auto normals = allocate_result<float>(3 * sections.size());
    auto scores = allocate_result<float>(sections.size());
    for (std::size_t i = 0; i < sections.size(); ++i) {
        const Vec3d centre = sections[i].centre;
        const Vec3d normal = sections[i].normal;
        const std::array values = {centre.x, centre.y, centre.z, normal.x, normal.y, normal.z};
        for (std::size_t k = 0; k < 3; ++k) {
            centres[3 * i + k] = narrow_to_float(values[k]);
            normals[3 * i + k] = narrow_to_float(values[3 + k]);
        }
        scores[i] = sections[i].score;
    }
    hand_over(Slot::WeaknessCentres, std::move(centres), out.centres);
    hand_over(Slot::WeaknessNormals, std::move(normals), out.normals);
    hand_over(Slot::WeaknessScores, std::move(scores), out.scores);
    store(out.count, fits<std::uint32_t>(sections.size()));
}

void keep_as_one_part(TriMesh& mesh) {
    TriMesh part = std::exchange(mesh, {});
    part.parts.clear();
    mesh.parts.push_back(std::move(part));
}

void export_parts(TriMesh& mesh, const MultiOut& out) {
    const MultiSoupArrays arrays = povmesh::export_parts(mesh);
    std::uint32_t* no_triangle_count = nullptr;
    hand_over_soup(arrays.soup, {out.coordinates, out.colours, out.texture_coordinates, out.labels,
                                 no_triangle_count});
    hand_over(Slot::PartTriangles, arrays.part_triangles, out.part_triangles);
    store(out.part_count, arrays.part_count);
}

}  // namespace povmesh::api
