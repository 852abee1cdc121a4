#include "decompose/mesh_division.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <optional>
#include <utility>

#include "base/convert.h"
#include "base/heap.h"
#include "base/poll.h"
#include "mesh/bounds.h"
#include "mesh/volume.h"

namespace povmesh {
namespace {

// A vertex counts as lying on a cut when it is nearer than this share of the smallest size.
constexpr double kOnLevel = 1e-5;

// Of the mean part; what is smaller is a crumb.
constexpr double kCrumb = 0.01;

// More slabs than this are not divided off one after the other, each of them cutting all that is
// left, but in halves.
constexpr std::size_t kManySlabs = 64;

// A shell has to be told apart from all others, which takes as long as to cut so many faces.
constexpr std::size_t kFacesAShell = 20;

// Where else to try when a cut makes crumbs: shares of the way from its place to the lowest or the
// highest that there may be.
constexpr std::array<double, 4> kNextTo = {-0.4, 0.4, -1, 1};
constexpr double kLeastMove = 1e-3;  // of the largest extent of the piece

// Pieces of a smaller share of the model leave no gaps worth the time.
constexpr std::size_t kLargeShare = 4;

std::size_t least_large_piece(const TriMesh& model) {
    return std::max(kLargePiece, model.faces.size() / kLargeShare);
}

double largest(const Box3d& box) {
    const Vec3d extent = box.extent();
    return std::max({extent.x, extent.y, extent.z});
}

// Of the faces that lie in the plane, as near as vertices may, and look along its axis.
double area_on(const TriMesh& mesh, const DividingPlane& plane, double on_level) {
    const auto offset = static_cast<double>(plane.offset);
    const double reach = on_level + 1e-6 * std::abs(offset);
    const auto is_near = [&](const Vertex& v) {
        return std::abs(along(to_double(v.position()), plane.axis) - offset) <= reach;
    };
    if (std::count_if(mesh.vertices.begin(), mesh.vertices.end(), is_near) < 3) return 0;
    double twice = 0;
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        std::array<Vec3d, 3> p;
        std::size_t on = 0;
        while (on < 3) {
            p[on] = to_double(mesh.corner_position(face, on));
            if (!(std::abs(along(p[on], plane.axis) - offset) <= reach)) break;
            ++on;
        }
        if (on == 3) twice += std::max(along(cross(p[1] - p[0], p[2] - p[0]), plane.axis), 0.0);
    }
    return twice / 2;
}

CutOptions options_for(const DividingPlane& plane, const PartSize& size) {
    CutOptions options;
    options.operation = CutOperation::CutAndCap;
    options.keep_cavities = true;
    options.on_level = kOnLevel * size.smallest();
    options.plane.normal = along_axis(plane.axis, 1);
    options.plane.direction = plane.axis == 0 ? Vec3d{0, 1, 0} : Vec3d{1, 0, 0};
    options.plane.point = along_axis(plane.axis, static_cast<double>(plane.offset));
    return options;
}

// A little more than nothing for boxes without thickness.
double common_volume(const Box3d& a, const Box3d& b) {
    double volume = 1;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const double low = std::max(along(a.low, axis), along(b.low, axis));
        const double high = std::min(along(a.high, axis), along(b.high, axis));
        const double size = along(a.high, axis) - along(a.low, axis);
        volume *= std::max(high - low + 1e-3 * size, 0.0);
    }
    return volume;
}

// Divides a model piece by piece, each by one plane and then its pieces in their order, so that the
// list of planes alone tells the parts.
class Walk {
public:
    Walk(TriMesh& model, const DivisionOrder& order)
        : model_(model), order_(order), size_(order.size) {}
    Walk(TriMesh& model, const DivisionOrder& order, std::optional<EdgeMates> mates)
        : model_(model), order_(order), size_(order.size), mates_(std::move(mates)) {}

    Division take() { return std::move(division_); }

protected:
    struct CutPieces {
        std::vector<TriMesh> meshes;
        double area = 0;
    };

    // Returns false when the plane does not divide the piece, which stays as it is.
    bool cut(TriMesh& piece, const Box3d& box, const DividingPlane& plane, CutPieces& made) {
        CutCounts counts;
        const bool is_cut = make_cut(piece, box, plane, made, counts);
        const std::size_t shells = counts.shells - std::min<std::size_t>(counts.shells, 1);
        division_.shells_cut += shells;
        if (order_.effort != nullptr) {
            const std::size_t effort = piece.faces.size() + kFacesAShell * shells;
            *order_.effort -= std::min(*order_.effort, effort);
        }
        return is_cut;
    }

    // A cut that was made before and counted then.
    void cut_again(TriMesh& piece, const Box3d& box, const DividingPlane& plane, CutPieces& made) {
        CutCounts counts;
        make_cut(piece, box, plane, made, counts);
    }

    // Enters a piece; its number.
    std::uint32_t enter(const Box3d& box) {
        division_.pieces.push_back({box, 0, false, {}, 0});
        return static_cast<std::uint32_t>(division_.pieces.size() - 1);
    }

    void keep_part(TriMesh& piece, std::uint32_t number) {
        division_.pieces[number].volume = signed_volume(piece);
        if (order_.keeps_meshes) {
            division_.meshes.push_back(std::move(piece));
        } else {
            let_go(piece);
        }
        leave(number);
        if (++division_.parts > order_.most_parts) division_.is_whole = false;
    }

    void note_cut(TriMesh& piece, std::uint32_t number, const DividingPlane& plane, double area) {
        division_.pieces[number].is_divided = true;
        division_.pieces[number].plane = plane;
        division_.cut_area += area;
        let_go(piece);
    }

    // What is divided, or measured, need not be there while others are.
    void let_go(TriMesh& piece) const {
        const bool is_large = piece.faces.size() >= large_;
        if (&piece != &model_ || order_.keeps_meshes) piece = {};
        if (is_large && !order_.keeps_meshes) give_back_freed_memory();
    }

    void leave(std::uint32_t number) {
        division_.pieces[number].end = static_cast<std::uint32_t>(division_.pieces.size());
    }

    bool is_given_up() const { return !division_.is_whole; }

    TriMesh& model_;
    const DivisionOrder& order_;
    const PartSize& size_;
    Division division_;

private:
    bool make_cut(TriMesh& piece, const Box3d& box, const DividingPlane& plane, CutPieces& made,
                  CutCounts& counts) {
        const CutOptions options = options_for(plane, size_);
        made = {};
        if (!cut_from_model(piece, options, made.meshes, counts,
                            std::exchange(mates_, std::nullopt))) {
            return false;
        }
        const double on_level = std::min(options.on_level, kOnLevel * largest(box));
        for (const TriMesh& mesh : made.meshes) made.area += area_on(mesh, plane, on_level);
        made.area = std::max(made.area - area_on(piece, plane, on_level), 0.0);
        return true;
    }

    std::optional<EdgeMates> mates_;  // of the model, for the first cut
    std::size_t large_ = least_large_piece(model_);
};

class EvenWalk : public Walk {
public:
    EvenWalk(TriMesh& model, const std::vector<DividingPlane>& planes, const DivisionOrder& order,
             std::optional<EdgeMates> mates, std::vector<bool>* used)
        : Walk(model, order, std::move(mates)), planes_(planes), used_(used) {}

    // Not by recursion: thousands of slabs are divided off one after the other.
    void run() {
        std::vector<Task> waiting;
        waiting.push_back({{}, box_of(model_), across_axis(0), kNew});
        while (!waiting.empty() && !is_given_up()) {
            Task task = std::move(waiting.back());
            waiting.pop_back();
            if (task.number != kNew) {
                leave(task.number);
                continue;
            }
            const bool is_model = division_.pieces.empty();
            divide(is_model ? model_ : task.piece, task.box, task.planes, waiting);
        }
    }

private:
    static constexpr std::uint32_t kNew = 0xFFFFFFFF;

    // Planes across one axis, and where those across the next one begin.
    struct Range {
        std::size_t first, last, next;
    };

    // A piece to be divided with planes across an axis, and then with all across those that follow;
    // or one all of whose parts are made.
    struct Task {
        TriMesh piece;
        Box3d box;
        Range planes;
        std::uint32_t number;
    };

    Range across_axis(std::size_t first) const {
        std::size_t end = first;
        while (end < planes_.size() && planes_[end].axis == planes_[first].axis) ++end;
        return {first, end, end};
    }

    void divide(TriMesh& piece, const Box3d& box, Range range, std::vector<Task>& waiting) {
        const std::uint32_t number = enter(box);
        while (!size_.fits(box)) {
            const Range within = range_within(box, range);
            const std::size_t count = within.last - within.first;
            std::size_t next = within.first + (count > kManySlabs ? count / 2 : 0);
            for (; next < within.last; ++next) {
                CutPieces made;
                if (!cut(piece, box, planes_[next], made)) continue;
                note_cut(piece, number, planes_[next], made.area);
                if (used_ != nullptr) (*used_)[next] = true;
                add_pieces(made, {within.first, next, range.next},
                           {next + 1, range.last, range.next}, number, waiting);
                return;
            }
            if (range.next == planes_.size()) break;
            range = across_axis(range.next);
        }
        keep_part(piece, number);
    }

    void add_pieces(CutPieces& made, Range below, Range above, std::uint32_t number,
                    std::vector<Task>& waiting) const {
        const DividingPlane& plane = planes_[below.last];
        waiting.push_back({{}, {}, {}, number});
        for (std::size_t k = made.meshes.size(); k-- > 0;) {
            const Box3d box = box_of(made.meshes[k]);
            const double middle = (along(box.low, plane.axis) + along(box.high, plane.axis)) / 2;
            const bool is_below = middle < static_cast<double>(plane.offset);
            waiting.push_back({std::move(made.meshes[k]), box, is_below ? below : above, kNew});
        }
    }

    // Those that lie within a box.
    Range range_within(const Box3d& box, Range range) const {
        while (range.first < range.last && !is_within(planes_[range.first], box)) ++range.first;
        while (range.first < range.last && !is_within(planes_[range.last - 1], box)) --range.last;
        return range;
    }

    static bool is_within(const DividingPlane& plane, const Box3d& box) {
        const auto offset = static_cast<double>(plane.offset);
        return offset >= along(box.low, plane.axis) && offset <= along(box.high, plane.axis);
    }

    const std::vector<DividingPlane>& planes_;
    std::vector<bool>* used_;
};

class PlanWalk : public Walk {
public:
    PlanWalk(TriMesh& model, const DivisionPlan& plan, DivisionSearch& search,
             const DivisionOrder& order)
        : Walk(model, order),
          plan_(plan),
          search_(search),
          crumb_(kCrumb * std::abs(signed_volume(model)) /
                 static_cast<double>(std::max<std::size_t>(plan.parts, 1))) {}

    void run() { divide(model_, planned_piece(box_of(model_), plan_.roots, kUnplanned)); }

private:
    static constexpr std::uint32_t kUnplanned = 0xFFFFFFFF;

    // The planned piece that has most of a box.
    std::uint32_t planned_piece(const Box3d& box, const std::vector<std::uint32_t>& among,
                                std::uint32_t otherwise) const {
        double most = -1;
        for (const std::uint32_t i : among) {
            const double shared = common_volume(box, plan_.pieces[i].box);
            if (shared > most) {
                most = shared;
                otherwise = i;
            }
        }
        return otherwise;
    }

    // A piece by the plan, of which it is the one with a number. Returns how many parts it makes.
    std::size_t divide(TriMesh& piece, std::uint32_t planned) {
        if (is_given_up()) return 0;
        const Box3d box = box_of(piece);
        const std::uint32_t number = enter(box);
        const std::size_t parts_before = division_.parts;
        CutPieces made;
        DividingPlane plane;
        if (size_.fits(box) || !find_cut(piece, box, planned, plane, made)) {
            keep_part(piece, number);
            return 1;
        }
        note_cut(piece, number, plane, made.area);
        const bool is_planned = planned != kUnplanned && plan_.pieces[planned].is_divided;
        std::size_t surplus = 0;
        if (is_planned && made.meshes.size() > plan_.pieces[planned].children.size()) {
            surplus = made.meshes.size() - plan_.pieces[planned].children.size();
        }
        const std::size_t crumbs = crumbs_among(made.meshes);
        for (TriMesh& part : made.meshes) {
            const std::uint32_t next =
                planned == kUnplanned
                    ? kUnplanned
                    : planned_piece(box_of(part), plan_.pieces[planned].children, planned);
            const std::size_t parts = divide(part, next);
            if (next != kUnplanned && !plan_.pieces[next].is_divided && parts > 1) {
                surplus += parts - 1;
            }
        }
        leave(number);
        if (is_planned && (surplus != 0 || crumbs != 0)) search_.correct(planned, surplus, crumbs);
        return division_.parts - parts_before;
    }

    std::size_t crumbs_among(const std::vector<TriMesh>& pieces) const {
        return static_cast<std::size_t>(std::count_if(
            pieces.begin(), pieces.end(),
            [&](const TriMesh& piece) { return std::abs(signed_volume(piece)) < crumb_; }));
    }

    // The plan's next cut within the box, else the even ones, across the axis that is farthest too
    // long first.
    bool find_cut(TriMesh& piece, const Box3d& box, std::uint32_t planned, DividingPlane& plane,
                  CutPieces& made) {
        const std::uint32_t number = next_planned(box, planned);
        if (number != kUnplanned) {
            const CutPlace& place = plan_.pieces[number].place;
            plane = {static_cast<std::uint8_t>(place.axis), narrow_to_float(place.offset)};
            if (cut(piece, box, plane, made)) {
                avoid_crumbs(piece, box, plan_.pieces[number], plane, made);
                return true;
            }
        }
        const Vec3d extent = box.extent();
        const Limits& limits = size_.best_limits(extent);
        std::array<std::size_t, 3> axes = {2, 1, 0};
        std::stable_sort(axes.begin(), axes.end(), [&](std::size_t a, std::size_t b) {
            return along(extent, a) / limits[a] > along(extent, b) / limits[b];
        });
        for (const std::size_t axis : axes) {
            const std::int64_t slabs = slab_count(along(extent, axis), limits[axis]);
            if (slabs < 2) continue;
            const std::int64_t low_slabs = slabs / 2;
            const double share = static_cast<double>(low_slabs) / static_cast<double>(slabs);
            plane = {static_cast<std::uint8_t>(axis),
                     narrow_to_float(along(box.low, axis) + along(extent, axis) * share)};
            if (cut(piece, box, plane, made)) return true;
        }
        return false;
    }

    std::uint32_t next_planned(const Box3d& box, std::uint32_t number) const {
        if (number == kUnplanned || !plan_.pieces[number].is_divided) return kUnplanned;
        const PlannedPiece& piece = plan_.pieces[number];
        const double low = along(box.low, piece.place.axis);
        const double high = along(box.high, piece.place.axis);
        const double margin = 1e-3 * (high - low);
        if (piece.place.offset > low + margin && piece.place.offset < high - margin) return number;
        for (const std::uint32_t child : piece.children) {
            if (!(common_volume(box, plan_.pieces[child].box) > 0)) continue;
            const std::uint32_t found = next_planned(box, child);
            if (found != kUnplanned) return found;
        }
        return kUnplanned;
    }

    void avoid_crumbs(TriMesh& piece, const Box3d& box, const PlannedPiece& planned,
                      DividingPlane& plane, CutPieces& made) {
        const auto faults = [&](const CutPieces& of) {
            const std::size_t wanted = std::max(planned.children.size(), std::size_t{2});
            const std::size_t more = of.meshes.size() - std::min(of.meshes.size(), wanted);
            return more + crumbs_among(of.meshes);
        };
        std::size_t fewest = faults(made);
        bool is_made = true;  // what is in `made` is what the plane makes
        for (const double share : kNextTo) {
            if (fewest == 0 || order_.effort == nullptr || *order_.effort == 0) break;
            const double place = planned.place.offset;
            const double end = share < 0 ? planned.low : planned.high;
            const DividingPlane other = {plane.axis,
                                         narrow_to_float(place + (end - place) * std::abs(share))};
            if (std::abs(end - place) < kLeastMove * largest(box)) continue;
            is_made = false;
            if (!cut(piece, box, other, made)) continue;
            const std::size_t count = faults(made);
            if (count >= fewest) continue;
            fewest = count;
            plane = other;
            is_made = true;
        }
        // Again, as a copy kept for it would have taken as much memory as the piece.
        if (!is_made) cut_again(piece, box, plane, made);
    }

    const DivisionPlan& plan_;
    DivisionSearch& search_;
    double crumb_;
};

// Cuts as it was done before, with pegs.
class Repeater {
public:
    Repeater(const Division& division, const PartSize& divided_by, const PartSize& size,
             const ConnectorOptions& pegs, PegCounts& counts)
        : division_(division), divided_by_(divided_by), size_(size), pegs_(pegs), counts_(counts) {
        for (const DividedPiece& piece : division.pieces) extents_.push_back(piece.box.extent());
    }

    std::vector<TriMesh> parts;

    // Returns false when a cut makes other pieces than it did: pegs of the cuts before may be in
    // its way. There are no parts then.
    bool run(TriMesh model) {
        const std::size_t large = least_large_piece(model);
        std::vector<std::pair<TriMesh, std::uint32_t>> waiting;
        waiting.emplace_back(std::move(model), 0);
        while (!waiting.empty()) {
            auto [piece, number] = std::move(waiting.back());
            waiting.pop_back();
            const DividedPiece& record = division_.pieces[number];
            if (!record.is_divided) {
                parts.push_back(std::move(piece));
                continue;
            }
            std::vector<TriMesh> pieces = cut(piece, number);
            if (pieces.size() != children_of(number)) {
                parts.clear();
                return false;
            }
            const std::size_t first = waiting.size();
            std::uint32_t next = number + 1;
            for (TriMesh& part : pieces) {
                waiting.emplace_back(std::move(part), next);
                next = division_.pieces[next].end;
            }
            std::reverse(waiting.begin() + static_cast<std::ptrdiff_t>(first), waiting.end());
            if (piece.faces.size() < large) continue;
            piece = {};
            give_back_freed_memory();
        }
        return true;
    }

private:
    std::size_t children_of(std::uint32_t number) const {
        std::size_t count = 0;
        const std::uint32_t end = division_.pieces[number].end;
        for (std::uint32_t i = number + 1; i < end; i = division_.pieces[i].end) ++count;
        return count;
    }

    std::vector<TriMesh> cut(TriMesh& piece, std::uint32_t number) {
        const DividedPiece& record = division_.pieces[number];
        CutOptions options = options_for(record.plane, divided_by_);
        std::vector<TriMesh> pieces;
        if (pegs_.count != 0 && pegs_.radius > 0) {
            std::vector<LaterPlane> later;
            for (std::uint32_t i = number + 1; i < record.end; ++i) {
                const DividedPiece& below = division_.pieces[i];
                if (!below.is_divided) continue;
                later.push_back(
                    {along_axis(below.plane.axis, 1), static_cast<double>(below.plane.offset)});
            }
            options.connectors = pegs_;
            options.connectors.later = later;
            options.connectors.longest = room_for_pegs(number);
            CutCounts counts;
            const bool is_same = cut_from_model(piece, options, pieces, counts) &&
                                 pieces.size() == children_of(number);
            if (is_same) {
                counts_.pegs += counts.connectors;
                counts_.volume += counts.connector_volume;
                counts_.cuts_without += counts.connectors == 0 ? 1 : 0;
                if (counts.connectors != 0) lengthen(number, options.connectors.longest);
                return pieces;
            }
            ++counts_.cuts_without;
            options.connectors = {};
            pieces.clear();
        }
        CutCounts counts;
        cut_from_model(piece, options, pieces, counts);
        return pieces;
    }

    // Calls use(part) for the parts whose upper side lies on the cut of a piece.
    template <typename Use>
    void for_each_below(std::uint32_t number, Use use) const {
        const DividedPiece& record = division_.pieces[number];
        const std::size_t axis = record.plane.axis;
        const double near = 1e-4 * largest(record.box);
        for (std::uint32_t i = number + 1; i < record.end; ++i) {
            const DividedPiece& part = division_.pieces[i];
            const double top = along(part.box.high, axis);
            if (!part.is_divided && std::abs(top - static_cast<double>(record.plane.offset)) < near)
                use(i);
        }
    }

    // How long pegs may be for the parts that they stand on to fit; 0 when there is no room.
    double room_for_pegs(std::uint32_t number) const {
        const std::size_t axis = division_.pieces[number].plane.axis;
        for (const double share : {2.0, 1.75, 1.5, 1.25, 1.0}) {
            bool fits = true;
            for_each_below(number, [&](std::uint32_t part) {
                fits = fits && size_.fits(extents_[part] + along_axis(axis, share * pegs_.radius));
            });
            if (fits) return share * pegs_.radius;
        }
        return 0;
    }

    void lengthen(std::uint32_t number, double by) {
        const std::size_t axis = division_.pieces[number].plane.axis;
        for_each_below(number, [&](std::uint32_t part) {
            extents_[part] = extents_[part] + along_axis(axis, by);
        });
    }

    const Division& division_;
    const PartSize& divided_by_;  // its cuts must be the same again
    const PartSize& size_;        // that parts fit with their pegs
    const ConnectorOptions& pegs_;
    PegCounts& counts_;
    std::vector<Vec3d> extents_;  // by piece, with the pegs that stand on it
};

}  // namespace

Box3d box_of(const TriMesh& mesh) {
    const Box3f box = finite_bounds(mesh);
    return box.is_empty() ? Box3d{{0, 0, 0}, {0, 0, 0}}
                          : Box3d{to_double(box.low), to_double(box.high)};
}

std::vector<DividingPlane> even_planes(const Box3d& box, const PartSize& size) {
    std::vector<DividingPlane> planes;
    const Limits& limits = size.best_limits(box.extent());
    for (const std::size_t axis : {2U, 1U, 0U}) {
        const double low = along(box.low, axis);
        const double extent = along(box.high, axis) - low;
        const std::int64_t count = slab_count(extent, limits[axis]);
        for (std::int64_t i = 1; i < count; ++i) {
            const double share = static_cast<double>(i) / static_cast<double>(count);
            planes.push_back(
                {static_cast<std::uint8_t>(axis), narrow_to_float(low + extent * share)});
        }
    }
    return planes;
}

Division divide_evenly(TriMesh& model, const std::vector<DividingPlane>& planes,
                       const DivisionOrder& order, std::optional<EdgeMates> mates,
                       std::vector<bool>* used) {
    if (used != nullptr) used->assign(planes.size(), false);
    EvenWalk walk(model, planes, order, std::move(mates), used);
    walk.run();
    return walk.take();
}

Division divide_by_plan(TriMesh& model, const DivisionPlan& plan, DivisionSearch& search,
                        const DivisionOrder& order) {
    PlanWalk walk(model, plan, search, order);
    walk.run();
    return walk.take();
}

std::size_t crumb_count(const Division& division) {
    double sum = 0;
    for (const DividedPiece& piece : division.pieces) {
        if (!piece.is_divided) sum += std::abs(piece.volume);
    }
    const double crumb =
        kCrumb * sum / static_cast<double>(std::max<std::size_t>(division.parts, 1));
    return static_cast<std::size_t>(std::count_if(
        division.pieces.begin(), division.pieces.end(),
        [&](const DividedPiece& p) { return !p.is_divided && std::abs(p.volume) < crumb; }));
}

std::vector<TriMesh> repeat_division(TriMesh model, const Division& division,
                                     const PartSize& divided_by, const PartSize& size,
                                     const ConnectorOptions& pegs, PegCounts& counts) {
    if (pegs.count != 0 && pegs.radius > 0) {
        Repeater repeater(division, divided_by, size, pegs, counts);
        if (repeater.run(model)) return std::move(repeater.parts);
        counts = {};
        for (const DividedPiece& piece : division.pieces) {
            counts.cuts_without += piece.is_divided ? 1 : 0;
        }
    }
    const ConnectorOptions none;
    Repeater repeater(division, divided_by, size, none, counts);
    const bool is_same = repeater.run(std::move(model));
    assert(is_same);
    (void)is_same;
    return std::move(repeater.parts);
}

}  // namespace povmesh
