// Balancing, as users of the tool meet it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "helpers/shapes.h"
#include "tool_runner.h"

namespace povmesh {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class Balance : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        write_stl_file("leaning.stl", leaning(17));
        write_stl_file("falling.stl", leaning(19));
        write_stl_file("cube.stl", shapes::box({0, 0, 0}, {20, 20, 20}));
    }

    // Upright on a square of 16, its top of 50 moved along x.
    static shapes::SoupVector leaning(float by) {
        shapes::SoupVector soup = shapes::box({-8, -8, 0}, {8, 8, 50});
        for (std::size_t i = 0; i < soup.size(); i += 3) soup[i] += by * soup[i + 2] / 50;
        return soup;
    }

    json told(std::vector<std::string> arguments, int status) const {
        arguments.insert(arguments.begin(), "balance");
        arguments.emplace_back("--json");
        const ToolResult result = run(arguments);
        EXPECT_EQ(result.status, status) << result.err;
        return json::parse(result.out);
    }
    json checked(const std::string& file) const {
        return json::parse(run({"check", file, "--json"}).out)[0];
    }
};

TEST_F(Balance, CarvesWhatFallsAndTellsHowItStands) {
    const json plain =
        told({"falling.stl", "-o", "out.stl", "--thickness", "1.2", "--preview", "out.png"}, 0);
    // The centre of mass is at 9.5, that of the base's border at 8 and half a thousandth of the
    // diagonal.
    EXPECT_NEAR(plain["before"]["tilt"], std::atan(-1.48 / 25) * 57.29578, 0.1);
    EXPECT_GT(plain["after"]["tilt"], 1.0);
    EXPECT_EQ(read("out.png").substr(1, 3), "PNG");
    EXPECT_THAT(plain["warnings"][0], HasSubstr("no drain hole leads into 1 of 1 cavity"));
    EXPECT_EQ(checked("out.stl")["verdict"], "clean");
    // What was written stands as told.
    const json again = told({"--check", "out.stl", "--angle", "1"}, 0);
    EXPECT_NEAR(again["tilt"], plain["after"]["tilt"], 1e-3);
    // Less is taken off where less is in it.
    const json filled =
        told({"falling.stl", "-o", "out.stl", "--thickness", "1.2", "--infill", "60"}, 0);
    EXPECT_LT(filled["after"]["tilt"], plain["after"]["tilt"]);
    const json drained =
        told({"leaning.stl", "-o", "out.stl", "--thickness", "2", "--drain", "25,0,45,2"}, 0);
    EXPECT_EQ(drained["closed_cavities"], 0);
    EXPECT_EQ(checked("out.stl")["verdict"], "clean");
    EXPECT_EQ(
        told({"leaning.stl", "-o", "no.stl", "--thickness", "2", "--drain", "0,0,90,2"}, 1)["error"]
            .get<std::string>()
            .find("leaning.stl: no drain at 0,0,90,2"),
        0U);
    EXPECT_FALSE(std::filesystem::exists(path("no.stl")));
}

TEST_F(Balance, LeavesWhatStandsAndSaysWhatWouldHelpTheRest) {
    const ToolResult firm = run({"balance", "cube.stl", "-o", "out.stl", "--thickness", "1"});
    EXPECT_EQ(firm.status, 0);
    EXPECT_THAT(firm.out, HasSubstr("it stands firmly already (45 degrees)"));
    EXPECT_EQ(checked("out.stl")["triangles"], 12);

    const ToolResult falls =
        run({"balance", "falling.stl", "-o", "none.stl", "--thickness", "4", "--preview", "p.png"});
    EXPECT_EQ(falls.status, 1);
    EXPECT_THAT(falls.err,
                HasSubstr("outside its base towards x 1, y 0; take a thinner wall (1.6 "));
    EXPECT_THAT(falls.err, HasSubstr("a wider base, or 'povmesh orient'; nothing is written"));
    EXPECT_FALSE(std::filesystem::exists(path("none.stl")));
    EXPECT_TRUE(std::filesystem::exists(path("p.png")));
    const ToolResult solid = run({"balance", "falling.stl", "-o", "none.stl", "--thickness", "30"});
    EXPECT_THAT(solid.err, HasSubstr("a wall of 30 leaves nothing to carve"));

    write_stl_file("turned.stl", shapes::turned(shapes::box({0, 0, 0}, {9, 9, 9})));
    EXPECT_THAT(std::string(told({"turned.stl", "-o", "none.stl", "--thickness", "1"}, 1)["error"]),
                HasSubstr("inside out; repair it first"));
    shapes::SoupVector two = leaning(17);
    shapes::append(two, shapes::box({-8, 40, 0}, {8, 44, 4}));
    write_stl_file("two.stl", two);
    EXPECT_THAT(std::string(told({"two.stl", "--check"}, 1)["warnings"][0]),
                HasSubstr("2 bodies do not touch"));
    const json reach = told({"falling.stl", "--check", "--thickness", "1.2"}, 1);
    EXPECT_EQ(reach["carving_helps"], true);
    EXPECT_GT(reach["tilt_carved"], 1.0);

    const std::vector<std::vector<std::string>> wrong = {
        {"cube.stl", "--thickness", "1"},
        {"cube.stl", "-o", "out.stl"},
        {"cube.stl", "--check", "-o", "out.stl"},
        {"cube.stl", "--check", "--infill", "20"},
        {"cube.stl", "-o", "out.stl", "--thickness", "1", "--infill", "0"},
        {"cube.stl", "-o", "out.stl", "--thickness", "1", "--preview", "p.jpg"},
        {"cube.stl", "-o", "out.txt", "--thickness", "1"}};
    for (std::vector<std::string> arguments : wrong) {
        arguments.insert(arguments.begin(), "balance");
        EXPECT_EQ(run(arguments).status, 2) << arguments[2];
    }
}

}  // namespace
}  // namespace povmesh
