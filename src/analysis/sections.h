// Finds the cross-sections of a model and how weak each of them is.
#pragma once

#include <cstddef>
#include <limits>
#include <vector>

#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

enum class SectionMode {
    All,          // every cross-section
    LocalMinima,  // only weak places
};

/// How the planes of the sections that are returned lie.
enum class SectionPlanes {
    Axes,    // across the axes
    Turned,  // where the section is smaller by 2 % or more, turned to the limb
};

/// The axis of sections whose plane was turned.
constexpr std::size_t kTurnedSection = 3;

/// One connected piece of the material that a plane across an axis cuts: where a plane meets the
/// four legs of a table, each leg is a section of its own.
struct WeakSection {
    /// The outer boundary, counterclockwise seen from where the normal points to; the last point
    /// joins the first. All points lie in the plane; across an axis, the coordinate along the
    /// normal has the same bits in each. 3 points at least.
    std::vector<Vec3d> polygon;
    /// The openings of the material within the boundary, clockwise.
    std::vector<std::vector<Vec3d>> holes;

    float score = 0;  // 0 to 100; 100 for the weakest of a list, half as much where the same load
                      // would have to be twice as heavy
    Vec3d normal;     // across an axis exactly (1, 0, 0), (0, 1, 0) or (0, 0, 1)
    Vec3d centre;     // centroid of the area
    double position = 0;   // of the plane along the normal
    std::size_t axis = 0;  // 0, 1, 2 for x, y, z; kTurnedSection

    double area = 0;     // without the holes
    double modulus = 0;  // section modulus for the worst direction of bending, length^3
    double load = 0;     // volume of what hangs on the section * its lever arm, length^4
    double strength =
        0;  // modulus / load, 1 / length; the lower, the weaker. Infinite without load
};

/// Most planes across one axis: a smaller step is raised, whatever the extent.
constexpr std::size_t kMostSectionPlanes = 1000;

/// Cuts the model by planes across each axis, `step` model units apart, the first half a step above
/// the lowest point, and returns its cross-sections, the weakest first (equal ones by axis, then by
/// position).
///
/// What hangs on a section is the smaller of the two bodies that come apart when the model is cut
/// there and nowhere else; its lever arm is the distance of its centroid from the section's. Where
/// the cut leaves the model in one piece (a side of a ring, one of two handles), the sections of
/// that plane that hold together the same pieces share the load by their areas. A strength thus
/// says how the bending stress from the model's own weight, held in the worst direction, compares.
///
/// Weak places are of two kinds. A waist: followed along its limb, the modulus has a minimum and
/// rises by 6 % or more on both sides before it falls below. And a root: seen from one end of the
/// model, the ratio of the modulus to what hangs on the section towards that end falls, and rises
/// again by a half though ever more hangs on it. Limbs need not lie along an axis: where the
/// centres of neighbouring sections lead aside, the section across that direction counts, and what
/// is returned is turned until its area is least. Left out are sections along a limb, which a
/// section across their length undercuts; those below half the square of a step; and those on which
/// less than half a percent of the body hangs, or nothing that reaches as far as the section is
/// deep. Bodies without a neck, such as boxes, balls and cones, have none. Of one place only the
/// weakest section counts.
///
/// Only cross-sections of material count: a model that is wound inward is taken for its opposite,
/// a surface inside material changes nothing, gaps of an open model are closed by straight lines.
/// Faces with a coordinate that is not finite are left out. A step that is not above 0, or not a
/// number, finds nothing.
///
/// Log: the start of the analysis and the number of sections. The result is the same bits for any
/// number of threads. Time: linear in faces and in points of the cross-sections (n log n within a
/// plane, and for the tree of faces that turned planes need); memory: about 150 bytes a face, and
/// 100 bytes and its outline for each section returned.
std::vector<WeakSection> analyse_sections(const TriMesh& mesh, double step, SectionMode mode,
                                          RunContext& run,
                                          SectionPlanes planes = SectionPlanes::Turned);

/// Sorts sections of one or several analyses, the weakest first, and scores them against it.
void rank_sections(std::vector<WeakSection>& sections);

}  // namespace povmesh
