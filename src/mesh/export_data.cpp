#include "mesh/export_data.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

#include "base/memory.h"
#include "mesh/volume.h"

namespace povmesh {
namespace {

struct Free {
    void operator()(void* block) const { std::free(block); }
};
template <typename T>
using MallocArray = std::unique_ptr<T[], Free>;

// Never null: an empty array is one element long.
template <typename T>
MallocArray<T> allocate(std::size_t count) {
    const std::size_t elements = std::max<std::size_t>(count, 1);
    if (elements > static_cast<std::size_t>(-1) / sizeof(T)) throw std::bad_array_new_length();
    auto* block = static_cast<T*>(std::malloc(elements * sizeof(T)));
    if (block == nullptr) throw std::bad_alloc();
    // Touching small pages for the first time would take three quarters of an export.
    advise_large_pages(block, elements * sizeof(T));
    return MallocArray<T>(block);
}

std::array<float, 256> colour_values() {
    std::array<float, 256> values{};
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = static_cast<float>(static_cast<double>(i) / 255.0);
    }
    return values;
}

std::size_t checked(std::int32_t index, std::size_t count) {
    if (index < 0 || static_cast<std::size_t>(index) >= count) {
        throw std::out_of_range("invalid vector<T> subscript");
    }
    return static_cast<std::size_t>(index);
}

// Soup arrays on their way to the caller; freed when something throws before they are handed over.
class SoupWriter {
public:
    explicit SoupWriter(std::size_t triangle_count)
        : count_(triangle_count),
          coordinates_(allocate<float>(triangle_count * 9)),
          colours_(allocate<float>(triangle_count * 9)),
          texture_coordinates_(allocate<float>(triangle_count * 6)),
          labels_(allocate<std::int32_t>(triangle_count)) {}

    void put(const TriMesh& mesh, const Face& face) {
        float* const xyz = coordinates_.get() + 9 * written_;
        float* const rgb = colours_.get() + 9 * written_;
        float* const uv = texture_coordinates_.get() + 6 * written_;
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const Vertex& v = mesh.vertices[checked(face.vertex[corner], mesh.vertices.size())];
            xyz[3 * corner] = v.x;
            xyz[3 * corner + 1] = v.y;
            xyz[3 * corner + 2] = v.z;
        }
        for (std::size_t i = 0; i < 9; ++i) rgb[i] = colour_value_[face.colour[i]];
        if (face.label >= 0 && !mesh.texture_coordinates.empty() && face.uv[0] >= 0) {
            for (std::size_t corner = 0; corner < 3; ++corner) {
                const TextureCoordinate& t = mesh.texture_coordinates[checked(
                    face.uv[corner], mesh.texture_coordinates.size())];
                uv[2 * corner] = static_cast<float>(t.u);
                uv[2 * corner + 1] = static_cast<float>(t.v);
            }
        } else {
            std::fill_n(uv, 6, 0.0F);
        }
        labels_[written_] = face.label;
        ++written_;
    }

    SoupArrays release() {
        return {static_cast<std::uint32_t>(count_), coordinates_.release(), colours_.release(),
                texture_coordinates_.release(), labels_.release()};
    }

private:
    std::size_t count_;
    std::size_t written_ = 0;
    MallocArray<float> coordinates_;
    MallocArray<float> colours_;
    MallocArray<float> texture_coordinates_;
    MallocArray<std::int32_t> labels_;
    std::array<float, 256> colour_value_ = colour_values();
};

}  // namespace

SoupArrays export_data(const TriMesh& mesh) {
    SoupWriter writer(live_face_count(mesh));
    for (const Face& face : mesh.faces) {
        if (face.deleted == 0) writer.put(mesh, face);
    }
    return writer.release();
}

void drop_small_parts(TriMesh& mesh) {
    std::erase_if(mesh.parts, [](const TriMesh& part) { return volume(part) < 1.0; });
}

MultiSoupArrays export_parts(const TriMesh& mesh) {
    auto part_triangles = allocate<std::uint32_t>(mesh.parts.size());
    std::size_t total = 0;
    for (std::size_t i = 0; i < mesh.parts.size(); ++i) {
        part_triangles[i] = static_cast<std::uint32_t>(mesh.parts[i].faces.size());
        total += mesh.parts[i].faces.size();
    }
    if (total > 0xFFFFFFFFU) throw std::length_error("vector<T> too long");
    SoupWriter writer(total);
    for (const TriMesh& part : mesh.parts) {
        for (const Face& face : part.faces) writer.put(part, face);
    }
    MultiSoupArrays arrays;
    arrays.part_count = static_cast<std::uint32_t>(mesh.parts.size());
    arrays.soup = writer.release();
    arrays.part_triangles = part_triangles.release();
    return arrays;
}

}  // namespace povmesh
