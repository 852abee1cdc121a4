// Infill and strength, as users of the tool meet them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "analysis/section_shapes.h"
#include "helpers/shapes.h"
#include "tool_runner.h"

namespace povmesh {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class Design : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        write_stl_file("cube.stl", shapes::box({0, 0, 0}, {60, 60, 60}));
        write_stl_file("thin.stl", shapes::box({0, 0, 0}, {40, 40, 2}));
        // Two heads on a thin neck.
        write_stl_file(
            "dumbbell.stl",
            shapes::lathe({{10, 0}, {10, 12}, {2, 12}, {2, 28}, {10, 28}, {10, 40}}, 24));
    }

    json done(std::vector<std::string> arguments) const {
        arguments.emplace_back("--json");
        const ToolResult result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return json::parse(result.out);
    }
};

TEST_F(Design, InfillTakesMaterialOutOrSaysWhyNot) {
    const std::vector<std::string> infill = {"infill", "cube.stl", "-o",        "out.stl",
                                             "--skin", "2",        "--density", "0.5"};
    const json filled = done(infill);
    EXPECT_LE(filled["density"], 0.5);
    EXPECT_GT(filled["density"], 0.3);
    const double taken = 60.0 * 60 * 60 - double{filled["after"]["volume"]};
    EXPECT_NEAR(taken / double{filled["cells_volume"]}, 1, 1e-3);
    const json checked = json::parse(run({"check", "out.stl", "--json"}).out)[0];
    EXPECT_EQ(checked["verdict"], "clean");
    std::vector<std::string> cells_only = infill;
    cells_only.emplace_back("--cells-only");
    EXPECT_NEAR(double{done(cells_only)["after"]["volume"]} / taken, 1, 1e-3);

    const ToolResult none =
        run({"infill", "thin.stl", "-o", "none.stl", "--skin", "2", "--density", "0.2"});
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.err, HasSubstr("nothing is written"));
    EXPECT_FALSE(std::filesystem::exists(path("none.stl")));
    // Known from the size of the voxels: filling a quarter of a billion of them would take minutes.
    write_stl_file("hall.stl", shapes::box({0, 0, 0}, {790, 790, 400}));
    const ToolResult coarse =
        run({"infill", "hall.stl", "-o", "none.stl", "--skin", "1.2", "--density", "0.3"});
    EXPECT_EQ(coarse.status, 1);
    EXPECT_THAT(coarse.err, HasSubstr("too thin for the cubes"));
    for (const char* density : {"-0.1", "1.5", "x"}) {
        EXPECT_EQ(run({"infill", "cube.stl", "-o", "none.stl", "--skin", "2", "--density", density})
                      .status,
                  2);
    }
}

TEST_F(Design, StrengthNamesTheNeckAndColoursIt) {
    const json fem = done({"strength", "dumbbell.stl", "-o", "out.obj", "--render", "out.png"});
    ASSERT_FALSE(fem["weakest"].empty());
    const double z = fem["weakest"][0]["place"][2];
    EXPECT_TRUE(z > 10 && z < 30) << z;
    EXPECT_EQ(fem["weakest"][0]["share"], 1.0);
    EXPECT_GT(fem["steps"], 0);
    EXPECT_EQ(fem["scale"][3]["colour"], "red");
    EXPECT_LT(fem["scale"][3]["share"], 1.0);
    EXPECT_EQ(read("out.png").substr(1, 3), "PNG");
    // The scale begins with a light blue.
    EXPECT_THAT(read("out.obj"), HasSubstr(" 0.39"));
    const json sections =
        done({"strength", "dumbbell.stl", "-o", "out.obj", "--method", "sections"});
    EXPECT_GT(sections["sections"], 0);
    EXPECT_EQ(run({"strength", "dumbbell.stl", "-o", "out.stl"}).status, 2);
    // Bodies that nothing holds, and loads that nothing carries, are told.
    shapes::SoupVector two = shapes::box({0, 0, 0}, {20, 20, 20});
    shapes::append(two, shapes::box({40, 0, 5}, {60, 20, 25}));
    write_stl_file("two.stl", two);
    const auto loose = run({"strength", "two.stl", "-o", "two.obj"});
    EXPECT_EQ(loose.status, 1);
    EXPECT_THAT(loose.err, HasSubstr("1 body"));
    EXPECT_TRUE(std::filesystem::exists(path("two.obj")));
    const auto none = run({"strength", "two.stl", "-o", "none.obj", "--load", "centre"});
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.err, HasSubstr("nothing carries the load"));
    EXPECT_FALSE(std::filesystem::exists(path("none.obj")));
    EXPECT_EQ(run({"strength", "dumbbell.stl", "-o", "out.obj", "--load", "side"}).status, 2);
}

// Nothing tells others that the cavity lies inside: they take it for a body turned inside out.
TEST_F(Design, HollowDoubtsACavityInAnOpenModel) {
    shapes::SoupVector ball = shapes::sphere(10, 4);
    write_stl_file("closed.stl", ball);
    EXPECT_EQ(run({"hollow", "closed.stl", "--thickness", "2", "-o", "out.stl"}).status, 0);
    ball.resize(ball.size() - 9);
    write_stl_file("open.stl", ball);
    const std::vector<std::string> args = {"hollow", "open.stl", "--thickness", "2",
                                           "-o",     "out.stl",  "--wall",      "voxel"};
    const auto told = run(args);
    EXPECT_EQ(told.status, 1);
    EXPECT_THAT(told.err, HasSubstr("open around 1 of 1 cavity"));
    const auto exact = run({"hollow", "open.stl", "--thickness", "2", "-o", "exact.stl"});
    EXPECT_EQ(exact.status, 1);
    EXPECT_THAT(exact.err, HasSubstr("holes; repair it first"));
}

}  // namespace
}  // namespace povmesh
