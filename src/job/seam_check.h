// Looks for what cuts across the axes could spoil.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "decompose/decompose.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// Compares the faces of parts along the cuts with those of the model that was there.
class SeamCheck {
public:
    /// @param reach  how far from the planes faces may be that the cuts made, model units
    SeamCheck(const TriMesh& model, const std::vector<DividingPlane>& planes, double reach);

    void look_at(const TriMesh& part);

    /// Pairs of faces that cross where the model's do not, as a line; empty when there are none.
    std::string crossings() const;

    /// More needles than the model has, as a line; empty when there are none.
    std::string needles() const;

private:
    TriMesh near_seams(const TriMesh& mesh) const;
    std::size_t count_needles(const TriMesh& mesh, Vec3f& place) const;

    std::array<std::vector<double>, 3> offsets_;  // of the planes by axis, ascending
    double reach_;
    std::vector<Box3f> crossed_;  // of the model, where faces cross
    bool is_crossed_all_over_ = false;
    std::size_t needles_before_ = 0;
    std::size_t new_crossings_ = 0;
    Vec3f crossing_;
    std::size_t needles_after_ = 0;
    Vec3f needle_;
};

}  // namespace povmesh
