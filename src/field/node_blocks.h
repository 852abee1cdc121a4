// Sets of grid nodes, kept in blocks of 8 x 8 x 8 of which only the mixed ones take memory.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "base/convert.h"
#include "field/field_grid.h"

namespace povmesh {

constexpr std::int32_t kBlockSide = 8;
constexpr std::uint32_t kBlockNodes = 512;

/// A bit a node of a block: word z, bit x + 8 y.
struct BlockBits {
    std::array<std::uint64_t, 8> words{};

    bool at(std::uint32_t local) const { return (words[local >> 6] >> (local & 63) & 1) != 0; }
    void set(std::uint32_t local) { words[local >> 6] |= std::uint64_t{1} << (local & 63); }
    void reset(std::uint32_t local) { words[local >> 6] &= ~(std::uint64_t{1} << (local & 63)); }

    bool any() const {
        std::uint64_t all = 0;
        for (const std::uint64_t word : words) all |= word;
        return all != 0;
    }
    std::uint32_t count() const {
        std::uint32_t sum = 0;
        for (const std::uint64_t word : words)
            sum += static_cast<std::uint32_t>(std::popcount(word));
        return sum;
    }
    /// Number of set bits before one.
    std::uint32_t rank(std::uint32_t local) const {
        std::uint32_t sum = 0;
        for (std::uint32_t z = 0; z < local >> 6; ++z) {
            sum += static_cast<std::uint32_t>(std::popcount(words[z]));
        }
        const std::uint64_t below = (std::uint64_t{1} << (local & 63)) - 1;
        return sum + static_cast<std::uint32_t>(std::popcount(words[local >> 6] & below));
    }
    template <typename Visit>
    void visit(Visit&& visit) const {
        for (std::uint32_t z = 0; z < 8; ++z) {
            for (std::uint64_t word = words[z]; word != 0; word &= word - 1) {
                visit(z * 64 + static_cast<std::uint32_t>(std::countr_zero(word)));
            }
        }
    }

    static BlockBits full() {
        BlockBits all;
        all.words.fill(~std::uint64_t{0});
        return all;
    }
    friend bool operator==(const BlockBits&, const BlockBits&) = default;
    friend BlockBits operator&(const BlockBits& a, const BlockBits& b) {
        BlockBits both;
        for (std::size_t z = 0; z < 8; ++z) both.words[z] = a.words[z] & b.words[z];
        return both;
    }
    friend BlockBits operator|(const BlockBits& a, const BlockBits& b) {
        BlockBits any;
        for (std::size_t z = 0; z < 8; ++z) any.words[z] = a.words[z] | b.words[z];
        return any;
    }
    friend BlockBits operator^(const BlockBits& a, const BlockBits& b) {
        BlockBits one;
        for (std::size_t z = 0; z < 8; ++z) one.words[z] = a.words[z] ^ b.words[z];
        return one;
    }
    friend BlockBits operator~(const BlockBits& a) {
        BlockBits other;
        for (std::size_t z = 0; z < 8; ++z) other.words[z] = ~a.words[z];
        return other;
    }
};

struct NodeIndex {
    std::int32_t i = 0, j = 0, k = 0;

    friend bool operator==(const NodeIndex&, const NodeIndex&) = default;
    NodeIndex stepped(std::size_t axis, std::int32_t by) const {
        NodeIndex next = *this;
        (axis == 0 ? next.i : axis == 1 ? next.j : next.k) += by;
        return next;
    }
    std::int32_t along(std::size_t axis) const { return axis == 0 ? i : axis == 1 ? j : k; }
};

/// How the nodes of a grid are divided into blocks. The last blocks of an axis reach beyond the
/// grid; the nodes there are nodes like others.
///
/// A node has a number: 512 times that of its block, plus its place there.
struct BlockLayout {
    std::array<std::int32_t, 3> blocks{};

    BlockLayout() = default;
    explicit BlockLayout(const FieldGrid& grid) {
        for (std::size_t a = 0; a < 3; ++a) {
            blocks[a] = (grid.nodes[a] + kBlockSide - 1) / kBlockSide;
        }
    }
    std::uint32_t count() const {
        return static_cast<std::uint32_t>(blocks[0]) * static_cast<std::uint32_t>(blocks[1]) *
               static_cast<std::uint32_t>(blocks[2]);
    }
    bool contains(NodeIndex n) const {
        return n.i >= 0 && n.j >= 0 && n.k >= 0 && n.i < blocks[0] * kBlockSide &&
               n.j < blocks[1] * kBlockSide && n.k < blocks[2] * kBlockSide;
    }
    std::uint32_t number(NodeIndex n) const {
        const auto block = static_cast<std::uint32_t>(
            ((n.k >> 3) * blocks[1] + (n.j >> 3)) * blocks[0] + (n.i >> 3));
        return block * kBlockNodes + local(n);
    }
    static std::uint32_t local(NodeIndex n) {
        return static_cast<std::uint32_t>((n.k & 7) * 64 + (n.j & 7) * 8 + (n.i & 7));
    }
    /// The lowest node of a block.
    NodeIndex corner(std::uint32_t block) const {
        const auto b = static_cast<std::int32_t>(block);
        return {b % blocks[0] * kBlockSide, b / blocks[0] % blocks[1] * kBlockSide,
                b / blocks[0] / blocks[1] * kBlockSide};
    }
    NodeIndex node(std::uint32_t number) const {
        const NodeIndex low = corner(number / kBlockNodes);
        const auto local = static_cast<std::int32_t>(number % kBlockNodes);
        return {low.i + (local & 7), low.j + (local >> 3 & 7), low.k + (local >> 6)};
    }

    static constexpr std::uint32_t kNone = 0xFFFFFFFF;
    /// The next block along an axis, by 1 or -1; kNone at the border.
    std::uint32_t neighbour(std::uint32_t block, std::size_t axis, std::int32_t by) const {
        const NodeIndex low = corner(block);
        const std::int32_t place = low.along(axis) / kBlockSide + by;
        if (place < 0 || place >= blocks[axis]) return kNone;
        const std::int32_t stride = axis == 0 ? 1 : axis == 1 ? blocks[0] : blocks[0] * blocks[1];
        return static_cast<std::uint32_t>(static_cast<std::int32_t>(block) + by * stride);
    }
};

/// A set of nodes. Blocks wholly in it or out of it take 4 bytes, others 68.
class NodeSet {
public:
    NodeSet() = default;
    explicit NodeSet(const FieldGrid& grid) : layout_(grid) {
        table_.assign(layout_.count(), kEmpty);
    }

    const BlockLayout& layout() const { return layout_; }
    std::uint32_t block_count() const { return static_cast<std::uint32_t>(table_.size()); }

    /// False beyond the blocks.
    bool at(NodeIndex n) const { return layout_.contains(n) && at(layout_.number(n)); }
    bool at(std::uint32_t number) const {
        const std::uint32_t entry = table_[number / kBlockNodes];
        return entry == kFull || (entry != kEmpty && data_[entry].at(number % kBlockNodes));
    }
    void set(std::uint32_t number) { edit(number / kBlockNodes).set(number % kBlockNodes); }
    void reset(std::uint32_t number) { edit(number / kBlockNodes).reset(number % kBlockNodes); }

    bool is_mixed(std::uint32_t block) const { return table_[block] < kFull; }
    bool is_full(std::uint32_t block) const { return table_[block] == kFull; }
    bool is_empty(std::uint32_t block) const { return table_[block] == kEmpty; }
    BlockBits bits(std::uint32_t block) const {
        const std::uint32_t entry = table_[block];
        if (entry < kFull) return data_[entry];
        return entry == kFull ? BlockBits::full() : BlockBits{};
    }
    /// The bits of a block, given memory if it had none.
    BlockBits& edit(std::uint32_t block) {
        std::uint32_t& entry = table_[block];
        if (entry >= kFull) {
            const BlockBits bits = entry == kFull ? BlockBits::full() : BlockBits{};
            entry = fits<std::uint32_t>(data_.size());
            data_.push_back(bits);
        }
        return data_[entry];
    }
    void fill(std::uint32_t block) { table_[block] = kFull; }
    void clear(std::uint32_t block) { table_[block] = kEmpty; }

private:
    static constexpr std::uint32_t kFull = 0xFFFFFFFE;
    static constexpr std::uint32_t kEmpty = 0xFFFFFFFF;

    BlockLayout layout_;
    Array<std::uint32_t> table_;
    Array<BlockBits> data_;
};

/// The bits moved by one node along an axis: bit n of the result is that of the next node (by = 1)
/// or the previous one (by = -1), which at the border is that of the neighbour block's bits.
BlockBits shifted(const BlockBits& bits, const BlockBits& neighbour, std::size_t axis,
                  std::int32_t by);

}  // namespace povmesh
