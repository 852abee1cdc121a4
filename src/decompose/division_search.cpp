// Beam search over sets of pieces. A state has finished parts and open pieces, of which the largest
// is divided next, in every way that the pieces' boxes and sections suggest; the states with the
// fewest parts to be expected stay, of equal ones those with the best sections. A piece keeps the
// ways that were found to divide it, so that a second search costs little.
//
// Source: L. Luo, I. Baran, S. Rusinkiewicz and W. Matusik, Chopper: Partitioning models into
// 3D-printable parts, TOG 31(6), 2012. Unlike there, what the cuts do is judged on cells, and the
// parts to be expected of a piece are the slab cells that hold any of it.
#include "decompose/division_search.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <set>
#include <utility>

#include "base/convert.h"
#include "base/poll.h"
#include "decompose/section_quality.h"

namespace povmesh {
namespace {

// Width of the beam by the number of parts to be expected.
constexpr std::size_t kFewParts = 16;
constexpr std::size_t kSomeParts = 48;
constexpr std::size_t kMostParts = 512;  // beyond it the even division has to do

constexpr std::size_t kBestSections = 3;  // of a window
constexpr double kApart = 0.12;           // of a window, that these are apart at least
constexpr std::size_t kSpreadPlaces = 6;  // along every axis
constexpr std::size_t kMostWindows = 15;  // along an axis; more slabs are far from done anyway

constexpr double kCrumbWeight = 0.5;
constexpr double kCrumbShare = 0.05;    // of the mean part; what is smaller is a crumb
constexpr double kRealCrumbWeight = 2;  // of one that a cut of the mesh made

// How far a place may be from the one that was judged, cells.
constexpr double kLeeway = 1.5;

// A section has room for a peg when it is as wide as this share of the smallest size, and as these
// cells.
constexpr double kPegShare = 0.04;
constexpr double kPegCells = 3;

struct Way;

// Only roots keep their runs: there are far more pieces than are looked at again.
struct Node {
    SolidPiece piece;
    Node* parent = nullptr;  // divided in its way number `way` has it as child number `child`
    std::size_t way = 0;
    std::size_t child = 0;
    std::size_t expected = 1;  // parts
    bool fits = false;
    bool has_ways = false;
    std::vector<Way> ways;  // to divide it, once they were looked for
};

using NodePointer = std::shared_ptr<Node>;

struct Way {
    CutPlace place;
    double quality = 0;
    std::vector<NodePointer> children;  // those below first
    std::size_t more_parts = 0;         // than its children need, as a cut of the mesh showed
};

struct Choice {
    NodePointer node;
    std::size_t way;
};

struct State {
    std::size_t done = 0;
    std::size_t expected = 0;  // parts in all
    double quality = 0;        // summed up
    std::vector<NodePointer> open;
    std::vector<Choice> choices;
};

bool is_better(const State& a, const State& b) {
    return a.expected != b.expected ? a.expected < b.expected : a.quality < b.quality;
}

}  // namespace

class PlanSearch {
public:
    PlanSearch(SolidModel solid, const PartSize& size, std::size_t& effort)
        : grid_(solid.grid), size_(size), effort_(effort) {
        for (SolidPiece& piece : solid.pieces) {
            volume_ += piece.cells;
            roots_.push_back(make_node(std::move(piece)));
            add(start_, roots_.back());
        }
        expected_at_first_ = std::max<std::size_t>(start_.expected, 1);
        scale_ = scale_of_sections();
    }

    DivisionPlan plan() {
        if (start_.expected > kMostParts || roots_.empty()) return {};
        std::vector<State> beam = {start_};
        State best;
        bool has_best = false;
        while (!beam.empty() && effort_ != 0) {
            std::vector<State> next;
            for (const State& state : beam) {
                poll();
                if (has_best && !may_beat(state, best)) continue;
                if (state.open.empty()) {
                    if (!has_best || is_better(state, best)) best = state;
                    has_best = true;
                    continue;
                }
                if (effort_ != 0) expand(state, next);
            }
            beam = keep_best(std::move(next));
        }
        if (!has_best) return {};
        DivisionPlan plan = plan_of(best);
        if (std::find(made_.begin(), made_.end(), planned_ways_) != made_.end()) return {};
        made_.push_back(planned_ways_);
        return plan;
    }

    // What is wrong with a place is so with those next to it.
    void correct(std::uint32_t piece, std::size_t more_parts, std::size_t crumbs) {
        const CutPlace& wrong = planned_ways_[piece].second->place;
        for (Way& way : planned_ways_[piece].first->ways) {
            if (way.place.axis != wrong.axis) continue;
            const double apart = std::abs(way.place.offset - wrong.offset);
            if (apart > kLeeway * grid_.edge[wrong.axis]) continue;
            way.more_parts += more_parts;
            way.quality += kRealCrumbWeight * static_cast<double>(crumbs);
        }
    }

private:
    NodePointer make_node(SolidPiece piece) const {
        auto node = std::make_shared<Node>();
        node->piece = std::move(piece);
        node->fits = size_.fits(node->piece.box);
        node->expected = node->fits ? 1 : expected_parts(node->piece);
        return node;
    }

    static void add(State& state, const NodePointer& node) {
        state.expected += node->expected;
        if (node->fits) {
            ++state.done;
        } else {
            state.open.push_back(node);
        }
    }

    // What is expected of a piece may turn out to be too much, but never less than two parts.
    static bool may_beat(const State& state, const State& best) {
        const std::size_t least = state.done + 2 * state.open.size();
        return least != best.expected ? least < best.expected : state.quality < best.quality;
    }

    // The slab cells of its box that hold any of a piece, at least 2.
    std::size_t expected_parts(const SolidPiece& piece) const {
        std::size_t least = kMostParts + 1;
        for (const Limits& limits : size_.limits()) {
            least = std::min(least, held_cells(piece, limits));
        }
        return std::max<std::size_t>(2, least);
    }

    std::size_t held_cells(const SolidPiece& piece, const Limits& limits) const {
        std::array<std::size_t, 3> slabs{};
        std::array<std::vector<std::size_t>, 3> slab_of;  // by layer
        const Vec3d extent = piece.box.extent();
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double length = along(extent, axis);
            slabs[axis] = static_cast<std::size_t>(
                std::min<std::int64_t>(slab_count(length, limits[axis]), kMostParts + 1));
            for (std::int32_t i = piece.low[axis]; i < piece.high[axis]; ++i) {
                const double middle = along(grid_.box.low, axis) + grid_.edge[axis] * (i + 0.5);
                const double share = (middle - along(piece.box.low, axis)) / length;
                const auto slab =
                    saturate_to<std::size_t>(share * static_cast<double>(slabs[axis]));
                slab_of[axis].push_back(std::min(slab, slabs[axis] - 1));
            }
        }
        const std::size_t all = slabs[0] * slabs[1] * slabs[2];
        if (all > kMostParts) return all;
        std::vector<bool> held(all, false);
        Poller poller;
        for (const CellRun& run : piece.runs) {
            poller();
            const auto at = [&](std::size_t axis, std::int32_t i) {
                return slab_of[axis][static_cast<std::size_t>(i - piece.low[axis])];
            };
            const std::size_t row = (at(2, run.z) * slabs[1] + at(1, run.y)) * slabs[0];
            for (std::size_t s = at(0, run.begin); s <= at(0, run.end - 1); ++s) {
                held[row + s] = true;
            }
        }
        return static_cast<std::size_t>(std::count(held.begin(), held.end(), true));
    }

    // ------------------------------------------------------------------ where to cut

    // Places along an axis and the quality of the section nearest to each.
    class Places {
    public:
        Places(const SolidPiece& piece, std::size_t axis, const CellGrid& grid,
               std::vector<double> qualities)
            : piece_(piece), axis_(axis), grid_(grid), qualities_(std::move(qualities)) {}

        double low() const { return along(piece_.box.low, axis_); }
        double high() const { return along(piece_.box.high, axis_); }

        double offset_of(std::size_t layer) const {
            return along(grid_.box.low, axis_) +
                   grid_.edge[axis_] * (piece_.low[axis_] + static_cast<double>(layer));
        }

        void add(double offset) {
            const double rounded = static_cast<double>(narrow_to_float(offset));
            const double step = grid_.edge[axis_];
            const double layer = (rounded - offset_of(0)) / step;
            if (!(layer > 0.5 && layer < static_cast<double>(qualities_.size()) - 0.5)) return;
            for (const auto& [place, quality] : found_) {
                if (std::abs(place - rounded) < 0.1 * step) return;
            }
            const auto nearest = saturate_to<std::size_t>(std::round(layer));
            found_.emplace_back(
                rounded, qualities_[std::clamp<std::size_t>(nearest, 1, qualities_.size() - 1)]);
        }

        // The best sections between two places, apart from each other.
        void add_best(double from, double to) {
            std::vector<std::size_t> layers;
            for (std::size_t i = 1; i < qualities_.size(); ++i) {
                if (offset_of(i) >= from && offset_of(i) <= to) layers.push_back(i);
            }
            std::stable_sort(layers.begin(), layers.end(), [&](std::size_t a, std::size_t b) {
                return qualities_[a] < qualities_[b];
            });
            std::vector<double> taken;
            for (const std::size_t i : layers) {
                const double offset = offset_of(i);
                const bool is_near = std::any_of(taken.begin(), taken.end(), [&](double other) {
                    return std::abs(other - offset) < kApart * (to - from);
                });
                if (is_near) continue;
                taken.push_back(offset);
                add(offset);
                if (taken.size() == kBestSections) break;
            }
        }

        const std::vector<std::pair<double, double>>& found() const { return found_; }

    private:
        const SolidPiece& piece_;
        std::size_t axis_;
        const CellGrid& grid_;
        std::vector<double> qualities_;
        std::vector<std::pair<double, double>> found_;
    };

    // The same for all pieces, so that qualities add up to that of the whole seam.
    SectionScale scale_of_sections() const {
        const Vec3d extent = grid_.box.extent();
        const Limits& limits = size_.best_limits(extent);
        std::array<double, 3> side{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            side[axis] = std::min(limits[axis], along(extent, axis));
        }
        const double edge = *std::max_element(grid_.edge.begin(), grid_.edge.end());
        const double wide = std::isinf(size_.smallest()) ? 0 : kPegShare * size_.smallest();
        return {std::max(wide, kPegCells * edge), 4 * (side[0] + side[1] + side[2]) / 3,
                (side[0] * side[1] + side[1] * side[2] + side[2] * side[0]) / 3};
    }

    // Divides the root again as the pieces above this one were divided.
    std::vector<CellRun> runs_of(const Node& node) {
        if (node.parent == nullptr) return node.piece.runs;
        SolidPiece whole = node.parent->piece;
        if (node.parent->parent != nullptr) whole.runs = runs_of(*node.parent);
        spend(2 * whole.runs.size());
        SplitPiece split = split_piece(whole, node.parent->ways[node.way].place, grid_);
        const std::size_t below = split.below.size();
        return std::move(node.child < below ? split.below[node.child].runs
                                            : split.above[node.child - below].runs);
    }

    void find_ways(Node& node) {
        node.has_ways = true;
        SolidPiece piece = node.piece;
        piece.runs = runs_of(node);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            if (piece.high[axis] - piece.low[axis] < 2) continue;
            Places places(piece, axis, grid_, section_qualities(piece, axis, grid_, scale_));
            spend(volume_of(piece) / 4);
            const Limits* done = nullptr;
            for (const Limits& limits : size_.limits()) {
                if (done != nullptr && limits[axis] == (*done)[axis]) continue;
                done = &limits;
                add_windows(places, limits[axis]);
            }
            const double extent = places.high() - places.low();
            for (std::size_t i = 0; i < kSpreadPlaces; ++i) {
                places.add(places.low() + extent * (static_cast<double>(i) + 0.5) / kSpreadPlaces);
            }
            for (const auto& [offset, quality] : places.found()) {
                add_way(node, piece, {axis, offset}, quality);
            }
        }
    }

    // Where a limit leaves the least number of slabs.
    static void add_windows(Places& places, double limit) {
        const double low = places.low();
        const double extent = places.high() - low;
        const auto slabs = static_cast<std::size_t>(
            std::min<std::int64_t>(slab_count(extent, limit), kMostWindows + 1));
        const double size = planned(limit);
        const auto count = static_cast<double>(slabs);
        for (std::size_t m = 1; m < slabs; ++m) {
            const auto share = static_cast<double>(m);
            const double from = places.high() - (count - share) * size;
            const double to = low + share * size;
            places.add(low + extent * share / count);
            if (!(from < to)) continue;
            places.add_best(from, to);
            places.add(from);
            places.add(to);
        }
    }

    // Half the tolerance, so that rounding keeps the parts within the other half.
    static double planned(double limit) { return limit * (1 - PartSize::kTolerance / 2); }

    void add_way(Node& node, const SolidPiece& whole, const CutPlace& place, double quality) {
        spend(2 * whole.runs.size());
        SplitPiece split = split_piece(whole, place, grid_);
        if (split.below.empty() || split.above.empty()) return;
        Way way{place, quality, {}, 0};
        const double crumb =
            kCrumbShare * static_cast<double>(volume_) / static_cast<double>(expected_at_first_);
        for (std::vector<SolidPiece>* side : {&split.below, &split.above}) {
            for (SolidPiece& piece : *side) {
                const auto cells = static_cast<double>(piece.cells);
                if (cells < crumb) way.quality += kCrumbWeight * (1 - cells / crumb);
                NodePointer child = make_node(std::move(piece));
                std::vector<CellRun>().swap(child->piece.runs);
                child->parent = &node;
                child->way = node.ways.size();
                child->child = way.children.size();
                way.children.push_back(std::move(child));
            }
        }
        node.ways.push_back(std::move(way));
    }

    void spend(std::size_t count) { effort_ -= std::min(effort_, count); }

    // Cells of its box.
    static std::size_t volume_of(const SolidPiece& piece) {
        std::size_t volume = 1;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            volume *= static_cast<std::size_t>(piece.high[axis] - piece.low[axis]);
        }
        return volume;
    }

    // ------------------------------------------------------------------ the beam

    void expand(const State& state, std::vector<State>& next) {
        const auto largest = std::max_element(state.open.begin(), state.open.end(),
                                              [](const NodePointer& a, const NodePointer& b) {
                                                  return a->piece.cells < b->piece.cells;
                                              });
        const NodePointer& node = *largest;
        if (!node->has_ways) find_ways(*node);
        for (std::size_t i = 0; i < node->ways.size(); ++i) {
            const Way& way = node->ways[i];
            State made = state;
            made.open.erase(made.open.begin() + (largest - state.open.begin()));
            made.expected += way.more_parts - node->expected;
            made.quality += way.quality;
            for (const NodePointer& child : way.children) add(made, child);
            made.choices.push_back({node, i});
            next.push_back(std::move(made));
        }
    }

    // Boxes of the open pieces, in steps of two cells.
    std::vector<std::int32_t> signature(const State& state) const {
        std::vector<std::array<std::int32_t, 6>> boxes;
        for (const NodePointer& node : state.open) {
            const SolidPiece& p = node->piece;
            boxes.push_back({p.low[0] / 2, p.low[1] / 2, p.low[2] / 2, p.high[0] / 2, p.high[1] / 2,
                             p.high[2] / 2});
        }
        std::sort(boxes.begin(), boxes.end());
        std::vector<std::int32_t> all = {static_cast<std::int32_t>(state.done)};
        for (const auto& box : boxes) all.insert(all.end(), box.begin(), box.end());
        return all;
    }

    std::vector<State> keep_best(std::vector<State> states) const {
        std::stable_sort(states.begin(), states.end(), is_better);
        std::vector<State> kept;
        std::set<std::vector<std::int32_t>> seen;
        for (State& state : states) {
            const std::size_t width = expected_at_first_ <= kFewParts    ? 6
                                      : expected_at_first_ <= kSomeParts ? 3
                                                                         : 1;
            if (kept.size() == width) break;
            if (!seen.insert(signature(state)).second) continue;
            kept.push_back(std::move(state));
        }
        return kept;
    }

    DivisionPlan plan_of(const State& best) {
        DivisionPlan plan;
        plan.parts = best.expected;
        planned_ways_.clear();
        const auto add_piece = [&](const NodePointer& node) {
            PlannedPiece& piece = plan.pieces.emplace_back();
            piece.box = node->piece.box;
            planned_ways_.emplace_back(nullptr, nullptr);
            return static_cast<std::uint32_t>(plan.pieces.size() - 1);
        };
        std::vector<std::pair<NodePointer, std::uint32_t>> waiting;
        for (const NodePointer& root : roots_) {
            plan.roots.push_back(add_piece(root));
            waiting.emplace_back(root, plan.roots.back());
        }
        while (!waiting.empty()) {
            const NodePointer node = waiting.back().first;
            const std::uint32_t number = waiting.back().second;
            waiting.pop_back();
            const auto choice = std::find_if(best.choices.begin(), best.choices.end(),
                                             [&](const Choice& c) { return c.node == node; });
            if (choice == best.choices.end()) continue;
            Way& way = node->ways[choice->way];
            for (const NodePointer& child : way.children) {
                const std::uint32_t place = add_piece(child);
                plan.pieces[number].children.push_back(place);
                waiting.emplace_back(child, place);
            }
            plan.pieces[number].is_divided = true;
            plan.pieces[number].place = way.place;
            planned_ways_[number] = {node.get(), &way};
        }
        for (std::uint32_t i = 0; i < plan.pieces.size(); ++i) {
            if (plan.pieces[i].is_divided) set_leeway(plan, i);
        }
        return plan;
    }

    // As far as the parts beside the place stay small enough.
    void set_leeway(DivisionPlan& plan, std::uint32_t number) const {
        PlannedPiece& piece = plan.pieces[number];
        const std::size_t axis = piece.place.axis;
        const double offset = piece.place.offset;
        piece.low = offset - kLeeway * grid_.edge[axis];
        piece.high = offset + kLeeway * grid_.edge[axis];
        std::vector<std::uint32_t> waiting = piece.children;
        while (!waiting.empty()) {
            const PlannedPiece& part = plan.pieces[waiting.back()];
            waiting.pop_back();
            if (part.is_divided) {
                waiting.insert(waiting.end(), part.children.begin(), part.children.end());
                continue;
            }
            const double room = room_along(part.box, axis);
            if (along(part.box.high, axis) == offset) {
                piece.high = std::min(piece.high, along(part.box.low, axis) + room);
            }
            if (along(part.box.low, axis) == offset) {
                piece.low = std::max(piece.low, along(part.box.high, axis) - room);
            }
        }
        piece.low = std::min(piece.low, offset);
        piece.high = std::max(piece.high, offset);
    }

    // How long a part may be along an axis, as it lies.
    double room_along(const Box3d& box, std::size_t axis) const {
        double room = along(box.extent(), axis);
        for (const Limits& limits : size_.limits()) {
            Vec3d extent = box.extent();
            const double longer = std::min(planned(limits[axis]), 1e30);
            extent = extent - along_axis(axis, along(extent, axis)) + along_axis(axis, longer);
            if (size_.fits(extent)) room = std::max(room, longer);
        }
        return room;
    }

    CellGrid grid_;
    const PartSize& size_;
    std::size_t& effort_;
    std::vector<NodePointer> roots_;
    State start_;
    SectionScale scale_;
    std::size_t volume_ = 0;             // cells
    std::size_t expected_at_first_ = 1;  // parts
    // By piece of the last plan; null: it is not divided.
    std::vector<std::pair<Node*, const Way*>> planned_ways_;
    std::vector<std::vector<std::pair<Node*, const Way*>>> made_;  // those of all plans
};

DivisionSearch::DivisionSearch(SolidModel solid, const PartSize& size, std::size_t& effort)
    : search_(std::make_unique<PlanSearch>(std::move(solid), size, effort)) {}

DivisionSearch::~DivisionSearch() = default;

DivisionPlan DivisionSearch::plan() {
    return search_->plan();
}

void DivisionSearch::correct(std::uint32_t piece, std::size_t more_parts, std::size_t crumbs) {
    search_->correct(piece, more_parts, crumbs);
}

}  // namespace povmesh
