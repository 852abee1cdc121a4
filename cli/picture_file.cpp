#include "cli/picture_file.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

#include "io/file.h"

namespace povmesh::cli {
namespace {

// Pixels.
constexpr std::uint32_t kBarWidth = 24;
constexpr std::uint32_t kMargin = 20;
constexpr std::uint32_t kDot = 2;  // of a letter

// Letters of 5 x 7 dots, a row in each byte, the left dot in bit 4.
struct Letter {
    char name;
    std::array<std::uint8_t, 7> rows;
};
constexpr std::array<Letter, 14> kLetters = {{{'A', {14, 17, 17, 31, 17, 17, 17}},
                                              {'C', {14, 17, 16, 16, 16, 17, 14}},
                                              {'D', {30, 17, 17, 17, 17, 17, 30}},
                                              {'E', {31, 16, 16, 30, 16, 16, 31}},
                                              {'G', {14, 17, 16, 23, 17, 17, 15}},
                                              {'H', {17, 17, 17, 31, 17, 17, 17}},
                                              {'I', {14, 4, 4, 4, 4, 4, 14}},
                                              {'K', {17, 18, 20, 24, 20, 18, 17}},
                                              {'N', {17, 25, 21, 19, 17, 17, 17}},
                                              {'O', {14, 17, 17, 17, 17, 17, 14}},
                                              {'R', {30, 17, 17, 30, 20, 18, 17}},
                                              {'S', {15, 16, 16, 14, 1, 1, 30}},
                                              {'T', {31, 4, 4, 4, 4, 4, 4}},
                                              {'W', {17, 17, 17, 21, 21, 27, 17}}}};
constexpr std::uint32_t kLetterWidth = 6 * kDot;
constexpr std::uint32_t kLetterHeight = 7 * kDot;

void set(picture::Image& image, std::uint32_t x, std::uint32_t y,
         std::array<std::uint8_t, 3> colour) {
    for (std::size_t channel = 0; channel < 3; ++channel) {
        image.rgb[(std::size_t{y} * image.width + x) * 3 + channel] = colour[channel];
    }
}

void write(picture::Image& image, std::string_view word, std::uint32_t left, std::uint32_t top) {
    for (const char name : word) {
        for (const Letter& letter : kLetters) {
            if (letter.name != name) continue;
            for (std::uint32_t y = 0; y < kLetterHeight; ++y) {
                for (std::uint32_t x = 0; x < 5 * kDot; ++x) {
                    const unsigned dot = letter.rows[y / kDot] >> (4 - x / kDot) & 1U;
                    if (dot != 0) set(image, left + x, top + y, {60, 60, 60});
                }
            }
        }
        left += kLetterWidth;
    }
}

}  // namespace

Status write_file(const std::string& path, const Array<char>& content) {
    ReplacementFile file;
    if (Status status = file.open(path); !status.ok()) return status;
    if (Status status = file.write(content); !status.ok()) return status;
    return file.commit();
}

picture::Image with_legend(const picture::Image& image, const Legend& legend) {
    const std::size_t longest = std::max(legend.above.size(), legend.below.size());
    const auto panel = static_cast<std::uint32_t>(longest) * kLetterWidth + 2 * kMargin;
    picture::Image wide;
    wide.width = image.width + panel;
    wide.height = image.height;
    wide.rgb.resize(std::size_t{wide.width} * wide.height * 3);
    // The ground goes on as it is at the border, which a picture keeps free.
    for (std::uint32_t y = 0; y < wide.height; ++y) {
        for (std::uint32_t x = 0; x < wide.width; ++x) {
            const picture::Colour colour = image.at(std::min(x, image.width - 1), y);
            set(wide, x, y, {colour.red, colour.green, colour.blue});
        }
    }
    const std::uint32_t left = image.width + kMargin;
    const std::uint32_t top = 2 * kMargin + kLetterHeight;
    const std::uint32_t height = image.height / 3;
    if (top + height + kMargin + kLetterHeight > image.height) return wide;
    for (std::uint32_t y = 0; y < height; ++y) {
        const std::array<std::uint8_t, 3> colour = legend.colour((y + 0.5) / height);
        for (std::uint32_t x = 0; x < kBarWidth; ++x) set(wide, left + x, top + y, colour);
    }
    write(wide, legend.above, left, kMargin + kMargin / 2);
    write(wide, legend.below, left, top + height + kMargin / 2);
    return wide;
}

}  // namespace povmesh::cli
