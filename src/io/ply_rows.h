// The rows of a PLY file behind its header, number by number, in both forms.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "base/array.h"
#include "base/convert.h"
#include "io/byte_source.h"
#include "io/decimal.h"
#include "io/file.h"
#include "io/ply_header.h"
#include "io/text.h"

namespace povmesh {

// Both classes below have the same functions. One that returns false leaves in `trouble` what is
// wrong, place and all.

/// A number after the other, without regard to lines.
class BinaryPlyRows {
public:
    BinaryPlyRows(const ByteSource& source, std::uint64_t offset, bool is_big_endian)
        : source_(source),
          swaps_(is_big_endian == (std::endian::native == std::endian::little)),
          read_(offset),
          buffer_(static_cast<std::size_t>(
              std::clamp<std::uint64_t>(source.size, kLeastBytes, kBufferBytes))),
          p_(buffer_.data()),
          end_(p_) {}

    bool begin_row() { return true; }
    bool end_row() { return true; }

    /// Where the next number stands.
    std::uint64_t offset() const { return read_ - static_cast<std::uint64_t>(end_ - p_); }
    std::uint64_t place() const { return offset(); }
    static std::string place_text(std::uint64_t place) { return "byte " + std::to_string(place); }

    bool number(PlyType type, double& value) {
        switch (type) {
            case PlyType::Int8:
                return take<std::int8_t>(value);
            case PlyType::UInt8:
                return take<std::uint8_t>(value);
            case PlyType::Int16:
                return take<std::int16_t>(value);
            case PlyType::UInt16:
                return take<std::uint16_t>(value);
            case PlyType::Int32:
                return take<std::int32_t>(value);
            case PlyType::UInt32:
                return take<std::uint32_t>(value);
            case PlyType::Float32:
                return take<float>(value);
            default:
                return take<double>(value);
        }
    }

    bool coordinate(PlyType type, float& value) {
        double wide = 0;
        if (!number(type, wide)) return false;
        value = narrow_to_float(wide);
        return true;
    }

    bool list_count(PlyType count_type, PlyType item_type, std::uint64_t& count) {
        const std::uint64_t at = offset();
        double value = 0;
        if (!number(count_type, value)) return false;
        const std::uint64_t room = source_.size - std::min(source_.size, offset());
        count = saturate_to<std::uint64_t>(value);
        if (value >= 0 && count <= room / size_of(item_type)) return true;
        trouble_ = place_text(at) + ": list that counts " +
                   std::to_string(saturate_to<std::int64_t>(value)) + " items, and " +
                   std::to_string(room) + " bytes follow";
        return false;
    }

    /// Takes a row that is nothing but a list of three corners of four bytes each, counted by a
    /// byte, as nearly all faces are; false, and nothing is taken, when it is anything else.
    bool take_triangle(std::array<std::uint32_t, 3>& corners) {
        if (static_cast<std::size_t>(end_ - p_) < kTriangleBytes && !refill(kTriangleBytes)) {
            return false;
        }
        if (*p_ != 3) return false;
        std::memcpy(corners.data(), p_ + 1, sizeof corners);
        if (swaps_) {
            for (std::uint32_t& corner : corners) {
                corner = corner >> 24 | (corner >> 8 & 0xFF00U) | (corner << 8 & 0xFF0000U) |
                         corner << 24;
            }
        }
        p_ += kTriangleBytes;
        return true;
    }
    /// The same for a row that is nothing but three floats; false at the end.
    bool take_point(std::array<float, 3>& point) {
        if (static_cast<std::size_t>(end_ - p_) < sizeof point && !refill(sizeof point)) {
            return false;
        }
        std::array<char, sizeof point> bytes;
        std::memcpy(bytes.data(), p_, sizeof point);
        if (swaps_) {
            for (std::size_t i = 0; i < bytes.size(); i += sizeof(float)) {
                std::reverse(bytes.begin() + static_cast<std::ptrdiff_t>(i),
                             bytes.begin() + static_cast<std::ptrdiff_t>(i + sizeof(float)));
            }
        }
        point = std::bit_cast<std::array<float, 3>>(bytes);
        p_ += sizeof point;
        return true;
    }

    /// Right behind it.
    void give_back_triangle() { p_ -= kTriangleBytes; }

    bool skip(PlyType type, std::uint64_t count) {
        const std::uint64_t bytes = size_of(type) * count;  // list_count has compared it
        const auto buffered = static_cast<std::uint64_t>(end_ - p_);
        if (bytes <= buffered) {
            p_ += bytes;
            return true;
        }
        if (bytes > source_.size - std::min(source_.size, offset())) return fail_at_end();
        read_ += bytes - buffered;
        p_ = end_ = buffer_.data();
        return true;
    }

    /// The same for rows that have all the same size; false, and nothing happens, when they have
    /// none or are not all there.
    bool skip_rows(std::uint64_t row_bytes, std::uint64_t count) {
        return count <= rest() / row_bytes && skip(PlyType::UInt8, row_bytes * count);
    }

    /// Bytes that are left.
    std::uint64_t rest() const { return source_.size - std::min(source_.size, offset()); }

    const std::string& trouble() const { return trouble_; }

private:
    static constexpr std::size_t kBufferBytes = std::size_t{1} << 18;
    static constexpr std::size_t kLeastBytes = 64;  // more than any row that is taken at once
    static constexpr std::size_t kTriangleBytes = 13;

    template <typename T>
    bool take(double& value) {
        if (static_cast<std::size_t>(end_ - p_) < sizeof(T) && !refill(sizeof(T))) {
            return fail_at_end();
        }
        std::array<char, sizeof(T)> bytes;
        std::memcpy(bytes.data(), p_, sizeof(T));
        if (swaps_) std::reverse(bytes.begin(), bytes.end());
        value = static_cast<double>(std::bit_cast<T>(bytes));
        p_ += sizeof(T);
        return true;
    }

    bool refill(std::size_t wanted) {
        const auto kept = static_cast<std::size_t>(end_ - p_);
        std::memmove(buffer_.data(), p_, kept);
        const std::size_t count =
            source_.read(read_, {buffer_.data() + kept, buffer_.size() - kept});
        read_ += count;
        p_ = buffer_.data();
        end_ = p_ + kept + count;
        return kept + count >= wanted;
    }

    bool fail_at_end() {
        trouble_ = "truncated PLY: ends at byte " + std::to_string(source_.size);
        return false;
    }

    const ByteSource& source_;
    bool swaps_;
    std::uint64_t read_;
    Array<char> buffer_;
    const char* p_;
    const char* end_;
    std::string trouble_;
};

/// A row a line. Empty lines are skipped.
class AsciiPlyRows {
public:
    AsciiPlyRows(Lines& lines, std::size_t lines_before)
        : lines_(lines), line_number_(lines_before) {}

    bool begin_row() {
        std::string_view line;
        do {
            if (!lines_.next(line)) {
                trouble_ = lines_.is_too_long()
                               ? place_text(line_number_ + 1) + ": " + std::string(Lines::kTooLong)
                               : "truncated PLY: ends after " + place_text(line_number_);
                return false;
            }
            ++line_number_;
            words_ = Words(line);
        } while (!words_.has_more());
        return true;
    }

    bool end_row() {
        if (!words_.has_more()) return true;
        trouble_ =
            here() + "more numbers than its properties ask for; is the count of its list right?";
        return false;
    }

    std::uint64_t place() const { return line_number_; }
    static std::string place_text(std::uint64_t place) { return "line " + std::to_string(place); }

    bool number(PlyType /*type*/, double& value) {
        return (words_.number(value) && words_.are_whole()) || fail_in_number();
    }

    bool coordinate(PlyType /*type*/, float& value) {
        return (words_.number(value) && words_.are_whole()) || fail_in_number();
    }

    bool list_count(PlyType count_type, PlyType /*item_type*/, std::uint64_t& count) {
        double value = 0;
        if (!number(count_type, value)) return false;
        count = saturate_to<std::uint64_t>(value);
        if (static_cast<double>(count) == value) return true;
        trouble_ = here() + "the count of a list is no whole number of 0 or more";
        return false;
    }

    static bool take_triangle(std::array<std::uint32_t, 3>& /*corners*/) { return false; }
    static bool take_point(std::array<float, 3>& /*point*/) { return false; }
    void give_back_triangle() {}

    bool skip(PlyType /*type*/, std::uint64_t count) {
        for (std::uint64_t i = 0; i < count; ++i) {
            if (words_.next().empty()) return fail_for_lack();
        }
        return true;
    }

    static bool skip_rows(std::uint64_t /*row_bytes*/, std::uint64_t /*count*/) { return false; }

    /// Lines with words in them that are left, as bytes.
    std::uint64_t rest() {
        std::uint64_t bytes = 0;
        std::string_view line;
        while (lines_.next(line)) bytes += Words(line).has_more() ? line.size() : 0;
        return bytes;
    }

    const std::string& trouble() const { return trouble_; }

private:
    std::string here() const { return place_text(line_number_) + ": "; }

    bool fail_for_lack() {
        trouble_ =
            here() + "fewer numbers than its properties ask for; is the count of its list right?";
        return false;
    }

    bool fail_in_number() {
        const std::string_view word = words_.bad_word();
        if (word.empty()) return fail_for_lack();
        trouble_ = here() + "\"" + one_line(word.substr(0, 20)) + "\" is not a decimal number";
        if (word.find(',') != std::string_view::npos) {
            trouble_ += "; write a point instead of the comma";
        }
        return false;
    }

    Lines& lines_;
    Words words_{{}};
    std::size_t line_number_;
    std::string trouble_;
};

}  // namespace povmesh
