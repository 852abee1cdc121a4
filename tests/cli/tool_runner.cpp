#include "tool_runner.h"

#if !defined(_WIN32)
#include <sys/wait.h>
#endif

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

namespace povmesh {
namespace {

// Our words are UTF-8; narrow ones would be in the system's code page.
std::filesystem::path in_utf8(const std::string& text) {
    return {std::u8string(text.begin(), text.end())};
}

#if defined(_WIN32)
// As the runtime of the tool takes it apart: a backslash is one unless a quotation mark follows.
std::string quoted(const std::string& word) {
    std::string text = "\"";
    std::size_t backslashes = 0;
    for (const char c : word + "\"") {
        if (c == '"') text.append(backslashes, '\\');
        backslashes = c == '\\' ? backslashes + 1 : 0;
        if (c == '"') text += '\\';
        text += c;
    }
    text.erase(text.size() - 2, 1);  // the mark at the end stands for itself
    return text;
}

// The shell takes off the outermost quotation marks, and knows devices by other names.
int run_command(const std::string& folder, std::string command) {
    for (std::size_t at = 0; (at = command.find("/dev/null")) != std::string::npos;) {
        command.replace(at, std::size("/dev/null") - 1, "NUL");
    }
    const std::string line = "\"cd /d " + quoted(folder) + " && " + command + "\"";
    return _wsystem(in_utf8(line).c_str());
}
#else
std::string quoted(const std::string& word) {
    std::string text = "'";
    for (const char c : word) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return text + "'";
}

int run_command(const std::string& folder, const std::string& command) {
    // NOLINTNEXTLINE(cert-env33-c): our own words
    const int status = std::system(("cd " + quoted(folder) + " && " + command).c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
#endif

void append_number(std::string& bytes, std::uint32_t number) {
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(number >> shift & 255U);
}

}  // namespace

std::string shown_path(std::string_view path) {
    return std::filesystem::path(path).make_preferred().string();
}

void ToolTest::SetUp() {
    // Two builds may run the same test at the same time.
    folder_ = testing::TempDir() + "povmesh_cli_" + std::to_string(std::random_device{}());
    ASSERT_TRUE(std::filesystem::create_directory(folder_));
}

void ToolTest::TearDown() {
    std::filesystem::remove_all(folder_);
}

ToolResult ToolTest::run(const std::vector<std::string>& arguments, const std::string& output,
                         const std::string& input) const {
    std::string command = quoted(POVMESH_TOOL);
    for (const std::string& argument : arguments) command += " " + quoted(argument);
    command += " >" + (output.empty() ? "out" : quoted(output)) + " 2>err <" + quoted(input);
    const int status = run_command(folder_, command);
    return {status, output.empty() ? read("out") : "", read("err")};
}

void ToolTest::write(std::string_view name, std::string_view content) const {
    std::ofstream(in_utf8(path(name)), std::ios::binary) << content;
}

std::string ToolTest::read(std::string_view name) const {
    std::ifstream file(in_utf8(path(name)), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void ToolTest::write_stl_file(std::string_view name, std::span<const float> soup) const {
    std::string bytes(80, ' ');
    append_number(bytes, static_cast<std::uint32_t>(soup.size() / 9));
    for (std::size_t i = 0; i < soup.size(); ++i) {
        if (i % 9 == 0) bytes.append(12, '\0');
        append_number(bytes, std::bit_cast<std::uint32_t>(soup[i]));
        if (i % 9 == 8) bytes.append(2, '\0');
    }
    write(name, bytes);
}

void ToolTest::write_ascii_stl_file(std::string_view name, std::span<const float> soup) const {
    std::ostringstream text;
    text << "solid test\n";
    for (std::size_t i = 0; i < soup.size(); i += 3) {
        if (i % 9 == 0) text << "facet normal 0 0 0\nouter loop\n";
        text << "vertex " << soup[i] << ' ' << soup[i + 1] << ' ' << soup[i + 2] << '\n';
        if (i % 9 == 6) text << "endloop\nendfacet\n";
    }
    write(name, text.str() + "endsolid test\n");
}

}  // namespace povmesh
