#include "api/slots.h"

#include <array>

namespace povmesh::api {
namespace {

// Process-wide and unguarded: hosts make one call at a time.
std::array<void*, static_cast<std::size_t>(Slot::Count)> slot_arrays{};

}  // namespace

void fill_slot(Slot slot, void* array) noexcept {
    slot_arrays[static_cast<std::size_t>(slot)] = array;
}

void* slot_content(Slot slot) noexcept {
    return slot_arrays[static_cast<std::size_t>(slot)];
}

void free_slots(std::span<const Slot> slots) noexcept {
    for (const Slot slot : slots) {
        std::free(slot_content(slot));
        fill_slot(slot, nullptr);
    }
}

}  // namespace povmesh::api
