// One descent of the tree: a ball that shrinks about its point of contact stays within itself, so
// what lies beyond the ball once need never be looked at again. On one triangle, the point nearest
// to the centre gives the next, smaller ball through it, until nothing is nearer; the error is
// squared in every step.
//
// Source of the shrinking balls: J. Ma, S. W. Bae, S. Choi, 3D medial axis point approximation
// using nearest neighbors and the normal field, The Visual Computer 28, 2012.
#include "field/tangent_balls.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>

#include "base/convert.h"
#include "base/parallel.h"
#include "base/poll.h"
#include "spatial/nearest_face.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

// Normals oppose when turned by 120 degrees. A twentieth of a degree less, so that wedges of 60
// degrees count whichever way their corners were rounded.
constexpr double kOpposing = 0.49924;         // cosine of 60.05 degrees
constexpr double kSineOfOpposing = 0.866463;  // and its sine
constexpr float kConeSlack = 1e-5F;           // for cones in single precision
constexpr Vec3f kAnyAxis{1, 0, 0};
constexpr float kAnyDirection = -2;  // the least product of a cone that leaves none out

// A face narrower than so many roundings of its coordinates looks anywhere.
constexpr double kRounding = 0x1p-24;
constexpr double kLeastWidth = 8;

// A step on a triangle that gains less, as a share, is the last.
constexpr double kLeastGain = 1e-9;
constexpr int kMostSteps = 40;

double largest_coordinate(const Triangle& t) {
    double largest = 0;
    for (const Vec3d& p : t) {
        largest = std::max({largest, std::abs(p.x), std::abs(p.y), std::abs(p.z)});
    }
    return largest;
}

Triangle widened(const std::array<Vec3f, 3>& corners) {
    return {to_double(corners[0]), to_double(corners[1]), to_double(corners[2])};
}

// Of length 1, or 0 for a face that has none.
Vec3d reliable_normal(const Triangle& t) {
    const Vec3d across = cross(t[1] - t[0], t[2] - t[0]);
    const double twice_area = length(across);
    double longest = 0;
    for (std::size_t c = 0; c < 3; ++c) longest = std::max(longest, length(t[(c + 1) % 3] - t[c]));
    const double width = kLeastWidth * kRounding * largest_coordinate(t);
    if (!(twice_area > width * longest) || !(twice_area > 0)) return {};
    return across / twice_area;
}

double squared_distance(Vec3d p, const Box3f& box) {
    const auto beyond = [](double at, float low, float high) {
        return std::max({static_cast<double>(low) - at, at - static_cast<double>(high), 0.0});
    };
    const double x = beyond(p.x, box.low.x, box.high.x);
    const double y = beyond(p.y, box.low.y, box.high.y);
    const double z = beyond(p.z, box.low.z, box.high.z);
    return x * x + y * y + z * z;
}

}  // namespace

// A ball about to shrink.
class TangentBalls::Search {
public:
    Search(const TangentBalls& balls, Vec3d point, Vec3d normal, BallSide side, double limit,
           double least)
        : balls_(balls),
          least_(least),
          point_(point),
          towards_(side == BallSide::Inside ? normal * -1.0 : normal),
          sign_(side == BallSide::Inside ? 1 : -1),
          facing_{narrow_to_float(-normal.x), narrow_to_float(-normal.y),
                  narrow_to_float(-normal.z)} {
        shrink_to(limit / 2);
    }

    void run() {
        if (balls_.nodes_.empty()) return;
        std::array<Waiting, FaceTree::kMaxDepth + 2> stack;
        std::size_t size = 0;
        std::uint32_t index = 0;
        while (true) {
            const FaceTree::Node& node = balls_.nodes_[index].node;
            bool is_dead_end = node.is_leaf();
            if (is_dead_end) {
                for (std::uint32_t i = node.place; i < node.place + node.count; ++i) look_at(i);
            } else {
                // The nearer child first.
                const double first = squared_distance(index + 1);
                const double second = squared_distance(node.place);
                const bool is_first_nearer = first <= second;
                const double far = is_first_nearer ? second : first;
                if (far < squared_radius_) {
                    stack[size].node = is_first_nearer ? node.place : index + 1;
                    stack[size].radius = radius_;
                    ++size;
                }
                index = is_first_nearer ? index + 1 : node.place;
                is_dead_end = !(std::min(first, second) < squared_radius_);
            }
            while (is_dead_end) {
                if (size == 0) return;
                --size;
                index = stack[size].node;
                // The ball may have shrunk since then.
                is_dead_end =
                    radius_ < stack[size].radius && !(squared_distance(index) < squared_radius_);
            }
        }
    }

    void look_at(std::uint32_t entry) {
        const Facet& facet = balls_.facets_[entry];
        const Vec3d normal = to_double(facet.normal) * sign_;
        if (!(dot(normal, towards_) > kOpposing)) return;
        if (!(dot(normal, to_double(facet.corners[0]) - point_) > 0)) return;
        const double before = radius_;
        const BallContact contact_before = contact_;
        shrink_off(widened(facet.corners), entry);
        if (radius_ < before && contact_.diameter < least_) {
            contact_ = contact_before;
            shrink_to(before);
        }
    }

    const BallContact& contact() const { return contact_; }

private:
    void shrink_off(const Triangle& t, std::uint32_t entry) {
        for (int step = 0; step < kMostSteps; ++step) {
            const NearestPoint met = nearest_on_triangle(centre_, t);
            if (!(met.squared_distance < squared_radius_)) return;
            const Vec3d away = met.point - point_;
            const double depth = dot(towards_, away);
            const double radius = depth > 0 ? dot(away, away) / (2 * depth) : 0;
            if (!(radius < radius_)) return;
            const bool is_last = radius > radius_ * (1 - kLeastGain);
            shrink_to(radius);
            contact_ = {2 * radius, met.point, entry};
            if (is_last) return;
        }
    }

    void shrink_to(double radius) {
        radius_ = radius;
        squared_radius_ = radius * radius;
        centre_ = point_ + towards_ * radius;
    }

    struct Waiting {
        std::uint32_t node;
        double radius;  // of the ball that reached it
    };

    // Of a node's box from the centre; infinite when nothing opposes there.
    double squared_distance(std::uint32_t index) const {
        const Node& node = balls_.nodes_[index];
        if (!(dot(node.cone.axis, facing_) > node.cone.least)) {
            return std::numeric_limits<double>::infinity();
        }
        return povmesh::squared_distance(centre_, node.node.box);
    }

    const TangentBalls& balls_;
    double least_;
    Vec3d point_;
    Vec3d towards_;  // from the point to the centre
    double sign_;    // of normals that are turned to look out of the ball
    Vec3f facing_;   // where the normals of opposing faces look
    double radius_ = 0;
    double squared_radius_ = 0;
    Vec3d centre_;
    BallContact contact_;
};

TangentBalls::TangentBalls(const TriMesh& mesh) {
    Array<Box3f> boxes(mesh.faces.size());
    parallel_for(boxes.size(), [&](std::size_t f) {
        const Face& face = mesh.faces[f];
        boxes[f] = face.deleted == 0 ? face_box(mesh, face) : Box3f{};
        if (boxes[f].is_empty()) return;
        if (reliable_normal(triangle_of(mesh, face)) == Vec3d{}) boxes[f] = {};
    });
    tree_ = FaceTree(boxes);
    polled_resize(facets_, tree_.numbers().size());
    parallel_for(facets_.size(), [&](std::size_t i) {
        const Face& face = mesh.faces[tree_.numbers()[i]];
        Facet& facet = facets_[i];
        for (std::size_t c = 0; c < 3; ++c) facet.corners[c] = mesh.corner_position(face, c);
        const Vec3d normal = reliable_normal(widened(facet.corners));
        facet.normal = {narrow_to_float(normal.x), narrow_to_float(normal.y),
                        narrow_to_float(normal.z)};
    });
    find_cones();
}

TangentBalls::Cone TangentBalls::cone_of(std::uint32_t first, std::uint32_t end) const {
    Vec3d sum;
    for (std::uint32_t i = first; i < end; ++i) {
        poll_at(i);
        sum = sum + normal(i);
    }
    const double size = length(sum);
    if (!(size > 0)) return {kAnyAxis, kAnyDirection};
    const Vec3d axis = sum / size;
    double cosine = 1;
    for (std::uint32_t i = first; i < end; ++i) cosine = std::min(cosine, dot(axis, normal(i)));
    // From half a right angle more than a right angle on, the cone and the 60 degrees around any
    // direction always meet.
    if (cosine <= -0.5) return {kAnyAxis, kAnyDirection};
    const double sine = std::sqrt(std::max(0.0, 1 - cosine * cosine));
    const double least = kOpposing * cosine - kSineOfOpposing * sine;
    return {{narrow_to_float(axis.x), narrow_to_float(axis.y), narrow_to_float(axis.z)},
            narrow_to_float(least) - kConeSlack};
}

// From the leaves up; the entries below a node stand side by side. What is above a node without a
// cone has none either.
void TangentBalls::find_cones() {
    const std::span<const FaceTree::Node> nodes = tree_.nodes();
    struct Range {
        std::uint32_t first, end;
    };
    Array<Range> ranges(nodes.size());
    polled_resize(nodes_, nodes.size());
    for (std::size_t i = nodes.size(); i-- > 0;) {
        poll_at(i);
        const FaceTree::Node& node = nodes[i];
        nodes_[i] = {node, {kAnyAxis, kAnyDirection}};
        if (node.is_leaf()) {
            ranges[i] = {node.place, node.place + node.count};
        } else {
            ranges[i] = {ranges[i + 1].first, ranges[node.place].end};
            if (nodes_[i + 1].cone.least == kAnyDirection ||
                nodes_[node.place].cone.least == kAnyDirection) {
                continue;
            }
        }
        nodes_[i].cone = cone_of(ranges[i].first, ranges[i].end);
    }
}

BallContact TangentBalls::find(Vec3d point, Vec3d normal, BallSide side, double limit, double least,
                               std::uint32_t near) const {
    Search search(*this, point, normal, side, limit, least);
    if (near != BallContact::kNone) search.look_at(near);
    search.run();
    return search.contact();
}

}  // namespace povmesh
