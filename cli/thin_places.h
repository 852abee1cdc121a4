// Thin walls and narrow gaps of a model, as `thickness` and `check` tell them.
#pragma once

#include <cstddef>
#include <string>

#include "cli/findings_report.h"
#include "job/thin_places.h"

namespace povmesh::cli {

/// "3 places thinner than 1".
std::string thin_text(const ThinPlaces& walls);
std::string narrow_text(const ThinPlaces& gaps);

/// "0.3 near (1, 2, 3)": the thinnest of the places told.
std::string thinnest_text(const ThinPlaces& found);

/// With the first `listed` places.
Json thin_json(const ThinPlaces& found, std::size_t listed);

}  // namespace povmesh::cli
