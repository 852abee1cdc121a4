// The result slots: where the library remembers the arrays that it has handed to a host.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <span>

namespace povmesh::api {

/// One slot per kind of result array, in the order in which `freeAllArray` goes through them.
enum class Slot {
    Coordinates,
    Colours,
    TextureCoordinates,
    Labels,
    PartTriangles,
    WeaknessCentres,
    WeaknessNormals,
    WeaknessScores,
    LampshadeContourSizes,
    LampshadeLevels,
    DecompositionPlanes,
    DecompositionBoxes,
    DecompositionVolumes,
    SupportColumns,
    SlicerPoints,
    SlicerPolygonSizes,
    BalancingPreview,
    LampshadePoints,
    Count
};

struct FreeMalloc {
    void operator()(void* array) const noexcept { std::free(array); }
};

/// An array from malloc that nobody else knows yet.
template <typename T>
using ResultArray = std::unique_ptr<T[], FreeMalloc>;

/// Never null, also for 0 elements. Throws std::bad_alloc.
template <typename T>
ResultArray<T> allocate_result(std::size_t count) {
    if (count > std::numeric_limits<std::size_t>::max() / sizeof(T)) throw std::bad_alloc();
    void* block = std::malloc(count != 0 ? count * sizeof(T) : 1);
    if (block == nullptr) throw std::bad_alloc();
    return ResultArray<T>(static_cast<T*>(block));
}

/// Remembers an array from malloc. What the slot held before is forgotten, not freed: the host that
/// has not freed it may still be reading it.
void fill_slot(Slot slot, void* array) noexcept;

/// What the slot remembers, or null.
void* slot_content(Slot slot) noexcept;

/// Frees the arrays of the slots that hold one, and empties the slots.
void free_slots(std::span<const Slot> slots) noexcept;

/// Gives an array to its slot and to the host, who may not want it (null).
template <typename T>
void hand_over(Slot slot, T* array, T** out) noexcept {
    fill_slot(slot, array);
    if (out != nullptr) *out = array;
}
template <typename T>
void hand_over(Slot slot, ResultArray<T> array, T** out) noexcept {
    hand_over(slot, array.release(), out);
}

/// Stores a count or a status for a host who may not want it (null).
template <typename T>
void store(T* out, T value) noexcept {
    if (out != nullptr) *out = value;
}

}  // namespace povmesh::api
