// An edge of length L on a surface of curvature k cuts off L * L * k / 8. Curvature is the signed
// mean curvature by the dihedral angles at the edges around a vertex (D. Cohen-Steiner and J.-M.
// Morvan, Restricted Delaunay triangulations and normal cycle, 2003), feature edges left out, and
// averaged with the neighbours', so that noise cancels.
#include "remesh/local_lengths.h"

#include <algorithm>
#include <cmath>

#include "base/parallel.h"
#include "remesh/feature_lines.h"

namespace povmesh {
namespace {

// Share of a wall or gap that an edge may cut off: of wires, and of sheets, whose other side bends
// the same way.
constexpr double kMostOfWall = 0.12;
constexpr double kMostOfSheet = 0.4;

// Lengths are not lowered below this share of what is wanted.
constexpr double kLeastOfLength = 0.04;

// At walls and gaps not below this one: those that are still thinner are noise, or flat.
constexpr double kLeastAtWall = 0.1;

// A closed line keeps as many corners.
constexpr double kLeastCorners = 6;

// How far a chord may be from its line, as a share of the length; and how the chords and the places
// where two of them may meet are tried.
constexpr double kMostStray = 0.15;
constexpr double kChordStep = 0.84;
constexpr int kChordPlaces = 8;

// Cosine beyond which a face looks the opposite way.
constexpr double kOpposite = 0.5;

// Passes over the neighbours: as many as it takes to reach half an edge's length, within bounds.
constexpr double kLeastPasses = 3;
constexpr double kMostPasses = 12;

std::size_t index(std::int32_t v) {
    return static_cast<std::size_t>(v);
}

// Positive where the surface is convex.
double dihedral(const HalfEdgeMesh& surface, std::uint32_t h) {
    const Vec3d m = surface.normal(h / 3);
    const Vec3d n = surface.normal(surface.opposites[h] / 3);
    const Vec3d along = surface.position(surface.target(h)) - surface.position(surface.origin(h));
    const double size = length(along);
    if (!(size > 0)) return 0;
    return std::atan2(dot(cross(m, n), along) / size, dot(m, n));
}

int smoothing_passes(const HalfEdgeMesh& surface, const SizingField& field) {
    const std::size_t count = surface.opposites.size();
    const double share = blocked_sum(count, [&](std::size_t h) {
        const auto v = static_cast<std::size_t>(surface.origin(static_cast<std::uint32_t>(h)));
        const double l = std::sqrt(surface.squared_length(static_cast<std::uint32_t>(h)));
        return std::min(l / field.at_vertex(v), 1.0);
    });
    const double reach = 0.5 * static_cast<double>(count) / std::max(share, 1e-9);
    return static_cast<int>(std::clamp(reach * reach, kLeastPasses, kMostPasses));
}

// The sum of the two principal curvatures at each vertex.
Array<double> curvatures(const HalfEdgeMesh& surface, int passes) {
    const std::size_t count = surface.positions.size();
    Array<double> found(count, 0);
    Array<double> next(count, 0);
    parallel_for(count, [&](std::size_t v) {
        if (surface.starts[v] == HalfEdgeMesh::kNone) return;
        double bend = 0;
        double area = 0;
        surface.around(static_cast<std::int32_t>(v), [&](std::uint32_t h) {
            area += length(surface.normal(h / 3)) / 6;
            if (surface.features[h] != 0 || surface.opposites[h] == HalfEdgeMesh::kNone) return;
            bend += dihedral(surface, h) * std::sqrt(surface.squared_length(h));
        });
        if (area > 0) found[v] = 0.5 * bend / area;
    });
    for (int i = 0; i < passes; ++i) {
        parallel_for(count, [&](std::size_t v) {
            next[v] = found[v];
            // Beyond a line the surface bends otherwise.
            if (surface.starts[v] == HalfEdgeMesh::kNone) return;
            if (surface.kinds[v] != HalfEdgeMesh::Free) return;
            double sum = found[v];
            double weights = 1;
            surface.around(static_cast<std::int32_t>(v), [&](std::uint32_t h) {
                if (surface.kinds[index(surface.target(h))] != HalfEdgeMesh::Free) return;
                sum += found[index(surface.target(h))];
                weights += 1;
            });
            next[v] = sum / weights;
        });
        std::swap(found, next);
    }
    return found;
}

double shortest_edge(const HalfEdgeMesh& surface, std::int32_t v) {
    double square = std::numeric_limits<double>::max();
    surface.around(v,
                   [&](std::uint32_t h) { square = std::min(square, surface.squared_length(h)); });
    return std::sqrt(square);
}

Vec3d normal_at(const HalfEdgeMesh& surface, std::int32_t v) {
    Vec3d sum;
    surface.around(v, [&](std::uint32_t h) { sum = sum + surface.normal(h / 3); });
    const double size = length(sum);
    return size > 0 ? sum / size : Vec3d{};
}

// How long the chords of a line may be around a place: so that two of them, meeting where it suits
// best, stay near it. At least kLeastOfLength of what is wanted.
double chord_at(const FeatureLines& lines, std::uint32_t line, double along, double wanted) {
    const double whole = lines.length(line);
    double chord = wanted;
    if (lines.is_closed(line)) chord = std::min(chord, whole / kLeastCorners);
    const double least = kLeastOfLength * wanted;
    while (chord > least) {
        FeatureLines::Part part{line, along - chord, along + chord};
        if (!lines.is_closed(line)) {
            part.from = std::max(part.from, 0.0);
            part.to = std::min(part.to, whole);
        }
        for (int i = 1; i < kChordPlaces; ++i) {
            const double middle = part.from + (part.to - part.from) * i / kChordPlaces;
            if (lines.deviation({line, part.from, middle}) <= kMostStray * wanted &&
                lines.deviation({line, middle, part.to}) <= kMostStray * wanted) {
                return chord;
            }
        }
        chord *= kChordStep;
    }
    return std::max(chord, least);
}

}  // namespace

WallLengths::WallLengths(const HalfEdgeMesh& surface, const NearestFace& tree,
                         const SizingField& field)
    : surface_(surface),
      tree_(tree),
      field_(field),
      curvature_(curvatures(surface, smoothing_passes(surface, field))),
      lengths_(surface.positions.size(), 0) {}

double WallLengths::at(std::int32_t v) {
    double& known = lengths_[index(v)];
    if (known == 0) known = find(v);
    return known;
}

double WallLengths::find(std::int32_t v) const {
    const double wanted = field_.at_vertex(index(v));
    if (surface_.starts[index(v)] == HalfEdgeMesh::kNone) return wanted;
    const double bend = std::abs(curvature_[index(v)]);
    const double reach = bend * wanted * wanted / 8 / kMostOfWall;
    const Vec3d normal = normal_at(surface_, v);
    if (!(reach > 0) || dot(normal, normal) == 0) return wanted;
    const double most = std::min(reach, wanted);  // farther away nothing is thin
    const NearestPoint wall =
        tree_.find_facing(surface_.position(v), normal * -1.0, kOpposite, most * most);
    if (!wall.is_found()) return wanted;
    const double thickness = std::sqrt(wall.squared_distance);
    const double share = std::max(kMostOfWall, kMostOfSheet - bend * thickness);
    const double least = std::max(kLeastAtWall * wanted, shortest_edge(surface_, v));
    return std::clamp(std::sqrt(8 * share * thickness / bend), std::min(least, wanted), wanted);
}

Array<double> line_lengths(const HalfEdgeMesh& surface, const SizingField& field) {
    Array<double> lengths = field.lengths();
    HalfEdgeMesh copy = surface;  // numbers its features
    const FeatureLines lines(copy);
    parallel_for(lengths.size(), [&](std::size_t i) {
        if (copy.kinds[i] != HalfEdgeMesh::Line || copy.starts[i] == HalfEdgeMesh::kNone) return;
        std::uint32_t feature = 0;
        copy.around(static_cast<std::int32_t>(i),
                    [&](std::uint32_t h) { feature = std::max(feature, copy.features[h]); });
        if (feature == 0) return;
        const double along = lines.place(static_cast<std::int32_t>(i));
        lengths[i] = std::min(lengths[i], chord_at(lines, feature / 2 - 1, along, lengths[i]));
    });
    return lengths;
}

}  // namespace povmesh
