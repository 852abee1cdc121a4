#include "job/cut.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "base/poll.h"
#include "job/cavity.h"
#include "job/findings.h"
#include "job/measures.h"
#include "job/numbers.h"
#include "mesh/bounds.h"
#include "mesh/edge_mates.h"
#include "mesh/shells.h"
#include "repair/degenerate.h"
#include "spatial/self_intersection.h"

namespace povmesh::job {
namespace {

// Sides of a peg: from this many on a printer's resolution hides them.
constexpr std::uint32_t kPegSegments = 48;

// True when each edge is held by an even number of faces, so that the faces enclose something.
bool encloses(TriMesh& mesh) {
    const EdgeMates mates(mesh);
    for (std::size_t group = 0; group < mates.group_count(); ++group) {
        if (mates.group(group).size() % 2 != 0) return false;
    }
    return is_closed(mesh);
}

CutOptions options_of(const CutJob& job, const TriMesh& mesh) {
    CutOptions options;
    options.operation = job.mirror  ? CutOperation::MirrorFront
                        : !job.caps ? CutOperation::Cut
                                    : CutOperation::CutAndCap;
    options.plane.normal = job.normal;
    // Any direction in the plane will do; that of x, or of y, lets pegs start along an axis.
    const Vec3d& n = options.plane.normal;
    options.plane.direction = n.y == 0 && n.z == 0 ? Vec3d{0, 1, 0} : Vec3d{1, 0, 0};
    if (job.point) {
        options.plane.point = *job.point;
    } else if (const Box3f box = finite_bounds(mesh); !box.is_empty()) {
        options.plane.point = to_double(box.low) * 0.5 + to_double(box.high) * 0.5;
    }
    options.connectors.count = job.pegs;
    options.connectors.radius = job.peg_radius;
    options.connectors.segments = kPegSegments;
    options.keep_cavities = true;
    return options;
}

// The other end of a needle may lie anywhere.
Vec3f nearest_corner(const TriMesh& mesh, const Face& face, const PlaneFrame& frame) {
    const std::array<Vec3f, 3> corners = {mesh.corner_position(face, 0),
                                          mesh.corner_position(face, 1),
                                          mesh.corner_position(face, 2)};
    return *std::min_element(corners.begin(), corners.end(), [&](Vec3f a, Vec3f b) {
        return std::abs(frame.distance(to_double(a))) < std::abs(frame.distance(to_double(b)));
    });
}

// Faces that a cut makes all come nearer to the plane than vertices count as lying on it, or than
// coordinates are rounded.
Blemishes blemishes_at(const TriMesh& mesh, const PlaneFrame& frame) {
    const Box3f box = finite_bounds(mesh);
    if (box.is_empty()) return {};
    const Vec3d far = to_double(box.extent());
    const double reach = 4e-5 * std::max({far.x, far.y, far.z}) +
                         1e-6 * std::max(length(to_double(box.low)), length(to_double(box.high)));
    TriMesh near;
    Blemishes found;
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        double low = std::numeric_limits<double>::infinity();
        double high = -low;
        for (std::size_t i = 0; i < 3; ++i) {
            const double distance = frame.distance(to_double(mesh.corner_position(face, i)));
            low = std::min(low, distance);
            high = std::max(high, distance);
        }
        if (!(low <= reach && high >= -reach)) continue;
        near.faces.push_back(face);
        // Those that were there before have no corner on the plane, or count before, too.
        const bool has_corner = std::abs(low) <= reach || std::abs(high) <= reach;
        if (!has_corner || !is_degenerate(mesh, face)) continue;
        if (found.needles++ == 0) found.needle = nearest_corner(mesh, face, frame);
    }
    near.vertices = mesh.vertices;
    const SelfIntersections crossings = find_self_intersections(near, 1);
    found.crossings = crossings.count;
    if (!crossings.pairs.empty()) {
        found.crossing = near.corner_position(near.faces[crossings.pairs[0].first], 0);
    }
    return found;
}

void look_at_cut(const Blemishes& before, const std::vector<TriMesh>& parts,
                 const PlaneFrame& frame, CutDone& done) {
    std::size_t needles = 0;
    Vec3f place;
    for (const TriMesh& part : parts) {
        const Blemishes after = blemishes_at(part, frame);
        if (needles == 0) place = after.needle;
        needles += after.needles;
        if (before.crossings == 0) done.crossed.push_back(after);
    }
    if (needles <= before.needles) return;
    done.warnings.push_back(counted(needles - before.needles, "triangle") +
                            " along the cut are needles, the first " + place_text(place) +
                            "; 'povmesh revise' mends them");
}

}  // namespace

Status cut(TriMesh& mesh, const CutJob& job, Progress progress, CutDone& done) {
    const CutOptions options = options_of(job, mesh);
    done.must_be_closed = encloses(mesh) && options.operation != CutOperation::Cut;
    if (!done.must_be_closed && options.operation == CutOperation::CutAndCap) {
        done.warnings.emplace_back(kOpenCut);
    }
    warn_of_windings(mesh, done);
    const std::optional<PlaneFrame> frame = PlaneFrame::make(options.plane);
    const Blemishes before = frame ? blemishes_at(mesh, *frame) : Blemishes{};
    RunLog log;
    RunContext run{progress, log};
    done.counts = cut_models(mesh, options, run);
    if (done.counts.divided == 0) {
        return {StatusCode::Nothing, std::string("the plane misses ") +
                                         (done.counts.models > 1 ? "all models" : "the model") +
                                         "; nothing is written"};
    }
    const std::size_t pegs = done.counts.divided * options.connectors.count;
    if (options.operation == CutOperation::CutAndCap && done.counts.connectors < pegs) {
        done.warnings.push_back("only " + with_separators(done.counts.connectors) + " of " +
                                counted(pegs, "peg") + " found room; try a smaller --peg-radius");
    }
    if (frame) look_at_cut(before, mesh.parts, *frame, done);
    for (TriMesh& part : mesh.parts) {
        label_shells(part);
        done.pieces.push_back(measure_piece(part, part.shells.size()));
    }
    return {};
}

std::string open_text(const std::string& source) {
    return "is not closed although " + source + " is; please report this model";
}

std::string crossing_text(const Blemishes& blemishes, const std::string& source) {
    return counted(blemishes.crossings, "pair") + " of triangles at the cut cross, the first " +
           place_text(blemishes.crossing) + ", where those of " + source +
           " do not: shells of one winding that lie inside one another are closed each by itself; "
           "'povmesh wrap' joins them first";
}

}  // namespace povmesh::job
