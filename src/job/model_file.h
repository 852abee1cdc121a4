// Reads and writes models in any of the formats, and tells what a format does not keep.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/status.h"
#include "io/byte_sink.h"
#include "io/byte_source.h"
#include "io/file.h"
#include "io/three_mf.h"
#include "mesh/tri_mesh.h"
#include "run/progress.h"

namespace povmesh {

/// What the end of a file name says.
enum class FileKind : std::uint8_t { Unknown, Stl, Obj, Ply, ThreeMf };

/// Of a name that ends in ".gz" by what stands before that.
FileKind kind_of_name(const std::string& path);

/// The end of names of packed files.
inline constexpr std::string_view kPackedEnd = ".gz";

/// The end that says the kind of a file: ".stl".
std::string_view extension_of(FileKind kind);

/// True when the file name ends in `extension` (with its point), in any case.
bool has_extension(const std::string& path, std::string_view extension);

/// Whether a file of that name is packed by gzip.
bool is_packed(const std::string& path);

/// What belongs to a model beside its mesh.
struct ModelExtras {
    std::vector<std::string> texture_files;  // named in a PLY file
    ThreeMfContent package;
};

struct LoadedModel {
    std::string path;
    TriMesh mesh;
    FileKind kind = FileKind::Unknown;
    std::string_view format;           // for people: "binary STL"
    std::size_t triangles = 0;         // in the file
    std::uint64_t trailing_bytes = 0;  // of the file, behind the model
    bool is_whole = true;              // nothing of the file that may be model was left out
    bool has_texture_lines = false;    // texture coordinates in the file
    ModelExtras extras;
    std::vector<std::string> warnings;  // what was left out or taken for something; no file name

    /// Triangles of the file that made no face, because two of their corners are at one place.
    std::size_t dropped_triangles() const { return triangles - mesh.faces.size(); }
};

/// Opens a file, and unpacks it when its name ends so.
Status open_model(const std::string& path, InputFile& file);

/// Reads a model of at least one face, of the kind that `model.kind` says; `model.path` stands for
/// it in messages. Progress goes up to 48.
Status read_model(const ByteSource& source, Progress progress, LoadedModel& model);

/// Why a mesh must not be written, without the file: a face has a coordinate that is not finite.
/// Empty when it may be.
std::string coordinate_obstacle(const TriMesh& mesh);

/// What file managers show of a package.
enum class Thumbnail { Drawn, None };

/// Writes the live faces: binary STL, exact OBJ, PLY or 3MF. `name` stands for the target in
/// messages.
Status write_model(TriMesh& mesh, FileKind kind, const ModelExtras& extras, const std::string& name,
                   ByteSink& sink, Thumbnail picture = Thumbnail::Drawn);

/// The same to a file, packed when its name ends so; what was there is replaced by a complete file
/// only.
Status write_model_file(TriMesh& mesh, FileKind kind, const ModelExtras& extras,
                        const std::string& path);

/// What a reader of the file should know although it could be read; a line each, without the file.
std::vector<std::string> load_warnings(const LoadedModel& model);

/// What a file of that kind does not keep of the model as it is; a line each.
std::vector<std::string> loss_warnings(const LoadedModel& model, FileKind target);

/// What a 3MF file does not keep when `give_to_bodies` found no body for all new faces.
inline constexpr std::string_view kLostBodies =
    "new faces lie between several objects of the source: all are written as one object";

/// The bodies of a 3MF file as meshes of their own, in its order; none for one body.
std::vector<TriMesh> bodies_of(const TriMesh& whole, const ThreeMfContent& package);
inline std::vector<TriMesh> bodies_of(const LoadedModel& model) {
    return bodies_of(model.mesh, model.extras.package);
}

/// How many of them have no open edge.
std::size_t closed_body_count(const LoadedModel& model);

/// True when a face has a colour other than white.
bool has_colours(const TriMesh& mesh);

}  // namespace povmesh
