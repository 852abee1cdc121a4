#include "context/operation_steps.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <new>

#include "job/bodies.h"
#include "job/model_file.h"
#include "job/numbers.h"

namespace povmesh::context {

void expect_fit(Call& call, const TriMesh& mesh, bool was_finite) {
    const std::string reason = refusal(mesh, was_finite);
    if (!reason.empty()) call.stop(POVMESH_NOTHING, reason);
}

void keep_groups(Call& call, const povmesh_mesh& source, TriMesh& made) {
    const ThreeMfContent& package = source.origin->extras.package;
    if (!give_to_bodies(made, source.mesh, package)) call.log({std::string(kLostBodies)});
    const auto has_group = [](const TriMesh& mesh) {
        return std::any_of(mesh.faces.begin(), mesh.faces.end(),
                           [](const Face& face) { return face.label >= 0; });
    };
    // Materials of textures go with these, which the operation has told.
    if (package.labels.empty() && source.mesh.texture_coordinates.empty() &&
        has_group(source.mesh) && !has_group(made)) {
        call.log({"groups are not kept"});
    }
}

std::string lines_of(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += (text.empty() ? "" : "\n") + line;
    return text;
}

std::string text_of(const Remarks& remarks) {
    std::vector<std::string> lines = remarks.warnings;
    lines.insert(lines.end(), remarks.doubts.begin(), remarks.doubts.end());
    return lines_of(lines);
}

void add(const Remarks& more, Remarks& remarks) {
    for (const auto lines : {&Remarks::warnings, &Remarks::doubts}) {
        const std::vector<std::string>& from = more.*lines;
        (remarks.*lines).insert((remarks.*lines).end(), from.begin(), from.end());
    }
}

void add_mesh(povmesh_result& result, std::unique_ptr<povmesh_mesh> mesh) {
    result.meshes.push_back(nullptr);
    result.meshes.back() = mesh.release();
}

void add_points(povmesh_result& result, std::int32_t array, std::span<const Vec3f> points) {
    static_assert(sizeof(Vec3f) == 3 * sizeof(float));
    const float* const numbers = points.empty() ? nullptr : &points[0].x;
    add_rows<float>(result, array, POVMESH_F32, 3, {numbers, 3 * points.size()});
}

void* host_copy(Call& call, std::span<const char> bytes) {
    call.job().charge(bytes.size());
    void* const block = std::malloc(std::max<std::size_t>(bytes.size(), 1));
    if (block == nullptr) {
        call.job().release(bytes.size());
        throw std::bad_alloc();
    }
    if (!bytes.empty()) std::memcpy(block, bytes.data(), bytes.size());
    return block;
}

void copy_vector(Vec3d from, double* to) {
    std::copy_n(std::array{from.x, from.y, from.z}.begin(), 3, to);
}

void copy_box(const Box3f& box, double* low, double* high) {
    copy_vector(to_double(box.low), low);
    copy_vector(to_double(box.high), high);
}

Drains drains_of(Call& call, const povmesh_drain* drains, std::uint64_t count) {
    call.require(drains != nullptr || count == 0, "drains", "must not be null");
    Drains taken;
    for (std::uint64_t i = 0; i < count; ++i) {
        const Vec3d place{drains[i].place[0], drains[i].place[1], drains[i].place[2]};
        call.require(is_finite(place), "drains", "must have finite places");
        call.above_zero(drains[i].radius, "radius of a drain");
        taken.drains.push_back({place, drains[i].radius});
    }
    taken.name = [all = taken.drains](std::size_t i) {
        const Vec3d& place = all[i].place;
        return human_number(place.x) + "," + human_number(place.y) + "," + human_number(place.z) +
               "," + human_number(all[i].radius);
    };
    return taken;
}

}  // namespace povmesh::context
