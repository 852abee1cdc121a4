// Finds which corners are the same vertex.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "base/poll.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "mesh/weld_table.h"
#include "mesh/welding.h"

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

/// Numbers corners: those of the same bits share a vertex, or by the rule of hosts those with the
/// same cell of the box and the same key, as the thread has it where this is made (welding.h).
/// Vertices are numbered as they first come up.
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
    template <Welding Rule>
    void weld_by(const float* corners, std::size_t corner_count, std::int32_t* numbers,
                 Array<Vertex>& vertices);

    Welding rule_ = welding_of_thread();
    Vec3f low_;
    Vec3f cell_size_;
    WeldTable table_;
    Poller poller_;
};

}  // namespace povmesh
