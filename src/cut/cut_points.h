// The vertices of a model together with the points that a cut adds to them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/array.h"
#include "base/convert.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// Numbers below the vertex count of the model are its vertices, those above are points made. A
/// made point has its position twice: as computed, for questions about the flat, and rounded, as
/// the pieces get it.
class CutPoints {
public:
    explicit CutPoints(const TriMesh& model) : model_(model) {}

    std::int32_t add(Vec3d position) {
        exact_.push_back(position);
        // Adding 0 turns a negative zero into the usual one.
        rounded_.push_back({narrow_to_float(position.x) + 0.0F, narrow_to_float(position.y) + 0.0F,
                            narrow_to_float(position.z) + 0.0F});
        return fits<std::int32_t>(size() - 1);
    }

    std::size_t model_size() const { return model_.vertices.size(); }
    std::size_t size() const { return model_.vertices.size() + exact_.size(); }

    Vec3d exact(std::int32_t point) const {
        const auto i = static_cast<std::size_t>(point);
        return i < model_size() ? to_double(model_.vertices[i].position())
                                : exact_[i - model_size()];
    }
    Vec3f rounded(std::int32_t point) const {
        const auto i = static_cast<std::size_t>(point);
        return i < model_size() ? model_.vertices[i].position() : rounded_[i - model_size()];
    }

private:
    const TriMesh& model_;
    Array<Vec3d> exact_;
    Array<Vec3f> rounded_;
};

}  // namespace povmesh
