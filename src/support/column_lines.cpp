// Scan conversion of faces, line by line: which lines of a row pass a face follows from its two
// edges across the row alone, each rounded by itself, so that neighbouring faces share lines out
// without gaps or overlaps.
#include "support/column_lines.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <tuple>

#include "base/convert.h"
#include "base/poll.h"
#include "support/upright_lines.h"

namespace povmesh {
namespace {

struct RowRange {
    std::size_t first = 0;
    std::size_t end = 0;
};

}  // namespace

ColumnLines::ColumnLines(const TriMesh& mesh, Vec3f origin, const LineLattice& lattice,
                         std::span<const std::uint8_t> is_ignored)
    : mesh_(mesh), lattice_(lattice), is_ignored_(is_ignored) {
    const Vec3d zero = to_double(origin);
    polled_resize(points_, mesh.vertices.size());
    for (std::size_t i = 0; i < points_.size(); ++i) {
        poll_at(i);
        points_[i] = to_double(mesh.vertices[i].position()) - zero;
    }
    const auto rows = [&](const Face& face) -> RowRange {
        if (face.deleted != 0) return {};
        double low = std::numeric_limits<double>::infinity();
        double high = -low;
        for (const std::int32_t vertex : face.vertex) {
            const Vec3d& p = points_[static_cast<std::size_t>(vertex)];
            if (!is_finite(p)) return {};
            low = std::min(low, p.y);
            high = std::max(high, p.y);
        }
        const auto count = static_cast<double>(lattice_.count_y);
        const auto row = [&](double y) { return (y - lattice_.first_y) / lattice_.spacing_y; };
        // Half a spacing to either side, and a little for the rounding.
        const double first = std::clamp(std::ceil(row(low) - 0.501), 0.0, count);
        const double end = std::clamp(std::floor(row(high) + 0.501) + 1, first, count);
        return {static_cast<std::size_t>(first), static_cast<std::size_t>(end)};
    };
    Array<std::size_t> counts;
    counts.assign(lattice_.count_y + 1, 0);
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        const RowRange range = rows(face);
        for (std::size_t j = range.first; j < range.end; ++j) ++counts[j + 1];
    }
    for (std::size_t j = 1; j < counts.size(); ++j) counts[j] += counts[j - 1];
    row_offsets_ = counts;
    row_faces_.resize(counts.back());
    for (std::uint32_t i = 0; i < mesh.faces.size(); ++i) {
        poll_at(i);
        const RowRange range = rows(mesh.faces[i]);
        for (std::size_t j = range.first; j < range.end; ++j) row_faces_[counts[j]++] = i;
    }
}

void ColumnLines::find(std::size_t j, double dx, double dy, Array<LineCrossing>& crossings) const {
    crossings.clear();
    const double y = lattice_.first_y + static_cast<double>(j) * lattice_.spacing_y + dy;
    for (std::size_t k = row_offsets_[j]; k < row_offsets_[j + 1]; ++k) {
        cross(row_faces_[k], lattice_.first_x + dx, y, crossings);
    }
    std::sort(crossings.begin(), crossings.end(), [](const LineCrossing& a, const LineCrossing& b) {
        return std::tie(a.i, a.z, a.way, a.steepness) < std::tie(b.i, b.z, b.way, b.steepness);
    });
}

void ColumnLines::cross(std::uint32_t face, double x0, double y,
                        Array<LineCrossing>& crossings) const {
    std::array<Vec3d, 3> p;
    for (std::size_t i = 0; i < 3; ++i)
        p[i] = points_[static_cast<std::size_t>(mesh_.faces[face].vertex[i])];
    const RowSpan span = row_span(p, y, [&](double x) {
        const double line = std::ceil((x - x0) / lattice_.spacing_x);
        return static_cast<std::uint32_t>(
            std::clamp(line, 0.0, static_cast<double>(lattice_.count_x)));
    });
    if (span.from == span.end) return;
    const Vec3d normal = ::povmesh::cross(p[1] - p[0], p[2] - p[0]);
    const double size = length(normal);
    const auto steepness =
        static_cast<float>(size > 0 && is_ignored_[face] == 0 ? std::abs(normal.z) / size : 0.0);
    for (std::uint32_t i = span.low(); i < span.high(); ++i) {
        const double x = x0 + static_cast<double>(i) * lattice_.spacing_x;
        const double z = height_at(p, normal, x, y);
        crossings.push_back({i, narrow_to_float(z), steepness, span.way()});
    }
}

}  // namespace povmesh
