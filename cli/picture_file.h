// Pictures as files, and what explains their colours.
#pragma once

#include <string>

#include "base/array.h"
#include "base/status.h"
#include "cli/picture/picture.h"

namespace povmesh::cli {

/// Replaces the file when the content is complete.
Status write_file(const std::string& path, const Array<char>& content);

/// Makes a picture wider by a panel on the right with a bar of the strength colours, "WEAK" above
/// and "STRONG" below. In a picture that is too low for it the panel stays empty.
void add_strength_legend(picture::Image& image);

}  // namespace povmesh::cli
