// Divides a mesh into bodies: shells that touch or intersect stay together.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/array.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// Shells in groups: group g holds shells[offsets[g]] to shells[offsets[g + 1] - 1] in ascending
/// order; groups are ordered by their lowest shell.
struct ShellGroups {
    Array<std::uint32_t> offsets;
    Array<std::uint32_t> shells;
    std::uint64_t tested_face_pairs = 0;  // the exact tests that it took to find them

    std::size_t size() const { return offsets.empty() ? 0 : offsets.size() - 1; }
    std::span<const std::uint32_t> operator[](std::size_t group) const {
        return {shells.data() + offsets[group], shells.data() + offsets[group + 1]};
    }
};

struct SeparationOptions {
    // A cavity, a closed shell inside an odd number of other closed shells, goes with the shell
    // around it, and so does one that is wound inward when the innermost around it is not, however
    // many there are. Otherwise shells are apart unless their faces meet, however they are nested.
    bool keep_cavities = false;

    // Look at all faces of a shell, however many it has.
    bool all_faces = false;
};

/// Groups the shells of a mesh whose `shells` are labelled. Two shells belong together when a face
/// of one and a face of the other have a point in common, exactly (see triangles_intersect), and so
/// do the shells that they are each together with.
///
/// Two properties hosts rely on: a shell of 10,000 faces or more is represented by about ten
/// thousand of them unless all are asked for; and shells are compared only when the boxes of those
/// faces overlap by more than their borders, so that boxes which only lie against each other stay
/// apart. (A box begins at 1e6 and -1e6 on each axis: beyond a million units it reaches back to
/// there.)
///
/// Time: about n log n in faces and shells, plus the face pairs whose boxes overlap between shells
/// not yet known to be together; where these are very many, of boxes turned along the faces.
/// Memory: about 50 bytes a face of the shells whose boxes overlap.
ShellGroups group_intersecting_shells(const TriMesh& mesh);

/// The same with options. Makes the uses of the mesh when it looks for cavities.
ShellGroups group_shells(TriMesh& mesh, const SeparationOptions& options);

/// Replaces `mesh.parts` by one mesh a group: the faces of its shells, shell after shell in their
/// order there, as `build_f` would build them from a soup. Texture coordinates are rounded to
/// 32-bit floats. The mesh itself stays. Linear time.
void build_parts(TriMesh& mesh, const ShellGroups& groups);

/// Labels the shells, groups them and builds the parts.
void separate_bodies(TriMesh& mesh, const SeparationOptions& options = {});

}  // namespace povmesh
