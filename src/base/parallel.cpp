#include "base/parallel.h"

#include <omp.h>

#include "base/block_loop.h"
#include "base/job_state.h"
#include "base/keep_loaded.h"
#include "base/loop_threads.h"
#include "base/workers.h"

namespace povmesh {
namespace {

// True where loops must not touch the OpenMP runtime: it ends the process when it gets no memory,
// hangs in the child of a fork and keeps threads behind a call.
bool has_own_workers() {
    const JobState* const job = current_job();
    return job != nullptr && job->settings().has_own_workers;
}

}  // namespace

OneThread::OneThread() : before_(0) {
    ++detail::serial_depth;
    if (has_own_workers()) return;
    before_ = omp_get_max_threads();
    omp_set_num_threads(1);
}

OneThread::~OneThread() {
    --detail::serial_depth;
    if (before_ != 0) omp_set_num_threads(before_);
}

}  // namespace povmesh

namespace povmesh::detail {

constinit thread_local int serial_depth = 0;

namespace {

// The threads of the OpenMP runtime, or those in their place, outlive the loop that starts them. A
// host that unloads our library would unload the runtime with it, and its threads would go on in
// memory that is gone: so the runtime is kept from the first parallel loop on.
void keep_runtime_loaded() {
    static const bool is_kept = keep_loaded(reinterpret_cast<const void*>(&omp_get_max_threads));
    (void)is_kept;
}

int thread_count(const JobState* job) {
    const unsigned asked = job != nullptr && serial_depth == 0 ? job->settings().threads : 0;
    return asked != 0 ? static_cast<int>(asked) : omp_get_max_threads();
}

// The exceptions are carried out of the loop: one that left a thread of the runtime would end the
// process.
void run_on_runtime(BlockLoop& loop, JobState* job) {
    keep_runtime_loaded();
#if defined(_WIN32)
    run_on_loop_threads(loop, job, thread_count(job));
#else
    const std::size_t count = loop.count();
#pragma omp parallel for schedule(dynamic, 1) num_threads(thread_count(job))
    for (std::size_t block = 0; block < count; ++block) {
        if (loop.has_failed()) continue;
        const JobScope scope(job);
        loop.run_block(job, block);
    }
#endif
    loop.rethrow();
}

void run_here(std::size_t count, BlockFunction function, void* context, JobState* job) {
    for (std::size_t block = 0; block < count; ++block) {
        if (job != nullptr) job->poll();
        function(context, block);
    }
}

}  // namespace

void run_blocks(std::size_t count, BlockFunction function, void* context) {
    JobState* const job = current_job();
    if (count < 2) {
        if (count == 1) function(context, 0);
        return;
    }
    if (job == nullptr || !job->settings().has_own_workers) {
        BlockLoop loop(count, function, context);
        run_on_runtime(loop, job);
        return;
    }
    Workers* const workers = serial_depth == 0 ? job->workers() : nullptr;
    if (workers == nullptr) return run_here(count, function, context, job);
    BlockLoop loop(count, function, context);
    const SerialScope inside;  // the loops that stand in this one
    workers->run(loop);
}

}  // namespace povmesh::detail
