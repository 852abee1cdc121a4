// Body by body the inner wall is put into the model, and both are cut at the openings together: the
// cut fills what lies between the outer and the inner loops.
#include "design/lampshade_shell.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>
#include <vector>

#include "base/poll.h"
#include "cut/cap.h"
#include "cut/plane_split.h"
#include "mesh/append_mesh.h"

namespace povmesh {
namespace {

using Kind = LampshadeParts::Kind;

// Labels say what a face is while a body is cut: those of the faces that are not the outside's must
// differ from the model's own.
class KindLabels {
public:
    explicit KindLabels(const std::vector<LampshadeBody>& bodies) {
        std::vector<std::uint8_t> is_used(1U << 16, 0);
        for (const LampshadeBody& body : bodies) {
            Poller poller;
            for (const Face& face : body.drawn.faces) {
                poller();
                is_used[static_cast<std::uint16_t>(face.label)] = 1;
            }
        }
        // Below -1 first: faces with labels from 0 on have texture coordinates.
        std::size_t found = 0;
        for (std::uint32_t i = 2; i < (1U << 16) && found < labels_.size(); ++i) {
            const auto bits = static_cast<std::uint16_t>((1U << 16) - i);
            if (is_used[bits] == 0) labels_[found++] = static_cast<std::int16_t>(bits);
        }
    }

    std::int16_t inner() const { return labels_[0]; }
    std::int16_t rim() const { return labels_[1]; }
    Kind kind_of(const Face& face) const {
        return face.label == inner() ? Kind::Inner
               : face.label == rim() ? Kind::Rim
                                     : Kind::Outside;
    }

private:
    std::array<std::int16_t, 2> labels_{-2, -3};
};

struct MeanColour {
    std::array<std::uint64_t, 3> sum{};
    std::uint64_t corners = 0;

    void add(const RimEdge& edge) {
        for (std::size_t channel = 0; channel < 3; ++channel) sum[channel] += edge.colour[channel];
        corners += 2;
    }
    std::array<std::uint8_t, 3> value() const {
        std::array<std::uint8_t, 3> mean{255, 255, 255};
        for (std::size_t channel = 0; channel < 3 && corners != 0; ++channel) {
            mean[channel] = static_cast<std::uint8_t>((sum[channel] + corners / 2) / corners);
        }
        return mean;
    }
};

// Keeps what lies beyond a level.
class LevelCut {
public:
    LevelCut(double level, bool keeps_above, const KindLabels& labels, MeanColour& colour)
        : frame_(*PlaneFrame::make({{0, 0, keeps_above ? 1.0 : -1.0}, {1, 0, 0}, {0, 0, level}})),
          labels_(labels),
          colour_(colour) {}

    void run(TriMesh& mesh) const {
        PlaneSplit split(mesh, frame_);
        if (!split.divides()) {
            if (split.face_count(PlaneSide::Front) == 0) mesh = {};
            return;
        }
        Array<PlaneSplit::CapFace> caps;
        std::size_t sound = 0;
        for (const CapTriangle& t : fill(mesh, split)) {
            caps.push_back({t, {}});
            sound += t[0] != t[1] && t[1] != t[2] && t[2] != t[0] ? 1 : 0;
        }
        TriMesh kept = split.side_mesh(PlaneSide::Front, caps).mesh;
        for (std::size_t f = kept.faces.size() - sound; f < kept.faces.size(); ++f) {
            kept.faces[f].label = labels_.rim();
        }
        mesh = std::move(kept);
    }

private:
    Array<CapTriangle> fill(const TriMesh& mesh, PlaneSplit& split) const {
        // Outer and inner rims apart, since only the outer ones give their colour.
        std::vector<std::uint32_t> group(mesh.faces.size());
        for (std::size_t f = 0; f < group.size(); ++f) {
            group[f] = labels_.kind_of(mesh.faces[f]) == Kind::Outside ? 0 : 1;
        }
        const Array<RimEdge> rim = split.trace_rim(group);
        const auto inner = std::find_if(rim.begin(), rim.end(),
                                        [](const RimEdge& edge) { return edge.group != 0; });
        const auto outer_count = static_cast<std::size_t>(inner - rim.begin());
        Array<RimEdge> closed = closed_rim({rim.data(), outer_count});
        for (const RimEdge& edge : closed) colour_.add(edge);
        const Array<RimEdge> loops =
            closed_rim({rim.data() + outer_count, rim.size() - outer_count});
        closed.insert(closed.end(), loops.begin(), loops.end());
        RimFilling filling = fill_rim(split.points(), frame_, closed);
        if (!filling.is_plain || closed.size() != split.walls().size()) {
            split_shared_sides(split.points(), filling.triangles, split.walls());
        }
        return std::move(filling.triangles);
    }

    PlaneFrame frame_;
    const KindLabels& labels_;
    MeanColour& colour_;
};

// With the inner walls in it, wound towards the inside.
TriMesh with_walls(const LampshadeBody& body, const KindLabels& labels) {
    TriMesh mesh = body.drawn;
    const std::size_t own = mesh.faces.size();
    append_mesh(mesh, body.inside, AppendWinding::Reversed);
    for (std::size_t f = own; f < mesh.faces.size(); ++f) mesh.faces[f].label = labels.inner();
    return mesh;
}

}  // namespace

LampshadeParts make_lampshade_parts(const LampshadeInside& inside) {
    const KindLabels labels(inside.bodies);
    MeanColour colour;
    LampshadeParts parts;
    for (const LampshadeBody& body : inside.bodies) {
        TriMesh mesh = with_walls(body, labels);
        LevelCut(inside.bottom, true, labels, colour).run(mesh);
        if (inside.top) LevelCut(*inside.top, false, labels, colour).run(mesh);
        append_mesh(parts.mesh, mesh);
    }
    const std::array<std::uint8_t, 3> mean = colour.value();
    parts.kinds.reserve(parts.mesh.faces.size());
    Poller poller;
    for (Face& face : parts.mesh.faces) {
        poller();
        parts.kinds.push_back(labels.kind_of(face));
        if (parts.kinds.back() == Kind::Outside) continue;
        face.label = -1;
        face.uv.fill(-1);
        for (std::size_t i = 0; i < 9; ++i) face.colour[i] = mean[i % 3];
    }
    return parts;
}

}  // namespace povmesh
