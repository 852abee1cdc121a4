#include "api/steps.h"

#include <array>
#include <utility>
#include <vector>

#include "analysis/weakness.h"
#include "api/host_numbers.h"
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

// Outlines of cross-sections are as good with half the faces.
constexpr float kKeptForAnalysis = 0.5F;

constexpr std::array kColourSlots{Slot::Colours, Slot::TextureCoordinates, Slot::Labels};

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

TriMesh build(const Soup& soup) {
    TriMesh mesh;
    traced("tri.build_f", [&] { build_f(mesh, soup); });
    return mesh;
}

bool load_stl(Job& job, TriMesh& mesh, const char* path) {
    StlInfo info;
    const Status status = read_stl(path_of(path), {}, job.run(), mesh, info);
    return status.ok() && info.records_left_out == 0;
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

void reduce_for_analysis(Job& job, TriMesh& mesh) {
    reduce_for_weakness(mesh, [&](TriMesh& reduced) {
        reduce(reduced, kReduceScans);
        reduce_parallel(reduced, reduction_to(kKeptForAnalysis), job.run());
    });
}

void subdivide_levels(TriMesh& mesh, std::uint32_t levels, SubdivideMode mode) {
    for (std::uint32_t level = 0; level < levels; ++level) {
        subdivide(mesh, mode);
    }
}

void remesh_by_lengths(Job& job, TriMesh& mesh, const Soup& soup, std::span<const float> lengths) {
    if (lengths.size() == 1) {
        remesh(mesh, {.edge_length = static_cast<double>(lengths[0])}, job.run());
    } else if (lengths.size() == soup.triangle_count) {
        const std::vector<float> kept = lengths_of_faces(mesh, soup, lengths);
        remesh(mesh, {.face_lengths = kept}, job.run());
    }
}

std::uint64_t test_for_flaws(TriMesh& mesh, const CountersOut& out) {
    out.store_all(kNotTested);
    const FlawCounts flaws = traced("tri.detect", [&] { return detect(mesh); });
    store(out.inverted, flaws.inverted);
    store(out.open_edges, flaws.open_edges);
    store(out.non_manifold, flaws.non_manifold);
    store(out.degenerate, flaws.degenerate);
    return flaws.any() ? 1 : 0;
}

void export_soup(const TriMesh& mesh, const ColourOut& out) {
    hand_over_soup(traced("tri.export_data", [&] { return export_data(mesh); }), out);
}

void export_coordinates(const TriMesh& mesh, const SoupOut& out) {
    export_soup(mesh, {out.coordinates, nullptr, nullptr, nullptr, out.count});
    free_slots(kColourSlots);
}

void export_coordinates_and_colours(const TriMesh& mesh, float** coordinates, float** colours,
                                    std::uint32_t* count) {
    export_soup(mesh, {coordinates, colours, nullptr, nullptr, count});
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

void export_parts(const TriMesh& mesh, const MultiOut& out) {
    const MultiSoupArrays arrays = povmesh::export_parts(mesh);
    std::uint32_t* no_triangle_count = nullptr;
    hand_over_soup(arrays.soup, {out.coordinates, out.colours, out.texture_coordinates, out.labels,
                                 no_triangle_count});
    hand_over(Slot::PartTriangles, arrays.part_triangles, out.part_triangles);
    store(out.part_count, arrays.part_count);
}

}  // namespace povmesh::api
