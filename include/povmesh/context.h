/* povmesh/context.h: povmesh for programs that run several jobs and want to know what became of
 * each. C99, and C++98 or later. The rules that hold for all functions stand in
 * docs/context.md. */
#ifndef POVMESH_CONTEXT_H
#define POVMESH_CONTEXT_H
#include <stddef.h>
#include <stdint.h>
#define POVMESH_VERSION 2000 /* of this header: major * 1000000 + minor * 1000 + patch */

#if defined(_WIN32) && defined(POVMESH_BUILDING)
#define POVMESH_API __declspec(dllexport)
#elif defined(_WIN32) && !defined(POVMESH_STATIC)
#define POVMESH_API __declspec(dllimport)
#elif defined(__GNUC__)
#define POVMESH_API __attribute__((visibility("default")))
#else
#define POVMESH_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The names are those of a C interface. */
/* NOLINTBEGIN(readability-identifier-naming) */

/* ---- status, version */

typedef int32_t povmesh_status;
enum {
    POVMESH_OK = 0,
    POVMESH_CANCELLED = 1,        /* the progress function or povmesh_context_cancel asked for it */
    POVMESH_OUT_OF_MEMORY = 2,    /* of the system, or beyond the context's limit */
    POVMESH_INVALID_ARGUMENT = 3, /* the message names the argument or the field */
    POVMESH_CANNOT_READ = 4,      /* the file cannot be opened or read */
    POVMESH_BAD_FILE = 5,         /* it was read, but is truncated, damaged or no model */
    POVMESH_CANNOT_WRITE = 6,     /* what was there before is unchanged */
    /* more than 715,827,882 triangles, or more than a grid can number */
    POVMESH_TOO_LARGE = 7,
    /* the model gives no result: the plane misses it, no voxel is left, ... */
    POVMESH_NOTHING = 8,
    /* an operation, format, array or field that this library does not have */
    POVMESH_UNSUPPORTED = 9,
    POVMESH_BUSY = 10,    /* the context is in a call at this moment; nothing happened */
    POVMESH_INTERNAL = 11 /* a fault of the library: please report the message */
};
/* "out of memory"; constant, never null */
POVMESH_API const char* povmesh_status_text(povmesh_status status);
/* of the library, as POVMESH_VERSION */
POVMESH_API uint32_t povmesh_version(void);
/* "0.2.0, Release, gcc 12.2.0" */
POVMESH_API const char* povmesh_version_text(void);
/* 1 or 0: "operation:hollow", "read:stl", "write:obj"; anything else 0 */
POVMESH_API int32_t povmesh_has(const char* what);

/* ---- context */

/* settings and the last message; one call at a time */
typedef struct povmesh_context povmesh_context;

/* On the calling thread, at least every 50 ms: percent from 0 to 100, never falling; phase,
 * such as "closing holes", is a constant text. Another value than 0 cancels the call. */
typedef int32_t (*povmesh_progress_function)(void* user, double percent, const char* phase);
/* On the calling thread: a line of UTF-8 without its end; valid while the function runs. */
typedef void (*povmesh_log_function)(void* user, int32_t level, const char* text);
enum { POVMESH_LOG_TEXT = 0, POVMESH_LOG_WARNING = 1, POVMESH_LOG_ERROR = 2 };

typedef struct povmesh_context_options { /* the defaults are 0 */
    uint32_t size;                       /* sizeof this struct; so in all structs below */
    uint32_t threads; /* of a call, at most 1024; 0: OMP_NUM_THREADS, else one for each processor */
    /* bytes that a call may hold beyond its inputs, its result included; 0: none */
    uint64_t memory_limit;
    povmesh_progress_function progress;
    void* progress_user;
    povmesh_log_function log;
    void* log_user;
} povmesh_context_options;

POVMESH_API povmesh_status povmesh_context_create(const povmesh_context_options*,
                                                  povmesh_context** context);
POVMESH_API povmesh_status povmesh_context_configure(povmesh_context*,
                                                     const povmesh_context_options*);
/* null: nothing. Meshes and results live on */
POVMESH_API void povmesh_context_destroy(povmesh_context*);
/* From any thread, or a signal handler: the call that runs and all later ones, until resume,
 * are cancelled. */
POVMESH_API void povmesh_context_cancel(povmesh_context*);
POVMESH_API void povmesh_context_resume(povmesh_context*);
/* What went wrong in the last call, where, and what to do: one line of UTF-8, "" after
 * POVMESH_OK. Valid until the next call. */
POVMESH_API const char* povmesh_context_message(const povmesh_context*);
/* the most that the last call held, as for the limit */
POVMESH_API uint64_t povmesh_context_peak_bytes(const povmesh_context*);

/* ---- arrays, meshes, results */

enum {
    POVMESH_F32 = 1,
    POVMESH_F64,
    POVMESH_U8,
    POVMESH_I16,
    POVMESH_I32,
    POVMESH_U32,
    POVMESH_I64,
    POVMESH_U64
};

/* Rows of numbers: row i begins at data + i * stride and has `components` numbers of `type`
 * behind one another, aligned or not. As an input, all 0: not given; a stride of 0: rows
 * without gaps. Fixed for good. */
typedef struct povmesh_view {
    const void* data; /* may be null when count is 0 */
    uint64_t count;   /* rows */
    uint64_t stride;  /* bytes */
    int32_t type, components;
} povmesh_view;

enum {
    /* of a mesh: 3 F32 a vertex: x, y, z in the unit of the file */
    POVMESH_POSITIONS = 1,
    /* 3 I32 a face: vertices, counter-clockwise seen from outside */
    POVMESH_FACES = 2,
    /* 9 U8 a face: red, green, blue of corner 0, 1, 2; 255 where not given */
    POVMESH_COLOURS = 3,
    POVMESH_LABELS = 4,              /* 1 I16 a face: group or material; -1: none */
    POVMESH_TEXTURE_FACES = 5,       /* 3 I32 a face: rows of the next array; -1: none */
    POVMESH_TEXTURE_COORDINATES = 6, /* 2 F64: u, v */
    POVMESH_HOLES = 16,              /* of results: 2 U64: edges of a rim, how many of that size */
    POVMESH_FLAW_PLACES = 17,        /* 3 F32 a flaw: a point at the first one; NaN: none */
    POVMESH_FLAW_FACES = 18,         /* 2 U32: flaw, face; of each flaw the first five at most */
    POVMESH_PLANES = 19,             /* 4 F64: unit normal, offset */
    POVMESH_BOXES = 20,              /* 6 F32 a part: low corner, high corner */
    POVMESH_VOLUMES = 21,            /* 1 F64 a part */
    POVMESH_COLUMNS = 22,            /* 6 F32 a column: upper and lower end of its axis */
    /* 3 F32: the points of closed polygons, one polygon behind the other */
    POVMESH_POLYGON_POINTS = 23,
    POVMESH_POLYGON_SIZES = 24,  /* 1 U32 a polygon: its number of points */
    POVMESH_POLYGON_LEVELS = 25, /* 1 F32 a polygon: its height */
    POVMESH_SECTIONS = 26,       /* 8 F64: centre, unit normal, score 0 to 100, area */
    POVMESH_VALUES = 27,         /* 1 F32 a vertex of mesh 0: the higher, the weaker */
    POVMESH_WEAK_PLACES = 28,    /* 4 F64: place, share of the greatest value */
    /* 9 F64: up, score, support volume, touched area, contact area, tilt (degrees), height */
    POVMESH_ORIENTATIONS = 29,
    POVMESH_BALANCE_POINTS = 30, /* 3 F32, in the order of balancingPreviewFromData */
    /* 6 F64: thinnest point, area, thickness there, extent; by falling area */
    POVMESH_THIN_PLACES = 31,
    POVMESH_GAP_PLACES = 32 /* the same of gaps */
};

/* immutable, for any thread and context; counts its owners */
typedef struct povmesh_mesh povmesh_mesh;

typedef struct povmesh_mesh_data {
    uint32_t size;
    int32_t weld; /* 1: vertices with the same coordinate bits become one; always so in a soup */
    /* F32, or F64 to be rounded; 3 a vertex. Without faces a soup: 9 a face */
    povmesh_view positions;
    povmesh_view faces;   /* 3 I32, U32, I64 or U64; one out of range: POVMESH_INVALID_ARGUMENT */
    povmesh_view colours; /* U8, or F32 or F64 from 0 to 1; 9 a face, or 3 a vertex */
    povmesh_view texture_coordinates; /* F32 or F64; 6 a face; they count for faces with a label */
    povmesh_view labels;              /* I16 or I32; 1 a face; the low 16 bits count */
} povmesh_mesh_data;
/* Copies. Vertices and faces keep number and order, but faces with two equal vertices are left
 * out. */
POVMESH_API povmesh_status povmesh_mesh_create(povmesh_context*, const povmesh_mesh_data*,
                                               povmesh_mesh** mesh);
POVMESH_API void povmesh_mesh_retain(const povmesh_mesh*); /* one owner more; null: nothing */
/* one less, the last one frees; null: nothing */
POVMESH_API void povmesh_mesh_release(const povmesh_mesh*);
/* An array of a mesh where it lies, as long as the mesh has an owner. */
POVMESH_API povmesh_status povmesh_mesh_view(const povmesh_mesh*, int32_t array,
                                             povmesh_view* view);

typedef struct povmesh_measures {
    uint32_t size;
    /* of a face at least; white is no colour */
    int32_t has_colours, has_labels, has_texture_coordinates;
    uint64_t faces, vertices, bytes; /* vertices in use; memory */
    double area, volume;             /* volume with its sign: negative when wound inward */
    /* box of the vertices in use that are finite; low > high: there is none */
    double low[3], high[3];
} povmesh_measures;
POVMESH_API povmesh_status povmesh_measure(povmesh_context*, const povmesh_mesh*,
                                           povmesh_measures*);

/* Meshes, arrays and lines of text; immutable, for any thread. What it hands out lives as long
 * as it does; a mesh that was retained lives on. */
typedef struct povmesh_result povmesh_result;
POVMESH_API uint64_t povmesh_result_mesh_count(const povmesh_result*);
/* null beyond the last */
POVMESH_API const povmesh_mesh* povmesh_result_mesh(const povmesh_result*, uint64_t i);
POVMESH_API povmesh_status povmesh_result_view(const povmesh_result*, int32_t array,
                                               povmesh_view* view);
/* warnings and advice of the tool, a line each */
POVMESH_API const char* povmesh_result_text(const povmesh_result*);
POVMESH_API void povmesh_result_release(const povmesh_result*); /* null: nothing */

/* ---- options and reports. Units are those of the file. [x]: the default; [must]: it has to be
 * set. Null options: the defaults; a null report is not filled. */
enum {
    POVMESH_CHECK = 1,
    POVMESH_REPAIR,
    POVMESH_SPLIT,
    POVMESH_CUT,
    POVMESH_REDUCE,
    POVMESH_REMESH,
    POVMESH_REVISE,
    POVMESH_SUBDIVIDE,
    POVMESH_HOLLOW,
    POVMESH_INFILL,
    POVMESH_VOXELIZE,
    POVMESH_SUPPORT,
    POVMESH_STRENGTH,
    POVMESH_WEAKNESS,
    POVMESH_RENDER,
    POVMESH_DISTANCE,
    POVMESH_DECOMPOSE,
    POVMESH_LAMPSHADE,
    POVMESH_ORIENT,
    POVMESH_BALANCE,
    POVMESH_READ,
    POVMESH_WRITE,
    POVMESH_OFFSET,
    POVMESH_WRAP,
    POVMESH_THICKNESS
};
/* Fills an option struct of `bytes` bytes with the defaults and sets its size. */
POVMESH_API povmesh_status povmesh_options_init(int32_t operation, void* options, size_t bytes);
/* povmesh_repair_options o = povmesh_repair_defaults(); and so for each operation. */
#define POVMESH_DEFAULTS_(name, NAME)                                        \
    static inline povmesh_##name##_options povmesh_##name##_defaults(void) { \
        povmesh_##name##_options o;                                          \
        povmesh_options_init(POVMESH_##NAME, &o, sizeof o);                  \
        return o;                                                            \
    }

/* ---- files. Paths are UTF-8. A format is "stl", "obj", ...; null: by the end of the path; in
 * memory by the content, and to write to memory it must be given. */

typedef struct povmesh_read_options {
    uint32_t size;
    const char* format;
    const char* name; /* of the bytes, for messages */
} povmesh_read_options;
typedef struct povmesh_read_report {
    uint32_t size;
    int32_t has_texture_lines; /* also when no face uses them */
    const char* format;        /* "binary STL", constant */
    /* of the file; with two corners at one place; ignored at the end */
    uint64_t triangles, dropped_triangles, trailing_bytes;
} povmesh_read_report;
/* As the tool reads: a model of at least one face. */
POVMESH_API povmesh_status povmesh_read_file(povmesh_context*, const char* path,
                                             const povmesh_read_options*, povmesh_mesh** mesh,
                                             povmesh_read_report*);
POVMESH_API povmesh_status povmesh_read_memory(povmesh_context*, const void* data, size_t bytes,
                                               const povmesh_read_options*, povmesh_mesh** mesh,
                                               povmesh_read_report*);

typedef struct povmesh_write_options {
    uint32_t size;
    int32_t flush; /* [1] wait for the disk */
    const char* format;
} povmesh_write_options;
typedef struct povmesh_write_report {
    uint32_t size;
    /* 1: the format does not keep them */
    int32_t lost_colours, lost_labels, lost_texture_coordinates;
    uint64_t bytes;
} povmesh_write_report;
/* As the tool writes: a file is replaced only by a complete one. Memory is given back with
 * povmesh_free. */
POVMESH_API povmesh_status povmesh_write_file(povmesh_context*, const povmesh_mesh*,
                                              const char* path, const povmesh_write_options*,
                                              povmesh_write_report*);
POVMESH_API povmesh_status povmesh_write_memory(povmesh_context*, const povmesh_mesh*,
                                                const povmesh_write_options*, void** data,
                                                size_t* bytes, povmesh_write_report*);
/* null: nothing */
POVMESH_API void povmesh_free(void* data);

/* ---- operations. What each does and how a result is ordered: the page of the tool's operation. */

typedef struct povmesh_check_options {
    uint32_t size;
    /* [0] count in models of up to 2,000,000 faces, 1 in any, -1 never */
    int32_t self_intersections;
    int32_t advice; /* [1] try what repair would do */
} povmesh_check_options;
typedef struct povmesh_check_report {
    uint32_t size;
    int32_t is_clean, is_closed, is_degenerate_only, has_self_intersection_count;
    uint64_t faces, vertices, shells, cavities;
    double low[3], high[3], volume;
    uint64_t inverted_faces, turned_edges, open_edges, non_manifold_edges, degenerate_faces,
        duplicate_faces, self_intersections, inside_out_shells,
        misplaced_vertices; /* flaws 0 to 8 */
    uint64_t holes, unclosed_edges, open_edge_corners, non_manifold_faces;
} povmesh_check_report;
/* Flaws are no failure. findings may be null: HOLES, FLAW_PLACES, FLAW_FACES; its text is the
 * advice. */
POVMESH_API povmesh_status povmesh_check(povmesh_context*, const povmesh_mesh*,
                                         const povmesh_check_options*, povmesh_result** findings,
                                         povmesh_check_report*);

typedef struct povmesh_repair_options {
    uint32_t size;
    int32_t outward;  /* [0] 1: turn cavities outward, too */
    double drop_tiny; /* [0] shells smaller than a cube of this volume, in volume and in area, go */
} povmesh_repair_options;
typedef struct povmesh_repair_report {
    uint32_t size;
    int32_t were_holes_tried; /* 0: faces have labels, which no new face would have */
    uint64_t dropped_shells, dropped_shell_faces, removed_duplicates, closed_holes, added_faces,
        turned_faces, kept_cavities, undecided_shells;
    /* holes left open, by the reason; edges in no rim */
    uint64_t open_too_long, open_part_of_ring, open_no_filling, unclosed_edges;
} povmesh_repair_report;
POVMESH_API povmesh_status povmesh_repair(povmesh_context*, const povmesh_mesh*,
                                          const povmesh_repair_options*, povmesh_mesh** repaired,
                                          povmesh_repair_report*);

typedef struct povmesh_split_options {
    uint32_t size;
    double min_volume; /* [0] smaller models are left out */
} povmesh_split_options;
typedef struct povmesh_split_report {
    uint32_t size;
    uint64_t models, left_out;
} povmesh_split_report;
POVMESH_API povmesh_status povmesh_split(povmesh_context*, const povmesh_mesh*,
                                         const povmesh_split_options*, povmesh_result** models,
                                         povmesh_split_report*);

typedef struct povmesh_cut_options {
    uint32_t size;
    /* [1] close the openings; [0] 1: keep the side of the normal and add its mirror image */
    int32_t caps, mirror;
    uint32_t pegs;              /* [0] for each model, 256 at most */
    double peg_radius;          /* [2] */
    double normal[3], point[3]; /* [0, 0, 1] of any length; [NaN] the middle of the box */
} povmesh_cut_options;
typedef struct povmesh_cut_report {
    uint32_t size;
    uint64_t models, divided, pegs;
} povmesh_cut_report;
POVMESH_API povmesh_status povmesh_cut(povmesh_context*, const povmesh_mesh*,
                                       const povmesh_cut_options*, povmesh_result** pieces,
                                       povmesh_cut_report*);
enum {
    POVMESH_ENDED_TARGET = 1,
    POVMESH_ENDED_NOTHING_TO_DO,
    POVMESH_ENDED_NORMAL_LIMIT,
    POVMESH_ENDED_BOUNDARY,
    POVMESH_ENDED_LINK,
    POVMESH_ENDED_CROWDED,
    POVMESH_ENDED_TOO_FEW_FACES
};

typedef struct povmesh_reduce_options {
    uint32_t size;
    /* [must] one of the three: */
    int32_t automatic; /* [0] 1: shells of more than 100,000 faces to these and 30 % of the rest */
    double keep;       /* [NaN] share of the faces of each shell, 0 to 1 */
    uint64_t faces;    /* [0] how many shall stay */
} povmesh_reduce_options;
typedef struct povmesh_reduce_report {
    uint32_t size;
    int32_t ended_by;
    uint64_t faces_before, faces_aimed, faces_after;
    /* how often a rule kept an edge */
    uint64_t normal_limit, boundary, link, crowded, too_few_faces;
} povmesh_reduce_report;
POVMESH_API povmesh_status povmesh_reduce(povmesh_context*, const povmesh_mesh*,
                                          const povmesh_reduce_options*, povmesh_mesh** reduced,
                                          povmesh_reduce_report*);

typedef struct povmesh_remesh_options {
    uint32_t size;
    double edge_length;   /* [must] above 0, unless there are lengths */
    povmesh_view lengths; /* 1 F32 a face; one not above 0: the mean edge of the face */
} povmesh_remesh_options;
typedef struct povmesh_remesh_report {
    uint32_t size;
    double raised; /* factor by which lengths were raised; 1: not */
} povmesh_remesh_report;
POVMESH_API povmesh_status povmesh_remesh(povmesh_context*, const povmesh_mesh*,
                                          const povmesh_remesh_options*, povmesh_mesh** remeshed,
                                          povmesh_remesh_report*);

typedef struct povmesh_revise_options {
    uint32_t size;
    double most_movement; /* [0.001] share of the box diagonal */
} povmesh_revise_options;
typedef struct povmesh_revise_report {
    uint32_t size;
    uint64_t needles_before, caps_before, needles_after, caps_after, collapsed, turned, split;
    double movement;
} povmesh_revise_report;
POVMESH_API povmesh_status povmesh_revise(povmesh_context*, const povmesh_mesh*,
                                          const povmesh_revise_options*, povmesh_mesh** revised,
                                          povmesh_revise_report*);
enum {
    POVMESH_SUBDIVIDE_UNIFORM = 0,
    POVMESH_SUBDIVIDE_ADAPTIVE = 1,
    POVMESH_SUBDIVIDE_SMOOTH = 2
};

typedef struct povmesh_subdivide_options {
    uint32_t size;
    uint32_t levels; /* [1] to 5 */
    int32_t mode;    /* [UNIFORM] */
} povmesh_subdivide_options;
POVMESH_API povmesh_status povmesh_subdivide(povmesh_context*, const povmesh_mesh*,
                                             const povmesh_subdivide_options*,
                                             povmesh_mesh** refined);
typedef struct povmesh_drain { /* fixed for good */
    double place[3], radius;   /* on the surface or near it; above 0 */
} povmesh_drain;
/* DEFAULT: as the tool */
enum { POVMESH_WALL_DEFAULT = 0, POVMESH_WALL_VOXEL = 1, POVMESH_WALL_EXACT = 2 };

typedef struct povmesh_hollow_options {
    uint32_t size;
    /* [0] 1: the cavity alone, its outside out, not with drains; [DEFAULT]; [0] */
    int32_t cavity_only, wall, reserved;
    double thickness;            /* [must] */
    const povmesh_drain* drains; /* [null, 0] */
    uint64_t drain_count;
} povmesh_hollow_options;
typedef struct povmesh_hollow_report {
    uint32_t size;
    uint32_t layers; /* 0 with exact walls, voxel_size is then the cell */
    double voxel_size, cavity_volume, saved_percent, smallest_wall, mean_wall;
} povmesh_hollow_report;
POVMESH_API povmesh_status povmesh_hollow(povmesh_context*, const povmesh_mesh*,
                                          const povmesh_hollow_options*, povmesh_mesh** hollowed,
                                          povmesh_hollow_report*);

typedef struct povmesh_infill_options {
    uint32_t size;
    int32_t cells_only; /* [0] 1: the cells alone, their outside out */
    /* [must] thickness above the cells; [must] share of the rest that stays material, 0 to 1 */
    double skin, density;
} povmesh_infill_options;
typedef struct povmesh_infill_report {
    uint32_t size;
    uint64_t cells, cells_made;
    double voxel_size, cells_volume, density, saved_percent, smallest_skin;
} povmesh_infill_report;
POVMESH_API povmesh_status povmesh_infill(povmesh_context*, const povmesh_mesh*,
                                          const povmesh_infill_options*, povmesh_mesh** filled,
                                          povmesh_infill_report*);

typedef struct povmesh_voxelize_options {
    uint32_t size;
    double edge; /* [must] of a cube */
} povmesh_voxelize_options;
typedef struct povmesh_voxelize_report {
    uint32_t size;
    uint64_t voxels;
    double edge; /* as it had to be raised */
} povmesh_voxelize_report;
POVMESH_API povmesh_status povmesh_voxelize(povmesh_context*, const povmesh_mesh*,
                                            const povmesh_voxelize_options*, povmesh_mesh** cubes,
                                            povmesh_voxelize_report*);

typedef struct povmesh_support_options {
    uint32_t size;
    int32_t with_model;    /* [0] 1: mesh 0 holds the model, too */
    double spacing, angle; /* [3] up to 10000; [45] degrees from upright */
    double plate;          /* [NaN] height of the build plate; NaN: the lowest point */
    double layer_height;   /* [0] no polygons */
    povmesh_view columns;  /* 6 F32: these instead of a search */
} povmesh_support_options;
typedef struct povmesh_support_report {
    uint32_t size;
    uint64_t columns, columns_on_plate, layers, polygons;
    double longest, plate;
} povmesh_support_report;
/* Mesh 0; COLUMNS, and with a layer height POLYGON_POINTS and POLYGON_SIZES, layer by layer. */
POVMESH_API povmesh_status povmesh_support(povmesh_context*, const povmesh_mesh*,
                                           const povmesh_support_options*,
                                           povmesh_result** supports, povmesh_support_report*);
enum { POVMESH_STRENGTH_FEM = 0, POVMESH_STRENGTH_SECTIONS = 1 };
enum { POVMESH_LOAD_TOP = 0, POVMESH_LOAD_ALL = 1, POVMESH_LOAD_CENTRE = 2 };

typedef struct povmesh_strength_options {
    uint32_t size;
    int32_t method, load; /* [FEM]; [TOP], for FEM */
} povmesh_strength_options;
typedef struct povmesh_strength_report {
    uint32_t size;
    uint64_t sections, elements, nodes, steps;
    double voxel_size, residual, lowest, highest;
} povmesh_strength_report;
/* Mesh 0, coloured; VALUES, WEAK_PLACES. */
POVMESH_API povmesh_status povmesh_strength(povmesh_context*, const povmesh_mesh*,
                                            const povmesh_strength_options*,
                                            povmesh_result** coloured, povmesh_strength_report*);

typedef struct povmesh_weakness_options {
    uint32_t size;
    int32_t all; /* [0] only weak places; 1: every section */
} povmesh_weakness_options;
/* SECTIONS, the weakest first; none is no failure. */
POVMESH_API povmesh_status povmesh_weakness(povmesh_context*, const povmesh_mesh*,
                                            const povmesh_weakness_options*,
                                            povmesh_result** sections);
enum {
    POVMESH_VIEW_ISO = 0,
    POVMESH_VIEW_FRONT,
    POVMESH_VIEW_BACK,
    POVMESH_VIEW_LEFT,
    POVMESH_VIEW_RIGHT,
    POVMESH_VIEW_TOP,
    POVMESH_VIEW_BOTTOM
};

typedef struct povmesh_render_options {
    uint32_t size;
    uint32_t width, height;         /* [800, 600] pixels, 16 to 8192 */
    int32_t view, flaws, explode;   /* [ISO]; [0] 1: flaws in colour; [0] 1: bodies apart */
    int32_t section_axis, reserved; /* [-1] none; 0, 1, 2: cut open across x, y, z; [0] */
    double section_value;           /* [NaN] through the middle */
    const povmesh_mesh* compare;    /* [null] seen the same way on the right */
    const povmesh_mesh* supports;   /* [null] with the others, in green */
} povmesh_render_options;
/* A PNG file in memory, for povmesh_free. */
POVMESH_API povmesh_status povmesh_render(povmesh_context*, const povmesh_mesh* const* meshes,
                                          size_t count, const povmesh_render_options*, void** png,
                                          size_t* bytes);

typedef struct povmesh_distance_options {
    uint32_t size;
    uint64_t samples; /* [0] on each surface; 0: one a face, 100,000 at least */
} povmesh_distance_options;
typedef struct povmesh_distance_report {
    uint32_t size;
    double rms, greatest, there_rms, there_greatest, back_rms, back_greatest;
} povmesh_distance_report;
POVMESH_API povmesh_status povmesh_distance(povmesh_context*, const povmesh_mesh* from,
                                            const povmesh_mesh* to, const povmesh_distance_options*,
                                            povmesh_distance_report*);

typedef struct povmesh_decompose_options {
    uint32_t size;
    /* [0] 1: even slabs; [0] 1: no meshes; [0] 1: a part may lie on another side */
    int32_t uniform, preview, turn;
    uint32_t pegs, reserved; /* [0] for each cut, 256 at most; [0] */
    /* [must] of the printer, 0: no limit; [0] less on each axis; [2] */
    double extent[3], margin, peg_radius;
} povmesh_decompose_options;
typedef struct povmesh_decompose_report {
    uint32_t size;
    int32_t fits;
    uint64_t parts, cuts, least_parts, uniform_parts, pegs;
    double cut_area;
} povmesh_decompose_report;
/* The parts as meshes; PLANES, BOXES, VOLUMES. */
POVMESH_API povmesh_status povmesh_decompose(povmesh_context*, const povmesh_mesh*,
                                             const povmesh_decompose_options*,
                                             povmesh_result** parts, povmesh_decompose_report*);
enum {
    POVMESH_TOP_AUTOMATIC = 0,
    POVMESH_TOP_OPEN = 1,
    POVMESH_TOP_CLOSED = 2,
    POVMESH_TOP_LEVEL = 3
};

typedef struct povmesh_lampshade_options {
    uint32_t size;
    int32_t preview, top, reserved;      /* [0] 1: no mesh; [AUTOMATIC]; [0] */
    double thickness, bottom, top_level; /* [must]; [NaN] automatic; [NaN] for TOP_LEVEL */
} povmesh_lampshade_options;
typedef struct povmesh_lampshade_report {
    uint32_t size;
    double opening_area, opening_circle, top_area, cut_off, smallest_wall, mean_wall,
        flat_ceiling_area;
} povmesh_lampshade_report;
/* Mesh 0; POLYGON_POINTS, POLYGON_SIZES, POLYGON_LEVELS. */
POVMESH_API povmesh_status povmesh_lampshade(povmesh_context*, const povmesh_mesh*,
                                             const povmesh_lampshade_options*,
                                             povmesh_result** lampshade, povmesh_lampshade_report*);

typedef struct povmesh_orient_options {
    uint32_t size;
    /* [5] to 64; [0] no mesh, k: mesh 0 stands as row k has it; [0] */
    uint32_t rows, choose, reserved;
    double up[3]; /* [0, 0, 0] none; else measured as the last row, too */
} povmesh_orient_options;
/* ORIENTATIONS: row 0 as the model stands, then the rows, best first. */
POVMESH_API povmesh_status povmesh_orient(povmesh_context*, const povmesh_mesh*,
                                          const povmesh_orient_options*,
                                          povmesh_result** orientations);
/* FIRM: mesh 0 is the model; FALLS: no mesh. No failures */
enum { POVMESH_BALANCE_CARVED = 0, POVMESH_BALANCE_FIRM = 2, POVMESH_BALANCE_FALLS = 3 };

typedef struct povmesh_balance_options {
    uint32_t size;
    int32_t check; /* [0] 1: measure only, no mesh */
    /* [must]; [10] degrees that a firm model withstands; [0] of the core that stays, from 1 on;
     * 0: solid, as 100 */
    double thickness, angle, infill_percent;
    const povmesh_drain* drains; /* [null, 0] */
    uint64_t drain_count;
} povmesh_balance_options;
typedef struct povmesh_balance_report {
    uint32_t size;
    int32_t outcome; /* POVMESH_BALANCE_... */
    double base_area, tilt_before, tilt_after, voxel_size, cavity_volume, saved_percent,
        smallest_wall, centre_before[3], centre_after[3];
} povmesh_balance_report;
/* Mesh 0; BALANCE_POINTS. */
POVMESH_API povmesh_status povmesh_balance(povmesh_context*, const povmesh_mesh*,
                                           const povmesh_balance_options*,
                                           povmesh_result** balanced, povmesh_balance_report*);
enum { POVMESH_CORNERS_ROUND = 0, POVMESH_CORNERS_SHARP = 1 };

typedef struct povmesh_offset_options {
    uint32_t size;
    int32_t corners, all_triangles, reserved; /* [ROUND]; [0]; [0] */
    double distance, cell;                    /* [must] below 0: shrinks; [NaN] automatic */
} povmesh_offset_options;
typedef struct povmesh_offset_report {
    uint32_t size;
    double cell;
} povmesh_offset_report;
POVMESH_API povmesh_status povmesh_offset(povmesh_context*, const povmesh_mesh*,
                                          const povmesh_offset_options*, povmesh_mesh** moved,
                                          povmesh_offset_report*);

typedef struct povmesh_wrap_options {
    uint32_t size;
    int32_t drop_thin, all_triangles, reserved; /* [0] 1: sheets go; [0]; [0] */
    double tolerance, gap, cell;                /* [NaN] automatic, all three */
} povmesh_wrap_options;
typedef struct povmesh_wrap_report {
    uint32_t size;
    uint64_t bridges, cavities, dropped_shells;
    /* from result to model; back */
    double cell, gap, bridge_area, widest_bridge, thickened_area, buried_area, there_greatest,
        back_greatest;
} povmesh_wrap_report;
POVMESH_API povmesh_status povmesh_wrap(povmesh_context*, const povmesh_mesh*,
                                        const povmesh_wrap_options*, povmesh_mesh** wrapped,
                                        povmesh_wrap_report*);

typedef struct povmesh_thickness_options {
    uint32_t size;
    uint32_t places;  /* [0] all */
    double wall, gap; /* [must]; [0] do not look */
} povmesh_thickness_options;
typedef struct povmesh_thickness_report {
    uint32_t size;
    int32_t was_wrapped;
    uint64_t thin_places, gap_places;
    double smallest_wall, thin_area, thin_share, smallest_gap, gap_area;
} povmesh_thickness_report;
/* Mesh 0, coloured; THIN_PLACES, GAP_PLACES, which are no failure. */
POVMESH_API povmesh_status povmesh_thickness(povmesh_context*, const povmesh_mesh*,
                                             const povmesh_thickness_options*,
                                             povmesh_result** places, povmesh_thickness_report*);

/* clang-format off */
POVMESH_DEFAULTS_(read, READ)
POVMESH_DEFAULTS_(write, WRITE)
POVMESH_DEFAULTS_(check, CHECK)
POVMESH_DEFAULTS_(repair, REPAIR)
POVMESH_DEFAULTS_(split, SPLIT)
POVMESH_DEFAULTS_(cut, CUT)
POVMESH_DEFAULTS_(reduce, REDUCE)
POVMESH_DEFAULTS_(remesh, REMESH)
POVMESH_DEFAULTS_(revise, REVISE)
POVMESH_DEFAULTS_(subdivide, SUBDIVIDE)
POVMESH_DEFAULTS_(hollow, HOLLOW)
POVMESH_DEFAULTS_(infill, INFILL)
POVMESH_DEFAULTS_(voxelize, VOXELIZE)
POVMESH_DEFAULTS_(support, SUPPORT)
POVMESH_DEFAULTS_(strength, STRENGTH)
POVMESH_DEFAULTS_(weakness, WEAKNESS)
POVMESH_DEFAULTS_(render, RENDER)
POVMESH_DEFAULTS_(distance, DISTANCE)
POVMESH_DEFAULTS_(decompose, DECOMPOSE)
POVMESH_DEFAULTS_(lampshade, LAMPSHADE)
POVMESH_DEFAULTS_(orient, ORIENT)
POVMESH_DEFAULTS_(balance, BALANCE)
POVMESH_DEFAULTS_(offset, OFFSET)
POVMESH_DEFAULTS_(wrap, WRAP)
POVMESH_DEFAULTS_(thickness, THICKNESS)
/* clang-format on */

/* NOLINTEND(readability-identifier-naming) */

#ifdef __cplusplus
}
#endif
#endif /* POVMESH_CONTEXT_H */
