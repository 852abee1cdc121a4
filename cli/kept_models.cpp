#include "cli/kept_models.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <span>
#include <utility>

#include "io/file.h"
#include "io/stream.h"

namespace povmesh::cli {
namespace {

std::map<std::string, KeptModel>& places() {
    static std::map<std::string, KeptModel> all;
    return all;
}

// The folder that is kept; empty when none is.
std::string& folder_of_places() {
    static std::string folder;
    return folder;
}

// With or without a separator at its end.
std::string plain_name(const std::string& folder) {
    return (std::filesystem::path(folder) / "x").parent_path().string();
}

class KeptSink final : public ByteSink {
public:
    explicit KeptSink(KeptModel& model) : model_(model) {}

    Status write(std::span<const char> bytes) override {
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        return {};
    }
    Status commit() override {
        model_.bytes = std::move(bytes_);
        return {};
    }

private:
    KeptModel& model_;
    Array<char> bytes_;
};

Status write_all(const KeptModel& model, ByteSink& sink) {
    if (Status status = sink.write(model.bytes); !status.ok()) return status;
    return sink.commit();
}

}  // namespace

KeptModel& keep_model(const std::string& name, FileKind kind) {
    KeptModel& place = places()[name];
    place = {};
    place.kind = kind;
    return place;
}

KeptModel* kept_model(const std::string& name) {
    const auto found = places().find(name);
    return found == places().end() ? nullptr : &found->second;
}

void forget_model(const std::string& name) {
    places().erase(name);
}

void keep_folder(const std::string& folder) {
    folder_of_places() = plain_name(folder);
}

bool is_kept_folder(const std::string& folder) {
    return !folder.empty() && plain_name(folder) == folder_of_places();
}

KeptModel* place_for(const std::string& path) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    if (KeptModel* const known = kept_model(path); known != nullptr) return known;
    if (!is_kept_folder(folder)) return nullptr;
    KeptModel& place = keep_model(path, kind_of(path));
    place.is_for_people = true;
    return &place;
}

std::vector<std::string> kept_in_folder() {
    std::vector<std::string> names;
    for (const auto& [name, place] : places()) {
        if (is_kept_folder(std::filesystem::path(name).parent_path().string())) {
            names.push_back(name);
        }
    }
    return names;
}

std::unique_ptr<ByteSink> sink_of(KeptModel& model) {
    return std::make_unique<KeptSink>(model);
}

std::string keep_standard_input(KeptModel& model) {
    InputFile file;
    if (const Status status = read_standard_input("standard input", file); !status.ok()) {
        return status.text();
    }
    model.bytes = file.read_all();
    return {};
}

std::string deliver_kept(const KeptModel& model, const std::string& target) {
    OutputFile output(target);
    ReplacementFile file;
    if (const Status status = file.open(output.path()); !status.ok()) return status.text();
    if (is_packed(target)) {
        GzipSink packed(file);
        if (const Status status = write_all(model, packed); !status.ok()) return status.text();
    } else if (const Status status = write_all(model, file); !status.ok()) {
        return status.text();
    }
    return output.deliver();
}

}  // namespace povmesh::cli
