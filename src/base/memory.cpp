#include "base/memory.h"

#include <cstdint>
#include <cstdlib>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace povmesh {
namespace {

constexpr std::size_t kLargePage = std::size_t{2} << 20;

// Below two large pages the rounding would waste more than it saves.
constexpr std::size_t kLargeBlock = 2 * kLargePage;

}  // namespace

void* allocate_block(std::size_t bytes) {
#if defined(__linux__)
    if (bytes >= kLargeBlock && bytes <= static_cast<std::size_t>(-1) - kLargePage) {
        const std::size_t rounded = (bytes + kLargePage - 1) / kLargePage * kLargePage;
        void* block = std::aligned_alloc(kLargePage, rounded);
        if (block == nullptr) throw std::bad_alloc();
        advise_large_pages(block, bytes);
        return block;
    }
#endif
    void* block = std::malloc(bytes != 0 ? bytes : 1);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

void free_block(void* block, std::size_t /*bytes*/) noexcept {
    std::free(block);
}

void advise_large_pages(void* block, std::size_t bytes) noexcept {
#if defined(__linux__)
    if (bytes < kLargeBlock) return;
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    const std::uintptr_t first = (address + kLargePage - 1) / kLargePage * kLargePage;
    const std::uintptr_t last = (address + bytes) / kLargePage * kLargePage;
    // Advice only: where the system has no large pages to give, small ones serve.
    (void)madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
#else
    (void)block;
    (void)bytes;
#endif
}

}  // namespace povmesh
