// Runs of the remesher, each looked through, until one is sound: a first with the lengths as
// wanted, some with lower ones where the one before has lost or spoiled something, and then some
// that leave more and more of the original around what is still spoiled.
#include "remesh/remesh.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "base/convert.h"
#include "base/parallel.h"
#include "mesh/compact.h"
#include "remesh/base_surface.h"
#include "remesh/carry_attributes.h"
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

// Runs with lower lengths, runs that keep faces of the original, and steps that only work around
// what is spoiled.
constexpr int kRefinements = 6;
constexpr int kKeeps = 6;
constexpr int kMends = 2;

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

// Where fewer vertices are near what is spoiled, as a share of the triangles made, it comes cheaper
// to keep the faces there than to try with lower lengths: on models of more triangles than that,
// whose runs take most of a second.
constexpr double kLeastSpoiled = 0.005;
constexpr std::size_t kLarge = 200'000;

// What is done, in percent, before the first run, when that has made its triangles, and behind the
// last run.
constexpr double kPreparedPercent = 10;
constexpr double kFirstRunPercent = 55;
constexpr double kLastRunPercent = 90;

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

Array<float> lengths_of_parts(const Array<std::uint32_t>& owners, std::span<const float> lengths) {
    Array<float> all(owners.size());
    for (std::size_t t = 0; t < all.size(); ++t) all[t] = lengths[owners[t]];
    return all;
}

class Driver {
public:
    Driver(BaseSurface base, const RemeshOptions& options, std::span<const float> face_lengths)
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
        advance_to(kPreparedPercent);
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
            mend(report);
        }
        if (!spoiled_.empty()) {
            report.kept_faces = start_.triangles.size();
            report.kept_at = spoiled_[0].point;
            return std::nullopt;
        }
        count_kept(report);
        const Remesher::Evenness evenness = remesher_->evenness(asked_);
        report.even_share = evenness.of_asked;
        report.even_share_of_local = evenness.of_wanted;
        return std::move(made_);
    }

private:
    void run_once() {
        HalfEdgeMesh surface = start_;
        for (std::uint32_t t = 0; t < surface.triangles.size(); ++t) {
            if (is_kept(surface.triangles[t])) keep(surface, t);
        }
        const double from = percent_;
        const double to = remesher_ ? half_of_the_rest() : kFirstRunPercent;
        const double most =
            kMostOfExpected * (expected_ + static_cast<double>(surface.triangles.size()));
        remesher_.emplace(start_, tree_, field_, std::move(surface),
                          saturate_to<std::size_t>(most));
        remesher_->run(options_.rounds, [&](int done) {
            advance_to(from + (to - from) * done / std::max(options_.rounds, 1));
        });
        made_ = remesher_->result();
        spoiled_ = review_.spoiled_places(made_);
        advance_to(half_of_the_rest());
    }

    // A few runs are what most models take; each further one gets half of what is left.
    void advance_to(double percent) {
        percent_ = percent;
        options_.progress.set(static_cast<std::uint32_t>(percent));
    }
    double half_of_the_rest() const { return percent_ + (kLastRunPercent - percent_) / 2; }

    // Makes edges shorter around what is spoiled, and leaves all else as it is: for a twentieth of
    // the time of a run. Where that does not help the lengths are again what they were.
    void mend(RemeshReport& report) {
        if (spoiled_.empty()) return;
        const Array<double> before = field_.lengths();
        std::size_t shortened = 0;
        for (int i = 0; i < kMends && !spoiled_.empty(); ++i) {
            Array<double> lengths = field_.lengths();
            const Array<std::uint8_t> near = review_.vertices_near(spoiled_, 1);
            for (std::size_t v = 0; v < near.size(); ++v) {
                if (near[v] == 0) continue;
                lengths[v] *= kSpoiledShortening;
                ++shortened;
            }
            field_.lower(lengths);
            remesher_->refine();
            made_ = remesher_->result();
            spoiled_ = review_.spoiled_places(made_, remesher_->changed_faces(), spoiled_);
        }
        if (spoiled_.empty())
            report.shortened += shortened;
        else
            field_.restore(before);
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

    // False when there is nothing to lower, or too little for a run.
    bool refine(int step, RemeshReport& report) {
        Array<double> lengths = field_.lengths();
        // A tip here and there is not worth a run, and where nothing was lost nothing gets lost.
        loses_ = loses_ && review_.shorten_where_lost(made_, step == 0 ? 1 : kSecondTolerance,
                                                      kLeastLost, lengths);
        if (!loses_) {
            mend(report);
            lengths = field_.lengths();
            if (is_little(review_.vertices_near(spoiled_, 1))) return false;
        }
        shorten_where_spoiled(step, lengths);
        std::size_t lowered = 0;
        for (std::size_t v = 0; v < lengths.size(); ++v) {
            lowered += lengths[v] < field_.at_vertex(v) ? 1 : 0;
        }
        if (lowered == 0) return false;
        report.shortened += lowered;
        field_.lower(lengths);
        return true;
    }

    bool is_little(const Array<std::uint8_t>& near) const {
        const auto count = static_cast<double>(std::count(near.begin(), near.end(), 1));
        return base_.faces.size() > kLarge &&
               count < kLeastSpoiled * static_cast<double>(made_.faces.size());
    }

    // Around what is spoiled, and all along a wall or a gap there that is thinner than an edge.
    void shorten_where_spoiled(int step, Array<double>& lengths) {
        if (spoiled_.empty()) return;
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
                }
            });
        }
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
    double percent_ = 0;  // of the progress
    bool loses_ = true;   // a good part of what is there, as far as is known
    TriMesh made_;        // by the last run
    std::optional<Remesher> remesher_;
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
    BaseSurface base = make_base_surface(mesh, options.feature_angle, lengths);
    const Array<std::uint32_t> turned = std::move(base.turned);
    std::optional<TriMesh> found = Driver(std::move(base), options, lengths).run(report);
    report.is_done = found.has_value();
    if (!found) {
        for (const std::uint32_t f : turned) reverse_winding(mesh.faces[f]);
        mesh.use_table.clear();
        run.log.caution("faces would cross, the mesh is left as it was");
        return report;
    }
    report.turned_faces = turned.size();
    if (!turned.empty()) {
        report.turned_at = to_double(mesh.corner_position(mesh.faces[turned[0]], 0));
        run.log.caution("faces wound against their neighbours were turned over");
    }
    TriMesh& made = *found;
    carry_attributes(mesh, nullptr, made);
    std::swap(mesh.faces, made.faces);
    std::swap(mesh.vertices, made.vertices);
    std::swap(mesh.texture_coordinates, made.texture_coordinates);
    mesh.use_table.clear();
    mesh.shells.clear();
    compact(mesh);
    options.progress.set(100);
    return report;
}

}  // namespace povmesh
