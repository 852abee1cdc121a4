// STL files.
#pragma once

#include <cstdint>
#include <string>

#include "base/array.h"
#include "base/status.h"
#include "io/byte_sink.h"
#include "io/byte_source.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

struct StlReadOptions {
    // Take the words "facet", "endfacet" and "vertex" in any case, as some exporters write them.
    // Off, only lower case counts, which is what hosts of the exported functions get.
    bool any_case = false;

    // A file with a byte of 0 in its first kilobyte, and no "facet" there, is binary without a look
    // for words in all of it, and of a binary file that size and header show to be BadFile nothing
    // is read and delivered. Off, hosts get what there is, however long that takes.
    bool strict = false;
};

/// What a file turned out to be.
struct StlInfo {
    bool is_ascii = false;
    std::uint64_t promised_triangles = 0;  // count in the header of a binary file
    std::uint64_t triangles = 0;       // triangles read, before any is dropped for equal corners
    std::uint64_t trailing_bytes = 0;  // bytes of a binary file behind the last promised record

    /// Records that the trailing bytes have room for. With any, the count may be what is wrong, and
    /// a file that was not read whole must not be replaced by what was read of it.
    std::uint64_t records_left_out = 0;
};

/// Reads the corner coordinates of an STL file: 9 floats a triangle, in file order.
///
/// A file is binary when its size is exactly what its count asks for; any other is read as ASCII
/// first, and as binary when that gives no face. A binary file gives the records that it holds,
/// whatever it promises. ASCII is a stream of words: inside a facet, each word that contains
/// "vertex" is followed by three numbers; they are read without regard to the locale, a word that
/// begins with no number ends the reading, and three corners make a triangle.
///
/// @return  CannotRead when the file cannot be opened (nothing is touched, no progress is written);
///          BadFile when it is truncated, holds no triangle, has a facet whose corners are not a
///          multiple of three or a number with text behind it ("2,75" is read as 2), or is no STL
///          file: what could be read is delivered all the same, see `strict`;
///          TooLarge beyond kMaxFaceCount triangles.
/// Progress: 5 when the file is open, 48 at the end.
/// Memory above the result: a buffer of 256 KB; no allocation follows the count of the file.
Status read_stl_soup(const std::string& path, const StlReadOptions& options, RunContext& run,
                     Array<float>& coordinates, StlInfo& info);

/// The same, made into a mesh by `build_f`.
Status read_stl(const std::string& path, const StlReadOptions& options, RunContext& run,
                TriMesh& mesh, StlInfo& info);
Status read_stl(const std::string& path, RunContext& run, TriMesh& mesh);

/// The same from bytes that need not be a file; `name` stands in the messages.
Status read_stl_soup(const ByteSource& source, const std::string& name,
                     const StlReadOptions& options, RunContext& run, Array<float>& coordinates,
                     StlInfo& info);
Status read_stl(const ByteSource& source, const std::string& name, const StlReadOptions& options,
                RunContext& run, TriMesh& mesh, StlInfo& info);

/// Writes the live faces as a binary STL file: header "PovMesh", normals and attribute words 0. A
/// face with a vertex index out of range is left out. The target is replaced only by a complete
/// file (see ReplacementFile).
///
/// @return  CannotWrite, with the reason; the target is then unchanged.
Status write_stl(const TriMesh& mesh, const std::string& path, bool flush_to_disk = true);

/// The same to any sink, which is committed at the end.
Status write_stl(const TriMesh& mesh, ByteSink& file);

}  // namespace povmesh
