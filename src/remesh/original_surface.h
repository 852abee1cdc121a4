// How far a surface that is changed step by step has come from what it was at first.
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "spatial/nearest_face.h"

namespace povmesh {

/// A step on a surface: some triangles give way to others.
struct PatchChange {
    std::span<const Triangle3d> before;
    std::span<const Triangle3d> after;
    std::span<const Triangle3d> around;  // others of the surface, near to these
    double movement = 0;  // no point of the original that `before` stands for is farther from it
};

/// The live faces of a mesh, which has to stay as it is, arranged for the search. Memory and time
/// to build: those of NearestFace.
class OriginalSurface {
public:
    explicit OriginalSurface(const TriMesh& mesh) : mesh_(mesh), nearest_(mesh) {}

    /// A number such that no point of `after` is farther from the original, nor any point of the
    /// original that `before` stands for farther from `after` and `around` together, whatever the
    /// patches look like: folded, or with triangles that have no area. Infinity where such a number
    /// is not below `most`, or the effort ends before it is found.
    ///
    /// @param effort  how many distances between a point and a triangle may be looked at; lessened
    ///                by those that were
    double distance(const PatchChange& change, double most, std::size_t& effort) const;

private:
    Triangle3d triangle(std::uint32_t face) const;
    double distance_from_original(std::span<const Triangle3d> patch, double most,
                                  std::size_t& effort) const;
    double distance_of_original(const PatchChange& change, double most, std::size_t& effort) const;

    const TriMesh& mesh_;
    NearestFace nearest_;
};

}  // namespace povmesh
