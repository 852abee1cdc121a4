// What the numbers that hosts pass stand for: operations know enumerators and options alone.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "analysis/load_cases.h"
#include "analysis/sections.h"
#include "analysis/strength.h"
#include "cut/cut.h"
#include "mesh/build_f.h"
#include "remesh/parallel_reduce.h"
#include "remesh/subdivide.h"

namespace povmesh::api {

/// Of a flag the low 8 bits count, whatever its width.
bool is_set(std::uint64_t flag);

/// 1 and 2 cut, without and with caps, 3 and 4 mirror; any other leaves models as they are.
CutOperation cut_operation(std::uint32_t code);

/// Three floats each. A null pointer makes a plane that cuts nothing.
CutPlane cut_plane(const float* normal, const float* direction, const float* point);

/// 0 all sections, any other weak places only.
SectionMode section_mode(std::uint64_t option);

/// 0 sections, 1 finite elements; any other analyses nothing.
StrengthMethod strength_method(std::uint32_t code);

/// 0 the top faces, 1 all faces, any other the centre of the top.
fem::LoadCase load_case(std::uint32_t code);

/// Levels of subdivision to make: 1 to 5 as asked for, else none.
std::uint32_t level_count(std::uint32_t levels);

/// Models with colours, or with texture coordinates and labels, have all their edges split.
SubdivideMode subdivide_mode(const float* colours, const float* texture_coordinates,
                             const std::int32_t* labels);

/// The share of each shell's faces to keep, 0.05 at least; below -0.5 automatic. One that is not a
/// number changes nothing.
ParallelReduceOptions reduction_to(float target);

/// A host's edge lengths; none when a pointer is null.
std::span<const float> lengths_of(float* const* edge_lengths, const std::uint32_t* count);

/// Of one length for each triangle of a soup, those of the triangles that became faces of `mesh`.
std::vector<float> lengths_of_faces(const TriMesh& mesh, const Soup& soup,
                                    std::span<const float> lengths);

}  // namespace povmesh::api
