// The keys by which OBJ files tell positions and colours apart.
#pragma once

#include <cstdint>

#include "base/convert.h"

namespace povmesh {

/// Sum of the three values, each times 1000003 in float and truncated, with weights; wraps. Values
/// that agree to about six decimals have the same key.
inline std::uint64_t obj_split_key(float a, float b, float c) {
    const auto part = [](float value, std::uint64_t weight) {
        return static_cast<std::uint64_t>(saturate_to<std::int64_t>(value * 1000003.0F)) * weight;
    };
    return part(a, 108881) + part(b, 110881) + part(c, 118081);
}

}  // namespace povmesh
