// How many faces a reduction keeps of a shell.
#pragma once

#include <algorithm>
#include <cstddef>

#include "base/convert.h"

namespace povmesh {

/// From here on a share keeps everything.
constexpr double kKeepsAll = 0.999;

/// Number of faces to delete of a shell of `face_count`. A share below -0.5 is automatic: up to
/// 100,000 faces stay, and 30 % of those beyond; any other keeps at least `least_keep`. One that is
/// not a number deletes nothing.
inline std::size_t faces_to_delete(std::size_t face_count, double keep, double least_keep) {
    constexpr double kKeptWhole = 100000;
    constexpr double kKeptOfTheRest = 0.3;
    const auto n = static_cast<double>(face_count);
    if (keep != keep || keep >= kKeepsAll) return 0;
    double kept = std::max(keep, least_keep);
    if (keep < -0.5) {
        if (n <= kKeptWhole) return 0;
        kept = ((n - kKeptWhole) * kKeptOfTheRest + kKeptWhole) / n;
    }
    return saturate_to<std::size_t>((1.0 - std::max(keep, kept)) * n);
}

}  // namespace povmesh
