// Packs a text that is made in parts, on several threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "base/array.h"

namespace povmesh {

struct DeflatedParts {
    std::vector<Array<char>> parts;  // one after the other: a raw deflate stream (RFC 1951)
    std::uint64_t packed_size = 0;   // of all of them
    std::uint64_t size = 0;          // of what went in
    std::uint32_t crc = 0;           // CRC-32 of it
};

/// Makes the text of a part; what the array holds before is of no account. Parts are made at the
/// same time.
using TextOfPart = std::function<void(std::size_t part, Array<char>& text)>;

/// Packs the text that the parts make together.
///
/// Each part is packed for itself, in pieces of 64 KB, and ends on a whole byte, so that they can
/// be joined. The bytes are the same for any number of threads.
///
/// Memory: a part and its packed bytes for each thread, and what comes out.
DeflatedParts deflate_parts(std::size_t count, const TextOfPart& text_of_part);

}  // namespace povmesh
