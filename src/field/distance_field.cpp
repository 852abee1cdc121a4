#include "field/distance_field.h"

#include <cmath>
#include <utility>

#include "base/poll.h"
#include "mesh/bounds.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {

TriMesh usable_faces(const TriMesh& mesh) {
    TriMesh usable;
    polled_copy(mesh.vertices, usable.vertices);
    usable.faces.reserve(mesh.faces.size());
    bool has_any_area = false;
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        if (face.deleted != 0) continue;
        const Triangle t = triangle_of(mesh, face);
        if (!is_finite(t)) continue;
        has_any_area = has_any_area || has_area(t);
        usable.faces.push_back(face);
        Face& kept = usable.faces.back();
        kept.colour.fill(255);
        kept.label = -1;
        kept.uv.fill(-1);
    }
    if (!has_any_area) usable.faces.clear();
    return usable;
}

DistanceField::DistanceField(const TriMesh& mesh, const FieldGrid& grid)
    : DistanceField(usable_faces(mesh), grid) {}

DistanceField::DistanceField(TriMesh&& usable, const FieldGrid& grid)
    : grid_(grid),
      mesh_(std::move(usable)),
      crossings_(mesh_, grid_),
      solid_(grid_),
      thickened_(grid_) {}

const NearestFace& DistanceField::LazySurface::of_all_but(const TriMesh& mesh,
                                                          const Array<std::uint8_t>& marks,
                                                          std::uint8_t left_out) {
    std::call_once(is_built, [&] {
        if (marks.empty()) {
            faces = std::make_unique<NearestFace>(mesh);
            return;
        }
        TriMesh part;
        part.vertices = mesh.vertices;
        part.faces = mesh.faces;
        for (std::size_t f = 0; f < marks.size(); ++f) {
            if (marks[f] == left_out) part.faces[f].deleted = 1;
        }
        faces = std::make_unique<NearestFace>(part);
    });
    return *faces;
}

LevelNodes offset_nodes(const DistanceField& field, double level, const SharpDistance* sharp) {
    const NodeSet& solid = field.solid();
    if (level == 0) return {solid, NodeDistances(solid.layout())};
    const bool grows = level > 0;
    NodeSet among(field.grid());
    for (std::uint32_t b = 0; b < solid.block_count(); ++b) {
        if (solid.is_mixed(b)) {
            among.edit(b) = grows ? ~solid.bits(b) : solid.bits(b);
        } else if (solid.is_empty(b) == grows) {
            among.fill(b);
        }
    }
    LevelNodes nodes = nodes_within(field.surface(), field.grid(), std::abs(level), among, sharp);
    // Within is now the part that changes: what is added or taken away.
    NodeSet result(field.grid());
    for (std::uint32_t b = 0; b < solid.block_count(); ++b) {
        const BlockBits near = nodes.within.bits(b);
        const BlockBits bits = grows ? solid.bits(b) | near : solid.bits(b) & ~near;
        if (bits == BlockBits::full()) {
            result.fill(b);
        } else if (bits.any()) {
            result.edit(b) = bits;
        }
    }
    nodes.within = std::move(result);
    return nodes;
}

}  // namespace povmesh
