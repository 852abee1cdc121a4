// The steps that exported functions are lists of: each runs one core operation with its trace lines
// and stores its results for the host.
#pragma once

#include <cstdint>
#include <span>
#include <string>

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

/// Makes the mesh from the soup. Trace: tri.build_f.
TriMesh build(Job& job, const Soup& soup);

/// Reads an STL file, as far as that goes. Returns true when the file was read whole.
bool load_stl(Job& job, TriMesh& mesh, const char* path);

/// Writes the live faces over the file, unless there are none. That it cannot be written is not
/// told.
void save_stl(const TriMesh& mesh, const char* path);

/// Reads an OBJ file, as far as that goes.
void load_obj(TriMesh& mesh, const char* path);

/// Writes an OBJ file. That it cannot be written is not told.
void save_obj(TriMesh& mesh, const char* path);

/// The reduction that preprocessing hosts get, between progress 57 and 80. Trace: tri.reduce.
void reduce_and_compact(Job& job, TriMesh& mesh);

/// The reduction to a host's own target, compacting included: the share of each shell's faces to
/// keep, 0.05 at least; below -0.5 automatic. A target that is not a number changes nothing.
void reduce_to_target(Job& job, TriMesh& mesh, float target);

/// The reduction ahead of an analysis that needs no detail: the automatic one, then half the faces
/// of each shell; where the mesh has few faces or would stray, none. Trace: tri.reduce.
void reduce_for_analysis(Job& job, TriMesh& mesh);

/// Subdivides 1 to 5 times, each level followed by compacting; any other number of levels does
/// nothing.
void subdivide_levels(TriMesh& mesh, std::uint32_t levels, SubdivideMode mode);

/// Remeshes by a host's edge lengths: one for the whole model, or one for each triangle of the soup
/// that the mesh was built from. Any other number of them, or none, changes nothing.
void remesh_by_lengths(Job& job, TriMesh& mesh, const Soup& soup, float* const* edge_lengths,
                       const std::uint32_t* edge_length_count);

/// Presets the counters, tests for flaws and stores the counts; returns 1 when there are any, else
/// 0. Trace: tri.detect.
std::uint64_t test_for_flaws(Job& job, TriMesh& mesh, const CountersOut& out = {});

/// Hands the live faces over. Trace: tri.export_data.
void export_soup(Job& job, const TriMesh& mesh, const ColourOut& out);

/// The same for hosts who get only some of the arrays: the others are freed, their slots empty.
void export_coordinates(Job& job, const TriMesh& mesh, const SoupOut& out);
void export_coordinates_and_colours(Job& job, const TriMesh& mesh, float** coordinates,
                                    float** colours, std::uint32_t* count);

/// Hands cross-sections over in their order.
void export_sections(std::span<const WeakSection> sections, const SectionsOut& out);

/// Makes the mesh its own only part, leaving it empty.
void keep_as_one_part(TriMesh& mesh);

/// Hands the parts over that have a volume of 1 or more.
void export_parts(TriMesh& mesh, const MultiOut& out);

}  // namespace povmesh::api
