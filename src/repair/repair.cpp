// The stages of a repair, each on the edge table and the shells of the faces that are left: small
// shells, duplicates, holes, windings. What is deleted stays in place until the last step.
#include "repair/repair.h"

#include <algorithm>
#include <optional>
#include <span>
#include <utility>

#include "base/poll.h"
#include "base/rotation.h"
#include "mesh/compact.h"
#include "mesh/edge_mates.h"
#include "mesh/shells.h"
#include "mesh/volume.h"
#include "repair/duplicates.h"
#include "repair/filling_check.h"
#include "repair/orientation.h"
#include "repair/shell_walk.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

constexpr double kTiltDegrees = 6.95011;
constexpr double kNoLowest = 1000000000.0;

// Shares of turned faces up to which, and from which on, the walk is believed.
constexpr float kAlmostNone = 0.015F;
constexpr float kAlmostAll = 0.99F;

struct Measures {
    double volume = 0;  // signed
    double area = 0;
};

Measures measure(const TriMesh& mesh, std::span<const std::uint32_t> shell) {
    double lowest = kNoLowest;
    Poller poller;
    for (const std::uint32_t f : shell) {
        poller();
        for (std::size_t c = 0; c < 3; ++c) {
            const auto z = static_cast<double>(mesh.corner_position(mesh.faces[f], c).z);
            if (z < lowest) lowest = z;
        }
    }
    const Vec3d origin{0, 0, lowest};
    Measures sum;
    for (const std::uint32_t f : shell) {
        poller();
        const Face& face = mesh.faces[f];
        const Vec3d a = to_double(mesh.corner_position(face, 0)) - origin;
        const Vec3d b = to_double(mesh.corner_position(face, 1)) - origin;
        const Vec3d c = to_double(mesh.corner_position(face, 2)) - origin;
        sum.volume += dot(a, cross(b, c));
        sum.area += length(cross(b - a, c - a)) / 2;
    }
    sum.volume /= 6.0;
    return sum;
}

class Repairer {
public:
    Repairer(TriMesh& mesh, const RepairOptions& options) : mesh_(mesh), options_(options) {}

    RepairReport run() {
        if (options_.drop_misplaced) drop_misplaced();
        label();
        drop_tiny_shells();
        remove_duplicates();
        if (options_.close_slits) close_slits_without_area();
        close_small_holes();
        if (options_.turn_fewest) {
            turn_fewest();
        } else {
            turn_from_the_top();
        }
        if (options_.tell_sources) tell_sources();
        compact(mesh_);
        if (report_.sources.size() != mesh_.faces.size()) report_.sources.clear();
        return std::move(report_);
    }

private:
    void label() {
        mates_.emplace(mesh_);
        label_shells(mesh_, *mates_);
        is_changed_ = false;
    }

    // Edge table and shells of the faces that are live now.
    void label_again() {
        if (is_changed_) label();
    }

    void tell_sources() {
        for (std::uint32_t f = 0; f < mesh_.faces.size(); ++f) {
            poll_at(f);
            if (mesh_.faces[f].deleted != 0) continue;
            report_.sources.push_back(f < face_count_ ? f : kNewFace);
        }
    }

    void drop_misplaced() {
        for (Face& face : mesh_.faces) {
            if (face.deleted != 0 || is_finite(triangle_of(mesh_, face))) continue;
            face.deleted = 1;
            ++report_.dropped_misplaced;
        }
    }

    void drop_tiny_shells() {
        for (std::size_t s = 0; s < mesh_.shells.size(); ++s) {
            const Measures size = measure(mesh_, mesh_.shells[s]);
            const double volume = size.volume > 0 ? size.volume : 0.0;
            if (!(volume < options_.tiny_volume && size.area < options_.tiny_area)) continue;
            for (const std::uint32_t face : mesh_.shells[s]) mesh_.faces[face].deleted = 1;
            ++report_.dropped_shells;
            report_.dropped_shell_faces += mesh_.shells[s].size();
            is_changed_ = true;
        }
    }

    void remove_duplicates() {
        if (!options_.remove_duplicates || mesh_.faces.size() >= options_.duplicate_limit) return;
        Array<std::uint32_t> duplicates;
        if (options_.remove_idle_walls) {
            label_again();
            RedundantFaces redundant = find_redundant_faces(mesh_, *mates_);
            note_walls(redundant.walls);
            duplicates = std::move(redundant.faces);
        } else {
            duplicates = find_duplicate_faces(mesh_);
        }
        for (const std::uint32_t face : duplicates) mesh_.faces[face].deleted = 1;
        report_.removed_duplicates = duplicates.size();
        if (!duplicates.empty()) is_changed_ = true;
    }

    void note_walls(std::span<const std::uint32_t> walls) {
        report_.removed_walls = walls.size();
        for (const std::uint32_t face : walls) {
            const double area = face_area(mesh_, mesh_.faces[face]);
            report_.removed_wall_area += area;
            Vec3d sum;
            for (std::size_t c = 0; c < 3; ++c) {
                sum = sum + to_double(mesh_.corner_position(mesh_.faces[face], c));
            }
            report_.walls.push_back({sum / 3.0, area});
        }
        if (!walls.empty()) {
            report_.first_wall = mesh_.corner_position(mesh_.faces[walls.front()], 0);
        }
    }

    void close_slits_without_area() {
        label_again();
        report_.slits = close_slits(mesh_, *mates_);
        if (report_.slits.split_faces > 0) is_changed_ = true;
    }

    void close_small_holes() {
        const bool has_label =
            std::any_of(mesh_.faces.begin(), mesh_.faces.end(),
                        [](const Face& face) { return face.deleted == 0 && face.label >= 0; });
        if (has_label || !options_.close_holes) return;
        report_.were_holes_tried = true;
        label_again();
        report_.holes = close_holes(mesh_, *mates_);
        if (options_.check_fillings) undo_crossing_fillings(mesh_, report_.holes);
        if (report_.holes.added_face_count > 0) is_changed_ = true;
    }

    void turn_fewest() {
        label_again();
        const TurnedFaces orientation = find_orientation(mesh_, *mates_, options_.keep_cavities);
        for (std::size_t face = 0; face < mesh_.faces.size(); ++face) {
            poll_at(face);
            if (orientation.turned[face] != 0) reverse_winding(mesh_.faces[face]);
        }
        for (std::size_t shell = 0; shell < mesh_.shells.size(); ++shell) {
            if (orientation.is_cavity(shell)) ++report_.kept_cavities;
        }
        report_.turned_faces = orientation.turned_count;
        report_.one_sided_shells = orientation.one_sided.size();
        mesh_.use_table.clear();  // it records the old windings
    }

    void turn_from_the_top() {
        label_again();
        const Array<Vertex> tilted = tilted_vertices();
        ShellWalk walk(mesh_, *mates_, tilted, false);
        for (std::uint32_t s = 0; s < mesh_.shells.size(); ++s) {
            const std::span<const std::uint32_t> shell = mesh_.shells[s];
            const auto turns = static_cast<float>(walk.walk(s).turns);
            const float share = turns / static_cast<float>(shell.size());
            if (share > kAlmostNone && share < kAlmostAll) {
                walk.forget_turns(s);
                ++report_.undecided_shells;
            }
            std::size_t turned = 0;
            for (const std::uint32_t face : shell) {
                if (!walk.is_turned(face)) continue;
                reverse_winding(mesh_.faces[face]);
                ++turned;
            }
            if (is_closed_and_consistent(shell, walk) && measure(mesh_, shell).volume < 0) {
                for (const std::uint32_t face : shell) reverse_winding(mesh_.faces[face]);
                turned = shell.size() - turned;
            }
            report_.turned_faces += turned;
        }
        mesh_.use_table.clear();  // it records the old windings
    }

    Array<Vertex> tilted_vertices() const {
        const Rotation tilt({1, 0, 0}, kTiltDegrees);
        Array<Vertex> tilted(mesh_.vertices.size());
        for (std::size_t v = 0; v < tilted.size(); ++v) {
            const Vec3f p = tilt.apply(mesh_.vertices[v].position());
            tilted[v] = {p.x, p.y, p.z, mesh_.vertices[v].index};
        }
        return tilted;
    }

    // Every edge held by two faces that run along it in opposite directions, as the walk left them.
    bool is_closed_and_consistent(std::span<const std::uint32_t> shell,
                                  const ShellWalk& walk) const {
        return std::all_of(shell.begin(), shell.end(), [&](std::uint32_t face) {
            for (std::size_t edge = 0; edge < 3; ++edge) {
                if (mates_->kind(face, edge) != EdgeMates::Kind::Manifold) return false;
                const bool is_one_turned =
                    walk.is_turned(face) != walk.is_turned(mates_->mate(face, edge));
                if (mates_->is_same_direction(face, edge) != is_one_turned) return false;
            }
            return true;
        });
    }

    TriMesh& mesh_;
    const RepairOptions& options_;
    const std::size_t face_count_ = mesh_.faces.size();  // before anything is added
    std::optional<EdgeMates> mates_;
    bool is_changed_ = false;  // since the last labelling
    RepairReport report_;
};

}  // namespace

RepairReport repair(TriMesh& mesh, const RepairOptions& options) {
    return Repairer(mesh, options).run();
}

}  // namespace povmesh
