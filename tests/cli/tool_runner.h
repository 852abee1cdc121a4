// Runs the built tool in a folder of its own and hands back all that it said.
#pragma once

#include <gtest/gtest.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace povmesh {

struct ToolResult {
    int status = -1;  // exit status; -1 when the tool did not end by itself
    std::string out;
    std::string err;
};

/// A path as the tool shows it where it joined folder and name: with the system's separator.
std::string shown_path(std::string_view path);

/// A folder that is there for one test; names are relative to it.
class ToolTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    std::string path(std::string_view name) const { return folder_ + "/" + std::string(name); }

    /// Runs the tool in the folder, its standard output going to `output` when one is named, its
    /// standard input coming from `input`.
    ToolResult run(const std::vector<std::string>& arguments, const std::string& output = {},
                   const std::string& input = "/dev/null") const;

    void write(std::string_view name, std::string_view content) const;
    std::string read(std::string_view name) const;

    /// A binary STL file with exactly these triangles, 9 floats each.
    void write_stl_file(std::string_view name, std::span<const float> soup) const;
    void write_ascii_stl_file(std::string_view name, std::span<const float> soup) const;

private:
    std::string folder_;
};

}  // namespace povmesh
