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
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include "base/predicates.h"

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

struct Stance {
    double lowest = 0;
    double height = 0;
    double margin = 0;  // of the centre of mass to the border of what it stands on; below 0 outside
    double centre_height = 0;
};

// The convex polygon around points of a plane, counterclockwise (A. M. Andrew, 1979).
std::vector<Point2d> outline(std::vector<Point2d> points) {
    std::sort(points.begin(), points.end(),
              [](Point2d a, Point2d b) { return a.x != b.x ? a.x < b.x : a.y < b.y; });
    std::vector<Point2d> chain;
    const auto add = [&](Point2d p, std::size_t begin) {
        while (chain.size() >= begin + 2) {
            const Point2d a = chain[chain.size() - 2];
            const Point2d b = chain.back();
            if ((b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x) > 0) break;
            chain.pop_back();
        }
        chain.push_back(p);
    };
    for (const Point2d p : points) add(p, 0);
    const std::size_t begin = chain.size() - 1;
    for (std::size_t i = points.size() - 1; i-- > 0;) add(points[i], begin);
    if (chain.size() > 1) chain.pop_back();
    return chain;
}

double margin_of(Point2d p, const std::vector<Point2d>& corners) {
    double least = std::numeric_limits<double>::infinity();
    bool is_inside = corners.size() > 2;
    for (std::size_t i = 0; i < corners.size(); ++i) {
        const Point2d a = corners[i];
        const Point2d b = corners[i + 1 == corners.size() ? 0 : i + 1];
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

Stance stance_of(const OrientModel& model, Vec3d up) {
    const auto [right, back] = across(up);
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (const Vec3d p : model.hull_points) {
        const double height = dot(p, up);
        low = std::min(low, height);
        high = std::max(high, height);
    }
    std::vector<Point2d> feet;
    for (const Vec3d p : model.hull_points) {
        if (dot(p, up) - low <= model.slack) feet.push_back({dot(p, right), dot(p, back)});
    }
    const Vec3d centre = model.centre_of_mass;
    return {low, high - low, margin_of({dot(centre, right), dot(centre, back)}, outline(feet)),
            dot(centre, up) - low};
}

double stand_cost(const Stance& stance) {
    if (!(stance.margin > 0)) return 1 + kFallen;
    const double height = std::max(stance.centre_height, 1e-12);
    return 1 - std::min(1.0, stance.margin / height / std::tan(kFirmTilt));
}

double contact_cost(const OrientModel& model, double contact) {
    return 1 - std::min(1.0, std::sqrt(contact / model.hull_area / kFirmContact));
}

double step_cost(const OrientModel& model, Vec3d up) {
    double sum = 0;
    for (const NormalGroup& group : model.groups) {
        const double cosine = dot(group.normal, up);
        sum += group.area * 2 * std::abs(cosine) * std::sqrt(std::max(0.0, 1 - cosine * cosine));
    }
    return sum / model.area;
}

double total(const OrientModel& model, const Stance& stance, const Overhang& overhang,
             double standing, double contact, Vec3d up) {
    return kVolumeWeight * overhang.volume / model.hull_volume +
           kScarWeight * (overhang.touched_above + overhang.touched_below) / model.hull_area +
           kStandWeight * standing + kContactWeight * contact +
           kHeightWeight * stance.height / model.diameter + kStepWeight * step_cost(model, up) +
           kTurnWeight * (1 - up.z) / 2;
}

// Level area of the triangles that lie on the plate with all corners.
double contact_area(const MeasuredTriangles& on, std::span<const Vec3d> turned, double highest) {
    double sum = 0;
    for (const auto& [ia, ib, ic] : on.triangles) {
        const Vec3d a = turned[ia];
        const Vec3d b = turned[ib];
        const Vec3d c = turned[ic];
        if (a.z > highest || b.z > highest || c.z > highest) continue;
        sum += std::abs((b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x)) / 2;
    }
    return sum;
}

}  // namespace

double estimate_cost(const OrientModel& model, Vec3d up, bool is_rest_face) {
    const Stance stance = stance_of(model, up);
    Overhang overhang;
    double contact = 0;
    for (const NormalGroup& group : model.groups) {
        const double down = -dot(group.normal, up);
        if (down < 0.3) continue;  // above 72 degrees
        const double above = std::max(dot(group.moment, up) - stance.lowest * group.area, 0.0);
        if (above <= model.slack * group.area) {
            contact += down * group.area;
            continue;
        }
        const double need = support_need(down);
        overhang.volume += need * down * above;
        overhang.touched_above += need * group.area;
    }
    return total(model, stance, overhang, is_rest_face ? stand_cost(stance) : 1,
                 is_rest_face ? contact_cost(model, contact) : 1, up);
}

Orientation measure(const OrientModel& model, const MeasuredTriangles& on, Vec3d up,
                    OverhangMeter& meter) {
    const Stance stance = stance_of(model, up);
    const Overhang overhang = meter.measure(on.points, on.triangles, up, model.slack);
    const double contact = contact_area(on, meter.turned(), meter.plate() + model.slack);
    const double square = model.unit * model.unit;
    Orientation result;
    result.up = up;
    result.cost =
        total(model, stance, overhang, stand_cost(stance), contact_cost(model, contact), up);
    result.support_volume = overhang.volume * square * model.unit;
    result.scar_area = (overhang.touched_above + overhang.touched_below) * square;
    result.contact_area = contact * square;
    result.tilt =
        std::atan2(stance.margin, std::max(stance.centre_height, 0.0)) * (180 / std::numbers::pi);
    result.height = stance.height * model.unit;
    return result;
}

}  // namespace povmesh
