// Flaw counts against a literal second version, and on shapes whose flaws are known.
#include "repair/detect.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <numbers>
#include <vector>

#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "io/stl.h"
#include "repair/degenerate.h"

namespace povmesh {
namespace {

using shapes::Random;
using shapes::SoupVector;

constexpr std::uint32_t kMany = 100'000;

void expect_as_reference(TriMesh mesh) {
    const TriMesh before = mesh;
    const reference::Flaws expected = reference::detect(mesh);
    FlawFaces faces;
    const FlawCounts counts = detect(mesh, &faces);
    const auto& e = expected.counts;
    ASSERT_EQ(counts.inverted, e[0]);
    ASSERT_EQ(counts.open_edges, e[1]);
    ASSERT_EQ(counts.non_manifold, e[2]);
    ASSERT_EQ(counts.degenerate, e[3]);
    ASSERT_EQ(counts.any(), e[0] + e[1] + e[2] + e[3] > 0);
    const Array<std::uint32_t>* lists[] = {&faces.inverted, &faces.open, &faces.non_manifold,
                                           &faces.degenerate};
    for (std::size_t i = 0; i < 4; ++i) {
        ASSERT_EQ(std::vector(lists[i]->begin(), lists[i]->end()),
                  std::vector(expected.faces[i].begin(), expected.faces[i].end()))
            << "list " << i;
    }
    ASSERT_EQ(reference::difference(before, mesh), "");
    ASSERT_EQ(reference::as_lists(mesh.shells), reference::shells(mesh));
    ASSERT_TRUE(is_consistent(mesh));
    ASSERT_EQ(detect(mesh), counts);
}

SoupVector loose_triangles(Random& random) {
    SoupVector soup((1 + random.below(24)) * 9);
    const std::uint64_t side = random.below(2) == 0 ? 4 : 10;
    for (float& x : soup) x = static_cast<float>(random.below(side));
    return soup;
}

// Boxes on a small grid: apart, touching at vertices, edges and whole sides, or one in another.
SoupVector pile_of_boxes(Random& random) {
    SoupVector soup;
    for (std::uint64_t i = 1 + random.below(4); i > 0; --i) {
        Vec3f low{static_cast<float>(random.below(4)), static_cast<float>(random.below(4)),
                  static_cast<float>(random.below(3))};
        const auto size = static_cast<float>(1 + random.below(2));
        auto box = shapes::box(low, low + Vec3f{size, size, size});
        if (random.below(3) == 0) box = shapes::turned(box);
        shapes::append(soup, box);
    }
    return soup;
}

// A sheet over a grid, or a strip with its ends joined by a half turn.
SoupVector sheet(Random& random) {
    const std::uint64_t nx = 2 + random.below(5);
    const std::uint64_t ny = 1 + random.below(4);
    std::vector<float> heights((nx + 1) * (ny + 1));
    for (float& h : heights) h = static_cast<float>(random.below(3));
    const bool is_joined = random.below(2) == 0;
    SoupVector soup;
    const auto point = [&](std::uint64_t x, std::uint64_t y) {
        if (is_joined && x == nx) {
            x = 0;
            y = ny - y;
        }
        soup.insert(soup.end(),
                    {static_cast<float>(x * x), static_cast<float>(y), heights[y * (nx + 1) + x]});
    };
    for (std::uint64_t x = 0; x < nx; ++x) {
        for (std::uint64_t y = 0; y < ny; ++y) {
            for (const auto& [i, j] : {std::pair{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}}) {
                point(x + static_cast<unsigned>(i), y + static_cast<unsigned>(j));
            }
        }
    }
    return soup;
}

SoupVector balls(Random& random) {
    SoupVector soup = shapes::sphere(3, static_cast<int>(random.below(3)));
    auto other = shapes::rock(2, 1);
    shapes::move(other, {static_cast<float>(random.below(5)), 0, 0});
    shapes::append(soup, other);
    return soup;
}

// Turns, doubles and removes triangles of a soup; then deletes and spoils faces of the mesh.
TriMesh damaged(const SoupVector& soup, Random& random) {
    const std::uint64_t rarity = 2 + random.below(20);
    SoupVector result;
    for (std::size_t i = 0; i + 9 <= soup.size(); i += 9) {
        SoupVector triangle(soup.begin() + static_cast<std::ptrdiff_t>(i),
                            soup.begin() + static_cast<std::ptrdiff_t>(i + 9));
        if (random.below(rarity) == 0) triangle = shapes::turned(triangle);
        if (random.below(rarity * 2) == 0) continue;
        shapes::append(result, triangle);
        if (random.below(rarity * 3) == 0) shapes::append(result, triangle);
    }
    if (random.below(3) != 0) result = shapes::shuffled(result, random.next());
    std::vector<std::int32_t> labels(result.size() / 9);
    for (auto& label : labels) label = static_cast<std::int32_t>(random.below(3)) - 1;
    const std::vector<float> uv(labels.size() * 6);
    TriMesh mesh;
    build_f(mesh, Soup{labels.size(), result.data(), nullptr, uv.data(), labels.data()});
    const bool has_deleted = random.below(3) == 0;
    for (Face& face : mesh.faces) {
        for (auto& byte : face.colour) byte = static_cast<std::uint8_t>(random.below(256));
        if (has_deleted && random.below(6) == 0) face.deleted = 1;
    }
    // One only: of two such faces at one vertex it is not settled whether the edge from the vertex
    // to itself joins them.
    if (random.below(4) == 0 && !mesh.faces.empty()) {
        Face& face = mesh.faces[random.below(mesh.faces.size())];
        const std::size_t c = random.below(3);
        face.vertex[next_corner(c)] = face.vertex[c];
        if (random.below(5) == 0) face.vertex.fill(face.vertex[c]);
    }
    return mesh;
}

TEST(Detect, AgreesWithTheLiteralWalk) {
    const struct {
        const char* name;
        SoupVector (*make)(Random&);
        std::uint64_t runs;
    } kinds[] = {{"loose triangles", loose_triangles, 3000},
                 {"boxes", pile_of_boxes, 2500},
                 {"sheet", sheet, 2500},
                 {"balls", balls, 100}};
    for (const auto& kind : kinds) {
        for (std::uint64_t seed = 1; seed <= kind.runs; ++seed) {
            SCOPED_TRACE(std::string(kind.name) + ", seed " + std::to_string(seed));
            Random random(seed);
            expect_as_reference(damaged(kind.make(random), random));
            if (HasFatalFailure()) return;
        }
    }
}

TEST(Detect, WalksShapesBeyondItsStartingHeights) {
    for (const float z : {-2e6F, 2e6F}) {
        auto soup = shapes::box({0, 0, 0}, {1, 1, 1});
        shapes::move(soup, {0, 0, z});
        soup.resize(soup.size() - 9);
        TriMesh mesh = shapes::mesh_of(soup);
        // Below -1000000 there is no top to start from.
        EXPECT_EQ(detect(mesh).open_edges, z > 0 ? 6U : 0U);
        expect_as_reference(mesh);
    }
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const float odd : {nan, std::numeric_limits<float>::infinity(), 3e38F, 1e-44F}) {
        for (std::size_t i = 0; i < 9; ++i) {
            auto soup = shapes::box({0, 0, 0}, {1, 1, 1});
            soup[i] = odd;
            expect_as_reference(shapes::mesh_of(soup));
        }
    }
}

SoupVector joined(SoupVector a, const SoupVector& b) {
    shapes::append(a, b);
    return a;
}

TEST(Detect, CountsKnownFlaws) {
    const SoupVector cube = shapes::box({0, 0, 0}, {1, 1, 1});
    const SoupVector far_cube = shapes::box({5, 5, 5}, {6, 6, 6});
    const SoupVector up = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    const SoupVector needle = {0, 0, 0, 1, 0, 0, 1, 0.0006F, 0};  // 0.034 degrees
    const SoupVector one_turned = joined(SoupVector(cube.begin() + 9, cube.end()),
                                         shapes::turned({cube.begin(), cube.begin() + 9}));
    const SoupVector no_lid = {cube.begin() + 9, cube.end()};
    const SoupVector three_at_an_edge = {0, 0, 0,  1, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0,
                                         0, 0, -1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    const struct {
        const char* name;
        SoupVector soup;
        FlawCounts expected;  // inverted, open, non-manifold, degenerate
    } cases[] = {
        {"nothing", {}, {}},
        {"cube", cube, {}},
        {"two cubes", joined(cube, far_cube), {}},
        {"cubes touching at a vertex", joined(cube, shapes::box({1, 1, 1}, {2, 2, 2})), {}},
        {"cube inside out", shapes::turned(cube), {12, 0, 0, 0}},
        {"one of two inside out", joined(cube, shapes::turned(far_cube)), {12, 0, 0, 0}},
        {"one face turned", one_turned, {1, 0, 0, 0}},
        {"one face missing", no_lid, {0, 6, 0, 0}},
        {"triangle", up, {0, 3, 0, 0}},
        {"triangle that looks down", shapes::turned(up), {}},
        {"three faces at an edge", three_at_an_edge, {0, 3, 3, 0}},
        {"needle", needle, {0, 3, 0, 1}},
        {"needle that looks down", shapes::turned(needle), {0, 0, 0, 1}},
        {"fan", shapes::fan(1000, 500), {0, 2000, 0, 0}},
        {"fan inside out", shapes::turned(shapes::fan(1000, 500)), {}},
    };
    for (const auto& c : cases) {
        TriMesh mesh = shapes::mesh_of(c.soup);
        EXPECT_EQ(detect(mesh), c.expected) << c.name;
        expect_as_reference(mesh);
    }
}

TEST(Detect, AgreesOnRealModels) {
    const struct {
        const char* file;
        std::size_t faces, vertices, shells;
        FlawCounts expected;
    } models[] = {{"cat.stl", 15894, 7949, 1, {}},
                  {"gearwheel.stl", 2444, 1222, 1, {0, 0, 0, 48}},
                  {"gearwheel_ascii.stl", 2444, 1222, 1, {0, 0, 0, 48}}};
    RunLog log;
    RunContext run{{}, log};
    const std::string folder = POVMESH_TEST_DATA "/../../examples/";
    for (const auto& model : models) {
        TriMesh mesh;
        ASSERT_TRUE(read_stl(folder + model.file, run, mesh).ok()) << model.file;
        EXPECT_EQ(mesh.faces.size(), model.faces) << model.file;
        EXPECT_EQ(mesh.vertices.size(), model.vertices) << model.file;
        EXPECT_EQ(detect(mesh), model.expected) << model.file;
        EXPECT_EQ(mesh.shells.size(), model.shells) << model.file;
    }
    // More of them, where POVMESH_MODELS names a folder.
    const char* more = std::getenv("POVMESH_MODELS");
    for (const std::string& place : {folder, std::string(more != nullptr ? more : "")}) {
        if (place.empty()) continue;
        for (const auto& entry : std::filesystem::directory_iterator(place)) {
            TriMesh mesh;
            if (entry.path().extension() != ".stl") continue;
            static_cast<void>(
                read_stl(entry.path().string(), run, mesh));  // broken ones give a part
            SCOPED_TRACE(entry.path().string());
            expect_as_reference(mesh);
        }
    }
}

TEST(Detect, SkipsDeletedFacesAndCountsEqualVertices) {
    auto soup = shapes::box({0, 0, 0}, {1, 1, 1});
    shapes::append(soup, shapes::book(3));
    TriMesh mesh = shapes::mesh_of(soup);
    for (std::size_t f = 12; f < 15; ++f) mesh.faces[f].deleted = 1;
    EXPECT_FALSE(detect(mesh).any());

    mesh = shapes::mesh_of(SoupVector{0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
    mesh.faces[1].vertex[2] = mesh.faces[1].vertex[0];
    EXPECT_EQ(detect(mesh).degenerate, 1U);
    expect_as_reference(mesh);
}

TEST(Detect, TakesLinearTimeWhereManyFacesMeet) {
    SoupVector tents;  // separate triangles below a common top
    for (std::uint32_t i = 0; i < kMany; ++i) {
        const auto x = static_cast<float>(i);
        tents.insert(tents.end(), {0, 0, 900, x, -1000, 0, x + 0.5F, -1000, 0});
    }
    const struct {
        const char* name;
        SoupVector soup;
        FlawCounts expected;
    } cases[] = {
        {"fan", shapes::fan(kMany, 500), {0, 2 * kMany, 0, kMany}},
        {"shuffled fan", shapes::shuffled(shapes::fan(kMany, 500), 2), {0, 2 * kMany, 0, kMany}},
        {"book", shapes::book(kMany), {0, kMany, kMany, 0}},
        {"tents", tents, {0, 3 * kMany, 0, 0}}};
    for (const auto& c : cases) {
        TriMesh mesh = shapes::mesh_of(c.soup);
        FlawCounts counts = detect(mesh);
        if (std::string(c.name) == "tents") counts.degenerate = 0;  // thin from afar
        EXPECT_EQ(counts, c.expected) << c.name;
    }
}

TEST(DegenerateAngle, IsDecidedInFloatAtFiveHundredths) {
    // A right triangle tells its angle a second way. One last bit of the height is about one of the
    // angle; the widths shift where between two floats the angles fall.
    int at_limit = 0;
    for (const float width : {1.0F, 1.0625F, 1.125F, 1.1875F, 1.25F, 1.3125F, 1.375F, 1.4375F}) {
        auto height =
            static_cast<float>(std::tan(0.05 * std::numbers::pi / 180) * width * (1 - 3e-6));
        for (int i = 0; i < 100; ++i, height = std::nextafter(height, 1.0F)) {
            const double angle = std::atan2(double{height}, double{width}) * 180 / std::numbers::pi;
            const auto degrees = static_cast<float>(angle);
            EXPECT_EQ(has_degenerate_angle({0, 0, 0}, {width, 0, 0}, {width, height, 0}),
                      degrees < 0.05F)
                << height << " high, " << width << " wide";
            at_limit += degrees == 0.05F && angle < 0.05 ? 1 : 0;
        }
    }
    EXPECT_GT(at_limit, 0);  // angles that only the rounding brings to the limit

    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    const Vec3f o{0, 0, 0};
    const Vec3f x{1, 0, 0};
    const struct {
        Vec3f a, b, c;
        bool is_degenerate;
    } cases[] = {{o, x, {0, 1, 0}, false},
                 {o, x, {2, 0, 0}, true},
                 {o, x, {-1, 1e-4F, 0}, true},
                 {o, {-0.0F, 0, 0}, x, true},
                 {{0, 0, 1e-38F}, {0, 1e-38F, 0}, {1e-38F, 0, 0}, false},
                 {{0, 0, 3e38F}, {0, 3e38F, 0}, {-3e38F, 0, 0}, false},
                 {{nan, 0, 0}, x, {0, 1, 0}, false},
                 {o, {0, infinity, 0}, x, false}};
    for (const auto& c : cases) {
        EXPECT_EQ(has_degenerate_angle(c.a, c.b, c.c), c.is_degenerate);
        EXPECT_EQ(has_degenerate_angle(c.c, c.a, c.b), c.is_degenerate);
        EXPECT_EQ(has_degenerate_angle(c.b, c.c, c.a), c.is_degenerate);
    }
}

TEST(SharedEdge, LooksAtTheFirstCommonVertexOnly) {
    for (std::int32_t code = 0; code < 15625; ++code) {  // six corners, each one of five vertices
        Face a{};
        Face b{};
        std::int32_t rest = code;
        for (std::size_t c = 0; c < 3; ++c, rest /= 25) {
            a.vertex[c] = rest % 5;
            b.vertex[c] = rest / 5 % 5;
        }
        ASSERT_EQ(shares_edge_in_same_direction(a.vertex, b.vertex),
                  reference::same_direction(a, b))
            << code;
    }
}

}  // namespace
}  // namespace povmesh
