// Which loops of a slice are outer ones and which are holes.
//
// A line sweeps over the plane from below; the edges that it crosses are kept in order from left to
// right. Where the lowest point of a loop comes up, the edge next to it on the left tells how often
// the loops around wind about it: as often as about that edge's own loop, or once more or less
// where the space between the two is inside that loop.
//
// Source: M. de Berg et al., Computational Geometry, 2008, section 2.2 (which faces have which
// holes).
#include <algorithm>
#include <vector>

#include "base/convert.h"
#include "slice/slices.h"

namespace povmesh {
namespace {

constexpr std::uint32_t kNone = 0xFFFFFFFF;

// A sequence of items below a fixed number, as a treap: a search tree whose nodes are a heap by
// random numbers, which keeps it flat. Its order is that of the decisions at insertion, which may
// contradict one another where edges cross; nothing depends on it then but the answer.
class Sequence {
public:
    explicit Sequence(std::size_t item_count) : nodes_(item_count) {}

    // Calls is_right_of(other) for those it is compared with.
    template <typename IsRightOf>
    void insert(std::uint32_t item, IsRightOf&& is_right_of) {
        Node& node = nodes_[item];
        node = {};
        std::uint32_t parent = kNone;
        std::size_t side = 0;
        for (std::uint32_t here = root_; here != kNone; here = nodes_[here].child[side]) {
            parent = here;
            side = is_right_of(here) ? 1 : 0;
        }
        node.parent = parent;
        (parent == kNone ? root_ : nodes_[parent].child[side]) = item;
        while (node.parent != kNone && weight(node.parent) < weight(item)) lift(item);
        node.is_in = true;
    }

    void erase(std::uint32_t item) {
        Node& node = nodes_[item];
        while (node.child[0] != kNone && node.child[1] != kNone) {
            lift(weight(node.child[0]) > weight(node.child[1]) ? node.child[0] : node.child[1]);
        }
        const std::uint32_t child = node.child[0] != kNone ? node.child[0] : node.child[1];
        if (child != kNone) nodes_[child].parent = node.parent;
        place_below(node.parent, item) = child;
        node.is_in = false;
    }

    bool holds(std::uint32_t item) const { return nodes_[item].is_in; }

    std::uint32_t left_neighbour(std::uint32_t item) const {
        std::uint32_t here = nodes_[item].child[0];
        if (here != kNone) {
            while (nodes_[here].child[1] != kNone) here = nodes_[here].child[1];
            return here;
        }
        here = item;
        while (nodes_[here].parent != kNone && nodes_[nodes_[here].parent].child[0] == here) {
            here = nodes_[here].parent;
        }
        return nodes_[here].parent;
    }

private:
    struct Node {
        std::array<std::uint32_t, 2> child{kNone, kNone};
        std::uint32_t parent = kNone;
        bool is_in = false;
    };

    static std::uint32_t weight(std::uint32_t item) {
        std::uint32_t bits = item * 0x9E3779B9U;
        bits ^= bits >> 16;
        return bits * 0x85EBCA6BU;
    }

    std::uint32_t& place_below(std::uint32_t parent, std::uint32_t item) {
        if (parent == kNone) return root_;
        return nodes_[parent].child[nodes_[parent].child[1] == item ? 1 : 0];
    }

    // Exchanges an item with its parent.
    void lift(std::uint32_t item) {
        const std::uint32_t parent = nodes_[item].parent;
        const std::size_t side = nodes_[parent].child[1] == item ? 1 : 0;
        const std::uint32_t inner = nodes_[item].child[1 - side];
        place_below(nodes_[parent].parent, parent) = item;
        nodes_[item].parent = nodes_[parent].parent;
        nodes_[item].child[1 - side] = parent;
        nodes_[parent].parent = item;
        nodes_[parent].child[side] = inner;
        if (inner != kNone) nodes_[inner].parent = parent;
    }

    std::vector<Node> nodes_;
    std::uint32_t root_ = kNone;
};

// What the other loops make of the place of a loop.
struct Surrounding {
    bool is_known = false;
    std::int32_t winding = 0;     // how often they wind about it
    std::uint32_t owner = kNone;  // the outer loop whose material it borders on
};

// Edge i starts at point i of its loop.
class NestingSweep {
public:
    explicit NestingSweep(const SliceLoops& loops)
        : loops_(loops),
          loop_of_(loops.points.size()),
          areas_(loops.size()),
          surrounded_(loops.size()),
          status_(loops.points.size()) {
        for (std::size_t l = 0; l < loops.size(); ++l) {
            areas_[l] = loop_area(loops[l]);
            for (std::size_t i = loops.offsets[l]; i < loops.offsets[l + 1]; ++i) {
                loop_of_[i] = static_cast<std::uint32_t>(l);
            }
        }
    }

    void run() {
        Array<std::uint32_t> order(loops_.points.size());
        for (std::uint32_t i = 0; i < order.size(); ++i) order[i] = i;
        std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
            return is_before(point(a), point(b)) || (!is_before(point(b), point(a)) && a < b);
        });
        for (std::size_t begin = 0; begin < order.size();) {
            std::size_t end = begin + 1;
            while (end < order.size() && !is_before(point(order[begin]), point(order[end]))) ++end;
            pass({order.data() + begin, order.data() + end});
            begin = end;
        }
    }

    bool is_outer(std::size_t l) const { return areas_[l] > 0 && surrounded_[l].winding == 0; }
    bool is_hole(std::size_t l) const {
        return areas_[l] < 0 && surrounded_[l].winding == 1 && surrounded_[l].owner != kNone;
    }
    std::uint32_t owner(std::size_t l) const { return surrounded_[l].owner; }

private:
    static bool is_before(Point2d p, Point2d q) { return p.y < q.y || (p.y == q.y && p.x < q.x); }

    Point2d point(std::uint32_t i) const { return loops_.points[i]; }
    std::uint32_t next(std::uint32_t i) const {
        const std::uint32_t l = loop_of_[i];
        return i + 1 == loops_.offsets[l + 1] ? loops_.offsets[l] : i + 1;
    }
    std::uint32_t previous(std::uint32_t i) const {
        const std::uint32_t l = loop_of_[i];
        return (i == loops_.offsets[l] ? loops_.offsets[l + 1] : i) - 1;
    }
    bool descends(std::uint32_t edge) const { return point(next(edge)).y < point(edge).y; }
    Point2d low(std::uint32_t edge) const { return point(descends(edge) ? next(edge) : edge); }
    Point2d high(std::uint32_t edge) const { return point(descends(edge) ? edge : next(edge)); }

    // All loops' points at one place.
    void pass(std::span<const std::uint32_t> points) {
        for (const std::uint32_t i : points) {
            for (const std::uint32_t edge : {previous(i), i}) {
                if (status_.holds(edge)) status_.erase(edge);
            }
        }
        const Point2d p = point(points.front());
        for (const std::uint32_t i : points) {
            for (const std::uint32_t edge : {previous(i), i}) {
                const bool is_flat = areas_[loop_of_[edge]] == 0;
                if (is_flat || !(p.y < high(edge).y) || status_.holds(edge)) continue;
                status_.insert(edge, [&](std::uint32_t other) {
                    const int side = orient2d(low(other), high(other), p);
                    if (side != 0) return side < 0;
                    return orient2d(low(other), high(other), high(edge)) <= 0;
                });
            }
        }
        for (const std::uint32_t i : points) {
            if (!surrounded_[loop_of_[i]].is_known) look_left(i);
        }
    }

    // At the lowest point of a loop. The loops that start here too are looked at from left to
    // right.
    void look_left(std::uint32_t i) {
        if (!status_.holds(previous(i)) && !status_.holds(i)) return;
        Array<std::uint32_t> chain;  // edges of loops that are not known
        for (std::uint32_t edge = leftmost_edge(i);;) {
            chain.push_back(edge);
            const std::uint32_t left = status_.left_neighbour(edge);
            if (left == kNone || surrounded_[loop_of_[left]].is_known) break;
            edge = left;
        }
        for (std::size_t k = chain.size(); k-- > 0;) settle(chain[k]);
    }

    std::uint32_t leftmost_edge(std::uint32_t i) const {
        const std::uint32_t a = previous(i);
        const std::uint32_t b = i;
        if (!status_.holds(a)) return b;
        if (!status_.holds(b)) return a;
        return orient2d(point(i), high(a), high(b)) < 0 ? a : b;
    }

    void settle(std::uint32_t edge) {
        Surrounding& s = surrounded_[loop_of_[edge]];
        if (s.is_known) return;
        s.is_known = true;
        const std::uint32_t left = status_.left_neighbour(edge);
        if (left == kNone) return;
        const std::uint32_t l = loop_of_[left];
        const Surrounding& other = surrounded_[l];
        const bool is_inside = (areas_[l] > 0) == descends(left);
        s.winding = other.winding + (is_inside ? (areas_[l] > 0 ? 1 : -1) : 0);
        s.owner = is_outer(l) ? (is_inside ? l : kNone) : other.owner;
    }

    const SliceLoops& loops_;
    Array<std::uint32_t> loop_of_;  // by point
    Array<double> areas_;           // by loop
    std::vector<Surrounding> surrounded_;
    Sequence status_;
};

}  // namespace

SliceParts find_slice_parts(const SliceLoops& loops) {
    NestingSweep nesting(loops);
    if (loops.size() > 1) nesting.run();
    Array<std::uint32_t> part_of;
    part_of.assign(loops.size(), kNone);
    SliceParts parts;
    parts.offsets.push_back(0);
    for (std::size_t l = 0; l < loops.size(); ++l) {
        if (!nesting.is_outer(l)) continue;
        part_of[l] = fits<std::uint32_t>(parts.offsets.size() - 1);
        parts.offsets.push_back(1);
    }
    for (std::size_t l = 0; l < loops.size(); ++l) {
        if (nesting.is_hole(l)) ++parts.offsets[part_of[nesting.owner(l)] + 1];
    }
    for (std::size_t p = 1; p < parts.offsets.size(); ++p) parts.offsets[p] += parts.offsets[p - 1];
    parts.loops.resize(parts.offsets.back());
    Array<std::uint32_t> place(parts.offsets.begin(), parts.offsets.end() - 1);
    for (std::uint32_t l = 0; l < loops.size(); ++l) {
        if (nesting.is_outer(l)) parts.loops[place[part_of[l]]++] = l;
    }
    for (std::uint32_t l = 0; l < loops.size(); ++l) {
        if (nesting.is_hole(l)) parts.loops[place[part_of[nesting.owner(l)]]++] = l;
    }
    return parts;
}

}  // namespace povmesh
