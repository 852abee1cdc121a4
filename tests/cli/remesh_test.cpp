// Reducing, subdividing, remeshing and revising, as users of the tool meet them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "helpers/shapes.h"
#include "tool_runner.h"

namespace povmesh {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

class Remesh : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        write_stl_file("sphere.stl", shapes::sphere(10, 4));  // 5,120 triangles
        write_stl_file("cube.stl", shapes::box({0, 0, 0}, {10, 10, 10}));
        shapes::SoupVector strip;  // every vertex is on its border
        for (int i = 0; i < 5; ++i) {
            const auto x = static_cast<float>(i);
            shapes::append(strip, std::vector<float>{x, 0, 0, x + 1, 0, 0, x, 1, 0,  //
                                                     x, 1, 0, x + 1, 0, 0, x + 1, 1, 0});
        }
        write_stl_file("strip.stl", strip);
        shapes::SoupVector ball = shapes::sphere(10, 4);  // with a thin wall
        shapes::append(ball, shapes::shuffled(shapes::turned(shapes::sphere(9.8F, 4)), 3));
        write_stl_file("ball.stl", ball);
        // Each triangle has a texture of its own: all edges are seams.
        const shapes::SoupVector plain = shapes::sphere(10, 3);
        std::string obj = "vt 0 0\nvt 1 0\nvt 0 1\nusemtl a\n";
        for (std::size_t i = 0; i < plain.size(); i += 3) {
            obj += "v " + std::to_string(plain[i]) + " " + std::to_string(plain[i + 1]) + " " +
                   std::to_string(plain[i + 2]) + "\n";
            if (i % 9 == 6) obj += "f -3/1 -2/2 -1/3\n";
        }
        write("textured.obj", obj);
    }

    json done(std::vector<std::string> arguments) const {
        arguments.emplace_back("--json");
        const ToolResult result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return json::parse(result.out);
    }
};

TEST_F(Remesh, ReducesToTheTargetOrTellsWhichRuleEndedIt) {
    struct Row {
        std::vector<std::string> how;
        std::string model;
        std::string ended_by;
        int least, most;  // triangles of the result
    };
    const Row rows[] = {
        {{"--keep", "0.1"}, "sphere.stl", "target", 510, 512},
        {{"--faces", "100"}, "sphere.stl", "target", 98, 100},
        {{"--keep", "1"}, "sphere.stl", "nothing_to_do", 5120, 5120},
        {{"--auto"}, "sphere.stl", "nothing_to_do", 5120, 5120},
        {{"--keep", "0.2"}, "strip.stl", "target", 2, 2},
        {{"--keep", "0.5"}, "cube.stl", "movement", 12, 12},
        {{"--keep", "0.02"}, "ball.stl", "crossing", 300, 2000},
        {{"--keep", "0.1"}, "textured.obj", "target", 128, 128},
    };
    for (const Row& row : rows) {
        std::vector<std::string> arguments = {"reduce", row.model, "-o", "out.stl"};
        const bool is_sphere = row.model == "sphere.stl" && row.ended_by == "target";
        if (is_sphere) arguments.emplace_back("--measure");
        arguments.insert(arguments.end(), row.how.begin(), row.how.end());
        SCOPED_TRACE(row.model + testing::PrintToString(row.how));
        const json object = done(arguments);
        EXPECT_EQ(object["ended_by"], row.ended_by);
        EXPECT_GE(object["after"]["triangles"], row.least);
        EXPECT_LE(object["after"]["triangles"], row.most);
        const json checked = json::parse(run({"check", "--json", "out.stl"}).out);
        EXPECT_EQ(checked[0]["triangles"], object["after"]["triangles"]);
        if (!is_sphere) continue;
        EXPECT_EQ(checked[0]["verdict"], "clean");
        // The chord of 100 triangles lies about 0.06 radii below the arc, 0.018 of the diagonal.
        EXPECT_LT(object["distance"]["greatest_share"], 0.04);
        EXPECT_LE(object["distance"]["rms"], object["distance"]["greatest"]);
        EXPECT_GT(object["distance"]["rms_share"], 1e-6);
    }
    const ToolResult table = run({"reduce", "sphere.stl", "-o", "out.stl", "--keep", "0.1"});
    EXPECT_THAT(table.out, HasSubstr("triangles     5,120"));
    EXPECT_THAT(table.out, HasSubstr("ended by  target reached"));
}

TEST_F(Remesh, SubdividesAndTellsBeforeAndAfter) {
    const json uniform = done({"subdivide", "cube.stl", "-o", "out.obj", "--levels", "3"});
    EXPECT_EQ(uniform["before"]["area"], 600);
    EXPECT_EQ(uniform["after"]["triangles"], 12 << 6);
    EXPECT_LT(uniform["after"]["volume"], 600);  // rounded from 1,000
    EXPECT_THAT(uniform["warnings"].dump(), HasSubstr("% smaller"));
    // Where faces are wound against each other the volume tells nothing.
    shapes::SoupVector turned = shapes::box({0, 0, 0}, {10, 10, 10});
    std::swap_ranges(turned.begin(), turned.begin() + 3, turned.begin() + 3);
    write_stl_file("turned.stl", turned);
    EXPECT_THAT(run({"subdivide", "turned.stl", "-o", "out.stl"}).err, Not(HasSubstr("volume")));
    EXPECT_EQ(
        done({"subdivide", "cube.stl", "-o", "out.stl", "--mode", "smooth"})["after"]["triangles"],
        12);
    // Only the diagonals are longer than the mean: one edge of every face.
    const ToolResult table = run({"subdivide", "cube.stl", "-o", "out.stl", "--mode", "adaptive"});
    EXPECT_THAT(table.out, HasSubstr("triangles     12            24\n"));
    EXPECT_THAT(table.out, HasSubstr("read back, 24 triangles as written"));
}

TEST_F(Remesh, RemeshesAndRevisesAndTellsBeforeAndAfter) {
    const json even = done({"remesh", "cube.stl", "-o", "out.stl", "--edge", "2"});
    EXPECT_EQ(even["before"]["edges"]["shortest"], 10);
    EXPECT_NEAR(even["after"]["edges"]["mean"], 2, 0.2);
    EXPECT_GT(even["after"]["angles"]["smallest"], 20);
    EXPECT_EQ(even["after"]["angles"]["below_20_share"], 0);
    EXPECT_LT(even["distance"]["greatest"], 1e-6);
    EXPECT_EQ(even.count("raised_to"), 0U);
    EXPECT_EQ(json::parse(run({"check", "--json", "out.stl"}).out)[0]["verdict"], "clean");

    shapes::SoupVector cube = shapes::box({0, 0, 0}, {10, 10, 10});
    // The corner of a face is cut off: two needles.
    const std::vector<float> first(cube.begin(), cube.begin() + 9);
    std::vector<float> m(3);
    for (std::size_t i = 0; i < 3; ++i) {
        m[i] = first[i] + 0.0005F * (first[3 + i] + first[6 + i] - 2 * first[i]);
    }
    cube.erase(cube.begin(), cube.begin() + 9);
    for (std::size_t c = 0; c < 3; ++c) {
        for (const std::size_t from : {c, (c + 1) % 3}) {
            cube.insert(cube.end(), first.begin() + static_cast<std::ptrdiff_t>(3 * from),
                        first.begin() + static_cast<std::ptrdiff_t>(3 * from + 3));
        }
        shapes::append(cube, m);
    }
    write_stl_file("needles.stl", cube);
    const json revised = done({"revise", "needles.stl", "-o", "out.stl"});
    EXPECT_EQ(revised["before"]["needles"], 2);
    EXPECT_EQ(revised["before"]["degenerate"], 2);
    EXPECT_EQ(revised["after"]["needles"], 0);
    EXPECT_EQ(revised["after"]["triangles"], 12);
    EXPECT_EQ(revised["collapsed"], 1);
    const ToolResult table = run({"revise", "needles.stl", "-o", "out.stl"});
    EXPECT_THAT(table.out, HasSubstr("degenerate        2             0"));
    EXPECT_THAT(table.out, HasSubstr("edges collapsed     1\n"));
}

TEST_F(Remesh, TellsWhatCannotBe) {
    const std::pair<std::vector<std::string>, int> rows[] = {
        {{"reduce", "cube.stl", "-o", "out.stl"}, 2},
        {{"reduce", "cube.stl", "-o", "out.stl", "--keep", "0.5", "--auto"}, 2},
        {{"reduce", "cube.stl", "-o", "out.stl", "--keep", "1.5"}, 2},
        {{"reduce", "cube.stl", "-o", "out.stl", "--faces", "10.5"}, 2},
        {{"subdivide", "cube.stl", "-o", "out.stl", "--levels", "6"}, 2},
        {{"subdivide", "cube.stl", "-o", "out.xyz"}, 2},
        {{"remesh", "cube.stl", "-o", "out.stl"}, 2},
        {{"remesh", "cube.stl", "-o", "out.stl", "--edge", "0"}, 2},
        {{"remesh", "cube.stl", "-o", "out.stl", "--edge", "nan"}, 2},
        {{"revise", "missing.stl", "-o", "out.stl"}, 3},
        {{"subdivide", "missing.stl", "-o", "out.stl"}, 3},
        {{"reduce", "missing.stl", "-o", "out.stl", "--auto"}, 3},
        {{"subdivide", "cube.stl", "-o", "no/folder/out.stl"}, 6},
    };
    for (const auto& [arguments, status] : rows) {
        const ToolResult result = run(arguments);
        EXPECT_EQ(result.status, status) << testing::PrintToString(arguments);
        EXPECT_THAT(result.err, HasSubstr("povmesh: "));
        EXPECT_EQ(run({"check", "out.stl"}).status, 3);  // nothing was written
    }
}

// The wall of the ball is a fifteenth of the edge: its two sides used to cross.
TEST_F(Remesh, CoarseTrianglesDoNotPierceAThinWall) {
    const json coarse = done({"remesh", "ball.stl", "-o", "coarse.stl", "--edge", "3"});
    EXPECT_GT(coarse["even"]["share_of_local"], 0.95);
    const double volume = coarse["before"]["volume"];
    EXPECT_NEAR(coarse["after"]["volume"], volume, 0.1 * volume);
    EXPECT_EQ(run({"check", "coarse.stl"}).status, run({"check", "ball.stl"}).status);
}

TEST_F(Remesh, EdgesRoundedWithinALengthAreToldToComeOutRough) {
    shapes::SoupVector rounded = shapes::sphere(1, 4);
    for (float& coordinate : rounded) {
        coordinate += coordinate > 0 ? 8.0F : coordinate < 0 ? -8.0F : 0.0F;
    }
    write_stl_file("rounded.stl", rounded);
    const json rough = done({"remesh", "rounded.stl", "-o", "out.stl", "--edge", "3"});
    EXPECT_THAT(rough["warnings"].dump(), HasSubstr("comes out rough"));
    const json fine = done({"remesh", "rounded.stl", "-o", "out.stl", "--edge", "0.8"});
    EXPECT_EQ(fine["warnings"].dump(), "[]");
}

TEST_F(Remesh, WhatCrossesIsNotPassedOffAsGood) {
    // Smoothing pulls the sides of a box through the ball inside.
    shapes::SoupVector nested = shapes::box({0, 0, 0}, {10, 10, 10});
    shapes::append(nested, shapes::turned(shapes::sphere(4.9F, 3)));
    for (std::size_t i = nested.size() - shapes::sphere(4.9F, 3).size(); i < nested.size(); ++i) {
        nested[i] += 5;
    }
    write_stl_file("nested.stl", nested);
    EXPECT_EQ(run({"subdivide", "nested.stl", "-o", "smooth.stl"}).status, 1);
}

}  // namespace
}  // namespace povmesh
