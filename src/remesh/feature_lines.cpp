// Lines are followed from one end to the other, those without ends from any of their vertices.
#include "remesh/feature_lines.h"

#include <algorithm>
#include <cmath>

namespace povmesh {
namespace {

constexpr std::uint32_t kNone = HalfEdgeMesh::kNone;

// Of a line with more points than this between two vertices only so many are looked at.
constexpr std::size_t kMostPoints = 64;

std::size_t index(std::int32_t v) {
    return static_cast<std::size_t>(v);
}

double distance_to_chord(Vec3d p, Vec3d a, Vec3d b) {
    const Vec3d along = b - a;
    const double square = dot(along, along);
    const double s = square > 0 ? std::clamp(dot(p - a, along) / square, 0.0, 1.0) : 0.0;
    return length(p - a - along * s);
}

}  // namespace

FeatureLines::FeatureLines(HalfEdgeMesh& surface) : places_(surface.positions.size(), 0) {
    offsets_.push_back(0);
    const auto is_line = [&](std::int32_t v) {
        return surface.kinds[index(v)] == HalfEdgeMesh::Line;
    };
    const auto is_new = [&](std::uint32_t h) { return surface.features[h] == 1; };
    for (std::uint32_t h = 0; h < surface.opposites.size(); ++h) {
        if (!is_new(h)) continue;
        if (!is_line(surface.origin(h)))
            follow(surface, h, false);
        else if (!is_line(surface.target(h)))
            follow(surface, h, true);
    }
    for (std::uint32_t h = 0; h < surface.opposites.size(); ++h) {
        if (is_new(h)) follow(surface, h, false);
    }
}

void FeatureLines::follow(HalfEdgeMesh& surface, std::uint32_t h, bool from_target) {
    const auto line = static_cast<std::uint32_t>(is_closed_.size());
    const std::int32_t first = from_target ? surface.target(h) : surface.origin(h);
    std::int32_t v = first;
    double along = 0;
    points_.push_back(surface.position(v));
    along_.push_back(0);
    while (h != kNone && surface.features[h] == 1) {
        const bool is_against = surface.target(h) == v;
        const std::uint32_t number = 2 + 2 * line;
        surface.features[h] = number + (is_against ? 1 : 0);
        const std::uint32_t g = surface.opposites[h];
        if (g != kNone) surface.features[g] = number + (is_against ? 0 : 1);
        if (surface.kinds[index(v)] == HalfEdgeMesh::Line) places_[index(v)] = along;
        const std::int32_t next = is_against ? surface.origin(h) : surface.target(h);
        along += povmesh::length(surface.position(next) - surface.position(v));
        v = next;
        points_.push_back(surface.position(v));
        along_.push_back(along);
        if (surface.kinds[index(v)] != HalfEdgeMesh::Line) break;
        h = surface.feature_beyond(v, h);
    }
    offsets_.push_back(static_cast<std::uint32_t>(points_.size()));
    const bool ends_on_line = surface.kinds[index(v)] == HalfEdgeMesh::Line;
    is_closed_.push_back(ends_on_line && v == first ? 1 : 0);
    if (ends_on_line && v != first) places_[index(v)] = along;
}

void FeatureLines::set_place(std::int32_t v, double along) {
    if (places_.size() <= index(v)) places_.resize(index(v) + 1);
    places_[index(v)] = along;
}

FeatureLines::Part FeatureLines::part(const HalfEdgeMesh& surface, std::uint32_t h) const {
    const std::uint32_t line = surface.features[h] / 2 - 1;
    Part part{line, 0, length(line)};
    std::int32_t a = surface.origin(h);
    std::int32_t b = surface.target(h);
    if (is_against(surface, h)) std::swap(a, b);
    if (surface.kinds[index(a)] == HalfEdgeMesh::Line) part.from = place(a);
    if (surface.kinds[index(b)] == HalfEdgeMesh::Line) part.to = place(b);
    if (part.to < part.from) part.to += length(part.line);
    return part;
}

Vec3d FeatureLines::point(std::uint32_t line, double along) const {
    const double whole = length(line);
    if (is_closed(line) && whole > 0) along -= whole * std::floor(along / whole);
    const double* const first = along_.data() + offsets_[line];
    const double* const end = along_.data() + offsets_[line + 1];
    const double* const after = std::upper_bound(first + 1, end - 1, along);
    const auto i = static_cast<std::size_t>(after - along_.data());
    const double step = along_[i] - along_[i - 1];
    const double s = step > 0 ? std::clamp((along - along_[i - 1]) / step, 0.0, 1.0) : 0.0;
    return points_[i - 1] * (1 - s) + points_[i] * s;
}

// Calls visit(point) for points of the line strictly within the part, in their order.
template <typename Visit>
void FeatureLines::visit_inner(const Part& part, Visit&& visit) const {
    const double whole = length(part.line);
    const double* const first = along_.data() + offsets_[part.line];
    const double* const end = along_.data() + offsets_[part.line + 1];
    const auto visit_between = [&](double from, double to) {
        const double* const begin = std::upper_bound(first, end, from);
        const double* const stop = std::lower_bound(begin, end, to);
        const auto count = static_cast<std::size_t>(stop - begin);
        const std::size_t step = count / kMostPoints + 1;
        for (std::size_t i = step / 2; i < count; i += step) {
            visit(points_[static_cast<std::size_t>(begin - along_.data()) + i]);
        }
    };
    const double shift = part.from < 0 ? whole : part.from >= whole ? -whole : 0;
    const double from = part.from + shift;
    const double to = part.to + shift;
    visit_between(from, std::min(to, whole));
    if (to > whole) {
        visit(points_[offsets_[part.line]]);
        visit_between(0, to - whole);
    }
}

double FeatureLines::deviation(const Part& part) const {
    const Vec3d a = point(part.line, part.from);
    const Vec3d b = point(part.line, part.to);
    double greatest = 0;
    visit_inner(part, [&](Vec3d p) { greatest = std::max(greatest, distance_to_chord(p, a, b)); });
    return greatest;
}

double FeatureLines::turning(const Part& part) const {
    Vec3d last = point(part.line, part.from);
    Vec3d direction;
    double sum = 0;
    const auto step = [&](Vec3d p) {
        const Vec3d next = p - last;
        if (dot(direction, direction) > 0 && dot(next, next) > 0) {
            sum += std::atan2(povmesh::length(cross(direction, next)), dot(direction, next));
        }
        if (dot(next, next) > 0) direction = next;
        last = p;
    };
    visit_inner(part, step);
    step(point(part.line, part.to));
    return sum;
}

}  // namespace povmesh
