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

// Unpacks what a descriptor gives, which is closed.
Status unpack(int descriptor, const std::string& name, InputFile& content) {
    const gzFile file = gzdopen(descriptor, "rb");
    if (file == nullptr) {
        ::close(descriptor);
        throw std::bad_alloc();
    }
    struct Closer {
        gzFile file;
        ~Closer() { (void)gzclose_r(file); }
    } const closer{file};
    (void)gzbuffer(file, kPieceBytes);

    Spool spool;
    if (!spool.open()) return cannot_read(name, "cannot be unpacked: " + reason(errno));
    Array<char> piece(kPieceBytes);
    std::uint64_t size = 0;
    for (;;) {
        errno = 0;
        const int count = gzread(file, piece.data(), static_cast<unsigned>(piece.size()));
        int code = Z_OK;
        const char* const message = gzerror(file, &code);
        // At the end of a file that was cut the last bytes come without an error of their own.
        if (count < 0 || code != Z_OK) {
            if (code == Z_ERRNO) return cannot_read(name, "cannot be read: " + reason(errno));
            if (code == Z_MEM_ERROR) throw std::bad_alloc();
            const bool is_cut = code == Z_BUF_ERROR;
            return {StatusCode::BadFile,
                    one_line(name) + ": " +
                        (is_cut ? "truncated gzip file: ends" : "damaged gzip file: goes wrong") +
                        " after " +
                        std::to_string(size + static_cast<std::uint64_t>(std::max(count, 0))) +
                        " unpacked bytes" + (is_cut ? "" : " (" + one_line(message) + ")") +
                        "; fetch it again"};
        }
        if (count == 0) break;
        size += static_cast<std::uint64_t>(count);
        const auto packed = static_cast<std::uint64_t>(std::max<z_off_t>(gzoffset(file), 1));
        if (gzdirect(file) == 0 && size > kHarmlessBytes && size / kHighestRatio > packed) {
            return cannot_read(name, "grows to more than " + std::to_string(kHighestRatio) +
                                         " times its size, which no model does; unpack it yourself "
                                         "if it is one");
        }
        if (!spool.write(piece.data(), static_cast<std::size_t>(count))) {
            return cannot_read(name, "cannot be unpacked into the temporary folder: " +
                                         reason(errno) + "; set TMPDIR to a folder with room");
        }
    }
    content.adopt(spool.release());
    return {};
}

}  // namespace

Status unpack_gzip(const std::string& path, InputFile& content) {
    {
        // Says what is wrong with the name as it does for every file.
        InputFile packed;
        if (Status status = packed.open(path); !status.ok()) return status;
    }
    const int descriptor = open_descriptor(path);
    if (descriptor < 0) return cannot_read(path, "cannot be read: " + reason(errno));
    return unpack(descriptor, path, content);
}

Status read_standard_input(const std::string& name, InputFile& content) {
    const int descriptor = dup(STDIN_FILENO);
    if (descriptor < 0) return cannot_read(name, "cannot be read: " + reason(errno));
    return unpack(descriptor, name, content);
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
