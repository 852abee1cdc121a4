#include "io/ply.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "helpers/shapes.h"
#include "mesh/build_f.h"
#include "temporary_folder.h"

namespace povmesh {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

struct Read {
    TriMesh mesh;
    PlyInfo info;
    Status status;
};

Read parse(const std::string& bytes) {
    Read read;
    read.status =
        read_ply(bytes_of(std::span<const char>(bytes)), "part.ply", read.mesh, read.info);
    return read;
}

// A header of x, y, z and corners around other properties, and rows to go with it.
std::string header(const std::string& form, std::size_t faces,
                   const std::string& corners = "property list uchar int vertex_indices\n") {
    return "ply\nformat " + form + " 1.0\ncomment a ply\nelement vertex 4\nproperty float x\n" +
           "property float y\nproperty float z\nelement face " + std::to_string(faces) + "\n" +
           corners + "end_header\n";
}
const std::string kPoints = "0 0 0\n1 0 0\n0 1 0\n0 0 1\n";

class Bytes {
public:
    explicit Bytes(bool is_big) : is_big_(is_big) {}

    template <typename T>
    Bytes& add(T value) {
        std::array<char, sizeof(T)> bytes;
        std::memcpy(bytes.data(), &value, sizeof value);
        if (is_big_) std::reverse(bytes.begin(), bytes.end());
        text.append(bytes.data(), bytes.size());
        return *this;
    }

    std::string text;

private:
    bool is_big_;
};

// Corner by corner what a file can hold, in face order.
using Corner = std::array<std::uint64_t, 7>;
std::vector<Corner> corners_of(const TriMesh& mesh) {
    std::vector<Corner> corners;
    for (const Face& face : mesh.faces) {
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3f p = mesh.corner_position(face, c);
            Corner corner = {std::bit_cast<std::uint32_t>(p.x), std::bit_cast<std::uint32_t>(p.y),
                             std::bit_cast<std::uint32_t>(p.z),
                             std::uint64_t{face.colour[3 * c]} << 16 |
                                 std::uint64_t{face.colour[3 * c + 1]} << 8 |
                                 face.colour[3 * c + 2],
                             static_cast<std::uint64_t>(face.label)};
            if (face.uv[c] >= 0) {
                const auto& t = mesh.texture_coordinates[static_cast<std::size_t>(face.uv[c])];
                corner[5] = std::bit_cast<std::uint64_t>(t.u);
                corner[6] = std::bit_cast<std::uint64_t>(t.v);
            }
            corners.push_back(corner);
        }
    }
    return corners;
}

// An element that is skipped by its size: nothing of it is read.
TEST(PlyReader, RowsBehindFourGigabytesAreFound) {
    constexpr std::uint64_t kSkipped = 5000000000;
    const std::string head =
        "ply\nformat binary_little_endian 1.0\nelement scan 5000000000\nproperty uchar echo\n"
        "element vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
        "element face 1\nproperty list uchar int vertex_indices\nend_header\n";
    std::string rows(3 * 12 + 13, '\0');
    const float corners[] = {0, 0, 0, 7, 0, 0, 0, 7, 0};
    std::memcpy(rows.data(), corners, sizeof corners);
    rows[36] = 3;
    rows[41] = 1;
    rows[45] = 2;
    const auto byte_at = [&](std::uint64_t offset) {
        if (offset < head.size()) return head[offset];
        const std::uint64_t row = offset - head.size() - kSkipped;  // huge before them
        return row < rows.size() ? rows[row] : '\0';
    };
    const ByteSource source = {
        head.size() + kSkipped + rows.size(), [&](std::uint64_t offset, std::span<char> target) {
            const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(
                target.size(), head.size() + kSkipped + rows.size() - offset));
            for (std::size_t i = 0; i < count; ++i) target[i] = byte_at(offset + i);
            return count;
        }};
    TriMesh mesh;
    PlyInfo info;
    const Status status = read_ply(source, "part.ply", mesh, info);
    ASSERT_TRUE(status.ok()) << status.text();
    ASSERT_EQ(mesh.faces.size(), 1U);
    EXPECT_EQ(mesh.corner_position(mesh.faces[0], 1).x, 7);
    rows[45] = 3;
    const std::string place = std::to_string(head.size() + kSkipped + 45);
    EXPECT_THAT(read_ply(source, "part.ply", mesh, info).text(), HasSubstr("byte " + place));
}

TEST(PlyReader, AllFormsSayTheSameAndUnknownPropertiesAreSkippedBySize) {
    const std::string properties =
        "element camera 1\nproperty list ushort double lens\nproperty char kind\n"
        "element vertex 4\nproperty double quality\nproperty float x\nproperty double y\n"
        "property float z\nproperty list uchar short near\nproperty uchar red\n"
        "property uchar green\nproperty uchar blue\n"
        "element face 2\nproperty int flags\nproperty list uchar uint vertex_index\n"
        "property list int float rest\nelement edge 1\nproperty int a\nend_header\n";
    const std::string text = "ply\nformat ascii 1.0\n" + properties +
                             "2 1e9 -3.5 7\n"
                             "9 0 0 0 0 255 0 0\n9 2 0 0 3 -1 2 -3 0 255 0\n\n"
                             "9 2 2 0.5 1 4 0 0 255\nnan 0 2 0 0 9 8 7\n"
                             "5 4 0 1 2 3 0\n5 3 0 1 2 2 0.25 -8\n77\n";
    const Read ascii = parse(text);
    ASSERT_TRUE(ascii.status.ok()) << ascii.status.text();
    EXPECT_EQ(ascii.info.triangles, 3U);
    EXPECT_THAT(ascii.info.left_out, ElementsAre("element camera", "vertex quality", "vertex near",
                                                 "face flags", "face rest", "element edge"));
    for (const bool is_big : {false, true}) {
        Bytes rows(is_big);
        rows.add<std::uint16_t>(2).add(1e9).add(-3.5).add<std::int8_t>(7);
        const float points[4][3] = {{0, 0, 0}, {2, 0, 0}, {2, 2, 0.5F}, {0, 2, 0}};
        const std::uint8_t colours[4][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {9, 8, 7}};
        for (std::size_t v = 0; v < 4; ++v) {
            rows.add(9.0).add(points[v][0]).add(double{points[v][1]}).add(points[v][2]);
            rows.add(static_cast<std::uint8_t>(v));
            for (std::size_t i = 0; i < v; ++i) rows.add<std::int16_t>(-1);
            for (const std::uint8_t c : colours[v]) rows.add(c);
        }
        rows.add(5).add<std::uint8_t>(4);
        for (std::uint32_t i = 0; i < 4; ++i) rows.add(i);
        rows.add(0).add(5).add<std::uint8_t>(3).add(0).add(1).add(2);
        rows.add(2).add(0.25F).add(-8.0F).add(77);
        const std::string name = is_big ? "binary_big_endian" : "binary_little_endian";
        for (const char* end : {"\n", "\r\n"}) {
            std::string head = "ply\nformat ";
            head.append(name).append(" 1.0\n").append(properties);
            for (std::size_t i = 0; (i = head.find('\n', i)) != std::string::npos;
                 i += strlen(end)) {
                head.replace(i, 1, end);
            }
            const Read binary = parse(head + rows.text);
            ASSERT_TRUE(binary.status.ok()) << binary.status.text();
            EXPECT_EQ(binary.info.trailing_bytes, 0U);
            EXPECT_EQ(corners_of(binary.mesh), corners_of(ascii.mesh)) << name;
        }
    }
    EXPECT_EQ(corners_of(ascii.mesh)[8][3], 0x0000FFU) << "the colour of the last corner";
}

TEST(PlyReader, TakesTexturesColoursOfFacesAndStrips) {
    const Read faces = parse(
        "ply\nformat ascii 1.0\ncomment TextureFile a b.png\nelement vertex 4\nproperty float x\n"
        "property float y\nproperty float z\nelement face 3\n"
        "property list uchar int vertex_indices\nproperty list uchar float texcoord\n"
        "property int texnumber\nproperty float red\nproperty float green\nproperty float blue\n"
        "end_header\n" +
        kPoints + "4 0 1 2 3 8 0 0 1 0 1 1 0 1 5 1 0.5 0\n3 0 1 3 0 -1 0 0 0\n3 1 2 3 0 7 1 1 1\n");
    ASSERT_TRUE(faces.status.ok()) << faces.status.text();
    ASSERT_EQ(faces.mesh.faces.size(), 4U);
    EXPECT_THAT(faces.info.texture_files, ElementsAre("a b.png"));
    EXPECT_EQ(faces.mesh.faces[1].label, 5);
    EXPECT_GE(faces.mesh.faces[1].uv[2], 0);
    EXPECT_EQ(faces.mesh.faces[0].colour[7], 128) << "the nearest byte";
    EXPECT_EQ(faces.mesh.faces[2].label, -1);
    EXPECT_EQ(faces.mesh.faces[3].label, 7);
    EXPECT_EQ(faces.mesh.faces[3].uv[0], -1) << "a label without a texture";

    const Read strips = parse(
        "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\n"
        "property float z\nelement tristrips 1\nproperty list int int "
        "vertex_indices\nend_header\n" +
        kPoints + "8 0 1 2 3 -1 3 2 1\n");
    ASSERT_EQ(strips.mesh.faces.size(), 3U);
    EXPECT_EQ(strips.mesh.faces[1].vertex, (std::array{2, 1, 3})) << "wound as its neighbour";
}

TEST(PlyReader, WhatIsDamagedIsAnErrorWithItsPlace) {
    const std::string ascii = header("ascii", 1) + kPoints;
    const std::string binary = header("binary_little_endian", 1);
    const std::string points(48, '\0');
    const auto list = [](std::uint8_t count, std::int32_t last) {
        return Bytes(false).add(count).add(0).add(1).add(last).text;
    };
    const std::string at = "byte " + std::to_string(binary.size() + 48);
    const std::string at_last = "byte " + std::to_string(binary.size() + 48 + 9);
    const std::string in_face = ", in row 1 of the 1 of element face";
    const std::pair<std::string, std::string> cases[] = {
        {"", "not a PLY file"},
        {"solid\n", "not a PLY file"},
        {"ply\nformat text 1.0\n", "line 2: not a format"},
        {"ply\nformat ascii 1.0\nelement vertex -4\n", "line 3: an element needs"},
        {"ply\nformat ascii 1.0\nelement vertex 4\nproperty word x\n",
         "line 4: \"word\" is no type"},
        {"ply\nformat ascii 1.0\nelement vertex 4\nend_header\n", "no x, y or z"},
        {header("ascii", 1, "property list float int vertex_indices\n"), "line 9: the count of a"},
        {header("ascii", 1, "property int corners\n") + kPoints, "no list vertex_indices"},
        {ascii, "truncated PLY: ends after line 14" + in_face},
        {ascii + "4 0 1 2\n", "line 15: fewer numbers"},
        {ascii + "3 0 1 2 3\n", "line 15: more numbers"},
        {ascii + "-3 0 1 2\n", "line 15: the count"},
        {ascii + "3 0 1 4\n", "line 15: a corner names vertex 4; the file has 4"},
        {ascii + "3 0 1 1.5\n", "line 15: a corner names"},
        {ascii + "3 0 1 x\n", "line 15: \"x\" is not a decimal number"},
        {header("ascii", 1) + "0 0,5 0\n",
         "line 11: \"0,5\" is not a decimal number; write a point"},
        {binary + points, "truncated PLY: ends at " + at + in_face},
        {binary + points + list(255, 2), at + ": list that counts 255 items, and 12 bytes follow"},
        {header("binary_little_endian", 1, "property list int int vertex_indices\n") + points +
             Bytes(false).add(-1).add(0).text,
         ": list that counts -1 items"},
        {binary + points + list(3, 4), at_last + ": a corner names vertex 4"},
        {binary + points + list(3, -1), at_last + ": a corner names vertex -1"},
        {header("ascii", 0) + kPoints, "cloud of points"},
    };
    for (const auto& [bytes, message] : cases) {
        const Read read = parse(bytes);
        EXPECT_EQ(read.status.code(), StatusCode::BadFile) << message;
        EXPECT_THAT(read.status.text(), HasSubstr("part.ply: ")) << message;
        EXPECT_THAT(read.status.text(), HasSubstr(message));
    }
    // A count that nothing bears out allocates nothing and ends with the file.
    const Read huge = parse(header("binary_little_endian", 4000000000U) + points + list(3, 2));
    EXPECT_THAT(huge.status.text(), HasSubstr("row 2 of the 4000000000"));
}

TEST(PlyReader, EveryShorterFileIsAnErrorAndNoneACrash) {
    std::string rows =
        std::string(48, '\0') + Bytes(false).add<std::uint8_t>(3).add(0).add(1).add(2).text;
    const float one = 1;
    std::memcpy(rows.data() + 12, &one, 4);
    std::memcpy(rows.data() + 28, &one, 4);
    for (const std::string& whole :
         {header("ascii", 1) + kPoints + "3 0 1 2", header("binary_little_endian", 1) + rows}) {
        EXPECT_TRUE(parse(whole).status.ok());
        for (std::size_t size = 0; size < whole.size(); ++size) {
            EXPECT_EQ(parse(whole.substr(0, size)).status.code(), StatusCode::BadFile) << size;
        }
    }
}

TEST(PlyWriter, BringsBackEveryBit) {
    const TemporaryFolder folder;
    shapes::Random random(5);
    const shapes::SoupVector soup = shapes::rock(50, 3);
    const std::size_t count = soup.size() / 9;
    std::vector<float> rgb(count * 9);
    std::vector<float> uv(count * 6);
    std::vector<std::int32_t> labels(count);
    for (float& c : uv) c = static_cast<float>(random.unit());
    for (std::int32_t& l : labels) l = static_cast<std::int32_t>(random.below(4)) - 1;
    for (const int step : {0, 1, 2, 3}) {  // plain; a colour a face; a colour a corner; textured
        for (std::size_t i = 0; i < rgb.size(); ++i) {
            rgb[i] = step == 0                ? 1.0F
                     : step == 1 && i % 9 > 2 ? rgb[i - 3]
                                              : static_cast<float>(random.below(3)) / 2;
        }
        TriMesh mesh;
        build_f(mesh, Soup{count, soup.data(), rgb.data(), step == 3 ? uv.data() : nullptr,
                           step >= 2 ? labels.data() : nullptr});
        if (step == 3) mesh.texture_coordinates[0].u = 0.1;  // no float
        ASSERT_TRUE(write_ply(mesh, folder / "a.ply").ok());
        Read back;
        ASSERT_TRUE(read_ply(folder / "a.ply", back.mesh, back.info).ok());
        EXPECT_EQ(corners_of(back.mesh), corners_of(mesh)) << step;
        EXPECT_EQ(back.mesh.vertices.size(), mesh.vertices.size());
        EXPECT_EQ(back.info.left_out.size() + back.info.trailing_bytes, 0U);
        EXPECT_EQ(back.info.vertices == mesh.vertices.size(), step < 2) << "none is split";
    }
}

}  // namespace
}  // namespace povmesh
