#include "cli/model.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <new>
#include <stdexcept>

#include "cli/numbers.h"

namespace povmesh::cli {
namespace {

// Letters beyond ASCII do not occur in the extensions compared.
std::string lower_case(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

std::string read_model(const std::string& path, Progress progress, LoadedModel& model) {
    if (has_extension(path, ".obj")) {
        return path + ": OBJ files cannot be read yet; save the model as STL";
    }
    if (!has_extension(path, ".stl")) {
        return path + ": unknown kind of file; give an STL file whose name ends in .stl";
    }
    model.path = path;
    RunLog log;
    RunContext run{progress, log};
    const StlReadOptions options{.any_case = true};
    const Status status = read_stl(path, options, run, model.mesh, model.info);
    if (!status.ok()) return status.text();
    if (model.mesh.faces.empty()) {
        return path + ": every triangle has two corners at the same place; nothing is left of " +
               counted(model.info.triangles, "triangle");
    }
    return {};
}

}  // namespace

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
    if (model.info.trailing_bytes > 0) {
        warnings.push_back(counted(model.info.trailing_bytes, "byte") +
                           " behind the last triangle ignored");
    }
    if (const std::size_t dropped = model.dropped_triangles(); dropped > 0) {
        warnings.push_back(counted(dropped, "triangle") +
                           " dropped: two corners at the same place");
    }
    return warnings;
}

void warn_of(const LoadedModel& model, Console& console) {
    for (std::string warning : load_warnings(model)) {
        warning.insert(0, model.path + ": ");
        console.warn(warning);
    }
}

}  // namespace povmesh::cli
