// Cellular infill: nearest seeds, the cells and the walls between them, what hosts and the tool
// take.
#include "design/infill.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "base/parallel.h"
#include "base/rotation.h"
#include "design/cell_division.h"
#include "design/cell_pieces.h"
#include "design/wall_gauge.h"
#include "helpers/job.h"
#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "io/stl.h"
#include "mesh/append_mesh.h"
#include "mesh/shells.h"
#include "mesh/volume.h"
#include "spatial/nearest_face.h"
#include "spatial/self_intersection.h"
#include "spatial/shell_nesting.h"

namespace povmesh {
namespace {

using shapes::SoupVector;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

VoxelGrid ball(std::int32_t radius) {
    VoxelGrid grid({{1, 1, 1}}, {{-radius, -radius, -radius}, {radius, radius, radius}});
    for (std::int32_t z = -radius; z <= radius; ++z) {
        for (std::int32_t y = -radius; y <= radius; ++y) {
            for (std::int32_t x = -radius; x <= radius; ++x) {
                if (x * x + y * y + z * z <= radius * radius) grid.insert({x, y, z});
            }
        }
    }
    return grid;
}

TEST(Cells, TakeASeedThatIsNotTheNearest) {
    const VoxelGrid grid = ball(35);  // several regions of blocks
    shapes::Random random(3);
    for (const std::size_t count : {std::size_t{1}, std::size_t{12}, std::size_t{2500}}) {
        Array<Vec3d> seeds;
        const auto coordinate = [&] { return 90 * random.unit() - 45; };
        while (seeds.size() < count) seeds.push_back({coordinate(), coordinate(), coordinate()});
        if (count == 12) seeds.push_back(seeds.front());
        Array<SeedNumber> nearest;
        find_nearest_seeds(grid, seeds, nearest);
        const VoxelGrid::Words near = voxels_near_borders(grid, seeds, nearest, 1.5);
        std::size_t wrong = 0;
        grid.for_each([&](const Voxel& voxel) {
            const Vec3d p = to_double(voxel.centre);
            const auto squared = [&](const Vec3d& seed) { return dot(p - seed, p - seed); };
            const std::size_t cell = grid.cell_of(voxel.index);
            const Vec3d own = seeds[nearest[cell]];
            bool is_near = false;
            double least = std::numeric_limits<double>::infinity();
            for (const Vec3d& seed : seeds) {
                least = std::min(least, squared(seed));
                if (seed == own) continue;
                is_near = is_near || squared(seed) - squared(own) < 3.0 * length(seed - own);
            }
            wrong += squared(own) > least + 1e-3 ? 1 : 0;
            wrong += is_near != ((near[cell / 64] >> (cell % 64) & 1U) != 0) ? 1 : 0;
        });
        EXPECT_EQ(wrong, 0U) << count;
    }
}

TEST(Cells, DifferInSize) {
    const VoxelGrid grid = ball(50);
    for (const std::size_t count : {std::size_t{1}, std::size_t{15}, std::size_t{60}}) {
        const CellDivision division = divide_into_cells(grid, count);
        std::vector<double> sizes(count);
        grid.for_each(
            [&](const Voxel& voxel) { ++sizes[division.seed_of[grid.cell_of(voxel.index)]]; });
        const double mean = static_cast<double>(grid.size()) / static_cast<double>(count);
        // Seeds at random, not relaxed, differ by a factor of 10 and more.
        EXPECT_GT(*std::min_element(sizes.begin(), sizes.end()), 0.7 * mean) << count;
        EXPECT_LT(*std::max_element(sizes.begin(), sizes.end()), 1.4 * mean) << count;
    }
}

// Distance of a point in a model from its surface.
using Depth = std::function<double(Vec3d)>;

struct Model {
    std::string name;
    TriMesh mesh;
    Depth depth;
};

// Small ones: cells are no smaller for it, and fewer.
std::vector<Model> models() {
    std::vector<Model> all;
    all.push_back(
        {"ball", shapes::mesh_of(shapes::sphere(11, 5)), [](Vec3d p) { return 11 - length(p); }});
    const Vec3d axis = Vec3d{1, 2, 3} / std::sqrt(14.0);
    const Rotation turn(axis, 33);
    Model box{"turned box", shapes::mesh_of(shapes::box({-10, -9, -8}, {10, 9, 8})),
              [back = Rotation(axis, -33)](Vec3d p) {
                  p = back.apply(p);
                  return std::min({10 - std::abs(p.x), 9 - std::abs(p.y), 8 - std::abs(p.z)});
              }};
    for (Vertex& v : box.mesh.vertices) {
        const Vec3f p = turn.apply(v.position());
        v = {p.x, p.y, p.z, v.index};
    }
    all.push_back(std::move(box));
    Model cat{"cat", {}, {}};
    Job job;
    EXPECT_TRUE(read_stl(POVMESH_TEST_DATA "/../../examples/cat.stl", job.run, cat.mesh).ok());
    cat.depth = [nearest = NearestFace(cat.mesh)](Vec3d p) {
        return std::sqrt(nearest.find(p).squared_distance);
    };
    all.push_back(std::move(cat));
    return all;
}

// Of vertices of each cell the distance to the nearest other one, in voxels, where that is within
// four.
std::vector<double> wall_thicknesses(const std::vector<InfillCell>& cells, double size) {
    std::vector<double> found;
    for (const InfillCell& at : cells) {
        const NearestFace nearest(at.mesh);
        for (const InfillCell& from : cells) {
            if (&from == &at) continue;
            for (std::size_t v = 0; v < from.mesh.vertices.size(); v += 5) {
                const Vec3d p = to_double(from.mesh.vertices[v].position());
                const NearestPoint point = nearest.find(p, 16 * size * size);
                if (point.is_found()) found.push_back(std::sqrt(point.squared_distance) / size);
            }
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

TEST(Cells, BreakThroughSkinOrWalls) {
    for (const Model& model : models()) {
        for (const double skin : {0.375, 1.3}) {
            const std::string what = model.name + " " + std::to_string(skin);
            Job job;
            TriMesh mesh = model.mesh;
            const CellPieces made =
                make_cells(mesh, {.skin = skin, .cells_per_million = 40}, job.run);
            ASSERT_GE(made.cells.size(), 5U) << what;
            double shallowest = 1e9;
            double total = 0;
            TriMesh all = model.mesh;
            for (const InfillCell& cell : made.cells) {
                EXPECT_NEAR(cell.surface, surface_area(cell.mesh), 1e-9 * cell.surface) << what;
                total += cell.volume;
                append_mesh(all, cell.mesh);
                for (const Vertex& v : cell.mesh.vertices) {
                    shallowest = std::min(shallowest, model.depth(to_double(v.position())));
                }
            }
            label_shells(all);
            const std::vector<ShellNesting> shells = classify_shells(all);
            ASSERT_EQ(shells.size(), made.cells.size() + 1) << what;
            for (std::size_t i = 0; i < made.cells.size(); ++i) {
                const ShellNesting& shell = shells[i + 1];
                EXPECT_TRUE(shell.is_oriented) << what;
                EXPECT_GT(shell.signed_volume, 0) << what;
                EXPECT_NEAR(shell.signed_volume, made.cells[i].volume, 1e-4 * total) << what;
                EXPECT_EQ(shell.depth, 1U) << what;  // in the model, in no other cell
            }
            EXPECT_GT(shallowest, skin - 1.5 * made.voxel_size) << what;
            EXPECT_LT(shallowest, skin + 2 * made.voxel_size) << what;
            EXPECT_LT(total, 0.97 * made.inside_volume) << what;
            EXPECT_GT(total, 0.7 * made.inside_volume) << what;

            const std::vector<double> walls = wall_thicknesses(made.cells, made.voxel_size);
            ASSERT_GT(walls.size(), 1000U) << what;
            EXPECT_GE(walls.front(), 1 - 1e-3) << what;
            EXPECT_NEAR(walls[walls.size() / 2], 2, 0.4) << what;
        }
    }
}

std::string without_times(std::string text) {
    for (std::size_t end = 0; (end = text.find("sec.", end)) != std::string::npos; ++end) {
        const std::size_t begin = text.find_last_not_of("0123456789. ", end - 1) + 1;
        text.erase(begin, end - begin);
        end = begin;
    }
    return text;
}

TEST(Infill, TextsDifferFromThoseOfHosts) {
    const SoupVector cube = shapes::box({0, 0, 0}, {40, 40, 40});
    const std::string few = "[Caution] Unnecessary to do Voronoi. (small object or shell object)\n";
    const std::string thin = "[Caution] Peel too much ,nothing to design\n";
    const struct {
        SoupVector soup;
        float skin, density;
        InfillOutcome outcome;
        std::string progress;
        std::vector<std::string> has;
        std::string ends;
    } cases[] = {
        {cube, 1.5F, 0, InfillOutcome::Unchanged, "", {}, "infilldensity: 0.000000"},
        {cube, 1.5F, -0.0F, InfillOutcome::Unchanged, "", {}, "infilldensity: -0.000000"},
        {cube,
         1.5F,
         0.01F,
         InfillOutcome::Filled,
         "10 30 40 50 55 60 70 ",
         {"\n[Caution] can't reach infill density: 0.050000\nplease change bigger infill density."
          "\nnow change larger infill density to 0.100000\n[Caution] can't reach infill density: "
          "0.100000\n"},
         " sec.---\n"},
        {cube,
         1.5F,
         0.39F,
         InfillOutcome::Filled,
         "10 30 40 50 55 60 70 ",
         {"\nsurface thick: 1.500000\ninfilldensity: 0.390000\n\n[start voxelization]",
          "\n\n[start voronoi]\ncell / cell vol.",
          "\nvoxel num    : ", "\nvoronoi      : ", "\n\n[start select cell]\nsf/vol tot   : ",
          "\nsf/vol min   : ", "\nsf/vol max   : ", "\nsf/vol newtot: "},
         " sec.---\n"},
        {shapes::box({0, 0, 0}, {9, 9, 9}),
         2,
         0.5F,
         InfillOutcome::FewCells,
         "10 30 40 50 55 60 70 ",
         {"\n" + few + "\nsf/vol newtot: 0.000000"},
         " sec.---\n"},
        {shapes::box({0, 0, 0}, {40, 40, 2}),
         1.5F,
         0.5F,
         InfillOutcome::NothingInside,
         "10 30 40 ",
         {},
         "\n" + thin},
        {cube, kNaN, 0.2F, InfillOutcome::NothingInside, "10 30 40 ", {}, "\n" + thin},
        {cube, kInfinity, 0.2F, InfillOutcome::NothingInside, "10 30 40 ", {}, "\n" + thin},
        {{}, 1, 0.2F, InfillOutcome::NothingInside, "10 30 40 ", {}, "\n" + thin},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.skin) + " " + std::to_string(c.density));
        Job job;
        TriMesh mesh = shapes::mesh_of(c.soup);
        const TriMesh before = mesh;
        EXPECT_EQ(cellular_infill(mesh, c.skin, c.density, job.run), c.outcome);
        EXPECT_EQ(job.progress, c.progress);
        EXPECT_TRUE(job.text.starts_with("\n---start executing cellular infill---"));
        EXPECT_TRUE(job.text.ends_with(c.ends)) << job.text;
        for (const std::string& text : c.has) EXPECT_THAT(job.text, testing::HasSubstr(text));
        if (c.outcome == InfillOutcome::Unchanged) {
            EXPECT_EQ(reference::difference(mesh, before), "");
        } else {
            EXPECT_EQ(mesh.faces.empty(), c.outcome != InfillOutcome::Filled);
        }
        // The same bits on one thread, the same texts but for the times.
        const OneThread one;
        Job again;
        TriMesh same = before;
        cellular_infill(same, c.skin, c.density, again.run);
        EXPECT_EQ(reference::difference(mesh, same), "");
        EXPECT_EQ(without_times(again.text), without_times(job.text));
    }
}

TEST(Infill, GoesOnBeyondTheDensity) {
    const TriMesh box = shapes::mesh_of(shapes::box({0, 0, 0}, {100, 90, 80}));
    TriMesh lost = box;
    Job other;
    CellPieces made = make_cells(lost, {.skin = 2}, other.run);
    const auto key = [](const InfillCell& c) { return c.volume / c.surface; };
    std::stable_sort(made.cells.begin(), made.cells.end(),
                     [&](const InfillCell& a, const InfillCell& b) { return key(a) > key(b); });
    for (const float density : {0.05F, 0.2F, 0.24F, 0.26F, 0.3F, kNaN}) {
        // A cell at a time.
        double limit = double{density};
        double surface = 0;
        double inside = 0;
        std::size_t count = 0;
        std::size_t faces = 0;
        for (const InfillCell& cell : made.cells) {
            surface += cell.surface;
            inside += cell.volume;
            faces += cell.mesh.faces.size();
            if (++count >= 4 && surface / inside > limit) break;
            if (surface / inside > limit) limit += 0.05;
        }
        Job job;
        TriMesh mesh = box;
        EXPECT_EQ(cellular_infill(mesh, 2, density, job.run), InfillOutcome::Filled);
        const std::string told = job.text.substr(job.text.find("newtot: ") + 8);
        EXPECT_NEAR(surface_area(mesh) / volume(mesh), std::stod(told), 1e-4);
        if (std::isnan(density)) continue;  // takes the smaller cells
        EXPECT_EQ(mesh.faces.size(), faces) << density;
    }
}

TEST(Infill, LeavesTooMuchMaterial) {
    const TriMesh box = shapes::mesh_of(shapes::box({0, 0, 0}, {22, 20, 18}));
    double last = -1;
    std::size_t squares = 0;  // triangles of the voxels, with all cells
    for (const double density : {0.0, 0.2, 0.35, 0.6, 1.0}) {
        for (const bool is_smoothed : {false, true}) {
            Job job;
            TriMesh mesh = box;
            const InfillReport report = infill_to_density(
                mesh, {.skin = 1, .density = density, .is_smoothed = is_smoothed}, job.run);
            EXPECT_NEAR(report.inside_volume, 20.0 * 18 * 16, 0.06 * 20 * 18 * 16) << density;
            EXPECT_NEAR(report.density, 1 - volume(mesh) / report.inside_volume, 1e-6) << density;
            EXPECT_TRUE(report.density <= density || report.taken == report.cells) << density;
            if (!is_smoothed) {
                squares = std::max(squares, mesh.faces.size());
                continue;
            }
            EXPECT_GE(report.density, last);
            last = report.density;
            if (density > 0) continue;
            EXPECT_GT(report.density, 0.05);
            EXPECT_EQ(find_self_intersections(mesh, 0).count, 0U);
            EXPECT_TRUE(reference::is_closed_manifold(mesh));
            EXPECT_LT(mesh.faces.size(), squares / 3);
            EXPECT_GT(WallGauge(box).least_distance(mesh), 1 - 2 * report.voxel_size);
        }
    }
    TriMesh thin = shapes::mesh_of(shapes::box({0, 0, 0}, {40, 40, 5}));
    Job job;
    EXPECT_EQ(infill_to_density(thin, {.skin = 2.2}, job.run).taken, 0U);
    EXPECT_TRUE(thin.faces.empty());
}

TEST(Infill, OddModelsBreakIt) {
    const SoupVector cube = shapes::box({-15, -15, -15}, {15, 15, 15});
    SoupVector with_cavity = cube;
    shapes::append(with_cavity, shapes::turned(shapes::box({-5, -5, -5}, {5, 5, 5})));
    SoupVector with_body = cube;  // a surface within the solid
    shapes::append(with_body, shapes::box({-5, -5, -5}, {5, 5, 5}));
    SoupVector not_finite = cube;
    not_finite.insert(not_finite.end(), {0, 0, 0, 1, 0, kNaN, 0, 1, kInfinity});
    const SoupVector huge = shapes::box({-3e38F, -1e35F, -1e35F}, {3e38F, 1e35F, 1e35F});
    SoupVector far = cube;
    shapes::move(far, {1e6F, -1e6F, 1e6F});
    SoupVector open = cube;
    open.resize(open.size() - 18);
    SoupVector long_rod = shapes::box({0, 0, 0}, {2e6F, 3, 3});
    for (const SoupVector& soup : {shapes::turned(cube), with_cavity, with_body, not_finite, huge,
                                   far, open, long_rod, SoupVector{0, 0, 0, 30, 0, 0, 0, 30, 0}}) {
        for (const float skin : {-3.0F, 2.0F, 1e30F}) {
            Job job;
            TriMesh mesh = shapes::mesh_of(soup);
            const InfillOutcome outcome = cellular_infill(mesh, skin, 0.3F, job.run);
            EXPECT_EQ(mesh.faces.empty(), outcome != InfillOutcome::Filled);
            for (const Vertex& v : mesh.vertices) ASSERT_TRUE(is_finite(v.position()));
            if (skin != 2.0F || (soup != with_cavity && soup != with_body)) continue;
            EXPECT_EQ(outcome, InfillOutcome::Filled);
            for (const Vertex& v : mesh.vertices) {
                const float off = std::max({std::abs(v.x), std::abs(v.y), std::abs(v.z)});
                const auto over = [](float c) { return std::max(std::abs(c) - 5, 0.0F); };
                const float outer = std::hypot(over(v.x), over(v.y), over(v.z));
                ASSERT_GT(off < 5 ? 5 - off : outer, 2 - 1.5F * 0.31F);
            }
        }
    }
}

}  // namespace
}  // namespace povmesh
