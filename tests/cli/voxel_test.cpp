// Voxelising, hollowing and sections, as users of the tool meet them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
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

class Voxels : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        write_stl_file("cube.stl", shapes::box({0, 0, 0}, {20, 20, 20}));
        write_stl_file("thin.stl", shapes::box({0, 0, 0}, {20, 20, 2}));
    }

    json done(std::vector<std::string> arguments, int status = 0) const {
        arguments.emplace_back("--json");
        const ToolResult result = run(arguments);
        EXPECT_EQ(result.status, status) << result.err;
        return json::parse(result.out);
    }
};

TEST_F(Voxels, HollowWritesTheModelWithItsCavity) {
    struct Kind {
        const char* wall;
        double volume_within, wall_within;
    };
    for (const Kind& kind : {Kind{"exact", 1, 0.003}, Kind{"voxel", 300, 0.6}}) {
        std::vector<std::string> hollow = {"hollow",      "cube.stl", "-o",     "out.stl",
                                           "--thickness", "3",        "--wall", kind.wall};
        const json object = done(hollow);
        EXPECT_NEAR(object["cavity_volume"], 14 * 14 * 14, kind.volume_within);
        EXPECT_NEAR(object["smallest_wall"], 3, kind.wall_within);
        EXPECT_NEAR(object["after"]["volume"], 8000 - double{object["cavity_volume"]}, 1);
        EXPECT_NEAR(object["saved_percent"], double{object["cavity_volume"]} / 80, 0.01);
        const json checked = json::parse(run({"check", "out.stl", "--json"}).out)[0];
        EXPECT_EQ(checked["verdict"], "clean");
        hollow[3] = "out.obj";
        hollow.emplace_back("--cavity-only");
        const json cavity = done(hollow);
        EXPECT_EQ(cavity["after"]["volume"], cavity["cavity_volume"]);
    }
}

TEST_F(Voxels, HollowSaysWhenNothingIsLeftAndWritesNothing) {
    for (const char* wall : {"exact", "voxel"}) {
        for (const char* thickness : {"1.5", "0", "1e30", "1e-30"}) {
            const json object = done(
                {"hollow", "thin.stl", "-o", "out.stl", "--thickness", thickness, "--wall", wall},
                1);
            EXPECT_THAT(std::string(object["error"]), HasSubstr("nothing can be hollowed"))
                << thickness;
            EXPECT_FALSE(std::filesystem::exists(path("out.stl")));
        }
    }
    EXPECT_EQ(run({"hollow", "thin.stl", "-o", "out.stl", "--thickness", "-1"}).status, 2);
    EXPECT_EQ(run({"hollow", "thin.stl", "-o", "out.stl"}).status, 2);
}

TEST_F(Voxels, VolumesOfFacesTurnedAtRandomAreNotTrusted) {
    shapes::SoupVector soup = shapes::box({0, 0, 0}, {20, 20, 20});
    std::swap_ranges(soup.begin() + 9, soup.begin() + 12, soup.begin() + 12);
    write_stl_file("turned.stl", soup);
    for (std::vector<std::string> command : {std::vector<std::string>{"hollow", "--thickness", "3"},
                                             {"infill", "--skin", "2", "--density", "0.3"},
                                             {"lampshade", "--thickness", "2"},
                                             {"balance", "--thickness", "3"}}) {
        command.insert(command.end(), {"turned.stl", "-o", "out.stl"});
        EXPECT_THAT(done(command, 1)["warnings"].dump(), HasSubstr("'povmesh repair' turns"))
            << command[0];
    }
    done({"balance", "--check", "turned.stl"}, 1);
}

TEST_F(Voxels, MessagesNameTheWrongCure) {
    write_stl_file("metres.stl", shapes::box({0, 0, 0}, {0.05F, 0.04F, 0.03F}));
    shapes::SoupVector open = shapes::box({0, 0, 0}, {20, 20, 20});
    open.resize(open.size() - 18);
    write_stl_file("open.stl", open);
    struct Case {
        const char* wall;
        const char* file;
        const char* thickness;
        const char* cure;
    };
    for (const Case& test :
         {Case{"voxel", "thin.stl", "0.2", "take at least 0.5"},
          Case{"voxel", "thin.stl", "1.5", "thinner wall"},
          Case{"voxel", "metres.stl", "0.002", "scale it to millimetres"},
          Case{"voxel", "metres.stl", "2", "scale it to millimetres"},
          Case{"voxel", "open.stl", "2", "repair it"}, Case{"exact", "open.stl", "2", "repair it"},
          Case{"exact", "thin.stl", "1.5", "thinner wall"},
          Case{"exact", "thin.stl", "0.001", "take at least 0.0"},
          Case{"exact", "metres.stl", "2", "scale it to millimetres"}}) {
        const json object = done({"hollow", test.file, "-o", "out.stl", "--thickness",
                                  test.thickness, "--wall", test.wall},
                                 1);
        EXPECT_THAT(std::string(object["error"]), HasSubstr(test.cure)) << test.file;
    }
    // Exact walls do not care for the unit.
    done({"hollow", "metres.stl", "-o", "out.stl", "--thickness", "0.002"});
    const json sheet = done({"voxelize", "open.stl", "-o", "out.stl", "--size", "0.5"});
    ASSERT_EQ(sheet["warnings"].size(), 1U);
    EXPECT_THAT(std::string(sheet["warnings"][0]), HasSubstr("only its surface"));
}

TEST_F(Voxels, CavitiesWithoutADrainAreNotTold) {
    shapes::SoupVector two = shapes::box({0, 0, 0}, {20, 20, 20});
    shapes::append(two, shapes::box({30, 0, 0}, {50, 20, 20}));
    write_stl_file("two.stl", two);
    const json object =
        done({"hollow", "two.stl", "-o", "out.stl", "--thickness", "3", "--drain", "10,10,0,2"});
    EXPECT_EQ(object["closed_cavities"], 1);
    ASSERT_EQ(object["warnings"].size(), 1U);
    EXPECT_THAT(std::string(object["warnings"][0]), HasSubstr("1 of 2 cavities"));
}

TEST_F(Voxels, HollowCutsDrainsOrSaysWhyNot) {
    const std::vector<std::string> hollow = {"hollow",  "cube.stl",    "-o",
                                             "out.stl", "--thickness", "3"};
    const auto with = [&](std::vector<std::string> more) {
        more.insert(more.begin(), hollow.begin(), hollow.end());
        return more;
    };
    const json plain = done(hollow);
    std::filesystem::remove(path("out.stl"));
    struct Case {
        const char* drain;
        int status;
        const char* text;
    };
    for (const Case& test :
         {Case{"10,10,-9,1", 1, "nearest point of it has x 10, y 10, z 0"},
          Case{"10,10,0,0", 2, "radius above 0"}, Case{"10,10,0", 2, "four numbers"}}) {
        const ToolResult result = run(with({"--drain", "10,10,0,1", "--drain", test.drain}));
        EXPECT_EQ(result.status, test.status) << test.drain;
        EXPECT_THAT(result.err, HasSubstr(test.text));
        EXPECT_FALSE(std::filesystem::exists(path("out.stl")));
    }
    EXPECT_EQ(run(with({"--drain", "10,10,0,1", "--cavity-only"})).status, 2);
    // Below a place near the edge there is wall only; one that does is told.
    const std::string wrong = run(with({"--drain", "2,10,0,0.5"})).err;
    const std::string cure = "take one over the cavity, such as one near (";
    ASSERT_THAT(wrong, HasSubstr(cure));
    std::string place = wrong.substr(wrong.find(cure) + cure.size());
    place.resize(place.find(')'));
    std::erase(place, ' ');
    EXPECT_EQ(run(with({"--drain", place + ",0.5"})).status, 0);
    const json drained = done(with({"--drain", "10,10,0,1", "--drain", "0,10,10,2"}));
    EXPECT_EQ(drained["drains"], 2);
    const double taken = double{plain["after"]["volume"]} - double{drained["after"]["volume"]};
    EXPECT_NEAR(taken, 3.14 * (1 + 4) * 3, 8);
    const json checked = json::parse(run({"check", "out.stl", "--json"}).out)[0];
    EXPECT_EQ(checked["verdict"], "clean");
    EXPECT_EQ(checked["shells"], 1);
}

TEST_F(Voxels, VoxelizeFillsTheModel) {
    const json object = done({"voxelize", "cube.stl", "-o", "out.stl", "--size", "2"});
    EXPECT_EQ(object["voxels"], 11 * 11 * 11);
    EXPECT_NEAR(object["after"]["volume"], 22 * 22 * 22, 1e-6);
    EXPECT_EQ(object["after"]["triangles"], 12 * 11 * 11);
    EXPECT_THAT(run({"voxelize", "thin.stl", "-o", "out.stl", "--size", "0.001"}).out,
                HasSubstr("raised from 0.001"));
    EXPECT_EQ(run({"voxelize", "cube.stl", "-o", "none.stl", "--size", "0"}).status, 2);
    EXPECT_FALSE(std::filesystem::exists(path("none.stl")));
}

TEST_F(Voxels, SectionsAreDrawnWhereAskedFor) {
    const auto draw = [&](const std::string& section) {
        return run({"render", "cube.stl", "-o", "cut.png", "--section", section}).status;
    };
    for (const char* section : {"x", "y=5", "z=-100"}) EXPECT_EQ(draw(section), 0) << section;
    for (const char* section : {"", "w", "x=", "xy", "y=1e", "z=nan"}) {
        EXPECT_EQ(draw(section), 2) << section;
    }
}

}  // namespace
}  // namespace povmesh
