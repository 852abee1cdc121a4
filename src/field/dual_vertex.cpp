#include "field/dual_vertex.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace povmesh {
namespace {

// Eigenvalues below this share of the greatest are of rounding and noise, not of an edge.
constexpr double kLeastEigenvalue = 0.03;

// All normals within about 6 degrees of their mean: the second eigenvalue is below that for sure.
constexpr double kPlaneCosine = 0.995;

struct Symmetric {
    double xx = 0, xy = 0, xz = 0, yy = 0, yz = 0, zz = 0;
};

struct Eigen {
    std::array<double, 3> values;
    std::array<Vec3d, 3> vectors;
};

// Jacobi's method: rotations in the planes of two axes, until nothing is left off the diagonal.
Eigen eigen_of(const Symmetric& m) {
    std::array<std::array<double, 3>, 3> a = {
        {{m.xx, m.xy, m.xz}, {m.xy, m.yy, m.yz}, {m.xz, m.yz, m.zz}}};
    std::array<std::array<double, 3>, 3> v = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
    for (int sweep = 0; sweep < 12; ++sweep) {
        const double off = std::abs(a[0][1]) + std::abs(a[0][2]) + std::abs(a[1][2]);
        if (!(off > 1e-14 * (a[0][0] + a[1][1] + a[2][2]))) break;
        for (std::size_t p = 0; p < 2; ++p) {
            for (std::size_t q = p + 1; q < 3; ++q) {
                if (a[p][q] == 0) continue;
                const double theta = (a[q][q] - a[p][p]) / (2 * a[p][q]);
                const double t =
                    (theta >= 0 ? 1.0 : -1.0) / (std::abs(theta) + std::sqrt(theta * theta + 1));
                const double c = 1 / std::sqrt(t * t + 1);
                const double s = t * c;
                for (std::size_t k = 0; k < 3; ++k) {
                    const double kp = a[k][p];
                    const double kq = a[k][q];
                    a[k][p] = c * kp - s * kq;
                    a[k][q] = s * kp + c * kq;
                }
                for (std::size_t k = 0; k < 3; ++k) {
                    const double pk = a[p][k];
                    const double qk = a[q][k];
                    a[p][k] = c * pk - s * qk;
                    a[q][k] = s * pk + c * qk;
                    const double vp = v[k][p];
                    const double vq = v[k][q];
                    v[k][p] = c * vp - s * vq;
                    v[k][q] = s * vp + c * vq;
                }
            }
        }
    }
    Eigen result{};
    for (std::size_t i = 0; i < 3; ++i) {
        result.values[i] = a[i][i];
        result.vectors[i] = {v[0][i], v[1][i], v[2][i]};
    }
    return result;
}

// The mean of the normals, all turned to the side of the first; 0 when one is unknown.
Vec3d mean_normal(std::span<const CellPoint> points) {
    Vec3d sum;
    for (const CellPoint& point : points) {
        if (dot(point.normal, point.normal) == 0) return {};
        sum =
            dot(point.normal, points.front().normal) < 0 ? sum - point.normal : sum + point.normal;
    }
    const double size = length(sum);
    return size > 0 ? sum / size : Vec3d{};
}

}  // namespace

Vec3d mean_of(std::span<const CellPoint> points) {
    Vec3d sum;
    for (const CellPoint& point : points) sum = sum + point.place;
    return sum / static_cast<double>(points.size());
}

bool is_smooth(std::span<const CellPoint> points, double cosine) {
    const Vec3d mean = mean_normal(points);
    return std::all_of(points.begin(), points.end(), [&](const CellPoint& point) {
        return std::abs(dot(point.normal, mean)) >= cosine;
    });
}

Vec3d dual_vertex(std::span<const CellPoint> points) {
    const Vec3d mean = mean_of(points);
    if (is_smooth(points, kPlaneCosine)) {
        const Vec3d normal = mean_normal(points);
        double above = 0;
        for (const CellPoint& point : points) {
            const double sign = dot(point.normal, normal) < 0 ? -1 : 1;
            above += sign * dot(point.normal, point.place - mean);
        }
        return mean + normal * (above / static_cast<double>(points.size()));
    }
    Symmetric sum;
    Vec3d right;
    for (const CellPoint& point : points) {
        const Vec3d n = point.normal;
        sum.xx += n.x * n.x;
        sum.xy += n.x * n.y;
        sum.xz += n.x * n.z;
        sum.yy += n.y * n.y;
        sum.yz += n.y * n.z;
        sum.zz += n.z * n.z;
        right = right + n * dot(n, point.place - mean);
    }
    const Eigen eigen = eigen_of(sum);
    const double greatest = std::max({eigen.values[0], eigen.values[1], eigen.values[2]});
    Vec3d place = mean;
    for (std::size_t i = 0; i < 3; ++i) {
        if (!(eigen.values[i] > kLeastEigenvalue * greatest)) continue;
        place = place + eigen.vectors[i] * (dot(eigen.vectors[i], right) / eigen.values[i]);
    }
    return place;
}

Vec3d clamped_to_cell(Vec3d place, double margin) {
    const auto clamp = [&](double x) {
        return x >= margin ? std::min(x, 1 - margin) : margin;  // also when it is not a number
    };
    return {clamp(place.x), clamp(place.y), clamp(place.z)};
}

}  // namespace povmesh
