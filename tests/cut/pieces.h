// What must hold for the pieces of any closed model, whatever the plane.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "cut/cut.h"
#include "mesh/tri_mesh.h"
#include "mesh/volume.h"

namespace povmesh::pieces {

struct EdgeCounts {
    std::size_t open = 0;          // edges whose faces do not cancel out: held more often one way
    std::size_t non_manifold = 0;  // more than two faces
    std::size_t odd = 0;           // an odd number of faces
};

inline EdgeCounts count_edges(const TriMesh& mesh) {
    std::vector<std::tuple<std::int32_t, std::int32_t, int>> sides;
    for (const Face& face : mesh.faces) {
        if (face.deleted != 0) continue;
        for (std::size_t i = 0; i < 3; ++i) {
            const std::int32_t a = face.vertex[i];
            const std::int32_t b = face.vertex[(i + 1) % 3];
            sides.emplace_back(std::min(a, b), std::max(a, b), a < b ? 1 : -1);
        }
    }
    std::sort(sides.begin(), sides.end());
    EdgeCounts counts;
    for (std::size_t i = 0; i < sides.size();) {
        const auto [a, b, first] = sides[i];
        const std::size_t begin = i;
        int sum = 0;
        for (; i < sides.size() && std::get<0>(sides[i]) == a && std::get<1>(sides[i]) == b; ++i) {
            sum += std::get<2>(sides[i]);
        }
        counts.open += sum != 0 ? 1 : 0;
        counts.non_manifold += i - begin > 2 ? 1 : 0;
        counts.odd += (i - begin) % 2;
    }
    return counts;
}

inline double extent(const TriMesh& mesh) {
    Box3d box;
    for (const Vertex& v : mesh.vertices) box.widen(to_double(v.position()));
    const Vec3d size = box.extent();
    return std::max({size.x, size.y, size.z});
}

using Bits = std::array<float, 3>;
inline std::vector<Bits> sorted_points(const TriMesh& mesh) {
    std::vector<Bits> points;
    for (const Vertex& v : mesh.vertices) points.push_back({v.x, v.y, v.z});
    std::sort(points.begin(), points.end());
    return points;
}

inline bool has_double_points(const TriMesh& mesh) {
    const std::vector<Bits> points = sorted_points(mesh);
    return std::adjacent_find(points.begin(), points.end()) != points.end();
}

/// What is wrong with the capped pieces of a closed, consistently wound model; empty when nothing
/// is. A model with non-manifold edges may leave some in its pieces, and so may one whose shells
/// touch: a point of a cut can come to lie on the vertex of another shell.
inline std::string complaint(const TriMesh& model, const CutPlane& plane,
                             const std::vector<TriMesh>& parts, bool shells_touch = false) {
    const double size = extent(model);
    const double far = length(plane.point) + size;
    const double tolerance = 2e-5 * size + 1e-6 * far;
    const Vec3d normal = plane.normal / length(plane.normal);
    const std::vector<Bits> old_points = sorted_points(model);
    const bool is_manifold = !shells_touch && count_edges(model).non_manifold == 0;
    double sum = 0;
    double worst = 0;
    for (const TriMesh& part : parts) {
        const EdgeCounts edges = count_edges(part);
        if (edges.open != 0) return std::to_string(edges.open) + " open edges";
        if (is_manifold && edges.non_manifold != 0)
            return std::to_string(edges.non_manifold) + " non-manifold edges";
        if (!is_consistent(part)) return "inconsistent";
        if (!shells_touch && has_double_points(part)) return "two vertices at one place";
        const double volume = signed_volume(part);
        sum += volume;
        worst = std::min(worst, volume);
        double low = 0;
        double high = 0;
        for (const Vertex& v : part.vertices) {
            const double height = dot(normal, to_double(v.position()) - plane.point) - plane.offset;
            low = std::min(low, height);
            high = std::max(high, height);
            const Bits bits = {v.x, v.y, v.z};
            const bool is_old = std::binary_search(old_points.begin(), old_points.end(), bits);
            if (!is_old && std::abs(height) > tolerance)
                return "a vertex that was not there before";
        }
        if (parts.size() > 1 && low < -tolerance && high > tolerance)
            return "a piece on both sides";
    }
    const double before = signed_volume(model);
    const double scale = std::max(std::abs(before), 1e-3 * size * size * size);
    if (std::abs(sum - before) > 1e-5 * scale) {
        return "volume " + std::to_string(sum) + " instead of " + std::to_string(before);
    }
    if (worst < -1e-5 * scale) return "a piece that is wound inward";
    return {};
}

/// The pieces of a model cut with caps.
inline std::vector<TriMesh> cut(TriMesh model, const CutPlane& plane,
                                CutOperation operation = CutOperation::CutAndCap,
                                const ConnectorOptions& connectors = {}) {
    RunLog log;
    RunContext run{{}, log};
    CutOptions options;
    options.operation = operation;
    options.plane = plane;
    options.keep_cavities = true;
    options.connectors = connectors;
    cut_models(model, options, run);
    return std::move(model.parts);
}

}  // namespace povmesh::pieces
