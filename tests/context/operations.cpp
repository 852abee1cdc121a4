#include "operations.h"

#include <cstddef>
#include <cstring>

namespace povmesh::test {
namespace {

void append_view(std::string& bytes, const povmesh_view& view) {
    std::size_t width = 8;
    if (view.type == POVMESH_U8) width = 1;
    if (view.type == POVMESH_I16) width = 2;
    if (view.type == POVMESH_F32 || view.type == POVMESH_I32 || view.type == POVMESH_U32) width = 4;
    for (std::uint64_t row = 0; row < view.count; ++row) {
        bytes.append(static_cast<const char*>(view.data) + row * view.stride,
                     width * static_cast<std::size_t>(view.components));
    }
}

void append_mesh(std::string& bytes, const povmesh_mesh* mesh) {
    for (std::int32_t array = POVMESH_POSITIONS; array <= POVMESH_TEXTURE_COORDINATES; ++array) {
        povmesh_view view{};
        if (povmesh_mesh_view(mesh, array, &view) == POVMESH_OK) append_view(bytes, view);
    }
}

// A handle that no call may write to unless it succeeds.
template <typename Handle>
Handle* guard() {
    static char place = 0;
    return reinterpret_cast<Handle*>(&place);
}

template <typename Call>
CallOutcome to_mesh(const Call& call) {
    CallOutcome outcome;
    povmesh_mesh* made = guard<povmesh_mesh>();
    outcome.status = call(&made);
    if (outcome.status != POVMESH_OK) {
        outcome.is_untouched = made == guard<povmesh_mesh>();
        return outcome;
    }
    append_mesh(outcome.bytes, made);
    povmesh_mesh_release(made);
    return outcome;
}

template <typename Call>
CallOutcome to_result(const Call& call) {
    CallOutcome outcome;
    povmesh_result* made = guard<povmesh_result>();
    outcome.status = call(&made);
    if (outcome.status != POVMESH_OK) {
        outcome.is_untouched = made == guard<povmesh_result>();
        return outcome;
    }
    for (std::uint64_t i = 0; i < povmesh_result_mesh_count(made); ++i) {
        append_mesh(outcome.bytes, povmesh_result_mesh(made, i));
    }
    for (std::int32_t array = POVMESH_HOLES; array <= POVMESH_GAP_PLACES; ++array) {
        povmesh_view view{};
        if (povmesh_result_view(made, array, &view) == POVMESH_OK) {
            append_view(outcome.bytes, view);
        }
    }
    outcome.bytes += povmesh_result_text(made);
    povmesh_result_release(made);
    return outcome;
}

CallOutcome check(povmesh_context* c, const povmesh_mesh* m) {
    return to_result([&](povmesh_result** r) { return povmesh_check(c, m, nullptr, r, nullptr); });
}
CallOutcome repair(povmesh_context* c, const povmesh_mesh* m) {
    return to_mesh([&](povmesh_mesh** r) { return povmesh_repair(c, m, nullptr, r, nullptr); });
}
CallOutcome split(povmesh_context* c, const povmesh_mesh* m) {
    return to_result([&](povmesh_result** r) { return povmesh_split(c, m, nullptr, r, nullptr); });
}
CallOutcome cut(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_cut_options o = povmesh_cut_defaults();
    o.pegs = 1;
    o.peg_radius = 0.5;
    for (double& x : o.point) x = 4.5;
    return to_result([&](povmesh_result** r) { return povmesh_cut(c, m, &o, r, nullptr); });
}
CallOutcome reduce(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_reduce_options o = povmesh_reduce_defaults();
    o.keep = 0.5;
    return to_mesh([&](povmesh_mesh** r) { return povmesh_reduce(c, m, &o, r, nullptr); });
}
CallOutcome revise(povmesh_context* c, const povmesh_mesh* m) {
    return to_mesh([&](povmesh_mesh** r) { return povmesh_revise(c, m, nullptr, r, nullptr); });
}
CallOutcome subdivide(povmesh_context* c, const povmesh_mesh* m) {
    return to_mesh([&](povmesh_mesh** r) { return povmesh_subdivide(c, m, nullptr, r); });
}
CallOutcome infill(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_infill_options o = povmesh_infill_defaults();
    o.skin = 1;
    o.density = 0.3;
    return to_mesh([&](povmesh_mesh** r) { return povmesh_infill(c, m, &o, r, nullptr); });
}
CallOutcome voxelize(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_voxelize_options o = povmesh_voxelize_defaults();
    o.edge = 0.7;
    return to_mesh([&](povmesh_mesh** r) { return povmesh_voxelize(c, m, &o, r, nullptr); });
}
// What a model with holes does not do: it is repaired first.
template <typename Call>
CallOutcome on_sound(povmesh_context* c, const povmesh_mesh* m, const Call& call) {
    povmesh_mesh* sound = nullptr;
    CallOutcome outcome;
    outcome.status = povmesh_repair(c, m, nullptr, &sound, nullptr);
    if (outcome.status != POVMESH_OK) return outcome;
    outcome = call(sound);
    povmesh_mesh_release(sound);
    return outcome;
}
CallOutcome hollow(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_hollow_options o = povmesh_hollow_defaults();
    o.thickness = 1;
    return on_sound(c, m, [&](const povmesh_mesh* sound) {
        return to_mesh([&](povmesh_mesh** r) { return povmesh_hollow(c, sound, &o, r, nullptr); });
    });
}
CallOutcome lampshade(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_lampshade_options o = povmesh_lampshade_defaults();
    o.thickness = 1;
    return on_sound(c, m, [&](const povmesh_mesh* sound) {
        return to_result(
            [&](povmesh_result** r) { return povmesh_lampshade(c, sound, &o, r, nullptr); });
    });
}
CallOutcome decompose(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_decompose_options o = povmesh_decompose_defaults();
    for (double& x : o.extent) x = 9;
    o.uniform = 1;
    o.pegs = 1;
    o.peg_radius = 0.5;
    return to_result([&](povmesh_result** r) { return povmesh_decompose(c, m, &o, r, nullptr); });
}
CallOutcome orient(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_orient_options o = povmesh_orient_defaults();
    o.choose = 2;
    o.up[0] = 1;
    return to_result([&](povmesh_result** r) { return povmesh_orient(c, m, &o, r); });
}
// The ball stands on a point.
CallOutcome balance(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_balance_options o = povmesh_balance_defaults();
    o.thickness = 1;
    return on_sound(c, m, [&](const povmesh_mesh* sound) {
        return to_result(
            [&](povmesh_result** r) { return povmesh_balance(c, sound, &o, r, nullptr); });
    });
}
CallOutcome support(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_support_options o = povmesh_support_defaults();
    o.with_model = 1;
    return to_result([&](povmesh_result** r) { return povmesh_support(c, m, &o, r, nullptr); });
}
// Clear of the model: the library that clips polygons loses blocks when an allocation fails.
CallOutcome slice(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_support_options o = povmesh_support_defaults();
    const float columns[] = {40, 40, 9, 40, 40, 0, 44, 40, 9, 44, 40, 5};
    o.columns = {columns, 2, 0, POVMESH_F32, 6};
    o.layer_height = 1;
    return to_result([&](povmesh_result** r) { return povmesh_support(c, m, &o, r, nullptr); });
}
// In triangles of a hundredth of its extent a rod is small.
CallOutcome strength(povmesh_context* c, const povmesh_mesh* /*m*/) {
    CallOutcome outcome;
    povmesh_mesh* const bar = make_mesh(c, rod(), &outcome.status);
    if (bar == nullptr) return outcome;
    outcome = to_result(
        [&](povmesh_result** r) { return povmesh_strength(c, bar, nullptr, r, nullptr); });
    povmesh_mesh_release(bar);
    return outcome;
}
CallOutcome weakness(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_weakness_options o = povmesh_weakness_defaults();
    o.all = 1;
    return to_result([&](povmesh_result** r) { return povmesh_weakness(c, m, &o, r); });
}
CallOutcome render(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_render_options o = povmesh_render_defaults();
    o.width = o.height = 64;
    o.section_axis = 1;
    o.supports = m;
    void* png = nullptr;
    std::size_t bytes = 0;
    CallOutcome outcome;
    outcome.status = povmesh_render(c, &m, 1, &o, &png, &bytes);
    outcome.is_untouched = png == nullptr;
    outcome.bytes.assign(static_cast<const char*>(png), bytes);
    povmesh_free(png);
    return outcome;
}
CallOutcome offset(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_offset_options o = povmesh_offset_defaults();
    o.distance = 0.5;
    o.cell = 0.8;
    return to_mesh([&](povmesh_mesh** r) { return povmesh_offset(c, m, &o, r, nullptr); });
}
CallOutcome wrap(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_wrap_options o = povmesh_wrap_defaults();
    o.tolerance = 0.4;
    o.cell = 0.8;
    return to_mesh([&](povmesh_mesh** r) { return povmesh_wrap(c, m, &o, r, nullptr); });
}
CallOutcome remesh(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_remesh_options o = povmesh_remesh_defaults();
    o.edge_length = 4;
    return to_mesh([&](povmesh_mesh** r) { return povmesh_remesh(c, m, &o, r, nullptr); });
}
CallOutcome thickness(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_thickness_options o = povmesh_thickness_defaults();
    o.wall = 2;
    o.gap = 1;
    return to_result([&](povmesh_result** r) { return povmesh_thickness(c, m, &o, r, nullptr); });
}
CallOutcome distance(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_distance_options o = povmesh_distance_defaults();
    o.samples = 500;
    povmesh_distance_report report{};
    report.size = sizeof report;
    CallOutcome outcome;
    outcome.status = povmesh_distance(c, m, m, &o, &report);
    outcome.bytes.assign(reinterpret_cast<const char*>(&report.rms),
                         sizeof report - offsetof(povmesh_distance_report, rms));
    if (outcome.status != POVMESH_OK) outcome.is_untouched = report.rms == 0;
    return outcome;
}

template <typename Format>
CallOutcome there_and_back(povmesh_context* c, const povmesh_mesh* m, Format format) {
    povmesh_write_options o = povmesh_write_defaults();
    o.format = format;
    void* data = nullptr;
    std::size_t bytes = 0;
    CallOutcome outcome;
    outcome.status = povmesh_write_memory(c, m, &o, &data, &bytes, nullptr);
    if (outcome.status != POVMESH_OK) {
        outcome.is_untouched = data == nullptr;
        return outcome;
    }
    outcome = to_mesh(
        [&](povmesh_mesh** r) { return povmesh_read_memory(c, data, bytes, nullptr, r, nullptr); });
    povmesh_free(data);
    return outcome;
}
CallOutcome files(povmesh_context* c, const povmesh_mesh* m) {
    CallOutcome all;
    for (const char* format : {"stl", "obj", "ply", "3mf"}) {
        CallOutcome one = there_and_back(c, m, format);
        one.bytes.insert(0, all.bytes);
        all = one;
        if (all.status != POVMESH_OK) break;
    }
    return all;
}

}  // namespace

const std::vector<TestedOperation>& tested_operations() {
    static const std::vector<TestedOperation> all = {
        {"check", check, true},          {"repair", repair, true},
        {"split", split, true},          {"cut", cut, true},
        {"reduce", reduce, true},        {"revise", revise, true},
        {"subdivide", subdivide, true},  {"voxelize", voxelize, true},
        {"distance", distance, true},    {"files", files, true},
        {"infill", infill, false},       {"hollow", hollow, false},
        {"offset", offset, false},       {"wrap", wrap, false},
        {"remesh", remesh, false},       {"thickness", thickness, false},
        {"lampshade", lampshade, false}, {"decompose", decompose, false},
        {"orient", orient, false},       {"balance", balance, false},
        {"support", support, true},      {"support", slice, true},
        {"strength", strength, false},   {"weakness", weakness, false},
        {"render", render, true}};
    return all;
}

povmesh_mesh* make_mesh(povmesh_context* context, const shapes::SoupVector& soup,
                        povmesh_status* status) {
    povmesh_mesh_data data{};
    data.size = sizeof data;
    data.positions = {soup.data(), soup.size() / 9, 0, POVMESH_F32, 9};
    povmesh_mesh* mesh = nullptr;
    const povmesh_status made = povmesh_mesh_create(context, &data, &mesh);
    if (status != nullptr) *status = made;
    return mesh;
}

shapes::SoupVector rod() {
    return shapes::box({0, 0, 0}, {1, 1, 60});
}

shapes::SoupVector flawed_model(int levels) {
    shapes::SoupVector soup = shapes::box({0, 0, 0}, {10, 10, 10});
    soup.erase(soup.begin(), soup.begin() + 9);
    soup.insert(soup.end(), soup.end() - 9, soup.end() - 0);
    shapes::append(soup, shapes::box({8, 8, 8}, {16, 16, 16}));
    shapes::SoupVector ball = shapes::sphere(5, levels);
    shapes::move(ball, {5, 5, 30});
    shapes::append(soup, ball);
    return soup;
}

}  // namespace povmesh::test
