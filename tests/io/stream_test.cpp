#include "io/stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>

#if !defined(_WIN32)
#include <unistd.h>
#endif

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

#if !defined(_WIN32)
// A pipe has no offsets to be asked for; a model is no bomb because of that.
TEST(Gzip, MoreThanTheHarmlessComesThroughAPipeUnlessItGrowsTooFar) {
    const TemporaryFolder folder;
    shapes::Random random(9);
    std::string sound(std::size_t{1} << 20, 'x');
    for (std::size_t i = 0; i < sound.size(); i += 50) sound[i] = static_cast<char>(random.next());
    const std::string zeros(std::size_t{1} << 20, '\0');
    const int own = dup(STDIN_FILENO);
    for (const std::string& content : {sound, zeros}) {
        const std::string bytes = packed(content, folder);
        std::array<int, 2> ends{};
        ASSERT_EQ(pipe(ends.data()), 0);
        ASSERT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
        close(ends[0]);
        std::thread writer([&] {
            for (int i = 0; i < 260; ++i) {  // one behind the other: a file of 260 members
                std::size_t done = 0;
                while (done < bytes.size()) {
                    const ssize_t count = write(ends[1], &bytes[done], bytes.size() - done);
                    if (count <= 0) break;
                    done += static_cast<std::size_t>(count);
                }
            }
            close(ends[1]);
        });
        InputFile file;
        const Status status = read_standard_input("standard input", file);
        // What was not read is, so that the writer ends.
        std::array<char, 4096> rest{};
        while (read(STDIN_FILENO, rest.data(), rest.size()) > 0) continue;
        writer.join();
        if (content == sound) {
            ASSERT_TRUE(status.ok()) << status.text();
            EXPECT_EQ(file.size(), 260 * content.size());
            std::string last(content.size(), '\0');
            EXPECT_EQ(file.read(259 * content.size(), last), content.size());
            EXPECT_TRUE(last == content);
        } else {
            EXPECT_THAT(status.text(), HasSubstr("100 times its size"));
        }
    }
    dup2(own, STDIN_FILENO);
    close(own);
}
#endif

}  // namespace
}  // namespace povmesh
