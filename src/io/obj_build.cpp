// The mesh behind the OBJ writer, from coordinates in double precision.
#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>

#include "base/convert.h"
#include "io/obj.h"
#include "io/obj_keys.h"
#include "mesh/colour.h"
#include "mesh/vertex_welder.h"
#include "mesh/weld_table.h"

namespace povmesh {
namespace {

constexpr float kCells = 10.0F;  // per axis, and one more at the far border

class DoubleWelder {
public:
    DoubleWelder(const DoubleSoup& soup, Array<Vertex>& vertices)
        : vertices_(vertices), table_(soup.triangle_count / 2) {
        for (std::size_t i = 0; i < soup.triangle_count * 3; ++i) {
            widen(box_, corner(soup, i));
        }
    }

    static Vec3f corner(const DoubleSoup& soup, std::size_t i) {
        const double* p = soup.coordinates + 3 * i;
        return {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
    }

    std::int32_t weld(Vec3f p) {
        const std::uint64_t key = obj_split_key(p.x, p.y, p.z);
        const std::uint32_t cell = (axis_cell(p.x, box_.low.x, box_.high.x) * 11 +
                                    axis_cell(p.y, box_.low.y, box_.high.y)) *
                                       11 +
                                   axis_cell(p.z, box_.low.z, box_.high.z);
        table_.make_room(vertices_.size() + 1);
        const auto next = static_cast<std::int32_t>(vertices_.size());
        const std::int32_t number = table_.find_or_add(key, cell, table_.home(key, cell), next);
        if (number == next) vertices_.push_back({p.x, p.y, p.z, next});
        return number;
    }

private:
    static std::uint32_t axis_cell(float coordinate, float low, float high) {
        const float extent = high - low;
        const float cell_size = (extent > 0 ? extent : 0.0F) / kCells;
        const auto cell = saturate_to<std::int32_t>((coordinate - low) / cell_size);
        return static_cast<std::uint32_t>(std::clamp(cell, 0, 10));
    }

    Array<Vertex>& vertices_;
    WeldTable table_;
    WeldBox box_;
};

}  // namespace

void build_from_doubles(TriMesh& mesh, const DoubleSoup& soup) {
    if (soup.triangle_count > kMaxFaceCount) throw std::length_error("vector<T> too long");
    mesh = {};
    mesh.faces.reserve(soup.triangle_count);
    DoubleWelder welder(soup, mesh.vertices);
    for (std::size_t t = 0; t < soup.triangle_count; ++t) {
        Face face{{255, 255, 255, 255, 255, 255, 255, 255, 255}, 0, -1, {}, {-1, -1, -1}};
        for (std::size_t c = 0; c < 3; ++c) {
            face.vertex[c] = welder.weld(DoubleWelder::corner(soup, 3 * t + c));
        }
        const auto& [a, b, c] = face.vertex;
        if (a == b || b == c || c == a) continue;
        if (soup.colours != nullptr) {
            for (std::size_t i = 0; i < 9; ++i)
                face.colour[i] = colour_byte(static_cast<double>(soup.colours[9 * t + i]));
        }
        if (soup.labels != nullptr) {
            face.label = static_cast<std::int16_t>(
                static_cast<std::uint16_t>(static_cast<std::uint32_t>(soup.labels[t])));
        }
        if (face.label >= 0 && soup.texture_coordinates != nullptr) {
            for (std::size_t i = 0; i < 3; ++i) {
                const double* uv = soup.texture_coordinates + 6 * t + 2 * i;
                face.uv[i] = static_cast<std::int32_t>(mesh.texture_coordinates.size());
                mesh.texture_coordinates.push_back({uv[0], uv[1], face.uv[i]});
            }
        }
        mesh.faces.push_back(face);
    }
}

}  // namespace povmesh
