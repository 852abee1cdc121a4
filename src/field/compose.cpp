#include "field/compose.h"

#include <vector>

namespace povmesh {
namespace {

// Corners of a cell are numbered x + 2 y + 4 z; the squares by their corners in cyclic order.
constexpr std::array<std::array<std::uint32_t, 4>, 6> kSquares = {
    {{0, 1, 3, 2}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 3, 7, 6}, {0, 2, 6, 4}, {1, 3, 7, 5}}};

constexpr std::uint32_t kFine = 8;

// A corner of value `from` that has to change for a cell to be well composed; kFine when it is.
constexpr std::uint32_t corner_to_change(std::uint32_t mask, bool from) {
    const auto at = [&](std::uint32_t corner) { return (mask >> corner & 1) != 0; };
    for (const auto& s : kSquares) {
        if (at(s[0]) == at(s[2]) && at(s[1]) == at(s[3]) && at(s[0]) != at(s[1])) {
            return at(s[0]) == from ? s[0] : s[1];
        }
    }
    for (std::uint32_t c = 0; c < 4; ++c) {
        const std::uint32_t pair = 1U << c | 1U << (7 - c);
        if (mask == pair) return from ? c : c ^ 1U;
        if (mask == (~pair & 0xFF)) return from ? c ^ 1U : c;
    }
    return kFine;
}

using Table = std::array<std::uint8_t, 256>;

constexpr Table table_for(bool from) {
    Table table{};
    for (std::uint32_t mask = 0; mask < 256; ++mask) {
        table[mask] = static_cast<std::uint8_t>(corner_to_change(mask, from));
    }
    return table;
}

NodeIndex corner_of(NodeIndex cell, std::uint32_t c) {
    return {cell.i + static_cast<std::int32_t>(c & 1),
            cell.j + static_cast<std::int32_t>(c >> 1 & 1),
            cell.k + static_cast<std::int32_t>(c >> 2)};
}

std::uint32_t mask_of(const NodeSet& set, NodeIndex cell) {
    std::uint32_t mask = 0;
    for (std::uint32_t c = 0; c < 8; ++c) mask |= set.at(corner_of(cell, c)) ? 1U << c : 0U;
    return mask;
}

void find_bad_cells(const NodeSet& set, std::uint32_t block, const Table& table,
                    std::vector<NodeIndex>& bad) {
    const NodeRows around = rows_of(set, block);
    const NodeIndex low = set.layout().corner(block);
    for (std::int32_t k = 0; k < 8; ++k) {
        for (std::int32_t j = 0; j < 8; ++j) {
            const auto uk = static_cast<std::size_t>(k);
            const auto uj = static_cast<std::size_t>(j);
            const std::uint32_t a = around.rows[uk][uj];
            const std::uint32_t b = around.rows[uk][uj + 1];
            const std::uint32_t c = around.rows[uk + 1][uj];
            const std::uint32_t d = around.rows[uk + 1][uj + 1];
            const std::uint32_t any = a | b | c | d;
            if (any == 0 || (a & b & c & d) == 0x1FF) continue;
            for (std::int32_t i = 0; i < 8; ++i) {
                const std::uint32_t mask =
                    (a >> i & 3) | (b >> i & 3) << 2 | (c >> i & 3) << 4 | (d >> i & 3) << 6;
                if (table[mask] != kFine) bad.push_back({low.i + i, low.j + j, low.k + k});
            }
        }
    }
}

}  // namespace

NodeRows rows_of(const NodeSet& set, std::uint32_t block) {
    NodeRows around{};
    const BlockLayout& layout = set.layout();
    for (std::size_t c = 0; c < 8; ++c) {
        std::uint32_t from = block;
        for (std::size_t axis = 0; axis < 3 && from != BlockLayout::kNone; ++axis) {
            if ((c >> axis & 1) != 0) from = layout.neighbour(from, axis, 1);
        }
        if (from == BlockLayout::kNone || set.is_empty(from)) continue;
        const BlockBits bits = set.bits(from);
        const std::size_t x = c & 1;
        const std::size_t y = c >> 1 & 1;
        const std::size_t z = c >> 2;
        for (std::size_t k = 0; k < (z == 0 ? 8 : 1); ++k) {
            for (std::size_t j = 0; j < (y == 0 ? 8 : 1); ++j) {
                const auto row = static_cast<std::uint32_t>(bits.words[k] >> (8 * j) & 0xFF);
                around.rows[k + 8 * z][j + 8 * y] |=
                    static_cast<std::uint16_t>(x == 0 ? row : (row & 1) << 8);
            }
        }
    }
    return around;
}

bool is_uniform_around(const NodeSet& set, std::uint32_t block) {
    if (set.is_mixed(block)) return false;
    const BlockLayout& layout = set.layout();
    const bool is_full = set.is_full(block);
    for (std::size_t c = 1; c < 8; ++c) {
        std::uint32_t other = block;
        for (std::size_t axis = 0; axis < 3 && other != BlockLayout::kNone; ++axis) {
            if ((c >> axis & 1) != 0) other = layout.neighbour(other, axis, 1);
        }
        if (other == BlockLayout::kNone) {
            if (is_full) return false;
        } else if (set.is_mixed(other) || set.is_full(other) != is_full) {
            return false;
        }
    }
    return true;
}

std::uint64_t make_well_composed(NodeSet& set, Composing how) {
    static constexpr Table kAdd = table_for(false);
    static constexpr Table kTake = table_for(true);
    const Table& table = how == Composing::Add ? kAdd : kTake;
    std::vector<NodeIndex> bad;
    for (std::uint32_t b = 0; b < set.block_count(); ++b) {
        if (!is_uniform_around(set, b)) find_bad_cells(set, b, table, bad);
    }
    std::uint64_t changed = 0;
    while (!bad.empty()) {
        const NodeIndex cell = bad.back();
        const std::uint32_t corner = table[mask_of(set, cell)];
        if (corner == kFine) {
            bad.pop_back();
            continue;
        }
        const NodeIndex node = corner_of(cell, corner);
        const std::uint32_t number = set.layout().number(node);
        if (how == Composing::Add) {
            set.set(number);
        } else {
            set.reset(number);
        }
        ++changed;
        for (std::uint32_t c = 0; c < 8; ++c) {
            const NodeIndex away = corner_of({0, 0, 0}, c);
            bad.push_back({node.i - away.i, node.j - away.j, node.k - away.k});
        }
    }
    return changed;
}

}  // namespace povmesh
