// The voxel grid and its passes against the slow version on std::map.
#include "voxel/passes.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "voxel/distance.h"
#include "voxel/literal_grid.h"
#include "voxel/outside.h"
#include "voxel/surface.h"

namespace povmesh {
namespace {

struct Pair {
    VoxelGrid grid;
    literal::Grid expected;
    RunLog log;
    RunContext run{{}, log};

    // The y-rows of 130 cells span three words.
    Pair(shapes::Random& random, int round) {
        const VoxelIndex high = round % 4 == 0 ? VoxelIndex{130, 0, -2} : VoxelIndex{9, 5, 2};
        const IndexBox box{{-3, -4, -5}, high};
        const VoxelSettings settings{{0.5F, 1, 2}, round % 2 == 0};
        grid = VoxelGrid(settings, box, {1, 2, 3});
        expected.size = settings.size;
        expected.origin = grid.origin();
        expected.keeps_angles = settings.keeps_angles;
        expected.low = box.low;
        expected.high = box.high;
        const std::uint64_t density = 1 + random.below(9);
        const bool is_solid = random.below(2) == 0;
        for (std::int32_t z = box.low.z; z <= box.high.z; ++z) {
            for (std::int32_t y = box.low.y; y <= box.high.y; ++y) {
                for (std::int32_t x = box.low.x; x <= box.high.x; ++x) {
                    if ((random.below(10) < density) == is_solid) continue;
                    VoxelColour colour = kWhite;
                    if (round % 3 == 1 && random.below(3) == 0) {
                        for (auto& c : colour) c = static_cast<std::uint8_t>(random.below(256));
                    }
                    const auto angle = static_cast<std::int8_t>(random.below(91));
                    grid.insert({x, y, z}, colour, angle);
                    expected.insert({x, y, z}, colour, angle);
                }
            }
        }
    }

    std::string run_pass(shapes::Random& random) {
        const auto number = static_cast<std::int32_t>(random.below(4));
        switch (random.below(8)) {
            case 0:
                mark_exposed_sides(grid, kFacesLine, run);
                expected.mark();
                return "mark";
            case 1:
                drop_enclosed(grid);
                expected.drop_enclosed();
                return "drop enclosed";
            case 2: {
                const bool keep = number % 2 == 0;
                fill_rows(grid, keep ? FillColour::MeanOfEnds : FillColour::White);
                expected.fill_rows(keep);
                return "fill";
            }
            case 3: {
                std::vector<Voxel> removed;
                std::vector<Voxel> expected_list;
                erode(grid, number, &removed);
                expected.erode(number, &expected_list);
                EXPECT_EQ(removed.size(), expected_list.size());
                for (std::size_t i = 0; i < removed.size(); ++i) {
                    EXPECT_EQ(removed[i].key, expected_list[i].key);
                    EXPECT_EQ(removed[i].flags, expected_list[i].flags);
                    EXPECT_EQ(removed[i].colour, expected_list[i].colour);
                }
                return "erode " + std::to_string(number);
            }
            case 4:
                dilate(grid, -number, 1);
                expected.dilate(-number, 1);
                return "dilate " + std::to_string(-number);
            case 5:
                dilate(grid, number / 2, 0);
                expected.dilate(number / 2, 0);
                return "dilate " + std::to_string(number / 2);
            case 6:
                remove_spurs(grid, number);
                expected.remove_spurs(number);
                return "remove spurs " + std::to_string(number);
            default: {
                const auto limit = static_cast<std::int64_t>(random.below(20));
                refresh_outside(grid);
                const auto near = cells_within(grid, grid.outside(), limit);
                grid.for_each([&](const Voxel& voxel) {
                    const std::size_t cell = grid.cell_of(voxel.index);
                    if ((near[cell / 64] >> (cell % 64) & 1U) != 0) grid.erase(voxel.index);
                });
                expected.drop_near(expected.outside(), limit);
                return "distance " + std::to_string(limit);
            }
        }
    }
};

// Whatever a visit changes ahead of it, in its own word and in later ones, a walk finds as a map
// would.
TEST(VoxelGrid, WalkMissesWhatAVisitChanges) {
    VoxelSettings settings;
    settings.size = {1, 1, 1};
    VoxelGrid grid(settings, {{0, 0, 0}, {99, 3, 3}});
    for (std::int32_t x = 0; x < 90; x += 3) grid.insert({x, 1, 1});
    std::vector<std::array<int, 2>> seen;  // x and flags
    grid.for_each([&](const Voxel& voxel) {
        seen.push_back({voxel.index.x, voxel.flags});
        const VoxelIndex next{voxel.index.x + 3, 1, 1};
        switch (voxel.index.x % 9) {
            case 0:
                grid.set_flags(next, 5);
                break;
            case 3:
                grid.erase(next);
                grid.insert({next.x + 1, 1, 1});
                grid.insert({next.x - 4, 1, 1});  // behind
                break;
            default:
                break;
        }
    });
    std::vector<std::array<int, 2>> expected;
    for (int x = 0; x < 90; x += 9) {
        for (const auto& found : {std::array{x, 0}, std::array{x + 3, 5}, std::array{x + 7, 0}}) {
            expected.push_back(found);
        }
    }
    EXPECT_EQ(seen, expected);
}

// Passes in any order, on flags fresh and stale, solid, sparse and hollow grids.
TEST(VoxelPasses, DifferFromTheMap) {
    shapes::Random random(5);
    for (int round = 0; round < 40; ++round) {
        Pair pair(random, round);
        std::string story = "round " + std::to_string(round);
        ASSERT_EQ(literal::difference(pair.grid, pair.expected), "") << story;
        for (int pass = 0; pass < 8; ++pass) {
            story += ", " + pair.run_pass(random);
            ASSERT_EQ(literal::difference(pair.grid, pair.expected), "") << story;
        }
        TriMesh mesh;
        export_voxels(mesh, pair.grid, pair.run);
        ASSERT_EQ(reference::difference(mesh, literal::export_voxels(pair.expected)), "") << story;
    }
}

}  // namespace
}  // namespace povmesh
