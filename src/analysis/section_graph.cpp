// The pieces between planes are the nodes of a graph and the cross-sections its edges. A section
// that is a bridge (R. E. Tarjan, 1974) carries all that lies beyond it; sections on a cycle carry
// what lies beyond their plane together.
#include "analysis/section_graph.h"

#include <algorithm>

namespace povmesh {
namespace {

constexpr std::uint32_t kNone = 0xFFFFFFFF;

// A depth-first search over all pieces. A joint to a child is a bridge when nothing from the child
// on leads back past it; pieces that hang together without bridges are a block.
class BridgeSearch {
public:
    explicit BridgeSearch(const SectionGraph& graph)
        : graph_(graph), nodes_(graph.pieces.size()), is_bridge_(graph.joints.size(), 0) {
        list_joints();
        for (std::uint32_t piece = 0; piece < nodes_.size(); ++piece) {
            if (nodes_[piece].number == kNone) search_from(piece);
        }
        add_up();
    }

    bool is_bridge(std::size_t joint) const { return is_bridge_[joint] != 0; }
    std::uint32_t block(std::uint32_t piece) const { return nodes_[piece].block; }

    // What a cut at a bridge leaves on the side of a piece at its end.
    Mass side(std::uint32_t joint, std::uint32_t piece) const {
        const std::uint32_t other = other_end(joint, piece);
        return nodes_[piece].from == joint ? nodes_[piece].below
                                           : nodes_[piece].all - nodes_[other].below;
    }

    // A piece with what hangs on it by bridges.
    const Mass& with_branches(std::uint32_t piece) const { return nodes_[piece].with_branches; }

private:
    struct Node {
        std::uint32_t number = kNone;  // in the order of the search
        std::uint32_t lowest = 0;      // the lowest number that the subtree joins
        std::uint32_t from = kNone;    // joint to the parent
        std::uint32_t block = 0;
        Mass below;  // the whole subtree
        Mass all;    // the whole body
        Mass with_branches;
    };

    std::uint32_t other_end(std::uint32_t joint, std::uint32_t piece) const {
        const SectionGraph::Joint& j = graph_.joints[joint];
        return j.below == piece ? j.above : j.below;
    }
    std::uint32_t parent(std::uint32_t piece) const { return other_end(nodes_[piece].from, piece); }

    void list_joints() {
        offsets_.assign(nodes_.size() + 2, 0);
        for (const SectionGraph::Joint& joint : graph_.joints) {
            ++offsets_[joint.below + 2];
            ++offsets_[joint.above + 2];
        }
        for (std::size_t i = 2; i < offsets_.size(); ++i) offsets_[i] += offsets_[i - 1];
        joints_.resize(offsets_.back());
        for (std::uint32_t j = 0; j < graph_.joints.size(); ++j) {
            joints_[offsets_[graph_.joints[j].below + 1]++] = j;
            joints_[offsets_[graph_.joints[j].above + 1]++] = j;
        }
    }

    void search_from(std::uint32_t root) {
        std::vector<std::uint32_t> path{root};
        std::vector<std::uint32_t> next{offsets_[root]};
        enter(root, kNone);
        while (!path.empty()) {
            const std::uint32_t piece = path.back();
            if (next.back() == offsets_[piece + 1]) {
                path.pop_back();
                next.pop_back();
                continue;
            }
            const std::uint32_t joint = joints_[next.back()++];
            if (joint == nodes_[piece].from) continue;
            const std::uint32_t other = other_end(joint, piece);
            if (nodes_[other].number != kNone) {
                nodes_[piece].lowest = std::min(nodes_[piece].lowest, nodes_[other].number);
                continue;
            }
            enter(other, joint);
            path.push_back(other);
            next.push_back(offsets_[other]);
        }
    }

    void enter(std::uint32_t piece, std::uint32_t joint) {
        Node& node = nodes_[piece];
        node.number = node.lowest = static_cast<std::uint32_t>(order_.size());
        node.from = joint;
        node.below = node.with_branches = graph_.pieces[piece].mass;
        order_.push_back(piece);
    }

    void add_up() {
        for (std::size_t i = order_.size(); i-- > 0;) {
            const Node& node = nodes_[order_[i]];
            if (node.from == kNone) continue;
            Node& up = nodes_[parent(order_[i])];
            up.below = up.below + node.below;
            up.lowest = std::min(up.lowest, node.lowest);
            if (node.lowest < node.number) continue;
            is_bridge_[node.from] = 1;
            up.with_branches = up.with_branches + node.below;
        }
        std::uint32_t block_count = 0;
        for (const std::uint32_t piece : order_) {
            Node& node = nodes_[piece];
            const bool is_root = node.from == kNone;
            node.all = is_root ? node.below : nodes_[parent(piece)].all;
            if (is_root || is_bridge(node.from)) {
                node.block = block_count++;
            } else {
                node.block = nodes_[parent(piece)].block;
            }
            if (!is_root && is_bridge(node.from)) {
                node.with_branches = node.with_branches + (node.all - node.below);
            }
        }
    }

    const SectionGraph& graph_;
    std::vector<Node> nodes_;
    std::vector<std::uint8_t> is_bridge_;
    std::vector<std::uint32_t> offsets_;  // by piece
    std::vector<std::uint32_t> joints_;   // of each piece
    std::vector<std::uint32_t> order_;    // pieces, parents first
};

template <typename Key>
std::vector<std::uint32_t> sorted_by(std::size_t count, Key&& key_of) {
    std::vector<std::uint32_t> order(count);
    for (std::uint32_t i = 0; i < count; ++i) order[i] = i;
    std::stable_sort(order.begin(), order.end(),
                     [&](std::uint32_t a, std::uint32_t b) { return key_of(a) < key_of(b); });
    return order;
}

// The joints of one layer in one block bear what lies below and above them in the block, branches
// included, together.
void share_loads(const SectionGraph& graph, const BridgeSearch& search,
                 std::vector<JointLoad>& loads) {
    const auto joint_key = [&](std::uint32_t j) {
        return std::pair(search.block(graph.joints[j].below), graph.joints[j].layer);
    };
    const auto piece_key = [&](std::uint32_t p) {
        return std::pair(search.block(p), graph.pieces[p].slab);
    };
    const auto joints = sorted_by(graph.joints.size(), joint_key);
    const auto pieces = sorted_by(graph.pieces.size(), piece_key);
    std::size_t piece = 0;
    std::size_t end_of_block = 0;
    std::uint32_t block = kNone;
    Mass below;
    Mass all;
    for (std::size_t begin = 0; begin < joints.size();) {
        const auto key = joint_key(joints[begin]);
        if (key.first != block) {
            block = key.first;
            piece = end_of_block;
            while (search.block(pieces[piece]) != block) ++piece;
            end_of_block = piece;
            below = all = {};
            for (; end_of_block < pieces.size() && search.block(pieces[end_of_block]) == block;
                 ++end_of_block) {
                all = all + search.with_branches(pieces[end_of_block]);
            }
        }
        for (; piece < end_of_block && graph.pieces[pieces[piece]].slab <= key.second; ++piece) {
            below = below + search.with_branches(pieces[piece]);
        }
        std::size_t end = begin;
        double area = 0;
        Vec3d moment;
        for (; end < joints.size() && joint_key(joints[end]) == key; ++end) {
            const SectionGraph::Joint& joint = graph.joints[joints[end]];
            if (search.is_bridge(joints[end])) continue;
            area += joint.area;
            moment = moment + joint.centre * joint.area;
        }
        for (; begin < end; ++begin) {
            const std::uint32_t j = joints[begin];
            if (search.is_bridge(j) || !(area > 0)) continue;
            loads[j] = {below, all - below, moment / area, graph.joints[j].area / area};
        }
    }
}

}  // namespace

std::vector<JointLoad> joint_loads(const SectionGraph& graph) {
    const BridgeSearch search(graph);
    std::vector<JointLoad> loads(graph.joints.size());
    for (std::uint32_t j = 0; j < loads.size(); ++j) {
        const SectionGraph::Joint& joint = graph.joints[j];
        if (!search.is_bridge(j)) continue;
        loads[j] = {search.side(j, joint.below), search.side(j, joint.above), joint.centre, 1};
    }
    share_loads(graph, search, loads);
    return loads;
}

}  // namespace povmesh
