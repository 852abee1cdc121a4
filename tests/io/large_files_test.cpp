// Files of more than 4 GB, beyond which 32 bits do not reach. They take half a minute and up to 4
// GB of memory, and run when POVMESH_LARGE_FILES is set.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "helpers/memory_sink.h"
#include "helpers/shapes.h"
#include "io/obj.h"
#include "io/stl.h"
#include "io/stl_binary.h"
#include "io/three_mf.h"
#include "io/zip_package.h"

namespace povmesh {
namespace {

using testing::HasSubstr;

constexpr std::uint64_t kFill = 4500000000;

class LargeFiles : public testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("POVMESH_LARGE_FILES") == nullptr) {
            GTEST_SKIP() << "POVMESH_LARGE_FILES is not set";
        }
    }
};

/// A file that has one text between two others again and again, without being held anywhere.
class Repeated {
public:
    Repeated(std::string begin, std::string middle, std::string end)
        : begin_(std::move(begin)),
          middle_(std::move(middle)),
          end_(std::move(end)),
          filled_(kFill / middle_.size() * middle_.size()) {}

    ByteSource source() const {
        return {begin_.size() + filled_ + end_.size(),
                [this](std::uint64_t offset, std::span<char> target) {
                    std::size_t done = 0;
                    while (done < target.size()) {
                        const std::size_t count = piece(offset + done, target.subspan(done));
                        if (count == 0) break;
                        done += count;
                    }
                    return done;
                }};
    }

private:
    std::size_t piece(std::uint64_t offset, std::span<char> target) const {
        if (offset < begin_.size()) return copy(begin_, offset, target);
        offset -= begin_.size();
        if (offset < filled_) return copy(middle_, offset % middle_.size(), target);
        return copy(end_, std::min<std::uint64_t>(offset - filled_, end_.size()), target);
    }

    static std::size_t copy(const std::string& text, std::uint64_t from, std::span<char> target) {
        return text.copy(target.data(), target.size(), static_cast<std::size_t>(from));
    }

    const std::string begin_, middle_, end_;
    const std::uint64_t filled_;
};

std::string comment_lines() {
    std::string text;
    while (text.size() < 1000000) text += "#" + std::string(5000, ' ') + "\n";
    return text;
}

TEST_F(LargeFiles, FacesAndFaultsOfAnObjFileAreFoundBehindFourGigabytes) {
    const std::string points = "v 0 0 0\nv 7 0 0\n";
    const std::string end = "v 0 7 0\nf 1 2 3\n";
    const Repeated file(points, comment_lines(), end);
    TriMesh mesh;
    ObjInfo info;
    const Status status = read_obj(file.source(), "large.obj", {true}, mesh, info);
    ASSERT_TRUE(status.ok()) << status.text();
    ASSERT_EQ(mesh.faces.size(), 1U);
    EXPECT_EQ(mesh.corner_position(mesh.faces[0], 2).y, 7);
    const Repeated damaged(points, comment_lines(), end + "f 1 2 4\n");
    EXPECT_THAT(read_obj(damaged.source(), "large.obj", {true}, mesh, info).text(),
                HasSubstr("line 899605: \"4\" names no vertex"));
}

TEST_F(LargeFiles, FacetsOfAnAsciiStlFileAreFoundBehindFourGigabytes) {
    const std::string facet =
        "facet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 7 0 0\nvertex 0 7 0\nendloop\n"
        "endfacet\n";
    const Repeated file("solid large\n" + facet, std::string(1000000, '\n'), facet + "endsolid\n");
    RunLog log;
    RunContext run{{}, log};
    Array<float> corners;
    StlInfo info;
    const Status status =
        read_stl_soup(file.source(), "large.stl", {.strict = true}, run, corners, info);
    ASSERT_TRUE(status.ok()) << status.text();
    ASSERT_EQ(corners.size(), 18U);
    EXPECT_EQ(corners[12], 7);
}

TEST_F(LargeFiles, RecordsOfABinaryStlFileAreFoundBehindFourGigabytes) {
    std::string record(kStlRecordBytes, '\0');
    const float corners[] = {0, 0, 0, 7, 0, 0, 0, 7, 0};
    std::memcpy(&record[kStlCornersOffset], corners, sizeof corners);
    const std::string nothing(20000 * kStlRecordBytes, '\0');
    const auto count = static_cast<std::uint32_t>(kFill / nothing.size() * 20000 + 1);
    std::string prologue(kStlPrologueBytes, '\0');
    std::memcpy(&prologue[80], &count, sizeof count);
    const Repeated file(prologue, nothing, record);
    RunLog log;
    RunContext run{{}, log};
    Array<float> read;
    StlInfo info;
    const Status status =
        read_stl_soup(file.source(), "large.stl", {.strict = true}, run, read, info);
    ASSERT_TRUE(status.ok()) << status.text();
    ASSERT_EQ(read.size(), std::size_t{9} * count);
    EXPECT_EQ(read[read.size() - 6], 7);
}

// Text that packs about as well as that of models.
std::string comment(std::uint64_t seed, std::size_t size) {
    shapes::Random random(seed);
    std::string text = "<!--";
    while (text.size() < size) {
        text += std::to_string(random.next()) + " and some words that stand in every line of it\n";
    }
    return text + "-->\n";
}

TEST_F(LargeFiles, APartOfAPackageMayHaveMoreThanFourGigabytes) {
    const std::string head =
        "<model xmlns=\"http://schemas.microsoft.com/3dmanufacturing/core/2015/02\"><resources>\n";
    const std::string tail =
        "<object id=\"1\"><mesh><vertices><vertex x=\"0\" y=\"0\" z=\"0\"/><vertex x=\"7\" "
        "y=\"0\" z=\"0\"/><vertex x=\"0\" y=\"7\" z=\"0\"/></vertices><triangles><triangle "
        "v1=\"0\" v2=\"1\" v3=\"2\"/></triangles></mesh></object></resources><build>"
        "<item objectid=\"1\"/></build></model>";
    constexpr std::size_t kPart = 1000000;
    constexpr std::size_t kParts = kFill / kPart;
    MemorySink sink;
    {
        const std::string filling = comment(7, kPart);
        PackageWriter writer;
        writer.add("3D/3dmodel.model", kParts + 2, [&](std::size_t part, Array<char>& text) {
            const std::string& from = part == 0 ? head : part == kParts + 1 ? tail : filling;
            text.assign(from.begin(), from.end());
        });
        ASSERT_TRUE(writer.finish(sink, "large.3mf").ok());
    }
    TriMesh mesh;
    ThreeMfContent content;
    ThreeMfInfo info;
    const Status status = read_three_mf(bytes_of(sink.bytes), "large.3mf", mesh, content, info);
    ASSERT_TRUE(status.ok()) << status.text();
    ASSERT_EQ(mesh.faces.size(), 1U);
    EXPECT_EQ(mesh.corner_position(mesh.faces[0], 1).x, 7);
}

}  // namespace
}  // namespace povmesh
