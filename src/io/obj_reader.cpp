// Works a line at a time. When reading is strict, vertices and texture coordinates are read in a
// first pass, so that a face can name any of them.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "base/convert.h"
#include "base/poll.h"
#include "io/byte_source.h"
#include "io/decimal.h"
#include "io/file.h"
#include "io/obj.h"
#include "io/polygon.h"
#include "io/text.h"
#include "mesh/colour.h"
#include "mesh/compact.h"

namespace povmesh {
namespace {

constexpr std::size_t kMaxVertexCount = std::numeric_limits<std::int32_t>::max();

// Whether a line has a "#" at the beginning of a word.
bool has_comment(std::string_view line) {
    for (std::size_t at = line.find('#'); at != std::string_view::npos;
         at = line.find('#', at + 1)) {
        if (at == 0 || is_blank(line[at - 1])) return true;
    }
    return false;
}

bool is_whole_integer(std::string_view piece) {
    if (piece.starts_with('-') || piece.starts_with('+')) piece.remove_prefix(1);
    return !piece.empty() && std::all_of(piece.begin(), piece.end(), detail::is_digit);
}

// The integer at the beginning of a piece, 0 when there is none; saturates.
std::int64_t leading_integer(std::string_view piece) {
    std::size_t i = 0;
    const bool negative = !piece.empty() && piece[0] == '-';
    if (negative || (!piece.empty() && piece[0] == '+')) ++i;
    std::int64_t value = 0;
    for (; i < piece.size() && detail::is_digit(piece[i]); ++i) {
        value = std::min<std::int64_t>(value * 10 + (piece[i] - '0'), std::int64_t{1} << 40);
    }
    return negative ? -value : value;
}

// Whether a word is nothing but a number of few digits, as most corners of faces are.
bool is_short_number(std::string_view word, std::int32_t& number) {
    constexpr std::size_t kMostDigits = 9;
    if (word.size() > kMostDigits) return false;
    for (const char c : word) {
        if (!detail::is_digit(c)) return false;
        number = number * 10 + (c - '0');
    }
    return true;
}

struct Corner {
    std::int32_t vertex;  // index, or whatever the file's number less one is
    std::int32_t texture;
};

class ObjParser {
public:
    ObjParser(const ByteSource& source, const std::string& name, const ObjReadOptions& options,
              TriMesh& mesh, ObjInfo& info)
        : source_(source), name_(name), options_(options), mesh_(mesh), info_(info) {}

    Status run() {
        mesh_ = {};
        info_ = {};
        if (options_.strict) {
            each_line(&ObjParser::read_points);
            each_line(&ObjParser::read_faces_late);
        } else {
            each_line(&ObjParser::read_all);
        }
        info_.triangles = mesh_.faces.size();
        if (!failure_.ok()) return failure_;
        compact(mesh_, options_.strict ? TextureDigits::All : TextureDigits::AsInASoup);
        if (mesh_.faces.empty()) {
            return {StatusCode::BadFile,
                    one_line(name_) + ": OBJ that holds no face with three different corners"};
        }
        return {};
    }

private:
    using LineReader = void (ObjParser::*)(std::string_view kind, Words& words);

    void each_line(LineReader reader) {
        constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
        Lines lines(source_);
        std::string_view line;
        for (line_number_ = 1; failure_.ok() && lines.next(line); ++line_number_) {
            poll_at(line_number_);
            offset_ = lines.offset();
            if (line_number_ == 1 && line.starts_with(kByteOrderMark)) {
                line.remove_prefix(kByteOrderMark.size());
            }
            if (is_joined(lines, line)) {
                read_joined(lines, line, reader);
            } else {
                read_line(line, reader);
            }
        }
        if (failure_.ok() && lines.is_too_long()) fail_for_length();
    }

    void read_line(std::string_view line, LineReader reader) {
        Words words(line);
        const std::string_view kind = words.next();
        if (!kind.empty()) (this->*reader)(kind, words);
    }

    static bool is_joined(const Lines& lines, std::string_view line) {
        if (line.ends_with('\r')) line.remove_suffix(1);
        return line.ends_with('\\') && lines.is_ended() && !has_comment(line);
    }

    // Reads lines that end in "\" as one, blanks in the place of the joints.
    void read_joined(Lines& lines, std::string_view line, LineReader reader) {
        std::string joined;
        std::size_t joints = 0;
        bool goes_on = true;
        do {
            if (joined.size() > Lines::kLongestLine) return fail_for_length();
            goes_on = is_joined(lines, line);
            joined.append(line);
            if (goes_on) joined[joined.rfind('\\')] = ' ';
        } while (goes_on && lines.next(line) && ++joints > 0);
        read_line(joined, reader);
        line_number_ += joints;
    }

    void read_all(std::string_view kind, Words& words) {
        read_points(kind, words);
        read_faces(kind, words);
    }

    void read_points(std::string_view kind, Words& words) {
        if (kind == "v") {
            read_vertex(words);
        } else if (kind == "vt") {
            read_texture_coordinate(words);
        }
    }

    void read_faces(std::string_view kind, Words& words) {
        if (kind == "f") {
            read_face(words);
        } else if (kind == "usemtl") {
            ++material_;
        }
    }

    // In the second pass the points only count, as the base of negative numbers.
    void read_faces_late(std::string_view kind, Words& words) {
        if (kind == "v") {
            ++vertices_before_;
        } else if (kind == "vt") {
            ++textures_before_;
        } else {
            read_faces(kind, words);
        }
    }

    void read_vertex(Words& words) {
        if (mesh_.vertices.size() >= kMaxVertexCount) return fail_too_large("vertices");
        Vertex vertex{0, 0, 0, static_cast<std::int32_t>(mesh_.vertices.size())};
        Vec3d colour{1, 1, 1};
        const bool has_position =
            words.number(vertex.x) && words.number(vertex.y) && words.number(vertex.z);
        if (options_.strict && !words.are_whole()) return fail_in_coordinate(words);
        if (has_position && (!options_.strict || words.has_more())) read_colour(words, colour);
        make_room(mesh_.vertices, first_vertex_);
        mesh_.vertices.push_back(vertex);
        make_room(colours_, first_vertex_);
        colours_.push_back({colour_byte(colour.x), colour_byte(colour.y), colour_byte(colour.z)});
        ++info_.vertex_lines;
    }

    // Channels that the line does not have are no fault.
    void read_colour(Words& words, Vec3d& colour) {
        const bool strict = options_.strict;
        if (words.number(colour.x)) {
            info_.has_colours = true;
            if ((!strict || words.has_more()) && words.number(colour.y) &&
                (!strict || words.has_more())) {
                words.number(colour.z);
            }
        }
        if (strict && !words.are_whole()) note(info_.bad_colours);
    }

    void read_texture_coordinate(Words& words) {
        if (mesh_.texture_coordinates.size() >= kMaxVertexCount) {
            return fail_too_large("texture coordinates");
        }
        TextureCoordinate record{0, 0, static_cast<std::int32_t>(info_.texture_lines)};
        if (words.number(record.u) && (!options_.strict || words.has_more()))
            words.number(record.v);
        if (options_.strict && !words.are_whole()) note(info_.bad_textures);
        make_room(mesh_.texture_coordinates, first_texture_);
        mesh_.texture_coordinates.push_back(record);
        ++info_.texture_lines;
    }

    void read_face(Words& words) {
        corners_.clear();
        for (std::string_view word = words.next(); !word.empty(); word = words.next()) {
            if (!read_corner(word)) return;
        }
        if (corners_.size() < 3) {
            if (options_.strict) note(info_.short_faces);
            return;
        }
        ++info_.face_lines;
        if (corners_.size() == 3) {
            add_face(corners_[0], corners_[1], corners_[2]);
        } else {
            ++info_.polygon_lines;
            add_polygon();
        }
    }

    // Appends the corner that a word names, if it has at most three pieces; false when it is bad.
    bool read_corner(std::string_view word) {
        std::int32_t number = 0;
        if (is_short_number(word, number) && is_vertex(number - 1)) {
            corners_.push_back({number - 1, options_.strict ? -1 : as_written({})});
            return true;
        }
        const std::size_t first = word.find('/');
        const std::string_view vertex = word.substr(0, first);
        std::string_view texture;
        if (first != std::string_view::npos) {
            const std::string_view rest = word.substr(first + 1);
            const std::size_t second = rest.find('/');
            texture = rest.substr(0, second);
            if (second != std::string_view::npos &&
                rest.find('/', second + 1) != std::string_view::npos) {
                if (options_.strict) fail_in_line(word, "has more than three parts");
                return !options_.strict;
            }
        }
        Corner corner{0, -1};
        if (!options_.strict) {
            corner = {as_written(vertex), as_written(texture)};
        } else if (!resolve(vertex, word, vertices_before_, mesh_.vertices.size(), "vertex",
                            corner.vertex) ||
                   (!texture.empty() &&
                    !resolve(texture, word, textures_before_, mesh_.texture_coordinates.size(),
                             "texture coordinate", corner.texture))) {
            return false;
        }
        corners_.push_back(corner);
        return true;
    }

    // The number less one; an empty piece has the number -1.
    static std::int32_t as_written(std::string_view piece) {
        const std::int64_t number = piece.empty() ? -1 : leading_integer(piece);
        return static_cast<std::int32_t>(
            std::clamp<std::int64_t>(number - 1, std::numeric_limits<std::int32_t>::min(),
                                     std::numeric_limits<std::int32_t>::max()));
    }

    bool resolve(std::string_view piece, std::string_view word, std::size_t before,
                 std::size_t count, const char* what, std::int32_t& index) {
        const std::int64_t number = leading_integer(piece);
        const std::int64_t place =
            number < 0 ? static_cast<std::int64_t>(before) + number : number - 1;
        if (!is_whole_integer(piece) || number == 0 || place < 0 ||
            place >= static_cast<std::int64_t>(count)) {
            fail_in_line(
                word, std::string("names no ") + what + "; the file has " + std::to_string(count));
            return false;
        }
        index = static_cast<std::int32_t>(place);
        return true;
    }

    bool is_vertex(std::int32_t index) const {
        return index >= 0 && static_cast<std::size_t>(index) < mesh_.vertices.size();
    }

    void add_face(const Corner& a, const Corner& b, const Corner& c) {
        if (mesh_.faces.size() >= kMaxFaceCount) return fail_too_large("triangles");
        Face face{};
        face.vertex = {a.vertex, b.vertex, c.vertex};
        face.uv = {a.texture, b.texture, c.texture};
        const bool is_textured = a.texture >= 0 && b.texture >= 0 && c.texture >= 0;
        // A label has 16 bits.
        face.label = is_textured ? static_cast<std::int16_t>(static_cast<std::uint16_t>(material_))
                                 : std::int16_t{-1};
        for (std::size_t i = 0; i < 3; ++i) {
            const auto colour = is_vertex(face.vertex[i])
                                    ? colours_[static_cast<std::size_t>(face.vertex[i])]
                                    : Colour{255, 255, 255};
            std::copy(colour.begin(), colour.end(), face.colour.begin() + 3 * i);
        }
        make_room(mesh_.faces, first_face_);
        mesh_.faces.push_back(face);
    }

    void add_polygon() {
        points_.clear();
        for (const Corner& corner : corners_) {
            if (!is_vertex(corner.vertex)) throw std::out_of_range("invalid vector<T> subscript");
            points_.push_back(
                to_double(mesh_.vertices[static_cast<std::size_t>(corner.vertex)].position()));
        }
        leave_out_repeated(points_, corners_);
        for (const auto& [a, b, c] : triangulator_.triangulate(points_)) {
            add_face(corners_[a], corners_[b], corners_[c]);
        }
    }

    // Makes room for one more record: if there is none, for as many as the text will hold if it
    // goes on as it has since the first of them. Memory that growing leaves behind is as dear as
    // parsing; what is reserved but not reached costs nothing.
    template <typename T>
    void make_room(Array<T>& records, std::uint64_t& first) const {
        if (records.size() < records.capacity()) return;
        constexpr std::size_t kFewest = 1024;
        if (records.empty()) {
            first = offset_;
            return records.reserve(kFewest);
        }
        const auto count = static_cast<double>(records.size());
        const double share = static_cast<double>(offset_ - first) /
                             static_cast<double>(std::max(source_.size, offset_) - first + 1);
        // The guess may be far off where the text changes.
        const double guess = std::clamp(count * 1.02 / share, count * 1.25, count * 8.0);
        records.reserve(static_cast<std::size_t>(guess) + kFewest);
    }

    void note(ObjLines& lines) const {
        if (lines.count++ == 0) lines.first = line_number_;
    }

    void fail_in_line(std::string_view word, const std::string& what) {
        constexpr std::size_t kEnough = 20;
        failure_ = {StatusCode::BadFile, one_line(name_) + ": line " +
                                             std::to_string(line_number_) + ": \"" +
                                             one_line(word.substr(0, kEnough)) + "\" " + what};
    }

    void fail_for_length() {
        failure_ = {StatusCode::BadFile, one_line(name_) + ": line " +
                                             std::to_string(line_number_) + ": " +
                                             std::string(Lines::kTooLong)};
    }

    void fail_in_coordinate(const Words& words) {
        const std::string_view word = words.bad_word();
        if (word.empty()) return fail_in_line("v", "has fewer than three numbers");
        const bool has_comma = word.find(',') != std::string_view::npos;
        fail_in_line(word, has_comma ? "is not a decimal number; write a point instead of the comma"
                                     : "is not a decimal number");
    }

    void fail_too_large(const char* what) {
        failure_ = {StatusCode::TooLarge, one_line(name_) + ": line " +
                                              std::to_string(line_number_) + ": too many " + what +
                                              "; divide the model"};
    }

    using Colour = std::array<std::uint8_t, 3>;

    const ByteSource& source_;
    const std::string& name_;
    const ObjReadOptions& options_;
    TriMesh& mesh_;
    ObjInfo& info_;
    Status failure_;
    std::size_t line_number_ = 0;
    std::uint64_t offset_ = 0;  // where the line ends
    std::uint64_t first_vertex_ = 0;
    std::uint64_t first_texture_ = 0;
    std::uint64_t first_face_ = 0;
    std::size_t vertices_before_ = 0;
    std::size_t textures_before_ = 0;
    std::uint32_t material_ = 0xFFFFFFFF;  // -1; wraps as the label does
    Array<Colour> colours_;                // of every vertex
    std::vector<Corner> corners_;          // of the face at hand
    std::vector<Vec3d> points_;
    PolygonTriangulator triangulator_;
};

}  // namespace

Status read_obj(const ByteSource& source, const std::string& name, const ObjReadOptions& options,
                TriMesh& mesh, ObjInfo& info) {
    return ObjParser(source, name, options, mesh, info).run();
}

Status parse_obj(std::string_view text, const std::string& name, const ObjReadOptions& options,
                 TriMesh& mesh, ObjInfo& info) {
    return read_obj(bytes_of(std::span<const char>(text)), name, options, mesh, info);
}

Status read_obj(const std::string& path, const ObjReadOptions& options, TriMesh& mesh,
                ObjInfo& info) {
    InputFile file;
    Status status = file.open(path);
    if (!status.ok()) return status;
    return read_obj(bytes_of(file), path, options, mesh, info);
}

Status read_obj(const std::string& path, TriMesh& mesh) {
    ObjInfo info;
    return read_obj(path, {}, mesh, info);
}

}  // namespace povmesh
