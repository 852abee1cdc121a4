#include "cli/drains.h"

#include <string>
#include <vector>

#include "job/numbers.h"

namespace povmesh::cli {
std::vector<Drain> drains_of(const Arguments& arguments) {
    std::vector<Drain> drains;
    if (!arguments.has("--drain")) return drains;
    for (const std::string& text : arguments.all("--drain")) {
        const Circle circle = parse_circle(text);
        drains.push_back({circle.place, circle.radius});
    }
    return drains;
}

OptionSpec drain_option() {
    return {.name = "--drain",
            .type = ValueType::Circle,
            .placeholder = "X,Y,Z,R",
            .unit = "units of the file",
            .takes_several = true,
            .help =
                "Cut a round hole of radius R through the wall at the place X,Y,Z on the "
                "surface; may be given several times"};
}

void add_drain_rows(std::size_t holes, std::size_t closed, std::size_t cavities,
                    ChangeReport& report) {
    report.rows.emplace_back("drain holes", std::to_string(holes));
    report.rows.emplace_back("closed cavities",
                             std::to_string(closed) + " of " + std::to_string(cavities));
    report.json["drains"] = holes;
    report.json["closed_cavities"] = closed;
}

}  // namespace povmesh::cli
