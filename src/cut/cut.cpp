// Separates a mesh into models, splits each at the plane, fills the openings of both sides with the
// same triangles in opposite windings, and separates the sides into pieces.
#include "cut/cut.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/timer.h"
#include "cut/cap.h"
#include "cut/connectors.h"
#include "cut/mirror.h"
#include "cut/plane_split.h"
#include "mesh/edge_mates.h"
#include "mesh/shells.h"
#include "spatial/separation.h"
#include "spatial/shell_nesting.h"

namespace povmesh {
namespace {

// Who keeps cavities wants bodies as they are; hosts rely on large shells being sampled.
SeparationOptions grouping(bool keep_cavities) {
    return {.keep_cavities = keep_cavities, .all_faces = keep_cavities};
}

using Parts = std::vector<TriMesh>;

// Which shells' rims are filled together: a cavity with the body around it, any other shell by
// itself. Shells that cross each other then each stay closed.
std::vector<std::uint32_t> fill_group_of_face(TriMesh& model, const EdgeMates& mates) {
    label_shells(model, mates);
    std::vector<std::uint32_t> group(model.faces.size(), 0);
    if (model.shells.size() < 2) return group;
    const std::vector<ShellNesting> nesting = classify_shells(model, mates);
    for (std::uint32_t shell = 0; shell < nesting.size(); ++shell) {
        const ShellNesting& own = nesting[shell];
        const bool is_hole =
            own.is_cavity() && own.signed_volume * nesting[own.around].signed_volume < 0;
        for (const std::uint32_t face : model.shells[shell]) {
            group[face] = is_hole ? own.around : shell;
        }
    }
    return group;
}

class ModelCutter {
public:
    /// @param mates         of the model, or nothing; given up as soon as they are not needed
    /// @param is_one_shell  the model is known to be one
    ModelCutter(TriMesh& model, const PlaneFrame& frame, const CutOptions& options,
                CutCounts& counts, std::optional<EdgeMates>& mates, bool is_one_shell)
        : model_(model),
          frame_(frame),
          options_(options),
          counts_(counts),
          mates_(mates),
          is_one_shell_(is_one_shell) {}

    // Returns false when there is nothing to do.
    bool run(Parts& parts) {
        PlaneSplit split(model_, frame_, options_.on_level);
        switch (options_.operation) {
            case CutOperation::MirrorFront:
                return mirror(split, PlaneSide::Front, parts);
            case CutOperation::MirrorBack:
                return mirror(split, PlaneSide::Back, parts);
            default:
                break;
        }
        find_shells(split);
        if (!split.divides()) return false;
        if (options_.operation == CutOperation::CutAndCap) fill(split);
        mates_.reset();
        std::array<TriMesh, 2> halves;
        for (const PlaneSide side : kSides) {
            const auto i = static_cast<std::size_t>(side);
            halves[i] = split.side_mesh(side, caps_[i]).mesh;
            // Needles along the plane leave nothing once their points are rounded.
            if (halves[i].faces.empty()) return false;
        }
        for (const PlaneSide side : kSides) {
            TriMesh& half = halves[static_cast<std::size_t>(side)];
            if (is_whole_[static_cast<std::size_t>(side)]) {
                parts.push_back(std::move(half));
            } else {
                divide(std::move(half), parts);
            }
        }
        ++counts_.divided;
        return true;
    }

private:
    static constexpr std::array<PlaneSide, 2> kSides = {PlaneSide::Back, PlaneSide::Front};

    // What hangs together on both sides of the plane, and across it, is one shell: most models need
    // not be labelled to know that.
    void find_shells(const PlaneSplit& split) {
        if (!mates_) return;
        for (std::size_t i = 0; i < 2 && split.divides(); ++i) {
            is_whole_[i] = split.is_connected(static_cast<PlaneSide>(i), *mates_);
        }
        std::size_t shells = 1;
        if (!is_one_shell_ && !(is_whole_[0] && is_whole_[1] && split.split_count() != 0)) {
            label_shells(model_, *mates_);
            shells = model_.shells.size();
            model_.shells.clear();
        }
        is_one_shell_ = shells == 1;
        if (!is_one_shell_) is_whole_ = {};
        counts_.shells += shells;
    }

    bool mirror(const PlaneSplit& split, PlaneSide side, Parts& parts) {
        if (split.face_count(side) == 0 || !(split.divides() || split.touches())) return false;
        TriMesh whole = mirrored(split, frame_, side);
        if (whole.faces.empty()) return false;
        parts.push_back(std::move(whole));
        ++counts_.divided;
        return true;
    }

    void fill(PlaneSplit& split) {
        std::vector<std::uint32_t> group;
        if (!is_one_shell_) {
            if (!mates_) mates_ = EdgeMates::without_uses(model_);
            group = fill_group_of_face(model_, *mates_);
            model_.shells.clear();
        }
        const Array<RimEdge> rim = split.trace_rim(group);
        Array<RimEdge> closed;
        for (std::size_t i = 0; i < rim.size();) {
            std::size_t end = i + 1;
            while (end < rim.size() && rim[end].group == rim[i].group) ++end;
            const Array<RimEdge> of_group = closed_rim({rim.data() + i, end - i});
            closed.insert(closed.end(), of_group.begin(), of_group.end());
            i = end;
        }
        std::vector<Connector> connectors =
            place_connectors(model_, split, frame_, closed, options_.connectors);
        ConnectorRings rings(split.points(), frame_, std::move(connectors), options_.connectors);
        Array<CapTriangle> triangles;
        if (!fill(split, closed, rings, triangles)) {
            rings = ConnectorRings(split.points(), frame_, {}, options_.connectors);
        }
        counts_.connectors += rings.size();
        counts_.connector_volume += rings.volume();
        const std::array<std::uint8_t, 3> colour = mean_colour(closed);
        for (const PlaneSide side : {PlaneSide::Back, PlaneSide::Front}) {
            for (const CapTriangle& t : rings.cap(side, triangles)) {
                caps_[static_cast<std::size_t>(side)].push_back({t, colour});
            }
        }
    }

    // Returns false when the rings of connectors are not in the triangles.
    bool fill(PlaneSplit& split, const Array<RimEdge>& rim, const ConnectorRings& rings,
              Array<CapTriangle>& triangles) const {
        bool is_plain = rim.size() == split.walls().size();
        bool has_guides = true;
        for (std::size_t i = 0; i < rim.size();) {
            std::size_t end = i + 1;
            while (end < rim.size() && rim[end].group == rim[i].group) ++end;
            const RimFilling filling = fill_rim(split.points(), frame_, {rim.data() + i, end - i},
                                                rings.guides(rim[i].group));
            is_plain = is_plain && filling.is_plain && end - i == rim.size();
            has_guides = has_guides && filling.has_guides;
            triangles.insert(triangles.end(), filling.triangles.begin(), filling.triangles.end());
            i = end;
        }
        if (!is_plain) split_shared_sides(split.points(), triangles, split.walls());
        return has_guides;
    }

    static std::array<std::uint8_t, 3> mean_colour(const Array<RimEdge>& rim) {
        std::array<std::uint8_t, 3> colour{};
        if (rim.empty()) return colour;
        for (std::size_t channel = 0; channel < 3; ++channel) {
            std::uint64_t sum = 0;
            for (const RimEdge& edge : rim) sum += edge.colour[channel];
            colour[channel] = static_cast<std::uint8_t>((sum + rim.size()) / (2 * rim.size()));
        }
        return colour;
    }

    // A side of one shell is a piece as it stands; the faces of others are gathered shell by shell.
    void divide(TriMesh half, Parts& parts) const {
        label_shells(half, EdgeMates::without_uses(half));
        if (half.shells.size() == 1) {
            half.shells.clear();
            parts.push_back(std::move(half));
            return;
        }
        const ShellGroups groups = group_shells(half, grouping(options_.keep_cavities));
        half.use_table.release();
        build_parts(half, groups);
        std::move(half.parts.begin(), half.parts.end(), std::back_inserter(parts));
    }

    TriMesh& model_;
    const PlaneFrame& frame_;
    const CutOptions& options_;
    CutCounts& counts_;
    std::optional<EdgeMates>& mates_;
    bool is_one_shell_;                               // as far as is known
    std::array<bool, 2> is_whole_{};                  // by side: one piece for sure
    std::array<Array<PlaneSplit::CapFace>, 2> caps_;  // by side
};

// The models of a mesh. A mesh of one shell is its model as it stands; its edges are then kept.
Parts separate(TriMesh& mesh, bool keep_cavities, std::optional<EdgeMates>& mates) {
    mates = EdgeMates::without_uses(mesh);
    label_shells(mesh, *mates);
    Parts models;
    if (mesh.shells.size() == 1 && mesh.shells.faces.size() == mesh.faces.size()) {
        mesh.shells.clear();
        mesh.use_table.release();
        mesh.parts.clear();
        models.push_back(std::exchange(mesh, {}));
        return models;
    }
    mates.reset();
    build_parts(mesh, group_shells(mesh, grouping(keep_cavities)));
    models = std::move(mesh.parts);
    mesh = {};
    return models;
}

}  // namespace

bool cut_model(TriMesh& model, const CutOptions& options, std::vector<TriMesh>& pieces) {
    CutCounts counts;
    if (!cut_from_model(model, options, pieces, counts)) return false;
    model = {};
    return true;
}

bool cut_from_model(TriMesh& model, const CutOptions& options, std::vector<TriMesh>& pieces,
                    CutCounts& counts, std::optional<EdgeMates> mates) {
    const std::optional<PlaneFrame> frame = PlaneFrame::make(options.plane);
    if (!frame || options.operation == CutOperation::None) return false;
    model.use_table.release();  // nearly as large as the model
    if (!mates) mates = EdgeMates::without_uses(model);
    const bool is_cut = ModelCutter(model, *frame, options, counts, mates, false).run(pieces);
    model.shells.clear();
    model.use_table.release();
    return is_cut;
}

CutCounts cut_models(TriMesh& mesh, const CutOptions& options, RunContext& run) {
    std::optional<EdgeMates> mates;
    Parts models = separate(mesh, options.keep_cavities, mates);
    run.log.append("\nmd_num : " + std::to_string(models.size()));
    CutCounts counts;
    counts.models = models.size();
    const std::optional<PlaneFrame> frame = PlaneFrame::make(options.plane);
    const bool mirrors = options.operation == CutOperation::MirrorFront ||
                         options.operation == CutOperation::MirrorBack;
    for (TriMesh& model : models) {
        const Timer timer;
        if (options.operation != CutOperation::None) {
            const bool is_one_shell = mates.has_value();
            if (frame &&
                ModelCutter(model, *frame, options, counts, mates, is_one_shell).run(mesh.parts)) {
                model = {};
            } else {
                mesh.parts.push_back(std::move(model));
            }
            run.log.success(mirrors ? "symmetry" : "cut", timer.seconds(), " sec.");
        } else {
            mesh.parts.push_back(std::move(model));
        }
    }
    const ConnectorOptions& connectors = options.connectors;
    if (options.operation == CutOperation::CutAndCap && connectors.radius > 0 &&
        counts.connectors < connectors.count * counts.divided) {
        run.log.caution("connectors that found room: " + std::to_string(counts.connectors) +
                        " of " + std::to_string(connectors.count * counts.divided) + "\n");
    }
    return counts;
}

}  // namespace povmesh
