// What the operations of this interface have in common: copies in, results out.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "context/frame.h"
#include "design/drain.h"
#include "job/refusal.h"

namespace povmesh::context {

/// What the tool does not write is no result.
void expect_fit(Call& call, const TriMesh& mesh, bool was_finite);

/// Gives new faces to the objects of the 3MF file that the source was, and logs what is lost.
void keep_groups(Call& call, const povmesh_mesh& source, TriMesh& made);

/// The steps of the operations that make another mesh of a mesh.
/// @param work  takes the copy; returns a status
template <typename Work>
std::unique_ptr<povmesh_mesh> change(Call& call, const povmesh_mesh& source, const Work& work) {
    TriMesh copy = plain_copy(source.mesh);
    const bool was_finite = has_finite_corners(copy);
    call.expect(work(copy));
    expect_fit(call, copy, was_finite);
    keep_groups(call, source, copy);
    return hand_on(std::move(copy), source.origin);
}

/// A line each.
std::string lines_of(const std::vector<std::string>& lines);
std::string text_of(const Remarks& remarks);
/// Behind those that are there.
void add(const Remarks& more, Remarks& remarks);

/// Room for the mesh comes first, so that none is lost.
void add_mesh(povmesh_result& result, std::unique_ptr<povmesh_mesh> mesh);

/// Parts as meshes of a result, but those that are left out and those without a triangle.
template <typename IsLeftOut>
void add_parts(Call& call, std::vector<TriMesh>& parts, bool was_finite, const povmesh_mesh& source,
               const IsLeftOut& is_left_out, povmesh_result& result) {
    result.meshes.reserve(parts.size());
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (parts[i].faces.empty() || is_left_out(i)) continue;
        expect_fit(call, parts[i], was_finite);
        keep_groups(call, source, parts[i]);
        add_mesh(result, hand_on(std::move(parts[i]), source.origin));
    }
    if (result.meshes.empty()) {
        call.stop(POVMESH_NOTHING, "no triangle would be left; nothing is written");
    }
}

/// 3 F32 a point.
void add_points(povmesh_result& result, std::int32_t array, std::span<const Vec3f> points);

/// A copy that the caller gives back by povmesh_free.
void* host_copy(Call& call, std::span<const char> bytes);

void copy_vector(Vec3d from, double* to);
void copy_box(const Box3f& box, double* low, double* high);

/// Drains of options, looked at.
struct Drains {
    std::vector<Drain> drains;
    std::function<std::string(std::size_t drain)> name;
};
Drains drains_of(Call& call, const povmesh_drain* drains, std::uint64_t count);

}  // namespace povmesh::context
