#include "spatial/shell_trees.h"

#include <algorithm>

#include "base/convert.h"

namespace povmesh {
namespace {

// Shells from this size on are represented by every k-th face, k being their size times this
// share, rounded.
constexpr std::size_t kSampledSize = 10000;
constexpr double kStrideShare = 0.0001;

}  // namespace

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
            faces_[i] = sample[i];
            boxes_[i] = face_box(mesh_, mesh_.faces[faces_[i]]);
        }
        trees_[shell] = FaceTree(boxes_, faces_);
        is_made_[shell] = true;
    }
    return trees_[shell];
}

}  // namespace povmesh
