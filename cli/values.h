// The values of options: what the user writes, read without regard to the locale.
#pragma once

#include <string_view>

#include "base/vec.h"

namespace povmesh::cli {

/// Reads a decimal number; not a number when it is none. The decimal point is a point.
double parse_number(std::string_view text);

/// Reads a number of bytes, such as 500M or 1.5G: K, M, G and T are 1024 times the one before, with
/// or without a B behind them. Not a number when it is none.
double parse_bytes(std::string_view text);

/// Reads X,Y,Z; its x is not a number when it is none.
Vec3d parse_vector(std::string_view text);

struct Circle {
    Vec3d place;
    double radius = 0;
};

/// Reads X,Y,Z,R; its radius is 0 when it is none.
Circle parse_circle(std::string_view text);

struct PixelSize {
    int width = 0;
    int height = 0;
};

/// Reads WIDTHxHEIGHT; width and height are 0 when it is none.
PixelSize parse_pixel_size(std::string_view text);

}  // namespace povmesh::cli
