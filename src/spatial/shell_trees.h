// Search trees over the faces of single shells.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "mesh/tri_mesh.h"
#include "spatial/face_tree.h"
#include "spatial/oriented_boxes.h"

namespace povmesh {

/// The faces of a shell, or about ten thousand of them, evenly picked from its list.
struct ShellSample {
    std::span<const std::uint32_t> faces;
    std::size_t stride;
    std::size_t count;

    std::uint32_t operator[](std::size_t i) const { return faces[i * stride]; }
};

enum class Sampling { AllFaces, AboutTenThousand };

ShellSample sample_shell(const TriMesh& mesh, std::size_t shell, Sampling sampling);

/// Calls `meets(face_a, face_b)` for pairs of faces of two trees of one mesh that may have a point
/// in common, until it returns true; returns true when it did. Where very many pairs have boxes
/// that overlap, as slivers that run aslant do, boxes turned along the faces are made to keep them
/// apart.
///
/// @param pair_count  of the calls, for those who want to know
bool find_pair(const TriMesh& mesh, const FaceTree& a, const FaceTree& b,
               const std::function<bool(std::uint32_t, std::uint32_t)>& meets,
               std::uint64_t* pair_count = nullptr);

/// The turned boxes of a tree whose numbers are faces of a mesh.
OrientedBoxes oriented_boxes(const TriMesh& mesh, const FaceTree& tree);

/// A tree for each shell, over the faces of its sample, made when it is first asked for. The
/// numbers of its entries are face indices. The mesh must outlive the trees unchanged.
class ShellTrees {
public:
    ShellTrees(const TriMesh& mesh, Sampling sampling)
        : mesh_(mesh), sampling_(sampling), trees_(mesh.shells.size()), is_made_(trees_.size()) {}

    const FaceTree& operator[](std::size_t shell);

private:
    const TriMesh& mesh_;
    Sampling sampling_;
    std::vector<FaceTree> trees_;
    std::vector<bool> is_made_;
    Array<Box3f> boxes_;  // scratch
    Array<std::uint32_t> faces_;
};

}  // namespace povmesh
