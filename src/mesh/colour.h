// Colours as bytes.
#pragma once

#include <cmath>
#include <cstdint>

namespace povmesh {

/// The byte of a colour channel of 0 to 1. A value beyond that wraps in its low 8 bits, which
/// hosts rely on; one that no 64-bit integer can hold, or NaN, becomes 0.
inline std::uint8_t colour_byte(double channel) {
    const double scaled = channel * 255.0;
    if (!(std::abs(scaled) < 0x1p63)) return 0;
    return static_cast<std::uint8_t>(static_cast<std::int64_t>(scaled));
}

}  // namespace povmesh
