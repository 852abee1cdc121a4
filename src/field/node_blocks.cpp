#include "field/node_blocks.h"

namespace povmesh {
namespace {

constexpr std::uint64_t kLowColumn = 0x0101010101010101;  // x = 0
constexpr std::uint64_t kHighColumn = kLowColumn << 7;    // x = 7

}  // namespace

BlockBits shifted(const BlockBits& bits, const BlockBits& neighbour, std::size_t axis,
                  std::int32_t by) {
    BlockBits result;
    for (std::size_t z = 0; z < 8; ++z) {
        const std::uint64_t own = bits.words[z];
        const std::uint64_t other = neighbour.words[z];
        if (axis == 0) {
            result.words[z] = by > 0 ? (own >> 1 & ~kHighColumn) | (other & kLowColumn) << 7
                                     : (own << 1 & ~kLowColumn) | (other & kHighColumn) >> 7;
        } else if (axis == 1) {
            result.words[z] = by > 0 ? own >> 8 | other << 56 : own << 8 | other >> 56;
        } else if (by > 0) {
            result.words[z] = z < 7 ? bits.words[z + 1] : neighbour.words[0];
        } else {
            result.words[z] = z > 0 ? bits.words[z - 1] : neighbour.words[7];
        }
    }
    return result;
}

}  // namespace povmesh
