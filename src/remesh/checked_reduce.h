// A reduction that looks at what it made, and takes back what went wrong.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mesh/tri_mesh.h"
#include "remesh/reduce.h"
#include "run/run_context.h"

namespace povmesh {

/// Something that a result has and its model did not.
struct NewFault {
    std::size_t count = 0;
    Vec3f place;  // of one of them
};

struct NewFaults {
    NewFault crossings;   // pairs of faces, away from where the model crosses itself
    NewFault slivers;     // faces with an angle below 0.06 degrees, more than there were
    NewFault open_edges;  // more than there were, and longer in all
    NewFault junctions;   // edges of more than two faces; the same
};

/// Compares a mesh with what it was made of. Uses of both are built.
NewFaults find_new_faults(TriMesh& before, TriMesh& after);

struct CheckedReduceReport {
    ReduceReport reduction;
    std::size_t passes = 0;  // reductions that were made
    bool is_eased = false;   // less was taken away than could go, so that nothing crosses
    Vec3f crossing_place;    // then: where faces crossed in the last pass that was taken back
    NewFaults faults;        // no crossings
};

/// Progress of a checked reduction when the first result is there, and is to be looked at.
inline constexpr std::uint32_t kReducedPercent = 60;

/// Reduces each shell to a share of its faces, or to where the next collapse would spoil it.
///
/// In rounds, as `reduce_parallel`, and then more careful: open borders are thinned along
/// themselves, no collapse leaves the surface farther from where it was than a tenth of the
/// diagonal of its shell's box, or makes a sliver. The result is searched for faces that cross. If
/// any do that did not, the reduction is made again from the model, with the vertices around there
/// held. Where that would hold much of the model or does not help, the share to keep is raised;
/// when twelve passes do not help, the model is handed back as it was.
///
/// The mesh is compact afterwards, and its uses are built. Same bits for any number of threads.
/// Progress goes from 0 to 100.
/// Memory beside that of `reduce_parallel`: a copy of the mesh, and 17 MB.
///
/// @param keep  share of each shell's faces, 0 to 1
CheckedReduceReport reduce_checked(TriMesh& mesh, double keep, RunContext& run);

}  // namespace povmesh
