#include "job/picture/picture.h"

#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

#include "helpers/shapes.h"
#include "job/picture/raster.h"

namespace povmesh::picture {
namespace {

using shapes::mesh_of;

constexpr std::uint32_t kSide = 100;  // a margin of exactly 4 pixels

RenderOptions options_for(View view, std::uint32_t width = kSide, std::uint32_t height = kSide) {
    RenderOptions options;
    options.width = width;
    options.height = height;
    options.view = view;
    return options;
}

Scene scene_of(const TriMesh& mesh) {
    Scene scene(1);
    scene[0].mesh = &mesh;
    return scene;
}

shapes::SoupVector square(float size, float z) {
    return {0, 0, z, size, 0, z, size, size, z, 0, 0, z, size, size, z, 0, size, z};
}

// 'r', 'g' or 'b' for the strongest channel; '-' for a grey.
char hue(Colour c) {
    const int red = c.red;
    const int green = c.green;
    const int blue = c.blue;
    if (red > green + 40 && red > blue + 40) return 'r';
    if (green > red + 40 && green > blue + 40) return 'g';
    if (blue > red + 40 && blue > green + 30) return 'b';
    return '-';
}

constexpr std::int32_t kCells = 6;

// The corners of kCells x kCells square cells, `cell` samples wide, that fill a square; those
// within are moved by up to a quarter of a cell, in multiples of `step` units.
std::vector<ScreenVertex> jittered_grid(std::int32_t cell, std::int32_t step) {
    shapes::Random random(7);
    const std::int32_t reach = cell * kUnit / 4 / step;
    const auto place = [&](std::int32_t line) {
        std::int32_t at = line * cell * kUnit;
        if (line > 0 && line < kCells) {
            const auto choice =
                random.below(std::uint64_t{2} * static_cast<std::uint64_t>(reach) + 1);
            at += (static_cast<std::int32_t>(choice) - reach) * step;
        }
        return at;
    };
    std::vector<ScreenVertex> grid;
    for (std::int32_t i = 0; i <= kCells; ++i) {
        for (std::int32_t j = 0; j <= kCells; ++j) {
            const std::int32_t x = place(j);
            grid.push_back({x, place(i), 0});
        }
    }
    return grid;
}

// Adds 1 for every sample of a triangle, in two strips as in a large picture.
void count_samples(const ScreenVertex& a, const ScreenVertex& b, const ScreenVertex& c,
                   std::int32_t size, std::vector<int>& counts) {
    ASSERT_GT(double_area(a, b, c), 0);
    for (const auto& strip : {SampleArea{0, size, 0, size / 3}, {0, size, size / 3, size}}) {
        const SampleArea box = box_of(a, b, c, strip);
        if (box.is_empty()) continue;
        const auto add = [&](std::int32_t row, std::int32_t begin, std::int32_t end) {
            const auto first = counts.begin() + std::ptrdiff_t{row} * size;
            std::for_each(first + begin, first + end, [](int& count) { ++count; });
        };
        for_each_run(a, b, c, box, add);
    }
}

TEST(Raster, NeighboursLeaveNoGapAndShareNoSample) {
    // Steps of half a sample put many sides through the centres of samples; the cells lie on both
    // sides of the limit for narrow triangles.
    for (const std::int32_t cell : {2, 5, 30}) {
        for (const std::int32_t step : {1, kUnit / 2}) {
            const std::vector<ScreenVertex> grid = jittered_grid(cell, step);
            const std::int32_t size = cell * kCells;
            std::vector<int> counts(static_cast<std::size_t>(size) *
                                    static_cast<std::size_t>(size));
            constexpr std::size_t kRow = kCells + 1;
            for (std::size_t a = 0; a + kRow + 1 < grid.size(); ++a) {
                if (a % kRow == kCells) continue;
                count_samples(grid[a], grid[a + 1], grid[a + kRow + 1], size, counts);
                count_samples(grid[a], grid[a + kRow + 1], grid[a + kRow], size, counts);
            }
            EXPECT_EQ(counts, std::vector<int>(counts.size(), 1)) << cell << ' ' << step;
        }
    }
}

TEST(Render, CoversASquareToThePixel) {
    const TriMesh mesh = mesh_of(square(46, 0));
    RenderOptions options = options_for(View::Top);
    options.outlines = false;
    options.frame = {{0, 0, 0},
                     {92, 92, 0}};  // a pixel a unit; the square is its lower left quarter
    const Image ground = render({}, options);
    const Image image = render(scene_of(mesh), options);
    for (std::uint32_t y = 0; y < kSide; ++y) {
        for (std::uint32_t x = 0; x < kSide; ++x) {
            const bool inside = x >= 4 && x < 50 && y >= 50 && y < 96;
            ASSERT_EQ(image.at(x, y), inside ? image.at(10, 90) : ground.at(x, y)) << x << ' ' << y;
        }
    }
    EXPECT_NE(image.at(10, 90), ground.at(10, 90));
}

TEST(Render, StripsOfALargePictureShowNoSeam) {
    const TriMesh mesh = mesh_of(square(10, 0));
    const Image image = render(scene_of(mesh), options_for(View::Top, kMaxPictureSide, 150));
    for (std::uint32_t y = 20; y < 135; ++y) ASSERT_EQ(image.at(8192, y), image.at(8192, 60)) << y;
}

TEST(Render, NearerModelsHideFartherOnesInAnyOrder) {
    const TriMesh low = mesh_of(shapes::box({0, 0, 0}, {10, 10, 1}));
    const TriMesh high = mesh_of(shapes::box({0, 0, 5}, {10, 10, 6}));
    Scene scene(2);
    scene[0].mesh = &low;
    scene[0].colour = {220, 60, 60};
    scene[1].mesh = &high;
    scene[1].colour = {60, 220, 60};
    const Scene reversed{scene[1], scene[0]};
    for (const auto& [view, expected] : {std::pair{View::Top, 'g'}, std::pair{View::Bottom, 'r'}}) {
        const Image image = render(scene, options_for(view));
        EXPECT_EQ(hue(image.at(50, 50)), expected);
        EXPECT_EQ(image.rgb, render(reversed, options_for(view)).rgb);
    }
}

TEST(Render, EachViewShowsItsSideTheRightWayUp) {
    TriMesh mesh = mesh_of(shapes::box({-1, -1, -1}, {1, 1, 1}));
    // Sides across x red, across y green, across z blue; the negative ones darker.
    for (Face& face : mesh.faces) {
        const Vec3f a = mesh.corner_position(face, 0);
        const Vec3f n = cross(mesh.corner_position(face, 1) - a, mesh.corner_position(face, 2) - a);
        const auto shade = static_cast<std::uint8_t>(n.x + n.y + n.z > 0 ? 240 : 140);
        face.colour.fill(0);
        for (std::size_t corner = 0; corner < 9; corner += 3) {
            face.colour[corner + (n.x != 0 ? 0U : n.y != 0 ? 1U : 2U)] = shade;
        }
    }
    struct Case {
        View view;
        Vec3f viewer, right, up;
    };
    const std::array<Case, 6> cases = {{{View::Front, {0, -1, 0}, {1, 0, 0}, {0, 0, 1}},
                                        {View::Back, {0, 1, 0}, {-1, 0, 0}, {0, 0, 1}},
                                        {View::Left, {-1, 0, 0}, {0, -1, 0}, {0, 0, 1}},
                                        {View::Right, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}},
                                        {View::Top, {0, 0, 1}, {1, 0, 0}, {0, 1, 0}},
                                        {View::Bottom, {0, 0, -1}, {1, 0, 0}, {0, -1, 0}}}};
    constexpr Colour kRightDot{255, 255, 0};
    constexpr Colour kUpperDot{255, 0, 255};
    for (const Case& c : cases) {
        Scene scene = scene_of(mesh);
        scene[0].use_face_colours = true;
        scene[0].overlay.points = {{kRightDot, 7, {c.viewer + c.right}},
                                   {kUpperDot, 7, {c.viewer + c.up}}};
        const Image image = render(scene, options_for(c.view));
        const Colour side = image.at(30, 70);
        EXPECT_EQ(hue(side), c.viewer.x != 0 ? 'r' : c.viewer.y != 0 ? 'g' : 'b');
        EXPECT_EQ(std::max({side.red, side.green, side.blue}) > 150,
                  c.viewer.x + c.viewer.y + c.viewer.z > 0);
        EXPECT_EQ(image.at(94, 50), kRightDot);
        EXPECT_EQ(image.at(50, 5), kUpperDot);
    }
    Scene scene = scene_of(mesh);
    scene[0].use_face_colours = true;
    const Image iso = render(scene, options_for(View::Iso));
    EXPECT_EQ(hue(iso.at(50, 30)), 'b');
    EXPECT_EQ(hue(iso.at(35, 60)), 'g');
    EXPECT_EQ(hue(iso.at(65, 60)), 'r');
    // Colours that tell a value do so on the faces of a model that is inside out, too.
    for (Face& face : mesh.faces) std::swap(face.vertex[1], face.vertex[2]);
    EXPECT_NE(hue(render(scene, options_for(View::Iso)).at(65, 60)), 'r');
    scene[0].colours_inside = true;
    EXPECT_EQ(hue(render(scene, options_for(View::Iso)).at(65, 60)), 'r');
}

TEST(Render, FlawsShowInTheirColours) {
    // The last side of the box, made of its last two triangles, is the one across +x.
    const shapes::SoupVector whole = shapes::box({0, 0, 0}, {10, 10, 10});
    const auto picture_of = [](const shapes::SoupVector& soup, View view) {
        TriMesh mesh = mesh_of(soup);
        FlawFaces flaws;
        detect(mesh, &flaws);
        Scene scene = scene_of(mesh);
        scene[0].overlay = flaw_overlay(mesh, flaws);
        return render(scene, options_for(view));
    };
    const Colour plain = picture_of(whole, View::Right).at(30, 40);
    EXPECT_EQ(hue(plain), '-');

    const shapes::SoupVector open(whole.begin(), whole.end() - 9);
    const Image hole = picture_of(open, View::Right);
    EXPECT_EQ(hole.at(50, 50), palette::kOpen);                 // the diagonal
    EXPECT_EQ(hue(hole.at(30, 30)), 'b');                       // the inside of the far wall
    EXPECT_EQ(hole.at(70, 70), plain);                          // the triangle that is left
    EXPECT_NE(picture_of(open, View::Left).at(50, 50), plain);  // hidden, but shining through
    EXPECT_NE(picture_of(open, View::Left).at(50, 50), palette::kOpen);

    shapes::SoupVector turned(open);
    shapes::append(turned, shapes::turned(std::span(whole).last(9)));
    EXPECT_EQ(hue(picture_of(turned, View::Right).at(30, 30)), 'r');

    shapes::SoupVector touching(whole);  // two boxes that share an upright edge
    shapes::append(touching, shapes::box({10, 10, 0}, {20, 20, 10}));
    EXPECT_EQ(picture_of(touching, View::Iso).at(50, 50), palette::kNonManifold);
}

TEST(Render, TakesAnything) {
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInf = std::numeric_limits<float>::infinity();
    const std::vector<std::vector<Vec3f>> point_sets = {
        {},
        {{1, 2, 3}},
        {{kNan, kNan, kNan}, {kInf, 0, 0}, {0, -kInf, 0}},
        {{3e38F, 3e38F, 3e38F}, {-3e38F, 3e38F, 0}, {0, -3e38F, -3e38F}, {1, 1, 1}},
        {{1e-45F, 0, 0}, {0, 1e-45F, 0}, {0, 0, 1e-45F}},
        {{0, 0, 0}, {0, 0, 5}, {0, 0, 9}},  // a line, seen as a point from above
        {{0, 0, 0}, {1e6F, 0, 0}, {0, 1e-6F, 0}},
        {{1e8F, 1e8F, 1e8F}, {1e8F, 1e8F, 1e8F}, {1e8F, 1e8F, 1e8F}}};
    for (const auto& points : point_sets) {
        TriMesh mesh;
        for (const Vec3f p : points) {
            mesh.vertices.push_back(
                {p.x, p.y, p.z, static_cast<std::int32_t>(mesh.vertices.size())});
        }
        for (const auto& corners :
             {std::array{0, 1, 2}, {0, 2, 1}, {1, 2, 3}, {0, 0, 1}, {-1, 7, 0}}) {
            mesh.faces.push_back({{}, 0, -1, corners, {-1, -1, -1}});
        }
        Scene scene = scene_of(mesh);
        scene[0].overlay.faces = {{{1, 2, 3}, {0, 3, 99}}};
        scene[0].overlay.edges = {{{1, 2, 3}, 3, {{0, 1}, {1, 1}, {-1, 0}, {5, 99}}},
                                  {{1, 2, 3}, kNan, {{0, 1}}},
                                  {{1, 2, 3}, kInf, {{0, 2}}}};
        scene[0].overlay.points = {{{1, 2, 3}, 1e9F, {{kNan, 0, 0}, {3e38F, -3e38F, 0}}}};
        for (const auto& [width, height] :
             {std::pair{1U, 1U}, {kMaxPictureSide, 1U}, {1U, 300U}, {64U, 48U}}) {
            for (const View view : {View::Iso, View::Front, View::Top}) {
                const Image image = render(scene, options_for(view, width, height));
                ASSERT_EQ(image.rgb.size(), std::size_t{width} * height * 3);
            }
        }
    }
}

TEST(Render, FacesThatCannotBeDrawnLeaveTheOthersInPlace) {
    TriMesh mesh = mesh_of(square(10, 0));
    const Image expected = render(scene_of(mesh), options_for(View::Top));
    mesh.vertices.push_back({std::numeric_limits<float>::quiet_NaN(), 0, 0, 4});
    mesh.faces.push_back(mesh.faces[0]);
    mesh.faces.back().vertex[1] = 4;
    mesh.faces.push_back(mesh.faces[0]);
    mesh.faces.back().vertex[1] = 1000;
    mesh.faces.push_back(mesh.faces[0]);
    std::swap(mesh.faces.back().vertex[0], mesh.faces.back().vertex[1]);
    mesh.faces.back().deleted = 1;
    EXPECT_EQ(render(scene_of(mesh), options_for(View::Top)).rgb, expected.rgb);
}

TEST(Png, DecodesToTheSameImage) {
    shapes::Random random(3);
    for (const auto& [width, height] : {std::pair{1U, 1U}, {7U, 3U}, {301U, 200U}}) {
        Image image{width, height, {}};
        image.rgb.resize(std::size_t{width} * height * 3);
        for (std::uint8_t& byte : image.rgb) byte = static_cast<std::uint8_t>(random.below(256));
        const Array<char> bytes = encode_png(image);

        png_image png{};
        png.version = PNG_IMAGE_VERSION;
        ASSERT_NE(png_image_begin_read_from_memory(&png, bytes.data(), bytes.size()), 0)
            << png.message;
        EXPECT_EQ(png.width, width);
        EXPECT_EQ(png.height, height);
        EXPECT_EQ(png.format, static_cast<png_uint_32>(PNG_FORMAT_RGB));
        Array<std::uint8_t> decoded(image.rgb.size());
        ASSERT_NE(png_image_finish_read(&png, nullptr, decoded.data(), 0, nullptr), 0)
            << png.message;
        EXPECT_EQ(decoded, image.rgb);
    }
    EXPECT_THROW(encode_png(Image{}), std::runtime_error);
}

}  // namespace
}  // namespace povmesh::picture
