// By the nearest point: each new corner, drawn a little into its face, is dropped onto the old
// surface, and what the old face's corners carry is weighted by the barycentric coordinates there.
#include "remesh/carry_attributes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "base/convert.h"
#include "base/parallel.h"
#include "remesh/corner_attributes.h"

namespace povmesh {
namespace {

// How far towards the middle of the face its corners are looked up.
constexpr double kInside = 0.02;

Triangle3d triangle_of(const TriMesh& mesh, const Face& face) {
    return {to_double(mesh.corner_position(face, 0)), to_double(mesh.corner_position(face, 1)),
            to_double(mesh.corner_position(face, 2))};
}

class Carrier {
public:
    Carrier(const TriMesh& from, const NearestFace& tree, TriMesh& to)
        : from_(from), tree_(tree), to_(to) {}

    void run() {
        const std::size_t count = to_.faces.size();
        texture_.resize(3 * count);
        parallel_for(count, [&](std::size_t f) { carry(f); });  // writes only its own entries
        for (std::size_t f = 0; f < count; ++f) {
            if (to_.faces[f].label < 0) continue;
            for (std::size_t corner = 0; corner < 3; ++corner) {
                const auto [u, v] = texture_[3 * f + corner];
                const auto record = static_cast<std::int32_t>(to_.texture_coordinates.size());
                to_.texture_coordinates.push_back({u, v, record});
                to_.faces[f].uv[corner] = record;
            }
        }
    }

private:
    void carry(std::size_t f) {
        Face& face = to_.faces[f];
        const Triangle3d corners = triangle_of(to_, face);
        const Vec3d middle = (corners[0] + corners[1] + corners[2]) / 3.0;
        const NearestPoint under = tree_.find(middle);
        if (!under.is_found()) return;
        face.label = from_.faces[under.face].label;
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const Vec3d p = corners[corner];
            NearestPoint found = tree_.find(p + (middle - p) * kInside);
            if (!found.is_found() || from_.faces[found.face].label != face.label) {
                found = nearest_on_triangle(p, triangle_of(from_, from_.faces[under.face]));
                found.face = under.face;
            }
            take(face, corner, found, texture_[3 * f + corner]);
        }
    }

    void take(Face& face, std::size_t corner, const NearestPoint& found,
              std::array<double, 2>& texture) const {
        const Face& source = from_.faces[found.face];
        texture = {0, 0};
        std::array<double, 3> colour{};
        for (std::size_t i = 0; i < 3; ++i) {
            const double weight = found.weights[i];
            for (std::size_t k = 0; k < 3; ++k) colour[k] += weight * source.colour[3 * i + k];
            const auto [u, v] = corner_texture(from_, source, i);
            texture[0] += weight * u;
            texture[1] += weight * v;
        }
        for (std::size_t k = 0; k < 3; ++k) {
            face.colour[3 * corner + k] = saturate_to<std::uint8_t>(colour[k] + 0.5);
        }
    }

    const TriMesh& from_;
    const NearestFace& tree_;
    TriMesh& to_;
    Array<std::array<double, 2>> texture_;  // a corner
};

}  // namespace

void carry_attributes(const TriMesh& from, const NearestFace* tree, TriMesh& to) {
    const auto first = std::find_if(from.faces.begin(), from.faces.end(),
                                    [](const Face& face) { return face.deleted == 0; });
    if (first == from.faces.end()) return;
    if (first->label < 0 && !has_varied_attributes(from)) {
        for (Face& face : to.faces) face.colour = first->colour;
    } else if (tree != nullptr) {
        Carrier(from, *tree, to).run();
    } else {
        Carrier(from, NearestFace(from), to).run();
    }
}

void carry_colours(const TriMesh& from, TriMesh& to, std::size_t first) {
    const bool has_any = std::any_of(from.faces.begin(), from.faces.end(), [](const Face& face) {
        return face.deleted == 0 &&
               std::any_of(face.colour.begin(), face.colour.end(),
                           [](std::uint8_t channel) { return channel != 255; });
    });
    if (!has_any || first >= to.faces.size()) return;
    TriMesh coloured;
    coloured.vertices = from.vertices;
    coloured.faces = from.faces;
    for (Face& face : coloured.faces) face.label = -1;
    TriMesh surface;
    surface.vertices = to.vertices;
    surface.faces.assign(to.faces.begin() + static_cast<std::ptrdiff_t>(first), to.faces.end());
    carry_attributes(coloured, nullptr, surface);
    for (std::size_t i = 0; i < surface.faces.size(); ++i) {
        to.faces[first + i].colour = surface.faces[i].colour;
    }
}

}  // namespace povmesh
