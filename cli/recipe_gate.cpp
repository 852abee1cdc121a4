#include "cli/recipe_gate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "job/numbers.h"

namespace povmesh::cli {
namespace {

std::string count_text(const Json& count) {
    return count.is_null() ? "not counted" : with_separators(count.get<std::uint64_t>());
}

std::string yes_or_no(bool is_so) {
    return is_so ? "yes" : "no";
}

// A model without a finite size or volume has none that would do.
bool is_at_most(const Json& found, const Json& asked) {
    return found.is_number() && found.get<double>() <= asked.get<double>();
}

bool is_at_least(const Json& found, const Json& asked) {
    return found.is_number() && found.get<double>() >= asked.get<double>();
}

std::string number_text(const Json& number) {
    return number.is_number() ? human_number(number.get<double>()) : "none";
}

std::string wall_text(const Json& report) {
    const Json& wall = report.at("wall");
    return wall.at("count") == 0 ? "none below " + human_number(wall.at("asked").get<double>())
                                 : counted(wall.at("count").get<std::uint64_t>(), "place") +
                                       " thinner, down to " + number_text(wall.at("smallest"));
}

std::string size_text_of(const Json& report) {
    const Json& size = report.at("size");
    if (!size.is_array()) return "none";
    std::string text;
    for (const Json& side : size) text += (text.empty() ? "" : " x ") + number_text(side);
    return text;
}

bool fits(const Json& size, const Json& asked) {
    return size.is_array() && is_at_most(size.at(0), asked.at(0)) &&
           is_at_most(size.at(1), asked.at(1)) && is_at_most(size.at(2), asked.at(2));
}

// Meshes that count as one when they are objects of one file are checked one by one.
bool is_closed(const Json& report) {
    if (!report.contains("objects")) return report.at("closed").get<bool>();
    const Json& objects = report.at("objects");
    return std::all_of(objects.begin(), objects.end(),
                       [](const Json& object) { return object.at("closed").get<bool>(); });
}

}  // namespace

std::span<const RequirementSpec> requirement_specs() {
    using Type = RequirementType;
    static constexpr std::array kSpecs = {
        RequirementSpec{"clean", Type::Truth, "No flaw is found",
                        [](const Json& report) { return report.at("verdict").get<std::string>(); },
                        [](const Json& report, const Json& asked) {
                            return (report.at("verdict") == "clean") == asked.get<bool>();
                        }},
        RequirementSpec{"closed", Type::Truth, "Every object is closed",
                        [](const Json& report) { return yes_or_no(is_closed(report)); },
                        [](const Json& report, const Json& asked) {
                            return is_closed(report) == asked.get<bool>();
                        }},
        RequirementSpec{"min_wall", Type::Number, "No wall is thinner (units of the file)",
                        wall_text,
                        [](const Json& report, const Json& /*asked*/) {
                            return report.at("wall").at("count") == 0;
                        }},
        RequirementSpec{"max_self_intersections", Type::Number,
                        "No more faces cut through each other",
                        [](const Json& report) {
                            return count_text(report.at("flaws").at("self_intersections"));
                        },
                        [](const Json& report, const Json& asked) {
                            return is_at_most(report.at("flaws").at("self_intersections"), asked);
                        }},
        RequirementSpec{"max_triangles", Type::Number, "It has no more triangles",
                        [](const Json& report) { return count_text(report.at("triangles")); },
                        [](const Json& report, const Json& asked) {
                            return is_at_most(report.at("triangles"), asked);
                        }},
        RequirementSpec{"max_shells", Type::Number, "It has no more shells",
                        [](const Json& report) { return count_text(report.at("shells")); },
                        [](const Json& report, const Json& asked) {
                            return is_at_most(report.at("shells"), asked);
                        }},
        RequirementSpec{"min_volume", Type::Number, "Its volume is not smaller",
                        [](const Json& report) { return number_text(report.at("volume")); },
                        [](const Json& report, const Json& asked) {
                            return is_at_least(report.at("volume"), asked);
                        }},
        RequirementSpec{"max_volume", Type::Number, "Its volume is not larger",
                        [](const Json& report) { return number_text(report.at("volume")); },
                        [](const Json& report, const Json& asked) {
                            return is_at_most(report.at("volume"), asked);
                        }},
        RequirementSpec{
            "max_size", Type::Size, "It fits into a box of these sides, x, y and z", size_text_of,
            [](const Json& report, const Json& asked) { return fits(report.at("size"), asked); }},
    };
    return kSpecs;
}

std::string requirement_error(const RequirementSpec& spec, const Json& value) {
    const auto is_number = [](const Json& v) {
        return v.is_number() && std::isfinite(v.get<double>()) && v.get<double>() >= 0;
    };
    switch (spec.type) {
        case RequirementType::Truth:
            return value.is_boolean() ? "" : "true or false";
        case RequirementType::Size:
            return value.is_array() && value.size() == 3 &&
                           std::all_of(value.begin(), value.end(), is_number)
                       ? ""
                       : "three numbers of at least 0, such as [250, 210, 210]";
        default:
            // A wall of nothing is never too thin.
            if (spec.name == "min_wall") {
                return is_number(value) && value.get<double>() > 0 ? "" : "a number above 0";
            }
            return is_number(value) ? "" : "a number of at least 0";
    }
}

}  // namespace povmesh::cli
