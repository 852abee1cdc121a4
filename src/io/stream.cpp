// Readers look at a file more than once and from its end, so a stream is made a file first.
#include "io/stream.h"

#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>
#include <utility>

#include "base/array.h"

namespace povmesh {
namespace {

constexpr std::size_t kPieceBytes = std::size_t{1} << 18;

// Binary models shrink to a half or a quarter, texts to a tenth; zeros to a thousandth. What is
// small may be what it likes.
constexpr std::uint64_t kHighestRatio = 100;
constexpr std::uint64_t kHarmlessBytes = std::uint64_t{256} << 20;

std::string reason(int error) {
    return std::generic_category().message(error);
}

/// Writes into a file without a name, in the folder for temporary files.
class Spool {
public:
    ~Spool() {
        if (descriptor_ >= 0) ::close(descriptor_);
    }

    // False, with errno, on failure.
    bool open() {
        descriptor_ = open_temporary_file();
        return descriptor_ >= 0;
    }

    bool write(const char* bytes, std::size_t count) {
        while (count > 0) {
            const std::ptrdiff_t done = write_some(descriptor_, {bytes, count});
            if (done < 0 && errno == EINTR) continue;
            if (done <= 0) return false;
            bytes += done;
            count -= static_cast<std::size_t>(done);
        }
        return true;
    }

    int release() { return std::exchange(descriptor_, -1); }

private:
    int descriptor_ = -1;
};

Status cannot_read(const std::string& name, const std::string& what) {
    return {StatusCode::CannotRead, one_line(name) + ": " + what};
}

/// The bytes of a descriptor, which is closed at the end.
class Incoming {
public:
    explicit Incoming(int descriptor) : descriptor_(descriptor), bytes_(kPieceBytes) {}
    ~Incoming() { ::close(descriptor_); }
    Incoming(const Incoming&) = delete;
    Incoming& operator=(const Incoming&) = delete;

    /// Reads on behind what is left; nothing is left at the end. False, with errno, on failure.
    bool refill() {
        std::copy(rest_.begin(), rest_.end(), bytes_.begin());
        std::size_t filled = rest_.size();
        while (filled < bytes_.size()) {
            const auto room = static_cast<unsigned>(bytes_.size() - filled);
            const std::ptrdiff_t count = ::read(descriptor_, bytes_.data() + filled, room);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) return false;
            if (count == 0) break;
            filled += static_cast<std::size_t>(count);
            read_ += static_cast<std::uint64_t>(count);
        }
        rest_ = {bytes_.data(), filled};
        return true;
    }

    std::span<char> rest() const { return rest_; }
    void take(std::size_t count) { rest_ = rest_.subspan(count); }

    /// Whether what is left begins as gzip does. After a refill it has two bytes if there are two.
    bool is_gzip() const { return rest_.size() >= 2 && rest_[0] == '\x1F' && rest_[1] == '\x8B'; }

    /// Bytes that have been taken. Counted here: a pipe has no offset to ask for.
    std::uint64_t taken() const { return read_ - rest_.size(); }

private:
    int descriptor_;
    Array<char> bytes_;
    std::span<char> rest_;
    std::uint64_t read_ = 0;
};

/// Brings what a descriptor gives into a file, unpacked if it is packed.
class Unpacker {
public:
    Unpacker(int descriptor, const std::string& name) : in_(descriptor), name_(name) {
        constexpr int kGzipWindow = 15 + 16;  // bits, and the mark of a gzip header
        if (inflateInit2(&zlib_, kGzipWindow) != Z_OK) throw std::bad_alloc();
    }
    ~Unpacker() { (void)inflateEnd(&zlib_); }
    Unpacker(const Unpacker&) = delete;
    Unpacker& operator=(const Unpacker&) = delete;

    Status run(InputFile& content) {
        if (!spool_.open()) return cannot_read(name_, "cannot be unpacked: " + reason(errno));
        if (!in_.refill()) return unreadable();
        Status status = in_.is_gzip() ? unpack_members() : copy();
        if (status.ok()) content.adopt(spool_.release());
        return status;
    }

private:
    Status unreadable() const { return cannot_read(name_, "cannot be read: " + reason(errno)); }

    Status bad(const std::string& what, const std::string& why) const {
        return {StatusCode::BadFile, one_line(name_) + ": " + what + " after " +
                                         std::to_string(size_) + " unpacked bytes" + why +
                                         "; fetch it again"};
    }

    Status keep(std::span<const char> bytes) {
        if (spool_.write(bytes.data(), bytes.size())) return {};
        return cannot_read(name_, "cannot be unpacked into the temporary folder: " + reason(errno) +
                                      "; set TMPDIR to a folder with room");
    }

    Status copy() {
        while (!in_.rest().empty()) {
            if (Status status = keep(in_.rest()); !status.ok()) return status;
            in_.take(in_.rest().size());
            if (!in_.refill()) return unreadable();
        }
        return {};
    }

    // A gzip file may be several, one behind the other; anything else behind one is no part of it.
    Status unpack_members() {
        do {
            if (Status status = unpack_member(); !status.ok()) return status;
            if (in_.rest().size() < 2 && !in_.refill()) return unreadable();
        } while (in_.is_gzip());
        return {};
    }

    Status unpack_member() {
        (void)inflateReset(&zlib_);
        for (bool has_more = false;;) {  // within zlib
            if (!has_more && in_.rest().empty()) {
                if (!in_.refill()) return unreadable();
                if (in_.rest().empty()) return bad("truncated gzip file: ends", "");
            }
            const int code = inflate_piece();
            if (code == Z_MEM_ERROR) throw std::bad_alloc();
            const std::size_t count = piece_.size() - zlib_.avail_out;
            size_ += count;
            if (code != Z_OK && code != Z_BUF_ERROR && code != Z_STREAM_END) {
                const char* const why = zlib_.msg == nullptr ? "unknown form" : zlib_.msg;
                return bad("damaged gzip file: goes wrong", " (" + one_line(why) + ")");
            }
            if (size_ > kHarmlessBytes && size_ / kHighestRatio > in_.taken()) {
                return cannot_read(name_, "grows to more than " + std::to_string(kHighestRatio) +
                                              " times its size, which no model does; unpack it "
                                              "yourself if it is one");
            }
            if (Status status = keep({piece_.data(), count}); !status.ok()) return status;
            if (code == Z_STREAM_END) return {};
            has_more = zlib_.avail_out == 0;
        }
    }

    int inflate_piece() {
        const std::span<char> rest = in_.rest();
        zlib_.next_in = reinterpret_cast<Bytef*>(rest.data());
        zlib_.avail_in = static_cast<uInt>(rest.size());
        zlib_.next_out = reinterpret_cast<Bytef*>(piece_.data());
        zlib_.avail_out = static_cast<uInt>(piece_.size());
        const int code = inflate(&zlib_, Z_NO_FLUSH);
        in_.take(rest.size() - zlib_.avail_in);
        return code;
    }

    Incoming in_;
    const std::string& name_;
    Spool spool_;
    z_stream zlib_{};
    Array<char> piece_ = Array<char>(kPieceBytes);
    std::uint64_t size_ = 0;  // of what has been unpacked
};

}  // namespace

Status unpack_gzip(const std::string& path, InputFile& content) {
    {
        // Says what is wrong with the name as it does for every file.
        InputFile packed;
        if (Status status = packed.open(path); !status.ok()) return status;
    }
    const int descriptor = open_descriptor(path);
    if (descriptor < 0) return cannot_read(path, "cannot be read: " + reason(errno));
    return Unpacker(descriptor, path).run(content);
}

Status read_standard_input(const std::string& name, InputFile& content) {
    const int descriptor = dup(STDIN_FILENO);
    if (descriptor < 0) return cannot_read(name, "cannot be read: " + reason(errno));
    return Unpacker(descriptor, name).run(content);
}

struct GzipSink::Stream {
    z_stream zlib{};
    gz_header header{};
    Array<char> buffer = Array<char>(kPieceBytes);
};

GzipSink::GzipSink(ByteSink& target) : target_(target), stream_(std::make_unique<Stream>()) {
    // 15 bits of window, and 16 for a gzip header.
    constexpr int kGzipWindow = 15 + 16;
    constexpr int kMemory = 8;
    if (deflateInit2(&stream_->zlib, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzipWindow, kMemory,
                     Z_DEFAULT_STRATEGY) != Z_OK) {
        throw std::bad_alloc();
    }
    constexpr int kUnix = 3;  // on every system, for the sake of the same bytes
    stream_->header.os = kUnix;
    (void)deflateSetHeader(&stream_->zlib, &stream_->header);
}

GzipSink::~GzipSink() {
    (void)deflateEnd(&stream_->zlib);
}

// Compresses what is waiting and hands on what comes out.
Status GzipSink::pump(int flush) {
    z_stream& zlib = stream_->zlib;
    do {
        zlib.next_out = reinterpret_cast<Bytef*>(stream_->buffer.data());
        zlib.avail_out = static_cast<uInt>(stream_->buffer.size());
        (void)deflate(&zlib, flush);
        const std::size_t count = stream_->buffer.size() - zlib.avail_out;
        if (Status status = target_.write({stream_->buffer.data(), count}); !status.ok()) {
            return status;
        }
    } while (zlib.avail_out == 0);
    return {};
}

Status GzipSink::write(std::span<const char> bytes) {
    constexpr std::size_t kMost = std::size_t{1} << 30;  // zlib counts with 32 bits
    while (!bytes.empty()) {
        const std::size_t count = std::min(bytes.size(), kMost);
        stream_->zlib.next_in =
            reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));  // zlib only reads it
        stream_->zlib.avail_in = static_cast<uInt>(count);
        if (Status status = pump(Z_NO_FLUSH); !status.ok()) return status;
        bytes = bytes.subspan(count);
    }
    return {};
}

Status GzipSink::commit() {
    if (Status status = pump(Z_FINISH); !status.ok()) return status;
    return target_.commit();
}

Status copy_to_standard_output(const InputFile& file, const std::string& name) {
    Array<char> piece(kPieceBytes);
    std::uint64_t offset = 0;
    while (offset < file.size()) {
        const std::size_t count = file.read(offset, piece);
        if (count == 0) return {StatusCode::CannotWrite, one_line(name) + ": cannot be copied"};
        offset += count;
        std::size_t done = 0;
        while (done < count) {
            const std::ptrdiff_t written =
                write_some(STDOUT_FILENO, std::span(piece).subspan(done, count - done));
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) {
                return {StatusCode::CannotWrite, one_line(name) + ": cannot be written: " +
                                                     reason(written < 0 ? errno : EIO) +
                                                     "; make room there or send it elsewhere"};
            }
            done += static_cast<std::size_t>(written);
        }
    }
    return {};
}

}  // namespace povmesh
