// Every face is held against the faces of fillings whose boxes overlap its own, exactly.
#include "repair/filling_check.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "spatial/face_tree.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

bool may_meet(const Triangle& triangle) {
    return is_finite(triangle) && has_area(triangle);
}

// A face of a filling, and a live face that it meets.
struct Meeting {
    std::uint32_t added;
    std::uint32_t other;
};

// Sorted by the face of the filling. The tree is that of the added faces, which are few.
std::vector<Meeting> find_meetings(const TriMesh& mesh, std::span<const std::uint32_t> added) {
    Array<Box3f> boxes;
    for (const std::uint32_t face : added) boxes.push_back(face_box(mesh, mesh.faces[face]));
    const FaceTree tree(boxes, added);
    std::vector<Meeting> meetings;
    for (std::uint32_t other = 0; other < mesh.faces.size(); ++other) {
        if (mesh.faces[other].deleted != 0) continue;
        const Box3f box = face_box(mesh, mesh.faces[other]);
        tree.visit_overlapping(box, [&](std::uint32_t face) {
            if (face == other) return false;
            const Triangle here = triangle_of(mesh, mesh.faces[face]);
            const Triangle there = triangle_of(mesh, mesh.faces[other]);
            if (may_meet(here) && may_meet(there) && meet_beyond_shared(here, there)) {
                meetings.push_back({face, other});
            }
            return false;
        });
    }
    std::sort(meetings.begin(), meetings.end(), [](const Meeting& a, const Meeting& b) {
        return a.added != b.added ? a.added < b.added : a.other < b.other;
    });
    return meetings;
}

}  // namespace

std::size_t undo_crossing_fillings(TriMesh& mesh, HoleReport& report) {
    if (report.added_face_count == 0) return 0;
    Array<std::uint32_t> added;
    for (const Hole& hole : report.holes) {
        for (std::uint32_t i = 0; i < hole.added_count; ++i) added.push_back(hole.first_added + i);
    }
    const std::vector<Meeting> meetings = find_meetings(mesh, added);
    std::size_t undone = 0;
    // The last filling first, so that of two the earlier one is looked at when the other is gone.
    for (std::size_t i = report.holes.size(); i-- > 0;) {
        Hole& hole = report.holes[i];
        if (hole.fate != HoleFate::Closed) continue;
        const auto begin = std::lower_bound(
            meetings.begin(), meetings.end(), hole.first_added,
            [](const Meeting& meeting, std::uint32_t face) { return meeting.added < face; });
        const std::uint32_t end = hole.first_added + hole.added_count;
        bool crosses = false;
        for (auto m = begin; m != meetings.end() && m->added < end && !crosses; ++m) {
            crosses = mesh.faces[m->other].deleted == 0;
        }
        if (!crosses) continue;
        for (std::uint32_t face = hole.first_added; face < end; ++face) {
            mesh.faces[face].deleted = 1;
        }
        hole.fate = HoleFate::Crosses;
        report.added_face_count -= hole.added_count;
        ++undone;
    }
    return undone;
}

}  // namespace povmesh
