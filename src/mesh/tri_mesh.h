// The triangle mesh that every operation works on.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/array.h"
#include "base/vec.h"

namespace povmesh {

/// The corners of a triangle after and before a corner, in the winding order.
constexpr std::size_t next_corner(std::size_t corner) {
    return corner == 2 ? 0 : corner + 1;
}
constexpr std::size_t previous_corner(std::size_t corner) {
    return corner == 0 ? 2 : corner - 1;
}

/// One triangle. Operations delete a face by its flag and leave the record in place; `compact`
/// removes it.
struct Face {
    std::array<std::uint8_t, 9> colour;  // R, G, B of corner 0, 1, 2; 255 where none was given
    std::uint8_t deleted;                // 0 = live
    std::int16_t label;                  // group or material number; -1 = none
    std::array<std::int32_t, 3> vertex;  // indices into TriMesh::vertices, in winding order
    std::array<std::int32_t, 3> uv;      // indices into TriMesh::texture_coordinates; -1 = none
};
static_assert(sizeof(Face) == 36);

struct Vertex {
    float x, y, z;
    std::int32_t index;  // its own position in TriMesh::vertices when it was made

    Vec3f position() const { return {x, y, z}; }
};
static_assert(sizeof(Vertex) == 16);

struct TextureCoordinate {
    double u, v;
    std::int32_t index;  // its own position when it was made
};

/// One corner of a face seen from its vertex. The vertices of the face's other two corners stand
/// beside it, so that questions about edges need not touch the face records.
struct Use {
    std::uint32_t face_and_corner;  // face * 4 + corner
    std::int32_t next;              // vertex after this corner in the winding order
    std::int32_t previous;          // vertex before it

    std::uint32_t face() const { return face_and_corner >> 2; }
    std::uint32_t corner() const { return face_and_corner & 3; }
};
static_assert(sizeof(Use) == 12);

/// The uses of every vertex in compressed rows: row v holds the corners at vertex v in the order of
/// their faces, deleted faces included.
///
/// Invariants: offsets is empty (not built) or has one entry more than there are vertices, starts
/// at 0, never falls, and ends at uses.size().
struct UseTable {
    Array<std::uint32_t> offsets;
    Array<Use> uses;

    bool is_built() const { return !offsets.empty(); }
    std::span<const Use> row(std::size_t vertex) const {
        return {uses.data() + offsets[vertex], uses.data() + offsets[vertex + 1]};
    }
    /// Empties the table but keeps its memory for the next one; `release` gives that back.
    void clear() {
        offsets.clear();
        uses.clear();
    }
    void release() {
        Array<std::uint32_t>().swap(offsets);
        Array<Use>().swap(uses);
    }
};

/// Faces grouped by connection over edges: shell s holds faces[offsets[s]] to
/// faces[offsets[s + 1] - 1], in the order in which the labelling reached them.
struct ShellTable {
    Array<std::uint32_t> offsets;  // empty, or shell count + 1 entries
    Array<std::uint32_t> faces;

    std::size_t size() const { return offsets.empty() ? 0 : offsets.size() - 1; }
    std::span<const std::uint32_t> operator[](std::size_t shell) const {
        return {faces.data() + offsets[shell], faces.data() + offsets[shell + 1]};
    }
    void clear() {
        offsets = {};
        faces = {};
    }
};

/// Greatest number of triangles of a mesh: three separate corners a triangle still have a signed
/// 32-bit vertex index each.
constexpr std::size_t kMaxFaceCount = 0x7FFFFFFF / 3;

/// A mesh, an aggregate of growable arrays.
///
/// Invariants of a mesh made by `build_f` or `compact`: the vertex indices of a face are in range
/// and pairwise different, its uv indices are in range or -1, and `index` is the position of every
/// vertex and texture coordinate. Vertices without a face are allowed.
struct TriMesh {
    Array<Face> faces;
    Array<Vertex> vertices;
    Array<TextureCoordinate> texture_coordinates;
    ShellTable shells;           // filled by `label_shells`
    UseTable use_table;          // filled by `ensure_uses`
    std::vector<TriMesh> parts;  // filled by operations that split a mesh

    /// The corners at a vertex, in the order of their faces. The table must have been built.
    std::span<const Use> uses(std::size_t vertex) const { return use_table.row(vertex); }

    Vec3f corner_position(const Face& face, std::size_t corner) const {
        return vertices[static_cast<std::size_t>(face.vertex[corner])].position();
    }
};

/// Builds the use table of a mesh whose face indices are all in range, in one counting pass over
/// the faces. Linear time; 12 bytes a corner and 4 a vertex.
void build_uses(TriMesh& mesh);

/// Builds the use table unless it is there. Whoever appends faces or changes their vertices clears
/// it.
void ensure_uses(TriMesh& mesh);

/// Number of faces that are not deleted.
std::size_t live_face_count(const TriMesh& mesh);

/// True when every face index lies within its array and the use table, if built, holds each corner
/// exactly once at its vertex, in face order. For assertions and tests; linear time.
bool is_consistent(const TriMesh& mesh);

/// Reverses the winding of a face: exchanges corners 0 and 1 with their colours and, for a face
/// with a label of 0 or more, their texture coordinates. Applied twice it restores the face. The
/// use table, which records winding, is stale afterwards.
void reverse_winding(Face& face);

}  // namespace povmesh
