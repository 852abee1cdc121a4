// Repair of meshes whose corners lie on a tiny grid, so that every kind of hole, fold and touch
// comes up; what it must never do, and what it must have done.
#include "repair/repair.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <set>
#include <vector>

#include "mesh/build_f.h"
#include "mesh/edge_mates.h"
#include "repair/boundary_loops.h"
#include "repair/detect.h"
#include "repair/duplicates.h"
#include "require.h"
#include "spatial/shell_nesting.h"

namespace povmesh {
namespace {

struct Input {
    std::vector<float> coordinates;
    RepairOptions options;

    Input(const std::uint8_t* data, std::size_t size) {
        if (size == 0) return;
        const bool as_tool = (data[0] & 1U) != 0;
        options.remove_idle_walls = as_tool;
        options.close_slits = as_tool;
        options.check_fillings = as_tool;
        options.turn_fewest = as_tool;
        options.keep_cavities = as_tool;
        options.tiny_volume = (data[0] & 2U) != 0 ? 1.0 : 0.0;
        const unsigned side = 2 + data[0] / 4 % 9;
        constexpr std::size_t kMostTriangles = 60;
        for (std::size_t i = 1; i < size && coordinates.size() < kMostTriangles * 9; ++i) {
            coordinates.push_back(static_cast<float>(data[i] % side));
        }
        coordinates.resize(coordinates.size() / 9 * 9);
    }
};

using Position = std::array<float, 3>;
std::set<Position> positions_of(const TriMesh& mesh) {
    std::set<Position> positions;
    for (const Face& face : mesh.faces) {
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3f p = mesh.corner_position(face, c);
            positions.insert({p.x, p.y, p.z});
        }
    }
    return positions;
}

void check_loops(TriMesh& mesh) {
    const EdgeMates mates(mesh);
    const BoundaryLoops loops = trace_boundary_loops(mesh, mates);
    std::size_t open = 0;
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        for (std::size_t e = 0; e < 3; ++e) {
            open += mates.kind(f, e) == EdgeMates::Kind::Open ? 1 : 0;
        }
    }
    require(open == loops.entries.size() + loops.unclosed_edge_count, "open edges in loops");
    std::set<std::uint32_t> edges;
    for (std::size_t i = 0; i < loops.size(); ++i) {
        const auto loop = loops[i];
        require(loop.size() >= 3, "short loop");
        std::set<std::int32_t> vertices;
        for (std::size_t k = 0; k < loop.size(); ++k) {
            require(edges.insert(loop[k].edge).second, "edge in two loops");
            require(vertices.insert(loop[k].vertex).second, "vertex twice in a loop");
            const auto& v = mesh.faces[loop[k].face()].vertex;
            const std::set<std::int32_t> ends = {v[loop[k].edge % 3],
                                                 v[next_corner(loop[k].edge % 3)]};
            require(ends == std::set{loop[k].vertex, loop[(k + 1) % loop.size()].vertex},
                    "an edge does not join its vertices");
        }
    }
}

}  // namespace
}  // namespace povmesh

// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace povmesh;
    const Input input(data, size);
    TriMesh mesh;
    build_f(mesh, Soup{input.coordinates.size() / 9, input.coordinates.data()});
    check_loops(mesh);
    const std::size_t faces_before = mesh.faces.size();
    const std::size_t groups_before = EdgeMates(mesh).group_count();
    const std::set<Position> before = positions_of(mesh);

    const RepairReport report = repair(mesh, input.options);
    require(is_consistent(mesh), "inconsistent mesh");
    // A mesh of nothing but tiny shells has no live face, and is then left as it is.
    if (live_face_count(mesh) == 0) return 0;
    require(mesh.faces.size() + report.dropped_shell_faces + report.removed_duplicates ==
                faces_before + report.holes.added_face_count + report.slits.added_faces,
            "face count");
    require(find_duplicate_faces(mesh).empty(), "a duplicate face");
    require(report.slits.closed_slits != 0 || EdgeMates(mesh).group_count() <= groups_before,
            "new non-manifold edge");
    const std::set<Position> after = positions_of(mesh);
    require(std::includes(before.begin(), before.end(), after.begin(), after.end()),
            "a position that was not there");
    check_loops(mesh);

    const std::vector<ShellNesting> nesting = [&] {
        (void)detect(mesh);  // labels the shells
        return classify_shells(mesh);
    }();
    for (const ShellNesting& shell : nesting) {
        const bool may_be_inward = input.options.keep_cavities && shell.is_cavity();
        require(!shell.is_oriented || may_be_inward || shell.signed_volume >= -1e-9,
                "a closed shell that is wound inward");
    }
    return 0;
}
