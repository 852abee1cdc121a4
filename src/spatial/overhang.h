// How much support a model needs, and where it touches, when it is printed in a direction.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/array.h"
#include "base/vec.h"

namespace povmesh {

/// How much of a face must be held up: 0 to 1, one half at 45 degrees.
///
/// @param down  cosine of the angle between the outward normal and straight down
///
/// From 72 degrees on nothing is, from 18 degrees down to 0 all of it; linear in the angle between,
/// so that a cone of 45 degrees does not flip from everything to nothing.
double support_need(double down);

struct Overhang {
    double volume = 0;         // of supports: column area x gap x need
    double touched_above = 0;  // true area of the model that they hold, x need
    double touched_below = 0;  // level area of the model that they stand on, x need
};

/// Measures the supports of a model by upright columns through it, 96 x 96 of them over the square
/// around it; fewer where triangles lie above one another in such numbers that a look would take
/// seconds (random triangles do). In each, a support runs from every face that enters the solid
/// from below down to the face that leaves it, or to the plate under the lowest point. Parts that
/// overlap or are nested count once, and so does a face that looks down with nothing of the model
/// below; what stands in the shadow of the model stands on it.
///
/// Keeps its memory from one direction to the next: 24 bytes a point.
///
/// Source: B. Ezair, F. Massarwi, G. Elber, Orientation analysis of 3D objects toward minimal
/// support volume in 3D-printing, Computers & Graphics 51, 2015.
class OverhangMeter {
public:
    /// @param up  of unit length
    /// @param slack  a gap up to this needs no support
    Overhang measure(std::span<const Vec3d> points,
                     std::span<const std::array<std::uint32_t, 3>> triangles, Vec3d up,
                     double slack);

    /// The points of the last call, seen along its direction: z is the height.
    std::span<const Vec3d> turned() const { return turned_; }
    double plate() const { return plate_; }

private:
    struct Hit {
        float height;
        float down;  // cosine of the normal with straight down; below 0 where the solid is left
    };

    struct ColumnHit {
        std::uint32_t column;
        Hit hit;
    };

    void turn(std::span<const Vec3d> points, Vec3d up);
    template <typename Visit>
    void visit_columns(std::span<const std::array<std::uint32_t, 3>> triangles,
                       Visit&& visit) const;
    std::size_t column_count(std::span<const std::array<std::uint32_t, 3>> triangles) const;
    Overhang walk(std::span<Hit> column, double slack) const;

    Array<Vec3d> turned_;
    Array<ColumnHit> found_;
    Array<std::uint32_t> offsets_;
    Array<Hit> hits_;  // column by column
    Vec3d origin_;     // of the square, its z the plate's
    double plate_ = 0;
    double side_ = 0;
    std::size_t columns_ = 0;  // along each side
    double cell_ = 0;
};

/// Two unit vectors that make a right-handed frame with a third.
std::array<Vec3d, 2> across(Vec3d unit);

}  // namespace povmesh
