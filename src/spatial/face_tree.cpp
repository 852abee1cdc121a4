// A bounding-volume tree, built from above: a node is divided at the middle of the longest extent
// of its entries' centres, far down at their median.
#include "spatial/face_tree.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "base/float4.h"
#include "base/poll.h"

namespace povmesh {
namespace {

// Down to this depth nodes are divided in space, which makes for small boxes but can leave all but
// one entry on one side; from there on by count, which adds at most 32 levels.
constexpr std::size_t kSpatialDepth = 46;

// What stands below a node of so many entries takes less than a millisecond.
constexpr std::size_t kPolledSize = 4096;

struct Entry {
    std::array<float, 3> centre;
    std::uint32_t source;
};

// The centre; the fourth is of no use.
Float4 as_floats(const Entry& entry) {
    Float4 floats;
    static_assert(sizeof(floats) == sizeof(entry));
    std::memcpy(&floats, &entry, sizeof(floats));
    return floats;
}

// The centres only order the entries; an infinite box may stand anywhere.
float finite_or_0(float value) {
    return std::isfinite(value) ? value : 0.0F;
}

void widen(Box3f& box, const Box3f& by) {
    box.low = {std::min(box.low.x, by.low.x), std::min(box.low.y, by.low.y),
               std::min(box.low.z, by.low.z)};
    box.high = {std::max(box.high.x, by.high.x), std::max(box.high.y, by.high.y),
                std::max(box.high.z, by.high.z)};
}

// Largest extent of the box, halved so that it cannot overflow.
float half_size(const Box3f& box) {
    const Vec3f extent = box.high * 0.5F - box.low * 0.5F;
    return std::max({extent.x, extent.y, extent.z});
}

}  // namespace

class FaceTreeBuilder {
public:
    FaceTreeBuilder(FaceTree& tree, std::span<const Box3f> boxes,
                    std::span<const std::uint32_t> numbers)
        : tree_(tree), boxes_(boxes), numbers_(numbers) {
        entries_.reserve(boxes.size());
        for (std::size_t i = 0; i < boxes.size(); ++i) {
            poll_at(i);
            if (boxes[i].is_empty()) continue;
            const Vec3f centre = boxes[i].low * 0.5F + boxes[i].high * 0.5F;
            entries_.push_back(
                {{finite_or_0(centre.x), finite_or_0(centre.y), finite_or_0(centre.z)},
                 static_cast<std::uint32_t>(i)});
        }
        tree_.boxes_.reserve(entries_.size());
        tree_.numbers_.reserve(entries_.size());
        tree_.nodes_.reserve(entries_.size());
    }

    void build() {
        if (!entries_.empty()) build_node(0, entries_.size(), 0);
    }

private:
    void build_node(std::size_t first, std::size_t end, std::size_t depth) {
        const std::size_t index = tree_.nodes_.size();
        tree_.nodes_.emplace_back();
        Box3f box;
        if (end - first <= FaceTree::kLeafSize) {
            const std::size_t place = tree_.boxes_.size();
            for (std::size_t i = first; i < end; ++i) {
                const std::uint32_t source = entries_[i].source;
                tree_.boxes_.push_back(boxes_[source]);
                tree_.numbers_.push_back(numbers_.empty() ? source : numbers_[source]);
                widen(box, boxes_[source]);
            }
            tree_.nodes_[index] = {box, static_cast<std::uint32_t>(place),
                                   static_cast<std::uint32_t>(end - first)};
            return;
        }
        const std::size_t middle = divide(first, end, depth);
        build_node(first, middle, depth + 1);
        const std::size_t right = tree_.nodes_.size();
        build_node(middle, end, depth + 1);
        widen(box, tree_.nodes_[index + 1].box);
        widen(box, tree_.nodes_[right].box);
        tree_.nodes_[index] = {box, static_cast<std::uint32_t>(right), 0};
    }

    // Puts the entries of the two halves side by side and returns where the second one begins.
    std::size_t divide(std::size_t first, std::size_t end, std::size_t depth) {
        if (end - first > kPolledSize) poll();
        Float4 least = as_floats(entries_[first]);
        Float4 most = least;
        for (std::size_t i = first + 1; i < end; ++i) {
            const Float4 centre = as_floats(entries_[i]);
            least = smaller(least, centre);
            most = larger(most, centre);
        }
        const std::array<float, 4> low = store4(least);
        const std::array<float, 4> high = store4(most);
        std::size_t axis = 0;
        for (std::size_t other = 1; other < 3; ++other) {
            if (high[other] * 0.5F - low[other] * 0.5F > high[axis] * 0.5F - low[axis] * 0.5F) {
                axis = other;
            }
        }
        const auto at = [&](std::size_t i) {
            return entries_.begin() + static_cast<std::ptrdiff_t>(i);
        };
        if (depth < kSpatialDepth) {
            const float middle = low[axis] * 0.5F + high[axis] * 0.5F;
            const auto split = std::partition(at(first), at(end), [&](const Entry& entry) {
                return entry.centre[axis] < middle;
            });
            if (split != at(first) && split != at(end)) {
                return static_cast<std::size_t>(split - entries_.begin());
            }
        }
        const std::size_t half = first + (end - first) / 2;
        std::nth_element(at(first), at(half), at(end), [&](const Entry& a, const Entry& b) {
            return a.centre[axis] != b.centre[axis] ? a.centre[axis] < b.centre[axis]
                                                    : a.source < b.source;
        });
        return half;
    }

    FaceTree& tree_;
    std::span<const Box3f> boxes_;
    std::span<const std::uint32_t> numbers_;
    Array<Entry> entries_;
};

Box3f face_box(const TriMesh& mesh, const Face& face) {
    Box3f box;
    for (std::size_t corner = 0; corner < 3; ++corner) {
        const Vec3f position = mesh.corner_position(face, corner);
        if (!is_finite(position)) return {};
        box.widen(position);
    }
    return box;
}

FaceTree::FaceTree(std::span<const Box3f> boxes, std::span<const std::uint32_t> numbers) {
    FaceTreeBuilder(*this, boxes, numbers).build();
}

void FaceTree::descend(NodePair pair, const FaceTree& other, PairStack& stack) const {
    const Node& a = nodes_[pair.a];
    const Node& b = other.nodes_[pair.b];
    // The larger of the two is divided, so that boxes of similar size are compared.
    if (b.is_leaf() || (!a.is_leaf() && half_size(a.box) >= half_size(b.box))) {
        if (overlap(nodes_[a.place].box, b.box)) stack.push({a.place, pair.b});
        if (overlap(nodes_[pair.a + 1].box, b.box)) stack.push({pair.a + 1, pair.b});
    } else {
        if (overlap(a.box, other.nodes_[b.place].box)) stack.push({pair.a, b.place});
        if (overlap(a.box, other.nodes_[pair.b + 1].box)) stack.push({pair.a, pair.b + 1});
    }
}

}  // namespace povmesh
