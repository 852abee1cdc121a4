// A file is replaced by writing a new one beside it, flushing that and renaming it over the old one
// (POSIX: a rename replaces its target at once or not at all).
#include "io/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

namespace povmesh {
namespace {

std::string reason(int error) {
    return std::generic_category().message(error);
}

// What a person can do about an error; empty where the reason says it all.
const char* remedy(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return "; check the path";
        case EACCES:
        case EPERM:
            return "; check the permissions";
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return "; free some space or write to another place";
        case EROFS:
            return "; write to another place";
        default:
            return "";
    }
}

const char* kind_of(mode_t mode) {
    if (S_ISDIR(mode)) return "a folder";
    if (S_ISFIFO(mode)) return "a pipe";
    if (S_ISSOCK(mode)) return "a socket";
    return "a device";
}

std::string folder_of(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

// Follows symbolic links to the name behind the last one, which need not exist. Sets errno and
// returns an empty text when they lead nowhere.
std::string resolve_links(std::string path) {
    constexpr int kMostLinks = 40;  // as many as Linux follows
    for (int i = 0; i < kMostLinks; ++i) {
        struct stat info {};
        if (lstat(path.c_str(), &info) != 0) return errno == ENOENT ? path : std::string();
        if (!S_ISLNK(info.st_mode)) return path;
        std::string link(PATH_MAX, '\0');
        const ssize_t length = readlink(path.c_str(), link.data(), link.size());
        if (length < 0) return {};
        link.resize(static_cast<std::size_t>(length));
        path = link.starts_with('/') ? link : folder_of(path).append(link);
    }
    errno = ELOOP;
    return {};
}

bool is_same_file(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// A folder that takes no new file, as opposed to a disk without room.
bool takes_no_new_file(int error) {
    return error == EACCES || error == EPERM || error == EROFS;
}

// A target that may be written but not be replaced, as opposed to a failure of the disk.
bool refuses_replacement(int error) {
    return error == EACCES || error == EPERM || error == EBUSY || error == EXDEV;
}

// Creates a file of a name that is not taken yet. Returns its descriptor, or -1 with errno.
int create_beside(const std::string& target, mode_t mode, std::string& name) {
    constexpr int kMostTries = 1000;  // each taken by a file that a killed process left behind
    const std::string stem = folder_of(target) + ".povmesh-" + std::to_string(getpid()) + "-";
    for (int i = 0; i < kMostTries; ++i) {
        name = stem + std::to_string(i);
        const int descriptor = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        if (descriptor >= 0 || errno != EEXIST) return descriptor;
    }
    return -1;
}

// Best effort: only the administrator may give a file away, and a member of the group may set that.
void take_over_owner(int descriptor, const struct stat& from) {
    if (fchown(descriptor, from.st_uid, from.st_gid) == 0) return;
    if (fchown(descriptor, static_cast<uid_t>(-1), from.st_gid) != 0) errno = 0;
}

// File systems that cannot flush say so with these errors.
bool flush(int descriptor) {
    return fsync(descriptor) == 0 || errno == EINVAL || errno == ENOTSUP;
}

// Makes a rename last. Whether it does cannot be mended any more, hence no result.
void flush_folder_of(const std::string& path) {
    const std::string folder = folder_of(path);
    const int descriptor =
        ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return;
    (void)fsync(descriptor);
    ::close(descriptor);
}

std::string in_temporary_folder(const std::string& name) {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
    return (error ? "/tmp" : folder.string()) + "/" + name;
}

}  // namespace

int open_descriptor(const std::string& path) {
    return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
}

int open_temporary_file() {
    std::string name = in_temporary_folder("povmesh-XXXXXX");
    const int descriptor = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor >= 0) (void)unlink(name.c_str());
    return descriptor;
}

std::string make_temporary_folder() {
    std::string folder = in_temporary_folder("povmesh-XXXXXX");
    return mkdtemp(folder.data()) != nullptr ? folder : std::string();
}

std::ptrdiff_t write_some(int descriptor, std::span<const char> bytes) {
    return ::write(descriptor, bytes.data(), bytes.size());
}

InputFile::~InputFile() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

Status InputFile::open(const std::string& path) {
    assert(descriptor_ < 0);
    // O_NONBLOCK: opening a pipe would wait for a writer.
    descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat info {};
    if (descriptor_ < 0 || fstat(descriptor_, &info) != 0) {
        const int error = errno;
        return {StatusCode::CannotRead,
                one_line(path) + ": cannot be read: " + reason(error) + remedy(error)};
    }
    if (!S_ISREG(info.st_mode)) {
        ::close(std::exchange(descriptor_, -1));
        return {StatusCode::CannotRead, one_line(path) + ": is " + kind_of(info.st_mode) +
                                            ", not a file; name a model file"};
    }
    size_ = static_cast<std::uint64_t>(info.st_size);
    return {};
}

void InputFile::adopt(int descriptor) {
    assert(descriptor_ < 0);
    descriptor_ = descriptor;
    struct stat info {};
    size_ = fstat(descriptor, &info) == 0 ? static_cast<std::uint64_t>(info.st_size) : 0;
}

std::size_t InputFile::read(std::uint64_t offset, std::span<char> target) const {
    std::size_t done = 0;
    while (done < target.size()) {
        const ssize_t count = pread(descriptor_, target.data() + done, target.size() - done,
                                    static_cast<off_t>(offset + done));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

void ReplacementFile::close_and_discard() {
    if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
    if (!temporary_.empty()) unlink(temporary_.c_str());
    temporary_.clear();
}

Status ReplacementFile::fail(const std::string& doing, std::uint32_t system_error) {
    const int error = static_cast<int>(system_error);
    close_and_discard();
    failure_ = {StatusCode::CannotWrite,
                one_line(shown_path_) + ": cannot " + doing + ": " + reason(error) + remedy(error)};
    return failure_;
}

Status ReplacementFile::open(const std::string& path, bool flush_to_disk) {
    assert(descriptor_ < 0);
    shown_path_ = path;
    flush_to_disk_ = flush_to_disk;

    struct stat old {};
    const bool exists = stat(path.c_str(), &old) == 0;
    if (!exists && errno != ENOENT) return fail("write the file", errno);
    if ((exists && S_ISDIR(old.st_mode)) || path.ends_with('/')) {
        return failure_ = {StatusCode::CannotWrite,
                           one_line(path) + ": is a folder; name a file in it"};
    }

    int writable = -1;
    if (exists) {
        // The descriptor proves that the target may be written, and serves to write it in place.
        // O_NONBLOCK: a pipe without a reader is an error instead of an endless wait.
        writable = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
        if (writable < 0) return fail("write the file", errno);
    }
    target_ = resolve_links(path);
    struct stat resolved {};
    // A link of the kernel, such as that of an open file which has been removed, can show a name
    // that is not that of the file behind it.
    const bool is_named = !exists || (!target_.empty() && lstat(target_.c_str(), &resolved) == 0 &&
                                      is_same_file(old, resolved));
    if (!exists && target_.empty()) return fail("write the file", errno);

    if (is_named && (!exists || S_ISREG(old.st_mode))) {
        // Until it has the permissions of the target, the new file is for its owner alone.
        descriptor_ = create_beside(target_, exists ? 0600 : 0666, temporary_);
        if (descriptor_ < 0) {
            const int error = errno;
            temporary_.clear();
            if (!exists || !takes_no_new_file(error)) {
                if (writable >= 0) ::close(writable);
                return fail("create a file in its folder", error);
            }
        }
    }
    if (descriptor_ < 0) {
        descriptor_ = writable;
        const int flags = fcntl(descriptor_, F_GETFL);
        if (flags >= 0) fcntl(descriptor_, F_SETFL, flags & ~O_NONBLOCK);
        return {};
    }
    if (!exists) return {};
    ::close(writable);
    take_over_owner(descriptor_, old);
    if (fchmod(descriptor_, old.st_mode & 0777) != 0) return fail("keep its permissions", errno);
    return {};
}

Status ReplacementFile::write(std::span<const char> bytes) {
    if (!failure_.ok()) return failure_;
    assert(descriptor_ >= 0);
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return fail("write the file", count < 0 ? errno : EIO);
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return {};
}

// Copies the complete content from beside the target into it.
Status ReplacementFile::copy_into_place() {
    InputFile content;
    Status status = content.open(temporary_);
    if (!status.ok()) return failure_ = status;
    ReplacementFile target;
    target.shown_path_ = shown_path_;
    target.flush_to_disk_ = flush_to_disk_;
    target.descriptor_ = ::open(target_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    if (target.descriptor_ < 0) return fail("replace the file", errno);
    Array<char> piece(std::size_t{1} << 20);
    std::uint64_t done = 0;
    while (status.ok() && done < content.size()) {
        const std::size_t count = content.read(done, piece);
        status = count == 0 ? target.fail("read back " + one_line(temporary_), EIO)
                            : target.write(std::span(piece).first(count));
        done += count;
    }
    if (status.ok()) status = target.commit();
    if (status.ok()) {
        close_and_discard();
        return status;
    }
    failure_ = {StatusCode::CannotWrite,
                status.text() + "; its new content is in " + one_line(temporary_)};
    temporary_.clear();
    return failure_;
}

Status ReplacementFile::commit() {
    if (!failure_.ok()) return failure_;
    assert(descriptor_ >= 0);
    struct stat info {};
    const bool is_regular = fstat(descriptor_, &info) == 0 && S_ISREG(info.st_mode);
    if (temporary_.empty() && is_regular) {
        // In place: takes off what the old content was longer.
        const off_t length = lseek(descriptor_, 0, SEEK_CUR);
        if (length < 0 || ftruncate(descriptor_, length) != 0) return fail("write the file", errno);
    }
    if (flush_to_disk_ && is_regular && !flush(descriptor_)) return fail("write the file", errno);
    // Some file systems report a full disk only here.
    if (::close(std::exchange(descriptor_, -1)) != 0 && errno != EINTR) {
        return fail("write the file", errno);
    }
    if (temporary_.empty()) return {};
    if (std::rename(temporary_.c_str(), target_.c_str()) != 0) {
        const int error = errno;
        return refuses_replacement(error) ? copy_into_place() : fail("replace the file", error);
    }
    temporary_.clear();
    if (flush_to_disk_) flush_folder_of(target_);
    return {};
}

}  // namespace povmesh
