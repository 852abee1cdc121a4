// Corners are welded a block at a time, so that the slots of the weld table that a block needs are
// on their way from memory while its keys are computed.
#include "mesh/build_f.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "base/poll.h"
#include "mesh/colour.h"
#include "mesh/vertex_welder.h"

namespace povmesh {
namespace {

constexpr std::size_t kTrianglesPerBlock = VertexWelder::kBlock / 3;

void set_colour(Face& face, const float* colours) {
    for (std::size_t i = 0; i < 9; ++i) {
        face.colour[i] = colour_byte(static_cast<double>(colours[i]));
    }
}

void set_colour(Face& face, const std::uint8_t* colours) {
    std::copy_n(colours, 9, face.colour.begin());
}

void set_texture(Face& face, const float* uv, Array<TextureCoordinate>& records) {
    for (std::size_t corner = 0; corner < 3; ++corner) {
        const auto index = static_cast<std::int32_t>(records.size());
        face.uv[corner] = index;
        records.push_back(
            {static_cast<double>(uv[2 * corner]), static_cast<double>(uv[2 * corner + 1]), index});
    }
}

template <typename AnySoup>
void build(TriMesh& mesh, const AnySoup& soup) {
    const std::size_t count = soup.triangle_count;
    if (count > kMaxFaceCount) throw std::length_error("vector<T> too long");
    mesh.vertices.clear();
    mesh.texture_coordinates.clear();
    mesh.shells.clear();
    mesh.use_table.clear();

    // A closed mesh has two vertices more than half its faces.
    const std::size_t expected_vertices = count / 2 + count / 64 + 2;
    VertexWelder welder(weld_box(soup.coordinates, count * 3), expected_vertices);
    mesh.vertices.reserve(std::min(expected_vertices, count * 3) + VertexWelder::kBlock);
    mesh.faces.resize(count);

    Poller poller;
    std::size_t face_count = 0;
    std::array<std::int32_t, VertexWelder::kBlock> numbers;
    for (std::size_t first = 0; first < count; first += kTrianglesPerBlock) {
        poller();
        const std::size_t in_block = std::min(kTrianglesPerBlock, count - first);
        welder.weld_block(soup.coordinates + 9 * first, 3 * in_block, numbers.data(),
                          mesh.vertices);
        for (std::size_t i = 0; i < in_block; ++i) {
            const std::size_t triangle = first + i;
            const std::int32_t a = numbers[3 * i];
            const std::int32_t b = numbers[3 * i + 1];
            const std::int32_t c = numbers[3 * i + 2];
            if (a == b || b == c || c == a) continue;
            Face face{
                {255, 255, 255, 255, 255, 255, 255, 255, 255}, 0, -1, {a, b, c}, {-1, -1, -1}};
            if (soup.colours != nullptr) set_colour(face, soup.colours + 9 * triangle);
            if (soup.labels != nullptr) {
                face.label = static_cast<std::int16_t>(
                    static_cast<std::uint16_t>(static_cast<std::uint32_t>(soup.labels[triangle])));
                if (face.label >= 0 && soup.texture_coordinates != nullptr) {
                    set_texture(face, soup.texture_coordinates + 6 * triangle,
                                mesh.texture_coordinates);
                }
            }
            mesh.faces[face_count++] = face;
        }
    }
    mesh.faces.resize(face_count);
}

}  // namespace

void build_f(TriMesh& mesh, const Soup& soup) {
    build(mesh, soup);
}

void build_f(TriMesh& mesh, const ByteSoup& soup) {
    build(mesh, soup);
}

}  // namespace povmesh
