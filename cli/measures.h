// Size, area and volume of a model before and after an operation, side by side.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "base/vec.h"
#include "cli/findings_report.h"
#include "mesh/tri_mesh.h"

namespace povmesh::cli {

struct Measures {
    std::size_t triangles = 0;
    std::size_t vertices = 0;  // those in use
    double area = 0;           // model units, squared and cubed
    double volume = 0;         // signed
    Box3f box;                 // of the vertices in use that are finite

    double diagonal() const;
};

Measures measures_of(const TriMesh& mesh);

/// A column of values under a head, for `side_by_side`.
std::vector<Row> measure_rows(const std::string& head, const Measures& measures);
Json measures_json(const Measures& measures);

/// Two columns of values behind one of labels; both have the same rows.
std::string side_by_side(const std::vector<Row>& before, const std::vector<Row>& after);

/// "0.28 s".
std::string seconds_text(double seconds);

}  // namespace povmesh::cli
