// Divisions of models of every kind into parts of every size: heaps of boxes, alone, overlapping or
// hollow, with raw triangles of any bits among them. Parts must fit or be told as too large; those
// of whole models must be closed and add up, and the planes of a search must give them again.
#include "decompose/decompose.h"
#include "bytes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "helpers/shapes.h"
#include "mesh/bounds.h"
#include "mesh/edge_mates.h"
#include "mesh/volume.h"
#include "require.h"

namespace {

using namespace povmesh;

struct Model {
    TriMesh mesh;
    bool is_whole = true;  // boxes alone
};

Model model_of(Bytes& bytes) {
    Model model;
    shapes::SoupVector soup;
    for (int part = 0; part < 8 && bytes.left() != 0; ++part) {
        const std::uint8_t kind = bytes.next();
        if (kind < 220) {
            Vec3f low{bytes.step(1, 16), bytes.step(1, 16), bytes.step(1, 16)};
            const Vec3f high{low.x + 1 + bytes.step(1, 16), low.y + 1 + bytes.step(1, 16),
                             low.z + 1 + bytes.step(1, 16)};
            const shapes::SoupVector box = shapes::box(low, high);
            shapes::append(soup, box);
            if (kind % 4 != 0) continue;
            // A cavity inside.
            const Vec3f inset = (high - low) * 0.25F;
            shapes::append(soup, shapes::turned(shapes::box(low + inset, high - inset)));
        } else {
            model.is_whole = false;
            for (int i = 0; i < 9; ++i)
                soup.push_back(kind < 250 ? bytes.step(1, 16) : bytes.any());
        }
    }
    model.mesh = shapes::mesh_of(soup);
    return model;
}

bool fits(const TriMesh& part, const DecomposeOptions& options) {
    const Box3f box = finite_bounds(part);
    if (box.is_empty()) return true;
    const Vec3d extent = to_double(box.high) - to_double(box.low);
    std::array<double, 3> have = {extent.x, extent.y, extent.z};
    std::array<double, 3> room{};
    const std::array<double, 3> size = {options.size.x, options.size.y, options.size.z};
    for (std::size_t i = 0; i < 3; ++i) {
        room[i] = size[i] > 0 && std::isfinite(size[i]) ? size[i] * (1 + 1e-4) : HUGE_VAL;
    }
    if (options.may_turn) {
        std::sort(have.begin(), have.end());
        std::sort(room.begin(), room.end());
    }
    return have[0] <= room[0] && have[1] <= room[1] && have[2] <= room[2];
}

bool is_closed(TriMesh& mesh) {
    const EdgeMates mates(mesh);
    for (std::size_t i = 0; i < 3 * mesh.faces.size(); ++i) {
        if (mates.kind(i / 3, i % 3) == EdgeMates::Kind::Open) return false;
    }
    return true;
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes bytes(data, size);
    const std::uint8_t setting = bytes.next();
    const auto length = [&] {
        return static_cast<double>(setting % 16 == 15 ? bytes.any() : 1 + bytes.step(1, 16));
    };
    DecomposeOptions options;
    options.size.x = length();
    options.size.y = length();
    options.size.z = length();
    options.method = (setting & 16U) != 0 ? DivisionMethod::Uniform : DivisionMethod::Automatic;
    options.may_turn = (setting & 32U) != 0;
    if ((setting & 64U) != 0) {
        options.pegs.radius = 0.2;
        options.pegs.count = 1;
        options.pegs.segments = 5;
    }
    options.search_cells = 2000;
    Model model = model_of(bytes);
    const double whole = signed_volume(model.mesh);
    const bool was_closed = is_closed(model.mesh);

    std::string told;
    RunLog log([&](std::string_view text) { told += text; });
    RunContext run{{}, log};
    const DecomposeReport report = decompose(model.mesh, options, run);
    double sum = 0;
    std::size_t too_large = 0;
    for (TriMesh& part : model.mesh.parts) {
        require(is_consistent(part), "inconsistent part");
        too_large += fits(part, options) ? 0 : 1;
        sum += signed_volume(part);
        require(!model.is_whole || !was_closed || is_closed(part), "open part of a closed model");
    }
    require(too_large <= report.too_large, "a part that does not fit is not told");
    require((report.too_large == 0) == (told.find("do not fit") == std::string::npos),
            "the log does not tell of parts that do not fit");
    if (!model.is_whole) return 0;
    require(report.too_large == 0 || told.find("{failure}") != std::string::npos,
            "boxes that cannot be divided");
    require(std::abs(sum - whole - report.peg_volume) <= 1e-4 * std::abs(whole) + 1e-6,
            "parts that do not add up");
    if (report.too_large == 0 && (setting & 64U) == 0) {
        require(model.mesh.parts.size() <= report.uniform_parts, "more parts than the even ones");
        require(model.mesh.parts.size() >= report.least_parts, "fewer parts than there can be");
    }
    return 0;
}
