#include "job/findings.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include "base/convert.h"
#include "base/poll.h"
#include "job/numbers.h"
#include "mesh/bounds.h"
#include "mesh/edge_mates.h"
#include "mesh/volume.h"
#include "repair/boundary_loops.h"
#include "repair/duplicates.h"
#include "repair/orientation.h"
#include "spatial/self_intersection.h"

namespace povmesh {
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
    Poller poller;
    for (const Vertex& vertex : mesh.vertices) {
        poller();
        if (!is_finite(vertex.position())) ++misplaced.count;
    }
    if (misplaced.count == 0) return;
    for (std::uint32_t face = 0; face < mesh.faces.size(); ++face) {
        poll_at(face);
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
        poll_at(face);
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

}  // namespace

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

namespace {

// The faces that repair would turn, and which shells are cavities.
void judge_windings(const TriMesh& mesh, const EdgeMates& mates, Findings& findings,
                    FlawFaces& faces) {
    const TurnedFaces orientation = find_orientation(mesh, mates);
    findings.detected.inverted = static_cast<std::uint32_t>(orientation.turned_count);
    faces.inverted.clear();
    for (std::uint32_t face = 0; face < mesh.faces.size(); ++face) {
        poll_at(face);
        if (orientation.turned[face] != 0) faces.inverted.push_back(face);
    }
    FlawFinding& inside_out = findings[Flaw::InsideOutShells];
    inside_out.count = orientation.inside_out.size();
    for (const std::uint32_t shell : orientation.inside_out) {
        list_faces(mesh, mesh.shells[shell].first(1), inside_out);
    }
    for (std::size_t shell = 0; shell < mesh.shells.size(); ++shell) {
        if (orientation.is_cavity(shell)) ++findings.cavities;
    }
    findings.one_sided_shells = orientation.one_sided.size();
}

// Hole sizes told one by one.
constexpr std::size_t kToldSizes = 6;

}  // namespace

std::string place_text(Vec3f place) {
    return "near (" + human_number(shortest_double(place.x)) + ", " +
           human_number(shortest_double(place.y)) + ", " + human_number(shortest_double(place.z)) +
           ")";
}

std::string place_text(Vec3d place) {
    return place_text(
        Vec3f{narrow_to_float(place.x), narrow_to_float(place.y), narrow_to_float(place.z)});
}

std::string verdict(const Findings& findings, const std::string& more) {
    std::string flaws;
    for (std::size_t i = 0; i < kFlawWords.size(); ++i) {
        const std::uint64_t count = findings.flaws[i].count;
        // Edges of opposite windings are the rims of the inverted faces.
        const bool is_covered =
            static_cast<Flaw>(i) == Flaw::TurnedEdges && findings[Flaw::InvertedFaces].count != 0;
        if (count == 0 || is_covered) continue;
        const auto& [key, one, several] = kFlawWords[i];
        if (!flaws.empty()) flaws += ", ";
        flaws += counted(count, one, several);
    }
    if (!more.empty()) return "flaws: " + flaws + (flaws.empty() ? "" : ", ") + more;
    if (flaws.empty()) return "clean";
    if (findings.has_degenerate_faces_only()) return "prints, but has " + flaws;
    return "flaws: " + flaws;
}

std::string hole_sizes_text(std::span<const HoleSize> holes) {
    std::string text;
    for (std::size_t i = 0; i < holes.size(); ++i) {
        // The largest is always told: it is the one that matters.
        if (holes.size() > kToldSizes && i >= kToldSizes - 1 && i + 1 < holes.size()) continue;
        if (i != 0) text += holes.size() > kToldSizes && i + 1 == holes.size() ? ", ..., " : ", ";
        text += with_separators(holes[i].count) + " of " +
                (i == 0 ? counted(holes[i].edges, "edge") : with_separators(holes[i].edges));
    }
    return text;
}

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
    const EdgeMates mates(mesh);
    findings.detected = detect(mesh, mates, &faces);
    findings.shells = mesh.shells.size();
    progress.set(65);
    count_edges(mesh, mates, findings, faces);
    measure_holes(mesh, mates, findings);
    progress.set(72);
    judge_windings(mesh, mates, findings, faces);
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

}  // namespace povmesh
