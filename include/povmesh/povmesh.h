/* The tables below keep their layout. */
/* clang-format off */
/*
 * povmesh: mesh processing for 3D printing. The functions of the shared library Povmesh_64.
 *
 * Each call is one complete job: it builds a mesh from a file or from the caller's triangles, runs
 * one operation on it and hands the result back in arrays. Nothing else is kept between calls.
 *
 * TRIANGLE SOUP
 *   A model goes in and comes out as a soup: flat arrays indexed by triangle, no shared corners.
 *     coordinates          9 floats a triangle: x, y, z of corner 0, 1, 2, counter-clockwise seen
 *                          from outside; in the model's own unit
 *     colours              9 floats a triangle: red, green, blue of corner 0, 1, 2; 0.0 to 1.0
 *                          (a value beyond wraps); kept as bytes, so 0.5 comes back as 127/255
 *     texture coordinates  6 floats a triangle: u, v of corner 0, 1, 2; count only with labels
 *     labels               1 int32 a triangle: a group or material number, of which the low 16
 *                          bits count; -1 = none, and such a triangle has no texture coordinates
 *   The arrays lie in memory like this, without gaps, triangle 1 right behind triangle 0:
 *
 *                            triangle 0                                            triangle 1
 *                            corner 0      corner 1      corner 2                  corner 0
 *     coordinates            x   y   z     x   y   z     x   y   z                 x   y  ...
 *       byte                 0   4   8    12  16  20    24  28  32                36  40
 *     colours                r   g   b     r   g   b     r   g   b                 r   g  ...
 *       byte                 0   4   8    12  16  20    24  28  32                36  40
 *     texture coordinates    u   v         u   v         u   v                     u   v  ...
 *       byte                 0   4         8  12        16  20                    24  28
 *     labels                 label                                                 label  ...
 *       byte                 0                                                     4
 *
 *   Every count of a soup is a number of triangles. Input arrays are only read and stay the
 *   caller's. Colours, texture coordinates and labels may each be null: white, none, -1. Null
 *   coordinates count as 0 triangles. Functions that take `coordinates_in` as a float** and
 *   `count_in` as a pointer read both through the pointer and do not change them.
 *   Corners with the same coordinate bits become one vertex; there is no distance tolerance. A
 *   triangle with two equal corners is dropped. What comes out keeps the order of what went in.
 *   Coordinates that are not finite are no error; they are carried along.
 *   More than 715,827,882 triangles throw std::length_error, a lack of memory std::bad_alloc. Both
 *   pass through the function to a caller who may catch them; the arrays and counts that were
 *   still to be written are then untouched, and the next call works.
 *
 * RESULT ARRAYS
 *   The library allocates result arrays with malloc and keeps the address of each in a slot of its
 *   kind. A pointer stored for the caller is never null, also when the result has 0 triangles. An
 *   array stays valid until its free function runs: copy it, then free it before the next call of
 *   the same kind. A later call that fills the same slot overwrites the slot without freeing; the
 *   library then no longer knows the first array, which stays valid and is the caller's to free().
 *   An array that is still in its slot must not be passed to free().
 *
 *     A slot: what fills it; what frees it, beside freeAllArray.
 *     - coordinates: every result that is a soup; freeVertexArray
 *     - colours, texture coordinates, labels: the colour form, parts
 *     - part triangle counts: parts
 *     - weakness centres, normals, scores: weaknessDetect
 *     - lampshade points, contour sizes, levels: lampshadePreview
 *     - decomposition planes, boxes, volumes: decomposition...Preview;
 *       freeDecompositionPreviewArray
 *     - support columns: columnSupportAutoGenerate; freeColumnSupportPreviewArray
 *     - slicer points, polygon sizes: columnSupportToSlicerExPolygons; freeColumnSupportExPolygons
 *     - balancing preview: balancingPreviewFromData; freeBalancingPreviewArray
 *
 *   A function that returns coordinates alone leaves the slots of colours, texture coordinates and
 *   labels empty; `voxelize` those of texture coordinates and labels. An output pointer may be
 *   null when the caller does not want that value; the array lies in its slot all the same.
 *   A function that returns parts writes their soups behind one another, the number of parts, and
 *   for each part its triangle count. A part of which the volume comes out below 1.0 cubic unit
 *   (also that of an open or an inside-out one can) is left out.
 *
 * PROGRESS
 *   `progress` points at a 32-bit cell of the caller, or is null. It gets 0 on entry, then the
 *   values named at each function, in that order, each after the step before it. The writes are
 *   atomic, so another thread may poll the cell while the call runs. After the call the library
 *   writes to it no more. 5 and 48 come from the STL reader (file open, file read); they are
 *   missing when the file cannot be opened.
 *
 * ONE CALL AT A TIME
 *   The progress pointer and the slots belong to the process and are not guarded: call from one
 *   thread at a time. Some operations run parallel loops inside a call (OMP_NUM_THREADS bounds
 *   them); results are the same bits for any number of threads. Loading the library starts no
 *   thread and opens no file; locale, signal handlers, working directory and floating-point mode
 *   are left alone.
 *
 * ERRORS
 *   None are reported. A file that cannot be read gives an empty model and counts of 0, an
 *   operation that finds nothing to do an unchanged one. Paths are 8-bit strings that end in NUL;
 *   null is a path that cannot be opened. A file that is written replaces the old one only when it
 *   is complete.
 *
 * FLAWS
 *   The flaw test counts, per shell and from its highest vertex on: faces that are turned the
 *   wrong way (inverted), face corners with an open edge, faces with an edge that more than one
 *   other face holds (non-manifold), and faces with an angle below 0.05 degrees (degenerate).
 *   Functions that return its verdict return 1 when any count is above 0, else 0. Counters are
 *   preset to 0xFFFFFFFF, which stands when the test did not run; each pointer may be null.
 *
 * On Windows, define POVMESH_STATIC when linking a static library of these functions.
 */
/* clang-format on */
#ifndef POVMESH_POVMESH_H
#define POVMESH_POVMESH_H

/* The version of this header. */
#define POVMESH_VERSION_MAJOR 0
#define POVMESH_VERSION_MINOR 2
#define POVMESH_VERSION_PATCH 0
#define POVMESH_VERSION_TEXT "0.2.0"

/* This header is C as well as C++. */
#include <stdint.h> /* NOLINT(modernize-deprecated-headers) */

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

/* The names are those that hosts look up at run time. */
/* NOLINTBEGIN(readability-identifier-naming) */

/* ------------------------------------------------------------------------------------- files */

/*
 * Repairs an STL file in place: tiny shells and duplicate faces go, small holes are closed, the
 * winding is made consistent and outward. The file is rewritten as binary STL. A file that cannot
 * be read whole (it is damaged or truncated, has more records than its header counts, or numbers
 * with text behind them, such as decimal commas), that holds no triangle or of which the repair
 * leaves none stays as it was, and no file comes into being.
 */
POVMESH_API void modelRepair64(const char* path);
POVMESH_API void modelRepair(const char* path); /* the same */

/*
 * Tests a file for flaws. A path whose extension is exactly "obj" is read as OBJ, every other one
 * as STL. Returns 1 when there are flaws; 0 also for a file that cannot be read. OBJ as in
 * importFile.
 */
POVMESH_API uint64_t flawsDetect64(const char* path);
POVMESH_API uint64_t flawsDetect(const char* path); /* the same */

/*
 * Reads an STL file, reduces shells of more than 100,000 faces and returns the coordinates.
 * progress: 0, 5, 48, 57, 75, 80, 100.
 */
POVMESH_API void meshReduceFromFile64(const char* path, float** coordinates, uint32_t* count,
                                      uint32_t* progress);
POVMESH_API void meshReduceFromFile(const char* path, float** coordinates, uint32_t* count,
                                    uint32_t* progress); /* the same */

/*
 * Reads an STL file, reduces shells of more than 100,000 faces, returns the coordinates and tests
 * the result for flaws. Returns 1 when there are flaws. progress: 0, 5, 48, 57, 75, 80, 85, 100.
 */
POVMESH_API uint64_t meshPreprocessorFromFile64(const char* path, float** coordinates,
                                                uint32_t* count, uint32_t* progress);
POVMESH_API uint64_t meshPreprocessorFromFile(const char* path, float** coordinates,
                                              uint32_t* count, uint32_t* progress); /* the same */

/*
 * As meshPreprocessorFromFile64; when the low 8 bits of `save` are not 0, the result is then
 * written over the input file as binary STL, before progress 100. A file that cannot be read, is
 * damaged, truncated or holds no triangle stays as it was, and no file comes into being.
 */
POVMESH_API uint64_t meshPreprocessorFromFileSaveAs64(const char* path, float** coordinates,
                                                      uint32_t* count, uint32_t* progress,
                                                      uint32_t save);

/*
 * Reads an STL file, reduces it to the share `target` of its faces (0.05 at least; a negative one
 * leaves it as it is), returns the coordinates and tests the result for flaws. `unused` is not
 * read. Returns 1 when there are flaws. progress: 0, 5, 48, 50, 80, 85, 100.
 */
POVMESH_API uint64_t meshPreprocessorCtrlFromFile(const char* path, uint64_t unused, float target,
                                                  float** coordinates, uint32_t* count,
                                                  uint32_t* progress);

/*
 * Reads a model file. What follows the last "." of the path decides: exactly "stl" or exactly "obj"
 * (lower case, the whole extension); anything else gives an empty model. STL files give white
 * corners and labels of -1.
 *
 * An OBJ face gets the number of "usemtl" lines before it, less one, as its label if all its
 * corners have a texture coordinate, else -1; corners have the colours that follow the coordinates
 * of "v" lines, else white. Vertex numbers are taken as they stand, negative ones are not counted
 * back: a triangle that names no vertex is left out, a polygon of more corners that names no vertex
 * read so far ends the call with the C++ exception std::out_of_range ("invalid vector<T>
 * subscript").
 */
POVMESH_API void importFile(const char* path, float** coordinates, float** colours,
                            float** texture_coordinates, int32_t** labels, uint32_t* count);

/*
 * Writes a soup as an OBJ file with vertex colours, texture coordinates and numbered materials.
 * Coordinates and texture coordinates are doubles here; the layouts are the same. A negative count
 * is 0 triangles. Five decimals; corners that agree in six weld. The file is replaced only by a
 * complete one; a path that cannot be written stays as it was.
 */
POVMESH_API void saveasObjFromDataDoublePrecision(const char* path, const double* coordinates_in,
                                                  const float* colours_in,
                                                  const double* texture_coordinates_in,
                                                  const int32_t* labels_in, int32_t count_in);

/* ----------------------------------------------------------------------------- geometry only */

/*
 * Repairs a model: tiny shells and duplicate faces go, small holes are closed, the winding is made
 * consistent and outward, of cavities too. progress: 0, 30, 70, 100.
 *
 * A shell goes when its volume and its area are below 1 (model units). Of faces with the same three
 * vertices the first stays, in models of fewer than 300,000 faces. Holes of 3 to 50 edges are
 * closed unless a face has a label of 0 or more. A shell of which between 1.5 % and 99 % of the
 * faces would have to be turned stays as it is. Input positions keep their bits.
 */
POVMESH_API void modelRepairFromData64(float** coordinates_in, uint32_t* count_in,
                                       float** coordinates, uint32_t* count, uint32_t* progress);
POVMESH_API void modelRepairFromData(float** coordinates_in, uint32_t* count_in,
                                     float** coordinates, uint32_t* count,
                                     uint32_t* progress); /* the same */

/*
 * Reduces shells of more than 100,000 faces, returns the coordinates and tests the result for
 * flaws. Returns 1 when there are flaws. progress: 0, 50, 57, 75, 80, 85, 100.
 */
POVMESH_API uint64_t meshPreprocessorFromData(float** coordinates_in, uint32_t* count_in,
                                              float** coordinates, uint32_t* count,
                                              uint32_t* progress);

/*
 * Reduces every shell to the share `target` of its faces, 0.05 at least. A target below -0.5
 * reduces shells of more than 100,000 faces only, and one that is not a number changes nothing.
 * Open rims stay as they are.
 */
POVMESH_API void meshReduceFromData(float target, float** coordinates_in, uint32_t* count_in,
                                    float** coordinates, uint32_t* count);

/*
 * Smooths and refines by `levels` levels of Loop subdivision. A level splits the edges that are
 * longer than the mean (0.8 of it where lengths vary by more than 35 %), and moves every vertex
 * that is not on an open border. 0 levels, or more than 5, return the built model.
 */
POVMESH_API void subdivisionFromData(uint32_t levels, float** coordinates_in, uint32_t* count_in,
                                     float** coordinates, uint32_t* count);

/*
 * Mends triangles of bad shape and leaves the others alone: needles, whose one edge is under 1/20
 * of the others, are collapsed; caps, which have an angle above 170 degrees, are turned or split
 * away. The surface moves by at most 1/1000 of the diagonal of its bounding box; a closed model
 * stays closed. What can only be mended by more than that stays.
 */
POVMESH_API void reviseTriangleFromData(float** coordinates_in, uint32_t* count_in,
                                        float** coordinates, uint32_t* count);

/*
 * Remeshes to given edge lengths, in model units: 1 value is the target everywhere, one value per
 * input triangle is a sizing field. Any other `edge_length_count` returns the built model. The
 * lengths are only read, through the two pointers. Sharp edges (beyond 40 degrees) and open borders
 * stay. A length that would make more than 10 million triangles is raised until it does not.
 */
POVMESH_API void remeshFromData64(float** coordinates_in, uint32_t* count_in, float** coordinates,
                                  uint32_t* count, float** edge_lengths,
                                  uint32_t* edge_length_count);

/*
 * Finds the directions in which a model is best printed. `orientations` is the caller's own array
 * of 4 x `capacity` floats. A row holds the direction of the model that is to point upward (x, y,
 * z, of length 1) and its score, above 0 and at most 1: 1 needs no support, stands firmly and is
 * flat. Rows are sorted, best first, and differ by 5 degrees or more; there are 64 at most, the
 * first of them the same for every capacity, and those not needed are filled with 0. A null array,
 * or a capacity of 0 or less, gets nothing.
 *
 * Open models work; one that is inside out as a whole is taken as turned over. Triangles without
 * area, or with a coordinate that is not finite, take no part; where no other is, all rows are 0.
 * The result depends neither on the unit nor on the place of the model.
 */
POVMESH_API void orientationOptimization(const float* coordinates_in, uint32_t count_in,
                                         float* orientations, int32_t capacity);

/*
 * Returns the surface of the cavity that leaves a wall of `thickness` model units, closed and wound
 * outward; no triangle when there is nothing to hollow. The wall is right within about 1.4 voxels,
 * whose edges are 0.4 to 2 model units; larger where the model's box would hold more than 2^28 of
 * them. The cavity crosses neither itself nor the model, and slits and holes narrower than a voxel
 * get a wall too; it is nowhere thinner than the thickness less two voxels. The model should be
 * closed; small holes are closed on the way. A thickness below 0.5 peels nothing off: the result is
 * then the model's own voxels.
 * progress: 0, 10, 10, 30, 40, 50, 60, 70, 80, 85, 90, 100, without 70 to 85 when nothing can be
 * hollowed.
 */
POVMESH_API void hollowFromData(float thickness, const float* coordinates_in, uint32_t count_in,
                                float** coordinates, uint32_t* count, uint32_t* progress);

/*
 * Returns closed cells that take material out of a model, each wound outward: they lie inside of
 * it, at least `surface_thickness` model units less 1.5 voxels below its surface, with walls of
 * about two voxels between them. Voxels have edges of 0.25 to 1 model units, larger ones where the
 * model's box would hold more than 2^30 of them. Cells are about 38 of them wide, 29 from a density
 * of 0.4 on. They are taken by their volume per surface, the largest first, until the surface of
 * all that were taken, divided by their volume, exceeds `infill_density` (1 / model units), but
 * four at least. A density of 0 returns the built model; below 0.05 it counts as 0.05. No triangle
 * when nothing lies below the skin or there are fewer than four cells. The model should be closed;
 * small holes are closed on the way.
 * progress: 0, 10, 10, 30, 40, 50, 55, 60, 70, 90, 100; without 50 to 70 when nothing lies below
 * the skin, and without what lies between 10 and 90 at a density of 0.
 */
POVMESH_API void cellularInfillFromData(float surface_thickness, float infill_density,
                                        const float* coordinates_in, uint32_t count_in,
                                        float** coordinates, uint32_t* count, uint32_t* progress);

/*
 * Carves a model from the inside so that it stands, with a wall of `thickness` model units: returns
 * the built model's triangles, first and in their order, and after them those of the cavities,
 * wound inward, closed and without crossings. Where nothing is carved it returns the built model
 * alone; `balancingPreviewFromData` tells why, and what the rules are. A thickness below 0.5 counts
 * as 0.5; with one that is not above 0, or not a number, nothing is carved. The wall is as that of
 * `hollowFromData`, and so are the voxels. The model should be closed and without overlapping
 * bodies, which weigh twice where they overlap.
 * progress: 0, 10, 30, 60, 70, 80, 85, 90, 100; without 70 to 85 when nothing is carved, and
 * without 30 and 60 when the model stands firmly or there is none.
 */
POVMESH_API void balancingFromData(float thickness, const float* coordinates_in, uint32_t count_in,
                                   float** coordinates, uint32_t* count, uint32_t* progress);

/*
 * Turns a model into the surface of its voxels, cubes of `voxel_size` model units: of all that face
 * the outside of the model, two triangles for each exposed square. Returns coordinates and colours;
 * a voxel has the colour of the last triangle that passes through it. `colours_in` may be null.
 * A size that is not above 0, or not finite, gives no triangle; one that needs more than 792 voxels
 * along x or y, or 2^30 cells in all, is raised to what fits.
 */
POVMESH_API void voxelize(float voxel_size, const float* coordinates_in, const float* colours_in,
                          uint32_t count_in, float** coordinates, float** colours, uint32_t* count);

/*
 * Finds weak cross-sections, the weakest first. Per section: the centre of its area (3 floats,
 * model units), the unit normal of its plane (3 floats) and a score (1 float): 100 for the weakest,
 * 50 for one that would stand twice the load, down to 0. A model of 20,000 triangles or more is
 * reduced where that keeps its shape, then each shell is cut by planes across the three axes, a
 * hundredth of the mean of the model's extents apart. The bending strength of each connected part
 * of a section is divided by what hangs on it: the volume of the smaller body that a cut there
 * would take off, times the distance of its centroid. The low 8 bits of `option` choose: 0 returns
 * all sections, their normals x, y or z; any other value only weak places, necks and roots of arms,
 * their planes turned to the limb. A plain box, ball or cone has none; the three arrays are then
 * empty.
 */
POVMESH_API void weaknessDetect(const float* coordinates_in, uint32_t count_in, float** centres,
                                float** normals, float** scores, uint32_t* section_count,
                                uint64_t option);

/* ------------------------------------------------------------------------------- colour form */

/*
 * modelRepairFromData64 with colours, texture coordinates and labels. New faces have the label -1
 * and the mean colour of their surroundings. progress: 0, 30, 70, 100.
 */
POVMESH_API void modelRepairFromColorData(const float* coordinates_in, const float* colours_in,
                                          const float* texture_coordinates_in,
                                          const int32_t* labels_in, uint32_t count_in,
                                          float** coordinates, float** colours,
                                          float** texture_coordinates, int32_t** labels,
                                          uint32_t* count, uint32_t* progress);

/*
 * The same; when `detect` is not 0, the result is tested for flaws and the counters are filled,
 * else they are set to 0xFFFFFFFF. progress: 0, 30, 70, 80, 100.
 */
POVMESH_API void modelRepairFromColorDataWithPostDetection(
    const float* coordinates_in, const float* colours_in, const float* texture_coordinates_in,
    const int32_t* labels_in, uint32_t count_in, float** coordinates, float** colours,
    float** texture_coordinates, int32_t** labels, uint32_t* count, uint8_t detect,
    uint32_t* inverted, uint32_t* open_edges, uint32_t* non_manifold, uint32_t* degenerate,
    uint32_t* progress);

/*
 * meshReduceFromData with colours, texture coordinates and labels; seams between them stay where
 * they are. progress: 0, 50, 90, 100.
 */
POVMESH_API void meshReduceFromColorData(float target, const float* coordinates_in,
                                         const float* colours_in,
                                         const float* texture_coordinates_in,
                                         const int32_t* labels_in, uint32_t count_in,
                                         float** coordinates, float** colours,
                                         float** texture_coordinates, int32_t** labels,
                                         uint32_t* count, uint32_t* progress);

/*
 * subdivisionFromData with colours, texture coordinates and labels. When colours, or texture
 * coordinates with labels, are given, a level splits every edge: four triangles of each. New
 * corners get the mean colour and texture coordinates of their edge.
 */
POVMESH_API void subdivisionFromColorData(uint32_t levels, const float* coordinates_in,
                                          const float* colours_in,
                                          const float* texture_coordinates_in,
                                          const int32_t* labels_in, uint32_t count_in,
                                          float** coordinates, float** colours,
                                          float** texture_coordinates, int32_t** labels,
                                          uint32_t* count);

/*
 * Turns a model into a lampshade with a wall of `thickness` model units: hollow inside, open below,
 * and above where it ends flat; what has no flat base is cut off where it gets wide inside. The
 * outside keeps its faces; inner wall and rims have the label -1. Each model (shells that meet,
 * with their cavities) becomes a shade by itself. Returns the built model unchanged when it is too
 * thin, encloses no volume or has a coordinate that is not finite, or the thickness is not above 0.
 * progress: 0, 10, 90, 100.
 */
POVMESH_API void lampshadeFromData(float thickness, const float* coordinates_in,
                                   const float* colours_in, const float* texture_coordinates_in,
                                   const int32_t* labels_in, uint32_t count_in, float** coordinates,
                                   float** colours, float** texture_coordinates, int32_t** labels,
                                   uint32_t* count, uint32_t* progress);

/*
 * Reduces shells of more than 100,000 faces, returns the result and tests it for flaws. Returns 1
 * when there are flaws. progress: 0, 57, 75, 80, 100.
 */
POVMESH_API uint64_t errorDetectAfterMeshReduceFromColorData(
    const float* coordinates_in, const float* colours_in, const float* texture_coordinates_in,
    const int32_t* labels_in, uint32_t count_in, float** coordinates, float** colours,
    float** texture_coordinates, int32_t** labels, uint32_t* count, uint32_t* inverted,
    uint32_t* open_edges, uint32_t* non_manifold, uint32_t* degenerate, uint32_t* progress);

/* Tests a soup for flaws and fills the counters. Returns 1 when there are flaws. */
POVMESH_API uint64_t errorDetectFromData(const float* coordinates_in, const float* colours_in,
                                         const float* texture_coordinates_in,
                                         const int32_t* labels_in, uint32_t count_in,
                                         uint32_t* inverted, uint32_t* open_edges,
                                         uint32_t* non_manifold, uint32_t* degenerate);

/*
 * Remeshes to edges of `edge_length` model units; 0, a negative length or one that is not a number
 * returns the built model. Sharp edges (beyond 40 degrees), borders of labels and of texture maps,
 * and open borders stay; colours, labels and texture coordinates are those of the nearest point.
 */
POVMESH_API void uniformRemeshFromColorData(float edge_length, const float* coordinates_in,
                                            const float* colours_in,
                                            const float* texture_coordinates_in,
                                            const int32_t* labels_in, uint32_t count_in,
                                            float** coordinates, float** colours,
                                            float** texture_coordinates, int32_t** labels,
                                            uint32_t* count);

/*
 * Divides a model into its separate bodies; shells that touch or intersect stay together. Two
 * things keep shells apart all the same: of a shell of 10,000 faces or more only about ten
 * thousand, evenly picked, are looked at, so that a contact between others is missed; and shells
 * whose boxes only border on each other, as two cubes side by side, are not compared. Returns
 * parts, but for those of a volume below 1 (an open or inside-out one has none). A shell inside
 * another one that does not touch it is a body of its own. progress: 0, 10, 80, 100.
 */
POVMESH_API void separateShellsFromData(const float* coordinates_in, const float* colours_in,
                                        const float* texture_coordinates_in,
                                        const int32_t* labels_in, uint32_t count_in,
                                        float** coordinates, float** colours,
                                        float** texture_coordinates, int32_t** labels,
                                        uint32_t** part_triangles, uint32_t* part_count,
                                        uint32_t* progress);

/* ------------------------------------------------ cutting, decomposition, analysis, supports */

/*
 * Cuts a model with a plane. `normal`, `direction` (a second direction, in the plane) and `point`
 * (a point of the plane, model units) are three floats each and only read. Each body of the model
 * (see `separateShellsFromData`) is worked on by itself. `operation`:
 *   1  cut; the openings stay
 *   2  cut and close the openings with caps, so that the pieces of a closed body are closed
 *   3  keep the side that the normal points to, and add its mirror image; faces in the plane go
 *   4  the same with the other side
 * Any other leaves the model as it is, and so does a plane of which a pointer is null, or a vector
 * zero or not finite; a body that the plane misses stays as it is. The cut runs 0.1 model units
 * beside the plane, away from where the normal points; a vertex closer to it than 1e-5 of the
 * body's extent counts as lying on it.
 *
 * Pegs, with operation 2: `connector_count` of them for each body that is cut, of
 * `connector_radius` model units with `connector_segments` sides (3 to 512), as far as they fit.
 * They stand on the first piece, twice as long as their radius where there is room; the sockets in
 * the other are larger by 0.2 all around and at the end. None when count or radius is 0. `reserved`
 * and `parameter` are not read.
 *
 * Returns parts, in the order of the bodies: first the pieces on the side that the normal points
 * away from, then the others. A piece without caps may be left out for its volume (see the head),
 * and so may one of a cavity, which is a body by itself here. Corners on the cut get colours and
 * texture coordinates in proportion; caps have the label -1 and the mean colour along the cut.
 */
POVMESH_API void cutFromData(const float* normal, const float* direction, const float* point,
                             float connector_radius, uint32_t connector_segments,
                             uint32_t connector_count, uint64_t reserved, uint32_t operation,
                             uint32_t parameter, const float* coordinates_in,
                             const float* colours_in, const float* texture_coordinates_in,
                             const int32_t* labels_in, uint32_t count_in, float** coordinates,
                             float** colours, float** texture_coordinates, int32_t** labels,
                             uint32_t** part_triangles, uint32_t* part_count);

/* The same, with progress: 0, 10, 90, 100. */
POVMESH_API void planeCutFromData(const float* normal, const float* direction, const float* point,
                                  float connector_radius, uint32_t connector_segments,
                                  uint32_t connector_count, uint64_t reserved, uint32_t operation,
                                  uint32_t parameter, const float* coordinates_in,
                                  const float* colours_in, const float* texture_coordinates_in,
                                  const int32_t* labels_in, uint32_t count_in, float** coordinates,
                                  float** colours, float** texture_coordinates, int32_t** labels,
                                  uint32_t** part_triangles, uint32_t* part_count,
                                  uint32_t* progress);

/*
 * Shows how a model would be divided into parts that fit a printer of size_x by size_y by size_z
 * model units. Per plane 4 floats (unit normal, offset: n . x = offset), per part 6 floats (minimum
 * and maximum corner of its box) and its volume. progress: 0 only. What comes out are the planes
 * and parts of decomposition...FromData, in the same order.
 *
 * An axis whose size is not a number, infinite, 0 or negative is not limited. A part fits when its
 * extents are at most the sizes times 1.00005; parts are not turned. Each body of the model is
 * divided by itself (see `separateShellsFromData`; here a cavity belongs to the body around it, and
 * all faces of a shell are looked at). One that fits stays as it is, and so does one with a
 * coordinate that is not finite, or that would take more than 32,768 slab cells.
 *
 * Uniform: equal slabs, as many along each axis as it takes; planes across z from below, then y,
 * then x, each through the pieces of its body that do not fit yet; planes that divide none are not
 * listed. Auto: as few parts as a search finds, and never more than Uniform. Its planes alone tell
 * the parts: walk through the pieces, bodies first; one that fits is the next part, any other is
 * divided by the next plane, and its pieces are walked through in their order. A piece that no
 * plane divides, as of an open model, stays as it is even if it does not fit.
 */
POVMESH_API void decompositionUniformPreview(float size_x, float size_y, float size_z,
                                             const float* coordinates_in, uint32_t count_in,
                                             float** planes, uint32_t* plane_count, float** boxes,
                                             float** volumes, uint32_t* part_count,
                                             uint32_t* progress);
POVMESH_API void decompositionAutoPreview(float size_x, float size_y, float size_z,
                                          const float* coordinates_in, uint32_t count_in,
                                          float** planes, uint32_t* plane_count, float** boxes,
                                          float** volumes, uint32_t* part_count,
                                          uint32_t* progress);

/*
 * Divides a model as the previews show it. Returns parts, of bodies in their order, the pieces of
 * lower coordinates first; cuts are closed with caps (label -1, the mean colour along the cut), so
 * that the parts of a closed body are closed, and what a cut disconnects are parts of their own.
 * Parts of a volume below 1 are left out (an open or inside-out one has none). progress: 0, 10, 90,
 * 100.
 */
POVMESH_API void decompositionUniformFromData(
    float size_x, float size_y, float size_z, const float* coordinates_in, const float* colours_in,
    const float* texture_coordinates_in, const int32_t* labels_in, uint32_t count_in,
    float** coordinates, float** colours, float** texture_coordinates, int32_t** labels,
    uint32_t** part_triangles, uint32_t* part_count, uint32_t* progress);
POVMESH_API void decompositionAutoFromData(
    float size_x, float size_y, float size_z, const float* coordinates_in, const float* colours_in,
    const float* texture_coordinates_in, const int32_t* labels_in, uint32_t count_in,
    float** coordinates, float** colours, float** texture_coordinates, int32_t** labels,
    uint32_t** part_triangles, uint32_t* part_count, uint32_t* progress);

/*
 * Shows the inner wall of a lampshade with a wall of `thickness` model units, as closed contours
 * with the inside on their left: at the opening, at 64 levels up to the top, and at an open top,
 * model after model. 3 floats a point, and per contour its number of points and its level. Returns
 * 0, or 1 and no contour where lampshadeFromData would return the model unchanged.
 */
POVMESH_API uint64_t lampshadePreview(float thickness, const float* coordinates_in,
                                      uint32_t count_in, float** points, uint32_t** contour_sizes,
                                      float** levels, uint32_t* contour_count);

/*
 * Tells what balancing with a wall of `thickness` model units does. The model stands on its lowest
 * point; its base is the convex outline of all that lies within 1/1000 of the diagonal of its box
 * above. It can be tilted by the angle whose tangent is the distance of its centre of mass from the
 * border of the base, seen from above and negative outside, divided by the height of that centre.
 * Returns
 *     0  it is carved, stands better than before and withstands 1 degree at least;
 *     1  there is no model: no triangle with an area, or no volume above 1e-9 of the diagonal^3;
 *     2  nothing is carved: it withstands 10 degrees or more as it is, or 1 degree and there is
 *        nothing to gain;
 *     3  nothing is carved: it falls, and carving with this thickness cannot make it stand.
 * and points of 3 floats each, none for 1: the centre of mass before; that after (for 2 the same,
 * for 3 the best that carving reaches); the point of the border of the base nearest to the first,
 * at the height of the plate, over which the model would fall; the same for the second; and the
 * corners of the base at that height, counter-clockwise seen from above, the lowest x (then y)
 * first.
 */
POVMESH_API uint64_t balancingPreviewFromData(float thickness, const float* coordinates_in,
                                              uint32_t count_in, float** preview,
                                              uint32_t* point_count);

/*
 * Colours a model from blue (strong) to red (weak), on a scale of its own from its strongest to its
 * weakest place. `method`: 0 near thin cross-sections, 1 by finite elements, the energy of the
 * strain under a load; any other colours all of it blue. `load`, for method 1: 0 pressure on the
 * top faces, 1 pressure on all faces, any other a force on the centre of the top. The lowest layer,
 * which the model stands on, is held. The triangles come back even, with edges of about a hundredth
 * of the mean of the model's extents, whatever they were; a model of more than 200,000 is reduced
 * to a tenth before. Texture coordinates and labels stay. Elements have an edge of two hundredths.
 * progress: 0, 30, 70, 100.
 */
POVMESH_API void strengthColoringFromData(uint32_t method, uint32_t load,
                                          const float* coordinates_in, const float* colours_in,
                                          const float* texture_coordinates_in,
                                          const int32_t* labels_in, uint32_t count_in,
                                          float** coordinates, float** colours,
                                          float** texture_coordinates, int32_t** labels,
                                          uint32_t* count, uint32_t* progress);

/*
 * Finds vertical support columns, `spacing` model units apart along x and y, below overhangs:
 * surfaces that lean out from upright by more than `angle` degrees (45 is usual; 90 takes level
 * ones only). Per column 6 floats: the point on its axis about 2 units within the overhang, then
 * the point below it on the build plate (z = 0) or about 2 units within the model. Columns have a
 * square cross-section whose corners lie on the diagonals, spacing / 2 - 0.2 from the axis, and
 * between their ends do not pass through the model; overhangs less than 4 to 7 units above what is
 * below, and those narrower than 0.4 of the spacing that do not begin in mid-air, get none. What
 * begins in mid-air between two rows gets a column beside it. A spacing for which more than 792
 * would stand along x or y is raised. A spacing that is 0.4 or less or not finite, or an angle that
 * is not a number, finds no column; nor does a model whose voxels, spacing x spacing x 1 units
 * each, would take more than a gigabyte. When no column is found, `columns` and `column_count` are
 * left as they were: preset the count to 0.
 */
POVMESH_API void columnSupportAutoGenerate(const float* coordinates_in, uint32_t count_in,
                                           float spacing, float angle, float** columns,
                                           int32_t* column_count);

/*
 * Turns support columns into polygons per layer of `layer_height` model units: 3 floats a point,
 * the number of all points, and per polygon its number of points. `columns` is only read; it has 6
 * floats a column as columnSupportAutoGenerate makes them, and `spacing` is what it was given.
 * Columns that are not finite are left out; null or a negative count means none. Layers begin at z
 * = 0. A layer has the cross-sections of the columns at its middle, which is the z of its points,
 * without the outline of the model there grown by 0.2. Polygons are closed, the last point joining
 * the first: outer ones counterclockwise seen from above, holes clockwise behind the polygon that
 * they are in. The two arrays are empty when there is no polygon: also for a layer height that is
 * not above 0 or not finite, more than a million layers or 67 million points, or a spacing of 0.4
 * or less or more than 10,000.
 */
POVMESH_API void columnSupportToSlicerExPolygons(const float* coordinates_in, uint32_t count_in,
                                                 const float* columns, int32_t column_count,
                                                 float spacing, float layer_height, float** points,
                                                 uint32_t* point_count, uint32_t** polygon_sizes,
                                                 uint32_t* polygon_count);

/* ---------------------------------------------------------------------------- free functions */

/*
 * Each frees the arrays in its slots (see RESULT ARRAYS) and empties the slots; calling one again
 * does nothing.
 */
POVMESH_API void freeVertexArray(void);               /* coordinates */
POVMESH_API void freeAllArray(void);                  /* everything */
POVMESH_API void freeDecompositionPreviewArray(void); /* planes, boxes, volumes */
POVMESH_API void freeBalancingPreviewArray(void);     /* balancing preview */
POVMESH_API void freeColumnSupportPreviewArray(void); /* support columns */
POVMESH_API void freeColumnSupportExPolygons(void);   /* slicer points, polygon sizes */

/* NOLINTEND(readability-identifier-naming) */

#ifdef __cplusplus
}
#endif

#endif /* POVMESH_POVMESH_H */
