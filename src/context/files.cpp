// Models read and written, as files and in memory.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "base/poll.h"
#include "context/defaults.h"
#include "context/operation_steps.h"
#include "io/byte_sink.h"
#include "io/byte_source.h"
#include "io/file.h"
#include "io/stream.h"

namespace povmesh::context {
namespace {

constexpr job::Phase kRead[] = {{0, "reading"}};
constexpr job::Phase kWrite[] = {{0, "writing"}};

FileKind kind_named(Call& call, const char* format) {
    const FileKind kind = kind_of_name(std::string("model.") + format);
    if (kind == FileKind::Unknown || std::strchr(format, '.') != nullptr) {
        call.stop(POVMESH_UNSUPPORTED, "format: no format of this name; give stl, obj, ply or 3mf");
    }
    return kind;
}

FileKind kind_of_path(Call& call, const char* path, const char* format) {
    if (format != nullptr) return kind_named(call, format);
    const FileKind kind = kind_of_name(path);
    if (kind == FileKind::Unknown) {
        call.stop(POVMESH_UNSUPPORTED,
                  std::string(path) +
                      ": unknown kind of file; give one whose name ends in .stl, .obj, .ply or "
                      ".3mf, or a format");
    }
    return kind;
}

// A package and PLY begin with words of their own. Binary STL has the length that its count tells;
// a line of OBJ begins with a short word.
FileKind kind_of_content(std::span<const char> bytes) {
    const std::string_view text(bytes.data(), std::min<std::size_t>(bytes.size(), 4096));
    if (text.starts_with("PK\x03\x04")) return FileKind::ThreeMf;
    if (text.starts_with("ply\n") || text.starts_with("ply\r")) return FileKind::Ply;
    if (bytes.size() >= 84) {
        std::uint32_t count = 0;
        std::memcpy(&count, bytes.data() + 80, sizeof count);
        if (bytes.size() == 84 + 50 * std::uint64_t{count}) return FileKind::Stl;
    }
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = std::min(text.find_first_of("\r\n", start), text.size());
        std::string_view line = text.substr(start, end - start);
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        const std::string_view word = line.substr(0, line.find_first_of(" \t"));
        for (const char* own : {"v", "vn", "vt", "f", "g", "o", "s", "mtllib", "usemtl"}) {
            if (word == own) return FileKind::Obj;
        }
        if (!word.empty() && word[0] != '#') return FileKind::Stl;
        start = end + 1;
    }
    return FileKind::Stl;
}

void hand_over(Call& call, LoadedModel& model, povmesh_mesh** mesh, povmesh_read_report* report) {
    call.log(load_warnings(model));
    povmesh_read_report full{};
    full.has_texture_lines = model.has_texture_lines ? 1 : 0;
    full.format = model.format.data();  // constant texts
    full.triangles = model.triangles;
    full.dropped_triangles = model.dropped_triangles();
    full.trailing_bytes = model.trailing_bytes;
    auto origin = std::make_shared<Origin>();
    origin->kind = model.kind;
    origin->has_texture_lines = model.has_texture_lines;
    origin->extras = std::move(model.extras);
    auto made = hand_on(std::move(model.mesh), std::move(origin));
    write_report(report, full);
    *mesh = made.release();
}

void check_read(Call& call, povmesh_mesh* const* mesh, const povmesh_read_report* report) {
    call.given(mesh, "mesh");
    call.check_report(report);
}

// Counts what goes through.
class CountingSink final : public ByteSink {
public:
    explicit CountingSink(ByteSink& inner) : inner_(inner) {}
    Status write(std::span<const char> bytes) override {
        poll();
        count_ += bytes.size();
        return inner_.write(bytes);
    }
    Status commit() override { return inner_.commit(); }
    std::uint64_t count() const { return count_; }

private:
    ByteSink& inner_;
    std::uint64_t count_ = 0;
};

// Grows a block of malloc, which is what is handed over: no second copy of the file.
class MemorySink final : public ByteSink {
public:
    explicit MemorySink(JobState& job) : job_(job) {}
    MemorySink(const MemorySink&) = delete;
    MemorySink& operator=(const MemorySink&) = delete;
    ~MemorySink() override {
        std::free(block_);
        job_.release(charged_);
    }

    Status write(std::span<const char> bytes) override {
        if (bytes.size() > capacity_ - size_) resize(grown(bytes.size()));
        std::memcpy(block_ + size_, bytes.data(), bytes.size());
        size_ += bytes.size();
        return {};
    }
    Status commit() override {
        resize(std::max<std::size_t>(size_, 1));
        return {};
    }
    std::size_t size() const { return size_; }

    /// The block, for free; it stays charged, as all of a result does.
    char* take() noexcept {
        charged_ = 0;
        return std::exchange(block_, nullptr);
    }

private:
    std::size_t grown(std::size_t more) const {
        if (more > static_cast<std::size_t>(-1) / 2 - size_) throw std::bad_alloc();
        return std::max(size_ + more, capacity_ + capacity_ / 2);
    }

    void resize(std::size_t capacity) {
        poll();
        if (capacity > charged_) {
            job_.charge(capacity - charged_);
            charged_ = capacity;
        }
        void* const moved = std::realloc(block_, capacity);
        if (moved == nullptr) throw std::bad_alloc();
        block_ = static_cast<char*>(moved);
        capacity_ = capacity;
        job_.release(charged_ - capacity);
        charged_ = capacity;
    }

    JobState& job_;
    char* block_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
    std::size_t charged_ = 0;
};

povmesh_write_report losses_of(const povmesh_mesh& source, FileKind target) {
    const auto any = [&](const auto& wanted) {
        return std::any_of(source.mesh.faces.begin(), source.mesh.faces.end(), wanted);
    };
    const bool is_package = source.origin->kind == FileKind::ThreeMf;
    const bool loses_materials =
        target == FileKind::Stl || (target == FileKind::ThreeMf && !is_package);
    povmesh_write_report report{};
    report.lost_colours = target == FileKind::Stl && has_colours(source.mesh) ? 1 : 0;
    report.lost_labels =
        loses_materials && any([](const Face& face) { return face.label >= 0; }) ? 1 : 0;
    report.lost_texture_coordinates =
        loses_materials && any([](const Face& face) { return face.uv[0] >= 0; }) ? 1 : 0;
    return report;
}

void expect_writable(Call& call, const povmesh_mesh& mesh, const std::string& name) {
    const std::string obstacle = coordinate_obstacle(mesh.mesh);
    if (!obstacle.empty()) call.stop(POVMESH_CANNOT_WRITE, name + ": " + obstacle);
}

// The writers may order faces anew, by materials.
void write_into(Call& call, const povmesh_mesh& mesh, FileKind kind, const std::string& name,
                ByteSink& sink) {
    TriMesh copy = plain_copy(mesh.mesh);
    call.expect(write_model(copy, kind, mesh.origin->extras, name, sink));
}

}  // namespace
}  // namespace povmesh::context

using namespace povmesh;
using namespace povmesh::context;

povmesh_status povmesh_read_file(povmesh_context* context, const char* path,
                                 const povmesh_read_options* options, povmesh_mesh** mesh,
                                 povmesh_read_report* report) {
    return run(context, [&](Call& call) {
        call.given(path, "path");
        check_read(call, mesh, report);
        const povmesh_read_options chosen = call.options(options, povmesh_read_options{});
        LoadedModel model;
        model.path = path;
        model.kind = kind_of_path(call, path, chosen.format);
        const Progress progress = call.progress(0, 48, kRead);
        InputFile file;
        call.expect(open_model(model.path, file));
        call.expect(read_model(bytes_of(file), progress, model));
        hand_over(call, model, mesh, report);
    });
}

povmesh_status povmesh_read_memory(povmesh_context* context, const void* data, size_t bytes,
                                   const povmesh_read_options* options, povmesh_mesh** mesh,
                                   povmesh_read_report* report) {
    return run(context, [&](Call& call) {
        call.require(data != nullptr || bytes == 0, "data", "must not be null");
        check_read(call, mesh, report);
        const povmesh_read_options chosen = call.options(options, povmesh_read_options{});
        const std::span<const char> content(static_cast<const char*>(data), bytes);
        LoadedModel model;
        model.path = chosen.name != nullptr ? chosen.name : "memory";
        model.kind =
            chosen.format != nullptr ? kind_named(call, chosen.format) : kind_of_content(content);
        const Progress progress = call.progress(0, 48, kRead);
        call.expect(read_model(bytes_of(content), progress, model));
        hand_over(call, model, mesh, report);
    });
}

povmesh_status povmesh_write_file(povmesh_context* context, const povmesh_mesh* mesh,
                                  const char* path, const povmesh_write_options* options,
                                  povmesh_write_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(path, "path");
        call.check_report(report);
        const povmesh_write_options chosen =
            call.options(options, defaults_of<povmesh_write_options>());
        call.flag(chosen.flush, "flush");
        const FileKind kind = kind_of_path(call, path, chosen.format);
        (void)call.progress(0, 1, kWrite);
        expect_writable(call, source, path);
        povmesh_write_report full = losses_of(source, kind);
        ReplacementFile file;
        call.expect(file.open(path, chosen.flush != 0));
        CountingSink counted(file);
        if (has_extension(path, kPackedEnd)) {
            GzipSink packed(counted);
            write_into(call, source, kind, path, packed);
        } else {
            write_into(call, source, kind, path, counted);
        }
        full.bytes = counted.count();
        write_report(report, full);
    });
}

povmesh_status povmesh_write_memory(povmesh_context* context, const povmesh_mesh* mesh,
                                    const povmesh_write_options* options, void** data,
                                    size_t* bytes, povmesh_write_report* report) {
    return run(context, [&](Call& call) {
        const povmesh_mesh& source = call.given(mesh, "mesh");
        call.given(data, "data");
        call.given(bytes, "bytes");
        call.check_report(report);
        const povmesh_write_options chosen =
            call.options(options, defaults_of<povmesh_write_options>());
        call.flag(chosen.flush, "flush");
        call.given(chosen.format, "format");
        const FileKind kind = kind_named(call, chosen.format);
        (void)call.progress(0, 1, kWrite);
        expect_writable(call, source, "memory");
        povmesh_write_report full = losses_of(source, kind);
        MemorySink memory(call.job());
        CountingSink counted(memory);
        write_into(call, source, kind, "memory", counted);
        full.bytes = memory.size();
        write_report(report, full);
        *bytes = memory.size();
        *data = memory.take();
    });
}

void povmesh_free(void* data) {
    std::free(data);
}
