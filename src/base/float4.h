// Four floats that are reckoned with at once, where the compiler knows how.
#pragma once

#include <array>
#include <cstddef>
#include <cstring>

namespace povmesh {

#if defined(__GNUC__)
using Float4 = float __attribute__((vector_size(16)));

inline Float4 larger(Float4 a, Float4 b) {
    return a > b ? a : b;
}
inline Float4 smaller(Float4 a, Float4 b) {
    return a < b ? a : b;
}
inline Float4 four_times(float x) {
    return Float4{x, x, x, x};
}
#else
struct Float4 {
    std::array<float, 4> lanes{};

    float operator[](std::size_t lane) const { return lanes[lane]; }
    friend Float4 operator-(Float4 a, Float4 b) {
        for (std::size_t i = 0; i < 4; ++i) a.lanes[i] -= b.lanes[i];
        return a;
    }
    friend Float4 operator+(Float4 a, Float4 b) {
        for (std::size_t i = 0; i < 4; ++i) a.lanes[i] += b.lanes[i];
        return a;
    }
    friend Float4 operator*(Float4 a, Float4 b) {
        for (std::size_t i = 0; i < 4; ++i) a.lanes[i] *= b.lanes[i];
        return a;
    }
};

inline Float4 larger(Float4 a, Float4 b) {
    for (std::size_t i = 0; i < 4; ++i)
        a.lanes[i] = a.lanes[i] > b.lanes[i] ? a.lanes[i] : b.lanes[i];
    return a;
}
inline Float4 smaller(Float4 a, Float4 b) {
    for (std::size_t i = 0; i < 4; ++i)
        a.lanes[i] = a.lanes[i] < b.lanes[i] ? a.lanes[i] : b.lanes[i];
    return a;
}
inline Float4 four_times(float x) {
    return {{x, x, x, x}};
}
#endif

inline Float4 load4(const std::array<float, 4>& from) {
    Float4 to;
    static_assert(sizeof(to) == sizeof(from));
    std::memcpy(&to, from.data(), sizeof(to));
    return to;
}
inline std::array<float, 4> store4(Float4 from) {
    std::array<float, 4> to;
    std::memcpy(to.data(), &from, sizeof(to));
    return to;
}

}  // namespace povmesh
