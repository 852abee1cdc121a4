#include "field/thickness_map.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>

#include "base/array.h"
#include "base/convert.h"
#include "base/poll.h"
#include "mesh/build_f.h"

namespace povmesh {
namespace {

struct Stop {
    double level;
    std::array<double, 3> colour;
};
constexpr std::array<Stop, 4> kWallStops = {
    {{0.0, {205, 25, 30}}, {0.5, {255, 222, 50}}, {0.75, {95, 185, 105}}, {1.0, {50, 95, 190}}}};
constexpr std::array<Stop, 2> kGapStops = {{{0.0, {35, 35, 35}}, {1.0, {225, 225, 225}}}};
constexpr Rgb kLeftOut = {150, 150, 150};

template <std::size_t kCount>
Rgb between(const std::array<Stop, kCount>& stops, double level) {
    std::size_t next = 1;
    while (next + 1 < kCount && level > stops[next].level) ++next;
    const Stop& low = stops[next - 1];
    const Stop& high = stops[next];
    const double t = std::clamp((level - low.level) / (high.level - low.level), 0.0, 1.0);
    Rgb colour{};
    for (std::size_t i = 0; i < 3; ++i) {
        colour[i] = saturate_to<std::uint8_t>(
            std::round(low.colour[i] + (high.colour[i] - low.colour[i]) * t));
    }
    return colour;
}

// Collects the triangles of the painted mesh.
class Painter {
public:
    Painter(const TriMesh& mesh, const ThinPlaces& places, Rgb (*colour)(double))
        : mesh_(mesh), pieces_(places.pieces), places_(places), colour_(colour) {
        for (std::uint32_t face = 0; face < mesh.faces.size(); ++face) {
            poll_at(face);
            if (!is_divided(face)) continue;
            for (std::size_t c = 0; c < 3; ++c) divided_edges_.push_back(edge_key(face, c));
        }
        polled_sort(divided_edges_.begin(), divided_edges_.end(), std::less<>());
    }

    void paint(std::uint32_t face) {
        const Face& record = mesh_.faces[face];
        const Triangle t = triangle_of(mesh_, record);
        if (record.deleted != 0 || !is_finite(t)) return;
        if (is_divided(face)) {
            pieces_.visit(face, [&](std::size_t piece, const Triangle& part) {
                put(part, colour_(thickness_level(places_.values[piece], places_.asked)));
            });
            return;
        }
        const Rgb colour = pieces_.count(face) == 0 ? kLeftOut : colour_(1);
        divide(t, {is_edge_divided(face, 0), is_edge_divided(face, 1), is_edge_divided(face, 2)},
               colour);
    }

    TriMesh take() const {
        TriMesh painted;
        build_f(painted, ByteSoup{.triangle_count = colours_.size() / 9,
                                  .coordinates = coordinates_.data(),
                                  .colours = colours_.data()});
        return painted;
    }

private:
    // Something was measured on it.
    bool is_divided(std::uint32_t face) const {
        const auto first =
            places_.values.begin() + static_cast<std::ptrdiff_t>(pieces_.first(face));
        return std::any_of(first, first + static_cast<std::ptrdiff_t>(pieces_.count(face)),
                           [](float value) { return std::isfinite(value); });
    }

    std::uint64_t edge_key(std::uint32_t face, std::size_t edge) const {
        const Face& f = mesh_.faces[face];
        const auto a = static_cast<std::uint32_t>(f.vertex[edge]);
        const auto b = static_cast<std::uint32_t>(f.vertex[next_corner(edge)]);
        return std::uint64_t{std::min(a, b)} << 32 | std::max(a, b);
    }
    bool is_edge_divided(std::uint32_t face, std::size_t edge) const {
        return std::binary_search(divided_edges_.begin(), divided_edges_.end(),
                                  edge_key(face, edge));
    }

    // Like the faces beside it, at these edges only.
    void divide(const Triangle& t, std::array<bool, 3> at, Rgb colour) {
        LongestEdge longest{0, pieces_.limit() * pieces_.limit()};
        bool is_whole = true;
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3d edge = t[next_corner(c)] - t[c];
            if (!at[c] || !(dot(edge, edge) > longest.squared)) continue;
            longest = {c, dot(edge, edge)};
            is_whole = false;
        }
        if (is_whole) return put(t, colour);
        const auto [first, second] = halves(t, longest.corner);
        divide(first, {true, false, at[previous_corner(longest.corner)]}, colour);
        divide(second, {true, at[next_corner(longest.corner)], false}, colour);
    }

    void put(const Triangle& t, Rgb colour) {
        for (const Vec3d& p : t) {
            for (const double c : {p.x, p.y, p.z}) coordinates_.push_back(narrow_to_float(c));
            colours_.insert(colours_.end(), colour.begin(), colour.end());
        }
    }

    const TriMesh& mesh_;
    const SubTriangles& pieces_;
    const ThinPlaces& places_;
    Rgb (*colour_)(double);
    Array<std::uint64_t> divided_edges_;  // ascending
    Array<float> coordinates_;            // 9 a triangle
    Array<std::uint8_t> colours_;         // 9 a triangle
};

}  // namespace

Rgb wall_colour(double level) {
    return between(kWallStops, level);
}

Rgb gap_colour(double level) {
    return between(kGapStops, level);
}

TriMesh thickness_map(const TriMesh& mesh, const ThinPlaces& places, Rgb (*colour)(double level)) {
    Painter painter(mesh, places, colour);
    for (std::uint32_t face = 0; face < mesh.faces.size(); ++face) {
        poll_at(face);
        painter.paint(face);
    }
    return painter.take();
}

}  // namespace povmesh
