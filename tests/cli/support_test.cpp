// Supports, as users of the tool meet them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "helpers/shapes.h"
#include "tool_runner.h"

namespace povmesh {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class Supports : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        // A table whose foot is at z = 5.
        shapes::SoupVector table = shapes::box({-2, -2, 5}, {2, 2, 26});
        shapes::append(table, shapes::box({-15, -15, 25}, {15, 15, 28}));
        write_stl_file("table.stl", table);
        write_stl_file("cube.stl", shapes::box({0, 0, 0}, {20, 20, 20}));
    }
};

TEST_F(Supports, AreWrittenAsMeshPolygonsAndPictures) {
    const ToolResult result = run({"support", "table.stl", "-o", "out.stl", "--layers", "out.json",
                                   "--svg", "layers", "--layer-height", "0.5", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    const json told = json::parse(result.out);
    const std::size_t columns = told["columns"];
    EXPECT_GT(columns, 60U);
    EXPECT_EQ(told["longest"], 20);
    EXPECT_NEAR(told["solid_support_volume"], (900 - 16) * 20, 900) << "a table on its foot";
    EXPECT_EQ(told["after"]["triangles"], 16 * columns);
    EXPECT_EQ(json::parse(run({"check", "out.stl", "--json"}).out)[0]["verdict"], "clean");
    const json layers = json::parse(read("out.json"))["layers"];
    ASSERT_EQ(layers.size(), 40U);
    EXPECT_EQ(layers[0]["z"], 5.25);
    EXPECT_EQ(layers[39]["polygons"].size(), columns);
    EXPECT_THAT(read("layers/table_040.svg"), HasSubstr("<svg"));
    EXPECT_FALSE(std::filesystem::exists(path("layers/table_041.svg")));
    const json both = json::parse(
        run({"support", "table.stl", "-o", "both.stl", "--with-model", "--plate", "0", "--json"})
            .out);
    EXPECT_EQ(both["longest"], 25);
    EXPECT_EQ(both["columns"], columns + 1) << "and one below the foot";
    EXPECT_EQ(both["after"]["triangles"], 16 * (columns + 1) + 24);
    EXPECT_EQ(run({"render", "table.stl", "--supports", "out.stl", "-o", "out.png"}).status, 0);
}

TEST_F(Supports, SayWhyThereAreNone) {
    const ToolResult none = run({"support", "cube.stl", "-o", "out.stl", "--layers", "out.json"});
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.err, HasSubstr("nothing hangs over"));
    for (const char* spacing : {"0", "0.4", "-3", "1e9", "x"}) {
        EXPECT_EQ(run({"support", "table.stl", "-o", "out.stl", "--spacing", spacing}).status, 2);
    }
    EXPECT_EQ(run({"support", "table.stl", "-o", "out.stl", "--layer-height", "0"}).status, 2);
    EXPECT_EQ(run({"support", "table.stl", "-o", "out.stl", "--layer-height", "1e-9", "--layers",
                   "out.json"})
                  .status,
              1);
    // Columns of 20 units are 10 million layers together: a gigabyte of text and more.
    const ToolResult large = run({"support", "table.stl", "-o", "out.stl", "--layer-height",
                                  "0.0001", "--layers", "out.json"});
    EXPECT_EQ(large.status, 1);
    EXPECT_THAT(large.err, HasSubstr("GB as text, more than 1"));
    EXPECT_FALSE(std::filesystem::exists(path("out.stl")));
    EXPECT_FALSE(std::filesystem::exists(path("out.json")));
    EXPECT_EQ(run({"support", "table.stl", "-o", "out.stl", "--layers", "missing/out.json"}).status,
              6);
}

}  // namespace
}  // namespace povmesh
