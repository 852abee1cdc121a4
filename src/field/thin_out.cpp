// Half-edge collapses in passes. A pass takes vertices that are not neighbours of one another, so
// that flat places thin out evenly; a vertex is looked at again when something changed beside it.
//
// Large meshes are thinned out brick by brick first, several at a time: only vertices whose
// neighbours all lie in the same brick go, and what a collapse writes belongs to these. Then in
// bricks that are moved by half a side, and what is left at their borders at last in one piece.
#include "field/thin_out.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include "base/convert.h"
#include "base/parallel.h"
#include "base/poll.h"
#include "mesh/bounds.h"
#include "remesh/collapse_mesh.h"
#include "remesh/collapse_round.h"
#include "spatial/face_tree.h"
#include "spatial/self_intersection.h"

namespace povmesh {
namespace {

// Cosine of a degree, which a face may turn.
constexpr double kMostTurn = 0.99985;

// Height of a triangle as a share of its longest edge, below which it must not fall.
constexpr double kLeastHeight = 0.02;

// Vertices of more triangles stay, and none is made; rings of more do not fit OneRing.
constexpr std::size_t kMostRemoved = 24;
constexpr std::size_t kMostValence = 56;

constexpr int kPasses = 200;
constexpr int kAttempts = 4;

// Meshes of more vertices are divided into bricks of about so many vertices.
constexpr std::size_t kUndivided = 50000;
constexpr double kBrickVertices = 20000;
constexpr double kSidesOfBox = 6;
constexpr double kMostBricks = 40;  // along a side

// Crossings listed in a search; the vertices around all of them stay.
constexpr std::size_t kCrossingsListed = 100000;

class ThinOut {
public:
    ThinOut(TriMesh& mesh, double tolerance, const Array<std::uint8_t>& stays)
        : mesh_(mesh), tolerance_(tolerance), work_(make_collapse_mesh(mesh, OpenBorders::Fixed)) {
        const std::size_t triangles = work_.triangles.size();
        normals_.resize(triangles);
        parallel_for(triangles, [&](std::size_t t) {
            const auto& v = work_.triangles[t];
            const Vec3d n = cross(place(v[1]) - place(v[0]), place(v[2]) - place(v[0]));
            const double size = length(n);
            const Vec3d u = size > 0 ? n / size : Vec3d{};
            normals_[t] = {static_cast<float>(u.x), static_cast<float>(u.y),
                           static_cast<float>(u.z)};
        });
        errors_.assign(mesh.vertices.size(), 0);
        touched_.assign(mesh.vertices.size(), 0);
        is_waiting_.assign(mesh.vertices.size(), 0);
        stays_ = &stays;
        for (std::uint32_t v = 0; v < mesh.vertices.size(); ++v) {
            poll_at(v);
            wait(v, waiting_);
        }
    }

    std::size_t run() {
        std::size_t removed = 0;
        if (waiting_.size() > kUndivided) {
            for (const double shift : {0.0, 0.5}) removed += run_bricks(shift);
        }
        bricks_.clear();
        return removed + run_passes(waiting_, first_pass_, nullptr);
    }

    // The live triangles as a mesh of their own.
    TriMesh result() const {
        TriMesh mesh;
        Array<std::int32_t> numbers(mesh_.vertices.size(), -1);
        for (std::size_t t = 0; t < work_.triangles.size(); ++t) {
            poll_at(t);
            if (work_.is_gone(t)) continue;
            Face face{};
            face.colour.fill(255);
            face.label = -1;
            face.uv.fill(-1);
            for (std::size_t c = 0; c < 3; ++c) {
                const auto v = static_cast<std::size_t>(work_.triangles[t][c]);
                if (numbers[v] < 0) {
                    numbers[v] = fits<std::int32_t>(mesh.vertices.size());
                    Vertex vertex = mesh_.vertices[v];
                    vertex.index = numbers[v];
                    mesh.vertices.push_back(vertex);
                }
                face.vertex[c] = numbers[v];
            }
            mesh.faces.push_back(face);
        }
        return mesh;
    }

private:
    Vec3d place(std::int32_t v) const {
        return to_double(mesh_.vertices[static_cast<std::size_t>(v)].position());
    }

    using Queue = Array<std::uint32_t>;

    void wait(std::uint32_t v, Queue& waiting) {
        if (is_waiting_[v] != 0 || work_.is_fixed[v] != 0 || (*stays_)[v] != 0) return;
        is_waiting_[v] = 1;
        waiting.push_back(v);
    }

    // Until nothing is left to do. Vertices at the border of a brick are put aside, if there is
    // another time for them.
    std::size_t run_passes(Queue& waiting, int first_pass, Queue* aside) {
        std::size_t removed = 0;
        for (int pass = first_pass; pass < first_pass + kPasses && !waiting.empty(); ++pass) {
            Queue now;
            now.swap(waiting);
            polled_sort(now.begin(), now.end(), std::less<>());
            for (const std::uint32_t v : now) is_waiting_[v] = 0;
            std::size_t taken = 0;
            Poller poller;
            for (const std::uint32_t v : now) {
                poller();
                if (touched_[v] == pass) {
                    wait(v, waiting);
                } else if (work_.starts[v] != CollapseMesh::kNone) {
                    const Taken outcome = take(v, pass, waiting);
                    taken += outcome == Taken::Yes ? 1 : 0;
                    if (outcome == Taken::AtBorder) aside->push_back(v);
                }
            }
            removed += taken;
            if (taken == 0) break;
        }
        return removed;
    }

    std::size_t run_bricks(double shift) {
        const std::uint32_t count = find_bricks(shift);
        std::vector<Queue> queues(count);
        Poller poller;
        for (const std::uint32_t v : waiting_) {
            poller();
            queues[bricks_[v]].push_back(v);
        }
        std::vector<Queue> aside(count);
        std::vector<std::size_t> removed(count, 0);
        for_blocks(count, [&](std::size_t b) {
            removed[b] = run_passes(queues[b], first_pass_, &aside[b]);
        });
        first_pass_ += kPasses;
        waiting_.clear();
        std::size_t sum = 0;
        for (std::uint32_t b = 0; b < count; ++b) {
            sum += removed[b];
            for (const Queue* left : {&queues[b], &aside[b]}) {
                for (const std::uint32_t v : *left) {
                    poller();
                    is_waiting_[v] = 0;
                    wait(v, waiting_);
                }
            }
        }
        return sum;
    }

    // Which brick each vertex lies in; returns their number.
    std::uint32_t find_bricks(double shift) {
        const Box3f box = finite_bounds(mesh_);
        const Vec3d low = to_double(box.low);
        const Vec3d extent = to_double(box.high) - low;
        const double count = static_cast<double>(mesh_.vertices.size());
        const double sides = std::clamp(
            std::round(std::sqrt(count / (kSidesOfBox * kBrickVertices))), 2.0, kMostBricks);
        const double size = std::max({extent.x, extent.y, extent.z}) / sides;
        const auto per_axis = static_cast<std::uint32_t>(sides) + 2;
        const auto index = [&](double x) {
            const double brick = std::floor(x / size + shift);
            return std::min(saturate_to<std::uint32_t>(brick), per_axis - 1);
        };
        bricks_.resize(mesh_.vertices.size());
        parallel_for(bricks_.size(), [&](std::size_t v) {
            const Vec3d p = place(static_cast<std::int32_t>(v)) - low;
            bricks_[v] = (index(p.z) * per_axis + index(p.y)) * per_axis + index(p.x);
        });
        return per_axis * per_axis * per_axis;
    }

    bool is_within_brick(std::uint32_t v, const OneRing& ring) const {
        return bricks_.empty() || std::all_of(ring.begin(), ring.end(), [&](std::uint32_t h) {
                   return bricks_[static_cast<std::size_t>(work_.target(h))] == bricks_[v];
               });
    }

    // How the triangles around a vertex would be with it merged into one of its neighbours: their
    // least height, below 0 when it must not be; and how far the surface would move.
    struct Outcome {
        double height = -1;
        double error = 0;
    };

    Outcome try_merge(const OneRing& ring, std::uint32_t into, Vec3d from, double allowed) const {
        const std::int32_t keeper = work_.target(into);
        const Vec3d p = place(keeper);
        Outcome outcome{HUGE_VAL, 0};
        for (const std::uint32_t h : ring) {
            const std::int32_t b = work_.target(h);
            const std::int32_t c = work_.apex(h);
            if (b == keeper || c == keeper) continue;
            const Vec3d pb = place(b);
            const Vec3d pc = place(c);
            const Vec3d n = cross(pb - p, pc - p);
            const double area = length(n);
            const Vec3d was = to_double(normals_[h / 3]);
            if (!(dot(n, was) >= kMostTurn * area) || !(area > 0)) return {};
            const double longest =
                std::max({dot(pb - p, pb - p), dot(pc - p, pc - p), dot(pc - pb, pc - pb)});
            outcome.height = std::min(outcome.height, area / longest);
            outcome.error = std::max(outcome.error, std::abs(dot(n, from - p)) / area);
            if (!(outcome.error <= allowed)) return {};
        }
        return outcome;
    }

    double least_height(const OneRing& ring, Vec3d from) const {
        double least = HUGE_VAL;
        for (const std::uint32_t h : ring) {
            const Vec3d pb = place(work_.target(h));
            const Vec3d pc = place(work_.apex(h));
            const double area = length(cross(pb - from, pc - from));
            const double longest = std::max(
                {dot(pb - from, pb - from), dot(pc - from, pc - from), dot(pc - pb, pc - pb)});
            least = std::min(least, area / longest);
        }
        return least;
    }

    // The two have just the two neighbours in common whose triangles go.
    bool is_linked_well(const OneRing& ring, std::uint32_t into, std::size_t valence) const {
        const OneRing other(work_, next_half_edge(into));
        if (other.size + valence - 4 > kMostValence) return false;
        std::size_t common = 0;
        for (const std::uint32_t h : other) {
            const std::int32_t r = work_.target(h);
            for (const std::uint32_t own : ring) common += work_.target(own) == r ? 1 : 0;
        }
        return common == 2;
    }

    enum class Taken : std::uint8_t { No, Yes, AtBorder };

    Taken take(std::uint32_t v, int pass, Queue& waiting) {
        const OneRing ring(work_, work_.starts[v]);
        if (ring.size > kMostRemoved || ring.size < 3) return Taken::No;
        if (!is_within_brick(v, ring)) return Taken::AtBorder;
        const Vec3d from = to_double(mesh_.vertices[v].position());
        const double allowed = tolerance_ - static_cast<double>(errors_[v]);
        std::uint32_t best = CollapseMesh::kNone;
        Outcome best_outcome;
        for (const std::uint32_t h : ring) {
            const Outcome outcome = try_merge(ring, h, from, allowed);
            if (outcome.height > best_outcome.height && is_linked_well(ring, h, ring.size)) {
                best = h;
                best_outcome = outcome;
            }
        }
        if (best == CollapseMesh::kNone) return Taken::No;
        if (best_outcome.height < kLeastHeight && best_outcome.height < least_height(ring, from)) {
            return Taken::No;
        }
        for (const std::uint32_t h : ring) {
            const auto r = static_cast<std::uint32_t>(work_.target(h));
            touched_[r] = pass;
            wait(r, waiting);
        }
        merge(v, ring, best, static_cast<float>(best_outcome.error));
        return Taken::Yes;
    }

    // Merges v into the target of `into`: the triangles on both sides of that edge go.
    void merge(std::uint32_t v, const OneRing& ring, std::uint32_t into, float error) {
        const std::int32_t keeper = work_.target(into);
        const float sum = errors_[v] + error;
        for (const std::uint32_t h : ring) {
            const auto r = static_cast<std::size_t>(work_.target(h));
            errors_[r] = std::max(errors_[r], sum);
        }
        for (const std::uint32_t h : ring) work_.triangles[h / 3][h % 3] = keeper;
        close(into);
        close(work_.opposites[into]);
        work_.starts[v] = CollapseMesh::kNone;
    }

    // Takes a triangle out whose edge h has become a point; its other two edges become one.
    void close(std::uint32_t h) {
        const std::uint32_t next = next_half_edge(h);
        const std::uint32_t previous = previous_half_edge(h);
        const std::uint32_t a = work_.opposites[next];
        const std::uint32_t b = work_.opposites[previous];
        work_.opposites[a] = b;
        work_.opposites[b] = a;
        work_.starts[static_cast<std::size_t>(work_.origin(a))] = a;
        work_.starts[static_cast<std::size_t>(work_.origin(b))] = b;
        work_.triangles[h / 3][0] = CollapseMesh::kGone;
    }

    TriMesh& mesh_;
    double tolerance_;
    CollapseMesh work_;
    Array<Vec3f> normals_;  // of the triangles, as they were at first
    Array<float> errors_;   // how far the surface may have moved around a vertex
    Array<int> touched_;    // the last pass that changed something around a vertex
    Queue waiting_;
    Array<std::uint8_t> is_waiting_;
    Array<std::uint32_t> bricks_;  // by vertex; empty while nothing is divided
    int first_pass_ = 1;
    const Array<std::uint8_t>* stays_;
};

// The vertices of faces that cross and of those around, in the mesh that was thinned out: they
// stay. Places tell them, because the numbers changed.
void hold_around(const TriMesh& thinned, const SelfIntersections& crossings, TriMesh& mesh,
                 Array<std::uint8_t>& stays) {
    Array<Box3f> boxes;
    for (const FacePair& pair : crossings.pairs) {
        Box3f box;
        for (const std::uint32_t f : {pair.first, pair.second}) {
            for (std::size_t c = 0; c < 3; ++c) {
                box.widen(thinned.corner_position(thinned.faces[f], c));
            }
        }
        boxes.push_back(box);
    }
    const FaceTree tree(boxes);
    parallel_for(mesh.vertices.size(), [&](std::size_t v) {
        const Vec3f p = mesh.vertices[v].position();
        if (tree.visit_overlapping({p, p}, [](std::uint32_t) { return true; })) stays[v] = 1;
    });
}

}  // namespace

ThinOutReport thin_out(TriMesh& mesh, double tolerance) {
    ThinOutReport report;
    Array<std::uint8_t> stays(mesh.vertices.size(), 0);
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        ThinOut work(mesh, tolerance, stays);
        const std::size_t removed = work.run();
        ++report.attempts;
        if (removed == 0) return report;
        TriMesh thinned = work.result();
        const SelfIntersections crossings = find_self_intersections(thinned, kCrossingsListed);
        if (crossings.count == 0) {
            mesh = std::move(thinned);
            report.removed = removed;
            return report;
        }
        hold_around(thinned, crossings, mesh, stays);
    }
    return report;
}

}  // namespace povmesh
