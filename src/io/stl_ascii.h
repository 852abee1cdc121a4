// The words of an ASCII STL file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/array.h"
#include "io/byte_source.h"

namespace povmesh {

/// What stood in the way of reading all of a text.
struct AsciiStlResult {
    static constexpr std::uint64_t kNone = ~std::uint64_t{0};

    bool has_facet = false;               // a facet was begun
    std::uint64_t bad_facet = kNone;      // byte at which the first facet begins whose corners are
    std::uint64_t bad_facet_corners = 0;  // not a multiple of three, and how many it has
    bool is_cut = false;                  // the text ends within that facet
    std::uint64_t bad_number = kNone;     // byte of the first word that is not just a number; one
                                          // that begins with none ends the reading
    std::string bad_word;                 // that word, at most its beginning
    bool is_too_large = false;            // more triangles than a mesh can number
};

/// A word longer than this is searched piece by piece; of a number so long only the beginning
/// counts.
constexpr std::size_t kAsciiStlBuffer = std::size_t{256} << 10;

/// Reads the corners of an ASCII STL text as `read_stl_soup` tells: 9 floats for each complete
/// triangle, replacing what is in `coordinates`. Memory above the result: the buffer (64 bytes or
/// more).
AsciiStlResult parse_ascii_stl(const ByteSource& source, bool any_case, Array<float>& coordinates,
                               std::size_t buffer_size = kAsciiStlBuffer);

/// The line, counted from 1, in which a byte lies. A line ends with "\n", "\r\n" or "\r".
std::uint64_t line_of(const ByteSource& source, std::uint64_t offset);

}  // namespace povmesh
