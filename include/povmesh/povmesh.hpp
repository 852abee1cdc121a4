// povmesh/povmesh.hpp: C++17 over povmesh/context.h, header only. Handles that own, options with
// their defaults, exceptions in the place of statuses; all rules are those of docs/context.md.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "povmesh/context.h"

namespace povmesh {

/// A call that did not end well; `what` is the message of its context.
class Error : public std::runtime_error {
public:
    Error(povmesh_status status, const std::string& message)
        : std::runtime_error(message.empty() ? povmesh_status_text(status) : message),
          status_(status) {}

    povmesh_status status() const noexcept { return status_; }

private:
    povmesh_status status_;
};

class Cancelled : public Error {
public:
    using Error::Error;
};

class OutOfMemory : public Error {
public:
    using Error::Error;
};

[[noreturn]] inline void throw_error(povmesh_status status, const std::string& message) {
    if (status == POVMESH_CANCELLED) throw Cancelled(status, message);
    if (status == POVMESH_OUT_OF_MEMORY) throw OutOfMemory(status, message);
    throw Error(status, message);
}

inline void expect(povmesh_status status) {
    if (status != POVMESH_OK) throw_error(status, {});
}

// ---- options: those of C, made with their defaults

#define POVMESH_OPTIONS_(Name, name)                                               \
    struct Name##Options : povmesh_##name##_options {                              \
        Name##Options() : povmesh_##name##_options(povmesh_##name##_defaults()) {} \
    };
POVMESH_OPTIONS_(Read, read)
POVMESH_OPTIONS_(Write, write)
POVMESH_OPTIONS_(Check, check)
POVMESH_OPTIONS_(Repair, repair)
POVMESH_OPTIONS_(Split, split)
POVMESH_OPTIONS_(Cut, cut)
POVMESH_OPTIONS_(Reduce, reduce)
POVMESH_OPTIONS_(Remesh, remesh)
POVMESH_OPTIONS_(Revise, revise)
POVMESH_OPTIONS_(Subdivide, subdivide)
POVMESH_OPTIONS_(Hollow, hollow)
POVMESH_OPTIONS_(Infill, infill)
POVMESH_OPTIONS_(Voxelize, voxelize)
POVMESH_OPTIONS_(Support, support)
POVMESH_OPTIONS_(Strength, strength)
POVMESH_OPTIONS_(Weakness, weakness)
POVMESH_OPTIONS_(Render, render)
POVMESH_OPTIONS_(Distance, distance)
POVMESH_OPTIONS_(Decompose, decompose)
POVMESH_OPTIONS_(Lampshade, lampshade)
POVMESH_OPTIONS_(Orient, orient)
POVMESH_OPTIONS_(Balance, balance)
POVMESH_OPTIONS_(Offset, offset)
POVMESH_OPTIONS_(Wrap, wrap)
POVMESH_OPTIONS_(Thickness, thickness)
#undef POVMESH_OPTIONS_

/// A report of C with its size set.
template <typename T>
struct Report : T {
    Report() : T() { this->size = sizeof(T); }
};

// ---- arrays

/// Rows of numbers where they lie. Lives as long as what it was asked of.
template <typename T>
class Span {
public:
    Span() = default;
    Span(const T* data, std::size_t size, std::size_t components, std::size_t stride)
        : data_(data), size_(size), components_(components), stride_(stride) {}

    const T* data() const { return data_; }
    std::size_t size() const { return size_; }  // rows
    std::size_t components() const { return components_; }
    std::size_t stride() const { return stride_; }  // bytes
    bool empty() const { return size_ == 0; }
    /// The first number of a row; the others follow it.
    const T* operator[](std::size_t row) const {
        return reinterpret_cast<const T*>(reinterpret_cast<const char*>(data_) + row * stride_);
    }

    class Iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = const T*;
        using difference_type = std::ptrdiff_t;
        using pointer = const value_type*;
        using reference = value_type;
        Iterator(const Span* span, std::size_t row) : span_(span), row_(row) {}
        const T* operator*() const { return (*span_)[row_]; }
        Iterator& operator++() {
            ++row_;
            return *this;
        }
        bool operator==(const Iterator& other) const { return row_ == other.row_; }
        bool operator!=(const Iterator& other) const { return row_ != other.row_; }

    private:
        const Span* span_;
        std::size_t row_;
    };
    Iterator begin() const { return {this, 0}; }
    Iterator end() const { return {this, size_}; }

private:
    const T* data_ = nullptr;
    std::size_t size_ = 0, components_ = 0, stride_ = 0;
};

template <typename T>
constexpr std::int32_t number_type() {
    if constexpr (std::is_same_v<T, float>) return POVMESH_F32;
    if constexpr (std::is_same_v<T, double>) return POVMESH_F64;
    if constexpr (std::is_same_v<T, std::uint8_t>) return POVMESH_U8;
    if constexpr (std::is_same_v<T, std::int16_t>) return POVMESH_I16;
    if constexpr (std::is_same_v<T, std::int32_t>) return POVMESH_I32;
    if constexpr (std::is_same_v<T, std::uint32_t>) return POVMESH_U32;
    if constexpr (std::is_same_v<T, std::int64_t>) return POVMESH_I64;
    if constexpr (std::is_same_v<T, std::uint64_t>) return POVMESH_U64;
    return 0;
}

/// Numbers of the caller as rows of `components`, without a copy.
template <typename T>
povmesh_view view_of(const std::vector<T>& numbers, std::size_t components) {
    static_assert(number_type<T>() != 0, "no type of numbers that a view can have");
    return {numbers.data(), numbers.size() / components, 0, number_type<T>(),
            static_cast<std::int32_t>(components)};
}

template <typename T>
Span<T> span_of(const povmesh_view& view) {
    if (view.type != number_type<T>()) throw Error(POVMESH_INVALID_ARGUMENT, "other numbers");
    return {static_cast<const T*>(view.data), static_cast<std::size_t>(view.count),
            static_cast<std::size_t>(view.components), static_cast<std::size_t>(view.stride)};
}

// ---- context

/// Settings and callbacks of calls, one call at a time. What a callback throws cancels the call and
/// is thrown again behind it.
class Context {
public:
    using Progress = std::function<bool(double percent, const char* phase)>;  // true: go on
    using Log = std::function<void(std::int32_t level, const char* text)>;

    explicit Context(std::uint32_t threads = 0, std::uint64_t memory_limit = 0)
        : state_(std::make_unique<State>()) {
        state_->options.size = sizeof state_->options;
        state_->options.threads = threads;
        state_->options.memory_limit = memory_limit;
        povmesh_context* made = nullptr;
        expect(povmesh_context_create(&state_->options, &made));
        state_->context.reset(made);
    }

    void on_progress(Progress progress) {
        state_->progress = std::move(progress);
        state_->options.progress = state_->progress ? &State::call_progress : nullptr;
        state_->options.progress_user = state_.get();
        configure();
    }
    void on_log(Log log) {
        state_->log = std::move(log);
        state_->options.log = state_->log ? &State::call_log : nullptr;
        state_->options.log_user = state_.get();
        configure();
    }
    void set_threads(std::uint32_t threads) {
        state_->options.threads = threads;
        configure();
    }
    void set_memory_limit(std::uint64_t bytes) {
        state_->options.memory_limit = bytes;
        configure();
    }

    void cancel() noexcept { povmesh_context_cancel(get()); }
    void resume() noexcept { povmesh_context_resume(get()); }
    std::uint64_t peak_bytes() const noexcept { return povmesh_context_peak_bytes(get()); }
    povmesh_context* get() const noexcept { return state_->context.get(); }

    /// Runs a call of C with this context; throws what it came to.
    template <typename Call>
    void run(const Call& call) const {
        const povmesh_status status = call(get());
        if (state_->thrown) std::rethrow_exception(std::exchange(state_->thrown, nullptr));
        if (status == POVMESH_BUSY) throw Error(status, {});
        if (status != POVMESH_OK) throw_error(status, povmesh_context_message(get()));
    }

private:
    struct Destroy {
        void operator()(povmesh_context* context) const { povmesh_context_destroy(context); }
    };
    struct State {
        povmesh_context_options options{};
        std::unique_ptr<povmesh_context, Destroy> context;
        Progress progress;
        Log log;
        std::exception_ptr thrown;

        static std::int32_t call_progress(void* user, double percent, const char* phase) {
            State& state = *static_cast<State*>(user);
            if (state.thrown) return 1;
            try {
                return state.progress(percent, phase) ? 0 : 1;
            } catch (...) {
                state.thrown = std::current_exception();
                return 1;
            }
        }
        static void call_log(void* user, std::int32_t level, const char* text) {
            State& state = *static_cast<State*>(user);
            if (state.thrown) return;
            try {
                state.log(level, text);
            } catch (...) {
                state.thrown = std::current_exception();
            }
        }
    };

    void configure() {
        run([&](povmesh_context* context) {
            return povmesh_context_configure(context, &state_->options);
        });
    }

    std::unique_ptr<State> state_;
};

class Result;

/// Immutable, for any thread; a copy shares.
class Mesh {
public:
    Mesh() = default;
    /// Takes over one ownership.
    explicit Mesh(const povmesh_mesh* mesh) noexcept : mesh_(mesh) {}
    Mesh(const Mesh& other) noexcept : mesh_(other.mesh_) { povmesh_mesh_retain(mesh_); }
    Mesh(Mesh&& other) noexcept : mesh_(std::exchange(other.mesh_, nullptr)) {}
    Mesh& operator=(Mesh other) noexcept {
        std::swap(mesh_, other.mesh_);
        return *this;
    }
    ~Mesh() { povmesh_mesh_release(mesh_); }

    explicit operator bool() const noexcept { return mesh_ != nullptr; }
    const povmesh_mesh* get() const noexcept { return mesh_; }

    static Mesh create(const Context& context, povmesh_mesh_data data) {
        data.size = sizeof data;
        return made_by(context, [&](povmesh_context* c, povmesh_mesh** mesh) {
            return povmesh_mesh_create(c, &data, mesh);
        });
    }
    /// Of triangles: 9 numbers each.
    template <typename Number>
    static Mesh of_soup(const Context& context, const std::vector<Number>& coordinates) {
        povmesh_mesh_data data{};
        data.positions = view_of(coordinates, 9);
        return create(context, data);
    }
    /// Of vertices of 3 numbers and faces of 3 indices.
    template <typename Number, typename Index>
    static Mesh of_faces(const Context& context, const std::vector<Number>& positions,
                         const std::vector<Index>& faces) {
        povmesh_mesh_data data{};
        data.positions = view_of(positions, 3);
        data.faces = view_of(faces, 3);
        return create(context, data);
    }
    static Mesh read(const Context& context, const std::string& path,
                     const ReadOptions& options = {}, povmesh_read_report* report = nullptr) {
        return made_by(context, [&](povmesh_context* c, povmesh_mesh** mesh) {
            return povmesh_read_file(c, path.c_str(), &options, mesh, report);
        });
    }
    static Mesh read_bytes(const Context& context, std::string_view bytes,
                           const ReadOptions& options = {}, povmesh_read_report* report = nullptr) {
        return made_by(context, [&](povmesh_context* c, povmesh_mesh** mesh) {
            return povmesh_read_memory(c, bytes.data(), bytes.size(), &options, mesh, report);
        });
    }
    void write(const Context& context, const std::string& path, const WriteOptions& options = {},
               povmesh_write_report* report = nullptr) const {
        context.run([&](povmesh_context* c) {
            return povmesh_write_file(c, mesh_, path.c_str(), &options, report);
        });
    }
    std::string write_bytes(const Context& context, const char* format,
                            povmesh_write_report* report = nullptr) const {
        WriteOptions options;
        options.format = format;
        void* data = nullptr;
        std::size_t bytes = 0;
        context.run([&](povmesh_context* c) {
            return povmesh_write_memory(c, mesh_, &options, &data, &bytes, report);
        });
        const std::unique_ptr<void, void (*)(void*)> owner(data, povmesh_free);
        return {static_cast<const char*>(data), bytes};
    }

    Span<float> positions() const { return rows<float>(POVMESH_POSITIONS); }
    Span<std::int32_t> faces() const { return rows<std::int32_t>(POVMESH_FACES); }
    Span<std::uint8_t> colours() const { return rows<std::uint8_t>(POVMESH_COLOURS); }
    Span<std::int16_t> labels() const { return rows<std::int16_t>(POVMESH_LABELS); }
    template <typename T>
    Span<T> rows(std::int32_t array) const {
        povmesh_view view{};
        expect(povmesh_mesh_view(mesh_, array, &view));
        return span_of<T>(view);
    }
    Report<povmesh_measures> measure(const Context& context) const {
        Report<povmesh_measures> measures;
        context.run([&](povmesh_context* c) { return povmesh_measure(c, mesh_, &measures); });
        return measures;
    }
    Report<povmesh_distance_report> distance(const Context& context, const Mesh& to,
                                             const DistanceOptions& options = {}) const {
        Report<povmesh_distance_report> report;
        context.run([&](povmesh_context* c) {
            return povmesh_distance(c, mesh_, to.mesh_, &options, &report);
        });
        return report;
    }

#define POVMESH_TO_MESH_(Name, name)                                           \
    Mesh name(const Context& context, const Name##Options& options = {},       \
              povmesh_##name##_report* report = nullptr) const {               \
        return made_by(context, [&](povmesh_context* c, povmesh_mesh** mesh) { \
            return povmesh_##name(c, mesh_, &options, mesh, report);           \
        });                                                                    \
    }
#define POVMESH_TO_RESULT_(Name, name)                                     \
    Result name(const Context& context, const Name##Options& options = {}, \
                povmesh_##name##_report* report = nullptr) const;
    POVMESH_TO_MESH_(Repair, repair)
    POVMESH_TO_MESH_(Reduce, reduce)
    POVMESH_TO_MESH_(Remesh, remesh)
    POVMESH_TO_MESH_(Revise, revise)
    POVMESH_TO_MESH_(Hollow, hollow)
    POVMESH_TO_MESH_(Infill, infill)
    POVMESH_TO_MESH_(Voxelize, voxelize)
    POVMESH_TO_MESH_(Offset, offset)
    POVMESH_TO_MESH_(Wrap, wrap)
    POVMESH_TO_RESULT_(Check, check)
    POVMESH_TO_RESULT_(Split, split)
    POVMESH_TO_RESULT_(Cut, cut)
    POVMESH_TO_RESULT_(Support, support)
    POVMESH_TO_RESULT_(Strength, strength)
    POVMESH_TO_RESULT_(Decompose, decompose)
    POVMESH_TO_RESULT_(Lampshade, lampshade)
    POVMESH_TO_RESULT_(Balance, balance)
    POVMESH_TO_RESULT_(Thickness, thickness)
#undef POVMESH_TO_MESH_
#undef POVMESH_TO_RESULT_
    Mesh subdivide(const Context& context, const SubdivideOptions& options = {}) const {
        return made_by(context, [&](povmesh_context* c, povmesh_mesh** mesh) {
            return povmesh_subdivide(c, mesh_, &options, mesh);
        });
    }
    Result weakness(const Context& context, const WeaknessOptions& options = {}) const;
    Result orient(const Context& context, const OrientOptions& options = {}) const;

private:
    template <typename Call>
    static Mesh made_by(const Context& context, const Call& call) {
        povmesh_mesh* mesh = nullptr;
        // An exception of the log comes behind a call that went well.
        try {
            context.run([&](povmesh_context* c) { return call(c, &mesh); });
        } catch (...) {
            povmesh_mesh_release(mesh);
            throw;
        }
        return Mesh(mesh);
    }

    const povmesh_mesh* mesh_ = nullptr;
};

/// Meshes, arrays and text; a copy shares.
class Result {
public:
    Result() = default;
    explicit Result(const povmesh_result* result) : result_(result, povmesh_result_release) {}

    std::size_t size() const {
        return static_cast<std::size_t>(povmesh_result_mesh_count(result_.get()));
    }
    Mesh mesh(std::size_t i) const {
        const povmesh_mesh* const mesh = povmesh_result_mesh(result_.get(), i);
        povmesh_mesh_retain(mesh);
        return Mesh(mesh);
    }
    std::string text() const { return povmesh_result_text(result_.get()); }
    template <typename T>
    Span<T> rows(std::int32_t array) const {
        povmesh_view view{};
        expect(povmesh_result_view(result_.get(), array, &view));
        return span_of<T>(view);
    }
    const povmesh_result* get() const { return result_.get(); }

    template <typename Call>
    static Result made_by(const Context& context, const Call& call) {
        povmesh_result* result = nullptr;
        try {
            context.run([&](povmesh_context* c) { return call(c, &result); });
        } catch (...) {
            povmesh_result_release(result);
            throw;
        }
        return Result(result);
    }

private:
    std::shared_ptr<const povmesh_result> result_;
};

#define POVMESH_TO_RESULT_(Name, name)                                                     \
    inline Result Mesh::name(const Context& context, const Name##Options& options,         \
                             povmesh_##name##_report* report) const {                      \
        return Result::made_by(context, [&](povmesh_context* c, povmesh_result** result) { \
            return povmesh_##name(c, mesh_, &options, result, report);                     \
        });                                                                                \
    }
POVMESH_TO_RESULT_(Check, check)
POVMESH_TO_RESULT_(Split, split)
POVMESH_TO_RESULT_(Cut, cut)
POVMESH_TO_RESULT_(Support, support)
POVMESH_TO_RESULT_(Strength, strength)
POVMESH_TO_RESULT_(Decompose, decompose)
POVMESH_TO_RESULT_(Lampshade, lampshade)
POVMESH_TO_RESULT_(Balance, balance)
POVMESH_TO_RESULT_(Thickness, thickness)
#undef POVMESH_TO_RESULT_

inline Result Mesh::weakness(const Context& context, const WeaknessOptions& options) const {
    return Result::made_by(context, [&](povmesh_context* c, povmesh_result** result) {
        return povmesh_weakness(c, mesh_, &options, result);
    });
}

inline Result Mesh::orient(const Context& context, const OrientOptions& options) const {
    return Result::made_by(context, [&](povmesh_context* c, povmesh_result** result) {
        return povmesh_orient(c, mesh_, &options, result);
    });
}

/// A PNG file of some meshes.
inline std::string render(const Context& context, const std::vector<Mesh>& meshes,
                          const RenderOptions& options = {}) {
    std::vector<const povmesh_mesh*> handles;
    for (const Mesh& mesh : meshes) handles.push_back(mesh.get());
    void* png = nullptr;
    std::size_t bytes = 0;
    context.run([&](povmesh_context* c) {
        return povmesh_render(c, handles.data(), handles.size(), &options, &png, &bytes);
    });
    const std::unique_ptr<void, void (*)(void*)> owner(png, povmesh_free);
    return {static_cast<const char*>(png), bytes};
}

}  // namespace povmesh
