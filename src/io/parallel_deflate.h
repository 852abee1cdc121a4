// Packs a stream of bytes on several threads.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "base/array.h"

namespace povmesh {

struct DeflatedBytes {
    Array<char> bytes;       // one raw deflate stream (RFC 1951)
    std::uint64_t size = 0;  // of what went in
    std::uint32_t crc = 0;   // CRC-32 of it
};

/// Packs what `next` gives, piece after piece until it gives none.
///
/// The stream is cut into parts of a megabyte, which are packed at the same time, each as if the 32
/// KB before it had gone through the same packer, and end on whole bytes, so that they can be
/// joined. The cuts are where they are for any number of threads, and so are the bytes.
///
/// Memory: eight parts and what comes out.
DeflatedBytes deflate_in_parts(const std::function<std::span<const char>()>& next);

}  // namespace povmesh
