#include "base/memory.h"

#include <cstdint>
#include <cstdlib>
#include <new>

#include "base/job_state.h"

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace povmesh {
namespace {

constexpr std::size_t kLargePage = std::size_t{2} << 20;

// What takes a while to fill is worth a look whether the call is to end.
constexpr std::size_t kPolledBlock = std::size_t{64} << 10;

// Below two large pages the rounding would waste more than it saves.
constexpr std::size_t kLargeBlock = 2 * kLargePage;

bool is_large([[maybe_unused]] std::size_t bytes) {
#if defined(__linux__)
    return bytes >= kLargeBlock && bytes <= static_cast<std::size_t>(-1) - kLargePage;
#else
    return false;
#endif
}

// What a block of so many bytes takes: whole pages, when it is large.
std::size_t taken_by(std::size_t bytes) {
    return is_large(bytes) ? (bytes + kLargePage - 1) / kLargePage * kLargePage : bytes;
}

// Null when the system has no memory.
void* take_from_system(std::size_t bytes) noexcept {
#if defined(__linux__)
    if (is_large(bytes)) {
        void* const block = std::aligned_alloc(kLargePage, taken_by(bytes));
        if (block != nullptr) advise_large_pages(block, bytes);
        return block;
    }
#endif
    return std::malloc(bytes != 0 ? bytes : 1);
}

}  // namespace

void* allocate_block(std::size_t bytes) {
    JobState* const job = current_job();
    if (job != nullptr) {
        if (bytes >= kPolledBlock) job->poll();
        job->charge(taken_by(bytes));
    }
    void* const block = take_from_system(bytes);
    if (block == nullptr) {
        if (job != nullptr) job->release(taken_by(bytes));
        throw std::bad_alloc();
    }
    return block;
}

void free_block(void* block, std::size_t bytes) noexcept {
    if (block == nullptr) return;
    if (JobState* const job = current_job()) job->release(taken_by(bytes));
    std::free(block);
}

void advise_large_pages(void* block, std::size_t bytes) noexcept {
#if defined(__linux__)
    if (bytes < kLargeBlock) return;
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    const std::uintptr_t first = (address + kLargePage - 1) / kLargePage * kLargePage;
    const std::uintptr_t last = (address + bytes) / kLargePage * kLargePage;
    // Advice only: where the system has no large pages to give, small ones serve.
    (void)madvise(static_cast<char*>(block) + (first - address), last - first, MADV_HUGEPAGE);
#else
    (void)block;
    (void)bytes;
#endif
}

}  // namespace povmesh
