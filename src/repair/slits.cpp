// A rim on a line has two chains of edges between its two ends. Where both have all vertices of the
// rim, each edge of the one lies on an edge of the other; so every edge is cut at the vertices that
// lie between its ends, and the face at it becomes a fan about its opposite corner.
#include "repair/slits.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <span>
#include <vector>

#include "repair/boundary_loops.h"

namespace povmesh {
namespace {

using Loop = std::span<const BoundaryLoops::Entry>;

// Of the length of a rim: vertices nearer than this to its line are on it.
constexpr double kOnLine = 1e-4;

// A face at a slit must be wider than it so many times.
constexpr double kWiderThanSlit = 4;

struct Cut {
    std::uint32_t edge;  // face * 3 + edge of the face
    double at;           // 0 at the start of the edge, 1 at its end
    std::int32_t vertex;
};

class SlitCloser {
public:
    SlitCloser(TriMesh& mesh, const EdgeMates& mates)
        : mesh_(mesh), loops_(trace_boundary_loops(mesh, mates)) {}

    SlitReport run() {
        for (std::size_t i = 0; i < loops_.size(); ++i) {
            if (find_cuts(loops_[i])) ++report_.closed_slits;
        }
        std::sort(cuts_.begin(), cuts_.end(), [](const Cut& a, const Cut& b) {
            return a.edge != b.edge ? a.edge < b.edge : a.at < b.at;
        });
        const std::size_t old_count = mesh_.faces.size();
        for (std::size_t i = 0; i < cuts_.size();) {
            const std::uint32_t face = cuts_[i].edge / 3;
            std::size_t end = i;
            while (end < cuts_.size() && cuts_[end].edge / 3 == face) ++end;
            split(face, std::span(cuts_).subspan(i, end - i));
            ++report_.split_faces;
            i = end;
        }
        report_.added_faces = mesh_.faces.size() - old_count;
        if (!cuts_.empty()) mesh_.use_table.clear();
        return report_;
    }

private:
    Vec3d place(std::int32_t vertex) const {
        return to_double(mesh_.vertices[static_cast<std::size_t>(vertex)].position());
    }

    // Appends where the edges of a rim are to be cut; false when it is no slit.
    bool find_cuts(Loop rim) {
        if (!put_on_line(rim)) return false;
        const std::size_t n = rim.size();
        order_.resize(n);
        rank_.resize(n);
        for (std::size_t i = 0; i < n; ++i) order_[i] = i;
        std::sort(order_.begin(), order_.end(),
                  [&](std::size_t a, std::size_t b) { return along_[a] < along_[b]; });
        for (std::size_t i = 0; i < n; ++i) rank_[order_[i]] = i;
        // There and back again without a turn between covers every step twice.
        std::size_t steps = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const std::size_t a = rank_[i];
            const std::size_t b = rank_[(i + 1) % n];
            steps += a < b ? b - a : a - b;
            if (!is_wider(rim[i])) return false;
        }
        if (steps != 2 * (n - 1)) return false;
        for (std::size_t i = 0; i < n; ++i) add_cuts(rim, i);
        return true;
    }

    // Finds the line through the two ends of a rim, and where its vertices lie along it. False when
    // one of them is not on it.
    bool put_on_line(Loop rim) {
        const auto farthest = [&](Vec3d from) {
            std::size_t best = 0;
            double most = -1;
            for (std::size_t i = 0; i < rim.size(); ++i) {
                const double distance = length(place(rim[i].vertex) - from);
                if (distance > most) {
                    most = distance;
                    best = i;
                }
            }
            return place(rim[best].vertex);
        };
        origin_ = farthest(place(rim[0].vertex));
        const Vec3d end = farthest(origin_);
        const double size = length(end - origin_);
        if (!(size > 0) || !std::isfinite(size)) return false;
        direction_ = (end - origin_) / size;
        tolerance_ = kOnLine * size;
        along_.clear();
        for (const auto& entry : rim) {
            if (!(off_line(entry.vertex) <= tolerance_)) return false;
            along_.push_back(dot(place(entry.vertex) - origin_, direction_));
        }
        return true;
    }

    double off_line(std::int32_t vertex) const {
        return length(cross(place(vertex) - origin_, direction_));
    }

    bool is_wider(const BoundaryLoops::Entry& entry) const {
        const Face& face = mesh_.faces[entry.face()];
        return off_line(face.vertex[previous_corner(entry.edge % 3)]) > kWiderThanSlit * tolerance_;
    }

    void add_cuts(Loop rim, std::size_t i) {
        const std::size_t next = (i + 1) % rim.size();
        const auto [low, high] = std::minmax(rank_[i], rank_[next]);
        const Face& face = mesh_.faces[rim[i].face()];
        const bool starts_here = face.vertex[rim[i].edge % 3] == rim[i].vertex;
        const double from = along_[starts_here ? i : next];
        const double to = along_[starts_here ? next : i];
        for (std::size_t rank = low + 1; rank < high; ++rank) {
            const std::size_t between = order_[rank];
            cuts_.push_back(
                {rim[i].edge, (along_[between] - from) / (to - from), rim[between].vertex});
        }
    }

    // Splits a face at the cuts of its edges, one edge after the other.
    void split(std::uint32_t number, std::span<const Cut> cuts) {
        std::array<std::uint32_t, 3> holder = {number, number, number};  // piece with the edge
        for (std::size_t i = 0; i < cuts.size();) {
            const std::size_t edge = cuts[i].edge % 3;
            std::size_t end = i;
            while (end < cuts.size() && cuts[end].edge % 3 == edge) ++end;
            const std::uint32_t last = fan(holder[edge], edge, cuts.subspan(i, end - i));
            if (edge < 2 && holder[edge + 1] == holder[edge]) holder[edge + 1] = last;
            i = end;
        }
    }

    // Divides a face along one edge; it keeps the piece at the start of that edge. Edges have the
    // same numbers in all pieces. Returns the last one, which holds the edge that comes next.
    std::uint32_t fan(std::uint32_t number, std::size_t edge, std::span<const Cut> cuts) {
        const Face whole = mesh_.faces[number];
        const std::size_t far_end = next_corner(edge);
        std::uint32_t piece = number;
        for (const Cut& cut : cuts) {
            Face rest = mesh_.faces[piece];
            set_between(rest, edge, whole, edge, cut);
            set_between(mesh_.faces[piece], far_end, whole, edge, cut);
            piece = static_cast<std::uint32_t>(mesh_.faces.size());
            mesh_.faces.push_back(rest);
        }
        return piece;
    }

    // Puts a corner on an edge of the whole face.
    void set_between(Face& face, std::size_t corner, const Face& whole, std::size_t edge,
                     const Cut& cut) {
        const std::size_t next = next_corner(edge);
        face.vertex[corner] = cut.vertex;
        for (std::size_t channel = 0; channel < 3; ++channel) {
            const double from = whole.colour[3 * edge + channel];
            const double to = whole.colour[3 * next + channel];
            const double mixed = std::clamp(from + (to - from) * cut.at, 0.0, 255.0);
            face.colour[3 * corner + channel] = static_cast<std::uint8_t>(std::lround(mixed));
        }
        if (whole.uv[edge] < 0 || whole.uv[next] < 0) return;
        const TextureCoordinate a =
            mesh_.texture_coordinates[static_cast<std::size_t>(whole.uv[edge])];
        const TextureCoordinate b =
            mesh_.texture_coordinates[static_cast<std::size_t>(whole.uv[next])];
        const auto index = static_cast<std::int32_t>(mesh_.texture_coordinates.size());
        mesh_.texture_coordinates.push_back(
            {a.u + (b.u - a.u) * cut.at, a.v + (b.v - a.v) * cut.at, index});
        face.uv[corner] = index;
    }

    TriMesh& mesh_;
    const BoundaryLoops loops_;
    SlitReport report_;
    std::vector<Cut> cuts_;
    // Of the rim at hand:
    Vec3d origin_;
    Vec3d direction_;
    double tolerance_ = 0;
    std::vector<double> along_;
    std::vector<std::size_t> order_;  // entries by their place along the line
    std::vector<std::size_t> rank_;   // and the other way round
};

}  // namespace

SlitReport close_slits(TriMesh& mesh, const EdgeMates& mates) {
    return SlitCloser(mesh, mates).run();
}

}  // namespace povmesh
