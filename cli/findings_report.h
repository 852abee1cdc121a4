// Tells findings: as a table for people, as JSON for programs.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "job/findings.h"

namespace povmesh::cli {

using Json = nlohmann::ordered_json;

/// A label and a value.
using Row = std::pair<std::string, std::string>;

/// The rows, indented, the values in one column.
std::string table_text(std::span<const Row> rows);

/// Lines of the same number of words, indented, each word in a column of its own.
std::string columns_text(std::span<const std::vector<std::string>> lines);

/// Everything but the verdict. `is_brief` gives bare values, for columns side by side, and always
/// the same rows.
std::vector<Row> finding_rows(const Findings& findings, bool is_brief = false);

/// Where the flaws are, a row each.
std::vector<Row> where_rows(const Findings& findings);

/// Extent along the axes, in double: that of finite floats need not be a finite float.
std::string size_text(const Box3f& box);

Json size_json(const Box3f& box);
Json volume_json(double volume);
Json holes_json(std::span<const HoleSize> holes);

/// Appends the keys from "vertices" on.
void add_findings(Json& json, const Findings& findings);

/// The text of a document. A file name that is not UTF-8 gets replacement characters; JSON has no
/// other way.
std::string json_text(const Json& json);

}  // namespace povmesh::cli
