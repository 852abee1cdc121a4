// Splits the faces near the bore at the planes of its sides, one after another, as a convex prism
// is clipped; what is in front of all of them is taken out. The rim that this leaves is shared out
// among the sides and the edges between them, closed along those edges and filled side by side.
#include "cut/bore.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <numbers>
#include <optional>
#include <utility>
#include <vector>

#include "base/poll.h"
#include "cut/cap.h"
#include "cut/cut_points.h"
#include "cut/plane_frame.h"
#include "mesh/bounds.h"

namespace povmesh {
namespace {

using Weights = std::array<double, 3>;  // of the corners of a face

// A part of a face.
struct Piece {
    std::uint32_t face;
    std::array<std::int32_t, 3> point;
    std::array<Weights, 3> weights;
    bool is_whole;  // nothing was split off yet
};

// An edge of the rim that lies on several sides: along an edge of the bore.
struct CornerEdge {
    std::uint64_t key;
    int rising;  // how often from the lower number to the higher one, less how often back
};

std::int32_t low_end(std::uint64_t key) {
    return static_cast<std::int32_t>(key >> 32);
}
std::int32_t high_end(std::uint64_t key) {
    return static_cast<std::int32_t>(key & 0xFFFFFFFF);
}

struct SplitEdge {
    std::uint64_t key;
    std::int32_t point;
    double share;  // of the way from the point of the lower number
};

Weights between(const Weights& a, const Weights& b, double share) {
    Weights result;
    for (std::size_t i = 0; i < 3; ++i) result[i] = a[i] + (b[i] - a[i]) * share;
    return result;
}

class Borer {
public:
    Borer(const TriMesh& model, const Bore& bore) : model_(model), bore_(bore), points_(model) {
        make_sides();
        const Box3f bounds = finite_bounds(model);
        snap_ = 2e-3 * bore.radius;
        for (const Vec3f p : {bounds.low, bounds.high}) {
            for (const float x : {p.x, p.y, p.z}) {
                snap_ = std::max(snap_, std::abs(static_cast<double>(x)) * 0x1p-22);
            }
        }
    }

    BoreOutcome run() {
        gather_pieces();
        for (std::size_t side = 0; side < sides_.size() && !inner_.empty(); ++side) split(side);
        if (inner_.empty()) return BoreOutcome::Missed;
        if (!trace_rim() || !close_walls() || !fill_walls()) return BoreOutcome::NotSolid;
        return BoreOutcome::Done;
    }

    // The model without the bore; after a run that is Done.
    TriMesh result() const;

private:
    static std::uint64_t bit(std::size_t side) { return std::uint64_t{1} << side; }
    std::uint64_t& on_sides(std::int32_t point) {
        return on_sides_[static_cast<std::size_t>(point)];
    }

    // The bore is in front of all its sides. They go around from `from` to `to`, then the end at
    // `from`, then that at `to`.
    void make_sides() {
        const Vec3d axis = (bore_.to - bore_.from) / length(bore_.to - bore_.from);
        const Vec3d least = std::abs(axis.x) <= std::min(std::abs(axis.y), std::abs(axis.z))
                                ? Vec3d{1, 0, 0}
                            : std::abs(axis.y) <= std::abs(axis.z) ? Vec3d{0, 1, 0}
                                                                   : Vec3d{0, 0, 1};
        Vec3d right = cross(axis, least);
        right = right / length(right);
        const Vec3d up = cross(axis, right);
        const auto direction = [&](double step) {
            const double angle = 2 * std::numbers::pi * step / static_cast<double>(bore_.sides);
            return right * std::cos(angle) + up * std::sin(angle);
        };
        const auto add = [&](Vec3d outward, Vec3d along, Vec3d point) {
            sides_.push_back(PlaneFrame::make({outward * -1.0, along, point}).value());
        };
        const double inner_radius =
            bore_.radius * std::cos(std::numbers::pi / static_cast<double>(bore_.sides));
        for (std::size_t i = 0; i < bore_.sides; ++i) {
            const Vec3d outward = direction(static_cast<double>(i) + 0.5);
            add(outward, axis, bore_.from + outward * inner_radius);
            corners_.push_back(direction(static_cast<double>(i)) * bore_.radius);
        }
        add(axis * -1.0, right, bore_.from);
        add(axis, right, bore_.to);
    }

    // -1 inside the side, 0 on it, 1 outside.
    int sign(std::int32_t point, std::size_t side) {
        if ((on_sides(point) & bit(side)) != 0) return 0;
        const double distance = sides_[side].distance(points_.exact(point));
        // Between two sides little is enough: the rim should meet an edge of the bore in one point.
        const double snap = on_sides(point) == 0 ? snap_ : snap_ * 0.02;
        if (std::abs(distance) <= snap) {
            on_sides(point) |= bit(side);
            return 0;
        }
        return distance > 0 ? -1 : 1;
    }

    // Faces whose boxes meet that of the bore may lie in it; those that share an edge with them are
    // split along with them.
    void gather_pieces() {
        Box3d box;
        for (const Vec3d& corner : corners_) {
            box.widen(bore_.from + corner);
            box.widen(bore_.to + corner);
        }
        on_sides_.resize(model_.vertices.size(), 0);
        Array<std::uint8_t> is_near(model_.faces.size(), 0);
        Array<std::uint64_t> near_edges;
        for (std::uint32_t f = 0; f < model_.faces.size(); ++f) {
            const Face& face = model_.faces[f];
            Box3d of_face;
            bool is_splittable = face.deleted == 0;
            for (std::size_t i = 0; i < 3; ++i) {
                const Vec3d p = to_double(model_.corner_position(face, i));
                is_splittable = is_splittable && is_finite(p);
                of_face.widen(p);
            }
            const auto meet = [](double a_low, double a_high, double b_low, double b_high) {
                return a_low <= b_high && b_low <= a_high;
            };
            if (!is_splittable || !meet(of_face.low.x, of_face.high.x, box.low.x, box.high.x) ||
                !meet(of_face.low.y, of_face.high.y, box.low.y, box.high.y) ||
                !meet(of_face.low.z, of_face.high.z, box.low.z, box.high.z)) {
                continue;
            }
            is_near[f] = 1;
            inner_.push_back(whole(f));
            for (std::size_t i = 0; i < 3; ++i) {
                near_edges.push_back(edge_key(face.vertex[i], face.vertex[next_corner(i)]));
            }
        }
        std::sort(near_edges.begin(), near_edges.end());
        for (std::uint32_t f = 0; f < model_.faces.size() && !inner_.empty(); ++f) {
            const Face& face = model_.faces[f];
            if (is_near[f] != 0 || face.deleted != 0) continue;
            bool is_beside = false;
            for (std::size_t i = 0; i < 3; ++i) {
                is_beside = is_beside || std::binary_search(
                                             near_edges.begin(), near_edges.end(),
                                             edge_key(face.vertex[i], face.vertex[next_corner(i)]));
            }
            if (is_beside) outer_.push_back(whole(f));
        }
        for (const Piece& piece : inner_) touched_.push_back(piece.face);
        for (const Piece& piece : outer_) touched_.push_back(piece.face);
        std::sort(touched_.begin(), touched_.end());
    }

    Piece whole(std::uint32_t face) const {
        return {face, model_.faces[face].vertex, {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}, true};
    }

    // Cuts off what lies outside a side.
    void split(std::size_t side) {
        std::vector<SplitEdge> edges;
        for (const Piece& piece : inner_) {
            for (std::size_t i = 0; i < 3; ++i) {
                const std::int32_t a = piece.point[i];
                const std::int32_t b = piece.point[next_corner(i)];
                if (sign(a, side) * sign(b, side) < 0) edges.push_back({edge_key(a, b), 0, 0});
            }
        }
        const auto by_key = [](const SplitEdge& a, const SplitEdge& b) { return a.key < b.key; };
        const auto same_key = [](const SplitEdge& a, const SplitEdge& b) { return a.key == b.key; };
        std::sort(edges.begin(), edges.end(), by_key);
        edges.erase(std::unique(edges.begin(), edges.end(), same_key), edges.end());
        for (SplitEdge& edge : edges) add_point(edge, side);

        std::vector<Piece> inner;
        std::vector<Piece> outer;
        const auto sort_in = [&](const Piece& piece) {
            const bool is_inside =
                std::any_of(piece.point.begin(), piece.point.end(),
                            [&](std::int32_t point) { return sign(point, side) < 0; });
            (is_inside ? inner : outer).push_back(piece);
        };
        for (const Piece& piece : inner_) divide(piece, edges, sort_in);
        for (const Piece& piece : outer_) {
            divide(piece, edges, [&](const Piece& part) { outer.push_back(part); });
        }
        inner_ = std::move(inner);
        outer_ = std::move(outer);
    }

    void add_point(SplitEdge& edge, std::size_t side) {
        const std::int32_t low = low_end(edge.key);
        const std::int32_t high = high_end(edge.key);
        const Vec3d a = points_.exact(low);
        const Vec3d b = points_.exact(high);
        const double at_low = sides_[side].distance(a);
        edge.share = at_low / (at_low - sides_[side].distance(b));
        edge.point = points_.add(a + (b - a) * edge.share);
        on_sides_.push_back((on_sides(low) & on_sides(high)) | bit(side));
    }

    template <typename Take>
    void divide(const Piece& piece, const std::vector<SplitEdge>& edges, Take take) const {
        std::array<const SplitEdge*, 3> cut{};  // by side of the piece
        std::size_t count = 0;
        std::size_t start = 0;  // a corner with the only cut, or both cuts, at its sides
        for (std::size_t i = 0; i < 3; ++i) {
            const std::uint64_t key = edge_key(piece.point[i], piece.point[next_corner(i)]);
            const auto place =
                std::lower_bound(edges.begin(), edges.end(), key,
                                 [](const SplitEdge& e, std::uint64_t k) { return e.key < k; });
            if (place == edges.end() || place->key != key) continue;
            cut[i] = &*place;
            ++count;
        }
        if (count == 0) {
            take(piece);
            return;
        }
        for (std::size_t i = 0; i < 3; ++i) {
            // Side i starts at corner i, side i + 2 ends there.
            if (cut[i] != nullptr && (count == 1 || cut[previous_corner(i)] != nullptr)) start = i;
        }
        struct Corner {
            std::int32_t point;
            Weights weights;
        };
        const auto corner = [&](std::size_t i) { return Corner{piece.point[i], piece.weights[i]}; };
        const auto made = [&](std::size_t i) {
            const std::size_t to = next_corner(i);
            const bool is_rising = piece.point[i] < piece.point[to];
            const double share = is_rising ? cut[i]->share : 1 - cut[i]->share;
            return Corner{cut[i]->point, between(piece.weights[i], piece.weights[to], share)};
        };
        const auto emit = [&](const Corner& a, const Corner& b, const Corner& c) {
            take(Piece{
                piece.face, {a.point, b.point, c.point}, {a.weights, b.weights, c.weights}, false});
        };
        const std::size_t second = next_corner(start);
        const std::size_t third = next_corner(second);
        const Corner ab = made(start);
        if (count == 1) {
            emit(corner(start), ab, corner(third));
            emit(ab, corner(second), corner(third));
            return;
        }
        const Corner ca = made(third);
        emit(corner(start), ab, ca);
        const auto distance = [&](const Corner& a, const Corner& b) {
            return length(points_.exact(a.point) - points_.exact(b.point));
        };
        if (distance(ab, corner(third)) <= distance(ca, corner(second))) {
            emit(ab, corner(second), corner(third));
            emit(ab, corner(third), ca);
        } else {
            emit(ab, corner(second), ca);
            emit(ca, corner(second), corner(third));
        }
    }

    // The edges where the inside of the bore comes apart from the rest, by side. Returns false when
    // there is one that lies on no side: the model is open there.
    bool trace_rim() {
        struct Directed {
            std::uint64_t key;
            bool is_rising;
        };
        Array<Directed> edges;
        for (const Piece& piece : inner_) {
            for (std::size_t i = 0; i < 3; ++i) {
                const std::int32_t a = piece.point[i];
                const std::int32_t b = piece.point[next_corner(i)];
                edges.push_back({edge_key(a, b), a < b});
            }
        }
        std::sort(edges.begin(), edges.end(),
                  [](const Directed& a, const Directed& b) { return a.key < b.key; });
        walls_.resize(sides_.size());
        for (std::size_t i = 0; i < edges.size();) {
            const std::uint64_t key = edges[i].key;
            int rising = 0;
            for (; i < edges.size() && edges[i].key == key; ++i) {
                rising += edges[i].is_rising ? 1 : -1;
            }
            if (rising == 0) continue;
            const std::int32_t low = low_end(key);
            const std::int32_t high = high_end(key);
            const std::uint64_t common = on_sides(low) & on_sides(high);
            if (common == 0) return false;
            if (std::has_single_bit(common)) {
                add_edges(static_cast<std::size_t>(std::countr_zero(common)), low, high, rising);
            } else {
                corner_edges_.push_back({key, rising});
            }
            rim_points_.push_back(low);
            rim_points_.push_back(high);
        }
        std::sort(rim_points_.begin(), rim_points_.end());
        rim_points_.erase(std::unique(rim_points_.begin(), rim_points_.end()), rim_points_.end());
        return true;
    }

    void add_edges(std::size_t wall, std::int32_t from, std::int32_t to, int count) {
        if (count < 0) std::swap(from, to);
        for (int k = 0; k < std::abs(count); ++k) walls_[wall].push_back({from, to, 0, {}});
    }

    // What is left open on the walls runs along the edges of the bore, from one point of the rim to
    // the next.
    bool close_walls() {
        const std::size_t count = bore_.sides;
        for (CornerEdge& edge : corner_edges_) {
            const std::uint64_t common = common_sides(edge);
            bool meet = (common >> count) != 0;
            for (std::size_t i = 0; i < count; ++i) {
                const std::uint64_t pair = bit(i) | bit((i + 1) % count);
                meet = meet || (common & pair) == pair;
            }
            if (!meet) give_to_wall(edge);
        }
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t before = i == 0 ? count - 1 : i - 1;
            // Corner i lies between the sides i - 1 and i.
            if (!close_line(before, i, bore_.from + corners_[i], bore_.to + corners_[i], true)) {
                return false;
            }
        }
        for (std::size_t i = 0; i < count; ++i) {
            for (const auto& [end, centre] :
                 {std::pair{count, bore_.from}, std::pair{count + 1, bore_.to}}) {
                if (!close_line(i, end, centre + corners_[i], centre + corners_[(i + 1) % count],
                                false)) {
                    return false;
                }
            }
        }
        return true;
    }

    // Along the line from a to b, where two walls meet.
    bool close_line(std::size_t wall, std::size_t other, Vec3d a, Vec3d b, bool may_end_inside) {
        struct Stop {
            double place;
            std::int32_t point;
        };
        std::vector<Stop> stops;
        const std::uint64_t both = bit(wall) | bit(other);
        for (const std::int32_t point : rim_points_) {
            if ((on_sides(point) & both) != both) continue;
            stops.push_back({dot(points_.exact(point) - a, b - a), point});
        }
        std::sort(stops.begin(), stops.end(), [](const Stop& x, const Stop& y) {
            return std::pair(x.place, x.point) < std::pair(y.place, y.point);
        });
        for (CornerEdge& edge : corner_edges_) {
            if (edge.rising == 0 || (common_sides(edge) & both) != both) continue;
            const auto place_of = [&](std::int32_t point) {
                const auto is_it = [point](const Stop& stop) { return stop.point == point; };
                return std::find_if(stops.begin(), stops.end(), is_it) - stops.begin();
            };
            const auto steps = place_of(low_end(edge.key)) - place_of(high_end(edge.key));
            if (std::abs(steps) != 1) give_to_wall(edge);  // it runs past other points
        }
        // What arrives at a stop and does not leave it goes on along the line. There it makes up,
        // with what the other wall does, for an edge of the rim.
        int open = 0;
        const Array<RimEdge> rim = walls_[wall];
        for (std::size_t k = 0; k < stops.size(); ++k) {
            const std::int32_t here = stops[k].point;
            for (const RimEdge& edge : rim) {
                open += (edge.to == here ? 1 : 0) - (edge.from == here ? 1 : 0);
            }
            int rising = 0;
            std::int32_t next = here;
            if (k + 1 < stops.size()) {
                next = stops[k + 1].point;
                rising = take_corner_edge(here, next);
            } else if (open != 0 && may_end_inside) {
                next = points_.add(b);
                on_sides_.push_back(both | bit(bore_.sides + 1));
                rim_points_.push_back(next);
            } else if (open != 0) {
                return false;
            }
            add_edges(wall, here, next, open);
            add_edges(other, here, next, rising - open);
        }
        return true;
    }

    std::uint64_t common_sides(const CornerEdge& edge) {
        return on_sides(low_end(edge.key)) & on_sides(high_end(edge.key));
    }

    // Any of its sides will do.
    void give_to_wall(CornerEdge& edge) {
        const int side = std::countr_zero(common_sides(edge));
        add_edges(static_cast<std::size_t>(side), low_end(edge.key), high_end(edge.key),
                  std::exchange(edge.rising, 0));
    }

    // How often the rim runs along the edge from a to b; 0 the next time.
    int take_corner_edge(std::int32_t a, std::int32_t b) {
        const auto place = std::lower_bound(
            corner_edges_.begin(), corner_edges_.end(), edge_key(a, b),
            [](const CornerEdge& edge, std::uint64_t key) { return edge.key < key; });
        if (place == corner_edges_.end() || place->key != edge_key(a, b)) return 0;
        return (a < b ? 1 : -1) * std::exchange(place->rising, 0);
    }

    bool fill_walls() {
        for (std::size_t side = 0; side < sides_.size(); ++side) {
            const Array<RimEdge>& rim = walls_[side];
            if (rim.empty()) continue;
            if (closed_rim(rim).size() != rim.size()) return false;
            const RimFilling filling = fill_rim(points_, sides_[side], rim);
            triangles_.insert(triangles_.end(), filling.triangles.begin(), filling.triangles.end());
        }
        return is_inside_out() == false;
    }

    // The walls of a hole look into it: together with what was taken they enclose material.
    bool is_inside_out() const {
        double taken = 0;
        const auto six_volume = [&](const std::array<std::int32_t, 3>& t) {
            const Vec3d a = points_.exact(t[0]) - bore_.from;
            return dot(a,
                       cross(points_.exact(t[1]) - bore_.from, points_.exact(t[2]) - bore_.from));
        };
        for (const Piece& piece : inner_) taken += six_volume(piece.point);
        for (const CapTriangle& triangle : triangles_) taken -= six_volume(triangle);
        return !(taken > 0);
    }

    std::array<std::uint8_t, 3> mean_colour() const {
        std::array<std::uint64_t, 3> sum{};
        for (const Piece& piece : inner_) {
            const Face& face = model_.faces[piece.face];
            for (std::size_t i = 0; i < 9; ++i) sum[i % 3] += face.colour[i];
        }
        std::array<std::uint8_t, 3> mean{};
        for (std::size_t i = 0; i < 3; ++i) {
            mean[i] = static_cast<std::uint8_t>(sum[i] / (inner_.size() * 3));
        }
        return mean;
    }

    Face face_of(const Piece& piece, TriMesh& result) const;

    const TriMesh& model_;
    const Bore& bore_;
    CutPoints points_;
    std::vector<PlaneFrame> sides_;
    std::vector<Vec3d> corners_;  // from the centre of an end
    double snap_ = 0;
    Array<std::uint64_t> on_sides_;  // by point: the sides that it lies on
    std::vector<Piece> inner_;       // not outside any side so far
    std::vector<Piece> outer_;
    Array<std::uint32_t> touched_;  // faces that pieces were made of, ascending
    Array<std::int32_t> rim_points_;
    std::vector<Array<RimEdge>> walls_;     // by side
    std::vector<CornerEdge> corner_edges_;  // ascending
    Array<CapTriangle> triangles_;
};

Face Borer::face_of(const Piece& piece, TriMesh& result) const {
    const Face& whole = model_.faces[piece.face];
    Face face = whole;
    if (piece.is_whole) return face;
    face.vertex = piece.point;
    for (std::size_t i = 0; i < 3; ++i) {
        const Weights& weights = piece.weights[i];
        for (std::size_t channel = 0; channel < 3; ++channel) {
            double value = 0.5;
            for (std::size_t k = 0; k < 3; ++k) {
                value += weights[k] * static_cast<double>(whole.colour[k * 3 + channel]);
            }
            face.colour[i * 3 + channel] = static_cast<std::uint8_t>(std::clamp(value, 0.0, 255.0));
        }
        if (whole.label < 0 || whole.uv[0] < 0 || whole.uv[1] < 0 || whole.uv[2] < 0) continue;
        TextureCoordinate place{0, 0, static_cast<std::int32_t>(result.texture_coordinates.size())};
        for (std::size_t k = 0; k < 3; ++k) {
            const TextureCoordinate& corner =
                model_.texture_coordinates[static_cast<std::size_t>(whole.uv[k])];
            place.u += weights[k] * corner.u;
            place.v += weights[k] * corner.v;
        }
        face.uv[i] = place.index;
        result.texture_coordinates.push_back(place);
    }
    return face;
}

TriMesh Borer::result() const {
    TriMesh result;
    result.vertices = model_.vertices;
    result.texture_coordinates = model_.texture_coordinates;
    for (std::size_t p = points_.model_size(); p < points_.size(); ++p) {
        const auto index = static_cast<std::int32_t>(p);
        const Vec3f position = points_.rounded(index);
        result.vertices.push_back({position.x, position.y, position.z, index});
    }
    result.faces.reserve(model_.faces.size() + outer_.size() + triangles_.size());
    for (std::uint32_t f = 0, next = 0; f < model_.faces.size(); ++f) {
        poll_at(f);
        if (next < touched_.size() && touched_[next] == f) {
            ++next;
        } else if (model_.faces[f].deleted == 0) {
            result.faces.push_back(model_.faces[f]);
        }
    }
    for (const Piece& piece : outer_) result.faces.push_back(face_of(piece, result));
    const std::array<std::uint8_t, 3> colour = mean_colour();
    for (const CapTriangle& triangle : triangles_) {
        Face face{};
        for (std::size_t i = 0; i < 9; ++i) face.colour[i] = colour[i % 3];
        face.label = -1;
        face.vertex = triangle;
        face.uv = {-1, -1, -1};
        result.faces.push_back(face);
    }
    return result;
}

bool is_valid(const Bore& bore) {
    const double span = length(bore.to - bore.from);
    return is_finite(bore.from) && is_finite(bore.to) && std::isfinite(span) && span > 0 &&
           std::isfinite(bore.radius) && bore.radius > 0 && bore.sides >= 3 &&
           bore.sides <= Bore::kMostSides;
}

}  // namespace

BoreOutcome bore(TriMesh& mesh, const Bore& bore) {
    if (!is_valid(bore)) return BoreOutcome::Invalid;
    Borer borer(mesh, bore);
    const BoreOutcome outcome = borer.run();
    if (outcome != BoreOutcome::Done) return outcome;
    TriMesh result = borer.result();
    result.parts = std::move(mesh.parts);
    mesh = std::move(result);
    return outcome;
}

}  // namespace povmesh
