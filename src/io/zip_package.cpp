#include "io/zip_package.h"

#include <zip.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "base/array.h"
#include "base/job_state.h"
#include "base/poll.h"
#include "io/file.h"

namespace povmesh {
namespace {

constexpr std::int64_t kMostEntries = 10000;
constexpr std::size_t kPieceBytes = std::size_t{1} << 18;

// The text of models shrinks to a tenth; what is small may be what it likes.
constexpr std::uint64_t kHighestRatio = 100;
constexpr std::uint64_t kHarmlessBytes = std::uint64_t{64} << 20;

constexpr int kPackingLevel = 1;

// Of a buffer for so many bytes, of which there may be more.
std::size_t piece_bytes(std::uint64_t bytes) {
    constexpr std::uint64_t kLeastBytes = 4096;
    return static_cast<std::size_t>(std::clamp<std::uint64_t>(bytes, kLeastBytes, kPieceBytes));
}

std::string text_of(zip_error_t* error) {
    std::string text = one_line(zip_error_strerror(error));
    zip_error_fini(error);
    return text;
}

std::string text_of_code(int code) {
    zip_error_t error;
    zip_error_init_with_code(&error, code);
    return text_of(&error);
}

// A ByteSource as libzip wants to see it.
struct SourceState {
    const ByteSource* source;
    std::uint64_t offset = 0;
    zip_error_t error{};
};

zip_int64_t call_source(void* state, void* data, zip_uint64_t length, zip_source_cmd_t command) {
    auto& self = *static_cast<SourceState*>(state);
    switch (command) {
        case ZIP_SOURCE_OPEN:
            self.offset = 0;
            return 0;
        case ZIP_SOURCE_READ: {
            const std::size_t count = self.source->read(
                self.offset, {static_cast<char*>(data), static_cast<std::size_t>(length)});
            self.offset += count;
            return static_cast<zip_int64_t>(count);
        }
        case ZIP_SOURCE_SEEK: {
            const zip_int64_t offset = zip_source_seek_compute_offset(
                self.offset, self.source->size, data, length, &self.error);
            if (offset < 0) return -1;
            self.offset = static_cast<std::uint64_t>(offset);
            return 0;
        }
        case ZIP_SOURCE_TELL:
            return static_cast<zip_int64_t>(self.offset);
        case ZIP_SOURCE_STAT: {
            auto* const stat = static_cast<zip_stat_t*>(data);
            zip_stat_init(stat);
            stat->size = self.source->size;
            stat->valid |= ZIP_STAT_SIZE;
            return sizeof *stat;
        }
        case ZIP_SOURCE_ERROR:
            return zip_error_to_data(&self.error, data, length);
        case ZIP_SOURCE_SUPPORTS:
            return ZIP_SOURCE_SUPPORTS_SEEKABLE;
        default:
            return 0;
    }
}

}  // namespace

struct PackageReader::Archive {
    SourceState state{};
    zip_t* zip = nullptr;

    ~Archive() {
        if (zip != nullptr) zip_discard(zip);
    }
};

PackageReader::PackageReader() = default;
PackageReader::~PackageReader() = default;

Status PackageReader::open(const ByteSource& source, const std::string& name) {
    name_ = name;
    archive_ = std::make_unique<Archive>();
    archive_->state.source = &source;
    zip_error_init(&archive_->state.error);
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* const bytes = zip_source_function_create(call_source, &archive_->state, &error);
    if (bytes == nullptr) throw std::bad_alloc();
    archive_->zip = zip_open_from_source(bytes, ZIP_RDONLY, &error);
    if (archive_->zip == nullptr) {
        zip_source_free(bytes);
        return {StatusCode::BadFile, one_line(name) +
                                         ": damaged or no 3MF package, which is a ZIP "
                                         "archive: " +
                                         text_of(&error)};
    }
    const zip_int64_t count = zip_get_num_entries(archive_->zip, 0);
    if (count > kMostEntries) {
        return {StatusCode::BadFile, one_line(name) + ": holds " + std::to_string(count) +
                                         " files; no 3MF package has more than " +
                                         std::to_string(kMostEntries)};
    }
    return {};
}

std::vector<std::string> PackageReader::entries() const {
    std::vector<std::string> names;
    const zip_int64_t count = zip_get_num_entries(archive_->zip, 0);
    for (zip_int64_t i = 0; i < count; ++i) {
        const char* const name = zip_get_name(archive_->zip, static_cast<zip_uint64_t>(i), 0);
        if (name != nullptr) names.emplace_back(name);
    }
    return names;
}

bool PackageReader::has(const std::string& entry) const {
    return zip_name_locate(archive_->zip, entry.c_str(), ZIP_FL_NOCASE) >= 0;
}

std::uint64_t PackageReader::likely_bytes(const std::string& entry) const {
    zip_stat_t stat;
    zip_stat_init(&stat);
    if (zip_stat(archive_->zip, entry.c_str(), ZIP_FL_NOCASE, &stat) != 0) return 0;
    // No archive is packed into more bytes than it has.
    const std::uint64_t packed = std::min(stat.comp_size, archive_->state.source->size);
    return std::min(stat.size, packed * kHighestRatio);
}

Status PackageReader::read(const std::string& entry, std::uint64_t most_bytes,
                           const std::function<bool(std::span<const char>)>& take) const {
    const auto bad = [&](const std::string& what) {
        return Status(StatusCode::BadFile, one_line(name_) + ": " + one_line(entry) + ": " + what);
    };
    const zip_int64_t found = zip_name_locate(archive_->zip, entry.c_str(), ZIP_FL_NOCASE);
    if (found < 0) return bad("is not in the package");
    const auto index = static_cast<zip_uint64_t>(found);
    zip_stat_t stat;
    zip_stat_init(&stat);
    if (zip_stat_index(archive_->zip, index, 0, &stat) != 0) return bad("has no size");
    struct Closer {
        zip_file_t* file;
        ~Closer() {
            if (file != nullptr) (void)zip_fclose(file);
        }
    } const opened{zip_fopen_index(archive_->zip, index, 0)};
    if (opened.file == nullptr) {
        return bad("cannot be unpacked: " + one_line(zip_strerror(archive_->zip)));
    }
    Array<char> piece(piece_bytes(stat.size));
    std::uint64_t size = 0;
    for (;;) {
        const zip_int64_t count = zip_fread(opened.file, piece.data(), piece.size());
        if (count < 0) {
            zip_error_t* const error = zip_file_get_error(opened.file);
            return bad("damaged after " + std::to_string(size) +
                       " unpacked bytes: " + text_of_code(zip_error_code_zip(error)));
        }
        if (count == 0) break;
        poll();
        size += static_cast<std::uint64_t>(count);
        if (size > most_bytes ||
            (size > kHarmlessBytes &&
             size / kHighestRatio > std::max<std::uint64_t>(stat.comp_size, 1))) {
            return bad("grows to more than " +
                       (size > most_bytes
                            ? std::to_string(most_bytes) + " bytes"
                            : std::to_string(kHighestRatio) + " times its packed size") +
                       ", which no model does");
        }
        if (!take({piece.data(), static_cast<std::size_t>(count)})) return {};
    }
    if (size < stat.size) return bad("ends after " + std::to_string(size) + " bytes");
    return {};
}

// A file on its way into an archive: a text, or parts that are packed.
struct PackageWriter::Content {
    std::string text{};
    DeflatedParts packed{};
    std::size_t part = 0;    // that is being handed over
    std::size_t offset = 0;  // in it, or in the text

    bool is_packed() const { return !packed.parts.empty(); }
    std::uint64_t size() const { return is_packed() ? packed.packed_size : text.size(); }

    /// Hands over up to `room` bytes, none at the end, and lets go of parts that are done with.
    std::size_t read(char* target, std::size_t room) {
        if (!is_packed()) return copy(text, target, room);
        while (part < packed.parts.size()) {
            const std::size_t count = copy(packed.parts[part], target, room);
            if (count > 0) return count;
            Array<char>().swap(packed.parts[part++]);  // = {} would keep the memory
            offset = 0;
        }
        return 0;
    }

    static zip_int64_t call(void* state, void* data, zip_uint64_t length, zip_source_cmd_t command);

private:
    std::size_t copy(std::span<const char> from, char* target, std::size_t room) {
        const std::size_t count = std::min(room, from.size() - offset);
        std::memcpy(target, from.data() + offset, count);
        offset += count;
        return count;
    }
};

// As libzip asks for it.
zip_int64_t PackageWriter::Content::call(void* state, void* data, zip_uint64_t length,
                                         zip_source_cmd_t command) {
    auto& self = *static_cast<Content*>(state);
    switch (command) {
        case ZIP_SOURCE_OPEN:
        case ZIP_SOURCE_CLOSE:
        case ZIP_SOURCE_FREE:
            return 0;
        case ZIP_SOURCE_READ:
            return static_cast<zip_int64_t>(
                self.read(static_cast<char*>(data), static_cast<std::size_t>(length)));
        case ZIP_SOURCE_STAT: {
            auto* const stat = static_cast<zip_stat_t*>(data);
            zip_stat_init(stat);
            stat->size = self.text.size();
            stat->valid |= ZIP_STAT_SIZE;
            if (self.is_packed()) {
                stat->size = self.packed.size;
                stat->comp_size = self.packed.packed_size;
                stat->crc = self.packed.crc;
                stat->comp_method = ZIP_CM_DEFLATE;
                stat->valid |= ZIP_STAT_COMP_SIZE | ZIP_STAT_CRC | ZIP_STAT_COMP_METHOD;
            }
            return sizeof *stat;
        }
        case ZIP_SOURCE_ERROR: {
            zip_error_t error;
            zip_error_init_with_code(&error, ZIP_ER_READ);
            return zip_error_to_data(&error, data, length);
        }
        case ZIP_SOURCE_SUPPORTS:
            return ZIP_SOURCE_SUPPORTS_READABLE;
        default:
            return -1;
    }
}

// Tells the call of memory that libzip takes for it.
class ChargedBytes {
public:
    explicit ChargedBytes(std::uint64_t bytes) : bytes_(static_cast<std::size_t>(bytes)) {
        if (JobState* const job = current_job()) job->charge(bytes_);
    }
    ~ChargedBytes() {
        if (JobState* const job = current_job()) job->release(bytes_);
    }
    ChargedBytes(const ChargedBytes&) = delete;
    ChargedBytes& operator=(const ChargedBytes&) = delete;

private:
    std::size_t bytes_;
};

struct PackageWriter::Archive {
    zip_source_t* bytes = nullptr;
    zip_t* zip = nullptr;
    std::vector<std::unique_ptr<Content>> contents;
    std::optional<ChargedBytes> charged;  // for `bytes`

    std::uint64_t about_bytes() const {
        std::uint64_t sum = 0;
        for (const auto& content : contents) sum += content->size();
        return sum;
    }

    ~Archive() {
        if (zip != nullptr) zip_discard(zip);
        if (bytes != nullptr) zip_source_free(bytes);
    }
};

PackageWriter::PackageWriter() : archive_(std::make_unique<Archive>()) {
    zip_error_t error;
    zip_error_init(&error);
    archive_->bytes = zip_source_buffer_create(nullptr, 0, 0, &error);
    if (archive_->bytes == nullptr) throw std::bad_alloc();
    zip_source_keep(archive_->bytes);
    archive_->zip = zip_open_from_source(archive_->bytes, ZIP_TRUNCATE, &error);
    if (archive_->zip == nullptr) throw std::bad_alloc();
}

PackageWriter::~PackageWriter() = default;

void PackageWriter::add(const std::string& entry, std::string content) {
    const zip_uint64_t place = add_entry(entry, {.text = std::move(content)});
    (void)zip_set_file_compression(archive_->zip, place, ZIP_CM_DEFLATE, kPackingLevel);
}

void PackageWriter::add(const std::string& entry, std::size_t part_count,
                        const TextOfPart& text_of_part) {
    (void)add_entry(entry, {.packed = deflate_parts(part_count, text_of_part)});
}

std::uint64_t PackageWriter::add_entry(const std::string& entry, Content content) {
    archive_->contents.push_back(std::make_unique<Content>(std::move(content)));
    zip_source_t* const source =
        zip_source_function(archive_->zip, &Content::call, archive_->contents.back().get());
    if (source == nullptr) throw std::bad_alloc();
    const zip_int64_t index =
        zip_file_add(archive_->zip, entry.c_str(), source, ZIP_FL_ENC_UTF_8 | ZIP_FL_OVERWRITE);
    if (index < 0) {
        zip_source_free(source);
        throw std::bad_alloc();
    }
    const auto place = static_cast<zip_uint64_t>(index);
    // 1980-01-01, the earliest day that a ZIP archive knows.
    (void)zip_file_set_dostime(archive_->zip, place, 0, (1U << 5) | 1U, 0);
    return place;
}

Status PackageWriter::finish(ByteSink& file, const std::string& name) {
    const auto failed = [&](const std::string& why) {
        return Status(StatusCode::CannotWrite, one_line(name) + ": cannot be packed: " + why);
    };
    const std::uint64_t about_bytes = archive_->about_bytes();
    const std::size_t piece_size = piece_bytes(about_bytes);
    archive_->charged.emplace(about_bytes);
    if (zip_close(archive_->zip) != 0) {
        const int code = zip_error_code_zip(zip_get_error(archive_->zip));
        if (code == ZIP_ER_MEMORY) throw std::bad_alloc();
        return failed(text_of_code(code));
    }
    archive_->zip = nullptr;
    if (zip_source_open(archive_->bytes) != 0) return failed("it cannot be read back");
    Array<char> piece(piece_size);
    Status status;
    for (;;) {
        const zip_int64_t count = zip_source_read(archive_->bytes, piece.data(), piece.size());
        if (count < 0) status = failed("it cannot be read back");
        if (count <= 0 || !status.ok()) break;
        status = file.write({piece.data(), static_cast<std::size_t>(count)});
        if (!status.ok()) break;
    }
    (void)zip_source_close(archive_->bytes);
    return status.ok() ? file.commit() : status;
}

}  // namespace povmesh
