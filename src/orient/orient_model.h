// A model as the orientation search sees it: free of its unit and place, with its convex hull.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "spatial/overhang.h"

namespace povmesh {

/// A flat side of the convex hull, on which a model can rest.
struct RestFace {
    Vec3d normal;  // outward, unit length
    Vec3d middle;
    double area;
};

/// Faces that look in nearly the same direction: a cell of 2 degrees of a cube around the origin.
struct NormalGroup {
    Vec3d normal;  // mean, unit length
    double area;
    Vec3d moment;  // sum of area x middle of each face
};

/// Numbers of a kind one after another, for loops over all of them. Filled up to a multiple of the
/// lanes.
constexpr std::size_t kTableLanes = 16;

/// The same groups; those that fill up have no area.
struct NormalTable {
    Array<float> normal_x, normal_y, normal_z, area, moment_x, moment_y, moment_z;
};

/// Points, the first of them again to fill up.
struct PointTable {
    Array<float> x, y, z;
};

/// Triangles of a mesh about the middle of its box, the longest side of which is 1. Faces that are
/// deleted, have no area or a corner that is not finite are left out; a model that is inside out as
/// a whole is turned over.
///
/// Lengths, areas and volumes are in these units.
struct OrientModel {
    Array<Vec3f> points;  // those that triangles use
    Array<std::array<std::uint32_t, 3>> triangles;
    double unit = 0;              // model units per unit; 0 when there is no triangle
    Vec3d middle;                 // of the box, in model units
    bool is_turned_over = false;  // it was inside out

    double volume = 0;
    double area = 0;
    Vec3d centre_of_mass;  // of the solid; of the sheet when it encloses next to nothing

    std::vector<Vec3f> hull_points;
    Array<RestFace> rest_faces;  // largest first
    std::vector<NormalGroup> groups;
    NormalTable group_table;
    PointTable hull_table;
    double diameter = 0;     // of the ball around the mean of the middles of the hull's sides
    double slack = 0;        // what lies this near to the plate rests on it
    double hull_volume = 0;  // at least 1e-3 of the diameter cubed
    double hull_area = 0;    // at least 1e-2 of the diameter squared, and half the area

    MeasuredTriangles all() const { return {points, triangles, hull_points}; }
};

/// False for a deleted face, too.
bool has_finite_corners(const TriMesh& mesh, const Face& face);

OrientModel make_orient_model(const TriMesh& mesh);

/// The triangles, their weight and the slack, of the longest side, alone.
OrientModel make_support_model(const TriMesh& mesh);

/// The triangles of a mesh of fewer, for a first look: points in one cell of a grid of 1/96 of the
/// longest side are drawn together to their mean.
void cluster_points(const OrientModel& model, Array<Vec3f>& points,
                    Array<std::array<std::uint32_t, 3>>& triangles);

}  // namespace povmesh
