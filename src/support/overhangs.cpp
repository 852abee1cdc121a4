// Regions are connected components of flat faces over shared vertices. Tips come from a sweep over
// the vertices by height, which grows the parts of the surface below it: where two parts meet, the
// one with the higher lowest point ends there, and the climb from that point is known.
#include "support/overhangs.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>
#include <vector>

#include "base/poll.h"
#include "base/union_find.h"

namespace povmesh {
namespace {

// A smaller climb between two low places is roughness of the surface, model units.
constexpr double kLeastClimb = 0.5;
// Larger regions, in least areas, have enough outside even if other bodies hide some.
constexpr double kSmallRegion = 16;
// Lines at the vertices of a level patch that are asked whether another body holds it.
constexpr std::uint32_t kMostAsked = 64;
// Faces of a region that are asked whether another body hides them.
constexpr std::uint32_t kMostFacesAsked = 4096;

std::size_t at(std::int32_t index) {
    return static_cast<std::size_t>(index);
}

bool is_sound(const TriMesh& mesh, const Face& face) {
    return face.deleted == 0 &&
           std::all_of(face.vertex.begin(), face.vertex.end(),
                       [&](std::int32_t v) { return is_finite(mesh.vertices[at(v)].position()); });
}

// Twice the face as a vector along its normal.
Vec3d doubled_area(const TriMesh& mesh, const Face& face) {
    const Vec3d a = to_double(mesh.corner_position(face, 0));
    return cross(to_double(mesh.corner_position(face, 1)) - a,
                 to_double(mesh.corner_position(face, 2)) - a);
}

// Vertices are called by their rank in the order of height here.
class TipSearch {
public:
    TipSearch(const TriMesh& mesh, const UprightLines& lines) : mesh_(mesh), lines_(lines) {
        const std::size_t count = mesh.vertices.size();
        vertex_of_.resize(count);
        for (std::uint32_t v = 0; v < count; ++v) vertex_of_[v] = v;
        // Heights that are not numbers are not asked for; as zeros they have an order.
        const auto key = [&](std::uint32_t v) {
            const float z = mesh.vertices[v].z;
            return std::pair(std::isfinite(z) ? z : 0.0F, v);
        };
        polled_sort(vertex_of_.begin(), vertex_of_.end(),
                    [&](std::uint32_t a, std::uint32_t b) { return key(a) < key(b); });
        rank_.resize(count);
        for (std::uint32_t r = 0; r < count; ++r) {
            poll_at(r);
            rank_[vertex_of_[r]] = r;
        }
        patches_ = UnionFind(count);
        find_lower_neighbours();
    }

    Array<Tip> run(const Array<std::uint32_t>& region_of_face) {
        const Array<std::uint32_t> lowest = sweep();
        Array<Tip> tips;
        gather_patches(lowest, region_of_face);
        for (const std::uint32_t r : lowest) {
            const Patch& patch = patches_found_[number_[r]];
            if (!(patch.facing < 0) || !patch.is_free) continue;
            tips.push_back({middle_of(patch), patch.region, patch.count});
        }
        return tips;
    }

private:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    // Vertices of one height around a lowest point.
    struct Patch {
        std::uint32_t count = 0;
        Vec3d sum;
        double facing = 0;  // of its faces: below 0 when they look down
        std::uint32_t region = kNoRegion;
        bool is_free = true;  // no part of it lies inside another body
        double nearest = std::numeric_limits<double>::infinity();
        Vec3d middle;  // the vertex nearest to the mean of all
    };

    // For each face its lowest corner at the two others.
    void find_lower_neighbours() {
        offsets_.assign(vertex_of_.size() + 2, 0);
        const auto for_pairs = [this](auto&& visit) {
            Poller poller;
            for (const Face& face : mesh_.faces) {
                poller();
                if (!is_sound(mesh_, face)) continue;
                std::array<std::uint32_t, 3> ranks{};
                for (std::size_t i = 0; i < 3; ++i) ranks[i] = rank_[at(face.vertex[i])];
                std::sort(ranks.begin(), ranks.end());
                visit(ranks[1], ranks[0]);
                visit(ranks[2], ranks[1]);
            }
        };
        is_used_.assign(vertex_of_.size(), 0);
        for_pairs([this](std::uint32_t high, std::uint32_t low) {
            ++offsets_[high + 2];
            is_used_[high] = is_used_[low] = 1;
        });
        for (std::size_t i = 2; i < offsets_.size(); ++i) offsets_[i] += offsets_[i - 1];
        lower_.resize(offsets_.back());
        for_pairs(
            [this](std::uint32_t high, std::uint32_t low) { lower_[offsets_[high + 1]++] = low; });
    }

    double height(std::uint32_t rank) const { return double{mesh_.vertices[vertex_of_[rank]].z}; }

    // The lowest points from which there is a climb, by rank.
    Array<std::uint32_t> sweep() {
        UnionFind parts(vertex_of_.size());  // the lowest rank of each stands for it
        Array<std::uint32_t> found;
        for (std::uint32_t r = 0; r < vertex_of_.size(); ++r) {
            poll_at(r);
            for (std::uint32_t i = offsets_[r]; i < offsets_[r + 1]; ++i) {
                const std::uint32_t a = parts.find(lower_[i]);
                const std::uint32_t b = parts.find(r);
                if (height(lower_[i]) == height(r)) patches_.unite(lower_[i], r);
                if (a == b) continue;
                const std::uint32_t ends = std::max(a, b);
                if (height(r) - height(ends) >= kLeastClimb) found.push_back(ends);
                parts.unite(a, b);
            }
        }
        for (std::uint32_t r = 0; r < vertex_of_.size(); ++r) {
            poll_at(r);
            if (is_used_[r] != 0 && parts.find(r) == r) found.push_back(r);
        }
        std::sort(found.begin(), found.end());
        return found;
    }

    void gather_patches(const Array<std::uint32_t>& lowest,
                        const Array<std::uint32_t>& region_of_face) {
        number_.assign(vertex_of_.size(), kNone);
        for (std::uint32_t i = 0; i < lowest.size(); ++i) number_[lowest[i]] = i;
        for (std::uint32_t r = 0; r < number_.size(); ++r) number_[r] = number_[patches_.find(r)];
        patches_found_.assign(lowest.size(), {});
        const auto position = [this](std::uint32_t r) {
            return to_double(mesh_.vertices[vertex_of_[r]].position());
        };
        const auto for_members = [this](auto&& visit) {
            for (std::uint32_t r = 0; r < number_.size(); ++r) {
                if (number_[r] != kNone) visit(r, patches_found_[number_[r]]);
            }
        };
        for_members([&](std::uint32_t r, Patch& patch) {
            ++patch.count;
            patch.sum = patch.sum + position(r);
        });
        for_members([&](std::uint32_t r, Patch& patch) {
            const Vec3d p = position(r);
            const double far = length(p - patch.sum / patch.count);
            if (far < patch.nearest) {
                patch.nearest = far;
                patch.middle = p;
            }
            // Every so manyth, when there are many.
            const std::uint32_t step = patch.count / kMostAsked + 1;
            if (patch.is_free && r % step == 0) patch.is_free = lines_.look_down(p).is_outside;
        });
        for (std::size_t f = 0; f < mesh_.faces.size(); ++f) {
            poll_at(f);
            const Face& face = mesh_.faces[f];
            if (!is_sound(mesh_, face)) continue;
            const Vec3d normal = doubled_area(mesh_, face);
            for (const std::int32_t v : face.vertex) {
                const std::uint32_t number = number_[rank_[at(v)]];
                if (number == kNone) continue;
                Patch& patch = patches_found_[number];
                patch.facing += normal.z;
                patch.region = std::min(patch.region, region_of_face[f]);
            }
        }
    }

    // The mean of the patch where that lies on the surface, else a vertex.
    Vec3d middle_of(const Patch& patch) const {
        const Vec3d mean = patch.sum / patch.count;
        const bool is_on_it = lines_.visit_crossings(mean.x, mean.y, [&](const auto& crossing) {
            return crossing.way < 0 && std::abs(crossing.z - mean.z) < 1e-3 * kLeastClimb;
        });
        return is_on_it ? mean : patch.middle;
    }

    const TriMesh& mesh_;
    const UprightLines& lines_;
    Array<std::uint32_t> vertex_of_;  // by rank
    Array<std::uint32_t> rank_;       // by vertex
    Array<std::uint8_t> is_used_;     // by rank
    Array<std::uint32_t> offsets_;    // by rank
    Array<std::uint32_t> lower_;      // ranks of neighbours
    UnionFind patches_;               // of ranks at one height that hang together
    Array<std::uint32_t> number_;     // by rank: of its patch among those found
    std::vector<Patch> patches_found_;
};

void find_regions(const TriMesh& mesh, double degrees, Overhangs& overhangs) {
    // A little more than asked, for the rounding of normals.
    const double least = std::cos((degrees + 1e-3) * std::numbers::pi / 180);
    UnionFind vertices(mesh.vertices.size());
    Array<double> areas(mesh.faces.size());
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        const Face& face = mesh.faces[f];
        areas[f] = 0;
        if (!is_sound(mesh, face)) continue;
        const Vec3d normal = doubled_area(mesh, face);
        if (!(normal.z < 0) || !(-normal.z >= least * length(normal))) continue;
        areas[f] = -normal.z / 2;
        for (const std::int32_t v : face.vertex) {
            vertices.unite(static_cast<std::uint32_t>(face.vertex[0]),
                           static_cast<std::uint32_t>(v));
        }
    }
    Array<std::uint32_t> region_of_vertex;
    region_of_vertex.assign(mesh.vertices.size(), kNoRegion);
    overhangs.region_of_face.assign(mesh.faces.size(), kNoRegion);
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        if (!(areas[f] > 0)) continue;
        std::uint32_t& region =
            region_of_vertex[vertices.find(static_cast<std::uint32_t>(mesh.faces[f].vertex[0]))];
        if (region == kNoRegion) {
            region = static_cast<std::uint32_t>(overhangs.areas.size());
            overhangs.areas.push_back(0);
        }
        overhangs.region_of_face[f] = region;
        overhangs.areas[region] += areas[f];
    }
}

// Of regions small enough for it to matter, the area that lies inside another body goes, face by
// face; where they are many, by the share of some.
void drop_hidden_area(const TriMesh& mesh, const UprightLines& lines, double least_area,
                      Overhangs& overhangs) {
    const std::size_t count = overhangs.areas.size();
    Array<std::uint32_t> face_count(count, 0);
    Poller poller;
    for (const std::uint32_t region : overhangs.region_of_face) {
        poller();
        if (region != kNoRegion) ++face_count[region];
    }
    Array<std::uint32_t> passed(count, 0);
    Array<double> asked_area(count, 0.0);
    Array<double> hidden_area(count, 0.0);
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        const std::uint32_t region = overhangs.region_of_face[f];
        if (region == kNoRegion || overhangs.areas[region] < least_area ||
            overhangs.areas[region] > kSmallRegion * least_area ||
            passed[region]++ % (face_count[region] / kMostFacesAsked + 1) != 0) {
            continue;
        }
        const double area = -doubled_area(mesh, mesh.faces[f]).z / 2;
        asked_area[region] += area;
        Vec3d middle;
        for (std::size_t i = 0; i < 3; ++i) {
            middle = middle + to_double(mesh.corner_position(mesh.faces[f], i)) / 3.0;
        }
        if (!lines.look_down(middle).is_outside) hidden_area[region] += area;
    }
    for (std::size_t region = 0; region < count; ++region) {
        if (!(hidden_area[region] > 0)) continue;
        overhangs.areas[region] *= 1 - hidden_area[region] / asked_area[region];
    }
}

}  // namespace

Overhangs find_overhangs(const TriMesh& mesh, const UprightLines& lines, double degrees,
                         double least_area) {
    Overhangs overhangs;
    overhangs.least_area = least_area;
    find_regions(mesh, degrees, overhangs);
    drop_hidden_area(mesh, lines, least_area, overhangs);
    overhangs.tips = TipSearch(mesh, lines).run(overhangs.region_of_face);
    overhangs.has_tip.assign(overhangs.areas.size(), 0);
    for (const Tip& tip : overhangs.tips) {
        if (tip.region != kNoRegion) overhangs.has_tip[tip.region] = 1;
    }
    return overhangs;
}

}  // namespace povmesh
