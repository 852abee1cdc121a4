// The order of the rooms: no folder of src/ includes a header of a folder above it or beside it.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kInclude = "#include \"";

const fs::path& sources() {
    static const fs::path folder = POVMESH_SOURCE_FOLDER;
    return folder;
}

std::vector<std::string> lines_of(const fs::path& file) {
    std::vector<std::string> lines;
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

/// The room's place in the order that CONTRIBUTING.md tells; rooms beside one another share it.
std::map<std::string, int> read_order() {
    std::map<std::string, int> order;
    for (const std::string& line : lines_of(sources() / "CONTRIBUTING.md")) {
        if (!line.starts_with("    base < ")) continue;
        int level = 0;
        std::istringstream words(line);
        for (std::string word; words >> word;) {
            std::erase_if(word, [](char c) { return c == '{' || c == '}' || c == ','; });
            if (word == "<") {
                ++level;
            } else {
                order[word] = level;
            }
        }
    }
    return order;
}

std::optional<int> layer_of(const std::string& folder) {
    static const std::map<std::string, int> order = read_order();
    const auto found = order.find(folder);
    if (found == order.end()) return {};
    return found->second;
}

/// What is wrong with an include of `path` in a file of `folder`; empty when nothing is.
std::string complaint(const std::string& folder, const std::string& path) {
    const std::string other = path.substr(0, path.find('/'));
    if (other == folder) return {};
    if (other == "povmesh")
        return folder == "api" || folder == "context" ? "" : "the exported interface is for hosts";
    if (!layer_of(other)) return "no layer: \"" + other + "\"";
    return *layer_of(other) < *layer_of(folder) ? "" : "\"" + other + "\" is not below";
}

TEST(Layering, IncludesOnlyGoDown) {
    int include_count = 0;
    for (const char* root : {"src", "cli"}) {
        for (const auto& entry : fs::recursive_directory_iterator(sources() / root)) {
            const fs::path& file = entry.path();
            if (file.extension() != ".cpp" && file.extension() != ".h") continue;
            const fs::path inside = fs::relative(file, sources());
            const std::string folder =
                std::string(root) == "cli" ? "cli" : (++inside.begin())->string();
            ASSERT_TRUE(layer_of(folder)) << inside;
            for (const std::string& line : lines_of(file)) {
                if (!line.starts_with(kInclude)) continue;
                ++include_count;
                const std::string path =
                    line.substr(kInclude.size(), line.find('"', kInclude.size()) - kInclude.size());
                const bool is_own = fs::exists(file.parent_path() / path) ||
                                    (folder == "cli" && fs::exists(sources() / "cli" / path));
                EXPECT_EQ(is_own ? "" : complaint(folder, path), "") << inside << ": " << line;
            }
        }
    }
    EXPECT_GT(include_count, 50) << "are these the sources?";
}

// What is listed for readers and for CMake is what is there, in the same order.
TEST(Layering, NoRoomIsMissingFromTheMaps) {
    int last = 0;
    std::set<std::string> built;
    for (const std::string& line : lines_of(sources() / "src/CMakeLists.txt")) {
        constexpr std::string_view kAdd = "add_subdirectory(";
        if (!line.starts_with(kAdd)) continue;
        const std::string room = line.substr(kAdd.size(), line.find(')') - kAdd.size());
        ASSERT_TRUE(layer_of(room)) << room;
        EXPECT_GE(*layer_of(room), last) << room;
        last = *layer_of(room);
        built.insert(room);
    }
    std::set<std::string> listed;
    for (const std::string& line : lines_of(sources() / "CONTRIBUTING.md")) {
        if (line.starts_with("src/")) listed.insert(line.substr(4, line.find('/', 4) - 4));
    }
    std::set<std::string> there;
    for (const auto& entry : fs::directory_iterator(sources() / "src")) {
        if (entry.is_directory()) there.insert(entry.path().filename().string());
    }
    EXPECT_EQ(built, there);
    EXPECT_EQ(listed, there);
}

TEST(Layering, TheRuleItselfTellsUpFromDown) {
    EXPECT_EQ(complaint("mesh", "base/vec.h"), "");
    EXPECT_EQ(complaint("api", "povmesh/povmesh.h"), "");
    for (const auto& [folder, path] :
         std::map<std::string, std::string>{{"base", "mesh/tri_mesh.h"},
                                            {"io", "repair/detect.h"},
                                            {"mesh", "povmesh/povmesh.h"},
                                            {"cli", "api/job.h"},
                                            {"repair", "nowhere/x.h"}}) {
        EXPECT_NE(complaint(folder, path), "") << folder << " " << path;
    }
}

}  // namespace
