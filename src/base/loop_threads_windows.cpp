#include <windows.h>

#include <algorithm>
#include <exception>
#include <new>
#include <system_error>
#include <thread>

#include "base/loop_threads.h"

namespace povmesh::detail {
namespace {

// Nothing of it is destroyed: when a process ends, the system has ended its other threads before.
struct Team {
    SRWLOCK lock = SRWLOCK_INIT;  // of all below
    CONDITION_VARIABLE begin = CONDITION_VARIABLE_INIT;
    CONDITION_VARIABLE end = CONDITION_VARIABLE_INIT;
    BlockLoop* loop = nullptr;  // null: free for the next one
    JobState* job = nullptr;
    int places = 0;  // how many may still join the loop
    int busy = 0;    // how many are at it
    int started = 0;
};
constinit Team team;

class TeamLock {
public:
    TeamLock() { AcquireSRWLockExclusive(&team.lock); }
    ~TeamLock() { ReleaseSRWLockExclusive(&team.lock); }
    TeamLock(const TeamLock&) = delete;
    TeamLock& operator=(const TeamLock&) = delete;

    static void wait(CONDITION_VARIABLE& condition) {
        (void)SleepConditionVariableSRW(&condition, &team.lock, INFINITE, 0);
    }
};

void work() {
    // A throw needs data of its thread, which the runtime makes at the first look: now, while there
    // is memory.
    (void)std::uncaught_exceptions();
    const SerialScope alone;
    while (true) {
        BlockLoop* loop = nullptr;
        JobState* job = nullptr;
        {
            const TeamLock lock;
            while (team.places == 0) TeamLock::wait(team.begin);
            --team.places;
            ++team.busy;
            loop = team.loop;
            job = team.job;
        }
        {
            const JobScope scope(job);
            loop->take_blocks(job);
        }
        const TeamLock lock;
        if (--team.busy == 0) WakeConditionVariable(&team.end);
    }
}

// Those that there are will do when the system gives no more.
void start(int wanted) {
    try {
        for (; team.started < wanted; ++team.started) std::thread(work).detach();
    } catch (const std::system_error&) {
    } catch (const std::bad_alloc&) {
    }
}

// False when the others are at another loop.
bool invite(BlockLoop& loop, JobState* job, int threads) {
    const TeamLock lock;
    if (team.loop != nullptr) return false;
    start(threads - 1);
    team.loop = &loop;
    team.job = job;
    team.places = std::min(threads - 1, team.started);
    return true;
}

void finish() {
    const TeamLock lock;
    team.places = 0;
    while (team.busy > 0) TeamLock::wait(team.end);
    team.loop = nullptr;
}

}  // namespace

void run_on_loop_threads(BlockLoop& loop, JobState* job, int threads) noexcept {
    const bool is_invited = threads > 1 && serial_depth == 0 && invite(loop, job, threads);
    if (is_invited) WakeAllConditionVariable(&team.begin);
    loop.take_blocks(job);
    if (is_invited) finish();
}

}  // namespace povmesh::detail
