// The ways to load a model, and which of them hosts have.
#pragma once

#include <cstdint>

#include "analysis/fem_model.h"
#include "analysis/node_field.h"
#include "run/run_context.h"

namespace povmesh::fem {

/// Numbers as hosts know them. Three are within reach of the exported functions:
/// strengthColoringFromData takes 0 for PressureZ, 1 for Pressure and any other number for
/// CentreTop. The tool offers all.
///
/// Pressures act on nodes of an outer face and push inward; they are taken once for each element at
/// the node.
enum class LoadCase : std::int32_t {
    Gravity = 1,
    Pressure = 2,       // hosts; on all outer faces
    PressureLight = 3,  // ten times the pressure, on every tenth element
    PressureX = 4,      // on faces towards +x
    PressureNegX = 5,
    PressureY = 6,  // on the last element of each column along y
    PressureNegY = 7,
    PressureZ = 8,      // hosts; on every fifth of the topmost elements of the columns along z
    PressureNegZ = 9,   // on all of the lowest
    CentreTop = 10,     // hosts; a force up on the topmost element in the middle
    SidesOfYTop = 11,   // on the two elements at the ends of the top layer in the middle of y
    SidesOfXTop = 12,   // the same in the middle of x
    RandomPoints = 13,  // on one free DoF in ten thousand, on the surface; the same in every run
};

/// How pressures find the elements that they act on.
enum class LoadRules {
    Hosts,  // as each case tells; hosts compare results
    Even,   // on the outermost outer face of every row and column, whole; all outer faces for
            // Pressure
};

/// The force on each free node, for a load of size 1; fixed nodes get none. A number that is no
/// case loads nothing. Log: a line for the case, and where a place to load is not found.
NodeField load_of(const Model& model, LoadCase load, const RunLog& log,
                  LoadRules rules = LoadRules::Hosts);

}  // namespace povmesh::fem
