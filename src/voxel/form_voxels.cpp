// Surface voxelisation by point sampling: for every face the grid points of its box are tested
// against its plane (a slab of half a voxel's diagonal) and against its area (the three triangles
// that the projected point spans with the edges). The test is linear in the point, so the slab and
// the edges bound the walk to the points that can pass.
#include "voxel/form_voxels.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <string>

#include "base/convert.h"
#include "base/poll.h"
#include "base/timer.h"
#include "mesh/bounds.h"
#include "mesh/volume.h"
#include "voxel/outside.h"
#include "voxel/relative_faces.h"

namespace povmesh {
namespace {

using Cell3 = std::array<std::int64_t, 3>;
using Point = std::array<double, 3>;

// Sizes raised by more are for coordinates that nobody meant.
constexpr float kPlainRaise = 4;
constexpr std::int64_t kCellsOfAWildModel = std::int64_t{1} << 24;
// Cells that all faces pass through, each for itself: seconds. A ball in the finest grid that fits
// has 2^20.
constexpr double kMostCellsOfFaces = 0x1p25;

// A shorter normal, unscaled, has no direction to go by.
constexpr double kLeastNormal = 0.001;
// Hosts rely on angles by this value.
constexpr double kPi = 3.1415926;

Point components(Vec3d v) {
    return {v.x, v.y, v.z};
}

// Rounds to whole voxels, one half towards zero.
double snap(double coordinate, double size) {
    const double ratio = coordinate / size;
    return ratio > 0 ? std::ceil(ratio - 0.5) : std::floor(ratio + 0.5);
}

// Of numbers of cells in a grid; the library's functions are calls where the processor is not known
// to have an instruction for them.
std::int64_t ceiling(double x) {
    const auto whole = static_cast<std::int64_t>(x);
    return whole + (x > static_cast<double>(whole) ? 1 : 0);
}
std::int64_t floor_of(double x) {
    const auto whole = static_cast<std::int64_t>(x);
    return whole - (x < static_cast<double>(whole) ? 1 : 0);
}

// The same for a coordinate within the grid.
std::int64_t snapped(double coordinate, double size) {
    const double ratio = coordinate / size;
    assert(std::abs(ratio) < 0x1p62);
    return ratio > 0 ? ceiling(ratio - 0.5) : floor_of(ratio + 0.5);
}

struct AxisCells {
    double low, high;  // snapped
    double count() const { return high - low + 1; }
};

std::array<AxisCells, 3> cells_of(const ModelBox& model, Vec3f size) {
    std::array<AxisCells, 3> cells{};
    const Point low = components(to_double(model.box.low - model.origin));
    const Point high = components(to_double(model.box.high - model.origin));
    const Point edge = components(to_double(size));
    for (std::size_t i = 0; i < 3; ++i) cells[i] = {snap(low[i], edge[i]), snap(high[i], edge[i])};
    return cells;
}

bool fits(const ModelBox& model, Vec3f size, std::int64_t most_cells) {
    const auto cells = cells_of(model, size);
    const auto along = static_cast<double>(kMostCellsAlong);
    if (cells[0].count() > along || cells[1].count() > along) return false;
    const double rows = (cells[1].count() + 2) * (cells[2].count() + 2);
    const double padded_row = 64 * std::ceil((cells[0].count() + 2) / 64);
    const std::int64_t most_padded = kMostPaddedCells / kMostCells * most_cells;
    return rows <= static_cast<double>(kMostRows) &&
           cells[0].count() * cells[1].count() * cells[2].count() <=
               static_cast<double>(most_cells) &&
           padded_row * rows <= static_cast<double>(most_padded);
}

Vec3f scaled(Vec3f size, double factor) {
    return {narrow_to_float(static_cast<double>(size.x) * factor),
            narrow_to_float(static_cast<double>(size.y) * factor),
            narrow_to_float(static_cast<double>(size.z) * factor)};
}

std::string in_brackets(Vec3f v) {
    const Vec3d d = to_double(v);
    return "(" + six_decimals(d.x) + ", " + six_decimals(d.y) + ", " + six_decimals(d.z) + ")";
}

void tell_raise(Vec3f size, const RunLog& log) {
    log.caution("voxel size is raised to " + six_decimals(double{size.x}) +
                ", for the model to fit the grid\n");
}

// One face against the grid. Coordinates are relative to the grid's origin.
class FaceSampler {
public:
    FaceSampler(VoxelGrid& grid, bool with_colours)
        : grid_(grid),
          occupied_(grid.edit_occupied()),
          edge_(components(to_double(grid.settings().size))),
          largest_edge_(*std::max_element(edge_.begin(), edge_.end())),
          tolerance_(static_cast<double>(grid.plane_tolerance())),
          with_colours_(with_colours),
          with_angles_(grid.settings().keeps_angles) {
        const double least_edge = *std::min_element(edge_.begin(), edge_.end());
        least_normal_ = kLeastNormal * std::min(1.0, least_edge * least_edge);
        strides_ = {1, static_cast<std::int64_t>(grid.words_per_row() * 64),
                    static_cast<std::int64_t>(grid.words_per_layer() * 64)};
        zero_cell_ = static_cast<std::int64_t>(grid.cell_of(grid.box().low)) -
                     grid.box().low.x * strides_[0] - grid.box().low.y * strides_[1] -
                     grid.box().low.z * strides_[2];
    }

    void sample(std::array<Vec3d, 3> corners, VoxelColour colour) {
        colour_ = colour;
        normal_ = cross(corners[1] - corners[0], corners[2] - corners[0]);
        if (with_angles_) angle_ = angle();
        set_box(corners);
        if (is_small_) return mark_box();
        std::sort(corners.begin(), corners.end(),
                  [](const Vec3d& a, const Vec3d& b) { return components(a) < components(b); });
        set_plane(corners);
        if (unit_normal_ == Vec3d{}) {
            mark_along_longest_edge();
        } else {
            mark_near_plane();
        }
    }

private:
    void set_box(const std::array<Vec3d, 3>& corners) {
        Box3d box;
        for (const Vec3d& corner : corners) box.widen(corner);
        const Point low = components(box.low);
        const Point high = components(box.high);
        is_small_ = true;
        for (std::size_t i = 0; i < 3; ++i) {
            is_small_ = is_small_ && high[i] - low[i] < edge_[i];
            low_[i] = snapped(low[i], edge_[i]);
            high_[i] = snapped(high[i], edge_[i]);
        }
    }

    std::int8_t angle() const {
        const double size = length(normal_);
        double cosine = size > least_normal_ ? std::abs(normal_.z / size) : 0.0;
        if (cosine < 0.001) cosine = 0.0;
        return saturate_to<std::int8_t>(std::acos(std::min(cosine, 1.0)) * 180.0 / kPi);
    }

    void set_plane(const std::array<Vec3d, 3>& corners) {
        corners_ = corners;
        centroid_ = (corners[0] + corners[1] + corners[2]) / 3.0;
        const Vec3d normal = cross(corners[1] - corners[0], corners[2] - corners[0]);
        const double doubled_area = length(normal);
        unit_normal_ = doubled_area < least_normal_ ? Vec3d{} : normal / doubled_area;
        longest_edge_ = 0;
        double farthest = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            const Vec3d u = corners[next_corner(i)] - corners[i];
            if (length(u) > longest_edge_) {
                longest_edge_ = length(u);
                longest_ = i;
            }
            farthest = std::max(farthest, length(corners[i]));
            // The doubled, signed area that a point spans with the edge, in the plane's direction.
            area_slope_[i] = cross(unit_normal_, u);
            area_base_[i] = dot(area_slope_[i], corners[i]);
        }
        reference_ = doubled_area + largest_edge_ * longest_edge_;
        rounding_ = 1e-9 * reference_ + 1e-13 * longest_edge_ * (farthest + longest_edge_);
    }

    void mark(const Cell3& k) {
        const auto cell =
            static_cast<std::size_t>(zero_cell_ + k[0] + k[1] * strides_[1] + k[2] * strides_[2]);
        occupied_[cell / 64] |= std::uint64_t{1} << (cell % 64);
        if (with_colours_) grid_.set_colour(cell, colour_);
        if (with_angles_) grid_.set_angle(cell, angle_);
    }

    void mark_box() {
        for (std::int64_t z = low_[2]; z <= high_[2]; ++z) {
            for (std::int64_t y = low_[1]; y <= high_[1]; ++y) {
                for (std::int64_t x = low_[0]; x <= high_[0]; ++x) mark({x, y, z});
            }
        }
    }

    Vec3d point(const Cell3& k) const {
        return {static_cast<double>(k[0]) * edge_[0], static_cast<double>(k[1]) * edge_[1],
                static_cast<double>(k[2]) * edge_[2]};
    }

    // The rule itself, in the order of its sums.
    bool is_accepted_exactly(Vec3d p, double distance) const {
        const Vec3d q = p - unit_normal_ * distance;
        double sum = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            sum += length(cross(corners_[i] - q, corners_[next_corner(i)] - q));
            if (!(sum < reference_)) return false;
        }
        return true;
    }

    bool is_accepted(const Cell3& k) const {
        const Vec3d p = point(k);
        const double distance = dot(p - centroid_, unit_normal_);
        if (!(std::abs(distance) < tolerance_)) return false;
        if (unit_normal_ == Vec3d{}) return is_accepted_exactly(p, distance);
        double sum = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            sum += std::abs(dot(area_slope_[i], p) - area_base_[i]);
        }
        if (sum < reference_ - rounding_) return true;
        if (sum > reference_ + rounding_) return false;
        return is_accepted_exactly(p, distance);
    }

    // Only the grid points within a slab around the plane can pass, and of those only the ones that
    // are not too far beyond an edge. Along the axis that the plane is steepest to, the slab is a
    // few cells thick; the other two axes are walked over the face, whose borders bound the inner
    // one.
    void mark_near_plane() {
        const Point n = components(unit_normal_);
        std::size_t w = 0;
        for (std::size_t i = 1; i < 3; ++i) {
            if (std::abs(n[i]) * edge_[i] > std::abs(n[w]) * edge_[w]) w = i;
        }
        const std::size_t u = (w + 1) % 3;
        const std::size_t v = (w + 2) % 3;
        const double half_slab = tolerance_ / std::abs(n[w]);  // along w
        const double plane_base = dot(unit_normal_, centroid_) / n[w];
        const double plane_u = -n[u] / n[w];
        const double plane_v = -n[v] / n[w];
        // Of edge i: base + along_u * u + along_v * v is above 0 where points can pass.
        std::array<double, 3> base{};
        std::array<double, 3> along_u{};
        std::array<double, 3> along_v{};
        const double beyond = largest_edge_ * longest_edge_ / 2 + rounding_;
        for (std::size_t i = 0; i < 3; ++i) {
            const Point slope = components(area_slope_[i]);
            along_u[i] = slope[u] + slope[w] * plane_u;
            along_v[i] = slope[v] + slope[w] * plane_v;
            base[i] =
                slope[w] * plane_base - area_base_[i] + beyond + std::abs(slope[w]) * half_slab;
        }
        const double cells_per_w = 1 / edge_[w];
        const auto lowest_w = static_cast<double>(low_[w]);
        const auto highest_w = static_cast<double>(high_[w]);
        Cell3 k{};
        for (k[u] = low_[u]; k[u] <= high_[u]; ++k[u]) {
            poller_();
            const double pu = static_cast<double>(k[u]) * edge_[u];
            double v_low = static_cast<double>(low_[v]);
            double v_high = static_cast<double>(high_[v]);
            for (std::size_t i = 0; i < 3; ++i) {
                const double at_zero = base[i] + along_u[i] * pu;
                if (along_v[i] == 0) continue;
                const double border = -at_zero / along_v[i] / edge_[v];
                if (along_v[i] > 0) v_low = std::max(v_low, border - kSlack);
                if (along_v[i] < 0) v_high = std::min(v_high, border + kSlack);
            }
            if (!(v_low <= v_high)) continue;
            const std::int64_t first_v = ceiling(v_low);
            const std::int64_t last_v = floor_of(v_high);
            for (k[v] = first_v; k[v] <= last_v; ++k[v]) {
                const double pv = static_cast<double>(k[v]) * edge_[v];
                const double on_plane = plane_base + plane_u * pu + plane_v * pv;
                const double w_low =
                    std::max((on_plane - half_slab) * cells_per_w - kSlack, lowest_w);
                const double w_high =
                    std::min((on_plane + half_slab) * cells_per_w + kSlack, highest_w);
                if (!(w_low <= w_high)) continue;
                const std::int64_t first_w = ceiling(w_low);
                const std::int64_t last_w = floor_of(w_high);
                for (k[w] = first_w; k[w] <= last_w; ++k[w]) {
                    if (is_accepted(k)) mark(k);
                }
            }
        }
    }

    // A face without a normal has no plane. The areas with its longest edge keep the points within
    // a tube about that edge.
    void mark_along_longest_edge() {
        const Vec3d a = corners_[longest_];
        const Vec3d direction = corners_[(longest_ + 1) % 3] - a;
        const Point from = components(a);
        const Point along = components(direction);
        std::size_t w = 0;
        for (std::size_t i = 1; i < 3; ++i) {
            if (std::abs(along[i]) > std::abs(along[w])) w = i;
        }
        const std::size_t u = (w + 1) % 3;
        const std::size_t v = (w + 2) % 3;
        // Across the axis that the edge runs along most, the tube is wider by at most sqrt(3).
        const double reach = std::sqrt(3.0) * (reference_ / longest_edge_) * (1 + 1e-9);
        const auto range = [&](std::size_t axis, double centre, std::int64_t& first,
                               std::int64_t& last) {
            first = std::max(low_[axis],
                             saturate_to<std::int64_t>(std::floor((centre - reach) / edge_[axis])));
            last = std::min(high_[axis],
                            saturate_to<std::int64_t>(std::ceil((centre + reach) / edge_[axis])));
        };
        Cell3 k{};
        for (k[w] = low_[w]; k[w] <= high_[w]; ++k[w]) {
            poller_();
            const double t = (static_cast<double>(k[w]) * edge_[w] - from[w]) / along[w];
            std::int64_t first_u = 0;
            std::int64_t last_u = 0;
            std::int64_t first_v = 0;
            std::int64_t last_v = 0;
            range(u, from[u] + t * along[u], first_u, last_u);
            range(v, from[v] + t * along[v], first_v, last_v);
            for (k[u] = first_u; k[u] <= last_u; ++k[u]) {
                for (k[v] = first_v; k[v] <= last_v; ++k[v]) {
                    if (is_accepted(k)) mark(k);
                }
            }
        }
    }

    // In cells: far above the rounding of what it is added to, so that no grid point is lost.
    static constexpr double kSlack = 1e-6;

    VoxelGrid& grid_;
    VoxelGrid::Words& occupied_;
    Point edge_;
    double largest_edge_;
    double tolerance_;
    double least_normal_ = 0;
    bool with_colours_;
    bool with_angles_;
    std::array<std::int64_t, 3> strides_{};
    Poller poller_;
    std::int64_t zero_cell_ = 0;

    VoxelColour colour_ = kWhite;
    std::int8_t angle_ = kNoAngle;
    Vec3d normal_;
    bool is_small_ = false;
    Cell3 low_{};
    Cell3 high_{};
    std::array<Vec3d, 3> corners_;
    Vec3d centroid_;
    Vec3d unit_normal_;
    std::size_t longest_ = 0;
    double longest_edge_ = 0;
    double reference_ = 0;
    double rounding_ = 0;
    std::array<Vec3d, 3> area_slope_;
    std::array<double, 3> area_base_{};
};

VoxelColour first_corner_colour(const Face& face) {
    return {face.colour[0], face.colour[1], face.colour[2]};
}

bool has_colours(const TriMesh& mesh) {
    return std::any_of(mesh.faces.begin(), mesh.faces.end(),
                       [](const Face& face) { return first_corner_colour(face) != kWhite; });
}

VoxelGrid empty_grid(const ModelBox& model, const VoxelSettings& settings) {
    if (model.box.is_empty() || !is_voxel_size(settings.size)) return {};
    const auto cells = cells_of(model, settings.size);
    const auto low = [&](std::size_t i) { return saturate_to<std::int32_t>(cells[i].low); };
    const auto high = [&](std::size_t i) { return saturate_to<std::int32_t>(cells[i].high); };
    return VoxelGrid(settings, {{low(0), low(1), low(2)}, {high(0), high(1), high(2)}},
                     model.origin, model.extent);
}

}  // namespace

ModelBox model_box(const TriMesh& mesh) {
    ModelBox model;
    model.box = finite_bounds(mesh);
    if (model.box.is_empty()) return model;
    const Vec3d low = to_double(model.box.low);
    const Vec3d high = to_double(model.box.high);
    const Vec3d middle = (low + high) * 0.5;
    const Vec3d extent = high - low;
    model.origin = {narrow_to_float(middle.x), narrow_to_float(middle.y),
                    narrow_to_float(middle.z)};
    model.extent = {narrow_to_float(extent.x), narrow_to_float(extent.y),
                    narrow_to_float(extent.z)};
    return model;
}

bool is_voxel_size(Vec3f size) {
    return is_finite(size) && size.x > 0 && size.y > 0 && size.z > 0;
}

Vec3f fitting_size(const ModelBox& model, Vec3f size, std::int64_t most_cells) {
    const auto is_enough = [&](double factor) {
        return fits(model, scaled(size, factor), most_cells);
    };
    if (model.box.is_empty() || !is_voxel_size(size) || is_enough(1)) return size;
    double too_small = 1;
    double enough = 2;
    while (!is_enough(enough)) {
        too_small = enough;
        enough *= 2;
    }
    // Down to the resolution of a float.
    while (enough - too_small > too_small * 1e-8) {
        const double middle = 0.5 * (too_small + enough);
        (is_enough(middle) ? enough : too_small) = middle;
    }
    return scaled(size, enough);
}

Vec3f affordable_size(const TriMesh& mesh, Vec3f size, std::int64_t most_cells, RunContext& run) {
    const ModelBox model = model_box(mesh);
    Vec3f raised = fitting_size(model, size, most_cells);
    if (raised.x > kPlainRaise * size.x) {
        raised = fitting_size(model, size, std::min(most_cells, kCellsOfAWildModel));
    }
    const double wanted = std::sqrt(surface_area(mesh) / kMostCellsOfFaces);
    if (std::isfinite(wanted) && wanted > double{raised.x}) {
        raised = scaled(raised, wanted / double{raised.x});
    }
    if (raised.x != size.x) tell_raise(raised, run.log);
    return raised;
}

VoxelGrid form_voxels(const TriMesh& mesh, const VoxelSettings& wanted, RunContext& run) {
    const Timer timer;
    const ModelBox model = model_box(mesh);
    VoxelSettings settings = wanted;
    settings.size = fitting_size(model, wanted.size);
    if (settings.size.x != wanted.size.x) tell_raise(settings.size, run.log);
    run.log.value("model size", in_brackets(model.extent));
    run.log.value("model center", in_brackets(model.origin));

    VoxelGrid grid = empty_grid(model, settings);
    if (grid.word_count() != 0) {
        const RelativeFaces faces(mesh, model.origin);
        FaceSampler sampler(grid, has_colours(mesh));
        faces.for_each([&](const Face& face, const std::array<Vec3d, 3>& corners) {
            sampler.sample(corners, first_corner_colour(face));
        });
        grid.recount();
        find_outside(grid, faces);
    }
    run.log.value("form  voxels", six_decimals(timer.seconds()) + " sec.");
    return grid;
}

}  // namespace povmesh
