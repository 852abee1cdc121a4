// What the shells of a mesh share while they are reduced.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/convert.h"
#include "base/parallel.h"
#include "base/poll.h"
#include "mesh/bounds.h"
#include "remesh/collapse_mesh.h"
#include "remesh/corner_attributes.h"
#include "remesh/quadric.h"
#include "remesh/wedges.h"

namespace povmesh {

// Weight of the planes that hold seams in place, of a face as wide as the seam's edge.
inline constexpr double kSeamWeight = 1.0;

// A change of a colour channel or texture coordinate over its whole range counts as a displacement
// of this share of the diagonal.
inline constexpr double kAttributeScale = 0.01;

// Model units to a cube of size 1 around the origin, and back: the costs then have one range,
// whatever the unit of the model.
class UnitFrame {
public:
    explicit UnitFrame(const TriMesh& mesh) {
        const Box3f box = finite_bounds(mesh);
        if (box.is_empty()) return;
        const Vec3d low = to_double(box.low);
        const Vec3d high = to_double(box.high);
        const double diagonal = length(high - low);
        if (!(diagonal > 0) || !std::isfinite(diagonal)) return;
        middle_ = (low + high) * 0.5;
        scale_ = 1 / diagonal;
    }
    Vec3d local(Vec3f p) const { return (to_double(p) - middle_) * scale_; }
    Vec3f model(Vec3d p) const {
        const Vec3d q = p / scale_ + middle_;
        return {narrow_to_float(q.x), narrow_to_float(q.y), narrow_to_float(q.z)};
    }

private:
    Vec3d middle_;
    double scale_ = 1;
};

// What all shells share. Vertices of several shells do not move, so that the work on one shell
// does not meet that on another.
template <typename Quadric>
struct ReductionField {
    TriMesh& mesh;
    UnitFrame frame;
    CollapseMesh corners;
    Wedges wedges;  // empty without attributes
    Array<Quadric> quadrics;
    Array<float> costs;           // of the lower half-edge of each edge; kNever for the upper one
    Array<std::uint64_t> keys;    // lowest key among the candidates at each vertex
    Array<std::uint32_t> places;  // for packing

    // How far the surface at each vertex may be from where it was, and how far it may get, as a
    // share of the diagonal of the shell's box; empty without limits.
    Array<float> strayed, most_strayed;

    ReductionField(TriMesh& of, OpenBorders borders)
        : mesh(of), frame(of), corners(make_collapse_mesh(of, borders)) {
        if constexpr (Quadric::kHasAttributes) wedges = make_wedges(mesh, corners, kAttributeScale);
        polled_resize(quadrics, mesh.vertices.size());
        parallel_for(mesh.vertices.size(), [&](std::size_t v) {
            quadrics[v] = vertex_quadric(v);  // writes only its own record
        });
        Array<std::uint32_t>().swap(corners.starts);
        costs.resize(corners.opposites.size());
        keys.resize(mesh.vertices.size());
        places.resize(corners.triangles.size());
    }

    /// A limit for each vertex, or none. Those of limit 0 stay.
    void limit_movement(std::span<const float> limits) {
        most_strayed.assign(limits.begin(), limits.end());
        strayed.assign(limits.size(), 0);
        for (std::size_t v = 0; v < limits.size(); ++v) {
            if (limits[v] == 0) corners.is_fixed[v] = 1;
        }
    }

    Vec3d position(std::int32_t v) const {
        return frame.local(mesh.vertices[static_cast<std::size_t>(v)].position());
    }

private:
    Quadric vertex_quadric(std::size_t v) const {
        Quadric sum;
        if (corners.is_fixed[v] != 0) return sum;  // none of its edges goes
        const std::uint32_t first = corners.starts[v];
        std::uint32_t h = first;
        do {
            add(sum, v, h);
            h = corners.turn(h);
        } while (h != first);
        return sum;
    }

    void add(Quadric& sum, std::size_t v, std::uint32_t h) const {
        if (corners.is_ghost(h / 3)) return;
        AttributedTriangle triangle;
        const std::array<std::int32_t, 3>& t = corners.triangles[h / 3];
        for (std::size_t corner = 0; corner < 3; ++corner) {
            triangle.position[corner] = position(t[corner]);
        }
        if constexpr (!Quadric::kHasAttributes) {
            sum.add(triangle);
            if (!corners.is_border.empty() && corners.is_border[v] != 0) {
                add_line_planes(sum, triangle, h, [&](std::uint32_t edge) {
                    return corners.is_ghost(corners.opposites[edge] / 3);
                });
            }
        } else if (wedges.kinds[v] != Wedges::Smooth) {
            sum.form.add(triangle);
            add_line_planes(sum.form, triangle, h,
                            [&](std::uint32_t edge) { return is_seam(h, edge); });
        } else {
            const Face& face = mesh.faces[corners.faces[h / 3]];
            for (std::size_t corner = 0; corner < 3; ++corner) {
                triangle.attributes[corner] = corner_attributes(mesh, face, corner);
                for (double& s : triangle.attributes[corner]) s *= kAttributeScale;
            }
            sum.add(triangle);
        }
    }

    // Whether an edge of the triangle of h, at the origin of h, has another wedge beyond it.
    bool is_seam(std::uint32_t h, std::uint32_t edge) const {
        const std::uint32_t other = corners.opposites[edge];
        const std::uint32_t here = edge == h ? h : next_half_edge(edge);
        const std::uint32_t there = edge == h ? next_half_edge(other) : other;
        return corners.wedges[here] != corners.wedges[there];
    }

    // Planes through the edges at the corner that lie on a seam or border, upright on the triangle.
    template <typename IsLine>
    static void add_line_planes(PositionQuadric& form, const AttributedTriangle& triangle,
                                std::uint32_t h, IsLine&& is_line) {
        const Vec3d normal = cross(triangle.position[1] - triangle.position[0],
                                   triangle.position[2] - triangle.position[0]);
        for (const std::uint32_t edge : {h, previous_half_edge(h)}) {
            if (!is_line(edge)) continue;
            const Vec3d p = triangle.position[edge % 3];
            const Vec3d along = triangle.position[next_half_edge(edge) % 3] - p;
            const Vec3d upright = cross(along, normal);
            const double l = length(upright);
            if (!(l > 0)) continue;
            const Vec3d unit = upright / l;
            form.add_form(unit, -dot(unit, p), kSeamWeight * dot(along, along));
        }
    }
};

}  // namespace povmesh
