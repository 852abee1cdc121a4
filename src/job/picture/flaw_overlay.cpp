// Turns the faces that flaw detection found into marks for a picture.
#include <array>
#include <span>

#include "job/picture/picture.h"
#include "mesh/edge_mates.h"

namespace povmesh::picture {
namespace {

EdgeMarks edges_of_kind(const TriMesh& mesh, const EdgeMates& mates,
                        std::span<const std::uint32_t> faces, EdgeMates::Kind kind, Colour colour) {
    EdgeMarks marks;
    marks.colour = colour;
    for (const std::uint32_t face : faces) {
        for (std::size_t edge = 0; edge < 3; ++edge) {
            if (mates.kind(face, edge) != kind) continue;
            const auto& vertex = mesh.faces[face].vertex;
            marks.edges.push_back({vertex[edge], vertex[next_corner(edge)]});
        }
    }
    return marks;
}

}  // namespace

Overlay flaw_overlay(TriMesh& mesh, const FlawFaces& flaws) {
    Overlay overlay;
    overlay.faces.push_back({palette::kFlipped, flaws.inverted});
    if (!flaws.open.empty() || !flaws.non_manifold.empty()) {
        const EdgeMates mates(mesh);
        overlay.edges.push_back(
            edges_of_kind(mesh, mates, flaws.open, EdgeMates::Kind::Open, palette::kOpen));
        overlay.edges.push_back(edges_of_kind(mesh, mates, flaws.non_manifold,
                                              EdgeMates::Kind::NonManifold, palette::kNonManifold));
    }
    PointMarks dots;
    dots.colour = palette::kDegenerate;
    for (const std::uint32_t face : flaws.degenerate) {
        Vec3d sum;
        for (std::size_t corner = 0; corner < 3; ++corner) {
            sum = sum + to_double(mesh.corner_position(mesh.faces[face], corner));
        }
        dots.points.push_back({static_cast<float>(sum.x / 3), static_cast<float>(sum.y / 3),
                               static_cast<float>(sum.z / 3)});
    }
    overlay.points.push_back(std::move(dots));
    return overlay;
}

}  // namespace povmesh::picture
