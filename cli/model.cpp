#include "cli/model.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <filesystem>
#include <new>
#include <stdexcept>

#include "cli/numbers.h"
#include "io/obj.h"
#include "io/stl.h"

namespace povmesh::cli {
namespace {

// Letters beyond ASCII do not occur in the extensions compared.
std::string lower_case(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

Status read_stl_model(const std::string& path, Progress progress, LoadedModel& model) {
    RunLog log;
    RunContext run{progress, log};
    StlInfo info;
    const StlReadOptions options{.any_case = true};
    Status status = read_stl(path, options, run, model.mesh, info);
    model.format = info.is_ascii ? "ASCII STL" : "binary STL";
    model.triangles = info.triangles;
    model.trailing_bytes = info.trailing_bytes;
    return status;
}

Status read_obj_model(const std::string& path, Progress progress, LoadedModel& model) {
    ObjInfo info;
    Status status = read_obj(path, {.resolve_indices = true}, model.mesh, info);
    model.format = "OBJ";
    model.triangles = info.triangles;
    model.has_texture_lines = info.texture_lines != 0;
    progress.set(48);
    return status;
}

std::string read_model(const std::string& path, Progress progress, LoadedModel& model) {
    const FileKind kind = kind_of(path);
    if (kind == FileKind::Unknown) {
        return path + ": unknown kind of file; give one whose name ends in .stl or .obj";
    }
    model.path = path;
    const Status status = kind == FileKind::Obj ? read_obj_model(path, progress, model)
                                                : read_stl_model(path, progress, model);
    if (!status.ok()) return status.text();
    if (model.mesh.faces.empty()) {
        return path + ": every triangle has two corners at the same place; nothing is left of " +
               counted(model.triangles, "triangle");
    }
    return {};
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

// OBJ has no word for infinities and what is no number; a reader would take them for 0.
std::string obj_obstacle(const TriMesh& mesh) {
    const auto misplaced = static_cast<std::uint64_t>(
        std::count_if(mesh.vertices.begin(), mesh.vertices.end(), [](const Vertex& v) {
            return !std::isfinite(v.x) || !std::isfinite(v.y) || !std::isfinite(v.z);
        }));
    if (misplaced == 0) return {};
    return counted(misplaced, "vertex has", "vertices have") +
           " a coordinate that is infinite or no number, which OBJ cannot hold; write STL";
}

}  // namespace

FileKind kind_of(const std::string& path) {
    if (has_extension(path, ".stl")) return FileKind::Stl;
    return has_extension(path, ".obj") ? FileKind::Obj : FileKind::Unknown;
}

bool is_model_name(const std::string& path, Console& console) {
    if (kind_of(path) != FileKind::Unknown) return true;
    console.error(path +
                  ": only STL and OBJ can be written; give a name that ends in .stl or .obj");
    return false;
}

bool has_extension(const std::string& path, std::string_view extension) {
    return lower_case(std::filesystem::path(path).extension().string()) == extension;
}

std::string load_model(const std::string& path, Progress progress, LoadedModel& model) {
    try {
        return read_model(path, progress, model);
    } catch (...) {
        return failure_text(path);
    }
}

std::string save_model(TriMesh& mesh, const std::string& path) {
    try {
        if (kind_of(path) == FileKind::Stl) return write_stl(mesh, path).text();
        if (const std::string obstacle = obj_obstacle(mesh); !obstacle.empty()) {
            return path + ": " + obstacle;
        }
        return write_obj(mesh, path, {.exact = true}).text();
    } catch (...) {
        return failure_text(path);
    }
}

std::string failure_text(const std::string& path) {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        return path + ": not enough memory for this model; close other programs or reduce it";
    } catch (const std::length_error&) {
        return path + ": too many triangles for one mesh; split the model";
    } catch (const std::exception& error) {
        return path + ": internal error: " + error.what();
    }
}

std::vector<std::string> load_warnings(const LoadedModel& model) {
    std::vector<std::string> warnings;
    if (model.trailing_bytes > 0) {
        warnings.push_back(counted(model.trailing_bytes, "byte") +
                           " behind the last triangle ignored");
    }
    if (const std::size_t dropped = model.dropped_triangles(); dropped > 0) {
        warnings.push_back(counted(dropped, "triangle") +
                           " dropped: two corners at the same place");
    }
    return warnings;
}

std::vector<std::string> loss_warnings(const LoadedModel& model, FileKind target) {
    const TriMesh& mesh = model.mesh;
    const bool has_labels = has_face(mesh, [](const Face& face) { return face.label >= 0; });
    std::vector<std::string> warnings;
    if (target == FileKind::Stl) {
        if (has_colours(mesh)) warnings.emplace_back("colours are lost: STL has none");
        if (has_labels || model.has_texture_lines) {
            warnings.emplace_back("materials and texture coordinates are lost: STL has none");
        }
        return warnings;
    }
    if (has_face(mesh, [](const Face& face) { return face.label >= 0 && !is_white(face); })) {
        warnings.emplace_back("colours of faces with a material are lost");
    }
    if (has_labels) {
        warnings.emplace_back("materials are numbered; their names and the library file are lost");
    } else if (model.has_texture_lines) {
        warnings.emplace_back("texture coordinates are lost: no material uses them");
    }
    return warnings;
}

bool has_colours(const TriMesh& mesh) {
    return has_face(mesh, [](const Face& face) { return !is_white(face); });
}

void warn_of(const std::string& path, const std::vector<std::string>& warnings, Console& console) {
    for (std::string warning : warnings) {
        warning.insert(0, path + ": ");
        console.warn(warning);
    }
}

}  // namespace povmesh::cli
