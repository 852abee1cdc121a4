// The cost is a sum of terms without a unit, each weighted by what it means for a print:
//
// | term    | weight | is 1 for                                                             |
// |---------|--------|----------------------------------------------------------------------|
// | volume  | 1.0    | supports as large as the convex hull                                 |
// | scar    | 0.35   | supports that touch as much area as the hull has                     |
// | stand   | 0.12   | a model that stands on the edge of falling; 1.5 for one that falls    |
// | contact | 0.10   | a model that touches the plate in a point                            |
// | height  | 0.10   | a height of the hull's diameter                                      |
// | steps   | 0.04   | layers that show as stairs all over                                  |
// | turn    | 0.002  | the model upside down: of equals the one as it is                    |
#include "orient/direction_cost.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <vector>

#include "base/multiversion.h"
#include "spatial/convex_hull.h"

namespace povmesh {
namespace {

constexpr double kVolumeWeight = 1.0;
constexpr double kScarWeight = 0.35;
constexpr double kStandWeight = 0.12;
constexpr double kContactWeight = 0.10;
constexpr double kHeightWeight = 0.10;
constexpr double kStepWeight = 0.04;
constexpr double kTurnWeight = 0.002;

// A tilt from which on a model stands as firmly as one can ask, and the share of the hull's area on
// the plate from which on more does not help.
constexpr double kFirmTilt = 20 * std::numbers::pi / 180;
constexpr double kFirmContact = 0.02;
constexpr double kFallen = 0.5;

// std::sqrt keeps a loop from being vectorised, for the sake of errno: a first guess from the bits
// and two steps of Newton, right to 5e-6 of the root (C. Lomont, Fast inverse square root, 2003).
float quick_root(float v) {
    const float half = v * 0.5F;
    float inverse = std::bit_cast<float>(0x5f3759df - (std::bit_cast<std::int32_t>(v) >> 1));
    inverse *= 1.5F - half * inverse * inverse;
    inverse *= 1.5F - half * inverse * inverse;
    return v * inverse;
}

// A number where the other is not negative, else 0: without a branch, for the same reason.
float or_zero(float number, float unless_negative) {
    const std::int32_t mask = std::bit_cast<std::int32_t>(unless_negative) >> 31;
    return std::bit_cast<float>(std::bit_cast<std::int32_t>(number) & ~mask);
}

// Lanes are taken each for itself and then in order, here and below: the same bits however wide the
// machine's vectors are.
using Lanes = std::array<float, kTableLanes>;

struct Reach {
    double low, high;
};

POVMESH_MULTIVERSION void find_reach(const PointTable& table, Vec3f up, Lanes& low, Lanes& high) {
    const float* POVMESH_RESTRICT x = table.x.data();
    const float* POVMESH_RESTRICT y = table.y.data();
    const float* POVMESH_RESTRICT z = table.z.data();
    const std::size_t count = table.x.size();
    for (std::size_t begin = 0; begin < count; begin += kTableLanes) {
        for (std::size_t k = 0; k < kTableLanes; ++k) {
            const std::size_t i = begin + k;
            const float height = x[i] * up.x + y[i] * up.y + z[i] * up.z;
            low[k] = height < low[k] ? height : low[k];
            high[k] = height > high[k] ? height : high[k];
        }
    }
}

Vec3f to_float(Vec3d v) {
    return {static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
}

// Of the hull's corners along a direction.
Reach reach_of(const OrientModel& model, Vec3d up) {
    Lanes low;
    Lanes high;
    low.fill(std::numeric_limits<float>::infinity());
    high.fill(-std::numeric_limits<float>::infinity());
    find_reach(model.hull_table, to_float(up), low, high);
    return {static_cast<double>(*std::min_element(low.begin(), low.end())),
            static_cast<double>(*std::max_element(high.begin(), high.end()))};
}

struct Stance {
    double margin = 0;  // of the centre of mass to the border of what it stands on; below 0 outside
    double centre_height = 0;
};

// Of a place to the border of the polygon around feet; below 0 outside.
double margin_of(Point2d p, const std::vector<Point2d>& feet) {
    const Array<std::uint32_t> corners = convex_outline(feet);
    double least = std::numeric_limits<double>::infinity();
    bool is_inside = corners.size() > 2;
    for (std::size_t i = 0; i < corners.size(); ++i) {
        const Point2d a = feet[corners[i]];
        const Point2d b = feet[corners[i + 1 == corners.size() ? 0 : i + 1]];
        const double ux = b.x - a.x;
        const double uy = b.y - a.y;
        const double square = ux * ux + uy * uy;
        const double along =
            square > 0 ? std::clamp(((p.x - a.x) * ux + (p.y - a.y) * uy) / square, 0.0, 1.0) : 0;
        least = std::min(least, std::hypot(p.x - a.x - along * ux, p.y - a.y - along * uy));
        if (ux * (p.y - a.y) - uy * (p.x - a.x) < 0) is_inside = false;
    }
    return is_inside ? least : -least;
}

Stance stance_of(const OrientModel& model, Vec3d up, const Reach& reach) {
    const auto [right, back] = across(up);
    std::vector<Point2d> feet;
    for (const Vec3f point : model.hull_points) {
        const Vec3d p = to_double(point);
        if (dot(p, up) - reach.low <= model.slack) feet.push_back({dot(p, right), dot(p, back)});
    }
    const Vec3d centre = model.centre_of_mass;
    return {margin_of({dot(centre, right), dot(centre, back)}, feet), dot(centre, up) - reach.low};
}

double stand_cost(const Stance& stance) {
    if (!(stance.margin > 0)) return 1 + kFallen;
    const double height = std::max(stance.centre_height, 1e-12);
    return 1 - std::min(1.0, stance.margin / height / std::tan(kFirmTilt));
}

double contact_cost(const OrientModel& model, double contact) {
    return 1 - std::min(1.0, std::sqrt(contact / model.hull_area / kFirmContact));
}

// Sums over the groups of normals, of what a direction makes of each.
struct GroupSums {
    double volume = 0;   // down to the plate, without shadows
    double touched = 0;  // above
    double contact = 0;
    double steps = 0;
};

POVMESH_MULTIVERSION void add_groups(const NormalTable& table, Vec3f up, float lowest, float slack,
                                     GroupSums& sums) {
    const float* POVMESH_RESTRICT nx = table.normal_x.data();
    const float* POVMESH_RESTRICT ny = table.normal_y.data();
    const float* POVMESH_RESTRICT nz = table.normal_z.data();
    const float* POVMESH_RESTRICT areas = table.area.data();
    const float* POVMESH_RESTRICT mx = table.moment_x.data();
    const float* POVMESH_RESTRICT my = table.moment_y.data();
    const float* POVMESH_RESTRICT mz = table.moment_z.data();
    Lanes volume{};
    Lanes touched{};
    Lanes contact{};
    Lanes steps{};
    for (std::size_t begin = 0; begin < table.area.size(); begin += kTableLanes) {
        for (std::size_t k = 0; k < kTableLanes; ++k) {
            const std::size_t i = begin + k;
            const float area = areas[i];
            const float cosine = nx[i] * up.x + ny[i] * up.y + nz[i] * up.z;
            steps[k] += area * std::abs(cosine) * quick_root(std::abs(1 - cosine * cosine));
            const float above = mx[i] * up.x + my[i] * up.y + mz[i] * up.z - lowest * area;
            const float down = std::max(-cosine, 0.0F);
            const float held = or_zero(support_need(-cosine, quick_root), above - slack * area);
            contact[k] += or_zero(down * area, slack * area - above);
            volume[k] += held * down * above;
            touched[k] += held * area;
        }
    }
    for (std::size_t k = 0; k < kTableLanes; ++k) {
        sums.volume += static_cast<double>(volume[k]);
        sums.touched += static_cast<double>(touched[k]);
        sums.contact += static_cast<double>(contact[k]);
        sums.steps += 2 * static_cast<double>(steps[k]);
    }
}

GroupSums sum_groups(const OrientModel& model, Vec3d up, double lowest) {
    GroupSums sums;
    add_groups(model.group_table, to_float(up), static_cast<float>(lowest),
               static_cast<float>(model.slack), sums);
    return sums;
}

double total(const OrientModel& model, const Reach& reach, const Overhang& overhang, double steps,
             double standing, double contact, Vec3d up) {
    return kVolumeWeight * overhang.volume / model.hull_volume +
           kScarWeight * (overhang.touched_above + overhang.touched_below) / model.hull_area +
           kStandWeight * standing + kContactWeight * contact +
           kHeightWeight * (reach.high - reach.low) / model.diameter +
           kStepWeight * steps / model.area + kTurnWeight * (1 - up.z) / 2;
}

}  // namespace

double estimate_cost(const OrientModel& model, Vec3d up, bool is_rest_face) {
    const Reach reach = reach_of(model, up);
    const GroupSums sums = sum_groups(model, up, reach.low);
    const Overhang overhang = {sums.volume, sums.touched, 0, sums.contact};
    return total(model, reach, overhang, sums.steps,
                 is_rest_face ? stand_cost(stance_of(model, up, reach)) : 1,
                 is_rest_face ? contact_cost(model, sums.contact) : 1, up);
}

Orientation measure(const OrientModel& model, const MeasuredTriangles& on, Vec3d up,
                    OverhangMeter& meter) {
    const Reach reach = reach_of(model, up);
    const Stance stance = stance_of(model, up, reach);
    const GroupSums sums = sum_groups(model, up, reach.low);
    const Overhang overhang = meter.measure(on, up, model.slack);
    const double square = model.unit * model.unit;
    Orientation result;
    result.up = up;
    result.cost = total(model, reach, overhang, sums.steps, stand_cost(stance),
                        contact_cost(model, overhang.contact), up);
    result.support_volume = overhang.volume * square * model.unit;
    result.scar_area = (overhang.touched_above + overhang.touched_below) * square;
    result.contact_area = overhang.contact * square;
    result.tilt =
        std::atan2(stance.margin, std::max(stance.centre_height, 0.0)) * (180 / std::numbers::pi);
    result.height = (reach.high - reach.low) * model.unit;
    return result;
}

}  // namespace povmesh
