// Splits, flips and collapses of edges on flat arrays. A collapse is legal when the ends of the
// edge have just the apexes of its triangles for common neighbours (the link condition: T. Dey, H.
// Edelsbrunner, S. Guha and D. Nekhayev, Topology preserving edge contraction, 1999).
#include "remesh/half_edge_mesh.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "base/poll.h"

namespace povmesh {
namespace {

constexpr std::array<std::size_t, 3> kNext = {1, 2, 0};

// The bits of a number below 2^21, two zeros between each and the next.
std::uint64_t spread_bits(std::uint64_t x) {
    x = (x | x << 32) & 0x001F00000000FFFF;
    x = (x | x << 16) & 0x001F0000FF0000FF;
    x = (x | x << 8) & 0x100F00F00F00F00F;
    x = (x | x << 4) & 0x10C30C30C30C30C3;
    return (x | x << 2) & 0x1249249249249249;
}

// Along a curve through the cells of a box (G. Morton, 1966).
std::uint64_t place_on_curve(Vec3d p, const Box3d& box) {
    constexpr std::uint32_t kCells = (1U << 21) - 1;
    const Vec3d extent = box.high - box.low;
    const double size = std::max({extent.x, extent.y, extent.z});
    const auto cell = [&](double x, double low) {
        const double share = size > 0 ? (x - low) / size : 0;
        return spread_bits(std::min(saturate_to<std::uint32_t>(share * kCells), kCells));
    };
    return cell(p.x, box.low.x) | cell(p.y, box.low.y) << 1 | cell(p.z, box.low.z) << 2;
}

}  // namespace

HalfEdgeMesh::HalfEdgeMesh(const TriMesh& mesh, const EdgeMates& mates) {
    Array<std::uint32_t> place(mesh.faces.size());
    Array<std::uint32_t> faces;
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        if (mesh.faces[f].deleted != 0) continue;
        place[f] = static_cast<std::uint32_t>(faces.size());
        faces.push_back(static_cast<std::uint32_t>(f));
        triangles.push_back(mesh.faces[f].vertex);
    }
    positions.resize(mesh.vertices.size());
    for (std::size_t v = 0; v < positions.size(); ++v) {
        positions[v] = to_double(mesh.vertices[v].position());
    }
    opposites.assign(3 * triangles.size(), kNone);
    features.assign(opposites.size(), 1);
    is_locked.assign(opposites.size(), 0);
    starts.assign(positions.size(), kNone);
    valences.assign(positions.size(), 0);
    kinds.assign(positions.size(), Free);
    for (std::size_t t = 0; t < triangles.size(); ++t) {
        poll_at(t);
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const std::size_t h = 3 * t + corner;
            const std::uint32_t f = faces[t];
            starts[index(triangles[t][corner])] = static_cast<std::uint32_t>(h);
            ++valences[index(triangles[t][corner])];
            if (mates.kind(f, corner) == EdgeMates::Kind::Open) continue;
            if (mates.kind(f, corner) == EdgeMates::Kind::NonManifold ||
                mates.is_same_direction(f, corner)) {
                is_locked[h] = 1;
                kinds[index(triangles[t][corner])] = Irregular;
                kinds[index(triangles[t][kNext[corner]])] = Irregular;
                continue;
            }
            const std::uint32_t other = place[mates.mate(f, corner)];
            const std::array<std::int32_t, 3>& o = triangles[other];
            const std::int32_t b = triangles[t][kNext[corner]];
            opposites[h] = other * 3 + (o[0] == b ? 0U : o[1] == b ? 1U : 2U);
            features[h] = 0;
        }
    }
    for (std::size_t v = 0; v < positions.size(); ++v) {
        if (starts[v] == kNone) continue;
        std::uint32_t count = 0;
        around(static_cast<std::int32_t>(v), [&](std::uint32_t /*h*/) { ++count; });
        if (count != valences[v]) kinds[v] = Irregular;
    }
}

bool HalfEdgeMesh::is_open(std::int32_t v) const {
    bool found = false;
    around(v, [&](std::uint32_t h) {
        found = found || opposites[h] == kNone || opposites[previous(h)] == kNone;
    });
    return found;
}

std::uint32_t HalfEdgeMesh::feature_beyond(std::int32_t v, std::uint32_t edge) const {
    std::uint32_t found = kNone;
    const auto look_at = [&](std::uint32_t h) {
        if (h != edge && opposites[h] != edge) found = h;
    };
    around(v, [&](std::uint32_t h) {
        if (features[h] != 0) look_at(h);
        if (opposites[previous(h)] == kNone) look_at(previous(h));
    });
    return found;
}

std::uint32_t HalfEdgeMesh::new_triangle() {
    if (!unused_.empty()) {
        const std::uint32_t t = unused_.back();
        unused_.pop_back();
        return t;
    }
    const auto t = static_cast<std::uint32_t>(triangles.size());
    triangles.push_back({kGone, kGone, kGone});
    opposites.resize(opposites.size() + 3);
    features.resize(opposites.size());
    is_locked.resize(opposites.size());
    return t;
}

void HalfEdgeMesh::join(std::uint32_t h, std::uint32_t g) {
    if (h != kNone) opposites[h] = g;
    if (g != kNone) opposites[g] = h;
}

std::int32_t HalfEdgeMesh::split(std::uint32_t h, Vec3d place) {
    const std::uint32_t g = opposites[h];
    const std::int32_t b = target(h);
    const auto m = static_cast<std::int32_t>(positions.size());
    positions.push_back(place);
    kinds.push_back(features[h] != 0 ? Line : Free);
    valences.push_back(g == kNone ? 2 : 4);
    starts.push_back(kNone);
    const std::uint32_t from_m = split_side(h, m);  // m -> b
    starts[index(m)] = from_m;
    starts[index(b)] = next(from_m);
    opposites[from_m] = kNone;
    if (g == kNone) return m;
    const std::uint32_t back = split_side(g, m);  // m -> a
    starts[index(target(back))] = h;
    join(h, back);
    join(from_m, g);
    return m;
}

// The triangle (p, q, r) of the half-edge p -> q becomes (p, m, r), and (m, q, r) is new. Returns
// the half-edge m -> q of that; what lies beyond p -> m and m -> q is not joined.
std::uint32_t HalfEdgeMesh::split_side(std::uint32_t h, std::int32_t m) {
    const std::uint32_t hn = next(h);
    const std::uint32_t n = 3 * new_triangle();
    triangles[n / 3] = {m, target(h), apex(h)};
    triangles[hn / 3][hn % 3] = m;
    ++valences[index(apex(h))];
    features[n] = features[h];
    is_locked[n] = is_locked[h];
    features[n + 1] = features[hn];
    is_locked[n + 1] = is_locked[hn];
    features[n + 2] = features[hn] = 0;
    is_locked[n + 2] = is_locked[hn] = 0;
    opposites[n + 1] = kNone;
    join(n + 1, opposites[hn]);
    join(n + 2, hn);
    return n;
}

bool HalfEdgeMesh::are_neighbours(std::int32_t v, std::int32_t w) const {
    bool found = false;
    around(v, [&](std::uint32_t h) { found = found || target(h) == w || apex(h) == w; });
    return found;
}

bool HalfEdgeMesh::can_flip(std::uint32_t h) const {
    const std::uint32_t g = opposites[h];
    if (g == kNone || features[h] != 0) return false;
    for (const std::uint32_t e : {h, g}) {
        if (valences[index(origin(e))] <= 3 && !is_open(origin(e))) return false;
    }
    std::int32_t c = apex(h);
    std::int32_t d = apex(g);
    // Of an irregular vertex not all neighbours are known; one of high valence has too many.
    const auto has_known_ring = [&](std::int32_t v) {
        return kinds[index(v)] != Irregular && valences[index(v)] <= kMaxValence;
    };
    if (c == d) return false;
    if (!has_known_ring(c)) std::swap(c, d);
    return has_known_ring(c) && !are_neighbours(c, d);
}

void HalfEdgeMesh::flip(std::uint32_t h) {
    const std::uint32_t g = opposites[h];
    const std::uint32_t hn = next(h);
    const std::uint32_t hp = previous(h);
    const std::uint32_t gn = next(g);
    const std::uint32_t gp = previous(g);
    const std::int32_t a = origin(h);
    const std::int32_t b = origin(g);
    const std::int32_t c = origin(hp);
    const std::int32_t d = origin(gp);
    struct Side {
        std::uint32_t opposite, feature;
        std::uint8_t locked;
    };
    const auto side = [this](std::uint32_t e) {
        return Side{opposites[e], features[e], is_locked[e]};
    };
    const Side bc = side(hn);
    const Side ca = side(hp);
    const Side ad = side(gn);
    const Side db = side(gp);
    const auto set = [this](std::uint32_t e, const Side& s) {
        join(e, s.opposite);
        opposites[e] = s.opposite;
        features[e] = s.feature;
        is_locked[e] = s.locked;
    };
    // h becomes d -> c in (d, c, a), g becomes c -> d in (c, d, b).
    triangles[h / 3][h % 3] = d;
    triangles[h / 3][hn % 3] = c;
    triangles[h / 3][hp % 3] = a;
    triangles[g / 3][g % 3] = c;
    triangles[g / 3][gn % 3] = d;
    triangles[g / 3][gp % 3] = b;
    set(hn, ca);
    set(hp, ad);
    set(gn, db);
    set(gp, bc);
    join(h, g);
    starts[index(a)] = hp;
    starts[index(c)] = g;
    starts[index(b)] = gp;
    starts[index(d)] = h;
    --valences[index(a)];
    --valences[index(b)];
    ++valences[index(c)];
    ++valences[index(d)];
}

bool HalfEdgeMesh::can_collapse(std::uint32_t h, bool into_high_valence) const {
    const std::int32_t a = origin(h);
    const std::int32_t b = target(h);
    const std::uint32_t g = opposites[h];
    if (is_locked[h] != 0 || kinds[index(a)] == Irregular || kinds[index(b)] == Irregular)
        return false;
    const bool has_high_valence = valences[index(a)] + valences[index(b)] > kMaxValence;
    if (has_high_valence && (!into_high_valence || valences[index(b)] > kMaxValence)) return false;
    // The two other sides of a triangle on the edge fall together: they cannot both be features,
    // nor both be open.
    for (const std::uint32_t e : {h, g}) {
        if (e == kNone) continue;
        if (features[next(e)] != 0 && features[previous(e)] != 0) return false;
        const std::uint32_t far = opposites[next(e)];
        const std::uint32_t back = opposites[previous(e)];
        if (far == kNone && back == kNone) return false;
        if (valences[index(apex(e))] < (far == kNone || back == kNone ? 2U : 4U) &&
            !is_open(apex(e))) {
            return false;
        }
    }
    if (common_neighbours(a, b, has_high_valence) != (g == kNone ? 1U : 2U)) return false;
    // Two triangles on the same three corners would be left of a tetrahedron.
    return g == kNone || valences[index(a)] + valences[index(b)] > 6 || is_open(a) || is_open(b);
}

// Neighbours of b that are neighbours of a, too. Where a has a high valence, the neighbours of b
// are asked about themselves; one whose ring is not known counts as many.
std::size_t HalfEdgeMesh::common_neighbours(std::int32_t a, std::int32_t b,
                                            bool has_high_valence) const {
    std::array<std::int32_t, kMaxValence + 1> ring;
    std::size_t size = 0;
    const auto add = [&](std::int32_t v) { ring[size++] = v; };
    const auto add_ring = [&](std::int32_t of) {
        around(of, [&](std::uint32_t e) {
            add(target(e));
            if (opposites[previous(e)] == kNone) add(apex(e));
        });
    };
    std::size_t common = 0;
    if (has_high_valence) {
        add_ring(b);
        for (std::size_t i = 0; i < size; ++i) {
            const std::int32_t v = ring[i];
            if (v == a) continue;
            if (kinds[index(v)] == Irregular || valences[index(v)] > kMaxValence)
                return kMaxValence;
            common += are_neighbours(v, a) ? 1 : 0;
        }
        return common;
    }
    add_ring(a);
    const auto count = [&](std::int32_t v) {
        for (std::size_t i = 0; i < size; ++i) common += ring[i] == v ? 1 : 0;
    };
    around(b, [&](std::uint32_t e) {
        count(target(e));
        if (opposites[previous(e)] == kNone) count(apex(e));
    });
    return common;
}

void HalfEdgeMesh::collapse(std::uint32_t h, Vec3d place) {
    const std::int32_t a = origin(h);
    const std::int32_t b = target(h);
    const std::uint32_t g = opposites[h];
    std::array<std::uint32_t, kMaxValence> fan;
    std::size_t size = 0;
    around(b, [&](std::uint32_t e) { fan[size++] = e; });
    for (std::size_t i = 0; i < size; ++i) triangles[fan[i] / 3][fan[i] % 3] = a;
    valences[index(a)] += valences[index(b)] - (g == kNone ? 2U : 4U);
    valences[index(b)] = 0;
    starts[index(b)] = kNone;
    positions[index(a)] = place;
    remove_side(h);
    if (g != kNone) remove_side(g);
}

// Takes a triangle on the collapsed edge out and joins what lay beside it.
void HalfEdgeMesh::remove_side(std::uint32_t h) {
    const std::uint32_t hn = next(h);
    const std::uint32_t hp = previous(h);
    const std::int32_t a = origin(h);
    const std::int32_t c = origin(hp);
    const std::uint32_t from_c = opposites[hn];  // c -> survivor
    const std::uint32_t from_a = opposites[hp];  // survivor -> c
    // One side of the two at most is a feature; what stays runs along it, or against it, as before.
    const std::uint32_t out = features[hp];   // c -> a
    const std::uint32_t back = features[hn];  // b -> c
    const bool locked = is_locked[hn] != 0 || is_locked[hp] != 0;
    for (const auto& [e, other, feature] :
         {std::tuple{from_c, from_a, out}, std::tuple{from_a, from_c, back}}) {
        if (e == kNone) continue;
        opposites[e] = other;
        if (feature != 0) features[e] = feature;
        is_locked[e] = locked ? 1 : 0;
    }
    // A half-edge from either end that is still there.
    starts[index(c)] = from_c != kNone ? from_c : next(from_a);
    starts[index(a)] = from_a != kNone ? from_a : next(from_c);
    --valences[index(c)];
    triangles[h / 3] = {kGone, kGone, kGone};
    unused_.push_back(h / 3);
}

HalfEdgeMesh::Order HalfEdgeMesh::order_in_space() {
    Box3d box;
    for (const Vec3d p : positions) box.widen(p);
    struct Place {
        std::uint64_t on_curve;
        std::uint32_t triangle;
        bool operator<(const Place& other) const {
            return on_curve != other.on_curve ? on_curve < other.on_curve
                                              : triangle < other.triangle;
        }
    };
    Array<Place> places;
    places.reserve(triangles.size());
    for (std::uint32_t t = 0; t < triangles.size(); ++t) {
        poll_at(t);
        if (is_gone(t)) continue;
        const auto [a, b, c] = triangles[t];
        const Vec3d middle = (position(a) + position(b) + position(c)) / 3.0;
        places.push_back({place_on_curve(middle, box), t});
    }
    std::sort(places.begin(), places.end());

    Order order;
    Array<std::uint32_t> numbers(triangles.size(), kNone);
    for (const Place& place : places) {
        numbers[place.triangle] = static_cast<std::uint32_t>(order.triangles.size());
        order.triangles.push_back(place.triangle);
    }
    rearrange(triangles, order.triangles);
    Array<std::int32_t> names(positions.size(), -1);
    for (std::array<std::int32_t, 3>& triangle : triangles) {
        for (std::int32_t& v : triangle) {
            std::int32_t& name = names[index(v)];
            if (name < 0) {
                name = static_cast<std::int32_t>(order.vertices.size());
                order.vertices.push_back(static_cast<std::uint32_t>(v));
            }
            v = name;
        }
    }
    rearrange(positions, order.vertices);
    rearrange(starts, order.vertices);
    rearrange(valences, order.vertices);
    rearrange(kinds, order.vertices);
    Array<std::uint32_t> half_edges(3 * triangles.size());
    for (std::uint32_t h = 0; h < half_edges.size(); ++h) {
        half_edges[h] = 3 * order.triangles[h / 3] + h % 3;
    }
    rearrange(opposites, half_edges);
    rearrange(features, half_edges);
    rearrange(is_locked, half_edges);
    const auto rename = [&](std::uint32_t& h) {
        if (h != kNone) h = 3 * numbers[h / 3] + h % 3;
    };
    for (std::uint32_t& h : opposites) rename(h);
    for (std::uint32_t& h : starts) rename(h);
    unused_.clear();
    return order;
}

}  // namespace povmesh
