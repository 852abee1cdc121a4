#include "mesh/tri_mesh.h"

#include <algorithm>
#include <utility>

#include "base/poll.h"

namespace povmesh {
namespace {

Use use_of(const Face& face, std::size_t index, std::size_t corner) {
    return {static_cast<std::uint32_t>(index * 4 + corner), face.vertex[next_corner(corner)],
            face.vertex[previous_corner(corner)]};
}

bool in_range(const std::array<std::int32_t, 3>& indices, std::int32_t low, std::size_t count) {
    return std::all_of(indices.begin(), indices.end(), [&](std::int32_t index) {
        return index >= low && (index < 0 || static_cast<std::size_t>(index) < count);
    });
}

bool uses_are_consistent(const TriMesh& mesh) {
    const UseTable& table = mesh.use_table;
    if (table.offsets.size() != mesh.vertices.size() + 1 || table.offsets.front() != 0 ||
        table.offsets.back() != table.uses.size() ||
        !std::is_sorted(table.offsets.begin(), table.offsets.end()) ||
        table.uses.size() != mesh.faces.size() * 3) {
        return false;
    }
    for (std::size_t v = 0; v < mesh.vertices.size(); ++v) {
        std::uint32_t last = 0;
        bool is_first = true;
        for (const Use& use : mesh.uses(v)) {
            if (!is_first && use.face_and_corner <= last) return false;
            last = use.face_and_corner;
            is_first = false;
            if (use.face() >= mesh.faces.size() || use.corner() > 2) return false;
            const Face& face = mesh.faces[use.face()];
            const Use expected = use_of(face, use.face(), use.corner());
            if (static_cast<std::size_t>(face.vertex[use.corner()]) != v ||
                expected.next != use.next || expected.previous != use.previous) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace

void build_uses(TriMesh& mesh) {
    // Counts go two places up, so that after the running sum entry v + 1 is the start of row v.
    // Filling moves it on to the row's end, which is the start of row v + 1, where it belongs.
    UseTable& table = mesh.use_table;
    Array<std::uint32_t>& offsets = table.offsets;
    offsets.assign(mesh.vertices.size() + 2, 0);
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        for (const std::int32_t v : face.vertex) ++offsets[static_cast<std::size_t>(v) + 2];
    }
    for (std::size_t i = 2; i < offsets.size(); ++i) offsets[i] += offsets[i - 1];
    table.uses.resize(mesh.faces.size() * 3);
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        const Face& face = mesh.faces[f];
        for (std::size_t corner = 0; corner < 3; ++corner) {
            std::uint32_t& place = offsets[static_cast<std::size_t>(face.vertex[corner]) + 1];
            table.uses[place++] = use_of(face, f, corner);
        }
    }
    offsets.pop_back();
}

void ensure_uses(TriMesh& mesh) {
    if (!mesh.use_table.is_built()) build_uses(mesh);
}

std::size_t live_face_count(const TriMesh& mesh) {
    return static_cast<std::size_t>(std::count_if(
        mesh.faces.begin(), mesh.faces.end(), [](const Face& face) { return face.deleted == 0; }));
}

bool is_consistent(const TriMesh& mesh) {
    const bool indices_fit =
        std::all_of(mesh.faces.begin(), mesh.faces.end(), [&](const Face& face) {
            return in_range(face.vertex, 0, mesh.vertices.size()) &&
                   in_range(face.uv, -1, mesh.texture_coordinates.size());
        });
    return indices_fit && (!mesh.use_table.is_built() || uses_are_consistent(mesh));
}

void reverse_winding(Face& face) {
    std::swap(face.vertex[0], face.vertex[1]);
    std::swap_ranges(face.colour.begin(), face.colour.begin() + 3, face.colour.begin() + 3);
    if (face.label >= 0) std::swap(face.uv[0], face.uv[1]);
}

}  // namespace povmesh
