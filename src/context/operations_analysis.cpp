// The operations that tell about a model, and colour it or stand it up.
#include <algorithm>
#include <array>
#include <limits>

#include "context/defaults.h"
#include "context/operation_steps.h"
#include "job/orient.h"
#include "job/strength.h"
#include "job/thickness.h"
#include "job/weakness.h"
#include "mesh/volume.h"

namespace povmesh::context {
namespace {

constexpr job::Phase kWeakness[] = {{50, "reducing"}, {60, "looking at sections"}};

job::OrientJob job_of(Call& call, const povmesh_orient_options& o) {
    call.in_range(o.rows, 1, 64, "rows");
    call.in_range(o.choose, 0, 64, "choose");
    call.require(o.reserved == 0, "reserved", "must be 0");
    const Vec3d up{o.up[0], o.up[1], o.up[2]};
    call.require(is_finite(up), "up", "must have finite numbers");
    job::OrientJob job;
    job.choose = o.choose;
    if (!(up == Vec3d{})) job.up = up;
    return job;
}

// As the model stands, then the best, then the direction asked for.
void add_orientations(povmesh_result& result, const OrientationReport& report, std::size_t most,
                      bool has_asked) {
    Array<double> rows;
    const auto add = [&](const Orientation& row) {
        for (const double x : {row.up.x, row.up.y, row.up.z, row.score(), row.support_volume,
                               row.scar_area, row.contact_area, row.tilt, row.height}) {
            rows.push_back(x);
        }
    };
    add(report.as_is);
    for (std::size_t i = 0; i < std::min(most, report.best.size()); ++i) add(report.best[i]);
    if (has_asked) add(report.asked);
    add_rows<double>(result, POVMESH_ORIENTATIONS, POVMESH_F64, 9, rows);
}

// Mesh 0, standing as a row has it; what there is to tell about that.
Remarks add_standing(Call& call, TriMesh& mesh, const povmesh_mesh& source, const Orientation& row,
                     povmesh_result& result) {
    const bool was_finite = has_finite_corners(mesh);
    const double area = surface_area(mesh);
    Remarks remarks = job::stand_up(mesh, row);
    expect_fit(call, mesh, was_finite);
    remarks.doubts = job::check_pose(mesh, area, row).doubts;
    add_mesh(result, hand_on(std::move(mesh), source.origin));
    return remarks;
}

// The largest ones: thinnest point, area, thickness there, longest side of the box.
void add_places(povmesh_result& result, std::int32_t array, const ThinPlaces& found,
                std::uint32_t most) {
    Array<double> rows;
    std::size_t count = found.places.size();
    if (most != 0) count = std::min<std::size_t>(count, most);
    for (std::size_t i = 0; i < count; ++i) {
        const ThinPlace& place = found.places[i];
        const Vec3d size = place.box.extent();
        for (const double x : {shortest_of(place.point.x), shortest_of(place.point.y),
                               shortest_of(place.point.z), place.area, shortest_of(place.smallest),
                               shortest_of(std::max({size.x, size.y, size.z}))}) {
            rows.push_back(x);
        }
    }
    add_rows<double>(result, array, POVMESH_F64, 6, rows);
}

povmesh_thickness_report report_of(const job::ThicknessDone& done) {
    povmesh_thickness_report r{};
    r.was_wrapped = done.wrapped ? 1 : 0;
    r.thin_places = done.report.walls.count;
    r.gap_places = done.report.gaps.count;
    r.smallest_wall = shortest_of(done.report.walls.smallest);
    r.thin_area = done.report.walls.area;
    r.thin_share = done.report.walls.share;
    r.smallest_gap = shortest_of(done.report.gaps.smallest);
    r.gap_area = done.report.gaps.area;
    return r;
}

void add_weak_places(povmesh_result& result, const std::vector<job::WeakPlace>& places) {
    Array<double> rows;
    for (const job::WeakPlace& weak : places) {
        const Vec3d p = to_double(weak.place);
        for (const double x : {p.x, p.y, p.z, weak.share}) rows.push_back(x);
    }
    add_rows<double>(result, POVMESH_WEAK_PLACES, POVMESH_F64, 4, rows);
}

povmesh_strength_report report_of(const StrengthReport& strength) {
    povmesh_strength_report r{};
    r.sections = strength.sections;
    r.elements = strength.elements;
    r.nodes = strength.nodes;
    r.steps = strength.steps;
    r.voxel_size = strength.voxel_size;
    r.residual = strength.residual;
    r.lowest = double{strength.lowest};
    r.highest = double{strength.highest};
    return r;
}

void add_sections(povmesh_result& result, const std::vector<WeakSection>& sections) {
    Array<double> rows;
    for (const WeakSection& section : sections) {
        const Vec3d c = section.centre;
        const Vec3d n = section.normal;
        for (const double x : {c.x, c.y, c.z, n.x, n.y, n.z, double{section.score}, section.area}) {
            rows.push_back(x);
        }
    }
    add_rows<double>(result, POVMESH_SECTIONS, POVMESH_F64, 8, rows);
}

}  // namespace
}  // namespace povmesh::context

using namespace povmesh;
using namespace povmesh::context;

povmesh_status povmesh_orient(povmesh_context* context, const povmesh_mesh* mesh,
                              const povmesh_orient_options* options,
                              povmesh_result** orientations) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(orientations, "orientations");
        const auto o = call.options(options, defaults_of<povmesh_orient_options>());
        const job::OrientJob job = job_of(call, o);
        const Progress progress = call.progress(50, 80, job::phases_of("orient"));
        TriMesh copy = plain_copy(source.mesh);
        job::OrientDone done;
        call.expect(job::orient(copy, job, progress, done));
        auto result = std::make_unique<povmesh_result>();
        add_orientations(*result, done.report, std::max(o.rows, o.choose), job.up.has_value());
        if (job.choose != 0) {
            add(add_standing(call, copy, source, done.report.best[job.choose - 1], *result), done);
        }
        result->text = text_of(done);
        call.log(done);
        *orientations = result.release();
    });
}

povmesh_status povmesh_thickness(povmesh_context* context, const povmesh_mesh* mesh,
                                 const povmesh_thickness_options* options, povmesh_result** places,
                                 povmesh_thickness_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(places, "places");
        call.check_report(report);
        const auto o = call.options(options, defaults_of<povmesh_thickness_options>());
        call.above_zero(o.wall, "wall");
        call.require(std::isfinite(o.gap) && o.gap >= 0, "gap", "must be 0 or above");
        const Progress progress = call.progress(50, 80, job::phases_of("thickness"));
        job::ThicknessJob job;
        job.options.wall = o.wall;
        job.options.gap = o.gap;
        TriMesh copy = plain_copy(source.mesh);
        job::ThicknessDone done;
        call.expect(job::thickness(copy, job, progress, done));
        auto result = std::make_unique<povmesh_result>();
        add_mesh(*result, hand_on(std::move(done.painted), std::make_shared<Origin>()));
        add_places(*result, POVMESH_THIN_PLACES, done.report.walls, o.places);
        add_places(*result, POVMESH_GAP_PLACES, done.report.gaps, o.places);
        result->text = text_of(done);
        call.log(done);
        write_report(report, report_of(done));
        *places = result.release();
    });
}

povmesh_status povmesh_strength(povmesh_context* context, const povmesh_mesh* mesh,
                                const povmesh_strength_options* options, povmesh_result** coloured,
                                povmesh_strength_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(coloured, "coloured");
        call.check_report(report);
        const auto o = call.options(options, defaults_of<povmesh_strength_options>());
        call.in_range(o.method, POVMESH_STRENGTH_FEM, POVMESH_STRENGTH_SECTIONS, "method");
        call.in_range(o.load, POVMESH_LOAD_TOP, POVMESH_LOAD_CENTRE, "load");
        job::StrengthJob job;
        if (o.method == POVMESH_STRENGTH_SECTIONS) job.method = StrengthMethod::Sections;
        job.load = job::kStrengthLoads[static_cast<std::size_t>(o.load)];
        const Progress progress = call.progress(50, 80, job::phases_of("strength"));
        TriMesh copy = plain_copy(source.mesh);
        const bool was_finite = has_finite_corners(copy);
        job::StrengthDone done;
        call.expect(job::strength(copy, job, progress, done));
        expect_fit(call, copy, was_finite);
        auto result = std::make_unique<povmesh_result>();
        add_mesh(*result, hand_on(std::move(copy), source.origin));
        add_rows<float>(*result, POVMESH_VALUES, POVMESH_F32, 1, done.report.values);
        add_weak_places(*result, done.places);
        result->text = text_of(done);
        call.log(done);
        write_report(report, report_of(done.report));
        *coloured = result.release();
    });
}

povmesh_status povmesh_weakness(povmesh_context* context, const povmesh_mesh* mesh,
                                const povmesh_weakness_options* options,
                                povmesh_result** sections) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(sections, "sections");
        const auto o = call.options(options, defaults_of<povmesh_weakness_options>());
        call.flag(o.all, "all");
        const Progress progress = call.progress(50, 80, kWeakness);
        TriMesh copy = plain_copy(source.mesh);
        job::WeaknessDone done;
        call.expect(job::weakness(copy, {.all = o.all != 0}, progress, done));
        auto result = std::make_unique<povmesh_result>();
        add_sections(*result, done.sections);
        result->text = text_of(done);
        call.log(done);
        *sections = result.release();
    });
}
