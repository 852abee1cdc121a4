// Subdivision against closed forms, hand-worked cases and a slow version of the same rules.
#include "remesh/subdivide.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>
#include <set>
#include <utility>
#include <vector>

#include "helpers/reference.h"
#include "helpers/shapes.h"
#include "mesh/compact.h"
#include "mesh/edge_mates.h"
#include "mesh/volume.h"

namespace povmesh {
namespace {

using shapes::Random;

constexpr SubdivideMode kModes[] = {SubdivideMode::Uniform, SubdivideMode::Adaptive,
                                    SubdivideMode::Smooth};

bool holds(const Face& face, std::int32_t a, std::int32_t b) {
    return reference::holds_edge(face, a, b);
}

double longer_than(const TriMesh& mesh) {
    double sum = 0;
    double squares = 0;
    for (const Face& face : mesh.faces) {
        double of_face = 0;
        double squares_of_face = 0;
        for (std::size_t c = 0; c < 3; ++c) {
            const double l = static_cast<double>(
                length(mesh.corner_position(face, (c + 1) % 3) - mesh.corner_position(face, c)));
            of_face += l;
            squares_of_face += l * l;
        }
        sum += of_face;
        squares += squares_of_face;
    }
    const double mean = sum / (3.0 * static_cast<double>(mesh.faces.size()));
    const double square = squares / (3.0 * static_cast<double>(mesh.faces.size()));
    return std::sqrt(square - mean * mean) / mean > 0.35 ? mean * 0.8 : mean;
}

Vec3f moved(const TriMesh& mesh, std::int32_t v) {
    std::set<std::int32_t> odd;
    Vec3f sum;
    int n = 0;
    const auto toggle = [&](std::int32_t other) {
        if (!odd.insert(other).second) odd.erase(other);
    };
    for (const Face& face : mesh.faces) {
        for (std::size_t c = 0; c < 3; ++c) {
            if (face.deleted != 0 || face.vertex[c] != v) continue;
            toggle(face.vertex[(c + 1) % 3]);
            toggle(face.vertex[(c + 2) % 3]);
            sum = sum + mesh.corner_position(face, (c + 1) % 3);
            ++n;
        }
    }
    const Vec3f p = mesh.vertices[static_cast<std::size_t>(v)].position();
    if (n == 0 || !odd.empty()) return p;
    const double root = 0.375 + 0.25 * std::cos(2 * std::numbers::pi / n);
    const auto w = static_cast<float>((0.625 - root * root) / n);
    return p * (1.0F - static_cast<float>(n) * w) + sum * w;
}

// A level, edge by edge and face by face, with the plainest containers.
void subdivide_slowly(TriMesh& mesh, SubdivideMode mode) {
    std::vector<Vec3f> places;
    for (const Vertex& v : mesh.vertices) places.push_back(moved(mesh, v.index));
    const std::size_t old_vertices = places.size();
    const std::size_t old_faces = mode == SubdivideMode::Smooth ? 0 : mesh.faces.size();
    const double threshold = mode == SubdivideMode::Adaptive ? longer_than(mesh) : 0;
    const auto is_split = [&](Vec3f a, Vec3f b) {
        return mode == SubdivideMode::Uniform || static_cast<double>(length(b - a)) > threshold;
    };
    std::map<std::pair<std::int32_t, std::int32_t>, std::int32_t> edges;
    std::vector<std::array<std::array<std::int32_t, 3>, 2>> middles;  // vertices, records
    for (std::size_t f = 0; f < old_faces; ++f) {
        const Face face = mesh.faces[f];
        auto& [vertices, records] = middles.emplace_back();
        vertices.fill(-1);
        records.fill(-1);
        for (std::size_t c = 0; c < 3 && face.deleted == 0; ++c) {
            const std::int32_t a = face.vertex[c];
            const std::int32_t b = face.vertex[(c + 1) % 3];
            const Vec3f pa = mesh.corner_position(face, c);
            const Vec3f pb = mesh.corner_position(face, (c + 1) % 3);
            if (!is_split(pa, pb)) continue;
            const auto count = static_cast<std::int32_t>(mesh.vertices.size());
            const auto [edge, is_new] = edges.insert({std::minmax({a, b}), count});
            vertices[c] = edge->second;
            if (face.label >= 0 && face.uv[0] >= 0) {
                const auto& uv = mesh.texture_coordinates;
                const TextureCoordinate from = uv[static_cast<std::size_t>(face.uv[c])];
                const TextureCoordinate to = uv[static_cast<std::size_t>(face.uv[(c + 1) % 3])];
                records[c] = static_cast<std::int32_t>(uv.size());
                mesh.texture_coordinates.push_back(
                    {(from.u + to.u) * 0.5, (from.v + to.v) * 0.5, records[c]});
            }
            if (!is_new) continue;
            Vec3f p = (pa + pb) * 0.5F;
            for (std::size_t g = 0; g < old_faces; ++g) {
                const Face& other = mesh.faces[g];
                if (g == f || other.deleted != 0 || !holds(other, a, b)) continue;
                std::size_t far = 0;
                while (other.vertex[far] == a || other.vertex[far] == b) ++far;
                p = (pa + pb) * 0.375F +
                    (mesh.corner_position(face, (c + 2) % 3) + mesh.corner_position(other, far)) *
                        0.125F;
                break;
            }
            mesh.vertices.push_back({p.x, p.y, p.z, count});
            places.push_back(p);
        }
    }
    for (std::size_t f = 0; f < old_faces; ++f) {
        const Face old = mesh.faces[f];
        // A corner number, or 3 more for the middle behind it.
        const auto add = [&](std::initializer_list<std::size_t> corners) {
            Face face{{}, 0, old.label, {}, {}};
            std::size_t i = 0;
            for (const std::size_t from : corners) {
                const std::size_t c = from % 3;
                face.vertex[i] = from < 3 ? old.vertex[c] : middles[f][0][c];
                face.uv[i] = from < 3 ? old.uv[c] : middles[f][1][c];
                for (std::size_t k = 0; k < 3; ++k) {
                    const double here = old.colour[3 * c + k];
                    const double next = old.colour[3 * ((c + 1) % 3) + k];
                    face.colour[3 * i + k] =
                        static_cast<std::uint8_t>(from < 3 ? here : (here + next) * 0.5);
                }
                ++i;
            }
            mesh.faces.push_back(face);
        };
        const auto place = [&](std::size_t from) {
            return to_double(places[static_cast<std::size_t>(from < 3 ? old.vertex[from]
                                                                      : middles[f][0][from - 3])]);
        };
        const auto split = [&](std::size_t c) { return middles[f][0][c] >= 0; };
        if (split(0) || split(1) || split(2)) mesh.faces[f].deleted = 1;
        if (split(0) && split(1) && split(2)) {
            for (auto corners : {std::array{0U, 3U, 5U}, {1U, 4U, 3U}, {2U, 5U, 4U}}) {
                add({corners[0], corners[1], corners[2]});
            }
            add({3, 4, 5});
            continue;
        }
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t n = (c + 1) % 3;
            const std::size_t p = (c + 2) % 3;
            if (split(c) && split(p)) {
                add({c, c + 3, p + 3});
                const Vec3d a = place(p) - place(c + 3);
                const Vec3d b = place(p + 3) - place(n);
                if (dot(b, b) < dot(a, a)) {
                    add({n, p, p + 3});
                    add({n, p + 3, c + 3});
                } else {
                    add({c + 3, n, p});
                    add({c + 3, p, p + 3});
                }
            } else if (split(c) && !split(n)) {
                add({c, c + 3, p});
                add({c + 3, n, p});
            }
        }
    }
    for (std::size_t v = 0; v < old_vertices; ++v) {
        Vertex& vertex = mesh.vertices[v];
        vertex = {places[v].x, places[v].y, places[v].z, vertex.index};
    }
}

// Faces of few points, so that edges have no other face, one, or several; every other mesh is
// textured, and some faces are deleted.
TriMesh random_mesh(Random& random) {
    std::vector<float> coordinates;
    std::vector<float> colours;
    std::vector<float> uv;
    std::vector<std::int32_t> labels;
    const std::size_t count = 1 + random.below(60);
    for (std::size_t i = 0; i < count * 9; ++i) {
        coordinates.push_back(static_cast<float>(random.below(i % 3 == 2 ? 3 : 2)));
        colours.push_back(static_cast<float>(random.unit()));
    }
    for (std::size_t i = 0; i < count * 6; ++i) uv.push_back(static_cast<float>(random.unit()));
    for (std::size_t i = 0; i < count; ++i) {
        labels.push_back(static_cast<std::int32_t>(random.below(3)) - 1);
    }
    TriMesh mesh;
    build_f(mesh, Soup{count, coordinates.data(), colours.data(),
                       random.below(2) == 0 ? uv.data() : nullptr, labels.data()});
    for (Face& face : mesh.faces) face.deleted = random.below(10) == 0 ? 1 : 0;
    return mesh;
}

TEST(Subdivide, AgreesWithTheSlowVersionBitByBit) {
    Random random(71);
    std::size_t most_at_one_edge = 0;
    for (int round = 0; round < 300; ++round) {
        const TriMesh source = random_mesh(random);
        for (const SubdivideMode mode : kModes) {
            TriMesh quick = source;
            TriMesh slow = source;
            subdivide(quick, mode);
            subdivide_slowly(slow, mode);
            ASSERT_EQ(reference::difference(slow, quick), "") << "round " << round;
            ASSERT_TRUE(is_consistent(quick));
        }
        TriMesh copy = source;
        const EdgeMates mates(copy);
        for (std::size_t g = 0; g < mates.group_count(); ++g) {
            most_at_one_edge = std::max(most_at_one_edge, mates.group(g).size());
        }
    }
    EXPECT_GE(most_at_one_edge, 5U);  // the meshes are as wild as they should be
}

TEST(Subdivide, KeepsWhatIsClosedAndManifold) {
    TriMesh mesh = shapes::mesh_of(shapes::rock(10, 5));  // enough faces for several threads
    const std::size_t count = mesh.faces.size();
    for (const SubdivideMode mode : {SubdivideMode::Adaptive, SubdivideMode::Uniform}) {
        const std::size_t before = mesh.faces.size();
        subdivide(mesh, mode);
        compact(mesh);
        EXPECT_EQ(mesh.vertices.size(), mesh.faces.size() / 2 + 2);
        EXPECT_GT(mesh.faces.size(), before + count);
        EXPECT_TRUE(mode == SubdivideMode::Adaptive || mesh.faces.size() == 4 * before);
        const EdgeMates mates(mesh);
        for (std::size_t h = 0; h < 3 * mesh.faces.size(); ++h) {
            ASSERT_EQ(mates.kind(h / 3, h % 3), EdgeMates::Kind::Manifold);
        }
    }
}

TEST(Subdivide, TakesNoLongerPerFaceAtACrowdedVertex) {
    TriMesh mesh = shapes::mesh_of(shapes::fan(100'000, 8));
    subdivide(mesh, SubdivideMode::Uniform);
    EXPECT_EQ(mesh.faces.size(), 500'000U);
    EXPECT_EQ(mesh.vertices.size(), 100'001U + 200'000U);
    // The rim lies at height 0, so of the apex only its own share is left.
    const auto top = std::max_element(mesh.vertices.begin(), mesh.vertices.begin() + 100'001,
                                      [](const Vertex& a, const Vertex& b) { return a.z < b.z; });
    EXPECT_NEAR(top->z, 8 * (1 - 0.625 + 0.390625), 1e-4);
}

TEST(Subdivide, PlacesVerticesOfRegularSolidsAsTheClosedFormHasThem) {
    const Vec3f axes[] = {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}};
    shapes::SoupVector octahedron;
    for (std::size_t i = 0; i < 8; ++i) {
        const std::size_t turn = (i ^ i >> 1 ^ i >> 2) & 1;  // outward in every octant
        for (std::size_t k : {std::size_t{0}, 1 + turn, 2 - turn}) {
            const Vec3f p = axes[2 * k + (i >> k & 1)];
            shapes::append(octahedron, {{p.x, p.y, p.z}});
        }
    }
    const double phi = std::numbers::phi;
    const double w5 = (0.625 - std::pow(0.375 + 0.25 * (phi - 1) / 2, 2)) / 5;
    struct Case {
        shapes::SoupVector soup;
        double corner, middle;  // distances from the centre
    };
    for (const Case& c : {Case{octahedron, 0.515625, 0.375 * std::numbers::sqrt2},
                          // Five neighbours sum up to the square root of 5 times the vertex.
                          Case{shapes::sphere(1, 0), 1 + (std::sqrt(5.0) - 5) * w5,
                               (0.75 * phi + 0.25) / std::sqrt(phi + 2)}}) {
        TriMesh mesh = shapes::mesh_of(c.soup);
        const std::size_t corners = mesh.vertices.size();
        subdivide(mesh, SubdivideMode::Uniform);
        ASSERT_EQ(mesh.vertices.size(), corners + mesh.faces.size() / 5 * 3 / 2);
        for (std::size_t v = 0; v < mesh.vertices.size(); ++v) {
            EXPECT_NEAR(length(to_double(mesh.vertices[v].position())),
                        v < corners ? c.corner : c.middle, 2e-7);
        }
        compact(mesh);
        EXPECT_GT(volume(mesh), 0);  // the winding stays outward
    }
    TriMesh whole = shapes::mesh_of(octahedron);  // no edge is longer than the mean
    subdivide(whole, SubdivideMode::Adaptive);
    EXPECT_EQ(whole.faces.size(), 8U);
    EXPECT_FLOAT_EQ(whole.vertices[0].x, 0.515625F);
}

// Right triangles of whole lengths, each apart.
TEST(Subdivide, SplitsOnlyEdgesLongerThanTheThreshold) {
    struct Case {
        std::vector<float> scales;  // of 3, 4, 5
        std::vector<std::size_t> parts;
    };
    for (const Case& c : {Case{{1}, {2}},            // the mean, 4, stays whole, 5 does not
                          Case{{8, 17}, {1, 4}},     // 0.8 times 50 is 40 = 8 * 5, 17 * 3 is 51
                          Case{{8, 16.5F}, {2, 4}},  // below: 39.2
                          Case{{2, 3}, {1, 3}}}) {   // the mean, 10 = 2 * 5, and 9 stay whole
        shapes::SoupVector soup;
        std::vector<std::size_t> expected;
        for (std::size_t i = 0; i < c.scales.size(); ++i) {
            const float s = c.scales[i];
            const auto z = static_cast<float>(100 * i);
            shapes::append(soup, {{0, 0, z, 4 * s, 0, z, 0, 3 * s, z}});
        }
        TriMesh mesh = shapes::mesh_of(soup);
        subdivide(mesh, SubdivideMode::Adaptive);
        std::vector<std::size_t> parts(c.parts.size());
        double area = 0;
        double whole = 0;
        for (const float s : c.scales) whole += 6.0 * s * s;
        for (const Face& face : mesh.faces) {
            if (face.deleted != 0) continue;
            const Vec3f a = mesh.corner_position(face, 0);
            const Vec3f normal =
                cross(mesh.corner_position(face, 1) - a, mesh.corner_position(face, 2) - a);
            area += normal.z / 2;
            ++parts[static_cast<std::size_t>(a.z / 100)];
        }
        EXPECT_EQ(parts, c.parts) << c.scales.back();
        EXPECT_NEAR(area, whole, 1e-9 * whole);  // all corners are at borders: nothing moves
    }
}

TEST(Subdivide, WithstandsRecordsThatNameNothingAndNumbersThatAreNone) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    for (const float odd : {std::nanf(""), kInfinity, 3e38F, -3e38F, 1e-45F}) {
        for (const SubdivideMode mode : kModes) {
            shapes::SoupVector soup = shapes::box({0, 0, 0}, {1, 2, 3});
            for (std::size_t i = 0; i < soup.size(); i += 7) soup[i] = odd;
            TriMesh mesh = shapes::mesh_of(soup);
            const std::size_t count = mesh.faces.size();
            mesh.faces.push_back({{}, 0, 3, {0, 99, 1}, {7, 7, 7}});
            mesh.faces.push_back({{}, 0, -1, {2, 1, 2}, {-1, -1, -1}});
            mesh.faces.push_back({{}, 0, -1, {0, -5, 1}, {-1, -1, -1}});
            subdivide(mesh, mode);
            EXPECT_EQ(mesh.faces[count].vertex[1], 99);
            EXPECT_EQ(mesh.faces[count].deleted | mesh.faces[count + 1].deleted, 0);
            EXPECT_TRUE(mode != SubdivideMode::Uniform || mesh.faces.size() == 5 * count + 3);
        }
    }
    TriMesh empty;
    subdivide(empty, SubdivideMode::Adaptive);
    EXPECT_TRUE(empty.faces.empty());
}

}  // namespace
}  // namespace povmesh
