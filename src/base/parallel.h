// Parallel loops over fixed-size blocks, with the same result bits for any number of threads.
#pragma once

#include <cstddef>
#include <type_traits>
#include <vector>

namespace povmesh {

/// Items per block. Fixed, because sums are formed per block: a size that followed the number of
/// threads would change their rounding.
constexpr std::size_t kParallelBlock = 4096;

/// While one of these lives, the loops of this thread run on it alone: for work so small that
/// handing it to other threads, and waiting for them, takes longer than doing it.
class OneThread {
public:
    OneThread();
    ~OneThread();
    OneThread(const OneThread&) = delete;
    OneThread& operator=(const OneThread&) = delete;

private:
    int before_;
};

namespace detail {

using BlockFunction = void (*)(void* context, std::size_t block);
void run_blocks(std::size_t count, BlockFunction function, void* context);

}  // namespace detail

/// Calls `body(block)` for every block below `count`, at the same time and in any order, on threads
/// of the OpenMP runtime or, in a call with a JobState, of the call: each may write only its own. A
/// throw ends the loop, that of the lowest block counts. So does Cancelled (base/job_state.h).
template <typename Body>
void for_blocks(std::size_t count, Body&& body) {
    using Plain = std::remove_reference_t<Body>;
    detail::run_blocks(
        count, [](void* context, std::size_t block) { (*static_cast<Plain*>(context))(block); },
        const_cast<void*>(static_cast<const void*>(&body)));
}

/// Calls `body(i)` for every i below `count`. The calls of different blocks run at the same time,
/// so each may write only what belongs to its own i. Exceptions as above.
template <typename Body>
void parallel_for(std::size_t count, Body&& body) {
    const std::size_t blocks = (count + kParallelBlock - 1) / kParallelBlock;
    for_blocks(blocks, [&](std::size_t block) {
        const std::size_t end = block + 1 == blocks ? count : (block + 1) * kParallelBlock;
        for (std::size_t i = block * kParallelBlock; i < end; ++i) body(i);
    });
}

/// Sum of `term(i)` over every i below `count`, in double: per block in index order, then over the
/// blocks in block order. Exceptions as above.
template <typename Term>
double blocked_sum(std::size_t count, Term&& term) {
    const std::size_t blocks = (count + kParallelBlock - 1) / kParallelBlock;
    std::vector<double> sums(blocks);
    for_blocks(blocks, [&](std::size_t block) {
        const std::size_t end = block + 1 == blocks ? count : (block + 1) * kParallelBlock;
        double sum = 0;
        for (std::size_t i = block * kParallelBlock; i < end; ++i) sum += term(i);
        sums[block] = sum;
    });
    double total = 0;
    for (const double sum : sums) total += sum;
    return total;
}

}  // namespace povmesh
