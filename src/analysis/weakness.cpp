// Takes each solid out of the mesh, its cavities with it, and analyses its sections by itself.
#include "analysis/weakness.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>

#include "mesh/bounds.h"
#include "mesh/copy_mesh.h"
#include "spatial/shell_nesting.h"
#include "spatial/surface_distance.h"

namespace povmesh {
namespace {

// Copies shells of a mesh out of it.
class ShellCopier {
public:
    explicit ShellCopier(const TriMesh& mesh) : mesh_(mesh) {
        copy_of_.assign(mesh.vertices.size(), kNone);
    }

    void append(std::size_t shell, bool is_reversed) {
        for (const std::uint32_t f : mesh_.shells[shell]) {
            Face face = mesh_.faces[f];
            for (std::int32_t& vertex : face.vertex) vertex = copy(vertex);
            if (is_reversed) reverse_winding(face);
            part_.faces.push_back(face);
        }
    }

    // Hands over what was copied since last time.
    TriMesh take() {
        for (const std::int32_t vertex : originals_) copy_of_[index(vertex)] = kNone;
        originals_.clear();
        return std::exchange(part_, {});
    }

private:
    static constexpr std::int32_t kNone = -1;

    static std::size_t index(std::int32_t vertex) { return static_cast<std::size_t>(vertex); }

    std::int32_t copy(std::int32_t vertex) {
        std::int32_t& number = copy_of_[index(vertex)];
        if (number == kNone) {
            number = static_cast<std::int32_t>(part_.vertices.size());
            part_.vertices.push_back(mesh_.vertices[index(vertex)]);
            part_.vertices.back().index = number;
            originals_.push_back(vertex);
        }
        return number;
    }

    const TriMesh& mesh_;
    TriMesh part_;
    Array<std::int32_t> copy_of_;    // by vertex
    Array<std::int32_t> originals_;  // those with a copy
};

}  // namespace

bool reduce_for_weakness(TriMesh& mesh, const std::function<void(TriMesh&)>& reduction) {
    if (mesh.faces.size() < kReducedFaces) return false;
    const Box3f box = finite_bounds(mesh);
    if (box.is_empty()) return false;
    TriMesh reduced = copy_mesh(mesh);
    reduction(reduced);
    const double most = kReductionReach * length(to_double(box.high) - to_double(box.low));
    // Vertices are measured besides: samples need only be dense enough for faces.
    const DistanceOptions samples{.sample_count = kReducedFaces};
    if (!(surface_distance(mesh, reduced, samples).greatest() <= most)) return false;
    mesh = std::move(reduced);
    return true;
}

std::vector<WeakSection> detect_weakness(TriMesh& mesh, SectionMode mode, RunContext& run) {
    std::vector<WeakSection> sections;
    const Box3f box = finite_bounds(mesh);
    if (box.is_empty()) return sections;
    const Vec3d extent = to_double(box.high) - to_double(box.low);
    const double step = (extent.x + extent.y + extent.z) / 3 / kWeaknessPlanes;

    const std::vector<ShellNesting> shells = classify_shells(mesh);
    std::vector<std::vector<std::size_t>> cavities(shells.size());
    for (std::size_t s = 0; s < shells.size(); ++s) {
        if (shells[s].is_cavity()) cavities[shells[s].around].push_back(s);
    }
    ShellCopier copier(mesh);
    for (std::size_t s = 0; s < shells.size(); ++s) {
        if (shells[s].is_cavity()) continue;
        copier.append(s, false);
        for (const std::size_t cavity : cavities[s]) {
            // The cavity's outside is where the solid is.
            copier.append(cavity, shells[s].signed_volume * shells[cavity].signed_volume > 0);
        }
        std::vector<WeakSection> found = analyse_sections(copier.take(), step, mode, run);
        sections.insert(sections.end(), std::make_move_iterator(found.begin()),
                        std::make_move_iterator(found.end()));
    }
    rank_sections(sections);
    return sections;
}

}  // namespace povmesh
