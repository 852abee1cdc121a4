#include "cli/findings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <span>
#include <utility>
#include <vector>

#include "cli/inward_shells.h"
#include "mesh/edge_mates.h"
#include "mesh/shells.h"
#include "mesh/volume.h"

namespace povmesh::cli {
namespace {

void measure(const TriMesh& mesh, Findings& findings) {
    findings.vertices = mesh.vertices.size();
    findings.volume = signed_volume(mesh);
    for (const Vertex& vertex : mesh.vertices) {
        if (std::isfinite(vertex.x) && std::isfinite(vertex.y) && std::isfinite(vertex.z)) {
            findings.box.widen(vertex.position());
        } else {
            ++findings.misplaced_vertices;
        }
    }
}

// Counts edges over all faces, where `detect` leaves out shells without a face that looks up.
void count_edges(const TriMesh& mesh, const EdgeMates& mates, Findings& findings,
                 FlawFaces& flaw_faces) {
    flaw_faces.open.clear();
    flaw_faces.non_manifold.clear();
    std::size_t turned_sides = 0;  // each such edge is seen from both of its faces
    for (std::uint32_t face = 0; face < mesh.faces.size(); ++face) {
        std::array<std::size_t, 3> kinds{};  // edges of each kind
        for (std::size_t edge = 0; edge < 3; ++edge) {
            const EdgeMates::Kind kind = mates.kind(face, edge);
            ++kinds[static_cast<std::size_t>(kind)];
            if (kind == EdgeMates::Kind::Manifold && mates.is_same_direction(face, edge)) {
                ++turned_sides;
            }
        }
        const std::size_t open = kinds[static_cast<std::size_t>(EdgeMates::Kind::Open)];
        findings.open_edges += open;
        if (open != 0) flaw_faces.open.push_back(face);
        if (kinds[static_cast<std::size_t>(EdgeMates::Kind::NonManifold)] != 0) {
            flaw_faces.non_manifold.push_back(face);
        }
    }
    findings.turned_edges = turned_sides / 2;
    findings.non_manifold_edges = mates.group_count();
    findings.is_closed = findings.open_edges == 0;
}

Array<std::uint32_t> faces_of(const TriMesh& mesh, const std::vector<std::uint32_t>& shells) {
    Array<std::uint32_t> faces;
    for (const std::uint32_t shell : shells) {
        const auto more = mesh.shells[shell];
        faces.insert(faces.end(), more.begin(), more.end());
    }
    std::sort(faces.begin(), faces.end());
    return faces;
}

// Shells do not influence one another's counts, so that a walk over the mesh without its cavities
// gives the count of the others.
std::uint32_t inverted_without(TriMesh& mesh, std::span<const std::uint32_t> faces) {
    for (const std::uint32_t face : faces) mesh.faces[face].deleted = 1;
    const std::uint32_t inverted = detect(mesh).inverted;
    for (const std::uint32_t face : faces) mesh.faces[face].deleted = 0;
    label_shells(mesh);
    return inverted;
}

Array<std::uint32_t> shown_as_inverted(std::span<const std::uint32_t> inverted,
                                       std::span<const std::uint32_t> in_cavities,
                                       std::span<const std::uint32_t> inside_out) {
    Array<std::uint32_t> outside;
    std::set_difference(inverted.begin(), inverted.end(), in_cavities.begin(), in_cavities.end(),
                        std::back_inserter(outside));
    Array<std::uint32_t> shown;
    std::set_union(outside.begin(), outside.end(), inside_out.begin(), inside_out.end(),
                   std::back_inserter(shown));
    return shown;
}

}  // namespace

Findings examine(TriMesh& mesh, Progress progress, FlawFaces* flaw_faces) {
    Findings findings;
    FlawFaces faces;
    measure(mesh, findings);
    progress.set(55);
    findings.flaws = detect(mesh, &faces);
    findings.shells = mesh.shells.size();
    progress.set(80);
    const EdgeMates mates(mesh);
    count_edges(mesh, mates, findings, faces);
    progress.set(90);

    const InwardShells inward = find_inward_shells(mesh, mates);
    findings.inside_out_shells = inward.inside_out.size();
    findings.cavities = inward.cavities.size();
    const Array<std::uint32_t> in_cavities = faces_of(mesh, inward.cavities);
    faces.inverted =
        shown_as_inverted(faces.inverted, in_cavities, faces_of(mesh, inward.inside_out));
    if (!in_cavities.empty() && findings.flaws.inverted != 0) {
        findings.flaws.inverted = inverted_without(mesh, in_cavities);
    }
    if (flaw_faces != nullptr) *flaw_faces = std::move(faces);
    progress.set(100);
    return findings;
}

}  // namespace povmesh::cli
