// The context itself, and what asks no context: versions, statuses, what this library has.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <thread>

#include "context/frame.h"

namespace povmesh::context {
namespace {

constexpr std::uint32_t kMostThreads = 1024;

// Of a list "4,2" the first number counts, as for the OpenMP runtime.
unsigned default_threads() {
    const char* const asked = std::getenv("OMP_NUM_THREADS");
    unsigned number = 0;
    if (asked != nullptr) {
        (void)std::from_chars(asked, asked + std::strlen(asked), number);
    }
    if (number == 0) number = std::thread::hardware_concurrency();
    return std::clamp(number, 1U, unsigned{kMostThreads});
}

void configure(Call& call, povmesh_context& context, const povmesh_context_options* given) {
    povmesh_context_options options = call.options(given, povmesh_context_options{});
    call.require(options.threads <= kMostThreads, "threads", "must be at most 1024");
    context.threads = options.threads != 0 ? options.threads : default_threads();
    context.options = options;
}

constexpr std::array<std::string_view, 25> kOperations = {
    "balance",   "check",    "cut",    "decompose", "distance",  "hollow",  "infill",
    "lampshade", "offset",   "orient", "read",      "reduce",    "remesh",  "render",
    "repair",    "revise",   "split",  "strength",  "subdivide", "support", "thickness",
    "voxelize",  "weakness", "wrap",   "write"};
constexpr std::array<std::string_view, 4> kFormats = {"stl", "obj", "ply", "3mf"};

template <typename Names>
bool has_name(const Names& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace
}  // namespace povmesh::context

using namespace povmesh::context;

const char* povmesh_status_text(povmesh_status status) {
    switch (status) {
        case POVMESH_OK:
            return "done";
        case POVMESH_CANCELLED:
            return "cancelled";
        case POVMESH_OUT_OF_MEMORY:
            return "out of memory";
        case POVMESH_INVALID_ARGUMENT:
            return "invalid argument";
        case POVMESH_CANNOT_READ:
            return "cannot read";
        case POVMESH_BAD_FILE:
            return "bad file";
        case POVMESH_CANNOT_WRITE:
            return "cannot write";
        case POVMESH_TOO_LARGE:
            return "too large";
        case POVMESH_NOTHING:
            return "no result";
        case POVMESH_UNSUPPORTED:
            return "unsupported";
        case POVMESH_BUSY:
            return "busy";
        case POVMESH_INTERNAL:
            return "internal error";
        default:
            return "unknown status";
    }
}

uint32_t povmesh_version() {
    return POVMESH_VERSION;
}

const char* povmesh_version_text() {
#if defined(__clang__)
    return POVMESH_BUILD_VERSION ", " POVMESH_BUILD_TYPE ", clang " __clang_version__;
#elif defined(__GNUC__)
    return POVMESH_BUILD_VERSION ", " POVMESH_BUILD_TYPE ", gcc " __VERSION__;
#else
    return POVMESH_BUILD_VERSION ", " POVMESH_BUILD_TYPE;
#endif
}

int32_t povmesh_has(const char* what) {
    if (what == nullptr) return 0;
    const std::string_view asked(what);
    const std::size_t colon = asked.find(':');
    if (colon == std::string_view::npos) return 0;
    const std::string_view kind = asked.substr(0, colon);
    const std::string_view name = asked.substr(colon + 1);
    if (kind == "operation") return has_name(kOperations, name) ? 1 : 0;
    if (kind == "read" || kind == "write") return has_name(kFormats, name) ? 1 : 0;
    return 0;
}

povmesh_status povmesh_context_create(const povmesh_context_options* options,
                                      povmesh_context** context) {
    if (context == nullptr) return POVMESH_INVALID_ARGUMENT;
    std::unique_ptr<povmesh_context> made(new (std::nothrow) povmesh_context);
    if (made == nullptr) return POVMESH_OUT_OF_MEMORY;
    const povmesh_status status = povmesh_context_configure(made.get(), options);
    if (status == POVMESH_OK) *context = made.release();
    return status;
}

povmesh_status povmesh_context_configure(povmesh_context* context,
                                         const povmesh_context_options* options) {
    // What it sets is not what this call itself works with.
    return run(context, [&](Call& call) { configure(call, *context, options); });
}

void povmesh_context_destroy(povmesh_context* context) {
    delete context;
}

void povmesh_context_cancel(povmesh_context* context) {
    if (context != nullptr) context->wish.fetch_or(povmesh::CancelledFromOutside);
}

void povmesh_context_resume(povmesh_context* context) {
    if (context != nullptr) {
        context->wish.fetch_and(~std::uint32_t{povmesh::CancelledFromOutside});
    }
}

const char* povmesh_context_message(const povmesh_context* context) {
    return context != nullptr ? context->message.data() : "";
}

uint64_t povmesh_context_peak_bytes(const povmesh_context* context) {
    return context != nullptr ? context->peak_bytes : 0;
}
