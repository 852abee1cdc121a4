// Level sections of a closed surface as loose segments: their area, and what fits into them.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <vector>

#include "base/predicates.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// A piece of a section, with the inside on its left, seen from above.
using SectionSegment = std::array<Point2d, 2>;

/// Of the faces given, at one level. A vertex at the level counts as lying above it.
std::vector<SectionSegment> section_at(const TriMesh& mesh, double level);

double section_area(std::span<const SectionSegment> segments);

/// Areas of the sections at `count` levels, `low` + k `step`. Linear in the faces and the sections
/// they pass.
std::vector<double> section_areas(const TriMesh& mesh, double low, double step, std::size_t count);

struct SectionCircle {
    Point2d centre{};
    double radius = 0;
};

/// The largest circle within a section, or one smaller by a thousandth at most; radius 0 where
/// there is none.
SectionCircle largest_circle(std::span<const SectionSegment> segments);

}  // namespace povmesh
