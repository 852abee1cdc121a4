// Makes a mesh fit to print.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "repair/hole_closing.h"
#include "repair/slits.h"

namespace povmesh {

struct RepairOptions {
    // A shell is dropped when its volume and its surface area are both below these (model units); 0
    // drops none.
    double tiny_volume = 1.0;
    double tiny_area = 1.0;
    // Duplicate faces are removed only from meshes with fewer faces than this.
    std::size_t duplicate_limit = 300000;
    bool remove_duplicates = true;

    bool close_holes = true;

    // What follows is off for hosts, who compare results.

    // Faces with a coordinate that is infinite or no number go.
    bool drop_misplaced = false;
    // Of duplicates that bound nothing none stays, see find_redundant_faces; else the first does.
    bool remove_idle_walls = false;
    // Slits without area are closed, see close_slits.
    bool close_slits = false;
    // A hole stays open when its filling would cut through other faces.
    bool check_fillings = false;
    // The fewest faces are turned, see find_orientation, however many they are.
    bool turn_fewest = false;
    // With turn_fewest: closed shells in the inside of others stay wound inward.
    bool keep_cavities = false;

    // Tell RepairReport::sources.
    bool tell_sources = false;
};

/// What was done.
struct RepairReport {
    std::size_t dropped_misplaced = 0;
    std::size_t dropped_shells = 0;
    std::size_t dropped_shell_faces = 0;
    std::size_t removed_duplicates = 0;
    std::size_t removed_walls = 0;  // places where all faces on one another went
    double removed_wall_area = 0;   // one side of them
    Vec3f first_wall;               // a corner of the first
    struct Wall {
        Vec3d middle;
        double area = 0;
    };
    Array<Wall> walls;  // all of them
    SlitReport slits;
    bool were_holes_tried = false;  // false when a face has a label of 0 or more
    HoleReport holes;
    std::size_t turned_faces = 0;
    std::size_t undecided_shells = 0;  // left as they were: a part of their faces wanted turning
    std::size_t one_sided_shells = 0;  // left as they were: no turning makes them consistent
    std::size_t kept_cavities = 0;
    // Of each face of the result, when asked: the one of the mesh that it was, kNewFace for those
    // that were added. Empty when vertices were welded together and a face went with them.
    Array<std::uint32_t> sources;
};

inline constexpr std::uint32_t kNewFace = 0xFFFFFFFF;

/// Repairs in this order: drops misplaced faces when asked; drops tiny shells; removes all but the
/// first of faces with the same three vertices; closes slits when asked; closes holes of up to 50
/// edges, unless a face has a label of 0 or more; turns shells outward; compacts.
///
/// Orientation, unless the fewest faces are to be turned: the walk of flaw detection, over
/// positions tilted by 6.95011 degrees about the x axis, so that flat tops have one highest vertex.
/// Its turns are kept when they are at most 1.5 % or at least 99 % of the shell's faces; in between
/// the shell stays as it was. Then a closed, consistently wound shell of negative volume is turned
/// over whole (the walk starts at faces that do not look down, and so misses an inside-out cone
/// that stands on its base).
///
/// The positions of the input keep their bits. Linear time in the number of faces; n log n where
/// fillings are checked or shells of many faces at an edge are turned.
RepairReport repair(TriMesh& mesh, const RepairOptions& options = {});

}  // namespace povmesh
