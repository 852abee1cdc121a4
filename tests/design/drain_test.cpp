#include "design/drain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <set>
#include <utility>
#include <vector>

#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "mesh/append_mesh.h"
#include "mesh/shells.h"
#include "mesh/volume.h"
#include "remesh/revise.h"
#include "spatial/self_intersection.h"

namespace povmesh {
namespace {

struct Shell {
    TriMesh mesh;
    std::size_t model_faces;
};

Shell shell_of(const shapes::SoupVector& model, const shapes::SoupVector& cavity) {
    Shell shell{shapes::mesh_of(model), 0};
    shell.model_faces = shell.mesh.faces.size();
    append_mesh(shell.mesh, shapes::mesh_of(cavity), AppendWinding::Reversed);
    return shell;
}

const shapes::SoupVector kBox = shapes::box({-30, -30, -30}, {30, 30, 30});
const shapes::SoupVector kSmallerBox = shapes::box({-27, -27, -27}, {27, 27, 27});

// Of the faces at the bottom of the box.
double bottom_area(const TriMesh& mesh) {
    TriMesh bottom = mesh;
    std::erase_if(bottom.faces, [&](const Face& face) {
        float high = -30;
        for (std::size_t i = 0; i < 3; ++i) {
            high = std::max(high, mesh.corner_position(face, i).z);
        }
        return high > -30;
    });
    return surface_area(bottom);
}

// How many handles a closed surface of one piece has.
int genus(const TriMesh& mesh) {
    std::set<std::int32_t> vertices;
    for (const Face& face : mesh.faces) vertices.insert(face.vertex.begin(), face.vertex.end());
    const auto faces = static_cast<int>(mesh.faces.size());
    return (2 - (static_cast<int>(vertices.size()) - faces * 3 / 2 + faces)) / 2;
}

TEST(Drains, AreClosedOrTakeTooMuch) {
    const Shell box = shell_of(kBox, kSmallerBox);
    const Shell ball = shell_of(shapes::sphere(30, 4), shapes::sphere(27, 3));
    struct Case {
        const Shell& shell;
        std::vector<Drain> drains;
        bool is_flat;
        double at_bottom;  // area taken there, in cross-sections of the first drain
    };
    const Case cases[] = {
        {box, {{{3, 4, -30}, 2}}, true, 1},
        {box, {{{0, 0, -31}, 1}, {{10, 0, -29}, 3}, {{-30, 0, 0}, 1.5}}, true, 10},
        {ball, {{{0, 0, -30}, 2}, {{0, 0, 30}, 2}}, false, 0},
        {ball, {{{17, 17, 18}, 4}, {{17, 19, 17}, 4}}, false, 0},  // one cuts into the other
    };
    for (const Case& test : cases) {
        TriMesh mesh = test.shell.mesh;
        const auto reports = cut_drains(mesh, test.shell.model_faces, 3, test.drains);
        double expected = 0;
        for (std::size_t i = 0; i < reports.size(); ++i) {
            ASSERT_EQ(reports[i].outcome, DrainOutcome::Done) << i;
            EXPECT_NEAR(reports[i].wall_depth, 3, 0.2);
            const double radius = test.drains[i].radius;
            expected += std::numbers::pi * radius * radius * reports[i].wall_depth;
        }
        EXPECT_TRUE(reference::is_closed_manifold(mesh));
        EXPECT_EQ(count_shapes(mesh).slivers, 0U);
        label_shells(mesh);
        EXPECT_EQ(mesh.shells.size(), 1U);
        const double taken = volume(test.shell.mesh) - volume(mesh);
        if (&test == &cases[3]) continue;
        EXPECT_EQ(genus(mesh), static_cast<int>(test.drains.size()) - 1);
        EXPECT_NEAR(taken / expected, 1, test.is_flat ? 0.01 : 0.1);
        if (!test.is_flat) continue;
        // A hole in a flat wall stands upright: it takes its own cross-section out of the bottom.
        const double radius = test.drains[0].radius;
        const double section = 16 * radius * radius * std::sin(std::numbers::pi / 16);
        EXPECT_NEAR(bottom_area(test.shell.mesh) - bottom_area(mesh), section * test.at_bottom,
                    0.01);
    }
}

// Across an outer edge, over a corner, and holes that touch along a line.
TEST(Drains, CrossTheSurfaceOrEachOther) {
    const Shell box = shell_of(kBox, kSmallerBox);
    const std::vector<std::vector<Drain>> cases = {{{{30, 0, -30}, 2}},
                                                   {{{29, 0, -30}, 2}},
                                                   {{{30, 30, -30}, 2}},
                                                   {{{0, 0, -30}, 2}, {{4, 0, -30}, 2}},
                                                   {{{0, 0, -30}, 2}, {{0, 4, -30}, 2}}};
    for (const std::vector<Drain>& drains : cases) {
        TriMesh mesh = box.mesh;
        EXPECT_EQ(sealed_cavities(mesh).count, 1U);
        for (const DrainReport& report : cut_drains(mesh, box.model_faces, 3, drains)) {
            EXPECT_EQ(report.outcome, DrainOutcome::Done);
            EXPECT_LT(report.wall_depth, 5.5);  // straight through a corner it is 5.2
        }
        EXPECT_TRUE(reference::is_closed_manifold(mesh));
        EXPECT_EQ(find_self_intersections(mesh, 0).count, 0U) << drains[0].place.x;
        EXPECT_EQ(sealed_cavities(mesh).count, 0U);
    }
}

TEST(Drains, FailWithoutAReasonOrChangeTheModel) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const Shell box = shell_of(kBox, kSmallerBox);
    shapes::SoupVector two = kBox;
    shapes::append(two, shapes::box({40, -30, -30}, {44, 30, 30}));
    const Shell thin = shell_of(two, kSmallerBox);
    const std::pair<const Shell&, std::pair<Drain, DrainOutcome>> cases[] = {
        {box, {{{0, 0, -36}, 2}, DrainOutcome::FarAway}},
        {box, {{{nan, 0, -30}, 2}, DrainOutcome::Invalid}},
        {box, {{{0, 0, -30}, -2}, DrainOutcome::Invalid}},
        {thin, {{{44, 0, 0}, 1}, DrainOutcome::NoCavity}},
    };
    for (const auto& [shell, what] : cases) {
        TriMesh mesh = shell.mesh;
        const auto reports = cut_drains(mesh, shell.model_faces, 3, {&what.first, 1});
        EXPECT_EQ(reports.at(0).outcome, what.second);
        EXPECT_EQ(reference::difference(mesh, shell.mesh), "");
    }
}

}  // namespace
}  // namespace povmesh
