#include "io/decimal.h"

#include <charconv>
#include <limits>
#include <system_error>

namespace povmesh::detail {
namespace {

// Whether a number of which it is known that it is far from 1 is above it. The decimal exponent of
// its first digit tells; all arithmetic saturates, because an exponent may have any number of
// digits.
bool is_above_one(const char* first, const char* last) {
    std::int64_t leading = 0;  // digits before the point from the first one that is not 0 on, or
                               // minus the zeros behind the point
    const char* p = first;
    while (p != last && *p == '0') ++p;
    for (; p != last && is_digit(*p); ++p) ++leading;
    if (p != last && *p == '.') {
        ++p;
        if (leading == 0) {
            for (; p != last && *p == '0'; ++p) --leading;
        }
        while (p != last && is_digit(*p)) ++p;
    }
    std::int64_t power = 0;
    if (p != last) {  // at the "e"
        ++p;
        const bool minus = *p == '-';
        if (minus || *p == '+') ++p;
        for (; p != last; ++p) {
            if (power < std::numeric_limits<std::int64_t>::max() / 100)
                power = power * 10 + (*p - '0');
        }
        if (minus) power = -power;
    }
    return leading + power > 0;
}

}  // namespace

double round_decimal(const char* first, const char* last) {
    double value = 0;
    const std::errc error = std::from_chars(first, last, value).ec;
    if (error == std::errc::result_out_of_range || value > std::numeric_limits<double>::max()) {
        return is_above_one(first, last) ? std::numeric_limits<double>::max() : 0.0;
    }
    return value;
}

}  // namespace povmesh::detail
