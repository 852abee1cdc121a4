// Drain holes as bores along the mean normal. A ray from the mouth finds the cavity and what lies
// beyond it, so that a hole ends in the cavity and begins outside of the model.
#include "design/drain.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

#include "cut/bore.h"
#include "remesh/revise.h"
#include "spatial/nearest_face.h"

namespace povmesh {
namespace {

// Of the surface when slivers are mended, as a share of the model's diagonal.
constexpr double kMostMovement = 1e-4;

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
          wall_(std::max(wall, 0.0)) {}

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
        // Where other holes have taken the place already, there is nothing left to do.
        const BoreOutcome bored = bore(shell_, hole);
        const bool is_open = bored == BoreOutcome::Done || bored == BoreOutcome::Missed;
        report.outcome = is_open ? DrainOutcome::Done : DrainOutcome::NotSolid;
        return report;
    }

private:
    // Over points spread evenly (by the golden angle) on the disk of the radius.
    Vec3d mean_normal(const NearestPoint& mouth, double radius) const {
        constexpr int kSamples = 64;
        const Vec3d own = unit_normal(whole_, mouth.face);
        const Vec3d least = std::abs(own.x) < 0.5 ? Vec3d{1, 0, 0} : Vec3d{0, 1, 0};
        Vec3d right = cross(own, least);
        if (!(length(right) > 0)) return Vec3d{0, 0, 1};
        right = right / length(right);
        const Vec3d up = cross(own, right);
        Vec3d sum;
        for (int i = 0; i < kSamples; ++i) {
            const double away = radius * std::sqrt((i + 0.5) / kSamples);
            const double angle = i * std::numbers::pi * (3 - std::sqrt(5.0));
            const Vec3d p =
                mouth.point + right * (away * std::cos(angle)) + up * (away * std::sin(angle));
            sum = sum + unit_normal(whole_, nearest_.find(p).face);
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
};

}  // namespace

std::vector<DrainReport> cut_drains(TriMesh& shell, std::size_t model_faces, double wall,
                                    std::span<const Drain> drains) {
    std::vector<DrainReport> reports;
    if (drains.empty()) return reports;
    DrainCutter cutter(shell, std::min(model_faces, shell.faces.size()), wall);
    bool is_changed = false;
    for (const Drain& drain : drains) {
        reports.push_back(cutter.cut(drain));
        is_changed = is_changed || reports.back().outcome == DrainOutcome::Done;
    }
    // Where a hole passes close to an edge of the surface, slivers come about.
    if (is_changed) revise_triangles(shell, {kMostMovement});
    return reports;
}

}  // namespace povmesh
