// Threads for the parallel loops of a process on Windows. The OpenMP runtime of MinGW makes and
// closes semaphores of the system for every loop; these threads wait on locks of a few bytes.
#pragma once

#include "base/block_loop.h"

namespace povmesh::detail {

/// Runs all blocks, on the calling thread and on up to `threads` - 1 others, and returns when none
/// runs any more. While the others work for another loop, or inside one, the calling thread works
/// alone. They start when they are first asked for and live until the process ends.
void run_on_loop_threads(BlockLoop& loop, JobState* job, int threads) noexcept;

}  // namespace povmesh::detail
