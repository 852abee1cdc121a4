// The header of a PLY file: which elements follow, and which properties each of their rows has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/status.h"
#include "io/ply.h"
#include "io/text.h"

namespace povmesh {

enum class PlyType : std::uint8_t { Int8, UInt8, Int16, UInt16, Int32, UInt32, Float32, Float64 };

constexpr std::size_t size_of(PlyType type) {
    constexpr std::size_t kSizes[] = {1, 1, 2, 2, 4, 4, 4, 8};
    return kSizes[static_cast<std::size_t>(type)];
}

/// What a property means to a mesh.
enum class PlyRole : std::uint8_t {
    None,
    X,
    Y,
    Z,
    U,
    V,
    Red,
    Green,
    Blue,
    TextureNumber,
    Corners,        // a list
    TextureCorners  // a list
};

struct PlyProperty {
    std::string name;
    PlyType type = PlyType::Int8;  // of an item, in a list
    PlyType count_type = PlyType::Int8;
    bool is_list = false;
    PlyRole role = PlyRole::None;

    /// Fewest bytes of a binary row.
    std::size_t least_bytes() const { return size_of(is_list ? count_type : type); }
};

struct PlyElement {
    enum class Kind { Other, Vertices, Faces, Strips };

    std::string name;
    std::uint64_t count = 0;
    Kind kind = Kind::Other;
    std::vector<PlyProperty> properties;

    bool has(PlyRole role) const;
};

struct PlyHeader {
    PlyForm form = PlyForm::Ascii;
    std::vector<PlyElement> elements;
    std::vector<std::string> texture_files;
    std::size_t lines = 0;
};

/// Reads up to the line "end_header"; what follows begins at `lines.offset()`.
///
/// @return  BadFile, with the line, when it is no header
Status read_ply_header(Lines& lines, const std::string& name, PlyHeader& header);

}  // namespace povmesh
