#include "cli/model.h"

#include <exception>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <system_error>

#include "base/job_state.h"
#include "cli/kept_models.h"
#include "cli/shared_options.h"
#include "io/file.h"
#include "io/stream.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

constexpr std::string_view kNoPipeFormat =
    "-: standard input and output have no name that says their kind; give --format";

std::string read_model(const std::string& path, Progress progress, LoadedModel& model) {
    model.kind = kind_of(path);
    if (model.kind == FileKind::Unknown) {
        if (is_pipe(path)) return std::string(kNoPipeFormat);
        return path + ": unknown kind of file; give one whose name ends in " +
               std::string(kModelEndings);
    }
    model.path = path;
    if (const KeptModel* const kept = kept_model(path)) {
        return povmesh::read_model(bytes_of(kept->bytes), progress, model).text();
    }
    InputFile file;
    Status status =
        is_pipe(path) ? read_standard_input("standard input", file) : open_model(path, file);
    if (status.ok()) status = povmesh::read_model(bytes_of(file), progress, model);
    return status.text();
}

// What --format said; nothing changes it once the command line has been read.
FileKind pipe_kind = FileKind::Unknown;

}  // namespace

void set_pipe_kind(FileKind kind) {
    pipe_kind = kind;
}

FileKind kind_of(const std::string& path) {
    if (const KeptModel* const kept = kept_model(path)) return kept->kind;
    if (is_pipe(path)) return pipe_kind;
    return kind_of_name(path);
}

bool is_model_name(const std::string& path, Console& console) {
    if (is_pipe(path)) console.send_results_to_error();
    if (kind_of(path) != FileKind::Unknown) return true;
    if (is_pipe(path)) {
        console.error(kNoPipeFormat);
        return false;
    }
    console.error(path + ": no kind of model; give a name that ends in " +
                  std::string(kModelEndings));
    return false;
}

std::string stem_of(const std::string& path) {
    if (const KeptModel* const kept = kept_model(path); kept != nullptr && !kept->stem.empty()) {
        return kept->stem;
    }
    if (is_pipe(path)) return "model";
    const std::filesystem::path stem = std::filesystem::path(path).stem();
    return (is_packed(path) ? stem.stem() : stem).string();
}

std::string load_model(const std::string& path, Progress progress, LoadedModel& model) {
    try {
        return read_model(path, progress, model);
    } catch (...) {
        return failure_text(path);
    }
}

std::string save_model(TriMesh& mesh, const std::string& path, const ModelExtras& extras) {
    try {
        if (const std::string obstacle = coordinate_obstacle(mesh); !obstacle.empty()) {
            return path + ": " + obstacle;
        }
        if (KeptModel* const kept = place_for(path)) {
            return write_model(mesh, kept->kind, extras, path, *sink_of(*kept),
                               kept->is_for_people ? Thumbnail::Drawn : Thumbnail::None)
                .text();
        }
        if (is_pipe(path)) {
            OutputFile file(path);
            const std::string failure =
                write_model_file(mesh, kind_of(path), extras, file.path()).text();
            return failure.empty() ? file.deliver() : failure;
        }
        return write_model_file(mesh, kind_of(path), extras, path).text();
    } catch (...) {
        return failure_text(path);
    }
}

std::string replaced_in_part(const std::string& path) {
    return path +
           ": was not read whole, and what was left out would be lost; write to another file";
}

std::string save_model(LoadedModel& model, const std::string& path) {
    std::error_code error;
    if (!model.is_whole && std::filesystem::equivalent(model.path, path, error)) {
        return replaced_in_part(path);
    }
    return save_model(model.mesh, path, model.extras);
}

OutputFile::OutputFile(const std::string& target) : path_(target) {
    if (!is_pipe(target)) return;
    folder_ = make_temporary_folder();
    if (folder_.empty()) folder_ = "temporary folder";  // writing says why
    path_ = folder_ + "/output" + std::string(extension_of(kind_of(target)));
}

OutputFile::~OutputFile() {
    remove_temporary();
}

void OutputFile::remove_temporary() {
    if (folder_.empty()) return;
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
    std::filesystem::remove(folder_, ignored);
    folder_.clear();
}

std::string OutputFile::deliver() {
    if (folder_.empty()) return {};
    InputFile file;
    Status status = file.open(path_);
    // Open, it needs no name; a reader that goes away ends this program.
    remove_temporary();
    if (status.ok()) status = copy_to_standard_output(file, "standard output");
    return status.text();
}

std::string no_memory_text() {
    if (const JobState* const job = current_job(); job != nullptr && job->has_met_limit()) {
        return "needs more memory than the " +
               human_number(static_cast<double>(job->settings().memory_limit)) +
               " bytes of --memory; allow more or use a smaller model";
    }
    return "not enough memory for this model; close other programs or reduce it";
}

std::string failure_text(const std::string& path) {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        return path + ": " + no_memory_text();
    } catch (const std::length_error&) {
        return path + ": too many triangles for one mesh; split the model";
    } catch (const std::exception& error) {
        return path + ": internal error: " + error.what();
    }
}

void warn_of(const std::string& path, const std::vector<std::string>& warnings, Console& console) {
    for (std::string warning : warnings) {
        warning.insert(0, path + ": ");
        console.warn(warning);
    }
}

}  // namespace povmesh::cli
