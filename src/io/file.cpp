// What is the same on every system; the rest stands in file_posix.cpp and in file_windows.cpp.
#include "io/file.h"

#include <algorithm>

namespace povmesh {

std::string one_line(std::string_view text) {
    std::string line(text);
    std::replace_if(
        line.begin(), line.end(),
        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, '?');
    return line;
}

std::string_view extension_in(std::string_view path) {
#if defined(_WIN32)
    constexpr std::string_view kSeparators = "/\\:";
#else
    constexpr std::string_view kSeparators = "/";
#endif
    const std::size_t before = path.find_last_of(kSeparators);
    const std::string_view name = before == std::string_view::npos ? path : path.substr(before + 1);
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || name == "..") return {};
    return name.substr(dot);
}

Array<char> InputFile::read_all() const {
    Array<char> content(static_cast<std::size_t>(size_));
    content.resize(read(0, content));
    return content;
}

ReplacementFile::~ReplacementFile() {
    close_and_discard();
}

}  // namespace povmesh
