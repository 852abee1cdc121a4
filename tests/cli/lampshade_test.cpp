// Lampshades, as users of the tool meet them.
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

class Lampshade : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        write_stl_file("box.stl", shapes::box({0, 0, 0}, {20, 20, 30}));
        shapes::SoupVector two = shapes::box({0, 0, 0}, {20, 20, 30});
        shapes::append(two, shapes::box({30, 0, 0}, {33, 20, 30}));
        write_stl_file("two.stl", two);
        write_stl_file("ball.stl", shapes::sphere(10, 3));
    }
    ToolResult shade(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"lampshade", "--thickness", "2"});
        return run(arguments);
    }
};

TEST_F(Lampshade, TellsOtherOpeningsThanTheResultHas) {
    const ToolResult made =
        shade({"box.stl", "-o", "out.stl", "--json", "--preview", "out.png", "--top", "25"});
    EXPECT_EQ(made.status, 0) << made.err;
    const json told = json::parse(made.out);
    EXPECT_NEAR(told["shades"][0]["bottom"]["area"], 256, 0.1);
    EXPECT_NEAR(told["shades"][0]["bottom"]["circle"]["diameter"], 16, 0.02);
    EXPECT_EQ(told["shades"][0]["top"]["level"], 25);
    EXPECT_NEAR(told["cut_above"], 5, 1e-6);
    EXPECT_NEAR(told["after"]["volume"], (400 - 256) * 25, 1);
    EXPECT_NEAR(told["mean_wall"], 2, 0.01);
    EXPECT_GE(told["smallest_wall"], 1.94);
    EXPECT_TRUE(told["warnings"].empty()) << told["warnings"];
    EXPECT_EQ(read("out.png").substr(1, 3), "PNG");
    EXPECT_EQ(json::parse(run({"check", "out.stl", "--json"}).out)[0]["verdict"], "clean");
    const ToolResult table = shade({"box.stl", "-o", "out.stl"});
    EXPECT_THAT(table.out, HasSubstr("opening below  area 256, largest circle of diameter 16"));
    EXPECT_THAT(table.out, HasSubstr("cut off        nothing"));
    EXPECT_THAT(shade({"two.stl", "-o", "out.stl"}).err,
                HasSubstr("1 model of 2 is too thin for the wall, or open, and stays solid"));
}

TEST_F(Lampshade, WritesWhatItCannotMake) {
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char* text;
    } rows[] = {
        {{"box.stl", "--thickness", "10"}, 1, "the model is too thin: a wall of 10 leaves nothing"},
        {{"box.stl", "--thickness", "0.001"}, 1, "take at least"},
        {{"box.stl", "--thickness", "0"}, 2, "--thickness must be above 0"},
        {{"box.stl", "--thickness", "2", "--bottom", "40"}, 1, "levels go from 0 to 30"},
        {{"box.stl", "--thickness", "2", "--bottom", "9", "--top", "8"}, 2, "higher than --bottom"},
        {{"ball.stl", "--thickness", "2", "--top", "-9"}, 1, "nowhere wide enough"},
        {{"box.stl", "--thickness", "2", "--top", "ajar"}, 2, "not 'ajar'"},
        {{"box.stl", "--thickness", "2", "--preview", "a.jpg"}, 2, "only PNG can be drawn"},
    };
    for (const auto& row : rows) {
        std::vector<std::string> arguments = {"lampshade", "-o", "no.stl"};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        const ToolResult result = run(arguments);
        EXPECT_EQ(result.status, row.status) << row.text;
        EXPECT_THAT(result.err, HasSubstr(row.text));
        EXPECT_EQ(read("no.stl"), "") << row.text;
    }
}

}  // namespace
}  // namespace povmesh
