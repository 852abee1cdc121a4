// A folder of its own for each test that needs files.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "io/file.h"

namespace povmesh {

class TemporaryFolder {
public:
    TemporaryFolder() : path_(make_temporary_folder()) {
        if (path_.empty()) ADD_FAILURE() << "no temporary folder";
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

    /// Entries, hidden ones included.
    std::ptrdiff_t entry_count() const {
        return std::distance(std::filesystem::directory_iterator(path_), {});
    }

private:
    std::string path_;
};

inline std::string content_of(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline std::string put_file(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

}  // namespace povmesh
