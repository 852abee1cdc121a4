// Depth-first search of a bounding-volume tree of four children a node, the nearest first, with
// capsules beside the boxes where faces are long and thin. Nearest point of a triangle by its
// Voronoi regions: C. Ericson, Real-time collision detection, 2005, section 5.1.5.
#include "spatial/nearest_face.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>
#include <vector>

#include "base/parallel.h"
#include "base/poll.h"

namespace povmesh {
namespace {

// A triangle whose squared sine at its first corner is smaller is searched edge by edge: the plane
// of such a needle is lost in rounding.
constexpr double kNeedle = 1e-20;

// A node has a capsule when that is this many times thinner than long, and than the box's second
// extent.
constexpr double kThin = 8;

// Below this share of all nodes capsules are not worth the look whether there is one. Most meshes
// have no use for any, which is told by one in so many branches of the tree, of so many nodes.
constexpr double kLeastThinShare = 0.02;
constexpr std::size_t kBranch = 128;
constexpr std::size_t kBranchStep = 8;

// Faces that look elsewhere after which a search for one that looks a certain way gives up: around
// a vertex of high valence all of them would be looked at.
constexpr int kMostTurnedDown = 200;

// Room for rounding around a capsule, as a share of its length.
constexpr double kSlack = 1e-12;

// The same of discs, whose normals are of unit length within two parts in ten million.
constexpr double kDiscSlack = 1e-5;
constexpr double kHeightSlack = 1e-3;

double squared_distance(Vec3d p, Vec3d a, Vec3d b) {
    const Vec3d along = b - a;
    const double square = dot(along, along);
    const double s = square > 0 ? std::clamp(dot(p - a, along) / square, 0.0, 1.0) : 0.0;
    const Vec3d away = p - a - along * s;
    return dot(away, away);
}

double middle_extent(const Box3f& box) {
    const Vec3d e = to_double(box.high) - to_double(box.low);
    return std::max(std::min(e.x, e.y), std::min(std::max(e.x, e.y), e.z));
}

using Weights = std::array<double, 3>;

inline Vec3d point_at(const Triangle3d& t, const Weights& weights) {
    return t[0] + (t[1] - t[0]) * weights[1] + (t[2] - t[0]) * weights[2];
}

Weights nearest_on_edges(Vec3d p, const Triangle3d& t) {
    Weights best{};
    double least = std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < 3; ++i) {
        const std::size_t next = (i + 1) % 3;
        const Vec3d edge = t[next] - t[i];
        const double square = dot(edge, edge);
        const double s = square > 0 ? std::clamp(dot(p - t[i], edge) / square, 0.0, 1.0) : 0.0;
        Weights weights{};
        weights[i] = 1 - s;
        weights[next] = s;
        const Vec3d away = p - point_at(t, weights);
        if (!(dot(away, away) < least)) continue;
        best = weights;
        least = dot(away, away);
    }
    return best;
}

// Of the corners at the nearest point.
inline Weights nearest_weights(Vec3d p, const Triangle3d& t) {
    const Vec3d ab = t[1] - t[0];
    const Vec3d ac = t[2] - t[0];
    const Vec3d ap = p - t[0];
    const double d1 = dot(ab, ap);
    const double d2 = dot(ac, ap);
    if (d1 <= 0 && d2 <= 0) return {1, 0, 0};
    const Vec3d bp = p - t[1];
    const double d3 = dot(ab, bp);
    const double d4 = dot(ac, bp);
    if (d3 >= 0 && d4 <= d3) return {0, 1, 0};
    const Vec3d cp = p - t[2];
    const double d5 = dot(ab, cp);
    const double d6 = dot(ac, cp);
    if (d6 >= 0 && d5 <= d6) return {0, 0, 1};

    const Vec3d normal = cross(ab, ac);
    const double square = dot(normal, normal);
    if (!(square > kNeedle * dot(ab, ab) * dot(ac, ac))) return nearest_on_edges(p, t);
    const double vc = d1 * d4 - d3 * d2;
    if (vc <= 0 && d1 >= 0 && d3 <= 0) {
        const double s = d1 / (d1 - d3);
        return {1 - s, s, 0};
    }
    const double vb = d5 * d2 - d1 * d6;
    if (vb <= 0 && d2 >= 0 && d6 <= 0) {
        const double s = d2 / (d2 - d6);
        return {1 - s, 0, s};
    }
    const double va = d3 * d6 - d5 * d4;
    if (va <= 0 && d4 >= d3 && d5 >= d6) {
        const double s = (d4 - d3) / ((d4 - d3) + (d5 - d6));
        return {0, 1 - s, s};
    }
    const double sum = va + vb + vc;
    return {va / sum, vb / sum, vc / sum};
}

}  // namespace

NearestPoint nearest_on_triangle(Vec3d p, const Triangle3d& t) {
    NearestPoint result;
    result.weights = nearest_weights(p, t);
    result.point = point_at(t, result.weights);
    const Vec3d away = p - result.point;
    result.squared_distance = dot(away, away);
    return result;
}

NearestFace::NearestFace(const TriMesh& mesh) {
    Array<Box3f> boxes(mesh.faces.size());
    parallel_for(boxes.size(), [&](std::size_t f) {
        const Face& face = mesh.faces[f];
        boxes[f] = face.deleted == 0 ? face_box(mesh, face) : Box3f{};
    });
    tree_ = FaceTree(boxes);
    polled_resize(triangles_, tree_.numbers().size());
    polled_resize(discs_, triangles_.size());
    parallel_for(triangles_.size(), [&](std::size_t i) {
        const Face& face = mesh.faces[tree_.numbers()[i]];
        for (std::size_t c = 0; c < 3; ++c) triangles_[i][c] = mesh.corner_position(face, c);
        discs_[i] = disc_around(triangles_[i]);
    });
    quads_ = BoxQuads(tree_);
    find_capsules();
}

NearestFace::Disc NearestFace::disc_around(const std::array<Vec3f, 3>& triangle) {
    const Triangle3d t = {to_double(triangle[0]), to_double(triangle[1]), to_double(triangle[2])};
    const auto rounded = [](Vec3d v) {
        return Vec3f{static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
    };
    const auto rounded_up = [](double x) {
        constexpr float kInfinity = std::numeric_limits<float>::infinity();
        const bool is_float = x < double{std::numeric_limits<float>::max()};
        return is_float ? std::nextafter(static_cast<float>(x), kInfinity) : kInfinity;
    };
    Disc disc{};
    disc.centre = rounded(t[0] / 3.0 + t[1] / 3.0 + t[2] / 3.0);
    const Vec3d normal = cross(t[1] - t[0], t[2] - t[0]);
    const double size = length(normal);
    if (size > 0) disc.normal = rounded(normal / size);
    double radius = 0;
    double height = 0;
    for (const Vec3d& corner : t) {
        const Vec3d from = corner - to_double(disc.centre);
        radius = std::max(radius, length(from));
        height = std::max(height, std::abs(dot(from, to_double(disc.normal))));
    }
    disc.radius = rounded_up(radius * (1 + kDiscSlack));
    disc.height = rounded_up(height * (1 + kHeightSlack));
    return disc;
}

// Whether no point of a disc is nearer, found without a root.
bool NearestFace::is_beyond_disc(Vec3d p, const Disc& disc, double squared) {
    const Vec3d away = p - to_double(disc.centre);
    const double above = dot(away, to_double(disc.normal));
    const double lift = std::max(std::abs(above) - static_cast<double>(disc.height), 0.0);
    const auto radius = static_cast<double>(disc.radius);
    const double aside = std::max(dot(away, away) - above * above, 0.0);  // squared
    const double enough = squared * (1 + kDiscSlack) - lift * lift;
    if (aside <= radius * radius) return enough < 0;
    const double rest = aside + radius * radius - enough;
    return rest > 0 && rest * rest > 4 * radius * radius * aside;
}

bool NearestFace::is_thin(const Capsule& capsule, const Box3f& box) {
    const double size = std::min(length(capsule.b - capsule.a), middle_extent(box));
    return size > kThin * capsule.radius;
}

NearestFace::Capsule NearestFace::capsule_of_entry(std::size_t entry) const {
    const Triangle3d t = {to_double(triangles_[entry][0]), to_double(triangles_[entry][1]),
                          to_double(triangles_[entry][2])};
    std::size_t longest = 0;  // the corner before the longest edge
    double square = -1;
    for (std::size_t c = 0; c < 3; ++c) {
        const Vec3d edge = t[(c + 1) % 3] - t[c];
        if (dot(edge, edge) > square) {
            square = dot(edge, edge);
            longest = c;
        }
    }
    const Vec3d a = t[longest];
    const Vec3d b = t[(longest + 1) % 3];
    return {a, b,
            std::sqrt(squared_distance(t[(longest + 2) % 3], a, b)) + kSlack * std::sqrt(square)};
}

// Around the segment between the two ends that are farthest apart.
NearestFace::Capsule NearestFace::joined(const Capsule& first, const Capsule& second) {
    const std::array<Vec3d, 4> ends = {first.a, first.b, second.a, second.b};
    const std::array<double, 2> radii = {first.radius, second.radius};
    Capsule all;
    double farthest = -1;
    for (std::size_t i = 0; i < 4; ++i) {
        for (std::size_t k = i + 1; k < 4; ++k) {
            const Vec3d between = ends[k] - ends[i];
            if (dot(between, between) > farthest) {
                farthest = dot(between, between);
                all = {ends[i], ends[k]};
            }
        }
    }
    for (std::size_t i = 0; i < 4; ++i) {
        all.radius =
            std::max(all.radius, std::sqrt(squared_distance(ends[i], all.a, all.b)) + radii[i / 2]);
    }
    all.radius += kSlack * std::sqrt(farthest);
    return all;
}

// Those of the nodes from one up to the end of a branch, from the leaves up: children stand behind
// their parents. Returns how many nodes are thin.
std::size_t NearestFace::find_branch(std::size_t first, std::size_t end,
                                     Array<Capsule>& capsules) const {
    const std::span<const FaceTree::Node> nodes = tree_.nodes();
    std::size_t count = 0;
    for (std::size_t i = end; i-- > first;) {
        poll_at(i);
        const FaceTree::Node& node = nodes[i];
        Capsule& own = capsules[i - first];
        if (node.is_leaf()) {
            own = capsule_of_entry(node.place);
            for (std::uint32_t k = 1; k < node.count; ++k) {
                own = joined(own, capsule_of_entry(node.place + k));
            }
        } else {
            own = joined(capsules[i + 1 - first], capsules[node.place - first]);
        }
        count += is_thin(own, node.box) ? 1 : 0;
    }
    return count;
}

// Half the share of thin nodes in a sample of branches will do.
bool NearestFace::may_have_capsules() const {
    struct Branch {
        std::size_t first, end;
    };
    const std::span<const FaceTree::Node> nodes = tree_.nodes();
    if (nodes.size() < kBranch * kBranchStep) return !nodes.empty();
    std::vector<Branch> waiting = {{0, nodes.size()}};
    Array<Capsule> capsules(kBranch);
    std::size_t number = 0;
    std::size_t seen = 0;
    std::size_t thin = 0;
    while (!waiting.empty()) {
        const Branch branch = waiting.back();
        waiting.pop_back();
        if (branch.end - branch.first > kBranch) {
            const std::size_t right = nodes[branch.first].place;
            waiting.push_back({right, branch.end});
            waiting.push_back({branch.first + 1, right});
        } else if (number++ % kBranchStep == 0) {
            thin += find_branch(branch.first, branch.end, capsules);
            seen += branch.end - branch.first;
        }
    }
    return static_cast<double>(thin) >= kLeastThinShare / 2 * static_cast<double>(seen);
}

void NearestFace::find_capsules() {
    if (!may_have_capsules()) return;
    const std::span<const FaceTree::Node> nodes = tree_.nodes();
    Array<Capsule> all;
    polled_resize(all, nodes.size());
    const std::size_t count = find_branch(0, nodes.size(), all);
    if (static_cast<double>(count) < kLeastThinShare * static_cast<double>(nodes.size())) return;
    const Array<std::uint32_t> lane_nodes = BoxQuads::nodes_of_children(tree_);
    capsule_of_.assign(lane_nodes.size(), NearestPoint::kNoFace);
    for (std::size_t lane = 0; lane < lane_nodes.size(); ++lane) {
        poll_at(lane);
        const std::uint32_t node = lane_nodes[lane];
        if (node == BoxQuads::kNone || !is_thin(all[node], nodes[node].box)) continue;
        capsule_of_[lane] = static_cast<std::uint32_t>(capsules_.size());
        capsules_.push_back(all[node]);
    }
}

bool NearestFace::is_beyond_capsule(Vec3d p, std::size_t lane, double squared) const {
    if (capsule_of_.empty() || capsule_of_[lane] == NearestPoint::kNoFace) return false;
    const Capsule& capsule = capsules_[capsule_of_[lane]];
    const double distance = std::sqrt(squared_distance(p, capsule.a, capsule.b)) - capsule.radius;
    return distance > 0 && !(distance * distance < squared);
}

NearestPoint NearestFace::find(Vec3d p, double limit) const {
    return search(
        p, limit, [](const Triangle3d& /*triangle*/) { return true; }, [] { return false; });
}

NearestPoint NearestFace::find_any(Vec3d p, double limit) const {
    bool any = false;
    return search(
        p, limit,
        [&](const Triangle3d& /*triangle*/) {
            any = true;
            return true;
        },
        [&] { return any; });
}

NearestPoint NearestFace::find_facing(Vec3d p, Vec3d direction, double least_cosine,
                                      double limit) const {
    int turned_down = 0;
    return search(
        p, limit,
        [&](const Triangle3d& t) {
            const Vec3d normal = cross(t[1] - t[0], t[2] - t[0]);
            const bool faces = dot(normal, direction) > least_cosine * length(normal);
            turned_down += faces ? 0 : 1;
            return faces;
        },
        [&] { return turned_down > kMostTurnedDown; });
}

// The nearest point on a triangle for which accepts(triangle), until gives_up().
template <typename Accepts, typename GivesUp>
NearestPoint NearestFace::search(Vec3d p, double limit, Accepts&& accepts,
                                 GivesUp&& gives_up) const {
    poll();  // callers ask thousands of times in a block
    NearestPoint best;
    if (is_empty() || !is_finite(p)) return best;
    best.squared_distance = limit;

    const BoxQuads::Probe probe = quads_.probe(p);
    float most = probe.limit(best.squared_distance);
    struct Waiting {
        std::uint32_t quad;
        float bound;
    };
    std::array<Waiting, BoxQuads::kMostWaiting> stack;
    std::size_t size = 0;
    stack[size++] = {0, 0};
    while (size != 0 && !gives_up()) {
        const Waiting top = stack[--size];
        if (!(top.bound <= most)) continue;
        const BoxQuads::Quad& quad = quads_[top.quad];
        const std::array<float, 4> bounds = probe.bounds(quad);
        const std::size_t first = size;
        for (std::size_t lane = 0; lane < 4 && quad.child[lane] != BoxQuads::kNone; ++lane) {
            if (!(bounds[lane] <= most)) continue;
            if ((quad.child[lane] & BoxQuads::kEntry) == 0) {
                if (is_beyond_capsule(p, 4 * std::size_t{top.quad} + lane, best.squared_distance)) {
                    continue;
                }
                // The nearest child is looked at first.
                std::size_t at = size++;
                for (; at > first && stack[at - 1].bound < bounds[lane]; --at) {
                    stack[at] = stack[at - 1];
                }
                stack[at] = {quad.child[lane], bounds[lane]};
                continue;
            }
            const std::uint32_t entry = quad.child[lane] & ~BoxQuads::kEntry;
            if (is_beyond_disc(p, discs_[entry], best.squared_distance)) continue;
            const std::array<Vec3f, 3>& t = triangles_[entry];
            const Triangle3d corners = {to_double(t[0]), to_double(t[1]), to_double(t[2])};
            const Weights weights = nearest_weights(p, corners);
            const Vec3d point = point_at(corners, weights);
            const double squared = dot(p - point, p - point);
            if (!(squared < best.squared_distance) || !accepts(corners)) continue;
            best = {tree_.numbers()[entry], weights, point, squared};
            most = probe.limit(best.squared_distance);
        }
    }
    if (!best.is_found()) best.squared_distance = std::numeric_limits<double>::infinity();
    return best;
}

}  // namespace povmesh
