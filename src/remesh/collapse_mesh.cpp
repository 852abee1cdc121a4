// Opposites follow from the table of edge mates; a vertex may move when turning about it from one
// half-edge to the next comes to all its triangles and back to the start.
#include "remesh/collapse_mesh.h"

#include "base/parallel.h"
#include "mesh/shells.h"

namespace povmesh {
namespace {

std::size_t index(std::int32_t v) {
    return static_cast<std::size_t>(v);
}

// The corner of the mate's half-edge that runs from b to a.
std::uint32_t corner_from(const std::array<std::int32_t, 3>& triangle, std::int32_t b) {
    return triangle[0] == b ? 0U : triangle[1] == b ? 1U : 2U;
}

void find_opposites(CollapseMesh& mesh, const EdgeMates& mates,
                    const Array<std::uint32_t>& place_of_face) {
    parallel_for(mesh.triangles.size(), [&](std::size_t t) {
        const std::uint32_t face = mesh.faces[t];
        for (std::size_t corner = 0; corner < 3; ++corner) {
            std::uint32_t& opposite = mesh.opposites[3 * t + corner];
            opposite = CollapseMesh::kNone;
            if (mates.kind(face, corner) != EdgeMates::Kind::Manifold) continue;
            if (mates.is_same_direction(face, corner)) continue;
            const std::uint32_t other = place_of_face[mates.mate(face, corner)];
            const std::int32_t b = mesh.triangles[t][next_corner(corner)];
            opposite = other * 3 + corner_from(mesh.triangles[other], b);
        }
    });
}

// A vertex moves only when its triangles form one closed fan, and when the exclusive-or of its
// neighbours, which tells rims in the other reduction too, finds no rim.
void find_fixed_vertices(CollapseMesh& mesh, std::size_t vertex_count) {
    Array<std::int32_t> rims(vertex_count, 0);
    mesh.starts.assign(vertex_count, CollapseMesh::kNone);
    mesh.valences.assign(vertex_count, 0);
    mesh.is_fixed.assign(vertex_count, 0);
    for (std::uint32_t h = 0; h < mesh.opposites.size(); ++h) {
        const std::size_t v = index(mesh.origin(h));
        rims[v] ^= mesh.target(h) ^ mesh.apex(h);
        mesh.starts[v] = h;
        ++mesh.valences[v];
    }
    parallel_for(vertex_count, [&](std::size_t v) {
        const std::uint32_t first = mesh.starts[v];
        std::uint32_t count = 0;
        std::uint32_t h = first;
        while (h != CollapseMesh::kNone && count < mesh.valences[v]) {
            ++count;
            h = mesh.turn(h);
            if (h == first) break;
        }
        const bool is_one_fan =
            first != CollapseMesh::kNone && h == first && count == mesh.valences[v];
        mesh.is_fixed[v] = !is_one_fan || rims[v] != 0 ? 1 : 0;
    });
}

}  // namespace

std::size_t CollapseMesh::pack(std::size_t begin, std::size_t end, Array<std::uint32_t>& places) {
    std::size_t live = begin;
    for (std::size_t t = begin; t < end; ++t) {
        places[t] = static_cast<std::uint32_t>(live);
        if (!is_gone(t)) ++live;
    }
    // A triangle never moves up, so what is read has not been written over.
    for (std::size_t t = begin; t < end; ++t) {
        if (is_gone(t)) continue;
        const std::size_t place = places[t];
        triangles[place] = triangles[t];
        faces[place] = faces[t];
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const std::uint32_t h = opposites[3 * t + corner];
            opposites[3 * place + corner] = h == kNone ? kNone : places[h / 3] * 3 + h % 3;
            if (!wedges.empty()) wedges[3 * place + corner] = wedges[3 * t + corner];
        }
    }
    for (std::size_t t = live; t < end; ++t) triangles[t][0] = kGone;
    return live;
}

CollapseMesh make_collapse_mesh(TriMesh& mesh) {
    CollapseMesh result;
    const EdgeMates mates(mesh);
    label_shells(mesh, mates);
    mesh.use_table.release();
    const std::size_t count = mesh.shells.faces.size();
    Array<std::uint32_t> place_of_face(mesh.faces.size());
    result.triangles.resize(count);
    result.opposites.resize(3 * count);
    result.faces = mesh.shells.faces;
    parallel_for(count, [&](std::size_t t) {
        const std::uint32_t face = result.faces[t];
        place_of_face[face] = static_cast<std::uint32_t>(t);  // each face has one place
        result.triangles[t] = mesh.faces[face].vertex;
    });
    find_opposites(result, mates, place_of_face);
    find_fixed_vertices(result, mesh.vertices.size());
    return result;
}

}  // namespace povmesh
