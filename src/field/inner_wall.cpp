// The level of the distance inside, contoured and mended. The distance to one triangle is convex,
// and at a distance d its slope changes by no more than 1 / d a unit of way. So on a piece of a
// triangle that fits into a circle of radius R, with corners at a distance s or more from all of
// the model's triangles, nothing is nearer than s - R^2 / (2 (s - R)). Few triangles need more than
// the distances of their corners to be told apart from the wall.
#include "field/inner_wall.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <numeric>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "base/parallel.h"
#include "field/compose.h"
#include "field/regions.h"
#include "mesh/bounds.h"
#include "mesh/compact.h"
#include "mesh/volume.h"
#include "spatial/nearest_face.h"
#include "spatial/self_intersection.h"
#include "spatial/triangle_intersection.h"

namespace povmesh {
namespace {

constexpr double kCellsOfWall = 5;
constexpr double kFewestCellsOfWall = 2;
constexpr double kMostCells = 0x1p27;
constexpr double kMostCellsOfSide = 15000;
constexpr double kMostCellsFromOrigin = 0x1p17;
constexpr double kRoundedUp = 1.01;  // so that what is told works
constexpr double kMarginCells = 4;
constexpr std::uint64_t kFewestNodes = 100;

// A mesh with open edges whose solid fills less of its volume leaks. Degenerate faces leave slits
// without width, through which nothing gets.
constexpr double kLeastFilled = 0.9;

// What lies nearer than this share of the thickness is moved off, by so many times what is missing.
constexpr double kMended = 0.985;
constexpr double kOvershoot = 1.2;
constexpr int kMostRounds = 8;

// Vertices that are known to be that far need no search: with less, their triangles would have to
// be looked at more closely.
constexpr double kKnown = 0.995;

// Cells around a bad face whose nodes leave the cavity, pass by pass. Passages hardly wider than a
// cell fill from their ends, which takes a row of nodes a pass with the nearest ones alone.
constexpr std::array<std::int32_t, 7> kReaches = {0, 0, 1, 2, 4, 8, 16};
constexpr std::size_t kMostPasses = kReaches.size() + 1;

// Halvings of a triangle's sides before the proof is given up, and its corners move.
constexpr int kMostHalvings = 10;

// The smallest wall is told too small by this share at most, as far as the halvings lead.
constexpr double kToldWithin = 5e-3;

// How far the surface moves at most where triangles are merged, in thicknesses.
constexpr double kThinOutShare = 2e-3;

// No part of a triangle is looked at closer when its bound is that near to what it is at a corner.
constexpr double kKnownWithin = 1e-3;

// Vertices keep this share of a cell off its sides; the contour leaves them as much.
constexpr double kMargin = 0.02;

// Triangles looked at for the mean.
constexpr std::size_t kMostMeanSamples = 10000;

// Triangles per piece of work, each some microseconds.
constexpr std::size_t kAtOnce = 256;

// What is at least as far as the corners are, over a triangle that fits into a circle.
double least_between(double corners, double radius) {
    const double least = corners - radius;
    return least > 0 ? corners - radius * radius / (2 * least) : 0;
}

// Of the least circle around a triangle: that of its longest edge, or the one through its corners.
double circle_radius(const Triangle& t) {
    std::array<double, 3> squares{};
    for (std::size_t c = 0; c < 3; ++c) {
        const Vec3d edge = t[next_corner(c)] - t[c];
        squares[c] = dot(edge, edge);
    }
    std::sort(squares.begin(), squares.end());
    const auto [a, b, c] = squares;
    if (a + b <= c) return std::sqrt(c) / 2;
    // 16 times the squared area: of an acute triangle at least a quarter of its greatest product.
    const double area = 2 * (a * b + b * c + c * a) - (a * a + b * b + c * c);
    return std::sqrt(a * b * c / area);
}

// The surface of a cavity, moved off the model.
class Mending {
public:
    /// @param model_mesh  what `model` searches in
    Mending(const NearestFace& model, const TriMesh& model_mesh, const FieldGrid& grid,
            double thickness, double least_share, TriMesh& surface)
        : model_(model),
          model_mesh_(model_mesh),
          grid_(grid),
          thickness_(thickness),
          least_wall_(least_share * thickness),
          surface_(surface) {}

    /// @param known    of the vertices, or empty
    /// @param is_told  the smallest wall will be asked for: what is known must be near to the truth
    void measure(const Array<VertexDistance>& known, bool is_told) {
        measure_vertices(known, is_told ? kToldWithin / 5 * thickness_ : thickness_);
        bounds_.assign(surface_.faces.size(), 0);
    }

    /// Moves what was measured. Returns the faces that are too near after all, or cross others.
    std::vector<std::uint32_t> run() {
        Array<std::uint32_t> active = all_faces();
        is_moved_.assign(surface_.vertices.size(), 0);
        for (int round = 0;; ++round) {
            const std::vector<Short> found = find_short(active);
            if (found.empty() || round == kMostRounds) {
                std::vector<std::uint32_t> bad = crossing_faces();
                for (const Short& s : found) bad.push_back(s.face);
                std::sort(bad.begin(), bad.end());
                bad.erase(std::unique(bad.begin(), bad.end()), bad.end());
                return bad;
            }
            active = move_off(found);
        }
    }

    /// For when there is no other way: the places of the contour, which cross nowhere.
    void undo(const Array<Vertex>& before) {
        surface_.vertices = before;
        measure({}, true);
    }

    /// No point is nearer to the model, and the nearest is hardly farther.
    double smallest_wall() {
        double least = std::numeric_limits<double>::infinity();
        for (const Distance& distance : distances_) least = std::min(least, distance.value);
        const double told = std::max(least * (1 - kToldWithin), least_wall_);
        for_pieces(surface_.faces.size(), [&](std::size_t f) {
            if (static_cast<double>(bounds_[f]) >= told) return;
            bounds_[f] = part_of(static_cast<std::uint32_t>(f), told, 0).told_bound();
        });
        for (const float bound : bounds_) least = std::min(least, static_cast<double>(bound));
        return least;
    }

    std::size_t moved_count() const {
        return static_cast<std::size_t>(std::count(is_moved_.begin(), is_moved_.end(), 1));
    }

private:
    // A point of a face that lies too near to the model.
    struct Short {
        std::uint32_t face;
        Vec3d away;  // from the model, as far as the point is to move
    };
    struct Distance {
        double value = 0;
        Vec3d nearest;
        bool is_told = false;
    };

    // Beyond what matters for the proof, the distance is not told. Those of points around make the
    // search short.
    Distance distance_of(Vec3d p, std::initializer_list<const Distance*> around) const {
        const double limit = thickness_ + 4 * grid_.cell;
        double squared = limit * limit;
        for (const Distance* known : around) {
            if (known->is_told) squared = limit_by(p, known->nearest, squared, grid_.cell);
        }
        const NearestPoint found = model_.find(p, squared);
        return found.is_found() ? Distance{std::sqrt(found.squared_distance), found.point, true}
                                : Distance{limit, p, false};
    }

    Array<std::uint32_t> all_faces() const {
        Array<std::uint32_t> all(surface_.faces.size());
        std::iota(all.begin(), all.end(), std::uint32_t{0});
        return all;
    }

    Vec3d place(std::size_t vertex) const {
        return to_double(surface_.vertices[vertex].position());
    }

    void measure_vertices(const Array<VertexDistance>& known, double within) {
        distances_.resize(surface_.vertices.size());
        for_pieces(distances_.size(), [&](std::size_t v) {
            if (!known.empty() && is_known(v, known[v], within)) return;
            // The vertex before is mostly a neighbour, but may belong to another thread.
            const bool has_before = v % kAtOnce != 0;
            distances_[v] = has_before ? distance_of(place(v), {&distances_[v - 1]})
                                       : distance_of(place(v), {});
        });
    }

    // Takes what is known of a vertex for its distance where it is near enough to the truth, and
    // enough of a wall.
    bool is_known(std::size_t v, const VertexDistance& known, double within) {
        const double least = static_cast<double>(known.at_least);
        if (known.face == NearestPoint::kNoFace || !(least >= kKnown * thickness_)) return false;
        const Triangle t = triangle_of(model_mesh_, model_mesh_.faces[known.face]);
        const NearestPoint nearest = nearest_on_triangle(place(v), t);
        if (!(std::sqrt(nearest.squared_distance) <= least + within)) return false;
        distances_[v] = {least, nearest.point, true};
        return true;
    }

    template <typename Body>
    static void for_pieces(std::size_t count, const Body& body) {
        for_blocks((count + kAtOnce - 1) / kAtOnce, [&](std::size_t piece) {
            const std::size_t end = std::min(count, (piece + 1) * kAtOnce);
            for (std::size_t i = piece * kAtOnce; i < end; ++i) body(i);
        });
    }

    // The nearest sample of a part of a triangle, and what no point of it is nearer than.
    struct Part {
        Distance nearest{std::numeric_limits<double>::infinity(), {}, false};
        Vec3d point;
        double bound = std::numeric_limits<double>::infinity();

        float told_bound() const { return std::nextafter(static_cast<float>(bound), 0.0F); }
    };

    // Looks closer until no point is nearer than `enough`, or one is nearer than `least`.
    struct Aim {
        double enough, least;
    };

    Part part_of(std::uint32_t f, double enough, double least) const {
        const Face& face = surface_.faces[f];
        std::array<Distance, 3> distances;
        for (std::size_t c = 0; c < 3; ++c) {
            distances[c] = distances_[static_cast<std::size_t>(face.vertex[c])];
        }
        Part part;
        look_at(triangle_of(surface_, face), distances, {enough, least}, 0, part);
        return part;
    }

    void look_at(const Triangle& t, const std::array<Distance, 3>& distances, const Aim& aim,
                 int halvings, Part& part) const {
        double least = distances[0].value;
        for (std::size_t c = 0; c < 3; ++c) {
            least = std::min(least, distances[c].value);
            if (distances[c].value < part.nearest.value) {
                part.nearest = distances[c];
                part.point = t[c];
            }
        }
        const double bound = least_between(least, circle_radius(t));
        const bool is_told = bound >= aim.enough || bound >= least * (1 - kKnownWithin);
        if (is_told || least < aim.least || halvings == kMostHalvings) {
            part.bound = std::min(part.bound, bound);
            return;
        }
        Triangle middles;
        std::array<Distance, 3> there;
        for (std::size_t c = 0; c < 3; ++c) {
            middles[c] = (t[c] + t[next_corner(c)]) * 0.5;
            there[c] = distance_of(middles[c], {&distances[c], &distances[next_corner(c)]});
        }
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t before = previous_corner(c);
            look_at({t[c], middles[c], middles[before]}, {distances[c], there[c], there[before]},
                    aim, halvings + 1, part);
        }
        look_at(middles, there, aim, halvings + 1, part);
    }

    // Faces on which a point is too near, or that cannot be proven to be far enough.
    std::vector<Short> find_short(const Array<std::uint32_t>& active) {
        std::vector<Part> parts(active.size());
        for_pieces(active.size(), [&](std::size_t i) {
            parts[i] = part_of(active[i], least_wall_, kMended * thickness_);
            bounds_[active[i]] = parts[i].told_bound();
        });
        std::vector<Short> found;
        for (std::size_t i = 0; i < active.size(); ++i) {
            const Part& part = parts[i];
            if (part.bound >= least_wall_) continue;
            const double missing =
                std::max(kMended * thickness_ - part.nearest.value, thickness_ * 1e-3);
            const Vec3d away = part.point - part.nearest.nearest;
            const double size = length(away);
            found.push_back({active[i], size > 0 ? away * (kOvershoot * missing / size) : Vec3d{}});
        }
        return found;
    }

    // Moves the corners of these faces within their cells. Returns the faces at them, ascending.
    Array<std::uint32_t> move_off(const std::vector<Short>& found) {
        struct Move {
            std::size_t vertex;
            Vec3d by;
        };
        std::vector<Move> moves;
        for (const Short& s : found) {
            for (const std::int32_t v : surface_.faces[s.face].vertex) {
                moves.push_back({static_cast<std::size_t>(v), s.away});
            }
        }
        // The longest of each vertex counts.
        std::stable_sort(moves.begin(), moves.end(), [](const Move& a, const Move& b) {
            return a.vertex != b.vertex ? a.vertex < b.vertex : dot(a.by, a.by) > dot(b.by, b.by);
        });
        moves.erase(std::unique(moves.begin(), moves.end(),
                                [](const Move& a, const Move& b) { return a.vertex == b.vertex; }),
                    moves.end());
        for_pieces(moves.size(), [&](std::size_t i) {
            const Move& move = moves[i];
            Vertex& vertex = surface_.vertices[move.vertex];
            const Vec3d from = place(move.vertex);
            const Vec3d to = within_cell(from, from + move.by);
            vertex.x = static_cast<float>(to.x);
            vertex.y = static_cast<float>(to.y);
            vertex.z = static_cast<float>(to.z);
            is_moved_[move.vertex] = 1;
            distances_[move.vertex] = distance_of(place(move.vertex), {&distances_[move.vertex]});
        });
        ensure_uses(surface_);
        Array<std::uint32_t> around;
        for (const Move& move : moves) {
            for (const Use& use : surface_.uses(move.vertex)) around.push_back(use.face());
        }
        std::sort(around.begin(), around.end());
        around.erase(std::unique(around.begin(), around.end()), around.end());
        return around;
    }

    Vec3d within_cell(Vec3d from, Vec3d to) const {
        const auto clamped = [&](double was, double is, double origin) {
            const double low = std::floor((was - origin) / grid_.cell);
            return std::clamp(is, origin + (low + kMargin) * grid_.cell,
                              origin + (low + 1 - kMargin) * grid_.cell);
        };
        return {clamped(from.x, to.x, grid_.origin.x), clamped(from.y, to.y, grid_.origin.y),
                clamped(from.z, to.z, grid_.origin.z)};
    }

    // Faces in each other's way lie in cells side by side: only what is around moved vertices is
    // looked at.
    std::vector<std::uint32_t> crossing_faces() {
        if (moved_count() == 0) return {};
        ensure_uses(surface_);
        Array<std::uint8_t> is_near = is_moved_;
        for (int ring = 0; ring < 2; ++ring) {
            Array<std::uint8_t> wider = is_near;
            for (const Face& face : surface_.faces) {
                bool is_any = false;
                for (const std::int32_t v : face.vertex) {
                    is_any = is_any || is_near[static_cast<std::size_t>(v)] != 0;
                }
                if (!is_any) continue;
                for (const std::int32_t v : face.vertex) wider[static_cast<std::size_t>(v)] = 1;
            }
            is_near = std::move(wider);
        }
        TriMesh part;
        part.vertices = surface_.vertices;
        std::vector<std::uint32_t> faces;
        for (std::uint32_t f = 0; f < surface_.faces.size(); ++f) {
            const Face& face = surface_.faces[f];
            bool is_within = true;
            for (const std::int32_t v : face.vertex) {
                is_within = is_within && is_near[static_cast<std::size_t>(v)] != 0;
            }
            if (!is_within) continue;
            part.faces.push_back(face);
            faces.push_back(f);
        }
        std::vector<std::uint32_t> crossing;
        for (const FacePair& pair :
             find_self_intersections(part, std::numeric_limits<std::size_t>::max()).pairs) {
            crossing.push_back(faces[pair.first]);
            crossing.push_back(faces[pair.second]);
        }
        return crossing;
    }

    const NearestFace& model_;
    const TriMesh& model_mesh_;
    const FieldGrid& grid_;
    double thickness_;
    double least_wall_;
    TriMesh& surface_;
    std::vector<Distance> distances_;  // by vertex
    Array<float> bounds_;              // by face: no point of it is nearer
    Array<std::uint8_t> is_moved_;     // by vertex
};

// Takes bodies of few nodes out of a set. Returns their number.
std::size_t drop_small_pieces(const DistanceField& field, NodeSet& set) {
    Regions regions(field.crossings(), field.grid());
    const std::uint32_t end = regions.flood_all(1, set);
    std::vector<std::uint64_t> sizes(end, 0);
    for (std::uint32_t b = 0; b < set.block_count(); ++b) {
        if (set.is_empty(b)) continue;
        if (set.is_full(b) && regions.whole(b) != Regions::kUnknown) {
            sizes[regions.whole(b)] += kBlockNodes;
            continue;
        }
        set.bits(b).visit(
            [&](std::uint32_t local) { ++sizes[regions.at(b * kBlockNodes + local)]; });
    }
    const auto is_small = [&](std::uint32_t region) { return sizes[region] < kFewestNodes; };
    const auto dropped = static_cast<std::size_t>(std::count_if(
        sizes.begin() + 1, sizes.end(), [](std::uint64_t size) { return size < kFewestNodes; }));
    if (dropped == 0) return 0;
    for (std::uint32_t b = 0; b < set.block_count(); ++b) {
        if (!set.is_mixed(b)) continue;
        const BlockBits bits = set.bits(b);
        bits.visit([&](std::uint32_t local) {
            if (is_small(regions.at(b * kBlockNodes + local))) set.reset(b * kBlockNodes + local);
        });
    }
    return dropped;
}

// Takes the nodes within so many cells of the corners of these faces out of a set. Returns their
// number.
std::uint64_t take_nodes(const FieldGrid& grid, const TriMesh& surface,
                         const std::vector<std::uint32_t>& faces, std::int32_t reach,
                         NodeSet& set) {
    std::uint64_t taken = 0;
    for (const std::uint32_t f : faces) {
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3d p = to_double(surface.corner_position(surface.faces[f], c)) - grid.origin;
            const NodeIndex low = {static_cast<std::int32_t>(std::floor(p.x / grid.cell)),
                                   static_cast<std::int32_t>(std::floor(p.y / grid.cell)),
                                   static_cast<std::int32_t>(std::floor(p.z / grid.cell))};
            for (std::int32_t k = low.k - reach; k <= low.k + 1 + reach; ++k) {
                for (std::int32_t j = low.j - reach; j <= low.j + 1 + reach; ++j) {
                    for (std::int32_t i = low.i - reach; i <= low.i + 1 + reach; ++i) {
                        if (!set.at({i, j, k})) continue;
                        set.reset(set.layout().number({i, j, k}));
                        ++taken;
                    }
                }
            }
        }
    }
    return taken;
}

// Fewer triangles, if the wall stays as thick as promised with them; false if not.
bool thin_out_cavity(const DistanceField& field, double thickness, double least_share,
                     TriMesh& cavity, WallReport& report) {
    TriMesh thinned = cavity;
    const ThinOutReport done = thin_out(thinned, kThinOutShare * thickness);
    if (done.removed == 0) return false;
    Mending gauge(field.surface(), field.faces(), field.grid(), thickness, least_share, thinned);
    gauge.measure({}, true);
    const double smallest = gauge.smallest_wall();
    if (smallest < least_share * thickness) return false;
    report.thinned = done;
    report.smallest_wall = smallest;
    cavity = std::move(thinned);
    return true;
}

bool is_leaking(const DistanceField& field) {
    const NodeSet& solid = field.solid();
    std::uint64_t count = 0;
    for (std::uint32_t b = 0; b < solid.block_count(); ++b) {
        if (!solid.is_empty(b)) count += solid.bits(b).count();
    }
    const double cell = field.grid().cell;
    return static_cast<double>(count) * cell * cell * cell < kLeastFilled * volume(field.faces());
}

double mean_wall_of(const NearestFace& model, const TriMesh& surface, double cell) {
    const std::size_t step = surface.faces.size() / kMostMeanSamples + 1;
    const std::size_t count = (surface.faces.size() + step - 1) / step;
    std::vector<std::pair<double, double>> terms(count);  // area, and area x distance
    for_blocks((count + kAtOnce - 1) / kAtOnce, [&](std::size_t piece) {
        NearestPoint found;  // the one before, which is near to the next
        const std::size_t end = std::min(count, (piece + 1) * kAtOnce);
        for (std::size_t i = piece * kAtOnce; i < end; ++i) {
            const Triangle t = triangle_of(surface, surface.faces[i * step]);
            const double area = length(cross(t[1] - t[0], t[2] - t[0]));
            const Vec3d p = (t[0] + t[1] + t[2]) / 3.0;
            constexpr double kAny = std::numeric_limits<double>::infinity();
            found = model.find(p, found.is_found() ? limit_by(p, found.point, kAny, cell) : kAny);
            terms[i] = {area, area * std::sqrt(found.squared_distance)};
        }
    });
    double area = 0;
    double sum = 0;
    for (const auto& [part, wall] : terms) {
        area += part;
        sum += wall;
    }
    return area > 0 ? sum / area : 0;
}

// What a model of that box takes without a cell of the caller's.
double least_cell(const Box3f& box) {
    const Vec3d low = to_double(box.low);
    const Vec3d high = to_double(box.high);
    const Vec3d extent = high - low;
    double reach = 0;
    for (const double c : {low.x, low.y, low.z, high.x, high.y, high.z}) {
        reach = std::max(reach, std::abs(c));
    }
    return std::max({std::cbrt(extent.x * extent.y * extent.z / kMostCells),
                     std::max({extent.x, extent.y, extent.z}) / kMostCellsOfSide,
                     reach / kMostCellsFromOrigin});
}

std::string three_digits(double number) {
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number,
                                   std::chars_format::general, 3);
    return {text.data(), end.ptr};
}

Status plan(const TriMesh& faces, double thickness, const InnerWallOptions& options,
            FieldGrid& grid) {
    if (!(thickness > 0) || !std::isfinite(thickness)) {
        return {StatusCode::BadOption, "the thickness must be a number above 0"};
    }
    if (!(options.cell >= 0) || !std::isfinite(options.cell)) {
        return {StatusCode::BadOption, "the cell must be a number above 0"};
    }
    if (faces.faces.empty()) {
        return {StatusCode::BadFile, "no triangle has an area and finite coordinates"};
    }
    const Box3f box = finite_bounds(faces);
    const double cell =
        options.cell > 0 ? options.cell : std::max(thickness / kCellsOfWall, least_cell(box));
    const Vec3d margin = {kMarginCells * cell, kMarginCells * cell, kMarginCells * cell};
    Status status =
        plan_grid({to_double(box.low) - margin, to_double(box.high) + margin}, cell, grid);
    const double least = kFewestCellsOfWall * rounded_cell(cell) * kRoundedUp;
    if (thickness < kFewestCellsOfWall * rounded_cell(cell)) {
        status = {StatusCode::TooLarge,
                  "the wall is too thin for a model of that size, or so far from the origin; take "
                  "at least " +
                      three_digits(least)};
    }
    return status;
}

}  // namespace

WallReport inner_wall(const TriMesh& mesh, double thickness, const InnerWallOptions& options,
                      TriMesh& cavity, const Progress& progress) {
    cavity = {};
    WallReport report;
    TriMesh faces = usable_faces(mesh);
    compact(faces);
    FieldGrid grid;
    report.status = plan(faces, thickness, options, grid);
    if (!report.status.ok()) return report;
    report.cell = grid.cell;
    DistanceField field(std::move(faces), grid);
    progress.set(15);
    report.label = field.label({.leaves_out_buried = false});
    if (report.label.is_open && is_leaking(field)) {
        report.status = {StatusCode::BadFile, "the model has holes; repair it first"};
        return report;
    }
    progress.set(30);
    LevelNodes nodes = offset_nodes(field, -thickness);
    Array<VertexDistance> known;
    progress.set(50);
    while (true) {
        make_well_composed(nodes.within, Composing::Take);
        report.dropped += drop_small_pieces(field, nodes.within);
        report.contour = contour(field, nodes, -thickness, cavity, nullptr, &known);
        ++report.passes;
        if (cavity.faces.empty()) break;
        if (report.passes == 1 && options.is_wanted && !options.is_wanted(cavity)) {
            cavity = {};
            break;
        }
        const Array<Vertex> before = cavity.vertices;
        Mending mending(field.surface(), field.faces(), grid, thickness, options.least_share,
                        cavity);
        mending.measure(known, options.measures);
        const std::vector<std::uint32_t> bad = mending.run();
        report.mended = mending.moved_count();
        const bool is_last = bad.empty() || report.passes == kMostPasses;
        if (is_last && !bad.empty()) mending.undo(before);
        if (is_last) {
            const bool is_thinned =
                !options.all_triangles &&
                thin_out_cavity(field, thickness, options.least_share, cavity, report);
            report.is_kept = is_thinned || bad.empty();
            if (!is_thinned && options.measures) {
                report.smallest_wall = mending.smallest_wall();
                report.is_kept =
                    report.smallest_wall >= options.least_share * thickness * (1 - 1e-6);
            }
            break;
        }
        report.taken += take_nodes(grid, cavity, bad, kReaches[report.passes - 1], nodes.within);
        progress.set(
            std::min<std::uint32_t>(95, 60 + 5 * static_cast<std::uint32_t>(report.passes)));
    }
    if (!cavity.faces.empty() && options.measures)
        report.mean_wall = mean_wall_of(field.surface(), cavity, grid.cell);
    progress.set(100);
    return report;
}

}  // namespace povmesh
