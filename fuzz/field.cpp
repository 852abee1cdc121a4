// Wraps and offsets of soups of 1 to 200 triangles whose coordinates lie on a lattice, so that
// faces share planes, edges and corners and cross there: every result is closed, a manifold,
// outward and free of crossings.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "field/make_solid.h"
#include "field/offset.h"
#include "field/wrap.h"
#include "helpers/reference.h"
#include "mesh/build_f.h"
#include "mesh/volume.h"
#include "require.h"
#include "spatial/self_intersection.h"

namespace {

using namespace povmesh;

void require_sound(const TriMesh& mesh, const std::string& what) {
    require(reference::is_closed_manifold(mesh), what + " is not a closed manifold");
    require(signed_volume(mesh) > 0, what + " is not outward");
    require(find_self_intersections(mesh, 0).count == 0, what + " crosses itself");
}

}  // namespace

// The name is libFuzzer's.
// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2 + 9) return 0;
    const std::uint8_t mode = data[0];
    const double cell = 0.4 + data[1] / 128.0;
    std::vector<float> soup;
    for (std::size_t i = 2; i < size && soup.size() < std::size_t{9} * 200; ++i) {
        soup.push_back(static_cast<float>(data[i] % 16) * 0.625F);
    }
    TriMesh mesh;
    Soup triangles;
    triangles.triangle_count = soup.size() / 9;
    triangles.coordinates = soup.data();
    build_f(mesh, triangles);
    RunLog log;
    RunContext run{{}, log};

    TriMesh wrapped = mesh;
    WrapOptions options{.cell = cell};
    if ((mode & 1) != 0) options.gap = (mode >> 4) / 4.0;
    options.keeps_thin = (mode & 2) == 0;
    options.all_triangles = (mode & 4) != 0;
    WrapReport wrap_report;
    if (wrap(wrapped, options, run, wrap_report).ok()) require_sound(wrapped, "a wrap");

    TriMesh moved = mesh;
    const double distance = ((mode & 8) != 0 ? 1 : -1) * (0.1 + (mode >> 4) / 8.0);
    OffsetOptions offset_options{.cell = cell};
    if ((mode & 2) != 0) offset_options.corners = OffsetCorners::Sharp;
    offset_options.all_triangles = (mode & 4) != 0;
    OffsetReport offset_report;
    if (offset(moved, distance, offset_options, run, offset_report).ok()) {
        require_sound(moved, "an offset");
    }
    if ((mode & 1) != 0) {
        SolidReport solid_report;
        if (make_solid(mesh, {.cell = cell}, run, solid_report).ok() && !mesh.faces.empty()) {
            require_sound(mesh, "a solid");
        }
    }
    return 0;
}
