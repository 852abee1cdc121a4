// Each line asks a tree for the faces whose boxes it meets. Whether it is outside at a height
// follows from how often it passes into and out of the model below; where the surface has holes
// over the line, from the next face below alone.
#include "support/upright_lines.h"

#include <algorithm>
#include <cmath>

namespace povmesh {
namespace {

// Surfaces nearer to a place than this are taken for the one that it lies on, model units.
constexpr double kOwnSurface = 0.01;

// What the crossings of a line below a place tell.
struct LineBelow {
    double floor = -std::numeric_limits<double>::infinity();
    std::int32_t floor_way = 1;
    std::int32_t depth = 0;
    std::int32_t all = 0;

    void add(double z, std::int32_t way, bool is_below) {
        all += way;
        if (!is_below) return;
        depth -= way;
        if (z < floor) return;
        // Where two faces are at one height, the way out counts.
        floor_way = z > floor ? way : std::max(floor_way, way);
        floor = z;
    }
    bool is_outside() const { return all == 0 ? depth <= 0 : floor_way > 0; }
};

}  // namespace

double height_at(const std::array<Vec3d, 3>& p, Vec3d normal, double x, double y) {
    const auto [low, high] = std::minmax({p[0].z, p[1].z, p[2].z});
    if (normal.z == 0) return low;
    const double z = p[0].z - ((x - p[0].x) * normal.x + (y - p[0].y) * normal.y) / normal.z;
    return std::isfinite(z) ? std::clamp(z, low, high) : low;
}

UprightLines::UprightLines(const TriMesh& mesh) : mesh_(mesh) {
    Array<Box3f> boxes;
    boxes.reserve(mesh.faces.size());
    for (const Face& face : mesh.faces) {
        boxes.push_back(face.deleted != 0 ? Box3f{} : face_box(mesh, face));
    }
    tree_ = FaceTree(boxes);
}

std::array<Vec3d, 3> UprightLines::corners(std::uint32_t face) const {
    std::array<Vec3d, 3> p;
    for (std::size_t i = 0; i < 3; ++i) {
        p[i] = to_double(mesh_.corner_position(mesh_.faces[face], i));
    }
    return p;
}

UprightLines::Below UprightLines::look_down(Vec3d from) const {
    LineBelow line;
    for_each(from.x, from.y, [&](double z, std::int32_t way, std::uint32_t /*face*/) {
        line.add(z, way, z <= from.z - kOwnSurface);
    });
    return {line.floor, line.is_outside()};
}

bool UprightLines::is_free(double x, double y, double low, double high) const {
    if (!(low < high)) return true;
    // First the stretch alone: around a hub there are many faces above and below it.
    bool is_crossed = false;
    for_each(x, y, low, high, [&](double z, std::int32_t /*way*/, std::uint32_t /*face*/) {
        is_crossed = is_crossed || (z > low && z < high);
    });
    if (is_crossed) return false;
    LineBelow line;
    for_each(x, y, [&](double z, std::int32_t way, std::uint32_t /*face*/) {
        line.add(z, way, z < high);
    });
    return line.is_outside();
}

}  // namespace povmesh
