// PLY files: ASCII, little-endian and big-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/status.h"
#include "io/byte_sink.h"
#include "io/byte_source.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

enum class PlyForm { Ascii, LittleEndian, BigEndian };

/// What a file turned out to be.
struct PlyInfo {
    PlyForm form = PlyForm::Ascii;
    std::size_t vertices = 0;   // rows of the element "vertex"
    std::size_t faces = 0;      // rows of the element "face"
    std::size_t triangles = 0;  // before any is dropped for equal corners
    bool has_colours = false;
    bool has_face_colours = false;           // beside those of the vertices, which count then
    bool has_textures = false;               // texture coordinates of vertices or corners
    std::size_t short_faces = 0;             // of fewer than three corners; they make nothing
    std::uint64_t first_short = 0;           // line of the first of them, byte in a binary file
    std::uint64_t trailing_bytes = 0;        // behind the last element
    std::vector<std::string> left_out;       // elements and properties that a mesh cannot hold
    std::vector<std::string> texture_files;  // of comments "TextureFile NAME"
};

/// Reads a PLY file into a mesh and compacts it.
///
/// Of the element "vertex" the properties x, y, z, red, green, blue (also diffuse_red and r) and
/// the texture coordinates s, t (also u, v, texture_u, texture_v) count; of "face" the list
/// vertex_indices (also vertex_index), colours of the same names, the list texcoord and texnumber;
/// of "tristrips" the list vertex_indices. Everything else is skipped by its size. Channels go to
/// 255, those of type ushort to 65535, those of a floating-point type to 1. A face with texture
/// coordinates has its texnumber, or 0, as its label; one without has its texnumber, or -1.
/// Polygons are cut into triangles as those of OBJ are. Coordinates become the nearest floats.
///
/// @return  CannotRead when the file cannot be opened; TooLarge; BadFile with the line of an ASCII
///          file or the byte of a binary one when the header is damaged, the rows end early, a list
///          counts more items than there are or fewer than none, a corner names no vertex, or a
///          number cannot be read; also when the file holds no face.
/// Memory above the mesh: a buffer of 256 KB and the colours, three bytes a vertex; nothing is
/// allocated for a count that the size of the file does not bear out.
Status read_ply(const ByteSource& source, const std::string& name, TriMesh& mesh, PlyInfo& info);
Status read_ply(const std::string& path, TriMesh& mesh, PlyInfo& info);

/// Writes the live faces as little-endian PLY with the coordinates as they are. Colours, if a face
/// has one other than white, stand with the faces when each has one, else with the vertices, of
/// which there is one for each colour that its corners have. Texture coordinates are those of the
/// corners (texcoord), floats when all of them are floats; texnumber is the label. A face with a
/// vertex index out of range is left out.
///
/// @return  CannotWrite, with the reason; the target is then unchanged.
Status write_ply(const TriMesh& mesh, ByteSink& file,
                 const std::vector<std::string>& texture_files = {});
Status write_ply(const TriMesh& mesh, const std::string& path, bool flush_to_disk = true);

}  // namespace povmesh
