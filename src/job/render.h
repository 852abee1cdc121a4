// Pictures of models: side by side, cut open, pulled apart, with their flaws in colour.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "job/job.h"
#include "job/picture/picture.h"
#include "job/section.h"

namespace povmesh::job {

/// At most one of `compare`, `explode` and `section`; flaws with neither of the last two.
struct RenderJob {
    std::uint32_t width = 800, height = 600;
    picture::View view = picture::View::Iso;
    bool flaws = false;
    bool explode = false;  // the bodies pulled apart, in two colours by turns
    std::optional<Section> section;
    bool compare = false;       // the second model stands on the right of the first
    bool has_supports = false;  // the last model has the second colour
};

struct RenderDone : Remarks {
    std::vector<std::string> legends;  // by model: what the colours of its flaws mean
};

/// Draws the models, which are good for nothing else afterwards.
picture::Image render(std::span<TriMesh* const> meshes, const RenderJob& job, RenderDone& done);

}  // namespace povmesh::job
