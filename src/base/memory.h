// Raw blocks for large arrays.
#pragma once

#include <cstddef>

namespace povmesh {

/// Allocates `bytes` bytes, aligned for any plain type; throws std::bad_alloc when there are none.
/// Blocks of several megabytes are aligned to 2 MiB and marked as fit for large pages, which spares
/// most of the page faults and address-translation misses of a first pass over them. Charged to the
/// call that the thread works for (base/job_state.h): std::bad_alloc beyond its limit, Cancelled
/// when it is to end.
void* allocate_block(std::size_t bytes);

/// Releases a block of `allocate_block`; `bytes` is what it was asked for. Null does nothing. A
/// call frees only what it allocated itself, so that what it holds stays true.
void free_block(void* block, std::size_t bytes) noexcept;

/// Marks the inside of a block that came from elsewhere, such as malloc, as fit for large pages.
/// Small blocks are left alone.
void advise_large_pages(void* block, std::size_t bytes) noexcept;

/// Asks for the cache line of an address ahead of its use; never faults.
inline void prefetch(const void* address) {
#if defined(__GNUC__)
    __builtin_prefetch(address);
#else
    (void)address;
#endif
}

}  // namespace povmesh
