// Conversions at the ends of their ranges, parallel loops, blocks and arrays.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <new>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "base/array.h"
#include "base/convert.h"
#include "base/job_state.h"
#include "base/memory.h"
#include "base/parallel.h"
#include "base/vec.h"

namespace povmesh {
namespace {

template <typename Int, typename Float>
void expect_saturation() {
    using Limits = std::numeric_limits<Int>;
    constexpr Float kInfinity = std::numeric_limits<Float>::infinity();
    const Float past_high = std::ldexp(Float{1}, Limits::digits);
    const Float inside = std::nextafter(past_high, Float{0});
    const Float low = std::is_signed_v<Int> ? -past_high : Float{0};
    const struct {
        Float value;
        Int expected;
    } cases[] = {{std::numeric_limits<Float>::quiet_NaN(), 0},
                 {kInfinity, Limits::max()},
                 {past_high, Limits::max()},
                 {inside, static_cast<Int>(inside)},
                 {Float{99.9F}, 99},
                 {Float{-0.9F}, 0},
                 {low, Limits::min()},
                 {std::nextafter(low, -kInfinity), Limits::min()},
                 {-kInfinity, Limits::min()}};
    for (const auto& c : cases) {
        // Read anew: a compiler folds what does not fit in its own way.
        const volatile Float value = c.value;
        EXPECT_EQ(saturate_to<Int>(static_cast<Float>(value)), c.expected)
            << c.value << " to " << sizeof(Int)
            << (std::is_signed_v<Int> ? " signed" : " unsigned");
    }
}

template <typename... Int>
void expect_saturation_of_all() {
    (expect_saturation<Int, float>(), ...);
    (expect_saturation<Int, double>(), ...);
}

TEST(SaturateTo, HoldsTheEndsOfEveryWidth) {
    expect_saturation_of_all<std::int8_t, std::uint8_t, std::int16_t, std::uint16_t, std::int32_t,
                             std::uint32_t, std::int64_t, std::uint64_t>();
}

TEST(NarrowToFloat, KeepsFiniteNumbersFinite) {
    constexpr float kLargest = std::numeric_limits<float>::max();
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    const struct {
        double wide;
        float narrow;
    } cases[] = {{0.1, 0.1F},
                 {double{kLargest}, kLargest},
                 {double{kLargest} * (1 + 0x1p-26), kLargest},
                 {1e39, kLargest},
                 {-std::numeric_limits<double>::max(), -kLargest},
                 {1e-300, 0.0F},
                 {kInfinity, std::numeric_limits<float>::infinity()},
                 {-kInfinity, -std::numeric_limits<float>::infinity()}};
    for (const auto& c : cases) EXPECT_EQ(narrow_to_float(c.wide), c.narrow) << c.wide;
    EXPECT_TRUE(std::isnan(narrow_to_float(std::numeric_limits<double>::quiet_NaN())));
}

TEST(ParallelFor, VisitsEveryIndexOnceAndSumsByBlocks) {
    const auto term = [](std::size_t i) { return 1.0 / static_cast<double>(i * i % 1009 + 1); };
    const std::size_t counts[] = {
        0, 1, kParallelBlock - 1, kParallelBlock, kParallelBlock + 1, 25 * kParallelBlock + 17};
    for (const std::size_t count : counts) {
        std::vector<int> visits(count);
        parallel_for(count, [&](std::size_t i) { ++visits[i]; });
        EXPECT_EQ(visits, std::vector<int>(count, 1)) << count;

        double expected = 0;
        for (std::size_t first = 0; first < count; first += kParallelBlock) {
            double block = 0;
            for (std::size_t i = first; i < count && i < first + kParallelBlock; ++i)
                block += term(i);
            expected += block;
        }
        EXPECT_EQ(blocked_sum(count, term), expected) << count;  // the same bits
    }
}

// Threads of the process serve one loop at a time, whatever its callers are and stand in.
TEST(ParallelFor, LoopsOfTwoThreadsAndInsideOneAnotherKeepTheirBlocksApart) {
    const auto run_loops = [](int* wrong) {
        for (int round = 0; round < 5; ++round) {
            std::array<int, 128> visits{};
            for_blocks(16, [&](std::size_t outer) {
                std::this_thread::sleep_for(std::chrono::milliseconds(2));  // others come in
                for_blocks(8, [&](std::size_t inner) { ++visits[outer * 8 + inner]; });
            });
            if (std::count(visits.begin(), visits.end(), 1) != 128) ++*wrong;
        }
    };
    int wrong[2] = {};
    std::thread other(run_loops, &wrong[0]);
    run_loops(&wrong[1]);
    other.join();
    EXPECT_EQ(wrong[0], 0);
    EXPECT_EQ(wrong[1], 0);
}

// Out of a thread that the runtime started, an exception would end the process.
TEST(ParallelFor, LackOfMemoryReachesTheCaller) {
    for (const std::size_t count : {std::size_t{1}, 50 * kParallelBlock}) {
        const auto fail = [&](std::size_t i) {
            if (i + 1 == count) throw std::bad_alloc();
        };
        EXPECT_THROW(parallel_for(count, fail), std::bad_alloc) << count;
    }
}

// What a host is told must not hang on which thread was first.
TEST(ParallelFor, TheLowestBlockThatThrowsCounts) {
    std::atomic<std::uint32_t> wish = 0;
    JobState job({.wish = &wish, .threads = 4});
    for (JobState* const state : {static_cast<JobState*>(nullptr), &job}) {
        const JobScope scope(state);
        for (int i = 0; i < 20; ++i) {
            try {
                for_blocks(64, [](std::size_t block) {
                    if (block >= 9) throw block;
                });
                FAIL();
            } catch (std::size_t block) {
                EXPECT_EQ(block, 9U);
            }
        }
    }
}

// Threads of the call, its polls and its sums: the bits are those without a call, a wish from
// outside ends the loop, and blocks that a body allocates are charged wherever it runs.
TEST(JobState, RunsLoopsAsWithoutItUntilItIsCancelled) {
    std::atomic<std::uint32_t> wish = 0;
    const auto term = [](std::size_t i) { return 1.0 / static_cast<double>(i + 1); };
    const double expected = blocked_sum(100 * kParallelBlock, term);
    for (const unsigned threads : {1U, 2U, 5U}) {
        JobState job({.wish = &wish, .threads = threads});
        const JobScope scope(&job);
        EXPECT_EQ(blocked_sum(100 * kParallelBlock, term), expected) << threads;
        std::atomic<std::int64_t> inner = 0;
        for_blocks(64, [&](std::size_t) {
            const Array<char> charged(100'000);
            for_blocks(3, [&](std::size_t) { ++inner; });  // in its own thread
        });
        EXPECT_EQ(inner, 64 * 3);
        EXPECT_EQ(job.held_bytes(), 0);
        EXPECT_GE(job.peak_bytes(), 100'000U);
        std::atomic<int> begun = 0;
        EXPECT_THROW(for_blocks(1000,
                                [&](std::size_t block) {
                                    ++begun;
                                    if (block == 20) wish = CancelledFromOutside;
                                }),
                     Cancelled);
        EXPECT_LT(begun, 1000);
        wish = 0;
    }
}

TEST(JobState, HoldsNoMoreThanItsLimit) {
    JobState job({.memory_limit = 1'000'000});
    const JobScope scope(&job);
    {
        Array<char> half(500'000);
        EXPECT_THROW(half.resize(600'000), std::bad_alloc);  // both at once while it moves
        EXPECT_EQ(job.held_bytes(), 500'000);
    }
    EXPECT_EQ(job.held_bytes(), 0);
    const Array<char> all(1'000'000);
    EXPECT_EQ(job.peak_bytes(), all.size());
}

// A host's function hears of the call on its own thread, and cancels it.
TEST(JobState, ReportsOnTheCallingThreadAndCancelsAtItsWord) {
    struct Host {
        std::thread::id thread = std::this_thread::get_id();
        double percent = 0;
        int calls = 0;
    } host;
    std::atomic<std::uint32_t> wish = 0;
    const auto report = [](void* user, double percent, const char* phase) {
        Host& to = *static_cast<Host*>(user);
        EXPECT_EQ(std::this_thread::get_id(), to.thread);
        EXPECT_EQ(current_job(), nullptr);
        EXPECT_GE(percent, to.percent);
        EXPECT_STREQ(phase, "thinking");
        to.percent = percent;
        return ++to.calls == 5;
    };
    JobState job({.wish = &wish, .threads = 2, .report = report, .report_user = &host});
    const JobScope scope(&job);
    for (const double percent : {10.0, 30.0, 20.0}) job.set_progress(percent, "thinking");
    EXPECT_EQ(host.calls, 2);
    EXPECT_THROW(
        for_blocks(1000,
                   [](std::size_t) { std::this_thread::sleep_for(std::chrono::milliseconds(5)); }),
        Cancelled);
    EXPECT_EQ(wish, CancelledByReport);
}

TEST(Blocks, AreAlignedAndWritableAndTheirSizeDoesNotWrap) {
    for (const std::size_t bytes :
         {std::size_t{0}, std::size_t{1}, std::size_t{3} << 20, (std::size_t{64} << 20) + 1}) {
        auto* block = static_cast<unsigned char*>(allocate_block(bytes));
        ASSERT_NE(block, nullptr) << bytes;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignof(std::max_align_t), 0U);
        if (bytes > 0) block[0] = block[bytes - 1] = 1;
        free_block(block, bytes);
    }
    free_block(nullptr, 0);
    EXPECT_THROW(UninitialisedAllocator<double>().allocate(~std::size_t{0} / 4),
                 std::bad_array_new_length);
}

TEST(Array, SetsWhatAssignSetsAndConstructsWhatNeedsIt) {
    Array<int> numbers(3, 7);
    numbers.resize(5, 8);
    numbers.push_back(9);
    numbers.insert(numbers.begin(), 6);
    EXPECT_EQ(numbers, (Array<int>{6, 7, 7, 7, 8, 8, 9}));
    numbers.resize(1'000'000);
    std::iota(numbers.begin(), numbers.end(), 0);
    Array<int> moved = std::move(numbers);
    moved.resize(2'000'000);  // the old elements move along, across a change of block kind
    EXPECT_EQ(moved[999'999], 999'999);

    Array<std::string> texts;
    texts.resize(2);
    EXPECT_EQ(texts[1], "");
}

TEST(Box3, IsNotWidenedByNan) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    Box3f box;
    EXPECT_TRUE(box.is_empty());
    box.widen({nan, nan, nan});
    EXPECT_TRUE(box.is_empty());
    box.widen({1, -2, 3});
    box.widen({nan, 5, 2});
    EXPECT_EQ(box.low, (Vec3f{1, -2, 2}));
    EXPECT_EQ(box.extent(), (Vec3f{0, 7, 1}));
}

}  // namespace
}  // namespace povmesh
