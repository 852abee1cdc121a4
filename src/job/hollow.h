// Makes a shell of a solid model, with drain holes where they are asked for.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "design/drain.h"
#include "job/job.h"

namespace povmesh::job {

struct HollowJob {
    double thickness = 0;
    bool is_exact = true;      // a cavity at an exact distance, else one of voxels
    bool cavity_only = false;  // the cavity alone, its outside out; not with drains
    std::vector<Drain> drains;
    /// What a drain is called in a message: "5,0,10,2". None: by its place.
    std::function<std::string(std::size_t drain)> drain_name;
};

struct HollowDone : Remarks {
    double voxel_size = 0;  // of an exact wall, the cell
    std::int32_t layers = 0;
    double cavity_volume = 0;
    double saved_percent = 0;
    double smallest_wall = 0;
    double mean_wall = 0;             // of an exact wall
    std::size_t cavities = 0;         // with drains: before they were cut
    std::size_t closed_cavities = 0;  // and after
    double seconds = 0;               // of making the cavity
};

Status hollow(TriMesh& mesh, const HollowJob& job, Progress progress, HollowDone& done);

/// Empty unless holes leave some of so many cavities closed.
std::string sealed_text(const SealedCavities& sealed, std::size_t cavities);

/// Cuts holes; leaves the mesh compact.
///
/// @param model_faces  how many faces are the model's; those of its cavities follow
/// @param thickness    of the wall
struct DrainsDone : Remarks {
    std::size_t holes = 0;
    std::size_t cavities = 0;         // before
    std::size_t closed_cavities = 0;  // after
};
Status cut_drains(TriMesh& mesh, std::size_t model_faces, double thickness,
                  const std::vector<Drain>& drains,
                  const std::function<std::string(std::size_t)>& name, DrainsDone& done);

}  // namespace povmesh::job
