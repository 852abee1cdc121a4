// The stiffness of a whole model as something that displacements are multiplied by.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "analysis/element_matrix.h"
#include "analysis/fem_model.h"
#include "analysis/node_field.h"
#include "base/array.h"

namespace povmesh::fem {

/// The product with the stiffness matrix, without a matrix: runs of elements read their four rows
/// of nodes, change to the basis of ElementModes, scale, change back and add to their rows. That
/// takes about 200 operations an element, a third of a stencil of 27 blocks at each node, and
/// treats nodes on the surface as those inside. All in single precision.
///
/// Elements are taken in slabs of whole layers. A slab adds to places of its own, which its upper
/// neighbour collects: slabs run at the same time, and the sums have the same bits for any number
/// of threads.
///
/// Memory: 12 bytes a node, and as much for the nodes between slabs. The model must outlive it.
class Stiffness {
public:
    /// Enough elements for a slab that the nodes between two are a small share, few enough that its
    /// products stay in the second-level cache.
    static constexpr std::size_t kSlabElements = 16384;

    explicit Stiffness(const Model& model, std::size_t slab_elements = kSlabElements);

    /// Nodes `first` to `last` - 1 are this slab's own; its elements reach up to `end`.
    struct Slab {
        std::uint32_t first_run, last_run;
        std::uint32_t first, last, end;
        std::size_t offset, stride;  // of its products
    };
    const std::vector<Slab>& slabs() const { return slabs_; }

    /// Multiplies and returns the displacements times the product, which is twice the energy.
    /// Displacements of fixed nodes must be 0.
    double multiply(const NodeField& displacements);

    /// What `multiply` made, along one axis at the slab's own nodes, from `slab.first` on. At fixed
    /// nodes it is the force that holds them.
    const float* product(const Slab& slab, std::size_t axis) const {
        return products_.data() + slab.offset + axis * slab.stride;
    }

    /// Twice the energy of each element.
    void energies(const NodeField& displacements, Array<float>& energies) const;

    /// What each element at a node adds to the diagonal of the matrix, the same for all three axes.
    float diagonal_share() const { return diagonal_share_; }

private:
    const Model& model_;
    ElementModes modes_;
    float diagonal_share_;
    std::vector<Slab> slabs_;
    Array<float> products_;
};

/// Sum of the products of `count` pairs, in double, in lanes of fixed number.
double dot_product(const float* a, const float* b, std::size_t count);

}  // namespace povmesh::fem
