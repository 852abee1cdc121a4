// Both surfaces are cut along loops of edges, one inside the other, and each pair of loops is
// joined by the strip whose diagonals are shortest together: a shortest path through the pairs of
// their corners.
#include "remesh/transplant.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <utility>
#include <vector>

#include "base/convert.h"
#include "base/parallel.h"
#include "mesh/bounds.h"
#include "spatial/face_tree.h"
#include "spatial/nearest_face.h"

namespace povmesh {
namespace {

constexpr std::uint32_t kNone = HalfEdgeMesh::kNone;

// Rounds of filling holes and parting what touches itself; most need one.
constexpr int kMostRounds = 8;

// Cosine below which a face looks the other way: beyond a wall or a gap, not around an edge.
constexpr double kOpposite = -0.5;

// Twice the area of a triangle beside the squares of its edges counts as no less than this.
constexpr double kLeastArea = 1e-4;

// Lines are led across a strip so far, in margins.
constexpr double kReach = 4;

// Corners of one loop times those of the other, at most: beyond it is no small place any more.
constexpr std::size_t kMostPairs = 4'000'000;

std::size_t index(std::int32_t v) {
    return static_cast<std::size_t>(v);
}

Vec3d middle(const HalfEdgeMesh& mesh, std::size_t t) {
    const std::array<std::int32_t, 3>& v = mesh.triangles[t];
    return (mesh.position(v[0]) + mesh.position(v[1]) + mesh.position(v[2])) / 3.0;
}

using Loop = std::vector<std::uint32_t>;  // half-edges, one after the other

// Some triangles of a surface, and their borders.
class Region {
public:
    Region(const HalfEdgeMesh& mesh, Array<std::uint8_t> takes)
        : mesh_(mesh), takes_(std::move(takes)) {}

    const HalfEdgeMesh& mesh() const { return mesh_; }
    bool has(std::size_t t) const { return takes_[t] != 0; }
    Array<std::uint8_t>& takes() { return takes_; }
    const Array<std::uint8_t>& takes() const { return takes_; }

    // Fills small holes, and takes in what lies around the vertices where the border touches
    // itself. False where the region reaches an edge without an opposite.
    bool settle() {
        for (int round = 0; round < kMostRounds; ++round) {
            fill_holes();
            if (!is_inside()) return false;
            if (!mend_pinches()) return true;
        }
        return false;
    }

    bool is_border(std::uint32_t h) const { return has(h / 3) && !has(mesh_.opposites[h] / 3); }

    std::vector<Loop> loops() const {
        std::vector<Loop> found;
        Array<std::uint8_t> is_done(mesh_.opposites.size(), 0);
        visit_half_edges([&](std::uint32_t first) {
            if (!is_border(first) || is_done[first] != 0) return;
            Loop loop;
            for (std::uint32_t h = first; is_done[h] == 0; h = next_on_border(h)) {
                is_done[h] = 1;
                loop.push_back(h);
            }
            found.push_back(std::move(loop));
        });
        return found;
    }

    // By triangle: 1 and up, for those that hang together; 0 outside.
    Array<std::uint32_t> parts(std::uint32_t& count) const {
        return flood([&](std::size_t t) { return has(t); }, count);
    }

private:
    template <typename Visit>
    void visit_half_edges(Visit&& visit) const {
        for (std::uint32_t t = 0; t < takes_.size(); ++t) {
            if (!has(t)) continue;
            for (std::uint32_t h = 3 * t; h < 3 * t + 3; ++h) visit(h);
        }
    }

    std::uint32_t next_on_border(std::uint32_t h) const {
        h = HalfEdgeMesh::next(h);
        while (has(mesh_.opposites[h] / 3)) h = HalfEdgeMesh::next(mesh_.opposites[h]);
        return h;
    }

    template <typename Within>
    Array<std::uint32_t> flood(Within&& within, std::uint32_t& count) const {
        Array<std::uint32_t> labels(takes_.size(), 0);
        std::vector<std::uint32_t> waiting;
        count = 0;
        for (std::uint32_t t = 0; t < labels.size(); ++t) {
            if (mesh_.is_gone(t) || labels[t] != 0 || !within(t)) continue;
            labels[t] = ++count;
            waiting.push_back(t);
            while (!waiting.empty()) {
                const std::uint32_t at = waiting.back();
                waiting.pop_back();
                for (std::uint32_t h = 3 * at; h < 3 * at + 3; ++h) {
                    if (mesh_.opposites[h] == kNone) continue;
                    const std::uint32_t beyond = mesh_.opposites[h] / 3;
                    if (labels[beyond] != 0 || !within(beyond)) continue;
                    labels[beyond] = count;
                    waiting.push_back(beyond);
                }
            }
        }
        return labels;
    }

    // What the region goes around, and is smaller than it.
    void fill_holes() {
        std::uint32_t count = 0;
        const Array<std::uint32_t> outside = flood([&](std::size_t t) { return !has(t); }, count);
        std::vector<std::size_t> sizes(count + 1, 0);
        for (const std::uint32_t label : outside) ++sizes[label];
        const auto size =
            static_cast<std::size_t>(std::count(takes_.begin(), takes_.end(), std::uint8_t{1}));
        std::vector<std::uint8_t> is_hole(count + 1, 0);
        visit_half_edges([&](std::uint32_t h) {
            if (mesh_.opposites[h] == kNone || !is_border(h)) return;
            const std::uint32_t label = outside[mesh_.opposites[h] / 3];
            if (sizes[label] < size) is_hole[label] = 1;
        });
        is_hole[0] = 0;
        for (std::size_t t = 0; t < takes_.size(); ++t) takes_[t] |= is_hole[outside[t]];
    }

    bool is_inside() const {
        bool is = true;
        visit_half_edges([&](std::uint32_t h) {
            const std::uint8_t kind = mesh_.kinds[index(mesh_.origin(h))];
            is = is && mesh_.opposites[h] != kNone && kind != HalfEdgeMesh::Irregular &&
                 !mesh_.is_open(mesh_.origin(h));
        });
        return is;
    }

    bool mend_pinches() {
        std::vector<std::int32_t> ends;
        visit_half_edges([&](std::uint32_t h) {
            if (is_border(h)) ends.push_back(mesh_.origin(h));
        });
        std::sort(ends.begin(), ends.end());
        bool any = false;
        for (std::size_t i = 1; i < ends.size(); ++i) {
            if (ends[i] != ends[i - 1]) continue;
            mesh_.around(ends[i], [&](std::uint32_t h) { takes_[h / 3] = 1; });
            any = true;
        }
        return any;
    }

    const HalfEdgeMesh& mesh_;
    Array<std::uint8_t> takes_;
};

// The triangles of a surface that lie beside those of a region of the other, on the same side.
Array<std::uint8_t> triangles_beside(const HalfEdgeMesh& made, const TriMesh& patch,
                                     double margin) {
    const NearestFace tree(patch);
    Array<std::uint8_t> takes(made.triangles.size(), 0);
    parallel_for(takes.size(), [&](std::size_t t) {
        if (made.is_gone(t)) return;
        Box3d box;
        for (const std::int32_t v : made.triangles[t]) box.widen(made.position(v));
        Box3f grown;
        for (const Vec3d p :
             {box.low - Vec3d{margin, margin, margin}, box.high + Vec3d{margin, margin, margin}}) {
            grown.widen({narrow_to_float(p.x), narrow_to_float(p.y), narrow_to_float(p.z)});
        }
        if (!tree.tree().visit_overlapping(grown, [](std::uint32_t) { return true; })) return;
        const Vec3d normal = made.normal(t);
        const double size = length(normal);
        const Vec3d direction = size > 0 ? normal / size : Vec3d{};
        const auto is_beside = [&](Vec3d p) {
            return (size > 0 ? tree.find_facing(p, direction, kOpposite, margin * margin)
                             : tree.find(p, margin * margin))
                .is_found();
        };
        bool takes_it = is_beside(middle(made, t));
        for (std::uint32_t h = static_cast<std::uint32_t>(3 * t); h < 3 * t + 3; ++h) {
            const Vec3d a = made.position(made.origin(h));
            const Vec3d b = made.position(made.target(h));
            takes_it = takes_it || is_beside(a) || is_beside((a + b) * 0.5);
        }
        takes[t] = takes_it ? 1 : 0;
    });
    return takes;
}

// Places along a loop where a feature line crosses it: seen from a region that is cut away, or from
// one that is put in its place.
std::vector<std::size_t> crossings(const Region& region, const Loop& loop, bool is_cut) {
    const HalfEdgeMesh& mesh = region.mesh();
    std::vector<std::size_t> found;
    for (std::size_t i = 0; i < loop.size(); ++i) {
        bool any = false;
        mesh.around(mesh.origin(loop[i]), [&](std::uint32_t h) {
            const bool first = region.has(h / 3);
            const bool second = region.has(mesh.opposites[h] / 3);
            any = any || (mesh.features[h] != 0 && first == is_cut && second == is_cut);
        });
        if (any) found.push_back(i);
    }
    return found;
}

class Strip {
public:
    Strip(const Region& outer, const Loop& outer_loop, const Region& inner, const Loop& inner_loop,
          double reach)
        : outer_(corners(outer, outer_loop)), inner_(corners(inner, inner_loop)), reach_(reach) {
        outer_marks_ = crossings(outer, outer_loop, true);
        inner_marks_ = crossings(inner, inner_loop, false);
    }

    // Triangles of corners: those of the outer loop as they are, of the inner one as ~vertex.
    bool run(std::vector<std::array<std::int32_t, 3>>& triangles) {
        if (outer_.size() * inner_.size() > kMostPairs) return false;
        const std::vector<Joint> joints = find_joints();
        for (std::size_t i = 0; i < joints.size(); ++i) {
            const Joint& next = joints[i + 1 == joints.size() ? 0 : i + 1];
            join(section(outer_, joints[i].outer, next.outer),
                 section(inner_, joints[i].inner, next.inner), triangles);
        }
        return true;
    }

private:
    struct Corner {
        std::int32_t vertex;
        Vec3d place;
        Vec3d normal;
    };
    using Corners = std::vector<Corner>;

    static Corners corners(const Region& region, const Loop& loop) {
        Corners found;
        for (const std::uint32_t h : loop) {
            const HalfEdgeMesh& mesh = region.mesh();
            const std::int32_t v = mesh.origin(h);
            Vec3d normal;
            mesh.around(v, [&](std::uint32_t e) { normal = normal + mesh.normal(e / 3); });
            const double size = length(normal);
            found.push_back({v, mesh.position(v), size > 0 ? normal / size : normal});
        }
        return found;
    }

    static double square(const Corner& a, const Corner& b) {
        return dot(a.place - b.place, a.place - b.place);
    }

    // The less the worse its shape is, or its side: of equal shapes, the square of the size.
    static double badness(const Corner& a, const Corner& b, const Corner& c) {
        const double squares = square(a, b) + square(b, c) + square(c, a);
        const Vec3d side = a.normal + b.normal + c.normal;
        const double area = dot(cross(b.place - a.place, c.place - a.place), side);
        return squares * squares / std::max(area, kLeastArea * squares);
    }

    struct Joint {
        std::size_t outer = 0;
        std::size_t inner = 0;
        double square = std::numeric_limits<double>::max();
    };

    Joint nearest(std::size_t outer, std::span<const std::size_t> inner) const {
        Joint best;
        for (const std::size_t j : inner) {
            const double away = square(outer_[outer], inner_[j]);
            if (away < best.square) best = {outer, j, away};
        }
        return best;
    }

    // Corners that are joined whatever is between them, in the order along both loops: where the
    // same line crosses both, but at least the two that are nearest.
    std::vector<Joint> find_joints() const {
        std::vector<Joint> waiting;
        for (const std::size_t i : outer_marks_) {
            const Joint joint = nearest(i, inner_marks_);
            if (joint.square < reach_ * reach_) waiting.push_back(joint);
        }
        if (waiting.empty()) {
            std::vector<std::size_t> all(inner_.size());
            std::iota(all.begin(), all.end(), std::size_t{0});
            for (std::size_t i = 0; i < outer_.size(); ++i) waiting.push_back(nearest(i, all));
        }
        const auto first =
            std::min_element(waiting.begin(), waiting.end(),
                             [](const Joint& a, const Joint& b) { return a.square < b.square; });
        if (outer_marks_.empty() || inner_marks_.empty()) return {*first};
        std::rotate(waiting.begin(), first, waiting.end());
        std::vector<Joint> joints = {waiting[0]};
        const auto place = [&](std::size_t inner) {
            return (inner + inner_.size() - waiting[0].inner) % inner_.size();
        };
        for (const Joint& joint : waiting) {
            if (place(joint.inner) > place(joints.back().inner)) joints.push_back(joint);
        }
        return joints;
    }

    // With both ends; all of the loop where they are one.
    static Corners section(const Corners& loop, std::size_t from, std::size_t to) {
        Corners found = {loop[from]};
        do {
            from = (from + 1) % loop.size();
            found.push_back(loop[from]);
        } while (from != to);
        return found;
    }

    static void join(const Corners& a, const Corners& b,
                     std::vector<std::array<std::int32_t, 3>>& triangles) {
        constexpr double kFar = std::numeric_limits<double>::infinity();
        const std::size_t width = b.size();
        std::vector<double> costs(a.size() * width, 0);
        const auto cost = [&](std::size_t i, std::size_t j) -> double& {
            return costs[i * width + j];
        };
        const auto from_a = [&](std::size_t i, std::size_t j) {
            return i > 0 ? cost(i - 1, j) + badness(a[i - 1], a[i], b[j]) : kFar;
        };
        const auto from_b = [&](std::size_t i, std::size_t j) {
            return j > 0 ? cost(i, j - 1) + badness(a[i], b[j], b[j - 1]) : kFar;
        };
        for (std::size_t i = 0; i < a.size(); ++i) {
            for (std::size_t j = 0; j < width; ++j) {
                if (i + j != 0) cost(i, j) = std::min(from_a(i, j), from_b(i, j));
            }
        }
        for (std::size_t i = a.size() - 1, j = width - 1; i + j > 0;) {
            if (from_a(i, j) <= from_b(i, j)) {
                triangles.push_back({a[i - 1].vertex, a[i].vertex, ~b[j].vertex});
                --i;
            } else {
                triangles.push_back({a[i].vertex, ~b[j].vertex, ~b[j - 1].vertex});
                --j;
            }
        }
    }

    Corners outer_, inner_;
    std::vector<std::size_t> outer_marks_, inner_marks_;
    double reach_;
};

// How far the corners of a loop are from those of another on the same side of a wall, on the
// average.
double mean_distance(const Region& from, const Loop& loop, const Region& to, const Loop& other) {
    double sum = 0;
    for (const std::uint32_t h : loop) {
        const Vec3d p = from.mesh().position(from.mesh().origin(h));
        const Vec3d normal = from.mesh().normal(h / 3);
        double least = std::numeric_limits<double>::infinity();
        for (const std::uint32_t g : other) {
            const Vec3d away = to.mesh().position(to.mesh().origin(g)) - p;
            if (dot(away, away) < least && dot(normal, to.mesh().normal(g / 3)) > 0) {
                least = dot(away, away);
            }
        }
        sum += std::sqrt(least);
    }
    return sum / static_cast<double>(loop.size());
}

class Surgeon {
public:
    Surgeon(const HalfEdgeMesh& original, const NearestFace& tree, const HalfEdgeMesh& made,
            Array<std::uint8_t> takes, double margin)
        : tree_(tree), inner_(original, std::move(takes)), made_(made), margin_(margin) {}

    std::optional<Transplant> run() {
        if (!inner_.settle()) return std::nullopt;
        const TriMesh patch =
            inner_.mesh().plain_mesh([&](std::size_t t) { return inner_.has(t); });
        outer_.emplace(made_, triangles_beside(made_, patch, margin_));
        if (!outer_->settle() || !join_loops()) return std::nullopt;
        Transplant result;
        assemble(patch, result);
        if (!faces_along(result)) return std::nullopt;
        return result;
    }

private:
    // One to one, part by part. What was cut away beside the patch where none of it is stays.
    bool join_loops() {
        std::uint32_t inner_count = 0;
        std::uint32_t outer_count = 0;
        const Array<std::uint32_t> inner_parts = inner_.parts(inner_count);
        const Array<std::uint32_t> outer_parts = outer_->parts(outer_count);
        const std::vector<Loop> inner_loops = inner_.loops();
        const std::vector<Loop> outer_loops = outer_->loops();
        std::vector<std::uint8_t> has_loops(inner_count + 1, 0);
        std::vector<std::uint8_t> is_met(outer_count + 1, 0);
        std::vector<std::uint8_t> is_joined(outer_loops.size(), 0);
        std::vector<std::uint32_t> partners(inner_count + 1, 0);
        for (const Loop& loop : inner_loops) {
            std::size_t best = outer_loops.size();
            double least = std::numeric_limits<double>::infinity();
            for (std::size_t i = 0; i < outer_loops.size(); ++i) {
                const double away = mean_distance(inner_, loop, *outer_, outer_loops[i]);
                if (away < least) best = i;
                least = std::min(least, away);
            }
            if (best == outer_loops.size() || is_joined[best] != 0) return false;
            is_joined[best] = 1;
            const std::uint32_t part = inner_parts[loop[0] / 3];
            const std::uint32_t partner = outer_parts[outer_loops[best][0] / 3];
            if (partners[part] != 0 && partners[part] != partner) return false;
            if (partners[part] == 0 && is_met[partner] != 0) return false;
            partners[part] = partner;
            has_loops[part] = is_met[partner] = 1;
            if (!Strip(*outer_, outer_loops[best], inner_, loop, kReach * margin_).run(strip_))
                return false;
        }
        for (std::uint32_t part = 1; part <= inner_count; ++part) {
            if (has_loops[part] == 0) return false;  // all of a shell
        }
        for (std::size_t i = 0; i < outer_loops.size(); ++i) {
            if (is_met[outer_parts[outer_loops[i][0] / 3]] != is_joined[i]) return false;
        }
        for (std::size_t t = 0; t < outer_parts.size(); ++t) {
            if (is_met[outer_parts[t]] == 0) outer_->takes()[t] = 0;
        }
        return true;
    }

    void assemble(const TriMesh& patch, Transplant& result) const {
        result.mesh = made_.plain_mesh([&](std::size_t t) { return !outer_->has(t); });
        TriMesh& mesh = result.mesh;
        const std::size_t first_new = mesh.faces.size();
        const auto shift = static_cast<std::int32_t>(mesh.vertices.size());
        for (const Vertex& vertex : patch.vertices) {
            mesh.vertices.push_back(vertex);
            mesh.vertices.back().index = static_cast<std::int32_t>(mesh.vertices.size()) - 1;
        }
        const auto add = [&](Face face) {
            for (std::int32_t& v : face.vertex) v += shift;
            mesh.faces.push_back(face);
        };
        for (const Face& face : patch.faces) add(face);
        for (const std::array<std::int32_t, 3>& triangle : strip_) {
            Face face = patch.faces[0];
            for (std::size_t c = 0; c < 3; ++c) {
                face.vertex[c] = triangle[c] < 0 ? ~triangle[c] : triangle[c] - shift;
            }
            add(face);
        }
        result.is_changed.assign(mesh.faces.size(), 0);
        std::fill(result.is_changed.begin() + static_cast<std::ptrdiff_t>(first_new),
                  result.is_changed.end(), 1);
        result.is_removed = outer_->takes();
        for (std::uint32_t t = 0; t < inner_.mesh().triangles.size(); ++t) {
            if (inner_.has(t)) result.kept.push_back(t);
        }
    }

    // True where the strip is near to the original, and shows the side that it shows.
    bool faces_along(const Transplant& result) const {
        const TriMesh& mesh = result.mesh;
        for (std::size_t f = mesh.faces.size() - strip_.size(); f < mesh.faces.size(); ++f) {
            const Face& face = mesh.faces[f];
            const Vec3d a = to_double(mesh.corner_position(face, 0));
            const Vec3d b = to_double(mesh.corner_position(face, 1));
            const Vec3d c = to_double(mesh.corner_position(face, 2));
            const Vec3d normal = cross(b - a, c - a);
            const double size = length(normal);
            if (!(size > 0)) return false;
            if (!tree_.find_facing((a + b + c) / 3.0, normal / size, 0, margin_ * margin_)
                     .is_found()) {
                return false;
            }
        }
        return true;
    }

    const NearestFace& tree_;
    Region inner_;
    const HalfEdgeMesh& made_;
    std::optional<Region> outer_;
    double margin_;
    std::vector<std::array<std::int32_t, 3>> strip_;
};

}  // namespace

std::optional<Transplant> transplant(const HalfEdgeMesh& original, const NearestFace& tree,
                                     const HalfEdgeMesh& made, Array<std::uint8_t> takes,
                                     double margin) {
    return Surgeon(original, tree, made, std::move(takes), margin).run();
}

}  // namespace povmesh
