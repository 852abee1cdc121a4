#include "job/new_faults.h"

#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include "job/cavity.h"
#include "job/findings.h"
#include "job/numbers.h"
#include "mesh/volume.h"

namespace povmesh {

void add_faults(const NewFaults& faults, double volume_before, const TriMesh& after,
                double notable_share, Remarks& remarks) {
    const auto add = [](std::vector<std::string>& lines, const NewFault& fault,
                        std::string_view what) {
        if (fault.count == 0) return;
        lines.push_back(with_separators(fault.count) + " " + std::string(what) +
                        " that the model did not have, one " + place_text(fault.place));
    };
    add(remarks.doubts, faults.crossings, "pairs of intersecting faces");
    add(remarks.warnings, faults.slivers, "nearly degenerate triangles");
    add(remarks.warnings, faults.open_edges, "open edges");
    add(remarks.warnings, faults.junctions, "edges of more than two triangles");
    if (volume_before == 0 || faults.open_edges.count != 0) return;
    const double volume_after = volume(after);
    const double share = std::abs(volume_after - volume_before) / std::abs(volume_before);
    if (!(share > notable_share)) return;
    Remarks windings;
    doubt_windings(after, windings);
    if (!windings.doubts.empty()) return;
    remarks.warnings.push_back(
        "the volume is " + human_number(std::round(share * 1000) / 10) + " % " +
        (std::abs(volume_after) < std::abs(volume_before) ? "smaller" : "larger"));
}

void add_faults(TriMesh& before, TriMesh& after, double notable_share, Remarks& remarks) {
    add_faults(find_new_faults(before, after), volume(before), after, notable_share, remarks);
}

}  // namespace povmesh
