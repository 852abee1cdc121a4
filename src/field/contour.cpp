#include "field/contour.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <span>
#include <stdexcept>
#include <vector>

#include "base/convert.h"
#include "base/parallel.h"
#include "field/compose.h"
#include "field/dual_vertex.h"
#include "field/untangle.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

// Blocks per piece of work.
constexpr std::size_t kBlocksAtOnce = 64;

// Steps of the secant method along an edge, before the nearest face is searched for anew.
constexpr int kSecantSteps = 4;
constexpr int kSearches = 3;
constexpr int kSharpSteps = 12;

// Where two distances agree, as a share of a cell.
constexpr double kSame = 1e-5;

// Normals within 25 degrees: a smooth place, where vertices go onto the level itself.
constexpr double kSmoothCosine = 0.9063;

// The points on the edges of a smooth cell need not be searched for: the vertex is moved onto the
// level. Normals without a search are some degrees off.
constexpr double kSurelySmoothCosine = 0.951;  // 18 degrees

// Nodes that were added stick out. So much of their edges belongs to them, in cells, that results
// stay within their tolerance.
constexpr float kBesideChanged = 0.03F;

// Vertices at the rims of sheets lie no farther from them than the edges of a rim that is square.
constexpr double kRimOvershoot = 1.45;

template <typename Body>
void for_each_block(std::size_t count, Body&& body) {
    for_blocks((count + kBlocksAtOnce - 1) / kBlocksAtOnce, [&](std::size_t piece) {
        const std::size_t end = std::min((piece + 1) * kBlocksAtOnce, count);
        for (std::size_t b = piece * kBlocksAtOnce; b < end; ++b) body(b);
    });
}

// How far vertices keep off the sides of their cells, in cells: a little, and more than what floats
// round by where the grid lies.
double margin_of(const FieldGrid& grid) {
    const Vec3d last = grid.node(grid.nodes[0], grid.nodes[1], grid.nodes[2]);
    const double farthest =
        std::max({std::abs(grid.origin.x), std::abs(grid.origin.y), std::abs(grid.origin.z),
                  std::abs(last.x), std::abs(last.y), std::abs(last.z)});
    return std::max(0.002, 1.3 * 0x1p-23 * farthest / grid.cell);
}

class Contouring {
public:
    Contouring(const DistanceField& field, const LevelNodes& nodes, double level,
               const SharpDistance* sharp, Array<VertexDistance>* distances)
        : field_(field),
          nodes_(nodes),
          set_(nodes.within),
          level_(level),
          sharp_(sharp),
          distances_(distances),
          dual_(field.grid(), set_.layout()),
          margin_(margin_of(field.grid())) {}

    ContourReport run(TriMesh& surface) {
        find_cells();
        points_.resize(dual_.edge_count());
        const bool can_be_rough = level_ != 0 && sharp_ == nullptr;
        for_each_block(dual_.blocks.size(), [&](std::size_t b) { place_points(b, can_be_rough); });
        dual_.places.resize(dual_.vertex_count());
        dual_.steps.assign(dual_.vertex_count(), 0);
        number_cells();
        if (can_be_rough) refine_points();
        if (distances_ != nullptr) distances_->assign(dual_.vertex_count(), {});
        for_each_block(dual_.blocks.size(), [&](std::size_t b) { place_vertices(b); });
        dual_.quads.resize(dual_.edge_count());
        for_each_block(dual_.blocks.size(), [&](std::size_t b) { make_quads(b); });
        const ContourReport report = untangle(
            dual_, [&](std::uint32_t vertex) { return mean_of_points(dual_.cells[vertex]); });
        for (std::size_t v = 0; distances_ != nullptr && v < distances_->size(); ++v) {
            if (dual_.steps[v] != 0) (*distances_)[v] = {};
        }
        build(surface);
        return report;
    }

private:
    // What the level is a distance from.
    const NearestFace& surface() const { return level_ == 0 ? field_.sheets() : field_.surface(); }

    // --------------------------------------------------------------------------- cells and edges

    void find_cells() {
        dual_.slots.assign(set_.block_count(), DualSurface::kNone);
        for (std::uint32_t b = 0; b < set_.block_count(); ++b) {
            if (is_uniform_around(set_, b)) continue;
            DualSurface::Block block = block_of(b);
            if (!block.cells.any()) continue;
            block.first_vertex = dual_.vertex_count();
            block.first_edge = dual_.edge_count();
            dual_.slots[b] = fits<std::uint32_t>(dual_.blocks.size());
            dual_.blocks.push_back(block);
        }
    }

    DualSurface::Block block_of(std::uint32_t number) const {
        const NodeRows around = rows_of(set_, number);
        DualSurface::Block block;
        block.number = number;
        for (std::size_t k = 0; k < 8; ++k) {
            for (std::size_t j = 0; j < 8; ++j) {
                const std::uint32_t a = around.rows[k][j];
                const std::uint32_t b = around.rows[k][j + 1];
                const std::uint32_t c = around.rows[k + 1][j];
                const std::uint32_t d = around.rows[k + 1][j + 1];
                const std::uint32_t any = a | b | c | d;
                const std::uint32_t all = a & b & c & d;
                const auto put = [&](BlockBits& bits, std::uint32_t row) {
                    bits.words[k] |= static_cast<std::uint64_t>(row & 0xFF) << (8 * j);
                };
                put(block.cells, (any | any >> 1) & ~(all & all >> 1));
                put(block.edges[0], a ^ a >> 1);
                put(block.edges[1], a ^ b);
                put(block.edges[2], a ^ c);
            }
        }
        return block;
    }

    // ------------------------------------------------------------------------ points on the edges

    void place_points(std::size_t b, bool is_rough) {
        const DualSurface::Block& block = dual_.blocks[b];
        std::size_t index = block.first_edge;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            std::span<const Crossing> crossings = field_.crossings().of_block(axis, block.number);
            block.edges[axis].visit([&](std::uint32_t local) {
                const std::uint32_t node = block.number * kBlockNodes + local;
                points_[index++] = level_ == 0 ? point_on_faces(node, axis, crossings)
                                   : sharp_ != nullptr
                                       ? point_on_sharp_level(node, axis)
                                       : point_on_level(node, axis, std::abs(level_), is_rough);
            });
        }
    }

    void number_cells() {
        dual_.cells.resize(dual_.vertex_count());
        for_each_block(dual_.blocks.size(), [&](std::size_t b) {
            const DualSurface::Block& block = dual_.blocks[b];
            std::size_t vertex = block.first_vertex;
            block.cells.visit([&](std::uint32_t local) {
                dual_.cells[vertex++] = block.number * kBlockNodes + local;
            });
        });
    }

    // Places the points exactly that are on an edge of a cell which is not smooth for sure.
    void refine_points() {
        Array<std::uint8_t> is_rough(dual_.vertex_count());
        parallel_for(is_rough.size(), [&](std::size_t v) {
            is_rough[v] = is_smooth(points_of(dual_.cells[v]).span(), kSurelySmoothCosine) ? 0 : 1;
        });
        for_each_block(dual_.blocks.size(), [&](std::size_t b) {
            const DualSurface::Block& block = dual_.blocks[b];
            std::size_t index = block.first_edge;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                block.edges[axis].visit([&](std::uint32_t local) {
                    DualSurface::Quad around;
                    around.node = block.number * kBlockNodes + local;
                    around.axis = static_cast<std::uint8_t>(axis);
                    around.is_low_solid = 1;
                    dual_.find_corners(around);
                    const bool is_any =
                        std::any_of(around.corners.begin(), around.corners.end(),
                                    [&](std::uint32_t vertex) { return is_rough[vertex] != 0; });
                    if (is_any) {
                        points_[index] = point_on_level(around.node, axis, std::abs(level_), false);
                    }
                    ++index;
                });
            }
        });
    }

    // Takes the crossings up to the node from the front of the list.
    EdgePoint point_on_faces(std::uint32_t node, std::size_t axis,
                             std::span<const Crossing>& crossings) const {
        std::size_t first = 0;
        while (first < crossings.size() && crossings[first].node < node) ++first;
        std::size_t end = first;
        while (end < crossings.size() && crossings[end].node == node) ++end;
        const std::span<const Crossing> own = crossings.subspan(first, end - first);
        crossings = crossings.subspan(end);
        const bool is_low_solid = set_.at(node);
        const NodeIndex up = set_.layout().node(node).stepped(axis, 1);
        const std::uint32_t solid = is_low_solid ? node : set_.layout().number(up);
        if (field_.thickened().at(solid)) {
            // Also where the edge passes through the sheet and ends hardly beyond it.
            const EdgePoint point = point_on_level(node, axis, field_.sheet_reach(), false);
            if (own.empty() || dot(point.normal, point.normal) > 0) return point;
        }
        if (own.empty()) {
            return field_.solid().at(solid) ? EdgePoint{0.5F, {}} : beside(is_low_solid);
        }
        const Crossing& outermost = is_low_solid ? own.back() : own.front();
        const Triangle t = triangle_of(field_.faces(), field_.faces().faces[outermost.face]);
        const Vec3d normal = cross(t[1] - t[0], t[2] - t[0]);
        return {outermost.place, unit(normal)};
    }

    static Vec3f unit(Vec3d v) {
        const double size = length(v);
        if (!(size > 0) || !std::isfinite(size)) return {};
        v = v / size;
        return {static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
    }

    NodeDistances::Sample known_sample(NodeIndex n) const {
        const NodeDistances& distances = level_ != 0 ? nodes_.distances : field_.sheet_distances();
        return distances.at(set_.layout().number(n));
    }

    // `known` is that of the edge's other end.
    NodeDistances::Sample sample_of(NodeIndex n, double level,
                                    const NodeDistances::Sample& known) const {
        const NodeDistances::Sample own = known_sample(n);
        if (own.face != NearestPoint::kNoFace) return own;
        const double cell = field_.grid().cell;
        const Vec3d p = field_.grid().node(n.i, n.j, n.k);
        double limit = (level + 8 * cell) * (level + 8 * cell);
        if (known.face != NearestPoint::kNoFace) {
            limit = limit_by(p, nearest_of(p, {&known.face, 1}).point, limit, cell);
        }
        const NearestPoint nearest = surface().find(p, limit);
        return {static_cast<float>(std::sqrt(nearest.squared_distance)), nearest.face};
    }

    // A place on an edge, and how much farther than the level it lies from the surface.
    struct End {
        double place;
        double value;
    };

    // Where the search along an edge begins. An end on the other side of the surface counts from
    // the surface on.
    End end_of(NodeIndex n, double place, const NodeDistances::Sample& sample, double level,
               std::span<const Crossing> crossings) const {
        const bool is_beyond = level_ != 0 && field_.solid().at(n) == (level_ > 0);
        if (!is_beyond) return {place, static_cast<double>(sample.distance) - level};
        if (crossings.empty()) return {place, -level};
        const Crossing& nearest = place == 0 ? crossings.back() : crossings.front();
        return {static_cast<double>(nearest.place), -level};
    }

    // The distance of an edge's end that was not measured from the face that is nearest to the
    // other end: of another one it may be nearer.
    NodeDistances::Sample led_sample(NodeIndex n, std::uint32_t face) const {
        if (face == NearestPoint::kNoFace) return {};
        const Vec3d p = field_.grid().node(n.i, n.j, n.k);
        return {static_cast<float>(std::sqrt(nearest_of(p, {&face, 1}).squared_distance)), face};
    }

    // Where the distance to the surface is the level, along an edge. The faces nearest to its ends
    // lead there; the search at the end, which a rough point does without, tells whether another
    // one is nearer.
    EdgePoint point_on_level(std::uint32_t node, std::size_t axis, double level,
                             bool is_rough) const {
        const FieldGrid& grid = field_.grid();
        const NodeIndex low = set_.layout().node(node);
        const NodeIndex high = low.stepped(axis, 1);
        NodeDistances::Sample a = known_sample(low);
        NodeDistances::Sample b = known_sample(high);
        if (is_rough) {
            if (a.face == NearestPoint::kNoFace) a = led_sample(low, b.face);
            if (b.face == NearestPoint::kNoFace) b = led_sample(high, a.face);
        } else {
            a = sample_of(low, level, b);
            b = sample_of(high, level, a);
        }
        if (a.face == NearestPoint::kNoFace || b.face == NearestPoint::kNoFace) {
            return is_rough ? point_on_level(node, axis, level, false) : EdgePoint{0.5F, {}};
        }
        const Vec3d from = grid.node(low.i, low.j, low.k);
        const Vec3d step = grid.node(high.i, high.j, high.k) - from;
        std::array<std::uint32_t, 2 + kSearches> faces{a.face, b.face};
        std::size_t face_count = a.face == b.face ? 1 : 2;
        const std::span<const Crossing> crossings = field_.crossings().of_edge(axis, node);
        const std::array<End, 2> ends = {end_of(low, 0, a, level, crossings),
                                         end_of(high, 1, b, level, crossings)};
        // A node added or taken away has no level on its edges.
        if ((ends[0].value < 0) == (ends[1].value < 0)) {
            return is_rough ? point_on_level(node, axis, level, false) : beside(is_nearer(ends));
        }
        NearestPoint nearest;
        double t = 0.5;
        for (int search = 0;; ++search) {
            t = root_between(ends, level, from, step, {faces.data(), face_count}, nearest);
            const double known = std::sqrt(nearest.squared_distance) - kSame * grid.cell;
            if (is_rough || !(known > 0) || search == kSearches) break;
            const NearestPoint nearer = surface().find(from + step * t, known * known);
            if (!nearer.is_found()) break;
            nearest = nearer;
            faces[face_count++] = nearer.face;
            if (face_count == faces.size()) break;
        }
        return {static_cast<float>(t), unit(from + step * t - nearest.point)};
    }

    // The point of an edge without a level, next to the end that was added or taken away.
    static EdgePoint beside(bool is_low) {
        return {is_low ? kBesideChanged : 1 - kBesideChanged, {}};
    }
    static bool is_nearer(const std::array<End, 2>& ends) {
        return std::abs(ends[0].value) < std::abs(ends[1].value);
    }

    EdgePoint point_on_sharp_level(std::uint32_t node, std::size_t axis) const {
        const FieldGrid& grid = field_.grid();
        const double level = std::abs(level_);
        const double reach = 2 * level + 4 * grid.cell;
        const NodeIndex low = set_.layout().node(node);
        const NodeIndex high = low.stepped(axis, 1);
        const Vec3d from = grid.node(low.i, low.j, low.k);
        const Vec3d step = grid.node(high.i, high.j, high.k) - from;
        const auto sample = [&](Vec3d p) {
            const double distance = sharp_->at(p, reach).distance;
            return NodeDistances::Sample{static_cast<float>(std::min(distance, reach)), 0};
        };
        const std::span<const Crossing> crossings = field_.crossings().of_edge(axis, node);
        std::array<End, 2> ends = {end_of(low, 0, sample(from), level, crossings),
                                   end_of(high, 1, sample(from + step), level, crossings)};
        if ((ends[0].value < 0) == (ends[1].value < 0)) return beside(is_nearer(ends));
        double t = 0.5;
        SharpDistance::Value value{};
        for (int i = 0; i < kSharpSteps; ++i) {
            // Halving every third time: planes meet in kinks, where the secant is slow.
            const double share = i % 3 == 2 ? 0.5 : ends[0].value / (ends[0].value - ends[1].value);
            t = ends[0].place + (ends[1].place - ends[0].place) * share;
            value = sharp_->at(from + step * t, reach);
            const double off = std::min(value.distance, reach) - level;
            if (std::abs(off) < kSame * grid.cell) break;
            ends[(off < 0) == (ends[0].value < 0) ? 0 : 1] = {t, off};
        }
        return {static_cast<float>(std::clamp(t, 0.0, 1.0)), unit(value.gradient)};
    }

    double root_between(std::array<End, 2> ends, double level, Vec3d from, Vec3d step,
                        std::span<const std::uint32_t> faces, NearestPoint& nearest) const {
        double t = 0.5;
        for (int i = 0; i < kSecantSteps; ++i) {
            const double share = ends[0].value / (ends[0].value - ends[1].value);
            t = ends[0].place + (ends[1].place - ends[0].place) * share;
            nearest = nearest_of(from + step * t, faces);
            const double value = std::sqrt(nearest.squared_distance) - level;
            if (std::abs(value) < kSame * field_.grid().cell) break;
            ends[(value < 0) == (ends[0].value < 0) ? 0 : 1] = {t, value};
        }
        return std::clamp(t, 0.0, 1.0);
    }

    NearestPoint nearest_of(Vec3d p, std::span<const std::uint32_t> faces) const {
        NearestPoint best;
        for (const std::uint32_t face : faces) {
            NearestPoint here =
                nearest_on_triangle(p, triangle_of(field_.faces(), field_.faces().faces[face]));
            here.face = face;
            if (here.squared_distance < best.squared_distance) best = here;
        }
        return best;
    }

    // ---------------------------------------------------------------------------------- vertices

    void place_vertices(std::size_t b) {
        const DualSurface::Block& block = dual_.blocks[b];
        const std::size_t end = block.first_vertex + block.cells.count();
        for (std::size_t v = block.first_vertex; v < end; ++v) {
            NearestPoint nearest;
            Vec3d from;
            const std::uint32_t cell = dual_.cells[v];
            dual_.places[v] = dual_.to_world(cell, place_vertex(cell, from, nearest));
            if (distances_ == nullptr || !nearest.is_found()) continue;
            // A distance changes by no more than the way.
            const double least =
                std::sqrt(nearest.squared_distance) - length(to_double(dual_.places[v]) - from);
            (*distances_)[v] = {std::nextafter(static_cast<float>(least), 0.0F), nearest.face};
        }
    }

    struct CellPoints {
        std::array<CellPoint, 12> points;
        std::size_t count = 0;
        std::span<const CellPoint> span() const { return {points.data(), count}; }
    };

    CellPoints points_of(std::uint32_t cell) const {
        CellPoints all;
        dual_.visit_edges(cell, [&](std::uint32_t edge, std::size_t axis, Vec3d low) {
            const EdgePoint& point = points_[edge];
            Vec3d place = low;
            (axis == 0   ? place.x
             : axis == 1 ? place.y
                         : place.z) += static_cast<double>(point.place);
            all.points[all.count++] = {place, to_double(point.normal)};
        });
        return all;
    }

    Vec3d mean_of_points(std::uint32_t cell) const {
        const CellPoints all = points_of(cell);
        return clamped_to_cell(mean_of(all.span()), margin_);
    }

    // Where a search was made, `nearest` is what it found from a point beside the vertex.
    Vec3d place_vertex(std::uint32_t cell, Vec3d& from, NearestPoint& nearest) const {
        const CellPoints all = points_of(cell);
        if (level_ == 0) {
            const Vec3d place = clamped_to_cell(dual_vertex(all.span()), margin_);
            return overshoots_rim(cell, place, all.span())
                       ? clamped_to_cell(mean_of(all.span()), margin_)
                       : place;
        }
        if (!is_smooth(all.span(), kSmoothCosine)) {
            return clamped_to_cell(dual_vertex(all.span()), margin_);
        }
        // Tangent planes overshoot a round level.
        Vec3d place = mean_of(all.span());
        const FieldGrid& grid = field_.grid();
        const double level = std::abs(level_);
        const double reach = level + grid.cell;
        const Vec3d p = from = dual_.to_exact_world(cell, place);
        // Where planes moved as they are, the mean is on them.
        if (sharp_ != nullptr && sharp_->at(p, 2 * reach).is_at_plane) {
            return clamped_to_cell(dual_vertex(all.span()), margin_);
        }
        nearest = surface().find(p, limit_by_points(p, cell, all.span(), reach));
        if (!nearest.is_found()) nearest = surface().find(p, reach * reach);
        const double distance = std::sqrt(nearest.squared_distance);
        if (nearest.is_found() && distance > 0) {
            place = place + (p - nearest.point) * ((level - distance) / (distance * grid.cell));
        }
        return clamped_to_cell(place, margin_);
    }

    // Around the tips of sheets tangent planes meet far out.
    bool overshoots_rim(std::uint32_t cell, Vec3d place, std::span<const CellPoint> points) const {
        if (!has_thickened_corner(cell) || is_smooth(points, kSmoothCosine)) return false;
        const double reach = kRimOvershoot * field_.sheet_reach();
        return !surface().find(dual_.to_exact_world(cell, place), reach * reach).is_found();
    }
    bool has_thickened_corner(std::uint32_t cell) const {
        if (!(field_.sheet_reach() > 0)) return false;
        const NodeIndex low = set_.layout().node(cell);
        for (std::int32_t c = 0; c < 8; ++c) {
            const NodeIndex n = {low.i + (c & 1), low.j + (c >> 1 & 1), low.k + (c >> 2)};
            if (field_.thickened().at(n)) return true;
        }
        return false;
    }

    // The points on the edges lie at the level from those of the surface that are nearest to them.
    double limit_by_points(Vec3d p, std::uint32_t cell, std::span<const CellPoint> points,
                           double reach) const {
        double limit = reach * reach;
        for (const CellPoint& point : points) {
            const Vec3d nearest =
                dual_.to_exact_world(cell, point.place) - point.normal * std::abs(level_);
            limit = limit_by(p, nearest, limit, field_.grid().cell);
        }
        return limit;
    }

    // ------------------------------------------------------------------------------------- quads

    void make_quads(std::size_t b) {
        const DualSurface::Block& block = dual_.blocks[b];
        std::uint32_t index = block.first_edge;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            block.edges[axis].visit([&](std::uint32_t local) {
                const std::uint32_t node = block.number * kBlockNodes + local;
                DualSurface::Quad& quad = dual_.quads[index];
                quad.node = node;
                quad.axis = static_cast<std::uint8_t>(axis);
                quad.is_low_solid = set_.at(node) ? 1 : 0;
                quad.place = points_[index].place;
                dual_.find_corners(quad);
                dual_.choose_diagonal(quad);
                ++index;
            });
        }
    }

    void build(TriMesh& surface) const {
        surface = TriMesh{};
        if (dual_.quads.size() > kMaxFaceCount / 2) {
            throw std::length_error("a surface of more triangles than a mesh can have");
        }
        surface.vertices.resize(dual_.places.size());
        parallel_for(dual_.places.size(), [&](std::size_t v) {
            const Vec3f p = dual_.places[v];
            surface.vertices[v] = {p.x, p.y, p.z, static_cast<std::int32_t>(v)};
        });
        surface.faces.resize(2 * dual_.quads.size());
        parallel_for(dual_.quads.size(), [&](std::size_t q) {
            const auto triangles = DualSurface::triangles(dual_.quads[q]);
            for (std::size_t t = 0; t < 2; ++t) {
                Face& face = surface.faces[2 * q + t];
                face.colour.fill(255);
                face.deleted = 0;
                face.label = -1;
                face.uv.fill(-1);
                for (std::size_t c = 0; c < 3; ++c) {
                    face.vertex[c] = static_cast<std::int32_t>(triangles[t][c]);
                }
            }
        });
    }

    const DistanceField& field_;
    const LevelNodes& nodes_;
    const NodeSet& set_;
    double level_;
    const SharpDistance* sharp_;
    Array<VertexDistance>* distances_;
    DualSurface dual_;
    double margin_;
    Array<EdgePoint> points_;
};

}  // namespace

ContourReport contour(const DistanceField& field, const LevelNodes& nodes, double level,
                      TriMesh& surface, const SharpDistance* sharp,
                      Array<VertexDistance>* distances) {
    return Contouring(field, nodes, level, sharp, distances).run(surface);
}

}  // namespace povmesh
