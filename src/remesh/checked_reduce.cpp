// Reduces, searches the result for faces that cross, and reduces the model again: with the vertices
// around there held, or with a larger share of the faces, until no faces cross but near crossings
// of the model itself.
#include "remesh/checked_reduce.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "base/poll.h"
#include "mesh/bounds.h"
#include "mesh/compact.h"
#include "mesh/copy_mesh.h"
#include "mesh/edge_mates.h"
#include "remesh/parallel_reduce.h"
#include "remesh/place_mask.h"
#include "remesh/triangle_shape.h"
#include "spatial/self_intersection.h"

namespace povmesh {
namespace {

// How far the surface may be from where it was, as a share of the diagonal of its shell's box.
constexpr float kMostMovement = 0.1F;

// Reductions at most, and at most with one target.
constexpr std::size_t kMostPasses = 12;
constexpr std::size_t kPassesOfATarget = 4;

// Where more of the vertices would be held, what is left could not bear the whole reduction. The
// target is raised instead, by this factor on what was reached; after a few passes by more.
constexpr double kMostHeld = 0.1;
constexpr double kNextTarget = 1.5;
constexpr double kLastTarget = 3;
constexpr std::size_t kSmallSteps = 6;

// Crossing pairs that are looked at; where there are more, the others come up in the next pass.
constexpr std::size_t kListedPairs = 50000;
constexpr std::size_t kKnownPairs = 1000000;

// Progress when the last pass has been looked at.
constexpr double kLookedAtPercent = 95;

// A border that was divided anew may be longer by so much.
constexpr double kSameLength = 1.001;

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
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        if (face.deleted != 0 || !shape_of(corners_of(mesh, face)).is_sliver) continue;
        if (found.count++ == 0) found.place = mesh.corner_position(face, 0);
    }
    return found;
}

struct FaultyEdges : NewFault {
    double length = 0;  // of all of them, each as often as a face holds it
};

struct EdgeFaults {
    FaultyEdges open, junctions;
};

EdgeFaults edge_faults_of(TriMesh& mesh) {
    EdgeFaults found;
    const EdgeMates mates(mesh);
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        for (std::size_t c = 0; c < 3 && mesh.faces[f].deleted == 0; ++c) {
            const EdgeMates::Kind kind = mates.kind(f, c);
            if (kind == EdgeMates::Kind::Manifold) continue;
            FaultyEdges& edges = kind == EdgeMates::Kind::Open ? found.open : found.junctions;
            const Vec3f from = mesh.corner_position(mesh.faces[f], c);
            const Vec3f to = mesh.corner_position(mesh.faces[f], (c + 1) % 3);
            edges.length += length(to_double(to) - to_double(from));
            if (edges.count++ == 0) edges.place = from;
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

// A border of shorter edges is no longer one.
NewFault beyond(const FaultyEdges& after, const FaultyEdges& before) {
    if (after.length <= kSameLength * before.length) return {};
    return beyond(static_cast<const NewFault&>(after), before);
}

// Around where a mesh crosses itself.
PlaceMask crossings_of(const TriMesh& mesh) {
    PlaceMask mask(finite_bounds(mesh));
    for (const FacePair& pair : find_self_intersections(mesh, kKnownPairs).pairs) {
        const Box3d a = box_of(mesh, pair.first);
        const Box3d b = box_of(mesh, pair.second);
        mask.add(grown(common(a, b), kFirstMargin * size_of(a, b)));
    }
    mask.finish();
    return mask;
}

NewFault new_crossings(const TriMesh& before, const TriMesh& after) {
    NewFault found;
    const SelfIntersections all = find_self_intersections(after, kListedPairs);
    if (all.count == 0) return found;
    const PlaceMask known = crossings_of(before);
    for (const FacePair& pair : all.pairs) {
        if (known.meets(common(box_of(after, pair.first), box_of(after, pair.second)))) continue;
        if (found.count++ == 0) found.place = after.corner_position(after.faces[pair.first], 0);
    }
    return found;
}

void add_shape_and_edge_faults(TriMesh& before, TriMesh& after, NewFaults& faults) {
    faults.slivers = slivers_of(after);
    if (faults.slivers.count != 0) faults.slivers = beyond(faults.slivers, slivers_of(before));
    const EdgeFaults edges = edge_faults_of(after);
    if (edges.open.count + edges.junctions.count == 0) return;
    const EdgeFaults known = edge_faults_of(before);
    faults.open_edges = beyond(edges.open, known.open);
    faults.junctions = beyond(edges.junctions, known.junctions);
}

class CheckedReduction {
public:
    CheckedReduction(TriMesh& mesh, double keep, RunContext& run)
        : mesh_(mesh), source_(copy_mesh(mesh)), keep_(keep), run_(run) {}

    CheckedReduceReport reduce() {
        release();
        while (reduce_once(), mark_new_crossings()) {
            if (report_.passes == kMostPasses || keep_ >= 1) {
                take_back();
                break;
            }
            hold_marked();
            if (holding_is_of_no_use()) raise_target();
        }
        tell_target();
        // No crossing is left here.
        add_shape_and_edge_faults(source_, mesh_, report_.faults);
        run_.progress.set(100);
        return report_;
    }

private:
    // One pass is what most models take; each further one gets half of what is left.
    void advance_to(double percent) {
        percent_ = percent;
        run_.progress.set(static_cast<std::uint32_t>(percent));
    }
    double half_of_the_rest() const { return percent_ + (kLookedAtPercent - percent_) / 2; }

    void reduce_once() {
        if (report_.passes != 0) copy_mesh(source_, mesh_);
        ++report_.passes;
        ++passes_of_target_;
        std::vector<float> movement(held_.size());
        for (std::size_t v = 0; v < movement.size(); ++v) {
            movement[v] = held_[v] != 0 ? 0 : kMostMovement;
        }
        const double from = percent_;
        const double to = report_.passes == 1 ? kReducedPercent : half_of_the_rest();
        const ProgressObserver observer = [&](std::uint32_t percent) {
            advance_to(from + (to - from) * percent / 100);
        };
        report_.reduction = reduce_parallel(mesh_,
                                            {.keep = keep_,
                                             .least_keep = 0,
                                             .thins_borders = true,
                                             .most_movement = movement,
                                             .makes_no_slivers = true,
                                             .progress = Progress(nullptr, &observer)},
                                            run_);
        const ReduceReport& made = report_.reduction;
        if (report_.passes == 1) aimed_ = made.faces_aimed;
        if (passes_of_target_ == 1 && made.faces_before != 0) {
            share_without_holds_ =
                static_cast<double>(made.faces_after) / static_cast<double>(made.faces_before);
        }
    }

    // Marks the surroundings of the pairs that cross where the model does not; false without any.
    bool mark_new_crossings() {
        report_.faults.crossings = {};
        if (report_.reduction.faces_after == report_.reduction.faces_before) return false;
        const SelfIntersections found = find_self_intersections(mesh_, kListedPairs);
        advance_to(half_of_the_rest());
        if (found.count == 0) return false;
        if (!known_) known_.emplace(crossings_of(source_));
        for (const FacePair& pair : found.pairs) {
            const Box3d a = box_of(mesh_, pair.first);
            const Box3d b = box_of(mesh_, pair.second);
            if (known_->meets(common(a, b))) continue;
            const double smaller = std::min(length(a.extent()), length(b.extent()));
            marked_.push_back(grown(common(a, b), margin_ * smaller));
            if (report_.faults.crossings.count++ == 0) {
                report_.faults.crossings.place = mesh_.corner_position(mesh_.faces[pair.first], 0);
                report_.crossing_place = report_.faults.crossings.place;
            }
        }
        return report_.faults.crossings.count != 0;
    }

    void hold_marked() {
        PlaceMask mask(finite_bounds(source_));
        for (const Box3d& box : marked_) mask.add(box);
        mask.finish();
        held_count_ = 0;
        for (std::size_t v = 0; v < held_.size(); ++v) {
            const Vec3d p = to_double(source_.vertices[v].position());
            held_[v] = mask.meets({p, p}) ? 1 : 0;
            held_count_ += held_[v];
        }
        margin_ *= 2;
    }

    void release() {
        marked_.clear();
        held_.assign(source_.vertices.size(), 0);
        margin_ = kFirstMargin;
        passes_of_target_ = 0;
    }

    bool holding_is_of_no_use() {
        const bool are_many =
            static_cast<double>(held_count_) > kMostHeld * static_cast<double>(held_.size());
        const bool are_more =
            passes_of_target_ > 1 && report_.faults.crossings.count > 2 * crossings_;
        crossings_ = report_.faults.crossings.count;
        return are_many || are_more || passes_of_target_ == kPassesOfATarget;
    }

    void raise_target() {
        keep_ = share_without_holds_ * (report_.passes <= kSmallSteps ? kNextTarget : kLastTarget);
        report_.is_eased = true;
        release();
    }

    // Of the target asked for, not of those that took its place.
    void tell_target() {
        report_.reduction.faces_aimed = aimed_;
        if (report_.is_eased) report_.reduction.is_reached = false;
    }

    void take_back() {
        copy_mesh(source_, mesh_);
        compact(mesh_);
        build_uses(mesh_);
        report_.faults.crossings = {};
        report_.is_eased = true;
        report_.reduction.faces_after = mesh_.faces.size();
    }

    TriMesh& mesh_;
    TriMesh source_;
    double keep_;
    RunContext& run_;
    std::optional<PlaceMask> known_;  // where the model crosses itself
    std::vector<Box3d> marked_;       // around what crossed in any pass
    std::vector<std::uint8_t> held_;  // a byte for each vertex of the model
    std::size_t held_count_ = 0;
    std::size_t crossings_ = 0;       // of the pass before
    std::size_t aimed_ = 0;           // faces, with the target asked for
    double share_without_holds_ = 0;  // of the faces, that the first pass of a target left
    std::size_t passes_of_target_ = 0;
    double percent_ = 0;            // of the progress
    double margin_ = kFirstMargin;  // around the crossings, as a share of the size of their faces
    CheckedReduceReport report_;
};

}  // namespace

NewFaults find_new_faults(TriMesh& before, TriMesh& after) {
    NewFaults faults;
    faults.crossings = new_crossings(before, after);
    add_shape_and_edge_faults(before, after, faults);
    return faults;
}

CheckedReduceReport reduce_checked(TriMesh& mesh, double keep, RunContext& run) {
    return CheckedReduction(mesh, keep, run).reduce();
}

}  // namespace povmesh
