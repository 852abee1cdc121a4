// The plan of the nodes: they reach around the box, are exact, and a cell that is too small is told
// with one that works.
#include "field/field_grid.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>

namespace povmesh {
namespace {

TEST(FieldGrid, ReachesAroundEveryBoxWithExactNodes) {
    for (const double size : {1e-30, 1e-3, 1.0, 47.3, 1e20}) {
        for (const double place : {-3.0, 0.0, 40.0}) {
            const Vec3d low = {place * size, -size / 3, size};
            const Box3d box = {low, low + Vec3d{size, size * 0.7, size * 2}};
            FieldGrid grid;
            ASSERT_TRUE(plan_grid(box, size / 93, grid).ok()) << size;
            EXPECT_NEAR(grid.cell * 93 / size, 1, 1.0 / 60);
            const Vec3d first = grid.node(0, 0, 0);
            const Vec3d last = grid.node(grid.nodes[0] - 1, grid.nodes[1] - 1, grid.nodes[2] - 1);
            EXPECT_TRUE(first.x < box.low.x && first.y < box.low.y && first.z < box.low.z);
            EXPECT_TRUE(last.x > box.high.x && last.y > box.high.y && last.z > box.high.z);
            // A line of nodes has one coordinate, whichever node it is computed from.
            EXPECT_EQ(last.x - first.x, grid.cell * (grid.nodes[0] - 1));
        }
    }
}

TEST(FieldGrid, TellsACellThatWorksWhenOneIsTooSmall) {
    const Box3d cube = {{0, 0, 0}, {100, 100, 100}};
    const Box3d far_away = {{1e6, 0, 0}, {1e6 + 1, 1, 1}};
    FieldGrid grid;
    for (const Box3d& box : {cube, far_away}) {
        const Status refused = plan_grid(box, 0.001, grid);
        ASSERT_EQ(refused.code(), StatusCode::TooLarge);
        const std::string& text = refused.text();
        const double told = std::atof(text.c_str() + text.find("; take ") + 7);
        EXPECT_GT(told, 0.001) << text;
        EXPECT_TRUE(plan_grid(box, told, grid).ok()) << text;
    }
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    for (const double cell : {0.0, -1.0, kNan, HUGE_VAL, 1e-300}) {
        EXPECT_EQ(plan_grid(cube, cell, grid).code(), StatusCode::BadOption) << cell;
    }
    EXPECT_EQ(plan_grid(Box3d{}, 1, grid).code(), StatusCode::BadOption);
    EXPECT_EQ(plan_grid({{0, 0, 0}, {kNan, 1, 1}}, 1, grid).code(), StatusCode::BadOption);
}

}  // namespace
}  // namespace povmesh
