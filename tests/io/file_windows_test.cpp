// What the file functions promise on every system, and what is peculiar to this one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "io/file.h"
#include "temporary_folder.h"

namespace povmesh {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

Status replace(const std::string& path, const std::string& content) {
    ReplacementFile file;
    Status status = file.open(path);
    // In two parts, so that a second write has to append.
    const std::size_t half = content.size() / 2;
    if (status.ok()) status = file.write(std::span(content).first(half));
    if (status.ok()) status = file.write(std::span(content).subspan(half));
    return status.ok() ? file.commit() : status;
}

std::string content(const std::string& path) {
    InputFile file;
    if (const Status status = file.open(path); !status.ok()) return status.text();
    const Array<char> bytes = file.read_all();
    return {bytes.begin(), bytes.end()};
}

TEST(InputFile, OpensRegularFilesOnly) {
    const TemporaryFolder folder;
    const struct {
        std::string path, reason;
    } cases[] = {{folder / "none", "No such file"},
                 {folder.path(), "is a folder"},
                 {"NUL", "is a device"},
                 {folder / "a\"b", "Not a name of a file"},
                 {"", "check the path"}};
    for (const auto& c : cases) {
        InputFile file;
        const Status status = file.open(c.path);
        EXPECT_EQ(status.code(), StatusCode::CannotRead) << c.path;
        EXPECT_THAT(status.text(), StartsWith(c.path + ": "));
        EXPECT_THAT(status.text(), HasSubstr(c.reason));
    }
}

TEST(ReplacementFile, ReplacesWholeOrNotAtAll) {
    const TemporaryFolder folder;
    for (const std::string name : {"part.stl",
                                   "Gr\xC3\xBC\xC3\x9F"
                                   "e \xF0\x9F\x98\x80.stl"}) {
        const std::string path = folder / name;
        ASSERT_TRUE(replace(path, "first\n").ok());
        ASSERT_TRUE(replace(path, "second, longer\n").ok());
        EXPECT_EQ(content(path), "second, longer\n") << "no line ends are translated";
        {
            ReplacementFile file;
            ASSERT_TRUE(file.open(path).ok());
            ASSERT_TRUE(file.write(std::string("half of the new")).ok());
            EXPECT_EQ(content(path), "second, longer\n");
        }
        EXPECT_EQ(content(path), "second, longer\n");
        InputFile reader;  // as any program that does not share it for removal
        ASSERT_TRUE(reader.open(path).ok());
        std::string part(6, '-');
        EXPECT_EQ(reader.read(8, part), 6U);
        EXPECT_EQ(part, "longer");
    }
    EXPECT_EQ(folder.entry_count(), 2);
}

TEST(ReplacementFile, RefusesWhatIsNoFileOrReadOnly) {
    const TemporaryFolder folder;
    const std::string locked = put_file(folder / "locked.stl", "old");
    ASSERT_NE(SetFileAttributesA(locked.c_str(), FILE_ATTRIBUTE_READONLY), 0);
    const struct {
        std::string path, reason;
    } cases[] = {{folder.path(), "is a folder"},
                 {folder / "none\\", "is a folder"},
                 {folder / "none/part.stl", "No such file"},
                 {locked, "check the permissions"},
                 {"", "check the path"}};
    for (const auto& c : cases) {
        const Status status = replace(c.path, "x");
        EXPECT_EQ(status.code(), StatusCode::CannotWrite) << c.path;
        EXPECT_THAT(status.text(), HasSubstr(c.reason)) << c.path;
    }
    EXPECT_EQ(content(locked), "old");
    ASSERT_NE(SetFileAttributesA(locked.c_str(), FILE_ATTRIBUTE_NORMAL), 0);
    EXPECT_EQ(folder.entry_count(), 1);
    EXPECT_TRUE(replace("NUL", "x").ok());
}

TEST(Extension, StandsInTheLastName) {
    EXPECT_EQ(extension_in("C:\\a.b\\part.STL"), ".STL");
    EXPECT_EQ(extension_in("C:part"), "");
    EXPECT_EQ(extension_in("a.b/.stl"), "");
}

}  // namespace
}  // namespace povmesh
