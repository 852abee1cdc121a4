// A host that is killed while a file is being repaired loses neither the old file nor the new one.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "calls.h"
#include "helpers/shapes.h"
#include "povmesh/povmesh.h"

namespace povmesh {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// A stone of 81,920 triangles of which every 160th is missing.
std::string stone() {
    const shapes::SoupVector whole = shapes::rock(50, 6);
    shapes::SoupVector soup;
    for (std::size_t t = 0; t < whole.size() / 9; ++t) {
        if (t % 160 == 0) continue;
        const auto first = whole.begin() + static_cast<std::ptrdiff_t>(t * 9);
        soup.insert(soup.end(), first, first + 9);
    }
    return stl_bytes(soup, static_cast<std::uint32_t>(soup.size() / 9));
}

// Runs in a process of its own, from its first thread on: threads do not survive a fork, so this
// program itself must never call the library.
class RepairingChild {
public:
    explicit RepairingChild(const std::string& path) : id_(fork()) {
        if (id_ == 0) {
            modelRepair64(path.c_str());
            _exit(0);
        }
    }
    bool is_running() {
        if (is_running_ && waitpid(id_, nullptr, WNOHANG) == id_) is_running_ = false;
        return is_running_;
    }
    void wait() {
        if (is_running_) waitpid(id_, nullptr, 0);
        is_running_ = false;
    }
    void kill() {
        if (is_running_) ::kill(id_, SIGKILL);
        wait();
    }

private:
    pid_t id_;
    bool is_running_ = true;
};

// Bytes of the unfinished file beside the target; -1 when there is none.
std::int64_t unfinished_bytes(const std::string& folder, const std::string& target) {
    std::error_code error;  // it may go while we look
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.path() == target) continue;
        const auto size = fs::file_size(entry.path(), error);
        if (!error) return static_cast<std::int64_t>(size);
    }
    return -1;
}

int trial_count() {
    const char* text = std::getenv("POVMESH_INTERRUPTS");
    return text == nullptr ? 40 : std::atoi(text);
}

TEST(Interrupted, RepairLeavesTheOldFileOrTheNewOne) {
    const std::string before = stone();
    const TestFolder folder;
    const std::string work = folder / "work";
    fs::create_directory(work);
    const std::string path = work + "/stone.stl";

    write_file(path, before);
    const auto start = Clock::now();
    RepairingChild(path).wait();
    const std::chrono::duration<double> whole_time = Clock::now() - start;
    const std::string after = file_bytes(path);
    ASSERT_EQ(unfinished_bytes(work, path), -1);
    ASSERT_EQ(after.size(), before.size() + std::size_t{512} * 50) << "a triangle for each hole";

    // A third of the children die at any moment, a third soon after they have begun to write, and a
    // third when all is written and only the replacing is left.
    shapes::Random random(20240611);
    int old_files = 0;
    int new_files = 0;
    int cut_short = 0;  // with the unfinished file left in the folder
    for (int trial = 0; trial < trial_count(); ++trial) {
        write_file(path, before);
        const double share = random.unit();
        RepairingChild child(path);
        if (trial % 3 == 0) {
            std::this_thread::sleep_for(whole_time * share * 1.1);
        } else {
            const std::int64_t enough =
                trial % 3 == 1 ? 0 : static_cast<std::int64_t>(after.size());
            while (child.is_running() && unfinished_bytes(work, path) < enough) {
            }
            std::this_thread::sleep_for(std::chrono::duration<double>(share * share * 0.02));
        }
        child.kill();
        const std::string content = file_bytes(path);
        ASSERT_TRUE(content == before || content == after)
            << "trial " << trial << ": " << content.size() << " bytes";
        ++(content == before ? old_files : new_files);
        for (const auto& entry : fs::directory_iterator(work)) {
            if (entry.path() == path) continue;
            ++cut_short;
            fs::remove(entry.path());
        }
    }
    std::printf("%d old, %d new, %d killed while writing\n", old_files, new_files, cut_short);
    EXPECT_GT(cut_short, 0) << "no child was hit while it wrote";
}

}  // namespace
}  // namespace povmesh
