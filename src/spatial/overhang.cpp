// Columns are sampled in their middles, moved off them by shares that no regular mesh has, so that
// no sample falls on an edge. Hits are sorted into columns by counting, and within a column by
// height.
#include "spatial/overhang.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace povmesh {
namespace {

constexpr std::size_t kMostColumns = 96;  // along each side
constexpr std::size_t kFewestColumns = 8;

// Hits of a look: twenty for each column. Plain models have ten at most.
constexpr double kMostHits = 2e5;

constexpr double kSampleX = 0.5 + 0.0271828;
constexpr double kSampleY = 0.5 - 0.0141421;

// Faces closer to upright than this make no hit: no column's middle is below them in double numbers
// that mean anything.
constexpr double kUpright = 1e-12;

// Faces with the same corners are hit at the same height but for rounding, of which 32-bit floats
// have the most.
constexpr float kSameHeight = 1e-6F;

Vec3d unit_or_zero(Vec3d v) {
    const double size = length(v);
    return size > 0 ? v / size : Vec3d{};
}

}  // namespace

double support_need(double down) {
    const double degrees = std::acos(std::clamp(down, -1.0, 1.0)) * (180 / std::numbers::pi);
    return std::clamp((72 - degrees) / 54, 0.0, 1.0);
}

std::array<Vec3d, 2> across(Vec3d unit) {
    const Vec3d away = std::abs(unit.x) < 0.6 ? Vec3d{1, 0, 0} : Vec3d{0, 1, 0};
    const Vec3d first = unit_or_zero(cross(away, unit));
    return {first, cross(unit, first)};
}

void OverhangMeter::turn(std::span<const Vec3d> points, Vec3d up) {
    const auto [right, back] = across(up);
    turned_.resize(points.size());
    Box3d box;
    for (std::size_t i = 0; i < points.size(); ++i) {
        turned_[i] = {dot(points[i], right), dot(points[i], back), dot(points[i], up)};
        box.widen(turned_[i]);
    }
    const Vec3d extent = box.extent();
    side_ = std::max(extent.x, extent.y);
    origin_ = {box.low.x - (side_ - extent.x) / 2, box.low.y - (side_ - extent.y) / 2, box.low.z};
    plate_ = box.low.z;
}

std::size_t OverhangMeter::column_count(
    std::span<const std::array<std::uint32_t, 3>> triangles) const {
    double covered = 0;
    for (const auto& [ia, ib, ic] : triangles) {
        const Vec3d a = turned_[ia];
        const Vec3d b = turned_[ib];
        const Vec3d c = turned_[ic];
        covered += std::abs((b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x)) / 2;
    }
    constexpr double kMost = static_cast<double>(kMostColumns);
    const double hits = covered / (side_ * side_) * kMost * kMost;
    if (hits <= kMostHits) return kMostColumns;
    return std::max(static_cast<std::size_t>(kMost * std::sqrt(kMostHits / hits)), kFewestColumns);
}

// Calls visit(column, height, down) for every triangle above the middle of a column.
template <typename Visit>
void OverhangMeter::visit_columns(std::span<const std::array<std::uint32_t, 3>> triangles,
                                  Visit&& visit) const {
    const auto first_from = [](double place) {
        return static_cast<std::int32_t>(std::max(std::ceil(place), 0.0));
    };
    const auto last_to = [this](double place) {
        return static_cast<std::int32_t>(
            std::min(std::floor(place), static_cast<double>(columns_) - 1));
    };
    const double scale = 1 / cell_;
    for (const auto& [ia, ib, ic] : triangles) {
        const Vec3d a = turned_[ia];
        const Vec3d b = turned_[ib];
        const Vec3d c = turned_[ic];
        // In columns, the samples at whole numbers.
        const double ax = (a.x - origin_.x) * scale - kSampleX;
        const double bx = (b.x - origin_.x) * scale - kSampleX;
        const double cx = (c.x - origin_.x) * scale - kSampleX;
        const std::int32_t x0 = first_from(std::min({ax, bx, cx}));
        const std::int32_t x1 = last_to(std::max({ax, bx, cx}));
        if (x0 > x1) continue;
        const double ay = (a.y - origin_.y) * scale - kSampleY;
        const double by = (b.y - origin_.y) * scale - kSampleY;
        const double cy = (c.y - origin_.y) * scale - kSampleY;
        const std::int32_t y0 = first_from(std::min({ay, by, cy}));
        const std::int32_t y1 = last_to(std::max({ay, by, cy}));
        if (y0 > y1) continue;
        const double area = (bx - ax) * (cy - ay) - (by - ay) * (cx - ax);
        if (area == 0) continue;
        const double sign = area > 0 ? 1 : -1;
        double down = 2;  // not known yet
        for (std::int32_t y = y0; y <= y1; ++y) {
            for (std::int32_t x = x0; x <= x1; ++x) {
                const double wa = ((bx - x) * (cy - y) - (by - y) * (cx - x)) * sign;
                const double wb = ((cx - x) * (ay - y) - (cy - y) * (ax - x)) * sign;
                const double wc = ((ax - x) * (by - y) - (ay - y) * (bx - x)) * sign;
                if (wa < 0 || wb < 0 || wc < 0) continue;
                if (down == 2) down = -unit_or_zero(cross(b - a, c - a)).z;
                if (std::abs(down) < kUpright) continue;
                const double height = (wa * a.z + wb * b.z + wc * c.z) / (wa + wb + wc);
                visit(static_cast<std::size_t>(y) * columns_ + static_cast<std::size_t>(x), height,
                      down);
            }
        }
    }
}

Overhang OverhangMeter::walk(std::span<Hit> column, double slack) const {
    Overhang sum;
    double floor = 0;
    bool is_on_model = false;
    int depth = 0;
    for (std::size_t i = 0; i < column.size(); ++i) {
        if (depth == 0 && column[i].down < 0 && i + 1 < column.size() && column[i + 1].down > 0 &&
            column[i + 1].height - column[i].height <= kSameHeight) {
            std::swap(column[i], column[i + 1]);  // a sheet: what it shows above is left last
        }
        const Hit hit = column[i];
        const double height = static_cast<double>(hit.height);
        const double down = static_cast<double>(hit.down);
        if (down < 0) {  // left behind
            depth = std::max(depth - 1, 0);
            if (depth == 0) {
                floor = height;
                is_on_model = true;
            }
            continue;
        }
        if (depth++ != 0 || height - floor <= slack) continue;
        const double need = support_need(down);
        sum.volume += need * (height - floor);
        sum.touched_above += need / down;  // 0 where down is small
        if (is_on_model) sum.touched_below += need;
    }
    return sum;
}

Overhang OverhangMeter::measure(std::span<const Vec3d> points,
                                std::span<const std::array<std::uint32_t, 3>> triangles, Vec3d up,
                                double slack) {
    turn(points, up);
    if (!(side_ > 0)) return {};
    columns_ = column_count(triangles);
    cell_ = side_ / static_cast<double>(columns_);
    found_.clear();
    offsets_.assign(columns_ * columns_ + 2, 0);
    visit_columns(triangles, [&](std::size_t column, double height, double down) {
        found_.push_back({static_cast<std::uint32_t>(column),
                          {static_cast<float>(height - plate_), static_cast<float>(down)}});
        ++offsets_[column + 2];
    });
    for (std::size_t i = 2; i < offsets_.size(); ++i) offsets_[i] += offsets_[i - 1];
    hits_.resize(found_.size());
    for (const auto& [column, hit] : found_) hits_[offsets_[column + 1]++] = hit;
    Overhang sum;
    for (std::size_t i = 0; i < columns_ * columns_; ++i) {
        const std::span<Hit> column(hits_.data() + offsets_[i], offsets_[i + 1] - offsets_[i]);
        if (column.empty()) continue;
        // What is entered goes before what is left at the same height: where solids touch there is
        // no gap then, and a sheet of two faces back to back hangs as one with a thickness does.
        std::sort(column.begin(), column.end(), [](const Hit& a, const Hit& b) {
            return a.height != b.height ? a.height < b.height : a.down > b.down;
        });
        const Overhang here = walk(column, slack);
        sum.volume += here.volume;
        sum.touched_above += here.touched_above;
        sum.touched_below += here.touched_below;
    }
    const double area = cell_ * cell_;
    return {sum.volume * area, sum.touched_above * area, sum.touched_below * area};
}

}  // namespace povmesh
