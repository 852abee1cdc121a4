#include "io/stl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "helpers/shapes.h"
#include "io/stl_ascii.h"
#include "mesh/build_f.h"
#include "temporary_folder.h"

namespace povmesh {
namespace {

using testing::HasSubstr;

constexpr float kMost = std::numeric_limits<float>::max();

std::vector<std::uint32_t> bits_of(std::span<const float> values) {
    std::vector<std::uint32_t> bits;
    for (const float v : values) bits.push_back(std::bit_cast<std::uint32_t>(v));
    return bits;
}

std::vector<float> live_soup(const TriMesh& mesh) {
    std::vector<float> soup;
    for (const Face& face : mesh.faces) {
        if (face.deleted != 0) continue;
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const Vec3f p = mesh.corner_position(face, corner);
            soup.insert(soup.end(), {p.x, p.y, p.z});
        }
    }
    return soup;
}

std::string binary_stl(std::span<const float> soup, std::uint32_t count,
                       const std::string& header = "") {
    std::string file = header;
    file.resize(80);
    file.append(reinterpret_cast<const char*>(&count), sizeof count);
    for (std::size_t i = 0; i + 9 <= soup.size(); i += 9) {
        file.append(12, '\x41');
        file.append(reinterpret_cast<const char*>(soup.data() + i), 36);
        file.append("at");
    }
    return file;
}

std::string ascii_stl(std::span<const float> soup) {
    std::string file = "solid test\n";
    for (std::size_t i = 0; i + 9 <= soup.size(); i += 9) {
        file += "facet normal 0 0 1\n outer loop\n";
        for (std::size_t k = i; k < i + 9; ++k) {
            char digits[32];
            const auto end = std::to_chars(digits, digits + sizeof digits, soup[k]).ptr;
            file += k % 3 == 0 ? "  vertex " : " ";
            file.append(digits, end);
            if (k % 3 == 2) file += "\n";
        }
        file += " endloop\nendfacet\n";
    }
    return file + "endsolid test\n";
}

struct Read {
    Status status;
    StlInfo info;
    TriMesh mesh;
};

Read read_bytes(const std::string& bytes, const StlReadOptions& options = {}) {
    RunLog log;
    RunContext run{{}, log};
    Read result;
    result.status = read_stl(bytes_of(bytes), "part.stl", options, run, result.mesh, result.info);
    return result;
}

TEST(Stl, BothFormsGiveTheSameBits) {
    std::vector<float> soup = shapes::rock(50, 4);
    soup[0] = -0.0F;
    soup[5] = 1e-42F;
    soup[10] = -kMost;
    const Read binary = read_bytes(binary_stl(soup, static_cast<std::uint32_t>(soup.size() / 9)));
    const Read ascii = read_bytes(ascii_stl(soup));
    for (const Read* read : {&binary, &ascii}) {
        EXPECT_TRUE(read->status.ok()) << read->status.text();
        EXPECT_EQ(read->info.triangles, soup.size() / 9);
        EXPECT_EQ(read->info.is_ascii, read == &ascii);
        EXPECT_EQ(bits_of(live_soup(read->mesh)), bits_of(soup));
        EXPECT_TRUE(is_consistent(read->mesh));
    }
}

TEST(Stl, WriteThenReadGivesTheLiveFaces) {
    const TemporaryFolder folder;
    const std::string path = folder / "out.stl";
    // More than one buffer of the writer and of the reader.
    TriMesh mesh = shapes::mesh_of(shapes::rock(50, 5));
    for (std::size_t f = 0; f < mesh.faces.size(); f += 3) mesh.faces[f].deleted = 1;
    const std::vector<float> soup = live_soup(mesh);
    mesh.faces[1].vertex[2] =
        static_cast<std::int32_t>(mesh.vertices.size());  // out of range: left out
    mesh.faces[4].vertex[0] = -1;
    ASSERT_TRUE(write_stl(mesh, path).ok());

    std::vector<float> kept(soup.begin() + 9, soup.begin() + 18);
    kept.insert(kept.end(), soup.begin() + 27, soup.end());
    const std::string file = content_of(path);
    ASSERT_EQ(file.size(), 84 + kept.size() / 9 * 50);
    EXPECT_EQ(file.substr(0, 80), "PovMesh" + std::string(73, '\0'));
    EXPECT_EQ(file.substr(84, 12), std::string(12, '\0'));
    EXPECT_EQ(file.substr(file.size() - 2), std::string(2, '\0'));
    RunLog log;
    RunContext run{{}, log};
    TriMesh back;
    ASSERT_TRUE(read_stl(path, run, back).ok());
    EXPECT_EQ(bits_of(live_soup(back)), bits_of(kept));

    ASSERT_TRUE(write_stl(TriMesh{}, path).ok());
    EXPECT_EQ(content_of(path).size(), 84U);
    EXPECT_EQ(write_stl(mesh, folder / "none/out.stl").code(), StatusCode::CannotWrite);
}

// Three corners (n, 0, 0), (n + 1, 0, 0), (n + 2, 0, 0) as the words of a facet.
std::string corners(int n, int count = 3) {
    std::string text;
    for (int i = 0; i < count; ++i) text += " vertex " + std::to_string(n + i) + " 0 0";
    return text;
}
std::string facet(int n, int count = 3) {
    return "facet" + corners(n, count) + " endfacet ";
}

TEST(AsciiStl, ReadsTheWordsOfFacetsAndNothingElse) {
    // Expected: the x of all corners that make triangles, and part of the message.
    const struct {
        const char* what;
        std::string text;
        std::vector<float> x;
        std::string message;
    } cases[] = {
        {"plain", "solid a " + facet(1) + facet(4) + "endsolid", {1, 2, 3, 4, 5, 6}, ""},
        {"no end", "solid\n" + facet(1), {1, 2, 3}, ""},
        {"byte-order mark", "\xEF\xBB\xBF" + facet(1), {1, 2, 3}, ""},
        {"lone carriage returns",
         "facet\rvertex\r1\r0\r0\rvertex\v2\t0\f0\r\nvertex 3 0 0\rendfacet",
         {1, 2, 3},
         ""},
        {"key words inside words",
         "xfacety my-vertex: 1 0 0 vertexvertex 2 0 0 vertex, 3 0 0 xendfacetx",
         {1, 2, 3},
         ""},
        {"outside a facet",
         corners(1) + facet(4) + corners(7) + facet(10),
         {4, 5, 6, 10, 11, 12},
         ""},
        {"endfacet begins one", "endfacet" + corners(1) + " endfacet", {1, 2, 3}, ""},
        {"facet and vertex in one word",
         "facetvertex" + corners(1) + " vertexendfacet " + facet(4),
         {1, 2, 3, 4, 5, 6},
         ""},
        {"facet inside a facet", "facet facet" + corners(1) + " endfacet", {1, 2, 3}, ""},
        {"name holds facet", "solid facet\n" + facet(1) + "endsolid facet", {1, 2, 3}, ""},
        {"upper case", "FACET" + corners(1) + " endfacet" + facet(4), {4, 5, 6}, ""},
        {"quad shifts",
         "solid\n" + facet(1, 4) + "\n" + facet(5, 3),
         {1, 2, 3, 4, 5, 6},
         "line 2: facet with 4 corners"},
        {"six corners", facet(1, 6), {1, 2, 3, 4, 5, 6}, ""},
        {"numbers",
         "facet vertex +1.5e0 0 0 vertex 2. 0 0 vertex .3e1 0 0 endfacet",
         {1.5F, 2, 3},
         ""},
        {"decimal commas",
         "facet vertex 1 0 0\nvertex 2,75 0 0 vertex 3 0,5 0 endfacet",
         {1, 2, 3},
         "line 2: \"2,75\" is not a decimal number; write a point instead of the comma"},
        {"text behind a number",
         "facet vertex 1.0d0 0 0" + corners(2, 2) + " endfacet",
         {1, 2, 3},
         "\"1.0d0\""},
        {"saturates",
         "facet vertex 1e39 0 0 vertex -1e999 0 0 vertex 1e-999 0 0",
         {kMost, -kMost, 0},
         "ends within"},
        {"word for a number",
         facet(1) + "facet\n vertex 4 0 ten vertex",
         {1, 2, 3},
         "line 2: \"ten\" is not"},
        {"nan", facet(1) + "facet vertex nan 0 0" + corners(4), {1, 2, 3}, "\"nan\" is not"},
        {"inf",
         facet(1) + "\r\r\nfacet vertex 4 -inf 0" + corners(4),
         {1, 2, 3},
         "line 3: \"-inf\" is not"},
        {"too few numbers",
         facet(1) + "facet vertex 4 0 vertex 5 0 0 endfacet",
         {1, 2, 3},
         "\"vertex\" is not"},
        {"ends in a corner",
         facet(1) + "\nfacet vertex 4 0",
         {1, 2, 3},
         "ends within the facet of line 2"},
        {"ends in a facet",
         facet(1) + "\nfacet" + corners(4),
         {1, 2, 3, 4, 5, 6},
         "ends within the facet of line 2"},
        {"ends in a quad", facet(1) + "facet" + corners(4, 2), {1, 2, 3}, "ends within"},
        {"control characters", facet(1) + "facet vertex \x1B[31m", {1, 2, 3}, "\"?[31m\" is not"},
    };
    for (const auto& c : cases) {
        const Read read = read_bytes(c.text);
        EXPECT_TRUE(read.info.is_ascii) << c.what;
        EXPECT_EQ(read.status.ok(), c.message.empty()) << c.what << ": " << read.status.text();
        EXPECT_THAT(read.status.text(), HasSubstr(c.message)) << c.what;
        // A word may lie across the border of the buffer in any way.
        for (const std::size_t buffer : {64U, 65U, 66U, 67U, 71U, 100U, 4096U}) {
            Array<float> got;
            parse_ascii_stl(bytes_of(c.text), false, got, buffer);
            std::vector<float> x;
            for (std::size_t i = 0; i < got.size(); i += 3) x.push_back(got[i]);
            EXPECT_EQ(x, c.x) << c.what << ", buffer " << buffer;
        }
    }
}

TEST(AsciiStl, TakesAnyCaseWhenAsked) {
    std::string text = "SOLID A\nFacet VERTEX 1 0 0 Vertex 2 0 0 my_vertEX 3 0 0 EndFacet";
    const Read any = read_bytes(text, {.any_case = true});
    EXPECT_TRUE(any.status.ok()) << any.status.text();
    EXPECT_EQ(any.info.triangles, 1U);
    EXPECT_EQ(live_soup(any.mesh), (std::vector<float>{1, 0, 0, 2, 0, 0, 3, 0, 0}));
    EXPECT_EQ(read_bytes(text).mesh.faces.size(), 0U);
}

TEST(AsciiStl, WordsLongerThanTheBufferCountOnce) {
    const std::string filler(300, 'c');
    const std::string zeros(300, '0');
    for (std::size_t shift = 0; shift < 70; ++shift) {
        // The key words of one long word count once, wherever the pieces end; a long number is what
        // its beginning gives.
        const std::string pad(shift, '-');
        std::ostringstream words;
        words << pad << filler << "facet" << filler << " " << filler << pad << "vertex" << filler
              << " 1" << pad << filler << " 1." << zeros << " ";
        const std::string start = words.str();
        Array<float> got;
        const std::string bad = start + "c0";
        EXPECT_EQ(parse_ascii_stl(bytes_of(bad), false, got, 64).bad_number, start.find(" 1") + 1);
        words << "2" << filler << corners(4, 2) << " endfacet";
        const std::string good = words.str();
        const AsciiStlResult result = parse_ascii_stl(bytes_of(good), false, got, 64);
        EXPECT_EQ(result.bad_facet, AsciiStlResult::kNone) << shift;
        ASSERT_EQ(got.size(), 9U) << shift;
        EXPECT_EQ(std::vector<float>(got.begin(), got.begin() + 3), (std::vector<float>{1, 1, 2}));
    }
}

TEST(Stl, NeverBelievesTheCount) {
    const std::vector<float> box = shapes::box({0, 0, 0}, {10, 10, 10});
    const std::string exact = binary_stl(box, 12, "solid facet vertex 1 2 3 vertex 1 2 3");
    const std::string huge = binary_stl(box, 0xFFFFFFFF);
    const std::string prose = "Thank you for downloading this model. It prints best at 0.2 mm.\n";
    const std::vector<float> points(18, 1.0F);
    const struct {
        const char* what;
        std::string bytes;
        std::size_t triangles;
        std::string message;  // empty for Ok
    } cases[] = {
        {"header like a text", exact, 12, ""},
        {"count beyond everything", huge, 12,
         ": truncated binary STL: header promises 4294967295 triangles (214748364834 bytes), file "
         "holds 684 bytes"},
        {"cut between records", exact.substr(0, 84 + 7 * 50), 7,
         "promises 12 triangles (684 bytes), file holds 434 bytes"},
        {"cut in the coordinates", exact.substr(0, 84 + 7 * 50 + 47), 7, "truncated binary STL"},
        {"cut in the attribute", exact.substr(0, 84 + 7 * 50 + 48), 8, "truncated binary STL"},
        {"only the last attribute lacks", exact.substr(0, exact.size() - 2), 12, ""},
        {"bytes behind", exact + "1234567", 12, ""},
        {"count too small", binary_stl(box, 7), 7, ""},
        {"count 0", binary_stl(box, 0), 0, "promises 0 triangles, but 600 bytes follow"},
        {"only a header", binary_stl({}, 0), 0, "holds no triangle"},
        {"only points", binary_stl(points, 2), 2, "no triangle with three different corners"},
        {"empty", "", 0, "empty file"},
        {"short", std::string(50, '\0'), 0,
         "not an STL file: 50 bytes, a binary STL has at least 84"},
        {"one byte short", binary_stl({}, 0).substr(0, 83), 0, "not an STL file: 83 bytes"},
        {"no facets", "solid empty\nendsolid empty\n", 0, "ASCII STL that holds no triangle"},
        {"prose", prose + prose + prose, 2, "not an STL file: text without facets"},
        {"short prose", prose, 0, "not an STL file: text without facets"},
        {"degenerate facet", "facet vertex 1 1 1 vertex 1 1 1 vertex 1 1 1 endfacet", 0,
         "no triangle with three different corners"},
    };
    for (const auto& c : cases) {
        const Read read = read_bytes(c.bytes);
        EXPECT_EQ(read.info.triangles, c.triangles) << c.what;
        EXPECT_EQ(read.status.ok(), c.message.empty()) << c.what << ": " << read.status.text();
        EXPECT_THAT(read.status.text(), HasSubstr(c.message)) << c.what;
        EXPECT_TRUE(is_consistent(read.mesh)) << c.what;

        RunLog log;
        RunContext run{{}, log};
        Array<float> soup;
        StlInfo info;
        const Status status = read_stl_soup(bytes_of(c.bytes), "part.stl", {}, run, soup, info);
        EXPECT_EQ(soup.size(), c.triangles * 9) << c.what;
        EXPECT_EQ(status.text(), read.status.text()) << c.what;
    }
    EXPECT_EQ(read_bytes(exact + "1234567").info.trailing_bytes, 7U);
    EXPECT_EQ(read_bytes(exact + "1234567").info.records_left_out, 0U);
    EXPECT_EQ(read_bytes(binary_stl(box, 7)).info.records_left_out, 5U);
    EXPECT_EQ(read_bytes(binary_stl(box, 7).substr(0, 684 - 2)).info.records_left_out, 5U);
    EXPECT_EQ(read_bytes(huge).info.promised_triangles, 0xFFFFFFFFU);
}

TEST(Stl, AStrictReaderOfAHugeFileLooksAtItsBeginningOnly) {
    std::uint64_t bytes_read = 0;
    const std::string prologue = binary_stl({}, 0xFFFFFFFF);
    const ByteSource source = {
        5400000084, [&](std::uint64_t offset, std::span<char> target) {
            for (std::size_t i = 0; i < target.size(); ++i) {
                target[i] = offset + i < prologue.size() ? prologue[offset + i] : '\0';
            }
            bytes_read += target.size();
            return target.size();
        }};
    RunLog log;
    RunContext run{{}, log};
    TriMesh mesh;
    StlInfo info;
    const Status status =
        read_stl(source, "a.stl", {.any_case = true, .strict = true}, run, mesh, info);
    EXPECT_EQ(status.code(), StatusCode::BadFile);
    EXPECT_THAT(status.text(), HasSubstr("promises 4294967295 triangles (214748364834 bytes), file "
                                         "holds 5400000084"));
    EXPECT_LT(bytes_read, 10000U);
}

TEST(Stl, SizeDecidesBeforeWords) {
    // A text of which bytes 80 to 83 happen to spell the count that its size asks for.
    std::string text = facet(1);
    text.resize(84 + 50 * 3, ' ');
    const std::uint32_t count = 3;
    std::memcpy(text.data() + 80, &count, sizeof count);
    const Read read = read_bytes(text);
    EXPECT_FALSE(read.info.is_ascii);
    EXPECT_EQ(read.info.triangles, 3U);
    // A header with words of a text, in a file that is cut: the words win, and the message tells.
    const std::string cut =
        binary_stl(shapes::box({0, 0, 0}, {1, 1, 1}), 12, facet(1)).substr(0, 300);
    const Read words = read_bytes(cut);
    EXPECT_TRUE(words.info.is_ascii);
    EXPECT_THAT(words.status.text(), HasSubstr("truncated binary STL: header promises 12"));
    const std::string longer = binary_stl(shapes::box({0, 0, 0}, {1, 1, 1}), 12, facet(1)) + "x";
    EXPECT_TRUE(read_bytes(longer).info.is_ascii);
    EXPECT_THAT(read_bytes(longer).status.text(), HasSubstr("words of an ASCII STL in its header"));
}

TEST(Stl, AFileThatDoesNotOpenChangesNothing) {
    std::uint32_t cell = 77;
    RunLog log;
    RunContext run{Progress(&cell), log};
    TriMesh mesh = shapes::mesh_of(shapes::box({0, 0, 0}, {1, 1, 1}));
    StlInfo info;
    const TemporaryFolder folder;
    for (const std::string& path : {folder / "none.stl", folder.path()}) {
        EXPECT_EQ(read_stl(path, {}, run, mesh, info).code(), StatusCode::CannotRead);
        EXPECT_EQ(cell, 77U);
        EXPECT_EQ(mesh.faces.size(), 12U);
    }
    for (const std::string& bytes :
         {binary_stl(shapes::box({0, 0, 0}, {1, 1, 1}), 12), facet(1), std::string()}) {
        cell = 0;
        std::vector<std::uint32_t> while_reading;
        ByteSource source = bytes_of(bytes);
        source.read = [&, read = source.read](std::uint64_t offset, std::span<char> target) {
            while_reading.push_back(cell);
            return read(offset, target);
        };
        (void)read_stl(source, "part.stl", {}, run, mesh, info);
        EXPECT_THAT(while_reading, testing::Each(5U));
        EXPECT_FALSE(while_reading.empty());
        EXPECT_EQ(cell, 48U);
    }
}

TEST(Stl, AFileThatShrinksWhileItIsReadIsTruncated) {
    const std::string bytes = binary_stl(shapes::box({0, 0, 0}, {1, 1, 1}), 12);
    ByteSource source = bytes_of(std::span(bytes).first(84 + 5 * 50));
    source.size = bytes.size();
    RunLog log;
    RunContext run{{}, log};
    Read result;
    const Status status = read_stl(source, "part.stl", {}, run, result.mesh, result.info);
    EXPECT_EQ(status.code(), StatusCode::BadFile);
    EXPECT_EQ(result.mesh.faces.size(), 5U);
}

// Real and broken files; the figures were found by an independent reader, which takes any case.
TEST(Stl, ReadsTheFilesOfTheModelFolder) {
    const char* folder = std::getenv("POVMESH_MODELS");
    if (folder == nullptr) GTEST_SKIP() << "POVMESH_MODELS names no folder with models";
    const struct {
        const char* name;
        std::size_t triangles;
        const char* message;
    } cases[] = {
        {"benchy", 225154, nullptr},
        {"gearwheel_ascii", 2444, nullptr},
        {"multibody_ascii", 32, nullptr},
        {"broken_pkg_wrongHeader_bin", 12, nullptr},
        {"broken_pkg_incorrectFaceCounter_bin", 4, "binary STL"},
        {"broken_pkg_notANumberNormal_ascii", 4, nullptr},
        {"broken_pkg_missingEndsolid_ascii", 4, nullptr},
        {"broken_pkg_20mmbox_nonstandard", 12, nullptr},
        {"broken_pkg_fourVertices_ascii", 4, "facet with 4 corners"},
        {"broken_ascii_cr_only", 12, nullptr},
        {"broken_ascii_crlf_no_end", 12, nullptr},
        {"broken_ascii_exponents", 12, nullptr},
        {"broken_ascii_mixed_case", 12, nullptr},
        {"broken_ascii_no_name", 12, nullptr},
        {"broken_ascii_odd_spacing", 12, nullptr},
        {"broken_ascii_one_line", 12, nullptr},
        {"broken_ascii_upper", 12, nullptr},
        {"broken_ascii_utf8_bom", 12, nullptr},
        {"broken_ascii_name_has_facet", 12, "facet with 4 corners"},
        {"broken_ascii_truncated_number", 6, "ends within"},
        {"broken_ascii_two_vertices", 11, "facet with 2 corners"},
        {"broken_count_huge", 12, "truncated"},
        {"broken_count_too_small", 7, nullptr},
        {"broken_count_zero", 0, "promises 0"},
        {"broken_empty", 0, "empty"},
        {"broken_header_only", 0, "no triangle"},
        {"broken_50_bytes", 0, "not an STL"},
        {"broken_83_bytes", 0, "not an STL"},
        {"broken_garbage", 98, "binary STL"},
        {"broken_prose", 3, "not an STL"},
        {"broken_obj_named_stl", 2, "not an STL"},
        {"broken_solid_header_binary", 12, nullptr},
        {"broken_solid_header_truncated", 1, "truncated"},
        {"broken_trailing_bytes", 12, nullptr},
        {"broken_truncated_at_record", 1000, "truncated"},
        {"broken_truncated_mid_record", 1000, "truncated"},
    };
    for (const auto& c : cases) {
        RunLog log;
        RunContext run{{}, log};
        Read read;
        const std::string path = std::string(folder) + "/" + c.name + ".stl";
        read.status = read_stl(path, {.any_case = true}, run, read.mesh, read.info);
        EXPECT_EQ(read.info.triangles, c.triangles) << c.name;
        EXPECT_EQ(read.status.ok(), c.message == nullptr) << c.name << ": " << read.status.text();
        EXPECT_THAT(read.status.text(), HasSubstr(c.message == nullptr ? "" : c.message)) << c.name;
        Read strict;
        strict.status =
            read_stl(path, {.any_case = true, .strict = true}, run, strict.mesh, strict.info);
        EXPECT_EQ(strict.status.text(), read.status.text());
    }
}

}  // namespace
}  // namespace povmesh
