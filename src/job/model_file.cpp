#include "job/model_file.h"

#include <algorithm>
#include <cmath>

#include "base/poll.h"
#include "io/file.h"
#include "io/obj.h"
#include "io/ply.h"
#include "io/stl.h"
#include "io/stream.h"
#include "job/measures.h"
#include "job/numbers.h"
#include "job/picture/picture.h"

namespace povmesh {
namespace {

// Letters beyond ASCII do not occur in the extensions compared.
std::string lower_case(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

Status read_stl_model(const ByteSource& source, Progress progress, LoadedModel& model) {
    RunLog log;
    RunContext run{progress, log};
    StlInfo info;
    const StlReadOptions options{.any_case = true, .strict = true};
    Status status = read_stl(source, model.path, options, run, model.mesh, info);
    model.format = info.is_ascii ? "ASCII STL" : "binary STL";
    model.triangles = info.triangles;
    model.trailing_bytes = info.trailing_bytes;
    if (info.records_left_out > 0) {
        model.is_whole = false;
        model.warnings.push_back(
            counted(info.records_left_out, "triangle") + " left out behind the " +
            with_separators(info.promised_triangles) +
            " that the header counts; correct the count at byte 80 if they belong to the model");
    } else if (info.trailing_bytes > 0) {
        model.warnings.push_back(counted(info.trailing_bytes, "byte") +
                                 " behind the last triangle ignored");
    }
    return status;
}

void warn_of_lines(const ObjLines& lines, const char* one, const char* many,
                   std::vector<std::string>& warnings) {
    if (lines.count == 0) return;
    warnings.push_back("line " + std::to_string(lines.first) + ": " + one);
    if (lines.count > 1)
        warnings.back() =
            counted(lines.count, one, many) + ", first in line " + std::to_string(lines.first);
}

Status read_obj_model(const ByteSource& source, Progress progress, LoadedModel& model) {
    ObjInfo info;
    Status status = read_obj(source, model.path, {.strict = true}, model.mesh, info);
    model.format = "OBJ";
    model.triangles = info.triangles;
    model.has_texture_lines = info.texture_lines != 0;
    warn_of_lines(info.short_faces, "face of fewer than three corners left out",
                  "faces of fewer than three corners left out", model.warnings);
    warn_of_lines(info.bad_colours, "vertex colour that is no number taken for white",
                  "vertex colours that are no numbers taken for white", model.warnings);
    warn_of_lines(info.bad_textures, "texture coordinate that is no number taken for 0",
                  "texture coordinates that are no numbers taken for 0", model.warnings);
    progress.set(48);
    return status;
}

std::string list_text(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

Status read_ply_model(const ByteSource& source, Progress progress, LoadedModel& model) {
    PlyInfo info;
    Status status = read_ply(source, model.path, model.mesh, info);
    model.format = info.form == PlyForm::Ascii ? "ASCII PLY" : "binary PLY";
    model.triangles = info.triangles;
    model.has_texture_lines = info.has_textures;
    model.extras.texture_files = info.texture_files;
    model.trailing_bytes = info.trailing_bytes;
    if (info.short_faces > 0) {
        const std::string place = info.form == PlyForm::Ascii ? "line " : "byte ";
        model.warnings.push_back(counted(info.short_faces, "face", "faces") +
                                 " of fewer than three corners left out, first at " + place +
                                 std::to_string(info.first_short));
    }
    if (info.has_face_colours) {
        model.warnings.emplace_back("colours of faces left out beside those of the vertices");
    }
    if (!info.left_out.empty()) {
        model.warnings.push_back("a mesh has no place for " + list_text(info.left_out) +
                                 "; left out");
    }
    if (info.trailing_bytes > 0) {
        model.warnings.push_back(counted(info.trailing_bytes, "byte") +
                                 " behind the last element ignored");
    }
    progress.set(48);
    return status;
}

Status read_package_model(const ByteSource& source, Progress progress, LoadedModel& model) {
    ThreeMfInfo info;
    Status status = read_three_mf(source, model.path, model.mesh, model.extras.package, info);
    model.format = "3MF";
    model.triangles = info.triangles;
    model.has_texture_lines = info.has_textures;
    model.warnings = std::move(info.warnings);
    progress.set(48);
    return status;
}

bool is_white(const Face& face) {
    return std::all_of(face.colour.begin(), face.colour.end(),
                       [](std::uint8_t channel) { return channel == 255; });
}

template <typename Wanted>
bool has_face(const TriMesh& mesh, const Wanted& wanted) {
    return std::any_of(mesh.faces.begin(), mesh.faces.end(),
                       [&](const Face& face) { return face.deleted == 0 && wanted(face); });
}

// What file managers show of a package.
Array<char> thumbnail(const TriMesh& mesh) {
    picture::RenderOptions options;
    options.width = 256;
    options.height = 256;
    picture::Model model;
    model.mesh = &mesh;
    model.use_face_colours = has_colours(mesh);
    return picture::encode_png(picture::render({model}, options));
}

std::string format_name(FileKind kind) {
    switch (kind) {
        case FileKind::Obj:
            return "OBJ";
        case FileKind::Ply:
            return "PLY";
        default:
            return "STL";
    }
}

}  // namespace

std::string_view extension_of(FileKind kind) {
    switch (kind) {
        case FileKind::Obj:
            return ".obj";
        case FileKind::Ply:
            return ".ply";
        case FileKind::ThreeMf:
            return ".3mf";
        default:
            return ".stl";
    }
}

bool has_extension(const std::string& path, std::string_view extension) {
    return lower_case(std::string(extension_in(path))) == extension;
}

bool is_packed(const std::string& path) {
    return has_extension(path, kPackedEnd);
}

FileKind kind_of_name(const std::string& path) {
    if (is_packed(path)) {
        const FileKind kind = kind_of_name(path.substr(0, path.size() - kPackedEnd.size()));
        return kind == FileKind::ThreeMf ? FileKind::Unknown : kind;  // that is packed as it is
    }
    for (const FileKind kind : {FileKind::Stl, FileKind::Obj, FileKind::Ply, FileKind::ThreeMf}) {
        if (has_extension(path, extension_of(kind))) return kind;
    }
    return FileKind::Unknown;
}

namespace {

Status read_kind(const ByteSource& source, Progress progress, LoadedModel& model) {
    switch (model.kind) {
        case FileKind::Obj:
            return read_obj_model(source, progress, model);
        case FileKind::Ply:
            return read_ply_model(source, progress, model);
        case FileKind::ThreeMf:
            return read_package_model(source, progress, model);
        default:
            return read_stl_model(source, progress, model);
    }
}

}  // namespace

Status read_model(const ByteSource& source, Progress progress, LoadedModel& model) {
    Status status = read_kind(source, progress, model);
    if (status.ok() && model.mesh.faces.empty()) {
        return {StatusCode::BadFile,
                model.path +
                    ": every triangle has two corners at the same place; nothing is left "
                    "of " +
                    counted(model.triangles, "triangle")};
    }
    return status;
}

std::string coordinate_obstacle(const TriMesh& mesh) {
    std::vector<bool> is_misplaced(mesh.vertices.size());
    std::transform(mesh.vertices.begin(), mesh.vertices.end(), is_misplaced.begin(),
                   [](const Vertex& v) { return !is_finite(v.position()); });
    if (std::find(is_misplaced.begin(), is_misplaced.end(), true) == is_misplaced.end()) return {};
    const auto triangles = static_cast<std::uint64_t>(
        std::count_if(mesh.faces.begin(), mesh.faces.end(), [&](const Face& face) {
            return face.deleted == 0 &&
                   std::any_of(face.vertex.begin(), face.vertex.end(), [&](std::int32_t v) {
                       const auto vertex = static_cast<std::size_t>(v);  // huge for a negative one
                       return vertex < is_misplaced.size() && is_misplaced[vertex];
                   });
        }));
    if (triangles == 0) return {};
    return counted(triangles, "triangle has", "triangles have") +
           " a coordinate that is infinite or no number; nothing is written; take such triangles "
           "out of the input, and scale it down when its coordinates are near 3e38";
}

Status open_model(const std::string& path, InputFile& file) {
    return is_packed(path) ? unpack_gzip(path, file) : file.open(path);
}

Status write_model(TriMesh& mesh, FileKind kind, const ModelExtras& extras, const std::string& name,
                   ByteSink& sink, Thumbnail picture) {
    switch (kind) {
        case FileKind::Obj:
            return write_obj(mesh, sink, {.exact = true});
        case FileKind::Ply:
            return write_ply(mesh, sink, extras.texture_files);
        case FileKind::ThreeMf:
            return write_three_mf(mesh, extras.package,
                                  picture == Thumbnail::Drawn ? thumbnail(mesh) : Array<char>(),
                                  name, sink);
        default:
            return write_stl(mesh, sink);
    }
}

Status write_model_file(TriMesh& mesh, FileKind kind, const ModelExtras& extras,
                        const std::string& path) {
    ReplacementFile file;
    if (Status status = file.open(path); !status.ok()) return status;
    if (!is_packed(path)) return write_model(mesh, kind, extras, path, file);
    GzipSink packed(file);
    return write_model(mesh, kind, extras, path, packed);
}

std::vector<std::string> load_warnings(const LoadedModel& model) {
    std::vector<std::string> warnings = model.warnings;
    if (const std::size_t dropped = model.dropped_triangles(); dropped > 0) {
        warnings.push_back(counted(dropped, "triangle") +
                           " dropped: two corners at the same place");
    }
    return warnings;
}

namespace {

void warn_of_lost_package(const LoadedModel& model, FileKind target,
                          std::vector<std::string>& warnings) {
    const ThreeMfContent& package = model.extras.package;
    if (target == FileKind::ThreeMf) return;
    const bool has_names = std::any_of(package.bodies.begin(), package.bodies.end(),
                                       [](const std::string& name) { return !name.empty(); });
    if (package.bodies.size() > 1 || has_names) {
        warnings.push_back("names of objects are lost: " + format_name(target) + " has none");
    }
    if (target == FileKind::Stl) return;
    if (model.has_texture_lines) warnings.emplace_back("the files of textures are lost");
}

}  // namespace

std::vector<std::string> loss_warnings(const LoadedModel& model, FileKind target) {
    const TriMesh& mesh = model.mesh;
    const bool is_package = model.kind == FileKind::ThreeMf;
    const bool has_labels =
        !is_package && has_face(mesh, [](const Face& face) { return face.label >= 0; });
    std::vector<std::string> warnings;
    if (is_package) warn_of_lost_package(model, target, warnings);
    if (target == FileKind::Stl) {
        if (has_colours(mesh)) warnings.emplace_back("colours are lost: STL has none");
        if (has_labels || model.has_texture_lines) {
            warnings.emplace_back("materials and texture coordinates are lost: STL has none");
        }
        return warnings;
    }
    if (is_package || (model.kind == FileKind::Ply && target == FileKind::Ply)) return warnings;
    if (target == FileKind::ThreeMf) {
        if (has_labels || model.has_texture_lines) {
            warnings.emplace_back(
                "materials and texture coordinates are lost: their pictures are not at hand");
        }
    } else if (has_labels && model.kind == FileKind::Ply) {
        warnings.emplace_back("materials are numbered; the names of texture files are lost");
    } else if (has_labels) {
        warnings.emplace_back("materials are numbered; their names and the library file are lost");
    } else if (model.has_texture_lines) {
        warnings.emplace_back("texture coordinates are lost: no material uses them");
    }
    return warnings;
}

namespace {

// The vertex of a body that stands for one of the whole; made when it is first asked for. Until
// the body is complete its vertices have their number in the whole as their index.
std::int32_t copied_vertex(const TriMesh& whole, std::int32_t v, Array<std::int32_t>& number,
                           TriMesh& body) {
    const auto index = static_cast<std::size_t>(v);
    const auto known = static_cast<std::size_t>(number[index]);
    if (known < body.vertices.size() && body.vertices[known].index == v) return number[index];
    number[index] = static_cast<std::int32_t>(body.vertices.size());
    body.vertices.push_back(whole.vertices[index]);
    body.vertices.back().index = v;
    return number[index];
}

}  // namespace

std::vector<TriMesh> bodies_of(const TriMesh& whole, const ThreeMfContent& package) {
    std::vector<TriMesh> bodies;
    if (package.bodies.size() < 2 || !keeps_bodies(whole, package)) return bodies;
    bodies.resize(package.bodies.size());
    Array<std::int32_t> number(whole.vertices.size(), 0);  // in the last body that has it
    const Array<std::uint32_t> order = three_mf_order(whole, package);
    for (std::size_t i = 0; i < order.size();) {
        const auto body_at = [&](std::size_t k) {
            const auto label = static_cast<std::size_t>(whole.faces[order[k]].label);
            return package.labels[label].body;
        };
        const std::size_t body = body_at(i);
        TriMesh& mesh = bodies[body];
        for (; i < order.size() && body_at(i) == body; ++i) {
            Face face = whole.faces[order[i]];
            face.label = -1;
            face.uv.fill(-1);
            for (std::int32_t& v : face.vertex) v = copied_vertex(whole, v, number, mesh);
            mesh.faces.push_back(face);
        }
        for (std::size_t v = 0; v < mesh.vertices.size(); ++v) {
            poll_at(v);
            mesh.vertices[v].index = static_cast<std::int32_t>(v);
        }
    }
    return bodies;
}

std::size_t closed_body_count(const LoadedModel& model) {
    std::vector<TriMesh> bodies = bodies_of(model);
    return static_cast<std::size_t>(
        std::count_if(bodies.begin(), bodies.end(), [](TriMesh& body) { return is_closed(body); }));
}

bool has_colours(const TriMesh& mesh) {
    return has_face(mesh, [](const Face& face) { return !is_white(face); });
}

}  // namespace povmesh
