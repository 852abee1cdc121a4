// Places of pegs by greedy farthest-point search: of the cells of a grid over the cut, each peg
// takes the one with the most room to rims and earlier pegs; a few rounds of replacing one at a
// time then even out the distances. How deep the material is comes from the faces in front of the
// plane, clipped to the socket's prism.
//
// Source: T. Gonzalez, Clustering to minimize the maximum intercluster distance, 1985.
#include "cut/connectors.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

#include "base/poll.h"
#include "spatial/face_tree.h"

namespace povmesh {
namespace {

constexpr std::uint32_t kMostConnectors = 256;
constexpr std::uint32_t kFewestSegments = 3;
constexpr std::uint32_t kMostSegments = 512;

// Material left between a socket and any surface, model units.
constexpr double kLeastWall = 0.2;
constexpr double kLengthPerRadius = 2;
constexpr double kLeastLengthPerRadius = 1;

// A plane whose normal is nearer to that of the cut than this cosine counts as parallel to it.
constexpr double kParallel = 0.999;

constexpr std::size_t kGridCells = 128;
// With more pegs than this their places are not improved after the first choice.
constexpr std::size_t kMostImproved = 16;
constexpr int kImprovements = 4;
// Places that are tried for a peg before it is given up; the search for the depth goes over all
// faces near the plane.
constexpr int kMostTries = 100;

// Corners of the polygon around the place of a socket from which other surfaces must stay away.
constexpr std::size_t kClipCorners = 16;

double distance(Point2d a, Point2d b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

double distance(Point2d p, Point2d a, Point2d b) {
    const double dx = b.x - a.x;
    const double dy = b.y - a.y;
    const double square = dx * dx + dy * dy;
    const double along = square > 0 ? ((p.x - a.x) * dx + (p.y - a.y) * dy) / square : 0;
    const double limited = std::clamp(along, 0.0, 1.0);
    return distance(p, {a.x + dx * limited, a.y + dy * limited});
}

Point2d in_plane(const PlaneFrame& frame, Vec3d p) {
    return {dot(frame.along(), p), dot(frame.across(), p)};
}

// As floats, rounded outward.
Box3f box_of(double low_x, double low_y, double high_x, double high_y) {
    const auto down = [](double x) {
        return std::nextafter(narrow_to_float(x), -std::numeric_limits<float>::infinity());
    };
    const auto up = [](double x) {
        return std::nextafter(narrow_to_float(x), std::numeric_limits<float>::infinity());
    };
    return {{down(low_x), down(low_y), 0}, {up(high_x), up(high_y), 0}};
}

/// Distances to the rims, and which of them go around a place.
class RimMap {
public:
    RimMap(const CutPoints& points, const PlaneFrame& frame, std::span<const RimEdge> rim)
        : rim_(rim) {
        Array<Box3f> boxes;
        for (const RimEdge& edge : rim) {
            const Point2d a = in_plane(frame, points.exact(edge.from));
            const Point2d b = in_plane(frame, points.exact(edge.to));
            ends_.push_back({a, b});
            boxes.push_back(box_of(std::min(a.x, b.x), std::min(a.y, b.y), std::max(a.x, b.x),
                                   std::max(a.y, b.y)));
            low_ = {std::min({low_.x, a.x, b.x}), std::min({low_.y, a.y, b.y})};
            high_ = {std::max({high_.x, a.x, b.x}), std::max({high_.y, a.y, b.y})};
        }
        tree_ = FaceTree(boxes);
    }

    Point2d low() const { return low_; }
    Point2d high() const { return high_; }

    double distance_to_rim(Point2d p, double guess) const {
        const double most = distance(low_, high_) + guess;
        for (double reach = guess;; reach *= 2) {
            double nearest = std::numeric_limits<double>::infinity();
            const Box3f box = box_of(p.x - reach, p.y - reach, p.x + reach, p.y + reach);
            tree_.visit_overlapping(box, [&](std::uint32_t edge) {
                nearest = std::min(nearest, distance(p, ends_[edge][0], ends_[edge][1]));
                return false;
            });
            if (nearest <= reach || !(reach < most)) return nearest;
        }
    }

    // True when just one group's rim goes around p, once.
    bool find_group(Point2d p, std::uint32_t& group) const {
        windings_.clear();
        const double far = std::numeric_limits<float>::max();
        tree_.visit_overlapping(box_of(p.x, p.y, far, p.y), [&](std::uint32_t edge) {
            const auto& [a, b] = ends_[edge];
            if ((a.y <= p.y) == (b.y <= p.y)) return false;
            const int side = orient2d(a, b, p);
            const int step = b.y > a.y ? 1 : -1;
            if (side == step) count(rim_[edge].group, step);
            return false;
        });
        int around = 0;
        for (const auto& [which, winding] : windings_) {
            if (winding == 0) continue;
            around += winding == 1 ? 1 : 2;
            group = which;
        }
        return around == 1;
    }

private:
    void count(std::uint32_t group, int step) const {
        for (auto& [which, winding] : windings_) {
            if (which != group) continue;
            winding += step;
            return;
        }
        windings_.push_back({group, step});
    }

    std::span<const RimEdge> rim_;
    Array<std::array<Point2d, 2>> ends_;
    FaceTree tree_;
    Point2d low_{std::numeric_limits<double>::max(), std::numeric_limits<double>::max()};
    Point2d high_{std::numeric_limits<double>::lowest(), std::numeric_limits<double>::lowest()};
    mutable std::vector<std::pair<std::uint32_t, int>> windings_;  // scratch
};

/// How deep the material in front of a place of the plane is.
class DepthMap {
public:
    DepthMap(const TriMesh& model, const PlaneSplit& split, const PlaneFrame& frame, double depth)
        : deepest_(depth) {
        for (std::size_t f = 0; f < model.faces.size(); ++f) {
            poll_at(f);
            if (!split.reaches_front(f)) continue;
            Corners corners;
            double nearest = std::numeric_limits<double>::infinity();
            for (std::size_t i = 0; i < 3; ++i) {
                const Vec3d p = to_double(model.corner_position(model.faces[f], i));
                const Point2d q = in_plane(frame, p);
                corners[i] = {q.x, q.y, frame.distance(p)};
                nearest = std::min(nearest, corners[i].z);
            }
            if (nearest < depth) faces_.push_back(corners);
        }
    }

    // Depth of the material in front of a circle, `deepest` when no surface comes nearer.
    double depth_before(Point2d centre, double radius) const {
        double depth = deepest_;
        const double reach = radius / std::cos(std::numbers::pi / kClipCorners);
        Poller poller;
        for (const Corners& face : faces_) {
            poller();
            const auto is_beside = [&](double low, double high, double at) {
                return low > at + reach || high < at - reach;
            };
            const auto [a, b, c] = face;
            if (is_beside(std::min({a.x, b.x, c.x}), std::max({a.x, b.x, c.x}), centre.x) ||
                is_beside(std::min({a.y, b.y, c.y}), std::max({a.y, b.y, c.y}), centre.y)) {
                continue;
            }
            depth = std::min(depth, depth_of(face, centre, radius));
        }
        return depth;
    }

private:
    using Corners = std::array<Vec3d, 3>;  // along, across, distance

    // Keeps the part of a convex polygon where value(p) <= 0.
    template <typename Value>
    static void clip(std::vector<Vec3d>& polygon, Value value) {
        std::vector<Vec3d> kept;
        for (std::size_t i = 0; i < polygon.size(); ++i) {
            const Vec3d p = polygon[i];
            const Vec3d q = polygon[(i + 1) % polygon.size()];
            const double from = value(p);
            const double to = value(q);
            if (from <= 0) kept.push_back(p);
            if ((from < 0 && to > 0) || (from > 0 && to < 0)) {
                kept.push_back(p + (q - p) * (from / (from - to)));
            }
        }
        polygon = std::move(kept);
    }

    double depth_of(const Corners& face, Point2d centre, double radius) const {
        std::vector<Vec3d> polygon(face.begin(), face.end());
        clip(polygon, [](Vec3d p) { return -p.z; });
        for (std::size_t k = 0; k < kClipCorners && !polygon.empty(); ++k) {
            const double angle = 2 * std::numbers::pi * static_cast<double>(k) / kClipCorners;
            const double x = std::cos(angle);
            const double y = std::sin(angle);
            clip(polygon,
                 [&](Vec3d p) { return (p.x - centre.x) * x + (p.y - centre.y) * y - radius; });
        }
        double depth = deepest_;
        for (const Vec3d& p : polygon) depth = std::min(depth, p.z);
        return depth;
    }

    Array<Corners> faces_;
    double deepest_;
};

struct Candidate {
    Point2d place;
    double to_rim;
    std::uint32_t group;
    double length = 0;       // of a peg there; 0: not known yet; below 0: too short
    double longest = 0;      // that the options and later planes leave room for
    std::uint64_t part = 0;  // of the cut, a mark made of the sides of later planes it lies on
};

class ConnectorPlacer {
public:
    ConnectorPlacer(const TriMesh& model, const PlaneSplit& split, const PlaneFrame& frame,
                    std::span<const RimEdge> rim, const ConnectorOptions& options)
        : radius_(options.radius),
          wall_radius_(options.radius + kConnectorClearance + kLeastWall),
          needed_(wall_radius_ / std::cos(std::numbers::pi / kClipCorners) * (1 + 1e-6)),
          longest_(std::min(options.longest, kLengthPerRadius * options.radius)),
          frame_(frame),
          later_(options.later),
          rims_(split.points(), frame, rim),
          depths_(model, split, frame,
                  kLengthPerRadius * radius_ + kConnectorClearance + kLeastWall) {
        make_candidates();
    }

    std::vector<Connector> run(std::size_t count) {
        // Part by part, in the order of their first places.
        std::vector<std::uint64_t> parts;
        for (const Candidate& at : candidates_) {
            if (std::find(parts.begin(), parts.end(), at.part) == parts.end()) {
                parts.push_back(at.part);
            }
        }
        for (const std::uint64_t part : parts) choose(part, count);
        std::vector<Connector> connectors;
        for (const std::size_t c : chosen_) {
            const Candidate& at = candidates_[c];
            connectors.push_back({at.place, at.group, at.length});
        }
        return connectors;
    }

private:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    void choose(std::uint64_t part, std::size_t count) {
        const std::size_t first = chosen_.size();
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t best = best_candidate(part, chosen_.size());
            if (best == kNone) break;
            chosen_.push_back(best);
        }
        const int rounds = chosen_.size() - first <= kMostImproved ? kImprovements : 0;
        for (int round = 0; round < rounds; ++round) {
            for (std::size_t i = first; i < chosen_.size(); ++i) {
                const std::size_t better = best_candidate(part, i);
                if (better != kNone && room(better, i) > room(chosen_[i], i)) chosen_[i] = better;
            }
        }
    }

    // Where a place lies to the planes that come later; false when a peg there would meet one.
    bool is_clear(Candidate& at) const {
        const Vec3d foot = frame_.along() * at.place.x + frame_.across() * at.place.y +
                           frame_.normal() * frame_.plane_distance();
        at.longest = longest_;
        for (const LaterPlane& plane : later_) {
            const double distance = dot(plane.normal, foot) - plane.distance;
            const double slope = dot(plane.normal, frame_.normal());
            const double beside = needed_ * std::sqrt(std::max(0.0, 1 - slope * slope));
            const double free = std::abs(distance) - beside;
            if (std::abs(slope) > kParallel && distance * slope > 0) continue;  // behind the cut
            if (!(free >= 0)) return false;
            if (distance * slope < 0) {
                at.longest =
                    std::min(at.longest, free / std::abs(slope) - kConnectorClearance - kLeastWall);
            }
            // Such a plane does not divide the cut.
            if (std::abs(slope) > kParallel) continue;
            at.part = at.part * 0x9E3779B97F4A7C15U + (distance > 0 ? 2U : 1U);
        }
        return at.longest >= kLeastLengthPerRadius * radius_;
    }

    void make_candidates() {
        const Point2d low = rims_.low();
        const Point2d high = rims_.high();
        const double extent = std::max(high.x - low.x, high.y - low.y);
        if (!(needed_ * 2 <= extent) || !std::isfinite(extent)) return;
        const double step = extent / kGridCells;
        const auto steps = [step](double from, double to) {
            return static_cast<int>(std::floor((to - from) / step / 2));
        };
        const Point2d centre{(low.x + high.x) / 2, (low.y + high.y) / 2};
        const int columns = steps(low.x, high.x);
        const int rows = steps(low.y, high.y);
        for (int row = -rows; row <= rows; ++row) {
            poll();
            for (int column = -columns; column <= columns; ++column) {
                Candidate at{{centre.x + column * step, centre.y + row * step}, 0, 0};
                if (!is_clear(at) || !rims_.find_group(at.place, at.group)) continue;
                at.to_rim = rims_.distance_to_rim(at.place, needed_);
                if (at.to_rim >= needed_) candidates_.push_back(at);
            }
        }
    }

    // Radius of the circle around a candidate that stays clear of the rims and of equal circles
    // around the chosen ones, that at `but` left out; negative when it does not fit.
    double room(std::size_t candidate, std::size_t but) const {
        const Candidate& at = candidates_[candidate];
        double room = at.to_rim;
        for (std::size_t i = 0; i < chosen_.size(); ++i) {
            if (i == but) continue;
            const double apart = distance(at.place, candidates_[chosen_[i]].place);
            if (apart < 2 * wall_radius_) return -1;
            room = std::min(room, apart / 2);
        }
        return room;
    }

    // The one with the most room for peg number `place` where the material is deep enough.
    std::size_t best_candidate(std::uint64_t part, std::size_t place) {
        for (int tries = 0; tries < kMostTries; ++tries) {
            std::size_t best = kNone;
            double most = 0;
            for (std::size_t c = 0; c < candidates_.size(); ++c) {
                if (candidates_[c].part != part || candidates_[c].length < 0) continue;
                const double space = room(c, place);
                if (space > most) {
                    most = space;
                    best = c;
                }
            }
            if (best == kNone || is_deep_enough(candidates_[best])) return best;
        }
        return kNone;
    }

    bool is_deep_enough(Candidate& at) const {
        if (at.length == 0) {
            const double depth = depths_.depth_before(at.place, wall_radius_);
            at.length = std::min(depth - kConnectorClearance - kLeastWall, at.longest);
            if (at.length < kLeastLengthPerRadius * radius_) at.length = -1;
        }
        return at.length > 0;
    }

    double radius_;
    double wall_radius_;  // of what must be free for a socket
    double needed_;       // distance from the rims
    double longest_;
    const PlaneFrame& frame_;
    std::span<const LaterPlane> later_;
    RimMap rims_;
    DepthMap depths_;
    std::vector<Candidate> candidates_;
    std::vector<std::size_t> chosen_;
};

}  // namespace

std::vector<Connector> place_connectors(const TriMesh& model, const PlaneSplit& split,
                                        const PlaneFrame& frame, std::span<const RimEdge> rim,
                                        const ConnectorOptions& options) {
    if (!(options.radius > 0) || !std::isfinite(options.radius) || options.count == 0 ||
        rim.empty()) {
        return {};
    }
    return ConnectorPlacer(model, split, frame, rim, options)
        .run(std::min(options.count, kMostConnectors));
}

ConnectorRings::ConnectorRings(CutPoints& points, const PlaneFrame& frame,
                               std::vector<Connector> connectors, const ConnectorOptions& options)
    : connectors_(std::move(connectors)),
      segments_(std::clamp(options.segments, kFewestSegments, kMostSegments)),
      radius_(options.radius),
      first_(points.size()) {
    for (const Connector& connector : connectors_) {
        const Vec3d centre = frame.along() * connector.centre.x +
                             frame.across() * connector.centre.y +
                             frame.normal() * frame.plane_distance();
        for (const double depth : {0.0, connector.length}) {
            for (const double gap : {0.0, kConnectorClearance}) {
                const Vec3d middle = centre + frame.normal() * (depth > 0 ? depth + gap : 0.0);
                for (std::size_t i = 0; i < segments_; ++i) {
                    const double angle = 2 * std::numbers::pi * static_cast<double>(i) /
                                         static_cast<double>(segments_);
                    points.add(middle + (frame.along() * std::cos(angle) +
                                         frame.across() * std::sin(angle)) *
                                            (options.radius + gap));
                }
            }
        }
    }
}

double ConnectorRings::volume() const {
    const auto sides = static_cast<double>(segments_);
    const double share = sides / 2 * std::sin(2 * std::numbers::pi / sides);  // of r squared
    double volume = 0;
    for (const Connector& connector : connectors_) {
        const double socket = radius_ + kConnectorClearance;
        volume += share * (radius_ * radius_ * connector.length -
                           socket * socket * (connector.length + kConnectorClearance));
    }
    return volume;
}

std::vector<std::array<std::int32_t, 2>> ConnectorRings::guides(std::uint32_t group) const {
    std::vector<std::array<std::int32_t, 2>> edges;
    for (std::size_t c = 0; c < connectors_.size(); ++c) {
        if (connectors_[c].group != group) continue;
        for (std::size_t ring = 0; ring < 2; ++ring) {
            for (std::size_t i = 0; i < segments_; ++i) {
                edges.push_back({ring_point(c, ring, i), ring_point(c, ring, i + 1)});
            }
        }
    }
    return edges;
}

// A triangle between corners of one connector's rings lies within the outer of them: they are
// convex, and the only points there.
bool ConnectorRings::lies_in_ring(const CapTriangle& triangle, PlaneSide side) const {
    const std::size_t rings = side == PlaneSide::Back ? 1 : 2;  // pegs leave the gap closed
    const std::size_t block = 4 * segments_;
    std::size_t connector = connectors_.size();
    for (const std::int32_t point : triangle) {
        const auto p = static_cast<std::size_t>(point);
        if (p < first_ || p >= first_ + block * connectors_.size()) return false;
        const std::size_t of = (p - first_) / block;
        if (connector != connectors_.size() && of != connector) return false;
        connector = of;
        if ((p - first_) % block >= rings * segments_) return false;
    }
    return true;
}

Array<CapTriangle> ConnectorRings::cap(PlaneSide side, const Array<CapTriangle>& triangles) const {
    Array<CapTriangle> cap;
    for (const CapTriangle& triangle : triangles) {
        if (!lies_in_ring(triangle, side)) cap.push_back(triangle);
    }
    // Seen from the back, pegs and sockets are the same shape: a pit.
    const std::size_t top = side == PlaneSide::Back ? 0 : 1;
    for (std::size_t c = 0; c < connectors_.size(); ++c) {
        for (std::size_t i = 0; i < segments_; ++i) {
            const std::int32_t a = ring_point(c, top, i);
            const std::int32_t b = ring_point(c, top, i + 1);
            const std::int32_t deep_a = ring_point(c, top + 2, i);
            const std::int32_t deep_b = ring_point(c, top + 2, i + 1);
            cap.push_back({a, b, deep_a});
            cap.push_back({b, deep_b, deep_a});
            if (i >= 2)
                cap.push_back({ring_point(c, top + 2, 0), ring_point(c, top + 2, i - 1), deep_a});
        }
    }
    return cap;
}

}  // namespace povmesh
