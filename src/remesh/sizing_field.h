// How long the edges of a remeshed surface shall be, place by place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "spatial/nearest_face.h"

namespace povmesh {

/// Lengths at the vertices of a mesh, and an upper bound on each face. Between neighbours the
/// length grows by no more than kGradient times their distance, so that no edge is much longer than
/// those beside it.
class SizingField {
public:
    static constexpr double kGradient = 0.7;

    /// @param face_lengths  positive and finite, one per face of the mesh, which must outlive this
    SizingField(const TriMesh& mesh, std::span<const float> face_lengths);

    /// At a point of the mesh.
    double at(const NearestPoint& found) const;
    double at_vertex(std::size_t v) const { return lengths_[v]; }
    const Array<double>& lengths() const { return lengths_; }  // by vertex

    /// True when all lengths are the same.
    bool is_uniform() const { return is_uniform_; }

    /// Lowers the lengths at the vertices to those of `wanted`, and those around them so that the
    /// bound on growth holds. O(n log n).
    void lower(std::span<const double> wanted);

    /// Takes back what was lowered since they were these.
    void restore(const Array<double>& lengths) { lengths_ = lengths; }

private:
    void limit_growth();

    const TriMesh& mesh_;
    std::span<const float> face_lengths_;
    Array<double> lengths_;  // by vertex
    bool is_uniform_ = true;
};

struct RaisedLengths {
    double factor = 1;      // of all lengths
    std::size_t faces = 0;  // raised beside the others, because each alone would be too much
};

/// Raises lengths, one per face, so that there will be no more than `most` triangles, as far as
/// areas and edges tell. A face that alone would take more, beside others that do not, is raised by
/// itself, to some hundreds: one wild length or coordinate does not coarsen the rest, nor does it
/// fill the memory.
RaisedLengths raise_lengths(const TriMesh& mesh, std::span<float> face_lengths, double most);

/// Triangles that lengths on the faces will make, as far as areas and edges tell.
double expected_triangles(const TriMesh& mesh, std::span<const float> face_lengths);

}  // namespace povmesh
