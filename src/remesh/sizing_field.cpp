// The bound on growth is the shortest-path problem from all vertices at once (E. Dijkstra, A note
// on two problems in connexion with graphs, 1959), with the lengths for distances.
#include "remesh/sizing_field.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <queue>
#include <vector>

#include "base/convert.h"
#include "base/poll.h"

namespace povmesh {
namespace {

// What a wild face may make: so many triangles, or so many times those of the middle one of the
// others.
constexpr double kMostOfWild = 100;
constexpr double kMostOverMiddle = 10;

// A mesh of nothing but faces that are too large is coarsened like any other, unless it asks for
// this many times what is made at most: then its numbers are not meant.
constexpr double kNotMeant = 1e4;

// What its area needs in equilateral triangles, and its edges in pieces with a triangle on each
// side, whichever is more: a needle has edges and no area.
double triangles_made(const TriMesh& mesh, const Face& face, double edge_length) {
    const double equilateral = std::sqrt(3.0) / 4;
    const Vec3d a = to_double(mesh.corner_position(face, 0));
    const Vec3d b = to_double(mesh.corner_position(face, 1));
    const Vec3d c = to_double(mesh.corner_position(face, 2));
    const double by_area =
        0.5 * length(cross(b - a, c - a)) / (equilateral * edge_length * edge_length);
    const double by_edges = (length(b - a) + length(c - b) + length(a - c)) / edge_length;
    return std::max(by_area, by_edges / 4);
}

// The factor by which a length must grow so that `made` triangles become no more than `most`: areas
// need its square root, edges all of it. From above.
template <typename Made>
double factor_for(double most, Made&& made) {
    double factor = 1;
    for (int step = 0; step < 200 && std::isfinite(factor); ++step) {
        const double count = made(factor);
        if (!(count > most)) break;
        factor *= std::max(1.01, std::sqrt(count / most));
    }
    return factor;
}

}  // namespace

double expected_triangles(const TriMesh& mesh, std::span<const float> face_lengths) {
    double sum = 0;
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        if (mesh.faces[f].deleted != 0) continue;
        sum += triangles_made(mesh, mesh.faces[f], static_cast<double>(face_lengths[f]));
    }
    return sum;
}

RaisedLengths raise_lengths(const TriMesh& mesh, std::span<float> face_lengths, double most) {
    std::vector<double> sane;  // what the faces ask for that do not ask for too much
    std::vector<std::size_t> wild;
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        if (mesh.faces[f].deleted != 0) continue;
        const double count =
            triangles_made(mesh, mesh.faces[f], static_cast<double>(face_lengths[f]));
        if (count <= most)
            sane.push_back(count);
        else
            wild.push_back(f);
    }
    const auto raise = [&](std::size_t f, double factor) {
        face_lengths[f] = narrow_to_float(static_cast<double>(face_lengths[f]) * factor);
    };
    RaisedLengths raised;
    const double greatest = most * (sane.empty() ? kNotMeant : 1);
    double share = kMostOfWild;
    if (!sane.empty()) {
        const auto middle = sane.begin() + static_cast<std::ptrdiff_t>(sane.size() / 2);
        std::nth_element(sane.begin(), middle, sane.end());
        share = std::max(share, kMostOverMiddle * *middle);
    }
    for (const std::size_t f : wild) {
        const auto l = static_cast<double>(face_lengths[f]);
        const auto made = [&](double factor) {
            return triangles_made(mesh, mesh.faces[f], factor * l);
        };
        if (!(made(1) > greatest)) continue;
        raise(f, factor_for(std::min(share, most), made));
        ++raised.faces;
    }
    raised.factor = factor_for(most, [&](double factor) {
        double sum = 0;
        for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
            poll_at(f);
            if (mesh.faces[f].deleted != 0) continue;
            sum +=
                triangles_made(mesh, mesh.faces[f], factor * static_cast<double>(face_lengths[f]));
        }
        return sum;
    });
    if (raised.factor > 1) {
        for (std::size_t f = 0; f < face_lengths.size(); ++f) raise(f, raised.factor);
    }
    return raised;
}

SizingField::SizingField(const TriMesh& mesh, std::span<const float> face_lengths)
    : mesh_(mesh), face_lengths_(face_lengths) {
    lengths_.assign(mesh.vertices.size(), std::numeric_limits<double>::max());
    float least = std::numeric_limits<float>::max();
    float greatest = 0;
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        if (mesh.faces[f].deleted != 0) continue;
        least = std::min(least, face_lengths[f]);
        greatest = std::max(greatest, face_lengths[f]);
        for (const std::int32_t v : mesh.faces[f].vertex) {
            double& l = lengths_[static_cast<std::size_t>(v)];
            l = std::min(l, static_cast<double>(face_lengths[f]));
        }
    }
    is_uniform_ = least == greatest;
    if (!is_uniform_) limit_growth();
}

void SizingField::lower(std::span<const double> wanted) {
    for (std::size_t v = 0; v < lengths_.size(); ++v) {
        if (!(wanted[v] < lengths_[v])) continue;
        lengths_[v] = wanted[v];
        is_uniform_ = false;
    }
    limit_growth();
}

void SizingField::limit_growth() {
    struct Neighbour {
        std::uint32_t vertex;
        float distance;
    };
    Array<std::uint32_t> offsets(lengths_.size() + 1, 0);
    Poller poller;
    const auto for_edges = [&](auto&& visit) {
        for (const Face& face : mesh_.faces) {
            poller();
            if (face.deleted != 0) continue;
            for (std::size_t c = 0; c < 3; ++c) {
                const auto a = static_cast<std::uint32_t>(face.vertex[c]);
                const auto b = static_cast<std::uint32_t>(face.vertex[(c + 1) % 3]);
                visit(a, b);
                visit(b, a);
            }
        }
    };
    for_edges([&](std::uint32_t a, std::uint32_t /*b*/) { ++offsets[a + 1]; });
    for (std::size_t v = 0; v < lengths_.size(); ++v) offsets[v + 1] += offsets[v];
    Array<Neighbour> neighbours(offsets.back());
    Array<std::uint32_t> places(offsets);
    for_edges([&](std::uint32_t a, std::uint32_t b) {
        const Vec3f away = mesh_.vertices[b].position() - mesh_.vertices[a].position();
        neighbours[places[a]++] = {b, length(away)};
    });

    struct Waiting {
        double length;
        std::uint32_t vertex;
        bool operator<(const Waiting& other) const {
            return length != other.length ? length > other.length : vertex > other.vertex;
        }
    };
    std::priority_queue<Waiting> waiting;
    const auto grown = [&](std::uint32_t v, const Neighbour& n) {
        return lengths_[v] + kGradient * static_cast<double>(n.distance);
    };
    for (std::uint32_t v = 0; v < lengths_.size(); ++v) {
        poller();
        for (std::uint32_t i = offsets[v]; i < offsets[v + 1]; ++i) {
            if (!(grown(v, neighbours[i]) < lengths_[neighbours[i].vertex])) continue;
            waiting.push({lengths_[v], v});
            break;
        }
    }
    while (!waiting.empty()) {
        poller();
        const Waiting top = waiting.top();
        waiting.pop();
        if (top.length > lengths_[top.vertex]) continue;
        for (std::uint32_t i = offsets[top.vertex]; i < offsets[top.vertex + 1]; ++i) {
            const double l = grown(top.vertex, neighbours[i]);
            if (!(l < lengths_[neighbours[i].vertex])) continue;
            lengths_[neighbours[i].vertex] = l;
            waiting.push({l, neighbours[i].vertex});
        }
    }
}

double SizingField::at(const NearestPoint& found) const {
    const Face& face = mesh_.faces[found.face];
    double l = 0;
    for (std::size_t c = 0; c < 3; ++c) {
        l += found.weights[c] * lengths_[static_cast<std::size_t>(face.vertex[c])];
    }
    return std::min(l, static_cast<double>(face_lengths_[found.face]));
}

}  // namespace povmesh
