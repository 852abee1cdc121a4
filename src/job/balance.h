// Carves a model from the inside so that it stands, and looks at how it stands then.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "design/balance.h"
#include "design/drain.h"
#include "job/hollow.h"
#include "job/job.h"

namespace povmesh::job {

struct BalanceJob {
    double thickness = 0;
    double firm = 10;            // degrees that a model withstands that is left as it is
    double infill = 1;           // share of material where nothing is carved
    bool only_measures = false;  // what carving would reach; the mesh stays as it is
    std::vector<Drain> drains;
    std::function<std::string(std::size_t drain)> drain_name;  // as of `HollowJob`
};

struct BalanceDone : Remarks {
    BalanceReport report;
    std::string falls;  // why carving does not help, and what would; of a model that falls
    Base base_after;    // of the finished mesh, and how that stands; with `only_measures` and
    Standing after;     // where the model falls: what carving would reach
    double saved_percent = 0;
    DrainsDone drains;
    double seconds = 0;  // of the operation itself
};

/// A model that falls is no failure: the report tells, and the mesh is unchanged.
Status balance(TriMesh& mesh, const BalanceJob& job, Progress progress, BalanceDone& done);

/// The horizontal direction, of unit length, in which a model falls first.
Vec3d fall_direction(const Standing& standing);

/// "towards x 0.5, y -0.87", "3.12 degrees", and a length to two significant digits.
std::string towards(const Standing& standing);
std::string degrees_text(double degrees);
std::string length_text(double length);

}  // namespace povmesh::job
