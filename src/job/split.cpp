#include "job/split.h"

#include <algorithm>
#include <cmath>

#include "job/measures.h"
#include "job/numbers.h"
#include "mesh/bounds.h"
#include "mesh/shells.h"
#include "mesh/volume.h"
#include "spatial/separation.h"

namespace povmesh::job {

PieceMeasures measure_piece(TriMesh& mesh, std::size_t shells) {
    PieceMeasures piece;
    piece.triangles = mesh.faces.size();
    piece.shells = shells;
    piece.volume = signed_volume(mesh);
    piece.box = finite_bounds(mesh);
    piece.is_closed = is_closed(mesh);
    return piece;
}

Status split(TriMesh& mesh, const SplitJob& options, Progress progress, SplitDone& done) {
    label_shells(mesh);
    const ShellGroups bodies = group_shells(mesh, {.keep_cavities = true, .all_faces = true});
    progress.set(60);
    build_parts(mesh, bodies);
    for (std::size_t i = 0; i < bodies.size(); ++i) {
        const PieceMeasures piece = measure_piece(mesh.parts[i], bodies[i].size());
        const double volume = std::abs(piece.volume);
        const bool is_small = volume < options.min_volume;
        if (is_small) ++done.left_out;
        if (volume > done.largest) done.largest = volume;
        done.pieces.push_back(piece);
        done.is_left_out.push_back(is_small);
    }
    if (done.left_out < done.pieces.size()) return {};
    return {StatusCode::Nothing, "no model has the volume asked for; the largest has " +
                                     human_number(done.largest) + "; nothing is written"};
}

}  // namespace povmesh::job
