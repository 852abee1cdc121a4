// Columns below what hangs over.
#pragma once

#include <cstddef>
#include <optional>

#include "base/array.h"
#include "job/job.h"
#include "support/column_supports.h"

namespace povmesh::job {

struct SupportJob {
    double spacing = 3;
    double angle = 45;            // degrees from upright
    std::optional<double> plate;  // height of the build plate; none: the lowest point
    Array<Column> columns;        // instead of a search, if there are any
    bool measures_solid = false;  // what supports that fill everything would take, too
};

struct SupportDone : Remarks {
    Array<Column> columns;
    TriMesh tubes;  // of them
    std::size_t on_plate = 0;
    double plate = 0;
    double longest = 0;
    double solid = 0;
    double seconds = 0;
};

Status support(const TriMesh& mesh, const SupportJob& job, Progress progress, SupportDone& done);

}  // namespace povmesh::job
