// The records of a binary STL file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "io/byte_source.h"

namespace povmesh {

constexpr std::size_t kStlHeaderBytes = 80;
constexpr std::size_t kStlPrologueBytes = kStlHeaderBytes + 4;  // header and count
constexpr std::size_t kStlRecordBytes = 50;
constexpr std::size_t kStlCornersOffset = 12;  // in a record, behind the normal
constexpr std::size_t kStlCornersBytes = 36;
constexpr std::size_t kStlAttributeBytes = 2;

/// Number of records of which `bytes` bytes hold all coordinates; the last may lack its attribute
/// word.
constexpr std::uint64_t stl_records_in(std::uint64_t bytes) {
    return (bytes + kStlAttributeBytes) / kStlRecordBytes;
}

/// Reads the corners of `count` records behind header and count, as far as they are there: 9 floats
/// a triangle, replacing what is in `coordinates`. The caller has made sure that the source is
/// large enough for `count` to be believed.
void parse_binary_stl(const ByteSource& source, std::size_t count, Array<float>& coordinates);

}  // namespace povmesh
