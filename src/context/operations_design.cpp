// The operations that make parts, shades, and what holds a model up.
#include <algorithm>
#include <array>
#include <limits>

#include "base/poll.h"
#include "context/defaults.h"
#include "context/operation_steps.h"
#include "context/rows.h"
#include "job/balance.h"
#include "job/decompose.h"
#include "job/lampshade.h"
#include "job/numbers.h"
#include "job/support.h"
#include "mesh/append_mesh.h"
#include "support/slice_polygons.h"

namespace povmesh::context {
namespace {

// Of the mesh.
constexpr std::size_t kFacesOfColumn = 16;

job::DecomposeJob job_of(Call& call, const povmesh_decompose_options& o) {
    call.flag(o.uniform, "uniform");
    call.flag(o.preview, "preview");
    call.flag(o.turn, "turn");
    call.require(o.pegs <= 256, "pegs", "must be at most 256");
    call.require(o.reserved == 0, "reserved", "must be 0");
    call.require(std::isfinite(o.margin) && o.margin >= 0, "margin", "must be 0 or above");
    call.require(std::isfinite(o.peg_radius) && o.peg_radius >= 0, "peg_radius",
                 "must be 0 or above");
    const job::DecomposeJob job{.size = {o.extent[0], o.extent[1], o.extent[2]},
                                .margin = o.margin,
                                .uniform = o.uniform != 0,
                                .may_turn = o.turn != 0,
                                .pegs = o.pegs,
                                .peg_radius = o.peg_radius};
    for (const double x : o.extent) {
        call.require(std::isfinite(x) && x >= 0, "extent", "must have three numbers of 0 or above");
        if (x == 0) continue;
        call.require(x > o.margin, "margin", "leaves nothing of the extent");
        call.require(x - o.margin > job.peg_length(), "peg_radius",
                     "makes pegs, twice as long, that leave nothing of the extent");
    }
    call.require(!(job.size == Vec3d{}), "extent", "must limit one axis at least");
    return job;
}

void add_planes(povmesh_result& result, const std::vector<DividingPlane>& planes) {
    Array<double> rows;
    for (const DividingPlane& plane : planes) {
        for (std::size_t axis = 0; axis < 3; ++axis) rows.push_back(axis == plane.axis ? 1 : 0);
        rows.push_back(shortest_double(plane.offset));
    }
    add_rows<double>(result, POVMESH_PLANES, POVMESH_F64, 4, rows);
}

void add_pieces(povmesh_result& result, const std::vector<job::PieceMeasures>& pieces) {
    Array<float> boxes;
    Array<double> volumes;
    for (const job::PieceMeasures& piece : pieces) {
        for (const Vec3f p : {piece.box.low, piece.box.high}) {
            for (const float x : {p.x, p.y, p.z}) boxes.push_back(x);
        }
        volumes.push_back(piece.volume);
    }
    add_rows<float>(result, POVMESH_BOXES, POVMESH_F32, 6, boxes);
    add_rows<double>(result, POVMESH_VOLUMES, POVMESH_F64, 1, volumes);
}

povmesh_decompose_report report_of(const job::DecomposeDone& done) {
    povmesh_decompose_report r{};
    r.fits = done.report.too_large == 0 ? 1 : 0;
    r.parts = done.pieces.size();
    r.cuts = done.report.cuts;
    r.least_parts = done.report.least_parts;
    r.uniform_parts = done.report.uniform_parts;
    r.pegs = done.report.pegs;
    r.cut_area = done.report.cut_area;
    return r;
}

job::LampshadeJob job_of(Call& call, const povmesh_lampshade_options& o) {
    call.flag(o.preview, "preview");
    call.in_range(o.top, POVMESH_TOP_AUTOMATIC, POVMESH_TOP_LEVEL, "top");
    call.require(o.reserved == 0, "reserved", "must be 0");
    call.above_zero(o.thickness, "thickness");
    job::LampshadeJob job;
    job.thickness = o.thickness;
    job.preview = o.preview != 0;
    job.fills_contours = true;
    if (!std::isnan(o.bottom)) {
        call.finite(o.bottom, "bottom");
        job.options.bottom = o.bottom;
    }
    if (o.top == POVMESH_TOP_LEVEL) {
        call.finite(o.top_level, "top_level");
        call.require(!job.options.bottom || *job.options.bottom < o.top_level, "top_level",
                     "must be higher than bottom");
        job.options.top_level = o.top_level;
    } else {
        call.require(std::isnan(o.top_level), "top_level", "counts with POVMESH_TOP_LEVEL only");
        constexpr std::array kTops = {LampshadeTop::Auto, LampshadeTop::Open, LampshadeTop::Closed};
        job.options.top = kTops[static_cast<std::size_t>(o.top)];
    }
    return job;
}

// Of all shades: the areas summed up, the circle that is narrowest.
povmesh_lampshade_report report_of(const job::LampshadeDone& done, bool is_preview) {
    povmesh_lampshade_report r{};
    const LampshadeReport& made = done.report;
    double radius = std::numeric_limits<double>::infinity();
    for (const LampshadeShade& shade : made.shades) {
        r.opening_area += shade.bottom.area;
        radius = std::min(radius, shade.bottom.radius);
        if (shade.top) r.top_area += shade.top->area;
    }
    r.opening_circle = 2 * radius;
    r.cut_off = done.cut_below + done.cut_above;
    r.smallest_wall = is_preview ? kUnset : made.smallest_wall;
    r.mean_wall = is_preview ? kUnset : made.mean_wall;
    r.flat_ceiling_area = is_preview ? kUnset : made.ceiling_area;
    return r;
}

job::BalanceJob job_of(Call& call, const povmesh_balance_options& o) {
    call.flag(o.check, "check");
    call.require(std::isfinite(o.thickness) && o.thickness >= 0, "thickness", "must be 0 or above");
    call.in_range(o.angle, 1, 90, "angle");
    if (o.infill_percent != 0) call.in_range(o.infill_percent, 1, 100, "infill_percent");
    call.require(o.drain_count == 0 || o.check == 0, "drains", "are not cut by a check");
    Drains drains = drains_of(call, o.drains, o.drain_count);
    job::BalanceJob job;
    job.thickness = o.thickness;
    job.firm = o.angle;
    if (o.infill_percent != 0) job.infill = o.infill_percent / 100;
    job.only_measures = o.check != 0;
    job.drains = std::move(drains.drains);
    job.drain_name = std::move(drains.name);
    return job;
}

std::int32_t outcome_of(BalanceStatus status) {
    switch (status) {
        case BalanceStatus::Carved:
            return POVMESH_BALANCE_CARVED;
        case BalanceStatus::Falls:
            return POVMESH_BALANCE_FALLS;
        default:
            return POVMESH_BALANCE_FIRM;
    }
}

povmesh_balance_report report_of(const job::BalanceDone& done) {
    povmesh_balance_report r{};
    const BalanceReport& balanced = done.report;
    r.outcome = outcome_of(balanced.status);
    r.base_area = area_of(balanced.base);
    r.tilt_before = balanced.before.tilt;
    r.tilt_after = done.after.tilt;
    r.voxel_size = balanced.voxel_size;
    r.cavity_volume = balanced.cavity_volume;
    r.saved_percent = done.saved_percent;
    r.smallest_wall = balanced.smallest_wall;
    copy_vector(balanced.before.centre, r.centre_before);
    copy_vector(done.after.centre, r.centre_after);
    return r;
}

// Those given; none: they are to be looked for.
Array<Column> columns_of(Call& call, const povmesh_view& view) {
    Array<Column> columns;
    if (!is_given(view)) return columns;
    const Rows rows(call, view, "columns", {POVMESH_F32}, {6});
    call.require(rows.count() != 0, "columns", "has no row");
    if (rows.count() > kMaxFaceCount / kFacesOfColumn) {
        call.stop(POVMESH_TOO_LARGE, "too many columns for one mesh");
    }
    columns.reserve(rows.count());
    Poller poller;
    for (std::size_t i = 0; i < rows.count(); ++i) {
        poller();
        std::array<float, 6> x{};
        for (std::size_t k = 0; k < x.size(); ++k) {
            x[k] = rows.single(i, k);
            call.require(std::isfinite(x[k]), "columns", "must have finite numbers");
        }
        columns.push_back({{x[0], x[1], x[2]}, {x[3], x[4], x[5]}});
    }
    return columns;
}

job::SupportJob job_of(Call& call, const povmesh_support_options& o) {
    call.flag(o.with_model, "with_model");
    // Columns are 0.4 apart: nothing would be left of narrower ones.
    call.in_range(o.spacing, 0.5, 10000, "spacing");
    call.in_range(o.angle, 0, 90, "angle");
    call.require(std::isfinite(o.layer_height) && o.layer_height >= 0, "layer_height",
                 "must be 0 or above");
    job::SupportJob job;
    job.spacing = o.spacing;
    job.angle = o.angle;
    if (!std::isnan(o.plate)) {
        call.in_range(o.plate, -1e9, 1e9, "plate");
        job.plate = o.plate;
    }
    job.columns = columns_of(call, o.columns);
    return job;
}

// The polygons of all layers; fills the numbers of the report.
void add_layers(Call& call, const TriMesh& mesh, const job::SupportDone& done,
                const SliceOptions& options, povmesh_result& result, povmesh_support_report& r) {
    SlicePolygons all;
    bool is_too_large = false;
    RunLog log;
    RunContext run{{}, log};
    call.expect(slice_columns(mesh, done.columns, options, run, [&](const ColumnLayer& layer) {
        poll();
        const SlicePolygons& polygons = layer.polygons;
        ++r.layers;
        is_too_large = all.points.size() + polygons.points.size() > kMostColumnPoints;
        if (is_too_large) return false;
        all.points.insert(all.points.end(), polygons.points.begin(), polygons.points.end());
        all.sizes.insert(all.sizes.end(), polygons.sizes.begin(), polygons.sizes.end());
        return true;
    }));
    if (is_too_large) {
        call.stop(POVMESH_TOO_LARGE,
                  "the layers have too many polygons; take a greater layer_height or spacing");
    }
    r.polygons = all.sizes.size();
    add_points(result, POVMESH_POLYGON_POINTS, all.points);
    add_rows<std::uint32_t>(result, POVMESH_POLYGON_SIZES, POVMESH_U32, 1, all.sizes);
}

void add_columns(povmesh_result& result, const Array<Column>& columns) {
    const float* const numbers = columns.empty() ? nullptr : &columns[0].top.x;
    add_rows<float>(result, POVMESH_COLUMNS, POVMESH_F32, 6, {numbers, 6 * columns.size()});
}

}  // namespace
}  // namespace povmesh::context

using namespace povmesh;
using namespace povmesh::context;

povmesh_status povmesh_decompose(povmesh_context* context, const povmesh_mesh* mesh,
                                 const povmesh_decompose_options* options, povmesh_result** parts,
                                 povmesh_decompose_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(parts, "parts");
        call.check_report(report);
        const auto o = call.options(options, defaults_of<povmesh_decompose_options>());
        const job::DecomposeJob job = job_of(call, o);
        const Progress progress = call.progress(50, 70, job::phases_of("decompose"));
        TriMesh copy = plain_copy(source.mesh);
        const bool was_finite = has_finite_corners(copy);
        job::DecomposeDone done;
        call.expect(job::decompose(copy, job, progress, done));
        auto result = std::make_unique<povmesh_result>();
        add_planes(*result, done.report.planes);
        add_pieces(*result, done.pieces);
        if (o.preview == 0) {
            add_parts(
                call, copy.parts, was_finite, source, [](std::size_t) { return false; }, *result);
        }
        result->text = text_of(done);
        call.log(done);
        write_report(report, report_of(done));
        *parts = result.release();
    });
}

povmesh_status povmesh_lampshade(povmesh_context* context, const povmesh_mesh* mesh,
                                 const povmesh_lampshade_options* options,
                                 povmesh_result** lampshade, povmesh_lampshade_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(lampshade, "lampshade");
        call.check_report(report);
        const job::LampshadeJob job =
            job_of(call, call.options(options, defaults_of<povmesh_lampshade_options>()));
        const Progress progress = call.progress(50, 80, job::phases_of("lampshade"));
        TriMesh copy = plain_copy(source.mesh);
        const bool was_finite = has_finite_corners(copy);
        job::LampshadeDone done;
        call.expect(job::lampshade(copy, job, progress, done));
        auto result = std::make_unique<povmesh_result>();
        if (!job.preview) {
            expect_fit(call, copy, was_finite);
            add_mesh(*result, hand_on(std::move(copy), source.origin));
        }
        const LampshadeContours& contours = done.contours;
        add_points(*result, POVMESH_POLYGON_POINTS, contours.points);
        add_rows<std::uint32_t>(*result, POVMESH_POLYGON_SIZES, POVMESH_U32, 1, contours.sizes);
        add_rows<float>(*result, POVMESH_POLYGON_LEVELS, POVMESH_F32, 1, contours.levels);
        result->text = text_of(done);
        call.log(done);
        write_report(report, report_of(done, job.preview));
        *lampshade = result.release();
    });
}

povmesh_status povmesh_balance(povmesh_context* context, const povmesh_mesh* mesh,
                               const povmesh_balance_options* options, povmesh_result** balanced,
                               povmesh_balance_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(balanced, "balanced");
        call.check_report(report);
        const job::BalanceJob job =
            job_of(call, call.options(options, defaults_of<povmesh_balance_options>()));
        const Progress progress = call.progress(50, 80, job::phases_of("balance"));
        TriMesh copy = plain_copy(source.mesh);
        const bool was_finite = has_finite_corners(copy);
        job::BalanceDone done;
        call.expect(job::balance(copy, job, progress, done));
        auto result = std::make_unique<povmesh_result>();
        if (!job.only_measures && done.report.status != BalanceStatus::Falls) {
            expect_fit(call, copy, was_finite);
            add_mesh(*result, hand_on(std::move(copy), source.origin));
        }
        BalanceReport shown = done.report;
        shown.after = done.after;
        add_points(*result, POVMESH_BALANCE_POINTS, points_of(shown));
        if (!done.falls.empty()) done.warnings.push_back(done.falls);
        result->text = text_of(done);
        call.log(done);
        write_report(report, report_of(done));
        *balanced = result.release();
    });
}

povmesh_status povmesh_support(povmesh_context* context, const povmesh_mesh* mesh,
                               const povmesh_support_options* options, povmesh_result** supports,
                               povmesh_support_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(supports, "supports");
        call.check_report(report);
        const auto o = call.options(options, defaults_of<povmesh_support_options>());
        const job::SupportJob job = job_of(call, o);
        const Progress progress = call.progress(50, 80, job::phases_of("support"));
        job::SupportDone done;
        call.expect(job::support(source.mesh, job, progress, done));
        auto result = std::make_unique<povmesh_result>();
        povmesh_support_report r{};
        r.columns = done.columns.size();
        r.columns_on_plate = done.on_plate;
        r.longest = done.longest;
        r.plate = done.plate;
        if (o.layer_height > 0) {
            const SliceOptions slices{job.spacing, o.layer_height, done.plate};
            add_layers(call, source.mesh, done, slices, *result, r);
        }
        add_columns(*result, done.columns);
        TriMesh made;
        if (o.with_model != 0) made = plain_copy(source.mesh);
        const bool was_finite = o.with_model == 0 || has_finite_corners(made);
        append_mesh(made, done.tubes);
        expect_fit(call, made, was_finite);
        add_mesh(*result, hand_on(std::move(made), source.origin));
        result->text = text_of(done);
        call.log(done);
        write_report(report, r);
        *supports = result.release();
    });
}
