// Balancing and its preview beside the hollowing of the same model, and how far a model can be
// tilted before and after. One thread (scripts/bench sets OMP_NUM_THREADS=1).
//
// Floor: a voxelisation and the hollowing's core, which both have; 162 directions over 5,000
// blocks and some 150 over 40,000, 7 million places at 3 ns; then one surface instead of another.
#include <array>
#include <cmath>
#include <map>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "base/rotation.h"
#include "design/balance.h"
#include "design/hollow.h"
#include "inputs.h"

namespace povmesh::bench {
namespace {

using shapes::SoupVector;

// An arm that reaches far over a foot of 30, from an upright of 12; all 24 wide.
SoupVector gallows(float reach) {
    SoupVector soup;
    const std::vector<std::array<float, 2>> outline = {
        {-15, 0}, {15, 0}, {15, 8}, {-3, 8}, {-3, 50}, {reach, 50}, {reach, 70}, {-15, 70}};
    const std::vector<std::array<std::size_t, 3>> cover = {{0, 1, 2}, {0, 2, 3}, {0, 3, 4},
                                                           {0, 4, 7}, {4, 5, 6}, {4, 6, 7}};
    const auto push = [&](std::size_t i, float y) {
        soup.insert(soup.end(), {outline[i][0], y, outline[i][1]});
    };
    for (const auto& t : cover) {
        for (const std::size_t i : {t[0], t[1], t[2]}) push(i, -12);
        for (const std::size_t i : {t[2], t[1], t[0]}) push(i, 12);
    }
    for (std::size_t i = 0; i < outline.size(); ++i) {
        const std::size_t next = (i + 1) % outline.size();
        for (const auto& [k, y] : {std::pair{i, -12.0F}, {i, 12.0F}, {next, 12.0F}}) push(k, y);
        for (const auto& [k, y] : {std::pair{i, -12.0F}, {next, 12.0F}, {next, -12.0F}}) push(k, y);
    }
    return soup;
}

// 16 x 16 x 50, leaning by so many degrees.
SoupVector prism(double lean) {
    SoupVector soup = shapes::box({-8, -8, 0}, {8, 8, 50});
    const auto slope = static_cast<float>(std::tan(lean * std::numbers::pi / 180));
    for (std::size_t i = 0; i < soup.size(); i += 3) soup[i] += slope * soup[i + 2];
    return soup;
}

// A model that rests on the flat of its convex hull whose outward normal this is.
TriMesh resting(const std::string& model, Vec3d normal) {
    TriMesh turned = mesh(model);
    normal = normal / length(normal);
    const Vec3d axis = cross(normal, Vec3d{0, 0, -1});
    const double angle = std::atan2(length(axis), -normal.z) * 180 / std::numbers::pi;
    const Rotation turn(axis / length(axis), angle);
    for (Vertex& vertex : turned.vertices) {
        const Vec3f p = turn.apply(vertex.position());
        vertex.x = p.x;
        vertex.y = p.y;
        vertex.z = p.z;
    }
    return turned;
}

struct Case {
    TriMesh mesh;
    float wall;
};

const std::map<std::string, Case>& cases() {
    static const std::map<std::string, Case> all = [] {
        std::map<std::string, Case> made;
        made["gallows"] = {shapes::mesh_of(gallows(74.55F)), 1.2F};
        made["prism_10"] = {shapes::mesh_of(prism(10)), 1.2F};
        made["prism_18"] = {shapes::mesh_of(prism(18)), 2.0F};
        if (!existing_models({"cat"}).empty()) {
            made["cat_a"] = {resting("cat", {0.8268, -0.5272, -0.1962}), 1.2F};
            made["cat_b"] = {resting("cat", {0.6043, -0.7555, -0.2530}), 1.2F};
            made["cat_c"] = {resting("cat", {0.9664, -0.0901, -0.2406}), 1.2F};
            made["cat_d"] = {resting("cat", {0.6470, -0.6530, 0.3937}), 1.2F};
        }
        if (!existing_models({"goathead"}).empty()) {
            made["goathead"] = {resting("goathead", {0.8786, -0.4761, 0.0379}), 1.2F};
        }
        return made;
    }();
    return all;
}

RunContext quiet() {
    static RunLog log;
    return {{}, log};
}

void balance_case(benchmark::State& state, const std::string& name) {
    const Case& c = cases().at(name);
    RunContext run = quiet();
    measure(
        state, [&] { return c.mesh; },
        [&](TriMesh& mesh) {
            const BalanceReport report = balance(mesh, c.wall, run);
            const Base base = base_of(mesh);
            const Vec3d centre = base.middle + mass_of(mesh, base.middle).centre();
            state.counters["before"] = report.before.tilt;
            state.counters["after"] = stand_on(base, centre).tilt;
            state.counters["triangles"] = static_cast<double>(mesh.faces.size());
            return report.core_voxels;
        });
}

void preview_case(benchmark::State& state, const std::string& name) {
    const Case& c = cases().at(name);
    RunContext run = quiet();
    measure(state, [&] { return preview_balance(c.mesh, c.wall, run).after.tilt; });
}

void hollow_case(benchmark::State& state, const std::string& name) {
    const Case& c = cases().at(name);
    RunContext run = quiet();
    measure(
        state, [&] { return c.mesh; },
        [&](TriMesh& mesh) {
            const HollowReport report = hollow(mesh, c.wall, run);
            state.counters["triangles"] = static_cast<double>(mesh.faces.size());
            return report.voxels;
        });
}

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    std::vector<std::string> names;
    for (const auto& one : cases()) names.push_back(one.first);
    add_named("hollow", names, hollow_case);
    add_named("balance", names, balance_case);
    add_named("balance_preview", names, preview_case);
    return run(argc, argv);
}
