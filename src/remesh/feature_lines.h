// The feature lines of a surface, along which vertices slide while it is remeshed.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "base/vec.h"
#include "remesh/half_edge_mesh.h"

namespace povmesh {

/// Each line is a polyline of feature edges between two vertices that are not of kind Line, or a
/// closed one of vertices of that kind only. A place on it is its distance along the line from the
/// line's beginning, in model units.
///
/// A vertex of kind Line lies on one line, and the surface's feature edges carry the number of
/// theirs, so that an edge always knows which part of the original line it stands for.
class FeatureLines {
public:
    /// Measures the lines and numbers the features of `surface`, which are 1: 2 + 2 * line, and 1
    /// more for half-edges that run against the line.
    explicit FeatureLines(HalfEdgeMesh& surface);

    /// A part of a line. On a closed line `to` may lie beyond the length.
    struct Part {
        std::uint32_t line = 0;
        double from = 0;
        double to = 0;
    };

    static bool is_against(const HalfEdgeMesh& surface, std::uint32_t h) {
        return surface.features[h] % 2 != 0;
    }

    /// The part that a feature edge stands for.
    Part part(const HalfEdgeMesh& surface, std::uint32_t h) const;

    Vec3d point(std::uint32_t line, double along) const;

    /// How far the line strays from the chord between the ends of the part.
    double deviation(const Part& part) const;

    /// The angle, in radians, by which the line turns between two places.
    double turning(const Part& part) const;

    double length(std::uint32_t line) const { return along_[offsets_[line + 1] - 1]; }
    bool is_closed(std::uint32_t line) const { return is_closed_[line] != 0; }

    /// Where a vertex of kind Line is.
    double place(std::int32_t v) const { return places_[static_cast<std::size_t>(v)]; }
    void set_place(std::int32_t v, double along);
    Array<double>& places() { return places_; }

private:
    void follow(HalfEdgeMesh& surface, std::uint32_t h, bool from_target);
    template <typename Visit>
    void visit_inner(const Part& part, Visit&& visit) const;

    Array<std::uint32_t> offsets_;  // of the points of each line, and their end
    Array<Vec3d> points_;           // a closed line has its first point again at the end
    Array<double> along_;           // by point: its distance from the beginning
    Array<std::uint8_t> is_closed_;
    Array<double> places_;  // by vertex
};

}  // namespace povmesh
