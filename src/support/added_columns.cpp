// Overhanging faces are sampled on a fine lattice. Samples near a column of their region are held;
// from the lowest of the others on, each with those around it gets a column, greedily.
#include "support/added_columns.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <optional>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

#include "base/convert.h"
#include "base/poll.h"
#include "mesh/bounds.h"

namespace povmesh {
namespace {

constexpr double kLeastGap = 5.0;
constexpr double kSamplesAcross = 6;  // of a column's share of the area
constexpr double kMostSamples = 4e6;
// How far a column holds what is beside it, in spacings; half a spacing is the way between two
// rows.
constexpr double kReach = 0.75;
// Between the height of a column's end and that of what it meets within its cross-section.
constexpr double kTopSlack = 2.5;
// The same farther out, where surfaces may rise and fall at about this slope.
constexpr double kSlope = 1.5;
// How far a column may reach into the model at its corners, from its top and from its foot.
constexpr double kIntoTop = 2.0;
constexpr double kIntoFoot = 2.5;
// How far a column goes up around a tip that it would only touch.
constexpr double kAroundTip = 0.5;
// Along a thread, samples that are so far apart, in spacings, get a column.
constexpr double kThread = 0.5;
constexpr std::size_t kMostTries = 12;
constexpr int kMostSteps = 6;

struct Sample {
    Vec3d place;
    double floor;          // height of what is below
    std::uint32_t region;  // tips without one have numbers of their own
    bool is_tip;
    bool is_settled;  // held, or to be left
};

class ColumnAdder {
public:
    ColumnAdder(const TriMesh& mesh, const UprightLines& lines, const Overhangs& overhangs,
                const AddedColumnOptions& options, Array<Column>& columns)
        : mesh_(mesh),
          lines_(lines),
          overhangs_(overhangs),
          options_(options),
          columns_(columns),
          reach_(kReach * options.spacing) {
        const Box3f box = finite_bounds(mesh);
        if (box.is_empty()) return;
        low_ = to_double(box.low);
        const Vec3d extent = to_double(box.high) - low_;
        // One more on each side: columns stand up to half a spacing beyond the model.
        const auto cells = [&](double size) {
            return saturate_to<std::size_t>(std::min(size / options_.spacing, 1e4)) + 3;
        };
        cells_x_ = cells(extent.x);
        cells_y_ = cells(extent.y);
    }

    void run() {
        if (cells_x_ == 0) return;
        make_samples();
        first_column_.assign(cells_x_ * cells_y_, kNone);
        for (std::uint32_t c = 0; c < columns_.size(); ++c) enter_column(c);
        settle_held();
        sort_into_cells();
        Array<std::uint32_t> order(samples_.size());
        std::iota(order.begin(), order.end(), 0U);
        std::stable_sort(order.begin(), order.end(), [this](std::uint32_t a, std::uint32_t b) {
            return samples_[a].place.z < samples_[b].place.z;
        });
        for (const std::uint32_t s : order) {
            if (!samples_[s].is_settled) hold(s);
        }
    }

private:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    void make_samples() {
        double area = 0;
        for (std::uint32_t r = 0; r < overhangs_.areas.size(); ++r) {
            if (is_worth(r)) area += overhangs_.areas[r];
        }
        step_ = std::max(options_.spacing / kSamplesAcross, std::sqrt(area / kMostSamples));
        is_met_.assign(overhangs_.areas.size(), 0);
        if (area > 0) sample_rows();
        const std::size_t first = samples_.size();
        add_missed_regions();
        auto next = static_cast<std::uint32_t>(overhangs_.areas.size());
        for (const Tip& tip : overhangs_.tips) {
            const std::uint32_t region = tip.region == kNoRegion ? next++ : tip.region;
            samples_.push_back({tip.place, 0, region, true, false});
        }
        for (std::size_t s = first; s < samples_.size(); ++s) {
            Sample& sample = samples_[s];
            const UprightLines::Below below = lines_.look_down(sample.place);
            sample.floor = std::max(below.floor, options_.plate);
            sample.is_settled = !below.is_outside || !(sample.place.z - sample.floor > kLeastGap);
        }
        samples_.erase(std::remove_if(samples_.begin(), samples_.end(),
                                      [](const Sample& s) { return s.is_settled; }),
                       samples_.end());
    }

    // Regions between the lines get a sample in their largest face.
    void add_missed_regions() {
        Array<std::uint32_t> largest;
        largest.assign(is_met_.size(), kNone);
        for (std::uint32_t f = 0; f < mesh_.faces.size(); ++f) {
            poll_at(f);
            const std::uint32_t region = overhangs_.region_of_face[f];
            if (region == kNoRegion || is_met_[region] != 0 || !is_worth(region)) continue;
            std::uint32_t& best = largest[region];
            if (best == kNone || size_of(f) > size_of(best)) best = f;
        }
        for (std::uint32_t r = 0; r < largest.size(); ++r) {
            if (largest[r] == kNone) continue;
            const std::array<Vec3d, 3> p = corners(largest[r]);
            samples_.push_back({(p[0] + p[1] + p[2]) / 3.0, 0, r, false, false});
        }
    }

    struct ActiveFace {
        std::uint32_t face, first, end;  // rows that it reaches
    };
    struct Hit {
        std::uint32_t line, face;
        double z;
        std::int32_t way;
    };

    // Sweeps the rows of the lattice, with the faces that reach each; lines lie off whole numbers,
    // which edges of drawn parts lie on.
    void sample_rows() {
        const double x0 = low_.x + 0.3719 * step_;
        const double y0 = low_.y + 0.4127 * step_;
        const auto most = static_cast<double>(std::max(cells_x_, cells_y_)) * kSamplesAcross;
        const auto clamped = [most](double place) {
            return saturate_to<std::uint32_t>(std::clamp(place, 0.0, most));
        };
        Array<ActiveFace> faces;  // by first row
        for (std::uint32_t f = 0; f < mesh_.faces.size(); ++f) {
            poll_at(f);
            const std::array<Vec3d, 3> p = corners(f);
            const bool is_sound = is_finite(p[0]) && is_finite(p[1]) && is_finite(p[2]);
            if (mesh_.faces[f].deleted != 0 || !is_sound) continue;
            const auto [low, high] = std::minmax({p[0].y, p[1].y, p[2].y});
            const std::uint32_t first = clamped(std::ceil((low - y0) / step_));
            const std::uint32_t end = clamped(std::floor((high - y0) / step_) + 1);
            if (first < end) faces.push_back({f, first, end});
        }
        std::stable_sort(faces.begin(), faces.end(), [](const ActiveFace& a, const ActiveFace& b) {
            return a.first < b.first;
        });
        Array<ActiveFace> active;
        Array<Hit> hits;
        std::size_t next = 0;
        for (std::uint32_t row = 0; next < faces.size() || !active.empty(); ++row) {
            while (next < faces.size() && faces[next].first == row) active.push_back(faces[next++]);
            const double y = y0 + row * step_;
            hits.clear();
            for (std::size_t k = 0; k < active.size();) {
                if (active[k].end <= row) {
                    active[k] = active.back();
                    active.pop_back();
                    continue;
                }
                const std::uint32_t f = active[k++].face;
                const std::array<Vec3d, 3> p = corners(f);
                const RowSpan span =
                    row_span(p, y, [&](double x) { return clamped(std::ceil((x - x0) / step_)); });
                if (span.from == span.end) continue;
                const Vec3d normal = cross(p[1] - p[0], p[2] - p[0]);
                for (std::uint32_t i = span.low(); i < span.high(); ++i) {
                    hits.push_back({i, f, height_at(p, normal, x0 + i * step_, y), span.way()});
                }
            }
            std::sort(hits.begin(), hits.end(), [](const Hit& a, const Hit& b) {
                return std::tie(a.line, a.z, a.way, a.face) < std::tie(b.line, b.z, b.way, b.face);
            });
            for (std::size_t i = 0; i < hits.size();) {
                std::size_t end = i + 1;
                while (end < hits.size() && hits[end].line == hits[i].line) ++end;
                follow({hits.data() + i, hits.data() + end}, x0 + hits[i].line * step_, y);
                i = end;
            }
        }
    }

    // A line from below. Where holes of the mesh leave open what is inside, the next face below
    // tells.
    void follow(std::span<const Hit> hits, double x, double y) {
        std::int32_t all = 0;
        for (const Hit& hit : hits) all += hit.way;
        std::int32_t depth = 0;
        std::int32_t below = 1;  // way of the face below
        double floor = options_.plate;
        for (const Hit& hit : hits) {
            const std::uint32_t region = overhangs_.region_of_face[hit.face];
            if (hit.way < 0 && region != kNoRegion && is_worth(region)) {
                is_met_[region] = 1;
                const bool is_outside = all == 0 ? depth <= 0 : below > 0;
                if (is_outside && hit.z - floor > kLeastGap) {
                    samples_.push_back({{x, y, hit.z}, floor, region, false, false});
                }
            }
            depth -= hit.way;
            below = hit.way;
            floor = std::max(floor, hit.z);
        }
    }

    bool is_worth(std::uint32_t region) const { return overhangs_.is_worth_holding(region); }
    std::array<Vec3d, 3> corners(std::uint32_t face) const {
        std::array<Vec3d, 3> p;
        for (std::size_t i = 0; i < 3; ++i) {
            p[i] = to_double(mesh_.corner_position(mesh_.faces[face], i));
        }
        return p;
    }
    double size_of(std::uint32_t face) const {
        const std::array<Vec3d, 3> p = corners(face);
        return -cross(p[1] - p[0], p[2] - p[0]).z;
    }
    // -------------------------------------------------------------- cells as wide as the spacing

    std::size_t cell_along(double at, double low, std::size_t count) const {
        const double cell = std::floor((at - low) / options_.spacing) + 1;
        return saturate_to<std::size_t>(std::clamp(cell, 0.0, static_cast<double>(count - 1)));
    }
    std::size_t cell_of(double x, double y) const {
        return cell_along(y, low_.y, cells_y_) * cells_x_ + cell_along(x, low_.x, cells_x_);
    }
    template <typename Visit>
    void for_cells_around(Vec3d place, Visit&& visit) const {
        const std::size_t x = cell_along(place.x, low_.x, cells_x_);
        const std::size_t y = cell_along(place.y, low_.y, cells_y_);
        for (std::size_t j = y == 0 ? 0 : y - 1; j <= std::min(y + 1, cells_y_ - 1); ++j) {
            for (std::size_t i = x == 0 ? 0 : x - 1; i <= std::min(x + 1, cells_x_ - 1); ++i) {
                visit(j * cells_x_ + i);
            }
        }
    }

    void enter_column(std::uint32_t column) {
        const Vec3f top = columns_[column].top;
        std::uint32_t& first = first_column_[cell_of(double{top.x}, double{top.y})];
        next_column_.push_back(first);
        first = column;
    }
    template <typename Visit>
    void for_columns_around(Vec3d place, Visit&& visit) const {
        for_cells_around(place, [&](std::size_t cell) {
            for (std::uint32_t c = first_column_[cell]; c != kNone; c = next_column_[c]) visit(c);
        });
    }

    void sort_into_cells() {
        offsets_.assign(cells_x_ * cells_y_ + 1, 0);
        for (const Sample& s : samples_) ++offsets_[cell_of(s.place.x, s.place.y) + 1];
        for (std::size_t i = 1; i < offsets_.size(); ++i) offsets_[i] += offsets_[i - 1];
        in_cells_.resize(samples_.size());
        Array<std::uint32_t> next = offsets_;
        for (std::uint32_t s = 0; s < samples_.size(); ++s) {
            in_cells_[next[cell_of(samples_[s].place.x, samples_[s].place.y)]++] = s;
        }
    }

    // ------------------------------------------------------------------------- what is held

    static double apart(Vec3d place, Vec3d top) {
        return std::max(std::abs(place.x - top.x), std::abs(place.y - top.y));
    }
    bool reaches(Vec3d top, Vec3d place) const {
        const double away = apart(place, top);
        return away <= reach_ && std::abs(place.z - top.z) <= kTopSlack + kSlope * away;
    }

    static std::uint64_t pair_of(std::uint32_t column, std::uint32_t region) {
        return std::uint64_t{column} << 32 | region;
    }

    // By the columns in the rows: those that meet a sample's region within their cross-sections.
    void settle_held() {
        Array<std::uint64_t> pairs;
        for (const Sample& s : samples_) {
            for_columns_around(s.place, [&](std::uint32_t c) {
                const Vec3d top = to_double(columns_[c].top);
                if (apart(s.place, top) > options_.half_side + step_ / 2 ||
                    std::abs(s.place.z - top.z) > kTopSlack) {
                    return;
                }
                const std::uint64_t pair = pair_of(c, s.region);
                if (pairs.empty() || pairs.back() != pair) pairs.push_back(pair);
            });
        }
        std::sort(pairs.begin(), pairs.end());
        for (Sample& s : samples_) {
            for_columns_around(s.place, [&](std::uint32_t c) {
                s.is_settled = s.is_settled || (reaches(to_double(columns_[c].top), s.place) &&
                                                std::binary_search(pairs.begin(), pairs.end(),
                                                                   pair_of(c, s.region)));
            });
        }
    }

    void hold(std::uint32_t lowest) {
        const Sample first = samples_[lowest];
        samples_[lowest].is_settled = true;
        std::vector<std::uint32_t> around;
        Vec3d sum;
        double length = 0;
        for_open_around(first, first.place, [&](std::uint32_t s) {
            around.push_back(s);
            sum = sum + samples_[s].place;
            length = std::max(length, apart(samples_[s].place, first.place));
        });
        const double area = static_cast<double>(around.size() + 1) * step_ * step_;
        // Threads in mid-air have little area.
        const bool is_thread = length > kThread * options_.spacing && begins_in_mid_air(first);
        if (!first.is_tip && !is_thread && area < overhangs_.least_area) return;
        const Vec3d middle = first.is_tip
                                 ? first.place
                                 : (sum + first.place) / static_cast<double>(around.size() + 1);
        around.push_back(lowest);
        std::sort(around.begin(), around.end(), [&](std::uint32_t a, std::uint32_t b) {
            const double to_a = apart(samples_[a].place, middle);
            const double to_b = apart(samples_[b].place, middle);
            return std::pair(to_a, a) < std::pair(to_b, b);
        });
        around.resize(std::min(around.size(), kMostTries));
        overlapping_.reset();
        for (const std::uint32_t s : around) {
            if (place_column(samples_[s])) return;
        }
        if (place_within(samples_[around.front()], middle)) return;
        if (first.is_tip && place_beside(first)) return;
        if (overlapping_) {
            place(overlapping_->sample, overlapping_->top, overlapping_->floor);
            return;
        }
        // There is no room; nor will there be a step aside.
        for_open_around(first, first.place, [&](std::uint32_t s) {
            Sample& other = samples_[s];
            if (apart(other.place, first.place) <= options_.half_side && !other.is_tip) {
                other.is_settled = true;
            }
        });
    }

    bool begins_in_mid_air(const Sample& sample) const {
        return sample.region >= overhangs_.areas.size() || overhangs_.has_tip[sample.region] != 0;
    }

    // Calls visit(sample) for those of the same region that are still open and within reach.
    template <typename Visit>
    void for_open_around(const Sample& of, Vec3d top, Visit&& visit) const {
        for_cells_around(top, [&](std::size_t cell) {
            for (std::uint32_t i = offsets_[cell]; i < offsets_[cell + 1]; ++i) {
                const Sample& s = samples_[in_cells_[i]];
                if (s.is_settled || s.region != of.region || !reaches(top, s.place)) continue;
                visit(in_cells_[i]);
            }
        });
    }

    bool place_column(const Sample& sample) {
        const bool is_steep = sample.region >= overhangs_.areas.size();
        const double top = sample.place.z + (is_steep ? kAroundTip : 0.0);
        return try_column(sample, {sample.place.x, sample.place.y, top}, sample.floor);
    }

    // Between the samples, where it is narrow.
    bool place_within(const Sample& sample, Vec3d middle) {
        const double step = step_ / 3;
        for (int around = 0; around <= kMostSteps; ++around) {
            for (int i = -around; i <= around; ++i) {
                for (int j = -around; j <= around; ++j) {
                    if (std::max(std::abs(i), std::abs(j)) != around) continue;
                    Vec3d top{middle.x + i * step, middle.y + j * step, sample.place.z};
                    double nearest = kTopSlack;
                    crossings_.clear();
                    lines_.visit_crossings(top.x, top.y, [&](const auto& crossing) {
                        crossings_.push_back(crossing);
                        const double away = std::abs(crossing.z - sample.place.z);
                        if (crossing.way > 0 || !(away < nearest)) return false;
                        nearest = away;
                        top.z = crossing.z;
                        return false;
                    });
                    if (!(nearest < kTopSlack)) continue;
                    const UprightLines::Below below = UprightLines::look_down(crossings_, top.z);
                    const double floor = std::max(below.floor, options_.plate);
                    if (!below.is_outside || !(top.z - floor > kLeastGap)) continue;
                    if (try_column(sample, top, floor)) return true;
                }
            }
        }
        return false;
    }

    // With the place at a corner or in the middle of a side.
    bool place_beside(const Sample& sample) {
        for (int i = 0; i < 9; ++i) {
            if (i == 4) continue;
            const double shift = 0.8 * options_.half_side;
            const int row = i / 3;
            Vec3d top = sample.place;
            top.x += (i % 3 - 1) * shift;
            top.y += (row - 1) * shift;
            top.z += kAroundTip;
            // The axis may pass the surface on its way down.
            const UprightLines::Below below = lines_.look_down(top);
            const double floor = std::max(below.floor, options_.plate);
            if (!below.is_outside || !(sample.place.z - floor > kLeastGap)) continue;
            if (try_column(sample, top, floor)) return true;
        }
        return false;
    }

    // False as well for the first that would only overlap another column; that one is kept in mind.
    bool try_column(const Sample& sample, Vec3d top, double floor) {
        if (!is_free(top, floor)) return false;
        if (!overlaps(top, floor)) {
            place(sample, top, floor);
            return true;
        }
        if (!overlapping_) overlapping_ = {sample, top, floor};
        return false;
    }

    void place(const Sample& sample, Vec3d top, double floor) {
        const Vec3f end{narrow_to_float(top.x), narrow_to_float(top.y), narrow_to_float(top.z)};
        columns_.push_back({end, {end.x, end.y, narrow_to_float(floor)}});
        enter_column(static_cast<std::uint32_t>(columns_.size() - 1));
        for_open_around(sample, top, [this](std::uint32_t s) { samples_[s].is_settled = true; });
    }

    // Eight lines around the axis, first the one that was not free for the column tried before.
    bool is_free(Vec3d top, double floor) {
        const auto is_line_free = [&](int i) {
            const int row = i / 3;
            return i == 4 || lines_.is_free(top.x + (i % 3 - 1) * options_.half_side,
                                            top.y + (row - 1) * options_.half_side,
                                            floor + kIntoFoot, top.z - kIntoTop);
        };
        if (!is_line_free(crossed_line_)) return false;
        for (int i = 0; i < 9; ++i) {
            if (i == crossed_line_ || is_line_free(i)) continue;
            crossed_line_ = i;
            return false;
        }
        return true;
    }

    bool overlaps(Vec3d top, double floor) const {
        bool do_overlap = false;
        for_columns_around(top, [&](std::uint32_t c) {
            const Vec3d other = to_double(columns_[c].top);
            do_overlap = do_overlap || (apart(top, other) < 2 * options_.half_side &&
                                        other.z > floor && double{columns_[c].bottom.z} < top.z);
        });
        return do_overlap;
    }

    const TriMesh& mesh_;
    const UprightLines& lines_;
    const Overhangs& overhangs_;
    const AddedColumnOptions& options_;
    Array<Column>& columns_;
    double reach_;
    double step_ = 1;
    Vec3d low_;
    std::size_t cells_x_ = 0;
    std::size_t cells_y_ = 0;
    Array<Sample> samples_;
    Array<std::uint8_t> is_met_;         // by region: a line of the lattice passes it
    Array<std::uint32_t> first_column_;  // by cell
    Array<std::uint32_t> next_column_;   // by column, in its cell
    Array<std::uint32_t> offsets_;       // by cell
    Array<std::uint32_t> in_cells_;      // samples, cell by cell
    // The first column for the sample at hand that is free but overlaps another one.
    struct Candidate {
        Sample sample;
        Vec3d top;
        double floor;
    };
    std::optional<Candidate> overlapping_;
    Array<UprightLines::Crossing> crossings_;
    int crossed_line_ = 0;
};

}  // namespace

void add_columns(const TriMesh& mesh, const UprightLines& lines, const Overhangs& overhangs,
                 const AddedColumnOptions& options, Array<Column>& columns) {
    if (options.half_side > 0) ColumnAdder(mesh, lines, overhangs, options, columns).run();
}

}  // namespace povmesh
