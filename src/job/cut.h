// Divides models with a plane, and looks at what the cut did.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/vec.h"
#include "cut/cut.h"
#include "job/job.h"
#include "job/split.h"

namespace povmesh::job {

struct CutJob {
    bool caps = true;        // close the openings
    bool mirror = false;     // keep the side of the normal and add its mirror image
    std::uint32_t pegs = 0;  // for each model cut
    double peg_radius = 2;
    Vec3d normal{0, 0, 1};            // of any length
    std::optional<Vec3d> point = {};  // none: the middle of the box
};

/// What a cut could spoil: faces at the plane that cross one another, and needles.
struct Blemishes {
    std::uint64_t crossings = 0;
    Vec3f crossing;  // place of the first
    std::size_t needles = 0;
    Vec3f needle;
};

struct CutDone : Remarks {
    CutCounts counts;
    bool must_be_closed = false;        // as the model is, unless openings were asked for
    std::vector<PieceMeasures> pieces;  // one for each of `mesh.parts`
    std::vector<Blemishes> crossed;     // by piece; empty when the model has crossings at the plane
};

/// Fills `mesh.parts`: of each model first the piece that the normal points away from. Nothing when
/// the plane misses all.
Status cut(TriMesh& mesh, const CutJob& job, Progress progress, CutDone& done);

/// What is wrong with a piece that is open although it must not be, or whose faces cross.
std::string open_text(const std::string& source);
std::string crossing_text(const Blemishes& blemishes, const std::string& source);

}  // namespace povmesh::job
