// The solid between the surface voxels of a grid, as runs of cubes along x. Nodes are bits of a
// table laid out like the grid, numbered by counting the bits below them, so that no map is needed
// to find the corners that elements share.
#include "analysis/fem_model.h"

#include <algorithm>
#include <bit>
#include <string>

#include "base/convert.h"

namespace povmesh::fem {
namespace {

using Words = VoxelGrid::Words;

constexpr auto kRight = static_cast<unsigned>(voxel::Side::Right);

std::uint64_t flagged(const VoxelGrid& grid, std::size_t word) {
    const VoxelGrid::Chunk& chunk = grid.flags_of(word);
    std::uint64_t any = 0;
    for (std::size_t side = 0; side < kSideCount; ++side) any |= chunk.flags[side];
    return any & grid.occupied()[word];
}

// Bits first to last - 1, counted from the beginning of a row.
void set_bits(Words& words, std::size_t row, std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) {
        words[row + i / 64] |= std::uint64_t{1} << (i % 64);
    }
}

template <typename Visit>
void for_each_bit(std::uint64_t bits, Visit&& visit) {
    for (; bits != 0; bits &= bits - 1) visit(static_cast<std::size_t>(std::countr_zero(bits)));
}

// Cells that are elements, in the layout of the grid.
Words element_cells(const VoxelGrid& grid) {
    Words cells(grid.word_count());
    for (std::size_t word = 0; word < cells.size(); ++word) cells[word] = flagged(grid, word);
    for (std::size_t row = 0; row < cells.size(); row += grid.words_per_row()) {
        std::size_t gap = 0;  // where a gap to fill begins; 0: none does, for that is the margin
        for (std::size_t word = row; word < row + grid.words_per_row(); ++word) {
            const std::uint64_t exposed = grid.flags_of(word).flags[kRight];
            for_each_bit(flagged(grid, word), [&](std::size_t bit) {
                const std::size_t place = (word - row) * 64 + bit;
                if (gap != 0) set_bits(cells, row, gap, place);
                gap = (exposed >> bit & 1U) == 0 ? place + 1 : 0;
            });
        }
    }
    return cells;
}

// The nodes, numbered: cell (x, y, z) stands for the node at its lowest corner. The margin of the
// grid has room for those at the upper ends.
class NodeTable {
public:
    NodeTable(const VoxelGrid& grid, const Words& cells)
        : row_(grid.words_per_row()), layer_(grid.words_per_layer()), bits_(cells.size(), 0) {
        for (std::size_t word = layer_ + row_; word < cells.size(); ++word) {
            const auto touched = [&](std::size_t w) {
                // A node has elements on its right and on its left.
                return cells[w] | cells[w] << 1 | (w > 0 ? cells[w - 1] >> 63 : 0);
            };
            bits_[word] = touched(word) | touched(word - row_) | touched(word - layer_) |
                          touched(word - layer_ - row_);
        }
        ranks_.resize(bits_.size() + 1);
        ranks_[0] = 0;
        for (std::size_t word = 0; word < bits_.size(); ++word) {
            ranks_[word + 1] =
                ranks_[word] + static_cast<std::uint32_t>(std::popcount(bits_[word]));
        }
    }

    std::uint32_t count() const { return ranks_.back(); }
    std::uint32_t first_of_word(std::size_t word) const { return ranks_[word]; }
    std::uint32_t number(std::size_t cell) const {
        const std::uint64_t below = (std::uint64_t{1} << (cell % 64)) - 1;
        return ranks_[cell / 64] +
               static_cast<std::uint32_t>(std::popcount(bits_[cell / 64] & below));
    }
    std::array<std::uint32_t, 4> rows_of(std::size_t cell) const {
        return {number(cell), number(cell + 64 * row_), number(cell + 64 * layer_),
                number(cell + 64 * (layer_ + row_))};
    }

private:
    std::size_t row_;  // words
    std::size_t layer_;
    Words bits_;
    Array<std::uint32_t> ranks_;
};

struct Runs {
    const VoxelGrid& grid;
    const Words& cells;
    const NodeTable& nodes;
    Model& model;

    void add(std::size_t first_cell, std::size_t count) const {
        while (count != 0) {
            const std::size_t part = std::min<std::size_t>(count, kMaxRunLength);
            const VoxelIndex place = grid.index_of(first_cell);
            model.runs.push_back({static_cast<std::uint32_t>(model.faces.size()),
                                  static_cast<std::uint32_t>(part), nodes.rows_of(first_cell),
                                  place.x, place.y, place.z});
            for (std::size_t cell = first_cell; cell < first_cell + part; ++cell) {
                unsigned faces = 0;
                if (grid.has_chunk(cell / 64)) {
                    const VoxelGrid::Chunk& chunk = grid.flags_of(cell / 64);
                    for (unsigned side = 0; side < kSideCount; ++side) {
                        faces |= static_cast<unsigned>(chunk.flags[side] >> (cell % 64) & 1U)
                                 << side;
                    }
                }
                model.faces.push_back(static_cast<std::uint8_t>(faces));
            }
            first_cell += part;
            count -= part;
        }
    }

    void add_row(std::size_t row) const {
        std::size_t first = 0;
        std::size_t count = 0;
        for (std::size_t word = row; word < row + grid.words_per_row(); ++word) {
            for_each_bit(cells[word], [&](std::size_t bit) {
                const std::size_t cell = word * 64 + bit;
                if (count != 0 && cell != first + count) {
                    add(first, count);
                    count = 0;
                }
                if (count == 0) first = cell;
                ++count;
            });
        }
        add(first, count);
    }
};

// Layers from the lowest to the highest that hold elements.
void add_layers(const VoxelGrid& grid, const Words& cells, const NodeTable& nodes, Model& model) {
    const std::size_t layer = grid.words_per_layer();
    const auto layer_is_empty = [&](std::size_t z) {
        return std::all_of(cells.begin() + static_cast<std::ptrdiff_t>(z * layer),
                           cells.begin() + static_cast<std::ptrdiff_t>((z + 1) * layer),
                           [](std::uint64_t word) { return word == 0; });
    };
    std::size_t low = 0;
    std::size_t high = grid.layer_count();
    while (low < high && layer_is_empty(low)) ++low;
    while (low < high && layer_is_empty(high - 1)) --high;
    const Runs runs{grid, cells, nodes, model};
    for (std::size_t z = low; z < high; ++z) {
        model.layer_runs.push_back(fits<std::uint32_t>(model.runs.size()));
        model.layer_nodes.push_back(nodes.first_of_word(z * layer));
        for (std::size_t row = z * layer; row < (z + 1) * layer; row += grid.words_per_row()) {
            runs.add_row(row);
        }
    }
    if (low == high) return;
    model.layer_runs.push_back(fits<std::uint32_t>(model.runs.size()));
    model.layer_nodes.push_back(nodes.first_of_word(high * layer));
    model.layer_nodes.push_back(nodes.count());
}

// From indices of voxels to places around the middle. Filled elements lie between others.
void centre_places(const VoxelGrid& grid, Model& model) {
    VoxelIndex low{model.runs[0].x, model.runs[0].y, model.runs[0].z};
    VoxelIndex high = low;
    for (const ElementRun& run : model.runs) {
        const std::int32_t last = run.x + static_cast<std::int32_t>(run.count) - 1;
        low = {std::min(low.x, run.x), std::min(low.y, run.y), std::min(low.z, run.z)};
        high = {std::max(high.x, last), std::max(high.y, run.y), std::max(high.z, run.z)};
    }
    for (ElementRun& run : model.runs) {
        run.x = 2 * run.x - low.x - high.x;
        run.y = 2 * run.y - low.y - high.y;
        run.z = 2 * run.z - low.z - high.z;
    }
    const double half = static_cast<double>(model.size) / 2;
    model.middle = to_double(grid.origin()) +
                   Vec3d{half * (low.x + high.x), half * (low.y + high.y), half * (low.z + high.z)};
}

// Corners bring their nodes in with the outer faces of the element that they lie on.
void set_signs(Model& model, std::size_t node_count) {
    model.signs.assign(node_count, {});
    model.element_counts.assign(node_count, 0);
    for_each_element(model, [&](const Element& element) {
        const unsigned faces = model.faces[element.index];
        for (std::size_t corner = 0; corner < kCorners; ++corner) {
            const std::uint32_t node = element.nodes[corner];
            if (model.element_counts[node]++ != 0 || faces == 0) continue;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                const int sign = kCornerSigns[corner][axis];
                if ((faces >> outer_side(axis, sign) & 1U) != 0) {
                    model.signs[node][axis] = static_cast<std::int8_t>(sign);
                }
            }
        }
    });
}

}  // namespace

Element Model::element_of(const ElementRun& run, std::size_t i) const {
    Element element{run.first + i, run.x + 2 * static_cast<std::int32_t>(i), run.y, run.z, {}};
    for (std::size_t corner = 0; corner < kCorners; ++corner) {
        const Corner place = kCornerPlaces[corner];
        element.nodes[corner] = run.rows[place.row] + static_cast<std::uint32_t>(i + place.right);
    }
    return element;
}

Element Model::element(std::size_t index) const {
    const auto past = std::upper_bound(
        runs.begin(), runs.end(), index,
        [](std::size_t wanted, const ElementRun& run) { return wanted < run.first; });
    const ElementRun& run = *(past - 1);
    return element_of(run, index - run.first);
}

Vec3f Model::centre_of(const Element& element) const {
    const double half = static_cast<double>(size) / 2;
    return {narrow_to_float(middle.x + half * element.x),
            narrow_to_float(middle.y + half * element.y),
            narrow_to_float(middle.z + half * element.z)};
}

unsigned outer_side(std::size_t axis, int sign) {
    constexpr std::array kUp = {voxel::Side::Right, voxel::Side::Back, voxel::Side::Top};
    constexpr std::array kDown = {voxel::Side::Left, voxel::Side::Front, voxel::Side::Bottom};
    return static_cast<unsigned>(sign > 0 ? kUp[axis] : kDown[axis]);
}

bool build_model(const VoxelGrid& grid, Model& model, const RunLog& log) {
    model = {};
    model.size = grid.settings().size.x;
    const Words cells = element_cells(grid);
    const NodeTable nodes(grid, cells);
    if (nodes.count() == 0) return false;
    log.append("\n-----------------------------------------------");
    log.append("\n                start to do FEM");
    add_layers(grid, cells, nodes, model);
    centre_places(grid, model);
    set_signs(model, nodes.count());
    log.append("\nnode    number: " + std::to_string(model.node_count()));
    log.append("element number: " + std::to_string(model.element_count()) + "\n");
    return true;
}

bool fix_lowest_layer(Model& model, const RunLog& log) {
    model.fixed_nodes = model.layer_nodes.size() > 1 ? model.layer_nodes[1] : model.node_count();
    if (model.free_nodes() == 0) {
        log.append("error when setting Force: DoF <= 0");
        return false;
    }
    log.append("freeDoF number: " + std::to_string(model.free_dofs()) + "\t");
    return true;
}

}  // namespace povmesh::fem
