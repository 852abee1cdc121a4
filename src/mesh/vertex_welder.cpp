// Welding by an open-addressing hash table.
//
// Two corners are one vertex when (cell, key) agree, where the cell is that of a grid of 101^3 over
// the bounding box and the key a sum over the bit patterns of the coordinates. The key has 51 bits
// and the cell 20, so a slot of 16 bytes holds both and the vertex number.
#include "mesh/vertex_welder.h"

#include <array>
#include <bit>
#include <cstring>

namespace povmesh {
namespace {

constexpr std::uint64_t kKeyX = 108881;
constexpr std::uint64_t kKeyY = 110881;
constexpr std::uint64_t kKeyZ = 118081;

constexpr std::uint32_t kCellsPerAxis = 101;

// Largest share of used slots, in eighths. A closed mesh has half as many vertices as faces; with
// the hint of half the face count its table is at most this full. Fuller tables probe longer,
// emptier ones leave the caches earlier.
constexpr std::size_t kFullEighths = 5;

constexpr std::uint64_t key_of(float x, float y, float z) {
    return std::bit_cast<std::uint32_t>(x) * kKeyX + std::bit_cast<std::uint32_t>(y) * kKeyY +
           std::bit_cast<std::uint32_t>(z) * kKeyZ;
}

// Cell on one axis. The comparisons are such that a NaN (inf / inf, or a NaN coordinate) gives 0.
std::uint32_t axis_cell(float coordinate, float low, float cell_size) {
    const float quotient = coordinate > low ? (coordinate - low) / cell_size : 0.0F;
    const float from_zero = quotient > 0.0F ? quotient : 0.0F;
    const float limited = from_zero < 100.0F ? from_zero : 100.0F;
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(limited));
}

float cell_size(float low, float high) {
    const float extent = high - low;
    return (extent > 0.0F ? extent : 0.0F) / 100.0F;
}

}  // namespace

void widen(WeldBox& box, Vec3f corner) {
    if (corner.x < box.low.x) box.low.x = corner.x;
    if (corner.y < box.low.y) box.low.y = corner.y;
    if (corner.z < box.low.z) box.low.z = corner.z;
    if (corner.x > box.high.x) box.high.x = corner.x;
    if (corner.y > box.high.y) box.high.y = corner.y;
    if (corner.z > box.high.z) box.high.z = corner.z;
}

WeldBox weld_box(const float* corners, std::size_t corner_count) {
    // Twelve lanes hold four corners, so that whole vector registers are compared: lane l belongs
    // to axis l % 3.
    constexpr std::size_t kLanes = 12;
    const WeldBox start;
    std::array<float, kLanes> low{};
    std::array<float, kLanes> high{};
    low.fill(start.low.x);
    high.fill(start.high.x);
    const std::size_t float_count = corner_count * 3;
    const std::size_t whole = float_count / kLanes * kLanes;
    for (std::size_t i = 0; i < whole; i += kLanes) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            const float value = corners[i + lane];
            low[lane] = value < low[lane] ? value : low[lane];
            high[lane] = value > high[lane] ? value : high[lane];
        }
    }
    WeldBox box;
    for (std::size_t lane = 0; lane < kLanes; lane += 3) {
        widen(box, {low[lane], low[lane + 1], low[lane + 2]});
        widen(box, {high[lane], high[lane + 1], high[lane + 2]});
    }
    for (std::size_t i = whole; i < float_count; i += 3) {
        widen(box, {corners[i], corners[i + 1], corners[i + 2]});
    }
    return box;
}

VertexWelder::VertexWelder(const WeldBox& box, std::size_t expected_vertices)
    : low_(box.low),
      cell_size_{cell_size(box.low.x, box.high.x), cell_size(box.low.y, box.high.y),
                 cell_size(box.low.z, box.high.z)} {
    const std::size_t wanted = (expected_vertices + kBlock) * 8 / kFullEighths;
    const std::size_t slot_count = std::bit_ceil(wanted);
    slots_.assign(slot_count, Slot{});
    shift_ = 64U - static_cast<unsigned>(std::countr_zero(slot_count));
}

std::size_t VertexWelder::home(std::uint64_t key, std::uint32_t cell) const {
    // Keys of coordinates with few mantissa bits differ in high bits only: the first product
    // carries low bits up, the shift brings high ones down, the second product spreads them.
    std::uint64_t h = (key ^ (std::uint64_t{cell} << 44)) * 0x9E3779B97F4A7C15U;
    h ^= h >> 32;
    h *= 0xD6E8FEB86659FD93U;
    return h >> shift_;
}

void VertexWelder::make_room(std::size_t vertex_count) {
    if (vertex_count <= slots_.size() / 8 * kFullEighths) return;
    Array<Slot> old;
    old.swap(slots_);
    slots_.assign(old.size() * 2, Slot{});
    --shift_;
    const std::size_t mask = slots_.size() - 1;
    for (const Slot& slot : old) {
        if (slot.number_plus_one == 0) continue;
        std::size_t place = home(slot.key, slot.cell);
        while (slots_[place].number_plus_one != 0) place = (place + 1) & mask;
        slots_[place] = slot;
    }
}

std::int32_t VertexWelder::find_or_add(Vec3f corner, std::uint64_t key, std::uint32_t cell,
                                       std::size_t start, Vertex* vertices,
                                       std::size_t& vertex_count) {
    Slot* const slots = slots_.data();
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t place = start;; place = (place + 1) & mask) {
        Slot& slot = slots[place];
        if (slot.number_plus_one == 0) {
            const auto number = static_cast<std::int32_t>(vertex_count);
            slot = {key, cell, number + 1};
            vertices[vertex_count++] = {corner.x, corner.y, corner.z, number};
            return number;
        }
        if (slot.key == key && slot.cell == cell) return slot.number_plus_one - 1;
    }
}

void VertexWelder::weld_block(const float* corners, std::size_t corner_count, std::int32_t* numbers,
                              Array<Vertex>& vertices) {
    std::size_t vertex_count = vertices.size();
    make_room(vertex_count + corner_count);
    vertices.resize(vertex_count + corner_count);

    std::array<std::uint64_t, kBlock> key;
    std::array<std::uint32_t, kBlock> cell;
    std::array<std::size_t, kBlock> start;
    for (std::size_t i = 0; i < corner_count; ++i) {
        const float x = corners[3 * i];
        const float y = corners[3 * i + 1];
        const float z = corners[3 * i + 2];
        key[i] = key_of(x, y, z);
        cell[i] = (axis_cell(x, low_.x, cell_size_.x) * kCellsPerAxis +
                   axis_cell(y, low_.y, cell_size_.y)) *
                      kCellsPerAxis +
                  axis_cell(z, low_.z, cell_size_.z);
    }
    // All slots of the block are asked for before the first is needed.
    for (std::size_t i = 0; i < corner_count; ++i) {
        start[i] = home(key[i], cell[i]);
        prefetch(&slots_[start[i]]);
    }
    for (std::size_t i = 0; i < corner_count; ++i) {
        numbers[i] = find_or_add({corners[3 * i], corners[3 * i + 1], corners[3 * i + 2]}, key[i],
                                 cell[i], start[i], vertices.data(), vertex_count);
    }
    vertices.resize(vertex_count);
}

}  // namespace povmesh
