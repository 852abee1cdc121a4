// The text of the model is made, and packed, in parts: what stands in each is known beforehand.
#include <algorithm>
#include <array>
#include <bit>
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

constexpr std::size_t kLongestElement = 512;  // bytes of a vertex, a triangle, a coordinate

// Elements of a part, some 350 KB: what packing keeps and makes of it stays in the cache of a core.
constexpr std::size_t kElementsOfPart = 8192;

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

/// Text that is written element by element.
class ElementText {
public:
    explicit ElementText(Array<char>& bytes) : bytes_(bytes) { bytes_.resize(bytes_.capacity()); }
    ~ElementText() { bytes_.resize(used_); }
    ElementText(const ElementText&) = delete;
    ElementText& operator=(const ElementText&) = delete;

    /// Before an element that no room was made for.
    void make_room(std::size_t count) {
        if (bytes_.size() - used_ < count) bytes_.resize(2 * bytes_.size() + count);
    }

    void put(std::string_view text) {
        if (text.empty()) return;  // with no bytes behind it, either
        std::memcpy(bytes_.data() + used_, text.data(), text.size());
        used_ += text.size();
    }
    void put(char c) { bytes_[used_++] = c; }
    template <typename Number>
    void put_number(Number number) {
        char* const end = bytes_.data() + bytes_.size();
        used_ = static_cast<std::size_t>(std::to_chars(bytes_.data() + used_, end, number).ptr -
                                         bytes_.data());
    }

private:
    Array<char>& bytes_;
    std::size_t used_ = 0;
};

/// Faces by body, and what belongs to them: everything that the text is made of.
class ModelText {
public:
    ModelText(const TriMesh& mesh, const ThreeMfContent& content) : mesh_(mesh), content_(content) {
        group_faces();
        number_vertices();
        number_colours();
        number_texture_points();
        plan();
    }

    std::size_t part_count() const { return parts_.size(); }

    /// Makes the text of a part; parts may be made at the same time.
    void write_part(std::size_t part, Array<char>& bytes) const {
        ElementText text(bytes);
        const std::size_t end = part + 1 < parts_.size() ? parts_[part + 1] : runs_.size();
        for (std::size_t i = parts_[part]; i < end; ++i) {
            const Run& run = runs_[i];
            text.make_room(run.frame.size());
            text.put(run.frame);
            for (std::size_t item = run.begin; item < run.end; ++item) {
                text.make_room(kLongestElement);
                put_element(run.kind, item, text);
            }
        }
    }

    /// The textures that are used.
    std::vector<std::size_t> textures() const {
        std::vector<std::size_t> used;
        for (std::size_t t = 0; t < points_of_.size(); ++t) {
            if (points_of_[t] > 0) used.push_back(t);
        }
        return used;
    }

private:
    enum class Kind : std::uint8_t { Colour, TexturePoint, Vertex, Triangle };

    // Text that stands before elements, of which there may be none.
    struct Run {
        std::string frame;
        Kind kind = Kind::Vertex;
        std::size_t begin = 0;
        std::size_t end = 0;
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

    // In each body as they come up.
    void number_vertices() {
        Array<std::uint32_t> numbers(mesh_.vertices.size(), 0);  // in the last body, from 1
        corners_.resize(order_.size());
        vertices_.reserve(mesh_.vertices.size());
        for (std::size_t body = 0; body < bodies_.size(); ++body) {
            const std::size_t first = vertices_.size();
            first_vertices_.push_back(first);
            for (std::size_t i = starts_[body]; i < starts_[body + 1]; ++i) {
                for (std::size_t c = 0; c < 3; ++c) {
                    const auto v = static_cast<std::uint32_t>(mesh_.faces[order_[i]].vertex[c]);
                    std::uint32_t& number = numbers[v];
                    const bool is_known = number != 0 && number <= vertices_.size() - first &&
                                          vertices_[first + number - 1] == v;
                    if (!is_known) {
                        vertices_.push_back(v);
                        number = static_cast<std::uint32_t>(vertices_.size() - first);
                    }
                    corners_[i][c] = number - 1;
                }
            }
        }
        first_vertices_.push_back(vertices_.size());
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
        const auto bits = [](double value) { return std::bit_cast<std::uint64_t>(value); };
        const auto is_same = [&](std::uint32_t a, std::uint32_t b) {
            const TextureCoordinate& s = mesh_.texture_coordinates[a];
            const TextureCoordinate& t = mesh_.texture_coordinates[b];
            return bits(s.u) == bits(t.u) && bits(s.v) == bits(t.v);
        };
        std::sort(records_.begin(), records_.end(), [&](std::uint32_t a, std::uint32_t b) {
            const TextureCoordinate& s = mesh_.texture_coordinates[a];
            const TextureCoordinate& t = mesh_.texture_coordinates[b];
            const auto key = [&](std::int32_t texture, const TextureCoordinate& p,
                                 std::uint32_t i) {
                return std::tuple(texture, bits(p.u), bits(p.v), i);
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

    // Adds text that belongs between elements.
    void add_frame(std::string frame) {
        if (parts_.empty() || in_part_ >= kElementsOfPart) {
            parts_.push_back(runs_.size());
            in_part_ = 0;
        }
        constexpr std::size_t kBytesOfElement = 40;
        in_part_ += 1 + frame.size() / kBytesOfElement;
        runs_.push_back({std::move(frame)});
    }

    // Adds elements behind a frame.
    void add_elements(Kind kind, std::size_t begin, std::size_t end) {
        while (begin < end) {
            if (in_part_ >= kElementsOfPart) add_frame({});
            const std::size_t count = std::min(end - begin, kElementsOfPart - in_part_);
            runs_.push_back({{}, kind, begin, begin + count});
            in_part_ += count;
            begin += count;
        }
    }

    // Lays out the text from begin to end.
    void plan() {
        std::string begin =
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<model unit=\"millimeter\" "
            "xml:lang=\"en-US\" "
            "xmlns=\"http://schemas.microsoft.com/3dmanufacturing/core/2015/02\" "
            "xmlns:m=\"http://schemas.microsoft.com/3dmanufacturing/material/2015/02\">\n"
            " <metadata name=\"Application\">Povmesh</metadata>\n";
        for (const auto& [name, value] : content_.metadata) {
            begin +=
                " <metadata name=\"" + escaped(name) + "\">" + escaped(value) + "</metadata>\n";
        }
        add_frame(begin + " <resources>\n");
        if (!colours_.empty()) {
            colour_group_ = next_id_++;
            add_frame(" <m:colorgroup id=\"" + std::to_string(colour_group_) + "\">\n");
            add_elements(Kind::Colour, 0, colours_.size());
            add_frame(" </m:colorgroup>\n");
        }
        plan_textures();
        const std::uint32_t first_object = next_id_;
        for (std::size_t body = 0; body < bodies_.size(); ++body) plan_object(body);
        std::string end = " </resources>\n <build>\n";
        for (std::size_t i = 0; i < bodies_.size(); ++i) {
            end += "  <item objectid=\"" + std::to_string(first_object + i) + "\"/>\n";
        }
        add_frame(end + " </build>\n</model>\n");
    }

    void plan_textures() {
        const std::vector<std::size_t> used = textures();
        const std::uint32_t first_texture = next_id_;
        for (const std::size_t t : used) {
            add_frame(" <m:texture2d id=\"" + std::to_string(next_id_++) + "\" path=\"" +
                      escaped(part_of_texture(content_, t)) + "\" contenttype=\"" +
                      escaped(content_.textures[t].content_type) + "\"/>\n");
        }
        texture_groups_.assign(points_of_.size(), 0);
        std::size_t first = 0;
        for (std::size_t i = 0; i < used.size(); ++i) {
            texture_groups_[used[i]] = next_id_;
            add_frame(" <m:texture2dgroup id=\"" + std::to_string(next_id_++) + "\" texid=\"" +
                      std::to_string(first_texture + i) + "\">\n");
            const std::size_t end = first + points_of_[used[i]];
            add_elements(Kind::TexturePoint, first, end);
            add_frame(" </m:texture2dgroup>\n");
            first = end;
        }
    }

    void plan_object(std::size_t place) {
        std::string begin = " <object id=\"" + std::to_string(next_id_++) + "\" type=\"model\"";
        const std::size_t body = bodies_[place];
        if (body < content_.bodies.size() && !content_.bodies[body].empty()) {
            begin += " name=\"" + escaped(content_.bodies[body]) + "\"";
        }
        if (!colours_.empty()) {
            begin += " pid=\"" + std::to_string(colour_group_) + "\" pindex=\"0\"";
        }
        add_frame(begin + ">\n  <mesh>\n   <vertices>\n");
        add_elements(Kind::Vertex, first_vertices_[place], first_vertices_[place + 1]);
        add_frame("   </vertices>\n   <triangles>\n");
        add_elements(Kind::Triangle, starts_[place], starts_[place + 1]);
        add_frame("   </triangles>\n  </mesh>\n </object>\n");
    }

    void put_element(Kind kind, std::size_t item, ElementText& text) const {
        switch (kind) {
            case Kind::Colour:
                return put_colour(colours_[item], text);
            case Kind::TexturePoint:
                return put_texture_point(mesh_.texture_coordinates[records_[item]], text);
            case Kind::Vertex:
                return put_vertex(mesh_.vertices[vertices_[item]], text);
            case Kind::Triangle:
                return put_triangle(item, text);
        }
    }

    static void put_colour(std::uint32_t rgb, ElementText& text) {
        constexpr char kDigits[] = "0123456789ABCDEF";
        text.put("<m:color color=\"#");
        for (int shift = 20; shift >= 0; shift -= 4) text.put(kDigits[rgb >> shift & 15U]);
        text.put("\"/>\n");
    }

    static void put_texture_point(const TextureCoordinate& point, ElementText& text) {
        text.put("<m:tex2coord u=\"");
        text.put_number(point.u);
        text.put("\" v=\"");
        text.put_number(point.v);
        text.put("\"/>\n");
    }

    static void put_vertex(const Vertex& vertex, ElementText& text) {
        text.put("<vertex x=\"");
        text.put_number(vertex.x);
        text.put("\" y=\"");
        text.put_number(vertex.y);
        text.put("\" z=\"");
        text.put_number(vertex.z);
        text.put("\"/>\n");
    }

    void put_triangle(std::size_t item, ElementText& text) const {
        text.put("<triangle v1=\"");
        text.put_number(corners_[item][0]);
        text.put("\" v2=\"");
        text.put_number(corners_[item][1]);
        text.put("\" v3=\"");
        text.put_number(corners_[item][2]);
        const Face& face = mesh_.faces[order_[item]];
        if (const int texture = texture_of(face); texture >= 0) {
            put_property(texture_groups_[static_cast<std::size_t>(texture)],
                         point_numbers_[static_cast<std::size_t>(face.uv[0])],
                         point_numbers_[static_cast<std::size_t>(face.uv[1])],
                         point_numbers_[static_cast<std::size_t>(face.uv[2])], text);
        } else if (!colours_.empty()) {
            const std::uint32_t* const colour = corner_colours_.data() + 3 * item;
            put_property(colour_group_, colour[0], colour[1], colour[2], text);
        }
        text.put("\"/>\n");
    }

    static void put_property(std::uint32_t group, std::uint32_t a, std::uint32_t b, std::uint32_t c,
                             ElementText& text) {
        text.put("\" pid=\"");
        text.put_number(group);
        text.put("\" p1=\"");
        text.put_number(a);
        if (a == b && b == c) return;
        text.put("\" p2=\"");
        text.put_number(b);
        text.put("\" p3=\"");
        text.put_number(c);
    }

    const TriMesh& mesh_;
    const ThreeMfContent& content_;
    bool is_divided_ = false;
    Array<std::uint32_t> order_;                   // faces by body
    std::vector<std::size_t> bodies_;              // those that have faces
    std::vector<std::size_t> starts_;              // of each of them in `order_`
    Array<std::uint32_t> vertices_;                // by body
    std::vector<std::size_t> first_vertices_;      // of each body in `vertices_`
    Array<std::array<std::uint32_t, 3>> corners_;  // of faces in `order_`: vertices in their body
    std::vector<std::uint32_t> colours_;
    Array<std::uint32_t> corner_colours_;   // of the corners in the order of `order_`
    Array<std::uint32_t> records_;          // texture coordinates to write, by texture
    Array<std::uint32_t> point_numbers_;    // of texture coordinates in their group
    std::vector<std::uint64_t> points_of_;  // number of coordinates, by texture
    std::vector<std::uint32_t> texture_groups_;
    std::uint32_t colour_group_ = 0;
    std::uint32_t next_id_ = 1;

    std::vector<Run> runs_;           // the whole text
    std::vector<std::size_t> parts_;  // the first run of each
    std::size_t in_part_ = 0;         // elements of the last one
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
    package.add("3D/3dmodel.model", model.part_count(),
                [&](std::size_t part, Array<char>& text) { model.write_part(part, text); });
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
