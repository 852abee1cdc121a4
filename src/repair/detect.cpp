// One walk a shell (shell_walk.h), whose counts are added up.
#include "repair/detect.h"

#include "mesh/shells.h"
#include "repair/shell_walk.h"

namespace povmesh {
namespace {

FlawFaces flaw_faces(const ShellWalk& walk, std::size_t face_count) {
    FlawFaces flaws;
    for (std::size_t f = 0; f < face_count; ++f) {
        const auto face = static_cast<std::uint32_t>(f);
        if (walk.is_turned(f)) flaws.inverted.push_back(face);
        if (walk.was_open(f)) flaws.open.push_back(face);
        if (walk.was_non_manifold(f)) flaws.non_manifold.push_back(face);
        if (walk.is_degenerate(f)) flaws.degenerate.push_back(face);
    }
    return flaws;
}

}  // namespace

FlawCounts detect(TriMesh& mesh, FlawFaces* faces) {
    return detect(mesh, EdgeMates(mesh), faces);
}

FlawCounts detect(TriMesh& mesh, const EdgeMates& mates, FlawFaces* faces) {
    label_shells(mesh, mates);
    ShellWalk walk(mesh, mates, mesh.vertices, true);
    FlawCounts counts;
    counts.degenerate = walk.degenerate_count();
    for (std::uint32_t shell = 0; shell < mesh.shells.size(); ++shell) {
        const ShellWalk::Counts found = walk.walk(shell);
        counts.inverted += found.turns;
        counts.open_edges += found.open_corners;
        counts.non_manifold += found.non_manifold;
    }
    if (faces != nullptr) *faces = flaw_faces(walk, mesh.faces.size());
    return counts;
}

}  // namespace povmesh
