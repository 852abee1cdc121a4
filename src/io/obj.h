// OBJ files: vertex colours, texture coordinates, numbered materials.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/status.h"
#include "io/byte_sink.h"
#include "io/byte_source.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

struct ObjReadOptions {
    // Off, the file is taken as hosts of the exported functions rely on: a vertex number stands as
    // it is, so that a polygon with one that names no vertex read so far throws std::out_of_range
    // ("invalid vector<T> subscript") and a triangle with one is left out, and of a number the
    // digits at its beginning count. On, negative numbers count back from the last vertex, vertices
    // may follow their faces, and what cannot be what its writer meant is a BadFile with its line:
    // a corner that names nothing or has more than three parts, a coordinate that is missing or not
    // wholly a decimal number.
    bool strict = false;
};

/// Lines of which something was left out.
struct ObjLines {
    std::size_t count = 0;
    std::size_t first = 0;  // number of the first of them, from 1
};

struct ObjInfo {
    std::size_t vertex_lines = 0;
    std::size_t texture_lines = 0;
    std::size_t face_lines = 0;     // with three corners or more
    std::size_t polygon_lines = 0;  // with more than three
    std::size_t triangles = 0;      // before any is dropped for equal corners
    bool has_colours = false;       // a vertex line had more than three numbers

    // Only counted when reading is strict:
    ObjLines short_faces;   // of fewer than three corners; they make nothing
    ObjLines bad_colours;   // a channel that is not wholly a number
    ObjLines bad_textures;  // a texture coordinate that is not wholly a number
};

/// Reads an OBJ file into a mesh and compacts it.
///
/// Lines "v" with up to three colour channels behind the coordinates (1.0 where there are none),
/// "vt", "f" and "usemtl" count; all others are skipped. A "#" at the beginning of a word ends the
/// line, a "\" at its end joins the next one unless it stands behind such a "#". A face has the
/// number of "usemtl" lines before it, less one, as its label if all its corners have a texture
/// coordinate, else -1. Faces of more than three corners are cut into triangles, after corners
/// within 1e-6 of the one before have been left out. Numbers are read without regard to the locale.
///
/// @return  CannotRead when the file cannot be opened; TooLarge; BadFile when it holds no face, or
///          when reading is strict, with the line number, for what `strict` names.
Status read_obj(const std::string& path, const ObjReadOptions& options, TriMesh& mesh,
                ObjInfo& info);
Status read_obj(const std::string& path, TriMesh& mesh);

/// The same from bytes that need not be a file; `name` stands in messages.
Status read_obj(const ByteSource& source, const std::string& name, const ObjReadOptions& options,
                TriMesh& mesh, ObjInfo& info);
Status parse_obj(std::string_view text, const std::string& name, const ObjReadOptions& options,
                 TriMesh& mesh, ObjInfo& info);

/// A soup in double precision; arrays as in Soup.
struct DoubleSoup {
    std::size_t triangle_count = 0;
    const double* coordinates = nullptr;
    const float* colours = nullptr;
    const double* texture_coordinates = nullptr;
    const std::int32_t* labels = nullptr;
};

/// Builds a mesh for the OBJ writer. Corners, rounded to floats, share a vertex when they lie in
/// the same of 11^3 cells of the bounding box and agree in the sum of trunc(x * 1000003) * 108881,
/// trunc(y * 1000003) * 110881 and trunc(z * 1000003) * 118081, products in float. Otherwise as
/// `build_f`.
void build_from_doubles(TriMesh& mesh, const DoubleSoup& soup);

struct ObjWriteOptions {
    // Off: five decimals and the lines "mtllib output.mtl" and "usemtl -1", as hosts of the
    // exported functions get them. On: as many digits as bring back the same bits (texture
    // coordinates that are floats: the same floats), texture coordinates that are alike once, no
    // name of a file that is not written, colours for all faces if one has any, and materials
    // numbered so that labels read back the same.
    bool exact = false;
};

/// Writes the live faces. A vertex is written once for its textured faces and once for each colour
/// that it has on the others, in the exact form once for each colour; faces stand in groups by
/// ascending label.
///
/// The target is replaced only by a complete file (see ReplacementFile).
/// @return  CannotWrite, with the reason; the target is then unchanged.
Status write_obj(TriMesh& mesh, const std::string& path, const ObjWriteOptions& options = {},
                 bool flush_to_disk = true);

/// The same to any sink, which is committed at the end.
Status write_obj(TriMesh& mesh, ByteSink& file, const ObjWriteOptions& options = {});

}  // namespace povmesh
