// Two points that are farther apart along an axis than a part may be long lie in different parts,
// so a set of points of which any two are so far apart needs a part for each of them. Points are
// taken in the order of their places along a direction, each that is far from all taken before.
#include "decompose/least_parts.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "base/convert.h"
#include "base/float4.h"
#include "base/poll.h"
#include "mesh/bounds.h"

namespace povmesh {
namespace {

// The points looked at: of the vertices in each cell of a grid the outermost along each axis, and
// places on large faces between them.
constexpr double kCellsAlong = 24;
constexpr std::int32_t kMostSteps = 48;        // along a side of a face
constexpr double kSurely = 1 - 1e-6;           // room for the rounding of floats
constexpr std::size_t kMostTests = 4'000'000;  // of pairs of points; what is found by then counts

// To sort a point along all directions takes as long as so many tests.
constexpr std::size_t kTestsAPoint = 140;

constexpr std::array<Vec3d, 7> kDirections = {
    {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}, {1, 1, -1}, {1, -1, 1}, {-1, 1, 1}}};

bool is_finite(const Vec3d& p) {
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

Vec3d difference(const Vec3d& p, const Vec3d& q) {
    return {std::abs(p.x - q.x), std::abs(p.y - q.y), std::abs(p.z - q.z)};
}

// The outermost points of a cell along -x, x, -y, y, -z, z.
struct CellPoints {
    std::array<Vec3d, 6> points;
    bool is_empty = true;

    void add(const Vec3d& p) {
        if (is_empty) {
            points.fill(p);
            is_empty = false;
            return;
        }
        for (std::size_t axis = 0; axis < 3; ++axis) {
            if (along(p, axis) < along(points[2 * axis], axis)) points[2 * axis] = p;
            if (along(p, axis) > along(points[2 * axis + 1], axis)) points[2 * axis + 1] = p;
        }
    }
};

class PointGrid {
public:
    explicit PointGrid(const Box3d& box) : box_(box) {
        const Vec3d extent = box.extent();
        step_ = std::max({extent.x, extent.y, extent.z}) / kCellsAlong;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            count_[axis] =
                step_ > 0 ? saturate_to<std::size_t>(along(extent, axis) / step_) + 1 : 1;
        }
        cells_.resize(count_[0] * count_[1] * count_[2]);
        sure_step_ = static_cast<float>(step_ * kSurely);
    }

    void add(const Vec3d& p) {
        std::array<std::size_t, 3> at{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double place = along(p, axis) - along(box_.low, axis);
            at[axis] =
                step_ > 0 ? std::min(saturate_to<std::size_t>(place / step_), count_[axis] - 1) : 0;
        }
        cells_[(at[2] * count_[1] + at[1]) * count_[0] + at[0]].add(p);
    }

    // Faces that are not surely smaller than a cell. Quick: of a fine mesh all are.
    bool may_be_large(const Vertex& a, const Vertex& b, const Vertex& c) const {
        const Float4 x = as_floats(a);
        const Float4 y = as_floats(b);
        const Float4 z = as_floats(c);
        const auto size = store4(larger(x, larger(y, z)) - smaller(x, smaller(y, z)));
        return std::max({size[0], size[1], size[2]}) > sure_step_;
    }

    // A face may be far larger than a cell; its inner places are those of the model, too.
    void add_face(const std::array<Vec3d, 3>& p) {
        double longest = 0;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const auto [low, high] =
                std::minmax({along(p[0], axis), along(p[1], axis), along(p[2], axis)});
            longest = std::max(longest, high - low);
        }
        if (!(longest > step_) || !std::all_of(p.begin(), p.end(), is_finite)) return;
        const std::int32_t steps =
            std::min(saturate_to<std::int32_t>(longest / step_) + 1, kMostSteps);
        for (std::int32_t i = 0; i <= steps; ++i) {
            for (std::int32_t k = 0; k <= steps - i; ++k) {
                const double u = static_cast<double>(i) / steps;
                const double v = static_cast<double>(k) / steps;
                add(p[0] * (1 - u - v) + p[1] * u + p[2] * v);
            }
        }
    }

    std::vector<Vec3d> points() const {
        std::vector<Vec3d> all;
        for (const CellPoints& cell : cells_) {
            if (cell.is_empty) continue;
            for (std::size_t i = 0; i < 6; ++i) {
                const auto end = cell.points.begin() + static_cast<std::ptrdiff_t>(i);
                if (std::find(cell.points.begin(), end, cell.points[i]) == end) {
                    all.push_back(cell.points[i]);
                }
            }
        }
        return all;
    }

private:
    static Float4 as_floats(const Vertex& vertex) { return load4({vertex.x, vertex.y, vertex.z}); }

    Box3d box_;
    double step_ = 0;
    float sure_step_ = 0;
    std::array<std::size_t, 3> count_{};
    std::vector<CellPoints> cells_;
};

}  // namespace

std::size_t least_parts(const TriMesh& model, const PartSize& size, std::size_t& effort) {
    const Box3f bounds = finite_bounds(model);
    if (bounds.is_empty()) return 1;
    const Box3d box{to_double(bounds.low), to_double(bounds.high)};
    if (size.fits(box)) return 1;
    double cells = 1;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const double limit = size.best_limits(box.extent())[axis];
        cells *= static_cast<double>(slab_count(along(box.extent(), axis), limit));
    }
    if (cells <= 2 || effort == 0) return 2;  // it does not fit
    PointGrid grid(box);
    std::vector<std::uint8_t> is_added(model.vertices.size(), 0);
    Poller poller;
    for (const Face& face : model.faces) {
        poller();
        std::array<const Vertex*, 3> corners{};
        for (std::size_t i = 0; i < 3; ++i) {
            const auto v = static_cast<std::size_t>(face.vertex[i]);
            corners[i] = &model.vertices[v];
            if (std::exchange(is_added[v], 1) != 0) continue;
            const Vec3d p = to_double(corners[i]->position());
            if (is_finite(p)) grid.add(p);
        }
        if (!grid.may_be_large(*corners[0], *corners[1], *corners[2])) continue;
        grid.add_face({to_double(corners[0]->position()), to_double(corners[1]->position()),
                       to_double(corners[2]->position())});
    }
    const std::vector<Vec3d> points = grid.points();
    std::size_t most = 2;
    // Rounding must not tell two points apart that fit into one part.
    const double slack = 1 - 1e-12;
    std::size_t tests = 0;
    for (const Vec3d& direction : kDirections) {
        // Points of one slab cell are near each other: there are no more.
        if (static_cast<double>(most) >= cells) break;
        std::vector<std::pair<double, std::uint32_t>> order;
        for (std::uint32_t i = 0; i < points.size(); ++i) {
            order.emplace_back(dot(points[i], direction), i);
        }
        std::sort(order.begin(), order.end());
        std::vector<Vec3d> taken;
        for (const auto& [place, i] : order) {
            if (tests > kMostTests) break;
            const Vec3d& p = points[i];
            const bool is_far = std::none_of(taken.begin(), taken.end(), [&](const Vec3d& q) {
                return size.fits(difference(p, q) * slack);
            });
            tests += taken.size();
            if (is_far) taken.push_back(p);
        }
        most = std::max(most, taken.size());
    }
    effort -= std::min(effort, tests + kTestsAPoint * points.size());
    return most;
}

}  // namespace povmesh
