#include "design/lampshade_section.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <queue>

#include "base/poll.h"
#include "base/vec.h"

namespace povmesh {
namespace {

// Calls visit(from, to) with the segment in which a face meets a level, if it does.
template <typename Visit>
void visit_segment(const std::array<Vec3d, 3>& corners, double level, const Visit& visit) {
    Point2d from{};
    Point2d to{};
    int found = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        const Vec3d& a = corners[i];
        const Vec3d& b = corners[next_corner(i)];
        if ((a.z < level) == (b.z < level)) continue;
        // From the lower end, so that both faces at an edge compute the same point.
        const bool rises = a.z < b.z;
        const Vec3d& low = rises ? a : b;
        const Vec3d& high = rises ? b : a;
        const double share = (level - low.z) / (high.z - low.z);
        (rises ? to : from) = {low.x + (high.x - low.x) * share, low.y + (high.y - low.y) * share};
        ++found;
    }
    if (found == 2) visit(from, to);
}

std::array<Vec3d, 3> corners_of(const TriMesh& mesh, const Face& face) {
    return {to_double(mesh.corner_position(face, 0)), to_double(mesh.corner_position(face, 1)),
            to_double(mesh.corner_position(face, 2))};
}

double twice_area(Point2d about, Point2d a, Point2d b) {
    return (a.x - about.x) * (b.y - about.y) - (b.x - about.x) * (a.y - about.y);
}

double squared_distance(Point2d p, const SectionSegment& s) {
    const double dx = s[1].x - s[0].x;
    const double dy = s[1].y - s[0].y;
    const double length = dx * dx + dy * dy;
    const double along = (p.x - s[0].x) * dx + (p.y - s[0].y) * dy;
    const double share = length > 0 ? std::clamp(along / length, 0.0, 1.0) : 0;
    const double x = s[0].x + dx * share - p.x;
    const double y = s[0].y + dy * share - p.y;
    return x * x + y * y;
}

// How far inside the section a point lies; below 0 outside.
double depth_at(Point2d p, std::span<const SectionSegment> segments) {
    double nearest = std::numeric_limits<double>::infinity();
    int winding = 0;
    for (const SectionSegment& s : segments) {
        nearest = std::min(nearest, squared_distance(p, s));
        if ((s[0].y > p.y) == (s[1].y > p.y)) continue;
        const double share = (p.y - s[0].y) / (s[1].y - s[0].y);
        if (s[0].x + (s[1].x - s[0].x) * share > p.x) winding += s[1].y > s[0].y ? 1 : -1;
    }
    return std::sqrt(nearest) * (winding > 0 ? 1 : -1);
}

}  // namespace

std::vector<SectionSegment> section_at(const TriMesh& mesh, double level) {
    std::vector<SectionSegment> segments;
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        visit_segment(corners_of(mesh, face), level, [&](Point2d from, Point2d to) {
            segments.push_back({from, to});
        });
    }
    return segments;
}

double section_area(std::span<const SectionSegment> segments) {
    double sum = 0;
    for (const SectionSegment& s : segments) sum += twice_area(segments[0][0], s[0], s[1]);
    return sum / 2;
}

std::vector<double> section_areas(const TriMesh& mesh, double low, double step, std::size_t count) {
    std::vector<double> areas(count, 0);
    if (mesh.faces.empty()) return areas;
    const Vec3d first = to_double(mesh.corner_position(mesh.faces[0], 0));
    const auto last = static_cast<double>(count - 1);
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        const std::array<Vec3d, 3> corners = corners_of(mesh, face);
        const auto [lowest, highest] = std::minmax({corners[0].z, corners[1].z, corners[2].z});
        const auto from =
            static_cast<std::size_t>(std::clamp(std::floor((lowest - low) / step), 0.0, last));
        const auto to =
            static_cast<std::size_t>(std::clamp(std::ceil((highest - low) / step), 0.0, last));
        for (std::size_t k = from; k <= to; ++k) {
            visit_segment(corners, low + step * static_cast<double>(k), [&](Point2d a, Point2d b) {
                areas[k] += twice_area({first.x, first.y}, a, b) / 2;
            });
        }
    }
    return areas;
}

// Squares are halved, first the one that promises most: a circle around a point of a square is no
// larger than that around its middle and half its diagonal more.
SectionCircle largest_circle(std::span<const SectionSegment> segments) {
    constexpr double kGain = 1e-3;
    constexpr int kMostSquares = 4000;
    SectionCircle best;
    if (segments.empty()) return best;
    Point2d low = segments[0][0];
    Point2d high = low;
    for (const SectionSegment& s : segments) {
        for (const Point2d p : s) {
            low = {std::min(low.x, p.x), std::min(low.y, p.y)};
            high = {std::max(high.x, p.x), std::max(high.y, p.y)};
        }
    }
    struct Square {
        double promise;
        Point2d middle;
        double half;
        bool operator<(const Square& other) const { return promise < other.promise; }
    };
    std::priority_queue<Square> squares;
    const auto add = [&](Point2d middle, double half) {
        const double depth = depth_at(middle, segments);
        if (depth > best.radius) best = {middle, depth};
        squares.push({depth + half * std::sqrt(2.0), middle, half});
    };
    add({(low.x + high.x) / 2, (low.y + high.y) / 2}, std::max(high.x - low.x, high.y - low.y) / 2);
    for (int i = 0; i < kMostSquares && !squares.empty(); ++i) {
        const Square square = squares.top();
        if (!(square.promise > best.radius * (1 + kGain))) break;
        squares.pop();
        const double half = square.half / 2;
        for (const double x : {-half, half}) {
            for (const double y : {-half, half}) {
                add({square.middle.x + x, square.middle.y + y}, half);
            }
        }
    }
    return best;
}

}  // namespace povmesh
