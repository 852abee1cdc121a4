// Columns: where they stand, told by rays of the tests' own; tubes, bad input, the same bits twice.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

#include "base/parallel.h"
#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "io/stl.h"
#include "mesh/bounds.h"
#include "mesh/volume.h"
#include "support/column_supports.h"
#include "support/gap_search.h"
#include "support/upright_lines.h"

namespace povmesh {
namespace {

using shapes::SoupVector;

constexpr double kSpacing = 3;

Array<Column> columns_of(const TriMesh& mesh, const ColumnOptions& options) {
    RunLog log;
    RunContext run{{}, log};
    Array<Column> columns;
    (void)find_columns(mesh, options, run, columns);
    return columns;
}

// A box whose lower side slants from `left` to `right`.
SoupVector wedge(float x0, float x1, float left, float right, float top, float half_depth) {
    SoupVector soup = shapes::box({x0, -half_depth, -1e6F}, {x1, half_depth, top});
    for (std::size_t i = 0; i < soup.size(); i += 3) {
        if (soup[i + 2] < top) soup[i + 2] = soup[i] == x0 ? left : right;
    }
    return soup;
}

SoupVector of_boxes(const std::vector<std::array<Vec3f, 2>>& boxes) {
    SoupVector soup;
    for (const auto& [low, high] : boxes) shapes::append(soup, shapes::box(low, high));
    return soup;
}

SoupVector table() {
    return of_boxes({{{{-20, -15, 20}, {20, 15, 23}}},
                     {{{-20, -15, 0}, {-17, -12, 21}}},
                     {{{17, -15, 0}, {20, -12, 21}}},
                     {{{-20, 12, 0}, {-17, 15, 21}}},
                     {{{17, 12, 0}, {20, 15, 21}}}});
}

SoupVector letter_t() {
    return of_boxes({{{{-5.5F, -5, 0}, {5.5F, 5, 31}}}, {{{-25, -5, 30}, {25, 5, 36}}}});
}

// A board below a T's bar, so that columns end on it.
SoupVector t_over_a_board() {
    SoupVector soup = letter_t();
    shapes::append(soup, shapes::box({6, -12, 0}, {22, 12, 8}));
    return soup;
}

SoupVector mushroom() {
    SoupVector soup = shapes::sphere(18, 4);
    shapes::move(soup, {0, 0, 34});
    shapes::append(soup, shapes::box({-4, -4, 0}, {4, 4, 20}));
    return soup;
}

SoupVector bridge() {
    return of_boxes({{{{-30, -6, 0}, {-22, 6, 25}}},
                     {{{22, -6, 0}, {30, 6, 25}}},
                     {{{-30, -6, 24.5F}, {30, 6, 28}}}});
}

SoupVector arch() {
    SoupVector soup;
    for (int i = -36; i < 36; ++i) {
        const auto low = [](int k) {
            return static_cast<float>(std::sqrt(std::max(20.0 * 20.0 - k * k, 0.0)));
        };
        const auto x = static_cast<float>(i);
        shapes::append(soup, wedge(x, x + 1, low(i), low(i + 1), 30, 8));
    }
    return soup;
}

// Leans out by as many degrees from upright.
SoupVector leaning(double degrees) {
    const auto run = static_cast<float>(30 * std::tan(degrees * std::numbers::pi / 180));
    SoupVector soup = shapes::box({-4, -8, 0}, {4, 8, 30});
    for (std::size_t i = 0; i < soup.size(); i += 3) soup[i] += soup[i + 2] > 0 ? run : 0;
    return soup;
}

// Lies along x, its middle at the origin.
SoupVector rod(float radius, float length) {
    SoupVector soup;
    constexpr int kSides = 32;
    const auto at = [&](int k, float x) {
        const double angle = 2 * std::numbers::pi * (k + 0.5) / kSides;
        return std::array{x, radius * static_cast<float>(std::cos(angle)),
                          radius * static_cast<float>(std::sin(angle))};
    };
    const float end = length / 2;
    for (int k = 0; k < kSides; ++k) {
        const std::array corners = {at(k, -end),
                                    at(k + 1, end),
                                    at(k, end),
                                    at(k, -end),
                                    at(k + 1, -end),
                                    at(k + 1, end),
                                    std::array{-end, 0.0F, 0.0F},
                                    at(k + 1, -end),
                                    at(k, -end),
                                    std::array{end, 0.0F, 0.0F},
                                    at(k, end),
                                    at(k + 1, end)};
        for (const auto& c : corners) soup.insert(soup.end(), c.begin(), c.end());
    }
    return soup;
}

// A cone upside down, too steep to hang over anywhere.
SoupVector spike(float height) {
    SoupVector soup = shapes::turned(shapes::fan(24, height));
    shapes::append(soup, shapes::fan(24, 0));
    for (std::size_t i = 0; i < soup.size(); i += 3) {
        soup[i] *= 0.003F;
        soup[i + 1] *= 0.003F;
        soup[i + 2] = -soup[i + 2];
    }
    return soup;
}

struct Hit {
    double z;
    double cosine;  // of the normal to the z axis: below 0 for a face that looks down
};

// Every face that an upright line meets, from below.
std::vector<Hit> hits(const TriMesh& mesh, double x, double y) {
    std::vector<Hit> found;
    for (const Face& face : mesh.faces) {
        const Vec3d a = to_double(mesh.corner_position(face, 0));
        const Vec3d u = to_double(mesh.corner_position(face, 1)) - a;
        const Vec3d v = to_double(mesh.corner_position(face, 2)) - a;
        const double area = u.x * v.y - u.y * v.x;
        const double s = ((x - a.x) * v.y - (y - a.y) * v.x) / area;
        const double t = (u.x * (y - a.y) - u.y * (x - a.x)) / area;
        if (!(s >= 0 && t >= 0 && s + t <= 1)) continue;
        const Vec3d normal = cross(u, v);
        found.push_back({a.z + s * u.z + t * v.z, normal.z / length(normal)});
    }
    std::sort(found.begin(), found.end(), [](const Hit& a, const Hit& b) { return a.z < b.z; });
    return found;
}

// The faces around a column, so that rays need not look at all of them.
TriMesh near(const TriMesh& mesh, const Column& column) {
    TriMesh part;
    part.vertices = mesh.vertices;
    for (const Face& face : mesh.faces) {
        Box3d box;
        for (std::size_t i = 0; i < 3; ++i) box.widen(to_double(mesh.corner_position(face, i)));
        const double x = double{column.top.x};
        const double y = double{column.top.y};
        if (box.low.x < x + 2 && box.high.x > x - 2 && box.low.y < y + 2 && box.high.y > y - 2) {
            part.faces.push_back(face);
        }
    }
    return part;
}

struct Overhang {
    double z, floor, angle;
};

// What hangs over free space on a line.
std::vector<Overhang> overhangs(const TriMesh& mesh, double x, double y) {
    std::vector<Overhang> found;
    int depth = 0;
    double floor = 0;
    for (const Hit& hit : hits(mesh, x, y)) {
        if (hit.cosine < 0 && depth++ == 0) {
            found.push_back({hit.z, floor, std::acos(-hit.cosine) * 180 / std::numbers::pi});
        }
        if (hit.cosine > 0 && --depth == 0) floor = hit.z;
    }
    return found;
}

// The share of a column's cross-section that stands under an overhang at its top; and whether every
// line of it is free from its foot to its head.
struct Stand {
    double held = 0;
    double angle = 90;  // the smallest of what it holds
    bool is_free = true;
};

Stand stand_of(const TriMesh& mesh, const Column& column) {
    Stand stand;
    constexpr int kSteps = 5;
    const double side = column_half_side(kSpacing) * 0.98;
    for (int i = 0; i < kSteps * kSteps; ++i) {
        const int row = i / kSteps;
        const double dx = side * (2.0 * (i % kSteps) / (kSteps - 1) - 1) + 1e-4;
        const double dy = side * (2.0 * row / (kSteps - 1) - 1) + 2e-4;
        const double x = double{column.top.x} + dx;
        const double y = double{column.top.y} + dy;
        for (const Overhang& over : overhangs(mesh, x, y)) {
            // A slanting surface rises and falls by its slope times the way from the axis.
            const double slope = std::tan(std::min(over.angle, 80.0) * std::numbers::pi / 180);
            const double slack = 2.5 + std::hypot(dx, dy) * slope;
            if (std::abs(over.z - double{column.top.z}) > slack) continue;
            stand.held += 1.0 / (kSteps * kSteps);
            stand.angle = std::min(stand.angle, over.angle);
        }
        const double middle = (double{column.bottom.z} + double{column.top.z}) / 2;
        int depth = 0;
        for (const Hit& hit : hits(mesh, x, y)) {
            if (hit.z < middle) depth += hit.cosine < 0 ? 1 : -1;
            // Ends may be in the model by two units and what a slope adds.
            if (hit.z > double{column.bottom.z} + 3.5 && hit.z < double{column.top.z} - 4.5) {
                stand.is_free = false;
            }
        }
        if (depth != 0) stand.is_free = false;
    }
    return stand;
}

double nearest(const Array<Column>& columns, double x, double y, double z) {
    double least = std::numeric_limits<double>::infinity();
    for (const Column& column : columns) {
        if (std::abs(double{column.top.z} - z) > 6) continue;
        least = std::min(least, std::max(std::abs(double{column.top.x} - x),
                                         std::abs(double{column.top.y} - y)));
    }
    return least;
}

// Of the area that hangs over higher than `gap`, how much has no column within so many spacings.
double share_far_away(const TriMesh& mesh, double angle, const Array<Column>& columns, double gap,
                      double spacings, double step = 1.3) {
    const Box3f box = finite_bounds(mesh);
    std::size_t asked = 0;
    std::size_t far = 0;
    const int steps_x = static_cast<int>(double{box.extent().x} / step);
    const int steps_y = static_cast<int>(double{box.extent().y} / step);
    for (int i = 0; i < steps_x; ++i) {
        for (int k = 0; k < steps_y; ++k) {
            const double x = double{box.low.x} + 0.137 + step * i;
            const double y = double{box.low.y} + 0.173 + step * k;
            for (const Overhang& over : overhangs(mesh, x, y)) {
                if (over.angle > 90 - angle - 2 || over.z - over.floor < gap) continue;
                ++asked;
                far += nearest(columns, x, y, over.z) > spacings * kSpacing ? 1 : 0;
            }
        }
    }
    return asked == 0 ? 0 : static_cast<double>(far) / static_cast<double>(asked);
}

// Every column holds something, stands free and on something; every wide overhang has columns.
void expect_good_columns(const TriMesh& mesh, double angle, const Array<Column>& columns,
                         const std::string& what, double most_far = 0) {
    for (const Column& column : columns) {
        const std::string where = what + " at " + std::to_string(column.top.x) + " " +
                                  std::to_string(column.top.y) + " " + std::to_string(column.top.z);
        const TriMesh around = near(mesh, column);
        const Stand stand = stand_of(around, column);
        EXPECT_GT(stand.held, 0.05) << where;
        EXPECT_LE(stand.angle, 90 - angle + 1) << where;
        EXPECT_TRUE(stand.is_free) << where;
        EXPECT_GE(column.top.z - column.bottom.z, 2) << where;
        // The foot: the plate, or within two units below a surface that the column meets.
        bool is_held_up = column.bottom.z == 0;
        for (const double d : {-0.9, 0.0, 0.9}) {
            for (const double e : {-0.9, 0.0, 0.9}) {
                for (const Hit& hit : hits(around, double{column.top.x} + d + 1e-4,
                                           double{column.top.y} + e + 2e-4)) {
                    const double above = hit.z - double{column.bottom.z};
                    is_held_up |= hit.cosine > 0 && above > -0.1 && above < 3;
                }
            }
        }
        EXPECT_TRUE(is_held_up) << where << " to " << column.bottom.z;
    }
    EXPECT_LE(share_far_away(mesh, angle, columns, 8, 1.4), most_far) << what;
}

TEST(Columns, StandUnderWhatHangsOverAndNowhereElse) {
    const struct {
        const char* what;
        SoupVector soup;
        double angle;
        std::size_t least, most;
    } models[] = {
        {"table", table(), 45, 80, 140},
        {"T", letter_t(), 45, 36, 60},
        {"T over a board", t_over_a_board(), 45, 36, 60},
        {"mushroom", mushroom(), 45, 30, 80},
        {"mushroom, flat only", mushroom(), 80, 0, 6},
        {"bridge", bridge(), 45, 45, 80},
        {"arch", arch(), 45, 25, 70},
        {"arch, all of it", arch(), 20, 40, 90},
        {"leaning by 60", leaning(60), 45, 40, 120},
        {"leaning by 30", leaning(30), 45, 0, 0},
        {"leaning by 30, asked for", leaning(30), 20, 8, 60},
        {"upright box", shapes::box({-9, -9, 0}, {9, 9, 40}), 0, 0, 0},
        {"dome on the plate", shapes::sphere(30, 4), 0, 0, 0},
    };
    for (const auto& model : models) {
        const TriMesh mesh = shapes::mesh_of(model.soup);
        const Array<Column> columns = columns_of(mesh, {kSpacing, model.angle, 0});
        EXPECT_GE(columns.size(), model.least) << model.what;
        EXPECT_LE(columns.size(), model.most) << model.what;
        expect_good_columns(mesh, model.angle, columns, model.what);
    }
}

TEST(Columns, EndAtTheSurface) {
    for (const float spacing : {2.0F, 3.0F, 10.0F}) {
        const Array<Column> columns =
            columns_of(shapes::mesh_of(of_boxes({{{{-5, -40, 0}, {5, 40, 40}}},
                                                 {{{-40, -40, 39}, {40, 40, 45}}},
                                                 {{{10, -40, 0}, {40, 40, 12}}}})),
                       {double{spacing}, 45, 0});
        ASSERT_GT(columns.size(), 10U);
        for (const Column& column : columns) {
            EXPECT_FLOAT_EQ(column.top.z, 39) << spacing;
            if (std::abs(column.top.x - 10) < spacing / 2) continue;  // may meet the step's edge
            EXPECT_FLOAT_EQ(column.bottom.z, column.top.x > 10 ? 12 : 0) << spacing;
        }
    }
}

TEST(Columns, LeaveGrainAloneButHoldTips) {
    // A nub on a wall, smaller than a column.
    SoupVector wall = shapes::box({-5, -9, 0}, {5, 9, 40});
    shapes::append(wall, shapes::box({4, -0.4F, 20}, {6.6F, 0.4F, 22}));
    EXPECT_TRUE(columns_of(shapes::mesh_of(wall), {}).empty());
    // A post that hangs from the T, its end in mid-air: the column below it is added.
    SoupVector hanging = letter_t();
    shapes::append(hanging, shapes::box({11.5F, -0.5F, 15}, {12.5F, 0.5F, 31}));
    const Array<Column> columns = columns_of(shapes::mesh_of(hanging), {});
    EXPECT_EQ(std::count_if(
                  columns.begin(), columns.end(),
                  [](const Column& c) { return c.top.x == 12 && c.top.y == 0 && c.top.z == 15; }),
              1);
    EXPECT_EQ(columns.size(), columns_of(shapes::mesh_of(letter_t()), {}).size());
}

// Balls and rods that begin in mid-air, at every place between the rows.
TEST(Columns, AreUnderWhateverBeginsInMidAir) {
    const struct {
        const char* what;
        double width;  // of what begins
        SoupVector soup;
    } bodies[] = {
        {"ball of 6", 6, shapes::sphere(3, 3)},
        {"ball of 3", 3, shapes::sphere(1.5F, 3)},
        {"ball of 0.6", 0.6, shapes::sphere(0.3F, 2)},
        {"rod of 3.5", 3.5, rod(1.75F, 30)},
        {"rod of 4.2", 4.2, rod(2.1F, 30)},
        {"rod of 0.2", 0.2, rod(0.1F, 30)},
        {"tip", 0.2, spike(10)},
    };
    for (const auto& body : bodies) {
        for (const bool adds_between : {false, true}) {
            for (int i = 0; i < 13; ++i) {
                SoupVector soup = shapes::box({-25, -25, 0}, {25, 25, 1});  // holds the rows still
                SoupVector placed = body.soup;
                const auto step = [](int k) { return 0.017F + 0.24F * static_cast<float>(k); };
                const Vec3f at{step(i), step(5 * i % 13), 18};
                shapes::move(placed, at);
                shapes::append(soup, placed);
                ColumnOptions options;
                options.ends_at_surface = options.adds_between = adds_between;
                const Array<Column> columns = columns_of(shapes::mesh_of(soup), options);
                // In rows alone a column may stand beside what is narrower than the way between.
                const double reach =
                    body.width / 2 + (adds_between ? column_half_side(kSpacing) : kSpacing / 2);
                const bool is_rod = body.what[0] == 'r';
                const bool is_held =
                    std::any_of(columns.begin(), columns.end(), [&](const Column& c) {
                        return std::abs(c.top.x - at.x) <= (is_rod ? 15 : reach) &&
                               std::abs(c.top.y - at.y) <= reach && c.top.z > 5;
                    });
                EXPECT_TRUE(is_held)
                    << body.what << " at " << at.x << ' ' << at.y << ' ' << adds_between;
            }
        }
    }
}

// Below a hub the lines look at pieces of faces; a crossing lost or found twice turns inside out.
TEST(UprightLines, CrossAllFacesAroundAHubOnce) {
    constexpr int kFaces = 6000;
    SoupVector soup;
    for (int i = 0; i < kFaces; ++i) {
        soup.insert(soup.end(), {0.1F, 0.2F, static_cast<float>(i % 3)});
        for (const int k : {i, i + 1}) {
            const double angle = 2 * std::numbers::pi * (k % kFaces) / kFaces;
            const double far = i % 7 == 0 ? 100 : 40;
            soup.insert(soup.end(), {static_cast<float>(far * std::cos(angle)),
                                     static_cast<float>(far * std::sin(angle)), -30});
        }
    }
    const TriMesh mesh = shapes::mesh_of(soup);
    const UprightLines lines(mesh);
    for (int i = 0; i < 800; ++i) {
        // Every other one on an edge, where cuts may be.
        const Face& face = mesh.faces[static_cast<std::size_t>(i) * 7];
        const Vec3d hub = to_double(mesh.corner_position(face, 0));
        const Vec3d rim = to_double(mesh.corner_position(face, 1));
        const Vec3d on_edge = hub + (rim - hub) * (static_cast<double>(i % 9) / (8 + i % 3));
        const double x = i % 2 == 0 ? on_edge.x : 55 * std::sin(0.7 * i * i);
        const double y = i % 2 == 0 ? on_edge.y : 55 * std::cos(1.3 * i);
        const auto place = [x](double edge_x) { return edge_x <= x ? 0U : 1U; };
        std::vector<double> expected;
        for (const Face& other : mesh.faces) {
            std::array<Vec3d, 3> p;
            for (std::size_t c = 0; c < 3; ++c) p[c] = to_double(mesh.corner_position(other, c));
            const RowSpan span = row_span(p, y, place);
            if (span.from == span.end) continue;
            expected.push_back(height_at(p, cross(p[1] - p[0], p[2] - p[0]), x, y));
        }
        std::vector<double> found;
        lines.visit_crossings(x, y, [&](const UprightLines::Crossing& crossing) {
            found.push_back(crossing.z);
            return false;
        });
        std::sort(expected.begin(), expected.end());
        std::sort(found.begin(), found.end());
        EXPECT_EQ(found, expected) << x << ' ' << y;
    }
}

TEST(Columns, HoldUpARealModel) {
    const char* folder = std::getenv("POVMESH_MODELS");
    if (folder == nullptr) GTEST_SKIP() << "POVMESH_MODELS names no folder with models";
    RunLog log;
    RunContext run{{}, log};
    TriMesh mesh;
    ASSERT_TRUE(read_stl(std::string(folder) + "/benchy.stl", run, mesh).ok());
    const Array<Column> columns = columns_of(mesh, {kSpacing, 45, 0});
    EXPECT_GT(columns.size(), 20U);
    std::size_t bad = 0;
    for (const Column& column : columns) {
        const TriMesh around = near(mesh, column);
        const Stand stand = stand_of(around, column);
        if (stand.held < 0.05 || stand.angle > 46 || !stand.is_free) ++bad;
    }
    EXPECT_EQ(bad, 0U) << columns.size();
    ASSERT_TRUE(read_stl(std::string(folder) + "/cat.stl", run, mesh).ok());
    for (Vertex& v : mesh.vertices) v.z += 10.7111F;  // onto the plate
    EXPECT_LT(share_far_away(mesh, 45, columns_of(mesh, {}), 5.5, 1, 0.6), 0.03);
}

// A single voxel over the plate, so many layers above it, with a surface of this angle.
TEST(GapSearch, FollowsItsRules) {
    const struct {
        const char* what;
        std::int32_t layer;
        std::int8_t angle, threshold;
        std::vector<std::int32_t> below;  // layers of other voxels
        float upper, lower;               // 0, 0: no gap
    } cases[] = {
        {"over the plate", 9, 0, 0, {}, 8, -3},
        {"4.5 units over it", 5, 0, 45, {}, 4, -3},
        {"too near to it", 4, 0, 45, {}, 0, 0},
        {"too steep", 9, 46, 45, {}, 0, 0},
        {"a wall", 20, 80, 80, {}, 18, -3},
        {"a wall beyond the threshold", 20, 80, 79, {}, 0, 0},
        {"a threshold below 0 takes level ones", 9, 0, -5, {}, 8, -3},
        {"one above 90 is mirrored", 9, 60, 120, {}, 8, -3},
        {"and not only cut off", 9, 61, 120, {}, 0, 0},
        {"over a voxel", 20, 0, 45, {8}, 19, 8},
        {"a voxel 4 layers below", 20, 0, 45, {16}, 0, 0},
        {"a voxel 5 layers below: 4 empty ones", 20, 0, 45, {15}, 0, 0},
        {"a voxel 6 layers below", 20, 0, 45, {14}, 19, 14},
        {"a voxel 3 layers below", 20, 0, 45, {17}, 0, 0},
    };
    for (const auto& c : cases) {
        VoxelGrid grid({{3, 3, 1}, true}, {{-1, -1, 0}, {1, 1, 25}});
        grid.insert({0, 0, c.layer}, kWhite, c.angle);
        for (const std::int32_t layer : c.below) grid.insert({0, 0, layer});
        grid.for_each([&](const Voxel& voxel) { grid.set_flags(voxel.index, kSideFlags); });
        const GapGrid gaps = find_gaps(grid, c.threshold, 0);
        ASSERT_EQ(gaps.gaps.size(), c.upper == 0 ? 0U : 1U) << c.what;
        if (c.upper == 0) continue;
        EXPECT_EQ(gaps.at(0, 0)[0].upper, c.upper) << c.what;
        EXPECT_EQ(gaps.at(0, 0)[0].lower, c.lower) << c.what;
    }
}

TEST(Columns, MakeClosedTubes) {
    const Array<Column> columns = columns_of(shapes::mesh_of(letter_t()), {kSpacing, 45, 0});
    TriMesh tubes;
    add_tubes(tubes, columns, column_radius(kSpacing));
    EXPECT_EQ(tubes.faces.size(), 16 * columns.size());
    EXPECT_TRUE(reference::is_closed_manifold(tubes));
    double expected = 0;
    for (const Column& column : columns) {
        expected += std::pow(1.3 * std::numbers::sqrt2, 2) *
                    (double{column.top.z} - double{column.bottom.z} - 2 * 0.001 * 2 / 3);
    }
    EXPECT_NEAR(signed_volume(tubes), expected, 1e-4 * expected);
    add_tubes(tubes, columns, column_radius(0.4));  // no body
    EXPECT_EQ(tubes.faces.size(), 16 * columns.size());
}

TEST(Columns, DoNotBreakOnBadInput) {
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    constexpr double kInf = std::numeric_limits<double>::infinity();
    const TriMesh mesh = shapes::mesh_of(letter_t());
    for (const double spacing : {0.0, -3.0, 0.4, kNan, kInf, -kInf, 1e300, 1e-300}) {
        EXPECT_TRUE(columns_of(mesh, {spacing, 45, 0}).empty()) << spacing;
    }
    EXPECT_TRUE(columns_of(TriMesh{}, {}).empty());
    EXPECT_TRUE(columns_of(mesh, {kSpacing, 45, kNan}).empty());
    EXPECT_TRUE(columns_of(mesh, {kSpacing, kNan, 0}).empty());
    for (const double angle : {kNan, kInf, -kInf, 1e300, -1e300, 0.0, 90.0, 500.0}) {
        for (const double plate : {0.0, -1e300, 1e300, -1e9}) {
            (void)columns_of(mesh, {kSpacing, angle, plate});
        }
    }
    // A tower that would take gigabytes of voxels.
    RunLog log;
    RunContext run{{}, log};
    Array<Column> columns;
    const TriMesh tower = shapes::mesh_of(shapes::box({0, 0, 0}, {2000, 2000, 2600}));
    EXPECT_EQ(find_columns(tower, {}, run, columns).code(), StatusCode::TooLarge);
    SoupVector wild = letter_t();
    wild[0] = std::numeric_limits<float>::quiet_NaN();
    wild[100] = std::numeric_limits<float>::infinity();
    (void)columns_of(shapes::mesh_of(wild), {});
    // Along x and y: as many layers as fit the height would take their time.
    for (const float size : {1e37F, 1e-38F}) {
        SoupVector scaled = letter_t();
        for (std::size_t i = 0; i < scaled.size(); ++i) scaled[i] *= i % 3 == 2 ? 1 : size / 4;
        (void)columns_of(shapes::mesh_of(scaled), {});
        (void)columns_of(shapes::mesh_of(scaled), {double{size}, 45, 0});
    }
    // A hundred thousand faces around a point, its apex up and down.
    for (const float height : {20.0F, -20.0F}) {
        SoupVector fan = shapes::fan(100000, height);
        shapes::move(fan, {0, 0, 30});
        (void)columns_of(shapes::mesh_of(fan), {200, 45, 0});
    }
}

TEST(Columns, AreTheSameWithAnyNumberOfThreads) {
    const TriMesh mesh = shapes::mesh_of(mushroom());
    const auto bytes = [](const Array<Column>& columns) {
        std::string text(columns.size() * sizeof(Column), ' ');
        std::memcpy(text.data(), columns.data(), text.size());
        return text;
    };
    const std::string many = bytes(columns_of(mesh, {}));
    const OneThread one;
    EXPECT_EQ(bytes(columns_of(mesh, {})), many);
}

}  // namespace
}  // namespace povmesh
