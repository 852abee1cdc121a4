// Mathematical morphology on a bitset of cells, 64 at a time: the neighbours of a word along x are
// shifts of it, those along y and z words at fixed distances. Dilation and erosion go by the six
// face neighbours. A contact over an edge or a corner is found in the 2 x 2 x 2 block around it, of
// which 256 kinds are looked up.
#include "voxel/passes.h"

#include <algorithm>
#include <cstdlib>

#include "base/convert.h"
#include "base/timer.h"
#include "voxel/outside.h"

namespace povmesh {
namespace {

using Words = VoxelGrid::Words;
using Chunk = VoxelGrid::Chunk;

constexpr std::size_t kKeepLow = 6;  // the flags that hold the keep count
constexpr std::size_t kKeepHigh = 7;
constexpr std::int32_t kMostKept = 3;

std::size_t number(voxel::Side side) {
    return static_cast<std::size_t>(side);
}

voxel::Side opposite(voxel::Side side) {
    return static_cast<voxel::Side>((number(side) + 3) % kSideCount);
}

std::uint64_t any_side(const Chunk& chunk) {
    return chunk.flags[0] | chunk.flags[1] | chunk.flags[2] | chunk.flags[3] | chunk.flags[4] |
           chunk.flags[5];
}

std::uint64_t any_neighbour(const VoxelGrid& grid, const Words& bits, std::size_t word) {
    std::uint64_t cells = 0;
    for (const voxel::Side side : voxel::kSides) cells |= grid.beyond(bits, word, side);
    return cells;
}

Words empty_words(const VoxelGrid& grid) {
    Words words;
    words.assign(grid.word_count() + 1, 0);
    return words;
}

// Every word in the cells that can hold a voxel: neither margin nor padding.
class BoxMask {
public:
    explicit BoxMask(const VoxelGrid& grid)
        : words_per_row_(grid.words_per_row()),
          end_(static_cast<std::size_t>(std::int64_t{grid.box().high.x} - grid.box().low.x + 2)) {}

    std::uint64_t operator()(std::size_t word) const {
        const std::size_t in_row = word % words_per_row_;
        std::uint64_t mask = in_row == 0 ? ~std::uint64_t{1} : ~std::uint64_t{0};
        if (end_ <= in_row * 64) return 0;
        if (end_ < in_row * 64 + 64) mask &= ~std::uint64_t{0} >> (in_row * 64 + 64 - end_);
        return mask;
    }

private:
    std::size_t words_per_row_;
    std::size_t end_;  // bit of a row behind its last cell
};

// Adds layers of neighbours of the voxels. `open_cells(word)` are those cells of a word that may be
// taken; they must be empty and in the box. All cells of a layer are found before the first is
// added.
template <typename OpenCells>
void grow(VoxelGrid& grid, std::int64_t layers, OpenCells&& open_cells) {
    Words layer = empty_words(grid);
    for (; layers > 0; --layers) {
        grid.for_each_word([&](std::size_t word) {
            const std::uint64_t open = open_cells(word);
            layer[word] = open == 0 ? 0 : open & any_neighbour(grid, grid.occupied(), word);
        });
        bool any = false;
        grid.for_each_word([&](std::size_t word) {
            if (layer[word] == 0) return;
            grid.add_white(word, layer[word]);
            any = true;
        });
        if (!any) break;
    }
    grid.recount();
}

// One pass of an erosion, without bookkeeping of the outside.
struct ErosionPass {
    VoxelGrid& grid;
    Words gone;
    bool any_gone = false;

    explicit ErosionPass(VoxelGrid& g) : grid(g), gone(empty_words(g)) {}

    // Settles what goes.
    void begin() {
        any_gone = false;
        grid.for_each_word([&](std::size_t word) {
            const Chunk& flags = grid.flags_of(word);
            gone[word] = any_side(flags) & ~(flags.flags[kKeepLow] | flags.flags[kKeepHigh]);
            any_gone = any_gone || gone[word] != 0;
        });
    }

    // In key order a voxel is removed after its neighbours with lower keys, which have marked it.
    void list(std::vector<Voxel>& removed, bool is_first_pass) const {
        grid.for_each_word([&](std::size_t word) {
            for (std::uint64_t cells = gone[word]; cells != 0; cells &= cells - 1) {
                const auto bit = static_cast<std::size_t>(std::countr_zero(cells));
                Voxel voxel = grid.voxel_at(word * 64 + bit);
                if (!is_first_pass) voxel.flags = 0;
                for (const voxel::Side side :
                     {voxel::Side::Bottom, voxel::Side::Left, voxel::Side::Front}) {
                    if (is_first_pass && (uncovered(word, side) >> bit & 1U) != 0) {
                        voxel.flags = static_cast<std::uint8_t>(voxel.flags | 1U << number(side));
                    }
                }
                removed.push_back(voxel);
            }
        });
    }

    // The cells of a word whose neighbour on that side goes and did not count as exposed to them.
    std::uint64_t uncovered(std::size_t word, voxel::Side side) const {
        const std::uint64_t going = grid.beyond(gone, word, side);
        return going == 0 ? 0 : going & ~marked_beyond(word, side);
    }

    // Whether the neighbour on `side` counts its own side towards the cell as exposed.
    std::uint64_t marked_beyond(std::size_t word, voxel::Side side) const {
        const std::size_t flag = number(opposite(side));
        const auto of = [&](std::size_t w) { return grid.flags_of(w).flags[flag]; };
        switch (side) {
            case voxel::Side::Top:
                return of(word + grid.words_per_layer());
            case voxel::Side::Back:
                return of(word + grid.words_per_row());
            case voxel::Side::Bottom:
                return of(word - grid.words_per_layer());
            case voxel::Side::Front:
                return of(word - grid.words_per_row());
            case voxel::Side::Right:
                return of(word) >> 1 | of(word + 1) << 63;
            case voxel::Side::Left:
                return of(word) << 1 | of(word - 1) >> 63;
        }
        return 0;
    }

    void remove() {
        // What is uncovered is settled before the flags of what goes are cleared.
        Array<std::pair<std::size_t, Chunk>> marks;
        if (any_gone) find_marks(marks);
        grid.for_each_word([&](std::size_t word) {
            if (!grid.has_chunk(word)) return;
            if (gone[word] != 0) grid.remove(word, gone[word]);
            const Chunk& kept = grid.flags_of(word);
            if ((kept.flags[kKeepLow] | kept.flags[kKeepHigh]) == 0) return;
            Chunk& flags = grid.edit_flags(word);
            std::uint64_t& low = flags.flags[kKeepLow];
            std::uint64_t& high = flags.flags[kKeepHigh];
            // Above 64: a count of 2 or more, or one with a side. What this pass uncovers counts.
            const std::uint64_t sides = any_side(flags) | sides_in(marks, word);
            const std::uint64_t lowered = high | (low & sides);
            high &= ~(lowered & ~low);
            low ^= lowered;
        });
        for (const auto& [word, marked] : marks) {
            Chunk& flags = grid.edit_flags(word);
            for (std::size_t i = 0; i < kSideCount; ++i) flags.flags[i] |= marked.flags[i];
        }
        if (any_gone) grid.recount();
    }

    void find_marks(Array<std::pair<std::size_t, Chunk>>& marks) const {
        grid.for_each_word([&](std::size_t word) {
            const std::uint64_t staying = grid.occupied()[word] & ~gone[word];
            if (staying == 0 || (any_neighbour(grid, gone, word) & staying) == 0) return;
            Chunk marked{};
            for (const voxel::Side side : voxel::kSides) {
                marked.flags[number(side)] = uncovered(word, side) & staying;
            }
            if (any_side(marked) != 0) marks.push_back({word, marked});
        });
    }

    static std::uint64_t sides_in(const Array<std::pair<std::size_t, Chunk>>& marks,
                                  std::size_t word) {
        const auto found =
            std::lower_bound(marks.begin(), marks.end(), word,
                             [](const auto& mark, std::size_t w) { return mark.first < w; });
        return found != marks.end() && found->first == word ? any_side(found->second) : 0;
    }
};

// What is known of a grid before an edit.
struct Knowledge {
    bool of_outside, of_sides;
    explicit Knowledge(const VoxelGrid& grid)
        : of_outside(grid.is_outside_known()), of_sides(grid.are_sides_marked()) {}
    void restore(VoxelGrid& grid) const {
        if (of_outside) grid.confirm_outside();
        if (of_sides) grid.confirm_sides();
    }
};

// What went becomes outside; when it lay beside enclosed cells, these may be open now.
void move_outside(VoxelGrid& grid, const Words& gone, const Knowledge& before) {
    if (!before.of_outside) return;
    Words& outside = grid.edit_outside();
    bool opens = false;
    grid.for_each_word([&](std::size_t word) { outside[word] |= gone[word]; });
    grid.for_each_word([&](std::size_t word) {
        const std::uint64_t enclosed = ~(grid.occupied()[word] | outside[word]);
        opens = opens || (enclosed != 0 && (any_neighbour(grid, gone, word) & enclosed) != 0);
    });
    if (!opens) before.restore(grid);
}

// Cells of a 2 x 2 x 2 block whose voxels, or whose empty cells, touch over an edge or a corner
// alone.
class Contacts {
public:
    explicit Contacts(VoxelGrid& grid) : grid_(grid) {
        for (unsigned block = 0; block < 256; ++block) is_bad_[block] = is_bad(block);
    }

    void drop_all() {
        for (std::size_t layer = 0; layer + 1 < grid_.layer_count(); ++layer) {
            for (std::size_t row = 0; row + 1 < grid_.rows_per_layer(); ++row) {
                scan((layer * grid_.rows_per_layer() + row) * grid_.words_per_row());
            }
        }
        // Each voxel that goes leaves eight blocks to be looked at again.
        while (!blocks_.empty()) {
            const std::size_t block = blocks_.back();
            blocks_.pop_back();
            mend(block);
        }
        grid_.recount();
    }

private:
    // Bit i of a block is the cell with x, y, z = the bits of i.
    static bool is_connected(unsigned cells) {
        if (cells == 0) return true;
        unsigned reached = cells & (~cells + 1);
        for (unsigned last = 0; last != reached;) {
            last = reached;
            const unsigned x = (reached & 0x55U) << 1 | (reached & 0xAAU) >> 1;
            const unsigned y = (reached & 0x33U) << 2 | (reached & 0xCCU) >> 2;
            const unsigned z = (reached & 0x0FU) << 4 | (reached & 0xF0U) >> 4;
            reached = (reached | x | y | z) & cells;
        }
        return reached == cells;
    }
    static bool is_bad(unsigned cells) {
        return !is_connected(cells) || !is_connected(~cells & 0xFFU);
    }

    // Blocks are known by their first cell. A word without a change to its neighbours has none.
    void scan(std::size_t first) {
        const Words& bits = grid_.occupied();
        const std::size_t row = grid_.words_per_row();
        const std::size_t layer = grid_.words_per_layer();
        for (std::size_t w = first; w < first + row; ++w) {
            const std::uint64_t a = bits[w];
            const std::uint64_t b = bits[w + row];
            const std::uint64_t c = bits[w + layer];
            const std::uint64_t d = bits[w + layer + row];
            if ((a | b | c | d) == 0) continue;
            // A diagonal pair in one of the planes through the block differs along both its axes.
            const auto right = [&](std::size_t at) { return bits[at] >> 1 | bits[at + 1] << 63; };
            const std::uint64_t all = a & b & c & d;
            const std::uint64_t ra = right(w);
            const std::uint64_t rb = right(w + row);
            const std::uint64_t rc = right(w + layer);
            const std::uint64_t rd = right(w + layer + row);
            const std::uint64_t none = a | b | c | d | ra | rb | rc | rd;
            std::uint64_t mixed = none & ~(all & ra & rb & rc & rd);
            for (; mixed != 0; mixed &= mixed - 1) {
                const auto bit = static_cast<std::size_t>(std::countr_zero(mixed));
                if (is_bad_[cells_of(w * 64 + bit)]) blocks_.push_back(w * 64 + bit);
            }
        }
    }

    std::size_t cell(std::size_t block, unsigned i) const {
        return block + (i & 1U) + (i >> 1 & 1U) * grid_.words_per_row() * 64 +
               (i >> 2) * grid_.words_per_layer() * 64;
    }
    bool is_voxel(std::size_t at) const {
        return (grid_.occupied()[at / 64] >> (at % 64) & 1U) != 0;
    }
    unsigned cells_of(std::size_t block) const {
        unsigned cells = 0;
        for (unsigned i = 0; i < 8; ++i) cells |= (is_voxel(cell(block, i)) ? 1U : 0U) << i;
        return cells;
    }

    unsigned neighbour_count(std::size_t at) const {
        const std::size_t row = grid_.words_per_row() * 64;
        const std::size_t layer = grid_.words_per_layer() * 64;
        unsigned count = 0;
        for (const std::size_t step : {std::size_t{1}, row, layer}) {
            count += (is_voxel(at + step) ? 1U : 0U) + (is_voxel(at - step) ? 1U : 0U);
        }
        return count;
    }

    // Takes voxels out of a block until it is good. Any one voxel less brings the end nearer.
    void mend(std::size_t block) {
        while (is_bad_[cells_of(block)]) {
            std::size_t weakest = 0;
            unsigned fewest = kSideCount + 1;
            for (unsigned i = 0; i < 8; ++i) {
                const std::size_t at = cell(block, i);
                if (!is_voxel(at)) continue;
                const unsigned count = neighbour_count(at);
                if (count > fewest) continue;
                fewest = count;
                weakest = at;
            }
            grid_.remove(weakest / 64, std::uint64_t{1} << (weakest % 64));
            const std::size_t low_corner = weakest - cell(0, 7);
            for (unsigned i = 0; i < 8; ++i) blocks_.push_back(cell(low_corner, i));
        }
    }

    VoxelGrid& grid_;
    std::array<bool, 256> is_bad_{};
    std::vector<std::size_t> blocks_;
};

}  // namespace

void mark_exposed_sides(VoxelGrid& grid) {
    refresh_outside(grid);
    grid.clear_flags();
    grid.for_each_word([&](std::size_t word) {
        const std::uint64_t voxels = grid.occupied()[word];
        if (voxels == 0) return;
        Chunk exposed{};
        for (const voxel::Side side : voxel::kSides) {
            exposed.flags[number(side)] = voxels & grid.beyond(grid.outside(), word, side);
        }
        if (any_side(exposed) != 0) grid.edit_flags(word) = exposed;
    });
    grid.confirm_sides();
}

void mark_exposed_sides(VoxelGrid& grid, const char* label, RunContext& run) {
    const Timer timer;
    mark_exposed_sides(grid);
    run.log.value(label, six_decimals(timer.seconds()) + " sec.");
}

void drop_enclosed(VoxelGrid& grid) {
    // A voxel without an exposed side has no neighbour outside: what it leaves is enclosed.
    const bool stays_marked = grid.are_sides_marked();
    grid.for_each_word([&](std::size_t word) {
        const std::uint64_t voxels = grid.occupied()[word];
        if (voxels == 0) return;
        const std::uint64_t enclosed = voxels & ~grid.flags_of(word).any();
        if (enclosed != 0) grid.remove(word, enclosed);
    });
    grid.recount();
    if (stays_marked) grid.confirm_sides();
}

void fill_rows(VoxelGrid& grid, FillColour colour) {
    const bool with_colours = grid.has_colours() && colour == FillColour::MeanOfEnds;
    // Behind a side that is rightly not exposed, the empty cells are enclosed.
    const bool stays_marked = grid.are_sides_marked();
    const std::size_t row_words = grid.words_per_row();
    const auto fill = [&](std::size_t row, std::size_t begin, std::size_t end) {
        const std::size_t first = row * 64 + begin;
        const auto right = static_cast<std::size_t>(voxel::Side::Right);
        const std::uint64_t is_exposed =
            grid.flags_of((first - 1) / 64).flags[right] >> ((first - 1) % 64) & 1U;
        if (is_exposed != 0) return;
        for (std::size_t word = begin / 64; word <= (end - 1) / 64; ++word) {
            std::uint64_t cells = ~std::uint64_t{0};
            if (word == begin / 64) cells &= ~std::uint64_t{0} << (begin % 64);
            if (word == (end - 1) / 64) cells &= ~std::uint64_t{0} >> (63 - (end - 1) % 64);
            grid.add_white(row + word, cells);
        }
        if (!with_colours) return;
        const VoxelColour a = grid.colour_of(first - 1);
        const VoxelColour b = grid.colour_of(row * 64 + end);
        VoxelColour mean{};
        for (std::size_t i = 0; i < mean.size(); ++i) {
            mean[i] = static_cast<std::uint8_t>((a[i] + b[i]) / 2);
        }
        for (std::size_t cell = first; cell < row * 64 + end; ++cell) grid.set_colour(cell, mean);
    };
    for (std::size_t layer = 1; layer + 1 < grid.layer_count(); ++layer) {
        for (std::size_t y = 1; y + 1 < grid.rows_per_layer(); ++y) {
            const std::size_t row = (layer * grid.rows_per_layer() + y) * row_words;
            std::size_t end_of_last = 0;  // 0: no voxel yet
            for (std::size_t w = 0; w < row_words; ++w) {
                const std::uint64_t voxels = grid.occupied()[row + w];
                // Where runs of voxels begin and end.
                const std::uint64_t carry = w == 0 ? 0 : grid.occupied()[row + w - 1] >> 63;
                std::uint64_t changes = voxels ^ (voxels << 1 | carry);
                for (; changes != 0; changes &= changes - 1) {
                    const auto bit = static_cast<std::size_t>(std::countr_zero(changes));
                    const std::size_t at = w * 64 + bit;
                    if ((voxels >> bit & 1U) == 0) {
                        end_of_last = at;
                    } else if (end_of_last != 0) {
                        fill(row, end_of_last, at);
                    }
                }
            }
        }
    }
    grid.recount();
    if (stays_marked) grid.confirm_sides();
}

void erode(VoxelGrid& grid, std::int32_t layers, std::vector<Voxel>* removed) {
    if (layers <= 0) return;
    ErosionPass pass(grid);
    for (std::int32_t layer = 0; layer < layers; ++layer) {
        const Knowledge before(grid);
        pass.begin();
        if (removed != nullptr) pass.list(*removed, layer == 0);
        pass.remove();
        if (pass.any_gone) {
            move_outside(grid, pass.gone, before);
        } else {
            before.restore(grid);
        }
        // Keep counts are at most 3: from then on a pass that removes nothing is the last that
        // could.
        if (!pass.any_gone && layer >= kMostKept) break;
        if (grid.is_empty()) break;
    }
}

void dilate(VoxelGrid& grid, std::int32_t layers, std::int32_t slack) {
    if (grid.word_count() == 0) return;
    refresh_outside(grid);
    if (layers > 0) {
        grid.widen(layers);
        const BoxMask in_box(grid);
        grow(grid, layers, [&](std::size_t word) {
            const std::uint64_t open = ~grid.occupied()[word] & grid.outside()[word];
            return open == 0 ? 0 : open & in_box(word);
        });
        mark_exposed_sides(grid);
        return;
    }
    // Margin and padding are outside, so that only growing outward meets them.
    grow(grid, -std::int64_t{layers},
         [&](std::size_t word) { return ~(grid.occupied()[word] | grid.outside()[word]); });
    mark_exposed_sides(grid);
    const auto kept = static_cast<std::uint64_t>(
        std::clamp<std::int64_t>(-std::int64_t{layers} - slack, 0, kMostKept));
    if (kept == 0) return;
    grid.for_each_word([&](std::size_t word) {
        if (!grid.has_chunk(word)) return;
        Chunk& flags = grid.edit_flags(word);
        const std::uint64_t exposed = any_side(flags);
        flags.flags[kKeepLow] = (kept & 1U) != 0 ? exposed : 0;
        flags.flags[kKeepHigh] = (kept & 2U) != 0 ? exposed : 0;
    });
    grid.confirm_sides();
}

void dilate_within(VoxelGrid& grid, std::int32_t layers, const Words& within) {
    grow(grid, layers, [&](std::size_t word) { return ~grid.occupied()[word] & within[word]; });
    mark_exposed_sides(grid);
}

void remove_spurs(VoxelGrid& grid, std::int32_t k) {
    const std::int64_t least = std::int64_t{kSideCount} - k;
    const Knowledge before(grid);
    Words gone = empty_words(grid);
    grid.for_each_word([&](std::size_t word) {
        const std::uint64_t voxels = grid.occupied()[word];
        if (voxels == 0) return;
        // at_least[n]: the voxels with n or more exposed sides among those added so far.
        std::array<std::uint64_t, kSideCount + 1> at_least{voxels};
        for (std::size_t side = 0; side < kSideCount; ++side) {
            const std::uint64_t exposed = grid.flags_of(word).flags[side];
            for (std::size_t n = side + 1; n > 0; --n) at_least[n] |= at_least[n - 1] & exposed;
        }
        const std::int64_t n = std::max<std::int64_t>(least, 0);
        gone[word] = n > std::int64_t{kSideCount} ? 0 : at_least[static_cast<std::size_t>(n)];
    });
    grid.for_each_word([&](std::size_t word) {
        if (gone[word] != 0) grid.remove(word, gone[word]);
    });
    grid.recount();
    if (least > 0 && before.of_sides) move_outside(grid, gone, before);
    mark_exposed_sides(grid);
}

void drop_edge_contacts(VoxelGrid& grid) {
    if (grid.is_empty()) return;
    Contacts(grid).drop_all();
}

}  // namespace povmesh
