// One pass over the rows; the vertices stand before the faces that name them.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>
#include <vector>

#include "base/convert.h"
#include "io/file.h"
#include "io/ply.h"
#include "io/ply_header.h"
#include "io/ply_rows.h"
#include "io/polygon.h"
#include "mesh/compact.h"
#include "mesh/vertex_welder.h"

namespace povmesh {
namespace {

constexpr std::size_t kMaxVertexCount = std::numeric_limits<std::int32_t>::max();

struct Corner {
    std::int32_t vertex;
    std::int32_t texture;
};

using Rgb = std::array<std::uint8_t, 3>;
constexpr Rgb kWhite = {255, 255, 255};

constexpr double kNoNumber = -2;  // of a face without "texnumber"

// Channels of 8 bits are by far the most frequent, also under wider integer types.
std::uint8_t channel_byte(PlyType type, double value) {
    double scaled = value;
    if (type >= PlyType::Float32) scaled = value * 255.0;
    if (type == PlyType::UInt16) scaled = value / 257.0;
    return saturate_to<std::uint8_t>(std::clamp(scaled, 0.0, 255.0) + 0.5);
}

std::size_t channel_of(PlyRole role) {
    return static_cast<std::size_t>(role) - static_cast<std::size_t>(PlyRole::Red);
}

bool is_colour(PlyRole role) {
    return role == PlyRole::Red || role == PlyRole::Green || role == PlyRole::Blue;
}

bool has_colours(const PlyElement& element) {
    return element.has(PlyRole::Red) && element.has(PlyRole::Green) && element.has(PlyRole::Blue);
}

// Programs compute normals from the corners, and nothing here is transparent.
bool is_missed(const PlyProperty& property) {
    static constexpr std::string_view kNotMissed[] = {"nx", "ny", "nz", "alpha"};
    return property.role == PlyRole::None && std::find(std::begin(kNotMissed), std::end(kNotMissed),
                                                       property.name) == std::end(kNotMissed);
}

template <typename Rows>
class PlyParser {
public:
    PlyParser(Rows& rows, const ByteSource& source, const std::string& name,
              const PlyHeader& header, TriMesh& mesh, PlyInfo& info)
        : rows_(rows), source_(source), name_(name), header_(header), mesh_(mesh), info_(info) {}

    Status run() {
        for (const PlyElement& element : header_.elements) {
            bool is_read = true;
            switch (element.kind) {
                case PlyElement::Kind::Vertices:
                    is_read = read_vertices(element);
                    break;
                case PlyElement::Kind::Faces:
                    is_read = read_faces(element);
                    break;
                case PlyElement::Kind::Strips:
                    is_read = read_strips(element);
                    break;
                default:
                    info_.left_out.push_back("element " + one_line(element.name));
                    is_read = skip_rows(element);
            }
            info_.triangles = mesh_.faces.size();
            if (!is_read) return failure(element);
        }
        info_.trailing_bytes = rows_.rest();
        compact(mesh_, TextureDigits::AllThatAreThere);
        if (!mesh_.faces.empty()) return {};
        return bad("PLY that holds no face with three different corners" +
                   std::string(info_.vertices > 0 && info_.triangles == 0
                                   ? "; it is a cloud of points, make a surface of it first"
                                   : ""));
    }

private:
    Status bad(const std::string& what) const {
        return {StatusCode::BadFile, one_line(name_) + ": " + what};
    }

    Status failure(const PlyElement& element) const {
        if (is_too_large_) {
            return {StatusCode::TooLarge, one_line(name_) + ": more of element " +
                                              one_line(element.name) +
                                              " than a mesh can number; divide the model"};
        }
        const std::string& what = trouble_.empty() ? rows_.trouble() : trouble_;
        return bad(what + ", in row " + std::to_string(row_ + 1) + " of the " +
                   std::to_string(element.count) + " of element " + one_line(element.name));
    }

    // Rows that the source has room for: at least a byte for each number, in a text a blank too.
    std::size_t believable(const PlyElement& element) const {
        std::size_t least = 0;
        for (const PlyProperty& property : element.properties) {
            least += header_.form == PlyForm::Ascii ? 2 : property.least_bytes();
        }
        return static_cast<std::size_t>(
            std::min(element.count, source_.size / std::max<std::size_t>(least, 1) + 1));
    }

    // Calls `take(property)` for every property that means something and skips the others.
    template <typename Take>
    bool read_row(const PlyElement& element, Take&& take) {
        if (!rows_.begin_row()) return false;
        for (const PlyProperty& property : element.properties) {
            if (property.role != PlyRole::None ? !take(property) : !skip(property)) return false;
        }
        return rows_.end_row();
    }

    bool skip(const PlyProperty& property) {
        std::uint64_t count = 1;
        if (property.is_list && !rows_.list_count(property.count_type, property.type, count)) {
            return false;
        }
        return rows_.skip(property.type, count);
    }

    bool skip_rows(const PlyElement& element) {
        if (element.properties.empty()) return true;
        std::uint64_t row_bytes = 0;
        bool has_lists = false;
        for (const PlyProperty& property : element.properties) {
            row_bytes += size_of(property.type);
            has_lists |= property.is_list;
        }
        if (!has_lists && rows_.skip_rows(row_bytes, element.count)) return true;
        for (row_ = 0; row_ < element.count; ++row_) {
            if (!read_row(element, [](const PlyProperty& /*none*/) { return true; })) return false;
        }
        return true;
    }

    void note_missed(const PlyElement& element) {
        for (const PlyProperty& property : element.properties) {
            if (!is_missed(property)) continue;
            info_.left_out.push_back(element.name + " " + one_line(property.name));
        }
    }

    bool read_vertices(const PlyElement& element) {
        note_missed(element);
        if (element.count > kMaxVertexCount) return fail_too_large();
        const bool with_colours = has_colours(element);
        const bool with_textures = element.has(PlyRole::U) && element.has(PlyRole::V);
        // With the room in which `compact` welds them, so that it takes no other block.
        mesh_.vertices.reserve(believable(element) + VertexWelder::kBlock);
        if (with_colours) colours_.reserve(believable(element));
        if (with_textures) mesh_.texture_coordinates.reserve(believable(element));
        const bool is_plain = is_three_floats(element);
        for (row_ = 0; row_ < element.count; ++row_) {
            const auto index = static_cast<std::int32_t>(row_);
            if (std::array<float, 3> p; is_plain && rows_.take_point(p)) {
                mesh_.vertices.push_back({p[0], p[1], p[2], index});
                continue;
            }
            Vertex vertex{0, 0, 0, index};
            TextureCoordinate texture{0, 0, index};
            Rgb colour = kWhite;
            const auto take = [&](const PlyProperty& property) {
                switch (property.role) {
                    case PlyRole::X:
                        return rows_.coordinate(property.type, vertex.x);
                    case PlyRole::Y:
                        return rows_.coordinate(property.type, vertex.y);
                    case PlyRole::Z:
                        return rows_.coordinate(property.type, vertex.z);
                    case PlyRole::U:
                        return rows_.number(property.type, texture.u);
                    case PlyRole::V:
                        return rows_.number(property.type, texture.v);
                    default:
                        return read_channel(property, colour);
                }
            };
            if (!read_row(element, take)) return false;
            mesh_.vertices.push_back(vertex);
            if (with_colours) colours_.push_back(colour);
            if (with_textures) mesh_.texture_coordinates.push_back(texture);
        }
        info_.vertices = mesh_.vertices.size();
        info_.has_colours = with_colours;
        has_vertex_textures_ = with_textures;
        info_.has_textures = with_textures;
        return true;
    }

    static bool is_three_floats(const PlyElement& element) {
        constexpr std::array kRoles = {PlyRole::X, PlyRole::Y, PlyRole::Z};
        return std::equal(element.properties.begin(), element.properties.end(), kRoles.begin(),
                          kRoles.end(), [](const PlyProperty& property, PlyRole role) {
                              return property.role == role && property.type == PlyType::Float32;
                          });
    }

    bool read_channel(const PlyProperty& property, Rgb& colour) {
        double value = 0;
        if (!rows_.number(property.type, value)) return false;
        if (is_colour(property.role)) {
            colour[channel_of(property.role)] = channel_byte(property.type, value);
        }
        return true;
    }

    bool read_faces(const PlyElement& element) {
        note_missed(element);
        const bool with_colours = has_colours(element) && !info_.has_colours;
        info_.has_face_colours = has_colours(element) && info_.has_colours;
        const bool with_textures = element.has(PlyRole::TextureCorners);
        mesh_.faces.reserve(std::min(believable(element), kMaxFaceCount));
        const bool is_plain = is_list_of_corners(element);
        for (row_ = 0; row_ < element.count; ++row_) {
            if (is_plain && take_plain_face()) continue;
            Rgb colour = kWhite;
            double texture_number = kNoNumber;
            corners_.clear();
            texture_corners_.clear();
            const std::uint64_t place = rows_.place();
            const auto take = [&](const PlyProperty& property) {
                switch (property.role) {
                    case PlyRole::Corners:
                        return read_corners(property);
                    case PlyRole::TextureCorners:
                        return read_texture_corners(property);
                    case PlyRole::TextureNumber:
                        return rows_.number(property.type, texture_number);
                    default:
                        return read_channel(property, colour);
                }
            };
            if (!read_row(element, take) || !read_label(texture_number)) return false;
            if (corners_.size() < 3) {
                if (info_.short_faces++ == 0) info_.first_short = place_of_row(place);
                continue;
            }
            face_colour_ = with_colours ? &colour : nullptr;
            if (!add_face()) return false;
        }
        info_.faces = static_cast<std::size_t>(element.count);
        info_.has_colours |= with_colours;
        info_.has_textures |= with_textures;
        return true;
    }

    static bool is_list_of_corners(const PlyElement& element) {
        if (element.properties.size() != 1) return false;
        const PlyProperty& property = element.properties.front();
        return property.role == PlyRole::Corners &&
               (property.count_type == PlyType::UInt8 || property.count_type == PlyType::Int8) &&
               (property.type == PlyType::UInt32 || property.type == PlyType::Int32);
    }

    // Takes the next row if it is a sound triangle and there is nothing else to know about it.
    bool take_plain_face() {
        std::array<std::uint32_t, 3> corners;
        if (mesh_.faces.size() >= kMaxFaceCount || !rows_.take_triangle(corners)) return false;
        if (std::max({corners[0], corners[1], corners[2]}) >= info_.vertices) {
            rows_.give_back_triangle();
            return false;
        }
        if (colours_.empty() && !has_vertex_textures_) {
            Face face{{255, 255, 255, 255, 255, 255, 255, 255, 255}, 0, -1, {}, {-1, -1, -1}};
            std::memcpy(face.vertex.data(), corners.data(), sizeof corners);
            mesh_.faces.push_back(face);
            return true;
        }
        face_colour_ = nullptr;
        label_ = has_vertex_textures_ ? std::int16_t{0} : std::int16_t{-1};
        return add_triangle(corner_at(static_cast<std::int32_t>(corners[0])),
                            corner_at(static_cast<std::int32_t>(corners[1])),
                            corner_at(static_cast<std::int32_t>(corners[2])));
    }

    // Of a text the line that was read, of a binary file where the row began.
    std::uint64_t place_of_row(std::uint64_t before) const {
        return header_.form == PlyForm::Ascii ? rows_.place() : before;
    }

    // The next number as a vertex of the file; -1 is one too where `may_restart`.
    bool read_corner(PlyType type, bool may_restart, std::int32_t& vertex) {
        const std::uint64_t place = rows_.place();
        double index = 0;
        if (!rows_.number(type, index)) return false;
        if (index >= (may_restart ? -1 : 0) && index < static_cast<double>(info_.vertices) &&
            index == std::floor(index)) {
            vertex = static_cast<std::int32_t>(index);
            return true;
        }
        trouble_ = Rows::place_text(place) + ": a corner names vertex " +
                   std::to_string(saturate_to<std::int64_t>(index)) + "; the file has " +
                   std::to_string(info_.vertices) + ", counted from 0";
        return false;
    }

    Corner corner_at(std::int32_t vertex) const {
        return {vertex, has_vertex_textures_ ? vertex : -1};
    }

    bool read_corners(const PlyProperty& property) {
        std::uint64_t count = 0;
        if (!rows_.list_count(property.count_type, property.type, count)) return false;
        for (std::uint64_t i = 0; i < count; ++i) {
            std::int32_t vertex = 0;
            if (!read_corner(property.type, false, vertex)) return false;
            corners_.push_back(corner_at(vertex));
        }
        return true;
    }

    bool read_texture_corners(const PlyProperty& property) {
        std::uint64_t count = 0;
        if (!rows_.list_count(property.count_type, property.type, count)) return false;
        for (std::uint64_t i = 0; i < count; ++i) {
            double value = 0;
            if (!rows_.number(property.type, value)) return false;
            texture_corners_.push_back(value);
        }
        return true;
    }

    // Of a face whose corners are known. One without a number has texture 0 if it has any.
    bool read_label(double texture_number) {
        if (texture_number == kNoNumber) {
            label_ = has_vertex_textures_ || !texture_corners_.empty() ? 0 : -1;
            return true;
        }
        if (texture_number >= -1 && texture_number <= std::numeric_limits<std::int16_t>::max()) {
            label_ = static_cast<std::int16_t>(texture_number);
            return true;
        }
        trouble_ = Rows::place_text(rows_.place()) + ": texnumber is not from -1 to 32767";
        return false;
    }

    // Makes the triangles of the corners at hand.
    bool add_face() {
        if (!texture_corners_.empty()) {
            if (texture_corners_.size() != corners_.size() * 2) {
                trouble_ = Rows::place_text(rows_.place()) + ": texcoord has " +
                           std::to_string(texture_corners_.size()) + " numbers for " +
                           std::to_string(corners_.size()) + " corners";
                return false;
            }
            if (mesh_.texture_coordinates.size() + corners_.size() > kMaxVertexCount) {
                return fail_too_large();
            }
            for (std::size_t i = 0; i < corners_.size(); ++i) {
                corners_[i].texture = static_cast<std::int32_t>(mesh_.texture_coordinates.size());
                mesh_.texture_coordinates.push_back(
                    {texture_corners_[2 * i], texture_corners_[2 * i + 1], corners_[i].texture});
            }
        }
        if (corners_.size() == 3) return add_triangle(corners_[0], corners_[1], corners_[2]);
        points_.clear();
        for (const Corner& corner : corners_) {
            points_.push_back(
                to_double(mesh_.vertices[static_cast<std::size_t>(corner.vertex)].position()));
        }
        leave_out_repeated(points_, corners_);
        for (const auto& [a, b, c] : triangulator_.triangulate(points_)) {
            if (!add_triangle(corners_[a], corners_[b], corners_[c])) return false;
        }
        return true;
    }

    bool add_triangle(const Corner& a, const Corner& b, const Corner& c) {
        if (mesh_.faces.size() >= kMaxFaceCount) return fail_too_large();
        Face face{};
        face.vertex = {a.vertex, b.vertex, c.vertex};
        face.uv = {a.texture, b.texture, c.texture};
        face.label = label_;
        for (std::size_t i = 0; i < 3; ++i) {
            const Rgb& colour = face_colour_ != nullptr ? *face_colour_
                                : colours_.empty()
                                    ? kWhite
                                    : colours_[static_cast<std::size_t>(face.vertex[i])];
            std::copy(colour.begin(), colour.end(), face.colour.begin() + 3 * i);
        }
        mesh_.faces.push_back(face);
        return true;
    }

    // Each corner from the third on makes a triangle with the two before it, every other one turned
    // over; -1 begins anew.
    bool read_strips(const PlyElement& element) {
        note_missed(element);
        label_ = has_vertex_textures_ ? std::int16_t{0} : std::int16_t{-1};
        for (row_ = 0; row_ < element.count; ++row_) {
            const auto take = [&](const PlyProperty& property) { return read_strip(property); };
            if (!read_row(element, take)) return false;
        }
        return true;
    }

    bool read_strip(const PlyProperty& property) {
        std::uint64_t count = 0;
        if (!rows_.list_count(property.count_type, property.type, count)) return false;
        corners_.clear();
        for (std::uint64_t i = 0; i < count; ++i) {
            std::int32_t vertex = 0;
            if (!read_corner(property.type, true, vertex)) return false;
            if (vertex < 0) {
                corners_.clear();
                continue;
            }
            corners_.push_back(corner_at(vertex));
            const std::size_t n = corners_.size();
            if (n < 3) continue;
            const std::size_t turn = n % 2 == 1 ? 0 : 1;
            if (!add_triangle(corners_[n - 3 + turn], corners_[n - 2 - turn], corners_[n - 1])) {
                return false;
            }
        }
        return true;
    }

    bool fail_too_large() {
        is_too_large_ = true;
        return false;
    }

    Rows& rows_;
    const ByteSource& source_;
    const std::string& name_;
    const PlyHeader& header_;
    TriMesh& mesh_;
    PlyInfo& info_;
    std::string trouble_;
    bool is_too_large_ = false;
    bool has_vertex_textures_ = false;
    std::uint64_t row_ = 0;
    Array<Rgb> colours_;  // of every vertex, or none
    // Of the face at hand:
    const Rgb* face_colour_ = nullptr;
    std::int16_t label_ = -1;
    std::vector<Corner> corners_;
    std::vector<double> texture_corners_;
    std::vector<Vec3d> points_;
    PolygonTriangulator triangulator_;
};

template <typename Rows>
Status read_rows(Rows& rows, const ByteSource& source, const std::string& name,
                 const PlyHeader& header, TriMesh& mesh, PlyInfo& info) {
    return PlyParser<Rows>(rows, source, name, header, mesh, info).run();
}

}  // namespace

Status read_ply(const ByteSource& source, const std::string& name, TriMesh& mesh, PlyInfo& info) {
    mesh = {};
    info = {};
    Lines lines(source);
    PlyHeader header;
    Status status = read_ply_header(lines, name, header);
    if (!status.ok()) return status;
    info.form = header.form;
    info.texture_files = header.texture_files;
    if (header.form == PlyForm::Ascii) {
        AsciiPlyRows rows(lines, header.lines);
        return read_rows(rows, source, name, header, mesh, info);
    }
    BinaryPlyRows rows(source, lines.offset(), header.form == PlyForm::BigEndian);
    return read_rows(rows, source, name, header, mesh, info);
}

Status read_ply(const std::string& path, TriMesh& mesh, PlyInfo& info) {
    InputFile file;
    Status status = file.open(path);
    if (!status.ok()) return status;
    return read_ply(bytes_of(file), path, mesh, info);
}

}  // namespace povmesh
