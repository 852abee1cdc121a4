// As building from a soup would, but each vertex is welded once instead of each of its corners.
#include "mesh/compact.h"

#include <algorithm>
#include <utility>

#include "base/poll.h"
#include "mesh/vertex_welder.h"

namespace povmesh {
namespace {

constexpr std::int32_t kNotMet = -1;

bool names_vertices(const Face& face, std::size_t vertex_count) {
    return std::all_of(face.vertex.begin(), face.vertex.end(), [&](std::int32_t v) {
        return v >= 0 && static_cast<std::size_t>(v) < vertex_count;
    });
}

// Copies the texture coordinates of a labelled face.
void renew_texture(Face& face, TextureDigits digits, const Array<TextureCoordinate>& old,
                   Array<TextureCoordinate>& renewed) {
    for (std::int32_t& uv : face.uv) {
        TextureCoordinate record{0, 0, static_cast<std::int32_t>(renewed.size())};
        if (uv >= 0 && static_cast<std::size_t>(uv) < old.size()) {
            const TextureCoordinate& from = old[static_cast<std::size_t>(uv)];
            const bool is_rounded = digits == TextureDigits::AsInASoup;
            record.u = is_rounded ? static_cast<double>(static_cast<float>(from.u)) : from.u;
            record.v = is_rounded ? static_cast<double>(static_cast<float>(from.v)) : from.v;
        }
        uv = record.index;
        renewed.push_back(record);
    }
}

// Neither degenerate nor with any texture: such a face stays as it is where no vertices are welded.
bool is_plain(const Face& face) {
    const auto& [a, b, c] = face.vertex;
    return face.label < 0 && (face.uv[0] & face.uv[1] & face.uv[2]) == -1 && a != b && b != c &&
           c != a;
}

struct LiveFaces {
    std::size_t count = 0;
    bool are_plain = true;  // those that are kept
};

// Removes deleted faces and those that name no vertex, numbers the used vertices as they come up in
// the others and puts those numbers into the faces; `used` gets the positions in that order.
// Without a live face the mesh stays as it is.
LiveFaces keep_live_faces(TriMesh& mesh, Array<Vec3f>& used) {
    Array<std::int32_t> number(mesh.vertices.size(), kNotMet);
    used.reserve(std::min(mesh.vertices.size(), mesh.faces.size() * 3));
    LiveFaces live;
    std::size_t kept = 0;
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        Face& face = mesh.faces[f];
        if (face.deleted != 0) continue;
        ++live.count;
        if (!names_vertices(face, mesh.vertices.size())) continue;
        for (std::int32_t& v : face.vertex) {
            std::int32_t& renumbered = number[static_cast<std::size_t>(v)];
            if (renumbered == kNotMet) {
                renumbered = static_cast<std::int32_t>(used.size());
                used.push_back(mesh.vertices[static_cast<std::size_t>(v)].position());
            }
            v = renumbered;
        }
        live.are_plain = live.are_plain && is_plain(face);
        if (kept != f) mesh.faces[kept] = face;
        ++kept;
    }
    if (live.count != 0) mesh.faces.resize(kept);
    return live;
}

// Welds positions as `build_f` would weld the corners that have them; returns the vertex of each.
Array<std::int32_t> weld(const Array<Vec3f>& positions, Array<Vertex>& vertices) {
    static_assert(sizeof(Vec3f) == 3 * sizeof(float));
    const float* const coordinates = positions.empty() ? nullptr : &positions.front().x;
    VertexWelder welder(weld_box(coordinates, positions.size()), positions.size());
    vertices.clear();
    vertices.reserve(positions.size() + VertexWelder::kBlock);
    Array<std::int32_t> welded(positions.size());
    for (std::size_t first = 0; first < positions.size(); first += VertexWelder::kBlock) {
        welder.weld_block(coordinates + 3 * first,
                          std::min(VertexWelder::kBlock, positions.size() - first),
                          welded.data() + first, vertices);
    }
    return welded;
}

}  // namespace

void compact(TriMesh& mesh, TextureDigits digits) {
    // Corners at one old vertex have the same coordinates, so each used vertex is welded once
    // instead of each corner; the order in which they come up is the same.
    Array<Vec3f> used;
    const LiveFaces live = keep_live_faces(mesh, used);
    if (live.count == 0) return;
    const Array<std::int32_t> welded = weld(used, mesh.vertices);
    mesh.shells.clear();
    mesh.use_table.clear();
    if (live.are_plain && mesh.vertices.size() == used.size()) {
        mesh.texture_coordinates = {};
        return;
    }

    Array<TextureCoordinate> texture_coordinates;
    std::size_t face_count = 0;
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        Face& face = mesh.faces[f];
        for (std::int32_t& v : face.vertex) v = welded[static_cast<std::size_t>(v)];
        const auto& [a, b, c] = face.vertex;
        if (a == b || b == c || c == a) continue;
        const bool has_texture = digits != TextureDigits::AllThatAreThere || face.uv[0] >= 0 ||
                                 face.uv[1] >= 0 || face.uv[2] >= 0;
        if (face.label >= 0 && has_texture) {
            renew_texture(face, digits, mesh.texture_coordinates, texture_coordinates);
        } else {
            face.uv.fill(-1);
        }
        if (face_count != f) mesh.faces[face_count] = face;
        ++face_count;
    }
    mesh.faces.resize(face_count);
    mesh.texture_coordinates = std::move(texture_coordinates);
}

}  // namespace povmesh
