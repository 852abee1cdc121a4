// Splits faces at a plane. Each vertex gets a sign once (in front, on, behind), and each crossing
// edge one point, so that the two sides share vertices bit for bit; from then on all decisions are
// combinatorial. The rim is what remains of the edges on the plane when those of the faces of one
// side cancel out.
#include "cut/plane_split.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

#include "base/parallel.h"
#include "base/poll.h"
#include "base/union_find.h"
#include "mesh/bounds.h"

namespace povmesh {
namespace {

constexpr double kSnap = 1e-5;
// Two units in the last place of a float, relative to it: a made point, which is rounded by less
// than one, can then never fall onto a vertex beside the plane.
constexpr double kRounding = 0x1p-22;

// The sign of a vertex that has no distance.
constexpr std::int8_t kNowhere = 2;

double snap_distance(const TriMesh& model, double on_level) {
    const Box3f box = finite_bounds(model);
    if (box.is_empty()) return 0;
    const Vec3d low = to_double(box.low);
    const Vec3d high = to_double(box.high);
    const Vec3d extent = high - low;
    const double largest = std::max({std::abs(low.x), std::abs(low.y), std::abs(low.z),
                                     std::abs(high.x), std::abs(high.y), std::abs(high.z)});
    const double near = std::min(std::max({extent.x, extent.y, extent.z}) * kSnap, on_level);
    return std::max(near, largest * kRounding);
}

// Numbers vertices and texture coordinates of a side as they come up.
class SideBuilder {
public:
    SideBuilder(const CutPoints& points, std::size_t face_count, std::size_t point_count)
        : points_(points), number_(points.size(), -1) {
        mesh_.faces.reserve(face_count);
        mesh_.vertices.reserve(point_count);
        used_.reserve(point_count);
    }

    void add(Face face, const std::array<std::array<double, 2>, 3>* texture = nullptr) {
        const auto& [a, b, c] = face.vertex;
        if (a == b || b == c || c == a) return;
        for (std::int32_t& v : face.vertex) v = number(v);
        face.uv.fill(-1);
        for (std::size_t i = 0; texture != nullptr && i < 3; ++i) {
            face.uv[i] = static_cast<std::int32_t>(mesh_.texture_coordinates.size());
            mesh_.texture_coordinates.push_back({(*texture)[i][0], (*texture)[i][1], face.uv[i]});
        }
        mesh_.faces.push_back(face);
    }

    PlaneSplit::SideMesh take() { return {std::move(mesh_), std::move(used_)}; }

private:
    std::int32_t number(std::int32_t point) {
        std::int32_t& number = number_[static_cast<std::size_t>(point)];
        if (number < 0) {
            number = static_cast<std::int32_t>(mesh_.vertices.size());
            const Vec3f p = points_.rounded(point);
            used_.push_back(point);
            mesh_.vertices.push_back({p.x, p.y, p.z, number});
        }
        return number;
    }

    const CutPoints& points_;
    Array<std::int32_t> number_;  // by point
    Array<std::int32_t> used_;
    TriMesh mesh_;
};

std::array<double, 2> texture_at(const TriMesh& model, std::int32_t uv) {
    if (uv < 0 || static_cast<std::size_t>(uv) >= model.texture_coordinates.size()) return {0, 0};
    const TextureCoordinate& record = model.texture_coordinates[static_cast<std::size_t>(uv)];
    return {record.u, record.v};
}

std::array<std::uint8_t, 3> corner_colour(const Face& face, std::size_t corner) {
    return {face.colour[corner * 3], face.colour[corner * 3 + 1], face.colour[corner * 3 + 2]};
}

}  // namespace

PlaneSplit::PlaneSplit(const TriMesh& model, const PlaneFrame& frame, double on_level)
    : model_(model), points_(model) {
    find_signs(frame, on_level);
    sort_faces(frame);
    if (!divides()) return;
    make_points(frame);
    merge_points();
}

void PlaneSplit::find_signs(const PlaneFrame& frame, double on_level) {
    const double snap = snap_distance(model_, on_level);
    signs_.resize(model_.vertices.size());
    parallel_for(signs_.size(), [&](std::size_t v) {
        const double distance = frame.distance(to_double(model_.vertices[v].position()));
        signs_[v] = !std::isfinite(distance)     ? kNowhere
                    : std::abs(distance) <= snap ? std::int8_t{0}
                    : distance > 0               ? std::int8_t{1}
                                                 : std::int8_t{-1};
    });
}

PlaneSplit::Kind PlaneSplit::kind_of(const Face& face, const PlaneFrame& frame) const {
    if (face.deleted != 0) return Kind::Left;
    const int a = sign(face.vertex[0]);
    const int b = sign(face.vertex[1]);
    const int c = sign(face.vertex[2]);
    const bool is_finite_face = a != kNowhere && b != kNowhere && c != kNowhere;
    const bool has_back = a < 0 || b < 0 || c < 0;
    const bool has_front = a == 1 || b == 1 || c == 1;
    if (has_front && has_back && is_finite_face) return Kind::Split;
    if (has_front) return Kind::Front;
    if (has_back || !is_finite_face) return Kind::Back;
    const auto flat = [&](std::size_t corner) {
        return frame.flat(to_double(model_.corner_position(face, corner)));
    };
    return orient2d(flat(0), flat(1), flat(2)) > 0 ? Kind::Front : Kind::Back;
}

void PlaneSplit::sort_faces(const PlaneFrame& frame) {
    kinds_.resize(model_.faces.size());
    for (std::size_t f = 0; f < kinds_.size(); ++f) {
        poll_at(f);
        const Kind kind = kinds_[f] = kind_of(model_.faces[f], frame);
        face_count_[0] += kind == Kind::Front || kind == Kind::Split ? 1 : 0;
        face_count_[1] += kind == Kind::Back || kind == Kind::Split ? 1 : 0;
        if (kind == Kind::Split) splits_.push_back({static_cast<std::uint32_t>(f), {-1, -1, -1}});
    }
    touches_ = std::find(signs_.begin(), signs_.end(), 0) != signs_.end();
}

// One point for each edge that crosses the plane, computed from its lower vertex number to the
// higher, so that it does not depend on the face.
void PlaneSplit::make_points(const PlaneFrame& frame) {
    Array<Crossing> crossings;
    for (std::size_t s = 0; s < splits_.size(); ++s) {
        const Face& face = model_.faces[splits_[s].face];
        for (std::size_t i = 0; i < 3; ++i) {
            const std::int32_t p = face.vertex[i];
            const std::int32_t q = face.vertex[next_corner(i)];
            if (sign(p) * sign(q) < 0) {
                crossings.push_back({edge_key(p, q), static_cast<std::uint32_t>(s * 3 + i)});
            }
        }
    }
    polled_sort(crossings.begin(), crossings.end(), [](const Crossing& a, const Crossing& b) {
        return a.key != b.key ? a.key < b.key : a.slot < b.slot;
    });
    for (std::size_t i = 0; i < crossings.size(); ++i) {
        const Crossing& crossing = crossings[i];
        if (i == 0 || crossing.key != crossings[i - 1].key) {
            const Vec3d p = points_.exact(static_cast<std::int32_t>(crossing.key >> 32));
            const Vec3d q = points_.exact(static_cast<std::int32_t>(crossing.key & 0xFFFFFFFF));
            const double from = frame.distance(p);
            const double share = from / (from - frame.distance(q));
            points_.add(p + (q - p) * share);
            shares_.push_back(share);
        }
        splits_[crossing.slot / 3].on_side[crossing.slot % 3] =
            static_cast<std::int32_t>(points_.size() - 1);
    }
}

// Points of the plane that rounding has brought to one place become one point, as welding would
// make them, so that the rim is traced as the pieces will have it.
void PlaneSplit::merge_points() {
    const auto first = static_cast<std::int32_t>(points_.model_size());
    Array<std::int32_t> order;
    for (std::size_t v = 0; v < signs_.size(); ++v) {
        if (signs_[v] == 0) order.push_back(static_cast<std::int32_t>(v));
    }
    for (std::size_t i = 0; i < shares_.size(); ++i) {
        merged_.push_back(first + static_cast<std::int32_t>(i));
        order.push_back(merged_.back());
    }
    const auto key = [this](std::int32_t point) {
        const Vec3f p = points_.rounded(point);
        return std::make_tuple(p.x, p.y, p.z, point);
    };
    polled_sort(order.begin(), order.end(),
                [&](std::int32_t a, std::int32_t b) { return key(a) < key(b); });
    std::int32_t kept = -1;
    for (const std::int32_t point : order) {
        if (kept >= 0 && point >= first && points_.rounded(point) == points_.rounded(kept)) {
            merged_[static_cast<std::size_t>(point - first)] = kept;
        } else {
            kept = point;
        }
    }
}

// A corner alone on its side gives a triangle there and two on the other; with a corner on the
// plane, there is a triangle on each side.
PlaneSplit::Pieces PlaneSplit::pieces_of(const SplitFace& split) const {
    const Face& face = model_.faces[split.face];
    const std::array<int, 3> signs = {sign(face.vertex[0]), sign(face.vertex[1]),
                                      sign(face.vertex[2])};
    const auto side_of = [&](std::size_t corner) {
        return signs[corner] > 0 ? PlaneSide::Front : PlaneSide::Back;
    };
    Pieces pieces;
    std::size_t a = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        const int others = signs[next_corner(i)] * signs[previous_corner(i)];
        if (signs[i] == 0 || (others > 0 && signs[i] * signs[next_corner(i)] < 0)) a = i;
    }
    const auto corner = [](std::size_t i) {
        return PieceCorner{static_cast<std::uint8_t>(i), false};
    };
    const auto made = [](std::size_t i) { return PieceCorner{static_cast<std::uint8_t>(i), true}; };
    const PieceCorner p = corner(next_corner(a));
    const PieceCorner q = corner(previous_corner(a));
    if (signs[a] == 0) {
        const PieceCorner x = made(next_corner(a));
        pieces.add(side_of(next_corner(a)), corner(a), p, x);
        pieces.add(side_of(previous_corner(a)), corner(a), x, q);
        pieces.rim = {x, corner(a)};
        if (side_of(next_corner(a)) == PlaneSide::Back) std::swap(pieces.rim[0], pieces.rim[1]);
        return pieces;
    }
    const PieceCorner x = made(a);
    const PieceCorner y = made(previous_corner(a));
    pieces.add(side_of(a), corner(a), x, y);
    const auto square = [&](PieceCorner from, PieceCorner to) {
        const Vec3d d = points_.exact(point_of(split, to)) - points_.exact(point_of(split, from));
        return dot(d, d);
    };
    const PlaneSide other = side_of(next_corner(a));
    if (square(x, q) < square(p, y)) {
        pieces.add(other, x, p, q);
        pieces.add(other, x, q, y);
    } else {
        pieces.add(other, x, p, y);
        pieces.add(other, p, q, y);
    }
    pieces.rim = {x, y};
    if (side_of(a) == PlaneSide::Back) std::swap(pieces.rim[0], pieces.rim[1]);
    return pieces;
}

std::int32_t PlaneSplit::point_of(const SplitFace& split, PieceCorner corner) const {
    if (!corner.is_made) return model_.faces[split.face].vertex[corner.index];
    const auto made = static_cast<std::size_t>(split.on_side[corner.index]);
    return merged_[made - points_.model_size()];
}

// How far along a side of the face the point on it lies.
double PlaneSplit::share_of(const SplitFace& split, std::size_t side) const {
    const Face& face = model_.faces[split.face];
    const auto made = static_cast<std::size_t>(split.on_side[side]);
    const double share = shares_[made - points_.model_size()];
    return face.vertex[side] < face.vertex[next_corner(side)] ? share : 1.0 - share;
}

std::array<std::uint8_t, 3> PlaneSplit::colour_of(const SplitFace& split,
                                                  PieceCorner corner) const {
    const Face& face = model_.faces[split.face];
    const std::size_t i = corner.index;
    std::array<std::uint8_t, 3> colour{};
    const double share = corner.is_made ? share_of(split, i) : 0;
    for (std::size_t channel = 0; channel < 3; ++channel) {
        const double from = face.colour[i * 3 + channel];
        const double to = face.colour[next_corner(i) * 3 + channel];
        colour[channel] = saturate_to<std::uint8_t>(from + (to - from) * share + 0.5);
    }
    return colour;
}

std::array<double, 2> PlaneSplit::texture_of(const SplitFace& split, PieceCorner corner) const {
    const Face& face = model_.faces[split.face];
    const std::array<double, 2> from = texture_at(model_, face.uv[corner.index]);
    if (!corner.is_made) return from;
    const std::array<double, 2> to = texture_at(model_, face.uv[next_corner(corner.index)]);
    const double share = share_of(split, corner.index);
    // As floats, which is what a host's soup can carry.
    const auto between = [share](double a, double b) {
        return static_cast<double>(narrow_to_float(a + (b - a) * share));
    };
    return {between(from[0], to[0]), between(from[1], to[1])};
}

Array<PlaneSplit::WallEdge> PlaneSplit::wall_edges(
    std::span<const std::uint32_t> group_of_face) const {
    Array<WallEdge> edges;
    const auto add = [&](std::int32_t from, std::int32_t to, std::size_t face, bool is_front,
                         const std::array<std::uint16_t, 3>& colour) {
        const std::uint32_t group = group_of_face.empty() ? 0 : group_of_face[face];
        if (from != to) edges.push_back({edge_key(from, to), group, is_front, from < to, colour});
    };
    const auto total = [](const auto& a, const auto& b) {
        std::array<std::uint16_t, 3> sum{};
        for (std::size_t i = 0; i < 3; ++i) sum[i] = static_cast<std::uint16_t>(a[i] + b[i]);
        return sum;
    };
    for (const SplitFace& split : splits_) {
        const Pieces pieces = pieces_of(split);
        const std::int32_t from = point_of(split, pieces.rim[0]);
        const std::int32_t to = point_of(split, pieces.rim[1]);
        const auto colour = total(colour_of(split, pieces.rim[0]), colour_of(split, pieces.rim[1]));
        add(from, to, split.face, true, colour);
        add(to, from, split.face, false, colour);
    }
    for (std::size_t f = 0; touches_ && f < kinds_.size(); ++f) {
        poll_at(f);
        if (kinds_[f] != Kind::Back && kinds_[f] != Kind::Front) continue;
        const Face& face = model_.faces[f];
        for (std::size_t i = 0; i < 3; ++i) {
            const std::int32_t from = face.vertex[i];
            const std::int32_t to = face.vertex[next_corner(i)];
            if (sign(from) != 0 || sign(to) != 0) continue;
            add(from, to, f, kinds_[f] == Kind::Front,
                total(corner_colour(face, i), corner_colour(face, next_corner(i))));
        }
    }
    return edges;
}

// Where the faces in front at an edge do not make up for one another, and those at the back do not
// either, the // sides come apart.
Array<RimEdge> PlaneSplit::trace_rim(std::span<const std::uint32_t> group_of_face) {
    Array<WallEdge> edges = wall_edges(group_of_face);
    std::stable_sort(edges.begin(), edges.end(), [](const WallEdge& a, const WallEdge& b) {
        return std::tuple(a.group, a.key, b.is_front) < std::tuple(b.group, b.key, a.is_front);
    });
    Array<RimEdge> rim;
    for (std::size_t i = 0; i < edges.size();) {
        const WallEdge& first = edges[i];
        std::array<int, 2> excess{};  // front, back
        for (; i < edges.size() && edges[i].key == first.key && edges[i].group == first.group;
             ++i) {
            excess[edges[i].is_front ? 0 : 1] += edges[i].is_rising ? 1 : -1;
        }
        const auto low = static_cast<std::int32_t>(first.key >> 32);
        const auto high = static_cast<std::int32_t>(first.key & 0xFFFFFFFF);
        // The cap runs against the wall.
        const RimEdge edge = excess[0] < 0 ? RimEdge{low, high, first.group, first.colour}
                                           : RimEdge{high, low, first.group, first.colour};
        const int count = std::min(std::abs(excess[0]), std::abs(excess[1]));
        for (int k = 0; k < count; ++k) rim.push_back(edge);
    }
    count_walls(edges);
    return rim;
}

// By key alone: a cap meets the faces of all groups.
void PlaneSplit::count_walls(Array<WallEdge>& edges) {
    const auto by_key = [](const WallEdge& a, const WallEdge& b) { return a.key < b.key; };
    if (!std::is_sorted(edges.begin(), edges.end(), by_key)) {
        std::sort(edges.begin(), edges.end(), by_key);
    }
    walls_.clear();
    for (std::size_t i = 0; i < edges.size();) {
        const std::uint64_t key = edges[i].key;
        std::array<std::uint32_t, 2> count{};
        for (; i < edges.size() && edges[i].key == key; ++i) ++count[edges[i].is_front ? 1 : 0];
        walls_.push_back({key, std::max(count[0], count[1])});
    }
}

bool PlaneSplit::is_connected(PlaneSide side, const EdgeMates& mates) const {
    const Kind whole = side == PlaneSide::Back ? Kind::Back : Kind::Front;
    const int own_sign = side == PlaneSide::Front ? 1 : -1;
    const auto is_here = [&](std::size_t face) {
        return kinds_[face] == whole || kinds_[face] == Kind::Split;
    };
    // An edge on the plane joins faces that are both here; any other must reach to this side, which
    // those of a face that is not split do.
    const bool has_nowhere = std::find(signs_.begin(), signs_.end(), kNowhere) != signs_.end();
    const auto reaches = [&](std::size_t f, std::size_t edge) {
        if (kinds_[f] == whole && !has_nowhere) return true;
        const int from = sign(model_.faces[f].vertex[edge]);
        const int to = sign(model_.faces[f].vertex[next_corner(edge)]);
        return from == own_sign || to == own_sign || (from == 0 && to == 0);
    };
    // In the order of the faces: a search from face to face would go all over the memory.
    UnionFind sets(kinds_.size());
    std::size_t apart = face_count(side);
    for (std::uint32_t f = 0; f < kinds_.size(); ++f) {
        poll_at(f);
        if (!is_here(f)) continue;
        for (std::size_t edge = 0; edge < 3; ++edge) {
            if (mates.kind(f, edge) != EdgeMates::Kind::Manifold) continue;
            const std::uint32_t mate = mates.mate(f, edge);
            if (mate >= f || !is_here(mate) || !reaches(f, edge)) continue;
            const std::uint32_t a = sets.find(f);
            const std::uint32_t b = sets.find(mate);
            if (a == b) continue;
            sets.unite(a, b);
            --apart;
        }
    }
    return apart <= 1;
}

// Points that the faces of a side and its cap may have.
std::size_t PlaneSplit::most_points(PlaneSide side) const {
    const std::int8_t other = side == PlaneSide::Front ? -1 : 1;
    const auto beyond = std::count(signs_.begin(), signs_.end(), other);
    return points_.size() - static_cast<std::size_t>(beyond);
}

PlaneSplit::SideMesh PlaneSplit::side_mesh(PlaneSide side, const Array<CapFace>& caps) const {
    SideBuilder builder(points_, face_count(side) + splits_.size() + caps.size(),
                        most_points(side));
    const Kind whole = side == PlaneSide::Back ? Kind::Back : Kind::Front;
    std::size_t next_split = 0;
    std::array<std::array<double, 2>, 3> texture{};
    const bool has_texture = !model_.texture_coordinates.empty();
    for (std::size_t f = 0; f < kinds_.size(); ++f) {
        poll_at(f);
        const Face& face = model_.faces[f];
        const bool is_textured = has_texture && face.label >= 0;
        if (kinds_[f] == whole) {
            if (is_textured) {
                for (std::size_t i = 0; i < 3; ++i) texture[i] = texture_at(model_, face.uv[i]);
            }
            builder.add(face, is_textured ? &texture : nullptr);
        } else if (kinds_[f] == Kind::Split) {
            const SplitFace& split = splits_[next_split++];
            const Pieces pieces = pieces_of(split);
            for (std::size_t k = 0; k < pieces.count; ++k) {
                if (pieces.side[k] != side) continue;
                Face piece = face;
                for (std::size_t i = 0; i < 3; ++i) {
                    const PieceCorner corner = pieces.corners[k][i];
                    piece.vertex[i] = point_of(split, corner);
                    const auto colour = colour_of(split, corner);
                    std::copy(colour.begin(), colour.end(),
                              piece.colour.begin() + 3 * static_cast<std::ptrdiff_t>(i));
                    if (is_textured) texture[i] = texture_of(split, corner);
                }
                builder.add(piece, is_textured ? &texture : nullptr);
            }
        }
    }
    for (const CapFace& cap : caps) {
        Face face{};
        for (std::size_t i = 0; i < 9; ++i) face.colour[i] = cap.colour[i % 3];
        face.label = -1;
        face.vertex = cap.point;
        if (side == PlaneSide::Back) std::swap(face.vertex[0], face.vertex[1]);
        builder.add(face);
    }
    return builder.take();
}

}  // namespace povmesh
