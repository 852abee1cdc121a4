// The percent value that a host watches while a call runs.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

namespace povmesh {

/// Called with each value as it is set, on the thread that runs the operation.
using ProgressObserver = std::function<void(std::uint32_t percent)>;

/// Writes milestones into a 32-bit cell that belongs to somebody else, and tells an observer, who
/// misses none; without either it does nothing.
class Progress {
public:
    Progress() = default;
    explicit Progress(std::uint32_t* cell, const ProgressObserver* observer = nullptr)
        : cell_(cell), observer_(observer) {}

    /// Stores a percent value. Hosts poll the cell from another thread, hence the atomic store.
    void set(std::uint32_t percent) const {
        if (cell_ != nullptr) {
            std::atomic_ref<std::uint32_t>(*cell_).store(percent, std::memory_order_release);
        }
        if (observer_ != nullptr) (*observer_)(percent);
    }

private:
    std::uint32_t* cell_ = nullptr;
    const ProgressObserver* observer_ = nullptr;  // outlives the job; null or callable
};

}  // namespace povmesh
