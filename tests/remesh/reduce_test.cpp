// Both reductions: targets, what stops them, and what they must not change.
#include "remesh/reduce.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "helpers/job.h"
#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "mesh/bounds.h"
#include "mesh/compact.h"
#include "mesh/edge_mates.h"
#include "mesh/shells.h"
#include "mesh/volume.h"
#include "remesh/checked_reduce.h"
#include "remesh/collapse_queue.h"
#include "remesh/parallel_reduce.h"
#include "remesh/quadric.h"
#include "remesh/reduction_target.h"
#include "remesh/subdivide.h"
#include "spatial/self_intersection.h"
#include "spatial/surface_distance.h"

namespace povmesh {
namespace {

using shapes::mesh_of;
using shapes::SoupVector;

using Reduction = ReduceReport (*)(TriMesh&, double target);

ReduceReport by_queue(TriMesh& mesh, double target) {
    return reduce(mesh, {.keep = target, .least_keep = 0});
}

ReduceReport in_parallel(TriMesh& mesh, double target) {
    RunLog log;
    RunContext run{{}, log};
    return reduce_parallel(mesh, {target, 0.0}, run);
}

CheckedReduceReport checked(TriMesh& mesh, double keep) {
    RunLog log;
    RunContext run{{}, log};
    return reduce_checked(mesh, keep, run);
}

constexpr std::array<Reduction, 2> kReductions = {by_queue, in_parallel};

// A rectangle of 2 * n * n triangles in the plane through `origin`.
void append_grid(SoupVector& soup, Vec3f origin, Vec3f u, Vec3f v, int n) {
    const auto at = [&](int i, int j) {
        return origin + u * (static_cast<float>(i) / static_cast<float>(n)) +
               v * (static_cast<float>(j) / static_cast<float>(n));
    };
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            const std::array<Vec3f, 6> corners = {at(i, j), at(i + 1, j),     at(i + 1, j + 1),
                                                  at(i, j), at(i + 1, j + 1), at(i, j + 1)};
            for (const Vec3f p : corners) soup.insert(soup.end(), {p.x, p.y, p.z});
        }
    }
}

// The unit cube, each side a grid.
SoupVector fine_box(int n) {
    const Vec3f x{1, 0, 0};
    const Vec3f y{0, 1, 0};
    const Vec3f z{0, 0, 1};
    SoupVector soup;
    append_grid(soup, {0, 0, 0}, y, x, n);
    append_grid(soup, {0, 0, 1}, x, y, n);
    append_grid(soup, {0, 0, 0}, x, z, n);
    append_grid(soup, {0, 1, 0}, z, x, n);
    append_grid(soup, {0, 0, 0}, z, y, n);
    append_grid(soup, {1, 0, 0}, y, z, n);
    return soup;
}

// Two cones over one rim of `count` edges, closed.
SoupVector bipyramid(std::size_t count) {
    SoupVector soup = shapes::fan(count, 1000);
    shapes::append(soup, shapes::turned(shapes::fan(count, -1000)));
    return soup;
}

// The queue's reduction a second time, with the plainest containers and nothing left out: every
// face puts in all its edges, and the link condition is tested by sets.
class LiteralReduction {
public:
    LiteralReduction(TriMesh& mesh, const ReduceOptions& options)
        : mesh_(mesh), options_(options), faces_(mesh.vertices.size()) {
        label_shells(mesh);
        for (std::uint32_t f = 0; f < mesh.faces.size(); ++f) {
            for (const std::int32_t v : mesh.faces[f].vertex) at(v).push_back(f);
        }
        const Box3f box = finite_bounds(mesh);
        const Vec3d middle = (to_double(box.low) + to_double(box.high)) * 0.5;
        for (std::size_t v = 0; v < faces_.size(); ++v) {
            PositionQuadric sum;
            for (const std::uint32_t f : faces_[v]) {
                AttributedTriangle triangle{};
                for (std::size_t c = 0; c < 3; ++c) {
                    triangle.position[c] =
                        to_double(mesh.corner_position(mesh.faces[f], c)) - middle;
                }
                sum.add(triangle);
            }
            quadrics_.push_back(sum);
        }
        changed_.assign(faces_.size(), 0);
        middle_ = middle;
        for (std::size_t shell = 0; shell < mesh.shells.size(); ++shell) reduce(shell);
        compact(mesh);
    }

private:
    struct Entry {
        std::int32_t a, b;
        std::size_t number;
    };

    std::vector<std::uint32_t>& at(std::int32_t v) { return faces_[static_cast<std::size_t>(v)]; }
    Vec3f place(std::int32_t v) const {
        return mesh_.vertices[static_cast<std::size_t>(v)].position();
    }
    bool holds(std::uint32_t f, std::int32_t v) const {
        const auto& t = mesh_.faces[f].vertex;
        return std::find(t.begin(), t.end(), v) != t.end();
    }

    void push(std::int32_t a, std::int32_t b) {
        PositionQuadric sum = quadrics_[static_cast<std::size_t>(a)];
        sum += quadrics_[static_cast<std::size_t>(b)];
        const Vec3d p = (to_double(place(a)) - middle_ + to_double(place(b)) - middle_) * 0.5;
        queue_.insert({sum.at(p), {a, b, ++number_}});
    }

    void reduce(std::size_t shell) {
        const std::span<const std::uint32_t> faces = mesh_.shells[shell];
        const std::size_t wanted =
            faces_to_delete(faces.size(), options_.keep, options_.least_keep);
        for (const std::uint32_t f : faces) {
            const auto& t = mesh_.faces[f].vertex;
            for (std::size_t c = 0; c < 3; ++c) push(t[c], t[next_corner(c)]);
        }
        for (std::size_t gone = 0; gone < wanted && !queue_.empty();) {
            const Entry entry = queue_.begin()->second;
            queue_.erase(queue_.begin());
            const auto when = [&](std::int32_t v) { return changed_[static_cast<std::size_t>(v)]; };
            if (when(entry.a) > entry.number || when(entry.b) > entry.number) continue;
            if (may_go(entry.a, entry.b)) {
                collapse(entry.a, entry.b);
                gone += 2;
            }
        }
        queue_.clear();
    }

    Vec3f middle(std::int32_t a, std::int32_t b) const {
        const Vec3d p = (to_double(place(a)) + to_double(place(b))) * 0.5;
        return {static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)};
    }

    // The edges across from a vertex, and its neighbours.
    auto link(std::int32_t v) {
        std::pair<std::set<std::int32_t>, std::set<std::set<std::int32_t>>> link;
        for (const std::uint32_t f : at(v)) {
            std::set<std::int32_t> rest(mesh_.faces[f].vertex.begin(), mesh_.faces[f].vertex.end());
            rest.erase(v);
            link.first.insert(rest.begin(), rest.end());
            link.second.insert(rest);
        }
        return link;
    }

    bool may_go(std::int32_t a, std::int32_t b) {
        if (at(a).size() < 3 || at(b).size() < 3) return false;
        for (const std::int32_t v : {a, b}) {
            std::int32_t rim = 0;
            for (const std::uint32_t f : at(v)) {
                for (const std::int32_t w : mesh_.faces[f].vertex) rim ^= w == v ? 0 : w;
            }
            if (rim != 0) return false;
        }
        std::set<std::int32_t> opposite;
        std::size_t on_edge = 0;
        for (const std::uint32_t f : at(a)) {
            if (!holds(f, b)) continue;
            ++on_edge;
            for (const std::int32_t v : mesh_.faces[f].vertex) opposite.insert(v);
        }
        opposite.erase(a);
        opposite.erase(b);
        const auto of_a = link(a);
        const auto of_b = link(b);
        std::set<std::int32_t> common;
        for (const std::int32_t v : of_a.first) {
            if (of_b.first.count(v) != 0) common.insert(v);
        }
        if (on_edge != 2 || opposite.size() != 2 || common != opposite) return false;
        for (const std::set<std::int32_t>& edge : of_a.second) {
            if (of_b.second.count(edge) != 0) return false;
        }
        return !turns(a, b) && !turns(b, a);
    }

    bool turns(std::int32_t v, std::int32_t other) {
        for (const std::uint32_t f : at(v)) {
            if (holds(f, other) || options_.least_cosine <= -1) continue;
            std::array<Vec3d, 2> normals;
            for (const std::size_t moved : {0U, 1U}) {
                std::array<Vec3d, 3> p;
                for (std::size_t c = 0; c < 3; ++c) {
                    const std::int32_t w = mesh_.faces[f].vertex[c];
                    p[c] = to_double(moved == 1 && w == v ? middle(v, other) : place(w));
                }
                normals[moved] = cross(p[1] - p[0], p[2] - p[0]);
            }
            const double squares = dot(normals[0], normals[0]) * dot(normals[1], normals[1]);
            const double cosine = dot(normals[0], normals[1]) / std::sqrt(squares);
            const bool loses_area = squares == 0 && dot(normals[0], normals[0]) > 0;
            if (cosine < options_.least_cosine || loses_area) return true;
        }
        return false;
    }

    void collapse(std::int32_t a, std::int32_t b) {
        const Vec3f p = middle(a, b);
        Vertex& survivor = mesh_.vertices[static_cast<std::size_t>(a)];
        survivor = {p.x, p.y, p.z, survivor.index};
        quadrics_[static_cast<std::size_t>(a)] += quadrics_[static_cast<std::size_t>(b)];
        for (const std::uint32_t f : std::vector(at(b))) {
            Face& face = mesh_.faces[f];
            if (holds(f, a)) {
                face.deleted = 1;
                for (const std::int32_t v : face.vertex) std::erase(at(v), f);
                continue;
            }
            std::replace(face.vertex.begin(), face.vertex.end(), b, a);
            at(a).push_back(f);
        }
        at(b).clear();
        changed_[static_cast<std::size_t>(a)] = ++number_;
        changed_[static_cast<std::size_t>(b)] = std::numeric_limits<std::size_t>::max();
        for (const std::size_t step : {1U, 2U}) {
            for (const std::uint32_t f : at(a)) {
                const auto& t = mesh_.faces[f].vertex;
                const auto c =
                    static_cast<std::size_t>(std::find(t.begin(), t.end(), a) - t.begin());
                const std::int32_t other = t[(c + step) % 3];
                push(step == 1 ? a : other, step == 1 ? other : a);
            }
        }
    }

    TriMesh& mesh_;
    ReduceOptions options_;
    Vec3d middle_;
    std::vector<std::vector<std::uint32_t>> faces_;  // of each vertex
    std::vector<PositionQuadric> quadrics_;
    std::multimap<double, Entry> queue_;
    std::vector<std::size_t> changed_;
    std::size_t number_ = 0;
};

TEST(Reduce, AgreesWithTheLiteralVersionFaceForFace) {
    SoupVector sheet = shapes::rock(10, 3);
    sheet.resize(sheet.size() / 9 * 6);
    for (const SoupVector& soup : {shapes::rock(10, 3), shapes::rock(3, 2), sheet, bipyramid(9),
                                   shapes::shuffled(shapes::rock(7, 3), 5), fine_box(5)}) {
        for (const ReduceOptions& options :
             {ReduceOptions{0.5, 0, -1}, ReduceOptions{0.0, 0, -1}, ReduceOptions{0.1, 0, 0.9}}) {
            TriMesh quick = mesh_of(soup);
            TriMesh slow = quick;
            reduce(quick, options);
            const LiteralReduction literal(slow, options);
            EXPECT_EQ(reference::difference(slow, quick), "") << soup.size() << " " << options.keep;
        }
    }
}

std::multiset<std::array<float, 3>> open_positions(TriMesh mesh) {
    std::multiset<std::array<float, 3>> found;
    const EdgeMates mates(mesh);
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        for (std::size_t edge = 0; edge < 3; ++edge) {
            if (mates.kind(f, edge) != EdgeMates::Kind::Open) continue;
            const Vec3f p = mesh.corner_position(mesh.faces[f], edge);
            found.insert({p.x, p.y, p.z});
        }
    }
    return found;
}

TEST(Quadric, HasTheErrorsOfTheClosedForm) {
    // Three sides of a corner, each of area 1/2: the error is half the squared distances.
    const std::array<Vec3d, 4> p = {{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
    PositionQuadric corner;
    for (const auto& [i, j] : {std::pair{1, 2}, {2, 3}, {3, 1}}) {
        corner.add({{p[0], p[static_cast<std::size_t>(i)], p[static_cast<std::size_t>(j)]}, {}});
    }
    EXPECT_NEAR(corner.at({1, 2, 3}), 0.5 * (1 + 4 + 9), 1e-12);
    EXPECT_EQ(corner.at({0, 0, 0}), 0.0);

    // In the plane of a face, with the attributes that it has there, nothing is wrong; an
    // attribute that is off by d costs the area times d squared.
    AttributeQuadric face;
    face.add({{{{0, 0, 2}, {2, 0, 2}, {0, 2, 2}}}, {{{0, 1, 5}, {1, 1, 3}, {0, 0, 4}}}});
    EXPECT_NEAR(face.at({1, 3, 2}, {0.5, -0.5, 5 - 1 - 1.5}), 0.0, 1e-12);
    EXPECT_NEAR(face.at({1, 3, 2.5}, {0.75, -0.5, 2.5}), 2 * (0.25 + 0.0625), 1e-12);
}

TEST(CollapseQueue, GivesEntriesByCostAndThenByInsertion) {
    shapes::Random random(7);
    for (const std::size_t expected : {std::size_t{10}, std::size_t{100000}}) {
        CollapseQueue queue;
        queue.clear(expected);
        std::multimap<double, std::int32_t> literal;
        for (std::int32_t i = 0; i < 60000; ++i) {
            if (random.below(3) != 0) {
                const double cost = random.below(5) == 0 ? std::floor(8 * random.unit()) - 1
                                                         : std::exp(30 * random.unit() - 20);
                queue.push(cost, i, -i);
                literal.insert({cost, i});
                continue;
            }
            CollapseQueue::Entry entry{};
            const bool found = queue.pop(entry, [](const auto&) { return false; });
            ASSERT_EQ(found, !literal.empty());
            if (!found) continue;
            ASSERT_EQ(entry.a, literal.begin()->second);
            ASSERT_EQ(entry.cost, literal.begin()->first);
            literal.erase(literal.begin());
        }
        const double nan = std::numeric_limits<double>::quiet_NaN();
        queue.clear(expected);
        queue.push(nan, 1, 2);
        CollapseQueue::Entry entry{};
        EXPECT_FALSE(queue.pop(entry, [](const auto&) { return false; }));
    }
}

TEST(Reduce, AimsAtTheShareOfEachShell) {
    struct Row {
        std::size_t faces;
        double ratio, minimum;
        std::size_t deleted;
    };
    for (const Row& row : {Row{100000, -1, 0.05, 0},
                           {200000, -1, 0.05, 70000},
                           {1000, 0.5, 0.05, 500},
                           {1000, 0.01, 0.05, 950},
                           {1000, 0.999, 0.05, 0},
                           {1000, 0, 0, 1000},
                           {1000, std::nan(""), 0.05, 0},
                           {1000, -0.5, 0.05, 950}}) {
        EXPECT_EQ(faces_to_delete(row.faces, row.ratio, row.minimum), row.deleted) << row.ratio;
    }
    for (const Reduction reduction : kReductions) {
        SoupVector soup = shapes::rock(10, 4);    // 5,120 faces
        SoupVector small = shapes::sphere(3, 2);  // 320
        shapes::move(small, {50, 0, 0});
        shapes::append(soup, small);
        TriMesh mesh = mesh_of(soup);
        const double volume = signed_volume(mesh);
        const ReduceReport report = reduction(mesh, 0.25);
        EXPECT_TRUE(report.is_reached);
        EXPECT_EQ(report.faces_aimed, 1280U + 80U);
        EXPECT_EQ(mesh.faces.size(), 1280U + 80U);
        EXPECT_EQ(report.faces_after, mesh.faces.size());
        EXPECT_TRUE(reference::is_closed_manifold(mesh));
        EXPECT_NEAR(signed_volume(mesh) / volume, 1.0, 0.02);
    }
}

TEST(Reduce, NeverGoesBelowATetrahedronAndKeepsWhatIsSmall) {
    for (const Reduction reduction : kReductions) {
        for (const SoupVector& soup : {shapes::box({0, 0, 0}, {1, 2, 3}), shapes::sphere(1, 1),
                                       shapes::rock(5, 2), bipyramid(3), bipyramid(7)}) {
            TriMesh mesh = mesh_of(soup);
            reduction(mesh, 0.0);
            EXPECT_GE(mesh.faces.size(), 4U);
            EXPECT_TRUE(reference::is_closed_manifold(mesh));
        }
        TriMesh mesh = mesh_of(shapes::rock(5, 3));
        const TriMesh before = mesh;
        reduction(mesh, 0.999);
        EXPECT_EQ(reference::difference(mesh, before), "");
        reduction(mesh, -1);
        EXPECT_EQ(reference::difference(mesh, before), "");
        TriMesh none;
        EXPECT_EQ(reduction(none, 0.5).faces_after, 0U);
    }
}

TEST(Reduce, TurnsNoFaceOfABoxBeyondTheLimit) {
    TriMesh mesh = mesh_of(fine_box(8));
    const ReduceReport report = reduce(mesh, {.keep = 0, .least_keep = 0, .least_cosine = 0.985});
    // The corners stay, because a face at one would turn; what is flat goes.
    EXPECT_FALSE(report.is_reached);
    EXPECT_GT(report.normal_limit, 0U);
    EXPECT_LT(mesh.faces.size(), 100U);
    EXPECT_TRUE(reference::is_closed_manifold(mesh));
    EXPECT_NEAR(signed_volume(mesh), 1.0, 1e-6);
    for (const Face& face : mesh.faces) {
        const Vec3f p = mesh.corner_position(face, 0);
        const Vec3d normal =
            to_double(cross(mesh.corner_position(face, 1) - p, mesh.corner_position(face, 2) - p));
        const double largest =
            std::max({std::abs(normal.x), std::abs(normal.y), std::abs(normal.z)});
        EXPECT_GT(largest, 0.985 * length(normal));
    }
}

TEST(Reduce, LeavesRimsWhereTheyAre) {
    SoupVector sheet;
    append_grid(sheet, {0, 0, 0}, {3, 0, 0}, {0, 2, 1}, 12);
    SoupVector cup = shapes::sphere(10, 3);
    cup.resize(cup.size() / 3);
    for (const Reduction reduction : kReductions) {
        for (const SoupVector& soup : {sheet, cup}) {
            TriMesh mesh = mesh_of(soup);
            const auto rim = open_positions(mesh);
            const ReduceReport report = reduction(mesh, 0.0);
            EXPECT_EQ(open_positions(mesh), rim);
            EXPECT_FALSE(report.is_reached);
            EXPECT_LT(report.faces_after, report.faces_before * 3 / 4);
        }
    }
}

// The upper half red, the lower half blue.
void paint_halves(TriMesh& mesh) {
    for (Face& face : mesh.faces) {
        float z = 0;
        for (std::size_t c = 0; c < 3; ++c) z += mesh.corner_position(face, c).z;
        face.colour = z > 0 ? std::array<std::uint8_t, 9>{255, 0, 0, 255, 0, 0, 255, 0, 0}
                            : std::array<std::uint8_t, 9>{0, 0, 255, 0, 0, 255, 0, 0, 255};
    }
}

TEST(Reduce, KeepsColoursOnTheirSide) {
    for (const Reduction reduction : kReductions) {
        TriMesh mesh = mesh_of(shapes::sphere(10, 4));
        paint_halves(mesh);
        EXPECT_TRUE(reduction(mesh, 0.2).is_reached);
        EXPECT_EQ(mesh.faces.size(), 1024U);
        for (const Face& face : mesh.faces) {
            double z = 0;
            for (std::size_t c = 0; c < 3; ++c) {
                const auto* colour = &face.colour[3 * c];
                ASSERT_THAT((std::array{colour[0], colour[1], colour[2]}),
                            testing::AnyOf(testing::ElementsAre(255, 0, 0),
                                           testing::ElementsAre(0, 0, 255)));
                ASSERT_EQ(colour[0], face.colour[0]);
                z += static_cast<double>(mesh.corner_position(face, c).z) / 3;
            }
            // The border ran along edges of length 1.
            EXPECT_GT(face.colour[0] == 255 ? z : -z, -0.3);
        }
    }
}

TEST(Reduce, CarriesTextureCoordinatesAlong) {
    // Two labels with a map each, linear in the position, so that it is known everywhere.
    const auto map = [](std::int16_t label, Vec3f p) {
        const double sign = label == 0 ? 1 : -1;
        return std::pair{0.5 + sign * 0.04 * static_cast<double>(p.x),
                         0.5 + 0.03 * static_cast<double>(p.y)};
    };
    for (const Reduction reduction : kReductions) {
        TriMesh mesh = mesh_of(shapes::sphere(10, 4));
        for (Face& face : mesh.faces) {
            float x = 0;
            for (std::size_t c = 0; c < 3; ++c) x += mesh.corner_position(face, c).x;
            face.label = x > 0 ? 0 : 1;
            for (std::size_t c = 0; c < 3; ++c) {
                const auto [u, v] = map(face.label, mesh.corner_position(face, c));
                face.uv[c] = static_cast<std::int32_t>(mesh.texture_coordinates.size());
                mesh.texture_coordinates.push_back({u, v, face.uv[c]});
            }
        }
        reduction(mesh, 0.3);
        EXPECT_LT(mesh.faces.size(), 2000U);
        double near_seam = 0;
        double elsewhere = 0;
        for (const Face& face : mesh.faces) {
            for (std::size_t c = 0; c < 3; ++c) {
                const Vec3f p = mesh.corner_position(face, c);
                const auto [u, v] = map(face.label, p);
                const TextureCoordinate& t =
                    mesh.texture_coordinates[static_cast<std::size_t>(face.uv[c])];
                double& worst = std::abs(p.x) < 3 ? near_seam : elsewhere;
                worst = std::max({worst, std::abs(u - t.u), std::abs(v - t.v)});
            }
        }
        // Midpoints of a linear map are exact up to rounding. The queue also draws vertices of the
        // seam half an edge aside, where the far side keeps what it had. The parallel reduction
        // leaves the seam alone, but its best places lie off the edges.
        EXPECT_LT(elsewhere, reduction == by_queue ? 1e-6 : 0.01);
        EXPECT_LT(near_seam, reduction == by_queue ? 0.04 : 0.01);
    }
}

TEST(ReduceParallel, TurnsNothingOverAndStaysClose) {
    TriMesh mesh = mesh_of(shapes::rock(10, 5));
    const TriMesh before = mesh;
    Job job;
    const std::vector<std::string>& texts = job.events;
    const ReduceReport report = reduce_parallel(mesh, {0.1, 0.05}, job.run);
    EXPECT_EQ(mesh.faces.size(), 2048U);
    EXPECT_TRUE(mesh.use_table.is_built() && is_consistent(mesh) &&
                reference::is_closed_manifold(mesh));
    ASSERT_EQ(texts.size(), 2U);
    EXPECT_THAT(texts[0], testing::StartsWith("[meshReduceFromData] random reduce step = "));
    EXPECT_EQ(texts[1], "[meshReduceFromData] random reduced fn = " +
                            std::to_string(report.faces_before - 2048));
    // A hundredth of the radius; the queue with its midpoints comes to 0.05.
    EXPECT_LT(surface_distance(before, mesh).rms(), 0.03);
}

// A star-shaped plate; both sides are fans.
SoupVector star(int spikes) {
    SoupVector soup;
    const auto at = [&](int i, float z) {
        const float angle =
            static_cast<float>(i % (2 * spikes)) * 3.14159265F / static_cast<float>(spikes);
        const float radius = i % 2 == 0 ? 8.0F : 10.0F;
        return Vec3f{radius * std::cos(angle), radius * std::sin(angle), z};
    };
    for (int i = 0; i < 2 * spikes; ++i) {
        for (const Vec3f p :
             {Vec3f{0, 0, 0}, at(i + 1, 0), at(i, 0), Vec3f{0, 0, 3}, at(i, 3), at(i + 1, 3),
              at(i, 0), at(i + 1, 0), at(i + 1, 3), at(i, 0), at(i + 1, 3), at(i, 3)}) {
            soup.insert(soup.end(), {p.x, p.y, p.z});
        }
    }
    return soup;
}

TEST(ReduceParallel, GoesOnWhenAllEdgesOfARoundAreTurnedDown) {
    for (const double keep : {0.5, 0.1}) {
        TriMesh mesh = mesh_of(star(20));
        EXPECT_TRUE(in_parallel(mesh, keep).is_reached);
        EXPECT_EQ(mesh.faces.size(), static_cast<std::size_t>(160 * keep));
        EXPECT_TRUE(reference::is_closed_manifold(mesh));
    }
}

// How far the points of one mesh's borders are from the borders of another at most.
double border_distance(const TriMesh& from, const TriMesh& to) {
    double worst = 0;
    for (const auto& p : open_positions(from)) {
        double nearest = std::numeric_limits<double>::infinity();
        TriMesh copy = to;
        const EdgeMates mates(copy);
        for (std::size_t h = 0; h < 3 * copy.faces.size(); ++h) {
            if (mates.kind(h / 3, h % 3) != EdgeMates::Kind::Open) continue;
            const Face& face = copy.faces[h / 3];
            const Vec3d a = to_double(copy.corner_position(face, h % 3));
            const Vec3d b = to_double(copy.corner_position(face, next_corner(h % 3)));
            const Vec3d at{static_cast<double>(p[0]), static_cast<double>(p[1]),
                           static_cast<double>(p[2])};
            const double t = std::clamp(dot(at - a, b - a) / dot(b - a, b - a), 0.0, 1.0);
            nearest = std::min(nearest, length(a + (b - a) * t - at));
        }
        worst = std::max(worst, nearest);
    }
    return worst;
}

TEST(ReduceChecked, ThinsBordersAlongThemselves) {
    SoupVector sheet;
    append_grid(sheet, {0, 0, 0}, {3, 0, 0}, {0, 2, 1}, 12);
    SoupVector cup = shapes::sphere(10, 4);
    cup.resize(cup.size() / 90 * 9 * 7);
    for (const bool is_coloured : {false, true}) {
        TriMesh flat = mesh_of(sheet);
        if (is_coloured) flat.faces[0].colour[0] = 7;
        const TriMesh whole = flat;
        checked(flat, 0.1);
        EXPECT_LE(flat.faces.size(), 30U);
        // Corners are pulled in by 1e-4 of the edges there.
        EXPECT_LT(border_distance(whole, flat), 1e-3);
        EXPECT_TRUE(is_consistent(flat));

        TriMesh round = mesh_of(cup);
        if (is_coloured) paint_halves(round);
        const TriMesh source = round;
        const std::size_t edges = open_positions(source).size();
        EXPECT_TRUE(checked(round, 0.1).reduction.is_reached);
        EXPECT_LT(open_positions(round).size(), edges / 2);
        EXPECT_GE(open_positions(round).size(), 3U);
        EXPECT_LT(border_distance(source, round), 0.5);
        EXPECT_LT(surface_distance(source, round).rms(), 0.2);
    }
}

TEST(ReduceChecked, DoesNotJoinHolesOrLoseShells) {
    // Two holes with a bridge of one edge between them, and a triangle on its own.
    SoupVector soup = shapes::sphere(10, 3);
    for (const std::ptrdiff_t triangle : {40, 43}) {
        soup.erase(soup.begin() + 9 * triangle, soup.begin() + 9 * (triangle + 1));
    }
    shapes::append(soup, SoupVector{50, 0, 0, 51, 0, 0, 50, 1, 0});
    TriMesh mesh = mesh_of(soup);
    checked(mesh, 0.0);
    EXPECT_GE(mesh.faces.size(), 5U);
    label_shells(mesh);
    EXPECT_EQ(mesh.shells.size(), 2U);
    EXPECT_EQ(open_positions(mesh).size(), 3U + 6U);
}

TEST(ReduceChecked, KeepsACubeACube) {
    TriMesh mesh = mesh_of(shapes::box({0, 0, 0}, {1, 1, 1}));
    const CheckedReduceReport report = checked(mesh, 0.5);
    EXPECT_EQ(mesh.faces.size(), 12U);
    EXPECT_EQ(signed_volume(mesh), 1.0);
    EXPECT_FALSE(report.reduction.is_reached);
    EXPECT_GT(report.reduction.movement, 0U);
    // What is flat goes all the same.
    TriMesh fine = mesh_of(fine_box(8));
    EXPECT_TRUE(checked(fine, 0.05).reduction.is_reached);
    EXPECT_NEAR(signed_volume(fine), 1.0, 1e-3);
}

TEST(ReduceChecked, TakesBackWhatWouldCross) {
    // A ball with a thin wall: few faces on each side would pierce the other.
    SoupVector soup = shapes::sphere(10, 4);
    shapes::append(soup, shapes::shuffled(shapes::turned(shapes::sphere(9.8F, 4)), 3));
    TriMesh mesh = mesh_of(soup);
    TriMesh plain = mesh;
    in_parallel(plain, 0.02);
    ASSERT_NE(find_self_intersections(plain, 0).count, 0U);
    const CheckedReduceReport report = checked(mesh, 0.02);
    EXPECT_EQ(find_self_intersections(mesh, 0).count, 0U);
    EXPECT_TRUE(report.is_eased && !report.reduction.is_reached);
    EXPECT_LT(mesh.faces.size(), plain.faces.size() * 8);
    EXPECT_TRUE(reference::is_closed_manifold(mesh));
    // Where the model crosses itself already it may go on doing so.
    SoupVector balls = shapes::sphere(10, 3);
    SoupVector second = balls;
    shapes::move(second, {12, 1, 2});
    shapes::append(balls, second);
    TriMesh pair = mesh_of(balls);
    EXPECT_TRUE(checked(pair, 0.3).reduction.is_reached);
}

TEST(ReduceChecked, FindsWhatAResultHasAndItsModelHadNot) {
    TriMesh before = mesh_of(shapes::box({0, 0, 0}, {1, 1, 1}));
    SoupVector soup = shapes::box({0, 0, 0}, {1, 1, 1});
    soup.resize(soup.size() - 9);
    shapes::append(soup, SoupVector{0.2F, 0.2F, -1, 0.3F, 0.2F, 2, 0.2F, 0.3F, 2,  //
                                    5, 0, 0, 6, 0, 0, 5.5F, 1e-5F, 0});
    TriMesh after = mesh_of(soup);
    const NewFaults faults = find_new_faults(before, after);
    EXPECT_EQ(faults.open_edges.count, 3U + 3U + 3U);
    EXPECT_EQ(faults.slivers.count, 1U);
    EXPECT_EQ(faults.slivers.place.x, 5);
    EXPECT_EQ(faults.crossings.count, find_self_intersections(after, 0).count);
    EXPECT_GT(faults.crossings.count, 0U);
    EXPECT_EQ(find_new_faults(after, after).crossings.count, 0U);
    // A border of shorter edges is the same border.
    TriMesh fine = after;
    subdivide(fine, SubdivideMode::Uniform);
    EXPECT_EQ(find_new_faults(after, fine).open_edges.count, 0U);
}

TEST(ReduceParallel, IsTheSameForAnyNumberOfThreads) {
    SoupVector soup = shapes::rock(10, 6);  // large enough for all threads to share it
    for (int i = 1; i < 40; ++i) {
        SoupVector more = shapes::rock(1, 2);
        shapes::move(more, {20 + 3 * static_cast<float>(i), 0, 0});
        shapes::append(soup, more);
    }
    const int threads = omp_get_max_threads();
    for (const bool is_coloured : {false, true}) {
        TriMesh first;
        for (const int count : {1, 2, 5}) {
            omp_set_num_threads(count);
            TriMesh mesh = mesh_of(soup);
            if (is_coloured) paint_halves(mesh);
            checked(mesh, 0.2);
            if (count == 1) first = mesh;
            EXPECT_EQ(reference::difference(mesh, first), "") << count << " threads";
        }
    }
    omp_set_num_threads(threads);
}

TEST(Reduce, IsNotQuadraticAroundVerticesOfHighValence) {
    for (const Reduction reduction : kReductions) {
        for (const SoupVector& soup :
             {shapes::fan(100000, 500), bipyramid(100000), shapes::book(100000)}) {
            TriMesh mesh = mesh_of(soup);
            reduction(mesh, 0.1);
            EXPECT_TRUE(is_consistent(mesh));
        }
        TriMesh closed = mesh_of(bipyramid(20000));
        EXPECT_TRUE(reduction(closed, 0.1).is_reached);
        EXPECT_TRUE(reference::is_closed_manifold(closed));
    }
}

TEST(Reduce, SurvivesNumbersThatAreNotFinite) {
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const Reduction reduction : kReductions) {
        for (const float value : {inf, nan, 3e38F, -3e38F, 1e-42F}) {
            SoupVector soup = shapes::rock(10, 3);
            shapes::Random random(3);
            for (int i = 0; i < 20; ++i) soup[random.below(soup.size())] = value;
            TriMesh mesh = mesh_of(soup);
            reduction(mesh, 0.3);
            EXPECT_TRUE(is_consistent(mesh));
            TriMesh with_care = mesh_of(soup);
            checked(with_care, 0.3);
            EXPECT_TRUE(is_consistent(with_care));
        }
        // Tiny and huge models are reduced like any other.
        for (const float scale : {1e-18F, 1e12F}) {
            SoupVector soup = shapes::rock(1, 3);
            for (float& x : soup) x *= scale;
            TriMesh mesh = mesh_of(soup);
            EXPECT_TRUE(reduction(mesh, 0.3).is_reached) << scale;
        }
    }
}

}  // namespace
}  // namespace povmesh
