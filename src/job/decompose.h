// Divides models into parts that fit a printer, and looks at the cuts.
#pragma once

#include <cstdint>
#include <vector>

#include "decompose/decompose.h"
#include "job/job.h"
#include "job/split.h"

namespace povmesh::job {

struct DecomposeJob {
    Vec3d size;         // of the largest part; 0: no limit along that axis
    double margin = 0;  // less on each axis
    bool uniform = false;
    bool may_turn = false;
    std::uint32_t pegs = 0;  // for each cut
    double peg_radius = 2;

    /// A peg takes so much of the size along an axis.
    double peg_length() const { return pegs > 0 ? kPegLengths * peg_radius : 0; }
};

struct DecomposeDone : Remarks {
    DecomposeReport report;
    std::vector<PieceMeasures> pieces;  // one for each of `mesh.parts`
    double seconds = 0;                 // of the operation itself
};

Status decompose(TriMesh& mesh, const DecomposeJob& job, Progress progress, DecomposeDone& done);

}  // namespace povmesh::job
