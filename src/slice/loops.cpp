// Walks along unused edges and cuts a loop off the path each time that it meets itself
// (Hierholzer's way of tracing circuits, with the circuits kept apart). Paths from nodes of surplus
// go first: what they leave is balanced at every node and so consists of loops.
//
// Source: C. Hierholzer, Ueber die Moeglichkeit, einen Linienzug ohne Wiederholung und ohne
// Unterbrechung zu umfahren, 1873.
#include "slice/loops.h"

#include <vector>

namespace povmesh {
namespace {

class LoopFinder {
public:
    LoopFinder(std::span<const LoopEdge> edges, std::size_t node_count, Direction direction)
        : edges_(edges),
          both_ways_(direction == Direction::Ignored),
          next_(node_count + 2, 0),
          is_used_(edges.size(), 0),
          place_on_path_(node_count, kNotOnPath) {
        for (const LoopEdge& edge : edges) {
            ++next_[node(edge.from) + 2];
            if (both_ways_) ++next_[node(edge.to) + 2];
        }
        for (std::size_t i = 2; i < next_.size(); ++i) next_[i] += next_[i - 1];
        at_node_.resize(next_.back());
        for (std::uint32_t e = 0; e < edges.size(); ++e) {
            at_node_[next_[node(edges[e].from) + 1]++] = e;
            if (both_ways_) at_node_[next_[node(edges[e].to) + 1]++] = e;
        }
        next_.pop_back();
        end_.assign(next_.begin() + 1, next_.end());
    }

    // Open chains first, from their starts, so that what is left are loops.
    Loops run() {
        loops_.offsets.push_back(0);
        const std::vector<std::int32_t> surplus = surpluses();
        for (std::size_t v = 0; v < surplus.size(); ++v) {
            for (std::int32_t k = 0; k < surplus[v]; ++k) walk(static_cast<std::int32_t>(v));
        }
        for (std::size_t v = 0; v < surplus.size(); ++v) {
            while (has_edge(static_cast<std::int32_t>(v))) walk(static_cast<std::int32_t>(v));
        }
        return std::move(loops_);
    }

private:
    static constexpr std::int32_t kNotOnPath = -1;

    static std::size_t node(std::int32_t index) { return static_cast<std::size_t>(index); }

    std::vector<std::int32_t> surpluses() const {
        std::vector<std::int32_t> surplus(place_on_path_.size(), 0);
        for (const LoopEdge& edge : edges_) {
            ++surplus[node(edge.from)];
            surplus[node(edge.to)] += both_ways_ ? 1 : -1;
        }
        for (std::int32_t& count : surplus) {
            if (both_ways_) count %= 2;
        }
        return surplus;
    }

    bool has_edge(std::int32_t v) {
        std::uint32_t& i = next_[node(v)];
        while (i < end_[node(v)] && is_used_[at_node_[i]] != 0) ++i;
        return i < end_[node(v)];
    }

    // Goes on until it is stuck. Where the path meets itself, a loop is cut off; what is left then
    // is an open chain.
    void walk(std::int32_t start) {
        std::int32_t here = start;
        place_on_path_[node(start)] = 0;
        while (has_edge(here)) {
            const std::uint32_t edge = at_node_[next_[node(here)]++];
            is_used_[edge] = 1;
            nodes_.push_back(here);
            path_.push_back(edge);
            const bool is_forward = edges_[edge].from == here;
            here = is_forward ? edges_[edge].to : edges_[edge].from;
            std::int32_t& place = place_on_path_[node(here)];
            if (place == kNotOnPath) {
                place = static_cast<std::int32_t>(path_.size());
            } else {
                cut_off(node(place));
            }
        }
        place_on_path_[node(here)] = kNotOnPath;
        for (const std::int32_t v : nodes_) place_on_path_[node(v)] = kNotOnPath;
        nodes_.clear();
        path_.clear();
    }

    void cut_off(std::size_t place) {
        for (std::size_t i = place; i < path_.size(); ++i) {
            loops_.edges.push_back(path_[i]);
            if (i > place) place_on_path_[node(nodes_[i])] = kNotOnPath;
        }
        loops_.offsets.push_back(static_cast<std::uint32_t>(loops_.edges.size()));
        path_.resize(place);
        nodes_.resize(place);
    }

    std::span<const LoopEdge> edges_;
    bool both_ways_;
    Array<std::uint32_t> next_;     // by node: place of its first edge that may be unused
    Array<std::uint32_t> end_;      // by node
    Array<std::uint32_t> at_node_;  // edges, node by node
    Array<std::uint8_t> is_used_;
    Array<std::int32_t> place_on_path_;  // by node
    Array<std::int32_t> nodes_;          // of the path, without its end
    Array<std::uint32_t> path_;          // edges
    Loops loops_;
};

}  // namespace

Loops find_loops(std::span<const LoopEdge> edges, std::size_t node_count, Direction direction) {
    return LoopFinder(edges, node_count, direction).run();
}

}  // namespace povmesh
