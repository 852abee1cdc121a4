#include "cli/findings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include "mesh/bounds.h"
#include "mesh/edge_mates.h"
#include "mesh/shells.h"
#include "mesh/volume.h"
#include "repair/boundary_loops.h"
#include "repair/duplicates.h"
#include "spatial/self_intersection.h"
#include "spatial/shell_nesting.h"

namespace povmesh::cli {
namespace {

void list_face(FlawFinding& finding, std::uint32_t face) {
    std::vector<std::uint32_t>& faces = finding.faces;
    if (faces.size() < kListedFaces && std::find(faces.begin(), faces.end(), face) == faces.end()) {
        faces.push_back(face);
    }
}

// The first finite place is kept.
void set_place(FlawFinding& finding, Vec3d place) {
    const Vec3f narrow{static_cast<float>(place.x), static_cast<float>(place.y),
                       static_cast<float>(place.z)};
    if (!finding.place && is_finite(narrow)) finding.place = narrow;
}

Vec3d corner(const TriMesh& mesh, std::uint32_t face, std::size_t number) {
    return to_double(mesh.corner_position(mesh.faces[face], number));
}

Vec3d middle(const TriMesh& mesh, std::uint32_t face) {
    return (corner(mesh, face, 0) + corner(mesh, face, 1) + corner(mesh, face, 2)) / 3.0;
}

void list_faces(const TriMesh& mesh, std::span<const std::uint32_t> faces, FlawFinding& finding) {
    for (const std::uint32_t face : faces.first(std::min(faces.size(), kListedFaces))) {
        list_face(finding, face);
        set_place(finding, middle(mesh, face));
    }
}

void measure(const TriMesh& mesh, Findings& findings) {
    findings.vertices = mesh.vertices.size();
    findings.volume = signed_volume(mesh);
    findings.box = finite_bounds(mesh);
    findings.has_labels = std::any_of(mesh.faces.begin(), mesh.faces.end(),
                                      [](const Face& face) { return face.label >= 0; });
}

void count_misplaced(const TriMesh& mesh, FlawFinding& misplaced) {
    for (const Vertex& vertex : mesh.vertices) {
        if (!is_finite(vertex.position())) ++misplaced.count;
    }
    if (misplaced.count == 0) return;
    for (std::uint32_t face = 0; face < mesh.faces.size(); ++face) {
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3f position = mesh.corner_position(mesh.faces[face], c);
            if (!is_finite(position)) list_face(misplaced, face);
        }
    }
}

// Counts edges over all faces, where `detect` leaves out shells without a face that looks up.
void count_edges(const TriMesh& mesh, const EdgeMates& mates, Findings& findings,
                 FlawFaces& flaw_faces) {
    flaw_faces.open.clear();
    flaw_faces.non_manifold.clear();
    const auto add = [&](Flaw flaw, std::uint32_t face, std::size_t edge) {
        FlawFinding& finding = findings[flaw];
        ++finding.count;
        list_face(finding, face);
        set_place(finding,
                  (corner(mesh, face, edge) + corner(mesh, face, next_corner(edge))) / 2.0);
    };
    for (std::uint32_t face = 0; face < mesh.faces.size(); ++face) {
        bool is_open = false;
        bool is_non_manifold = false;
        for (std::size_t edge = 0; edge < 3; ++edge) {
            const EdgeMates::Kind kind = mates.kind(face, edge);
            if (kind == EdgeMates::Kind::Open) {
                add(Flaw::OpenEdges, face, edge);
                is_open = true;
            } else if (kind == EdgeMates::Kind::NonManifold) {
                add(Flaw::NonManifoldEdges, face, edge);
                is_non_manifold = true;
            } else if (mates.is_same_direction(face, edge)) {
                add(Flaw::TurnedEdges, face, edge);
            }
        }
        if (is_open) flaw_faces.open.push_back(face);
        if (is_non_manifold) flaw_faces.non_manifold.push_back(face);
    }
    findings[Flaw::TurnedEdges].count /= 2;  // each was seen from both of its faces
    findings[Flaw::NonManifoldEdges].count = mates.group_count();
    findings.is_closed = findings[Flaw::OpenEdges].count == 0;
}

void measure_holes(const TriMesh& mesh, const EdgeMates& mates, Findings& findings) {
    if (findings.is_closed) return;
    const BoundaryLoops loops = trace_boundary_loops(mesh, mates);
    std::map<std::size_t, std::size_t> counts;
    for (std::size_t loop = 0; loop < loops.size(); ++loop) ++counts[loops[loop].size()];
    for (const auto& [edges, count] : counts) findings.holes.push_back({edges, count});
    findings.unclosed_edges = loops.unclosed_edge_count;
}

void count_duplicates(const TriMesh& mesh, FlawFinding& duplicates) {
    const Array<std::uint32_t> faces = find_duplicate_faces(mesh);
    duplicates.count = faces.size();
    list_faces(mesh, faces, duplicates);
}

// The middle of what the boxes of two faces have in common: near the place where they meet.
Vec3d common_middle(const TriMesh& mesh, const FacePair& pair) {
    std::array<Box3d, 2> boxes;
    for (std::size_t number = 0; number < 3; ++number) {
        boxes[0].widen(corner(mesh, pair.first, number));
        boxes[1].widen(corner(mesh, pair.second, number));
    }
    const auto between = [](double low0, double low1, double high0, double high1) {
        return (std::max(low0, low1) + std::min(high0, high1)) / 2.0;
    };
    const auto& [a, b] = boxes;
    return {between(a.low.x, b.low.x, a.high.x, b.high.x),
            between(a.low.y, b.low.y, a.high.y, b.high.y),
            between(a.low.z, b.low.z, a.high.z, b.high.z)};
}

void count_self_intersections(const TriMesh& mesh, SelfIntersectionSearch search,
                              Findings& findings) {
    findings.has_self_intersection_count =
        search == SelfIntersectionSearch::Always ||
        (search == SelfIntersectionSearch::UpToQuickFaces && mesh.faces.size() <= kMaxQuickFaces);
    if (!findings.has_self_intersection_count) return;
    const SelfIntersections found = find_self_intersections(mesh, kListedFaces);
    FlawFinding& finding = findings[Flaw::SelfIntersections];
    finding.count = found.count;
    for (const FacePair& pair : found.pairs) {
        list_face(finding, pair.first);
        list_face(finding, pair.second);
        set_place(finding, common_middle(mesh, pair));
    }
}

// The volume of a flat shell is rounding, and its sign tells nothing.
bool is_flat(const TriMesh& mesh, std::uint32_t shell, double volume) {
    constexpr double kFlat = 1e-12;  // of the cubed diagonal
    Box3d box;
    for (const std::uint32_t face : mesh.shells[shell]) {
        for (std::size_t number = 0; number < 3; ++number) box.widen(corner(mesh, face, number));
    }
    const double diagonal = length(box.extent());
    return std::abs(volume) <= kFlat * diagonal * diagonal * diagonal;
}

struct InwardShells {
    std::vector<std::uint32_t> inside_out;
    std::vector<std::uint32_t> cavities;
};

InwardShells find_inward_shells(const TriMesh& mesh, const EdgeMates& mates) {
    const std::vector<ShellNesting> nesting = classify_shells(mesh, mates);
    InwardShells inward;
    for (std::uint32_t shell = 0; shell < nesting.size(); ++shell) {
        const ShellNesting& n = nesting[shell];
        if (!(n.signed_volume < 0) || is_flat(mesh, shell, n.signed_volume)) continue;
        if (n.is_cavity()) {
            inward.cavities.push_back(shell);
        } else if (n.is_oriented) {
            inward.inside_out.push_back(shell);
        }
    }
    return inward;
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

// Turned shells, and which of them are cavities. `faces.inverted` becomes what is to be shown.
void judge_inward_shells(TriMesh& mesh, const EdgeMates& mates, Findings& findings,
                         FlawFaces& faces) {
    const InwardShells inward = find_inward_shells(mesh, mates);
    FlawFinding& inside_out = findings[Flaw::InsideOutShells];
    inside_out.count = inward.inside_out.size();
    for (const std::uint32_t shell : inward.inside_out) {
        list_faces(mesh, mesh.shells[shell].first(1), inside_out);
    }
    findings.cavities = inward.cavities.size();
    const Array<std::uint32_t> in_cavities = faces_of(mesh, inward.cavities);
    faces.inverted =
        shown_as_inverted(faces.inverted, in_cavities, faces_of(mesh, inward.inside_out));
    if (!in_cavities.empty() && findings.detected.inverted != 0) {
        findings.detected.inverted = inverted_without(mesh, in_cavities);
    }
}

}  // namespace

bool Findings::has_flaws() const {
    return detected.any() || std::any_of(flaws.begin(), flaws.end(),
                                         [](const FlawFinding& flaw) { return flaw.count != 0; });
}

bool Findings::has_degenerate_faces_only() const {
    std::uint64_t all = 0;
    for (const FlawFinding& flaw : flaws) all += flaw.count;
    const std::uint64_t degenerate = (*this)[Flaw::DegenerateFaces].count;
    return degenerate != 0 && degenerate == all;
}

Findings examine(TriMesh& mesh, Progress progress, SelfIntersectionSearch search,
                 FlawFaces* flaw_faces) {
    Findings findings;
    FlawFaces faces;
    measure(mesh, findings);
    count_misplaced(mesh, findings[Flaw::MisplacedVertices]);
    progress.set(52);
    findings.detected = detect(mesh, &faces);
    findings.shells = mesh.shells.size();
    progress.set(65);
    const EdgeMates mates(mesh);
    count_edges(mesh, mates, findings, faces);
    measure_holes(mesh, mates, findings);
    progress.set(72);
    judge_inward_shells(mesh, mates, findings, faces);
    progress.set(78);
    findings[Flaw::InvertedFaces].count = findings.detected.inverted;
    list_faces(mesh, faces.inverted, findings[Flaw::InvertedFaces]);
    findings[Flaw::DegenerateFaces].count = findings.detected.degenerate;
    list_faces(mesh, faces.degenerate, findings[Flaw::DegenerateFaces]);
    count_duplicates(mesh, findings[Flaw::DuplicateFaces]);
    progress.set(80);
    count_self_intersections(mesh, search, findings);
    if (flaw_faces != nullptr) *flaw_faces = std::move(faces);
    progress.set(100);
    return findings;
}

}  // namespace povmesh::cli
