// The model part of a 3MF package as it stands there: objects not yet placed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/array.h"
#include "base/status.h"
#include "io/three_mf.h"
#include "io/zip_package.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// A point (x, y, z) goes to (x, y, z, 1) times the rows.
struct Placement {
    std::array<std::array<double, 3>, 4> rows = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}};
};

struct PlacedObject {
    std::size_t object;
    Placement placement;
};

struct ThreeMfObject {
    std::string name;
    std::uint32_t id = 0;
    bool is_other = false;  // of type "other", which is no part of what is printed
    std::size_t first_point = 0;
    std::size_t point_count = 0;
    std::size_t first_face = 0;
    std::size_t face_count = 0;
    std::vector<PlacedObject> components;
};

/// The faces name points of their own object, from 0, and have the number of their texture, or -1,
/// as their label.
struct ThreeMfModel {
    double to_millimetres = 1;
    std::string unit = "millimeter";
    std::vector<ThreeMfObject> objects;
    std::vector<PlacedObject> items;
    Array<Vec3d> points;
    Array<Face> faces;
    Array<TextureCoordinate> texture_coordinates;
    std::vector<TextureFile> textures;  // without their content
    std::vector<std::pair<std::string, std::string>> metadata;
    std::vector<std::string> warnings;
};

/// @return  BadFile with the part and the byte in it
Status read_three_mf_model(const PackageReader& package, const std::string& part,
                           const std::string& name, ThreeMfModel& model);

/// The target of the relationship to the model, "3D/3dmodel.model" as a rule.
Status find_model_part(const PackageReader& package, const std::string& name, std::string& part);

}  // namespace povmesh
