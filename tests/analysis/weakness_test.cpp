// Weak places of models of several shells.
#include "analysis/weakness.h"

#include <gtest/gtest.h>

#include "analysis/section_shapes.h"
#include "mesh/shells.h"

namespace povmesh {
namespace {

using shapes::SoupVector;

std::vector<WeakSection> weakness_of(const SoupVector& soup, SectionMode mode) {
    TriMesh mesh = shapes::mesh_of(soup);
    label_shells(mesh);
    RunLog log;
    RunContext run{{}, log};
    return detect_weakness(mesh, mode, run);
}

// 70 high; the plane at 34.5 or its like is the weakest.
SoupVector spool(double size, Vec3d by) {
    const std::vector<Point2d> profile = {{20, 0}, {20, 20}, {6, 32}, {6, 38}, {20, 50}, {20, 70}};
    return shapes::placed(shapes::lathe(profile, 40), [&](Vec3d p) { return p * size + by; });
}

TEST(Weakness, ScoresNoShellByItself) {
    SoupVector soup = spool(1, {});
    shapes::append(soup, spool(4, {200, 0, 100}));
    shapes::append(soup, shapes::box({-90, -30, 0}, {-30, 30, 150}));
    const auto sections = weakness_of(soup, SectionMode::LocalMinima);
    ASSERT_EQ(sections.size(), 2U);
    EXPECT_EQ(sections[0].score, 100);  // four times as large: a quarter of the strength
    EXPECT_NEAR(sections[1].score, 25, 1.5);
    EXPECT_NEAR(sections[0].centre.x, 200, 1e-3);
    EXPECT_NEAR(sections[0].position, 100 + 4 * 35, 10);
    EXPECT_NEAR(sections[1].position, 35, 4);
}

TEST(Weakness, TakesNoCavityForABody) {
    const SoupVector core = shapes::lathe({{3, 10}, {3, 60}}, 24);
    for (const SoupVector& cavity : {core, shapes::turned(core)}) {  // however it is wound
        SoupVector soup = spool(1, {});
        shapes::append(soup, cavity);
        const auto sections = weakness_of(soup, SectionMode::All);
        for (const WeakSection& s : sections) {
            const bool meets_core = s.axis == 2 ? s.position > 10 && s.position < 60
                                                : s.position > -3 && s.position < 3;
            EXPECT_EQ(s.holes.size(), meets_core ? 1U : 0U) << s.axis << ' ' << s.position;
        }
        EXPECT_GT(sections.size(), 150U);
    }
}

TEST(Weakness, IsNotJudgedOnAReductionThatStrays) {
    const auto halved = [](TriMesh& mesh) { mesh.vertices[0].z += 5; };  // any change
    TriMesh few = shapes::mesh_of(spool(1, {}));
    EXPECT_FALSE(reduce_for_weakness(few, halved));
    TriMesh many = shapes::mesh_of(shapes::sphere(50, 6));
    ASSERT_GT(many.faces.size(), kReducedFaces);
    const TriMesh before = many;
    EXPECT_FALSE(reduce_for_weakness(many, halved));
    EXPECT_EQ(many.vertices[0].z, before.vertices[0].z);
    EXPECT_TRUE(reduce_for_weakness(many, [](TriMesh& mesh) { mesh.vertices[0].z += 0.01F; }));
    EXPECT_NE(many.vertices[0].z, before.vertices[0].z);
}

TEST(Weakness, SurvivesNothing) {
    EXPECT_TRUE(weakness_of({}, SectionMode::All).empty());
    EXPECT_TRUE(weakness_of({1, 1, 1, 2, 2, 2, 3, 3, 3}, SectionMode::All).empty());
}

}  // namespace
}  // namespace povmesh
