// What the corners of a face carry beside their position, as numbers and as keys that tell seams.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "mesh/tri_mesh.h"
#include "remesh/quadric.h"

namespace povmesh {

/// Texture coordinate of a corner; (0, 0) where it has none.
inline std::array<double, 2> corner_texture(const TriMesh& mesh, const Face& face,
                                            std::size_t corner) {
    const std::int32_t index = face.uv[corner];
    if (index < 0) return {0, 0};
    const TextureCoordinate& t = mesh.texture_coordinates[static_cast<std::size_t>(index)];
    return {t.u, t.v};
}

/// The attributes of a corner: its colour in 0..1 where the face has no label, else its texture
/// coordinate and 0.
inline Attributes corner_attributes(const TriMesh& mesh, const Face& face, std::size_t corner) {
    if (face.label >= 0) {
        const auto [u, v] = corner_texture(mesh, face, corner);
        return {u, v, 0};
    }
    const std::uint8_t* colour = &face.colour[3 * corner];
    return {colour[0] / 255.0, colour[1] / 255.0, colour[2] / 255.0};
}

/// Equal keys of two corners at a vertex: no seam runs between them.
struct CornerKey {
    std::int32_t label = -1;
    std::uint32_t colour = 0;
    double u = 0, v = 0;

    CornerKey() = default;

    /// Unlike any corner of a face.
    static CornerKey of_nothing() {
        CornerKey key;
        key.label = -2;
        return key;
    }

    CornerKey(const TriMesh& mesh, const Face& face, std::size_t corner)
        : label(std::max<std::int32_t>(face.label, -1)) {
        if (label >= 0) {
            const auto [s, t] = corner_texture(mesh, face, corner);
            u = s;
            v = t;
        } else {
            const std::uint8_t* bytes = &face.colour[3 * corner];
            colour = (static_cast<std::uint32_t>(bytes[0]) << 16) |
                     (static_cast<std::uint32_t>(bytes[1]) << 8) | bytes[2];
        }
    }
    friend bool operator==(const CornerKey&, const CornerKey&) = default;
};

/// True when the live faces differ anywhere in what their corners carry.
bool has_varied_attributes(const TriMesh& mesh);

}  // namespace povmesh
