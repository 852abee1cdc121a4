// The percent value that a host watches while a call runs.
#pragma once

#include <atomic>
#include <cstdint>

namespace povmesh {

/// Writes milestones into a 32-bit cell that belongs to somebody else; without a cell it does nothing.
class Progress {
public:
    Progress() = default;
    explicit Progress(std::uint32_t* cell) : cell_(cell) {}

    /// Stores a percent value. Hosts poll the cell from another thread, hence the atomic store.
    void set(std::uint32_t percent) const {
        if (cell_ == nullptr) return;
        std::atomic_ref<std::uint32_t>(*cell_).store(percent, std::memory_order_release);
    }

private:
    std::uint32_t* cell_ = nullptr;
};

}  // namespace povmesh
