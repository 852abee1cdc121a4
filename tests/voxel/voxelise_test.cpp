// Voxelising meshes: the rules of sampling, what is outside, and that the result is the model.
#include "voxel/voxelise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

#include "base/rotation.h"
#include "helpers/job.h"
#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "mesh/edge_mates.h"
#include "mesh/volume.h"
#include "spatial/nearest_face.h"
#include "voxel/literal_grid.h"
#include "voxel/passes.h"
#include "voxel/surface.h"

namespace povmesh {
namespace {

using shapes::SoupVector;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

VoxelGrid voxelised(const SoupVector& soup, float size) {
    Job job;
    return voxelise(shapes::mesh_of(soup), {{size, size, size}}, job.run);
}

VoxelGrid filled(const SoupVector& soup, float size) {
    VoxelGrid grid = voxelised(soup, size);
    fill_rows(grid, FillColour::White);
    return grid;
}

double cubes(const VoxelGrid& grid) {
    return static_cast<double>(grid.size()) * std::pow(double{grid.settings().size.x}, 3);
}

SoupVector turned_about(SoupVector soup, Vec3d axis, double degrees) {
    const Rotation rotation(axis / length(axis), degrees);
    for (std::size_t i = 0; i < soup.size(); i += 3) {
        const Vec3f p = rotation.apply(Vec3f{soup[i], soup[i + 1], soup[i + 2]});
        soup[i] = p.x;
        soup[i + 1] = p.y;
        soup[i + 2] = p.z;
    }
    return soup;
}

SoupVector joined(SoupVector a, const SoupVector& b) {
    shapes::append(a, b);
    return a;
}

SoupVector cube(float half) {
    return shapes::box({-half, -half, -half}, {half, half, half});
}

// Triangles of every kind: large, needle, smaller than a voxel, in a grid plane, without area.
TEST(FormVoxels, SamplesDifferFromTheRules) {
    shapes::Random random(11);
    for (int round = 0; round < 150; ++round) {
        SoupVector soup;
        const double side = round % 5 == 0 ? 1.5 : 24;
        for (int t = 0; t < 3; ++t) {
            for (int corner = 0; corner < 3; ++corner) {
                for (int i = 0; i < 3; ++i) {
                    double v = side * random.unit();
                    if (round % 3 == 0) v = std::round(v);  // halves and wholes
                    if (round % 7 == 0) v = std::round(v) * 0.5;
                    if (round % 4 == 1 && i > 0) v = 3 + 1e-4 * v;  // needles along x
                    if (round % 11 == 0 && corner == 2) v = soup[soup.size() - 3];
                    soup.push_back(static_cast<float>(v));
                }
            }
        }
        // Both ways round, so that nothing seems to be enclosed.
        TriMesh mesh = shapes::mesh_of(joined(soup, shapes::turned(soup)));
        for (Face& face : mesh.faces) {
            if (round % 2 == 0) break;
            for (auto& c : face.colour) c = static_cast<std::uint8_t>(random.below(256));
        }
        const Vec3f size = round % 6 == 5 ? Vec3f{0.7F, 0.7F, 2} : Vec3f{1, 1, 1};
        Job job;
        VoxelGrid grid = form_voxels(mesh, {size, true}, job.run);
        literal::Grid expected = literal::form_voxels(mesh, size, true);
        ASSERT_EQ(literal::difference(grid, expected), "") << "round " << round;
    }
}

TEST(Voxelise, ShellLeaksOrFillsTooMuch) {
    const SoupVector wall = shapes::box({-20, -20, 0}, {20, 20, 1.2F});
    const struct {
        const char* what;
        SoupVector soup;
        double area;
    } cases[] = {
        {"sphere", shapes::sphere(15, 5), 4 * std::numbers::pi * 15 * 15},
        {"turned cube", turned_about(cube(12), {1, 2, 3}, 31), 6 * 24 * 24},
        {"rock", shapes::rock(14, 5), 4 * std::numbers::pi * 16 * 16 * 1.3},
        {"thin wall", turned_about(wall, {3, 1, 2}, 20), 2 * 40 * 40 + 4 * 40 * 1.2},
        {"inside out", shapes::turned(shapes::sphere(15, 4)), 4 * std::numbers::pi * 15 * 15},
        {"far away",
         [] {
             SoupVector far = shapes::sphere(15, 4);
             shapes::move(far, {4e5F, -3e5F, 2e5F});
             return far;
         }(),
         4 * std::numbers::pi * 15 * 15},
    };
    for (const auto& c : cases) {
        const TriMesh mesh = shapes::mesh_of(c.soup);
        const float s = 0.7F;
        VoxelGrid grid = filled(c.soup, s);
        // The surface passes through the outermost layer, so at most that much is too much.
        const double excess = cubes(grid) - std::abs(signed_volume(mesh));
        EXPECT_GT(excess, 0) << c.what;
        EXPECT_LT(excess, 1.1 * c.area * double{s}) << c.what;
        mark_exposed_sides(grid);
        const NearestFace surface(mesh);
        double worst = 0;
        grid.for_each([&](const Voxel& voxel) {
            if (voxel.flags == 0) return;
            const Vec3d p = to_double(voxel.centre) + to_double(grid.origin());
            worst = std::max(worst, std::sqrt(surface.find(p).squared_distance));
        });
        // Small triangles take the grid points of their boxes, as far as those lie beside them.
        EXPECT_LT(worst, 1.5 * double{s}) << c.what;
    }
}

TEST(Voxelise, CavitiesAreFilled) {
    const double solid = cubes(filled(cube(10), 0.5F));
    const auto filled_with = [&](const SoupVector& inner) {
        return cubes(filled(joined(cube(10), inner), 0.5F));
    };
    EXPECT_EQ(filled_with(cube(5)), solid);
    EXPECT_EQ(filled_with(shapes::turned(cube(5))), solid - 9.5 * 9.5 * 9.5);
    EXPECT_EQ(filled_with(joined(shapes::turned(cube(5)), cube(5))), solid);
    // Overlapping bodies are one.
    SoupVector second = cube(10);
    shapes::move(second, {7, 7, 7});
    const double both = cubes(filled(joined(cube(10), second), 0.5F));
    EXPECT_NEAR(both, 2 * 8000 - 13 * 13 * 13, 0.5 * 2 * 6 * 400 * 0.6);
}

TEST(Voxelise, SmallHolesLeakOrWideOnesAreClosed) {
    SoupVector sphere = shapes::sphere(15, 4);  // edges of about 1.1
    const double whole = cubes(filled(sphere, 1));
    SoupVector holed = sphere;
    holed.erase(holed.begin() + 900, holed.begin() + 927);  // three faces
    EXPECT_NEAR(cubes(filled(holed, 1)), whole, 0.01 * whole);
    SoupVector open(sphere.begin(),
                    sphere.begin() + static_cast<std::ptrdiff_t>(sphere.size() / 2));
    const VoxelGrid half = filled(open, 1);
    EXPECT_LT(cubes(half), 0.4 * whole);
    EXPECT_GT(cubes(half), 0.05 * whole);
}

TEST(Voxelise, WildSizesAndCoordinatesBreakTheGrid) {
    const SoupVector box = shapes::box({0, 0, 0}, {8, 4, 2});
    for (const float size : {0.0F, -1.0F, kNan, kInfinity}) {
        EXPECT_TRUE(voxelised(box, size).is_empty()) << size;
    }
    EXPECT_EQ(voxelised(box, 1e30F).size(), 1U);
    for (const float size : {1e-3F, 1e-30F, std::numeric_limits<float>::denorm_min()}) {
        Job job;
        const auto grid = voxelise(shapes::mesh_of(box), {{size, size, size}}, job.run);
        const auto& cells = grid.box();
        EXPECT_EQ(cells.high.x - cells.low.x, 790) << size;  // an odd number of cells
        EXPECT_NE(job.text.find("[Caution] voxel size is raised"), std::string::npos) << size;
    }
    // A tower of 10^9 layers: rows are what counts.
    const TriMesh tower = shapes::mesh_of(shapes::box({0, 0, 0}, {1, 1, 1e9F}));
    const float raised = fitting_size(model_box(tower), {0.5F, 0.5F, 0.5F}).x;
    EXPECT_NEAR(1e9 / double{raised} * 3, 1 << 21, 1e5);
    // Solids of a few metres get what fits, those of wild coordinates much less.
    Job job;
    for (const auto& [extent, most] :
         {std::pair{3e3F, kMostCells}, std::pair{1e38F, std::int64_t{1} << 24}}) {
        const TriMesh cube = shapes::mesh_of(shapes::box({0, 0, 0}, {extent, extent, extent}));
        const Vec3f size = affordable_size(cube, {2, 2, 2}, kMostCells, job.run);
        const double cells = std::pow(double{extent} / double{size.x}, 3);
        EXPECT_LT(cells, static_cast<double>(most)) << extent;
        EXPECT_GT(cells, 0.3 * static_cast<double>(most)) << extent;
    }
    EXPECT_NE(job.text.find("[Caution] voxel size is raised"), std::string::npos);
    // So many sheets through one place are no solid.
    SoupVector sheets;
    for (int i = 0; i < 3000; ++i) {
        sheets.insert(sheets.end(), {0, 0, 0, 2000, 0, 0, 0, 2000, static_cast<float>(i)});
    }
    const TriMesh noise = shapes::mesh_of(sheets);
    const Vec3f size = affordable_size(noise, {2, 2, 2}, kMostCells, job.run);
    EXPECT_LT(surface_area(noise) / std::pow(double{size.x}, 2), 1.01 * 0x1p25);
    EXPECT_GT(voxelised({-3e38F, 0, 0, 3e38F, 0, 0, 0, 3e38F, 3e38F}, 1).size(), 1000U);
    EXPECT_EQ(voxelised({kNan, 0, 0, 1, 0, 0, 0, 1, 0}, 1).size(), 0U);
    EXPECT_EQ(voxelised(joined(box, {0, kInfinity, 0, 1, 0, 0, 0, 1, 0}), 1).size(),
              voxelised(box, 1).size());
    EXPECT_EQ(voxelised({}, 1).size(), 0U);
}

TEST(Surface, IsOpenOrOfTheWrongVolume) {
    Job job;
    for (const float size : {0.9F, 2.5F, 40.0F}) {
        VoxelGrid grid = filled(shapes::rock(14, 4), size);
        drop_edge_contacts(grid);
        mark_exposed_sides(grid);
        TriMesh mesh;
        export_voxels(mesh, grid, job.run);
        EXPECT_TRUE(reference::is_closed_manifold(mesh)) << size;
        EXPECT_NEAR(signed_volume(mesh), cubes(grid), 1e-5 * cubes(grid)) << size;
        EXPECT_EQ(grid.size() == 1, mesh.faces.size() == 12) << size;
    }
    // Corners that round to the same floats make no face with two of them.
    SoupVector far = cube(1);
    shapes::move(far, {3e7F, 0, 0});
    VoxelGrid grid = filled(far, 0.1F);
    TriMesh mesh;
    export_voxels(mesh, grid, job.run);
    EXPECT_TRUE(is_consistent(mesh));
    for (const Face& face : mesh.faces) {
        EXPECT_NE(mesh.corner_position(face, 0), mesh.corner_position(face, 1));
    }
}

TEST(Surface, PiecesAreMergedOrLost) {
    SoupVector soup = shapes::sphere(6, 3);
    for (const float x : {20.0F, -20.0F}) {
        SoupVector small = cube(x > 0 ? 0.4F : 4);
        shapes::move(small, {x, 0, 0});
        shapes::append(soup, small);
    }
    Job job;
    VoxelGrid grid = filled(soup, 1);
    const SurfacePieces pieces(grid, kLeastSquares, job.run);
    ASSERT_EQ(pieces.size(), 2U);  // the voxels at the right have too few squares
    const SurfacePieces all(grid, 1, job.run);
    ASSERT_EQ(all.size(), 3U);
    double sum = 0;
    for (std::size_t i = 0; i < all.size(); ++i) {
        TriMesh piece = all.mesh_of(i);
        EXPECT_TRUE(reference::is_closed_manifold(piece));
        sum += signed_volume(piece);
    }
    EXPECT_NEAR(sum, cubes(grid), 1e-3);
}

TEST(Voxelise, TextsDifferFromThoseOfHosts) {
    Job job;
    const TriMesh mesh = shapes::mesh_of(shapes::box({1, 2, 3}, {2, 4, 6}));
    VoxelGrid grid = voxelise(mesh, {{1, 1, 1}}, job.run);
    TriMesh out;
    export_voxels(out, grid, job.run);
    std::string text = job.text;
    for (const char* label : {"form  voxels : ", "form  surface: ", "time voxelize: "}) {
        const std::size_t at = text.find(label);
        ASSERT_NE(at, std::string::npos) << label;
        const std::size_t begin = at + std::string(label).size();
        text.erase(begin, text.find(" sec.", begin) - begin);
    }
    EXPECT_EQ(text,
              "\n\n[start voxelization]"
              "\nmodel size   : (1.000000, 2.000000, 3.000000)"
              "\nmodel center : (1.500000, 3.000000, 4.500000)"
              "\nform  voxels :  sec.\nform  surface:  sec.\ntime voxelize:  sec."
              "\nvoxel size   : 1.000000\nvoxel num    : 9"
              "\n\n[start export voxel]\nfacet number : 60voxel object has been exported.");
}

}  // namespace
}  // namespace povmesh
