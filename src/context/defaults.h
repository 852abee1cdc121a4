// The defaults of the options of all operations: numbers that must be set are NaN.
#pragma once

#include <limits>

#include "povmesh/context.h"

namespace povmesh::context {

inline constexpr double kUnset = std::numeric_limits<double>::quiet_NaN();

template <typename Options>
Options defaults_of() {
    return {};
}

template <>
inline povmesh_write_options defaults_of() {
    povmesh_write_options o{};
    o.flush = 1;
    return o;
}

template <>
inline povmesh_check_options defaults_of() {
    povmesh_check_options o{};
    o.advice = 1;
    return o;
}

template <>
inline povmesh_cut_options defaults_of() {
    povmesh_cut_options o{};
    o.caps = 1;
    o.peg_radius = 2;
    o.normal[2] = 1;
    for (double& x : o.point) x = kUnset;
    return o;
}

template <>
inline povmesh_reduce_options defaults_of() {
    povmesh_reduce_options o{};
    o.keep = kUnset;
    return o;
}

template <>
inline povmesh_remesh_options defaults_of() {
    povmesh_remesh_options o{};
    o.edge_length = kUnset;
    return o;
}

template <>
inline povmesh_revise_options defaults_of() {
    povmesh_revise_options o{};
    o.most_movement = 0.001;
    return o;
}

template <>
inline povmesh_subdivide_options defaults_of() {
    povmesh_subdivide_options o{};
    o.levels = 1;
    return o;
}

template <>
inline povmesh_hollow_options defaults_of() {
    povmesh_hollow_options o{};
    o.thickness = kUnset;
    return o;
}

template <>
inline povmesh_infill_options defaults_of() {
    povmesh_infill_options o{};
    o.skin = o.density = kUnset;
    return o;
}

template <>
inline povmesh_voxelize_options defaults_of() {
    povmesh_voxelize_options o{};
    o.edge = kUnset;
    return o;
}

template <>
inline povmesh_support_options defaults_of() {
    povmesh_support_options o{};
    o.spacing = 3;
    o.angle = 45;
    o.plate = kUnset;
    return o;
}

template <>
inline povmesh_render_options defaults_of() {
    povmesh_render_options o{};
    o.width = 800;
    o.height = 600;
    o.section_axis = -1;
    o.section_value = kUnset;
    return o;
}

template <>
inline povmesh_decompose_options defaults_of() {
    povmesh_decompose_options o{};
    for (double& x : o.extent) x = kUnset;
    o.peg_radius = 2;
    return o;
}

template <>
inline povmesh_lampshade_options defaults_of() {
    povmesh_lampshade_options o{};
    o.thickness = o.bottom = o.top_level = kUnset;
    return o;
}

template <>
inline povmesh_orient_options defaults_of() {
    povmesh_orient_options o{};
    o.rows = 5;
    return o;
}

template <>
inline povmesh_balance_options defaults_of() {
    povmesh_balance_options o{};
    o.thickness = kUnset;
    o.angle = 10;
    return o;
}

template <>
inline povmesh_offset_options defaults_of() {
    povmesh_offset_options o{};
    o.distance = o.cell = kUnset;
    return o;
}

template <>
inline povmesh_wrap_options defaults_of() {
    povmesh_wrap_options o{};
    o.tolerance = o.gap = o.cell = kUnset;
    return o;
}

template <>
inline povmesh_thickness_options defaults_of() {
    povmesh_thickness_options o{};
    o.wall = kUnset;
    return o;
}

}  // namespace povmesh::context
