// Rows are composed in a buffer; only the corners' colours need more than one look at a face.
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <string>

#include "base/convert.h"
#include "io/file.h"
#include "io/ply.h"
#include "mesh/weld_table.h"

namespace povmesh {
namespace {

static_assert(std::endian::native == std::endian::little, "rows are written as they lie in memory");

class RowWriter {
public:
    explicit RowWriter(ByteSink& file) : file_(file), buffer_(kBufferBytes) {}

    template <typename T>
    void put(T value) {
        if (used_ + sizeof value > buffer_.size()) (void)flush();
        std::memcpy(buffer_.data() + used_, &value, sizeof value);
        used_ += sizeof value;
    }

    void put_text(const std::string& text) {
        for (const char c : text) put(c);
    }

    Status flush() {
        // A failure stays with the sink and comes back from `commit`.
        Status status = file_.write({buffer_.data(), used_});
        used_ = 0;
        return status;
    }

private:
    static constexpr std::size_t kBufferBytes = std::size_t{1} << 18;

    ByteSink& file_;
    Array<char> buffer_;
    std::size_t used_ = 0;
};

enum class ColourPlace { None, Faces, Vertices };

class PlyWriter {
public:
    PlyWriter(const TriMesh& mesh, ByteSink& file, const std::vector<std::string>& texture_files)
        : mesh_(mesh), texture_files_(texture_files), out_(file) {}

    Status run() {
        survey();
        number_vertices();
        write_header();
        for (std::size_t i = 0; i < vertices_.size(); ++i) write_vertex(i);
        for (const Face& face : mesh_.faces) {
            if (is_written(face)) write_face(face);
        }
        return out_.flush();
    }

private:
    bool is_written(const Face& face) const {
        return face.deleted == 0 &&
               std::all_of(face.vertex.begin(), face.vertex.end(), [&](std::int32_t v) {
                   return v >= 0 && static_cast<std::size_t>(v) < mesh_.vertices.size();
               });
    }

    bool is_textured(const Face& face) const {
        return face.label >= 0 && std::all_of(face.uv.begin(), face.uv.end(), [&](std::int32_t uv) {
                   return uv >= 0 &&
                          static_cast<std::size_t>(uv) < mesh_.texture_coordinates.size();
               });
    }

    // Finds out which properties are needed.
    void survey() {
        bool has_colour = false;
        bool is_uniform = true;
        for (const Face& face : mesh_.faces) {
            if (!is_written(face)) continue;
            ++face_count_;
            const auto& c = face.colour;
            has_colour |=
                std::any_of(c.begin(), c.end(), [](std::uint8_t byte) { return byte != 255; });
            is_uniform &= std::equal(c.begin(), c.begin() + 6, c.begin() + 3);
            has_labels_ |= face.label >= 0;
            if (!is_textured(face)) continue;
            has_textures_ = true;
            for (const std::int32_t uv : face.uv) {
                const auto& [u, v, index] = mesh_.texture_coordinates[static_cast<std::size_t>(uv)];
                needs_doubles_ |= static_cast<double>(narrow_to_float(u)) != u ||
                                  static_cast<double>(narrow_to_float(v)) != v;
            }
        }
        if (has_colour) colours_ = is_uniform ? ColourPlace::Faces : ColourPlace::Vertices;
    }

    static std::uint32_t rgb_of(const Face& face, std::size_t corner) {
        const std::uint8_t* const rgb = face.colour.data() + 3 * corner;
        return std::uint32_t{rgb[0]} | std::uint32_t{rgb[1]} << 8 | std::uint32_t{rgb[2]} << 16;
    }

    // Used vertices in their order; with colours each as often as it has some, in the order of the
    // faces.
    void number_vertices() {
        if (colours_ == ColourPlace::Vertices) return number_coloured_vertices();
        numbers_.assign(mesh_.vertices.size(), 0);
        for (const Face& face : mesh_.faces) {
            if (!is_written(face)) continue;
            for (const std::int32_t v : face.vertex) numbers_[static_cast<std::size_t>(v)] = 1;
        }
        for (std::size_t v = 0; v < numbers_.size(); ++v) {
            if (numbers_[v] == 0) continue;
            numbers_[v] = static_cast<std::uint32_t>(vertices_.size());
            vertices_.push_back({static_cast<std::uint32_t>(v), 0});
        }
    }

    void number_coloured_vertices() {
        WeldTable table(mesh_.vertices.size());
        numbers_.reserve(mesh_.faces.size() * 3);
        for (const Face& face : mesh_.faces) {
            if (!is_written(face)) continue;
            for (std::size_t c = 0; c < 3; ++c) {
                const auto vertex = static_cast<std::uint32_t>(face.vertex[c]);
                const std::uint32_t rgb = rgb_of(face, c);
                table.make_room(vertices_.size() + 1);
                const auto next = static_cast<std::int32_t>(vertices_.size());
                const std::int32_t number =
                    table.find_or_add(vertex, rgb, table.home(vertex, rgb), next);
                if (number == next) vertices_.push_back({vertex, rgb});
                numbers_.push_back(static_cast<std::uint32_t>(number));
            }
        }
    }

    void write_header() {
        std::string text = "ply\nformat binary_little_endian 1.0\n";
        for (const std::string& name : texture_files_) {
            text += "comment TextureFile " + one_line(name) + "\n";
        }
        text += "element vertex " + std::to_string(vertices_.size()) +
                "\nproperty float x\nproperty float y\nproperty float z\n";
        const std::string channels =
            "property uchar red\nproperty uchar green\nproperty uchar blue\n";
        if (colours_ == ColourPlace::Vertices) text += channels;
        text += "element face " + std::to_string(face_count_) +
                "\nproperty list uchar int vertex_indices\n";
        if (has_textures_) {
            text += std::string("property list uchar ") + (needs_doubles_ ? "double" : "float") +
                    " texcoord\n";
        }
        if (has_labels_) text += "property int texnumber\n";
        if (colours_ == ColourPlace::Faces) text += channels;
        out_.put_text(text + "end_header\n");
    }

    void put_colour(std::uint32_t rgb) {
        for (unsigned shift = 0; shift < 24; shift += 8) {
            out_.put(static_cast<std::uint8_t>(rgb >> shift & 0xFFU));
        }
    }

    void write_vertex(std::size_t i) {
        const Vertex& vertex = mesh_.vertices[vertices_[i].vertex];
        out_.put(std::array{vertex.x, vertex.y, vertex.z});
        if (colours_ == ColourPlace::Vertices) put_colour(vertices_[i].rgb);
    }

    void write_face(const Face& face) {
        out_.put(std::uint8_t{3});
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t place = colours_ == ColourPlace::Vertices
                                          ? next_corner_++
                                          : static_cast<std::size_t>(face.vertex[c]);
            out_.put(numbers_[place]);
        }
        if (has_textures_) write_texture(face);
        if (has_labels_) out_.put(std::int32_t{face.label});
        if (colours_ == ColourPlace::Faces) put_colour(rgb_of(face, 0));
    }

    void write_texture(const Face& face) {
        if (!is_textured(face)) return out_.put(std::uint8_t{0});
        out_.put(std::uint8_t{6});
        for (const std::int32_t uv : face.uv) {
            const TextureCoordinate& record =
                mesh_.texture_coordinates[static_cast<std::size_t>(uv)];
            for (const double number : {record.u, record.v}) {
                if (needs_doubles_) {
                    out_.put(number);
                } else {
                    out_.put(narrow_to_float(number));
                }
            }
        }
    }

    struct WrittenVertex {
        std::uint32_t vertex;
        std::uint32_t rgb;
    };

    const TriMesh& mesh_;
    const std::vector<std::string>& texture_files_;
    RowWriter out_;
    ColourPlace colours_ = ColourPlace::None;
    bool has_textures_ = false;
    bool needs_doubles_ = false;
    bool has_labels_ = false;
    std::size_t face_count_ = 0;
    Array<WrittenVertex> vertices_;
    Array<std::uint32_t> numbers_;  // of every vertex, with coloured vertices of every corner
    std::size_t next_corner_ = 0;
};

}  // namespace

Status write_ply(const TriMesh& mesh, ByteSink& file,
                 const std::vector<std::string>& texture_files) {
    Status status = PlyWriter(mesh, file, texture_files).run();
    if (!status.ok()) return status;
    return file.commit();
}

Status write_ply(const TriMesh& mesh, const std::string& path, bool flush_to_disk) {
    ReplacementFile file;
    Status status = file.open(path, flush_to_disk);
    if (!status.ok()) return status;
    return write_ply(mesh, file);
}

}  // namespace povmesh
