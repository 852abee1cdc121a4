// Whole files: reading them, and replacing them without ever leaving half of one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/array.h"
#include "base/status.h"
#include "io/byte_sink.h"

namespace povmesh {

// Paths are UTF-8 on every system. On Windows one that is none is taken as text of the system's
// code page, and paths of any length are served.

/// The text with "?" in the place of control characters: for names in messages of one line.
std::string one_line(std::string_view text);

/// The end of a path's last name from its last dot on; empty where there is none or only the first
/// character of the name is one.
std::string_view extension_in(std::string_view path);

/// Descriptors for what takes no InputFile, without translation of line ends; -1 with errno on
/// failure. A temporary file has no name, or loses it with its last descriptor.
int open_descriptor(const std::string& path);
int open_temporary_file();

/// Writes what the system takes at once; -1 with errno on failure.
std::ptrdiff_t write_some(int descriptor, std::span<const char> bytes);

/// Makes a folder of a new name for this user alone in the folder for temporary files. Empty on
/// failure.
std::string make_temporary_folder();

/// A regular file open for reading. Anything else (a folder, a pipe, a device) does not open.
class InputFile {
public:
    InputFile() = default;
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// CannotRead, with the reason, when the file is not there, not readable or not a regular file.
    Status open(const std::string& path);

    /// Takes over the descriptor of a regular file that is open for reading.
    void adopt(int descriptor);

    std::uint64_t size() const { return size_; }

    /// Reads up to `target.size()` bytes from `offset`; returns how many there were. A read error
    /// counts as the end of the file.
    std::size_t read(std::uint64_t offset, std::span<char> target) const;

    /// The whole content, as far as it can be read.
    Array<char> read_all() const;

private:
    int descriptor_ = -1;
    std::uint64_t size_ = 0;
};

/// Writes a file and puts it in the place of `path` only when it is complete.
///
/// The content goes to a temporary file in the same folder, is flushed to the disk and replaces the
/// target by a rename; then the folder is flushed. The target's permissions are kept, symbolic
/// links are followed, a target that exists and may not be written is refused, and a failure leaves
/// what was there. A hard link to the target keeps the old content.
///
/// Where the folder takes no new file, or lets none take the place of the target (a file mounted by
/// itself, a file of another owner in a sticky folder), and for a target that is no regular file,
/// the target is written in place. Only there a failure on the way can leave it incomplete; if the
/// new content is complete beside it by then, it stays there and the message names its file.
/// Windows lets no file take the place of one that another program has open; there this is a
/// failure, and the old file stays.
class ReplacementFile final : public ByteSink {
public:
    ~ReplacementFile() override;  // without commit: removes the temporary file

    /// `flush_to_disk` false leaves out the two flushes (for benchmarks).
    Status open(const std::string& path, bool flush_to_disk = true);
    Status write(std::span<const char> bytes) override;
    Status commit() override;

private:
    void close_and_discard();
    Status fail(const std::string& doing, std::uint32_t error);
#if !defined(_WIN32)
    Status copy_into_place();
#endif

    std::string shown_path_;  // as the caller named it, for messages
    std::string target_;      // symbolic links resolved
    std::string temporary_;   // empty when the target is written in place
    int descriptor_ = -1;
    bool flush_to_disk_ = true;
    Status failure_;
};

}  // namespace povmesh
