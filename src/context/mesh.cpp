// Meshes and results: made of arrays of the caller, looked at where they lie, owned by counts.
#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>

#include "base/parallel.h"
#include "base/poll.h"
#include "context/rows.h"
#include "job/measures.h"
#include "mesh/build_f.h"

namespace povmesh::context {
namespace {

constexpr job::Phase kCreate[] = {{0, "taking over arrays"}};

struct Inputs {
    Rows positions, faces, colours, textures, labels;
    bool has_faces = false, has_colours = false, has_textures = false, has_labels = false;
    bool weld = false;
    std::size_t face_count = 0;
};

std::size_t vertex_at(const Inputs& in, std::size_t face, std::size_t corner) {
    return static_cast<std::size_t>(in.faces.whole(face, corner));
}

Inputs inputs_of(Call& call, const povmesh_mesh_data& data) {
    Inputs in;
    const auto add = [&](bool& has, Rows& rows, const povmesh_view& view, const char* name,
                         std::initializer_list<std::int32_t> types,
                         std::initializer_list<std::int32_t> components) {
        has = is_given(view);
        if (has) rows = Rows(call, view, name, types, components);
    };
    call.flag(data.weld, "weld");
    in.has_faces = is_given(data.faces);
    bool has_positions = false;
    add(has_positions, in.positions, data.positions, "positions", {POVMESH_F32, POVMESH_F64},
        {in.has_faces ? 3 : 9});
    call.require(has_positions, "positions", "must be given");
    add(in.has_faces, in.faces, data.faces, "faces",
        {POVMESH_I32, POVMESH_U32, POVMESH_I64, POVMESH_U64}, {3});
    add(in.has_colours, in.colours, data.colours, "colours", {POVMESH_U8, POVMESH_F32, POVMESH_F64},
        {9, 3});
    add(in.has_textures, in.textures, data.texture_coordinates, "texture_coordinates",
        {POVMESH_F32, POVMESH_F64}, {6});
    add(in.has_labels, in.labels, data.labels, "labels", {POVMESH_I16, POVMESH_I32}, {1});
    in.weld = data.weld != 0 || !in.has_faces;
    in.face_count = in.has_faces ? in.faces.count() : in.positions.count();
    if (in.face_count > kMaxFaceCount || in.positions.count() > 3 * kMaxFaceCount) {
        call.stop(POVMESH_TOO_LARGE, "more than 715,827,882 triangles; split the model");
    }
    if (in.has_colours) {
        const bool is_of_faces = in.colours.components() == 9;
        call.require(is_of_faces ? in.colours.count() == in.face_count
                                 : in.has_faces && in.colours.count() == in.positions.count(),
                     "colours", "must have a row for each face, or 3 numbers for each vertex");
    }
    call.require(!in.has_textures || in.textures.count() == in.face_count, "texture_coordinates",
                 "must have a row for each face");
    call.require(!in.has_labels || in.labels.count() == in.face_count, "labels",
                 "must have a row for each face");
    return in;
}

// Calls `visit(face, vertices)` for all faces at the same time. The usual types are told apart
// once, not for every number.
template <typename Visit>
void for_each_face(const Inputs& in, const Visit& visit) {
    if (in.faces.has(POVMESH_I32) || in.faces.has(POVMESH_U32)) {
        parallel_for(in.face_count, [&](std::size_t face) {
            const auto [a, b, c] = in.faces.three<std::uint32_t>(face);  // a negative one is huge
            visit(face, std::array<std::size_t, 3>{a, b, c});
        });
    } else {
        parallel_for(in.face_count, [&](std::size_t face) {
            visit(face, std::array{vertex_at(in, face, 0), vertex_at(in, face, 1),
                                   vertex_at(in, face, 2)});
        });
    }
}

// A mark for each block of a loop: whether something was met in it.
class BlockMarks {
public:
    explicit BlockMarks(std::size_t items)
        : marks_((items + kParallelBlock - 1) / kParallelBlock, 0) {}
    void set(std::size_t item) { marks_[item / kParallelBlock] = 1; }
    bool any() const { return std::find(marks_.begin(), marks_.end(), 1) != marks_.end(); }

private:
    Array<std::uint8_t> marks_;
};

bool is_beyond(const std::array<std::size_t, 3>& v, std::size_t vertices) {
    return std::max({v[0], v[1], v[2]}) >= vertices;
}

void expect_known(Call& call, const BlockMarks& unknown) {
    call.require(!unknown.any(), "faces", "name a vertex that is not there");
}

void expect_vertices(Call& call, const Inputs& in) {
    if (!in.has_faces) return;
    BlockMarks marks(in.face_count);
    for_each_face(in, [&](std::size_t face, const std::array<std::size_t, 3>& v) {
        if (is_beyond(v, in.positions.count())) marks.set(face);
    });
    expect_known(call, marks);
}

std::uint8_t colour_byte(const Inputs& in, std::size_t row, std::size_t component) {
    if (in.colours.has(POVMESH_U8)) return in.colours.byte(row, component);
    return static_cast<std::uint8_t>(in.colours.real(row, component) * 255);
}

void expect_colours(Call& call, const Inputs& in) {
    if (!in.has_colours || in.colours.has(POVMESH_U8)) return;
    BlockMarks marks(in.colours.count());
    parallel_for(in.colours.count(), [&](std::size_t row) {
        for (std::size_t i = 0; i < in.colours.components(); ++i) {
            const double value = in.colours.real(row, i);
            if (!(value >= 0 && value <= 1)) marks.set(row);
        }
    });
    call.require(!marks.any(), "colours", "must be from 0 to 1");
}

std::array<std::uint8_t, 9> colours_of(const Inputs& in, std::size_t face) {
    std::array<std::uint8_t, 9> colours;
    colours.fill(255);
    if (!in.has_colours) return colours;
    for (std::size_t i = 0; i < 9; ++i) {
        colours[i] = in.colours.components() == 9
                         ? colour_byte(in, face, i)
                         : colour_byte(in, vertex_at(in, face, i / 3), i % 3);
    }
    return colours;
}

// As a soup: corners of the same bits become one vertex, and all else follows.
TriMesh weld(Call& call, const Inputs& in) {
    expect_vertices(call, in);
    ByteSoup soup{.triangle_count = in.face_count};
    Array<float> coordinates(9 * in.face_count);
    parallel_for(in.face_count, [&](std::size_t face) {
        for (std::size_t i = 0; i < 9; ++i) {
            coordinates[9 * face + i] = in.has_faces
                                            ? in.positions.single(vertex_at(in, face, i / 3), i % 3)
                                            : in.positions.single(face, i);
        }
    });
    soup.coordinates = coordinates.data();
    Array<std::uint8_t> colours;
    if (in.has_colours) {
        colours.resize(9 * in.face_count);
        parallel_for(in.face_count, [&](std::size_t face) {
            const std::array<std::uint8_t, 9> own = colours_of(in, face);
            std::copy(own.begin(), own.end(),
                      colours.begin() + static_cast<std::ptrdiff_t>(9 * face));
        });
        soup.colours = colours.data();
    }
    Array<float> textures;
    if (in.has_textures) {
        textures.resize(6 * in.face_count);
        parallel_for(in.face_count, [&](std::size_t face) {
            for (std::size_t i = 0; i < 6; ++i)
                textures[6 * face + i] = in.textures.single(face, i);
        });
        soup.texture_coordinates = textures.data();
    }
    Array<std::int32_t> labels;
    if (in.has_labels) {
        labels.resize(in.face_count);
        parallel_for(in.face_count, [&](std::size_t face) {
            labels[face] = static_cast<std::int32_t>(in.labels.whole(face, 0));
        });
        soup.labels = labels.data();
    }
    TriMesh mesh;
    build_f(mesh, soup);
    return mesh;
}

bool has_equal(const std::array<std::size_t, 3>& v) {
    return v[0] == v[1] || v[1] == v[2] || v[2] == v[0];
}

Face bare_face() {
    Face face;
    face.colour.fill(255);
    face.deleted = 0;
    face.label = -1;
    face.uv.fill(-1);
    return face;
}

void set_vertices(Face& face, const std::array<std::size_t, 3>& v) {
    face.deleted = has_equal(v) ? 1 : 0;
    face.vertex = {static_cast<std::int32_t>(v[0]), static_cast<std::int32_t>(v[1]),
                   static_cast<std::int32_t>(v[2])};
}

// Faces of which nothing but the vertices is given, looked at as they are made and not in a pass of
// its own. Marks those with two equal vertices.
void take_bare_faces(Call& call, const Inputs& in, TriMesh& mesh, BlockMarks& leaves_out) {
    BlockMarks marks(in.face_count);
    const Face bare = bare_face();
    for_each_face(in, [&](std::size_t f, const std::array<std::size_t, 3>& v) {
        Face face = bare;
        set_vertices(face, v);
        mesh.faces[f] = face;
        if (face.deleted != 0) leaves_out.set(f);
        if (is_beyond(v, in.positions.count())) marks.set(f);
    });
    expect_known(call, marks);
}

void take_faces(const Inputs& in, TriMesh& mesh, BlockMarks& leaves_out) {
    for_each_face(in, [&](std::size_t f, const std::array<std::size_t, 3>& v) {
        Face face = bare_face();
        face.colour = colours_of(in, f);
        if (in.has_labels) face.label = static_cast<std::int16_t>(in.labels.whole(f, 0));
        set_vertices(face, v);
        mesh.faces[f] = face;
        if (face.deleted != 0) leaves_out.set(f);
    });
}

// Vertices and faces as they are, but for faces with two equal vertices.
TriMesh take_over(Call& call, const Inputs& in) {
    TriMesh mesh;
    mesh.vertices.resize(in.positions.count());
    if (in.positions.has(POVMESH_F32)) {
        parallel_for(mesh.vertices.size(), [&](std::size_t v) {
            const auto [x, y, z] = in.positions.three<float>(v);
            mesh.vertices[v] = {x, y, z, static_cast<std::int32_t>(v)};
        });
    } else {
        parallel_for(mesh.vertices.size(), [&](std::size_t v) {
            mesh.vertices[v] = {in.positions.single(v, 0), in.positions.single(v, 1),
                                in.positions.single(v, 2), static_cast<std::int32_t>(v)};
        });
    }
    mesh.faces.resize(in.face_count);
    BlockMarks leaves_out(in.face_count);
    if (in.has_colours || in.has_labels) {
        expect_vertices(call, in);
        take_faces(in, mesh, leaves_out);
    } else {
        take_bare_faces(call, in, mesh, leaves_out);
    }
    if (in.has_textures) {
        for (std::size_t f = 0; f < in.face_count; ++f) {
            poll_at(f);
            Face& face = mesh.faces[f];
            if (face.deleted != 0 || face.label < 0) continue;
            for (std::size_t corner = 0; corner < 3; ++corner) {
                const auto index = static_cast<std::int32_t>(mesh.texture_coordinates.size());
                face.uv[corner] = index;
                mesh.texture_coordinates.push_back(
                    {in.textures.real(f, 2 * corner), in.textures.real(f, 2 * corner + 1), index});
            }
        }
    }
    if (leaves_out.any()) {
        Poller poller;
        std::erase_if(mesh.faces, [&](const Face& face) {
            poller();
            return face.deleted != 0;
        });
    }
    return mesh;
}

povmesh_view view_of(const void* data, std::size_t count, std::size_t stride, std::int32_t type,
                     std::int32_t components) {
    return {count != 0 ? data : nullptr, count, stride, type, components};
}

}  // namespace
}  // namespace povmesh::context

using namespace povmesh;
using namespace povmesh::context;

povmesh_status povmesh_mesh_create(povmesh_context* context, const povmesh_mesh_data* data,
                                   povmesh_mesh** mesh) {
    return run(context, [&](Call& call) {
        call.given(mesh, "mesh");
        call.given(data, "data");
        const Inputs in = inputs_of(call, call.options(data, povmesh_mesh_data{}));
        (void)call.progress(0, 1, kCreate);
        expect_colours(call, in);
        auto made =
            hand_on(in.weld ? weld(call, in) : take_over(call, in), std::make_shared<Origin>());
        *mesh = made.release();
    });
}

void povmesh_mesh_retain(const povmesh_mesh* mesh) {
    if (mesh != nullptr) mesh->owners.fetch_add(1, std::memory_order_relaxed);
}

void povmesh_mesh_release(const povmesh_mesh* mesh) {
    if (mesh != nullptr && mesh->owners.fetch_sub(1, std::memory_order_acq_rel) == 1) delete mesh;
}

povmesh_status povmesh_mesh_view(const povmesh_mesh* mesh, int32_t array, povmesh_view* view) {
    if (mesh == nullptr || view == nullptr) return POVMESH_INVALID_ARGUMENT;
    const TriMesh& m = mesh->mesh;
    const Face* const face = m.faces.data();
    const auto of_faces = [&](const void* first, std::int32_t type, std::int32_t components) {
        *view = view_of(first, m.faces.size(), sizeof(Face), type, components);
        return POVMESH_OK;
    };
    // The address of a member of the first face, when there is one.
    const auto at = [&](std::size_t offset) -> const void* {
        return face != nullptr ? reinterpret_cast<const char*>(face) + offset : nullptr;
    };
    switch (array) {
        case POVMESH_POSITIONS:
            *view = view_of(m.vertices.data(), m.vertices.size(), sizeof(Vertex), POVMESH_F32, 3);
            return POVMESH_OK;
        case POVMESH_FACES:
            return of_faces(at(offsetof(Face, vertex)), POVMESH_I32, 3);
        case POVMESH_COLOURS:
            return of_faces(at(offsetof(Face, colour)), POVMESH_U8, 9);
        case POVMESH_LABELS:
            return of_faces(at(offsetof(Face, label)), POVMESH_I16, 1);
        case POVMESH_TEXTURE_FACES:
            return of_faces(at(offsetof(Face, uv)), POVMESH_I32, 3);
        case POVMESH_TEXTURE_COORDINATES:
            *view = view_of(m.texture_coordinates.data(), m.texture_coordinates.size(),
                            sizeof(TextureCoordinate), POVMESH_F64, 2);
            return POVMESH_OK;
        default:
            return POVMESH_UNSUPPORTED;
    }
}

povmesh_status povmesh_measure(povmesh_context* context, const povmesh_mesh* mesh,
                               povmesh_measures* measures) {
    return run(context, [&](Call& call) {
        const TriMesh& m = call.given(mesh, "mesh").mesh;
        call.given(measures, "measures");
        call.check_report(measures);
        const Measures found = measures_of(m);
        const auto any = [&](const auto& wanted) {
            return std::any_of(m.faces.begin(), m.faces.end(), wanted) ? 1 : 0;
        };
        povmesh_measures full{};
        full.has_colours = has_colours(m) ? 1 : 0;
        full.has_labels = any([](const Face& face) { return face.label >= 0; });
        full.has_texture_coordinates = any([](const Face& face) { return face.uv[0] >= 0; });
        full.faces = m.faces.size();
        full.vertices = found.vertices;
        full.bytes = sizeof(povmesh_mesh) + m.faces.capacity() * sizeof(Face) +
                     m.vertices.capacity() * sizeof(Vertex) +
                     m.texture_coordinates.capacity() * sizeof(TextureCoordinate);
        full.area = found.area;
        full.volume = found.volume;
        const Vec3d low = to_double(found.box.low);
        const Vec3d high = to_double(found.box.high);
        std::copy_n(std::array{low.x, low.y, low.z}.begin(), 3, full.low);
        std::copy_n(std::array{high.x, high.y, high.z}.begin(), 3, full.high);
        write_report(measures, full);
    });
}

uint64_t povmesh_result_mesh_count(const povmesh_result* result) {
    return result != nullptr ? result->meshes.size() : 0;
}

const povmesh_mesh* povmesh_result_mesh(const povmesh_result* result, uint64_t i) {
    return result != nullptr && i < result->meshes.size() ? result->meshes[i] : nullptr;
}

povmesh_status povmesh_result_view(const povmesh_result* result, int32_t array,
                                   povmesh_view* view) {
    if (result == nullptr || view == nullptr) return POVMESH_INVALID_ARGUMENT;
    for (const povmesh_result::Rows& rows : result->arrays) {
        if (rows.array != array) continue;
        *view = rows.view;
        return POVMESH_OK;
    }
    return POVMESH_UNSUPPORTED;
}

const char* povmesh_result_text(const povmesh_result* result) {
    return result != nullptr ? result->text.c_str() : "";
}

void povmesh_result_release(const povmesh_result* result) {
    delete result;
}
