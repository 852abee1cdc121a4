// What of a surface hangs over, told from its faces: regions of them, and tips that begin in
// mid-air.
#pragma once

#include <cstdint>

#include "base/array.h"
#include "mesh/tri_mesh.h"
#include "support/upright_lines.h"

namespace povmesh {

/// A place where a body begins, seen from below: a vertex, or the middle of a level patch, with
/// nothing of the same body lower around it.
struct Tip {
    Vec3d place;                 // model coordinates
    std::uint32_t region;        // of the faces at it, or kNoRegion where all are steep
    std::uint32_t vertex_count;  // of the level patch
};

constexpr std::uint32_t kNoRegion = 0xFFFFFFFF;

/// Faces that look down and are flatter than a limit, as regions that hang together over vertices.
struct Overhangs {
    Array<std::uint32_t> region_of_face;  // kNoRegion for faces that do not hang over
    Array<double> areas;                  // by region, seen from below; without what is hidden
    Array<std::uint8_t> has_tip;          // by region
    Array<Tip> tips;                      // by height
    double least_area = 0;

    /// False for regions that print without help: small, and held by what is beside them.
    bool is_worth_holding(std::uint32_t region) const {
        return areas[region] >= least_area || has_tip[region] != 0;
    }
};

/// Finds the faces whose normal is at most `degrees` from straight down, and the tips. Regions of
/// less than `least_area` are not worth holding unless they have a tip.
///
/// A tip is a local minimum of the surface with material above it. It counts when it is the lowest
/// point of its shell, or when going from it to a lower place of the surface means a climb of half
/// a unit or more: less is roughness. A tip of which a part lies inside another body is held by
/// that.
///
/// Time: linear in the faces, n log n in the vertices and in the faces at each tip's line.
///
/// Source: minima and the climbs between them are the persistent components of H. Edelsbrunner,
/// D. Letscher, A. Zomorodian, Topological persistence and simplification, 2002.
Overhangs find_overhangs(const TriMesh& mesh, const UprightLines& lines, double degrees,
                         double least_area);

}  // namespace povmesh
