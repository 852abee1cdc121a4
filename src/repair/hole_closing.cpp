// Minimum-weight triangulation of each rim by dynamic programming: the best filling of the rim from
// entry i to entry k is the best triangle i, m, k on top of the best fillings of its two halves,
// where the weight is the sharpest dihedral angle and then the area (Barequet and Sharir 1995,
// Liepa 2003). Rims that may not be filled are sorted out before: too long ones, and pairs that
// bound a ring.
#include "repair/hole_closing.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <memory>
#include <span>

#include "base/poll.h"
#include "base/vec.h"
#include "repair/boundary_loops.h"

namespace povmesh {
namespace {

using Loop = std::span<const BoundaryLoops::Entry>;

// Cosine of the largest angle between the normals of two neighbouring faces that counts as a bend
// and not as a fold, 179 degrees.
constexpr double kFoldCosine = -0.9998476951563913;

// Angles whose cosines round to the same of so many steps count as equal, so that rounding does not
// decide how a flat hole is filled.
constexpr double kCosineSteps = 1e7;

// Share of the squared length of the diagonals that counts as area: decides where the area does
// not, and is too small to prefer a larger surface that matters.
constexpr double kDiagonalShare = 1e-4;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// The undirected edges between rim vertices, old ones and those of new faces.
class EdgeSet {
public:
    explicit EdgeSet(std::size_t expected) : slots_(std::bit_ceil(expected * 2 + 16), kEmpty) {}

    bool contains(std::int32_t a, std::int32_t b) const {
        const std::uint64_t key = key_of(a, b);
        for (std::size_t place = home(key);; place = (place + 1) & (slots_.size() - 1)) {
            if (slots_[place] == key) return true;
            if (slots_[place] == kEmpty) return false;
        }
    }

    void insert(std::int32_t a, std::int32_t b) {
        if ((count_ + 1) * 2 > slots_.size()) grow();
        if (put(key_of(a, b))) ++count_;
    }

private:
    static constexpr std::uint64_t kEmpty = ~std::uint64_t{0};

    static std::uint64_t key_of(std::int32_t a, std::int32_t b) {
        const auto [low, high] = std::minmax(a, b);
        return (static_cast<std::uint64_t>(high) << 32) | static_cast<std::uint32_t>(low);
    }
    std::size_t home(std::uint64_t key) const {
        std::uint64_t h = key * 0x9E3779B97F4A7C15U;
        h ^= h >> 32;
        return (h * 0xD6E8FEB86659FD93U >> 20) & (slots_.size() - 1);
    }
    bool put(std::uint64_t key) {
        std::size_t place = home(key);
        while (slots_[place] != kEmpty) {
            if (slots_[place] == key) return false;
            place = (place + 1) & (slots_.size() - 1);
        }
        slots_[place] = key;
        return true;
    }
    void grow() {
        Array<std::uint64_t> old(slots_.size() * 2, kEmpty);
        old.swap(slots_);
        for (const std::uint64_t key : old) {
            if (key != kEmpty) put(key);
        }
    }

    Array<std::uint64_t> slots_;
    std::size_t count_ = 0;
};

Vec3d place(const TriMesh& mesh, std::int32_t vertex) {
    return to_double(mesh.vertices[static_cast<std::size_t>(vertex)].position());
}

Vec3d unit_or_zero(Vec3d v) {
    const double size = length(v);
    return size > 0 ? v / size : Vec3d{};
}

/// Finds the best filling of one rim.
class RimFiller {
public:
    struct Triangle {
        std::size_t a, b, c;  // entries of the rim
    };

    /// @param allowed  whether a new edge between two rim vertices may be made
    template <typename Allowed>
    bool fill(const TriMesh& mesh, Loop rim, Allowed&& allowed, std::vector<Triangle>& triangles) {
        n_ = rim.size();
        for (std::size_t i = 0; i < n_; ++i) points_[i] = place(mesh, rim[i].vertex);
        for (std::size_t i = 0; i < n_; ++i) set_rim_side(mesh, rim, i);
        for (std::size_t span = 2; span < n_; ++span) {
            for (std::size_t i = 0; i + span < n_; ++i) {
                const std::size_t k = i + span;
                const bool is_whole = span + 1 == n_;
                Part part;
                if (is_whole || allowed(rim[i].vertex, rim[k].vertex)) choose(i, k, is_whole, part);
                set_part(i, k, part);
            }
        }
        const Part& whole = part_at(0, n_ - 1);
        if (!whole.is_possible() || !(whole.plain_area > 0)) return false;
        collect(triangles);
        return true;
    }

private:
    struct Cost {
        double bend = -kInfinity;  // smallest cosine of a dihedral angle, in whole steps
        double area = kInfinity;   // with the share of the diagonals

        bool is_possible() const { return bend > -kInfinity; }
    };

    // The best filling of the rim from entry i to entry k and the edge between them.
    struct Part : Cost {
        double plain_area = 0;
        std::size_t apex = 0;  // third entry of the triangle at the edge i-k
        Vec3d normal;          // unit normal of that triangle, or of the mesh face at a rim edge
    };

    const Part& part_at(std::size_t i, std::size_t k) const { return parts_[i * n_ + k]; }

    // The costs stand apart from the parts, by either end, so that the search reads them in order.
    void set_part(std::size_t i, std::size_t k, const Part& part) {
        parts_[i * n_ + k] = part;
        costs_from_[i * n_ + k] = part;
        costs_to_[k * n_ + i] = part;
    }

    // The mesh face at the rim edge from entry i on, as a part without triangles. Its normal is
    // taken as if its winding agreed with the filling.
    void set_rim_side(const TriMesh& mesh, Loop rim, std::size_t i) {
        const std::size_t next = (i + 1) % n_;
        const Face& face = mesh.faces[rim[i].face()];
        std::int32_t third = face.vertex[previous_corner(rim[i].edge % 3)];
        const Vec3d normal =
            unit_or_zero(cross(points_[i] - points_[next], place(mesh, third) - points_[next]));
        if (next == 0) {
            closing_normal_ = normal;
            return;
        }
        Part part;
        part.bend = kInfinity;
        part.area = 0;
        part.normal = normal;
        set_part(i, next, part);
    }

    void choose(std::size_t i, std::size_t k, bool is_whole, Part& best) {
        const Vec3d edge = points_[k] - points_[i];
        for (std::size_t m = i + 1; m < k; ++m) {
            const Cost& left_cost = costs_from_[i * n_ + m];
            const Cost& right_cost = costs_to_[k * n_ + m];
            double bend = std::min(left_cost.bend, right_cost.bend);
            double area = left_cost.area + right_cost.area;
            // The triangle between them only adds to either.
            if (bend < best.bend || (bend == best.bend && area >= best.area)) continue;
            const Part& left = part_at(i, m);
            const Part& right = part_at(m, k);
            const Vec3d doubled = cross(points_[m] - points_[i], edge);
            const double doubled_area = length(doubled);
            if (!std::isfinite(doubled_area)) continue;
            Vec3d normal;
            double cosine =
                -1;  // a triangle without area has no normal and counts as the sharpest bend
            if (doubled_area > 0) {
                normal = doubled / doubled_area;
                cosine = kInfinity;
                if (!meet(normal, left.normal, cosine) || !meet(normal, right.normal, cosine)) {
                    continue;
                }
                if (is_whole && !meet(normal, closing_normal_, cosine)) continue;
            }
            bend = std::min(bend, std::floor(cosine * kCosineSteps + 0.5));
            const double plain_area = left.plain_area + right.plain_area + doubled_area / 2;
            area += doubled_area / 2;
            if (!is_whole) area += kDiagonalShare * dot(edge, edge);
            const bool is_better = bend > best.bend || (bend == best.bend && area < best.area);
            if (is_better) best = {{bend, area}, plain_area, m, normal};
        }
    }

    // Takes the angle between a new triangle and its neighbour into the least cosine; false for a
    // fold. A neighbour without area says nothing.
    static bool meet(Vec3d normal, Vec3d neighbour, double& least) {
        const double cosine = dot(normal, neighbour);
        if (cosine == 0 && !(dot(neighbour, neighbour) > 0)) return true;
        least = std::min(least, cosine);
        return cosine > kFoldCosine;
    }

    void collect(std::vector<Triangle>& triangles) {
        triangles.clear();
        std::array<std::array<std::size_t, 2>, kMaxHoleEdges> stack{};
        std::size_t depth = 0;
        stack[depth++] = {0, n_ - 1};
        while (depth > 0) {
            const auto [i, k] = stack[--depth];
            if (k - i < 2) continue;
            const std::size_t m = part_at(i, k).apex;
            triangles.push_back({i, m, k});
            stack[depth++] = {i, m};
            stack[depth++] = {m, k};
        }
    }

    std::size_t n_ = 0;
    std::array<Vec3d, kMaxHoleEdges> points_;
    Vec3d closing_normal_;  // of the mesh face at the edge from the last entry to the first
    // Of the parts from i to k, i < k; by i * n_ + k and k * n_ + i.
    std::array<Part, kMaxHoleEdges * kMaxHoleEdges> parts_;
    std::array<Cost, kMaxHoleEdges * kMaxHoleEdges> costs_from_;
    std::array<Cost, kMaxHoleEdges * kMaxHoleEdges> costs_to_;
};

Box3d box_of(const TriMesh& mesh, Loop rim) {
    Box3d box;
    for (const auto& entry : rim) box.widen(place(mesh, entry.vertex));
    return box;
}

bool is_inside(const Box3d& box, Vec3d p) {
    const Vec3d offset = p - (box.low + box.high) * 0.5;
    const Vec3d half = (box.high - box.low) * 0.5;
    double sum = 0;
    const std::array<std::array<double, 2>, 3> axes = {
        {{offset.x, half.x}, {offset.y, half.y}, {offset.z, half.z}}};
    for (const auto& [distance, extent] : axes) {
        if (extent > 0) {
            sum += (distance / extent) * (distance / extent);
        } else if (distance != 0) {
            return false;
        }
    }
    return sum <= 1.0;
}

/// Answers which of many boxes hold a point: a balanced tree over the boxes in the order of their
/// centres. Boxes can be settled; nodes know how many below them are not.
class BoxTree {
public:
    explicit BoxTree(std::span<const Box3d> boxes) : boxes_(boxes), order_(boxes.size()) {
        for (std::size_t i = 0; i < order_.size(); ++i) order_[i] = static_cast<std::uint32_t>(i);
        bounds_.resize(boxes.size());
        open_counts_.resize(boxes.size());
        build(0, order_.size());
        places_.resize(boxes.size());
        for (std::size_t i = 0; i < order_.size(); ++i) places_[order_[i]] = i;
    }

    /// Calls visit(box), which may settle boxes. From the moment on that it returns true, only for
    /// boxes that are not settled; from the start when `only_open` is set.
    template <typename Visit>
    void boxes_with(Vec3d p, bool only_open, Visit&& visit) const {
        search(0, order_.size(), p, only_open, visit);
    }

    /// To be called once for a box.
    void settle(std::uint32_t box) {
        const std::size_t place = places_[box];
        std::size_t begin = 0;
        std::size_t end = order_.size();
        for (;;) {
            const std::size_t middle = begin + (end - begin) / 2;
            --open_counts_[middle];
            if (place == middle) return;
            (place < middle ? end : begin) = place < middle ? middle : middle + 1;
        }
    }

private:
    static bool holds(const Box3d& box, Vec3d p) {
        return p.x >= box.low.x && p.x <= box.high.x && p.y >= box.low.y && p.y <= box.high.y &&
               p.z >= box.low.z && p.z <= box.high.z;
    }

    // The node of a range is its middle place; its bounds are those of the whole range.
    void build(std::size_t begin, std::size_t end) {
        if (begin == end) return;
        Box3d bounds;
        for (std::size_t i = begin; i < end; ++i) {
            bounds.widen(boxes_[order_[i]].low);
            bounds.widen(boxes_[order_[i]].high);
        }
        const Vec3d extent = bounds.extent();
        const std::size_t middle = begin + (end - begin) / 2;
        const auto centre = [&](std::uint32_t box) {
            const Vec3d sum = boxes_[box].low + boxes_[box].high;
            const double along = extent.x >= extent.y && extent.x >= extent.z ? sum.x
                                 : extent.y >= extent.z                       ? sum.y
                                                                              : sum.z;
            return std::isfinite(along) ? along : 0.0;  // an order needs numbers
        };
        const auto at = [&](std::size_t i) {
            return order_.begin() + static_cast<std::ptrdiff_t>(i);
        };
        std::nth_element(at(begin), at(middle), at(end),
                         [&](std::uint32_t a, std::uint32_t b) { return centre(a) < centre(b); });
        bounds_[middle] = bounds;
        open_counts_[middle] = end - begin;
        build(begin, middle);
        build(middle + 1, end);
    }

    template <typename Visit>
    void search(std::size_t begin, std::size_t end, Vec3d p, bool& only_open, Visit& visit) const {
        if (begin == end) return;
        const std::size_t middle = begin + (end - begin) / 2;
        if ((only_open && open_counts_[middle] == 0) || !holds(bounds_[middle], p)) return;
        if (holds(boxes_[order_[middle]], p)) only_open = visit(order_[middle]) || only_open;
        search(begin, middle, p, only_open, visit);
        search(middle + 1, end, p, only_open, visit);
    }

    std::span<const Box3d> boxes_;
    Array<std::uint32_t> order_;
    Array<std::size_t> places_;  // by box, in the order
    Array<Box3d> bounds_;
    Array<std::size_t> open_counts_;  // by node
};

class HoleCloser {
public:
    HoleCloser(TriMesh& mesh, const EdgeMates& mates, std::size_t max_edges)
        : mesh_(mesh),
          loops_(trace_boundary_loops(mesh, mates)),
          max_edges_(std::min(max_edges, kMaxHoleEdges)),
          filler_(std::make_unique<RimFiller>()) {}

    HoleReport run() {
        report_.unclosed_edge_count = loops_.unclosed_edge_count;
        for (std::size_t i = 0; i < loops_.size(); ++i) {
            const bool fits = loops_[i].size() <= max_edges_;
            report_.holes.push_back({loops_[i].size(), loops_[i].front().face(),
                                     fits ? HoleFate::NoFilling : HoleFate::TooLong, 0, 0});
        }
        if (loops_.size() == 0) return std::move(report_);
        const std::size_t old_face_count = mesh_.faces.size();
        EdgeSet edges = rim_edges();
        close_where([](std::size_t edge_count) { return edge_count == 3; }, edges);
        mark_rings();
        close_where([](std::size_t edge_count) { return edge_count > 3; }, edges);
        report_.added_face_count = mesh_.faces.size() - old_face_count;
        if (report_.added_face_count > 0) mesh_.use_table.clear();
        return std::move(report_);
    }

private:
    bool is_considered(std::size_t loop) const {
        return report_.holes[loop].fate != HoleFate::TooLong;
    }

    // Every edge of a live face between two vertices of rims that may be closed.
    EdgeSet rim_edges() const {
        Array<std::uint8_t> is_rim(mesh_.vertices.size(), 0);
        std::size_t rim_vertices = 0;
        for (std::size_t i = 0; i < loops_.size(); ++i) {
            if (!is_considered(i)) continue;
            for (const auto& entry : loops_[i]) is_rim[static_cast<std::size_t>(entry.vertex)] = 1;
            rim_vertices += loops_[i].size();
        }
        EdgeSet edges(rim_vertices * 2);
        Poller poller;
        for (const Face& face : mesh_.faces) {
            poller();
            if (face.deleted != 0) continue;
            for (std::size_t c = 0; c < 3; ++c) {
                const std::int32_t a = face.vertex[c];
                const std::int32_t b = face.vertex[next_corner(c)];
                if (is_rim[static_cast<std::size_t>(a)] != 0 &&
                    is_rim[static_cast<std::size_t>(b)] != 0) {
                    edges.insert(a, b);
                }
            }
        }
        return edges;
    }

    template <typename Wanted>
    void close_where(Wanted&& wanted, EdgeSet& edges) {
        for (std::size_t i = 0; i < loops_.size(); ++i) {
            Hole& hole = report_.holes[i];
            if (hole.fate != HoleFate::NoFilling || !wanted(hole.edge_count)) continue;
            const std::size_t before = mesh_.faces.size();
            if (!close(loops_[i], edges)) continue;
            hole.fate = HoleFate::Closed;
            hole.first_added = static_cast<std::uint32_t>(before);
            hole.added_count = static_cast<std::uint32_t>(mesh_.faces.size() - before);
        }
    }

    // A rim in the ellipsoid of another one: both stay open.
    void mark_rings() {
        Array<std::uint32_t> candidates;
        Array<Box3d> boxes;
        for (std::size_t i = 0; i < loops_.size(); ++i) {
            if (report_.holes[i].fate != HoleFate::NoFilling || loops_[i].size() < 4) continue;
            candidates.push_back(static_cast<std::uint32_t>(i));
            boxes.push_back(box_of(mesh_, loops_[i]));
        }
        BoxTree tree(boxes);
        const auto is_marked = [&](std::size_t i) {
            return report_.holes[candidates[i]].fate == HoleFate::PartOfRing;
        };
        const auto mark = [&](std::size_t i) {
            if (is_marked(i)) return;
            report_.holes[candidates[i]].fate = HoleFate::PartOfRing;
            tree.settle(static_cast<std::uint32_t>(i));
        };
        for (std::size_t i = 0; i < candidates.size(); ++i) {
            const Loop inner = loops_[candidates[i]];
            if (inner.size() < 5) continue;
            // Of two rims that are marked there is nothing to find out.
            tree.boxes_with(place(mesh_, inner.front().vertex), is_marked(i), [&](std::uint32_t j) {
                if (j == i || (is_marked(i) && is_marked(j))) return is_marked(i);
                const bool lies_inside =
                    std::all_of(inner.begin(), inner.end(), [&](const auto& entry) {
                        return is_inside(boxes[j], place(mesh_, entry.vertex));
                    });
                if (lies_inside) {
                    mark(i);
                    mark(j);
                }
                return is_marked(i);
            });
        }
    }

    bool close(Loop rim, EdgeSet& edges) {
        // A face that stands alone is its own rim of three; its other side would be its duplicate.
        if (rim.size() == 3 && rim[0].face() == rim[1].face()) return false;
        const auto allowed = [&](std::int32_t a, std::int32_t b) { return !edges.contains(a, b); };
        if (!filler_->fill(mesh_, rim, allowed, triangles_)) return false;
        for (const RimFiller::Triangle& t : triangles_) {
            Face face{};
            face.label = -1;
            face.uv = {-1, -1, -1};
            face.vertex = {rim[t.a].vertex, rim[t.b].vertex, rim[t.c].vertex};
            set_colour(face, 0, rim, t.a);
            set_colour(face, 1, rim, t.b);
            set_colour(face, 2, rim, t.c);
            mesh_.faces.push_back(face);
            // The triangle's own edge i-k; its two others are those of the triangles below it, or
            // the rim.
            edges.insert(face.vertex[0], face.vertex[2]);
        }
        return true;
    }

    // The mean of the colours that the two faces of the rim have at a vertex of it.
    void set_colour(Face& face, std::size_t corner, Loop rim, std::size_t entry) const {
        const std::size_t before = (entry + rim.size() - 1) % rim.size();
        const Face& first = mesh_.faces[rim[before].face()];
        const Face& second = mesh_.faces[rim[entry].face()];
        const std::size_t c1 = corner_at(first, rim[entry].vertex);
        const std::size_t c2 = corner_at(second, rim[entry].vertex);
        for (std::size_t channel = 0; channel < 3; ++channel) {
            face.colour[3 * corner + channel] = static_cast<std::uint8_t>(
                (first.colour[3 * c1 + channel] + second.colour[3 * c2 + channel]) / 2);
        }
    }

    static std::size_t corner_at(const Face& face, std::int32_t vertex) {
        return face.vertex[0] == vertex ? 0 : face.vertex[1] == vertex ? 1 : 2;
    }

    TriMesh& mesh_;
    const BoundaryLoops loops_;
    const std::size_t max_edges_;
    HoleReport report_;
    std::unique_ptr<RimFiller> filler_;  // too large for the stacks of some hosts
    std::vector<RimFiller::Triangle> triangles_;
};

}  // namespace

HoleReport close_holes(TriMesh& mesh, const EdgeMates& mates, std::size_t max_edges) {
    return HoleCloser(mesh, mates, max_edges).run();
}

}  // namespace povmesh
