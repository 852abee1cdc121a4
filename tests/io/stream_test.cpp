#include "io/stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "helpers/shapes.h"
#include "temporary_folder.h"

namespace povmesh {
namespace {

using testing::HasSubstr;

std::string packed(const std::string& content, const TemporaryFolder& folder) {
    ReplacementFile file;
    EXPECT_TRUE(file.open(folder / "a.gz", false).ok());
    GzipSink sink(file);
    // In pieces of many sizes, the empty one too.
    for (std::size_t at = 0, size = 0; at < content.size(); at += size, size = size * 3 + 1) {
        EXPECT_TRUE(
            sink.write(std::span(content).subspan(at, std::min(size, content.size() - at))).ok());
    }
    EXPECT_TRUE(sink.commit().ok());
    return content_of(folder / "a.gz");
}

TEST(Gzip, BringsBackWhatWasPackedAndNoticesEveryMissingByte) {
    const TemporaryFolder folder;
    shapes::Random random(8);
    std::string content(3000000, 'x');
    for (std::size_t i = 0; i < content.size(); i += 3)
        content[i] = static_cast<char>(random.next());
    const std::string bytes = packed(content, folder);
    InputFile file;
    ASSERT_TRUE(unpack_gzip(folder / "a.gz", file).ok());
    const Array<char> back = file.read_all();
    EXPECT_EQ(std::string(back.begin(), back.end()), content);
    EXPECT_EQ(packed(content, folder), bytes) << "no time stands in it";
    const std::string small = packed("a small text", folder);
    for (std::size_t size = 1; size < small.size(); ++size) {
        InputFile cut;
        const Status status = unpack_gzip(put_file(folder / "cut.gz", small.substr(0, size)), cut);
        if (size < 2) continue;  // no mark of gzip: taken as it is
        EXPECT_EQ(status.code(), StatusCode::BadFile) << size;
        EXPECT_THAT(status.text(), HasSubstr("cut.gz: truncated gzip file")) << size;
    }
    std::string damaged = bytes;
    damaged[bytes.size() / 2] ^= 0x55;
    InputFile bad;
    EXPECT_THAT(unpack_gzip(put_file(folder / "bad.gz", damaged), bad).text(),
                HasSubstr("bad.gz: damaged gzip file"));
}

TEST(Gzip, WhatGrowsWithoutEndIsRefused) {
    const TemporaryFolder folder;
    ReplacementFile file;
    ASSERT_TRUE(file.open(folder / "bomb.gz", false).ok());
    GzipSink sink(file);
    const std::string zeros(std::size_t{1} << 24, '\0');
    for (int i = 0; i < 18; ++i) ASSERT_TRUE(sink.write(zeros).ok());
    ASSERT_TRUE(sink.commit().ok());
    InputFile content;
    EXPECT_THAT(unpack_gzip(folder / "bomb.gz", content).text(), HasSubstr("100 times its size"));
}

}  // namespace
}  // namespace povmesh
