// Cutting models and drawing their pieces, as users of the tool meet it.
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

using Cut = ToolTest;

TEST_F(Cut, WritesThePiecesOfClosedModels) {
    shapes::SoupVector set = shapes::box({0, 0, 0}, {10, 10, 20});
    shapes::append(set, shapes::turned(shapes::box({2, 2, 2}, {8, 8, 18})));
    shapes::append(set, shapes::box({20, 0, 0}, {30, 10, 5}));
    write_stl_file("set.stl", set);
    const struct {
        std::vector<std::string> options;
        std::vector<double> volumes;
        int pegs;
    } cases[] = {
        {{}, {1000 - 288, 1000 - 288, 500}, 0},
        {{"--point", "0,0,1"}, {100, 2000 - 576 - 100, 100, 400}, 0},
        {{"--point", "25,0,0", "--normal", "-1,0,0"}, {2000 - 576, 250, 250}, 0},
        {{"--point", "0,0,4", "--mirror"}, {2 * (1600 - 36 * 14), 200}, 0},
    };
    for (const auto& c : cases) {
        std::vector<std::string> line = {"cut", "set.stl", "-o", "parts", "--json"};
        line.insert(line.end(), c.options.begin(), c.options.end());
        const ToolResult result = run(line);
        EXPECT_EQ(result.status, 0) << result.err;
        const json told = json::parse(result.out);
        ASSERT_EQ(told.at("pieces").size(), c.volumes.size()) << result.out;
        for (std::size_t i = 0; i < c.volumes.size(); ++i) {
            const json& piece = told.at("pieces")[i];
            EXPECT_NEAR(piece.at("volume").get<double>(), c.volumes[i], 1e-3);
            EXPECT_EQ(piece.at("closed"), true);
            EXPECT_EQ(run({"check", "-q", piece.at("file")}).status, 0);
        }
    }
    const ToolResult table = run({"cut", "set.stl", "-o", "parts", "--point", "0,0,1", "--pegs",
                                  "2", "--peg-radius", "0.2", "--format", "obj"});
    EXPECT_THAT(table.out, testing::StartsWith("set.stl: 4 pieces in parts, 4 pegs\n"));
    EXPECT_THAT(read("parts/set_004.obj"), HasSubstr("\nf "));
    const ToolResult tight =
        run({"cut", "set.stl", "-o", "parts", "--point", "0,0,1", "--pegs", "1"});
    EXPECT_THAT(tight.err, HasSubstr("only 1 of 2 pegs found room"));
    EXPECT_THAT(run({"cut", "set.stl", "-o", "parts", "--no-caps"}).out,
                HasSubstr("  no      10 x"));

    const ToolResult drawn = run({"render", "parts/set_001.stl", "parts/set_002.stl", "-o", "x.png",
                                  "--explode", "--size", "64x48"});
    EXPECT_EQ(drawn.status, 0) << drawn.err;
    EXPECT_NE(read("x.png"), "");
}

TEST_F(Cut, SaysWhatIsWrong) {
    write_stl_file("box.stl", shapes::box({0, 0, 0}, {10, 10, 20}));
    write("file", "in the way");
    const struct {
        std::vector<std::string> line;
        int status;
        const char* says;
    } cases[] = {
        {{"cut", "box.stl", "-o", "x", "--point", "0,0,20"}, 1, "misses the model; nothing"},
        {{"cut", "box.stl", "-o", "x", "--normal", "0,0,0"}, 2, "--normal must not be 0,0,0"},
        {{"cut", "box.stl", "-o", "x", "--normal", "0,1"}, 2, "'0,1' is not three numbers"},
        {{"cut", "box.stl", "-o", "x", "--point", "0,1,nan"}, 2, "'0,1,nan' is not three"},
        {{"cut", "box.stl", "-o", "x", "--pegs", "-1"}, 2, "'-1' is not a number of 0 to 256"},
        {{"cut", "box.stl", "-o", "x", "--pegs", "1", "--mirror"}, 2, "leave out --mirror"},
        {{"cut", "box.stl", "-o", "x", "--no-caps", "--mirror"}, 2, "leave out --no-caps"},
        {{"cut", "none.stl", "-o", "x"}, 3, "none.stl"},
        {{"cut", "box.stl", "-o", "file"}, 6, "file: cannot be made"},
        {{"render", "box.stl", "-o", "x.png", "--explode", "--flaws"}, 2, "neither --compare nor"},
        {{"render", "box.stl", "box.stl", "-o", "x.png", "--compare", "box.stl"},
         2,
         "give one FILE"},
    };
    for (const auto& c : cases) {
        const ToolResult result = run(c.line);
        EXPECT_EQ(result.status, c.status) << c.says;
        EXPECT_THAT(result.err, HasSubstr(c.says));
    }
    EXPECT_EQ(run({"check", "x/box_001.stl"}).status, 3);
}

TEST_F(Cut, DoesNotPassOffBadPiecesAsGood) {
    // A triangle without area, of which rounding would leave no triangle on either side.
    write_stl_file("line.stl", shapes::SoupVector{1, 2, 3, 4, 5, 6, 7, 8, 9});
    const ToolResult nothing = run({"cut", "line.stl", "-o", "lines"});
    EXPECT_EQ(nothing.status, 1);
    EXPECT_THAT(nothing.err, HasSubstr("nothing is written"));
    EXPECT_EQ(run({"check", "lines/line_001.stl"}).status, 3);
    // The caps of a body within a body lie on each other.
    shapes::SoupVector nested = shapes::box({0, 0, 0}, {10, 10, 20});
    shapes::append(nested, shapes::box({2, 2, 2}, {8, 8, 18}));
    write_stl_file("nested.stl", nested);
    const ToolResult crossed = run({"cut", "nested.stl", "-o", "parts"});
    EXPECT_EQ(crossed.status, 1);
    EXPECT_THAT(crossed.err, HasSubstr("of triangles at the cut cross, the first near ("));
    shapes::SoupVector open = shapes::box({0, 0, 0}, {10, 10, 20});
    open.resize(open.size() - 9);
    std::swap_ranges(open.begin(), open.begin() + 3, open.begin() + 3);
    write_stl_file("open.stl", open);
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"cut"}, {"decompose", "--size", "11"}}) {
        std::vector<std::string> line = command;
        line.insert(line.end(), {"open.stl", "-o", "parts"});
        const std::string told = run(line).err;
        EXPECT_THAT(told, HasSubstr("the model is open: a cut stays open"));
        EXPECT_THAT(told, HasSubstr("wound against each other"));
    }
    // A slit so narrow that its ends at the cut are needles.
    shapes::SoupVector slit = shapes::box({0, 0, 0}, {10, 10, 20});
    shapes::append(slit, shapes::turned(shapes::box({2, 5, 2}, {8, 5.001F, 18})));
    write_stl_file("slit.stl", slit);
    const std::string needles = run({"cut", "slit.stl", "-o", "parts"}).err;
    EXPECT_THAT(needles, HasSubstr("along the cut are needles, the first near ("));
    EXPECT_THAT(needles, HasSubstr(", 10);"));
}

TEST_F(Cut, DecomposeWritesPartsThatFitOrSaysWhichDoNot) {
    shapes::SoupVector set = shapes::box({0, 0, 0}, {30, 10, 10});
    shapes::append(set, shapes::box({50, 0, 0}, {60, 10, 10}));
    write_stl_file("set.stl", set);
    const ToolResult result =
        run({"decompose", "set.stl", "-o", "parts", "--size", "21", "--margin", "1", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    const json told = json::parse(result.out);
    ASSERT_EQ(told["parts"].size(), 3U);
    EXPECT_EQ(told["models"], 2);
    EXPECT_EQ(told["planes"][0]["normal"], json({1, 0, 0}));
    double sum = 0;
    for (const json& part : told["parts"]) {
        sum += part["volume"].get<double>();
        EXPECT_LE(part["size"][0].get<double>(), 20.001);
        EXPECT_EQ(run({"check", "-q", part["file"]}).status, 0);
    }
    EXPECT_NEAR(sum, 4000, 1e-2);
    EXPECT_THAT(run({"decompose", "set.stl", "-o", "even", "--size", "10,0,0", "--uniform"}).out,
                testing::StartsWith("set.stl: 4 parts in even, 2 cuts (4 at least)\n"));
    // A preview tells the same parts and writes nothing.
    const json preview = json::parse(
        run({"decompose", "set.stl", "--size", "21", "--margin", "1", "--preview", "--json"}).out);
    EXPECT_EQ(preview["planes"], told["planes"]);
    ASSERT_EQ(preview["parts"].size(), told["parts"].size());
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(preview["parts"][i]["box"], told["parts"][i]["box"]);
        EXPECT_EQ(preview["parts"][i]["volume"], told["parts"][i]["volume"]);
    }
    const ToolResult pegs = run({"decompose", "set.stl", "-o", "pegged", "--size", "20", "--pegs",
                                 "2", "--peg-radius", "1", "--picture", "parts.png"});
    EXPECT_EQ(pegs.status, 0) << pegs.err;
    EXPECT_THAT(pegs.out, testing::StartsWith("set.stl: 3 parts in pegged, 1 cut, 2 pegs (3 at"));
    EXPECT_EQ(run({"check", "-q", "pegged/set_001.stl"}).status, 0);
    EXPECT_EQ(read("parts.png").substr(1, 3), "PNG");
    // 30 long, it fits upright.
    EXPECT_THAT(run({"decompose", "set.stl", "--preview", "--size", "10,10,30", "--turn"}).out,
                testing::StartsWith("set.stl: 2 parts, 0 cuts (2 at least; an even"));
    shapes::append(set, shapes::turned(shapes::box({80, 0, 0}, {90, 10, 10})));
    write_stl_file("turned.stl", set);
    EXPECT_THAT(run({"decompose", "turned.stl", "--preview", "--size", "21"}).err,
                HasSubstr("1 part turned inside out, the first near (85, 5, 5)"));
    const ToolResult many = run({"decompose", "set.stl", "-o", "parts", "--size", "0.1"});
    EXPECT_EQ(many.status, 1);
    EXPECT_THAT(many.err, HasSubstr("more than 32,768 parts"));
    for (const char* size : {"0", "1,2", "-1", "x", "5,5,nan"}) {
        EXPECT_EQ(run({"decompose", "set.stl", "-o", "parts", "--size", size}).status, 2) << size;
    }
    const std::vector<std::vector<std::string>> wrong = {
        {"-o", "p", "--margin", "5"},  {"-o", "p", "--pegs", "1", "--peg-radius", "2.5"},
        {"-o", "p", "--preview"},      {"-o", "p", "--pegs", "1.5", "--peg-radius", "1"},
        {"-o", "p", "--picture", "x"}, {}};
    for (const std::vector<std::string>& more : wrong) {
        std::vector<std::string> line = {"decompose", "set.stl", "--size", "5"};
        line.insert(line.end(), more.begin(), more.end());
        EXPECT_EQ(run(line).status, 2) << testing::PrintToString(more);
    }
}

}  // namespace
}  // namespace povmesh
