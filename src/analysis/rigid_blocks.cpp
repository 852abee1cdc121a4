// Notation: P maps the six motions of each block to displacements of its nodes, u = t + w x r; the
// coarse matrix is P^T K P. An element all of whose nodes lie in one block is not strained by its
// motions and adds nothing, so that only those between blocks are assembled.
#include "analysis/rigid_blocks.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "base/parallel.h"
#include "base/poll.h"
#include "base/union_find.h"

namespace povmesh::fem {
namespace {

// Edge of a block in elements: as small as keeps the number of blocks below the limit.
constexpr std::int32_t kLeastEdge = 4;
constexpr std::size_t kMostBlocks = 600;

// A pivot that has lost this share of its row's diagonal is rounding: nothing resists that motion.
constexpr double kNoResistance = 1e-9;

using Place = std::array<std::int32_t, 3>;
using Modes = std::array<std::array<double, 6>, 3>;  // displacement along x, y, z for each motion

Modes modes_at(const Place& place, const std::array<double, 3>& centre) {
    const double x = place[0] - centre[0];
    const double y = place[1] - centre[1];
    const double z = place[2] - centre[2];
    return {{{1, 0, 0, 0, z, -y}, {0, 1, 0, -z, 0, x}, {0, 0, 1, y, -x, 0}}};
}

double dot_of(const double* a, const double* b, std::size_t count) {
    std::array<double, 4> sums{};
    std::size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        for (std::size_t lane = 0; lane < 4; ++lane) sums[lane] += a[i + lane] * b[i + lane];
    }
    for (; i < count; ++i) sums[0] += a[i] * b[i];
    return (sums[0] + sums[1]) + (sums[2] + sums[3]);
}

}  // namespace

RigidBlocks::RigidBlocks(const Model& model) {
    gather_blocks(model);
    assemble(model);
    factorise();
}

void RigidBlocks::gather_blocks(const Model& model) {
    const std::size_t count = model.node_count();
    places_.resize(count);
    Place low{INT32_MAX, INT32_MAX, INT32_MAX};
    Place high{INT32_MIN, INT32_MIN, INT32_MIN};
    Poller poller;
    for_each_element(model, [&](const Element& e) {
        poller();
        for (std::size_t c = 0; c < kCorners; ++c) {
            const std::array<int, 3>& sign = kCornerSigns[c];
            places_[e.nodes[c]] = {e.x + sign[0], e.y + sign[1], e.z + sign[2]};
        }
    });
    for (const Place& place : places_) {
        for (std::size_t a = 0; a < 3; ++a) {
            low[a] = std::min(low[a], place[a]);
            high[a] = std::max(high[a], place[a]);
        }
    }
    // The longest extent is the slowest index: blocks that meet are then near one another.
    std::array<std::size_t, 3> order = {0, 1, 2};
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return high[a] - low[a] > high[b] - low[b];
    });
    std::int32_t edge = kLeastEdge;
    while (model.element_count() / static_cast<std::size_t>(edge * edge * edge) > kMostBlocks) {
        ++edge;
    }
    const auto cell_of = [&](std::size_t node) {
        Place cell{};
        for (std::size_t a = 0; a < 3; ++a) {
            cell[a] = (places_[node][order[a]] - low[order[a]]) / 2 / edge;
        }
        return cell;
    };
    UnionFind groups(count);
    for_each_element(model, [&](const Element& e) {
        poller();
        for (std::size_t a = 0; a < kCorners; ++a) {
            for (std::size_t b = 0; b < a; ++b) {
                if (std::min(e.nodes[a], e.nodes[b]) < model.fixed_nodes) continue;
                if (cell_of(e.nodes[a]) == cell_of(e.nodes[b]))
                    groups.unite(e.nodes[a], e.nodes[b]);
            }
        }
    });
    // Nodes of a block side by side, and the blocks in the order of their cells.
    std::vector<std::pair<Place, std::uint32_t>> roots;
    for (auto node = static_cast<std::uint32_t>(model.fixed_nodes); node < count; ++node) {
        poller();
        if (groups.find(node) == node) roots.emplace_back(cell_of(node), node);
    }
    std::sort(roots.begin(), roots.end());
    Array<std::uint32_t> number(count);
    std::fill(number.begin(), number.end(), kNone);
    for (std::uint32_t b = 0; b < roots.size(); ++b) number[roots[b].second] = b;
    block_of_.resize(count);
    centres_.assign(roots.size(), {});
    node_offsets_.assign(roots.size() + 2, 0);
    for (std::uint32_t node = 0; node < count; ++node) {
        poller();
        block_of_[node] = number[groups.find(node)];
        if (block_of_[node] == kNone) continue;
        ++node_offsets_[block_of_[node] + 2];
        for (std::size_t a = 0; a < 3; ++a) centres_[block_of_[node]][a] += places_[node][a];
    }
    std::partial_sum(node_offsets_.begin(), node_offsets_.end(), node_offsets_.begin());
    nodes_.resize(node_offsets_.back());
    for (std::uint32_t node = 0; node < count; ++node) {
        if (block_of_[node] != kNone) nodes_[node_offsets_[block_of_[node] + 1]++] = node;
    }
    node_offsets_.pop_back();
    for (std::size_t b = 0; b < centres_.size(); ++b) {
        for (double& c : centres_[b]) c /= node_offsets_[b + 1] - node_offsets_[b];
    }
}

void RigidBlocks::assemble(const Model& model) {
    const ElementMatrix stiffness = element_matrix(model.size);
    const auto is_between = [&](const Element& e) {
        return std::any_of(e.nodes.begin(), e.nodes.end(), [&](std::uint32_t node) {
            return block_of_[node] != block_of_[e.nodes[0]];
        });
    };
    Poller poller;
    std::vector<std::uint32_t> first_block(centres_.size());
    std::iota(first_block.begin(), first_block.end(), 0U);
    for_each_element(model, [&](const Element& e) {
        poller();
        if (!is_between(e)) return;
        std::uint32_t least = kNone;
        for (const std::uint32_t node : e.nodes) least = std::min(least, block_of_[node]);
        for (const std::uint32_t node : e.nodes) {
            if (block_of_[node] == kNone) continue;
            std::uint32_t& first = first_block[block_of_[node]];
            first = std::min(first, least);
        }
    });
    const std::size_t size = kModes * centres_.size();
    first_.resize(size);
    offsets_.assign(size + 1, 0);
    for (std::size_t i = 0; i < size; ++i) {
        first_[i] = static_cast<std::uint32_t>(kModes * first_block[i / kModes]);
        offsets_[i + 1] = offsets_[i] + (i + 1 - first_[i]);
    }
    entries_.assign(offsets_.back(), 0);
    for_each_element(model, [&](const Element& e) {
        poller();
        if (!is_between(e)) return;
        std::array<Modes, kCorners> modes;
        for (std::size_t c = 0; c < kCorners; ++c) {
            const std::uint32_t block = block_of_[e.nodes[c]];
            if (block != kNone) modes[c] = modes_at(places_[e.nodes[c]], centres_[block]);
        }
        for (std::size_t b = 0; b < kCorners; ++b) {
            const std::uint32_t to = block_of_[e.nodes[b]];
            if (to == kNone) continue;
            for (std::size_t a = 0; a < kCorners; ++a) {
                const std::uint32_t from = block_of_[e.nodes[a]];
                if (from == kNone || from < to) continue;  // the lower triangle
                Modes forces{};
                for (std::size_t i = 0; i < 3; ++i) {
                    for (std::size_t j = 0; j < 3; ++j) {
                        const auto k = static_cast<double>(stiffness[3 * a + i][3 * b + j]);
                        for (std::size_t m = 0; m < kModes; ++m) forces[i][m] += k * modes[b][j][m];
                    }
                }
                for (std::size_t n = 0; n < kModes; ++n) {
                    double* entry = row(kModes * from + n) + kModes * to;
                    const std::size_t end = from == to ? n + 1 : kModes;
                    for (std::size_t m = 0; m < end; ++m) {
                        for (std::size_t i = 0; i < 3; ++i)
                            entry[m] += modes[a][i][n] * forces[i][m];
                    }
                }
            }
        }
    });
}

// L D L^T within the rows' envelopes, row by row.
void RigidBlocks::factorise() {
    const std::size_t size = first_.size();
    inverse_pivots_.assign(size, 0);
    for (std::size_t i = 0; i < size; ++i) {
        poll();
        double* a = row(i);
        for (std::size_t j = first_[i]; j < i; ++j) {
            const std::size_t begin = std::max(first_[i], first_[j]);
            a[j] -= dot_of(a + begin, row(j) + begin, j - begin);
        }
        const double diagonal = a[i];
        for (std::size_t j = first_[i]; j < i; ++j) {
            const double unscaled = a[j];
            a[j] *= inverse_pivots_[j];
            a[i] -= unscaled * a[j];
        }
        if (a[i] > kNoResistance * diagonal) inverse_pivots_[i] = 1 / a[i];
    }
}

void RigidBlocks::solve(std::vector<double>& x) const {
    for (std::size_t i = 0; i < x.size(); ++i) {
        x[i] -= dot_of(row(i) + first_[i], x.data() + first_[i], i - first_[i]);
    }
    for (std::size_t i = x.size(); i-- > 0;) x[i] *= inverse_pivots_[i];
    for (std::size_t i = x.size(); i-- > 0;) {
        const double* a = row(i);
        for (std::size_t j = first_[i]; j < i; ++j) x[j] -= a[j] * x[i];
    }
}

void RigidBlocks::add_correction(const NodeField& force, NodeField& motion) const {
    std::vector<double> x(first_.size());
    for_blocks(centres_.size(), [&](std::size_t b) {
        for (std::uint32_t n = node_offsets_[b]; n < node_offsets_[b + 1]; ++n) {
            const Modes modes = modes_at(places_[nodes_[n]], centres_[b]);
            for (std::size_t a = 0; a < 3; ++a) {
                const auto f = static_cast<double>(force.axis(a)[nodes_[n]]);
                for (std::size_t m = 0; m < kModes; ++m) x[kModes * b + m] += modes[a][m] * f;
            }
        }
    });
    solve(x);
    for_blocks(centres_.size(), [&](std::size_t b) {
        for (std::uint32_t n = node_offsets_[b]; n < node_offsets_[b + 1]; ++n) {
            const Modes modes = modes_at(places_[nodes_[n]], centres_[b]);
            for (std::size_t a = 0; a < 3; ++a) {
                double sum = 0;
                for (std::size_t m = 0; m < kModes; ++m) sum += modes[a][m] * x[kModes * b + m];
                motion.axis(a)[nodes_[n]] += static_cast<float>(sum);
            }
        }
    });
}

}  // namespace povmesh::fem
