// A solid that was made out of the faces of any mesh, and exact distances from its surface.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "base/array.h"
#include "base/status.h"
#include "base/vec.h"
#include "field/crossings.h"
#include "field/distances.h"
#include "field/field_grid.h"
#include "field/node_blocks.h"
#include "mesh/tri_mesh.h"
#include "spatial/nearest_face.h"

namespace povmesh {

struct LabelOptions {
    // Openings up to this width (model units) are taken for closed.
    double gap = 0;
    // The same for meshes with open edges, if it is more.
    double gap_of_open = 0;
    // Of open meshes, close wider holes, too, where the faces around agree on their outside.
    bool closes_holes = false;
    // Sheets, and walls thinner than a cell, become solid up to this distance on both sides (model
    // units); 0 leaves them out.
    double sheet_reach = 0;
    // Bodies and pockets of fewer nodes are dropped.
    std::uint32_t least_nodes = 8;
    // Faces with solid on both sides do not count for distances.
    bool leaves_out_buried = true;
};

struct LabelReport {
    bool is_open = false;  // an edge is held by an odd number of faces
    std::uint32_t cavities = 0;
    std::uint32_t shut_in = 0;       // regions decided by their winding number
    std::uint32_t dropped = 0;       // bodies and pockets of too few nodes
    std::uint64_t bridge_edges = 0;  // grid edges where solid ends and no face is
    std::size_t bridges = 0;         // what these are apart: gaps and holes that were closed
    double widest_bridge = 0;        // model units, about; and where it is
    Vec3d bridge_place;
    double bridge_area = 0;  // model units squared, about, as the areas below
    double sheet_area = 0;   // of faces that were made thick
    double buried_area = 0;  // of faces with solid on both sides
};

/// The faces of a mesh on a grid. Which nodes are solid is told by `label`.
class DistanceField {
public:
    /// Keeps copies of the live faces that are finite (see usable_faces), and crosses the grid with
    /// them. The grid must reach around them.
    DistanceField(const TriMesh& mesh, const FieldGrid& grid);
    /// The same of a mesh that usable_faces made.
    DistanceField(TriMesh&& usable, const FieldGrid& grid);

    /// Tells solid from air. Outside is what is reached from beyond the grid through uncrossed
    /// edges; what is not reached is solid, whatever the winding of its faces, but for cavities:
    /// regions of which nearly all faces have their outside within, with solid behind.
    ///
    /// With a gap or open meshes, nodes farther than gap / 2 from all faces make the regions, and
    /// the others join in falling order of their distance, so that regions meet in the narrowest
    /// place of an opening.
    LabelReport label(const LabelOptions& options);

    const FieldGrid& grid() const { return grid_; }
    const Crossings& crossings() const { return crossings_; }
    const TriMesh& faces() const { return mesh_; }

    const NodeSet& solid() const { return solid_; }
    /// Of the solid nodes those that are solid because a sheet is near.
    const NodeSet& thickened() const { return thickened_; }
    double sheet_reach() const { return sheet_reach_; }

    /// The faces that border air, to search in: those with solid on both sides are left out.
    /// Built when first asked for, which several threads may do at once.
    const NearestFace& surface() const { return surface_->of_all_but(mesh_, is_buried_, 1); }

    /// The faces of the sheets that were made thick, to search in; built when first asked for.
    const NearestFace& sheets() const { return sheets_->of_all_but(mesh_, is_sheet_, 0); }
    /// Distances to them, of the nodes within a cell beyond the reach.
    const NodeDistances& sheet_distances() const { return sheet_distances_; }

private:
    friend class Labelling;

    FieldGrid grid_;
    TriMesh mesh_;
    Crossings crossings_;
    NodeSet solid_, thickened_;
    double sheet_reach_ = 0;
    Array<std::uint8_t> is_buried_;  // by face; empty when none is
    Array<std::uint8_t> is_sheet_;   // by face; empty when none is
    NodeDistances sheet_distances_;
    // Replaced when other faces are buried, or sheets.
    struct LazySurface {
        std::once_flag is_built;
        std::unique_ptr<NearestFace> faces;

        /// The live faces of a mesh, without those that are marked with the value.
        const NearestFace& of_all_but(const TriMesh& mesh, const Array<std::uint8_t>& marks,
                                      std::uint8_t left_out);
    };
    std::unique_ptr<LazySurface> surface_ = std::make_unique<LazySurface>();
    std::unique_ptr<LazySurface> sheets_ = std::make_unique<LazySurface>();
};

/// The live faces of a mesh that are finite, without attributes. Those without area stay: they
/// hold the edges of others together. None when no face has an area.
TriMesh usable_faces(const TriMesh& mesh);

/// The nodes of what is left of the solid, or what it grows to, by an offset of its surface: air
/// nodes nearer than `level` are added when it is above 0, solid ones nearer than -level taken away
/// when it is below. With 0 the solid itself. Distances are the sharp ones where these are given.
LevelNodes offset_nodes(const DistanceField& field, double level,
                        const SharpDistance* sharp = nullptr);

}  // namespace povmesh
