// Reduces, searches the result for faces that cross, and reduces again with more of the model held
// until there are none but those near crossings of the model itself.
#include "remesh/checked_reduce.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "mesh/bounds.h"
#include "mesh/compact.h"
#include "mesh/edge_mates.h"
#include "remesh/parallel_reduce.h"
#include "remesh/place_mask.h"
#include "remesh/triangle_shape.h"
#include "spatial/self_intersection.h"

namespace povmesh {
namespace {

constexpr double kMostMovement = 0.1;

// Reductions at most. Each holds twice as much around the crossings as the one before.
constexpr std::size_t kMostPasses = 6;

// Crossing pairs that are looked at; where there are more, the others come up in the next pass.
constexpr std::size_t kListedPairs = 50000;
constexpr std::size_t kKnownPairs = 1000000;

// How far around a pair the first pass holds, as a share of the size of the two.
constexpr double kFirstMargin = 0.125;

Box3d box_of(const TriMesh& mesh, std::uint32_t face) {
    Box3d box;
    for (std::size_t c = 0; c < 3; ++c) {
        box.widen(to_double(mesh.corner_position(mesh.faces[face], c)));
    }
    return box;
}

// Where two faces can meet.
Box3d common(const Box3d& a, const Box3d& b) {
    return {
        {std::max(a.low.x, b.low.x), std::max(a.low.y, b.low.y), std::max(a.low.z, b.low.z)},
        {std::min(a.high.x, b.high.x), std::min(a.high.y, b.high.y), std::min(a.high.z, b.high.z)}};
}

Box3d grown(const Box3d& box, double by) {
    return {box.low - Vec3d{by, by, by}, box.high + Vec3d{by, by, by}};
}

double size_of(const Box3d& a, const Box3d& b) {
    Box3d both = a;
    both.widen(b.low);
    both.widen(b.high);
    return length(both.extent());
}

std::array<Vec3d, 3> corners_of(const TriMesh& mesh, const Face& face) {
    return {to_double(mesh.corner_position(face, 0)), to_double(mesh.corner_position(face, 1)),
            to_double(mesh.corner_position(face, 2))};
}

NewFault slivers_of(const TriMesh& mesh) {
    NewFault found;
    for (const Face& face : mesh.faces) {
        if (face.deleted != 0 || !shape_of(corners_of(mesh, face)).is_sliver) continue;
        if (found.count++ == 0) found.place = mesh.corner_position(face, 0);
    }
    return found;
}

struct EdgeFaults {
    NewFault open, junctions;
};

EdgeFaults edge_faults_of(TriMesh& mesh) {
    EdgeFaults found;
    const EdgeMates mates(mesh);
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        for (std::size_t c = 0; c < 3 && mesh.faces[f].deleted == 0; ++c) {
            const EdgeMates::Kind kind = mates.kind(f, c);
            if (kind == EdgeMates::Kind::Manifold) continue;
            NewFault& fault = kind == EdgeMates::Kind::Open ? found.open : found.junctions;
            if (fault.count++ == 0) fault.place = mesh.corner_position(mesh.faces[f], c);
        }
    }
    found.junctions.count = mates.group_count();
    return found;
}

// What is there beyond what was there.
NewFault beyond(const NewFault& after, const NewFault& before) {
    if (after.count <= before.count) return {};
    return {after.count - before.count, after.place};
}

class CheckedReduction {
public:
    CheckedReduction(TriMesh& mesh, double keep, RunContext& run)
        : mesh_(mesh), source_(mesh), keep_(keep), run_(run) {}

    CheckedReduceReport reduce() {
        for (double margin = kFirstMargin;; margin *= 2) {
            reduce_once();
            if (!mark_new_crossings(margin)) break;
            if (report_.passes == kMostPasses) {
                take_back();
                break;
            }
            hold_marked();
        }
        compare();
        return report_;
    }

private:
    void reduce_once() {
        if (report_.passes != 0) mesh_ = source_;
        ++report_.passes;
        report_.reduction = reduce_parallel(mesh_,
                                            {.keep = keep_,
                                             .least_keep = 0,
                                             .thins_borders = true,
                                             .most_movement = kMostMovement,
                                             .makes_no_slivers = true,
                                             .held = held_},
                                            run_);
    }

    // Marks the surroundings of the pairs that cross where the model does not; false without any.
    bool mark_new_crossings(double margin) {
        const SelfIntersections found = find_self_intersections(mesh_, kListedPairs);
        report_.crossings = {};
        if (found.count == 0) return false;
        if (!known_) find_known_crossings();
        for (const FacePair& pair : found.pairs) {
            const Box3d a = box_of(mesh_, pair.first);
            const Box3d b = box_of(mesh_, pair.second);
            if (known_->meets(common(a, b))) continue;
            const double reach = margin * size_of(a, b);
            marked_.push_back(grown(a, reach));
            marked_.push_back(grown(b, reach));
            if (report_.crossings.count++ == 0) {
                report_.crossings.place = mesh_.corner_position(mesh_.faces[pair.first], 0);
            }
        }
        return report_.crossings.count != 0;
    }

    void find_known_crossings() {
        known_.emplace(finite_bounds(source_));
        for (const FacePair& pair : find_self_intersections(source_, kKnownPairs).pairs) {
            const Box3d a = box_of(source_, pair.first);
            const Box3d b = box_of(source_, pair.second);
            known_->add(grown(common(a, b), kFirstMargin * size_of(a, b)));
        }
        known_->finish();
    }

    void hold_marked() {
        PlaceMask mask(finite_bounds(source_));
        for (const Box3d& box : marked_) mask.add(box);
        mask.finish();
        held_.resize(source_.vertices.size());
        report_.held_vertices = 0;
        for (std::size_t v = 0; v < held_.size(); ++v) {
            const Vec3d p = to_double(source_.vertices[v].position());
            held_[v] = mask.meets({p, p}) ? 1 : 0;
            report_.held_vertices += held_[v];
        }
    }

    void take_back() {
        mesh_ = source_;
        compact(mesh_);
        build_uses(mesh_);
        report_.crossings = {};
        report_.held_vertices = mesh_.vertices.size();
        report_.reduction.faces_after = mesh_.faces.size();
        report_.reduction.is_reached =
            report_.reduction.faces_aimed >= report_.reduction.faces_before;
    }

    void compare() {
        report_.slivers = slivers_of(mesh_);
        if (report_.slivers.count != 0) {
            report_.slivers = beyond(report_.slivers, slivers_of(source_));
        }
        const EdgeFaults after = edge_faults_of(mesh_);
        if (after.open.count + after.junctions.count == 0) return;
        const EdgeFaults before = edge_faults_of(source_);
        report_.open_edges = beyond(after.open, before.open);
        report_.junctions = beyond(after.junctions, before.junctions);
    }

    TriMesh& mesh_;
    TriMesh source_;
    double keep_;
    RunContext& run_;
    std::optional<PlaceMask> known_;  // where the model crosses itself
    std::vector<Box3d> marked_;       // around what crossed in any pass
    std::vector<std::uint8_t> held_;
    CheckedReduceReport report_;
};

}  // namespace

CheckedReduceReport reduce_checked(TriMesh& mesh, double keep, RunContext& run) {
    return CheckedReduction(mesh, keep, run).reduce();
}

}  // namespace povmesh
