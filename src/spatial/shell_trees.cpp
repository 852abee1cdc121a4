#include "spatial/shell_trees.h"

#include <algorithm>
#include <optional>

#include "base/convert.h"
#include "base/poll.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

// Shells from this size on are represented by every k-th face, k being their size times this
// share, rounded.
constexpr std::size_t kSampledSize = 10000;
constexpr double kStrideShare = 0.0001;

// From so many pairs for each face on, turned boxes are made: they cost about as much as so many
// exact tests of two triangles.
constexpr std::uint64_t kPairsPerFace = 32;
constexpr std::uint64_t kPairsOfSmallTrees = 4096;

}  // namespace

OrientedBoxes oriented_boxes(const TriMesh& mesh, const FaceTree& tree) {
    return OrientedBoxes(tree, [&](std::uint32_t face, auto&& add) {
        for (const Vec3d corner : triangle_of(mesh, mesh.faces[face])) add(corner);
    });
}

bool find_pair(const TriMesh& mesh, const FaceTree& a, const FaceTree& b,
               const std::function<bool(std::uint32_t, std::uint32_t)>& meets,
               std::uint64_t* pair_count) {
    const std::uint64_t enough =
        kPairsPerFace * (a.numbers().size() + b.numbers().size()) + kPairsOfSmallTrees;
    std::uint64_t pairs = 0;
    Poller poller;
    std::optional<OrientedBoxes> boxes_a;
    std::optional<OrientedBoxes> boxes_b;
    const bool found = a.visit_pairs(
        b,
        [&](std::uint32_t face_a, std::uint32_t face_b) {
            ++pairs;
            poller();
            return meets(face_a, face_b);
        },
        [&](std::uint32_t node_a, std::uint32_t node_b) {
            if (pairs < enough) return false;
            if (!boxes_a) {
                boxes_a = oriented_boxes(mesh, a);
                boxes_b = oriented_boxes(mesh, b);
            }
            return boxes_a->are_apart(node_a, *boxes_b, node_b);
        });
    if (pair_count != nullptr) *pair_count += pairs;
    return found;
}

ShellSample sample_shell(const TriMesh& mesh, std::size_t shell, Sampling sampling) {
    const std::span<const std::uint32_t> faces = mesh.shells[shell];
    std::size_t stride = 1;
    if (sampling == Sampling::AboutTenThousand && faces.size() >= kSampledSize) {
        const double rounded = static_cast<double>(faces.size()) * kStrideShare + 0.5;
        stride = std::max<std::size_t>(1, saturate_to<std::size_t>(rounded));
    }
    return {faces, stride, faces.size() / stride};
}

const FaceTree& ShellTrees::operator[](std::size_t shell) {
    if (!is_made_[shell]) {
        const ShellSample sample = sample_shell(mesh_, shell, sampling_);
        boxes_.resize(sample.count);
        faces_.resize(sample.count);
        for (std::size_t i = 0; i < sample.count; ++i) {
            poll_at(i);
            faces_[i] = sample[i];
            boxes_[i] = face_box(mesh_, mesh_.faces[faces_[i]]);
        }
        trees_[shell] = FaceTree(boxes_, faces_);
        is_made_[shell] = true;
    }
    return trees_[shell];
}

}  // namespace povmesh
