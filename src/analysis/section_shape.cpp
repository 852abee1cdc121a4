// Area and second moments of a polygon with holes by Green's theorem, and the principal axes by
// Mohr's circle.
#include "analysis/section_shape.h"

#include <algorithm>
#include <cmath>

namespace povmesh {
namespace {

// Area, first and second moments about an origin.
struct Moments {
    double one = 0;
    double x = 0, y = 0;
    double xx = 0, xy = 0, yy = 0;

    // The triangle from the origin to an edge; negative where the edge turns clockwise.
    void add_edge(double ax, double ay, double bx, double by) {
        const double area = (ax * by - ay * bx) / 2;
        one += area;
        x += area * (ax + bx) / 3;
        y += area * (ay + by) / 3;
        xx += area * (ax * ax + ax * bx + bx * bx) / 6;
        yy += area * (ay * ay + ay * by + by * by) / 6;
        xy += area * (2 * ax * ay + ax * by + bx * ay + 2 * bx * by) / 12;
    }
};

Moments moments_about(Point2d origin, const SliceLoops& loops,
                      std::span<const std::uint32_t> part) {
    Moments moments;
    for (const std::uint32_t l : part) {
        const auto loop = loops[l];
        Point2d a = loop.back();
        for (const Point2d b : loop) {
            moments.add_edge(a.x - origin.x, a.y - origin.y, b.x - origin.x, b.y - origin.y);
            a = b;
        }
    }
    return moments;
}

}  // namespace

SectionShape section_shape(const SliceLoops& loops, std::span<const std::uint32_t> part) {
    const auto outer = loops[part.front()];
    const Moments rough = moments_about(outer.front(), loops, part);
    SectionShape shape;
    if (!(rough.one > 0)) return shape;
    shape.area = rough.one;
    shape.centroid = {outer.front().x + rough.x / rough.one, outer.front().y + rough.y / rough.one};
    // A second time about the centroid: nothing cancels.
    const Moments moments = moments_about(shape.centroid, loops, part);
    const double mean = (moments.xx + moments.yy) / 2;
    const double spread = std::hypot((moments.xx - moments.yy) / 2, moments.xy);
    shape.smallest_moment = std::max(mean - spread, 0.0);
    shape.largest_moment = mean + spread;
    // Along the weakest axis; across it, distances count most.
    const double angle = std::atan2(2 * moments.xy, moments.xx - moments.yy) / 2;
    shape.longest = {std::cos(angle), std::sin(angle)};
    if (!(shape.smallest_moment > 0)) return shape;
    // A moment with the components m and n about the two axes stresses a point at (x, y) by
    // m y / smallest + n x / largest: at most the length of that vector, for a moment of 1.
    double worst = 0;
    for (const Point2d p : outer) {
        const double x = p.x - shape.centroid.x;
        const double y = p.y - shape.centroid.y;
        const double along = shape.longest.x * x + shape.longest.y * y;
        const double across = shape.longest.x * y - shape.longest.y * x;
        worst = std::max(worst,
                         std::hypot(across / shape.smallest_moment, along / shape.largest_moment));
    }
    if (worst > 0) shape.modulus = 1 / worst;
    return shape;
}

}  // namespace povmesh
