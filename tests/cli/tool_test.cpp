// The tool as its users meet it: what it prints, where, and with which exit status.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "helpers/memory_sink.h"
#include "helpers/shapes.h"
#include "io/zip_package.h"
#include "tool_runner.h"

namespace povmesh {
namespace {

using nlohmann::json;
using shapes::SoupVector;
using testing::HasSubstr;

SoupVector cube() {
    return shapes::box({0, 0, 0}, {10, 10, 10});
}

// Without its first triangle; with its first triangle turned over.
SoupVector cube_with_hole() {
    SoupVector soup = cube();
    soup.erase(soup.begin(), soup.begin() + 9);
    return soup;
}
SoupVector cube_with_turned_face() {
    SoupVector soup = cube();
    std::swap_ranges(soup.begin(), soup.begin() + 3, soup.begin() + 3);
    return soup;
}

SoupVector together(SoupVector soup, const std::vector<SoupVector>& others) {
    for (const SoupVector& other : others) shapes::append(soup, other);
    return soup;
}

SoupVector moved(SoupVector soup, Vec3f by) {
    shapes::move(soup, by);
    return soup;
}

// Standing on its base, so that no face at its top looks down although all are turned.
SoupVector inside_out_cone() {
    return shapes::turned(together(shapes::fan(30, 500), {shapes::turned(shapes::fan(30, 0))}));
}

SoupVector leaning_out() {
    SoupVector soup = cube();
    for (std::size_t i = 0; i < soup.size(); i += 3) {
        if (soup[i + 2] != 0) continue;
        soup[i] = 4 + soup[i] / 5;
        soup[i + 1] = 4 + soup[i + 1] / 5;
    }
    return soup;
}

bool is_one_error_line(const std::string& text) {
    return text.rfind("povmesh: ", 0) == 0 && std::count(text.begin(), text.end(), '\n') == 1 &&
           text.back() == '\n';
}

TEST_F(ToolTest, CheckNeitherMissesNorInventsAFlaw) {
    const SoupVector inner = shapes::box({2, 2, 2}, {8, 8, 8});
    const SoupVector innermost = shapes::box({4, 4, 4}, {6, 6, 6});
    const SoupVector whole = cube();
    const float* const corner = whole.data();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    struct Case {
        std::string name;
        SoupVector soup;
        int status;
        json truth;
    };
    const std::vector<Case> cases = {
        {"cube",
         cube(),
         0,
         {{"verdict", "clean"},
          {"format", "binary STL"},
          {"triangles", 12},
          {"vertices", 8},
          {"shells", 1},
          {"cavities", 0},
          {"size", {10.0, 10.0, 10.0}},
          {"volume", 1000.0},
          {"closed", true},
          {"dropped_triangles", 0},
          {"box", {{"low", {0.0, 0.0, 0.0}}, {"high", {10.0, 10.0, 10.0}}}},
          {"flaws",
           {{"inverted_faces", 0},
            {"open_edges", 0},
            {"open_edge_corners", 0},
            {"non_manifold_faces", 0},
            {"non_manifold_edges", 0},
            {"degenerate_faces", 0},
            {"turned_edges", 0},
            {"inside_out_shells", 0},
            {"misplaced_vertices", 0}}}}},
        {"turned face",
         cube_with_turned_face(),
         1,
         {{"closed", true}, {"flaws", {{"inverted_faces", 1}, {"turned_edges", 3}}}}},
        {"inside out",
         shapes::turned(cube()),
         1,
         {{"volume", -1000.0}, {"flaws", {{"inverted_faces", 12}, {"inside_out_shells", 1}}}}},
        {"inside-out cone",
         inside_out_cone(),
         1,
         {{"flaws", {{"inverted_faces", 60}, {"inside_out_shells", 1}}}}},
        {"walls that lean out below a flat top",
         leaning_out(),
         0,
         {{"verdict", "clean"}, {"flaws", {{"inverted_faces", 0}}}}},
        {"cavity that breaks through its wall",
         together(cube(), {shapes::turned(shapes::box({2, 2, 2}, {8, 8, 11}))}),
         1,
         {{"cavities", 1}, {"flaws", {{"inverted_faces", 0}, {"inside_out_shells", 0}}}}},
        {"cavity",
         together(cube(), {shapes::turned(inner)}),
         0,
         {{"shells", 2},
          {"cavities", 1},
          {"volume", 1000.0 - 216.0},
          {"flaws", {{"inverted_faces", 0}, {"inside_out_shells", 0}}}}},
        {"inside out within a cavity",
         together(cube(), {shapes::turned(inner), shapes::turned(innermost)}),
         1,
         {{"shells", 3},
          {"cavities", 1},
          {"flaws", {{"inverted_faces", 12}, {"inside_out_shells", 1}}}}},
        {"flat triangle that looks down",
         {0, 0, 0, 0, 9, 0, 9, 0, 0},
         1,
         {{"flaws", {{"open_edges", 3}, {"open_edge_corners", 0}}}}},
        {"pages of a book",
         shapes::book(3),
         1,
         {{"flaws", {{"non_manifold_faces", 3}, {"non_manifold_edges", 1}}}}},
        {"equal corners",
         together(cube(), {{1, 2, 3, 1, 2, 3, 4, 5, 6}}),
         0,
         {{"triangles", 13},
          {"dropped_triangles", 1},
          {"closed", true},
          {"warnings", {"1 triangle dropped: two corners at the same place"}}}},
        {"a face twice, once turned",
         together(cube_with_turned_face(), {SoupVector(corner, corner + 9)}),
         1,
         {{"flaws", {{"duplicate_faces", 1}, {"non_manifold_edges", 3}, {"self_intersections", 0}}},
          {"where", {{"duplicate_faces", {{"faces", {12}}}}}},
          {"suggestions", {"repair removes 1 duplicate face", "repair turns 1 face over"}}}},
        // The sides of the rod, 8 triangles, each pass through one face above and one below.
        {"rod through a cube",
         together(cube(), {shapes::box({2, 5, -1}, {2.25F, 5.25F, 11})}),
         1,
         {{"closed", true},
          {"degenerate_only", false},
          {"flaws", {{"self_intersections", 16}, {"duplicate_faces", 0}}}}},
        {"a small hole and a long one",
         together(cube_with_hole(), {moved(shapes::fan(60, 5), {40, 0, 0})}),
         1,
         {{"holes", {{{"edges", 3}, {"count", 1}}, {{"edges", 60}, {"count", 1}}}},
          {"unclosed_edges", 0},
          {"suggestions", {"repair closes 1 of 2 holes; the one of 60 edges stays open"}}}},
        {"no number",
         together(cube(), {{nan, 0, 0, 20, 0, 0, 20, 9, 0}}),
         1,
         {{"size", {20.0, 10.0, 10.0}},
          {"volume", nullptr},
          {"flaws", {{"misplaced_vertices", 1}}}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        write_stl_file("model.stl", c.soup);
        const ToolResult result = run({"check", "--json", "model.stl"});
        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(result.err, "");
        const json reports = json::parse(result.out);
        ASSERT_EQ(reports.size(), 1U);
        const json truth = c.truth.flatten();
        for (const auto& [place, value] : truth.items()) {
            EXPECT_EQ(reports[0].value(json::json_pointer(place), json()), value) << place;
        }
    }
}

TEST_F(ToolTest, CheckGoesThroughAllFilesAndTheWorstStatusWins) {
    write_stl_file("good.stl", cube());
    write_ascii_stl_file("bad.stl", cube_with_hole());
    std::string capitals = read("bad.stl");
    for (char& c : capitals) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    write("BAD.STL", capitals);

    const ToolResult flawed = run({"check", "good.stl", "BAD.STL"});
    EXPECT_EQ(flawed.status, 1);
    EXPECT_EQ(flawed.err, "");
    for (const char* text : {"good.stl\n", "verdict             clean\n", "BAD.STL\n",
                             "ASCII STL\n", "verdict             flaws: 3 open edges\n",
                             "2 files: 1 clean, 1 with flaws, 0 unreadable\n"}) {
        EXPECT_THAT(flawed.out, HasSubstr(text));
    }

    const ToolResult unreadable = run({"check", "missing.stl", "BAD.STL", "good.stl", "--json"});
    EXPECT_EQ(unreadable.status, 3);
    EXPECT_TRUE(is_one_error_line(unreadable.err)) << unreadable.err;
    std::vector<std::string> verdicts;
    for (const json& report : json::parse(unreadable.out)) verdicts.push_back(report["verdict"]);
    EXPECT_THAT(verdicts, testing::ElementsAre("unreadable", "flaws", "clean"));
}

TEST_F(ToolTest, ErrorsAreOneLineWithPlaceAndRemedy) {
    write_stl_file("cube.stl", cube());
    write("part.obj", "v 0 0 0\nf 1 2 9\n");
    write("EMPTY.OBJ", "v 0 0 0\n");
    SoupVector nowhere = cube();
    nowhere[0] = std::numeric_limits<float>::infinity();
    write_stl_file("infinite.stl", nowhere);
    SoupVector near_most = cube();
    for (float& x : near_most) x *= 3.3e37F;
    write_stl_file("near_most.stl", near_most);
    write_stl_file("two.stl", together(cube(), {moved(cube(), {20, 0, 0})}));
    write("cut.stl", read("cube.stl").substr(0, 400));
    write("empty.stl", "");
    write("prose.stl", "This is no model.\n");
    write_stl_file("points.stl", SoupVector(9, 1.0F));
    for (const char* name : {"folder.stl", "parts", "parts/two_002.stl"}) {
        ASSERT_TRUE(std::filesystem::create_directory(path(name)));
    }
    struct Case {
        std::vector<std::string> arguments;
        int status;
        std::vector<std::string> words;
    };
    const std::vector<Case> cases = {
        {{"check", "missing.stl"}, 3, {"missing.stl", "No such file"}},
        {{"check", "folder.stl"}, 3, {"folder.stl"}},
        {{"check", "part.obj"}, 3, {"part.obj", "line 2", "\"2\" names no vertex"}},
        {{"check", "EMPTY.OBJ"}, 3, {"EMPTY.OBJ", "no face"}},
        {{"check", "cube"}, 3, {"cube", "name ends in .stl, .obj, .ply"}},
        {{"check", "cut.stl"}, 3, {"cut.stl", "truncated", "684 bytes", "400 bytes"}},
        {{"check", "empty.stl"}, 3, {"empty.stl", "empty"}},
        {{"check", "prose.stl"}, 3, {"prose.stl", "not an STL file"}},
        {{"check", "points.stl"}, 3, {"points.stl", "different corners"}},
        {{"check", "two\nlines.stl"}, 3, {"lines.stl"}},
        {{"check", "two\nlines.obj"}, 3, {"lines.obj"}},
        {{"check", "%s %n \xC3\xA4.stl"}, 3, {"%s %n \xC3\xA4.stl"}},
        {{"convert", "cut.stl", "new.stl"}, 3, {"cut.stl", "truncated"}},
        {{"convert", "cube.stl", "new.off"}, 2, {"new.off", "name that ends in .stl, .obj, .ply"}},
        {{"convert", "cube.stl", "nowhere/new.stl"}, 6, {"nowhere/new.stl"}},
        {{"convert", "cube.stl", "folder.stl"}, 6, {"folder.stl"}},
        {{"convert", "cube.stl"}, 2, {"OUT is required", "convert --help"}},
        {{"render", "cube.stl", "-o", "x.jpg"}, 2, {"x.jpg", "name that ends in .png"}},
        {{"render", "cube.stl", "-o", "nowhere/x.png"}, 6, {"nowhere/x.png"}},
        {{"render", "cut.stl", "-o", "x.png"}, 3, {"cut.stl", "truncated"}},
        {{"render", "cube.stl", "-o", "x.png", "--size", "800x9"}, 2, {"'800x9'", "16 to"}},
        {{"render", "cube.stl", "-o", "x.png", "--size", "800"}, 2, {"'800'", "WIDTHxHEIGHT"}},
        {{"render", "cube.stl", "-o", "x.png", "--view", "up"}, 2, {"'up'", "iso, front"}},
        {{"render", "cube.stl", "--compare", "cut.stl", "-o", "x.png"},
         3,
         {"cut.stl", "truncated"}},
        {{"convert", "infinite.stl", "new.obj"}, 6, {"new.obj", "infinite"}},
        {{"repair", "cube.stl"}, 2, {"--output is required"}},
        {{"repair", "cube.stl", "-o", "new.off"}, 2, {"new.off", "ends in .stl, .obj, .ply"}},
        {{"repair", "cut.stl", "-o", "new.stl"}, 3, {"cut.stl", "truncated"}},
        {{"repair", "cube.stl", "-o", "nowhere/new.stl"}, 6, {"nowhere/new.stl"}},
        {{"reduce", "infinite.stl", "-o", "new.stl", "--keep", "1"}, 1, {"povmesh repair takes"}},
        {{"subdivide", "near_most.stl", "-o", "new.stl"}, 1, {"make the model smaller"}},
        {{"repair", "cube.stl", "-o", "new.stl", "--drop-tiny", "1001"}, 1, {"nothing is written"}},
        {{"repair", "cube.stl", "-o", "new.stl", "--drop-tiny", "-1"}, 2, {"'-1'", "at least 0"}},
        {{"repair", "cube.stl", "-o", "new.stl", "--drop-tiny", "nan"}, 2, {"'nan'"}},
        {{"split", "cut.stl", "-o", "new.stl"}, 3, {"cut.stl", "truncated"}},
        {{"split", "cube.stl", "-o", "nowhere/deep"}, 6, {"nowhere/deep", "No such file"}},
        {{"split", "cube.stl", "-o", "cube.stl"}, 6, {"cube.stl", "cannot be made"}},
        {{"split", "cube.stl", "-o", "new.stl", "--min-volume", "1001"}, 1, {"largest has 1,000"}},
        {{"split", "two.stl", "-o", "parts"},
         6,
         {"two_002.stl", "; written: " + shown_path("parts/two_001.stl")}},
        {{"repair", "cube.stl", "-o", "new.stl", "--memory", "1K"}, 7, {"cube.stl", "--memory"}},
        {{"repair", "cube.stl", "-o", "new.stl", "--memory", "5Q"}, 2, {"'5Q'", "500M"}},
        {{"check", "--colour", "cube.stl"}, 2, {"--colour", "check --help"}},
        {{"check"}, 2, {"FILE is required"}},
        {{"mend", "cube.stl"}, 2, {"mend", "--help"}},
        {{}, 2, {"no operation", "--help"}},
    };
    for (const Case& c : cases) {
        const ToolResult result = run(c.arguments);
        EXPECT_EQ(result.status, c.status) << result.err;
        EXPECT_EQ(result.out, "") << result.err;
        EXPECT_TRUE(is_one_error_line(result.err)) << result.err;
        for (const std::string& word : c.words) EXPECT_THAT(result.err, HasSubstr(word));
    }
    for (const char* name : {"new.stl", "new.off", "new.obj", "x.jpg", "x.png"}) {
        EXPECT_FALSE(std::filesystem::exists(path(name))) << name;
    }
}

TEST_F(ToolTest, PipesAndPackedFilesCarryTheSameModel) {
    write_stl_file("cube.stl", cube());
    ASSERT_EQ(run({"convert", "cube.stl", "cube.ply.gz"}).status, 0);
    ASSERT_EQ(run({"convert", "cube.ply.gz", "back.stl"}).status, 0);
    const std::string plain = read("back.stl");
    for (const char* input : {"back.stl", "packed.stl.gz"}) {
        ASSERT_EQ(run({"convert", "cube.stl", "packed.stl.gz"}).status, 0);
        const ToolResult piped = run({"repair", "-", "-o", "-", "--format", "stl"}, "piped", input);
        EXPECT_EQ(piped.status, 0) << piped.err;
        EXPECT_EQ(read("piped"), plain) << "nothing but the model";
        EXPECT_THAT(piped.err, HasSubstr("verified"));
    }
    write("cut.stl", plain.substr(0, 300));
    const ToolResult cut = run({"convert", "-", "-", "--format", "stl"}, "piped", "cut.stl");
    EXPECT_EQ(cut.status, 3);
    EXPECT_EQ(read("piped"), "") << "no part of a model that is not whole";
    EXPECT_THAT(run({"convert", "cube.stl", "-"}).err, HasSubstr("give --format"));
    EXPECT_EQ(run({"convert", "cube.stl", "-", "--format", "ply"}, "/dev/full").status, 6);
}

// Two cubes that share a wall, which belongs to both of them, and one without a face.
std::string package_of_three() {
    std::string mesh = "<mesh><vertices>";
    for (int v = 0; v < 8; ++v) {
        const auto bit = [&](int shift) { return std::to_string(10 * (v >> shift & 1)); };
        mesh += "<vertex x=\"" + bit(0) + "\" y=\"" + bit(1) + "\" z=\"" + bit(2) + "\"/>";
    }
    mesh += "</vertices><triangles>";
    const int faces[12][3] = {{0, 2, 1}, {1, 2, 3}, {4, 5, 6}, {5, 7, 6}, {0, 1, 4}, {1, 5, 4},
                              {2, 6, 3}, {3, 6, 7}, {0, 4, 2}, {2, 4, 6}, {1, 3, 5}, {3, 7, 5}};
    std::string open;
    for (const auto& [a, b, c] : faces) {
        if (c == 5 && a == 3) open = mesh;  // all faces but the last
        mesh += "<triangle v1=\"" + std::to_string(a) + "\" v2=\"" + std::to_string(b) +
                "\" v3=\"" + std::to_string(c) + "\"/>";
    }
    const std::string end = "</triangles></mesh></object>";
    const std::string item = "\" transform=\"1 0 0 0 1 0 0 0 1 ";
    PackageWriter writer;
    writer.add("3D/3dmodel.model",
               "<model xmlns=\"http://schemas.microsoft.com/3dmanufacturing/core/2015/02\">"
               "<resources><object id=\"1\" name=\"W\xC3\xBCrfel\">" +
                   mesh + end + "<object id=\"2\" name=\"lid\">" + open + end +
                   "</resources><build><item objectid=\"1\"/><item objectid=\"1" + item +
                   "10 0 0\"/><item objectid=\"2" + item + "30 0 0\"/></build></model>");
    MemorySink sink;
    EXPECT_TRUE(writer.finish(sink, "three").ok());
    return sink.bytes;
}

TEST_F(ToolTest, ObjectsOfAPackageAreCheckedByThemselvesAndKeepTheirNames) {
    write("three.3mf", package_of_three());
    ASSERT_EQ(run({"convert", "three.3mf", "again.3mf"}).status, 0);
    for (const char* name : {"three.3mf", "again.3mf"}) {
        const ToolResult result = run({"check", "--json", name});
        EXPECT_EQ(result.status, 1) << result.err;
        const json objects = json::parse(result.out)[0]["objects"];
        ASSERT_EQ(objects.size(), 3U);
        EXPECT_EQ(objects[1]["name"], "W\xC3\xBCrfel");
        EXPECT_EQ(objects[1]["verdict"], "clean")
            << "it shares a wall, which is no flaw of its own";
        EXPECT_EQ(objects[2]["name"], "lid");
        EXPECT_EQ(objects[2]["flaws"]["open_edges"], 3);
    }
    // Repair closes the lid and keeps the wall between the others, also from step to step.
    write("twice.json", R"([{"operation": "repair"}, {"operation": "repair"}])");
    EXPECT_EQ(run({"repair", "three.3mf", "-o", "mended.3mf"}).status, 0);
    EXPECT_EQ(run({"run", "twice.json", "three.3mf", "-o", "twice.3mf"}).status, 0);
    for (const char* name : {"mended.3mf", "twice.3mf"}) {
        const json objects = json::parse(run({"check", "--json", name}).out)[0]["objects"];
        ASSERT_EQ(objects.size(), 3U);
        for (const json& object : objects) {
            EXPECT_EQ(object["verdict"], "clean");
            EXPECT_EQ(object["triangles"], 12U);
        }
    }
    // What is changed as one must not pass for sound objects.
    const ToolResult remeshed = run({"remesh", "three.3mf", "-o", "new.3mf", "--edge", "4"});
    EXPECT_EQ(remeshed.status, 1);
    EXPECT_THAT(remeshed.err, HasSubstr("no longer closed: objects that touch"));
    EXPECT_THAT(run({"convert", "three.3mf", "new.stl"}).err, HasSubstr("names of objects"));
}

TEST_F(ToolTest, AFullDiskUnderStandardOutputIsAnError) {
    write_stl_file("cube.stl", cube());
    const ToolResult result = run({"check", "cube.stl"}, "/dev/full");
    EXPECT_EQ(result.status, 6);
    EXPECT_TRUE(is_one_error_line(result.err)) << result.err;
}

TEST_F(ToolTest, HelpAndVersionSucceed) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--help"}, "convert"},
        {{"check", "--help"}, "--json"},
        {{"repair", "--help"}, "cubed units of the"},
        {{"split", "--help"}, "default 0"},
        {{"convert", "-h"}, "IN OUT"},
        {{"render", "--help"}, "800x600"},
        {{"version", "--help"}, "--quiet"},
        {{"--version"}, "povmesh 0."},
        {{"version"}, "build: "}};
    for (const auto& [arguments, text] : cases) {
        const ToolResult result = run(arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_THAT(result.out, HasSubstr(text));
    }
}

TEST_F(ToolTest, ConvertKeepsTheModel) {
    const SoupVector soup = shapes::rock(10, 2);
    write_stl_file("a b %d \xC3\xBC.stl", soup);
    write_ascii_stl_file("ascii.stl", cube());
    const auto report = [&](const std::string& name) {
        json all = json::parse(run({"check", "--json", name}).out);
        all[0].erase("file");
        all[0].erase("format");
        return all[0];
    };

    EXPECT_EQ(run({"convert", "a b %d \xC3\xBC.stl", "copy.stl"}).out,
              "copy.stl: 320 triangles written\n");
    EXPECT_EQ(read("copy.stl").substr(84), read("a b %d \xC3\xBC.stl").substr(84));

    // Onto itself, first from ASCII, then once more: the same bytes.
    const json before = report("ascii.stl");
    EXPECT_EQ(run({"--quiet", "convert", "ascii.stl", "ascii.stl"}).out, "");
    const std::string binary = read("ascii.stl");
    EXPECT_EQ(binary.size(), 84 + 12 * 50U);
    EXPECT_EQ(binary.substr(0, 7), "PovMesh");
    EXPECT_EQ(report("ascii.stl"), before);
    EXPECT_EQ(run({"convert", "ascii.stl", "ascii.stl", "-q"}).status, 0);
    EXPECT_EQ(read("ascii.stl"), binary);
}

TEST_F(ToolTest, WarningsGoToStandardErrorUnlessQuiet) {
    write_stl_file("cube.stl", cube());
    write("long.stl", read("cube.stl") + "trailing bytes");
    const ToolResult loud = run({"convert", "long.stl", "out.stl"});
    EXPECT_EQ(loud.status, 0);
    EXPECT_EQ(loud.err, "povmesh: warning: long.stl: 14 bytes behind the last triangle ignored\n");
    EXPECT_EQ(run({"convert", "--quiet", "long.stl", "out.stl"}).err, "");
    EXPECT_THAT(run({"check", "long.stl"}).out, HasSubstr("14 bytes"));
    EXPECT_THAT(run({"check", "-q", "long.stl"}).out, testing::Not(HasSubstr("14 bytes")));
}

TEST_F(ToolTest, WhatWasNotReadWholeIsToldAndNeverWrittenOverItself) {
    const SoupVector soup = shapes::sphere(10, 2);
    write_stl_file("all.stl", soup);
    std::string fewer = read("all.stl");
    fewer[80] = 100;
    fewer[81] = 0;
    write("fewer.stl", fewer);
    const ToolResult other = run({"convert", "fewer.stl", "out.stl"});
    EXPECT_EQ(other.status, 0);
    EXPECT_THAT(other.err, HasSubstr("fewer.stl: 220 triangles left out behind the 100 that the"));
    for (const auto& arguments : {std::vector<std::string>{"convert", "fewer.stl", "./fewer.stl"},
                                  {"repair", "fewer.stl", "-o", "fewer.stl"},
                                  {"reduce", "fewer.stl", "-o", "fewer.stl", "--keep", "0.5"}}) {
        const ToolResult same = run(arguments);
        EXPECT_EQ(same.status, 6) << arguments[0];
        EXPECT_THAT(same.err, HasSubstr("was not read whole")) << arguments[0];
    }
    EXPECT_EQ(read("fewer.stl"), fewer);

    write("commas.stl", "facet\nvertex 0 0 0 vertex 9,5 0 0 vertex 0 9,5 0 endfacet");
    write("commas.obj", "v 0 0 0\nv 9,5 0 0\nv 0 9,5 0\nf 1 2 3\n");
    write("short.obj", "v 0 0 0\nv 9 0 0\nv 0 9 0\nf 1 2 3\nf 1 2\n");
    for (const char* name : {"commas.stl", "commas.obj"}) {
        const ToolResult result = run({"convert", name, "out.stl"});
        EXPECT_EQ(result.status, 3);
        EXPECT_THAT(result.err, HasSubstr("line 2: \"9,5\" is not a decimal number"));
    }
    EXPECT_THAT(run({"convert", "short.obj", "out.stl"}).err,
                HasSubstr("line 5: face of fewer than three corners left out"));
}

TEST_F(ToolTest, RenderWritesAPngOfTheSizeAskedFor) {
    const std::string png_start("\x89PNG\r\n\x1A\n\0\0\0\rIHDR\0\0\0\x40\0\0\0\x30",
                                24);                   // 64 x 48
    write_stl_file("model.stl", shapes::rock(10, 2));  // looks different from every side
    std::set<std::string> pictures;
    for (const char* view : {"iso", "front", "back", "left", "right", "top", "bottom"}) {
        const ToolResult result =
            run({"render", "model.stl", "-o", "x.png", "--size", "64x48", "--view", view});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, "x.png: 64x48 pixels, " + std::string(view) + " view\n");
        const std::string picture = read("x.png");
        EXPECT_EQ(picture.substr(0, 24), png_start);
        EXPECT_THAT(picture, testing::EndsWith("IEND\xAE\x42\x60\x82"));
        pictures.insert(picture);
    }
    EXPECT_EQ(pictures.size(), 7U);

    write_stl_file("model.stl", cube_with_turned_face());
    run({"render", "model.stl", "-o", "plain.png", "--view", "bottom"});
    const ToolResult flaws =
        run({"render", "model.stl", "-o", "flaws.png", "--view", "bottom", "--flaws", "-q"});
    EXPECT_EQ(flaws.out, "  red faces:     1 inverted face\n");
    EXPECT_NE(read("plain.png"), read("flaws.png"));

    // Each half shows its model as the other model's camera would: a small one stays small.
    write_stl_file("small.stl", shapes::box({0, 0, 0}, {1, 1, 1}));
    std::set<std::string> compared;
    for (const char* other : {"model.stl", "small.stl"}) {
        const ToolResult result = run({"render", "model.stl", "--compare", other, "-o", "both.png",
                                       "--size", "64x48", "--flaws", "-q"});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(result.out, testing::StartsWith("model.stl\n  red faces"));
        EXPECT_EQ(read("both.png").substr(0, 24), png_start);
        compared.insert(read("both.png"));
    }
    EXPECT_EQ(compared.size(), 2U);
}

TEST_F(ToolTest, CountsOnRealModelsAreThoseOfAnotherProgram) {
    const char* folder = std::getenv("POVMESH_MODELS");
    if (folder == nullptr) GTEST_SKIP() << "POVMESH_MODELS names no folder of real models";
    struct Case {
        const char* name;
        int triangles, vertices, shells;
        int open_edges, non_manifold_edges, turned_edges;
    };
    // Counted by another program, which welds equal bits as this one does.
    const std::vector<Case> cases = {{"gearwheel.stl", 2444, 1222, 1, 0, 0, 0},
                                     {"gearwheel_ascii.stl", 2444, 1222, 1, 0, 0, 0},
                                     {"m3x10_screw.stl", 15532, 7768, 1, 0, 0, 0},
                                     {"tray_bottom_ascii.stl", 4520, 2216, 1, 0, 0, 0},
                                     {"adis16480_metres_ascii.stl", 7436, 3672, 1, 0, 0, 0},
                                     {"featuretype_open.stl", 3476, 2010, 1, 576, 0, 0},
                                     {"box_assembly.stl", 8954, 4455, 10, 0, 0, 0},
                                     {"cubes_touching_ascii.stl", 24, 14, 1, 0, 1, 0},
                                     {"sphere_in_cube_cavity_ascii.stl", 4160, 2084, 2, 0, 0, 0},
                                     {"max_export_24_shells.stl", 2000, 1042, 24, 0, 16, 0},
                                     {"cat.stl", 15894, 7949, 1, 0, 0, 0},
                                     {"benchy.stl", 225154, 112565, 1, 0, 0, 0},
                                     {"conrod_turned.stl", 6442, 3223, 1, 0, 3, 5149},
                                     {"flaw_minus_zero.stl", 12, 15, 12, 36, 0, 0},
                                     {"block_loose_faces_ascii.stl", 25, 19, 3, 3, 0, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const json report =
            json::parse(run({"check", "--json", std::string(folder) + "/" + c.name}).out).at(0);
        EXPECT_EQ(report.at("triangles"), c.triangles);
        EXPECT_EQ(report.at("vertices"), c.vertices);
        EXPECT_EQ(report.at("shells"), c.shells);
        EXPECT_EQ(report.at("closed"), c.open_edges == 0);
        EXPECT_EQ(report.at("flaws").at("open_edges"), c.open_edges);
        EXPECT_EQ(report.at("flaws").at("non_manifold_edges"), c.non_manifold_edges);
        EXPECT_EQ(report.at("flaws").at("turned_edges"), c.turned_edges);
    }
}

}  // namespace
}  // namespace povmesh
