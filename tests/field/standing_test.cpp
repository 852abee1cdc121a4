// What holds for every input: real models, random soups, thousands of triangles without any order.
// Results are closed, manifold, outward and free of crossings, wraps also of degenerate faces;
// clean models keep their edges.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/parallel.h"
#include "field/inner_wall.h"
#include "field/offset.h"
#include "field/wrap.h"
#include "helpers/shapes.h"
#include "helpers/thorough.h"
#include "io/obj.h"
#include "io/stl.h"
#include "mesh/bounds.h"
#include "mesh/edge_mates.h"
#include "repair/degenerate.h"
#include "solid_helpers.h"
#include "spatial/nearest_face.h"
#include "spatial/surface_distance.h"

namespace povmesh {
namespace {

using shapes::SoupVector;

bool read_model(const std::filesystem::path& path, TriMesh& mesh) try {
    RunLog log;
    RunContext run{{}, log};
    if (path.extension() == ".obj") return read_obj(path.string(), mesh).ok();
    return path.extension() == ".stl" && read_stl(path.string(), run, mesh).ok();
} catch (const std::out_of_range&) {
    return false;  // an index of a face, as hosts are told
}

double diagonal_of(const TriMesh& mesh) {
    const Box3f box = finite_bounds(mesh);
    return box.is_empty() ? 0 : length(to_double(box.high) - to_double(box.low));
}

// How far the vertices of a surface are from a model at most.
double farthest(const TriMesh& surface, const TriMesh& model) {
    const NearestFace faces(model);
    std::vector<double> squared(surface.vertices.size());
    parallel_for(squared.size(), [&](std::size_t v) {
        squared[v] = faces.find(to_double(surface.vertices[v].position())).squared_distance;
    });
    return std::sqrt(*std::max_element(squared.begin(), squared.end()));
}

std::ptrdiff_t degenerate_faces(const TriMesh& mesh) {
    return std::count_if(mesh.faces.begin(), mesh.faces.end(),
                         [&](const Face& face) { return is_degenerate(mesh, face); });
}

struct Wrapped {
    Status status;
    TriMesh mesh;
    WrapReport report;
};

Wrapped wrapped(const TriMesh& mesh, const WrapOptions& options) {
    Wrapped result{{}, mesh, {}};
    RunLog log;
    RunContext run{{}, log};
    result.status = wrap(result.mesh, options, run, result.report);
    return result;
}

// Wraps, and shrinks or grows by a little; every result is sound, and wraps are near the model.
void expect_sound_results(const TriMesh& mesh, const WrapOptions& options, double distance) {
    const Wrapped wrap = wrapped(mesh, options);
    if (!wrap.status.ok()) {
        // No face has an area, or the box no bounds, or all lies within four cells.
        const double diagonal = diagonal_of(mesh);
        EXPECT_TRUE(wrap.status.code() == StatusCode::BadFile ||
                    !(diagonal < 1e30 && diagonal > 4 * options.cell))
            << wrap.status.text();
        return;
    }
    EXPECT_EQ(unsoundness(wrap.mesh), "") << "wrapped";
    EXPECT_EQ(degenerate_faces(wrap.mesh), 0);
    if (wrap.report.label.bridge_edges == 0) {
        // A node that was added for the sake of a manifold may stick out a little.
        EXPECT_LE(farthest(wrap.mesh, mesh), 1.05 * wrap.report.tolerance);
    }
    if (distance == 0) return;
    TriMesh moved = mesh;
    RunLog log;
    RunContext run{{}, log};
    OffsetReport report;
    const OffsetCorners corners = distance > 0 ? OffsetCorners::Sharp : OffsetCorners::Round;
    const Status status =
        offset(moved, distance, {.corners = corners, .cell = options.cell}, run, report);
    if (status.ok()) {
        EXPECT_EQ(unsoundness(moved), "") << "moved by " << distance;
    }
}

// Coordinates on a coarse lattice in half of them: faces that share planes, edges and corners, and
// cross there.
TEST(Standing, AThousandSoupsBecomeSound) {
    shapes::Random random(20260817);
    for (int round = 0; round < test::trials(1000); ++round) {
        SCOPED_TRACE(round);
        const std::uint64_t steps = 2 + random.below(9);
        const bool is_fine = random.below(2) == 0;
        SoupVector soup(9 * (1 + random.below(round % 50 == 0 ? 200 : 12)));
        for (float& x : soup) {
            x = is_fine ? static_cast<float>(random.unit() * 10)
                        : static_cast<float>(random.below(steps)) * 10 / static_cast<float>(steps);
        }
        WrapOptions options{.cell = 0.6 + random.unit()};
        if (random.below(3) == 0) options.gap = 3 * random.unit();
        options.keeps_thin = random.below(4) != 0;
        options.all_triangles = random.below(2) == 0;
        const double distance = round % 4 == 0 ? 0.3 + random.unit() : round % 4 == 1 ? -0.3 : 0;
        expect_sound_results(shapes::mesh_of(soup), options, distance);
    }
}

TEST(Standing, TenThousandTrianglesWithoutOrderBecomeASolid) {
    shapes::Random random(5);
    SoupVector soup(std::size_t{9} * 10000);
    for (float& x : soup) x = static_cast<float>(random.unit() * 10);
    const Wrapped all = wrapped(shapes::mesh_of(soup), {.cell = 0.5});
    ASSERT_TRUE(all.status.ok()) << all.status.text();
    EXPECT_EQ(unsoundness(all.mesh), "");
    // Smaller ones that leave air between them.
    for (std::size_t t = 0; t < 10000; ++t) {
        for (std::size_t x = 3; x < 9; ++x) {
            soup[9 * t + x] = soup[9 * t + x % 3] + (soup[9 * t + x] - 5) / 8;
        }
    }
    const Wrapped small = wrapped(shapes::mesh_of(soup), {.cell = 0.5});
    ASSERT_TRUE(small.status.ok()) << small.status.text();
    EXPECT_EQ(unsoundness(small.mesh), "");
}

// At a coarse cell, so that all take a second or two.
TEST(Standing, AllModelsBecomeSound) {
    const char* folder = std::getenv("POVMESH_MODELS");
    if (folder == nullptr) GTEST_SKIP() << "POVMESH_MODELS is not set";
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    std::size_t count = 0;
    for (const std::filesystem::path& path : paths) {
        TriMesh mesh;
        if (!read_model(path, mesh)) continue;
        SCOPED_TRACE(path.filename());
        const double cell = diagonal_of(mesh) / (test::kIsSanitized ? 50 : 80);
        if (!(cell > 0)) continue;
        ++count;
        expect_sound_results(mesh, {.cell = cell}, count % 2 == 0 ? 2 * cell : -1.5 * cell);
    }
    EXPECT_GT(count, 60U);
}

// Points on edges where faces turn by 45 degrees or more.
std::vector<Vec3d> sharp_points(TriMesh mesh) {
    constexpr double kCosine = 0.70711;
    std::vector<Vec3d> points;
    const EdgeMates mates(mesh);
    const auto normal = [&](std::size_t f) {
        const Vec3d a = to_double(mesh.corner_position(mesh.faces[f], 0));
        const Vec3d n = cross(to_double(mesh.corner_position(mesh.faces[f], 1)) - a,
                              to_double(mesh.corner_position(mesh.faces[f], 2)) - a);
        const double size = length(n);
        return size > 0 ? n / size : Vec3d{};
    };
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        for (std::size_t e = 0; e < 3; ++e) {
            if (mates.kind(f, e) != EdgeMates::Kind::Manifold) continue;
            const std::uint32_t other = mates.mate(f, e);
            if (other < f || dot(normal(f), normal(other)) > kCosine) continue;
            const Vec3d a = to_double(mesh.corner_position(mesh.faces[f], e));
            const Vec3d b = to_double(mesh.corner_position(mesh.faces[f], (e + 1) % 3));
            for (const double t : {0.2, 0.5, 0.8}) points.push_back(a + (b - a) * t);
        }
    }
    return points;
}

TEST(Standing, CleanModelsKeepTheirEdgesAndVolume) {
    const char* folder = std::getenv("POVMESH_MODELS");
    if (folder == nullptr) GTEST_SKIP() << "POVMESH_MODELS is not set";
    for (const char* name : {"cat.stl", "gearwheel.stl", "m3x10_screw.stl"}) {
        SCOPED_TRACE(name);
        TriMesh mesh;
        ASSERT_TRUE(read_model(std::filesystem::path(folder) / name, mesh));
        const Wrapped result = wrapped(mesh, {.tolerance = diagonal_of(mesh) / 250});
        ASSERT_TRUE(result.status.ok()) << result.status.text();
        EXPECT_EQ(unsoundness(result.mesh), "");
        EXPECT_NEAR(volume(result.mesh) / volume(mesh), 1, 1e-3);
        const SurfaceDistance apart = surface_distance(mesh, result.mesh, {.sample_count = 20000});
        EXPECT_LE(apart.greatest(), result.report.tolerance);
        // Where edges come together closer than a cell they share a vertex.
        std::vector<double> off;
        const NearestFace faces(result.mesh);
        for (const Vec3d& p : sharp_points(mesh)) {
            off.push_back(std::sqrt(faces.find(p).squared_distance) / result.report.cell);
        }
        if (off.empty()) continue;
        std::sort(off.begin(), off.end());
        EXPECT_LT(off[off.size() / 2], 0.05);
        EXPECT_LT(off[off.size() * 95 / 100], 0.3);
        const Wrapped again = wrapped(result.mesh, {.tolerance = result.report.tolerance});
        EXPECT_LE(surface_distance(result.mesh, again.mesh, {.sample_count = 20000}).greatest(),
                  result.report.tolerance);
    }
}

}  // namespace
}  // namespace povmesh
