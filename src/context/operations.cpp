// The operations: arguments checked, the function of job/ called, what came of it handed over.
#include <array>
#include <bit>
#include <limits>
#include <optional>

#include "base/convert.h"
#include "context/defaults.h"
#include "context/operation_steps.h"
#include "context/rows.h"
#include "job/cut.h"
#include "job/hollow.h"
#include "job/infill.h"
#include "job/mending.h"
#include "job/numbers.h"
#include "job/offset.h"
#include "job/reduce.h"
#include "job/remesh.h"
#include "job/repair.h"
#include "job/revise.h"
#include "job/split.h"
#include "job/subdivide.h"
#include "job/voxelize.h"
#include "job/wrap.h"
#include "spatial/surface_distance.h"

namespace povmesh::context {
namespace {

constexpr job::Phase kDistance[] = {{0, "measuring distances"}};

povmesh_check_report report_of(const Findings& f, std::size_t faces) {
    povmesh_check_report r{};
    r.is_clean = f.has_flaws() ? 0 : 1;
    r.is_closed = f.is_closed ? 1 : 0;
    r.is_degenerate_only = f.has_degenerate_faces_only() ? 1 : 0;
    r.has_self_intersection_count = f.has_self_intersection_count ? 1 : 0;
    r.faces = faces;
    r.vertices = f.vertices;
    r.shells = f.shells;
    r.cavities = f.cavities;
    copy_box(f.box, r.low, r.high);
    r.volume = f.volume;
    r.inverted_faces = f[Flaw::InvertedFaces].count;
    r.turned_edges = f[Flaw::TurnedEdges].count;
    r.open_edges = f[Flaw::OpenEdges].count;
    r.non_manifold_edges = f[Flaw::NonManifoldEdges].count;
    r.degenerate_faces = f[Flaw::DegenerateFaces].count;
    r.duplicate_faces = f[Flaw::DuplicateFaces].count;
    r.self_intersections = f[Flaw::SelfIntersections].count;
    r.inside_out_shells = f[Flaw::InsideOutShells].count;
    r.misplaced_vertices = f[Flaw::MisplacedVertices].count;
    for (const HoleSize& hole : f.holes) r.holes += hole.count;
    r.unclosed_edges = f.unclosed_edges;
    r.open_edge_corners = f.detected.open_edges;
    r.non_manifold_faces = f.detected.non_manifold;
    return r;
}

std::unique_ptr<povmesh_result> findings_of(const Findings& f,
                                            const std::vector<std::string>& advice) {
    auto result = std::make_unique<povmesh_result>();
    Array<std::uint64_t> holes;
    for (const HoleSize& hole : f.holes) {
        holes.push_back(hole.edges);
        holes.push_back(hole.count);
    }
    Array<float> places;
    Array<std::uint32_t> faces;
    constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
    for (std::uint32_t flaw = 0; flaw < f.flaws.size(); ++flaw) {
        const Vec3f place = f.flaws[flaw].place.value_or(Vec3f{kNone, kNone, kNone});
        for (const float x : {place.x, place.y, place.z}) places.push_back(x);
        for (const std::uint32_t face : f.flaws[flaw].faces) {
            faces.push_back(flaw);
            faces.push_back(face);
        }
    }
    add_rows<std::uint64_t>(*result, POVMESH_HOLES, POVMESH_U64, 2, holes);
    add_rows<float>(*result, POVMESH_FLAW_PLACES, POVMESH_F32, 3, places);
    add_rows<std::uint32_t>(*result, POVMESH_FLAW_FACES, POVMESH_U32, 2, faces);
    result->text = lines_of(advice);
    return result;
}

povmesh_repair_report report_of(const RepairReport& done) {
    povmesh_repair_report r{};
    const auto holes = [&](HoleFate fate) {
        return count_of(hole_sizes(done.holes, [&](HoleFate f) { return f == fate; }));
    };
    r.were_holes_tried = done.were_holes_tried ? 1 : 0;
    r.dropped_shells = done.dropped_shells;
    r.dropped_shell_faces = done.dropped_shell_faces;
    r.removed_duplicates = done.removed_duplicates;
    r.closed_holes = holes(HoleFate::Closed);
    r.added_faces = done.holes.added_face_count;
    r.turned_faces = done.turned_faces;
    r.kept_cavities = done.kept_cavities;
    r.open_too_long = holes(HoleFate::TooLong);
    r.open_part_of_ring = holes(HoleFate::PartOfRing);
    // A filling that would cut through other faces is none.
    r.open_no_filling = holes(HoleFate::NoFilling) + holes(HoleFate::Crosses);
    r.unclosed_edges = done.holes.unclosed_edge_count;
    return r;
}

std::int32_t ended_by(std::string_view key) {
    constexpr std::array<std::pair<std::string_view, std::int32_t>, 7> kKeys = {
        {{"target", POVMESH_ENDED_TARGET},
         {"nothing_to_do", POVMESH_ENDED_NOTHING_TO_DO},
         {"normal_limit", POVMESH_ENDED_NORMAL_LIMIT},
         {"boundary", POVMESH_ENDED_BOUNDARY},
         {"link", POVMESH_ENDED_LINK},
         {"valence", POVMESH_ENDED_CROWDED},
         {"too_few_faces", POVMESH_ENDED_TOO_FEW_FACES}}};
    for (const auto& [name, value] : kKeys) {
        if (key == name) return value;
    }
    return 0;  // by what has no number: the result would cross itself, stray or have slivers
}

povmesh_reduce_report report_of(const job::ReduceDone& done) {
    const ReduceReport& reduction = done.checked.reduction;
    povmesh_reduce_report r{};
    r.ended_by = ended_by(done.end_key);
    r.faces_before = reduction.faces_before;
    r.faces_aimed = reduction.faces_aimed;
    r.faces_after = reduction.faces_after;
    r.normal_limit = reduction.normal_limit;
    r.boundary = reduction.boundary;
    r.link = reduction.link;
    r.crowded = reduction.valence;
    r.too_few_faces = reduction.too_few_faces;
    return r;
}

job::ReduceJob job_of(Call& call, const povmesh_reduce_options& o) {
    call.flag(o.automatic, "automatic");
    const bool has_keep = !std::isnan(o.keep);
    const int given = o.automatic + (has_keep ? 1 : 0) + (o.faces != 0 ? 1 : 0);
    call.require(given == 1, "automatic, keep, faces:", "one of the three must be set");
    job::ReduceJob options;
    options.automatic = o.automatic != 0;
    if (has_keep) {
        call.in_range(o.keep, 0, 1, "keep");
        options.keep = o.keep;
    }
    options.faces = static_cast<double>(o.faces);
    return options;
}

job::CutJob job_of(Call& call, const povmesh_cut_options& o) {
    call.flag(o.caps, "caps");
    call.flag(o.mirror, "mirror");
    call.require(o.caps != 0 || o.mirror == 0, "mirror", "makes no openings; leave caps at 1");
    call.require(o.pegs <= 256, "pegs", "must be at most 256");
    call.require(o.pegs == 0 || (o.caps != 0 && o.mirror == 0), "pegs",
                 "stand on caps; leave caps at 1 and mirror at 0");
    call.require(std::isfinite(o.peg_radius) && o.peg_radius >= 0, "peg_radius",
                 "must be 0 or above");
    job::CutJob options{.caps = o.caps != 0,
                        .mirror = o.mirror != 0,
                        .pegs = o.pegs,
                        .peg_radius = o.peg_radius,
                        .normal = {o.normal[0], o.normal[1], o.normal[2]}};
    call.require(is_finite(options.normal) && options.normal != Vec3d{}, "normal",
                 "must have finite numbers, one of them not 0");
    const Vec3d point{o.point[0], o.point[1], o.point[2]};
    const bool has_none = std::isnan(point.x) && std::isnan(point.y) && std::isnan(point.z);
    call.require(has_none || is_finite(point), "point", "must have finite numbers, or NaN alone");
    if (!has_none) options.point = point;
    return options;
}

job::HollowJob job_of(Call& call, const povmesh_hollow_options& o) {
    call.flag(o.cavity_only, "cavity_only");
    call.in_range(o.wall, POVMESH_WALL_DEFAULT, POVMESH_WALL_EXACT, "wall");
    call.require(o.reserved == 0, "reserved", "must be 0");
    call.require(std::isfinite(o.thickness) && o.thickness >= 0, "thickness", "must be 0 or above");
    call.require(o.drain_count == 0 || o.cavity_only == 0, "drains",
                 "cut holes through the wall, which cavity_only leaves out");
    Drains drains = drains_of(call, o.drains, o.drain_count);
    return {.thickness = o.thickness,
            .is_exact = o.wall != POVMESH_WALL_VOXEL,
            .cavity_only = o.cavity_only != 0,
            .drains = std::move(drains.drains),
            .drain_name = std::move(drains.name)};
}

job::WrapJob job_of(Call& call, const povmesh_wrap_options& o) {
    call.flag(o.drop_thin, "drop_thin");
    call.flag(o.all_triangles, "all_triangles");
    call.require(o.reserved == 0, "reserved", "must be 0");
    job::WrapJob job;
    if (!std::isnan(o.tolerance)) {
        call.above_zero(o.tolerance, "tolerance");
        job.options.tolerance = o.tolerance;
    }
    if (!std::isnan(o.gap)) {
        call.require(std::isfinite(o.gap) && o.gap >= 0, "gap", "must be 0 or above");
        job.options.gap = o.gap;
    }
    if (!std::isnan(o.cell)) {
        call.above_zero(o.cell, "cell");
        job.options.cell = o.cell;
    }
    job.options.keeps_thin = o.drop_thin == 0;
    job.options.all_triangles = o.all_triangles != 0;
    return job;
}

// By face; empty: one length for all.
Array<float> lengths_of(Call& call, const povmesh_remesh_options& o, std::size_t faces) {
    Array<float> lengths;
    if (!is_given(o.lengths)) {
        call.above_zero(o.edge_length, "edge_length");
        return lengths;
    }
    call.require(std::isnan(o.edge_length), "edge_length", "must be NaN where there are lengths");
    const Rows rows(call, o.lengths, "lengths", {POVMESH_F32}, {1});
    call.require(rows.count() == faces, "lengths", "must be one for each face of the mesh");
    lengths.reserve(faces);
    for (std::size_t face = 0; face < faces; ++face) lengths.push_back(rows.single(face, 0));
    return lengths;
}

}  // namespace
}  // namespace povmesh::context

using namespace povmesh;
using namespace povmesh::context;

povmesh_status povmesh_check(povmesh_context* context, const povmesh_mesh* mesh,
                             const povmesh_check_options* options, povmesh_result** findings,
                             povmesh_check_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.check_report(report);
        const auto o = call.options(options, defaults_of<povmesh_check_options>());
        call.in_range(o.self_intersections, -1, 1, "self_intersections");
        call.flag(o.advice, "advice");
        const SelfIntersectionSearch search =
            o.self_intersections == 0  ? SelfIntersectionSearch::UpToQuickFaces
            : o.self_intersections > 0 ? SelfIntersectionSearch::Always
                                       : SelfIntersectionSearch::Never;
        TriMesh copy = plain_copy(source.mesh);
        const Findings found =
            examine(copy, call.progress(48, 100, job::phases_of("check")), search);
        std::vector<std::string> advice;
        if (o.advice != 0 && findings != nullptr) advice = suggestions(copy, found);
        auto result = findings_of(found, advice);
        write_report(report, report_of(found, copy.faces.size()));
        if (findings != nullptr) *findings = result.release();
    });
}

povmesh_status povmesh_repair(povmesh_context* context, const povmesh_mesh* mesh,
                              const povmesh_repair_options* options, povmesh_mesh** repaired,
                              povmesh_repair_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(repaired, "repaired");
        call.check_report(report);
        const auto o = call.options(options, defaults_of<povmesh_repair_options>());
        call.flag(o.outward, "outward");
        call.require(std::isfinite(o.drop_tiny) && o.drop_tiny >= 0, "drop_tiny",
                     "must be 0 or above");
        const Progress progress = call.progress(50, 80, job::phases_of("repair"));
        job::RepairDone done;
        auto made = change(call, source, [&](TriMesh& m) {
            return job::repair(
                m, {.outward = o.outward != 0, .drop_tiny = o.drop_tiny, .counts_crossings = false},
                progress, done);
        });
        call.log(done);
        write_report(report, report_of(done.mending.report));
        *repaired = made.release();
    });
}

povmesh_status povmesh_split(povmesh_context* context, const povmesh_mesh* mesh,
                             const povmesh_split_options* options, povmesh_result** models,
                             povmesh_split_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(models, "models");
        call.check_report(report);
        const auto o = call.options(options, defaults_of<povmesh_split_options>());
        call.require(std::isfinite(o.min_volume) && o.min_volume >= 0, "min_volume",
                     "must be 0 or above");
        const Progress progress = call.progress(50, 70, job::phases_of("split"));
        TriMesh copy = plain_copy(source.mesh);
        const bool was_finite = has_finite_corners(copy);
        job::SplitDone done;
        call.expect(job::split(copy, {.min_volume = o.min_volume}, progress, done));
        auto result = std::make_unique<povmesh_result>();
        add_parts(
            call, copy.parts, was_finite, source,
            [&](std::size_t i) { return done.is_left_out[i]; }, *result);
        write_report(report,
                     {.size = 0, .models = result->meshes.size(), .left_out = done.left_out});
        *models = result.release();
    });
}

povmesh_status povmesh_cut(povmesh_context* context, const povmesh_mesh* mesh,
                           const povmesh_cut_options* options, povmesh_result** pieces,
                           povmesh_cut_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(pieces, "pieces");
        call.check_report(report);
        const job::CutJob job =
            job_of(call, call.options(options, defaults_of<povmesh_cut_options>()));
        const Progress progress = call.progress(50, 70, job::phases_of("cut"));
        TriMesh copy = plain_copy(source.mesh);
        const bool was_finite = has_finite_corners(copy);
        job::CutDone done;
        call.expect(job::cut(copy, job, progress, done));
        for (std::size_t i = 0; i < done.pieces.size(); ++i) {
            const std::string piece = "piece " + std::to_string(i + 1);
            if (done.must_be_closed && !done.pieces[i].is_closed && !copy.parts[i].faces.empty()) {
                done.doubts.push_back(piece + " " + job::open_text("the model"));
            }
            if (i < done.crossed.size() && done.crossed[i].crossings != 0) {
                done.doubts.push_back(piece + ": " +
                                      job::crossing_text(done.crossed[i], "the model"));
            }
        }
        auto result = std::make_unique<povmesh_result>();
        add_parts(
            call, copy.parts, was_finite, source, [](std::size_t) { return false; }, *result);
        result->text = text_of(done);
        call.log(done);
        write_report(report, {.size = 0,
                              .models = done.counts.models,
                              .divided = done.counts.divided,
                              .pegs = done.counts.connectors});
        *pieces = result.release();
    });
}

povmesh_status povmesh_reduce(povmesh_context* context, const povmesh_mesh* mesh,
                              const povmesh_reduce_options* options, povmesh_mesh** reduced,
                              povmesh_reduce_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(reduced, "reduced");
        call.check_report(report);
        const job::ReduceJob job =
            job_of(call, call.options(options, defaults_of<povmesh_reduce_options>()));
        const Progress progress = call.progress(50, 80, job::phases_of("reduce"));
        job::ReduceDone done;
        auto made =
            change(call, source, [&](TriMesh& m) { return job::reduce(m, job, progress, done); });
        call.log(done);
        write_report(report, report_of(done));
        *reduced = made.release();
    });
}

povmesh_status povmesh_remesh(povmesh_context* context, const povmesh_mesh* mesh,
                              const povmesh_remesh_options* options, povmesh_mesh** remeshed,
                              povmesh_remesh_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(remeshed, "remeshed");
        call.check_report(report);
        const auto o = call.options(options, defaults_of<povmesh_remesh_options>());
        const Array<float> lengths = lengths_of(call, o, source.mesh.faces.size());
        const Progress progress = call.progress(50, 80, job::phases_of("remesh"));
        job::RemeshDone done;
        auto made = change(call, source, [&](TriMesh& m) {
            return job::remesh(m, {o.edge_length, lengths}, progress, done);
        });
        call.log(done);
        write_report(report, {.size = 0, .raised = done.report.raised});
        *remeshed = made.release();
    });
}

povmesh_status povmesh_revise(povmesh_context* context, const povmesh_mesh* mesh,
                              const povmesh_revise_options* options, povmesh_mesh** revised,
                              povmesh_revise_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(revised, "revised");
        call.check_report(report);
        const auto o = call.options(options, defaults_of<povmesh_revise_options>());
        call.in_range(o.most_movement, 0, 1, "most_movement");
        const Progress progress = call.progress(50, 80, job::phases_of("revise"));
        const ShapeCounts before = count_shapes(source.mesh);
        job::ReviseJob job;
        job.options.most_movement = o.most_movement;
        job::ReviseDone done;
        auto made =
            change(call, source, [&](TriMesh& m) { return job::revise(m, job, progress, done); });
        const ShapeCounts after = count_shapes(made->mesh);
        call.log(done);
        write_report(report, {.size = 0,
                              .needles_before = before.needles,
                              .caps_before = before.caps,
                              .needles_after = after.needles,
                              .caps_after = after.caps,
                              .collapsed = done.report.collapses,
                              .turned = done.report.flips,
                              .split = done.report.splits,
                              .movement = done.report.movement});
        *revised = made.release();
    });
}

povmesh_status povmesh_subdivide(povmesh_context* context, const povmesh_mesh* mesh,
                                 const povmesh_subdivide_options* options, povmesh_mesh** refined) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(refined, "refined");
        const auto o = call.options(options, defaults_of<povmesh_subdivide_options>());
        call.in_range(o.levels, 1, 5, "levels");
        constexpr std::array kModes = {SubdivideMode::Uniform, SubdivideMode::Adaptive,
                                       SubdivideMode::Smooth};
        call.in_range(o.mode, 0, kModes.size() - 1, "mode");
        const Progress progress = call.progress(50, 80, job::phases_of("subdivide"));
        job::SubdivideDone done;
        auto made = change(call, source, [&](TriMesh& m) {
            return job::subdivide(m, {o.levels, kModes[static_cast<std::size_t>(o.mode)]}, progress,
                                  done);
        });
        call.log(done);
        *refined = made.release();
    });
}

povmesh_status povmesh_infill(povmesh_context* context, const povmesh_mesh* mesh,
                              const povmesh_infill_options* options, povmesh_mesh** filled,
                              povmesh_infill_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(filled, "filled");
        call.check_report(report);
        const auto o = call.options(options, defaults_of<povmesh_infill_options>());
        call.flag(o.cells_only, "cells_only");
        call.require(std::isfinite(o.skin) && o.skin >= 0, "skin", "must be 0 or above");
        call.in_range(o.density, 0, 1, "density");
        const Progress progress = call.progress(50, 80, job::phases_of("infill"));
        job::InfillDone done;
        auto made = change(call, source, [&](TriMesh& m) {
            return job::infill(m, {o.skin, o.density, o.cells_only != 0}, progress, done);
        });
        call.log(done);
        write_report(report, {.size = 0,
                              .cells = done.report.taken,
                              .cells_made = done.report.cells,
                              .voxel_size = done.report.voxel_size,
                              .cells_volume = done.report.cells_volume,
                              .density = done.report.density,
                              .saved_percent = done.saved_percent,
                              .smallest_skin = done.smallest_skin});
        *filled = made.release();
    });
}

povmesh_status povmesh_voxelize(povmesh_context* context, const povmesh_mesh* mesh,
                                const povmesh_voxelize_options* options, povmesh_mesh** cubes,
                                povmesh_voxelize_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(cubes, "cubes");
        call.check_report(report);
        const auto o = call.options(options, defaults_of<povmesh_voxelize_options>());
        call.above_zero(o.edge, "edge");
        const Progress progress = call.progress(50, 80, job::phases_of("voxelize"));
        job::VoxelizeDone done;
        auto made = change(call, source, [&](TriMesh& m) {
            return job::voxelize(m, {.edge = narrow_to_float(o.edge)}, progress, done);
        });
        call.log(done);
        write_report(report,
                     {.size = 0, .voxels = done.voxels, .edge = shortest_double(done.edge)});
        *cubes = made.release();
    });
}

povmesh_status povmesh_distance(povmesh_context* context, const povmesh_mesh* from,
                                const povmesh_mesh* to, const povmesh_distance_options* options,
                                povmesh_distance_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& a = call.given(from, "from");
        const povmesh_mesh& b = call.given(to, "to");
        call.check_report(report);
        const auto o = call.options(options, defaults_of<povmesh_distance_options>());
        call.require(o.samples <= kMaxFaceCount, "samples", "must be at most 715,827,882");
        (void)call.progress(0, 1, kDistance);
        const SurfaceDistance found =
            surface_distance(a.mesh, b.mesh, {.sample_count = static_cast<std::size_t>(o.samples)});
        write_report(report, {.size = 0,
                              .rms = found.rms(),
                              .greatest = found.greatest(),
                              .there_rms = found.there.rms,
                              .there_greatest = found.there.greatest,
                              .back_rms = found.back.rms,
                              .back_greatest = found.back.greatest});
    });
}

povmesh_status povmesh_hollow(povmesh_context* context, const povmesh_mesh* mesh,
                              const povmesh_hollow_options* options, povmesh_mesh** hollowed,
                              povmesh_hollow_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(hollowed, "hollowed");
        call.check_report(report);
        const job::HollowJob job =
            job_of(call, call.options(options, defaults_of<povmesh_hollow_options>()));
        const Progress progress = call.progress(50, 80, job::phases_of("hollow"));
        job::HollowDone done;
        auto made =
            change(call, source, [&](TriMesh& m) { return job::hollow(m, job, progress, done); });
        call.log(done);
        write_report(report, {.size = 0,
                              .layers = static_cast<std::uint32_t>(done.layers),
                              .voxel_size = done.voxel_size,
                              .cavity_volume = done.cavity_volume,
                              .saved_percent = done.saved_percent,
                              .smallest_wall = done.smallest_wall,
                              .mean_wall = done.mean_wall});
        *hollowed = made.release();
    });
}

povmesh_status povmesh_offset(povmesh_context* context, const povmesh_mesh* mesh,
                              const povmesh_offset_options* options, povmesh_mesh** moved,
                              povmesh_offset_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(moved, "moved");
        call.check_report(report);
        const auto o = call.options(options, defaults_of<povmesh_offset_options>());
        call.in_range(o.corners, POVMESH_CORNERS_ROUND, POVMESH_CORNERS_SHARP, "corners");
        call.flag(o.all_triangles, "all_triangles");
        call.require(o.reserved == 0, "reserved", "must be 0");
        call.in_range(o.distance, -1e9, 1e9, "distance");
        call.require(o.distance != 0, "distance", "must not be 0");
        job::OffsetJob job{.distance = o.distance, .options = {}};
        if (!std::isnan(o.cell)) {
            call.above_zero(o.cell, "cell");
            job.options.cell = o.cell;
        }
        job.options.all_triangles = o.all_triangles != 0;
        if (o.corners == POVMESH_CORNERS_SHARP) job.options.corners = OffsetCorners::Sharp;
        const Progress progress = call.progress(50, 80, job::phases_of("offset"));
        job::OffsetDone done;
        auto made =
            change(call, source, [&](TriMesh& m) { return job::offset(m, job, progress, done); });
        call.log(done);
        write_report(report, {.size = 0, .cell = done.report.cell});
        *moved = made.release();
    });
}

povmesh_status povmesh_wrap(povmesh_context* context, const povmesh_mesh* mesh,
                            const povmesh_wrap_options* options, povmesh_mesh** wrapped,
                            povmesh_wrap_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(wrapped, "wrapped");
        call.check_report(report);
        const job::WrapJob job =
            job_of(call, call.options(options, defaults_of<povmesh_wrap_options>()));
        const Progress progress = call.progress(50, 80, job::phases_of("wrap"));
        job::WrapDone done;
        auto made =
            change(call, source, [&](TriMesh& m) { return job::wrap(m, job, progress, done); });
        call.log(done);
        const LabelReport& label = done.report.label;
        povmesh_wrap_report full{};
        full.bridges = label.bridges;
        full.cavities = label.cavities;
        full.dropped_shells = label.dropped;
        full.cell = done.report.cell;
        full.gap = done.report.gap;
        full.bridge_area = label.bridge_area;
        full.widest_bridge = label.widest_bridge;
        full.thickened_area = label.sheet_area;
        full.buried_area = label.buried_area;
        // The surface that is asked of is the result.
        full.there_greatest = done.distance.back.greatest;
        full.back_greatest = done.distance.there.greatest;
        write_report(report, full);
        *wrapped = made.release();
    });
}
