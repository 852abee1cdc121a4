// Turns a solid model into a shade for a lamp: an even wall, hollow inside and open.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "base/array.h"
#include "base/status.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

enum class LampshadeTop : std::uint8_t {
    Auto,    // open where the model ends flat and is wide inside
    Open,    // open in any case: cut off where it gets narrow inside
    Closed,  // a roof as thick as the wall
};

struct LampshadeOptions {
    // Side of a cell in model units; 0: between a half and a quarter of the thickness, as the size
    // of the models allows.
    double cell = 0;
    std::optional<double> bottom{};     // cut off what is lower than this level
    std::optional<double> top_level{};  // cut off what is higher
    LampshadeTop top = LampshadeTop::Auto;
    bool measures = false;       // fills the walls, the ceilings and the circles of the openings
    bool all_triangles = false;  // else flat places of the inner wall are thinned out
};

enum class LampshadeStatus : std::uint8_t {
    Made,     // of one model at least
    NoModel,  // no face, a coordinate that is not finite, no volume, no thickness above 0
    Thin,     // nothing lies so deep inside, or nothing that reaches an opening
    Failed,   // `why` tells
};

struct LampshadeOpening {
    double level = 0;
    double area = 0;  // square model units, of the hole
    bool is_cut = false;
    Vec3d centre;  // of the largest circle in it, and that circle's radius
    double radius = 0;
};

/// What was made of one model.
struct LampshadeShade {
    double low = 0, high = 0;  // of the model
    LampshadeOpening bottom;
    std::optional<LampshadeOpening> top;
};

struct LampshadeReport {
    LampshadeStatus status = LampshadeStatus::NoModel;
    Status why;
    double cell = 0;         // the largest, model units
    std::size_t models = 0;  // those that no shade was made of stay solid
    std::vector<LampshadeShade> shades;
    std::size_t closed_pieces = 0;      // of the inside that reach no opening and stay solid
    std::size_t overlapped_pieces = 0;  // that stay solid because bodies overlap there
    Vec3d overlap;                      // a place of these
    std::size_t loose_pieces = 0;       // of wall that stand alone within the inside
    // Of the result's faces the first ones are the outside, then comes the inner wall, then the
    // rims.
    std::size_t outside_faces = 0;
    std::size_t inner_faces = 0;
    // When measured: between the inner wall and the model, openings left out, model units.
    double smallest_wall = 0;
    double mean_wall = 0;     // by area of the inner wall
    double uneven_share = 0;  // of the inner wall's area, more than kEvenWithin off the thickness
    Vec3d thinnest;           // where the smallest wall is
    double ceiling_area = 0;  // of the inner wall that hangs over flatter than 45 degrees
};

/// What a wall is even within, as a share of the thickness.
constexpr double kEvenWithin = 0.06;

/// Share of the thickness that the wall has everywhere.
constexpr double kLeastLampshadeWall = 0.97;

/// Closed contours of the inside, model after model, with rising levels: loop l has the next
/// sizes[l] points, the last joins the first, and lies at levels[l]. The inside is on the left.
struct LampshadeContours {
    Array<Vec3f> points;
    Array<std::uint32_t> sizes;
    Array<float> levels;
};

/// Makes a shade of each model (shells that meet, with their cavities): what lies deeper than the
/// thickness is taken out, and opened at the bottom, and at a flat top.
///
/// The inside are the points at a distance of the thickness or more from the surface, in space. A
/// flat base, all faces within a ten-thousandth of the height of the lowest level, does not count
/// as surface and becomes the opening when the inside has there a quarter of the area of its
/// largest level section or more; the same with a flat top, which stays shut otherwise. Without
/// such a base the model is cut off at the lowest level where the inside has that area. Pieces of
/// the inside that reach no opening stay solid, and so does a model that is too thin.
///
/// The outside keeps its faces bit for bit but for those that a cut divides; vertices are numbered
/// anew. Inner wall and rims have the label -1, no texture coordinates and the mean colour of the
/// outer rim. Of a closed manifold the result is one, wound outward, and crosses itself nowhere
/// where the model did not. When nothing is made the mesh is unchanged.
///
/// Progress: 10 to 90. Log: the summary of "lampshade". The same bits for any number of threads.
/// Time: that of `inner_wall`, of which a second one is needed where only part of an end opens.
///
/// @param contours  when given, those of the inside that was taken out, as of a preview
LampshadeReport lampshade(TriMesh& mesh, float thickness, RunContext& run,
                          const LampshadeOptions& options = {},
                          LampshadeContours* contours = nullptr);

/// The same decisions without the result: the contours of the inside at the opening, at 64 levels
/// up to the top, and at an open top. They lie on the inner wall that `lampshade` makes. Without
/// contours unless the status is Made.
LampshadeReport preview_lampshade(const TriMesh& mesh, float thickness, RunContext& run,
                                  LampshadeContours& contours,
                                  const LampshadeOptions& options = {});

}  // namespace povmesh
