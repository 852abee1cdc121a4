// Runs of the remesher, each looked through, until one is sound: a first with the lengths as
// wanted, some with lower ones where the one before has lost or spoiled something, and then some
// that leave more and more of the original around what is still spoiled.
#include "remesh/remesh.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <queue>
#include <utility>
#include <vector>

#include "base/convert.h"
#include "base/parallel.h"
#include "mesh/compact.h"
#include "mesh/edge_mates.h"
#include "remesh/carry_attributes.h"
#include "remesh/features.h"
#include "remesh/half_edge_mesh.h"
#include "remesh/local_lengths.h"
#include "remesh/remesh_review.h"
#include "remesh/remesher.h"
#include "remesh/sizing_field.h"
#include "spatial/nearest_face.h"

namespace povmesh {
namespace {

// More triangles than this many times those expected and those there are not made: an end to
// splitting whatever the input.
constexpr double kMostOfExpected = 4;

// Runs with lower lengths, and runs that keep faces of the original.
constexpr int kRefinements = 6;
constexpr int kKeeps = 6;

// Runs in a row that may come out without a tenth less spoiled than the best.
constexpr int kMostWithoutGain = 2;

// Each run keeps this many times as far around what is spoiled as the one before.
constexpr double kNextKeep = 1.5;

// After the first run only what is off by this many times what it may be is seen to.
constexpr double kSecondTolerance = 1.6;

// Steps that lower lengths little, and only where the faces are that cross.
constexpr int kGentleSteps = 2;
constexpr double kWiderReach = 1.5;

// By these factors lengths are lowered where faces cross, at first and later.
constexpr double kSpoiledShortening = 0.7;
constexpr double kSecondShortening = 0.5;

// Where a wall asks for less than this share of the length, all of the wall is seen to.
constexpr double kThinWall = 0.6;

// Share of the vertices that must have been lost for another run.
constexpr double kLeastLost = 0.01;

// Values not positive or not finite become the mean edge of their face, or 1 where that is not
// either.
Array<float> usable_lengths(const TriMesh& mesh, const RemeshOptions& options) {
    Array<float> lengths(mesh.faces.size());
    for (std::size_t f = 0; f < lengths.size(); ++f) {
        float l = options.face_lengths.empty() ? narrow_to_float(options.edge_length)
                                               : options.face_lengths[f];
        if (!(l > 0) || !std::isfinite(l)) {
            const Face& face = mesh.faces[f];
            l = 0;
            for (std::size_t c = 0; c < 3; ++c) {
                l += length(mesh.corner_position(face, (c + 1) % 3) -
                            mesh.corner_position(face, c)) /
                     3;
            }
        }
        lengths[f] = (l > 0 && std::isfinite(l) ? l : 1.0F) * static_cast<float>(Remesher::kAim);
    }
    return lengths;
}

bool has_finite_vertices(const TriMesh& mesh) {
    return std::all_of(mesh.vertices.begin(), mesh.vertices.end(),
                       [](const Vertex& v) { return is_finite(v.position()); });
}

// Edges longer than this many times the length are divided beforehand, so that lengths and
// distances are known all over large faces.
constexpr double kBaseEdge = 2;

// The surface with its long edges divided where they run, and the face of the mesh that each of its
// triangles is a part of.
struct Base {
    HalfEdgeMesh surface;
    Array<std::uint32_t> owners;
};

Array<float> lengths_of_parts(const Array<std::uint32_t>& owners, std::span<const float> lengths) {
    Array<float> all(owners.size());
    for (std::size_t t = 0; t < all.size(); ++t) all[t] = lengths[owners[t]];
    return all;
}

class BaseMaker {
public:
    BaseMaker(TriMesh& mesh, double feature_angle, std::span<const float> face_lengths)
        : base_{HalfEdgeMesh(mesh, EdgeMates(mesh)), {}}, face_lengths_(face_lengths) {
        for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
            if (mesh.faces[f].deleted == 0) base_.owners.push_back(static_cast<std::uint32_t>(f));
        }
        mark_features(base_.surface, mesh, feature_angle,
                      lengths_of_parts(base_.owners, face_lengths));
    }

    Base run() {
        const HalfEdgeMesh& surface = base_.surface;
        std::priority_queue<LongEdge> waiting;
        double pieces = 0;
        double area = 0;
        for (std::uint32_t h = 0; h < surface.opposites.size(); ++h) {
            if (h % 3 == 0) area += length(surface.normal(h / 3)) / squared(wanted(h / 3));
            const std::uint32_t g = surface.opposites[h];
            if ((g != HalfEdgeMesh::kNone && g < h) || !is_long(h)) continue;
            pieces += std::sqrt(surface.squared_length(h)) / limit(h);
            waiting.push({surface.squared_length(h), h});
        }
        // Of a multitude of needles most pieces would be there to be collapsed again.
        if (pieces > 2 * (area + static_cast<double>(surface.triangles.size()))) return base_;
        const double most = static_cast<double>(surface.triangles.size()) + 8 * (pieces + area);
        while (!waiting.empty() && static_cast<double>(surface.triangles.size()) < most) {
            const LongEdge edge = waiting.top();
            waiting.pop();
            const bool is_new = surface.squared_length(edge.half_edge) == edge.squared;
            const std::uint32_t h = edge.half_edge;
            if (!is_new || !is_long(h) || is_beside_locked(h)) continue;
            if (is_beside_locked(surface.opposites[h])) continue;
            split(h, waiting);
        }
        return std::move(base_);
    }

private:
    struct LongEdge {  // the longest comes first, so that there is an end
        double squared;
        std::uint32_t half_edge;
        bool operator<(const LongEdge& other) const {
            return squared != other.squared ? squared < other.squared : half_edge > other.half_edge;
        }
    };

    static double squared(double x) { return x * x; }

    double wanted(std::size_t t) const {
        return static_cast<double>(face_lengths_[base_.owners[t]]);
    }

    double limit(std::uint32_t h) const {
        const std::uint32_t g = base_.surface.opposites[h];
        const double l = wanted(h / 3);
        return kBaseEdge * (g == HalfEdgeMesh::kNone ? l : std::min(l, wanted(g / 3)));
    }

    bool is_long(std::uint32_t h) const {
        return base_.surface.is_locked[h] == 0 &&
               base_.surface.squared_length(h) > squared(limit(h));
    }

    // Beside a long edge that may not be divided there would be no end.
    bool is_beside_locked(std::uint32_t h) const {
        if (h == HalfEdgeMesh::kNone) return false;
        const HalfEdgeMesh& surface = base_.surface;
        for (const std::uint32_t e : {HalfEdgeMesh::next(h), HalfEdgeMesh::previous(h)}) {
            if (surface.is_locked[e] != 0 && surface.squared_length(e) > squared(limit(e))) {
                return true;
            }
        }
        return false;
    }

    // In equal parts, so that faces side by side are divided alike.
    void split(std::uint32_t h, std::priority_queue<LongEdge>& waiting) {
        HalfEdgeMesh& surface = base_.surface;
        const Vec3d a = surface.position(surface.origin(h));
        const Vec3d b = surface.position(surface.target(h));
        const double count = std::ceil(length(b - a) / limit(h));
        const Vec3d place = a + (b - a) * (std::floor(count / 2) / count);
        if (place == a || place == b) return;
        const std::uint32_t g = surface.opposites[h];
        const std::uint32_t owner = base_.owners[h / 3];
        const std::uint32_t other = g == HalfEdgeMesh::kNone ? owner : base_.owners[g / 3];
        const std::int32_t m = surface.split(h, place);
        base_.owners.resize(surface.triangles.size());
        const std::uint32_t from_m = surface.starts[static_cast<std::size_t>(m)];
        base_.owners[from_m / 3] = owner;
        if (g != HalfEdgeMesh::kNone) base_.owners[surface.opposites[h] / 3] = other;
        surface.around(m, [&](std::uint32_t e) {
            for (const std::uint32_t side : {e, HalfEdgeMesh::next(e), HalfEdgeMesh::previous(e)}) {
                if (is_long(side)) waiting.push({surface.squared_length(side), side});
            }
        });
    }

    Base base_;
    std::span<const float> face_lengths_;
};

class Driver {
public:
    Driver(Base base, const RemeshOptions& options, std::span<const float> face_lengths)
        : options_(options),
          start_(std::move(base.surface)),
          base_(start_.plain_mesh([](std::size_t) { return true; })),
          face_lengths_(lengths_of_parts(base.owners, face_lengths)),
          tree_(base_),
          asked_(base_, face_lengths_),
          field_(asked_),
          review_(base_, tree_, field_),
          expected_(expected_triangles(base_, face_lengths_)),
          is_kept_(base_.vertices.size(), 0) {
        field_.lower(line_lengths(start_, field_));
    }

    /// Nothing where all that was tried spoils something.
    std::optional<TriMesh> run(RemeshReport& report) {
        run_once();
        std::size_t fewest = spoiled_.size();
        int without_gain = 0;
        for (int i = 0; i < kRefinements && without_gain < kMostWithoutGain && refine(i, report);
             ++i) {
            run_once();
            without_gain = 10 * spoiled_.size() < 9 * fewest ? 0 : without_gain + 1;
            fewest = std::min(fewest, spoiled_.size());
        }
        double factor = 1;
        for (int i = 0; i < kKeeps && !spoiled_.empty(); ++i, factor *= kNextKeep) {
            const Array<std::uint8_t> near = review_.vertices_near(spoiled_, factor);
            for (std::size_t v = 0; v < near.size(); ++v) is_kept_[v] |= near[v];
            run_once();
        }
        if (!spoiled_.empty()) {
            report.kept_faces = start_.triangles.size();
            report.kept_at = spoiled_[0].point;
            return std::nullopt;
        }
        count_kept(report);
        report.even_share = evenness_.of_asked;
        report.even_share_of_local = evenness_.of_wanted;
        return std::move(made_);
    }

private:
    void run_once() {
        HalfEdgeMesh surface = start_;
        for (std::uint32_t t = 0; t < surface.triangles.size(); ++t) {
            if (is_kept(surface.triangles[t])) keep(surface, t);
        }
        const double most =
            kMostOfExpected * (expected_ + static_cast<double>(surface.triangles.size()));
        Remesher remesher(base_, tree_, field_, std::move(surface), saturate_to<std::size_t>(most));
        remesher.run(options_.rounds);
        evenness_ = remesher.evenness(asked_);
        made_ = remesher.result();
        spoiled_ = review_.spoiled_places(made_);
    }

    bool is_kept(const std::array<std::int32_t, 3>& vertices) const {
        return std::any_of(vertices.begin(), vertices.end(), [&](std::int32_t v) {
            return is_kept_[static_cast<std::size_t>(v)] != 0;
        });
    }

    // Its edges may not be split, turned or collapsed, and its vertices not be moved.
    static void keep(HalfEdgeMesh& surface, std::uint32_t t) {
        for (std::uint32_t h = 3 * t; h < 3 * t + 3; ++h) {
            for (const std::uint32_t e : {h, surface.opposites[h]}) {
                if (e == HalfEdgeMesh::kNone) continue;
                surface.features[e] = 1;
                surface.is_locked[e] = 1;
            }
            std::uint8_t& kind = surface.kinds[static_cast<std::size_t>(surface.origin(h))];
            kind = std::max<std::uint8_t>(kind, HalfEdgeMesh::Fixed);
        }
    }

    // False when there is nothing to lower.
    bool refine(int step, RemeshReport& report) {
        Array<double> lengths = field_.lengths();
        // A tip here and there is not worth a run, and where nothing was lost nothing gets lost.
        std::size_t lowered = 0;
        if (loses_) {
            const double tolerance = step == 0 ? 1 : kSecondTolerance;
            lowered = review_.shorten_where_lost(made_, tolerance, lengths);
            loses_ =
                static_cast<double>(lowered) >= kLeastLost * static_cast<double>(lengths.size());
        }
        if (!loses_) {
            lowered = 0;
            lengths = field_.lengths();
        }
        lowered += shorten_where_spoiled(step, lengths);
        if (lowered == 0) return false;
        report.shortened += lowered;
        field_.lower(lengths);
        return true;
    }

    // Around what is spoiled, and all along a wall or a gap there that is thinner than an edge.
    std::size_t shorten_where_spoiled(int step, Array<double>& lengths) {
        if (spoiled_.empty()) return 0;
        const bool is_early = step < kGentleSteps;
        Array<std::uint8_t> near = review_.vertices_near(spoiled_, is_early ? 1 : kWiderReach);
        if (!walls_) walls_.emplace(start_, tree_, asked_);
        std::vector<std::int32_t> waiting;
        for (std::size_t v = 0; v < near.size(); ++v) {
            if (near[v] == 0) continue;
            waiting.push_back(static_cast<std::int32_t>(v));
            const double now = field_.at_vertex(v);
            const double factor = is_early ? kSpoiledShortening : kSecondShortening;
            const double wall = walls_->at(static_cast<std::int32_t>(v));
            const double l = wall < now ? wall : factor * now;
            lengths[v] = std::min(lengths[v], l);
        }
        std::size_t lowered = waiting.size();
        const auto is_thin = [&](std::int32_t v) {
            return walls_->at(v) < kThinWall * asked_.at_vertex(index(v));
        };
        while (!waiting.empty()) {
            const std::int32_t v = waiting.back();
            waiting.pop_back();
            if (start_.starts[index(v)] == HalfEdgeMesh::kNone) continue;
            start_.around(v, [&](std::uint32_t h) {
                for (const std::int32_t w : {start_.target(h), start_.apex(h)}) {
                    if (near[index(w)] != 0 || !is_thin(w)) continue;
                    near[index(w)] = 1;
                    waiting.push_back(w);
                    lengths[index(w)] = std::min(lengths[index(w)], walls_->at(w));
                    ++lowered;
                }
            });
        }
        return lowered;
    }

    static std::size_t index(std::int32_t v) { return static_cast<std::size_t>(v); }

    void count_kept(RemeshReport& report) const {
        for (std::size_t t = 0; t < start_.triangles.size(); ++t) {
            if (!is_kept(start_.triangles[t])) continue;
            if (report.kept_faces++ == 0) report.kept_at = start_.position(start_.triangles[t][0]);
        }
    }

    const RemeshOptions& options_;
    HalfEdgeMesh start_;
    TriMesh base_;
    Array<float> face_lengths_;
    NearestFace tree_;
    SizingField asked_;  // before any are lowered
    SizingField field_;
    RemeshReview review_;
    double expected_;
    bool loses_ = true;  // a good part of what is there, as far as is known
    TriMesh made_;       // by the last run
    Remesher::Evenness evenness_;
    std::vector<SpoiledPlace> spoiled_;
    std::optional<WallLengths> walls_;  // when needed
    Array<std::uint8_t> is_kept_;       // by vertex
};

}  // namespace

RemeshReport remesh(TriMesh& mesh, const RemeshOptions& options, RunContext& run) {
    const bool has_field = !options.face_lengths.empty();
    if (has_field && options.face_lengths.size() != mesh.faces.size()) return {};
    if (!has_field && !(options.edge_length > 0 && std::isfinite(options.edge_length))) return {};
    if (live_face_count(mesh) == 0 || !has_finite_vertices(mesh)) return {};
    RemeshReport report;
    Array<float> lengths = usable_lengths(mesh, options);
    const RaisedLengths raised = raise_lengths(mesh, lengths, options.most_triangles);
    report.raised = raised.factor;
    report.raised_faces = raised.faces;
    if (raised.factor > 1 || raised.faces != 0) {
        run.log.caution("edge length raised, the model would have too many triangles");
    }
    Base base = BaseMaker(mesh, options.feature_angle, lengths).run();
    std::optional<TriMesh> found = Driver(std::move(base), options, lengths).run(report);
    report.is_done = found.has_value();
    if (!found) {
        run.log.caution("faces would cross, the mesh is left as it was");
        return report;
    }
    TriMesh& made = *found;
    carry_attributes(mesh, nullptr, made);
    std::swap(mesh.faces, made.faces);
    std::swap(mesh.vertices, made.vertices);
    std::swap(mesh.texture_coordinates, made.texture_coordinates);
    mesh.use_table.clear();
    mesh.shells.clear();
    compact(mesh);
    return report;
}

}  // namespace povmesh
