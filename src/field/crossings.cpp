// Scan conversion of triangles along the three axes with exact predicates; ties by simulation of
// simplicity (H. Edelsbrunner, E. P. Muecke, Simulation of simplicity, ACM Transactions on Graphics
// 9(1), 1990).
#include "field/crossings.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <vector>

#include "base/convert.h"
#include "base/parallel.h"
#include "base/predicates.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

// Faces per piece of work; each piece collects its crossings in a list of its own.
constexpr std::size_t kFacesAtOnce = 2048;

// A row's span of lines is found in rounded arithmetic and widened by this share of a cell; whether
// a line passes through the face is decided exactly afterwards.
constexpr double kWiden = 1e-3;

int sign_of(double value) {
    return value > 0 ? 1 : value < 0 ? -1 : 0;
}

double along(Vec3d p, std::size_t axis) {
    return axis == 0 ? p.x : axis == 1 ? p.y : p.z;
}

// The lines of the grid along one axis, and a face seen along it.
class FaceScan {
public:
    FaceScan(const FieldGrid& grid, const BlockLayout& layout, std::size_t axis)
        : grid_(grid),
          layout_(layout),
          axis_(axis),
          u_(next_corner(axis)),
          v_(previous_corner(axis)),
          is_u_first_(u_ < v_) {}

    void scan(const Triangle& t, std::uint32_t face, std::vector<Crossing>& found) {
        triangle_ = &t;
        for (std::size_t c = 0; c < 3; ++c) p_[c] = {along(t[c], u_), along(t[c], v_)};
        const auto [left, right] = std::minmax({p_[0].x, p_[1].x, p_[2].x});
        const auto [low, high] = std::minmax({p_[0].y, p_[1].y, p_[2].y});
        // Most faces are smaller than a cell and lie between the lines.
        if (is_between_lines(left, right, u_) || is_between_lines(low, high, v_)) return;
        turn_ = orient2d(p_[0], p_[1], p_[2]);
        if (turn_ == 0) return;
        is_tie_known_ = false;
        const std::int32_t first = std::max(index_below(low, v_), 0);
        const std::int32_t last = std::min(index_below(high, v_) + 1, grid_.nodes[v_] - 1);
        for (std::int32_t row = first; row <= last; ++row) scan_row(row, face, found);
    }

private:
    double coordinate(std::int32_t index, std::size_t axis) const {
        return along(grid_.origin, axis) + grid_.cell * index;
    }
    std::int32_t index_below(double value, std::size_t axis) const {
        return saturate_to<std::int32_t>(
            std::floor((value - along(grid_.origin, axis)) / grid_.cell));
    }

    // No line within twice the room for rounding.
    bool is_between_lines(double low, double high, std::size_t axis) const {
        const double slack = 2 * kWiden * grid_.cell;
        return index_below(low - slack, axis) == index_below(high + slack, axis);
    }

    // The lines of a row that may pass through the face.
    void scan_row(std::int32_t row, std::uint32_t face, std::vector<Crossing>& found) {
        const double v = coordinate(row, v_);
        const double slack = kWiden * grid_.cell;
        double low = HUGE_VAL;
        double high = -HUGE_VAL;
        for (std::size_t c = 0; c < 3; ++c) {
            const Point2d a = p_[c];
            const Point2d b = p_[next_corner(c)];
            if (v < std::min(a.y, b.y) - slack || v > std::max(a.y, b.y) + slack) continue;
            const double rise = b.y - a.y;
            const double size = std::abs(v) + std::abs(a.y) + std::abs(b.y);
            if (std::abs(b.x - a.x) * size * 1e-14 >= slack * std::abs(rise)) {
                // Nearly along the row: where they meet is lost in rounding.
                low = std::min({low, a.x, b.x});
                high = std::max({high, a.x, b.x});
                continue;
            }
            const double u = a.x + (b.x - a.x) * std::clamp((v - a.y) / rise, 0.0, 1.0);
            low = std::min(low, u);
            high = std::max(high, u);
        }
        if (!(low <= high)) return;
        const std::int32_t first = std::max(index_below(low - slack, u_) + 1, 0);
        const std::int32_t last = std::min(index_below(high + slack, u_), grid_.nodes[u_] - 1);
        for (std::int32_t line = first; line <= last; ++line) {
            const Point2d at = {coordinate(line, u_), v};
            if (!passes(at)) continue;
            found.push_back(crossing(line, row, at, face));
        }
    }

    // On which side of an edge a line passes that has been moved a little.
    int side(Point2d a, Point2d b, Point2d at) const {
        const int exact = orient2d(a, b, at);
        if (exact != 0) return exact;
        const int by_u = sign_of(b.y - a.y);
        const int by_v = -sign_of(b.x - a.x);
        if (is_u_first_) return by_u != 0 ? by_u : by_v;
        return by_v != 0 ? by_v : by_u;
    }
    bool passes(Point2d at) const {
        return side(p_[0], p_[1], at) == turn_ && side(p_[1], p_[2], at) == turn_ &&
               side(p_[2], p_[0], at) == turn_;
    }

    // Whether a node lies beyond the face along the axis.
    bool is_past(Vec3d node) {
        const Triangle& t = *triangle_;
        int exact = orient3d(t[0], t[1], t[2], node);
        if (exact == 0) exact = tie();
        return exact == turn_;
    }
    // The side of a node on the plane, moved: that of minus the normal's first part that is not 0.
    int tie() {
        if (is_tie_known_) return tie_;
        is_tie_known_ = true;
        const Triangle& t = *triangle_;
        for (std::size_t a = 0; a < 3; ++a) {
            std::array<Point2d, 3> p;
            for (std::size_t c = 0; c < 3; ++c) {
                p[c] = {along(t[c], next_corner(a)), along(t[c], previous_corner(a))};
            }
            tie_ = -orient2d(p[0], p[1], p[2]);
            if (tie_ != 0) break;
        }
        return tie_;
    }

    Crossing crossing(std::int32_t line, std::int32_t row, Point2d at, std::uint32_t face) {
        const Triangle& t = *triangle_;
        const Vec3d normal = cross(t[1] - t[0], t[2] - t[0]);
        const double slope_u = along(normal, u_) / along(normal, axis_);
        const double slope_v = along(normal, v_) / along(normal, axis_);
        double place = along(t[0], axis_) - slope_u * (at.x - p_[0].x) - slope_v * (at.y - p_[0].y);
        const auto [low, high] =
            std::minmax({along(t[0], axis_), along(t[1], axis_), along(t[2], axis_)});
        place = place >= low ? std::min(place, high) : low;  // also when it is not a number
        std::array<std::int32_t, 3> n{};
        n[axis_] = index_below(place, axis_);
        n[u_] = line;
        n[v_] = row;
        const auto node = [&] { return grid_.node(n[0], n[1], n[2]); };
        // The rounded place is seldom off by a node.
        while (is_past(node())) --n[axis_];
        ++n[axis_];
        while (!is_past(node())) ++n[axis_];
        --n[axis_];
        const double share = (place - coordinate(n[axis_], axis_)) / grid_.cell;
        return {layout_.number({n[0], n[1], n[2]}), static_cast<float>(std::clamp(share, 0.0, 1.0)),
                face};
    }

    const FieldGrid& grid_;
    const BlockLayout& layout_;
    std::size_t axis_, u_, v_;
    bool is_u_first_;  // the greater of the two moves is that along u
    const Triangle* triangle_ = nullptr;
    std::array<Point2d, 3> p_{};
    int turn_ = 0;
    int tie_ = 0;
    bool is_tie_known_ = false;
};

using Pieces = std::vector<std::vector<Crossing>>;

Pieces scan_faces(const TriMesh& mesh, const FieldGrid& grid, std::size_t axis) {
    const BlockLayout layout(grid);
    Pieces pieces((mesh.faces.size() + kFacesAtOnce - 1) / kFacesAtOnce);
    for_blocks(pieces.size(), [&](std::size_t piece) {
        FaceScan scan(grid, layout, axis);
        const std::size_t end = std::min((piece + 1) * kFacesAtOnce, mesh.faces.size());
        for (std::size_t f = piece * kFacesAtOnce; f < end; ++f) {
            const Face& face = mesh.faces[f];
            if (face.deleted != 0) continue;
            scan.scan(triangle_of(mesh, face), static_cast<std::uint32_t>(f), pieces[piece]);
        }
    });
    return pieces;
}

}  // namespace

Crossings::Crossings(const TriMesh& mesh, const FieldGrid& grid) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
        Axis& lines = axes_[axis];
        lines.crossed = NodeSet(grid);
        const std::uint32_t blocks = lines.crossed.block_count();
        const Pieces pieces = scan_faces(mesh, grid, axis);
        // Counted and spread by block, then sorted within each.
        lines.starts.assign(blocks + 1, 0);
        for (const auto& piece : pieces) {
            for (const Crossing& c : piece) ++lines.starts[c.node / kBlockNodes + 1];
        }
        for (std::uint32_t b = 0; b < blocks; ++b) lines.starts[b + 1] += lines.starts[b];
        lines.crossings.resize(lines.starts[blocks]);
        Array<std::uint32_t> ends = lines.starts;
        for (const auto& piece : pieces) {
            for (const Crossing& c : piece) {
                lines.crossings[ends[c.node / kBlockNodes]++] = c;
                lines.crossed.set(c.node);
            }
        }
        parallel_for(blocks, [&](std::size_t b) {
            std::sort(lines.crossings.begin() + lines.starts[b],
                      lines.crossings.begin() + lines.starts[b + 1],
                      [](const Crossing& x, const Crossing& y) {
                          return std::tie(x.node, x.place, x.face) <
                                 std::tie(y.node, y.place, y.face);
                      });
        });
    }
}

std::span<const Crossing> Crossings::of_edge(std::size_t axis, std::uint32_t node) const {
    const std::span<const Crossing> all = of_block(axis, node / kBlockNodes);
    const auto less = [](const Crossing& c, std::uint32_t n) { return c.node < n; };
    const auto first = std::lower_bound(all.begin(), all.end(), node, less);
    auto end = first;
    while (end != all.end() && end->node == node) ++end;
    return {first, end};
}

}  // namespace povmesh
