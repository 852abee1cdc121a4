// Where a reader takes its bytes from: a file, or memory in tests and fuzz targets.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "io/file.h"

namespace povmesh {

struct ByteSource {
    std::uint64_t size = 0;
    // Reads up to `target.size()` bytes from `offset` and returns how many there were; fewer than
    // asked for means that the bytes end there.
    std::function<std::size_t(std::uint64_t offset, std::span<char> target)> read;
};

/// The file must outlive the source.
inline ByteSource bytes_of(const InputFile& file) {
    return {file.size(), [&file](std::uint64_t offset, std::span<char> target) {
                return file.read(offset, target);
            }};
}

/// The bytes must outlive the source.
inline ByteSource bytes_of(std::span<const char> bytes) {
    return {bytes.size(), [bytes](std::uint64_t offset, std::span<char> target) {
                if (offset >= bytes.size()) return std::size_t{0};
                const auto rest = bytes.subspan(static_cast<std::size_t>(offset));
                const std::size_t count = std::min(rest.size(), target.size());
                std::copy_n(rest.begin(), count, target.begin());
                return count;
            }};
}

}  // namespace povmesh
