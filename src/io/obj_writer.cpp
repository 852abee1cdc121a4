// The text is composed in a large buffer; numbers are printed exactly as "%.5f" prints them in the
// C locale.
#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "io/file.h"
#include "io/obj.h"
#include "io/obj_keys.h"
#include "mesh/weld_table.h"

namespace povmesh {
namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 20;

// Longest line: a keyword and nine numbers, the longest a double of 309 digits before the point.
constexpr std::size_t kLongestLine = 4096;

// Up to this many colours of a vertex are searched one by one.
constexpr std::size_t kFewColours = 16;

class TextWriter {
public:
    explicit TextWriter(ByteSink& file) : file_(file), buffer_(kBufferBytes) {}

    /// Makes room for a line.
    void begin_line() {
        if (used_ + kLongestLine > buffer_.size()) (void)flush();
    }
    void put(std::string_view text) {
        std::memcpy(buffer_.data() + used_, text.data(), text.size());
        used_ += text.size();
    }
    void put(char c) { buffer_[used_++] = c; }
    void put(std::int64_t number) {
        used_ = static_cast<std::size_t>(std::to_chars(at(), end(), number).ptr - buffer_.data());
    }
    template <typename Float>
    void put_shortest(Float number) {
        used_ = static_cast<std::size_t>(std::to_chars(at(), end(), number).ptr - buffer_.data());
    }

    /// Five decimals. A float times 100000 has 41 bits at most, so the product is exact and its
    /// nearest integer, ties to even, gives the digits.
    void put_five(float number) {
        constexpr double kLargest = 1e10;
        const double scaled = static_cast<double>(number) * 100000.0;
        if (!(std::abs(scaled) < kLargest)) return put_five(static_cast<double>(number));
        const double magnitude = std::abs(scaled);
        auto digits = static_cast<std::uint64_t>(magnitude);
        const double rest = magnitude - static_cast<double>(digits);
        if (rest > 0.5 || (rest == 0.5 && (digits & 1) != 0)) ++digits;
        if (std::signbit(number)) put('-');
        put(static_cast<std::int64_t>(digits / 100000));
        std::uint64_t decimals = digits % 100000;
        char* const text = at();
        text[0] = '.';
        for (std::size_t i = 5; i > 0; --i) {
            text[i] = static_cast<char>('0' + decimals % 10);
            decimals /= 10;
        }
        used_ += 6;
    }
    void put_five(double number) {
        used_ = static_cast<std::size_t>(
            std::to_chars(at(), end(), number, std::chars_format::fixed, 5).ptr - buffer_.data());
    }

    Status flush() {
        // A failure stays with the file and comes back from `commit`.
        Status status = file_.write({buffer_.data(), used_});
        used_ = 0;
        return status;
    }

private:
    char* at() { return buffer_.data() + used_; }
    char* end() { return buffer_.data() + buffer_.size(); }

    ByteSink& file_;
    Array<char> buffer_;
    std::size_t used_ = 0;
};

/// Finds texture coordinates that are the same. Open addressing over the bits of both numbers.
class SharedTexture {
public:
    explicit SharedTexture(const Array<TextureCoordinate>& records)
        : records_(records),
          slots_(std::bit_ceil(2 * records.size() + 16), kEmpty),
          factor_(hash_factor(0)),
          other_factor_(hash_factor(1)) {}

    /// The first record given so far with the numbers of this one.
    std::uint32_t first_like(std::uint32_t record) {
        const auto [u, v] = bits_of(record);
        std::uint64_t hash = u * factor_ + v * other_factor_;
        hash = (hash ^ (hash >> 32)) * factor_;
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t place = (hash >> 32) & mask;; place = (place + 1) & mask) {
            if (slots_[place] == kEmpty) slots_[place] = record;
            if (bits_of(slots_[place]) == std::pair(u, v)) return slots_[place];
        }
    }

private:
    static constexpr std::uint32_t kEmpty = 0xFFFFFFFF;

    std::pair<std::uint64_t, std::uint64_t> bits_of(std::uint32_t record) const {
        return {std::bit_cast<std::uint64_t>(records_[record].u),
                std::bit_cast<std::uint64_t>(records_[record].v)};
    }

    const Array<TextureCoordinate>& records_;
    Array<std::uint32_t> slots_;
    std::uint64_t factor_, other_factor_;
};

class ObjWriter {
public:
    ObjWriter(TriMesh& mesh, const ObjWriteOptions& options, ByteSink& file)
        : mesh_(mesh), options_(options), out_(file) {}

    Status run() {
        ensure_uses(mesh_);
        has_colours_ = !options_.exact || has_any_colour();
        make_colour_texts();
        if (!options_.exact) out_.put("mtllib output.mtl\n");
        write_texture_coordinates();
        write_vertices();
        write_groups();
        return out_.flush();
    }

private:
    bool has_any_colour() const {
        return std::any_of(mesh_.faces.begin(), mesh_.faces.end(), [](const Face& face) {
            return face.deleted == 0 &&
                   std::any_of(face.colour.begin(), face.colour.end(),
                               [](std::uint8_t channel) { return channel != 255; });
        });
    }

    // " R" for every byte: three decimals, or as many as bring back the byte.
    void make_colour_texts() {
        for (std::size_t byte = 0; byte < colour_texts_.size(); ++byte) {
            // The reader truncates c * 255, so the exact form rounds up: that brings back the byte.
            const double share = static_cast<double>(byte) / 255.0;
            const double value = options_.exact ? std::ceil(share * 1e5) / 1e5 : share;
            std::array<char, 32> text{' '};
            const auto end = std::to_chars(text.data() + 1, text.data() + text.size(), value,
                                           std::chars_format::fixed, options_.exact ? 5 : 3);
            colour_texts_[byte].assign(text.data(), end.ptr);
        }
    }

    void write_texture_coordinates() {
        if (options_.exact) return write_shared_texture_coordinates();
        for (const TextureCoordinate& record : mesh_.texture_coordinates) {
            out_.begin_line();
            out_.put("vt ");
            out_.put_five(record.u);
            out_.put(' ');
            out_.put_five(record.v);
            out_.put('\n');
        }
    }

    // Only those that a face uses, each once.
    void write_shared_texture_coordinates() {
        const Array<TextureCoordinate>& records = mesh_.texture_coordinates;
        texture_number_.assign(records.size(), 0);
        for (const Face& face : mesh_.faces) {
            if (!is_textured(face)) continue;
            for (const std::int32_t uv : face.uv) texture_number_[static_cast<std::size_t>(uv)] = 1;
        }
        SharedTexture shared(records);
        std::uint32_t written = 0;
        for (std::uint32_t i = 0; i < records.size(); ++i) {
            if (texture_number_[i] == 0) continue;
            const std::uint32_t first = shared.first_like(i);
            if (first == i) {
                write_texture_coordinate(records[i]);
                texture_number_[i] = ++written;
            } else {
                texture_number_[i] = texture_number_[first];
            }
        }
    }

    void write_texture_coordinate(const TextureCoordinate& record) {
        out_.begin_line();
        out_.put("vt");
        for (const double number : {record.u, record.v}) {
            out_.put(' ');
            // One that has been through a soup is a float: its own digits are fewer, and who rounds
            // what they say gets the same float.
            const auto rounded = static_cast<float>(number);
            if (static_cast<double>(rounded) == number) {
                out_.put_shortest(rounded);
            } else {
                out_.put_shortest(number);
            }
        }
        out_.put('\n');
    }

    bool is_textured(const Face& face) const {
        return face.deleted == 0 && face.label >= 0 &&
               std::all_of(face.uv.begin(), face.uv.end(), [&](std::int32_t uv) {
                   return uv >= 0 &&
                          static_cast<std::size_t>(uv) < mesh_.texture_coordinates.size();
               });
    }

    // Writes each vertex as often as its uses ask for, and notes for every corner which one it
    // names.
    void write_vertices() {
        corner_vertex_.resize(mesh_.faces.size() * 3);
        for (std::size_t v = 0; v < mesh_.vertices.size(); ++v) {
            textured_vertex_ = kNotWritten;
            colours_.clear();
            many_colours_.clear();
            for (const Use& use : mesh_.uses(v)) {
                const Face& face = mesh_.faces[use.face()];
                if (face.deleted != 0) continue;
                corner_vertex_[use.face() * 3 + use.corner()] =
                    face.label >= 0 && !options_.exact ? textured_vertex(v)
                                                       : coloured_vertex(v, face, use.corner());
            }
        }
    }

    // All textured uses of a vertex have its position in common, and with it their key.
    std::uint32_t textured_vertex(std::size_t v) {
        if (textured_vertex_ == kNotWritten) textured_vertex_ = write_vertex(v, nullptr);
        return textured_vertex_;
    }

    std::uint32_t coloured_vertex(std::size_t v, const Face& face, std::size_t corner) {
        const std::uint8_t* const rgb = face.colour.data() + 3 * corner;
        const std::uint64_t key = options_.exact ? exact_colour_key(rgb) : colour_key(rgb);
        for (const auto& [known, number] : colours_) {
            if (known == key) return number;
        }
        if (colours_.size() < kFewColours) {
            const std::uint32_t number = write_vertex(v, rgb);
            colours_.push_back({key, number});
            return number;
        }
        const auto [place, is_new] = many_colours_.try_emplace(key, 0);
        if (is_new) place->second = write_vertex(v, rgb);
        return place->second;
    }

    static std::uint64_t exact_colour_key(const std::uint8_t* rgb) {
        return (std::uint64_t{rgb[0]} << 16) | (std::uint64_t{rgb[1]} << 8) | rgb[2];
    }

    static std::uint64_t colour_key(const std::uint8_t* rgb) {
        const auto channel = [](std::uint8_t byte) {
            return static_cast<float>(static_cast<double>(byte) / 255.0);
        };
        return obj_split_key(channel(rgb[0]), channel(rgb[1]), channel(rgb[2]));
    }

    std::uint32_t write_vertex(std::size_t v, const std::uint8_t* rgb) {
        const Vertex& vertex = mesh_.vertices[v];
        out_.begin_line();
        out_.put('v');
        for (const float coordinate : {vertex.x, vertex.y, vertex.z}) {
            out_.put(' ');
            if (options_.exact) {
                out_.put_shortest(coordinate);
            } else {
                out_.put_five(coordinate);
            }
        }
        if (rgb != nullptr && has_colours_) {
            for (std::size_t i = 0; i < 3; ++i) out_.put(colour_texts_[rgb[i]]);
        }
        out_.put('\n');
        return ++written_vertices_;
    }

    // Faces by ascending label, in face order within one.
    void write_groups() {
        constexpr std::size_t kLabels = 0x10000;
        constexpr std::int32_t kLowest = -0x8000;
        Array<std::uint32_t> starts(kLabels + 1, 0);
        for (const Face& face : mesh_.faces) {
            if (face.deleted == 0) ++starts[static_cast<std::size_t>(face.label - kLowest) + 1];
        }
        for (std::size_t i = 1; i <= kLabels; ++i) starts[i] += starts[i - 1];
        Array<std::uint32_t> order(starts[kLabels]);
        Array<std::uint32_t> place(starts.begin(), starts.end() - 1);
        for (std::size_t f = 0; f < mesh_.faces.size(); ++f) {
            const Face& face = mesh_.faces[f];
            if (face.deleted != 0) continue;
            order[place[static_cast<std::size_t>(face.label - kLowest)]++] =
                static_cast<std::uint32_t>(f);
        }
        for (std::size_t i = 0; i < kLabels; ++i) {
            if (starts[i] == starts[i + 1]) continue;
            write_group(static_cast<std::int32_t>(i) + kLowest,
                        {order.data() + starts[i], order.data() + starts[i + 1]});
        }
    }

    void write_group(std::int32_t label, std::span<const std::uint32_t> faces) {
        // A reader numbers materials by their "usemtl" lines, so in the exact form the lines count:
        // one for every label up to this one, none for untextured faces.
        if (!options_.exact) {
            write_material(label);
        } else {
            for (; next_material_ <= label; ++next_material_) write_material(next_material_);
        }
        for (const std::uint32_t f : faces) write_face(f);
    }

    void write_material(std::int32_t label) {
        out_.begin_line();
        out_.put("usemtl ");
        out_.put(std::int64_t{label});
        out_.put('\n');
    }

    void write_face(std::uint32_t f) {
        const Face& face = mesh_.faces[f];
        const bool has_texture =
            options_.exact ? is_textured(face) : face.label >= 0 && face.uv[0] >= 0;
        out_.begin_line();
        out_.put('f');
        for (std::size_t c = 0; c < 3; ++c) {
            out_.put(' ');
            out_.put(std::int64_t{corner_vertex_[std::size_t{f} * 3 + c]});
            if (!has_texture) continue;
            out_.put('/');
            out_.put(options_.exact
                         ? std::int64_t{texture_number_[static_cast<std::size_t>(face.uv[c])]}
                         : std::int64_t{face.uv[c]} + 1);
        }
        out_.put('\n');
    }

    static constexpr std::uint32_t kNotWritten = 0;

    struct WrittenColour {
        std::uint64_t key;
        std::uint32_t number;
    };

    TriMesh& mesh_;
    const ObjWriteOptions& options_;
    TextWriter out_;
    bool has_colours_ = true;
    std::array<std::string, 256> colour_texts_;
    Array<std::uint32_t> corner_vertex_;   // of every corner: the number of its vertex in the file
    Array<std::uint32_t> texture_number_;  // of every record, in the exact form
    std::uint32_t written_vertices_ = 0;
    std::int32_t next_material_ = 0;
    // Of the vertex at hand:
    std::uint32_t textured_vertex_ = kNotWritten;
    Array<WrittenColour> colours_;
    std::unordered_map<std::uint64_t, std::uint32_t> many_colours_;
};

}  // namespace

Status write_obj(TriMesh& mesh, ByteSink& file, const ObjWriteOptions& options) {
    Status status = ObjWriter(mesh, options, file).run();
    if (!status.ok()) return status;
    return file.commit();
}

Status write_obj(TriMesh& mesh, const std::string& path, const ObjWriteOptions& options,
                 bool flush_to_disk) {
    ReplacementFile file;
    Status status = file.open(path, flush_to_disk);
    if (!status.ok()) return status;
    return write_obj(mesh, file, options);
}

}  // namespace povmesh
