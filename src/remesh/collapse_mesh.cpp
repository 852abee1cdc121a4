// Opposites follow from the table of edge mates; a vertex may move when turning about it from one
// half-edge to the next comes to all its triangles and back to the start.
#include "remesh/collapse_mesh.h"

#include <algorithm>

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
    mesh.opposites.assign(3 * mesh.triangles.size(), CollapseMesh::kNone);
    parallel_for(mesh.triangles.size(), [&](std::size_t t) {
        if (mesh.is_ghost(t)) return;
        const std::uint32_t face = mesh.faces[t];
        for (std::size_t corner = 0; corner < 3; ++corner) {
            if (mates.kind(face, corner) != EdgeMates::Kind::Manifold) continue;
            if (mates.is_same_direction(face, corner)) continue;
            const std::uint32_t other = place_of_face[mates.mate(face, corner)];
            const std::int32_t b = mesh.triangles[t][next_corner(corner)];
            mesh.opposites[3 * t + corner] = other * 3 + corner_from(mesh.triangles[other], b);
        }
    });
}

// The shells one behind the other, each with room for its ghosts.
void place_triangles(CollapseMesh& result, const TriMesh& mesh, const EdgeMates& mates,
                     bool has_ghosts, Array<std::uint32_t>& place_of_face) {
    const std::size_t shell_count = mesh.shells.size();
    result.offsets.assign(shell_count + 1, 0);
    place_of_face.resize(mesh.faces.size());
    std::uint32_t place = 0;
    for (std::size_t s = 0; s < shell_count; ++s) {
        std::uint32_t open_count = 0;
        for (const std::uint32_t face : mesh.shells[s]) {
            place_of_face[face] = place++;
            for (std::size_t corner = 0; corner < 3 && has_ghosts; ++corner) {
                if (mates.kind(face, corner) == EdgeMates::Kind::Open) ++open_count;
            }
        }
        place += open_count;
        result.offsets[s + 1] = place;
    }
    result.triangles.assign(place, {0, 0, result.outside});  // for now, all are ghosts
    result.faces.resize(place);
    parallel_for(mesh.shells.faces.size(), [&](std::size_t i) {
        const std::uint32_t face = mesh.shells.faces[i];
        result.faces[place_of_face[face]] = face;  // each face has one place
        result.triangles[place_of_face[face]] = mesh.faces[face].vertex;
    });
}

// A ghost (b, a, outside) for each border edge from a to b. Two that follow each other around the
// border are neighbours, unless several borders meet at their vertex or they are of two shells,
// whose borders both end in an irregular edge there.
void add_ghosts(CollapseMesh& mesh, const ShellTable& shells, const EdgeMates& mates,
                std::size_t vertex_count) {
    constexpr std::uint32_t kSeveral = CollapseMesh::kNone - 1;
    Array<std::uint32_t> from(vertex_count, CollapseMesh::kNone);  // the ghost of the edge from v
    Array<std::uint32_t> to(vertex_count, CollapseMesh::kNone);
    const auto note = [&](std::uint32_t& place, std::uint32_t ghost) {
        place = place == CollapseMesh::kNone ? ghost : kSeveral;
    };
    for (std::size_t s = 0; s < shells.size(); ++s) {
        auto ghost = static_cast<std::uint32_t>(mesh.offsets[s] + shells[s].size());
        const std::uint32_t end = 3 * ghost;
        for (std::uint32_t h = 3 * mesh.offsets[s]; h < end; ++h) {
            if (mates.kind(mesh.faces[h / 3], h % 3) != EdgeMates::Kind::Open) continue;
            mesh.triangles[ghost] = {mesh.target(h), mesh.origin(h), mesh.outside};
            const std::uint32_t edge = 3 * ghost;
            mesh.opposites[edge] = h;
            mesh.opposites[h] = edge;
            note(from[index(mesh.origin(h))], ghost);
            note(to[index(mesh.target(h))], ghost);
            ++ghost;
        }
    }
    const auto shell_after = [&](std::uint32_t ghost) {
        return std::upper_bound(mesh.offsets.begin(), mesh.offsets.end(), ghost);
    };
    mesh.is_border.assign(vertex_count + 1, 0);
    for (std::size_t v = 0; v < vertex_count; ++v) {
        if (from[v] >= kSeveral || to[v] >= kSeveral) continue;
        if (shell_after(from[v]) != shell_after(to[v])) continue;
        mesh.is_border[v] = 1;
        mesh.opposites[3 * from[v] + 1] = 3 * to[v] + 2;
        mesh.opposites[3 * to[v] + 2] = 3 * from[v] + 1;
    }
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

CollapseMesh make_collapse_mesh(TriMesh& mesh, OpenBorders borders) {
    const bool has_ghosts = borders == OpenBorders::Ghosts;
    CollapseMesh result;
    const EdgeMates mates(mesh);
    label_shells(mesh, mates);
    mesh.use_table.release();
    Array<std::uint32_t> place_of_face;
    if (has_ghosts) result.outside = static_cast<std::int32_t>(mesh.vertices.size());
    place_triangles(result, mesh, mates, has_ghosts, place_of_face);
    find_opposites(result, mates, place_of_face);
    std::size_t vertex_count = mesh.vertices.size();
    if (has_ghosts) {
        add_ghosts(result, mesh.shells, mates, vertex_count);
        ++vertex_count;  // for `outside`
    }
    find_fixed_vertices(result, vertex_count);
    if (has_ghosts) result.is_fixed.back() = 1;
    return result;
}

}  // namespace povmesh
