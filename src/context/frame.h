// The frame of a call: arguments checked, the state of the job, exceptions made statuses.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/status.h"
#include "context/handles.h"
#include "job/phases.h"
#include "job/remarks.h"
#include "run/progress.h"

namespace povmesh::context {

/// Leaves the frame with a status whose message stands in the context already. No std::exception,
/// as nothing below the frame is to catch it.
struct Stop {
    povmesh_status status;
};

/// A call while it runs: what the steps of an operation need of it.
class Call {
public:
    Call(povmesh_context& context, JobState& job) : context_(context), job_(job) {}

    JobState& job() { return job_; }

    [[noreturn]] void stop(povmesh_status status, std::string_view text);
    /// Stops with the status of the library's own kind, unless it is Ok.
    void expect(const Status& status);

    /// INVALID_ARGUMENT with the name of the argument or field, unless all is well.
    void require(bool is_right, std::string_view name, std::string_view rule) {
        if (!is_right) refuse(name, rule);
    }
    template <typename T>
    const T& given(const T* handle, std::string_view name) {
        require(handle != nullptr, name, "must not be null");
        return *handle;
    }
    void finite(double number, std::string_view name) {
        require(std::isfinite(number), name, "must be a finite number");
    }
    void in_range(double number, double low, double high, std::string_view name);
    void above_zero(double number, std::string_view name) {
        require(std::isfinite(number) && number > 0, name, "must be above 0");
    }
    void flag(std::int32_t value, std::string_view name) {
        require(value == 0 || value == 1, name, "must be 0 or 1");
    }

    /// What the caller set of an option struct, and the defaults beside it. Null: the defaults.
    template <typename T>
    T options(const T* options, T defaults) {
        if (options != nullptr) copy_options(options, &defaults, sizeof(T));
        defaults.size = sizeof(T);
        return defaults;
    }
    /// To be asked before the work, so that nothing is written through a wrong one.
    template <typename T>
    void check_report(const T* report) {
        require(report == nullptr || report->size >= sizeof(std::uint32_t), "size",
                "must be the size of the struct of the report");
    }

    /// Values from `low` to `high`, as an operation sets them, become percent and phases.
    Progress progress(std::uint32_t low, std::uint32_t high, std::span<const job::Phase> phases);

    /// Tells the log of warnings; a line each.
    void log(const std::vector<std::string>& lines);
    void log(const Remarks& remarks) {
        log(remarks.warnings);
        log(remarks.doubts);
    }

private:
    [[noreturn]] void refuse(std::string_view name, std::string_view rule);
    void copy_options(const void* from, void* to, std::size_t known);

    povmesh_context& context_;
    JobState& job_;
    ProgressObserver observer_;
};

/// Writes what the caller has room for; what it has beyond becomes 0. Cannot fail.
template <typename T>
void write_report(T* report, T full) noexcept {
    static_assert(std::is_trivially_copyable_v<T>);
    if (report == nullptr) return;
#if defined(__has_builtin)
#if __has_builtin(__builtin_clear_padding)
    __builtin_clear_padding(&full);  // no bytes of our stack, the same ones every time
#endif
#endif
    const std::uint32_t size = report->size;
    const std::size_t known = size < sizeof(T) ? size : sizeof(T);
    std::memset(static_cast<void*>(report), 0, size);
    std::memcpy(static_cast<void*>(report), &full, known);
    std::memcpy(static_cast<void*>(report), &size, sizeof size);
}

using Steps = void (*)(void* user, Call& call);
povmesh_status run_call(povmesh_context* context, Steps steps, void* user) noexcept;

/// Runs the steps of a call. They write through the caller's pointers last, by statements that
/// cannot fail.
template <typename Body>
povmesh_status run(povmesh_context* context, Body&& body) noexcept {
    using Plain = std::remove_reference_t<Body>;
    return run_call(
        context, [](void* user, Call& call) { (*static_cast<Plain*>(user))(call); },
        const_cast<void*>(static_cast<const void*>(&body)));
}

/// A mesh of one owner, made of what an operation left, with what the source had beside it.
std::unique_ptr<povmesh_mesh> hand_on(TriMesh&& mesh, std::shared_ptr<const Origin> origin);

/// Arrays and vertices of a mesh without what can be built again.
TriMesh plain_copy(const TriMesh& mesh);

/// Rows of a result, of plain numbers.
template <typename Number>
void add_rows(povmesh_result& result, std::int32_t array, std::int32_t type,
              std::int32_t components, std::span<const Number> numbers) {
    Array<char> bytes(numbers.size_bytes());
    if (!numbers.empty()) std::memcpy(bytes.data(), numbers.data(), numbers.size_bytes());
    const auto width = static_cast<std::uint64_t>(components);
    const povmesh_view view{bytes.empty() ? nullptr : bytes.data(), numbers.size() / width,
                            width * sizeof(Number), type, components};
    result.arrays.push_back({array, std::move(bytes), view});
}

}  // namespace povmesh::context
