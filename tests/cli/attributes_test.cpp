// Names of objects and colours on their way through the operations of the tool.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "helpers/shapes.h"
#include "helpers/thorough.h"
#include "io/file.h"
#include "io/three_mf.h"
#include "mesh/build_f.h"
#include "tool_runner.h"

namespace povmesh {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

using Colour = std::array<std::uint8_t, 3>;
constexpr Colour kRed = {255, 0, 0};
constexpr Colour kGreen = {0, 255, 0};

class Attributes : public ToolTest {
protected:
    // Two coloured boxes with names, the second at an offset along x.
    void write_pair(const std::string& name, float offset) const {
        shapes::SoupVector soup = shapes::box({0, 0, 0}, {20, 20, 20});
        const std::size_t first = soup.size() / 9;
        shapes::append(soup, shapes::box({offset, 0, 0}, {offset + 20, 20, 20}));
        TriMesh mesh;
        build_f(mesh, Soup{soup.size() / 9, soup.data()});
        for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
            const bool is_left = f < first;
            mesh.faces[f].label = is_left ? 0 : 1;
            for (std::size_t c = 0; c < 9; ++c) {
                mesh.faces[f].colour[c] = (is_left ? kRed : kGreen)[c % 3];
            }
        }
        ThreeMfContent content;
        content.bodies = {"left", "right"};
        content.labels = {{0, -1}, {1, -1}};
        ReplacementFile file;
        ASSERT_TRUE(file.open(path(name), false).ok());
        ASSERT_TRUE(write_three_mf(mesh, content, {}, name, file).ok());
    }

    struct Package {
        TriMesh mesh;
        ThreeMfContent content;

        std::set<Colour> colours(std::size_t body) const {
            std::set<Colour> found;
            for (const Face& face : mesh.faces) {
                const auto label = static_cast<std::size_t>(face.label);
                if (!content.labels.empty() && content.labels[label].body != body) continue;
                for (std::size_t c = 0; c < 9; c += 3) {
                    found.insert({face.colour[c], face.colour[c + 1], face.colour[c + 2]});
                }
            }
            return found;
        }
    };

    Package read_package(const std::string& name) const {
        Package package;
        InputFile file;
        ThreeMfInfo info;
        EXPECT_TRUE(file.open(path(name)).ok());
        EXPECT_TRUE(read_three_mf(bytes_of(file), name, package.mesh, package.content, info).ok());
        return package;
    }
};

TEST_F(Attributes, ObjectsAndColoursComeThroughWhereFacesHaveAnOrigin) {
    write_pair("pair.3mf", 40);
    const std::vector<std::vector<std::string>> operations = {
        {"repair"},
        {"reduce", "--keep", "0.9"},
        {"remesh", "--edge", "9"},
        {"revise"},
        {"subdivide"},
        {"orient", "--choose", "2"},
        {"hollow", "--thickness", "2"},
        {"hollow", "--thickness", "2", "--wall", "voxel"},
        {"hollow", "--thickness", "2", "--drain", "10,10,0,1.5", "--drain", "50,10,0,1.5"},
        {"hollow", "--thickness", "2", "--cavity-only"},
        {"offset", "--distance", "-2", "--cell", "0.8"},
        {"wrap", "--tolerance", "1"},
        {"voxelize", "--size", "4"},
    };
    // A start of the tool takes its time in a build with sanitizers.
    for (std::size_t i = 0; i < operations.size(); i += test::kIsSanitized ? 3 : 1) {
        const std::vector<std::string>& operation = operations[i];
        std::vector<std::string> command = {operation[0], "pair.3mf", "-o", "out.3mf"};
        command.insert(command.end(), operation.begin() + 1, operation.end());
        const std::string told = testing::PrintToString(operation);
        const ToolResult result = run(command);
        ASSERT_EQ(result.status, 0) << told << result.err;
        const Package out = read_package("out.3mf");
        EXPECT_THAT(out.content.bodies, ElementsAre("left", "right")) << told << result.err;
        EXPECT_THAT(out.colours(0), ElementsAre(kRed)) << told;
        EXPECT_THAT(out.colours(1), ElementsAre(kGreen)) << told;
    }
}

TEST_F(Attributes, PiecesKeepTheObjectsThatTheyAreOf) {
    write_pair("pair.3mf", 40);
    const std::vector<std::vector<std::string>> divisions = {
        {"split"},
        {"cut"},
        {"cut", "--pegs", "2", "--peg-radius", "1"},
        {"cut", "--mirror"},
        {"decompose", "--size", "15"}};
    for (const std::vector<std::string>& division : divisions) {
        std::filesystem::remove_all(path("pieces"));
        std::vector<std::string> command = {division[0], "pair.3mf", "-o", "pieces"};
        command.insert(command.end(), division.begin() + 1, division.end());
        const ToolResult result = run(command);
        ASSERT_EQ(result.status, 0) << result.err;
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path("pieces"))) {
            const Package piece = read_package("pieces/" + entry.path().filename().string());
            ASSERT_EQ(piece.content.bodies.size(), 1U) << command[0];
            names.insert(piece.content.bodies[0]);
            EXPECT_THAT(piece.colours(0),
                        ElementsAre(piece.content.bodies[0] == "left" ? kRed : kGreen));
        }
        EXPECT_THAT(names, ElementsAre("left", "right")) << command[0];
    }
    // Boxes that share a wall are cut as one, which must not pass for sound objects.
    write_pair("joined.3mf", 20);
    const ToolResult joined = run({"cut", "joined.3mf", "-o", "pieces", "--normal", "0,0,1"});
    EXPECT_EQ(joined.status, 1);
    EXPECT_THAT(joined.err, HasSubstr("lie between several objects"));
}

TEST_F(Attributes, WhatIsLostIsSaid) {
    write_pair("pair.3mf", 40);
    const ToolResult merged =
        run({"offset", "pair.3mf", "-o", "out.3mf", "--distance", "12", "--cell", "2"});
    EXPECT_EQ(merged.status, 0) << merged.err;
    EXPECT_THAT(merged.err, HasSubstr("lie between several objects"));
    EXPECT_EQ(read_package("out.3mf").content.bodies.size(), 1U);
    write("textured.obj",
          "v 0 0 0\nv 9 0 0\nv 0 9 0\nv 0 0 9\nvt 0 0\nvt 1 0\nvt 0 1\nusemtl a\n"
          "f 1/1 3/3 2/2\nf 1/1 2/2 4/3\nf 1/1 4/3 3/2\nf 2/1 3/2 4/3\n");
    for (const std::vector<std::string>& operation :
         {std::vector<std::string>{"wrap", "--tolerance", "0.5"},
          {"voxelize", "--size", "1"},
          {"hollow", "--thickness", "0.6", "--cavity-only"}}) {
        std::vector<std::string> command = {operation[0], "textured.obj", "-o", "out.obj"};
        command.insert(command.end(), operation.begin() + 1, operation.end());
        EXPECT_THAT(run(command).err, HasSubstr("texture coordinates and their materials are not"))
            << operation[0];
    }
}

TEST_F(Attributes, SupportsAreAnObjectOfTheirOwn) {
    shapes::SoupVector table = shapes::box({0, 0, 0}, {4, 20, 30});
    shapes::append(table, shapes::box({0, 0, 30}, {30, 20, 34}));
    write_stl_file("table.stl", table);
    ASSERT_EQ(run({"support", "table.stl", "-o", "both.3mf", "--with-model"}).status, 0);
    EXPECT_THAT(read_package("both.3mf").content.bodies, ElementsAre("", "supports"));
    ASSERT_EQ(run({"support", "both.3mf", "-o", "alone.3mf"}).status, 0);
    EXPECT_THAT(read_package("alone.3mf").content.bodies, ElementsAre("supports"));
}

}  // namespace
}  // namespace povmesh
