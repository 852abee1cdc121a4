// The plane of a cut as a level: which points lie above it, and how they look from there.
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
    double offset = 0;  // moves the plane against its normal, model units
};

/// Looks at a model so that the plane is horizontal and its normal points down: "above" is the side
/// that the normal points away from.
///
/// Nothing is rotated: a height is a dot product, points of the level are computed in model
/// coordinates, and flat coordinates are two of those. So no coordinate of the model changes, and
/// what lies on a line along an axis does so in the flat exactly.
class LevelFrame {
public:
    /// No frame when the normal or the direction has no length, or something is not finite. A
    /// direction parallel to the normal is replaced by some other one.
    static std::optional<LevelFrame> make(const CutPlane& plane);

    /// Above the level when positive, model units.
    double height(Vec3d p) const { return dot(up_, p) - level_; }

    Vec3d up() const { return up_; }
    double level() const { return level_; }

    /// In the plane: `across` x `along` is up; along is the direction that the plane came with.
    Vec3d along() const { return along_; }
    Vec3d across() const { return across_; }

    /// The two coordinates of a point in which the level is least foreshortened; counterclockwise
    /// seen from above.
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

    /// The point of the level with these flat coordinates.
    Vec3d lift(Point2d q) const;

private:
    Vec3d up_;
    Vec3d along_;
    Vec3d across_;
    double level_ = 0;
    int dropped_ = 2;  // axis
    bool is_swapped_ = false;
};

}  // namespace povmesh
