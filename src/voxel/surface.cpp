// The boundary of the voxels as squares. Corners are numbered by two layers of the grid's corners
// that move along with the walk.
#include "voxel/surface.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>

#include "base/convert.h"
#include "base/timer.h"
#include "mesh/build_f.h"
#include "voxel/passes.h"
#include "voxel/voxel_pieces.h"

namespace povmesh {
namespace {

// Corner of a square: steps along x, y and z from the corner of the voxel with the lowest
// coordinates, as bits 0, 1 and 2.
using Corners = std::array<unsigned, 4>;

// Counter-clockwise seen from outside, by side.
constexpr std::array<Corners, kSideCount> kSquares = {
    {{4, 5, 7, 6}, {1, 3, 7, 5}, {2, 6, 7, 3}, {0, 2, 3, 1}, {0, 4, 6, 2}, {0, 1, 5, 4}}};

std::array<std::array<unsigned, 3>, 2> triangles_of(const Corners& c) {
    return {{{c[0], c[1], c[2]}, {c[0], c[2], c[3]}}};
}

// Model coordinates of the corners along an axis; corner i is the lower border of cell i of the
// box.
Array<float> corner_places(std::int32_t low, std::int32_t high, float size, float origin) {
    Array<float> places;
    for (std::int64_t i = low; i <= std::int64_t{high} + 1; ++i) {
        const double at = static_cast<double>(origin) +
                          (static_cast<double>(i) - 0.5) * static_cast<double>(size);
        places.push_back(narrow_to_float(at + 0.0));  // not -0.0
    }
    return places;
}

bool is_rising(const Array<float>& places) {
    return std::adjacent_find(places.begin(), places.end(), std::greater_equal<>()) == places.end();
}

std::size_t square_count(const VoxelGrid& grid) {
    std::size_t count = 0;
    grid.for_each_word([&](std::size_t word) {
        if (!grid.has_chunk(word)) return;
        for (std::size_t side = 0; side < kSideCount; ++side) {
            count += static_cast<std::size_t>(std::popcount(grid.flags_of(word).flags[side]));
        }
    });
    return count;
}

// Calls `visit(cell, side)` for every exposed square, by voxel in key order, then by side.
template <typename Visit>
void for_each_square(const VoxelGrid& grid, Visit&& visit) {
    grid.for_each_word([&](std::size_t word) {
        if (!grid.has_chunk(word)) return;
        const VoxelGrid::Chunk& flags = grid.flags_of(word);
        std::uint64_t exposed = 0;
        for (std::size_t side = 0; side < kSideCount; ++side) exposed |= flags.flags[side];
        for (; exposed != 0; exposed &= exposed - 1) {
            const auto bit = static_cast<std::size_t>(std::countr_zero(exposed));
            for (std::size_t side = 0; side < kSideCount; ++side) {
                if ((flags.flags[side] >> bit & 1U) != 0) visit(word * 64 + bit, side);
            }
        }
    });
}

// Makes meshes of squares whose vertices are known by their place in the grid.
class SquareMesher {
public:
    explicit SquareMesher(const VoxelGrid& grid)
        : grid_(grid),
          x_(corner_places(grid.box().low.x, grid.box().high.x, grid.settings().size.x,
                           grid.origin().x)),
          y_(corner_places(grid.box().low.y, grid.box().high.y, grid.settings().size.y,
                           grid.origin().y)),
          z_(corner_places(grid.box().low.z, grid.box().high.z, grid.settings().size.z,
                           grid.origin().z)),
          row_(grid.words_per_row() * 64) {}

    /// Far from the origin, neighbouring corners can round to the same floats.
    bool has_distinct_corners() const { return is_rising(x_) && is_rising(y_) && is_rising(z_); }

    void build(TriMesh& mesh, std::size_t squares) {
        mesh.faces.resize(2 * squares);
        mesh.vertices.reserve(squares + squares / 16 + 8);
        // Two layers of corners; a number below the one with which the layer began is an old one.
        const std::size_t layer_corners = row_ * grid_.rows_per_layer();
        std::array<Array<std::int32_t>, 2> numbers;
        for (auto& layer : numbers) layer.assign(layer_corners, -1);
        std::array<std::int32_t, 2> begins = {0, 0};
        std::size_t layer = 0;
        std::size_t row = 0;
        std::size_t row_begin = 0;  // its first cell
        std::size_t in_layer = 0;   // that cell's number in its layer
        Face* face = mesh.faces.data();
        for_each_square(grid_, [&](std::size_t cell, std::size_t side) {
            if (cell - row_begin >= row_) {
                const std::size_t next_row = cell / row_;
                const std::size_t next_layer = next_row / grid_.rows_per_layer();
                row = next_row % grid_.rows_per_layer();
                row_begin = next_row * row_;
                in_layer = row * row_;
                if (next_layer != layer) {
                    // The upper corners become the lower ones, unless a layer was left out.
                    const auto now = static_cast<std::int32_t>(mesh.vertices.size());
                    begins = {next_layer == layer + 1 ? begins[1] : now, now};
                    if (next_layer == layer + 1) std::swap(numbers[0], numbers[1]);
                    layer = next_layer;
                }
            }
            const std::size_t x = cell - row_begin;
            std::array<std::int32_t, 8> vertex{};
            for (const unsigned c : kSquares[side]) {
                const unsigned up = c >> 2;
                const std::size_t at = in_layer + x + (c & 1U) + (c >> 1 & 1U) * row_;
                std::int32_t& known = numbers[up][at];
                if (known < begins[up]) {
                    known = static_cast<std::int32_t>(mesh.vertices.size());
                    mesh.vertices.push_back({x_[x - 1 + (c & 1U)], y_[row - 1 + (c >> 1 & 1U)],
                                             z_[layer - 1 + up], known});
                }
                vertex[c] = known;
            }
            const VoxelColour colour = grid_.colour_of(cell);
            for (const auto& corners : triangles_of(kSquares[side])) {
                *face++ = {{colour[0], colour[1], colour[2], colour[0], colour[1], colour[2],
                            colour[0], colour[1], colour[2]},
                           0,
                           -1,
                           {vertex[corners[0]], vertex[corners[1]], vertex[corners[2]]},
                           {-1, -1, -1}};
            }
        });
    }

    /// The corners of a square's triangles, 9 floats each, and 9 colour bytes each.
    void append(std::size_t cell, std::size_t side, Array<float>& soup,
                Array<std::uint8_t>& colours) const {
        const std::size_t x = cell % row_;
        const std::size_t y = cell / row_ % grid_.rows_per_layer();
        const std::size_t z = cell / row_ / grid_.rows_per_layer();
        const VoxelColour colour = grid_.colour_of(cell);
        for (const auto& corners : triangles_of(kSquares[side])) {
            for (const unsigned c : corners) {
                soup.push_back(x_[x - 1 + (c & 1U)]);
                soup.push_back(y_[y - 1 + (c >> 1 & 1U)]);
                soup.push_back(z_[z - 1 + (c >> 2)]);
                colours.insert(colours.end(), colour.begin(), colour.end());
            }
        }
    }

private:
    const VoxelGrid& grid_;
    Array<float> x_, y_, z_;
    std::size_t row_;  // cells
};

void build_soup(TriMesh& mesh, const Array<float>& soup, const Array<std::uint8_t>& colours) {
    build_f(mesh, ByteSoup{soup.size() / 9, soup.data(), colours.data()});
}

// Calls `visit(cell, side)` for every exposed square of a piece, by voxel in key order, then by
// side.
template <typename Visit>
void for_each_square(const VoxelGrid& grid, const VoxelPieces& pieces, std::size_t piece,
                     Visit&& visit) {
    pieces.for_each_cell(piece, [&](std::size_t cell) {
        const VoxelGrid::Chunk& flags = grid.flags_of(cell / 64);
        for (std::size_t side = 0; side < kSideCount; ++side) {
            if ((flags.flags[side] >> (cell % 64) & 1U) != 0) visit(cell, side);
        }
    });
}

}  // namespace

struct SurfacePieces::Parts {
    const VoxelGrid& grid;
    SquareMesher mesher;
    VoxelPieces pieces;
    Array<std::uint32_t> kept;

    explicit Parts(const VoxelGrid& voxels) : grid(voxels), mesher(voxels), pieces(voxels) {}

    template <typename Visit>
    void for_each_square(std::size_t piece, Visit&& visit) const {
        povmesh::for_each_square(grid, pieces, piece, visit);
    }
};

SurfacePieces::SurfacePieces(VoxelGrid& grid, std::size_t least_squares, RunContext& run) {
    const Timer timer;
    mark_exposed_sides(grid);
    if (!grid.is_empty()) {
        parts_ = std::make_unique<Parts>(grid);
        for (std::size_t piece = 0; piece < parts_->pieces.size(); ++piece) {
            std::size_t squares = 0;
            parts_->for_each_square(piece,
                                    [&](std::size_t /*cell*/, std::size_t /*side*/) { ++squares; });
            if (squares != 0 && squares >= least_squares) {
                parts_->kept.push_back(static_cast<std::uint32_t>(piece));
            }
        }
    }
    run.log.value(kSurfaceLine, six_decimals(timer.seconds()) + " sec.");
}

SurfacePieces::~SurfacePieces() = default;

std::size_t SurfacePieces::size() const {
    return parts_ ? parts_->kept.size() : 0;
}

TriMesh SurfacePieces::mesh_of(std::size_t piece) const {
    Array<float> soup;
    Array<std::uint8_t> colours;
    parts_->for_each_square(parts_->kept[piece], [&](std::size_t cell, std::size_t side) {
        parts_->mesher.append(cell, side, soup, colours);
    });
    TriMesh mesh;
    build_soup(mesh, soup, colours);
    return mesh;
}

void export_voxels(TriMesh& mesh, const VoxelGrid& grid, RunContext& run) {
    run.log.append("\n\n[start export voxel]");
    const std::size_t squares = square_count(grid);
    run.log.value("facet number", std::to_string(2 * squares));
    if (2 * squares > kMaxFaceCount) throw std::length_error("vector<T> too long");
    mesh.faces.clear();
    mesh.vertices.clear();
    mesh.texture_coordinates.clear();
    mesh.shells.clear();
    mesh.use_table.clear();
    if (squares != 0) {
        SquareMesher mesher(grid);
        if (mesher.has_distinct_corners()) {
            mesher.build(mesh, squares);
        } else {
            Array<float> soup;
            Array<std::uint8_t> colours;
            for_each_square(grid, [&](std::size_t cell, std::size_t side) {
                mesher.append(cell, side, soup, colours);
            });
            build_soup(mesh, soup, colours);
        }
    }
    run.log.append("voxel object has been exported.");
}

}  // namespace povmesh
