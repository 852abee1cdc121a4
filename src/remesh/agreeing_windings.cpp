// A walk over the edges of two faces: each face reached stands as the one before it asks.
#include "remesh/agreeing_windings.h"

#include <cstddef>
#include <utility>

#include "base/poll.h"

namespace povmesh {
namespace {

class Agreement {
public:
    Agreement(const TriMesh& mesh, const EdgeMates& mates)
        : mesh_(mesh),
          mates_(mates),
          is_reached_(mesh.faces.size(), 0),
          is_turned_(is_reached_.size(), 0) {}

    Array<std::uint32_t> run() {
        for (std::size_t f = 0; f < mesh_.faces.size(); ++f) {
            poll_at(f);
            if (mesh_.faces[f].deleted != 0 || is_reached_[f] != 0) continue;
            walk_from(static_cast<std::uint32_t>(f));
            settle();
        }
        return std::move(turned_);
    }

private:
    bool has_mate(std::uint32_t face, std::size_t edge) const {
        return mates_.kind(face, edge) == EdgeMates::Kind::Manifold;
    }

    void walk_from(std::uint32_t seed) {
        set_.clear();
        set_.push_back(seed);
        is_reached_[seed] = 1;
        for (std::size_t head = 0; head < set_.size(); ++head) {
            const std::uint32_t face = set_[head];
            for (std::size_t edge = 0; edge < 3; ++edge) {
                if (!has_mate(face, edge)) continue;
                const std::uint32_t mate = mates_.mate(face, edge);
                if (is_reached_[mate] != 0) continue;
                is_reached_[mate] = 1;
                const bool disagree = mates_.is_same_direction(face, edge);
                is_turned_[mate] = disagree ? 1 - is_turned_[face] : is_turned_[face];
                set_.push_back(mate);
            }
        }
    }

    // Takes what the walk would turn, or all the others where those are fewer; nothing where edges
    // between opposite windings do not get fewer.
    void settle() {
        std::size_t before = 0;  // such edges, each from both sides
        std::size_t after = 0;
        std::size_t count = 0;
        for (const std::uint32_t face : set_) {
            count += is_turned_[face];
            for (std::size_t edge = 0; edge < 3; ++edge) {
                if (!has_mate(face, edge)) continue;
                const bool disagree = mates_.is_same_direction(face, edge);
                const bool is_between = is_turned_[face] != is_turned_[mates_.mate(face, edge)];
                before += disagree ? 1 : 0;
                after += disagree != is_between ? 1 : 0;
            }
        }
        if (after >= before) return;
        const std::uint8_t wanted = 2 * count > set_.size() ? 0 : 1;
        for (const std::uint32_t face : set_) {
            if (is_turned_[face] == wanted) turned_.push_back(face);
        }
    }

    const TriMesh& mesh_;
    const EdgeMates& mates_;
    Array<std::uint8_t> is_reached_;  // by face, as the next
    Array<std::uint8_t> is_turned_;
    Array<std::uint32_t> set_;  // the faces that hang together, at hand
    Array<std::uint32_t> turned_;
};

bool has_disagreement(const TriMesh& mesh, const EdgeMates& mates) {
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        if (mesh.faces[f].deleted != 0) continue;
        for (std::size_t edge = 0; edge < 3; ++edge) {
            if (mates.kind(f, edge) == EdgeMates::Kind::Manifold &&
                mates.is_same_direction(f, edge)) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace

Array<std::uint32_t> make_windings_agree(TriMesh& mesh, const EdgeMates& mates) {
    if (!has_disagreement(mesh, mates)) return {};
    Array<std::uint32_t> turned = Agreement(mesh, mates).run();
    for (const std::uint32_t f : turned) reverse_winding(mesh.faces[f]);
    if (!turned.empty()) mesh.use_table.clear();
    return turned;
}

}  // namespace povmesh
