// Models in boxes of so many voxels, for the benchmarks of voxels.
#pragma once

#include <string>
#include <vector>

#include "base/vec.h"
#include "helpers/shapes.h"
#include "inputs.h"
#include "mesh/bounds.h"
#include "mesh/tri_mesh.h"

namespace povmesh::bench {

/// "sphere_400" and, where there is a file, "hammer_400" and the like: the number of voxels along
/// the longest side.
inline std::vector<std::string> boxed_inputs(const std::vector<int>& sides) {
    std::vector<std::string> names;
    names.reserve(3 * sides.size());
    for (const int side : sides) names.push_back("sphere_" + std::to_string(side));
    for (const std::string& model : existing_models({"hammer", "scorpion"})) {
        for (const int side : sides) names.push_back(model + "_" + std::to_string(side));
    }
    return names;
}

inline const TriMesh& boxed_mesh(const std::string& name) {
    const std::string model = name.substr(0, name.rfind('_'));
    static const TriMesh sphere = shapes::mesh_of(shapes::sphere(100, 7));
    return model == "sphere" ? sphere : mesh(model);
}

inline Vec3f boxed_size(const std::string& name) {
    const Vec3f extent = finite_bounds(boxed_mesh(name)).extent();
    const float longest = std::max({extent.x, extent.y, extent.z});
    const float size = longest / std::stof(name.substr(name.rfind('_') + 1));
    return {size, size, size};
}

}  // namespace povmesh::bench
