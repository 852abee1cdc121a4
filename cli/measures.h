// Size, area and volume of a model before and after an operation, side by side.
#pragma once

#include <string>
#include <vector>

#include "cli/findings_report.h"
#include "job/measures.h"

namespace povmesh::cli {

/// A column of values under a head, for `side_by_side`.
std::vector<Row> measure_rows(const std::string& head, const Measures& measures);
Json measures_json(const Measures& measures);

/// Two columns of values behind one of labels; both have the same rows.
std::string side_by_side(const std::vector<Row>& before, const std::vector<Row>& after);

/// "0.28 s".
std::string seconds_text(double seconds);

}  // namespace povmesh::cli
