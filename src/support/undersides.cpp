// Follows nine lines of each column of voxels through the surface, counting how often they are
// inside. What a line is inside of becomes a run of voxels; the lower end of each run is an
// underside.
#include "support/undersides.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <tuple>
#include <vector>

#include "base/convert.h"
#include "base/poll.h"
#include "support/column_lines.h"
#include "voxel/passes.h"

namespace povmesh {
namespace {

constexpr float kNoFloor = std::numeric_limits<float>::lowest();
// Hosts rely on angles by this value.
constexpr double kPi = 3.1415926;
constexpr std::size_t kLines = 9;
constexpr std::size_t kAxis = 0;
constexpr std::size_t kTip = kLines;

// A stretch of a line inside the model.
struct Stretch {
    std::int32_t first, last;  // layers
    std::size_t line;          // or kTip
    float from, to;            // heights, relative to the origin
    float steepness;
};

std::int8_t angle_of(float steepness) {
    double cosine = double{steepness};
    if (cosine < 0.001) cosine = 0;
    return saturate_to<std::int8_t>(std::acos(std::min(cosine, 1.0)) * 180.0 / kPi);
}

class ColumnFitter {
public:
    ColumnFitter(VoxelGrid& grid, const TriMesh& mesh, const Overhangs& overhangs,
                 const ColumnFit& fit)
        : grid_(grid),
          half_side_(fit.half_side),
          layer_height_(double{grid.settings().size.z}),
          is_grain_(grain(overhangs)),
          lines_(mesh, grid.origin(), lattice_of(grid), is_grain_) {
        if (fit.takes_tips) place_tips(overhangs);
        const double d = half_side_;
        offsets_ = {{{0, 0}, {-d, -d}, {0, -d}, {d, -d}, {-d, 0}, {d, 0}, {-d, d}, {0, d}, {d, d}}};
        toggles_.assign(grid.word_count() + 1, 0);
    }

    Undersides run() {
        for (std::int32_t y = grid_.box().low.y; y <= grid_.box().high.y; ++y) {
            poll();
            fit_row(y);
        }
        remove_cells();
        mark_exposed_sides(grid_);
        for (std::size_t i = 0; i < found_.all.size(); ++i) {
            const Underside& underside = found_.all[i];
            const VoxelIndex at = {underside.x, underside.y, underside.layer};
            if (grid_.contains(at)) grid_.set_angle(grid_.cell_of(at), angles_[i]);
        }
        return std::move(found_);
    }

private:
    static LineLattice lattice_of(const VoxelGrid& grid) {
        const IndexBox& box = grid.box();
        const Vec3d size = to_double(grid.settings().size);
        return {box.low.x * size.x,
                box.low.y * size.y,
                size.x,
                size.y,
                static_cast<std::size_t>(std::int64_t{box.high.x} - box.low.x + 1),
                static_cast<std::size_t>(std::int64_t{box.high.y} - box.low.y + 1)};
    }

    static Array<std::uint8_t> grain(const Overhangs& overhangs) {
        Array<std::uint8_t> is_grain(overhangs.region_of_face.size());
        for (std::size_t f = 0; f < is_grain.size(); ++f) {
            const std::uint32_t region = overhangs.region_of_face[f];
            is_grain[f] = region != kNoRegion && !overhangs.is_worth_holding(region) ? 1 : 0;
        }
        return is_grain;
    }

    // Ordered as the columns are passed.
    void place_tips(const Overhangs& overhangs) {
        for (const Tip& tip : overhangs.tips) {
            const Vec3d place = tip.place - to_double(grid_.origin());
            const VoxelIndex at = grid_.index_at(place);
            if (grid_.can_hold(at)) tips_.push_back({at, narrow_to_float(place.z)});
        }
        std::sort(tips_.begin(), tips_.end(), [](const PlacedTip& a, const PlacedTip& b) {
            return std::tie(a.at.y, a.at.x, a.z) < std::tie(b.at.y, b.at.x, b.z);
        });
    }

    void fit_row(std::int32_t y) {
        const std::size_t line_count = half_side_ > 0 ? kLines : 1;
        std::array<std::size_t, kLines> next{};
        for (std::size_t line = 0; line < line_count; ++line) {
            lines_.find(static_cast<std::size_t>(std::int64_t{y} - grid_.box().low.y),
                        offsets_[line][0], offsets_[line][1], row_[line]);
        }
        for (std::int32_t x = grid_.box().low.x; x <= grid_.box().high.x; ++x) {
            stretches_.clear();
            bool is_whole = true;
            const auto i = static_cast<std::uint32_t>(std::int64_t{x} - grid_.box().low.x);
            for (std::size_t line = 0; line < line_count; ++line) {
                is_whole = follow(line, i, next[line]) && is_whole;
            }
            for (; next_tip_ < tips_.size() && tips_[next_tip_].at.y == y &&
                   tips_[next_tip_].at.x == x;
                 ++next_tip_) {
                const std::int32_t layer = layer_above(tips_[next_tip_].z);
                const float z = tips_[next_tip_].z;
                stretches_.push_back({layer, layer, kTip, z, z, 1});
            }
            if (is_whole) {
                fit_column(x, y);
            } else {
                toggle({x, y, grid_.box().low.z});
            }
        }
    }

    // False when the line does not come out of the model in the end.
    bool follow(std::size_t line, std::uint32_t i, std::size_t& next) {
        const Array<LineCrossing>& row = row_[line];
        std::int32_t depth = 0;
        for (; next < row.size() && row[next].i == i; ++next) {
            const LineCrossing& crossing = row[next];
            if (depth == 0) {
                stretches_.push_back(
                    {layer_above(crossing.z), 0, line, crossing.z, 0, crossing.steepness});
            }
            depth += crossing.way;
            if (depth == 0) {
                Stretch& stretch = stretches_.back();
                stretch.to = crossing.z;
                stretch.last = std::max(stretch.first, layer_below(crossing.z));
            }
        }
        return depth == 0;
    }

    // The layer that holds a height; of a height between two layers, the one above or below.
    std::int32_t layer_above(float z) const {
        return within(std::floor(double{z} / layer_height_ + 0.5));
    }
    std::int32_t layer_below(float z) const {
        return within(std::ceil(double{z} / layer_height_ - 0.5));
    }
    std::int32_t within(double layer) const {
        return std::clamp(saturate_to<std::int32_t>(layer), grid_.box().low.z, grid_.box().high.z);
    }

    void fit_column(std::int32_t x, std::int32_t y) {
        std::sort(stretches_.begin(), stretches_.end(), [](const Stretch& a, const Stretch& b) {
            return std::tie(a.first, a.line, a.from) < std::tie(b.first, b.line, b.from);
        });
        float floor = kNoFloor;
        for (std::size_t i = 0; i < stretches_.size();) {
            const std::int32_t first = stretches_[i].first;
            std::int32_t last = stretches_[i].last;
            std::size_t end = i + 1;
            while (end < stretches_.size() && stretches_[end].first <= last + 1) {
                last = std::max(last, stretches_[end++].last);
            }
            toggle({x, y, first});
            toggle({x, y, last + 1});
            add_underside({stretches_.data() + i, stretches_.data() + end}, x, y, floor);
            for (; i < end; ++i) {
                if (stretches_[i].line == kAxis) floor = std::max(floor, stretches_[i].to);
            }
        }
    }

    // Of the stretches of one run of voxels.
    void add_underside(std::span<const Stretch> run, std::int32_t x, std::int32_t y, float floor) {
        const std::int32_t layer = run.front().first;
        const double bottom = (layer - 0.5) * layer_height_;
        const double origin = double{grid_.origin().z};
        Underside underside{x, y, layer, false, 0, kNoFloor, false};
        if (floor != kNoFloor) underside.floor = narrow_to_float(double{floor} + origin);
        float level = -1;  // the steepness of the flattest entry
        const Stretch* axis = nullptr;
        for (const Stretch& stretch : run) {
            if (stretch.line == kAxis && (axis == nullptr || stretch.from < axis->from)) {
                axis = &stretch;
            }
            if (stretch.first != layer) continue;
            level = std::max(level, stretch.steepness);
            underside.is_tip = underside.is_tip || stretch.line == kTip;
        }
        if (axis != nullptr) {
            const double cosine = double{axis->steepness};
            const double rise =
                half_side_ * std::numbers::sqrt2 * std::sqrt(std::max(1 - cosine * cosine, 0.0));
            underside.is_over_axis = (double{axis->from} - bottom - layer_height_) * cosine <= rise;
        }
        if (underside.is_over_axis) {
            underside.top = narrow_to_float(double{axis->from} + origin);
            level = std::max(level, axis->steepness);
        }
        found_.all.push_back(underside);
        angles_.push_back(angle_of(level));
    }

    // The voxels of a column stay from every second toggle on to the next.
    void toggle(VoxelIndex at) {
        const std::size_t cell = grid_.cell_of(at);
        toggles_[cell / 64] ^= std::uint64_t{1} << (cell % 64);
    }

    void remove_cells() {
        const std::size_t layer = grid_.words_per_layer();
        for (std::size_t word = layer; word < grid_.word_count(); ++word) {
            toggles_[word] ^= toggles_[word - layer];
            const std::uint64_t gone = grid_.occupied()[word] & ~toggles_[word];
            if (gone != 0) grid_.remove(word, gone);
        }
        grid_.recount();
    }

    struct PlacedTip {
        VoxelIndex at;
        float z;  // relative to the origin
    };

    VoxelGrid& grid_;
    double half_side_;
    double layer_height_;
    Array<std::uint8_t> is_grain_;  // by face
    ColumnLines lines_;
    std::vector<PlacedTip> tips_;
    std::size_t next_tip_ = 0;
    std::array<std::array<double, 2>, kLines> offsets_{};
    std::array<Array<LineCrossing>, kLines> row_;
    Array<Stretch> stretches_;
    VoxelGrid::Words toggles_;
    Undersides found_;
    Array<std::int8_t> angles_;  // by underside
};

bool is_before(const Underside& a, VoxelIndex b) {
    return std::tie(a.y, a.x, a.layer) < std::tie(b.y, b.x, b.z);
}

// Undersides that can get a column, asked by column.
class SeedTable {
public:
    SeedTable(const VoxelGrid& grid, const Undersides& undersides, std::int8_t threshold) {
        constexpr std::size_t kBottom = static_cast<std::size_t>(voxel::Side::Bottom);
        Poller poller;
        for (const Underside& underside : undersides.all) {
            poller();
            const VoxelIndex at = {underside.x, underside.y, underside.layer};
            if (!grid.contains(at)) continue;
            const Voxel voxel = grid.voxel_at(grid.cell_of(at));
            if ((voxel.flags >> kBottom & 1) != 0 && voxel.angle <= threshold) {
                seeds_.all.push_back(underside);
            }
        }
    }

    const Array<Underside>& all() const { return seeds_.all; }

    // Calls `visit(seed)` for those in the eight columns around whose layers are `reach` away at
    // most.
    template <typename Visit>
    void for_each_beside(const Underside& seed, std::int64_t reach, Visit&& visit) const {
        const auto low = saturate(std::int64_t{seed.layer} - reach);
        for (std::int32_t y = seed.y - 1; y <= seed.y + 1; ++y) {
            for (std::int32_t x = seed.x - 1; x <= seed.x + 1; ++x) {
                if (x == seed.x && y == seed.y) continue;
                auto place = std::lower_bound(seeds_.all.begin(), seeds_.all.end(),
                                              VoxelIndex{x, y, low}, is_before);
                for (; place != seeds_.all.end() && place->x == x && place->y == y &&
                       std::int64_t{place->layer} - seed.layer <= reach;
                     ++place) {
                    visit(*place);
                }
            }
        }
    }

private:
    static std::int32_t saturate(std::int64_t layer) {
        return static_cast<std::int32_t>(
            std::max<std::int64_t>(layer, std::numeric_limits<std::int32_t>::min()));
    }

    Undersides seeds_;
};

}  // namespace

const Underside* Undersides::find(VoxelIndex at) const {
    const auto place = std::lower_bound(all.begin(), all.end(), at, is_before);
    if (place == all.end() || VoxelIndex{place->x, place->y, place->layer} != at) return nullptr;
    return &*place;
}

Undersides fit_to_columns(VoxelGrid& grid, const TriMesh& mesh, const Overhangs& overhangs,
                          const ColumnFit& fit) {
    if (grid.word_count() == 0) return {};
    return ColumnFitter(grid, mesh, overhangs, fit).run();
}

void drop_rims(VoxelGrid& grid, const Undersides& undersides, std::int8_t threshold) {
    const Vec3d size = to_double(grid.settings().size);
    const auto reach = std::int64_t{saturate_to<std::int32_t>(size.x / size.z + 1)};
    const SeedTable seeds(grid, undersides, threshold);
    Poller poller;
    for (const Underside& seed : seeds.all()) {
        poller();
        if (seed.is_over_axis || seed.is_tip) continue;
        bool is_held_beside = false;
        seeds.for_each_beside(seed, reach, [&](const Underside& other) {
            is_held_beside = is_held_beside || other.is_over_axis;
        });
        if (is_held_beside) {
            grid.set_angle(grid.cell_of({seed.x, seed.y, seed.layer}), kNoAngle);
        }
    }
}

}  // namespace povmesh
