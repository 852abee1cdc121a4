// What fails on purpose: every allocation, every poll, a limit at every height.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>

#include "helpers/thorough.h"
#include "operations.h"

namespace {

std::atomic<std::int64_t> live_blocks = 0;

}  // namespace

// clang's ThreadSanitizer brings an allocator that cannot be replaced: there only what is charged
// is counted and fails.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define POVMESH_TEST_KEEPS_ALLOCATOR
#endif
#endif
#ifndef POVMESH_TEST_KEEPS_ALLOCATOR

// Allocations of containers that are not charged fail in their turn, too.
void* operator new(std::size_t bytes) {
    if (const povmesh::JobState* const job = povmesh::current_job()) {
        povmesh::FaultPlan* const faults = job->settings().faults;
        if (faults != nullptr && faults->fails_allocation()) throw std::bad_alloc();
    }
    void* const block = std::malloc(bytes != 0 ? bytes : 1);
    if (block == nullptr) throw std::bad_alloc();
    live_blocks.fetch_add(1, std::memory_order_relaxed);
    return block;
}
void operator delete(void* block) noexcept {
    if (block != nullptr) live_blocks.fetch_sub(1, std::memory_order_relaxed);
    std::free(block);
}
void operator delete(void* block, std::size_t /*bytes*/) noexcept {
    operator delete(block);
}

// All forms are replaced together: a sanitizer's own would not pair with the rest.
void* operator new(std::size_t bytes, const std::nothrow_t& /*tag*/) noexcept {
    try {
        return operator new(bytes);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept {
    operator delete(block);
}
void* operator new[](std::size_t bytes) {
    return operator new(bytes);
}
void* operator new[](std::size_t bytes, const std::nothrow_t& tag) noexcept {
    return operator new(bytes, tag);
}
void operator delete[](void* block) noexcept {
    operator delete(block);
}
void operator delete[](void* block, std::size_t /*bytes*/) noexcept {
    operator delete(block);
}
void operator delete[](void* block, const std::nothrow_t& /*tag*/) noexcept {
    operator delete(block);
}

#endif

namespace povmesh::test {
namespace {

// Trials of an operation that makes more allocations are spread over them. Sanitizers look at every
// access of each, and see what the other number of threads leaves with the quick ones.
constexpr std::int64_t kMostTrials = trials<std::int64_t>(300);
constexpr std::int64_t kMostSlowTrials = kIsSanitized ? 2 : 3;

class Faults : public testing::Test {
protected:
    Faults() { mesh_ = make_mesh(context_, flawed_model(2)); }
    ~Faults() override {
        povmesh_mesh_release(mesh_);
        povmesh_context_destroy(context_);
    }

    povmesh_context* context_ = make_context(1);
    povmesh_mesh* mesh_ = nullptr;
};

// One failed call: its status, nothing left, nothing written.
void expect_clean(povmesh_context* context, const TestedOperation& operation,
                  const povmesh_mesh* mesh, povmesh_status allowed, const CallOutcome& right,
                  FaultPlan* plan) {
    const std::int64_t before = live_blocks;
    {
        context->faults = plan;
        const CallOutcome outcome = operation.call(context, mesh);
        context->faults = nullptr;
        if (outcome.status == POVMESH_OK) {
            EXPECT_EQ(outcome.bytes, right.bytes);
        } else {
            EXPECT_EQ(outcome.status, allowed) << povmesh_context_message(context);
            EXPECT_TRUE(outcome.is_untouched);
            EXPECT_EQ(context->left_bytes, 0);
        }
    }
    EXPECT_EQ(live_blocks, before) << "blocks left behind";
}

TEST_F(Faults, EveryAllocationThatFailsIsAStatusAndNothingStays) {
    std::printf("%-10s %8s %12s %8s\n", "operation", "threads", "allocations", "tried");
    for (const TestedOperation& operation : tested_operations()) {
        for (const std::uint32_t threads : {1U, 4U}) {
            if (kIsSanitized && !operation.is_quick && threads == 1) continue;
            SCOPED_TRACE(std::string(operation.name) + " " + std::to_string(threads));
            povmesh_context* const context = make_context(threads);
            FaultPlan counting;
            context->faults = &counting;
            const CallOutcome right = operation.call(context, mesh_);
            context->faults = nullptr;
            ASSERT_EQ(right.status, POVMESH_OK) << povmesh_context_message(context);
            const std::int64_t all = counting.allocations_seen;
            const std::int64_t most = operation.is_quick ? kMostTrials : kMostSlowTrials;
            const std::int64_t step = std::max<std::int64_t>(1, all / most);
            std::int64_t tried = 0;
            for (std::int64_t n = 1; n <= all; n += step, ++tried) {
                FaultPlan plan;
                plan.allocation = n;
                plan.for_ever = tried % 2 == 1;
                expect_clean(context, operation, mesh_, POVMESH_OUT_OF_MEMORY, right, &plan);
                if (HasFailure()) FAIL() << "allocation " << n;
            }
            EXPECT_EQ(operation.call(context, mesh_).bytes, right.bytes);
            std::printf("%-10s %8u %12lld %8lld\n", operation.name, threads,
                        static_cast<long long>(all), static_cast<long long>(tried));
            povmesh_context_destroy(context);
        }
    }
}

TEST_F(Faults, EveryPollCanCancelAndNothingStays) {
    for (const TestedOperation& operation : tested_operations()) {
        SCOPED_TRACE(operation.name);
        FaultPlan counting;
        context_->faults = &counting;
        const CallOutcome right = operation.call(context_, mesh_);
        context_->faults = nullptr;
        const std::int64_t all = counting.polls_seen;
        ASSERT_GE(all, 1);
        const std::int64_t most = operation.is_quick ? kMostTrials : kMostSlowTrials;
        for (std::int64_t n = 1; n <= all; n += std::max<std::int64_t>(1, all / most)) {
            FaultPlan plan;
            plan.poll = n;
            expect_clean(context_, operation, mesh_, POVMESH_CANCELLED, right, &plan);
            if (HasFailure()) FAIL() << "poll " << n;
        }
        EXPECT_EQ(operation.call(context_, mesh_).bytes, right.bytes);
    }
}

TEST_F(Faults, ALimitOfThePeakIsEnoughAndEveryLowerOneIsAStatus) {
    for (const TestedOperation& operation : tested_operations()) {
        if (!operation.is_quick || std::string(operation.name) == "files") continue;
        SCOPED_TRACE(operation.name);
        const CallOutcome right = operation.call(context_, mesh_);
        const std::uint64_t peak = povmesh_context_peak_bytes(context_);
        ASSERT_GT(peak, 0U);
        for (std::uint64_t step = 1; step <= 64; ++step) {
            povmesh_context* const limited =
                make_context(1, std::max<std::uint64_t>(1, peak * step / 64));
            expect_clean(limited, operation, mesh_, POVMESH_OUT_OF_MEMORY, right, nullptr);
            EXPECT_LE(povmesh_context_peak_bytes(limited),
                      std::max<std::uint64_t>(1, peak * step / 64));
            if (step == 64) {
                EXPECT_EQ(operation.call(limited, mesh_).status, POVMESH_OK);
            }
            povmesh_context_destroy(limited);
        }
    }
}

// Processor time of this thread since its last poll, and the most of it.
double time_of_last_poll = 0;
double longest_gap = 0;

void note_poll() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    const double now = static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    longest_gap = std::max(longest_gap, now - time_of_last_poll);
    time_of_last_poll = now;
}

// A loop that does not poll and takes 30 ms here takes 120 ms on a million triangles, which is
// longer than a cancelled call may. A neighbour's noise only adds, so the best of three counts.
TEST_F(Faults, NoWorkIsLongWithoutAPoll) {
    constexpr double kMost = kIsSanitized ? 0.3 : 0.03;
    povmesh_mesh* const large = make_mesh(context_, shapes::sphere(20, kIsSanitized ? 6 : 7));
    for (const TestedOperation& operation : tested_operations()) {
        const std::string name = operation.name;
        if (std::string(" check split cut revise support ").find(" " + name + " ") ==
            std::string::npos) {
            continue;
        }
        double best = HUGE_VAL;
        for (int i = 0; i < 3 && best > kMost; ++i) {
            FaultPlan plan;
            plan.on_poll = note_poll;
            note_poll();
            longest_gap = 0;
            context_->faults = &plan;
            EXPECT_EQ(operation.call(context_, large).status, POVMESH_OK);
            context_->faults = nullptr;
            best = std::min(best, longest_gap);
        }
        EXPECT_LT(best, kMost) << name;
    }
    povmesh_mesh_release(large);
}

// The C library's count sees the blocks that nobody replaced, too.
std::size_t bytes_in_use() {
#if defined(__GLIBC__)
    return mallinfo2().uordblks;
#else
    return 0;  // no such count: the blocks have to tell it alone
#endif
}

// What a service does all day.
TEST_F(Faults, AThousandCallsLeaveNothingBehind) {
    constexpr std::size_t kCached = 16384;  // blocks that the C library keeps for its next ones
    povmesh_mesh* const small = make_mesh(context_, flawed_model(0));
    for (const TestedOperation& operation : tested_operations()) {
        if (!operation.is_quick) continue;
        (void)operation.call(context_, small);
        const std::int64_t blocks = live_blocks;
        const std::size_t bytes = bytes_in_use();
        const int calls = trials(operation.name == std::string("repair") ? 1000 : 25);
        for (int i = 0; i < calls; ++i) (void)operation.call(context_, small);
        EXPECT_EQ(live_blocks, blocks) << operation.name;
        EXPECT_LE(bytes_in_use(), bytes + kCached) << operation.name;
    }
    povmesh_mesh_release(small);
}

}  // namespace
}  // namespace povmesh::test
