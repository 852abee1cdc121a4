// Orientation, as users of the tool meet it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>

#include "helpers/shapes.h"
#include "tool_runner.h"

namespace povmesh {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class Orient : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        // Stands on its foot; needs no support on its head.
        tee_ = shapes::box({-2, -2, 5}, {2, 2, 25});
        shapes::append(tee_, shapes::box({-12, -10, 25}, {8, 10, 29}));
        write_stl_file("tee.stl", tee_);
        write_stl_file("cube.stl", shapes::box({1, 2, 3}, {21, 22, 23}));
    }

    shapes::SoupVector tee_;
};

TEST_F(Orient, WritesTheModelStoodUpOnThePlate) {
    const ToolResult result =
        run({"orient", "tee.stl", "-o", "out.stl", "--preview", "out.png", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    const json told = json::parse(result.out);
    EXPECT_GT(told["as_is"]["support_volume"], 5000);
    ASSERT_EQ(told["orientations"].size(), 1U);
    EXPECT_EQ(told["orientations"][0]["up"], json({0.0, 0.0, -1.0}));
    EXPECT_EQ(told["orientations"][0]["support_volume"], 0.0);
    EXPECT_EQ(read("out.png").substr(1, 3), "PNG");
    const json box = json::parse(run({"check", "out.stl", "--json"}).out)[0]["box"];
    EXPECT_EQ(box, json({{"low", {-12.0, -10.0, 0.0}}, {"high", {8.0, 10.0, 24.0}}}));
    const json again = json::parse(run({"orient", "out.stl", "--json"}).out);
    EXPECT_NEAR(again["as_is"]["contact_area"], 400, 1e-3);
    EXPECT_EQ(again["orientations"].size(), 5U);
    EXPECT_THAT(again["warnings"][0], HasSubstr("best as it is"));
}

TEST_F(Orient, WritesTheRowChosenAndKeepsAttributes) {
    const ToolResult result = run({"orient", "tee.stl", "-o", "out.obj", "--choose", "3", "--list",
                                   "2", "--up", "0,9,0", "--json"});
    const json told = json::parse(result.out);
    ASSERT_EQ(told["orientations"].size(), 3U) << "the row that is written is told";
    EXPECT_EQ(told["asked"]["up"], json({0.0, 1.0, 0.0}));
    EXPECT_NEAR(told["asked"]["height"], 20, 1e-6);
    const json back = json::parse(run({"orient", "out.obj", "--json"}).out)["as_is"];
    EXPECT_NEAR(back["height"], told["orientations"][2]["height"], 1e-4);
    EXPECT_NEAR(back["score"], told["orientations"][2]["score"], 0.02);

    write("paint.obj",
          "v 0 0 0 1 0 0\nv 4 0 0 0 1 0\nv 0 3 0 0 0 1\nv 0 0 2 1 1 0\n"
          "vt 0.25 0.125\nvt 0.5 0.75\nvt 0 1\nusemtl a\n"
          "f 1/1 3/2 2/3\nf 1/1 2/2 4/3\nusemtl b\nf 2/1 3/2 4/3\nf 1/1 4/2 3/3\n");
    ASSERT_EQ(run({"orient", "paint.obj", "-o", "painted.obj", "--choose", "2"}).status, 0);
    const std::string painted = read("painted.obj");
    for (const char* kept : {" 1.00000 0.00000 0.00000\n", " 0.00000 1.00000 0.00000\n",
                             " 1.00000 1.00000 0.00000\n", "vt 0.25 0.125", "usemtl 1"}) {
        EXPECT_THAT(painted, HasSubstr(kept));
    }
}

TEST_F(Orient, TellsAPersonWhatToKnow) {
    const ToolResult cube = run({"orient", "cube.stl", "--list", "2"});
    EXPECT_EQ(cube.status, 0);
    EXPECT_THAT(cube.err, HasSubstr("best as it is"));
    EXPECT_THAT(cube.out, HasSubstr("\n  as it is  0,0,1 "));
    EXPECT_THAT(cube.out, HasSubstr("\n  2 "));
    EXPECT_THAT(cube.out, testing::Not(HasSubstr("\n  3 ")));
    write_stl_file("open.stl", std::span(tee_).subspan(9));
    EXPECT_THAT(run({"orient", "open.stl"}).err, HasSubstr("the model is open"));
    EXPECT_EQ(run({"orient", "open.stl", "--quiet"}).err, "");
    const ToolResult turned = run({"orient", "open.stl", "-o", "turned.stl", "--choose", "4"});
    EXPECT_EQ(turned.status, 0) << turned.err << "it has no volume that could be compared";
}

TEST_F(Orient, RefusesWhatItCannotDoAndWritesNothing) {
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--choose", "2"},
                                                  {"--list", "0"},
                                                  {"--list", "65"},
                                                  {"--list", "2.5"},
                                                  {"--up", "0,0,0"},
                                                  {"--up", "0,0"},
                                                  {"--preview", "out.jpg"},
                                                  {"-o", "out.xyz"}}) {
        std::vector<std::string> line = {"orient", "tee.stl"};
        line.insert(line.end(), wrong.begin(), wrong.end());
        EXPECT_EQ(run(line).status, 2) << wrong[0] << " " << wrong[1];
    }
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const shapes::SoupVector& soup :
         {shapes::SoupVector{0, 0, 0, 1, 1, 1, 2, 2, 2}, {0, 0, 0, 1, 0, 0, nan, 1, 0}}) {
        write_stl_file("flat.stl", soup);
        const ToolResult flat =
            run({"orient", "flat.stl", "-o", "out.stl", "--preview", "out.png"});
        EXPECT_EQ(flat.status, 1);
        EXPECT_THAT(flat.err, HasSubstr("no triangle has an area"));
    }
    EXPECT_EQ(run({"orient", "tee.stl", "-o", "no/out.stl"}).status, 6);
    EXPECT_EQ(run({"orient", "tee.stl", "--preview", "no/out.png"}).status, 6);
    EXPECT_EQ(run({"orient", "missing.stl"}).status, 3);
    EXPECT_FALSE(std::filesystem::exists(path("out.stl")));
    EXPECT_FALSE(std::filesystem::exists(path("out.png")));
}

}  // namespace
}  // namespace povmesh
