#include "io/three_mf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "base/job_state.h"
#include "helpers/memory_sink.h"
#include "helpers/shapes.h"
#include "io/zip_package.h"
#include "mesh/build_f.h"
#include "mesh/volume.h"

namespace povmesh {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

struct Read {
    TriMesh mesh;
    ThreeMfContent content;
    ThreeMfInfo info;
    Status status;
};

Read read(const std::string& bytes) {
    Read result;
    result.status = read_three_mf(bytes_of(std::span<const char>(bytes)), "part.3mf", result.mesh,
                                  result.content, result.info);
    return result;
}

std::string package(const std::string& model) {
    PackageWriter writer;
    writer.add("3D/3dmodel.model", model);
    MemorySink sink;
    EXPECT_TRUE(writer.finish(sink, "part.3mf").ok());
    return sink.bytes;
}

std::string written(const TriMesh& mesh, const ThreeMfContent& content) {
    MemorySink sink;
    EXPECT_TRUE(write_three_mf(mesh, content, {}, "part.3mf", sink).ok());
    return sink.bytes;
}

const std::string kVertices =
    "<mesh><vertices><vertex x=\"0\" y=\"0\" z=\"0\"/><vertex x=\"3\" y=\"0\" z=\"0\"/>"
    "<vertex x=\"0\" y=\"3\" z=\"0\"/><vertex x=\"0\" y=\"0\" z=\"3\"/></vertices><triangles>";
const std::string kTriangles =
    "<triangle v1=\"0\" v2=\"2\" v3=\"1\"/><triangle v1=\"0\" v2=\"1\" v3=\"3\"/>"
    "<triangle v1=\"0\" v2=\"3\" v3=\"2\"/><triangle v1=\"1\" v2=\"2\" v3=\"3\"/>";
const std::string kEnd = "</triangles></mesh></object>";
const std::string kBody = kVertices + kTriangles + kEnd;  // a corner of a cube: volume 4.5

// The text of a model with these resources and items, around which everything is sound.
std::string model(const std::string& resources, const std::string& items,
                  const std::string& unit = "millimeter") {
    return "<?xml version=\"1.0\"?><model unit=\"" + unit +
           "\" xmlns=\"http://schemas.microsoft.com/3dmanufacturing/core/2015/02\" "
           "xmlns:m=\"http://schemas.microsoft.com/3dmanufacturing/material/2015/02\" "
           "xmlns:p=\"http://schemas.microsoft.com/3dmanufacturing/production/2015/06\" "
           "xmlns:b=\"http://schemas.microsoft.com/3dmanufacturing/beamlattice/2017/02\">"
           "<metadata name=\"Title\">A &amp; B</metadata><resources>" +
           resources + "</resources><build>" + items + "</build></model>";
}
const std::string kItem = "<item objectid=\"1\"/>";

// Corner by corner what a file can hold, in face order.
using Corner = std::array<std::uint64_t, 7>;
std::vector<Corner> corners_of(const TriMesh& mesh) {
    std::vector<Corner> corners;
    for (const Face& face : mesh.faces) {
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3f p = mesh.corner_position(face, c);
            Corner corner = {std::bit_cast<std::uint32_t>(p.x), std::bit_cast<std::uint32_t>(p.y),
                             std::bit_cast<std::uint32_t>(p.z),
                             std::uint64_t{face.colour[3 * c]} << 16 |
                                 std::uint64_t{face.colour[3 * c + 1]} << 8 |
                                 face.colour[3 * c + 2],
                             static_cast<std::uint64_t>(face.label)};
            if (face.uv[c] >= 0) {
                const auto& t = mesh.texture_coordinates[static_cast<std::size_t>(face.uv[c])];
                corner[5] = std::bit_cast<std::uint64_t>(t.u);
                corner[6] = std::bit_cast<std::uint64_t>(t.v);
            }
            corners.push_back(corner);
        }
    }
    return corners;
}

TEST(ThreeMf, BringsBackEveryBitWithBodiesColoursAndTextures) {
    shapes::Random random(6);
    const shapes::SoupVector soup = shapes::rock(50, 3);
    const std::size_t count = soup.size() / 9;
    std::vector<float> rgb(count * 9);
    std::vector<float> uv(count * 6);
    std::vector<std::int32_t> labels(count);
    for (float& c : rgb) c = static_cast<float>(random.below(4)) / 3;
    for (float& c : uv) c = static_cast<float>(random.below(9)) / 7;
    for (std::size_t i = 0; i < count; ++i) labels[i] = i < count / 2 ? 0 : 1 + (i % 2 == 1);
    ThreeMfContent content;
    content.bodies = {"left <\"&>", "\xC3\xA4"};
    content.labels = {{0, -1}, {1, -1}, {1, 0}};
    content.textures.push_back({"/3D/Textures/a.png", "image/png", {'p', 'n', 'g'}});
    content.metadata = {{"Title", "a < b"}};
    TriMesh mesh;
    build_f(mesh, Soup{count, soup.data(), rgb.data(), uv.data(), labels.data()});
    for (Face& face : mesh.faces) {  // only the third label has a texture, and no colour beside it
        if (face.label == 2) face.colour.fill(255);
        if (face.label != 2) face.uv.fill(-1);
    }
    const std::string bytes = written(mesh, content);
    const Read back = read(bytes);
    ASSERT_TRUE(back.status.ok()) << back.status.text();
    EXPECT_EQ(corners_of(back.mesh), corners_of(mesh));
    EXPECT_EQ(back.content.bodies, content.bodies);
    EXPECT_EQ(back.content.metadata, content.metadata);
    ASSERT_EQ(back.content.textures.size(), 1U);
    EXPECT_EQ(back.content.textures[0].content, content.textures[0].content);
    EXPECT_TRUE(back.info.warnings.empty());
    EXPECT_EQ(written(mesh, content), bytes);

    for (const char* path : {"/3D/3dmodel.model", "", "/x.y/../z"}) {  // no places for a texture
        content.textures[0].path = path;
        const Read moved = read(written(mesh, content));
        EXPECT_EQ(corners_of(moved.mesh), corners_of(mesh)) << moved.status.text();
        ASSERT_EQ(moved.content.textures.size(), 1U);
        EXPECT_EQ(moved.content.textures[0].content, content.textures[0].content) << path;
    }

    mesh.faces[0].label = -1;  // a face of no body
    EXPECT_THAT(read(written(mesh, content)).content.bodies, ElementsAre(content.bodies[0]));
    // Without colours, bodies and textures: as a host's soup.
    build_f(mesh, Soup{count, soup.data()});
    EXPECT_EQ(corners_of(read(written(mesh, {})).mesh), corners_of(mesh));
}

TEST(ThreeMf, PlacesConvertsAndMirrors) {
    const std::string parts = "<object id=\"1\" name=\"corner\">" + kBody +
                              "<object id=\"2\" name=\"pair\"><components>"
                              "<component objectid=\"1\"/>"
                              "<component objectid=\"1\" transform=\"-1 0 0 0 2 0 0 0 1 9 8 7\"/>"
                              "</components></object>";
    const Read result = read(package(model(
        parts, "<item objectid=\"2\" transform=\"1 0 0 0 1 0 0 0 1 1 0 0\"/>" + kItem, "inch")));
    ASSERT_TRUE(result.status.ok()) << result.status.text();
    EXPECT_THAT(result.content.bodies, ElementsAre("corner", "corner", "corner"));
    EXPECT_THAT(result.info.warnings, Contains(HasSubstr("in inch converted to millimetres")));
    EXPECT_THAT(result.content.metadata, ElementsAre(std::pair("Title", "A & B")));
    ASSERT_EQ(result.mesh.faces.size(), 12U);
    const Vec3f moved = result.mesh.corner_position(result.mesh.faces[4], 1);
    EXPECT_FLOAT_EQ(moved.x, 10 * 25.4F);
    EXPECT_FLOAT_EQ(moved.y, 8 * 25.4F);
    TriMesh mesh = result.mesh;
    EXPECT_NEAR(signed_volume(mesh), 4.5 * (1 + 2 + 1) * 25.4 * 25.4 * 25.4, 1)
        << "a mirrored body is still the right side out";
}

TEST(ThreeMf, UnusualTextSaysTheSame) {
    const std::string resources =
        "<m:colorgroup id=\"7\"><m:color color=\"#102030\"/>"
        "<m:color color=\"#FF800080\"/></m:colorgroup>"
        "<object id=\"1\" pid=\"7\" pindex=\"1\">" +
        kVertices +
        "<triangle v1=\"0\" v2=\"2\" v3=\"1\" pid=\"7\" p1=\"0\" p2=\"1\" "
        "p3=\"0\"/><triangle v1=\"0\" v2=\"1\" v3=\"3\" p1=\"0\"/>"
        "<triangle v1=\"1\" v2=\"2\" v3=\"3\"/>" +
        kEnd;
    const std::string plain = model(resources, kItem);
    const Read usual = read(package(plain));
    ASSERT_TRUE(usual.status.ok()) << usual.status.text();
    EXPECT_EQ(usual.mesh.faces[0].colour,
              (std::array<std::uint8_t, 9>{16, 32, 48, 255, 128, 0, 16, 32, 48}));
    EXPECT_EQ(usual.mesh.faces[1].colour[3], 16);
    EXPECT_EQ(usual.mesh.faces[2].colour[3], 255) << "that of the object";
    const auto replaced = [&](const std::string& from, const std::string& to) {
        std::string text = plain;
        for (std::size_t i = 0; (i = text.find(from, i)) != std::string::npos; i += to.size()) {
            text.replace(i, from.size(), to);
        }
        EXPECT_NE(text, plain);
        return text;
    };
    for (const std::string& text :
         {replaced("<vertices>", "<vertices><!-- > <vertex x=\"9\" y=\"9\" z=\"9\"/> -->"),
          replaced("x=\"3\"", "x='3'"), replaced("\"3\"", "\"&#51;\""), replaced("\" z", "\"\n\tz"),
          replaced("v1=\"0\" v2=\"2\"", "v2=\"2\" v1=\" 0 \""),
          replaced("<triangles>", "<triangles><?what > ?>")}) {
        const Read other = read(package(text));
        EXPECT_TRUE(other.status.ok()) << other.status.text() << text;
        EXPECT_EQ(corners_of(other.mesh), corners_of(usual.mesh)) << text;
    }
}

TEST(ThreeMf, WhatIsDamagedOrABombIsAnErrorWithItsPlace) {
    const std::string object = "<object id=\"1\">" + kBody;
    std::string doubling = object;
    for (int i = 2; i < 40; ++i) {
        const std::string part = "<component objectid=\"" + std::to_string(i - 1) + "\"/>";
        doubling.append("<object id=\"").append(std::to_string(i)).append("\"><components>");
        doubling.append(part).append(part).append("</components></object>");
    }
    std::string deep = object;
    for (int i = 2; i < 200; ++i) {
        deep += "<object id=\"" + std::to_string(i) + "\"><components><component objectid=\"" +
                std::to_string(i - 1) + "\"/></components></object>";
    }
    std::string nested;
    for (int i = 0; i < 200; ++i) nested += "<x>";
    const auto with = [&](const std::string& from, const std::string& to) {
        std::string text = object;
        return model(text.replace(text.find(from), from.size(), to), kItem);
    };
    const std::pair<std::string, std::string> cases[] = {
        {model(doubling, "<item objectid=\"39\"/>"), "no print is made of so many"},
        {model(deep, "<item objectid=\"199\"/>"), "more than 100 deep"},
        {model("<object id=\"1\"><components><component objectid=\"2\"/></components></object>"
               "<object id=\"2\"><components><component objectid=\"1\"/></components></object>",
               kItem),
         "is a component of itself"},
        {model(nested, ""), "100 elements within each other"},
        {"<!DOCTYPE x [<!ENTITY a \"b\">]>" + model(object, kItem), "document type"},
        {model(object, "<item objectid=\"8\"/>"), "object 8 is placed, but it is not there"},
        {model(object, ""), "build plate holds no triangle (objects in it: 1)"},
        {model(object, kItem, "mile"), "unit \"mile\" is none of"},
        {with("v3=\"1\"", "v3=\"4\""), "names vertex 4; object 1 has 4"},
        {with("v3=\"1\"", "v3=\"-1\""), "attribute v3=\"-1\""},
        {with("x=\"3\"", "x=\"3,5\""), "attribute x=\"3,5\""},
        {with("y=\"3\"", ""), "missing"},
        {with("v3=\"1\"", "v3=\"1\" pid=\"9\" p1=\"0\""), "property group 9"},
        {with("</vertices>", ""), "damaged XML: mismatched tag"},
        {"<svg/>", "is no 3MF model: begins with \"svg\""},
        {"", "truncated"},
    };
    for (const auto& [text, message] : cases) {
        const Read result = read(package(text));
        EXPECT_EQ(result.status.code(), StatusCode::BadFile) << message;
        EXPECT_THAT(result.status.text(), HasSubstr("part.3mf: ")) << message;
        EXPECT_THAT(result.status.text(), HasSubstr(message));
    }
    const std::string at = "byte " + std::to_string(with("x", "x").find("<triangle v1")) + ":";
    EXPECT_THAT(read(package(with("v3=\"1\"", "v3=\"4\""))).status.text(), HasSubstr(at));
    const std::string zeros(std::size_t{80} << 20, ' ');
    EXPECT_THAT(read(package(zeros)).status.text(), HasSubstr("100 times its packed size"));
    EXPECT_THAT(read("PK no package").status.text(), HasSubstr("no 3MF package"));
    PackageWriter many;
    for (int i = 0; i < 10001; ++i) many.add(std::to_string(i), std::string());
    MemorySink sink;
    ASSERT_TRUE(many.finish(sink, "part.3mf").ok());
    EXPECT_THAT(read(sink.bytes).status.text(), HasSubstr("holds 10001 files"));
}

// libzip keeps the whole package until it is written, with memory of its own.
TEST(ThreeMf, ACallIsChargedForThePackageThatWaits) {
    struct LookingSink final : ByteSink {
        explicit LookingSink(const JobState& call) : job(call) {}
        Status write(std::span<const char> piece) override {
            bytes += static_cast<std::int64_t>(piece.size());
            held = std::max(held, job.held_bytes());
            return {};
        }
        Status commit() override { return {}; }
        const JobState& job;
        std::int64_t bytes = 0;
        std::int64_t held = 0;
    };
    shapes::Random random(9);
    JobSettings settings;
    settings.has_own_workers = false;
    JobState job(settings);
    {
        const JobScope scope(&job);
        LookingSink sink(job);
        PackageWriter writer;
        writer.add("3D/3dmodel.model", 1, [&](std::size_t, Array<char>& text) {
            text.resize(1 << 20);
            for (char& c : text) c = static_cast<char>(random.next());
        });
        ASSERT_TRUE(writer.finish(sink, "part.3mf").ok());
        EXPECT_GT(sink.bytes, 1 << 20);
        EXPECT_GE(sink.held, 1 << 20);
    }
    EXPECT_EQ(job.held_bytes(), 0);
}

// Models are packed in parts that go to several threads.
TEST(ThreeMf, LargeModelsComeBackAndAreTheSameBytesOnAnyNumberOfThreads) {
    shapes::Random random(8);
    shapes::SoupVector soup;
    for (int i = 0; i < 60000; ++i) {
        const float x = static_cast<float>(i % 400);
        const int row = i / 400;
        const float y = static_cast<float>(row);
        const auto near = [&] { return 0.3F * static_cast<float>(random.unit()); };
        soup.insert(soup.end(), {x, y, near(), x + 0.5F, y, near(), x, y + 0.5F, near()});
    }
    TriMesh mesh;
    build_f(mesh, Soup{soup.size() / 9, soup.data()});
    const int threads = omp_get_max_threads();
    omp_set_num_threads(1);
    const std::string alone = written(mesh, {});
    omp_set_num_threads(3);
    EXPECT_EQ(written(mesh, {}), alone);
    omp_set_num_threads(threads);
    EXPECT_EQ(corners_of(read(alone).mesh), corners_of(mesh));
}

TEST(ThreeMf, PartsThatAreNotReadAreNamed) {
    const std::string object =
        "<object id=\"1\">" + kVertices + kTriangles +
        "</triangles><b:beamlattice><b:beams/></b:beamlattice></mesh></object>";
    const Read result =
        read(package(model(object, kItem + "<item objectid=\"4\" p:path=\"/3D/b.model\"/>")));
    ASSERT_TRUE(result.status.ok()) << result.status.text();
    EXPECT_THAT(result.info.warnings, Contains(HasSubstr("beamlattice")));
    EXPECT_THAT(result.info.warnings, Contains(HasSubstr("extension production")));
    EXPECT_EQ(result.mesh.faces.size(), 4U);
    const Read nothing = read(package(model("", "<item objectid=\"4\" p:path=\"/3D/b.model\"/>")));
    EXPECT_THAT(nothing.status.text(), HasSubstr("extension production"));
}

TEST(ThreeMf, EveryShorterPackageIsAnErrorAndNoneACrash) {
    const std::string whole = package(model("<object id=\"1\">" + kBody, kItem));
    EXPECT_TRUE(read(whole).status.ok());
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_EQ(read(whole.substr(0, size)).status.code(), StatusCode::BadFile) << size;
    }
    const std::string text = model("<object id=\"1\">" + kBody, kItem);
    for (std::size_t size = 0; size < text.size(); ++size) {
        EXPECT_EQ(read(package(text.substr(0, size))).status.code(), StatusCode::BadFile) << size;
    }
}

}  // namespace
}  // namespace povmesh
