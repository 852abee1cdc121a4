#include "voxel/voxel_grid.h"

#include <algorithm>
#include <cmath>

#include "base/convert.h"

namespace povmesh {
namespace {

std::int32_t nearest(double point, float size) {
    return saturate_to<std::int32_t>(std::floor(point / static_cast<double>(size) + 0.5));
}

std::size_t count(std::int32_t low, std::int32_t high) {
    return static_cast<std::size_t>(std::int64_t{high} - low + 1);
}

}  // namespace

VoxelGrid::VoxelGrid(const VoxelSettings& settings, const IndexBox& box, Vec3f origin, Vec3f extent)
    : settings_(settings), box_(box), origin_(origin), extent_(extent) {
    if (box.low.x > box.high.x || box.low.y > box.high.y || box.low.z > box.high.z) {
        box_ = {};
        return;
    }
    words_per_row_ = (count(box.low.x, box.high.x) + 2 + 63) / 64;
    rows_per_layer_ = count(box.low.y, box.high.y) + 2;
    layer_count_ = count(box.low.z, box.high.z) + 2;
    // One word more: the neighbours along x of the last word are asked for.
    occupied_.assign(word_count() + 1, 0);
    outside_.assign(word_count() + 1, 0);
    chunk_of_.assign(word_count(), 0);
    chunks_.assign(1, Chunk{});
    if (settings.keeps_angles) angles_.assign(1, AngleChunk{});
}

float VoxelGrid::plane_tolerance() const {
    return static_cast<float>(0.5 * length(to_double(settings_.size)));
}

VoxelIndex VoxelGrid::index_at(Vec3d point) const {
    return {nearest(point.x, settings_.size.x), nearest(point.y, settings_.size.y),
            nearest(point.z, settings_.size.z)};
}

Vec3f VoxelGrid::centre_of(VoxelIndex i) const {
    return {place(i.x, settings_.size.x), place(i.y, settings_.size.y),
            place(i.z, settings_.size.z)};
}

VoxelIndex VoxelGrid::index_of(std::size_t cell) const {
    const std::size_t row = cell / 64 / words_per_row_;
    const std::size_t x = cell - row * words_per_row_ * 64;
    const auto back = [](std::size_t at, std::int32_t low) {
        return static_cast<std::int32_t>(static_cast<std::int64_t>(at) - 1 + low);
    };
    return {back(x, box_.low.x), back(row % rows_per_layer_, box_.low.y),
            back(row / rows_per_layer_, box_.low.z)};
}

std::uint32_t VoxelGrid::make_chunk(std::size_t word) {
    std::uint32_t& chunk = chunk_of_[word];
    if (chunk == 0) {
        chunk = static_cast<std::uint32_t>(chunks_.size());
        chunks_.push_back({});
        if (has_colours_) colours_.push_back({});
        if (settings_.keeps_angles) angles_.push_back({});
    }
    return chunk;
}

VoxelGrid::Chunk& VoxelGrid::edit_flags(std::size_t word) {
    ++edits_;
    are_sides_marked_ = false;
    return chunks_[make_chunk(word)];
}

void VoxelGrid::clear_flags() {
    ++edits_;
    are_sides_marked_ = false;
    for (Chunk& chunk : chunks_) chunk = {};
}

VoxelColour VoxelGrid::colour_of(std::size_t cell) const {
    if (!has_colours_) return kWhite;
    return turned(colours_[chunk_of_[cell / 64]][cell % 64]);
}

void VoxelGrid::set_colour(std::size_t cell, VoxelColour colour) {
    if (colour == kWhite && (!has_colours_ || chunk_of_[cell / 64] == 0)) return;
    if (!has_colours_) {
        has_colours_ = true;
        colours_.assign(chunks_.size(), ColourChunk{});
    }
    colours_[make_chunk(cell / 64)][cell % 64] = turned(colour);
}

void VoxelGrid::set_angle(std::size_t cell, std::int8_t angle) {
    if (!settings_.keeps_angles || (angle == kNoAngle && chunk_of_[cell / 64] == 0)) return;
    angles_[make_chunk(cell / 64)][cell % 64] = static_cast<std::int8_t>(kNoAngle - angle);
}

Voxel VoxelGrid::voxel_at(std::size_t cell) const {
    Voxel voxel;
    voxel.index = index_of(cell);
    voxel.key = key_of(voxel.index);
    voxel.centre = centre_of(voxel.index);
    const std::uint32_t chunk = chunk_of_[cell / 64];
    if (chunk != 0) read_payload(chunk, cell % 64, voxel);
    return voxel;
}

void VoxelGrid::erase(VoxelIndex index) {
    if (!contains(index)) return;
    const std::size_t cell = cell_of(index);
    remove(cell / 64, std::uint64_t{1} << (cell % 64));
    --size_;
}

std::optional<Voxel> VoxelGrid::find(VoxelIndex index) const {
    if (!contains(index)) return {};
    return voxel_at(cell_of(index));
}

void VoxelGrid::set_flags(VoxelIndex index, std::uint8_t flags) {
    if (!contains(index)) return;
    const std::size_t cell = cell_of(index);
    Chunk& chunk = edit_flags(cell / 64);
    const std::uint64_t bit = std::uint64_t{1} << (cell % 64);
    for (std::size_t i = 0; i < kFlagCount; ++i) {
        chunk.flags[i] = (flags >> i & 1U) != 0 ? chunk.flags[i] | bit : chunk.flags[i] & ~bit;
    }
}

void VoxelGrid::recount() {
    ++edits_;
    size_ = 0;
    for (const std::uint64_t word : occupied_) {
        size_ += static_cast<std::size_t>(std::popcount(word));
    }
}

void VoxelGrid::add_white(std::size_t word, std::uint64_t cells) {
    ++edits_;
    forget_outside();
    occupied_[word] |= cells;
    const std::uint32_t chunk = chunk_of_[word];
    if (chunk == 0 || !(has_colours_ || settings_.keeps_angles)) return;
    for (; cells != 0; cells &= cells - 1) {
        const auto bit = static_cast<std::size_t>(std::countr_zero(cells));
        if (has_colours_) colours_[chunk][bit] = {};
        if (settings_.keeps_angles) angles_[chunk][bit] = 0;
    }
}

void VoxelGrid::remove(std::size_t word, std::uint64_t cells) {
    ++edits_;
    forget_outside();
    occupied_[word] &= ~cells;
    if (chunk_of_[word] == 0) return;
    for (std::uint64_t& flags : chunks_[chunk_of_[word]].flags) flags &= ~cells;
}

void VoxelGrid::widen(std::int32_t layers) {
    if (word_count() == 0 || layers <= 0) return;
    // Keys tell 800 cells along x and y apart, of which -400 is the lowest.
    constexpr std::int32_t kLow = -kStrideY / 2;
    constexpr std::int32_t kHigh = kStrideY / 2 - 1;
    const auto grow = [&](std::int32_t& low, std::int32_t& high) {
        low = std::min(low, std::max(low - layers, kLow));
        high = std::max(high, std::min(high + layers, kHigh));
    };
    IndexBox box = box_;
    grow(box.low.x, box.high.x);
    grow(box.low.y, box.high.y);
    box.low.z -= layers;
    box.high.z += layers;
    VoxelGrid wide(settings_, box, origin_, extent_);
    if (is_outside_known_ || remembers_outside_) {
        std::fill(wide.outside_.begin(), wide.outside_.end(), ~std::uint64_t{0});
    }
    // Cell by cell: the rows begin at another bit.
    for (std::size_t word = 0; word < word_count(); ++word) {
        const VoxelIndex first = index_of(word * 64);
        if (!wide.can_hold({box_.low.x, first.y, first.z})) continue;
        const std::uint64_t inside = occupied_[word] | ~outside_[word];
        for (std::uint64_t cells = inside; cells != 0; cells &= cells - 1) {
            const auto bit = static_cast<std::size_t>(std::countr_zero(cells));
            const VoxelIndex index = index_of(word * 64 + bit);
            if (!can_hold(index)) continue;
            const std::size_t cell = wide.cell_of(index);
            wide.outside_[cell / 64] &= ~(std::uint64_t{1} << (cell % 64));
            if (!test(occupied_, word * 64 + bit)) continue;
            const Voxel voxel = voxel_at(word * 64 + bit);
            wide.insert(index, voxel.colour, voxel.angle);
            if (voxel.flags != 0) wide.set_flags(index, voxel.flags);
        }
    }
    wide.is_outside_known_ = is_outside_known_;
    wide.are_sides_marked_ = are_sides_marked_;
    wide.remembers_outside_ = remembers_outside_;
    *this = std::move(wide);
}

}  // namespace povmesh
