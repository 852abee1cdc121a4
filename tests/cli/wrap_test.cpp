// Wraps, offsets and solid repair, as users of the tool meet them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "helpers/shapes.h"
#include "tool_runner.h"

namespace povmesh {
namespace {

using nlohmann::json;
using shapes::SoupVector;
using testing::HasSubstr;

class Wraps : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        SoupVector crossing = shapes::box({0, 0, 0}, {20, 20, 20});
        shapes::append(crossing, shapes::box({10, 10, 10}, {30, 30, 30}));
        write_stl_file("crossing.stl", crossing);
        SoupVector apart = crossing;
        shapes::append(apart, shapes::box({40, 0, 0}, {50, 10, 10}));
        write_stl_file("apart.stl", apart);
        // A box without its bottom and its lid.
        const SoupVector box = shapes::box({0, 0, 0}, {20, 20, 20});
        SoupVector tube;
        for (std::size_t t = 0; t < box.size(); t += 9) {
            if (box[t + 2] == box[t + 5] && box[t + 5] == box[t + 8]) continue;
            tube.insert(tube.end(), &box[t], &box[t] + 9);
        }
        write_stl_file("tube.stl", tube);
        write_stl_file("line.stl", SoupVector{0, 0, 0, 1, 1, 1, 2, 2, 2});
    }

    json done(std::vector<std::string> arguments, int status = 0) const {
        arguments.emplace_back("--json");
        const ToolResult result = run(arguments);
        EXPECT_EQ(result.status, status) << result.err;
        return json::parse(result.out);
    }

    json checked(const std::string& file) const {
        return json::parse(run({"check", file, "--json"}).out)[0];
    }
};

TEST_F(Wraps, WrapMakesASolidAndTellsTheDistances) {
    const json object = done({"wrap", "crossing.stl", "-o", "out.stl", "--tolerance", "1"});
    EXPECT_NEAR(object["after"]["volume"], 15000, 15);
    EXPECT_NEAR(object["buried"]["area"], 600, 30);
    EXPECT_LT(object["distance"]["to_model"], 0.1);
    EXPECT_EQ(checked("out.stl")["verdict"], "clean");
    EXPECT_EQ(object["warnings"].size(), 0);
}

TEST_F(Wraps, WrapCountsTheHolesThatItCloses) {
    const json object = done({"wrap", "tube.stl", "-o", "out.stl", "--tolerance", "1"});
    EXPECT_EQ(object["bridges"]["count"], 2);
    EXPECT_NEAR(object["bridges"]["area"], 2 * 400, 250);
    EXPECT_EQ(checked("out.stl")["verdict"], "clean");
}

TEST_F(Wraps, OffsetKeepsItsDistanceAndItsSign) {
    const std::vector<std::string> plain = {"offset",  "crossing.stl", "-o",
                                            "out.stl", "--cell",       "0.5"};
    auto grown = plain;
    grown.insert(grown.end(), {"--distance", "2", "--corners", "sharp"});
    EXPECT_NEAR(done(grown)["after"]["volume"], 2 * 24 * 24 * 24 - 14 * 14 * 14, 30);
    EXPECT_EQ(checked("out.stl")["verdict"], "clean");
    const json gone =
        done({"offset", "crossing.stl", "-o", "none.stl", "--cell", "0.5", "--distance", "-12"}, 1);
    EXPECT_THAT(std::string(gone["error"]), HasSubstr("nothing is left: the thickest place"));
    EXPECT_FALSE(std::filesystem::exists(path("none.stl")));
}

TEST_F(Wraps, SolidRepairWrapsOnlyTheFlawedBodies) {
    const json object = done({"repair", "--solid", "apart.stl", "-o", "out.stl"});
    EXPECT_EQ(object["done"]["bodies"], 2);
    EXPECT_EQ(object["done"]["wrapped_bodies"], 1);
    EXPECT_EQ(object["verdict"], "clean");
    EXPECT_NEAR(checked("out.stl")["volume"], 16000, 30);
}

// A fin of a face and its back on a cube is no side that two bodies share.
TEST_F(Wraps, PartsWithoutThicknessAreNotLostWithStatus0) {
    SoupVector model = shapes::box({0, 0, 0}, {20, 20, 20});
    SoupVector fin = {0, 0, 20, 20, 20, 20, 20, 20, 40};
    shapes::append(model, fin);
    shapes::append(model, shapes::turned(fin));
    write_stl_file("fin.stl", model);
    const json bare = done({"repair", "fin.stl", "-o", "out.stl"}, 1);
    EXPECT_THAT(bare["warnings"].dump(), HasSubstr("povmesh wrap"));
    done({"repair", "--solid", "fin.stl", "-o", "out.stl"});
    EXPECT_NEAR(checked("out.stl")["size"][2], 40, 0.5);
    SoupVector touching = shapes::box({0, 0, 0}, {20, 20, 20});
    shapes::append(touching, shapes::box({20, 0, 0}, {40, 20, 20}));
    write_stl_file("touching.stl", touching);
    done({"repair", "touching.stl", "-o", "out.stl"});
    // Growing keeps it, too, though the cells are too coarse for the solid of the flawed model.
    const json grown =
        done({"offset", "fin.stl", "-o", "out.stl", "--distance", "2", "--cell", "0.5"});
    EXPECT_NEAR(grown["after"]["size"][2], 44, 0.1);
}

TEST_F(Wraps, WrongNumbersAreRefused) {
    for (const char* tolerance : {"0", "-1", "nan", "1e999"}) {
        EXPECT_EQ(run({"wrap", "crossing.stl", "-o", "o.stl", "--tolerance", tolerance}).status, 2);
    }
    EXPECT_EQ(run({"offset", "crossing.stl", "-o", "o.stl", "--distance", "0"}).status, 2);
    EXPECT_EQ(run({"offset", "crossing.stl", "-o", "o.stl"}).status, 2);
    EXPECT_EQ(run({"offset", "crossing.stl", "-o", "o.stl", "--distance", "521"}).status, 2);
    EXPECT_EQ(run({"wrap", "crossing.stl", "-o", "o.stl", "--cell", "40"}).status, 2);
    const json fine = done({"wrap", "crossing.stl", "-o", "o.stl", "--cell", "0.0001"}, 1);
    EXPECT_THAT(std::string(fine["error"]), HasSubstr("; take "));
    EXPECT_THAT(std::string(done({"wrap", "line.stl", "-o", "o.stl"}, 1)["error"]),
                HasSubstr("no triangle has an area"));
    EXPECT_FALSE(std::filesystem::exists(path("o.stl")));
}

}  // namespace
}  // namespace povmesh
