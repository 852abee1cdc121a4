// Winding numbers of a surface that need not be closed.
#pragma once

#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "spatial/face_tree.h"

namespace povmesh {

/// The solid angle under which a mesh is seen from a point, signed by the winding of its faces, as
/// a share of the whole sphere: 1 inside of a closed outward surface, 0 outside, 1/2 in the mouth
/// of a hole that a plane would close.
///
/// Building takes n log n and about 100 bytes a face; the mesh must stay. A search takes about the
/// logarithm of the number of faces, is right within 0.02 and may run beside others.
///
/// Source: G. Barill, N. G. Dickson, R. Schmidt, D. I. W. Levin, A. Jacobson, Fast winding numbers
/// for soups and clouds, ACM Transactions on Graphics 37(4), 2018; dipoles only.
class WindingNumbers {
public:
    explicit WindingNumbers(const TriMesh& mesh);

    double at(Vec3d p) const;

private:
    // A group of faces as one small face in its middle.
    struct Dipole {
        Vec3d middle;  // weighted by area
        Vec3d area;    // sum of the faces' normals, each as long as its area
        double whole_area = 0;
        double radius = 0;  // of a ball around the middle that holds the faces
    };

    const TriMesh& mesh_;
    FaceTree tree_;
    Array<Dipole> dipoles_;  // by node of the tree
};

/// The same exactly, of all faces: for so few points that a tree would take longer.
double winding_number(const TriMesh& mesh, Vec3d p);

}  // namespace povmesh
