// The stiffness of a cube of material, the one element that everything is made of.
#pragma once

#include <array>
#include <cstddef>

namespace povmesh::fem {

/// The material. The coefficients of the matrix hold for this Poisson ratio alone. Units go with
/// those of the model and do not matter: only relative energies are handed out.
constexpr float kYoungsModulus = 2800.0F;
constexpr float kPoissonRatio = 0.33333334F;
constexpr float kDensity = 1.176e-05F;

constexpr std::size_t kCorners = 8;
constexpr std::size_t kElementDofs = 24;

/// Corners of a cube as signs of their offsets from its centre. The first four are its bottom.
constexpr std::array<std::array<int, 3>, kCorners> kCornerSigns = {{{-1, -1, -1},
                                                                    {1, -1, -1},
                                                                    {1, 1, -1},
                                                                    {-1, 1, -1},
                                                                    {-1, -1, 1},
                                                                    {1, -1, 1},
                                                                    {1, 1, 1},
                                                                    {-1, 1, 1}}};

/// Rows and columns are corner 0 x, y, z, corner 1 x and so on.
using ElementMatrix = std::array<std::array<float, kElementDofs>, kElementDofs>;

/// Forces at the corners for displacements of the corners, of a cube with this edge length.
ElementMatrix element_matrix(float size);

/// The same matrix seen from its symmetries. Displacements along each axis are divided into the
/// eight products of 1, x, y, z at the corners (x = -1 or 1). The cube is its own mirror image in
/// three planes, so only products of equal symmetry meet: the matrix falls into eight blocks of
/// three, which hold six different numbers and many zeros.
///
/// For the displacements (u, v, w) along (x, y, z), and the others by exchange of axes:
/// - u = x, v = y, w = z:     force on u = stretch * (u + (u + v + w))
/// - u = yz, v = xz, w = xy:  force on u = twist * (u + (u + v + w))
/// - v = xy, w = xz:          force on v = bend * v - counter_bend * w
/// - u = y, v = x:            force on both = shear * (u + v)
/// - w = xyz:                 force on w = hourglass * w
/// - u = 1: none
struct ElementModes {
    float stretch, twist, bend, counter_bend, shear, hourglass;
};

/// The numbers include the division by 64 that the change of basis, forth and back, asks for.
ElementModes element_modes(float size);

}  // namespace povmesh::fem
