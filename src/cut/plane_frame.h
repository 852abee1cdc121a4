// The plane of a cut: which points lie in front of it, and how they look in it.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "base/predicates.h"
#include "base/vec.h"

namespace povmesh {

struct CutPlane {
    Vec3d normal;
    Vec3d direction{};  // a direction in the plane; the first corner of a connector lies there
    Vec3d point{};      // any point of the plane, model units
    double offset = 0;  // moves the plane along its normal, model units
};

/// The sides of a plane: its normal points to the front.
enum class PlaneSide : std::uint8_t { Front, Back };

/// The coordinates that a plane gives to points: how far in front they lie, and where in it.
///
/// Nothing is rotated: a distance is a dot product, points of the plane are computed in model
/// coordinates, and flat coordinates are two of those. So no coordinate of the model changes, and
/// what lies on a line along an axis does so in the flat exactly.
class PlaneFrame {
public:
    /// No frame when the normal or the direction has no length, or something is not finite. A
    /// direction parallel to the normal is replaced by some other one.
    static std::optional<PlaneFrame> make(const CutPlane& plane);

    /// Positive in front of the plane, model units.
    double distance(Vec3d p) const { return dot(normal_, p) - distance_; }

    Vec3d normal() const { return normal_; }
    /// Of the plane from the origin, along the normal.
    double plane_distance() const { return distance_; }

    /// In the plane: `along` is the direction that the plane came with, `along` x `across` is the
    /// normal.
    Vec3d along() const { return along_; }
    Vec3d across() const { return across_; }

    /// The two coordinates of a point in which the plane is least foreshortened. What turns
    /// counterclockwise in them looks to the back, as the cap of the front side does.
    Point2d flat(Vec3d p) const {
        switch (dropped_) {
            case 0:
                return is_swapped_ ? Point2d{p.z, p.y} : Point2d{p.y, p.z};
            case 1:
                return is_swapped_ ? Point2d{p.x, p.z} : Point2d{p.z, p.x};
            default:
                return is_swapped_ ? Point2d{p.y, p.x} : Point2d{p.x, p.y};
        }
    }

    /// The point of the plane with these flat coordinates.
    Vec3d lift(Point2d q) const;

private:
    Vec3d normal_;
    Vec3d along_;
    Vec3d across_;
    double distance_ = 0;
    int dropped_ = 2;  // axis
    bool is_swapped_ = false;
};

}  // namespace povmesh
