// Works on the whole text in memory, a line at a time. With resolved indices, vertices and texture
// coordinates are read in a first pass, so that a face can name any of them.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "base/convert.h"
#include "io/decimal.h"
#include "io/file.h"
#include "io/obj.h"
#include "io/polygon.h"
#include "mesh/compact.h"

namespace povmesh {
namespace {

// Corners of a polygon this close to the one before, in every coordinate, are left out.
constexpr double kSamePoint = 1e-6;

constexpr std::size_t kMaxVertexCount = std::numeric_limits<std::int32_t>::max();

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

/// The words of one line.
class Words {
public:
    Words(const char* first, const char* last) : p_(first), last_(last) {}

    /// The next word, empty at the end of the line or at a comment.
    std::string_view next() {
        while (p_ != last_ && is_blank(*p_)) ++p_;
        if (p_ == last_ || *p_ == '#') {
            p_ = last_;
            return {};
        }
        const char* const begin = p_;
        while (p_ != last_ && !is_blank(*p_)) ++p_;
        return {begin, static_cast<std::size_t>(p_ - begin)};
    }

    /// Reads the next word as a number; false, and no more numbers, when it is none.
    bool number(double& value) {
        while (p_ != last_ && is_blank(*p_)) ++p_;
        const char* const end = parse_decimal(p_, last_, value);
        if (end == nullptr) {
            p_ = last_;
            return false;
        }
        number_ = {p_, static_cast<std::size_t>(end - p_)};
        p_ = end;
        while (p_ != last_ && !is_blank(*p_)) ++p_;
        return true;
    }

    /// The same as the nearest float.
    bool number(float& value) {
        double wide = 0;
        if (!number(wide)) return false;
        value = narrow_to_float(wide);
        // Half way between two floats the digits beyond the double decide.
        std::uint64_t bits = 0;
        std::memcpy(&bits, &wide, sizeof bits);
        if ((bits & 0x1FFFFFFF) == 0x10000000) {
            std::string_view digits = number_;
            if (digits.front() == '+') digits.remove_prefix(1);
            float exact = 0;
            const auto [end, error] =
                std::from_chars(digits.data(), digits.data() + digits.size(), exact);
            if (error == std::errc{}) value = exact;
        }
        return true;
    }

private:
    const char* p_;
    const char* last_;
    std::string_view number_;
};

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

struct Corner {
    std::int32_t vertex;  // index, or whatever the file's number less one is
    std::int32_t texture;
};

std::uint8_t colour_byte(double channel) {
    const double scaled = channel * 255.0;
    if (!(std::abs(scaled) < 0x1p63)) return 0;
    return static_cast<std::uint8_t>(static_cast<std::int64_t>(scaled));
}

class ObjParser {
public:
    ObjParser(std::string_view text, const std::string& name, const ObjReadOptions& options,
              TriMesh& mesh, ObjInfo& info)
        : text_(text), name_(name), options_(options), mesh_(mesh), info_(info) {}

    Status run() {
        mesh_ = {};
        info_ = {};
        constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
        if (text_.starts_with(kByteOrderMark)) text_.remove_prefix(kByteOrderMark.size());
        if (options_.resolve_indices) {
            each_line(&ObjParser::read_points);
            each_line(&ObjParser::read_faces_late);
        } else {
            each_line(&ObjParser::read_all);
        }
        info_.triangles = mesh_.faces.size();
        if (!failure_.ok()) return failure_;
        compact(mesh_);
        if (mesh_.faces.empty()) {
            return {StatusCode::BadFile,
                    one_line(name_) + ": OBJ that holds no face with three different corners"};
        }
        return {};
    }

private:
    using LineReader = void (ObjParser::*)(std::string_view kind, Words& words);

    void each_line(LineReader reader) {
        line_number_ = 0;
        const char* p = text_.data();
        const char* const last = p + text_.size();
        while (p != last && failure_.ok()) {
            ++line_number_;
            const char* end = line_end(p, last);
            if (end != last && is_joined(p, end)) {
                p = read_joined(p, last, reader);
                continue;
            }
            Words words(p, end);
            const std::string_view kind = words.next();
            if (!kind.empty()) (this->*reader)(kind, words);
            p = end == last ? last : end + 1;
        }
    }

    static const char* line_end(const char* p, const char* last) {
        const void* end = std::memchr(p, '\n', static_cast<std::size_t>(last - p));
        return end == nullptr ? last : static_cast<const char*>(end);
    }

    static bool is_joined(const char* p, const char* end) {
        if (end != p && end[-1] == '\r') --end;
        return end != p && end[-1] == '\\';
    }

    // Reads lines that end in "\" as one, blanks in the place of the joints; returns where the next begins.
    const char* read_joined(const char* p, const char* last, LineReader reader) {
        std::string line;
        std::size_t joints = 0;
        while (true) {
            const char* const end = line_end(p, last);
            const bool goes_on = end != last && is_joined(p, end);
            line.append(p, end);
            if (goes_on) line[line.rfind('\\')] = ' ';
            p = end == last ? last : end + 1;
            if (!goes_on || p == last) break;
            ++joints;
        }
        Words words(line.data(), line.data() + line.size());
        const std::string_view kind = words.next();
        if (!kind.empty()) (this->*reader)(kind, words);
        line_number_ += joints;
        return p;
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
        if (words.number(vertex.x) && words.number(vertex.y) && words.number(vertex.z) &&
            words.number(colour.x)) {
            info_.has_colours = true;
            if (words.number(colour.y)) words.number(colour.z);
        }
        mesh_.vertices.push_back(vertex);
        colours_.push_back({colour_byte(colour.x), colour_byte(colour.y), colour_byte(colour.z)});
        ++info_.vertex_lines;
    }

    void read_texture_coordinate(Words& words) {
        if (mesh_.texture_coordinates.size() >= kMaxVertexCount) {
            return fail_too_large("texture coordinates");
        }
        TextureCoordinate record{0, 0, static_cast<std::int32_t>(info_.texture_lines)};
        if (words.number(record.u)) words.number(record.v);
        mesh_.texture_coordinates.push_back(record);
        ++info_.texture_lines;
    }

    void read_face(Words& words) {
        corners_.clear();
        for (std::string_view word = words.next(); !word.empty(); word = words.next()) {
            if (!read_corner(word)) return;
        }
        if (corners_.size() < 3) return;
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
        const std::size_t first = word.find('/');
        const std::string_view vertex = word.substr(0, first);
        std::string_view texture;
        if (first != std::string_view::npos) {
            const std::string_view rest = word.substr(first + 1);
            const std::size_t second = rest.find('/');
            texture = rest.substr(0, second);
            if (second != std::string_view::npos &&
                rest.find('/', second + 1) != std::string_view::npos) {
                return true;
            }
        }
        Corner corner{};
        if (!options_.resolve_indices) {
            corner = {as_written(vertex), as_written(texture)};
        } else if (!resolve(vertex, word, vertices_before_, mesh_.vertices.size(), "vertex",
                            corner.vertex)) {
            return false;
        } else if (texture.empty()) {
            corner.texture = -1;
        } else if (!resolve(texture, word, textures_before_, mesh_.texture_coordinates.size(),
                            "texture coordinate", corner.texture)) {
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
        if (number == 0 || place < 0 || place >= static_cast<std::int64_t>(count)) {
            failure_ = {StatusCode::BadFile, one_line(name_) + ": line " +
                                                 std::to_string(line_number_) + ": \"" +
                                                 one_line(word) + "\" names no " + what +
                                                 "; the file has " + std::to_string(count)};
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
        mesh_.faces.push_back(face);
    }

    void add_polygon() {
        points_.clear();
        std::size_t kept = 0;
        for (const Corner& corner : corners_) {
            if (!is_vertex(corner.vertex)) throw std::out_of_range("invalid vector<T> subscript");
            const Vec3d point =
                to_double(mesh_.vertices[static_cast<std::size_t>(corner.vertex)].position());
            if (kept > 0 && is_same_point(points_.back(), point)) continue;
            points_.push_back(point);
            corners_[kept++] = corner;
        }
        for (const auto& [a, b, c] : triangulator_.triangulate(points_)) {
            add_face(corners_[a], corners_[b], corners_[c]);
        }
    }

    static bool is_same_point(Vec3d a, Vec3d b) {
        return std::abs(a.x - b.x) <= kSamePoint && std::abs(a.y - b.y) <= kSamePoint &&
               std::abs(a.z - b.z) <= kSamePoint;
    }

    void fail_too_large(const char* what) {
        failure_ = {StatusCode::TooLarge, one_line(name_) + ": line " +
                                              std::to_string(line_number_) + ": too many " + what +
                                              "; divide the model"};
    }

    using Colour = std::array<std::uint8_t, 3>;

    std::string_view text_;
    const std::string& name_;
    const ObjReadOptions& options_;
    TriMesh& mesh_;
    ObjInfo& info_;
    Status failure_;
    std::size_t line_number_ = 0;
    std::size_t vertices_before_ = 0;
    std::size_t textures_before_ = 0;
    std::uint32_t material_ = 0xFFFFFFFF;  // -1; wraps as the label does
    Array<Colour> colours_;                // of every vertex
    std::vector<Corner> corners_;          // of the face at hand
    std::vector<Vec3d> points_;
    PolygonTriangulator triangulator_;
};

}  // namespace

Status parse_obj(std::string_view text, const std::string& name, const ObjReadOptions& options,
                 TriMesh& mesh, ObjInfo& info) {
    return ObjParser(text, name, options, mesh, info).run();
}

Status read_obj(const std::string& path, const ObjReadOptions& options, TriMesh& mesh,
                ObjInfo& info) {
    InputFile file;
    Status status = file.open(path);
    if (!status.ok()) return status;
    const Array<char> text = file.read_all();
    return parse_obj({text.data(), text.size()}, path, options, mesh, info);
}

Status read_obj(const std::string& path, TriMesh& mesh) {
    ObjInfo info;
    return read_obj(path, {}, mesh, info);
}

}  // namespace povmesh
