#include "context/frame.h"

#include <algorithm>
#include <exception>
#include <new>
#include <stdexcept>

#include "base/poll.h"
#include "job/numbers.h"

namespace povmesh::context {
namespace {

void set_message(povmesh_context& context, std::string_view text) noexcept {
    std::size_t length = std::min(text.size(), kLongestMessage);
    // Not in the middle of a character.
    if (length < text.size()) {
        while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80) --length;
    }
    for (std::size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        context.message[i] = byte < 0x20 || byte == 0x7F ? '?' : text[i];
    }
    context.message[length] = '\0';
}

povmesh_status status_of(StatusCode code) {
    switch (code) {
        case StatusCode::Ok:
            return POVMESH_OK;
        case StatusCode::CannotRead:
            return POVMESH_CANNOT_READ;
        case StatusCode::BadFile:
            return POVMESH_BAD_FILE;
        case StatusCode::CannotWrite:
            return POVMESH_CANNOT_WRITE;
        case StatusCode::TooLarge:
            return POVMESH_TOO_LARGE;
        case StatusCode::BadOption:
            return POVMESH_INVALID_ARGUMENT;
        case StatusCode::Nothing:
            return POVMESH_NOTHING;
    }
    return POVMESH_INTERNAL;
}

bool report(void* user, double percent, const char* phase) {
    const povmesh_context_options& options = static_cast<povmesh_context*>(user)->options;
    return options.progress(options.progress_user, percent, phase) != 0;
}

JobSettings settings_of(povmesh_context& context) {
    JobSettings settings;
    settings.wish = &context.wish;
    settings.memory_limit = context.options.memory_limit;
    settings.threads = context.threads;
    if (context.options.progress != nullptr) {
        settings.report = report;
        settings.report_user = &context;
    }
    settings.faults = context.faults;
    return settings;
}

povmesh_status run_steps(povmesh_context& context, JobState& job, Steps steps, void* user) {
    const JobScope scope(&job);
    const auto tell = [&](povmesh_status status, std::string_view text) {
        set_message(context, text);
        return status;
    };
    try {
        job.poll();
        Call call(context, job);
        steps(user, call);
        return POVMESH_OK;
    } catch (const Stop& stop) {
        return stop.status;
    } catch (const Cancelled&) {
        return tell(POVMESH_CANCELLED, "cancelled");
    } catch (const std::bad_alloc&) {
        return tell(POVMESH_OUT_OF_MEMORY,
                    "not enough memory for this model; close other programs or reduce it");
    } catch (const std::length_error&) {
        return tell(POVMESH_TOO_LARGE, "too many triangles for one mesh; split the model");
    } catch (const std::exception& error) {
        return tell(POVMESH_INTERNAL, error.what());
    } catch (...) {
        return tell(POVMESH_INTERNAL, "an unknown error; please report this model");
    }
}

}  // namespace

void Call::stop(povmesh_status status, std::string_view text) {
    set_message(context_, text);
    throw Stop{status};
}

void Call::expect(const Status& status) {
    if (!status.ok()) stop(status_of(status.code()), status.text());
}

void Call::refuse(std::string_view name, std::string_view rule) {
    stop(POVMESH_INVALID_ARGUMENT, std::string(name) + " " + std::string(rule));
}

void Call::in_range(double number, double low, double high, std::string_view name) {
    if (number >= low && number <= high) return;
    refuse(name, "must be from " + human_number(low) + " to " + human_number(high));
}

void Call::copy_options(const void* from, void* to, std::size_t known) {
    std::uint32_t size = 0;
    std::memcpy(&size, from, sizeof size);
    require(size >= sizeof size, "size", "must be the size of the struct of the options");
    std::memcpy(to, from, std::min<std::size_t>(size, known));
    const auto* bytes = static_cast<const unsigned char*>(from);
    for (std::size_t i = known; i < size; ++i) {
        if (bytes[i] == 0) continue;
        stop(POVMESH_UNSUPPORTED,
             "the options have a field that this library does not know; use a newer one");
    }
}

Progress Call::progress(std::uint32_t low, std::uint32_t high, std::span<const job::Phase> phases) {
    observer_ = [this, low, high, phases](std::uint32_t value) {
        const std::uint32_t inside = std::clamp(value, low, high) - low;
        // What is at the end itself is not part of the call.
        const char* const phase = job::phase_at(phases, std::min(value, high - 1));
        job_.set_progress(100.0 * inside / (high - low), phase);
    };
    observer_(low);
    return Progress(nullptr, &observer_);
}

void Call::log(const std::vector<std::string>& lines) {
    if (context_.options.log == nullptr) return;
    const JobScope none(nullptr);
    for (const std::string& line : lines) {
        context_.options.log(context_.options.log_user, POVMESH_LOG_WARNING, line.c_str());
    }
}

povmesh_status run_call(povmesh_context* context, Steps steps, void* user) noexcept {
    if (context == nullptr) return POVMESH_INVALID_ARGUMENT;
    if (context->is_busy.exchange(true, std::memory_order_acquire)) return POVMESH_BUSY;
    context->message[0] = '\0';
    context->wish.fetch_and(~std::uint32_t{CancelledByReport}, std::memory_order_relaxed);
    povmesh_status status = POVMESH_OK;
    {
        JobState job(settings_of(*context));
        status = run_steps(*context, job, steps, user);
        context->peak_bytes = job.peak_bytes();
        context->left_bytes = job.held_bytes();
    }
    context->is_busy.store(false, std::memory_order_release);
    return status;
}

std::unique_ptr<povmesh_mesh> hand_on(TriMesh&& mesh, std::shared_ptr<const Origin> origin) {
    auto made = std::make_unique<povmesh_mesh>();
    made->mesh.faces = std::move(mesh.faces);
    made->mesh.vertices = std::move(mesh.vertices);
    made->mesh.texture_coordinates = std::move(mesh.texture_coordinates);
    made->origin = std::move(origin);
    return made;
}

TriMesh plain_copy(const TriMesh& mesh) {
    TriMesh copy;
    polled_copy(mesh.faces, copy.faces);
    polled_copy(mesh.vertices, copy.vertices);
    polled_copy(mesh.texture_coordinates, copy.texture_coordinates);
    return copy;
}

}  // namespace povmesh::context
