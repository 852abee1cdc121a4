// The least set of faces to turn over so that every shell is consistent and looks out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/array.h"
#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"
#include "spatial/shell_nesting.h"

namespace povmesh {

/// What is to be turned, and the shells after it.
struct TurnedFaces {
    Array<std::uint8_t> turned;  // of every face: 1 when it is to be turned over
    std::size_t turned_count = 0;
    std::vector<ShellNesting> shells;       // as they are with those faces turned
    std::vector<std::uint32_t> one_sided;   // shells that no turning makes consistent
    std::vector<std::uint32_t> inside_out;  // closed shells that are consistent and all turned

    /// A closed shell that stays wound inward: the inner surface of a hollow body.
    bool is_cavity(std::size_t shell) const {
        return shells[shell].is_cavity() && shells[shell].signed_volume < 0;
    }
};

/// Finds for every shell of a mesh whose `shells` are labelled the faces to turn; the mesh stays.
///
/// The faces that are joined by edges of two faces are made to agree, the fewer of them turned.
/// Which side of them is out is then told by
///
/// - the volume of a closed shell: positive, but negative for one that lies in an odd number of
///   others and is wound inward already (unless `keep_cavities` is false). A shell without a volume
///   to speak of keeps the winding of most of its faces;
/// - the parity of points on both sides, where edges of four or more faces join several such sets
///   to one closed shell;
/// - the winding number beside it, for a set that is open: it is turned when it is closed by more
///   than a half and most of it looks in. A sheet keeps the winding of most of its faces.
///
/// Faces joined by an odd ring, as on a strip with a half turn, cannot agree: such a set is left as
/// it is, unless turning leaves fewer edges of opposite windings.
///
/// Time: linear, n log n for closed shells with edges of several faces; open shells 7 to 32
/// times their size. Same result for any number of threads.
TurnedFaces find_orientation(const TriMesh& mesh, const EdgeMates& mates,
                             bool keep_cavities = true);

}  // namespace povmesh
