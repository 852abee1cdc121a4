// A shell's faces are made to agree by a breadth-first search over the dual graph, whose nodes are
// the faces and whose arcs are the manifold edges: a face that runs along the common edge in the
// same direction as the one it is reached from is turned. Which side is out is settled at the seed:
// at a highest vertex the surface has air above it, so the faces around it must look up on the
// whole.
//
// The steps, their order and their thresholds are fixed: hosts compare the counts.
#include "repair/shell_walk.h"

#include <algorithm>
#include <utility>

#include "base/poll.h"
#include "repair/degenerate.h"

namespace povmesh {
namespace {

// A normal looks up when its z is at least this; normals are cross products, not of unit length.
constexpr double kLooksUp = -0.0001;

constexpr float kNoTop = -1000000.0F;  // a shell that lies wholly below has no top

// Where edge i of a face that stands turned lies in the face as stored: corners 0 and 1 have
// changed places, and with them the edges 1 and 2.
constexpr std::array<std::size_t, 3> kTurnedEdge = {0, 2, 1};

bool repeats_vertex(const std::array<std::int32_t, 3>& v) {
    return v[0] == v[1] || v[1] == v[2] || v[2] == v[0];
}

}  // namespace

ShellWalk::ShellWalk(const TriMesh& mesh, const EdgeMates& mates, std::span<const Vertex> vertices,
                     bool test_degenerate)
    : mesh_(mesh),
      mates_(mates),
      vertices_(vertices),
      state_(mesh.faces.size(), 0),
      top_heights_(mesh.shells.size(), kNoTop),
      queue_(mesh.shells.faces.size()) {
    number_shells();
    survey(test_degenerate);
}

void ShellWalk::number_shells() {
    if (mesh_.shells.size() == 1) return;
    shells_.assign(mesh_.faces.size(), kNoShell);
    for (std::uint32_t shell = 0; shell < mesh_.shells.size(); ++shell) {
        for (const std::uint32_t face : mesh_.shells[shell]) shells_[face] = shell;
    }
}

std::uint32_t ShellWalk::shell_of(std::size_t face) const {
    if (!shells_.empty()) return shells_[face];
    return mesh_.faces[face].deleted != 0 ? kNoShell : 0;
}

void ShellWalk::survey(bool test_degenerate) {
    for (std::uint32_t face = 0; face < mesh_.faces.size(); ++face) {
        poll_at(face);
        if (shell_of(face) == kNoShell) continue;
        const std::array<std::int32_t, 3>& v = mesh_.faces[face].vertex;
        const Vec3f a = position(v[0]);
        const Vec3f b = position(v[1]);
        const Vec3f c = position(v[2]);
        if (repeats_vertex(v)) set(face, kRepeatsVertex);
        if (test_degenerate && (has(face, kRepeatsVertex) || has_degenerate_angle(a, b, c))) {
            set(face, kDegenerate);
            ++degenerate_count_;
        }
        note_height(face, a, b, c);
    }
}

// Raises the top of the face's shell to the highest corner of a face that looks up.
void ShellWalk::note_height(std::uint32_t face, Vec3f a, Vec3f b, Vec3f c) {
    if (!(face_normal(a, b, c).z >= kLooksUp)) return;
    float height = kNoTop;
    for (const float z : {a.z, b.z, c.z}) height = z > height ? z : height;
    float& top = top_heights_[shell_of(face)];
    if (height < top || height == kNoTop) return;
    top = height;
    set(face, kMayHoldTop);
}

// The highest vertex of the faces that look up: the first corner of that height in shell order.
std::int32_t ShellWalk::top_vertex(std::uint32_t shell) const {
    const float top = top_heights_[shell];
    if (top == kNoTop) return kNoVertex;
    for (const std::uint32_t face : mesh_.shells[shell]) {
        if (!has(face, kMayHoldTop)) continue;
        for (const std::int32_t v : mesh_.faces[face].vertex) {
            if (position(v).z == top) return v;
        }
    }
    return kNoVertex;
}

ShellWalk::Counts ShellWalk::walk(std::uint32_t shell) {
    counts_ = {};
    std::uint32_t seed = 0;
    if (!find_seed(shell, seed)) return counts_;
    const std::size_t before = tail_;
    walk_from(seed);
    // Where edges of many faces stopped the walk, it goes on from the faces left.
    for (const std::uint32_t face : mesh_.shells[shell]) {
        if (tail_ - before == mesh_.shells[shell].size()) break;
        if (!has(face, kVisited)) walk_from(face);
    }
    return counts_;
}

void ShellWalk::forget_turns(std::uint32_t shell) {
    for (const std::uint32_t face : mesh_.shells[shell]) {
        state_[face] = static_cast<std::uint8_t>(state_[face] & ~kTurned);
    }
}

void ShellWalk::turn(std::uint32_t face) {
    state_[face] = static_cast<std::uint8_t>(state_[face] ^ kTurned);
    ++counts_.turns;
}

// The face's vertices as it stands at the moment.
std::array<std::int32_t, 3> ShellWalk::corners(std::uint32_t face) const {
    std::array<std::int32_t, 3> v = mesh_.faces[face].vertex;
    if (has(face, kTurned)) std::swap(v[0], v[1]);
    return v;
}

std::size_t ShellWalk::stored_edge(std::uint32_t face, std::size_t edge) const {
    return has(face, kTurned) ? kTurnedEdge[edge] : edge;
}

Vec3f ShellWalk::position(std::int32_t vertex) const {
    return vertices_[static_cast<std::size_t>(vertex)].position();
}

double ShellWalk::normal_z(std::uint32_t face) const {
    const std::array<std::int32_t, 3> v = corners(face);
    return face_normal(position(v[0]), position(v[1]), position(v[2])).z;
}

double ShellWalk::sum_z() const {
    double sum = 0;
    for (const std::uint32_t face : around_) sum += normal_z(face);
    return sum;
}

// The last face around the top vertex that looks up, after these faces have been made to agree and,
// if their sum still looks down, been turned over.
bool ShellWalk::find_seed(std::uint32_t shell, std::uint32_t& seed) {
    const std::int32_t top = top_vertex(shell);
    if (top == kNoVertex) return false;
    gather_around(shell, top);
    if (sum_z() < kLooksUp) {
        for (std::size_t i = 1; i < around_.size(); ++i) {
            if (shares_edge_in_same_direction(corners(around_[i]), corners(around_[i - 1]))) {
                turn(around_[i]);
            }
        }
        if (sum_z() < kLooksUp) {
            for (const std::uint32_t face : around_) turn(face);
        }
    }
    for (std::size_t i = around_.size(); i-- > 0;) {
        if (normal_z(around_[i]) >= kLooksUp) {
            seed = around_[i];
            return true;
        }
    }
    return false;
}

// Faces of the shell at a vertex, in face order. Thousands of shells can meet at one vertex, so
// where the shell is the smaller set it is searched instead of the vertex' uses.
void ShellWalk::gather_around(std::uint32_t shell, std::int32_t vertex) {
    const std::span<const Use> row = mesh_.uses(static_cast<std::size_t>(vertex));
    const std::span<const std::uint32_t> faces = mesh_.shells[shell];
    around_.clear();
    if (row.size() <= faces.size()) {
        for (const Use& use : row) {
            if (shell_of(use.face()) == shell) around_.push_back(use.face());
        }
        return;
    }
    for (const std::uint32_t face : faces) {
        for (const std::int32_t v : mesh_.faces[face].vertex) {
            if (v == vertex) around_.push_back(face);
        }
    }
    std::sort(around_.begin(), around_.end());
}

void ShellWalk::walk_from(std::uint32_t seed) {
    reach(seed);
    while (head_ < tail_) {
        poll_at(head_);
        const std::uint32_t face = queue_[head_++];
        if (examine_edges(face)) continue;
        for (std::size_t i = 0; i < 3; ++i) {
            const std::size_t edge = stored_edge(face, i);
            if (mates_.kind(face, edge) != EdgeMates::Kind::Manifold) continue;
            const std::uint32_t mate = mates_.mate(face, edge);
            if (has(mate, kVisited)) continue;
            reach(mate);
            if (disagree(face, edge, mate)) turn(mate);
        }
    }
}

void ShellWalk::reach(std::uint32_t face) {
    set(face, kVisited);
    queue_[tail_++] = face;
}

// Counts open corners up to the first corner with a non-manifold edge; true when there is one.
bool ShellWalk::examine_edges(std::uint32_t face) {
    using Kind = EdgeMates::Kind;
    std::array<Kind, 3> kinds{};
    for (std::size_t i = 0; i < 3; ++i) kinds[i] = mates_.kind(face, stored_edge(face, i));
    for (std::size_t corner = 0; corner < 3; ++corner) {
        const Kind next = kinds[corner];
        const Kind previous = kinds[previous_corner(corner)];
        if (next == Kind::Open || previous == Kind::Open) {
            ++counts_.open_corners;
            set(face, kOpen);
        }
        if (next == Kind::NonManifold || previous == Kind::NonManifold) {
            ++counts_.non_manifold;
            set(face, kNonManifold);
            return true;
        }
    }
    return false;
}

// Whether the windings of two faces disagree along their common edge, as they stand at the moment.
bool ShellWalk::disagree(std::uint32_t face, std::size_t edge, std::uint32_t mate) const {
    // The edge table knows it of the faces as stored, and each turn changes the answer. Only a face
    // that repeats a vertex has edges for which that does not hold.
    if (has(face, kRepeatsVertex) || has(mate, kRepeatsVertex)) {
        return shares_edge_in_same_direction(corners(face), corners(mate));
    }
    return mates_.is_same_direction(face, edge) != (has(face, kTurned) != has(mate, kTurned));
}

}  // namespace povmesh
