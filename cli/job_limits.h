// Ends a job that takes too long or too much memory.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace povmesh::cli {

struct LimitValues {
    double seconds = 0;  // 0: as long as it takes
    double bytes = 0;    // of memory that this process holds; 0: as many as it takes
};

enum class Limit : std::uint8_t { Time, Memory };

/// Watches from a thread of its own. Operations have no places where they could be stopped, so what
/// is called when a limit is reached, once and on that thread, ends the program.
class Limits {
public:
    Limits(LimitValues values, std::function<void(Limit)> reached);
    ~Limits();
    Limits(const Limits&) = delete;
    Limits& operator=(const Limits&) = delete;

    /// From now on no limit counts. What has begun to end the program goes on doing so.
    void lift();

private:
    void watch();

    LimitValues values_;
    std::function<void(Limit)> reached_;
    bool is_lifted_ = false;
    std::mutex mutex_;
    std::condition_variable lifted_;
    std::thread watcher_;  // the last member: it uses the others
};

}  // namespace povmesh::cli
