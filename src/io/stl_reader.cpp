// A file is taken for binary when its size is what its count asks for, else for a text, and for
// binary after all when the text gives no face; then a message is found for what went wrong.
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <string>
#include <string_view>

#include "io/byte_source.h"
#include "io/file.h"
#include "io/stl.h"
#include "io/stl_ascii.h"
#include "io/stl_binary.h"
#include "mesh/build_f.h"

namespace povmesh {
namespace {

constexpr std::uint32_t kProgressOpen = 5;
constexpr std::uint32_t kProgressRead = 48;

// What size and header say about a file.
struct Layout {
    std::uint64_t size = 0;
    bool has_count = false;
    std::uint64_t promised = 0;  // triangles by the count
    std::uint64_t held = 0;      // records that are there, as many as fit the size
    bool is_exact = false;       // the size is just what the count asks for
    bool is_text = false;        // the beginning has no control characters
    bool has_zero = false;       // it has a byte of 0, which no text has
    bool has_facet = false;      // it has the word, which begins what a text holds
    bool begins_with_solid = false;

    std::uint64_t promised_bytes() const { return kStlPrologueBytes + promised * kStlRecordBytes; }
    std::uint64_t available() const { return std::min(promised, held); }
    bool is_surely_binary() const { return is_exact || (has_zero && !has_facet); }
};

bool is_letter(char lower_case, char c) {
    return (c | 0x20) == lower_case;
}

bool contains_facet(std::string_view text) {
    constexpr std::string_view kFacet = "facet";
    return std::search(text.begin(), text.end(), kFacet.begin(), kFacet.end(),
                       [](char c, char key) { return is_letter(key, c); }) != text.end();
}

bool is_text(std::string_view bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](char c) {
        return static_cast<unsigned char>(c) >= 0x20 || (c >= '\t' && c <= '\r');
    });
}

bool begins_with_solid(std::string_view text) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    constexpr std::string_view kSolid = "solid";
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
    text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
    return text.size() >= kSolid.size() &&
           std::equal(kSolid.begin(), kSolid.end(), text.begin(), is_letter);
}

Layout layout_of(const ByteSource& source) {
    std::array<char, 1024> buffer{};
    const std::string_view head(buffer.data(), source.read(0, buffer));
    Layout layout;
    layout.size = source.size;
    layout.is_text = is_text(head);
    layout.has_zero = head.find('\0') != std::string_view::npos;
    layout.has_facet = contains_facet(head);
    layout.begins_with_solid = begins_with_solid(head);
    if (head.size() < kStlPrologueBytes) return layout;
    std::uint32_t count = 0;
    std::memcpy(&count, head.data() + kStlHeaderBytes, sizeof count);
    layout.has_count = true;
    layout.promised = count;
    layout.held = stl_records_in(layout.size - kStlPrologueBytes);
    layout.is_exact = layout.size == layout.promised_bytes();
    return layout;
}

Status bad_file(const std::string& name, const std::string& what) {
    return {StatusCode::BadFile, one_line(name) + ": " + what};
}

Status too_large(const std::string& name) {
    return {StatusCode::TooLarge, one_line(name) + ": more than " + std::to_string(kMaxFaceCount) +
                                      " triangles; divide the model"};
}

std::string in_line(const ByteSource& source, std::uint64_t offset) {
    return "line " + std::to_string(line_of(source, offset));
}

// What a person should know about a text of which triangles were read, or about one with facets.
Status judge_ascii(const std::string& name, const ByteSource& source, const AsciiStlResult& text,
                   std::uint64_t triangles) {
    const std::string so_far = "; " + std::to_string(triangles) + " triangles could be read";
    if (text.is_too_large) return too_large(name);
    if (text.is_cut) {
        return bad_file(name, "truncated ASCII STL: ends within the facet of " +
                                  in_line(source, text.bad_facet) + so_far);
    }
    if (text.bad_facet != AsciiStlResult::kNone) {
        return bad_file(name, in_line(source, text.bad_facet) + ": facet with " +
                                  std::to_string(text.bad_facet_corners) +
                                  " corners instead of 3; mend it, it shifts all that follow");
    }
    if (text.bad_number != AsciiStlResult::kNone) {
        const bool has_comma = text.bad_word.find(',') != std::string::npos;
        return bad_file(name, in_line(source, text.bad_number) + ": \"" + one_line(text.bad_word) +
                                  "\" is not a decimal number" +
                                  (has_comma ? "; write a point instead of the comma" : so_far));
    }
    if (triangles == 0) return bad_file(name, "ASCII STL that holds no triangle");
    return {};
}

// The same for a file that was read as binary, or would have to be.
Status judge_binary(const std::string& name, const Layout& layout, std::uint64_t triangles) {
    const std::string size = std::to_string(layout.size) + " bytes";
    if (layout.size == 0) return bad_file(name, "empty file; nothing was saved in it");
    if (layout.is_text && !layout.is_exact) {
        return bad_file(name, layout.begins_with_solid ? "ASCII STL that holds no triangle"
                                                       : "not an STL file: text without facets");
    }
    if (!layout.has_count) {
        return bad_file(name, "not an STL file: " + size + ", a binary STL has at least " +
                                  std::to_string(kStlPrologueBytes));
    }
    const std::string promise = "header promises " + std::to_string(layout.promised) + " triangles";
    if (layout.promised == 0 && layout.size > kStlPrologueBytes) {
        return bad_file(name, "damaged binary STL: " + promise + ", but " +
                                  std::to_string(layout.size - kStlPrologueBytes) +
                                  " bytes follow; correct the count at byte 80");
    }
    if (layout.promised > triangles) {
        return bad_file(name, "truncated binary STL: " + promise + " (" +
                                  std::to_string(layout.promised_bytes()) + " bytes), file holds " +
                                  size);
    }
    if (triangles == 0) return bad_file(name, "binary STL that holds no triangle");
    return {};
}

// The same for a binary file of which words were read, most likely those of its header.
Status judge_words_of_binary(const std::string& name, const Layout& layout) {
    Status status = judge_binary(name, layout, layout.available());
    if (!status.ok()) return status;
    return bad_file(
        name, "binary STL of " + std::to_string(layout.size) + " bytes, but its count asks for " +
                  std::to_string(layout.promised_bytes()) +
                  ", and words of an ASCII STL in its header were read instead; change the header");
}

bool is_same_corner(const float* a, const float* b) {
    return std::equal(a, a + 3, b, [](float x, float y) {
        return std::bit_cast<std::uint32_t>(x) == std::bit_cast<std::uint32_t>(y);
    });
}

// True when a triangle has three different corners, which is what `build_f` asks of a face but for
// colliding keys.
bool has_face(const Array<float>& coordinates) {
    for (std::size_t i = 0; i + 9 <= coordinates.size(); i += 9) {
        const float* t = coordinates.data() + i;
        if (!is_same_corner(t, t + 3) && !is_same_corner(t + 3, t + 6) &&
            !is_same_corner(t, t + 6)) {
            return true;
        }
    }
    return false;
}

// Reads a file in the form that it has. `make_faces` is given the coordinates, may take them, and
// tells whether they make any face; a text that makes none is read once more as binary. A strict
// reader need not come that far: what is wrong with it as binary shows in its layout.
template <typename MakeFaces>
Status read_either_form(const ByteSource& source, const std::string& name,
                        const StlReadOptions& options, StlInfo& info, MakeFaces&& make_faces) {
    const Layout layout = layout_of(source);
    info = {};
    info.promised_triangles = layout.promised;
    Array<float> coordinates;
    AsciiStlResult text;
    const auto deliver_nothing = [&] {
        coordinates.clear();
        info.triangles = 0;
        make_faces(coordinates);
    };
    if (!layout.is_exact && !(options.strict && layout.is_surely_binary())) {
        text = parse_ascii_stl(source, options.any_case, coordinates);
        info.triangles = coordinates.size() / 9;
        if (make_faces(coordinates)) {
            info.is_ascii = true;
            if (layout.has_zero) return judge_words_of_binary(name, layout);
            return judge_ascii(name, source, text, info.triangles);
        }
    }
    // A text whose facets came to nothing is what the person has, whatever its bytes give as
    // records.
    const bool was_text = layout.is_text && !layout.is_exact && text.has_facet;
    if (options.strict && !was_text) {
        if (Status status = judge_binary(name, layout, layout.available()); !status.ok()) {
            deliver_nothing();
            return status;
        }
    }
    if (layout.available() > kMaxFaceCount) {
        deliver_nothing();
        return too_large(name);
    }
    parse_binary_stl(source, static_cast<std::size_t>(layout.available()), coordinates);
    const std::uint64_t text_triangles = info.triangles;
    info.triangles = coordinates.size() / 9;
    if (layout.held >= layout.promised && layout.has_count) {
        info.trailing_bytes = layout.size - std::min(layout.size, layout.promised_bytes());
        info.records_left_out = stl_records_in(info.trailing_bytes);
    }
    const bool any = make_faces(coordinates);
    Status status = was_text ? judge_ascii(name, source, text, text_triangles)
                             : judge_binary(name, layout, info.triangles);
    if (status.ok() && (was_text || !any)) {
        return bad_file(name, "no triangle with three different corners");
    }
    return status;
}

}  // namespace

Status read_stl_soup(const ByteSource& source, const std::string& name,
                     const StlReadOptions& options, RunContext& run, Array<float>& coordinates,
                     StlInfo& info) {
    run.progress.set(kProgressOpen);
    Status status = read_either_form(source, name, options, info, [&](Array<float>& read) {
        coordinates.swap(read);
        return has_face(coordinates);
    });
    run.progress.set(kProgressRead);
    return status;
}

Status read_stl(const ByteSource& source, const std::string& name, const StlReadOptions& options,
                RunContext& run, TriMesh& mesh, StlInfo& info) {
    run.progress.set(kProgressOpen);
    Status status = read_either_form(source, name, options, info, [&](Array<float>& read) {
        build_f(mesh, Soup{read.size() / 9, read.data()});
        read = {};
        return !mesh.faces.empty();
    });
    run.progress.set(kProgressRead);
    return status;
}

Status read_stl_soup(const std::string& path, const StlReadOptions& options, RunContext& run,
                     Array<float>& coordinates, StlInfo& info) {
    InputFile file;
    Status status = file.open(path);
    if (!status.ok()) return status;
    return read_stl_soup(bytes_of(file), path, options, run, coordinates, info);
}

Status read_stl(const std::string& path, const StlReadOptions& options, RunContext& run,
                TriMesh& mesh, StlInfo& info) {
    InputFile file;
    Status status = file.open(path);
    if (!status.ok()) return status;
    return read_stl(bytes_of(file), path, options, run, mesh, info);
}

Status read_stl(const std::string& path, RunContext& run, TriMesh& mesh) {
    StlInfo info;
    return read_stl(path, {}, run, mesh, info);
}

}  // namespace povmesh
