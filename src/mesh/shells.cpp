// Flood fill over edges, breadth first: the list of a shell's faces is its queue.
#include "mesh/shells.h"

#include <vector>

#include "base/poll.h"

namespace povmesh {
namespace {

class ShellLabeller {
public:
    ShellLabeller(TriMesh& mesh, const EdgeMates& mates)
        : mates_(mates),
          faces_(mesh.shells.faces),
          is_visited_(mesh.faces.size()),
          group_is_done_(mates.group_count(), 0) {
        faces_.resize(mesh.faces.size());
        for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
            is_visited_[f] = mesh.faces[f].deleted != 0 ? 1 : 0;
        }
    }

    void run(Array<std::uint32_t>& offsets) {
        offsets.assign(1, 0);
        for (std::size_t seed = 0; seed < is_visited_.size(); ++seed) {
            if (is_visited_[seed] != 0) continue;
            visit(static_cast<std::uint32_t>(seed));
            traverse();
            offsets.push_back(static_cast<std::uint32_t>(tail_));
        }
        faces_.resize(tail_);
    }

private:
    void traverse() {
        while (head_ < tail_) {
            poll_at(head_);
            const std::uint32_t face = faces_[head_++];
            for (std::size_t edge = 0; edge < 3; ++edge) {
                switch (mates_.kind(face, edge)) {
                    case EdgeMates::Kind::Open:
                        break;
                    case EdgeMates::Kind::Manifold:
                        visit(mates_.mate(face, edge));
                        break;
                    case EdgeMates::Kind::NonManifold:
                        visit_group(mates_.group_of(face, edge));
                        break;
                }
            }
        }
    }

    void visit(std::uint32_t face) {
        if (is_visited_[face] != 0) return;
        is_visited_[face] = 1;
        faces_[tail_++] = face;
    }

    // Whoever comes first to an edge of many faces takes them all, so the others need not look
    // again.
    void visit_group(std::size_t group) {
        if (group_is_done_[group] != 0) return;
        group_is_done_[group] = 1;
        for (const std::uint32_t face : mates_.group(group)) visit(face);
    }

    const EdgeMates& mates_;
    Array<std::uint32_t>& faces_;
    Array<std::uint8_t> is_visited_;
    Array<std::uint8_t> group_is_done_;
    std::size_t head_ = 0;
    std::size_t tail_ = 0;
};

}  // namespace

void label_shells(TriMesh& mesh) {
    label_shells(mesh, EdgeMates(mesh));
}

void label_shells(TriMesh& mesh, const EdgeMates& mates) {
    ShellLabeller(mesh, mates).run(mesh.shells.offsets);
}

}  // namespace povmesh
