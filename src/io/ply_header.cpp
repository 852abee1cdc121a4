#include "io/ply_header.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <system_error>
#include <utility>

#include "io/file.h"

namespace povmesh {
namespace {

// No real header comes near these; they keep one that is all properties from filling the memory.
constexpr std::size_t kMostLines = 10000;
constexpr std::size_t kLongestLine = 10000;

std::optional<PlyType> type_of(std::string_view word) {
    static constexpr std::pair<std::string_view, PlyType> kTypes[] = {
        {"char", PlyType::Int8},       {"int8", PlyType::Int8},       {"uchar", PlyType::UInt8},
        {"uint8", PlyType::UInt8},     {"short", PlyType::Int16},     {"int16", PlyType::Int16},
        {"ushort", PlyType::UInt16},   {"uint16", PlyType::UInt16},   {"int", PlyType::Int32},
        {"int32", PlyType::Int32},     {"uint", PlyType::UInt32},     {"uint32", PlyType::UInt32},
        {"float", PlyType::Float32},   {"float32", PlyType::Float32}, {"double", PlyType::Float64},
        {"float64", PlyType::Float64},
    };
    for (const auto& [name, type] : kTypes) {
        if (name == word) return type;
    }
    return std::nullopt;
}

PlyRole role_of(PlyElement::Kind kind, std::string_view name, bool is_list) {
    using Names = std::pair<std::string_view, PlyRole>;
    static constexpr Names kOfVertices[] = {
        {"x", PlyRole::X}, {"y", PlyRole::Y},         {"z", PlyRole::Z},
        {"s", PlyRole::U}, {"t", PlyRole::V},         {"u", PlyRole::U},
        {"v", PlyRole::V}, {"texture_u", PlyRole::U}, {"texture_v", PlyRole::V},
    };
    static constexpr Names kColours[] = {
        {"red", PlyRole::Red},
        {"green", PlyRole::Green},
        {"blue", PlyRole::Blue},
        {"diffuse_red", PlyRole::Red},
        {"diffuse_green", PlyRole::Green},
        {"diffuse_blue", PlyRole::Blue},
        {"r", PlyRole::Red},
        {"g", PlyRole::Green},
        {"b", PlyRole::Blue},
    };
    static constexpr Names kLists[] = {
        {"vertex_indices", PlyRole::Corners},
        {"vertex_index", PlyRole::Corners},
        {"texcoord", PlyRole::TextureCorners},
    };
    const auto find = [&](std::span<const Names> names) {
        for (const auto& [known, role] : names) {
            if (known == name) return role;
        }
        return PlyRole::None;
    };
    if (kind == PlyElement::Kind::Other) return PlyRole::None;
    if (is_list) {
        const PlyRole role = kind == PlyElement::Kind::Vertices ? PlyRole::None : find(kLists);
        const bool is_strip_texture =
            kind == PlyElement::Kind::Strips && role == PlyRole::TextureCorners;
        return is_strip_texture ? PlyRole::None : role;
    }
    if (kind == PlyElement::Kind::Strips) return PlyRole::None;
    if (const PlyRole role = find(kColours); role != PlyRole::None) return role;
    if (kind == PlyElement::Kind::Vertices) return find(kOfVertices);
    return name == "texnumber" ? PlyRole::TextureNumber : PlyRole::None;
}

PlyElement::Kind kind_of(std::string_view name) {
    if (name == "vertex") return PlyElement::Kind::Vertices;
    if (name == "face") return PlyElement::Kind::Faces;
    return name == "tristrips" ? PlyElement::Kind::Strips : PlyElement::Kind::Other;
}

class HeaderParser {
public:
    HeaderParser(Lines& lines, const std::string& name, PlyHeader& header)
        : lines_(lines), name_(name), header_(header) {}

    Status run() {
        std::string_view line;
        if (!next(line) || line != "ply") {
            return bad("not a PLY file: its first line is not \"ply\"");
        }
        if (!next(line) || !read_format(line)) {
            return bad(at_line() +
                       "not a format that PLY has; it is \"format ascii 1.0\", "
                       "binary_little_endian or binary_big_endian");
        }
        while (next(line)) {
            if (line == "end_header") return judge();
            if (header_.lines > kMostLines || line.size() > kLongestLine) {
                return bad(at_line() + "longer header than a model can have");
            }
            if (Status status = read_line(line); !status.ok()) return status;
        }
        if (lines_.is_too_long()) return bad("header with a line " + std::string(Lines::kTooLong));
        return bad("truncated PLY: ends within its header, after line " +
                   std::to_string(header_.lines));
    }

private:
    bool next(std::string_view& line) {
        if (!lines_.next(line)) return false;
        ++header_.lines;
        while (!line.empty() && is_blank(line.back())) line.remove_suffix(1);
        return true;
    }

    Status bad(const std::string& what) const {
        return {StatusCode::BadFile, one_line(name_) + ": " + what};
    }
    std::string at_line() const { return "line " + std::to_string(header_.lines) + ": "; }

    static std::string_view next_word(std::string_view& line) {
        while (!line.empty() && is_blank(line.front())) line.remove_prefix(1);
        std::size_t length = 0;
        while (length < line.size() && !is_blank(line[length])) ++length;
        const std::string_view word = line.substr(0, length);
        line.remove_prefix(length);
        return word;
    }

    bool read_format(std::string_view line) {
        if (next_word(line) != "format") return false;
        const std::string_view form = next_word(line);
        if (form == "ascii") {
            header_.form = PlyForm::Ascii;
        } else if (form == "binary_little_endian") {
            header_.form = PlyForm::LittleEndian;
        } else if (form == "binary_big_endian") {
            header_.form = PlyForm::BigEndian;
        } else {
            return false;
        }
        return next_word(line) == "1.0";
    }

    Status read_line(std::string_view line) {
        const std::string_view kind = next_word(line);
        if (kind.empty() || kind == "obj_info") return {};
        if (kind == "comment") {
            if (next_word(line) == "TextureFile" && line.size() > 1) {
                header_.texture_files.emplace_back(line.substr(1));
            }
            return {};
        }
        if (kind == "element") return read_element(line);
        if (kind == "property") return read_property(line);
        return bad(at_line() + "\"" + one_line(kind.substr(0, 20)) + "\" is no word of a header");
    }

    Status read_element(std::string_view line) {
        PlyElement element;
        element.name = next_word(line);
        element.kind = kind_of(element.name);
        const std::string_view count = next_word(line);
        const auto [end, error] =
            std::from_chars(count.data(), count.data() + count.size(), element.count);
        if (error != std::errc{} || end != count.data() + count.size()) {
            return bad(at_line() + "an element needs a name and a count of its rows");
        }
        for (const PlyElement& other : header_.elements) {
            if (other.name == element.name) {
                return bad(at_line() + "second element \"" + one_line(element.name) + "\"");
            }
        }
        header_.elements.push_back(std::move(element));
        return {};
    }

    Status read_property(std::string_view line) {
        if (header_.elements.empty()) return bad(at_line() + "property without an element");
        PlyElement& element = header_.elements.back();
        PlyProperty property;
        std::string_view type = next_word(line);
        property.is_list = type == "list";
        if (property.is_list) {
            const std::optional<PlyType> count_type = type_of(next_word(line));
            if (!count_type || *count_type >= PlyType::Float32) {
                return bad(at_line() + "the count of a list needs an integer type");
            }
            property.count_type = *count_type;
            type = next_word(line);
        }
        const std::optional<PlyType> known = type_of(type);
        if (!known) {
            return bad(at_line() + "\"" + one_line(type.substr(0, 20)) +
                       "\" is no type of a property");
        }
        property.type = *known;
        property.name = next_word(line);
        if (property.name.empty()) return bad(at_line() + "property without a name");
        property.role = role_of(element.kind, property.name, property.is_list);
        if (property.role != PlyRole::None && element.has(property.role)) {
            return bad(at_line() + "\"" + property.name +
                       "\" says again what a property before it says");
        }
        element.properties.push_back(std::move(property));
        return {};
    }

    // What a model needs.
    Status judge() const {
        const PlyElement* vertices = nullptr;
        for (const PlyElement& element : header_.elements) {
            if (element.kind == PlyElement::Kind::Vertices) {
                vertices = &element;
                for (const PlyRole role : {PlyRole::X, PlyRole::Y, PlyRole::Z}) {
                    if (!element.has(role)) {
                        return bad("the vertices have no x, y or z; nothing to make a model of");
                    }
                }
            } else if (element.kind != PlyElement::Kind::Other) {
                if (vertices == nullptr && element.count > 0) {
                    return bad("element \"" + element.name +
                               "\" stands before the vertices that it names");
                }
                if (!element.has(PlyRole::Corners) && element.count > 0) {
                    return bad("element \"" + element.name + "\" has no list vertex_indices");
                }
            }
        }
        if (vertices == nullptr) return bad("PLY without vertices");
        return {};
    }

    Lines& lines_;
    const std::string& name_;
    PlyHeader& header_;
};

}  // namespace

bool PlyElement::has(PlyRole role) const {
    return std::any_of(properties.begin(), properties.end(),
                       [&](const PlyProperty& property) { return property.role == role; });
}

Status read_ply_header(Lines& lines, const std::string& name, PlyHeader& header) {
    header = {};
    return HeaderParser(lines, name, header).run();
}

}  // namespace povmesh
