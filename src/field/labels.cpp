// Which nodes are solid: floods over uncrossed edges, widest paths into gaps, winding numbers for
// what neither reaches, and sheets made thick.
//
// Widest paths: every node takes the label that reaches it by the path whose narrowest place, the
// least distance to a face along it, is widest. The seeds are far from all faces.
#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "base/convert.h"
#include "base/parallel.h"
#include "base/poll.h"
#include "base/union_find.h"
#include "field/distance_field.h"
#include "field/regions.h"
#include "field/winding.h"
#include "mesh/bounds.h"
#include "mesh/edge_mates.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

constexpr std::uint32_t kOutside = 1;
constexpr std::uint32_t kFirstInner = 2;

// A region is a cavity when this share of its crossings have their outside within.
constexpr double kCavityShare = 0.9;

// Queue of the widest paths: distances up to half the gap in this many steps.
constexpr std::size_t kBuckets = 4096;

// Seeds lie at least this many cells from all faces, where their winding number is steady.
constexpr double kDeepCells = 2;

// Distances to sheets are measured so many cells beyond their reach: for both ends of the edges
// that the level crosses.
constexpr double kBesideSheets = 1;

// Blocks per piece of work.
constexpr std::size_t kBlocksAtOnce = 64;

// Crossings per cell^2 of area, on the average over all directions.
constexpr double kCrossingsPerArea = 1.5;

bool is_open_mesh(const TriMesh& mesh) {
    TriMesh copy;
    polled_copy(mesh.faces, copy.faces);
    polled_copy(mesh.vertices, copy.vertices);
    const EdgeMates mates(copy);
    for (std::size_t f = 0; f < copy.faces.size(); ++f) {
        poll_at(f);
        for (std::size_t e = 0; e < 3; ++e) {
            const EdgeMates::Kind kind = mates.kind(f, e);
            if (kind == EdgeMates::Kind::Open) return true;
            if (kind == EdgeMates::Kind::NonManifold &&
                mates.group(mates.group_of(f, e)).size() % 2 != 0) {
                return true;
            }
        }
    }
    return false;
}

// The share of a cell's side, squared, that a crossing along an axis stands for: over all axes they
// come to the area.
double crossed_share(const TriMesh& mesh, std::uint32_t face, std::size_t axis) {
    const Triangle t = triangle_of(mesh, mesh.faces[face]);
    const Vec3d normal = cross(t[1] - t[0], t[2] - t[0]);
    const double size = length(normal);
    const double part = std::abs(axis == 0 ? normal.x : axis == 1 ? normal.y : normal.z);
    return size > 0 ? part / size : 0;
}

// Whether the outside of a face lies towards higher coordinates along an axis.
bool faces_up(const TriMesh& mesh, std::uint32_t face, std::size_t axis) {
    const Triangle t = triangle_of(mesh, mesh.faces[face]);
    const Vec3d normal = cross(t[1] - t[0], t[2] - t[0]);
    return (axis == 0 ? normal.x : axis == 1 ? normal.y : normal.z) > 0;
}

}  // namespace

class Labelling {
public:
    Labelling(DistanceField& field, const LabelOptions& options)
        : field_(field),
          options_(options),
          layout_(field.grid_),
          regions_(field.crossings_, field.grid_),
          everywhere_(field.grid_),
          near_(layout_) {
        for (std::uint32_t b = 0; b < everywhere_.block_count(); ++b) everywhere_.fill(b);
    }

    LabelReport run() {
        report_.is_open = is_open_mesh(field_.mesh_);
        gap_ = report_.is_open ? std::max(options_.gap, options_.gap_of_open) : options_.gap;
        // The crossings of a closed mesh leave no gaps: floods alone tell the regions.
        if (gap_ > 0 || (report_.is_open && options_.closes_holes)) {
            find_regions_with_gaps();
        } else {
            regions_.flood(kOutside, 0, everywhere_);
            region_count_ = regions_.flood_all(kFirstInner, everywhere_);
        }
        is_solid_.assign(region_count_, 1);
        is_solid_[0] = is_solid_[kOutside] = 0;
        find_cavities();
        for (const auto& [region, solid] : decided_) is_solid_[region] = solid ? 1 : 0;
        fill_solid();
        if (options_.sheet_reach > 0) thicken_sheets();
        drop_small(true);
        drop_small(false);
        find_buried_faces();
        if (gap_ > 0 || report_.is_open) measure_bridges();
        return report_;
    }

private:
    double distance(std::uint32_t node) const { return near_.at(node).distance; }

    // ------------------------------------------------------------------------------ gaps and holes

    void find_regions_with_gaps() {
        const double half_gap = gap_ / 2;
        reach_ = std::max(half_gap, kDeepCells * field_.grid_.cell);
        near_ = near_distances(field_.mesh_, field_.surface().tree(), field_.grid_, reach_);
        NodeSet far = everywhere_;
        for (std::uint32_t b = 0; b < far.block_count(); ++b) {
            if (!near_.has(b)) continue;
            BlockBits bits;
            const auto samples = near_.block(b);
            for (std::uint32_t n = 0; n < kBlockNodes; ++n) {
                if (!(samples[n].distance < reach_)) bits.set(n);
            }
            if (bits != BlockBits::full()) far.edit(b) = bits;
        }
        if (report_.is_open && options_.closes_holes) {
            find_wound_regions(far);
        } else {
            regions_.flood(kOutside, 0, far);
        }
        region_count_ = regions_.flood_all(kFirstInner, far);
        follow_widest_paths();
        const std::uint32_t first = region_count_;
        region_count_ = regions_.flood_all(first, everywhere_);
        decide_shut_in(first);
    }

    // The outside may flow in through a hole: where the winding number is above one half, it does
    // not count as outside.
    void find_wound_regions(const NodeSet& far) {
        Regions trial(field_.crossings_, field_.grid_);
        trial.flood(kOutside, 0, far);
        const WindingNumbers winding(field_.mesh_);
        const std::uint32_t blocks = layout_.count();
        const Box3f bounds = finite_bounds(field_.mesh_);
        const auto is_inside = [&](NodeIndex n) {
            const Vec3d p = field_.grid_.node(n.i, n.j, n.k);
            const Vec3f rounded = {static_cast<float>(p.x), static_cast<float>(p.y),
                                   static_cast<float>(p.z)};
            // From outside of the box, faces fill less than half of the view.
            return overlap(bounds, {rounded, rounded}) && winding.at(p) > 0.5;
        };
        const auto is_outside = [](std::uint32_t region) { return region == kOutside; };
        // By some nodes of each block first: its corners that were reached, or the first node.
        enum : std::uint8_t { Outside, Inside, Mixed };
        Array<std::uint8_t> place(blocks);
        for_blocks((blocks + kBlocksAtOnce - 1) / kBlocksAtOnce, [&](std::size_t piece) {
            const std::size_t end = std::min((piece + 1) * kBlocksAtOnce, std::size_t{blocks});
            for (std::size_t b = piece * kBlocksAtOnce; b < end; ++b) {
                const auto block = static_cast<std::uint32_t>(b);
                const BlockBits leaked = trial.bits(block, is_outside);
                place[b] = Outside;
                if (!leaked.any()) continue;
                const NodeIndex low = layout_.corner(block);
                BlockBits tried = leaked & corners_of_block();
                if (!tried.any()) tried = first_of(leaked);
                std::uint32_t inside = 0;
                tried.visit([&](std::uint32_t local) {
                    const auto n = static_cast<std::int32_t>(local);
                    const NodeIndex node = {low.i + (n & 7), low.j + (n >> 3 & 7),
                                            low.k + (n >> 6)};
                    inside += is_inside(node) ? 1U : 0U;
                });
                place[b] = inside == 0 ? Outside : inside == tried.count() ? Inside : Mixed;
            }
        });
        std::vector<std::uint32_t> mixed;
        NodeSet outside(field_.grid_);
        for (std::uint32_t b = 0; b < blocks; ++b) {
            const BlockBits leaked = trial.bits(b, is_outside);
            if (!leaked.any()) continue;
            if (place[b] == Mixed) {
                mixed.push_back(b);
            } else if (place[b] == Outside) {
                if (leaked == BlockBits::full()) {
                    outside.fill(b);
                } else {
                    outside.edit(b) = leaked;
                }
            }
        }
        std::vector<BlockBits> results(mixed.size());
        for_blocks(mixed.size(), [&](std::size_t m) {
            const BlockBits leaked = trial.bits(mixed[m], is_outside);
            const NodeIndex low = layout_.corner(mixed[m]);
            leaked.visit([&](std::uint32_t local) {
                const auto n = static_cast<std::int32_t>(local);
                if (!is_inside({low.i + (n & 7), low.j + (n >> 3 & 7), low.k + (n >> 6)})) {
                    results[m].set(local);
                }
            });
        });
        for (std::size_t m = 0; m < mixed.size(); ++m) outside.edit(mixed[m]) = results[m];
        regions_.flood(kOutside, 0, outside);
    }

    static BlockBits corners_of_block() {
        BlockBits corners;
        for (const std::size_t z : {std::size_t{0}, std::size_t{7}})
            corners.words[z] = 0x8100000000000081;
        return corners;
    }
    static BlockBits first_of(const BlockBits& bits) {
        BlockBits first;
        for (std::size_t z = 0; z < 8; ++z) {
            if (bits.words[z] == 0) continue;
            first.words[z] = bits.words[z] & (~bits.words[z] + 1);
            break;
        }
        return first;
    }

    struct Step {
        std::uint32_t node, region;
    };

    void follow_widest_paths() {
        std::vector<std::vector<Step>> buckets(kBuckets);
        const auto bucket_of = [&](std::uint32_t node) {
            const double share = distance(node) / reach_;
            return std::min(saturate_to<std::size_t>(share * kBuckets), kBuckets - 1);
        };
        const auto push_beyond = [&](std::uint32_t node, std::uint32_t region, std::size_t limit) {
            visit_open_neighbours(node, [&](std::uint32_t next) {
                if (regions_.at(next) != Regions::kUnknown) return;
                buckets[std::min(bucket_of(next), limit)].push_back({next, region});
            });
        };
        for (std::uint32_t b = 0; b < layout_.count(); ++b) {
            if (!near_.has(b) && !has_near_neighbour(b)) continue;
            regions_.known(b).visit([&](std::uint32_t local) {
                const std::uint32_t node = b * kBlockNodes + local;
                push_beyond(node, regions_.at(node), kBuckets - 1);
            });
        }
        for (std::size_t bucket = kBuckets; bucket-- > 0;) {
            for (std::size_t s = 0; s < buckets[bucket].size(); ++s) {
                const Step step = buckets[bucket][s];
                if (regions_.at(step.node) != Regions::kUnknown) continue;
                regions_.set(step.node, step.region);
                push_beyond(step.node, step.region, bucket);
            }
            std::vector<Step>().swap(buckets[bucket]);
        }
    }

    bool has_near_neighbour(std::uint32_t block) const {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            for (const std::int32_t by : {-1, 1}) {
                const std::uint32_t next = layout_.neighbour(block, axis, by);
                if (next != BlockLayout::kNone && near_.has(next)) return true;
            }
        }
        return false;
    }

    template <typename Visit>
    void visit_open_neighbours(std::uint32_t node, Visit&& visit) const {
        const NodeIndex n = layout_.node(node);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const NodeSet& crossed = field_.crossings_.crossed(axis);
            const NodeIndex up = n.stepped(axis, 1);
            if (layout_.contains(up) && !crossed.at(node)) visit(layout_.number(up));
            const NodeIndex down = n.stepped(axis, -1);
            if (!layout_.contains(down)) continue;
            const std::uint32_t below = layout_.number(down);
            if (!crossed.at(below)) visit(below);
        }
    }

    // By the winding number of the deepest node.
    void decide_shut_in(std::uint32_t first) {
        if (first == region_count_) return;
        struct Deepest {
            double distance = -1;
            std::uint32_t node = 0;
        };
        std::vector<Deepest> deepest(region_count_ - first);
        for (std::uint32_t b = 0; b < layout_.count(); ++b) {
            if (!near_.has(b)) continue;
            for (std::uint32_t local = 0; local < kBlockNodes; ++local) {
                const std::uint32_t node = b * kBlockNodes + local;
                const std::uint32_t region = regions_.at(node);
                if (region < first) continue;
                Deepest& best = deepest[region - first];
                if (distance(node) > best.distance) best = {distance(node), node};
            }
        }
        const WindingNumbers winding(field_.mesh_);
        std::vector<std::uint8_t> is_wound(deepest.size());
        parallel_for(deepest.size(), [&](std::size_t d) {
            const NodeIndex n = layout_.node(deepest[d].node);
            is_wound[d] = std::abs(winding.at(field_.grid_.node(n.i, n.j, n.k))) >= 0.5 ? 1 : 0;
        });
        for (std::uint32_t r = first; r < region_count_; ++r) {
            decided_.push_back({r, is_wound[r - first] != 0});
        }
        report_.shut_in = region_count_ - first;
    }

    // ------------------------------------------------------------------------------- solid nodes

    template <typename Visit>
    void visit_crossed_edges(Visit&& visit) const {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            for (std::uint32_t b = 0; b < layout_.count(); ++b) {
                const std::span<const Crossing> all = field_.crossings_.of_block(axis, b);
                for (std::size_t first = 0; first < all.size();) {
                    std::size_t end = first + 1;
                    while (end < all.size() && all[end].node == all[first].node) ++end;
                    const NodeIndex up = layout_.node(all[first].node).stepped(axis, 1);
                    visit(axis, all[first].node, layout_.number(up),
                          all.subspan(first, end - first));
                    first = end;
                }
            }
        }
    }

    // Regions that are cut off from the outside by nothing but a gap that shall be closed: they
    // become solid even where they look like cavities, for else the gap would stay.
    std::vector<std::uint8_t> open_regions() const {
        std::vector<std::uint8_t> is_open(region_count_, 0);
        if (!(options_.gap > 0)) return is_open;
        Regions reached(field_.crossings_, field_.grid_);
        reached.flood(kOutside, 0, everywhere_);
        const auto is_outside = [](std::uint32_t region) { return region == kOutside; };
        for (std::uint32_t b = 0; b < layout_.count(); ++b) {
            if (regions_.whole(b) == kOutside) continue;
            reached.bits(b, is_outside).visit([&](std::uint32_t local) {
                is_open[regions_.at(b * kBlockNodes + local)] = 1;
            });
        }
        return is_open;
    }

    void find_cavities() {
        if (region_count_ <= kFirstInner + 1) return;  // cavities lie within another region
        struct Votes {
            std::uint32_t all = 0, inward = 0;
        };
        std::vector<Votes> votes(region_count_);
        visit_crossed_edges([&](std::size_t axis, std::uint32_t low, std::uint32_t high,
                                std::span<const Crossing> crossings) {
            const std::uint32_t below = regions_.at(low);
            const std::uint32_t above = regions_.at(high);
            if (below == above) return;
            const bool has_wall = crossings.size() > 1;
            ++votes[below].all;
            ++votes[above].all;
            if ((has_wall || above != kOutside) &&
                !faces_up(field_.mesh_, crossings.front().face, axis)) {
                ++votes[below].inward;
            }
            if ((has_wall || below != kOutside) &&
                faces_up(field_.mesh_, crossings.back().face, axis)) {
                ++votes[above].inward;
            }
        });
        const std::vector<std::uint8_t> is_open = open_regions();
        for (std::uint32_t r = kFirstInner; r < region_count_; ++r) {
            if (is_open[r] != 0) continue;
            if (votes[r].all == 0 || votes[r].inward < kCavityShare * votes[r].all) continue;
            is_solid_[r] = 0;
            ++report_.cavities;
        }
    }

    void fill_solid() {
        NodeSet& solid = field_.solid_;
        solid = NodeSet(field_.grid_);
        for (std::uint32_t b = 0; b < layout_.count(); ++b) {
            const BlockBits bits =
                regions_.bits(b, [&](std::uint32_t region) { return is_solid_[region] != 0; });
            if (bits == BlockBits::full()) {
                solid.fill(b);
            } else if (bits.any()) {
                solid.edit(b) = bits;
            }
        }
    }

    bool has_solid_near(std::uint32_t node) const {
        const NodeIndex n = layout_.node(node);
        for (std::int32_t k = -1; k <= 1; ++k) {
            for (std::int32_t j = -1; j <= 1; ++j) {
                for (std::int32_t i = -1; i <= 1; ++i) {
                    if (field_.solid_.at(NodeIndex{n.i + i, n.j + j, n.k + k})) return true;
                }
            }
        }
        return false;
    }

    // A crossing with air on both ends, and no solid beside, is one of a sheet. Nodes around such
    // crossings become solid up to the reach; not all that are near their faces, which may go on
    // as the wall of a solid.
    void thicken_sheets() {
        NodeSet around(field_.grid_);
        NodeSet ends(field_.grid_);
        const double cell = field_.grid_.cell;
        const auto span = saturate_to<std::int32_t>(std::ceil(options_.sheet_reach / cell));
        const std::size_t count = field_.mesh_.faces.size();
        Array<std::uint8_t>& is_sheet = field_.is_sheet_;
        is_sheet.assign(count, 0);
        std::vector<std::uint8_t> is_crossed(count, 0);
        double sheet_cells = 0;
        visit_crossed_edges([&](std::size_t axis, std::uint32_t low, std::uint32_t high,
                                std::span<const Crossing> crossings) {
            for (const Crossing& crossing : crossings) is_crossed[crossing.face] = 1;
            if (field_.solid_.at(low) || field_.solid_.at(high)) return;
            if (has_solid_near(low) || has_solid_near(high)) return;
            for (const Crossing& crossing : crossings) is_sheet[crossing.face] = 1;
            sheet_cells += crossed_share(field_.mesh_, crossings.front().face, axis);
            ends.set(low);
            ends.set(high);
            const NodeIndex n = layout_.node(low);
            const NodeIndex to = NodeIndex{n.i + span, n.j + span, n.k + span}.stepped(axis, 1);
            for (std::int32_t k = n.k - span; k <= to.k; ++k) {
                for (std::int32_t j = n.j - span; j <= to.j; ++j) {
                    for (std::int32_t i = n.i - span; i <= to.i; ++i) {
                        if (layout_.contains({i, j, k})) around.set(layout_.number({i, j, k}));
                    }
                }
            }
        });
        report_.sheet_area = sheet_cells * cell * cell;
        if (sheet_cells == 0) {
            is_sheet.clear();
            return;
        }
        // Faces too small to be crossed.
        for (std::size_t f = 0; f < count; ++f) {
            if (is_crossed[f] != 0) continue;
            const std::array<NodeIndex, 8> nodes = nodes_around(f);
            const auto is_end = [&](NodeIndex n) { return ends.at(n); };
            const auto is_solid = [&](NodeIndex n) { return field_.solid_.at(n); };
            is_sheet[f] = std::any_of(nodes.begin(), nodes.end(), is_end) &&
                                  std::none_of(nodes.begin(), nodes.end(), is_solid)
                              ? 1
                              : 0;
        }
        make_solid_around_sheets(around);
    }

    void make_solid_around_sheets(const NodeSet& around) {
        const double reach = options_.sheet_reach;
        field_.sheet_reach_ = reach;
        TriMesh sheets;
        sheets.vertices = field_.mesh_.vertices;
        sheets.faces = field_.mesh_.faces;
        for (std::size_t f = 0; f < sheets.faces.size(); ++f) {
            if (field_.is_sheet_[f] == 0) sheets.faces[f].deleted = 1;
        }
        NodeDistances& distances = field_.sheet_distances_;
        distances = near_distances(sheets, field_.sheets().tree(), field_.grid_,
                                   reach + kBesideSheets * field_.grid_.cell);
        for (std::uint32_t b = 0; b < layout_.count(); ++b) {
            if (!distances.has(b) || around.is_empty(b)) continue;
            const std::span<const NodeDistances::Sample> samples = distances.block(b);
            (around.bits(b) & ~field_.solid_.bits(b)).visit([&](std::uint32_t local) {
                if (!(static_cast<double>(samples[local].distance) < reach)) return;
                field_.solid_.set(b * kBlockNodes + local);
                field_.thickened_.set(b * kBlockNodes + local);
            });
        }
    }

    // Turns bodies (or pockets of air, when `solid` is false) of few nodes over. A body that
    // reaches a whole block is not small.
    void drop_small(bool solid) {
        if (options_.least_nodes <= 1) return;
        const NodeSet& set = field_.solid_;
        NodeSet seen(field_.grid_);
        std::vector<std::uint32_t> body;
        std::vector<std::vector<std::uint32_t>> dropped;
        for (std::uint32_t b = 0; b < layout_.count(); ++b) {
            if (!set.is_mixed(b)) continue;
            const BlockBits own = solid ? set.bits(b) : ~set.bits(b);
            // A node whose body is large is left after `least_nodes` steps at most.
            (own & ~in_full_rows(own)).visit([&](std::uint32_t local) {
                const std::uint32_t node = b * kBlockNodes + local;
                if (seen.at(node)) return;
                if (!follow(node, solid, body)) return;
                for (const std::uint32_t n : body) seen.set(n);
                dropped.push_back(body);
            });
        }
        // When nothing else would be left, all stay.
        if (solid && !dropped.empty()) {
            std::uint64_t gone = 0;
            for (const auto& nodes : dropped) gone += nodes.size();
            if (gone == solid_node_count()) return;
        }
        for (const auto& nodes : dropped) {
            for (const std::uint32_t n : nodes) {
                if (solid) {
                    field_.solid_.reset(n);
                } else {
                    field_.solid_.set(n);
                }
            }
        }
        report_.dropped += fits<std::uint32_t>(dropped.size());
    }

    // Nodes of rows of 8 along an axis: quickly tells most nodes of large bodies.
    BlockBits in_full_rows(const BlockBits& bits) const {
        BlockBits rows;
        if (options_.least_nodes > kBlockSide) return rows;
        std::uint64_t columns = ~std::uint64_t{0};
        for (const std::uint64_t word : bits.words) columns &= word;
        for (std::size_t z = 0; z < 8; ++z) {
            const std::uint64_t word = bits.words[z];
            std::uint64_t y = word & word >> 32;
            y &= y >> 16;
            y = (y & y >> 8) & 0xFF;
            std::uint64_t x = word & word >> 4;
            x &= x >> 2;
            x = (x & x >> 1) & 0x0101010101010101;
            rows.words[z] = columns | y * 0x0101010101010101 | x * 0xFF;
        }
        return rows;
    }

    // The nodes of a small body; false when it is not small.
    bool follow(std::uint32_t node, bool solid, std::vector<std::uint32_t>& body) const {
        body.assign(1, node);
        for (std::size_t at = 0; at < body.size(); ++at) {
            const NodeIndex n = layout_.node(body[at]);
            for (std::size_t axis = 0; axis < 3; ++axis) {
                for (const std::int32_t by : {-1, 1}) {
                    const NodeIndex next = n.stepped(axis, by);
                    if (!layout_.contains(next)) {
                        if (!solid) return false;
                        continue;
                    }
                    const std::uint32_t number = layout_.number(next);
                    if (field_.solid_.at(number) != solid) continue;
                    if (std::find(body.begin(), body.end(), number) != body.end()) continue;
                    body.push_back(number);
                    if (body.size() >= options_.least_nodes) return false;
                }
            }
        }
        return true;
    }

    std::uint64_t solid_node_count() const {
        std::uint64_t count = 0;
        for (std::uint32_t b = 0; b < layout_.count(); ++b) {
            if (!field_.solid_.is_empty(b)) count += field_.solid_.bits(b).count();
        }
        return count;
    }

    bool was_solid(std::uint32_t node) const {
        return field_.solid_.at(node) && !field_.thickened_.at(node);
    }

    // Faces that pass between solid and solid alone. A sheet lies within what it was made, but
    // nowhere else.
    void find_buried_faces() {
        const std::size_t count = field_.mesh_.faces.size();
        std::vector<std::uint8_t> borders(count, 0);
        std::vector<std::uint8_t> is_within(count, 0);
        double buried = 0;
        visit_crossed_edges([&](std::size_t axis, std::uint32_t low, std::uint32_t high,
                                std::span<const Crossing> crossings) {
            const bool is_inner = was_solid(low) && was_solid(high) &&
                                  (crossings.size() % 2 != 0 || crossings.size() > 2);
            for (const Crossing& crossing : crossings) {
                (is_inner ? is_within : borders)[crossing.face] = 1;
                if (is_inner) buried += crossed_share(field_.mesh_, crossing.face, axis);
            }
        });
        if (buried == 0 || !options_.leaves_out_buried) return;
        field_.surface_ = std::make_unique<DistanceField::LazySurface>();
        field_.is_buried_.assign(count, 0);
        bool is_any_left = false;
        for (std::size_t f = 0; f < count; ++f) {
            bool is_buried = is_within[f] != 0 && borders[f] == 0;
            if (is_within[f] == 0 && borders[f] == 0) is_buried = is_deep(f);
            field_.is_buried_[f] = is_buried ? 1 : 0;
            is_any_left = is_any_left || !is_buried;
        }
        if (!is_any_left) field_.is_buried_.clear();
        const double cell = field_.grid_.cell;
        report_.buried_area = buried * cell * cell;
    }

    // A face too small to be crossed: whether all nodes around its middle are solid.
    bool is_deep(std::size_t f) const {
        const std::array<NodeIndex, 8> nodes = nodes_around(f);
        return std::all_of(nodes.begin(), nodes.end(), [&](NodeIndex n) {
            return field_.solid_.at(n) && !field_.thickened_.at(n);
        });
    }

    // Around the middle of a face.
    std::array<NodeIndex, 8> nodes_around(std::size_t f) const {
        const Triangle t = triangle_of(field_.mesh_, field_.mesh_.faces[f]);
        const Vec3d p = ((t[0] + t[1] + t[2]) / 3.0 - field_.grid_.origin) / field_.grid_.cell;
        const NodeIndex low = {saturate_to<std::int32_t>(std::floor(p.x)),
                               saturate_to<std::int32_t>(std::floor(p.y)),
                               saturate_to<std::int32_t>(std::floor(p.z))};
        std::array<NodeIndex, 8> nodes;
        for (std::int32_t c = 0; c < 8; ++c) {
            nodes[static_cast<std::size_t>(c)] = {low.i + (c & 1), low.j + (c >> 1 & 1),
                                                  low.k + (c >> 2)};
        }
        return nodes;
    }

    // Edges between solid and air that no face crosses, but at thickened sheets.
    void measure_bridges() {
        const NodeSet& solid = field_.solid_;
        for (std::uint32_t b = 0; b < layout_.count(); ++b) {
            for (std::size_t axis = 0; axis < 3; ++axis) {
                const std::uint32_t next = layout_.neighbour(b, axis, 1);
                if (next == BlockLayout::kNone) continue;
                if (!solid.is_mixed(b) && !solid.is_mixed(next) &&
                    solid.is_full(b) == solid.is_full(next)) {
                    continue;
                }
                const BlockBits here = solid.bits(b);
                const BlockBits there = shifted(here, solid.bits(next), axis, 1);
                const BlockBits thick =
                    field_.thickened_.bits(b) |
                    shifted(field_.thickened_.bits(b), field_.thickened_.bits(next), axis, 1);
                const BlockBits bridges =
                    (here ^ there) & ~field_.crossings_.crossed(axis).bits(b) & ~thick;
                bridges.visit([&](std::uint32_t local) {
                    bridged_.push_back({b * kBlockNodes + local, axis});
                    note_bridge(b * kBlockNodes + local);
                });
            }
        }
        report_.bridge_edges = bridged_.size();
        report_.bridges = count_bridges();
        const double cell = field_.grid_.cell;
        report_.bridge_area =
            static_cast<double>(report_.bridge_edges) * cell * cell / kCrossingsPerArea;
    }

    // A bridge is what hangs together over the cells that its edges are sides of.
    std::size_t count_bridges() const {
        struct Side {
            std::uint32_t cell, edge;
        };
        std::vector<Side> sides;
        sides.reserve(4 * bridged_.size());
        for (std::uint32_t e = 0; e < bridged_.size(); ++e) {
            const NodeIndex n = layout_.node(bridged_[e].node);
            const std::size_t u = next_corner(bridged_[e].axis);
            const std::size_t v = previous_corner(bridged_[e].axis);
            for (const NodeIndex& cell :
                 {n, n.stepped(u, -1), n.stepped(v, -1), n.stepped(u, -1).stepped(v, -1)}) {
                if (layout_.contains(cell)) sides.push_back({layout_.number(cell), e});
            }
        }
        std::sort(sides.begin(), sides.end(), [](const Side& a, const Side& b) {
            return a.cell != b.cell ? a.cell < b.cell : a.edge < b.edge;
        });
        UnionFind sets(bridged_.size());
        for (std::size_t i = 1; i < sides.size(); ++i) {
            if (sides[i].cell == sides[i - 1].cell) sets.unite(sides[i].edge, sides[i - 1].edge);
        }
        std::size_t count = 0;
        for (std::uint32_t e = 0; e < bridged_.size(); ++e) count += sets.find(e) == e ? 1 : 0;
        return count;
    }

    void note_bridge(std::uint32_t node) {
        const NodeIndex n = layout_.node(node);
        const Vec3d place = field_.grid_.node(n.i, n.j, n.k);
        const double squared = report_.widest_bridge * report_.widest_bridge / 4;
        double radius = distance(node);
        if (!(radius < reach_)) {
            radius = std::sqrt(field_.surface().find(place).squared_distance);
        }
        if (!(radius * radius > squared) || !std::isfinite(radius)) return;
        report_.widest_bridge = 2 * radius;
        report_.bridge_place = place;
    }

    struct BridgedEdge {
        std::uint32_t node;
        std::size_t axis;
    };
    struct Decision {
        std::uint32_t region;
        bool is_solid;
    };

    DistanceField& field_;
    const LabelOptions& options_;
    BlockLayout layout_;
    Regions regions_;
    NodeSet everywhere_;
    NodeDistances near_;
    double gap_ = 0;
    double reach_ = 0;  // distances beyond are not measured
    std::uint32_t region_count_ = 0;
    std::vector<std::uint8_t> is_solid_;  // by region
    std::vector<Decision> decided_;
    std::vector<BridgedEdge> bridged_;
    LabelReport report_;
};

LabelReport DistanceField::label(const LabelOptions& options) {
    thickened_ = NodeSet(grid_);
    is_buried_.clear();
    is_sheet_.clear();
    sheet_distances_ = NodeDistances(solid_.layout());
    surface_ = std::make_unique<LazySurface>();
    sheets_ = std::make_unique<LazySurface>();
    return Labelling(*this, options).run();
}

}  // namespace povmesh
