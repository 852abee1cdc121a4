#include "mesh/compact.h"

#include <algorithm>
#include <utility>

#include "mesh/vertex_welder.h"

namespace povmesh {
namespace {

constexpr std::int32_t kNotMet = -1;

bool names_vertices(const Face& face, std::size_t vertex_count) {
    return std::all_of(face.vertex.begin(), face.vertex.end(), [&](std::int32_t v) {
        return v >= 0 && static_cast<std::size_t>(v) < vertex_count;
    });
}

// Copies the texture coordinates of a labelled face, rounded to floats as a soup carries them.
void renew_texture(Face& face, const Array<TextureCoordinate>& old,
                   Array<TextureCoordinate>& renewed) {
    for (std::int32_t& uv : face.uv) {
        TextureCoordinate record{0, 0, static_cast<std::int32_t>(renewed.size())};
        if (uv >= 0 && static_cast<std::size_t>(uv) < old.size()) {
            const TextureCoordinate& from = old[static_cast<std::size_t>(uv)];
            record.u = static_cast<double>(static_cast<float>(from.u));
            record.v = static_cast<double>(static_cast<float>(from.v));
        }
        uv = record.index;
        renewed.push_back(record);
    }
}

}  // namespace

void compact(TriMesh& mesh) {
    WeldBox box;
    std::size_t live = 0;
    std::size_t kept = 0;
    for (const Face& face : mesh.faces) {
        if (face.deleted != 0) continue;
        ++live;
        if (!names_vertices(face, mesh.vertices.size())) continue;
        mesh.faces[kept++] = face;
        for (std::size_t corner = 0; corner < 3; ++corner) {
            widen(box, mesh.corner_position(face, corner));
        }
    }
    if (live == 0) return;
    mesh.faces.resize(kept);

    // Corners at one old vertex have the same coordinates, so each old vertex is looked up once.
    VertexWelder welder(box, std::min(mesh.vertices.size(), kept / 2 + kept / 64 + 2));
    Array<std::int32_t> number(mesh.vertices.size(), kNotMet);
    Array<Vertex> vertices;
    vertices.reserve(std::min(mesh.vertices.size(), kept * 3) + 1);
    Array<TextureCoordinate> texture_coordinates;
    std::size_t face_count = 0;
    for (std::size_t f = 0; f < kept; ++f) {
        Face face = mesh.faces[f];
        for (std::int32_t& v : face.vertex) {
            std::int32_t& renumbered = number[static_cast<std::size_t>(v)];
            if (renumbered == kNotMet) {
                renumbered =
                    welder.weld(mesh.vertices[static_cast<std::size_t>(v)].position(), vertices);
            }
            v = renumbered;
        }
        const auto& [a, b, c] = face.vertex;
        if (a == b || b == c || c == a) continue;
        if (face.label >= 0) {
            renew_texture(face, mesh.texture_coordinates, texture_coordinates);
        } else {
            face.uv.fill(-1);
        }
        mesh.faces[face_count++] = face;
    }
    mesh.faces.resize(face_count);
    mesh.vertices = std::move(vertices);
    mesh.texture_coordinates = std::move(texture_coordinates);
    mesh.shells.clear();
    mesh.use_table.clear();
}

}  // namespace povmesh
