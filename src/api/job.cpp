#include "api/job.h"

#include <utility>

namespace povmesh::api {
namespace {

// Process-wide and unguarded: hosts make one call at a time.
std::uint32_t internal_cell = 0;
std::uint32_t* current_cell = &internal_cell;
ProgressObserver progress_observer;

Progress current_progress() {
    if (current_cell == nullptr) return {};
    return Progress(current_cell, progress_observer ? &progress_observer : nullptr);
}

}  // namespace

RunLog& run_log() {
    static RunLog log;
    return log;
}

void set_log_sink(LogSink sink) {
    run_log() = RunLog(std::move(sink));
}

void set_progress_observer(ProgressObserver observer) {
    progress_observer = std::move(observer);
}

std::uint32_t* progress_cell() {
    return current_cell;
}

Job::Job() : run_{current_progress(), run_log()} {}

Job::Job(std::uint32_t* cell) : run_{{}, run_log()} {
    current_cell = cell;
    run_.progress = current_progress();
    run_.progress.set(0);
}

Job::~Job() {
    current_cell = &internal_cell;
}

}  // namespace povmesh::api
