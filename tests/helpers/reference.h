// The mesh core a second time: slow, word for word and with the plainest containers, for
// comparisons.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "mesh/build_f.h"
#include "mesh/tri_mesh.h"

namespace povmesh::reference {

TriMesh build_f(const Soup& soup);
TriMesh build_f(const ByteSoup& soup);

/// Arrays that feed a soup; colours as bytes stand beside the floats.
struct Arrays {
    std::vector<float> coordinates;
    std::vector<float> colours;
    std::vector<std::uint8_t> colour_bytes;
    std::vector<float> texture_coordinates;
    std::vector<std::int32_t> labels;
};

/// What `export_data` gives, and the mesh that comes of it.
Arrays exported(const TriMesh& mesh);
TriMesh rebuilt(const Arrays& arrays);

/// (face, corner) pairs per vertex in face order.
using UseLists = std::vector<std::vector<std::pair<std::uint32_t, std::uint32_t>>>;
UseLists use_lists(const TriMesh& mesh);

using Shells = std::vector<std::vector<std::uint32_t>>;
Shells shells(const TriMesh& mesh);

/// True when two cyclic neighbours among the face's corners are the vertices a and b.
bool holds_edge(const Face& face, std::int32_t a, std::int32_t b);

/// The live faces other than `face` that hold its edge from corner `edge` on.
std::set<std::uint32_t> across(const TriMesh& mesh, const UseLists& uses, std::uint32_t face,
                               std::size_t edge);

bool same_direction(const Face& a, const Face& b);
bool degenerate(const TriMesh& mesh, const Face& face);

struct Flaws {
    std::array<std::uint32_t, 4> counts{};  // inverted, open, non-manifold, degenerate
    std::array<std::set<std::uint32_t>, 4> faces;
};
Flaws detect(TriMesh mesh);

/// True when every edge is held by two live faces in opposite directions. An empty mesh is not.
bool is_closed_manifold(const TriMesh& mesh);

/// Where two meshes differ in faces, vertices or texture coordinates, by bits; empty when they
/// agree.
std::string difference(const TriMesh& a, const TriMesh& b);

/// The shell table as lists.
Shells as_lists(const ShellTable& table);

}  // namespace povmesh::reference
