// Notation: u and v are the coordinates across the axis, w is the one along it. By the divergence
// theorem the volume of a body is the integral of u over its surface, weighted by the u component
// of the outward normal; with u u / 2, u v and u w in the place of u it is the first moments. The
// planes add nothing to it, because their normals have no u component: so the surface alone, cut
// at the planes, tells the volume of each piece.
#include "analysis/section_sweep.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/array.h"
#include "base/poll.h"
#include "base/union_find.h"
#include "mesh/bounds.h"

namespace povmesh {
namespace {

constexpr std::uint32_t kNone = 0xFFFFFFFF;

struct Uvw {
    double u, v, w;
};

// Of a triangle to the volume and the moments along u, v and w.
struct Share {
    double volume = 0;
    Uvw moment{};

    friend Share operator-(const Share& a, const Share& b) {
        return {a.volume - b.volume,
                {a.moment.u - b.moment.u, a.moment.v - b.moment.v, a.moment.w - b.moment.w}};
    }
    void operator+=(const Share& b) {
        volume += b.volume;
        moment = {moment.u + b.moment.u, moment.v + b.moment.v, moment.w + b.moment.w};
    }
};

// Quadratic polynomials are integrated exactly by their values in the middles of the sides.
Share share_of(Uvw a, Uvw b, Uvw c) {
    const double area_u =
        ((b.v - a.v) * (c.w - a.w) - (b.w - a.w) * (c.v - a.v)) / 2;  // along u, signed
    const auto middle = [](Uvw p, Uvw q) {
        return Uvw{(p.u + q.u) / 2, (p.v + q.v) / 2, (p.w + q.w) / 2};
    };
    Share share{area_u * (a.u + b.u + c.u) / 3, {}};
    for (const Uvw m : {middle(a, b), middle(b, c), middle(c, a)}) {
        share.moment.u += area_u / 3 * m.u * m.u / 2;
        share.moment.v += area_u / 3 * m.u * m.v;
        share.moment.w += area_u / 3 * m.u * m.w;
    }
    return share;
}

Uvw on_edge(Uvw p, Uvw q, double w) {
    const double t = (w - p.w) / (q.w - p.w);
    return {p.u + (q.u - p.u) * t, p.v + (q.v - p.v) * t, w};
}

// Of the part of a triangle below a height.
Share share_below(std::array<Uvw, 3> corner, double w) {
    std::size_t below = 0;
    for (const Uvw& p : corner) below += p.w < w ? 1 : 0;
    if (below == 0) return {};
    if (below == 3) return share_of(corner[0], corner[1], corner[2]);
    // Turned so that the corner that stands alone is the first.
    while ((corner[0].w < w) != (below == 1) || (corner[1].w < w) == (below == 1)) {
        std::rotate(corner.begin(), corner.begin() + 1, corner.end());
    }
    const Share tip =
        share_of(corner[0], on_edge(corner[0], corner[1], w), on_edge(corner[0], corner[2], w));
    return below == 1 ? tip : share_of(corner[0], corner[1], corner[2]) - tip;
}

class Sweep {
public:
    Sweep(const TriMesh& mesh, std::size_t axis, const Slicer& slicer)
        : mesh_(mesh), axis_(axis), slicer_(slicer) {
        const Box3f box = finite_bounds(mesh);
        if (!box.is_empty()) origin_ = (to_double(box.low) + to_double(box.high)) / 2.0;
        for (std::size_t v = 0; v < mesh.vertices.size(); ++v) add_node();
        last_part_.assign(mesh.faces.size(), kNone);
    }

    SectionSweep run() {
        SliceLoops loops;
        for (std::size_t layer = 0; layer < slicer_.layer_count(); ++layer) {
            poll();
            slicer_.slice(layer, loops);
            const SliceParts parts = find_slice_parts(loops);
            for (std::uint32_t p = 0; p < parts.size(); ++p) {
                add_part(static_cast<std::uint32_t>(layer), p, loops, parts[p]);
            }
        }
        for (std::uint32_t f = 0; f < mesh_.faces.size(); ++f) {
            poll_at(f);
            finish(f);
        }
        gather();
        return std::move(sweep_);
    }

private:
    // Nodes are what pieces are put together from: the vertices, and below and above each part.
    void add_node() {
        nodes_.add();
        shares_.push_back({});
    }
    std::uint32_t below(std::uint32_t part) const {
        return static_cast<std::uint32_t>(mesh_.vertices.size()) + 2 * part;
    }
    std::uint32_t above(std::uint32_t part) const { return below(part) + 1; }

    void add_part(std::uint32_t layer, std::uint32_t number, const SliceLoops& loops,
                  std::span<const std::uint32_t> part) {
        const auto index = static_cast<std::uint32_t>(sweep_.parts.size());
        sweep_.parts.push_back({layer, number, section_shape(loops, part)});
        add_node();
        add_node();
        for (const std::uint32_t loop : part) {
            for (const std::uint32_t face : loops.faces_of(loop)) pass(face, index);
        }
    }

    std::array<Uvw, 3> corners(std::uint32_t face) const {
        std::array<Uvw, 3> corner{};
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3d p = to_double(mesh_.corner_position(mesh_.faces[face], c)) - origin_;
            const Point2d q = across_axis(p, axis_);
            corner[c] = {q.x, q.y, along_axis(p, axis_)};
        }
        return corner;
    }
    double height(std::uint32_t part) const {
        return slicer_.height(sweep_.parts[part].layer) - along_axis(origin_, axis_);
    }

    // A face on its way up reaches a part: what it has passed since its last one lies below.
    void pass(std::uint32_t face, std::uint32_t part) {
        const std::uint32_t last = std::exchange(last_part_[face], part);
        if (last == part) return;  // two loops of a part may share a face where it was passed twice
        const std::uint32_t layer = sweep_.parts[part].layer;
        const auto corner = corners(face);
        Share share = share_below(corner, height(part));
        if (last != kNone) {
            share = share - share_below(corner, height(last));
            nodes_.unite(above(last), below(part));
        }
        shares_[below(part)] += share;
        for (const std::int32_t v : mesh_.faces[face].vertex) {
            const auto vertex = static_cast<std::uint32_t>(v);
            const std::uint32_t level = slicer_.level(vertex);
            const bool is_new = last == kNone || level > sweep_.parts[last].layer;
            if (is_new && level <= layer) nodes_.unite(vertex, below(part));
        }
    }

    // What a face has above its last part.
    void finish(std::uint32_t face) {
        if (!slicer_.takes_part(mesh_.faces[face])) return;
        const auto corner = corners(face);
        const auto& vertex = mesh_.faces[face].vertex;
        const std::uint32_t last = last_part_[face];
        Share share = share_of(corner[0], corner[1], corner[2]);
        if (last == kNone) {
            shares_[static_cast<std::uint32_t>(vertex[0])] += share;
            nodes_.unite(static_cast<std::uint32_t>(vertex[0]),
                         static_cast<std::uint32_t>(vertex[1]));
            nodes_.unite(static_cast<std::uint32_t>(vertex[0]),
                         static_cast<std::uint32_t>(vertex[2]));
            return;
        }
        shares_[above(last)] += share - share_below(corner, height(last));
        for (const std::int32_t v : vertex) {
            const auto corner_vertex = static_cast<std::uint32_t>(v);
            if (slicer_.level(corner_vertex) > sweep_.parts[last].layer) {
                nodes_.unite(corner_vertex, above(last));
            }
        }
    }

    Vec3d from_uvw(Uvw p) const { return at_height({p.u, p.v}, p.w, axis_); }

    void gather() {
        std::vector<std::uint32_t> piece_of(nodes_.size(), kNone);
        const auto piece_at = [&](std::uint32_t node, std::uint32_t slab) {
            std::uint32_t& piece = piece_of[nodes_.find(node)];
            if (piece == kNone) {
                piece = static_cast<std::uint32_t>(sweep_.graph.pieces.size());
                sweep_.graph.pieces.push_back({{}, slab});
            }
            return piece;
        };
        for (std::uint32_t p = 0; p < sweep_.parts.size(); ++p) {
            const SectionPart& part = sweep_.parts[p];
            sweep_.graph.joints.push_back(
                {piece_at(below(p), part.layer), piece_at(above(p), part.layer + 1), part.layer,
                 part.shape.area,
                 at_height(part.shape.centroid, slicer_.height(part.layer), axis_)});
        }
        std::vector<Share> sums(sweep_.graph.pieces.size());
        for (std::uint32_t node = 0; node < nodes_.size(); ++node) {
            const std::uint32_t piece = piece_of[nodes_.find(node)];
            if (piece != kNone) sums[piece] += shares_[node];
        }
        for (std::size_t i = 0; i < sums.size(); ++i) {
            sweep_.graph.pieces[i].mass = {sums[i].volume,
                                           from_uvw(sums[i].moment) + origin_ * sums[i].volume};
        }
    }

    const TriMesh& mesh_;
    std::size_t axis_;
    const Slicer& slicer_;
    Vec3d origin_;  // in the middle of the model: far from there digits would cancel
    UnionFind nodes_;
    Array<Share> shares_;             // by node
    Array<std::uint32_t> last_part_;  // by face
    SectionSweep sweep_;
};

}  // namespace

SectionSweep sweep_sections(const TriMesh& mesh, std::size_t axis, const Slicer& slicer) {
    return Sweep(mesh, axis, slicer).run();
}

}  // namespace povmesh
