// Whether a shell lies inside others is the parity of the faces of other closed shells straight
// above a point of it. All surrounding shells can be counted together, because the parity of the
// sum is that of the number of shells around the point.
#include "cli/inward_shells.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include "base/vec.h"

namespace povmesh::cli {
namespace {

// Volumes below this share of the cubed diagonal are the rounding of a flat shell.
constexpr double kFlat = 1e-12;

// Points that stand for a shell; the majority decides where one of them touches another shell.
constexpr std::size_t kProbes = 3;

struct Traits {
    bool can_surround = true;   // each edge is held by an even number of faces
    bool is_consistent = true;  // by two, which run along it in opposite directions
    double volume = 0;

    bool is_inward() const { return is_consistent && volume < 0; }
};

struct Probe {
    Vec3d place;
    std::uint32_t shell = 0;
    bool is_inside = false;
};

void add_edge(const EdgeMates& mates, std::size_t face, std::size_t edge, Traits& traits) {
    const EdgeMates::Kind kind = mates.kind(face, edge);
    if (kind == EdgeMates::Kind::Manifold) {
        if (mates.is_same_direction(face, edge)) traits.is_consistent = false;
        return;
    }
    traits.is_consistent = false;
    if (kind == EdgeMates::Kind::Open || mates.group(mates.group_of(face, edge)).size() % 2 != 0) {
        traits.can_surround = false;
    }
}

std::array<Vec3d, 3> corners(const TriMesh& mesh, std::uint32_t face) {
    const Face& f = mesh.faces[face];
    return {to_double(mesh.corner_position(f, 0)), to_double(mesh.corner_position(f, 1)),
            to_double(mesh.corner_position(f, 2))};
}

Traits shell_traits(const TriMesh& mesh, const EdgeMates& mates, std::uint32_t shell) {
    Traits traits;
    Box3d box;
    // From a vertex of the shell, so that a model far from the origin loses no digits.
    const Vec3d origin = corners(mesh, mesh.shells[shell].front())[0];
    for (const std::uint32_t face : mesh.shells[shell]) {
        for (std::size_t edge = 0; edge < 3; ++edge) add_edge(mates, face, edge, traits);
        const auto [a, b, c] = corners(mesh, face);
        traits.volume += dot(a - origin, cross(b - origin, c - origin)) / 6;
        box.widen(a);
        box.widen(b);
        box.widen(c);
    }
    const double diagonal = length(box.extent());
    if (std::abs(traits.volume) <= kFlat * diagonal * diagonal * diagonal) traits.volume = 0;
    return traits;
}

void add_probes(const TriMesh& mesh, std::uint32_t shell, std::vector<Probe>& probes) {
    const auto faces = mesh.shells[shell];
    for (std::size_t i = 0; i < kProbes; ++i) {
        probes.push_back({corners(mesh, faces[i * faces.size() / kProbes])[i], shell, false});
    }
}

// In the plane of x and y: whether a ray from p towards greater x crosses the edge. A point on the
// edge counts as right of it, whichever face asks, so that the faces at an edge always agree.
bool ray_crosses(Vec3d p, Vec3d a, Vec3d b) {
    if ((a.y > p.y) == (b.y > p.y)) return false;
    if (a.y > b.y) std::swap(a, b);
    return (b.x - a.x) * (p.y - a.y) - (p.x - a.x) * (b.y - a.y) > 0;
}

bool is_above(const std::array<Vec3d, 3>& triangle, Vec3d p) {
    const auto [a, b, c] = triangle;
    if (!(ray_crosses(p, a, b) ^ ray_crosses(p, b, c) ^ ray_crosses(p, c, a))) return false;
    const Vec3d normal = cross(b - a, c - a);
    return normal.z != 0 && dot(normal, a - p) / normal.z > 0;
}

// Flips the probes that a face of another shell lies above. `probes` are sorted by x.
void count_face(const std::array<Vec3d, 3>& triangle, std::uint32_t shell,
                std::vector<Probe>& probes) {
    const auto [low, high] = std::minmax({triangle[0].x, triangle[1].x, triangle[2].x});
    auto probe = std::lower_bound(probes.begin(), probes.end(), low,
                                  [](const Probe& p, double x) { return p.place.x < x; });
    for (; probe != probes.end() && probe->place.x <= high; ++probe) {
        if (probe->shell != shell && is_above(triangle, probe->place)) {
            probe->is_inside = !probe->is_inside;
        }
    }
}

}  // namespace

InwardShells find_inward_shells(const TriMesh& mesh, const EdgeMates& mates) {
    std::vector<Traits> traits(mesh.shells.size());
    std::vector<Probe> probes;
    for (std::uint32_t shell = 0; shell < traits.size(); ++shell) {
        traits[shell] = shell_traits(mesh, mates, shell);
        if (traits[shell].is_inward()) add_probes(mesh, shell, probes);
    }
    InwardShells result;
    if (probes.empty()) return result;

    std::sort(probes.begin(), probes.end(),
              [](const Probe& a, const Probe& b) { return a.place.x < b.place.x; });
    for (std::uint32_t shell = 0; shell < traits.size(); ++shell) {
        if (!traits[shell].can_surround) continue;
        for (const std::uint32_t face : mesh.shells[shell]) {
            count_face(corners(mesh, face), shell, probes);
        }
    }

    std::vector<std::size_t> votes(traits.size(), 0);
    for (const Probe& probe : probes) votes[probe.shell] += probe.is_inside ? 1 : 0;
    for (std::uint32_t shell = 0; shell < traits.size(); ++shell) {
        if (!traits[shell].is_inward()) continue;
        const bool is_inside = votes[shell] * 2 > kProbes;
        (is_inside ? result.cavities : result.inside_out).push_back(shell);
    }
    return result;
}

}  // namespace povmesh::cli
