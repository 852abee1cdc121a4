#include "job/render.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "job/apart.h"
#include "job/findings.h"
#include "job/model_file.h"
#include "job/numbers.h"
#include "spatial/separation.h"

namespace povmesh::job {
namespace {

// What the colours of the picture mean, for the flaws that there are. The words follow the palette.
std::string legend_of(const Findings& findings, const FlawFaces& faces) {
    std::string text;
    const auto add = [&](std::string_view colour, std::uint64_t count, std::string_view what) {
        if (count != 0) text += "  " + std::string(colour) + counted(count, what) + "\n";
    };
    add("red faces:     ", faces.inverted.size(), "inverted face");
    add("orange lines:  ", findings[Flaw::OpenEdges].count, "open edge");
    add("purple lines:  ", findings[Flaw::NonManifoldEdges].count, "non-manifold edge");
    add("teal dots:     ", findings.detected.degenerate, "degenerate face");
    if (findings[Flaw::OpenEdges].count != 0)
        text += "  blue faces:    the inside, seen through an opening\n";
    if (!text.empty()) return text;
    return "  nothing to show: no inverted or degenerate face, no open or non-manifold edge; other "
           "flaws, such as crossing faces, are not drawn: see 'povmesh check'\n";
}

void widen(Box3d& box, const Box3d& by) {
    if (by.is_empty()) return;
    box.widen(by.low);
    box.widen(by.high);
}

class Picture {
public:
    Picture(std::span<TriMesh* const> meshes, const RenderJob& job, RenderDone& done)
        : meshes_(meshes), job_(job), legends_(done.legends) {
        legends_.assign(meshes.size(), {});
        options_.width = job.width;
        options_.height = job.height;
        options_.view = job.view;
    }

    picture::Image draw() {
        if (job_.explode) return draw_exploded();
        if (job_.section) return draw_section(*job_.section);
        if (job_.compare) return draw_beside();
        picture::Scene scene;
        for (std::size_t i = 0; i < meshes_.size(); ++i) scene.push_back(model(i));
        return picture::render(scene, options_);
    }

private:
    picture::Model model(std::size_t i) {
        TriMesh& mesh = *meshes_[i];
        picture::Model model;
        model.mesh = &mesh;
        if (job_.has_supports && i + 1 == meshes_.size()) {
            model.colour = picture::palette::kSecondary;
        }
        model.use_face_colours = has_colours(mesh);
        if (job_.flaws) {
            FlawFaces faces;
            const Findings findings = examine(mesh, {}, SelfIntersectionSearch::Never, &faces);
            model.overlay = picture::flaw_overlay(mesh, faces);
            legends_[i] = legend_of(findings, faces);
        }
        return model;
    }

    // The bodies of all models, moved apart, in two colours by turns.
    picture::Image draw_exploded() {
        Box3d scene_box;
        std::vector<TriMesh> bodies;
        for (TriMesh* const mesh : meshes_) {
            widen(scene_box, scene_box_of(*mesh));
            separate_bodies(*mesh, {.keep_cavities = true, .all_faces = true});
            std::move(mesh->parts.begin(), mesh->parts.end(), std::back_inserter(bodies));
        }
        return draw_apart(bodies, scene_box, options_);
    }

    // The models with what is nearer to the viewer taken away, the cut itself in the second colour.
    picture::Image draw_section(const Section& section) {
        Box3d scene_box;
        for (const TriMesh* const mesh : meshes_) widen(scene_box, scene_box_of(*mesh));
        picture::Scene scene;
        std::vector<TriMesh> opened(meshes_.size());
        std::vector<TriMesh> all_caps(meshes_.size());
        for (std::size_t i = 0; i < meshes_.size(); ++i) {
            opened[i] = *meshes_[i];
            cut_open(opened[i], section, options_.view, scene_box, all_caps[i]);
            scene.push_back(model(i));
            scene.back().mesh = &opened[i];
            picture::Model& caps = scene.emplace_back();
            caps.mesh = &all_caps[i];
            caps.colour = picture::palette::kSecondary;
            caps.inside = picture::palette::kSecondary;
        }
        return picture::render(scene, options_);
    }

    // Two models side by side, seen by the same camera.
    picture::Image draw_beside() {
        for (const TriMesh* const mesh : meshes_) widen(options_.frame, scene_box_of(*mesh));
        const std::uint32_t width = options_.width;
        options_.width = (width - picture::kLineWidth) / 2;
        const picture::Image left = picture::render({model(0)}, options_);
        return picture::beside(left, picture::render({model(1)}, options_),
                               width - 2 * options_.width);
    }

    std::span<TriMesh* const> meshes_;
    const RenderJob& job_;
    std::vector<std::string>& legends_;
    picture::RenderOptions options_;
};

}  // namespace

picture::Image render(std::span<TriMesh* const> meshes, const RenderJob& job, RenderDone& done) {
    return Picture(meshes, job, done).draw();
}

}  // namespace povmesh::job
