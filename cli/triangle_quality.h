// How even the triangles of a model are.
#pragma once

#include <cstddef>
#include <vector>

#include "cli/findings_report.h"
#include "mesh/tri_mesh.h"

namespace povmesh::cli {

struct TriangleQuality {
    double shortest_edge = 0;  // model units; of the live faces with finite corners
    double mean_edge = 0;
    double longest_edge = 0;
    double spread = 0;          // standard deviation of the edge lengths over their mean
    double smallest_angle = 0;  // degrees
    double largest_angle = 0;
    double narrow = 0;  // share of the triangles with an angle below 20 degrees
    std::size_t needles = 0;
    std::size_t caps = 0;
    std::size_t degenerate = 0;  // as they are counted among the flaws
};

TriangleQuality triangle_quality(const TriMesh& mesh);

/// Edges and angles.
std::vector<Row> quality_rows(const TriangleQuality& quality);
Json quality_json(const TriangleQuality& quality);

/// Triangles of bad shape.
std::vector<Row> shape_rows(const TriangleQuality& quality);
Json shape_json(const TriangleQuality& quality);

}  // namespace povmesh::cli
