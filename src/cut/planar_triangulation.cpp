// Points are inserted one by one along a space-filling curve, each by splitting the triangle that
// it lies in and flipping edges until the circumcircles are empty; then each segment is forced in
// by flipping the edges that it crosses. The sources stand in the header.
#include "cut/planar_triangulation.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cmath>
#include <utility>

#include "mesh/tri_mesh.h"

namespace povmesh {
namespace {

// The predicates are exact for coordinates of 2^-149 and more.
double tiny_as_zero(double coordinate) {
    return std::abs(coordinate) < 0x1p-149 ? 0.0 : coordinate;
}

Point2d tiny_as_zero(Point2d p) {
    return {tiny_as_zero(p.x), tiny_as_zero(p.y)};
}

bool same_place(Point2d a, Point2d b) {
    return a.x == b.x && a.y == b.y;
}

// True when d lies inside the circle through a, b, c (counterclockwise) beyond doubt. Being sure
// matters: a flip for every true answer can then not go round in circles.
bool is_surely_in_circle(Point2d a, Point2d b, Point2d c, Point2d d) {
    // Shewchuk's bound for this order of operations.
    constexpr double kError = (10.0 + 96.0 * 0x1p-53) * 0x1p-53;
    const double adx = a.x - d.x;
    const double ady = a.y - d.y;
    const double bdx = b.x - d.x;
    const double bdy = b.y - d.y;
    const double cdx = c.x - d.x;
    const double cdy = c.y - d.y;
    const double bc1 = bdx * cdy;
    const double bc2 = cdx * bdy;
    const double ca1 = cdx * ady;
    const double ca2 = adx * cdy;
    const double ab1 = adx * bdy;
    const double ab2 = bdx * ady;
    const double a_lift = adx * adx + ady * ady;
    const double b_lift = bdx * bdx + bdy * bdy;
    const double c_lift = cdx * cdx + cdy * cdy;
    const double det = a_lift * (bc1 - bc2) + b_lift * (ca1 - ca2) + c_lift * (ab1 - ab2);
    const double size = (std::abs(bc1) + std::abs(bc2)) * a_lift +
                        (std::abs(ca1) + std::abs(ca2)) * b_lift +
                        (std::abs(ab1) + std::abs(ab2)) * c_lift;
    return det > kError * size;
}

// Place on a Hilbert curve through 2^16 x 2^16 cells.
std::uint32_t hilbert_key(std::uint32_t x, std::uint32_t y) {
    constexpr std::uint32_t kSide = 1U << 16;
    std::uint32_t key = 0;
    for (std::uint32_t s = kSide / 2; s != 0; s /= 2) {
        const bool is_right = (x & s) != 0;
        const bool is_upper = (y & s) != 0;
        key = key * 4 + (is_right ? 3U : 0U) - (is_upper && is_right ? 1U : 0U) +
              (is_upper && !is_right ? 1U : 0U);
        if (!is_upper) {
            if (is_right) {
                x = kSide - 1 - x;
                y = kSide - 1 - y;
            }
            std::swap(x, y);
        }
    }
    return key;
}

// True when q, which is in line with a and b, lies on b's side of a.
bool is_ahead(Point2d a, Point2d b, Point2d q) {
    if (a.x != b.x) return (b.x > a.x) == (q.x > a.x) && q.x != a.x;
    return (b.y > a.y) == (q.y > a.y) && q.y != a.y;
}

// The cross product of b - a and c - a.
double area(Point2d a, Point2d b, Point2d c) {
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

}  // namespace

PlanarTriangulation::PlanarTriangulation(std::span<const Point2d> points)
    : node_of_(points.size(), 0), budget_(4 * points.size() + 1000) {
    positions_.reserve(points.size() + kCorners);
    cells_.reserve(2 * points.size() + 1);
    make_outer_triangle(points);
    for (const Point2d& p : points) positions_.push_back(tiny_as_zero(p));
    cell_at_.resize(positions_.size(), 0);
    for (const std::uint32_t i : insertion_order(points)) insert_point(i, positions_[i + kCorners]);
}

void PlanarTriangulation::make_outer_triangle(std::span<const Point2d> points) {
    Point2d low{0, 0};
    Point2d high{0, 0};
    if (!points.empty()) low = high = points.front();
    for (const Point2d& p : points) {
        low = {std::min(low.x, p.x), std::min(low.y, p.y)};
        high = {std::max(high.x, p.x), std::max(high.y, p.y)};
    }
    const Point2d centre{low.x / 2 + high.x / 2, low.y / 2 + high.y / 2};
    double size = std::max(high.x - low.x, high.y - low.y);
    // Far enough that rounding cannot bring a point onto its sides.
    size = std::max(size, (std::abs(centre.x) + std::abs(centre.y)) * 1e-9 + 1e-30);
    positions_.push_back(tiny_as_zero({centre.x - 32 * size, centre.y - 16 * size}));
    positions_.push_back(tiny_as_zero({centre.x + 32 * size, centre.y - 16 * size}));
    positions_.push_back(tiny_as_zero({centre.x, centre.y + 48 * size}));
    cells_.push_back({{0, 1, 2}, {}});
}

// In rounds, each about twice as long as the one before, of points picked at random, which keeps
// the number of flips low for any input; within a round along a Hilbert curve, which keeps the
// walks short.
std::vector<std::uint32_t> PlanarTriangulation::insertion_order(
    std::span<const Point2d> points) const {
    constexpr int kRounds = 24;
    const double width = positions_[1].x - positions_[0].x;
    const auto cell_of = [width](double coordinate, double low) {
        const double along = (coordinate - low) / width * 0x1p20;
        const double limited = std::clamp(along - 0x1p19 + 0x1p15, 0.0, 0x1p16 - 1);
        return static_cast<std::uint32_t>(limited);
    };
    const double low_y = positions_[2].y - 1.25 * width;
    std::vector<std::uint64_t> keys(points.size());
    std::uint64_t random = 0x9E3779B97F4A7C15;
    for (std::size_t i = 0; i < points.size(); ++i) {
        random ^= random << 13;
        random ^= random >> 7;
        random ^= random << 17;
        const int round = kRounds - std::min(std::countr_zero(random), kRounds);
        const std::uint32_t key =
            hilbert_key(cell_of(points[i].x, positions_[0].x), cell_of(points[i].y, low_y));
        keys[i] = (static_cast<std::uint64_t>(round) << 32) | key;
    }
    std::vector<std::uint32_t> order(points.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = static_cast<std::uint32_t>(i);
    std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
        return keys[a] != keys[b] ? keys[a] < keys[b] : a < b;
    });
    return order;
}

void PlanarTriangulation::insert_point(std::size_t point, Point2d position) {
    int zero_sides = 0;
    const Place place = locate(position, zero_sides);
    const auto corner = static_cast<std::int32_t>(point) + kCorners;
    node_of_[point] = static_cast<std::int32_t>(point);
    if (zero_sides == 0) {
        split_cell(place.cell, corner);
    } else if (zero_sides == 1) {
        split_side(place, corner);
    } else {
        for (const std::int32_t c : cell(place.cell).corner) {
            if (same_place(at(c), position)) node_of_[point] = c - kCorners;
        }
        is_exact_ = false;
        return;
    }
    legalise();
}

// Walks towards p. The place names a side that p lies on if there is one.
PlanarTriangulation::Place PlanarTriangulation::locate(Point2d p, int& zero_sides) {
    std::int32_t index = last_cell_;
    for (;;) {
        const Cell& here = cell(index);
        // Sides are tried from a random one on, or the walk could go round in circles.
        random_ = random_ * 1664525 + 1013904223;
        const std::size_t first = (random_ >> 16) % 3;
        Place place{index, 0};
        zero_sides = 0;
        bool has_moved = false;
        for (std::size_t k = 0; k < 3; ++k) {
            const std::size_t i = (first + k) % 3;
            const int side = orient2d(at(here.corner[i]), at(here.corner[next_corner(i)]), p);
            if (side < 0) {
                index = here.side[i].neighbour;
                has_moved = true;
                break;
            }
            if (side == 0) {
                ++zero_sides;
                place.side = i;
            }
        }
        if (has_moved) continue;
        last_cell_ = index;
        return place;
    }
}

void PlanarTriangulation::link(std::int32_t index, std::size_t side, const Side& outer) {
    cell(index).side[side] = outer;
    cell_at_[static_cast<std::size_t>(cell(index).corner[side])] = index;
}

std::size_t PlanarTriangulation::side_from(std::int32_t index, std::int32_t corner) const {
    const Cell& c = cell(index);
    return c.corner[0] == corner ? 0 : c.corner[1] == corner ? 1 : 2;
}

// The same side seen from the other cell.
PlanarTriangulation::Place PlanarTriangulation::beyond(Place place) const {
    const Cell& c = cell(place.cell);
    const std::int32_t other = c.side[place.side].neighbour;
    return {other, side_from(other, c.corner[next_corner(place.side)])};
}

void PlanarTriangulation::split_cell(std::int32_t index, std::int32_t corner) {
    const Cell old = cell(index);
    const auto fresh = static_cast<std::int32_t>(cells_.size());
    const std::array<std::int32_t, 3> parts = {index, fresh, fresh + 1};
    cells_.resize(cells_.size() + 2);
    for (std::size_t i = 0; i < 3; ++i) {
        const std::int32_t outer = old.side[i].neighbour;
        if (outer != kNone) {
            const std::size_t back = side_from(outer, old.corner[next_corner(i)]);
            cell(outer).side[back].neighbour = parts[i];
        }
    }
    for (std::size_t i = 0; i < 3; ++i) {
        cell(parts[i]).corner = {old.corner[i], old.corner[next_corner(i)], corner};
        link(parts[i], 0, old.side[i]);
        link(parts[i], 1, {parts[next_corner(i)], 0, false});
        link(parts[i], 2, {parts[previous_corner(i)], 0, false});
        suspects_.push_back({parts[i], 0});
    }
}

// Puts a corner on a side: a b c | b a d becomes a x c, x b c | b x d, x a d.
void PlanarTriangulation::split_side(Place place, std::int32_t x) {
    const Place other = beyond(place);
    const Cell near = cell(place.cell);
    const Cell far = cell(other.cell);
    const std::size_t i = place.side;
    const std::size_t j = other.side;
    const std::int32_t a = near.corner[i];
    const std::int32_t b = near.corner[next_corner(i)];
    const auto fresh = static_cast<std::int32_t>(cells_.size());
    const std::int32_t axc = place.cell;
    const std::int32_t bxd = other.cell;
    const std::int32_t xbc = fresh;
    const std::int32_t xad = fresh + 1;
    cells_.resize(cells_.size() + 2);
    const Side bc = near.side[next_corner(i)];
    const Side ad = far.side[next_corner(j)];
    if (bc.neighbour != kNone) {
        cell(bc.neighbour)
            .side[side_from(bc.neighbour, near.corner[previous_corner(i)])]
            .neighbour = xbc;
    }
    if (ad.neighbour != kNone) {
        cell(ad.neighbour).side[side_from(ad.neighbour, far.corner[previous_corner(j)])].neighbour =
            xad;
    }
    const Side ab = near.side[i];
    const Side ba = far.side[j];
    const auto set = [this](std::int32_t index, std::array<std::int32_t, 3> corners,
                            const std::array<Side, 3>& sides) {
        cell(index).corner = corners;
        for (std::size_t s = 0; s < 3; ++s) link(index, s, sides[s]);
    };
    const std::int32_t c = near.corner[previous_corner(i)];
    const std::int32_t d = far.corner[previous_corner(j)];
    set(axc, {a, x, c},
        {Side{xad, ab.weight, ab.is_fixed}, Side{xbc, 0, false}, near.side[previous_corner(i)]});
    set(xbc, {x, b, c}, {Side{bxd, ab.weight, ab.is_fixed}, bc, Side{axc, 0, false}});
    set(bxd, {b, x, d},
        {Side{xbc, ba.weight, ba.is_fixed}, Side{xad, 0, false}, far.side[previous_corner(j)]});
    set(xad, {x, a, d}, {Side{axc, ba.weight, ba.is_fixed}, ad, Side{bxd, 0, false}});
    for (const Place outer : {Place{axc, 2}, Place{xbc, 1}, Place{bxd, 2}, Place{xad, 1}}) {
        suspects_.push_back(outer);
    }
}

// a b c | b a d becomes c a d | d b c.
void PlanarTriangulation::flip(Place place) {
    const Place other = beyond(place);
    const std::size_t i = place.side;
    const std::size_t j = other.side;
    const Cell near = cell(place.cell);
    const Cell far = cell(other.cell);
    const std::int32_t a = near.corner[i];
    const std::int32_t b = near.corner[next_corner(i)];
    const std::int32_t c = near.corner[previous_corner(i)];
    const std::int32_t d = far.corner[previous_corner(j)];
    const Side bc = near.side[next_corner(i)];
    const Side ad = far.side[next_corner(j)];
    if (bc.neighbour != kNone)
        cell(bc.neighbour).side[side_from(bc.neighbour, c)].neighbour = other.cell;
    if (ad.neighbour != kNone)
        cell(ad.neighbour).side[side_from(ad.neighbour, d)].neighbour = place.cell;
    cell(place.cell).corner = {c, a, d};
    cell(other.cell).corner = {d, b, c};
    link(place.cell, 0, near.side[previous_corner(i)]);
    link(place.cell, 1, ad);
    link(place.cell, 2, {other.cell, 0, false});
    link(other.cell, 0, far.side[previous_corner(j)]);
    link(other.cell, 1, bc);
    link(other.cell, 2, {place.cell, 0, false});
}

bool PlanarTriangulation::wants_flip(Place place) const {
    const Cell& near = cell(place.cell);
    const Side& side = near.side[place.side];
    if (side.neighbour == kNone || side.is_fixed) return false;
    const Place other = beyond(place);
    const std::int32_t d = cell(other.cell).corner[previous_corner(other.side)];
    return is_surely_in_circle(at(near.corner[0]), at(near.corner[1]), at(near.corner[2]), at(d));
}

void PlanarTriangulation::legalise() {
    while (!suspects_.empty()) {
        const Place place = suspects_.back();
        suspects_.pop_back();
        if (!wants_flip(place)) continue;
        const Place other = beyond(place);
        flip(place);
        for (const Place outer : {Place{place.cell, 0}, Place{place.cell, 1}, Place{other.cell, 0},
                                  Place{other.cell, 1}}) {
            suspects_.push_back(outer);
        }
    }
}

bool PlanarTriangulation::add_segment(std::size_t from, std::size_t to, std::int32_t weight) {
    weight_ = weight;
    pending_.push_back({node_of_[from] + kCorners, node_of_[to] + kCorners});
    while (!pending_.empty()) {
        const Segment segment = pending_.back();
        pending_.pop_back();
        if (segment.from != segment.to && !walk(segment)) return false;
    }
    legalise();
    return true;
}

void PlanarTriangulation::fix_side(Place place) {
    const Place other = beyond(place);
    Side& near = cell(place.cell).side[place.side];
    Side& far = cell(other.cell).side[other.side];
    near.is_fixed = far.is_fixed = true;
    near.weight += weight_;
    far.weight -= weight_;
}

// Follows a segment from its start to the first node on it and makes that stretch a side.
bool PlanarTriangulation::walk(Segment segment) {
    const auto [from, to] = segment;
    Place place{cell_at_[static_cast<std::size_t>(from)], 0};
    std::int32_t right = kNone;
    std::int32_t left = kNone;
    for (;;) {  // around the start
        const Cell& here = cell(place.cell);
        const std::size_t k = side_from(place.cell, from);
        right = here.corner[next_corner(k)];
        left = here.corner[previous_corner(k)];
        const int side = turn(from, to, right);
        if (right == to || (side == 0 && is_ahead(at(from), at(to), at(right)))) {
            fix_side({place.cell, k});
            if (right != to) is_exact_ = false;
            pending_.push_back({right, to});
            return true;
        }
        if (side < 0 && turn(from, to, left) > 0) {
            place.side = next_corner(k);
            break;
        }
        place.cell = here.side[previous_corner(k)].neighbour;
    }
    std::vector<Segment> crossed;
    for (;;) {
        if (cell(place.cell).side[place.side].is_fixed) return cross_fixed(segment, place);
        crossed.push_back({right, left});
        const Place other = beyond(place);
        const std::int32_t top = cell(other.cell).corner[previous_corner(other.side)];
        const int side = top == to ? 0 : turn(from, to, top);
        if (side == 0) {
            if (top != to) is_exact_ = false;
            pending_.push_back({top, to});
            return force({from, top}, crossed);
        }
        // The far cell runs left, right, top on its sides from other.side on.
        if (side > 0) {
            left = top;
            place = {other.cell, next_corner(other.side)};
        } else {
            right = top;
            place = {other.cell, previous_corner(other.side)};
        }
    }
}

PlanarTriangulation::Place PlanarTriangulation::find_side(std::int32_t a, std::int32_t b) const {
    if (a < kCorners) return beyond(find_side(b, a));  // many cells may meet at an outer corner
    std::int32_t index = cell_at_[static_cast<std::size_t>(a)];
    for (;;) {
        const std::size_t k = side_from(index, a);
        const Cell& here = cell(index);
        if (here.corner[next_corner(k)] == b) return {index, k};
        index = here.side[previous_corner(k)].neighbour;
    }
}

bool PlanarTriangulation::is_flippable(Place place) const {
    const Place other = beyond(place);
    const Cell& near = cell(place.cell);
    const std::int32_t a = near.corner[place.side];
    const std::int32_t b = near.corner[next_corner(place.side)];
    const std::int32_t c = near.corner[previous_corner(place.side)];
    const std::int32_t d = cell(other.cell).corner[previous_corner(other.side)];
    return turn(c, a, d) > 0 && turn(d, b, c) > 0;
}

// Flips the crossed sides, none of them fixed, until the segment is a side itself.
bool PlanarTriangulation::force(Segment segment, std::vector<Segment>& crossed) {
    const auto [from, to] = segment;
    std::vector<Segment> made;
    // Each side can be flipped as soon as its neighbours have been, so this ends; the limit guards
    // against a mistake in that.
    std::size_t left = 16 * crossed.size() * crossed.size() + 64;
    for (std::size_t i = 0; i < crossed.size(); ++i) {
        if (left-- == 0) return false;
        const Segment side = crossed[i];
        const Place place = find_side(side.from, side.to);
        if (!is_flippable(place)) {
            crossed.push_back(side);
            continue;
        }
        flip(place);
        const std::int32_t p = cell(place.cell).corner[0];
        const std::int32_t q = cell(place.cell).corner[2];
        const bool is_at_end = p == from || p == to || q == from || q == to;
        if (!is_at_end && turn(from, to, p) * turn(from, to, q) < 0) {
            crossed.push_back({p, q});
        } else {
            made.push_back({p, q});
        }
    }
    fix_side(find_side(from, to));
    for (const Segment& side : made) suspects_.push_back(find_side(side.from, side.to));
    legalise();
    return true;
}

// Adds a node where the segment crosses a fixed side, and goes on through it. Where rounding leaves
// no room for one, the segment makes the detour through an end of the side.
bool PlanarTriangulation::cross_fixed(Segment segment, Place place) {
    is_exact_ = false;
    if (budget_ == 0) return false;
    --budget_;
    const Cell& near = cell(place.cell);
    const std::int32_t a = near.corner[place.side];
    const std::int32_t b = near.corner[next_corner(place.side)];
    const std::int32_t c = near.corner[previous_corner(place.side)];
    const Place other = beyond(place);
    const std::int32_t d = cell(other.cell).corner[previous_corner(other.side)];
    const double to_a = std::abs(area(at(segment.from), at(segment.to), at(a)));
    const double to_b = std::abs(area(at(segment.from), at(segment.to), at(b)));
    const double share = to_a + to_b > 0 ? to_a / (to_a + to_b) : 0.5;
    const Point2d position = tiny_as_zero(
        Point2d{at(a).x + (at(b).x - at(a).x) * share, at(a).y + (at(b).y - at(a).y) * share});
    const auto turns_left = [&](std::int32_t p, std::int32_t q) {
        return orient2d(at(p), at(q), position) > 0;
    };
    std::int32_t through = share < 0.5 ? a : b;
    if (turns_left(b, c) && turns_left(c, a) && turns_left(a, d) && turns_left(d, b)) {
        through = static_cast<std::int32_t>(positions_.size());
        positions_.push_back(position);
        cell_at_.push_back(0);
        split_side(place, through);
        legalise();
    }
    pending_.push_back({through, segment.to});
    pending_.push_back({segment.from, through});
    return true;
}

Array<PlanarTriangulation::Triangle> PlanarTriangulation::wound_triangles() const {
    constexpr std::int32_t kUnknown = INT32_MIN;
    std::vector<std::int32_t> winding(cells_.size(), kUnknown);
    std::vector<std::int32_t> stack = {cell_at_[0]};  // a cell at an outer corner
    winding[static_cast<std::size_t>(stack[0])] = 0;
    Array<Triangle> result;
    while (!stack.empty()) {
        const std::int32_t index = stack.back();
        stack.pop_back();
        const Cell& here = cell(index);
        const std::int32_t own = winding[static_cast<std::size_t>(index)];
        if (own != 0) {
            const auto& [a, b, c] = here.corner;
            result.push_back({{a - kCorners, b - kCorners, c - kCorners}, own});
        }
        for (const Side& side : here.side) {
            if (side.neighbour == kNone) continue;
            std::int32_t& next = winding[static_cast<std::size_t>(side.neighbour)];
            if (next != kUnknown) {
                assert(next == own - side.weight);
                continue;
            }
            next = own - side.weight;
            stack.push_back(side.neighbour);
        }
    }
    return result;
}

}  // namespace povmesh
