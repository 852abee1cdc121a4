#include "context_calls.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>

namespace povmesh::bench {
namespace {

template <typename Call>
povmesh_status to_mesh(const Call& call) {
    povmesh_mesh* made = nullptr;
    const povmesh_status status = call(&made);
    povmesh_mesh_release(made);
    return status;
}

template <typename Call>
povmesh_status to_result(const Call& call) {
    povmesh_result* made = nullptr;
    const povmesh_status status = call(&made);
    povmesh_result_release(made);
    return status;
}

povmesh_status check(povmesh_context* c, const povmesh_mesh* m) {
    return to_result([&](povmesh_result** r) { return povmesh_check(c, m, nullptr, r, nullptr); });
}
povmesh_status repair(povmesh_context* c, const povmesh_mesh* m) {
    return to_mesh([&](povmesh_mesh** r) { return povmesh_repair(c, m, nullptr, r, nullptr); });
}
povmesh_status split(povmesh_context* c, const povmesh_mesh* m) {
    return to_result([&](povmesh_result** r) { return povmesh_split(c, m, nullptr, r, nullptr); });
}
povmesh_status cut(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_cut_options o = povmesh_cut_defaults();
    o.pegs = 2;
    return to_result([&](povmesh_result** r) { return povmesh_cut(c, m, &o, r, nullptr); });
}
povmesh_status reduce(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_reduce_options o = povmesh_reduce_defaults();
    o.keep = 0.5;
    return to_mesh([&](povmesh_mesh** r) { return povmesh_reduce(c, m, &o, r, nullptr); });
}
povmesh_status remesh(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_remesh_options o = povmesh_remesh_defaults();
    o.edge_length = 0.3;
    return to_mesh([&](povmesh_mesh** r) { return povmesh_remesh(c, m, &o, r, nullptr); });
}
povmesh_status revise(povmesh_context* c, const povmesh_mesh* m) {
    return to_mesh([&](povmesh_mesh** r) { return povmesh_revise(c, m, nullptr, r, nullptr); });
}
povmesh_status subdivide(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_subdivide_options o = povmesh_subdivide_defaults();
    o.mode = POVMESH_SUBDIVIDE_SMOOTH;
    return to_mesh([&](povmesh_mesh** r) { return povmesh_subdivide(c, m, &o, r); });
}
povmesh_status voxelize(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_voxelize_options o = povmesh_voxelize_defaults();
    o.edge = 0.5;
    return to_mesh([&](povmesh_mesh** r) { return povmesh_voxelize(c, m, &o, r, nullptr); });
}
povmesh_status infill(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_infill_options o = povmesh_infill_defaults();
    o.skin = 2;
    o.density = 0.3;
    return to_mesh([&](povmesh_mesh** r) { return povmesh_infill(c, m, &o, r, nullptr); });
}
povmesh_status hollow(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_hollow_options o = povmesh_hollow_defaults();
    o.thickness = 8;
    const povmesh_drain drain = {{0, 0, -50}, 3};
    o.drains = &drain;
    o.drain_count = 1;
    return to_mesh([&](povmesh_mesh** r) { return povmesh_hollow(c, m, &o, r, nullptr); });
}
povmesh_status offset(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_offset_options o = povmesh_offset_defaults();
    o.distance = -1;
    o.cell = 1;
    return to_mesh([&](povmesh_mesh** r) { return povmesh_offset(c, m, &o, r, nullptr); });
}
povmesh_status wrap(povmesh_context* c, const povmesh_mesh* m) {
    return to_mesh([&](povmesh_mesh** r) { return povmesh_wrap(c, m, nullptr, r, nullptr); });
}
povmesh_status distance(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_distance_report report{};
    report.size = sizeof report;
    return povmesh_distance(c, m, m, nullptr, &report);
}
povmesh_status support(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_support_options o = povmesh_support_defaults();
    o.layer_height = 0.2;
    return to_result([&](povmesh_result** r) { return povmesh_support(c, m, &o, r, nullptr); });
}
povmesh_status strength(povmesh_context* c, const povmesh_mesh* m) {
    return to_result(
        [&](povmesh_result** r) { return povmesh_strength(c, m, nullptr, r, nullptr); });
}
povmesh_status weakness(povmesh_context* c, const povmesh_mesh* m) {
    return to_result([&](povmesh_result** r) { return povmesh_weakness(c, m, nullptr, r); });
}
povmesh_status render(povmesh_context* c, const povmesh_mesh* m) {
    void* png = nullptr;
    std::size_t bytes = 0;
    const povmesh_status status = povmesh_render(c, &m, 1, nullptr, &png, &bytes);
    povmesh_free(png);
    return status;
}
povmesh_status decompose(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_decompose_options o = povmesh_decompose_defaults();
    for (double& x : o.extent) x = 60;
    return to_result([&](povmesh_result** r) { return povmesh_decompose(c, m, &o, r, nullptr); });
}
povmesh_status lampshade(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_lampshade_options o = povmesh_lampshade_defaults();
    o.thickness = 2;
    return to_result([&](povmesh_result** r) { return povmesh_lampshade(c, m, &o, r, nullptr); });
}
povmesh_status orient(povmesh_context* c, const povmesh_mesh* m) {
    return to_result([&](povmesh_result** r) { return povmesh_orient(c, m, nullptr, r); });
}
povmesh_status balance(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_balance_options o = povmesh_balance_defaults();
    o.thickness = 2;
    o.angle = 60;
    return to_result([&](povmesh_result** r) { return povmesh_balance(c, m, &o, r, nullptr); });
}
povmesh_status thickness(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_thickness_options o = povmesh_thickness_defaults();
    o.wall = 1;
    return to_result([&](povmesh_result** r) { return povmesh_thickness(c, m, &o, r, nullptr); });
}

template <typename Format>
povmesh_status there_and_back(povmesh_context* c, const povmesh_mesh* m, Format format) {
    povmesh_write_options o = povmesh_write_defaults();
    o.format = format;
    void* data = nullptr;
    std::size_t bytes = 0;
    povmesh_status status = povmesh_write_memory(c, m, &o, &data, &bytes, nullptr);
    if (status == POVMESH_OK) {
        status = to_mesh([&](povmesh_mesh** r) {
            return povmesh_read_memory(c, data, bytes, nullptr, r, nullptr);
        });
    }
    povmesh_free(data);
    return status;
}
povmesh_status stl(povmesh_context* c, const povmesh_mesh* m) {
    return there_and_back(c, m, "stl");
}
povmesh_status obj(povmesh_context* c, const povmesh_mesh* m) {
    return there_and_back(c, m, "obj");
}
povmesh_status ply(povmesh_context* c, const povmesh_mesh* m) {
    return there_and_back(c, m, "ply");
}
povmesh_status three_mf(povmesh_context* c, const povmesh_mesh* m) {
    return there_and_back(c, m, "3mf");
}

// A copy of the arrays where they lie.
povmesh_mesh_data arrays_of(const povmesh_mesh* m) {
    povmesh_mesh_data data{};
    data.size = sizeof data;
    povmesh_mesh_view(m, POVMESH_POSITIONS, &data.positions);
    povmesh_mesh_view(m, POVMESH_FACES, &data.faces);
    return data;
}
povmesh_status create(povmesh_context* c, const povmesh_mesh* m) {
    const povmesh_mesh_data data = arrays_of(m);
    return to_mesh([&](povmesh_mesh** r) { return povmesh_mesh_create(c, &data, r); });
}
povmesh_status weld(povmesh_context* c, const povmesh_mesh* m) {
    povmesh_mesh_data data = arrays_of(m);
    data.weld = 1;
    return to_mesh([&](povmesh_mesh** r) { return povmesh_mesh_create(c, &data, r); });
}

constexpr ContextCall kCalls[] = {{"create", create},
                                  {"weld", weld},
                                  {"check", check},
                                  {"repair", repair},
                                  {"split", split},
                                  {"cut", cut},
                                  {"reduce", reduce},
                                  {"remesh", remesh},
                                  {"revise", revise},
                                  {"subdivide", subdivide},
                                  {"hollow", hollow},
                                  {"infill", infill},
                                  {"voxelize", voxelize},
                                  {"support", support},
                                  {"strength", strength},
                                  {"weakness", weakness},
                                  {"render", render},
                                  {"distance", distance},
                                  {"decompose", decompose},
                                  {"lampshade", lampshade},
                                  {"orient", orient},
                                  {"balance", balance},
                                  {"offset", offset},
                                  {"wrap", wrap},
                                  {"thickness", thickness},
                                  {"stl", stl},
                                  {"obj", obj},
                                  {"ply", ply},
                                  {"3mf", three_mf}};

bool is_there(const std::string& name) {
    const bool is_operation = povmesh_has(("operation:" + name).c_str()) != 0;
    const bool is_format = povmesh_has(("write:" + name).c_str()) != 0;
    return is_operation || is_format || name == "create" || name == "weld";
}

}  // namespace

std::vector<ContextCall> context_calls() {
    std::vector<ContextCall> calls;
    for (const ContextCall& call : kCalls) {
        if (is_there(call.name)) calls.push_back(call);
    }
    return calls;
}

const ContextCall& context_call(const std::string& name) {
    for (const ContextCall& call : kCalls) {
        if (call.name == name) return call;
    }
    throw std::invalid_argument("no call " + name);
}

}  // namespace povmesh::bench
