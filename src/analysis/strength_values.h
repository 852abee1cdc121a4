// How weak a model is at a point, by what an analysis of it has found.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "analysis/fem_analysis.h"
#include "analysis/sections.h"
#include "base/predicates.h"
#include "base/vec.h"

namespace povmesh {

/// Weakness near weak cross-sections: each gives its score, divided by the distance from it plus 1,
/// to what lies within 5 units of its plane and, within the plane, 20 units of its outline. Lengths
/// are those of a model with a mean extent of 100.
class SectionWeakness {
public:
    SectionWeakness() = default;
    explicit SectionWeakness(std::span<const WeakSection> sections);

    float at(Vec3f point) const;

    /// The outline of a section in its plane.
    struct Outline {
        std::vector<Point2d> points;
        Point2d low{std::numeric_limits<double>::max(), std::numeric_limits<double>::max()};
        Point2d high{std::numeric_limits<double>::lowest(), std::numeric_limits<double>::lowest()};
        std::size_t axis;              // of its normal, or kTurnedSection
        Vec3d normal, across, beside;  // of a turned one: orthonormal
        double position;
        float score;

        explicit Outline(const WeakSection& section);
        Point2d project(Vec3d p) const;
        double along(Vec3d p) const;
    };

private:
    std::vector<Outline> outlines_;
};

/// Weakness by the energies of finite elements: that of the nearest element in the point's own
/// bucket, a cube of 10 units; 0 without any. Buckets that are 11 apart may share a number: it is
/// the distances that decide.
class ElementWeakness {
public:
    ElementWeakness() = default;
    explicit ElementWeakness(const fem::EnergyField& elements);

    /// Of equally near elements the first counts.
    float at(Vec3f point) const;

private:
    struct Member {
        Vec3f centre;
        float value;
    };

    std::vector<std::int32_t> keys_;    // of buckets with members, ascending
    std::vector<std::size_t> offsets_;  // of their members, and the end
    std::vector<Member> members_;       // within a bucket in the order of the elements
};

/// Weakness by the energies of finite elements: the mean of those within two elements of a point,
/// wherever they are, the nearer ones weighing more, so that neither the grid of the elements nor a
/// gap between buckets shows. Elements without a value count for nothing; a point near no other has
/// none, NaN.
class SmoothElementWeakness {
public:
    SmoothElementWeakness() = default;
    /// @param size  edge of an element in the coordinates of the centres
    SmoothElementWeakness(const fem::EnergyField& elements, double size);

    float at(Vec3f point) const;

private:
    // Cells as wide as the reach, ordered by z, y, x, and their elements.
    using Cell = std::array<std::int32_t, 3>;
    struct Member {
        Cell cell;
        Vec3f centre;
        float value;
    };

    Cell cell_of(Vec3f p) const;

    double reach_ = 1;
    std::vector<Member> members_;
};

}  // namespace povmesh
