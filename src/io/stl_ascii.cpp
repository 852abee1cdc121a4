// One pass over a buffer that is refilled: a word is looked at only when it holds a letter that the
// key words have, and a number is parsed where it stands. A word that lies across the end of the
// buffer is moved to its front and read again.
#include "io/stl_ascii.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>
#include <string_view>

#include "base/convert.h"
#include "io/decimal.h"
#include "mesh/tri_mesh.h"

namespace povmesh {
namespace {

// Classes of bytes. Every key word holds a "c" or an "x", which the other words of an STL file do
// not, so that most of them need no further look.
constexpr std::uint8_t kSpace = 1;
constexpr std::uint8_t kKeyLetter = 2;

constexpr std::array<std::uint8_t, 256> make_classes() {
    std::array<std::uint8_t, 256> classes{};
    for (const char c : {' ', '\t', '\n', '\v', '\f', '\r'}) {
        classes[static_cast<unsigned char>(c)] = kSpace;
    }
    for (const char c : {'c', 'C', 'x', 'X'}) classes[static_cast<unsigned char>(c)] = kKeyLetter;
    return classes;
}

constexpr std::array<std::uint8_t, 256> kClasses = make_classes();

std::uint8_t class_of(char c) {
    return kClasses[static_cast<unsigned char>(c)];
}

bool is_space(char c) {
    return class_of(c) == kSpace;
}

// Goes to the end of a word; the classes of all of its bytes.
unsigned classes_of_word(const char*& p) {
    unsigned seen = 0;
    for (unsigned c = 0; (c = class_of(*p)) != kSpace; ++p) seen |= c;
    return seen;
}

// Key words that a word contains.
constexpr unsigned kFacet = 1;
constexpr unsigned kEndFacet = 2;
constexpr unsigned kVertex = 4;
constexpr std::size_t kLongestKeyWord = 8;

template <bool kAnyCase>
bool is_same_letter(char c, char lower_case) {
    return (kAnyCase ? static_cast<char>(c | 0x20) : c) == lower_case;
}

template <bool kAnyCase>
bool contains(std::string_view word, std::string_view key) {
    return std::search(word.begin(), word.end(), key.begin(), key.end(),
                       is_same_letter<kAnyCase>) != word.end();
}

template <bool kAnyCase>
unsigned key_words(std::string_view word) {
    // As they stand in most files.
    if (word == "vertex") return kVertex;
    if (word == "facet") return kFacet;
    if (word == "endfacet") return kFacet | kEndFacet;
    return (contains<kAnyCase>(word, "facet") ? kFacet : 0U) |
           (contains<kAnyCase>(word, "endfacet") ? kEndFacet : 0U) |
           (contains<kAnyCase>(word, "vertex") ? kVertex : 0U);
}

template <bool kAnyCase>
class AsciiStlParser {
public:
    AsciiStlParser(const ByteSource& source, Array<float>& coordinates, std::size_t buffer_size)
        : source_(source),
          coordinates_(coordinates),
          buffer_size_(buffer_size),
          buffer_(buffer_size + kSentinel) {
        assert(buffer_size >= 64);
        set_end(0);
    }

    AsciiStlResult run();

private:
    enum class Reading { Done, End, Stopped };

    // A blank ends the last word, and a letter ends the last run of blanks, so that neither loop
    // over bytes needs to look for the end of the buffer.
    static constexpr std::size_t kSentinel = 2;

    void set_end(std::size_t length) {
        end_ = buffer_.data() + length;
        buffer_[length] = ' ';
        buffer_[length + 1] = 'a';
    }

    std::uint64_t offset_of(const char* p) const {
        return buffer_offset_ + static_cast<std::uint64_t>(p - buffer_.data());
    }

    bool refill(const char*& keep);
    bool find_word(const char*& p);
    unsigned rest_of_long_word(const char*& p, unsigned found);
    Reading read_number(const char*& p, float& value);
    Reading read_corner(const char*& p);
    bool make_room(const char* p);
    std::size_t facet_corners() const { return (float_count_ - facet_start_) / 3; }
    void note_bad_facet();
    void note_bad_number(std::string_view word);

    const ByteSource& source_;
    Array<float>& coordinates_;
    const std::size_t buffer_size_;
    Array<char> buffer_;
    const char* end_ = nullptr;  // of the bytes in the buffer
    std::uint64_t buffer_offset_ = 0;
    bool is_source_empty_ = false;

    std::size_t float_count_ = 0;  // floats of `coordinates_` that are set
    std::size_t facet_start_ = 0;  // the same where the current facet began
    std::uint64_t facet_offset_ = 0;
    AsciiStlResult result_;
};

// Moves what begins at `keep` to the front of the buffer, reads on behind it and sets `keep` to its
// new place. False when the source has no more or the buffer is full; other pointers are stale
// then, too.
template <bool kAnyCase>
bool AsciiStlParser<kAnyCase>::refill(const char*& keep) {
    if (is_source_empty_) return false;
    const auto kept = static_cast<std::size_t>(end_ - keep);
    buffer_offset_ = offset_of(keep);
    std::memmove(buffer_.data(), keep, kept);
    keep = buffer_.data();
    const std::size_t room = buffer_size_ - kept;
    const std::size_t count =
        room == 0 ? 0 : source_.read(buffer_offset_ + kept, {buffer_.data() + kept, room});
    if (room != 0 && count == 0) is_source_empty_ = true;
    set_end(kept + count);
    return count != 0;
}

// Goes to the next byte that is not blank; false at the end.
template <bool kAnyCase>
bool AsciiStlParser<kAnyCase>::find_word(const char*& p) {
    for (;;) {
        while (is_space(*p)) ++p;
        if (p < end_) return true;
        p = end_;
        if (!refill(p)) return false;
    }
}

// Goes to the end of a word that fills the whole buffer. Returns the key words in all of it.
template <bool kAnyCase>
unsigned AsciiStlParser<kAnyCase>::rest_of_long_word(const char*& p, unsigned found) {
    while (p == end_) {
        const char* piece = end_ - kLongestKeyWord;  // a key word may lie across the border
        if (!refill(piece)) {
            p = end_;
            break;
        }
        p = piece;
        const bool has_key_letter = (classes_of_word(p) & kKeyLetter) != 0;
        if (has_key_letter) {
            found |= key_words<kAnyCase>({piece, static_cast<std::size_t>(p - piece)});
        }
    }
    return found;
}

template <bool kAnyCase>
typename AsciiStlParser<kAnyCase>::Reading AsciiStlParser<kAnyCase>::read_number(const char*& p,
                                                                                 float& value) {
    if (!find_word(p)) return Reading::End;
    double number = 0;
    const char* word = p;
    const char* after = parse_decimal(word, end_, number);
    p = after != nullptr ? after : word;
    while (!is_space(*p)) ++p;
    for (bool goes_on = true; goes_on && p == end_;) {
        goes_on = refill(word);
        after = parse_decimal(word, end_, number);  // it has moved, and may have gone on
        p = word;
        while (!is_space(*p)) ++p;
    }
    const bool fills_buffer = p == end_ && !is_source_empty_;
    if (after != p || fills_buffer) note_bad_number({word, static_cast<std::size_t>(p - word)});
    if (after == nullptr) return Reading::Stopped;
    value = narrow_to_float(number);
    if (p == end_) rest_of_long_word(p, 0);
    return Reading::Done;
}

template <bool kAnyCase>
typename AsciiStlParser<kAnyCase>::Reading AsciiStlParser<kAnyCase>::read_corner(const char*& p) {
    if (coordinates_.size() < float_count_ + 3 && !make_room(p)) return Reading::Stopped;
    float* const corner = coordinates_.data() + float_count_;
    for (int axis = 0; axis < 3; ++axis) {
        const Reading reading = read_number(p, corner[axis]);
        if (reading != Reading::Done) return reading;
    }
    float_count_ += 3;
    return Reading::Done;
}

// Grows the result to what the whole text will need if it goes on as it began. A corner takes at
// least 12 bytes of text, so that the guess is bounded by the size of the file.
template <bool kAnyCase>
bool AsciiStlParser<kAnyCase>::make_room(const char* p) {
    if (float_count_ / 9 >= kMaxFaceCount) {
        result_.is_too_large = true;
        return false;
    }
    constexpr std::size_t kFewest = 9 * std::size_t{64};
    const double whole = static_cast<double>(source_.size) / static_cast<double>(offset_of(p));
    const auto guess = static_cast<std::size_t>(static_cast<double>(float_count_) * whole * 1.02);
    Array<float> larger(std::max(guess, float_count_ + float_count_ / 4) + kFewest);
    std::copy_n(coordinates_.begin(), float_count_, larger.begin());
    coordinates_.swap(larger);
    return true;
}

template <bool kAnyCase>
void AsciiStlParser<kAnyCase>::note_bad_facet() {
    if (result_.bad_facet != AsciiStlResult::kNone) return;
    result_.bad_facet = facet_offset_;
    result_.bad_facet_corners = facet_corners();
}

template <bool kAnyCase>
void AsciiStlParser<kAnyCase>::note_bad_number(std::string_view word) {
    if (result_.bad_number != AsciiStlResult::kNone) return;
    constexpr std::size_t kEnough = 20;
    result_.bad_number = offset_of(word.data());
    result_.bad_word = word.substr(0, kEnough);
}

template <bool kAnyCase>
AsciiStlResult AsciiStlParser<kAnyCase>::run() {
    bool is_inside = false;
    const char* p = end_;
    Reading reading = Reading::Done;
    while (find_word(p)) {
        const char* word = p;
        const unsigned seen = classes_of_word(p);
        if (p == end_) {
            const bool goes_on = refill(word);
            p = goes_on ? word : end_;
            if (goes_on) continue;
        }
        const bool fills_buffer = p == end_ && !is_source_empty_;
        if ((seen & kKeyLetter) == 0 && !fills_buffer) continue;

        const std::uint64_t offset = offset_of(word);
        unsigned found = key_words<kAnyCase>({word, static_cast<std::size_t>(p - word)});
        if (fills_buffer) found = rest_of_long_word(p, found);
        if (!is_inside) {
            if ((found & kFacet) == 0) continue;
            is_inside = true;
            result_.has_facet = true;
            facet_offset_ = offset;
            facet_start_ = float_count_;
        } else if ((found & kEndFacet) != 0) {
            is_inside = false;
            if (facet_corners() % 3 != 0) note_bad_facet();
        } else if ((found & kVertex) != 0) {
            reading = read_corner(p);
            if (reading != Reading::Done) break;
        }
    }
    // "endsolid", too, begins a facet when the name of the solid contains "facet"; that one is
    // empty.
    const bool is_cut =
        reading == Reading::End || (reading == Reading::Done && is_inside && facet_corners() != 0);
    if (is_cut && result_.bad_facet == AsciiStlResult::kNone) {
        note_bad_facet();
        result_.is_cut = true;
    }
    coordinates_.resize(float_count_ / 9 * 9);
    return result_;
}

}  // namespace

AsciiStlResult parse_ascii_stl(const ByteSource& source, bool any_case, Array<float>& coordinates,
                               std::size_t buffer_size) {
    coordinates.clear();
    buffer_size = static_cast<std::size_t>(
        std::min<std::uint64_t>(buffer_size, std::max<std::uint64_t>(source.size + 1, 64)));
    if (any_case) return AsciiStlParser<true>(source, coordinates, buffer_size).run();
    return AsciiStlParser<false>(source, coordinates, buffer_size).run();
}

std::uint64_t line_of(const ByteSource& source, std::uint64_t offset) {
    std::array<char, 4096> buffer{};
    std::uint64_t line = 1;
    char previous = 0;
    for (std::uint64_t done = 0; done < offset;) {
        const auto wanted = std::min<std::uint64_t>(offset - done, buffer.size());
        const std::size_t count =
            source.read(done, {buffer.data(), static_cast<std::size_t>(wanted)});
        if (count == 0) break;
        for (std::size_t i = 0; i < count; ++i) {
            const char c = buffer[i];
            if (c == '\r' || (c == '\n' && previous != '\r')) ++line;
            previous = c;
        }
        done += count;
    }
    return line;
}

}  // namespace povmesh
