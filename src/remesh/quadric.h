// Quadric error metrics of vertices: the sum of squared distances to the planes of their faces, by
// position alone or by position and three attributes.
//
// Source: M. Garland and P. Heckbert, Surface simplification using quadric error metrics, SIGGRAPH
// 1997; with attributes: H. Hoppe, New quadric metric for simplifying meshes with appearance
// attributes, IEEE Visualization 1999.
#pragma once

#include <array>
#include <cstddef>

#include "base/vec.h"

namespace povmesh {

/// Three numbers beside a position, such as a colour.
using Attributes = std::array<double, 3>;

/// The corners of a triangle with what they carry.
struct AttributedTriangle {
    std::array<Vec3d, 3> position;
    std::array<Attributes, 3> attributes;
};

/// p^T A p + 2 b p + c.
struct PositionQuadric {
    static constexpr bool kHasAttributes = false;

    double xx = 0, xy = 0, xz = 0, yy = 0, yz = 0, zz = 0;  // A
    Vec3d b;
    double c = 0;

    /// Adds weight * (n p + d)^2.
    void add_form(Vec3d n, double d, double weight) {
        const Vec3d m = n * weight;
        xx += m.x * n.x;
        xy += m.x * n.y;
        xz += m.x * n.z;
        yy += m.y * n.y;
        yz += m.y * n.z;
        zz += m.z * n.z;
        b = b + m * d;
        c += weight * d * d;
    }

    /// Adds the plane of the triangle with the weight of its area; one without area adds nothing.
    void add(const AttributedTriangle& t) {
        const Vec3d n = cross(t.position[1] - t.position[0], t.position[2] - t.position[0]);
        const double l = length(n);
        if (!(l > 0)) return;
        const Vec3d unit = n / l;
        add_form(unit, -dot(unit, t.position[0]), 0.5 * l);
    }

    double at(Vec3d p) const {
        return p.x * (xx * p.x + 2 * (xy * p.y + xz * p.z + b.x)) +
               p.y * (yy * p.y + 2 * (yz * p.z + b.y)) + p.z * (zz * p.z + 2 * b.z) + c;
    }
    double at(Vec3d p, const Attributes& /*unused*/) const { return at(p); }

    PositionQuadric& operator+=(const PositionQuadric& o) {
        xx += o.xx;
        xy += o.xy;
        xz += o.xz;
        yy += o.yy;
        yz += o.yz;
        zz += o.zz;
        b = b + o.b;
        c += o.c;
        return *this;
    }
};

/// The same in the space of position and attributes: the distance of the position to the plane,
/// and that of each attribute to the one that the face, continued linearly, has at the position.
struct AttributeQuadric {
    static constexpr bool kHasAttributes = true;

    PositionQuadric form;
    std::array<Vec3d, 3> gradients;   // summed, of each attribute over the position
    std::array<double, 3> offsets{};  // summed, of each attribute at the origin
    double weight = 0;

    void add(const AttributedTriangle& t) {
        const Vec3d e1 = t.position[1] - t.position[0];
        const Vec3d e2 = t.position[2] - t.position[0];
        const Vec3d n = cross(e1, e2);
        const double square = dot(n, n);
        const double l = std::sqrt(square);
        if (!(l > 0)) return;
        const double area = 0.5 * l;
        const Vec3d unit = n / l;
        form.add_form(unit, -dot(unit, t.position[0]), area);
        // The vectors that take e1 and e2 to (1, 0) and (0, 1) and the normal to (0, 0).
        const Vec3d to1 = cross(e2, n) / square;
        const Vec3d to2 = cross(n, e1) / square;
        for (std::size_t k = 0; k < 3; ++k) {
            const double s = t.attributes[0][k];
            const Vec3d gradient = to1 * (t.attributes[1][k] - s) + to2 * (t.attributes[2][k] - s);
            const double offset = s - dot(gradient, t.position[0]);
            form.add_form(gradient, offset, area);
            gradients[k] = gradients[k] + gradient * area;
            offsets[k] += offset * area;
        }
        weight += area;
    }

    double at(Vec3d p, const Attributes& s) const {
        double error = form.at(p);
        for (std::size_t k = 0; k < 3; ++k) {
            error += s[k] * (weight * s[k] - 2 * (dot(gradients[k], p) + offsets[k]));
        }
        return error;
    }

    AttributeQuadric& operator+=(const AttributeQuadric& o) {
        form += o.form;
        for (std::size_t k = 0; k < 3; ++k) {
            gradients[k] = gradients[k] + o.gradients[k];
            offsets[k] += o.offsets[k];
        }
        weight += o.weight;
        return *this;
    }
};
static_assert(sizeof(PositionQuadric) == 10 * sizeof(double));
static_assert(sizeof(AttributeQuadric) == 23 * sizeof(double));

}  // namespace povmesh
