#include "job/cavity.h"

#include <algorithm>

#include "design/wall_gauge.h"
#include "job/numbers.h"
#include "mesh/append_mesh.h"
#include "mesh/bounds.h"
#include "mesh/compact.h"
#include "mesh/edge_mates.h"

namespace povmesh {
namespace {

// A model of fewer cubes along its longest side was hardly meant in that unit.
constexpr double kCubesOfATinyModel = 12;

}  // namespace

double smallest_wall(const TriMesh& model, const TriMesh& cavity) {
    return WallGauge(model).least_distance(cavity);
}

void add_cavities(TriMesh& model, const TriMesh& cavities) {
    append_mesh(model, cavities, AppendWinding::Reversed);
    compact(model);
}

bool has_holes(TriMesh& model) {
    const EdgeMates mates(model);
    for (std::size_t f = 0; f < model.faces.size(); ++f) {
        if (model.faces[f].deleted != 0) continue;
        for (std::size_t edge = 0; edge < 3; ++edge) {
            if (mates.kind(f, edge) == EdgeMates::Kind::Open) return true;
        }
    }
    return false;
}

std::string cure_of(TriMesh& model, double cube, const std::string& otherwise) {
    const Vec3d size = to_double(finite_bounds(model).extent());
    if (std::max({size.x, size.y, size.z}) < kCubesOfATinyModel * cube) {
        return "the model is only " + human_number(size.x) + " x " + human_number(size.y) + " x " +
               human_number(size.z) +
               " units large; if its unit is the metre or the inch, scale it to millimetres first";
    }
    if (has_holes(model)) return "the model has holes: repair it first";
    return otherwise;
}

}  // namespace povmesh
