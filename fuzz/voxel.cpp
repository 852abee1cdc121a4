// Voxel passes beside the slow ones on std::map, on small grids and on small meshes; hollowing of
// meshes of every kind, whose cavity must be closed and manifold.
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "bytes.h"
#include "design/hollow.h"
#include "helpers/reference.h"
#include "mesh/build_f.h"
#include "mesh/edge_mates.h"
#include "require.h"
#include "voxel/form_voxels.h"
#include "voxel/literal_grid.h"
#include "voxel/passes.h"
#include "voxel/surface.h"

namespace {

using namespace povmesh;

struct Job {
    RunLog log;
    RunContext run{{}, log};
};

// A bit a cell, the colour of the byte.
void fill_box(Bytes& bytes, VoxelGrid& grid, literal::Grid& expected) {
    const std::int32_t length = 3 + bytes.next() % 70;
    const IndexBox box{{-2, -1, -3}, {-2 + length, 2, 0}};
    grid = VoxelGrid(VoxelSettings{{1, 0.5F, 2}}, box);
    expected.size = {1, 0.5F, 2};
    expected.low = box.low;
    expected.high = box.high;
    for (std::int32_t z = box.low.z; z <= box.high.z; ++z) {
        for (std::int32_t y = box.low.y; y <= box.high.y; ++y) {
            unsigned bits = 0;
            for (std::int32_t x = box.low.x; x <= box.high.x; ++x, bits >>= 1) {
                if ((x - box.low.x) % 8 == 0) bits = bytes.next();
                if ((bits & 1U) == 0) continue;
                const auto grey = static_cast<std::uint8_t>(bits % 7 == 0 ? bits : 255);
                grid.insert({x, y, z}, {grey, 255, 255});
                expected.insert({x, y, z}, {grey, 255, 255}, kNoAngle);
            }
        }
    }
}

TriMesh mesh_of(Bytes& bytes, bool has_both_sides) {
    const unsigned side = 2 + bytes.next() % 24;
    const float unit = bytes.next() % 2 == 0 ? 0.5F : 1.3F;
    std::vector<float> soup;
    constexpr std::size_t kMostTriangles = 20;
    while (bytes.left() != 0 && soup.size() < kMostTriangles * 9) {
        soup.push_back(unit * static_cast<float>(bytes.next() % side));
    }
    soup.resize(soup.size() / 9 * 9);
    const std::size_t floats = soup.size();
    for (std::size_t i = 0; has_both_sides && i < floats; i += 9) {
        for (const std::size_t corner : {1U, 0U, 2U}) {
            for (std::size_t k = 0; k < 3; ++k) soup.push_back(soup[i + 3 * corner + k]);
        }
    }
    TriMesh mesh;
    build_f(mesh, Soup{soup.size() / 9, soup.data()});
    return mesh;
}

std::string run_pass(std::uint8_t code, VoxelGrid& grid, literal::Grid& expected) {
    const std::int32_t number = code / 8 % 4;
    switch (code % 8) {
        case 0:
            drop_enclosed(grid);
            expected.drop_enclosed();
            return "drop";
        case 1:
            fill_rows(grid, FillColour::White);
            expected.fill_rows(false);
            return "fill";
        case 2:
            fill_rows(grid, FillColour::MeanOfEnds);
            expected.fill_rows(true);
            return "mean";
        case 3:
            erode(grid, number);
            expected.erode(number, nullptr);
            return "erode";
        case 4:
            dilate(grid, -number, 1);
            expected.dilate(-number, 1);
            return "inward";
        case 5:
            dilate(grid, number / 2, 0);
            expected.dilate(number / 2, 0);
            return "outward";
        case 6:
            remove_spurs(grid, number);
            expected.remove_spurs(number);
            return "remove spurs";
        default:
            mark_exposed_sides(grid);
            expected.mark();
            return "mark";
    }
}

void compare_passes(Bytes& bytes, VoxelGrid& grid, literal::Grid& expected) {
    std::string story;
    for (int pass = 0; pass < 6; ++pass) {
        const std::string different = literal::difference(grid, expected);
        require(different.empty(), std::string(story).append(": ").append(different));
        story.append(" ").append(run_pass(bytes.next(), grid, expected));
    }
    Job job;
    TriMesh mesh;
    export_voxels(mesh, grid, job.run);
    require(reference::difference(mesh, literal::export_voxels(expected)).empty(), "export");
}

void hollow_mesh(Bytes& bytes) {
    Job job;
    const float thickness = static_cast<float>(bytes.next()) / 32 - 1;
    TriMesh mesh = mesh_of(bytes, false);
    const HollowReport report = hollow(mesh, thickness, job.run);
    require(is_consistent(mesh), "inconsistent mesh");
    require(report.is_hollowed != mesh.faces.empty(), "an empty cavity that counts as one");
    if (report.layers < 1 || mesh.faces.empty()) return;
    const EdgeMates mates(mesh);
    for (std::size_t i = 0; i < 3 * mesh.faces.size(); ++i) {
        require(mates.kind(i / 3, i % 3) == EdgeMates::Kind::Manifold &&
                    !mates.is_same_direction(i / 3, i % 3),
                "a cavity that is no closed manifold");
    }
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes bytes(data, size);
    const std::uint8_t kind = bytes.next() % 3;
    if (kind == 2) {
        hollow_mesh(bytes);
        return 0;
    }
    VoxelGrid grid;
    literal::Grid expected;
    Bytes passes(data + (size > 7 ? size - 6 : size), size > 7 ? 6 : 0);
    if (kind == 0) {
        fill_box(bytes, grid, expected);
    } else {
        Job job;
        const TriMesh mesh = mesh_of(bytes, true);
        if (mesh.faces.empty()) return 0;
        grid = form_voxels(mesh, {{1, 1, 1}}, job.run);
        expected = literal::form_voxels(mesh, {1, 1, 1});
    }
    compare_passes(passes, grid, expected);
    return 0;
}
