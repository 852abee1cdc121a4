// Numbers as people read them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace povmesh {

/// 12,345,678.
std::string with_separators(std::uint64_t number);

/// "1 triangle", "12,000 triangles"; without `several` an "s" makes the plural.
std::string counted(std::uint64_t count, std::string_view one, std::string_view several = {});

/// Up to six significant digits, the whole part always in full with separators: 41.7202, 0.0001234,
/// 1,234,567; beyond 1e15 with an exponent. The number is finite.
std::string human_number(double number);

/// To four significant digits, which are enough of a length.
std::string four_digits(double number);

/// The double whose shortest decimal form is that of the float, so that 0.1f is printed as 0.1.
double shortest_double(float number);

}  // namespace povmesh
