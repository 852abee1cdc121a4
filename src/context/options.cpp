// Fills option structs of any size with the defaults.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "context/defaults.h"

namespace povmesh::context {
namespace {

template <typename Options>
povmesh_status fill(void* options, std::size_t bytes) {
    const Options known = defaults_of<Options>();
    std::memset(options, 0, bytes);
    std::memcpy(options, &known, std::min(bytes, sizeof known));
    const auto size = static_cast<std::uint32_t>(bytes);
    std::memcpy(options, &size, sizeof size);
    return POVMESH_OK;
}

}  // namespace
}  // namespace povmesh::context

using namespace povmesh::context;

povmesh_status povmesh_options_init(int32_t operation, void* options, size_t bytes) {
    if (options == nullptr || bytes < sizeof(std::uint32_t) || bytes > UINT32_MAX) {
        return POVMESH_INVALID_ARGUMENT;
    }
    switch (operation) {
        case POVMESH_CHECK:
            return fill<povmesh_check_options>(options, bytes);
        case POVMESH_REPAIR:
            return fill<povmesh_repair_options>(options, bytes);
        case POVMESH_SPLIT:
            return fill<povmesh_split_options>(options, bytes);
        case POVMESH_CUT:
            return fill<povmesh_cut_options>(options, bytes);
        case POVMESH_REDUCE:
            return fill<povmesh_reduce_options>(options, bytes);
        case POVMESH_REMESH:
            return fill<povmesh_remesh_options>(options, bytes);
        case POVMESH_REVISE:
            return fill<povmesh_revise_options>(options, bytes);
        case POVMESH_SUBDIVIDE:
            return fill<povmesh_subdivide_options>(options, bytes);
        case POVMESH_HOLLOW:
            return fill<povmesh_hollow_options>(options, bytes);
        case POVMESH_INFILL:
            return fill<povmesh_infill_options>(options, bytes);
        case POVMESH_VOXELIZE:
            return fill<povmesh_voxelize_options>(options, bytes);
        case POVMESH_SUPPORT:
            return fill<povmesh_support_options>(options, bytes);
        case POVMESH_STRENGTH:
            return fill<povmesh_strength_options>(options, bytes);
        case POVMESH_WEAKNESS:
            return fill<povmesh_weakness_options>(options, bytes);
        case POVMESH_RENDER:
            return fill<povmesh_render_options>(options, bytes);
        case POVMESH_DISTANCE:
            return fill<povmesh_distance_options>(options, bytes);
        case POVMESH_DECOMPOSE:
            return fill<povmesh_decompose_options>(options, bytes);
        case POVMESH_LAMPSHADE:
            return fill<povmesh_lampshade_options>(options, bytes);
        case POVMESH_ORIENT:
            return fill<povmesh_orient_options>(options, bytes);
        case POVMESH_BALANCE:
            return fill<povmesh_balance_options>(options, bytes);
        case POVMESH_READ:
            return fill<povmesh_read_options>(options, bytes);
        case POVMESH_WRITE:
            return fill<povmesh_write_options>(options, bytes);
        case POVMESH_OFFSET:
            return fill<povmesh_offset_options>(options, bytes);
        case POVMESH_WRAP:
            return fill<povmesh_wrap_options>(options, bytes);
        case POVMESH_THICKNESS:
            return fill<povmesh_thickness_options>(options, bytes);
        default:
            return POVMESH_UNSUPPORTED;
    }
}
