// The order of the layers: no folder of src/ includes a header of a folder above it or beside it.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kInclude = "#include \"";

std::optional<int> layer_of(const std::string& folder) {
    static const std::map<std::string, int> layers = {
        {"base", 0},   {"run", 1},      {"mesh", 2},    {"spatial", 3}, {"slice", 3},
        {"io", 4},     {"repair", 4},   {"remesh", 4},  {"cut", 4},     {"voxel", 4},
        {"design", 5}, {"analysis", 5}, {"support", 5}, {"api", 6},     {"cli", 6},
    };
    const auto found = layers.find(folder);
    if (found == layers.end()) return {};
    return found->second;
}

/// What is wrong with an include of `path` in a file of `folder`; empty when nothing is.
std::string complaint(const std::string& folder, const std::string& path) {
    const std::string other = path.substr(0, path.find('/'));
    if (other == folder) return {};
    if (other == "povmesh") return folder == "api" ? "" : "the exported interface is for hosts";
    if (!layer_of(other)) return "no layer: \"" + other + "\"";
    return *layer_of(other) < *layer_of(folder) ? "" : "\"" + other + "\" is not below";
}

TEST(Layering, IncludesOnlyGoDown) {
    const fs::path sources = POVMESH_SOURCE_FOLDER;
    int include_count = 0;
    for (const char* root : {"src", "cli"}) {
        for (const auto& entry : fs::recursive_directory_iterator(sources / root)) {
            const fs::path& file = entry.path();
            if (file.extension() != ".cpp" && file.extension() != ".h") continue;
            const fs::path inside = fs::relative(file, sources);
            const std::string folder =
                std::string(root) == "cli" ? "cli" : (++inside.begin())->string();
            ASSERT_TRUE(layer_of(folder)) << inside;
            std::ifstream lines(file);
            for (std::string line; std::getline(lines, line);) {
                if (!line.starts_with(kInclude)) continue;
                ++include_count;
                const std::string path =
                    line.substr(kInclude.size(), line.find('"', kInclude.size()) - kInclude.size());
                const bool is_own = fs::exists(file.parent_path() / path) ||
                                    (folder == "cli" && fs::exists(sources / "cli" / path));
                EXPECT_EQ(is_own ? "" : complaint(folder, path), "") << inside << ": " << line;
            }
        }
    }
    EXPECT_GT(include_count, 50) << "are these the sources?";
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
