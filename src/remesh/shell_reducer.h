// Reduces one shell in rounds of collapses that do not touch.
//
// Every edge has a cost, the quadric error at the best place for the merged vertex. In each round
// the edges whose cost is low enough, and lower than that of all edges around, are collapsed at
// once: a set in which no two touch, found by comparing numbers alone. That takes the edges of any
// neighbourhood in the order of their costs, as a queue would. What is low enough follows from a
// histogram of the costs and the number of collapses that are still to be done.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "remesh/collapse_round.h"
#include "remesh/edge_placement.h"
#include "remesh/reduction_field.h"
#include "remesh/triangle_shape.h"
#include "spatial/nearest_face.h"

namespace povmesh {

// Shells up to this size are reduced side by side, a thread each, larger ones one after another
// with all threads on each.
inline constexpr std::size_t kSmallShell = 50000;

// What became of a shell; how often each rule turned an edge down.
struct ShellTally {
    std::size_t rounds = 0;
    std::size_t deleted = 0;
    std::size_t links = 0, folds = 0, slivers = 0, moves = 0;
    std::size_t held = 0, seams = 0;  // edges that are left, when too few faces went
};

template <typename Quadric>
class ShellReducer {
public:
    ShellReducer(ReductionField<Quadric>& field, std::size_t begin, std::size_t end,
                 bool makes_no_slivers)
        : field_(field),
          mesh_(field.corners),
          begin_(begin),
          end_(end),
          live_(end - begin),
          makes_no_slivers_(makes_no_slivers) {
        if (!field.strayed.empty()) diagonal_ = find_diagonal();
    }

    /// Collapses edges until `to_delete` faces are gone, or none may go any more. Calls `tell` with
    /// as many as went in each round.
    template <typename Tell>
    ShellTally run(std::size_t to_delete, const Tell& tell) {
        std::size_t live_at_start = live_;  // of the sweep: until nothing is left to collapse
        evaluate_all();
        while (tally_.deleted < to_delete) {
            const std::size_t wanted = (to_delete - tally_.deleted + 1) / 2;
            const std::size_t before = tally_.deleted;
            const bool has_picked = round(wanted);
            ++tally_.rounds;
            tell(tally_.deleted - before);
            if (live_ * 4 < (end_ - begin_) * 3) pack();
            // Edges that were picked and turned down are out of the way of others.
            if (has_picked) continue;
            // What was turned down may have become possible, but a sweep must be worth its time.
            if ((live_at_start - live_) * kLeastGain <= live_) break;
            live_at_start = live_;
            evaluate_all();
        }
        if (tally_.deleted < to_delete) count_what_stays();
        return tally_;
    }

private:
    enum class Outcome : std::uint8_t { Inner, Border, Link, Folds, Sliver, Moves };

    // Edges that stay because an end is fixed, or because they would join seams or borders.
    void count_what_stays() {
        for (std::size_t h = 3 * begin_; h < 3 * end_; ++h) {
            const auto edge = static_cast<std::uint32_t>(h);
            const bool is_lower = edge < mesh_.opposites[edge];  // kNone is the largest
            if (mesh_.is_gone(h / 3) || !is_lower || ends_outside(edge)) continue;
            if (!may_collapse(edge)) {
                ++tally_.held;
            } else if (choose(edge).cost >= static_cast<double>(kNever)) {
                ++tally_.seams;
            }
        }
    }

    bool ends_outside(std::uint32_t h) const {
        return std::max(index(origin(h)), index(target(h))) >= field_.mesh.vertices.size();
    }

    double find_diagonal() const {
        Vec3d low{1, 1, 1};
        Vec3d high{-1, -1, -1};
        for (std::size_t t = begin_; t < end_; ++t) {
            if (mesh_.is_ghost(t)) continue;
            for (const std::int32_t v : mesh_.triangles[t]) {
                const Vec3d p = field_.position(v);
                low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
                high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
            }
        }
        return length(high - low);
    }

    static std::size_t index(std::int32_t v) { return static_cast<std::size_t>(v); }

    struct Candidate {
        std::uint64_t key;
        std::uint32_t half_edge;
    };

    // What becomes of an edge: the survivor is the origin of `half_edge`.
    struct Choice {
        std::uint32_t half_edge;
        Vec3d place = {};
        bool stays = false;  // the survivor keeps its position
        double cost = kNever;
        std::optional<Attributes> attributes = {};  // of the survivor's wedge; empty: it keeps them
    };

    std::int32_t origin(std::uint32_t h) const { return mesh_.origin(h); }
    std::int32_t target(std::uint32_t h) const { return mesh_.target(h); }

    bool may_collapse(std::uint32_t h) const {
        return mesh_.opposites[h] != CollapseMesh::kNone && mesh_.is_fixed[index(origin(h))] == 0 &&
               mesh_.is_fixed[index(target(h))] == 0;
    }

    Choice choose(std::uint32_t h) const {
        if constexpr (Quadric::kHasAttributes) {
            return choose_with_wedges(h);
        } else {
            if (is_border(origin(h)) || is_border(target(h))) return choose_at_border(h);
            Choice choice{.half_edge = h};
            PositionQuadric sum = field_.quadrics[index(origin(h))];
            sum += field_.quadrics[index(target(h))];
            const Vec3d a = field_.position(origin(h));
            const Vec3d b = field_.position(target(h));
            choose_place(choice, sum, a, b);
            return choice;
        }
    }

    bool is_border(std::int32_t v) const {
        return !mesh_.is_border.empty() && mesh_.is_border[index(v)] != 0;
    }

    // A border moves along itself; the inside comes to the border, and two borders do not meet.
    Choice choose_at_border(std::uint32_t h) const {
        if (!is_border(origin(h))) h = mesh_.opposites[h];
        Choice choice{.half_edge = h};
        PositionQuadric sum = field_.quadrics[index(origin(h))];
        sum += field_.quadrics[index(target(h))];
        const Vec3d a = field_.position(origin(h));
        const Vec3d b = field_.position(target(h));
        if (!is_border(target(h))) {
            choice.place = a;
            choice.stays = true;
            choice.cost = cost_of(sum, a, dot(b - a, b - a));
        } else if (mesh_.is_ghost(h / 3) || mesh_.is_ghost(mesh_.opposites[h] / 3)) {
            choose_place(choice, sum, a, b);
        }
        return choice;
    }

    static void choose_place(Choice& choice, const PositionQuadric& sum, Vec3d a, Vec3d b) {
        const double squared_edge = dot(b - a, b - a);
        choice.place = best_place(sum, (a + b) * 0.5, squared_edge);
        choice.cost = cost_of(sum, choice.place, squared_edge);
    }

    static double cost_of(const PositionQuadric& sum, Vec3d p, double squared_edge) {
        const double weight = sum.xx + sum.yy + sum.zz;
        return std::max(sum.at(p), 0.0) + kLengthWeight * weight * squared_edge;
    }

    // By the kinds of the two ends; the one that is bound more survives, as a. Along a seam means
    // that the edge lies on it, across that it joins two seams or ends at one of two.
    //
    //   a \ b     Smooth                  Seam                         Crossing
    //   Smooth    best place, best        -                            -
    //             attributes
    //   Seam      a stays, unless the     along: best place, the       -
    //             edge is on a seam       wedges averaged; across: no
    //   Crossing  a stays, unless the     along: a stays; across: no   no
    //             edge is on a seam
    Choice choose_with_wedges(std::uint32_t h) const {
        const auto kind = [&](std::uint32_t e) { return field_.wedges.kinds[index(origin(e))]; };
        // The end that is bound more survives.
        std::uint32_t back = mesh_.opposites[h];
        if (kind(h) < kind(back)) std::swap(h, back);
        Choice choice{.half_edge = h};
        const Quadric& qa = field_.quadrics[index(origin(h))];
        const Quadric& qb = field_.quadrics[index(origin(back))];
        const Vec3d a = field_.position(origin(h));
        const Vec3d b = field_.position(origin(back));
        if (kind(h) == Wedges::Smooth) {
            Quadric sum = qa;
            sum += qb;
            choose_place(choice, without_attributes(sum), a, b);
            choice.attributes = best_attributes(sum, choice.place);
            return choice;
        }
        const bool is_seam_at_a = wedge(h) != wedge(next_half_edge(back));
        const bool is_seam_at_b = wedge(next_half_edge(h)) != wedge(back);
        if (is_seam_at_a != is_seam_at_b) return choice;
        if (kind(back) == Wedges::Smooth) {
            if (is_seam_at_a) return choice;
            PositionQuadric sum = qa.form;
            sum += with_attributes(qb, field_.wedges.attributes(wedge(h)));
            choice.place = a;
            choice.stays = true;
            choice.cost = cost_of(sum, a, dot(b - a, b - a));
            return choice;
        }
        if (kind(back) == Wedges::Crossing || !is_seam_at_a) return choice;
        PositionQuadric sum = qa.form;
        sum += qb.form;
        if (kind(h) == Wedges::Crossing) {
            choice.place = a;
            choice.stays = true;
            choice.cost = cost_of(sum, a, dot(b - a, b - a));
        } else {
            choose_place(choice, sum, a, b);
        }
        return choice;
    }

    std::uint32_t wedge(std::uint32_t h) const { return mesh_.wedges[h]; }

    // Sets the cost of an edge, given either of its half-edges.
    void evaluate(std::uint32_t h) {
        const std::uint32_t opposite = mesh_.opposites[h];
        float cost = kNever;
        std::uint32_t lower = h;
        if (opposite != CollapseMesh::kNone) {
            lower = std::min(h, opposite);
            field_.costs[std::max(h, opposite)] = kNever;
            if (may_collapse(lower)) {
                const double exact = choose(lower).cost;
                cost = exact < static_cast<double>(std::numeric_limits<float>::max())
                           ? static_cast<float>(exact)
                           : kNever;
            }
        }
        field_.costs[lower] = cost;
    }

    void evaluate_all() {
        parallel_for(end_ - begin_, [&](std::size_t i) {
            const std::size_t t = begin_ + i;
            for (std::uint32_t corner = 0; corner < 3; ++corner) {
                const auto h = static_cast<std::uint32_t>(3 * t + corner);
                if (mesh_.is_gone(t) || mesh_.opposites[h] == CollapseMesh::kNone) {
                    field_.costs[h] = kNever;
                } else if (h < mesh_.opposites[h]) {
                    evaluate(h);  // writes its own cost and that of the opposite half-edge
                }
            }
        });
    }

    std::span<const float> costs() const {
        return {field_.costs.data() + 3 * begin_, 3 * (end_ - begin_)};
    }

    // Collapses a set of edges that do not touch; false when no edge is left to try.
    bool round(std::size_t wanted) {
        const float threshold = find_threshold(wanted);
        std::vector<Candidate> chosen = select(threshold);
        // All edges below the threshold may be those of vertices of a high valence.
        if (chosen.empty() && threshold < kMostCost) chosen = select(kMostCost);
        if (chosen.size() > wanted) {
            const auto end = chosen.begin() + static_cast<std::ptrdiff_t>(wanted);
            std::nth_element(chosen.begin(), end, chosen.end(),
                             [](const Candidate& x, const Candidate& y) { return x.key < y.key; });
            chosen.erase(end, chosen.end());
        }
        collapse_all(chosen);
        return !chosen.empty();
    }

    // The cost up to which edges are candidates.
    float find_threshold(std::size_t wanted) const {
        const std::span<const float> all = costs();
        const double edges = 1.5 * static_cast<double>(live_);
        const double enough =
            std::min(kCandidatesPerCollapse * static_cast<double>(wanted), kMostCandidates * edges);
        const std::size_t least = std::max(kLeastCandidates, static_cast<std::size_t>(enough));
        // Buckets of the leading bits, which are ordered as the costs are.
        constexpr int kShift = 19;
        constexpr std::size_t kBuckets = 0x7F800000U >> kShift;
        constexpr std::size_t kBlock = std::size_t{1} << 18;
        const std::size_t block_count = (all.size() + kBlock - 1) / kBlock;
        std::vector<std::array<std::uint32_t, kBuckets>> counts(block_count);
        for_blocks(block_count, [&](std::size_t block) {
            counts[block].fill(0);
            const std::size_t last = std::min(all.size(), (block + 1) * kBlock);
            for (std::size_t i = block * kBlock; i < last; ++i) {
                if (all[i] < kNever)
                    ++counts[block][std::bit_cast<std::uint32_t>(all[i]) >> kShift];
            }
        });
        std::size_t sum = 0;
        for (std::size_t bucket = 0; bucket < kBuckets; ++bucket) {
            for (const auto& count : counts) sum += count[bucket];
            if (sum >= least) {
                return std::bit_cast<float>(static_cast<std::uint32_t>((bucket + 1) << kShift) - 1);
            }
        }
        return kMostCost;
    }

    std::size_t merged_valence(std::uint32_t h) const {
        return std::size_t{mesh_.valences[index(origin(h))]} + mesh_.valences[index(target(h))] - 4;
    }

    bool is_candidate(std::uint32_t h, float threshold) const {
        if (!(field_.costs[h] <= threshold)) return false;
        const std::size_t valence = merged_valence(h);
        return valence >= 3 && valence <= kMaxValence - 4;
    }

    std::uint64_t key_of(std::uint32_t h) const {
        const std::uint32_t cost = std::bit_cast<std::uint32_t>(field_.costs[h]);
        return std::uint64_t{cost & kCostSteps} << 32 | shuffled(h);
    }

    void set_keys(float threshold) {
        if (end_ - begin_ > kSmallShell) {
            // No other shell is at work.
            parallel_for(field_.keys.size(), [&](std::size_t v) { field_.keys[v] = kNoKey; });
        } else {
            for (std::size_t t = begin_; t < end_; ++t) {
                if (mesh_.is_gone(t)) continue;
                for (const std::int32_t v : mesh_.triangles[t]) {
                    if (mesh_.is_fixed[index(v)] == 0) field_.keys[index(v)] = kNoKey;
                }
            }
        }
        // Threads may lower a key at the same time: the lowest is left whatever their order.
        const std::size_t count = 3 * (end_ - begin_);
        candidates_.resize((count + kParallelBlock - 1) / kParallelBlock);
        for_blocks(candidates_.size(), [&](std::size_t block) {
            std::vector<std::uint32_t>& candidates = candidates_[block];
            candidates.clear();
            const std::size_t last = std::min(count, (block + 1) * kParallelBlock);
            for (std::size_t i = block * kParallelBlock; i < last; ++i) {
                const auto h = static_cast<std::uint32_t>(3 * begin_ + i);
                if (!is_candidate(h, threshold)) continue;
                const std::uint64_t key = key_of(h);
                candidates.push_back(h);
                atomic_min(field_.keys[index(origin(h))], key);
                atomic_min(field_.keys[index(target(h))], key);
            }
        });
    }

    // Candidates with the lowest key of all those at their ends and at the neighbours of these.
    std::vector<Candidate> select(float threshold) {
        set_keys(threshold);
        for_blocks(candidates_.size(), [&](std::size_t block) {
            std::erase_if(candidates_[block], [&](std::uint32_t h) {
                const std::uint64_t key = key_of(h);
                return field_.keys[index(origin(h))] != key ||
                       field_.keys[index(target(h))] != key || !is_lowest_around(h, key) ||
                       !is_lowest_around(mesh_.opposites[h], key);
            });
        });
        std::vector<Candidate> all;
        for (const std::vector<std::uint32_t>& some : candidates_) {
            for (const std::uint32_t h : some) all.push_back({key_of(h), h});
        }
        return all;
    }

    bool is_lowest_around(std::uint32_t h, std::uint64_t key) const {
        std::uint32_t e = h;
        do {
            // Fixed vertices have no candidates; their keys may be those of another shell's round.
            if (mesh_.is_fixed[index(target(e))] == 0 && field_.keys[index(target(e))] < key) {
                return false;
            }
            e = mesh_.turn(e);
        } while (e != h);
        return true;
    }

    // No triangle holds vertices of two chosen edges, so that each collapse reads and writes
    // triangles, positions and quadrics of its own. Only the valences of the vertices opposite
    // are shared, and lowered one by one.
    void collapse_all(const std::vector<Candidate>& chosen) {
        std::vector<Outcome> outcomes(chosen.size());
        constexpr std::size_t kBlock = 256;
        for_blocks((chosen.size() + kBlock - 1) / kBlock, [&](std::size_t block) {
            const std::size_t last = std::min(chosen.size(), (block + 1) * kBlock);
            for (std::size_t i = block * kBlock; i < last; ++i) {
                outcomes[i] = try_collapse(chosen[i].half_edge);
            }
        });
        std::array<std::size_t, 6> counts{};
        for (const Outcome outcome : outcomes) ++counts[static_cast<std::size_t>(outcome)];
        const auto count = [&](Outcome of) { return counts[static_cast<std::size_t>(of)]; };
        live_ -= 2 * (count(Outcome::Inner) + count(Outcome::Border));
        tally_.deleted +=
            2 * count(Outcome::Inner) + count(Outcome::Border);  // ghosts do not count
        tally_.links += count(Outcome::Link);
        tally_.folds += count(Outcome::Folds);
        tally_.slivers += count(Outcome::Sliver);
        tally_.moves += count(Outcome::Moves);
    }

    Outcome try_collapse(std::uint32_t candidate) {
        const Choice choice = choose(candidate);
        const std::uint32_t h = choice.half_edge;
        const OneRing ring_a(mesh_, h);
        const OneRing ring_b(mesh_, mesh_.opposites[h]);
        const Vec3f place = choice.stays ? field_.mesh.vertices[index(origin(h))].position()
                                         : field_.frame.model(choice.place);
        field_.costs[candidate] = kNever;
        if (!satisfies_link_condition(ring_a, ring_b)) return Outcome::Link;
        if (folds_over(ring_a, place) || folds_over(ring_b, place)) return Outcome::Folds;
        if (makes_no_slivers_ && makes_slivers(ring_a, ring_b, place)) {
            return Outcome::Sliver;
        }
        if (!field_.strayed.empty()) {
            const float most = std::min(field_.most_strayed[index(origin(h))],
                                        field_.most_strayed[index(target(h))]);
            const double strayed = strayed_by(ring_a, ring_b, place, static_cast<double>(most));
            if (!(strayed <= static_cast<double>(most))) return Outcome::Moves;
            field_.strayed[index(origin(h))] = static_cast<float>(strayed);
            field_.most_strayed[index(origin(h))] = most;
        }
        const bool is_at_border = mesh_.is_ghost(h / 3) || mesh_.is_ghost(mesh_.opposites[h] / 3);
        collapse(choice, place, ring_b);
        return is_at_border ? Outcome::Border : Outcome::Inner;
    }

    // Calls visit(e) for the half-edges of a ring, which starts with the edge, whose triangles have
    // a place and stay.
    template <typename Visit>
    void visit_kept(const OneRing& ring, Visit&& visit) const {
        const std::uint32_t edge = ring.half_edges[0];
        for (const std::uint32_t e : ring) {
            // Both faces on the edge have it at the vertex, as the way out or the way in.
            if (e != edge && mesh_.turn(e) != edge && !mesh_.is_ghost(e / 3)) visit(e);
        }
    }

    // The triangle of a half-edge, its origin moved to a place.
    Triangle3d moved_triangle(std::uint32_t e, Vec3d place) const {
        return {place, field_.position(target(e)), field_.position(mesh_.apex(e))};
    }

    // True when there would be more slivers around the merged vertex than around its edge.
    bool makes_slivers(const OneRing& ring_a, const OneRing& ring_b, Vec3f place) const {
        const Vec3d p = field_.frame.local(place);
        std::size_t made = 0;
        std::size_t there = 0;
        const auto is_sliver = [](const Triangle3d& t) {
            return shape_of(t).is_sliver ? std::size_t{1} : std::size_t{0};
        };
        for (const OneRing* ring : {&ring_a, &ring_b}) {
            visit_kept(*ring, [&](std::uint32_t e) { made += is_sliver(moved_triangle(e, p)); });
        }
        if (made == 0) return false;
        for (const OneRing* ring : {&ring_a, &ring_b}) {
            const Vec3d before = field_.position(origin(ring->half_edges[0]));
            visit_kept(*ring,
                       [&](std::uint32_t e) { there += is_sliver(moved_triangle(e, before)); });
        }
        return made > there;
    }

    // How far the surface around the merged vertex may be from where it was at first, were the edge
    // collapsed: the distances of the two ends from what comes, and of the place from what was, on
    // top of how far the ends have strayed.
    double strayed_by(const OneRing& ring_a, const OneRing& ring_b, Vec3f place,
                      double most) const {
        constexpr double kSmallShare = 1.0 / 64;  // below it an upper bound will do
        const std::int32_t a = origin(ring_a.half_edges[0]);
        const std::int32_t b = origin(ring_b.half_edges[0]);
        const Vec3d p = field_.frame.local(place);
        const Vec3d at_a = field_.position(a);
        const Vec3d at_b = field_.position(b);
        const auto before =
            static_cast<double>(std::max(field_.strayed[index(a)], field_.strayed[index(b)]));
        const double step = std::max(length(at_a - p), length(at_b - p));
        if (before + step / diagonal_ <= kSmallShare * most) return before + step / diagonal_;
        std::array<double, 3> squares{};
        squares.fill(std::numeric_limits<double>::infinity());
        const auto lower = [](double& square, Vec3d from, const Triangle3d& triangle) {
            square = std::min(square, nearest_on_triangle(from, triangle).squared_distance);
        };
        for (const OneRing* ring : {&ring_a, &ring_b}) {
            visit_kept(*ring, [&](std::uint32_t e) {
                lower(squares[0], at_a, moved_triangle(e, p));
                lower(squares[1], at_b, moved_triangle(e, p));
            });
            for (const std::uint32_t e : *ring) {
                if (mesh_.is_ghost(e / 3)) continue;
                lower(squares[2], p, moved_triangle(e, ring == &ring_a ? at_a : at_b));
            }
        }
        const double square = *std::max_element(squares.begin(), squares.end());
        return before + std::sqrt(square) / diagonal_;
    }

    // The link condition: the ends have just the two vertices opposite the edge for neighbours in
    // common.
    bool satisfies_link_condition(const OneRing& ring_a, const OneRing& ring_b) const {
        std::size_t common = 0;
        for (const std::uint32_t e : ring_a) {
            for (const std::uint32_t g : ring_b) {
                if (target(e) == target(g)) ++common;
            }
        }
        return common == 2;
    }

    // True when a face that stays would turn by 90 degrees or more. Its ring starts with the edge.
    bool folds_over(const OneRing& ring, Vec3f place) const {
        const auto at = [&](std::int32_t v) {
            return to_double(field_.mesh.vertices[index(v)].position());
        };
        const std::uint32_t edge = ring.half_edges[0];
        const Vec3d before = at(origin(edge));
        const Vec3d after = to_double(place);
        for (const std::uint32_t e : ring) {
            // Both faces on the edge have it at the vertex, as the way out or the way in.
            if (e == edge || mesh_.turn(e) == edge || mesh_.is_ghost(e / 3)) continue;
            const Vec3d p = at(target(e));
            const Vec3d side = at(mesh_.apex(e)) - p;
            const Vec3d old_normal = cross(before - p, side);
            const Vec3d new_normal = cross(after - p, side);
            if (!(dot(old_normal, new_normal) > 0) && dot(old_normal, old_normal) > 0) return true;
        }
        return false;
    }

    void collapse(const Choice& choice, Vec3f place, const OneRing& ring_b) {
        const std::uint32_t h = choice.half_edge;
        const std::uint32_t back = mesh_.opposites[h];
        const std::int32_t a = origin(h);
        const std::int32_t b = target(h);
        if constexpr (Quadric::kHasAttributes) {
            merge_wedges(choice, ring_b);
        } else {
            field_.quadrics[index(a)] += field_.quadrics[index(b)];
        }
        for (const std::uint32_t e : ring_b) mesh_.triangles[e / 3][e % 3] = a;
        const std::uint32_t survivor = remove_triangle(h);
        remove_triangle(back);
        std::uint32_t& valence = mesh_.valences[index(a)];
        valence = valence + mesh_.valences[index(b)] - 4;
        Vertex& vertex = field_.mesh.vertices[index(a)];
        vertex.x = place.x;
        vertex.y = place.y;
        vertex.z = place.z;
        std::uint32_t e = survivor;
        do {
            evaluate(e);
            e = mesh_.turn(e);
        } while (e != survivor);
    }

    // Takes a triangle on the collapsed edge out and joins the two beside it. Returns the half-edge
    // from the survivor to the apex.
    std::uint32_t remove_triangle(std::uint32_t h) {
        const std::uint32_t next = mesh_.opposites[next_half_edge(h)];
        const std::uint32_t previous = mesh_.opposites[previous_half_edge(h)];
        mesh_.opposites[next] = previous;
        mesh_.opposites[previous] = next;
        const std::int32_t apex = mesh_.apex(h);
        std::atomic_ref(mesh_.valences[index(apex)]).fetch_sub(1, std::memory_order_relaxed);
        const std::size_t t = h / 3;
        mesh_.triangles[t][0] = CollapseMesh::kGone;
        for (std::size_t corner = 0; corner < 3; ++corner) field_.costs[3 * t + corner] = kNever;
        return previous;
    }

    // The removed vertex's wedges become those of the survivor on their side of the edge.
    void merge_wedges(const Choice& choice, const OneRing& ring_b) {
        const std::uint32_t h = choice.half_edge;
        const std::uint32_t back = mesh_.opposites[h];
        const std::array<std::uint32_t, 2> at_a = {wedge(h), wedge(next_half_edge(back))};
        const std::array<std::uint32_t, 2> at_b = {wedge(next_half_edge(h)), wedge(back)};
        Quadric& qa = field_.quadrics[index(origin(h))];
        const Quadric& qb = field_.quadrics[index(target(h))];
        if (choice.attributes.has_value()) {
            field_.wedges.set_attributes(at_a[0], *choice.attributes);
            qa += qb;
        } else {
            const bool is_smooth = field_.wedges.kinds[index(target(h))] == Wedges::Smooth;
            qa.form += is_smooth ? with_attributes(qb, field_.wedges.attributes(at_a[0])) : qb.form;
            if (!choice.stays) average_along_the_seam(choice, at_a, at_b);
        }
        for (const std::uint32_t e : ring_b) {
            mesh_.wedges[e] = mesh_.wedges[e] == at_b[0] ? at_a[0] : at_a[1];
        }
    }

    void average_along_the_seam(const Choice& choice, const std::array<std::uint32_t, 2>& at_a,
                                const std::array<std::uint32_t, 2>& at_b) {
        const Vec3d a = field_.position(origin(choice.half_edge));
        const Vec3d along = field_.position(target(choice.half_edge)) - a;
        const double square = dot(along, along);
        const double t =
            square > 0 ? std::clamp(dot(choice.place - a, along) / square, 0.0, 1.0) : 0.5;
        for (std::size_t side = 0; side < 2; ++side) {
            Attributes mixed = field_.wedges.attributes(at_a[side]);
            const Attributes other = field_.wedges.attributes(at_b[side]);
            if (mixed == other) continue;
            for (std::size_t k = 0; k < 3; ++k) mixed[k] += t * (other[k] - mixed[k]);
            field_.wedges.set_attributes(at_a[side], mixed);
        }
    }

    void pack() {
        const std::size_t old_end = end_;
        // Costs belong to the lower half-edge, and packing keeps the order.
        std::size_t place = 3 * begin_;
        for (std::size_t t = begin_; t < old_end; ++t) {
            if (mesh_.is_gone(t)) continue;
            for (std::size_t corner = 0; corner < 3; ++corner) {
                field_.costs[place++] = field_.costs[3 * t + corner];
            }
        }
        end_ = mesh_.pack(begin_, old_end, field_.places);
    }

    ReductionField<Quadric>& field_;
    CollapseMesh& mesh_;
    std::size_t begin_, end_;  // triangles of the shell; some may be gone
    std::size_t live_;
    bool makes_no_slivers_;
    double diagonal_ = 1;  // of the shell's box, in the unit frame
    ShellTally tally_;
    std::vector<std::vector<std::uint32_t>> candidates_;  // of the round, block by block
};

}  // namespace povmesh
