// Pegs and sockets that hold the two sides of a cut together.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "base/array.h"
#include "cut/cap.h"
#include "cut/cut.h"
#include "cut/plane_frame.h"
#include "cut/plane_split.h"

namespace povmesh {

/// A peg on the back side and its socket in the front side.
struct Connector {
    Point2d centre;       // in the plane: along, across
    std::uint32_t group;  // of the rim around it
    double length;        // of the peg, model units
};

/// Finds places for pegs: circles inside the caps, as far from the rims and from each other as a
/// search over a grid of 128 cells per side finds them, in front of which the material is deep
/// enough. A peg is twice as long as its radius, or as long as the material allows, but not shorter
/// than the radius. Up to 256 pegs for each part of the cut; none when the options ask for none.
///
/// Time: about n log n in the rim, and the square of the number of pegs.
std::vector<Connector> place_connectors(const TriMesh& model, const PlaneSplit& split,
                                        const PlaneFrame& frame, std::span<const RimEdge> rim,
                                        const ConnectorOptions& options);

/// The rings of connectors, as points and as edges that a filling must have, and the faces of pegs
/// and sockets.
class ConnectorRings {
public:
    ConnectorRings(CutPoints& points, const PlaneFrame& frame, std::vector<Connector> connectors,
                   const ConnectorOptions& options);

    /// The edges of the rings within the rim of a group.
    std::vector<std::array<std::int32_t, 2>> guides(std::uint32_t group) const;

    std::size_t size() const { return connectors_.size(); }

    /// Of the pegs, less that of the sockets; cubic model units.
    double volume() const;

    /// The cap of a side: triangles without those within the rings, and then the walls and ends of
    /// its pegs or sockets. All are wound as the front side has them; the back side reverses them.
    Array<CapTriangle> cap(PlaneSide side, const Array<CapTriangle>& triangles) const;

private:
    // First a ring of pegs, then one of sockets, then the same at their ends.
    std::int32_t ring_point(std::size_t connector, std::size_t ring, std::size_t corner) const {
        const std::size_t place = (connector * 4 + ring) * segments_ + corner % segments_;
        return static_cast<std::int32_t>(first_ + place);
    }
    bool lies_in_ring(const CapTriangle& triangle, PlaneSide side) const;

    std::vector<Connector> connectors_;
    std::size_t segments_;
    double radius_;
    std::size_t first_;  // point
};

}  // namespace povmesh
