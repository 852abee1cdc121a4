#include "voxel/literal_grid.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <numbers>

#include "mesh/build_f.h"

namespace povmesh::literal {
namespace {

using Keys = std::set<std::int64_t>;

constexpr std::array<std::int64_t, 6> kSteps = {1280000, 2, 1600, -1280000, -2, -1600};
constexpr std::array<VoxelIndex, 6> kMoves = {
    {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}, {0, 0, -1}, {-1, 0, 0}, {0, -1, 0}}};

bool in_box(VoxelIndex i, VoxelIndex low, VoxelIndex high) {
    return i.x >= low.x && i.x <= high.x && i.y >= low.y && i.y <= high.y && i.z >= low.z &&
           i.z <= high.z;
}

VoxelIndex moved(VoxelIndex i, std::size_t side) {
    return {i.x + kMoves[side].x, i.y + kMoves[side].y, i.z + kMoves[side].z};
}

double snap(double v, double s) {
    return v / s > 0 ? std::ceil(v / s - 0.5) : std::floor(v / s + 0.5);
}

double axis(Vec3d v, std::size_t i) {
    return i == 0 ? v.x : i == 1 ? v.y : v.z;
}

std::vector<std::array<Vec3d, 3>> relative(const TriMesh& mesh, Vec3f origin) {
    std::vector<std::array<Vec3d, 3>> faces;
    for (const Face& face : mesh.faces) {
        auto& corners = faces.emplace_back();
        for (std::size_t i = 0; i < 3; ++i) {
            corners[i] = to_double(mesh.corner_position(face, i) - origin);
        }
    }
    return faces;
}

// By solid angles: A. Van Oosterom, J. Strackee, The solid angle of a plane triangle, 1983.
double winding_number(const std::vector<std::array<Vec3d, 3>>& faces, Vec3d p) {
    double sum = 0;
    for (const auto& f : faces) {
        const Vec3d a = f[0] - p;
        const Vec3d b = f[1] - p;
        const Vec3d c = f[2] - p;
        const double volume = dot(a, cross(b, c));
        const double scale = length(a) * length(b) * length(c) + dot(a, b) * length(c) +
                             dot(b, c) * length(a) + dot(c, a) * length(b);
        sum += 2 * std::atan2(volume, scale);
    }
    return sum / (4 * std::numbers::pi);
}

// The cells that a flood through empty cells reaches.
void flood(const Grid& grid, VoxelIndex low, VoxelIndex high, VoxelIndex from, Keys& reached) {
    std::deque<VoxelIndex> queue = {from};
    reached.insert(VoxelGrid::key_of(from));
    while (!queue.empty()) {
        const VoxelIndex cell = queue.front();
        queue.pop_front();
        for (std::size_t side = 0; side < 6; ++side) {
            const VoxelIndex next = moved(cell, side);
            const std::int64_t key = VoxelGrid::key_of(next);
            if (!in_box(next, low, high) || grid.voxels.contains(key)) continue;
            if (reached.insert(key).second) queue.push_back(next);
        }
    }
}

}  // namespace

void Grid::insert(VoxelIndex i, VoxelColour colour, std::int8_t angle) {
    Voxel& voxel = voxels[VoxelGrid::key_of(i)];
    voxel.key = VoxelGrid::key_of(i);
    voxel.index = i;
    voxel.centre = {static_cast<float>(i.x * double{size.x}),
                    static_cast<float>(i.y * double{size.y}),
                    static_cast<float>(i.z * double{size.z})};
    voxel.colour = colour;
    voxel.angle = keeps_angles ? angle : kNoAngle;
    low = {std::min(low.x, i.x), std::min(low.y, i.y), std::min(low.z, i.z)};
    high = {std::max(high.x, i.x), std::max(high.y, i.y), std::max(high.z, i.z)};
}

Keys Grid::outside() const {
    const VoxelIndex from = {low.x - 1, low.y - 1, low.z - 1};
    const VoxelIndex to = {high.x + 1, high.y + 1, high.z + 1};
    Keys reached;
    flood(*this, from, to, from, reached);
    if (!remembers_outside) return reached;
    for (std::int32_t z = low.z; z <= high.z; ++z) {
        for (std::int32_t y = low.y; y <= high.y; ++y) {
            for (std::int32_t x = low.x; x <= high.x; ++x) {
                const std::int64_t key = VoxelGrid::key_of({x, y, z});
                if (!was_outside.contains(key) || voxels.contains(key)) continue;
                if (!reached.contains(key)) flood(*this, from, to, {x, y, z}, reached);
            }
        }
    }
    return reached;
}

void Grid::mark_by_neighbours() {
    for (auto at = voxels.begin(); at != voxels.end(); ++at) {
        auto& [key, voxel] = *at;
        voxel.flags = 0;
        for (const std::size_t side : {0U, 2U, 3U, 5U}) {
            if (!voxels.contains(key + kSteps[side])) {
                voxel.flags = static_cast<std::uint8_t>(voxel.flags | 1U << side);
            }
        }
        const auto next = std::next(at);
        if (next == voxels.end() || next->first != key + 2) voxel.flags |= 2;
        if (at == voxels.begin() || std::prev(at)->first != key - 2) voxel.flags |= 16;
    }
}

void Grid::mark() {
    const Keys open = outside();
    was_outside = open;
    for (auto& [key, voxel] : voxels) {
        voxel.flags = 0;
        for (std::size_t side = 0; side < 6; ++side) {
            if (open.contains(key + kSteps[side])) {
                voxel.flags = static_cast<std::uint8_t>(voxel.flags | 1U << side);
            }
        }
    }
}

void Grid::drop_enclosed() {
    std::erase_if(voxels, [](const auto& entry) { return entry.second.flags == 0; });
}

void Grid::fill_rows(bool keep_colour) {
    for (auto at = voxels.begin(); at != voxels.end(); ++at) {
        const Voxel voxel = at->second;
        const auto next = std::next(at);
        if ((voxel.flags & 2) != 0 || next == voxels.end()) continue;
        const Voxel& end = next->second;
        if (end.index.y != voxel.index.y || end.index.z != voxel.index.z) continue;
        VoxelColour colour = kWhite;
        for (std::size_t i = 0; keep_colour && i < 3; ++i) {
            colour[i] = static_cast<std::uint8_t>((voxel.colour[i] + end.colour[i]) / 2);
        }
        VoxelIndex index = voxel.index;
        // What is inserted comes next in the walk, and has the next voxel beside it.
        for (++index.x; index.x < end.index.x; ++index.x) insert(index, colour, kNoAngle);
        at = std::prev(next);
    }
}

void Grid::erode(int layers, std::vector<Voxel>* removed) {
    for (int pass = 0; pass < layers; ++pass) {
        for (auto at = voxels.begin(); at != voxels.end();) {
            auto& [key, voxel] = *at;
            if (voxel.flags == 0 || voxel.flags >= 64) {
                ++at;
                continue;
            }
            for (std::size_t side = 0; side < 6; ++side) {
                if ((voxel.flags >> side & 1U) != 0) continue;
                const auto neighbour = voxels.find(key + kSteps[side]);
                if (neighbour == voxels.end()) continue;
                std::uint8_t& flags = neighbour->second.flags;
                if (flags == 0) flags = 64;
                flags = static_cast<std::uint8_t>(flags | 1U << ((side + 3) % 6));
            }
            if (removed != nullptr) {
                removed->push_back(voxel);
                if (pass > 0) removed->back().flags = 0;
            }
            at = voxels.erase(at);
        }
        for (auto& [key, voxel] : voxels) {
            if (voxel.flags > 64) voxel.flags = static_cast<std::uint8_t>(voxel.flags - 64);
        }
    }
}

void Grid::dilate(int layers, int slack) {
    was_outside = outside();
    const Keys open = was_outside;
    for (int layer = 0; layer < std::abs(layers); ++layer) {
        std::vector<VoxelIndex> grown;
        for (const auto& [key, voxel] : voxels) {
            for (std::size_t side = 0; side < 6; ++side) {
                const VoxelIndex next = moved(voxel.index, side);
                if (voxels.contains(VoxelGrid::key_of(next))) continue;
                const bool is_within = in_box(next, low, high);
                const bool is_open = !is_within || open.contains(VoxelGrid::key_of(next));
                if (is_open == (layers > 0)) grown.push_back(next);
            }
        }
        for (const VoxelIndex next : grown) insert(next, kWhite, kNoAngle);
    }
    mark();
    if (layers > 0) return;
    const auto kept = static_cast<unsigned>(std::clamp(-layers - slack, 0, 3)) * 64;
    for (auto& [key, voxel] : voxels) {
        if (voxel.flags != 0) voxel.flags = static_cast<std::uint8_t>(voxel.flags + kept);
    }
}

void Grid::remove_spurs(int k) {
    std::erase_if(voxels, [&](const auto& entry) {
        const unsigned sides = entry.second.flags & 0x3FU;
        return std::popcount(sides) >= 6 - k;
    });
    mark();
}

void Grid::drop_near(const Keys& outside, std::int64_t squared_limit) {
    std::vector<VoxelIndex> open;
    for (std::int32_t z = low.z - 1; z <= high.z + 1; ++z) {
        for (std::int32_t y = low.y - 1; y <= high.y + 1; ++y) {
            for (std::int32_t x = low.x - 1; x <= high.x + 1; ++x) {
                if (outside.contains(VoxelGrid::key_of({x, y, z}))) open.push_back({x, y, z});
            }
        }
    }
    std::erase_if(voxels, [&](const auto& entry) {
        const VoxelIndex i = entry.second.index;
        return std::any_of(open.begin(), open.end(), [&](VoxelIndex o) {
            const std::int64_t x = i.x - o.x;
            const std::int64_t y = i.y - o.y;
            const std::int64_t z = i.z - o.z;
            return x * x + y * y + z * z < squared_limit;
        });
    });
}

Grid form_voxels(const TriMesh& mesh, Vec3f size, bool keeps_angles) {
    Grid grid;
    grid.size = size;
    grid.keeps_angles = keeps_angles;
    grid.remembers_outside = true;
    Box3f box;
    for (const Vertex& vertex : mesh.vertices) box.widen(vertex.position());
    const Vec3d middle = (to_double(box.low) + to_double(box.high)) * 0.5;
    grid.origin = {static_cast<float>(middle.x), static_cast<float>(middle.y),
                   static_cast<float>(middle.z)};
    const Vec3d s = to_double(size);
    const auto tolerance = static_cast<double>(static_cast<float>(0.5 * length(s)));
    const double largest = std::max({s.x, s.y, s.z});
    const double least = std::min({s.x, s.y, s.z});
    const double least_normal = 0.001 * std::min(1.0, least * least);
    const auto faces = relative(mesh, grid.origin);
    for (std::size_t f = 0; f < faces.size(); ++f) {
        auto corners = faces[f];
        const auto& c = mesh.faces[f].colour;
        const VoxelColour colour = {c[0], c[1], c[2]};
        Box3d around;
        for (const Vec3d& p : corners) around.widen(p);
        const Vec3d extent = around.extent();
        const Vec3d normal = cross(corners[1] - corners[0], corners[2] - corners[0]);
        double cosine = length(normal) > least_normal ? std::abs(normal.z / length(normal)) : 0;
        if (cosine < 0.001) cosine = 0;
        const auto angle =
            static_cast<std::int8_t>(std::acos(std::min(cosine, 1.0)) * 180 / 3.1415926);
        std::sort(corners.begin(), corners.end(), [](Vec3d a, Vec3d b) {
            return std::array{a.x, a.y, a.z} < std::array{b.x, b.y, b.z};
        });
        const Vec3d centroid = (corners[0] + corners[1] + corners[2]) / 3.0;
        Vec3d unit = cross(corners[1] - corners[0], corners[2] - corners[0]);
        const double area = length(unit);
        unit = area < least_normal ? Vec3d{} : unit / area;
        double longest = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            longest = std::max(longest, length(corners[(i + 1) % 3] - corners[i]));
        }
        const auto accepts = [&](Vec3d p) {
            const double d = dot(p - centroid, unit);
            if (!(std::abs(d) < tolerance)) return false;
            const Vec3d q = p - unit * d;
            double sum = 0;
            for (std::size_t i = 0; i < 3; ++i) {
                sum += length(cross(corners[i] - q, corners[(i + 1) % 3] - q));
                if (!(sum < area + largest * longest)) return false;
            }
            return true;
        };
        const bool is_small = extent.x < s.x && extent.y < s.y && extent.z < s.z;
        const auto at = [&](const Vec3d& v, std::size_t i) {
            return static_cast<std::int32_t>(snap(axis(v, i), axis(s, i)));
        };
        for (std::int32_t z = at(around.low, 2); z <= at(around.high, 2); ++z) {
            for (std::int32_t y = at(around.low, 1); y <= at(around.high, 1); ++y) {
                for (std::int32_t x = at(around.low, 0); x <= at(around.high, 0); ++x) {
                    if (is_small || accepts({x * s.x, y * s.y, z * s.z})) {
                        grid.insert({x, y, z}, colour, angle);
                    }
                }
            }
        }
    }
    grid.remembers_outside = false;
    grid.was_outside = grid.outside();
    grid.remembers_outside = true;
    // Enclosed regions, one cell of each.
    Keys seen = grid.was_outside;
    const VoxelIndex low = grid.low;
    const VoxelIndex high = grid.high;
    for (std::int32_t z = low.z; z <= high.z; ++z) {
        for (std::int32_t y = low.y; y <= high.y; ++y) {
            for (std::int32_t x = low.x; x <= high.x; ++x) {
                const std::int64_t key = VoxelGrid::key_of({x, y, z});
                if (seen.contains(key) || grid.voxels.contains(key)) continue;
                Keys region;
                flood(grid, low, high, {x, y, z}, region);
                seen.insert(region.begin(), region.end());
                const double turns = winding_number(faces, {x * s.x, y * s.y, z * s.z});
                if (std::abs(turns) < 0.5) grid.was_outside.insert(region.begin(), region.end());
            }
        }
    }
    return grid;
}

TriMesh export_voxels(const Grid& grid) {
    // By side: the corners of the square as steps of half a voxel, counter-clockwise from outside.
    constexpr std::array<std::array<VoxelIndex, 4>, 6> kCorners = {
        {{{{-1, -1, 1}, {1, -1, 1}, {1, 1, 1}, {-1, 1, 1}}},
         {{{1, -1, -1}, {1, 1, -1}, {1, 1, 1}, {1, -1, 1}}},
         {{{-1, 1, -1}, {-1, 1, 1}, {1, 1, 1}, {1, 1, -1}}},
         {{{-1, -1, -1}, {-1, 1, -1}, {1, 1, -1}, {1, -1, -1}}},
         {{{-1, -1, -1}, {-1, -1, 1}, {-1, 1, 1}, {-1, 1, -1}}},
         {{{-1, -1, -1}, {1, -1, -1}, {1, -1, 1}, {-1, -1, 1}}}}};
    std::vector<float> soup;
    std::vector<std::uint8_t> colours;
    const auto place = [](float origin, std::int32_t i, std::int32_t half, float size) {
        return static_cast<float>(origin + (i + 0.5 * half) * double{size});
    };
    for (const auto& [key, voxel] : grid.voxels) {
        for (std::size_t side = 0; side < 6; ++side) {
            if ((voxel.flags >> side & 1U) == 0) continue;
            for (const std::size_t i : {0U, 1U, 2U, 0U, 2U, 3U}) {
                const VoxelIndex c = kCorners[side][i];
                soup.push_back(place(grid.origin.x, voxel.index.x, c.x, grid.size.x));
                soup.push_back(place(grid.origin.y, voxel.index.y, c.y, grid.size.y));
                soup.push_back(place(grid.origin.z, voxel.index.z, c.z, grid.size.z));
                colours.insert(colours.end(), voxel.colour.begin(), voxel.colour.end());
            }
        }
    }
    TriMesh mesh;
    build_f(mesh, ByteSoup{soup.size() / 9, soup.data(), colours.data()});
    return mesh;
}

std::string difference(const VoxelGrid& grid, const Grid& literal) {
    const auto text = [](const Voxel& v) {
        return std::to_string(v.index.x) + " " + std::to_string(v.index.y) + " " +
               std::to_string(v.index.z) + " flags " + std::to_string(v.flags) + " colour " +
               std::to_string(v.colour[0]) + "," + std::to_string(v.colour[1]) + "," +
               std::to_string(v.colour[2]) + " angle " + std::to_string(v.angle);
    };
    if (grid.size() != literal.voxels.size()) {
        return std::to_string(grid.size()) + " voxels, not " +
               std::to_string(literal.voxels.size());
    }
    std::string found;
    auto expected = literal.voxels.begin();
    grid.for_each([&](const Voxel& voxel) {
        if (!found.empty()) return;
        if (expected == literal.voxels.end()) {
            found = text(voxel) + " is too many";
        } else if (text(voxel) != text(expected->second) || voxel.key != expected->first ||
                   voxel.centre != expected->second.centre) {
            found = text(voxel) + ", not " + text(expected->second);
        } else {
            ++expected;
        }
    });
    return found;
}

}  // namespace povmesh::literal
