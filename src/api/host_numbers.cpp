#include "api/host_numbers.h"

#include <cstring>

namespace povmesh::api {
namespace {

// Hosts rely on this tolerance: the cut lies this far at the back of their plane. Model units.
constexpr double kPlaneOffset = -0.1;

// A level makes up to four faces of one: five levels turn a million faces into a thousand million.
constexpr std::uint32_t kMostLevels = 5;

// The least share of its faces that a shell keeps, whatever a host asks for.
constexpr double kLeastKept = 0.05;

Vec3d vector_of(const float* three) {
    return to_double(Vec3f{three[0], three[1], three[2]});
}

}  // namespace

bool is_set(std::uint64_t flag) {
    return (flag & 0xFF) != 0;
}

CutOperation cut_operation(std::uint32_t code) {
    switch (code) {
        case 1:
            return CutOperation::Cut;
        case 2:
            return CutOperation::CutAndCap;
        case 3:
            return CutOperation::MirrorFront;
        case 4:
            return CutOperation::MirrorBack;
        default:
            return CutOperation::None;
    }
}

CutPlane cut_plane(const float* normal, const float* direction, const float* point) {
    if (normal == nullptr || direction == nullptr || point == nullptr) return {};
    return {vector_of(normal), vector_of(direction), vector_of(point), kPlaneOffset};
}

SectionMode section_mode(std::uint64_t option) {
    return is_set(option) ? SectionMode::LocalMinima : SectionMode::All;
}

StrengthMethod strength_method(std::uint32_t code) {
    return StrengthMethod{code};
}

fem::LoadCase load_case(std::uint32_t code) {
    if (code == 0) return fem::LoadCase::PressureZ;
    return code == 1 ? fem::LoadCase::Pressure : fem::LoadCase::CentreTop;
}

std::uint32_t level_count(std::uint32_t levels) {
    return levels <= kMostLevels ? levels : 0;
}

SubdivideMode subdivide_mode(const float* colours, const float* texture_coordinates,
                             const std::int32_t* labels) {
    const bool has_texture = texture_coordinates != nullptr && labels != nullptr;
    return colours != nullptr || has_texture ? SubdivideMode::Uniform : SubdivideMode::Adaptive;
}

ParallelReduceOptions reduction_to(float target) {
    return {.keep = static_cast<double>(target), .least_keep = kLeastKept};
}

std::span<const float> lengths_of(float* const* edge_lengths, const std::uint32_t* count) {
    if (edge_lengths == nullptr || *edge_lengths == nullptr || count == nullptr) return {};
    return {*edge_lengths, *count};
}

// Which triangles became faces is found by building the soup once more, with the number of each
// triangle for its colours.
std::vector<float> lengths_of_faces(const TriMesh& mesh, const Soup& soup,
                                    std::span<const float> lengths) {
    if (mesh.faces.size() == lengths.size()) return {lengths.begin(), lengths.end()};
    std::vector<std::uint8_t> numbers(9 * lengths.size());
    for (std::uint32_t i = 0; i < lengths.size(); ++i) {
        std::memcpy(&numbers[9 * std::size_t{i}], &i, sizeof(i));
    }
    TriMesh numbered;
    build_f(numbered, ByteSoup{.triangle_count = soup.triangle_count,
                               .coordinates = soup.coordinates,
                               .colours = numbers.data(),
                               .texture_coordinates = nullptr,
                               .labels = nullptr});
    std::vector<float> kept;
    for (const Face& face : numbered.faces) {
        std::uint32_t number = 0;
        std::memcpy(&number, face.colour.data(), sizeof(number));
        kept.push_back(lengths[number]);
    }
    return kept;
}

}  // namespace povmesh::api
