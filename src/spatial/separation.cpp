// Two boxed searches, one inside the other: a tree over the boxes of the shells says which shells
// come into question, and a tree over the faces of each says which faces of two do; whether these
// meet is decided exactly. Where upright boxes keep too little apart, boxes turned along the faces
// are made. What meets is joined in a union-find, and pairs that are joined already
// are not looked at again.
#include "spatial/separation.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <utility>
#include <vector>

#include "base/poll.h"
#include "base/union_find.h"
#include "mesh/shells.h"
#include "mesh/vertex_welder.h"
#include "spatial/face_tree.h"
#include "spatial/oriented_boxes.h"
#include "spatial/shell_nesting.h"
#include "spatial/shell_trees.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

// The starting value of shell boxes on each axis.
constexpr float kBoxStart = 1e6F;

constexpr std::uint32_t kNoGroup = 0xFFFFFFFF;

ShellGroups groups_of(UnionFind& sets, std::uint64_t tested_face_pairs) {
    ShellGroups result;
    result.tested_face_pairs = tested_face_pairs;
    std::vector<std::uint32_t> group_of(sets.size());
    result.offsets.push_back(0);
    for (std::uint32_t shell = 0; shell < sets.size(); ++shell) {
        const std::uint32_t lowest = sets.find(shell);
        if (lowest == shell) {
            group_of[shell] = static_cast<std::uint32_t>(result.offsets.size() - 1);
            result.offsets.push_back(0);
        }
        group_of[shell] = group_of[lowest];
        ++result.offsets[group_of[shell] + 1];
    }
    std::partial_sum(result.offsets.begin(), result.offsets.end(), result.offsets.begin());
    std::vector<std::uint32_t> place(result.offsets.begin(), result.offsets.end() - 1);
    result.shells.resize(sets.size());
    for (std::uint32_t shell = 0; shell < sets.size(); ++shell) {
        result.shells[place[group_of[shell]]++] = shell;
    }
    return result;
}

// In 32-bit floats: the same comparisons as in 64-bit ones, since all values are floats.
Box3f shell_box(const TriMesh& mesh, std::size_t shell, Sampling sampling) {
    Box3f box{{kBoxStart, kBoxStart, kBoxStart}, {-kBoxStart, -kBoxStart, -kBoxStart}};
    const ShellSample sample = sample_shell(mesh, shell, sampling);
    for (std::size_t i = 0; i < sample.count; ++i) {
        poll_at(i);
        const Face& face = mesh.faces[sample[i]];
        for (std::size_t corner = 0; corner < 3; ++corner) {
            box.widen(mesh.corner_position(face, corner));
        }
    }
    return box;
}

bool overlap_strictly(const Box3f& a, const Box3f& b) {
    return a.low.x < b.high.x && b.low.x < a.high.x && a.low.y < b.high.y && b.low.y < a.high.y &&
           a.low.z < b.high.z && b.low.z < a.high.z;
}

/// Unites the shells that intersect.
class ShellUniter {
public:
    ShellUniter(const TriMesh& mesh, Sampling sampling, UnionFind& sets)
        : mesh_(mesh), sampling_(sampling), sets_(sets), trees_(mesh, sampling) {
        boxes_.reserve(mesh.shells.size());
        for (std::size_t shell = 0; shell < mesh.shells.size(); ++shell) {
            boxes_.push_back(shell_box(mesh, shell, sampling));
        }
        tree_ = FaceTree(boxes_);
        set_of_node_.assign(tree_.nodes().size(), kNoGroup);
    }

    /// Returns how many pairs of faces were tested.
    std::uint64_t run() {
        unite_small_neighbours();
        tree_.visit_own_pairs(
            [this](std::uint32_t a, std::uint32_t b) {
                ++steps_;
                unite_if_they_meet(a, b);
                return false;
            },
            [this](std::uint32_t node_a, std::uint32_t node_b) {
                ++steps_;
                renew_sets_of_nodes();
                return are_all_apart(node_a, node_b) || are_all_together(node_a, node_b);
            });
        return face_pairs_;
    }

private:
    // From so many pairs for each face on, turned boxes of the shells are made.
    static constexpr std::uint64_t kPairsPerFace = 2;
    static constexpr std::uint64_t kPairsOfFewFaces = 4096;

    static constexpr std::size_t kFewFaces = 4;  // of a shell that needs no tree
    static constexpr std::size_t kNeighbours = 4;

    // Most loose triangles of a heap meet one that stands next to them in the tree. What is known
    // to be together before the search spares it most of its steps.
    void unite_small_neighbours() {
        const auto shells = tree_.numbers();
        for (std::size_t i = 0; i < shells.size(); ++i) {
            const std::size_t end = std::min(i + 1 + kNeighbours, shells.size());
            for (std::size_t k = i + 1; k < end; ++k) {
                if (is_small(shells[i]) && is_small(shells[k])) {
                    unite_if_they_meet(shells[i], shells[k]);
                }
            }
        }
        steps_ = set_of_node_.size();
        renew_sets_of_nodes();
    }

    bool is_small(std::uint32_t shell) const { return mesh_.shells[shell].size() <= kFewFaces; }

    void unite_if_they_meet(std::uint32_t a, std::uint32_t b) {
        poller_();
        if (!overlap_strictly(boxes_[a], boxes_[b]) || sets_.find(a) == sets_.find(b)) return;
        if (++shell_pairs_ == kPairsPerFace * mesh_.shells.faces.size() + kPairsOfFewFaces) {
            make_oriented_boxes();
        }
        const auto faces_meet = [this](std::uint32_t face_a, std::uint32_t face_b) {
            return triangles_intersect(triangle_of(mesh_, mesh_.faces[face_a]),
                                       triangle_of(mesh_, mesh_.faces[face_b]));
        };
        if (!do_meet(a, b, faces_meet)) return;
        sets_.unite(a, b);
        has_united_ = true;
    }

    // Of a few loose triangles, trees would cost more than the tests.
    template <typename FacesMeet>
    bool do_meet(std::uint32_t a, std::uint32_t b, const FacesMeet& faces_meet) {
        if (!is_small(a) || !is_small(b)) {
            const FaceTree& tree_a = trees_[a];
            return find_pair(mesh_, tree_a, trees_[b], faces_meet, &face_pairs_);
        }
        for (const std::uint32_t face_a : mesh_.shells[a]) {
            const Box3f box_a = face_box(mesh_, mesh_.faces[face_a]);
            if (box_a.is_empty() || !overlap(box_a, boxes_[b])) continue;
            for (const std::uint32_t face_b : mesh_.shells[b]) {
                const Box3f box_b = face_box(mesh_, mesh_.faces[face_b]);
                if (box_b.is_empty() || !overlap(box_a, box_b)) continue;
                ++face_pairs_;
                if (faces_meet(face_a, face_b)) return true;
            }
        }
        return false;
    }

    // A hundred thousand loose triangles in a heap make billions of pairs. Once most of them are
    // known to be together, whole branches of the tree need not be looked at: where all shells
    // below a node are in one set, the node has it. The sets of the nodes are renewed from time to
    // time, after so many steps that this costs about as much as they do.
    void renew_sets_of_nodes() {
        if (!has_united_ || 2 * steps_ < set_of_node_.size()) return;
        steps_ = 0;
        has_united_ = false;
        const auto nodes = tree_.nodes();
        for (std::size_t i = nodes.size(); i-- > 0;) {
            const FaceTree::Node& node = nodes[i];
            std::uint32_t set = kNoGroup;
            if (node.is_leaf()) {
                const auto shells = tree_.numbers().subspan(node.place, node.count);
                set = sets_.find(shells[0]);
                for (const std::uint32_t shell : shells) {
                    if (sets_.find(shell) != set) set = kNoGroup;
                }
            } else if (set_of_node_[i + 1] == set_of_node_[node.place]) {
                set = set_of_node_[i + 1];
            }
            set_of_node_[i] = set;
        }
    }

    // Slivers that run aslant have boxes that all overlap, though none may meet another.
    void make_oriented_boxes() {
        oriented_.emplace(tree_, [this](std::uint32_t shell, auto&& add) {
            const ShellSample sample = sample_shell(mesh_, shell, sampling_);
            for (std::size_t i = 0; i < sample.count; ++i) {
                const Triangle triangle = triangle_of(mesh_, mesh_.faces[sample[i]]);
                if (!is_finite(triangle)) continue;  // meets nothing
                for (const Vec3d corner : triangle) add(corner);
            }
        });
    }

    // Boxes that only border on each other contain no boxes that do more.
    bool are_all_apart(std::uint32_t node_a, std::uint32_t node_b) const {
        if (node_a == node_b) return false;
        return !overlap_strictly(tree_.nodes()[node_a].box, tree_.nodes()[node_b].box) ||
               (oriented_ && oriented_->are_apart(node_a, *oriented_, node_b));
    }

    bool are_all_together(std::uint32_t node_a, std::uint32_t node_b) {
        const std::uint32_t a = set_of_node_[node_a];
        const std::uint32_t b = set_of_node_[node_b];
        return a != kNoGroup && b != kNoGroup && sets_.find(a) == sets_.find(b);
    }

    const TriMesh& mesh_;
    Sampling sampling_;
    UnionFind& sets_;
    ShellTrees trees_;
    Array<Box3f> boxes_;                     // of the shells
    FaceTree tree_;                          // over them
    std::optional<OrientedBoxes> oriented_;  // of its nodes, where many pairs come up
    std::uint64_t shell_pairs_ = 0;
    std::uint64_t face_pairs_ = 0;
    Poller poller_;
    Array<std::uint32_t> set_of_node_;
    std::size_t steps_ = 0;
    bool has_united_ = false;
};

/// Builds one part after another as `build_f` would from the soup of its faces. All corners at one
/// vertex have the same bits, so each vertex is welded once instead of each corner; the order in
/// which they come up is the same.
class PartBuilder {
public:
    explicit PartBuilder(const TriMesh& mesh)
        : mesh_(mesh), number_(mesh.vertices.size(), kNotMet) {}

    void build(TriMesh& part, std::span<const std::uint32_t> shells) {
        used_.clear();
        part.faces.resize(face_count(shells));
        std::size_t count = 0;
        for (const std::uint32_t shell : shells) {
            for (const std::uint32_t f : mesh_.shells[shell]) {
                poll_at(count);
                Face& face = part.faces[count++] = mesh_.faces[f];
                for (std::int32_t& v : face.vertex) v = number(v);
            }
        }
        weld(part.vertices);
        finish_faces(part);
    }

private:
    static constexpr std::int32_t kNotMet = -1;

    std::size_t face_count(std::span<const std::uint32_t> shells) const {
        std::size_t count = 0;
        for (const std::uint32_t shell : shells) count += mesh_.shells[shell].size();
        return count;
    }

    std::int32_t number(std::int32_t vertex) {
        std::int32_t& number = number_[static_cast<std::size_t>(vertex)];
        if (number == kNotMet) {
            number = static_cast<std::int32_t>(used_.size());
            used_.push_back(vertex);
        }
        return number;
    }

    // Welds the used vertices and makes the numbers ready for the next part.
    void weld(Array<Vertex>& vertices) {
        positions_.resize(used_.size());
        welded_.resize(used_.size());
        WeldBox box;
        for (std::size_t i = 0; i < used_.size(); ++i) {
            poll_at(i);
            const auto vertex = static_cast<std::size_t>(used_[i]);
            positions_[i] = mesh_.vertices[vertex].position();
            widen(box, positions_[i]);
            number_[vertex] = kNotMet;
        }
        static_assert(sizeof(Vec3f) == 3 * sizeof(float));
        VertexWelder welder(box, used_.size());
        fresh_.clear();
        for (std::size_t first = 0; first < used_.size(); first += VertexWelder::kBlock) {
            const std::size_t count = std::min(VertexWelder::kBlock, used_.size() - first);
            welder.weld_block(&positions_[first].x, count, &welded_[first], fresh_);
        }
        vertices.assign(fresh_.begin(), fresh_.end());
    }

    // Puts the welded vertices and fresh texture coordinates into the faces and drops those that
    // lost a corner.
    void finish_faces(TriMesh& part) const {
        std::size_t count = 0;
        for (std::size_t f = 0; f < part.faces.size(); ++f) {
            poll_at(f);
            Face face = part.faces[f];
            for (std::int32_t& v : face.vertex) v = welded_[static_cast<std::size_t>(v)];
            const auto& [a, b, c] = face.vertex;
            if (a == b || b == c || c == a) continue;
            if (face.label >= 0 && !mesh_.texture_coordinates.empty()) {
                for (std::int32_t& uv : face.uv) uv = copy_texture(uv, part.texture_coordinates);
            } else {
                face.uv.fill(-1);
            }
            part.faces[count++] = face;
        }
        part.faces.resize(count);
    }

    // A soup carries texture coordinates as floats.
    std::int32_t copy_texture(std::int32_t uv, Array<TextureCoordinate>& records) const {
        TextureCoordinate record{0, 0, static_cast<std::int32_t>(records.size())};
        if (uv >= 0 && static_cast<std::size_t>(uv) < mesh_.texture_coordinates.size()) {
            const TextureCoordinate& from = mesh_.texture_coordinates[static_cast<std::size_t>(uv)];
            record.u = static_cast<double>(static_cast<float>(from.u));
            record.v = static_cast<double>(static_cast<float>(from.v));
        }
        records.push_back(record);
        return record.index;
    }

    const TriMesh& mesh_;
    Array<std::int32_t> number_;  // by vertex of the mesh, within the part
    Array<std::int32_t> used_;    // vertices of the mesh in the order of their numbers
    Array<Vec3f> positions_;      // theirs
    Array<std::int32_t> welded_;  // by number: vertex of the part
    Array<Vertex> fresh_;
};

// Around the inner surface of a hollow body may be other bodies too: it still is no body itself.
bool is_inner_surface(const std::vector<ShellNesting>& nesting, std::uint32_t shell) {
    const ShellNesting& own = nesting[shell];
    if (own.is_cavity()) return true;
    return own.signed_volume < 0 && own.around != ShellNesting::kNone &&
           nesting[own.around].signed_volume > 0;
}

}  // namespace

ShellGroups group_intersecting_shells(const TriMesh& mesh) {
    UnionFind sets(mesh.shells.size());
    const std::uint64_t tested = ShellUniter(mesh, Sampling::AboutTenThousand, sets).run();
    return groups_of(sets, tested);
}

ShellGroups group_shells(TriMesh& mesh, const SeparationOptions& options) {
    UnionFind sets(mesh.shells.size());
    if (sets.size() < 2) return groups_of(sets, 0);
    const auto sampling = options.all_faces ? Sampling::AllFaces : Sampling::AboutTenThousand;
    const std::uint64_t tested = ShellUniter(mesh, sampling, sets).run();
    if (options.keep_cavities) {
        const std::vector<ShellNesting> nesting = classify_shells(mesh);
        for (std::uint32_t shell = 0; shell < nesting.size(); ++shell) {
            if (is_inner_surface(nesting, shell)) sets.unite(shell, nesting[shell].around);
        }
    }
    return groups_of(sets, tested);
}

void build_parts(TriMesh& mesh, const ShellGroups& groups) {
    PartBuilder builder(mesh);
    std::vector<TriMesh> parts(groups.size());
    for (std::size_t group = 0; group < groups.size(); ++group) {
        builder.build(parts[group], groups[group]);
    }
    mesh.parts = std::move(parts);
}

void separate_bodies(TriMesh& mesh, const SeparationOptions& options) {
    label_shells(mesh, EdgeMates::without_uses(mesh));
    build_parts(mesh, group_shells(mesh, options));
}

}  // namespace povmesh
