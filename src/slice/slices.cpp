// Each face that a plane crosses gives a segment from edge to edge of the mesh; equal edges are
// equal nodes, found by hashing, so that loops are traced by numbers and never by nearness of
// points. The faces of a plane come from an interval tree over the levels of their corners.
#include "slice/slices.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cmath>
#include <utility>
#include <vector>

#include "base/convert.h"
#include "base/poll.h"
#include "slice/loops.h"

namespace povmesh {
namespace {

// Numbers the edges of the mesh that a plane crosses, in the order in which they come up.
class CrossedEdges {
public:
    explicit CrossedEdges(std::size_t segment_count)
        : table_(std::bit_ceil(4 * segment_count + 2), Slot{}),
          mask_(table_.size() - 1),
          shift_(64 - std::countr_zero(table_.size())) {}

    // Returns the number of the edge, and whether it is new.
    std::pair<std::int32_t, bool> insert(std::uint32_t a, std::uint32_t b) {
        const std::uint64_t key = (std::uint64_t{std::min(a, b)} << 32) | std::max(a, b);
        std::size_t place = key * 0x9E3779B97F4A7C15ULL >> shift_;
        while (table_[place].number != kFree && table_[place].key != key) {
            place = (place + 1) & mask_;
        }
        if (table_[place].number != kFree) return {table_[place].number, false};
        table_[place] = {key, count_};
        return {count_++, true};
    }

private:
    static constexpr std::int32_t kFree = -1;
    struct Slot {
        std::uint64_t key = 0;
        std::int32_t number = kFree;
    };

    std::vector<Slot> table_;
    std::size_t mask_;
    int shift_;  // the highest bits of the product depend on all bits of the key
    std::int32_t count_ = 0;
};

std::size_t at(std::int32_t index) {
    return static_cast<std::size_t>(index);
}

// The segments in which the faces of a slice meet its plane, from crossed edge to crossed edge.
struct Segments {
    Array<LoopEdge> edges;
    Array<std::uint32_t> faces;  // by segment
    Array<Point2d> points;       // by crossed edge

    void add(const LoopEdge& edge, std::uint32_t face) {
        edges.push_back(edge);
        faces.push_back(face);
    }
};

class LoopWriter {
public:
    LoopWriter(const Segments& segments, SliceLoops& loops) : segments_(segments), loops_(loops) {
        loops_.offsets.assign(1, 0);
        loops_.face_offsets.assign(1, 0);
        loops_.points.clear();
        loops_.faces.clear();
        loops_.is_closed = true;
    }

    // A segment whose face is kNoFace closes a gap.
    static constexpr std::uint32_t kNoFace = 0xFFFFFFFF;

    void add(std::int32_t point, std::uint32_t face) {
        const Point2d p = segments_.points[at(point)];
        const bool is_first = loops_.points.size() == loops_.offsets.back();
        if (is_first || !same(loops_.points.back(), p)) loops_.points.push_back(p);
        if (face != kNoFace) loops_.faces.push_back(face);
    }

    // Drops the loop if too little of it is left.
    void close(bool is_reversed) {
        const std::size_t begin = loops_.offsets.back();
        Array<Point2d>& points = loops_.points;
        while (points.size() > begin + 1 && same(points.back(), points[begin])) points.pop_back();
        if (points.size() < begin + 3) {
            points.resize(begin);
            loops_.faces.resize(loops_.face_offsets.back());
            return;
        }
        if (is_reversed) {
            std::reverse(points.begin() + static_cast<std::ptrdiff_t>(begin), points.end());
        }
        loops_.offsets.push_back(fits<std::uint32_t>(points.size()));
        loops_.face_offsets.push_back(fits<std::uint32_t>(loops_.faces.size()));
    }

    void mark_open() { loops_.is_closed = false; }

private:
    static bool same(Point2d p, Point2d q) { return p.x == q.x && p.y == q.y; }

    const Segments& segments_;
    SliceLoops& loops_;
};

// What is left of the segments after their closed loops.
Segments unused(const Segments& all, const Loops& loops) {
    Array<std::uint8_t> is_used;
    is_used.assign(all.edges.size(), 0);
    for (const std::uint32_t edge : loops.edges) is_used[edge] = 1;
    Segments left;
    for (std::size_t i = 0; i < all.edges.size(); ++i) {
        if (is_used[i] == 0) left.add(all.edges[i], all.faces[i]);
    }
    left.points = all.points;
    return left;
}

void write_directed(const Segments& segments, const Loops& loops, LoopWriter& writer) {
    for (std::size_t l = 0; l < loops.size(); ++l) {
        for (const std::uint32_t edge : loops[l]) {
            writer.add(segments.edges[edge].from, segments.faces[edge]);
        }
        writer.close(false);
    }
}

// Where a loop starts when its edges are passed in either direction.
std::int32_t start_of(const Segments& segments, std::span<const std::uint32_t> loop) {
    const LoopEdge& first = segments.edges[loop.front()];
    const LoopEdge& second = segments.edges[loop[1 % loop.size()]];
    return first.to == second.from || first.to == second.to ? first.from : first.to;
}

void write_undirected(const Segments& segments, const Loops& loops, LoopWriter& writer) {
    for (std::size_t l = 0; l < loops.size(); ++l) {
        std::int32_t here = start_of(segments, loops[l]);
        std::ptrdiff_t against = 0;
        for (const std::uint32_t edge : loops[l]) {
            const LoopEdge& e = segments.edges[edge];
            writer.add(here, segments.faces[edge]);
            against += e.from == here ? -1 : 1;
            here = e.from == here ? e.to : e.from;
        }
        writer.close(against > 0);
    }
}

// A path along segments from a point that it does not return to.
struct Chain {
    Array<std::uint32_t> segments;
    std::int32_t start, end;
};

// Divides a forest, which a graph without its loops is, into paths from leaf to leaf. Where
// segments are passed against their direction more often than along it, the path is turned round.
std::vector<Chain> find_chains(const Segments& segments) {
    const std::size_t node_count = segments.points.size();
    Array<std::uint32_t> next;
    next.assign(node_count + 2, 0);
    const auto for_ends = [&](auto&& visit) {
        for (std::uint32_t e = 0; e < segments.edges.size(); ++e) {
            visit(at(segments.edges[e].from), e);
            visit(at(segments.edges[e].to), e);
        }
    };
    for_ends([&](std::size_t v, std::uint32_t) { ++next[v + 2]; });
    for (std::size_t i = 2; i < next.size(); ++i) next[i] += next[i - 1];
    Array<std::uint32_t> at_node(next.back());
    for_ends([&](std::size_t v, std::uint32_t e) { at_node[next[v + 1]++] = e; });
    const Array<std::uint32_t> begin = next;
    Array<std::uint8_t> is_used;
    is_used.assign(segments.edges.size(), 0);
    const auto find_edge = [&](std::size_t v) {
        while (next[v] < begin[v + 1] && is_used[at_node[next[v]]] != 0) ++next[v];
        return next[v] < begin[v + 1];
    };
    std::vector<Chain> chains;
    for (std::size_t v = 0; v < node_count; ++v) {
        if ((begin[v + 1] - begin[v]) % 2 == 0 || !find_edge(v)) continue;
        Chain chain{{}, static_cast<std::int32_t>(v), static_cast<std::int32_t>(v)};
        std::ptrdiff_t against = 0;
        while (find_edge(at(chain.end))) {
            const std::uint32_t e = at_node[next[at(chain.end)]];
            is_used[e] = 1;
            chain.segments.push_back(e);
            const bool is_forward = segments.edges[e].from == chain.end;
            against += is_forward ? -1 : 1;
            chain.end = is_forward ? segments.edges[e].to : segments.edges[e].from;
        }
        if (against > 0) {
            std::reverse(chain.segments.begin(), chain.segments.end());
            std::swap(chain.start, chain.end);
        }
        chains.push_back(std::move(chain));
    }
    return chains;
}

// For each chain the one that is to follow it: the nearest pairs of an end and a start first. Each
// follows itself where there are too many for that.
std::vector<std::size_t> successors(const Segments& segments, const std::vector<Chain>& chains) {
    struct Gap {
        double width;
        std::size_t from, to;
    };
    constexpr std::size_t kMostJoined = 200;  // 40,000 gaps are looked at then
    std::vector<std::size_t> next(chains.size());
    for (std::size_t i = 0; i < next.size(); ++i) next[i] = i;
    if (chains.size() > kMostJoined) return next;
    std::vector<Gap> gaps;
    for (std::size_t from = 0; from < chains.size(); ++from) {
        const Point2d p = segments.points[at(chains[from].end)];
        for (std::size_t to = 0; to < chains.size(); ++to) {
            const Point2d q = segments.points[at(chains[to].start)];
            gaps.push_back({std::hypot(q.x - p.x, q.y - p.y), from, to});
        }
    }
    std::stable_sort(gaps.begin(), gaps.end(),
                     [](const Gap& a, const Gap& b) { return a.width < b.width; });
    std::vector<std::uint8_t> has_next(chains.size(), 0);
    std::vector<std::uint8_t> has_previous(chains.size(), 0);
    for (const Gap& gap : gaps) {
        if (has_next[gap.from] != 0 || has_previous[gap.to] != 0) continue;
        has_next[gap.from] = has_previous[gap.to] = 1;
        next[gap.from] = gap.to;
    }
    return next;
}

void write_chains(const Segments& segments, LoopWriter& writer) {
    const std::vector<Chain> chains = find_chains(segments);
    const std::vector<std::size_t> next = successors(segments, chains);
    std::vector<std::uint8_t> is_written(chains.size(), 0);
    for (std::size_t first = 0; first < chains.size(); ++first) {
        if (is_written[first] != 0) continue;
        for (std::size_t i = first; is_written[i] == 0; i = next[i]) {
            is_written[i] = 1;
            std::int32_t here = chains[i].start;
            for (const std::uint32_t e : chains[i].segments) {
                writer.add(here, segments.faces[e]);
                const LoopEdge& edge = segments.edges[e];
                here = edge.from == here ? edge.to : edge.from;
            }
            writer.add(here, LoopWriter::kNoFace);
        }
        writer.close(false);
    }
}

bool is_sliced(const TriMesh& mesh, const Face& face) {
    if (face.deleted != 0) return false;
    return std::all_of(face.vertex.begin(), face.vertex.end(),
                       [&](std::int32_t v) { return is_finite(mesh.vertices[at(v)].position()); });
}

Array<std::uint32_t> levels_of(const TriMesh& mesh, std::size_t axis,
                               std::span<const double> heights) {
    Array<std::uint32_t> levels(mesh.vertices.size());
    for (std::size_t v = 0; v < levels.size(); ++v) {
        const double z = along_axis(to_double(mesh.vertices[v].position()), axis);
        levels[v] = static_cast<std::uint32_t>(std::upper_bound(heights.begin(), heights.end(), z) -
                                               heights.begin());
    }
    return levels;
}

Array<PlaceInterval> face_intervals(const TriMesh& mesh, const Array<std::uint32_t>& levels) {
    Array<PlaceInterval> intervals;
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        const Face& face = mesh.faces[f];
        const auto [low, high] = std::minmax(
            {levels[at(face.vertex[0])], levels[at(face.vertex[1])], levels[at(face.vertex[2])]});
        if (low == high || !is_sliced(mesh, face)) continue;
        intervals.push_back({low, high - 1, static_cast<std::uint32_t>(f)});
    }
    return intervals;
}

}  // namespace

bool Slicer::takes_part(const Face& face) const {
    return is_sliced(mesh_, face);
}

Slicer::Slicer(const TriMesh& mesh, std::size_t axis, std::span<const double> heights)
    : mesh_(mesh),
      axis_(axis),
      heights_(heights.begin(), heights.end()),
      levels_(levels_of(mesh, axis, heights)),
      faces_(face_intervals(mesh, levels_), heights.size()) {
    assert(std::is_sorted(heights.begin(), heights.end()));
}

// The same bits from both faces at an edge, and the vertex itself where it lies in the plane.
Point2d Slicer::point_on_edge(std::uint32_t a, std::uint32_t b, double height) const {
    const Vec3d p = to_double(mesh_.vertices[std::min(a, b)].position());
    const Vec3d q = to_double(mesh_.vertices[std::max(a, b)].position());
    const double from = along_axis(p, axis_);
    const double to = along_axis(q, axis_);
    if (from == height) return across_axis(p, axis_);
    if (to == height) return across_axis(q, axis_);
    return across_axis(p + (q - p) * ((height - from) / (to - from)), axis_);
}

void Slicer::slice(std::size_t layer, SliceLoops& loops) const {
    std::size_t count = 0;
    faces_.for_each(layer, [&](std::uint32_t) { ++count; });
    CrossedEdges crossed(count);
    Segments segments;
    segments.edges.reserve(count);
    segments.faces.reserve(count);
    segments.points.reserve(count + 1);
    faces_.for_each(layer, [&](std::uint32_t f) {
        const auto& vertex = mesh_.faces[f].vertex;
        LoopEdge segment{-1, -1};
        for (std::size_t c = 0; c < 3; ++c) {
            const auto a = static_cast<std::uint32_t>(vertex[c]);
            const auto b = static_cast<std::uint32_t>(vertex[c == 2 ? 0 : c + 1]);
            const bool is_a_above = levels_[a] > layer;
            if (is_a_above == (levels_[b] > layer)) continue;
            const auto [number, is_new] = crossed.insert(a, b);
            if (is_new) segments.points.push_back(point_on_edge(a, b, heights_[layer]));
            // With the outside to the right the segment comes from the edge that the face descends.
            (is_a_above ? segment.from : segment.to) = number;
        }
        segments.add(segment, f);
    });

    LoopWriter writer(segments, loops);
    const Loops directed = find_loops(segments.edges, segments.points.size(), Direction::Kept);
    write_directed(segments, directed, writer);
    if (directed.edges.size() == segments.edges.size()) return;
    const Segments left = unused(segments, directed);
    const Loops undirected = find_loops(left.edges, left.points.size(), Direction::Ignored);
    write_undirected(left, undirected, writer);
    if (undirected.edges.size() == left.edges.size()) return;
    writer.mark_open();
    write_chains(unused(left, undirected), writer);
}

double loop_area(std::span<const Point2d> loop) {
    double doubled = 0;
    for (std::size_t i = 2; i < loop.size(); ++i) {
        const double ax = loop[i - 1].x - loop[0].x;
        const double ay = loop[i - 1].y - loop[0].y;
        const double bx = loop[i].x - loop[0].x;
        const double by = loop[i].y - loop[0].y;
        doubled += ax * by - ay * bx;
    }
    return doubled / 2;
}

}  // namespace povmesh
