// Lines and words of text files.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/array.h"
#include "io/byte_source.h"
#include "io/decimal.h"

namespace povmesh {

inline bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

/// The lines of a text, out of a buffer for a piece of it: what stays in the caches is not fetched
/// from memory again, and fresh memory for a whole text takes as long as parsing half of it.
class Lines {
public:
    /// No line of a model is longer: a polygon would need some 25 million corners. It would have to
    /// be held in memory whole.
    static constexpr std::size_t kLongestLine = std::size_t{1} << 28;
    static constexpr std::string_view kTooLong = "longer than 256 MB, as no line of a model is";

    explicit Lines(const ByteSource& source)
        : source_(source),
          buffer_(static_cast<std::size_t>(std::min<std::uint64_t>(kBufferBytes, source.size + 1))),
          p_(buffer_.data()),
          end_(p_) {}

    /// The next line without its end, valid until the next call; false when there is none, or when
    /// it is too long.
    bool next(std::string_view& line) {
        const char* end = find_end(p_);
        while (end == nullptr) {
            const std::size_t searched = static_cast<std::size_t>(end_ - p_);
            if (!refill()) break;
            end = find_end(p_ + searched);
        }
        is_ended_ = end != nullptr;
        if (is_too_long_ || (!is_ended_ && p_ == end_)) return false;
        if (!is_ended_) end = end_;
        line = {p_, static_cast<std::size_t>(end - p_)};
        p_ = is_ended_ ? end + 1 : end;
        return true;
    }

    /// Whether the line ends with a line feed, and not with the text.
    bool is_ended() const { return is_ended_; }

    bool is_too_long() const { return is_too_long_; }

    /// Where the line ends.
    std::uint64_t offset() const { return read_ - static_cast<std::uint64_t>(end_ - p_); }

private:
    static constexpr std::size_t kBufferBytes = std::size_t{1} << 18;

    const char* find_end(const char* p) const {
        return static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(end_ - p)));
    }

    // Moves the rest to the front of the buffer, which grows when a line fills it, and reads on.
    bool refill() {
        const auto kept = static_cast<std::size_t>(end_ - p_);
        is_too_long_ = kept >= kLongestLine;
        if (is_too_long_) return false;
        if (kept == buffer_.size()) {
            buffer_.resize(kept * 2);
        } else if (kept > 0) {
            std::memmove(buffer_.data(), p_, kept);
        }
        p_ = buffer_.data();
        const std::size_t count =
            source_.read(read_, {buffer_.data() + kept, buffer_.size() - kept});
        end_ = p_ + kept + count;
        read_ += count;
        return count != 0;
    }

    const ByteSource& source_;
    Array<char> buffer_;
    const char* p_;  // where the next line begins
    const char* end_;
    std::uint64_t read_ = 0;
    bool is_ended_ = false;
    bool is_too_long_ = false;
};

/// The words of one line.
class Words {
public:
    explicit Words(std::string_view line) : p_(line.data()), last_(p_ + line.size()) {}

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

    /// Reads the number at the beginning of the next word; false, and no more numbers, when there
    /// is none.
    bool number(double& value) {
        while (p_ != last_ && is_blank(*p_)) ++p_;
        const char* const word = p_;
        const char* const end = parse_decimal(p_, last_, value);
        if (end == nullptr) {
            if (bad_ == nullptr) bad_ = word;
            p_ = last_;
            return false;
        }
        number_ = {p_, static_cast<std::size_t>(end - p_)};
        p_ = end;
        if (p_ != last_ && !is_blank(*p_) && bad_ == nullptr) bad_ = word;
        while (p_ != last_ && !is_blank(*p_)) ++p_;
        return true;
    }

    /// The same as the nearest float.
    bool number(float& value) {
        double wide = 0;
        if (!number(wide)) return false;
        value = nearest_float(wide, number_);
        return true;
    }

    /// Whether every number asked for so far was there, and nothing stood behind it in its word.
    bool are_whole() const { return bad_ == nullptr; }

    /// The first word of which that is not so; empty at the end of the line or at a comment.
    std::string_view bad_word() const { return Words({bad_, last_}).next(); }

    /// Whether a word follows.
    bool has_more() {
        while (p_ != last_ && is_blank(*p_)) ++p_;
        return p_ != last_ && *p_ != '#';
    }

private:
    const char* p_;
    const char* last_;
    std::string_view number_;
    const char* bad_ = nullptr;
};

}  // namespace povmesh
