// First consistency, a two-colouring of the faces along edges of two faces; then the side, by
// signed volume, by parity or, for open surfaces, by the winding number: the sum of the solid
// angles of all faces, which is a whole number only where the surface is closed (A. Jacobson, L.
// Kavan, O. Sorkine-Hornung, Robust inside-outside segmentation using generalized winding numbers,
// SIGGRAPH 2013; the solid angle of a triangle: A. van Oosterom, J. Strackee, 1983).
#include "repair/orientation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numbers>
#include <span>

#include "base/parallel.h"
#include "base/poll.h"
#include "base/vec.h"
#include "spatial/inside_test.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

// Up to this share of the cubed diagonal a volume is rounding, and its sign tells nothing.
constexpr double kFlat = 1e-12;

// Faces of a set by which its side is told.
constexpr std::size_t kSamples = 32;
constexpr std::size_t kStride = 5;  // a first look takes every so many of them
constexpr int kEnoughVotes = 3;     // by parity, which is exact: more than this decides nothing new

// Faces that parity may look at, for each face of the model: plain models take less than one. A ray
// through the pages of a book meets most of them; there the winding number of a patch by itself
// tells its side, unless another one lies around it.
constexpr std::uint64_t kMostLooks = 200;

// Mean winding number that the other faces have at a face: 1/2 in a closed surface that looks out,
// -1/2 in one that looks in, 0 in a sheet.
constexpr double kLooksIn = -0.25;

// Squared distance of a face, in squares of its size, from which on its solid angle is simple.
constexpr double kAfar = 9;

// How far beside a face its two sides are looked at: so much of the root of its area, and so many
// units in the last place of the coordinates.
constexpr double kBeside = 1e-3;
constexpr double kLeastUnits = 4;

// Faces joined over edges of two faces: places `begin` to `end` of one list.
struct Patch {
    std::uint32_t begin = 0;
    std::uint32_t end = 0;
    bool is_one_sided = false;

    std::size_t size() const { return end - begin; }
};

class Orienter {
public:
    Orienter(const TriMesh& mesh, const EdgeMates& mates, bool keep_cavities)
        : mesh_(mesh), mates_(mates), keep_cavities_(keep_cavities) {}

    TurnedFaces run() {
        result_.turned.assign(mesh_.faces.size(), 0);
        is_reached_.assign(mesh_.faces.size(), 0);
        for (std::uint32_t shell = 0; shell < mesh_.shells.size(); ++shell) make_patches(shell);
        patch_offsets_.push_back(static_cast<std::uint32_t>(patches_.size()));
        result_.shells = classify_shells(mesh_, mates_, result_.turned);
        const std::vector<bool> is_cavity = find_cavities();
        for (std::uint32_t shell = 0; shell < mesh_.shells.size(); ++shell) {
            choose_sides(shell, is_cavity[shell]);
        }
        summarise();
        return std::move(result_);
    }

private:
    // ---- consistency

    void make_patches(std::uint32_t shell) {
        patch_offsets_.push_back(static_cast<std::uint32_t>(patches_.size()));
        bool is_one_sided = false;
        for (const std::uint32_t seed : mesh_.shells[shell]) {
            if (is_reached_[seed] != 0) continue;
            Patch patch = reach_from(seed);
            make_consistent(patch);
            is_one_sided = is_one_sided || patch.is_one_sided;
            patches_.push_back(patch);
        }
        if (is_one_sided) result_.one_sided.push_back(shell);
    }

    // Every face reached stands as the one that it was reached from asks.
    Patch reach_from(std::uint32_t seed) {
        Patch patch;
        patch.begin = static_cast<std::uint32_t>(faces_.size());
        is_reached_[seed] = 1;
        faces_.push_back(seed);
        for (std::size_t head = patch.begin; head < faces_.size(); ++head) {
            poll_at(head);
            const std::uint32_t face = faces_[head];
            for (std::size_t edge = 0; edge < 3; ++edge) {
                if (mates_.kind(face, edge) != EdgeMates::Kind::Manifold) continue;
                const std::uint32_t mate = mates_.mate(face, edge);
                if (is_reached_[mate] != 0) continue;
                is_reached_[mate] = 1;
                const bool is_turned =
                    (result_.turned[face] != 0) != mates_.is_same_direction(face, edge);
                result_.turned[mate] = is_turned ? 1 : 0;
                faces_.push_back(mate);
            }
        }
        patch.end = static_cast<std::uint32_t>(faces_.size());
        return patch;
    }

    void make_consistent(Patch& patch) {
        std::size_t before = 0;  // edges of opposite windings, each from both sides
        std::size_t after = 0;
        std::size_t turned = 0;
        Poller poller;
        for (const std::uint32_t face : faces_of(patch)) {
            poller();
            turned += result_.turned[face];
            for (std::size_t edge = 0; edge < 3; ++edge) {
                if (mates_.kind(face, edge) != EdgeMates::Kind::Manifold) continue;
                const bool disagree = mates_.is_same_direction(face, edge);
                const bool is_one_turned =
                    result_.turned[face] != result_.turned[mates_.mate(face, edge)];
                before += disagree ? 1 : 0;
                after += disagree != is_one_turned ? 1 : 0;
            }
        }
        patch.is_one_sided = after != 0;
        if (after != 0 && after >= before) {
            for (const std::uint32_t face : faces_of(patch)) result_.turned[face] = 0;
        } else if (turned * 2 > patch.size()) {
            turn(patch);
        }
    }

    // ---- sides

    // A shell in the inside of another one is a cavity when either is wound inward: the two are
    // then wound against each other, or one of them has been turned over.
    std::vector<bool> find_cavities() const {
        std::vector<bool> is_cavity(mesh_.shells.size(), false);
        if (!keep_cavities_) return is_cavity;
        for (std::size_t s = 0; s < is_cavity.size(); ++s) {
            const ShellNesting& own = result_.shells[s];
            is_cavity[s] = own.is_cavity() &&
                           (own.signed_volume < 0 || result_.shells[own.around].signed_volume < 0);
        }
        return is_cavity;
    }

    void choose_sides(std::uint32_t shell, bool is_cavity) {
        ShellNesting& nesting = result_.shells[shell];
        const auto patches = std::span(patches_).subspan(
            patch_offsets_[shell], patch_offsets_[shell + 1] - patch_offsets_[shell]);
        if (nesting.is_oriented) {
            const bool is_inward = nesting.signed_volume < 0;
            if (is_inward == is_cavity || is_flat(shell, nesting.signed_volume)) return;
            for (const Patch& patch : patches) turn(patch);
            nesting.signed_volume = -nesting.signed_volume;
            return;
        }
        FaceTree tree;
        if (nesting.is_closed) tree = tree_of(shell);
        bool is_changed = false;
        for (const Patch& patch : patches) {
            poll();
            if (patch.is_one_sided) continue;
            const std::vector<std::uint32_t> faces = samples(patch);
            const bool has_parity =
                nesting.is_closed && looked_at_ / kMostLooks <= mesh_.faces.size();
            int side = has_parity ? side_by_parity(faces, tree) : 0;
            if (is_cavity) side = -side;
            if (side == 0 && !has_parity) side = side_by_winding(patch, faces);
            if (side >= 0) continue;
            turn(patch);
            is_changed = true;
        }
        if (is_changed && nesting.is_closed) nesting.signed_volume = volume_of(shell);
    }

    bool is_flat(std::uint32_t shell, double volume) const {
        Box3d box;
        Poller poller;
        for (const std::uint32_t face : mesh_.shells[shell]) {
            poller();
            for (const Vec3d& p : triangle_of(mesh_, mesh_.faces[face])) box.widen(p);
        }
        const double diagonal = length(box.extent());
        return std::abs(volume) <= kFlat * diagonal * diagonal * diagonal;
    }

    FaceTree tree_of(std::uint32_t shell) const {
        Array<Box3f> boxes;
        for (const std::uint32_t face : mesh_.shells[shell]) {
            boxes.push_back(face_box(mesh_, mesh_.faces[face]));
        }
        return FaceTree(boxes, mesh_.shells[shell]);
    }

    // Positive when the faces look out, negative when they look in, 0 when that cannot be told.
    int side_by_parity(std::span<const std::uint32_t> faces, const FaceTree& tree) {
        int votes = 0;
        for (std::size_t first = 0; first < kStride; ++first) {
            for (std::size_t i = first; i < faces.size(); i += kStride) {
                votes += vote(faces[i], tree);
                if (std::abs(votes) == kEnoughVotes) return votes;
            }
        }
        return votes;
    }

    // 1 when a face has the outside before it and the inside behind, -1 the other way round.
    int vote(std::uint32_t face, const FaceTree& tree) {
        const Vec3d normal = normal_of(face);
        const double size = length(normal);
        if (!(size > 0) || !std::isfinite(size)) return 0;
        const Vec3d at = centre(face);
        const double reach = std::max({std::abs(at.x), std::abs(at.y), std::abs(at.z)});
        const double least =
            kLeastUnits * reach * static_cast<double>(std::numeric_limits<float>::epsilon());
        const Vec3d step = normal * (std::max(kBeside * std::sqrt(size), least) / size);
        const PointPlace front = locate(mesh_, tree, narrow(at + step), &looked_at_);
        const PointPlace back = locate(mesh_, tree, narrow(at - step), &looked_at_);
        if (front == PointPlace::Outside && back == PointPlace::Inside) return 1;
        return front == PointPlace::Inside && back == PointPlace::Outside ? -1 : 0;
    }

    int side_by_winding(const Patch& patch, std::span<const std::uint32_t> faces) const {
        // Some from everywhere are enough for most surfaces that look out.
        std::vector<std::uint32_t> some;
        std::vector<std::uint32_t> rest;
        for (std::size_t i = 0; i < faces.size(); ++i) {
            (i % kStride == 0 ? some : rest).push_back(faces[i]);
        }
        double sum = winding_of_others(patch, some);
        if (!(sum < 0)) return 0;
        sum += winding_of_others(patch, rest);
        return sum / static_cast<double>(faces.size()) < kLooksIn ? -1 : 0;
    }

    // Sum of the winding numbers that a patch has at the centres of some of its faces, each time
    // without the face itself. All at once, since fetching a face takes longer than the rest.
    double winding_of_others(const Patch& patch, std::span<const std::uint32_t> at) const {
        std::vector<Vec3d> points;
        for (const std::uint32_t face : at) points.push_back(centre(face));
        const std::span<const std::uint32_t> faces = faces_of(patch);
        const double angle = blocked_sum(faces.size(), [&](std::size_t i) {
            const Triangle t = triangle_of(mesh_, mesh_.faces[faces[i]]);
            double seen = 0;
            for (std::size_t p = 0; p < at.size(); ++p) {
                if (at[p] != faces[i]) seen += solid_angle(t, points[p]);
            }
            return result_.turned[faces[i]] != 0 ? -seen : seen;
        });
        return std::isfinite(angle) ? angle / (4 * std::numbers::pi) : 0;
    }

    // That a triangle covers as seen from behind; negative from its front.
    static double solid_angle(const Triangle& t, Vec3d from) {
        const Vec3d a = t[0] - from;
        const Vec3d b = t[1] - from;
        const Vec3d c = t[2] - from;
        const double triple = dot(a, cross(b, c));
        if (triple == 0) return 0;
        // From afar it is the area over the squared distance, to a few percent.
        const Vec3d middle = (a + b + c) / 3.0;
        const double distance = dot(middle, middle);
        const double size = std::max(dot(b - a, b - a), dot(c - a, c - a));
        if (size * kAfar < distance) return triple / (2 * distance * std::sqrt(distance));
        const double la = length(a);
        const double lb = length(b);
        const double lc = length(c);
        return 2 *
               std::atan2(triple, la * lb * lc + dot(a, b) * lc + dot(b, c) * la + dot(c, a) * lb);
    }

    // ---- helpers

    std::span<const std::uint32_t> faces_of(const Patch& patch) const {
        return std::span(faces_).subspan(patch.begin, patch.size());
    }

    void turn(const Patch& patch) {
        for (const std::uint32_t face : faces_of(patch)) result_.turned[face] ^= 1U;
    }

    // Faces by equal shares of the area.
    std::vector<std::uint32_t> samples(const Patch& patch) const {
        std::vector<std::uint32_t> picked;
        double whole = 0;
        for (const std::uint32_t face : faces_of(patch)) whole += length(normal_of(face));
        double sum = 0;
        for (const std::uint32_t face : faces_of(patch)) {
            sum += length(normal_of(face));
            const double taken = static_cast<double>(picked.size()) + 0.5;
            if (!(sum > whole / kSamples * taken)) continue;
            // A face that stands for several shares counts once for each.
            const double shares = sum / (whole / kSamples) - taken;
            const auto count = 1 + static_cast<std::size_t>(std::min<double>(shares, kSamples));
            for (std::size_t i = 0; i < count && picked.size() < kSamples; ++i) {
                picked.push_back(face);
            }
        }
        return picked;
    }

    // As the face is to stand; twice the area long.
    Vec3d normal_of(std::uint32_t face) const {
        const Triangle t = triangle_of(mesh_, mesh_.faces[face]);
        const Vec3d normal = cross(t[1] - t[0], t[2] - t[0]);
        return result_.turned[face] != 0 ? normal * -1.0 : normal;
    }

    Vec3d centre(std::uint32_t face) const {
        const Triangle t = triangle_of(mesh_, mesh_.faces[face]);
        return t[0] / 3.0 + t[1] / 3.0 + t[2] / 3.0;
    }

    static Vec3f narrow(Vec3d p) {
        return {static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)};
    }

    double volume_of(std::uint32_t shell) const {
        const Vec3d origin = centre(mesh_.shells[shell].front());
        double sum = 0;
        for (const std::uint32_t face : mesh_.shells[shell]) {
            sum += dot(centre(face) - origin, normal_of(face));
        }
        return sum / 6.0;
    }

    void summarise() {
        for (std::uint32_t shell = 0; shell < mesh_.shells.size(); ++shell) {
            std::size_t turned = 0;
            for (const std::uint32_t face : mesh_.shells[shell]) turned += result_.turned[face];
            result_.turned_count += turned;
            if (result_.shells[shell].is_oriented && turned == mesh_.shells[shell].size()) {
                result_.inside_out.push_back(shell);
            }
        }
    }

    const TriMesh& mesh_;
    const EdgeMates& mates_;
    bool keep_cavities_;
    TurnedFaces result_;
    Array<std::uint8_t> is_reached_;
    Array<std::uint32_t> faces_;          // patch after patch
    std::vector<Patch> patches_;          // shell after shell
    Array<std::uint32_t> patch_offsets_;  // of every shell
    std::uint64_t looked_at_ = 0;         // faces, by parity
};

}  // namespace

TurnedFaces find_orientation(const TriMesh& mesh, const EdgeMates& mates, bool keep_cavities) {
    return Orienter(mesh, mates, keep_cavities).run();
}

}  // namespace povmesh
