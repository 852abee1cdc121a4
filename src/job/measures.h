// Size, area and volume of a mesh.
#pragma once

#include <cstddef>

#include "base/vec.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

struct Measures {
    std::size_t triangles = 0;
    std::size_t vertices = 0;  // those in use
    double area = 0;           // model units, squared and cubed
    double volume = 0;         // signed
    Box3f box;                 // of the vertices in use that are finite

    double diagonal() const;
};

Measures measures_of(const TriMesh& mesh);

/// True when each edge is held by at least two faces.
bool is_closed(TriMesh& mesh);

}  // namespace povmesh
