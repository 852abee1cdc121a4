// The frame of an exported call: the process-wide progress pointer and the process-wide run log.
#pragma once

#include <cstdint>
#include <string_view>

#include "mesh/welding.h"
#include "run/run_context.h"

namespace povmesh::api {

/// The unit that the trace lines of the exported functions name.
constexpr std::string_view kTraceUnit = "TestDll";

/// The run log of every exported call. Without a sink, as hosts have it, the texts are dropped.
RunLog& run_log();

/// Hooks for programs that link these functions statically. An empty function detaches; not to be
/// called while a call runs. The observer sees every value that is written to a host's cell, and
/// those of functions that have none.
void set_log_sink(LogSink sink);
void set_progress_observer(ProgressObserver observer);

/// The cell that progress goes to at present: between calls an internal one, never null then.
std::uint32_t* progress_cell();

/// The frame of one call. While it lives, progress goes to the given cell, or nowhere when that is
/// null; afterwards, also when an exception passes, to the internal cell again.
class Job {
public:
    /// For functions without progress: what operations report goes to the internal cell.
    Job();
    /// Writes 0.
    explicit Job(std::uint32_t* cell);
    ~Job();
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    RunContext& run() { return run_; }
    void progress(std::uint32_t percent) const { run_.progress.set(percent); }

private:
    WeldingScope welding_{Welding::SameSums};  // hosts rely on which vertices there are
    RunContext run_;
};

}  // namespace povmesh::api
