// The axes of a box are the principal axes of its points: the longest one by squaring their
// covariance matrix, which a few times over leaves a multiple of one projection; the others by one
// turn in the plane across it. How well they fit decides only how much is told apart. Two boxes are
// apart when one of the 15 axes of the separating axis test says so.
#include "spatial/oriented_boxes.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <utility>

namespace povmesh {
namespace {

// Rounding of a projection onto an axis, relative to the coordinates, with room to spare.
constexpr double kRounding = 1e-13;

// Added to the cosines between axes: the cross product of two that are nearly parallel is no axis.
constexpr double kParallel = 1e-9;

using Matrix = std::array<Vec3d, 3>;
using Axes = std::array<Vec3d, 3>;

constexpr Axes kUpright = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};

// Covariance of the points about their mean, to any scale.
Matrix covariance(std::span<const Vec3d> points, Vec3d mean, double scale) {
    Matrix sum{};
    for (const Vec3d point : points) {
        const Vec3d p = (point - mean) * scale;
        sum[0] = sum[0] + p * p.x;
        sum[1] = sum[1] + p * p.y;
        sum[2] = sum[2] + p * p.z;
    }
    return sum;
}

Vec3d times(const Matrix& m, Vec3d v) {
    return {dot(m[0], v), dot(m[1], v), dot(m[2], v)};
}

Vec3d longest_axis(Matrix m) {
    constexpr int kSquarings = 6;
    for (int i = 0; i < kSquarings; ++i) {
        const double trace = m[0].x + m[1].y + m[2].z;
        if (!(trace > 0)) return {};
        for (Vec3d& row : m) row = row / trace;
        m = {times(m, m[0]), times(m, m[1]), times(m, m[2])};  // it is symmetric
    }
    const auto largest = std::max_element(m.begin(), m.end(),
                                          [](Vec3d a, Vec3d b) { return dot(a, a) < dot(b, b); });
    return *largest / length(*largest);
}

Axes principal_axes(const Matrix& m) {
    const Vec3d first = longest_axis(m);
    if (!(std::abs(dot(first, first) - 1) < kRounding)) return kUpright;
    const Vec3d across = std::abs(first.x) < 0.6   ? Vec3d{1, 0, 0}
                         : std::abs(first.y) < 0.6 ? Vec3d{0, 1, 0}
                                                   : Vec3d{0, 0, 1};
    Vec3d second = cross(first, across);
    second = second / length(second);
    const Vec3d third = cross(first, second);
    const double angle = std::atan2(2 * dot(second, times(m, third)),
                                    dot(second, times(m, second)) - dot(third, times(m, third))) /
                         2;
    const Vec3d turned = second * std::cos(angle) + third * std::sin(angle);
    return {first, turned, cross(first, turned)};
}

}  // namespace

void OrientedBoxes::make_boxes(const FaceTree& tree, const Array<std::uint32_t>& starts) {
    const auto nodes = tree.nodes();
    boxes_.resize(nodes.size());
    Array<std::pair<std::uint32_t, std::uint32_t>> entries(nodes.size());  // first and end
    for (std::size_t i = nodes.size(); i-- > 0;) {
        const FaceTree::Node& node = nodes[i];
        entries[i] = node.is_leaf() ? std::pair(node.place, node.place + node.count)
                                    : std::pair(entries[i + 1].first, entries[node.place].second);
        const std::span<const Vec3d> points(points_.data() + starts[entries[i].first],
                                            points_.data() + starts[entries[i].second]);
        Box& box = boxes_[i];
        box = {{}, kUpright, {-1, -1, -1}, 0};
        if (points.empty()) continue;

        Vec3d mean{};
        double largest = 0;
        for (const Vec3d p : points) {
            mean = mean + p / static_cast<double>(points.size());
            largest = std::max({largest, std::abs(p.x), std::abs(p.y), std::abs(p.z)});
        }
        if (largest > 0) box.axes = principal_axes(covariance(points, mean, 1 / largest));
        std::array<double, 3> low{};
        std::array<double, 3> high{};
        for (const Vec3d p : points) {
            for (std::size_t axis = 0; axis < 3; ++axis) {
                const double at = dot(p - mean, box.axes[axis]);
                low[axis] = std::min(low[axis], at);
                high[axis] = std::max(high[axis], at);
            }
        }
        box.slack = kRounding * largest;
        box.centre = mean;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            box.centre = box.centre + box.axes[axis] * ((low[axis] + high[axis]) / 2);
            box.half[axis] = (high[axis] - low[axis]) / 2;
        }
    }
}

bool OrientedBoxes::are_apart(std::uint32_t node, const OrientedBoxes& other,
                              std::uint32_t other_node) const {
    const Box& a = boxes_[node];
    const Box& b = other.boxes_[other_node];
    if (a.half[0] < 0 || b.half[0] < 0) return true;
    const Vec3d between = b.centre - a.centre;
    const double slack = a.slack + b.slack;
    // Everything in the frame of a.
    const std::array<double, 3> t = {dot(between, a.axes[0]), dot(between, a.axes[1]),
                                     dot(between, a.axes[2])};
    std::array<std::array<double, 3>, 3> r{};  // cosines: axis i of a, axis j of b
    std::array<std::array<double, 3>, 3> s{};  // their magnitudes
    for (std::size_t i = 0; i < 3; ++i) {
        double reach = slack + a.half[i];
        for (std::size_t j = 0; j < 3; ++j) {
            r[i][j] = dot(a.axes[i], b.axes[j]);
            s[i][j] = std::abs(r[i][j]) + kParallel;
            reach += b.half[j] * s[i][j];
        }
        if (std::abs(t[i]) > reach) return true;
    }
    for (std::size_t j = 0; j < 3; ++j) {
        const double reach =
            slack + b.half[j] + a.half[0] * s[0][j] + a.half[1] * s[1][j] + a.half[2] * s[2][j];
        if (std::abs(t[0] * r[0][j] + t[1] * r[1][j] + t[2] * r[2][j]) > reach) return true;
    }
    for (std::size_t i = 0; i < 3; ++i) {
        const std::size_t i1 = next_corner(i);
        const std::size_t i2 = previous_corner(i);
        for (std::size_t j = 0; j < 3; ++j) {
            const std::size_t j1 = next_corner(j);
            const std::size_t j2 = previous_corner(j);
            const double reach = slack + a.half[i1] * s[i2][j] + a.half[i2] * s[i1][j] +
                                 b.half[j1] * s[i][j2] + b.half[j2] * s[i][j1];
            if (std::abs(t[i2] * r[i1][j] - t[i1] * r[i2][j]) > reach) return true;
        }
    }
    return false;
}

}  // namespace povmesh
