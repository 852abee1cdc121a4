// A file is replaced by writing a new one beside it, flushing that and moving it over the old one
// (Windows: a move within a folder replaces its target at once or not at all).
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <limits>
#include <system_error>
#include <utility>

#include "io/file.h"

namespace povmesh {
namespace {

// A path from here on gets the prefix that switches off the limit of 260 characters: names of our
// own must fit behind that of its folder.
constexpr std::size_t kLongPath = 200;

std::wstring widened(std::string_view text, unsigned page, DWORD flags) {
    if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) return {};
    const int size = static_cast<int>(text.size());
    const int count = MultiByteToWideChar(page, flags, text.data(), size, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(std::max(count, 0)), L'\0');
    if (count > 0) MultiByteToWideChar(page, flags, text.data(), size, wide.data(), count);
    return wide;
}

// As the functions of the system take it. Empty, which names no file, for what is no text.
std::wstring system_path(const std::string& path) {
    std::wstring wide = widened(path, CP_UTF8, MB_ERR_INVALID_CHARS);
    if (wide.empty()) wide = widened(path, CP_ACP, 0);
    if (wide.empty() || wide.starts_with(LR"(\\?\)")) return wide;
    // A path that is relative or has ".." in it may be longer than it looks, or shorter.
    std::wstring full(GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr), L'\0');
    full.resize(
        GetFullPathNameW(wide.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
    if (full.size() < kLongPath || full.starts_with(LR"(\\.\)")) return wide;
    return full.starts_with(LR"(\\)") ? LR"(\\?\UNC)" + full.substr(1) : LR"(\\?\)" + full;
}

std::string utf8(std::wstring_view wide) {
    const int size = static_cast<int>(wide.size());
    const int count =
        WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
    std::string text(static_cast<std::size_t>(std::max(count, 0)), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, text.data(), count, nullptr, nullptr);
    return text;
}

std::string message_of(std::errc code) {
    return std::make_error_code(code).message();
}

// What is wrong and what a person can do about it; in the words of the other systems where these
// have some.
std::string reason(DWORD error) {
    switch (error) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_INVALID_DRIVE:
        case ERROR_BAD_NETPATH:
            return message_of(std::errc::no_such_file_or_directory) + "; check the path";
        case ERROR_INVALID_NAME:
        case ERROR_BAD_PATHNAME:
        case ERROR_DIRECTORY:
            return "Not a name of a file; check the path";
        case ERROR_ACCESS_DENIED:
        case ERROR_PRIVILEGE_NOT_HELD:
            return message_of(std::errc::permission_denied) + "; check the permissions";
        case ERROR_SHARING_VIOLATION:
        case ERROR_LOCK_VIOLATION:
        case ERROR_USER_MAPPED_FILE:
            return "Another program has it open; close it there";
        case ERROR_DISK_FULL:
        case ERROR_HANDLE_DISK_FULL:
        case ERROR_FILE_TOO_LARGE:
            return message_of(std::errc::no_space_on_device) +
                   "; free some space or write to another place";
        case ERROR_WRITE_PROTECT:
            return message_of(std::errc::read_only_file_system) + "; write to another place";
        default:
            return "Error " + std::to_string(error) + " of the system";
    }
}

// For callers that look at errno.
int number_of(DWORD error) {
    switch (error) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            return ENOENT;
        case ERROR_ACCESS_DENIED:
        case ERROR_SHARING_VIOLATION:
            return EACCES;
        case ERROR_DISK_FULL:
            return ENOSPC;
        default:
            return EIO;
    }
}

/// A handle of the system, closed at the end.
class Handle {
public:
    explicit Handle(HANDLE handle) : handle_(handle) {}
    ~Handle() {
        if (is_open()) CloseHandle(handle_);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    bool is_open() const { return handle_ != INVALID_HANDLE_VALUE; }
    HANDLE get() const { return handle_; }

    /// As a descriptor, which closes the handle too; -1 when there is none left.
    int descriptor(int flags) {
        const int descriptor = _open_osfhandle(reinterpret_cast<std::intptr_t>(handle_),
                                               flags | _O_BINARY | _O_NOINHERIT);
        if (descriptor >= 0) handle_ = INVALID_HANDLE_VALUE;
        return descriptor;
    }

private:
    HANDLE handle_;
};

// Others may do with the file what they like meanwhile, as on other systems.
constexpr DWORD kShared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

HANDLE open_existing(const std::wstring& path, DWORD access) {
    return CreateFileW(path.c_str(), access, kShared, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                       nullptr);
}

HANDLE handle_of(int descriptor) {
    return reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
}

bool is_folder(DWORD attributes) {
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

const char* kind_of(DWORD type) {
    return type == FILE_TYPE_PIPE ? "a pipe" : "a device";
}

// The file behind links and junctions; empty where it has no name.
std::wstring final_path(HANDLE file) {
    std::wstring path(GetFinalPathNameByHandleW(file, nullptr, 0, 0), L'\0');
    const DWORD length =
        GetFinalPathNameByHandleW(file, path.data(), static_cast<DWORD>(path.size()), 0);
    path.resize(length < path.size() ? length : 0);
    return path;
}

std::wstring folder_of(const std::wstring& path) {
    const std::size_t end = path.find_last_of(L"/\\:");
    return end == std::wstring::npos ? std::wstring() : path.substr(0, end + 1);
}

// Creates a file of a name that is not taken yet; the error is GetLastError's.
HANDLE create_in(const std::wstring& folder, DWORD attributes, std::wstring& name) {
    constexpr int kMostTries = 1000;  // each taken by a file that a killed process left behind
    const std::wstring stem = folder + L".povmesh-" + std::to_wstring(GetCurrentProcessId()) + L"-";
    for (int i = 0; i < kMostTries; ++i) {
        name = stem + std::to_wstring(i);
        const HANDLE file = CreateFileW(name.c_str(), GENERIC_WRITE | GENERIC_READ | DELETE,
                                        kShared, nullptr, CREATE_NEW, attributes, nullptr);
        if (file != INVALID_HANDLE_VALUE || GetLastError() != ERROR_FILE_EXISTS) return file;
    }
    return INVALID_HANDLE_VALUE;
}

// Best effort, as ownership is elsewhere: who may read the old file may read the new one.
void take_over_permissions(const std::wstring& from, const std::wstring& to) {
    DWORD size = 0;
    (void)GetFileSecurityW(from.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
    std::string security(size, '\0');
    if (size != 0 && GetFileSecurityW(from.c_str(), DACL_SECURITY_INFORMATION, security.data(),
                                      size, &size) != 0) {
        (void)SetFileSecurityW(to.c_str(), DACL_SECURITY_INFORMATION, security.data());
    }
    constexpr DWORD kKept = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE |
                            FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
    const DWORD attributes = GetFileAttributesW(from.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & kKept) != 0) {
        (void)SetFileAttributesW(to.c_str(), attributes & kKept);
    }
}

std::wstring temporary_folder() {
    std::wstring folder(MAX_PATH + 1, L'\0');
    folder.resize(GetTempPathW(static_cast<DWORD>(folder.size()), folder.data()));
    return folder;
}

}  // namespace

int open_descriptor(const std::string& path) {
    Handle file(open_existing(system_path(path), GENERIC_READ));
    if (file.is_open()) return file.descriptor(_O_RDONLY);
    errno = number_of(GetLastError());
    return -1;
}

int open_temporary_file() {
    std::wstring name;
    Handle file(
        create_in(temporary_folder(), FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, name));
    if (file.is_open()) return file.descriptor(_O_RDWR);
    errno = number_of(GetLastError());
    return -1;
}

std::string make_temporary_folder() {
    constexpr int kMostTries = 1000;
    const std::wstring stem =
        temporary_folder() + L"povmesh-" + std::to_wstring(GetCurrentProcessId()) + L"-";
    for (int i = 0; i < kMostTries; ++i) {
        const std::wstring name = stem + std::to_wstring(i);
        if (CreateDirectoryW(name.c_str(), nullptr) != 0) return utf8(name);
        if (GetLastError() != ERROR_ALREADY_EXISTS) return {};
    }
    return {};
}

std::ptrdiff_t write_some(int descriptor, std::span<const char> bytes) {
    constexpr std::size_t kMost = std::size_t{1} << 20;
    return _write(descriptor, bytes.data(), static_cast<unsigned>(std::min(bytes.size(), kMost)));
}

InputFile::~InputFile() {
    if (descriptor_ >= 0) _close(descriptor_);
}

Status InputFile::open(const std::string& path) {
    assert(descriptor_ < 0);
    const std::wstring name = system_path(path);
    const auto cannot_read = [&](const std::string& what) {
        return Status{StatusCode::CannotRead, one_line(path) + ": " + what};
    };
    if (is_folder(GetFileAttributesW(name.c_str()))) {
        return cannot_read("is a folder, not a file; name a model file");
    }
    Handle file(open_existing(name, GENERIC_READ));
    if (!file.is_open()) return cannot_read("cannot be read: " + reason(GetLastError()));
    if (const DWORD type = GetFileType(file.get()); type != FILE_TYPE_DISK) {
        return cannot_read(std::string("is ") + kind_of(type) + ", not a file; name a model file");
    }
    const int descriptor = file.descriptor(_O_RDONLY);
    if (descriptor < 0) return cannot_read("cannot be read: " + reason(ERROR_TOO_MANY_OPEN_FILES));
    adopt(descriptor);
    return {};
}

void InputFile::adopt(int descriptor) {
    assert(descriptor_ < 0);
    descriptor_ = descriptor;
    LARGE_INTEGER size{};
    const bool is_known = GetFileSizeEx(handle_of(descriptor), &size) != 0;
    size_ = is_known ? static_cast<std::uint64_t>(size.QuadPart) : 0;
}

std::size_t InputFile::read(std::uint64_t offset, std::span<char> target) const {
    constexpr std::size_t kMost = std::size_t{1} << 30;  // the system counts with 32 bits
    std::size_t done = 0;
    while (done < target.size()) {
        const std::uint64_t place = offset + done;
        OVERLAPPED where{};
        where.Offset = static_cast<DWORD>(place & 0xFFFFFFFFU);
        where.OffsetHigh = static_cast<DWORD>(place >> 32);
        DWORD count = 0;
        const auto wanted = static_cast<DWORD>(std::min(target.size() - done, kMost));
        if (ReadFile(handle_of(descriptor_), target.data() + done, wanted, &count, &where) == 0 ||
            count == 0) {
            break;
        }
        done += count;
    }
    return done;
}

void ReplacementFile::close_and_discard() {
    if (descriptor_ >= 0) _close(std::exchange(descriptor_, -1));
    if (!temporary_.empty()) DeleteFileW(system_path(temporary_).c_str());
    temporary_.clear();
}

Status ReplacementFile::fail(const std::string& doing, std::uint32_t error) {
    close_and_discard();
    failure_ = {StatusCode::CannotWrite,
                one_line(shown_path_) + ": cannot " + doing + ": " + reason(error)};
    return failure_;
}

Status ReplacementFile::open(const std::string& path, bool flush_to_disk) {
    assert(descriptor_ < 0);
    shown_path_ = path;
    flush_to_disk_ = flush_to_disk;

    const std::wstring name = system_path(path);
    const DWORD attributes = GetFileAttributesW(name.c_str());
    if (is_folder(attributes) || path.ends_with('/') || path.ends_with('\\')) {
        return failure_ = {StatusCode::CannotWrite,
                           one_line(path) + ": is a folder; name a file in it"};
    }
    constexpr DWORD kLocked = FILE_ATTRIBUTE_READONLY;
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & kLocked) != 0) {
        return fail("write the file", ERROR_ACCESS_DENIED);  // an administrator is let through
    }
    // The handle proves that the target may be written, tells the file behind links, and serves to
    // write it in place.
    Handle old(open_existing(name, GENERIC_WRITE));
    if (!old.is_open()) {
        const DWORD error = GetLastError();
        if (attributes != INVALID_FILE_ATTRIBUTES || error != ERROR_FILE_NOT_FOUND) {
            return fail("write the file", error);
        }
    }
    const bool is_file = old.is_open() && GetFileType(old.get()) == FILE_TYPE_DISK;
    const bool is_link = is_file && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    std::wstring target = is_file ? final_path(old.get()) : name;
    if (target.empty() && !is_link) target = name;  // some file systems name no file
    target_ = utf8(target);
    if (!target.empty() && (is_file || !old.is_open())) {
        std::wstring beside;
        Handle created(create_in(folder_of(target), FILE_ATTRIBUTE_NORMAL, beside));
        if (created.is_open()) {
            temporary_ = utf8(beside);
            descriptor_ = created.descriptor(_O_RDWR);
            if (descriptor_ < 0) return fail("write the file", ERROR_TOO_MANY_OPEN_FILES);
            if (is_file) take_over_permissions(target, beside);
            return {};
        }
        const DWORD error = GetLastError();
        if (!is_file || error != ERROR_ACCESS_DENIED) {
            return fail("create a file in its folder", error);
        }
    }
    descriptor_ = old.descriptor(_O_WRONLY);
    return descriptor_ >= 0 ? Status() : fail("write the file", ERROR_TOO_MANY_OPEN_FILES);
}

Status ReplacementFile::write(std::span<const char> bytes) {
    if (!failure_.ok()) return failure_;
    assert(descriptor_ >= 0);
    constexpr std::size_t kMost = std::size_t{1} << 30;
    while (!bytes.empty()) {
        DWORD count = 0;
        const auto wanted = static_cast<DWORD>(std::min(bytes.size(), kMost));
        if (WriteFile(handle_of(descriptor_), bytes.data(), wanted, &count, nullptr) == 0) {
            return fail("write the file", GetLastError());
        }
        if (count == 0) return fail("write the file", ERROR_DISK_FULL);
        bytes = bytes.subspan(count);
    }
    return {};
}

Status ReplacementFile::commit() {
    if (!failure_.ok()) return failure_;
    assert(descriptor_ >= 0);
    const HANDLE file = handle_of(descriptor_);
    const bool is_regular = GetFileType(file) == FILE_TYPE_DISK;
    // In place: takes off what the old content was longer.
    if (temporary_.empty() && is_regular && SetEndOfFile(file) == 0) {
        return fail("write the file", GetLastError());
    }
    if (flush_to_disk_ && is_regular && FlushFileBuffers(file) == 0) {
        return fail("write the file", GetLastError());
    }
    _close(std::exchange(descriptor_, -1));
    if (temporary_.empty()) return {};
    const DWORD flags =
        MOVEFILE_REPLACE_EXISTING | (flush_to_disk_ ? DWORD{MOVEFILE_WRITE_THROUGH} : 0);
    if (MoveFileExW(system_path(temporary_).c_str(), system_path(target_).c_str(), flags) == 0) {
        return fail("replace the file", GetLastError());
    }
    temporary_.clear();
    return {};
}

}  // namespace povmesh
