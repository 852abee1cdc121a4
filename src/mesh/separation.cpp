#include "mesh/separation.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

#include "mesh/build_f.h"
#include "mesh/face_tree.h"
#include "mesh/shell_nesting.h"
#include "mesh/shell_trees.h"
#include "mesh/shells.h"
#include "mesh/triangle_intersection.h"

namespace povmesh {
namespace {

// The starting value of shell boxes on each axis.
constexpr float kBoxStart = 1e6F;

constexpr std::uint32_t kNoGroup = 0xFFFFFFFF;

/// Disjoint sets of shells. The lowest shell of a set stands for it.
class ShellSets {
public:
    explicit ShellSets(std::size_t shell_count) : parent_(shell_count) {
        std::iota(parent_.begin(), parent_.end(), 0U);
    }

    std::uint32_t find(std::uint32_t shell) {
        while (parent_[shell] != shell) {
            parent_[shell] = parent_[parent_[shell]];
            shell = parent_[shell];
        }
        return shell;
    }

    void unite(std::uint32_t a, std::uint32_t b) {
        a = find(a);
        b = find(b);
        parent_[std::max(a, b)] = std::min(a, b);
    }

    ShellGroups groups() {
        ShellGroups result;
        std::vector<std::uint32_t> group_of(parent_.size());
        result.offsets.push_back(0);
        for (std::uint32_t shell = 0; shell < parent_.size(); ++shell) {
            const std::uint32_t lowest = find(shell);
            if (lowest == shell) {
                group_of[shell] = static_cast<std::uint32_t>(result.offsets.size() - 1);
                result.offsets.push_back(0);
            }
            group_of[shell] = group_of[lowest];
            ++result.offsets[group_of[shell] + 1];
        }
        std::partial_sum(result.offsets.begin(), result.offsets.end(), result.offsets.begin());
        std::vector<std::uint32_t> place(result.offsets.begin(), result.offsets.end() - 1);
        result.shells.resize(parent_.size());
        for (std::uint32_t shell = 0; shell < parent_.size(); ++shell) {
            result.shells[place[group_of[shell]]++] = shell;
        }
        return result;
    }

private:
    std::vector<std::uint32_t> parent_;
};

// In 32-bit floats: the same comparisons as in 64-bit ones, since all values are floats.
Box3f shell_box(const TriMesh& mesh, std::size_t shell) {
    Box3f box{{kBoxStart, kBoxStart, kBoxStart}, {-kBoxStart, -kBoxStart, -kBoxStart}};
    const ShellSample sample = sample_shell(mesh, shell, Sampling::AboutTenThousand);
    for (std::size_t i = 0; i < sample.count; ++i) {
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
    ShellUniter(const TriMesh& mesh, ShellSets& sets)
        : mesh_(mesh), sets_(sets), trees_(mesh, Sampling::AboutTenThousand) {
        boxes_.reserve(mesh.shells.size());
        for (std::size_t shell = 0; shell < mesh.shells.size(); ++shell) {
            boxes_.push_back(shell_box(mesh, shell));
        }
        tree_ = FaceTree(boxes_);
        set_of_node_.assign(tree_.nodes().size(), kNoGroup);
    }

    void run() {
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
    }

private:
    void unite_if_they_meet(std::uint32_t a, std::uint32_t b) {
        if (!overlap_strictly(boxes_[a], boxes_[b]) || sets_.find(a) == sets_.find(b)) return;
        const auto faces_meet = [this](std::uint32_t face_a, std::uint32_t face_b) {
            return triangles_intersect(triangle_of(mesh_, mesh_.faces[face_a]),
                                       triangle_of(mesh_, mesh_.faces[face_b]));
        };
        const FaceTree& tree_a = trees_[a];
        if (!tree_a.visit_pairs(trees_[b], faces_meet)) return;
        sets_.unite(a, b);
        has_united_ = true;
    }

    // A hundred thousand loose triangles in a heap make billions of pairs. Once most of them are
    // known to be together, whole branches of the tree need not be looked at: where all shells below
    // a node are in one set, the node has it. The sets of the nodes are renewed from time to time,
    // after so many steps that this costs little beside them.
    void renew_sets_of_nodes() {
        if (!has_united_ || steps_ < 4 * set_of_node_.size()) return;
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

    // Boxes that only border on each other contain no boxes that do more.
    bool are_all_apart(std::uint32_t node_a, std::uint32_t node_b) const {
        return node_a != node_b &&
               !overlap_strictly(tree_.nodes()[node_a].box, tree_.nodes()[node_b].box);
    }

    bool are_all_together(std::uint32_t node_a, std::uint32_t node_b) {
        const std::uint32_t a = set_of_node_[node_a];
        const std::uint32_t b = set_of_node_[node_b];
        return a != kNoGroup && b != kNoGroup && sets_.find(a) == sets_.find(b);
    }

    const TriMesh& mesh_;
    ShellSets& sets_;
    ShellTrees trees_;
    Array<Box3f> boxes_;  // of the shells
    FaceTree tree_;       // over them
    std::vector<std::uint32_t> set_of_node_;
    std::size_t steps_ = 0;
    bool has_united_ = false;
};

/// The faces of one part after another as a soup, in buffers that all parts share.
class PartGatherer {
public:
    PartGatherer(const TriMesh& mesh, std::size_t most_faces)
        : mesh_(mesh),
          coordinates_(most_faces * 9),
          colours_(most_faces * 9),
          texture_coordinates_(mesh.texture_coordinates.empty() ? 0 : most_faces * 6),
          labels_(most_faces) {}

    ByteSoup gather(const ShellGroups& groups, std::size_t group) {
        std::size_t count = 0;
        for (const std::uint32_t shell : groups[group]) {
            for (const std::uint32_t face : mesh_.shells[shell]) put(count++, mesh_.faces[face]);
        }
        return {count, coordinates_.data(), colours_.data(),
                mesh_.texture_coordinates.empty() ? nullptr : texture_coordinates_.data(),
                labels_.data()};
    }

private:
    void put(std::size_t place, const Face& face) {
        float* const xyz = coordinates_.data() + 9 * place;
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const Vec3f position = mesh_.corner_position(face, corner);
            xyz[3 * corner] = position.x;
            xyz[3 * corner + 1] = position.y;
            xyz[3 * corner + 2] = position.z;
        }
        std::copy(face.colour.begin(), face.colour.end(), colours_.data() + 9 * place);
        labels_[place] = face.label;
        if (face.label < 0 || mesh_.texture_coordinates.empty()) return;
        float* const uv = texture_coordinates_.data() + 6 * place;
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const std::int32_t index = face.uv[corner];
            const bool is_there =
                index >= 0 && static_cast<std::size_t>(index) < mesh_.texture_coordinates.size();
            const TextureCoordinate record =
                is_there ? mesh_.texture_coordinates[static_cast<std::size_t>(index)]
                         : TextureCoordinate{};
            uv[2 * corner] = static_cast<float>(record.u);
            uv[2 * corner + 1] = static_cast<float>(record.v);
        }
    }

    const TriMesh& mesh_;
    Array<float> coordinates_;
    Array<std::uint8_t> colours_;
    Array<float> texture_coordinates_;
    Array<std::int32_t> labels_;
};

std::size_t face_count(const TriMesh& mesh, std::span<const std::uint32_t> shells) {
    std::size_t count = 0;
    for (const std::uint32_t shell : shells) count += mesh.shells[shell].size();
    return count;
}

// Building reserves for a block of corners, which is much for a model of one triangle.
void release_reserve(Array<Vertex>& vertices) {
    if (vertices.capacity() > 2 * vertices.size()) vertices.shrink_to_fit();
}

}  // namespace

ShellGroups group_intersecting_shells(const TriMesh& mesh) {
    ShellSets sets(mesh.shells.size());
    ShellUniter(mesh, sets).run();
    return sets.groups();
}

ShellGroups group_shells(TriMesh& mesh, const SeparationOptions& options) {
    ShellSets sets(mesh.shells.size());
    ShellUniter(mesh, sets).run();
    if (options.keep_cavities) {
        const std::vector<ShellNesting> nesting = classify_shells(mesh);
        for (std::uint32_t shell = 0; shell < nesting.size(); ++shell) {
            if (nesting[shell].is_cavity()) sets.unite(shell, nesting[shell].around);
        }
    }
    return sets.groups();
}

void build_parts(TriMesh& mesh, const ShellGroups& groups) {
    std::size_t most_faces = 0;
    for (std::size_t group = 0; group < groups.size(); ++group) {
        most_faces = std::max(most_faces, face_count(mesh, groups[group]));
    }
    PartGatherer gatherer(mesh, most_faces);
    std::vector<TriMesh> parts(groups.size());
    for (std::size_t group = 0; group < groups.size(); ++group) {
        build_f(parts[group], gatherer.gather(groups, group));
        release_reserve(parts[group].vertices);
    }
    mesh.parts = std::move(parts);
}

void separate_models(TriMesh& mesh, const SeparationOptions& options) {
    label_shells(mesh);
    build_parts(mesh, group_shells(mesh, options));
}

}  // namespace povmesh
