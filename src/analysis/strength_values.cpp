// Sections weaken what is near by the inverse of the distance; elements are looked up in buckets.
#include "analysis/strength_values.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "base/convert.h"
#include "slice/slices.h"

namespace povmesh {
namespace {

constexpr float kReachAlong = 5;     // of a section along its normal
constexpr double kReachAcross = 20;  // within its plane

// Points on the outline count as inside.
bool contains(const std::vector<Point2d>& polygon, Point2d p) {
    if (polygon.size() < 3) return false;
    bool is_inside = false;
    for (std::size_t i = 0; i < polygon.size(); ++i) {
        const Point2d a = polygon[i];
        const Point2d b = polygon[(i + 1) % polygon.size()];
        const double turn = (b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x);
        if (turn == 0 && p.x >= std::min(a.x, b.x) && p.x <= std::max(a.x, b.x) &&
            p.y >= std::min(a.y, b.y) && p.y <= std::max(a.y, b.y)) {
            return true;
        }
        // An edge crosses the ray to the right when its ends are on both sides and p is left of it.
        if ((a.y > p.y) != (b.y > p.y) && (turn > 0) == (b.y > a.y)) is_inside = !is_inside;
    }
    return is_inside;
}

double squared(double x) {
    return x * x;
}

double squared_distance_to_edge(Point2d p, Point2d a, Point2d b) {
    const double length = squared(b.x - a.x) + squared(b.y - a.y);
    const double along = (p.x - a.x) * (b.x - a.x) + (p.y - a.y) * (b.y - a.y);
    if (!(along > 0) || along >= length) {
        return std::min(squared(p.x - a.x) + squared(p.y - a.y),
                        squared(p.x - b.x) + squared(p.y - b.y));
    }
    return squared((p.x - a.x) * (b.y - a.y) - (p.y - a.y) * (b.x - a.x)) / length;
}

// Whole units from a point to the section, up to the reach: what is beyond counts for nothing.
double distance_across(const SectionWeakness::Outline& outline, Point2d p) {
    const double beside = std::max(outline.low.x - p.x, p.x - outline.high.x);
    const double above = std::max(outline.low.y - p.y, p.y - outline.high.y);
    if (!(std::max(beside, above) < kReachAcross)) return kReachAcross;
    if (contains(outline.points, p)) return 0;
    double least = squared(kReachAcross);
    Point2d from = outline.points.back();
    for (const Point2d to : outline.points) {
        least = std::min(least, squared_distance_to_edge(p, from, to));
        from = to;
    }
    return std::floor(std::sqrt(least) + 0.5);
}

}  // namespace

Point2d SectionWeakness::Outline::project(Vec3d p) const {
    if (axis == kTurnedSection) return {dot(across, p), dot(beside, p)};
    if (axis == 2) return {p.x, p.y};
    return axis == 1 ? Point2d{p.x, p.z} : Point2d{p.y, p.z};
}

double SectionWeakness::Outline::along(Vec3d p) const {
    return axis == kTurnedSection ? dot(normal, p) : along_axis(p, axis);
}

SectionWeakness::Outline::Outline(const WeakSection& section)
    : axis(section.axis), normal(section.normal), position(section.position), score(section.score) {
    if (axis == kTurnedSection) {
        across = section.polygon[1] - section.polygon[0];
        across = across / length(across);
        beside = cross(normal, across);
    }
    for (const Vec3d& point : section.polygon) {
        const Point2d p = project(point);
        points.push_back(p);
        low = {std::min(low.x, p.x), std::min(low.y, p.y)};
        high = {std::max(high.x, p.x), std::max(high.y, p.y)};
    }
}

SectionWeakness::SectionWeakness(std::span<const WeakSection> sections)
    : outlines_(sections.begin(), sections.end()) {}

float SectionWeakness::at(Vec3f point) const {
    const Vec3d p = to_double(point);
    float value = 0;
    for (const Outline& outline : outlines_) {
        const auto d = static_cast<float>(std::abs(outline.along(p) - outline.position));
        if (!(d < kReachAlong)) continue;
        const double q = distance_across(outline, outline.project(p));
        if (q < kReachAcross) value += outline.score / (d + 1.0F + static_cast<float>(q));
    }
    return value;
}

namespace {

constexpr float kBucket = 10;
constexpr std::int64_t kBucketsAcross = 11;
constexpr float kFarthest = 1000000;  // squared

std::int32_t bucket_key(Vec3f p) {
    const auto place = [](float c) { return std::int64_t{saturate_to<std::int32_t>(c / kBucket)}; };
    return static_cast<std::int32_t>((place(p.z) * kBucketsAcross + place(p.y)) * kBucketsAcross +
                                     place(p.x));
}

}  // namespace

ElementWeakness::ElementWeakness(const fem::EnergyField& elements) {
    std::vector<std::pair<std::int32_t, std::uint32_t>> order;
    order.reserve(elements.centres.size());
    for (std::uint32_t i = 0; i < elements.centres.size(); ++i) {
        order.emplace_back(bucket_key(elements.centres[i]), i);
    }
    std::sort(order.begin(), order.end());
    for (const auto& [key, element] : order) {
        if (keys_.empty() || keys_.back() != key) {
            keys_.push_back(key);
            offsets_.push_back(members_.size());
        }
        members_.push_back({elements.centres[element], elements.values[element]});
    }
    offsets_.push_back(members_.size());
}

float ElementWeakness::at(Vec3f p) const {
    const auto found = std::lower_bound(keys_.begin(), keys_.end(), bucket_key(p));
    if (found == keys_.end() || *found != bucket_key(p)) return 0;
    const auto bucket = static_cast<std::size_t>(found - keys_.begin());
    float least = kFarthest;
    float value = 0;
    for (std::size_t i = offsets_[bucket]; i < offsets_[bucket + 1]; ++i) {
        const Vec3f off = members_[i].centre - p;
        const float distance = dot(off, off);
        if (distance < least) {
            least = distance;
            value = members_[i].value;
        }
    }
    return value;
}

SmoothElementWeakness::SmoothElementWeakness(const fem::EnergyField& elements, double size)
    : reach_(2 * size) {
    members_.reserve(elements.centres.size());
    for (std::size_t i = 0; i < elements.centres.size(); ++i) {
        const Vec3f centre = elements.centres[i];
        members_.push_back({cell_of(centre), centre, elements.values[i]});
    }
    std::stable_sort(members_.begin(), members_.end(),
                     [](const Member& a, const Member& b) { return a.cell < b.cell; });
}

SmoothElementWeakness::Cell SmoothElementWeakness::cell_of(Vec3f p) const {
    const auto place = [&](float c) {
        return saturate_to<std::int32_t>(std::floor(double{c} / reach_));
    };
    return {place(p.z), place(p.y), place(p.x)};
}

float SmoothElementWeakness::at(Vec3f p) const {
    const auto before = [](const Member& member, const Cell& cell) { return member.cell < cell; };
    const Cell middle = cell_of(p);
    double weights = 0;
    double sum = 0;
    for (const int z : {-1, 0, 1}) {
        for (const int y : {-1, 0, 1}) {
            // Cells beside each other along x follow each other.
            const Cell first = {middle[0] + z, middle[1] + y, middle[2] - 1};
            const Cell end = {first[0], first[1], first[2] + 3};
            auto member = std::lower_bound(members_.begin(), members_.end(), first, before);
            for (; member != members_.end() && member->cell < end; ++member) {
                const Vec3d off = to_double(member->centre) - to_double(p);
                const double share = 1 - dot(off, off) / (reach_ * reach_);
                if (!(share > 0) || std::isnan(member->value)) continue;
                weights += share * share;
                sum += share * share * double{member->value};
            }
        }
    }
    return weights > 0 ? static_cast<float>(sum / weights)
                       : std::numeric_limits<float>::quiet_NaN();
}

}  // namespace povmesh
