#include "job/apart.h"

#include <utility>
#include <vector>

#include "base/array.h"
#include "base/convert.h"
#include "job/model_file.h"
#include "mesh/bounds.h"

namespace povmesh {
namespace {

// How far bodies move, in distances of their own middles from that of the scene.
constexpr double kExplosion = 0.6;

Vec3d middle(const Box3d& box) {
    return box.is_empty() ? Vec3d{} : box.low * 0.5 + box.high * 0.5;
}

}  // namespace

Box3d scene_box_of(const TriMesh& mesh) {
    const Box3f box = finite_bounds(mesh);
    return box.is_empty() ? Box3d{} : Box3d{to_double(box.low), to_double(box.high)};
}

picture::Image draw_apart(std::span<TriMesh> bodies, const Box3d& whole,
                          const picture::RenderOptions& options) {
    picture::Scene scene;
    std::vector<Array<Vertex>> places;
    for (TriMesh& body : bodies) {
        places.push_back(body.vertices);
        const Vec3d by = (middle(scene_box_of(body)) - middle(whole)) * kExplosion;
        for (Vertex& vertex : body.vertices) {
            vertex.x = narrow_to_float(static_cast<double>(vertex.x) + by.x);
            vertex.y = narrow_to_float(static_cast<double>(vertex.y) + by.y);
            vertex.z = narrow_to_float(static_cast<double>(vertex.z) + by.z);
        }
        picture::Model model;
        model.mesh = &body;
        model.use_face_colours = has_colours(body);
        if (scene.size() % 2 == 1) model.colour = picture::palette::kSecondary;
        scene.push_back(model);
    }
    picture::Image image = picture::render(scene, options);
    for (std::size_t i = 0; i < bodies.size(); ++i) bodies[i].vertices = std::move(places[i]);
    return image;
}

}  // namespace povmesh
