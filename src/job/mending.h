// What repair does to a mesh, step by step and never for the worse.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "job/findings.h"
#include "repair/repair.h"

namespace povmesh {

/// The options of the tool: nothing is dropped for being small, duplicates go from meshes of any
/// size, cavities stay.
RepairOptions tool_repair_options();

struct Mending {
    RepairReport report;
    std::vector<std::string> given_up;  // what would have made something worse, and where
    std::optional<Findings> after;      // of the result, when it had to be examined
};

/// Repairs a mesh so that it has no more open edges, inverted faces, edges of several faces or of
/// opposite windings and crossings than before: a step that would bring more is left out.
///
/// Crossings are looked for at the faces that are new or moved, of which there are few: all others
/// cross what they crossed before. Only when these meet anything are all of them counted.
///
/// @param before  what was found in the mesh; its crossings need not have been counted
/// @param search  for the crossings in `after`, where they do not follow from what is known
Mending mend(TriMesh& mesh, RepairOptions options, const Findings& before,
             SelfIntersectionSearch search);

/// A line for the user when walls of faces back to back were taken out whole; else empty.
std::string wall_warning(const RepairReport& report);

/// What repair would do about the flaws found, a line each, by trying it on a copy of the mesh.
/// Empty when there is nothing for it, or more than kMaxQuickFaces.
std::vector<std::string> suggestions(const TriMesh& mesh, const Findings& findings);

/// Why a hole stays open.
struct HoleFateWords {
    HoleFate fate;
    std::string_view key;  // in JSON
    std::string_view reason;
};

inline constexpr std::array<HoleFateWords, 4> kOpenFates = {{
    {HoleFate::TooLong, "too_long", "longer than 50 edges"},
    {HoleFate::PartOfRing, "part_of_ring", "rims of a missing ring of surface"},
    {HoleFate::NoFilling, "no_filling",
     "every filling is flat, folds back or gives an edge a third face"},
    {HoleFate::Crosses, "crosses", "the filling would cut through other faces"},
}};

inline constexpr std::string_view kLabelReason =
    "faces carry materials, which no new face would have; convert the model to STL and repair that";

inline constexpr std::string_view kOneSidedReason =
    "no turning makes their faces agree, as on a strip with a half turn";

/// The holes whose fate is wanted, by ascending size.
std::vector<HoleSize> hole_sizes(const HoleReport& report,
                                 const std::function<bool(HoleFate)>& wanted);

std::size_t count_of(const std::vector<HoleSize>& holes);

}  // namespace povmesh
