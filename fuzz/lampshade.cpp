// Lampshades of models of every kind: heaps of boxes that lean, alone or overlapping, with raw
// triangles of any bits among them. A shade of a closed manifold is one, the wall is as thick as
// told, and the preview decides as the result does.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "bytes.h"
#include "design/lampshade.h"
#include "mesh/build_f.h"
#include "mesh/compact.h"
#include "mesh/edge_mates.h"
#include "mesh/volume.h"
#include "require.h"
#include "spatial/self_intersection.h"

namespace {

using namespace povmesh;

// Twelve triangles, wound outward unless a size is 0, sheared along x and tapered.
void add_box(Bytes& bytes, std::vector<float>& soup) {
    const std::array<float, 3> low = {bytes.step(0.5F), bytes.step(0.5F), bytes.step(0.25F)};
    const std::array<float, 3> size = {bytes.step(0.4F), bytes.step(0.4F), bytes.step(0.5F)};
    const float lean = bytes.step(0.1F) - 1.5F;
    const float taper = bytes.step(0.05F);
    constexpr int kTriangles[12][3] = {{0, 2, 1}, {1, 2, 3}, {4, 5, 6}, {5, 7, 6},
                                       {0, 1, 4}, {1, 5, 4}, {2, 6, 3}, {3, 6, 7},
                                       {0, 4, 2}, {2, 4, 6}, {1, 3, 5}, {3, 7, 5}};
    for (const auto& triangle : kTriangles) {
        for (const int corner : triangle) {
            const float z = (corner & 4) != 0 ? 1.0F : 0.0F;
            const float share = 1 - z * taper;
            soup.push_back(low[0] + ((corner & 1) != 0 ? size[0] * share : 0) + lean * z);
            soup.push_back(low[1] + ((corner & 2) != 0 ? size[1] * share : 0));
            soup.push_back(low[2] + size[2] * z);
        }
    }
}

bool is_manifold(TriMesh mesh) {
    const EdgeMates mates(mesh);
    for (std::size_t i = 0; i < 3 * mesh.faces.size(); ++i) {
        if (mates.kind(i / 3, i % 3) != EdgeMates::Kind::Manifold ||
            mates.is_same_direction(i / 3, i % 3)) {
            return false;
        }
    }
    return true;
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes bytes(data, size);
    const std::uint8_t setting = bytes.next();
    const float thickness = setting == 255 ? bytes.any() : 0.5F + 0.25F * (setting % 8);
    LampshadeOptions options;
    options.measures = true;
    options.top = static_cast<LampshadeTop>(setting / 8 % 3);
    if (setting / 32 % 3 == 1) options.bottom = static_cast<double>(bytes.step(0.5F));
    if (setting / 32 % 3 == 2) options.top_level = static_cast<double>(bytes.step(0.5F));
    std::vector<float> soup;
    bool is_plain = true;
    for (int part = 0; part < 6 && bytes.left() != 0; ++part) {
        const std::uint8_t kind = bytes.next();
        if (kind < 200) {
            add_box(bytes, soup);
        } else {
            is_plain = false;
            for (int i = 0; i < 9; ++i) soup.push_back(kind < 252 ? bytes.step(0.5F) : bytes.any());
        }
    }
    TriMesh model;
    build_f(model, Soup{soup.size() / 9, soup.data()});
    TriMesh mesh = model;
    RunLog log;
    RunContext run{{}, log};
    const LampshadeReport report = lampshade(mesh, thickness, run, options);
    LampshadeContours contours;
    const LampshadeReport preview = preview_lampshade(model, thickness, run, contours, options);
    require(report.status == preview.status, "the preview decides otherwise");
    require(report.shades.size() == preview.shades.size(), "the preview makes other shades");
    require(is_consistent(mesh), "inconsistent mesh");
    if (report.status != LampshadeStatus::Made) {
        require(mesh.faces.size() == model.faces.size(), "nothing is made, but faces changed");
        require(contours.sizes.empty(), "nothing is made, but there are contours");
        return 0;
    }
    require(report.outside_faces + report.inner_faces <= mesh.faces.size(), "too few faces");
    require(std::isfinite(report.mean_wall), "a mean that is none");
    require(report.smallest_wall >= kLeastLampshadeWall * static_cast<double>(thickness),
            "a thinner wall than promised");
    const bool is_sound =
        is_plain && is_manifold(model) && find_self_intersections(model, 0).count == 0;
    compact(mesh);
    if (!is_sound) return 0;
    require(is_manifold(mesh), "a closed manifold became none");
    require(find_self_intersections(mesh, 0).count == 0, "the shade crosses itself");
    require(volume(mesh) < volume(model), "nothing was taken out");
    return 0;
}
