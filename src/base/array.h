// Growable arrays whose elements are not zeroed when they are about to be overwritten anyway.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/memory.h"

namespace povmesh {

/// Allocator that default-initialises: `resize` leaves plain numbers unset instead of writing zeros
/// that the next pass overwrites (a mesh of a million triangles saves 36 MB of stores that way).
/// Large blocks are offered to the system for large pages.
template <typename T>
struct UninitialisedAllocator {
    using value_type = T;

    UninitialisedAllocator() = default;
    template <typename U>
    // NOLINTNEXTLINE(google-explicit-constructor): allocators convert into one another
    UninitialisedAllocator(const UninitialisedAllocator<U>& /*other*/) noexcept {}

    T* allocate(std::size_t count) {
        if (count > static_cast<std::size_t>(-1) / sizeof(T)) throw std::bad_array_new_length();
        return static_cast<T*>(allocate_block(count * sizeof(T)));
    }
    void deallocate(T* block, std::size_t count) noexcept { free_block(block, count * sizeof(T)); }

    template <typename U, typename... Args>
    void construct(U* place, Args&&... args) {
        if constexpr (sizeof...(Args) == 0 && std::is_trivially_default_constructible_v<U>) {
            ::new (static_cast<void*>(place)) U;
        } else {
            ::new (static_cast<void*>(place)) U(std::forward<Args>(args)...);
        }
    }

    friend bool operator==(const UninitialisedAllocator&, const UninitialisedAllocator&) {
        return true;
    }
};

/// A vector for plain data. `resize` leaves new elements unset; `assign` and `push_back` set them.
template <typename T>
using Array = std::vector<T, UninitialisedAllocator<T>>;

}  // namespace povmesh
