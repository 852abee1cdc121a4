#include "job/bodies.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "base/parallel.h"
#include "mesh/edge_mates.h"
#include "spatial/nearest_face.h"

namespace povmesh {
namespace {

// In the place of a body.
constexpr std::int32_t kNone = -1;
constexpr std::int32_t kSeveral = -2;

std::int32_t both(std::int32_t a, std::int32_t b) {
    if (a == kNone || a == b) return b;
    return b == kNone ? a : kSeveral;
}

std::int32_t body_of(const Face& face, const ThreeMfContent& package) {
    const auto label = static_cast<std::size_t>(face.label);  // huge for none
    return label < package.labels.size() ? static_cast<std::int32_t>(package.labels[label].body)
                                         : kNone;
}

/// New faces that hang together.
struct NewSurface {
    std::vector<std::uint32_t> faces;
    std::int32_t body = kNone;  // that it is joined to
};

std::vector<NewSurface> new_surfaces(TriMesh& mesh, const ThreeMfContent& package) {
    const EdgeMates mates(mesh);
    std::vector<bool> is_taken(mesh.faces.size());
    const auto is_new = [&](std::size_t f) {
        return mesh.faces[f].deleted == 0 && body_of(mesh.faces[f], package) == kNone;
    };
    std::vector<NewSurface> surfaces;
    for (std::uint32_t first = 0; first < mesh.faces.size(); ++first) {
        if (is_taken[first] || !is_new(first)) continue;
        NewSurface& surface = surfaces.emplace_back();
        surface.faces.push_back(first);
        is_taken[first] = true;
        for (std::size_t i = 0; i < surface.faces.size(); ++i) {
            const std::uint32_t f = surface.faces[i];
            for (std::size_t edge = 0; edge < 3; ++edge) {
                if (mates.kind(f, edge) != EdgeMates::Kind::Manifold) continue;
                const std::uint32_t beyond = mates.mate(f, edge);
                if (!is_new(beyond)) {
                    surface.body = both(surface.body, body_of(mesh.faces[beyond], package));
                } else if (!is_taken[beyond]) {
                    is_taken[beyond] = true;
                    surface.faces.push_back(beyond);
                }
            }
        }
    }
    return surfaces;
}

// The one body that is nearest to the middles of all faces.
std::int32_t nearest_body(const TriMesh& mesh, const std::vector<std::uint32_t>& faces,
                          const NearestFace& tree, const TriMesh& source,
                          const ThreeMfContent& package) {
    Array<std::int32_t> bodies(faces.size());
    parallel_for(faces.size(), [&](std::size_t i) {  // writes its own entry only
        Vec3d sum{};
        for (std::size_t c = 0; c < 3; ++c) {
            sum = sum + to_double(mesh.corner_position(mesh.faces[faces[i]], c));
        }
        const NearestPoint found = tree.find(sum / 3.0);
        bodies[i] = found.is_found() ? body_of(source.faces[found.face], package) : kSeveral;
    });
    std::int32_t body = kNone;
    for (const std::int32_t other : bodies) body = both(body, other);
    return body;
}

// The label of a body, that without a texture if it has one.
std::int16_t label_of(std::int32_t body, const ThreeMfContent& package) {
    const auto find = [&](bool has_texture) {
        return std::find_if(package.labels.begin(), package.labels.end(),
                            [&](const BodyLabel& label) {
                                return static_cast<std::int32_t>(label.body) == body &&
                                       (has_texture || label.texture < 0);
                            });
    };
    auto found = find(false);
    if (found == package.labels.end()) found = find(true);
    return found == package.labels.end()
               ? std::int16_t{-1}
               : static_cast<std::int16_t>(found - package.labels.begin());
}

}  // namespace

bool give_to_bodies(TriMesh& mesh, const TriMesh& source, const ThreeMfContent& package) {
    if (package.labels.empty()) return true;
    if (keeps_bodies(mesh, package)) return true;
    std::vector<NewSurface> surfaces = new_surfaces(mesh, package);
    std::optional<NearestFace> tree;
    std::vector<std::int16_t> labels;
    for (NewSurface& surface : surfaces) {
        if (package.bodies.size() == 1) surface.body = 0;
        if (surface.body == kNone && !source.faces.empty()) {
            if (!tree) tree.emplace(source);
            surface.body = nearest_body(mesh, surface.faces, *tree, source, package);
        }
        labels.push_back(label_of(surface.body, package));
        if (labels.back() < 0) return false;
    }
    for (std::size_t i = 0; i < surfaces.size(); ++i) {
        for (const std::uint32_t f : surfaces[i].faces) {
            mesh.faces[f].label = labels[i];
            mesh.faces[f].uv.fill(-1);
        }
    }
    return true;
}

void add_body(TriMesh& mesh, std::size_t first, const std::string& name, ThreeMfContent& package) {
    const auto set_labels = [&](std::size_t begin, std::size_t end, std::int16_t label) {
        for (std::size_t f = begin; f < end; ++f) {
            mesh.faces[f].label = label;
            mesh.faces[f].uv.fill(-1);
        }
    };
    if (first == 0) {
        package.bodies.clear();
        package.labels.clear();
    } else if (package.labels.empty()) {
        package.bodies.resize(1);
        package.labels = {{0, -1}};
        set_labels(0, first, 0);
    }
    if (package.labels.size() > std::numeric_limits<std::int16_t>::max()) return;
    set_labels(first, mesh.faces.size(), static_cast<std::int16_t>(package.labels.size()));
    package.labels.push_back({package.bodies.size(), -1});
    package.bodies.push_back(name);
}

}  // namespace povmesh
