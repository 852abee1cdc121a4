#include "io/file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>

#include "temporary_folder.h"

namespace povmesh {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

Status replace(const std::string& path, const std::string& content) {
    ReplacementFile file;
    Status status = file.open(path);
    if (!status.ok()) return status;
    // In two parts, so that a second write has to append.
    const std::size_t half = content.size() / 2;
    status = file.write(std::span(content).first(half));
    if (!status.ok()) return status;
    status = file.write(std::span(content).subspan(half));
    if (!status.ok()) return status;
    return file.commit();
}

mode_t mode_of(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

ino_t inode_of(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

// Runs checks in a child process and says what went wrong there: for what would change this
// process.
std::string in_child(const std::function<std::string()>& check) {
    int ends[2];
    if (pipe(ends) != 0) return "no pipe";
    const pid_t child = fork();
    if (child == 0) {
        const std::string problem = check();
        const bool is_sent = write(ends[1], problem.data(), problem.size()) >= 0;
        _exit(is_sent ? 0 : 1);
    }
    close(ends[1]);
    std::string problem(4096, '\0');
    const ssize_t length = read(ends[0], problem.data(), problem.size());
    close(ends[0]);
    int state = 0;
    waitpid(child, &state, 0);
    if (!WIFEXITED(state) || WEXITSTATUS(state) != 0) return "child failed";
    return problem.substr(0, static_cast<std::size_t>(length));
}

constexpr uid_t kNobody = 65534;

// The administrator may write everything, so that permissions only show to somebody else.
bool become_nobody() {
    return geteuid() != 0 || (setgid(kNobody) == 0 && setuid(kNobody) == 0);
}

void give_to_nobody(const std::string& path) {
    ASSERT_TRUE(geteuid() != 0 || chown(path.c_str(), kNobody, kNobody) == 0);
}

TEST(InputFile, OpensRegularFilesOnly) {
    const TemporaryFolder folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0666), 0);
    put_file(folder / "file", "content");
    const struct {
        std::string path, reason;
    } cases[] = {{folder / "none", "No such file"},
                 {folder / "file/x", "Not a directory"},
                 {folder.path(), "is a folder"},
                 {folder / "pipe", "is a pipe"},  // without a writer, and must not wait for one
                 {"/dev/null", "is a device"},
                 {"", "No such file"}};
    for (const auto& c : cases) {
        InputFile file;
        const Status status = file.open(c.path);
        EXPECT_EQ(status.code(), StatusCode::CannotRead) << c.path;
        EXPECT_THAT(status.text(), StartsWith(c.path + ": "));
        EXPECT_THAT(status.text(), HasSubstr(c.reason));
    }
    InputFile file;
    ASSERT_TRUE(file.open(folder / "file").ok());
    EXPECT_EQ(file.size(), 7U);
    std::string part(5, '-');
    EXPECT_EQ(file.read(4, part), 3U);
    EXPECT_EQ(part, "ent--");
    EXPECT_EQ(file.read(100, part), 0U);
    const Array<char> all = file.read_all();
    EXPECT_EQ(std::string(all.begin(), all.end()), "content");
}

TEST(InputFile, SaysWhatMayNotBeRead) {
    const TemporaryFolder folder;
    give_to_nobody(folder.path());
    const std::string path = put_file(folder / "secret\n", "x");
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    EXPECT_EQ(in_child([&]() -> std::string {
                  if (!become_nobody()) return "cannot become nobody";
                  InputFile file;
                  return file.open(path).text();
              }),
              folder / "secret?: cannot be read: Permission denied; check the permissions");
}

TEST(ReplacementFile, CreatesAndReplaces) {
    const TemporaryFolder folder;
    const mode_t mask = umask(0);
    umask(mask);
    const std::string fresh = folder / "new.stl";
    ASSERT_TRUE(replace(fresh, "first").ok());
    EXPECT_EQ(content_of(fresh), "first");
    EXPECT_EQ(mode_of(fresh), 0666 & ~mask);

    for (const mode_t mode : {0600U, 0640U, 0666U, 0755U}) {
        ASSERT_EQ(chmod(fresh.c_str(), mode), 0);
        const ino_t before = inode_of(fresh);
        ASSERT_TRUE(replace(fresh, "second").ok());
        EXPECT_EQ(content_of(fresh), "second");
        EXPECT_EQ(mode_of(fresh), mode);
        EXPECT_NE(inode_of(fresh), before);  // by a rename
    }
    EXPECT_EQ(folder.entry_count(), 1);
}

TEST(ReplacementFile, WithoutCommitNothingChanges) {
    const TemporaryFolder folder;
    const std::string path = put_file(folder / "part.stl", "old");
    {
        ReplacementFile file;
        ASSERT_TRUE(file.open(path).ok());
        ASSERT_TRUE(file.write(std::string("half of the new")).ok());
        EXPECT_EQ(content_of(path), "old");
        EXPECT_EQ(folder.entry_count(), 2);
    }
    EXPECT_EQ(content_of(path), "old");
    EXPECT_EQ(folder.entry_count(), 1);
}

TEST(ReplacementFile, FollowsLinks) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "real");
    put_file(folder / "real/old.stl", "old");
    fs::create_symlink("real/old.stl", folder / "link");
    fs::create_symlink(folder / "link", folder / "second link");
    fs::create_symlink("real/new.stl", folder / "dangling");
    fs::create_symlink("loop", folder / "loop");

    ASSERT_TRUE(replace(folder / "second link", "new").ok());
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_TRUE(fs::is_symlink(folder / "second link"));
    EXPECT_EQ(content_of(folder / "real/old.stl"), "new");

    ASSERT_TRUE(replace(folder / "dangling", "made").ok());
    EXPECT_TRUE(fs::is_symlink(folder / "dangling"));
    EXPECT_EQ(content_of(folder / "real/new.stl"), "made");

    EXPECT_EQ(replace(folder / "loop", "x").code(), StatusCode::CannotWrite);
}

TEST(ReplacementFile, RefusesWhatIsNoFile) {
    const TemporaryFolder folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0666), 0);
    const struct {
        std::string path, reason;
    } cases[] = {{folder.path(), "is a folder"},
                 {folder / "none/", "is a folder"},
                 {folder / "none/part.stl", "No such file"},
                 {folder / "pipe", "No such device or address"},  // has no reader
                 {folder / std::string(300, 'n'), "name too long"},
                 {"", "No such file"}};
    for (const auto& c : cases) {
        const Status status = replace(c.path, "x");
        EXPECT_EQ(status.code(), StatusCode::CannotWrite) << c.path;
        EXPECT_THAT(status.text(), StartsWith(c.path + ": "));
        EXPECT_THAT(status.text(), HasSubstr(c.reason));
    }
    EXPECT_EQ(folder.entry_count(), 1);
}

TEST(ReplacementFile, WritesDevicesAndPipesInPlace) {
    EXPECT_TRUE(replace("/dev/null", "x").ok());
    const Status full = replace("/dev/full", "x");
    EXPECT_EQ(full.code(), StatusCode::CannotWrite);
    EXPECT_THAT(full.text(), HasSubstr("No space left"));

    const TemporaryFolder folder;
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0666), 0);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    EXPECT_TRUE(replace(pipe, "through").ok());
    std::string got(20, '\0');
    EXPECT_EQ(read(reader, got.data(), got.size()), 7);
    EXPECT_EQ(got.substr(0, 7), "through");
    close(reader);
    EXPECT_EQ(folder.entry_count(), 1);
}

TEST(ReplacementFile, RespectsPermissions) {
    const TemporaryFolder folder;
    give_to_nobody(folder.path());
    const std::string read_only = put_file(folder / "read_only.stl", "old");
    ASSERT_EQ(chmod(read_only.c_str(), 0444), 0);
    fs::create_directory(folder / "closed");
    const std::string in_place = put_file(folder / "closed/part.stl", "old and long");
    ASSERT_EQ(chmod(in_place.c_str(), 0666), 0);
    ASSERT_EQ(chmod((folder / "closed").c_str(), 0555), 0);
    const ino_t inode = inode_of(in_place);

    EXPECT_EQ(in_child([&]() -> std::string {
                  if (!become_nobody()) return "cannot become nobody";
                  if (replace(read_only, "new").code() != StatusCode::CannotWrite) return "written";
                  if (replace(folder / "closed/new.stl", "new").ok()) return "created";
                  return replace(in_place, "new").text();
              }),
              "");
    EXPECT_EQ(content_of(read_only), "old");
    EXPECT_EQ(content_of(in_place), "new");  // nothing of the longer old content is left
    EXPECT_EQ(inode_of(in_place), inode);
    EXPECT_EQ(folder.entry_count(), 2);
    ASSERT_EQ(chmod((folder / "closed").c_str(), 0755), 0);
}

// In a sticky folder nobody may put a file in the place of another owner's, but may write that.
TEST(ReplacementFile, WritesInPlaceWhatItMayNotReplace) {
    if (geteuid() != 0) GTEST_SKIP() << "only the administrator can make a file of another owner";
    const TemporaryFolder folder;
    const std::string path = put_file(folder / "part.stl", "old and longer than the new");
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 01777), 0);
    const ino_t inode = inode_of(path);
    const auto as_nobody = [&](rlim_t most_bytes, const std::string& content) {
        return in_child([&]() -> std::string {
            const rlimit limit{most_bytes, most_bytes};
            if (signal(SIGXFSZ, SIG_IGN) == SIG_ERR || !become_nobody()) return "no set-up";
            ReplacementFile file;
            if (!file.open(path).ok() || !file.write(content).ok()) return "not written";
            if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return "no limit";
            return file.commit().text();
        });
    };
    EXPECT_EQ(as_nobody(RLIM_INFINITY, "new"), "");
    EXPECT_EQ(content_of(path), "new");
    EXPECT_EQ(inode_of(path), inode);
    EXPECT_EQ(folder.entry_count(), 1);
    // When the disk is full half-way, the new content is still there under its other name.
    const std::string message = as_nobody(2, "newer");
    EXPECT_THAT(message, HasSubstr("; its new content is in "));
    EXPECT_EQ(content_of(message.substr(message.rfind(' ') + 1)), "newer");
}

TEST(ReplacementFile, FullDiskLeavesTheOldFile) {
    const TemporaryFolder folder;
    const std::string path = put_file(folder / "part.stl", "old");
    EXPECT_EQ(
        in_child([&]() -> std::string {
            const rlimit limit{1000, 1000};
            if (signal(SIGXFSZ, SIG_IGN) == SIG_ERR) return "no signal";
            if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return "no limit";
            ReplacementFile file;
            if (!file.open(path).ok()) return "does not open";
            const Status first = file.write(std::string(5000, 'x'));
            // What has failed stays failed.
            if (file.write(std::string("y")).text() != first.text()) return "second write";
            return file.commit().text();
        }),
        path +
            ": cannot write the file: File too large; free some space or write to another place");
    EXPECT_EQ(content_of(path), "old");
    EXPECT_EQ(folder.entry_count(), 1);
}

}  // namespace
}  // namespace povmesh
