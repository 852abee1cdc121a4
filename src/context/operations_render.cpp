// Pictures of meshes, as PNG files in memory.
#include <array>
#include <limits>

#include "context/defaults.h"
#include "context/operation_steps.h"
#include "job/render.h"

namespace povmesh::context {
namespace {

constexpr job::Phase kRender[] = {{0, "drawing"}, {1, "packing"}};

job::RenderJob job_of(Call& call, const povmesh_render_options& o, std::size_t count) {
    call.in_range(o.width, 16, 8192, "width");
    call.in_range(o.height, 16, 8192, "height");
    call.in_range(o.view, POVMESH_VIEW_ISO, POVMESH_VIEW_BOTTOM, "view");
    call.flag(o.flaws, "flaws");
    call.flag(o.explode, "explode");
    call.in_range(o.section_axis, -1, 2, "section_axis");
    call.require(o.reserved == 0, "reserved", "must be 0");
    using picture::View;
    constexpr std::array kViews = {View::Iso,   View::Front, View::Back,  View::Left,
                                   View::Right, View::Top,   View::Bottom};
    job::RenderJob job;
    job.width = o.width;
    job.height = o.height;
    job.view = kViews[static_cast<std::size_t>(o.view)];
    job.flaws = o.flaws != 0;
    job.explode = o.explode != 0;
    job.compare = o.compare != nullptr;
    job.has_supports = o.supports != nullptr;
    if (o.section_axis >= 0) {
        job.section.emplace();
        job.section->axis = static_cast<std::size_t>(o.section_axis);
        if (!std::isnan(o.section_value)) {
            call.finite(o.section_value, "section_value");
            job.section->value = o.section_value;
        }
    } else {
        call.require(std::isnan(o.section_value), "section_value", "needs a section_axis");
    }
    call.require(!job.compare || count == 1, "compare", "takes one mesh beside it");
    call.require(!job.has_supports || (!job.compare && !job.explode), "supports",
                 "go with neither compare nor explode");
    call.require(!job.explode || (!job.compare && !job.flaws), "explode",
                 "goes with neither compare nor flaws");
    call.require(!job.section || (!job.compare && !job.explode && !job.flaws), "section_axis",
                 "goes with neither compare nor explode nor flaws");
    return job;
}

}  // namespace
}  // namespace povmesh::context

using namespace povmesh;
using namespace povmesh::context;

povmesh_status povmesh_render(povmesh_context* context, const povmesh_mesh* const* meshes,
                              size_t count, const povmesh_render_options* options, void** png,
                              size_t* bytes) {
    return run(context, [&](Call& call) {
        call.given(meshes, "meshes");
        call.require(count != 0, "count", "must be 1 or above");
        for (std::size_t i = 0; i < count; ++i) call.given(meshes[i], "meshes");
        call.given(png, "png");
        call.given(bytes, "bytes");
        const auto o = call.options(options, defaults_of<povmesh_render_options>());
        const job::RenderJob job = job_of(call, o, count);
        const Progress progress = call.progress(0, 2, kRender);
        std::vector<TriMesh> copies;
        for (std::size_t i = 0; i < count; ++i) copies.push_back(plain_copy(meshes[i]->mesh));
        for (const povmesh_mesh* const other : {o.compare, o.supports}) {
            if (other != nullptr) copies.push_back(plain_copy(other->mesh));
        }
        std::vector<TriMesh*> drawn;
        drawn.reserve(copies.size());
        for (TriMesh& copy : copies) drawn.push_back(&copy);
        job::RenderDone done;
        const picture::Image image = job::render(drawn, job, done);
        progress.set(1);
        const Array<char> file = picture::encode_png(image);
        void* const block = host_copy(call, file);
        *bytes = file.size();
        *png = block;
    });
}
