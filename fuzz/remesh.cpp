// Subdivision, both reductions, remeshing and revision of meshes whose corners lie on a tiny grid,
// so that every kind of border, fold and touch comes up. The points of the grid are shaken a
// little, each always alike: else middles of different edges would meet, and compacting would join
// them.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "helpers/reference.h"
#include "mesh/build_f.h"
#include "mesh/edge_mates.h"
#include "remesh/checked_reduce.h"
#include "remesh/parallel_reduce.h"
#include "remesh/reduce.h"
#include "remesh/remesh.h"
#include "remesh/revise.h"
#include "remesh/subdivide.h"
#include "require.h"

namespace povmesh {
namespace {

// The bytes: what to do, the share of the faces to keep, the limit for normals, what the faces
// carry, the size of the grid; then one for each coordinate.
struct Input {
    SubdivideMode mode = SubdivideMode::Uniform;
    unsigned levels = 0;
    double keep = 0;
    double least_keep = 0;
    double least_cosine = -1;
    double edge_length = 1;
    std::vector<float> coordinates, colours, texture_coordinates;
    std::vector<std::int32_t> labels;

    Input(const std::uint8_t* data, std::size_t size) {
        constexpr std::size_t kHead = 5;
        if (size < kHead) return;
        mode = static_cast<SubdivideMode>(data[0] % 3);
        levels = data[0] / 3 % 3;
        keep = data[1] == 255 ? -1 : data[1] == 254 ? std::nan("") : data[1] / 200.0;
        least_keep = (data[0] & 128U) != 0 ? 0.05 : 0;
        least_cosine = data[2] / 127.5 - 1;
        edge_length = 1 + data[1] % 64 / 16.0;
        const unsigned side = 2 + data[4] % 5;
        constexpr std::size_t kMostTriangles = 50;
        std::array<unsigned, 3> point{};
        for (std::size_t i = kHead; i < size && coordinates.size() < kMostTriangles * 9; ++i) {
            point[(i - kHead) % 3] = data[i] % side;
            if ((i - kHead) % 3 == 2) add_corner(point);
        }
        coordinates.resize(coordinates.size() / 9 * 9);
        for (std::size_t t = 0; t < coordinates.size() / 9; ++t) add_attributes(t, data[3]);
    }

    Soup soup() const {
        return {labels.size(), coordinates.data(), colours.data(), texture_coordinates.data(),
                labels.data()};
    }

private:
    void add_corner(const std::array<unsigned, 3>& point) {
        std::uint64_t hash = point[0] + 10 * point[1] + 100 * point[2] + 1;
        for (const unsigned x : point) {
            hash *= 0x9E3779B97F4A7C15U;
            hash ^= hash >> 29;
            const double shake = static_cast<double>(hash >> 40) * 0x1p-24 * 0.2;
            coordinates.push_back(static_cast<float>(x + shake));
        }
    }

    void add_attributes(std::size_t triangle, unsigned kind) {
        labels.push_back(static_cast<std::int32_t>(triangle * kind / 64 % 3) - 1);
        for (std::size_t i = 0; i < 9; ++i) {
            // Either the colours follow the place, or each corner has its own.
            const float x = coordinates[9 * triangle + i] / 8;
            colours.push_back((kind & 1U) != 0 ? x : static_cast<float>(triangle * i % 7) / 7);
            if (i < 6) texture_coordinates.push_back(x);
        }
    }
};

using Position = std::array<float, 3>;
using Edge = std::pair<Position, Position>;

struct Borders {
    std::set<Edge> open;
    bool is_manifold = true;

    explicit Borders(const TriMesh& mesh) {
        TriMesh copy = mesh;
        const EdgeMates mates(copy);
        for (std::size_t f = 0; f < copy.faces.size(); ++f) {
            for (std::size_t e = 0; e < 3 && copy.faces[f].deleted == 0; ++e) {
                const auto kind = mates.kind(f, e);
                if (kind == EdgeMates::Kind::NonManifold) is_manifold = false;
                if (kind != EdgeMates::Kind::Open) continue;
                const Vec3f a = copy.corner_position(copy.faces[f], e);
                const Vec3f b = copy.corner_position(copy.faces[f], (e + 1) % 3);
                open.insert(std::minmax(Position{a.x, a.y, a.z}, Position{b.x, b.y, b.z}));
            }
        }
    }
};

void require_same(const TriMesh& a, const TriMesh& b, const std::string& what) {
    const std::string difference = reference::difference(a, b);
    require(difference.empty(), what + ": " + difference);
}

// Faces of the same three vertices share the edges that divide them, too.
bool has_twin_faces(const TriMesh& mesh) {
    std::set<std::set<std::int32_t>> faces;
    for (const Face& face : mesh.faces) faces.insert({face.vertex.begin(), face.vertex.end()});
    return faces.size() != mesh.faces.size();
}

void check_subdivision(const TriMesh& source, SubdivideMode mode) {
    TriMesh mesh = source;
    subdivide(mesh, mode);
    require(is_consistent(mesh), "inconsistent after subdivision");
    const Borders before(source);
    const Borders after(mesh);
    if (mode == SubdivideMode::Uniform) {
        require(live_face_count(mesh) == 4 * live_face_count(source), "four faces of one");
        require(after.open.size() == 2 * before.open.size(), "two open edges of one");
    }
    require(before.is_manifold == after.is_manifold || has_twin_faces(source),
            "subdivision made or lost a junction");
    require(before.open.empty() == after.open.empty(), "subdivision opened or closed the mesh");
}

void check_reduction(const TriMesh& source, const TriMesh& reduced, const ReduceReport& report) {
    require(is_consistent(reduced), "inconsistent after reduction");
    require(report.faces_before == live_face_count(source), "faces before");
    require(report.faces_after == live_face_count(reduced), "faces after");
    require(report.faces_after <= report.faces_before, "more faces than before");
    const Borders before(source);
    const Borders after(reduced);
    require(after.open.empty() || !before.open.empty(), "reduction opened the mesh");
    require(after.is_manifold || !before.is_manifold, "reduction made a junction");
}

// Closed and open meshes stay so, and no edge gets a third face.
void check_borders(const TriMesh& source, const TriMesh& made, const std::string& what) {
    require(is_consistent(made), "inconsistent after " + what);
    const Borders before(source);
    const Borders after(made);
    require(before.open.empty() == after.open.empty(), what + " opened or closed the mesh");
    // The two sides of a flat pillow come to lie on each other, and compacting joins them.
    if (has_twin_faces(source)) return;
    require(after.is_manifold || !before.is_manifold, what + " made a junction");
    require(!reference::is_closed_manifold(source) || reference::is_closed_manifold(made),
            what + " turned a face");
}

void check_remeshing(const TriMesh& source, const Input& input) {
    RunLog log;
    RunContext run{{}, log};
    TriMesh even = source;
    const RemeshReport report = remesh(even, {.edge_length = input.edge_length}, run);
    require((report.is_done || report.kept_faces != 0) == !source.faces.empty(),
            "remeshing did nothing");
    TriMesh before = source;
    require(find_new_faults(before, even).crossings.count == 0, "remeshing made a crossing");
    check_borders(source, even, "remeshing");
    std::vector<float> lengths;
    for (std::size_t f = 0; f < source.faces.size(); ++f) {
        lengths.push_back(static_cast<float>(input.edge_length) * static_cast<float>(1 + f % 3));
    }
    TriMesh sized = source;
    remesh(sized, {.face_lengths = lengths}, run);
    check_borders(source, sized, "remeshing by lengths");
}

bool is_no_worse(const ShapeCounts& after, const ShapeCounts& before) {
    return after.slivers < before.slivers ||
           (after.slivers == before.slivers &&
            after.needles + after.caps <= 2 * (before.needles + before.caps));
}

// Stretched along an axis, everything is a needle or a cap.
void check_revision(const TriMesh& source) {
    for (const float stretch : {1.0F, 30.0F}) {
        TriMesh stretched = source;
        for (Vertex& v : stretched.vertices) v.x *= stretch;
        for (const double movement : {0.0, 1e-3, 0.1}) {
            TriMesh revised = stretched;
            const ReviseReport report = revise_triangles(revised, {.most_movement = movement});
            check_borders(stretched, revised, "revision");
            require(is_no_worse(count_shapes(revised), count_shapes(stretched)),
                    "revision made bad triangles");
            const bool any = report.collapses + report.flips + report.splits != 0;
            require(any || reference::difference(stretched, revised).empty(),
                    "revision did nothing, but something");
        }
    }
}

void check_all(const std::uint8_t* data, std::size_t size) {
    const Input input(data, size);
    TriMesh mesh;
    build_f(mesh, input.soup());
    check_subdivision(mesh, input.mode);
    check_remeshing(mesh, input);
    check_revision(mesh);
    for (unsigned level = 0; level < input.levels; ++level) {
        subdivide(mesh, SubdivideMode::Uniform);
    }

    TriMesh reduced = mesh;
    const ReduceReport report = reduce(reduced, {input.keep, input.least_keep, input.least_cosine});
    check_reduction(mesh, reduced, report);

    RunLog log;
    RunContext run{{}, log};
    const ParallelReduceOptions options{input.keep, input.least_keep};
    TriMesh in_parallel = mesh;
    check_reduction(mesh, in_parallel, reduce_parallel(in_parallel, options, run));
    // The sequential one tells borders by a sum that a coincidence can cancel.
    require(Borders(mesh).open == Borders(in_parallel).open, "an open border changed");
    TriMesh checked = mesh;
    const CheckedReduceReport found = reduce_checked(checked, std::max(input.keep, 0.0), run);
    check_reduction(mesh, checked, found.reduction);
    require(find_new_faults(mesh, checked).crossings.count == 0, "reduction made a crossing");
    TriMesh again = mesh;
    (void)reduce_parallel(again, options, run);
    require_same(again, in_parallel, "second time");
}

}  // namespace
}  // namespace povmesh

// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    povmesh::check_all(data, size);
    return 0;
}
