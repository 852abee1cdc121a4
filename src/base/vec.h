// Points, vectors and axis-aligned boxes.
#pragma once

#include <cmath>
#include <limits>

namespace povmesh {

template <typename T>
struct Vec3 {
    T x{}, y{}, z{};

    friend constexpr Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
    friend constexpr Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
    friend constexpr Vec3 operator*(Vec3 a, T s) { return {a.x * s, a.y * s, a.z * s}; }
    friend constexpr Vec3 operator/(Vec3 a, T s) { return {a.x / s, a.y / s, a.z / s}; }
    friend constexpr bool operator==(const Vec3&, const Vec3&) = default;
};

using Vec3f = Vec3<float>;
using Vec3d = Vec3<double>;

template <typename T>
constexpr T dot(Vec3<T> a, Vec3<T> b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

template <typename T>
constexpr Vec3<T> cross(Vec3<T> a, Vec3<T> b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

template <typename T>
T length(Vec3<T> a) {
    return std::sqrt(dot(a, a));
}

template <typename T>
bool is_finite(Vec3<T> a) {
    return std::isfinite(a.x) && std::isfinite(a.y) && std::isfinite(a.z);
}

template <typename T>
constexpr Vec3d to_double(Vec3<T> a) {
    return {static_cast<double>(a.x), static_cast<double>(a.y), static_cast<double>(a.z)};
}

/// Smallest axis-aligned box around the points given so far. A NaN coordinate widens nothing.
template <typename T>
struct Box3 {
    Vec3<T> low{std::numeric_limits<T>::max(), std::numeric_limits<T>::max(),
                std::numeric_limits<T>::max()};
    Vec3<T> high{std::numeric_limits<T>::lowest(), std::numeric_limits<T>::lowest(),
                 std::numeric_limits<T>::lowest()};

    constexpr void widen(Vec3<T> p) {
        if (p.x < low.x) low.x = p.x;
        if (p.y < low.y) low.y = p.y;
        if (p.z < low.z) low.z = p.z;
        if (p.x > high.x) high.x = p.x;
        if (p.y > high.y) high.y = p.y;
        if (p.z > high.z) high.z = p.z;
    }
    constexpr bool is_empty() const { return low.x > high.x || low.y > high.y || low.z > high.z; }
    constexpr Vec3<T> extent() const { return high - low; }
};

using Box3f = Box3<float>;
using Box3d = Box3<double>;

}  // namespace povmesh
