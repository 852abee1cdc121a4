#include "spatial/box_quads.h"

#include <cassert>
#include <cmath>
#include <utility>

#include "base/poll.h"

namespace povmesh {

namespace {

// Visits the quads that a tree makes, one before those below it: a node becomes a quad of its
// grandchildren, or of its entries.
template <typename Make>
std::uint32_t visit_quads(const FaceTree& tree, std::uint32_t number, Make& make) {
    const std::uint32_t quad = make.start();
    poll_at(quad);
    const FaceTree::Node& node = tree.nodes()[number];
    if (node.is_leaf()) {
        static_assert(FaceTree::kLeafSize <= 4);
        for (std::uint32_t e = 0; e < node.count; ++e) make.put_entry(quad, e, node.place + e);
        return quad;
    }
    std::size_t lane = 0;
    const auto add = [&](std::uint32_t child) {
        const std::uint32_t below = visit_quads(tree, child, make);
        make.put_node(quad, lane++, child, below);
    };
    for (const std::uint32_t child : {number + 1, node.place}) {
        const FaceTree::Node& half = tree.nodes()[child];
        if (half.is_leaf()) {
            add(child);
        } else {
            add(child + 1);
            add(half.place);
        }
    }
    return quad;
}

struct Counting {
    std::uint32_t count = 0;

    std::uint32_t start() { return count++; }
    void put_entry(std::uint32_t, std::size_t, std::uint32_t) {}
    void put_node(std::uint32_t, std::size_t, std::uint32_t, std::uint32_t) {}
};

struct Naming {
    Array<std::uint32_t> nodes;

    std::uint32_t start() {
        nodes.resize(nodes.size() + 4, BoxQuads::kNone);
        return static_cast<std::uint32_t>(nodes.size() / 4 - 1);
    }
    void put_entry(std::uint32_t, std::size_t, std::uint32_t) {}
    void put_node(std::uint32_t quad, std::size_t lane, std::uint32_t node, std::uint32_t) {
        nodes[4 * std::size_t{quad} + lane] = node;
    }
};

}  // namespace

class BoxQuadsBuilder {
public:
    BoxQuadsBuilder(const FaceTree& tree, Array<BoxQuads::Quad>& quads, double scale)
        : tree_(tree), quads_(quads), scale_(scale) {}

    std::uint32_t start() {
        quads_.push_back({});
        quads_.back().child.fill(BoxQuads::kNone);
        return static_cast<std::uint32_t>(quads_.size() - 1);
    }
    void put_entry(std::uint32_t quad, std::size_t lane, std::uint32_t entry) {
        put(quads_[quad], lane, tree_.boxes()[entry], BoxQuads::kEntry | entry);
    }
    void put_node(std::uint32_t quad, std::size_t lane, std::uint32_t node, std::uint32_t below) {
        put(quads_[quad], lane, tree_.nodes()[node].box, below);
    }

private:
    void put(BoxQuads::Quad& quad, std::size_t lane, const Box3f& box, std::uint32_t child) const {
        const std::array<float, 3> low = {box.low.x, box.low.y, box.low.z};
        const std::array<float, 3> high = {box.high.x, box.high.y, box.high.z};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            quad.low[axis][lane] = static_cast<float>(static_cast<double>(low[axis]) * scale_);
            quad.high[axis][lane] = static_cast<float>(static_cast<double>(high[axis]) * scale_);
        }
        quad.child[lane] = child;
    }

    const FaceTree& tree_;
    Array<BoxQuads::Quad>& quads_;
    double scale_;
};

BoxQuads::BoxQuads(const FaceTree& tree) {
    if (tree.nodes().empty()) return;
    assert(tree.boxes().size() < kEntry);
    const Box3f& all = tree.nodes()[0].box;
    float reach = 0;
    for (const float c : {all.low.x, all.low.y, all.low.z, all.high.x, all.high.y, all.high.z}) {
        reach = std::max(reach, std::abs(c));
    }
    if (reach > 0) scale_ = std::ldexp(1.0, -std::ilogb(reach));
    Counting counting;
    visit_quads(tree, 0, counting);
    quads_.reserve(counting.count);
    BoxQuadsBuilder builder(tree, quads_, scale_);
    visit_quads(tree, 0, builder);
}

Array<std::uint32_t> BoxQuads::nodes_of_children(const FaceTree& tree) {
    Naming naming;
    if (!tree.nodes().empty()) visit_quads(tree, 0, naming);
    return std::move(naming.nodes);
}

BoxQuads::Probe::Probe(Vec3d p, double scale) : scale_(scale) {
    constexpr double kMost = std::numeric_limits<float>::max();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const std::array<double, 3> at = {p.x * scale, p.y * scale, p.z * scale};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const auto rounded = static_cast<float>(std::clamp(at[axis], -kMost, kMost));
        const auto exact = static_cast<double>(rounded);
        const bool is_down = exact <= at[axis];
        const bool is_up = exact >= at[axis];
        down_[axis] = four_times(is_down ? rounded : std::nextafter(rounded, -kInfinity));
        up_[axis] = four_times(is_up ? rounded : std::nextafter(rounded, kInfinity));
    }
}

}  // namespace povmesh
