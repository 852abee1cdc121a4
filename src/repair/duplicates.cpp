// Faces meet in a hash table under their sorted vertices; the first of a kind stays in it and the
// others are duplicates.
#include "repair/duplicates.h"

#include <algorithm>
#include <array>
#include <bit>

#include "base/memory.h"

namespace povmesh {
namespace {

constexpr std::size_t kBlock = 64;  // faces whose slots are asked for before the first is needed

std::array<std::int32_t, 3> sorted_vertices(const Face& face) {
    auto [a, b, c] = face.vertex;
    if (a > b) std::swap(a, b);
    if (b > c) std::swap(b, c);
    if (a > b) std::swap(a, b);
    return {a, b, c};
}

std::uint64_t hash_of(const std::array<std::int32_t, 3>& v) {
    std::uint64_t h = static_cast<std::uint32_t>(v[0]) * 0x9E3779B97F4A7C15U;
    h = (h ^ (h >> 32) ^ static_cast<std::uint32_t>(v[1])) * 0xD6E8FEB86659FD93U;
    h = (h ^ (h >> 32) ^ static_cast<std::uint32_t>(v[2])) * 0x9E3779B97F4A7C15U;
    return h ^ (h >> 32);
}

}  // namespace

Array<std::uint32_t> find_duplicate_faces(const TriMesh& mesh) {
    // An open-addressing table of faces by their vertices; 0 is empty, others are face + 1.
    const std::size_t mask = std::bit_ceil(mesh.faces.size() + mesh.faces.size() / 2 + 16) - 1;
    Array<std::uint32_t> slots(mask + 1, 0);
    Array<std::uint32_t> duplicates;
    std::array<std::size_t, kBlock> home{};
    for (std::size_t first = 0; first < mesh.faces.size(); first += kBlock) {
        const std::size_t count = std::min(kBlock, mesh.faces.size() - first);
        for (std::size_t i = 0; i < count; ++i) {
            home[i] = hash_of(sorted_vertices(mesh.faces[first + i])) & mask;
            prefetch(&slots[home[i]]);
        }
        for (std::size_t i = 0; i < count; ++i) {
            const Face& face = mesh.faces[first + i];
            if (face.deleted != 0) continue;
            const std::array<std::int32_t, 3> vertices = sorted_vertices(face);
            std::size_t place = home[i];
            while (slots[place] != 0 && sorted_vertices(mesh.faces[slots[place] - 1]) != vertices) {
                place = (place + 1) & mask;
            }
            if (slots[place] == 0) {
                slots[place] = static_cast<std::uint32_t>(first + i + 1);
            } else {
                duplicates.push_back(static_cast<std::uint32_t>(first + i));
            }
        }
    }
    return duplicates;
}

}  // namespace povmesh
