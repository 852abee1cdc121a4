// Packages between us and lib3mf, the reference library of the format: each reads what the other
// writes, mesh by mesh and colour by colour.
#include <gtest/gtest.h>

#include <Model/COM/NMR_DLLInterfaces.h>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include <array>
#include <bit>
#include <cmath>
#include <string>
#include <vector>

#include "helpers/shapes.h"
#include "io/file.h"
#include "io/three_mf.h"
#include "mesh/build_f.h"
#include "temporary_folder.h"

namespace povmesh {
namespace {

// A corner: three bit patterns and a colour.
using Corner = std::array<std::uint32_t, 4>;

struct PlainBody {
    std::string name;
    std::vector<Corner> corners;

    friend bool operator==(const PlainBody&, const PlainBody&) = default;
};

Corner corner_of(const float* p, std::uint32_t rgb) {
    return {std::bit_cast<std::uint32_t>(p[0]), std::bit_cast<std::uint32_t>(p[1]),
            std::bit_cast<std::uint32_t>(p[2]), rgb};
}

std::vector<PlainBody> bodies_of(const TriMesh& mesh, const ThreeMfContent& content) {
    std::vector<PlainBody> bodies;
    for (const std::string& name : content.bodies) bodies.push_back({name, {}});
    for (const Face& face : mesh.faces) {
        const std::size_t body =
            content.labels.empty() ? 0 : content.labels[static_cast<std::size_t>(face.label)].body;
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3f p = mesh.corner_position(face, c);
            const float position[3] = {p.x, p.y, p.z};
            const std::uint8_t* const rgb = face.colour.data() + 3 * c;
            bodies[body].corners.push_back(corner_of(
                position, static_cast<std::uint32_t>(rgb[0] << 16 | rgb[1] << 8 | rgb[2])));
        }
    }
    return bodies;
}

void expect_ok(LIB3MFRESULT result) {
    EXPECT_EQ(result, 0);
}

std::vector<PlainBody> read_by_peer(const std::string& path) {
#ifdef __SANITIZE_ADDRESS__
    const __lsan::ScopedDisabler leaks_of_its_own;  // a few bytes for each part of a package
#endif
    NMR::PLib3MFModel* model = nullptr;
    NMR::PLib3MFModelReader* reader = nullptr;
    expect_ok(NMR::lib3mf_createmodel(&model));
    expect_ok(NMR::lib3mf_model_queryreader(model, "3mf", &reader));
    expect_ok(NMR::lib3mf_reader_setstrictmodeactive(reader, 1));
    expect_ok(NMR::lib3mf_reader_readfromfileutf8(reader, path.c_str()));
    DWORD warnings = 0;
    expect_ok(NMR::lib3mf_reader_getwarningcount(reader, &warnings));
    EXPECT_EQ(warnings, 0U);
    NMR::PLib3MFModelBuildItemIterator* items = nullptr;
    expect_ok(NMR::lib3mf_model_getbuilditems(model, &items));
    std::vector<PlainBody> bodies;
    BOOL has_next = 0;
    while (NMR::lib3mf_builditemiterator_movenext(items, &has_next) == 0 && has_next != 0) {
        NMR::PLib3MFModelBuildItem* item = nullptr;
        NMR::PLib3MFModelObjectResource* object = nullptr;
        expect_ok(NMR::lib3mf_builditemiterator_getcurrent(items, &item));
        expect_ok(NMR::lib3mf_builditem_getobjectresource(item, &object));
        std::array<char, 100> name{};
        ULONG needed = 0;
        expect_ok(NMR::lib3mf_object_getnameutf8(object, name.data(), name.size(), &needed));
        PlainBody& body = bodies.emplace_back();
        body.name = name.data();
        DWORD count = 0;
        expect_ok(NMR::lib3mf_meshobject_gettrianglecount(object, &count));
        NMR::PLib3MFPropertyHandler* properties = nullptr;
        expect_ok(NMR::lib3mf_meshobject_createpropertyhandler(object, &properties));
        for (DWORD t = 0; t < count; ++t) {
            NMR::MODELMESHTRIANGLE triangle{};
            NMR::MODELMESH_TRIANGLECOLOR_SRGB colour{};
            expect_ok(NMR::lib3mf_meshobject_gettriangle(object, t, &triangle));
            expect_ok(NMR::lib3mf_propertyhandler_getcolor(properties, t, &colour));
            for (std::size_t c = 0; c < 3; ++c) {
                NMR::MODELMESHVERTEX vertex{};
                expect_ok(
                    NMR::lib3mf_meshobject_getvertex(object, triangle.m_nIndices[c], &vertex));
                const auto& rgb = colour.m_Colors[c];
                body.corners.push_back(corner_of(
                    vertex.m_fPosition,
                    static_cast<std::uint32_t>(rgb.m_Red << 16 | rgb.m_Green << 8 | rgb.m_Blue)));
            }
        }
        NMR::lib3mf_release(properties);
        NMR::lib3mf_release(object);
        NMR::lib3mf_release(item);
    }
    NMR::lib3mf_release(items);
    NMR::lib3mf_release(reader);
    NMR::lib3mf_release(model);
    return bodies;
}

void write_by_peer(const std::vector<PlainBody>& bodies, const std::string& path) {
    NMR::PLib3MFModel* model = nullptr;
    NMR::PLib3MFModelWriter* writer = nullptr;
    expect_ok(NMR::lib3mf_createmodel(&model));
    for (const PlainBody& body : bodies) {
        NMR::PLib3MFModelMeshObject* object = nullptr;
        NMR::PLib3MFPropertyHandler* properties = nullptr;
        NMR::PLib3MFModelBuildItem* item = nullptr;
        expect_ok(NMR::lib3mf_model_addmeshobject(model, &object));
        expect_ok(NMR::lib3mf_object_setnameutf8(object, body.name.c_str()));
        for (const Corner& corner : body.corners) {
            NMR::MODELMESHVERTEX vertex{};
            for (std::size_t i = 0; i < 3; ++i) {
                vertex.m_fPosition[i] = std::bit_cast<float>(corner[i]);
            }
            expect_ok(NMR::lib3mf_meshobject_addvertex(object, &vertex, nullptr));
        }
        for (DWORD i = 0; i < body.corners.size(); i += 3) {
            NMR::MODELMESHTRIANGLE triangle{{i, i + 1, i + 2}};
            expect_ok(NMR::lib3mf_meshobject_addtriangle(object, &triangle, nullptr));
        }
        NMR::PLib3MFDefaultPropertyHandler* white = nullptr;
        expect_ok(NMR::lib3mf_object_createdefaultpropertyhandler(object, &white));
        expect_ok(NMR::lib3mf_defaultpropertyhandler_setcolorrgb(white, 255, 255, 255));
        NMR::lib3mf_release(white);
        expect_ok(NMR::lib3mf_meshobject_createpropertyhandler(object, &properties));
        for (DWORD i = 0; i < body.corners.size(); i += 3) {
            NMR::MODELMESH_TRIANGLECOLOR_SRGB colour{};
            for (std::size_t c = 0; c < 3; ++c) {
                const std::uint32_t rgb = body.corners[i + c][3];
                colour.m_Colors[c] = {static_cast<BYTE>(rgb >> 16), static_cast<BYTE>(rgb >> 8),
                                      static_cast<BYTE>(rgb), 255};
            }
            expect_ok(NMR::lib3mf_propertyhandler_setgradientcolor(properties, i / 3, &colour));
        }
        expect_ok(NMR::lib3mf_model_addbuilditem(model, object, nullptr, &item));
        NMR::lib3mf_release(properties);
        NMR::lib3mf_release(object);
        NMR::lib3mf_release(item);
    }
    expect_ok(NMR::lib3mf_model_querywriter(model, "3mf", &writer));
    const int written = NMR::lib3mf_writer_writetofileutf8(writer, path.c_str());
    DWORD code = 0;
    LPCSTR message = nullptr;
    if (written != 0) (void)NMR::lib3mf_getlasterror(writer, &code, &message);
    EXPECT_EQ(written, 0) << code << ' ' << (message == nullptr ? "" : message);
    NMR::lib3mf_release(writer);
    NMR::lib3mf_release(model);
}

TEST(ThreeMfPeer, ReadsWhatWeWriteAndWeWhatItWrites) {
    const TemporaryFolder folder;
    shapes::Random random(9);
    shapes::SoupVector soup = shapes::rock(50, 3);
    for (float& x : soup) x = std::round(x * 2) / 2;  // it writes no more than about seven digits
    const std::size_t count = soup.size() / 9;
    std::vector<float> rgb(count * 9);
    for (float& c : rgb) c = static_cast<float>(random.below(4)) / 3;
    std::vector<std::int32_t> labels(count);
    for (std::size_t i = 0; i < count; ++i) labels[i] = i % 3 == 0 ? 0 : 1;
    TriMesh mesh;
    build_f(mesh, Soup{count, soup.data(), rgb.data(), nullptr, labels.data()});
    ThreeMfContent content;
    content.bodies = {"left & right", "\xC3\xA4"};
    content.labels = {{0, -1}, {1, -1}};
    const std::vector<PlainBody> bodies = bodies_of(mesh, content);

    ReplacementFile file;
    ASSERT_TRUE(file.open(folder / "ours.3mf", false).ok());
    ASSERT_TRUE(write_three_mf(mesh, content, {}, "ours.3mf", file).ok());
    EXPECT_TRUE(read_by_peer(folder / "ours.3mf") == bodies);

    write_by_peer(bodies, folder / "theirs.3mf");
    InputFile theirs;
    ASSERT_TRUE(theirs.open(folder / "theirs.3mf").ok());
    TriMesh back;
    ThreeMfContent back_content;
    ThreeMfInfo info;
    const Status status = read_three_mf(bytes_of(theirs), "theirs.3mf", back, back_content, info);
    ASSERT_TRUE(status.ok()) << status.text();
    EXPECT_TRUE(bodies_of(back, back_content) == bodies);
    EXPECT_TRUE(info.warnings.empty());
}

}  // namespace
}  // namespace povmesh
