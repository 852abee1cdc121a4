// Ctrl-C ends the operation, not the program in the middle of something.
#pragma once

#include <atomic>
#include <cstdint>

namespace povmesh::cli {

/// From here on SIGINT and SIGTERM ask the operation to end: it leaves no half-written file and no
/// temporary one. A second signal ends the program at once. A signal that was ignored stays so.
void watch_for_interrupts();

/// Not 0 when one came. Outlives all operations.
std::atomic<std::uint32_t>& interrupt_wish();

/// The exit status of a program that a signal ended: 130 for Ctrl-C. 0 when none came.
int interrupt_status();

}  // namespace povmesh::cli
