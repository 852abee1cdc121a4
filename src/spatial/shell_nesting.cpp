// A shell lies in another one when a ray along x from one of its corners crosses that one an odd
// number of times, and the two do not meet. A ray that runs through an edge or a corner is taken as
// moved by infinitely little (H. Edelsbrunner, E. P. Muecke, Simulation of simplicity, 1990), so
// that every crossing counts once.
#include "spatial/shell_nesting.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "base/poll.h"
#include "spatial/inside_test.h"
#include "spatial/shell_trees.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

// The six floats are all finite for a box that is worth a look; shells with a coordinate that is
// not finite get an empty one.
Box3f box_of_shell(const TriMesh& mesh, std::span<const std::uint32_t> faces) {
    Box3f box;
    Poller poller;
    for (const std::uint32_t face : faces) {
        poller();
        const Box3f of_face = face_box(mesh, mesh.faces[face]);
        if (of_face.is_empty()) return {};
        box.widen(of_face.low);
        box.widen(of_face.high);
    }
    return box;
}

bool lies_within(const Box3f& inner, const Box3f& outer) {
    return outer.low.x <= inner.low.x && outer.low.y <= inner.low.y && outer.low.z <= inner.low.z &&
           inner.high.x <= outer.high.x && inner.high.y <= outer.high.y &&
           inner.high.z <= outer.high.z;
}

// Relative to a point near the shell, so that a small shell far out keeps its digits.
double volume_about(const TriMesh& mesh, std::span<const std::uint32_t> faces,
                    std::span<const std::uint8_t> turned, Vec3d origin) {
    double sum = 0;
    Poller poller;
    for (const std::uint32_t face : faces) {
        poller();
        const Triangle t = triangle_of(mesh, mesh.faces[face]);
        const double term = dot(t[0] - origin, cross(t[1] - origin, t[2] - origin));
        sum += !turned.empty() && turned[face] != 0 ? -term : term;
    }
    return sum / 6.0;
}

// Points by which a shell that may cross another is judged.
constexpr std::size_t kSamples = 63;

class NestingFinder {
public:
    NestingFinder(const TriMesh& mesh, const EdgeMates& mates, std::span<const std::uint8_t> turned)
        : mesh_(mesh),
          mates_(mates),
          turned_(turned),
          trees_(mesh, Sampling::AllFaces),
          boxes_(mesh.shells.size()),
          samples_(mesh.shells.size()),
          result_(mesh.shells.size()) {}

    std::vector<ShellNesting> run() {
        for (std::uint32_t shell = 0; shell < boxes_.size(); ++shell) examine(shell);
        find_surrounding();
        count_depths();
        for (const Pair& pair : pairs_) prefer_innermost(pair);
        return std::move(result_);
    }

private:
    struct Pair {
        std::uint32_t inner, outer;
    };

    void examine(std::uint32_t shell) {
        const std::span<const std::uint32_t> faces = mesh_.shells[shell];
        boxes_[shell] = box_of_shell(mesh_, faces);
        if (boxes_[shell].is_empty()) return;
        ShellNesting& nesting = result_[shell];
        nesting.is_closed = true;
        nesting.is_oriented = true;
        Poller poller;
        for (const std::uint32_t face : faces) {
            poller();
            for (std::size_t edge = 0; edge < 3; ++edge) examine_edge(face, edge, nesting);
        }
        nesting.is_oriented = nesting.is_oriented && nesting.is_closed;
        if (nesting.is_closed) {
            nesting.signed_volume =
                volume_about(mesh_, faces, turned_, to_double(boxes_[shell].low));
        }
    }

    void examine_edge(std::uint32_t face, std::size_t edge, ShellNesting& nesting) const {
        switch (mates_.kind(face, edge)) {
            case EdgeMates::Kind::Open:
                nesting.is_closed = false;
                break;
            case EdgeMates::Kind::Manifold:
                if (disagree(face, edge)) nesting.is_oriented = false;
                break;
            case EdgeMates::Kind::NonManifold:
                nesting.is_oriented = false;
                if (mates_.group(mates_.group_of(face, edge)).size() % 2 != 0) {
                    nesting.is_closed = false;
                }
                break;
        }
    }

    bool disagree(std::uint32_t face, std::size_t edge) const {
        const bool is_one_turned =
            !turned_.empty() && turned_[face] != turned_[mates_.mate(face, edge)];
        return mates_.is_same_direction(face, edge) != is_one_turned;
    }

    void find_surrounding() {
        Array<Box3f> closed_boxes = boxes_;
        for (std::size_t shell = 0; shell < boxes_.size(); ++shell) {
            if (!result_[shell].is_closed) closed_boxes[shell] = Box3f();
        }
        const FaceTree tree(closed_boxes);
        for (std::uint32_t inner = 0; inner < boxes_.size(); ++inner) {
            poll_at(inner);
            tree.visit_overlapping(boxes_[inner], [&](std::uint32_t outer) {
                if (outer != inner && lies_in(inner, outer)) pairs_.push_back({inner, outer});
                return false;
            });
        }
    }

    bool lies_in(std::uint32_t inner, std::uint32_t outer) {
        const double volume = result_[inner].signed_volume;
        const double around = result_[outer].signed_volume;
        if (volume * around < 0) {
            return std::abs(volume) < std::abs(around) && lies_mostly_in(inner, outer);
        }
        return lies_within(boxes_[inner], boxes_[outer]) && lies_wholly_in(inner, outer);
    }

    // Wound against each other, two shells are the two sides of a wall, also where they touch or
    // the wall is broken through: most of the inner one is what counts.
    bool lies_mostly_in(std::uint32_t inner, std::uint32_t outer) {
        const Box3f& box = boxes_[outer];
        const std::vector<Vec3f>& points = samples(inner);
        const auto in_box = std::count_if(points.begin(), points.end(), [&](Vec3f p) {
            return lies_within({p, p}, box);
        });
        if (static_cast<std::size_t>(in_box) * 2 <= points.size()) return false;
        std::size_t inside = 0;
        std::size_t decided = 0;
        for (const Vec3f& p : points) {
            const PointPlace place = locate(mesh_, trees_[outer], p);
            if (place == PointPlace::Inside) ++inside;
            if (place == PointPlace::Inside || place == PointPlace::Outside) ++decided;
        }
        return inside * 2 > decided;
    }

    // Centres of faces, so many by equal shares of the area.
    const std::vector<Vec3f>& samples(std::uint32_t shell) {
        std::vector<Vec3f>& points = samples_[shell];
        if (!points.empty()) return points;
        double whole = 0;
        for (const std::uint32_t face : mesh_.shells[shell]) whole += area(face);
        double sum = 0;
        for (const std::uint32_t face : mesh_.shells[shell]) {
            sum += area(face);
            const double share = whole / kSamples;
            while (points.size() < kSamples &&
                   sum > share * (static_cast<double>(points.size()) + 0.5)) {
                points.push_back(centre(face));
            }
        }
        if (points.empty()) points.push_back(centre(mesh_.shells[shell].front()));
        return points;
    }

    double area(std::uint32_t face) const {
        const Triangle t = triangle_of(mesh_, mesh_.faces[face]);
        return length(cross(t[1] - t[0], t[2] - t[0]));
    }

    Vec3f centre(std::uint32_t face) const {
        const Triangle t = triangle_of(mesh_, mesh_.faces[face]);
        const Vec3d c = t[0] / 3.0 + t[1] / 3.0 + t[2] / 3.0;
        return {static_cast<float>(c.x), static_cast<float>(c.y), static_cast<float>(c.z)};
    }

    bool lies_wholly_in(std::uint32_t inner, std::uint32_t outer) {
        for (const std::uint32_t face : mesh_.shells[inner]) {
            for (std::size_t corner = 0; corner < 3; ++corner) {
                const PointPlace place =
                    locate(mesh_, trees_[outer], mesh_.corner_position(mesh_.faces[face], corner));
                if (place == PointPlace::AtCorner) continue;  // another corner will tell
                return place == PointPlace::Inside && !shells_meet(inner, outer);
            }
        }
        return false;
    }

    bool shells_meet(std::uint32_t a, std::uint32_t b) {
        const FaceTree& tree_a = trees_[a];
        const auto faces_meet = [this](std::uint32_t face_a, std::uint32_t face_b) {
            const Triangle ta = triangle_of(mesh_, mesh_.faces[face_a]);
            const Triangle tb = triangle_of(mesh_, mesh_.faces[face_b]);
            return has_area(ta) && has_area(tb) && meet_beyond_shared(ta, tb);
        };
        return find_pair(mesh_, tree_a, trees_[b], faces_meet);
    }

    void count_depths() {
        for (const Pair& pair : pairs_) ++result_[pair.inner].depth;
    }

    // The innermost is the one that lies in most others itself; of several (shells that cross each
    // other), the smallest.
    void prefer_innermost(const Pair& pair) {
        std::uint32_t& around = result_[pair.inner].around;
        if (around != ShellNesting::kNone) {
            const ShellNesting& best = result_[around];
            const ShellNesting& other = result_[pair.outer];
            if (other.depth < best.depth) return;
            const double size = std::abs(other.signed_volume);
            const double best_size = std::abs(best.signed_volume);
            if (other.depth == best.depth &&
                (size > best_size || (size == best_size && pair.outer > around))) {
                return;
            }
        }
        around = pair.outer;
    }

    const TriMesh& mesh_;
    const EdgeMates& mates_;
    std::span<const std::uint8_t> turned_;
    ShellTrees trees_;
    Array<Box3f> boxes_;
    std::vector<std::vector<Vec3f>> samples_;  // of the shells that were asked for
    std::vector<ShellNesting> result_;
    std::vector<Pair> pairs_;
};

}  // namespace

std::vector<ShellNesting> classify_shells(TriMesh& mesh) {
    const EdgeMates mates(mesh);
    return classify_shells(mesh, mates);
}

std::vector<ShellNesting> classify_shells(const TriMesh& mesh, const EdgeMates& mates,
                                          std::span<const std::uint8_t> turned) {
    return NestingFinder(mesh, mates, turned).run();
}

}  // namespace povmesh
