#include "cli/section.h"

#include <cmath>

#include "cli/values.h"

namespace povmesh::cli {

std::optional<Section> parse_section(std::string_view text) {
    constexpr std::string_view kAxes = "xyz";
    Section section;
    if (text.empty() || (text.size() > 1 && text[1] != '=')) return {};
    section.axis = kAxes.find(text[0]);
    if (section.axis == std::string_view::npos) return {};
    if (text.size() == 1) return section;
    const double value = parse_number(text.substr(2));
    if (std::isnan(value)) return {};
    section.value = value;
    return section;
}

}  // namespace povmesh::cli
