// Everything that `check` tells about a mesh.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "repair/detect.h"
#include "run/progress.h"

namespace povmesh {

/// What can be wrong with a mesh, in the order in which it is told.
enum class Flaw : std::uint8_t {
    InvertedFaces,  // the fewest to turn so that all agree and look out
    TurnedEdges,    // of two faces that are wound against each other
    OpenEdges,
    NonManifoldEdges,
    DegenerateFaces,
    DuplicateFaces,
    SelfIntersections,  // pairs of faces
    InsideOutShells,    // closed shells wound inward, but for cavities
    MisplacedVertices,  // with a coordinate that is infinite or no number
};

struct FlawWords {
    std::string_view key;  // in JSON
    std::string_view one;
    std::string_view several;
};

constexpr std::array<FlawWords, 9> kFlawWords = {{
    {"inverted_faces", "inverted face", "inverted faces"},
    {"turned_edges", "edge of opposite windings", "edges of opposite windings"},
    {"open_edges", "open edge", "open edges"},
    {"non_manifold_edges", "non-manifold edge", "non-manifold edges"},
    {"degenerate_faces", "degenerate face", "degenerate faces"},
    {"duplicate_faces", "duplicate face", "duplicate faces"},
    {"self_intersections", "pair of intersecting faces", "pairs of intersecting faces"},
    {"inside_out_shells", "inside-out shell", "inside-out shells"},
    {"misplaced_vertices", "misplaced vertex", "misplaced vertices"},
}};

/// How many, and where the first of them are.
struct FlawFinding {
    std::uint64_t count = 0;
    std::optional<Vec3f> place;        // on or near the first one, if it has a finite place
    std::vector<std::uint32_t> faces;  // the first ones, kListedFaces at most
};

constexpr std::size_t kListedFaces = 5;

/// So many holes of so many edges.
struct HoleSize {
    std::size_t edges = 0;
    std::size_t count = 0;
};

struct Findings {
    std::size_t vertices = 0;
    std::size_t shells = 0;
    std::size_t cavities = 0;  // closed shells wound inward inside others; no flaw
    Box3f box;                 // around the vertices whose coordinates are finite
    double volume = 0;         // signed: negative when the model is wound inward; may be no number
    bool is_closed = false;    // no open edge
    bool has_labels = false;   // a face has a material

    std::size_t one_sided_shells =
        0;  // that no turning makes consistent, as a strip with a half turn

    FlawCounts detected;  // as `detect` counts, but for the inverted faces, see find_orientation
    std::array<FlawFinding, kFlawWords.size()> flaws;
    bool has_self_intersection_count = false;
    std::vector<HoleSize> holes;     // by ascending size
    std::size_t unclosed_edges = 0;  // open edges that form no closed rim

    FlawFinding& operator[](Flaw flaw) { return flaws[static_cast<std::size_t>(flaw)]; }
    const FlawFinding& operator[](Flaw flaw) const { return flaws[static_cast<std::size_t>(flaw)]; }

    bool has_flaws() const;
    /// Every flaw is a degenerate face: slicers cope with them.
    bool has_degenerate_faces_only() const;
};

/// "near (1, 2, 3)".
std::string place_text(Vec3f place);
std::string place_text(Vec3d place);

/// "clean", or the flaws with their numbers; `more` is a flaw beside them, if not empty.
std::string verdict(const Findings& findings, const std::string& more = {});

/// "2 of 3 edges, 1 of 12"; the middle of a long list is left out.
std::string hole_sizes_text(std::span<const HoleSize> holes);

/// Above this number of faces, what takes long is done only on request.
constexpr std::size_t kMaxQuickFaces = 2'000'000;

enum class SelfIntersectionSearch { Never, UpToQuickFaces, Always };

/// Examines a mesh. Faces and vertices are not changed; the shells are labelled.
///
/// @param flaw_faces  when given, receives the faces to show: inverted as find_orientation tells
///                    them; every face with an open or a non-manifold edge; degenerate as `detect`
///                    gives them Progress goes from 48 to 100.
Findings examine(TriMesh& mesh, Progress progress, SelfIntersectionSearch search,
                 FlawFaces* flaw_faces = nullptr);

/// Adds what `examine` tells of crossings, when the search is to be made.
void count_self_intersections(const TriMesh& mesh, SelfIntersectionSearch search,
                              Findings& findings);

}  // namespace povmesh
