// A beam breaks where its bending moment is greatest for its section modulus. Planes across each
// axis cut the model into sections; the modulus of each, divided by the moment of what hangs on it,
// is its strength, and a weak place is a minimum of it along the limb.
#include "analysis/sections.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include "analysis/section_sweep.h"
#include "mesh/bounds.h"
#include "mesh/volume.h"
#include "slice/slices.h"

namespace povmesh {
namespace {

constexpr std::uint32_t kNone = 0xFFFFFFFF;

// How far the ratio of modulus and load rises around a weak place. A square section whose sides
// differ a little counts its outer fibre to the side, an exact square to the corner: that alone
// changes the ratio by 1.41.
constexpr double kRise = 1.5;

// Material thinner than this share of the model's extent is rounding of its coordinates.
constexpr double kThinnest = 1e-6;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

std::vector<double> heights_of(const Box3d& box, std::size_t axis, double step) {
    const double low = along_axis(box.low, axis);
    const double extent = along_axis(box.high, axis) - low;
    const double most = static_cast<double>(kMostSectionPlanes);
    step = std::max(step, extent / most);
    std::vector<double> heights;
    for (double i = 0; i < most; ++i) {
        const double above_low = (i + 0.5) * step;
        if (!(above_low < extent)) break;
        heights.push_back(low + above_low);
    }
    return heights;
}

// The sections across one axis with what they bear.
class AxisSections {
public:
    AxisSections(const TriMesh& mesh, std::size_t axis, const std::vector<double>& heights,
                 double thinnest)
        : axis_(axis), slicer_(mesh, axis, heights), sweep_(sweep_sections(mesh, axis, slicer_)) {
        const std::vector<JointLoad> loads = joint_loads(sweep_.graph);
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
                modulus_[p] = shape.modulus();
            }
            const double below = loads[p].load_of(loads[p].below);
            const double above = loads[p].load_of(loads[p].above);
            load_[p] = loads[p].below.volume < loads[p].above.volume ? below : above;
            towards_below_[p] = ratio(modulus_[p], below);
            towards_above_[p] = ratio(modulus_[p], above);
            strength_[p] = ratio(modulus_[p], load_[p]);
            keep_stronger(strongest_below_[sweep_.graph.joints[p].above], p);
            keep_stronger(strongest_above_[sweep_.graph.joints[p].below], p);
        }
    }

    // Which sections are to be returned, by part.
    std::vector<std::uint8_t> material() const {
        std::vector<std::uint8_t> is_chosen(modulus_.size());
        for (std::size_t p = 0; p < is_chosen.size(); ++p) is_chosen[p] = modulus_[p] > 0 ? 1 : 0;
        return is_chosen;
    }
    std::vector<std::uint8_t> weak_places() const {
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
                if (next == kNone || modulus_[next] >= kRise * modulus_[p]) break;
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

    void append(const std::vector<std::uint8_t>& is_chosen,
                std::vector<WeakSection>& sections) const {
        SliceLoops loops;
        SliceParts parts;
        std::uint32_t layer = kNone;
        for (std::size_t p = 0; p < is_chosen.size(); ++p) {
            if (is_chosen[p] == 0) continue;
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
            section.centre = sweep_.graph.joints[p].centre;
            section.position = slicer_.height(layer);
            section.axis = axis_;
            section.area = part.shape.area;
            section.modulus = modulus_[p];
            section.load = load_[p];
            section.strength = strength_[p];
        }
    }

private:
    enum class Way { Up, Down };

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
        for (std::uint32_t here = neighbour(part, way); here != kNone;
             here = neighbour(here, way)) {
            if (ratios[here] >= kRise * ratios[part]) return true;
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
        for (std::uint32_t p = 0; p < is_neck.size(); ++p) {
            const bool is_material = modulus_[p] > 0 && ratios[p] < kInfinity;
            is_neck[p] =
                is_material && rises(ratios, p, way, false) && rises(ratios, p, back, true) ? 1 : 0;
        }
        return is_neck;
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
    std::vector<double> modulus_;  // by part, like all that follows; 0 without material
    std::vector<double> load_;
    std::vector<double> strength_;
    std::vector<double> towards_below_;  // modulus per load of what hangs on the section below it
    std::vector<double> towards_above_;
    std::vector<std::uint32_t> strongest_below_;  // by piece: the strongest part that it stands on
    std::vector<std::uint32_t> strongest_above_;  // the strongest one that stands on it
};

}  // namespace

std::vector<WeakSection> analyse_sections(const TriMesh& mesh, double step, SectionMode mode,
                                          RunContext& run) {
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
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const AxisSections across(outward, axis, heights_of(box, axis, step), thinnest);
            across.append(mode == SectionMode::All ? across.material() : across.weak_places(),
                          sections);
        }
    }
    rank_sections(sections);
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
