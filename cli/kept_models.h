// Models in memory under names that stand in the place of files: what a step of a recipe hands to
// the next.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/array.h"
#include "cli/model.h"
#include "io/byte_sink.h"
#include "io/byte_source.h"

namespace povmesh::cli {

/// Holds the bytes that a file of that kind would hold, so that what is read of it is what would be
/// read of the file.
struct KeptModel {
    FileKind kind = FileKind::Unknown;
    std::string stem{};          // of names of what is made of it; empty: that of its own name
    bool is_for_people = false;  // will be a file: its package gets a picture
    Array<char> bytes;           // none until a model has been written
};

/// Makes a place of this name, or empties it. Only before operations run, or between two of them.
KeptModel& keep_model(const std::string& name, FileKind kind);

/// The place of a name, or null when it is that of a file.
KeptModel* kept_model(const std::string& name);

void forget_model(const std::string& name);

/// From now on, what is written into this folder is kept, too; nothing is read out of it.
void keep_folder(const std::string& folder);
bool is_kept_folder(const std::string& folder);

/// A place for a file that is about to be written, or null when it is not to be kept.
KeptModel* place_for(const std::string& path);

/// What is in the kept folder, by the names of the files.
std::vector<std::string> kept_in_folder();

/// Writes into a place, which changes only when all is there.
std::unique_ptr<ByteSink> sink_of(KeptModel& model);

/// Keeps what standard input holds. On failure returns one line.
std::string keep_standard_input(KeptModel& model);

/// Writes the file, or standard output, that a place was filled for. On failure returns one line.
std::string deliver_kept(const KeptModel& model, const std::string& target);

}  // namespace povmesh::cli
