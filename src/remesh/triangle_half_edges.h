// The half-edges of an array of triangles.
#pragma once

#include <cstdint>

namespace povmesh {

/// Half-edge h = 3 * triangle + corner runs from that corner to the next one.
inline std::uint32_t next_half_edge(std::uint32_t h) {
    return h % 3 == 2 ? h - 2 : h + 1;
}
inline std::uint32_t previous_half_edge(std::uint32_t h) {
    return h % 3 == 0 ? h + 2 : h - 1;
}

}  // namespace povmesh
