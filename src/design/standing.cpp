#include "design/standing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numbers>

#include "base/convert.h"
#include "base/parallel.h"
#include "base/poll.h"
#include "spatial/convex_hull.h"

namespace povmesh {
namespace {

// What lies so low, as a share of the box diagonal, touches the plate: the first layer of a print
// is thicker.
constexpr double kFootHeight = 1e-3;

// A circle of a thousand corners loses 1e-4 of its radius.
constexpr std::size_t kMostCorners = 256;

using Triangle = std::array<Vec3d, 3>;

Triangle triangle_of(const TriMesh& mesh, const Face& face) {
    return {to_double(mesh.corner_position(face, 0)), to_double(mesh.corner_position(face, 1)),
            to_double(mesh.corner_position(face, 2))};
}

bool takes_part(const TriMesh& mesh, const Face& face) {
    return face.deleted == 0 && is_finite(mesh.corner_position(face, 0)) &&
           is_finite(mesh.corner_position(face, 1)) && is_finite(mesh.corner_position(face, 2));
}

// The points of a face's edges that lie up to that height: low corners, and where edges leave.
void add_feet(const Triangle& t, double top, double plate, Array<Vec3f>& feet) {
    const auto add = [&](Vec3d p) {
        feet.push_back(
            {static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(plate)});
    };
    for (std::size_t i = 0; i < 3; ++i) {
        if (t[i].z <= top) add(t[i]);
        // From below upward, so that the faces on both sides of an edge agree.
        const Vec3d& low = t[i].z < t[next_corner(i)].z ? t[i] : t[next_corner(i)];
        const Vec3d& high = t[i].z < t[next_corner(i)].z ? t[next_corner(i)] : t[i];
        if (low.z <= top && high.z > top) {
            add(low + (high - low) * ((top - low.z) / (high.z - low.z)));
        }
    }
}

struct BorderPoint {
    Point2d place{};
    double squared = std::numeric_limits<double>::infinity();  // distance
};

BorderPoint nearest_of_edge(Point2d a, Point2d b, Point2d p) {
    const double x = b.x - a.x;
    const double y = b.y - a.y;
    const double square = x * x + y * y;
    const double along = square > 0 ? ((p.x - a.x) * x + (p.y - a.y) * y) / square : 0;
    const double share = std::clamp(along, 0.0, 1.0);
    const Point2d place = share == 1 ? b : Point2d{a.x + x * share, a.y + y * share};
    const Point2d off{p.x - place.x, p.y - place.y};
    return {place, off.x * off.x + off.y * off.y};
}

}  // namespace

SolidMass mass_of(const TriMesh& mesh, Vec3d about) {
    const std::size_t blocks = (mesh.faces.size() + kParallelBlock - 1) / kParallelBlock;
    std::vector<SolidMass> sums(blocks);
    for_blocks(blocks, [&](std::size_t block) {
        const std::size_t end = std::min((block + 1) * kParallelBlock, mesh.faces.size());
        for (std::size_t f = block * kParallelBlock; f < end; ++f) {
            if (!takes_part(mesh, mesh.faces[f])) continue;
            Triangle t = triangle_of(mesh, mesh.faces[f]);
            for (Vec3d& corner : t) corner = corner - about;
            const double volume = dot(t[0], cross(t[1], t[2])) / 6;
            sums[block] = sums[block] + SolidMass{volume, (t[0] + t[1] + t[2]) * (volume / 4)};
        }
    });
    SolidMass total;
    for (const SolidMass& sum : sums) total = total + sum;
    return total;
}

Base base_of(const TriMesh& mesh) {
    Box3d box;
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        if (!takes_part(mesh, face)) continue;
        for (const Vec3d& corner : triangle_of(mesh, face)) box.widen(corner);
    }
    Base base;
    if (box.is_empty()) return base;
    base.plate = box.low.z;
    base.diagonal = length(box.extent());
    base.middle = (box.low + box.high) * 0.5;
    const double top = base.plate + kFootHeight * base.diagonal;
    Array<Vec3f> feet;
    for (const Face& face : mesh.faces) {
        poller();
        if (!takes_part(mesh, face)) continue;
        const Triangle t = triangle_of(mesh, face);
        if (std::min({t[0].z, t[1].z, t[2].z}) <= top) add_feet(t, top, base.plate, feet);
    }
    // The outline of points at one height begins with the lowest x, then y.
    for (const std::uint32_t v : convex_hull(feet).vertices) {
        base.corners.push_back({static_cast<double>(feet[v].x), static_cast<double>(feet[v].y)});
    }
    return base;
}

double area_of(const Base& base) {
    double twice = 0;
    for (std::size_t i = 0; i < base.corners.size(); ++i) {
        const Point2d a = base.corners[i];
        const Point2d b = base.corners[(i + 1) % base.corners.size()];
        const Point2d o = base.corners[0];
        twice += (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x);
    }
    return twice / 2;
}

Base simplified(const Base& base) {
    if (base.corners.size() <= kMostCorners) return base;
    std::vector<std::size_t> kept;
    for (std::size_t i = 0; i < kMostCorners; ++i) {
        const double angle = 2 * std::numbers::pi * static_cast<double>(i) / kMostCorners;
        const double x = std::cos(angle);
        const double y = std::sin(angle);
        const auto reach = [&](Point2d p) { return p.x * x + p.y * y; };
        const auto farthest =
            std::max_element(base.corners.begin(), base.corners.end(),
                             [&](Point2d a, Point2d b) { return reach(a) < reach(b); });
        kept.push_back(static_cast<std::size_t>(farthest - base.corners.begin()));
    }
    std::sort(kept.begin(), kept.end());
    kept.erase(std::unique(kept.begin(), kept.end()), kept.end());
    Base few = base;
    few.corners.clear();
    for (const std::size_t i : kept) few.corners.push_back(base.corners[i]);
    return few;
}

Standing stand_on(const Base& base, Vec3d centre) {
    const Point2d p{centre.x, centre.y};
    BorderPoint nearest;
    bool is_inside = base.corners.size() > 2;
    for (std::size_t i = 0; i < base.corners.size(); ++i) {
        const Point2d a = base.corners[i];
        const Point2d b = base.corners[(i + 1) % base.corners.size()];
        const BorderPoint here = nearest_of_edge(a, b, p);
        if (here.squared < nearest.squared) nearest = here;
        if ((b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x) < 0) is_inside = false;
    }
    Standing standing;
    standing.centre = centre;
    standing.nearest = {nearest.place.x, nearest.place.y, base.plate};
    standing.margin = std::sqrt(nearest.squared) * (is_inside ? 1 : -1);
    // Below the plate is the centre of an open mesh alone.
    standing.height = std::max(centre.z - base.plate, 0.0);
    standing.tilt = std::atan2(standing.margin, standing.height) * 180 / std::numbers::pi;
    return standing;
}

}  // namespace povmesh
