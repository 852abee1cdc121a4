// Thin walls, as users of the tool meet them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "helpers/shapes.h"
#include "tool_runner.h"

namespace povmesh {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class ThicknessTool : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        write_stl_file("plate.stl", shapes::box({0, 0, 0}, {20, 20, 1}));
        shapes::SoupVector two = shapes::box({0, 0, 0}, {10, 10, 5});
        shapes::append(two, shapes::box({0, 0, 5.25F}, {10, 10, 10}));
        write_stl_file("two.stl", two);
        shapes::SoupVector open = shapes::box({0, 0, 0}, {20, 20, 1});
        open.resize(open.size() - 9);
        write_stl_file("open.stl", open);
    }
};

TEST_F(ThicknessTool, TellsPlacesAsTextAndAsNumbers) {
    const ToolResult thin = run({"thickness", "--wall", "1.5", "plate.stl"});
    EXPECT_EQ(thin.status, 1);
    EXPECT_THAT(thin.out, HasSubstr("1 place thinner than 1.5, 90.9 % of the surface, area 800"));
    EXPECT_THAT(thin.out, HasSubstr("size 20 x 20 x 1"));
    const ToolResult thick = run({"thickness", "--wall", "0.9", "--json", "plate.stl"});
    EXPECT_EQ(thick.status, 0);
    const json told = json::parse(thick.out);
    EXPECT_EQ(told["wall"]["count"], 0);
    EXPECT_EQ(told["wall"]["smallest"], 1);
    EXPECT_EQ(told["gap"], nullptr);
    const ToolResult gap = run({"thickness", "--wall", "1", "--gap", "0.3", "--json", "two.stl"});
    EXPECT_EQ(gap.status, 1);
    const json both = json::parse(gap.out);
    EXPECT_EQ(both["wall"]["smallest"], nullptr);
    EXPECT_EQ(both["gap"]["smallest"], 0.25);
    EXPECT_EQ(both["gap"]["places"][0]["size"], json({10, 10, 0.25}));
    EXPECT_EQ(json::parse(run({"thickness", "--wall", "1", "--gap", "0.3", "--list", "0", "--json",
                               "two.stl"})
                              .out)["gap"]["places"],
              json::array());
}

TEST_F(ThicknessTool, WritesAColouredModelAndAPictureOrSaysWhyNot) {
    const ToolResult done = run({"thickness", "--wall", "3", "--gap", "1", "-o", "map.obj",
                                 "--preview", "map.png", "plate.stl"});
    EXPECT_EQ(done.status, 1) << done.err;
    EXPECT_EQ(read("map.png").substr(1, 3), "PNG");
    // Coloured, and still the same closed plate.
    const json checked = json::parse(run({"check", "--json", "map.obj"}).out);
    EXPECT_EQ(checked[0]["verdict"], "clean");
    EXPECT_EQ(checked[0]["volume"], 400);
    EXPECT_THAT(read("map.obj"), HasSubstr(" 0.8"));  // red
    struct Bad {
        std::vector<std::string> arguments;
        int status;
        const char* text;
    };
    for (const Bad& bad :
         {Bad{{"--wall", "0"}, 2, "above 0"}, Bad{{"--wall", "nan"}, 2, "'nan'"},
          Bad{{"--wall", "1", "--gap", "0"}, 2, "--gap"},
          Bad{{"--wall", "1", "-o", "x.stl"}, 2, ".obj"},
          Bad{{"--wall", "1", "--preview", "x.jpg"}, 2, ".png"},
          Bad{{"--wall", "1", "-o", "none/x.obj"}, 6, "none/x.obj"}, Bad{{}, 2, "--wall"}}) {
        std::vector<std::string> arguments = {"thickness", "plate.stl"};
        arguments.insert(arguments.end(), bad.arguments.begin(), bad.arguments.end());
        const ToolResult result = run(arguments);
        EXPECT_EQ(result.status, bad.status) << result.out;
        EXPECT_THAT(result.err, HasSubstr(bad.text));
    }
}

TEST_F(ThicknessTool, CheckAddsThinWallsToTheVerdict) {
    const ToolResult thin = run({"check", "--min-wall", "2", "plate.stl"});
    EXPECT_EQ(thin.status, 1);
    EXPECT_THAT(thin.out, HasSubstr("flaws: 1 place thinner than 2"));
    const ToolResult thick = run({"check", "--min-wall", "0.5", "--json", "plate.stl"});
    EXPECT_EQ(thick.status, 0);
    EXPECT_EQ(json::parse(thick.out)[0]["wall"]["count"], 0);
    // A model with holes is closed for it.
    const ToolResult open = run({"check", "--min-wall", "2", "open.stl"});
    EXPECT_EQ(open.status, 1);
    EXPECT_THAT(open.out, HasSubstr("flaws: 3 open edges, 1 place thinner than 2"));
    EXPECT_THAT(open.out, HasSubstr("the solid that 'povmesh wrap' makes of it"));
    const json wrapped =
        json::parse(run({"thickness", "--wall", "2", "--json", "open.stl"}).out)["wall"];
    EXPECT_GT(wrapped["smallest"], 0.5);
    EXPECT_NEAR(wrapped["area"], 800, 40);
    EXPECT_EQ(run({"check", "--min-wall", "0", "plate.stl"}).status, 2);
}

}  // namespace
}  // namespace povmesh
