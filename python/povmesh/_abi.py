"""What povmesh/context.h declares. Made by make_abi.py; do not edit."""

from ctypes import CFUNCTYPE, POINTER, Structure
from ctypes import c_char_p, c_double, c_int32, c_size_t, c_uint32, c_uint64, c_void_p
from typing import Any, Dict, List, Tuple

HEADER_VERSION = 2000
VERSION = "0.2.0"

POVMESH_OK = 0
POVMESH_CANCELLED = 1
POVMESH_OUT_OF_MEMORY = 2
POVMESH_INVALID_ARGUMENT = 3
POVMESH_CANNOT_READ = 4
POVMESH_BAD_FILE = 5
POVMESH_CANNOT_WRITE = 6
POVMESH_TOO_LARGE = 7
POVMESH_NOTHING = 8
POVMESH_UNSUPPORTED = 9
POVMESH_BUSY = 10
POVMESH_INTERNAL = 11
POVMESH_LOG_TEXT = 0
POVMESH_LOG_WARNING = 1
POVMESH_LOG_ERROR = 2
POVMESH_F32 = 1
POVMESH_F64 = 2
POVMESH_U8 = 3
POVMESH_I16 = 4
POVMESH_I32 = 5
POVMESH_U32 = 6
POVMESH_I64 = 7
POVMESH_U64 = 8
POVMESH_POSITIONS = 1
POVMESH_FACES = 2
POVMESH_COLOURS = 3
POVMESH_LABELS = 4
POVMESH_TEXTURE_FACES = 5
POVMESH_TEXTURE_COORDINATES = 6
POVMESH_HOLES = 16
POVMESH_FLAW_PLACES = 17
POVMESH_FLAW_FACES = 18
POVMESH_PLANES = 19
POVMESH_BOXES = 20
POVMESH_VOLUMES = 21
POVMESH_COLUMNS = 22
POVMESH_POLYGON_POINTS = 23
POVMESH_POLYGON_SIZES = 24
POVMESH_POLYGON_LEVELS = 25
POVMESH_SECTIONS = 26
POVMESH_VALUES = 27
POVMESH_WEAK_PLACES = 28
POVMESH_ORIENTATIONS = 29
POVMESH_BALANCE_POINTS = 30
POVMESH_THIN_PLACES = 31
POVMESH_GAP_PLACES = 32
POVMESH_CHECK = 1
POVMESH_REPAIR = 2
POVMESH_SPLIT = 3
POVMESH_CUT = 4
POVMESH_REDUCE = 5
POVMESH_REMESH = 6
POVMESH_REVISE = 7
POVMESH_SUBDIVIDE = 8
POVMESH_HOLLOW = 9
POVMESH_INFILL = 10
POVMESH_VOXELIZE = 11
POVMESH_SUPPORT = 12
POVMESH_STRENGTH = 13
POVMESH_WEAKNESS = 14
POVMESH_RENDER = 15
POVMESH_DISTANCE = 16
POVMESH_DECOMPOSE = 17
POVMESH_LAMPSHADE = 18
POVMESH_ORIENT = 19
POVMESH_BALANCE = 20
POVMESH_READ = 21
POVMESH_WRITE = 22
POVMESH_OFFSET = 23
POVMESH_WRAP = 24
POVMESH_THICKNESS = 25
POVMESH_ENDED_TARGET = 1
POVMESH_ENDED_NOTHING_TO_DO = 2
POVMESH_ENDED_NORMAL_LIMIT = 3
POVMESH_ENDED_BOUNDARY = 4
POVMESH_ENDED_LINK = 5
POVMESH_ENDED_CROWDED = 6
POVMESH_ENDED_TOO_FEW_FACES = 7
POVMESH_SUBDIVIDE_UNIFORM = 0
POVMESH_SUBDIVIDE_ADAPTIVE = 1
POVMESH_SUBDIVIDE_SMOOTH = 2
POVMESH_WALL_DEFAULT = 0
POVMESH_WALL_VOXEL = 1
POVMESH_WALL_EXACT = 2
POVMESH_STRENGTH_FEM = 0
POVMESH_STRENGTH_SECTIONS = 1
POVMESH_LOAD_TOP = 0
POVMESH_LOAD_ALL = 1
POVMESH_LOAD_CENTRE = 2
POVMESH_VIEW_ISO = 0
POVMESH_VIEW_FRONT = 1
POVMESH_VIEW_BACK = 2
POVMESH_VIEW_LEFT = 3
POVMESH_VIEW_RIGHT = 4
POVMESH_VIEW_TOP = 5
POVMESH_VIEW_BOTTOM = 6
POVMESH_TOP_AUTOMATIC = 0
POVMESH_TOP_OPEN = 1
POVMESH_TOP_CLOSED = 2
POVMESH_TOP_LEVEL = 3
POVMESH_BALANCE_CARVED = 0
POVMESH_BALANCE_FIRM = 2
POVMESH_BALANCE_FALLS = 3
POVMESH_CORNERS_ROUND = 0
POVMESH_CORNERS_SHARP = 1

povmesh_progress_function = CFUNCTYPE(c_int32, c_void_p, c_double, c_char_p)
povmesh_log_function = CFUNCTYPE(None, c_void_p, c_int32, c_char_p)


class povmesh_context_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("threads", c_uint32),
        ("memory_limit", c_uint64),
        ("progress", povmesh_progress_function),
        ("progress_user", c_void_p),
        ("log", povmesh_log_function),
        ("log_user", c_void_p),
    ]


class povmesh_view(Structure):
    _fields_ = [
        ("data", c_void_p),
        ("count", c_uint64),
        ("stride", c_uint64),
        ("type", c_int32),
        ("components", c_int32),
    ]


class povmesh_mesh_data(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("weld", c_int32),
        ("positions", povmesh_view),
        ("faces", povmesh_view),
        ("colours", povmesh_view),
        ("texture_coordinates", povmesh_view),
        ("labels", povmesh_view),
    ]


class povmesh_measures(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("has_colours", c_int32),
        ("has_labels", c_int32),
        ("has_texture_coordinates", c_int32),
        ("faces", c_uint64),
        ("vertices", c_uint64),
        ("bytes", c_uint64),
        ("area", c_double),
        ("volume", c_double),
        ("low", c_double * 3),
        ("high", c_double * 3),
    ]


class povmesh_read_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("format", c_char_p),
        ("name", c_char_p),
    ]


class povmesh_read_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("has_texture_lines", c_int32),
        ("format", c_char_p),
        ("triangles", c_uint64),
        ("dropped_triangles", c_uint64),
        ("trailing_bytes", c_uint64),
    ]


class povmesh_write_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("flush", c_int32),
        ("format", c_char_p),
    ]


class povmesh_write_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("lost_colours", c_int32),
        ("lost_labels", c_int32),
        ("lost_texture_coordinates", c_int32),
        ("bytes", c_uint64),
    ]


class povmesh_check_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("self_intersections", c_int32),
        ("advice", c_int32),
    ]


class povmesh_check_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("is_clean", c_int32),
        ("is_closed", c_int32),
        ("is_degenerate_only", c_int32),
        ("has_self_intersection_count", c_int32),
        ("faces", c_uint64),
        ("vertices", c_uint64),
        ("shells", c_uint64),
        ("cavities", c_uint64),
        ("low", c_double * 3),
        ("high", c_double * 3),
        ("volume", c_double),
        ("inverted_faces", c_uint64),
        ("turned_edges", c_uint64),
        ("open_edges", c_uint64),
        ("non_manifold_edges", c_uint64),
        ("degenerate_faces", c_uint64),
        ("duplicate_faces", c_uint64),
        ("self_intersections", c_uint64),
        ("inside_out_shells", c_uint64),
        ("misplaced_vertices", c_uint64),
        ("holes", c_uint64),
        ("unclosed_edges", c_uint64),
        ("open_edge_corners", c_uint64),
        ("non_manifold_faces", c_uint64),
    ]


class povmesh_repair_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("outward", c_int32),
        ("drop_tiny", c_double),
    ]


class povmesh_repair_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("were_holes_tried", c_int32),
        ("dropped_shells", c_uint64),
        ("dropped_shell_faces", c_uint64),
        ("removed_duplicates", c_uint64),
        ("closed_holes", c_uint64),
        ("added_faces", c_uint64),
        ("turned_faces", c_uint64),
        ("kept_cavities", c_uint64),
        ("undecided_shells", c_uint64),
        ("open_too_long", c_uint64),
        ("open_part_of_ring", c_uint64),
        ("open_no_filling", c_uint64),
        ("unclosed_edges", c_uint64),
    ]


class povmesh_split_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("min_volume", c_double),
    ]


class povmesh_split_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("models", c_uint64),
        ("left_out", c_uint64),
    ]


class povmesh_cut_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("caps", c_int32),
        ("mirror", c_int32),
        ("pegs", c_uint32),
        ("peg_radius", c_double),
        ("normal", c_double * 3),
        ("point", c_double * 3),
    ]


class povmesh_cut_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("models", c_uint64),
        ("divided", c_uint64),
        ("pegs", c_uint64),
    ]


class povmesh_reduce_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("automatic", c_int32),
        ("keep", c_double),
        ("faces", c_uint64),
    ]


class povmesh_reduce_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("ended_by", c_int32),
        ("faces_before", c_uint64),
        ("faces_aimed", c_uint64),
        ("faces_after", c_uint64),
        ("normal_limit", c_uint64),
        ("boundary", c_uint64),
        ("link", c_uint64),
        ("crowded", c_uint64),
        ("too_few_faces", c_uint64),
    ]


class povmesh_remesh_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("edge_length", c_double),
        ("lengths", povmesh_view),
    ]


class povmesh_remesh_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("raised", c_double),
    ]


class povmesh_revise_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("most_movement", c_double),
    ]


class povmesh_revise_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("needles_before", c_uint64),
        ("caps_before", c_uint64),
        ("needles_after", c_uint64),
        ("caps_after", c_uint64),
        ("collapsed", c_uint64),
        ("turned", c_uint64),
        ("split", c_uint64),
        ("movement", c_double),
    ]


class povmesh_subdivide_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("levels", c_uint32),
        ("mode", c_int32),
    ]


class povmesh_drain(Structure):
    _fields_ = [
        ("place", c_double * 3),
        ("radius", c_double),
    ]


class povmesh_hollow_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("cavity_only", c_int32),
        ("wall", c_int32),
        ("reserved", c_int32),
        ("thickness", c_double),
        ("drains", POINTER(povmesh_drain)),
        ("drain_count", c_uint64),
    ]


class povmesh_hollow_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("layers", c_uint32),
        ("voxel_size", c_double),
        ("cavity_volume", c_double),
        ("saved_percent", c_double),
        ("smallest_wall", c_double),
        ("mean_wall", c_double),
    ]


class povmesh_infill_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("cells_only", c_int32),
        ("skin", c_double),
        ("density", c_double),
    ]


class povmesh_infill_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("cells", c_uint64),
        ("cells_made", c_uint64),
        ("voxel_size", c_double),
        ("cells_volume", c_double),
        ("density", c_double),
        ("saved_percent", c_double),
        ("smallest_skin", c_double),
    ]


class povmesh_voxelize_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("edge", c_double),
    ]


class povmesh_voxelize_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("voxels", c_uint64),
        ("edge", c_double),
    ]


class povmesh_support_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("with_model", c_int32),
        ("spacing", c_double),
        ("angle", c_double),
        ("plate", c_double),
        ("layer_height", c_double),
        ("columns", povmesh_view),
    ]


class povmesh_support_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("columns", c_uint64),
        ("columns_on_plate", c_uint64),
        ("layers", c_uint64),
        ("polygons", c_uint64),
        ("longest", c_double),
        ("plate", c_double),
    ]


class povmesh_strength_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("method", c_int32),
        ("load", c_int32),
    ]


class povmesh_strength_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("sections", c_uint64),
        ("elements", c_uint64),
        ("nodes", c_uint64),
        ("steps", c_uint64),
        ("voxel_size", c_double),
        ("residual", c_double),
        ("lowest", c_double),
        ("highest", c_double),
    ]


class povmesh_weakness_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("all", c_int32),
    ]


class povmesh_render_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("width", c_uint32),
        ("height", c_uint32),
        ("view", c_int32),
        ("flaws", c_int32),
        ("explode", c_int32),
        ("section_axis", c_int32),
        ("reserved", c_int32),
        ("section_value", c_double),
        ("compare", c_void_p),
        ("supports", c_void_p),
    ]


class povmesh_distance_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("samples", c_uint64),
    ]


class povmesh_distance_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("rms", c_double),
        ("greatest", c_double),
        ("there_rms", c_double),
        ("there_greatest", c_double),
        ("back_rms", c_double),
        ("back_greatest", c_double),
    ]


class povmesh_decompose_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("uniform", c_int32),
        ("preview", c_int32),
        ("turn", c_int32),
        ("pegs", c_uint32),
        ("reserved", c_uint32),
        ("extent", c_double * 3),
        ("margin", c_double),
        ("peg_radius", c_double),
    ]


class povmesh_decompose_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("fits", c_int32),
        ("parts", c_uint64),
        ("cuts", c_uint64),
        ("least_parts", c_uint64),
        ("uniform_parts", c_uint64),
        ("pegs", c_uint64),
        ("cut_area", c_double),
    ]


class povmesh_lampshade_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("preview", c_int32),
        ("top", c_int32),
        ("reserved", c_int32),
        ("thickness", c_double),
        ("bottom", c_double),
        ("top_level", c_double),
    ]


class povmesh_lampshade_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("opening_area", c_double),
        ("opening_circle", c_double),
        ("top_area", c_double),
        ("cut_off", c_double),
        ("smallest_wall", c_double),
        ("mean_wall", c_double),
        ("flat_ceiling_area", c_double),
    ]


class povmesh_orient_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("rows", c_uint32),
        ("choose", c_uint32),
        ("reserved", c_uint32),
        ("up", c_double * 3),
    ]


class povmesh_balance_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("check", c_int32),
        ("thickness", c_double),
        ("angle", c_double),
        ("infill_percent", c_double),
        ("drains", POINTER(povmesh_drain)),
        ("drain_count", c_uint64),
    ]


class povmesh_balance_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("outcome", c_int32),
        ("base_area", c_double),
        ("tilt_before", c_double),
        ("tilt_after", c_double),
        ("voxel_size", c_double),
        ("cavity_volume", c_double),
        ("saved_percent", c_double),
        ("smallest_wall", c_double),
        ("centre_before", c_double * 3),
        ("centre_after", c_double * 3),
    ]


class povmesh_offset_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("corners", c_int32),
        ("all_triangles", c_int32),
        ("reserved", c_int32),
        ("distance", c_double),
        ("cell", c_double),
    ]


class povmesh_offset_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("cell", c_double),
    ]


class povmesh_wrap_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("drop_thin", c_int32),
        ("all_triangles", c_int32),
        ("reserved", c_int32),
        ("tolerance", c_double),
        ("gap", c_double),
        ("cell", c_double),
    ]


class povmesh_wrap_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("bridges", c_uint64),
        ("cavities", c_uint64),
        ("dropped_shells", c_uint64),
        ("cell", c_double),
        ("gap", c_double),
        ("bridge_area", c_double),
        ("widest_bridge", c_double),
        ("thickened_area", c_double),
        ("buried_area", c_double),
        ("there_greatest", c_double),
        ("back_greatest", c_double),
    ]


class povmesh_thickness_options(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("places", c_uint32),
        ("wall", c_double),
        ("gap", c_double),
    ]


class povmesh_thickness_report(Structure):
    _fields_ = [
        ("size", c_uint32),
        ("was_wrapped", c_int32),
        ("thin_places", c_uint64),
        ("gap_places", c_uint64),
        ("smallest_wall", c_double),
        ("thin_area", c_double),
        ("thin_share", c_double),
        ("smallest_gap", c_double),
        ("gap_area", c_double),
    ]


STRUCTS: Dict[str, Any] = {
    "povmesh_context_options": povmesh_context_options,
    "povmesh_view": povmesh_view,
    "povmesh_mesh_data": povmesh_mesh_data,
    "povmesh_measures": povmesh_measures,
    "povmesh_read_options": povmesh_read_options,
    "povmesh_read_report": povmesh_read_report,
    "povmesh_write_options": povmesh_write_options,
    "povmesh_write_report": povmesh_write_report,
    "povmesh_check_options": povmesh_check_options,
    "povmesh_check_report": povmesh_check_report,
    "povmesh_repair_options": povmesh_repair_options,
    "povmesh_repair_report": povmesh_repair_report,
    "povmesh_split_options": povmesh_split_options,
    "povmesh_split_report": povmesh_split_report,
    "povmesh_cut_options": povmesh_cut_options,
    "povmesh_cut_report": povmesh_cut_report,
    "povmesh_reduce_options": povmesh_reduce_options,
    "povmesh_reduce_report": povmesh_reduce_report,
    "povmesh_remesh_options": povmesh_remesh_options,
    "povmesh_remesh_report": povmesh_remesh_report,
    "povmesh_revise_options": povmesh_revise_options,
    "povmesh_revise_report": povmesh_revise_report,
    "povmesh_subdivide_options": povmesh_subdivide_options,
    "povmesh_drain": povmesh_drain,
    "povmesh_hollow_options": povmesh_hollow_options,
    "povmesh_hollow_report": povmesh_hollow_report,
    "povmesh_infill_options": povmesh_infill_options,
    "povmesh_infill_report": povmesh_infill_report,
    "povmesh_voxelize_options": povmesh_voxelize_options,
    "povmesh_voxelize_report": povmesh_voxelize_report,
    "povmesh_support_options": povmesh_support_options,
    "povmesh_support_report": povmesh_support_report,
    "povmesh_strength_options": povmesh_strength_options,
    "povmesh_strength_report": povmesh_strength_report,
    "povmesh_weakness_options": povmesh_weakness_options,
    "povmesh_render_options": povmesh_render_options,
    "povmesh_distance_options": povmesh_distance_options,
    "povmesh_distance_report": povmesh_distance_report,
    "povmesh_decompose_options": povmesh_decompose_options,
    "povmesh_decompose_report": povmesh_decompose_report,
    "povmesh_lampshade_options": povmesh_lampshade_options,
    "povmesh_lampshade_report": povmesh_lampshade_report,
    "povmesh_orient_options": povmesh_orient_options,
    "povmesh_balance_options": povmesh_balance_options,
    "povmesh_balance_report": povmesh_balance_report,
    "povmesh_offset_options": povmesh_offset_options,
    "povmesh_offset_report": povmesh_offset_report,
    "povmesh_wrap_options": povmesh_wrap_options,
    "povmesh_wrap_report": povmesh_wrap_report,
    "povmesh_thickness_options": povmesh_thickness_options,
    "povmesh_thickness_report": povmesh_thickness_report,
}

# Of each function what it returns and what it takes.
FUNCTIONS: Dict[str, Tuple[Any, List[Any]]] = {
    "povmesh_status_text": (
        c_char_p,
        [
            c_int32,
        ],
    ),
    "povmesh_version": (
        c_uint32,
        [
        ],
    ),
    "povmesh_version_text": (
        c_char_p,
        [
        ],
    ),
    "povmesh_has": (
        c_int32,
        [
            c_char_p,
        ],
    ),
    "povmesh_context_create": (
        c_int32,
        [
            POINTER(povmesh_context_options),
            POINTER(c_void_p),
        ],
    ),
    "povmesh_context_configure": (
        c_int32,
        [
            c_void_p,
            POINTER(povmesh_context_options),
        ],
    ),
    "povmesh_context_destroy": (
        None,
        [
            c_void_p,
        ],
    ),
    "povmesh_context_cancel": (
        None,
        [
            c_void_p,
        ],
    ),
    "povmesh_context_resume": (
        None,
        [
            c_void_p,
        ],
    ),
    "povmesh_context_message": (
        c_char_p,
        [
            c_void_p,
        ],
    ),
    "povmesh_context_peak_bytes": (
        c_uint64,
        [
            c_void_p,
        ],
    ),
    "povmesh_mesh_create": (
        c_int32,
        [
            c_void_p,
            POINTER(povmesh_mesh_data),
            POINTER(c_void_p),
        ],
    ),
    "povmesh_mesh_retain": (
        None,
        [
            c_void_p,
        ],
    ),
    "povmesh_mesh_release": (
        None,
        [
            c_void_p,
        ],
    ),
    "povmesh_mesh_view": (
        c_int32,
        [
            c_void_p,
            c_int32,
            POINTER(povmesh_view),
        ],
    ),
    "povmesh_measure": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_measures),
        ],
    ),
    "povmesh_result_mesh_count": (
        c_uint64,
        [
            c_void_p,
        ],
    ),
    "povmesh_result_mesh": (
        c_void_p,
        [
            c_void_p,
            c_uint64,
        ],
    ),
    "povmesh_result_view": (
        c_int32,
        [
            c_void_p,
            c_int32,
            POINTER(povmesh_view),
        ],
    ),
    "povmesh_result_text": (
        c_char_p,
        [
            c_void_p,
        ],
    ),
    "povmesh_result_release": (
        None,
        [
            c_void_p,
        ],
    ),
    "povmesh_options_init": (
        c_int32,
        [
            c_int32,
            c_void_p,
            c_size_t,
        ],
    ),
    "povmesh_read_file": (
        c_int32,
        [
            c_void_p,
            c_char_p,
            POINTER(povmesh_read_options),
            POINTER(c_void_p),
            POINTER(povmesh_read_report),
        ],
    ),
    "povmesh_read_memory": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            c_size_t,
            POINTER(povmesh_read_options),
            POINTER(c_void_p),
            POINTER(povmesh_read_report),
        ],
    ),
    "povmesh_write_file": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            c_char_p,
            POINTER(povmesh_write_options),
            POINTER(povmesh_write_report),
        ],
    ),
    "povmesh_write_memory": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_write_options),
            POINTER(c_void_p),
            POINTER(c_size_t),
            POINTER(povmesh_write_report),
        ],
    ),
    "povmesh_free": (
        None,
        [
            c_void_p,
        ],
    ),
    "povmesh_check": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_check_options),
            POINTER(c_void_p),
            POINTER(povmesh_check_report),
        ],
    ),
    "povmesh_repair": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_repair_options),
            POINTER(c_void_p),
            POINTER(povmesh_repair_report),
        ],
    ),
    "povmesh_split": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_split_options),
            POINTER(c_void_p),
            POINTER(povmesh_split_report),
        ],
    ),
    "povmesh_cut": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_cut_options),
            POINTER(c_void_p),
            POINTER(povmesh_cut_report),
        ],
    ),
    "povmesh_reduce": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_reduce_options),
            POINTER(c_void_p),
            POINTER(povmesh_reduce_report),
        ],
    ),
    "povmesh_remesh": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_remesh_options),
            POINTER(c_void_p),
            POINTER(povmesh_remesh_report),
        ],
    ),
    "povmesh_revise": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_revise_options),
            POINTER(c_void_p),
            POINTER(povmesh_revise_report),
        ],
    ),
    "povmesh_subdivide": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_subdivide_options),
            POINTER(c_void_p),
        ],
    ),
    "povmesh_hollow": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_hollow_options),
            POINTER(c_void_p),
            POINTER(povmesh_hollow_report),
        ],
    ),
    "povmesh_infill": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_infill_options),
            POINTER(c_void_p),
            POINTER(povmesh_infill_report),
        ],
    ),
    "povmesh_voxelize": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_voxelize_options),
            POINTER(c_void_p),
            POINTER(povmesh_voxelize_report),
        ],
    ),
    "povmesh_support": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_support_options),
            POINTER(c_void_p),
            POINTER(povmesh_support_report),
        ],
    ),
    "povmesh_strength": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_strength_options),
            POINTER(c_void_p),
            POINTER(povmesh_strength_report),
        ],
    ),
    "povmesh_weakness": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_weakness_options),
            POINTER(c_void_p),
        ],
    ),
    "povmesh_render": (
        c_int32,
        [
            c_void_p,
            POINTER(c_void_p),
            c_size_t,
            POINTER(povmesh_render_options),
            POINTER(c_void_p),
            POINTER(c_size_t),
        ],
    ),
    "povmesh_distance": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            c_void_p,
            POINTER(povmesh_distance_options),
            POINTER(povmesh_distance_report),
        ],
    ),
    "povmesh_decompose": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_decompose_options),
            POINTER(c_void_p),
            POINTER(povmesh_decompose_report),
        ],
    ),
    "povmesh_lampshade": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_lampshade_options),
            POINTER(c_void_p),
            POINTER(povmesh_lampshade_report),
        ],
    ),
    "povmesh_orient": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_orient_options),
            POINTER(c_void_p),
        ],
    ),
    "povmesh_balance": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_balance_options),
            POINTER(c_void_p),
            POINTER(povmesh_balance_report),
        ],
    ),
    "povmesh_offset": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_offset_options),
            POINTER(c_void_p),
            POINTER(povmesh_offset_report),
        ],
    ),
    "povmesh_wrap": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_wrap_options),
            POINTER(c_void_p),
            POINTER(povmesh_wrap_report),
        ],
    ),
    "povmesh_thickness": (
        c_int32,
        [
            c_void_p,
            c_void_p,
            POINTER(povmesh_thickness_options),
            POINTER(c_void_p),
            POINTER(povmesh_thickness_report),
        ],
    ),
}
