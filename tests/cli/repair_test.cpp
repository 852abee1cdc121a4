// Repairing, splitting and converting, as users of the tool meet them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "helpers/shapes.h"
#include "tool_runner.h"

namespace povmesh {
namespace {

using nlohmann::json;
using shapes::SoupVector;
using testing::HasSubstr;

SoupVector cube(float low, float high) {
    return shapes::box({low, low, low}, {high, high, high});
}

SoupVector together(SoupVector soup, const std::vector<SoupVector>& others) {
    for (const SoupVector& other : others) shapes::append(soup, other);
    return soup;
}

SoupVector without_first(SoupVector soup) {
    soup.erase(soup.begin(), soup.begin() + 9);
    return soup;
}

// A cube of six quads with vertex colours, or with a material on all faces but the last.
std::string obj_cube(bool is_textured, std::size_t faces) {
    std::ostringstream text;
    for (int i = 0; i < 8; ++i) {
        text << "v " << (i & 1) << ' ' << (i >> 1 & 1) << ' ' << (i >> 2);
        if (!is_textured) text << ' ' << i / 8.0 << ' ' << 1 - i / 16.0 << " 0.25";
        text << '\n';
    }
    if (is_textured) text << "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nusemtl paint\n";
    const std::array<std::array<int, 4>, 6> quads = {
        {{1, 3, 4, 2}, {5, 6, 8, 7}, {1, 2, 6, 5}, {3, 7, 8, 4}, {1, 5, 7, 3}, {2, 4, 8, 6}}};
    for (std::size_t face = 0; face < faces; ++face) {
        text << 'f';
        for (int corner = 0; corner < 4; ++corner) {
            text << ' ' << quads[face][static_cast<std::size_t>(corner)];
            if (is_textured) text << '/' << corner + 1;
        }
        text << '\n';
    }
    return text.str();
}

// The place of every vertex of an OBJ text with its colour, as bytes.
using Coloured = std::map<std::array<double, 3>, std::array<int, 3>>;
Coloured coloured_vertices(const std::string& obj) {
    Coloured vertices;
    std::istringstream text(obj);
    for (std::string line; std::getline(text, line);) {
        std::istringstream words(line);
        std::string keyword;
        std::array<double, 3> place{};
        std::array<double, 3> colour{};
        words >> keyword >> place[0] >> place[1] >> place[2] >> colour[0] >> colour[1] >> colour[2];
        if (keyword != "v" || !words) continue;
        for (std::size_t i = 0; i < 3; ++i) vertices[place][i] = static_cast<int>(colour[i] * 255);
    }
    return vertices;
}

class Repair : public ToolTest {
protected:
    json check(const std::string& name) const {
        json report = json::parse(run({"check", "--json", name}).out).at(0);
        for (const char* key :
             {"file", "format", "verdict", "dropped_triangles", "suggestions", "warnings"}) {
            report.erase(key);
        }
        return report;
    }
};

TEST_F(Repair, MendsVerifiesAndTellsWhatIsLeft) {
    const SoupVector box = cube(0, 10);
    const SoupVector inner = shapes::turned(cube(2, 8));
    struct Case {
        std::string name;
        SoupVector soup;
        std::vector<std::string> options;
        int status;
        json truth;
    };
    const std::vector<Case> cases = {
        {"inside out",
         shapes::turned(box),
         {},
         0,
         {{"after", {{"volume", 1000.0}}}, {"done", {{"turned_faces", 12}}}}},
        {"cavity",
         together(box, {inner}),
         {},
         0,
         {{"after", {{"cavities", 1}, {"volume", 784.0}}}, {"done", {{"kept_cavities", 1}}}}},
        {"cavity turned outward",
         together(box, {inner}),
         {"--outward"},
         0,
         {{"after", {{"cavities", 0}, {"volume", 1216.0}}}, {"done", {{"turned_faces", 12}}}}},
        {"small bodies stay",
         together(box, {cube(20, 20.5F)}),
         {},
         0,
         {{"after", {{"shells", 2}}}, {"done", {{"dropped_shells", 0}}}}},
        {"small bodies go on request",  // volumes 0.125, 1 and 15.625
         together(box, {cube(20, 20.5F), cube(30, 31), cube(40, 42.5F)}),
         {"--drop-tiny", "15"},
         0,
         {{"after", {{"shells", 2}}},
          {"done", {{"dropped_shells", 2}, {"dropped_shell_faces", 24}}}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        write_stl_file("in.stl", c.soup);
        for (const std::string target : {"out.obj", "in.stl"}) {
            std::vector<std::string> arguments = {"repair", "--json", "in.stl", "-o", target};
            arguments.insert(arguments.end(), c.options.begin(), c.options.end());
            const ToolResult result = run(arguments);
            EXPECT_EQ(result.status, c.status);
            EXPECT_EQ(result.err, "");
            const json report = json::parse(result.out);
            const json truth = c.truth.flatten();
            for (const auto& [place, value] : truth.items()) {
                EXPECT_EQ(report.at(json::json_pointer(place)), value) << place;
            }
            EXPECT_EQ(report.at("after"), check(target));
        }
        const std::string repaired = read("in.stl");
        EXPECT_EQ(run({"repair", "in.stl", "-o", "again.stl"}).status, c.status);
        if (c.options.empty()) {
            EXPECT_EQ(read("again.stl"), repaired) << "twice";
        }
    }
}

TEST_F(Repair, PrintsATableAndTheRemedyForLabels) {
    write_stl_file("open.stl", together(without_first(cube(0, 10)), {shapes::fan(60, 25)}));
    const ToolResult result = run({"repair", "open.stl", "-o", "shut.stl"});
    EXPECT_EQ(result.status, 1);
    for (const char* text : {"open.stl -> shut.stl\n", "before", "after",
                             "  holes closed     1 (1 of 3 edges), 1 face added\n",
                             "  holes left open  1 (1 of 60 edges): longer than 50 edges\n",
                             "  verified         read back, 72 triangles as written\n",
                             "  verdict          left over: 60 open edges\n"}) {
        EXPECT_THAT(result.out, HasSubstr(text));
    }

    write("painted.obj", obj_cube(true, 5));
    const ToolResult labelled = run({"repair", "painted.obj", "-o", "painted.obj"});
    EXPECT_EQ(labelled.status, 1);
    EXPECT_THAT(labelled.out, HasSubstr("convert the model to STL and repair that"));
    EXPECT_EQ(run({"convert", "painted.obj", "plain.stl"}).status, 0);
    EXPECT_EQ(run({"repair", "plain.stl", "-o", "plain.stl"}).status, 0);
}

TEST_F(Repair, NoResultIsWorseThanItsSource) {
    shapes::Random random(17);
    std::vector<SoupVector> soups;
    for (int i = 0; i < 24; ++i) {  // triangles between few places: every kind of hole and touch
        SoupVector soup(9 * (6 + random.below(16)));
        for (float& x : soup) x = static_cast<float>(random.below(3));
        soups.push_back(soup);
    }
    for (std::size_t i = 0; i < soups.size(); ++i) {
        write_stl_file("in.stl", soups[i]);
        const ToolResult result = run({"repair", "--json", "in.stl", "-o", "out.stl"});
        const json report = json::parse(result.out);
        if (report.contains("error")) continue;
        for (const char* flaw : {"open_edges", "inverted_faces", "turned_edges",
                                 "non_manifold_edges", "self_intersections"}) {
            EXPECT_LE(report.at("after").at("flaws").at(flaw),
                      report.at("before").at("flaws").at(flaw))
                << flaw << " of soup " << i;
        }
    }
}

TEST_F(Repair, NothingInfiniteIsWritten) {
    SoupVector soup = cube(0, 10);
    soup[0] = std::numeric_limits<float>::infinity();
    write_stl_file("wild.stl", soup);
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"split", "wild.stl", "-o", "new"},
          {"reduce", "wild.stl", "-o", "new.stl", "--keep", "0.9"}}) {
        const ToolResult result = run(arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err, HasSubstr("infinite or no number; nothing is written"));
    }
    EXPECT_FALSE(std::filesystem::exists(path("new")) || std::filesystem::exists(path("new.stl")));
    run({"repair", "wild.stl", "-o", "tame.stl"});
    EXPECT_EQ(check("tame.stl").at("flaws").at("misplaced_vertices"), 0);
}

TEST_F(Repair, SplitWritesEachModelWithItsCavities) {
    const SoupVector hollow = together(cube(0, 10), {shapes::turned(cube(2, 8))});
    write_stl_file("set.stl", together(hollow, {cube(20, 21), cube(30, 40), cube(35, 45)}));
    ASSERT_TRUE(std::filesystem::create_directory(path("parts")));
    write("parts/other.stl", "not ours");

    const ToolResult result = run({"split", "--json", "set.stl", "-o", "parts"});
    EXPECT_EQ(result.status, 0);
    const json models = json::parse(result.out).at("models");
    const json truth = {{{"file", shown_path("parts/set_001.stl")},
                         {"triangles", 24},
                         {"shells", 2},
                         {"volume", 784.0},
                         {"size", {10.0, 10.0, 10.0}},
                         {"closed", true}},
                        {{"file", shown_path("parts/set_002.stl")},
                         {"triangles", 12},
                         {"shells", 1},
                         {"volume", 1.0},
                         {"size", {1.0, 1.0, 1.0}},
                         {"closed", true}},
                        {{"file", shown_path("parts/set_003.stl")},
                         {"triangles", 24},
                         {"shells", 2},
                         {"volume", 2000.0},
                         {"size", {15.0, 15.0, 15.0}},
                         {"closed", true}}};
    ASSERT_EQ(models.size(), truth.size());
    for (std::size_t i = 0; i < truth.size(); ++i) {
        for (const auto& [key, value] : truth[i].items()) {
            if (key == "volume") {
                EXPECT_NEAR(models[i].at(key).get<double>(), value.get<double>(), 1e-9);
            } else {
                EXPECT_EQ(models[i].at(key), value);
            }
        }
        EXPECT_EQ(check(truth[i].at("file")).at("triangles"), truth[i].at("triangles"));
    }
    EXPECT_EQ(read("parts/other.stl"), "not ours");

    // A second run with fewer models says which file is left from the first.
    const ToolResult fewer = run({"split", "set.stl", "-o", "parts", "--min-volume", "2"});
    EXPECT_THAT(fewer.out, testing::StartsWith("set.stl: 2 models in parts, 1 left out"));
    EXPECT_THAT(fewer.err, HasSubstr(shown_path("parts/set_003.stl") + " was there before"));
    EXPECT_EQ(run({"split", "set.stl", "-o", "new", "--format", "obj"}).status, 0);
    EXPECT_EQ(check("new/set_003.obj").at("triangles"), 24);
}

TEST_F(Repair, ConvertGoesBothWaysAndKeepsColours) {
    write_stl_file("rock.stl", shapes::rock(10, 3));
    EXPECT_EQ(run({"convert", "rock.stl", "rock.OBJ"}).status, 0);
    EXPECT_EQ(run({"convert", "rock.OBJ", "back.stl"}).status, 0);
    EXPECT_EQ(read("back.stl").substr(84), read("rock.stl").substr(84));

    write("coloured.obj", obj_cube(false, 6));
    const ToolResult kept = run({"convert", "coloured.obj", "copy.obj"});
    EXPECT_EQ(kept.err, "");
    const Coloured colours = coloured_vertices(read("copy.obj"));
    EXPECT_EQ(colours.size(), 8U);
    EXPECT_EQ(colours, coloured_vertices(read("coloured.obj")));
    EXPECT_THAT(run({"convert", "coloured.obj", "grey.stl"}).err, HasSubstr("colours are lost"));
    EXPECT_THAT(run({"convert", "coloured.obj", "grey.stl", "-q"}).err, "");

    write("painted.obj", obj_cube(true, 6));
    EXPECT_THAT(run({"convert", "painted.obj", "grey.stl"}).err,
                HasSubstr("materials and texture"));
    EXPECT_THAT(run({"convert", "painted.obj", "once.obj"}).err, HasSubstr("names"));
    EXPECT_EQ(run({"convert", "once.obj", "twice.obj"}).status, 0);
    EXPECT_EQ(read("twice.obj"), read("once.obj"));
    EXPECT_THAT(read("once.obj"), HasSubstr("usemtl 0\nf 1/"));
}

}  // namespace
}  // namespace povmesh
