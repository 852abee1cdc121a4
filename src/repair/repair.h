// Makes a mesh fit to print.
#pragma once

#include <cstddef>
#include <limits>

#include "mesh/tri_mesh.h"
#include "repair/hole_closing.h"

namespace povmesh {

struct RepairOptions {
    // A shell is dropped when its volume and its surface area are both below these (model units); 0
    // drops none.
    double tiny_volume = 1.0;
    double tiny_area = 1.0;
    // Duplicate faces are removed only from meshes with fewer faces than this.
    std::size_t duplicate_limit = 300000;
    // A closed shell that is wound inward and lies inside an odd number of other closed shells
    // stays so.
    bool keep_cavities = false;
};

/// What was done.
struct RepairReport {
    std::size_t dropped_shells = 0;
    std::size_t dropped_shell_faces = 0;
    std::size_t removed_duplicates = 0;
    bool were_holes_tried = false;  // false when a face has a label of 0 or more
    HoleReport holes;
    std::size_t turned_faces = 0;
    std::size_t undecided_shells = 0;  // left as they were: a part of their faces wanted turning
    std::size_t kept_cavities = 0;
};

/// Repairs in this order: drops tiny shells; removes all but the first of faces with the same three
/// vertices; closes holes of up to 50 edges, unless a face has a label of 0 or more; turns shells
/// outward; compacts.
///
/// Orientation: the walk of flaw detection, over positions tilted by 6.95011 degrees about the x
/// axis, so that flat tops have one highest vertex. Its turns are kept when they are at most 1.5 %
/// or at least 99 % of the shell's faces; in between the shell stays as it was. Then a closed,
/// consistently wound shell of negative volume is turned over whole (the walk starts at faces that
/// do not look down, and so misses an inside-out cone that stands on its base).
///
/// The positions of the input keep their bits. Linear time in the number of faces.
RepairReport repair(TriMesh& mesh, const RepairOptions& options = {});

}  // namespace povmesh
