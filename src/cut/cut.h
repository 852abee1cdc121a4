// Divides models with a plane, or makes them symmetric to it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "cut/plane_frame.h"
#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"
#include "run/run_context.h"

namespace povmesh {

enum class CutOperation : std::uint8_t {
    None,         // leaves the models as they are
    Cut,          // divides them, openings stay
    CutAndCap,    // divides them and closes the openings
    MirrorFront,  // keeps the front, where the normal points, and adds its mirror image
    MirrorBack,   // the same with the back
};

/// The points p with dot(normal, p) = distance; the normal is of unit length.
struct LaterPlane {
    Vec3d normal;
    double distance = 0;
};

/// Round pegs on the back of a cut with caps, which point along the normal, and sockets for them in
/// the front.
struct ConnectorOptions {
    double radius = 0;           // of a peg, model units; above 0, or none are made
    std::uint32_t count = 0;     // pegs wanted for a model; as many are made as find room
    std::uint32_t segments = 0;  // sides of a peg; less than 3 count as 3, more than 512 as 512
    // A peg is not longer, model units; where it would have to be shorter than its radius, none is
    // made.
    double longest = std::numeric_limits<double>::infinity();
    // Planes that will divide the pieces later: pegs and sockets stay clear of them, and each part
    // of the cut that they divide it into gets `count` pegs.
    std::span<const LaterPlane> later = {};
};

struct CutOptions {
    CutOperation operation = CutOperation::None;
    CutPlane plane;
    ConnectorOptions connectors;
    // A cavity, a closed shell inside an odd number of other closed shells, is cut together with
    // the body around it. Otherwise every shell that meets no other one is a model by itself.
    bool keep_cavities = false;
    // A vertex nearer to the plane than this counts as lying on it, if that is less than 1e-5 of
    // the model's largest extent; model units.
    double on_level = std::numeric_limits<double>::infinity();
};

/// What became of the models.
struct CutCounts {
    std::size_t models = 0;       // before
    std::size_t shells = 0;       // of the models cut one by one
    std::size_t divided = 0;      // models that lay on both sides of the plane, or were mirrored
    std::size_t connectors = 0;   // pairs of peg and socket made
    double connector_volume = 0;  // of the pegs, less that of the sockets; cubic model units
};

/// A socket is larger than its peg by this much all around and at its end, model units.
constexpr double kConnectorClearance = 0.2;

/// Separates the mesh into its models, applies the operation to each and puts the pieces into
/// `mesh.parts`, in the order of the models. The mesh itself is left empty.
///
/// The pieces of a divided model are those at the back of the plane, then those in front, each in
/// the order of their shells; shells that meet stay together. With caps, the pieces of a closed
/// model are closed again, as manifold as it was, and their volumes add up to its volume. Vertices
/// keep their bits; corners on a cut get colours and texture coordinates in proportion; cap faces
/// have the label -1 and the mean colour of the cut. Of an open model, openings that do not close
/// into loops stay.
///
/// A model that the plane misses or only touches, or of which rounding would leave nothing on a
/// side, stays one part with the same faces, and so does
/// every model when the plane has no normal, no direction or no place. Mirroring gives one part; it
/// drops the faces that lie on the plane and joins the two halves there.
///
/// Time: linear in the faces, n log n in those at the plane, and that of a separation. The same
/// bits for any number of threads.
CutCounts cut_models(TriMesh& mesh, const CutOptions& options, RunContext& run);

/// Divides one model, whatever shells it has, as `cut_models` does, and appends its pieces. Returns
/// false when the model stays as it is; otherwise it is left empty. Nothing is logged.
bool cut_model(TriMesh& model, const CutOptions& options, std::vector<TriMesh>& pieces);

/// The same, but the model keeps its faces: its uses and shells are not there afterwards. Adds to
/// the counts.
///
/// Memory: at the peak the pieces and a tenth of the model, beside the model itself.
///
/// @param mates  of the model, if they are at hand
bool cut_from_model(TriMesh& model, const CutOptions& options, std::vector<TriMesh>& pieces,
                    CutCounts& counts, std::optional<EdgeMates> mates = {});

}  // namespace povmesh
