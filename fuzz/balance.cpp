// Balancing of models of every kind: heaps of boxes that lean, alone or overlapping, with raw
// triangles of any bits among them. What is carved must be closed, wound inward and let the
// finished model stand as told; preview and result must agree.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "bytes.h"
#include "design/balance.h"
#include "mesh/build_f.h"
#include "mesh/edge_mates.h"
#include "mesh/volume.h"
#include "require.h"

namespace {

using namespace povmesh;

// Twelve triangles, wound outward, sheared along x and y.
void add_leaning_box(Bytes& bytes, std::vector<float>& soup) {
    const float low[] = {bytes.step(0.7F), bytes.step(0.7F), bytes.step(0.7F)};
    const float size[] = {bytes.step(0.5F), bytes.step(0.5F), bytes.step(0.9F)};
    const float lean[] = {bytes.step(0.06F) - 0.9F, bytes.step(0.06F) - 0.9F};
    constexpr int kTriangles[12][3] = {{0, 2, 1}, {1, 2, 3}, {4, 5, 6}, {5, 7, 6},
                                       {0, 1, 4}, {1, 5, 4}, {2, 6, 3}, {3, 6, 7},
                                       {0, 4, 2}, {2, 4, 6}, {1, 3, 5}, {3, 7, 5}};
    for (const auto& triangle : kTriangles) {
        for (const int corner : triangle) {
            const float z = (corner & 4) != 0 ? size[2] : 0;
            soup.push_back(low[0] + ((corner & 1) != 0 ? size[0] : 0) + lean[0] * z);
            soup.push_back(low[1] + ((corner & 2) != 0 ? size[1] : 0) + lean[1] * z);
            soup.push_back(low[2] + z);
        }
    }
}

TriMesh model_of(Bytes& bytes) {
    std::vector<float> soup;
    for (int part = 0; part < 12 && bytes.left() != 0; ++part) {
        const std::uint8_t kind = bytes.next();
        if (kind < 200) {
            add_leaning_box(bytes, soup);
        } else {
            for (int i = 0; i < 9; ++i) soup.push_back(kind < 252 ? bytes.step(1) : bytes.any());
        }
    }
    TriMesh mesh;
    build_f(mesh, Soup{soup.size() / 9, soup.data()});
    return mesh;
}

void check_carved(const TriMesh& model, TriMesh& mesh, const BalanceReport& report, bool is_solid) {
    require(mesh.faces.size() > model.faces.size(), "carved without a cavity");
    require(
        std::memcmp(mesh.faces.data(), model.faces.data(), model.faces.size() * sizeof(Face)) == 0,
        "the model's own faces changed");
    const EdgeMates mates(mesh);
    for (std::size_t i = 3 * model.faces.size(); i < 3 * mesh.faces.size(); ++i) {
        require(mates.kind(i / 3, i % 3) == EdgeMates::Kind::Manifold &&
                    !mates.is_same_direction(i / 3, i % 3),
                "a cavity that is no closed manifold");
    }
    require(report.after.tilt > report.before.tilt && report.after.tilt >= kStands, "no gain");
    if (!is_solid) return;
    const Base base = base_of(mesh);
    const Standing finished = stand_on(base, base.middle + mass_of(mesh, base.middle).centre());
    require(std::abs(finished.tilt - report.after.tilt) < 1e-6, "another tilt than told");
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes bytes(data, size);
    const std::uint8_t setting = bytes.next();
    const float thickness =
        setting == 16 ? bytes.any() : static_cast<float>(setting % 16) * 0.3F - 0.3F;
    const BalanceOptions options = {.firm = setting >= 128 ? 10.0 : 40.0,
                                    .infill = setting % 32 < 16 ? 1 : 0.4};
    const TriMesh model = model_of(bytes);
    TriMesh mesh = model;
    RunLog log;
    RunContext run{{}, log};
    const BalanceReport report = balance(mesh, thickness, run, options);
    const BalanceReport preview = preview_balance(model, thickness, run, options);
    require(report.status == preview.status, "the preview decides otherwise");
    require(is_consistent(mesh), "inconsistent mesh");
    for (const double number :
         {report.before.tilt, report.after.tilt, report.before.margin, report.after.margin,
          report.model_volume, report.cavity_volume, preview.after.tilt}) {
        require(std::isfinite(number), "a number that is none");
    }
    if (report.status == BalanceStatus::Carved) {
        check_carved(model, mesh, report, options.infill == 1);
    } else {
        require(mesh.faces.size() == model.faces.size(), "nothing is carved, but faces came");
    }
    return 0;
}
