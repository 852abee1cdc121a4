#include "design/lampshade_ends.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>

#include "base/convert.h"
#include "base/poll.h"
#include "base/vec.h"

namespace povmesh {
namespace {

// Share of the height that an end may be uneven by.
constexpr double kFlat = 1e-4;

double area_from_above(const TriMesh& mesh, const Face& face) {
    const Vec3d a = to_double(mesh.corner_position(face, 0));
    const Vec3d b = to_double(mesh.corner_position(face, 1));
    const Vec3d c = to_double(mesh.corner_position(face, 2));
    return cross(b - a, c - a).z / 2;
}

}  // namespace

bool FlatEnds::has_drawn(bool is_top) const {
    return std::any_of(parts.begin(), parts.end(),
                       [&](const EndPart& part) { return part.is_drawn && part.is_top == is_top; });
}

bool FlatEnds::leave(bool is_top) {
    const bool had = has_drawn(is_top);
    for (EndPart& part : parts) part.is_drawn = part.is_drawn && part.is_top != is_top;
    return had;
}

FlatEnds find_flat_ends(const TriMesh& mesh, const EdgeMates& mates, double least_area) {
    FlatEnds ends;
    ends.low = std::numeric_limits<double>::infinity();
    ends.high = -ends.low;
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        for (std::size_t c = 0; face.deleted == 0 && c < 3; ++c) {
            const auto z = static_cast<double>(mesh.corner_position(face, c).z);
            ends.low = std::min(ends.low, z);
            ends.high = std::max(ends.high, z);
        }
    }
    const double near = kFlat * (ends.high - ends.low);
    const auto lies_in = [&](std::size_t f, bool is_top) {
        const Face& face = mesh.faces[f];
        for (std::size_t c = 0; c < 3; ++c) {
            const auto z = static_cast<double>(mesh.corner_position(face, c).z);
            if (is_top ? z < ends.high - near : z > ends.low + near) return false;
        }
        return face.deleted == 0;
    };
    ends.part_of.assign(mesh.faces.size(), FlatEnds::kNone);
    std::vector<std::uint32_t> reached;
    for (std::uint32_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        const bool is_top = lies_in(f, true);
        if (ends.part_of[f] != FlatEnds::kNone || !(is_top || lies_in(f, false))) continue;
        EndPart part{is_top, true, 0};
        const auto number = fits<std::uint32_t>(ends.parts.size());
        reached.assign(1, f);
        ends.part_of[f] = number;
        for (std::size_t next = 0; next < reached.size(); ++next) {
            const std::uint32_t face = reached[next];
            part.area += (is_top ? 1 : -1) * area_from_above(mesh, mesh.faces[face]);
            for (std::size_t e = 0; e < 3; ++e) {
                if (mates.kind(face, e) != EdgeMates::Kind::Manifold) continue;
                const std::uint32_t mate = mates.mate(face, e);
                if (ends.part_of[mate] != FlatEnds::kNone || !lies_in(mate, is_top)) continue;
                ends.part_of[mate] = number;
                reached.push_back(mate);
            }
        }
        part.is_drawn = part.area >= least_area;
        ends.parts.push_back(part);
    }
    return ends;
}

TriMesh draw_out(const TriMesh& mesh, const EdgeMates& mates, const FlatEnds& ends, double by) {
    TriMesh drawn;
    drawn.vertices = mesh.vertices;
    drawn.texture_coordinates = mesh.texture_coordinates;
    drawn.faces.reserve(mesh.faces.size());
    std::vector<std::uint32_t> removed;
    for (std::uint32_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        if (ends.is_drawn(f)) {
            removed.push_back(f);
        } else if (mesh.faces[f].deleted == 0) {
            drawn.faces.push_back(mesh.faces[f]);
        }
    }
    // A vertex at which two parts meet has a copy for each.
    std::unordered_map<std::uint64_t, std::int32_t> copies;
    const auto copy_of = [&](std::int32_t vertex, std::uint32_t part) {
        const std::uint64_t key =
            static_cast<std::uint64_t>(part) << 32 | static_cast<std::uint32_t>(vertex);
        const auto [place, is_new] =
            copies.try_emplace(key, static_cast<std::int32_t>(drawn.vertices.size()));
        if (is_new) {
            Vertex copy = mesh.vertices[static_cast<std::size_t>(vertex)];
            copy.z = static_cast<float>(copy.z + (ends.parts[part].is_top ? by : -by));
            copy.index = place->second;
            drawn.vertices.push_back(copy);
        }
        return place->second;
    };
    const auto add = [&](Face face, std::int32_t a, std::int32_t b, std::int32_t c) {
        face.label = -1;
        face.uv.fill(-1);
        face.vertex = {a, b, c};
        drawn.faces.push_back(face);
    };
    for (const std::uint32_t f : removed) {
        const Face& face = mesh.faces[f];
        const std::uint32_t part = ends.part_of[f];
        std::array<std::int32_t, 3> far{};
        for (std::size_t c = 0; c < 3; ++c) far[c] = copy_of(face.vertex[c], part);
        add(face, far[0], far[1], far[2]);
        for (std::size_t e = 0; e < 3; ++e) {
            const bool is_inner = mates.kind(f, e) == EdgeMates::Kind::Manifold &&
                                  ends.part_of[mates.mate(f, e)] == part;
            if (is_inner) continue;
            const std::size_t n = next_corner(e);
            add(face, face.vertex[e], face.vertex[n], far[n]);
            add(face, face.vertex[e], far[n], far[e]);
        }
    }
    return drawn;
}

}  // namespace povmesh
