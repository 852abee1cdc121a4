// The closed outlines of a model at many heights.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/array.h"
#include "base/predicates.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "slice/interval_tree.h"

namespace povmesh {

/// The two coordinates of a point across an axis (0, 1, 2 for x, y, z): (y, z), (z, x) or (x, y),
/// so that what turns counterclockwise in them does so seen from the axis' far end.
constexpr Point2d across_axis(Vec3d p, std::size_t axis) {
    return axis == 0 ? Point2d{p.y, p.z} : axis == 1 ? Point2d{p.z, p.x} : Point2d{p.x, p.y};
}
constexpr double along_axis(Vec3d p, std::size_t axis) {
    return axis == 0 ? p.x : axis == 1 ? p.y : p.z;
}
/// The point that has these coordinates.
constexpr Vec3d at_height(Point2d q, double height, std::size_t axis) {
    return axis == 0   ? Vec3d{height, q.x, q.y}
           : axis == 1 ? Vec3d{q.y, height, q.x}
                       : Vec3d{q.x, q.y, height};
}

/// Closed loops of points: loop l consists of points[offsets[l]] to points[offsets[l + 1] - 1], of
/// which the last joins the first. Neighbours differ, and there are 3 or more of them.
///
/// The faces that loop l runs along are faces[face_offsets[l]] to faces[face_offsets[l + 1] - 1].
struct SliceLoops {
    Array<Point2d> points;
    Array<std::uint32_t> offsets;
    Array<std::uint32_t> faces;
    Array<std::uint32_t> face_offsets;
    bool is_closed = true;  // false when gaps were closed by straight lines

    std::size_t size() const { return offsets.empty() ? 0 : offsets.size() - 1; }
    std::span<const Point2d> operator[](std::size_t loop) const {
        return {points.data() + offsets[loop], points.data() + offsets[loop + 1]};
    }
    std::span<const std::uint32_t> faces_of(std::size_t loop) const {
        return {faces.data() + face_offsets[loop], faces.data() + face_offsets[loop + 1]};
    }
};

/// Slices a mesh by planes across an axis.
///
/// A vertex in a plane counts as lying above it: the slice is the limit of those just below, so
/// that a flat top is part of it and a flat bottom is not. Faces with a coordinate that is not
/// finite are left out.
///
/// Setting up is linear in vertices and faces, 20 bytes a face and 4 a vertex; slices are then made
/// one by one, in any order and on any thread, each in time of its own size.
class Slicer {
public:
    /// @param mesh     outlives the slicer; its vertices and faces do not change meanwhile
    /// @param axis     0, 1, 2: the planes are across x, y, z
    /// @param heights  along the axis, ascending, finite
    Slicer(const TriMesh& mesh, std::size_t axis, std::span<const double> heights);

    /// The loops at heights[layer], in coordinates `across_axis`. Where the mesh is closed and
    /// wound outward they have the material on their left: outer ones turn counterclockwise, holes
    /// clockwise. A loop passes no edge of the mesh twice. Both faces of an edge give the same bits
    /// for the point on it.
    ///
    /// What the windings of faces leave open is closed first by passing faces against their winding
    /// (the loop turns as most of its faces tell), then by straight lines from ends to starts, the
    /// nearest first.
    void slice(std::size_t layer, SliceLoops& loops) const;

    std::size_t layer_count() const { return heights_.size(); }
    double height(std::size_t layer) const { return heights_[layer]; }
    /// How many heights the vertex is at or above. A face is crossed by the layers from the lowest
    /// level of its corners to before the highest.
    std::uint32_t level(std::size_t vertex) const { return levels_[vertex]; }
    /// False when a corner of the face is not finite, or the face is deleted.
    bool takes_part(const Face& face) const;

private:
    Point2d point_on_edge(std::uint32_t a, std::uint32_t b, double height) const;

    const TriMesh& mesh_;
    std::size_t axis_;
    Array<double> heights_;
    Array<std::uint32_t> levels_;
    IntervalTree faces_;
};

/// The places of a slice that hold material, as connected parts. Part p has the outer loop
/// loops[offsets[p]]; the loops after it, up to offsets[p + 1], are its holes.
struct SliceParts {
    Array<std::uint32_t> loops;
    Array<std::uint32_t> offsets;

    std::size_t size() const { return offsets.empty() ? 0 : offsets.size() - 1; }
    std::span<const std::uint32_t> operator[](std::size_t part) const {
        return {loops.data() + offsets[part], loops.data() + offsets[part + 1]};
    }
};

/// Tells which loops are outer ones and which are whose holes, from how they turn and where they
/// lie. Left out are loops that change nothing: material within material, a hole in a hole or in no
/// material, and loops without area. Loops may touch; where they cross, their lowest points count.
///
/// Time: n log n.
SliceParts find_slice_parts(const SliceLoops& loops);

/// Signed area of a closed loop: positive when it turns counterclockwise.
double loop_area(std::span<const Point2d> loop);

}  // namespace povmesh
