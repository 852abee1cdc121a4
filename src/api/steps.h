// The steps that exported functions are lists of: each runs one core operation with its trace lines
// and stores its results for the host.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "analysis/sections.h"
#include "api/job.h"
#include "api/slots.h"
#include "mesh/build_f.h"
#include "mesh/tri_mesh.h"
#include "remesh/subdivide.h"

namespace povmesh::api {

/// Where a host wants a result of coordinates alone. Each pointer may be null, here and below.
struct SoupOut {
    float** coordinates;
    std::uint32_t* count;
};

struct ColourOut {
    float** coordinates;
    float** colours;
    float** texture_coordinates;
    std::int32_t** labels;
    std::uint32_t* count;
};

struct MultiOut {
    float** coordinates;
    float** colours;
    float** texture_coordinates;
    std::int32_t** labels;
    std::uint32_t** part_triangles;
    std::uint32_t* part_count;
};

struct CountersOut {
    std::uint32_t* inverted;
    std::uint32_t* open_edges;
    std::uint32_t* non_manifold;
    std::uint32_t* degenerate;

    void store_all(std::uint32_t value) const;
};

/// Where a host wants cross-sections: 3 floats, 3 floats and 1 float for each.
struct SectionsOut {
    float** centres;
    float** normals;
    float** scores;
    std::uint32_t* count;
};

/// Value of a counter when no flaw test ran.
constexpr std::uint32_t kNotTested = 0xFFFFFFFF;

/// A host's soup; null coordinates make it empty.
Soup soup_of(const float* coordinates, std::uint32_t count, const float* colours = nullptr,
             const float* texture_coordinates = nullptr, const std::int32_t* labels = nullptr);

/// A host's soup by reference; a null pointer on the way makes it empty.
Soup soup_of(float* const* coordinates, const std::uint32_t* count);

/// The path as text; null becomes the empty path, which no file has.
std::string path_of(const char* path);

/// Runs a step between its two trace lines and returns its result.
template <typename Step>
auto traced(std::string_view operation, Step step) {
    run_log().trace_in(kTraceUnit, operation);
    if constexpr (std::is_void_v<decltype(step())>) {
        step();
        run_log().trace_out(kTraceUnit, operation);
    } else {
        auto result = step();
        run_log().trace_out(kTraceUnit, operation);
        return result;
    }
}

/// Makes the mesh from the soup. Trace: tri.build_f.
TriMesh build(const Soup& soup);

/// Reads an STL file, as far as that goes. Returns true when the file was read whole. The reader
/// sets progress 5 and 48.
bool load_stl(Job& job, TriMesh& mesh, const char* path);

/// Writes the live faces over the file, unless there are none. That it cannot be written is not
/// told.
void save_stl(const TriMesh& mesh, const char* path);

/// Reads an OBJ file, as far as that goes.
void load_obj(TriMesh& mesh, const char* path);

/// Writes an OBJ file. That it cannot be written is not told.
void save_obj(TriMesh& mesh, const char* path);

/// The reduction ahead of an analysis that needs no detail: that of large shells, then half the
/// faces of each; where the mesh has few faces or would stray, none.
void reduce_for_analysis(Job& job, TriMesh& mesh);

/// Subdivides so many times.
void subdivide_levels(TriMesh& mesh, std::uint32_t levels, SubdivideMode mode);

/// Remeshes by edge lengths: one for the whole model, or one for each triangle of the soup that the
/// mesh was built from. Any other number of them, or none, changes nothing.
void remesh_by_lengths(Job& job, TriMesh& mesh, const Soup& soup, std::span<const float> lengths);

/// Presets the counters, tests for flaws and stores the counts; returns 1 when there are any, else
/// 0. Trace: tri.detect.
std::uint64_t test_for_flaws(TriMesh& mesh, const CountersOut& out = {});

/// Hands the live faces over. Trace: tri.export_data.
void export_soup(const TriMesh& mesh, const ColourOut& out);

/// The same for hosts who get only some of the arrays: the others are freed, their slots empty.
void export_coordinates(const TriMesh& mesh, const SoupOut& out);
void export_coordinates_and_colours(const TriMesh& mesh, float** coordinates, float** colours,
                                    std::uint32_t* count);

/// Hands cross-sections over in their order.
void export_sections(std::span<const WeakSection> sections, const SectionsOut& out);

/// Makes the mesh its own only part, leaving it empty.
void keep_as_one_part(TriMesh& mesh);

/// Hands the parts over.
void export_parts(const TriMesh& mesh, const MultiOut& out);

}  // namespace povmesh::api
