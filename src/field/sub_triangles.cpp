// Longest-edge bisection. A piece with an edge longer than the limit is halved, and the longest
// edge is no shorter: so each edge of the mesh ends up in the least power of two of equal parts
// that are short enough, whatever the rest of its faces looks like, and the faces beside it agree.
//
// Source: M.-C. Rivara, Mesh refinement processes based on the generalized bisection of simplices,
// SIAM Journal on Numerical Analysis 21, 1984.
#include "field/sub_triangles.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/parallel.h"
#include "base/poll.h"

namespace povmesh {
namespace {

// About how many pieces come of an area of the squared limit, and of an edge as long as the limit:
// their longest edges lie between half the limit and the limit.
constexpr double kPiecesOfAnArea = 16;
constexpr double kPiecesOfALength = 4;

// Counting begins with so many times the pieces allowed at most, which bounds its work.
constexpr double kMostCounted = 4;

// The wanted limit, or one that bounds the work.
double affordable_limit(const TriMesh& mesh, std::span<const std::uint32_t> faces, double wanted,
                        double most) {
    Array<double> lengths(faces.size());
    parallel_for(lengths.size(), [&](std::size_t i) {
        lengths[i] = std::sqrt(longest_edge(triangle_of(mesh, mesh.faces[faces[i]])).squared);
    });
    if (std::all_of(lengths.begin(), lengths.end(), [&](double x) { return x <= wanted; })) {
        return wanted;
    }
    const auto count = static_cast<double>(faces.size());
    if (count >= most) return std::numeric_limits<double>::infinity();
    const double edges = blocked_sum(lengths.size(), [&](std::size_t i) { return lengths[i]; });
    const double area = blocked_sum(faces.size(), [&](std::size_t i) {
        const Triangle t = triangle_of(mesh, mesh.faces[faces[i]]);
        return length(cross(t[1] - t[0], t[2] - t[0])) / 2;
    });
    // area * kPiecesOfAnArea / limit^2 + edges * kPiecesOfALength / limit = budget
    const double budget = kMostCounted * most - count;
    const double half = kPiecesOfALength * edges / 2 / budget;
    return std::max(wanted, half + std::sqrt(half * half + kPiecesOfAnArea * area / budget));
}

}  // namespace

LongestEdge longest_edge(const Triangle& t) {
    LongestEdge longest;
    for (std::size_t c = 0; c < 3; ++c) {
        const Vec3d edge = t[next_corner(c)] - t[c];
        const double squared = dot(edge, edge);
        if (squared > longest.squared) longest = {c, squared};
    }
    return longest;
}

// Stops beyond `most`.
std::size_t SubTriangles::count_pieces(const Triangle& t, std::size_t most) const {
    const LongestEdge longest = longest_edge(t);
    if (!(longest.squared > limit_ * limit_)) return 1;
    const auto [first, second] = halves(t, longest.corner);
    const std::size_t count = count_pieces(first, most);
    return count > most ? count : count + count_pieces(second, most - count);
}

std::size_t SubTriangles::record(const Triangle& t, std::size_t& inner_node) {
    const LongestEdge longest = longest_edge(t);
    if (!(longest.squared > limit_ * limit_)) return 1;
    const auto [first, second] = halves(t, longest.corner);
    const std::size_t node = inner_node++;
    const std::size_t left = record(first, inner_node);
    left_counts_[node] = static_cast<std::uint32_t>(left);
    return left + record(second, inner_node);
}

SubTriangles::SubTriangles(const TriMesh& mesh, std::span<const std::uint32_t> faces, double wanted,
                           std::size_t most)
    : mesh_(&mesh), limit_(affordable_limit(mesh, faces, wanted, static_cast<double>(most))) {
    poll();
    firsts_.assign(mesh.faces.size(), 0);
    counts_.assign(mesh.faces.size(), 0);
    const std::size_t allowed = std::max(most, faces.size());
    std::size_t total = 0;
    while (true) {
        parallel_for(faces.size(), [&](std::size_t i) {
            const Triangle t = triangle_of(mesh, mesh.faces[faces[i]]);
            counts_[faces[i]] = static_cast<std::uint32_t>(count_pieces(t, allowed));
        });
        total = 0;
        Poller poller;
        for (const std::uint32_t face : faces) {
            poller();
            firsts_[face] = static_cast<std::uint32_t>(total);
            total += counts_[face];
        }
        if (total <= allowed) break;
        limit_ *= std::sqrt(2.0);
    }
    left_counts_.resize(total);
    parallel_for(faces.size(), [&](std::size_t i) {
        std::size_t inner_node = firsts_[faces[i]];
        if (counts_[faces[i]] > 1) record(triangle_of(mesh, mesh.faces[faces[i]]), inner_node);
    });
}

std::size_t SubTriangles::locate(std::uint32_t face, Vec3d point) const {
    Triangle t = triangle_of(*mesh_, mesh_->faces[face]);
    const Vec3d normal = cross(t[1] - t[0], t[2] - t[0]);
    std::size_t piece = firsts_[face];
    std::size_t node = piece;
    for (std::size_t left = counts_[face]; left > 1;) {
        const auto [first, second] = halves(t, longest_edge(t).corner);
        // Between the halves lies the line from the middle of the edge to the corner across.
        const Vec3d border = first[2] - first[1];
        const std::size_t in_first = left_counts_[node];
        if (dot(cross(border, point - first[1]), normal) >= 0) {
            t = first;
            left = in_first;
            node += 1;
        } else {
            t = second;
            piece += in_first;
            left -= in_first;
            node += in_first;  // the first half has one halving less than pieces
        }
    }
    return piece;
}

}  // namespace povmesh
