// Drain holes as bores along the mean normal. A ray from the mouth finds the cavity and what lies
// beyond it, so that a hole ends in the cavity and begins outside of the model.
#include "design/drain.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <optional>
#include <utility>

#include "base/convert.h"
#include "base/poll.h"
#include "cut/bore.h"
#include "mesh/edge_mates.h"
#include "mesh/shells.h"
#include "mesh/volume.h"
#include "remesh/revise.h"
#include "repair/degenerate.h"
#include "spatial/nearest_face.h"
#include "spatial/self_intersection.h"

namespace povmesh {
namespace {

// Of the surface when slivers are mended, as a share of the model's diagonal.
constexpr double kMostMovement = 1e-4;

// Holes that would lie badly to an edge or another hole are tried again with a corner less and a
// larger radius each time.
constexpr std::size_t kTries = 8;
constexpr double kGrowth = 0.01;

constexpr double kFar = std::numeric_limits<double>::infinity();

TriMesh first_faces(const TriMesh& mesh, std::size_t count) {
    TriMesh part;
    part.vertices = mesh.vertices;
    part.faces.assign(mesh.faces.begin(), mesh.faces.begin() + static_cast<std::ptrdiff_t>(count));
    return part;
}

Vec3d unit_normal(const TriMesh& mesh, std::uint32_t face) {
    const Face& f = mesh.faces[face];
    const Vec3d a = to_double(mesh.corner_position(f, 0));
    const Vec3d normal =
        cross(to_double(mesh.corner_position(f, 1)) - a, to_double(mesh.corner_position(f, 2)) - a);
    const double size = length(normal);
    return size > 0 ? normal / size : Vec3d{};
}

// What a hole must not add to a shell.
struct Tangles {
    std::uint64_t crossings = 0;  // pairs of faces
    std::size_t edges = 0;        // of more than two faces; one for each of them
    std::size_t slivers = 0;      // these it may add

    bool is_above(const Tangles& other) const {
        return crossings > other.crossings || edges > other.edges;
    }
};

Tangles tangles_in(TriMesh& mesh) {
    Tangles found;
    found.crossings = find_self_intersections(mesh, 0).count;
    const EdgeMates mates(mesh);
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        found.slivers += is_degenerate(mesh, mesh.faces[f]) ? 1 : 0;
        for (std::size_t edge = 0; edge < 3; ++edge) {
            found.edges += mates.kind(f, edge) == EdgeMates::Kind::NonManifold ? 1 : 0;
        }
    }
    return found;
}

// Distances along a ray, from its start, at which it meets faces of two kinds.
struct RayHits {
    double model = kFar;   // the first
    double cavity = kFar;  // the first
};

class DrainCutter {
public:
    DrainCutter(TriMesh& shell, std::size_t model_faces, double wall)
        : shell_(shell),
          whole_(shell),
          model_faces_(model_faces),
          nearest_(first_faces(shell, model_faces)),
          wall_(std::max(wall, 0.0)),
          tangles_(tangles_in(shell)) {}

    DrainReport cut(const Drain& drain) {
        DrainReport report;
        if (!is_finite(drain.place) || !std::isfinite(drain.radius) || !(drain.radius > 0)) {
            return report;
        }
        report.outcome = DrainOutcome::FarAway;
        const NearestPoint mouth = nearest_.find(drain.place);
        if (!mouth.is_found()) return report;
        report.mouth = mouth.point;
        report.distance = std::sqrt(mouth.squared_distance);
        if (report.distance > drain.radius + wall_) return report;

        const Vec3d out = mean_normal(mouth, drain.radius);
        const RayHits below = first_hits(mouth.point, out * -1.0, 0);
        report.outcome = DrainOutcome::NoCavity;
        if (!(below.cavity < below.model)) return report;
        report.wall_depth = below.cavity;
        const RayHits across = first_hits(mouth.point, out * -1.0, below.cavity);
        const RayHits above = first_hits(mouth.point, out, 0);
        // Beyond the surfaces as far as they may bend within the radius, but not to the next one.
        const auto beyond = [](double reach, double gap) { return std::min(reach, gap / 2); };
        const double over = beyond(drain.radius + wall_, std::min(above.model, above.cavity));
        const double under =
            beyond(drain.radius, std::min(across.model, across.cavity) - below.cavity);
        Bore hole;
        hole.from = mouth.point + out * over;
        hole.to = mouth.point - out * (below.cavity + under);
        hole.radius = drain.radius;
        report.outcome = make(hole);
        return report;
    }

private:
    // Takes the first hole that leaves nothing to mend, or else the one with the fewest slivers.
    // Slivers, which come about where a hole passes close to an edge of the surface, are left only
    // where mending them makes faces cross.
    DrainOutcome make(const Bore& wanted) {
        std::optional<TriMesh> best;
        Tangles least;
        for (std::size_t i = 0; i < 2 * kTries; ++i) {
            const bool mends = i < kTries;
            if (best && (!mends || least.slivers <= tangles_.slivers)) break;
            Bore hole = wanted;
            hole.sides -= i % kTries;
            hole.radius *= 1 + kGrowth * static_cast<double>(i % kTries);
            TriMesh holed = shell_;
            const BoreOutcome bored = bore(holed, hole);
            // Where other holes have taken the place already, there is nothing left to do.
            if (bored == BoreOutcome::Missed) return DrainOutcome::Done;
            if (bored != BoreOutcome::Done) return DrainOutcome::NotSolid;
            if (mends) revise_triangles(holed, {kMostMovement});
            const Tangles after = tangles_in(holed);
            if (after.is_above(tangles_) || (best && after.slivers >= least.slivers)) continue;
            least = after;
            best = std::move(holed);
        }
        if (!best) return DrainOutcome::Tangled;
        shell_ = std::move(*best);
        tangles_ = least;
        return DrainOutcome::Done;
    }

    // From the surface to points outside on a sphere around the mouth, spread evenly by the golden
    // angle. At an edge of the model that is the direction between its two sides.
    Vec3d mean_normal(const NearestPoint& mouth, double radius) const {
        constexpr int kSamples = 256;
        const Vec3d own = unit_normal(whole_, mouth.face);
        if (!(length(own) > 0)) return Vec3d{0, 0, 1};
        Vec3d sum;
        for (int i = 0; i < kSamples; ++i) {
            const double height = (2 * i + 1.0) / kSamples - 1;
            const double across = std::sqrt(1 - height * height);
            const double angle = i * std::numbers::pi * (3 - std::sqrt(5.0));
            const Vec3d p =
                mouth.point +
                Vec3d{across * std::cos(angle), across * std::sin(angle), height} * radius;
            const NearestPoint seen = nearest_.find(p);
            const Vec3d out = p - seen.point;
            const bool is_outside = dot(out, unit_normal(whole_, seen.face)) > 0;
            if (!is_outside) continue;
            const Vec3d direction = out / length(out);
            // Along a face around the edge they are at right angles but for rounding.
            if (dot(direction, own) >= -1e-6) sum = sum + direction;
        }
        const double size = length(sum);
        return size > 0 ? sum / size : own;
    }

    // Of the hits farther than `after`; the start itself lies on a face.
    RayHits first_hits(Vec3d start, Vec3d direction, double after) const {
        RayHits hits;
        const double least = after + 1e-6 * (wall_ + after);
        for (std::size_t f = 0; f < whole_.faces.size(); ++f) {
            const Face& face = whole_.faces[f];
            const Vec3d a = to_double(whole_.corner_position(face, 0));
            const Vec3d ab = to_double(whole_.corner_position(face, 1)) - a;
            const Vec3d ac = to_double(whole_.corner_position(face, 2)) - a;
            const Vec3d p = cross(direction, ac);
            const double determinant = dot(ab, p);
            if (determinant == 0) continue;
            const double u = dot(start - a, p) / determinant;
            const Vec3d q = cross(start - a, ab);
            const double v = dot(direction, q) / determinant;
            const double t = dot(ac, q) / determinant;
            // Wide enough that no ray slips between two faces.
            if (!(u > -1e-9 && v > -1e-9 && u + v < 1 + 1e-9 && t > least)) continue;
            double& hit = f < model_faces_ ? hits.model : hits.cavity;
            hit = std::min(hit, t);
        }
        return hits;
    }

    TriMesh& shell_;
    TriMesh whole_;  // the shell without holes
    std::size_t model_faces_;
    NearestFace nearest_;
    double wall_;
    Tangles tangles_;  // of the shell as it is
};

}  // namespace

std::vector<DrainReport> cut_drains(TriMesh& shell, std::size_t model_faces, double wall,
                                    std::span<const Drain> drains) {
    std::vector<DrainReport> reports;
    if (drains.empty()) return reports;
    DrainCutter cutter(shell, std::min(model_faces, shell.faces.size()), wall);
    for (const Drain& drain : drains) reports.push_back(cutter.cut(drain));
    return reports;
}

SealedCavities sealed_cavities(const TriMesh& shell) {
    SealedCavities sealed;
    TriMesh labelled = shell;
    const EdgeMates mates(labelled);
    label_shells(labelled, mates);
    double largest = 0;
    for (std::size_t s = 0; s < labelled.shells.size(); ++s) {
        double six_volume = 0;
        bool is_closed = true;
        for (const std::uint32_t f : labelled.shells[s]) {
            const Face& face = labelled.faces[f];
            six_volume += dot(to_double(labelled.corner_position(face, 0)),
                              cross(to_double(labelled.corner_position(face, 1)),
                                    to_double(labelled.corner_position(face, 2))));
            for (std::size_t edge = 0; edge < 3; ++edge) {
                is_closed = is_closed && mates.kind(f, edge) != EdgeMates::Kind::Open;
            }
        }
        if (!is_closed || !(six_volume < 0)) continue;
        ++sealed.count;
        if (six_volume >= largest) continue;
        largest = six_volume;
        sealed.place =
            to_double(labelled.corner_position(labelled.faces[labelled.shells[s][0]], 0));
    }
    return sealed;
}

}  // namespace povmesh
