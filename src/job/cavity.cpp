#include "job/cavity.h"

#include <algorithm>

#include "design/wall_gauge.h"
#include "job/findings.h"
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

void doubt_windings(const TriMesh& model, Remarks& remarks) {
    const EdgeMates mates = EdgeMates::without_uses(model);
    std::size_t turned = 0;
    Vec3f place;
    for (std::size_t f = 0; f < model.faces.size(); ++f) {
        if (model.faces[f].deleted != 0) continue;
        for (std::size_t edge = 0; edge < 3; ++edge) {
            const bool is_turned = mates.kind(f, edge) == EdgeMates::Kind::Manifold &&
                                   mates.is_same_direction(f, edge) && f < mates.mate(f, edge);
            if (is_turned && turned++ == 0) place = model.corner_position(model.faces[f], edge);
        }
    }
    if (turned == 0) return;
    remarks.doubts.push_back("faces of the model are wound against each other at " +
                             counted(turned, "edge") + ", one " + place_text(place) +
                             ", so that its volume is not to be trusted; 'povmesh repair' turns "
                             "them over");
}

void warn_of_windings(const TriMesh& model, Remarks& remarks) {
    Remarks found;
    doubt_windings(model, found);
    remarks.warnings.insert(remarks.warnings.end(), found.doubts.begin(), found.doubts.end());
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
