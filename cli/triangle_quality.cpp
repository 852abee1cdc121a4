#include "cli/triangle_quality.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <numbers>
#include <string>

#include "job/numbers.h"
#include "remesh/triangle_shape.h"
#include "repair/degenerate.h"

namespace povmesh::cli {
namespace {

constexpr double kNarrow = 20;

using Corners = std::array<Vec3d, 3>;

double angle_at(const Corners& t, std::size_t corner) {
    const Vec3d a = t[next_corner(corner)] - t[corner];
    const Vec3d b = t[previous_corner(corner)] - t[corner];
    return std::atan2(length(cross(a, b)), dot(a, b)) * 180 / std::numbers::pi;
}

std::string rounded(double number, int digits) {
    const double unit = std::pow(10, digits);
    return human_number(std::round(number * unit) / unit);
}

// Four digits are enough of a length.
std::string length_text(double number) {
    if (!(number > 0) || !std::isfinite(number)) return human_number(0);
    const double unit = std::pow(10, std::floor(std::log10(number)) - 3);
    return human_number(std::round(number / unit) * unit);
}

}  // namespace

TriangleQuality triangle_quality(const TriMesh& mesh) {
    TriangleQuality quality;
    double sum = 0;
    double squares = 0;
    std::size_t count = 0;
    std::size_t narrow_count = 0;
    quality.shortest_edge = std::numeric_limits<double>::max();
    quality.smallest_angle = 180;
    for (const Face& face : mesh.faces) {
        if (face.deleted != 0) continue;
        Corners t;
        for (std::size_t c = 0; c < 3; ++c) t[c] = to_double(mesh.corner_position(face, c));
        if (!is_finite(t[0]) || !is_finite(t[1]) || !is_finite(t[2])) continue;
        ++count;
        bool is_narrow = false;
        for (std::size_t c = 0; c < 3; ++c) {
            const double edge = length(t[next_corner(c)] - t[c]);
            const double angle = angle_at(t, c);
            quality.shortest_edge = std::min(quality.shortest_edge, edge);
            quality.longest_edge = std::max(quality.longest_edge, edge);
            quality.smallest_angle = std::min(quality.smallest_angle, angle);
            quality.largest_angle = std::max(quality.largest_angle, angle);
            is_narrow = is_narrow || angle < kNarrow;
            sum += edge;
            squares += edge * edge;
        }
        narrow_count += is_narrow ? 1 : 0;
        const TriangleShape shape = shape_of(t);
        quality.needles += shape.is_needle ? 1 : 0;
        quality.caps += shape.is_cap ? 1 : 0;
        quality.degenerate += is_degenerate(mesh, face) ? 1 : 0;
    }
    if (count == 0) return {};
    const double edge_count = 3 * static_cast<double>(count);
    quality.mean_edge = sum / edge_count;
    const double variance = squares / edge_count - quality.mean_edge * quality.mean_edge;
    quality.spread = std::sqrt(std::max(variance, 0.0)) / quality.mean_edge;
    quality.narrow = static_cast<double>(narrow_count) / static_cast<double>(count);
    return quality;
}

std::vector<Row> quality_rows(const TriangleQuality& quality) {
    return {{"shortest edge", length_text(quality.shortest_edge)},
            {"mean edge", length_text(quality.mean_edge)},
            {"longest edge", length_text(quality.longest_edge)},
            {"spread of edges", rounded(quality.spread, 3)},
            {"smallest angle", rounded(quality.smallest_angle, 2)},
            {"largest angle", rounded(quality.largest_angle, 2)},
            {"below 20 degrees", rounded(100 * quality.narrow, 2) + " %"}};
}

Json quality_json(const TriangleQuality& quality) {
    return {{"edges",
             {{"shortest", quality.shortest_edge},
              {"mean", quality.mean_edge},
              {"longest", quality.longest_edge},
              {"spread", quality.spread}}},
            {"angles",
             {{"smallest", quality.smallest_angle},
              {"largest", quality.largest_angle},
              {"below_20_share", quality.narrow}}}};
}

std::vector<Row> shape_rows(const TriangleQuality& quality) {
    return {{"needles", with_separators(quality.needles)},
            {"caps", with_separators(quality.caps)},
            {"degenerate", with_separators(quality.degenerate)}};
}

Json shape_json(const TriangleQuality& quality) {
    return {
        {"needles", quality.needles}, {"caps", quality.caps}, {"degenerate", quality.degenerate}};
}

}  // namespace povmesh::cli
