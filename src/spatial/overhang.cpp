// Columns are sampled in their middles, moved off them by shares that no regular mesh has, so that
// no sample falls on an edge. Hits are sorted into columns by counting, and within a column by
// height.
#include "spatial/overhang.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/poll.h"

namespace povmesh {
namespace {

constexpr std::size_t kMostColumns = 96;  // along each side
constexpr std::size_t kFewestColumns = 2;

// Hits of a look: thirteen for each column. Plain models have ten at most.
constexpr std::size_t kMostHits = 120000;

constexpr double kSampleX = 0.5 + 0.0271828;
constexpr double kSampleY = 0.5 - 0.0141421;

// Units of a column: products of differences of places stay far below 2^53.
constexpr int kUnitBits = 15;
constexpr std::int32_t kUnit = 1 << kUnitBits;

// Of the square around a model about 1 long: less has no columns that numbers could tell apart.
constexpr double kNoWidth = 1e-12;

// Faces closer to upright than this make no hit: no column's middle is below them in numbers that
// mean anything.
constexpr double kUpright = 1e-12;

// Faces with the same corners are hit at the same height but for rounding, of which 32-bit floats
// have the most.
constexpr float kSameHeight = 1e-6F;

// Samples of a row beyond this many are narrowed down first.
constexpr std::int32_t kNarrow = 8;

// Narrows steps from..to to those around where value + step x slope is 0 or more; one more at each
// end, because the quotient is rounded.
void narrow(double value, double slope, std::int32_t& from, std::int32_t& to) {
    if (slope == 0) {
        if (value < 0) to = from - 1;
        return;
    }
    const double zero = std::clamp(-value / slope, -2.0, 1e6);
    if (slope > 0) {
        from = std::max(from, static_cast<std::int32_t>(zero) - 1);
    } else {
        to = std::min(to, static_cast<std::int32_t>(zero) + 1);
    }
}

Vec3d unit_or_zero(Vec3d v) {
    const double size = length(v);
    return size > 0 ? v / size : Vec3d{};
}

}  // namespace

std::array<Vec3d, 2> across(Vec3d unit) {
    const Vec3d away = std::abs(unit.x) < 0.6 ? Vec3d{1, 0, 0} : Vec3d{0, 1, 0};
    const Vec3d first = unit_or_zero(cross(away, unit));
    return {first, cross(unit, first)};
}

void OverhangMeter::look_along(Vec3d up, std::span<const Vec3f> around) {
    up_ = up;
    const auto [right, back] = across(up);
    right_ = right;
    back_ = back;
    Box3d box;
    for (const Vec3f point : around) {
        const Vec3d p = to_double(point);
        box.widen({dot(p, right_), dot(p, back_), 0});
    }
    const Vec3d extent = box.extent();
    side_ = std::max(extent.x, extent.y);
    low_x_ = box.low.x - (side_ - extent.x) / 2;
    low_y_ = box.low.y - (side_ - extent.y) / 2;
}

void OverhangMeter::turn(const MeasuredTriangles& on, std::size_t columns) {
    columns_ = columns;
    cell_ = side_ / static_cast<double>(columns);
    // Sample i is at the place i + 1, so that no place is below 0.
    const auto scale = static_cast<float>(kUnit / cell_);
    const auto x0 = static_cast<float>((1 - kSampleX - low_x_ / cell_) * kUnit);
    const auto y0 = static_cast<float>((1 - kSampleY - low_y_ / cell_) * kUnit);
    const auto to_float = [](Vec3d v) {
        return Vec3f{static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
    };
    const Vec3f right = to_float(right_) * scale;
    const Vec3f back = to_float(back_) * scale;
    const Vec3f up = to_float(up_);
    const auto most = static_cast<float>((columns + 2) * static_cast<std::size_t>(kUnit));
    const auto place = [&](float v) {
        return static_cast<std::int32_t>(std::min(std::max(v, 0.0F), most));
    };
    seen_.resize(on.points.size());
    float lowest = std::numeric_limits<float>::infinity();
    for (std::size_t i = 0; i < seen_.size(); ++i) {
        poll_at(i);
        const Vec3f p = on.points[i];
        const float height = dot(p, up);
        seen_[i] = {place(dot(p, right) + x0), place(dot(p, back) + y0), height};
        lowest = std::min(lowest, height);
    }
    plate_ = lowest;
}

// Sums the level area of what rests on the plate. False when there are too many hits.
bool OverhangMeter::find_hits(const MeasuredTriangles& on, double slack, double& contact) {
    const float resting = plate_ + static_cast<float>(slack);
    const auto last_column = static_cast<std::int32_t>(columns_);
    double doubled = 0;  // area of the contact
    std::size_t count = 0;
    offsets_.assign(columns_ * columns_ + 2, 0);
    Poller poller;
    for (const auto& [ia, ib, ic] : on.triangles) {
        poller();
        const SeenPoint a = seen_[ia];
        const SeenPoint b = seen_[ib];
        const SeenPoint c = seen_[ic];
        const bool rests = a.height <= resting && b.height <= resting && c.height <= resting;
        const std::int32_t x0 = (std::min({a.x, b.x, c.x}) >> kUnitBits) + 1;
        const std::int32_t x1 = std::min(std::max({a.x, b.x, c.x}) >> kUnitBits, last_column);
        const std::int32_t y0 = (std::min({a.y, b.y, c.y}) >> kUnitBits) + 1;
        const std::int32_t y1 = std::min(std::max({a.y, b.y, c.y}) >> kUnitBits, last_column);
        if ((x0 > x1 || y0 > y1) && !rests) continue;
        // Differences and products of these are whole numbers below 2^53: the signs are exact.
        const double bx = b.x - a.x;
        const double by = b.y - a.y;
        const double cx = c.x - a.x;
        const double cy = c.y - a.y;
        const double area = bx * cy - by * cx;
        if (rests) doubled += std::abs(area);
        if (x0 > x1 || y0 > y1 || area == 0) continue;
        if (found_.size() < count + columns_ * columns_) found_.resize(2 * (count + kMostHits));
        const double sign = area > 0 ? 1 : -1;
        // Shares of the second and the third corner, times the area, at the first sample of a row;
        // and how they change from sample to sample.
        const double px = x0 * kUnit - a.x;
        const double py = y0 * kUnit - a.y;
        double row_b = (px * cy - py * cx) * sign;
        double row_c = (bx * py - by * px) * sign;
        const double step_b = cy * kUnit * sign;
        const double step_c = -by * kUnit * sign;
        const double whole = area * sign;
        const std::size_t first = count;
        for (std::int32_t y = y0; y <= y1; ++y) {
            std::int32_t from = 0;
            std::int32_t to = x1 - x0;
            if (to > kNarrow) {  // of a needle that lies askew most samples around are outside
                narrow(row_b, step_b, from, to);
                narrow(row_c, step_c, from, to);
                narrow(whole - row_b - row_c, -step_b - step_c, from, to);
            }
            double wb = row_b + from * step_b;
            double wc = row_c + from * step_c;
            for (std::int32_t x = x0 + from; x <= x0 + to; ++x, wb += step_b, wc += step_c) {
                if (wb < 0 || wc < 0 || wb + wc > whole) continue;
                const double rise = wb * static_cast<double>(b.height - a.height) +
                                    wc * static_cast<double>(c.height - a.height);
                const auto column = static_cast<std::uint32_t>((y - 1) * last_column + x - 1);
                found_[count++] = {column,
                                   {a.height - plate_ + static_cast<float>(rise / whole), 0}};
            }
            row_b -= cx * kUnit * sign;
            row_c += bx * kUnit * sign;
        }
        if (count == first) continue;
        const Vec3d corner = to_double(on.points[ia]);
        const Vec3d normal =
            cross(to_double(on.points[ib]) - corner, to_double(on.points[ic]) - corner);
        const double down = -dot(unit_or_zero(normal), up_);
        if (std::abs(down) < kUpright) {
            count = first;
            continue;
        }
        for (std::size_t i = first; i < count; ++i) {
            found_[i].hit.down = static_cast<float>(down);
            ++offsets_[found_[i].column + 2];
        }
        if (count > kMostHits && columns_ == kMostColumns) return false;
    }
    found_.resize(count);
    contact = doubled / 2 * (cell_ / kUnit) * (cell_ / kUnit);
    return true;
}

// Columns under all triangles together.
double OverhangMeter::covered_columns(
    std::span<const std::array<std::uint32_t, 3>> triangles) const {
    double doubled = 0;
    for (const auto& [ia, ib, ic] : triangles) {
        const SeenPoint a = seen_[ia];
        const double bx = seen_[ib].x - a.x;
        const double by = seen_[ib].y - a.y;
        const double cx = seen_[ic].x - a.x;
        const double cy = seen_[ic].y - a.y;
        doubled += std::abs(bx * cy - by * cx);
    }
    return doubled / 2 / kUnit / kUnit;
}

void OverhangMeter::sort_hits() {
    for (std::size_t i = 2; i < offsets_.size(); ++i) offsets_[i] += offsets_[i - 1];
    hits_.resize(found_.size());
    for (const auto& [column, hit] : found_) hits_[offsets_[column + 1]++] = hit;
}

Overhang OverhangMeter::walk(std::span<Hit> column, double slack) {
    Overhang sum;
    double floor = 0;
    bool is_on_model = false;
    int depth = 0;
    for (std::size_t i = 0; i < column.size(); ++i) {
        if (depth == 0 && column[i].down < 0 && i + 1 < column.size() && column[i + 1].down > 0 &&
            column[i + 1].height - column[i].height <= kSameHeight) {
            std::swap(column[i], column[i + 1]);  // a sheet: what it shows above is left last
        }
        const double height = static_cast<double>(column[i].height);
        const double down = static_cast<double>(column[i].down);
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

Overhang OverhangMeter::measure(const MeasuredTriangles& on, Vec3d up, double slack) {
    look_along(up, on.around);
    if (!(side_ > kNoWidth)) return {};
    Overhang sum;
    turn(on, kMostColumns);
    if (!find_hits(on, slack, sum.contact)) {
        const double share = kMostHits / covered_columns(on.triangles);
        const auto columns =
            static_cast<std::size_t>(kMostColumns * std::sqrt(std::min(share, 1.0)));
        turn(on, std::clamp(columns, kFewestColumns, kMostColumns - 1));
        find_hits(on, slack, sum.contact);
    }
    sort_hits();
    for (std::size_t i = 0; i < columns_ * columns_; ++i) {
        poll_at(i);
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
    return {sum.volume * area, sum.touched_above * area, sum.touched_below * area, sum.contact};
}

}  // namespace povmesh
