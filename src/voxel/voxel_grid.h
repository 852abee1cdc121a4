// Sets of equal boxes, with a colour and marks for each.
#pragma once

#include <array>
#include <bit>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include "base/array.h"
#include "base/convert.h"
#include "base/vec.h"

namespace povmesh {

/// The place of a voxel, counted in voxels from the one whose centre is the origin of the grid.
struct VoxelIndex {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t z = 0;

    friend bool operator==(const VoxelIndex&, const VoxelIndex&) = default;
};

/// Both ends belong to it; empty unless low <= high on every axis.
struct IndexBox {
    VoxelIndex low{0, 0, 0};
    VoxelIndex high{-1, -1, -1};
};

using VoxelColour = std::array<std::uint8_t, 3>;  // red, green, blue
constexpr VoxelColour kWhite = {255, 255, 255};

/// What becomes of 90 degrees and less; a voxel without a normal angle has this.
constexpr std::int8_t kNoAngle = 127;

namespace voxel {

/// Sides of a voxel, in the order of the bits of its face flags: bit i is set when side i is
/// exposed.
enum class Side : std::uint8_t { Top, Right, Back, Bottom, Left, Front };  // +z +x +y -z -x -y
inline constexpr std::array kSides = {Side::Top,    Side::Right, Side::Back,
                                      Side::Bottom, Side::Left,  Side::Front};

}  // namespace voxel

constexpr std::size_t kSideCount = 6;
constexpr std::uint8_t kSideFlags = 0x3F;
/// The flags above the sides are a number that keeps the voxel from so many passes of an erosion.
constexpr std::uint8_t kKeptOnce = 0x40;
constexpr std::size_t kFlagCount = 8;

struct Voxel {
    std::int64_t key = 0;
    VoxelIndex index;
    Vec3f centre;  // relative to the origin of the grid
    VoxelColour colour = kWhite;
    std::uint8_t flags = 0;
    std::int8_t angle = kNoAngle;  // whole degrees between the surface normal and the z axis
};

/// What a grid is made with.
struct VoxelSettings {
    Vec3f size;                 // edge lengths, model units
    bool keeps_angles = false;  // normal angles cost a byte for each cell near the surface
};

/// A sparse set of voxels in a box of cells, ordered by key.
///
/// The key of a voxel is 2 x + 1600 y + 1280000 z. Within 800 cells along x and y it orders the
/// voxels by z, then y, then x, which is the order of the cells here.
///
/// One bit a cell says whether there is a voxel. Rows along x are padded to whole words of 64 bits,
/// ordered by y, then z, so the order of the bits is that of the keys, and passes over many voxels
/// work on words. Around the box lies a margin of one empty cell on each side, so that every voxel
/// has neighbours to ask. Flags, colours and angles lie in chunks, one for each word that has any;
/// a voxel without a chunk has no flag set, is white and has no angle.
///
/// Memory: 0.3 bytes for each cell of the box (one bit for the voxel, one for "outside", 4 bytes a
/// word), and for each word of voxels with flags or colours 64 bytes, 192 more in a coloured grid,
/// 64 more with angles.
///
/// Inserting, erasing and finding take constant time and may be done in the middle of a walk.
class VoxelGrid {
public:
    static constexpr std::int32_t kStrideY = 800;
    static constexpr std::int32_t kStrideZ = 640000;
    static constexpr std::size_t kNoCell = static_cast<std::size_t>(-1);

    /// A grid without a cell.
    VoxelGrid() = default;

    /// An empty grid whose voxels can lie in the box.
    /// @param origin  model coordinates of the centre of voxel (0, 0, 0)
    /// @param extent  size of the model, model units
    VoxelGrid(const VoxelSettings& settings, const IndexBox& box, Vec3f origin = {},
              Vec3f extent = {});

    std::size_t size() const { return size_; }
    bool is_empty() const { return size_ == 0; }
    const VoxelSettings& settings() const { return settings_; }
    const IndexBox& box() const { return box_; }
    Vec3f origin() const { return origin_; }
    Vec3f extent() const { return extent_; }
    bool has_colours() const { return has_colours_; }

    /// Half the space diagonal of a voxel: a face marks no voxel whose centre is farther from its
    /// plane.
    float plane_tolerance() const;

    static std::int64_t key_of(VoxelIndex i) {
        return 2 *
               (std::int64_t{i.x} + std::int64_t{kStrideY} * i.y + std::int64_t{kStrideZ} * i.z);
    }
    /// The voxel that a point, relative to the origin, falls into; half-way between two it is the
    /// higher one. Saturates.
    VoxelIndex index_at(Vec3d point) const;
    Vec3f centre_of(VoxelIndex index) const;

    bool can_hold(VoxelIndex i) const {
        return i.x >= box_.low.x && i.x <= box_.high.x && i.y >= box_.low.y && i.y <= box_.high.y &&
               i.z >= box_.low.z && i.z <= box_.high.z;
    }

    /// Adds a voxel, or gives the one that is there another colour and angle. The box must be able
    /// to hold it. Its flags and those of its neighbours stay as they are.
    void insert(VoxelIndex index, VoxelColour colour = kWhite, std::int8_t angle = kNoAngle) {
        assert(can_hold(index));
        const std::size_t cell = cell_of(index);
        std::uint64_t& word = occupied_[cell / 64];
        const std::uint64_t bit = std::uint64_t{1} << (cell % 64);
        if ((word & bit) == 0) {
            word |= bit;
            ++size_;
            ++edits_;
            forget_outside();
        }
        if (has_colours_ || colour != kWhite) set_colour(cell, colour);
        if (settings_.keeps_angles) set_angle(cell, angle);
    }
    /// Removes a voxel if it is there.
    void erase(VoxelIndex index);
    bool contains(VoxelIndex index) const {
        return can_hold(index) && test(occupied_, cell_of(index));
    }
    std::optional<Voxel> find(VoxelIndex index) const;
    void set_flags(VoxelIndex index, std::uint8_t flags);

    /// Calls `visit(voxel)` for every voxel in the order of the keys. A visit may insert and erase;
    /// what it inserts at higher keys is visited, too.
    template <typename Visit>
    void for_each(Visit&& visit) const;

    /// Makes room for `layers` more cells on every side, as far as the keys reach along x and y.
    void widen(std::int32_t layers);

    // ------------------------------------------------------------- for passes over words of cells
    //
    // A cell is numbered as its bit: word times 64 plus the bit in the word.

    using Words = Array<std::uint64_t>;
    struct Chunk {
        std::array<std::uint64_t, kFlagCount> flags;  // one word for each flag
        std::uint64_t any() const {
            return flags[0] | flags[1] | flags[2] | flags[3] | flags[4] | flags[5] | flags[6] |
                   flags[7];
        }
    };

    std::size_t words_per_row() const { return words_per_row_; }
    std::size_t rows_per_layer() const { return rows_per_layer_; }
    std::size_t layer_count() const { return layer_count_; }
    std::size_t words_per_layer() const { return words_per_row_ * rows_per_layer_; }
    std::size_t row_count() const { return rows_per_layer_ * layer_count_; }
    std::size_t word_count() const { return words_per_row_ * row_count(); }

    /// Number of the cell of an index in the box or its margin.
    std::size_t cell_of(VoxelIndex i) const {
        const auto x = static_cast<std::size_t>(std::int64_t{i.x} - box_.low.x + 1);
        const auto y = static_cast<std::size_t>(std::int64_t{i.y} - box_.low.y + 1);
        const auto z = static_cast<std::size_t>(std::int64_t{i.z} - box_.low.z + 1);
        return (z * rows_per_layer_ + y) * words_per_row_ * 64 + x;
    }
    VoxelIndex index_of(std::size_t cell) const;

    /// One bit a cell. Whoever changes voxels by the word calls `recount` afterwards.
    const Words& occupied() const { return occupied_; }
    /// The same to write to; padding and margin stay empty.
    Words& edit_occupied() {
        forget_outside();
        return occupied_;
    }
    void recount();

    /// Cells that are empty and outside, the margin and the padding included; see outside.h. These
    /// are what was found last: every edit of the voxels puts them, and the side flags, out of
    /// date.
    const Words& outside() const { return outside_; }
    /// The same to write to; whoever has brought it up to date says so.
    Words& edit_outside() {
        are_sides_marked_ = false;
        return outside_;
    }
    bool is_outside_known() const { return is_outside_known_; }
    /// Whether the side flags are those of the voxels as they are; then the outside is known, too.
    bool are_sides_marked() const { return are_sides_marked_; }
    /// For those who find the outside or mark the sides, and for edits that know that both are
    /// still right.
    void confirm_outside() { is_outside_known_ = true; }
    void confirm_sides() { is_outside_known_ = are_sides_marked_ = true; }

    /// From now on a cell that was outside once stays so even when voxels close it off: the grid
    /// was made from a mesh, which knows what it encloses.
    void remember_outside() { remembers_outside_ = true; }
    bool remembers_outside() const { return remembers_outside_; }

    /// Calls `visit(word)` for every word outside the margin's rows, in order.
    template <typename Visit>
    void for_each_word(Visit&& visit) const;

    /// The word of the cells beyond a side of those of `word`, which is not in the margin's rows.
    std::uint64_t beyond(const Words& bits, std::size_t word, voxel::Side side) const;

    /// The flags of a word, all zero when it has no chunk.
    const Chunk& flags_of(std::size_t word) const { return chunks_[chunk_of_[word]]; }
    bool has_chunk(std::size_t word) const { return chunk_of_[word] != 0; }
    /// The same to write to; makes the chunk. Valid until the next one is made. No flag may be set
    /// where no voxel is.
    Chunk& edit_flags(std::size_t word);
    void clear_flags();
    /// Adds the voxels of a word at once, white and without flags; those cells must be empty.
    void add_white(std::size_t word, std::uint64_t cells);
    /// Removes the voxels of a word at once, with their flags.
    void remove(std::size_t word, std::uint64_t cells);

    VoxelColour colour_of(std::size_t cell) const;
    void set_colour(std::size_t cell, VoxelColour colour);
    void set_angle(std::size_t cell, std::int8_t angle);
    Voxel voxel_at(std::size_t cell) const;

private:
    static bool test(const Words& bits, std::size_t cell) {
        return (bits[cell / 64] >> (cell % 64) & 1U) != 0;
    }
    void forget_outside() { is_outside_known_ = are_sides_marked_ = false; }
    std::uint32_t make_chunk(std::size_t word);
    void read_payload(std::uint32_t chunk, std::size_t bit, Voxel& voxel) const;
    static float place(std::int32_t index, float size) {
        return narrow_to_float(static_cast<double>(index) * static_cast<double>(size));
    }
    // A colour in what it lacks of white, and back.
    static VoxelColour turned(VoxelColour c) {
        for (std::uint8_t& channel : c) channel = static_cast<std::uint8_t>(255 - channel);
        return c;
    }

    // Colours and angles are kept as what they lack of the default, so that zeros mean white and
    // no angle.
    using ColourChunk = std::array<VoxelColour, 64>;
    using AngleChunk = std::array<std::int8_t, 64>;

    VoxelSettings settings_;
    IndexBox box_;
    Vec3f origin_;
    Vec3f extent_;
    std::size_t words_per_row_ = 0;
    std::size_t rows_per_layer_ = 0;
    std::size_t layer_count_ = 0;
    std::size_t size_ = 0;
    std::uint32_t edits_ = 0;  // counts changes of voxels and flags, for walks
    bool has_colours_ = false;
    bool is_outside_known_ = false;
    bool are_sides_marked_ = false;
    bool remembers_outside_ = false;
    Words occupied_;
    Words outside_;
    Array<std::uint32_t> chunk_of_;  // by word; 0 = none
    Array<Chunk> chunks_;            // chunk 0 has no flag, for ever
    Array<ColourChunk> colours_;     // by chunk; empty in a grid without colours
    Array<AngleChunk> angles_;       // by chunk; empty in a grid without angles
};

/// Cells of the box that a grid needs, beyond which memory is not to be asked for: cells along x
/// and y, in the box, and in the box with margin and padding.
constexpr std::int64_t kMostCellsAlong = 792;
constexpr std::int64_t kMostCells = std::int64_t{1} << 30;
constexpr std::int64_t kMostPaddedCells = std::int64_t{1} << 31;
/// Rows along x with their margin: a tower of few cells along x costs a hundred bytes for each.
constexpr std::int64_t kMostRows = std::int64_t{1} << 21;

// ------------------------------------------------------------------------------- the templates

template <typename Visit>
void VoxelGrid::for_each(Visit&& visit) const {
    // The cells of a word for which there may be more to tell than that they are there.
    const auto marked = [this](std::size_t word) {
        if (!has_chunk(word)) return std::uint64_t{0};
        return has_colours_ || settings_.keeps_angles ? ~std::uint64_t{0} : flags_of(word).any();
    };
    for (std::size_t word = 0; word < word_count(); ++word) {
        std::uint64_t cells = occupied_[word];
        if (cells == 0) continue;
        const VoxelIndex first = index_of(word * 64);
        Voxel voxel;
        voxel.index = first;
        voxel.centre = centre_of(first);
        const std::int64_t first_key = key_of(first);
        std::uint32_t edits = edits_;
        std::uint64_t to_read = marked(word);
        while (cells != 0) {
            const auto bit = static_cast<std::size_t>(std::countr_zero(cells));
            voxel.index.x = first.x + static_cast<std::int32_t>(bit);
            voxel.key = first_key + 2 * static_cast<std::int64_t>(bit);
            voxel.centre.x = place(voxel.index.x, settings_.size.x);
            if ((to_read >> bit & 1U) != 0) {
                read_payload(chunk_of_[word], bit, voxel);
            } else {
                voxel.flags = 0;
                voxel.colour = kWhite;
                voxel.angle = kNoAngle;
            }
            visit(std::as_const(voxel));
            cells &= cells - 1;
            if (edits_ == edits) continue;
            // What the visit erased, inserted or marked ahead counts.
            edits = edits_;
            cells = occupied_[word] & (~std::uint64_t{1} << bit);
            to_read = marked(word);
        }
    }
}

inline void VoxelGrid::read_payload(std::uint32_t chunk, std::size_t bit, Voxel& voxel) const {
    unsigned flags = 0;
    for (unsigned i = 0; i < kFlagCount; ++i) {
        flags |= static_cast<unsigned>(chunks_[chunk].flags[i] >> bit & 1U) << i;
    }
    voxel.flags = static_cast<std::uint8_t>(flags);
    if (has_colours_) voxel.colour = turned(colours_[chunk][bit]);
    if (settings_.keeps_angles) {
        voxel.angle = static_cast<std::int8_t>(kNoAngle - angles_[chunk][bit]);
    }
}

template <typename Visit>
void VoxelGrid::for_each_word(Visit&& visit) const {
    for (std::size_t layer = 1; layer + 1 < layer_count_; ++layer) {
        const std::size_t first = (layer * rows_per_layer_ + 1) * words_per_row_;
        const std::size_t last = first + (rows_per_layer_ - 2) * words_per_row_;
        for (std::size_t word = first; word < last; ++word) visit(word);
    }
}

inline std::uint64_t VoxelGrid::beyond(const Words& bits, std::size_t word,
                                       voxel::Side side) const {
    switch (side) {
        case voxel::Side::Top:
            return bits[word + words_per_layer()];
        case voxel::Side::Right:
            return bits[word] >> 1 | bits[word + 1] << 63;
        case voxel::Side::Back:
            return bits[word + words_per_row_];
        case voxel::Side::Bottom:
            return bits[word - words_per_layer()];
        case voxel::Side::Left:
            return bits[word] << 1 | bits[word - 1] >> 63;
        case voxel::Side::Front:
            return bits[word - words_per_row_];
    }
    return 0;
}

}  // namespace povmesh
