#include "job/phases.h"

#include <array>

namespace povmesh::job {
namespace {

constexpr const char* kWriting = "writing";
constexpr const char* kLooking = "looking at the result";

// Every value is one that the operation sets, but for those of writing.
constexpr Phase kBalance[] = {
    {50, "finding how it stands"}, {57, "carving"}, {72, "looking at the walls"}, {80, kWriting}};
constexpr Phase kCheck[] = {{48, "looking for flaws"},
                            {65, "following edges"},
                            {72, "judging windings"},
                            {78, "looking for duplicates"},
                            {80, "looking for crossings"}};
constexpr Phase kCut[] = {{50, "cutting"}, {70, kWriting}};
constexpr Phase kDecompose[] = {{50, "dividing"}, {65, "looking at the cuts"}, {70, kWriting}};
constexpr Phase kHollow[] = {{50, "finding the cavity"}, {80, kWriting}};
constexpr Phase kInfill[] = {{50, "making cells"}, {80, kWriting}};
constexpr Phase kLampshade[] = {{50, "hollowing"}, {72, "looking at the walls"}, {80, kWriting}};
constexpr Phase kOffset[] = {{50, "measuring distances"}, {80, kWriting}};
constexpr Phase kOrient[] = {
    {50, "looking for directions"}, {75, "standing it up"}, {80, kWriting}};
constexpr Phase kReduce[] = {{50, "collapsing edges"}, {68, kLooking}, {80, kWriting}};
constexpr Phase kRemesh[] = {{50, "making even triangles"}, {75, kLooking}, {80, kWriting}};
constexpr Phase kRepair[] = {{50, "looking for flaws"}, {60, "mending"}, {80, kWriting}};
constexpr Phase kRevise[] = {{50, "mending triangles"}, {75, kLooking}, {80, kWriting}};
constexpr Phase kSplit[] = {{50, "finding bodies"}, {60, "separating"}, {70, kWriting}};
constexpr Phase kStrength[] = {{50, "analysing"}, {75, "finding weak places"}, {80, kWriting}};
constexpr Phase kSubdivide[] = {{50, "subdividing"}, {80, kWriting}};
constexpr Phase kSupport[] = {{50, "finding columns"}, {70, "slicing"}, {80, kWriting}};
constexpr Phase kThickness[] = {
    {50, "looking for flaws"}, {60, "measuring walls"}, {75, "colouring"}, {80, kWriting}};
constexpr Phase kVoxelize[] = {{50, "filling cubes"}, {65, "making a surface"}, {80, kWriting}};
constexpr Phase kWrap[] = {{50, "wrapping"}, {80, kWriting}};

struct Row {
    std::string_view operation;
    std::span<const Phase> phases;
};
constexpr std::array kRows = {
    Row{"balance", kBalance},     Row{"check", kCheck},     Row{"cut", kCut},
    Row{"decompose", kDecompose}, Row{"hollow", kHollow},   Row{"infill", kInfill},
    Row{"lampshade", kLampshade}, Row{"offset", kOffset},   Row{"orient", kOrient},
    Row{"reduce", kReduce},       Row{"remesh", kRemesh},   Row{"repair", kRepair},
    Row{"revise", kRevise},       Row{"split", kSplit},     Row{"strength", kStrength},
    Row{"subdivide", kSubdivide}, Row{"support", kSupport}, Row{"thickness", kThickness},
    Row{"voxelize", kVoxelize},   Row{"wrap", kWrap}};

}  // namespace

std::span<const Phase> phases_of(std::string_view operation) {
    for (const Row& row : kRows) {
        if (row.operation == operation) return row.phases;
    }
    return {};
}

}  // namespace povmesh::job
