// Reads a file back that was just written, and compares it with what was to be in it.
#pragma once

#include <string>

#include "cli/model.h"

namespace povmesh::cli {

/// Reads the file into `back` and compares coordinates bit for bit, face by face. Returns one line
/// for the user, with the file, when they are not those of the live faces of `mesh`; empty when
/// they are.
///
/// @param extras  what was written with the mesh: bodies order the faces of a 3MF file
std::string read_back(const TriMesh& mesh, const ModelExtras& extras, const std::string& path,
                      LoadedModel& back);

}  // namespace povmesh::cli
