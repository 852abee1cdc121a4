// Voxels as wide as the columns' spacing tell where something hangs over and how far down the space
// below it is free; lines through the surface then tell where a column fits and where it ends.
#include "support/column_supports.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <string>
#include <tuple>

#include "base/convert.h"
#include "base/poll.h"
#include "support/added_columns.h"
#include "support/gap_search.h"
#include "support/overhangs.h"
#include "support/undersides.h"
#include "support/upright_lines.h"
#include "voxel/passes.h"
#include "voxel/voxelise.h"

namespace povmesh {
namespace {

constexpr float kLayerHeight = 1.0F;
constexpr double kApart = 0.2;   // of the sides of two columns at their edges, each
constexpr double kBeyond = 2.0;  // that a column reaches beyond its gap
constexpr double kShortest = 1.0;
// A region of overhangs as wide as this share of the spacing is worth a column. Narrower ones, held
// by what is beside them, print without.
constexpr double kLeastWidth = 0.4;
// Of 64 cells; and more where there are voxels among them, with flags, angles and what is made of
// them on the way. Measured on tall shells.
constexpr double kBytesOfWord = 30;
constexpr double kBytesOfVoxels = 130;
constexpr double kMostBytes = 1e9;
// Layers of voxels around a level face.
constexpr double kThickness = 8;
// Rows that faces reach, 4 bytes each.
constexpr double kMostReached = 1e8;
constexpr double kTip = 0.001;  // height of the pyramids at the ends of a tube

// The column of a gap; too short when it is none.
struct Stretch {
    double upper, lower;
};

Stretch stretch_of(const Gap& gap, double plate) {
    return {double{gap.upper} + kBeyond, std::max(double{gap.lower} - kBeyond, plate)};
}

// Cuts off what reaches into the model.
Stretch cut_at_surface(Stretch stretch, const Underside* underside) {
    if (underside == nullptr) return stretch;
    if (underside->is_over_axis) stretch.upper = double{underside->top};
    stretch.lower = std::max(stretch.lower, double{underside->floor});
    return stretch;
}

std::string whole(double number) {
    return std::to_string(saturate_to<std::int64_t>(number));
}

// What would take more memory than the voxels of a printable model ever do; empty if nothing would.
std::string too_much_work(const TriMesh& mesh, Vec3f wanted) {
    const ModelBox model = model_box(mesh);
    const Vec3d size = to_double(fitting_size(model, wanted));
    const Vec3d extent = to_double(model.extent);
    const double rows = std::ceil(extent.y / size.y) + 3;
    const double layers = std::ceil(extent.z / size.z) + 3;
    const double words = std::ceil((extent.x / size.x + 3) / 64) * rows * layers;
    double reached = 0;   // rows of columns
    double occupied = 0;  // words with voxels
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        Box3d box;
        for (std::size_t i = 0; face.deleted == 0 && i < 3; ++i) {
            box.widen(to_double(mesh.corner_position(face, i)));
        }
        const Vec3d deep = box.extent();
        if (box.is_empty() || !is_finite(deep)) continue;
        reached += deep.y / size.y + 2;
        occupied +=
            (deep.x / size.x / 64 + 1) * (deep.y / size.y + 2) * (deep.z / size.z + kThickness);
    }
    const double bytes = words * kBytesOfWord + std::min(words, occupied) * kBytesOfVoxels;
    if (bytes > kMostBytes) {
        return "supports of a model " + whole(layers) + " layers high and " + whole(rows) +
               " rows wide would take " + whole(std::ceil(bytes / 1e9)) +
               " GB of memory, more than 1";
    }
    if (reached > kMostReached) {
        return "the triangles of the model reach over " + whole(reached) +
               " rows of columns, more than " + whole(kMostReached);
    }
    return {};
}

}  // namespace

double column_radius(double spacing) {
    return spacing * 0.5 - kApart;
}

double column_half_side(double spacing) {
    const double radius = column_radius(spacing);
    return radius > 0 ? radius / std::numbers::sqrt2 : 0.0;
}

Status find_columns(const TriMesh& mesh, const ColumnOptions& options, RunContext& run,
                    Array<Column>& columns) {
    columns.clear();
    const auto edge = static_cast<float>(options.spacing);
    const VoxelSettings settings{{edge, edge, kLayerHeight}, true};
    if (!is_voxel_size(settings.size) || !(column_radius(options.spacing) > 0) ||
        std::isnan(options.angle) || !std::isfinite(options.plate)) {
        return {StatusCode::BadOption,
                "columns need a spacing above 0.4, an angle that is a number and a plate"};
    }
    if (const std::string work = too_much_work(mesh, settings.size); !work.empty()) {
        run.log.caution(work + "\n");
        return {StatusCode::TooLarge, work + "; take a greater spacing, or a smaller model"};
    }
    const auto threshold = saturate_to<std::int8_t>(90 - options.angle);

    VoxelGrid grid = voxelise(mesh, settings, run);
    mark_exposed_sides(grid, kSurfaceLine, run);
    mark_exposed_sides(grid, kFacesLine, run);
    fill_rows(grid, FillColour::White);
    const Vec3d size = to_double(grid.settings().size);
    const double least_area = kLeastWidth * size.x * kLeastWidth * size.x;
    const double half_side = column_half_side(options.spacing);
    const UprightLines lines(mesh);
    const Overhangs overhangs = find_overhangs(mesh, lines, clamped_angle(threshold), least_area);
    const Undersides undersides =
        fit_to_columns(grid, mesh, overhangs, {half_side, !options.adds_between});
    drop_rims(grid, undersides, clamped_angle(threshold));
    const GapGrid gaps = find_gaps(grid, threshold, options.plate);

    const Vec3d origin = to_double(grid.origin());
    for (std::size_t i = 0; i < gaps.count_x; ++i) {
        for (std::size_t j = 0; j < gaps.count_y; ++j) {
            const std::int32_t ix = gaps.low_x + static_cast<std::int32_t>(i);
            const std::int32_t iy = gaps.low_y + static_cast<std::int32_t>(j);
            for (const Gap& gap : gaps.at(i, j)) {
                Stretch stretch = stretch_of(gap, options.plate);
                if (!(stretch.upper - stretch.lower >= kShortest)) continue;
                const Underside* underside = undersides.find({ix, iy, gap.seed});
                // Lines through holes of the mesh leave cubes that tell little.
                if (options.adds_between && underside == nullptr) continue;
                if (options.ends_at_surface) stretch = cut_at_surface(stretch, underside);
                const float x = narrow_to_float(ix * size.x + origin.x);
                const float y = narrow_to_float(iy * size.y + origin.y);
                columns.push_back({{x, y, narrow_to_float(stretch.upper)},
                                   {x, y, narrow_to_float(stretch.lower)}});
            }
        }
    }
    if (options.adds_between) {
        add_columns(mesh, lines, overhangs, {size.x, half_side, options.plate}, columns);
        std::sort(columns.begin(), columns.end(), [](const Column& a, const Column& b) {
            return std::tie(a.top.x, a.top.y, b.top.z) < std::tie(b.top.x, b.top.y, a.top.z);
        });
    }
    return {};
}

void add_tubes(TriMesh& mesh, std::span<const Column> columns, double radius) {
    if (!(radius > 0)) return;
    const double d = radius / std::numbers::sqrt2;
    constexpr std::array<std::array<int, 2>, 4> kCorners = {{{1, 1}, {-1, 1}, {-1, -1}, {1, -1}}};
    const auto add_vertex = [&](double x, double y, double z) {
        const auto index = fits<std::int32_t>(mesh.vertices.size());
        mesh.vertices.push_back(
            {narrow_to_float(x), narrow_to_float(y), narrow_to_float(z), index});
        return index;
    };
    const auto add_face = [&](std::int32_t a, std::int32_t b, std::int32_t c) {
        Face face{};
        face.colour.fill(255);
        face.label = -1;
        face.vertex = {a, b, c};
        face.uv = {-1, -1, -1};
        mesh.faces.push_back(face);
    };
    for (const Column& column : columns) {
        const Vec3d top = to_double(column.top);
        const Vec3d bottom = to_double(column.bottom);
        const std::int32_t tip = add_vertex(top.x, top.y, top.z);
        for (const auto& [x, y] : kCorners) add_vertex(top.x + x * d, top.y + y * d, top.z - kTip);
        for (const auto& [x, y] : kCorners) {
            add_vertex(bottom.x + x * d, bottom.y + y * d, bottom.z + kTip);
        }
        const std::int32_t foot = add_vertex(bottom.x, bottom.y, bottom.z);
        for (std::int32_t k = 0; k < 4; ++k) {
            const std::int32_t upper = tip + 1 + k;
            const std::int32_t next_upper = tip + 1 + (k + 1) % 4;
            const std::int32_t lower = upper + 4;
            const std::int32_t next_lower = next_upper + 4;
            add_face(tip, upper, next_upper);
            add_face(upper, lower, next_lower);
            add_face(upper, next_lower, next_upper);
            add_face(foot, next_lower, lower);
        }
    }
    mesh.use_table.clear();
    mesh.shells.clear();
}

}  // namespace povmesh
