// Finds which corners are the same vertex.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// Box around corners, with the starting values of the welding rule: on an axis where all corners
/// lie beyond a million, the box still reaches to the starting value. A NaN coordinate widens
/// nothing.
struct WeldBox {
    Vec3f low{1e6F, 1e6F, 1e6F};
    Vec3f high{-1e6F, -1e6F, -1e6F};
};

/// The box of `corner_count` corners of 3 floats each.
WeldBox weld_box(const float* corners, std::size_t corner_count);
void widen(WeldBox& box, Vec3f corner);

/// Numbers corners by the welding rule of `build_f`: corners with the same cell of the box and the
/// same key share a vertex, and vertices are numbered as they first come up.
///
/// One open-addressing table over (cell, key) with 16 bytes a slot, so that a look-up touches one
/// cache line and never the vertices.
class VertexWelder {
public:
    /// @param box  the box of all corners that will come
    /// @param expected_vertices  a hint for the first size of the table
    VertexWelder(const WeldBox& box, std::size_t expected_vertices);

    /// Corners in one call of `weld_block` at most.
    static constexpr std::size_t kBlock = 192;

    /// Writes the vertex number of each of `corner_count` corners and appends vertices not met
    /// before.
    void weld_block(const float* corners, std::size_t corner_count, std::int32_t* numbers,
                    Array<Vertex>& vertices);

private:
    struct Slot {
        std::uint64_t key;
        std::uint32_t cell;
        std::int32_t number_plus_one;  // 0 = empty
    };

    std::size_t home(std::uint64_t key, std::uint32_t cell) const;
    void make_room(std::size_t vertex_count);
    std::int32_t find_or_add(Vec3f corner, std::uint64_t key, std::uint32_t cell, std::size_t start,
                             Vertex* vertices, std::size_t& vertex_count);

    Vec3f low_;
    Vec3f cell_size_;
    Array<Slot> slots_;
    unsigned shift_ = 0;  // 64 - log2(slot count)
};

}  // namespace povmesh
