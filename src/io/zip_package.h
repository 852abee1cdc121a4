// Packages of files: ZIP archives, read and written in streams.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/status.h"
#include "io/byte_sink.h"
#include "io/byte_source.h"
#include "io/parallel_deflate.h"

namespace povmesh {

class PackageReader {
public:
    PackageReader();
    ~PackageReader();
    PackageReader(const PackageReader&) = delete;
    PackageReader& operator=(const PackageReader&) = delete;

    /// The source must outlive the reader; `name` stands in messages.
    /// @return  BadFile when it is no ZIP archive or has more files than a package has
    Status open(const ByteSource& source, const std::string& name);

    std::vector<std::string> entries() const;
    bool has(const std::string& entry) const;

    /// What the archive says about the size of a file, as far as `read` would go along with it.
    std::uint64_t likely_bytes(const std::string& entry) const;

    /// Hands the content of a file to `take` piece by piece until that returns false.
    ///
    /// @return  BadFile when it is not there, is damaged, or grows beyond `most_bytes` or beyond a
    ///          hundred times its packed size (small ones may)
    Status read(const std::string& entry, std::uint64_t most_bytes,
                const std::function<bool(std::span<const char>)>& take) const;

private:
    struct Archive;
    std::unique_ptr<Archive> archive_;
    std::string name_;
};

class PackageWriter {
public:
    PackageWriter();
    ~PackageWriter();
    PackageWriter(const PackageWriter&) = delete;
    PackageWriter& operator=(const PackageWriter&) = delete;

    void add(const std::string& entry, std::string content);

    /// Adds a file that is long. Its parts are made and packed at once, on several threads.
    void add(const std::string& entry, std::size_t part_count, const TextOfPart& text_of_part);

    /// Writes the archive; nothing in it depends on when and where. `name` stands in messages.
    Status finish(ByteSink& file, const std::string& name);

private:
    struct Archive;
    struct Content;
    std::uint64_t add_entry(const std::string& entry, Content content);

    std::unique_ptr<Archive> archive_;
};

}  // namespace povmesh
