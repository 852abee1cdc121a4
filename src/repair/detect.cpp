// Flaw detection.
//
// The walk turns faces over as it goes. It does not touch the mesh for that: a bit per face says
// which way round the face stands at the moment, and `corners` gives its vertices in that order.
// Everything that needs positions is settled beforehand in one pass over the faces in their order
// in memory, so that the walk itself, which jumps about the mesh, reads a byte a face and the edge
// table only.
#include "repair/detect.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "mesh/edge_mates.h"
#include "mesh/shells.h"
#include "repair/degenerate.h"

namespace povmesh {
namespace {

// A normal looks up when its z is at least this; normals are cross products, not of unit length.
constexpr double kLooksUp = -0.0001;

constexpr float kNoTop = -1000000.0F;  // a shell that lies wholly below has no top
constexpr std::int32_t kNoVertex = -1;

// State bits of a face.
constexpr std::uint8_t kVisited = 1;
constexpr std::uint8_t kTurned = 2;
constexpr std::uint8_t kRepeatsVertex = 4;  // two of its vertex indices are equal
constexpr std::uint8_t kDegenerate = 8;
constexpr std::uint8_t kOpen = 16;
constexpr std::uint8_t kNonManifold = 32;

// Where corner or edge i of a face that stands turned lies in the face as stored: corners 0 and 1
// have changed places, and with them the edges 1 and 2.
constexpr std::array<std::size_t, 3> kTurnedCorner = {1, 0, 2};
constexpr std::array<std::size_t, 3> kTurnedEdge = {0, 2, 1};

struct Top {
    float z = kNoTop;
    std::int32_t vertex = kNoVertex;
    std::uint32_t rank = 0;  // place of the face that named it in the shell table
};

class FlawWalk {
public:
    FlawWalk(const TriMesh& mesh, const EdgeMates& mates)
        : mesh_(mesh),
          mates_(mates),
          state_(mesh.faces.size(), 0),
          places_(mesh.faces.size(), Place{kNoShell, 0}),
          tops_(mesh.shells.size(), Top{}),
          queue_(mesh.shells.faces.size()) {}

    FlawCounts run() {
        survey();
        for (std::uint32_t shell = 0; shell < mesh_.shells.size(); ++shell) walk_shell(shell);
        return counts_;
    }

    FlawFaces flaw_faces() const {
        FlawFaces flaws;
        for (std::size_t f = 0; f < state_.size(); ++f) {
            const auto face = static_cast<std::uint32_t>(f);
            if (has(face, kTurned)) flaws.inverted.push_back(face);
            if (has(face, kOpen)) flaws.open.push_back(face);
            if (has(face, kNonManifold)) flaws.non_manifold.push_back(face);
            if (has(face, kDegenerate)) flaws.degenerate.push_back(face);
        }
        return flaws;
    }

private:
    bool has(std::uint32_t face, std::uint8_t bit) const { return (state_[face] & bit) != 0; }
    void set(std::uint32_t face, std::uint8_t bit) {
        state_[face] = static_cast<std::uint8_t>(state_[face] | bit);
    }

    void turn(std::uint32_t face) {
        state_[face] = static_cast<std::uint8_t>(state_[face] ^ kTurned);
        ++counts_.inverted;
    }

    // The face's vertices as it stands at the moment.
    std::array<std::int32_t, 3> corners(std::uint32_t face) const {
        std::array<std::int32_t, 3> v = mesh_.faces[face].vertex;
        if (has(face, kTurned)) std::swap(v[0], v[1]);
        return v;
    }

    std::size_t stored_edge(std::uint32_t face, std::size_t edge) const {
        return has(face, kTurned) ? kTurnedEdge[edge] : edge;
    }

    Vec3d normal(const std::array<std::int32_t, 3>& v) const {
        return face_normal(position(v[0]), position(v[1]), position(v[2]));
    }
    Vec3f position(std::int32_t vertex) const {
        return mesh_.vertices[static_cast<std::size_t>(vertex)].position();
    }

    // Counts degenerate faces and finds the top vertex of every shell: the highest corner of the
    // faces that look up, the first one in shell order among equally high ones. No face is turned
    // yet.
    void survey() {
        for (std::uint32_t shell = 0; shell < mesh_.shells.size(); ++shell) {
            for (std::uint32_t rank = mesh_.shells.offsets[shell];
                 rank < mesh_.shells.offsets[shell + 1]; ++rank) {
                places_[mesh_.shells.faces[rank]] = {shell, rank};
            }
        }
        for (std::uint32_t face = 0; face < mesh_.faces.size(); ++face) {
            if (places_[face].shell == kNoShell) continue;
            survey_face(face, tops_[places_[face].shell], places_[face].rank);
        }
    }

    void survey_face(std::uint32_t face, Top& top, std::uint32_t rank) {
        const std::array<std::int32_t, 3>& v = mesh_.faces[face].vertex;
        const Vec3f a = position(v[0]);
        const Vec3f b = position(v[1]);
        const Vec3f c = position(v[2]);
        const bool repeats = v[0] == v[1] || v[1] == v[2] || v[2] == v[0];
        if (repeats) set(face, kRepeatsVertex);
        if (repeats || has_degenerate_angle(a, b, c)) {
            set(face, kDegenerate);
            ++counts_.degenerate;
        }
        if (!(face_normal(a, b, c).z >= kLooksUp)) return;
        const std::array<float, 3> heights = {a.z, b.z, c.z};
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const float z = heights[corner];
            // Faces come by number, the rule asks for their order in the shell: an equally high
            // corner wins when its face stands earlier there.
            const bool is_earlier = z == top.z && rank < top.rank && top.vertex != kNoVertex;
            if (z > top.z || is_earlier) top = {z, v[corner], rank};
        }
    }

    void walk_shell(std::uint32_t shell) {
        std::uint32_t seed = 0;
        if (!find_seed(shell, seed)) return;
        walk_from(seed);
        for (const std::uint32_t face : mesh_.shells[shell]) {
            if (!has(face, kVisited)) walk_from(face);
        }
    }

    // The last face around the top vertex that looks up, after these faces have been made to agree
    // and, if their sum looks down, been turned over.
    bool find_seed(std::uint32_t shell, std::uint32_t& seed) {
        if (tops_[shell].vertex == kNoVertex) return false;
        gather_around(shell, tops_[shell].vertex);
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
            if (normal(corners(around_[i])).z >= kLooksUp) {
                seed = around_[i];
                return true;
            }
        }
        return false;
    }

    // Faces of the shell at a vertex, in face order. Thousands of shells can meet at one vertex, so
    // where the shell is the smaller set it is searched instead of the vertex' uses.
    void gather_around(std::uint32_t shell, std::int32_t vertex) {
        const std::span<const Use> row = mesh_.uses(static_cast<std::size_t>(vertex));
        const std::span<const std::uint32_t> faces = mesh_.shells[shell];
        around_.clear();
        if (row.size() <= faces.size()) {
            for (const Use& use : row) {
                if (places_[use.face()].shell == shell) around_.push_back(use.face());
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

    double sum_z() const {
        double sum = 0;
        for (const std::uint32_t face : around_) sum += normal(corners(face)).z;
        return sum;
    }

    void walk_from(std::uint32_t seed) {
        reach(seed);
        while (head_ < tail_) {
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

    void reach(std::uint32_t face) {
        set(face, kVisited);
        queue_[tail_++] = face;
    }

    // Counts open corners up to the first corner with a non-manifold edge; true when there is one.
    bool examine_edges(std::uint32_t face) {
        using Kind = EdgeMates::Kind;
        std::array<Kind, 3> kinds{};
        for (std::size_t i = 0; i < 3; ++i) kinds[i] = mates_.kind(face, stored_edge(face, i));
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const Kind next = kinds[corner];
            const Kind previous = kinds[(corner + 2) % 3];
            if (next == Kind::Open || previous == Kind::Open) {
                ++counts_.open_edges;
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

    // Whether the windings of two faces disagree along their common edge, as they stand at the
    // moment.
    bool disagree(std::uint32_t face, std::size_t edge, std::uint32_t mate) const {
        // The edge table knows it of the faces as stored, and each turn changes the answer. Only a
        // face that repeats a vertex has edges for which that does not hold.
        if (has(face, kRepeatsVertex) || has(mate, kRepeatsVertex)) {
            return shares_edge_in_same_direction(corners(face), corners(mate));
        }
        return mates_.is_same_direction(face, edge) != (has(face, kTurned) != has(mate, kTurned));
    }

    // Where a face stands in the shell table.
    struct Place {
        std::uint32_t shell, rank;
    };
    static constexpr std::uint32_t kNoShell = 0xFFFFFFFF;

    const TriMesh& mesh_;
    const EdgeMates& mates_;
    FlawCounts counts_;
    Array<std::uint8_t> state_;
    Array<Place> places_;         // of every face; shell kNoShell for deleted ones
    Array<Top> tops_;             // of every shell
    Array<std::uint32_t> queue_;  // all walks in turn; each face enters once
    std::size_t head_ = 0;
    std::size_t tail_ = 0;
    Array<std::uint32_t> around_;  // faces at the top of the shell at hand
};

}  // namespace

FlawCounts detect(TriMesh& mesh, FlawFaces* faces) {
    const EdgeMates mates(mesh);
    label_shells(mesh, mates);
    FlawWalk walk(mesh, mates);
    const FlawCounts counts = walk.run();
    if (faces != nullptr) *faces = walk.flaw_faces();
    return counts;
}

}  // namespace povmesh
