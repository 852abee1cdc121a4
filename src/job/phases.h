// What an operation is at, in words: for the bar of the tool, and for hosts.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace povmesh::job {

/// A value of its progress from which on an operation is at it.
struct Phase {
    std::uint32_t value;
    const char* name;
};

/// The phases of an operation of the tool, in their order; none of one that there is not. The first
/// counts below its value, too; writing is the tool's business.
std::span<const Phase> phases_of(std::string_view operation);

/// The one that a value lies in. There must be one.
inline const char* phase_at(std::span<const Phase> phases, std::uint32_t value) {
    const char* name = phases.front().name;
    for (const Phase& phase : phases) {
        if (phase.value <= value) name = phase.name;
    }
    return name;
}

}  // namespace povmesh::job
