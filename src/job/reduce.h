// Makes a model of fewer triangles, and tells what ended that.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "job/job.h"
#include "remesh/checked_reduce.h"

namespace povmesh::job {

/// One of the three says how far.
struct ReduceJob {
    bool automatic = false;      // shells of more than 100,000 faces to these and 30 % of the rest
    std::optional<double> keep;  // share of the faces of each shell, 0 to 1
    double faces = 0;            // how many shall stay, every shell keeping the same share
};

/// A rule that kept edges from being collapsed, and how often.
struct ReductionRule {
    std::size_t count;
    std::string_view key;  // in JSON
    std::string text;
};

struct ReduceDone : Remarks {
    CheckedReduceReport checked;
    double kept = 1;                   // share of the faces
    double seconds = 0;                // of the reduction itself
    std::string end_text;              // which rule ended it, in words
    std::string end_key;               // and as a key
    std::vector<ReductionRule> rules;  // by falling count
};

Status reduce(TriMesh& mesh, const ReduceJob& options, Progress progress, ReduceDone& done);

}  // namespace povmesh::job
