#include "job/picture/camera.h"

#include <algorithm>
#include <cmath>

#include "base/convert.h"

namespace povmesh::picture {
namespace {

// Share of the picture's shorter side that stays free on every side.
constexpr double kMargin = 0.04;

// A model seen as a point (a straight line, end on) is not enlarged further than to this depth, in
// picture sides: its depth stays a number that a float tells apart.
constexpr double kGreatestDepth = 1e6;

// Unit vector from the model to the viewer. Iso sees three sides of a cube alike.
Vec3d to_viewer(View view) {
    switch (view) {
        case View::Front:
            return {0, -1, 0};
        case View::Back:
            return {0, 1, 0};
        case View::Left:
            return {-1, 0, 0};
        case View::Right:
            return {1, 0, 0};
        case View::Top:
            return {0, 0, 1};
        case View::Bottom:
            return {0, 0, -1};
        case View::Iso:
            break;
    }
    return Vec3d{1, -1, 1} / std::sqrt(3.0);
}

}  // namespace

Camera::Camera(const Scene& scene, const RenderOptions& options) {
    const Vec3d back = to_viewer(options.view);
    away_ = back * -1.0;
    if (back.z == 0.0 || options.view == View::Iso) {
        right_ = cross(Vec3d{0, 0, 1}, back);
        right_ = right_ / length(right_);
    } else {
        right_ = {1, 0, 0};
    }
    down_ = cross(right_, back);

    Box3d seen;
    const auto include = [&](Vec3d p) {
        seen.widen({dot(right_, p), dot(down_, p), dot(away_, p)});
    };
    for (const Model& model : scene) {
        for (const Vertex& vertex : model.mesh->vertices) {
            if (is_finite(vertex.position())) include(to_double(vertex.position()));
        }
    }
    if (const Box3d& frame = options.frame; !frame.is_empty()) {
        for (unsigned corner = 0; corner < 8; ++corner) {
            include({(corner & 1U) != 0 ? frame.high.x : frame.low.x,
                     (corner & 2U) != 0 ? frame.high.y : frame.low.y,
                     (corner & 4U) != 0 ? frame.high.z : frame.low.z});
        }
    }
    if (seen.is_empty()) return;

    const double width = options.width;
    const double height = options.height;
    const double shorter = std::min(width, height);
    const double margin = kMargin * shorter;
    const Vec3d extent = seen.extent();
    const double pixel =
        std::max({extent.x / (width - 2 * margin), extent.y / (height - 2 * margin),
                  extent.z / (kGreatestDepth * shorter)});
    constexpr double kUnitsPerPixel = kSamples * kUnit;
    scale_ = pixel > 0 ? kUnitsPerPixel / pixel : 1.0;
    // Half a sample less, because whole numbers are the centres of samples.
    constexpr double kHalf = kUnit / 2.0;
    const Vec3d middle = (seen.low + seen.high) / 2.0;
    offset_ = {width / 2 * kUnitsPerPixel - kHalf - middle.x * scale_,
               height / 2 * kUnitsPerPixel - kHalf - middle.y * scale_, -seen.low.z * scale_};
}

ScreenVertex Camera::project(Vec3f point) const {
    if (!is_finite(point)) return {};
    const Vec3d p = to_double(point);
    // Truncation: there are no coordinates below minus half a sample, and any rounding serves that
    // does the same for every triangle at a vertex. The camera fits all vertices, so that none
    // saturates.
    const auto rounded = [](double value) { return saturate_to<std::int32_t>(value + 0.5); };
    // A depth is negative by no more than a rounding error.
    return {rounded(dot(right_, p) * scale_ + offset_.x),
            rounded(dot(down_, p) * scale_ + offset_.y),
            std::max(0.0F, static_cast<float>(dot(away_, p) * scale_ + offset_.z))};
}

}  // namespace povmesh::picture
