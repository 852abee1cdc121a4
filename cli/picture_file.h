// Pictures as files, and what explains their colours.
#pragma once

#include <cstdint>
#include <string>

#include "base/array.h"
#include "base/status.h"
#include "cli/picture/picture.h"

namespace povmesh::cli {

/// Replaces the file when the content is complete.
Status write_file(const std::string& path, const Array<char>& content);

/// Two pictures of the same height with a line between them, together `width` pixels wide; each of
/// them `width_beside(width)`.
std::uint32_t width_beside(std::uint32_t width);
picture::Image beside(const picture::Image& left, const picture::Image& right, std::uint32_t width);

/// Makes a picture wider by a panel on the right with a bar of the strength colours, "WEAK" above
/// and "STRONG" below. In a picture that is too low for it the panel stays empty.
void add_strength_legend(picture::Image& image);

}  // namespace povmesh::cli
