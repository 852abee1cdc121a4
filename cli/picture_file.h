// Pictures as files, and what explains their colours.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/array.h"
#include "base/status.h"
#include "job/picture/picture.h"

namespace povmesh::cli {

/// Replaces the file when the content is complete.
Status write_file(const std::string& path, const Array<char>& content);

/// A bar of colours, with a word above and below it.
struct Legend {
    std::string_view above, below;
    std::array<std::uint8_t, 3> (*colour)(double share);  // of the way down, 0 to 1
};

/// A picture with a panel on the right for the legend. In one that is too low for it the panel
/// stays empty.
picture::Image with_legend(const picture::Image& image, const Legend& legend);

using picture::beside;
using picture::kLineWidth;

}  // namespace povmesh::cli
