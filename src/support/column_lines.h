// Where vertical lines in a square pattern pass through the surface of a mesh.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// Lines at (first_x + i * spacing_x, first_y + j * spacing_y), i below count_x, j below count_y.
struct LineLattice {
    double first_x = 0;
    double first_y = 0;
    double spacing_x = 1;
    double spacing_y = 1;
    std::size_t count_x = 0;
    std::size_t count_y = 0;
};

/// A line passes through a face.
struct LineCrossing {
    std::uint32_t i;   // of the line, in its row
    float z;           // relative to the origin
    float steepness;   // |cosine| between normal and z axis: 1 for a level face
    std::int32_t way;  // going up: 1 where the face is passed from its back to its front, else -1

    friend bool operator==(const LineCrossing&, const LineCrossing&) = default;
};

/// Finds crossings row by row.
///
/// A line that meets an edge or a vertex passes through just as many of the faces there as one
/// right beside it, so that the ways of all crossings of a line add up to 0 where the mesh is
/// closed. Faces with a coordinate that is not finite are left out.
///
/// Setting up takes time linear in faces and the rows that they reach, 4 bytes for each of those
/// and 24 a vertex. Rows may be asked for at the same time.
class ColumnLines {
public:
    /// @param mesh  outlives the lines
    /// @param origin  model coordinates of the lattice's zero
    /// @param is_ignored  by face: not 0 where its slope is not to count; outlives the lines
    ColumnLines(const TriMesh& mesh, Vec3f origin, const LineLattice& lattice,
                std::span<const std::uint8_t> is_ignored);

    /// The crossings of row j with the pattern moved by (dx, dy), which is at most half a spacing:
    /// by line, then by height; at one height those with way -1 first. Replaces `crossings`.
    void find(std::size_t j, double dx, double dy, Array<LineCrossing>& crossings) const;

private:
    void cross(std::uint32_t face, double x0, double y, Array<LineCrossing>& crossings) const;

    const TriMesh& mesh_;
    LineLattice lattice_;
    std::span<const std::uint8_t> is_ignored_;
    Array<Vec3d> points_;  // by vertex, relative to the origin
    Array<std::size_t> row_offsets_;
    Array<std::uint32_t> row_faces_;  // those that the row's lines may meet wherever it is moved
};

}  // namespace povmesh
