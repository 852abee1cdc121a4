#include "io/obj.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <clocale>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "helpers/shapes.h"
#include "mesh/build_f.h"
#include "mesh/compact.h"
#include "temporary_folder.h"

namespace povmesh {
namespace {

using testing::HasSubstr;

const std::string kPoints = "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\n";

struct Read {
    TriMesh mesh;
    ObjInfo info;
    Status status;
};

Read parse(const std::string& text, bool strict = false) {
    Read read;
    read.status = parse_obj(text, "part.obj", {strict}, read.mesh, read.info);
    return read;
}

TEST(ObjReader, TakesFacesAsTheLinesSay) {
    const std::string uv = "vt 0 0\nvt 1 0\nvt 0.5 0.25\n";
    struct Row {
        std::string text;
        std::size_t faces;
        std::vector<int> labels;
    };
    const Row rows[] = {
        {kPoints + "f 1 2 3\n", 1, {-1}},
        {kPoints + "f 1 2 3 4\n", 2, {-1, -1}},
        {kPoints + "f 1 2\nf 1\nf\n", 0, {}},
        {kPoints + uv + "f 1/1 2/2 3/3\nusemtl a\nf 1/1 2/2 3/3\nusemtl b\nf 1/1/7 2/2/ 3/3/9\n",
         3,
         {-1, 0, 1}},
        {kPoints + uv + "usemtl a\nf 1//3 2//3 3//3\nf 1/1 2/2 3\nf 1/ 2/ 3/\n", 3, {-1, -1, -1}},
        {kPoints + "f 1/1/1/1 2 3 4\n", 1, {-1}},  // a word of four pieces is skipped
        {kPoints + "f 1/1/1/ 2 3\n", 0, {}},
        {kPoints + "f 1 2 3 # 4\n#f 1 2 3\n", 1, {-1}},
        {kPoints + "f 1 2 \\\n3 \\\r\n4\n", 2, {-1, -1}},
        {kPoints + "f 1 2 3\\", 1, {-1}},
        {"# made in c:\\\n" + kPoints + "f 1 2 3 # c:\\\nf 1 2 4 \\\n # c:\\\nf 1 3 4\n",
         3,
         {-1, -1, -1}},  // a comment joins nothing
        {kPoints + "\tf\t1 \v2\f 3 \r\n o x\ng f 1 2 3\nff 1 2 3\n", 1, {-1}},
        {kPoints + "f 1x 2.9 3abc\n", 1, {-1}},  // leading digits
        {kPoints + "f 1 1 2\n", 0, {}},          // welds
        {"\xEF\xBB\xBFv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3", 1, {-1}},
    };
    for (const Row& row : rows) {
        const Read read = parse(row.text);
        EXPECT_EQ(read.mesh.faces.size(), row.faces) << row.text;
        EXPECT_EQ(read.status.ok(), row.faces > 0) << row.text;
        std::vector<int> labels;
        for (const Face& face : read.mesh.faces) labels.push_back(face.label);
        EXPECT_EQ(labels, row.labels) << row.text;
        EXPECT_TRUE(is_consistent(read.mesh));
    }
}

TEST(ObjReader, CornersCarryColoursAndTexture) {
    const Read read = parse(
        "v 0 0 0 1 0.5 0\nv 1 0 0 nan 0 0\nv 0 1 0 0.25 x 0\nv 1 1 1 2 -1 1e30\nv 5\n"
        "vt 0.5 0.25\nvt 1\nvt x\nusemtl m\nf 1/1 2/2 3/3\nf 1/1 4/9 2/2\nf 1/1 3/1 6/1\nv 0 0 9 0 "
        "0 0\n");
    ASSERT_EQ(read.mesh.faces.size(), 3);
    const auto colour = [&](std::size_t f, std::size_t c) {
        const auto& all = read.mesh.faces[f].colour;
        return std::array<int, 3>{all[3 * c], all[3 * c + 1], all[3 * c + 2]};
    };
    EXPECT_EQ(colour(0, 0), (std::array{255, 127, 0}));
    EXPECT_EQ(colour(0, 1), (std::array{255, 255, 255})) << "nan and what follows";
    EXPECT_EQ(colour(0, 2), (std::array{63, 255, 255}))
        << "an unreadable channel and those after it";
    EXPECT_EQ(colour(1, 1), (std::array{510 & 255, -255 & 255, 0}))
        << "modulo 256; 0 beyond 64 bits";
    EXPECT_EQ(colour(2, 2), (std::array{255, 255, 255})) << "a vertex read later";
    const auto uv = [&](std::size_t f, std::size_t c) {
        const auto& record =
            read.mesh.texture_coordinates[static_cast<std::size_t>(read.mesh.faces[f].uv[c])];
        return std::pair(record.u, record.v);
    };
    EXPECT_EQ(uv(0, 0), std::pair(0.5, 0.25));
    EXPECT_EQ(uv(0, 1), std::pair(1.0, 0.0));
    EXPECT_EQ(uv(0, 2), std::pair(0.0, 0.0));
    EXPECT_EQ(uv(1, 1), std::pair(0.0, 0.0)) << "a number that names nothing";
}

TEST(ObjReader, NumbersThatNameNothingAreNeverFollowed) {
    for (const char* face :
         {"f 1 2 9\n", "f 0 1 2\n", "f -1 -2 -3\n", "f 1 2 99999999999999999999\n"}) {
        const Read read = parse(kPoints + "f 1 2 3\n" + face);
        EXPECT_EQ(read.mesh.faces.size(), 1) << face << "is left out";
    }
    for (const char* face : {"f 1 2 3 9\n", "f 1 2 3 0\n", "f -4 -3 -2 -1\n", "f 1 2 3 x\n"}) {
        try {
            parse(kPoints + face);
            ADD_FAILURE() << face;
        } catch (const std::out_of_range& error) {
            EXPECT_STREQ(error.what(), "invalid vector<T> subscript");
        }
    }
    // Resolved: counted back from the last vertex before the line, later vertices are known.
    EXPECT_EQ(
        parse("v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nf -4 -3 -2 -1\nv 0 0 1\nf -1 -5 -4\n", true)
            .mesh.faces.size(),
        3);
    EXPECT_EQ(parse("f 1 2 3 4\n" + kPoints, true).mesh.faces.size(), 2);
    for (const char* face : {"f 1 2 9", "f 0 1 2", "f -6 -3 -2 -1", "f 1 2 x", "f 1/1 2/1 3/1"}) {
        const Status status = parse(kPoints + "#\n\\\n" + face + "\n", true).status;
        EXPECT_EQ(status.code(), StatusCode::BadFile) << face;
        EXPECT_THAT(status.text(), HasSubstr("part.obj: line 7: "))
            << face << ", the first of the joined lines";
    }
}

TEST(ObjReader, StrictReadingGuessesAtNoNumber) {
    const std::string sound = kPoints + "vt 0 0\nvt 1 0\nvt 0 1\nf 1 2 3\n";
    const struct {
        const char *line, *message;
    } errors[] = {
        {"v 10 10,5 10", "\"10,5\" is not a decimal number; write a point instead of the comma"},
        {"v 10 nan 10", "\"nan\" is not a decimal number"},
        {"v abc 10 10", "\"abc\" is not a decimal number"},
        {"v 1 2 3x", "\"3x\" is not a decimal number"},
        {"v 10 10", "\"v\" has fewer than three numbers"},
        {"v 10 10 # 10", "\"v\" has fewer than three numbers"},
        {"f 4 1 5 1.5", "\"1.5\" names no vertex"},
        {"f 1 2 +", "\"+\" names no vertex"},
        {"f 1 2 3/1x", "\"3/1x\" names no texture coordinate"},
        {"f 1 2 3 4/1/1/1", "\"4/1/1/1\" has more than three parts"},
    };
    for (const auto& c : errors) {
        const Status status = parse(sound + c.line + "\n", true).status;
        EXPECT_EQ(status.text().substr(0, 19), "part.obj: line 10: ") << c.line;
        EXPECT_THAT(status.text(), HasSubstr(c.message)) << c.line;
        EXPECT_TRUE(parse(sound + c.line + "\n").status.ok() || c.line[0] == 'f') << c.line;
    }
    const Read read = parse(sound +
                                "f 1 2\nf\nv 1 2 3 nan 0 0\nv 1 2 3 0,5 1 1\nv 1 2 3 1\n"
                                "v 1 2 3 # x\nvt x\nvt 1\nvt 1 # x\nvt 1 1 1\n",
                            true);
    EXPECT_TRUE(read.status.ok()) << read.status.text();
    EXPECT_EQ(read.info.short_faces.count, 2U);
    EXPECT_EQ(read.info.short_faces.first, 10U);
    EXPECT_EQ(read.info.bad_colours.count, 2U);
    EXPECT_EQ(read.info.bad_colours.first, 12U);
    EXPECT_EQ(read.info.bad_textures.count, 1U);
    EXPECT_EQ(read.info.bad_textures.first, 16U);
}

TEST(ObjReader, ALineWithoutEndIsAnErrorBeforeItFillsTheMemory) {
    const ByteSource source = {std::uint64_t{1} << 40, [](std::uint64_t, std::span<char> target) {
                                   std::fill(target.begin(), target.end(), '1');
                                   return target.size();
                               }};
    TriMesh mesh;
    ObjInfo info;
    EXPECT_THAT(read_obj(source, "part.obj", {true}, mesh, info).text(),
                HasSubstr("part.obj: line 1: longer than 256 MB"));
}

TEST(ObjReader, CoordinatesAreTheNearestFloats) {
    std::setlocale(LC_ALL, "de_DE.UTF-8");  // where it is installed, a comma stands for the point
    // Half way between two floats as a double, above it as a decimal number.
    const Read read = parse(
        "v 1.000000059604644775390625000000001 1e39 -1e-60\nv 2 +.5 0\nv 3 4 5e0\n"
        "f 1 2 3\n");
    std::setlocale(LC_ALL, "C");
    ASSERT_EQ(read.mesh.vertices.size(), 3);
    EXPECT_EQ(read.mesh.vertices[0].x, std::nextafter(1.0F, 2.0F));
    EXPECT_EQ(read.mesh.vertices[0].y, std::numeric_limits<float>::max());
    EXPECT_EQ(read.mesh.vertices[1].y, 0.5F);
}

TEST(ObjReader, LeavesOutCornersOnTheOneBefore) {
    const std::string text = "v 0 0 0\nv 0 0 5e-7\nv 0 0 1.2e-6\nv 1 0 0\nv 1 1 0\nv 0 1 0\n";
    EXPECT_EQ(parse(text + "f 1 2 4 5\n").mesh.faces.size(), 1) << "2 is left out";
    EXPECT_EQ(parse(text + "f 1 2 3 4 5\n").mesh.faces.size(), 2) << "3 is compared with 1";
    EXPECT_EQ(parse(text + "f 1 2 1 2\n").mesh.faces.size(), 0);
}

TEST(ObjWriter, WritesVerticesPerColourAndGroupsByLabel) {
    const TemporaryFolder folder;
    const std::vector<double> xyz = {0, 0, 0, 1, 0, 0, 0, 1, 0,  //
                                     1, 0, 0, 1, 1, 0, 0, 1, 0,  //
                                     0, 0, 0, 0, 1, 0, 0, 0, -1.5};
    std::vector<float> rgb(27, 1.0F);
    for (std::size_t i = 9; i < 18; ++i) rgb[i] = i % 3 == 0 ? 0.5F : 0.0F;
    const std::vector<double> uv = {9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 0, 0, 0.5, 1.0 / 3, 1, 1};
    const std::vector<std::int32_t> labels = {-1, -1, 2};
    TriMesh mesh;
    build_from_doubles(mesh, {3, xyz.data(), rgb.data(), uv.data(), labels.data()});
    ASSERT_TRUE(write_obj(mesh, folder / "a.obj").ok());
    EXPECT_EQ(content_of(folder / "a.obj"),
              "mtllib output.mtl\n"
              "vt 0.00000 0.00000\nvt 0.50000 0.33333\nvt 1.00000 1.00000\n"
              "v 0.00000 0.00000 0.00000 1.000 1.000 1.000\n"
              "v 0.00000 0.00000 0.00000\n"
              "v 1.00000 0.00000 0.00000 1.000 1.000 1.000\n"
              "v 1.00000 0.00000 0.00000 0.498 0.000 0.000\n"
              "v 0.00000 1.00000 0.00000 1.000 1.000 1.000\n"
              "v 0.00000 1.00000 0.00000 0.498 0.000 0.000\n"
              "v 0.00000 1.00000 0.00000\n"
              "v 1.00000 1.00000 0.00000 0.498 0.000 0.000\n"
              "v 0.00000 0.00000 -1.50000\n"
              "usemtl -1\nf 1 3 5\nf 4 8 6\n"
              "usemtl 2\nf 2/1 7/2 9/3\n");
}

TEST(ObjWriter, DecimalsAreThoseOfPrintf) {
    const TemporaryFolder folder;
    shapes::Random random(21);
    std::vector<float> values = {0.0F,  -0.0F,     0.000005F,   0.015625F, -0.000001F,   1e-45F,
                                 3e38F, 99999.99F, 123456.789F, 0.5F,      2097151.875F, -1e10F};
    while (values.size() < 3000) {
        const auto bits = static_cast<std::uint32_t>(random.next());
        const auto value = std::bit_cast<float>(bits);
        if (std::isfinite(value)) values.push_back(value);
        values.push_back(static_cast<float>(random.unit() * 200 - 100));
        // Exactly half way at the sixth decimal: k / 2^n with few digits.
        values.push_back(static_cast<float>(random.below(1 << 20)) / 64);
    }
    values.resize(2997);
    TriMesh mesh;
    for (std::size_t i = 0; i < values.size(); i += 3) {
        const auto v = static_cast<std::int32_t>(i / 3);
        mesh.vertices.push_back({values[i], values[i + 1], values[i + 2], v});
    }
    for (std::int32_t v = 0; v + 2 < 999; v += 3) {
        mesh.faces.push_back({{255, 255, 255, 255, 255, 255, 255, 255, 255},
                              0,
                              -1,
                              {v, v + 1, v + 2},
                              {-1, -1, -1}});
    }
    ASSERT_TRUE(write_obj(mesh, folder / "a.obj").ok());
    std::string expected = "mtllib output.mtl\n";
    for (std::size_t i = 0; i < values.size(); i += 3) {
        char line[256];
        std::snprintf(line, sizeof line, "v %.5f %.5f %.5f 1.000 1.000 1.000\n",
                      static_cast<double>(values[i]), static_cast<double>(values[i + 1]),
                      static_cast<double>(values[i + 2]));
        expected += line;
    }
    EXPECT_TRUE(content_of(folder / "a.obj").starts_with(expected));
}

using Corner = std::array<std::uint32_t, 8>;  // bits of x, y, z, colours, label, texture
std::multiset<std::array<Corner, 3>> faces_of(const TriMesh& mesh) {
    std::multiset<std::array<Corner, 3>> faces;
    for (const Face& face : mesh.faces) {
        std::array<Corner, 3> corners{};
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3f p = mesh.corner_position(face, c);
            corners[c] = {
                std::bit_cast<std::uint32_t>(p.x), std::bit_cast<std::uint32_t>(p.y),
                std::bit_cast<std::uint32_t>(p.z),
                static_cast<std::uint32_t>(face.colour[3 * c] << 16 | face.colour[3 * c + 1] << 8 |
                                           face.colour[3 * c + 2]),
                static_cast<std::uint32_t>(face.label)};
            if (face.label >= 0) {
                const auto& t = mesh.texture_coordinates[static_cast<std::size_t>(face.uv[c])];
                corners[c][5] = std::bit_cast<std::uint32_t>(static_cast<float>(t.u));
                corners[c][6] = std::bit_cast<std::uint32_t>(static_cast<float>(t.v));
            }
        }
        faces.insert(corners);
    }
    return faces;
}

TEST(ObjWriter, ExactFilesBringEverythingBack) {
    const TemporaryFolder folder;
    shapes::Random random(4);
    const shapes::SoupVector soup = shapes::rock(50, 3);
    const std::size_t count = soup.size() / 9;
    std::vector<float> rgb(count * 9);
    std::vector<float> uv(count * 6);
    std::vector<std::int32_t> labels(count);
    for (float& c : rgb) c = static_cast<float>(random.unit());
    for (float& c : uv) c = static_cast<float>(random.unit());
    for (std::int32_t& l : labels) l = static_cast<std::int32_t>(random.below(5)) * 2 - 1;
    TriMesh mesh;
    build_f(mesh, Soup{count, soup.data(), rgb.data(), uv.data(), labels.data()});
    ASSERT_TRUE(write_obj(mesh, folder / "a.obj", {true}).ok());
    TriMesh back;
    ObjInfo info;
    ASSERT_TRUE(read_obj(folder / "a.obj", {true}, back, info).ok());
    EXPECT_EQ(faces_of(back), faces_of(mesh));
    EXPECT_EQ(content_of(folder / "a.obj").find("mtllib"), std::string::npos);
}

TEST(ObjWriter, ExactTextureCoordinatesKeepTheirDigitsAndAreSharedAgain) {
    const TemporaryFolder folder;
    const std::string text =
        "vt 0.1 0.7\nvt 0.123456789012345 -1e-07\nvt 1 0\n"
        "v 0 0 0 1.00000 0.50197 0.00000\nv 1 0 0 1.00000 1.00000 1.00000\n"
        "v 0 1 0 1.00000 1.00000 1.00000\nv 1 1 0 1.00000 1.00000 1.00000\n"
        "usemtl 0\nf 1/1 2/2 3/3\nf 2/2 4/1 3/3\n";
    for (const bool is_rounded : {false, true}) {  // as operations leave it, and as it was read
        Read read = parse(text, true);
        if (is_rounded) compact(read.mesh);
        ASSERT_TRUE(write_obj(read.mesh, folder / "a.obj", {true}).ok());
        std::string expected = text;
        if (is_rounded) expected.replace(expected.find("0.123456789012345"), 17, "0.12345679");
        EXPECT_EQ(content_of(folder / "a.obj"), expected);
    }
}

TEST(BuildFromDoubles, WeldsBySixDecimalsWithinACell) {
    std::vector<double> twin = {0, 0, 0, 1, 0, 0, 0.3, 0.5000001, 0,  //
                                1, 0, 0, 0, 0, 0, 0.3, 0.5000002, 0,  //
                                0, 0, 0, 0, 0, 0, 1,   1,         1};
    TriMesh mesh;
    build_from_doubles(mesh, {3, twin.data()});
    EXPECT_EQ(mesh.faces.size(), 2) << "a triangle whose corners weld is dropped";
    EXPECT_EQ(mesh.vertices.size(), 4) << "the seventh decimal does not count";
    twin[16] = 0.50001;
    build_from_doubles(mesh, {3, twin.data()});
    EXPECT_EQ(mesh.vertices.size(), 5) << "the fifth does";
}

}  // namespace
}  // namespace povmesh
