// The STL reader on any bytes, compared with a slow reader that splits the text into words first.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/convert.h"
#include "io/stl.h"
#include "io/stl_ascii.h"
#include "require.h"

namespace povmesh {
namespace {

std::vector<std::string_view> words_of(std::string_view text) {
    constexpr std::string_view kSpace = " \t\n\v\f\r";
    std::vector<std::string_view> words;
    for (;;) {
        const std::size_t begin = text.find_first_not_of(kSpace);
        if (begin == std::string_view::npos) return words;
        text.remove_prefix(begin);
        words.push_back(text.substr(0, text.find_first_of(kSpace)));
        text.remove_prefix(words.back().size());
    }
}

std::optional<float> number_of(std::string_view word) {
    const bool negative = word.starts_with('-');
    if (negative || word.starts_with('+')) word.remove_prefix(1);
    if (word.empty() || ((word[0] < '0' || word[0] > '9') && word[0] != '.')) return {};
    double value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error == std::errc::invalid_argument) return {};
    if (error == std::errc::result_out_of_range) {
        // "C" locale: nobody here sets another.
        value = std::min(std::strtod(std::string(word.data(), end).c_str(), nullptr),
                         std::numeric_limits<double>::max());
    }
    return narrow_to_float(negative ? -value : value);
}

bool contains(std::string_view word, std::string_view key, bool any_case) {
    std::string copy(word);
    if (any_case) {
        for (char& c : copy) {
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return copy.find(key) != std::string::npos;
}

std::vector<float> slow_corners(const std::vector<std::string_view>& words, bool any_case) {
    std::vector<float> corners;
    bool is_inside = false;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (!is_inside) {
            is_inside = contains(words[i], "facet", any_case);
        } else if (contains(words[i], "endfacet", any_case)) {
            is_inside = false;
        } else if (contains(words[i], "vertex", any_case)) {
            std::vector<float> corner;
            for (std::size_t k = i + 1; k < words.size() && k <= i + 3; ++k) {
                const std::optional<float> number = number_of(words[k]);
                if (!number) break;
                corner.push_back(*number);
            }
            if (corner.size() < 3) break;
            corners.insert(corners.end(), corner.begin(), corner.end());
            i += 3;
        }
    }
    corners.resize(corners.size() / 9 * 9);
    return corners;
}

template <typename A, typename B>
bool same_bits(const A& a, const B& b) {
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(a[0])) == 0);
}

void check_ascii(std::span<const char> bytes, bool any_case) {
    const std::vector<std::string_view> words = words_of({bytes.data(), bytes.size()});
    std::size_t longest = 0;
    for (const std::string_view word : words) longest = std::max(longest, word.size());

    Array<float> whole;
    const AsciiStlResult result = parse_ascii_stl(bytes_of(bytes), any_case, whole);
    require(same_bits(whole, slow_corners(words, any_case)),
            "corners differ from the slow reader's");
    require(std::all_of(whole.begin(), whole.end(), [](float v) { return std::isfinite(v); }),
            "coordinate is not finite");
    // In small pieces; only a number longer than the buffer may come out differently.
    Array<float> pieces;
    const AsciiStlResult other = parse_ascii_stl(bytes_of(bytes), any_case, pieces, 64);
    if (longest >= 64) return;
    require(same_bits(whole, pieces) && result.bad_facet == other.bad_facet &&
                result.bad_number == other.bad_number && result.bad_word == other.bad_word &&
                result.has_facet == other.has_facet && result.is_cut == other.is_cut &&
                result.bad_facet_corners == other.bad_facet_corners,
            "result depends on the size of the buffer");
}

void check_reader(std::span<const char> bytes, bool any_case) {
    const StlReadOptions options{.any_case = any_case};
    std::uint32_t cell = 0;
    RunLog log;
    RunContext run{Progress(&cell), log};
    TriMesh mesh;
    StlInfo info;
    const Status status = read_stl(bytes_of(bytes), "part.stl", options, run, mesh, info);
    require(cell == 48, "progress at the end");
    require(is_consistent(mesh), "inconsistent mesh");
    require(mesh.faces.size() <= info.triangles, "more faces than triangles");
    require(info.triangles * 36 <= bytes.size(), "more triangles than the bytes can hold");
    require(!status.ok() || !mesh.faces.empty(), "good status without a face");
    require(status.ok() || (status.text().starts_with("part.stl: ") &&
                            std::none_of(status.text().begin(), status.text().end(),
                                         [](char c) { return c >= 0 && c < ' '; })),
            "message: " + status.text());

    Array<float> soup;
    StlInfo soup_info;
    (void)read_stl_soup(bytes_of(bytes), "part.stl", options, run, soup, soup_info);
    require(soup.size() == soup_info.triangles * 9, "size of the soup");
    require(mesh.faces.empty() ||
                (info.is_ascii == soup_info.is_ascii && info.triangles == soup_info.triangles),
            "soup and mesh differ");
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span bytes(reinterpret_cast<const char*>(data), size);
    for (const bool any_case : {false, true}) {
        check_ascii(bytes, any_case);
        check_reader(bytes, any_case);
    }
    return 0;
}

}  // namespace povmesh
