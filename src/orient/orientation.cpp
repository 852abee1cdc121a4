// Estimate many, measure some, improve the best:
//
// 1. candidates: the six axes, each rest face downward, normals of much area up and down, and an
//    even net of 2,562 directions;
// 2. an estimate of each without columns; the best 96 that differ are measured, on fewer triangles
//    when there are many;
// 3. from the best six, steps of 4 degrees and less downhill; where that ends near a rest face, the
//    rest face itself is tried, so that a model is never almost flat;
// 4. the best 16 are measured on all triangles, sorted, and thinned out to 5 degrees.
#include "orient/orientation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <numbers>
#include <utility>

#include "base/parallel.h"
#include "base/timer.h"
#include "orient/direction_cost.h"
#include "orient/orient_model.h"

namespace povmesh {
namespace {

constexpr double kDegree = std::numbers::pi / 180;
const double kApart = std::cos(5.0001 * kDegree);  // of rows: 5, also in 32-bit floats
const double kRestFacesApart = std::cos(0.4 * kDegree);
const double kNearRestFace = std::cos(6 * kDegree);
const double kSameNormal = std::cos(3 * kDegree);

constexpr double kMuchArea = 0.005;  // of the model's, for a normal to be a candidate
constexpr int kNetLevels = 4;        // 2,562 directions
constexpr std::size_t kMeasured = 96;
constexpr std::size_t kImproved = 6;
constexpr std::size_t kExact = 16;
constexpr std::size_t kRows = 64;
constexpr std::size_t kManyTriangles = 30000;  // from here on the first look has fewer
constexpr double kFirstStep = 4 * kDegree;
constexpr double kLastStep = 0.4 * kDegree;

constexpr Vec3d kAsItIs = {0, 0, 1};

struct Candidate {
    Vec3d up;
    bool is_rest_face;
    double cost = 0;
};

// Of any finite length above 0: its squares may be beyond double.
Vec3d unit(Vec3d v) {
    const double most = std::max({std::abs(v.x), std::abs(v.y), std::abs(v.z)});
    const Vec3d w = v / most;
    return w / length(w);
}

// Corners of an icosahedron divided `levels` times, on the unit sphere.
std::vector<Vec3d> even_net(int levels) {
    const double g = std::numbers::phi;
    std::vector<Vec3d> points = {{-1, g, 0}, {1, g, 0}, {-1, -g, 0}, {1, -g, 0},
                                 {0, -1, g}, {0, 1, g}, {0, -1, -g}, {0, 1, -g},
                                 {g, 0, -1}, {g, 0, 1}, {-g, 0, -1}, {-g, 0, 1}};
    std::vector<std::array<std::size_t, 3>> faces = {
        {0, 11, 5},  {0, 5, 1},  {0, 1, 7},  {0, 7, 10}, {0, 10, 11}, {1, 5, 9}, {5, 11, 4},
        {11, 10, 2}, {10, 7, 6}, {7, 1, 8},  {3, 9, 4},  {3, 4, 2},   {3, 2, 6}, {3, 6, 8},
        {3, 8, 9},   {4, 9, 5},  {2, 4, 11}, {6, 2, 10}, {8, 6, 7},   {9, 8, 1}};
    for (Vec3d& p : points) p = p / length(p);
    for (int level = 0; level < levels; ++level) {
        std::map<std::pair<std::size_t, std::size_t>, std::size_t> middles;
        const auto middle = [&](std::size_t a, std::size_t b) {
            const auto [place, is_new] = middles.try_emplace(std::minmax(a, b), points.size());
            if (is_new) {
                const Vec3d sum = points[a] + points[b];
                points.push_back(sum / length(sum));
            }
            return place->second;
        };
        std::vector<std::array<std::size_t, 3>> finer;
        for (const auto& [a, b, c] : faces) {
            const std::size_t ab = middle(a, b);
            const std::size_t bc = middle(b, c);
            const std::size_t ca = middle(c, a);
            finer.insert(finer.end(), {{a, ab, ca}, {b, bc, ab}, {c, ca, bc}, {ab, bc, ca}});
        }
        faces = std::move(finer);
    }
    return points;
}

// Ties go to the direction that comes first by its numbers, not by its place in a list that depends
// on the order of the faces.
bool is_better(double cost_a, Vec3d a, double cost_b, Vec3d b) {
    if (cost_a != cost_b) return cost_a < cost_b;
    if (a.z != b.z) return a.z > b.z;
    if (a.y != b.y) return a.y > b.y;
    return a.x > b.x;
}

class OrientationSearch {
public:
    OrientationSearch(const OrientModel& model, const OrientOptions& options)
        : model_(model), options_(options), all_(model.all()), quick_(all_) {
        if (model.triangles.size() > kManyTriangles) {
            cluster_points(model, points_, triangles_);
            quick_ = {points_, triangles_, model.hull_points};
        }
    }

    OrientationReport run(const Progress& progress) {
        find_candidates();
        estimate();
        progress.set(40);
        measure_all(pick());
        progress.set(60);
        improve();
        progress.set(80);
        finish();
        OrientationReport report;
        report.best = std::move(rows_);
        report.as_is = as_is_;
        if (options_.up) report.asked = measured({unit(*options_.up)}, all_).front();
        report.directions_measured = measured_count_;
        return report;
    }

private:
    void add(Vec3d up, bool is_rest_face) { candidates_.push_back({up, is_rest_face}); }

    void find_candidates() {
        for (const double sign : {1.0, -1.0}) {
            add({0, 0, sign}, false);
            add({0, sign, 0}, false);
            add({sign, 0, 0}, false);
        }
        for (const RestFace& face : model_.rest_faces) add(face.normal * -1.0, true);
        add_normals();
        for (const Vec3d& up : even_net(kNetLevels)) add(up, false);
    }

    // Groups of nearly one normal, the largest first.
    void add_normals() {
        std::vector<NormalGroup> groups = model_.groups;
        std::stable_sort(groups.begin(), groups.end(),
                         [](const auto& a, const auto& b) { return a.area > b.area; });
        std::vector<NormalGroup> joined;
        for (const NormalGroup& group : groups) {
            const auto near = std::find_if(joined.begin(), joined.end(), [&](const auto& other) {
                return dot(other.normal, group.normal) > kSameNormal;
            });
            if (near != joined.end()) {
                near->area += group.area;
            } else {
                joined.push_back(group);
            }
        }
        for (const NormalGroup& group : joined) {
            if (group.area < kMuchArea * model_.area) continue;
            add(group.normal, false);
            add(group.normal * -1.0, false);
        }
    }

    void estimate() {
        parallel_each(candidates_.size(), [&](std::size_t i) {
            Candidate& candidate = candidates_[i];
            candidate.cost = estimate_cost(model_, candidate.up, candidate.is_rest_face);
        });
        std::sort(candidates_.begin(), candidates_.end(),
                  [](const Candidate& a, const Candidate& b) {
                      if (a.is_rest_face != b.is_rest_face && a.cost == b.cost) {
                          return a.is_rest_face;
                      }
                      return is_better(a.cost, a.up, b.cost, b.up);
                  });
    }

    // A direction a block: each takes far longer than handing it to a thread.
    template <typename Body>
    static void parallel_each(std::size_t count, Body&& body) {
        for_blocks(count, body);
    }

    // The model as it is comes first, so that it is among the rows or what beats it is known.
    std::vector<Vec3d> pick() const {
        std::vector<Vec3d> picked = {kAsItIs};
        std::vector<bool> is_rest_face = {false};
        for (const Candidate& candidate : candidates_) {
            if (picked.size() == kMeasured) break;
            bool is_apart = true;
            for (std::size_t i = 0; i < picked.size() && is_apart; ++i) {
                const double limit = candidate.is_rest_face && (is_rest_face[i] || i == 0)
                                         ? kRestFacesApart
                                     : candidate.is_rest_face ? kRestFacesApart
                                                              : kApart;
                is_apart = dot(picked[i], candidate.up) <= limit;
            }
            if (!is_apart) continue;
            picked.push_back(candidate.up);
            is_rest_face.push_back(candidate.is_rest_face);
        }
        return picked;
    }

    std::vector<Orientation> measured(const std::vector<Vec3d>& directions,
                                      const MeasuredTriangles& on) {
        std::vector<Orientation> results(directions.size());
        constexpr std::size_t kTogether = 4;  // with one meter, which keeps its memory
        parallel_each((directions.size() + kTogether - 1) / kTogether, [&](std::size_t block) {
            OverhangMeter meter;
            const std::size_t end = std::min((block + 1) * kTogether, directions.size());
            for (std::size_t i = block * kTogether; i < end; ++i) {
                results[i] = measure(model_, on, directions[i], meter);
            }
        });
        measured_count_ += directions.size();
        return results;
    }

    static void sort(std::vector<Orientation>& rows) {
        std::sort(rows.begin(), rows.end(), [](const Orientation& a, const Orientation& b) {
            return is_better(a.cost, a.up, b.cost, b.up);
        });
    }

    void measure_all(const std::vector<Vec3d>& directions) {
        rows_ = measured(directions, quick_);
        sort(rows_);
    }

    // Each start goes its own way, so that threads may take them in any order.
    void improve() {
        std::vector<Orientation> starts;
        for (const Orientation& row : rows_) {
            if (starts.size() == kImproved) break;
            if (is_apart_from(starts, row)) starts.push_back(row);
        }
        std::vector<std::vector<Orientation>> ends(starts.size());
        std::vector<std::size_t> counts(starts.size());
        parallel_each(starts.size(),
                      [&](std::size_t i) { ends[i] = descend(starts[i], counts[i]); });
        for (std::size_t i = 0; i < starts.size(); ++i) {
            rows_.insert(rows_.end(), ends[i].begin(), ends[i].end());
            measured_count_ += counts[i];
        }
        sort(rows_);
    }

    std::vector<Orientation> descend(Orientation here, std::size_t& count) const {
        OverhangMeter meter;
        const auto look = [&](Vec3d up) {
            ++count;
            return measure(model_, quick_, up / length(up), meter);
        };
        for (double step = kFirstStep; step >= kLastStep;) {
            const auto [right, back] = across(here.up);
            Orientation best = here;
            for (int i = 0; i < 6; ++i) {
                const double angle = i * std::numbers::pi / 3;
                const Vec3d aside = right * std::cos(angle) + back * std::sin(angle);
                const Orientation there = look(here.up * std::cos(step) + aside * std::sin(step));
                if (is_better(there.cost, there.up, best.cost, best.up)) best = there;
            }
            if (best.cost < here.cost) {
                here = best;
            } else {
                step /= 2;
            }
        }
        std::vector<Orientation> found = {here};
        const RestFace* near = nullptr;
        for (const RestFace& face : model_.rest_faces) {
            const double cosine = -dot(face.normal, here.up);
            if (cosine > (near == nullptr ? kNearRestFace : -dot(near->normal, here.up))) {
                near = &face;
            }
        }
        if (near != nullptr) found.push_back(look(near->normal * -1.0));
        return found;
    }

    static bool is_apart_from(const std::vector<Orientation>& others, const Orientation& row) {
        return std::all_of(others.begin(), others.end(), [&](const Orientation& other) {
            return dot(other.up, row.up) <= kApart;
        });
    }

    // The first look may have another order, so the best are measured again on all triangles. Those
    // behind them can be no better than the last of these.
    void finish() {
        if (quick_.triangles.data() == all_.triangles.data()) {
            as_is_ = *std::find_if(rows_.begin(), rows_.end(),
                                   [](const Orientation& row) { return row.up == kAsItIs; });
            thin_out();
            return;
        }
        std::vector<Vec3d> first = {kAsItIs};
        for (const Orientation& row : rows_) {
            if (first.size() == kExact) break;
            if (!is_one_of(first, row.up)) first.push_back(row.up);
        }
        std::vector<Orientation> exact = measured(first, all_);
        as_is_ = exact.front();
        sort(exact);
        const double last = exact.back().cost;
        for (Orientation& row : rows_) {
            if (is_one_of(first, row.up)) continue;
            row.cost = std::max(row.cost, last);
            exact.push_back(row);
        }
        rows_ = std::move(exact);
        thin_out();
        if (options_.measures_all_rows) measure_others(first);
    }

    static bool is_one_of(const std::vector<Vec3d>& directions, Vec3d up) {
        return std::find(directions.begin(), directions.end(), up) != directions.end();
    }

    void measure_others(const std::vector<Vec3d>& done) {
        std::vector<Vec3d> others;
        for (const Orientation& row : rows_) {
            if (!is_one_of(done, row.up)) others.push_back(row.up);
        }
        std::erase_if(rows_, [&](const Orientation& row) { return is_one_of(others, row.up); });
        const std::vector<Orientation> exact = measured(others, all_);
        rows_.insert(rows_.end(), exact.begin(), exact.end());
        sort(rows_);
    }

    void thin_out() {
        std::vector<Orientation> kept;
        for (const Orientation& row : rows_) {
            if (kept.size() == kRows) break;
            if (is_apart_from(kept, row)) kept.push_back(row);
        }
        rows_ = std::move(kept);
    }

    const OrientModel& model_;
    const OrientOptions& options_;
    Array<Vec3f> points_;  // of the first look
    Array<std::array<std::uint32_t, 3>> triangles_;
    MeasuredTriangles all_;
    MeasuredTriangles quick_;
    std::vector<Candidate> candidates_;
    std::vector<Orientation> rows_;
    Orientation as_is_;
    std::size_t measured_count_ = 0;
};

}  // namespace

OrientationReport find_orientations(const TriMesh& mesh, RunContext& run,
                                    const OrientOptions& options) {
    const Timer timer;
    const OrientModel model = make_orient_model(mesh);
    if (model.triangles.empty()) {
        run.log.append("\n[Caution] orientation of nothing!\n");
        return {};
    }
    run.log.start("orientation optimization");
    run.progress.set(20);
    OrientationReport report = OrientationSearch(model, options).run(run.progress);
    run.log.value("directions", static_cast<double>(report.directions_measured));
    const Orientation& best = report.best.front();
    run.log.value("up x", best.up.x);
    run.log.value("up y", best.up.y);
    run.log.value("up z", best.up.z);
    run.log.value("score", best.score());
    run.log.success("orientation optimization", timer.seconds());
    return report;
}

Orientation measure_orientation(const TriMesh& mesh, Vec3d up) {
    const OrientModel model = make_orient_model(mesh);
    if (model.triangles.empty()) return {};
    OverhangMeter meter;
    return measure(model, model.all(), unit(up), meter);
}

double measure_support_volume(const TriMesh& mesh, Vec3d up) {
    const OrientModel model = make_support_model(mesh);
    if (model.triangles.empty()) return 0;
    OverhangMeter meter;
    const MeasuredTriangles all = {model.points, model.triangles, model.points};
    return meter.measure(all, unit(up), model.slack).volume * model.unit * model.unit * model.unit;
}

}  // namespace povmesh
