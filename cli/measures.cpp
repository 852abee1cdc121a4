#include "cli/measures.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "job/numbers.h"

namespace povmesh::cli {
namespace {

std::string number_text(double number) {
    return std::isfinite(number) ? human_number(number) : "unknown";
}

}  // namespace

std::vector<Row> measure_rows(const std::string& head, const Measures& measures) {
    return {{"", head},
            {"triangles", with_separators(measures.triangles)},
            {"vertices", with_separators(measures.vertices)},
            {"size", size_text(measures.box)},
            {"surface area", number_text(measures.area)},
            {"volume", number_text(measures.volume)}};
}

Json measures_json(const Measures& measures) {
    return {{"triangles", measures.triangles},
            {"vertices", measures.vertices},
            {"size", size_json(measures.box)},
            {"area", volume_json(measures.area)},
            {"volume", volume_json(measures.volume)}};
}

std::string side_by_side(const std::vector<Row>& before, const std::vector<Row>& after) {
    constexpr std::size_t kGap = 2;
    std::size_t width = 0;
    for (const Row& row : before) width = std::max(width, row.second.size());
    std::vector<Row> rows;
    for (std::size_t i = 0; i < before.size(); ++i) {
        const std::string& value = before[i].second;
        rows.emplace_back(before[i].first,
                          value + std::string(width + kGap - value.size(), ' ') + after[i].second);
    }
    return table_text(rows);
}

std::string seconds_text(double seconds) {
    const double rounded = std::round(seconds * 1000) / 1000;
    return human_number(rounded) + " s";
}

}  // namespace povmesh::cli
