// A beam breaks where its bending moment is greatest for its section modulus. Planes across each
// axis cut the model into sections; the modulus of each, divided by the moment of what hangs on it,
// is its strength, and a weak place is a minimum of it along the limb.
#include "analysis/sections.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <tuple>
#include <utility>

#include "analysis/plane_section.h"
#include "analysis/section_sweep.h"
#include "base/parallel.h"
#include "mesh/bounds.h"
#include "mesh/volume.h"
#include "slice/slices.h"

namespace povmesh {
namespace {

constexpr std::uint32_t kNone = 0xFFFFFFFF;

// How far the ratio of modulus and load rises beyond the root of an arm.
constexpr double kRise = 1.5;

// How far the modulus rises on both sides of a waist. A neck of 5 % all around lowers it by 1.17,
// one that is cut into one side of a square bar by 1.08.
constexpr double kProminence = 1.06;

// Where a limb is turned less than this against the axis of the planes, a section across the axis
// is larger by less than a hundredth.
constexpr double kAlignedCosine = 0.99;
// Beyond, its sections across this axis are lengthwise, and those across another axis nearer.
constexpr double kLengthwiseCosine = 0.5;
// Layers to both sides of a section that tell where its limb leads, and how far the areas of two
// neighbours in a limb differ.
constexpr std::array kLimbLayers = {3, 12};
constexpr double kSameLimb = 1.5;
// A plane that leaves less of a section only cuts off a corner.
constexpr double kLeastTurnedArea = 0.1;
// So many sections that look like a shoulder of a waist, or like what a root stands on, are cut
// parallel to it before the search is given up.
constexpr int kMostParallels = 16;

// A section is not the least there when one across its length has less than this share of its area.
constexpr double kLeastThere = 0.8;
// What hangs on a section of material of this depth reaches as far beyond it.
constexpr double kLeastReach = 0.5;
// The least body that counts as a limb, of all of the model, and the least section, in squares of
// the distance of the planes: what is smaller, rims and slivers, is the grain of the planes.
constexpr double kLeastBody = 5e-3;
constexpr double kLeastArea = 0.5;

// The search for the least plane: its first tilt, as a tangent, how often it is halved, the cosine
// of the farthest, and how far the centre may shift, in widths of the section; farther it would
// only cut off a corner.
constexpr double kLargestTilt = 0.16;
constexpr int kTiltRounds = 4;
constexpr double kFarthestTilt = 0.9;
constexpr double kFarthestShift = 0.35;

// A turned section takes the place of the one across the axis when its area is less than this
// share, and its modulus no larger.
constexpr double kWorthTurning = 0.98;

// Material thinner than this share of the model's extent is rounding of its coordinates.
constexpr double kThinnest = 1e-6;

// Sections of one place: their normals are within 45 degrees, and their centres within this share
// of their width.
constexpr double kSameNormals = 0.7;
constexpr double kSamePlace = 0.5;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

std::vector<double> heights_of(const Box3d& box, std::size_t axis, double step) {
    const double low = along_axis(box.low, axis);
    const double extent = along_axis(box.high, axis) - low;
    step = std::max(step, extent / static_cast<double>(kMostSectionPlanes));
    std::vector<double> heights;
    for (std::size_t i = 0; i < kMostSectionPlanes; ++i) {
        const double above_low = (static_cast<double>(i) + 0.5) * step;
        if (!(above_low < extent)) break;
        heights.push_back(low + above_low);
    }
    return heights;
}

// Calls `body(p)` for every part, few of them in a block: most cut the model. Each may write only
// what belongs to its own part.
template <typename Body>
void for_parts(std::size_t count, const Body& body) {
    constexpr std::size_t kParts = 16;
    for_blocks((count + kParts - 1) / kParts, [&](std::size_t block) {
        const std::size_t end = std::min(count, (block + 1) * kParts);
        for (std::size_t p = block * kParts; p < end; ++p) body(static_cast<std::uint32_t>(p));
    });
}

// The sections across one axis with what they bear.
class AxisSections {
public:
    AxisSections(const TriMesh& mesh, std::size_t axis, const std::vector<double>& heights,
                 double thinnest, const PlaneCutter* cutter)
        : axis_(axis),
          slicer_(mesh, axis, heights),
          sweep_(sweep_sections(mesh, axis, slicer_)),
          cutter_(cutter),
          step_(heights.size() > 1 ? heights[1] - heights[0] : 0) {
        loads_ = joint_loads(sweep_.graph);
        const std::vector<JointLoad>& loads = loads_;
        const std::size_t count = sweep_.parts.size();
        modulus_.assign(count, 0);
        towards_below_.resize(count);
        towards_above_.resize(count);
        strength_.resize(count);
        load_.resize(count);
        strongest_below_.assign(sweep_.graph.pieces.size(), kNone);
        strongest_above_.assign(sweep_.graph.pieces.size(), kNone);
        for (std::uint32_t p = 0; p < count; ++p) {
            const SectionShape& shape = sweep_.parts[p].shape;
            // A strip of thickness t has the smallest moment t * t * area / 12.
            if (12 * shape.smallest_moment > thinnest * thinnest * shape.area) {
                modulus_[p] = shape.modulus;
            }
            const double below = loads[p].load_of(loads[p].below);
            const double above = loads[p].load_of(loads[p].above);
            load_[p] = loads[p].below.volume < loads[p].above.volume ? below : above;
            strength_[p] = ratio(modulus_[p], load_[p]);
            keep_stronger(strongest_below_[sweep_.graph.joints[p].above], p);
            keep_stronger(strongest_above_[sweep_.graph.joints[p].below], p);
        }
        turn_to_limbs();
        for (std::uint32_t p = 0; p < count; ++p) {
            towards_below_[p] = ratio(limb_modulus_[p], loads[p].load_of(loads[p].below));
            towards_above_[p] = ratio(limb_modulus_[p], loads[p].load_of(loads[p].above));
        }
    }

    // Which sections are to be returned, by part.
    std::vector<std::uint8_t> material() const {
        std::vector<std::uint8_t> is_chosen(modulus_.size());
        for (std::size_t p = 0; p < is_chosen.size(); ++p) is_chosen[p] = modulus_[p] > 0 ? 1 : 0;
        return is_chosen;
    }
    std::vector<std::uint8_t> weak_places() const {
        std::vector<std::uint8_t> is_chosen = roots();
        add_waists(is_chosen);
        for_parts(is_chosen.size(), [&](std::uint32_t p) {
            if (is_chosen[p] != 0 && !is_limb(p)) is_chosen[p] = 0;
        });
        return is_chosen;
    }

    // Gives the section of part p the plane in which it is least, if that is worth it.
    void turn_to_least(std::uint32_t p, WeakSection& section) const {
        const double most = kWorthTurning * area(p);
        PlaneSection best = least_plane(p);
        if (!(best.shape.area < most) || !(best.shape.modulus > 0)) return;
        if (best.shape.modulus > modulus_[p]) return;
        section.polygon = std::move(best.polygon);
        section.holes = std::move(best.holes);
        section.normal = best.normal;
        section.centre = best.centre;
        section.position = dot(best.normal, best.centre);
        const bool is_shifted = best.normal == at_height({0, 0}, 1, axis_);  // and not turned
        section.axis = is_shifted ? axis_ : kTurnedSection;
        section.area = best.shape.area;
        section.modulus = best.shape.modulus;
        section.strength = ratio(section.modulus, section.load);
    }

    void append(const std::vector<std::uint8_t>& is_chosen, SectionPlanes planes,
                std::vector<WeakSection>& sections) const {
        SliceLoops loops;
        SliceParts parts;
        std::uint32_t layer = kNone;
        const std::size_t first = sections.size();
        std::vector<std::uint32_t> chosen;
        for (std::uint32_t p = 0; p < is_chosen.size(); ++p) {
            if (is_chosen[p] == 0) continue;
            chosen.push_back(p);
            const SectionPart& part = sweep_.parts[p];
            if (part.layer != layer) {
                layer = part.layer;
                slicer_.slice(layer, loops);
                parts = find_slice_parts(loops);
            }
            WeakSection& section = sections.emplace_back();
            const auto part_loops = parts[part.number];
            section.polygon = lifted(loops[part_loops.front()], layer);
            for (const std::uint32_t hole : part_loops.subspan(1)) {
                section.holes.push_back(lifted(loops[hole], layer));
            }
            section.normal = at_height({0, 0}, 1, axis_);
            section.centre = centre(p);
            section.position = slicer_.height(layer);
            section.axis = axis_;
            section.area = part.shape.area;
            section.modulus = modulus_[p];
            section.load = load_[p];
            section.strength = strength_[p];
        }
        if (planes != SectionPlanes::Turned || cutter_ == nullptr) return;
        for_blocks(chosen.size(),
                   [&](std::size_t i) { turn_to_least(chosen[i], sections[first + i]); });
    }

private:
    enum class Way { Up, Down };

    const Vec3d& centre(std::uint32_t p) const { return sweep_.graph.joints[p].centre; }
    double area(std::uint32_t p) const { return sweep_.parts[p].shape.area; }

    // The weakest sections of what rises to a root, seen from both ends.
    std::vector<std::uint8_t> roots() const {
        const std::vector<std::uint8_t> from_below = necks(towards_below_, Way::Up);
        std::vector<std::uint8_t> from_above = necks(towards_above_, Way::Down);
        std::vector<std::uint8_t> is_chosen(modulus_.size(), 0);
        // A neck's minimum as seen from below lies at its upper end, the other one at its lower
        // end.
        for (std::uint32_t p = 0; p < from_below.size(); ++p) {
            if (from_below[p] == 0) continue;
            std::uint32_t weakest = p;
            std::uint32_t here = p;
            while (from_above[here] == 0) {
                const std::uint32_t next = neighbour(here, Way::Down);
                if (next == kNone || limb_modulus_[next] >= kRise * limb_modulus_[p]) break;
                here = next;
                if (strength_[here] < strength_[weakest]) weakest = here;
            }
            const bool is_seen_twice = from_above[here] != 0;
            if (is_seen_twice) from_above[here] = 0;
            is_chosen[is_seen_twice ? weakest : p] = 1;
        }
        for (std::size_t p = 0; p < from_above.size(); ++p) is_chosen[p] |= from_above[p];
        return is_chosen;
    }

    static double ratio(double modulus, double load) {
        return load > 0 ? modulus / load : kInfinity;
    }
    void keep_stronger(std::uint32_t& best, std::uint32_t part) const {
        if (best == kNone || modulus_[part] > modulus_[best]) best = part;
    }

    // The next section of the same limb; beyond a fork that of the strongest limb. In models whose
    // faces contradict one another a piece may lie on both sides of a plane; the limb ends there.
    std::uint32_t neighbour(std::uint32_t part, Way way) const {
        const SectionGraph::Joint& joint = sweep_.graph.joints[part];
        const bool is_up = way == Way::Up;
        const std::uint32_t next =
            is_up ? strongest_above_[joint.above] : strongest_below_[joint.below];
        if (next == kNone) return kNone;
        const std::uint32_t layer = sweep_.graph.joints[next].layer;
        return (is_up ? layer > joint.layer : layer < joint.layer) ? next : kNone;
    }

    // True when the ratio rises well above that of the part before it falls below.
    bool rises(const std::vector<double>& ratios, std::uint32_t part, Way way, bool at_end) const {
        const bool is_strict = way == Way::Up;  // of equal ones the lowest is the minimum
        int parallels = 0;
        for (std::uint32_t here = neighbour(part, way); here != kNone;
             here = neighbour(here, way)) {
            if (ratios[here] >= kRise * ratios[part]) {
                const double share = modulus_across(here, limb_[part]) / limb_modulus_[here];
                if (share * ratios[here] >= kRise * ratios[part]) return true;
                if (++parallels == kMostParallels) return false;
                continue;
            }
            if (is_strict ? ratios[here] < ratios[part] : ratios[here] <= ratios[part]) {
                return false;
            }
        }
        return at_end;
    }

    // Where the ratio has a minimum on the way towards ever more load. Towards the end where it
    // comes from the load vanishes, and so the ratio rises there anyhow.
    std::vector<std::uint8_t> necks(const std::vector<double>& ratios, Way way) const {
        const Way back = way == Way::Up ? Way::Down : Way::Up;
        std::vector<std::uint8_t> is_neck(ratios.size());
        for_parts(is_neck.size(), [&](std::uint32_t p) {
            const bool is_material = modulus_[p] > 0 && ratios[p] < kInfinity;
            is_neck[p] =
                is_material && rises(ratios, p, way, false) && rises(ratios, p, back, true) ? 1 : 0;
        });
        return is_neck;
    }

    // Where the limb leads, from the centres of the sections beside this one, so many layers away.
    Vec3d limb_direction(std::uint32_t p, int layers) const {
        const auto last = [&](Way way) {
            std::uint32_t here = p;
            for (int i = 0; i < layers; ++i) {
                const std::uint32_t next = neighbour(here, way);
                // Those of another limb, beyond a fork, differ in size.
                if (next == kNone || area(next) > kSameLimb * area(here) ||
                    kSameLimb * area(next) < area(here)) {
                    break;
                }
                here = next;
            }
            return here;
        };
        const Vec3d along = centre(last(Way::Up)) - centre(last(Way::Down));
        const double size = length(along);
        return size > 0 ? along / size : at_height({0, 0}, 1, axis_);
    }

    // The modulus of each section, or of the one that is turned to its limb where that is less.
    // Near a deep neck that is cut obliquely the centres wander to both sides, so that a longer
    // stretch tells more; in a bent limb a shorter one does.
    void turn_to_limbs() {
        limb_modulus_ = modulus_;
        limb_.assign(modulus_.size(), at_height({0, 0}, 1, axis_));
        is_lengthwise_.assign(modulus_.size(), 0);
        if (cutter_ == nullptr) return;
        for_parts(limb_.size(), [&](std::uint32_t p) {
            if (modulus_[p] <= 0) return;
            PlaneSection turned;
            is_lengthwise_[p] = 1;
            for (const int layers : kLimbLayers) {
                const Vec3d direction = limb_direction(p, layers);
                const double cosine = along_axis(direction, axis_);
                if (cosine < kLengthwiseCosine) continue;
                is_lengthwise_[p] = 0;
                if (cosine > kAlignedCosine) continue;
                if (!cutter_->cut(centre(p), direction, turned)) continue;
                const double width = std::sqrt(area(p));
                if (turned.shape.area < kLeastTurnedArea * area(p) ||
                    length(turned.centre - centre(p)) > kFarthestShift * width + step_ ||
                    turned.shape.area > area(p) || !(turned.shape.modulus < limb_modulus_[p])) {
                    continue;
                }
                limb_modulus_[p] = turned.shape.modulus;
                limb_[p] = direction;
            }
        });
    }

    // The modulus of a section, or of the one in its place across the limb of another one: where a
    // limb is straight and only the sections along it are more or less oblique, that one tells.
    double modulus_across(std::uint32_t p, Vec3d limb) const {
        PlaneSection across;
        const bool is_along_axis = along_axis(limb, axis_) > kAlignedCosine;
        if (cutter_ == nullptr || (is_along_axis && is_lengthwise_[p] == 0)) {
            return limb_modulus_[p];
        }
        if (!cutter_->cut(centre(p), limb, across)) return 0;
        return std::min(limb_modulus_[p], across.shape.modulus);
    }

    // True when the limb grows well beyond a waist before it shrinks below it. A section that is
    // larger only because it is more oblique is no shoulder.
    bool has_shoulder(std::uint32_t waist, Way way) const {
        const bool is_strict = way == Way::Up;  // of equal ones the lowest is the minimum
        const double modulus = limb_modulus_[waist];
        std::uint32_t here = neighbour(waist, way);
        for (int parallels = 0; parallels < kMostParallels && here != kNone;
             here = neighbour(here, way)) {
            const double other = limb_modulus_[here];
            if (is_strict ? other < modulus : other <= modulus) return false;
            if (other < kProminence * modulus) continue;
            if (modulus_across(here, limb_[waist]) >= kProminence * modulus) return true;
            ++parallels;
        }
        return false;
    }

    std::vector<std::uint8_t> waists() const {
        std::vector<std::uint8_t> is_waist(modulus_.size());
        for_parts(is_waist.size(), [&](std::uint32_t p) {
            const bool is_loaded = modulus_[p] > 0 && strength_[p] < kInfinity;
            is_waist[p] =
                is_loaded && has_shoulder(p, Way::Up) && has_shoulder(p, Way::Down) ? 1 : 0;
        });
        return is_waist;
    }

    // Where the modulus has a minimum between two shoulders, the weakest section for its load of
    // those that are hardly larger counts. What else was chosen between the shoulders goes.
    void add_waists(std::vector<std::uint8_t>& is_chosen) const {
        const std::vector<std::uint8_t> is_waist = waists();
        for (std::uint32_t p = 0; p < is_chosen.size(); ++p) {
            if (is_waist[p] == 0) continue;
            std::uint32_t weakest = p;
            std::vector<std::uint32_t> between = {p};
            for (const Way way : {Way::Up, Way::Down}) {
                for (std::uint32_t here = neighbour(p, way);
                     here != kNone && limb_modulus_[here] < kProminence * limb_modulus_[p];
                     here = neighbour(here, way)) {
                    between.push_back(here);
                    if (limb_strength(here) < limb_strength(weakest)) weakest = here;
                }
            }
            for (const std::uint32_t other : between) is_chosen[other] = 0;
            is_chosen[weakest] = 1;
        }
    }

    double limb_strength(std::uint32_t p) const { return ratio(limb_modulus_[p], load_[p]); }

    // False for slivers, rims and sections along a limb.
    bool is_limb(std::uint32_t p) const {
        if (is_lengthwise_[p] != 0) return false;
        const SectionShape& shape = sweep_.parts[p].shape;
        if (shape.area < kLeastArea * step_ * step_) return false;
        const JointLoad& load = loads_[p];
        const Mass& body = load.below.volume < load.above.volume ? load.below : load.above;
        const double all = load.below.volume + load.above.volume;
        if (body.volume < kLeastBody * all) return false;
        const double depth = std::sqrt(12 * shape.smallest_moment / shape.area);
        if (load_[p] < kLeastReach * depth * load.share * body.volume) return false;
        return is_least_there(p);
    }

    // Compares with the section across the length of this one.
    bool is_least_there(std::uint32_t p) const {
        if (cutter_ == nullptr) return true;
        PlaneSection own;
        PlaneSection other;
        if (!cutter_->cut(centre(p), limb_[p], own) || !own.holes.empty()) return true;
        return !cutter_->cut(own.centre, own.longest, other) || !other.holes.empty() ||
               other.shape.area >= kLeastThere * own.shape.area;
    }

    // A search by ever smaller tilts and shifts for the least area near a section. The modulus
    // would not do: it falls as soon as a tilted plane takes in a little of what is beside a notch,
    // far from the middle.
    PlaneSection least_plane(std::uint32_t p) const {
        PlaneSection best;
        if (!cutter_->cut(centre(p), limb_[p], best)) return {};
        const Vec3d start = best.centre;
        const double reach = kFarthestShift * std::sqrt(best.shape.area) + step_;
        const double least_area = best.shape.area / 2;
        const Vec3d axis = at_height({0, 0}, 1, axis_);
        PlaneSection next;
        double tilt = kLargestTilt;
        for (int round = 0; round < kTiltRounds; ++round, tilt /= 2) {
            const double shift = step_ * tilt / kLargestTilt;
            for (bool is_better = true; is_better;) {
                is_better = false;
                const Vec3d u = best.longest;
                const Vec3d v = cross(best.normal, u);
                struct Move {
                    Vec3d tilt;
                    double shift;
                };
                const Vec3d none;
                for (const Move& move :
                     {Move{u * tilt, 0}, Move{u * -tilt, 0}, Move{v * tilt, 0}, Move{v * -tilt, 0},
                      Move{none, shift}, Move{none, -shift}}) {
                    Vec3d normal = best.normal + move.tilt;
                    normal = normal / length(normal);
                    if (dot(normal, axis) < kLengthwiseCosine ||
                        dot(normal, limb_[p]) < kFarthestTilt) {
                        continue;
                    }
                    if (!cutter_->cut(best.centre + best.normal * move.shift, normal, next))
                        continue;
                    if (!(next.shape.modulus > 0) || next.shape.area < least_area) continue;
                    if (length(next.centre - start) > reach) continue;
                    if (next.shape.area >= 0.999 * best.shape.area) continue;
                    best = next;
                    is_better = true;
                    break;
                }
            }
        }
        return best;
    }

    std::vector<Vec3d> lifted(std::span<const Point2d> loop, std::uint32_t layer) const {
        std::vector<Vec3d> points;
        points.reserve(loop.size());
        for (const Point2d q : loop) points.push_back(at_height(q, slicer_.height(layer), axis_));
        return points;
    }

    std::size_t axis_;
    Slicer slicer_;
    SectionSweep sweep_;
    const PlaneCutter* cutter_;  // null: sections across the axis alone
    double step_;
    std::vector<JointLoad> loads_;
    std::vector<double> modulus_;  // by part, like all that follows; 0 without material
    std::vector<double> limb_modulus_;
    std::vector<std::uint8_t> is_lengthwise_;  // the limb leads along the planes
    std::vector<Vec3d> limb_;  // where it leads; the axis unless its own section is the smaller one
    std::vector<double> load_;
    std::vector<double> strength_;
    std::vector<double> towards_below_;  // modulus per load of what hangs on the section below it
    std::vector<double> towards_above_;
    std::vector<std::uint32_t> strongest_below_;  // by piece: the strongest part that it stands on
    std::vector<std::uint32_t> strongest_above_;  // the strongest one that stands on it
};

// The same place seen across several axes, or as a waist and a root: the weakest, which comes
// first, stays.
void leave_out_repeated(std::vector<WeakSection>& sections) {
    std::vector<WeakSection> kept;
    for (WeakSection& section : sections) {
        const auto is_same = [&](const WeakSection& other) {
            return std::abs(dot(section.normal, other.normal)) > kSameNormals &&
                   length(section.centre - other.centre) <
                       kSamePlace * std::sqrt(std::min(section.area, other.area));
        };
        if (std::none_of(kept.begin(), kept.end(), is_same)) kept.push_back(std::move(section));
    }
    sections = std::move(kept);
}

}  // namespace

std::vector<WeakSection> analyse_sections(const TriMesh& mesh, double step, SectionMode mode,
                                          RunContext& run, SectionPlanes planes) {
    run.log.start("sectional analysis");
    std::vector<WeakSection> sections;
    const Box3f bounds = finite_bounds(mesh);
    if (!bounds.is_empty() && step > 0) {
        const Box3d box{to_double(bounds.low), to_double(bounds.high)};
        const Vec3d extent = box.extent();
        const double thinnest = kThinnest * std::max({extent.x, extent.y, extent.z});
        TriMesh turned;
        if (signed_volume(mesh) < 0) {
            turned.vertices = mesh.vertices;
            turned.faces = mesh.faces;
            for (Face& face : turned.faces) reverse_winding(face);
        }
        const TriMesh& outward = turned.faces.empty() ? mesh : turned;
        std::optional<PlaneCutter> cutter;
        if (mode == SectionMode::LocalMinima) cutter.emplace(outward);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const AxisSections across(outward, axis, heights_of(box, axis, step), thinnest,
                                      cutter ? &*cutter : nullptr);
            across.append(mode == SectionMode::All ? across.material() : across.weak_places(),
                          planes, sections);
        }
    }
    rank_sections(sections);
    if (mode == SectionMode::LocalMinima) {
        leave_out_repeated(sections);
        rank_sections(sections);
    }
    run.log.append("\nsection num : " + std::to_string(sections.size()));
    return sections;
}

void rank_sections(std::vector<WeakSection>& sections) {
    std::stable_sort(sections.begin(), sections.end(),
                     [](const WeakSection& a, const WeakSection& b) {
                         return std::tie(a.strength, a.axis, a.position) <
                                std::tie(b.strength, b.axis, b.position);
                     });
    for (WeakSection& section : sections) {
        const double share =
            section.strength < kInfinity ? sections.front().strength / section.strength : 0.0;
        section.score = static_cast<float>(100 * share);
    }
}

}  // namespace povmesh
