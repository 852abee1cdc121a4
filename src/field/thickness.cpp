// Samples one ball each in the middle of small pieces of the faces. Pieces that are too thin are
// joined to places by their common edges, which have the same middle bit for bit in both faces, and
// with the piece that their ball meets.
#include "field/thickness.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <span>
#include <utility>

#include "base/convert.h"
#include "base/parallel.h"
#include "base/poll.h"
#include "base/union_find.h"
#include "field/tangent_balls.h"
#include "mesh/bounds.h"

namespace povmesh {
namespace {

// What is below what was asked for by no more than this share passes.
constexpr double kPassing = 1e-3;

// Balls are looked for up to so many times the wall.
constexpr double kMeasured = 2;

// Places smaller than this share of the square of the wall are not told one by one.
constexpr double kSmallPlace = 0.1;

// Longest edge of a piece, in walls.
constexpr double kPieceSize = 0.5;

// Samples that are measured one after the other, each beginning with the face that the one before
// has met.
constexpr std::size_t kRow = 512;

constexpr std::uint32_t kNoPiece = BallContact::kNone;

struct Sample {
    Vec3d middle;
    std::uint32_t entry;  // of the tree: its face
};

// Measures walls, or gaps, at samples as far apart as these ask for.
class Meter {
public:
    Meter(const TriMesh& mesh, const TangentBalls& balls, double asked,
          const ThicknessOptions& options)
        : asked_(asked),
          grain_(options.grain),
          balls_(balls),
          pieces_(mesh, balls_.tree().numbers(), kPieceSize * asked, options.most_samples) {
        const Box3f box = finite_bounds(mesh);
        if (!box.is_empty()) diagonal_ = length(to_double(box.high) - to_double(box.low));
        const std::span<const std::uint32_t> faces = balls_.tree().numbers();
        polled_resize(samples_, pieces_.size());
        areas_.resize(pieces_.size());
        parallel_for(faces.size(), [&](std::size_t entry) {
            pieces_.visit(faces[entry], [&](std::size_t piece, const Triangle& t) {
                samples_[piece] = {middle_of(t), static_cast<std::uint32_t>(entry)};
                areas_[piece] = length(cross(t[1] - t[0], t[2] - t[0])) / 2;
            });
        });
    }

    ThinPlaces measure(BallSide side) {
        ThinPlaces found;
        found.asked = asked_;
        Array<std::uint32_t> opposite;  // by piece: that which its ball meets, if it is too thin
        sample(side, found, opposite);
        for (const float value : found.values) {
            found.smallest = std::min(found.smallest, static_cast<double>(value));
        }
        Array<std::uint32_t> thin;
        for (std::uint32_t piece = 0; piece < opposite.size(); ++piece) {
            poll_at(piece);
            if (opposite[piece] != kNoPiece) thin.push_back(piece);
        }
        if (!thin.empty()) gather(thin, opposite, found);
        found.is_coarse = pieces_.limit() > kPieceSize * asked_;
        found.pieces = std::move(pieces_);
        return found;
    }

private:
    void sample(BallSide side, ThinPlaces& found, Array<std::uint32_t>& opposite) const {
        // No wall is thicker than the model, and squares stay within doubles.
        const double limit = std::min(kMeasured * found.asked, 2 * diagonal_);
        const double thin = found.asked * (1 - kPassing);
        found.values.resize(samples_.size());
        opposite.resize(samples_.size());
        const std::span<const std::uint32_t> faces = balls_.tree().numbers();
        for_blocks((samples_.size() + kRow - 1) / kRow, [&](std::size_t row) {
            const std::size_t end = std::min(samples_.size(), (row + 1) * kRow);
            std::uint32_t near = BallContact::kNone;
            for (std::size_t i = row * kRow; i < end; ++i) {
                const Sample& sample = samples_[i];
                const BallContact met = balls_.find(sample.middle, balls_.normal(sample.entry),
                                                    side, limit, grain_, near);
                found.values[i] = static_cast<float>(met.diameter);
                opposite[i] = kNoPiece;
                if (!met.is_found()) continue;
                near = met.entry;
                if (met.diameter < thin) {
                    opposite[i] = fits<std::uint32_t>(pieces_.locate(faces[met.entry], met.point));
                }
            }
        });
    }

    // Unites the thin pieces at each edge, and those on the two sides of a wall.
    UnionFind joined(const Array<std::uint32_t>& thin, const Array<std::uint32_t>& opposite) const {
        UnionFind sets(thin.size());
        struct Side {
            std::uint64_t edge;
            std::uint32_t place;  // in `thin`
        };
        Array<Side> sides;
        sides.reserve(3 * thin.size());
        visit_thin(thin, [&](std::uint32_t place, const Triangle& t) {
            for (std::size_t c = 0; c < 3; ++c) {
                sides.push_back({edge_key((t[c] + t[next_corner(c)]) * 0.5), place});
            }
        });
        polled_sort(sides.begin(), sides.end(), [](const Side& a, const Side& b) {
            return a.edge != b.edge ? a.edge < b.edge : a.place < b.place;
        });
        for (std::size_t i = 1; i < sides.size(); ++i) {
            poll_at(i);
            if (sides[i].edge == sides[i - 1].edge) sets.unite(sides[i].place, sides[i - 1].place);
        }
        for (std::uint32_t place = 0; place < thin.size(); ++place) {
            poll_at(place);
            const auto across = std::lower_bound(thin.begin(), thin.end(), opposite[thin[place]]);
            if (across != thin.end() && *across == opposite[thin[place]]) {
                sets.unite(place, static_cast<std::uint32_t>(across - thin.begin()));
            }
        }
        return sets;
    }

    // Two edges that share their middle cross there; taking such for one does no harm.
    static std::uint64_t edge_key(Vec3d middle) {
        std::uint64_t key = 0;
        for (const double c : {middle.x, middle.y, middle.z}) {
            key ^= std::bit_cast<std::uint64_t>(c + 0.0);  // -0 is 0
            key *= 0x9E3779B97F4A7C15U;
            key ^= key >> 29;
        }
        return key;
    }

    template <typename Visit>
    void visit_thin(const Array<std::uint32_t>& thin, const Visit& visit) const {
        const std::span<const std::uint32_t> faces = balls_.tree().numbers();
        Poller poller;
        for (std::uint32_t next = 0; next < thin.size();) {
            poller();
            // The thin pieces of one face, of which all pieces are made again.
            pieces_.visit(faces[samples_[thin[next]].entry],
                          [&](std::size_t piece, const Triangle& t) {
                              if (next < thin.size() && thin[next] == piece) visit(next++, t);
                          });
        }
    }

    void gather(const Array<std::uint32_t>& thin, const Array<std::uint32_t>& opposite,
                ThinPlaces& found) const {
        UnionFind sets = joined(thin, opposite);
        Array<std::uint32_t> place_of(thin.size());
        std::vector<ThinPlace> places;
        visit_thin(thin, [&](std::uint32_t i, const Triangle& t) {
            const std::uint32_t first = sets.find(i);
            if (first == i) {
                place_of[i] = static_cast<std::uint32_t>(places.size());
                places.emplace_back().smallest = std::numeric_limits<double>::infinity();
            } else {
                place_of[i] = place_of[first];
            }
            ThinPlace& place = places[place_of[i]];
            const auto value = static_cast<double>(found.values[thin[i]]);
            if (value < place.smallest) {
                place.smallest = value;
                place.point = samples_[thin[i]].middle;
            }
            place.area += areas_[thin[i]];
            for (const Vec3d& corner : t) place.box.widen(corner);
        });
        for (const ThinPlace& place : places) found.area += place.area;
        const double whole = blocked_sum(areas_.size(), [&](std::size_t i) { return areas_[i]; });
        found.share = whole > 0 ? found.area / whole : 0;
        found.count = places.size();
        std::stable_sort(places.begin(), places.end(),
                         [](const ThinPlace& a, const ThinPlace& b) { return a.area > b.area; });
        const double least = kSmallPlace * found.asked * found.asked;
        const auto small = std::find_if(places.begin() + 1, places.end(),
                                        [&](const ThinPlace& place) { return place.area < least; });
        places.erase(small, places.end());
        found.places = std::move(places);
    }

    double asked_;
    double grain_;
    const TangentBalls& balls_;
    SubTriangles pieces_;
    Array<Sample> samples_;  // by piece
    Array<double> areas_;    // by piece
    double diagonal_ = 0;
};

Status status_of(const ThicknessOptions& options) {
    if (!(options.wall > 0) || !std::isfinite(options.wall)) {
        return {StatusCode::BadOption, "the wall to measure against must be a number above 0"};
    }
    if (!(options.gap >= 0) || !std::isfinite(options.gap)) {
        return {StatusCode::BadOption, "the gap to measure against must be a number of 0 or more"};
    }
    if (!(options.grain >= 0) || !std::isfinite(options.grain)) {
        return {StatusCode::BadOption, "the grain must be a number of 0 or more"};
    }
    return {};
}

}  // namespace

ThicknessReport measure_thickness(const TriMesh& mesh, const ThicknessOptions& options) {
    ThicknessReport report;
    report.status = status_of(options);
    if (!report.status.ok()) return report;
    const TangentBalls balls(mesh);
    report.left_out = live_face_count(mesh) - balls.tree().numbers().size();
    report.walls = Meter(mesh, balls, options.wall, options).measure(BallSide::Inside);
    if (options.gap > 0) {
        report.gaps = Meter(mesh, balls, options.gap, options).measure(BallSide::Outside);
    }
    return report;
}

double thickness_level(float value, double asked) {
    const double level = std::log2(static_cast<double>(value) / asked) / 2 + 0.5;
    return std::isnan(level) ? level : std::clamp(level, 0.0, 1.0);
}

}  // namespace povmesh
