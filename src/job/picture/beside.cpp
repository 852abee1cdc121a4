#include <algorithm>
#include <cstddef>

#include "job/picture/picture.h"

namespace povmesh::picture {
namespace {

constexpr std::uint8_t kLineGrey = 150;

}  // namespace

Image beside(const Image& left, const Image& right, std::uint32_t line_width) {
    Image both;
    both.width = left.width + line_width + right.width;
    both.height = left.height;
    both.rgb.assign(std::size_t{both.width} * both.height * 3, kLineGrey);
    for (std::size_t row = 0; row < both.height; ++row) {
        const auto copy = [&](const Image& from, std::size_t column) {
            const std::size_t bytes = std::size_t{from.width} * 3;
            std::copy_n(
                from.rgb.begin() + static_cast<std::ptrdiff_t>(row * bytes), bytes,
                both.rgb.begin() + static_cast<std::ptrdiff_t>((row * both.width + column) * 3));
        };
        copy(left, 0);
        copy(right, both.width - right.width);
    }
    return both;
}

}  // namespace povmesh::picture
