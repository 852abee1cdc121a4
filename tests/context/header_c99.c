/* The header in C99: sizes without padding at the end, and a call of each kind of function. */
#include "povmesh/context.h"

#define ENDS_WITH(type, member) \
    (offsetof(type, member) + sizeof(((type*)0)->member) == sizeof(type) ? 0 : 1)

/* How many structs have padding at their end, where a field added later could not be told from it.
 */
int count_padded_structs(void) {
    return ENDS_WITH(povmesh_context_options, log_user) + ENDS_WITH(povmesh_view, components) +
           ENDS_WITH(povmesh_mesh_data, labels) + ENDS_WITH(povmesh_measures, high) +
           ENDS_WITH(povmesh_read_options, name) + ENDS_WITH(povmesh_read_report, trailing_bytes) +
           ENDS_WITH(povmesh_write_options, format) + ENDS_WITH(povmesh_write_report, bytes) +
           ENDS_WITH(povmesh_check_options, advice) +
           ENDS_WITH(povmesh_check_report, non_manifold_faces) +
           ENDS_WITH(povmesh_repair_options, drop_tiny) +
           ENDS_WITH(povmesh_repair_report, unclosed_edges) +
           ENDS_WITH(povmesh_split_options, min_volume) +
           ENDS_WITH(povmesh_split_report, left_out) + ENDS_WITH(povmesh_cut_options, point) +
           ENDS_WITH(povmesh_cut_report, pegs) + ENDS_WITH(povmesh_reduce_options, faces) +
           ENDS_WITH(povmesh_reduce_report, too_few_faces) +
           ENDS_WITH(povmesh_remesh_options, lengths) + ENDS_WITH(povmesh_remesh_report, raised) +
           ENDS_WITH(povmesh_revise_options, most_movement) +
           ENDS_WITH(povmesh_revise_report, movement) + ENDS_WITH(povmesh_subdivide_options, mode) +
           ENDS_WITH(povmesh_hollow_options, drain_count) +
           ENDS_WITH(povmesh_hollow_report, mean_wall) +
           ENDS_WITH(povmesh_infill_options, density) +
           ENDS_WITH(povmesh_infill_report, smallest_skin) +
           ENDS_WITH(povmesh_voxelize_options, edge) + ENDS_WITH(povmesh_voxelize_report, edge) +
           ENDS_WITH(povmesh_support_options, columns) + ENDS_WITH(povmesh_support_report, plate) +
           ENDS_WITH(povmesh_strength_options, load) + ENDS_WITH(povmesh_strength_report, highest) +
           ENDS_WITH(povmesh_weakness_options, all) + ENDS_WITH(povmesh_render_options, supports) +
           ENDS_WITH(povmesh_distance_options, samples) +
           ENDS_WITH(povmesh_distance_report, back_greatest) +
           ENDS_WITH(povmesh_decompose_options, peg_radius) +
           ENDS_WITH(povmesh_decompose_report, cut_area) +
           ENDS_WITH(povmesh_lampshade_options, top_level) +
           ENDS_WITH(povmesh_lampshade_report, flat_ceiling_area) +
           ENDS_WITH(povmesh_orient_options, up) + ENDS_WITH(povmesh_balance_options, drain_count) +
           ENDS_WITH(povmesh_balance_report, centre_after) +
           ENDS_WITH(povmesh_offset_options, cell) + ENDS_WITH(povmesh_offset_report, cell) +
           ENDS_WITH(povmesh_wrap_options, cell) + ENDS_WITH(povmesh_wrap_report, back_greatest) +
           ENDS_WITH(povmesh_thickness_options, gap) +
           ENDS_WITH(povmesh_thickness_report, gap_area);
}

povmesh_status repair_in_c99(povmesh_context* context, const povmesh_mesh* mesh,
                             povmesh_mesh** repaired) {
    povmesh_repair_options options = povmesh_repair_defaults();
    povmesh_repair_report report;
    report.size = sizeof report;
    options.outward = 1;
    return povmesh_repair(context, mesh, &options, repaired, &report);
}
