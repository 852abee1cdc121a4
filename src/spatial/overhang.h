// How much support a model needs, and where it touches, when it is printed in a direction.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <span>

#include "base/array.h"
#include "base/vec.h"

namespace povmesh {

/// How much of a face must be held up: 0 to 1, one half at 45 degrees.
///
/// From 72 degrees on nothing is, from 18 degrees down to 0 all of it; linear in the angle between,
/// so that a cone of 45 degrees does not flip from everything to nothing.
///
/// The arc cosine is off by 2e-8 at most. Source: M. Abramowitz, I. A. Stegun, Handbook of
/// mathematical functions, 1964, 4.4.46, which holds from 0 on; below it gives more than 90 degrees.
///
/// @param down  cosine of the angle between the outward normal and straight down
/// @param root  the square root; loops over many bring a faster one
template <typename T, typename Root>
T support_need(T down, Root&& root) {
    constexpr T kNoNeed = static_cast<T>(0.4 * std::numbers::pi);       // 72 degrees
    constexpr T kScale = static_cast<T>(1 / (0.3 * std::numbers::pi));  // per 54 degrees
    T series = static_cast<T>(-0.0012624911);
    series = series * down + static_cast<T>(0.0066700901);
    series = series * down - static_cast<T>(0.0170881256);
    series = series * down + static_cast<T>(0.0308918810);
    series = series * down - static_cast<T>(0.0501743046);
    series = series * down + static_cast<T>(0.0889789874);
    series = series * down - static_cast<T>(0.2145988016);
    series = series * down + static_cast<T>(1.5707963050);
    const T need = (kNoNeed - root(std::abs(1 - down)) * series) * kScale;
    return std::max(std::min(need, T{1}), T{0});
}

inline double support_need(double down) {
    return support_need(down, [](double v) { return std::sqrt(v); });
}

struct Overhang {
    double volume = 0;         // of supports: column area x gap x need
    double touched_above = 0;  // true area of the model that they hold, x need
    double touched_below = 0;  // level area of the model that they stand on, x need
    double contact = 0;        // level area of the triangles that lie on the plate
};

/// What is measured, in any unit about as long as the model.
struct MeasuredTriangles {
    std::span<const Vec3f> points;
    std::span<const std::array<std::uint32_t, 3>> triangles;
    std::span<const Vec3f> around;  // points in whose convex hull the others lie, or near to it
};

/// Measures the supports of a model by upright columns through it, 96 x 96 of them over the square
/// around it; fewer where triangles lie above one another in such numbers that a look would take
/// seconds (random triangles do). In each, a support runs from every face that enters the solid
/// from below down to the face that leaves it, or to the plate under the lowest point. Parts that
/// overlap or are nested count once, and so does a face that looks down with nothing of the model
/// below; what stands in the shadow of the model stands on it.
///
/// Keeps its memory from one direction to the next: 12 bytes a point.
///
/// Source: B. Ezair, F. Massarwi, G. Elber, Orientation analysis of 3D objects toward minimal
/// support volume in 3D-printing, Computers & Graphics 51, 2015.
class OverhangMeter {
public:
    /// @param up  of unit length
    /// @param slack  a gap up to this needs no support, and what is this near to the plate rests
    Overhang measure(const MeasuredTriangles& on, Vec3d up, double slack);

private:
    // A point seen along the direction. x and y count columns in a fixed-point form, so that faces
    // agree exactly about which samples are on which side of a common edge.
    struct SeenPoint {
        std::int32_t x, y;
        float height;  // over the middle of the model
    };

    struct Hit {
        float height;  // over the plate
        float down;    // cosine of the normal with straight down; below 0 where the solid is left
    };

    struct ColumnHit {
        std::uint32_t column;
        Hit hit;
    };

    void look_along(Vec3d up, std::span<const Vec3f> around);
    void turn(const MeasuredTriangles& on, std::size_t columns);
    bool find_hits(const MeasuredTriangles& on, double slack, double& contact);
    double covered_columns(std::span<const std::array<std::uint32_t, 3>> triangles) const;
    void sort_hits();
    static Overhang walk(std::span<Hit> column, double slack);

    Vec3d right_, back_, up_;
    double low_x_ = 0, low_y_ = 0;  // of the square around the model
    double side_ = 0;
    std::size_t columns_ = 0;  // along each side
    double cell_ = 0;
    float plate_ = 0;
    Array<SeenPoint> seen_;
    Array<ColumnHit> found_;
    Array<std::uint32_t> offsets_;
    Array<Hit> hits_;  // column by column
};

/// Two unit vectors that make a right-handed frame with a third.
std::array<Vec3d, 2> across(Vec3d unit);

}  // namespace povmesh
