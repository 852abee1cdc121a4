// From model coordinates to samples of a picture.
#pragma once

#include <cstdint>

#include "base/array.h"
#include "base/vec.h"
#include "job/picture/picture.h"

namespace povmesh::picture {

/// Samples per pixel along one side.
constexpr std::int32_t kSamples = 2;

/// Screen coordinates are fixed-point numbers, so that coverage is decided exactly. A sample is
/// 4096 units wide: the widest picture still fits into 27 bits, and the shading of a triangle of a
/// quarter sample is off by a thousandth.
constexpr int kUnitBits = 12;
constexpr std::int32_t kUnit = 1 << kUnitBits;

/// A vertex on the screen: x to the right, y down, depth away from the viewer (0 is the nearest of
/// the scene), all in units. The centre of sample (i, j) is at (i * kUnit, j * kUnit).
struct ScreenVertex {
    static constexpr std::int32_t kNowhere = INT32_MIN;

    std::int32_t x = 0;
    std::int32_t y = kNowhere;  // kNowhere: the vertex has no finite position
    float depth = 0;

    bool is_somewhere() const { return y != kNowhere; }
};

/// Parallel projection that fits a scene into the picture.
class Camera {
public:
    Camera(const Scene& scene, const RenderOptions& options);

    ScreenVertex project(Vec3f point) const;

private:
    Vec3d right_;
    Vec3d down_;
    Vec3d away_;
    double scale_ = 1;  // units per model unit
    Vec3d offset_;      // units
};

}  // namespace povmesh::picture
