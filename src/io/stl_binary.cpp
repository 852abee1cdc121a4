#include "io/stl_binary.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace povmesh {

static_assert(std::endian::native == std::endian::little, "STL files are little-endian");

void parse_binary_stl(const ByteSource& source, std::size_t count, Array<float>& coordinates) {
    // 256 KB: small enough to stay in the second-level cache between reading and copying.
    constexpr std::size_t kChunkRecords = 5242;
    coordinates.clear();
    coordinates.resize(count * 9);
    Array<char> chunk(std::min(count, kChunkRecords) * kStlRecordBytes);
    std::uint64_t offset = kStlPrologueBytes;
    std::size_t done = 0;
    while (done < count) {
        const std::size_t wanted = std::min(count - done, kChunkRecords);
        const std::size_t bytes = source.read(offset, {chunk.data(), wanted * kStlRecordBytes});
        const auto records = static_cast<std::size_t>(stl_records_in(bytes));
        const char* corners = chunk.data() + kStlCornersOffset;
        float* target = coordinates.data() + done * 9;
        for (std::size_t i = 0; i < records; ++i) {
            std::memcpy(target, corners, kStlCornersBytes);
            corners += kStlRecordBytes;
            target += 9;
        }
        done += records;
        offset += bytes;
        if (records < wanted) break;
    }
    coordinates.resize(done * 9);
}

}  // namespace povmesh
