// The text of the model is made in pieces as the archive asks for them.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <tuple>

#include "base/convert.h"
#include "io/file.h"
#include "io/three_mf.h"
#include "io/zip_package.h"
#include "mesh/weld_table.h"

namespace povmesh {
namespace {

constexpr std::size_t kPieceBytes = std::size_t{1} << 18;
constexpr std::size_t kLongestElement = 512;  // bytes of a vertex, a triangle, a coordinate

// Upper bounds on bytes of text, by which it is known whether 32 bits will do.
constexpr std::uint64_t kBytesPerVertex = 96;
constexpr std::uint64_t kBytesPerTriangle = 320;

std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            default:
                result += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
        }
    }
    return result;
}

bool is_written(const TriMesh& mesh, const Face& face) {
    return face.deleted == 0 &&
           std::all_of(face.vertex.begin(), face.vertex.end(), [&](std::int32_t v) {
               return v >= 0 && static_cast<std::size_t>(v) < mesh.vertices.size();
           });
}

bool has_label(const ThreeMfContent& content, const Face& face) {
    return face.label >= 0 && static_cast<std::size_t>(face.label) < content.labels.size();
}

std::string_view extension_of_part(std::string_view path) {
    const std::size_t point = path.rfind('.');
    if (point == std::string_view::npos) return "bin";
    const std::string_view extension = path.substr(point + 1);
    const bool is_plain = std::all_of(extension.begin(), extension.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    });
    return is_plain && !extension.empty() ? extension : "bin";
}

// Where a texture stands in the package: where it stood if that is a folder for textures and no
// other has the place, so that none takes that of the model.
std::string part_of_texture(const ThreeMfContent& content, std::size_t texture) {
    constexpr std::string_view kFolder = "/3D/Textures/";
    const std::string& path = content.textures[texture].path;
    const bool is_alone =
        std::count_if(content.textures.begin(), content.textures.end(),
                      [&](const TextureFile& other) { return other.path == path; }) == 1;
    if (is_alone && path.starts_with(kFolder) && path.size() > kFolder.size() &&
        path.find("..") == std::string::npos && path.back() != '/') {
        return path;
    }
    return std::string(kFolder) + "texture_" + std::to_string(texture) + "." +
           std::string(extension_of_part(path));
}

/// Faces by body, and what belongs to them: everything that the text is made of.
class ModelText {
public:
    ModelText(const TriMesh& mesh, const ThreeMfContent& content)
        : mesh_(mesh), content_(content), numbers_(mesh.vertices.size(), 0) {
        group_faces();
        number_colours();
        number_texture_points();
        buffer_.resize(
            static_cast<std::size_t>(std::min<std::uint64_t>(about_bytes(), kPieceBytes)));
    }

    std::uint64_t about_bytes() const {
        return 65536 + kBytesPerVertex * (order_.size() * 3) + kBytesPerTriangle * order_.size();
    }

    /// The textures that are used.
    std::vector<std::size_t> textures() const {
        std::vector<std::size_t> used;
        for (std::size_t t = 0; t < points_of_.size(); ++t) {
            if (points_of_[t] > 0) used.push_back(t);
        }
        return used;
    }

    std::span<const char> next() {
        used_ = 0;
        while (used_ + kLongestElement < buffer_.size()) {
            if (!head_.empty()) {
                const std::size_t count = std::min(head_.size(), buffer_.size() - used_);
                std::memcpy(buffer_.data() + used_, head_.data(), count);
                used_ += count;
                head_.erase(0, count);
            } else if (!step()) {
                break;
            }
        }
        return {buffer_.data(), used_};
    }

private:
    enum class Stage {
        Begin,
        Colours,
        TexturePoints,
        Object,
        Vertices,
        Triangles,
        ObjectEnd,
        Build,
        End
    };

    std::size_t body_of(const Face& face) const {
        return is_divided_ ? content_.labels[static_cast<std::size_t>(face.label)].body : 0;
    }

    void group_faces() {
        is_divided_ = keeps_bodies(mesh_, content_);
        order_ = three_mf_order(mesh_, content_);
        for (std::size_t i = 0; i < order_.size(); ++i) {
            const std::size_t body = body_of(mesh_.faces[order_[i]]);
            if (i == 0 || body != bodies_.back()) {
                bodies_.push_back(body);
                starts_.push_back(i);
            }
        }
        starts_.push_back(order_.size());
    }

    int texture_of(const Face& face) const {
        if (!has_label(content_, face)) return -1;
        const int texture = content_.labels[static_cast<std::size_t>(face.label)].texture;
        const bool has_points = std::all_of(face.uv.begin(), face.uv.end(), [&](std::int32_t uv) {
            return uv >= 0 && static_cast<std::size_t>(uv) < mesh_.texture_coordinates.size();
        });
        if (texture < 0 || !has_points ||
            static_cast<std::size_t>(texture) >= content_.textures.size() ||
            content_.textures[static_cast<std::size_t>(texture)].content.empty()) {
            return -1;
        }
        return texture;
    }

    static std::uint32_t rgb_of(const Face& face, std::size_t corner) {
        const std::uint8_t* const rgb = face.colour.data() + 3 * corner;
        return std::uint32_t{rgb[0]} << 16 | std::uint32_t{rgb[1]} << 8 | std::uint32_t{rgb[2]};
    }

    void number_colours() {
        const bool has_colour = std::any_of(order_.begin(), order_.end(), [&](std::uint32_t f) {
            const auto& c = mesh_.faces[f].colour;
            return std::any_of(c.begin(), c.end(), [](std::uint8_t byte) { return byte != 255; });
        });
        if (!has_colour) return;
        WeldTable table(64);
        corner_colours_.resize(order_.size() * 3);
        for (std::size_t i = 0; i < order_.size(); ++i) {
            for (std::size_t c = 0; c < 3; ++c) {
                const std::uint32_t rgb = rgb_of(mesh_.faces[order_[i]], c);
                table.make_room(colours_.size() + 1);
                const auto next = static_cast<std::int32_t>(colours_.size());
                const std::int32_t number = table.find_or_add(rgb, 0, table.home(rgb, 0), next);
                if (number == next) colours_.push_back(rgb);
                corner_colours_[3 * i + c] = static_cast<std::uint32_t>(number);
            }
        }
    }

    // Texture coordinates by texture; those that are alike stand once.
    void number_texture_points() {
        points_of_.assign(content_.textures.size(), 0);
        if (content_.textures.empty() || mesh_.texture_coordinates.empty()) return;
        Array<std::int32_t> texture_of_record(mesh_.texture_coordinates.size(), -1);
        for (const std::uint32_t f : order_) {
            const Face& face = mesh_.faces[f];
            const int texture = texture_of(face);
            if (texture < 0) continue;
            for (const std::int32_t uv : face.uv) {
                texture_of_record[static_cast<std::size_t>(uv)] = texture;
            }
        }
        for (std::uint32_t i = 0; i < texture_of_record.size(); ++i) {
            if (texture_of_record[i] >= 0) records_.push_back(i);
        }
        const auto is_same = [&](std::uint32_t a, std::uint32_t b) {
            const TextureCoordinate& s = mesh_.texture_coordinates[a];
            const TextureCoordinate& t = mesh_.texture_coordinates[b];
            return std::memcmp(&s.u, &t.u, sizeof s.u) == 0 &&
                   std::memcmp(&s.v, &t.v, sizeof s.v) == 0;
        };
        std::sort(records_.begin(), records_.end(), [&](std::uint32_t a, std::uint32_t b) {
            const TextureCoordinate& s = mesh_.texture_coordinates[a];
            const TextureCoordinate& t = mesh_.texture_coordinates[b];
            const auto key = [](std::int32_t texture, const TextureCoordinate& p, std::uint32_t i) {
                std::uint64_t u = 0;
                std::uint64_t v = 0;
                std::memcpy(&u, &p.u, sizeof u);
                std::memcpy(&v, &p.v, sizeof v);
                return std::tuple(texture, u, v, i);
            };
            return key(texture_of_record[a], s, a) < key(texture_of_record[b], t, b);
        });
        point_numbers_.resize(texture_of_record.size());
        std::size_t kept = 0;
        for (std::size_t i = 0; i < records_.size(); ++i) {
            const std::uint32_t record = records_[i];
            const auto texture = static_cast<std::size_t>(texture_of_record[record]);
            const bool is_new =
                kept == 0 || texture_of_record[records_[kept - 1]] != texture_of_record[record] ||
                !is_same(records_[kept - 1], record);
            if (is_new) {
                records_[kept++] = record;
                ++points_of_[texture];
            }
            point_numbers_[record] = static_cast<std::uint32_t>(points_of_[texture] - 1);
        }
        records_.resize(kept);
    }

    // Writes the next element; false at the end.
    bool step() {
        switch (stage_) {
            case Stage::Begin:
                begin();
                return true;
            case Stage::Colours:
                return put_colour();
            case Stage::TexturePoints:
                return put_texture_point();
            case Stage::Object:
                open_object();
                return true;
            case Stage::Vertices:
                return put_vertex();
            case Stage::Triangles:
                return put_triangle();
            case Stage::ObjectEnd:
                head_ = "   </triangles>\n  </mesh>\n </object>\n";
                stage_ = ++body_ < bodies_.size() ? Stage::Object : Stage::Build;
                return true;
            case Stage::Build:
                end_text();
                return true;
            default:
                return false;
        }
    }

    void begin() {
        head_ =
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<model unit=\"millimeter\" "
            "xml:lang=\"en-US\" "
            "xmlns=\"http://schemas.microsoft.com/3dmanufacturing/core/2015/02\" "
            "xmlns:m=\"http://schemas.microsoft.com/3dmanufacturing/material/2015/02\">\n"
            " <metadata name=\"Application\">Povmesh</metadata>\n";
        for (const auto& [name, value] : content_.metadata) {
            head_ +=
                " <metadata name=\"" + escaped(name) + "\">" + escaped(value) + "</metadata>\n";
        }
        head_ += " <resources>\n";
        next_id_ = 1;
        if (!colours_.empty()) {
            colour_group_ = next_id_++;
            head_ += " <m:colorgroup id=\"" + std::to_string(colour_group_) + "\">\n";
        }
        item_ = 0;
        stage_ = Stage::Colours;
    }

    bool put_colour() {
        if (item_ < colours_.size()) {
            constexpr char kDigits[] = "0123456789ABCDEF";
            put("<m:color color=\"#");
            for (int shift = 20; shift >= 0; shift -= 4) {
                put(kDigits[colours_[item_] >> shift & 15U]);
            }
            put("\"/>\n");
            ++item_;
            return true;
        }
        if (!colours_.empty()) head_ = " </m:colorgroup>\n";
        texture_groups_.assign(points_of_.size(), 0);
        for (const std::size_t t : textures()) {
            texture_ids_.push_back(next_id_);
            const TextureFile& texture = content_.textures[t];
            head_ += " <m:texture2d id=\"" + std::to_string(next_id_++) + "\" path=\"" +
                     escaped(part_of_texture(content_, t)) + "\" contenttype=\"" +
                     escaped(texture.content_type) + "\"/>\n";
        }
        item_ = 0;
        group_ = 0;
        group_left_ = 0;
        stage_ = Stage::TexturePoints;
        return true;
    }

    bool put_texture_point() {
        if (group_left_ > 0) {
            const TextureCoordinate& point = mesh_.texture_coordinates[records_[item_++]];
            put("<m:tex2coord u=\"");
            put_number(point.u);
            put("\" v=\"");
            put_number(point.v);
            put("\"/>\n");
            if (--group_left_ == 0) head_ = " </m:texture2dgroup>\n";
            return true;
        }
        const std::vector<std::size_t> used = textures();
        if (group_ < used.size()) {
            texture_groups_[used[group_]] = next_id_;
            group_left_ = points_of_[used[group_]];
            head_ += " <m:texture2dgroup id=\"" + std::to_string(next_id_++) + "\" texid=\"" +
                     std::to_string(texture_ids_[group_]) + "\">\n";
            ++group_;
            return true;
        }
        first_object_ = next_id_;
        stage_ = bodies_.empty() ? Stage::Build : Stage::Object;
        return true;
    }

    void open_object() {
        head_ = " <object id=\"" + std::to_string(next_id_++) + "\" type=\"model\"";
        const std::size_t body = bodies_[body_];
        if (body < content_.bodies.size() && !content_.bodies[body].empty()) {
            head_ += " name=\"" + escaped(content_.bodies[body]) + "\"";
        }
        if (!colours_.empty()) {
            head_ += " pid=\"" + std::to_string(colour_group_) + "\" pindex=\"0\"";
        }
        head_ += ">\n  <mesh>\n   <vertices>\n";
        // Numbered as they come up, from 1 while the body is at hand.
        used_vertices_.clear();
        for (std::size_t i = starts_[body_]; i < starts_[body_ + 1]; ++i) {
            for (const std::int32_t v : mesh_.faces[order_[i]].vertex) {
                std::uint32_t& number = numbers_[static_cast<std::size_t>(v)];
                const bool is_known = number != 0 && number <= used_vertices_.size() &&
                                      used_vertices_[number - 1] == static_cast<std::uint32_t>(v);
                if (is_known) continue;
                used_vertices_.push_back(static_cast<std::uint32_t>(v));
                number = static_cast<std::uint32_t>(used_vertices_.size());
            }
        }
        item_ = 0;
        stage_ = Stage::Vertices;
    }

    bool put_vertex() {
        if (item_ == used_vertices_.size()) {
            head_ = "   </vertices>\n   <triangles>\n";
            item_ = starts_[body_];
            stage_ = Stage::Triangles;
            return true;
        }
        const Vertex& vertex = mesh_.vertices[used_vertices_[item_++]];
        put("<vertex x=\"");
        put_number(vertex.x);
        put("\" y=\"");
        put_number(vertex.y);
        put("\" z=\"");
        put_number(vertex.z);
        put("\"/>\n");
        return true;
    }

    bool put_triangle() {
        if (item_ == starts_[body_ + 1]) {
            stage_ = Stage::ObjectEnd;
            return true;
        }
        const Face& face = mesh_.faces[order_[item_]];
        put("<triangle v1=\"");
        put_number(numbers_[static_cast<std::size_t>(face.vertex[0])] - 1);
        put("\" v2=\"");
        put_number(numbers_[static_cast<std::size_t>(face.vertex[1])] - 1);
        put("\" v3=\"");
        put_number(numbers_[static_cast<std::size_t>(face.vertex[2])] - 1);
        if (const int texture = texture_of(face); texture >= 0) {
            put_property(texture_groups_[static_cast<std::size_t>(texture)],
                         point_numbers_[static_cast<std::size_t>(face.uv[0])],
                         point_numbers_[static_cast<std::size_t>(face.uv[1])],
                         point_numbers_[static_cast<std::size_t>(face.uv[2])]);
        } else if (!colours_.empty()) {
            const std::uint32_t* const colour = corner_colours_.data() + 3 * item_;
            put_property(colour_group_, colour[0], colour[1], colour[2]);
        }
        put("\"/>\n");
        ++item_;
        return true;
    }

    void put_property(std::uint32_t group, std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        put("\" pid=\"");
        put_number(group);
        put("\" p1=\"");
        put_number(a);
        if (a == b && b == c) return;
        put("\" p2=\"");
        put_number(b);
        put("\" p3=\"");
        put_number(c);
    }

    void end_text() {
        head_ = " </resources>\n <build>\n";
        for (std::size_t i = 0; i < bodies_.size(); ++i) {
            head_ += "  <item objectid=\"" + std::to_string(first_object_ + i) + "\"/>\n";
        }
        head_ += " </build>\n</model>\n";
        stage_ = Stage::End;
    }

    void put(std::string_view text) {
        std::memcpy(buffer_.data() + used_, text.data(), text.size());
        used_ += text.size();
    }
    void put(char c) { buffer_[used_++] = c; }
    template <typename Number>
    void put_number(Number number) {
        char* const end = buffer_.data() + buffer_.size();
        used_ = static_cast<std::size_t>(std::to_chars(buffer_.data() + used_, end, number).ptr -
                                         buffer_.data());
    }

    const TriMesh& mesh_;
    const ThreeMfContent& content_;
    bool is_divided_ = false;
    Array<std::uint32_t> order_;       // faces by body
    std::vector<std::size_t> bodies_;  // those that have faces
    std::vector<std::size_t> starts_;  // of each of them in `order_`
    Array<std::uint32_t> numbers_;     // of vertices in the last body that uses them, from 1
    Array<std::uint32_t> used_vertices_;
    std::vector<std::uint32_t> colours_;
    Array<std::uint32_t> corner_colours_;   // of the corners in the order of `order_`
    Array<std::uint32_t> records_;          // texture coordinates to write, by texture
    Array<std::uint32_t> point_numbers_;    // of texture coordinates in their group
    std::vector<std::uint64_t> points_of_;  // number of coordinates, by texture
    std::vector<std::uint32_t> texture_ids_;
    std::vector<std::uint32_t> texture_groups_;

    Stage stage_ = Stage::Begin;
    std::string head_;  // what is to be written before anything else
    std::size_t item_ = 0;
    std::size_t body_ = 0;
    std::size_t group_ = 0;
    std::uint64_t group_left_ = 0;
    std::uint32_t next_id_ = 1;
    std::uint32_t first_object_ = 1;
    std::uint32_t colour_group_ = 0;
    Array<char> buffer_;
    std::size_t used_ = 0;
};

std::string_view without_slash(std::string_view path) {
    while (path.starts_with('/')) path.remove_prefix(1);
    return path;
}

}  // namespace

bool keeps_bodies(const TriMesh& mesh, const ThreeMfContent& content) {
    return !content.labels.empty() &&
           std::all_of(mesh.faces.begin(), mesh.faces.end(), [&](const Face& face) {
               return !is_written(mesh, face) || has_label(content, face);
           });
}

Array<std::uint32_t> three_mf_order(const TriMesh& mesh, const ThreeMfContent& content) {
    Array<std::uint32_t> order;
    order.reserve(mesh.faces.size());
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        if (is_written(mesh, mesh.faces[f])) order.push_back(static_cast<std::uint32_t>(f));
    }
    if (!keeps_bodies(mesh, content)) return order;
    const auto body_of = [&](std::uint32_t f) {
        return content.labels[static_cast<std::size_t>(mesh.faces[f].label)].body;
    };
    const auto is_before = [&](std::uint32_t a, std::uint32_t b) {
        return body_of(a) < body_of(b);
    };
    if (!std::is_sorted(order.begin(), order.end(), is_before)) {
        std::stable_sort(order.begin(), order.end(), is_before);
    }
    return order;
}

Status write_three_mf(const TriMesh& mesh, const ThreeMfContent& content,
                      const Array<char>& thumbnail, const std::string& name, ByteSink& file) {
    const std::string header = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    const std::string relationships_begin =
        header +
        "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">\n";
    const std::string family = "http://schemas.microsoft.com/3dmanufacturing/2013/01/";
    ModelText model(mesh, content);

    std::string types =
        header +
        "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">\n"
        " <Default Extension=\"rels\" "
        "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>\n"
        " <Default Extension=\"model\" "
        "ContentType=\"application/vnd.ms-package.3dmanufacturing-3dmodel+xml\"/>\n"
        " <Default Extension=\"png\" ContentType=\"image/png\"/>\n";
    std::string of_model = relationships_begin;
    std::vector<std::string> extensions = {"png"};
    const std::vector<std::size_t> textures = model.textures();
    for (std::size_t i = 0; i < textures.size(); ++i) {
        const TextureFile& texture = content.textures[textures[i]];
        const std::string part = part_of_texture(content, textures[i]);
        const std::string extension(extension_of_part(part));
        if (std::find(extensions.begin(), extensions.end(), extension) == extensions.end()) {
            extensions.push_back(extension);
            types += " <Default Extension=\"" + escaped(extension) + "\" ContentType=\"" +
                     escaped(texture.content_type) + "\"/>\n";
        }
        of_model += " <Relationship Id=\"t" + std::to_string(i) + "\" Target=\"" + escaped(part) +
                    "\" Type=\"" + family + "3dtexture\"/>\n";
    }
    std::string relationships = relationships_begin +
                                " <Relationship Id=\"r0\" Target=\"/3D/3dmodel.model\" Type=\"" +
                                family + "3dmodel\"/>\n";
    if (!thumbnail.empty()) {
        relationships +=
            " <Relationship Id=\"r1\" Target=\"/Metadata/thumbnail.png\" "
            "Type=\"http://schemas.openxmlformats.org/package/2006/relationships/metadata/"
            "thumbnail\"/>\n";
    }

    PackageWriter package;
    package.add("[Content_Types].xml", types + "</Types>\n");
    package.add("_rels/.rels", relationships + "</Relationships>\n");
    package.add("3D/3dmodel.model", model.about_bytes(), [&model] { return model.next(); });
    if (!textures.empty()) {
        package.add("3D/_rels/3dmodel.model.rels", of_model + "</Relationships>\n");
    }
    for (const std::size_t t : textures) {
        const TextureFile& texture = content.textures[t];
        package.add(std::string(without_slash(part_of_texture(content, t))),
                    std::string(texture.content.begin(), texture.content.end()));
    }
    if (!thumbnail.empty()) {
        package.add("Metadata/thumbnail.png", std::string(thumbnail.begin(), thumbnail.end()));
    }
    return package.finish(file, name);
}

}  // namespace povmesh
