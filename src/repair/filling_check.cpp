// Every face is held against the faces of fillings whose boxes overlap its own, exactly.
#include "repair/filling_check.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "spatial/self_intersection.h"

namespace povmesh {
std::size_t undo_crossing_fillings(TriMesh& mesh, HoleReport& report) {
    if (report.added_face_count == 0) return 0;
    Array<std::uint32_t> added;
    for (const Hole& hole : report.holes) {
        for (std::uint32_t i = 0; i < hole.added_count; ++i) added.push_back(hole.first_added + i);
    }
    const std::vector<FacePair> meetings = find_meetings(mesh, added);
    std::size_t undone = 0;
    // The last filling first, so that of two the earlier one is looked at when the other is gone.
    for (std::size_t i = report.holes.size(); i-- > 0;) {
        Hole& hole = report.holes[i];
        if (hole.fate != HoleFate::Closed) continue;
        const auto begin = std::lower_bound(
            meetings.begin(), meetings.end(), hole.first_added,
            [](const FacePair& meeting, std::uint32_t face) { return meeting.first < face; });
        const std::uint32_t end = hole.first_added + hole.added_count;
        bool crosses = false;
        for (auto m = begin; m != meetings.end() && m->first < end && !crosses; ++m) {
            crosses = mesh.faces[m->second].deleted == 0;
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
